"""Every argument check: what passes, what is refused, and how the message reads."""

import decimal
import fractions

import numpy as np
import pytest

from velacamplix.basics import checks as _check

NAN, INF = float("nan"), float("inf")


def refused(kind, words, function, *args, **kwargs):
    with pytest.raises(kind) as caught:
        function(*args, **kwargs)
    assert type(caught.value) is kind
    for word in words:
        assert word in str(caught.value)


class Thing:
    """Nothing that is asked for; all processes of the tests call it the same."""

    def __repr__(self):
        return "<a thing>"


THING = Thing()
INTEGERS = [3, np.int8(3), np.uint64(3), np.array(3)]
NO_INTEGERS = [3.0, 2.7, "3", b"3", None, 1j, True, False, np.bool_(True), np.float64(3), np.array([3]), [3], THING]


@pytest.mark.parametrize("value", INTEGERS, ids=repr)
def test_any_integer_becomes_a_plain_int(value):
    assert type(_check.integer(value, "shots")) is int
    assert _check.integer(value, "shots") == 3
    assert type(_check.qubit(value, 4)) is int


@pytest.mark.parametrize("value", NO_INTEGERS, ids=repr)
def test_what_is_no_integer_is_refused(value):
    refused(TypeError, ["shots must be", "integer", "got"], _check.integer, value, "shots", minimum=1)
    refused(TypeError, ["qubit must be an integer", "got"], _check.qubit, value, 4)


@pytest.mark.parametrize("value", [0, -1, 9])
def test_integer_outside_its_bounds_is_refused(value):
    refused(ValueError, ["shots", "from 1 to 8", f"got {value}"], _check.integer, value, "shots", 1, 8)


def test_integer_bounds_are_inclusive_and_optional():
    assert _check.integer(1, "n", 1, 8) == 1
    assert _check.integer(8, "n", 1, 8) == 8
    assert _check.integer(-(10**30), "n") == -(10**30)
    refused(ValueError, ["at least 1", "got 0"], _check.integer, 0, "n", minimum=1)
    refused(ValueError, ["at most 8", "got 9"], _check.integer, 9, "n", maximum=8)


@pytest.mark.parametrize("value", [-1, 3, 2**64, -(2**70)])
def test_qubit_outside_of_the_register_is_an_index_error(value):
    refused(IndexError, ["control", "from 0 to 2", "got"], _check.qubit, value, 3, "control")


def test_no_qubit_of_an_empty_register_exists():
    refused(IndexError, ["qubit", "none", "got 0"], _check.qubit, 0, 0)


@pytest.mark.parametrize("values", [[2, 0], (2, 0), np.array([2, 0]), range(2, -1, -2), iter([2, 0]), {2: 0, 0: 0}.keys()])
def test_any_iterable_of_integers_becomes_a_tuple(values):
    assert _check.qubits(values, 3) == (2, 0)


def test_a_single_integer_stands_for_a_list_of_one():
    assert _check.qubits(np.int32(2), 3) == (2,)
    assert _check.controls(1, (0,), 3) == (1,)


@pytest.mark.parametrize("values", ["01", b"01", {0: 1}, None, THING], ids=repr)
def test_what_is_no_list_is_refused(values):
    refused(TypeError, ["qubits must be a sequence of integers", "got"], _check.qubits, values, 3)


@pytest.mark.parametrize("value", [1.0, True, 1j, np.float32(1)], ids=repr)
def test_a_wrong_scalar_instead_of_a_list_is_refused_as_a_number(value):
    refused(TypeError, ["qubits", "must be an integer", "got"], _check.qubits, value, 3)


def test_the_wrong_entry_of_a_list_is_named():
    refused(TypeError, ["qubits[1]", "1.5"], _check.qubits, [0, 1.5], 3)
    refused(IndexError, ["qubits[2]", "got 7"], _check.qubits, [0, 1, 7], 3)


def test_a_list_of_the_wrong_kind_of_array_is_refused():
    refused(TypeError, ["qubits[0]"], _check.qubits, np.array([0.0, 1.0]), 3)
    refused(TypeError, ["qubits[0]"], _check.qubits, np.array([[0, 1]]), 3)


def test_repeated_qubits_are_refused():
    refused(ValueError, ["qubits must be distinct", "1 twice"], _check.qubits, [0, 1, 1], 3)


def test_an_empty_list_is_refused_where_one_is_needed():
    refused(ValueError, ["qubits must hold at least 1"], _check.qubits, [], 3)
    assert _check.qubits([], 3, at_least=0) == ()
    assert _check.controls((), (0,), 3) == ()


def test_target_among_controls_is_refused():
    refused(ValueError, ["controls", "target", "got 2"], _check.controls, [0, 2], (2,), 3)


def test_distinct_refuses_a_repeated_number():
    assert _check.distinct((0, 1), "control and target") is None
    refused(ValueError, ["control and target must be distinct", "(1, 1)"], _check.distinct, (1, 1), "control and target")


@pytest.mark.parametrize(
    "value", [0.5, np.float32(0.5), np.float16(0.5), np.array(0.5), fractions.Fraction(1, 2), decimal.Decimal("0.5")], ids=repr
)
def test_any_real_number_is_an_angle(value):
    assert type(_check.angle(value)) is float
    assert _check.angle(value) == 0.5


def test_integers_are_angles():
    assert _check.angle(2) == 2.0
    assert _check.angle(np.int64(-1)) == -1.0


@pytest.mark.parametrize(
    "value", ["0.5", b"0.5", None, 1j, np.complex128(1), True, np.bool_(False), [0.5], np.array([0.5]), THING], ids=repr
)
def test_what_is_no_real_number_is_no_angle(value):
    refused(TypeError, ["theta must be a real number", "got"], _check.angle, value, "theta")


@pytest.mark.parametrize("value", [NAN, INF, -INF, np.float32("nan"), np.array(INF)], ids=repr)
def test_an_infinite_angle_is_refused(value):
    refused(ValueError, ["angle must be finite", "got"], _check.angle, value)


def test_an_integer_beyond_all_doubles_is_refused():
    refused(ValueError, ["angle", "double", "got"], _check.angle, 10**400)


@pytest.mark.parametrize("value", ["single", "double"])
def test_both_precisions_pass(value):
    assert _check.precision(value) == value


def test_other_precisions_are_refused():
    refused(ValueError, ["precision", "'single' or 'double'", "'half'"], _check.precision, "half")
    refused(TypeError, ["precision", "'single' or 'double'", "64"], _check.precision, 64)
    refused(TypeError, ["precision"], _check.precision, np.float32)


def test_other_orders_are_refused():
    assert _check.order("little") == "little"
    refused(ValueError, ["order", "'big' or 'little'", "'BIG'"], _check.order, "BIG")


def test_a_matrix_is_copied_into_complex_rows():
    given = np.array([[0, 1], [1, 0]], dtype=np.int8)
    checked = _check.matrix(given, 1)
    assert checked.dtype == np.complex128
    assert checked.flags.c_contiguous
    assert checked.base is None
    assert _check.matrix(np.asfortranarray(np.diag([1, 1j])), 1).flags.c_contiguous


@pytest.mark.parametrize("value", [[[1, 0]], [1, 0, 0, 1], np.eye(4), np.eye(3), np.zeros((2, 2, 1)), 1, []], ids=repr)
def test_a_matrix_of_the_wrong_shape_is_refused(value):
    refused(ValueError, ["gate must be a 2 x 2 array of numbers for 1 qubit", "got shape"], _check.matrix, value, 1, "gate")


@pytest.mark.parametrize("value", [None, "ab", [["a", "b"], ["c", "d"]], THING], ids=repr)
def test_a_matrix_of_anything_but_numbers_is_refused(value):
    refused(TypeError, ["gate must be a 2 x 2 array of numbers", "got"], _check.matrix, value, 1, "gate")


def test_a_matrix_with_ragged_rows_is_refused():
    with pytest.raises((ValueError, TypeError), match="gate must be a 2 x 2 array"):
        _check.matrix([[1, 0], [0]], 1, "gate")


@pytest.mark.parametrize("value", [NAN, INF, complex(0, NAN)], ids=repr)
def test_a_matrix_with_infinite_entries_is_refused(value):
    refused(ValueError, ["matrix must hold finite numbers"], _check.matrix, [[value, 0], [0, 1]], 1)
    refused(ValueError, ["matrix must hold finite numbers"], _check.matrix, [[value, 0], [0, 1]], 1, unitary=False)


@pytest.mark.parametrize("value", [[[1, 1], [1, 1]], [[1, 0], [0, 0.9999]], [[1e200, 0], [0, 1e200]]], ids=repr)
def test_a_matrix_that_is_not_unitary_is_refused_unless_wanted(value):
    refused(ValueError, ["matrix must be unitary", "off the identity"], _check.matrix, value, 1)
    assert np.array_equal(_check.matrix(value, 1, unitary=False), value)


@pytest.mark.parametrize("products", [1, 2 * 16**2, 5 * 16**2, 2**31])
def test_a_large_matrix_is_looked_at_a_few_rows_at_a_time(products, monkeypatch):
    monkeypatch.setattr(_check, "_PRODUCTS_AT_ONCE", products)
    unitary = np.linalg.qr(np.random.default_rng(4).normal(size=(16, 16)))[0]
    assert np.array_equal(_check.matrix(unitary, 4), unitary)
    for row in (0, 3, 15):
        for wrong in (0.5, 1e200):
            changed = unitary.copy()
            changed[row] *= wrong
            refused(ValueError, ["matrix must be unitary"], _check.matrix, changed, 4)


def test_a_unitary_of_single_precision_passes():
    rng = np.random.default_rng(5)
    unitary, _ = np.linalg.qr(rng.normal(size=(32, 32)) + 1j * rng.normal(size=(32, 32)))
    _check.matrix(unitary.astype(np.complex64), 5)


def test_long_values_are_shortened_in_messages():
    with pytest.raises(ValueError) as caught:
        _check.precision("x" * 100_000)
    assert len(str(caught.value)) < 200
    with pytest.raises(ValueError) as caught:
        _check.qubits(list(range(1000)) + [0], 1000)
    assert len(str(caught.value)) < 200
