"""Calls that can last besides runs: they tell how far they are, hear Ctrl-C, and leave the state as it was."""

import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
from full_matrices import random_state
from refusals import refused

from velacamplix import Observable, Progress, StateVector, _core
from velacamplix.programs import drive as _drive
from velacamplix.programs import progress as _progress
from velacamplix.states import exports as _exports
from velacamplix.states import parts as _parts
from velacamplix.states import sampling as _sampling


class Enough(Exception):
    pass


def terms(n, count):
    """As many terms on n qubits, every tenth with a letter on each qubit."""
    letters = np.random.default_rng(count).choice(list("IXYZ"), size=(count, n))
    letters[::10][letters[::10] == "I"] = "Z"
    return Observable([(1.0, "".join(row), range(n)) for row in letters])


CALLS = {
    "sample": lambda state, told: state.sample(5000, [0, 3], progress=told),
    "counts": lambda state, told: state.counts(5000, progress=told),
    "estimate": lambda state, told: state.estimate("X0 Y1 + Z2 - 2*Y5", 2**18 + 7, progress=told),
    "expectation": lambda state, told: state.expectation(terms(14, 60), progress=told),
    "term_values": lambda state, told: state.term_values(terms(14, 60), progress=told),
    "to_dict": lambda state, told: state.to_dict(progress=told),
    "distribution_dict": lambda state, told: state.distribution_dict(range(13), progress=told),
    "reduced": lambda state, told: state.reduced(range(11), progress=told),
    "schmidt": lambda state, told: state.schmidt([0], progress=told),
    "schmidt vectors": lambda state, told: state.schmidt(range(8), vectors=True, progress=told),
}
TOTALS = {
    "sample": 5000,
    "counts": 5000,
    "estimate": 3 * (2**18 + 7),
    "expectation": 60,
    "term_values": 60,
    "to_dict": 2**14,
    "distribution_dict": 2**13,
    "reduced": 2**14,
    "schmidt": 2**14,
    "schmidt vectors": 2**14,
}


@pytest.fixture
def impatient(monkeypatch):
    """Every moment counts, and pieces of work are small."""
    monkeypatch.setattr(_drive, "INTERVAL", 0.0)
    monkeypatch.setattr(_progress, "INTERVAL", 0.0)
    monkeypatch.setattr(_exports, "_PIECE", 1000)
    monkeypatch.setattr(_parts, "_PIECE", 2**11)
    monkeypatch.setattr(
        _sampling.Sampling,
        "_pieces",
        lambda self, count: [(start, min(start + 999, count)) for start in range(0, count, 999)],
    )


def fresh(precision="double"):
    state = StateVector(14, precision, threads=2, seed=5)
    state.array[:] = random_state(14, seed=2)
    return state


def same(got, expected):
    return all(np.array_equal(g, e) for g, e in zip(got, expected)) if isinstance(got, tuple) else np.array_equal(
        got, expected
    )


@pytest.mark.parametrize("name", CALLS)
def test_a_function_hears_how_far_the_call_is(name, precision, impatient):
    told = []
    got, expected = CALLS[name](fresh(precision), told.append), CALLS[name](fresh(precision), None)
    assert same(got, expected)
    assert all(type(progress) is Progress and progress.total == TOTALS[name] for progress in told)
    done = [progress.done for progress in told]
    assert done == sorted(done) and done[-1] == TOTALS[name] and done.count(TOTALS[name]) == 1
    assert len(done) > 3, done


@pytest.mark.parametrize("name", CALLS)
@pytest.mark.parametrize("calls", [1, 3])
def test_an_exception_of_the_function_ends_the_call_and_leaves_the_state(name, calls, precision, impatient):
    state, left = fresh(precision), calls
    before = state.array.copy()

    def stop(progress):
        nonlocal left
        left -= 1
        if not left:
            raise Enough

    with pytest.raises(Enough):
        CALLS[name](state, stop)
    if name == "estimate":  # turned back, which rounds
        assert np.allclose(state.array, before, atol={"double": 1e-14, "single": 1e-6}[precision])
    else:
        assert np.array_equal(state.array, before)
    assert state.set_basis_state("1" + 13 * "0").counts(3) == {"1" + 13 * "0": 3}


@pytest.mark.parametrize("name", ["estimate", "expectation", "term_values", "reduced"])
def test_the_function_cannot_use_the_state_that_is_at_work(name, impatient):
    state, other = fresh(), StateVector(2)
    refusals = []

    def use(progress):
        if progress.done < progress.total:
            other.x(0)
            try:
                state.x(0)
            except RuntimeError as error:
                refusals.append(str(error))

    CALLS[name](state, use)
    assert refusals and all("cannot be used by what its work calls" in refusal for refusal in refusals)


@pytest.mark.parametrize("name", CALLS)
@pytest.mark.parametrize("wrong", [1, "yes", [print]])
def test_wrong_progress_is_refused_beforehand(name, wrong):
    state = fresh()
    engine = _core.engine(state._live())
    with refused(TypeError, "progress must be None, True, False or a function"):
        CALLS[name](state, wrong)
    assert _core.engine(state._live()) == engine


@pytest.mark.parametrize("permuted", [True, False])
def test_the_search_for_amplitudes_can_be_ended_anywhere(permuted, precision):
    state = StateVector(19, precision)
    for qubit in range(0, 19, 3):
        state.h(qubit)
    heard = []
    whole = _core.mapped_amplitudes(state._live(), 0.0, permuted, lambda done, total: heard.append(done), 0.0, False)
    assert len(heard) == 2 + 2**10
    assert len(whole[0]) == 2**7 and (whole[0][1:] > whole[0][:-1]).all()
    for last in (0, 1, 2, len(heard) - 1):
        left = [last]

        def stop(done, total):
            if left[0] == 0:
                raise Enough
            left[0] -= 1

        with pytest.raises(Enough):
            _core.mapped_amplitudes(state._live(), 0.0, permuted, stop, 0.0, False)
    again = _core.mapped_amplitudes(state._live(), 0.0, permuted)
    assert (again[0] == whole[0]).all() and (again[1] == whole[1]).all()


@pytest.mark.parametrize("order", ["big", "little"])
def test_dictionaries_of_states_that_are_searched_in_parts(order, precision):
    state = StateVector(19, precision)
    state.array[[0, 1, 2**18, 2**18 + 1, 77777, 2**19 - 1]] = [0.1, 0.2, 0.3, 0.4j, 0.5, 0.6]
    found = state.statevector(order)
    expected = {format(i, "019b"): complex(found[i]) for i in np.flatnonzero(found).tolist()}
    got = state.to_dict(order=order)
    assert got == expected and list(got) == list(expected) and len(got) == 6


def test_calls_in_another_thread_go_on_without_signals(impatient):
    # Python runs signal handlers in its main thread only.
    results = []
    thread = threading.Thread(target=lambda: results.append(CALLS["estimate"](fresh(), None)))
    thread.start()
    thread.join()
    assert same(results[0], CALLS["estimate"](fresh(), None))


def test_bars_name_what_they_count():
    lines = []

    class Stream:
        def write(self, text):
            lines.append(text)

        def flush(self):
            pass

    line = _progress._Line("shots")
    stderr, sys.stderr = sys.stderr, Stream()
    try:
        line.show(Progress(50, 200, 1.0, 50.0, 3.0))
    finally:
        sys.stderr = stderr
    assert lines == ["\r50 of 200 shots (25%), 50 shots/s, 0:03 left"]


# Ctrl-C, in a process of its own

BEGINNING = """
import numpy as np
from velacamplix import Circuit, Observable, StateVector, run

n = {n}
state = StateVector(n, {precision!r}, threads={threads}, seed=1)
for qubit in range(n):
    state.ry(0.1 + 0.2 * qubit, qubit).rz(0.3 * qubit, qubit)
letters = np.random.default_rng(1).choice(list("IXYZ"), size=({terms}, n))
many = Observable([(1.0, "".join(row), range(n)) for row in letters])
before = state.array.copy()
print("running", flush=True)
try:
    {call}
except KeyboardInterrupt:
    print("heard")
difference = float(np.abs(state.array - before).max())
print(difference <= {rounding})
print(state.reset().x(3).counts(5) == {{"0001" + "0" * (n - 4): 5}})
"""


# Every one of these calls would take minutes.
@pytest.mark.parametrize(
    ("call", "n", "terms", "precision"),
    [
        ("state.estimate('X0 Y1 + Z2', 10**12)", 10, 1, "double"),
        ("state.estimate('Z2', 10**12, progress=lambda progress: None)", 10, 1, "single"),
        ("state.estimate(many, 1)", 20, 20000, "double"),
        ("state.expectation(many)", 21, 20000, "double"),
        ("state.term_values(many)", 21, 20000, "single"),
        ("state.counts(10**12)", 10, 1, "double"),
        ("state.counts(10**12, [3, 1], progress=True)", 21, 1, "single"),
        ("state.entropy(range(11))", 22, 1, "double"),
        ("state.purity(range(11))", 22, 1, "single"),
        ("run(Circuit(n).h(0), initial=state, observables=[many, 'Z0'])", 21, 20000, "double"),
    ],
)
def test_ctrl_c_ends_the_call_and_the_state_is_what_it_was(call, n, terms, precision):
    # Only an estimate turns the state, and back.
    rounding = 1e-5 if "estimate" in call else 0
    threads = 1 if precision == "single" else 2
    child = subprocess.Popen(
        [
            sys.executable,
            "-c",
            BEGINNING.format(call=call, n=n, terms=terms, precision=precision, threads=threads, rounding=rounding),
        ],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env={**os.environ, "PYTHONIOENCODING": "utf-8"},
    )
    try:
        assert child.stdout.readline() == b"running\n", child.communicate()
        time.sleep(1)
        child.send_signal(signal.SIGINT)
        sent = time.perf_counter()
        out, err = child.communicate(timeout=60)
    finally:
        child.kill()
    assert out.decode().split() == ["heard", "True", "True"], err.decode()
    assert time.perf_counter() - sent < 10
