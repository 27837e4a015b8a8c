"""Parameter expressions: folded where constant, otherwise kept for each call.

While the parser builds an expression it is a *node*: a ``float``, a `Token`
(the name of a gate's parameter) or a `Pending` operation that waits for one.
Outside of gate definitions every correct node is a float.

Inside, a node becomes a *recipe*: a float, or a flat tuple in postfix order of
floats, positions of parameters (``int``) and `Operation` values. Nothing here
calls itself, so the depth of an expression is limited by memory only.
"""

from __future__ import annotations

import math
import operator
from typing import Callable, Dict, List, Mapping, NamedTuple, Sequence, Tuple, Union

from lark import Token

from .errors import fail, quoted, shortened

Node = Union[float, Token, "Pending"]
Recipe = Union[float, Tuple[Union[float, int, "Operation"], ...]]

_BINARY: Dict[str, Callable[[float, float], float]] = {
    "+": operator.add,
    "-": operator.sub,
    "*": operator.mul,
    "/": operator.truediv,
    "^": math.pow,
}
_UNARY: Dict[str, Callable[[float], float]] = {
    "+": operator.pos,
    "-": operator.neg,
    "sin": math.sin,
    "cos": math.cos,
    "tan": math.tan,
    "exp": math.exp,
    "ln": math.log,
    "sqrt": math.sqrt,
}


class Operation(NamedTuple):
    """An operator or function, and the place it stands at."""

    function: Callable[..., float]
    n_operands: int
    token: Token

    def apply(self, operands: Sequence[float]) -> float:
        """Return the finite result, or raise `QasmError` at the operator."""
        try:
            value = self.function(*operands)
        except ZeroDivisionError:
            fail("division by zero", self.token)
        except OverflowError:
            fail("number too large", self.token)
        except ValueError:
            listed = " and ".join(f"{operand:g}" for operand in operands)
            fail(f"{self.token!s} of {listed} is not a real number", self.token)
        if not math.isfinite(value):
            fail("number too large", self.token)
        return value


class Pending(NamedTuple):
    """An operation that waits for the value of a parameter."""

    operation: Operation
    operands: Tuple[Node, ...]


def number(token: Token) -> float:
    """Return the value of a number as written."""
    value = float(token)
    if not math.isfinite(value):
        fail("number too large", token)
    return value


def unary(token: Token, operand: Node) -> Node:
    """Return the node of a sign or function in front of `operand`."""
    return _combined(Operation(_UNARY[token], 1, token), (operand,))


def binary(left: Node, token: Token, right: Node) -> Node:
    """Return the node of ``left token right``."""
    return _combined(Operation(_BINARY[token], 2, token), (left, right))


def recipe(node: Node, positions: Mapping[str, int]) -> Recipe:
    """Return the recipe of a node, where `positions` numbers the known parameters.

    Raises `QasmError` at a name that is no parameter.
    """
    if isinstance(node, float):
        return node
    # Taking operands from the right end and turning the whole list around
    # gives postfix order without recursion.
    backwards: List[Union[float, int, Operation]] = []
    waiting: List[Node] = [node]
    while waiting:
        item = waiting.pop()
        if isinstance(item, Pending):
            backwards.append(item.operation)
            waiting.extend(item.operands)
        elif isinstance(item, float):
            backwards.append(item)
        elif item in positions:
            backwards.append(positions[item])
        else:
            known = ", ".join(positions) or "none here"
            fail(f"unknown parameter {quoted(item)}; known: {shortened(known)}", item)
    return tuple(reversed(backwards))


def evaluate(steps: Recipe, params: Sequence[float]) -> float:
    """Return the value of a recipe for the given parameters."""
    if isinstance(steps, float):
        return steps
    stack: List[float] = []
    for step in steps:
        if isinstance(step, float):
            stack.append(step)
        elif isinstance(step, int):
            stack.append(params[step])
        else:
            operands = stack[-step.n_operands :]
            del stack[-step.n_operands :]
            stack.append(step.apply(operands))
    return stack[0]


def _combined(operation: Operation, operands: Tuple[Node, ...]) -> Node:
    if all(isinstance(operand, float) for operand in operands):
        return operation.apply(operands)  # type: ignore[arg-type]
    return Pending(operation, operands)
