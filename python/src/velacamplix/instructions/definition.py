"""Gates defined by users: a name for a sequence of other gates."""

from __future__ import annotations

import math
from collections.abc import Callable, Container, Iterable, Iterator, Sequence
from typing import Any, Protocol
from weakref import WeakValueDictionary, ref

import numpy as np

from ..basics import checks
from ..basics.words import counted
from ..machine.memory import require_entries
from ..machine.pickling import Packed
from . import instruction as _instruction
from .expression import Expression, Parameter
from .flow import bodies_of, with_bodies
from .gates import GATES
from .instruction import BY_ENTRIES, NON_UNITARY, Instruction
from .open_controls import joined

__all__ = ["GateDefinition"]

# Sizes are sums over bodies and double with each level of nesting in the worst
# case. Beyond this the exact number does not matter to anyone.
SIZE_LIMIT = 2**62

#: Definitions inside each other. Functions that call themselves follow them, so this is far from Python's own limit.
MOST_NESTED = 100

# Entries of a gate from which on a pickle holds them as an array.
_MANY = 2**10

# All names, in small letters, that mean something else already: those of the package, and those by which OpenQASM
# programs call its gates.
_TAKEN = frozenset(
    name.lower()
    for name in [
        *GATES, *BY_ENTRIES, *NON_UNITARY, "u0",
        *[name for gate in GATES.values() for name in [*gate.qasm, *gate.later]],
    ]
)  # fmt: skip

# There is one object for each meaning, so that comparing definitions, however deep, is comparing objects.
_known: WeakValueDictionary[Any, GateDefinition] = WeakValueDictionary()


class Steps(Protocol):
    """What a definition takes: a `Circuit`."""

    @property
    def n_qubits(self) -> int: ...

    @property
    def parameters(self) -> tuple[str, ...]: ...

    @property
    def instructions(self) -> tuple[Instruction, ...]: ...

    def __iter__(self) -> Iterator[Instruction]: ...


class GateDefinition:
    """A gate made of other gates, kept under its name until a circuit is run.

    Parameters
    ----------
    name : str
        Not that of a gate the package knows, nor one by which OpenQASM calls it, in capital or small letters.
    circuit : Circuit
        What the gate does to ``circuit.n_qubits`` qubits: gates and barriers without conditions.
    params : sequence of str, optional
        Names of the gate's parameters, in order. By default those of the circuit, in order of appearance.

    Attributes
    ----------
    name : str
    params : tuple of str
    n_qubits : int
    body : tuple of Instruction
        On qubits 0 to ``n_qubits - 1``, with expressions in `params`.
    size : int
        Number of steps of a full expansion, this gate and those inside included, at most ``2**62``.
    depth : int
        How many definitions stand inside each other, 1 if there is none inside.

    Raises
    ------
    TypeError, ValueError
        If the name is taken, a parameter of the circuit is not listed, a step is no plain gate, or more than 100
        definitions would stand inside each other.

    Examples
    --------
    >>> from velacamplix import Circuit, Parameter
    >>> angle = Parameter("angle")
    >>> pair = GateDefinition("pair", Circuit(2).ry(angle, 0).cx(0, 1))
    >>> circuit = Circuit(3).gate(pair, [0, 2], [0.5])
    >>> print(circuit)
    pair(0.5) 0,2
    >>> for instruction in circuit.basic_instructions():
    ...     print(instruction)
    RY(0.5) 0
    CNOT 0,2
    """

    __slots__ = ("name", "params", "n_qubits", "body", "size", "depth", "_inverse", "_origin", "__weakref__")

    name: str
    params: tuple[str, ...]
    n_qubits: int
    body: tuple[Instruction, ...]
    size: int
    depth: int
    _inverse: GateDefinition | None
    _origin: ref[GateDefinition] | None

    def __new__(cls, name: str, circuit: Steps, params: Sequence[str] | None = None) -> GateDefinition:
        if not isinstance(name, str):
            raise TypeError(f"name must be a text, got {checks.show(name)}")
        name = checks.plain(name)
        if not name or is_taken(name):
            raise ValueError(
                "name must be new, not that of a gate or instruction the package knows, in capital or small letters, "
                f"got {checks.show(name)}"
            )
        if not hasattr(circuit, "instructions") or not hasattr(circuit, "parameters"):
            raise TypeError(f"circuit must be a Circuit, got {checks.show(circuit)}")
        listed = circuit.parameters if params is None else _names(params)
        missing = [free for free in circuit.parameters if free not in listed]
        if missing:
            raise ValueError(
                f"params must name every parameter of the circuit, {missing} are missing in {list(listed)}"
            )
        if circuit.n_qubits == 0:
            raise ValueError("circuit must have at least 1 qubit")
        for step in circuit:
            if step.condition is not None or (not step.is_gate and step.name != "barrier"):
                raise ValueError(f"circuit must hold gates and barriers without conditions only, got {step.title}")
        return cls.checked(name, listed, circuit.n_qubits, circuit.instructions)

    @classmethod
    def checked(
        cls, name: str, params: tuple[str, ...], n_qubits: int, body: tuple[Instruction, ...]
    ) -> GateDefinition:
        """Return the definition of parts that are known to be right."""
        key = (name, params, n_qubits, body, _zero_signs(body))
        known = _known.get(key)
        if known is not None:
            return known
        depth = 1 + max([step.definition.depth for step in body if step.definition is not None], default=0)
        if depth > MOST_NESTED:
            raise ValueError(
                f"definitions must be nested at most {MOST_NESTED} deep, {checks.show(name)} would be deeper: write the steps "
                "of a gate inside it instead of calling it"
            )
        made = object.__new__(cls)
        made.name, made.params, made.n_qubits, made.body = name, params, n_qubits, body
        made.depth = depth
        made.size = min(SIZE_LIMIT, 1 + sum(size(step) for step in body))
        made._inverse = made._origin = None
        return _known.setdefault(key, made)

    def inverse(self) -> GateDefinition:
        """Return the gate that undoes this one; its name ends in ``_dg``, or no longer does if what is left is new.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> turn = GateDefinition("turn", Circuit(1).s(0).h(0))
        >>> print(*turn.inverse().body, sep=", ")
        H 0, sdg 0
        >>> turn.inverse().inverse() is turn
        True
        """
        known = self._known_inverse()
        if known is not None:
            return known
        name = self.name[:-3] if self.name.endswith("_dg") else ""
        if not name or is_taken(name):
            name = self.name + "_dg"
        self._inverse = GateDefinition.checked(name, self.params, self.n_qubits, tuple(_undone(self.body)))
        self._inverse._origin = ref(self)
        return self._inverse

    def _known_inverse(self) -> GateDefinition | None:
        # The way back is weak: a circle would outlive its use until the garbage collector comes, one for each level.
        return self._inverse if self._origin is None else self._inverse or self._origin()

    def __copy__(self) -> GateDefinition:
        return self

    def __deepcopy__(self, memo: Any) -> GateDefinition:
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        return (_last_restored, (flat([self], {}),))

    def __repr__(self) -> str:
        params = f"({', '.join(self.params)})" if self.params else ""
        qubits, steps = counted(self.n_qubits, "qubit"), counted(len(self.body), "step")
        return f"<GateDefinition {self.name}{params}: {qubits}, {steps}>"


# Instructions hold definitions, which hold instructions: what reads annotations at run time finds the name there.
setattr(_instruction, "GateDefinition", GateDefinition)


def inverted(step: Instruction) -> tuple[Instruction, ...]:
    """Return the instructions that undo `step`, nearly always one.

    Raises
    ------
    ValueError
        For measure, reset, while, save and channel, and for matrices that are not unitary.
    """
    if step.definition is not None:
        return (with_definition(step, step.definition.inverse()),)
    if step.name == "barrier":
        return (step,)
    if step.name in BY_ENTRIES:
        _require_unitary(step)
    if step.name == "matrix":
        dim = 2 ** len(step.qubits)
        entries: Any = step.params
        adjoint = (entries[row * dim + column].conjugate() for column in range(dim) for row in range(dim))
        return (step._replace(params=tuple(adjoint)),)
    if step.name == "diagonal":
        entries = step.params
        return (step._replace(params=tuple(entry.conjugate() for entry in entries)),)
    if step.name in ("if", "switch"):
        # Gates alone can be undone, so the bits are those that were read the first time.
        return (with_bodies(step, [_undone(body) for body in bodies_of(step)]),)
    if not step.is_gate:
        why = ": what noise has lost does not come back; invert the circuit without it" if step.name == "channel" else ""
        raise ValueError(f"{step.name} has no inverse, got {step.title}{why}")
    gate = GATES[step.name]
    if gate.inverse is not None:
        name, params = gate.inverse(step.params)
        return (step._replace(name=name, params=params),)
    assert gate.build is not None
    parts = gate.build(step.params, step.qubits)
    return tuple(
        [
            undone._replace(
                controls=step.controls + undone.controls,
                control_values=joined(step.control_values, 0, len(undone.controls)),
                condition=step.condition,
            )
            for part in reversed(parts)
            for undone in inverted(part)
        ]
    )


def _undone(steps: Sequence[Instruction]) -> list[Instruction]:
    return [part for step in reversed(steps) for part in inverted(step)]


def is_taken(name: str) -> bool:
    """Whether a definition of this name would be taken for something else, by readers or by programs.

    >>> is_taken("h"), is_taken("CX"), is_taken("bell")
    (True, True, False)
    """
    return name.lower() in _TAKEN


def renamed(definition: GateDefinition, others: Container[str]) -> GateDefinition:
    """Return a definition of a program under a name that is neither taken nor that of one of its others."""
    name, number = definition.name, 0
    while is_taken(name) or name in others:
        number += 1
        name = f"{definition.name}_gate" + (f"_{number}" if number > 1 else "")
    if not number:
        return definition
    return GateDefinition.checked(name, definition.params, definition.n_qubits, definition.body)


def size(step: Instruction) -> int:
    """Number of steps in the full expansion of an instruction, at least 1."""
    own = step.definition.size if step.definition is not None else _SIZES.get(step.name, 1)
    return own + 2 * step.control_values.count("0")


_SIZES: dict[str, int] = {
    name: max(1, len(gate.build((0.0,) * gate.n_params, tuple(range(gate.n_qubits)))))
    for name, gate in GATES.items()
    if gate.build is not None
}


Used = Callable[["GateDefinition"], Iterable["GateDefinition"]]


def called(definition: GateDefinition) -> Iterator[GateDefinition]:
    """Iterate over the definitions that the steps of one call."""
    return (step.definition for step in definition.body if step.definition is not None)


def ordered(definitions: Iterable[GateDefinition], used: Used = called) -> list[GateDefinition]:
    """Return the given definitions and all that these use, each once, what is used first."""
    found: dict[int, GateDefinition] = {}
    _collect(definitions, used, found)
    return list(found.values())


def _collect(definitions: Iterable[GateDefinition], used: Used, found: dict[int, GateDefinition]) -> None:
    for definition in definitions:
        if id(definition) not in found:
            _collect(used(definition), used, found)
            found[id(definition)] = definition


def flat(definitions: Iterable[GateDefinition], numbers: dict[int, int]) -> list[Any]:
    """Return a table for `restored`: a row for each definition, with the numbers of earlier rows it refers to.

    `numbers` is filled with the row of each definition, by ``id``.
    """
    rows: list[Any] = []
    for definition in ordered(definitions):
        numbers[id(definition)] = len(rows)
        rows.append((definition.name, definition.params, definition.n_qubits, flat_steps(definition.body, numbers)))
    return rows


def flat_steps(steps: Iterable[Instruction], numbers: dict[int, int]) -> list[Any]:
    """Return instructions as tuples, with their definitions' numbers."""
    return [
        (
            step.name, step.qubits, _packed(step), step.controls, step.clbits, step.condition,
            None if step.definition is None else numbers[id(step.definition)], step.detail, step.control_values,
        )
        for step in steps
    ]  # fmt: skip


def restored(rows: Iterable[Any]) -> list[GateDefinition]:
    """Return the definitions of a table made by `flat`."""
    table: list[GateDefinition] = []
    for name, params, n_qubits, steps in rows:
        table.append(GateDefinition.checked(name, params, n_qubits, tuple(restored_steps(steps, table))))
    return table


def restored_steps(steps: Iterable[Any], table: Sequence[GateDefinition]) -> list[Instruction]:
    """Return instructions from the tuples of `flat_steps`."""
    return [
        Instruction(
            name, qubits, _unpacked(params), controls, clbits, condition, None if number is None else table[number], detail,
            control_values,
        )
        for name, qubits, params, controls, clbits, condition, number, detail, control_values in steps
    ]


def _packed(step: Instruction) -> Any:
    if step.name not in BY_ENTRIES or len(step.params) < _MANY:
        return step.params
    return Packed(np.array(step.params, dtype=np.complex128), is_spare=True)


def _unpacked(params: Any) -> tuple[Any, ...]:
    return checks.plain_entries(params.array) if isinstance(params, Packed) else params


def with_definition(step: Instruction, definition: GateDefinition) -> Instruction:
    """Return the same call of another definition."""
    return step._replace(name=definition.name, definition=definition)


def _require_unitary(step: Instruction) -> None:
    # The builder accepts others where its caller insists; their adjoint undoes nothing.
    require_entries(len(step.params))
    entries = np.array(step.params)
    with np.errstate(all="ignore"):
        if step.name == "diagonal":
            deviation = np.abs(np.abs(entries) ** 2 - 1).max()
        else:
            deviation = checks.deviation_from_unitary(entries.reshape(2 ** len(step.qubits), -1))
    if not deviation <= checks.UNITARY_TOLERANCE:
        raise ValueError(f"{step.name} must be unitary to be inverted, got {step}")


def _last_restored(rows: list[Any]) -> GateDefinition:
    return restored(rows)[-1]


def _names(params: Sequence[Any]) -> tuple[str, ...]:
    listed = checks.sequence(params, "params", of="names")
    names = tuple(item.name if isinstance(item, Parameter) else item for item in listed)
    for name in names:
        if not isinstance(name, str):
            raise TypeError(f"params must be names of parameters, got {checks.show(name)}")
    names = tuple([checks.plain(name) for name in names])
    if len(set(names)) < len(names):
        raise ValueError(f"params must be distinct, got {list(names)}")
    return names


def _zero_signs(body: Sequence[Instruction]) -> tuple[float, ...]:
    # 0.0 and -0.0 are equal and yet not the same angle.
    signs: list[float] = []
    for step in body:
        for value in step.params:
            if isinstance(value, Expression):
                operands = [item for part in value.parts() for item in part.operands]
                numbers: Iterable[Any] = [item for item in operands if type(item) is float]
            else:
                numbers = (value.real, value.imag)
            signs.extend(math.copysign(1.0, number) for number in numbers if number == 0.0)
    return tuple(signs)
