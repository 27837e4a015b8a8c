"""Expressions of parameters as people write them."""

from __future__ import annotations

import math
from collections import Counter
from collections.abc import Callable, Mapping
from typing import Any

__all__ = ["text"]

_MOST_TEXT = 100_000
_MOST_WRITTEN = 10_000_000
_RANK = {"+": 1, "-": 1, "neg": 2, "*": 2, "/": 2, "^": 4}
_ATOM = 5


def text(
    expression: Any,
    number: Callable[[float], str] = "{:.12g}".format,
    compact: bool = False,
    names: Mapping[str, str] | None = None,
) -> str:
    """Return an `Expression` as people (and OpenQASM 2) write it.

    `names`, if given, holds what parameters are called in the text. Without it, an expression that is too long to read
    becomes a note of its size.
    """
    texts: dict[int, tuple[str, int]] = {}
    parts = expression.parts()
    # How often each part is still needed: the texts of a long sum are as long as the sum so far.
    uses = Counter(id(item) for part in parts for item in part.operands if not isinstance(item, float))
    for part in parts:
        if part.operation == "parameter":
            texts[id(part)] = part.name if names is None else names[part.name], _ATOM
            continue
        pieces = [
            (number(item), _ATOM if math.copysign(1, item) > 0 else 2) if isinstance(item, float) else texts[id(item)]
            for item in part.operands
        ]
        length = sum(len(piece) for piece, _ in pieces)
        if length > _MOST_WRITTEN:
            raise ValueError(f"expression must be shorter to be written out, got {len(expression.parts())} operations")
        if length > _MOST_TEXT and names is None:
            return f"<expression of {len(expression.parts())} operations>"
        texts[id(part)] = _joined(part.operation, pieces, compact)
        for item in part.operands:
            if not isinstance(item, float):
                uses[id(item)] -= 1
                if not uses[id(item)]:
                    del texts[id(item)]
    return texts[id(expression)][0]


def _joined(operation: str, pieces: list[tuple[str, int]], compact: bool) -> tuple[str, int]:
    if operation not in _RANK:
        return f"{operation}({pieces[0][0]})", _ATOM
    rank = _RANK[operation]
    if operation == "neg":
        return "-" + _enclosed(pieces[0], 4), rank
    # An operand of the same rank needs no parentheses on the side from which operations group.
    left = _enclosed(pieces[0], rank + (operation == "^"))
    # A sign right after an operator would be correct but hard to read.
    right = _enclosed(pieces[1], _ATOM if operation == "^" else rank + 1)
    blank = " " if rank == 1 and not compact else ""
    return left + blank + operation + blank + right, rank


def _enclosed(piece: tuple[str, int], least: int) -> str:
    words, rank = piece
    return words if rank >= least else f"({words})"
