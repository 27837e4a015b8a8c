"""Expressions of parameters as people write them."""

from __future__ import annotations

import math
from collections.abc import Callable, Mapping
from typing import Any

__all__ = ["text"]

_MOST_TEXT = 100_000
_MOST_WRITTEN = 10_000_000
_RANK = {"+": 1, "neg": 2, "*": 2, "/": 2, "^": 4}
_ATOM = 5


def text(
    expression: Any,
    number: Callable[[float], str] = "{:.12g}".format,
    compact: bool = False,
    names: Mapping[str, str] | None = None,
    words: Mapping[str, str] = {},
) -> str:
    """Return an `Expression` as people (and OpenQASM 2) write it.

    `names`, if given, holds what parameters are called in the text, `words` what operations are called that have another
    name there. Without `names`, an expression that is too long to read becomes a note of its size.
    """
    try:
        return _Text(number, compact, names, words).of(expression)[0]
    except _TooLong:
        n_operations = len(expression.parts())
        if names is not None:
            raise ValueError(f"expression must be shorter to be written out, got {n_operations} operations") from None
        return f"<expression of {n_operations} operations>"


class _TooLong(Exception):
    """What is shared inside of an expression may make a text longer than any memory."""


class _Text:
    def __init__(self, number: Callable[[float], str], compact: bool, names: Mapping[str, str] | None, words: Mapping[str, str]) -> None:
        self._number, self._names, self._words = number, names, words
        self._blank = "" if compact else " "
        self._left = _MOST_TEXT if names is None else _MOST_WRITTEN

    def of(self, value: Any) -> tuple[str, int]:
        """Return the text, and how tightly it holds together."""
        if isinstance(value, float):
            return self._counted(self._number(value)), _ATOM if math.copysign(1, value) > 0 else 2
        operation, operands = value.operation, value.operands
        if operation == "parameter":
            return self._counted(value.name if self._names is None else self._names[value.name]), _ATOM
        rank, word = _RANK.get(operation), self._words.get(operation, operation)
        if rank is None:
            return f"{word}({self.of(operands[0])[0]})", _ATOM
        if operation == "neg":
            return "-" + self._enclosed(operands[0], 4), rank
        if operation == "+":
            return self._enclosed(operands[0], rank) + "".join([self._added(item) for item in operands[1:]]), rank
        # An operand of the same rank needs no parentheses on the side from which operations group.
        pieces = [self._enclosed(operands[0], rank + (operation == "^"))]
        # A sign right after an operator would be correct but hard to read.
        pieces += [self._enclosed(item, _ATOM if operation == "^" else rank + 1) for item in operands[1:]]
        return word.join(pieces), rank

    def _added(self, item: Any) -> str:
        is_less = math.copysign(1, item) < 0 if isinstance(item, float) else item.operation == "neg"
        return f"{self._blank}{'-' if is_less else '+'}{self._blank}{self._enclosed(-item if is_less else item, 2)}"

    def _enclosed(self, item: Any, least: int) -> str:
        words, rank = self.of(item)
        return words if rank >= least else f"({words})"

    def _counted(self, words: str) -> str:
        self._left -= len(words)
        if self._left < 0:
            raise _TooLong
        return words
