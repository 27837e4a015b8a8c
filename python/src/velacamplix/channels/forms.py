"""Kraus operators and what else tells a channel: Pauli products, superoperator and Choi matrix, fewer operators.

Matrices are D x D, D = 2^k for k qubits; qubit j is bit j of a row's and a column's number.
"""

from __future__ import annotations

import functools
import itertools
import math
from collections.abc import Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ..basics import checks

Matrix = NDArray[np.complex128]

#: A channel acts on so many qubits at most: 4^4 operators of 16 x 16.
MOST_QUBITS = 4

#: How far from 1 probabilities may add up, and how far from the identity the sum of K†K may be in any entry.
TOLERANCE = 1e-12

LETTERS = "IXYZ"

_ONE_QUBIT = {
    "I": np.array([[1, 0], [0, 1]], dtype=np.complex128),
    "X": np.array([[0, 1], [1, 0]], dtype=np.complex128),
    "Y": np.array([[0, -1j], [1j, 0]], dtype=np.complex128),
    "Z": np.array([[1, 0], [0, -1]], dtype=np.complex128),
}


@functools.cache
def pauli_matrix(letters: str) -> Matrix:
    """Return a product of Pauli matrices, letter j acting on qubit j.

    >>> pauli_matrix("ZI").real.diagonal()
    array([ 1., -1.,  1., -1.])
    """
    product: NDArray[Any] = np.eye(1)
    for letter in letters:
        product = np.kron(_ONE_QUBIT[letter], product)
    return locked(product)


def pauli_texts(n_qubits: int) -> list[str]:
    """Return the 4^n products in alphabetical order, the identity first."""
    return ["".join(letters) for letters in itertools.product(LETTERS, repeat=n_qubits)]


def pauli_product(one: str, two: str) -> str:
    """Return the product of two Pauli strings without its phase.

    >>> pauli_product("XYI", "XZZ")
    'IXZ'
    """
    # As numbers of two bits, Y = X + Z, the product is an exclusive or.
    codes = "IXZY"
    return "".join([codes[codes.index(a) ^ codes.index(b)] for a, b in zip(one, two)])


def locked(matrix: NDArray[Any]) -> Matrix:
    """Return a matrix that cannot be written to, of numbers without negative zeros, so that equal ones have equal bytes."""
    own = np.ascontiguousarray(matrix, dtype=np.complex128) + 0.0
    own.flags.writeable = False
    return own


def turned(matrix: Matrix) -> Matrix:
    """Return a matrix for the opposite order of its qubits."""
    bits = len(matrix).bit_length() - 1
    axes = [*reversed(range(bits)), *reversed(range(bits, 2 * bits))]
    return locked(matrix.reshape([2] * (2 * bits)).transpose(axes).reshape(matrix.shape))


def matrices(values: Any, name: str, order: str) -> tuple[Matrix, ...]:
    """Return a list of square matrices of one size, for 1 to `MOST_QUBITS` qubits, in little order.

    >>> [matrix.shape for matrix in matrices([[[1, 0], [0, 1]]], "matrices", "little")]
    [(2, 2)]
    """
    listed = checks.sequence(values, name, of="matrices", most=4**MOST_QUBITS)
    if not listed:
        raise ValueError(f"{name} must hold at least one matrix, got none")
    checked = [_matrix(value, f"{name}[{i}]") for i, value in enumerate(listed)]
    for i, matrix in enumerate(checked):
        if matrix.shape != checked[0].shape:
            raise ValueError(f"{name} must be of one size, got shape {checked[0].shape} and, as {name}[{i}], {matrix.shape}")
    return tuple([turned(matrix) if order == "big" else matrix for matrix in checked])


def _matrix(value: Any, name: str) -> Matrix:
    sizes = {2**n: n for n in range(1, MOST_QUBITS + 1)}
    expected = f"{name} must be a square array of numbers with 2, 4, 8 or 16 rows, for 1 to {MOST_QUBITS} qubits"
    try:
        shape = checks.array(value).shape
    except ValueError:  # rows of different lengths
        raise ValueError(f"{expected}, got {checks.show(value)}") from None
    if len(shape) != 2 or shape[0] != shape[1] or shape[0] not in sizes:
        raise ValueError(f"{expected}, got shape {shape}")
    return locked(checks.matrix(value, sizes[shape[0]], name, unitary=False))


def deviation(operators: Sequence[Matrix]) -> float:
    """Return how far the sum of K†K is from the identity, in its worst entry."""
    # Entries may be huge: an overflow is a deviation, not a warning.
    with np.errstate(all="ignore"):
        rows = np.concatenate(operators)
        return float(np.abs(rows.conj().T @ rows - np.eye(rows.shape[1])).max())


def share_of_unitary(operator: Matrix) -> float | None:
    """Return p of an operator sqrt(p) U, None for others.

    >>> share_of_unitary(0.6 * pauli_matrix("X")).__round__(12), share_of_unitary(np.diag([1, 0.5]))
    (0.36, None)
    """
    square = operator.conj().T @ operator
    share = float(square.trace().real) / len(operator)
    return share if np.abs(square - share * np.eye(len(operator))).max() <= TOLERANCE * share else None


def choi(operators: Sequence[Matrix]) -> Matrix:
    """Return the sum of v v† over all K, v[in*D + out] = K[out, in]."""
    columns = np.array([operator.T.reshape(-1) for operator in operators])
    return columns.T @ columns.conj()


def superoperator(operators: Sequence[Matrix]) -> Matrix:
    """Return the sum of conj(K) ⊗ K, for the flat index bra*D + ket of a density matrix."""
    return regrouped(choi(operators))


def regrouped(matrix: Matrix) -> Matrix:
    """Return the superoperator of a Choi matrix, or the Choi matrix of a superoperator.

    The one has rows (ket in, ket out) and columns (bra in, bra out), the other (bra out, ket out) and (bra in, ket in).
    """
    size = math.isqrt(len(matrix))
    return matrix.reshape(size, size, size, size).transpose(3, 1, 2, 0).reshape(size**2, size**2)


def fewest(of_choi: Matrix) -> list[Matrix]:
    """Return Kraus operators of the channel with this Choi matrix, D^2 of them at most."""
    size = math.isqrt(len(of_choi))
    weights, vectors = np.linalg.eigh(of_choi)
    kept = [place for place in reversed(range(len(weights))) if weights[place] > 1e-16 * size]
    return [np.sqrt(weights[place]) * vectors[:, place].reshape(size, size).T for place in kept]
