"""What a state vector tells about itself."""

from __future__ import annotations

from typing import Optional, Union

import numpy as np

from . import _check_readout, _memory
from ._state_part import Qubits, StatePart


class Readout(StatePart):
    """Probabilities of outcomes. Nothing here changes the state."""

    def probability(self, outcome: Union[int, str], qubits: Optional[Qubits] = None, order: str = "big") -> float:
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
        >>> state = StateVector(3).reset("011")
        >>> state.probability("01", qubits=[0, 2]), state.probability("01", qubits=[0, 2], order="little")
        (1.0, 0.0)
        >>> state.probability(3)
        1.0
        """
        core, listed = self._live(), self._highest_first(qubits, order)
        index = _check_readout.outcome(outcome, len(listed))
        # The core reads the first listed qubit as the least significant bit.
        return float(core.probability(index, listed[::-1]))

    def distribution(self, qubits: Optional[Qubits] = None, order: str = "big") -> np.ndarray:
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
            ``float64`` or ``float32``, after the precision of the state. An empty list gives the total.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.
        MemoryError
            If the result does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).reset("10+")
        >>> [round(float(p), 6) for p in state.distribution([0, 2])]
        [0.0, 0.0, 0.5, 0.5]
        """
        core, listed = self._live(), self._highest_first(qubits, order)
        needed = np.dtype(self._amplitude_type).itemsize // 2 << len(listed)
        _memory.require_bytes(needed, f"the distribution of {len(listed)} qubits")
        # The core's first listed qubit is the most significant bit.
        distribution: np.ndarray = core.distribution(listed)
        return distribution
