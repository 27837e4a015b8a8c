"""What a run keeps of its states on the way."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.types import Precision
from ..basics.words import shortened
from ..core import extension
from ..instructions.flow import Save
from ..machine import memory
from ..observables.observable import Observable
from ..programs.segments import Saving, Segments
from ..states.base import StateBase
from ..states.densitymatrix import DensityMatrix
from ..states.mixing import MixedBranch, add, divide, forget
from ..states.statevector import StateVector
from . import observing
from .branches import IMPOSSIBLE, Branch
from .spread import spread, whole_state

__all__ = ["Saved"]


_CURE = ". Save before the measurement that parts them; save_probabilities and save_expectation tell means"


class Saved(Mapping[str, Any]):
    """What a circuit's saves kept, by name, in the order they stand in the circuit: ``Result.saved``. Made by `run`.

    A `StateVector` of all qubits from `Circuit.save_state`, a ``float64`` array of shape (2**k,) from
    `Circuit.save_probabilities`, a number from `Circuit.save_expectation`. Asking for a state of which there is not one, or
    for what no shot came to, raises RuntimeError; ``name in saved`` and ``list(saved)`` tell the names.

    With noise a state is a `DensityMatrix`, that of the mean over all outcomes that come there, and only exact runs keep it;
    what is saved by trajectories is the mean over the shots that come there.

    Examples
    --------
    >>> from velacamplix import Circuit, run
    >>> circuit = Circuit(1, 1).save_state("start").h(0).save_probabilities("coin").measure(0, 0).save_state("fallen")
    >>> saved = run(circuit, shots=100, seed=1).saved
    >>> saved
    <Saved: 'start' (state), 'coin' (2 probabilities), 'fallen' (no one state)>
    >>> saved["start"].to_dict(), saved["coin"].round(6).tolist()
    ({'0': (1+0j)}, [0.5, 0.5])
    """

    def __init__(self, n_qubits: int, active: tuple[int, ...], kept: dict[str, Kept]) -> None:
        self._n_qubits, self._active, self._kept = n_qubits, active, kept

    def __getitem__(self, name: str) -> Any:
        kept = self._kept.get(name) if isinstance(name, str) else None
        if kept is None:
            known = f"one of {checks.show(list(self._kept))}" if self._kept else "of which the circuit has none"
            raise KeyError(f"name must be that of a save, {known}, got {checks.show(name)}")
        if kept.missing is not None:
            raise RuntimeError(f"{checks.show(name)}: {kept.missing}")
        if isinstance(kept.value, StateBase) and kept.value.n_qubits < self._n_qubits:
            cure = "save_probabilities and save_expectation answer in the circuit's qubits without it"
            kept.value = whole_state(kept.value, self._active, self._n_qubits, f"for {checks.show(name)}, {cure}")
        return kept.value

    def __iter__(self) -> Iterator[str]:
        return iter(self._kept)

    def __len__(self) -> int:
        return len(self._kept)

    def numbers(self) -> dict[str, Any]:
        """Return what there is of probabilities and expectation values, by name."""
        return {
            name: kept.value
            for name, kept in self._kept.items()
            if kept.missing is None and kept.kind in ("probabilities", "expectation")
        }

    def __repr__(self) -> str:
        listed = ", ".join([f"{checks.show(name)} ({kept.told()})" for name, kept in self._kept.items()])
        return f"<Saved: {listed or 'nothing'}>"


class Kept:
    """One thing that was kept: a value, or why there is none; and for how many shots."""

    def __init__(self, kind: str) -> None:
        self.kind = kind
        self.value: Any = None
        self.missing: str | None = "no shot came to where it is saved"
        self.visits = 0  # by groups of shots, of a state
        self._shots: float | None = None

    def add(self, value: Any, shots: float) -> None:
        """Take a value of some shots, or of their probability, into the mean."""
        self.missing = None
        if self._shots is None:
            self.value, self._shots = value, shots  # of one group of shots as it is, to the last bit
            return
        total = self._shots + shots
        self.value = self.value * (self._shots / total) + value * (shots / total)
        self._shots = total

    def told(self) -> str:
        """Return what it is, in short."""
        if self.missing is not None:
            return "no one state" if self.visits else "nothing"
        if self.kind == "probabilities":
            return f"{len(self.value)} probabilities"
        return {"state": "state", "density": "density matrix"}.get(self.kind) or repr(self.value)


class Saver:
    """Keeps what the saves of a circuit ask for, branch by branch.

    Raises
    ------
    MemoryError
        If all of it together would not fit, before the run has begun.
    """

    _kind_of_states = "state"

    def __init__(self, segments: Segments, n_qubits: int, precision: Precision, lost: observing.Lost) -> None:
        self._active, self._n_qubits = segments.active, n_qubits
        self._places = segments.place
        self._kept: dict[str, Kept] = {}
        self._observed: dict[str, observing.Observed] = {}
        self._lost = lost
        needed = 0
        for step in segments.steps:
            if isinstance(step, Saving):
                detail = _detail(step)
                self._kept[detail.label] = Kept(self._kind_of_states if detail.kind == "state" else detail.kind)
                if detail.kind == "state":
                    sides = 2 if self._kind_of_states == "density" else 1  # ket and bra
                    needed += memory.BYTES_PER_AMPLITUDE[precision] << sides * len(segments.active)
                elif detail.kind == "probabilities":
                    needed += 8 << len(step.source.qubits)
                else:
                    self._observed[detail.label] = observing.Observed([Observable(list(detail.terms))], False)
        if needed:
            memory.require_bytes(needed, "what the circuit saves, " + shortened(", ".join(map(checks.show, self._kept))))

    def keep(self, step: Saving, branch: Branch) -> None:
        """Keep what a save asks of a branch."""
        detail, measured = _detail(step), step.measured.union(branch.measured)
        kept, shots = self._kept[detail.label], branch.shots or 1
        try:
            if detail.kind == "state":
                self._keep_state(kept, branch, measured)
            elif detail.kind == "probabilities":
                kept.add(self._distribution(branch.state.distribution, step.source.qubits), shots)
            else:
                observed = self._observed[detail.label]
                self._lost.add(detail.label, observed.lost(self._active, [measured]))
                values = observing.values(branch.state, observed.on(self._active, measured))
                kept.add(observed.shaped(values), shots)
        except MemoryError as error:
            raise MemoryError(f"{step.source.title}: {error}") from None

    def saved(self) -> Saved:
        """Return all that was kept."""
        return Saved(self._n_qubits, self._active, self._kept)

    def _keep_state(self, kept: Kept, branch: Branch, measured: frozenset[int]) -> None:
        kept.visits += 1
        if kept.visits > 1:
            kept.value = None
            kept.missing = f"there is no one state: the shots that come there differ in outcomes before{_CURE}"
            return
        uncertain = self._uncertain(branch.state, measured)
        if uncertain is not None:
            kept.missing = (
                f"there is no one state: qubit {uncertain} has been measured before, with more than one possible outcome{_CURE}"
            )
            return
        state = branch.state
        copied = StateVector._another(state._n_qubits, state._precision, state._threads)
        extension.copy_amplitudes(state._live(), copied._live().view(), False)
        kept.value, kept.missing = copied, None

    def _uncertain(self, state: StateVector, measured: frozenset[int]) -> int | None:
        """Return a measured qubit whose outcome is open, or None."""
        for qubit in sorted(measured.intersection(self._active)):
            zero, one = state._live().distribution([self._places[qubit]]).tolist()
            if min(zero, one) > IMPOSSIBLE[state.precision] * (zero + one):
                return qubit
        return None

    def _distribution(self, of_places: Callable[[list[int]], np.ndarray], qubits: Sequence[int]) -> np.ndarray:
        active = [self._places[qubit] for qubit in qubits if qubit in self._places]
        if len(active) == len(qubits):
            return of_places(active)
        memory.require_bytes((8 << len(qubits)) + (8 << len(active)), f"the distribution of {len(qubits)} qubits")
        whole: np.ndarray = np.zeros(2 ** len(qubits))
        spread(of_places(active), whole, qubits, self._active)
        return whole


class MixedSaver(Saver):
    """Keeps what the saves of a circuit ask for of density matrices: the mean over all outcomes that come there."""

    _kind_of_states = "density"

    def keep_mixed(self, step: Saving, branch: MixedBranch, measured: frozenset[int]) -> None:
        """Keep what a save asks of a branch; `measured` are the qubits measured before."""
        detail, rho = _detail(step), branch.rho
        assert isinstance(rho, DensityMatrix)
        kept, share = self._kept[detail.label], rho.trace()
        open_places = [self._places[qubit] for qubit in sorted(step.measured) if qubit in self._places]
        try:
            if detail.kind == "state":
                self._add_state(kept, rho, open_places)
            elif detail.kind == "probabilities":
                kept.add(self._distribution(lambda places: rho._marginal(places).reshape(-1) / share, step.source.qubits), share)
            else:
                observed = self._observed[detail.label]
                self._lost.add(detail.label, observed.lost(self._active, [measured]))
                (observable,) = observed.on(self._active, step.measured)
                # A constant is told as it is, whatever the trace.
                value = observable.constant + rho.expectation(observable - observable.constant) / share
                kept.add(observed.shaped(np.array([value], dtype=np.complex128)), share)
        except MemoryError as error:
            raise MemoryError(f"{step.source.title}: {error}") from None

    def saved(self) -> Saved:
        """Return all that was kept, density matrices with trace 1."""
        for kept in self._kept.values():
            if kept.kind == "density" and kept.missing is None:
                divide(kept.value, kept.value.trace())
            kept._shots = None
        return super().saved()

    def _add_state(self, kept: Kept, rho: DensityMatrix, open_places: Sequence[int]) -> None:
        copied = rho.copy()
        forget(copied, open_places)
        if kept.missing is None:
            add(copied, kept.value)
        else:
            kept.value, kept.missing = copied, None


def _detail(step: Saving) -> Save:
    detail = step.source.detail
    assert isinstance(detail, Save)
    return detail
