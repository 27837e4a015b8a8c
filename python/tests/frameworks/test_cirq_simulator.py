"""Cirq's simulator interfaces, beside Cirq's own simulators in the same test."""

import numpy as np
import pytest

cirq = pytest.importorskip("cirq", reason="needs Cirq: pip install velacamplix[test]")

import sympy  # noqa: E402

from support.refusals import refused  # noqa: E402
from velacamplix.cirq import NotConverted, VelacamplixSimulator  # noqa: E402
from velacamplix.cirq.states import VelacamplixSimulationState  # noqa: E402

Q = cirq.LineQubit.range(4)
A, B, C, D = Q
T, S = sympy.symbols("t s")
MINE = VelacamplixSimulator(seed=1)
THEIRS = cirq.Simulator(seed=1, dtype=np.complex128)


def near(mine, theirs, atol=1e-7):
    np.testing.assert_allclose(mine, theirs, rtol=0, atol=atol)


def shares(circuit, simulator, key="m", repetitions=4000):
    counts = simulator.run(circuit, repetitions=repetitions).multi_measurement_histogram(keys=key.split())
    return {value: count / repetitions for value, count in counts.items()}


def agree(circuit, key="m", mine=MINE, theirs=THEIRS, repetitions=4000):
    """Frequencies agree to five standard errors; Cirq's simulator is slow where each shot goes its own way."""
    one, other = shares(circuit, mine, key), shares(circuit, theirs, key, repetitions)
    for value in one.keys() | other.keys():
        p, q = one.get(value, 0.0), other.get(value, 0.0)
        assert abs(p - q) < 5 * np.sqrt((max(p, q) + 1 / repetitions) / repetitions), (value, p, q)


def test_interfaces_are_those_of_cirq():
    kinds = ("SimulatesSamples", "SimulatesAmplitudes", "SimulatesFinalState", "SimulatesIntermediateState")
    assert isinstance(MINE, tuple([getattr(cirq, kind) for kind in kinds]))
    for kind in (*kinds, "SimulatesExpectationValues", "Sampler"):
        assert isinstance(MINE, getattr(cirq, kind)), kind


# --- States ---


@pytest.mark.parametrize("seed", range(25))
def test_final_states_are_those_of_cirq(seed):
    rng = np.random.RandomState(seed)
    circuit = cirq.testing.random_circuit(Q, 12, 0.7, random_state=rng)
    order = [Q[place] for place in rng.permutation(4)]
    start = int(rng.randint(16))
    mine = MINE.simulate(circuit, qubit_order=order, initial_state=start)
    theirs = THEIRS.simulate(circuit, qubit_order=order, initial_state=start)
    near(mine.final_state_vector, theirs.final_state_vector)
    assert type(mine) is type(theirs) and mine.qubit_map == theirs.qubit_map
    near(mine.density_matrix_of([A, C]), theirs.density_matrix_of([A, C]))
    near(mine.bloch_vector_of(B), theirs.bloch_vector_of(B))
    near(MINE.compute_amplitudes(circuit, [0, 5, 15]), THEIRS.compute_amplitudes(circuit, [0, 5, 15]))
    near(
        VelacamplixSimulator(dtype=np.complex64, fusion=True, threads=1).simulate(circuit, qubit_order=order).state_vector(),
        THEIRS.simulate(circuit, qubit_order=order).state_vector(), 1e-5,
    )  # fmt: skip


def starts():
    vector = cirq.testing.random_superposition(8, random_state=3)
    yield from (0, 5, vector, vector.reshape(2, 2, 2), [1, 0, 1], vector.astype(np.complex64))
    yield cirq.KET_PLUS(A) * cirq.KET_IMAG(B) * cirq.KET_ONE(C)


@pytest.mark.parametrize("start", list(starts()), ids=lambda start: type(start).__name__)
def test_initial_states(start):
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, C), cirq.T(B) ** 0.3)
    observables = [cirq.X(A) * cirq.Z(C), cirq.Z(B)]
    wanted = start
    if isinstance(start, np.ndarray) and start.dtype == np.complex64:
        wanted = start.astype(np.complex128)
    begun = np.copy(start) if isinstance(start, np.ndarray) else None
    theirs = THEIRS.simulate(circuit, initial_state=wanted, qubit_order=Q[:3])
    near(MINE.simulate(circuit, initial_state=start, qubit_order=Q[:3]).final_state_vector, theirs.final_state_vector)
    near(
        MINE.simulate_expectation_values(circuit, observables, initial_state=start, qubit_order=Q[:3]),
        [cirq.PauliSum.wrap(one).expectation_from_state_vector(theirs.state_vector(), theirs.qubit_map) for one in observables],
    )
    if begun is not None:
        np.testing.assert_array_equal(start, begun)


def test_a_final_state_is_a_state_to_begin_with():
    first = MINE.simulate(cirq.Circuit(cirq.H(A), cirq.CNOT(A, B)))
    before = np.copy(first.final_state_vector)
    second = MINE.simulate(cirq.Circuit(cirq.X(B)), initial_state=first._final_simulator_state, qubit_order=[A, B])
    near(second.final_state_vector, [0, np.sqrt(0.5), np.sqrt(0.5), 0])
    near(first.final_state_vector, before)
    with refused(ValueError, "initial_state must be of the qubits"):
        MINE.simulate(cirq.Circuit(cirq.X(D)), initial_state=first._final_simulator_state)


def test_circuits_of_nothing():
    near(MINE.simulate(cirq.Circuit()).final_state_vector, [1])
    near(MINE.simulate(cirq.Circuit(cirq.global_phase_operation(1j))).final_state_vector, [1j])
    near(MINE.simulate(cirq.Circuit(), qubit_order=Q[:2], initial_state=2).final_state_vector, [0, 0, 1, 0])
    assert len(list(MINE.simulate_moment_steps(cirq.Circuit()))) == 1
    with refused(ValueError, "no measurements"):
        MINE.run(cirq.Circuit(cirq.X(A)))


def test_measurements_of_a_simulation_leave_the_state_that_they_tell():
    circuit = cirq.Circuit(
        cirq.H(A), cirq.CNOT(A, B), cirq.measure(A, key="a"), cirq.H(A), cirq.measure(A, B, key="m", invert_mask=(False, True)),
        cirq.X(C).with_classical_controls("a"),
    )  # fmt: skip
    seen = set()
    for _ in range(40):
        result = MINE.simulate(circuit)
        (a,), (first, second) = result.measurements["a"], result.measurements["m"]
        assert second == 1 - a
        near(np.abs(result.final_state_vector), np.eye(8)[first * 4 + a * 3])
        seen.add((int(a), int(first)))
    assert len(seen) == 4


# --- Sweeps ---


def ansatz():
    return cirq.Circuit(
        cirq.rx(T)(A), cirq.CNOT(A, B) ** S, cirq.PhasedXPowGate(exponent=S, phase_exponent=T)(C), cirq.ZZ(B, C) ** (T + S),
        cirq.H(A) ** T, cirq.X(B) ** (S / 2),
    )  # fmt: skip


def test_sweeps_of_states_and_values():
    sweep = cirq.Product(cirq.Linspace("t", 0, 1, 3), cirq.Points("s", [0.3, -1.1]))
    observables = [cirq.X(A) * cirq.Y(B) + 2 * cirq.Z(C) - 0.5, cirq.Z(A)]
    for begin in (0, 3):
        mine, theirs = [
            simulator.simulate_sweep(ansatz(), sweep, initial_state=begin) for simulator in (MINE, THEIRS)
        ]
        assert [one.params for one in mine] == [one.params for one in theirs] and len(mine) == 6
        near([one.final_state_vector for one in mine], [one.final_state_vector for one in theirs])
        mine, theirs = [
            simulator.simulate_expectation_values_sweep(ansatz(), observables, sweep, initial_state=begin)
            for simulator in (MINE, THEIRS)
        ]
        near(mine, theirs)
    near(*[s.compute_amplitudes_sweep(ansatz(), [1, 4], sweep) for s in (MINE, THEIRS)])
    near(*[s.simulate_expectation_values(ansatz(), cirq.Z(A), {"t": 0.1, "s": 2}) for s in (MINE, THEIRS)])


def test_sweeps_of_shots():
    circuit = ansatz() + cirq.measure(C, A, key="m") + cirq.X(B) + cirq.measure(B, key="n", invert_mask=(True,))
    sweep = cirq.Zip(cirq.Linspace("t", 0, 1, 4), cirq.Points("s", [0.3, -1.1, 2, 0]))
    mine, theirs = [simulator.run_sweep(circuit, sweep, repetitions=3000) for simulator in (MINE, THEIRS)]
    for one, other in zip(mine, theirs):
        assert one.params == other.params and type(one) is type(other)
        assert {key: value.shape for key, value in one.records.items()} == {"m": (3000, 1, 2), "n": (3000, 1, 1)}
        for key in ("m", "n"):
            near(one.records[key].mean(axis=0), other.records[key].mean(axis=0), 0.06)
    assert not np.array_equal(mine[0].records["m"], mine[1].records["m"])
    nested = MINE.run_sweep(cirq.Circuit(cirq.X(A) ** T, cirq.measure(A)), [{"t": S, "s": 1}, {"t": 0}], repetitions=5)
    assert [result.records["q(0)"].mean() for result in nested] == [1, 0]


def test_sweeps_over_what_cannot_stay_open():
    circuit = cirq.Circuit(
        cirq.CircuitOperation(cirq.FrozenCircuit(cirq.X(A)), repetitions=T), cirq.DiagonalGate([S, 0])(B), cirq.measure(A, key="m")
    )
    results = MINE.run_sweep(circuit, [{"t": 1, "s": 0.1}, {"t": 2, "s": 0.3}], repetitions=3)
    assert [result.records["m"].mean() for result in results] == [1, 0]
    near(MINE.simulate(circuit, {"t": 1, "s": 0.3}).final_state_vector, THEIRS.simulate(circuit, {"t": 1, "s": 0.3}).state_vector())


@pytest.mark.parametrize("call", ["run", "simulate", "simulate_expectation_values", "compute_amplitudes"])
def test_symbols_without_values_are_refused(call):
    circuit = cirq.Circuit(cirq.X(A) ** T, *([cirq.measure(A)] if call == "run" else []))
    more = {"simulate_expectation_values": [cirq.Z(A)], "compute_amplitudes": [[0]]}.get(call, [])
    for values in ({}, {"s": 1}):
        with refused(ValueError, "symbols were not specified"):
            getattr(MINE, call)(circuit, *more, param_resolver=cirq.ParamResolver(values))


# --- Shots ---


def test_repeated_keys_masks_and_orders():
    circuit = cirq.Circuit(
        cirq.X(A), cirq.measure(A, B, key="m"), cirq.X(B), cirq.measure(B, A, key="m", invert_mask=(False, True)),
        cirq.measure(C, key="n"),
    )  # fmt: skip
    mine, theirs = MINE.run(circuit, repetitions=7), THEIRS.run(circuit, repetitions=7)
    assert mine == theirs and mine.records["m"].shape == (7, 2, 2)
    assert MINE.run(circuit, repetitions=0).records["m"].shape[0] == 0
    frame = MINE.sample(cirq.Circuit(cirq.X(A) ** T, cirq.measure(A, key="z")), repetitions=2, params=[{"t": 0}, {"t": 1}])
    assert frame["z"].tolist() == [0, 0, 1, 1]


def test_shots_of_random_circuits():
    for seed in range(6):
        circuit = cirq.testing.random_circuit(Q, 8, 0.8, random_state=seed)
        agree(circuit + cirq.measure(C, A, D, key="m"))


def test_measurements_in_the_middle_and_controls():
    circuit = cirq.Circuit(
        cirq.H(A), cirq.measure(A, key="a", invert_mask=(True,)), cirq.ry(1.0)(B).with_classical_controls("a"),
        cirq.H(A), cirq.measure(A, B, key="ab"), cirq.X(C).with_classical_controls(sympy.Eq(sympy.Symbol("ab"), 2)),
        cirq.reset(A), cirq.measure(A, B, C, key="m"),
    )  # fmt: skip
    agree(circuit, repetitions=300)


def test_qubits_are_teleported():
    circuit = cirq.Circuit(
        cirq.ry(1.1)(A), cirq.rz(0.4)(A), cirq.H(B), cirq.CNOT(B, C), cirq.CNOT(A, B), cirq.H(A), cirq.measure(A, key="z"),
        cirq.measure(B, key="x"), cirq.X(C).with_classical_controls("x"), cirq.Z(C).with_classical_controls("z"),
    )  # fmt: skip
    wanted = cirq.Circuit(cirq.ry(1.1)(C), cirq.rz(0.4)(C))
    observables = [cirq.X(C), cirq.Y(C), cirq.Z(C)]
    near(
        MINE.simulate_expectation_values(circuit, observables, permit_terminal_measurements=True),
        THEIRS.simulate_expectation_values(wanted, observables),
    )


@pytest.mark.filterwarnings("ignore:.*measured")
def test_values_behind_measurements_are_means_over_the_outcomes():
    qubits = cirq.LineQubit.range(20)  # as a density matrix 16 TiB
    wide = cirq.Circuit(cirq.ry(0.4)(qubits[0]), cirq.H.on_each(*qubits[1:]), cirq.measure(*qubits, key="m"))
    values = MINE.simulate_expectation_values(
        wide, [cirq.Z(qubits[0]), cirq.X(qubits[1])], permit_terminal_measurements=True
    )
    near(values, [np.cos(0.4), 0])
    middle = cirq.Circuit(cirq.ry(0.4)(A), cirq.measure(A, key="a"), cirq.ry(0.3)(A), cirq.H(B).with_classical_controls("a"))
    exact = cirq.DensityMatrixSimulator(dtype=np.complex128)
    rho = exact.simulate(cirq.Circuit(cirq.ry(0.4)(A), cirq.phase_flip(0.5)(A), cirq.ry(0.3)(A)))
    near(MINE.simulate_expectation_values(middle, cirq.Z(A)), [np.trace(rho.final_density_matrix @ cirq.unitary(cirq.Z))])
    near(MINE.simulate_expectation_values(middle, cirq.X(B)), [np.sin(0.2) ** 2])


CONFUSION = {
    (0,): np.array([[0.8, 0.2], [0.1, 0.9]]),
    (2, 1): np.array([[0.7, 0.1, 0.1, 0.1], [0, 1, 0, 0], [0, 0, 1, 0], [0.5, 0, 0, 0.5]]),
}


def test_confusion_maps():
    begin = [cirq.ry(0.9)(A), cirq.H(B), cirq.CNOT(B, C)]
    # Without a mask: what Cirq samples at the end inverts before it misreads, against its own documentation.
    agree(cirq.Circuit(begin, cirq.measure(A, B, C, key="m", confusion_map=CONFUSION)))
    single = {(0,): CONFUSION[0,]}
    inverted = cirq.measure(A, key="a", confusion_map=single, invert_mask=(True,))
    agree(cirq.Circuit(begin, inverted, cirq.X(B).with_classical_controls("a"), cirq.measure(B, A, key="m")), repetitions=300)
    asked = cirq.measure(A, B, C, key="a", confusion_map=CONFUSION, invert_mask=(True,))
    circuit = cirq.Circuit(begin, asked, cirq.X(D).with_classical_controls("a"), cirq.measure(D, A, key="m"))
    one = VelacamplixSimulator(seed=3).run(circuit, repetitions=400).multi_measurement_histogram(keys=["a", "m"])
    other = THEIRS.run(circuit, repetitions=150).multi_measurement_histogram(keys=["a", "m"])
    for value in one | other:
        p, q = one[value] / 400, other[value] / 150
        assert abs(p - q) < 5 * np.sqrt((max(p, q) + 1 / 150) / 150), (value, p, q)


def test_misread_then_inverted_as_documented():
    always_one = {(0,): np.array([[0.0, 1.0], [0.0, 1.0]])}
    circuit = cirq.Circuit(cirq.H(A), cirq.measure(A, key="m", confusion_map=always_one, invert_mask=(True,)))
    assert not MINE.run(circuit, repetitions=20).records["m"].any()
    assert not MINE.simulate(circuit).measurements["m"].any()


def test_circuit_operations():
    inside = cirq.FrozenCircuit(cirq.H(A), cirq.measure(A, key="m"), cirq.X(B).with_classical_controls("m"))
    twice = cirq.CircuitOperation(inside, repetitions=2)
    for operation in (
        cirq.CircuitOperation(inside, repetitions=2, use_repetition_ids=True),
        cirq.CircuitOperation(inside, repetitions=3, use_repetition_ids=False),
        twice.with_qubit_mapping({A: C}),
        cirq.CircuitOperation(cirq.FrozenCircuit(cirq.CircuitOperation(inside, repetitions=2, use_repetition_ids=True)), repetitions=2,
                              use_repetition_ids=True),
    ):  # fmt: skip
        circuit = cirq.Circuit(operation, cirq.measure(B, key="b"))
        mine, theirs = MINE.run(circuit, repetitions=2000), THEIRS.run(circuit, repetitions=40)
        assert {key: value.shape[1:] for key, value in mine.records.items()} == {
            key: value.shape[1:] for key, value in theirs.records.items()
        }
        outcomes = [value for key, value in mine.records.items() if key != "b"]
        near([value.mean(axis=0) for value in outcomes], 0.5, 0.08)
        # Every measurement of 1 has flipped the last qubit.
        np.testing.assert_array_equal(sum([value.sum(axis=1) for value in outcomes]) % 2, mine.records["b"][:, 0])


def test_loops_record_every_round():
    inside = cirq.FrozenCircuit(cirq.H(A), cirq.measure(A, key="m"))
    until = cirq.KeyCondition(cirq.MeasurementKey("m"))
    loop = cirq.CircuitOperation(inside, use_repetition_ids=False, repeat_until=until)
    records = MINE.run(cirq.Circuit(loop, cirq.measure(A, key="n")), repetitions=300).records
    assert records["n"].all() and (records["m"].sum(axis=1) == 1).all() and records["m"].shape[1] > 3
    # The one is in the round that ended it, after zeros.
    assert abs((records["m"][:, 0, 0]).mean() - 0.5) < 0.15


# --- Seeds and options ---


def seeds():
    yield from (5, 2**80, np.int64(7))
    yield from (np.random.RandomState(3), np.random.default_rng(3), np.random.SeedSequence(3))


def test_seeds():
    circuit = cirq.Circuit(cirq.H.on_each(*Q), cirq.measure(*Q, key="m"))
    noisy = cirq.Circuit(cirq.H.on_each(*Q), cirq.depolarize(0.3).on_each(*Q), cirq.measure(*Q, key="m"))
    for program in (circuit, noisy):
        for first, second in zip(seeds(), seeds()):
            one, other = VelacamplixSimulator(seed=first, threads=1), VelacamplixSimulator(seed=second)
            for _ in range(2):
                assert one.run(program, repetitions=20) == other.run(program, repetitions=20)
        again = VelacamplixSimulator(seed=5)
        assert again.run(program, repetitions=20) != again.run(program, repetitions=20)
    assert VelacamplixSimulator(seed=np.random).run(circuit).records["m"].shape == (1, 1, 4)
    steps = [[VelacamplixSimulator(seed=seed).simulate(circuit).measurements["m"].tolist() for seed in (4, 4)] for _ in range(2)]
    assert steps[0][0] == steps[0][1] == steps[1][0]


def test_options_are_refused_by_name():
    with refused(ValueError, "dtype must be a complex type but was"):
        VelacamplixSimulator(dtype=np.int32)
    with refused(ValueError, "complex64 or numpy.complex128"):
        VelacamplixSimulator(dtype=np.clongdouble)
    with refused(ValueError, "threads"):
        VelacamplixSimulator(threads=0)
    with refused(TypeError, "fusion"):
        VelacamplixSimulator(fusion=1)
    with refused(ValueError, "seed"):
        VelacamplixSimulator(seed=-1)
    with refused(TypeError, "split_untangled_states"):
        VelacamplixSimulator(split_untangled_states=True)
    with refused(ValueError, "repetitions"):
        MINE.run(cirq.Circuit(cirq.measure(A)), repetitions=-1)
    with refused(ValueError, "initial_state"):
        MINE.simulate(cirq.Circuit(cirq.X(A)), initial_state=2)
    with refused(ValueError, "density matrix"):
        MINE.simulate(cirq.Circuit(cirq.X(A)), initial_state=np.eye(2) / 2)
    for call in (MINE.run, MINE.simulate, lambda p: MINE.simulate_expectation_values(p, cirq.Z(A))):
        with refused(TypeError, "program must be a cirq.Circuit"):
            call(None)
    with refused(ValueError, "qubits"):
        MINE.simulate_expectation_values(cirq.Circuit(cirq.X(A)), cirq.Z(B))
    with refused(ValueError, "permit_terminal_measurements"):
        MINE.simulate_expectation_values(cirq.Circuit(cirq.measure(A)), cirq.Z(A))


@pytest.mark.parametrize("call", ["run", "simulate"])
def test_qudits_are_refused(call):
    qutrit = cirq.LineQid(0, 3)
    with refused(NotConverted, "no qudits", "q(0) (d=3)"):
        getattr(MINE, call)(cirq.Circuit(cirq.measure(qutrit)))


# --- Noise ---


def models():
    yield cirq.depolarize(0.05)
    yield cirq.amplitude_damp(0.1)
    yield cirq.ConstantQubitNoiseModel(cirq.bit_flip(0.1))
    yield cirq.devices.InsertionNoiseModel({cirq.OpIdentifier(cirq.CXPowGate): cirq.depolarize(0.2, 2).on(*Q[:2])})


@pytest.mark.parametrize("model", range(4))
def test_noise_models(model):
    noise = list(models())[model]
    circuit = cirq.Circuit(cirq.rx(0.7)(A), cirq.CNOT(A, B), cirq.X(C) ** 0.3, cirq.CNOT(A, B), cirq.T(B))
    exact = cirq.DensityMatrixSimulator(noise=noise, dtype=np.complex128)
    mine = VelacamplixSimulator(noise=noise, seed=2)
    observables = [cirq.Z(A) * cirq.Z(B), cirq.Y(A), cirq.X(C) + 0.5]
    near(*[simulator.simulate_expectation_values(circuit, observables) for simulator in (mine, exact)])
    # Not beside what Cirq samples, which has the noise that comes after the last measurement in it.
    found = shares(circuit + cirq.Moment(cirq.measure(A, B, key="m")), mine)
    wanted = exact.simulate(circuit, qubit_order=Q[:3]).final_density_matrix.diagonal().real.reshape(4, 2).sum(axis=1)
    near([found.get((value,), 0.0) for value in range(4)], wanted, 0.04)
    states = [mine.simulate(circuit).final_state_vector for _ in range(150)]
    mean = np.mean([np.outer(state, state.conj()) for state in states], axis=0)
    near(mean, exact.simulate(circuit).final_density_matrix, 0.25)
    assert mine.noise is not None


@pytest.mark.parametrize(
    "noise",
    [
        cirq.depolarize(0.3), cirq.bit_flip(0.2), cirq.phase_flip(0.3), cirq.amplitude_damp(0.4), cirq.phase_damp(0.4),
        cirq.generalized_amplitude_damp(0.3, 0.6), cirq.asymmetric_depolarize(0.1, 0.2, 0.3), cirq.ResetChannel(),
        cirq.KrausChannel(cirq.kraus(cirq.amplitude_damp(0.2))), cirq.X.with_probability(0.3),
        cirq.MixedUnitaryChannel([(0.3, cirq.unitary(cirq.H)), (0.7, cirq.unitary(cirq.T))]),
    ],
    ids=str,
)  # fmt: skip
def test_channels(noise):
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B), cirq.rx(0.4)(B), noise.on(A), cirq.ry(0.8)(A), cirq.CZ(A, B), cirq.H(B))
    exact = cirq.DensityMatrixSimulator(dtype=np.complex128, seed=2)
    observables = [cirq.Z(A) * cirq.Z(B), cirq.Y(A), cirq.X(B)]
    near(*[simulator.simulate_expectation_values(circuit, observables) for simulator in (MINE, exact)])
    agree(circuit + cirq.measure(A, B, key="m"), theirs=exact)
    values = [
        [cirq.PauliSum.wrap(one).expectation_from_state_vector(result.final_state_vector, result.qubit_map).real for one in observables]
        for result in [MINE.simulate(circuit) for _ in range(100)]
    ]
    near(np.mean(values, axis=0), exact.simulate_expectation_values(circuit, observables), 0.5)


def test_sweeps_with_noise():
    noisy = VelacamplixSimulator(noise=cirq.bit_flip(0.2), seed=3)
    circuit = cirq.Circuit(cirq.X(A) ** T, cirq.measure(A, key="m"))
    results = noisy.run_sweep(circuit, cirq.Points("t", [0, 1]), repetitions=4000)
    # Noise after the gate, and after the measurement, which nobody sees.
    near([result.records["m"].mean() for result in results], [0.2, 0.8], 0.04)
    near(noisy.simulate_expectation_values_sweep(circuit[:-1], cirq.Z(A), cirq.Points("t", [0, 1])), [[0.6], [-0.6]])


# --- Steps ---


def test_steps():
    circuit = cirq.testing.random_circuit(Q[:3], 8, 0.8, random_state=2)
    for mine, theirs in zip(MINE.simulate_moment_steps(circuit), THEIRS.simulate_moment_steps(circuit), strict=True):
        near(mine.state_vector(copy=True), theirs.state_vector(copy=True))
        near(mine.density_matrix_of([B]), theirs.density_matrix_of([B]))
        assert mine.sample([B, A], repetitions=3).shape == theirs.sample([B, A], repetitions=3).shape == (3, 2)
        assert isinstance(mine, cirq.SparseSimulatorStep)


def test_steps_collapse_and_record():
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B), cirq.measure(A, key="m"), cirq.X(C).with_classical_controls("m"))
    seen = set()
    for _ in range(20):
        steps = list(MINE.simulate_moment_steps(circuit))
        (bit,) = steps[-1].measurements["m"]
        near(np.abs(steps[-1].state_vector()), np.eye(8)[7 * bit])
        assert steps[-1].sample_measurement_ops([cirq.measure(A, C, key="k")], repetitions=2)["k"].tolist() == [[bit, bit]] * 2
        seen.add(bit)
    assert seen == {0, 1}


def test_operations_act_on_states_of_steps():
    *_, step = MINE.simulate_moment_steps(cirq.Circuit(cirq.H(A), cirq.I(B)))
    state = step._simulator_state()
    assert isinstance(state, VelacamplixSimulationState)
    copied = state.copy()
    for operation in (cirq.CNOT(A, B), cirq.measure(A, B, key="m"), cirq.amplitude_damp(1.0)(A), cirq.reset(B)):
        cirq.act_on(operation, state)
    first, second = state.log_of_measurement_results["m"]
    assert first == second
    near(state.target_tensor.ravel().__abs__(), [1, 0, 0, 0])
    near(copied.target_tensor.ravel(), [np.sqrt(0.5), 0, np.sqrt(0.5), 0])
    assert copied.sample([A], repetitions=20, seed=1).shape == (20, 1) and not copied.log_of_measurement_results
    with refused(TypeError, "has no q(0) (d=3)"):
        cirq.act_on(cirq.MatrixGate(np.eye(3), qid_shape=(3,)).on(cirq.LineQid(0, 3)), state)


def test_expectation_values_of_moments():
    circuit = cirq.Circuit(cirq.H(A), cirq.Moment(cirq.CNOT(A, B)), cirq.Moment(cirq.rx(T)(B)))
    observables = [cirq.Z(A) * cirq.Z(B), cirq.X(A)]
    resolver = {"t": 0.4}
    wanted = [
        [
            cirq.PauliSum.wrap(one).expectation_from_state_vector(step.state_vector(), {B: 0, A: 1}).real
            for one in observables
        ]
        for step in THEIRS.simulate_moment_steps(circuit, resolver, [B, A], 1)
    ]
    near(MINE.simulate_moment_expectation_values(circuit, observables, resolver, [B, A], 1), wanted)
    near(
        MINE.simulate_moment_expectation_values(circuit, {2: observables[0], 0: [observables[1]]}, resolver, [B, A], 1),
        [[wanted[0][1]], [wanted[2][0]]],
    )
    with refused(IndexError, "a moment"):
        MINE.simulate_moment_expectation_values(circuit, {3: cirq.Z(A)}, resolver)
    with refused(ValueError, "no noise"):
        VelacamplixSimulator(noise=cirq.bit_flip(0.1)).simulate_moment_expectation_values(circuit, cirq.Z(A), resolver)
