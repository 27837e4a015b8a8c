"""Observables as matrices, and matrices as observables.

The string with flips x and signs z has, in every row r, the one entry (-i)^|x & z| (-1)^|z & r| in column r ^ x. So
all strings with the same flips fill one generalised diagonal, and its entries are a Walsh-Hadamard transform of their
weights, which is its own inverse up to a factor.
"""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Any, Self

import numpy as np

from ..basics import checks, extras
from ..basics.types import Order
from ..machine import memory
from .base import ObservableBase
from .terms import MOST_QUBITS, Term, mask, of_masks

#: Of a matrix that becomes an observable, which may have 4^k terms.
MOST_MATRIX_QUBITS = 10

# A matrix that was computed in single precision passes.
_HERMITIAN_TOLERANCE = 1e-6

# Rows that are filled at a time, which the cache holds.
_ROWS = 2**14

_BYTES_PER_TERM = 500

_POWERS_OF_I = np.array([1, 1j, -1, -1j])


class Matrices(ObservableBase):
    """To matrices and back."""

    def to_matrix(self, n_qubits: int | None = None, sparse: bool = False, order: Order = "little") -> Any:
        """Return the matrix of the observable.

        Parameters
        ----------
        n_qubits : int, optional
            n, at least ``self.n_qubits``, which is the default; on further qubits it is the identity.
        sparse : bool
            True gives a ``scipy.sparse.csr_array``, with at most one entry per row for every set of qubits that a term
            flips; for that SciPy is needed.
        order : {"little", "big"}
            Whether qubit 0 is the least significant bit of a row's and a column's number, as in `StateVector.array`, or
            the most significant.

        Returns
        -------
        numpy.ndarray or scipy.sparse.csr_array, shape (2**n, 2**n)
            ``complex128``.

        Raises
        ------
        TypeError, ValueError
            If an argument is of the wrong kind or outside its range.
        MemoryError
            If the matrix does not fit: a dense one on 15 qubits takes 16 GiB.
        ImportError
            If SciPy is asked for and not installed.

        Examples
        --------
        >>> Observable("Z0 + 2*X1").to_matrix().real
        array([[ 1.,  0.,  2.,  0.],
               [ 0., -1.,  0.,  2.],
               [ 2.,  0.,  1.,  0.],
               [ 0.,  2.,  0., -1.]])
        """
        least = self._n_qubits
        n = least if n_qubits is None else checks.integer(n_qubits, "n_qubits", least, MOST_QUBITS)
        is_sparse, is_big = checks.flag(sparse, "sparse"), checks.order(order) == "big"
        library = extras.imported("scipy.sparse", "to_matrix(sparse=True)") if is_sparse else None
        flips = len({mask(term, "XY") for term in self._terms} | {0})
        # 40 qubits are beyond any machine, and 2**n of a larger n beyond what is written down.
        shown = f"the matrix of {n} qubits" if n <= 40 else f"a matrix of 40 qubits, let alone {n},"
        wide = "int32" if flips << min(n, 40) < 2**31 else "int64"
        entry = 16 + np.dtype(wide).itemsize
        memory.require_bytes((flips * entry if is_sparse else 16 << min(n, 40)) << min(n, 40), shown)

        diagonals = _diagonals(self._terms, complex(self._constant), n if is_big else None)
        if library is None:
            matrix: np.ndarray = np.zeros((2**n, 2**n), dtype=np.complex128)
            for flip, strings in diagonals:
                for rows, entries in _entries(strings, n):
                    matrix[rows, rows ^ flip] = entries
            return matrix
        columns, values = np.empty((2**n, flips), dtype=wide), np.empty((2**n, flips), dtype=np.complex128)
        for place, (flip, strings) in enumerate(diagonals):
            for rows, entries in _entries(strings, n):
                piece = slice(rows[0], rows[-1] + 1)
                columns[piece, place], values[piece, place] = rows ^ flip, entries
        starts = np.arange(2**n + 1, dtype=wide) * flips
        made = library.csr_array((values.reshape(-1), columns.reshape(-1), starts), shape=(2**n, 2**n))
        made.eliminate_zeros()
        made.sort_indices()
        return made

    @classmethod
    def from_matrix(cls, matrix: Any, qubits: None | int | Sequence[int] = None, order: Order = "little") -> Self:
        """Return a Hermitian matrix as a sum of Pauli strings.

        Parameters
        ----------
        matrix : array_like of shape (2**k, 2**k), or a sparse matrix of SciPy
            Hermitian up to rounding: entries may deviate by 1e-6 of the largest.
        qubits : int or sequence of int, optional
            k distinct qubits, at most 10: there may be 4**k terms, a million for 10. By default 0 to k - 1.
        order : {"little", "big"}
            Whether the first listed qubit is the least significant bit of a row's and a column's number, or the most
            significant, as in `StateVector.matrix`.

        Returns
        -------
        Observable
            Terms with flips (X or Y) on the same qubits stand together. Those that rounding alone may have left are left
            out: whose coefficient is at most k * 2**-52 of the largest entry that such terms share.

        Raises
        ------
        TypeError, ValueError
            If this is no matrix of such a shape, it is not Hermitian, or the qubits do not fit it.
        MemoryError
            If the terms do not fit.

        Notes
        -----
        One fast Walsh-Hadamard transform for every set of flips: k * 4**k additions in all.

        Examples
        --------
        >>> Observable.from_matrix([[1, 2], [2, -1]])
        Observable('1.0*Z0 + 2.0*X0')
        >>> Observable.from_matrix([[0, 0], [0, 1]], qubits=5)
        Observable('-0.5*Z5 + 0.5')
        """
        checked, n = _square(matrix)
        listed = tuple(range(n)) if qubits is None else checks.qubits(qubits, MOST_QUBITS, at_least=0)
        if len(listed) != n:
            raise ValueError(
                f"qubits must name {n} qubit(s) for a matrix of shape {checked.shape}, got {checks.show(qubits)}"
            )
        if checks.order(order) == "big":
            listed = listed[::-1]
        _require_hermitian(checked)
        weights = _weights(checked, n)
        flips, signs = np.nonzero(weights)
        memory.require_bytes(_BYTES_PER_TERM * len(flips), f"an observable of {len(flips)} terms")
        # The qubits of every set of bits.
        spread = [sum(1 << listed[bit] for bit in range(n) if number >> bit & 1) for number in range(2**n)]
        terms = [
            Term(weight, *of_masks(spread[flip], spread[sign]))
            for flip, sign, weight in zip(flips.tolist(), signs.tolist(), weights[flips, signs].tolist())
            if flip or sign
        ]
        return cls._of(terms, float(weights[0, 0]), max(listed, default=-1) + 1)


def _diagonals(
    terms: Sequence[Term], constant: complex, reversed_n: int | None
) -> Iterator[tuple[int, list[tuple[int, complex]]]]:
    """Iterate over the sets of flips in increasing order, each with the signs and weights of its strings."""
    strings: dict[int, list[tuple[int, complex]]] = {0: [(0, constant)]}
    for term in terms:
        if reversed_n is not None:
            term = term._replace(qubits=tuple([reversed_n - 1 - qubit for qubit in term.qubits]))
        turn = complex(_POWERS_OF_I[-term.paulis.count("Y") & 3])
        strings.setdefault(mask(term, "XY"), []).append((mask(term, "YZ"), term.coefficient * turn))
    return iter(sorted(strings.items()))


def _entries(strings: Sequence[tuple[int, complex]], n: int) -> Iterator[tuple[np.ndarray, np.ndarray]]:
    """Iterate over rows and their entries, some at a time."""
    signs = np.array([sign for sign, _ in strings], dtype=np.int64)
    weights = np.array([weight for _, weight in strings])
    length = min(2**n, _ROWS)
    for start in range(0, 2**n, length):
        # The higher bits of these rows are the same: they give every string one sign.
        entries: np.ndarray = np.zeros(length, dtype=np.complex128)
        np.add.at(entries, signs & (length - 1), np.where(_is_odd(signs & start), -weights, weights))
        yield np.arange(start, start + length), _transformed(entries)


def _is_odd(numbers: np.ndarray) -> np.ndarray:
    for shift in (32, 16, 8, 4, 2, 1):
        numbers = numbers ^ numbers >> shift
    return (numbers & 1).astype(bool)


def _transformed(array: np.ndarray) -> np.ndarray:
    """Carry out the Walsh-Hadamard transform over the last axis, in place: out[r] = sum of (-1)^|z & r| in[z]."""
    half = 1
    while half < array.shape[-1]:
        pairs = array.reshape(*array.shape[:-1], -1, 2, half)
        difference = pairs[..., 0, :] - pairs[..., 1, :]
        pairs[..., 0, :] += pairs[..., 1, :]
        pairs[..., 1, :] = difference
        half *= 2
    return array


def _square(matrix: Any) -> tuple[np.ndarray, int]:
    """Return a matrix as a checked array, and its number of qubits."""
    is_sparse = hasattr(matrix, "toarray")
    try:
        shape = tuple(matrix.shape if is_sparse else checks.array(matrix).shape)
    except ValueError:  # rows of different lengths
        shape = ()
    if shape not in [(2**n, 2**n) for n in range(MOST_MATRIX_QUBITS + 1)]:
        raise ValueError(
            f"matrix must have the shape (2**k, 2**k) for k from 0 to {MOST_MATRIX_QUBITS} qubits, got "
            f"{f'shape {shape}' if shape else checks.show(matrix)}"
        )
    n = shape[0].bit_length() - 1
    return checks.matrix(matrix.toarray() if is_sparse else matrix, n, unitary=False), n


def _require_hermitian(matrix: np.ndarray) -> None:
    with np.errstate(over="ignore"):
        deviation, largest = np.abs(matrix - matrix.conj().T).max(), np.abs(matrix).max()
    if not deviation <= _HERMITIAN_TOLERANCE * largest:
        raise ValueError(
            f"matrix must be Hermitian, got one with an entry of M - M† of {deviation:.3g}. Any matrix is a + 1j * b of "
            "two that are, a = from_matrix((M + M†) / 2) and b = from_matrix((M - M†) / 2j)"
        )


def _weights(matrix: np.ndarray, n: int) -> np.ndarray:
    """Return the weight of every string, by flips and signs."""
    numbers = np.arange(2**n)
    memory.require_bytes(64 << 2 * n, f"the Pauli strings of a matrix on {n} qubits")
    diagonals = matrix[numbers, numbers ^ numbers[:, np.newaxis]]  # row by row for each set of flips
    most = np.abs(diagonals).max(axis=1, keepdims=True)
    counts = np.array([number.bit_count() for number in range(2**n)])
    ys = counts[numbers & numbers[:, np.newaxis]]
    with np.errstate(all="ignore"):
        weights = (_transformed(diagonals) * _POWERS_OF_I[ys & 3]).real / 2**n
    if not np.isfinite(weights).all():
        raise ValueError("matrix must hold numbers whose sums fit a double, got larger ones")
    weights[np.abs(weights) <= n * 2.0**-52 * most] = 0
    return weights
