"""Conditions that are known by the values for which they hold."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any

from .condition import AnyCondition, CompoundCondition, Condition

#: All values of so many bits are tried at most.
MOST_TRIED = 12


def every(clbits: Sequence[int], asked: Any) -> range:
    """Return all numbers of some bits.

    Raises
    ------
    ValueError
        If they are too many to be tried; it tells what is asked.
    """
    if len(clbits) > MOST_TRIED:
        raise ValueError(
            f"this cannot be converted, and has {len(clbits)} bits, of which at most {MOST_TRIED} are tried: {asked}"
        )
    return range(2 ** len(clbits))


def tried(clbits: Sequence[int], asked: Any, holds: Callable[[int], Any]) -> AnyCondition | bool:
    """Return the condition that bits, lowest first, spell a number for which `holds`; True or False if it is always that.

    Raises
    ------
    ValueError
        As by `every`.

    >>> print(tried((0, 2), "c[0] == c[2]", lambda number: number in (0, 3)))
    c[0, 2] == "00" or c[0, 2] == "11"
    >>> tried((0, 2), "c[0] >= 0", lambda number: True)
    True
    """
    numbers = every(clbits, asked)
    holding = [number for number in numbers if holds(number)]
    if len(holding) in (0, len(numbers)):
        return bool(holding)
    is_inverse = 2 * len(holding) > len(numbers)
    listed = sorted(set(numbers) - set(holding)) if is_inverse else holding
    parts = tuple([Condition(tuple(clbits), number) for number in listed])
    found: AnyCondition = parts[0] if len(parts) == 1 else CompoundCondition("or", parts)
    return ~found if is_inverse else found
