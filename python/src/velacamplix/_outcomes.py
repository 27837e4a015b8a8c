"""The most probable outcomes of a state, found without a second array of its size."""

from __future__ import annotations

from typing import Callable, List, Sequence, Tuple

import numpy as np

from .statevector import StateVector

_PIECE = 2**18


def most_probable(state: StateVector, count: int, qubits: Sequence[int]) -> List[Tuple[str, float]]:
    """Return the `count` most probable outcomes of the listed qubits, first listed leftmost.

    Impossible outcomes are left out. Of equally probable ones the lower numbers come first.

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
    best: List[Tuple[int, float]] = []
    for start in range(0, len(values), _PIECE):
        piece = probabilities(values[start : start + _PIECE])
        floor = best[-1][1] if len(best) == count else 0.0
        candidates = np.flatnonzero(piece > floor)
        if len(candidates) > count:
            # Everything above the last place, and of those that share it the first ones.
            last = np.partition(piece[candidates], -count)[-count]
            above = candidates[piece[candidates] > last]
            level = candidates[piece[candidates] == last][: count - len(above)]
            candidates = np.concatenate([above, level])
        best += [(start + int(i), float(piece[i])) for i in candidates]
        best = sorted(best, key=lambda entry: (-entry[1], entry[0]))[:count]
    return best


def _squares(amplitudes: np.ndarray) -> np.ndarray:
    return amplitudes.real.astype(np.float64) ** 2 + amplitudes.imag.astype(np.float64) ** 2

