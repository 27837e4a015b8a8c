"""Runs a circuit with everything in it: measurements, resets, conditions, idle qubits."""

from __future__ import annotations

import secrets
import time
from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.types import Order, Precision, Seed
from ..circuit.circuit import Circuit
from ..core import extension
from ..machine import limits, memory
from ..observables.observable import Observable, ObservableLike
from ..programs.compile import described, require_circuit, require_fusion
from ..programs.prepare import Prepared, for_run, prepared
from ..programs.progress import ProgressLike, metered
from ..programs.progress import checked as checked_progress
from ..programs.segments import Segments
from ..results import shot_rows
from ..results.plan import Pass, Plan, Timings
from ..states.statevector import StateVector
from . import observing
from .branches import Branch, Branching
from .initial import InitialLike, Start
from .result import Result
from .saved import Saver

__all__ = ["run"]


def run(
    circuit: Circuit,
    shots: int | None = None,
    seed: Seed | None = None,
    threads: int | None = None,
    precision: Precision = "double",
    observables: None | ObservableLike | Sequence[ObservableLike] = None,
    initial: InitialLike = None,
    progress: ProgressLike = None,
    fusion: bool = False,
    initial_order: Order | None = None,
) -> Result:
    """Run a circuit.

    Parameters
    ----------
    circuit : Circuit
        With measurements, resets, conditions, decisions and loops anywhere. Qubits that no gate touches take no memory.
    shots : int, optional
        How many outcomes to draw, at least 1: of the classical bits, or of all qubits if nothing is measured.
    seed : int, numpy.random.Generator or numpy.random.SeedSequence, optional
        As for `StateVector`. The same seed gives the same shots, whatever the number of threads.
    threads : int, optional
        As for `StateVector`.
    precision : {"double", "single"}
        16 or 8 bytes per amplitude.
    observables : Observable, str, dict, or a list of these, optional
        Whose exact expectation values to tell: those after all instructions, measurements included. So a term with X or
        Y on a qubit that is measured at the end counts 0, and a UserWarning says so; leave the measurement away for the
        value before it. If outcomes in the middle of the circuit differ, the mean over the shots.
    initial : int, str, array_like of shape (2**n_qubits,) or StateVector, optional
        The state to begin with: a number or a text as `StateVector.set_basis_state` takes it, amplitudes as
        `StateVector.set_state` takes them, or a state, which is copied. By default all qubits are 0.
    progress : None, bool or callable
        True shows a bar on standard error once a second has passed. A function is called with a `Progress`, at most
        every 50 ms, and once at the end; what it returns is ignored, an exception ends the run.
    fusion : bool
        Whether neighbouring gates may be multiplied together and commuting ones exchanged: faster, and equal up to
        rounding. The bits then follow from the circuit, its number of qubits and the precision; neither the number of
        threads nor the processor's caches change them.
    initial_order : {"big", "little"}, optional
        Whether qubit 0 is the highest bit of the number, text or index that `initial` is, or the lowest. By default the
        highest of a number or text, and the lowest of an index, as in `StateVector.array`; an array without it gives a
        FutureWarning, in this version only, where the two would be different states.

    Returns
    -------
    Result
        Counts, shots, final state, expectation values, timings and plan.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range, the circuit has parameters without values, or there
        are no shots although outcomes in the middle of the circuit differ.
    MemoryError
        If the state or the shots do not fit.
    KeyboardInterrupt
        After Ctrl-C, between two passes over the state.

    Notes
    -----
    Measurements at the end of the circuit are sampled from one simulation. Where an outcome is needed earlier, because
    its qubit is used again or a condition asks for its bit, the shots are shared out among the outcomes by one
    multinomial draw, and every group goes on with a state of its own. So there is one simulation for every group of
    equal outcomes, not for every shot, and the distribution is that of the ideal circuit. At most log2(shots) + 2
    states exist at a time, usually two or three.

    Examples
    --------
    >>> from velacamplix import Circuit, run
    >>> run(Circuit(2).h(0).cx(0, 1), shots=1000, seed=1).counts            # doctest: +ELLIPSIS
    {'00': 4..., '11': 5...}
    >>> coin_until_one = Circuit(1, 1).h(0).measure(0, 0)
    >>> for attempt in range(40):
    ...     with coin_until_one.when("c", 0):
    ...         _ = coin_until_one.h(0)
    ...     _ = coin_until_one.measure(0, 0)
    >>> run(coin_until_one, shots=1000, seed=1).counts["1"]
    1000
    """
    require_circuit(circuit)
    request = _Request(
        None if shots is None else checks.shots(shots, minimum=1),
        checks.seed(seed),
        limits.thread_count(threads),
        checks.precision(precision),
        None if observables is None else observing.checked(observables, circuit.n_qubits),
        Start(initial, circuit.n_qubits, initial_order),
        progress,
    )
    checked_progress(progress)
    fused = require_fusion(fusion)

    clock = _Clock()
    nonzero = request.start.nonzero
    with prepared(
        circuit, ("run", nonzero, request.precision, fused), lambda: for_run(circuit, nonzero, request.precision, fused)
    ) as found:
        return _carried_out(circuit, found, request, clock)


class _Request(NamedTuple):
    """The checked arguments of `run`."""

    shots: int | None
    seed: int | None
    threads: int
    precision: Precision
    observed: observing.Observed | None
    start: Start
    progress: ProgressLike


def _carried_out(circuit: Circuit, found: Prepared, request: _Request, clock: _Clock) -> Result:
    segments, shots = found.segments, request.shots
    n_bits = circuit.n_clbits if segments.has_measurement else circuit.n_qubits
    if shots is not None:
        memory.require_bytes(8 * shot_rows.words_for(n_bits) * shots, f"shots={shots} of {n_bits} bits")
    state = StateVector._another(len(segments.active), request.precision, request.threads)
    request.start.prepare(state, segments.active)
    plan = _plan_of(found, state.threads)
    clock.note("compile")

    seed = secrets.randbits(32) if request.seed is None else request.seed

    drawn = None if shots is None else np.empty((shots, shot_rows.words_for(n_bits)), dtype=np.uint64)
    n_drawn = 0
    observed = request.observed
    sums: Any = 0.0
    reduced: dict[frozenset[int], list[Observable]] = {}  # by the qubits that have been measured
    saver = Saver(segments, circuit.n_qubits, request.precision)
    with metered(request.progress, plan.gates, "gates") as meter:
        branching = Branching(segments, meter, seed, lambda step: described(step, circuit), saver.keep)
        for branch in branching.branches(state, shots):
            clock.note("simulate")
            if drawn is not None:
                assert branch.shots is not None
                # Without a split the shots are those of a state with this seed.
                own = int(branching.generator.integers(2**32)) if branching.has_split else seed
                extension.set_seed(branch.state._live(), own)
                _sample(branch, segments, drawn[n_drawn : n_drawn + branch.shots], n_bits)
                n_drawn += branch.shots
                clock.note("sample")
            measured = frozenset(branch.measured)
            if observed is not None:
                if measured not in reduced:
                    reduced[measured] = observed.on(segments.active, measured)
                weight = branch.shots / shots if branch.shots and shots else 1.0
                sums += weight * observing.values(branch.state, reduced[measured])
                clock.note("observables")
            state = branch.state

    if observed is not None:
        observed.warn(segments.active, reduced, stacklevel=3)
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
        saved=saver.saved(stacklevel=3),
        timings=clock.timings(),
        plan=plan,
    )


def _plan_of(found: Prepared, threads: int) -> Plan:
    if found.plan is not None and found.plan[0] == threads:
        return found.plan[1]
    active = found.segments.active
    gates, sweeps = 0, 0.0
    passes: list[Pass] = []
    for program in found.programs:
        more, pieces = program.plan(len(active), threads)
        sweeps += more
        for first, last, local, _ in pieces:
            passes.append(Pass(gates + first, gates + last, tuple([active[place] for place in local])))
        gates += len(program)
    plan = Plan(gates, tuple(passes), sweeps)
    found.plan = threads, plan
    return plan


def _sample(branch: Branch, segments: Segments, rows: np.ndarray, n_bits: int) -> None:
    """Draw the outcomes of a branch's shots, one row each."""
    place = segments.place
    if segments.has_measurement:
        readings, known = branch.readings, branch.bits
    else:
        readings, known = {qubit: qubit for qubit in segments.active}, 0
    if 0 < n_bits <= 64 and len(set(readings.values())) == n_bits:
        # Every bit is read from a qubit of its own: what is drawn is the row.
        qubits = [place[readings[bit]] for bit in range(n_bits)]
        for start, stop in branch.state._pieces(len(rows)):
            branch.state._draw(rows[start:stop, 0], qubits)
        return
    # A qubit may be read into several bits, but is drawn once.
    column: dict[int, int] = {}
    sources: list[tuple[bool, int]] = []
    for bit in range(n_bits):
        if bit in readings:
            sources.append((True, column.setdefault(readings[bit], len(column))))
        else:
            sources.append((False, known >> bit & 1))
    qubits = [place[qubit] for qubit in column]
    for start, stop in branch.state._pieces(len(rows)):
        sampled: np.ndarray = np.zeros(stop - start, dtype=np.uint64)
        branch.state._draw(sampled, qubits)
        shot_rows.assemble(rows[start:stop], sources, sampled, len(column))


class _Clock:
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
