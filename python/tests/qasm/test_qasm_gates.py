"""What each gate of qelib1.inc does, judged by Qiskit, phases included."""

import random
from pathlib import Path

import numpy as np
import numpy_simulator
import pytest
from qasm_texts import HEADER, QELIB1, call, random_program

from velacamplix import Circuit
from velacamplix.instructions.gates import NATIVE
from velacamplix.instructions.instruction import Instruction

pytest.importorskip("qiskit", reason="these tests compare with Qiskit: pip install velacamplix[test]")
from qiskit import qasm2  # noqa: E402
from qiskit.quantum_info import Operator, Statevector  # noqa: E402

TOLERANCE = 1e-12  # a few rounding errors of some hundred gates


def qiskit_circuit(text):
    return qasm2.loads(text, custom_instructions=qasm2.LEGACY_CUSTOM_INSTRUCTIONS)


def assert_same_unitary(text):
    mine = numpy_simulator.unitary(Circuit.from_qasm(text))
    np.testing.assert_allclose(mine, Operator(qiskit_circuit(text)).data, rtol=0, atol=TOLERANCE)


@pytest.mark.parametrize("reverse", [False, True], ids=["in order", "in reverse"])
@pytest.mark.parametrize("name", QELIB1)
def test_gate_of_qelib1_is_the_one_of_qiskit(name, reverse):
    n_qubits = QELIB1[name][1]
    places = [f"q[{i}]" for i in range(n_qubits)]
    rng = random.Random(name)
    for _ in range(3):
        assert_same_unitary(HEADER + f"qreg q[{n_qubits}];\n" + call(name, places[::-1] if reverse else places, rng))


@pytest.mark.parametrize("name", QELIB1)
def test_gate_of_qelib1_keeps_its_phase_under_a_control(name):
    # A global phase that is wrong shows as soon as the gate is controlled.
    n_qubits = QELIB1[name][1]
    rng = random.Random(name)
    text = HEADER + f"qreg q[{n_qubits}];\n" + call(name, [f"q[{i}]" for i in range(n_qubits)], rng)
    mine = Circuit(n_qubits + 1)
    for step in Circuit.from_qasm(text).basic_instructions():
        gate = numpy_simulator.gate_matrix(step)
        mine.matrix(gate, step.qubits, [*step.controls, n_qubits])
    controlled = np.eye(2 ** (n_qubits + 1), dtype=complex)
    controlled[2**n_qubits :, 2**n_qubits :] = Operator(qiskit_circuit(text)).data
    np.testing.assert_allclose(numpy_simulator.unitary(mine), controlled, rtol=0, atol=TOLERANCE)


def test_builtin_gates_need_no_include():
    assert_same_unitary("OPENQASM 2.0;\nqreg q[2];\nU(0.3, -1.2, 2.5) q[0];\nCX q[0], q[1];\nU(4, 0, 0) q[1];\n")


@pytest.mark.parametrize("theta", [0, "pi", "2*pi", "-pi/2", 3.5, 7])
def test_u_for_all_quadrants(theta):
    assert_same_unitary(HEADER + f"qreg q[1];\nu3({theta}, 5.1, -2.2) q[0];\nu({theta}, pi, 2*pi) q[0];\n")


@pytest.mark.parametrize("seed", range(40))
def test_random_program_agrees_with_qiskit(seed):
    assert_same_unitary(random_program(seed))


DIRECT = {
    "x": "X", "y": "Y", "z": "Z", "h": "H", "s": "S", "t": "T", "rx": "RX", "ry": "RY", "rz": "RZ", "u1": "PH", "p": "PH",
    "cx": "CNOT", "ccx": "CCNOT", "cz": "CSIGN", "swap": "SWAP", "sdg": "sdg", "tdg": "tdg", "sx": "sx", "sxdg": "sxdg",
    "u": "u", "u2": "u2", "u3": "u3", "cu": "cu", "rxx": "rxx", "rzz": "rzz", "rccx": "rccx", "rc3x": "rc3x",
    "id": "id",
}  # fmt: skip
CONTROLLED = {
    "cy": "Y", "ch": "H", "crx": "RX", "cry": "RY", "crz": "RZ", "cu1": "PH", "cp": "PH", "c3x": "X", "c4x": "X",
    "cu3": "u3", "csx": "sx", "c3sqrtx": "sx", "cswap": "SWAP",
}  # fmt: skip


def one_call(name):
    n_params, n_qubits = QELIB1[name]
    params = f"({', '.join(['0.5'] * n_params)})" * bool(n_params)
    places = ", ".join(f"q[{i}]" for i in range(n_qubits))
    return list(Circuit.from_qasm(HEADER + f"qreg q[{n_qubits}]; {name}{params} {places};"))


def test_the_tables_above_are_complete():
    assert {*DIRECT, *CONTROLLED} == set(QELIB1)


@pytest.mark.parametrize("name", DIRECT)
def test_gate_of_its_own(name):
    n_params, n_qubits = QELIB1[name]
    assert one_call(name) == [Instruction(DIRECT[name], tuple(range(n_qubits)), (0.5,) * n_params)]


@pytest.mark.parametrize("name", CONTROLLED)
def test_controlled_gate_is_the_gate_with_controls(name):
    n_params, n_qubits = QELIB1[name]
    n_controls = n_qubits - (2 if name == "cswap" else 1)
    targets = tuple(range(n_controls, n_qubits))
    assert one_call(name) == [Instruction(CONTROLLED[name], targets, (0.5,) * n_params, tuple(range(n_controls)))]


@pytest.mark.parametrize("name", ["u2", "u3", "u", "sx", "sxdg", "cu3", "cu", "csx", "c3sqrtx", "rxx"])
def test_gate_that_becomes_one_matrix(name):
    (step,) = one_call(name)
    (basic,) = Circuit(4).append(step).basic_instructions()
    assert basic.name == "matrix"


@pytest.mark.parametrize("call", ["u0(1) q[0]", "u0(1) q"])
def test_idle_gate_leaves_no_instruction(call):
    assert list(Circuit.from_qasm(HEADER + f"qreg q[2]; {call};")) == []


def test_inverses_of_s_and_t_are_phases():
    circuit = Circuit(1).sdg(0).tdg(0)
    assert list(circuit.basic_instructions()) == [Instruction("PH", (0,), (-np.pi / 2,)), Instruction("PH", (0,), (-np.pi / 4,))]


def test_every_instruction_passes_the_circuits_own_checks():
    # The reader builds instructions without checks; append checks all.
    for seed in range(10):
        circuit = Circuit.from_qasm(random_program(seed))
        again = Circuit(circuit.n_qubits, registers=circuit.registers)
        for step in circuit:
            again.append(step)
        assert again == circuit
        basic = list(circuit.basic_instructions())
        assert {step.name for step in basic} <= {*NATIVE, "matrix", "diagonal"}
        for step in basic:
            again.append(step)


EXAMPLES = sorted((Path(__file__).parents[3] / "examples" / "circuits").glob("*.qasm"))


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_example_circuit_agrees_with_qiskit(path):
    circuit = Circuit.from_qasm(path)
    theirs = qasm2.load(path, custom_instructions=qasm2.LEGACY_CUSTOM_INSTRUCTIONS)
    assert circuit.n_qubits == theirs.num_qubits and circuit.n_clbits == theirs.num_clbits
    if circuit.n_qubits > 12:
        # Qiskit's own simulation would take minutes. The gates at least are as many.
        pairs = [theirs.find_bit(bit).index for step in theirs.data if step.operation.name == "measure" for bit in step.qubits]
        assert pairs == [qubit for step in circuit if step.name == "measure" for qubit in step.qubits]
        return
    theirs.remove_final_measurements()
    state = Statevector(theirs).data
    np.testing.assert_allclose(numpy_simulator.statevector(circuit), state, rtol=0, atol=TOLERANCE)
