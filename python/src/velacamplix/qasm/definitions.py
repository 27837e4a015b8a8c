"""Gates by name, and the check of what a file declares."""

from __future__ import annotations

from collections.abc import Container, Mapping, Sequence
from typing import Any, NamedTuple, Protocol

from ..instructions.definition import SIZE_LIMIT, GateDefinition
from ..instructions.expression import Parameter
from ..instructions.instruction import Condition, Instruction
from . import qelib1
from .errors import fail, quoted, shortened
from .expressions import Params
from .qelib1 import LibraryGate
from .source import Token
from .syntax import Argument, Barrier, Call, GateDeclaration, split


class DeclaredGate(NamedTuple):
    """A gate from a file.

    `size` bounds the work of one expansion: calls at every depth, itself
    included, so that bodies without instructions count too. `opaque` is the
    name of a gate without body that it needs, if any; then there is no definition.
    `call` is set if another gate is meant: its name, number of controls and definition.
    """

    name: str
    formals: tuple[str, ...]
    n_qubits: int
    definition: GateDefinition | None
    size: int
    opaque: str | None
    can_be_replaced: bool = False
    call: tuple[str, int, Any] | None = None

    @property
    def n_params(self) -> int:
        """Number of parameters."""
        return len(self.formals)


Gate = LibraryGate | DeclaredGate


def define(declaration: GateDeclaration, gates: Mapping[str, Gate]) -> DeclaredGate:
    """Check a declaration and return its gate.

    Calls in the body refer to `gates` as it is now. A gate must be declared
    before it is used, so no chain of calls can come back to its beginning.
    """
    name = str(declaration.name)
    slots = positions(declaration.qubits, "qubit")
    formals = positions(declaration.params, "parameter")
    for qubit in declaration.qubits:
        if qubit in formals:
            fail(f"{quoted(qubit)} is both a parameter and a qubit", qubit)
    if declaration.body is None:
        return DeclaredGate(name, tuple(formals), len(slots), None, 1, name)
    body: list[Instruction] = []
    size, opaque = 1, None
    for call in declaration.body:
        if isinstance(call, Barrier):
            places = dict.fromkeys(_slots(split(call.places), slots))
            body.append(Instruction("barrier", tuple(places)))
            size += 1
            continue
        gate, places_of_call = _checked(call, name, gates, formals, slots)
        size += gate.size
        opaque = opaque or gate.opaque
        if not opaque:
            body.extend(instructions(gate, call.params, (places_of_call,)))
    definition = None
    if not opaque:
        try:
            definition = GateDefinition.checked(name, tuple(formals), len(slots), tuple(body))
        except ValueError as error:
            fail(str(error), declaration.name)
    return DeclaredGate(name, tuple(formals), len(slots), definition, min(size, SIZE_LIMIT), opaque)


class CallLike(Protocol):
    """A call of a gate in either version."""

    @property
    def name(self) -> str: ...

    @property
    def params(self) -> Sequence[Any]: ...

    @property
    def token(self) -> Token: ...


def find(
    call: CallLike, gates: Mapping[str, Gate], file: str = "qelib1.inc", library: Container[str] = qelib1.GATES
) -> Gate:
    """Return the gate of a call, or raise `QasmError` if there is none that fits."""
    gate = gates.get(call.name)
    if gate is None:
        # The library's names resolve only after the include; forgetting it is common.
        hint = f"; is 'include \"{file}\";' missing?" if call.name in library else ""
        fail(f"unknown gate {quoted(call.name)}{hint}", call.token)
    if len(call.params) != gate.n_params:
        fail(_counts(gate.name, gate.n_params, "parameter", len(call.params)), call.token)
    return gate


def check_operand_count(call: CallLike, n_qubits: int, count: int) -> None:
    """Raise `QasmError` if `count` is not the number of qubits that a call takes."""
    if count != n_qubits:
        fail(_counts(call.name, n_qubits, "qubit", count), call.token)


def instructions(
    gate: Gate, params: Params, rows: Sequence[tuple[int, ...]], condition: Condition | None = None
) -> tuple[Instruction, ...]:
    """Return the instructions of one call, one for each row of qubits."""
    if isinstance(gate, DeclaredGate):
        if gate.call is not None:
            name, n, definition = gate.call
        else:
            assert gate.definition is not None  # whoever calls has refused gates without a body
            name, n, definition = gate.definition.name, 0, gate.definition
        return tuple([Instruction(name, row[n:], params, row[:n], (), condition, definition) for row in rows])
    if gate.step is None:
        return ()
    step, n = gate.step, gate.n_controls
    return tuple([Instruction(step, row[n:], params, row[:n], (), condition) for row in rows])


def _checked(
    call: Call, owner: str, gates: Mapping[str, Gate], formals: Mapping[str, int], slots: Mapping[str, int]
) -> tuple[Gate, tuple[int, ...]]:
    if call.name == owner:
        fail(f"gate {quoted(owner)} is used in its own definition", call.token)
    gate = find(call, gates)
    arguments = split(call.places)
    check_operand_count(call, gate.n_qubits, len(arguments))
    places = _slots(arguments, slots)
    seen = set()
    for place, argument in zip(places, arguments):
        if place in seen:
            fail(f"qubit {quoted(argument.register)} named twice", argument.register)
        seen.add(place)
    check_names(call.params, formals)
    return gate, places


def check_names(params: Params, formals: Mapping[str, int]) -> None:
    """Raise `QasmError` at a name in the parameters that is none of `formals`."""
    for value in params:
        if type(value) is float:
            continue
        for part in value.parts():  # type: ignore[union-attr]
            if isinstance(part, Parameter) and part.name not in formals:
                known = ", ".join(formals) or "none here"
                fail(f"unknown parameter {quoted(part.name)}; known: {shortened(known)}", part.place.token)


def _slots(arguments: Sequence[Argument], slots: Mapping[str, int]) -> tuple[int, ...]:
    for argument in arguments:
        if argument.register not in slots:
            fail(f"unknown qubit {quoted(argument.register)} in a gate's body", argument.register)
        if argument.element is not None:
            fail("a qubit in a gate's body has no index", argument.register)
    return tuple(slots[argument.register] for argument in arguments)


def positions(names: Sequence[Token], noun: str) -> dict[str, int]:
    """Return the place of each name, and refuse one that stands twice."""
    places: dict[str, int] = {}
    for name in names:
        if name in places:
            fail(f"{noun} {quoted(name)} named twice", name)
        places[str(name)] = len(places)
    return places


def _counts(name: str, wanted: int, noun: str, got: int) -> str:
    plural = "" if wanted == 1 else "s"
    return f"gate {quoted(name)} takes {wanted} {noun}{plural}, got {got}"
