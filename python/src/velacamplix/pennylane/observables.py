"""Observables of PennyLane's as sums of products of Pauli operators."""

from __future__ import annotations

import operator
from collections import OrderedDict
from collections.abc import Mapping
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.ops.op_math import Prod, SProd, Sum

from ..machine import memory
from ..observables.observable import Observable
from ..observables.terms import Listed
from .errors import NotConverted

#: A matrix on more qubits has more Pauli products than are worth while.
MOST_OF_A_MATRIX = 8

#: Imaginary parts that are rounding, by the size of what they belong to. Single precision leaves 1e-7.
HERMITIAN_TOLERANCE = 1e-5

_LETTERS: dict[type, str] = {qml.PauliX: "X", qml.PauliY: "Y", qml.PauliZ: "Z"}
_MOST_KEPT = 32
_kept: OrderedDict[Any, tuple[Any, list[Any], Observable]] = OrderedDict()
_single: dict[tuple[str, int], Observable] = {}


def pauli_observable(op: Any, places: Mapping[Any, int]) -> Observable | None:
    """Return the sum that PennyLane knows an operator to be; None if it knows none."""
    letter = _LETTERS.get(type(op))
    if letter is not None:
        place = letter, places[op.wires.labels[0]]
        found = _single.get(place)
        if found is None:
            found = _single[place] = Observable([(1.0, letter, [place[1]])])
            if len(_single) > 1000:
                _single.clear()
        return found
    sentence = op.pauli_rep
    if sentence is None:
        return None
    # PennyLane makes the sum of an operator once. What is kept keeps it, so that no other takes its number.
    key = id(sentence), tuple(places.items())
    known = _kept.get(key)
    weights = list(sentence.values())
    if known is not None and len(known[1]) == len(weights) and all(map(operator.is_, known[1], weights)):
        return known[2]
    listed: list[Listed] = []
    for word, coefficient in sentence.items():
        weight = complex(qml.math.toarray(coefficient)) if not isinstance(coefficient, (int, float)) else coefficient
        listed.append((weight, "".join(word.values()), tuple([places[wire] for wire in word])))
    made = Observable._from_listed(listed)
    _kept[key] = sentence, weights, made
    if len(_kept) > _MOST_KEPT:
        _kept.popitem(last=False)
    return made


def observable(op: Any, places: Mapping[Any, int]) -> Observable:
    """Return an operator as a sum of products of Pauli operators, from its matrix if need be.

    Raises
    ------
    NotConverted
        If a part of it is a matrix on more than `MOST_OF_A_MATRIX` qubits.
    """
    found = pauli_observable(op, places)
    if found is not None:
        return found
    if isinstance(op, SProd):
        return observable(op.base, places) * number(op.scalar)
    if isinstance(op, (Sum, Prod)):
        parts = [observable(part, places) for part in op.operands]
        total = parts[0]
        for part in parts[1:]:
            total = total @ part if isinstance(op, Prod) else total + part
        return total
    qubits = [places[wire] for wire in op.wires.labels]
    if len(qubits) > MOST_OF_A_MATRIX:
        raise NotConverted(
            f"{op.name} on {len(qubits)} wires is no sum of Pauli products here, only up to {MOST_OF_A_MATRIX} wires"
        )
    return Observable.from_matrix(dense(op), qubits, order="big")


def has_pauli_form(op: Any) -> bool:
    """Whether `observable` takes an operator."""
    if op.pauli_rep is not None:
        return True
    if isinstance(op, SProd):
        return has_pauli_form(op.base)
    if isinstance(op, (Sum, Prod)):
        return all([has_pauli_form(part) for part in op.operands])
    return len(op.wires) <= MOST_OF_A_MATRIX and bool(op.has_matrix or op.has_sparse_matrix)


def dense(op: Any) -> np.ndarray:
    """Return the matrix of an operator, whose first wire is the highest bit of a row's number."""
    memory.require_bytes(32 << 2 * len(op.wires), f"the matrix of {op.name} on {len(op.wires)} wires")
    matrix = op.matrix() if op.has_matrix else op.sparse_matrix().toarray()
    return np.asarray(qml.math.toarray(matrix), dtype=np.complex128)


def number(value: Any) -> float | complex:
    """Return the factor of an operator."""
    return complex(value) if np.iscomplexobj(value) else float(value)


def require_hermitian(op: Any, known: Observable) -> None:
    """Refuse an operator, whose sum of Pauli products this is, unless its weights are real but for rounding."""
    weights = [known.constant, *[term.coefficient for term in known.terms]] if known.is_complex else []
    if any([abs(weight.imag) > HERMITIAN_TOLERANCE * abs(weight) for weight in weights]):
        raise not_hermitian(op)


def not_hermitian(op: Any) -> NotConverted:
    """Return what is raised where an operator is not Hermitian, but must be."""
    return NotConverted(f"{op} is not Hermitian, and has no variance; its expectation value can be asked for")
