"""From gates of all kinds to those the library has."""

from __future__ import annotations

from collections.abc import Iterator

from ..basics import checks
from .definition import size
from .expression import CalculationError, Expression
from .gates import GATES
from .instruction import Instruction

_BUILDS = {name: gate.build for name, gate in GATES.items() if gate.build is not None}

#: One instruction that would become more than this is refused: ten nested definitions are enough to describe more
#: than any memory holds.
MOST_STEPS = 10_000_000


def basic(step: Instruction) -> Iterator[Instruction]:
    """Iterate over what an instruction becomes in the library's own gates.

    All parameters of `step` must be numbers. How many instructions come, and which, does not depend on them.

    Raises
    ------
    ValueError
        If there are more than `MOST_STEPS`, or a definition has no finite value for these parameters.
    """
    if step.definition is None:
        if step.name in _BUILDS:
            return iter(_built(step))
        return iter((step,))
    if size(step) > MOST_STEPS:
        raise ValueError(f"gate {checks.show(step.name)} must expand to at most {MOST_STEPS} steps, got more")
    return _expanded(step)


def _expanded(step: Instruction) -> Iterator[Instruction]:
    # The last entry comes next. A stack of our own, because bodies may be nested more deeply than Python calls.
    waiting: list[Instruction] = [step]
    while waiting:
        step = waiting.pop()
        if step.definition is not None:
            waiting.extend(reversed(body_of(step)))
        elif step.name in _BUILDS:
            yield from _built(step)
        else:
            yield step


def body_of(step: Instruction) -> list[Instruction]:
    """Return the steps of a call of a definition: real qubits, numbers for parameters, controls and condition."""
    definition = step.definition
    assert definition is not None
    values: dict[str, float] = dict(zip(definition.params, step.params))  # type: ignore[arg-type]
    qubits = step.qubits
    inner: list[Instruction] = []
    try:
        for part in definition.body:
            params = part.params
            if params and values:
                params = tuple([item.evaluate(values) if isinstance(item, Expression) else item for item in params])
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
                )
            )
    except CalculationError as error:
        values_text = ", ".join(f"{value:g}" for value in step.params)
        raise CalculationError(
            f"{error}, in gate {checks.show(definition.name)} called with ({values_text})", error.expression
        ) from None
    return inner


def _built(step: Instruction) -> tuple[Instruction, ...]:
    parts = _BUILDS[step.name](step.params, step.qubits)
    if not step.controls and step.condition is None:
        return parts
    return tuple([part._replace(controls=step.controls + part.controls, condition=step.condition) for part in parts])
