"""Circuits as text: a line for each qubit, connections between them, time from left to right."""

from __future__ import annotations

import shutil
from collections.abc import Sequence
from typing import NamedTuple

from ..basics import checks
from ..instructions.gates import GATES
from ..instructions.instruction import Instruction, Register, spelled

__all__ = ["Drawing", "draw"]

#: A drawing of more columns than this helps nobody.
MOST_COLUMNS = 2000
_LONGEST_LABEL = 40


class Drawing(str):
    """A text that is shown as it is, line by line, where Python shows the value of an expression."""

    def __repr__(self) -> str:
        return str(self)


class Characters(NamedTuple):
    """What lines and symbols are made of."""

    wire: str
    link: str
    crossing: str
    left: str
    right: str
    control: str
    flip: str
    exchange: str
    barrier: str
    arrow: str
    more: str


_UNICODE = Characters("─", "│", "┼", "┤", "├", "●", "⊕", "✕", "░", "→", "»")
_ASCII = Characters("-", "|", "+", "[", "]", "o", "(+)", "x", ":", "->", ">")


class Column:
    """What stands side by side: a text for each qubit that has one, and the spans its connections cover."""

    def __init__(self) -> None:
        self.texts: dict[int, str] = {}
        self.spans: list[tuple[int, int]] = []

    @property
    def width(self) -> int:
        """Of the longest text."""
        return max(map(len, self.texts.values()))


def draw(
    n_qubits: int,
    registers: Sequence[Register],
    instructions: Sequence[Instruction],
    width: int | None = None,
    ascii: bool = False,
    idle: bool = True,
) -> Drawing:
    """Return the drawing; see `Circuit.draw`."""
    marks = _ASCII if ascii else _UNICODE
    columns, drawn = _columns(n_qubits, registers, instructions, marks)
    touched = {q for step in instructions for q in step.qubits + step.controls}
    shown = [q for q in range(n_qubits) if idle or q in touched]
    names = _names(registers, "quantum")
    margin = max([len(names[q]) for q in shown], default=0)
    labels = {q: f"{names[q]:>{margin}}: " for q in shown}
    lines: list[str] = []
    for block in _blocks(columns, (width or shutil.get_terminal_size().columns) - margin - 5):
        if lines:
            lines.append("")
        lines.extend(_block(shown, labels, block, marks, last=not block or block[-1] is columns[-1]))
    if drawn < len(instructions):
        lines.append(f"({len(instructions) - drawn} more instructions)")
    return Drawing("\n".join(line.rstrip() for line in lines))


def _columns(
    n_qubits: int, registers: Sequence[Register], instructions: Sequence[Instruction], marks: Characters
) -> tuple[list[Column], int]:
    """Put every instruction into the first column where nothing is in its way; return also how many found one."""
    columns: list[Column] = []
    free = [0] * n_qubits  # the first column with room for each qubit
    written: dict[int, int] = {}  # and for each classical bit
    clbits = _names(registers, "classical")
    for number, step in enumerate(instructions):
        bits = step.clbits + (step.condition.clbits if step.condition else ())
        texts = _texts(step, registers, clbits, marks)
        if not texts:
            continue
        low, high = min(texts), max(texts)
        # Measurements and resets of several qubits have no connection between them.
        span = range(low, high + 1) if _is_connected(step) else sorted(texts)
        at = max([free[q] for q in span] + [written.get(bit, 0) for bit in bits])
        if at >= MOST_COLUMNS:
            return columns, number
        while len(columns) <= at:
            columns.append(Column())
        columns[at].texts.update(texts)
        if _is_connected(step) and high > low and step.name != "barrier":
            columns[at].spans.append((low, high))
        for q in span:
            free[q] = at + 1
        written.update((bit, at + 1) for bit in bits)
    return columns, len(instructions)


def _is_connected(step: Instruction) -> bool:
    return step.name not in ("measure", "reset")


def _texts(
    step: Instruction, registers: Sequence[Register], clbits: dict[int, str], marks: Characters
) -> dict[int, str]:
    """Return what stands on each qubit's line."""
    when = _condition(step, registers, clbits)
    texts = {q: marks.control for q in step.controls}
    if step.name == "barrier":
        return {q: marks.barrier for q in step.qubits}
    if step.name == "measure":
        return {q: _boxed(f"M{marks.arrow}{clbits[c]}{when}", marks) for q, c in zip(step.qubits, step.clbits)}
    if step.name == "reset":
        return {q: _boxed(f"|0>{when}", marks) for q in step.qubits}
    gate = GATES.get(step.name) if step.definition is None else None
    # One qubit alone has nothing to be connected with: a box says more.
    if gate is not None and gate.draws and (len(step.qubits) > 1 or step.controls):
        symbols = [{"o": marks.control, "+": marks.flip, "x": marks.exchange}[letter] for letter in gate.draws]
        if when:
            symbols[-1] = _boxed({"o": "Z", "+": "X", "x": marks.exchange}[gate.draws[-1]] + when, marks)
        texts.update(zip(step.qubits, symbols))
        return texts
    label = _label(step)
    for place, q in enumerate(step.qubits):
        part = f":{place}" if len(step.qubits) > 1 and not (gate and gate.is_symmetric) else ""
        texts[q] = _boxed(label + part + when, marks)
    return texts


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
            return f" if {register.name}=={checks.digits(step.condition.value)}"
    return _shortened(f" if {','.join(clbits[bit] for bit in bits)}") + f"=={_shortened(spelled(step.condition))}"


def _boxed(text: str, marks: Characters) -> str:
    return marks.left + text + marks.right


def _shortened(text: str) -> str:
    return text if len(text) <= _LONGEST_LABEL else text[: _LONGEST_LABEL - 3] + "..."


def _names(registers: Sequence[Register], kind: str) -> dict[int, str]:
    return {
        bit: f"{register.name}[{place}]"
        for register in registers
        if register.kind == kind
        for place, bit in enumerate(register.bits)
    }


def _blocks(columns: list[Column], room: int) -> list[list[Column]]:
    """Cut the columns into stretches that fit one under the other."""
    blocks: list[list[Column]] = [[]]
    used = 0
    for column in columns:
        if blocks[-1] and used + column.width + 1 > room:
            blocks.append([])
            used = 0
        blocks[-1].append(column)
        used += column.width + 1
    return blocks


def _block(
    shown: Sequence[int], labels: dict[int, str], columns: Sequence[Column], marks: Characters, last: bool
) -> list[str]:
    lines: list[str] = []
    for row, q in enumerate(shown):
        wire, below = [labels[q] + marks.wire], [" " * (len(labels[q]) + 1)]
        for column in columns:
            linked = any(low <= q <= high for low, high in column.spans)
            text = column.texts.get(q, marks.crossing if linked else "")
            wire.append(_centred(text, column.width, marks.wire) + marks.wire)
            goes_on = any(low <= q < high for low, high in column.spans)
            below.append(_centred(marks.link if goes_on else "", column.width, " ") + " ")
        lines.append("".join(wire) + ("" if last else marks.more))
        if row + 1 < len(shown) and "".join(below).strip():
            lines.append("".join(below))
    return lines


def _centred(text: str, width: int, fill: str) -> str:
    left = (width - len(text)) // 2
    return fill * left + text + fill * (width - len(text) - left)
