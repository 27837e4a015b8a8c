"""Circuits from Qiskit's, which must be installed.

What an operation is, its class tells; names are free for users to take.
"""

from __future__ import annotations

import operator
from typing import Any, NamedTuple

import numpy as np
import qiskit.circuit
from qiskit.circuit import (
    CASE_DEFAULT,
    AnnotatedOperation,
    Barrier,
    ClassicalRegister,
    ControlFlowOp,
    ControlledGate,
    ControlModifier,
    Delay,
    Gate,
    IfElseOp,
    InverseModifier,
    Measure,
    ParameterExpression,
    PowerModifier,
    Reset,
    SwitchCaseOp,
    WhileLoopOp,
)
from qiskit.circuit import Parameter as QiskitParameter
from qiskit.circuit import library as qiskit_library
from qiskit.circuit.classical import expr, types

from ..basics import checks
from ..instructions import checked
from ..instructions.condition import AnyCondition, Condition
from ..instructions.definition import GateDefinition, renamed
from ..instructions.expression import Angle, Expression, Parameter
from ..instructions.flow import If, Switch, While, conditioned, flow_step
from ..instructions.instruction import Instruction, Register
from .errors import QasmError
from .expressions import ParameterLists
from .meaning import MOST_BITS, Parts
from .modifiers import controlled, inverse, power
from .names import Names
from .qelib1 import GATES as CALLS
from .source import Source

# Gates of Qiskit that qelib1.inc does not have under their name: instruction and number of controls.
_MORE = {
    "iswap": ("ISWAP", 0), "ryy": ("ryy", 0), "ccz": ("Z", 2), "cphase": ("PH", 1), "phase": ("PH", 0),
    "csdg": ("sdg", 1), "cs": ("S", 1), "mcx": ("X", None), "mcphase": ("PH", None), "r": ("r", 0), "rzx": ("rzx", 0),
    "ecr": ("ecr", 0), "dcx": ("dcx", 0), "xx_plus_yy": ("xx_plus_yy", 0), "xx_minus_yy": ("xx_minus_yy", 0),
}  # fmt: skip


_COMPARISONS = {
    expr.Binary.Op.EQUAL: "==", expr.Binary.Op.NOT_EQUAL: "!=", expr.Binary.Op.LESS: "<",
    expr.Binary.Op.LESS_EQUAL: "<=", expr.Binary.Op.GREATER: ">", expr.Binary.Op.GREATER_EQUAL: ">=",
}  # fmt: skip
_JOINS = {
    expr.Binary.Op.LOGIC_AND: operator.and_, expr.Binary.Op.BIT_AND: operator.and_, expr.Binary.Op.LOGIC_OR: operator.or_,
    expr.Binary.Op.BIT_OR: operator.or_, expr.Binary.Op.BIT_XOR: operator.xor,
}  # fmt: skip

_BoxOp = getattr(qiskit.circuit, "BoxOp", ())  # since Qiskit 2.0


class NotConverted(ValueError):
    """Something that a `Circuit` cannot say; `position` is the instruction's in its circuit, None for what has none."""

    def __init__(self, message: str, position: int | None = None) -> None:
        super().__init__(message)
        self.position = position


def parts_from_qiskit(program: Any) -> Parts:
    """Return registers and instructions of the same circuit, global phase included.

    Delays become nothing, as nothing happens during them.

    Raises
    ------
    NotConverted
        If there is something a `Circuit` cannot say; the message names it.
    """
    n_qubits = checks.integer(program.num_qubits, "n_qubits", minimum=0, maximum=MOST_BITS)
    n_clbits = checks.integer(program.num_clbits, "n_clbits", minimum=0, maximum=MOST_BITS)
    listed = checked.registers(_registers(program), n_qubits, n_clbits)
    conversion = _Conversion(program)
    made = _phase(program)
    for position, item in enumerate(program.data):
        try:
            made += [checked.instruction(step, n_qubits, n_clbits) for step in conversion.steps(item, conversion.outside)]
        except (TypeError, ValueError, IndexError) as error:
            raise NotConverted(str(error), position) from None
        except RecursionError:
            raise NotConverted("instructions hold each other too deeply for Python's stack", position) from None
    return Parts(listed, made)


def _definition(name: str, body: Any) -> GateDefinition:
    """Return the definition of a gate whose body is a circuit of Qiskit's."""
    conversion = _Conversion(body)
    steps = [step for item in body.data for step in conversion.steps(item, conversion.outside)]
    for step in steps:
        if not (step.is_gate or step.name == "barrier") or step.condition is not None:
            raise NotConverted(f"a gate cannot be made of {step.title}")
    params = tuple([parameter.name for parameter in body.parameters])
    return renamed(GateDefinition.checked(name, params, body.num_qubits, (*_phase(body), *steps)), ())


def _phase(program: Any) -> list[Instruction]:
    angle = _angle(program.global_phase)
    return [] if not isinstance(angle, Expression) and angle == 0.0 else [Instruction("gphase", (), (angle,))]


class _Places(NamedTuple):
    """The numbers that a block's bits have in the whole circuit."""

    qubits: dict[Any, int]
    clbits: dict[Any, int]


class _Conversion:
    """Converts the instructions of one circuit."""

    def __init__(self, program: Any) -> None:
        self.outside = _Places(
            {bit: number for number, bit in enumerate(program.qubits)},
            {bit: number for number, bit in enumerate(program.clbits)},
        )
        # Gates that share what they are made of are converted once; kept alive, so that no other takes the number.
        self._definitions: dict[int, tuple[Any, GateDefinition]] = {}

    def steps(self, item: Any, places: _Places) -> list[Instruction]:
        """Return what an instruction becomes, at its place in the circuit."""
        operation = item.operation
        qubits = tuple([places.qubits[bit] for bit in item.qubits])
        clbits = tuple([places.clbits[bit] for bit in item.clbits])
        if isinstance(operation, ControlFlowOp):
            return self._control_flow(operation, qubits, clbits, places)
        steps = self._converted(operation, qubits, clbits)
        if getattr(operation, "condition", None) is not None:  # before Qiskit 2.0
            return _decided(If(self._condition(operation.condition, places.clbits), tuple(steps)))
        return steps

    def _block(self, block: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> list[Instruction]:
        inside = _Places(dict(zip(block.qubits, qubits)), dict(zip(block.clbits, clbits)))
        return _phase(block) + [step for item in block.data for step in self.steps(item, inside)]

    # --- Decisions and loops ---

    def _control_flow(
        self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...], places: _Places
    ) -> list[Instruction]:
        if isinstance(operation, _BoxOp):
            return self._block(operation.blocks[0], qubits, clbits)

        def body(block: Any) -> tuple[Instruction, ...]:
            return tuple(self._block(block, qubits, clbits))

        if isinstance(operation, IfElseOp):
            bodies = [body(block) for block in operation.blocks]
            return _decided(If(self._condition(operation.condition, places.clbits), *bodies))
        if isinstance(operation, WhileLoopOp):
            condition = self._condition(operation.condition, places.clbits)
            return _decided(While(condition, body(operation.blocks[0])))
        if isinstance(operation, SwitchCaseOp):
            target = _without_casts(operation.target)
            bits = self._bits(target.var if isinstance(target, expr.Var) else target, places.clbits)
            if bits is None:
                raise NotConverted(f"a switch on {operation.target} cannot be converted: it must be on a bit or a register")
            cases: list[tuple[tuple[int, ...], tuple[Instruction, ...]]] = []
            default: tuple[Instruction, ...] = ()
            for values, block in operation.cases_specifier():
                if CASE_DEFAULT in values:
                    default = body(block)
                else:
                    cases.append((tuple([int(value) for value in values]), body(block)))
            return _decided(Switch(bits, tuple(cases), default))
        raise NotConverted(f"{operation.name!r} cannot be converted to an instruction of a circuit")

    def _bits(self, target: Any, clbits: dict[Any, int]) -> tuple[int, ...] | None:
        """Return a bit or the bits of a register, lowest first."""
        if target in clbits:
            return (clbits[target],)
        return tuple([clbits[bit] for bit in target]) if isinstance(target, ClassicalRegister) else None

    def _condition(self, condition: Any, clbits: dict[Any, int]) -> AnyCondition:
        if isinstance(condition, tuple):
            bits = self._bits(condition[0], clbits)
            assert bits is not None
            return _reachable(Condition(bits, int(condition[1])))
        found = self._condition_of_expression(condition, clbits)
        if found is None:
            raise NotConverted(f"this condition cannot be converted: {condition}")
        return found

    def _condition_of_expression(self, node: Any, clbits: dict[Any, int]) -> AnyCondition | None:
        node, is_bool = _without_casts(node), node.type.kind is types.Bool
        if isinstance(node, expr.Cast) and is_bool:  # a number that is not 0
            bits = self._bits_of_expression(_without_casts(node.operand), clbits)
            return None if bits is None else ~Condition(bits, 0)
        bits = self._bits_of_expression(node, clbits)
        if bits is not None:
            return Condition(bits, 1) if is_bool else None
        if isinstance(node, expr.Unary):
            inner = self._condition_of_expression(node.operand, clbits)
            is_not = node.op is expr.Unary.Op.LOGIC_NOT or node.op is expr.Unary.Op.BIT_NOT and is_bool
            return ~inner if is_not and inner is not None else None
        if not isinstance(node, expr.Binary):
            return None
        comparison = _COMPARISONS.get(node.op)
        if comparison is not None:
            left, right = _without_casts(node.left), _without_casts(node.right)
            if isinstance(left, expr.Value):
                left, right = right, left
                comparison = {"<": ">", "<=": ">=", ">": "<", ">=": "<="}.get(comparison, comparison)
            bits = self._bits_of_expression(left, clbits)
            if bits is not None and isinstance(right, expr.Value):
                return _reachable(Condition(bits, int(right.value), comparison))
        if any([side.type.kind is not types.Bool for side in (node.left, node.right)]):
            return None
        first, second = [self._condition_of_expression(side, clbits) for side in (node.left, node.right)]
        if first is None or second is None:
            return None
        if comparison in ("==", "!="):
            return first ^ second if comparison == "!=" else ~(first ^ second)
        join = _JOINS.get(node.op)
        return None if join is None else join(first, second)

    def _bits_of_expression(self, node: Any, clbits: dict[Any, int]) -> tuple[int, ...] | None:
        if isinstance(node, expr.Var):
            return self._bits(node.var, clbits)
        if isinstance(node, expr.Index) and isinstance(node.index, expr.Value):
            bits = self._bits_of_expression(_without_casts(node.target), clbits)
            return None if bits is None else bits[node.index.value : node.index.value + 1] or None
        return None

    # --- Operations ---

    def _converted(self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> list[Instruction]:
        if isinstance(operation, Measure):
            return [Instruction("measure", qubits, (), (), clbits)]
        if isinstance(operation, Reset):
            return [Instruction("reset", qubits)]
        if isinstance(operation, Barrier):
            return [Instruction("barrier", qubits)]
        if isinstance(operation, Delay):
            return []
        if isinstance(operation, AnnotatedOperation):
            return self._modified(operation, qubits)
        if isinstance(operation, Gate):
            return self._gate(operation, qubits)
        raise NotConverted(f"{operation.name!r} cannot be converted to an instruction of a circuit")

    def _modified(self, operation: Any, qubits: tuple[int, ...]) -> list[Instruction]:
        modifiers = operation.modifiers
        # The modifier that comes last has its controls first.
        ends = [operation.base_op.num_qubits]
        for modifier in modifiers:
            ends.append(ends[-1] + (modifier.num_ctrl_qubits if isinstance(modifier, ControlModifier) else 0))
        steps = self._converted(operation.base_op, qubits[len(qubits) - ends[0] :], ())
        for number, modifier in enumerate(modifiers):
            own = qubits[len(qubits) - ends[number] :]
            if isinstance(modifier, InverseModifier):
                steps = inverse(steps)
            elif isinstance(modifier, ControlModifier):
                controls = qubits[len(qubits) - ends[number + 1] : len(qubits) - ends[number]]
                steps = controlled(steps, controls, _control_values(modifier))
            elif isinstance(modifier, PowerModifier):
                steps = power(steps, modifier.power, own)
            else:
                raise NotConverted(f"the modifier {modifier} cannot be converted")
        return steps

    def _gate(self, operation: Any, qubits: tuple[int, ...]) -> list[Instruction]:
        if isinstance(operation, qiskit_library.UnitaryGate):
            entries = np.asarray(operation.to_matrix()).ravel().tolist()
            return [Instruction("matrix", qubits[::-1], tuple(entries))]
        if isinstance(operation, qiskit_library.GlobalPhaseGate):
            return [Instruction("gphase", (), (_angle(operation.params[0]),))]
        known = _known(operation)
        if known is not None:
            step, n = known
            if step is None:
                return []
            params = tuple([_angle(value) for value in operation.params])
            return [Instruction(step, qubits[n:], params, qubits[:n])]
        if isinstance(operation, ControlledGate):
            base, n = operation.base_gate, operation.num_ctrl_qubits
            # cu has a parameter more than the u that it controls, and some gates have qubits to work with.
            is_cu = isinstance(base, qiskit_library.UGate) and len(operation.params) > 3
            if not is_cu and base.num_qubits + n == operation.num_qubits:
                return controlled(self._gate(base, qubits[n:]), qubits[:n], _control_values(operation))
        if operation.definition is None:
            raise NotConverted(f"gate {operation.name!r} cannot be converted: it has no definition")
        if not qubits:
            return self._block(operation.definition, (), ())
        definition = self._definition(operation)
        params = tuple([Parameter(name) for name in definition.params])
        return [Instruction(definition.name, qubits, params, definition=definition)]

    def _definition(self, operation: Any) -> GateDefinition:
        # Qiskit's gates hold the body for the parameters of this call; those of the circuit may be among them.
        known = self._definitions.get(id(operation))
        if known is None:
            known = self._definitions[id(operation)] = operation, _definition(operation.name, operation.definition)
        return known[1]


def _control_values(operation: Any) -> str:
    """Return what the controls read, the first leftmost, of a gate or a modifier."""
    return f"{operation.ctrl_state:0{operation.num_ctrl_qubits}b}"[::-1]


def _known(operation: Any) -> tuple[str | None, int] | None:
    """Return instruction and number of controls of one of Qiskit's own gates that circuits have too."""
    # Qiskit keeps some of its gates as fast copies of their class.
    kind = getattr(operation, "base_class", type(operation))
    if not str(kind.__module__).startswith("qiskit.circuit.library.standard_gates"):
        return None
    n_controls = getattr(operation, "num_ctrl_qubits", 0)
    if n_controls and operation.ctrl_state != 2**n_controls - 1:
        return None
    more = _MORE.get(operation.name)
    if more is not None:
        return more[0], n_controls if more[1] is None else more[1]
    gate = CALLS.get(operation.name)
    if gate is None or gate.n_qubits != operation.num_qubits or gate.n_params != len(operation.params):
        return None
    return gate.step, gate.n_controls


# --- Angles ---


def _angle(value: Any) -> Angle:
    """Return a number or expression of this package for one of Qiskit's."""
    if not isinstance(value, ParameterExpression):
        return checks.angle(value)
    if not value.parameters:
        return checks.angle(float(value))
    if isinstance(value, QiskitParameter):
        return Parameter(value.name)
    # Under names that any expression may have.
    listed = sorted(value.parameters, key=lambda parameter: str(parameter.name))
    plain = {parameter: QiskitParameter(f"p{number}") for number, parameter in enumerate(listed)}
    names: dict[str, Any] = {plain[parameter].name: Parameter(parameter.name) for parameter in listed}
    text = str(value.subs(plain)).replace("**", "^").replace("log(", "ln(")
    try:
        (found,), _ = ParameterLists(Source(text + ")")).read(0)
    except (QasmError, ValueError):
        raise NotConverted(f"angle cannot be converted: {value}") from None
    # Qiskit's text might round numbers: try whether it says what the angle is.
    results = []
    for start in (0.3, -1.7):
        numbers = {parameter: start + 0.1 * number for number, parameter in enumerate(listed)}
        wanted = float(value.bind(numbers))
        got = found
        if isinstance(found, Expression):
            got = found.evaluate({plain[parameter].name: number for parameter, number in numbers.items()})
        if not abs(got - wanted) <= 1e-12 * max(1.0, abs(wanted)):  # type: ignore[operator, arg-type]
            raise NotConverted(f"angle cannot be converted: {value}")
        results.append(wanted)
    if results == [0.0, 0.0]:  # such as a - a
        return 0.0
    return found.substitute(names) if isinstance(found, Expression) else found


# --- Conditions ---


def _decided(detail: If | While | Switch) -> list[Instruction]:
    step = flow_step(detail)
    return conditioned(step) or [step]


def _reachable(condition: Condition) -> Condition:
    if not 0 <= condition.value < 2 ** len(condition.clbits):
        n, sign = len(condition.clbits), condition.comparison
        told = "can never hold" if sign == "==" else "always has the same answer"
        never = "do not become" if sign == "==" else f"compared by {sign} with"
        raise NotConverted(f"the condition {told}: {n} bit(s) {never} {checks.show(condition.value)}")
    # One bit has one way to be said.
    return ~Condition(condition.clbits, condition.value) if condition.comparison == "!=" else condition


def _without_casts(node: Any) -> Any:
    """Return an expression without the casts around it that keep its value."""
    while isinstance(node, expr.Cast):
        before, after = node.operand.type, node.type
        is_wider = after.kind is types.Uint and (before.kind is types.Bool or getattr(before, "width", 2**63) <= after.width)
        if before != after and not is_wider:
            break
        node = node.operand
    return node


# --- Names ---


def _registers(program: Any) -> list[Register]:
    """Return registers that cover all bits in order; loose bits between them get one too."""
    registers: list[Register] = []
    names = Names([register.name for register in [*program.qregs, *program.cregs]])
    kinds = (("quantum", program.qregs, program.qubits), ("classical", program.cregs, program.clbits))
    for kind, listed, bits in kinds:
        place = 0
        while place < len(bits):
            fitting = [r for r in listed if len(r) and list(r) == list(bits[place : place + len(r)])]
            known = {register.name for register in registers}
            found = next((r for r in fitting if r.name not in known), None)
            if found is not None:
                name, n_bits = found.name, len(found)
            else:
                n_bits = 1
                name = names.free("q" if kind == "quantum" else "c")
            registers.append(Register(name, kind, place, n_bits))
            place += n_bits
    return registers
