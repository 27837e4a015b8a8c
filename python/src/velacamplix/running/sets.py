"""Many sets of numbers for the parameters of a circuit."""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.words import shortened
from ..circuit.circuit import Circuit
from ..instructions.binding import checked_values
from ..instructions.expression import Parameter
from ..instructions.parameter_vector import ParameterVector


def sets_of_values(known: Sequence[str], values: Any) -> dict[str, np.ndarray]:
    """Return an array of ``float64`` for each of the parameters `known`, in their order and of one length.

    Parameters
    ----------
    values : mapping
        From names, `Parameter` and `ParameterVector` to arrays, one entry for each set; of a vector one row. Numbers, and of
        a vector single rows, stand in all sets.

    Examples
    --------
    >>> sets = sets_of_values(("a", "b"), {"b": 2, Parameter("a"): [0.5, 1.5]})
    >>> {name: column.tolist() for name, column in sets.items()}
    {'a': [0.5, 1.5], 'b': [2.0, 2.0]}
    """
    if not isinstance(values, Mapping):
        raise TypeError(f"values must be a mapping from names or parameters to arrays, got {checks.show(values)}")
    columns: dict[str, np.ndarray] = {}
    for key, column in _columns(values):
        (name,) = checked_values(tuple(known), {key: 0.0}, {})
        if name in columns:
            raise ValueError(f"values must give each parameter once, got {checks.show(name)} twice")
        columns[name] = column
    missing = [name for name in known if name not in columns]
    if missing:
        listed = shortened(", ".join(map(repr, missing)))
        raise ValueError(f"values must have numbers for every parameter of the circuit, got none for {listed}")
    lengths: dict[int, str] = {}
    for name, column in columns.items():
        if column.ndim:
            lengths.setdefault(len(column), name)
    if not lengths:
        raise ValueError(
            "values must hold at least one array, with a number for each set; one set of numbers is bound: "
            f"run(circuit.bind(...)), got {checks.show(values)}"
        )
    (length, first), *others = lengths.items()
    if others:
        other, second = others[0]
        raise ValueError(
            f"values must have as many numbers for every parameter, got {length} for {checks.show(first)} and {other} for "
            f"{checks.show(second)}"
        )
    sets = {name: np.array(np.broadcast_to(columns[name], length)) for name in known}
    for column in sets.values():
        column.flags.writeable = False
    return sets


def bound(circuit: Circuit, sets: Mapping[str, np.ndarray]) -> list[Circuit]:
    """Return the circuit with each set of numbers."""
    circuits: list[Circuit] = []
    for place, row in enumerate(zip(*[column.tolist() for column in sets.values()])):
        try:
            circuits.append(circuit.bind(row))
        except ValueError as error:
            raise ValueError(f"set {place} of values: {error}") from None
    return circuits


def _columns(values: Mapping[Any, Any]) -> Iterable[tuple[Any, np.ndarray]]:
    """Iterate over single parameters with a number or an array of one dimension."""
    for key, value in values.items():
        if not isinstance(key, ParameterVector):
            name = f"values[{checks.show(key.name if isinstance(key, Parameter) else key)}]"
            yield key, _numbers(value, name, "a number or an array of one dimension", range(2))
            continue
        name = f"values[{checks.show(key.name)}]"
        expected = f"an array of shape (number of sets, {len(key)}) or ({len(key)},)"
        rows = _numbers(value, name, expected, range(1, 3))
        if rows.shape[-1] != len(key):
            raise ValueError(f"{name} must be {expected}, got shape {rows.shape}")
        for place, parameter in enumerate(key):
            yield parameter, rows[..., place]


def _numbers(value: Any, name: str, expected: str, dimensions: range) -> np.ndarray:
    if not isinstance(value, Iterable) or (isinstance(value, np.ndarray) and not value.ndim):
        array = np.array(checks.real(value, name))
    else:
        try:
            array = checks.array(value)
        except ValueError as error:  # rows of different lengths
            why = f"; {error}" if isinstance(value, range) else ""
            raise ValueError(f"{name} must be {expected}, got {checks.show(value)}{why}") from None
        if array.dtype.kind == "O" and array.ndim == 1:  # numbers of other kinds
            array = np.array([checks.real(item, f"{name}[{i}]") for i, item in enumerate(array)])
        if array.dtype.kind not in "iuf":
            raise TypeError(f"{name} must be {expected}, of real numbers, got {checks.show(value)}")
        array = array.astype(np.float64)
    if array.ndim not in dimensions:
        raise ValueError(f"{name} must be {expected}, got shape {array.shape}")
    if not np.isfinite(array).all():
        raise ValueError(f"{name} must hold finite numbers only, got {checks.show(value)}")
    return array
