"""Circuits to PennyLane's tapes."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.ops.op_math import Conditional
from pennylane.tape import QuantumScript

from ..basics import checks
from ..circuit.circuit import Circuit
from ..instructions.condition import AnyCondition
from ..instructions.expand import basic, body_of
from ..instructions.expression import Expression
from ..instructions.flow import If
from ..instructions.gates import GATES
from ..instructions.instruction import BY_ENTRIES, Instruction
from .channels import pennylane_channel
from .errors import NotConverted
from .reading import MeasurementValue

# Without controls; what is missing becomes smaller gates or a matrix.
_GATES: dict[str, Callable[..., Any]] = {
    "X": qml.PauliX, "Y": qml.PauliY, "Z": qml.PauliZ, "H": qml.Hadamard, "S": qml.S, "T": qml.T, "RX": qml.RX,
    "RY": qml.RY, "RZ": qml.RZ, "PH": qml.PhaseShift, "CNOT": qml.CNOT, "CCNOT": qml.Toffoli, "CSIGN": qml.CZ,
    "SWAP": qml.SWAP, "ISWAP": qml.ISWAP, "id": qml.Identity, "sx": qml.SX, "u2": qml.U2, "u3": qml.U3, "u": qml.U3,
    "rxx": qml.IsingXX, "ryy": qml.IsingYY, "rzz": qml.IsingZZ, "ecr": qml.ECR,
    "sdg": lambda wires: qml.adjoint(qml.S(wires)), "tdg": lambda wires: qml.adjoint(qml.T(wires)),
    "sxdg": lambda wires: qml.adjoint(qml.SX(wires)), "iswapdg": lambda wires: qml.adjoint(qml.ISWAP(wires)),
}  # fmt: skip


def from_velacamplix(circuit: Circuit) -> QuantumScript:
    """Return a tape with the same circuit, global phase included.

    Parameters
    ----------
    circuit : Circuit
        Its qubit i is wire i. Parameters must have numbers, which `Circuit.bind` gives them: PennyLane has no symbols.

    Returns
    -------
    pennylane.tape.QuantumScript
        Without measurements at its end; ``script.operations`` are what a quantum function applies, by
        ``for op in script.operations: qml.apply(op)``. Gates that PennyLane has become its own, others a few of these or a
        ``QubitUnitary``. Measurements and resets become mid-circuit measurements, conditions ``cond``.

    Raises
    ------
    TypeError
        If `circuit` is no `Circuit`.
    NotConverted
        If there is something that PennyLane's tapes lack: open parameters, loops, ``switch``, instructions that save, readout
        errors, a measurement under a condition, a matrix that is not unitary. It has the instruction, its position and the
        reason. A ``ValueError``.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> from_velacamplix(Circuit(2).h(0).cx(0, 1).rxx(0.5, 0, 1)).operations
    [H(0), CNOT(wires=[0, 1]), IsingXX(0.5, wires=[0, 1])]
    """
    if not isinstance(circuit, Circuit):
        raise TypeError(f"circuit must be a velacamplix.Circuit, got {checks.show(circuit)}")
    writing = _Writing()
    made: list[Any] = []
    with qml.queuing.QueuingManager.stop_recording():
        for position, step in enumerate(circuit):
            try:
                made += writing.operations(step, position + 1 < len(circuit) and is_reset_of(circuit[position + 1], step))
            except (ValueError, TypeError) as error:
                raise NotConverted.at(error, step.title, position) from None
    return QuantumScript(made, [])


class _Writing:
    """Converts instructions one after another, and knows the last measurement into each bit."""

    def __init__(self) -> None:
        self._last: dict[int, Any] = {}
        self._is_done = False  # whether the next instruction has been taken with the one before

    def operations(self, step: Instruction, is_reset: bool = False) -> list[Any]:
        """Return what an instruction becomes; of a measurement with the reset behind it, if there is one."""
        if self._is_done:
            self._is_done = False
            return []
        if any(isinstance(value, Expression) for value in step.params):
            raise NotConverted("PennyLane's tapes have no open parameters; bind them to numbers first")
        if step.condition is not None:
            return self._under(step.condition, (step._replace(condition=None),))
        if isinstance(step.detail, If):
            asked, otherwise = step.detail.condition, step.detail.otherwise
            return self._under(asked, step.detail.bodies[0]) + (self._under(~asked, otherwise) if otherwise else [])
        if step.name == "channel":
            return [pennylane_channel(step.detail, step.qubits)]  # type: ignore[arg-type]
        if step.name == "measure":
            if step.detail is not None:
                raise NotConverted("PennyLane's measurements have no readout errors")
            self._is_done = is_reset
            return [self._measured(qubit, clbit, is_reset) for qubit, clbit in zip(step.qubits, step.clbits)]
        if step.name == "reset":
            return [_measurement(qubit, reset=True) for qubit in step.qubits]
        if step.name == "barrier":
            return [qml.Barrier(wires=step.qubits)] if step.qubits else []
        if not step.is_gate:
            raise NotConverted(f"PennyLane's tapes have no {step.name!r}")
        return gate_operations(step)

    def _measured(self, qubit: int, clbit: int, is_reset: bool) -> Any:
        op = _measurement(qubit, is_reset)
        self._last[clbit] = op
        return op

    def _under(self, asked: AnyCondition, body: tuple[Instruction, ...]) -> list[Any]:
        bits = [bit for bit in dict.fromkeys(asked.clbits) if bit in self._last]

        # Bits that nothing has been measured into are 0.
        def holds(*values: Any) -> Any:
            return asked.holds(sum([int(value) << bit for bit, value in zip(bits, values)]))

        if not bits:
            return [op for step in body for op in self.operations(step)] if holds() else []
        for step in body:
            if not step.is_gate or step.condition is not None:
                raise NotConverted(f"PennyLane's conditions stand at gates alone, not at {step.title!r}")
        value = MeasurementValue([self._last[bit] for bit in bits], holds)
        return [Conditional(value, op) for step in body for op in self.operations(step)]


def is_reset_of(step: Instruction, measurement: Instruction) -> bool:
    """Whether an instruction resets just what the one before has measured, in any case."""
    is_plain = measurement.name == "measure" and measurement.condition is None and measurement.detail is None
    return is_plain and step.name == "reset" and step.condition is None and step.qubits == measurement.qubits


def _measurement(qubit: int, reset: bool = False) -> Any:
    return qml.measure(qubit, reset=reset).measurements[0]


def gate_operations(step: Instruction) -> list[Any]:
    """Return what a gate with numbers becomes, in PennyLane's gates."""
    if step.definition is not None:
        return [op for part in body_of(step) for op in gate_operations(part)]
    if step.name == "gphase":
        return _controlled(qml.GlobalPhase(-step.params[0], wires=()), step)  # type: ignore[operator]
    if step.name in BY_ENTRIES:
        return _controlled(_by_entries(step), step)
    kind = _GATES.get(step.name)
    if kind is not None:
        return _controlled(kind(*step.params, wires=step.qubits), step)
    if not GATES[step.name].is_native:
        return [op for part in basic(step) for op in gate_operations(part)]
    matrix = GATES[step.name].matrix
    assert matrix is not None
    return gate_operations(step._replace(name="matrix", params=matrix(*step.params)))


def _by_entries(step: Instruction) -> Any:
    entries = np.array(step.params, dtype=np.complex128)
    if step.name == "diagonal":
        if not np.allclose(np.abs(entries), 1, rtol=0, atol=checks.UNITARY_TOLERANCE):
            raise NotConverted("PennyLane's diagonals are unitary")
        return qml.DiagonalQubitUnitary(entries, wires=step.qubits)
    matrix = checks.matrix(entries.reshape(2 ** len(step.qubits), -1), len(step.qubits))
    return qml.QubitUnitary(matrix, wires=step.qubits)


def _controlled(op: Any, step: Instruction) -> list[Any]:
    if not step.controls:
        return [op]
    values = [value == "1" for value in step.control_values or "1" * len(step.controls)]
    return [qml.ctrl(op, control=step.controls, control_values=values)]
