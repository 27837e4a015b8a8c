"""Writing data into a state, against direct constructions, in both orders."""

import numpy as np
import pytest
from full_matrices import random_state
from refusals import refused

from velacamplix import StateVector

ORDERS = ["big", "little"]


def read(index, qubits, order):
    """What the listed qubits read in a basis state, as a number."""
    bits = [index >> qubit & 1 for qubit in qubits]
    return sum(bit << place for place, bit in enumerate(bits[::-1] if order == "big" else bits))


def without(index, qubits):
    """The index with the listed qubits at 0."""
    return index & ~sum(1 << qubit for qubit in qubits)


# State preparation


@pytest.mark.parametrize("order", ORDERS)
@pytest.mark.parametrize("qubits", [[0], [3], [0, 2], [2, 0], [3, 1, 2], [1, 3, 0, 2], [0, 1, 2, 3]])
def test_preparation_of_qubits_in_state_0(qubits, order, precision, tolerance):
    data = random_state(len(qubits), seed=1)
    state = StateVector(4, precision, threads=2).prepare(data, qubits, order)
    expected = [data[read(i, qubits, order)] if without(i, qubits) == 0 else 0 for i in range(16)]
    assert np.abs(state.array - expected).max() < tolerance


@pytest.mark.parametrize("order", ORDERS)
@pytest.mark.parametrize("qubits", [[1], [3, 0], [0, 3], [2, 1, 3]])
def test_preparation_keeps_the_weights_of_the_others(qubits, order, precision, tolerance):
    before, data = random_state(4, seed=4), random_state(len(qubits), seed=5)
    state = StateVector(4, precision).set_state(before, order="little").prepare(data, qubits, order)
    weights = np.zeros(16)
    for i in range(16):
        weights[without(i, qubits)] += abs(before[i]) ** 2
    expected = [data[read(i, qubits, order)] * np.sqrt(weights[without(i, qubits)]) for i in range(16)]
    assert np.abs(state.array - expected).max() < tolerance
    others = [qubit for qubit in range(4) if qubit not in qubits]
    unchanged = StateVector(4).set_state(before, order="little").distribution(others)
    assert np.allclose(state.distribution(others), unchanged, atol=1e-6)


def test_the_order_of_qubits_is_that_of_the_data():
    for qubits in ([2, 0], [0, 2]):
        state = StateVector(3).prepare([0, 1, 0, 0], qubits)  # the outcome 01: the second listed reads 1
        assert state.probability("01", qubits) == 1


def test_data_of_other_types():
    assert StateVector(2).prepare([0, 1], 1).counts(1) == {"01": 1}
    assert StateVector(2).prepare(np.array([1, 0, 0, 1], np.float32)[::-1] / np.sqrt(2), [0, 1]).expectation("X0 X1") == (
        pytest.approx(1)
    )
    data = random_state(3, 1)
    before = data.copy()
    StateVector(3).prepare(data, [2, 1, 0])
    assert (data == before).all()


@pytest.mark.parametrize(
    ("data", "error", "words"),
    [
        ([1, 0, 0], ValueError, "data must be an array of 2**1 = 2 amplitudes, got shape (3,)"),
        ([[1, 0]], ValueError, "got shape (1, 2)"),
        ([1, 1], ValueError, "data must be finite and have norm 1, got an array of norm 1.41421"),
        ([0, 0], ValueError, "norm 0"),
        ([1, np.nan], ValueError, "norm nan"),
        (["1", "0"], TypeError, "data must be an array"),
        ("10", TypeError, "data must be an array of 2**1 = 2 amplitudes, got '10'"),
        ([True, False], TypeError, "data must be an array"),
        (None, TypeError, "data must be an array"),
        (1.0, TypeError, "data must be an array"),
        ([1, None], TypeError, "data must be an array"),
    ],
)
def test_bad_data_to_prepare(data, error, words):
    state = StateVector(2).h(1)
    before = state.array.tobytes()
    with refused(error, words):
        state.prepare(data, 0)
    assert state.array.tobytes() == before


@pytest.mark.parametrize(
    ("qubits", "error"), [([2], IndexError), ([-1], IndexError), ([], ValueError), (["0"], TypeError), (None, TypeError)]
)
def test_bad_qubits_to_prepare(qubits, error):
    with refused(error, "qubits"):
        StateVector(2).prepare([1, 0], qubits)


# QRAM


@pytest.mark.parametrize("order", ORDERS)
@pytest.mark.parametrize(
    ("address", "value"), [([0], [1]), ([1, 0], [3]), ([4], [0, 2]), ([2, 4], [3, 0]), ([0, 3, 1], [2, 4]), ([], [1, 0])]
)
def test_qram(address, value, order, precision, tolerance):
    generator = np.random.default_rng(3)
    data = generator.normal(size=(2 ** len(address), 2 ** len(value)))
    # Any state whose value register reads 0.
    before = random_state(5, seed=6)
    before[[i for i in range(32) if read(i, value, "big")]] = 0
    before /= np.linalg.norm(before)
    state = StateVector(5, precision, threads=2).set_state(before, order="little").qram(data, address, value, order)
    expected = [
        before[without(i, value)]
        * data[read(i, address, order), read(i, value, order)]
        / np.linalg.norm(data[read(i, address, order)])
        for i in range(32)
    ]
    assert np.abs(state.array - expected).max() < tolerance


def test_qram_rows_of_any_size(precision):
    data = np.array([[3, 4], [0, -1]])
    plain = StateVector(2, precision).h(0).qram(data, 0, 1).array.copy()
    for scale in (1e-300, 1e-30, 1e30, 1e300):
        assert np.allclose(StateVector(2, precision).h(0).qram(data * scale, 0, 1).array, plain, atol=1e-7)
    assert plain[0] == pytest.approx(0.6 * np.sqrt(0.5)) and plain[3] == pytest.approx(-np.sqrt(0.5))


@pytest.mark.parametrize(
    ("data", "error", "words"),
    [
        ([[1, 0]], ValueError, "data must be an array of real numbers with a row for each of 2 addresses and a column for each of 2 values, got shape (1, 2)"),
        ([1, 0, 0, 1], ValueError, "got shape (4,)"),
        ([[1, 0], [0, 0]], ValueError, "data must not have a row of zeros, which has no direction; row 1 is one"),
        ([[1, 0], [0, 1j]], TypeError, "data must be an array of real numbers"),
        ([[1, 0], [0, np.inf]], ValueError, "data must hold finite numbers only"),
        ([[1, 0], [np.nan, 1]], ValueError, "data must hold finite numbers only"),
        ([[1, 0], [0]], (ValueError, TypeError), "data must be an array of real numbers"),
        ("1001", TypeError, "data must be"),
        (None, TypeError, "data must be"),
        ([[True, False], [True, False]], TypeError, "data must be"),
    ],
)
def test_bad_data_for_qram(data, error, words):
    state = StateVector(2).h(0)
    before = state.array.tobytes()
    with pytest.raises(error) as caught:
        state.qram(data, 0, 1)
    assert words in str(caught.value)
    assert state.array.tobytes() == before


# Binary QRAM


@pytest.mark.parametrize("order", ORDERS)
@pytest.mark.parametrize(
    ("address", "value"), [([0], [1]), ([1, 0], [3]), ([4], [0, 2]), ([2, 4], [3, 0]), ([0, 3, 1], [2, 4]), ([], [1, 0])]
)
def test_binary_qram(address, value, order, precision, tolerance):
    data = np.random.default_rng(3).integers(2 ** len(value), size=2 ** len(address))
    before = random_state(5, seed=6)
    before[[i for i in range(32) if read(i, value, "big")]] = 0
    before /= np.linalg.norm(before)
    state = StateVector(5, precision).set_state(before, order="little").binary_qram(data, address, value, order)
    expected = [
        before[without(i, value)] if read(i, value, order) == data[read(i, address, order)] else 0 for i in range(32)
    ]
    assert np.abs(state.array - expected).max() < tolerance


@pytest.mark.parametrize("dtype", [np.int8, np.uint8, np.int64, np.uint64, object])
def test_integers_of_any_type(dtype):
    data = np.array([1, 3], dtype=dtype)
    if dtype is object:
        data = data.tolist()
    assert sorted(StateVector(3).h(0).binary_qram(data, 0, [1, 2]).to_dict()) == ["001", "111"]


@pytest.mark.parametrize(
    ("data", "error", "words"),
    [
        ([0], ValueError, "data must hold 2 integers from 0 to 3, one per address, got shape (1,)"),
        ([0, 4], ValueError, "data must hold 2 integers from 0 to 3, one per address, got 4 for address 1"),
        ([-1, 0], ValueError, "got -1 for address 0"),
        ([0.0, 1.0], TypeError, "data must hold 2 integers"),
        ([True, False], TypeError, "data must hold 2 integers"),
        ([0, 2**70], (TypeError, ValueError), "data must hold 2 integers"),
        ("01", TypeError, "data must hold 2 integers"),
        (None, TypeError, "data must hold 2 integers"),
    ],
)
def test_bad_data_for_binary_qram(data, error, words):
    state = StateVector(3).h(0)
    before = state.array.tobytes()
    with pytest.raises(error) as caught:
        state.binary_qram(data, 0, [1, 2])
    assert words in str(caught.value)
    assert state.array.tobytes() == before


# Registers of both


@pytest.mark.parametrize(("method", "data"), [("qram", [[1, 0], [0, 1]]), ("binary_qram", [0, 1])])
def test_the_value_register_has_to_be_empty(method, data, precision):
    state = StateVector(3, precision).h(0).ry(0.2, 1)
    before = state.array.tobytes()
    with refused(ValueError, "value_qubits must read 0 before data is loaded, got a probability of 0.00996", "(1,)"):
        getattr(state, method)(data, 0, 1)
    assert state.array.tobytes() == before


@pytest.mark.parametrize(("method", "data"), [("qram", [[1, 0], [0, 1]]), ("binary_qram", [0, 1])])
@pytest.mark.parametrize(
    ("address", "value", "error", "words"),
    [
        ([0], [0], ValueError, "value_qubits must not contain an address qubit, got 0 in both"),
        ([3], [0], IndexError, "address_qubits[0] must be a number from 0 to 2"),
        ([0], [-1], IndexError, "value_qubits[0] must be a number from 0 to 2"),
        ([0], [], ValueError, "value_qubits must hold at least 1"),
        ([0, 0], [1], ValueError, "address_qubits must be distinct"),
        ([0], [1, 1], ValueError, "value_qubits must be distinct"),
        (["0"], [1], TypeError, "address_qubits[0] must be an integer"),
        ([0], None, TypeError, "value_qubits must be a sequence"),
    ],
)
def test_bad_registers(method, data, address, value, error, words):
    with refused(error, words):
        getattr(StateVector(3), method)(data, address, value)


# Phase oracle


@pytest.mark.parametrize("order", ORDERS)
@pytest.mark.parametrize("qubits", [[0], [3], [0, 1], [1, 0], [3, 0, 2], [0, 1, 2, 3], [2, 3, 0, 1]])
def test_phase_oracle(qubits, order, precision):
    before = random_state(4, seed=7)
    for marked in ([0], [1], [2 ** len(qubits) - 1, 0], range(0, 2 ** len(qubits), 2)):
        state = StateVector(4, precision).set_state(before, order="little")
        start = state.array.copy()
        state.phase_oracle(marked, qubits, order)
        signs = np.array([-1 if read(i, qubits, order) in marked else 1 for i in range(16)])
        assert (state.array == signs * start).all()


def test_marked_outcomes_as_texts_and_repeated():
    state = StateVector(3).set_basis_state("+++")
    as_texts = state.copy().phase_oracle(["011", "011", 3, "110"], [0, 1, 2]).array
    assert (as_texts == state.copy().phase_oracle([6, 3], [0, 1, 2]).array).all()
    assert (as_texts == state.copy().phase_oracle(np.array([3, 6]), [0, 1, 2]).array).all()


def test_nothing_marked():
    state = StateVector(2).h(0)
    before = state.array.tobytes()
    assert state.phase_oracle([], [0, 1]).array.tobytes() == before


def test_an_oracle_undoes_itself():
    state = StateVector(5).set_state(random_state(5, 1), order="little")
    before = state.array.tobytes()
    assert state.phase_oracle([1, 5, 6], [4, 0, 2]).phase_oracle([6, 5, 1], [4, 0, 2]).array.tobytes() == before


@pytest.mark.parametrize(
    ("marked", "error", "words"),
    [
        ([4], ValueError, "marked[0] must be an integer from 0 to 3, got 4"),
        ([0, -1], ValueError, "marked[1] must be an integer from 0 to 3, got -1"),
        (["0"], ValueError, "marked[0] must be a text of 2 characters 0 and 1"),
        (["0x"], ValueError, "marked[0] must be a text of 2 characters"),
        ([0.0], TypeError, "marked[0] must be an integer"),
        ([True], TypeError, "marked[0] must be an integer"),
        ("01", TypeError, "marked must be a sequence of outcomes, got '01'"),
        (1, TypeError, "marked must be a sequence of outcomes, got 1"),
    ],
)
def test_bad_marked_outcomes(marked, error, words):
    state = StateVector(2).h(0)
    before = state.array.tobytes()
    with refused(error, words):
        state.phase_oracle(marked, [0, 1])
    assert state.array.tobytes() == before


@pytest.mark.parametrize(("qubits", "error"), [([2], IndexError), ([], ValueError), ([0, 0], ValueError), (None, TypeError)])
def test_bad_qubits_of_an_oracle(qubits, error):
    with refused(error, "qubits"):
        StateVector(2).phase_oracle([0], qubits)


def test_bad_orders():
    state = StateVector(2)
    for act in (
        lambda: state.prepare([1, 0], 0, "left"),
        lambda: state.qram([[1, 0]] * 2, 0, 1, "left"),
        lambda: state.binary_qram([0, 0], 0, 1, "left"),
        lambda: state.phase_oracle([0], 0, "left"),
    ):
        with refused(ValueError, "order must be 'big' or 'little', got 'left'"):
            act()
