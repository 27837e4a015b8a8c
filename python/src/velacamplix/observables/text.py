"""Reads observables written as "0.5*X0 Y2 - 1.2*Z1 + 3", as "ZZI - 2*XXI", or with projectors as "|01><01|"."""

from __future__ import annotations

import re

from ..basics import checks
from ..basics.types import Order
from .ketbra import MOST_BITS, ket_bra
from .terms import MOST_QUBITS, Listed

_SPACE = re.compile(r"[ \t\r\n]*")
_NUMBER = re.compile(r"(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?[0-9]+)?[jJ]?")
# What Python writes for a complex number.
_COMPLEX = re.compile(r"\([^()]*\)")
_PAULI = re.compile(r"([XYZI])([0-9]+)")
# One letter per qubit. Not the beginning of something else, such as Z(0).
_LABEL = re.compile(r"[XYZI]+(?![\w(\[])")
_KET_BRA = re.compile(r"\|([01]+)>\s*<([01]+)\|")


def parse(text: str, order: Order = "big") -> list[Listed]:
    """Return the terms of a text, in its order.

    A text is a sum of terms with ``+`` and ``-`` between them. A term is a number, or Pauli factors such as ``X0``, or
    a number and factors, with ``*``, ``@`` or blanks between them. Numbers may be imaginary (``2j``) or, in parentheses,
    complex. In place of factors there may be a label, one letter per qubit such as ``ZZI``, throughout the text and all
    of the same length. ``|01><01|`` is a factor on as many qubits as it has bits, from qubit 0 on; with labels it has
    their length. `order` says whether the first letter and the first bit belong to qubit 0 or to the last qubit.

    Raises
    ------
    ValueError
        With the position of the mistake, counted from 0.
    MemoryError
        If the terms of a projector do not fit.

    Examples
    --------
    >>> parse("0.5*X0 Y2 - Z1 + 3")
    [(0.5, 'XY', (0, 2)), (-1.0, 'Z', (1,)), (3.0, '', ())]
    >>> parse("ZZI - 2*XIX")
    [(1.0, 'ZZI', (0, 1, 2)), (-2.0, 'XIX', (0, 1, 2))]
    >>> parse("2*|1><1| @ Z3")
    [(1.0, 'IZ', (0, 3)), (-1.0, 'ZZ', (0, 3))]
    """
    return _Reader(text, order).sum()


class _Reader:
    def __init__(self, text: str, order: Order) -> None:
        self._text = text
        self._at = 0
        self._is_reversed = order == "little"
        # How the factors so far were written: X0, or a label of so many letters; and the bits of projectors.
        self._has_numbers = False
        self._letters: int | None = None
        self._bits: set[int] = set()

    def sum(self) -> list[Listed]:
        self._skip()
        terms = self._term(self._signs())
        while self._at < len(self._text):
            if not self._is_at_end_of_term():
                raise self._mistake("'+' or '-' before the next term")
            terms += self._term(self._signs())
        return terms

    def _signs(self) -> int:
        # More than one, as in "+ -1.2", is what formatting a negative number leaves.
        sign = 1
        while self._next() in ("+", "-"):
            sign = -sign if self._next() == "-" else sign
            self._move(self._at + 1)
        return sign

    def _term(self, sign: int) -> list[Listed]:
        coefficient = self._coefficient()
        weight = sign * (1.0 if coefficient is None else coefficient)
        # After a number's "*" a factor has to follow; without a number there has to be one as well.
        expected = coefficient is None or self._passes("*")
        if (expected or not self._is_at_end_of_term()) and self._is_at_label():
            return [(weight, *self._label())]
        terms: list[Listed] = [(weight, "", ())]
        taken: tuple[int, ...] = ()
        while expected or not self._is_at_end_of_term():
            factor = self._projector(taken) if self._next() == "|" else self._pauli(taken)
            taken += factor[0][2]
            terms = [(one * two, left + right, taken) for one, left, _ in terms for two, right, _ in factor]
            expected = self._passes("*@")
        return terms

    def _coefficient(self) -> complex | None:
        start = self._at
        for pattern in (_NUMBER, _COMPLEX):
            found = pattern.match(self._text, start)
            if found:
                break
        else:
            return None
        try:
            number = complex(found.group().replace(" ", ""))
        except ValueError:
            raise self._mistake("a complex number in parentheses, as in (1+2j)") from None
        if not abs(number) < float("inf"):
            raise self._mistake("a number that fits a double")
        self._move(found.end())
        return number if number.imag else number.real

    # What may follow a number

    def _is_at_label(self) -> bool:
        if self._next() == "|" or self._has_numbers:
            return False
        return self._letters is not None or _LABEL.match(self._text, self._at) is not None

    def _label(self) -> tuple[str, tuple[int, ...]]:
        found = _LABEL.match(self._text, self._at)
        letters = found.group() if found else ""
        if not letters or self._letters not in (None, len(letters)):
            raise self._mistake(f"a label of {self._letters} letters I, X, Y and Z, one per qubit like the first")
        if self._bits - {len(letters)}:
            raise self._mistake("as many letters in a label as bits in a projector")
        if len(letters) > MOST_QUBITS:
            raise self._mistake(f"at most {MOST_QUBITS} letters in a label")
        self._letters = len(letters)
        self._move(self._at + len(letters))
        if not self._is_at_end_of_term():
            raise self._mistake("'+' or '-' after a label (or a number behind every letter, as in X0 Y2)")
        return letters, self._first_qubits(len(letters))

    def _pauli(self, taken: tuple[int, ...]) -> list[Listed]:
        found = _PAULI.match(self._text, self._at)
        if not found:
            raise self._mistake("a factor X, Y, Z or I with the number of its qubit, as in X0")
        letter, digits = found.groups()
        # Not by way of int(): there may be thousands of digits.
        qubit = int(digits) if len(digits.lstrip("0")) < 6 else MOST_QUBITS
        if qubit >= MOST_QUBITS:
            raise self._mistake(f"a qubit from 0 to {MOST_QUBITS - 1}")
        self._has_numbers = True
        return self._factor([(1.0, letter, (qubit,))], taken, found.end())

    def _projector(self, taken: tuple[int, ...]) -> list[Listed]:
        found = _KET_BRA.match(self._text, self._at)
        if not found or len(found[1]) != len(found[2]):
            raise self._mistake("a projector, bits of the same length on both sides as in |01><01|,")
        length = len(found[1])
        if length > MOST_BITS:
            raise self._mistake(f"at most {MOST_BITS} bits in a projector, which has 2^k Pauli strings,")
        if self._letters not in (None, length):
            raise self._mistake("as many bits in a projector as letters in a label")
        self._bits.add(length)
        return self._factor(ket_bra(found[1], found[2], self._first_qubits(length)), taken, found.end())

    def _factor(self, terms: list[Listed], taken: tuple[int, ...], end: int) -> list[Listed]:
        for qubit in terms[0][2]:
            if qubit in taken:
                raise self._mistake(f"each qubit once in a term, but qubit {qubit} again")
        self._move(end)
        return terms

    def _first_qubits(self, count: int) -> tuple[int, ...]:
        return tuple(range(count))[::-1] if self._is_reversed else tuple(range(count))

    # Moving on

    def _next(self) -> str:
        return self._text[self._at : self._at + 1]

    def _is_at_end_of_term(self) -> bool:
        return self._next() in ("", "+", "-")

    def _passes(self, signs: str) -> bool:
        if not self._next() or self._next() not in signs:
            return False
        self._move(self._at + 1)
        return True

    def _move(self, position: int) -> None:
        self._at = position
        self._skip()

    def _skip(self) -> None:
        found = _SPACE.match(self._text, self._at)
        assert found is not None  # it matches nothing, too
        self._at = found.end()

    def _mistake(self, expected: str) -> ValueError:
        rest = self._text[self._at :]
        came = checks.show(rest[:20]) if rest else "the end"
        return ValueError(
            f"observable must have {expected} at position {self._at}, got {came} in {checks.show(self._text)}"
        )
