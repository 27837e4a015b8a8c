"""What a circuit is made of: instructions, registers, gate names."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass
from typing import TYPE_CHECKING, NamedTuple

from .condition import AnyCondition as AnyCondition
from .condition import Condition as Condition
from .condition import spelled as spelled
from .expression import Expression

if TYPE_CHECKING:
    from .definition import GateDefinition
    from .flow import Detail


#: Gates given by their entries, on any number of qubits and with any number of controls.
BY_ENTRIES = frozenset({"matrix", "diagonal"})

#: Instructions that hold others, keep what the state tells at their place, write classical bits, or are noise;
#: `Instruction.detail` has it.
DETAILED = frozenset({"if", "while", "switch", "save", "store", "channel"})

#: Those that leave the round of a loop that they stand in.
LEAVING = frozenset({"break", "continue"})

#: Instructions that are no gates. Each takes any number of qubits at once.
NON_UNITARY = frozenset({"measure", "reset", "barrier"}) | DETAILED | LEAVING


class Instruction(NamedTuple):
    """One step of a circuit. Instances are plain values: equal, hashable, picklable.

    Attributes
    ----------
    name : str
        The name of a gate, as the table in `gates` has it, ``"matrix"``, ``"diagonal"``, a member of `NON_UNITARY`, or the
        name of `definition`.
    qubits : tuple of int
        Targets, in the gate's order: CNOT is (control, target), CCNOT (control,
        control, target). Of "if", "while" and "switch" those that their bodies act on, in increasing order; of "save"
        those that it asks, of a whole state none.
    params : tuple of float, Expression, or of complex for "matrix" and "diagonal"
        Angles in radians; for "matrix" its ``4**len(qubits)`` entries row by
        row, where the first listed qubit is the highest bit of a row's number,
        for "diagonal" the ``2**len(qubits)`` entries in the same order.
    controls : tuple of int
        Further qubits that must all be 1, unless `control_values` says otherwise.
    clbits : tuple of int
        For "measure": where the result of each qubit goes. All bits are written together, after the condition has been
        read. For "if", "while" and "switch" those that anything inside reads or writes, in increasing order; for "store"
        those that it writes.
    condition : Condition, CompoundCondition or None
        The step is left out unless the condition holds.
    definition : GateDefinition or None
        What the gate is made of, if it is neither the library's nor known to the package.
    detail : If, While, Switch, Save, Store, Channel, Readout or None
        Of an instruction "if", "while", "switch", "save" or "store": its bodies and what decides among them, what to keep, or
        what to write. Of "channel" the noise, whose qubit j is ``qubits[j]``; of "measure" how outcomes are misread, None if
        they are not.
    control_values : str
        What `controls` must read, 0 or 1 for each in their order; empty if that is 1 for all.

    >>> Instruction("RX", (2,), (0.5,), controls=(0,))           # doctest: +NORMALIZE_WHITESPACE
    Instruction(name='RX', qubits=(2,), params=(0.5,), controls=(0,), clbits=(), condition=None, definition=None,
                detail=None, control_values='')
    >>> print(Instruction("RX", (2,), (0.5,), controls=(0,)))
    RX(0.5) 2 controls 0
    >>> print(Instruction("RX", (2,), (0.5,), controls=(0, 1), control_values="01"))
    RX(0.5) 2 controls 0,1 == "01"
    """

    name: str
    qubits: tuple[int, ...]
    params: tuple[float | complex | Expression, ...] = ()
    controls: tuple[int, ...] = ()
    clbits: tuple[int, ...] = ()
    condition: AnyCondition | None = None
    definition: GateDefinition | None = None
    detail: Detail | None = None
    control_values: str = ""

    @property
    def is_noise(self) -> bool:
        """Whether the step is a channel, or a measurement that may be misread."""
        return self.name == "channel" or (self.name == "measure" and self.detail is not None)

    @property
    def is_gate(self) -> bool:
        """Whether the step is a unitary gate (conditioned or not)."""
        return self.name not in NON_UNITARY

    @property
    def can_be_conditioned(self) -> bool:
        """Whether a condition makes sense; it does not on a barrier."""
        return self.name != "barrier"

    def __str__(self) -> str:
        return "\n".join(self.lines())

    @property
    def title(self) -> str:
        """The first line of the text, which is all of it but for instructions that hold others."""
        line = next(self.lines())
        return line if self.detail is None else line.rstrip(":")

    def lines(self) -> Iterator[str]:
        """Iterate over the lines of the text."""
        lines = getattr(self.detail, "lines", None)
        if lines is None:
            yield self._line()
        elif self.condition is None:
            yield from lines(self)
        else:
            yield f"if {self.condition}:"
            yield from ["    " + line for line in self._replace(condition=None).lines()]

    def _line(self) -> str:
        words = [self.name]
        if self.name == "matrix":
            words[0] += f"[{2 ** len(self.qubits)}x{2 ** len(self.qubits)}]"
        elif self.name == "diagonal":
            words[0] += f"[{2 ** len(self.qubits)}]"
        elif self.params:
            words[0] += "(" + ", ".join(f"{value:.12g}" for value in self.params) + ")"
        elif self.name == "channel":
            words.append(str(self.detail))
        if self.qubits:
            words.append(_listed(self.qubits))
        if self.controls:
            words.append("controls " + _listed(self.controls))
        if self.control_values:
            words.append("== " + (f'"{self.control_values}"' if len(self.control_values) > 1 else self.control_values))
        if self.clbits:
            words.append("-> " + _listed(self.clbits))
        if self.name == "measure" and self.detail is not None:
            words.append(f"misread {self.detail}")
        if self.condition is not None:
            words.append(f"if {self.condition}")
        return " ".join(words)


@dataclass(frozen=True)
class Register:
    """A named run of a circuit's qubits or classical bits.

    Attributes
    ----------
    name : str
    kind : str
        ``"quantum"`` or ``"classical"``.
    start : int
        Number of the register's first qubit or bit in the whole circuit.
    size : int

    >>> list(Register("anc", "quantum", start=4, size=2).bits)
    [4, 5]
    """

    name: str
    kind: str
    start: int
    size: int

    @property
    def bits(self) -> range:
        """Numbers of the register's members in the whole circuit."""
        return range(self.start, self.start + self.size)


def _listed(numbers: tuple[int, ...]) -> str:
    return ",".join(map(str, numbers))
