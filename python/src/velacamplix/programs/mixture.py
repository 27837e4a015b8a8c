"""Circuits with noise in steps for density matrices, each stretch with a program on the qubits of ket and bra."""

from __future__ import annotations

from collections.abc import Iterable, Sequence

from ..basics.types import Precision
from ..channels.channel import Channel
from ..circuit.circuit import Circuit
from ..instructions.condition import AnyCondition
from ..instructions.flow import Readout, bodies_of, leaves, read_bits
from ..instructions.instruction import Instruction
from ..machine import memory
from .compile import compiled
from .doubled import doubled
from .gathering import gathered
from .prepare import Prepared, parts_of, require_distinct_names
from .segments import Block, Choice, Jump, Measurement, Part, Segments, Stretch, Turn, Writing, segmented

# What a measurement does whose outcome nobody learns.
_DEPHASING = Channel.phase_flip(0.5)


class PreparedMixture(Prepared):
    """A circuit's steps for density matrices.

    Parameters
    ----------
    circuit : Circuit
        Parameters without values are refused with ValueError.
    n_qubits : int or None
        Of the density matrix, which may begin in any state; None for one of the active qubits alone, all of which begin
        as 0 but for `nonzero`.
    keeps_bits : bool
        Whether the classical bits are asked for in the end. Otherwise a measurement whose bit no condition reads is
        noise.

    Attributes
    ----------
    live : list of int
        For each step, and for the end, a mask of the classical bits that still count.
    """

    def __init__(
        self, circuit: Circuit, n_qubits: int | None, nonzero: Iterable[int], precision: Precision, keeps_bits: bool
    ) -> None:
        if circuit._template is None:
            circuit._require_bound()
        parts = [part for step in circuit.instructions for part in parts_of(step)]
        read = _bits_read(circuit.instructions)
        if not keeps_bits:
            parts = [part for step in parts for part in _forgotten(step, read)]
        there = {*nonzero, *_misread(circuit.instructions, read)} if n_qubits is None else range(n_qubits)
        self.segments = segmented(parts, there, ("channel", "reset"))
        require_distinct_names(self.segments, circuit)
        active = self.segments.active
        #: Qubits of the density matrix.
        self.n_qubits = len(active) if n_qubits is None else n_qubits
        memory.require_density(self.n_qubits, precision, may_reuse=True)
        place = {qubit: number for number, qubit in enumerate(active)}
        self.programs = []
        for stretch in self.segments.steps:
            if isinstance(stretch, Stretch):
                moved = [_moved(step, place) for step in stretch.gates]
                stretch.program = compiled_doubled(moved, self.n_qubits, precision, circuit)
                self.programs.append(stretch.program)
        self.plan = None
        self._sites = None
        self.live = _live_bits(self.segments, keeps_bits)


def compiled_doubled(steps: Sequence[Instruction], n_qubits: int, precision: Precision, circuit: Circuit) -> object:
    """Return a program of the core for a density matrix of `n_qubits`; `circuit` is told of in messages."""
    operations = gathered(doubled(steps, n_qubits), 2 * n_qubits)
    return compiled(operations, 2 * n_qubits, precision, circuit, range(2 * n_qubits))


def _moved(step: Instruction, place: dict[int, int]) -> Instruction:
    qubits, controls = tuple([place[q] for q in step.qubits]), tuple([place[q] for q in step.controls])
    return step._replace(qubits=qubits, controls=controls)


def _bits_read(steps: Iterable[Instruction]) -> set[int]:
    """Return the classical bits that any condition of a circuit reads."""
    read: set[int] = set()
    for step in steps:
        read |= read_bits(step)
        for body in bodies_of(step):
            read |= _bits_read(body)
    return read


def _misread(steps: Iterable[Instruction], read: set[int]) -> set[int]:
    """Return qubits that may be misread where a condition learns of it: needed even if they are always 0."""
    return {
        qubit
        for step in leaves(steps)
        if isinstance(step.detail, Readout)
        for qubit, clbit in zip(step.qubits, step.clbits)
        if clbit in read
    }


def _forgotten(step: Part, read: set[int]) -> list[Part]:
    """Return a measurement of bits that nobody reads as noise, other steps as they are."""
    if isinstance(step, Block):
        return [
            Block(step.source, [[part for inner in body for part in _forgotten(inner, read)] for body in step.bodies])
        ]
    if step.name != "measure":
        return [step]
    kept = [i for i, clbit in enumerate(step.clbits) if clbit in read]
    if len(kept) == len(step.clbits):
        return [step]
    found: list[Part] = [
        Instruction("channel", (qubit,), condition=step.condition, detail=_DEPHASING)
        for i, qubit in enumerate(step.qubits)
        if i not in kept
    ]
    if kept:
        detail = step.detail
        if isinstance(detail, Readout):
            detail = Readout(tuple([detail.flips[i] for i in kept]))
        found.append(
            step._replace(
                qubits=tuple([step.qubits[i] for i in kept]),
                clbits=tuple([step.clbits[i] for i in kept]),
                detail=detail,
            )
        )
    return found


def _live_bits(segments: Segments, at_end: bool) -> list[int]:
    """Return for each step the bits that it or a later one may read before they are written again; `at_end` all are."""
    steps = segments.steps
    live = [0] * len(steps) + [-1 if at_end else 0]
    changed = True
    while changed:  # loops lead back, so until nothing is new
        changed = False
        for i in range(len(steps) - 1, -1, -1):
            step, behind = steps[i], 0
            for follower in _followers(steps, i):
                behind |= live[follower]
            if isinstance(step, Measurement) and step.condition is None:
                behind &= ~_mask([clbit for _, clbit in step.later + step.now])
            elif isinstance(step, Writing) and step.condition is None:
                behind &= ~_mask(step.source.clbits)
            behind |= _mask(_asked(step))
            if behind != live[i]:
                live[i], changed = behind, True
    return live


def _followers(steps: Sequence[object], i: int) -> list[int]:
    step = steps[i]
    if isinstance(step, Jump):
        return [step.target] if step.condition is None else [i + 1, step.target]
    if isinstance(step, Turn):
        return [i + 1, step.target]
    if isinstance(step, Choice):
        return [*step.targets.values(), step.default]
    return [i + 1]


def _asked(step: object) -> Sequence[int]:
    if isinstance(step, Choice):
        return step.clbits
    if isinstance(step, Writing):
        return tuple(read_bits(step.source))
    condition: AnyCondition | None = getattr(step, "condition", None)
    return () if condition is None else condition.clbits


def _mask(bits: Iterable[int]) -> int:
    mask = 0
    for bit in bits:
        mask |= 1 << bit
    return mask
