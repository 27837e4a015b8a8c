"""Tapes that Autograd follows, with plain numbers in their gates."""

from __future__ import annotations

import copy
from typing import Any

import numpy as np
from pennylane.tape import QuantumScript

try:
    from autograd.numpy.numpy_boxes import ArrayBox
except ImportError:  # then nothing is boxed

    class ArrayBox:  # type: ignore[no-redef]
        """Stands for what there is none of."""


_Script: Any = QuantumScript


class UnboxedTape(_Script):  # type: ignore[misc]
    """A tape for the device, whose parameters are the boxes that its gates had in the tape it was made of.

    PennyLane asks a tape for its parameters to follow what becomes of them, and makes each gate anew with numbers before a
    device gets it, unless the gates have numbers already.
    """

    _followed: Any = None

    def get_parameters(self, trainable_only: bool = True, operations_only: bool = False, **more: Any) -> list[Any]:
        """Return the parameters as they are followed."""
        if self._followed is None:
            found: list[Any] = super().get_parameters(trainable_only, operations_only, **more)
            return found
        every: list[Any] = self._followed.get_parameters(False, operations_only, **more)
        return [every[place] for place in self.trainable_params if place < len(every)] if trainable_only else every

    def copy(self, *args: Any, **update: Any) -> Any:
        """Return a copy with all that is followed."""
        if self._followed is None:
            return super().copy(*args, **update)
        self._followed.trainable_params = self.trainable_params
        return self._followed.copy(*args, **update)

    __copy__ = copy


def unboxed(tape: Any) -> Any:
    """Return a tape of gates on expectation values with numbers in place of Autograd's boxes."""
    ops = tape.operations
    made = [_with_numbers(op) if any([isinstance(value, ArrayBox) for value in op.data]) else op for op in ops]
    if all([one is op for one, op in zip(made, ops)]):
        return tape
    found = UnboxedTape(made, tape.measurements, tape.shots, tape.trainable_params)
    found._followed = tape
    return found


def _with_numbers(op: Any) -> Any:
    made = copy.copy(op)
    made.data = tuple([_number(value) for value in op.data])
    return made


def _number(value: Any) -> Any:
    while isinstance(value, ArrayBox):
        value = value._value
    return value.item() if isinstance(value, (np.ndarray, np.generic)) else value
