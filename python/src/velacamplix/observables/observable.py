"""Observables: weighted sums of products of Pauli operators."""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..core import extension
from .text import MOST_QUBITS, parse

__all__ = ["Observable", "Term"]

Number = float | complex


class Term(NamedTuple):
    """A coefficient and a product of Pauli operators: letter ``paulis[i]`` acts on ``qubits[i]``.

    Letters are X, Y and Z; qubits increase.
    """

    coefficient: Number
    paulis: str
    qubits: tuple[int, ...]


class Observable:
    """A weighted sum of products of Pauli operators, plus a constant. Does not change once made.

    Parameters
    ----------
    terms : str, dict, or list of tuples
        A text such as ``"0.5*X0 Y2 - 1.2*Z1 + 3"``, where ``X0`` is X on qubit 0; complex coefficients stand in
        parentheses. Or a dictionary from strings of one letter I, X, Y or Z per qubit to coefficients. Or a list of
        (coefficient, letters, qubits), where letter i acts on qubit i of the tuple's own list.
    order : {"big", "little"}
        Whether the first letter of a dictionary's string belongs to qubit 0 or to the last qubit.

    Raises
    ------
    TypeError, ValueError
        If a coefficient is no finite number, a letter is unknown, a qubit is named twice in a term or is not from 0 to
        65535, or a text is malformed; then the message tells the position.

    Examples
    --------
    >>> energy = Observable("0.5*X0 Y2 - 1.2*Z1 + 3")
    >>> energy.terms
    (Term(coefficient=0.5, paulis='XY', qubits=(0, 2)), Term(coefficient=-1.2, paulis='Z', qubits=(1,)))
    >>> energy.constant, energy.n_qubits
    (3.0, 3)
    >>> energy == Observable({"XIY": 0.5, "IZI": -1.2, "III": 3})
    True
    >>> energy == Observable([(0.5, "YX", [2, 0]), (-1.2, "Z", [1]), (3, "", [])])
    True
    >>> 2 * energy - 1
    Observable('1.0*X0 Y2 - 2.4*Z1 + 5.0')
    """

    # NumPy's numbers leave products and sums to the methods below.
    __array_ufunc__ = None

    def __init__(self, terms: ObservableLike, order: Order = "big") -> None:
        listed = _listed(terms, checks.order(order))
        self._n_qubits = max((qubit + 1 for _, _, qubits in listed for qubit in qubits), default=0)
        terms_and_constants = list(map(_without_identities, listed))
        self._terms = tuple(term for term in terms_and_constants if term.qubits)
        self._constant: Number = _finite(sum(term.coefficient for term in terms_and_constants if not term.qubits))
        self._compiled: extension.Observable | None = None

    @classmethod
    def _of(cls, terms: Sequence[Term], constant: Number, n_qubits: int) -> Observable:
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
        """Whether a coefficient has an imaginary part; expectation values then are complex."""
        return isinstance(self._constant, complex) or any(isinstance(term.coefficient, complex) for term in self._terms)

    def simplify(self) -> Observable:
        """Return an equal observable in which every product stands once, and none with coefficient 0.

        >>> Observable("X0 + Z1 - Z1 + 2*X0").simplify()
        Observable('3.0*X0')
        """
        sums: dict[tuple[str, tuple[int, ...]], Number] = {}
        for coefficient, paulis, qubits in self._terms:
            sums[paulis, qubits] = _plain(sums.get((paulis, qubits), 0.0) + coefficient)
        merged = [Term(coefficient, *product) for product, coefficient in sums.items() if coefficient != 0]
        return self._of(merged, self._constant, self._n_qubits)

    def __str__(self) -> str:
        parts = [(term.coefficient, _product_text(term)) for term in self._terms]
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

    def __eq__(self, other: object) -> bool:
        """Equal sums are equal, whatever the order of their terms."""
        if not isinstance(other, Observable):
            return NotImplemented
        return self._constant == other._constant and self._products() == other._products()

    def __hash__(self) -> int:
        return hash((self._constant, frozenset(self._products().items())))

    def _products(self) -> dict[tuple[str, tuple[int, ...]], Number]:
        return {(term.paulis, term.qubits): term.coefficient for term in self.simplify()._terms}

    # Arithmetic

    def __add__(self, other: Any) -> Observable:
        if isinstance(other, Observable):
            constant = _finite(self._constant + other._constant)
            return self._of(self._terms + other._terms, constant, max(self._n_qubits, other._n_qubits))
        if not _is_number(other):
            return NotImplemented
        return self._of(self._terms, _finite(self._constant + _number(other)), self._n_qubits)

    __radd__ = __add__

    def __neg__(self) -> Observable:
        return self * -1

    def __pos__(self) -> Observable:
        return self

    def __sub__(self, other: Any) -> Observable:
        if not (isinstance(other, Observable) or _is_number(other)):
            return NotImplemented
        return self + -other

    def __rsub__(self, other: Any) -> Observable:
        return (-self).__add__(other)

    def __mul__(self, factor: Any) -> Observable:
        if not _is_number(factor):
            return NotImplemented
        number = _number(factor)
        terms = [term._replace(coefficient=_finite(term.coefficient * number)) for term in self._terms]
        return self._of(terms, _finite(self._constant * number), self._n_qubits)

    __rmul__ = __mul__

    def __truediv__(self, divisor: Any) -> Observable:
        if not _is_number(divisor):
            return NotImplemented
        number = _number(divisor)
        terms = [term._replace(coefficient=_finite(term.coefficient / number)) for term in self._terms]
        return self._of(terms, _finite(self._constant / number), self._n_qubits)

    # For the core

    def compiled(self) -> extension.Observable:
        """Return the core's form, made once; it serves states of both precisions, which have fewer than 64 qubits."""
        if self._compiled is None:
            if self._n_qubits > 64:
                raise ValueError(f"observable must act on qubits below 64, got one on qubit {self._n_qubits - 1}")
            self._compiled = extension.Observable(
                [term.coefficient for term in self._terms],
                [_mask(term, "XY") for term in self._terms],
                [_mask(term, "YZ") for term in self._terms],
                [term.paulis.count("Y") for term in self._terms],
                self._constant,
                self._n_qubits,
            )
        return self._compiled

    def __reduce__(self) -> tuple[Any, ...]:
        return _unpickled, (type(self), tuple(map(tuple, self._terms)), self._constant, self._n_qubits)


ObservableLike = Observable | str | Mapping[str, Number] | Iterable[tuple[Number, str, Sequence[int]]]


def _unpickled(
    kind: type[Observable], terms: Iterable[tuple[Number, str, tuple[int, ...]]], constant: Number, n_qubits: int
) -> Observable:
    return kind._of([Term(*term) for term in terms], constant, n_qubits)


def _listed(terms: Any, order: Order) -> list[tuple[Number, str, tuple[int, ...]]]:
    if isinstance(terms, Observable):
        return [*terms.terms, (terms.constant, "I" * terms.n_qubits, tuple(range(terms.n_qubits)))]
    if isinstance(terms, str):
        return parse(checks.plain(terms))
    if isinstance(terms, Mapping):
        return _from_strings(terms, order)
    if isinstance(terms, (bytes, np.generic)) or not isinstance(terms, Iterable):
        raise TypeError(
            f"observable must be a text, a dictionary, or a list of (coefficient, letters, qubits), "
            f"got {checks.show(terms)}"
        )
    return [_from_tuple(term, f"observable[{i}]") for i, term in enumerate(terms)]


def _from_strings(terms: Mapping[str, Number], order: Order) -> list[tuple[Number, str, tuple[int, ...]]]:
    listed: list[tuple[Number, str, tuple[int, ...]]] = []
    length = None
    for letters, coefficient in terms.items():
        name = f"observable[{checks.show(letters)}]"
        letters = _required_letters(letters, name)
        if len(letters) > MOST_QUBITS:
            raise ValueError(f"{name} must have at most {MOST_QUBITS} letters, got {len(letters)}")
        if length is not None and len(letters) != length:
            raise ValueError(f"{name} must have as many letters as the others, {length}, got {len(letters)}")
        length = len(letters)
        in_order = letters if order == "big" else letters[::-1]
        listed.append((_number(coefficient, name), in_order, tuple(range(length))))
    return listed


def _from_tuple(term: Any, name: str) -> tuple[Number, str, tuple[int, ...]]:
    parts = checks.sequence(term, name, of="(coefficient, letters, qubits)")
    if len(parts) != 3:
        raise ValueError(f"{name} must be (coefficient, letters, qubits), got {checks.show(term)}")
    coefficient, letters, qubits = parts
    letters = _required_letters(letters, f"letters of {name}")
    numbers = checks.qubits(qubits, MOST_QUBITS, f"qubits of {name}", at_least=0)
    if len(letters) != len(numbers):
        raise ValueError(f"{name} must have one letter per qubit, got {checks.show(letters)} on {checks.show(qubits)}")
    return _number(coefficient, f"coefficient of {name}"), letters, numbers


def _required_letters(letters: Any, name: str) -> str:
    if not isinstance(letters, str):
        raise TypeError(f"{name} must be a text of letters I, X, Y and Z, got {checks.show(letters)}")
    letters = checks.plain(letters)
    for position, letter in enumerate(letters):
        if letter not in "IXYZ":
            raise ValueError(
                f"{name} must hold only the letters I, X, Y and Z, got {letter!r} at position {position} of "
                f"{checks.show(letters)}"
            )
    return letters


def _without_identities(term: tuple[Number, str, tuple[int, ...]]) -> Term:
    coefficient, letters, qubits = term
    factors = sorted((qubit, letter) for qubit, letter in zip(qubits, letters) if letter != "I")
    return Term(coefficient, "".join(letter for _, letter in factors), tuple(qubit for qubit, _ in factors))


def _is_number(value: Any) -> bool:
    if isinstance(value, (bool, np.bool_)):
        return False
    return isinstance(value, (int, float, complex, np.number)) or (isinstance(value, np.ndarray) and value.ndim == 0)


def _number(value: Any, name: str = "a coefficient") -> Number:
    if not _is_number(value):
        raise TypeError(f"{name} must be a number, got {checks.show(value)}")
    try:
        number = complex(value)
    except OverflowError:
        raise ValueError(f"{name} must fit a double, got {checks.show(value)}") from None
    return _finite(number, name)


def _finite(number: Number, name: str = "a coefficient") -> Number:
    if not (math.isfinite(number.real) and math.isfinite(number.imag)):
        raise ValueError(f"{name} must be finite, got {_plain(number)}")
    return _plain(number)


def _plain(number: Number) -> Number:
    return complex(number) if number.imag else float(number.real)


def _product_text(term: Term) -> str:
    return " ".join(f"{letter}{qubit}" for letter, qubit in zip(term.paulis, term.qubits))


def _mask(term: Term, letters: str) -> int:
    return sum(1 << qubit for letter, qubit in zip(term.paulis, term.qubits) if letter in letters)
