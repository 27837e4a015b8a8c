"""Runs a circuit with noise by trajectories, on pure states that share what they have in common."""

from __future__ import annotations

import secrets
from typing import Any, NamedTuple

import numpy as np

from ..basics.types import Precision
from ..basics.words import counted
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.instruction import Instruction
from ..machine import memory
from ..programs.compile import described
from ..programs.drive import heard
from ..programs.noisy import PreparedTrajectories
from ..programs.prepare import prepared
from ..programs.progress import metered
from ..programs.segments import Measurement, Segments
from ..results import shot_rows
from ..states.statevector import StateVector
from . import observing
from .costs import Outlook
from .initial import Start
from .saved import Saved, Saver
from .shot_walk import Company, Flips, ShotWalk, flips_of
from .single import Request

# Whether shots share what they have in common; tests look whether anything depends on it.
SHARES_PREFIXES = True

_BYTES_PER_SHOT = 48  # while it waits for its event, in the core
_REFUSED_IN_THE_CORE = "std::bad_alloc"
_BYTES_PER_VALUE = 40  # of an observable in a shot, while errors are formed

# From so many qubits on the core's threads share a state, as they do where nothing can happen.
_FEWEST_SHARED_QUBITS = 18


class Trajectories(NamedTuple):
    """What a run by trajectories tells.

    Attributes
    ----------
    active_qubits : tuple of int
        All others are 0.
    written_bits : tuple of int
        Classical bits that the circuit measures into.
    gates : int
        Those of a run without events.
    distinct : int
        Different trajectories among the shots.
    rows : numpy.ndarray, shape (shots, words)
    seed : int
        What they were drawn with.
    means, standard_errors : numpy.ndarray
        Of the observables.
    saved : Saved
    """

    active_qubits: tuple[int, ...]
    written_bits: tuple[int, ...]
    gates: int
    distinct: int
    rows: np.ndarray
    seed: int
    means: np.ndarray
    standard_errors: np.ndarray
    saved: Saved


def looked_at(circuit: Circuit, request: Request) -> tuple[Outlook, int]:
    """Return what is known of a circuit before it runs, and how many bytes the states of `run_trajectories` would take."""
    with _prepared(circuit, request) as found:
        assert isinstance(found, PreparedTrajectories)
        return Outlook.of(found), _state_bytes(found, request)


class Part(NamedTuple):
    """What some of a run's shots have given; attributes as of `Trajectories`.

    Attributes
    ----------
    distinct : int
    means, standard_errors : numpy.ndarray
        Of circuits that are gates and channels, then measurements; there with `records` in place of all three.
    records : tuple of numpy.ndarray or None
        Histories, shots and values, which `extension.combined_trajectories` takes.
    values : numpy.ndarray of shape (shots, observables), or None
        Of circuits in which what happens depends on outcomes.
    """

    active_qubits: tuple[int, ...]
    written_bits: tuple[int, ...]
    gates: int
    rows: np.ndarray
    seed: int
    saved: Saved
    distinct: int = 0
    means: Any = None
    standard_errors: Any = None
    records: Any = None
    values: Any = None

    def together(self, distinct: int, means: np.ndarray, standard_errors: np.ndarray, rows: np.ndarray) -> Trajectories:
        """Return what all shots tell."""
        return Trajectories(
            self.active_qubits, self.written_bits, self.gates, distinct, rows, self.seed, means, standard_errors, self.saved
        )


def run_trajectories(circuit: Circuit, request: Request, lost: observing.Lost) -> Trajectories:
    """Run a circuit with channels in it, with shots; what there is to warn of comes into `lost`."""
    part = made(circuit, request, lost)
    means, errors = (part.means, part.standard_errors) if part.values is None else spread(part.values)
    return part.together(part.distinct, means, errors, part.rows)


def made(circuit: Circuit, request: Request, lost: observing.Lost, are_some: bool = False) -> Part:
    """Make the shots of a request, which may be only some of a run's: then there are `records` in place of means."""
    shots, precision, observed = request.shots, request.precision, request.observed
    assert shots is not None
    number = secrets.randbits(32) if request.seed is None else request.seed
    with _prepared(circuit, request) as found:
        assert isinstance(found, PreparedTrajectories)
        segments = found.segments
        n_bits = circuit.n_clbits if segments.has_measurement else circuit.n_qubits
        words = shot_rows.words_for(n_bits)
        n_observed = 0 if observed is None else len(observed.observables)
        n, size = len(segments.active), _state_bytes(found, request)
        states = size // (memory.BYTES_PER_AMPLITUDE[precision] << n)
        memory.require_bytes(size, f"a run by trajectories, of {counted(states, 'state')} of {counted(n, 'qubit')} at a time,")
        size = 8 * words + _BYTES_PER_SHOT + _BYTES_PER_VALUE * n_observed
        memory.require_bytes(size * shots, f"shots={shots} of {n_bits} bits")
        rows = np.zeros((shots, words), dtype=np.uint64)
        saver = Saver(segments, circuit.n_qubits, precision, lost)
        run = _Made(
            circuit, found, shots, number, request.threads, precision, observed, request.start, request.first_shot or 0, rows,
            n_bits, lost, saver,
        )  # fmt: skip
        told: dict[str, Any] = {}
        with metered(request.progress, shots, "shots") as meter:
            if not found.is_plain:
                told["distinct"], told["values"] = run.together(meter)
            elif are_some:
                told["records"] = run.at_once(meter, True)
            else:
                told["distinct"], told["means"], told["standard_errors"] = run.at_once(meter, False)
        gates = sum(map(len, found.programs))
        return Part(segments.active, segments.written_bits, gates, rows, number, saver.saved(), **told)


def spread(values: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
    """Return the means over the shots, and their standard errors."""
    means = values.mean(axis=0)
    deviations = np.abs(values - means) ** 2
    return means, np.sqrt(deviations.sum(axis=0) / len(values) / max(1, len(values) - 1))


def _state_bytes(found: PreparedTrajectories, request: Request) -> int:
    """Return what the states take: one that walks and, if anything can happen, one that parts from it.

    A thread has its own or shares those of all; a state to begin with stays beside them.
    """
    n, states = len(found.segments.active), 2
    if found.is_plain:
        own = min(request.threads, request.shots or 1) if n < _FEWEST_SHARED_QUBITS else 1
        states = (2 * own if found.events_per_shot else 1) + (not request.start.is_zero)
    return states * (memory.BYTES_PER_AMPLITUDE[request.precision] << n)


def _prepared(circuit: Circuit, request: Request) -> Any:
    how = request.start.nonzero, request.precision
    return prepared(circuit, ("trajectories", *how), lambda: PreparedTrajectories(circuit, *how))


class _Made(NamedTuple):
    """One run."""

    circuit: Circuit
    found: PreparedTrajectories
    shots: int
    seed: int
    threads: int
    precision: Precision
    observed: observing.Observed | None
    start: Start
    first_shot: int
    rows: np.ndarray
    n_bits: int
    lost: observing.Lost
    saver: Saver

    def at_once(self, meter: Any, keeps_records: bool) -> tuple[Any, Any, Any]:
        """Make all shots of a circuit that is gates and channels, then measurements; return what the core tells."""
        segments = self.found.segments
        readings, measured = _readings(segments)
        if not segments.has_measurement:
            readings = {qubit: (qubit, (0.0, 0.0)) for qubit in segments.active}
        place, column = segments.place, dict[int, int]()
        sources: list[tuple[bool, int]] = []
        flips = [(0.0, 0.0)] * self.n_bits
        for bit in range(self.n_bits):
            qubit, flips[bit] = readings.get(bit, (-1, (0.0, 0.0)))
            sources.append((True, column.setdefault(qubit, len(column))) if qubit in place else (False, 0))
        qubits = [place[qubit] for qubit in column]
        outcomes = None
        if qubits:
            # What is drawn of a single word may be the row itself, its bits in the order of the row.
            is_row = self.rows.shape[1] == 1 and len(qubits) == self.n_bits
            outcomes = self.rows[:, 0] if is_row else np.zeros(self.shots, dtype=np.uint64)
        on_active = [] if self.observed is None else self.observed.on(segments.active, measured)
        initial = None
        if not self.start.is_zero:
            initial = StateVector._another(len(segments.active), self.precision, self.threads)
            self.start.prepare(initial, segments.active)
        try:
            told: tuple[Any, Any, Any] = self.found.whole.run(
                self.seed, self.first_shot, self.shots, self.threads, None if initial is None else initial._live(),
                outcomes, qubits, [observable.compiled() for observable in on_active], SHARES_PREFIXES,
                *heard(meter.within()), keeps_records,
            )  # fmt: skip
        except MemoryError as error:
            if str(error) != _REFUSED_IN_THE_CORE:
                raise
            raise MemoryError(
                f"trajectories of {counted(len(segments.active), 'qubit')}, shots={self.shots} and threads={self.threads}: "
                "the system has no memory for another state; fewer threads, or jobs of fewer shots (first_shot=), need less"
            ) from None
        if outcomes is not None and outcomes.base is not self.rows:
            shot_rows.assemble(self.rows, sources, outcomes, len(column))
        if any(map(any, flips)):
            extension.apply_readout_errors(self.rows, flips, self.seed, self.first_shot, self.threads)
        self._warn({measured})
        return told

    def together(self, meter: Any) -> tuple[int, np.ndarray]:
        """Make the shots of a circuit in which what happens depends on outcomes; return how many differ, and their values."""
        segments, observed, n = self.found.segments, self.observed, len(self.found.segments.active)
        n_observed = 0 if observed is None else len(observed.observables)
        values = np.zeros((self.shots, n_observed), dtype=np.complex128)
        reduced: dict[frozenset[int], list[Any]] = {}
        distinct = 0

        def named(step: Instruction) -> str:
            return described(step, self.circuit)

        def end(company: Company) -> None:
            nonlocal distinct
            distinct += 1
            places = company.numbers - np.uint64(self.first_shot)
            self.rows[places] = self._drawn(company)
            if observed is not None:
                measured = frozenset(company.measured)
                if measured not in reduced:
                    reduced[measured] = observed.on(segments.active, measured)
                values[places] = observing.values(company.state, reduced[measured])
            meter.advance(len(places))
            meter.tell()

        walk = ShotWalk(segments, self.seed, named, self.saver.keep, end)
        state = StateVector._another(n, self.precision, self.threads)
        numbers: np.ndarray = np.arange(self.first_shot, self.first_shot + self.shots, dtype=np.uint64)
        if self._has_room():
            self.start.prepare(state, segments.active)
            walk.start(Company(state, numbers))
        else:
            for i in range(self.shots):
                state.reset()
                self.start.prepare(state, segments.active)
                walk.start(Company(state, numbers[i : i + 1]))
        self._warn(set(reduced))
        return distinct, values

    def _has_room(self) -> bool:
        """Whether there is memory for all the states that shots in company take at most."""
        states = self.shots.bit_length() + 2
        size = states * (memory.BYTES_PER_AMPLITUDE[self.precision] << len(self.found.segments.active))
        return SHARES_PREFIXES and memory.fits(size)

    def _drawn(self, company: Company) -> np.ndarray:
        """Return the outcomes of shots at their end, one row of words each."""
        segments = self.found.segments
        column: dict[int, int] = {}
        sources: list[tuple[bool, int]] = []
        for bit in range(self.n_bits):
            if segments.has_measurement and bit not in company.readings:
                sources.append((False, company.bits >> bit & 1))
                continue
            qubit = company.readings[bit] if segments.has_measurement else bit
            known = qubit in segments.place
            sources.append((True, column.setdefault(qubit, len(column))) if known else (False, 0))
        sampled = np.zeros(len(company.numbers), dtype=np.uint64)
        if column:
            qubits = [segments.place[qubit] for qubit in column]
            extension.sample_keyed(company.state._live(), sampled, self.seed, company.numbers, 0, qubits)
        rows = np.zeros((len(sampled), self.rows.shape[1]), dtype=np.uint64)
        shot_rows.assemble(rows, sources, sampled, len(column))
        flips = [company.flips.get(bit, (0.0, 0.0)) for bit in range(self.n_bits)]
        if any(map(any, flips)):
            for i, shot in enumerate(company.numbers.tolist()):
                extension.apply_readout_errors(rows[i : i + 1], flips, self.seed, shot, self.threads)
        return rows

    def _warn(self, measured: set[frozenset[int]]) -> None:
        if self.observed is not None:
            self.lost.add(None, self.observed.lost(self.found.segments.active, measured))


def _readings(segments: Segments) -> tuple[dict[int, tuple[int, Flips]], frozenset[int]]:
    """Return which qubit each bit is read from and how it is misread, and the qubits that are measured."""
    readings: dict[int, tuple[int, Flips]] = {}
    measured: set[int] = set()
    for step in segments.steps:
        if isinstance(step, Measurement):
            measured.update(step.last)
            flips = flips_of(step)
            for qubit, clbit in step.later:
                readings[clbit] = qubit, flips.get(clbit, (0.0, 0.0))
    return readings, frozenset(measured)
