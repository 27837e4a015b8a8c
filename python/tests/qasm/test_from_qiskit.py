"""Circuits that Qiskit made itself, and not its importer of OpenQASM 3."""

import numpy as np
import numpy_simulator
import pytest

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")
pytest.importorskip("qiskit_qasm3_import", reason="needs its importer: pip install velacamplix[test]")

import qiskit  # noqa: E402
from qiskit import QuantumCircuit  # noqa: E402
from qiskit.circuit import (  # noqa: E402
    AnnotatedOperation,
    ControlModifier,
    InverseModifier,
    Parameter,
    PowerModifier,
    library,  # noqa: E402
)
from qiskit.circuit.classical import expr  # noqa: E402
from qiskit.quantum_info import Operator, random_unitary  # noqa: E402

from velacamplix import Circuit, Condition  # noqa: E402
from velacamplix.qasm.from_qiskit import NotConverted, parts_from_qiskit  # noqa: E402

UNITARY = library.UnitaryGate(random_unitary(4, seed=3))


def circuit_from_qiskit(program):
    return Circuit._assembled(*parts_from_qiskit(program))


def part(n_qubits=2, phase=0.4):
    circuit = QuantumCircuit(n_qubits, name="unitary", global_phase=phase)
    circuit.h(0)
    circuit.rz(0.3, n_qubits - 1)
    return circuit


OPERATIONS = {
    "a controlled cu": library.CUGate(0.1, 0.2, 0.3, 0.4).control(1, annotated=False),
    "cu where the control is 0": library.CUGate(0.1, 0.2, 0.3, 0.4, ctrl_state=0),
    "a unitary": UNITARY,
    "a controlled unitary": UNITARY.control(1, annotated=False),
    "controls of both values": library.XGate().control(3, ctrl_state=2, annotated=False),
    "many controls": library.RYGate(0.3).control(4, annotated=False),
    "a circuit as a gate": part().to_gate(),
    "a circuit as a gate, controlled": part().to_gate().control(2, annotated=False),
    "a circuit as a gate, inverted": part().to_gate().inverse(),
    "a circuit as a gate, its phase alone": QuantumCircuit(1, global_phase=0.7).to_gate(),
    "modifiers": AnnotatedOperation(part().to_gate(), [InverseModifier(), ControlModifier(2, 1), PowerModifier(2)]),
    "a root": AnnotatedOperation(part().to_gate(), [PowerModifier(0.5)]),
    "a controlled root of a controlled gate": AnnotatedOperation(library.CHGate(), [PowerModifier(-1.5), ControlModifier(1, 0)]),
    "a controlled phase": AnnotatedOperation(library.GlobalPhaseGate(0.3), [ControlModifier(2, 2)]),
    "working qubits": library.MCXGate(3).control(1, annotated=False),
    "a gate without a counterpart": library.RZXGate(0.3),
    "iswap": library.iSwapGate(),
    "controlled sx": library.CSXGate(),
    "three controls of sx": library.C3SXGate(),
    "ecr": library.ECRGate(),
    "rcccx": library.RC3XGate(),
}


@pytest.mark.parametrize("name", OPERATIONS)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_an_operation_is_the_same_with_its_phase(name):
    operation = OPERATIONS[name]
    circuit = QuantumCircuit(operation.num_qubits, global_phase=0.25)
    circuit.append(operation, list(range(operation.num_qubits))[::-1])
    mine = numpy_simulator.unitary(circuit_from_qiskit(circuit))
    np.testing.assert_allclose(mine, Operator(circuit).data, rtol=0, atol=1e-12)


def test_a_body_with_parameters():
    a, b = Parameter("a"), Parameter("b")
    inner = QuantumCircuit(2, name="turn", global_phase=a / 2)
    inner.rx(2 * b, 0)
    inner.cp(a - b, 0, 1)
    circuit = QuantumCircuit(3)
    circuit.append(inner.to_gate(), [2, 0])
    circuit.append(inner.to_gate().control(1, annotated=False), [0, 1, 2])
    mine = numpy_simulator.unitary(circuit_from_qiskit(circuit).bind(a=0.7, b=-0.2))
    np.testing.assert_allclose(mine, Operator(circuit.assign_parameters({a: 0.7, b: -0.2})).data, rtol=0, atol=1e-12)


def test_conditions_as_expressions():
    circuit = QuantumCircuit(1, 3)
    for condition in (
        expr.lift(circuit.clbits[1]), expr.logic_not(circuit.clbits[2]), expr.bit_not(circuit.clbits[0]),
        expr.equal(circuit.cregs[0], 5), expr.equal(expr.lift(True), circuit.clbits[1]), expr.not_equal(circuit.clbits[1], True),
        (circuit.cregs[0], 3), (circuit.clbits[2], True),
    ):  # fmt: skip
        with circuit.if_test(condition):
            circuit.x(0)
    found = [step.condition for step in circuit_from_qiskit(circuit)]
    assert found == [
        Condition((1,), 1), Condition((2,), 0), Condition((0,), 0), Condition((0, 1, 2), 5), Condition((1,), 1), Condition((1,), 0),
        Condition((0, 1, 2), 3), Condition((2,), 1),
    ]  # fmt: skip


@pytest.mark.parametrize("has_box", [hasattr(qiskit.circuit, "BoxOp")])
def test_what_is_in_a_box_happens(has_box):
    if not has_box:
        pytest.skip(f"Qiskit {qiskit.__version__} has no boxes")
    circuit = QuantumCircuit(2)
    with circuit.box():
        circuit.h(1)
        circuit.delay(5, 0)
        circuit.global_phase = 0.5
    mine = numpy_simulator.unitary(circuit_from_qiskit(circuit))
    inside = QuantumCircuit(2, global_phase=0.5)
    inside.h(1)
    np.testing.assert_allclose(mine, Operator(inside).data, rtol=0, atol=1e-12)


def test_what_is_refused_is_named_with_its_position():
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.initialize([0, 1], 1)
    with pytest.raises(NotConverted, match="'initialize' cannot be converted to an instruction of a circuit") as caught:
        circuit_from_qiskit(circuit)
    assert caught.value.position == 1
    circuit = QuantumCircuit(1, 2)
    with circuit.if_test(expr.less(circuit.cregs[0], 2)):
        circuit.x(0)
    with pytest.raises(NotConverted, match="this condition cannot be converted"):
        circuit_from_qiskit(circuit)


def test_registers_have_their_names():
    circuit = QuantumCircuit(qiskit.QuantumRegister(2, "left"), [qiskit.circuit.Qubit()], qiskit.ClassicalRegister(1, "q"))
    assert [(r.name, r.size) for r in circuit_from_qiskit(circuit).registers] == [("left", 2), ("q1", 1), ("q", 1)]
