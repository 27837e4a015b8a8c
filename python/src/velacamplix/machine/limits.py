"""What this machine gives a process: memory for amplitudes and processors for threads.

Every function takes the root of the file system as its last argument, so that tests can lay out the files of
another machine in a folder.
"""

import functools
import os
from typing import NamedTuple

from ..basics import checks
from ..core import extension
from . import groups

# A team this large is always a mistake, and OpenMP ends the process when it cannot start a thread.
MOST_THREADS = max(256, 4 * (os.cpu_count() or 1))

# Where OpenMP binds its threads (OMP_PROC_BIND, GOMP_CPU_AFFINITY), it has bound this one to a single processor when it
# was loaded, and the affinity tells no more what the process may use. 0 where it does not.
_BOUND = extension.bound_processors()


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
    limit: int | None

    @property
    def usable(self) -> int:
        """The largest array that fits, in bytes."""
        return min(self.free, self.usable_without_cache)

    @property
    def usable_without_cache(self) -> int:
        """The largest array that would fit once the page cache has been dropped, in bytes."""
        return self.available if self.limit is None else min(self.available, self.limit)


def memory(root: str = "/") -> Memory:
    """Read the memory of the machine and the limits of the process's control groups.

    The array that the core keeps for its next state is given back first.
    """
    extension.drop_kept()
    fields = _meminfo(root)
    free = fields.get("MemFree", 0)
    # Kernels before 3.14 do not estimate; what is free is then a safe answer.
    return Memory(free=free, available=fields.get("MemAvailable", free), limit=groups.memory_left(root))


def total_memory(root: str = "/") -> int:
    """Return the machine's memory in bytes."""
    return _meminfo(root).get("MemTotal", 0)


class _Limits(NamedTuple):
    """What the affinity and the control groups of this process set."""

    processors: int
    threads: tuple[tuple[int, str], ...]


@functools.lru_cache(maxsize=1)
def _limits_of(root: str, affinity: frozenset[int]) -> _Limits:
    # Reading these files takes twenty times as long as making a small state, so what they say is kept until there is a
    # reason to look again: a new affinity, which costs little to see, a fork, or `refresh_threads`.
    allowed, quota = _BOUND or len(affinity), groups.processor_quota(root)
    # A part of a processor is rounded down: a team that overruns its quota is stopped as a whole.
    processors = allowed if quota is None else max(1, min(allowed, int(quota)))
    return _Limits(processors, groups.thread_limits(root))


os.register_at_fork(after_in_child=_limits_of.cache_clear)


def refresh_threads() -> int:
    """Look again at what limits the number of threads, and return the number that is now the default.

    The processors and threads that a container's limits allow are read once per process, and again after a fork and
    after a change of affinity. Only where they change otherwise, while the process runs, has it to be told.

    Raises
    ------
    ValueError
        If VELACAMPLIX_NUM_THREADS is set to something that is not a number of threads.

    Examples
    --------
    >>> from velacamplix import StateVector, refresh_threads
    >>> refresh_threads() == StateVector(2).threads
    True
    """
    _limits_of.cache_clear()
    return thread_count(None)


def _limits(root: str) -> _Limits:
    return _limits_of(os.fspath(root), frozenset(os.sched_getaffinity(0)))


def processors(root: str = "/") -> int:
    """Return the number of processors this process may keep busy: its affinity, or less if a group has a quota."""
    return _limits(root).processors


def default_threads(root: str = "/") -> tuple[int, str]:
    """Return the number of threads when the caller names none, and where the number comes from.

    Raises
    ------
    ValueError
        If VELACAMPLIX_NUM_THREADS is set to something that is not a number of threads.
    """
    return _default_threads(_limits(root))


def _default_threads(found: _Limits) -> tuple[int, str]:
    own = os.environ.get("VELACAMPLIX_NUM_THREADS", "").strip()
    if own:
        if not _is_count(own):
            raise ValueError(
                f"environment variable VELACAMPLIX_NUM_THREADS is {checks.show(own)}; "
                f"expected a whole number from 1 to {MOST_THREADS}"
            )
        return int(own), "VELACAMPLIX_NUM_THREADS"

    # One number per nesting level; ours is the outermost. OpenMP itself complains about a bad value and goes on.
    outermost = os.environ.get("OMP_NUM_THREADS", "").split(",")[0].strip()
    if _is_count(outermost):
        return int(outermost), "OMP_NUM_THREADS"

    return min(found.processors, MOST_THREADS), "processors available"


def _is_count(text: str) -> bool:
    # No count has more digits, and int() refuses thousands of them.
    return text.isascii() and text.isdigit() and len(text) < 10 and 1 <= int(text) <= MOST_THREADS


def thread_count(threads: int | None, root: str = "/") -> int:
    """Return the number of threads that a caller asks for, or the default for None.

    Raises
    ------
    TypeError, ValueError
        If it is no number of threads, or one that the system would not start.
    """
    if type(threads) is int and threads == 1:
        return 1
    found = _limits(root)
    if threads is None:
        count, source = _default_threads(found)
        of_our_choice = source == "processors available"
    else:
        count, source, of_our_choice = checks.integer(threads, "threads", minimum=1, maximum=MOST_THREADS), "threads", False
    most = MOST_THREADS if count == 1 else _most_threads(found, root)
    if count <= most:
        return count
    if of_our_choice:
        return most
    raise ValueError(
        f"{source} must be at most {most} here, got {count}: a control group (a container's limit of processes) lets "
        f"this process have no more threads"
    )


def most_threads(root: str = "/") -> int:
    """Return the largest number of threads that can be asked for: OpenMP ends the process when one is refused."""
    return _most_threads(_limits(root), root)


def _most_threads(found: _Limits, root: str) -> int:
    left = groups.threads_left(found.threads)
    # Those that run already are there to be used.
    return MOST_THREADS if left is None else max(1, min(MOST_THREADS, left + _own_threads(root)))


def _own_threads(root: str) -> int:
    try:
        return len(os.listdir(f"{root}/proc/self/task"))
    except OSError:
        return 1


def _meminfo(root: str) -> dict[str, int]:
    fields = {}
    for line in groups.read(f"{root}/proc/meminfo").splitlines():
        name, _, rest = line.partition(":")
        words = rest.split()
        if words:
            fields[name] = int(words[0]) * 1024
    return fields
