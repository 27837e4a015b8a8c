"""The state a run starts from."""

from __future__ import annotations

from typing import Any, Iterable, Optional, Sequence, Tuple, Union

import numpy as np

from . import _check, _check_data, _core
from ._state_part import bit_string
from .statevector import StateVector

InitialLike = Union[None, int, str, Sequence[complex], np.ndarray, StateVector]


class Start:
    """A checked initial state.

    Attributes
    ----------
    started : tuple of int
        Qubits that need not be 0.
    """

    def __init__(self, initial: Any, n_qubits: int) -> None:
        self._product: Optional[str] = None
        self._amplitudes: Any = None
        if initial is None:
            self.started: Tuple[int, ...] = ()
        elif isinstance(initial, str):
            self._take_product(_product(initial, n_qubits))
        elif isinstance(initial, StateVector) or isinstance(initial, Iterable):
            self._amplitudes = _amplitudes(initial, n_qubits)
            self.started = tuple(range(n_qubits))
        else:
            index = _check.integer(initial, "initial", minimum=0, maximum=2**n_qubits - 1)
            self._take_product(bit_string(index, n_qubits))

    def _take_product(self, text: str) -> None:
        self._product = text
        self.started = tuple(qubit for qubit, letter in enumerate(text) if letter != "0")

    def prepare(self, state: StateVector, active: Sequence[int]) -> None:
        """Set a state of the active qubits, which is in basis state 0 so far."""
        if self._product is not None:
            state.reset("".join(self._product[qubit] for qubit in active))
        elif isinstance(self._amplitudes, StateVector) and self._amplitudes.precision == state.precision:
            _core.copy_amplitudes(self._amplitudes._live(), state._live().view(), False)
        elif isinstance(self._amplitudes, StateVector):
            state.array[:] = self._amplitudes.array
        elif self._amplitudes is not None:
            state.reset(self._amplitudes)


def _product(text: str, n_qubits: int) -> str:
    expected = f"initial must be a text of {n_qubits} characters 0 1 + -, one per qubit"
    text = _check.plain(text)
    if len(text) != n_qubits:
        raise ValueError(f"{expected}, got {_check.show(text)}")
    wrong = text.strip("01+-")
    if wrong:
        raise ValueError(f"{expected}, got {wrong[0]!r} in {_check.show(text)}")
    return text


def _amplitudes(initial: Any, n_qubits: int) -> Any:
    if not isinstance(initial, StateVector):
        return _check_data.amplitudes(initial, n_qubits, "initial")
    initial._live()
    if initial.n_qubits != n_qubits:
        raise ValueError(f"initial must be a state of {n_qubits} qubits, those of the circuit, got {initial!r}")
    return initial
