"""Where everything in a drawing of a circuit stands: columns, and in them what is on the line of each qubit.

This is what the text drawing and the pictures have in common; it has no form yet.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple

from ..basics import checks
from ..instructions.gates import GATES
from ..instructions.instruction import Instruction, Register, spelled
from ..instructions.open_controls import open_controls

#: A drawing of more columns than this helps nobody.
MOST_COLUMNS = 2000
_LONGEST_LABEL = 40


class Mark(NamedTuple):
    """What stands on the line of one qubit.

    Attributes
    ----------
    kind : str
        ``"control"``, ``"open"`` (a control on 0), ``"flip"``, ``"exchange"``, ``"barrier"``, ``"measure"``, ``"reset"`` or ``"box"``.
    text : str
        What is written into a box; the bit into which a measurement writes.
    place : int or None
        The number of the qubit among those of a gate, where they play different parts.
    when : str
        The condition, as ``c==2``. Empty without one.
    """

    kind: str
    text: str = ""
    place: int | None = None
    when: str = ""


class Item(NamedTuple):
    """One instruction: its marks by qubit, and whether a connection holds them together."""

    marks: dict[int, Mark]
    is_linked: bool
    is_definition: bool

    @property
    def span(self) -> tuple[int, int]:
        """First and last qubit."""
        return min(self.marks), max(self.marks)


#: Instructions that stand one under the other, none in the way of another.
Column = list[Item]


def columns(
    n_qubits: int, registers: Sequence[Register], instructions: Sequence[Instruction], most: int = MOST_COLUMNS
) -> tuple[list[Column], int]:
    """Put every instruction into the first column where nothing is in its way; return also how many found one."""
    made: list[Column] = []
    free = [0] * n_qubits  # the first column with room for each qubit
    written: dict[int, int] = {}  # and for each classical bit
    clbits = names(registers, "classical")
    for number, step in enumerate(instructions):
        bits = step.clbits + (step.condition.clbits if step.condition else ())
        item = Item(_marks(step, registers, clbits), step.is_gate, step.definition is not None)
        if not item.marks:
            continue
        low, high = item.span
        # Where measurements and resets leave a qubit out, it has its own.
        span = sorted(item.marks) if step.name in ("measure", "reset") else range(low, high + 1)
        at = max([free[q] for q in span] + [written.get(bit, 0) for bit in bits])
        if at >= most:
            return made, number
        while len(made) <= at:
            made.append([])
        made[at].append(item)
        for q in span:
            free[q] = at + 1
        written.update((bit, at + 1) for bit in bits)
    return made, len(instructions)


def shown_qubits(n_qubits: int, instructions: Sequence[Instruction], idle: bool) -> list[int]:
    """Return the qubits that get a line: all, or those that an instruction touches."""
    touched = {q for step in instructions for q in step.qubits + step.controls}
    return [q for q in range(n_qubits) if idle or q in touched]


def names(registers: Sequence[Register], kind: str) -> dict[int, str]:
    """Return how qubits or classical bits are called, by their numbers."""
    return {
        bit: f"{_printable(register.name)}[{place}]"
        for register in registers
        if register.kind == kind
        for place, bit in enumerate(register.bits)
    }


def _marks(step: Instruction, registers: Sequence[Register], clbits: dict[int, str]) -> dict[int, Mark]:
    when = _condition(step, registers, clbits)
    if step.name == "barrier":
        return {q: Mark("barrier") for q in step.qubits}
    if step.name == "measure":
        return {q: Mark("measure", clbits[c], when=when) for q, c in zip(step.qubits, step.clbits)}
    if step.name == "reset":
        return {q: Mark("reset", "|0>", when=when) for q in step.qubits}
    open_ones = open_controls(step)
    marks = {q: Mark("open" if q in open_ones else "control") for q in step.controls}
    gate = GATES.get(step.name) if step.definition is None else None
    # One qubit alone has nothing to be connected with: a box says more.
    if gate is not None and gate.draws and (len(step.qubits) > 1 or step.controls):
        symbols = [Mark({"o": "control", "+": "flip", "x": "exchange"}[letter]) for letter in gate.draws]
        if when:
            symbols[-1] = Mark("box", {"o": "Z", "+": "X", "x": "SWAP"}[gate.draws[-1]], when=when)
        marks.update(zip(step.qubits, symbols))
        return marks
    numbered = len(step.qubits) > 1 and not (gate and gate.is_symmetric)
    label = _label(step)
    for place, q in enumerate(step.qubits):
        marks[q] = Mark("box", label, place if numbered else None, when)
    return marks


def _label(step: Instruction) -> str:
    if step.name in ("matrix", "diagonal") or not step.params:
        return _shortened(step.name)
    return _shortened(f"{step.name}({', '.join(f'{value:.4g}' for value in step.params)})")


def _condition(step: Instruction, registers: Sequence[Register], clbits: dict[int, str]) -> str:
    if step.condition is None:
        return ""
    bits = step.condition.clbits
    for register in registers:
        if register.kind == "classical" and tuple(register.bits) == bits:
            return f"{_printable(register.name)}=={checks.digits(step.condition.value)}"
    return f"{_shortened(','.join(clbits[bit] for bit in bits))}=={_shortened(spelled(step.condition))}"


def _shortened(text: str) -> str:
    text = _printable(text)
    return text if len(text) <= _LONGEST_LABEL else text[: _LONGEST_LABEL - 3] + "..."


def _printable(text: str) -> str:
    # Names may hold anything; a line end would break the lines.
    return text if text.isprintable() else "".join([letter if letter.isprintable() else "?" for letter in text])
