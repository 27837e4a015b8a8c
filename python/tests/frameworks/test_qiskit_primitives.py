"""Qiskit's sampler and estimator, beside Qiskit's own for states."""

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")

from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister  # noqa: E402
from qiskit.circuit import Parameter, ParameterVector  # noqa: E402
from qiskit.circuit.library import UnitaryGate  # noqa: E402
from qiskit.circuit.random import random_circuit  # noqa: E402
from qiskit.primitives import StatevectorEstimator, StatevectorSampler  # noqa: E402
from qiskit.quantum_info import SparsePauliOp, Statevector, random_hermitian  # noqa: E402

from velacamplix import Channel, NoiseModel  # noqa: E402
from velacamplix.qiskit import EstimatorV2, NotConverted, SamplerV2, VelacamplixBackend  # noqa: E402

THETA = ParameterVector("theta", 11)


def ansatz():
    """With parameters whose names sort in another order than their numbers."""
    circuit = QuantumCircuit(3)
    for place, parameter in enumerate(THETA):
        (circuit.ry if place % 2 else circuit.rx)(parameter, place % 3)
        circuit.cx(place % 3, (place + 1) % 3)
    return circuit


def values(*shape):
    return np.random.default_rng(3).uniform(-3, 3, (*shape, 11))


H = SparsePauliOp(["XIZ", "ZZI", "IIY", "III"], [0.3, -1.2, 0.5, 0.25])
PUBS = {
    "one": lambda: (ansatz(), H, values()),
    "values": lambda: (ansatz(), H, values(4)),
    "observables": lambda: (ansatz(), ["ZZZ", "IXI", H], values()),
    "one for one": lambda: (ansatz(), ["ZZZ", "IXI"], values(2)),
    "each with each": lambda: (ansatz(), [["ZZZ"], ["IXI"]], values(3)),
    "a table": lambda: (ansatz(), [[["ZZZ"], ["IXI"]]], values(2, 1, 3)),
    "a dictionary": lambda: (ansatz(), "ZXY", {tuple(THETA): values(2)}),
    "no parameters": lambda: (random_circuit(3, 4, seed=1), H),
    "none at all": lambda: (ansatz(), [], values()),
    "no values": lambda: (ansatz(), "ZZZ", values(0)),
}


@pytest.mark.parametrize("case", PUBS)
def test_values_are_those_of_states(case):
    pub = PUBS[case]()
    mine, theirs = EstimatorV2().run([pub]).result()[0], StatevectorEstimator().run([pub]).result()[0]
    assert mine.data.evs.shape == theirs.data.evs.shape == mine.data.stds.shape
    np.testing.assert_allclose(mine.data.evs, theirs.data.evs, rtol=0, atol=1e-13)
    assert not mine.data.stds.any() and mine.metadata == theirs.metadata


def test_letters_that_are_projectors():
    circuit = random_circuit(3, 5, seed=4)
    state = Statevector(circuit)
    matrices = {"0": [[1, 0], [0, 0]], "1": [[0, 0], [0, 1]], "+": [[0.5, 0.5], [0.5, 0.5]], "-": [[0.5, -0.5], [-0.5, 0.5]],
                "r": [[0.5, -0.5j], [0.5j, 0.5]], "l": [[0.5, 0.5j], [-0.5j, 0.5]], "Z": [[1, 0], [0, -1]], "I": np.eye(2)}  # fmt: skip
    for label in ("0+r", "1-l", "Z0I", "l1Z", "rr+"):
        matrix = np.kron(np.kron(matrices[label[0]], matrices[label[1]]), matrices[label[2]])
        wanted = (state.data.conj() @ matrix @ state.data).real
        found = EstimatorV2().run([(circuit, {label: 2.0})]).result()[0].data.evs
        assert found == pytest.approx(2 * wanted, abs=1e-13)
    wide = QuantumCircuit(17)
    with pytest.raises(ValueError, match="at most 16 of 0 1"):
        EstimatorV2().run([(wide, "0" * 17)]).result()


def test_a_wide_register_with_few_qubits_in_use():
    circuit = QuantumCircuit(127)
    circuit.h(100)
    circuit.cx(100, 126)
    label = ["I"] * 127
    label[126 - 100] = label[0] = "X"
    assert EstimatorV2().run([(circuit, "".join(label))]).result()[0].data.evs == pytest.approx(1, abs=1e-14)


def test_precision_adds_an_error_of_that_size():
    circuit = QuantumCircuit(1)
    pub = (circuit, [["Z"] * 2000])
    first, again = [EstimatorV2(seed=2**80, default_precision=0.1).run([pub]).result()[0] for _ in range(2)]
    np.testing.assert_array_equal(first.data.evs, again.data.evs)
    assert abs(first.data.evs.mean() - 1) < 0.02 and abs(first.data.evs.std() - 0.1) < 0.02
    assert (first.data.stds == 0.1).all() and first.metadata["target_precision"] == 0.1
    assert EstimatorV2(default_precision=0.1).run([(circuit, "Z")], precision=0.0).result()[0].data.evs == 1


def test_precision_of_a_single_value():
    circuit = QuantumCircuit(1)
    data = EstimatorV2(seed=1).run([(circuit, "Z")], precision=0.1).result()[0].data
    assert data.evs.shape == data.stds.shape == () and 0 < abs(data.evs - 1) < 0.6
    assert data.stds == 0.1


@pytest.mark.parametrize("value", [float("nan"), float("inf")])
def test_precisions_that_are_refused(value):
    with pytest.raises(ValueError, match="^precision must be finite"):
        EstimatorV2().run([(QuantumCircuit(1), "Z")], precision=value)
    with pytest.raises(ValueError, match="^default_precision must be finite"):
        EstimatorV2(default_precision=value)
    with pytest.raises(ValueError, match="^default_precision must not be negative"):
        EstimatorV2(default_precision=-0.1)


def test_noise_is_exact():
    circuit = QuantumCircuit(1)
    circuit.x(0)
    noise = NoiseModel().after("x", Channel.bit_flip(0.125))
    assert EstimatorV2(noise=noise).run([(circuit, "Z")]).result()[0].data.evs == pytest.approx(-0.75, abs=1e-15)
    circuit.measure_all()
    counts = SamplerV2(noise=noise, seed=1).run([circuit], shots=4000).result()[0].data.meas.get_counts()
    assert abs(counts["0"] - 500) < 120


# --- Shots ---


def registers():
    a, b = ClassicalRegister(2, "a"), ClassicalRegister(1, "b")
    circuit = QuantumCircuit(QuantumRegister(3), a, b)
    turn = Parameter("turn")
    circuit.rx(turn, 0)
    circuit.cx(0, 2)
    circuit.x(1)
    circuit.measure([0, 1], a)
    circuit.measure(2, b)
    return circuit


def test_registers_shapes_and_counts():
    pub = (registers(), [[[0.0], [np.pi]]], 50)
    mine, theirs = SamplerV2(seed=5).run([pub]).result()[0], StatevectorSampler(seed=5).run([pub]).result()[0]
    for name in ("a", "b"):
        one, other = mine.data[name], theirs.data[name]
        assert (one.shape, one.num_shots, one.num_bits) == (other.shape, other.num_shots, other.num_bits)
        np.testing.assert_array_equal(one.array, other.array)  # nothing is left to chance
    assert mine.data.a.get_counts((0, 1)) == {"11": 50} and mine.metadata == theirs.metadata
    assert mine.join_data(["a", "b"]).get_counts((0, 1)) == {"111": 50}


def test_seeds():
    circuit = QuantumCircuit(2)
    circuit.h([0, 1])
    circuit.measure_all()

    def drawn(sampler):
        return sampler.run([circuit, circuit], shots=200).result()

    sampler = SamplerV2(seed=7)
    first, again, other = drawn(sampler), drawn(sampler), drawn(SamplerV2(seed=8))
    np.testing.assert_array_equal(first[0].data.meas.array, again[0].data.meas.array)
    assert (first[0].data.meas.array != first[1].data.meas.array).any()
    assert (first[0].data.meas.array != other[0].data.meas.array).any()
    generator = SamplerV2(seed=np.random.default_rng(7))
    np.testing.assert_array_equal(drawn(generator)[0].data.meas.array, first[0].data.meas.array)
    assert (drawn(generator)[0].data.meas.array != first[0].data.meas.array).any()
    for threads in (1, 2):
        np.testing.assert_array_equal(drawn(SamplerV2(seed=7, threads=threads))[1].data.meas.array, first[1].data.meas.array)


def test_shares_of_shots():
    theirs = random_circuit(3, 5, seed=9)
    wanted = Statevector(theirs).probabilities_dict()
    theirs.measure_all()
    counts = SamplerV2(seed=1).run([theirs], shots=20_000).result()[0].data.meas.get_counts()
    for text in wanted | counts:
        assert counts.get(text, 0) / 20_000 == pytest.approx(wanted.get(text, 0), abs=0.02)


def test_decisions_and_measurements_in_the_middle():
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.x(1)
    circuit.measure(1, 1)
    counts = SamplerV2(seed=3).run([circuit], shots=500).result()[0].data.c.get_counts()
    assert set(counts) == {"00", "11"} and abs(counts["00"] - 250) < 80


def test_bits_that_nothing_measures_are_0():
    circuit = QuantumCircuit(1, 2)
    circuit.x(0)
    assert SamplerV2().run([circuit], shots=5).result()[0].data.c.get_counts() == {"00": 5}
    with pytest.warns(UserWarning, match="no classical register"):
        result = SamplerV2().run([QuantumCircuit(1)]).result()[0]
    assert len(result.data) == 0
    assert SamplerV2(default_shots=9).default_shots == 9 and EstimatorV2(default_precision=0.5).default_precision == 0.5


# --- Backends ---


def test_options_come_from_a_backend():
    noise = NoiseModel().after("x", Channel.bit_flip(1.0))
    backend = VelacamplixBackend(shots=30, seed_simulator=4, noise_model=noise, max_parallel_threads=1, method="density_matrix")
    circuit = QuantumCircuit(1)
    circuit.x(0)
    assert EstimatorV2.from_backend(backend).run([(circuit, "Z")]).result()[0].data.evs == pytest.approx(1)
    assert EstimatorV2.from_backend(backend, noise=None).run([(circuit, "Z")]).result()[0].data.evs == pytest.approx(-1)
    circuit.h(0)
    circuit.measure_all()
    first, second = [SamplerV2.from_backend(backend).run([circuit]).result()[0].data.meas for _ in range(2)]
    assert first.num_shots == 30 and (first.array == second.array).all()
    assert SamplerV2.from_backend(backend, default_shots=7).default_shots == 7
    for kind in (SamplerV2, EstimatorV2):
        with pytest.raises(TypeError, match="backend must be a VelacamplixBackend, got"):
            kind.from_backend("aer")
        with pytest.raises(TypeError, match="unexpected keyword argument"):
            kind.from_backend(backend, color="red")
    drawn = VelacamplixBackend(noise_model=noise, method="statevector")
    assert SamplerV2.from_backend(drawn).run([circuit], shots=5).result()[0].data.meas.num_shots == 5
    with pytest.raises(ValueError, match="whose values are exact, got 'statevector'"):
        EstimatorV2.from_backend(drawn)


def test_noise_models_of_aer_beside_its_estimator():
    noise = pytest.importorskip("qiskit_aer.noise", reason="needs Aer: pip install velacamplix[test]")
    aer = pytest.importorskip("qiskit_aer.primitives", reason="needs Aer: pip install velacamplix[test]")
    model = noise.NoiseModel()
    model.add_all_qubit_quantum_error(noise.depolarizing_error(0.05, 2), ["cx"])
    model.add_all_qubit_quantum_error(noise.amplitude_damping_error(0.1), ["rx", "ry"])
    exactly = {"backend_options": {"method": "density_matrix", "noise_model": model}}
    pub = (ansatz(), [[H], ["ZZX"]], values(3))
    theirs = aer.EstimatorV2(options=exactly).run([pub], precision=0.0).result()[0].data.evs
    mine = EstimatorV2(noise=model).run([pub]).result()[0].data.evs
    np.testing.assert_allclose(mine, theirs, rtol=0, atol=1e-12)
    counts = SamplerV2(noise=model, seed=1).run([(ansatz().measure_all(inplace=False), values())], shots=200).result()[0].data.meas.get_counts()
    assert sum(counts.values()) == 200


def test_sets_of_values_are_those_of_single_runs():
    circuit = ansatz().measure_all(inplace=False)
    whole = SamplerV2(seed=5).run([(circuit, values(2, 3))], shots=50).result()[0].data.meas
    again = SamplerV2(seed=5, threads=1).run([(circuit, values(2, 3))], shots=50).result()[0].data.meas
    assert whole.shape == (2, 3) and (whole.array == again.array).all()
    likely = StatevectorSampler(seed=1).run([(circuit, values(2, 3))], shots=4000).result()[0].data.meas
    many = SamplerV2(seed=5).run([(circuit, values(2, 3))], shots=4000).result()[0].data.meas
    for place in np.ndindex(2, 3):
        one, other = likely.get_counts(place), many.get_counts(place)
        assert all(abs(one.get(bits, 0) - other.get(bits, 0)) < 300 for bits in one | other)
    idle = QuantumCircuit(1, 1)
    idle.measure(0, 0)
    assert SamplerV2().run([(idle, np.zeros((4, 0)))], shots=3).result()[0].data.c.get_counts(2) == {"0": 3}


# --- What is refused ---


@pytest.mark.parametrize("kind", [SamplerV2, EstimatorV2])
@pytest.mark.parametrize(
    "wrong, error, message",
    [
        ({"shots": 3}, TypeError, "unexpected keyword argument 'shots'"), ({"threads": 0}, ValueError, "threads"),
        ({"precision": "half"}, ValueError, "precision must be"), ({"fusion": 1}, TypeError, "fusion"),
        ({"noise": 0.1}, TypeError, "noise must be a velacamplix.NoiseModel, one of Aer's or None, got 0.1"), ({"seed": -1}, ValueError, "seed"),
        ({"seed": 0.5}, TypeError, "seed"), ({"method": "stabilizer"}, ValueError, "method must be .*, got 'stabilizer'"),
    ],
)  # fmt: skip
def test_options_that_are_unknown(kind, wrong, error, message):
    with pytest.raises(error, match=message):
        kind(**wrong)


def test_pubs_that_are_refused():
    with pytest.raises(ValueError):
        SamplerV2(default_shots=0)
    circuit = QuantumCircuit(1, 1)
    circuit.append(UnitaryGate(random_hermitian(2, seed=1).data, check_input=False), [0])
    circuit.measure(0, 0)
    for job in (SamplerV2().run([circuit]), EstimatorV2().run([(circuit, "Z")])):
        with pytest.raises(NotConverted, match="^instruction 0, 'unitary'"):
            job.result()
    with pytest.raises(MemoryError, match=r"^shots=10+ of the registers of a pub of shape \(2, 3\) need"):
        SamplerV2().run([(ansatz().measure_all(inplace=False), values(2, 3))], shots=10**15).result()
