"""What a density matrix tells beyond outcomes: expectation values, parts, and how near it is to others."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..core import extension
from ..machine import memory
from ..observables.observable import Observable, ObservableLike
from ..observables.terms import Term
from ..programs.background import in_background
from ..programs.drive import heard
from ..programs.progress import ProgressLike, metered
from ..results.estimate import Estimate
from .base import Qubits, StateBase, highest_first, required_total
from .density import DensityBase
from .expectations import Expectations, centred
from .overlaps import other_state
from .parts import places
from .statevector import StateVector

# Matrices from this size on keep LAPACK busy for longer than someone waits after Ctrl-C.
_LARGE = 400


class DensityValues(DensityBase):
    """The matrix does not change. All is calculated in double precision, also for entries in single precision.

    Sums are formed on one thread: the same bits whatever the number of threads.
    """

    def expectation(self, observable: ObservableLike, progress: ProgressLike = None) -> float | complex:
        """Return the exact expectation value, the trace of observable times matrix.

        Parameters, errors
            As for `StateVector.expectation`.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> rho = DensityMatrix(2).h(0).cx(0, 1).channel(Channel.depolarizing(0.2, 2), [0, 1])
        >>> round(rho.expectation("X0 X1 + 3"), 12)
        3.8
        """
        checked = self._observable(observable)
        value: complex = self._term_values(checked, progress).sum() + checked.constant
        return complex(value) if checked.is_complex else float(value.real)

    def term_values(self, observable: ObservableLike, progress: ProgressLike = None) -> np.ndarray:
        """Return coefficient times expectation value of every term, in the order of ``observable.terms``.

        Parameters, errors
            As for `StateVector.term_values`.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(2).x(1).term_values("0.5*Z0 + 2*Z1 + 3").tolist()
        [0.5, -2.0]
        """
        checked = self._observable(observable)
        values = self._term_values(checked, progress)
        return values if any(isinstance(term.coefficient, complex) for term in checked.terms) else values.real.copy()

    def variance(self, observable: ObservableLike, progress: ProgressLike = None) -> float:
        """Return the variance of what measurements of an observable give, <O^2> - <O>^2.

        It is that of the matrix divided by its trace.

        Parameters, errors
            As for `StateVector.variance`.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> rho = DensityMatrix(2).h(0)
        >>> round(rho.variance("Z0"), 6), round(rho.variance("3*X0 + Z1"), 6)
        (1.0, 0.0)
        """
        checked = centred(self._observable(observable))
        total = required_total(self.trace(), "variance")
        square = checked @ checked
        # A constant is told as it is, whatever the trace.
        mean = float(self.expectation(checked).real) / total
        of_square = square.constant.real + float(self.expectation(square - square.constant, progress).real) / total
        return max(0.0, of_square - mean * mean)

    def estimate(
        self, observable: ObservableLike, shots: int, per_term: bool = False, progress: ProgressLike = None
    ) -> Estimate:
        """Estimate an expectation value from shots, as a quantum computer would: every term has its own.

        Parameters, errors
            As for `StateVector.estimate`.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(2, seed=1).h(0).estimate("2*X0 - Z1 + 1", shots=100)
        Estimate(mean=2.0, standard_error=0.0)
        """
        checked = self._observable(observable)
        count, separate = checks.shots(shots, minimum=1), checks.flag(per_term, "per_term")
        total = required_total(self.trace(), "shots")
        values = self._term_values(checked, None) / total
        means, errors = np.zeros(len(values), dtype=np.complex128), np.zeros(len(values))
        core = self._live()
        # Outcomes of a term are signs: those of one qubit that reads 0 as often as the sign is +.
        coin = StateVector._another(1, "double", 1)
        extension.set_engine(coin._live(), extension.engine(core))
        with metered(progress, count * len(values), "shots") as meter:
            for i, term in enumerate(checked.terms):
                sign = (values[i] / term.coefficient).real if term.coefficient else 0.0
                # What rounding leaves of a sign that is certain.
                sign = float(np.clip(sign, -1, 1)) if abs(abs(sign) - 1) > 1e-12 else float(np.sign(sign))
                coin.array[:] = np.sqrt([(1 + sign) / 2, (1 - sign) / 2])
                drawn = coin.estimate("Z0", count)
                means[i], errors[i] = term.coefficient * drawn.mean, abs(term.coefficient) * drawn.standard_error
                meter.advance(count)
                meter.tell()
        extension.set_engine(core, extension.engine(coin._live()))
        shown = means if any(isinstance(term.coefficient, complex) for term in checked.terms) else means.real.copy()
        if separate:
            return Estimate(shown, errors)
        # Terms are drawn independently, so the squares of their errors add up.
        return Estimate((shown.sum() + checked.constant).item(), float(np.sqrt((errors * errors).sum())))

    # Parts

    def reduced(self, qubits: Qubits, order: Order = "little", progress: ProgressLike = None) -> np.ndarray:
        """Return the density matrix of the listed qubits, the others traced out.

        Parameters
        ----------
        qubits, order
            As for `StateVector.reduced`.
        progress : None, bool or callable
            As for `run`; the qubits that are traced out are counted.

        Returns
        -------
        numpy.ndarray, shape (2**k, 2**k)
            ``complex128``; entry (i, j) is <i|rho|j>. `DensityMatrix.from_array` makes an object of it.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `StateVector.reduced`.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(3).h(0).cx(0, 1).x(2).reduced([2, 0]).diagonal().real.round(6).tolist()
        [0.0, 0.5, 0.0, 0.5]
        """
        lowest_first = highest_first(checks.qubits(qubits, self._n_qubits, at_least=0), order)[::-1]
        return self._reduced(lowest_first, progress)

    def _reduced(self, listed: Sequence[int], progress: ProgressLike = None) -> np.ndarray:
        """Return the matrix of checked qubits, the first listed as lowest bit."""
        size = 2 ** len(listed)
        memory.require_bytes(32 * size * size, f"the density matrix of {len(listed)} qubits")
        flat, n = self._live().view(), self._n_qubits
        others = places([qubit for qubit in range(n) if qubit not in listed])
        inside = places(listed)
        found = np.zeros((size, size), dtype=np.complex128)
        with metered(progress, len(others) * size, "entries") as meter:
            for bra, place in enumerate(inside.tolist()):
                for outside in others.tolist():
                    found[:, bra] += flat[((place + outside) << n) + outside + inside]
                meter.advance(len(others))
                meter.tell()
        return found

    def purity(self, qubits: Qubits | None = None, progress: ProgressLike = None) -> float:
        """Return the trace of the squared matrix, of the listed qubits or of all: 1 for a pure state, 2**-k at least.

        Parameters
        ----------
        qubits : int or sequence of int, optional
            k distinct qubits; all by default.
        progress : None, bool or callable
            As for `reduced`.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.
        MemoryError
            If the matrix of the listed qubits does not fit.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> rho = DensityMatrix(2).h(0).cx(0, 1).channel(Channel.phase_flip(0.25), 0)
        >>> round(rho.purity(), 12), round(rho.purity(0), 12)
        (0.625, 0.5)
        """
        if qubits is None:
            return float(self._live().probability(0, ()))
        parts = self._reduced(checks.qubits(qubits, self._n_qubits, at_least=0), progress).reshape(-1).view(np.float64)
        return float(np.square(parts, out=parts).sum())

    def entropy(self, qubits: Qubits | None = None, progress: ProgressLike = None) -> float:
        """Return the von Neumann entropy in bits, of the listed qubits or of all, of the matrix divided by its trace.

        Parameters
        ----------
        qubits, progress
            As for `purity`.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `purity`; also ValueError if the trace is 0, infinite or nan.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> rho = DensityMatrix(2).h(0).cx(0, 1).channel(Channel.phase_flip(0.5), 0)
        >>> round(rho.entropy(), 6), round(rho.entropy(0), 6)
        (1.0, 1.0)
        """
        listed = self._listed(qubits)
        memory.require_bytes(64 << 2 * len(listed), f"the entropy of {len(listed)} qubits")
        matrix = self._reduced(listed, progress)
        matrix /= required_total(float(matrix.trace().real), "entropy")
        shares = _calmly(matrix, np.linalg.eigvalsh)
        shares = shares[shares > 0]
        return max(0.0, float(-(shares * np.log2(shares)).sum()))

    def bloch_vector(self, qubit: int, progress: ProgressLike = None) -> np.ndarray:
        """Return the expectation values of X, Y and Z of one qubit, shape (3,), ``float64``.

        Parameters, errors
            As for `StateVector.bloch_vector`.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> DensityMatrix(2).h(1).channel(Channel.phase_flip(0.25), 1).bloch_vector(1).round(6).tolist()
        [0.5, 0.0, 0.0]
        """
        matrix = self._reduced((checks.qubit(qubit, self._n_qubits),), progress)
        return np.array([2 * matrix[1, 0].real, 2 * matrix[1, 0].imag, matrix[0, 0].real - matrix[1, 1].real])

    # Two of them

    def overlap(
        self, other: StateBase | Sequence[complex] | np.ndarray, order: Order = "little", progress: ProgressLike = None
    ) -> float:
        """Return the trace of this matrix times another: for pure states the squared magnitude of their inner product.

        Parameters
        ----------
        other : DensityMatrix, StateVector, or array_like of shape (2**n,)
            On as many qubits; amplitudes of any norm.
        order : {"little", "big"}
            Whether qubit 0 is the lowest bit of an array's index or the highest.
        progress : None, bool or callable
            As for `run`; entries are counted.

        Raises
        ------
        TypeError, ValueError
            If `other` is none of these or has another number of qubits.
        MemoryError
            If the copy of an array does not fit.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix, StateVector
        >>> rho = DensityMatrix(1).channel(Channel.bit_flip(0.25), 0)
        >>> rho.overlap(rho), rho.overlap(StateVector(1))
        (0.625, 0.75)
        """
        if isinstance(other, DensityBase):
            self._require_alike(other, order)
            with metered(progress, 4**self._n_qubits, "entries") as meter:
                return extension.overlap(other._live(), self._live(), *heard(meter.within())).real
        self._live()
        psi = other_state(other, self._n_qubits, order, self._threads)._live().view().astype(np.complex128)
        size = 2**self._n_qubits
        rows = self._live().view().reshape(size, size)  # of the bra
        products = np.empty(size, dtype=np.complex128)
        with metered(progress, size * size, "entries") as meter:
            step = max(1, 2**20 // size)
            for start in range(0, size, step):
                products[start : start + step] = rows[start : start + step] @ psi.conj()
                meter.advance(step * size)
                meter.tell()
        return float((psi * products).sum().real)

    def fidelity(
        self, other: StateBase | Sequence[complex] | np.ndarray, order: Order = "little", progress: ProgressLike = None
    ) -> float:
        """Return the squared fidelity with another state.

        With a pure state it is <psi|rho|psi>, with a mixed one the squared trace of sqrt(sqrt(rho) sigma sqrt(rho)): 1
        for equal states and 0 for orthogonal ones, if both have trace 1. (Uhlmann, Rep. Math. Phys. 9, 273 (1976); some
        authors call the root of it fidelity.)

        Parameters
        ----------
        other, order, progress
            As for `overlap`.

        Raises
        ------
        TypeError, ValueError
            As for `overlap`.
        MemoryError
            If there is no room for four more matrices, which two mixed states take, or for the copy of an array.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix, StateVector
        >>> rho, sigma = DensityMatrix(1).channel(Channel.bit_flip(0.5), 0), DensityMatrix(1)
        >>> round(rho.fidelity(sigma), 12), round(rho.fidelity(StateVector(1)), 12), round(rho.fidelity(rho), 12)
        (0.5, 0.5, 1.0)
        """
        if not isinstance(other, DensityBase):
            return self.overlap(other, order, progress)
        self._require_alike(other, order)
        memory.require_bytes(
            64 << 2 * self._n_qubits, f"the fidelity of two density matrices of {self._n_qubits} qubits"
        )
        for rho in (self, other):
            required_total(float(rho._live().probability(0, ())), "fidelity")
        roots = [_calmly(rho.array.astype(np.complex128), _root) for rho in (self, other)]
        values = _calmly(roots[0] @ roots[1], lambda product: np.linalg.svd(product, compute_uv=False))
        return float(values.sum() ** 2)

    def _require_alike(self, other: DensityBase, order: Order) -> None:
        if checks.order(order) == "big":
            raise ValueError('order must be left away beside a DensityMatrix, which has its own order, got "big"')
        if other.n_qubits != self._n_qubits:
            raise ValueError(f"other must have {self._n_qubits} qubit(s), as this matrix, got one of {other.n_qubits}")

    # Terms

    _observable: Any = Expectations._observable

    def _term_values(self, observable: Observable, progress: ProgressLike) -> np.ndarray:
        flat, size = self._live().view(), 2**self._n_qubits
        indices = np.arange(size)
        rows: dict[int, np.ndarray] = {}  # entries <k|rho|k ^ flips>, by flips
        values = np.zeros(len(observable.terms), dtype=np.complex128)
        with metered(progress, len(observable.terms), "terms") as meter:
            for i, term in enumerate(observable.terms):
                flips, signs, turns = _masks(term)
                entries = rows.get(flips)
                if entries is None:
                    if len(rows) == 16:  # so many are kept
                        rows.pop(next(iter(rows)))
                    entries = rows[flips] = flat[(indices ^ flips) * size + indices]
                values[i] = term.coefficient * turns * (entries * _signs(indices & signs)).sum(dtype=np.complex128)
                meter.advance(1)
                meter.tell()
        return values


def _masks(term: Term) -> tuple[int, int, complex]:
    """Return what a product of X, Y and Z does to |k>: bits that it flips, bits that change its sign, and a factor.

    >>> _masks(Term(1.0, "YZ", (0, 2)))
    (1, 5, 1j)
    """
    flips = signs = 0
    for letter, qubit in zip(term.paulis, term.qubits):
        flips |= (letter != "Z") << qubit
        signs |= (letter != "X") << qubit
    return flips, signs, (1, 1j, -1, -1j)[term.paulis.count("Y") % 4]


def _signs(numbers: np.ndarray) -> np.ndarray:
    """Return 1 for each number with an even count of bits, -1 for the others.

    >>> _signs(np.array([0, 1, 6, 7])).tolist()
    [1.0, -1.0, 1.0, -1.0]
    """
    for shift in (16, 8, 4, 2, 1):
        numbers = numbers ^ numbers >> shift
    return 1.0 - 2.0 * (numbers & 1)


def _root(matrix: np.ndarray) -> np.ndarray:
    values, vectors = np.linalg.eigh(matrix)
    root: np.ndarray = (vectors * np.sqrt(np.maximum(values, 0))) @ vectors.conj().T
    return root


def _calmly(matrix: np.ndarray, work: Any) -> Any:
    return work(matrix) if len(matrix) < _LARGE else in_background(lambda: work(matrix))
