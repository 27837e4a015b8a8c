"""How much two states have in common."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from ..basics import arrays, checks
from ..basics.types import Order
from ..core import extension
from ..programs.drive import heard
from ..programs.progress import ProgressLike, metered
from .base import StateBase


class Overlaps(StateBase):
    """Neither state changes. Nothing is divided by a norm: the answers are what the amplitudes say.

    Products are formed and summed in double precision, also those of states in single precision, in an order of their
    own: the same bits on any number of threads.
    """

    def overlap(
        self, other: StateBase | Sequence[complex] | np.ndarray, order: Order = "little", progress: ProgressLike = None
    ) -> complex:
        """Return the inner product of this state, conjugated, and another: <self|other>.

        Parameters
        ----------
        other : StateVector or array_like, shape (2**n,)
            As many qubits as this state, in either precision. An array may have any norm, number type and memory
            layout; it is copied first, for which there must be room.
        order : {"little", "big"}
            Whether qubit 0 is the lowest bit of an array's index, as in `array`, or the highest. A StateVector has its
            own order.
        progress : None, bool or callable
            As for `run`; amplitudes are counted.

        Returns
        -------
        complex
            Infinite or nan where an amplitude is.

        Raises
        ------
        TypeError, ValueError
            If `other` is neither or has another number of qubits.
        MemoryError
            If the copy of an array does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2).h(0).s(0)
        >>> overlap = state.overlap(StateVector(2).x(0))
        >>> round(overlap.real, 6), round(overlap.imag, 6)
        (0.0, -0.707107)
        >>> state.overlap([0, 1, 0, 0]) == overlap
        True
        """
        core, ket = self._live(), other_state(other, self._n_qubits, order, self._threads)._live()
        with metered(progress, 2**self._n_qubits, "amplitudes") as meter:
            return complex(extension.overlap(core, ket, *heard(meter.within())))

    def fidelity(
        self, other: StateBase | Sequence[complex] | np.ndarray, order: Order = "little", progress: ProgressLike = None
    ) -> float:
        """Return the squared magnitude of the overlap with another state.

        1 for equal states, up to a phase, and 0 for orthogonal ones, if both have norm 1. Some authors call its root
        fidelity.

        Parameters
        ----------
        other, order, progress
            As for `overlap`.

        Raises
        ------
        TypeError, ValueError, MemoryError
            As for `overlap`.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> plus, rotated = StateVector(1).h(0), StateVector(1).ry(1.0, 0)
        >>> round(plus.fidelity(rotated), 6), round(plus.fidelity(plus), 6)
        (0.920735, 1.0)
        """
        overlap = self.overlap(other, order, progress)
        return overlap.real * overlap.real + overlap.imag * overlap.imag


def other_state(other: Any, n_qubits: int, order: Order, threads: int) -> StateBase:
    """Return a state of `n_qubits`: `other` itself, or a new one with an array's amplitudes."""
    is_big = checks.order(order) == "big"
    if isinstance(other, StateBase):
        if other._kind != StateBase._kind:
            raise TypeError(
                f"other must be a StateVector or an array, got {other!r}; its own fidelity(state) and overlap(state) take a state"
            )
        if is_big:
            raise ValueError('order must be left away beside a StateVector, which has its own order, got "big"')
        if other.n_qubits != n_qubits:
            raise ValueError(f"other must have {n_qubits} qubit(s), as this state, got a state of {other.n_qubits}")
        return other
    amplitudes = arrays.amplitudes_of_any_norm(other, n_qubits, "other", "a StateVector or an array")
    # No number loses digits, but for long doubles.
    is_single = np.can_cast(amplitudes.dtype, np.complex64)
    made = StateBase._another(n_qubits, "single" if is_single else "double", threads)
    made._set_amplitudes(amplitudes, order)
    return made
