"""Circuits from Qiskit's, which must be installed.

What an operation is, its class tells; names are free for users to take.
"""

from __future__ import annotations

import cmath
import math
import operator
from collections.abc import Container, Sequence
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
from qiskit.quantum_info import Operator

from ..basics import checks
from ..instructions import checked
from ..instructions.condition import AnyCondition, Condition
from ..instructions.definition import GateDefinition, inverted, renamed, size
from ..instructions.expression import Angle, Expression, Parameter, free_names
from ..instructions.flow import If, Switch, While, conditioned, flow_step
from ..instructions.instruction import Instruction, Register
from .errors import QasmError
from .expressions import ParameterLists
from .program import MOST_BITS, Parts
from .qelib1 import GATES as CALLS
from .source import Source

# Gates of Qiskit that qelib1.inc does not have under their name: instruction and number of controls.
_MORE = {
    "iswap": ("ISWAP", 0), "ryy": ("ryy", 0), "ccz": ("Z", 2), "cphase": ("PH", 1), "phase": ("PH", 0),
    "csdg": ("sdg", 1), "cs": ("S", 1), "mcx": ("X", None), "mcphase": ("PH", None), "r": ("r", 0), "rzx": ("rzx", 0),
    "ecr": ("ecr", 0), "dcx": ("dcx", 0), "xx_plus_yy": ("xx_plus_yy", 0), "xx_minus_yy": ("xx_minus_yy", 0),
}  # fmt: skip


# A power of a rotation is a rotation. The value: up to which angle that is also the principal root, whose eigenvalues
# have the smallest phases.
_ROTATIONS = {"RX": 2 * math.pi, "RY": 2 * math.pi, "RZ": 2 * math.pi, "PH": math.pi}
_ROTATIONS.update({"rxx": 2 * math.pi, "ryy": 2 * math.pi, "rzz": 2 * math.pi})

# Powers: repetitions that are written out, and qubits of a matrix that is calculated instead.
_MOST_REPEATED = 1000
_MOST_QUBITS_OF_A_MATRIX = 6

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


class DefinedGate(Gate):  # type: ignore[misc]
    """A gate of Qiskit's that knows what it is made of here; `body` tells Qiskit."""

    def __init__(self, made_of: GateDefinition, body: Any, params: Sequence[Any]) -> None:
        super().__init__(made_of.name, made_of.n_qubits, list(params))
        self.made_of = made_of
        self.body = body

    def _define(self) -> None:
        known = {parameter.name: parameter for parameter in self.body.parameters}
        values = {known[name]: value for name, value in zip(self.made_of.params, self.params) if name in known}
        self.definition = self.body.assign_parameters(values)


def parts_from_qiskit(program: Any, registers: Sequence[Register] | None = None) -> Parts:
    """Return registers and instructions of the same circuit, global phase included.

    Delays become nothing, as nothing happens during them. `registers` are the names to use, by default those of
    Qiskit's circuit.

    Raises
    ------
    NotConverted
        If there is something a `Circuit` cannot say; the message names it.
    """
    n_qubits = checks.integer(program.num_qubits, "n_qubits", minimum=0, maximum=MOST_BITS)
    n_clbits = checks.integer(program.num_clbits, "n_clbits", minimum=0, maximum=MOST_BITS)
    listed = checked.registers(registers or _registers(program), n_qubits, n_clbits)
    made: list[Instruction] = []
    conversion = _Conversion(program)
    phase = _angle(program.global_phase)
    placed: list[tuple[int | None, Instruction]] = []
    first_phase: int | None = None
    for position, item in enumerate(program.data):
        try:
            part = conversion.part(item, conversion.outside)
        except (TypeError, ValueError, IndexError) as error:
            raise NotConverted(str(error), position) from None
        placed += [(position, step) for step in part.steps]
        phase = _sum(phase, part.phase)
        if first_phase is None and part.phase != 0.0:
            first_phase = position
    # In front: behind a measurement it would look like a gate that needs the outcome's state.
    try:
        steps = _phase_steps(phase, program.num_qubits)
    except NotConverted as error:
        raise NotConverted(str(error), first_phase) from None
    for place, step in [*[(first_phase, step) for step in steps], *placed]:
        try:
            made.append(checked.instruction(step, n_qubits, n_clbits))
        except (TypeError, ValueError, IndexError) as error:
            raise NotConverted(str(error), place) from None
    return Parts(listed, made)


def definition_from_qiskit(name: str, params: Sequence[str], body: Any, others: Container[str] = ()) -> GateDefinition:
    """Return the definition of a gate whose `body` is a circuit of Qiskit's with parameters of these names.

    It has another name if the package knows a gate of that name, or one of the `others` has it.
    """
    steps = body_steps(body, 0)
    steps += _phase_steps(_angle(body.global_phase), body.num_qubits)
    return renamed(GateDefinition.checked(name, tuple(params), body.num_qubits, tuple(steps)), others)


def body_steps(body: Any, first: int) -> list[Instruction]:
    """Return what the instructions of a gate's body become, from number `first` on, without its own global phase."""
    conversion = _Conversion(body)
    steps: list[Instruction] = []
    for item in body.data[first:]:
        part = conversion.part(item, conversion.outside)
        for step in part.steps:
            if step.name in ("measure", "reset") or step.condition is not None:
                raise NotConverted(f"a gate cannot be made of {step}")
        steps += [*part.steps, *_phase_steps(part.phase, body.num_qubits)]
    return steps


class _Part(NamedTuple):
    """Steps, and a phase of the whole state beside them."""

    steps: list[Instruction]
    phase: Angle = 0.0

    def inverse(self) -> _Part:
        return _Part([part for step in reversed(self.steps) for part in inverted(step)], _product(self.phase, -1))

    def repeated(self, times: int) -> _Part:
        once = self if times >= 0 else self.inverse()
        return _Part(once.steps * abs(times), _product(once.phase, abs(times)))

    def controlled(self, controls: tuple[int, ...], state: int) -> _Part:
        """Let all happen only where the controls have the bits of `state`, the first the lowest."""
        if not controls:
            return self
        steps = [step._replace(controls=controls + step.controls) for step in self.steps]
        if isinstance(self.phase, Expression) or self.phase:
            steps.append(Instruction("PH", controls[-1:], (self.phase,), controls[:-1]))
        zeros = [Instruction("X", (control,)) for number, control in enumerate(controls) if not state >> number & 1]
        return _Part([*zeros, *steps, *zeros])


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

    def part(self, item: Any, places: _Places) -> _Part:
        """Return what an instruction becomes, at its place in the circuit."""
        operation = item.operation
        qubits = tuple([places.qubits[bit] for bit in item.qubits])
        clbits = tuple([places.clbits[bit] for bit in item.clbits])
        # A phase needs a qubit, though it does nothing to it.
        anyone = qubits[:1] or tuple(places.qubits.values())[:1]
        if isinstance(operation, ControlFlowOp):
            return self._control_flow(operation, qubits, clbits, places, anyone)
        part = self._converted(operation, qubits, clbits)
        if getattr(operation, "condition", None) is not None:  # before Qiskit 2.0
            return _decided(If(self._condition(operation.condition, places.clbits), _steps(part, anyone)))
        return part

    def _block(self, block: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> _Part:
        inside = _Places(dict(zip(block.qubits, qubits)), dict(zip(block.clbits, clbits)))
        parts = [self.part(item, inside) for item in block.data]
        phase = _angle(block.global_phase)
        for part in parts:
            phase = _sum(phase, part.phase)
        return _Part([step for part in parts for step in part.steps], phase)

    # --- Decisions and loops ---

    def _control_flow(
        self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...], places: _Places, anyone: tuple[int, ...]
    ) -> _Part:
        if isinstance(operation, _BoxOp):
            return self._block(operation.blocks[0], qubits, clbits)

        def body(block: Any) -> tuple[Instruction, ...]:
            return _steps(self._block(block, qubits, clbits), anyone)

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

    def _converted(self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> _Part:
        if isinstance(operation, Measure):
            return _Part([Instruction("measure", qubits, (), (), clbits)])
        if isinstance(operation, Reset):
            return _Part([Instruction("reset", qubits)])
        if isinstance(operation, Barrier):
            return _Part([Instruction("barrier", qubits)])
        if isinstance(operation, Delay):
            return _Part([])
        if isinstance(operation, AnnotatedOperation):
            return self._modified(operation, qubits)
        if isinstance(operation, Gate):
            return self._gate(operation, qubits)
        raise NotConverted(f"{operation.name!r} cannot be converted to an instruction of a circuit")

    def _modified(self, operation: Any, qubits: tuple[int, ...]) -> _Part:
        modifiers = operation.modifiers
        # The modifier that comes last has its controls first.
        ends = [operation.base_op.num_qubits]
        for modifier in modifiers:
            ends.append(ends[-1] + (modifier.num_ctrl_qubits if isinstance(modifier, ControlModifier) else 0))
        part = self._converted(operation.base_op, qubits[len(qubits) - ends[0] :], ())
        for number, modifier in enumerate(modifiers):
            own = qubits[len(qubits) - ends[number] :]
            if isinstance(modifier, InverseModifier):
                part = part.inverse()
            elif isinstance(modifier, ControlModifier):
                controls = qubits[len(qubits) - ends[number + 1] : len(qubits) - ends[number]]
                part = part.controlled(controls, modifier.ctrl_state)
            elif isinstance(modifier, PowerModifier):
                before = AnnotatedOperation(operation.base_op, modifiers[:number]) if number else operation.base_op
                part = _power(part, modifier.power, before, own)
            else:
                raise NotConverted(f"the modifier {modifier} cannot be converted")
        return part

    def _gate(self, operation: Any, qubits: tuple[int, ...]) -> _Part:
        if isinstance(operation, DefinedGate):
            definition = operation.made_of
            params = tuple([_angle(value) for value in operation.params])
            return _Part([Instruction(definition.name, qubits, params, definition=definition)])
        if isinstance(operation, qiskit_library.UnitaryGate):
            entries = np.asarray(operation.to_matrix()).ravel().tolist()
            return _Part([Instruction("matrix", qubits[::-1], tuple(entries))])
        if isinstance(operation, qiskit_library.GlobalPhaseGate):
            return _Part([], _angle(operation.params[0]))
        known = _known(operation)
        if known is not None:
            step, n = known
            if step is None:
                return _Part([])
            params = tuple([_angle(value) for value in operation.params])
            return _Part([Instruction(step, qubits[n:], params, qubits[:n])])
        if isinstance(operation, ControlledGate):
            base, n = operation.base_gate, operation.num_ctrl_qubits
            # cu has a parameter more than the u that it controls, and some gates have qubits to work with.
            is_cu = isinstance(base, qiskit_library.UGate) and len(operation.params) > 3
            if not is_cu and base.num_qubits + n == operation.num_qubits:
                return self._gate(base, qubits[n:]).controlled(qubits[:n], operation.ctrl_state)
        if operation.definition is None:
            raise NotConverted(f"gate {operation.name!r} cannot be converted: it has no definition")
        if not qubits:
            return self._block(operation.definition, (), ())
        definition = self._definition(operation)
        params = tuple([Parameter(name) for name in definition.params])
        return _Part([Instruction(definition.name, qubits, params, definition=definition)])

    def _definition(self, operation: Any) -> GateDefinition:
        # Qiskit's gates hold the body for the parameters of this call; those of the circuit may be among them.
        known = self._definitions.get(id(operation))
        if known is None:
            body = operation.definition
            names = [parameter.name for parameter in body.parameters]
            known = operation, definition_from_qiskit(operation.name, names, body)
            self._definitions[id(operation)] = known
        return known[1]


def _power(part: _Part, exponent: float, operation: Any, qubits: tuple[int, ...]) -> _Part:
    """Return a power of what `part` does to `qubits` and `operation` says in Qiskit's terms."""
    is_whole = float(exponent).is_integer()
    is_open = any([True for step in part.steps for _ in free_names(step.params)]) or isinstance(part.phase, Expression)
    if not is_whole and is_open:
        raise NotConverted(f"pow({exponent:g}) of a gate whose angles are not known yet cannot be converted")
    if len(part.steps) <= 1 and all([step.name in _ROTATIONS for step in part.steps]):
        if not is_whole:
            _require_principal(part, exponent)
        steps = [step._replace(params=(_product(angle, exponent),)) for step in part.steps for angle in _angles(step)]
        return _Part(steps, _product(part.phase, exponent))
    total = sum([size(step) for step in part.steps])
    if is_whole and abs(int(exponent)) * total <= _MOST_REPEATED:
        return part.repeated(int(exponent))
    if not is_open and len(qubits) <= _MOST_QUBITS_OF_A_MATRIX and total <= _MOST_REPEATED:
        entries = _matrix_power(np.asarray(Operator(operation).data), exponent)
        return _Part([Instruction("matrix", qubits[::-1], tuple(entries.ravel().tolist()))])
    raise NotConverted(
        f"pow({exponent:g}) of a gate of {len(qubits)} qubits and {total} steps cannot be converted: at most "
        f"{_MOST_REPEATED} steps in all, or {_MOST_QUBITS_OF_A_MATRIX} qubits"
    )


def _require_principal(part: _Part, exponent: float) -> None:
    """Refuse a rotation so far that its principal root is another than the rotation by a part of the angle."""
    limits = [(str(step), angle, _ROTATIONS[step.name]) for step in part.steps for angle in _angles(step)]
    for shown, angle, most in [*limits, ("a phase", part.phase, math.pi)]:
        # An eigenvalue of -1 has the phase pi. Rotations have two eigenvalues there, one of which would be wrong.
        if not (-most < angle < most or angle == most == math.pi):  # type: ignore[operator]
            raise NotConverted(
                f"pow({exponent:g}) of {shown} cannot be converted: the principal root is not the rotation by a part of "
                f"the angle, and readers differ in which they mean; take an angle within {most / math.pi:g} pi"
            )


def _angles(step: Instruction) -> tuple[Angle, ...]:
    return step.params  # type: ignore[return-value]  # complex ones only in matrices


def _matrix_power(unitary: Any, exponent: float) -> Any:
    """Return the principal power: eigenvalues keep their vectors, and their phases, from -pi to pi, are multiplied."""
    # Of the Hermitian and anti-Hermitian parts, which commute, a mixture that no two eigenvalues have in common.
    for weight in (0.6180339887, 0.2715657904, 1.4142135624):
        _, vectors = np.linalg.eigh((unitary + unitary.conj().T) / 2 + weight * (unitary - unitary.conj().T) / 2j)
        values = np.einsum("ij,ij->j", vectors.conj(), unitary @ vectors)
        if np.abs(vectors * values @ vectors.conj().T - unitary).max() < 1e-11:
            break
    else:
        raise NotConverted(f"pow({exponent:g}) cannot be converted: the eigenvalues are too close")
    # An eigenvalue of -1 that rounding has put below the real axis has the phase pi all the same.
    turn = cmath.rect(1.0, -1e-9)
    phases = np.angle(values * turn) + 1e-9
    return vectors * np.exp(1j * exponent * phases) @ vectors.conj().T


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


# --- Phases and angles ---


def _phase_steps(phase: Angle, n_qubits: int, qubits: tuple[int, ...] | None = None) -> list[Instruction]:
    """Return steps that multiply the whole state by exp(i phase)."""
    if not isinstance(phase, Expression) and phase == 0.0:
        return []
    if n_qubits == 0:
        raise NotConverted("a global phase cannot be converted where there is no qubit")
    qubit = (0,) if qubits is None else qubits
    # exp(i phase) and exp(-i phase), then exp(2 i phase) where the second was.
    return [Instruction("RZ", qubit, (_product(phase, -2),)), Instruction("PH", qubit, (_product(phase, 2),))]


def _sum(first: Angle, second: Angle) -> Angle:
    if not isinstance(first, Expression) and first == 0.0:
        return second
    return first if not isinstance(second, Expression) and second == 0.0 else first + second


def _product(angle: Angle, factor: float) -> Angle:
    return angle if factor == 1 else -angle if factor == -1 else factor * angle


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
    if results == [0.0, 0.0]:  # such as a - a, by which the importer keeps parameters that nobody uses
        return 0.0
    return found.substitute(names) if isinstance(found, Expression) else found


# --- Conditions ---


def _decided(detail: If | While | Switch) -> _Part:
    step = flow_step(detail)
    parts = conditioned(step)
    return _Part([step] if parts is None else parts)


def _steps(part: _Part, anyone: tuple[int, ...]) -> tuple[Instruction, ...]:
    """Return a body, with its phase as steps."""
    return (*part.steps, *_phase_steps(part.phase, len(anyone), anyone))


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
    taken = {register.name for register in [*program.qregs, *program.cregs]}
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
                name = _unused(kind[0] if kind == "classical" else "q", taken)
            registers.append(Register(name, kind, place, n_bits))
            place += n_bits
    return registers


def _unused(name: str, taken: set[str]) -> str:
    number = 0
    while (candidate := f"{name}{number or ''}") in taken:
        number += 1
    taken.add(candidate)
    return candidate
