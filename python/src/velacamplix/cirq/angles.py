"""Angles: numbers, and expressions of symbols, both ways."""

from __future__ import annotations

import math
import operator
from collections.abc import Callable
from functools import lru_cache, reduce
from typing import Any

import sympy

from ..basics import checks
from ..instructions.expression import Angle, Expression, Parameter, calculated
from .errors import NotConverted

_FUNCTIONS: dict[Any, str] = {
    sympy.sin: "sin", sympy.cos: "cos", sympy.tan: "tan", sympy.exp: "exp", sympy.log: "ln", sympy.asin: "asin",
    sympy.acos: "acos", sympy.atan: "atan",
}  # fmt: skip


def turn(exponent: Any, half_turns: float = 1.0) -> Angle:
    """Return pi times an exponent of Cirq's, times `half_turns`."""
    if type(exponent) is float or type(exponent) is int:
        angle = math.pi * half_turns * exponent
        if angle - angle == 0.0:
            return angle
    if isinstance(exponent, sympy.Basic):
        return _expression(sympy.pi * (exponent if half_turns == 1.0 else half_turns * exponent))
    return checks.angle(checks.angle(exponent) * math.pi * half_turns)


def radians(value: Any) -> Angle:
    """Return an angle of Cirq's that is in radians."""
    return _expression(value) if isinstance(value, sympy.Basic) else checks.angle(value)


@lru_cache(maxsize=4096)
def _expression(value: Any) -> Angle:
    if value.is_Symbol:
        return Parameter(value.name)
    if value.is_number:
        number = complex(value)
        if number.imag:
            raise NotConverted(f"an angle must be real, got {value}")
        return checks.angle(number.real)
    if value.is_Add:
        return reduce(operator.add, [_expression(part) for part in value.args])
    if value.is_Mul:
        factor, divisor, above, below = 1.0, 1.0, [], []
        for part in value.args:
            if part.is_Rational:
                factor, divisor = factor * float(part.p), divisor * float(part.q)
            elif part.is_number:
                factor *= float(part)
            elif part.is_Pow and part.exp.is_number and part.exp.is_negative:
                below.append(_expression(1 / part))
            else:
                above.append(_expression(part))
        product = reduce(operator.mul, above) if above else 1.0
        product = product if factor == 1.0 else -product if factor == -1.0 else factor * product
        return reduce(operator.truediv, [*([divisor] if divisor != 1.0 else []), *below], product)
    if value.is_Pow and value.base != sympy.E:
        base, exponent = _expression(value.base), _expression(value.exp)
        if exponent == -1.0:
            return 1.0 / base
        return base.sqrt() if exponent == 0.5 and isinstance(base, Expression) else base**exponent
    name = _FUNCTIONS.get(value.func)
    if name is None:
        raise NotConverted(f"an angle of this kind cannot be converted: {value}")
    return Expression(name, (_expression(value.args[0]),))


# --- To Cirq ---

_JOINS: dict[str, Callable[[Any, Any], Any]] = {
    "+": operator.add, "*": operator.mul, "/": operator.truediv, "^": operator.pow,
}  # fmt: skip
_NAMED = {name: function for function, name in _FUNCTIONS.items()}
_NAMED.update(neg=operator.neg, sqrt=sympy.sqrt)


def cirq_angle(value: Any) -> Any:
    """Return a number, or SymPy's expression."""
    if not isinstance(value, Expression):
        return value
    known: dict[int, Any] = {}
    for part in value.parts():
        if isinstance(part, Parameter):
            known[id(part)] = sympy.Symbol(part.name)
            continue
        operands = [item if type(item) is float else known[id(item)] for item in part.operands]
        if all([type(item) is float for item in operands]):
            known[id(part)] = calculated(part.operation, operands)
            continue
        # Whole numbers stay exact in what SymPy makes of them.
        operands = [int(item) if type(item) is float and item.is_integer() else item for item in operands]
        if part.operation in _NAMED:
            known[id(part)] = _NAMED[part.operation](operands[0])
        else:
            known[id(part)] = reduce(_JOINS[part.operation], operands)
    return known[id(value)]


def exponent(value: Any) -> Any:
    """Return an angle as a multiple of pi, a number or SymPy's expression."""
    return cirq_angle(value) / (sympy.pi if isinstance(value, Expression) else math.pi)
