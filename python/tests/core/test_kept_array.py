"""The array of a state that is gone is kept for the next one: for its memory alone, and in nobody's way."""

import ctypes
import mmap
import os
import resource
import subprocess
import sys
import threading

import numpy as np
import pytest

from velacamplix import Circuit, DensityMatrix, StateVector, max_qubits, run
from velacamplix.core import extension
from velacamplix.machine import memory

MIB = 2**20
# The fewest qubits whose array is kept, in double precision: 32 MiB.
N = 21

_MADV_PAGEOUT = 21

pytestmark = pytest.mark.skipif(
    resource.getrlimit(resource.RLIMIT_AS)[0] != resource.RLIM_INFINITY,
    reason="the process has a limit of addresses, under which nothing is kept",
)


@pytest.fixture(autouse=True)
def nothing_kept():
    extension.drop_kept()
    yield
    extension.drop_kept()


def bits_of(array):
    return np.ascontiguousarray(array).view(np.uint8)


def leave_garbage(n, precision="double"):
    """Make a state go that leaves its array behind, full of NaN with negative signs; return the array's address."""
    state = StateVector(n, precision)
    state.array.view(f"u{state.array.itemsize // 2}")[:] = ~np.uint64(0) if precision == "double" else ~np.uint32(0)
    address = state.array.ctypes.data
    del state
    assert extension.kept_bytes() == memory.memory_needed(n, precision)
    return address


def some_gates(n):
    circuit = Circuit(n)
    for qubit in range(0, n, 4):
        circuit.h(qubit).z(qubit).ry(2.5, qubit)
    return circuit.cnot(0, n - 1).rz(0.3, n - 2).cz(1, n - 3)


# Nothing of the old content is left


@pytest.mark.parametrize(("n", "precision"), [(N, "double"), (N + 1, "single")])
@pytest.mark.parametrize(
    "make",
    [
        lambda n, precision: StateVector(n, precision).array,
        lambda n, precision: StateVector(n, precision).set_basis_state("1" * n).array,
        lambda n, precision: run(Circuit(n).id(n - 1).id(0), initial=0, precision=precision).compact_state.array,
        lambda n, precision: run(some_gates(n), initial="1" * n, precision=precision).state.array,
        lambda n, precision: run(some_gates(n), initial="0" * (n - 1) + "1", precision=precision).state.array,
        lambda n, precision: run(some_gates(n), initial="+" * n, precision=precision).state.array,
        lambda n, precision: run(some_gates(n), initial="1" * n, precision=precision, fusion=True).state.array,
    ],
    ids=["zeros", "ones", "nothing", "gates", "last", "product", "fused"],
)
def test_a_state_in_a_used_array_has_the_bits_of_one_in_a_new_array(make, n, precision):
    fresh = bits_of(make(n, precision)).copy()
    leave_garbage(n, precision)
    assert np.array_equal(bits_of(make(n, precision)), fresh)


def test_a_state_takes_the_array_of_its_size_whatever_the_precision():
    address = leave_garbage(N)
    state = StateVector(N + 1, "single")
    assert extension.kept_bytes() == 0 and state.array.ctypes.data == address
    assert np.flatnonzero(bits_of(state.array)).tolist() == np.flatnonzero(bits_of(np.complex64([1]))).tolist()


def test_a_density_matrix_takes_it_too():
    leave_garbage(N + 1, "single")
    rho = DensityMatrix(11, "single").h(3)
    assert extension.kept_bytes() == 0 and rho.probability("1", 3) == pytest.approx(0.5)


def test_what_was_stopped_before_its_first_gate_shows_no_old_content():
    leave_garbage(N)
    core = extension.StateVectorDouble(N)
    core.begin(5)
    assert np.flatnonzero(core.view()).tolist() == [5] and core.view()[5] == 1


# Only what nobody uses is kept, and not much


def test_a_view_keeps_its_values_and_the_array():
    state = StateVector(N).x(0)
    part = state.array[:2]
    del state
    assert extension.kept_bytes() == 0
    other = StateVector(N).x(1)
    assert part.tolist() == [0, 1] and other.array[2] == 1
    del part
    assert extension.kept_bytes() == 32 * MIB


def test_released_memory_is_given_back():
    state = StateVector(N)
    state.release()
    del state
    assert extension.kept_bytes() == 0


def test_one_array_of_32_mib_to_1_gib_is_kept():
    for n, precision, kept in ((N - 1, "double", 0), (N, "double", 32), (N + 1, "double", 64), (27, "single", 1024)):
        # Nothing is written, so it takes no memory.
        core = getattr(extension, f"StateVector{precision.capitalize()}")(n)
        del core
        assert extension.kept_bytes() == kept * MIB
    core = extension.StateVectorDouble(27)
    del core
    assert extension.kept_bytes() == 1024 * MIB


def test_nothing_is_kept_under_a_limit_of_addresses():
    code = (
        "import resource; from velacamplix import StateVector; from velacamplix.core import extension\n"
        "for limit in (resource.RLIM_INFINITY, 2**46):\n"
        "    resource.setrlimit(resource.RLIMIT_AS, (limit, resource.RLIM_INFINITY))\n"
        "    state = StateVector(21); del state; print(extension.kept_bytes())\n"
        "    extension.drop_kept()\n"
    )
    told = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True, timeout=100)
    assert told.stdout.split() == [str(32 * MIB), "0"]


# It is in nobody's way


def lazily_free():
    with open("/proc/self/smaps") as lines:
        return sum(int(line.split()[1]) * 1024 for line in lines if line.startswith("LazyFree:"))


def test_the_system_may_take_its_pages_at_any_time():
    before = lazily_free()
    address = leave_garbage(N)
    assert lazily_free() - before >= 30 * MIB
    # What the system does when it is short of memory.
    page = mmap.PAGESIZE
    libc = ctypes.CDLL(None, use_errno=True)
    begin, length = -(-address // page) * page, 32 * MIB - page
    if libc.madvise(ctypes.c_void_p(begin), ctypes.c_size_t(length // page * page), _MADV_PAGEOUT) != 0:
        pytest.skip(f"this kernel cannot be made to reclaim pages: {os.strerror(ctypes.get_errno())}")
    assert extension.kept_bytes() == 32 * MIB
    state = run(some_gates(N), initial="1" * N).state
    assert state.array.ctypes.data == address and state.norm() == pytest.approx(1)


@pytest.mark.parametrize(
    "ask",
    [max_qubits, lambda: StateVector(N + 1), lambda: memory.require_density(11, "double")],
    ids=["most", "another", "density"],
)
def test_who_asks_what_is_free_has_it_dropped(ask):
    leave_garbage(N)
    answer = ask()  # a state that went again would leave its own array
    assert extension.kept_bytes() == 0
    del answer


def test_so_has_who_asks_for_a_large_buffer():
    leave_garbage(N)
    memory.require_bytes(MIB, "a small buffer")
    assert extension.kept_bytes() == 32 * MIB
    memory.require_bytes(MIB + 1, "a buffer")
    assert extension.kept_bytes() == 0


def test_a_look_ahead_for_what_takes_no_kept_array_drops_it():
    leave_garbage(N)
    memory.require_state(N, "double", may_reuse=True)
    assert extension.kept_bytes() == 32 * MIB
    memory.require_state(N, "double")
    assert extension.kept_bytes() == 0


def test_runs_one_after_another_use_one_array():
    circuit = Circuit(N)
    for qubit in range(N):
        circuit.h(qubit)
    result = run(circuit)
    addresses = set()
    for _ in range(4):
        result = run(circuit)
        addresses.add(result.compact_state.array.ctypes.data)
        assert result.compact_state.norm() == pytest.approx(1)
    # The last result holds one while the next is made.
    assert len(addresses) == 2


@pytest.mark.skipif(not hasattr(os, "fork"), reason="there is no fork here")
def test_a_fork_drops_it():
    leave_garbage(N)
    child = os.fork()
    if child == 0:
        os._exit(7 if extension.kept_bytes() == 0 else 8)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
    assert extension.kept_bytes() == 0


def test_threads_that_make_states_share_nothing():
    wrong = []

    def make(number):
        for turn in range(6):
            state = StateVector(N, threads=1)
            state.array[:2] = number, turn
            if state.array[0] != number or state.array[1] != turn or state.array[2:].any():
                wrong.append((number, turn))

    threads = [threading.Thread(target=make, args=(number,)) for number in range(1, 4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong and extension.kept_bytes() in (0, 32 * MIB)
