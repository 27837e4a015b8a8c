"""Expectation values, exact and from shots."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..basics import checks
from ..core import extension
from ..machine import memory
from ..observables.observable import Observable, ObservableLike
from ..programs.drive import heard
from ..programs.progress import ProgressLike, metered
from ..results.estimate import Estimate
from .base import StateBase, required_total


class Expectations(StateBase):
    """Whatever `Observable` takes will do for an observable.

    Values are summed in double precision and coefficients are double, also for a state in single precision.
    """

    def expectation(self, observable: ObservableLike, progress: ProgressLike = None) -> float | complex:
        """Return the exact expectation value; the state does not change.

        Parameters
        ----------
        observable : Observable, str, dict or list
            On at most n qubits.
        progress : None, bool or callable
            As for `run`; terms are counted.

        Returns
        -------
        float
            Or ``complex``, if a coefficient is.

        Raises
        ------
        TypeError, ValueError
            If this is no observable, or one on more qubits.
        MemoryError
            If there is no room for partial sums, 8 MiB at most.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> StateVector(2).x(1).expectation("0.5*Z0 Z1 + 3")
        2.5
        """
        core, checked = self._live(), self._observable(observable)
        self._require_partial_sums(checked)
        with metered(progress, len(checked.terms), "terms") as meter:
            value = extension.expectation(core, checked.compiled(), *heard(meter.within()))
        return value if checked.is_complex else value.real

    def variance(self, observable: ObservableLike, progress: ProgressLike = None) -> float:
        """Return the variance of what measurements of an observable give, <O^2> - <O>^2; the state does not change.

        It is that of the normalised state. The square is formed as a sum of products of Pauli operators, up to half as
        many as there are pairs of terms; what rounding leaves below 0 is 0.

        Parameters
        ----------
        observable : Observable, str, dict or list
            On at most n qubits, with real coefficients.
        progress : None, bool or callable
            As for `run`; terms of the square are counted.

        Raises
        ------
        TypeError, ValueError
            If this is no observable, one on more qubits, or one that is not Hermitian; also ValueError if the
            probabilities add up to 0, to infinity or to nan.
        MemoryError
            If the products of all pairs of terms do not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2).h(0)
        >>> round(state.variance("Z0"), 6), round(state.variance("3*X0 + Z1"), 6), round(state.variance("2*Z0 + Z1"), 6)
        (1.0, 0.0, 4.0)
        """
        checked = centred(self._observable(observable))
        return self._variance(checked, checked @ checked, progress)

    def _variance(self, observable: Observable, square: Observable, progress: ProgressLike = None) -> float:
        total = required_total(float(self._live().probability(0, ())), "variance")

        def mean(of: Observable, progress: ProgressLike = None) -> float:
            # A constant is told as it is, whatever the norm.
            return of.constant.real + self.expectation(of - of.constant, progress).real / total

        value = mean(observable)
        return max(0.0, mean(square, progress) - value * value)

    def term_values(self, observable: ObservableLike, progress: ProgressLike = None) -> np.ndarray:
        """Return coefficient times expectation value of every term.

        Parameters
        ----------
        observable, progress
            As for `expectation`.

        Returns
        -------
        numpy.ndarray, shape (number of terms,)
            In the order of ``observable.terms``, without the constant; ``float64``, or ``complex128`` if a coefficient
            is complex.

        Raises
        ------
        TypeError, ValueError, MemoryError
            As for `expectation`.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> StateVector(2).x(1).term_values("0.5*Z0 + 2*Z1 + 3").tolist()
        [0.5, -2.0]
        """
        core, checked = self._live(), self._observable(observable)
        self._require_partial_sums(checked)
        with metered(progress, len(checked.terms), "terms") as meter:
            values = extension.term_values(core, checked.compiled(), *heard(meter.within()))
        return _values(values, checked)

    def estimate(
        self, observable: ObservableLike, shots: int, per_term: bool = False, progress: ProgressLike = None
    ) -> Estimate:
        """Estimate an expectation value from shots, as a quantum computer would.

        Every term has its own shots: its qubits are turned into its basis, measured `shots` times, and turned back.
        Rounding aside the state does not change. Shots are those of the normalised state, as for `sample`.

        Parameters
        ----------
        observable : Observable, str, dict or list
            On at most n qubits.
        shots : int
            For every term, at least 1.
        per_term : bool
            True gives coefficient times mean and the standard error of every term in place of the sum.
        progress : None, bool or callable
            As for `run`; the shots of all terms are counted.

        Returns
        -------
        mean, standard_error : float, or numpy.ndarray of shape (number of terms,)
            A named tuple. The sum includes the constant, the terms do not. One shot has the standard error 0. Means
            are complex if a coefficient is; an error then is its magnitude.

        Raises
        ------
        TypeError, ValueError
            As for `expectation`, or if `shots` is no integer of at least 1; also ValueError if the state's probabilities
            add up to 0, to infinity or to nan. No random number is then used up.
        KeyboardInterrupt
            After Ctrl-C. The state has then been turned back, and no random number is used up.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2, seed=1).h(0)
        >>> state.estimate("2*X0 - Z1 + 1", shots=100)
        Estimate(mean=2.0, standard_error=0.0)
        >>> mean, error = state.estimate("Z0", shots=10000)
        >>> abs(mean) < 5 * error, round(error, 4)
        (True, 0.01)
        """
        core, checked = self._live(), self._observable(observable)
        count, separate = checks.shots(shots, minimum=1), checks.flag(per_term, "per_term")
        longest = max((len(term.qubits) for term in checked.terms), default=0)
        memory.require_bytes(8 << longest, f"the table of outcomes of a term on {longest} qubits")

        terms = [(term.coefficient, term.paulis, term.qubits) for term in checked.terms]
        with metered(progress, count * len(terms), "shots") as meter:
            means, errors = extension.estimate(core, terms, count, *heard(meter.within()))
        values, deviations = _values(means, checked), np.abs(errors).astype(np.float64)
        if separate:
            return Estimate(values, deviations)
        # Terms are drawn independently, so the squares of their errors add up.
        return Estimate(
            (values.sum() + checked.constant).item(), float(np.sqrt((deviations * deviations).sum()))
        )

    def _require_partial_sums(self, observable: Observable) -> None:
        # One number for every term and every section of 2^13 amplitudes, in batches of at most 8 MiB.
        needed = 8 * len(observable.terms) << max(0, self._n_qubits - 13)
        memory.require_bytes(min(needed, 8 << 20), "the partial sums of an expectation value")

    def _observable(self, observable: Any) -> Observable:
        checked = observable if isinstance(observable, Observable) else Observable(observable)
        if checked.n_qubits > self._n_qubits:
            raise ValueError(
                f"observable must act on at most {self._n_qubits} qubit(s), those of the state, got one on "
                f"{checked.n_qubits}"
            )
        return checked


def _values(values: np.ndarray, observable: Observable) -> np.ndarray:
    if any(isinstance(term.coefficient, complex) for term in observable.terms):
        return values.astype(np.complex128)
    return values.real.astype(np.float64)


def centred(observable: Observable) -> Observable:
    """Return a Hermitian observable without its constant, which only rounding would find in a variance.

    >>> centred(Observable("2*Z0 + 5"))
    Observable('2.0*Z0')
    """
    if observable.is_complex:
        raise ValueError("observable must be Hermitian to have a variance, got one with complex coefficients")
    return observable - observable.constant
