"""The most probable outcomes of a state, found without a second array of its size."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import TYPE_CHECKING

import numpy as np

from ..basics.types import Precision

if TYPE_CHECKING:
    from .densitymatrix import DensityMatrix
    from .statevector import StateVector

_PIECE = 2**18
# The square of a few units in the last place of an amplitude, by the precision of the state.
_NOISE = {"double": 1e-28, "single": 1e-11}
# How many of the 52 digits of a probability are ignored where outcomes are ranked: a little less than half of those that
# the precision of the state gives, and all that it does not give.
_IGNORED = {"double": 22, "single": 39}


def most_probable(state: StateVector | DensityMatrix, count: int, qubits: Sequence[int]) -> list[tuple[str, float]]:
    """Return the `count` most probable outcomes of the listed qubits, first listed leftmost.

    Impossible outcomes are left out, and with them those below what rounding leaves behind. Of outcomes that are
    equally probable, but for rounding, the lower numbers come first.

    Examples
    --------
    >>> [(outcome, round(p, 6)) for outcome, p in most_probable(StateVector(3).set_basis_state("+01"), 5, [2, 1])]
    [('10', 1.0)]
    """
    try:
        probabilities = state.distribution(qubits)
    except MemoryError:
        if len(qubits) < state.n_qubits:
            raise
    else:
        best = best_of(probabilities, count, state.precision)
        return [(format(index, f"0{len(qubits)}b") if qubits else "", probability) for index, probability in best]
    # Every outcome is one amplitude, so no sum has to be formed and each piece of the array serves on the way. "Lower
    # number" then means that of the index.
    best = best_of(state.array, count, state.precision, _squares)
    return [("".join(str(index >> qubit & 1) for qubit in qubits), probability) for index, probability in best]


def _doubles(probabilities: np.ndarray) -> np.ndarray:
    return probabilities.astype(np.float64, copy=False)


def best_of(
    values: np.ndarray,
    count: int,
    precision: Precision,
    probabilities: Callable[[np.ndarray], np.ndarray] = _doubles,
) -> list[tuple[int, float]]:
    """Return positions and probabilities of the most probable; a function makes probabilities of a piece of the values."""
    best: list[tuple[float, int, float]] = []  # rank, position, probability
    for start in range(0, len(values), _PIECE):
        piece = probabilities(values[start : start + _PIECE])
        ranks = _without_rounding(piece, _IGNORED[precision])
        floor = best[-1][0] if len(best) == count else _NOISE[precision]
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


def _without_rounding(probabilities: np.ndarray, ignored: int) -> np.ndarray:
    """Round away the last binary digits, so that what should be equal is equal."""
    numbers = np.ascontiguousarray(probabilities).view(np.int64)
    return ((numbers + (1 << (ignored - 1))) >> ignored << ignored).view(np.float64)


def _squares(amplitudes: np.ndarray) -> np.ndarray:
    squares: np.ndarray = _doubles(amplitudes.real) ** 2 + _doubles(amplitudes.imag) ** 2
    return squares
