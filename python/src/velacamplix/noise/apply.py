"""Puts a model's noise into a circuit."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Sequence

from ..basics import checks
from ..basics.words import shortened
from ..circuit.circuit import Circuit
from ..instructions.definition import GateDefinition, size
from ..instructions.expand import MOST_STEPS, body_of
from ..instructions.flow import If, Readout, Switch, changed, flow_step, read_bits
from ..instructions.instruction import LEAVING, Instruction
from .names import READING, Kind, has_any_order, kind_of, kinds_of, written
from .rules import Durations, Idle, Misread, Rule
from .schedule import Clock, Timing
from .tables import latest


def applied(
    circuits: Sequence[Circuit],
    rules: Sequence[Rule],
    idle: Sequence[Idle],
    durations: Durations,
    readout: Sequence[Misread],
) -> tuple[list[Circuit], str]:
    """Return circuits with noise in them, see `NoiseModel.apply`, and what to warn of, or nothing.

    A rule must find something in one of them.
    """
    work = _Applying(rules, Timing(idle, durations) if idle else None, readout)
    noisy = [circuit._with(list(work.body(circuit.instructions, work.clock()))) for circuit in circuits]
    missed = [rule.call() for rule in rules if not rule.is_optional and rule not in work.matched]
    if not (missed and circuits):
        return noisy, ""
    there = ", ".join(sorted(map(written, work.met))) or "none"
    return noisy, (
        f"{shortened(', '.join(missed))} found nothing to stand beside; "
        f"{'the circuit has' if len(circuits) == 1 else 'the circuits have'} these gates: {shortened(there)}"
    )


class _Applying:
    def __init__(self, rules: Sequence[Rule], timing: Timing | None, readout: Sequence[Misread]) -> None:
        self._rules: dict[Kind, list[Rule]] = {}
        for rule in rules:
            for kind in set().union(*map(kinds_of, rule.gates)):
                self._rules.setdefault(kind, []).append(rule)
        self._timing, self._readout = timing, readout
        self._inside: dict[tuple[GateDefinition, int], frozenset[Kind]] = {}
        self.matched: set[Rule] = set()
        self.met: set[Kind] = set()

    def clock(self) -> Clock | None:
        return None if self._timing is None else Clock(self._timing)

    def body(self, steps: Iterable[Instruction], clock: Clock | None) -> Iterator[Instruction]:
        for step in steps:
            yield from self._with_noise(step, clock)

    def _with_noise(self, step: Instruction, clock: Clock | None) -> Iterator[Instruction]:
        if isinstance(step.detail, (If, Switch)) or step.name == "while":
            yield from self._decision(step, clock)
            return
        if step.name in ("barrier", "save", "store") or step.name in LEAVING:
            if clock is not None and step.name == "barrier":
                clock.align(step.qubits)
            elif clock is not None:
                yield from clock.begin((), read_bits(step), step.clbits, 0)
            yield step
            return
        qubits = step.controls + step.qubits
        kind = kind_of(step)
        before, after = ([], []) if step.name == "channel" else self._beside(step, kind, qubits)
        if step.definition is not None and self._is_opened(step.definition, kind):
            yield from before
            for part in _opened(step):
                yield from self._with_noise(part, clock)
            yield from after
            return
        if clock is not None and qubits:
            yield from self._waited(step, kind, qubits, clock)
        yield from before
        if step.name == "measure":
            step = self._misread(step)
        if after and step.condition is not None and not set(step.clbits).isdisjoint(step.condition.clbits):
            # Asked once, before the measurement writes into what is asked.
            body = [part._replace(condition=None) for part in (step, *after)]
            yield flow_step(If(step.condition, tuple(body)))
            return
        yield step
        yield from after

    def _beside(self, step: Instruction, kind: Kind, qubits: tuple[int, ...]) -> tuple[list[Instruction], list[Instruction]]:
        """Return the channels before and after an instruction."""
        self.met.add(kind)
        places = [(qubit,) for qubit in qubits] if kind[0] in READING else [qubits]
        # By the rule, and then by the place: for each a list of its own, which a later rule may empty.
        found: dict[str, list[tuple[tuple[int, ...], list[Instruction]]]] = {"before": [], "after": []}
        for rule in self._rules.get(kind, ()):
            for place in places:
                its = _place(rule, place, has_any_order(kind))
                if its is None:
                    continue
                self.matched.add(rule)
                if rule.replaces:
                    found[rule.place] = [other for other in found[rule.place] if other[0] != place]
                found[rule.place].append((place, list(_channels(rule, its, step))))
        before, after = [[one for _, several in found[side] for one in several] for side in ("before", "after")]
        return before, after

    def _is_opened(self, definition: GateDefinition, kind: Kind) -> bool:
        """Whether noise stands inside of a definition."""
        inside = self._kinds_inside(definition, kind[1])
        self.met.update(inside)
        if self._timing is not None and not self._timing.names(kind):
            return True
        return not inside.isdisjoint(self._rules)

    def _kinds_inside(self, definition: GateDefinition, n_controls: int) -> frozenset[Kind]:
        known = self._inside.get((definition, n_controls))
        if known is None:
            found = set[Kind]()
            for part in definition.body:
                if part.name != "barrier":
                    kind = kind_of(part, n_controls)
                    found.add(kind)
                    if part.definition is not None:
                        found |= self._kinds_inside(part.definition, kind[1])
            known = self._inside[definition, n_controls] = frozenset(found)
        return known

    def _misread(self, step: Instruction) -> Instruction:
        given = step.detail.flips if isinstance(step.detail, Readout) else ((0.0, 0.0),) * len(step.qubits)
        flips = []
        for qubit, (up, down) in zip(step.qubits, given):
            row = latest(self._readout, qubit)
            more_up, more_down = (0.0, 0.0) if row is None else row[:2]
            # What is read wrong twice is right again.
            flips.append((up * (1 - more_down) + (1 - up) * more_up, down * (1 - more_up) + (1 - down) * more_down))
        return step._replace(detail=Readout(tuple(flips)) if any(map(any, flips)) else None)

    # --- Time ---

    def _waited(self, step: Instruction, kind: Kind, qubits: tuple[int, ...], clock: Clock) -> Iterator[Instruction]:
        duration = 0 if step.name == "channel" else clock.timing.duration(kind, qubits)
        if duration is None and kind[0] in READING:
            each = [clock.timing.duration(kind, (qubit,)) for qubit in qubits]
            duration = None if None in each else max([time for time in each if time is not None])
        if duration is None:
            raise ValueError(
                f"durations must tell how long {written(kind)} on {_listed(qubits)} lasts, where qubits relax while they wait, "
                f"got none for {step.title}"
            )
        read = () if step.condition is None else step.condition.clbits
        yield from clock.begin(qubits, read, step.clbits, duration)
        if step.condition is not None:
            for qubit in qubits:
                yield from clock.timing.waiting(qubit, duration, ~step.condition)

    def _decision(self, step: Instruction, clock: Clock | None) -> Iterator[Instruction]:
        if clock is None:
            yield changed(step, lambda inner: self._with_noise(inner, None))
            return
        detail = step.detail
        if not isinstance(detail, (If, Switch)):
            raise ValueError(
                "circuit must be without while_ where qubits relax while they wait, because nobody knows how long it lasts, got "
                f"{step.title}"
            )
        clocks, bodies = [], []
        for body in detail.bodies:
            clocks.append(Clock(clock.timing))
            bodies.append(list(self.body(body, clocks[-1])))
        duration = max(inner.end for inner in clocks)
        for inner, parts in zip(clocks, bodies):
            parts.extend(inner.finish(step.qubits, duration))
        yield from clock.begin(step.qubits, () if step.condition is None else step.condition.clbits, step.clbits, duration)
        if step.condition is not None:
            for qubit in step.qubits:
                yield from clock.timing.waiting(qubit, duration, ~step.condition)
        yield flow_step(detail.with_bodies([tuple(parts) for parts in bodies]), step.condition)


def _channels(rule: Rule, place: tuple[int, ...], step: Instruction) -> Iterator[Instruction]:
    channel = rule.channel
    if channel.n_qubits not in (1, len(place)):
        raise ValueError(
            f"channel must act on 1 or {len(place)} qubits beside {step.title}, got {channel!r} on {channel.n_qubits}"
        )
    for start in range(0, len(place), channel.n_qubits):
        qubits = place[start : start + channel.n_qubits]
        yield Instruction("channel", qubits, condition=step.condition, detail=channel)


def _place(rule: Rule, place: tuple[int, ...], has_any_order: bool) -> tuple[int, ...] | None:
    """Return the qubits of a gate in the order that a rule's channel takes them, None if the rule is not of this place."""
    if rule.qubits is None or place in rule.qubits:
        return place
    if has_any_order:
        return next((other for other in rule.qubits if sorted(place) == sorted(other)), None)
    return None


def _opened(step: Instruction) -> list[Instruction]:
    """Return the steps of a call, whose controls go on to ask for what those of the call do."""
    if size(step) > MOST_STEPS:
        raise ValueError(f"gate {checks.show(step.name)} must expand to at most {MOST_STEPS} steps, got more")
    parts = body_of(step)
    if not step.control_values:
        return parts
    n = len(step.controls)
    return [
        part
        if part.name == "barrier"
        else part._replace(control_values=step.control_values + (part.control_values[n:] or "1" * (len(part.controls) - n)))
        for part in parts
    ]


def _listed(qubits: Sequence[int]) -> str:
    return ("qubit " if len(qubits) == 1 else "qubits ") + ", ".join(map(str, qubits))
