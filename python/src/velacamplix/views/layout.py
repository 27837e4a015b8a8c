"""Where everything in a drawing of a circuit stands: columns, and in them what is on the line of each qubit.

This is what the text drawing and the pictures have in common; it has no form yet.
"""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import NamedTuple

from ..basics import checks
from ..basics.words import shortened
from ..channels.channel import Channel
from ..instructions.condition import AnyCondition, Condition, spelled
from ..instructions.flow import If, Readout, Save, Store, Switch, While, leaves, read_bits
from ..instructions.gates import GATES
from ..instructions.instruction import LEAVING, Instruction, Register
from ..instructions.open_controls import open_controls

#: A drawing of more columns than this helps nobody.
MOST_COLUMNS = 2000
_LONGEST_LABEL = 40


class Mark(NamedTuple):
    """What stands on the line of one qubit.

    Attributes
    ----------
    kind : str
        ``"control"``, ``"open"`` (a control on 0), ``"flip"``, ``"exchange"``, ``"barrier"``, ``"measure"``, ``"reset"``,
        ``"save"``, ``"channel"``, ``"brace"``, where a body begins or ends, or ``"box"``.
    text : str
        What is written into a box or as a brace; the bit into which a measurement writes.
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
    """One instruction, or a brace: its marks by qubit, and whether a connection holds them together."""

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
    n_qubits: int,
    shown: Sequence[int],
    registers: Sequence[Register],
    instructions: Sequence[Instruction],
    most: int = MOST_COLUMNS,
) -> tuple[list[Column], int]:
    """Put every instruction into the first column where nothing is in its way; return also how many found one.

    One that holds others stands as they do, with braces around each body. `shown` are the qubits that have a line.
    """
    made: list[Column] = []
    free = [0] * n_qubits  # the first column with room for each qubit
    written: dict[int, int] = {}  # and for each classical bit
    called = _Names(registers)
    for number, step in enumerate(instructions):
        for item, bits, is_apart in _items(step, shown, called):
            if not item.marks:
                continue
            low, high = item.span
            # Where measurements and resets leave a qubit out, it has its own.
            span = sorted(item.marks) if is_apart else range(low, high + 1)
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


def phase_note(registers: Sequence[Register], instructions: Sequence[Instruction]) -> str:
    """Return what is told of phases of the whole state, which stand on no line; nothing without them."""
    called, sure, told = _Names(registers), 0.0, []
    for step in instructions:
        for leaf in leaves([step]):
            if leaf.name != "gphase" or leaf.controls or leaf.definition is not None:
                continue
            (angle,) = leaf.params
            if leaf is step and leaf.condition is None and isinstance(angle, float):
                sure += angle
            else:
                when = "" if leaf.condition is None else f" if {called.condition(leaf.condition)}"
                told.append(f"{angle:.4g}{when}" + ("" if leaf is step else f" inside {step.name}"))
    if sure:
        told.insert(0, f"{sure:.4g}")
    return f"(global phase {shortened(_printable(', '.join(told)), 100)})" if told else ""


def names(registers: Sequence[Register], kind: str) -> dict[int, str]:
    """Return how qubits or classical bits are called, by their numbers."""
    return {
        bit: f"{_printable(register.name)}[{place}]"
        for register in registers
        if register.kind == kind
        for place, bit in enumerate(register.bits)
    }


def _items(
    step: Instruction, shown: Sequence[int], called: _Names, around: Sequence[int] = ()
) -> Iterator[tuple[Item, tuple[int, ...], bool]]:
    """Iterate over what an instruction is in the drawing: items, their classical bits, and whether their marks stand apart.

    What acts on no qubit stands on those of the instruction `around` it, or on the first line.
    """
    detail = step.detail
    lines = step.qubits or tuple(around) or tuple(shown[:1])
    if isinstance(detail, Store) or step.name in LEAVING:
        when = "" if step.condition is None else called.condition(step.condition)
        text = called.store(step) if isinstance(detail, Store) else step.name
        yield Item({q: Mark("box", text, when=when) for q in lines}, True, False), (*step.clbits, *read_bits(step)), False
        return
    if not isinstance(detail, (If, While, Switch)):
        bits = step.clbits if step.condition is None else step.clbits + step.condition.clbits
        is_apart = step.name in ("measure", "reset")
        is_linked = step.is_gate or step.name == "channel"
        yield Item(_marks(step, shown, called), is_linked, step.definition is not None), bits, is_apart
        return
    for place, (head, body) in enumerate(_heads(step, called)):
        yield _brace(lines, head, "}{" if place else "{"), step.clbits, False
        for inner in body:
            yield from _items(inner, shown, called, lines)
    yield _brace(lines, "}", "}"), step.clbits, False


def _heads(step: Instruction, called: _Names) -> list[tuple[str, tuple[Instruction, ...]]]:
    """Return what is written in front of each body, and the bodies."""
    detail = step.detail
    if isinstance(detail, Switch):
        heads = [(", ".join(map(checks.digits, values)), body) for values, body in detail.cases]
        if detail.default or not heads:
            heads.append(("default", detail.default))
        first = f"switch {called.number(detail.clbits)}: {heads[0][0]}"
    else:
        assert isinstance(detail, (If, While))
        heads = list(zip(("", "else"), detail.bodies))
        if not detail.bodies[-1]:
            del heads[1:]
        first = f"{step.name} {called.condition(detail.condition)}"
    if step.condition is not None:
        first = f"if {called.condition(step.condition)}: {first}"
    return [(f"{_shortened(first)} {{", heads[0][1]), *[(f"}} {_shortened(head)} {{", body) for head, body in heads[1:]]]


def _brace(qubits: Sequence[int], text: str, others: str) -> Item:
    return Item({q: Mark("brace", others if place else text) for place, q in enumerate(qubits)}, True, False)


def _marks(step: Instruction, shown: Sequence[int], called: _Names) -> dict[int, Mark]:
    when = "" if step.condition is None else called.condition(step.condition)
    if isinstance(step.detail, Save):
        qubits = shown if step.detail.kind == "state" else sorted(step.qubits)
        first = Mark("save", f"save {_shortened(step.detail.label)}", when=when)
        return {q: Mark("barrier") if place else first for place, q in enumerate(qubits)}
    if step.name == "barrier":
        return {q: Mark("barrier") for q in step.qubits}
    if step.name == "measure":
        bits = [called.clbits[c] for c in step.clbits]
        if isinstance(step.detail, Readout):
            bits = [f"{bit} ({up:.3g}, {down:.3g})" for bit, (up, down) in zip(bits, step.detail.flips)]
        return {q: Mark("measure", bit, when=when) for q, bit in zip(step.qubits, bits)}
    if isinstance(step.detail, Channel):
        text, numbered = _shortened(str(step.detail)), len(step.qubits) > 1
        return {q: Mark("channel", text, place if numbered else None, when) for place, q in enumerate(step.qubits)}
    if step.name == "reset":
        return {q: Mark("reset", "|0>", when=when) for q in step.qubits}
    open_ones = open_controls(step)
    marks = {q: Mark("open" if q in open_ones else "control") for q in step.controls}
    gate = GATES.get(step.name) if step.definition is None else None
    if step.controls and not step.qubits:  # a phase of the whole state, where these are 1
        closed = [q for q in step.controls if q not in open_ones]
        marks[(closed or step.controls)[-1]] = Mark("box", _label(step) + ("" if closed else " on 0"), when=when)
        return marks
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


class _Names:
    """The names of classical bits, and conditions by them."""

    def __init__(self, registers: Sequence[Register]) -> None:
        self.clbits = names(registers, "classical")
        self._registers = {tuple(r.bits): _printable(r.name) for r in registers if r.kind == "classical"}

    def number(self, lowest_first: tuple[int, ...]) -> str:
        """Return the name of what is read as a number."""
        name = self._registers.get(lowest_first)
        return name or _shortened(",".join([self.clbits[bit] for bit in reversed(lowest_first)]))

    def store(self, step: Instruction) -> str:
        """Return what is written into bits, in short."""
        assert isinstance(step.detail, Store)
        values = [str(int(v)) if isinstance(v, bool) else f"({self.condition(v)})" for v in step.detail.values]
        return _shortened(", ".join([f"{self.clbits[bit]}={value}" for bit, value in zip(step.clbits, values)]))

    def condition(self, condition: AnyCondition) -> str:
        """Return a condition in short."""
        if not isinstance(condition, Condition):
            texts = [self.condition(part) for part in condition.parts]
            if condition.word == "not":
                return _shortened(f"!({texts[0]})")
            sign = {"and": " & ", "or": " | ", "xor": " ^ "}[condition.word]
            parts = zip(texts, condition.parts)
            return _shortened(sign.join([text if isinstance(part, Condition) else f"({text})" for text, part in parts]))
        bits, comparison = condition.clbits, condition.comparison
        if bits in self._registers or comparison not in ("==", "!="):
            return f"{self.number(bits)}{comparison}{checks.digits(condition.value)}"
        return f"{_shortened(','.join([self.clbits[bit] for bit in bits]))}{comparison}{_shortened(spelled(condition))}"


def _shortened(text: str) -> str:
    text = _printable(text)
    return text if len(text) <= _LONGEST_LABEL else text[: _LONGEST_LABEL - 3] + "..."


def _printable(text: str) -> str:
    # Names may hold anything; a line end would break the lines.
    return text if text.isprintable() else "".join([letter if letter.isprintable() else "?" for letter in text])
