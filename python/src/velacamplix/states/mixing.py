"""Follows a density matrix through a circuit: it parts where outcomes are read, and grows together where they agree."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from heapq import heappop, heappush
from typing import Any

import numpy as np

from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.condition import AnyCondition
from ..instructions.flow import Readout
from ..instructions.instruction import Instruction
from ..programs.compile import compiled
from ..programs.drive import drive_whole
from ..programs.mixture import PreparedMixture, compiled_doubled
from ..programs.progress import AnyMeter
from ..programs.segments import Choice, Jump, Measurement, Saving, Step, Stretch, Turn, Writing
from .density import DensityBase

#: More groups of different outcomes than this are not followed at a time.
MOST_BRANCHES = 1024

#: Outcomes that come with a smaller probability are what rounding leaves, and are dropped: so loops that end with
#: certainty have an end.
IMPOSSIBLE = {"double": 1e-15, "single": 1e-6}

# Entries that are added at a time; Ctrl-C is heard in between.
_PIECE = 2**22

# How an outcome is misread: the probability of 1 for 0, and of 0 for 1.
Flips = tuple[float, float]
EXACT: Flips = (0.0, 0.0)

# What messages are told about steps that no circuit has.
_NOTHING = Circuit(0)


class MixedBranch:
    """All that has the same classical bits so far.

    Attributes
    ----------
    rho : DensityBase
        Its trace is the probability of these bits.
    step : int
        The next step.
    bits : int
        The classical bits that are known; bit c is classical bit c.
    readings : dict
        The qubit that each of the other bits is read from in the end, and how it is misread.
    rounds : dict of int to int
        Of each loop that has begun, by the number of its step.
    """

    __slots__ = ("rho", "step", "bits", "readings", "rounds", "share")

    def __init__(
        self,
        rho: DensityBase,
        step: int,
        bits: int,
        readings: dict[int, tuple[int, Flips]],
        rounds: dict[int, int],
        share: float,
    ) -> None:
        self.rho, self.step, self.bits, self.readings, self.rounds = rho, step, bits, readings, rounds
        self.share = share  # of all outcomes, for progress

    @property
    def key(self) -> tuple[Any, ...]:
        """Branches of one key become one."""
        return self.step, self.bits, tuple(sorted(self.readings.items())), tuple(sorted(self.rounds.items()))

    def meets(self, condition: AnyCondition | None) -> bool:
        """Return whether a step under this condition acts."""
        return condition is None or condition.holds(self.bits)

    def write(self, clbit: int, value: int) -> None:
        """Set a classical bit."""
        self.bits = self.bits & ~(1 << clbit) | value << clbit
        self.readings.pop(clbit, None)


class Mixing:
    """Takes a density matrix through all steps.

    The branch that is least far goes on first, so that those that come to the same step with the same bits meet there.

    Parameters
    ----------
    prepared : PreparedMixture
    meter : AnyMeter
    named : callable
        Returns how a message names an instruction.
    save : callable, optional
        Called with a branch where something of it is to be kept, and with the qubits measured before; a circuit that saves
        needs it.
    """

    def __init__(
        self,
        prepared: PreparedMixture,
        meter: AnyMeter,
        named: Callable[[Instruction], str],
        save: Callable[[Saving, MixedBranch, frozenset[int]], None] | None = None,
    ) -> None:
        self._save = save
        self._segments, self._live, self._meter, self._named = prepared.segments, prepared.live, meter, named
        self._m = prepared.n_qubits
        self._waiting: dict[tuple[Any, ...], MixedBranch] = {}
        self._order: list[tuple[Any, ...]] = []
        self._spares: list[DensityBase] = []
        self._least = 0.0
        #: Qubits that have been measured and on which nothing acts afterwards.
        self.measured: set[int] = set()

    def branches(self, rho: DensityBase) -> list[MixedBranch]:
        """Return the branches at their end. One of them has `rho` itself."""
        ended: list[MixedBranch] = []
        self._least = IMPOSSIBLE[rho.precision] * self._trace(rho)
        self._wait(MixedBranch(rho, 0, 0, {}, {}, 1.0))
        while self._order:
            branch = self._waiting.pop(heappop(self._order))
            if branch.step == len(self._segments.steps):
                ended.append(branch)
            else:
                self._follow(branch, self._segments.steps[branch.step])
        return ended

    def total(self, branches: Sequence[MixedBranch]) -> DensityBase:
        """Return the sum of all branches, of which only the last then has its own matrix."""
        *others, last = branches
        for other in others:
            add(other.rho, last.rho)
        return last.rho

    def _wait(self, branch: MixedBranch) -> None:
        """Let a branch wait for its turn, as one with any that has the same key."""
        live = self._live[branch.step]
        branch.bits &= live
        branch.readings = {clbit: read for clbit, read in branch.readings.items() if live >> clbit & 1}
        key = branch.key
        met = self._waiting.get(key)
        if met is None:
            self._waiting[key] = branch
            heappush(self._order, key)
            return
        add(branch.rho, met.rho)
        met.share += branch.share
        self._spares.append(branch.rho)

    # The steps

    def _follow(self, branch: MixedBranch, step: Step) -> None:
        here = branch.step
        branch.step += 1
        if isinstance(step, Stretch):
            share = 0.0 if branch.rounds else branch.share
            if branch.meets(step.condition):
                drive_whole(branch.rho._live(), step.program, self._meter.within(share))
            self._meter.advance(len(step.program), share)
        elif isinstance(step, Saving):
            assert self._save is not None
            self._save(step, branch, step.measured.union(self.measured))
        elif isinstance(step, Measurement):
            if branch.meets(step.condition) and self._decide(branch, step):
                return
        elif isinstance(step, Writing):
            if branch.meets(step.condition):
                branch.readings = dict(branch.readings)
                step.apply(branch)
        elif isinstance(step, Choice):
            value = sum([(branch.bits >> clbit & 1) << i for i, clbit in enumerate(step.clbits)])
            branch.step = step.targets.get(value, step.default)
        elif isinstance(step, Turn):
            if branch.meets(step.condition):
                rounds = branch.rounds.get(here, 0)
                if rounds == step.most:
                    raise RuntimeError(
                        f"{self._named(step.source)} has gone round max_iterations={step.most} times, and its "
                        f"condition holds with probability {self._trace(branch.rho):.3g}: give while_() more "
                        "iterations, or let the body make an end likely"
                    )
                branch.rounds = {**branch.rounds, here: rounds + 1}
                self._meter.tell()
            else:
                branch.rounds = {turn: rounds for turn, rounds in branch.rounds.items() if turn != here}
                branch.step = step.target
        else:
            assert isinstance(step, Jump)
            if step.condition is None or not branch.meets(step.condition):
                branch.step = step.target
                if step.leaves is not None:
                    branch.rounds = {turn: rounds for turn, rounds in branch.rounds.items() if turn != step.leaves}
        self._wait(branch)

    def _decide(self, branch: MixedBranch, step: Measurement) -> bool:
        """Let a branch part; return whether it has."""
        place = self._segments.place
        misread = (
            dict(zip(step.source.qubits, step.source.detail.flips)) if isinstance(step.source.detail, Readout) else {}
        )
        branch.readings = dict(branch.readings)
        self.measured.update(step.last)
        # Their outcomes can still be read, but nothing else can see that they are open.
        forget(branch.rho, [place[qubit] for qubit, _ in step.later if qubit in place])
        for qubit, clbit in step.later:
            mistaken = misread.get(qubit, EXACT)
            branch.write(clbit, 0)
            if qubit in place or mistaken != EXACT:
                branch.readings[clbit] = (qubit, mistaken)
        if not step.now:
            return False
        places = [place[qubit] for qubit, _ in step.now]
        flips = [misread.get(qubit, EXACT) for qubit, _ in step.now]
        shares = misread_shares(branch.rho._marginal(places), flips).reshape(-1)
        total = float(shares.sum())
        if not 0 < self._least < np.inf or not np.isfinite(total):
            raise ValueError(f"{self._named(step.source)} finds a density matrix whose trace is 0, infinite or nan")
        possible = np.flatnonzero(shares > self._least).tolist()
        if len(self._waiting) + len(possible) > MOST_BRANCHES:
            raise ValueError(
                f"{self._named(step.source)} parts the density matrix into more than {MOST_BRANCHES} branches of "
                'different outcomes: run(circuit, method="trajectories") follows drawn outcomes instead'
            )
        for outcome in possible:
            last = outcome == possible[-1]
            rho = branch.rho if last else self._copy(branch.rho, step)
            values = [outcome >> len(places) - 1 - i & 1 for i in range(len(places))]
            self._project(rho, places, flips, values)
            made = MixedBranch(
                rho,
                branch.step,
                branch.bits,
                dict(branch.readings),
                branch.rounds,
                branch.share * shares[outcome] / total,
            )
            for (_, clbit), value in zip(step.now, values):
                made.write(clbit, value)
            self._wait(made)
        if not possible:
            self._spares.append(branch.rho)
        return True

    def _copy(self, rho: DensityBase, step: Measurement) -> DensityBase:
        if self._spares:
            copied = self._spares.pop()
        else:
            try:
                copied = rho._another(rho._n_qubits, rho._precision, rho._threads)
            except MemoryError as error:
                raise MemoryError(
                    f"the outcomes of {self._named(step.source)} part the density matrix: {error}"
                ) from None
        extension.copy_amplitudes(rho._live(), copied._live().view(), False)
        return copied

    def _project(self, rho: DensityBase, places: Sequence[int], flips: Sequence[Flips], values: Sequence[int]) -> None:
        """Keep of each qubit what may read a value, weighted by the probability that it does."""
        steps = []
        for place, (up, down), value in zip(places, flips, values):
            kept = (up, 1 - down) if value else (1 - up, down)
            steps.append(Instruction("diagonal", (place + self._m, place), (kept[0], 0.0, 0.0, kept[1])))
        drive_whole(rho._live(), compiled(steps, 2 * self._m, rho.precision, _NOTHING, range(2 * self._m)))

    @staticmethod
    def _trace(rho: DensityBase) -> float:
        return float(rho._marginal([]).sum())


def misread_shares(shares: np.ndarray, flips: Sequence[Flips]) -> np.ndarray:
    """Return the probabilities of what is read, an axis for each qubit, from those of what is.

    >>> misread_shares(np.array([1.0, 0.0]), [(0.25, 0.5)]).tolist()
    [0.75, 0.25]
    """
    read = shares.reshape((2,) * len(flips))
    for axis, (up, down) in enumerate(flips):
        if (up, down) != EXACT:
            matrix = np.array([[1 - up, down], [up, 1 - down]])
            read = np.moveaxis(np.tensordot(matrix, read, axes=(1, axis)), 0, axis)
    return read


def all_readings(shares: np.ndarray, reads: Sequence[tuple[int | None, Flips]]) -> np.ndarray:
    """Return the probabilities of bits that are read from qubits, an axis for each bit.

    Parameters
    ----------
    shares : numpy.ndarray
        An axis for each qubit.
    reads : sequence
        For each bit the axis of its qubit, None for one that is 0, and how it is misread. A qubit may be read more than
        once.

    >>> all_readings(np.array([0.5, 0.5]), [(0, EXACT), (0, (0.0, 0.5)), (None, EXACT)]).tolist()
    [[[0.5, 0.0], [0.0, 0.0]], [[0.25, 0.0], [0.25, 0.0]]]
    """
    n = shares.ndim
    axes = [axis for axis, _ in reads]
    words: list[Any] = [shares, list(range(n))]
    labels: list[int] = []
    for bit, (axis, (up, down)) in enumerate(reads):
        if axis is not None and (up, down) == EXACT and axes.count(axis) == 1:
            labels.append(axis)
            continue
        labels.append(n + bit)
        if axis is None:
            words += [np.array([1 - up, up]), [n + bit]]
        else:
            words += [np.array([[1 - up, down], [up, 1 - down]]), [n + bit, axis]]
    read: np.ndarray = np.einsum(*words, labels, optimize="greedy")
    return read


def forget(rho: DensityBase, places: Sequence[int]) -> None:
    """Measure qubits, and tell nobody the outcomes."""
    if places:
        steps = [Instruction("measure", tuple(places))]
        drive_whole(rho._live(), compiled_doubled(steps, rho.n_qubits, rho.precision, _NOTHING))


def add(one: DensityBase, other: DensityBase) -> None:
    """Add `one` to the other, which changes."""
    source, target = one._live().view(), other._live().view()
    for start in range(0, len(source), _PIECE):
        target[start : start + _PIECE] += source[start : start + _PIECE]


def divide(rho: DensityBase, divisor: float) -> None:
    """Divide all entries of a matrix."""
    target = rho._live().view()
    for start in range(0, len(target), _PIECE):
        target[start : start + _PIECE] /= divisor
