"""Large contents in pickles, with hardly more memory than the pickle itself.

Whoever writes a pickle keeps a reference to all that it has written, but for numbers. So what is large goes in as a
sequence of numbers that are made one by one. From protocol 5 on arrays are buffers, which may go beside the pickle; there
they stay one, although in the pickle itself they take their size a second time.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import numpy as np

from . import memory

# Of an array, in one number: small enough for the oldest protocols, which write numbers in decimal digits.
_BYTES = 1024
# Of an array that is given back piece by piece.
_PIECE = 2**20


class Packed:
    """Takes the place of a one-dimensional array in a pickle; `append` puts it together again, the last bytes first.

    Parameters
    ----------
    array : numpy.ndarray
        Contiguous.
    is_spare : bool
        Whether nobody else needs the array. Its memory is then given back while the pickle grows.
    """

    def __init__(self, array: np.ndarray, is_spare: bool = False) -> None:
        self.array = array
        self._is_spare = is_spare
        self._missing = array.nbytes

    def __reduce_ex__(self, protocol: Any) -> tuple[Any, ...]:
        if protocol >= 5:
            return Packed, (self.array,)
        return _empty, (self.array.dtype.str, len(self.array)), None, self.numbers()

    def numbers(self) -> Iterator[int]:
        """Iterate over the array's bytes, from the end, as numbers whose lowest byte comes first."""
        stop = self.array.nbytes
        while stop:
            start = max(0, stop - _PIECE)
            data = self.array.view(np.uint8)[start:stop].tobytes()
            if self._is_spare:
                self.array.resize(start // self.array.itemsize, refcheck=False)
            for end in range(len(data), 0, -_BYTES):
                yield int.from_bytes(data[max(0, end - _BYTES) : end], "little")
            stop = start

    def append(self, number: int) -> None:
        """Fill in the next number."""
        start = max(0, self._missing - _BYTES)
        octets = number.to_bytes(self._missing - start, "little")
        self.array.view(np.uint8)[start : self._missing] = np.frombuffer(octets, dtype=np.uint8)
        self._missing = start


def _empty(dtype: str, length: int) -> Packed:
    kind = np.dtype(dtype)
    memory.require_bytes(kind.itemsize * length, f"an array of {length} numbers in a pickle")
    return Packed(np.zeros(length, dtype=kind))
