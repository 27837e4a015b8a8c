"""Parts of the state by themselves: density matrices, and how much a part is entangled with the rest."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..core import extension
from ..machine import memory
from ..programs.background import in_background
from ..programs.drive import heard
from ..programs.progress import ProgressLike, metered
from .base import Qubits, StateBase, highest_first, required_total

# Besides the matrix, the core takes one of at most 64 rows for each of 64 blocks.
_MOST_BLOCKS = 4 << 20
# Amplitudes that are put in order at a time.
_PIECE = 2**20
# Matrices from this size on keep LAPACK busy for longer than someone waits after Ctrl-C.
_LARGE = 400


class Schmidt(NamedTuple):
    """The Schmidt decomposition of a state: the sum over i of ``coefficients[i] * left[:, i] (x) right[:, i]``.

    Attributes
    ----------
    coefficients : numpy.ndarray, shape (r,)
        Not negative, largest first; ``float64``.
    left : numpy.ndarray, shape (2**k, r)
        Columns are states of the listed qubits; ``complex128``.
    right : numpy.ndarray, shape (2**(n - k), r)
        Columns are states of the other qubits, which stand in increasing order.
    """

    coefficients: np.ndarray
    left: np.ndarray
    right: np.ndarray


class Parts(StateBase):
    """The state does not change. All is calculated in double precision, also for a state in single precision."""

    def reduced(self, qubits: Qubits, order: Order = "little", progress: ProgressLike = None) -> np.ndarray:
        """Return the density matrix of the listed qubits, the others traced out.

        Parameters
        ----------
        qubits : int or sequence of int
            k distinct qubits. The state is read once for up to 6 of them, 2**(k - 6) times for more.
        order : {"little", "big"}
            Whether the first listed qubit is the lowest bit of a row's and a column's number, as in the `array` of a
            state that had these qubits alone, or the highest.
        progress : None, bool or callable
            As for `run`; amplitudes are counted.

        Returns
        -------
        numpy.ndarray, shape (2**k, 2**k)
            ``complex128``, Hermitian to the last bit; entry (i, j) is <i|rho|j>. Its trace is the sum of all
            probabilities: nothing is divided by it. The same bits on any number of threads.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.
        MemoryError
            If the matrix does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).h(0).cx(0, 1).x(2)
        >>> state.reduced(0).real.round(6).tolist()
        [[0.5, 0.0], [0.0, 0.5]]
        >>> state.reduced([2, 0]).diagonal().real.round(6).tolist()     # qubit 2 is the lowest bit
        [0.0, 0.5, 0.0, 0.5]
        """
        core = self._live()
        return self._density(core, highest_first(self._some(qubits), order), progress)

    def purity(self, qubits: Qubits | None = None, progress: ProgressLike = None) -> float:
        """Return the trace of the squared density matrix, of the listed qubits or of all.

        Parameters
        ----------
        qubits : int or sequence of int, optional
            Without them it is the square of the sum of all probabilities, 1 but for rounding.
        progress : None, bool or callable
            As for `run`; amplitudes are counted.

        Returns
        -------
        float
            From 2**-k to 1 for k qubits, or for the k others if those are fewer, if the state has norm 1. Nothing is
            divided by a norm.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.
        MemoryError
            If the density matrix of the listed qubits, or of the others if they are fewer, does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).h(0).cx(0, 1)
        >>> round(state.purity(), 6), round(state.purity(0), 6), round(state.purity([0, 1]), 6)
        (1.0, 0.5, 1.0)
        """
        core = self._live()
        side = self._smaller_side(() if qubits is None else self._some(qubits))
        parts = self._density(core, side, progress).reshape(-1).view(np.float64)
        return float(np.square(parts, out=parts).sum())

    def entropy(self, qubits: Qubits, progress: ProgressLike = None) -> float:
        """Return the von Neumann entropy of the listed qubits, in bits: how much they are entangled with the others.

        It is that of the normalised state, -sum(p * log2(p)) over the eigenvalues p of `reduced`; those of the other
        qubits are the same, so the fewer of the two are looked at. Rounding leaves it within 1e-12 or so.

        Parameters
        ----------
        qubits : int or sequence of int
            k distinct qubits.
        progress : None, bool or callable
            As for `run`; amplitudes are counted.

        Returns
        -------
        float
            From 0 to min(k, n - k).

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice; also ValueError if the probabilities add up to
            0, to infinity or to nan.
        MemoryError
            If two density matrices of the listed qubits, or of the others if they are fewer, do not fit.

        Notes
        -----
        After Ctrl-C the eigenvalues of a large matrix, from 9 qubits on, are calculated to their end in the background.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).h(0).cx(0, 1).ry(0.4, 2)
        >>> round(state.entropy(0), 6), round(state.entropy([0, 2]), 6), round(state.entropy(2), 6)
        (1.0, 1.0, 0.0)
        """
        core, side = self._live(), self._smaller_side(self._some(qubits))
        memory.require_bytes(32 << 2 * len(side), f"the entropy of {len(side)} qubits")
        matrix = self._density(core, side, progress)
        matrix /= required_total(float(matrix.trace().real), "entropy")
        shares = _calmly(len(matrix), lambda: np.linalg.eigvalsh(matrix))
        shares = shares[shares > 0]
        return max(0.0, float(-(shares * np.log2(shares)).sum()))

    def bloch_vector(self, qubit: int, progress: ProgressLike = None) -> np.ndarray:
        """Return the expectation values of X, Y and Z of one qubit.

        Parameters
        ----------
        qubit : int
        progress : None, bool or callable
            As for `run`; amplitudes are counted.

        Returns
        -------
        numpy.ndarray, shape (3,)
            ``float64``. Its length is 1 for a qubit that is not entangled and 0 for one that is entangled as much as
            can be, if the state has norm 1; nothing is divided by a norm.

        Raises
        ------
        TypeError, IndexError
            If `qubit` is no integer or outside the range.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> StateVector(2).rx(-0.5, 1).bloch_vector(1).round(6).tolist()
        [0.0, 0.479426, 0.877583]
        """
        core = self._live()
        matrix = self._density(core, (checks.qubit(qubit, self._n_qubits),), progress)
        return np.array([2 * matrix[1, 0].real, 2 * matrix[1, 0].imag, matrix[0, 0].real - matrix[1, 1].real])

    def schmidt(
        self, qubits: Qubits, vectors: bool = False, order: Order = "little", progress: ProgressLike = None
    ) -> np.ndarray | Schmidt:
        """Return the Schmidt coefficients between the listed qubits and the others.

        Parameters
        ----------
        qubits : int or sequence of int
            k distinct qubits.
        vectors : bool
            Whether the vectors are wanted, too. They take three times the memory of the state in double precision, and
            no signal stops their calculation.
        order : {"little", "big"}
            Whether the first listed qubit, and the lowest of the others, are the lowest or the highest bit of an index
            of the vectors.
        progress : None, bool or callable
            As for `run`; amplitudes are counted as they are read.

        Returns
        -------
        numpy.ndarray, shape (2**min(k, n - k),), or Schmidt
            The singular values of the amplitudes as a matrix with a row for every index of the listed qubits, largest
            first, within 1e-15 of the largest. Their squares add up to the sum of all probabilities; nothing is divided
            by a norm. With `vectors` a named tuple of coefficients, left and right vectors.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice; also ValueError if the probabilities add up to
            infinity or to nan.
        MemoryError
            If there is no room for the vectors, or for a few matrices with 4**min(k, n - k) entries.

        Notes
        -----
        The bits are those of NumPy's linear algebra. After Ctrl-C a large matrix is decomposed to its end in the
        background.

        Examples
        --------
        >>> import numpy as np
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).ry(0.6, 0).cx(0, 2)
        >>> state.schmidt(0).round(6).tolist()
        [0.955336, 0.29552]
        >>> coefficients, left, right = state.schmidt([0, 1], vectors=True)
        >>> bool(np.allclose(((right * coefficients) @ left.T).reshape(8), state.array))     # qubit 2 is the highest
        True
        """
        core, listed = self._live(), self._some(qubits)
        checks.flag(vectors, "vectors")
        others = tuple(qubit for qubit in range(self._n_qubits) if qubit not in listed)
        total = float(core.probability(0, ()))
        if not total < np.inf:
            required_total(total, "Schmidt decomposition")
        if vectors:
            is_big = checks.order(order) == "big"
            turned = slice(None, None, -1 if is_big else 1)
            return self._schmidt_vectors(core, listed[turned], others[turned], progress)
        checks.order(order)
        few, many = sorted((listed, others), key=len)
        width = 2 ** len(few)
        rows = min(2 ** len(many), max(width, _PIECE // width))
        memory.require_bytes(64 * (width + rows) * width, f"the Schmidt coefficients of {len(few)} qubits")
        triangle = np.zeros((0, width), dtype=np.complex128)
        with metered(progress, 2**self._n_qubits, "amplitudes") as meter:
            for piece in _rows(core.view(), many, few, rows):
                stacked = np.concatenate([triangle, piece])
                triangle = _calmly(width, lambda stacked=stacked: np.linalg.qr(stacked, mode="r"))
                meter.advance(piece.size)
                meter.tell()
        values: np.ndarray = _calmly(width, lambda: np.linalg.svd(triangle, compute_uv=False))
        return values

    def _schmidt_vectors(
        self, core: Any, rows: Sequence[int], columns: Sequence[int], progress: ProgressLike
    ) -> Schmidt:
        height, width = 2 ** len(rows), 2 ** len(columns)
        memory.require_bytes(
            64 * height * width + 96 * min(height, width) ** 2, f"the Schmidt vectors of {self._n_qubits} qubits"
        )
        matrix = np.empty((height, width), dtype=np.complex128)
        at_once = max(1, min(height, _PIECE // width))
        with metered(progress, 2**self._n_qubits, "amplitudes") as meter:
            for i, piece in enumerate(_rows(core.view(), rows, columns, at_once)):
                matrix[i * at_once : i * at_once + len(piece)] = piece
                meter.advance(piece.size)
                meter.tell()
            left, values, right = _calmly(height * width // 64, lambda: np.linalg.svd(matrix, full_matrices=False))
        return Schmidt(values, left, right.T)

    def _some(self, qubits: Qubits) -> tuple[int, ...]:
        return checks.qubits(qubits, self._n_qubits, at_least=0)

    def _smaller_side(self, qubits: tuple[int, ...]) -> tuple[int, ...]:
        """Return the qubits, or the others if those are fewer: both have the same spectrum."""
        if 2 * len(qubits) <= self._n_qubits:
            return qubits
        return tuple(qubit for qubit in range(self._n_qubits) if qubit not in qubits)

    def _density(self, core: Any, listed: Sequence[int], progress: ProgressLike) -> np.ndarray:
        needed = (16 << 2 * len(listed)) + min(_MOST_BLOCKS, 64 * 16 << 2 * len(listed))
        memory.require_bytes(needed, f"the density matrix of {len(listed)} qubits")
        with metered(progress, 2**self._n_qubits, "amplitudes") as meter:
            matrix: np.ndarray = extension.reduced(core, listed, *heard(meter.within()))
        return matrix


def _calmly(size: int, work: Any) -> Any:
    return work() if size < _LARGE else in_background(work)


def _rows(
    amplitudes: np.ndarray, rows: Sequence[int], columns: Sequence[int], at_once: int
) -> Iterator[np.ndarray]:
    """Iterate over the amplitudes as a matrix, `at_once` rows, a power of two, at a time; first qubits are lowest bits."""
    low = at_once.bit_length() - 1
    inside = places(rows[:low])[:, np.newaxis] + places(columns)
    for outside in places(rows[low:]).tolist():
        yield amplitudes[inside + outside].astype(np.complex128, copy=False)


def places(qubits: Sequence[int]) -> np.ndarray:
    """Return the indices in which the listed qubits count upwards, the first as lowest bit, and the others are 0.

    >>> places([1, 0]).tolist()
    [0, 2, 1, 3]
    """
    places = np.zeros(1, dtype=np.int64)
    for qubit in qubits:
        places = np.concatenate([places, places + (1 << qubit)])
    return places
