"""Instructions that hold others, and decide whether, how often, or which of them act; those that keep results, or write bits."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Iterator, Sequence
from dataclasses import dataclass
from typing import Any, Self

from ..basics import checks
from ..channels.channel import Channel
from . import instruction as _instruction
from .condition import AnyCondition, Condition, moved
from .expression import Expression
from .instruction import Instruction

__all__ = ["If", "Readout", "Save", "Store", "Switch", "While"]

#: Bodies may be so deep in each other, and hold so many instructions in all, each counted as often as it stands there.
MOST_LEVELS, MOST_INSIDE = 50, 10_000_000

#: A loop goes round so often at most, unless it says otherwise.
MOST_ITERATIONS = 10_000

Body = tuple[Instruction, ...]
# Of a term of an observable: coefficient, letters, qubits.
PlainTerm = tuple[float | complex, str, tuple[int, ...]]


class _Detail:
    """What all of them have: bodies."""

    _levels, _size = 0, 0
    _is_open = False  # whether a parameter inside has no value

    @property
    def bodies(self) -> tuple[Body, ...]:
        """The lists of instructions inside, in the order they are written."""
        return ()

    def with_bodies(self, bodies: Sequence[Body]) -> Self:
        """Return the same with other bodies, as many."""
        return self

    def __post_init__(self) -> None:
        levels, size, is_open = 1, 1, False
        for body in self.bodies:
            for step in body:
                size += 1
                if isinstance(step.detail, _Detail):
                    levels, size = max(levels, 1 + step.detail._levels), size + step.detail._size
                    is_open = is_open or step.detail._is_open
                elif step.params:
                    is_open = is_open or bool(open_params(step))
        if levels > MOST_LEVELS:
            raise ValueError(f"instructions must hold each other at most {MOST_LEVELS} levels deep, got {levels}")
        if size > MOST_INSIDE:
            raise ValueError(f"an instruction must hold at most {MOST_INSIDE} others, got {size}")
        _set(self, _levels=levels, _size=size, _is_open=is_open)

    # Nothing in it changes. (A deep copy of deep nesting would take more levels of Python than there are.)
    def __copy__(self) -> Self:
        return self

    def __deepcopy__(self, memo: Any) -> Self:
        return self


@dataclass(frozen=True)
class If(_Detail):
    """What an "if" decides.

    Attributes
    ----------
    condition : Condition or CompoundCondition
        Read once, before anything acts.
    body, otherwise : tuple of Instruction
        What acts if it holds, and if it does not. On the qubits and classical bits of the circuit itself.
    """

    condition: AnyCondition
    body: Body
    otherwise: Body = ()

    def __post_init__(self) -> None:
        _set(self, body=_steps(self.body, "body"), otherwise=_steps(self.otherwise, "otherwise"))
        super().__post_init__()

    @property
    def bodies(self) -> tuple[Body, ...]:
        """The two."""
        return self.body, self.otherwise

    def with_bodies(self, bodies: Sequence[Body]) -> If:
        """Return the same decision about others."""
        return If(self.condition, *bodies)

    def lines(self, step: Instruction) -> Iterator[str]:
        """Iterate over the lines of its text."""
        yield f"if {self.condition}:"
        yield from _indented(self.body)
        if self.otherwise:
            yield "else:"
            yield from _indented(self.otherwise)


@dataclass(frozen=True)
class While(_Detail):
    """What a "while" repeats.

    Attributes
    ----------
    condition : Condition or CompoundCondition
        Read before each round; the loop ends when it does not hold.
    body : tuple of Instruction
    max_iterations : int
        After so many rounds a run refuses to go on.
    """

    condition: AnyCondition
    body: Body
    max_iterations: int = MOST_ITERATIONS

    def __post_init__(self) -> None:
        _set(self, body=_steps(self.body, "body"))
        super().__post_init__()

    @property
    def bodies(self) -> tuple[Body, ...]:
        """The one."""
        return (self.body,)

    def with_bodies(self, bodies: Sequence[Body]) -> While:
        """Return the same loop around others."""
        return While(self.condition, bodies[0], self.max_iterations)

    def lines(self, step: Instruction) -> Iterator[str]:
        """Iterate over the lines of its text."""
        yield f"while {self.condition}:"
        yield from _indented(self.body)


@dataclass(frozen=True)
class Switch(_Detail):
    """What a "switch" chooses from.

    Attributes
    ----------
    clbits : tuple of int
        The bits that are read, once, lowest first.
    cases : tuple of (tuple of int, tuple of Instruction)
        Values and what acts if the bits hold one of them; no value stands twice.
    default : tuple of Instruction
        What acts for all other values.
    """

    clbits: tuple[int, ...]
    cases: tuple[tuple[tuple[int, ...], Body], ...]
    default: Body = ()

    def __post_init__(self) -> None:
        cases = []
        for case in checks.sequence(self.cases, "cases", of="pairs of values and instructions"):
            values, body = checks.sequence(case, "a case", of="values and instructions", most=2)
            cases.append((checks.sequence(values, "values of a case"), _steps(body, "instructions of a case")))
        _set(self, cases=tuple(cases), default=_steps(self.default, "default"))
        super().__post_init__()

    @property
    def bodies(self) -> tuple[Body, ...]:
        """Those of the cases, and the default."""
        return (*[body for _, body in self.cases], self.default)

    def with_bodies(self, bodies: Sequence[Body]) -> Switch:
        """Return the same choice among others."""
        cases = tuple([(values, body) for (values, _), body in zip(self.cases, bodies)])
        return Switch(self.clbits, cases, bodies[-1])

    def lines(self, step: Instruction) -> Iterator[str]:
        """Iterate over the lines of its text."""
        yield f"switch c{list(self.clbits[::-1])}:"
        for values, body in self.cases:
            yield f"    case {', '.join(map(checks.digits, values))}:"
            yield from ["    " + line for line in _indented(body)]
        if self.default:
            yield "    default:"
            yield from ["    " + line for line in _indented(self.default)]


@dataclass(frozen=True)
class Save(_Detail):
    """What a "save" keeps.

    Attributes
    ----------
    kind : {"state", "probabilities", "expectation"}
    label : str
        The name in ``Result.saved``.
    terms : tuple of (coefficient, letters, qubits)
        Of the observable whose expectation value it is; the constant has no letters.
    """

    kind: str
    label: str
    terms: tuple[PlainTerm, ...] = ()

    def lines(self, step: Instruction) -> Iterator[str]:
        """Iterate over the line of its text."""
        of = ""
        if self.kind == "probabilities":
            of = " of " + ",".join(map(str, step.qubits))
        elif self.kind == "expectation":
            of = " of " + " + ".join([_term_text(*term) for term in self.terms])
        yield f"save {self.kind} {checks.show(self.label)}{of}"


@dataclass(frozen=True)
class Store(_Detail):
    """What a "store" writes into classical bits, which no qubit tells.

    Attributes
    ----------
    values : tuple of bool, Condition or CompoundCondition
        For each bit what it becomes: a value, or whether a condition holds. All are read before anything is written.

    >>> print(Instruction("store", (), clbits=(3, 4), detail=Store((True, Condition((0, 1), 2)))))
    store c[3] = 1, c[4] = (c[0, 1] == "01")
    """

    values: tuple[AnyCondition | bool, ...]

    def __post_init__(self) -> None:
        values = checks.sequence(self.values, "values", of="conditions")
        for value in values:
            if not isinstance(value, (bool, AnyCondition)):
                raise TypeError(f"values must hold True, False and conditions, got {checks.show(value)}")
        _set(self, values=values)
        super().__post_init__()

    @property
    def reads(self) -> tuple[int, ...]:
        """The bits that conditions ask for, in increasing order."""
        return tuple(sorted({bit for value in self.values if not isinstance(value, bool) for bit in value.clbits}))

    def written(self, bits: int) -> tuple[int, ...]:
        """Return 0 or 1 for each, where classical bit i is bit i of a number."""
        return tuple([int(value if isinstance(value, bool) else value.holds(bits)) for value in self.values])

    def lines(self, step: Instruction) -> Iterator[str]:
        """Iterate over the line of its text."""
        texts = [str(int(value)) if isinstance(value, bool) else f"({value})" for value in self.values]
        yield "store " + ", ".join([f"c[{bit}] = {text}" for bit, text in zip(step.clbits, texts)])


@dataclass(frozen=True)
class Readout:
    """How the outcomes of a measurement are misread.

    Attributes
    ----------
    flips : tuple of (float, float)
        For each measured qubit the probability of writing 1 where the outcome is 0, and of writing 0 where it is 1.

    >>> print(Instruction("measure", (0,), clbits=(0,), detail=Readout(((0.02, 0.05),))))
    measure 0 -> 0 misread (0.02, 0.05)
    """

    flips: tuple[tuple[float, float], ...]

    def __str__(self) -> str:
        return ", ".join([f"({up:.6g}, {down:.6g})" for up, down in self.flips])


Detail = If | While | Switch | Save | Store | Readout | Channel

# Instructions hold these, which hold instructions: what reads annotations at run time finds the name there.
setattr(_instruction, "Detail", Detail)

_NAMES: dict[type, str] = {If: "if", While: "while", Switch: "switch"}


def flow_step(detail: If | While | Switch, condition: AnyCondition | None = None) -> Instruction:
    """Return the instruction of a decision whose parts are right: it tells the qubits and bits inside.

    >>> print(flow_step(If(Condition((0,), 1), (Instruction("X", (2,)),), (Instruction("Z", (1,)),))))
    if c[0] == 1:
        X 2
    else:
        Z 1
    """
    qubits, bits = set[int](), set(detail.clbits if isinstance(detail, Switch) else detail.condition.clbits)
    for body in detail.bodies:
        for step in body:
            qubits.update(step.qubits, step.controls)
            bits.update(step.clbits, read_bits(step))
    name = _NAMES[type(detail)]
    return Instruction(name, tuple(sorted(qubits)), (), (), tuple(sorted(bits)), condition, None, detail)


def with_bodies(step: Instruction, bodies: Iterable[Iterable[Instruction]]) -> Instruction:
    """Return an "if", "while" or "switch" with other bodies.

    >>> step = flow_step(While(Condition((0,), 1), (Instruction("measure", (2,), clbits=(0,)),)))
    >>> with_bodies(step, [[Instruction("measure", (3,), clbits=(0,))]]).qubits
    (3,)
    """
    detail = step.detail
    assert isinstance(detail, (If, While, Switch))
    return flow_step(detail.with_bodies([tuple(body) for body in bodies]), step.condition)


def bodies_of(step: Instruction) -> tuple[Body, ...]:
    """Return the bodies of an instruction; a gate, for example, has none."""
    return step.detail.bodies if isinstance(step.detail, _Detail) else ()


def has_leaving(steps: Iterable[Instruction], word: str) -> bool:
    """Whether there is a "break" or "continue" that does not belong to a loop inside.

    >>> has_leaving([Instruction("break", ())], "break"), has_leaving([Instruction("break", ())], "continue")
    (True, False)
    """
    for step in steps:
        if step.name == word or step.name != "while" and any([has_leaving(body, word) for body in bodies_of(step)]):
            return True
    return False


def changed(step: Instruction, change: Callable[[Instruction], Iterable[Instruction]]) -> Instruction:
    """Return an "if", "while" or "switch" in whose bodies every instruction has become what `change` makes of it."""
    return with_bodies(step, [[part for inner in body for part in change(inner)] for body in bodies_of(step)])


def leaves(steps: Iterable[Instruction]) -> Iterator[Instruction]:
    """Iterate over all instructions, in place of those that have bodies over what is in them.

    >>> step = flow_step(If(Condition((0,), 1), (Instruction("X", (2,)),), (Instruction("Z", (1,)),)))
    >>> [leaf.name for leaf in leaves([Instruction("H", (0,)), step])]
    ['H', 'X', 'Z']
    """
    for step in steps:
        if step.detail is None or not (bodies := bodies_of(step)):
            yield step
            continue
        for body in bodies:
            yield from leaves(body)


def read_bits(step: Instruction) -> set[int]:
    """Return the classical bits that an instruction itself asks for, not what is in its bodies.

    >>> read_bits(Instruction("X", (0,), condition=Condition((2, 3), 1)))
    {2, 3}
    """
    read, detail = set[int](), step.detail
    if step.condition is not None:
        read.update(step.condition.clbits)
    if isinstance(detail, (If, While)):
        read.update(detail.condition.clbits)
    elif isinstance(detail, Switch):
        read.update(detail.clbits)
    elif isinstance(detail, Store):
        read.update(detail.reads)
    return read


def written_bits(steps: Iterable[Instruction]) -> set[int]:
    """Return the classical bits that a measurement or a store writes, in bodies too."""
    return {bit for step in leaves(steps) for bit in step.clbits}


def open_params(step: Instruction) -> tuple[Any, ...]:
    """Return the parameters of an instruction if one has no value yet, of those in its bodies, one after the other."""
    if step.detail is not None:
        if not isinstance(step.detail, _Detail) or not step.detail._is_open:
            return ()
        return tuple([value for body in bodies_of(step) for inner in body for value in open_params(inner)])
    is_open = step.params and any([isinstance(value, Expression) for value in step.params])
    return step.params if is_open else ()


def with_params(step: Instruction, params: Sequence[Any]) -> Instruction:
    """Return an instruction with others in place of its `open_params`."""
    if step.detail is None:
        return Instruction(
            step.name, step.qubits, tuple(params), step.controls, step.clbits, step.condition, step.definition,
            control_values=step.control_values,
        )  # fmt: skip
    waiting = iter(params)

    def change(inner: Instruction) -> tuple[Instruction]:
        if inner.detail is not None:
            return (changed(inner, change) if open_params(inner) else inner,)
        n = len(open_params(inner))
        return (inner._replace(params=tuple([next(waiting) for _ in range(n)])) if n else inner,)

    return changed(step, change)


def moved_step(step: Instruction, qubits: Sequence[int], clbits: Sequence[int]) -> Instruction:
    """Return an instruction on other qubits and bits: ``qubits[q]`` in place of qubit q."""
    condition = None if step.condition is None else moved(step.condition, clbits)
    detail = step.detail
    if isinstance(detail, (If, While, Switch)):
        there = flow_step(_on_bits(detail, clbits), condition)
        return changed(there, lambda inner: (moved_step(inner, qubits, clbits),))
    if isinstance(detail, Save):
        terms = [(number, letters, tuple([qubits[q] for q in places])) for number, letters, places in detail.terms]
        detail = Save(detail.kind, detail.label, tuple(terms))
    elif isinstance(detail, Store):
        detail = Store(tuple([value if isinstance(value, bool) else moved(value, clbits) for value in detail.values]))
    return Instruction(
        step.name,
        tuple([qubits[qubit] for qubit in step.qubits]),
        step.params,
        tuple([qubits[qubit] for qubit in step.controls]),
        tuple([clbits[bit] for bit in step.clbits]),
        condition,
        step.definition,
        detail,
        step.control_values,
    )


def _on_bits(detail: If | While | Switch, clbits: Sequence[int]) -> If | While | Switch:
    if isinstance(detail, Switch):
        return Switch(tuple([clbits[bit] for bit in detail.clbits]), detail.cases, detail.default)
    condition = moved(detail.condition, clbits)
    if isinstance(detail, If):
        return If(condition, detail.body, detail.otherwise)
    return While(condition, detail.body, detail.max_iterations)


def conditioned(step: Instruction) -> list[Instruction] | None:
    """Return an "if" as steps that each ask for its condition, or the opposite; None if that would be something else.

    >>> step = flow_step(If(Condition((0,), 1), (Instruction("X", (2,)), Instruction("measure", (2,), clbits=(0,)))))
    >>> [str(part) for part in conditioned(step)]
    ['X 2 if c[0] == 1', 'measure 2 -> 0 if c[0] == 1']
    """
    detail = step.detail
    if not isinstance(detail, If) or step.condition is not None:
        return None
    opposite = ~detail.condition
    if detail.otherwise and not (isinstance(opposite, Condition) and opposite.comparison == "=="):
        return None
    parts = [*[(inner, detail.condition) for inner in detail.body], *[(inner, opposite) for inner in detail.otherwise]]
    for place, (inner, _) in enumerate(parts):
        # None but the last may change what the others ask for.
        writes = place + 1 < len(parts) and not set(inner.clbits).isdisjoint(detail.condition.clbits)
        if writes or inner.condition is not None or bodies_of(inner):
            return None
    return [inner._replace(condition=asked) if inner.can_be_conditioned else inner for inner, asked in parts]


def _steps(values: Any, name: str) -> Body:
    steps = checks.sequence(values, name, of="Instruction", most=MOST_INSIDE)
    for step in steps:
        if not isinstance(step, Instruction):
            raise TypeError(f"{name} must hold Instruction objects, got {checks.show(step)}")
    return steps


def _set(detail: Any, **fields: Any) -> None:
    for name, value in fields.items():
        object.__setattr__(detail, name, value)


def _indented(body: Body) -> Iterator[str]:
    for step in body:
        for line in step.lines():
            yield "    " + line
    if not body:
        yield "    pass"


def _term_text(coefficient: float | complex, letters: str, qubits: tuple[int, ...]) -> str:
    product = " ".join([f"{letter}{qubit}" for letter, qubit in zip(letters, qubits)])
    return f"{coefficient!r}*{product}" if product else repr(coefficient)
