"""From the active qubits of a run to all qubits of its circuit: the others are 0."""

from __future__ import annotations

from collections.abc import Sequence
from itertools import groupby
from typing import TypeVar

import numpy as np

from ..core import extension
from ..states.base import StateBase
from ..states.densitymatrix import DensityMatrix

# A state of so many qubits, 256 MiB in double precision, is made of a smaller one without being asked for by its size.
MOST_EXPANDED = 24
# So many numbers are copied at a time; Ctrl-C is heard in between.
_PIECE = 2**22


_State = TypeVar("_State", bound=StateBase)


def whole_state(compact: _State, active: Sequence[int], n_qubits: int, cure: str) -> _State:
    """Return the state of all qubits; `compact` itself if all are active. `cure` ends the messages of errors."""
    if len(active) == n_qubits:
        return compact
    sides = 2 if isinstance(compact, DensityMatrix) else 1  # ket and bra
    if n_qubits > MOST_EXPANDED // sides:
        raise RuntimeError(
            f"the state of all {n_qubits} qubits, of which {len(active)} are active, is made for at most "
            f"{MOST_EXPANDED // sides}: {cure}"
        )
    try:
        whole = type(compact)._another(n_qubits, compact._precision, compact.threads)
    except MemoryError as error:
        raise MemoryError(f"{error}. {cure}") from None
    there = [qubit + side * n_qubits for side in range(sides) for qubit in active]
    spread(compact._live().view(), whole._live().view(), range(sides * n_qubits - 1, -1, -1), there)
    extension.set_engine(whole._live(), extension.engine(compact._live()))
    return whole


def spread(compact: np.ndarray, whole: np.ndarray, qubits: Sequence[int], active: Sequence[int]) -> None:
    """Copy what belongs to the active ones of the listed qubits, highest bit first, to where the others are 0."""
    among = set(active)
    runs = [(is_active, len(list(run))) for is_active, run in groupby(qubit in among for qubit in qubits)]
    places = [slice(None) if is_active else 0 for is_active, _ in runs]
    target = whole.reshape([2**length for _, length in runs])[(*places, ...)]
    _copy(compact.reshape(target.shape), target)


def _copy(source: np.ndarray, target: np.ndarray) -> None:
    if source.size <= _PIECE:
        target[...] = source
        return
    rows = _PIECE * len(source) // source.size
    for start in range(0, len(source), max(rows, 1)):
        if rows:
            target[start : start + rows] = source[start : start + rows]
        else:
            _copy(source[start], target[start])
