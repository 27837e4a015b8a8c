"""What is saved on the way: exact where one group of shots comes by, the mean otherwise; and it changes nothing."""

import json
import math
import pickle
import random
import warnings

import numpy as np
import numpy_outcomes as exact
import pytest

from velacamplix import Circuit, Observable, Parameter, Saved, StateVector, run
from velacamplix.running import saved as _saved

N = 3


def layer(circuit, seed):
    choose = random.Random(seed)
    for qubit in range(circuit.n_qubits):
        circuit.u(choose.uniform(0, 3), choose.uniform(0, 3), choose.uniform(0, 3), qubit)
    return circuit.cx(0, 1).rzz(0.4, 1, 2)


# What comes back


def test_a_state_is_that_at_its_place(precision):
    first, second = layer(Circuit(N), 1), layer(Circuit(N), 2)
    result = run(first.copy().save_state("between").compose(second).save_state("end"), precision=precision)
    between, end = result.saved["between"], result.saved["end"]
    assert between.array.tobytes() == StateVector(N, precision).run(first).array.tobytes()
    assert end.array.tobytes() == result.state.array.tobytes()
    # Copies: what is done to one is not done to the other.
    end.x(0)
    assert end.array.tobytes() != result.state.array.tobytes()
    assert result.saved["end"] is end and result.saved["between"].precision == precision


def test_probabilities_and_expectation_values_are_those_of_the_state(precision):
    circuit = layer(Circuit(N), 1)
    state = StateVector(N, precision).run(circuit)
    observable = Observable("0.5*X0 Y2 - Z1 + 3")
    circuit.save_probabilities("all").save_probabilities("some", [2, 0]).save_expectation("energy", observable)
    circuit.save_expectation("complex", [(1j, "Z", [0]), (2, "", [])]).save_expectation("constant", "2.5")
    saved = run(layer(circuit, 2), precision=precision).saved
    assert saved["all"].tobytes() == state.distribution().tobytes()
    assert saved["some"].tobytes() == state.distribution([2, 0]).tobytes()
    assert saved["energy"] == state.expectation(observable) and type(saved["energy"]) is float
    assert saved["complex"] == 1j * state.expectation("Z0") + 2
    assert saved["constant"] == 2.5


def test_idle_qubits_are_0():
    circuit = Circuit(40).h(20).save_probabilities("p", [3, 20, 39]).save_expectation("e", "X20 + Z1 + X2")
    saved = run(circuit.save_state("s")).saved
    assert saved["p"].round(6).tolist() == [0.5, 0, 0.5, 0, 0, 0, 0, 0]
    assert saved["e"] == pytest.approx(2)
    with pytest.raises(RuntimeError, match="all 40 qubits.*at most 24: for 's', save_probabilities and save_expectation"):
        saved["s"]
    small = run(Circuit(5).x(1).x(3).save_state("s")).saved
    assert small["s"].to_dict() == {"01010": 1} and small["s"] is small["s"]


def test_names():
    saved = run(Circuit(2).save_state("ü b").save_probabilities("p").save_expectation("2", "Z0")).saved
    assert list(saved) == ["ü b", "p", "2"] and len(saved) == 3 and "p" in saved and "q" not in saved
    assert repr(saved) == "<Saved: 'ü b' (state), 'p' (4 probabilities), '2' (1.0)>"
    assert repr(run(Circuit(1)).saved) == "<Saved: nothing>" and isinstance(saved, Saved)
    with pytest.raises(KeyError, match=r"name must be that of a save, one of \['ü b', 'p', '2'\], got 'q'"):
        saved["q"]
    with pytest.raises(KeyError, match="of which the circuit has none, got 0"):
        run(Circuit(1)).saved[0]


@pytest.mark.parametrize(
    "circuit",
    [
        Circuit(1).save_state("a").save_probabilities("a"),
        Circuit(1).save_state("a") * 2,
        Circuit(1, 1).save_state("a").if_((0, 0), lambda c: c.save_state("b"), lambda c: c.save_state("a")),
    ],
)
def test_a_name_stands_once(circuit):
    with pytest.raises(ValueError, match=r"names of what is saved must be distinct, got 'a' twice; the second is .*save"):
        run(circuit)


def test_results_are_pickled_with_what_is_saved():
    circuit = Circuit(2, 1).h(0).save_state("s").save_probabilities("p").measure(0, 0).save_state("no").h(0).measure(0, 0)
    result = run(circuit, shots=10, seed=1)
    again = pickle.loads(pickle.dumps(result))
    assert again.saved["s"].array.tobytes() == result.saved["s"].array.tobytes()
    assert again.saved["p"].tolist() == result.saved["p"].tolist() and repr(again.saved) == repr(result.saved)


def test_numbers_become_json():
    circuit = Circuit(1, 1).save_state("s").save_expectation("z", "Z0").save_expectation("i", [(1j, "Z", [0])])
    circuit.save_probabilities("p").if_((0, 1), lambda c: c.save_probabilities("never"))
    told = run(circuit).to_dict()
    assert json.loads(json.dumps(told))["saved"] == {"z": 1.0, "i": {"real": 0.0, "imag": 1.0}, "p": [1.0, 0.0]}
    assert "saved" not in run(Circuit(1)).to_dict()


# It changes nothing


def random_circuit(seed, saves):
    """The same circuit with saves anywhere, or without."""
    choose = random.Random(seed)
    n, m = 3, 3
    circuit = Circuit(n, m)

    def save(at):
        kind = choose.randrange(8)
        if not saves or kind > 2:
            return
        if kind == 0:
            at.save_state(f"s{len(labels)}")
        elif kind == 1:
            at.save_probabilities(f"p{len(labels)}", choose.sample(range(n), 2))
        else:
            at.save_expectation(f"e{len(labels)}", "Z0 X1 + 0.5*Y2 Z1 + Z0")
        labels.append(kind)

    labels = []
    for _ in range(22):
        state = choose.getstate()
        save(circuit)
        choose.setstate(state)
        kind, qubit = choose.randrange(9), choose.randrange(n)
        if kind < 3:
            circuit.u(choose.uniform(0, 3), choose.uniform(0, 3), 0.2, qubit)
        elif kind == 3:
            circuit.cx(*choose.sample(range(n), 2))
        elif kind == 4:
            circuit.reset(qubit)
        elif kind < 8:
            count = choose.randint(1, 2)
            circuit.measure(choose.sample(range(n), count), choose.sample(range(m), count))
        else:
            bodies = []
            for _ in range(2):
                body = Circuit(n, m).ry(choose.uniform(0, 3), qubit)
                inner = choose.getstate()
                save(body)
                choose.setstate(inner)
                bodies.append(body.measure(choose.randrange(n), choose.randrange(1, m)).h(qubit))
            circuit.if_((0, 1), *bodies)
    return circuit.measure(0, 0)


@pytest.mark.parametrize("seed", range(40))
def test_with_saves_or_without_all_shots_are_the_same(seed, precision):
    with_saves, without = (random_circuit(seed, saves) for saves in (True, False))
    assert len([step for step in with_saves if step.name != "save"]) == len(without)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", UserWarning)
        one, other = (run(c, shots=200, seed=seed, precision=precision, observables="X0 Z1 + Y2") for c in (with_saves, without))
    assert (one.shots == other.shots).all() and one.expectation_values == other.expectation_values
    assert one.has_state == other.has_state
    if one.has_state:
        assert one.state.array.tobytes() == other.state.array.tobytes()


@pytest.mark.parametrize("shots", [None, 100])
def test_measurements_that_wait_still_wait(shots):
    # A save behind a measurement sees it, and yet it is read in the end.
    circuit = layer(Circuit(N, N), 1)
    plain = circuit.copy().measure(range(N), range(N))
    circuit.measure([0, 1], [0, 1]).save_probabilities("p").save_expectation("z", "Z0 Z1").measure(2, 2)
    one, other = run(circuit, shots=shots, seed=1), run(plain, shots=shots, seed=1)
    assert one.has_state and one.state.array.tobytes() == other.state.array.tobytes()
    assert one.outcomes() == other.outcomes()
    assert one.saved["p"].tobytes() == other.state.distribution().tobytes()


def test_fused_runs_agree_up_to_rounding():
    circuit = layer(layer(Circuit(N), 1).save_state("s").save_expectation("e", "X0 Y1"), 2)
    exact_run, fused = run(circuit), run(circuit, fusion=True)
    assert np.abs(exact_run.saved["s"].array - fused.saved["s"].array).max() < 1e-14
    assert exact_run.saved["e"] == pytest.approx(fused.saved["e"], abs=1e-14)


# Where outcomes have parted the shots


def test_means_are_weighted_by_shots():
    circuit = Circuit(2, 2).ry(1.0, 0).measure(0, 0).if_((0, 1), lambda c: c.x(1)).save_probabilities("p", [0, 1])
    circuit.save_expectation("e", "Z1").save_expectation("x", "X0").h(0).measure(0, 1)
    result = run(circuit, shots=1000, seed=4)
    ones = result.counts.marginal(0)["1"]
    assert result.saved["p"] == pytest.approx([1 - ones / 1000, 0, 0, ones / 1000], abs=1e-14)
    assert result.saved["e"] == pytest.approx(1 - 2 * ones / 1000, abs=1e-14)
    assert result.saved["x"] == pytest.approx(0, abs=1e-14)


def conditional():
    """Saves in bodies, behind resets, loops and measurements that part the shots."""
    circuit = Circuit(3, 3).ry(1.0, 0).cx(0, 1).ry(0.7, 2).measure(0, 0).save_probabilities("first", [0, 1, 2])
    circuit.if_(
        (0, 1), lambda c: c.ry(0.3, 2).save_probabilities("yes", [0, 1, 2]), lambda c: c.save_expectation("no", "Z2 + X2")
    )
    circuit.reset(1).rx(0.8, 1).cx(1, 2).measure(2, 1)
    circuit.while_((1, 0), lambda c: c.ry(0.9, 2).measure(2, 1)).save_expectation("last", "Z1 + 2*Y1 + Z0")
    return circuit.h(0).measure(0, 2)


def test_means_approach_those_over_all_outcomes():
    saved, shots = run(conditional(), shots=40_000, seed=2).saved, 40_000
    vectors = exact.saved_vectors(conditional())
    for name, letters in (("no", {"Z2": 1, "X2": 1}), ("last", {"Z1": 1, "Y1": 2, "Z0": 1})):
        norm = sum(np.vdot(v, v).real for v in vectors[name])
        value = sum(np.vdot(v, observed(v, letters)).real for v in vectors[name]) / norm
        assert saved[name] == pytest.approx(value, abs=5 * 4 / math.sqrt(shots))
    for name in ("first", "yes"):
        # Outcomes have qubit 0 first, indices of vectors have it lowest.
        shares = sum(np.abs(v.reshape(2, 2, 2).transpose()) ** 2 for v in vectors[name]).reshape(-1)
        assert saved[name] == pytest.approx(shares / shares.sum(), abs=5 / math.sqrt(shots))
    # The first measurement has its own save in front, so that this one is exact.
    shares = sum(np.abs(v.reshape(2, 2, 2).transpose()) ** 2 for v in vectors["first"]).reshape(-1)
    assert saved["first"] == pytest.approx(shares, abs=1e-14)


def observed(vector, letters):
    total = 0
    for name, weight in letters.items():
        state = StateVector(3)
        state.array[:] = vector
        getattr(state, name[0].lower())(int(name[1]))
        total = total + weight * state.array.copy()
    return total


def test_a_state_is_there_only_if_it_is_one():
    circuit = Circuit(2, 2).h(0).save_state("before").measure(0, 0).save_state("measured").if_(
        (0, 1), lambda c: c.save_state("one").x(1), lambda c: c.x(0).save_state("zero")
    )
    circuit.save_state("after")
    saved = run(circuit.h(0), shots=100, seed=1).saved
    assert saved["before"].probability("1", 0) == pytest.approx(0.5)
    assert saved["one"].to_dict() == {"10": pytest.approx(1)} and saved["zero"].to_dict() == {"10": pytest.approx(1)}
    with pytest.raises(RuntimeError, match="'measured': there is no one state: qubit 0 has been measured before, with more"):
        saved["measured"]
    with pytest.raises(RuntimeError, match="'after': there is no one state: the shots that come there differ.*Save before"):
        saved["after"]
    assert repr(saved).endswith("'after' (no one state)>")


def test_certain_outcomes_leave_one_state():
    circuit = Circuit(2, 2).x(0).measure([0, 1], [0, 1]).save_state("s").if_((0, 1), lambda c: c.h(1)).save_state("t")
    for shots in (None, 5):
        saved = run(circuit, shots=shots).saved
        assert saved["s"].to_dict() == {"10": 1} and saved["t"].probability("1", 1) == pytest.approx(0.5)


def test_what_no_shot_came_to_is_not_there():
    circuit = Circuit(1, 1).measure(0, 0).if_((0, 1), lambda c: c.save_state("s").save_probabilities("p"))
    with circuit.when(0, 1):
        circuit.save_expectation("e", "Z0")
    saved = run(circuit).saved
    for name in "spe":
        with pytest.raises(RuntimeError, match=f"'{name}': no shot came to where it is saved"):
            saved[name]
    assert repr(saved) == "<Saved: 's' (nothing), 'p' (nothing), 'e' (nothing)>"


def test_x_and_y_on_measured_qubits_count_0_and_a_warning_says_so():
    circuit = Circuit(2, 2).h(0).h(1).save_expectation("before", "X0 + X1").measure(0, 0).save_expectation("e", "X0 + X1")
    with pytest.warns(UserWarning, match="saved 'e': terms with X or Y count 0 on qubits that have been measured, here 0") as told:
        saved = run(circuit.measure(1, 1)).saved
    assert saved["before"] == pytest.approx(2) and saved["e"] == pytest.approx(1)
    assert len(told) == 1 and told[0].filename == __file__


# Parameters, memory


def test_circuits_of_one_template_save_their_own():
    a = Parameter("a")
    circuit = Circuit(1).ry(a, 0).save_expectation("z", "Z0").ry(a, 0).save_state("s")
    for angle in (0.1, 0.7, 2.0):
        saved = run(circuit.bind([angle])).saved
        assert saved["z"] == pytest.approx(math.cos(angle)) and saved["s"].expectation("Z0") == pytest.approx(math.cos(2 * angle))


def test_memory_is_asked_for_before_the_run_begins():
    for circuit in (Circuit(45).h(0).save_probabilities("p"), Circuit(45).h(0).save_state("s").save_probabilities("p")):
        told = []
        with pytest.raises(MemoryError, match="what the circuit saves, .*'p'"):
            run(circuit, progress=told.append)
        assert not told


def test_memory_is_asked_for_all_that_is_saved_together(monkeypatch, precision):
    asked = {}
    monkeypatch.setattr(_saved.memory, "require_bytes", lambda needed, what, root="/": asked.setdefault(what, needed))
    circuit = Circuit(5).h(1).save_state("a").h(3).save_state("b").save_probabilities("c", [0, 1, 2])
    run(circuit, precision=precision)
    each = {"single": 8, "double": 16}[precision]
    assert asked["what the circuit saves, 'a', 'b', 'c'"] == 2 * 4 * each + 8 * 8
