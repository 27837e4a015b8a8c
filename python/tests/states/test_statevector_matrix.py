"""Matrices on any qubits, with and without controls, against full matrices."""

from itertools import permutations

import numpy as np
import pytest
from full_matrices import READS, on_qubits, product, random_state
from refusals import refused

from velacamplix import Circuit, StateVector
from velacamplix.machine import limits as _machine

X = [[0, 1], [1, 0]]


def random_unitary(k, seed=0):
    generator = np.random.default_rng(seed)
    return np.linalg.qr(generator.normal(size=(2**k, 2**k)) + 1j * generator.normal(size=(2**k, 2**k)))[0]


def acted(n, matrix, qubits, controls, amplitudes):
    """What a controlled matrix makes of amplitudes, qubit q being bit q of their index."""
    acts = product(n, {c: READS[1] for c in controls})
    return acts @ on_qubits(n, matrix, qubits) @ amplitudes + amplitudes - acts @ amplitudes


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("k", [1, 2, 3])
@pytest.mark.parametrize("controls", [[], [3], [3, 0]])
def test_against_full_matrices(k, controls, order, precision, tolerance):
    amplitudes = random_state(5, seed=k)
    free = [qubit for qubit in range(5) if qubit not in controls]
    matrix = random_unitary(k)
    for qubits in permutations(free, k):
        state = StateVector(5, precision, threads=2).set_state(amplitudes, order="little")
        state.matrix(matrix, qubits, controls, order=order)
        expected = acted(5, matrix, qubits if order == "big" else qubits[::-1], controls, amplitudes)
        assert np.abs(state.array - expected).max() < tolerance


def test_the_same_as_in_a_circuit(precision):
    matrix = random_unitary(2)
    circuit = Circuit(3).h(0).matrix(matrix, [2, 0], controls=[1]).matrix(matrix, [0, 1], order="little")
    state = StateVector(3, precision).h(0).matrix(matrix, [2, 0], controls=[1]).matrix(matrix, [0, 1], order="little")
    assert (state.array == StateVector(3, precision).run(circuit).array).all()


@pytest.mark.parametrize("k", [8, 9, 10])
@pytest.mark.parametrize("controls", [[], [10]])
def test_diagonals_on_many_qubits(k, controls, precision, tolerance):
    amplitudes = random_state(11, seed=3)
    phases = np.exp(1j * np.random.default_rng(k).normal(size=2**k))
    state = StateVector(11, precision).set_state(amplitudes, order="little")
    state.matrix(np.diag(phases), range(k), controls)
    index = np.arange(2**11)
    local = np.zeros_like(index)
    for position in range(k):
        local |= (index >> position & 1) << (k - 1 - position)
    acts = np.all([index >> control & 1 for control in controls], axis=0) if controls else np.full(2**11, True)
    assert np.abs(state.array - np.where(acts, phases[local], 1) * amplitudes).max() < tolerance


def test_a_dense_matrix_on_nine_qubits(tolerance, precision):
    matrix = np.kron(random_unitary(4, 1), random_unitary(5, 2))
    amplitudes = random_state(9, seed=3)
    state = StateVector(9, precision).set_state(amplitudes, order="big").matrix(matrix, range(9))
    assert np.abs(state.statevector(order="big") - matrix @ amplitudes).max() < 10 * tolerance


@pytest.mark.parametrize(
    "convert",
    [
        np.asfortranarray,
        lambda m: m.tolist(),
        lambda m: np.repeat(np.repeat(m, 2, 0), 3, 1)[::2, ::3],
        lambda m: m.astype(np.complex64),
        lambda m: m.T.copy().T,
        lambda m: m.astype(">c16"),
    ],
)
def test_layouts_and_types(convert):
    matrix = random_unitary(2)
    plain = StateVector(2).h(0).matrix(matrix, [0, 1])
    assert np.allclose(StateVector(2).h(0).matrix(convert(matrix), [0, 1]).array, plain.array, atol=1e-6)


@pytest.mark.parametrize("matrix", [np.array(X), np.array(X, dtype=bool), np.array(X, np.int8), np.array(X, np.float32), X])
def test_real_matrices(matrix):
    assert StateVector(1).matrix(matrix, 0).counts(1) == {"1": 1}


def test_the_matrix_is_not_changed():
    matrix = random_unitary(2)
    before = matrix.copy()
    StateVector(2).matrix(matrix, [0, 1])
    assert (matrix == before).all()


def test_a_matrix_and_its_inverse_cancel(precision, tolerance):
    amplitudes, matrix = random_state(4, 2), random_unitary(3)
    state = StateVector(4, precision).set_state(amplitudes, order="little")
    state.matrix(matrix, [2, 0, 3]).matrix(matrix.conj().T, [2, 0, 3])
    assert np.abs(state.array - amplitudes).max() < tolerance


def test_without_the_check_anything_finite_goes():
    state = StateVector(1).matrix([[2, 0], [0, 1]], 0, check=False)
    assert state.array.tolist() == [2, 0]


# Wrong arguments


@pytest.mark.parametrize(
    ("matrix", "error", "words"),
    [
        ([[1, 0], [0, 2]], ValueError, "matrix must be unitary"),
        ([[1, 0, 0], [0, 1, 0], [0, 0, 1]], ValueError, "matrix must be a 2 x 2 array of numbers for 1 qubit(s), got shape (3, 3)"),
        ([1, 0, 0, 1], ValueError, "got shape (4,)"),
        ([[1, 0], [0]], (ValueError, TypeError), "matrix must be a 2 x 2 array"),
        ([["a", 0], [0, 1]], TypeError, "matrix must be a 2 x 2 array of numbers"),
        (None, TypeError, "matrix must be"),
        ([[np.nan, 0], [0, 1]], ValueError, "matrix must hold finite numbers"),
    ],
)
def test_bad_matrices(matrix, error, words):
    state = StateVector(2)
    with pytest.raises(error) as caught:
        state.matrix(matrix, 0)
    assert words in str(caught.value)
    assert state.array.tolist() == [1, 0, 0, 0]


@pytest.mark.parametrize(
    ("qubits", "controls", "error", "words"),
    [
        ([2], [], IndexError, "qubits[0] must be a number from 0 to 1"),
        ([], [], ValueError, "qubits must hold at least 1"),
        ([0], [0], ValueError, "controls must not contain a target"),
        ([0], [2], IndexError, "controls[0]"),
        ([0], [1, 1], ValueError, "controls must be distinct"),
        (None, [], TypeError, "qubits must be a sequence"),
    ],
)
def test_bad_qubits(qubits, controls, error, words):
    with refused(error, words):
        StateVector(2).matrix(X, qubits, controls)


def test_other_bad_arguments():
    state = StateVector(2)
    with refused(ValueError, "order must be"):
        state.matrix(X, 0, order="huge")
    with refused(TypeError, "check must be True or False, got 'no'"):
        state.matrix(X, 0, check="no")
    with refused(ValueError, "matrix entry must fit single precision, got (1e+300+0j)"):
        StateVector(1, "single").matrix([[1e300, 0], [0, 1]], 0, check=False)


def test_no_memory_for_the_working_copies(monkeypatch):
    state = StateVector(4, threads=2)
    monkeypatch.setattr(_machine, "memory", lambda: _machine.Memory(free=10_000, available=10_000, limit=None))
    with refused(MemoryError, "working copies of a matrix of 16 rows on 2 thread(s) need 16.0 KiB", "9.8 KiB are free"):
        state.matrix(np.eye(16), range(4))
