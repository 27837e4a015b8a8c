"""The final state of a run, which there may not be, or not yet."""

from __future__ import annotations

from collections.abc import Callable
from typing import TypeVar

from ..programs.background import in_background
from ..results.plan import Plan
from ..states.statevector import StateVector

T = TypeVar("T")


def listened(state: StateVector, work: Callable[[], T]) -> T:
    """Return what `work` finds in a state. One in a file is read for long: Ctrl-C is heard meanwhile."""
    return in_background(work) if state._is_stored else work()


class Final:
    """Has the final state of the active qubits; a function makes it where it is not kept, once it is asked for."""

    plan: Plan
    _state: StateVector | Callable[[], StateVector] | None

    @property
    def has_state(self) -> bool:
        """Whether there is one final state: outcomes in the middle of the circuit, if any, were certain."""
        return self._state is not None

    @property
    def compact_state(self) -> StateVector:
        """The final state of the active qubits alone: its qubit q is qubit ``active_qubits[q]`` of the circuit.

        Raises
        ------
        RuntimeError
            If there is none, because outcomes in the middle of the circuit differ from shot to shot, or of noise; if it
            lies in a file.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> result = run(Circuit(40).h(20))
        >>> result.active_qubits, result.compact_state.array.round(6).tolist()
        ((20,), [(0.707107+0j), (0.707107+0j)])
        """
        state = self._final()
        if state._is_stored:
            raise RuntimeError(
                "the state lies in a file, where gates of its own must not change it: result.probability, distribution, "
                "amplitude, expectation and the other methods answer from there, and result.statevector() copies it into "
                "memory"
            )
        return state

    def _final(self) -> StateVector:
        """Return the same, to read: also one that lies in a file."""
        state = self._state
        if state is None and self.plan.method != "statevector":
            raise RuntimeError(
                "there is no one final state: the run was one with noise, which leaves a mixture. Circuit.save_state at the "
                "end keeps it as a DensityMatrix; outcomes() and run(..., observables=...) tell of it"
            )
        if state is None:
            raise RuntimeError(
                "there is no one final state: the circuit measures or resets qubits in its middle, and the state "
                "depends on the outcome, which differs from shot to shot. The counts tell how often each came, and "
                "run(..., observables=...) the means of expectation values"
            )
        if not isinstance(state, StateVector):
            self._state = state = state()
        return state
