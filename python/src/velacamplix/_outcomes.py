"""The most probable outcomes of a state, found without a second array of its size."""

from __future__ import annotations

from typing import TYPE_CHECKING, Callable, List, Sequence, Tuple

import numpy as np

if TYPE_CHECKING:
    from .statevector import StateVector

_PIECE = 2**18
# The square of a few units in the last place of an amplitude, by the type of the values that are read.
_NOISE = {"d": 1e-28, "D": 1e-28, "f": 1e-11, "F": 1e-11}


def most_probable(state: StateVector, count: int, qubits: Sequence[int]) -> List[Tuple[str, float]]:
    """Return the `count` most probable outcomes of the listed qubits, first listed leftmost.

    Impossible outcomes are left out, and with them those below what rounding leaves behind. Of outcomes that are
    equally probable, but for rounding, the lower numbers come first.

    Examples
    --------
    >>> [(outcome, round(p, 6)) for outcome, p in most_probable(StateVector(3).reset("+01"), 5, [2, 1])]
    [('10', 1.0)]
    """
    try:
        probabilities = state.distribution(qubits)
    except MemoryError:
        if len(qubits) < state.n_qubits:
            raise
    else:
        best = _best_of(probabilities, count, np.asarray)
        return [(format(index, f"0{len(qubits)}b") if qubits else "", probability) for index, probability in best]
    # Every outcome is one amplitude, so no sum has to be formed and each piece of the array serves on the way. "Lower
    # number" then means that of the index.
    best = _best_of(state.array, count, _squares)
    return [("".join(str(index >> qubit & 1) for qubit in qubits), probability) for index, probability in best]


def _best_of(
    values: np.ndarray, count: int, probabilities: Callable[[np.ndarray], np.ndarray]
) -> List[Tuple[int, float]]:
    best: List[Tuple[float, int, float]] = []  # rank, position, probability
    for start in range(0, len(values), _PIECE):
        piece = probabilities(values[start : start + _PIECE])
        ranks = _without_rounding(piece)
        floor = best[-1][0] if len(best) == count else _NOISE[values.dtype.char]
        candidates = np.flatnonzero(ranks > floor)
        if len(candidates) > count:
            # Everything above the last place, and of those that share it the first ones.
            last = np.partition(ranks[candidates], -count)[-count]
            above = candidates[ranks[candidates] > last]
            level = candidates[ranks[candidates] == last][: count - len(above)]
            candidates = np.concatenate([above, level])
        best += [(float(ranks[i]), start + int(i), float(piece[i])) for i in candidates]
        best = sorted(best, key=lambda entry: (-entry[0], entry[1]))[:count]
    return [(position, probability) for _, position, probability in best]


def _without_rounding(probabilities: np.ndarray) -> np.ndarray:
    """Round to a little more than half of the leading bits, so that what should be equal is equal."""
    bits, dropped = (np.int64, 22) if probabilities.dtype == np.float64 else (np.int32, 10)
    numbers = np.ascontiguousarray(probabilities).view(bits)
    return ((numbers + (1 << (dropped - 1))) >> dropped << dropped).view(probabilities.dtype)


def _squares(amplitudes: np.ndarray) -> np.ndarray:
    return amplitudes.real**2 + amplitudes.imag**2

