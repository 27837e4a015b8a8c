"""Named parameters of a circuit, and what can be calculated from them."""

from __future__ import annotations

import math
import operator
from collections.abc import Callable, Iterator, Mapping, Sequence
from functools import reduce
from typing import Any, Union

from ..basics import checks
from .expression_text import text

__all__ = ["Expression", "Parameter"]

#: A number, or something that becomes one when its parameters are known.
Angle = Union[float, "Expression"]

#: Operations inside each other. Functions that call themselves follow them, so this is far from Python's own limit.
MOST_NESTED = 100

FUNCTIONS: dict[str, Callable[..., float]] = {
    "+": lambda *operands: reduce(operator.add, operands),
    "*": lambda *operands: reduce(operator.mul, operands),
    "/": operator.truediv,
    "^": math.pow,
    "neg": operator.neg,
    "sin": math.sin,
    "cos": math.cos,
    "tan": math.tan,
    "exp": math.exp,
    "ln": math.log,
    "sqrt": math.sqrt,
    "asin": math.asin,
    "acos": math.acos,
    "atan": math.atan,
}


class CalculationError(ValueError):
    """An expression without a finite value."""


class Expression:
    """A number that is known once its parameters are.

    Made by calculating with `Parameter` objects: ``+ - * / **``, signs, and the methods ``sin``, ``cos``, ``tan``,
    ``arcsin``, ``arccos``, ``arctan``, ``exp``, ``log`` and ``sqrt``, which ``numpy.sin(...)`` and so on call too.
    Stands for an angle in every gate of a `Circuit`. Instances never change; two are equal if they were built alike.

    Sums and products grow flat, ``total + x`` and ``total * x`` to any length. Everything else nests: at most 100
    operations may stand inside each other.

    Attributes
    ----------
    operation : str
        A key of `FUNCTIONS`. A difference is a sum, of which an operand is negative.
    operands : tuple of float and Expression
        Two or more of a sum or product, calculated from the left.
    depth : int
        How many operations stand inside each other, 0 for a parameter.

    Raises
    ------
    ValueError
        If an operation would nest more deeply.

    Examples
    --------
    >>> theta, phi = Parameter("theta"), Parameter("phi")
    >>> angle = 2 * theta - (phi + 1) / 3
    >>> angle
    2*theta - (phi + 1)/3
    >>> angle.parameters
    ('theta', 'phi')
    >>> angle.evaluate({"theta": 0.5, "phi": 2})
    0.0
    """

    __slots__ = ("operation", "operands", "depth", "_parts", "__weakref__")

    def __init__(self, operation: str, operands: tuple[Angle, ...]) -> None:
        self.operation = operation
        self.operands = operands
        self.depth: int = max([item.depth + 1 if isinstance(item, Expression) else 1 for item in operands], default=0)
        self._parts: tuple[Expression, ...] | None = None
        if self.depth > MOST_NESTED:
            raise ValueError(
                f"expression must be nested at most {MOST_NESTED} deep: total + x stays flat where x + total nests, and a "
                "Parameter of its own can stand for a part"
            )

    # --- Calculating ---

    def __add__(self, other: Any) -> Expression:
        return _combined("+", self, other)

    def __radd__(self, other: Any) -> Expression:
        return _combined("+", other, self)

    def __sub__(self, other: Any) -> Expression:
        return _combined("-", self, other)

    def __rsub__(self, other: Any) -> Expression:
        return _combined("-", other, self)

    def __mul__(self, other: Any) -> Expression:
        return _combined("*", self, other)

    def __rmul__(self, other: Any) -> Expression:
        return _combined("*", other, self)

    def __truediv__(self, other: Any) -> Expression:
        return _combined("/", self, other)

    def __rtruediv__(self, other: Any) -> Expression:
        return _combined("/", other, self)

    def __pow__(self, other: Any) -> Expression:
        return _combined("^", self, other)

    def __rpow__(self, other: Any) -> Expression:
        return _combined("^", other, self)

    def __pos__(self) -> Expression:
        return self

    def __neg__(self) -> Angle:
        # Twice is not at all, so that the inverse of an inverse is the circuit itself.
        return self.operands[0] if self.operation == "neg" else Expression("neg", (self,))

    def sin(self) -> Expression:
        """Return the sine."""
        return Expression("sin", (self,))

    def cos(self) -> Expression:
        """Return the cosine."""
        return Expression("cos", (self,))

    def tan(self) -> Expression:
        """Return the tangent."""
        return Expression("tan", (self,))

    def exp(self) -> Expression:
        """Return e to this power."""
        return Expression("exp", (self,))

    def log(self) -> Expression:
        """Return the natural logarithm."""
        return Expression("ln", (self,))

    def sqrt(self) -> Expression:
        """Return the square root."""
        return Expression("sqrt", (self,))

    def arcsin(self) -> Expression:
        """Return the angle of that sine, from -pi/2 to pi/2."""
        return Expression("asin", (self,))

    def arccos(self) -> Expression:
        """Return the angle of that cosine, from 0 to pi."""
        return Expression("acos", (self,))

    def arctan(self) -> Expression:
        """Return the angle of that tangent, between -pi/2 and pi/2."""
        return Expression("atan", (self,))

    # --- Asking ---

    @property
    def parameters(self) -> tuple[str, ...]:
        """Names of the parameters, in order of appearance."""
        return tuple(dict.fromkeys(part.name for part in self.parts() if isinstance(part, Parameter)))

    def evaluate(self, values: Mapping[str, float]) -> float:
        """Return the value for given values of all parameters.

        Raises
        ------
        TypeError
            If `values` is no mapping.
        ValueError
            If a parameter has no value, or the result is no finite number.
        """
        _require_mapping(values)
        known: dict[int, float] = {}
        for part in self.parts():
            if isinstance(part, Parameter):
                if part.name not in values:
                    raise CalculationError(f"parameter {checks.show(part.name)} has no value")
                known[id(part)] = values[part.name]
            else:
                operands = [item if type(item) is float else known[id(item)] for item in part.operands]
                known[id(part)] = calculated(part.operation, operands, part)
        return known[id(self)]

    def substitute(self, values: Mapping[str, float]) -> Angle:
        """Return the expression with the given parameters replaced by numbers. TypeError if `values` is no mapping.

        >>> x, y = Parameter("x"), Parameter("y")
        >>> (2 * x + y).substitute({"x": 0.25})
        0.5 + y
        """
        _require_mapping(values)
        known: dict[int, Angle] = {}
        for part in self.parts():
            if isinstance(part, Parameter):
                known[id(part)] = values.get(part.name, part)
                continue
            operands = tuple([item if type(item) is float else known[id(item)] for item in part.operands])
            n_numbers = next((n for n, item in enumerate(operands) if type(item) is not float), len(operands))
            if n_numbers == len(operands):
                known[id(part)] = calculated(part.operation, operands, part)
                continue
            if n_numbers > 1:  # the beginning of a sum or a product
                operands = calculated(part.operation, operands[:n_numbers], part), *operands[n_numbers:]
            known[id(part)] = Expression(part.operation, operands)
        return known[id(self)]

    def parts(self) -> tuple[Expression, ...]:
        """Return every expression this one is made of, operands before what uses them, each object once."""
        if self._parts is None:
            found: dict[int, Expression] = {}
            self._collect(found)
            self._parts = tuple(found.values())
        return self._parts

    def _collect(self, found: dict[int, Expression]) -> None:
        for item in self.operands:
            if isinstance(item, Expression) and id(item) not in found:
                item._collect(found)
        found[id(self)] = self

    # --- As a Python object ---

    def __eq__(self, other: object) -> bool:
        if self is other:
            return True
        if not isinstance(other, Expression):
            return NotImplemented
        return _structure(self) == _structure(other)

    def __hash__(self) -> int:
        return hash((self.operation, len(self.operands)))

    def __copy__(self) -> Expression:
        return self

    def __deepcopy__(self, memo: Any) -> Expression:
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        return (_restored, (self.operation, *self.operands))

    def __repr__(self) -> str:
        return format(self, "")

    def __format__(self, format_spec: str) -> str:
        return text(self, lambda value: format(value, format_spec or ".12g"))


class Parameter(Expression):
    """A number that gets its value later, under a name.

    Two parameters of one name are the same parameter.

    Parameters
    ----------
    name : str
        Any text but the empty one.

    Raises
    ------
    TypeError, ValueError
        If the name is no text, or empty.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> theta = Parameter("theta")
    >>> circuit = Circuit(1).rx(theta, 0).rz(-theta / 2, 0)
    >>> print(circuit.bind(theta=0.5))
    RX(0.5) 0
    RZ(-0.25) 0
    """

    __slots__ = ("name", "place")

    def __init__(self, name: str, place: Any = None) -> None:
        if not isinstance(name, str):
            raise TypeError(f"name of a parameter must be a text, got {checks.show(name)}")
        name = checks.plain(name)
        if not name:
            raise ValueError("name of a parameter must not be empty")
        super().__init__("parameter", ())
        self.name = name
        self.place = place  # where a text says it, for messages; no part of the value

    def __eq__(self, other: object) -> bool:
        if isinstance(other, Parameter):
            return self.name == other.name
        return False if isinstance(other, Expression) else NotImplemented

    def __hash__(self) -> int:
        return hash(self.name)

    def __reduce__(self) -> tuple[Any, ...]:
        return (Parameter, (self.name,))


def calculated(operation: str, operands: Sequence[Any], part: Expression | None = None) -> float:
    """Return the finite result of one operation, or raise `CalculationError` with the reason and, if given, the part."""
    try:
        value = FUNCTIONS[operation](*operands)
    except ZeroDivisionError:
        reason = "division by zero"
    except OverflowError:
        reason = "number too large"
    except ValueError:
        listed = " and ".join(f"{operand:g}" for operand in operands)
        reason = f"{operation} of {listed} is not a real number"
    else:
        if value - value == 0.0:  # neither infinite nor what became of an infinite part
            return value
        reason = "number too large"
    raise CalculationError(reason if part is None else f"{reason} in {checks.show(part)}")


def joined(operation: str, operands: Sequence[Angle]) -> Expression:
    """Return an operation; of a sum plus something, and of a product times something, one that is longer."""
    first = operands[0]
    if operation in ("+", "*") and isinstance(first, Expression) and first.operation == operation:
        operands = (*first.operands, *operands[1:])
    return Expression(operation, tuple(operands))


def angle(value: Any, name: str = "angle") -> Angle:
    """Return a finite ``float``, or an expression as it is."""
    return value if isinstance(value, Expression) else checks.angle(value, name)


def free_names(params: tuple[Any, ...]) -> Iterator[str]:
    """Iterate over the names of all parameters in a list of numbers and expressions."""
    for value in params:
        if isinstance(value, Expression):
            yield from value.parameters


def _require_mapping(values: Any) -> None:
    # A number is looked for in a range or a text, too, and not always found before the day ends.
    if type(values) is not dict and not isinstance(values, Mapping):
        raise TypeError(f"values must be a mapping from names of parameters to numbers, got {checks.show(values)}")


def _combined(operation: str, left: Any, right: Any) -> Any:
    operands: list[Angle] = []
    for item in (left, right):
        if not isinstance(item, Expression):
            if getattr(item, "ndim", 0) or not hasattr(item, "__float__"):
                return NotImplemented
            item = checks.real(item, "operand of a parameter")
        operands.append(item)
    if operation == "-":
        operation, operands[1] = "+", -operands[1]
    return joined(operation, operands)


def _structure(expression: Expression) -> list[Any]:
    """Return the different parts, each as a name or as an operation on numbers and on places in this list."""
    table: dict[Any, int] = {}
    places: dict[int, int] = {}
    for part in expression.parts():
        step: Any = part.operation, *[item if type(item) is float else ("#", places[id(item)]) for item in part.operands]
        places[id(part)] = table.setdefault(part.name if isinstance(part, Parameter) else step, len(table))
    return list(table)


def _restored(operation: str, *operands: Angle) -> Expression:
    return Expression(operation, operands)
