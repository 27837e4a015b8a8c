"""Runs by trajectories: held against a literal sum over Kraus operators, and the same however shots are made."""

import contextlib
import warnings

import numpy as np
import pytest
from kraus_sums import by_outcome, density, random_noisy_steps

from velacamplix import Channel, Circuit, DensityMatrix, NoiseModel, Observable, Readout, Result, StateVector, run
from velacamplix.instructions.instruction import Instruction
from velacamplix.machine import limits
from velacamplix.running import trajectories

NOISE = (
    NoiseModel()
    .after(["rx", "rz"], Channel.depolarizing(0.02))
    .after("cx", Channel.depolarizing(0.05, 2))
    .after("cx", Channel.amplitude_damping(0.1))
)


def layers(n_qubits, count=2):
    circuit = Circuit(n_qubits)
    for layer in range(count):
        for qubit in range(n_qubits):
            circuit.rx(0.3 + 0.7 * qubit + layer, qubit).rz(0.2 + 0.4 * qubit - layer, qubit)
        for qubit in range(layer % 2, n_qubits - 1, 2):
            circuit.cx(qubit, qubit + 1)
    return circuit


def by_trajectories(circuit, shots, seed=1, **options):
    return run(circuit, shots=shots, seed=seed, method="trajectories", **options)


def exact_values(steps, n_qubits, observables):
    rho = density(steps, n_qubits)
    return np.array([(Observable(one).to_matrix(n_qubits) @ rho).trace().real for one in observables])


def literal_probabilities(circuit):
    groups = by_outcome(circuit.instructions, circuit.n_qubits)
    return {format(bits, f"0{circuit.n_clbits}b")[::-1]: rho.trace().real for bits, rho in groups.items()}


def check_counts(circuit, shots=4000, **options):
    """Every outcome comes as often as the literal sum says, within five standard deviations."""
    expected = literal_probabilities(circuit)
    counts = by_trajectories(circuit, shots, **options).counts
    assert set(counts) <= {outcome for outcome, p in expected.items() if p > 1e-12}
    for outcome, p in expected.items():
        assert abs(counts.get(outcome, 0) - shots * p) <= 5 * np.sqrt(shots * p * (1 - p)) + 1e-6, outcome


# --- Against the exact values ---


def test_means_of_100_seeds_are_within_their_errors():
    observables = ["Z0", "X1 Y2", "Z0 Z1 Z2", "Y0 + 0.5*X2"]
    steps = NOISE.apply(layers(3)).instructions
    expected = exact_values(steps, 3, observables)
    circuit = NOISE.apply(layers(3))
    outside = 0
    for seed in range(100):
        result = by_trajectories(circuit, 200, seed, observables=observables)
        off = np.abs(result.expectation_values - expected) / result.standard_errors
        assert off.max() < 4.5, seed
        outside += int((off > 2).sum())
    # 4.6 % of normal means are outside of two standard errors; those of one seed depend on each other.
    assert 2 <= outside <= 45


def test_errors_shrink_as_they_say():
    circuit = NOISE.apply(layers(3))
    few, many = [by_trajectories(circuit, shots, observables="Z0 Z1") for shots in (100, 10_000)]
    assert few.standard_errors / many.standard_errors == pytest.approx(10, rel=0.4)


@pytest.mark.filterwarnings("ignore:after")
@pytest.mark.parametrize("circuit", [layers(2), Circuit(2, 1).h(0).measure(0, 0).cx(0, 1)])
def test_one_shot_tells_no_error(circuit, tmp_path):
    one = by_trajectories(circuit, 1, noise=NOISE, observables="Z0")
    assert np.isnan(one.standard_errors) and np.isfinite(one.expectation_values)
    several = by_trajectories(circuit, 1, noise=NOISE, observables=["Z0", "Z1"])
    several.save(tmp_path / "one.npz")
    assert np.isnan(Result.load(tmp_path / "one.npz").standard_errors).tolist() == [True, True]
    assert np.isfinite(by_trajectories(circuit, 2, noise=NOISE, observables="Z0").standard_errors)


@pytest.mark.parametrize("seed", range(6))
def test_any_channels(seed):
    rng = np.random.default_rng(seed)
    circuit = Circuit(4)
    for step in random_noisy_steps(rng, 4, 14):
        circuit.append(step)
    observables = ["Z0", "X1", "Y2 Z3", "X0 Y1 Z2 X3"]
    expected = exact_values(circuit.instructions, 4, observables)
    result = by_trajectories(circuit, 1500, seed, observables=observables)
    off = np.abs(result.expectation_values - expected)
    assert np.all(off <= 4.5 * result.standard_errors + 1e-9)


@pytest.mark.parametrize(
    "channel", [
        Channel.amplitude_damping(0.3), Channel.amplitude_damping(1.0), Channel.reset(1.0), Channel.reset(0.3, 0.2),
        Channel.generalized_amplitude_damping(0.4, 0.3), Channel.thermal_relaxation(50, 60, 20, 0.1),
        Channel.thermal_relaxation(50, 90, 20), Channel.bit_flip(1.0), Channel.bit_flip(0.7), Channel.depolarizing(4 / 3),
        Channel.coherent(np.array([[0, 1], [1j, 0]])),
    ], ids=str,
)  # fmt: skip
def test_outcomes_of_one_channel(channel):
    circuit = Circuit(2, 2).ry(0.8, 0).cx(0, 1).rx(0.4, 0).channel(channel, 0).h(1).channel(channel, 1).cx(1, 0)
    check_counts(circuit.measure([0, 1], [0, 1]))


def test_qubit_order_of_a_channel():
    # X on the channel's qubit 1, for letters and for matrices.
    flip = np.kron([[0, 1], [1, 0]], np.eye(2))
    damp = np.kron(np.diag([1, 0.6]), np.eye(2)), np.kron([[0, 0.8], [0, 0]], np.eye(2))
    for channel in (Channel.pauli({"IX": 1.0}), Channel.coherent(flip)):
        assert by_trajectories(Circuit(3).channel(channel, [2, 0]), 10).counts == {"100": 10}
    state = Circuit(3).x(0).x(2).channel(Channel.from_kraus(damp), [2, 0])
    assert by_trajectories(state, 2000).counts["001"] == pytest.approx(1280, abs=100)


def test_nothing_and_everything_happens():
    quiet = NoiseModel().after("cx", Channel.depolarizing(0.0, 2)).after("h", Channel.amplitude_damping(0.0))
    bell = Circuit(2).h(0).cx(0, 1)
    result = by_trajectories(bell, 500, noise=quiet, observables=["Z0 Z1", "X0 X1"])
    assert result.plan.trajectories == 1
    assert result.expectation_values == pytest.approx([1, 1])
    assert result.standard_errors.tolist() == [0, 0]
    # With noise that is none, shots are still keyed.
    assert np.array_equal(result.shots, by_trajectories(bell, 500).shots)
    certain = NoiseModel().after("cx", Channel.bit_flip(1.0), qubits=[(0, 1)])
    result = by_trajectories(bell, 500, noise=certain)
    assert result.plan.trajectories == 1 and set(result.counts) == {"00", "11"}


# --- The same shots however they are made ---


@pytest.mark.parametrize("precision", ["double", "single"])
def test_threads_and_sharing_change_nothing(monkeypatch, precision):
    circuit = layers(5, 3)
    options = {"noise": NOISE, "precision": precision, "observables": ["Z0", "X1 X2"]}
    first = by_trajectories(circuit, 300, threads=1, **options)
    assert 1 < first.plan.trajectories < 300
    monkeypatch.setattr(trajectories, "SHARES_PREFIXES", False)
    alone = by_trajectories(circuit, 300, threads=1, **options)
    monkeypatch.undo()
    others = [by_trajectories(circuit, 300, threads=count, **options) for count in (2, 8)]
    for other in [alone, *others]:
        assert np.array_equal(other.shots, first.shots)
        assert np.array_equal(other.expectation_values, first.expectation_values)
        assert np.array_equal(other.standard_errors, first.standard_errors)
        assert other.plan.trajectories == first.plan.trajectories


@pytest.mark.parametrize("method", ["exact", "trajectories"])
@pytest.mark.parametrize("in_the_middle", [False, True])
def test_shots_can_be_split(method, in_the_middle):
    circuit = Circuit(3, 3).h(0).cx(0, 1).cx(1, 2)
    if in_the_middle:
        circuit.measure(0, 0).h(0)
        with circuit.when("c", 1):
            circuit.x(1)
    circuit.measure([0, 1, 2], [0, 1, 2])
    noise = NoiseModel().after("cx", Channel.depolarizing(0.05, 2)).after("h", Channel.reset(0.1)).readout(0.1, 0.2)
    options = {"seed": 5, "noise": noise, "method": method}
    whole = run(circuit, shots=60, **options).shots
    parts = [run(circuit, shots=count, first_shot=first, **options).shots for first, count in ((0, 1), (1, 22), (23, 37))]
    assert np.array_equal(np.concatenate(parts), whole)
    assert not np.array_equal(run(circuit, shots=60, first_shot=2**40, **options).shots, whole)


def test_seeds_differ():
    shots = [by_trajectories(layers(4), 50, seed, noise=NOISE).shots.tolist() for seed in (1, 2, 1)]
    assert shots[0] == shots[2] != shots[1]


def test_many_shots():
    result = by_trajectories(layers(3), 200_000, noise=NOISE)
    assert len(result.shots) == 200_000 and result.counts.shots == 200_000
    assert result.plan.trajectories < 20_000


# --- Readout errors, and what stands in the middle ---


def test_readout_errors():
    circuit = Circuit(3, 70).h(0).cx(0, 1).measure([0, 1, 2], [69, 0, 33])
    noise = NoiseModel().readout(0.1, 0.25, qubits=0).readout(0.5, 0.0, qubits=2)
    result = by_trajectories(circuit, 8000, noise=noise)
    assert result.plan.trajectories == 1
    bits = result.bits
    first, second, idle = bits[:, 69], bits[:, 0], bits[:, 33]
    assert abs(first[second == 0].mean() - 0.1) < 0.03 and abs(1 - first[second == 1].mean() - 0.25) < 0.03
    assert abs(idle.mean() - 0.5) < 0.03
    assert not bits[:, [i for i in range(70) if i not in (0, 33, 69)]].any()


def test_shots_that_nothing_misreads_are_told():
    noise, bell = NoiseModel().readout(0.1, 0.2, qubits=1), Circuit(2).h(0).cx(0, 1)
    with pytest.warns(UserWarning, match="but circuit measures nothing, so its shots are read without errors") as caught:
        assert set(run(bell, shots=100, seed=1, noise=noise).counts) == {"00", "11"}
    assert [warning.filename for warning in caught] == [__file__]
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert run(bell, observables="Z0 Z1", noise=noise).expectation_values == pytest.approx(1)
        assert len(run(bell.copy().measure_all(), shots=100, seed=1, noise=noise).counts) > 2
        run(bell, shots=100, noise=NoiseModel().readout(0.0, 0.0).readout(0.1, 0.2, qubits=2))


def test_threads_share_the_state_of_shots_that_are_only_misread():
    circuit = layers(15, 1)
    circuit.measure_all()
    noise = NoiseModel().readout(0.02, 0.05)
    counts = [by_trajectories(circuit, 700, noise=noise, threads=threads).counts for threads in (1, 2, 5, 1)]
    assert counts[1:] == counts[:1] * 3
    assert counts[0] != by_trajectories(circuit, 700, noise=NoiseModel()).counts


def test_a_circuit_is_prepared_once_for_a_model(monkeypatch):
    prepared = []
    init = trajectories.PreparedTrajectories.__init__
    monkeypatch.setattr(trajectories.PreparedTrajectories, "__init__", lambda *args: prepared.append(1) or init(*args))
    circuit, other = layers(3), NOISE.readout(0.1, 0.1)
    first = by_trajectories(circuit, 50, noise=NOISE).counts
    assert by_trajectories(circuit, 50, noise=NOISE).counts == first
    assert len(prepared) == 1
    circuit.x(0)
    fresh = layers(3).x(0)
    assert by_trajectories(circuit, 50, noise=NOISE).counts == by_trajectories(fresh, 50, noise=NOISE).counts != first
    circuit.measure_all()
    fresh.measure_all()
    misread = by_trajectories(circuit, 50, noise=other).counts
    assert misread == by_trajectories(fresh, 50, noise=other).counts != by_trajectories(circuit, 50, noise=NOISE).counts


def test_warnings_come_with_every_run():
    circuit, noise = Circuit(2).h(0), NoiseModel().after("cx", Channel.bit_flip(0.1)).readout(0.1, 0.1)
    for _ in range(2):
        with pytest.warns(UserWarning) as told:
            run(circuit, shots=5, noise=noise)
        assert ["found nothing" in str(told[0].message), "measures nothing" in str(told[1].message)] == [True, True]
        assert {warning.filename for warning in told} == {__file__}
        with pytest.warns(UserWarning, match="found nothing") as told:
            run(circuit, observables="Z0", noise=noise)
        assert len(told) == 1


def test_the_last_reading_of_a_bit_counts():
    misread = Instruction("measure", (0,), clbits=(0,), detail=Readout(((1.0, 0.0),)))
    circuit = Circuit(2, 1).append(misread).x(1).measure(1, 0)
    assert by_trajectories(circuit, 20).counts == {"1": 20}
    circuit = Circuit(2, 1).x(1).measure(1, 0).append(misread)
    assert by_trajectories(circuit, 20).counts == {"1": 20}
    circuit = Circuit(2, 1).append(misread).measure(1, 0)
    assert by_trajectories(circuit, 20).counts == {"0": 20}


def in_the_middle():
    misread = NoiseModel().readout(0.2, 0.3)
    teleported = Circuit(3, 3).ry(1.1, 0).h(1).cx(1, 2).cx(0, 1).h(0).measure([0, 1], [0, 1])
    with teleported.when(1, 1):
        teleported.x(2)
    with teleported.when(0, 1):
        teleported.z(2)
    teleported.measure(2, 2)
    again = Circuit(1, 2).h(0).measure(0, 0).reset(0).ry(0.4, 0).measure(0, 1)
    loop = Circuit(2, 2).h(0).measure(0, 0)
    loop.while_((0, 0), lambda body: body.h(0).measure(0, 0))
    loop.ry(0.5, 1).measure(1, 1)
    idle = Circuit(2, 2).measure(0, 0)
    with idle.when(0, 1):
        idle.x(1)
    idle.measure(1, 1)
    noise = NOISE.after("ry", Channel.amplitude_damping(0.3)).after("reset", Channel.bit_flip(0.1))
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return {
            "teleported": noise.apply(teleported), "teleported and misread": misread.apply(noise.apply(teleported)),
            "again": misread.apply(noise.apply(again)), "loop": noise.apply(loop), "idle": misread.apply(idle),
        }  # fmt: skip


@pytest.mark.parametrize("name", ["teleported", "teleported and misread", "again", "loop", "idle"])
def test_measurements_in_the_middle(name):
    circuit = in_the_middle()[name]
    check_counts(circuit, 1500)


@pytest.mark.parametrize("precision", ["double", "single"])
@pytest.mark.parametrize("name", ["teleported", "teleported and misread", "again", "loop", "idle"])
def test_shots_in_company_are_what_they_are_alone(monkeypatch, name, precision):
    circuit = in_the_middle()[name]
    options = {"observables": ["Z0", f"Z{circuit.n_qubits - 1}"], "precision": precision, "first_shot": 2**40}
    together = by_trajectories(circuit, 80, **options)
    monkeypatch.setattr(trajectories.memory, "fits", lambda size: False)
    alone = by_trajectories(circuit, 80, **options)
    assert alone.plan.trajectories == 80 > together.plan.trajectories
    assert (together.shots == alone.shots).all()
    assert together.expectation_values.tobytes() == alone.expectation_values.tobytes()
    assert together.standard_errors.tobytes() == alone.standard_errors.tobytes()
    parts = [by_trajectories(circuit, count, **{**options, "first_shot": 2**40 + first}) for first, count in ((0, 33), (33, 47))]
    assert (np.concatenate([part.shots for part in parts]) == together.shots).all()


def test_shots_share_the_way_to_what_parts_them():
    assert by_trajectories(Circuit(2, 1).h(0).measure(0, 0).reset(0), 500).plan.trajectories == 2
    assert by_trajectories(Circuit(1, 1).measure(0, 0).x(0).reset(0), 500).plan.trajectories == 1
    rare = NoiseModel().after("cx", Channel.depolarizing(0.001, 2))
    few = by_trajectories(Circuit(3, 2).h(0).cx(0, 1).cx(1, 2).measure(1, 0).reset(1).measure(2, 1), 2000, noise=rare)
    assert 2 < few.plan.trajectories < 15


def test_observables_of_shots_that_go_their_own_way():
    circuit = Circuit(2, 1).ry(1.0, 0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.ry(0.7, 1)
    noise = NoiseModel().after("ry", Channel.amplitude_damping(0.3))
    noisy = noise.apply(circuit)
    groups = by_outcome(noisy.instructions, 2)
    expected = (Observable("Z1 + 0.3*X1").to_matrix(2) @ sum(groups.values())).trace().real
    result = by_trajectories(noisy, 1500, observables="Z1 + 0.3*X1")
    assert abs(result.expectation_values - expected) < 4 * result.standard_errors
    assert 4 < result.plan.trajectories < 1500


def test_terms_on_measured_qubits_warn():
    circuit = Circuit(1, 1).h(0).channel(Channel.bit_flip(0.1), 0).measure(0, 0)
    with pytest.warns(UserWarning, match="count 0 on qubits that are measured") as caught:
        result = by_trajectories(circuit, 10, observables="X0")
    assert result.expectation_values == 0 and caught[0].filename == __file__


def test_rules_that_find_nothing_warn_here():
    with pytest.warns(UserWarning, match="found nothing to stand beside") as caught:
        run(Circuit(1).h(0), shots=10, noise=NOISE)
    assert caught[0].filename == __file__


# --- What is asked for and refused ---


def test_the_plan_tells_what_was_taken():
    small = run(layers(3), shots=10_000, seed=1, noise=NOISE)
    large = run(layers(13, 1), shots=3, seed=1, noise=NOISE)
    assert (small.plan.method, large.plan.method) == ("exact", "trajectories")
    assert small.plan.trajectories is None and 1 <= large.plan.trajectories <= 3
    exact, shot_by_shot = large.plan.methods
    assert (exact.name, shot_by_shot.name) == ("exact", "trajectories")
    assert exact.seconds > shot_by_shot.seconds > 0 and exact.bytes == 16 * 4**13
    assert "trajector" in str(large.plan) and "density matrix" in str(small.plan)
    assert "exact" in large.plan._repr_html_()
    assert run(layers(3), observables="Z0", noise=NOISE).plan.method == "exact"
    ideal = run(layers(3), shots=10)
    assert ideal.plan.method == "statevector" and ideal.standard_errors is None


def test_exact_and_trajectories_agree():
    circuit = layers(4)
    exact = run(circuit, shots=2000, seed=1, noise=NOISE, method="exact", observables=["Z0", "X1 X2"])
    assert exact.standard_errors.tolist() == [0, 0]
    shots = by_trajectories(circuit, 2000, noise=NOISE, observables=["Z0", "X1 X2"])
    assert np.all(np.abs(exact.expectation_values - shots.expectation_values) < 4.5 * shots.standard_errors)


def test_initial_states():
    circuit = Circuit(2).cx(0, 1).channel(Channel.bit_flip(1.0), 0)
    assert by_trajectories(circuit, 5, initial="10").counts == {"01": 5}
    assert by_trajectories(circuit, 5, initial=StateVector(2).x(0)).counts == {"01": 5}
    assert by_trajectories(Circuit(2), 5, initial="10").counts == {"10": 5}
    mixed = DensityMatrix(2)
    assert run(circuit, shots=5, initial=mixed).plan.method == "exact"
    with pytest.raises(ValueError, match='initial must be a pure state for method="trajectories"'):
        by_trajectories(circuit, 5, initial=mixed)


def test_without_noise_nothing_changes():
    circuit = layers(3)
    plain = run(circuit, shots=50, seed=3).shots
    state = StateVector(3, seed=3).run(circuit)
    assert np.array_equal(plain, state.sample(50))


@pytest.mark.parametrize(
    "options, error, message",
    [
        ({"first_shot": 3}, ValueError, "first_shot must be left out without noise"),
        ({"first_shot": -1, "noise": NOISE}, ValueError, "first_shot must be"),
        ({"first_shot": 0.5, "noise": NOISE}, TypeError, "first_shot must be"),
        ({"fusion": True, "method": "trajectories"}, ValueError, "fusion must be False"),
        ({"method": "density"}, ValueError, "method must be one of"),
        ({"method": None}, TypeError, "method must be one of"),
        ({"method": "trajectories", "shots": None}, ValueError, "shots must be given"),
        ({"noise": 0.1}, TypeError, "noise must be a NoiseModel"),
        ({"noise": NOISE.to_dict()}, TypeError, "NoiseModel.from_dict reads a dictionary"),
        ({"first_shot": 3, "noise": NOISE, "shots": None}, ValueError, "first_shot must be left out without shots, got 3"),
        ({"initial": np.eye(4) / 4}, ValueError, "DensityMatrix.from_array makes a state of the matrix"),
    ],
)
def test_what_has_no_meaning_is_refused(options, error, message):
    with pytest.raises(error, match=message):
        run(layers(2), **{"shots": 10, **options})


def test_there_is_no_final_state():
    result = by_trajectories(layers(2), 10, noise=NOISE)
    assert not result.has_state
    with pytest.raises(RuntimeError, match="one with noise"):
        result.statevector()


def test_a_state_without_norm_is_refused():
    circuit = Circuit(1).matrix(np.zeros((2, 2)), 0, check=False).channel(Channel.amplitude_damping(0.5), 0)
    with pytest.raises(ValueError):
        by_trajectories(circuit, 10)
    assert by_trajectories(layers(1), 3).n_shots == 3


def test_a_result_can_be_kept(tmp_path):
    for method in ("exact", "trajectories"):
        result = run(layers(2), shots=10, seed=1, noise=NOISE, method=method, observables=["Z0", "Z1"])
        result.save(tmp_path / "kept.npz")
        again = Result.load(tmp_path / "kept.npz")
        assert again.plan == result.plan and again.counts == result.counts
        assert np.array_equal(again.standard_errors, result.standard_errors)


def test_progress_is_told_and_ends_the_run():
    told = []
    circuit = layers(14, 2)
    by_trajectories(circuit, 20, noise=NOISE, progress=told.append)
    assert told[-1].done == told[-1].total == 20

    def stop(progress):
        raise KeyError("enough")

    with pytest.raises(KeyError, match="enough"):
        by_trajectories(circuit, 100_000, noise=NOISE, progress=stop)


def test_memory_is_asked_for(monkeypatch):
    with pytest.raises(MemoryError, match="shots="):
        by_trajectories(layers(2), 10**13, noise=NOISE)
    with pytest.raises(MemoryError, match="trajectories"):
        run(layers(20, 1), noise=NOISE, observables="Z0", method="exact")
    asked = []
    monkeypatch.setattr(trajectories.memory, "require_bytes", lambda needed, what: asked.append(needed))
    by_trajectories(layers(5), 10, noise=NOISE, threads=3)
    assert 2 * 3 * 16 * 2**5 in asked


def test_states_are_asked_for_before_there_are_any(monkeypatch, capfd):
    there_are = limits.Memory(free=2**22 * 3, available=2**22 * 3, limit=None)  # three states of 18 qubits
    monkeypatch.setattr(limits, "memory", lambda root="/": there_are)
    noisy = Circuit(19, 1).h(range(19)).channel(Channel.bit_flip(0.1), 0)
    needs = "a run by trajectories, of 2 states of 19 qubits at a time, needs 16.0 MiB; 12.0 MiB are available"
    with pytest.raises(MemoryError, match=needs):
        by_trajectories(noisy, 1)
    with pytest.raises(MemoryError, match=needs):
        by_trajectories(noisy.measure(0, 0).h(0), 1)
    with pytest.raises(MemoryError, match="of 32 states of 17 qubits at a time, needs 64.0 MiB"):
        by_trajectories(layers(17, 1), 100, noise=NOISE, threads=16)
    assert capfd.readouterr() == ("", "")
    # Where nothing happens there is one.
    misread = NoiseModel().readout(0.1, 0.1).apply(Circuit(19, 1).h(range(19)).measure(0, 0))
    assert by_trajectories(misread, 5).n_shots == 5


def test_what_the_core_has_no_memory_for_is_told(monkeypatch):
    class Full:
        def run(self, *_):
            raise MemoryError("std::bad_alloc")

    found = trajectories.PreparedTrajectories(NOISE.apply(layers(2)), (), "double")
    monkeypatch.setattr(found, "whole", Full())
    monkeypatch.setattr(trajectories, "_prepared", lambda *_: contextlib.nullcontext(found))
    with pytest.raises(MemoryError, match="trajectories of 2 qubits, shots=10 and threads=1: .* fewer threads, or jobs"):
        by_trajectories(NOISE.apply(layers(2)), 10, threads=1)
