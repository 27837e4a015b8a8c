"""The state a run starts from."""

from __future__ import annotations

from typing import Any, Iterable, Optional, Sequence, Tuple, Union

import numpy as np

from . import _array_order, _check, _check_data, _core
from .statevector import StateVector

InitialLike = Union[None, int, str, Sequence[complex], np.ndarray, StateVector]


class Start:
    """A checked initial state.

    Attributes
    ----------
    started : tuple of int
        Qubits that need not be 0.
    """

    def __init__(self, initial: Any, n_qubits: int, order: Optional[str]) -> None:
        self._product: Optional[str] = None
        self._amplitudes: Any = None
        self.started: Tuple[int, ...] = ()
        if initial is None or isinstance(initial, StateVector):
            if order is not None:
                raise TypeError(f"initial_order can only be given for a number, a text or an array, got {initial!r}")
            if initial is not None:
                self._amplitudes = _state(initial, n_qubits)
        elif isinstance(initial, Iterable) and not isinstance(initial, str):
            self._amplitudes = _check_data.amplitudes(initial, n_qubits, "initial")
            self._order = _array_order.of_amplitudes(self._amplitudes, order, "initial", "initial_order")
        else:
            text = _check_data.product(initial, n_qubits, "initial")
            self._product = text if order is None or _check.order(order, "initial_order") == "big" else text[::-1]
            self.started = tuple(qubit for qubit, letter in enumerate(self._product) if letter != "0")
        if self._amplitudes is not None:
            self.started = tuple(range(n_qubits))

    def prepare(self, state: StateVector, active: Sequence[int]) -> None:
        """Set a state of the active qubits, which is in basis state 0 so far."""
        begin = self._amplitudes
        if self._product is not None:
            state.set_basis_state("".join(self._product[qubit] for qubit in active))
        elif isinstance(begin, StateVector) and begin._precision == state._precision:
            _core.copy_amplitudes(begin._live(), state._live().view(), False)
        elif isinstance(begin, StateVector):
            state.array[:] = begin._live().view()
        elif begin is not None:
            state._set_amplitudes(begin, self._order)


def _state(initial: StateVector, n_qubits: int) -> StateVector:
    initial._live()
    if initial._n_qubits != n_qubits:
        raise ValueError(f"initial must be a state of {n_qubits} qubits, those of the circuit, got {initial!r}")
    return initial
