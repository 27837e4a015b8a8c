"""Many runs in one call: circuits that end without a decision side by side, the others one after another."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from contextlib import ExitStack, contextmanager
from functools import partial
from time import perf_counter
from typing import Any, NamedTuple

import numpy as np

from ..basics.words import counted
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.binding import Template
from ..machine import memory
from ..observables.observable import Observable
from ..programs.drive import heard
from ..programs.prepare import HasNoise, Prepared
from ..programs.progress import AnyMeter, metered
from ..programs.segments import Measurement, Segments, Stretch
from ..results.plan import Timings
from ..states.statevector import StateVector
from . import observing
from .initial import Start
from .noisy import run_any
from .readout import Readout
from .result import Result
from .saved import Saved
from .single import Request, run_alone

# So many circuits are prepared at a time: bounds what their programs take.
_AT_ONCE = 1024

# What a result takes besides its shots and state, and the circuit it makes its state from.
_BYTES_PER_RESULT = 4096

# From so many qubits on the core's threads share a state. Plans are told as they are made.
_FEWEST_SHARED_QUBITS = 18


def member_seeds(seed: int, count: int) -> list[int]:
    """Return the seeds of the members of a batch: the words that NumPy's ``SeedSequence`` makes of the batch's own.

    >>> member_seeds(7, 3) == member_seeds(7, 5)[:3] == np.random.SeedSequence(7).generate_state(3).tolist()
    True
    """
    seeds: list[int] = np.random.SeedSequence(seed).generate_state(count).tolist()
    return seeds


def require_results(count: int, shots: int | None) -> None:
    """Raise MemoryError if so many results do not fit, their states left aside."""
    words = f"{count} results" + ("" if shots is None else f" of shots={shots} each")
    memory.require_bytes(count * (_BYTES_PER_RESULT + 8 * (shots or 0)), words)


def run_many(
    circuits: Sequence[Circuit],
    name: str,
    seed: int,
    request: Request,
    starts: Mapping[int, Start],
    keeps_states: bool,
    lost: observing.Lost,
) -> list[Result]:
    """Return the result of each circuit.

    Parameters
    ----------
    name : str
        What a circuit is called in messages, with its place in braces.
    seed : int
        Of the batch; that of the request is not asked.
    request : Request
        Its progress counts runs.
    starts : mapping of int to Start
        By the number of qubits of a circuit.
    keeps_states : bool
        Whether results get their states. Otherwise they make them when they are asked.
    lost : Lost
        As for `run_alone`.
    """
    count = len(circuits)
    require_results(count, request.shots)
    seeds = member_seeds(seed, count)
    results: list[Result] = []
    with metered(request.progress, count, "runs") as meter:
        for first in range(0, count, _AT_ONCE):
            began = perf_counter()
            some = [
                _Member(
                    place,
                    name.format(place),
                    one,
                    seeds[place],
                    request._replace(seed=seeds[place], start=starts[one.n_qubits], progress=None),
                )
                for place, one in enumerate(circuits[first : first + _AT_ONCE], first)
            ]
            found: dict[int, Result] = {}
            with ExitStack() as held:
                groups, others = _grouped(some, keeps_states, held)
                preparing = (perf_counter() - began) / len(some)
                for group in groups:
                    before = len(results) + len(found), count
                    found.update(group.results(meter, keeps_states, preparing, before, lost))
            for member in others:
                with member.told():
                    found[member.place] = result = run_any(member.circuit, member.request, lost)
                if result.has_state and not keeps_states:
                    result._state = member.state_again()
                meter.advance(1)
                meter.tell()
            results += [found[member.place] for member in some]
    return results


class _Member(NamedTuple):
    """A circuit of a batch: which, and what is asked of it."""

    place: int
    name: str
    circuit: Circuit
    seed: int
    request: Request

    @contextmanager
    def told(self) -> Iterator[None]:
        """Let exceptions tell which circuit they are about."""
        try:
            yield
        except Exception as error:
            error.add_note(f"This is about {self.name}.")
            raise

    def state_again(self) -> Callable[[], StateVector]:
        """Return what makes its final state when it is asked."""
        return partial(_final_state, self.circuit, self.request._replace(observed=None))


def _final_state(circuit: Circuit, request: Request) -> StateVector:
    return run_alone(circuit, request, observing.Lost()).compact_state


class End:
    """What is read in the end of a circuit all of whose shots go one way."""

    def __init__(self, circuit: Circuit, segments: Segments, observed: observing.Observed | None) -> None:
        self.readings: dict[int, int] = {}
        measured: set[int] = set()
        for step in segments.steps:
            if isinstance(step, Measurement):
                measured.update(step.last)
                step.put_off(self.readings, segments.place)
        self.measured = frozenset(measured)
        self.n_bits = circuit.n_clbits if segments.has_measurement else circuit.n_qubits
        self.readout = Readout(segments, self.readings, 0, self.n_bits)
        self.observables: list[Observable] = []
        self.lost: set[int] = set()
        if observed is not None:
            self.observables = observed.on(segments.active, self.measured)
            self.lost = observed.lost(segments.active, [self.measured])


def runs_one_way(segments: Segments) -> bool:
    """Return whether a circuit is gates, and measurements that can wait for the end."""
    stretches = 0
    for step in segments.steps:
        if isinstance(step, Stretch):
            stretches += 1
        elif not isinstance(step, Measurement) or step.now:
            return False
        if step.condition is not None:
            return False
    return stretches == 1


def _grouped(
    members: Sequence[_Member], keeps_states: bool, held: ExitStack
) -> tuple[list[_Group], list[_Member]]:
    """Prepare what the core can run together, for as long as `held` stays open: return it in groups, and the others.

    Large states that are kept are among the others: where all threads share a state, a copy would gain nothing.
    """
    sweeps: dict[Template, _Group] = {}
    alike: dict[Any, _Group] = {}
    others: list[_Member] = []
    apart: dict[Template, int] = {}  # whose circuits are among the others, and the bytes of a large state to keep
    kept = 0  # bytes
    for member in members:
        template = member.circuit._template
        if member.request.is_noisy:
            others.append(member)
            continue
        if template in sweeps:
            sweeps[template].members.append(member)
            continue
        if template in apart:
            others.append(member)
            kept += apart[template]
            continue
        with ExitStack() as taken:
            with member.told():
                try:
                    found = taken.enter_context(member.request.prepared(member.circuit))
                except HasNoise:
                    others.append(member)
                    if template is not None:
                        apart[template] = 0
                    continue
            n, goes_one_way = len(found.segments.active), runs_one_way(found.segments)
            is_large = keeps_states and n >= _FEWEST_SHARED_QUBITS
            if is_large or not goes_one_way:
                others.append(member)
                size = memory.BYTES_PER_AMPLITUDE[member.request.precision] << n if is_large and goes_one_way else 0
                kept += size
                if template is not None:
                    apart[template] = size
                continue
            held.enter_context(taken.pop_all())
        group = _Group(member, found)
        if template is not None and found.can_be_bound:
            sweeps[template] = group
        else:
            alike.setdefault(group.key, group).join(group)
    for template, group in list(sweeps.items()):
        if len(group.members) == 1:
            del sweeps[template]
            alike.setdefault(group.key, group).join(group)
    memory.require_bytes(kept, f"a list of {counted(len(members), 'circuit')}, whose results keep their states,")
    return [*sweeps.values(), *alike.values()], others


class _Group:
    """Circuits that the core runs side by side: of one template, with one program; or each with a program of its own.

    Their states are of the same size and start alike.
    """

    def __init__(self, member: _Member, found: Prepared) -> None:
        self.members = [member]
        self._found = [found]
        self._ends = [End(member.circuit, found.segments, member.request.observed)]
        self._start = member.request.start.on(found.segments.active)

    @property
    def key(self) -> Any:
        """What is equal in groups that may join."""
        return len(self._found[0].segments.active), self._start

    def join(self, other: _Group) -> None:
        """Take over the circuits of another group; it may be this one."""
        if other is not self:
            self.members += other.members
            self._found += other._found
            self._ends += other._ends

    def results(
        self, meter: AnyMeter, keeps_states: bool, preparing: float, before: tuple[int, int], lost: observing.Lost
    ) -> Iterator[tuple[int, Result]]:
        """Run the circuits: iterate over their places in the batch and results.

        `preparing` are the seconds that it took for each, `before` how many runs of the batch are done and how many there
        are.
        """
        began = perf_counter()
        count, request, active = len(self.members), self.members[0].request, self._found[0].segments.active
        shots, n_observables = request.shots or 0, len(self._ends[0].observables)
        self._require_memory(keeps_states)
        initial = None
        if self._start is not None:
            initial = StateVector._another(len(active), request.precision, request.threads)
            request.start.prepare(initial, active)
        outcomes = np.zeros((count, shots), dtype=np.uint64)
        values = np.zeros((count, n_observables), dtype=np.complex128)
        states: list[StateVector] = []
        if keeps_states:
            states = [StateVector._another(len(active), request.precision, request.threads) for _ in self.members]
        gates, angles = self._angles()
        done, error, refused = extension.run_batch(
            [found.programs[0] for found in self._found],
            gates,
            angles,
            request.threads,
            None if initial is None else initial._live(),
            [member.seed for member in self.members],
            [end.readout.qubits for end in self._ends],
            outcomes,
            [[observable.compiled() for observable in end.observables] for end in self._ends],
            values,
            [state._live() for state in states],
            *heard(meter.within()),
        )
        if error is not None:
            if type(error) is KeyboardInterrupt and not error.args:
                error.args = (f"stopped after {before[0] + done} of {before[1]} runs",)
            raise error
        if refused is not None:
            place, why = refused
            with self.members[place].told():
                raise ValueError(why)
        meter.advance(count)
        timings = Timings(preparing, (perf_counter() - began) / count, 0.0, 0.0)
        for i, member in enumerate(self.members):
            own = i if len(self._ends) > 1 else 0
            state = states[i] if keeps_states else member.state_again()
            yield member.place, self._result(member, own, outcomes[i], values[i].tolist(), state, timings)
        for end in self._ends:
            lost.add(None, end.lost)

    def _angles(self) -> tuple[list[int], np.ndarray | None]:
        """Return the gates of a template's program whose angles differ, and a row of angles for each circuit."""
        if len(self._found) == len(self.members):
            return [], None
        found = self._found[0]
        gates = found.sites[0][0]
        angles = [found.angles_of(member.circuit)[0] for member in self.members]
        return gates, np.array(angles, dtype=np.float64).reshape(len(angles), -1)

    def _require_memory(self, keeps_states: bool) -> None:
        count, request, n = len(self.members), self.members[0].request, len(self._found[0].segments.active)
        state = memory.BYTES_PER_AMPLITUDE[request.precision] << n
        at_a_time = 1 if n >= _FEWEST_SHARED_QUBITS else min(count, request.threads)
        per_shot = max([end.readout.bytes_per_shot for end in self._ends])
        memory.require_bytes(
            (at_a_time + (count if keeps_states else 0)) * state + (8 + per_shot) * count * (request.shots or 0),
            f"a batch of {counted(count, 'circuit')} on {counted(n, 'qubit')}"
            + (f" with shots={request.shots} of each" if request.shots else "")
            + (", whose results keep their states," if keeps_states else ""),
        )

    def _result(
        self, member: _Member, own: int, outcomes: np.ndarray, values: list[complex], state: Any, timings: Timings
    ) -> Result:
        circuit, request, found, end = member.circuit, member.request, self._found[own], self._ends[own]
        n, observed = len(found.segments.active), request.observed
        expectations = None
        if observed is not None:
            real = [value if one.is_complex else value.real for value, one in zip(values, end.observables)]
            # As the mean over groups of shots, of which there is one here.
            expectations = observed.shaped(0.0 + 1.0 * np.array(real, dtype=np.complex128))
        return Result(
            n_qubits=circuit.n_qubits,
            n_clbits=circuit.n_clbits,
            registers=circuit.registers,
            is_of_clbits=found.segments.has_measurement,
            n_shots=request.shots,
            seed=None if request.shots is None else request.seed,
            precision=request.precision,
            threads=request.threads,
            active_qubits=found.segments.active,
            rows=None if request.shots is None else end.readout.rows(outcomes),
            state=state,
            measured=end.measured,
            measured_bits=found.segments.written_bits,
            readings=dict(end.readings),
            known_bits=0,
            expectation_values=expectations,
            saved=Saved(circuit.n_qubits, found.segments.active, {}),
            timings=timings,
            plan=found.planned(1 if n < _FEWEST_SHARED_QUBITS else request.threads),
        )
