"""One run of one circuit."""

from __future__ import annotations

import secrets
import time
from collections.abc import Callable
from contextlib import AbstractContextManager
from functools import partial
from typing import Any, NamedTuple, TypeVar

import numpy as np

from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..core import extension
from ..machine import memory
from ..observables.observable import Observable
from ..programs.background import in_background
from ..programs.compile import described
from ..programs.prepare import Prepared, for_run, prepared
from ..programs.progress import ProgressLike, metered
from ..programs.segments import Segments
from ..results import shot_rows
from ..results.plan import Plan, Timings
from ..states.statevector import StateVector
from . import observing
from .branches import Branching
from .initial import Start
from .readout import Readout
from .result import Result
from .saved import Saver

T = TypeVar("T")


class Request(NamedTuple):
    """The checked arguments of `velacamplix.run`.

    `is_noisy` if every circuit is run as one with noise, whether there is some or not; `method` and `first_shot` are for
    such runs. `rank_bits` is the number in the schedule ``canonical:N``, None for the order as it is written.
    """

    shots: int | None
    seed: int | None
    threads: int
    precision: Precision
    observed: observing.Observed | None
    start: Start
    progress: ProgressLike
    fused: bool
    is_noisy: bool = False
    method: str = "auto"
    first_shot: int | None = None
    rank_bits: int | None = None

    def prepared(self, circuit: Circuit, parts_bits: int = 0) -> AbstractContextManager[Prepared]:
        """Give the circuit's steps and programs, perhaps those of the last time; of its state 2**parts_bits parts are to fit."""
        how = self.start.nonzero, self.precision, self.fused, self.rank_bits, parts_bits
        return prepared(circuit, ("run", *how), lambda: for_run(circuit, *how))


def run_alone(circuit: Circuit, request: Request, lost: observing.Lost) -> Result:
    """Return the result of a circuit; `lost` as for `carried_out`."""
    clock = Clock()
    with request.prepared(circuit) as found:
        return carried_out(circuit, found, request, clock, lost)


def carried_out(
    circuit: Circuit, found: Prepared, request: Request, clock: Clock, lost: observing.Lost
) -> Result:
    """Return the result of a prepared circuit; what there is to warn of comes into `lost`."""
    segments = found.segments
    require_shots(circuit, segments, request.shots)
    state = StateVector._another(len(segments.active), request.precision, request.threads, is_run_next=True)
    request.start.prepare(state, segments.active)
    plan = found.planned(state.threads)
    clock.note("compile")
    return answered(circuit, segments, state, plan, request, clock, lost)


def require_shots(circuit: Circuit, segments: Segments, shots: int | None) -> None:
    """Raise MemoryError if the shots do not fit."""
    if shots is not None:
        n_bits = _bits_of(circuit, segments)
        memory.require_bytes(8 * shot_rows.words_for(n_bits) * shots, f"shots={shots} of {n_bits} bits")


def _bits_of(circuit: Circuit, segments: Segments) -> int:
    return circuit.n_clbits if segments.has_measurement else circuit.n_qubits


def answered(
    circuit: Circuit, segments: Segments, state: StateVector, plan: Plan, request: Request, clock: Clock, lost: observing.Lost
) -> Result:
    """Return the result of a circuit whose steps are still to be taken from a state; `lost` as for `carried_out`."""
    shots, n_bits = request.shots, _bits_of(circuit, segments)
    # A file is read for long, and nobody hears meanwhile.
    heard = in_background if state._is_stored else _at_once
    seed = secrets.randbits(32) if request.seed is None else request.seed

    drawn = None if shots is None else np.empty((shots, shot_rows.words_for(n_bits)), dtype=np.uint64)
    n_drawn = 0
    observed = request.observed
    sums: Any = 0.0
    reduced: dict[frozenset[int], list[Observable]] = {}  # by the qubits that have been measured
    saver = Saver(segments, circuit.n_qubits, request.precision, lost)
    with metered(request.progress, plan.gates, "gates") as meter:
        branching = Branching(segments, meter, seed, lambda step: described(step, circuit), saver.keep)
        for branch in branching.branches(state, shots):
            clock.note("simulate")
            if drawn is not None:
                assert branch.shots is not None
                # Without a split the shots are those of a state with this seed.
                own = int(branching.generator.integers(2**32)) if branching.has_split else seed
                extension.set_seed(branch.state._live(), own)
                readout = Readout(segments, branch.readings, branch.bits, n_bits)
                heard(partial(readout.draw, branch.state, drawn[n_drawn : n_drawn + branch.shots]))
                n_drawn += branch.shots
                clock.note("sample")
            measured = frozenset(branch.measured)
            if observed is not None:
                if measured not in reduced:
                    reduced[measured] = observed.on(segments.active, measured)
                weight = branch.shots / shots if branch.shots and shots else 1.0
                sums += weight * heard(partial(observing.values, branch.state, reduced[measured]))
                clock.note("observables")
            state = branch.state

    if observed is not None:
        lost.add(None, observed.lost(segments.active, reduced))
    if drawn is not None and branching.has_split:
        # The groups stand one after the other; nothing of that shall show.
        shot_rows.shuffle(drawn, branching.generator)
        clock.note("sample")
    return Result(
        n_qubits=circuit.n_qubits,
        n_clbits=circuit.n_clbits,
        registers=circuit.registers,
        is_of_clbits=segments.has_measurement,
        n_shots=shots,
        seed=None if shots is None else seed,
        precision=request.precision,
        threads=state.threads,
        active_qubits=segments.active,
        rows=drawn,
        state=None if branching.has_split else state,
        measured=measured,
        measured_bits=segments.written_bits,
        readings=branch.readings,
        known_bits=branch.bits,
        expectation_values=None if observed is None else observed.shaped(sums),
        saved=saver.saved(),
        timings=clock.timings(),
        plan=plan,
    )


def _at_once(work: Callable[[], T]) -> T:
    return work()


class Clock:
    """Adds up the seconds between notes."""

    def __init__(self) -> None:
        self._seconds = dict.fromkeys(Timings._fields, 0.0)
        self._last = time.perf_counter()

    def note(self, name: str) -> None:
        now = time.perf_counter()
        self._seconds[name] += now - self._last
        self._last = now

    def timings(self) -> Timings:
        return Timings(**self._seconds)
