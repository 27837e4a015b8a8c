"""Which bit of an index is which qubit in an array of amplitudes: qubit q is bit q, unless an order says otherwise."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import checks, future
from .types import Order

_PIECE_BITS = 14


def of_amplitudes(array: NDArray[Any], order: Order | None, name: str, keyword: str = "order") -> Order:
    """Return the order of an array of 2**n amplitudes, ``"little"`` if none is given.

    Before version 0.2 it was "big" then. Whoever gives none is warned where that makes a difference: unless the array
    is a state's own, or read either way the same state.
    """
    if order is not None:
        return checks.order(order, keyword)
    if not _is_of_a_state(array) and not _reads_the_same(array):
        future.warn(
            f"{name} has qubit q as bit q of the index, the order of StateVector.array; in version 0.1 qubit 0 was "
            f'the highest bit. Give {keyword}="little" to agree, or {keyword}="big" for the order of 0.1'
        )
    return "little"


def _is_of_a_state(array: NDArray[Any]) -> bool:
    return "velacamplix amplitudes" in repr(array.base) if type(array.base).__name__ == "PyCapsule" else False


def _reads_the_same(array: NDArray[Any]) -> bool:
    n = array.size.bit_length() - 1
    low = min(n, _PIECE_BITS)
    places = _reversed(low) << (n - low)
    for number, place in enumerate(_reversed(n - low).tolist()):
        if not np.array_equal(array[number << low : (number + 1) << low], array[places | place]):
            return False
    return True


def _reversed(n: int) -> NDArray[np.int64]:
    """Return the numbers below 2**n, each with its n bits reversed."""
    numbers = np.zeros(1, dtype=np.int64)
    for _ in range(n):
        numbers = np.concatenate([2 * numbers, 2 * numbers + 1])
    return numbers
