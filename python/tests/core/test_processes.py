"""Forked and spawned processes, threads that share a state, and many runs in a loop: nothing hangs, leaks or mixes."""

import importlib.util
import pickle
import subprocess
import sys
import threading
from multiprocessing import get_context

import numpy as np
import pytest
from children import in_child
from full_matrices import random_state

from velacamplix import Circuit, Counts, Observable, StateVector, run

N = 17  # 2 MiB: large enough for a parallel region


def worked(n=N, precision="double"):
    """A state that two threads have worked on."""
    state = StateVector(n, precision, threads=2, seed=7)
    for qubit in range(n):
        state.ry(0.1 * (qubit + 1), qubit)
    return state


# Fork


def test_a_child_goes_on_with_the_state():
    state = worked()
    expected = worked().h(3).counts(100)
    assert in_child(lambda: 0 if state.h(3).counts(100) == expected else 1) == 0


def test_a_child_makes_states_of_its_own():
    expected = worked().array.tobytes()
    assert in_child(lambda: 0 if worked().array.tobytes() == expected else 1) == 0


def test_the_parent_goes_on_after_a_fork():
    state = worked()
    before = state.array.copy()
    assert in_child(lambda: state.x(0) and 0) == 0
    assert np.array_equal(state.array, before)
    assert state.x(0).x(0).array.tobytes() == before.tobytes()


def test_children_of_children():
    state = worked()
    assert in_child(lambda: in_child(lambda: state.h(0) and 0, 30)) == 0


def test_forks_in_a_row():
    state = worked()
    for _ in range(20):
        state.h(0)
        assert in_child(lambda: state.h(0) and 0) == 0


def test_fork_from_another_thread_than_the_one_that_ran():
    state = worked()
    statuses = []
    forker = threading.Thread(target=lambda: statuses.append(in_child(lambda: state.h(0) and 0)))
    forker.start()
    forker.join()
    assert statuses == [0]


def test_fork_while_another_thread_uses_the_state():
    state = worked(20)
    stop = threading.Event()

    def keep_busy():
        while not stop.is_set():
            state.h(0)

    busy = threading.Thread(target=keep_busy)
    busy.start()

    def work():
        # Whatever the other thread held, a state of its own works; the shared one works or is refused.
        worked()
        try:
            state.h(1)
        except RuntimeError as error:
            return 7 if "when the process forked" in str(error) else 8
        return 0

    try:
        statuses = {in_child(work) for _ in range(10)}
    finally:
        stop.set()
        busy.join()
    assert statuses <= {0, 7} and 7 in statuses
    assert state.norm() == pytest.approx(1)


def counts_of(seed):
    return StateVector(N, threads=2, seed=seed).reset("+" * N).counts(50)


def counts_of_circuit(circuit):
    return run(circuit, shots=100, seed=3).counts


@pytest.mark.filterwarnings("ignore:.*multi-threaded.*fork:DeprecationWarning")
@pytest.mark.parametrize("method", ["fork", "spawn", "forkserver"])
def test_pools(method):
    expected = [counts_of(seed) for seed in range(4)]
    bell = Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1])
    with get_context(method).Pool(2) as pool:
        assert pool.map_async(counts_of, range(4)).get(timeout=120) == expected
        assert pool.map_async(counts_of_circuit, [bell, bell]).get(timeout=120) == [counts_of_circuit(bell)] * 2


@pytest.mark.filterwarnings("ignore:.*multi-threaded.*fork:DeprecationWarning")
@pytest.mark.parametrize("method", ["fork", "spawn"])
def test_states_travel_there_and_back(method):
    state = worked(12)
    with get_context(method).Pool(1) as pool:
        other = pool.apply_async(StateVector.h, (state, 2)).get(timeout=120)
    assert other.array.tobytes() == state.h(2).array.tobytes()
    assert (other.sample(50) == state.sample(50)).all()


def test_what_else_is_pickled():
    circuit = Circuit(3, 3).h(0).cx(0, 1).measure([0, 1, 2], [0, 1, 2])
    result = run(circuit, shots=10, seed=1)
    for thing in (circuit, Observable("X0 - 2*Z1"), result.counts, Counts({"01": 3})):
        again = pickle.loads(pickle.dumps(thing))
        assert again == thing and type(again) is type(thing)


# Threads that share an object


@pytest.mark.parametrize("precision", ["double", "single"])
def test_two_threads_on_one_state_take_turns(precision):
    state = StateVector(N, precision, threads=2).reset(random_state(N, 4), order="little")
    # An even number of whole gates ends where it began; a half-done gate in between would not.
    expected = state.copy()
    for _ in range(40):
        expected.x(3)
    workers = [threading.Thread(target=lambda: [state.x(3) for _ in range(10)]) for _ in range(4)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert state.array.tobytes() == expected.array.tobytes()


@pytest.mark.parametrize("order", ["big", "little"])
def test_setting_amplitudes_waits_for_its_turn(order):
    state = StateVector(18, threads=2)
    ones = np.zeros(2**18, complex)
    ones[-1] = 1
    stop = threading.Event()

    def flip():
        while not stop.is_set():
            state.x(3)

    flipper = threading.Thread(target=flip)
    flipper.start()
    try:
        for _ in range(10):
            # Whole gates before and after: one amplitude is left, all others are zero.
            state.set_state(ones, order)
            assert state.norm() == 1 and len(state.to_dict()) == 1
    finally:
        stop.set()
        flipper.join()


def test_many_threads_read_and_write():
    state = StateVector(15, threads=2, seed=1).reset("+" * 15)
    failed = []

    def work():
        try:
            for _ in range(20):
                state.x(0)
                state.z(1).z(1)
                assert abs(state.norm() - 1) < 1e-12
                assert len(state.sample(10)) == 10
                assert abs(state.probability("0", [4]) - 0.5) < 1e-12
                state.expectation("X0 Z3")
                state.copy()
        except BaseException as error:
            failed.append(error)

    workers = [threading.Thread(target=work) for _ in range(6)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert failed == []


def test_release_while_others_work():
    for _ in range(5):
        state = StateVector(15, threads=2)
        errors = []

        def work():
            try:
                while True:
                    state.h(0)
            except RuntimeError as error:
                errors.append(str(error))

        workers = [threading.Thread(target=work) for _ in range(2)]
        for worker in workers:
            worker.start()
        state.release()
        for worker in workers:
            worker.join(30)
        assert len(errors) == 2 and all("released" in error for error in errors)


# The end of the interpreter

ENDINGS = """
import os, sys, threading, time
from velacamplix import Circuit, StateVector, run

circuit = Circuit(14)
for layer in range(30):
    for qubit in range(14):
        circuit.h(qubit)

def gates():
    state = StateVector(16, threads=2)
    while True:
        begun.set()
        state.h(0)

def readout():
    state = StateVector(14, threads=2)
    while True:
        begun.set()
        state.h(0).sample(100), state.norm(), state.copy(), state.array, state.to_dict(0.5)

def runs():
    while True:
        run(circuit, shots=10, threads=2)
        begun.set()

def watched_runs():
    def watch(progress):
        begun.set()
        time.sleep(0.001)
    while True:
        run(circuit, progress=watch, threads=2)

ends = []
for repetition in range(5):
    begun = threading.Event()
    child = os.fork()
    if child == 0:
        for thread in range(2):
            threading.Thread(target=%s, daemon=True).start()
        begun.wait()
        time.sleep(0.005 * repetition)
        sys.exit()
    ends.append(os.waitpid(child, 0)[1])
print(ends)
"""


@pytest.mark.parametrize("work", ["gates", "readout", "runs", "watched_runs"])
def test_threads_that_compute_while_the_interpreter_ends(work):
    ended = subprocess.run([sys.executable, "-c", ENDINGS % work], capture_output=True, text=True, timeout=120)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, f"{[0] * 5}\n", "")


# Interpreters beside the main one

WITHIN = """
try:
    import velacamplix
except ImportError as error:
    print(error, flush=True)
"""


@pytest.mark.parametrize("first", ["", "import velacamplix\n"])
def test_a_subinterpreter_is_refused(first):
    module = next(filter(importlib.util.find_spec, ["_interpreters", "_xxsubinterpreters"]), None)
    if module is None:
        pytest.skip("this Python has no module that makes subinterpreters")
    code = f"{first}import {module} as interpreters\ninterpreters.run_string(interpreters.create(), {WITHIN!r})\n"
    ended = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert ended.returncode == 0 and ended.stderr == "", ended
    assert "subinterpreter" in ended.stdout


# Many runs


GROWTH = """
import ctypes, gc, os, sys, threading, time
from velacamplix import Circuit, Observable, StateVector, run

libc = ctypes.CDLL(None)
# Older C libraries count in int.
measure, number = (libc.mallinfo2, ctypes.c_size_t) if hasattr(libc, "mallinfo2") else (libc.mallinfo, ctypes.c_int)
names = "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks keepcost"
class Heap(ctypes.Structure):
    _fields_ = [(name, number) for name in names.split()]
measure.restype = Heap

def held():
    gc.collect()
    heap = measure()
    return sys.getallocatedblocks(), heap.uordblks + heap.hblkhd

bell = Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1])

def refused():
    for bad in (
        lambda: StateVector(60), lambda: StateVector(2).h(5), lambda: StateVector(2).project(0, 1),
        lambda: StateVector(2).set_state([1, 1, 1, 1]),
    ):
        try:
            bad()
        except Exception:
            pass

def in_a_thread():
    before, end = os.listdir("/proc/self/task"), time.monotonic() + 10
    thread = threading.Thread(target=lambda: StateVector(15, threads=2).h(0))
    thread.start()
    thread.join()
    # Those that OpenMP started for it end a little later.
    while set(os.listdir("/proc/self/task")) - set(before) and time.monotonic() < end:
        time.sleep(0.001)

kept = []
def body(i):
    BODY

# The least of several stretches: a leak is in each, what is built up once and for all is not.
stretches, before = [], None
for stretch in range(4):
    for i in range(TIMES):
        body(i)
    after = held()
    if before is not None:
        stretches.append((after[0] - before[0], after[1] - before[1]))
    before = after
print(*map(min, *stretches))
"""


def growth(body, times):
    """Python's objects and bytes of the C library's that so many calls of `body` leave behind."""
    code = GROWTH.replace("BODY", body).replace("TIMES", str(times))
    ended = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=300)
    assert ended.returncode == 0, ended
    return map(int, ended.stdout.split())


@pytest.mark.parametrize(
    ("body", "times"),
    [
        ("run(bell, shots=10, seed=i)", 300),
        ("StateVector(4, seed=i).h(0).cnot(0, 1).counts(10)", 300),
        ("StateVector(3, 'single').h(0).expectation(Observable('X0 Z1'))", 300),
        ("s = StateVector(5).h(0); s.array; s.copy(); s.statevector('little'); s.to_dict(); s.distribution_dict([0])", 300),
        ("StateVector(16, threads=2).h(0).measure(collapse=True)", 100),
        ("refused()", 300),
        ("in_a_thread()", 100),
    ],
)
def test_runs_in_a_loop_do_not_grow_memory(body, times):
    # One object, or the smallest piece that the C library gives, left behind by every other run would show.
    objects, octets = growth(body, times)
    assert objects < times / 2 and octets < 32 * times / 2


@pytest.mark.parametrize("leak", ["kept.append(object())", "kept.append(ctypes.create_string_buffer(600))"])
def test_what_is_kept_shows(leak):
    objects, octets = growth(leak, 100)
    assert objects >= 90 or octets >= 90 * 600
