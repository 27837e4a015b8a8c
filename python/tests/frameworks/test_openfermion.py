"""Operators of OpenFermion's, here and back."""

import numpy as np
import pytest

from velacamplix import Observable, StateVector

openfermion = pytest.importorskip("openfermion", reason="needs OpenFermion: pip install velacamplix[test]")
from openfermion import FermionOperator, QubitOperator, get_sparse_operator, jordan_wigner  # noqa: E402


def random_operator(seed, n_qubits=4, terms=12):
    rng = np.random.default_rng(seed)
    operator = QubitOperator()
    for _ in range(terms):
        qubits = rng.permutation(n_qubits)[: rng.integers(0, n_qubits + 1)]
        factors = tuple((int(qubit), "XYZ"[rng.integers(3)]) for qubit in qubits)
        operator += QubitOperator(factors, complex(rng.normal(), rng.normal()))
    return operator


@pytest.mark.parametrize("seed", range(20))
def test_random_operators_have_the_same_matrix_and_come_back(seed):
    theirs = random_operator(seed)
    ours = Observable.from_openfermion(theirs)
    # Theirs has qubit 0 as the highest bit of the index.
    np.testing.assert_allclose(ours.to_matrix(n_qubits=4, order="big"), get_sparse_operator(theirs, 4).toarray(), atol=1e-14)
    assert ours.to_openfermion() == theirs
    assert Observable.from_openfermion(ours.to_openfermion()) == ours


def test_terms_keep_their_order_and_their_weights():
    theirs = QubitOperator("Z7", -0.1) + QubitOperator("X0 Y2", 0.5) + QubitOperator("", 3)
    assert str(Observable.from_openfermion(theirs)) == "-0.1*Z7 + 0.5*X0 Y2 + 3.0"
    assert list(Observable.from_openfermion(theirs).to_openfermion().terms) == list(theirs.terms)


def test_a_molecule_has_the_energy_of_its_matrix():
    # Two sites, two spins: hopping and repulsion.
    theirs = FermionOperator()
    for spin in (0, 1):
        theirs += FermionOperator(f"{spin}^ {2 + spin}", -1) + FermionOperator(f"{2 + spin}^ {spin}", -1)
        theirs += FermionOperator(f"{2 * spin}^ {2 * spin} {2 * spin + 1}^ {2 * spin + 1}", 4)
    theirs = jordan_wigner(theirs)
    matrix = get_sparse_operator(theirs, 4).toarray()
    values, vectors = np.linalg.eigh(matrix)
    state = StateVector(4).set_state(vectors[:, 0], order="big")
    assert state.expectation(Observable.from_openfermion(theirs)) == pytest.approx(values[0], abs=1e-12)


def test_terms_of_one_product_become_one():
    assert Observable([(0.5, "X", [0]), (0.25, "X", [0]), (1, "Z", [1]), (-1, "Z", [1])]).to_openfermion().terms == {
        ((0, "X"),): 0.75
    }
    assert Observable("0*X0").to_openfermion() == QubitOperator()


def test_what_is_no_qubit_operator_is_refused():
    with pytest.raises(TypeError, match="operator must be a QubitOperator of OpenFermion's, got .*jordan_wigner"):
        Observable.from_openfermion(FermionOperator("0^ 0"))
    with pytest.raises(TypeError, match="operator must be a QubitOperator of OpenFermion's, got 'X0'"):
        Observable.from_openfermion("X0")


def test_weights_that_are_no_finite_numbers_are_refused():
    sympy = pytest.importorskip("sympy", reason="OpenFermion brings SymPy")
    with pytest.raises(TypeError, match="must be a number, got a"):
        Observable.from_openfermion(QubitOperator("X0", sympy.Symbol("a")))
    with pytest.raises(ValueError, match="must be finite"):
        Observable.from_openfermion(QubitOperator("X0", float("inf")))
    with pytest.raises((IndexError, ValueError), match="65536"):
        Observable.from_openfermion(QubitOperator("X65536"))
