"""Writing classical data into a state."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any, Self

import numpy as np

from ..basics import arrays, checks
from ..basics.types import Order
from ..core import extension
from ..machine import memory
from .base import Qubits, StateBase, highest_first

# What a register may hold besides 0 before it is written to: no more than rounding leaves there.
_ROUNDING = 1e-5


class Loading(StateBase):
    """Every method returns the object, so that calls can be chained."""

    def prepare(self, data: Any, qubits: Qubits, order: Order = "big") -> Self:
        """Put qubits into a state of their own.

        For every configuration of the other qubits, the 2**k amplitudes that share it become `data` times the norm
        they had. That is a preparation wherever the listed qubits are not entangled with others, as in state 0;
        otherwise the weights of the other qubits stay and their phases are lost.

        Parameters
        ----------
        data : array_like, shape (2**k,)
            Real or complex amplitudes of norm 1.
        qubits : int or sequence of int
            k distinct qubits.
        order : {"big", "little"}
            Whether the first listed qubit is the most or the least significant bit of a position in `data`.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the data has the wrong kind, shape or norm, or a qubit is no integer, outside the range, or named twice.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).prepare([0, 0.6, 0.8, 0], qubits=[2, 0])
        >>> {outcome: round(abs(amplitude), 6) for outcome, amplitude in state.to_dict().items()}
        {'001': 0.8, '100': 0.6}
        """
        core = self._live()
        targets = checks.qubits(qubits, self._n_qubits)
        values = arrays.amplitudes(data, len(targets), "data")
        highest = highest_first(targets, order)
        memory.require_bytes(16 * values.size, f"a copy of the data of {len(targets)} qubits")
        # The core wants the highest-numbered qubit as most significant bit, whatever the order of its list.
        descending = sorted(range(len(highest)), key=lambda place: -highest[place])
        extension.prepare(core, _transposed(values, descending), highest)
        return self

    def qram(self, data: Any, address_qubits: Qubits, value_qubits: Qubits, order: Order = "big") -> Self:
        """Load a superposition of values for every address.

        The amplitude of address a, value 0 is spread over all values v in proportion to ``data[a, v]``; its weight
        stays the same.

        Parameters
        ----------
        data : array_like, shape (2**a, 2**v)
            Real numbers, a row per address. Every row counts as a direction: it need not have norm 1, but must not be
            zero.
        address_qubits : int or sequence of int
            a distinct qubits; may be empty.
        value_qubits : int or sequence of int
            v other distinct qubits, which must read 0.
        order : {"big", "little"}
            Whether the first listed qubit of each register is its most or its least significant bit.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the data has the wrong kind or shape or a row of zeros, a qubit is no integer, outside the range, or
            named twice, or the value register does not read 0. The state is then unchanged.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2).h(0).qram([[1, 0], [3, 4]], address_qubits=0, value_qubits=1)
        >>> {outcome: round(p, 6) for outcome, p in state.distribution_dict().items()}
        {'00': 0.5, '10': 0.18, '11': 0.32}
        """
        core = self._live()
        addresses, values = arrays.registers(address_qubits, value_qubits, self._n_qubits)
        table = arrays.weights(data, len(addresses), len(values))
        lowest_first = _lowest_first(addresses, order) + _lowest_first(values, order)
        self._require_zero(core, values)
        extension.qram(core, table.astype(np.complex128).reshape(-1), lowest_first, len(addresses))
        return self

    def binary_qram(self, data: Any, address_qubits: Qubits, value_qubits: Qubits, order: Order = "big") -> Self:
        """Load an integer for every address: address a, value 0 becomes address a, value ``data[a]``.

        Parameters
        ----------
        data : array_like of int, shape (2**a,)
            From 0 to 2**v - 1.
        address_qubits, value_qubits, order
            As for `qram`.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `qram`.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).h(0).binary_qram([1, 2], address_qubits=0, value_qubits=[1, 2])
        >>> sorted(state.to_dict())
        ['001', '110']
        """
        core = self._live()
        addresses, values = arrays.registers(address_qubits, value_qubits, self._n_qubits)
        table = arrays.table(data, len(addresses), len(values))
        lowest_first = _lowest_first(addresses, order) + _lowest_first(values, order)
        self._require_zero(core, values)
        extension.binary_qram(core, table, lowest_first, len(addresses))
        return self

    def phase_oracle(self, marked: Iterable[int | str], qubits: Qubits, order: Order = "big") -> Self:
        """Change the sign wherever the listed qubits read a marked outcome.

        Parameters
        ----------
        marked : iterable of int or str
            Numbers from 0 to 2**k - 1, or texts of k characters 0 and 1. One that is named twice counts once.
        qubits : int or sequence of int
            k distinct qubits.
        order : {"big", "little"}
            Whether the first listed qubit is the leftmost, most significant bit of an outcome or the rightmost.

        Raises
        ------
        TypeError, IndexError, ValueError
            If an outcome does not fit the qubits, or a qubit is no integer, outside the range, or named twice.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).set_basis_state("1++").phase_oracle(["10"], qubits=[0, 2])
        >>> {outcome: round(amplitude.real, 6) for outcome, amplitude in state.to_dict().items()}
        {'100': -0.5, '101': 0.5, '110': -0.5, '111': 0.5}
        """
        core = self._live()
        listed = highest_first(checks.qubits(qubits, self._n_qubits), order)
        numbers = arrays.outcomes(marked, len(listed), "marked")
        # The core counts the qubits of this operation from the other end.
        extension.phase_oracle(core, numbers, [self._n_qubits - 1 - qubit for qubit in listed])
        return self

    def _require_zero(self, core: Any, qubits: Sequence[int]) -> None:
        # Summed up without the large share of 0, in which the others would drown.
        elsewhere = float(core.distribution(qubits)[1:].sum(dtype=np.float64))
        if not elsewhere <= _ROUNDING:
            raise ValueError(
                f"value_qubits must read 0 before data is loaded, got a probability of {elsewhere:.6g} of something "
                f"else on qubits {tuple(qubits)}"
            )


def _transposed(values: np.ndarray, axes: Sequence[int]) -> np.ndarray:
    """Return a copy as ``complex128`` whose position has bit ``axes[i]`` of the old one, counted from the left, as bit i.

    >>> _transposed(np.arange(4), [1, 0]).real.tolist()
    [0.0, 2.0, 1.0, 3.0]
    """
    turned = values.reshape((2,) * len(axes)).transpose(axes)
    outer = max(0, len(axes) - 18)  # so many pieces at a time, between two looks at signals
    copy: np.ndarray = np.empty((2,) * len(axes), dtype=np.complex128)
    for place in np.ndindex((2,) * outer):
        copy[place] = turned[place]
    return copy.reshape(-1)


def _lowest_first(qubits: tuple[int, ...], order: Order) -> tuple[int, ...]:
    return highest_first(qubits, order)[::-1]
