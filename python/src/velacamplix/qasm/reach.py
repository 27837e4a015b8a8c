"""How large parameters may be so that a gate's expressions surely have finite values.

A gate's expressions are not calculated when a file is read, and yet a division by zero inside is a mistake to be told
then. For nearly all gates a bound of the results proves that there is none, once for all calls.
"""

from __future__ import annotations

import math
from collections.abc import Sequence

from ..instructions.expression import Expression, Parameter
from .expressions import Params

# Results may be added by those who use them, and still do not overflow.
_LARGEST = 1e290
_TRIED = (1e100, 1e30, 1e9, 1e3)


def reach_of(calls: Sequence[tuple[Params, float]], has_params: bool) -> float:
    """Return the largest tried bound for which all calls of a body are sure to work; -1 if there is none.

    `calls` holds the parameters of each call and the reach of the gate that is called.
    """
    for bound in _TRIED if has_params else (0.0,):
        if all(_bound(value, bound) <= min(reach, _LARGEST) for params, reach in calls for value in params):
            return bound if has_params else math.inf
    return -1.0


def _bound(value: object, bound: float) -> float:
    """Return a number no result exceeds if no parameter exceeds `bound`; infinity if none is known."""
    if not isinstance(value, Expression):
        return abs(value)  # type: ignore[arg-type]
    known: dict[int, float] = {}
    for part in value.parts():
        if isinstance(part, Parameter):
            known[id(part)] = bound
            continue
        sizes = [known[id(item)] if isinstance(item, Expression) else abs(item) for item in part.operands]
        largest = _bound_of(part, sizes)
        if not largest < _LARGEST:
            return math.inf
        known[id(part)] = largest
    return known[id(value)]


def _bound_of(part: Expression, sizes: Sequence[float]) -> float:
    operation = part.operation
    if operation in "+-":
        return sizes[0] + sizes[1]
    if operation == "*":
        return sizes[0] * sizes[1]
    if operation == "neg":
        return sizes[0]
    if operation in ("sin", "cos"):
        return 1.0
    if operation == "atan":
        return 2.0
    if operation == "/" and type(part.operands[1]) is float and sizes[1] > 0.0:
        return sizes[0] / sizes[1]
    return math.inf
