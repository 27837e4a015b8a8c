"""What the core runs for a tape: made once for tapes that differ in their angles alone."""

from __future__ import annotations

import math
from collections import OrderedDict
from collections.abc import Callable, Mapping, Sequence
from itertools import chain
from typing import Any, NamedTuple

import numpy as np
from pennylane.measurements import ExpectationMP

from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.expand import basic, with_angles
from ..instructions.expression import Expression, Parameter
from ..instructions.instruction import Instruction
from ..instructions.slopes import slopes
from ..machine import memory
from ..observables.observable import Observable
from ..programs.compile import compiled
from ..programs.drive import heard
from . import gates, reading
from .errors import NotConverted
from .observables import pauli_observable

# From so many qubits on the core's threads share a state.
_FEWEST_SHARED_QUBITS = 18

# Longer tapes are converted anew each time: they are not found again faster.
_LONGEST = 50_000
# Plans, and structures that have been met once.
_MOST_KEPT = 16
_MOST_SEEN = 256


class How(NamedTuple):
    """What programs of a device have in common."""

    precision: Precision
    fusion: bool


class Structure(NamedTuple):
    """What a list of gates is, and its angles. Without a key it cannot be found again."""

    key: tuple[Any, ...] | None
    values: list[float]


def structure(ops: Sequence[Any]) -> Structure:
    """Return what tells gates apart from others, and their angles in order.

    Raises
    ------
    NotConverted
        If an angle is no finite number.
    """
    parts: list[Any] = []
    raw: list[Any] = []
    direct, labels = gates.DIRECT, gates.labels
    for op in ops:
        kind = type(op)
        if kind in direct:
            parts.append(kind)
            parts.append(labels(op))
            data = op.data
            if data:
                raw += data
            continue
        own = gates.key(op) if len(ops) <= _LONGEST else None
        if own is None:
            return Structure(None, [])
        parts.append(own)
        if gates.has_angles(op):
            raw += op.data
    values = [value if isinstance(value, float) else _number(value, ops) for value in raw]
    # (A sum of finite numbers may be infinite, which costs no more than a second look.)
    if not math.isfinite(sum(values)):
        for op in ops:
            if gates.has_angles(op):
                _numbers(op, ops)
    return Structure(tuple(parts) if len(ops) <= _LONGEST else None, values)


def _number(value: Any, ops: Sequence[Any]) -> float:
    try:
        return reading.number(value, None)
    except NotConverted:  # once more, knowing whose it is
        return next(iter(_numbers(next(op for op in ops if any([value is item for item in op.data])), ops)))


def _numbers(op: Any, ops: Sequence[Any]) -> list[float]:
    try:
        return reading.numbers(op)
    except NotConverted as error:
        place = next(place for place, other in enumerate(ops) if other is op)
        raise NotConverted.at(error, gates.named(op), place) from None


class Program(NamedTuple):
    """Gates for the core, and the angle of the whole state's phase, which it is not told."""

    core: Any
    phase: float


def program(ops: Sequence[Any], places: Mapping[Any, int], n_qubits: int, how: How) -> Program:
    """Return the program of gates with their numbers as they are."""
    listed: list[Instruction] = []
    phase = 0.0
    for position, op in enumerate(ops):
        for step in _steps(op, places, position):
            if _is_phase(step):
                phase += step.params[0]  # type: ignore[operator, assignment]
            else:
                listed += basic(step, in_programs=True)
    return Program(_compiled(listed, n_qubits, how), phase)


def _compiled(listed: Sequence[Instruction], n_qubits: int, how: How) -> Any:
    listed = [step for step in listed if step.is_gate]
    return compiled(listed, n_qubits, how.precision, Circuit(n_qubits), range(n_qubits), how.fusion)


def _steps(op: Any, places: Mapping[Any, int], position: int, params: Sequence[Any] | None = None) -> list[Instruction]:
    qubits = tuple([places[wire] for wire in gates.labels(op)])
    try:
        if params is not None:
            return gates.steps(op, qubits, params)
        if gates.has_angles(op):
            return gates.steps(op, qubits, reading.numbers(op))
        return reading.Reading(places).steps(op)
    except (TypeError, ValueError) as error:
        raise NotConverted.at(error, gates.named(op), position) from None


def _is_phase(step: Instruction) -> bool:
    return step.name == "gphase" and not step.controls


# An angle: what it is where all values are 0, and the values that are added, each times a factor.
_Linear = tuple[float, tuple[tuple[int, float], ...]]


class Plan:
    """Gates whose angles follow from a list of values.

    Attributes
    ----------
    core
        Of the core, with the angles that `bind` was given last.
    turned : list of int
        Gates of the program with an angle that depends on a value; all their angles are listed one after another.
    """

    def __init__(self, ops: Sequence[Any], places: Mapping[Any, int], n_qubits: int, how: How, values: Sequence[float]) -> None:
        listed: list[Instruction] = []
        phases: list[Any] = []
        n = 0
        for position, op in enumerate(ops):
            params = None
            if gates.has_angles(op):
                params = [Parameter(str(number)) for number in range(n, n + len(op.data))]
                n += len(params)
            for step in _steps(op, places, position, params):
                if _is_phase(step):
                    phases.append(step.params[0])
                else:
                    listed += [part for part in with_angles(step) if part.is_gate]
        is_open = [any([isinstance(value, Expression) for value in step.params]) for step in listed]
        self.turned = [number for number, one in enumerate(is_open) if one]
        self._counts = [len(listed[number].params) for number in self.turned]
        self._angles = [_linear(value) for number in self.turned for value in listed[number].params]
        self._phases = [_linear(value) for value in phases]
        # The usual case: every angle is one value times a factor.
        self._plain = None
        if all([not constant and len(terms) == 1 for constant, terms in self._angles]):
            self._plain = [terms[0] for _, terms in self._angles]
        angles = iter(self.angles(values))
        for number in self.turned:
            step = listed[number]
            listed[number] = step._replace(params=tuple([next(angles) for _ in step.params]))
        self.core = _compiled(listed, n_qubits, how)
        self._subsets: dict[tuple[int, ...], Subset] = {}

    def angles(self, values: Sequence[float]) -> list[float]:
        """Return the angles of the turned gates."""
        if self._plain is not None:
            return [values[place] * factor for place, factor in self._plain]
        return [_value(linear, values) for linear in self._angles]

    def bind(self, values: Sequence[float]) -> Program:
        """Return the program with the angles that follow from these values."""
        if self.turned:
            self.core.set_angles(self.turned, self.angles(values))
        return Program(self.core, sum([_value(linear, values) for linear in self._phases]))

    def subset(self, wanted: tuple[int, ...]) -> Subset:
        """Return what the derivatives by some of the values need, given by their places or -1."""
        found = self._subsets.get(wanted)
        if found is None:
            if len(self._subsets) >= _MOST_KEPT:
                self._subsets.clear()
            found = self._subsets[wanted] = self._subset(wanted)
        return found

    def _subset(self, wanted: tuple[int, ...]) -> Subset:
        column = {place: number for number, place in enumerate(wanted) if place >= 0}
        unknown = np.array([number for number, place in enumerate(wanted) if place < 0], np.int64)
        angles = iter(self._angles)
        turned: list[int] = []
        entries: list[tuple[int, int, float]] = []
        n_angles = 0
        for number, count in zip(self.turned, self._counts):
            own = list(next(angles) for _ in range(count))
            found = [(n_angles + i, column[p], f) for i, (_, terms) in enumerate(own) for p, f in terms if p in column]
            if found:
                turned.append(number)
                entries += found
                n_angles += count
        rows, columns, factors = zip(*entries) if entries else ((), (), ())
        return Subset(
            turned, np.array(rows, np.int64), np.array(columns, np.int64), np.array(factors, np.float64), unknown,
            len(wanted),
        )  # fmt: skip


class Subset(NamedTuple):
    """Turned gates, and how derivatives by their angles make those by some of the values.

    A value that no gate has, -1, is `unknown`: its derivatives are nan.
    """

    turned: list[int]
    angles: np.ndarray
    columns: np.ndarray
    factors: np.ndarray
    unknown: np.ndarray
    n: int

    def by_values(self, by_angles: np.ndarray) -> np.ndarray:
        """Return rows of derivatives by the values from rows of those by the angles."""
        if len(self.angles) == self.n and (self.columns == np.arange(self.n)).all():
            return by_angles[:, self.angles] * self.factors
        made = [np.bincount(self.columns, row[self.angles] * self.factors, minlength=self.n) for row in by_angles]
        rows = np.array(made, dtype=np.float64).reshape(len(by_angles), self.n)
        rows[:, self.unknown] = np.nan
        return rows


def _linear(value: Any) -> _Linear:
    if not isinstance(value, Expression):
        return float(value), ()
    # Every angle of a gate here is a sum of values times numbers.
    zeros = dict.fromkeys(value.parameters, 0.0)
    return value.evaluate(zeros), tuple([(int(name), slope) for name, slope in slopes(value, zeros).items()])


def _value(linear: _Linear, values: Sequence[float]) -> float:
    constant, terms = linear
    return constant + sum([values[place] * factor for place, factor in terms])


class Plans:
    """The plans that a device used last."""

    def __init__(self, how: How) -> None:
        self._how = how
        self._kept: OrderedDict[Any, Plan] = OrderedDict()
        self._seen: OrderedDict[Any, None] = OrderedDict()

    def program(self, ops: Sequence[Any], places: Mapping[Any, int], n_qubits: int) -> Program:
        """Return the program of a tape; from the second time on that its structure is met it has a plan."""
        key, values = structure(ops)
        if key is None:
            return program(ops, places, n_qubits, self._how)
        whole = key, n_qubits, _order(places)
        plan = self._kept.get(whole)
        if plan is None:
            if whole not in self._seen:
                self._seen[whole] = None
                if len(self._seen) > _MOST_SEEN:
                    self._seen.popitem(last=False)
                return program(ops, places, n_qubits, self._how)
            plan = self._keep(whole, Plan(ops, places, n_qubits, self._how, values))
        return plan.bind(values)

    def plan(self, ops: Sequence[Any], places: Mapping[Any, int], n_qubits: int) -> tuple[Plan, list[float]]:
        """Return the plan of a tape, and its values; the plan has their angles."""
        key, values = structure(ops)
        if key is None:
            values = list(chain.from_iterable([reading.numbers(op) for op in ops if gates.has_angles(op)]))
            return Plan(ops, places, n_qubits, self._how, values), values
        whole = key, n_qubits, _order(places)
        plan = self._kept.get(whole)
        if plan is None:
            return self._keep(whole, Plan(ops, places, n_qubits, self._how, values)), values
        plan.bind(values)
        return plan, values

    def values(self, circuits: Sequence[Any], placed: Callable[[Any], Mapping[Any, int]], threads: int) -> tuple[Any, ...] | None:
        """Return the exact results of tapes, run side by side; None unless they differ in their angles alone.

        They are tapes of expectation values of sums of Pauli operators. Each gives what it gives by itself.
        """
        first = circuits[0]
        places = placed(first)
        n = len(places)
        if n >= _FEWEST_SHARED_QUBITS or any([circuit.shots for circuit in circuits]):
            return None
        observables = _observables(first, places)
        key, values = structure(first.operations)
        if key is None or not values or not observables:
            return None
        sets = [values]
        for circuit in circuits[1:]:
            other, values = structure(circuit.operations)
            if other != key or _order(placed(circuit)) != _order(places) or _observables(circuit, places) != observables:
                return None
            sets.append(values)
        plan, _ = self.plan(first.operations, places, n)
        count = len(sets)
        size = memory.BYTES_PER_AMPLITUDE[self._how.precision] << n
        memory.require_bytes(min(count, threads) * size + 16 * count * (len(plan.turned) + len(observables)), f"{count} tapes")
        angles = np.array([plan.angles(values) for values in sets], dtype=np.float64)
        found = np.zeros((count, len(observables)), dtype=np.complex128)
        _, error, refused = extension.run_batch(
            [plan.core], plan.turned, angles, threads, None, [0] * count, [[]], np.zeros((count, 0), np.uint64),
            [[one.compiled() for one in observables]], found, [], *heard(),
        )  # fmt: skip
        if error is not None:
            raise error
        if refused is not None:
            raise ValueError(refused[1])
        rows = [tuple([np.float64(value) for value in row]) for row in found.real.tolist()]
        return tuple([row[0] if len(row) == 1 else row for row in rows])

    def _keep(self, key: Any, plan: Plan) -> Plan:
        self._kept[key] = plan
        if len(self._kept) > _MOST_KEPT:
            self._kept.popitem(last=False)
        return plan


def _observables(circuit: Any, places: Mapping[Any, int]) -> list[Observable] | None:
    """Return what a tape measures, if that is expectation values of sums of Pauli operators alone."""
    found = []
    for mp in circuit.measurements:
        known = None if type(mp) is not ExpectationMP or mp.obs is None else pauli_observable(mp.obs, places)
        if known is None or known.is_complex:
            return None
        found.append(known)
    return found


def _order(places: Mapping[Any, int]) -> Any:
    return None if isinstance(places, Same) else tuple(places.items())


class Same(dict[Any, int]):
    """Wires that are called as their qubits are numbered."""
