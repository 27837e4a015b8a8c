"""Overlaps and fidelities against NumPy's inner product."""

import threading

import numpy as np
import pytest
from full_matrices import random_state
from refusals import refused

from velacamplix import Circuit, StateVector, run

N = 5


def state_of(amplitudes, precision="double", threads=2):
    state = StateVector(len(amplitudes).bit_length() - 1, precision, threads)
    state.array[:] = amplitudes
    return state


@pytest.mark.parametrize("other_precision", ["double", "single"])
def test_overlaps_are_inner_products_of_states_in_either_precision(precision, other_precision, tolerance):
    one, other = state_of(random_state(N, 1), precision), state_of(random_state(N, 2), other_precision)
    # In double precision, also where the amplitudes are single.
    exact = np.vdot(one.array.astype(complex), other.array.astype(complex))
    assert one.overlap(other) == pytest.approx(exact, abs=1e-15)
    assert other.overlap(one) == one.overlap(other).conjugate()
    assert one.fidelity(other) == pytest.approx(abs(exact) ** 2, abs=1e-15)
    assert type(one.overlap(other)) is complex and type(one.fidelity(other)) is float
    assert one.overlap(one) == pytest.approx(1, abs=tolerance) and one.overlap(one).imag == 0
    assert np.array_equal(one.array, random_state(N, 1).astype(one.array.dtype)), "the state changed"


def test_basis_states_have_overlaps_0_and_1(precision):
    one, other = StateVector(3, precision).x(1), StateVector(3, precision).x(1).s(1)
    assert one.overlap(one) == 1 and one.overlap(other) == 1j and other.overlap(one) == -1j
    assert one.fidelity(other) == 1 and one.fidelity(StateVector(3, precision)) == 0
    assert StateVector(0).overlap(StateVector(0)) == 1


@pytest.mark.parametrize(
    "dtype",
    [np.complex128, np.complex64, np.float64, np.float32, np.float16, np.int8, np.uint64, np.longdouble, ">c16"],
)
def test_arrays_of_any_number_type(dtype, precision):
    state = state_of(random_state(3, 3), precision)
    array = np.array([0, 1, 0, 2, 0, 3, 0, 1]).astype(dtype)
    expected = np.vdot(state.array.astype(complex), array.astype(complex))
    assert state.overlap(array) == pytest.approx(expected, abs=1e-14)
    assert state.overlap(array.tolist()) == pytest.approx(expected, abs=1e-14)


def test_arrays_of_any_layout_and_norm(precision):
    state, other = state_of(random_state(N, 1), precision), 7 * random_state(N, 2)
    exact = state.overlap(other)
    assert exact == pytest.approx(np.vdot(state.array.astype(complex), other), abs=1e-14)
    spread = np.zeros(3 * 2**N, complex)
    spread[::3] = other
    odd = np.zeros(16 * 2**N + 1, np.uint8)[1:].view(complex)
    odd[:] = other
    for array in (spread[::3], other[::-1].copy()[::-1], odd):
        assert state.overlap(array) == exact
    assert state.fidelity(other) == exact.real**2 + exact.imag**2


def test_the_order_of_an_array_is_the_callers():
    state = StateVector(3).x(0)
    little, big = np.eye(8)[1], np.eye(8)[4]
    assert state.overlap(little) == state.overlap(little, order="little") == state.overlap(big, order="big") == 1
    assert state.fidelity(big) == 0 and state.fidelity(big, order="big") == 1
    reversed_bits = np.arange(32).reshape((2,) * 5).transpose().reshape(-1)
    one, other = state_of(random_state(5, 1)), random_state(5, 2)
    assert one.overlap(other[reversed_bits], order="big") == one.overlap(other)


def test_a_view_of_a_state_and_the_state_itself_give_the_same():
    one, other = state_of(random_state(N, 1)), state_of(random_state(N, 2))
    assert one.overlap(other.array) == one.overlap(other)
    assert one.overlap(one.array) == one.overlap(one)


@pytest.mark.parametrize("n", [3, 17, 19])
def test_the_same_bits_on_any_number_of_threads(n, precision):
    one, other = random_state(n, 1), random_state(n, 2)
    values = {state_of(one, precision, threads).overlap(state_of(other, "double", 3)) for threads in (1, 2, 8)}
    assert len(values) == 1
    # Blocks of 2**16 amplitudes in index order, and their sums in order.
    bra, ket = state_of(one, precision).array.astype(complex), other
    re, im = bra.real * ket.real + bra.imag * ket.imag, bra.real * ket.imag - bra.imag * ket.real
    blocks = [[np.add.accumulate(part[i : i + 2**16])[-1] for i in range(0, 2**n, 2**16)] for part in (re, im)]
    assert values == {complex(*[float(np.add.accumulate(sums)[-1]) for sums in blocks])}


def test_norms_other_than_1_and_what_is_no_number_show(precision):
    zero, large = state_of(np.zeros(4), precision), state_of([1e30, 0, 0, 0], precision)
    assert zero.overlap(zero) == 0 and zero.fidelity(StateVector(2)) == 0
    assert large.overlap(large) == pytest.approx(1e60)
    broken = state_of([np.nan, 1, 0, 0], precision)
    assert np.isnan(broken.overlap(StateVector(2)).real) and np.isnan(broken.fidelity(StateVector(2)))
    endless = state_of([np.inf, 0, 0, 0], precision)
    assert np.isinf(endless.overlap(StateVector(2)).real)
    assert np.isnan(StateVector(2).x(0).overlap([np.nan, 1, 0, 0]).real), "nan times 0"
    assert state_of([1e200, 0]).overlap([1e200, 0]) == np.inf
    assert state_of([1e200, 0]).fidelity([1, 0]) == np.inf


@pytest.mark.parametrize(
    ("other", "error", "words"),
    [
        (StateVector(4), ValueError, "other must have 3 qubit(s), as this state, got a state of 4"),
        (np.ones(4), ValueError, "other must be a StateVector or an array of 2**3 = 8 amplitudes, got shape (4,)"),
        (np.ones((8, 8)), ValueError, "2**3 = 8 amplitudes, got shape (8, 8)"),
        ("00000000", TypeError, "other must be a StateVector or an array"),
        (None, TypeError, "other must be a StateVector or an array"),
        ([[1, 2], [3]], ValueError, "other must be a StateVector or an array"),
        (["a"] * 8, TypeError, "other must be a StateVector or an array"),
        ([True] * 8, TypeError, "other must be a StateVector or an array"),
        (run(Circuit(3)), TypeError, "other must be a StateVector or an array"),
    ],
)
@pytest.mark.parametrize("ask", [StateVector.overlap, StateVector.fidelity])
def test_wrong_others(ask, other, error, words):
    with refused(error, words):
        ask(StateVector(3), other)


def test_wrong_orders():
    with refused(ValueError, "order must be 'big' or 'little', got 'middle'"):
        StateVector(1).overlap([1, 0], order="middle")
    with refused(ValueError, "order must be left away beside a StateVector"):
        StateVector(1).overlap(StateVector(1), order="big")


def test_released_states():
    state, released = StateVector(2), StateVector(2)
    released.release()
    for one, other in ((state, released), (released, state), (released, released)):
        with refused(RuntimeError, "this StateVector has been released"):
            one.overlap(other)


def test_threads_that_compare_two_states_with_each_other_do_not_wait_for_each_other():
    one, other = state_of(random_state(12, 1)), state_of(random_state(12, 2))
    expected = one.overlap(other)
    wrong = []

    def ask(left, right, value):
        for _ in range(300):
            if left.overlap(right) != value:
                wrong.append(left)

    threads = [
        threading.Thread(target=ask, args=arguments, daemon=True)
        for arguments in 2 * [(one, other, expected), (other, one, expected.conjugate())]
    ]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
        assert not thread.is_alive()
    assert not wrong


def test_progress_is_told_and_may_end_the_call(monkeypatch):
    from velacamplix.programs import drive, progress

    for module in (drive, progress):
        monkeypatch.setattr(module, "INTERVAL", 0.0)
    state, other = StateVector(23, "single"), StateVector(23, "single").x(22)
    told, refusals = [], []

    def listen(progress):
        told.append((progress.done, progress.total))
        for busy in (state, other) if progress.done < progress.total else ():
            with pytest.raises(RuntimeError, match="cannot be used by what its work calls") as error:
                busy.norm()
            refusals.append(error)

    assert state.overlap(other, progress=listen) == 0
    assert told == [(2**22, 2**23), (2**23, 2**23)] and len(refusals) == 2

    def stop(progress):
        raise KeyError("enough")

    with pytest.raises(KeyError):
        state.fidelity(other, progress=stop)
    assert state.norm() == other.norm() == 1
    with refused(TypeError, "progress must be None, True, False or a function"):
        state.overlap(other, progress=1)
