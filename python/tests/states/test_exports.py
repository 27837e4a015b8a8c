"""Copies of a state in either order, and dictionaries of what is not small."""

import numpy as np
import pytest
from full_matrices import random_state
from refusals import refused

from velacamplix import StateVector
from velacamplix.states import exports as _exports


def reversed_bits(n):
    """Position p holds p with its n bits reversed."""
    return [int(format(i, f"0{n}b")[::-1], 2) if n else 0 for i in range(2**n)]


@pytest.mark.parametrize("n", [0, 1, 2, 5, 7, 8, 9, 12])
def test_both_orders(n, precision):
    state = StateVector(n, precision, threads=2).set_state(random_state(n, seed=n), order="little")
    assert (state.statevector(order="little") == state.array).all()
    assert (state.statevector(order="big") == state.array[reversed_bits(n)]).all()
    assert state.statevector(order="big").dtype == state.array.dtype


@pytest.mark.parametrize("n", [3, 8])
def test_nothing_is_too_small_to_be_copied(n):
    state = StateVector(n)
    state.array[1], state.array[2] = 1e-200, complex(-0.0, 5e-324)
    copy = state.statevector(order="big")
    assert copy[2 ** (n - 1)] == 1e-200 and copy[2 ** (n - 2)].imag == 5e-324
    assert np.signbit(copy[2 ** (n - 2)].real)


def test_a_copy_is_a_copy():
    state = StateVector(2)
    copy = state.statevector()
    state.x(0)
    assert copy.tolist() == [1, 0, 0, 0]
    state.release()
    assert copy.tolist() == [1, 0, 0, 0]


@pytest.mark.parametrize("order", ["big", "little"])
def test_a_given_array_is_filled_and_returned(order, precision):
    state = StateVector(8, precision).set_state(random_state(8, 1), order="little")
    out = np.full(256, 7, dtype=state.array.dtype)
    assert state.statevector(order, out) is out
    assert (out == state.statevector(order)).all()
    within = np.zeros(300, dtype=state.array.dtype)
    state.statevector(order, out=within[10:266])
    assert (within[10:266] == out).all() and not within[:10].any() and not within[266:].any()


@pytest.mark.parametrize(
    ("out", "error", "words"),
    [
        (np.zeros(8, np.complex64), TypeError, "got type complex64"),
        (np.zeros(8), TypeError, "got type float64"),
        (np.zeros(4, complex), ValueError, "got shape (4,)"),
        (np.zeros((2, 4), complex), ValueError, "got shape (2, 4)"),
        (np.broadcast_to(np.zeros(1, complex), (8,)), ValueError, "locked against writing"),
        ([0] * 8, TypeError, "got [0, 0, 0"),
        (7, TypeError, "got 7"),
    ],
)
def test_arrays_that_cannot_be_filled(out, error, words):
    with refused(error, "out must be a writable array of shape (8,) and type complex128", words):
        StateVector(3).statevector(out=out)


def test_a_state_is_not_copied_onto_itself():
    state = StateVector(2).h(0)
    with refused(ValueError, "out must not share memory with the state"):
        state.statevector(out=state.array)


def test_wrong_orders():
    with refused(ValueError, "order must be"):
        StateVector(1).statevector("upside down")
    with refused(ValueError, "order must be"):
        StateVector(1).to_dict(order="upside down")


def test_no_memory_for_a_copy(monkeypatch):
    state = StateVector(3)
    monkeypatch.setattr(_exports.memory, "SMALL_BYTES", 0)  # small arrays are not worth the question otherwise
    monkeypatch.setattr(_exports.memory.limits, "memory", lambda root: _exports.memory.limits.Memory(100, 100, None))
    with refused(MemoryError, "a copy of the amplitudes of 3 qubits needs 128 bytes; 100 bytes are available"):
        state.statevector()
    with refused(MemoryError, "a dictionary of 1 entries needs 400 bytes"):
        state.to_dict()
    with refused(MemoryError, "a dictionary of 4 entries needs"):
        state.distribution_dict([0, 1])


# Dictionaries


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("n", [1, 3, 9])
def test_amplitudes_by_basis_state(n, order, precision):
    state = StateVector(n, precision).set_state(random_state(n, 1), order="little")
    amplitudes = state.statevector(order)
    expected = {format(i, f"0{n}b"): complex(amplitudes[i]) for i in range(2**n)}
    listed = state.to_dict(order=order)
    assert listed == expected and list(listed) == list(expected)
    assert all(type(amplitude) is complex for amplitude in listed.values())


def test_zeros_are_left_out():
    assert StateVector(3).x(0).to_dict() == {"100": 1}
    assert StateVector(3).x(0).to_dict(order="little") == {"001": 1}
    assert StateVector(0).to_dict() == {"": 1} and StateVector(0).distribution_dict() == {"": 1}


@pytest.mark.parametrize("n", [2, 9])
def test_a_threshold_is_a_magnitude_and_strict(n):
    state = StateVector(n)
    state.array[:3] = [0.5, -0.25j, 0.75]
    sizes = {round(abs(amplitude), 2) for amplitude in state.to_dict(threshold=0.25).values()}
    assert sizes == {0.5, 0.75}
    assert len(state.to_dict(threshold=0.2499)) == 3 and state.to_dict(threshold=0.75) == {}


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("qubits", [None, [], [2], [3, 0], [0, 3], [1, 3, 2], [3, 2, 1, 0]])
def test_distributions_by_outcome(qubits, order, precision):
    state = StateVector(4, precision).set_state(random_state(4, 1), order="little")
    k = 4 if qubits is None else len(qubits)
    distribution = state.distribution(qubits, order)
    expected = {format(i, f"0{k}b") if k else "": float(distribution[i]) for i in range(2**k)}
    listed = state.distribution_dict(qubits, order=order)
    assert listed == pytest.approx(expected, rel=1e-6) and list(listed) == list(expected)
    assert all(type(probability) is float for probability in listed.values())


@pytest.mark.parametrize("threshold", [0.0, 0.1, 0.25, 0.3, 0.5, 1.0])
def test_a_threshold_of_probabilities_is_strict(threshold, precision):
    state = StateVector(2, precision)
    state.array[:] = np.sqrt(np.array([0.0625, 0.25, 0.5625, 0]))
    probabilities = {"00": 0.0625, "10": 0.25, "01": 0.5625}
    expected = {outcome for outcome, probability in probabilities.items() if probability > threshold}
    assert set(state.distribution_dict(threshold=threshold)) == expected


def test_a_threshold_of_probabilities_is_exact(precision):
    state = StateVector(4, precision).set_state(random_state(4, 1), order="little")
    for outcome, probability in state.distribution_dict([1, 3]).items():
        assert outcome in state.distribution_dict([1, 3], threshold=np.nextafter(probability, 0))
        assert outcome not in state.distribution_dict([1, 3], threshold=probability)


@pytest.mark.parametrize("method", ["to_dict", "distribution_dict"])
@pytest.mark.parametrize(
    ("threshold", "error"),
    [(-1e-9, ValueError), (float("nan"), ValueError), (float("inf"), ValueError), ("0", TypeError), (True, TypeError), (1j, TypeError)],
)
def test_bad_thresholds(method, threshold, error):
    with refused(error, "threshold must"):
        getattr(StateVector(1), method)(threshold=threshold)


def test_bad_qubits_of_a_distribution():
    with refused(IndexError, "qubits[0] must be a number from 0 to 1"):
        StateVector(2).distribution_dict([2])
    with refused(ValueError, "qubits must be distinct"):
        StateVector(2).distribution_dict([1, 1])
