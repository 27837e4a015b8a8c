"""What is saved on the way of a run with noise: mixtures in exact runs, means over shots by trajectories."""

import copy
import pickle

import numpy as np
import pytest
from kraus_sums import by_outcome, density, random_noisy_steps, random_program

from velacamplix import Channel, Circuit, DensityMatrix, NoiseModel, Observable, Parameter, Result, StateVector, run
from velacamplix.running import saved as _saved

N = 3
OBSERVABLE = Observable("0.5*X0 Y2 - Z1 + X1 + 3")
DAMPING = Channel.amplitude_damping(0.3)


def value_of(rho, observable=OBSERVABLE):
    return (observable.to_matrix(N) @ rho).trace().real


def share_of(rho, qubits):
    """The probabilities of the outcomes of qubits, the first the highest bit."""
    shares = np.zeros(2 ** len(qubits))
    for i, share in enumerate(rho.diagonal().real):
        shares[sum((i >> qubit & 1) << len(qubits) - 1 - j for j, qubit in enumerate(qubits))] += share
    return shares


def with_saves(circuit, places, kinds=("state", "probabilities", "expectation")):
    """The circuit with saves in front of the instructions with these numbers."""
    made = Circuit(circuit.n_qubits, circuit.n_clbits)
    for i, step in enumerate([*circuit, None]):
        if i in places:
            if "state" in kinds:
                made.save_state(f"s{i}")
            made.save_probabilities(f"p{i}", [2, 0]).save_expectation(f"e{i}", OBSERVABLE)
        if step is not None:
            made.append(step)
    return made


def noisy(seed, length=12):
    circuit = Circuit(N, N)
    for step in random_noisy_steps(np.random.default_rng(seed), N, length):
        circuit.append(step)
    return circuit


def check(saved, i, rho, tolerance):
    if f"s{i}" in saved:
        state = saved[f"s{i}"]
        assert type(state) is DensityMatrix and np.abs(state.array - rho).max() < tolerance
    assert np.abs(saved[f"p{i}"] - share_of(rho, [2, 0])).max() < tolerance
    assert abs(saved[f"e{i}"] - value_of(rho)) < 10 * tolerance


# --- Against literal sums over Kraus operators ---


@pytest.mark.parametrize("seed", range(2))
def test_gates_and_channels(seed):
    circuit = noisy(seed)
    places = [0, 3, 7, len(circuit)]
    saved = run(with_saves(circuit, places), method="exact").saved
    assert list(saved) == [f"{kind}{i}" for i in places for kind in "spe"]
    for i in places:
        check(saved, i, density(list(circuit)[:i], N), 1e-13)
    seen = run(with_saves(circuit, places, kinds=()), shots=600, seed=seed, method="trajectories").saved
    for i in places:
        check(seen, i, density(list(circuit)[:i], N), 0.1)


@pytest.mark.filterwarnings("ignore:saved")
@pytest.mark.parametrize("seed", [0, 1, 2, 3, 5, 8, 9])
def test_measurements_misreadings_decisions_and_loops(seed):
    """The mean over all outcomes before, each measurement of which has been made, whoever reads it."""
    circuit = random_program(np.random.default_rng(seed), N)
    places = range(len(circuit) + 1)
    saved = run(with_saves(circuit, places), method="exact").saved
    for i in places:
        rho = sum(by_outcome(list(circuit)[:i], N).values())
        check(saved, i, rho / rho.trace().real, 1e-12)


@pytest.mark.filterwarnings("ignore:saved")
@pytest.mark.parametrize("seed", range(2))
def test_means_over_shots_that_go_their_own_way(seed):
    circuit = random_program(np.random.default_rng(seed), N)
    places = [len(circuit) // 2, len(circuit)]
    seen = run(with_saves(circuit, places, kinds=()), shots=600, seed=1, method="trajectories").saved
    for i in places:
        rho = sum(by_outcome(list(circuit)[:i], N).values())
        assert np.abs(seen[f"p{i}"] - share_of(rho, [2, 0])).max() < 0.1
        assert abs(seen[f"e{i}"] - value_of(rho)) < 0.4


def test_saves_on_a_condition_tell_of_those_that_meet_it():
    circuit = Circuit(2, 2).h(0).cx(0, 1).channel(DAMPING, 1).measure(0, 0).h(0)
    with circuit.when(0, 1):
        circuit.save_state("s").save_expectation("e", "Z1 + 2").save_probabilities("p", [1])
    with circuit.when(1, 1):
        circuit.save_probabilities("never")
    exact = run(circuit, method="exact").saved
    assert exact["s"].trace() == pytest.approx(1) and exact["s"].purity() == pytest.approx(0.58)
    assert exact["e"] == pytest.approx(1.6) and exact["p"] == pytest.approx([0.3, 0.7])
    without = Circuit(2, 2).extend([step for step in circuit if step.name != "save" or step.detail.kind != "state"])
    shots = run(without, shots=1500, seed=1, method="trajectories").saved
    assert shots["e"] == pytest.approx(1.6, abs=0.12) and shots["p"] == pytest.approx([0.3, 0.7], abs=0.06)
    for saved in exact, shots:
        with pytest.raises(RuntimeError, match="'never': no shot came to where it is saved"):
            saved["never"]


def test_states_whose_norm_waits_to_be_divided_out():
    """Decay without a jump shrinks a trajectory's state until its norm is asked for."""
    circuit = Circuit(1).x(0)
    for i in range(5):
        circuit.channel(DAMPING, 0).save_probabilities(f"p{i}")
    for method, shots, off in (("exact", None, 1e-14), ("trajectories", 1500, 0.06)):
        saved = run(circuit, method=method, shots=shots, seed=3).saved
        for i in range(5):
            assert saved[f"p{i}"] == pytest.approx([1 - 0.7 ** (i + 1), 0.7 ** (i + 1)], abs=off)
            assert saved[f"p{i}"].sum() == pytest.approx(1, abs=1e-12)


# --- What it is, and how it is kept ---


def test_idle_qubits_are_0():
    circuit = Circuit(40).h(20).channel(DAMPING, 20).save_probabilities("p", [3, 20]).save_expectation("e", "X20 + Z1 + X2")
    saved = run(circuit.save_state("s"), method="exact").saved
    assert saved["p"].round(6).tolist() == [0.65, 0.35, 0, 0] and saved["e"] == pytest.approx(1 + np.sqrt(0.7))
    with pytest.raises(RuntimeError, match="all 40 qubits.*at most 12: for 's', save_probabilities and save_expectation"):
        saved["s"]
    small = Circuit(4).h(3).channel(DAMPING, 3).cx(3, 1)
    (state,) = run(small.copy().save_state("s"), method="exact").saved.values()
    assert np.abs(state.array - DensityMatrix(4).run(small).array).max() < 1e-15


@pytest.mark.parametrize("again", [copy.copy, copy.deepcopy, lambda result: pickle.loads(pickle.dumps(result)), "file"])
def test_results_are_kept_with_it(again, tmp_path):
    result = run(with_saves(noisy(1), [2, 5]), shots=5, seed=1, method="exact", precision="single")
    if again == "file":
        result.save(tmp_path / "saved.npz")
        other = Result.load(tmp_path / "saved.npz")
    else:
        other = again(result)
    assert repr(other.saved) == repr(result.saved) and "'s2' (density matrix)" in repr(result.saved)
    assert list(other.saved.numbers()) == ["p2", "e2", "p5", "e5"] == list(other.to_dict()["saved"])
    for name, value in result.saved.items():
        one = value.array if isinstance(value, DensityMatrix) else np.asarray(value)
        two = other.saved[name]
        assert one.tobytes() == (two.array if isinstance(two, DensityMatrix) else np.asarray(two)).tobytes()


def test_exact_runs_give_the_same_with_saves_or_without():
    circuit = random_program(np.random.default_rng(5), N).measure_all()
    asked = {"shots": 100, "seed": 3, "method": "exact"}
    with_some = run(with_saves(circuit, [1, 2]), **asked)
    assert np.array_equal(with_some.shots, run(circuit, **asked).shots)


def test_in_many_runs():
    circuit = Circuit(1).ry(Parameter("a"), 0).channel(DAMPING, 0).save_expectation("z", "Z0")
    for method, shots in ("exact", None), ("trajectories", 10):
        batch = run(circuit, values={"a": [0.0, np.pi]}, method=method, shots=shots)
        assert batch[0].saved["z"] == pytest.approx(1)
    assert run([circuit.bind(a=np.pi)], method="exact")[0].saved["z"] == pytest.approx(-0.4)


def test_what_measured_qubits_lose_is_told():
    circuit = Circuit(1, 1).h(0).channel(DAMPING, 0).measure(0, 0).save_expectation("x", "X0")
    for method in "exact", "trajectories":
        with pytest.warns(UserWarning, match="saved 'x': terms with X or Y count 0 .* measured, here 0") as caught:
            assert run(circuit, shots=5, method=method).saved["x"] == 0
        assert len(caught) == 1 and caught[0].filename == __file__


# --- What is refused ---


def test_states_are_refused_by_trajectories_with_the_way_out():
    circuit = Circuit(1).h(0).channel(DAMPING, 0).save_state("here").save_state("there")
    with pytest.raises(ValueError, match=r"instruction 2 \(save state 'here'\) finds no state by trajectories.*method=\"exact\""):
        run(circuit, shots=10, method="trajectories")
    noise = NoiseModel().after("h", Channel.bit_flip(1e-9))
    result = run(Circuit(9).h(list(range(9))).save_state("all"), noise=noise, shots=1)
    assert result.plan.method == "exact"
    assert result.saved["all"].fidelity(StateVector(9).h(range(9))) == pytest.approx(1)


@pytest.mark.parametrize("method", ["exact", "trajectories"])
def test_a_name_stands_once(method):
    circuit = Circuit(1).channel(DAMPING, 0).save_probabilities("a").save_expectation("a", "Z0")
    with pytest.raises(ValueError, match="names of what is saved must be distinct, got 'a' twice"):
        run(circuit, shots=3, method=method)


def test_memory_is_asked_for(monkeypatch):
    asked = {}
    monkeypatch.setattr(_saved.memory, "require_bytes", lambda needed, what, root="/": asked.setdefault(what, needed))
    run(Circuit(2).h([0, 1]).channel(DAMPING, 0).save_state("s").save_probabilities("p"), method="exact")
    assert asked["what the circuit saves, 's', 'p'"] == 16 * 16 + 8 * 4
