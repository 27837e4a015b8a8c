"""Aer's noise models and channels, exactly beside Aer's density matrices."""

import numpy as np
import pytest
from exact_runs import run_exact

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")
noise = pytest.importorskip("qiskit_aer.noise", reason="needs Aer: pip install velacamplix[test]")

import qiskit_aer  # noqa: E402
from qiskit import QuantumCircuit, transpile  # noqa: E402
from qiskit.circuit.random import random_circuit  # noqa: E402
from qiskit.providers.fake_provider import GenericBackendV2  # noqa: E402
from qiskit.quantum_info import Kraus, SuperOp, random_quantum_channel, random_unitary  # noqa: E402

from velacamplix import Channel, Circuit, DensityMatrix, run  # noqa: E402
from velacamplix.qiskit import NotConverted, VelacamplixBackend, to_noise_model, to_velacamplix  # noqa: E402
from velacamplix.qiskit.noise import Errors  # noqa: E402
from velacamplix.qiskit.reading import with_noise  # noqa: E402

# In single shots of 1e-12 there is no chance: density matrices are compared entry by entry.
CLOSE = {"rtol": 0, "atol": 1e-12}


def gates():
    """Gates of all names that models below have errors of."""
    circuit = QuantumCircuit(3)
    circuit.h([0, 1, 2])
    circuit.cx(0, 1)
    circuit.x(0)
    circuit.y(1)
    circuit.cx(1, 2)
    circuit.sx(2)
    circuit.id(0)
    circuit.reset(0)
    circuit.ry(0.7, 0)
    circuit.cx(0, 2)
    circuit.delay(10, 1)
    circuit.h(1)
    circuit.ccx(0, 1, 2)
    circuit.append(random_circuit(2, 2, seed=3).to_gate(label="part"), [2, 0])
    return circuit


def all_kinds():
    model = noise.NoiseModel()
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.05, 2), ["cx", "cz"])
    model.add_quantum_error(noise.thermal_relaxation_error(50, 70, 10).tensor(noise.depolarizing_error(0.1, 1)), ["cx"], [0, 1])
    model.add_quantum_error(noise.coherent_unitary_error(random_unitary(4, seed=1)), ["cx"], [1, 2])
    model.add_all_qubit_quantum_error(noise.amplitude_damping_error(0.1, 0.2), ["h"])
    model.add_quantum_error(noise.pauli_error([("X", 0.1), ("Y", 0.05), ("I", 0.85)]), ["h"], [1])
    model.add_all_qubit_quantum_error(noise.thermal_relaxation_error(50, 30, 10), ["x", "id", "delay"])
    model.add_all_qubit_quantum_error(noise.phase_damping_error(0.3), ["y"])
    model.add_all_qubit_quantum_error(noise.reset_error(0.1, 0.05), ["sx"])
    model.add_all_qubit_quantum_error(noise.pauli_error([("X", 0.02), ("I", 0.98)]), ["reset", "measure"])
    model.add_all_qubit_quantum_error(noise.kraus_error(Kraus(random_quantum_channel(8, 8, seed=4, rank=3)).data), ["ccx"])
    return model


def densities(circuit, model):
    """The density matrix after a circuit, of Aer and of ours."""
    simulator = qiskit_aer.AerSimulator(method="density_matrix", noise_model=model)
    ready = transpile(circuit, simulator, optimization_level=0)
    mine = DensityMatrix(circuit.num_qubits).run(with_noise(ready, Errors(model))).array
    ready.save_density_matrix()
    return simulator.run(ready).result().data()["density_matrix"].data, mine


def test_errors_of_all_kinds():
    theirs, mine = densities(gates(), all_kinds())
    np.testing.assert_allclose(mine, theirs, **CLOSE)
    ideal = densities(gates(), noise.NoiseModel())[1]
    assert np.abs(mine - ideal).max() > 0.05


@pytest.mark.parametrize("touched", [0, 1])
@pytest.mark.parametrize("places", [None, [0, 1]])
def test_errors_that_touch_one_qubit_of_a_gate(touched, places):
    """Aer's rows do not tell on how many qubits an error is."""
    flip, nothing, circuit = QuantumCircuit(2), QuantumCircuit(2), QuantumCircuit(2)
    flip.x(touched)
    error = noise.QuantumError([(flip, 0.3), (nothing, 0.7)])
    model = noise.NoiseModel()
    if places is None:
        model.add_all_qubit_quantum_error(error, "cx")
    else:
        model.add_quantum_error(error, "cx", places)
    circuit.ry(0.4, 0)
    circuit.cx(0, 1)
    circuit.append(error, [1, 0])
    theirs, mine = densities(circuit, model)
    np.testing.assert_allclose(mine, theirs, **CLOSE)
    applied = to_noise_model(model).apply(Circuit(2).cx(0, 1))
    assert [step.qubits for step in applied if step.name == "channel"] == [(0, 1)]


@pytest.mark.parametrize("seed", range(6))
def test_random_channels_beside_random_circuits(seed):
    model = noise.NoiseModel()
    for n_qubits, names in ((1, ["h", "rx", "ry", "u", "sx"]), (2, ["cx", "cz", "rzz"])):
        channel = random_quantum_channel(2**n_qubits, 2**n_qubits, seed=seed, rank=2 + seed % 3)
        model.add_all_qubit_quantum_error(noise.QuantumError(channel), names)
        local = noise.kraus_error(Kraus(random_quantum_channel(2**n_qubits, 2**n_qubits, seed=seed + 50, rank=2)).data)
        model.add_quantum_error(local, names, list(range(n_qubits)))
        model.add_quantum_error(local.compose(noise.depolarizing_error(0.1, n_qubits)), names, list(range(n_qubits))[::-1] if n_qubits > 1 else [2])
    np.testing.assert_allclose(*densities(random_circuit(3, 6, seed=seed, max_operands=2), model)[::-1], **CLOSE)


def test_models_of_devices():
    device = GenericBackendV2(5, seed=3, noise_info=True)
    model = noise.NoiseModel.from_backend(device)
    circuit = transpile(random_circuit(4, 3, seed=5), device, seed_transpiler=2, optimization_level=1)
    np.testing.assert_allclose(*densities(circuit, model)[::-1], **CLOSE)


def test_delays_of_devices_relax():
    """Aer puts their noise into the circuit by a pass of its own."""
    device = GenericBackendV2(3, seed=3, noise_info=True)
    model = noise.NoiseModel.from_backend(device)
    circuit = QuantumCircuit(2)
    circuit.sx([0, 1])
    circuit.delay(20, 0, unit="us")
    circuit.delay(5, 1, unit="us")
    theirs, mine = densities(circuit, model)
    np.testing.assert_allclose(mine, theirs, **CLOSE)
    assert np.abs(mine - densities(circuit.copy_empty_like(), model)[1]).max() > 0.1
    shots = VelacamplixBackend(noise_model=model).run(circuit.measure_all(inplace=False), shots=100).result()
    assert shots.success


def test_readout_errors():
    model = noise.NoiseModel()
    model.add_all_qubit_readout_error([[0.9, 0.1], [0.2, 0.8]])
    model.add_readout_error([[0.95, 0.05], [0.3, 0.7]], [1], warnings=False)
    model.add_all_qubit_quantum_error(noise.pauli_error([("X", 0.25), ("I", 0.75)]), ["measure"])
    circuit = QuantumCircuit(2, 2)
    circuit.x(0)
    circuit.measure([0, 1], [0, 1])
    found = run_exact_probabilities(circuit, model)
    zero = np.kron([0.75, 0.25] @ np.array([[0.95, 0.05], [0.3, 0.7]]), [0.25, 0.75] @ np.array([[0.9, 0.1], [0.2, 0.8]]))
    np.testing.assert_allclose([found[bits] for bits in ("00", "10", "01", "11")], zero, **CLOSE)
    simulator = qiskit_aer.AerSimulator(noise_model=model, seed_simulator=1)
    for backend, how in ((simulator, {}), (VelacamplixBackend(noise_model=model, seed_simulator=1), {}), (VelacamplixBackend(noise_model=model), {"method": "statevector"})):
        counts = backend.run(circuit, shots=4000, **how).result().get_counts()
        for bits, share in found.items():
            assert abs(counts[bits[::-1]] / 4000 - share) < 0.05


def run_exact_probabilities(circuit, model):
    found = outcomes_of(with_noise(circuit, Errors(model)))
    return {f"{number:0{circuit.num_clbits}b}": share for number, share in found}


def outcomes_of(circuit):
    found = run_exact(circuit)
    return list(zip(found.outcomes[:, 0].tolist(), found.probabilities.tolist()))


def test_noise_in_decisions():
    model = noise.NoiseModel()
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.3, 1), ["x", "reset"])
    model.add_all_qubit_readout_error([[0.9, 0.1], [0.2, 0.8]])
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)) as otherwise:
        circuit.x(1)
    with otherwise:
        circuit.reset(0)
    circuit.measure(1, 1)
    share = run_exact_probabilities(circuit, model)
    one = 0.5 * 0.1 + 0.5 * 0.8  # the bit that decides, misread
    flipped = 0.85 * 0.8 + 0.15 * 0.1
    assert share == pytest.approx({"10": one * (1 - flipped), "11": one * flipped, "00": (1 - one) * 0.9, "01": (1 - one) * 0.1}, abs=1e-12)
    counts = qiskit_aer.AerSimulator(noise_model=model, seed_simulator=3).run(circuit, shots=4000).result().get_counts()
    assert all(abs(counts[bits[::-1]] / 4000 - p) < 0.05 for bits, p in share.items())


def test_gates_are_opened_unless_they_have_an_error_of_their_own():
    part = QuantumCircuit(2, name="part")
    part.x(0)
    part.cx(0, 1)
    circuit = QuantumCircuit(2)
    circuit.append(part.to_gate(label="mine"), [1, 0])
    model = noise.NoiseModel()
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.1, 1), ["x"])
    assert [step.name for step in with_noise(circuit, Errors(model))] == ["X", "channel", "CNOT"]
    assert [step.name for step in with_noise(circuit, Errors(noise.NoiseModel()))] == ["X", "CNOT"]
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.1, 2), ["mine"])
    assert [step.name for step in with_noise(circuit, Errors(model))] == ["part", "channel"]


def test_channels_in_circuits():
    error = noise.amplitude_damping_error(0.3)
    circuit = QuantumCircuit(2)
    circuit.h(0)
    circuit.cx(0, 1)
    circuit.append(error.to_instruction(), [0])
    circuit.append(Kraus(error).to_instruction(), [1])
    circuit.append(SuperOp(random_quantum_channel(4, 4, seed=3, rank=5)).to_instruction(), [1, 0])
    theirs, mine = densities(circuit, noise.NoiseModel())
    np.testing.assert_allclose(mine, theirs, **CLOSE)
    np.testing.assert_allclose(DensityMatrix(2).run(to_velacamplix(circuit)).array, theirs, **CLOSE)


def test_transpiling_for_a_model_takes_its_basis():
    model = noise.NoiseModel.from_backend(GenericBackendV2(2, seed=1, noise_info=True))
    circuit = QuantumCircuit(2)
    circuit.h(0)
    circuit.swap(0, 1)
    circuit.measure_all()
    backend = VelacamplixBackend(noise_model=model)
    assert set(transpile(circuit, backend).count_ops()) <= {*model.basis_gates, "measure", "barrier", "unitary"}
    assert "h" in transpile(circuit, VelacamplixBackend()).count_ops()
    backend.set_options(noise_model=None)
    assert "h" in transpile(circuit, backend).count_ops()


# --- Converted models ---


def test_a_model_becomes_one_of_the_package():
    model = to_noise_model_without_delay(all_kinds())
    circuit = QuantumCircuit(3)
    for instruction in gates().data:
        if instruction.operation.name in ("reset", *all_kinds().basis_gates):  # the same before and after transpiling
            circuit.append(instruction)
    mine = DensityMatrix(3).run(model.apply(to_velacamplix(circuit))).array
    np.testing.assert_allclose(mine, densities(circuit, all_kinds())[0], **CLOSE)
    assert model == type(model).from_dict(model.to_dict())


def to_noise_model_without_delay(model):
    with pytest.warns(UserWarning, match="errors of delay are left out"):
        return to_noise_model(model)


def test_a_device_becomes_a_model_of_the_package():
    model = to_noise_model(noise.NoiseModel.from_backend(GenericBackendV2(3, seed=3, noise_info=True)))
    assert model.readout_of(1) != (0.0, 0.0) and model.readout_of(0) != model.readout_of(1)
    result = run(Circuit(3, 3).h(0).cx(0, 1).measure_all(), shots=100, noise=model, method="exact")
    assert result.counts.shots == 100


def test_paulis_stay_cheap():
    model = noise.NoiseModel()
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.1, 2).compose(noise.pauli_error([("XY", 0.1), ("II", 0.9)])), ["cx"])
    (channel,) = Errors(model).channels.values()
    assert channel.pauli_probabilities is not None
    expected = SuperOp(model._default_quantum_errors["cx"].to_quantumchannel()).data
    np.testing.assert_allclose(channel.superoperator(), expected, **CLOSE)


def test_what_is_no_model_is_refused():
    for given in (None, "noise", Channel.bit_flip(0.1)):
        with pytest.raises(TypeError, match="model must be a qiskit_aer.noise.NoiseModel"):
            to_noise_model(given)
    model = noise.NoiseModel()
    model.add_readout_error(np.eye(4)[[1, 0, 2, 3]], [0, 1])
    for act in (to_noise_model, lambda one: VelacamplixBackend(noise_model=one)):
        with pytest.raises(NotConverted, match="readout errors must be of single qubits"):
            act(model)
    wide = noise.NoiseModel()
    wide.add_quantum_error(noise.pauli_error([("XXXXX", 0.1), ("IIIII", 0.9)]), ["box5"], [0, 1, 2, 3, 4])
    with pytest.raises(NotConverted, match="at most 4 qubits, got one on 5"):
        to_noise_model(wide)
