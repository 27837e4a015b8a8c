"""Cuts a circuit into stretches of gates and the steps between them that depend on outcomes."""

from __future__ import annotations

from collections.abc import Container, Iterable, Iterator, Sequence
from dataclasses import dataclass, field
from functools import cached_property
from itertools import chain
from typing import Any, NamedTuple

from ..instructions.condition import AnyCondition
from ..instructions.flow import If, Store, Switch, While, read_bits
from ..instructions.instruction import LEAVING, NON_UNITARY, Instruction


class Block(NamedTuple):
    """An "if", "while" or "switch", its bodies in the library's own gates."""

    source: Instruction
    bodies: list[list[Part]]

    @property
    def name(self) -> str:
        """That of the instruction."""
        return self.source.name

    @property
    def condition(self) -> AnyCondition | None:
        """Under which it decides anything at all."""
        return self.source.condition


Part = Instruction | Block


def gates_of(parts: Iterable[Part]) -> Iterator[Instruction]:
    """Iterate over all instructions, those of bodies where they stand."""
    for part in parts:
        if isinstance(part, Block):
            for body in part.bodies:
                yield from gates_of(body)
        else:
            yield part


@dataclass
class Stretch:
    """Gates that run as one program, all under the same condition."""

    gates: list[Instruction]
    condition: AnyCondition | None
    program: Any = None


@dataclass
class Measurement:
    """Qubits that are read into classical bits. The bits are distinct, and so are the qubits of `now`."""

    # Pairs of qubit and classical bit. Those of `later` can be read in the end: nothing acts on the qubit any more and
    # nothing asks for the bit before.
    later: list[tuple[int, int]]
    now: list[tuple[int, int]]
    # Those of them on which nothing acts afterwards.
    last: list[int]
    condition: AnyCondition | None
    source: Instruction  # for messages

    @property
    def qubits(self) -> tuple[int, ...]:
        """Those whose outcome must be known now."""
        return tuple(qubit for qubit, _ in self.now)

    def put_off(self, readings: dict[int, int], active: Container[int]) -> None:
        """Note the bits that can be read in the end, each with its qubit; of one that is not active they are 0."""
        for qubit, clbit in self.later:
            readings.pop(clbit, None)
            if qubit in active:
                readings[clbit] = qubit


@dataclass
class Reset:
    """Qubits that are measured into nowhere and set to 0."""

    qubits: tuple[int, ...]
    condition: AnyCondition | None
    source: Instruction  # for messages


@dataclass
class Saving:
    """Keeps something of the state as it is.

    In the circuit the measurement of the qubits `measured` stands before; among the steps it comes behind, so that it may
    be one with others. Saving changes no outcome.
    """

    source: Instruction
    measured: frozenset[int] = frozenset()


@dataclass
class Writing:
    """Classical bits that become what the source's `Store` says."""

    condition: AnyCondition | None
    source: Instruction

    def apply(self, branch: Any) -> None:
        """Write the bits of a branch."""
        detail = self.source.detail
        assert isinstance(detail, Store)
        for clbit, value in zip(self.source.clbits, detail.written(branch.bits)):
            branch.write(clbit, value)


@dataclass
class Jump:
    """Goes on at the step number `target`, unless its condition holds: then the next step comes.

    `leaves` is the number of the step where rounds of a loop begin that the jump ends; None if it ends none.
    """

    condition: AnyCondition | None
    target: int = 0
    leaves: int | None = None


@dataclass
class Turn:
    """Where a round of a loop begins: goes on at the step number `target` once the condition does not hold."""

    condition: AnyCondition
    most: int  # rounds
    source: Instruction  # for messages
    target: int = 0


@dataclass
class Choice:
    """Goes on at the step number that the value of some bits, lowest first, stands for."""

    clbits: tuple[int, ...]
    targets: dict[int, int]
    default: int = 0


Step = Stretch | Measurement | Reset | Saving | Writing | Jump | Turn | Choice


@dataclass
class Segments:
    """A circuit in steps, one after the other unless one says where to go on.

    Attributes
    ----------
    steps : list
    active : tuple of int
        Qubits that the state must have, in increasing order. All others are 0 from beginning to end.
    written_bits : tuple of int
        Classical bits that a measurement or a store writes, in increasing order.
    """

    steps: list[Step] = field(default_factory=list)
    active: tuple[int, ...] = ()
    written_bits: tuple[int, ...] = ()

    @property
    def has_measurement(self) -> bool:
        """Whether a classical bit is written anywhere."""
        return bool(self.written_bits)

    @cached_property
    def place(self) -> dict[int, int]:
        """The state's qubit for each active one."""
        return {qubit: place for place, qubit in enumerate(self.active)}

    @cached_property
    def decided(self) -> list[list[int]]:
        """Per step, the state's qubits whose outcome must be known."""
        return [
            [self.place[qubit] for qubit in step.qubits] if isinstance(step, (Measurement, Reset)) else []
            for step in self.steps
        ]


def segmented(parts: Sequence[Part], nonzero: Iterable[int], like_gates: Iterable[str] = ()) -> Segments:
    """Cut a circuit given in the library's own gates.

    Parameters
    ----------
    parts : sequence of Instruction or Block
    nonzero : iterable of int
        Qubits that are not 0 at the beginning.
    like_gates : iterable of str
        Names of other instructions that may stand in a stretch: channels, and for density matrices resets.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> circuit = Circuit(9, 2).h(5).cx(5, 7).measure([5, 8], [0, 1])
    >>> segments = segmented(circuit.instructions, [])
    >>> segments.active, [type(step).__name__ for step in segments.steps]
    ((5, 7), ['Stretch', 'Measurement'])
    """
    return _Cutting(nonzero, NON_UNITARY.difference(like_gates)).segments(parts)


class _After(NamedTuple):
    """What comes behind a list of instructions: qubits that may be acted on, bits that may be read before they are written."""

    acted: frozenset[int]
    read: frozenset[int]

    def with_effects(self, effects: _Effects) -> _After:
        return _After(self.acted | effects.gates | effects.resets, self.read | effects.reads)


class _Effects(NamedTuple):
    """What instructions may do: qubits that gates act on, and resets; bits that conditions read."""

    gates: frozenset[int]
    resets: frozenset[int]
    reads: frozenset[int]


class _Cutting:
    """Cuts one circuit.

    What stands in a body is taken as it would be if it stood behind one another in the circuit, each instruction under the
    body's condition: measurements are not made one, and what one writes may still be read as it was before. So whoever
    writes a circuit out by hand, with conditions in place of bodies, gets the same steps, random numbers and shots.
    """

    def __init__(self, nonzero: Iterable[int], apart: frozenset[str]) -> None:
        self._nonzero = frozenset(nonzero)
        self._apart = apart  # names of what cannot stand in a stretch
        self._result = Segments()
        self._active: set[int] = set()
        self._fresh: set[int] = set()  # active, and still 0
        self._written: set[int] = set()
        self._effects: dict[int, _Effects] = {}  # of blocks, by id
        # Of each loop around the place, the number of the step where rounds begin, and what goes on behind it.
        self._loops: list[tuple[int, list[Jump | Turn]]] = []

    def segments(self, parts: Sequence[Part]) -> Segments:
        """Return the steps of all."""
        last = self._last_touches(parts)
        self._active = set(last.gates).union(self._nonzero)
        self._fresh = self._active.difference(self._nonzero)
        self._result.active = tuple(sorted(self._active))
        self._cut(parts, last, None)
        self._result.written_bits = tuple(sorted(self._written))
        return self._result

    def _cut(self, parts: Sequence[Part], last: _Touches, after: _After | None) -> None:
        """Add the steps of a list of instructions; `after` is what comes behind a body."""
        uses, afters = self._uses(parts, last, after)
        steps, active, fresh = self._result.steps, self._active, self._fresh
        stretch: Stretch | None = None
        for position, step in enumerate(parts):
            name = step.name
            if isinstance(step, Block):
                self._block(step, afters[position])
                stretch = None
            elif name not in self._apart:
                if stretch is None or stretch.condition != step.condition:
                    stretch = Stretch([], step.condition)
                    steps.append(stretch)
                # Gates may join a stretch from before a measurement that can wait until the end.
                stretch.gates.append(step)
                if fresh:
                    fresh.difference_update(step.qubits, step.controls)
            elif name == "reset":
                qubits = tuple([qubit for qubit in step.qubits if qubit in active and qubit not in fresh])
                if qubits:
                    steps.append(Reset(qubits, step.condition, step))
                    stretch = None
            elif name == "measure":
                self._written.update(step.clbits)
                # What is 0 from beginning to end can be read at any time.
                known = [use.is_known and qubit in active for qubit, use in zip(step.qubits, uses[position])]
                ended = [qubit for qubit, use in zip(step.qubits, uses[position]) if use.is_last]
                _add_measure(steps, step, known, ended, can_join=after is None)
                if any(known):
                    stretch = None
            elif name == "save":
                self._save(step)
                stretch = None
            elif name == "store":
                self._written.update(step.clbits)
                steps.append(Writing(step.condition, step))
                stretch = None
            elif name in LEAVING:
                self._leave(step)
                stretch = None

    # --- What decides ---

    def _block(self, block: Block, after: _After) -> None:
        """Add the steps of a block; the last is a jump, so that nothing behind is made one with what is inside."""
        steps, detail = self._result.steps, block.source.detail
        effects = self._effects_of(block)
        self._fresh.difference_update(effects.gates)
        ends: list[Jump | Turn] = []  # what goes on behind the block
        if block.condition is not None:
            ends.append(Jump(block.condition))
            steps.extend(ends)
        if isinstance(detail, While):
            top = len(steps)
            turn = Turn(detail.condition, detail.max_iterations, block.source)
            steps.append(turn)
            ends.append(turn)
            self._loops.append((top, ends))
            self._cut(block.bodies[0], self._last_touches(block.bodies[0]), after.with_effects(effects))
            self._loops.pop()
            steps.append(Jump(None, top))
        else:
            first: Jump | Choice
            if isinstance(detail, If):
                first = Jump(detail.condition)
            else:
                assert isinstance(detail, Switch)
                first = Choice(detail.clbits, {})
            steps.append(first)
            begins: list[int] = []
            behind = [after]  # each body
            for body in reversed(block.bodies[1:]):
                behind.append(behind[-1].with_effects(self._effects_of_all(body)))
            for body in block.bodies:
                begins.append(len(steps))
                self._cut(body, self._last_touches(body), behind.pop())
                end = Jump(None)
                steps.append(end)
                ends.append(end)
            if isinstance(first, Jump):
                first.target = begins[1]
            else:
                assert isinstance(detail, Switch)
                first.default = begins.pop()
                first.targets = {value: begin for (values, _), begin in zip(detail.cases, begins) for value in values}
        for jump in ends:
            jump.target = len(steps)

    def _leave(self, step: Instruction) -> None:
        if not self._loops:
            raise ValueError(f"{step.title} must stand in the body of a while_, or inside of that, to have a loop to leave")
        steps, (top, ends) = self._result.steps, self._loops[-1]
        if step.condition is not None:
            steps.append(Jump(step.condition, len(steps) + 2))
        jump = Jump(None, top, top if step.name == "break" else None)
        steps.append(jump)
        if step.name == "break":
            ends.append(jump)

    def _save(self, step: Instruction) -> None:
        steps = self._result.steps
        before = steps[-1] if steps else None
        if step.condition is not None:
            jumps = [Jump(step.condition), Jump(None)]
            steps.extend([jumps[0], Saving(step), jumps[1]])
            for jump in jumps:
                jump.target = len(steps)
        elif isinstance(before, Measurement) and before.condition is None:
            measured = frozenset([qubit for qubit, _ in before.later + before.now])
            steps.insert(-1, Saving(step, measured))
        else:
            steps.append(Saving(step))

    # --- What comes behind ---

    def _last_touches(self, parts: Sequence[Part]) -> _Touches:
        found = _Touches()
        gates, others = found.gates, found.others
        for position, step in enumerate(parts):
            if isinstance(step, Block):
                others.append(position)
                for qubit in self._effects_of(step).gates:
                    gates[qubit] = position
                continue
            if step.name in self._apart:
                if step.name != "barrier":
                    others.append(position)
                continue
            for qubit in step.qubits:
                gates[qubit] = position
            for qubit in step.controls:
                gates[qubit] = position
            if step.condition is not None:
                others.append(position)
        return found

    def _uses(
        self, parts: Sequence[Part], last: _Touches, after: _After | None
    ) -> tuple[dict[int, list[_Use]], dict[int, _After]]:
        """For every measurement, by its position, a use for each of its qubits; and for every block what comes behind."""
        uses: dict[int, list[_Use]] = {}
        afters: dict[int, _After] = {}
        read: set[int] = set()  # bits that a later condition reads before they are written again
        acted: set[int] = set()  # qubits that are reset later, or acted on behind all this
        if after is not None:
            read.update(after.read)
            acted.update(after.acted)
        for position in reversed(last.others):
            step = parts[position]
            if isinstance(step, Block):
                later = [qubit for qubit, place in last.gates.items() if place > position]
                afters[position] = _After(frozenset(acted.union(later)), frozenset(read))
                effects = self._effects_of(step)
                acted.update(effects.resets)
                read.update(effects.reads)
                continue
            if step.name == "measure":
                uses[position] = found = []
                for qubit, clbit in zip(step.qubits, step.clbits):
                    is_last = qubit not in acted and last.gates.get(qubit, -1) < position
                    found.append(_Use(clbit in read or not is_last, is_last))
                if step.condition is None and after is None:
                    read.difference_update(step.clbits)
            elif step.name == "reset":
                acted.update(step.qubits)
            elif step.name == "store" and step.condition is None and after is None:
                read.difference_update(step.clbits)
            read.update(read_bits(step))
        return uses, afters

    def _effects_of(self, block: Block) -> _Effects:
        known = self._effects.get(id(block))
        if known is None:
            inside = self._effects_of_all(chain.from_iterable(block.bodies))
            known = self._effects[id(block)] = inside._replace(reads=inside.reads.union(read_bits(block.source)))
        return known

    def _effects_of_all(self, parts: Iterable[Part]) -> _Effects:
        gates, resets, reads = set[int](), set[int](), set[int]()
        for step in parts:
            if isinstance(step, Block):
                inner = self._effects_of(step)
                gates |= inner.gates
                resets |= inner.resets
                reads |= inner.reads
                continue
            reads |= read_bits(step)
            if step.name not in self._apart:
                gates.update(step.qubits, step.controls)
            elif step.name == "reset":
                resets.update(step.qubits)
        return _Effects(frozenset(gates), frozenset(resets), frozenset(reads))


class _Touches:
    """The last position at which each qubit is acted on, and the positions of all steps that are not plain gates."""

    def __init__(self) -> None:
        self.gates: dict[int, int] = {}
        self.others: list[int] = []


class _Use(NamedTuple):
    """What becomes of a qubit that is measured, and of its outcome.

    `is_known`: the outcome must be known when it is measured. `is_last`: nothing acts on the qubit afterwards.
    """

    is_known: bool
    is_last: bool


def _add_measure(
    steps: list[Step], step: Instruction, known: Sequence[bool], last: list[int], can_join: bool
) -> None:
    pairs = list(zip(step.qubits, step.clbits))
    added = Measurement(
        [pair for pair, is_known in zip(pairs, known) if not is_known],
        [pair for pair, is_known in zip(pairs, known) if is_known],
        last,
        step.condition,
        step,
    )
    # Measurements one after the other are one, so that a state is projected once for all of them.
    before = steps[-1] if steps else None
    if can_join and isinstance(before, Measurement) and _can_be_one(before, added):
        before.later.extend(added.later)
        before.now.extend(added.now)
        before.last.extend(added.last)
    else:
        steps.append(added)


def _can_be_one(first: Measurement, second: Measurement) -> bool:
    if first.condition is not None or second.condition is not None:
        return False
    if first.source.detail is not None or second.source.detail is not None:  # each tells how its own outcomes are misread
        return False
    written = {clbit for _, clbit in first.later + first.now}
    return written.isdisjoint(clbit for _, clbit in second.later + second.now) and set(first.qubits).isdisjoint(
        second.qubits
    )
