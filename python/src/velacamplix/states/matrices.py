"""Gates given by their matrix."""

from __future__ import annotations

from typing import Any, Self

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..core import extension
from ..instructions.open_controls import ControlValues, checked_values
from ..machine import limits, memory
from .base import Qubits, StateBase, highest_first

_LARGEST_SINGLE = float(np.finfo(np.float32).max)


class MatrixGates(StateBase):
    """One method for any number of targets and controls."""

    def matrix(
        self,
        matrix: Any,
        qubits: Qubits,
        controls: Qubits = (),
        control_values: ControlValues = None,
        *,
        order: Order = "big",
        check: bool = True,
    ) -> Self:
        """Apply the matrix of a gate on k qubits.

        A matrix whose entries beside the diagonal are exactly zero takes a shorter way.

        Parameters
        ----------
        matrix : array_like, shape (2**k, 2**k)
            Real or complex numbers, of any type and memory layout.
        qubits : int or sequence of int
            The k targets.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What they must be instead: a number or a text, the first control leftmost, or 0 or 1 for each.
        order : {"big", "little"}
            Which target is the highest bit of a row's number: the first listed ("big") or the last ("little").
        check : bool
            False accepts a matrix that is not unitary; the state then need not keep norm 1.

        Raises
        ------
        TypeError, IndexError
            If the matrix does not hold numbers, or a qubit is no integer or not in the state.
        ValueError
            If the shape does not fit, an entry is not finite or does not fit the state's precision, the matrix is not
            unitary, or qubits repeat.
        MemoryError
            If the working copies of the matrix, one per thread, do not fit.

        Notes
        -----
        Ctrl-C is heard behind the sweep over the state, which takes 2**k multiplications per amplitude.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> cycle = [[0, 0, 0, 1], [1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 1, 0]]      # adds 1 modulo 4
        >>> StateVector(3).x(0).matrix(cycle, qubits=[1, 2], controls=0).counts(1)
        {'101': 1}
        """
        core = self._live()
        targets = checks.qubits(qubits, self._n_qubits)
        control_qubits = checks.controls(controls, targets, self._n_qubits)
        values = checked_values(control_values, len(control_qubits))
        ordered = highest_first(targets, order)
        entries = checks.matrix(matrix, len(targets), unitary=checks.flag(check, "check"))
        if self._precision == "single":
            _require_single(entries)
        fitting = self._fitting(entries)
        with self._turned(tuple([qubit for qubit, value in zip(control_qubits, values) if value == "0"])):
            extension.apply_matrix(core, fitting, ordered, control_qubits)
        return self

    def _fitting(self, entries: np.ndarray) -> np.ndarray:
        # One copy for the core's argument, one per thread for its work. The library counts free memory only, without
        # what the page cache would give up.
        size = entries.size * np.dtype(self._amplitude_type).itemsize
        needed, free = (self._threads + 2) * size, limits.memory().usable
        if needed > free:
            raise MemoryError(
                f"the working copies of a matrix of {len(entries)} rows on {self._threads} thread(s) need "
                f"{memory.human(needed)}; {memory.human(free)} are free"
            )
        return entries.astype(self._amplitude_type, copy=False)


def _require_single(entries: np.ndarray) -> None:
    too_large = np.maximum(np.abs(entries.real), np.abs(entries.imag)) > _LARGEST_SINGLE
    if too_large.any():
        entry = complex(entries[too_large][0])
        raise ValueError(f"matrix entry must fit single precision, got {entry!r}")
