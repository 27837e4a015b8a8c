"""What undoes an instruction."""

from __future__ import annotations

from dataclasses import replace
from typing import Any, Tuple

import numpy as np

from . import _check
from ._check_circuit import require_entries
from ._circuit_composites import COMPOSITES, inverse_by_name
from ._circuit_definition import with_definition
from .instruction import BY_ENTRIES, Instruction


def inverted(step: Instruction) -> Tuple[Instruction, ...]:
    """Return the instructions that undo `step`, nearly always one.

    Raises
    ------
    ValueError
        For measure and reset, and for matrices that are not unitary.
    """
    if step.definition is not None:
        return (with_definition(step, step.definition.inverse()),)
    if step.name == "barrier":
        return (step,)
    if step.name in BY_ENTRIES:
        _require_unitary(step)
    if step.name == "matrix":
        dim = 2 ** len(step.qubits)
        entries: Any = step.params
        adjoint = (entries[row * dim + column].conjugate() for column in range(dim) for row in range(dim))
        return (replace(step, params=tuple(adjoint)),)
    if step.name == "diagonal":
        entries = step.params
        return (replace(step, params=tuple(entry.conjugate() for entry in entries)),)
    if not step.is_gate:
        raise ValueError(f"{step.name} has no inverse, got {step}")
    found = inverse_by_name(step.name, step.params)
    if found is not None:
        name, params = found
        return (replace(step, name=name, params=params),)
    parts = COMPOSITES[step.name].build(step.params, step.qubits)
    return tuple(
        [
            replace(undone, controls=step.controls + undone.controls, condition=step.condition)
            for part in reversed(parts)
            for undone in inverted(part)
        ]
    )


def _require_unitary(step: Instruction) -> None:
    # The builder accepts others where its caller insists; their adjoint undoes nothing.
    require_entries(len(step.params))
    entries = np.array(step.params)
    with np.errstate(all="ignore"):
        if step.name == "diagonal":
            deviation = np.abs(np.abs(entries) ** 2 - 1).max()
        else:
            deviation = _check.deviation_from_unitary(entries.reshape(2 ** len(step.qubits), -1))
    if not deviation <= _check.UNITARY_TOLERANCE:
        raise ValueError(f"{step.name} must be unitary to be inverted, got {step}")
