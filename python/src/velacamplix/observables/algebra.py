"""Sums, multiples and products of observables."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Self

from ..basics import checks
from ..machine import memory
from .base import ObservableBase
from .terms import Number, Term, added, finite, is_number, mask, number, of_masks, plain

# A number of Python's in a list, while products are collected, and what a term takes.
_BYTES_PER_PRODUCT, _BYTES_PER_TERM = 48, 600

_POWERS_OF_I = (1, 1j, -1, -1j)


class Algebra(ObservableBase):
    """Arithmetic with numbers and other observables."""

    # NumPy's numbers leave products and sums to the methods below.
    __array_ufunc__ = None

    def __add__(self, other: Any) -> Self:
        if isinstance(other, ObservableBase):
            constant = finite(self._constant + other._constant)
            return self._of(self._terms + other._terms, constant, max(self._n_qubits, other._n_qubits))
        if not is_number(other):
            return NotImplemented
        return self._of(self._terms, finite(self._constant + number(other)), self._n_qubits)

    __radd__ = __add__

    def __neg__(self) -> Self:
        return self._times(-1.0)

    def __pos__(self) -> Self:
        return self

    def __sub__(self, other: Any) -> Self:
        if not (isinstance(other, Algebra) or is_number(other)):
            return NotImplemented
        return self + -other

    def __rsub__(self, other: Any) -> Self:
        return (-self).__add__(other)

    def __mul__(self, factor: Any) -> Self:
        if isinstance(factor, ObservableBase):
            return self @ factor
        return self._times(number(factor)) if is_number(factor) else NotImplemented

    __rmul__ = __mul__

    def __matmul__(self, other: Any) -> Self:
        """Return the product, this operator left of the other, every string once."""
        if not isinstance(other, ObservableBase):
            return NotImplemented
        return self._of(*_product(self, other, False), max(self._n_qubits, other._n_qubits))

    def __truediv__(self, divisor: Any) -> Self:
        if not is_number(divisor):
            return NotImplemented
        by = number(divisor)
        terms = [term._replace(coefficient=finite(term.coefficient / by)) for term in self._terms]
        return self._of(terms, finite(self._constant / by), self._n_qubits)

    def _times(self, factor: Number) -> Self:
        terms = [term._replace(coefficient=finite(term.coefficient * factor)) for term in self._terms]
        return self._of(terms, finite(self._constant * factor), self._n_qubits)

    def commutator(self, other: ObservableBase) -> Self:
        """Return the commutator, ``self @ other - other @ self``.

        That of two Hermitian observables is anti-Hermitian: its coefficients are imaginary, and ``1j`` times it is
        Hermitian again. It is 0 exactly if they commute.

        Parameters
        ----------
        other : Observable

        Raises
        ------
        TypeError
            If `other` is none.
        ValueError
            If a coefficient becomes larger than a double.
        MemoryError
            If the products of all pairs of terms do not fit.

        Examples
        --------
        >>> Observable("X0").commutator(Observable("Y0"))
        Observable('2j*Z0')
        >>> Observable("X0 X1").commutator(Observable("Z0 Z1"))
        Observable('0.0')
        """
        if not isinstance(other, ObservableBase):
            raise TypeError(f"other must be an Observable, got {checks.show(other)}; Observable(...) makes one of a text")
        terms, constant = _product(self, other, True)
        return self._of(terms, constant, max(self._n_qubits, other._n_qubits))._times(2.0)


def _product(one: ObservableBase, two: ObservableBase, only_anticommuting: bool) -> tuple[list[Term], Number]:
    """Return the terms and the constant of a product, or of those pairs alone that change sign when exchanged."""
    left, right = _strings(one), _strings(two)
    pairs = len(left) * len(right)
    memory.require_bytes(_BYTES_PER_PRODUCT * pairs, f"the product of observables with {pairs} pairs of terms")
    found: dict[tuple[int, int], list[complex]] = {}
    for flips, signs, weight in left:
        for other_flips, other_signs, other_weight in right:
            # The signs go past the other's flips.
            passes = (signs & other_flips).bit_count()
            if only_anticommuting and not (passes + (flips & other_signs).bit_count()) & 1:
                continue
            value = weight * other_weight
            found.setdefault((flips ^ other_flips, signs ^ other_signs), []).append(-value if passes & 1 else value)
    memory.require_bytes(_BYTES_PER_TERM * len(found), f"an observable of {len(found)} terms")
    terms: list[Term] = []
    constant: Number = 0.0
    for (flips, signs), values in found.items():
        total = added(values) if len(values) > 1 else finite(values[0])
        coefficient = plain(total * _POWERS_OF_I[-(flips & signs).bit_count() & 3])
        if not flips | signs:
            constant = coefficient
        elif coefficient:
            terms.append(Term(coefficient, *of_masks(flips, signs)))
    return terms, constant


def _strings(observable: ObservableBase) -> Sequence[tuple[int, int, complex]]:
    """Return masks and weights of products written as X on the flips times Z on the signs: Y is i X Z."""
    strings = []
    for term in (*observable._terms, Term(observable._constant, "", ())):
        if term.coefficient:
            turn = _POWERS_OF_I[term.paulis.count("Y") & 3]
            strings.append((mask(term, "XY"), mask(term, "YZ"), complex(term.coefficient) * turn))
    return strings
