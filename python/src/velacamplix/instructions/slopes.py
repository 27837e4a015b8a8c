"""Derivatives of expressions by their parameters."""

from __future__ import annotations

import math
from collections.abc import Callable, Mapping, Sequence

from .expression import CalculationError, Expression, Parameter, calculated

Slopes = Callable[[Sequence[float], float], Sequence[float]]


def _of_product(operands: Sequence[float], value: float) -> list[float]:
    # Products of those before and those behind: an operand may be 0.
    before, behind = [1.0], [1.0]
    for operand in operands[:-1]:
        before.append(before[-1] * operand)
    for operand in reversed(operands[1:]):
        behind.append(behind[-1] * operand)
    return [x * y for x, y in zip(before, reversed(behind))]


def _of_power(operands: Sequence[float], value: float) -> list[float]:
    base, exponent = operands
    by_base = exponent * math.pow(base, exponent - 1) if exponent else 0.0
    # 0 to a positive power stays 0 for every power nearby.
    return [by_base, 0.0 if base == 0 and exponent > 0 else value * math.log(base) if base > 0 else math.nan]


#: From operands and value of an operation to its derivative by each operand.
_SLOPES: dict[str, Slopes] = {
    "+": lambda operands, value: [1.0] * len(operands),
    "*": _of_product,
    "/": lambda operands, value: [1 / operands[1], -value / operands[1]],
    "^": _of_power,
    "neg": lambda operands, value: [-1.0],
    "sin": lambda operands, value: [math.cos(operands[0])],
    "cos": lambda operands, value: [-math.sin(operands[0])],
    "tan": lambda operands, value: [1 + value * value],
    "exp": lambda operands, value: [value],
    "ln": lambda operands, value: [1 / operands[0]],
    "sqrt": lambda operands, value: [0.5 / value],
    "asin": lambda operands, value: [1 / math.sqrt(1 - operands[0] * operands[0])],
    "acos": lambda operands, value: [-1 / math.sqrt(1 - operands[0] * operands[0])],
    "atan": lambda operands, value: [1 / (1 + operands[0] * operands[0])],
}


def slopes(expression: Expression, values: Mapping[str, float]) -> dict[str, float]:
    """Return the derivative of an expression by each of its parameters, at given values of all of them.

    Raises
    ------
    CalculationError
        If the expression has no finite value there, or no finite derivative, as sqrt(x) at 0.

    Examples
    --------
    >>> from velacamplix import Parameter
    >>> x, y = Parameter("x"), Parameter("y")
    >>> slopes(x * x * y - y / 2, {"x": 3.0, "y": 0.5})
    {'x': 3.0, 'y': 8.5}
    """
    known: dict[int, float] = {}
    for part in expression.parts():
        if isinstance(part, Parameter):
            known[id(part)] = values[part.name]
        else:
            known[id(part)] = calculated(part.operation, _operands(part, known), part)
    # From the outermost operation inwards: what the whole changes by with each part.
    weights: dict[int, float] = {id(part): 0.0 for part in expression.parts()}
    weights[id(expression)] = 1.0
    result = dict.fromkeys(expression.parameters, 0.0)
    for part in reversed(expression.parts()):
        weight = weights[id(part)]
        if isinstance(part, Parameter):
            result[part.name] += weight
            continue
        try:
            found = _SLOPES[part.operation](_operands(part, known), known[id(part)])
        except (ArithmeticError, ValueError):
            found = [math.nan] * len(part.operands)
        for item, slope in zip(part.operands, found):
            if isinstance(item, Expression):
                weights[id(item)] += weight * slope
    for name, slope in result.items():
        if not math.isfinite(slope):
            raise CalculationError(f"{expression} has no finite derivative by {name} at {name} = {values[name]:g}")
    return result


def is_linear(expression: Expression) -> bool:
    """Whether the derivatives are the same at all values of the parameters, as far as the form tells.

    >>> from velacamplix import Parameter
    >>> x = Parameter("x")
    >>> is_linear(3 * x / 2 - x), is_linear(x * x), is_linear(x.sin())
    (True, False, False)
    """
    for part in expression.parts():
        open_operands = [isinstance(item, Expression) for item in part.operands]
        if part.operation == "*" and sum(open_operands) > 1:
            return False
        if part.operation == "/" and open_operands[1]:
            return False
        if part.operation not in ("parameter", "+", "neg", "*", "/"):
            return False
    return True


def _operands(part: Expression, known: Mapping[int, float]) -> list[float]:
    return [item if type(item) is float else known[id(item)] for item in part.operands]
