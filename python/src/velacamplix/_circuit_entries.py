"""Gates given by their entries."""

from __future__ import annotations

from typing import Any, Sequence, Tuple, Union

from . import _check, _check_circuit, _check_readout
from ._annotations import Self


class EntryMethods:
    """Checks entries and hands gates to `_add` of the class that inherits."""

    _n_qubits: int

    def matrix(
        self,
        matrix: Any,
        qubits: Union[int, Sequence[int]],
        controls: Union[int, Sequence[int]] = (),
        *,
        order: str = "big",
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
        targets = _check.qubits(qubits, self._n_qubits)
        control_qubits = _check.controls(controls, targets, self._n_qubits)
        entries = _check.matrix(matrix, len(targets), unitary=_check_readout.flag(check, "check"), own=False)
        _check_circuit.require_entries(entries.size)
        if _check.order(order) == "little":
            targets = targets[::-1]
        return self._add("matrix", targets, _check.plain_entries(entries), control_qubits)

    unitary = matrix

    def diagonal(
        self,
        entries: Any,
        qubits: Union[int, Sequence[int]],
        controls: Union[int, Sequence[int]] = (),
        *,
        order: str = "big",
        check: bool = True,
    ) -> Self:
        """Add a diagonal gate given by its entries.

        Parameters
        ----------
        entries : array_like, shape (2**k,)
            Real or complex numbers, for k qubits.
        qubits, controls, order, check
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
        targets = _check.qubits(qubits, self._n_qubits)
        control_qubits = _check.controls(controls, targets, self._n_qubits)
        numbers = _check_circuit.diagonal(entries, len(targets), unitary=_check_readout.flag(check, "check"))
        if _check.order(order) == "little":
            targets = targets[::-1]
        return self._add("diagonal", targets, numbers, control_qubits)

    def _add(
        self, name: str, qubits: Tuple[int, ...], params: Tuple[Any, ...] = (), controls: Tuple[int, ...] = ()
    ) -> Self:
        raise NotImplementedError
