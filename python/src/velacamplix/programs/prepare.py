"""Circuits in steps with their programs, kept for the next circuit that was bound from the same template."""

from __future__ import annotations

from collections.abc import Callable, Hashable, Iterable, Sequence
from contextlib import AbstractContextManager
from itertools import chain
from typing import Any, NoReturn

from ..basics import checks
from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.binding import Template
from ..instructions.expand import basic
from ..instructions.flow import Save, bodies_of, leaves, with_params
from ..instructions.instruction import Instruction
from ..machine import memory
from ..results.plan import Pass, Plan
from .background import in_background
from .compile import compiled, described
from .segments import (
    Block, Choice, Jump, Measurement, Part, Saving, Segments, Stretch, Turn, gates_of, segmented,
)  # fmt: skip

# Gates whose angles can be replaced within a program.
_ANGLED = frozenset({"RX", "RY", "RZ", "PH", "RXX", "RYY", "RZZ", "U"})

# Of every template, and of every circuit without, the few preparations that were used last; the oldest gives way to a new
# one. Those of a circuit go with it, or when an instruction is added to it. Those of a template go with the template,
# which lives as long as the circuits bound from it and the one they were bound from. Whoever runs takes one out and puts
# it back, so that no program is run twice at a time.
_MOST_KEPT = 8
# Gates that take longer to order than one waits for Ctrl-C to be heard.
_MANY = 2**15


class HasNoise(ValueError):
    """A circuit for a pure state has noise in it."""


class Prepared:
    """A circuit's steps, every stretch of gates with its program.

    Parameters
    ----------
    circuit : Circuit
        Parameters without values are refused with ValueError.
    make : callable
        Makes the steps from the circuit's instructions in the library's own gates.
    n_qubits : int or None
        Of the state; None for one of the active qubits alone.
    rank_bits : int or None
        The number in the schedule ``canonical:N``; None for the circuit's order.
    """

    def __init__(
        self,
        circuit: Circuit,
        make: Callable[[Sequence[Part]], Segments],
        n_qubits: int | None,
        precision: Precision,
        fusion: bool,
        rank_bits: int | None = None,
    ) -> None:
        template = circuit._template
        if template is None:
            circuit._require_bound()
            self.segments = make([part for step in circuit._instructions for part in parts_of(step)])
        else:
            # One list for every instruction of the circuit, so that what comes from a parameter can be found again.
            parts = [list(parts_of(step)) for step in circuit.instructions]
            self.segments = make([part for several in parts for part in several])
        stretches = [step for step in self.segments.steps if isinstance(step, Stretch)]
        if n_qubits is None:
            n_qubits, places = len(self.segments.active), self._places(circuit)
        else:
            places = list(range(n_qubits))
        for stretch in stretches:
            stretch.program = compiled(stretch.gates, n_qubits, precision, circuit, places, fusion)
            if rank_bits is not None:
                stretch.program = _reordered(stretch.program, n_qubits, rank_bits)
        self.programs: list[Any] = [stretch.program for stretch in stretches]
        #: A number of threads, and what the run tells of its passes with so many; None until it is asked for.
        self.plan: tuple[int, Plan] | None = None
        # Of gates in another order it is not known which is which.
        self._sites = None if template is None or rank_bits is not None else _sites(template, parts, stretches)
        # Whether the parameters of the dependent instructions are the angles of one program, one after another.
        self._is_direct = (
            template is not None
            and self._sites is not None
            and [places for _, places in self._sites] == [list(range(len(template.dependent)))]
            and all([_is_angled(template.instructions[position]) for position in template.dependent])
        )

    def _places(self, circuit: Circuit) -> list[int]:
        places = [0] * circuit._n_qubits
        for place, qubit in enumerate(self.segments.active):
            places[qubit] = place
        return places

    @property
    def can_be_bound(self) -> bool:
        """Whether everything that depends on a parameter is an angle that can be replaced."""
        return self._sites is not None

    def bind(self, circuit: Circuit) -> None:
        """Take over the angles of a circuit that was bound from the same template."""
        self.plan = None  # that of a fused run follows from the angles too
        for program, (gates, _), angles in zip(self.programs, self.sites, self.angles_of(circuit)):
            program.set_angles(gates, angles)

    @property
    def sites(self) -> list[Sites]:
        """For each program where its angles come from, where `can_be_bound`."""
        assert self._sites is not None
        return self._sites

    def angles_of(self, circuit: Circuit) -> list[list[float]]:
        """Return for each program the angles that a circuit of the same template gives it, gate after gate."""
        template = circuit._template
        assert template is not None
        if self._is_direct:
            return [list(chain.from_iterable(circuit._template_params))]
        angles: list[tuple[Any, ...]] = []  # of each gate
        for position, values in zip(template.dependent, circuit._template_params):
            step = template.instructions[position]
            if _is_angled(step):
                angles.append(values)
            else:
                whole = gates_of(parts_of(with_params(step, values)))
                angles.extend([part.params for part in whole if part.name in _ANGLED])
        return [list(chain.from_iterable([angles[place] for place in places])) for _, places in self.sites]

    def planned(self, threads: int) -> Plan:
        """Return how so many threads carry the programs out."""
        if self.plan is not None and self.plan[0] == threads:
            return self.plan[1]
        active = self.segments.active
        gates, sweeps = 0, 0.0
        passes: list[Pass] = []
        for program in self.programs:
            more, pieces = program.plan(len(active), threads)
            sweeps += more
            for first, last, local, _ in pieces:
                passes.append(Pass(gates + first, gates + last, tuple([active[place] for place in local])))
            gates += len(program)
        plan = Plan(gates, tuple(passes), sweeps)
        self.plan = threads, plan
        return plan


def _is_angled(step: Instruction) -> bool:
    return step.name in _ANGLED and step.definition is None


def parts_of(step: Instruction) -> Iterable[Part]:
    """Return an instruction in gates that programs have; one with bodies stays one."""
    bodies = () if step.detail is None else bodies_of(step)
    if not bodies:
        return basic(step, in_programs=True)
    return (Block(step, [[part for inner in body for part in parts_of(inner)] for body in bodies]),)


def _reordered(program: Any, n_qubits: int, rank_bits: int) -> Any:
    if len(program) < _MANY:
        return program.reordered(n_qubits, rank_bits)
    return in_background(lambda: program.reordered(n_qubits, rank_bits))


# The gates of one program whose angles depend on parameters, and the place of each in the list of all such gates.
Sites = tuple[list[int], list[int]]


def _sites(
    template: Template, parts: Sequence[list[Part]], stretches: Sequence[Stretch]
) -> list[Sites] | None:
    """Return for each program where its angles come from, or None if something else depends on a parameter."""
    place: dict[int, int] = {}
    for position in template.dependent:
        for part in gates_of(parts[position]):
            if part.name in _ANGLED:
                place[id(part)] = len(place)
            elif part.params:
                return None
    sites: list[Sites] = []
    for stretch in stretches:
        gates = [gate for gate, part in enumerate(stretch.gates) if id(part) in place]
        sites.append((gates, [place[id(stretch.gates[gate])] for gate in gates]))
    return sites


def prepared(circuit: Circuit, key: Hashable, make: Callable[[], Prepared]) -> AbstractContextManager[Prepared]:
    """Lend what `make` makes, or what it made under this key for the same circuit or another of the same template."""
    return _Loan(circuit, key, make)


class _Loan:
    def __init__(self, circuit: Circuit, key: Hashable, make: Callable[[], Prepared]) -> None:
        self._circuit, self._key, self._make = circuit, key, make

    def __enter__(self) -> Prepared:
        circuit = self._circuit
        template = circuit._template
        if template is not None:
            kept = template.prepared
        elif circuit._prepared is not None:
            kept = circuit._prepared
        else:
            kept = circuit._prepared = {}
        found: Prepared | None = kept.pop(self._key, None)
        self._kept: dict[Hashable, Prepared] | None = kept
        if found is None:
            found = self._make()
            if template is not None and not found.can_be_bound:
                self._kept = None
        elif template is not None:
            try:
                found.bind(circuit)
            except BaseException:
                kept[self._key] = found
                raise
        self._found = found
        return found

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        kept = self._kept
        if kept is None:
            return
        kept[self._key] = self._found
        if len(kept) > _MOST_KEPT:
            for oldest in list(kept)[:-_MOST_KEPT]:
                kept.pop(oldest, None)


def for_state(
    circuit: Circuit, n_qubits: int, precision: Precision, fusion: bool, rank_bits: int | None = None
) -> Prepared:
    """Prepare the gates of a circuit, whose measurements are at its end, as one program; `rank_bits` as for `Prepared`."""

    def one_stretch(parts: Sequence[Part]) -> Segments:
        return Segments([Stretch([step for step in gates_of(parts) if step.is_gate], None)], tuple(range(n_qubits)))

    return Prepared(circuit, one_stretch, n_qubits, precision, fusion, rank_bits)


def for_run(
    circuit: Circuit,
    nonzero: tuple[int, ...],
    precision: Precision,
    fusion: bool,
    rank_bits: int | None = None,
    parts_bits: int = 0,
) -> Prepared:
    """Prepare a circuit for a state of its active qubits alone.

    `rank_bits` is as for `Prepared`. One of 2**parts_bits parts of the state is to fit into memory.
    """

    def fitting(parts: Sequence[Part]) -> Segments:
        for step in leaves(circuit.instructions):
            if step.is_noise:
                raise HasNoise(f"circuit must be without noise for a run of pure states, got {described(step, circuit)}")
        segments = segmented(parts, nonzero)
        require_distinct_names(segments, circuit)
        # The core numbers qubits in masks of 64 bits; a state of more is refused before a program is made for it.
        memory.require_state(max(0, len(segments.active) - parts_bits), precision, may_reuse=not parts_bits)
        return segments

    return Prepared(circuit, fitting, None, precision, fusion, rank_bits)


# States of more do not fit into any file, and the core numbers qubits in masks of 64 bits.
_MOST_IN_PARTS = 50


def for_parts(circuit: Circuit, precision: Precision, rank_bits: int | None = None) -> Prepared:
    """Prepare a circuit for a state of its active qubits in parts: one program of all gates, then measurements.

    `rank_bits` is as for `Prepared`.

    Raises
    ------
    ValueError
        If something but measurements that nothing depends on stands beside its gates, if it has noise, or if the state
        would have more than 50 qubits.
    """

    def fitting(parts: Sequence[Part]) -> Segments:
        def refuse(what: str) -> NoReturn:
            raise ValueError(
                f"circuit must have gates and measurements at its end alone for a state in parts, got {what}"
            )

        for instruction in leaves(circuit.instructions):
            if instruction.is_noise:
                refuse(f"noise: {described(instruction, circuit)}")
        segments = segmented(parts, ())
        if len(segments.active) > _MOST_IN_PARTS:
            refuse(f"{len(segments.active)} active qubits, more than {_MOST_IN_PARTS}")
        whole, rest = Stretch([], None), list[Measurement]()
        for step in segments.steps:
            if isinstance(step, (Jump, Turn, Choice)):
                refuse("a decision or a loop")
            if isinstance(step, Stretch) and step.condition is None:
                whole.gates.extend(step.gates)
            elif isinstance(step, Measurement) and step.condition is None and not step.now:
                rest.append(step)
            elif isinstance(step, Stretch):
                refuse(f"a condition: {described(step.gates[0], circuit)}")
            else:
                refuse(described(step.source, circuit))
        return Segments([whole, *rest], segments.active, segments.written_bits)

    return Prepared(circuit, fitting, None, precision, False, rank_bits)


def require_distinct_names(segments: Segments, circuit: Circuit) -> None:
    """Refuse a circuit that keeps two things under one name."""
    names = set[str]()
    for step in segments.steps:
        if isinstance(step, Saving):
            assert isinstance(step.source.detail, Save)
            name = step.source.detail.label
            if name in names:
                raise ValueError(
                    f"names of what is saved must be distinct, got {checks.show(name)} twice; the second is "
                    f"{described(step.source, circuit)}"
                )
            names.add(name)
