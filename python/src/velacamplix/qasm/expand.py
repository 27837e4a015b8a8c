"""Gates by name, and their expansion into the library's own instructions."""

from __future__ import annotations

from typing import Callable, Dict, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union

from lark import Token

from ..instruction import Instruction
from .errors import QasmError, fail, quoted, shortened
from .expressions import Recipe, evaluate, recipe
from .syntax import Argument, Barrier, Call, GateDeclaration, split

# Sizes are sums over bodies and double with each level of nesting in the worst
# case. Beyond this the exact number does not matter to anyone.
_SIZE_LIMIT = 2**62

Params = Tuple[float, ...]
Qubits = Tuple[int, ...]


class LibraryGate(NamedTuple):
    """A gate that needs no definition: a function makes its instructions.

    `size` is the number of instructions. A gate with `can_be_replaced` gives
    way to a file's own declaration of the same name.
    """

    name: str
    n_params: int
    n_qubits: int
    build: Callable[[Params, Qubits], Tuple[Instruction, ...]]
    size: int = 1
    can_be_replaced: bool = False
    opaque: Optional[str] = None


class Step(NamedTuple):
    """One call in a gate's body: which gate, its parameters, positions of its qubits."""

    gate: Gate
    params: Tuple[Recipe, ...]
    slots: Tuple[int, ...]


class Definition(NamedTuple):
    """A gate from a file.

    `size` bounds the work of one expansion: calls at every depth, itself
    included, so that bodies without instructions count too. `opaque` is the
    name of a gate without body that it needs, if any.
    """

    name: str
    n_params: int
    n_qubits: int
    steps: Tuple[Step, ...]
    size: int
    opaque: Optional[str]
    path: Optional[str]
    can_be_replaced: bool = False


Gate = Union[LibraryGate, Definition]


# Not a gate, but in a body it behaves like one, on any number of qubits.
_BARRIER = LibraryGate("barrier", 0, 0, lambda params, qubits: (Instruction("barrier", qubits),))


def define(declaration: GateDeclaration, gates: Mapping[str, Gate], path: Optional[str]) -> Definition:
    """Check a declaration and return its definition.

    Calls in the body refer to `gates` as it is now. A gate must be declared
    before it is used, so no chain of calls can come back to its beginning.
    """
    name = str(declaration.name)
    slots = _positions(declaration.qubits, "qubit")
    params = _positions(declaration.params, "parameter")
    for qubit in declaration.qubits:
        if qubit in params:
            fail(f"{quoted(qubit)} is both a parameter and a qubit", qubit)
    if declaration.body is None:
        return Definition(name, len(params), len(slots), (), 1, name, path)
    steps: List[Step] = []
    size, opaque = 1, None
    for call in declaration.body:
        step = _step(call, name, gates, params, slots)
        size = min(size + step.gate.size, _SIZE_LIMIT)
        opaque = opaque or step.gate.opaque
        steps.append(step)
    return Definition(name, len(params), len(slots), tuple(steps), size, opaque, path)


def find(call: Call, gates: Mapping[str, Gate]) -> Gate:
    """Return the gate of a call, or raise `QasmError` if there is none that fits."""
    gate = gates.get(call.name)
    if gate is None:
        fail(f"unknown gate {quoted(call.name)}" + _hint(call.name), call.token)
    if len(call.params) != gate.n_params:
        fail(_counts(gate.name, gate.n_params, "parameter", len(call.params)), call.token)
    return gate


def check_operand_count(call: Call, gate: Gate, count: int) -> None:
    """Raise `QasmError` if `count` is not the number of qubits the gate takes."""
    if count != gate.n_qubits:
        fail(_counts(gate.name, gate.n_qubits, "qubit", count), call.token)


def expand(gate: Gate, params: Params, qubits: Qubits) -> Tuple[Instruction, ...]:
    """Return the instructions of one call."""
    if isinstance(gate, LibraryGate):
        return gate.build(params, qubits)
    instructions: List[Instruction] = []
    # The last entry comes next. A stack of our own, because bodies may be
    # nested more deeply than Python calls.
    waiting: List[Tuple[Gate, Params, Qubits]] = [(gate, params, qubits)]
    while waiting:
        gate, params, qubits = waiting.pop()
        if isinstance(gate, LibraryGate):
            instructions.extend(gate.build(params, qubits))
            continue
        try:
            inner = [
                (
                    step.gate,
                    tuple([evaluate(steps, params) for steps in step.params]),
                    tuple([qubits[slot] for slot in step.slots]),
                )
                for step in gate.steps
            ]
        except QasmError as error:
            # The place is in the body, perhaps of an included file.
            error.path = gate.path
            values = shortened(", ".join(f"{value:g}" for value in params))
            error.message += f", in gate {quoted(gate.name)} called with ({values})"
            raise
        waiting.extend(reversed(inner))
    return tuple(instructions)


def _step(
    call: Union[Call, Barrier],
    owner: str,
    gates: Mapping[str, Gate],
    params: Mapping[str, int],
    slots: Mapping[str, int],
) -> Step:
    if isinstance(call, Barrier):
        places = _slots(split(call.arguments), slots)
        return Step(_BARRIER, (), tuple(dict.fromkeys(places)))
    if call.name == owner:
        fail(f"gate {quoted(owner)} is used in its own definition", call.token)
    gate = find(call, gates)
    arguments = split(call.arguments)
    check_operand_count(call, gate, len(arguments))
    places = _slots(arguments, slots)
    for position, argument in enumerate(arguments):
        if places[position] in places[:position]:
            fail(f"qubit {quoted(argument.register)} named twice", argument.register)
    return Step(gate, tuple([recipe(node, params) for node in call.params]), places)


def _slots(arguments: Sequence[Argument], slots: Mapping[str, int]) -> Tuple[int, ...]:
    for argument in arguments:
        if argument.register not in slots:
            fail(f"unknown qubit {quoted(argument.register)} in a gate's body", argument.register)
        if argument.element is not None:
            fail("a qubit in a gate's body has no index", argument.register)
    return tuple(slots[argument.register] for argument in arguments)


def _positions(names: Sequence[Token], noun: str) -> Dict[str, int]:
    positions: Dict[str, int] = {}
    for name in names:
        if name in positions:
            fail(f"{noun} {quoted(name)} named twice", name)
        positions[str(name)] = len(positions)
    return positions


def _counts(name: str, wanted: int, noun: str, got: int) -> str:
    plural = "" if wanted == 1 else "s"
    return f"gate {quoted(name)} takes {wanted} {noun}{plural}, got {got}"


def _hint(name: str) -> str:
    # The library's names resolve only after the include; forgetting it is common.
    from .qelib1 import GATES

    return '; is \'include "qelib1.inc";\' missing?' if name in GATES else ""
