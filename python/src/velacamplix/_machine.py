"""What this machine gives a process: memory for amplitudes and processors for threads.

Every function takes the root of the file system as its last argument, so that tests can lay out the files of
another machine in a folder.
"""

import os
from pathlib import Path
from typing import Dict, List, NamedTuple, Optional, Tuple

# A team this large is always a mistake, and OpenMP ends the process when it cannot start a thread.
MOST_THREADS = max(256, 4 * (os.cpu_count() or 1))


class Memory(NamedTuple):
    """Bytes of memory, as of now.

    Attributes
    ----------
    free : int
        Pages that hold nothing. The library refuses an array that is larger than this.
    available : int
        What the kernel could hand out without swapping: free pages and page cache it would drop.
    limit : int or None
        What the control groups of this process leave it, or None where they set no limit.
    """

    free: int
    available: int
    limit: Optional[int]

    @property
    def usable(self) -> int:
        """The largest array that fits, in bytes."""
        return min(self.free, self.usable_without_cache)

    @property
    def usable_without_cache(self) -> int:
        """The largest array that would fit once the page cache has been dropped, in bytes."""
        return self.available if self.limit is None else min(self.available, self.limit)


def memory(root: str = "/") -> Memory:
    """Read the memory of the machine and the limits of the process's control groups."""
    fields = _meminfo(Path(root))
    free = fields.get("MemFree", 0)
    # Kernels before 3.14 do not estimate; what is free is then a safe answer.
    return Memory(free=free, available=fields.get("MemAvailable", free), limit=_memory_left_by_groups(Path(root)))


def total_memory(root: str = "/") -> int:
    """Return the machine's memory in bytes."""
    return _meminfo(Path(root)).get("MemTotal", 0)


def processors(root: str = "/") -> int:
    """Return the number of processors this process may keep busy: its affinity, or less if a group has a quota."""
    allowed = len(os.sched_getaffinity(0))
    quota = _processor_quota(Path(root))
    if quota is None:
        return allowed
    # A part of a processor is rounded down: a team that overruns its quota is stopped as a whole.
    return max(1, min(allowed, int(quota)))


def default_threads(root: str = "/") -> Tuple[int, str]:
    """Return the number of threads when the caller names none, and where the number comes from.

    Raises
    ------
    ValueError
        If VELACAMPLIX_NUM_THREADS is set to something that is not a number of threads.
    """
    own = os.environ.get("VELACAMPLIX_NUM_THREADS", "").strip()
    if own:
        if not _is_count(own):
            raise ValueError(
                f"environment variable VELACAMPLIX_NUM_THREADS is {own!r}; "
                f"expected a whole number from 1 to {MOST_THREADS}"
            )
        return int(own), "VELACAMPLIX_NUM_THREADS"

    # One number per nesting level; ours is the outermost. OpenMP itself complains about a bad value and goes on.
    outermost = os.environ.get("OMP_NUM_THREADS", "").split(",")[0].strip()
    if _is_count(outermost):
        return int(outermost), "OMP_NUM_THREADS"

    return min(processors(root), MOST_THREADS), "processors available"


def _is_count(text: str) -> bool:
    return text.isascii() and text.isdigit() and 1 <= int(text) <= MOST_THREADS


def _read(path: Path) -> str:
    # A file that is missing or forbidden sets no limit.
    try:
        return path.read_text()
    except OSError:
        return ""


def _meminfo(root: Path) -> Dict[str, int]:
    fields = {}
    for line in _read(root / "proc/meminfo").splitlines():
        name, _, rest = line.partition(":")
        words = rest.split()
        if words:
            fields[name] = int(words[0]) * 1024
    return fields


def _stat(path: Path, name: str) -> int:
    for line in _read(path).splitlines():
        words = line.split()
        if len(words) == 2 and words[0] == name:
            return int(words[1])
    return 0


def _number(path: Path) -> Optional[int]:
    # None for a missing file, for "max" and for the -1 of an unset quota.
    text = _read(path).strip()
    return int(text) if text.isdigit() else None


def _memory_left_by_groups(root: Path) -> Optional[int]:
    left = []
    for folder in _group_folders(root, "memory"):
        # Version 2 of the interface, then version 1. File pages that nobody used lately do not count as taken: the
        # group drops them before it runs out.
        for limit_file, usage_file, inactive in (
            ("memory.max", "memory.current", "inactive_file"),
            ("memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file"),
        ):
            limit = _number(folder / limit_file)
            # Version 1 writes "no limit" as the largest multiple of the page size.
            if limit is None or limit >= 2**62:
                continue
            usage = _number(folder / usage_file) or 0
            left.append(max(0, limit - max(0, usage - _stat(folder / "memory.stat", inactive))))
    return min(left) if left else None


def _processor_quota(root: Path) -> Optional[float]:
    quotas = []
    for folder in _group_folders(root, "cpu"):
        words = _read(folder / "cpu.max").split()
        if len(words) == 2 and words[0].isdigit() and int(words[1]) > 0:
            quotas.append(int(words[0]) / int(words[1]))
        quota, period = _number(folder / "cpu.cfs_quota_us"), _number(folder / "cpu.cfs_period_us")
        if quota is not None and period:
            quotas.append(quota / period)
    return min(quotas) if quotas else None


def _group_folders(root: Path, controller: str) -> List[Path]:
    """Return the folders whose limits bind this process, its own group first, then the groups around it."""
    paths = _group_paths(root, controller)
    folders = []
    for line in _read(root / "proc/self/mountinfo").splitlines():
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
        mount = root / mounted.lstrip("/")
        folder = mount / below.strip("/")
        if not folder.is_dir():
            folder = mount
        while True:
            folders.append(folder)
            if folder == mount:
                break
            folder = folder.parent
    return folders


def _group_paths(root: Path, controller: str) -> Dict[str, str]:
    # Lines are "number:controllers:path"; version 2 has number 0 and an empty list.
    paths = {}
    for line in _read(root / "proc/self/cgroup").splitlines():
        number, controllers, path = line.split(":", 2)
        if number == "0" and not controllers:
            paths["cgroup2"] = path
        elif controller in controllers.split(","):
            paths["cgroup"] = path
    return paths
