"""Probabilities of a state in parts, with the bits of one process.

The library adds the probabilities of an outcome in spans of 2**16 indices, each in index order, and the spans in order; the
indices are counted over the qubits that are not listed. Here a span lies on one rank, or goes from one to the next.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from ..machine import memory
from ..states.statevector import StateVector
from .ranks import Ranks

_SPAN_BITS = 16
# Probabilities that are added side by side in one step.
_AT_ONCE = 2**18


def distribution(ranks: Ranks, part: StateVector, numbers: Sequence[int], listed: Sequence[int]) -> np.ndarray:
    """Return the probabilities of the listed qubits' outcomes, the first being the most significant bit."""
    local, number = part.n_qubits, numbers[ranks.rank]
    memory.require_bytes(16 << len(listed), f"the distribution of {len(listed)} qubits")
    inner = [qubit for qubit in listed if qubit < local]
    outer = [qubit - local for qubit in listed if qubit >= local]
    found: np.ndarray = np.zeros(1 << len(listed))
    own = _places(listed, local, number)
    if len(outer) == ranks.bits:  # all indices of an outcome are on one rank
        found[own] = part._live().distribution(inner)
        ranks.added(found)
        return found
    # Parts of the same outcomes follow one another by the bits of their numbers that are not listed.
    free_outer = [bit for bit in range(ranks.bits) if bit not in outer]
    free_inner = [qubit for qubit in range(local) if qubit not in inner]
    turn = sum([(number >> bit & 1) << place for place, bit in enumerate(free_outer)])
    whole = len(free_inner) >= _SPAN_BITS
    act = _Spans(part, inner, free_inner, turn) if whole else _Pieces(part, inner, free_inner, turn)
    is_last = turn == (1 << len(free_outer)) - 1
    result = _handed_on(ranks, numbers, outer, number, act)
    if is_last:
        found[own] = result[0] if result[1] is None else result[0] + result[1] if result[2] else result[1]
    ranks.added(found)
    return found


def _places(listed: Sequence[int], local: int, number: int) -> np.ndarray:
    """Return where the outcomes of a part's own listed qubits stand among those of all, in order."""
    width = len(listed)
    places = np.zeros(1, dtype=np.int64)
    for position, qubit in enumerate(listed):
        bit = 1 << (width - 1 - position)
        if qubit >= local:
            places = places + (bit if number >> (qubit - local) & 1 else 0)
        else:
            places = np.stack([places, places + bit], axis=1).reshape(-1)
    return places


def _handed_on(ranks: Ranks, numbers: Sequence[int], outer: Sequence[int], number: int, act: Any) -> Any:
    """Let the parts of each outcome of the outer qubits act in turn; return what the own one's last gives."""
    result: Any = None
    for outcome in range(1 << len(outer)):
        chosen = [
            other if sum([(other >> bit & 1) << place for place, bit in enumerate(outer)]) == outcome else -1
            for other in numbers
        ]
        last = ranks.in_turn(chosen, (None, None, False), act)
        if chosen[ranks.rank] >= 0:
            result = last
    return result


class _Spans:
    """Adds the spans of a part, each of which lies in it, to the totals so far: (totals, None, True)."""

    def __init__(self, part: StateVector, inner: Sequence[int], free: Sequence[int], turn: int) -> None:
        self._part, self._inner, self._free = part, inner, free

    def __call__(self, before: tuple[Any, Any, bool]) -> tuple[Any, Any, bool]:
        numbering = list(reversed(self._free[_SPAN_BITS:]))
        memory.require_bytes(8 << (len(self._inner) + len(numbering)), "sums of spans")
        spans = self._part._live().distribution([*self._inner, *numbering]).reshape(1 << len(self._inner), -1)
        totals = before[0]
        for span in range(spans.shape[1]):
            totals = spans[:, span].copy() if totals is None else totals + spans[:, span]
        return totals, None, True


class _Pieces:
    """Goes on with a span that goes from part to part: (totals of the spans before, the span so far, whether some are before)."""

    def __init__(self, part: StateVector, inner: Sequence[int], free: Sequence[int], turn: int) -> None:
        self._part, self._inner, self._free, self._turn = part, inner, free, turn

    def __call__(self, before: tuple[Any, Any, bool]) -> tuple[Any, Any, bool]:
        totals, span, has_totals = before
        rows = 1 << len(self._inner)
        if self._turn % (1 << (_SPAN_BITS - len(self._free))) == 0:
            if span is not None:
                totals = totals + span if has_totals else span
                has_totals = True
            span = np.zeros(rows)
        n = self._part.n_qubits
        # Axis n - 1 - q is qubit q; the outcome comes first, then the index among the other qubits.
        axes = [n - 1 - qubit for qubit in [*self._inner, *reversed(self._free)]]
        chains = self._part._live().view().reshape((2,) * n).transpose(axes).reshape(rows, -1)
        columns = max(1, _AT_ONCE // rows)
        for first in range(0, chains.shape[1], columns):
            some = chains[:, first : first + columns]
            real, imag = some.real.astype(np.float64), some.imag.astype(np.float64)
            steps = np.concatenate([span.reshape(-1, 1), real * real + imag * imag], axis=1)
            span = np.add.accumulate(steps, axis=1)[:, -1]
        return totals, span, has_totals
