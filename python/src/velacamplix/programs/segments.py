"""Cuts a circuit into stretches of gates and the steps between them that depend on outcomes."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field
from functools import cached_property
from typing import Any, NamedTuple

from ..instructions.instruction import NON_UNITARY, Condition, Instruction


@dataclass
class Stretch:
    """Gates that run as one program, all under the same condition."""

    gates: list[Instruction]
    condition: Condition | None
    program: Any = None


@dataclass
class Measurement:
    """Qubits that are read into classical bits. The bits are distinct, and so are the qubits of `now`."""

    # Pairs of qubit and classical bit. Those of `later` can be read in the end: nothing acts on the qubit any more and
    # nothing asks for the bit before.
    later: list[tuple[int, int]]
    now: list[tuple[int, int]]
    # Those of them on which nothing acts afterwards.
    last: list[int]
    condition: Condition | None
    source: Instruction  # for messages

    @property
    def qubits(self) -> tuple[int, ...]:
        """Those whose outcome must be known now."""
        return tuple(qubit for qubit, _ in self.now)


@dataclass
class Reset:
    """Qubits that are measured into nowhere and set to 0."""

    qubits: tuple[int, ...]
    condition: Condition | None
    source: Instruction  # for messages


Step = Stretch | Measurement | Reset


@dataclass
class Segments:
    """A circuit in steps.

    Attributes
    ----------
    steps : list
    active : tuple of int
        Qubits that the state must have, in increasing order. All others are 0 from beginning to end.
    written_bits : tuple of int
        Classical bits that a measurement writes, in increasing order.
    """

    steps: list[Step] = field(default_factory=list)
    active: tuple[int, ...] = ()
    written_bits: tuple[int, ...] = ()

    @property
    def has_measurement(self) -> bool:
        """Whether a classical bit is written anywhere."""
        return bool(self.written_bits)

    @cached_property
    def place(self) -> dict[int, int]:
        """The state's qubit for each active one."""
        return {qubit: place for place, qubit in enumerate(self.active)}

    @cached_property
    def decided(self) -> list[list[int]]:
        """Per step, the state's qubits whose outcome must be known."""
        return [
            [] if isinstance(step, Stretch) else [self.place[qubit] for qubit in step.qubits] for step in self.steps
        ]


def segmented(instructions: Sequence[Instruction], nonzero: Iterable[int]) -> Segments:
    """Cut a circuit given in the library's own gates.

    Parameters
    ----------
    instructions : sequence of Instruction
    nonzero : iterable of int
        Qubits that are not 0 at the beginning.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> circuit = Circuit(9, 2).h(5).cx(5, 7).measure([5, 8], [0, 1])
    >>> segments = segmented(circuit.instructions, [])
    >>> segments.active, [type(step).__name__ for step in segments.steps]
    ((5, 7), ['Stretch', 'Measurement'])
    """
    result = Segments()
    last = _last_touches(instructions)
    active = set(last.gates).union(nonzero)
    result.active = tuple(sorted(active))
    uses = _uses(instructions, last.others, last.gates)

    fresh = active.difference(nonzero)  # still 0
    written: set[int] = set()
    stretch: Stretch | None = None
    for position, step in enumerate(instructions):
        name = step.name
        if name not in NON_UNITARY:
            if stretch is None or stretch.condition != step.condition:
                stretch = Stretch([], step.condition)
                result.steps.append(stretch)
            # Gates may join a stretch from before a measurement that can wait until the end.
            stretch.gates.append(step)
            if fresh:
                fresh.difference_update(step.qubits, step.controls)
        elif name == "reset":
            qubits = tuple(qubit for qubit in step.qubits if qubit in active and qubit not in fresh)
            if qubits:
                result.steps.append(Reset(qubits, step.condition, step))
                stretch = None
        elif name == "measure":
            written.update(step.clbits)
            # What is 0 from beginning to end can be read at any time.
            known = [use.is_known and qubit in active for qubit, use in zip(step.qubits, uses[position])]
            ended = [qubit for qubit, use in zip(step.qubits, uses[position]) if use.is_last]
            _add_measure(result.steps, step, known, ended)
            if any(known):
                stretch = None
    result.written_bits = tuple(sorted(written))
    return result


class _Touches:
    """The last position at which each qubit is acted on, and the positions of all steps that are not plain gates."""

    def __init__(self) -> None:
        self.gates: dict[int, int] = {}
        self.others: list[int] = []


def _last_touches(instructions: Sequence[Instruction]) -> _Touches:
    found = _Touches()
    gates, others = found.gates, found.others
    for position, step in enumerate(instructions):
        if step.name in NON_UNITARY:
            if step.name != "barrier":
                others.append(position)
            continue
        for qubit in step.qubits:
            gates[qubit] = position
        for qubit in step.controls:
            gates[qubit] = position
        if step.condition is not None:
            others.append(position)
    return found


class _Use(NamedTuple):
    """What becomes of a qubit that is measured, and of its outcome.

    `is_known`: the outcome must be known when it is measured. `is_last`: nothing acts on the qubit afterwards.
    """

    is_known: bool
    is_last: bool


def _uses(
    instructions: Sequence[Instruction], others: Sequence[int], last_gate: dict[int, int]
) -> dict[int, list[_Use]]:
    """For every measurement, by its position, a use for each of its qubits."""
    uses: dict[int, list[_Use]] = {}
    read: set[int] = set()  # bits that a later condition reads before they are written again
    reset: set[int] = set()  # qubits that are reset later
    for position in reversed(others):
        step = instructions[position]
        if step.name == "measure":
            uses[position] = found = []
            for qubit, clbit in zip(step.qubits, step.clbits):
                is_last = qubit not in reset and last_gate.get(qubit, -1) < position
                found.append(_Use(clbit in read or not is_last, is_last))
            if step.condition is None:
                read.difference_update(step.clbits)
        elif step.name == "reset":
            reset.update(step.qubits)
        if step.condition is not None:
            read.update(step.condition.clbits)
    return uses


def _add_measure(steps: list[Step], step: Instruction, known: Sequence[bool], last: list[int]) -> None:
    pairs = list(zip(step.qubits, step.clbits))
    added = Measurement(
        [pair for pair, is_known in zip(pairs, known) if not is_known],
        [pair for pair, is_known in zip(pairs, known) if is_known],
        last,
        step.condition,
        step,
    )
    # Measurements one after the other are one, so that a state is projected once for all of them.
    before = steps[-1] if steps else None
    if isinstance(before, Measurement) and _can_be_one(before, added):
        before.later.extend(added.later)
        before.now.extend(added.now)
        before.last.extend(added.last)
    else:
        steps.append(added)


def _can_be_one(first: Measurement, second: Measurement) -> bool:
    if first.condition is not None or second.condition is not None:
        return False
    written = {clbit for _, clbit in first.later + first.now}
    return written.isdisjoint(clbit for _, clbit in second.later + second.now) and set(first.qubits).isdisjoint(
        second.qubits
    )
