"""Observables: three ways to write one, arithmetic, and every mistake told with its place."""

import copy
import pickle
from fractions import Fraction

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as some
from refusals import refused

from velacamplix import Observable, StateVector, Term

# Reading texts


@pytest.mark.parametrize(
    ("text", "terms", "constant"),
    [
        ("0.5*X0 Y2 - 1.2*Z1 + 3", [(0.5, "XY", (0, 2)), (-1.2, "Z", (1,))], 3),
        ("X0", [(1, "X", (0,))], 0),
        ("-X0", [(-1, "X", (0,))], 0),
        ("+Z3", [(1, "Z", (3,))], 0),
        ("3", [], 3),
        ("1 - 4", [], -3),
        ("Y2X0", [(1, "XY", (0, 2))], 0),
        ("X0*Z1*Y5", [(1, "XZY", (0, 1, 5))], 0),
        ("2X0 Z1", [(2, "XZ", (0, 1))], 0),
        ("  2 * X0\n+ .5\tZ1 ", [(2, "X", (0,)), (0.5, "Z", (1,))], 0),
        ("1e-3*X0 + 2.E2*Z0", [(1e-3, "X", (0,)), (200, "Z", (0,))], 0),
        ("X0 + -1.5*Z1 - -2", [(1, "X", (0,)), (-1.5, "Z", (1,))], 2),
        ("2j*X0 - (1-2j)*Z0 + (3)", [(2j, "X", (0,)), (-1 + 2j, "Z", (0,))], 3),
        ("( 1 + 2j ) X0", [(1 + 2j, "X", (0,))], 0),
        ("I0 + 2*I5 X1", [(2, "X", (1,))], 1),
        ("X0 + X0 + 0*Z1", [(1, "X", (0,)), (1, "X", (0,)), (0, "Z", (1,))], 0),
        ("Z63", [(1, "Z", (63,))], 0),
        ("Z64 X65535", [(1, "ZX", (64, 65535))], 0),
        ("Z007", [(1, "Z", (7,))], 0),
    ],
)
def test_texts(text, terms, constant):
    observable = Observable(text)
    assert observable.terms == tuple(terms)
    assert observable.constant == constant


@pytest.mark.parametrize(
    ("text", "words"),
    [
        ("", "a factor X, Y, Z or I with the number of its qubit, as in X0 at position 0, got the end"),
        ("  ", "at position 2, got the end"),
        ("0.5*X0 Q3", "as in X0 at position 7, got 'Q3'"),
        ("x0", "at position 0, got 'x0'"),
        ("X0 +", "at position 4, got the end"),
        ("3*", "at position 2, got the end"),
        ("X0*3", "at position 3, got '3'"),
        ("2 3", "at position 2, got '3'"),
        ("X0 * * Z1", "at position 5, got '* Z1'"),
        ("X0 Z1 X0", "each qubit once in a term, but qubit 0 again at position 6"),
        ("Z65536", "a qubit from 0 to 65535 at position 0"),
        ("Z" + "9" * 5000, "a qubit from 0 to 65535 at position 0"),
        ("1e999*X0", "a number that fits a double at position 0, got '1e999*X0'"),
        ("X0 + (1+2)*Z0", "a complex number in parentheses, as in (1+2j) at position 5"),
        ("(1+2j X0", "at position 0, got '(1+2j X0'"),
        ("X0 / 2", "at position 3, got '/ 2'"),
        ("nan*X0", "at position 0, got 'nan*X0'"),
        ("X٣", "at position 0, got 'X٣'"),
        ("X0; Z1", "at position 2, got '; Z1'"),
    ],
)
def test_malformed_texts(text, words):
    with refused(ValueError, "observable must have", words):
        Observable(text)


# Dictionaries and lists


def test_the_first_letter_of_a_string_is_qubit_0_or_the_last():
    assert Observable({"XIY": 0.5}).terms == (Term(0.5, "XY", (0, 2)),)
    assert Observable({"XIY": 0.5}, order="little").terms == (Term(0.5, "YX", (0, 2)),)


def test_strings_tell_the_number_of_qubits():
    assert Observable({"ZII": 1}).n_qubits == 3
    assert Observable({"III": 2}) == Observable("2") and Observable({"III": 2}).n_qubits == 3
    assert Observable({"": 2}) == Observable("2") and Observable({}) == Observable("0")


def test_letters_of_a_tuple_follow_its_qubits():
    observable = Observable([(2, "XIZ", (5, 1, 0)), (1.5, "", ()), (1, "Y", 3)])
    assert observable.terms == (Term(2, "ZX", (0, 5)), Term(1, "Y", (3,)))
    assert observable.constant == 1.5 and observable.n_qubits == 6


def test_numbers_of_any_kind():
    for number in (2, 2.0, np.float32(2), np.int64(2), np.array(2.0), 2 + 0j, np.complex64(2)):
        coefficient = Observable({"X": number}).terms[0].coefficient
        assert coefficient == 2 and type(coefficient) is float


def test_an_observable_can_be_made_of_one():
    observable = Observable({"XII": 2, "III": 1})
    again = Observable(observable)
    assert again == observable and again.n_qubits == 3


@pytest.mark.parametrize(
    ("terms", "error", "words"),
    [
        (None, TypeError, "observable must be a text, a dictionary, or a list of (coefficient, letters, qubits), got None"),
        (3, TypeError, "observable must be"),
        (b"X0", TypeError, "observable must be"),
        ({"XQ": 1}, ValueError, "only the letters I, X, Y and Z, got 'Q' at position 1 of 'XQ'"),
        ({"xz": 1}, ValueError, "got 'x' at position 0"),
        ({0: 1}, TypeError, "observable[0] must be a text of letters"),
        ({"X": 1, "XY": 2}, ValueError, "observable['XY'] must have as many letters as the others, 1, got 2"),
        ({"X" * 65537: 1}, ValueError, "must have at most 65536 letters, got 65537"),
        ({"X": "1"}, TypeError, "observable['X'] must be a number, got '1'"),
        ({"X": True}, TypeError, "observable['X'] must be a number, got True"),
        ({"X": float("nan")}, ValueError, "observable['X'] must be finite, got nan"),
        ({"X": complex(0, float("inf"))}, ValueError, "must be finite"),
        ({"X": 10**400}, ValueError, "observable['X'] must fit a double"),
        ({"X": [1]}, TypeError, "must be a number"),
        ([(1, "X")], ValueError, "observable[0] must be (coefficient, letters, qubits)"),
        ([(1, "X", [0]), "X0"], TypeError, "observable[1] must be (coefficient, letters, qubits), got 'X0'"),
        ([(1, "XY", [0])], ValueError, "observable[0] must have one letter per qubit, got 'XY' on [0]"),
        ([(1, "XX", [0, 0])], ValueError, "qubits of observable[0] must be distinct, got 0 twice"),
        ([(1, "X", [65536])], IndexError, "qubits of observable[0][0] must be a number from 0 to 65535"),
        ([(1, "X", [-1])], IndexError, "must be a number from 0 to 65535, got -1"),
        ([(1, "X", [0.0])], TypeError, "must be an integer"),
        ([(1, 0, [0])], TypeError, "letters of observable[0] must be a text"),
        ([("1", "X", [0])], TypeError, "coefficient of observable[0] must be a number"),
        ((1, "X", [0]), TypeError, "observable[0] must be (coefficient, letters, qubits), got 1"),
    ],
)
def test_wrong_descriptions(terms, error, words):
    with refused(error, words):
        Observable(terms)


def test_wrong_order():
    with refused(ValueError, "order must be 'big' or 'little', got 'large'"):
        Observable({"X": 1}, order="large")


# Arithmetic

coefficients = some.integers(-8, 8).map(lambda i: i / 4)
strings = some.text("IXYZ", min_size=3, max_size=3)
observables = some.dictionaries(strings, coefficients, max_size=4).map(Observable)


def matrix(observable, n=3):
    factors = {
        "I": np.eye(2),
        "X": np.array([[0, 1], [1, 0]]),
        "Y": np.array([[0, -1j], [1j, 0]]),
        "Z": np.diag([1, -1]),
    }
    total = observable.constant * np.eye(2**n, dtype=complex)
    for coefficient, paulis, qubits in observable.terms:
        product = np.eye(1)
        for qubit in range(n):
            letter = paulis[qubits.index(qubit)] if qubit in qubits else "I"
            product = np.kron(product, factors[letter])
        total += coefficient * product
    return total


@given(observables, observables, coefficients)
@settings(deadline=None)
def test_sums_are_sums_of_matrices(a, b, number):
    assert (matrix(a + b) == matrix(a) + matrix(b)).all()
    assert (matrix(a - b) == matrix(a) - matrix(b)).all()
    assert (matrix(-a) == -matrix(a)).all() and (matrix(+a) == matrix(a)).all()
    assert (matrix(number * a) == number * matrix(a)).all() and a * number == number * a
    assert (matrix(a / 4) == matrix(a) / 4).all()
    assert (matrix(a + number) == matrix(a) + number * np.eye(8)).all() and number + a == a + number
    assert (matrix(number - a) == number * np.eye(8) - matrix(a)).all()
    assert a + b - b == a and hash(a + b) == hash(b + a)
    assert (matrix(a.simplify()) == matrix(a)).all()


@given(observables, observables)
@settings(deadline=None)
def test_equality_is_that_of_the_matrices(a, b):
    assert (a == b) == (matrix(a) == matrix(b)).all()


@given(some.lists(some.tuples(some.complex_numbers(allow_nan=False, allow_infinity=False, max_magnitude=1e9), strings)))
@settings(max_examples=50, deadline=None)
def test_the_text_of_an_observable_reads_back(pairs):
    observable = Observable([(coefficient, string, range(3)) for coefficient, string in pairs])
    assert Observable(str(observable)) == observable
    assert eval(repr(observable)) == observable


def test_terms_stay_as_they_were_given_until_simplified():
    observable = Observable("X0 + Z1 - Z1 + 2*X0")
    assert len(observable.terms) == 4
    assert observable.simplify().terms == (Term(3, "X", (0,)),)
    assert observable == Observable("3*X0") and observable != Observable("3*X1") and observable != "3*X0"


def test_numpy_numbers_multiply():
    for number in (np.float64(2), np.int32(2), np.array(2)):
        assert number * Observable("X0") == Observable("2*X0") == Observable("X0") * number
        assert number + Observable("X0") == Observable("X0 + 2")
    assert sum([Observable("X0"), Observable("Z0")]) == Observable("X0 + Z0")


@pytest.mark.parametrize("other", ["2", None, True, [1], np.array([1, 2]), Fraction(1, 2)])
def test_what_is_no_number_does_not_multiply_or_add(other):
    observable = Observable("X0")
    for act in (
        lambda: observable * other,
        lambda: other * observable,
        lambda: observable + other,
        lambda: observable - other,
        lambda: other - observable,
        lambda: observable / other,
    ):
        with pytest.raises(TypeError):
            act()


def test_arithmetic_that_leaves_the_numbers():
    with refused(ValueError, "a coefficient must be finite"):
        Observable("1e308*X0") * 10
    with refused(ValueError, "a coefficient must be finite"):
        Observable("X0") * float("nan")
    with pytest.raises(ZeroDivisionError):
        Observable("X0") / 0


def test_arithmetic_keeps_the_larger_number_of_qubits():
    assert (Observable({"XII": 1}) + Observable("Z0")).n_qubits == 3
    assert (Observable("X0") - Observable({"IIII": 1})).n_qubits == 4
    assert (2 * Observable({"XII": 1})).simplify().n_qubits == 3


def test_complex_coefficients_are_told():
    assert Observable("2j*X0").is_complex and Observable("X0 + 1j").is_complex
    assert not Observable("X0").is_complex and not (Observable("1j*X0") * 1j).is_complex


def test_copies_and_pickles():
    observable = Observable({"XIYI": 0.5, "IIII": 2j})
    observable.compiled()
    for other in (copy.copy(observable), copy.deepcopy(observable), pickle.loads(pickle.dumps(observable))):
        assert other == observable and other.n_qubits == 4 and repr(other) == repr(observable)
        assert StateVector(4).expectation(other) == 2j


def test_compiled_once():
    observable = Observable("X0 + Z1")
    assert observable.compiled() is observable.compiled()
    assert len(observable.compiled()) == 2


def test_coefficients_beyond_single_precision(precision):
    state = StateVector(1, precision)
    assert state.expectation("1e300*X0 + 1e299*Z0 - 1e299") == 0
    assert state.term_values("1e300j*Z0").tolist() == [1e300j]
    assert state.estimate("1e300*Z0", 10) == (1e300, 0)
