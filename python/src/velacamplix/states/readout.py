"""What a state vector tells about itself."""

from __future__ import annotations

import math

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..basics.words import bit_string
from ..machine import memory
from .base import Qubits, StateBase


class Readout(StateBase):
    """Probabilities of outcomes. Nothing here changes the state.

    Probabilities are formed and summed in double precision, also those of a state in single precision.
    """

    def probability(self, outcome: int | str, qubits: Qubits | None = None, order: Order = "big") -> float:
        """Return the probability that the listed qubits read an outcome.

        Parameters
        ----------
        outcome : int or str
            A number from 0 to 2**k - 1 or a text of k characters 0 and 1, for k qubits.
        qubits : int or sequence of int, optional
            Distinct qubits; all n by default.
        order : {"big", "little"}
            Whether the first listed qubit is the leftmost, most significant bit of the outcome or the rightmost.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the outcome does not fit the qubits, or a qubit is no integer, outside the range, or named twice.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).set_basis_state("011")
        >>> state.probability("01", qubits=[0, 2]), state.probability("01", qubits=[0, 2], order="little")
        (1.0, 0.0)
        >>> state.probability(3)
        1.0
        """
        core, listed = self._live(), self._highest_first(qubits, order)
        index = checks.outcome(outcome, len(listed))
        return float(core.probability(index, listed))

    def distribution(self, qubits: Qubits | None = None, order: Order = "big") -> np.ndarray:
        """Return the probabilities of all outcomes of the listed qubits.

        Parameters
        ----------
        qubits : int or sequence of int, optional
            k distinct qubits; all n by default.
        order : {"big", "little"}
            Whether the first listed qubit is the most or the least significant bit of a position.

        Returns
        -------
        numpy.ndarray, shape (2**k,)
            ``float64`` for a state of either precision. An empty list gives the total, 1 but for rounding.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.
        MemoryError
            If the result does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).set_basis_state("10+")
        >>> [round(float(p), 6) for p in state.distribution([0, 2])]
        [0.0, 0.0, 0.5, 0.5]
        """
        core, listed = self._live(), self._highest_first(qubits, order)
        memory.require_bytes(8 << len(listed), f"the distribution of {len(listed)} qubits")
        # The core's first listed qubit is the most significant bit.
        distribution: np.ndarray = core.distribution(listed)
        return distribution

    probabilities = distribution

    def amplitude(self, outcome: int | str, order: Order = "big") -> complex:
        """Return one amplitude.

        Parameters
        ----------
        outcome : int or str
            A number from 0 to 2**n - 1 or a text of n characters 0 and 1.
        order : {"big", "little"}
            Whether qubit 0 is the leftmost, most significant bit or the rightmost.

        Raises
        ------
        TypeError, ValueError
            If the outcome does not fit the qubits.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).x(0)
        >>> state.amplitude("100"), state.amplitude(1)
        ((1+0j), 0j)
        """
        core, n = self._live(), self._n_qubits
        is_big, number = checks.order(order) == "big", checks.outcome(outcome, n)
        index = int(bit_string(number, n)[::-1] or "0", 2) if is_big else number
        amplitude = complex(core.view()[index])
        core.require_whole()
        return amplitude

    def norm(self) -> float:
        """Return the root of the sum of all probabilities: 1, but for the rounding of the gates so far.

        Each gate may move it by the precision's last place, 1e-16 or 6e-8. Shots and projections take that into
        account; ``project([], 0)`` gives the state norm 1 again.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> round(StateVector(3).h(0).norm(), 12)
        1.0
        """
        return math.sqrt(self._live().probability(0, ()))
