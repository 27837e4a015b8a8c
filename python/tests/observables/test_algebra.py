"""Products and commutators of observables, against those of their matrices."""

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as some
from refusals import refused

from velacamplix import Observable, StateVector

weights = some.complex_numbers(allow_nan=False, allow_infinity=False, max_magnitude=4).map(
    lambda c: complex(round(4 * c.real), round(4 * c.imag)) / 4
)
real_weights = weights.map(lambda c: c.real)
strings = some.text("IXYZ", min_size=3, max_size=3)
observables = some.dictionaries(strings, weights, max_size=6).map(Observable)
hermitian = some.dictionaries(strings, real_weights, max_size=6).map(Observable)

PAULIS = {
    "I": np.eye(2), "X": np.array([[0, 1], [1, 0]]), "Y": np.array([[0, -1j], [1j, 0]]), "Z": np.diag([1, -1]),
}  # fmt: skip


def matrix(observable, n=3):
    """Qubit 0 is the highest bit: Kronecker products in the order of the qubits."""
    total = observable.constant * np.eye(2**n, dtype=complex)
    for coefficient, paulis, qubits in observable.terms:
        product = np.eye(1)
        for qubit in range(n):
            product = np.kron(product, PAULIS[paulis[qubits.index(qubit)] if qubit in qubits else "I"])
        total += coefficient * product
    return total


@given(observables, observables, observables)
@settings(deadline=None, max_examples=50)
def test_products_are_products_of_matrices(a, b, c):
    # Weights are few quarters, so that nothing is rounded.
    assert (matrix(a @ b) == matrix(a) @ matrix(b)).all()
    assert a @ b == a * b and (a @ b) @ c == a @ (b @ c) and a @ (b + c) == a @ b + a @ c
    assert (2 * a) @ b == a @ (b * 2) == 2 * (a @ b)


@given(observables, observables)
@settings(deadline=None, max_examples=50)
def test_commutators_are_those_of_matrices(a, b):
    found = a.commutator(b)
    assert (matrix(found) == matrix(a) @ matrix(b) - matrix(b) @ matrix(a)).all()
    assert found == a @ b - b @ a == -b.commutator(a) and a.commutator(a) == Observable("0")


@given(hermitian, hermitian)
@settings(deadline=None, max_examples=50)
def test_the_commutator_of_hermitian_observables_is_anti_hermitian(a, b):
    assert not (1j * a.commutator(b)).is_complex
    assert not (a @ b + b @ a).simplify().is_complex


def test_products_have_every_string_once_and_none_of_weight_0():
    product = (Observable("X0 + Z1") @ Observable("X0 + Z1")).terms
    assert product == ((2.0, "XZ", (0, 1)),)
    assert (Observable("X0 + Z0") @ Observable("X0 + Z0")).terms == ()


def test_the_square_of_a_hermitian_observable_is_hermitian_whatever_rounding_does():
    generator = np.random.default_rng(5)
    letters = ["".join(generator.choice(list("IXYZ"), 4)) for _ in range(60)]
    observable = Observable(dict(zip(letters, generator.normal(size=60).tolist())))
    square = observable @ observable
    assert not square.is_complex
    np.testing.assert_allclose(matrix(square, 4), matrix(observable, 4) @ matrix(observable, 4), atol=1e-13)


def test_squares_give_variances():
    state = StateVector(3).ry(0.7, 0).cx(0, 1).rx(0.3, 2)
    observable = Observable("Z0 Z1 + 0.5*X2 - 2*Y1")
    vector, dense = state.statevector(order="big"), matrix(observable)
    mean = (vector.conj() @ dense @ vector).real
    expected = (vector.conj() @ dense @ dense @ vector).real - mean**2
    assert state.expectation(observable @ observable) - state.expectation(observable) ** 2 == pytest.approx(expected)


def test_products_on_many_qubits():
    one = Observable([(1.0, "XYZ", (3, 700, 65535))])
    assert one @ one == Observable("1") and (one @ one).n_qubits == 65536
    assert (one @ Observable("Z700")).terms == ((1j, "XXZ", (3, 700, 65535)),)


def test_products_leave_the_number_of_qubits_of_the_larger():
    assert (Observable("III") @ Observable("X0")).n_qubits == 3


def test_products_beyond_a_double():
    for a, b in (("1e200*X0", "1e200*X0"), ("1e200*X0 + 1e200", "1e200*Z0"), ("1e308*X0 + 1e308*Z0", "X0 + Z0")):
        with refused(ValueError, "a coefficient must be finite"):
            Observable(a) @ Observable(b)
    with refused(ValueError, "a coefficient must be finite"):
        Observable("1e308*X0").commutator(Observable("Z0"))


@pytest.mark.parametrize("other", [2, 2.0, "X0", None, np.float64(2), np.ones(2), np.eye(2)])
def test_what_is_no_observable_has_no_operator_product(other):
    for act in (lambda: Observable("X0") @ other, lambda: other @ Observable("X0")):
        with pytest.raises(TypeError):
            act()


def test_the_commutator_takes_observables():
    with refused(TypeError, "other must be an Observable, got 'X0'; Observable(...) makes one"):
        Observable("X0").commutator("X0")
    with pytest.raises(TypeError) as caught:
        Observable("X0").commutator("(" * 10_000)
    assert len(str(caught.value)) < 300


def test_products_that_do_not_fit_are_refused(monkeypatch):
    from velacamplix.observables import algebra

    asked = []
    monkeypatch.setattr(algebra.memory, "require_bytes", lambda needed, what, root="/": asked.append((needed, what)))
    Observable("X0 + Z0 + Y1") @ Observable("X0 + 2")
    assert asked[0] == (6 * 48, "the product of observables with 6 pairs of terms")


def test_classes_that_inherit_stay_what_they_are():
    class Mine(Observable):
        pass

    for made in (Mine("X0") + 1, Mine("X0") @ Observable("Y0"), -Mine("X0"), Mine.projector("0"), Mine("Z0").simplify()):
        assert type(made) is Mine


def test_equal_products_whose_weights_no_double_holds_together_are_refused():
    large = Observable("1e308*X0") + Observable("1e308*X0")
    with pytest.raises(ValueError, match="a coefficient must be finite, got inf"):
        large.simplify()
