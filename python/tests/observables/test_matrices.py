"""Observables as matrices and back, against Kronecker products and Qiskit."""

import subprocess
import sys

import numpy as np
import pytest
from refusals import refused
from test_algebra import matrix

from velacamplix import Circuit, Observable, StateVector
from velacamplix.observables import matrices


def an_observable(n, terms, seed, is_complex=False):
    generator = np.random.default_rng(seed)
    labels = ["".join(generator.choice(list("IXYZ"), n)) for _ in range(terms)]
    numbers = generator.normal(size=terms) + (1j * generator.normal(size=terms) if is_complex else 0)
    return Observable([(number, label, range(n)) for number, label in zip(numbers.tolist(), labels)])


@pytest.mark.parametrize("is_complex", [False, True])
@pytest.mark.parametrize("n, terms", [(0, 1), (1, 3), (2, 9), (3, 5), (4, 100), (5, 40)])
def test_matrices_are_sums_of_kronecker_products(n, terms, is_complex):
    observable = an_observable(n, terms, seed=n, is_complex=is_complex)
    np.testing.assert_allclose(observable.to_matrix(order="big"), matrix(observable, n), atol=1e-13)
    axes = [*range(n - 1, -1, -1), *range(2 * n - 1, n - 1, -1)]
    swapped = matrix(observable, n).reshape([2] * (2 * n)).transpose(axes).reshape(2**n, 2**n)
    np.testing.assert_allclose(observable.to_matrix(), swapped, atol=1e-13)


def test_entries_are_exact_where_the_weights_are():
    observable = Observable("0.5*X0 Y2 - 1.25*Z1 + 2j*Y0 + 3")
    assert (observable.to_matrix(order="big") == matrix(observable)).all()
    assert observable.to_matrix().dtype == np.complex128


def test_expectation_values_are_those_of_the_matrix():
    state = StateVector(4).h(0).cx(0, 2).ry(0.3, 1).rx(0.8, 3).cx(1, 3)
    observable = an_observable(4, 30, seed=9)
    vector = state.array
    expected = (vector.conj() @ observable.to_matrix() @ vector).real
    assert state.expectation(observable) == pytest.approx(expected, abs=1e-13)


def test_further_qubits_are_the_identity():
    assert (Observable("Z0").to_matrix(2) == np.diag([1, -1, 1, -1])).all()
    assert (Observable("Z0").to_matrix(2, order="big") == np.diag([1, 1, -1, -1])).all()
    assert (Observable("2").to_matrix(1) == 2 * np.eye(2)).all() and Observable("2").to_matrix().tolist() == [[2]]


def test_rows_are_filled_in_pieces(monkeypatch):
    observable = an_observable(6, 50, seed=2, is_complex=True)
    whole, sparse = observable.to_matrix(), observable.to_matrix(sparse=True)
    monkeypatch.setattr(matrices, "_ROWS", 8)
    np.testing.assert_allclose(observable.to_matrix(), whole, atol=1e-14)
    np.testing.assert_allclose(observable.to_matrix(sparse=True).toarray(), sparse.toarray(), atol=1e-14)


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("n, terms", [(0, 1), (1, 3), (3, 5), (4, 100)])
def test_sparse_matrices_are_the_dense_ones(n, terms, order):
    scipy_sparse = pytest.importorskip("scipy.sparse", reason="the other form needs SciPy: pip install scipy")
    observable = an_observable(n, terms, seed=n + 1, is_complex=True)
    sparse = observable.to_matrix(sparse=True, order=order)
    assert isinstance(sparse, scipy_sparse.csr_array) and sparse.has_sorted_indices
    assert (sparse.toarray() == observable.to_matrix(order=order)).all()


def test_sparse_matrices_keep_no_zeros():
    pytest.importorskip("scipy", reason="sparse matrices need SciPy: pip install scipy")
    assert Observable("|000><000|").to_matrix(sparse=True).nnz == 1
    assert Observable("X0 X1 + Y0 Y1").to_matrix(sparse=True).nnz == 2
    assert Observable("Z19").to_matrix(sparse=True).nnz == 2**20


def test_sparse_without_scipy():
    script = "import sys; sys.modules['scipy'] = None\nfrom velacamplix import Observable\n"
    ended = subprocess.run(
        [sys.executable, "-c", script + "print(Observable('Z0').to_matrix().real.tolist())\n"
         "Observable('Z0').to_matrix(sparse=True)"],
        capture_output=True, text=True,
    )  # fmt: skip
    assert ended.stdout == "[[1.0, 0.0], [0.0, -1.0]]\n"
    assert "ModuleNotFoundError: to_matrix(sparse=True) needs scipy; install it with: pip install scipy" in ended.stderr


def test_qiskit_agrees():
    quantum_info = pytest.importorskip("qiskit.quantum_info", reason="the oracle is Qiskit: pip install qiskit")
    for seed in range(5):
        a, b = an_observable(3, 12, seed, True), an_observable(3, 12, seed + 50, True)

        def theirs(observable):
            listed = [(term.paulis, list(term.qubits), term.coefficient) for term in observable.terms]
            return quantum_info.SparsePauliOp.from_sparse_list([*listed, ("", [], observable.constant)], num_qubits=3)

        np.testing.assert_allclose(a.to_matrix(), theirs(a).to_matrix(), atol=1e-14)
        np.testing.assert_allclose((a @ b).to_matrix(), theirs(a).dot(theirs(b)).to_matrix(), atol=1e-13)
        hermitian = a.to_matrix() + a.to_matrix().conj().T
        found = quantum_info.SparsePauliOp.from_operator(quantum_info.Operator(hermitian)).simplify()
        read = Observable(dict(zip(found.paulis.to_labels(), found.coeffs.real.tolist())), order="little")
        np.testing.assert_allclose((Observable.from_matrix(hermitian) - read).to_matrix(), 0, atol=1e-13)


# From matrices


@pytest.mark.parametrize("n", range(6))
def test_there_and_back(n):
    observable = an_observable(n, 4**n // 2 + 1, seed=n + 7).simplify()
    again = Observable.from_matrix(observable.to_matrix())
    assert again.n_qubits == n and {term[1:] for term in again.terms} == {term[1:] for term in observable.terms}
    np.testing.assert_allclose((again - observable).to_matrix(n), 0, atol=1e-14)


def test_weights_that_are_binary_fractions_come_back_exactly():
    observable = Observable("0.5*X0 Y2 - 1.25*Z1 + 3*Y0 Y1 Y2 - 7")
    for order in ("big", "little"):
        assert Observable.from_matrix(observable.to_matrix(order=order), order=order) == observable


def test_the_listed_qubits_get_the_matrix():
    generator = np.random.default_rng(3)
    array = generator.normal(size=(4, 4)) + 1j * generator.normal(size=(4, 4))
    array += array.conj().T
    state = StateVector(3, seed=1).set_basis_state("+++").ry(0.4, 0).rz(0.3, 1).cx(1, 2).rx(0.2, 2)
    vector = state.array.reshape(2, 2, 2)  # qubits 2, 1, 0
    little = np.einsum("abc,dbe,acde->", vector.conj(), vector, array.reshape(2, 2, 2, 2)).real  # bits 1, 0: qubits 2, 0
    assert state.expectation(Observable.from_matrix(array, [0, 2])) == pytest.approx(little)
    assert state.expectation(Observable.from_matrix(array, [2, 0], order="big")) == pytest.approx(little)
    assert Observable.from_matrix(array) == Observable.from_matrix(array, [0, 1])
    # "big" is the order of a gate's matrix.
    unitary = np.linalg.eigh(array)[1]
    turned = state.copy().matrix(unitary, [2, 0])
    diagonal = unitary.conj().T @ array @ unitary
    undone = Observable.from_matrix(diagonal, [2, 0], order="big")
    assert turned.copy().matrix(unitary.conj().T, [2, 0]).expectation(
        Observable.from_matrix(array, [2, 0], order="big")
    ) == pytest.approx(little)
    assert state.copy().matrix(unitary.conj().T, [2, 0]).expectation(undone) == pytest.approx(little)


def test_the_largest_matrix():
    generator = np.random.default_rng(8)
    vector = generator.normal(size=1024)
    observable = Observable.from_matrix(np.diag(vector), range(3, 13))
    assert observable.n_qubits == 13 and all(set(term.paulis) == {"Z"} for term in observable.terms)
    state = StateVector(13).x(5).x(12)
    assert state.expectation(observable) == pytest.approx(vector[0b10_0000_0100], abs=1e-12)


def test_what_rounding_leaves_is_left_out_and_small_weights_stay():
    angle = 0.3
    rotated = np.array([[np.cos(angle), np.sin(angle)], [np.sin(angle), -np.cos(angle)]])
    array = np.kron(rotated, rotated) @ np.kron(np.eye(2), np.diag([1, 1])) + 0.1
    found = Observable.from_matrix((array + array.T) / 2)
    np.testing.assert_allclose(found.to_matrix(), array, atol=1e-15)
    small = np.diag([1.0, 1.0, 1.0, 1.0])
    small[0, 3] = small[3, 0] = 1e-30
    assert Observable.from_matrix(small) == Observable("1 + 5e-31*X0 X1 - 5e-31*Y0 Y1")


def test_a_matrix_of_single_precision_passes():
    array = np.array([[1, 0.3 + 1e-7j], [0.3, -1]], dtype=np.complex64)
    np.testing.assert_allclose(Observable.from_matrix(array).to_matrix(), (array + array.conj().T) / 2, atol=1e-15)


def test_sparse_matrices_are_taken():
    pytest.importorskip("scipy", reason="sparse matrices need SciPy: pip install scipy")
    observable = Observable("X0 Y2 - Z1")
    assert Observable.from_matrix(observable.to_matrix(sparse=True)) == observable
    with refused(ValueError, "matrix must have the shape (2**k, 2**k) for k from 0 to 10 qubits, got shape (1048576,"):
        Observable.from_matrix(Observable("Z19").to_matrix(sparse=True))


@pytest.mark.parametrize(
    ("arguments", "error", "words"),
    [
        ((np.zeros((3, 3)),), ValueError, "for k from 0 to 10 qubits, got shape (3, 3)"),
        ((np.zeros((2, 4)),), ValueError, "got shape (2, 4)"),
        ((np.zeros(4),), ValueError, "got shape (4,)"),
        ((np.eye(2048),), ValueError, "got shape (2048, 2048)"),
        (([[1, 2], [3]],), ValueError, "got [[1, 2], [3]]"),
        (("ZZ",), ValueError, "got 'ZZ'"),
        ((None,), ValueError, "got None"),
        (([["a", "b"], ["c", "d"]],), TypeError, "matrix must be a 2 x 2 array of numbers"),
        (([[np.nan, 0], [0, 1]],), ValueError, "matrix must hold finite numbers only"),
        (([[1e308, 0], [0, 1e308]],), ValueError, "matrix must hold numbers whose sums fit a double"),
        (([[0, 1], [0, 0]],), ValueError, "matrix must be Hermitian, got one with an entry of M - M† of 1"),
        ((np.eye(4), [0]), ValueError, "qubits must name 2 qubit(s) for a matrix of shape (4, 4), got [0]"),
        ((np.eye(4), [0, 0]), ValueError, "qubits must be distinct"),
        ((np.eye(4), [0, 1], "large"), ValueError, "order must be 'big' or 'little'"),
    ],
)
def test_wrong_matrices(arguments, error, words):
    with refused(error, words):
        Observable.from_matrix(*arguments)


def test_the_cure_for_matrices_that_are_not_hermitian():
    array = np.array([[0, 1], [0, 0]])
    made = Observable.from_matrix((array + array.T) / 2) + 1j * Observable.from_matrix((array - array.T) / 2j)
    assert made == Observable("|0><1|") and (made.to_matrix() == array).all()


@pytest.mark.parametrize(
    ("options", "error", "words"),
    [
        ({"n_qubits": 1}, ValueError, "n_qubits must be an integer from 2 to 65536, got 1"),
        ({"n_qubits": "2"}, TypeError, "n_qubits must be an integer"),
        ({"sparse": "csr"}, TypeError, "sparse must be True or False, got 'csr'"),
        ({"order": "large"}, ValueError, "order must be 'big' or 'little'"),
        ({"n_qubits": 30}, MemoryError, "the matrix of 30 qubits needs 16.0 EiB"),
        ({"n_qubits": 65536}, MemoryError, "a matrix of 40 qubits, let alone 65536, needs 16777216.0 EiB"),
        ({"n_qubits": 40, "sparse": True}, MemoryError, "the matrix of 40 qubits needs 48.0 TiB"),
    ],
)
def test_wrong_options(options, error, words):
    if "sparse" in options:
        pytest.importorskip("scipy", reason="sparse matrices need SciPy: pip install scipy")
    with refused(error, words):
        Observable("X0 X1").to_matrix(**options)


def test_a_circuit_and_the_observable_that_it_turns():
    # <U† O U> on |0...0> is the first entry.
    circuit = Circuit(3).h(0).cx(0, 1).ry(0.3, 2).cz(1, 2)
    columns = np.array([StateVector(3).set_basis_state(k, order="little").run(circuit).array for k in range(8)]).T
    turned = Observable.from_matrix(columns.conj().T @ Observable("Z0 X1 + Z2").to_matrix() @ columns)
    assert StateVector(3).expectation(turned) == pytest.approx(StateVector(3).run(circuit).expectation("Z0 X1 + Z2"))
