"""Refuses arrays that do not fit, before anything is allocated, and says what would."""

import os

from ..basics import checks
from ..basics.types import Precision
from ..core import extension
from . import limits

BYTES_PER_AMPLITUDE = {"single": 8, "double": 16}

# A complex number of Python's and its place in a tuple.
_BYTES_PER_ENTRY = 40

# Far beyond any machine, and a number of bytes that can still be written down.
_MOST_QUBITS = 4096

# Not worth a look at the machine, which takes longer than a small circuit: the interpreter itself is larger.
SMALL_BYTES = 2**20


def memory_needed(n: int, precision: Precision = "double") -> int:
    """Return the bytes that a state of `n` qubits takes, without asking whether they are there.

    Parameters
    ----------
    n : int
        Number of qubits, from 0 to 4096.
    precision : {"double", "single"}
        16 or 8 bytes for each of the 2**n amplitudes.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range.

    Examples
    --------
    >>> from velacamplix import memory_needed
    >>> memory_needed(30) / 2**30, memory_needed(30, "single") / 2**30      # GiB
    (16.0, 8.0)
    """
    return BYTES_PER_AMPLITUDE[checks.precision(precision)] << checks.integer(n, "n", minimum=0, maximum=_MOST_QUBITS)


def max_qubits(precision: Precision = "double") -> int:
    """Return the number of qubits of the largest state that can be made now.

    Counted is free memory, without the page cache, and what the control groups of this process (a container's limit)
    leave it.

    Parameters
    ----------
    precision : {"double", "single"}
        16 or 8 bytes per amplitude.

    Raises
    ------
    TypeError, ValueError
        If `precision` is neither of the two.
    MemoryError
        If not even one amplitude fits.

    Examples
    --------
    >>> from velacamplix import max_qubits
    >>> 10 < max_qubits() < max_qubits("single") < 64
    True
    """
    memory = limits.memory()
    most = largest_n(checks.precision(precision), memory.usable)
    if most is None:
        raise MemoryError(f"not even one amplitude fits; {_available(memory)}")
    return most


def largest_n(precision: Precision, usable: int) -> int | None:
    """Return the largest number of qubits whose state fits in `usable` bytes, or None if not even one amplitude."""
    amplitudes = usable // BYTES_PER_AMPLITUDE[precision]
    return amplitudes.bit_length() - 1 if amplitudes else None


def require_state(n: int, precision: Precision, root: str = "/", may_reuse: bool = False) -> None:
    """Raise MemoryError if a state of `n` qubits does not fit; the message tells what does.

    With `may_reuse` the next array made is that state's: if the core keeps one of its size, it fits.
    """
    if n < SMALL_BYTES.bit_length() and BYTES_PER_AMPLITUDE[precision] << n <= SMALL_BYTES:
        return
    if may_reuse and _is_kept(n, precision):
        return
    memory = limits.memory(root)
    # Compared in powers of two: `n` may be far too large to write 2**n down.
    most = largest_n(precision, memory.usable)
    if most is not None and n <= most:
        return
    most_without_cache = largest_n(precision, memory.usable_without_cache)
    size = _state_size(n, precision)
    if most_without_cache is not None and n <= most_without_cache:
        raise MemoryError(_cache_in_the_way(n, precision, size, memory, most, most_without_cache))
    message = (
        f"n={checks.digits(n)} qubits in {precision} precision need {size}; {_available(memory)}. "
        f"{_fits('The largest n that fits', most, precision)}"
    )
    if memory.usable < memory.usable_without_cache and most != most_without_cache:
        message += f" now, {most_without_cache} once the page cache has been dropped"
    single = largest_n("single", memory.usable)
    if precision == "double" and single is not None and n <= single:
        message += "; precision='single' needs half as much and fits"
    if _is_limited(memory) and _fits_in(n, precision, memory.available):
        message += "; raising the container's (control group's) memory limit would help"
    raise MemoryError(message + ".")


def _is_kept(n: int, precision: Precision) -> bool:
    return n < _MOST_QUBITS and extension.kept_bytes() == BYTES_PER_AMPLITUDE[precision] << n


def require_density(n: int, precision: Precision, root: str = "/", may_reuse: bool = False) -> None:
    """Raise MemoryError if a density matrix of `n` qubits, 4**n entries, does not fit; the message tells what does.

    `may_reuse` is as for `require_state`.
    """
    if 2 * n < SMALL_BYTES.bit_length() and BYTES_PER_AMPLITUDE[precision] << 2 * n <= SMALL_BYTES:
        return
    if may_reuse and _is_kept(2 * n, precision):
        return
    memory = limits.memory(root)
    most = largest_n(precision, memory.usable)
    if most is not None and 2 * n <= most:
        return
    raise MemoryError(
        f"a density matrix of n={checks.digits(n)} qubits in {precision} precision needs {_state_size(2 * n, precision)}; "
        f"{_available(memory)}, of which the library counts on {human(memory.usable)}. "
        f"{_fits('The largest n that fits', None if most is None else most // 2, precision)}. The other way out: "
        'run(circuit, method="trajectories"), which follows states of 2**n amplitudes.'
    )


def density_fits(n: int, precision: Precision) -> bool:
    """Return whether a density matrix of `n` qubits fits. For one beyond the machine nobody looks at what is free."""
    if n > _MOST_QUBITS or BYTES_PER_AMPLITUDE[precision] << 2 * n > os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES"):
        return False
    try:
        require_density(n, precision)
    except MemoryError:
        return False
    return True


def require_bytes(needed: int, what: str, root: str = "/") -> None:
    """Raise MemoryError if `needed` bytes for `what`, a buffer outside the state, are not available."""
    if needed <= SMALL_BYTES:
        return
    memory = limits.memory(root)
    if needed > memory.usable_without_cache:
        raise MemoryError(f"{what} needs {human(needed)}; {_available(memory)}.")


def fits(size: int) -> bool:
    """Return whether `require_bytes` would let so many pass."""
    return size <= SMALL_BYTES or size <= limits.memory().usable_without_cache


def require_entries(count: int) -> None:
    """Raise MemoryError if the entries of a gate, numbers of Python's with a place in a tuple, do not fit."""
    require_bytes(_BYTES_PER_ENTRY * count, f"a gate of {count} entries")


def human(size: int) -> str:
    """Write a number of bytes with a unit, as in "16.0 GiB"."""
    units = ["bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"]
    step = min(max(size.bit_length() - 1, 0) // 10, len(units) - 1)
    return f"{size} bytes" if step == 0 else f"{size / 1024**step:.1f} {units[step]}"


def _state_size(n: int, precision: Precision) -> str:
    exponent = n + BYTES_PER_AMPLITUDE[precision].bit_length() - 1
    return human(1 << exponent) if exponent < 70 else f"2^{checks.digits(exponent)} bytes"


def _is_limited(memory: limits.Memory) -> bool:
    return memory.limit is not None and memory.limit < memory.available


def _available(memory: limits.Memory) -> str:
    text = f"{human(memory.usable_without_cache)} are available"
    if _is_limited(memory):
        text += f" (a control group's limit; the machine has {human(memory.available)})"
    return text


def _fits_in(n: int, precision: Precision, size: int) -> bool:
    most = largest_n(precision, size)
    return most is not None and n <= most


def _fits(start: str, n: int | None, precision: Precision) -> str:
    return f"{start} is {n}" if n is not None else f"Not even one amplitude in {precision} precision fits"


def _cache_in_the_way(
    n: int, precision: Precision, size: str, memory: limits.Memory, most: int | None, most_without_cache: int
) -> str:
    needed = BYTES_PER_AMPLITUDE[precision] << n
    return (
        f"n={n} qubits in {precision} precision need {size}; {_available(memory)}, but "
        f"only {human(memory.free)} of them are free: the rest is page cache (copies of files), which the library "
        f"does not count on. {_fits('The largest n that fits', most, precision)} now, {most_without_cache} once the "
        f"cache has been dropped. To drop it: as root, `sync; echo 1 > /proc/sys/vm/drop_caches`; or as any user, "
        f"`python3 -c \"b'1' * {needed}\"`, which fills that much memory once and gives it back."
    )
