"""Refuses arrays that do not fit, before anything is allocated, and says what would."""

from typing import Optional

from . import _machine

BYTES_PER_AMPLITUDE = {"single": 8, "double": 16}


def largest_n(precision: str, usable: int) -> Optional[int]:
    """Return the largest number of qubits whose state fits in `usable` bytes, or None if not even one amplitude."""
    amplitudes = usable // BYTES_PER_AMPLITUDE[precision]
    return amplitudes.bit_length() - 1 if amplitudes else None


def require_state(n: int, precision: str, root: str = "/") -> None:
    """Raise MemoryError if a state of `n` qubits does not fit; the message tells what does."""
    memory = _machine.memory(root)
    # Compared in powers of two: `n` may be far too large to write 2**n down.
    most = largest_n(precision, memory.usable)
    if most is not None and n <= most:
        return
    most_without_cache = largest_n(precision, memory.usable_without_cache)
    size = _state_size(n, precision)
    if most_without_cache is not None and n <= most_without_cache:
        raise MemoryError(_cache_in_the_way(n, precision, size, memory, most, most_without_cache))
    message = (
        f"n={n} qubits in {precision} precision need {size}; {human(memory.usable_without_cache)} are available"
        f"{_why(memory)}. {_fits('The largest n that fits', most, precision)}"
    )
    if memory.usable < memory.usable_without_cache and most != most_without_cache:
        message += f" now, {most_without_cache} once the page cache has been dropped"
    single = largest_n("single", memory.usable)
    if precision == "double" and single is not None and n <= single:
        message += "; precision='single' needs half as much and fits"
    raise MemoryError(message + ".")


def require_bytes(needed: int, what: str, root: str = "/") -> None:
    """Raise MemoryError if `needed` bytes for `what`, a buffer outside the state, are not available."""
    available = _machine.memory(root).usable_without_cache
    if needed > available:
        raise MemoryError(f"{what} needs {human(needed)}; {human(available)} are available.")


def human(size: int) -> str:
    """Write a number of bytes with a unit, as in "16.0 GiB"."""
    units = ["bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"]
    step = min(max(size.bit_length() - 1, 0) // 10, len(units) - 1)
    return f"{size} bytes" if step == 0 else f"{size / 1024**step:.1f} {units[step]}"


def _state_size(n: int, precision: str) -> str:
    exponent = n + BYTES_PER_AMPLITUDE[precision].bit_length() - 1
    return human(1 << exponent) if exponent < 70 else f"2^{exponent} bytes"


def _why(memory: _machine.Memory) -> str:
    if memory.limit is not None and memory.limit < memory.available:
        return f" (a control group's limit; the machine has {human(memory.available)})"
    return ""


def _fits(start: str, n: Optional[int], precision: str) -> str:
    return f"{start} is {n}" if n is not None else f"Not even one amplitude in {precision} precision fits"


def _cache_in_the_way(
    n: int, precision: str, size: str, memory: _machine.Memory, most: Optional[int], most_without_cache: int
) -> str:
    needed = BYTES_PER_AMPLITUDE[precision] << n
    return (
        f"n={n} qubits in {precision} precision need {size}; {human(memory.usable_without_cache)} are available, but "
        f"only {human(memory.free)} of them are free: the rest is page cache (copies of files), which the library "
        f"does not count on. {_fits('The largest n that fits', most, precision)} now, {most_without_cache} once the "
        f"cache has been dropped. To drop it: as root, `sync; echo 1 > /proc/sys/vm/drop_caches`; or as any user, "
        f"`python3 -c \"b'1' * {needed}\"`, which fills that much memory once and gives it back."
    )
