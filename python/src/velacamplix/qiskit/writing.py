"""Circuits to Qiskit's."""

from __future__ import annotations

import math
from collections.abc import Mapping, Sequence
from typing import Any

from qiskit.circuit import (
    CASE_DEFAULT,
    BreakLoopOp,
    ClassicalRegister,
    ContinueLoopOp,
    Gate,
    IfElseOp,
    QuantumCircuit,
    QuantumRegister,
    SwitchCaseOp,
    WhileLoopOp,
)
from qiskit.exceptions import QiskitError

from ..basics import checks
from ..circuit.circuit import Circuit
from ..instructions.definition import GateDefinition
from ..instructions.flow import If, Store, Switch, While, read_bits
from ..instructions.gates import with_controls
from ..instructions.instruction import BY_ENTRIES, LEAVING, Instruction
from .angles import qiskit_angle, qiskit_parameters
from .conditions import expression, qiskit_condition
from .errors import NotConverted
from .gates import qiskit_gate, under_controls


def from_velacamplix(circuit: Circuit) -> QuantumCircuit:
    """Return the same circuit as one of Qiskit's, global phase and parameters included.

    Parameters
    ----------
    circuit : Circuit
        Its qubit i is qubit i there, its classical bit i bit i; registers keep their names. Parameters keep theirs, and
        ``v[0]``, ``v[1]`` and so on are those of a vector.

    Returns
    -------
    qiskit.QuantumCircuit
        Gates that Qiskit has become its own, those with further controls an ``AnnotatedOperation``, definitions gates with
        a definition, "if", "while" and "switch" its own. Measurements of several qubits become one for each. Qiskit's loops
        have no limit: what `While.max_iterations` says is left out.

    Raises
    ------
    TypeError
        If `circuit` is no `Circuit`.
    NotConverted
        If there is something that Qiskit's circuits lack: noise, instructions that save, a matrix that is not unitary. It
        has the instruction, its position and the reason. A ``ValueError``.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> theirs = from_velacamplix(Circuit(2, 1).h(0).cx(0, 1).measure(1, 0))
    >>> [item.operation.name for item in theirs.data]
    ['h', 'cx', 'measure']
    """
    if not isinstance(circuit, Circuit):
        raise TypeError(f"circuit must be a velacamplix.Circuit, got {checks.show(circuit)}")
    made = QuantumCircuit()
    try:
        for register in circuit.registers:
            kind = QuantumRegister if register.kind == "quantum" else ClassicalRegister
            made.add_register(kind(register.size, register.name))
    except QiskitError as error:
        raise NotConverted(f"the registers cannot be converted: {error.message}") from None
    values = qiskit_parameters(circuit.parameters)
    writing = _Writing(made.qubits, made.clbits, {})
    for position, step in enumerate(circuit):
        try:
            if position == 0 and step.name == "gphase" and not step.controls and step.condition is None:
                phase = qiskit_angle(step.params[0], values)
                # Qiskit takes numbers modulo 2 pi, which rounds.
                if not isinstance(phase, float) or 0 <= phase < 2 * math.pi:
                    made.global_phase = phase
                    continue
            writing.put(made, step, values)
        except NotConverted as error:
            raise NotConverted(error.reason, step.title, position) from None
        except (QiskitError, ValueError) as error:
            raise NotConverted(getattr(error, "message", str(error)), step.title, position) from None
        except RecursionError:
            reason = "instructions hold each other too deeply for Python's stack"
            raise NotConverted(reason, repr(step.name), position) from None
    return made


class _Writing:
    """Adds instructions whose qubits and bits are given by their numbers in these lists."""

    def __init__(self, qubits: Sequence[Any], clbits: Sequence[Any], definitions: dict[Any, Any]) -> None:
        self._qubits, self._clbits = qubits, clbits
        # Gates of one definition and the same numbers share what they are made of.
        self._definitions = definitions

    def put(self, target: Any, step: Instruction, values: Mapping[str, Any]) -> None:
        """Add an instruction to one of Qiskit's circuits; `values` stand for the parameters."""
        detail = step.detail
        if step.condition is not None:
            body = [step._replace(condition=None)]
            self._decide(target, step, If(step.condition, tuple(body)), values)
        elif isinstance(detail, (If, While, Switch)):
            self._decide(target, step, detail, values)
        elif isinstance(detail, Store):
            self._store(target, step, detail)
        elif step.name in LEAVING:
            kind = BreakLoopOp if step.name == "break" else ContinueLoopOp
            target.append(kind(target.num_qubits, target.num_clbits), target.qubits, target.clbits)
        elif step.is_noise:
            raise NotConverted("Qiskit's circuits have no noise; convert the circuit without it")
        elif step.name == "measure":
            for qubit, clbit in zip(step.qubits, step.clbits):
                target.measure(self._qubits[qubit], self._clbits[clbit])
        elif step.name == "reset":
            for qubit in step.qubits:
                target.reset(self._qubits[qubit])
        elif step.name == "barrier":
            if step.qubits:
                target.barrier(*[self._qubits[qubit] for qubit in step.qubits])
        elif step.name == "save":
            raise NotConverted("Qiskit's circuits have no instruction that keeps what a simulator has")
        else:
            self._gate(target, step, values)

    def _gate(self, target: Any, step: Instruction, values: Mapping[str, Any]) -> None:
        if step.name == "gphase":
            step = with_controls(step.name, (), step.controls, step.params, step.control_values)
        qubits = step.qubits
        if step.definition is not None:
            params = tuple([qiskit_angle(value, values) for value in step.params])
            gate = self._defined(step.definition, params)
            state = int(step.control_values[::-1], 2) if step.control_values else None
            operation = under_controls(gate, len(step.controls), state)
        elif step.name in BY_ENTRIES:
            operation, qubits = qiskit_gate(step, []), qubits[::-1]  # the last is the lowest bit of a row's number
        else:
            operation = qiskit_gate(step, [qiskit_angle(value, values) for value in step.params])
        target.append(operation, [self._qubits[qubit] for qubit in step.controls + qubits])

    def _defined(self, definition: GateDefinition, params: tuple[Any, ...]) -> Any:
        key = id(definition), params
        known = self._definitions.get(key)
        if known is None:
            inside = QuantumCircuit(definition.n_qubits, name=definition.name)
            own = dict(zip(definition.params, params))
            writing = _Writing(inside.qubits, [], self._definitions)
            for step in definition.body:
                writing.put(inside, step, own)
            gate = Gate(definition.name, definition.n_qubits, list(params))
            gate.definition = inside
            known = self._definitions[key] = definition, gate
        return known[1]

    def _store(self, target: Any, step: Instruction, detail: Store) -> None:
        waiting = dict(zip(step.clbits, detail.values))
        while waiting:
            # Qiskit writes one after the other: first what no other still reads.
            read = {bit: set() if isinstance(value, bool) else set(value.clbits) for bit, value in waiting.items()}
            free = [bit for bit in waiting if not any([bit in read[other] for other in waiting if other != bit])]
            if not free:
                raise NotConverted("Qiskit writes one bit after the other, so bits cannot change places")
            for bit in free:
                target.store(self._clbits[bit], expression(waiting.pop(bit), self._clbits, target.cregs))

    # --- Decisions and loops ---

    def _decide(self, target: Any, step: Instruction, detail: If | While | Switch, values: Mapping[str, Any]) -> None:
        read = detail.clbits if isinstance(detail, Switch) else detail.condition.clbits
        inside_of = [part for body in detail.bodies for part in body]
        qubits = [self._qubits[q] for q in (*step.qubits, *step.controls)]
        clbits = [self._clbits[c] for c in sorted({*step.clbits, *read, *[bit for part in inside_of for bit in read_bits(part)]})]

        def inside(steps: Sequence[Instruction]) -> Any:
            body = QuantumCircuit(qubits, clbits)
            for register in target.cregs:
                if set(register) <= set(clbits):
                    body.add_register(register)
            for inner in steps:
                self.put(body, inner, values)
            return body

        bodies = [inside(steps) for steps in detail.bodies]
        operation: Any
        if isinstance(detail, Switch):
            bits = [self._clbits[bit] for bit in detail.clbits]
            asked: Any = bits[0] if len(bits) == 1 else next((r for r in target.cregs if list(r) == bits), None)
            if asked is None:
                raise NotConverted("a switch of Qiskit's must be on one bit or a whole register")
            cases: list[Any] = [(values, body) for (values, _), body in zip(detail.cases, bodies)]
            operation = SwitchCaseOp(asked, [*cases, (CASE_DEFAULT, bodies[-1])])
        else:
            condition = qiskit_condition(detail.condition, self._clbits, target.cregs)
            if isinstance(detail, While):
                operation = WhileLoopOp(condition, bodies[0])
            else:
                operation = IfElseOp(condition, bodies[0], bodies[1] if detail.otherwise else None)
        target.append(operation, qubits, clbits)
