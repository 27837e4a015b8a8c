"""The zero-copy view of the amplitudes, and several threads on several or the same states."""

import gc
import resource
import threading
import time

import numpy as np
import pytest

from velacamplix import Circuit, StateVector, max_qubits


def test_the_view_shows_later_gates_and_its_changes_are_seen(precision):
    state = StateVector(3, precision)
    view = state.array
    state.x(2)
    assert [int(i) for i in np.flatnonzero(view)] == [4]
    view[:] = 0
    view[1] = 1j
    assert state.probability("100") == 1


def test_no_copy_is_made(precision):
    state = StateVector(4, precision)
    assert state.array.__array_interface__["data"] == state.array.__array_interface__["data"]
    assert not state.array.flags.owndata
    assert state.array.flags.c_contiguous and state.array.flags.writeable and state.array.flags.aligned
    assert state.array.shape == (16,)
    assert state.array.__array_interface__["data"][0] % 64 == 0


def test_the_view_outlives_the_state():
    state = StateVector(20).x(19)
    view = state.array[2**19 :]
    del state
    gc.collect()
    others = [StateVector(20) for _ in range(4)]  # would be given the same memory, were it free
    assert view[0] == 1 and not view[1:].any()
    assert len(others) == 4


@pytest.mark.parametrize(
    "make", [lambda s: s.array, lambda s: s.array[1:3], lambda s: s.array.real, lambda s: memoryview(s.array)]
)
def test_release_is_refused_while_a_view_exists(make):
    state = StateVector(3).x(0)
    view = make(state)
    with pytest.raises(BufferError, match="view made by .array"):
        state.release()
    assert state.probability("100") == 1
    del view
    state.release()


def test_a_copy_is_no_view():
    state = StateVector(3)
    copy = state.array.copy()
    state.release()
    assert copy[0] == 1


def test_after_release_every_use_is_an_error_but_not_a_crash():
    state = StateVector(3)
    state.release()
    state.release()
    assert state.n_qubits == 3 and state.precision == "double"
    assert "released" in repr(state)
    for use in [
        lambda: state.array,
        lambda: state.reset(),
        lambda: state.set_basis_state("000"),
        lambda: state.h(0),
        lambda: state.rx(0.1, 0),
        lambda: state.cnot(0, 1),
        lambda: state.run(Circuit(1)),
        lambda: state.probability(0),
        lambda: state.distribution(),
        lambda: setattr(state, "threads", 1),
    ]:
        with pytest.raises(RuntimeError, match="released"):
            use()


def resident_bytes():
    with open("/proc/self/statm") as numbers:
        return int(numbers.read().split()[1]) * resource.getpagesize()


def test_memory_comes_back_at_release_and_after_deletion_when_it_is_needed():
    array = 64 << 20  # smaller blocks may stay with the allocator of the C library
    max_qubits()
    before = resident_bytes()
    for _ in range(5):
        StateVector(22).release()
        view = StateVector(22).array
    assert resident_bytes() - before < 3 * array  # the last view keeps one, another is there for the next state
    del view
    assert resident_bytes() - before < 2 * array
    max_qubits()  # looks at what is free
    assert resident_bytes() - before < array


# Threads of the interpreter


def long_circuit(n, layers):
    circuit = Circuit(n)
    for _ in range(layers):
        for q in range(n):
            circuit.h(q)
    return circuit


def test_other_threads_run_while_a_circuit_does():
    state, circuit = StateVector(18, threads=1), long_circuit(18, 5)
    started = time.perf_counter()
    state.run(circuit)
    layers = max(5, int(5 * 0.5 / (time.perf_counter() - started)))
    circuit = long_circuit(18, layers)  # now about half a second of one call

    worker = threading.Thread(target=state.run, args=(circuit,))
    stalls, last = [], time.perf_counter()
    worker.start()
    while worker.is_alive():
        time.sleep(0.001)
        now = time.perf_counter()
        stalls.append(now - last)
        last = now
    worker.join()
    # Were the interpreter held, this loop would have stood still for the whole call.
    assert max(stalls) < sum(stalls) / 2, (max(stalls), sum(stalls))


def test_two_threads_on_one_state_take_turns():
    # Every pair of amplitudes of qubit 0 starts equal, and stays equal whatever the order of whole gates. Gates that
    # overlapped would reach some pairs in one order and some in the other.
    state = StateVector(18, threads=1).set_basis_state("0" + 17 * "+")

    def work(gate):
        for _ in range(200):
            gate(0)

    workers = [threading.Thread(target=work, args=(gate,)) for gate in (state.h, state.t, state.h, state.x)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    pairs = state.array.reshape(-1, 2)
    assert (pairs == pairs[0]).all()


def test_release_during_a_run_waits_for_it():
    state, circuit = StateVector(18, threads=1), long_circuit(18, 5)
    errors = []

    def work():
        try:
            for _ in range(50):
                state.run(circuit)
        except RuntimeError as error:
            errors.append(str(error))

    worker = threading.Thread(target=work)
    worker.start()
    time.sleep(0.05)
    state.release()
    worker.join()
    assert all("released" in error for error in errors)
    assert "released" in repr(state)


def test_numpy_takes_a_state_for_its_array():
    for precision, dtype in (("double", np.complex128), ("single", np.complex64)):
        state = StateVector(3, precision).h(0).rx(0.3, 1)
        shared = np.asarray(state)
        assert shared.dtype == dtype and np.shares_memory(shared, state.array)
        copied = np.array(state)
        assert not np.shares_memory(copied, state.array) and copied.tobytes() == state.array.tobytes()
        other = np.complex64 if precision == "double" else np.complex128
        assert np.array_equal(np.asarray(state, dtype=other), state.array.astype(other))
        assert np.linalg.norm(state) == pytest.approx(1)
        with pytest.raises(ValueError, match="is a copy of the state's complex"):
            state.__array__(other, copy=False)
