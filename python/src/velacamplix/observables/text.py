"""Reads observables written as "0.5*X0 Y2 - 1.2*Z1 + 3"."""

from __future__ import annotations

import re

from ..basics import checks

# Coefficient, letters, and the qubit of each letter. The constant has no letters.
ParsedTerm = tuple[complex, str, tuple[int, ...]]

#: More than any state has: a circuit may have many qubits of which few are used.
MOST_QUBITS = 2**16

_SPACE = re.compile(r"[ \t\r\n]*")
_NUMBER = re.compile(r"(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?[0-9]+)?[jJ]?")
# What Python writes for a complex number.
_COMPLEX = re.compile(r"\([^()]*\)")
_PAULI = re.compile(r"([XYZI])([0-9]+)")


def parse(text: str) -> list[ParsedTerm]:
    """Return the terms of a text, in its order.

    A text is a sum of terms with ``+`` and ``-`` between them. A term is a number, or Pauli factors such as ``X0``, or
    a number and factors, with ``*`` or blanks between them. Numbers may be imaginary (``2j``) or, in parentheses,
    complex.

    Raises
    ------
    ValueError
        With the position of the mistake, counted from 0.

    Examples
    --------
    >>> parse("0.5*X0 Y2 - Z1 + 3")
    [(0.5, 'XY', (0, 2)), (-1.0, 'Z', (1,)), (3.0, '', ())]
    """
    return _Reader(text).sum()


class _Reader:
    def __init__(self, text: str) -> None:
        self._text = text
        self._at = 0

    def sum(self) -> list[ParsedTerm]:
        self._skip()
        terms = [self._term(self._signs())]
        while self._at < len(self._text):
            if self._text[self._at] not in "+-":
                raise self._mistake("'+' or '-' before the next term")
            terms.append(self._term(self._signs()))
        return terms

    def _signs(self) -> int:
        # More than one, as in "+ -1.2", is what formatting a negative number leaves.
        sign = 1
        while self._at < len(self._text) and self._text[self._at] in "+-":
            sign = -sign if self._text[self._at] == "-" else sign
            self._move(self._at + 1)
        return sign

    def _term(self, sign: int) -> ParsedTerm:
        coefficient = self._coefficient()
        letters: list[str] = []
        qubits: list[int] = []
        # After a number's "*" a factor has to follow; without a number there has to be one as well.
        expected = coefficient is None or self._star()
        while expected or self._peeks_pauli():
            letter, qubit = self._pauli(qubits)
            letters.append(letter)
            qubits.append(qubit)
            expected = self._star()
        return sign * (1.0 if coefficient is None else coefficient), "".join(letters), tuple(qubits)

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

    def _peeks_pauli(self) -> bool:
        return self._at < len(self._text) and self._text[self._at] not in "+-"

    def _pauli(self, earlier: list[int]) -> tuple[str, int]:
        found = _PAULI.match(self._text, self._at)
        if not found:
            raise self._mistake("a factor X, Y, Z or I with the number of its qubit, as in X0")
        letter, digits = found.groups()
        # Not by way of int(): there may be thousands of digits.
        qubit = int(digits) if len(digits.lstrip("0")) < 6 else MOST_QUBITS
        if qubit >= MOST_QUBITS:
            raise self._mistake(f"a qubit from 0 to {MOST_QUBITS - 1}")
        if qubit in earlier:
            raise self._mistake(f"each qubit once in a term, but qubit {qubit} again")
        self._move(found.end())
        return letter, qubit

    def _star(self) -> bool:
        if self._text[self._at : self._at + 1] != "*":
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
