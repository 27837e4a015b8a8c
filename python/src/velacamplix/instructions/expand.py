"""From gates of all kinds to those the library has."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping
from itertools import chain
from typing import Any

from ..basics import checks
from .definition import size
from .expression import CalculationError, Expression
from .flow import bodies_of, changed
from .gates import GATES, Params, Qubits
from .instruction import Instruction
from .open_controls import around, joined

Builds = Mapping[str, Callable[[Params, Qubits], tuple[Instruction, ...]]]

_BUILDS = {name: gate.build for name, gate in GATES.items() if gate.build is not None}


def _one_gate(of: Callable[[Params], tuple[str, Params]]) -> Callable[[Params, Qubits], tuple[Instruction, ...]]:
    def build(params: Params, qubits: Qubits) -> tuple[Instruction, ...]:
        name, own = of(params)
        return (Instruction(name, qubits, own),)

    return build


# Programs have some gates more than the state vector.
_BUILDS_IN_PROGRAMS = {
    name: gate.build if gate.in_programs is None else _one_gate(gate.in_programs)
    for name, gate in GATES.items()
    if gate.build is not None
}

#: One instruction that would become more than this is refused: ten nested definitions are enough to describe more
#: than any memory holds.
MOST_STEPS = 10_000_000


def basic(step: Instruction, in_programs: bool = False) -> Iterator[Instruction]:
    """Iterate over what an instruction becomes in the library's own gates.

    All parameters of `step` must be numbers. How many instructions come, and which, does not depend on them. With
    `in_programs` they may be gates that only programs have, SX, RXX, RYY, RZZ and U. An instruction with bodies becomes
    one whose bodies are in such gates.

    Raises
    ------
    ValueError
        If there are more than `MOST_STEPS`, or a definition has no finite value for these parameters.
    """
    if step.control_values:
        return chain.from_iterable([basic(part, in_programs) for part in around(step)])
    if step.definition is None:
        builds = _BUILDS_IN_PROGRAMS if in_programs else _BUILDS
        if step.name in builds:
            return iter(_built(step, builds))
        if step.detail is not None and bodies_of(step):
            return iter((changed(step, lambda inner: basic(inner, in_programs)),))
        return iter((step,))
    if size(step) > MOST_STEPS:
        raise ValueError(f"gate {checks.show(step.name)} must expand to at most {MOST_STEPS} steps, got more")
    return _expanded(step, _BUILDS_IN_PROGRAMS if in_programs else _BUILDS)


def with_angles(step: Instruction) -> Iterator[Instruction]:
    """Iterate over what an instruction becomes in gates of programs whose parameters are angles, or expressions of them.

    As `basic` with `in_programs`, but a gate with an open parameter that would become a matrix becomes the gates of its
    `block`: each of RX, RY, RZ, PH, U, RXX, RYY and RZZ, or without a parameter.

    Raises
    ------
    ValueError
        As for `basic`; also if expressions of definitions inside each other nest too deeply.

    Examples
    --------
    >>> from velacamplix import Parameter
    >>> print(*with_angles(Instruction("rzx", (0, 1), (2 * Parameter("x"),))), sep=", ")
    H 1, RZZ(2*x) 0,1, H 1
    """
    if not any(isinstance(value, Expression) for value in step.params):
        yield from basic(step, in_programs=True)
    elif step.control_values:
        for part in around(step):
            yield from with_angles(part)
    elif step.definition is not None:
        if size(step) > MOST_STEPS:
            raise ValueError(f"gate {checks.show(step.name)} must expand to at most {MOST_STEPS} steps, got more")
        for part in body_of(step):
            yield from with_angles(part)
    elif GATES[step.name].is_native:
        yield step
    elif GATES[step.name].in_programs is not None:
        yield from _built(step, _BUILDS_IN_PROGRAMS)
    else:
        for part in GATES[step.name].block(step.controls, step.qubits, *step.params):
            yield from with_angles(part)


def _expanded(step: Instruction, builds: Builds) -> Iterator[Instruction]:
    if step.control_values:
        for part in around(step):
            yield from _expanded(part, builds)
    elif step.definition is not None:
        for part in body_of(step):
            yield from _expanded(part, builds)
    elif step.name in builds:
        yield from _built(step, builds)
    else:
        yield step


def body_of(step: Instruction) -> list[Instruction]:
    """Return the steps of a call of a definition: real qubits, its numbers (or expressions), controls (of 1), condition."""
    definition = step.definition
    assert definition is not None
    values: dict[str, Any] = dict(zip(definition.params, step.params))
    is_open = any(isinstance(value, Expression) for value in step.params)
    qubits = step.qubits
    inner: list[Instruction] = []
    try:
        for part in definition.body:
            params = part.params
            if params and values:
                params = tuple(
                    [
                        item if not isinstance(item, Expression)
                        else item.substitute(values) if is_open
                        else item.evaluate(values)
                        for item in params
                    ]
                )
            barrier = part.name == "barrier"
            inner.append(
                Instruction(
                    part.name,
                    tuple([qubits[slot] for slot in part.qubits]),
                    params,
                    () if barrier else (*step.controls, *[qubits[slot] for slot in part.controls]),
                    (),
                    None if barrier else step.condition,
                    part.definition,
                    control_values=joined(part.control_values, len(step.controls)),
                )
            )
    except CalculationError as error:
        values_text = ", ".join(f"{value:g}" for value in step.params)
        raise CalculationError(
            f"{error}, in gate {checks.show(definition.name)} called with ({values_text})"
        ) from None
    return inner


def _built(step: Instruction, builds: Builds) -> tuple[Instruction, ...]:
    parts = builds[step.name](step.params, step.qubits)
    if not step.controls and step.condition is None:
        return parts
    return tuple([part._replace(controls=step.controls + part.controls, condition=step.condition) for part in parts])
