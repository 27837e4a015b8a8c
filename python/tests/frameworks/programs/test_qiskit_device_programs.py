"""Programs that users of Qiskit write for devices, wide and noisy: here and on other simulators, with nothing else changed."""

import numpy as np
import pytest
from programs import agree
from qiskit import QuantumCircuit, transpile
from qiskit.primitives import StatevectorEstimator, StatevectorSampler
from qiskit.providers.fake_provider import GenericBackendV2
from qiskit.quantum_info import SparsePauliOp, Statevector
from qiskit.transpiler import generate_preset_pass_manager
from qiskit_aer import AerSimulator
from qiskit_aer.noise import NoiseModel, ReadoutError, depolarizing_error

from velacamplix.qiskit import EstimatorV2, SamplerV2, VelacamplixBackend


def entangled(n):
    circuit = QuantumCircuit(n)
    circuit.h(0)
    for qubit in range(n - 1):
        circuit.cx(qubit, qubit + 1)
        circuit.ry(0.3 + 0.1 * qubit, qubit)
    return circuit


def test_compiled_for_a_wide_device():
    """A circuit of 12 qubits, laid out on a line of 127: the other 115 take no memory."""
    line = [[i, i + 1] for i in range(126)] + [[i + 1, i] for i in range(126)]
    device = GenericBackendV2(127, coupling_map=line, seed=1)
    passes = generate_preset_pass_manager(1, backend=device, seed_transpiler=1)
    circuit = entangled(12)
    operator = SparsePauliOp.from_sparse_list([("ZZ", [0, 11], 1), ("XYX", [1, 5, 2], 0.5), ("Y", [7], -0.25)], num_qubits=12)
    compiled = passes.run(circuit)
    assert compiled.num_qubits == 127
    ours = EstimatorV2().run([(compiled, operator.apply_layout(compiled.layout))]).result()[0].data.evs
    theirs = StatevectorEstimator().run([(circuit, operator)]).result()[0].data.evs
    assert float(ours) == pytest.approx(float(theirs), abs=1e-12)
    measured = circuit.measure_all(inplace=False)
    compiled = passes.run(measured)
    expected = StatevectorSampler(seed=2).run([measured], shots=4000).result()[0].data.meas.get_counts()
    agree(SamplerV2(seed=1).run([compiled], shots=4000).result()[0].data.meas.get_counts(), expected)
    agree(VelacamplixBackend(seed_simulator=3).run(compiled, shots=4000).result().get_counts(), expected)


def extrapolated(backend):
    """Zero-noise extrapolation: gates are folded into themselves, a line through the values ends where there is no noise."""
    values = []
    for folds in (1, 3, 5):
        circuit = QuantumCircuit(2)
        circuit.ry(0.7, 0)
        for _ in range(folds):
            circuit.cx(0, 1)
            circuit.barrier()
        circuit.measure_all()
        counts = backend.run(circuit, shots=20000, seed_simulator=folds).result().get_counts()
        values.append(sum([times * (-1) ** bits.count("1") for bits, times in counts.items()]) / 20000)
    return [*values, np.polyval(np.polyfit([1, 3, 5], values, 2), 0)]


def test_extrapolated():
    model = NoiseModel()
    model.add_all_qubit_quantum_error(depolarizing_error(0.05, 2), ["cx"])
    ours, theirs = extrapolated(VelacamplixBackend(noise_model=model)), extrapolated(AerSimulator(noise_model=model))
    np.testing.assert_allclose(ours[:3], theirs[:3], atol=5 * np.sqrt(2 / 20000))
    assert abs(ours[3] - 1) < abs(ours[0] - 1)


def corrected_readout(backend):
    """Readout errors are measured, state by state, and taken out of the counts of another circuit."""
    prepared = []
    for state in range(4):
        circuit = QuantumCircuit(2)
        for qubit in (0, 1):
            if state >> qubit & 1:
                circuit.x(qubit)
        circuit.measure_all()
        prepared.append(circuit)
    measured = entangled(2).measure_all(inplace=False)
    result = backend.run(transpile([*prepared, measured], backend), shots=20000, seed_simulator=4).result()
    table = np.array([[result.get_counts(place).get(f"{row:02b}", 0) for place in range(5)] for row in range(4)]) / 20000
    return table[:, :4], np.linalg.solve(table[:, :4], table[:, 4])


def test_corrected_readout():
    model = NoiseModel()
    model.add_readout_error(ReadoutError([[0.96, 0.04], [0.1, 0.9]]), [0])
    model.add_readout_error(ReadoutError([[0.93, 0.07], [0.05, 0.95]]), [1])
    tolerance = 6 * np.sqrt(0.5 / 20000)
    (table, shares), (theirs, _) = [corrected_readout(kind(noise_model=model)) for kind in (VelacamplixBackend, AerSimulator)]
    np.testing.assert_allclose(table, theirs, atol=tolerance)
    np.testing.assert_allclose(shares, Statevector(entangled(2)).probabilities(), atol=2 * tolerance)


def shadows(backend):
    """Classical shadows: one shot of each of many circuits in random bases, all in one job."""
    rng = np.random.default_rng(5)
    circuits, bases = [], rng.integers(3, size=(250, 3))
    for row in bases:
        circuit = entangled(3)
        for qubit, base in enumerate(row):
            if base:
                circuit.sdg(qubit) if base == 1 else None
                circuit.h(qubit)
        circuit.measure_all()
        circuits.append(circuit)
    result = backend.run(circuits, shots=1, seed_simulator=7, memory=True).result()
    signs = np.array([[1 - 2 * int(bit) for bit in result.get_memory(place)[0][::-1]] for place in range(len(circuits))])
    # Of Z on qubits 0 and 1: 9 times the outcome where both were measured in that basis.
    return np.where((bases[:, :2] == 0).all(axis=1), 9 * signs[:, 0] * signs[:, 1], 0)


def test_shadows():
    samples = shadows(VelacamplixBackend())
    exact = Statevector(entangled(3)).expectation_value(SparsePauliOp("IZZ")).real
    assert abs(samples.mean() - exact) < 5 * 3 / np.sqrt(len(samples))
    assert set(samples) == set(shadows(AerSimulator())) == {-9, 0, 9}
