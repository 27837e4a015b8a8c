"""Numbers for a circuit's named parameters, many times over."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence
from itertools import chain
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.words import counted, shortened
from .expression import FUNCTIONS, Expression, Parameter, free_names
from .flow import leaves, open_params, with_params
from .instruction import Instruction, Register
from .parameter_vector import ParameterVector

Function = Callable[[Sequence[float]], list[tuple[float, ...]]]


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
    prepared : dict
        What running has made of circuits bound from it, kept for the next one.
    """

    __slots__ = (
        "registers", "instructions", "parameters", "dependent", "prepared", "_uses", "_function", "_only_copies",
        "__weakref__",
    )  # fmt: skip

    def __init__(self, registers: tuple[Register, ...], instructions: tuple[Instruction, ...]) -> None:
        self.registers = registers
        self.instructions = instructions
        self.parameters = parameters_of(instructions)
        self.dependent = tuple(
            position
            for position, step in enumerate(instructions)
            if (step.params or step.detail is not None) and open_params(step)
        )
        self.prepared: dict[Any, Any] = {}
        self._uses = 0
        self._function: Function | None = None
        self._only_copies = False

    def params(self, values: Sequence[float]) -> list[tuple[float, ...]]:
        """Return the parameters of each dependent instruction, in the order of `dependent`.

        Parameters
        ----------
        values : sequence of float
            For each of `parameters`.

        Raises
        ------
        CalculationError
            If a part of an expression has no finite value.
        """
        self._uses += 1
        if self._uses == 2:  # for one time alone it does not pay
            rows = [open_params(self.instructions[at]) for at in self.dependent]
            self._function = _function(rows, self.parameters)
            self._only_copies = all([type(item) is float or isinstance(item, Parameter) for row in rows for item in row])
        if self._function is not None:
            try:
                found = self._function(values)
            except (ArithmeticError, ValueError):
                pass  # the slow way tells what is wrong
            else:
                total = sum(values) if self._only_copies else sum(chain.from_iterable(found))
                if total - total == 0.0:
                    return found
        named = dict(zip(self.parameters, values))
        rows = [open_params(self.instructions[at]) for at in self.dependent]
        return [
            tuple([item.evaluate(named) if isinstance(item, Expression) else item for item in row]) for row in rows
        ]

    def instructions_with(self, params: Sequence[tuple[float, ...]]) -> list[Instruction]:
        """Return all instructions, with these parameters in the dependent ones."""
        steps = list(self.instructions)
        for position, numbers in zip(self.dependent, params):
            steps[position] = with_params(steps[position], numbers)
        return steps


def parameters_of(instructions: Sequence[Instruction]) -> tuple[str, ...]:
    """Return the names of all open parameters, in order of appearance."""
    found: dict[str, None] = {}
    for step in leaves(instructions):
        for value in step.params:
            if type(value) is not float and isinstance(value, Expression):
                found.update(dict.fromkeys(value.parameters))
    return tuple(found)


def partly_bound(instructions: Sequence[Instruction], values: Mapping[str, float]) -> list[Instruction]:
    """Return the instructions with some of the parameters replaced by numbers."""
    bound: list[Instruction] = []
    for step in instructions:
        params = open_params(step)
        if any(name in values for name in free_names(params)):
            numbers = [item.substitute(values) if isinstance(item, Expression) else item for item in params]
            bound.append(with_params(step, numbers))
        else:
            bound.append(step)
    return bound


def plain_values(known: tuple[str, ...], values: Any, named: dict[str, Any]) -> Sequence[float] | None:
    """Return a finite float for each parameter, in order, where they are given just so; None for all other ways."""
    if named:
        if values is not None or len(named) != len(known):
            return None
        listed: Sequence[Any] = [named.get(name) for name in known]
    elif type(values) is np.ndarray and values.dtype == np.float64 and values.ndim == 1:
        listed = values.tolist()
    elif type(values) is list or type(values) is tuple:
        listed = values
    else:
        return None
    if len(listed) != len(known) or set(map(type, listed)) != {float}:
        return None
    total = sum(listed)
    return listed if total - total == 0.0 else None


def checked_values(known: tuple[str, ...], values: Any, named: dict[str, Any]) -> dict[str, float]:
    """Return the values to bind by name, given as a mapping or a sequence, and by keyword."""
    if values is None:
        pairs: list[tuple[Any, Any]] = []
    elif isinstance(values, Mapping):
        pairs = []
        for key, value in values.items():
            pairs += key.named(value) if isinstance(key, ParameterVector) else [(key, value)]
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


# --- A function of all values, compiled ---

# Of numbers of instructions; a template with more takes the way of `evaluate`.
_MOST_COMPILED = 50_000
# Of operations in one expression, each counted as often as it is written: parts that are shared multiply.
_LONGEST_COMPILED = 100


def _function(rows: Sequence[tuple[Any, ...]], names: tuple[str, ...]) -> Function | None:
    """Return a function from the values to the parameters of all dependent instructions; None if they are too many.

    Its results are those of `evaluate` wherever they are finite. What is not, it may compute where `evaluate` refuses.
    """
    if sum(map(len, rows)) > _MOST_COMPILED:
        return None
    words = {name: f"v{number}" for number, name in enumerate(names)}
    others: list[Expression] = []  # that are left to `evaluate`

    def written(value: Any) -> str:
        if not isinstance(value, Expression):
            return repr(value)
        text = _written(value, words, [_LONGEST_COMPILED])
        if text is None:
            others.append(value)
            text = f"others[{len(others) - 1}].evaluate(dict(zip(names, values)))"
        return text

    lines = ["def function(values):", f"    [{', '.join(words.values())}] = values", "    return ["]
    lines += [f"        ({', '.join(map(written, row))},)," for row in rows]
    space: dict[str, Any] = {"names": names, "others": others, "functions": FUNCTIONS}
    exec("\n".join([*lines, "    ]"]), space)
    function: Function = space["function"]
    return function


def _written(value: Any, words: Mapping[str, str], left: list[int]) -> str | None:
    """Return an expression in Python, or None if it is too long or could hide that a part of it is infinite."""
    if type(value) is float:
        return f"({value!r})" if value - value == 0.0 else None
    if isinstance(value, Parameter):
        return words[value.name]
    left[0] -= max(1, len(value.operands) - 1)
    if left[0] < 0:
        return None
    # Sums and products of what is infinite are infinite or no number; other operations may come back from there.
    is_plain = value.operation in ("+", "*", "neg")
    leaves = value.operands[-1:] if value.operation == "/" else value.operands
    if not is_plain and any(isinstance(item, Expression) and not isinstance(item, Parameter) for item in leaves):
        return None
    operands: list[str] = []
    for item in value.operands:
        text = _written(item, words, left)
        if text is None:
            return None
        operands.append(text)
    if value.operation == "neg":
        return f"(-{operands[0]})"
    if value.operation in ("+", "*", "/"):
        return f"({f' {value.operation} '.join(operands)})"
    return f"functions[{value.operation!r}]({', '.join(operands)})"


def _shown(names: Sequence[str]) -> str:
    return f"one of {checks.show(list(names))}" if names else "which has none"
