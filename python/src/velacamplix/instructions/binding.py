"""Numbers for a circuit's named parameters, many times over."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence
from typing import Any

from ..basics import checks
from ..basics.words import counted, shortened
from .expression import FUNCTIONS, Expression, Parameter, calculated, free_names
from .instruction import Instruction, Register

Recipe = Callable[[Mapping[str, float]], float]


class Template:
    """A circuit with open parameters as it was when it was first bound; never changes.

    Circuits bound from it share it, so that whoever plans one of them can use the plan for all.

    Attributes
    ----------
    registers : tuple of Register
    instructions : tuple of Instruction
    parameters : tuple of str
        In order of appearance.
    dependent : tuple of int
        Positions of the instructions with parameters.
    """

    __slots__ = ("registers", "instructions", "parameters", "dependent", "_recipes", "__weakref__")

    def __init__(self, registers: tuple[Register, ...], instructions: tuple[Instruction, ...]) -> None:
        self.registers = registers
        self.instructions = instructions
        self.parameters = parameters_of(instructions)
        self.dependent = tuple(
            position
            for position, step in enumerate(instructions)
            if step.params and any(isinstance(value, Expression) for value in step.params)
        )
        # For each dependent instruction: its parameters, each a number or a function of the values.
        self._recipes = [tuple([_recipe(value) for value in instructions[at].params]) for at in self.dependent]

    def params(self, values: Mapping[str, float]) -> list[tuple[float, ...]]:
        """Return the parameters of each dependent instruction, in the order of `dependent`."""
        return [
            tuple([item(values) if callable(item) else item for item in recipe]) for recipe in self._recipes
        ]

    def instructions_with(self, params: Sequence[tuple[float, ...]]) -> list[Instruction]:
        """Return all instructions, with these parameters in the dependent ones."""
        steps = list(self.instructions)
        for position, numbers in zip(self.dependent, params):
            steps[position] = _with_params(steps[position], numbers)
        return steps


def parameters_of(instructions: Sequence[Instruction]) -> tuple[str, ...]:
    """Return the names of all open parameters, in order of appearance."""
    return tuple(dict.fromkeys(name for step in instructions if step.params for name in free_names(step.params)))


def partly_bound(instructions: Sequence[Instruction], values: Mapping[str, float]) -> list[Instruction]:
    """Return the instructions with some of the parameters replaced by numbers."""
    return [
        _with_params(
            step,
            tuple([item.substitute(values) if isinstance(item, Expression) else item for item in step.params]),
        )
        if any(name in values for name in free_names(step.params))
        else step
        for step in instructions
    ]


def checked_values(known: tuple[str, ...], values: Any, named: dict[str, Any]) -> dict[str, float]:
    """Return the values to bind by name, given as a mapping or a sequence, and by keyword."""
    if values is None:
        pairs: list[tuple[Any, Any]] = []
    elif isinstance(values, Mapping):
        pairs = list(values.items())
    else:
        listed = checks.sequence(values, "values", of="numbers, or a mapping from names to numbers")
        if len(listed) != len(known):
            missing = shortened(", ".join(map(repr, known[len(listed) :])))
            raise ValueError(
                f"values must hold {counted(len(known), 'number')}, one for each parameter, got {len(listed)}: "
                + (f"{missing} would have none" if missing else f"the parameters are {checks.show(list(known))}")
            )
        pairs = list(zip(known, listed))
    result: dict[str, float] = {}
    names = set(known)
    for key, value in pairs + list(named.items()):
        name = key.name if isinstance(key, Parameter) else key
        if not isinstance(name, str):
            raise TypeError(f"values must have names or parameters as keys, got {checks.show(key)}")
        name = checks.plain(name)
        if name not in names:
            raise ValueError(f"values must be for parameters of the circuit, {_shown(known)}; got {checks.show(name)}")
        if name in result:
            raise ValueError(f"values must give each parameter once, got {checks.show(name)} twice")
        plain = type(value) is float and value - value == 0.0
        result[name] = value if plain else checks.real(value, f"value of {checks.show(name)}")
    return result


def _with_params(step: Instruction, params: tuple[Any, ...]) -> Instruction:
    return Instruction(step.name, step.qubits, params, step.controls, step.clbits, step.condition, step.definition)


def _recipe(value: Any) -> Any:
    """Return a number as it is, an expression as a function; the usual short ones get a fast one."""
    if not isinstance(value, Expression):
        return value
    if isinstance(value, Parameter):
        return _named(value.name)
    if len(value.operands) == 2:
        left, right = value.operands
        if isinstance(left, Parameter) and type(right) is float:
            return _with_right(value, left.name, right)
        if isinstance(right, Parameter) and type(left) is float:
            return _with_left(value, left, right.name)
    elif isinstance(value.operands[0], Parameter):
        return _unary(value, value.operands[0].name)
    return value.evaluate


def _named(name: str) -> Recipe:
    return lambda values: values[name]


def _unary(expression: Expression, name: str) -> Recipe:
    if expression.operation == "neg":
        return lambda values: -values[name]
    return lambda values: calculated(expression.operation, (values[name],), expression)


def _with_right(expression: Expression, name: str, number: float) -> Recipe:
    function = FUNCTIONS[expression.operation]

    def value(values: Mapping[str, float]) -> float:
        try:
            result = function(values[name], number)
        except (ArithmeticError, ValueError):
            result = float("nan")  # the slow way below tells what is wrong
        if result - result == 0.0:
            return result
        return calculated(expression.operation, (values[name], number), expression)

    return value


def _with_left(expression: Expression, number: float, name: str) -> Recipe:
    function = FUNCTIONS[expression.operation]

    def value(values: Mapping[str, float]) -> float:
        try:
            result = function(number, values[name])
        except (ArithmeticError, ValueError):
            result = float("nan")  # the slow way below tells what is wrong
        if result - result == 0.0:
            return result
        return calculated(expression.operation, (number, values[name]), expression)

    return value


def _shown(names: Sequence[str]) -> str:
    return f"one of {checks.show(list(names))}" if names else "which has none"
