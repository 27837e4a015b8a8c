"""Named parameters of a circuit, and what can be calculated from them."""

from __future__ import annotations

import math
import operator
from collections.abc import Callable, Iterator, Mapping
from typing import Any, Union

from ..basics import checks
from .expression_text import text

__all__ = ["Expression", "Parameter"]

#: A number, or something that becomes one when its parameters are known.
Angle = Union[float, "Expression"]

FUNCTIONS: dict[str, Callable[..., float]] = {
    "+": operator.add,
    "-": operator.sub,
    "*": operator.mul,
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
    """An expression without a finite value; `expression` is the part that failed."""

    def __init__(self, message: str, expression: Any = None) -> None:
        super().__init__(message)
        self.expression = expression


class Expression:
    """A number that is known once its parameters are.

    Made by calculating with `Parameter` objects: ``+ - * / **``, signs, and the methods ``sin``, ``cos``, ``tan``,
    ``arcsin``, ``arccos``, ``arctan``, ``exp``, ``log`` and ``sqrt``, which ``numpy.sin(...)`` and so on call too.
    Stands for an angle in every gate of a `Circuit`. Instances never change; two are equal if they were built alike.

    Attributes
    ----------
    operation : str
        A key of `FUNCTIONS`.
    operands : tuple of float and Expression

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

    __slots__ = ("operation", "operands", "place", "_parts", "__weakref__")

    def __init__(self, operation: str, operands: tuple[Angle, ...], place: Any = None) -> None:
        self.operation = operation
        self.operands = operands
        self.place = place  # where a text says it, for messages; no part of the value
        self._parts: tuple[Expression, ...] | None = None

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
        ValueError
            If a parameter has no value, or the result is no finite number.
        """
        known: dict[int, float] = {}
        for part in self.parts():
            known[id(part)] = part.value_from(values, known)
        return known[id(self)]

    def value_from(self, values: Mapping[str, float], known: Mapping[int, float]) -> float:
        """Return the value, given those of the operands by ``id``."""
        operands = [item if type(item) is float else known[id(item)] for item in self.operands]
        return calculated(self.operation, operands, self)

    def substitute(self, values: Mapping[str, float]) -> Angle:
        """Return the expression with the given parameters replaced by numbers.

        >>> x, y = Parameter("x"), Parameter("y")
        >>> (2 * x + y).substitute({"x": 0.25})
        0.5 + y
        """
        known: dict[int, Angle] = {}
        for part in self.parts():
            if isinstance(part, Parameter):
                known[id(part)] = values.get(part.name, part)
                continue
            operands = tuple([item if type(item) is float else known[id(item)] for item in part.operands])
            if all(type(item) is float for item in operands):
                known[id(part)] = calculated(part.operation, operands, part)  # type: ignore[arg-type]
            else:
                known[id(part)] = Expression(part.operation, operands, part.place)
        return known[id(self)]

    def parts(self) -> tuple[Expression, ...]:
        """Return every expression this one is made of, operands before what uses them, each object once."""
        if self._parts is None:
            # A stack of our own: sums may be nested more deeply than Python calls.
            ordered: list[Expression] = []
            seen = set()
            waiting: list[tuple[Expression, bool]] = [(self, False)]
            while waiting:
                item, ready = waiting.pop()
                if ready:
                    ordered.append(item)
                elif id(item) not in seen:
                    seen.add(id(item))
                    waiting.append((item, True))
                    inner = [operand for operand in item.operands if isinstance(operand, Expression)]
                    waiting.extend((operand, False) for operand in reversed(inner))
            self._parts = tuple(ordered)
        return self._parts

    # --- As a Python object ---

    def _key(self) -> tuple[Any, ...]:
        numbers = {id(part): number for number, part in enumerate(self.parts())}
        return tuple(_step(part, numbers) for part in self.parts())

    def __eq__(self, other: object) -> bool:
        if self is other:
            return True
        if not isinstance(other, Expression):
            return NotImplemented
        return _unshared(self) == _unshared(other)

    def __hash__(self) -> int:
        return hash((self.operation, len(self.operands)))

    def __copy__(self) -> Expression:
        return self

    def __deepcopy__(self, memo: Any) -> Expression:
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        # As a flat list; the default would nest as deeply as the expression.
        return (_restored, (self._key(),))

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

    __slots__ = ("name",)

    def __init__(self, name: str, place: Any = None) -> None:
        if not isinstance(name, str):
            raise TypeError(f"name of a parameter must be a text, got {checks.show(name)}")
        name = checks.plain(name)
        if not name:
            raise ValueError("name of a parameter must not be empty")
        super().__init__("parameter", (), place)
        self.name = name

    def value_from(self, values: Mapping[str, float], known: Mapping[int, float]) -> float:
        """Return the value the parameter is given."""
        try:
            return values[self.name]
        except KeyError:
            raise CalculationError(f"parameter {checks.show(self.name)} has no value", self) from None

    def __eq__(self, other: object) -> bool:
        if isinstance(other, Parameter):
            return self.name == other.name
        return False if isinstance(other, Expression) else NotImplemented

    def __hash__(self) -> int:
        return hash(self.name)

    def __reduce__(self) -> tuple[Any, ...]:
        return (Parameter, (self.name,))


def calculated(operation: str, operands: Any, expression: Any = None) -> float:
    """Return the finite result of one operation, or raise `CalculationError` with the reason."""
    try:
        value = FUNCTIONS[operation](*operands)
    except ZeroDivisionError:
        raise CalculationError("division by zero", expression) from None
    except OverflowError:
        raise CalculationError("number too large", expression) from None
    except ValueError:
        listed = " and ".join(f"{operand:g}" for operand in operands)
        raise CalculationError(f"{operation} of {listed} is not a real number", expression) from None
    if value - value != 0.0:  # infinite; no operation makes a NaN of finite numbers
        raise CalculationError("number too large", expression)
    return value


def angle(value: Any, name: str = "angle") -> Angle:
    """Return a finite ``float``, or an expression as it is."""
    return value if isinstance(value, Expression) else checks.angle(value, name)


def free_names(params: tuple[Any, ...]) -> Iterator[str]:
    """Iterate over the names of all parameters in a list of numbers and expressions."""
    for value in params:
        if isinstance(value, Expression):
            yield from value.parameters


def _combined(operation: str, left: Any, right: Any) -> Any:
    operands: list[Angle] = []
    for item in (left, right):
        if not isinstance(item, Expression):
            if getattr(item, "ndim", 0) or not hasattr(item, "__float__"):
                return NotImplemented
            item = checks.real(item, "operand of a parameter")
        operands.append(item)
    return Expression(operation, tuple(operands))


def _step(part: Expression, numbers: Mapping[int, int]) -> Any:
    """Return a part as a name, or an operation with numbers in place of the parts it uses."""
    if isinstance(part, Parameter):
        return part.name
    return (part.operation, *[item if type(item) is float else ("#", numbers[id(item)]) for item in part.operands])


def _unshared(expression: Expression) -> Any:
    # A number for every different part: equal parts get equal numbers whether or not they are one object.
    table: dict[Any, int] = {}
    numbers: dict[int, int] = {}
    for part in expression.parts():
        numbers[id(part)] = table.setdefault(_step(part, numbers), len(table))
    return list(table)


def _restored(steps: tuple[Any, ...]) -> Expression:
    parts: list[Expression] = []
    for step in steps:
        if isinstance(step, str):
            parts.append(Parameter(step))
        else:
            operation, *operands = step
            parts.append(
                Expression(operation, tuple([item if type(item) is float else parts[item[1]] for item in operands]))
            )
    return parts[-1]
