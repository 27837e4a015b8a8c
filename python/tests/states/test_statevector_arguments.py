"""StateVector refuses every wrong argument with an exception that names it, shows it, and tells what was expected."""

import numpy as np
import pytest
from refusals import refused

from velacamplix import StateVector

ONE_QUBIT = ["x", "y", "z", "h", "s", "t", "ztoy", "ytoz"]
ROTATIONS = ["rx", "ry", "rz", "ph"]
PAIRS = ["cnot", "csign", "swap", "iswap", "sqrtswap", "cx", "cz"]


@pytest.fixture
def state():
    made = StateVector(3).set_basis_state("1+0")
    before = made.array.tobytes()
    yield made
    # A refused call leaves the state as it was.
    assert made.array.tobytes() == before


# Construction


@pytest.mark.parametrize("n", [True, 2.0, "3", None, [3], np.array([3]), 1j])
def test_n_of_a_wrong_kind(n):
    with refused(TypeError, "n must be"):
        StateVector(n)


def test_negative_n():
    with refused(ValueError, "n must be", "-1"):
        StateVector(-1)


@pytest.mark.parametrize("precision", ["float", "", "Double", "complex128"])
def test_unknown_precision(precision):
    with refused(ValueError, "precision must be", "'single'", "'double'", repr(precision)):
        StateVector(1, precision)


@pytest.mark.parametrize("precision", [None, 64, np.float32, b"double"])
def test_precision_of_a_wrong_kind(precision):
    with refused(TypeError, "precision must be"):
        StateVector(1, precision)


@pytest.mark.parametrize("threads", [True, 2.0, "2", [1]])
def test_threads_of_a_wrong_kind(threads):
    with refused(TypeError, "threads must be"):
        StateVector(1, threads=threads)


@pytest.mark.parametrize("threads", [0, -1, 10**6, 2**31, 2**64])
def test_impossible_number_of_threads(threads):
    with refused(ValueError, "threads must be", "from 1 to", str(threads)):
        StateVector(1, threads=threads)


def test_threads_are_checked_when_set_later(state):
    with refused(ValueError, "threads must be", "0"):
        state.threads = 0
    assert state.threads >= 1


@pytest.mark.parametrize("count", [np.int64(2), np.uint8(2)])
def test_numpy_integers_are_integers(count):
    assert StateVector(count, threads=count).n_qubits == 2


# Gates


@pytest.mark.parametrize("name", ONE_QUBIT)
@pytest.mark.parametrize("qubit", [3, -1, 2**32, 2**64])
def test_qubit_outside_the_state(name, qubit, state):
    with refused(IndexError, "qubit", "from 0 to 2", str(qubit)):
        getattr(state, name)(qubit)


@pytest.mark.parametrize("name", ONE_QUBIT)
@pytest.mark.parametrize("qubit", [True, 1.0, "0", None, [[0]], np.array([0.0]), {0: 0}])
def test_qubit_of_a_wrong_kind(name, qubit, state):
    with refused(TypeError, "qubit"):
        getattr(state, name)(qubit)


@pytest.mark.parametrize("name", ONE_QUBIT)
def test_controls(name, state):
    gate = getattr(state, name)
    with refused(ValueError, "controls", "target", "0"):
        gate(0, controls=[1, 0])
    with refused(ValueError, "controls", "distinct", "1 twice"):
        gate(0, controls=[1, 1])
    with refused(IndexError, "controls[1]", "3"):
        gate(0, controls=[1, 3])
    with refused(IndexError, "controls[0]", "-1"):
        gate(0, controls=[-1])
    with refused(TypeError, "controls[0]", "True"):
        gate(0, controls=[True])
    with refused(TypeError, "controls", "'12'"):
        gate(0, controls="12")
    with refused(TypeError, "controls", "None"):
        gate(0, controls=None)


@pytest.mark.parametrize("name", ROTATIONS)
def test_qubits_of_rotations(name, state):
    gate = getattr(state, name)
    with refused(IndexError, "qubit", "7"):
        gate(0.5, 7)
    with refused(TypeError, "qubit", "0.5"):
        gate(1, 0.5)
    with refused(ValueError, "controls", "2"):
        gate(0.5, 2, controls=(2,))


@pytest.mark.parametrize("name", ROTATIONS)
@pytest.mark.parametrize("angle", [float("nan"), float("inf"), -float("inf"), np.float32("inf")])
def test_angles_that_are_not_finite(name, angle, state):
    with refused(ValueError, "angle must be finite", "nan" if angle != angle else "inf"):
        getattr(state, name)(angle, 0)


@pytest.mark.parametrize("name", ROTATIONS)
@pytest.mark.parametrize("angle", [True, "0.5", None, 1j, [0.5], np.array([0.5])])
def test_angles_of_a_wrong_kind(name, angle, state):
    with refused(TypeError, "angle must be a real number"):
        getattr(state, name)(angle, 0)


@pytest.mark.parametrize("name", PAIRS)
def test_pairs(name, state):
    gate = getattr(state, name)
    with refused(ValueError, "distinct", "(1, 1)"):
        gate(1, 1)
    for pair in [(0, 3), (3, 0), (-1, 0)]:
        with refused(IndexError, "from 0 to 2", str(max(pair, key=lambda q: not 0 <= q < 3))):
            gate(*pair)
    with refused(TypeError, "0.0"):
        gate(0.0, 1)
    with refused(TypeError, "False"):
        gate(1, False)


def test_three_qubits(state):
    for triple in [(0, 0, 1), (0, 1, 1), (1, 0, 1)]:
        with refused(ValueError, "distinct", str(triple)):
            state.ccnot(*triple)
    with refused(IndexError, "target", "3"):
        state.ccnot(0, 1, 3)
    with refused(IndexError, "control2", "5"):
        state.ccx(0, 5, 1)


# Reset


@pytest.mark.parametrize("text", ["", "0", "0000", "01+-"])
def test_product_of_a_wrong_length(text, state):
    with refused(ValueError, "state must have one character per qubit, 3", repr(text)):
        state.set_basis_state(text)


@pytest.mark.parametrize(("text", "wrong", "position"), [("01x", "'x'", 2), ("2 0", "'2'", 0), ("0−1", "'−'", 1)])
def test_product_with_a_wrong_character(text, wrong, position, state):
    with refused(ValueError, "0 1 + -", wrong, f"position {position}"):
        state.set_basis_state(text)


@pytest.mark.parametrize("number", [8, -1, 2**70])
def test_basis_state_outside_the_range(number, state):
    with refused(ValueError, "state must be", "from 0 to 7", str(number)):
        state.set_basis_state(number)


@pytest.mark.parametrize("value", [True, 1.5, 1j, object, None, [0] * 8, b"000"])
def test_basis_state_of_a_wrong_kind(value, state):
    with refused(TypeError, "state must be an integer from 0 to 7"):
        state.set_basis_state(value)


@pytest.mark.parametrize("value", [1, 1.5, None, "000", object, StateVector(3)])
def test_amplitudes_that_are_none(value, state):
    with refused(TypeError, "array must be an array of 2**3 = 8 amplitudes"):
        state.set_state(value)


@pytest.mark.parametrize(
    "value", [np.eye(8), np.ones(4) / 2, np.ones(16) / 4, [], np.array(1), [[1, 2], [3]], np.ones((8, 1)) / np.sqrt(8)]
)
def test_amplitudes_of_a_wrong_shape(value, state):
    with refused(ValueError, "array must be an array of 2**3 = 8 amplitudes"):
        state.set_state(value)


@pytest.mark.parametrize("value", [["a"] * 8, [None] * 8, [True] + [False] * 7, b"10000000", {"000": 1}])
def test_amplitudes_of_a_wrong_kind(value, state):
    with refused(TypeError, "array must be an array of 2**3 = 8 amplitudes"):
        state.set_state(value)


@pytest.mark.parametrize(
    ("first", "norm"), [(0, "0"), (2, "2"), (1.001, "1.001"), (float("nan"), "nan"), (1e300, "inf"), (1e-300, "0")]
)
@pytest.mark.parametrize("order", ["big", "little"])
def test_amplitudes_that_are_not_of_norm_one(first, norm, order, precision):
    state = StateVector(3, precision)
    with refused(ValueError, "finite and have norm 1", norm):
        state.set_state([first] + [0] * 7, order=order)
    assert state.array[0] == 1


# Readout


@pytest.mark.parametrize("read", [lambda s, q: s.distribution(q), lambda s, q: s.probability(0, q)])
def test_lists_of_qubits(read, state):
    with refused(ValueError, "qubits", "distinct", "1 twice"):
        read(state, [1, 2, 1])
    with refused(IndexError, "qubits[1]", "3"):
        read(state, [0, 3])
    with refused(IndexError, "qubits[0]", "-1"):
        read(state, [-1])
    with refused(TypeError, "qubits[0]", "0.0"):
        read(state, [0.0])
    with refused(TypeError, "qubits", "'01'"):
        read(state, "01")


@pytest.mark.parametrize("outcome", [4, -1, 2**64])
def test_outcome_outside_the_range(outcome, state):
    with refused(ValueError, "outcome must be", "from 0 to 3", str(outcome)):
        state.probability(outcome, [0, 1])


@pytest.mark.parametrize("outcome", ["", "0", "000", "0x", "+1", "1_", " 1", "٠١"])
def test_outcome_that_is_no_bit_string(outcome, state):
    with refused(ValueError, "outcome must be a text of 2 characters 0 and 1"):
        state.probability(outcome, [0, 1])


@pytest.mark.parametrize("outcome", [True, 1.0, None, [0, 1], b"01"])
def test_outcome_of_a_wrong_kind(outcome, state):
    with refused(TypeError, "outcome must be"):
        state.probability(outcome, [0, 1])


@pytest.mark.parametrize(
    "call",
    [
        lambda s, order: s.set_basis_state("000", order=order),
        lambda s, order: s.set_basis_state(0, order),
        lambda s, order: s.probability(0, order=order),
        lambda s, order: s.distribution(order=order),
    ],
)
def test_order(call, state):
    with refused(ValueError, "order must be", "'big'", "'little'", "'Big'"):
        call(state, "Big")
    with refused(TypeError, "order must be", "None"):
        call(state, None)


def test_order_of_amplitudes(state):
    for call in (lambda order: state.set_state(state.array, order), state.statevector):
        with refused(ValueError, "order must be", "'big'", "'little'", "'Big'"):
            call("Big")
        with refused(TypeError, "order must be", "5"):
            call(5)
