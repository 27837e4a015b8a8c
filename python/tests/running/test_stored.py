"""Results in files: what is written answers the same again, and what does not fit is refused."""

import io
import json
import os
import zipfile

import numpy as np
import pytest
from refusals import refused

import velacamplix
from velacamplix import Circuit, Register, Result, run
from velacamplix.machine import limits, memory


@pytest.fixture
def path(tmp_path):
    return tmp_path / "result.npz"


def branching():
    circuit = Circuit(4, 3).save_state("start").h(0).measure(0, 0).save_probabilities("after", [0, 1])
    with circuit.when(0, 1):
        circuit.x(1)
    return circuit.save_expectation("mean", "Z1 + 0.5*X2").save_state("end").h(2).measure([1, 2], [1, 2])


def named():
    registers = [Register("a", "quantum", 0, 2), Register("b", "quantum", 2, 3)]
    return Circuit(5, registers=registers).h(0).cx(0, 3)


RUNS = {
    "nothing": lambda precision: run(Circuit(0), precision=precision),
    "a state": lambda precision: run(Circuit(3).h(0).cx(0, 2), precision=precision),
    "shots": lambda precision: run(named(), shots=500, seed=3, precision=precision),
    "idle qubits": lambda precision: run(
        Circuit(200).h(150).x(7), shots=50, seed=3, observables=["Z7", "X150 Z3"], precision=precision
    ),
    "one observable": lambda precision: run(Circuit(2).h(0), observables="X0 + 2", precision=precision),
    "a complex one": lambda precision: run(Circuit(2).h(0), observables="1j*X0 + 2", precision=precision),
    "complex ones": lambda precision: run(Circuit(2).h(0), observables=["1j*X0", "Z0"], precision=precision),
    "no observables": lambda precision: run(Circuit(2).h(0), observables=[], precision=precision),
    "measured": lambda precision: run(
        Circuit(3, 70).h(0).x(1).measure([0, 1], [69, 2]), shots=40, seed=1, precision=precision
    ),
    "measured without shots": lambda precision: run(
        Circuit(3, 5).h(0).x(1).measure([0, 1], [4, 2]), precision=precision
    ),
    "branches": lambda precision: run(branching(), shots=300, seed=2, precision=precision, observables="Z1"),
    "saves": lambda precision: run(
        Circuit(3).save_state("a").h(1).save_state("b").save_expectation("x", "1j*X1").save_probabilities("p", [1, 2]),
        precision=precision,
    ),
}


def answers(result):
    """All that a result tells, as plain values and bytes."""
    told = {
        name: getattr(result, name)
        for name in ("n_qubits", "n_clbits", "n_shots", "n_bits", "seed", "precision", "threads", "active_qubits")
    }
    told.update(
        measured_bits=result.measured_bits, timings=result.timings, plan=result.plan, has_state=result.has_state,
        html=result._repr_html_(), text=repr(result), rows=None, state=None, saved=repr(result.saved),
    )  # fmt: skip
    values = result.expectation_values
    told["values"] = (type(values), np.asarray(values).dtype, np.asarray(values).tolist())
    if result.n_shots is not None:
        told["shots"], told["counts"] = result.shots.tolist(), dict(result.counts)
        told["registers"] = {r.name: dict(result.register_counts(r.name)) for r in result._registers}
    if result.has_state:
        told["outcomes"] = result.outcomes()
        told["array"] = result.compact_state.array.tobytes()
        told["next"] = result.compact_state.copy().sample(5).tolist()
        told["x"] = result.expectation("Z0") if result.n_qubits else None
    for name in result.saved:
        try:
            value = result.saved[name]
        except RuntimeError as error:
            told[name] = str(error)
        else:
            told[name] = value.array.tobytes() if hasattr(value, "array") else (type(value), np.asarray(value).tolist())
    return told


@pytest.mark.parametrize("name", RUNS)
def test_a_loaded_result_answers_the_same(name, precision, path):
    result = RUNS[name](precision)
    result.save(path)
    again = Result.load(path)
    assert type(again) is Result and answers(again) == answers(result)
    # Nothing that a result has is left out.
    assert set(vars(again)) | {"_whole"} == set(vars(result)) | {"_whole"}
    assert os.listdir(path.parent) == ["result.npz"]


def test_a_loaded_result_is_saved_again(path):
    RUNS["branches"]("double").save(path)
    before = path.read_bytes()
    Result.load(path).save(path)
    assert path.read_bytes() == before


def test_numpy_reads_the_file(path):
    result = RUNS["idle qubits"]("double")
    result.save(path)
    with np.load(path, allow_pickle=False) as found:
        assert found["kind"].item() == "Result" and found["n"].item() == 200
        assert found["shots"].shape == (50, 4) and found["expectation_values"].tolist() == pytest.approx([-1, 1])
        assert found["amplitudes"].tobytes() == result.compact_state.array.tobytes()
        assert json.loads(found["about"].item())["active_qubits"] == [7, 150]


def test_states_asked_for_before_do_not_matter(path):
    result = run(Circuit(3).h(1))
    assert result.state.n_qubits == 3
    result.save(path)
    assert (Result.load(path).state.array == result.state.array).all()


def test_progress_counts_bytes(path):
    result, told = run(Circuit(20).h(0), shots=2**20, seed=1), []
    result.save(path, progress=told.append)
    Result.load(path, progress=told.append)
    for total in {progress.total for progress in told}:
        done = [progress.done for progress in told if progress.total == total]
        assert total >= 8 << 20 and done == sorted(done) and done[-1] == total


def test_shots_are_asked_for_before_they_are_read(path, monkeypatch):
    run(Circuit(1).h(0), shots=10**6, seed=1).save(path)
    monkeypatch.setattr(limits, "memory", lambda root="/": limits.Memory(7 * 10**6, 7 * 10**6, None))
    monkeypatch.setattr(memory, "SMALL_BYTES", 2**16)
    with refused(MemoryError, "the array 'shots' in", "needs 7.6 MiB"):
        Result.load(path)


# Files that are not what they should be


def rewritten(path, facts=None, **changes):
    """Write the file again with other arrays, or other facts in its text; None leaves one out."""
    with np.load(path) as found:
        arrays = {**found, **changes}
    if facts is not None:
        told = {**json.loads(arrays["about"].item()), **facts}
        arrays["about"] = np.array(json.dumps({name: fact for name, fact in told.items() if fact is not ...}))
    with zipfile.ZipFile(path, "w") as archive:
        for name, array in arrays.items():
            if array is not None:
                data = io.BytesIO()
                np.lib.format.write_array(data, np.asanyarray(array))
                archive.writestr(f"{name}.npy", data.getvalue())


def full():
    circuit = Circuit(4, 3).h(0).save_state("s").save_probabilities("p", [0, 3]).save_expectation("e", "Z0").x(3)
    return run(circuit.measure([0, 3], [0, 2]), shots=20, seed=1, observables=["Z0"])


WRONG_FACTS = {
    "n_clbits": [2, -1, 10**7, 3.0, True, "3", None],
    "n_bits": [4, 2, 0, None],
    "n_shots": [0, 21, None, 2**63],
    "seed": [-1, 2**32, None, 0.5],
    "precision": ["half", "single", 1, ["double"]],
    "threads": [0, -1, 2**40, None],
    "active_qubits": [[0, 4], [3, 0], [0, 0], [0], [0, 2, 3], "03", [0, 3.0], [[0], 3], {"0": 3}, None],
    "registers": [[["c", "classical", 0, 4]], [["c", "classical", -1, 1]], [["c", "other", 0, 1]], [["c"]], [3], "c", None,
                  [[3, "classical", 0, 1]], [["c", ["classical"], 0, 1]], [["c", "classical", 0.5, 1]]],
    "measured": [[4], [3, 0], [-1], 3, None],
    "measured_bits": [[3], [2, 0], None, [0.0]],
    "readings": [[[3, 0]], [[0, 4]], [[0]], [0], None, {"0": 0}, [[0, 0.5]]],
    "known_bits": ["8", "-1", "", "0x1", "g", 3, None, "0" * 100, " 1"],
    "timings": [[0, 0, 0], [0, 0, 0, -1], [0, 0, 0, "0"], [0, 0, 0, None], None, 4],
    "gates": [-1, 0.5, None, 2**64],
    "passes": [[[0, 1]], [[0, 1, [4]]], [[0, -1, []]], [[0, 1, 2]], None, [[0, "1", []]]],
    "sweeps": [-1, None, "1"],
    "saved": [None, [["s", "state", None, 1, None]], [["s", "other", None, 1, None, 2]], [3], "s",
              [["s", "state", None, 1, None, 3]], [[1, "state", None, 1, None, 2]], [["s", ["state"], None, 1, None, 2]],
              [["s", "state", None, "1", None, 2]], [["s", "state", None, 1, 0, 2]], [["s", "state", 3, 1, 0, 2]],
              [["s", "state", None, 1, None, [2]]], [["s", "state", None, 1, None, 2]] * 2,
              [["p", "probabilities", None, 1, None, 64]], [["e", "expectation", None, 1, None, 1]]],
}  # fmt: skip


@pytest.mark.parametrize("name", WRONG_FACTS)
def test_facts_that_do_not_fit_are_refused(name, path):
    full().save(path)
    whole = path.read_bytes()
    Result.load(path)
    for wrong in [*WRONG_FACTS[name], ..., float("nan"), float("inf"), {}, [[]], 10**400]:
        path.write_bytes(whole)
        rewritten(path, facts={name: wrong})
        with pytest.raises(ValueError, match="path must be that of a Result that was saved, got"):
            print(wrong, Result.load(path))


@pytest.mark.parametrize(
    ("changes", "words"),
    [
        ({"about": np.array("{")}, "about is no text of JSON"),
        ({"about": np.array("[" * 100_000)}, "about is no text of JSON"),
        ({"about": np.array("[1, 2]")}, "what it tells about n_clbits is wrong"),
        ({"about": np.array(7)}, "about must be a text"),
        ({"about": None}, "it has no array 'about'"),
        ({"n": np.array(10**7)}, "n must be from 0 to 1000000"),
        ({"n": np.array(2)}, "what it tells about"),
        ({"shots": None}, "what it tells about seed is wrong"),
        ({"shots": np.zeros((20, 2), np.uint64)}, "shots must have the type <u8 and the shape (20, 1)"),
        ({"shots": np.full((20, 1), 8, np.uint64)}, "what it tells about shots is wrong"),
        ({"shots": np.zeros((20, 1))}, "shots must have the type <u8"),
        ({"amplitudes": None}, "it has an array 'engine', which this version does not know"),
        ({"amplitudes": np.zeros(8, complex)}, "amplitudes must have the type <c16 and the shape (4,)"),
        ({"expectation_values": np.zeros((2, 2))}, "what it tells about expectation_values is wrong"),
        ({"expectation_values": np.zeros(2, "<i4")}, "expectation_values must have the type <f8"),
        ({"saved1": None}, "it has no array 'saved1'"),
        ({"saved1": np.zeros(2)}, "saved1 must have the type <f8 and the shape (4,)"),
        ({"saved2": np.zeros(1)}, "saved2 must have the type <f8 and the shape ()"),
        ({"saved0_amplitudes": np.zeros(2, complex)}, "saved0_amplitudes must have the type <c16 and the shape (4,)"),
        ({"saved3": np.zeros(1)}, "it has an array 'saved3', which this version does not know"),
        ({"more": np.zeros(1)}, "it has an array 'more'"),
    ],
    ids=lambda value: str(value)[:40],
)
def test_arrays_that_do_not_fit_are_refused(changes, words, path):
    full().save(path)
    rewritten(path, **changes)
    with refused(ValueError, "path must be that of a Result that was saved, got", words):
        Result.load(path)


@pytest.mark.parametrize(
    ("changes", "words"),
    [
        ({"outcomes": None}, "what it tells about outcomes is wrong"),
        ({"probabilities": None}, "what it tells about outcomes is wrong"),
        ({"probabilities": np.array(0.5)}, "what it tells about outcomes is wrong"),
        ({"probabilities": np.zeros((2, 2))}, "what it tells about outcomes is wrong"),
        ({"probabilities": np.zeros(3)}, "outcomes must have the type <u8 and the shape (3, 1)"),
        ({"probabilities": np.array([0.5, np.nan])}, "what it tells about outcomes is wrong"),
        ({"outcomes": np.array([[0], [8]], np.uint64)}, "what it tells about outcomes is wrong"),
        ({"outcomes": np.zeros((0, 1), np.uint64), "probabilities": np.zeros(0)}, "what it tells about outcomes is wrong"),
        ({"saved0_amplitudes": np.zeros(2, complex)}, "saved0_amplitudes must have the type <c16 and the shape (4,)"),
    ],
    ids=str,
)
def test_arrays_of_an_exact_run_that_do_not_fit_are_refused(changes, words, path):
    run(Circuit(3).h(0).save_state("s"), method="exact").save(path)
    Result.load(path)
    rewritten(path, **changes)
    with refused(ValueError, "path must be that of a Result that was saved, got", words):
        Result.load(path)


def test_facts_of_a_later_version_are_refused(path):
    full().save(path)
    rewritten(path, facts={"weather": "fine"})
    with refused(ValueError, "this version does not know what it tells about 'weather'"):
        Result.load(path)


@pytest.mark.parametrize("seed", range(3))
def test_damaged_files_are_refused_or_give_what_was_written(seed, path):
    result = full()
    result.save(path)
    expected, whole, generator = answers(result), path.read_bytes(), np.random.default_rng(seed)
    for _ in range(60):
        data = bytearray(whole)
        data[int(generator.integers(len(data)))] = int(generator.integers(256))
        path.write_bytes(data)
        try:
            again = Result.load(path)
        except ValueError as error:
            assert str(error).startswith("path must be that of a Result that was saved, got "), error
        else:
            assert answers(again) == expected


def test_more_threads_than_this_machine_allows(path):
    full().save(path)
    rewritten(path, facts={"threads": 2**31})
    again = Result.load(path)
    assert again.threads == 2**31 and again.compact_state.threads <= velacamplix.machine.limits.most_threads()
