"""Large answers are made in pieces: at no time is there much more than the answer. What does not fit is refused before."""

import gc
import pickle
import subprocess
import sys
import tracemalloc
from pathlib import Path

import numpy as np
import pytest

from velacamplix import Circuit, Counts, Parameter, StateVector, run
from velacamplix.machine import limits as _machine
from velacamplix.machine import memory as _memory
from velacamplix.machine import pickling as _pickling
from velacamplix.results import shot_rows as _shots

HERE = Path(__file__).parent
MIB = 2**20


def uniform(n):
    state = StateVector(n, seed=1)
    for qubit in range(n):
        state.h(qubit)
    return state


def shots_of(n_bits, shots):
    # The first 20 qubits are by chance.
    circuit = Circuit(n_bits)
    for qubit in range(min(20, n_bits)):
        circuit.h(qubit)
    return run(circuit, shots=shots, seed=1)


def cycle(k):
    return np.roll(1j * np.eye(2**k), 1, axis=0)


@pytest.mark.parametrize(
    ("given", "make", "size"),
    [
        (lambda: shots_of(20, MIB), lambda result: result.bits, 20 * MIB),
        (lambda: shots_of(100, MIB // 4), lambda result: result.bits, 25 * MIB),
        (lambda: shots_of(100, MIB // 4), lambda result: result.shots, 12 * MIB),
        (lambda: pickle.dumps(shots_of(20, 4 * MIB)), pickle.loads, 32 * MIB),
        (lambda: cycle(9), lambda matrix: Circuit(9).matrix(matrix, range(9)), 10 * MIB),
        (lambda: cycle(9), lambda matrix: Circuit(9).matrix(matrix, range(9), order="little", check=False), 10 * MIB),
        (lambda: np.exp(1j * np.arange(MIB)), lambda entries: Circuit(20).diagonal(entries, range(20)), 40 * MIB),
        (lambda: Circuit(9).matrix(cycle(9), range(9)), Circuit.inverse, 10 * MIB),
    ],
)
def test_there_is_never_much_more_than_the_answer(given, make, size):
    held, peak = traced(given(), make)
    # The scratch of one piece is a mebibyte or two.
    assert size <= held <= 1.1 * size and peak <= 1.2 * size + 2 * MIB


@pytest.mark.parametrize(
    ("given", "make"),
    [
        (lambda: shots_of(20, MIB // 8), lambda result: result.counts),
        (lambda: shots_of(100, MIB // 8), lambda result: result.counts),
        (lambda: uniform(20), lambda state: state.counts(MIB // 8)),
        (lambda: {i: 1000 for i in range(MIB // 8)}, lambda numbers: Counts.from_ints(numbers, 17)),
        (lambda: pickle.dumps(Counts.from_ints(dict.fromkeys(range(MIB // 8), 1000), 17)), pickle.loads),
    ],
)
def test_there_is_never_much_more_than_a_dictionary(given, make):
    held, peak = traced(given(), make)
    # A dictionary that grows moves to a larger table, which Python decides.
    assert held > 10 * MIB and peak <= 1.3 * held


def test_a_long_sum_is_written_without_the_texts_of_all_its_beginnings():
    _, peak = traced(sum([Parameter("a")] * 5000), repr)
    # Some hundred bytes of bookkeeping per term; the beginnings would be 48 MiB.
    assert peak < 8 * MIB


def traced(given, make):
    """Bytes that Python and NumPy ask for and keep while ``make(given)`` is made, and the most there were."""
    gc.collect()
    tracemalloc.start()
    try:
        before = tracemalloc.get_traced_memory()[0]
        answer = make(given)
        after, peak = tracemalloc.get_traced_memory()
        del answer
        return after - before, peak - before
    finally:
        tracemalloc.stop()


# Bytes of a process that are in memory, the core's included: now, and the most so far.
RESIDENT = """
import gc, pickle
from test_peak_memory import *
def resident(name):
    return next(1024 * int(line.split()[1]) for line in open("/proc/self/status") if line.startswith(name))
given = {given}
gc.collect()
before = resident("VmRSS")
answer = {answer}
print(resident("VmHWM") - before, {size})
"""


@pytest.mark.parametrize(
    ("given", "answer", "size"),
    [
        ("uniform(18)", "given.sample(4 * MIB)", "32 * MIB"),
        ("uniform(22)", "pickle.dumps(given)", "64 * MIB"),
        ("pickle.dumps(uniform(22))", "pickle.loads(given)", "64 * MIB"),
        ("shots_of(18, 8 * MIB)", "pickle.dumps(given)", "64 * MIB + len(pickle.dumps(given.compact_state))"),
        ("Circuit(18).h(0).h(17)", "run(given, shots=8 * MIB, seed=1)", "64 * MIB"),
        ("Circuit(1, 2).h(0).measure(0, 0).h(0).measure(0, 1)", "run(given, shots=8 * MIB, seed=1)", "64 * MIB"),
        ("Circuit(22).h(range(22)).rx(Parameter('a'), 0)", "run(given, values={'a': range(6)})", "64 * MIB"),
        ("[Circuit(21).h(range(21))] * 3", "run(given)", "96 * MIB"),
        ("[Circuit(16).h(range(16))] * 64", "run(given, threads=2)", "64 * MIB"),
    ],
)
def test_there_is_never_much_more_than_the_answer_in_the_core_either(given, answer, size):
    script = RESIDENT.format(given=given, answer=answer, size=size)
    ended = subprocess.run([sys.executable, "-c", script], cwd=HERE, capture_output=True, text=True, timeout=300)
    assert ended.returncode == 0, ended.stderr
    peak, size = map(int, ended.stdout.split())
    assert peak <= 1.2 * size


# Refusals


@pytest.fixture
def free_bytes(monkeypatch):
    """Sets how much memory there is, and has also small requests asked for."""

    def there_are(number):
        monkeypatch.setattr(_memory, "SMALL_BYTES", 0)
        monkeypatch.setattr(_machine, "memory", lambda root="/": _machine.Memory(number, number, None))

    return there_are


RESULT = run(Circuit(100).x(0).h(1), shots=1000, seed=1)
FEW = Counts.from_ints({i: 1 for i in range(100)}, 7)


@pytest.mark.parametrize(
    ("act", "size", "what"),
    [
        (lambda: RESULT.bits, 100_000, "an array of 1000 shots of 100 bits needs 97.7 KiB"),
        (lambda: RESULT.shots, 58_000, "the numbers of 1000 shots of 128 bits needs 56.6 KiB"),
        (lambda: _shots.tally(RESULT._rows, 100), 56_000, "sorting 1000 shots needs 54.7 KiB"),
        (lambda: Counts.from_ints({5: 1}, 1000), 1180, "a dictionary of 1 outcome(s) needs 1.2 KiB"),
        (lambda: Counts({"0" * 7: 1, "1" * 7: 1}), 360, "a dictionary of 2 outcome(s) needs 360 bytes"),
        (FEW.ints, 18_700, "a dictionary of 100 outcome(s)"),
        (FEW.hex, 18_700, "a dictionary of 100 outcome(s)"),
        (FEW.copy, 18_000, "a dictionary of 100 outcome(s)"),
        (FEW.probabilities, 18_000, "a dictionary of 100 outcome(s)"),
        (lambda: FEW.marginal([0, 1]), 4 * 182, "a dictionary of 4 outcome(s)"),
        (lambda: Circuit(2).matrix(cycle(2), [0, 1]), 640, "a gate of 16 entries needs 640 bytes"),
        (lambda: Circuit(2).diagonal([1, 1, 1, 1], [0, 1]), 160, "a gate of 4 entries needs 160 bytes"),
        (lambda: pickle.loads(pickle.dumps(_pickling.Packed(np.zeros(100)))), 800, "an array of 100 numbers in a pickle"),
    ],
)
def test_what_does_not_fit_is_refused(act, size, what, free_bytes):
    free_bytes(size - 1)
    with pytest.raises(MemoryError) as error:
        act()
    assert what in str(error.value) and "are available" in str(error.value)
    free_bytes(size)
    act()


def test_a_circuit_with_a_large_matrix_is_refused_before_it_is_compiled(free_bytes):
    circuit = Circuit(5).matrix(np.eye(32), range(5))
    for refused in (lambda: run(circuit), lambda: StateVector(5).run(circuit)):
        free_bytes(2**15 - 1)
        with pytest.raises(MemoryError, match=r"gates of 1024 entries need"):
            refused()
        free_bytes(2**15)
        refused()


def test_an_inverse_that_does_not_fit(free_bytes):
    circuit = Circuit(2).matrix(cycle(2), [0, 1])
    free_bytes(639)
    with pytest.raises(MemoryError, match="a gate of 16 entries needs 640 bytes"):
        circuit.inverse()


@pytest.mark.parametrize("n_bits", [2**40, 2**60])
def test_texts_of_a_length_that_no_machine_holds(n_bits):
    with pytest.raises(ValueError, match="n_bits must be an integer from 0 to 1000000, got "):
        Counts.from_ints({0: 1}, n_bits)


def test_texts_that_do_not_fit(free_bytes):
    free_bytes(2**19)
    with pytest.raises(MemoryError, match=r"a dictionary of 1 outcome\(s\) needs .* KiB"):
        Counts.from_ints({0: 1}, 1_000_000)
    with pytest.raises(ValueError, match="outcome must be an integer"):
        Counts.from_ints({-1: 1}, 1_000_000)
