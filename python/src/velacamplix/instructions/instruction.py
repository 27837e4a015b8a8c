"""What a circuit is made of: instructions, conditions, registers, gate names."""

from __future__ import annotations

from dataclasses import dataclass
from typing import TYPE_CHECKING, NamedTuple

from ..basics import checks
from .expression import Expression

if TYPE_CHECKING:
    from .definition import GateDefinition


#: Gates given by their entries, on any number of qubits and with any number of controls.
BY_ENTRIES = frozenset({"matrix", "diagonal"})

#: Instructions that are no gates. Each takes any number of qubits at once.
NON_UNITARY = frozenset({"measure", "reset", "barrier"})


@dataclass(frozen=True)
class Condition:
    """Lets an instruction act only if classical bits hold a value.

    Attributes
    ----------
    clbits : tuple of int
        The bits that are read, lowest value first (weight ``2**i`` for the i-th), as in a register of OpenQASM.
        `Circuit.when` puts them into increasing order.
    value : int
        What they must spell, from 0 to ``2**len(clbits) - 1``.

    >>> Condition((0, 1), 2)
    Condition(clbits=(0, 1), value=2)
    >>> print(Condition((0, 1), 2))                       # bit 0 must be 0, bit 1 must be 1
    c[0, 1] == "01"
    """

    clbits: tuple[int, ...]
    value: int

    def __repr__(self) -> str:
        value = checks.digits(self.value) if isinstance(self.value, int) else repr(self.value)
        return f"Condition(clbits={self.clbits!r}, value={value})"

    def __str__(self) -> str:
        return f"c{list(self.clbits)} == {spelled(self)}"


def spelled(condition: Condition) -> str:
    """Return the value of one bit as a number, of several as a text in quotes, in the order of the bits.

    >>> spelled(Condition((4,), 1)), spelled(Condition((2, 3, 4), 1))
    ('1', '"100"')
    """
    if len(condition.clbits) < 2:
        return str(condition.value)
    return '"' + format(condition.value, f"0{len(condition.clbits)}b")[::-1] + '"'


class Instruction(NamedTuple):
    """One step of a circuit. Instances are plain values: equal, hashable, picklable.

    Attributes
    ----------
    name : str
        The name of a gate, as the table in `gates` has it, ``"matrix"``, ``"diagonal"``, a member of `NON_UNITARY`, or the
        name of `definition`.
    qubits : tuple of int
        Targets, in the gate's order: CNOT is (control, target), CCNOT (control,
        control, target).
    params : tuple of float, Expression, or of complex for "matrix" and "diagonal"
        Angles in radians; for "matrix" its ``4**len(qubits)`` entries row by
        row, where the first listed qubit is the highest bit of a row's number,
        for "diagonal" the ``2**len(qubits)`` entries in the same order.
    controls : tuple of int
        Further qubits that must all be 1, unless `control_values` says otherwise.
    clbits : tuple of int
        For "measure" only: where the result of each qubit goes. All bits are
        written together, after the condition has been read.
    condition : Condition or None
        The step is left out unless the condition holds.
    definition : GateDefinition or None
        What the gate is made of, if it is neither the library's nor known to the package.
    control_values : str
        What `controls` must read, 0 or 1 for each in their order; empty if that is 1 for all.

    >>> Instruction("RX", (2,), (0.5,), controls=(0,))           # doctest: +NORMALIZE_WHITESPACE
    Instruction(name='RX', qubits=(2,), params=(0.5,), controls=(0,), clbits=(), condition=None, definition=None,
                control_values='')
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
    condition: Condition | None = None
    definition: GateDefinition | None = None
    control_values: str = ""

    @property
    def is_gate(self) -> bool:
        """Whether the step is a unitary gate (conditioned or not)."""
        return self.name not in NON_UNITARY

    @property
    def can_be_conditioned(self) -> bool:
        """Whether a condition makes sense; it does not on a barrier."""
        return self.name != "barrier"

    def __str__(self) -> str:
        words = [self.name]
        if self.name == "matrix":
            words[0] += f"[{2 ** len(self.qubits)}x{2 ** len(self.qubits)}]"
        elif self.name == "diagonal":
            words[0] += f"[{2 ** len(self.qubits)}]"
        elif self.params:
            words[0] += "(" + ", ".join(f"{value:.12g}" for value in self.params) + ")"
        words.append(_listed(self.qubits))
        if self.controls:
            words.append("controls " + _listed(self.controls))
        if self.control_values:
            words.append("== " + (f'"{self.control_values}"' if len(self.control_values) > 1 else self.control_values))
        if self.clbits:
            words.append("-> " + _listed(self.clbits))
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
