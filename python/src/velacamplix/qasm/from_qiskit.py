"""Circuits from Qiskit's, as its OpenQASM 3 importer makes them."""

from __future__ import annotations

from dataclasses import replace
from typing import Any, Dict, List, Optional, Sequence, Set, Tuple

import numpy as np

from .. import _check
from .._circuit_definition import GateDefinition, renamed
from ..circuit import Circuit
from ..instruction import Condition, Instruction, Register
from ..parameter import Expression, Parameter, free_names
from .errors import QasmError
from .expressions import ParameterLists
from .qelib1 import GATES as CALLS
from .source import Source

# Gates of Qiskit that qelib1.inc does not have under their name: instruction and number of controls.
_MORE = {
    "iswap": ("ISWAP", 0), "ryy": ("ryy", 0), "ccz": ("Z", 2), "cphase": ("PH", 1), "phase": ("PH", 0),
    "csdg": ("sdg", 1), "cs": ("S", 1), "mcx": ("X", None), "mcphase": ("PH", None),
}  # fmt: skip


def circuit_from_qiskit(program: Any) -> Circuit:
    """Return the same circuit as a `Circuit`.

    The global phase, which no measurement can see, becomes nothing.

    Raises
    ------
    ValueError
        If there is something a `Circuit` cannot say; the message names it.
    """
    return _Conversion(program).circuit()


class _Conversion:
    def __init__(self, program: Any) -> None:
        self._program = program
        self._qubits: Dict[Any, int] = {bit: number for number, bit in enumerate(program.qubits)}
        self._clbits: Dict[Any, int] = {bit: number for number, bit in enumerate(program.clbits)}
        self._steps: List[Instruction] = []

    def circuit(self) -> Circuit:
        self._add_all(self._program.data, self._qubits, self._clbits, None)
        circuit = Circuit(len(self._qubits), len(self._clbits), registers=_registers(self._program))
        for step in self._steps:
            circuit.append(step)
        return circuit

    def _add_all(
        self, data: Any, qubits: Dict[Any, int], clbits: Dict[Any, int], condition: Optional[Condition]
    ) -> None:
        for item in data:
            operation = item.operation
            places = tuple(qubits[bit] for bit in item.qubits)
            bits = tuple(clbits[bit] for bit in item.clbits)
            if operation.name == "if_else":
                self._if(operation, places, bits, clbits, condition)
                continue
            for step in self._converted(operation, places, bits):
                if condition is not None and step.can_be_conditioned:
                    step = replace(step, condition=condition)
                self._steps.append(step)

    def _if(
        self, operation: Any, places: Tuple[int, ...], bits: Tuple[int, ...], clbits: Dict[Any, int], outer: Any
    ) -> None:
        if outer is not None:
            raise ValueError("an if inside an if cannot be converted: join the bits in one condition")
        yes, no = operation.blocks[0], operation.blocks[1] if len(operation.blocks) > 1 else None
        condition = self._condition(operation.condition, clbits)
        for block, value in ((yes, condition), (no, _opposite(condition) if no is not None else None)):
            if block is None:
                continue
            if value is None:
                raise ValueError("else after a condition on several bits cannot be converted: write it as its own if")
            inner_bits = {bit: bits[number] for number, bit in enumerate(block.clbits)}
            inner_qubits = {bit: places[number] for number, bit in enumerate(block.qubits)}
            before = len(self._steps)
            self._add_all(block.data, inner_qubits, inner_bits, value)
            self._require_lasting(self._steps[before:], value, has_more=no is not None)

    def _require_lasting(self, steps: Sequence[Instruction], condition: Condition, has_more: bool) -> None:
        # Each step asks for the condition again, so none but the last may change what it reads.
        for step in steps if has_more else steps[:-1]:
            if set(step.clbits).intersection(condition.clbits):
                raise ValueError(f"inside an if, a measurement into a bit of its condition cannot be converted: {step}")

    def _condition(self, condition: Any, clbits: Dict[Any, int]) -> Condition:
        if isinstance(condition, tuple):
            target, value = condition
            bits = (target,) if target in clbits else tuple(target)
            return Condition(tuple(clbits[bit] for bit in bits), int(value))
        return self._condition_of_expression(condition, clbits)

    def _condition_of_expression(self, node: Any, clbits: Dict[Any, int]) -> Condition:
        kind = type(node).__name__
        if kind == "Var":
            bits = (node.var,) if node.var in clbits else None
            if bits is not None:
                return Condition((clbits[bits[0]],), 1)
        elif kind == "Unary" and node.op.name in ("LOGIC_NOT", "BIT_NOT"):
            inner = _opposite(self._condition_of_expression(node.operand, clbits))
            if inner is not None:
                return inner
        elif kind == "Cast":
            return self._condition_of_expression(node.operand, clbits)
        elif kind == "Binary" and node.op.name in ("EQUAL", "NOT_EQUAL"):
            found = self._comparison(node, clbits)
            if found is not None:
                return found
        raise ValueError(f"this condition cannot be converted: {node}")

    def _comparison(self, node: Any, clbits: Dict[Any, int]) -> Optional[Condition]:
        left, right = _without_casts(node.left), _without_casts(node.right)
        if type(left).__name__ == "Value":
            left, right = right, left
        if type(left).__name__ != "Var" or type(right).__name__ != "Value":
            return None
        bits = (left.var,) if left.var in clbits else tuple(left.var)
        condition = Condition(tuple(clbits[bit] for bit in bits), int(right.value))
        return condition if node.op.name == "EQUAL" else _opposite(condition)

    def _converted(self, operation: Any, places: Tuple[int, ...], bits: Tuple[int, ...]) -> List[Instruction]:
        name = operation.name
        if name == "measure":
            return [Instruction("measure", places, (), (), bits)]
        if name == "reset":
            return [Instruction("reset", places)]
        if name == "barrier":
            return [Instruction("barrier", places)]
        if name == "unitary":
            return [Instruction("matrix", places[::-1], tuple(np.asarray(operation.to_matrix()).ravel().tolist()))]
        if bits or not hasattr(operation, "control"):
            raise ValueError(f"{name!r} cannot be converted to an instruction of a circuit")
        return self._gate(operation, places)

    def _gate(self, operation: Any, places: Tuple[int, ...]) -> List[Instruction]:
        if not places:
            return []  # a phase of the whole state
        known = _known(operation)
        if known is not None:
            step, n = known
            if step is None:
                return []
            params = tuple(_angle(value) for value in operation.params)
            return [Instruction(step, places[n:], params, places[:n])]
        if hasattr(operation, "base_gate"):
            return self._controlled(operation, places)
        if operation.definition is None:
            raise ValueError(f"gate {operation.name!r} cannot be converted: it has no definition")
        definition = self._definition(operation)
        params = tuple(Parameter(name) for name in definition.params)
        return [Instruction(definition.name, places, params, definition=definition)]

    def _controlled(self, operation: Any, places: Tuple[int, ...]) -> List[Instruction]:
        n = operation.num_ctrl_qubits
        controls, targets = places[:n], places[n:]
        zeros = [control for number, control in enumerate(controls) if not operation.ctrl_state >> number & 1]
        around = [Instruction("X", (control,)) for control in zeros]
        base = operation.base_gate
        inner = [replace(step, controls=controls + step.controls) for step in self._gate(base, targets)]
        return [*around, *inner, *around]

    def _definition(self, operation: Any) -> GateDefinition:
        # Qiskit's gates hold the body for the parameters of this call; those of the circuit may be among them.
        body = operation.definition
        numbers = {bit: number for number, bit in enumerate(body.qubits)}
        steps: List[Instruction] = []
        for item in body.data:
            steps.extend(self._converted(item.operation, tuple(numbers[bit] for bit in item.qubits), ()))
        phase = _angle(body.global_phase)
        if isinstance(phase, Expression) or phase:
            # exp(i phase) on both values of one qubit.
            half = [Instruction("PH", (0,), (phase,)), Instruction("X", (0,))]
            steps += half * 2
        open_names = tuple(dict.fromkeys(name for step in steps for name in free_names(step.params)))
        made = GateDefinition.checked(operation.name, open_names, operation.num_qubits, tuple(steps))
        return renamed(made, ())


def _known(operation: Any) -> Optional[Tuple[Optional[str], int]]:
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


def _opposite(condition: Condition) -> Optional[Condition]:
    """Return the condition that holds where the given one does not, if one value says it."""
    return Condition(condition.clbits, 1 - condition.value) if len(condition.clbits) == 1 else None


def _without_casts(node: Any) -> Any:
    while type(node).__name__ == "Cast":
        node = node.operand
    return node


def _angle(value: Any) -> Any:
    """Return a number or expression of this package for one of Qiskit's."""
    if not hasattr(value, "parameters"):
        return _check.angle(value)
    if not value.parameters:
        return float(value)
    if hasattr(value, "name"):
        return Parameter(value.name)
    text = str(value).replace("**", "^").replace("log(", "ln(")
    try:
        (found,), _ = ParameterLists(Source(text + ")")).read(0)
    except (QasmError, ValueError):
        raise ValueError(f"angle cannot be converted: {value}") from None
    # Qiskit's text might round numbers: try whether it says what the angle is.
    for start in (0.3, -1.7):
        numbers = {parameter: start + 0.1 * i for i, parameter in enumerate(value.parameters)}
        wanted = float(value.bind(numbers))
        named = {parameter.name: number for parameter, number in numbers.items()}
        got = found.evaluate(named) if isinstance(found, Expression) else found
        if not abs(got - wanted) <= 1e-12 * max(1.0, abs(wanted)):
            raise ValueError(f"angle cannot be converted: {value}")
    return found


def _registers(program: Any) -> List[Register]:
    """Return registers that cover all bits in order; loose bits between them get one too."""
    registers: List[Register] = []
    taken = {register.name for register in [*program.qregs, *program.cregs]}
    kinds = (("quantum", program.qregs, program.qubits), ("classical", program.cregs, program.clbits))
    for kind, listed, bits in kinds:
        place = 0
        while place < len(bits):
            fitting = [r for r in listed if len(r) and list(r) == list(bits[place : place + len(r)])]
            known = {register.name for register in registers}
            found = next((r for r in fitting if r.name not in known), None)
            if found is not None:
                name, size = found.name, len(found)
            else:
                size = 1
                name = _unused(kind[0] if kind == "classical" else "q", taken)
            registers.append(Register(name, kind, place, size))
            place += size
    return registers


def _unused(name: str, taken: Set[str]) -> str:
    number = 0
    while (candidate := f"{name}{number or ''}") in taken:
        number += 1
    taken.add(candidate)
    return candidate
