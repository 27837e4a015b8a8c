"""Shots of a circuit with noise on their way through measurements, conditions and loops."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from itertools import count
from typing import NamedTuple

import numpy as np

from ..core import extension
from ..instructions.flow import Readout
from ..instructions.instruction import Instruction
from ..machine import memory
from ..programs.drive import heard
from ..programs.progress import metered
from ..programs.segments import Measurement, Reset, Saving, Segments, Stretch
from ..states.statevector import StateVector
from .branches import IMPOSSIBLE, Branch, Branching

# Streams of random numbers that a step has; the last of them is for outcomes. The core knows the others.
_STREAMS, _OUTCOMES = 4, 3

Flips = tuple[float, float]


def flips_of(step: Measurement) -> dict[int, Flips]:
    """Return by its classical bit how each outcome of a measurement is misread."""
    detail = step.source.detail
    return dict(zip(step.source.clbits, detail.flips)) if isinstance(detail, Readout) else {}


class Company(Branch):
    """Shots to which the same has happened so far.

    Attributes
    ----------
    numbers : numpy.ndarray
        Those of the shots.
    flips : dict of int to (float, float)
        How bits that will be read in the end are misread then.
    visits : int
        Steps that were taken, again in loops.
    """

    __slots__ = ("numbers", "flips", "visits")

    def __init__(self, state: StateVector, numbers: np.ndarray) -> None:
        super().__init__(state, 0, 0, {}, set(), len(numbers), {})
        self.numbers, self.visits = numbers, 0
        self.flips: dict[int, Flips] = {}

    def keep(self, places: Sequence[int]) -> None:
        """Let all other shots go."""
        self.numbers = self.numbers[places]
        self.shots = len(self.numbers)

    def part(self, state: StateVector, numbers: np.ndarray) -> Company:
        """Return some of the shots with a state of their own."""
        made = Company(state, numbers)
        made.step, made.bits, made.visits = self.step, self.bits, self.visits
        made.readings, made.measured = dict(self.readings), set(self.measured)
        made.rounds, made.flips = dict(self.rounds), dict(self.flips)
        return made


class _Parting(NamedTuple):
    """What a step decides differently for shots of a company: its outcome, and the bits that are misread."""

    step: Measurement | Reset
    written: list[int]  # bits
    parts: dict[tuple[int, ...], list[int]]  # for an outcome and these bits' values the places of the shots
    is_pure: bool


class ShotWalk(Branching):
    """The ways of shots, which are one as long as the same happens to them.

    Every step that a shot takes, and takes again in a loop, has random numbers of its own, which follow from the seed, the
    number of the shot, and how many steps came before. So shots are the same in company and alone.

    Where shots part the larger company takes the state and waits for the smaller ones, which go before it with copies: so at
    most log2(shots) + 2 states are there at a time.

    Parameters
    ----------
    segments : Segments
        With trajectories in its stretches.
    seed : int
    named, save : callable
        As of `Branching`.
    end : callable
        Called with every company at its end; its state serves again afterwards.
    """

    def __init__(
        self,
        segments: Segments,
        seed: int,
        named: Callable[[Instruction], str],
        save: Callable[[Saving, Branch], None],
        end: Callable[[Company], None],
    ) -> None:
        super().__init__(segments, metered(None, 0, "gates"), seed, named, save)
        self._end = end

    def start(self, company: Company) -> None:
        """Take all shots to their ends."""
        self._shots = company.shots
        self.follow(company)

    def follow(self, company: Company) -> None:
        """Take shots to their ends."""
        while (parting := self._follow(company)) is not None:
            parts = sorted(parting.parts.items(), key=lambda entry: (len(entry[1]), entry[0]))
            for decided, places in parts[:-1]:
                part = self._parted(company, company.numbers[places])
                self._become(part, parting, decided)
                self.follow(part)
                self._spares.append(part.state)
            decided, places = parts[-1]
            company.keep(places)
            self._become(company, parting, decided)
        self._end(company)

    def _parted(self, company: Company, numbers: np.ndarray) -> Company:
        return company.part(self._copy(company.state, "what happens parts"), numbers)

    def _apply(self, stretch: Stretch, branch: Branch) -> None:
        assert isinstance(branch, Company)
        first_stream = self._next_stream(branch)
        if not branch.meets(stretch.condition):
            return
        program, state = stretch.program, branch.state
        events = np.zeros(len(branch.numbers), dtype=np.uint64)
        program.first_events(events, self._seed, branch.numbers, first_stream)
        here, end = 0, program.sites()
        order = np.argsort(events, kind="stable")
        quiet = order[events[order] == end]
        for place in order[: len(order) - len(quiet)].tolist():
            site, shot = int(events[place]), int(branch.numbers[place])
            program.walk(state._live(), here, site, *heard())
            here = site
            is_last = place == order[-1]
            alone = branch if is_last else self._parted(branch, branch.numbers[[place]])
            program.apply(alone.state._live(), self._seed, shot, first_stream, *heard(), site)
            if is_last:
                branch.keep([place])
                return
            self.follow(alone)
            self._spares.append(alone.state)
        program.walk(state._live(), here, end, *heard())
        branch.keep(np.sort(quiet).tolist())

    def _next_stream(self, company: Company) -> int:
        stream = _STREAMS * company.visits
        company.visits += 1
        return stream

    def _drawn(self, company: Company) -> Callable[[], np.ndarray]:
        """Return what draws a number from 0 to 1 for each shot, at the present step."""
        stream, indices = -1, count()

        def drawn() -> np.ndarray:
            nonlocal stream
            if stream < 0:  # a step that draws nothing has no visit
                stream = self._next_stream(company) + _OUTCOMES
            words = np.zeros(len(company.numbers), dtype=np.uint64)
            extension.shot_words(words, self._seed, company.numbers, next(indices), stream)
            return (words >> np.uint64(11)) * 2.0**-53

        return drawn

    def _decide(self, step: Measurement | Reset, branch: Branch) -> _Parting | None:
        assert isinstance(branch, Company)
        drawn = self._drawn(branch)
        misread: dict[int, np.ndarray] = {}  # bits that are written by chance
        if isinstance(step, Measurement):
            flips = flips_of(step)
            branch.measured.update(step.last)
            for qubit, clbit in step.later:
                branch.write(clbit, 0)
                pair = flips.get(clbit, (0.0, 0.0))
                if qubit in self._segments.place:
                    branch.readings[clbit] = qubit
                    branch.flips[clbit] = pair
                else:  # it is 0, and a condition may ask
                    branch.flips.pop(clbit, None)
                    misread[clbit] = drawn() < pair[0]
        places = self._places[branch.step - 1]
        outcomes: np.ndarray = np.zeros(len(branch.numbers), dtype=np.int64)
        is_pure = True
        if places:
            if len(places) > 1:
                memory.require_bytes(4 * 8 << len(places), f"the distribution of {len(places)} qubits")
            probabilities = branch.state._live().distribution(places)
            is_pure = bool(np.count_nonzero(probabilities) == 1)
            possible = np.where(probabilities > IMPOSSIBLE[branch.state.precision] * probabilities.sum(), probabilities, 0.0)
            ends = np.cumsum(possible)
            if not 0 < ends[-1] < np.inf:
                raise ValueError(f"{step.source} finds a state of norm 0 or not a number: a matrix before it is not unitary")
            outcomes = np.searchsorted(ends, drawn() * ends[-1], side="right")
            outcomes = np.minimum(outcomes, np.flatnonzero(possible)[-1])
            if isinstance(step, Measurement):
                for i, (_, clbit) in enumerate(step.now):
                    branch.flips.pop(clbit, None)
                    is_one = outcomes >> (len(step.now) - 1 - i) & 1
                    up, down = flips.get(clbit, (0.0, 0.0))
                    misread[clbit] = is_one ^ (drawn() < np.where(is_one, down, up))
        parts: dict[tuple[int, ...], list[int]] = {}
        for i, decided in enumerate(zip(outcomes.tolist(), *[values.tolist() for values in misread.values()])):
            parts.setdefault(decided, []).append(i)
        parting = _Parting(step, list(misread), parts, is_pure)
        if len(parts) > 1:
            return parting
        self._become(branch, parting, *parts)
        return None

    def _become(self, company: Company, parting: _Parting, decided: tuple[int, ...]) -> None:
        """Make true what was decided for all shots of a company."""
        outcome, *values = decided
        if self._places[company.step - 1]:
            self._settle(company, parting.step, outcome, parting.is_pure)
        for clbit, value in zip(parting.written, values):
            company.write(clbit, int(value))

