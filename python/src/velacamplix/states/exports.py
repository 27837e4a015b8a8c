"""Copies of the state in the order a caller wants, whole or only what is not small."""

from __future__ import annotations

import math
from typing import Any

import numpy as np

from ..basics import amplitude_order, checks
from ..basics.types import Order
from ..basics.words import bit_string
from ..core import extension
from ..machine import memory
from ..programs.drive import heard
from ..programs.progress import ProgressLike, checked, metered
from .base import Qubits, StateBase

# Entries between two looks at signals and progress.
_PIECE = 2**16

# What one entry takes while a dictionary is made: a node of the core's map, two numbers, the text, its value, its slot.
_BYTES_PER_ENTRY = 400


class Exports(StateBase):
    """Nothing here changes the state."""

    def statevector(self, order: Order | None = None, out: np.ndarray | None = None) -> np.ndarray:
        """Return a copy of the 2**n amplitudes.

        Parameters
        ----------
        order : {"little", "big"}, optional
            Whether qubit 0 is the lowest bit of an index ("little", the default and the order of `array`) or the
            highest. Without it there is a FutureWarning, in this version only, where the two would differ.
        out : numpy.ndarray, shape (2**n,), optional
            Where to put the copy: ``complex128`` for double precision, ``complex64`` for single, of any memory layout.

        Returns
        -------
        numpy.ndarray, shape (2**n,)
            `out`, if it was given.

        Raises
        ------
        TypeError, ValueError
            If `out` is no such array, not writable, or shares memory with the state.
        MemoryError
            If the copy does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).x(0)
        >>> int(state.statevector(order="little").argmax()), int(state.statevector(order="big").argmax())
        (1, 4)
        """
        core, permuted = self._live(), order is not None and checks.order(order) == "big"
        length = 2**self._n_qubits
        target = None
        if out is not None:
            target = checks.output(out, length, self._amplitude_type)
            if np.may_share_memory(target, core.view()):
                raise ValueError("out must not share memory with the state, got a view made by .array")
        if target is not None and _is_plain(target):
            copy = target
        else:
            memory.require_bytes(
                length * np.dtype(self._amplitude_type).itemsize, f"a copy of the amplitudes of {self._n_qubits} qubits"
            )
            copy = np.empty(length, dtype=self._amplitude_type)
        extension.copy_amplitudes(core, copy, permuted)
        amplitude_order.of_amplitudes(copy, order, "statevector()")
        if out is None or target is None:
            return copy
        if copy is not target:
            target[...] = copy
        return out

    def to_dict(
        self, threshold: float = 0.0, order: Order = "big", progress: ProgressLike = None
    ) -> dict[str, complex]:
        """Return the amplitudes that are not small, by basis state.

        Parameters
        ----------
        threshold : float
            Only amplitudes of a magnitude above this are listed; with 0, the default, all whose square is not zero.
        order : {"big", "little"}
            Whether the first character of a key belongs to qubit 0 or to qubit n - 1.
        progress : None, bool or callable
            As for `run`; entries are counted.

        Returns
        -------
        dict of str to complex
            Keys are texts of n characters, in increasing order.

        Raises
        ------
        TypeError, ValueError
            If the threshold is no finite number, or negative.
        MemoryError
            If so many entries do not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> StateVector(3).set_basis_state("011").to_dict()
        {'011': (1+0j)}
        >>> StateVector(3).set_basis_state("011").to_dict(order="little")
        {'110': (1+0j)}
        """
        core, order, limit = self._live(), checks.order(order), checks.threshold(threshold)
        checked(progress)
        self._require_entries(core, self._n_qubits, limit)
        keys, values = extension.mapped_amplitudes(core, limit, order == "big", *heard())
        return _by_text(keys, values, self._n_qubits, progress)

    def distribution_dict(
        self,
        qubits: Qubits | None = None,
        threshold: float = 0.0,
        order: Order = "big",
        progress: ProgressLike = None,
    ) -> dict[str, float]:
        """Return the probabilities of the outcomes that are not improbable.

        Parameters
        ----------
        qubits : int or sequence of int, optional
            k distinct qubits; all n by default.
        threshold : float
            Only probabilities above this are listed.
        order : {"big", "little"}
            Whether the first listed qubit is the leftmost character of a key or the rightmost.
        progress : None, bool or callable
            As for `run`; entries are counted.

        Returns
        -------
        dict of str to float
            Keys are texts of k characters, in increasing order. An empty list gives the total as "".

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice, or the threshold no finite number of at
            least 0.
        MemoryError
            If so many entries do not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).set_basis_state("10+")
        >>> {outcome: round(p, 6) for outcome, p in state.distribution_dict([0, 2]).items()}
        {'10': 0.5, '11': 0.5}
        """
        core, listed, limit = self._live(), self._highest_first(qubits, order), checks.threshold(threshold)
        checked(progress)
        if len(listed) == self._n_qubits:
            self._require_entries(core, len(listed), math.sqrt(limit))
        else:
            self._require_entries(core, len(listed), None)
        try:
            memory.require_bytes(8 << len(listed), "")
        except MemoryError:  # few outcomes may fit where room for all does not
            keys, values = extension.mapped_distribution(core, limit, listed)
        else:
            distribution = core.distribution(listed)
            keys = np.flatnonzero(distribution > limit)
            values = distribution[keys]
        return _by_text(keys, values, len(listed), progress)

    def _require_entries(self, core: object, n_qubits: int, magnitude: float | None) -> None:
        """Refuse a dictionary of outcomes of `n_qubits` that does not fit; the core would end the process."""
        most = 2**n_qubits
        try:
            memory.require_bytes(_BYTES_PER_ENTRY * most, "")
        except MemoryError:
            if magnitude is not None:
                most = _above(core.view(), magnitude)  # type: ignore[attr-defined]
            memory.require_bytes(_BYTES_PER_ENTRY * most, f"a dictionary of {most} entries")


def _by_text(keys: np.ndarray, values: np.ndarray, n_qubits: int, progress: ProgressLike) -> dict[str, Any]:
    found: dict[str, Any] = {}
    with metered(progress, len(keys), "entries") as meter:
        for start in range(0, len(keys), _PIECE):
            piece = slice(start, start + _PIECE)
            texts = [bit_string(key, n_qubits) for key in keys[piece].tolist()]
            found.update(zip(texts, values[piece].tolist()))
            meter.advance(len(texts))
            meter.tell()
    return found


def _is_plain(array: np.ndarray) -> bool:
    """Whether the core can fill an array where it lies."""
    return array.flags.c_contiguous and array.flags.aligned and array.dtype.isnative


def _above(amplitudes: np.ndarray, magnitude: float) -> int:
    piece = 2**18
    count = 0
    for start in range(0, len(amplitudes), piece):
        count += int(np.count_nonzero(np.abs(amplitudes[start : start + piece]) > magnitude))
    return count
