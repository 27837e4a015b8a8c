"""The limits that Linux's control groups, and with them containers, set for this process.

Both versions of the interface are read, the process's own group and those around it. Every function takes the root of
the file system, so that tests can lay out the files of another machine in a folder.
"""

import functools
import os


def memory_left(root: str) -> int | None:
    """Return the bytes that the groups leave this process, or None where they set no limit."""
    left = []
    for folder in folders(root, "memory"):
        # Version 2 of the interface, then version 1. File pages that nobody used lately do not count as taken: the
        # group drops them before it runs out.
        for limit_file, usage_file, inactive in (
            ("memory.max", "memory.current", "inactive_file"),
            ("memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file"),
        ):
            limit = number_in(f"{folder}/{limit_file}")
            # Version 1 writes "no limit" as the largest multiple of the page size.
            if limit is None or limit >= 2**62:
                continue
            usage = number_in(f"{folder}/{usage_file}") or 0
            left.append(max(0, limit - max(0, usage - _stat(f"{folder}/memory.stat", inactive))))
    return min(left) if left else None


def processor_quota(root: str) -> float | None:
    """Return how many processors the groups let this process keep busy, or None where they set no quota."""
    quotas = []
    for folder in folders(root, "cpu"):
        words = read(f"{folder}/cpu.max").split()
        if len(words) == 2 and words[0].isdigit() and int(words[1]) > 0:
            quotas.append(int(words[0]) / int(words[1]))
        quota, period = number_in(f"{folder}/cpu.cfs_quota_us"), number_in(f"{folder}/cpu.cfs_period_us")
        if quota is not None and period:
            quotas.append(quota / period)
    return min(quotas) if quotas else None


def thread_limits(root: str) -> tuple[tuple[int, str], ...]:
    """Return the limits that the groups set for the number of threads, each with the file that counts those there are."""
    found = [(number_in(f"{folder}/pids.max"), f"{folder}/pids.current") for folder in folders(root, "pids")]
    return tuple((limit, counter) for limit, counter in found if limit is not None)


def threads_left(limits: tuple[tuple[int, str], ...]) -> int | None:
    """Return how many threads such limits let this process start now, or None where there are none."""
    return min((max(0, limit - (number_in(counter) or 0)) for limit, counter in limits), default=None)


def folders(root: str, controller: str) -> tuple[str, ...]:
    """Return the folders whose limits bind this process, its own group first, then the groups around it."""
    # Limits change at any time and a process may be moved, but what is mounted where stays.
    return _folders(os.fspath(root), controller, read(f"{root}/proc/self/cgroup"))


@functools.lru_cache(maxsize=64)
def _folders(root: str, controller: str, groups: str) -> tuple[str, ...]:
    paths = _group_paths(groups, controller)
    found = []
    for line in read(f"{root}/proc/self/mountinfo").splitlines():
        before, _, after = line.partition(" - ")
        kind = after.split()[:1]
        if kind not in (["cgroup"], ["cgroup2"]):
            continue
        if kind == ["cgroup"] and controller not in after.split()[-1].split(","):
            continue
        inside, mounted = before.split()[3:5]
        path = paths.get(kind[0])
        if path is None:
            continue
        # Within a container the process's path may be told from the host's point of view; then only the mount
        # itself, which is the container's own group, can be read.
        below = path[len(inside.rstrip("/")):] if path.startswith(inside) else ""
        mount = f"{root.rstrip('/')}/{mounted.strip('/')}"
        folder = f"{mount}/{below.strip('/')}".rstrip("/")
        if not os.path.isdir(folder):
            folder = mount
        while True:
            found.append(folder)
            if folder == mount:
                break
            folder = os.path.dirname(folder)
    return tuple(found)


def _group_paths(groups: str, controller: str) -> dict[str, str]:
    # Lines are "number:controllers:path"; version 2 has number 0 and an empty list.
    paths = {}
    for line in groups.splitlines():
        number, controllers, path = line.split(":", 2)
        if number == "0" and not controllers:
            paths["cgroup2"] = path
        elif controller in controllers.split(","):
            paths["cgroup"] = path
    return paths


def read(path: str) -> str:
    """Return a file's text, or nothing for one that is missing or forbidden: it sets no limit."""
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except OSError:
        return ""


def number_in(path: str) -> int | None:
    """Return the number in a file; None for a missing file, for "max" and for the -1 of an unset quota."""
    text = read(path).strip()
    return int(text) if text.isdigit() else None


def _stat(path: str, name: str) -> int:
    for line in read(path).splitlines():
        words = line.split()
        if len(words) == 2 and words[0] == name:
            return int(words[1])
    return 0
