"""Circuits as text: a line for each qubit, connections between them, time from left to right."""

from __future__ import annotations

import shutil
from collections.abc import Sequence
from typing import NamedTuple

from ..instructions.instruction import Instruction, Register
from . import layout
from .layout import Item, Mark

__all__ = ["Drawing", "draw"]


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
    open: str
    flip: str
    exchange: str
    barrier: str
    arrow: str
    more: str


_UNICODE = Characters("─", "│", "┼", "┤", "├", "●", "○", "⊕", "✕", "░", "→", "»")
_ASCII = Characters("-", "|", "+", "[", "]", "o", "( )", "(+)", "x", ":", "->", ">")


class Column:
    """What stands side by side: a text for each qubit that has one, and the spans its connections cover."""

    def __init__(self, items: Sequence[Item], marks: Characters) -> None:
        self.texts = {q: _text(mark, marks) for item in items for q, mark in item.marks.items()}
        self.spans = [item.span for item in items if item.is_linked and len(item.marks) > 1]
        self.width = max(map(len, self.texts.values()))


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
    shown = layout.shown_qubits(n_qubits, instructions, idle)
    laid_out, drawn = layout.columns(n_qubits, shown, registers, instructions)
    columns = [Column(items, marks) for items in laid_out]
    names = layout.names(registers, "quantum")
    margin = max([len(names[q]) for q in shown], default=0)
    labels = {q: f"{names[q]:>{margin}}: " for q in shown}
    lines: list[str] = []
    for block in _blocks(columns, (width or shutil.get_terminal_size().columns) - margin - 5):
        if lines:
            lines.append("")
        lines.extend(_block(shown, labels, block, marks, last=not block or block[-1] is columns[-1]))
    note = layout.phase_note(registers, instructions)
    if note:
        lines.append(note)
    if drawn < len(instructions):
        lines.append(f"({len(instructions) - drawn} more instructions)")
    return Drawing("\n".join(line.rstrip() for line in lines))


def _text(mark: Mark, marks: Characters) -> str:
    """Return what stands on a qubit's line."""
    if mark.kind in ("control", "open", "flip", "exchange", "barrier"):
        symbol: str = getattr(marks, mark.kind)
        return symbol
    if mark.kind == "brace":
        return mark.text
    written = f"M{marks.arrow}{mark.text}" if mark.kind == "measure" else mark.text
    place = "" if mark.place is None else f":{mark.place}"
    when = f" if {mark.when}" if mark.when else ""
    return f"{marks.left}{written}{place}{when}{marks.right}"


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
