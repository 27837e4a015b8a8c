"""What a run with noise will take either way, predicted from the circuit alone: for the choice of a method."""

from __future__ import annotations

import math
from collections import Counter
from weakref import WeakKeyDictionary

from ..channels.channel import Channel
from ..instructions.flow import Save
from ..instructions.instruction import Instruction
from ..programs.noisy import PreparedTrajectories, row_of
from ..programs.segments import Measurement, Reset, Saving, Stretch

# Seconds of one core of a 2-core AMD EPYC (Zen 5), double precision, from circuits of 45 to 865 gates on 2 to 16 qubits
# (benchmarks/noisy_methods.py prints what is predicted beside what is measured). Others are faster or slower, but both
# methods alike.

# An entry of a density matrix: in a gate on ket and bra; in a channel that is no mixture of Paulis, which on one qubit is
# multiplied into its neighbours, and on k is a matrix of 4**k rows. Mixtures of Paulis cost hardly anything beside gates.
_GATE_ON_ENTRY, _CHANNEL_ON_ENTRY, _ROW_ON_ENTRY = 1.0e-9, 0.6e-9, 0.75e-9
# To prepare a gate or channel for density matrices, and what a group of outcomes takes at each step.
_PREPARED, _OUTCOMES_AT_STEP = 20e-6, 30e-6

# An amplitude of a trajectory in a gate and in a term of an observable; and beside its amplitudes a gate and a trajectory.
_GATE_ON_AMPLITUDE, _TERM_ON_AMPLITUDE, _GATE, _TRAJECTORY = 0.7e-9, 0.5e-9, 40e-9, 3e-6
# Where outcomes are needed in the middle: a step of shots that go one way, and the end of a shot.
_WAY_AT_STEP, _SHOT = 20e-6, 5e-6

# Numbers of events in a shot are looked at from so many roots of their mean below it to as many above.
_DEVIATIONS = 8
# No number of qubits or bits makes a power beyond a double.
_MOST = 500


class Outlook:
    """What is known of a circuit before it runs.

    Attributes
    ----------
    n_qubits : int
        The active ones.
    gates : int
        Those of a run without events.
    saved_state : Instruction or None
        One that saves a state, which trajectories do not have.
    """

    @classmethod
    def of(cls, found: PreparedTrajectories) -> Outlook:
        """Return what is known, perhaps that of the last time."""
        known = _known.get(found)
        if known is None:
            known = _known[found] = cls(found)
        return known

    def __init__(self, found: PreparedTrajectories) -> None:
        self._last: tuple[int, dict[int, float]] = 0, {}
        self.n_qubits = len(found.segments.active)
        self.gates = sum(map(len, found.programs))
        self._is_plain, self._steps = found.is_plain, len(found.segments.steps)
        self._decided = 0  # outcomes that part the shots
        self._channels: Counter[Channel] = Counter()
        self._on_entry = 0.0  # seconds of all gates and channels for each entry of a density matrix, all outcomes' together
        self._prepared = self._groups_at_steps = 0.0
        self.saved_state: Instruction | None = None
        read: set[int] = set()  # bits that part the density matrix
        for step in found.segments.steps:
            groups = 2.0 ** min(len(read), _MOST)
            self._groups_at_steps += groups
            if isinstance(step, Stretch):
                inside = Counter([one.detail for one in step.gates if isinstance(one.detail, Channel)])
                self._channels.update(inside)
                gates = len(step.gates) - inside.total()
                self._prepared += _PREPARED * len(step.gates)
                self._on_entry += groups * (gates * _GATE_ON_ENTRY + sum([n * _on_entry(one) for one, n in inside.items()]))
            elif isinstance(step, Saving):
                if self.saved_state is None and isinstance(step.source.detail, Save) and step.source.detail.kind == "state":
                    self.saved_state = step.source
            elif isinstance(step, Measurement):
                read.update([clbit for _, clbit in step.now])
                self._decided += len(step.now)
            elif isinstance(step, Reset):
                self._decided += len(step.qubits)

    def exact_seconds(self) -> float:
        """Return what a run on density matrices takes of one core, nothing prepared yet."""
        whole = self._prepared + self._on_entry * 4.0 ** min(self.n_qubits, _MOST)
        return whole + self._groups_at_steps * _OUTCOMES_AT_STEP

    def trajectory_seconds(self, shots: int, n_terms: int) -> float:
        """Return what the trajectories of these shots take of one core; `n_terms` are those of all observables."""
        n = min(self.n_qubits, _MOST)
        gate = _GATE + _GATE_ON_AMPLITUDE * 2.0**n
        terms = n_terms * _TERM_ON_AMPLITUDE * 2.0**n
        if not self._is_plain:
            each = _TRAJECTORY + self._steps * _WAY_AT_STEP + self.gates * gate + terms
            return self.trajectories(shots) * each + shots * _SHOT
        # All walk through the gates together; one with k events parts from the others where the first of them is, on average
        # k / (k + 1) before the end, with a copy and an operator for each, and is read in the end.
        seconds = self.gates * gate
        if self._last[0] != shots:
            self._last = shots, self._distinct(shots)
        for events, count in self._last[1].items():
            seconds += count * (_TRAJECTORY + (events / (events + 1) * self.gates + events + 3) * gate + terms)
        return seconds

    def trajectories(self, shots: int) -> float:
        """Return how many different ones the shots will have, about."""
        without, *others = self._distinct(shots).values()
        return min(float(shots), without * 2.0 ** min(self._decided, _MOST) + sum(others))

    def _distinct(self, shots: int) -> dict[int, float]:
        """Return by the number of their events how many different trajectories there will be, about.

        Each channel does something unusual by itself, with probability p: none does with prod(1 - p). Otherwise the number
        of events is taken as Poisson's, and those of one number as equally likely ways to choose that many of all that can
        happen, each at another channel.
        """
        nothing, mean, weight, square, sites = 1.0, 0.0, 0.0, 0.0, 0
        for channel, count in self._channels.items():
            row = row_of(channel)
            usual = row.shares[row.usual]
            if usual == 1:
                continue
            nothing *= usual**count
            mean += count * (1 - usual)
            sites += count
            others = [share for i, share in enumerate(row.shares) if i != row.usual]
            if not row.is_mixture:  # how likely each is depends on the state
                others = [(1 - usual) / max(1, len(others))] * max(1, len(others))
            weight += count * sum(others)
            square += count * sum([share * share for share in others])
        if square == 0:
            return {0: 1.0}
        # Each channel has so many ways, as if all of them were equally likely.
        ways_each = max(1.0, weight * weight / square / sites)
        around = int(_DEVIATIONS * (1 + math.sqrt(mean)))
        numbers = range(max(1, int(mean) - around), min(sites, int(mean) + around) + 1)
        shares = [math.exp(k * math.log(mean) - math.lgamma(k + 1) - mean) for k in numbers]
        found = {0: _met(1.0, nothing, shots)}
        for events, share in zip(numbers, shares):
            log_ways = math.lgamma(sites + 1) - math.lgamma(events + 1) - math.lgamma(sites - events + 1)
            ways = math.exp(min(log_ways + events * math.log(ways_each), _MOST))
            found[events] = _met(ways, share / sum(shares) * (1 - nothing), shots)
        return found


_known: WeakKeyDictionary[PreparedTrajectories, Outlook] = WeakKeyDictionary()


def _met(ways: float, share: float, shots: int) -> float:
    """Return how many of equally likely ways, with this probability in all, come among the shots."""
    each = share / ways
    return ways if each >= 1 else ways * -math.expm1(shots * math.log1p(-each))


def _on_entry(channel: Channel) -> float:
    if channel.pauli_probabilities is not None:
        return 0.0
    return _CHANNEL_ON_ENTRY if channel.n_qubits == 1 else _ROW_ON_ENTRY * 4.0**channel.n_qubits
