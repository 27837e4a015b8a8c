"""When instructions begin, and how long qubits wait before them."""

from __future__ import annotations

import math
from collections.abc import Iterable, Iterator, Sequence
from fractions import Fraction

from ..channels.channel import Channel
from ..instructions.condition import AnyCondition
from ..instructions.instruction import Instruction
from .names import Kind, kinds_of
from .rules import Durations, Idle
from .tables import latest

# Waiting for less than one part in so many of the longest duration is the rounding of times that were computed.
_ROUNDING = 10**9


class Timing:
    """How long everything lasts, and what waiting does. Times are integers, in parts of the unit that they all are made of."""

    def __init__(self, idle: Sequence[Idle], durations: Durations) -> None:
        self._idle = idle
        # As they are written: 0.1 + 0.2 - 0.3 is no time to wait.
        exact = {gate: Fraction(repr(time)) for gate, time in durations.items()}
        self._parts = math.lcm(*[time.denominator for time in exact.values()])
        self._durations = {
            (kind, qubits): int(time * self._parts) for (name, qubits), time in exact.items() for kind in kinds_of(name)
        }
        self._least = max(self._durations.values(), default=0) // _ROUNDING
        self._known: dict[tuple[Idle, int], Channel] = {}

    def duration(self, kind: Kind, qubits: tuple[int, ...]) -> int | None:
        """Return how long a gate on these qubits lasts, None if nobody has said it."""
        return self._durations.get((kind, qubits), self._durations.get((kind, None)))

    def names(self, kind: Kind) -> bool:
        """Whether a gate has a duration, on any qubits."""
        return any(named == kind for named, _ in self._durations)

    def waiting(self, qubit: int, time: int, condition: AnyCondition | None = None) -> Iterator[Instruction]:
        """Iterate over what becomes of a qubit that waits."""
        idle = latest(self._idle, qubit)
        if idle is not None and time > self._least:
            channel = self._known.get((idle, time))
            if channel is None:
                channel = Channel.thermal_relaxation(idle.t1, idle.t2, float(Fraction(time, self._parts)), idle.excited)
                self._known[idle, time] = channel
            yield Instruction("channel", (qubit,), condition=condition, detail=channel)


class Clock:
    """When qubits and bits are free, and since when qubits wait; begins at 0 for all."""

    def __init__(self, timing: Timing) -> None:
        self.timing = timing
        self._free: dict[int, int] = {}
        self._idle_since: dict[int, int] = {}
        self._known: dict[int, int] = {}  # bits

    def align(self, qubits: Iterable[int]) -> None:
        """Let qubits go on together."""
        qubits = list(qubits)
        together = max([self._free.get(qubit, 0) for qubit in qubits], default=0)
        self._free.update(dict.fromkeys(qubits, together))

    def begin(
        self, qubits: Sequence[int], read: Iterable[int], written: Iterable[int], duration: int
    ) -> Iterator[Instruction]:
        """Let something happen as soon as it can, and iterate over what its qubits do before."""
        start = max(
            [*[self._free.get(qubit, 0) for qubit in qubits], *[self._known.get(bit, 0) for bit in (*read, *written)]],
            default=0,
        )
        for qubit in qubits:
            yield from self.timing.waiting(qubit, start - self._idle_since.get(qubit, 0))
        ended = dict.fromkeys(qubits, start + duration)
        self._free.update(ended)
        self._idle_since.update(ended)
        self._known.update(dict.fromkeys(written, start + duration))

    @property
    def end(self) -> int:
        """When all is done."""
        return max([*self._free.values(), *self._known.values()], default=0)

    def finish(self, qubits: Iterable[int], end: int) -> Iterator[Instruction]:
        """Iterate over what qubits do until a time when all is done."""
        for qubit in qubits:
            yield from self.timing.waiting(qubit, end - self._idle_since.get(qubit, 0))
