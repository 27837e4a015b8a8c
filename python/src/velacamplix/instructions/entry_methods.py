"""Gates given by their entries."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Self

from ..basics import checks
from ..basics.types import Order
from ..machine import memory
from . import checked
from .gate_base import GateBase
from .instruction import Instruction
from .open_controls import ControlValues, checked_values


class EntryMethods(GateBase):
    """Checks entries and hands gates to `_add` of the class that inherits."""

    def matrix(
        self,
        matrix: Any,
        qubits: int | Sequence[int],
        controls: int | Sequence[int] = (),
        control_values: ControlValues = None,
        *,
        order: Order = "big",
        check: bool = True,
    ) -> Self:
        """Add a gate given by its matrix.

        Parameters
        ----------
        matrix : array_like, shape (2**k, 2**k)
            Real or complex numbers, for k qubits.
        qubits : int or sequence of int
            The k targets.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What they must be instead: a number or a text, the first control leftmost, or 0 or 1 for each.
        order : {"big", "little"}
            Which target is the highest bit of a row's number: the first listed
            ("big") or the last ("little").
        check : bool
            False accepts a matrix that does not keep the norm.

        Raises
        ------
        TypeError, IndexError
            As for `x`; also if the matrix does not hold numbers.
        ValueError
            If the shape does not fit, an entry is not finite, the matrix is not
            unitary, or qubits repeat.
        MemoryError
            If the entries do not fit.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).matrix([[0, 1], [1, 0]], 2, controls=[0]))
        matrix[2x2] 2 controls 0
        """
        targets = checks.qubits(qubits, self._n_qubits)
        control_qubits = checks.controls(controls, targets, self._n_qubits)
        values = checked_values(control_values, len(control_qubits))
        entries = checks.matrix(matrix, len(targets), unitary=checks.flag(check, "check"), own=False)
        memory.require_entries(entries.size)
        if checks.order(order) == "little":
            targets = targets[::-1]
        params = checks.plain_entries(entries)
        return self._put(Instruction("matrix", targets, params, control_qubits, control_values=values))

    unitary = matrix

    def diagonal(
        self,
        entries: Any,
        qubits: int | Sequence[int],
        controls: int | Sequence[int] = (),
        control_values: ControlValues = None,
        *,
        order: Order = "big",
        check: bool = True,
    ) -> Self:
        """Add a diagonal gate given by its entries.

        Parameters
        ----------
        entries : array_like, shape (2**k,)
            Real or complex numbers, for k qubits.
        qubits, controls, control_values, order, check
            As for `matrix`.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `matrix`; ValueError if an entry is not of absolute value 1.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).diagonal([1, 1j, 1, -1], [0, 1]))
        diagonal[4] 0,1
        """
        targets = checks.qubits(qubits, self._n_qubits)
        control_qubits = checks.controls(controls, targets, self._n_qubits)
        values = checked_values(control_values, len(control_qubits))
        numbers = checked.diagonal(entries, len(targets), unitary=checks.flag(check, "check"))
        if checks.order(order) == "little":
            targets = targets[::-1]
        return self._put(Instruction("diagonal", targets, numbers, control_qubits, control_values=values))
