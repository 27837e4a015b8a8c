"""What an observable holds: its terms, how it compares and prints, and the core's form of it."""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, Self

import numpy as np

from ..basics import checks
from ..basics.elsewhere import Guiding
from ..basics.types import Order
from ..basics.words import counted
from ..core import extension
from ..views import html
from .reading import from_strings, from_tuple
from .terms import Listed, Number, Term, finite, mask, product_text, without_identities
from .text import parse


class ObservableBase(Guiding):
    """The terms, without a way to compute with them."""

    def __init__(self, terms: ObservableLike, order: Order = "big") -> None:
        if not isinstance(order, str):
            raise TypeError(
                f"order must be 'big' or 'little', got {checks.show(order)}; coefficients stand with their terms, as in "
                '"0.5*ZZ + XX" or {"ZZ": 0.5, "XX": 1}'
            )
        self._set(_listed(terms, checks.order(order)))

    def _set(self, listed: Iterable[Listed]) -> None:
        listed = list(listed)
        self._n_qubits = max((qubit + 1 for _, _, qubits in listed for qubit in qubits), default=0)
        terms_and_constants = list(map(without_identities, listed))
        self._terms = tuple(term for term in terms_and_constants if term.qubits)
        self._constant: Number = finite(sum(term.coefficient for term in terms_and_constants if not term.qubits))
        self._compiled: extension.Observable | None = None

    @classmethod
    def _from_listed(cls, listed: Iterable[Listed]) -> Self:
        made = cls.__new__(cls)
        made._set(listed)
        return made

    @classmethod
    def _of(cls, terms: Sequence[Term], constant: Number, n_qubits: int) -> Self:
        # For parts that have been checked before.
        made = cls.__new__(cls)
        made._terms = tuple(terms)
        made._constant = constant
        made._n_qubits = n_qubits
        made._compiled = None
        return made

    # What it is made of

    @property
    def terms(self) -> tuple[Term, ...]:
        """The terms in the order given, without the constant."""
        return self._terms

    @property
    def constant(self) -> Number:
        """The weight of the identity."""
        return self._constant

    @property
    def n_qubits(self) -> int:
        """How many qubits a state needs at least: 1 + the highest that was named, also with an I."""
        return self._n_qubits

    @property
    def is_complex(self) -> bool:
        """Whether a coefficient has an imaginary part; expectation values then are complex.

        An observable whose coefficients are real is Hermitian.
        """
        for term in self._terms:
            if isinstance(term.coefficient, complex):
                return True
        return isinstance(self._constant, complex)

    def simplify(self) -> Self:
        """Return an equal observable in which every product stands once, and none with coefficient 0.

        ValueError if a coefficient becomes too large for a double.

        >>> Observable("X0 + Z1 - Z1 + 2*X0").simplify()
        Observable('3.0*X0')
        """
        sums: dict[tuple[str, tuple[int, ...]], Number] = {}
        for coefficient, paulis, qubits in self._terms:
            sums[paulis, qubits] = finite(sums.get((paulis, qubits), 0.0) + coefficient)
        merged = [Term(coefficient, *product) for product, coefficient in sums.items() if coefficient != 0]
        return self._of(merged, self._constant, self._n_qubits)

    def __str__(self) -> str:
        parts = [(term.coefficient, product_text(term)) for term in self._terms]
        if self._constant != 0 or not parts:
            parts.append((self._constant, ""))
        text = ""
        for coefficient, product in parts:
            negative = isinstance(coefficient, float) and math.copysign(1, coefficient) < 0
            number = repr(-coefficient if negative else coefficient)
            sign = ("-" if negative else "") if not text else (" - " if negative else " + ")
            text += f"{sign}{number}*{product}" if product else f"{sign}{number}"
        return text

    def __repr__(self) -> str:
        return f"Observable({str(self)!r})"

    def _repr_html_(self) -> str:
        terms = [*self._terms, *([Term(self._constant, "", ())] if self._constant or not self._terms else [])]
        shown = terms[: html.ROWS]
        rows = [(html.code(f"{term.coefficient:.6g}"), html.code(product_text(term) or "1")) for term in shown]
        if len(terms) > len(shown):
            rows.append((f"{len(terms) - len(shown)} others", ""))
        title = f"Observable: {counted(len(terms), 'term')} on {counted(self._n_qubits, 'qubit')}"
        return html.titled(title, html.table(("weight", "product"), rows))

    def __eq__(self, other: object) -> bool:
        """Equal sums are equal, whatever the order of their terms."""
        if not isinstance(other, ObservableBase):
            return NotImplemented
        return self._constant == other._constant and self._products() == other._products()

    def __hash__(self) -> int:
        return hash((self._constant, frozenset(self._products().items())))

    def _products(self) -> dict[tuple[str, tuple[int, ...]], Number]:
        return {(term.paulis, term.qubits): term.coefficient for term in self.simplify()._terms}

    # For the core

    def compiled(self) -> extension.Observable:
        """Return the core's form, made once; it serves states of both precisions, which have fewer than 64 qubits."""
        if self._compiled is None:
            if self._n_qubits > 64:
                raise ValueError(f"observable must act on qubits below 64, got one on qubit {self._n_qubits - 1}")
            self._compiled = extension.Observable(
                [term.coefficient for term in self._terms],
                [mask(term, "XY") for term in self._terms],
                [mask(term, "YZ") for term in self._terms],
                [term.paulis.count("Y") for term in self._terms],
                self._constant,
                self._n_qubits,
            )
        return self._compiled


ObservableLike = ObservableBase | str | Mapping[str, Number] | Iterable[tuple[Number, str, Sequence[int]]]


def _listed(terms: Any, order: Order) -> list[Listed]:
    if isinstance(terms, ObservableBase):
        return [*terms.terms, (terms.constant, "I" * terms.n_qubits, tuple(range(terms.n_qubits)))]
    if isinstance(terms, str):
        return parse(checks.plain(terms), order)
    if isinstance(terms, Mapping):
        return from_strings(terms, order)
    is_array = isinstance(terms, (np.generic, np.ndarray))
    if is_array or isinstance(terms, bytes) or not isinstance(terms, Iterable):
        raise TypeError(
            f"observable must be a text, a dictionary, or a list of (coefficient, letters, qubits), "
            f"got {checks.show(terms)}" + ("; Observable.from_matrix takes a matrix" if is_array else "")
        )
    return [from_tuple(term, f"observable[{i}]") for i, term in enumerate(terms)]
