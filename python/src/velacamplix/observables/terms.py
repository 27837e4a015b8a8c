"""A weight and a product of Pauli operators, as letters and as bits; the numbers that are weights."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks

__all__ = ["Term"]

Number = float | complex

# Coefficient, letters, and the qubit of each letter; the constant has no letters. Unlike in a `Term`, letters may be I.
Listed = tuple[complex, str, tuple[int, ...]]

#: More than any state has: a circuit may have many qubits of which few are used.
MOST_QUBITS = 2**16


class Term(NamedTuple):
    """A coefficient and a product of Pauli operators: letter ``paulis[i]`` acts on ``qubits[i]``.

    Letters are X, Y and Z; qubits increase.

    >>> print(Term(0.5, "XY", (0, 2)))
    0.5*X0 Y2
    """

    coefficient: Number
    paulis: str
    qubits: tuple[int, ...]

    def __str__(self) -> str:
        return f"{self.coefficient!r}*{product_text(self)}" if self.qubits else repr(self.coefficient)


def product_text(term: Term) -> str:
    """Return the product without its weight, as in ``"X0 Y2"``."""
    return " ".join(f"{letter}{qubit}" for letter, qubit in zip(term.paulis, term.qubits))


def without_identities(listed: Listed) -> Term:
    """Return a listed term as a `Term`.

    >>> without_identities((2.0, "XIZ", (5, 1, 0)))
    Term(coefficient=2.0, paulis='ZX', qubits=(0, 5))
    """
    coefficient, letters, qubits = listed
    factors = sorted((qubit, letter) for qubit, letter in zip(qubits, letters) if letter != "I")
    return Term(plain(coefficient), "".join(letter for _, letter in factors), tuple(qubit for qubit, _ in factors))


# A product as two masks over qubits: those it flips (X, Y) and those whose sign it takes (Y, Z).


def mask(term: Term, letters: str) -> int:
    """Return the qubits on which a term has one of the letters.

    >>> mask(Term(1.0, "XYZ", (0, 1, 3)), "YZ")
    10
    """
    return sum(1 << qubit for letter, qubit in zip(term.paulis, term.qubits) if letter in letters)


def of_masks(flips: int, signs: int) -> tuple[str, tuple[int, ...]]:
    """Return the letters and the qubits of a product.

    >>> of_masks(0b0011, 0b1010)
    ('XYZ', (0, 1, 3))
    """
    letters, qubits = [], []
    left = flips | signs
    while left:
        bit = left & -left
        letters.append(("Y" if signs & bit else "X") if flips & bit else "Z")
        qubits.append(bit.bit_length() - 1)
        left ^= bit
    return "".join(letters), tuple(qubits)


# Weights


def is_number(value: Any) -> bool:
    """Return whether a value may be a weight; True and False may not."""
    if isinstance(value, (bool, np.bool_)):
        return False
    return isinstance(value, (int, float, complex, np.number)) or (isinstance(value, np.ndarray) and value.ndim == 0)


def number(value: Any, name: str = "a coefficient") -> Number:
    """Return a checked weight."""
    if not is_number(value):
        raise TypeError(f"{name} must be a number, got {checks.show(value)}")
    try:
        converted = complex(value)
    except OverflowError:
        raise ValueError(f"{name} must fit a double, got {checks.show(value)}") from None
    return finite(converted, name)


def finite(value: Number, name: str = "a coefficient") -> Number:
    """Return what was computed of weights, unless it has left the numbers."""
    if not (math.isfinite(value.real) and math.isfinite(value.imag)):
        raise ValueError(f"{name} must be finite, got {plain(value)}")
    return plain(value)


def plain(value: Number) -> Number:
    """Return a ``float`` where there is no imaginary part."""
    return complex(value) if value.imag else float(value.real)


def added(values: Sequence[Number]) -> Number:
    """Return a sum that is rounded once, so that it does not depend on the order, and what cancels leaves nothing.

    >>> added([0.1, 0.2, -0.1, -0.2])
    0.0
    """
    try:
        real, imag = math.fsum([value.real for value in values]), math.fsum([value.imag for value in values])
    except (OverflowError, ValueError):  # beyond a double, or infinite of both signs
        raise ValueError("a coefficient must be finite, got a sum of numbers too large for a double") from None
    return finite(complex(real, imag))
