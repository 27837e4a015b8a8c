"""Many runs in one call: each is that of a run of its own, bit for bit, for any number of threads."""

import copy
import pickle
import signal
import threading
import time
import warnings
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from itertools import combinations
from xml.etree import ElementTree

import numpy as np
import pytest
from children import in_child

from velacamplix import BatchResult, Circuit, GateDefinition, Parameter, ParameterVector, Result, StateVector, run
from velacamplix.core import extension
from velacamplix.machine import limits
from velacamplix.running import batch as _batch

THREADS = (1, 2, 8)


def ansatz(n, name="a"):
    """A circuit whose every layer has parameters, some of them in sums."""
    parameters = [Parameter(f"{name}{i}") for i in range(3)]
    circuit = Circuit(n, n)
    for layer in range(3):
        for qubit in range(n):
            circuit.ry(parameters[layer] * (qubit + 1), qubit).rz(parameters[(layer + 1) % 3] + 0.25, qubit)
        for qubit in range(n - 1):
            circuit.cx(qubit, qubit + 1)
    return circuit.u(parameters[0], parameters[1], -parameters[2], 0)


def some_circuits():
    """Circuits of every kind: sampled in the end, branching, with idle qubits, without gates, and twice the same."""
    template = ansatz(4).measure([0, 1, 2, 3], [3, 2, 1, 0])
    bound = [template.bind([0.1 * i, 0.3, -0.2 * i]) for i in range(5)]
    coin = Circuit(2, 2).h(0).measure(0, 0)
    with coin.when("c", 1):
        coin.x(1)
    coin.ry(0.3, 1).measure(1, 1)
    never = Circuit(2, 1)
    with never.when("c", 1):
        never.h([0, 1])
    tries = Circuit(2, 1).ry(0.8, 0).measure(0, 0)
    tries.while_(tries.bits("c") == 0, Circuit(2, 1).ry(0.9, 0).measure(0, 0), max_iterations=200)
    tries.if_(tries.bits("c") == 1, Circuit(2).rx(0.3, 1))
    twice = Circuit(3, 4).h(0).cx(0, 2).measure([0, 2], [3, 0]).measure(0, 1)
    rewritten = Circuit(3, 1).h(0).ry(0.3, 2).measure(0, 0).measure(2, 0)
    wide = Circuit(70, 70).h(3).cx(3, 66).measure(list(range(70)), list(range(70)))
    return [
        *bound[:3],
        coin,
        never,
        twice,
        Circuit(3).h(1).ry(0.2, 2),
        bound[3],
        wide,
        Circuit(2),
        tries,
        Circuit(30, 1).rx(0.4, 20).measure(5, 0),
        twice,
        Circuit(5).h([0, 1, 2]).cx(0, 4).diagonal([1, 1j], 3),
        rewritten,
        ansatz(4, "b").bind([1.0, 2.0, 3.0]),
        bound[4],
        Circuit(2, 2).x(0).reset(0).h(0).measure([0, 1], [0, 1]),
        Circuit(4, 2).x(1).h(2).save_probabilities("p", [2]).measure([1, 2], [0, 1]),
    ]


def require_equal(one, other):
    """Two results, to the last bit: what they tell, their states, and the random numbers that would come next."""
    for name in ("n_qubits", "n_clbits", "n_bits", "active_qubits", "n_shots", "seed", "precision", "measured_bits"):
        assert getattr(one, name) == getattr(other, name)
    assert one.plan.gates == other.plan.gates
    told = [np.asarray(result.expectation_values) for result in (one, other)]
    assert type(one.expectation_values) is type(other.expectation_values)
    assert told[0].dtype == told[1].dtype and told[0].shape == told[1].shape
    assert told[0].dtype == object or told[0].tobytes() == told[1].tobytes()
    if one.n_shots is not None:
        assert one.shots.tolist() == other.shots.tolist()
        assert one.counts == other.counts and list(one.counts) == list(other.counts)
    assert one.outcomes() == other.outcomes()
    assert one.saved.numbers().keys() == other.saved.numbers().keys()
    for name, value in one.saved.numbers().items():
        assert np.asarray(value).tobytes() == np.asarray(other.saved[name]).tobytes()
    assert one.has_state == other.has_state
    if one.has_state:
        states = one.compact_state, other.compact_state
        assert states[0].array.tobytes() == states[1].array.tobytes()
        if one.n_shots is not None:
            assert states[0].seed == states[1].seed and (states[0].sample(20) == states[1].sample(20)).all()


@pytest.mark.parametrize("threads", THREADS)
def test_a_list_gives_what_its_circuits_give_one_by_one(threads, precision):
    circuits = some_circuits()
    asked = {"shots": 40, "precision": precision, "observables": ["Z0 Z1", "2*Z1 + 1", "1j*Z0 - 0.5"]}
    results = run(circuits, seed=9, threads=threads, **asked)
    seeds = np.random.SeedSequence(9).generate_state(len(circuits)).tolist()
    assert isinstance(results, list) and [result.seed for result in results] == seeds
    for circuit, seed, result in zip(some_circuits(), seeds, results):
        assert type(result) is Result and result.threads == threads
        require_equal(result, run(circuit, seed=seed, **asked))


@pytest.mark.parametrize("fusion", [False, True])
@pytest.mark.parametrize("threads", THREADS)
def test_sets_of_values_give_what_bound_circuits_give(threads, fusion, precision):
    circuit = ansatz(5).measure([0, 1, 2, 3], [4, 2, 1, 0])
    values = {"a0": np.linspace(-1, 1, 13), Parameter("a1"): 0.7, "a2": [0.1 * i for i in range(13)]}
    asked = {"observables": "Z0 Z1 + 0.5*Y4", "precision": precision, "fusion": fusion}
    results = run(circuit, values=values, shots=30, seed=3, threads=threads, **asked)
    assert isinstance(results, BatchResult) and len(results) == 13 and results.seed == 3
    assert results.seeds == tuple(np.random.SeedSequence(3).generate_state(13).tolist())
    for i, result in enumerate(results):
        bound = circuit.bind({"a0": values["a0"][i], "a1": 0.7, "a2": values["a2"][i]})
        require_equal(result, run(bound, shots=30, seed=results.seeds[i], **asked))
        assert results.values["a1"][i] == 0.7 and results.values["a2"][i] == values["a2"][i]
    assert results.expectation_values.tolist() == [result.expectation_values for result in results]
    assert results.counts == [result.counts for result in results]


@pytest.mark.parametrize("threads", THREADS)
def test_shots_are_those_of_each_state(threads):
    circuit = ansatz(5)
    read = [3, 0, 4, 1]
    measured = circuit.copy().measure(read, range(4)).measure(2, 4)
    values = {"a0": [0.4, 1.2, 2.0], "a1": 0.7, "a2": [0.1, 0.2, 0.3]}
    batch = run(measured, values=values, shots=500, seed=8, threads=threads)
    for i, result in enumerate(batch):
        state = StateVector(5, seed=batch.seeds[i]).run(circuit.bind([values["a0"][i], 0.7, values["a2"][i]]))
        assert state.array.tobytes() == result.state.array.tobytes()
        outcomes = state.sample(500, qubits=[*read, 2]).tolist()
        assert result.shots.tolist() == outcomes
        tally = Counter(format(outcome, "05b") for outcome in outcomes)
        assert result.counts == batch.counts[i] == tally and result.counts.shots == 500


@pytest.mark.parametrize("threads", THREADS)
def test_large_states_are_shared_by_all_threads(threads):
    circuit = ansatz(18)
    values = {"a0": [0.3, 1.1], "a1": 0.2, "a2": -0.4}
    results = run(circuit, values=values, shots=20, seed=5, threads=threads, observables="Z3 Z17")
    for i, result in enumerate(results):
        bound = circuit.bind([values["a0"][i], 0.2, -0.4])
        alone = run(bound, shots=20, seed=results.seeds[i], threads=1, observables="Z3 Z17")
        assert (result.shots == alone.shots).all() and result.expectation_values == alone.expectation_values
    first, second = run([circuit.bind([a, 0.2, -0.4]) for a in values["a0"]], seed=5, shots=20, threads=threads)
    assert first.counts == results[0].counts and second.counts == results[1].counts
    assert second.compact_state.array.tobytes() == alone.compact_state.array.tobytes()


@pytest.mark.parametrize(
    ("initial", "order"),
    [
        (6, None),
        ("01+-", "little"),
        ("0000", None),
        (np.arange(16) / np.sqrt(1240), "little"),
        (StateVector(4).h(2).cx(2, 0), None),
        (StateVector(4, precision="single").h(1), None),
    ],
    ids=str,
)
def test_every_member_starts_from_the_initial_state(initial, order):
    circuits = [Circuit(4).h(0), Circuit(4, 1).ry(0.4, 3).measure(3, 0), Circuit(4), Circuit(4, 1).h(1).measure(1, 0).h(1)]
    told = {"initial": initial, "initial_order": order, "shots": 15}
    for circuit, result in zip(circuits, run(circuits, seed=1, **told)):
        require_equal(result, run(circuit, seed=result.seed, **told))
    batch = run(Circuit(4).rx(Parameter("x"), 1), values={"x": [0.1, 0.2]}, seed=1, **told)
    for x, result in zip([0.1, 0.2], batch):
        require_equal(result, run(Circuit(4).rx(x, 1), seed=result.seed, **told))


def test_an_initial_state_that_changes_later_changes_no_result():
    amplitudes = np.array([0.6, 0.8j])
    state = StateVector(1).set_state(amplitudes, order="little")
    for initial, order in ((amplitudes, "little"), (state, None)):
        batch = run(Circuit(1).rz(Parameter("a"), 0), values={"a": [0.5]}, initial=initial, initial_order=order)
        expected = run(Circuit(1).rz(0.5, 0), initial=initial, initial_order=order).state.array.tolist()
        if initial is state:
            state.x(0)
        else:
            amplitudes[:] = [1, 0]
        assert batch[0].state.array.tolist() == expected


def test_seeds_come_from_that_of_the_batch():
    circuits = [Circuit(3).h([0, 1, 2])] * 4
    first = run(circuits, shots=20, seed=11)
    assert [result.seed for result in first] == np.random.SeedSequence(11).generate_state(4).tolist()
    assert len({tuple(result.shots.tolist()) for result in first}) == 4
    again = run(circuits[:2], shots=20, seed=11)
    assert [result.counts for result in again] == [result.counts for result in first[:2]]
    chosen = run(circuits[:1], shots=20), run(circuits[:1], shots=20)
    assert chosen[0][0].seed != chosen[1][0].seed
    by_generator = run(circuits[:2], shots=5, seed=np.random.default_rng(4))
    assert [result.seed for result in by_generator] == np.random.SeedSequence(
        int(np.random.default_rng(4).integers(2**32))
    ).generate_state(2).tolist()


def test_shapes_of_expectation_values():
    circuit = Circuit(2).ry(Parameter("a"), 0)
    angles = [0.0, np.pi / 2, np.pi]
    assert run(circuit, values={"a": angles}).expectation_values is None
    one = run(circuit, values={"a": angles}, observables="Z0")
    assert one.expectation_values.shape == (3,) and one.expectation_values.dtype == np.float64
    many = run(circuit, values={"a": angles}, observables=["Z0", "X0", "1j*Z1"])
    assert many.expectation_values.shape == (3, 3) and many.expectation_values.dtype == np.complex128
    assert many.expectation_values.round(9).tolist() == [[1, 0, 1j], [0, 1, 1j], [-1, 0, 1j]]
    assert run(circuit, values={"a": []}, observables=["Z0", "X0"]).expectation_values.shape == (0, 2)
    assert run(circuit, values={"a": np.zeros(0)}, observables="Z0", shots=3).expectation_values.shape == (0,)
    assert run([], shots=5, observables="Z3", initial="01") == [] and len(run(circuit, values={"a": []}, shots=4)) == 0


def test_a_batch_may_be_long():
    circuit, angles = Circuit(1).ry(Parameter("a"), 0), np.linspace(0, 3, 2100)
    told = []
    batch = run(circuit, values={"a": angles}, shots=1, seed=6, threads=2, observables="Z0", progress=told.append)
    assert np.allclose(batch.expectation_values, np.cos(angles), rtol=0, atol=1e-12)
    assert batch.seeds == tuple(np.random.SeedSequence(6).generate_state(2100).tolist())
    assert [one.done for one in told] == sorted(one.done for one in told) and told[-1].done == told[-1].total == 2100
    for i in (0, 1023, 1024, 2047, 2048, 2099):
        require_equal(batch[i], run(circuit.bind(a=angles[i]), shots=1, seed=batch.seeds[i], observables="Z0"))


def test_vectors_and_single_numbers_stand_for_sets():
    theta, phi = ParameterVector("theta", 2), Parameter("phi")
    circuit = Circuit(2).ry(theta[0], 0).ry(theta[1], 1).rz(phi, 0)
    rows = np.array([[0.1, 0.2], [0.3, 0.4], [0.5, 0.6]])
    batch = run(circuit, values={theta: rows, phi: 1}, observables=["Z0", "Z1"])
    assert batch.expectation_values.round(9).tolist() == np.cos(rows).round(9).tolist()
    assert list(batch.values) == ["theta[0]", "theta[1]", "phi"]
    batch = run(circuit, values={theta: (0.1, 0.2), "phi": np.arange(4, dtype=np.int8)}, observables="Z1")
    assert batch.expectation_values.round(9).tolist() == [np.cos(0.2).round(9)] * 4
    assert not batch.values["phi"].flags.writeable


def test_a_batch_is_a_sequence():
    batch = run(Circuit(1).rx(Parameter("a"), 0), values={"a": [0.1, 0.2, 0.3]}, shots=5, seed=2)
    assert batch[1] in batch and batch.index(batch[1]) == 1 and list(reversed(batch))[0] is batch[2]
    assert batch[-1] is batch[2] and batch[1:] == (batch[1], batch[2]) and list(batch)[0] is batch[0]
    with pytest.raises(IndexError):
        batch[3]
    assert repr(batch).startswith("<BatchResult: 3 sets of 1 number, seed 2, ")
    assert batch.timings.total == pytest.approx(sum(result.timings.total for result in batch))
    no_shots = run(Circuit(1).rx(Parameter("a"), 0), values={"a": [0.1]})
    assert no_shots.seeds is None and no_shots.seed is None and "no shots" in repr(no_shots)
    with pytest.raises(RuntimeError, match="there are no counts: run was called without shots"):
        no_shots.counts  # noqa: B018


@pytest.mark.parametrize("again", [lambda batch: pickle.loads(pickle.dumps(batch)), copy.deepcopy])
def test_copies_and_pickles_keep_everything(again):
    start = np.array([0.6, 0.8])
    circuit = Circuit(1).rx(Parameter("a"), 0)
    batch = run(circuit, values={"a": [0.1, 0.2]}, shots=7, seed=2, initial=start, initial_order="big", observables="Z0")
    other = again(batch)
    assert other.expectation_values.tolist() == batch.expectation_values.tolist() and other.seeds == batch.seeds
    assert copy.copy(batch)[1] is batch[1]
    for one, two in zip(batch, other):
        require_equal(one, two)


def test_results_of_sets_can_be_written_to_files(tmp_path):
    batch = run(Circuit(2).rx(Parameter("a"), 1), values={"a": [0.4]}, shots=7, seed=2)
    batch[0].save(tmp_path / "one.npz")
    read = Result.load(tmp_path / "one.npz")
    assert read.counts == batch[0].counts and read.state.array.tolist() == batch[0].state.array.tolist()


def test_states_are_made_when_they_are_asked_for(monkeypatch):
    batch = run(Circuit(2).rx(Parameter("a"), 1), values={"a": [0.4, 0.5]}, shots=7, seed=2)
    asked = []
    alone = _batch.run_alone
    monkeypatch.setattr(_batch, "run_alone", lambda *given: asked.append(given) or alone(*given))
    assert batch[1].has_state and batch[1].counts.shots == 7 and not asked
    assert batch[1].probability("00") == batch[1].probability("00") and batch[1].state is batch[1].state
    assert len(asked) == 1


def test_sets_of_a_circuit_that_branches():
    circuit = Circuit(2, 2).ry(Parameter("a"), 0).measure(0, 0)
    circuit.if_((0, 1), Circuit(2).ry(Parameter("b"), 1))
    circuit.measure(1, 1).save_probabilities("end", [0])
    values = {"a": [0.5, 1.5, 0.0], "b": 0.8}
    for threads in THREADS:
        batch = run(circuit, values=values, shots=100, seed=1, threads=threads, observables="Z1")
        for i, result in enumerate(batch):
            alone = run(circuit.bind([values["a"][i], 0.8]), shots=100, seed=batch.seeds[i], observables="Z1")
            require_equal(result, alone)
            assert result.saved["end"].tolist() == alone.saved["end"].tolist()
        assert not batch[0].has_state and batch[2].has_state


def test_parameters_that_are_no_angles():
    half = GateDefinition("half", Circuit(1).rx(Parameter("x") / 2, 0).h(0))
    circuit = Circuit(2).h(0).gate(half, 0, [Parameter("a")]).xx_plus_yy(Parameter("a"), 0.3, 0, 1)
    values = {"a": [0.1, 0.2, 0.3]}
    for threads in THREADS:
        batch = run(circuit, values=values, shots=20, seed=1, threads=threads)
        for a, result in zip(values["a"], batch):
            require_equal(result, run(circuit.bind([a]), shots=20, seed=result.seed))


@pytest.mark.parametrize(
    ("values", "error", "message"),
    [
        ([0.1], TypeError, r"values must be a mapping from names or parameters to arrays, got \[0.1\]"),
        ({"a": 0.1, "b": 0.2}, ValueError, r"values must hold at least one array.* run\(circuit.bind\(...\)\), got"),
        ({"a": [0.1]}, ValueError, "values must have numbers for every parameter of the circuit, got none for 'b'"),
        ({"a": [1], "b": 1, "c": 2}, ValueError, r"values must be for parameters of the circuit, one of \['a', 'b'\]; got 'c'"),
        ({"a": [1], Parameter("a"): 1, "b": 1}, ValueError, "values must give each parameter once, got 'a' twice"),
        ({"a": [1, 2], "b": [1, 2, 3]}, ValueError, "values must have as many numbers .*, got 2 for 'a' and 3 for 'b'"),
        ({"a": [[1, 2]], "b": 1}, ValueError, r"values\['a'\] must be a number or an array of one dimension, got shape \(1, 2\)"),
        ({"a": [[1], 2], "b": 1}, ValueError, r"values\['a'\] must be a number or an array of one dimension, got"),
        ({"a": [1, np.nan], "b": 1}, ValueError, r"values\['a'\] must hold finite numbers only, got \[1, nan\]"),
        ({"a": [1j], "b": 1}, TypeError, r"values\['a'\] must be .* of real numbers, got \[1j\]"),
        ({"a": "12", "b": 1}, TypeError, r"values\['a'\] must be .* of real numbers, got '12'"),
        ({"a": [True], "b": 1}, TypeError, r"values\['a'\] must be .* of real numbers, got \[True\]"),
        ({"a": [None, 1], "b": 1}, TypeError, r"values\['a'\]\[0\] must be a real number, got None"),
        ({"a": None, "b": [1]}, TypeError, r"values\['a'\] must be a real number, got None"),
        ({3: [1], "b": [1]}, TypeError, "values must have names or parameters as keys, got 3"),
        ({ParameterVector("a", 2): [[1]], "b": 1}, ValueError, r"values\['a'\] must be an array of shape \(number of sets, 2\)"),
    ],
    ids=str,
)
def test_wrong_values_are_refused(values, error, message):
    circuit = Circuit(1).rx(Parameter("a"), 0).rz(Parameter("b"), 0)
    with pytest.raises(error, match=message):
        run(circuit, values=values)


def test_other_wrong_arguments_are_refused():
    circuit = Circuit(1).rx(1 / Parameter("a"), 0)
    with pytest.raises(ValueError, match="set 1 of values: .*division by zero|set 1 of values: "):
        run(circuit, values={"a": [1, 0]})
    with pytest.raises(TypeError, match=r"circuit\[1\] must be a Circuit, got 'h'"):
        run([Circuit(1), "h"])
    with pytest.raises(TypeError, match="circuit must be a Circuit, got 'h'"):
        run("h")
    with pytest.raises(TypeError, match="values can be given for one circuit only, got them for a list of 2"):
        run([Circuit(1), Circuit(1)], values={})
    with pytest.raises(ValueError, match="parameters must have values"):
        run([Circuit(1), circuit])
    with pytest.raises(ValueError, match="observables must act on qubits below 1, those of the circuit"):
        run([Circuit(2), Circuit(1)], observables="Z1")
    with pytest.raises(ValueError, match="initial must be a state of 2 qubits"):
        run([Circuit(1), Circuit(2)], initial=StateVector(1))
    with pytest.raises(ValueError, match="shots must be given for this circuit"):
        run([Circuit(1), Circuit(1, 1).h(0).measure(0, 0).h(0)])
    with pytest.raises(ValueError, match="shots must be an integer from 1 to"):
        run([Circuit(1)], shots=0)
    with pytest.raises(TypeError, match="circuit must be a sequence of circuits|circuit must be a Circuit"):
        run({Circuit: 1})


@pytest.mark.parametrize("threads", THREADS)
def test_a_state_without_shots_to_draw_is_told_with_its_place(threads):
    nothing = Circuit(2).h(0).matrix(np.zeros((2, 2)), [1], check=False)
    circuits = [Circuit(2).h(0), Circuit(2).h(1), nothing, Circuit(2).h(1)]
    with pytest.raises(ValueError, match=r"there is nothing to draw from.*\n?This is about circuit\[2\]\."):
        run(circuits, shots=5, threads=threads)
    assert run(circuits, threads=threads)[2].compact_state.norm() == 0
    assert [result.counts.shots for result in run(circuits[:2], shots=5)] == [5, 5]


def test_a_batch_is_a_table():
    theta = ParameterVector("theta", 2)
    circuit = Circuit(2).ry(theta[0], 0).ry(theta[1], 1).rz(Parameter("seed"), 0)
    batch = run(circuit, values={theta: [[0, 1], [2, 3]], "seed": 4}, shots=5, seed=1, observables=["Z0", "X1"])
    assert list(batch.to_rows()[0]) == [
        "theta[0]", "theta[1]", "values['seed']", "seed", "expectation_values[0]", "expectation_values[1]"
    ]  # fmt: skip
    for i, row in enumerate(batch.to_rows()):
        assert list(row.values()) == [2.0 * i, 2.0 * i + 1, 4.0, batch.seeds[i], *batch.expectation_values[i]]
    frame = batch.to_frame()
    assert frame.shape == (2, 6) and frame.to_dict("records") == batch.to_rows()
    one = run(Circuit(1).ry(Parameter("a"), 0), values={"a": [0.5]}, observables="1j*Z0")
    assert one.to_rows() == [{"a": 0.5, "expectation_value": one.expectation_values[0]}]
    assert run(Circuit(1).ry(Parameter("a"), 0), values={"a": []}, shots=3).to_rows() == []


def test_a_batch_in_a_notebook():
    circuit = Circuit(1).ry(Parameter("<a>"), 0)
    batch = run(circuit, values={"<a>": np.arange(20)}, shots=5, seed=1, observables="Z0")
    page = ElementTree.fromstring(batch._repr_html_())
    cells = [["".join(cell.itertext()) for cell in row] for row in page.iter("tr")]
    assert "BatchResult: 20 sets of 1 number, seed 1" in "".join(page.itertext())
    assert cells[:2] == [["<a>", "seed", "expectation_value"], ["0", str(batch.seeds[0]), "1"]]
    assert len(cells) == 14 and cells[-1] == ["8 others", "", ""]
    many = run(ansatz_of_many(300), values={ParameterVector("v", 300): np.zeros((2, 300))})
    assert len(many._repr_html_()) < 4000
    ElementTree.fromstring(many._repr_html_())


def ansatz_of_many(count):
    circuit = Circuit(1)
    for parameter in ParameterVector("v", count):
        circuit.rx(parameter, 0)
    return circuit


def test_what_saves_lose_is_told_once():
    circuits = [Circuit(1, 1).ry(0.1 * i, 0).measure(0, 0).save_expectation("x", "X0") for i in range(3)]
    with pytest.warns(UserWarning, match="saved 'x': terms with X or Y count 0 on qubits .* measured, here 0;") as told:
        results = run(circuits)
    assert len(told) == 1 and told[0].filename == __file__
    assert [result.saved["x"] for result in results] == [0, 0, 0]
    swept = Circuit(1, 1).ry(Parameter("a"), 0).measure(0, 0).save_expectation("x", "X0")
    with pytest.warns(UserWarning, match="saved 'x'"):
        batch = run(swept, values={"a": [0.5, 0.6]})
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert batch[0].state.probability(1) > 0  # made anew, and told already


def test_measured_qubits_of_observables_are_told_once():
    circuits = [Circuit(2, 1).h(0).measure(0, 0), Circuit(2).h(0), Circuit(2, 2).h(1).measure(1, 0).x(0)]
    with pytest.warns(UserWarning, match="terms with X or Y count 0 .*, here 0, 1:") as told:
        results = run(circuits, observables="X0 + X1")
    assert len(told) == 1 and told[0].filename == __file__
    assert [round(result.expectation_values, 9) for result in results] == [0, 1, 0]


@pytest.mark.parametrize("threads", THREADS)
def test_progress_counts_runs(threads):
    told = []
    circuit = ansatz(8)
    values = {"a0": np.linspace(0, 1, 300), "a1": 0.1, "a2": 0.2}
    run(circuit, values=values, shots=10, threads=threads, progress=told.append)
    assert [one.done for one in told] == sorted(one.done for one in told) and told[-1].done == told[-1].total == 300
    told.clear()
    run(some_circuits(), shots=10, threads=threads, progress=told.append)
    assert told[-1].done == told[-1].total == len(some_circuits())

    def refuse(progress):
        raise KeyError("enough")

    with pytest.raises(KeyError, match="enough"):
        run(circuit, values=values, shots=10, threads=threads, progress=refuse)
    assert len(run(circuit, values=values, shots=10, threads=threads)) == 300  # as if nothing had been


class Rung(Exception):
    pass


@pytest.mark.parametrize("threads", THREADS)
@pytest.mark.parametrize("busy", ["gates", "shots", "terms", "one long run", "terms of a large state"])
def test_a_signal_ends_a_batch(threads, busy):
    circuit = ansatz(14)
    values = {"a0": np.linspace(0, 1, 5000), "a1": 0.1, "a2": 0.2}
    asked = {}
    if busy == "shots":
        circuit, values, asked = ansatz(3), {**values, "a0": [0.1, 0.2]}, {"shots": 2**25}
    elif busy == "terms":
        asked = {"observables": " + ".join(f"X{i} Y{j} Z{k}" for i in range(4) for j in range(4, 8) for k in range(8, 12))}
    elif busy == "terms of a large state":
        circuit, values = Circuit(20).rx(Parameter("a0"), 0).h(range(1, 20)), {"a0": [0.1]}
        asked = {"observables": " + ".join("X{} Y{} X{}".format(*qubits) for qubits in combinations(range(20), 3))}
    elif busy == "one long run":
        circuit, values = Circuit(17), {"a0": [0.1]}
        for i in range(20_000):
            circuit.ry(Parameter("a0") if i == 0 else 0.1 * i, i % 17)

    rang = []

    def ring(number, frame):
        rang.append(time.perf_counter())
        raise Rung

    def listen(progress):  # the core is at work
        if progress.done < progress.total and not rang and signal.getitimer(signal.ITIMER_REAL)[0] == 0:
            signal.setitimer(signal.ITIMER_REAL, 0.02)

    before = signal.signal(signal.SIGALRM, ring)
    try:
        with pytest.raises(Rung):
            run(circuit, values=values, threads=threads, progress=listen, **asked)
        late = time.perf_counter() - rang[0]
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert late < 5  # half a second, where nobody else wants the processors


def test_ctrl_c_tells_how_far_it_came():
    def interrupt(progress):
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt, match=r"stopped after \d+ of 3000 runs"):
        run(ansatz(13), values={"a0": np.linspace(0, 1, 3000), "a1": 0.1, "a2": 0.2}, progress=interrupt)


def batch_of(a):
    circuit = ansatz(9)
    return run(circuit, values={"a0": np.linspace(0, a, 40), "a1": 0.1, "a2": 0.2}, shots=50, seed=3, threads=2)


def test_forked_processes_run_batches():
    expected = batch_of(1.0).counts
    assert in_child(lambda: 0 if batch_of(1.0).counts == expected else 1) == 0
    assert batch_of(1.0).counts == expected


def test_threads_of_python_run_batches_of_one_circuit_at_once():
    circuit = ansatz(8)
    values = {"a0": np.linspace(0, 1, 60), "a1": 0.1, "a2": 0.2}
    expected = run(circuit, values=values, shots=50, seed=3).counts
    with ThreadPoolExecutor(4) as pool:
        found = list(pool.map(lambda threads: run(circuit, values=values, shots=50, seed=3, threads=threads), [1, 2, 3, 2]))
    assert [batch.counts for batch in found] == [expected] * 4


def test_threads_may_ask_for_one_state_at_once():
    batch = run(ansatz(10), values={"a0": [0.1], "a1": 0.1, "a2": 0.2})
    with ThreadPoolExecutor(8) as pool:
        found = list(pool.map(lambda _: batch[0].state.array.tobytes(), range(16)))
    assert len(set(found)) == 1


def test_other_threads_of_python_go_on_meanwhile():
    count, over = 0, threading.Event()

    def tick():
        nonlocal count
        while not over.wait(0.001):
            count += 1

    ticking = threading.Thread(target=tick)
    ticking.start()
    try:
        run(ansatz(12), values={"a0": np.linspace(0, 1, 400), "a1": 0.1, "a2": 0.2}, threads=1)
    finally:
        over.set()
        ticking.join()
    assert count > 3


@pytest.mark.parametrize(
    ("act", "what"),
    [
        (lambda: run([Circuit(2).h(0)] * 3, shots=2**40), "3 results of shots=1099511627776 each need"),
        (lambda: run(Circuit(1).rx(Parameter("a"), 0), values={"a": [1, 2]}, shots=2**40), "2 results of shots="),
        (lambda: run([Circuit(24).h(range(24))] * 2000), "a list of 1024 circuits, whose results keep their states,"),
    ],
)
def test_memory_is_asked_for_first(act, what):
    with pytest.raises(MemoryError, match=what):
        act()


def test_sets_of_large_states_need_no_more_than_one(monkeypatch):
    there_are = limits.Memory(free=2**22 * 3, available=2**22 * 3, limit=None)  # three states of 18 qubits
    monkeypatch.setattr(limits, "memory", lambda root="/": there_are)
    batch = run(Circuit(18).h(range(18)).rz(Parameter("a"), 0), values={"a": np.zeros(5)}, observables="X0")
    assert batch.expectation_values.round(9).tolist() == [1] * 5
    with pytest.raises(MemoryError, match="a list of 5 circuits, whose results keep their states,"):
        run([Circuit(18).h(range(18))] * 5)
    with pytest.raises(MemoryError, match="a batch of 200 circuits on 12 qubits, whose results keep their states,"):
        run([Circuit(12).h(range(12))] * 200)
    read = Circuit(1, 2).h(0).rz(Parameter("a"), 0).measure(0, 0)
    asked = {"values": {"a": np.zeros(100)}, "shots": 10_000}
    with pytest.raises(MemoryError, match="a batch of 100 circuits on 1 qubit with shots=10000 of each needs 15.3 MiB"):
        run(read.copy().measure(0, 1), **asked)  # read twice: the outcomes are put together
    assert len(run(Circuit(1, 1).rx(Parameter("a"), 0).measure(0, 0), **asked)) == 100


def test_what_the_core_is_given_fits_before_it_works():
    program = extension.ProgramDouble(2)
    state, small = extension.StateVectorDouble(2), extension.StateVectorDouble(1)
    outcomes, values = np.zeros((1, 3), dtype=np.uint64), np.zeros((1, 0), dtype=np.complex128)
    right = [[program], [], None, 1, None, [5], [[0]], outcomes, [[]], values, []]
    assert extension.run_batch(*right) == (1, None, None)
    one = extension.Observable([1], [0], [8], [0], 0, 4)
    wrong = {
        0: ([None], [program, program]),
        2: (np.zeros((2, 1)), np.zeros(3)),
        4: (small,),
        5: ([], [1, 2]),
        6: ([[2]], [[0], [1]]),
        7: (np.zeros((2, 3), dtype=np.uint64), np.zeros(3, dtype=np.uint64), np.zeros((1, 3))),
        8: ([], [[one]], [[], []], [[None]]),
        9: (np.zeros((1, 1), dtype=np.complex128),),
        10: ([small], [state, state], [None]),
    }
    for place, others in wrong.items():
        for other in others:
            given = [*right[:place], other, *right[place + 1 :]]
            with pytest.raises((ValueError, TypeError, RuntimeError)):
                extension.run_batch(*given)
    assert extension.run_batch(*right) == (1, None, None)
