"""The state a run starts from."""

from __future__ import annotations

import hashlib
from collections.abc import Iterable, Sequence
from copy import copy
from typing import Any

import numpy as np

from ..basics import amplitude_order, arrays, checks
from ..basics.types import Order
from ..core import extension
from ..machine import memory
from ..states.densitymatrix import DensityMatrix
from ..states.statevector import StateVector

InitialLike = int | str | Sequence[complex] | np.ndarray | StateVector | DensityMatrix | None


class Start:
    """A checked initial state.

    Attributes
    ----------
    nonzero : tuple of int
        Qubits that need not be 0.
    is_zero : bool
        Whether all are.
    is_mixed : bool
        Whether it is a density matrix.
    """

    def __init__(self, initial: Any, n_qubits: int, order: Order | None) -> None:
        self._product: str | None = None
        self._amplitudes: Any = None
        self.nonzero: tuple[int, ...] = ()
        self.is_mixed = isinstance(initial, DensityMatrix)
        if initial is None or isinstance(initial, (StateVector, DensityMatrix)):
            if order is not None:
                raise TypeError(f"initial_order can only be given for a number, a text or an array, got {initial!r}")
            if initial is not None:
                self._amplitudes = _state(initial, n_qubits)
        elif isinstance(initial, Iterable) and not isinstance(initial, str):
            self._amplitudes = arrays.amplitudes(initial, n_qubits, "initial")
            self._order = amplitude_order.of_amplitudes(self._amplitudes, order, "initial", "initial_order")
        else:
            text = arrays.product(initial, n_qubits, "initial")
            self._product = text if order is None or checks.order(order, "initial_order") == "big" else text[::-1]
            self.nonzero = tuple(qubit for qubit, letter in enumerate(self._product) if letter != "0")
        if self._amplitudes is not None:
            self.nonzero = tuple(range(n_qubits))
        self.is_zero = self._amplitudes is None and not self.nonzero

    def on(self, active: Sequence[int]) -> str | None:
        """Return what tells the states of these qubits apart that would be prepared, None for |0...0>."""
        if self._product is None:
            return None if self._amplitudes is None else "amplitudes"
        product = "".join([self._product[qubit] for qubit in active])
        return product if product.strip("0") else None

    def told(self) -> str | None:
        """Return a text that is the same for the same state of all qubits, given in the same way; None for |0...0>."""
        if self._amplitudes is None:
            return self._product
        given = self._amplitudes
        array = np.ascontiguousarray(given._live().view() if isinstance(given, (StateVector, DensityMatrix)) else given)
        order = "" if isinstance(given, (StateVector, DensityMatrix)) else self._order
        return f"{array.dtype} {order} {hashlib.sha256(array.view(np.uint8).data).hexdigest()}"

    def kept(self) -> Start:
        """Return the same, whatever becomes of what it was made from."""
        if self._amplitudes is None:
            return self
        given = self._amplitudes
        memory.require_bytes(np.asarray(given).nbytes, "a copy of the initial state")
        own = copy(self)
        own._amplitudes = given.copy()
        return own

    def prepare(self, state: StateVector, active: Sequence[int]) -> None:
        """Set a state of the active qubits, which is in basis state 0 so far."""
        begin = self._amplitudes
        if self._product is not None:
            product = "".join(self._product[qubit] for qubit in active)
            if product.strip("01"):
                state.set_basis_state(product)
            else:
                state._live().begin(int(product[::-1] or "0", 2))
        elif isinstance(begin, StateVector) and begin._precision == state._precision:
            extension.copy_amplitudes(begin._live(), state._live().view(), False)
        elif isinstance(begin, StateVector):
            state.array[:] = begin._live().view()
        elif begin is not None:
            state._set_amplitudes(begin, self._order)

    def fill(self, rho: DensityMatrix, active: Sequence[int]) -> None:
        """Set a matrix of the active qubits, which is in basis state 0 so far."""
        if self.is_mixed:
            rho._live().view()[:] = self._amplitudes._live().view()
        elif not self.is_zero:
            psi = StateVector._another(rho.n_qubits, rho.precision, rho.threads)
            self.prepare(psi, active)
            rho._fill_pure(psi.array)


def _state(initial: StateVector | DensityMatrix, n_qubits: int) -> StateVector | DensityMatrix:
    initial._live()
    if initial._is_stored:
        raise ValueError("initial must be a state in memory, got one in a file; copy() copies it, if it fits")
    if initial._n_qubits != n_qubits:
        raise ValueError(f"initial must be a state of {n_qubits} qubits, those of the circuit, got {initial!r}")
    return initial
