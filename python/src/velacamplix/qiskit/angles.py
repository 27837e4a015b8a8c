"""Angles: numbers, and expressions of parameters, both ways."""

from __future__ import annotations

import operator
import re
from collections import defaultdict
from collections.abc import Callable, Iterable, Mapping
from functools import reduce
from typing import Any

from qiskit.circuit import Parameter as QiskitParameter
from qiskit.circuit import ParameterExpression
from qiskit.circuit import ParameterVector as QiskitVector

from ..basics import checks
from ..instructions.expression import Angle, Expression, Parameter, calculated
from ..qasm.errors import QasmError
from ..qasm.expressions import ParameterLists
from ..qasm.source import Source
from .errors import NotConverted


def angle(value: Any) -> Angle:
    """Return a number or expression of this package for one of Qiskit's."""
    if not isinstance(value, ParameterExpression):
        return checks.angle(value)
    if not value.parameters:
        return checks.angle(float(value))
    if isinstance(value, QiskitParameter):
        return Parameter(value.name)
    # Under names that any expression may have.
    listed = sorted(value.parameters, key=lambda parameter: str(parameter.name))
    plain = {parameter: QiskitParameter(f"p{number}") for number, parameter in enumerate(listed)}
    names: dict[str, Any] = {plain[parameter].name: Parameter(parameter.name) for parameter in listed}
    text = str(value.subs(plain)).replace("**", "^").replace("log(", "ln(")
    try:
        (found,), _ = ParameterLists(Source(text + ")")).read(0)
    except (QasmError, ValueError):
        raise NotConverted(f"angle cannot be converted: {value}") from None
    # Qiskit's text might round numbers: try whether it says what the angle is.
    results = []
    for start in (0.3, -1.7, 0.017):
        numbers = {parameter: start + 0.1 * number for number, parameter in enumerate(listed)}
        try:
            wanted: Any = value.bind(numbers).numeric()
            got = found
            if isinstance(found, Expression):
                got = found.evaluate({plain[parameter].name: number for parameter, number in numbers.items()})
        except Exception:  # there the expression has no value, such as a root of a negative number
            continue
        # (A complex value is none of ours.)
        if isinstance(wanted, complex) or not abs(got - wanted) <= 1e-12 * max(1.0, abs(wanted)):  # type: ignore[operator, arg-type]
            raise NotConverted(f"angle cannot be converted: {value}")
        results.append(wanted)
    if not results:
        raise NotConverted(f"angle cannot be converted: {value}")
    if results == [0.0, 0.0, 0.0]:  # such as a - a
        return 0.0
    return found.substitute(names) if isinstance(found, Expression) else found


# --- To Qiskit ---

_JOINS: dict[str, Callable[[Any, Any], Any]] = {
    "+": operator.add, "*": operator.mul, "/": operator.truediv, "^": operator.pow,
}  # fmt: skip
_FUNCTIONS: dict[str, Callable[[Any], Any]] = {
    "neg": operator.neg, "sqrt": lambda value: value**0.5, "ln": lambda value: value.log(), "exp": lambda value: value.exp(),
    "sin": lambda value: value.sin(), "cos": lambda value: value.cos(), "tan": lambda value: value.tan(),
    "asin": lambda value: value.arcsin(), "acos": lambda value: value.arccos(), "atan": lambda value: value.arctan(),
}  # fmt: skip


def qiskit_angle(value: Any, values: Mapping[str, Any]) -> Any:
    """Return a number, or Qiskit's expression, in which `values` stand for the parameters."""
    if not isinstance(value, Expression):
        return value
    known: dict[int, Any] = {}
    for part in value.parts():
        if isinstance(part, Parameter):
            known[id(part)] = values[part.name]
            continue
        operands = [item if type(item) is float else known[id(item)] for item in part.operands]
        if not any([isinstance(item, ParameterExpression) for item in operands]):
            known[id(part)] = calculated(part.operation, operands)
        elif part.operation in _FUNCTIONS:
            known[id(part)] = _FUNCTIONS[part.operation](operands[0])
        else:
            known[id(part)] = reduce(_JOINS[part.operation], operands)
    return known[id(value)]


def qiskit_parameters(names: Iterable[str]) -> dict[str, Any]:
    """Return a parameter of Qiskit's for each name; what is called ``v[0]``, ``v[1]`` and so on are those of a vector."""
    places = defaultdict[str, set[int]](set)
    listed = list(names)
    for name in listed:
        found = _ELEMENT.fullmatch(name)
        if found:
            places[found[1]].add(int(found[2]))
    made: dict[str, Any] = {}
    for vector, numbers in places.items():
        if vector not in listed and numbers == set(range(len(numbers))):
            made.update({element.name: element for element in QiskitVector(vector, len(numbers))})
    return {name: made.get(name) or QiskitParameter(name) for name in listed}


_ELEMENT = re.compile(r"(.+)\[(0|[1-9][0-9]{0,8})\]", re.DOTALL)
