"""Follows all shots of a circuit at once: they part only where their outcomes differ."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from functools import cached_property
from typing import Any, NamedTuple

import numpy as np

from ..core import extension
from ..instructions.condition import AnyCondition
from ..instructions.instruction import Instruction
from ..machine import memory
from ..programs.drive import drive
from ..programs.progress import AnyMeter
from ..programs.segments import Choice, Jump, Measurement, Reset, Saving, Segments, Stretch, Turn, Writing
from ..states.statevector import StateVector

#: Less than this is what rounding leaves of an outcome that cannot come.
IMPOSSIBLE = {"double": 1e-20, "single": 1e-10}


_Random = Measurement | Reset


class Branch:
    """Shots with the same outcomes so far.

    Attributes
    ----------
    state : StateVector
    step : int
        The next step.
    bits : int
        The classical bits that are known; bit c is classical bit c.
    readings : dict of int to int
        The qubit that each of the other bits will be read from in the end.
    measured : set of int
        Qubits that have been measured and on which nothing acts afterwards. Where no outcome was needed yet, the state
        is still that before their measurement.
    shots : int or None
        How many they are; None if no shots were asked for.
    rounds : dict of int to int
        Of each loop that has begun, by the number of its step.
    """

    __slots__ = ("state", "step", "bits", "readings", "measured", "shots", "rounds")

    def __init__(
        self,
        state: StateVector,
        step: int,
        bits: int,
        readings: dict[int, int],
        measured: set[int],
        shots: int | None,
        rounds: dict[int, int],
    ) -> None:
        self.state, self.step, self.bits, self.readings = state, step, bits, readings
        self.measured, self.shots, self.rounds = measured, shots, rounds

    def meets(self, condition: AnyCondition | None) -> bool:
        """Return whether a step under this condition acts."""
        return condition is None or condition.holds(self.bits)

    def write(self, clbit: int, value: int) -> None:
        """Set a classical bit."""
        self.bits = self.bits & ~(1 << clbit) | value << clbit
        self.readings.pop(clbit, None)


class Branching:
    """One way through the steps for every group of equal outcomes.

    Where a measurement has several outcomes, its shots are shared out among them by one draw. The smaller groups go
    first, each with a copy of the state; the largest one goes last and takes the state itself. So a state that waits
    has at least twice the shots of the branch being followed, and at most log2(shots) of them ever wait.

    Parameters
    ----------
    segments : Segments
        With programs in its stretches.
    meter : AnyMeter
    seed : int
        Of the generator that shares shots out.
    named : callable
        Returns how a message names an instruction.
    save : callable
        Called with a branch where something of its state is to be kept.
    """

    def __init__(
        self,
        segments: Segments,
        meter: AnyMeter,
        seed: int,
        named: Callable[[Instruction], str],
        save: Callable[[Saving, Branch], None],
    ) -> None:
        self.has_split = False
        self._segments, self._meter, self._seed, self._named, self._save = segments, meter, seed, named, save
        self._places = segments.decided
        self._spares: list[StateVector] = []
        self._shots: int | None = None

    @cached_property
    def generator(self) -> np.random.Generator:
        """What shares shots out; made when it is asked for, since most circuits need none."""
        return np.random.default_rng(self._seed)

    def branches(self, state: StateVector, shots: int | None) -> Iterator[Branch]:
        """Iterate over the branches at their end. A branch's state serves again once the next one is asked for."""
        self._shots = shots
        waiting: list[_Fork] = []
        branch: Branch | None = Branch(state, 0, 0, {}, set(), shots, {})
        while branch is not None:
            fork = self._follow(branch)
            if fork is None:
                yield branch
                self._spares.append(branch.state)
            else:
                waiting.append(fork)
            branch = self._next(waiting)

    def _next(self, waiting: list[_Fork]) -> Branch | None:
        if not waiting:
            return None
        before, step, outcomes = waiting[-1]
        outcome, shots = outcomes.pop()
        if outcomes:
            state = self._copy(before.state, f"the outcomes of {step.source} part")
        else:
            waiting.pop()
            state = before.state
        branch = Branch(
            state, before.step, before.bits, dict(before.readings), set(before.measured), shots, dict(before.rounds)
        )
        self._settle(branch, step, outcome)
        return branch

    def _copy(self, state: StateVector, why: str) -> StateVector:
        if self._spares:
            copied = self._spares.pop()
        else:
            try:
                copied = type(state)._another(state._n_qubits, state._precision, state._threads)
            except MemoryError as error:
                raise MemoryError(f"{why} the shots, and each group needs a state: {error}") from None
        extension.copy_amplitudes(state._live(), copied._live().view(), False)
        return copied

    # The steps

    def _follow(self, branch: Branch) -> Any:
        """Take a branch to its end, or to where it parts, and return None or what `_decide` tells of that."""
        steps = self._segments.steps
        while branch.step < len(steps):
            step = steps[branch.step]
            branch.step += 1
            if isinstance(step, Stretch):
                self._apply(step, branch)
            elif isinstance(step, _Random):
                if branch.meets(step.condition):
                    fork = self._decide(step, branch)
                    if fork is not None:
                        return fork
            elif isinstance(step, Saving):
                self._save(step, branch)
            elif isinstance(step, Writing):
                if branch.meets(step.condition):
                    step.apply(branch)
            else:
                self._go(step, branch)
        return None

    def _apply(self, stretch: Stretch, branch: Branch) -> None:
        weight = self._weight(branch)
        if branch.meets(stretch.condition):
            drive(branch.state._live(), stretch.program, self._meter.within(weight), to_end=True)
        self._meter.advance(len(stretch.program), weight)

    def _weight(self, branch: Branch) -> float:
        """Return what a gate on this branch counts; those of a loop count when it is left."""
        if branch.rounds:
            return 0.0
        return branch.shots / self._shots if branch.shots and self._shots else 1.0

    def _go(self, step: Jump | Turn | Choice, branch: Branch) -> None:
        """Go on where a step says."""
        here, turn = branch.step, branch.step - 1
        if isinstance(step, Choice):
            value = sum([(branch.bits >> clbit & 1) << i for i, clbit in enumerate(step.clbits)])
            branch.step = step.targets.get(value, step.default)
        elif isinstance(step, Turn):
            if branch.meets(step.condition):
                self._meter.tell()
                rounds = branch.rounds.get(turn, 0)
                if rounds == step.most:
                    raise self._endless(step, branch)
                branch.rounds[turn] = rounds + 1
                return
            branch.rounds.pop(turn, None)
            branch.step = step.target
        elif step.condition is None or not branch.meets(step.condition):
            branch.step = step.target
            if step.leaves is not None:
                branch.rounds.pop(step.leaves, None)
                here = step.leaves
        for passed in self._segments.steps[here : branch.step]:  # none on the way back
            if isinstance(passed, Stretch):
                self._meter.advance(len(passed.program), self._weight(branch))

    def _endless(self, turn: Turn, branch: Branch) -> RuntimeError:
        still = "" if branch.shots is None else f" on {branch.shots} of {self._shots} shots that went the same way"
        return RuntimeError(
            f"{self._named(turn.source)} has gone round max_iterations={turn.most} times, and its condition holds{still}: "
            "give while_() more iterations, or let the body make an end likely"
        )

    def _decide(self, step: _Random, branch: Branch) -> Any:
        """Share out the branch's shots among the outcomes of a step; with one outcome the branch just goes on."""
        if isinstance(step, Measurement):
            branch.measured.update(step.last)
            for _, clbit in step.later:
                branch.write(clbit, 0)
            step.put_off(branch.readings, self._segments.place)
        places = self._places[branch.step - 1]
        if not places:
            return None
        if len(places) > 1:
            memory.require_bytes(4 * 8 << len(places), f"the distribution of {len(places)} qubits")
        probabilities = branch.state._live().distribution(places)
        possible = _possible(probabilities, IMPOSSIBLE[branch.state.precision])
        if not possible:
            raise ValueError(f"{step.source} finds a state of norm 0 or not a number: a matrix before it is not unitary")
        if len(possible) == 1:
            # Without a rest there is nothing to clear away.
            self._settle(branch, step, possible[0], is_pure=np.count_nonzero(probabilities) == 1)
            return None
        if branch.shots is None:
            raise ValueError(
                f"shots must be given for this circuit: {self._named(step.source)} has more than one possible outcome in its "
                "middle"
            )
        self.has_split = True
        return _Fork(branch, step, _shared(branch.shots, possible, probabilities, self.generator))

    def _settle(self, branch: Branch, step: _Random, outcome: int, is_pure: bool = False) -> None:
        """Make an outcome of a step true: in the state, and in the bits."""
        is_reset = isinstance(step, Reset)
        if not is_pure or (is_reset and outcome):
            extension.project(branch.state._live(), self._places[branch.step - 1], outcome, is_reset)
        if isinstance(step, Reset):
            return
        for i, (_, clbit) in enumerate(reversed(step.now)):
            branch.write(clbit, outcome >> i & 1)


def _possible(probabilities: np.ndarray, floor: float) -> list[int]:
    """Return the outcomes whose share is above the floor; none if the state has no norm."""
    if len(probabilities) == 2:  # the usual case, without NumPy's start-up costs
        zero, one = probabilities.tolist()
        limit = floor * (zero + one)
        return [outcome for outcome, probability in ((0, zero), (1, one)) if probability > limit]
    possible: list[int] = np.flatnonzero(probabilities > floor * probabilities.sum()).tolist()
    return possible


def _shared(
    shots: int, possible: list[int], probabilities: np.ndarray, generator: np.random.Generator
) -> list[tuple[int, int]]:
    """Share out the shots: pairs of an outcome and a number, the smallest last, which is taken first."""
    if len(possible) == 2:
        first, second = probabilities[possible].tolist()
        ones = int(generator.binomial(shots, second / (first + second)))
        numbers = [shots - ones, ones]
    else:
        weights = probabilities[possible]
        numbers = generator.multinomial(shots, weights / weights.sum()).tolist()
    drawn = [(outcome, number) for outcome, number in zip(possible, numbers) if number]
    return sorted(drawn, key=lambda entry: (-entry[1], entry[0]))


class _Fork(NamedTuple):
    """A branch in front of a step, and the outcomes with their shots that have not been followed."""

    branch: Branch
    step: _Random
    outcomes: list[tuple[int, int]]
