"""Puts operations that commute into an order in which few passes over the state do them all."""

from __future__ import annotations

from collections.abc import Sequence
from itertools import islice
from typing import NamedTuple

from ..instructions.gates import GATES
from ..instructions.instruction import Instruction

# What a pass is taken to hold: this many lowest qubits, and others up to so many in all. A fixed size, so that the
# order, and with it the bits, are the same on every machine; that of a first-level cache of 32 KiB.
_LOWEST, _MOST = 5, 10
# Operations that are looked at for one pass, at most so many times the number of qubits.
_WINDOW = 64


class _Footprint(NamedTuple):
    """Masks of the qubits that an operation mixes, and of all that it looks at."""

    mixed: int
    all: int


def gathered(steps: Sequence[Instruction], n_qubits: int) -> list[Instruction]:
    """Return the operations in another order with the same product, up to rounding.

    Those that share no qubit but as control, or in diagonals, may change places. A pass takes from the first that is
    left over on what fits.

    Parameters
    ----------
    steps : sequence of Instruction
        The library's gates, matrices and diagonals, without conditions.
    n_qubits : int

    Examples
    --------
    >>> steps = [Instruction("H", (q,)) for layer in range(2) for q in (10, 11, 12, 13, 14, 15)]
    >>> [step.qubits[0] for step in gathered(steps, 16)]
    [10, 11, 12, 13, 14, 10, 11, 12, 13, 14, 15, 15]
    """
    rest = iter(steps)
    waiting: list[tuple[Instruction, _Footprint]] = []
    found: list[Instruction] = []
    while True:
        more = islice(rest, _WINDOW * max(n_qubits, 1) - len(waiting))
        waiting += [(step, _footprint(step)) for step in more]
        if not waiting:
            return found
        local = (1 << min(n_qubits, _LOWEST)) - 1
        mixed = touched = 0  # by those that are left behind
        left: list[tuple[Instruction, _Footprint]] = []
        for place, (step, print_) in enumerate(waiting):
            together = local | print_.mixed
            is_free = not (print_.mixed & touched or print_.all & mixed)
            if is_free and (together.bit_count() <= _MOST or not place):
                found.append(step)
                local = together
            else:
                left.append((step, print_))
                mixed |= print_.mixed
                touched |= print_.all
        waiting = left


def _footprint(step: Instruction) -> _Footprint:
    every = _mask(step.qubits) | _mask(step.controls)
    if step.name == "diagonal" or step.name in _DIAGONAL:
        return _Footprint(0, every)
    gate = GATES.get(step.name)
    # CNOT and CCNOT have their controls among their qubits.
    targets = step.qubits[gate.short_for[1] :] if gate is not None and gate.short_for is not None else step.qubits
    return _Footprint(_mask(targets), every)


_DIAGONAL = frozenset({"Z", "S", "T", "RZ", "PH", "CSIGN", "RZZ"})


def _mask(qubits: tuple[int, ...]) -> int:
    mask = 0
    for qubit in qubits:
        mask |= 1 << qubit
    return mask
