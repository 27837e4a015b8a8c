"""What the backend saves, by the names of Aer's instructions and beside Aer."""

import subprocess
import sys

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")

from qiskit import QuantumCircuit, transpile  # noqa: E402
from qiskit.circuit import Instruction, Parameter  # noqa: E402
from qiskit.circuit.random import random_circuit  # noqa: E402
from qiskit.exceptions import QiskitError  # noqa: E402
from qiskit.quantum_info import DensityMatrix, Pauli, SparsePauliOp, Statevector, random_hermitian, random_statevector  # noqa: E402

from velacamplix import Channel, NoiseModel  # noqa: E402
from velacamplix.qiskit import NotConverted, VelacamplixBackend, to_velacamplix  # noqa: E402

CLOSE = {"rtol": 0, "atol": 1e-12}


@pytest.fixture
def aer():
    return pytest.importorskip("qiskit_aer", reason="needs Aer: pip install velacamplix[test]")


OPERATOR = SparsePauliOp(["XZ", "YY", "II"], [0.5, -1.0, 0.25])


def save_all(circuit, but=()):
    """All kinds, on some of three qubits, in no order."""
    kinds = {
        "statevector": lambda: circuit.save_statevector(),
        "state": lambda: circuit.save_state(label="again"),
        "probabilities": lambda: circuit.save_probabilities([2, 0]),
        "dictionary": lambda: circuit.save_probabilities_dict([2, 0], label="dictionary"),
        "amplitudes": lambda: circuit.save_amplitudes([3, 0, 6]),
        "squares": lambda: circuit.save_amplitudes_squared([3, 0, 6]),
        "value": lambda: circuit.save_expectation_value(OPERATOR, [2, 1]),
        "variance": lambda: circuit.save_expectation_value_variance(OPERATOR, [0, 2]),
        "matrix": lambda: circuit.save_expectation_value(random_hermitian(4, seed=3), [1, 2], label="matrix"),
        "density": lambda: circuit.save_density_matrix([2, 0]),
        "whole density": lambda: circuit.save_density_matrix(label="whole"),
    }
    for name, act in kinds.items():
        if name not in but:
            act()


def compare(mine, theirs):
    assert mine.keys() == theirs.keys()
    for label, value in theirs.items():
        if isinstance(value, dict):
            for key in {*value, *mine[label]}:
                assert abs(value.get(key, 0.0) - mine[label].get(key, 0.0)) < 1e-12 if label != "counts" else True
        elif label != "memory":
            np.testing.assert_allclose(np.asarray(mine[label]), np.asarray(value), **CLOSE)


@pytest.mark.parametrize("seed", range(4))
def test_everything_beside_aer(aer, seed):
    circuit = random_circuit(3, 5, seed=seed)
    save_all(circuit)
    more = random_circuit(3, 3, seed=seed + 10)
    circuit.compose(more, inplace=True)
    circuit.save_statevector("later")
    simulator = aer.AerSimulator()
    ready = transpile(circuit, simulator, optimization_level=0)
    mine, theirs = VelacamplixBackend().run(ready).result(), simulator.run(ready).result()
    compare(mine.data(), theirs.data())
    for method in ("get_statevector", "get_counts"):
        assert str(getattr(mine, method)())[:11] == str(getattr(theirs, method)())[:11]
    assert type(mine.data()["density_matrix"]).__name__ == type(theirs.data()["density_matrix"]).__name__ == "DensityMatrix"
    assert isinstance(mine.data()["dictionary"], type(theirs.data()["dictionary"]))
    assert isinstance(mine.get_statevector(), Statevector)


def test_after_transpiling(aer):
    circuit = random_circuit(3, 4, seed=1)
    save_all(circuit)
    expected = VelacamplixBackend().run(circuit).result().data()
    for level in range(3):
        done = transpile(circuit, VelacamplixBackend(), optimization_level=level, seed_transpiler=1)
        compare(VelacamplixBackend().run(done).result().data(), expected)


def test_means_over_outcomes_in_the_middle(aer):
    circuit = QuantumCircuit(3, 1)
    circuit.ry(0.7, 0)
    circuit.cx(0, 1)
    circuit.measure(0, 0)
    circuit.h(0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.rx(0.3, 2)
    circuit.save_density_matrix([2, 0])
    circuit.save_density_matrix(label="whole")
    theirs = aer.AerSimulator(method="density_matrix").run(circuit, shots=5000, seed_simulator=1).result().data()
    mine = VelacamplixBackend().run(circuit, shots=10).result().data()
    for label in ("density_matrix", "whole"):  # theirs is a mean over shots
        np.testing.assert_allclose(mine[label].data, theirs[label].data, rtol=0, atol=0.05)
    assert isinstance(mine["whole"], DensityMatrix) and abs(mine["whole"].trace() - 1) < 1e-12


def test_one_shot_has_a_state_of_its_own():
    circuit = QuantumCircuit(2)
    circuit.h(0)
    circuit.cx(0, 1)
    circuit.measure_all()
    add(circuit, "save_statevector", [0, 1])
    seen = set()
    for seed in range(20):
        result = VelacamplixBackend().run(circuit, shots=1, seed_simulator=seed).result()
        (bits,) = result.get_counts()
        assert abs(abs(result.get_statevector()[int(bits, 2)]) - 1) < 1e-12
        seen.add(bits)
    assert seen == {"00", "11"}
    result = VelacamplixBackend().run(circuit, shots=10).result()
    with pytest.raises(QiskitError, match="there is no one state for 'statevector'.*take shots=1"):
        result.data()


def add(circuit, name, qubits, params=(), label=None):
    circuit.append(Instruction(name, len(qubits), 0, list(params), label=label), qubits)


def test_names_alone_will_do():
    circuit = QuantumCircuit(2)
    circuit.h(0)
    circuit.cx(0, 1)
    add(circuit, "save_statevector", [0, 1])
    add(circuit, "save_probabilities", [1], label="p")
    add(circuit, "save_amplitudes_squared", [0, 1], [0, 1])
    add(circuit, "save_amplitudes", [0, 1], ["0x3"])
    add(circuit, "save_expectation_value", [0, 1], [SparsePauliOp(["ZZ", "XX"], [1, 0.5])])
    add(circuit, "save_expectation_value_variance", [1], [Pauli("Z")])
    data = VelacamplixBackend().run(circuit).result().data()
    np.testing.assert_allclose(data["statevector"].data, np.array([1, 0, 0, 1]) / np.sqrt(2), **CLOSE)
    np.testing.assert_allclose(data["p"], [0.5, 0.5], **CLOSE)
    np.testing.assert_allclose(data["amplitudes_squared"], [0.5, 0], **CLOSE)
    np.testing.assert_allclose(data["amplitudes"], [1 / np.sqrt(2)], **CLOSE)
    assert data["expectation_value"] == pytest.approx(1.5, abs=1e-12)
    np.testing.assert_allclose(data["expectation_value_variance"], [0, 1], **CLOSE)


def test_aer_is_not_imported():
    code = "import velacamplix.qiskit as q, sys; q.VelacamplixBackend().target; sys.exit(any('aer' in name for name in sys.modules))"
    subprocess.run([sys.executable, "-c", code], check=True, timeout=120)


def test_a_state_is_set(aer):
    state = random_statevector(8, seed=4)
    circuit = QuantumCircuit(3)
    circuit.set_statevector(state)
    circuit.h(1)
    circuit.save_statevector()
    expected = aer.AerSimulator().run(circuit).result().get_statevector()
    np.testing.assert_allclose(VelacamplixBackend().run(circuit).result().get_statevector().data, expected.data, **CLOSE)
    later = QuantumCircuit(3)
    later.h([0, 1])
    later.compose(circuit, inplace=True)
    np.testing.assert_allclose(VelacamplixBackend().run(later, shots=1).result().get_statevector().data, expected.data, **CLOSE)


def test_bound_circuits_and_counts_beside():
    a = Parameter("a")
    circuit = QuantumCircuit(1, 1)
    circuit.ry(a, 0)
    add(circuit, "save_expectation_value", [0], [Pauli("Z")])
    circuit.measure(0, 0)
    result = VelacamplixBackend().run([circuit, circuit], parameter_binds=[{a: [0.0, 0.5]}, {a: [np.pi]}], shots=10).result()
    values = [result.data(i)["expectation_value"] for i in range(3)]
    np.testing.assert_allclose(values, np.cos([0.0, 0.5, np.pi]), **CLOSE)
    assert result.get_counts(0) == {"0": 10} and result.get_counts(2) == {"1": 10}


def test_with_noise_means_are_exact(aer):
    from qiskit_aer import noise

    model = noise.NoiseModel()
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.1, 2), ["cx"])
    model.add_all_qubit_quantum_error(noise.amplitude_damping_error(0.2), ["ry", "h"])
    circuit = QuantumCircuit(3)
    circuit.ry(0.4, 0)
    circuit.cx(0, 1)
    circuit.h(2)
    circuit.cx(2, 1)
    save_all(circuit, but=("statevector", "state", "amplitudes"))
    circuit.cx(0, 2)
    circuit.save_density_matrix(label="end")
    theirs = aer.AerSimulator(method="density_matrix", noise_model=model).run(circuit).result().data()
    for method in ("automatic", "density_matrix", "statevector"):
        compare(VelacamplixBackend(noise_model=model, method=method).run(circuit).result().data(), theirs)
    own = NoiseModel().after("cx", Channel.depolarizing(0.1, 2)).after(["ry", "h"], Channel.amplitude_damping(0.2))
    compare(VelacamplixBackend(noise_model=own).run(circuit).result().data(), theirs)
    circuit.save_statevector()
    with pytest.raises(QiskitError, match="there is no one state for 'statevector' with noise"):
        VelacamplixBackend(noise_model=model).run(circuit).result().data()


def test_saves_in_decisions():
    circuit = QuantumCircuit(2, 1)
    circuit.x(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        add(circuit, "save_probabilities", [0, 1])
    data = VelacamplixBackend().run(circuit, shots=5).result()
    assert data.data()["probabilities"].tolist() == [0, 1, 0, 0] and data.get_counts() == {"1": 5}
    with pytest.raises(QiskitError, match="inside a decision or loop"):
        VelacamplixBackend(method="density_matrix").run(circuit).result().data()


@pytest.mark.parametrize(
    "make, message",
    [
        (lambda c: c.save_statevector(pershot=True), "leave pershot, conditional and unnormalized at False"),
        (lambda c: c.save_probabilities(conditional=True), "leave pershot, conditional"),
        (lambda c: c.save_density_matrix(unnormalized=True), "leave pershot, conditional"),
        (lambda c: c.save_unitary(), "'save_unitary' is not offered; the backend has .*save_statevector"),
        (lambda c: c.save_statevector_dict(), "'save_statevector_dict' is not offered"),
        (lambda c: c.set_density_matrix(np.eye(4) / 4), "'set_density_matrix' is not offered"),
        (lambda c: (c.save_statevector(), c.save_amplitudes([1], label="statevector")), "labels of saves must be distinct"),
        (lambda c: add(c, "save_amplitudes", [0], [2]), "amplitudes must have numbers from 0 to 1"),
        (lambda c: add(c, "save_expval", [0], [SparsePauliOp(["Z"], [1j])]), "must be Hermitian"),
    ],
)
def test_what_is_not_offered_is_refused_by_name(aer, make, message):
    circuit = QuantumCircuit(2)
    make(circuit)
    with pytest.raises(QiskitError, match=message):
        VelacamplixBackend().run(circuit).result().data()


def test_conversion_alone_has_nowhere_to_save():
    circuit = QuantumCircuit(1)
    add(circuit, "save_statevector", [0])
    with pytest.raises(NotConverted, match="'save_statevector' keeps what results of the backend tell"):
        to_velacamplix(circuit)
