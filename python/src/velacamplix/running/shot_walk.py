"""One shot of a circuit with noise on its way through measurements, conditions and loops."""

from __future__ import annotations

from collections.abc import Callable, Iterator

import numpy as np

from ..core import extension
from ..instructions.flow import Readout
from ..instructions.instruction import Instruction
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


class ShotWalk(Branching):
    """The way of one shot.

    Every step it takes, and takes again in a loop, has random numbers of its own, which follow from the seed, the number of
    the shot, and how many steps came before.

    Attributes
    ----------
    flips : dict of int to (float, float)
        How bits that will be read in the end are misread then.
    """

    def __init__(
        self,
        segments: Segments,
        seed: int,
        shot: int,
        named: Callable[[Instruction], str],
        save: Callable[[Saving, Branch], None],
    ) -> None:
        super().__init__(segments, metered(None, 0, "gates"), seed, named, save)
        self.flips: dict[int, Flips] = {}
        self._shot, self._visits = shot, 0
        self._shots = 1

    def end(self, state: StateVector) -> Branch:
        """Take a state through all steps and return what is known then."""
        branch = Branch(state, 0, 0, {}, set(), 1, {})
        self._follow(branch)
        return branch

    def _apply(self, stretch: Stretch, branch: Branch) -> None:
        first_stream = self._next_stream()
        if branch.meets(stretch.condition):
            stretch.program.apply(branch.state._live(), self._seed, self._shot, first_stream, *heard())

    def _next_stream(self) -> int:
        stream = _STREAMS * self._visits
        self._visits += 1
        return stream

    def _numbers(self) -> Iterator[float]:
        """Iterate over numbers from 0 to 1 for the present step."""
        stream, word = self._next_stream() + _OUTCOMES, np.zeros(1, dtype=np.uint64)
        for index in range(2**32):
            extension.shot_words(word, self._seed, self._shot, index, stream)
            yield int(word[0] >> np.uint64(11)) * 2.0**-53

    def _decide(self, step: Measurement | Reset, branch: Branch) -> None:
        numbers = self._numbers()
        if isinstance(step, Measurement):
            flips = flips_of(step)
            branch.measured.update(step.last)
            for qubit, clbit in step.later:
                branch.write(clbit, 0)
                pair = flips.get(clbit, (0.0, 0.0))
                if qubit in self._segments.place:
                    branch.readings[clbit] = qubit
                    self.flips[clbit] = pair
                else:  # it is 0, and a condition may ask
                    self.flips.pop(clbit, None)
                    branch.write(clbit, int(next(numbers) < pair[0]))
        places = self._places[branch.step - 1]
        if not places:
            return
        probabilities = branch.state._live().distribution(places)
        possible = np.where(probabilities > IMPOSSIBLE[branch.state.precision] * probabilities.sum(), probabilities, 0.0)
        ends = np.cumsum(possible)
        if not 0 < ends[-1] < np.inf:
            raise ValueError(f"{step.source} finds a state of norm 0 or not a number: a matrix before it is not unitary")
        outcome = int(np.searchsorted(ends, next(numbers) * ends[-1], side="right"))
        outcome = min(outcome, int(np.flatnonzero(possible)[-1]))
        self._settle(branch, step, outcome, is_pure=bool(np.count_nonzero(probabilities) == 1))
        if isinstance(step, Measurement):
            for _, clbit in step.now:
                self.flips.pop(clbit, None)
                is_one = branch.bits >> clbit & 1
                pair = flips.get(clbit, (0.0, 0.0))
                if next(numbers) < pair[is_one]:
                    branch.write(clbit, 1 - is_one)

