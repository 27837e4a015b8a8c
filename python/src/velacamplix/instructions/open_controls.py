"""Controls that must read 0: X before and after makes them controls that must read 1, which only moves amplitudes."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.words import bit_string
from .instruction import Instruction

#: What controls must read: None or an empty text, all 1; a number or a text, the first control leftmost; 0 or 1 for each.
ControlValues = int | str | Iterable[int] | None


def checked_values(values: Any, n_controls: int) -> str:
    """Return what `n_controls` controls must read as an instruction holds it, nothing if that is 1 for all.

    >>> checked_values(1, 2), checked_values("01", 2), checked_values([0, 1], 2), checked_values([1, 1], 2)
    ('01', '01', '01', '')
    """
    if values is None or (isinstance(values, str) and not checks.plain(values)):
        return ""
    if not n_controls:
        raise ValueError(f"control_values must stand beside controls, got {checks.show(values)} and no controls")
    if checks.is_list(values):
        listed = checks.sequence(values, "control_values", most=n_controls + 1)
        flags = [int(value) if isinstance(value, (bool, np.bool_)) else value for value in listed]
        numbers = [checks.integer(value, f"control_values[{i}]", 0, 1) for i, value in enumerate(flags)]
        text = "".join(map(str, numbers))
    elif isinstance(values, str):
        text = checks.plain(values)
    else:
        text = bit_string(checks.integer(values, "control_values", 0, 2**n_controls - 1), n_controls)
    if len(text) != n_controls or text.strip("01"):
        raise ValueError(
            f"control_values must be 0 or 1 for each of the {n_controls} controls, those of the gate's name first, "
            f"got {checks.show(values)}"
        )
    return text if "0" in text else ""


def joined(values: str, n_before: int, n_behind: int = 0) -> str:
    """Return what controls must read that stand between others which must read 1."""
    return "1" * n_before + values + "1" * n_behind if values else ""


def open_controls(step: Instruction) -> tuple[int, ...]:
    """Return the controls that must read 0."""
    return tuple([qubit for qubit, value in zip(step.controls, step.control_values) if value == "0"])


def around(step: Instruction) -> list[Instruction]:
    """Return an instruction as one whose controls must read 1, between the X that turn the others.

    >>> print(*around(Instruction("H", (2,), (), (0, 1), control_values="10")), sep=", ")
    X 1, H 2 controls 0,1, X 1
    """
    if not step.control_values:
        return [step]
    flips = [Instruction("X", (qubit,), condition=step.condition) for qubit in open_controls(step)]
    return [*flips, step._replace(control_values=""), *flips]
