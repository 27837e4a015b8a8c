"""Programs as users of Qiskit write them: here and on Qiskit's own simulators, with nothing changed but the device."""

import numpy as np
import pytest
from programs import agree
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister, transpile
from qiskit.circuit import Parameter, ParameterVector
from qiskit.circuit.library import efficient_su2, qaoa_ansatz, zz_feature_map
from qiskit.primitives import StatevectorEstimator, StatevectorSampler
from qiskit.quantum_info import SparsePauliOp
from qiskit.transpiler import generate_preset_pass_manager
from qiskit_aer import AerSimulator
from qiskit_aer.noise import NoiseModel, ReadoutError, depolarizing_error
from scipy.optimize import minimize

from velacamplix.qiskit import EstimatorV2, SamplerV2, VelacamplixBackend


def ground_state_of_hydrogen(estimator):
    """VQE: energies along the way of an optimizer."""
    hydrogen = SparsePauliOp(
        ["II", "IZ", "ZI", "ZZ", "XX"], [-1.052373, 0.397937, -0.397937, -0.011280, 0.180931]
    )
    ansatz = efficient_su2(2, reps=1)
    energies = []

    def energy(values):
        energies.append(float(estimator.run([(ansatz, hydrogen, values)]).result()[0].data.evs))
        return energies[-1]

    minimize(energy, np.linspace(0, 1, ansatz.num_parameters), method="COBYLA", options={"maxiter": 40})
    return energies


def test_ground_state_of_hydrogen():
    ours, theirs = ground_state_of_hydrogen(EstimatorV2()), ground_state_of_hydrogen(StatevectorEstimator())
    np.testing.assert_allclose(ours, theirs, atol=1e-9)
    assert min(ours) < -1.8


EDGES = [(0, 1), (1, 2), (2, 3), (3, 4), (4, 0), (0, 2)]


def largest_cut(estimator, sampler):
    """QAOA: angles by the estimator, then samples of the best ones."""
    cost = SparsePauliOp.from_sparse_list([("ZZ", edge, 1) for edge in EDGES], num_qubits=5)
    circuit = qaoa_ansatz(cost, reps=2)
    circuit = generate_preset_pass_manager(optimization_level=1, basis_gates=["rx", "rz", "cx", "h"]).run(circuit)

    def energy(values):
        return float(estimator.run([(circuit, cost, values)]).result()[0].data.evs)

    best = minimize(energy, [0.4, 0.8, 0.6, 0.3], method="COBYLA", options={"maxiter": 30})
    measured = circuit.measure_all(inplace=False)
    return best.fun, sampler.run([(measured, best.x)], shots=4000).result()[0].data.meas.get_counts()


def test_largest_cut():
    ours, counts = largest_cut(EstimatorV2(), SamplerV2(seed=1))
    theirs, expected = largest_cut(StatevectorEstimator(), StatevectorSampler(seed=1))
    assert ours == pytest.approx(theirs, abs=1e-6)
    agree(counts, expected)


def kernel_of_points(sampler):
    """A quantum kernel: how often the states of two points overlap, by shots, for all pairs in one call."""
    points = np.array([[0.1, 0.7], [0.4, 0.2], [0.9, 0.5]])
    features, others = zz_feature_map(2, reps=1), zz_feature_map(2, reps=1, parameter_prefix="y")
    overlap = features.compose(others.inverse())
    overlap.measure_all()
    pairs = np.array([[np.concatenate([a, b]) for b in points] for a in points])
    names = [parameter.name for parameter in overlap.parameters]
    assert names == ["x[0]", "x[1]", "y[0]", "y[1]"]
    found = sampler.run([(overlap, pairs)], shots=3000).result()[0].data.meas
    return np.array([[found.get_counts((i, j)).get("00", 0) / 3000 for j in range(3)] for i in range(3)])


def test_kernel_of_points():
    ours, theirs = kernel_of_points(SamplerV2(seed=2)), kernel_of_points(StatevectorSampler(seed=2))
    np.testing.assert_allclose(ours, theirs, atol=5 * np.sqrt(2 * 0.25 / 3000))
    assert (np.diag(ours) == 1).all()


def teleported(backend):
    """Dynamic circuits: a state goes from qubit 0 to qubit 2 by two bits that are read on the way."""
    qubits, bits, out = QuantumRegister(3, "q"), ClassicalRegister(2, "sent"), ClassicalRegister(1, "out")
    circuit = QuantumCircuit(qubits, bits, out)
    circuit.ry(1.1, 0)
    circuit.h(1)
    circuit.cx(1, 2)
    circuit.cx(0, 1)
    circuit.h(0)
    circuit.measure([0, 1], bits)
    with circuit.if_test((bits[1], 1)):
        circuit.x(2)
    with circuit.if_test((bits[0], 1)):
        circuit.z(2)
    circuit.ry(-0.4, 2)
    circuit.measure(2, out)
    return backend.run(transpile(circuit, backend), shots=4000, seed_simulator=3).result().get_counts()


def phase_of_a_gate(backend):
    """Iterative phase estimation: one qubit is measured and reset for each binary digit, the next turn depends on it."""
    digits = 3
    circuit = QuantumCircuit(2, digits)
    circuit.x(1)
    for place in range(digits):
        circuit.reset(0)
        circuit.h(0)
        circuit.cp(2 * np.pi * 0.6 * 2 ** (digits - 1 - place), 0, 1)
        for known in range(place):
            with circuit.if_test((circuit.clbits[known], 1)):
                circuit.p(-np.pi / 2 ** (place - known), 0)
        circuit.h(0)
        circuit.measure(0, place)
    return backend.run(transpile(circuit, backend), shots=4000, seed_simulator=4).result().get_counts()


def until_it_works(backend):
    """Repeat until success: a loop that ends when a measurement says so, and a switch on what was found."""
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.while_loop((circuit.clbits[0], 0)):
        circuit.ry(0.9, 0)
        circuit.cx(0, 1)
        circuit.measure(0, 0)
    with circuit.switch(circuit.clbits[0]) as case:
        with case(0):
            circuit.x(1)
        with case(1):
            circuit.ry(0.3, 1)
    circuit.measure(1, 1)
    return backend.run(transpile(circuit, backend), shots=4000, seed_simulator=5).result().get_counts()


@pytest.mark.parametrize("program", [teleported, phase_of_a_gate, until_it_works])
def test_dynamic_circuits(program):
    agree(program(VelacamplixBackend()), program(AerSimulator()))


def noisy_readings(backend):
    """Sampling with noise: one circuit for several angles, bound by the backend."""
    angle = Parameter("a")
    circuit = QuantumCircuit(3)
    circuit.h(0)
    circuit.cx(0, 1)
    circuit.rx(angle, 2)
    circuit.cx(1, 2)
    circuit.measure_all()
    bound = [transpile(circuit, backend).assign_parameters({angle: value}) for value in (0.2, 1.0, 2.5)]
    result = backend.run(bound, shots=4000, seed_simulator=6).result()
    return [result.get_counts(position) for position in range(3)]


def noise():
    model = NoiseModel()
    model.add_all_qubit_quantum_error(depolarizing_error(0.02, 1), ["h", "rx", "sx", "rz", "x"])
    model.add_all_qubit_quantum_error(depolarizing_error(0.08, 2), ["cx"])
    model.add_all_qubit_readout_error(ReadoutError([[0.97, 0.03], [0.06, 0.94]]))
    return model


def test_noisy_readings():
    ours = noisy_readings(VelacamplixBackend(noise_model=noise()))
    for counts, expected in zip(ours, noisy_readings(AerSimulator(noise_model=noise())), strict=True):
        agree(counts, expected)


def slope_of_a_model(estimator):
    """Parameter shifts: the derivative by each weight, from one call with a table of values."""
    weights = ParameterVector("w", 4)
    circuit = QuantumCircuit(2)
    for qubit in (0, 1):
        circuit.ry(weights[qubit], qubit)
    circuit.cx(0, 1)
    for qubit in (0, 1):
        circuit.rx(weights[2 + qubit], qubit)
    at = np.array([0.3, -0.2, 0.9, 1.4])
    shifts = np.concatenate([np.eye(4), -np.eye(4)]) * np.pi / 2
    values = estimator.run([(circuit, SparsePauliOp(["ZI", "IZ", "XX"], [1, 0.5, 0.2]), at + shifts)]).result()[0].data.evs
    return (values[:4] - values[4:]) / 2


def test_slope_of_a_model():
    np.testing.assert_allclose(slope_of_a_model(EstimatorV2()), slope_of_a_model(StatevectorEstimator()), atol=1e-12)
