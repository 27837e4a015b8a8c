"""All numbers of a circuit: its matrix and its final state, handed on to the rooms that compute."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from ..basics.types import Order, Precision
from .record import Record

if TYPE_CHECKING:
    from ..programs.progress import ProgressLike


class Dense(Record):
    """Small circuits as arrays."""

    def to_matrix(self, order: Order = "little", *, progress: ProgressLike = None) -> np.ndarray:
        """Return the matrix of a circuit of gates on up to 12 qubits, global phase included.

        Parameters
        ----------
        order : {"little", "big"}
            Whether qubit 0 is the least significant bit of a row's and a column's number, as in `StateVector.array`, or
            the most significant.
        progress : None, bool or callable
            As for `run`.

        Returns
        -------
        numpy.ndarray, shape (2**n_qubits, 2**n_qubits)
            ``complex128``. Column i is the state that the circuit makes of basis state i, bit for bit.

        Raises
        ------
        TypeError, ValueError
            If the circuit has more than 12 qubits, parameters without values, or instructions that are neither gates
            without conditions nor barriers, or an argument is of the wrong kind.
        MemoryError
            If the matrix does not fit: 256 MiB for 12 qubits.
        KeyboardInterrupt
            After Ctrl-C.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> Circuit(2).x(0).cx(0, 1).to_matrix().real.astype(int)
        array([[0, 1, 0, 0],
               [0, 0, 1, 0],
               [0, 0, 0, 1],
               [1, 0, 0, 0]])
        """
        from ..states.unitary import unitary

        return unitary(self, order, progress)

    def statevector(
        self, order: Order = "little", *, precision: Precision = "double", progress: ProgressLike = None
    ) -> np.ndarray:
        """Return the amplitudes after the circuit, begun with all qubits 0: ``run(circuit).statevector(order)``.

        Parameters
        ----------
        order : {"little", "big"}
            Whether qubit 0 is the least significant bit of a position, as in `StateVector.array`, or the most
            significant.
        precision : {"double", "single"}
            16 or 8 bytes per amplitude.
        progress : None, bool or callable
            As for `run`.

        Returns
        -------
        numpy.ndarray, shape (2**n_qubits,)
            A new array, ``complex128`` or ``complex64``. Measurements at the end of the circuit change nothing.

        Raises
        ------
        TypeError, ValueError, MemoryError, KeyboardInterrupt
            As for `run`; ValueError if outcomes in the middle of the circuit are random, so that there are several states.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> Circuit(2).x(0).statevector().real.astype(int).tolist()
        [0, 1, 0, 0]
        """
        from ..running.run import run

        circuit: Any = self  # a Circuit, which no topic can know
        return run(circuit, precision=precision, progress=progress).statevector(order)

