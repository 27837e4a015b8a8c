"""What a run's final state answers, in the qubits of the circuit."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..machine import memory
from ..programs.progress import ProgressLike
from ..states.base import Qubits, StateBase, highest_first
from ..states.overlaps import other_state
from ..states.parts import places
from ..states.statevector import StateVector
from .final import Final


class Answers(Final):
    """Questions to the final state, as `Result.state` has it: measurements at the end do not show.

    Qubits are the circuit's. Those that are not active are 0 and need no memory.
    """

    n_qubits: int
    active_qubits: tuple[int, ...]

    def overlap(
        self,
        other: Answers | StateVector | Sequence[complex] | np.ndarray,
        order: Order = "little",
        progress: ProgressLike = None,
    ) -> complex:
        """Return the inner product of the final state, conjugated, and another: <self|other>.

        Parameters
        ----------
        other : Result, StateVector, or array_like of shape (2**n_qubits,)
            On as many qubits as the circuit. A Result stands for its final state.
        order, progress
            As for `StateVector.overlap`.

        Raises
        ------
        TypeError, ValueError, MemoryError
            As for `StateVector.overlap`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> one, other = run(Circuit(100).h(2)), run(Circuit(100).h(2).x(70))
        >>> round(one.overlap(one).real, 6), one.overlap(other)
        (1.0, 0j)
        """
        state, n = self._final(), self.n_qubits
        if isinstance(other, Answers):
            if other.n_qubits != n:
                raise ValueError(f"other must have {n} qubit(s), as this result, got a Result of {other.n_qubits}")
            if checks.order(order) == "big":
                raise ValueError('order must be left away beside a Result, which has its own order, got "big"')
            ket: StateBase = other._final()
            active = other.active_qubits
        else:
            ket = other_state(other, n, order, state.threads)
            active = tuple(range(n))
        # Where one has a qubit at 0 throughout, only what has it at 0 in the other counts.
        shared = tuple(qubit for qubit in self.active_qubits if qubit in active)
        bra = _where_others_are_0(state, self.active_qubits, shared)
        return bra.overlap(_where_others_are_0(ket, active, shared), progress=progress)

    def fidelity(
        self,
        other: Answers | StateVector | Sequence[complex] | np.ndarray,
        order: Order = "little",
        progress: ProgressLike = None,
    ) -> float:
        """Return the squared magnitude of the overlap with another state.

        Parameters
        ----------
        other, order, progress
            As for `overlap`.

        Raises
        ------
        TypeError, ValueError, MemoryError
            As for `StateVector.fidelity`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, StateVector, run
        >>> result = run(Circuit(3).h(0).cx(0, 2))
        >>> round(result.fidelity(StateVector(3)), 6), round(result.fidelity(result), 6)
        (0.5, 1.0)
        """
        overlap = self.overlap(other, order, progress)
        return overlap.real * overlap.real + overlap.imag * overlap.imag

    def reduced(self, qubits: Qubits, order: Order = "little", progress: ProgressLike = None) -> np.ndarray:
        """Return the density matrix of the listed qubits, the others traced out.

        Parameters
        ----------
        qubits, order, progress
            As for `StateVector.reduced`.

        Returns
        -------
        numpy.ndarray, shape (2**k, 2**k)
            ``complex128``.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `StateVector.reduced`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).h(98)).reduced([98, 3]).real.round(6).diagonal().tolist()
        [0.5, 0.5, 0.0, 0.0]
        """
        state, listed = self._final(), self._checked(qubits)
        highest = highest_first(listed, order)
        active = self._active(highest)
        if len(active) == len(listed):
            return state.reduced(active, "big", progress)
        needed = (16 << 2 * len(listed)) + (16 << 2 * len(active))
        memory.require_bytes(needed, f"the density matrix of {len(listed)} qubits")
        whole = np.zeros((2 ** len(listed), 2 ** len(listed)), dtype=np.complex128)
        # The bits of a row's number that belong to active qubits, lowest first.
        bits = [bit for bit, qubit in enumerate(reversed(highest)) if qubit in self.active_qubits]
        rows = places(bits)
        whole[np.ix_(rows, rows)] = state.reduced(active, "big", progress)
        return whole

    def purity(self, qubits: Qubits | None = None, progress: ProgressLike = None) -> float:
        """Return the trace of the squared density matrix, of the listed qubits or of all.

        Parameters
        ----------
        qubits, progress
            As for `StateVector.purity`.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `StateVector.purity`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> round(run(Circuit(100).h(2).cx(2, 98)).purity([0, 2]), 6)
        0.5
        """
        state = self._final()
        return state.purity(None if qubits is None else self._active(self._checked(qubits)), progress)

    def entropy(self, qubits: Qubits, progress: ProgressLike = None) -> float:
        """Return the von Neumann entropy of the listed qubits, in bits.

        Parameters
        ----------
        qubits, progress
            As for `StateVector.entropy`.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `StateVector.entropy`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> round(run(Circuit(100).h(2).cx(2, 98)).entropy([0, 2]), 6)
        1.0
        """
        state = self._final()
        return state.entropy(self._active(self._checked(qubits)), progress)

    def bloch_vector(self, qubit: int, progress: ProgressLike = None) -> np.ndarray:
        """Return the expectation values of X, Y and Z of one qubit, shape (3,).

        Parameters
        ----------
        qubit, progress
            As for `StateVector.bloch_vector`.

        Raises
        ------
        TypeError, IndexError
            As for `StateVector.bloch_vector`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).x(98)).bloch_vector(98).tolist()
        [0.0, 0.0, -1.0]
        """
        state, number = self._final(), checks.qubit(qubit, self.n_qubits)
        if number in self.active_qubits:
            return state.bloch_vector(self.active_qubits.index(number), progress)
        return np.array([0.0, 0.0, state.probability(0, ())])

    def schmidt(self, qubits: Qubits, progress: ProgressLike = None) -> np.ndarray:
        """Return the Schmidt coefficients between the listed qubits and the others, largest first.

        Parameters
        ----------
        qubits, progress
            As for `StateVector.schmidt`. That has the vectors, too: ask it of `state` or `compact_state`.

        Returns
        -------
        numpy.ndarray, shape (2**min(k, m - k),)
            For k listed ones of m active qubits. Qubits that are not active would add zeros alone.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `StateVector.schmidt`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).h(2).cx(2, 98)).schmidt([0, 2]).round(6).tolist()
        [0.707107, 0.707107]
        """
        coefficients: Any = self._final().schmidt(self._active(self._checked(qubits)), progress=progress)
        return np.asarray(coefficients)

    def _checked(self, qubits: Qubits) -> tuple[int, ...]:
        return checks.qubits(qubits, self.n_qubits, at_least=0)

    def _active(self, qubits: Sequence[int]) -> list[int]:
        """Return the places in `compact_state` of those of the qubits that are active."""
        place = {qubit: place for place, qubit in enumerate(self.active_qubits)}
        return [place[qubit] for qubit in qubits if qubit in place]


def _where_others_are_0(state: StateBase, qubits: Sequence[int], kept: Sequence[int]) -> Any:
    """Return a state of `kept`, some of the qubits that the state has: its amplitudes where the others are 0."""
    if len(kept) == len(qubits):
        return state
    source = state._live().view()
    memory.require_bytes((8 + source.itemsize) << len(kept), f"the amplitudes of {len(kept)} qubits")
    amplitudes = source[places([place for place, qubit in enumerate(qubits) if qubit in kept])]
    made = state._another(len(kept), state.precision, state.threads)
    made._set_amplitudes(amplitudes, "little")
    state._live().require_whole()
    return made
