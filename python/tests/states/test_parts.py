"""Density matrices, entropies, Bloch vectors and Schmidt decompositions against NumPy on whole arrays."""

from itertools import combinations, permutations

import numpy as np
import pytest
from full_matrices import GATES, product, random_state
from refusals import refused

from velacamplix import Schmidt, StateVector
from velacamplix.states import parts as _parts

N = 5


def state_of(amplitudes, precision="double", threads=2):
    state = StateVector(len(amplitudes).bit_length() - 1, precision, threads)
    state.array[:] = amplitudes
    return state


def as_matrix(state, listed):
    """The amplitudes with a row for each index of the listed qubits, the first of them as lowest bit."""
    n = state.n_qubits
    others = [q for q in range(n) if q not in listed]
    tensor = state.array.astype(complex).reshape((2,) * n)
    axes = [n - 1 - q for q in [*reversed(listed), *reversed(others)]]
    return tensor.transpose(axes).reshape(2 ** len(listed), -1)


def oracle(state, listed):
    matrix = as_matrix(state, listed)
    return matrix @ matrix.conj().T


def entropy_of(matrix):
    shares = np.linalg.eigvalsh(matrix / np.trace(matrix).real)
    shares = shares[shares > 1e-300]
    return float(-(shares * np.log2(shares)).sum())


LISTS = [list(p) for k in range(4) for c in combinations(range(N), k) for p in permutations(c)]
LISTS += [[3, 0, 4, 1], [4, 2, 0, 3, 1]]


@pytest.mark.parametrize("listed", LISTS, ids=str)
def test_reduced_density_matrices_of_any_list_of_qubits(listed, precision):
    state = state_of(random_state(N, 3), precision)
    got, expected = state.reduced(listed), oracle(state, listed)
    assert got.dtype == np.complex128 and got.shape == expected.shape
    assert np.allclose(got, expected, rtol=0, atol=1e-15)
    assert np.array_equal(got, got.conj().T) and (got.diagonal().imag == 0).all()
    assert np.array_equal(state.reduced(listed, order="big"), state.reduced(listed[::-1]))
    assert np.array_equal(state.array, random_state(N, 3).astype(state.array.dtype)), "the state changed"


def test_the_matrix_of_all_qubits_is_that_of_the_array():
    state = state_of(random_state(N, 3))
    assert np.allclose(state.reduced(range(N)), np.outer(state.array, state.array.conj()), rtol=0, atol=1e-16)
    big = state.statevector(order="big")
    assert np.allclose(state.reduced(range(N), order="big"), np.outer(big, big.conj()), rtol=0, atol=1e-16)
    assert state.reduced([]).tolist() == [[pytest.approx(1)]]
    assert StateVector(0).reduced([]).tolist() == [[1]]


@pytest.mark.parametrize("listed", [[16], [1, 0], [17, 3, 9], [0, 4, 8, 12, 16, 17], [2, 3, 5, 7, 11, 13, 17]], ids=str)
def test_large_states_have_the_same_bits_on_any_number_of_threads(listed, precision):
    amplitudes = random_state(18, 3)
    matrices = [state_of(amplitudes, precision, threads).reduced(listed) for threads in (1, 2, 8)]
    assert matrices[0].tobytes() == matrices[1].tobytes() == matrices[2].tobytes()
    assert np.allclose(matrices[0], oracle(state_of(amplitudes, precision), listed), rtol=0, atol=1e-13)


def test_single_precision_is_summed_in_double(precision):
    state = StateVector(20, precision)
    for qubit in range(20):
        state.h(qubit)
    norm = state.norm() ** 2
    rounding = {"double": 1e-12, "single": 1e-7}[precision]
    assert np.allclose(state.reduced([3, 19]), np.full((4, 4), norm / 4), rtol=0, atol=rounding)
    assert float(np.trace(state.reduced([3])).real) == pytest.approx(norm, rel=1e-12)


@pytest.mark.parametrize("listed", [[], [0], [1, 4], [3, 0, 2], [0, 1, 2, 4], [0, 1, 2, 3, 4]], ids=str)
def test_purity_and_entropy_of_any_part(listed, precision, tolerance):
    state = state_of(random_state(N, 5), precision)
    expected = oracle(state, listed)
    assert state.purity(listed) == pytest.approx(np.trace(expected @ expected).real, abs=1e-14)
    assert state.entropy(listed) == pytest.approx(entropy_of(expected), abs=1e-12)
    assert type(state.purity(listed)) is float and type(state.entropy(listed)) is float
    others = [q for q in range(N) if q not in listed]
    assert state.purity(others) == pytest.approx(state.purity(listed), abs=1e-14)
    assert state.entropy(others) == pytest.approx(state.entropy(listed), abs=1e-12)
    assert state.purity() == pytest.approx(1, abs=tolerance)


def test_the_purity_of_the_whole_state_is_the_square_of_its_total():
    for factor in (1, 0.5, 3):
        state = state_of(factor * random_state(3, 1))
        assert state.purity() == pytest.approx(factor**4) and state.purity([0, 1, 2]) == state.purity()


def test_known_entropies(precision):
    bell = StateVector(3, precision).h(0).cx(0, 2)
    assert bell.entropy(0) == pytest.approx(1, abs=1e-6) and 0 <= bell.entropy([0, 2]) < 1e-12 > bell.entropy(1)
    product_state = StateVector(4, precision).ry(0.4, 0).rx(1.1, 1).h(2)
    for listed in ([0], [1, 2], [0, 1, 2], [], [0, 1, 2, 3]):
        assert 0 <= product_state.entropy(listed) < 1e-12
    pairs = StateVector(14, precision)
    for qubit in range(7):
        pairs.h(qubit).cx(qubit, 13 - qubit)
    assert pairs.entropy(range(7)) == pytest.approx(7, abs=1e-5)
    assert pairs.purity(range(7)) == pytest.approx(2**-7, rel=1e-5)
    assert pairs.entropy(range(8)) == pytest.approx(6, abs=1e-5)


def test_many_qubits_on_both_sides():
    state = state_of(random_state(16, 8))
    values = state.schmidt(range(8))
    assert state.entropy(range(8)) == pytest.approx(float(-(values**2 * np.log2(values**2)).sum()), abs=1e-11)
    assert state.purity(range(8)) == pytest.approx(float((values**4).sum()), rel=1e-12)
    assert state.entropy(range(15)) == pytest.approx(state.entropy(15), abs=1e-12)
    assert state.purity(range(1, 16)) == state.purity(0)


@pytest.mark.parametrize("qubit", range(N))
def test_bloch_vectors_are_expectation_values(qubit, precision):
    state = state_of(random_state(N, 6), precision)
    psi = state.array.astype(complex)
    expected = [np.vdot(psi, product(N, {qubit: GATES[letter]}) @ psi).real for letter in "xyz"]
    got = state.bloch_vector(qubit)
    assert got.dtype == np.float64 and got == pytest.approx(expected, abs=1e-14)
    assert got == pytest.approx([state.expectation(f"{letter}{qubit}") for letter in "XYZ"], abs=1e-14)


def test_known_bloch_vectors(precision):
    axes = {"+": [1, 0, 0], "-": [-1, 0, 0], "0": [0, 0, 1], "1": [0, 0, -1]}
    for text, axis in axes.items():
        assert StateVector(2, precision).set_basis_state(f"0{text}").bloch_vector(1) == pytest.approx(axis, abs=1e-6)
    assert StateVector(1, precision).h(0).s(0).bloch_vector(0) == pytest.approx([0, 1, 0], abs=1e-6)
    assert StateVector(2, precision).h(0).cx(0, 1).bloch_vector(0) == pytest.approx([0, 0, 0], abs=1e-6)


@pytest.mark.parametrize("listed", [[], [0], [4, 1], [0, 1, 2], [3, 1, 4, 0], [0, 1, 2, 3, 4]], ids=str)
@pytest.mark.parametrize("order", ["little", "big"])
def test_schmidt_decompositions_give_the_state_again(listed, order, precision):
    state = state_of(random_state(N, 7), precision)
    matrix = as_matrix(state, listed)
    expected = np.linalg.svd(matrix, compute_uv=False)
    coefficients = state.schmidt(listed, order=order)
    assert coefficients.dtype == np.float64 and np.allclose(coefficients, expected, rtol=0, atol=1e-14)
    decomposition = state.schmidt(listed, vectors=True, order=order)
    assert type(decomposition) is Schmidt and np.allclose(decomposition.coefficients, expected, rtol=0, atol=1e-14)
    _, left, right = decomposition
    if order == "big":
        others = [q for q in range(N) if q not in listed]
        matrix = as_matrix(state, listed[::-1])
        order_of_others = np.arange(2 ** len(others)).reshape((2,) * len(others)).transpose().reshape(-1)
        matrix = matrix[:, order_of_others]
    assert np.allclose((left * coefficients) @ right.T, matrix, rtol=0, atol=1e-14)
    for vectors in (left, right):
        assert vectors.dtype == np.complex128
        assert np.allclose(vectors.conj().T @ vectors, np.eye(len(coefficients)), rtol=0, atol=1e-13)


def test_schmidt_coefficients_in_pieces_and_in_the_background(monkeypatch):
    state = state_of(random_state(10, 4))
    for listed in ([2], [9, 0, 4], [1, 3, 5, 7, 9], range(8)):
        expected = np.linalg.svd(as_matrix(state, list(listed)), compute_uv=False)
        for piece, large in ((_parts._PIECE, _parts._LARGE), (16, _parts._LARGE), (64, 1)):
            monkeypatch.setattr(_parts, "_PIECE", piece)
            monkeypatch.setattr(_parts, "_LARGE", large)
            assert np.allclose(state.schmidt(listed), expected, rtol=0, atol=1e-14)
            values, left, right = state.schmidt(listed, vectors=True)
            assert np.allclose((left * values) @ right.T, as_matrix(state, list(listed)), rtol=0, atol=1e-14)


def test_small_schmidt_coefficients_are_not_lost():
    state = state_of(np.array([1, 0, 0, 1e-12]) / np.sqrt(1 + 1e-24))
    assert state.schmidt(0) == pytest.approx([1, 1e-12], rel=1e-3)


def test_norms_other_than_1(precision):
    state, twice = state_of(random_state(3, 1), precision), state_of(2 * random_state(3, 1), precision)
    assert np.array_equal(twice.reduced([0, 2]), 4 * state.reduced([0, 2]))
    assert np.array_equal(twice.bloch_vector(1), 4 * state.bloch_vector(1))
    assert twice.purity([0, 2]) == 16 * state.purity([0, 2])
    assert twice.schmidt(1) == pytest.approx(2 * state.schmidt(1), rel=1e-13)
    # An entropy is that of the normalised state.
    assert twice.entropy([0, 2]) == pytest.approx(state.entropy([0, 2]), abs=1e-13)


def test_states_without_a_norm(precision):
    zero = state_of(np.zeros(8), precision)
    assert not zero.reduced([0, 1]).any() and zero.purity(0) == 0 and not zero.bloch_vector(0).any()
    assert zero.schmidt(0).tolist() == [0, 0]
    with refused(ValueError, "the probabilities add up to 0: there is no normalised state to tell the entropy of"):
        zero.entropy(0)
    for bad, word in ((np.nan, "nan"), (np.inf, "inf")):
        broken = state_of([bad, 1, 0, 0, 0, 0, 0, 0], precision)
        assert not np.isfinite(broken.reduced(0)[0, 0].real)
        assert not np.isfinite(broken.purity()) and not np.isfinite(broken.bloch_vector(0)[2])
        with refused(ValueError, f"the probabilities add up to {word}"):
            broken.entropy(0)
        for vectors in (False, True):
            with refused(ValueError, f"the probabilities add up to {word}"):
                broken.schmidt(0, vectors)


CALLS = {
    "reduced": lambda state, qubits: state.reduced(qubits),
    "purity": lambda state, qubits: state.purity(qubits),
    "entropy": lambda state, qubits: state.entropy(qubits),
    "schmidt": lambda state, qubits: state.schmidt(qubits),
}


@pytest.mark.parametrize("name", CALLS)
@pytest.mark.parametrize(
    ("qubits", "error", "words"),
    [
        (3, IndexError, "qubits[0] must be a number from 0 to 2, got 3"),
        ([0, -1], IndexError, "qubits[1] must be a number from 0 to 2, got -1"),
        ([0, 0], ValueError, "qubits must be distinct, got 0 twice"),
        ("01", TypeError, "qubits must be a sequence of integers, got '01'"),
        ([0.5], TypeError, "qubits[0] must be an integer"),
        (True, TypeError, "an integer"),
    ],
)
def test_wrong_qubits(name, qubits, error, words):
    with refused(error, words):
        CALLS[name](StateVector(3), qubits)


def test_other_wrong_arguments():
    state = StateVector(3)
    for name in ("reduced", "entropy", "schmidt"):
        with refused(TypeError, "qubits must be a sequence of integers, got None"):
            getattr(state, name)(None)
    with refused(IndexError, "qubit must be a number from 0 to 2, got 3"):
        state.bloch_vector(3)
    with refused(TypeError, "qubit must be"):
        state.bloch_vector([0])
    for call in (state.reduced, state.schmidt):
        with refused(ValueError, "order must be 'big' or 'little', got 'up'"):
            call(0, order="up")
    with refused(TypeError, "vectors must be True or False, got 1"):
        state.schmidt(0, vectors=1)
    for name in [*CALLS, "bloch_vector"]:
        with refused(TypeError, "progress must be None, True, False or a function"):
            getattr(state, name)(0, progress=3)
    state.release()
    for call in CALLS.values():
        with refused(RuntimeError, "has been released"):
            call(state, 0)


def test_what_does_not_fit_is_refused(monkeypatch):
    from velacamplix.machine import limits, memory

    state = StateVector(12)

    def there_are(number):
        monkeypatch.setattr(memory, "SMALL_BYTES", 0)
        monkeypatch.setattr(limits, "memory", lambda root="/": limits.Memory(number, number, None))

    for act, size, words in (
        (lambda: state.reduced(range(7)), 2**18 + 2**22, "the density matrix of 7 qubits needs 4.2 MiB"),
        (lambda: state.purity(range(7)), 2**14 + 2**20, "the density matrix of 5 qubits needs 1.0 MiB"),
        (lambda: state.entropy(range(6)), 2**16 + 2**22, "the density matrix of 6 qubits needs 4.1 MiB"),
        (lambda: state.schmidt([0, 1]), 64 * 4 * 1028, "the Schmidt coefficients of 2 qubits needs 257.0 KiB"),
        (lambda: state.schmidt([0, 1], True), 2**18 + 96 * 16, "the Schmidt vectors of 12 qubits needs 257.5 KiB"),
    ):
        there_are(size - 1)
        with pytest.raises(MemoryError, match=words):
            act()
        there_are(size)
        act()
    monkeypatch.undo()
    with pytest.raises(MemoryError, match="the density matrix of 24 qubits needs 4.0 PiB"):
        StateVector(24, "single").reduced(range(24))
