"""Reads observables that come as dictionaries or as lists of tuples."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Any

from ..basics import checks
from ..basics.types import Order
from .terms import MOST_QUBITS, Listed, Number, number

_LABELS = '; labels come in one text, "0.5*ZZ + XX", or in a dictionary, {"ZZ": 0.5, "XX": 1}'


def from_strings(terms: Mapping[str, Number], order: Order) -> list[Listed]:
    """Return the terms of a dictionary from strings of one letter per qubit to coefficients."""
    listed: list[Listed] = []
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
        listed.append((number(coefficient, name), in_order, tuple(range(length))))
    return listed


def from_tuple(term: Any, name: str) -> Listed:
    """Return a term given as (coefficient, letters, qubits)."""
    expected = f"{name} must be (coefficient, letters, qubits)"
    if isinstance(term, str) or not isinstance(term, Iterable):
        raise TypeError(f"{expected}, got {checks.show(term)}{_LABELS if isinstance(term, str) else ''}")
    parts = checks.sequence(term, name, of="(coefficient, letters, qubits)")
    is_labelled = bool(parts) and isinstance(parts[0], str) and not parts[0].strip("IXYZ")
    if len(parts) != 3 or is_labelled:
        raise ValueError(f"{expected}, got {checks.show(term)}{_LABELS if is_labelled else ''}")
    coefficient, letters, qubits = parts
    letters = _required_letters(letters, f"letters of {name}")
    numbers = checks.qubits(qubits, MOST_QUBITS, f"qubits of {name}", at_least=0)
    if len(letters) != len(numbers):
        raise ValueError(f"{name} must have one letter per qubit, got {checks.show(letters)} on {checks.show(qubits)}")
    return number(coefficient, f"coefficient of {name}"), letters, numbers


def _required_letters(letters: Any, name: str) -> str:
    if not isinstance(letters, str):
        raise TypeError(f"{name} must be a text of letters I, X, Y and Z, got {checks.show(letters)}")
    letters = checks.plain(letters)
    for position, letter in enumerate(letters):
        if letter not in "IXYZ":
            raise ValueError(
                f"{name} must hold only the letters I, X, Y and Z, got {letter!r} at position {position} of "
                f"{checks.show(letters)}"
                + ('; with numbers of qubits it is a text, as in "0.5*Z0 Z3"' if letter.isdigit() else "")
            )
    return letters
