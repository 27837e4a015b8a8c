"""The Fubini-Study metric of the states that a circuit makes, in blocks of gates that act at the same time."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..instructions.instruction import Instruction
from ..machine import memory
from ..observables.observable import Observable
from ..observables.terms import Term
from ..programs.compile import compiled
from ..programs.drive import drive
from ..programs.progress import Meter
from ..states.statevector import StateVector
from . import request as requests
from .differentiable import Differentiable, differentiable

# Strings of Paulis in the generator of a gate double with every control, and products have as many pairs of them.
_MOST_CONTROLS = 6

_LETTERS = {"RX": "X", "RY": "Y", "RZ": "Z", "RXX": "XX", "RYY": "YY", "RZZ": "ZZ"}


class _Turn(NamedTuple):
    """A gate with one angle, and the number of that angle among all that depend on a parameter."""

    gate: int
    generator: Observable
    number: int


def metric_tensor(circuit: Any, values: Any = None, **how: Any) -> np.ndarray:
    """Return the metric; the arguments are those of `Circuit.metric_tensor`."""
    request = requests.checked(circuit, [], "observables", **how)
    row = requests.numbers(circuit, values)
    with differentiable(circuit, row, request.start.nonzero, "double") as one:
        state = StateVector._another(len(one.active), "double", request.threads)
        request.start.prepare(state, one.active)
        steps, turns = _flat(one)
        memory.require_bytes(16 * len(one.angles) ** 2, f"a metric of {len(one.angles)} angles")
        result = np.zeros((len(one.angles), len(one.angles)))
        with Meter(request.progress, len(steps)) as meter:
            done = 0
            for first, block in _blocks(steps, turns):
                program = compiled(steps[done:first], len(one.active), "double", circuit, range(len(one.active)))
                drive(state._live(), program, meter.within())
                meter.advance(first - done)
                done = first
                numbers = [turn.number for turn in block]
                result[np.ix_(numbers, numbers)] = _covariances(state, [turn.generator for turn in block])
        by_parameters = one.by_parameters(np.eye(len(one.angles)), row)  # a row for each angle
    return by_parameters.T @ result @ by_parameters


def _flat(one: Differentiable) -> tuple[list[Instruction], list[_Turn]]:
    """Return the gates on the state's qubits with numbers for angles, and those of them that depend on a parameter."""
    place = {qubit: number for number, qubit in enumerate(one.active)}
    numbers = iter(range(len(one.angles)))
    dependent = set(one.turned)
    steps: list[Instruction] = []
    turns: list[_Turn] = []
    for position, gate in enumerate(one.gates):
        step = gate._replace(
            qubits=tuple([place[qubit] for qubit in gate.qubits]), controls=tuple([place[qubit] for qubit in gate.controls])
        )
        if position not in dependent:
            steps.append(step)
            continue
        own = [next(numbers) for _ in gate.params]
        # U is a phase, a rotation about Y, and a phase: each has one angle.
        parts = [("PH", own[2]), ("RY", own[0]), ("PH", own[1])] if gate.name == "U" else [(gate.name, own[0])]
        for name, number in parts:
            turned = step._replace(name=name, params=(one.angles[number],))
            turns.append(_Turn(len(steps), _generator(turned), number))
            steps.append(turned)
    return steps, turns


def _generator(gate: Instruction) -> Observable:
    """Return G of exp(-i angle G), up to a constant where the gate has no controls."""
    if len(gate.controls) > _MOST_CONTROLS:
        raise ValueError(
            f"the metric takes gates with angles under at most {_MOST_CONTROLS} controls, got {gate.name} under "
            f"{len(gate.controls)}"
        )
    if gate.name == "PH":
        return -1 * Observable.projector("1" * (1 + len(gate.controls)), (*gate.controls, *gate.qubits))
    rotation = Observable([(0.5, _LETTERS[gate.name], gate.qubits)])
    if not gate.controls:
        return rotation
    return rotation @ Observable.projector("1" * len(gate.controls), gate.controls)


def _blocks(steps: Sequence[Instruction], turns: Sequence[_Turn]) -> Iterator[tuple[int, list[_Turn]]]:
    """Iterate over gates with angles that may all stand first among those from a gate on, and that gate's number."""
    by_gate = {turn.gate: turn for turn in turns}
    block: list[_Turn] = []
    first, mixed, read = 0, 0, 0
    for number, step in enumerate(steps):
        own_mixed, own_read = _touched(step)
        clash = (own_mixed & (mixed | read)) | (own_read & mixed)
        if number in by_gate and clash:
            yield first, block
            block, first, mixed, read = [], number, 0, 0
        if number in by_gate:
            if not block:
                first, mixed, read = number, 0, 0
            block.append(by_gate[number])
        mixed, read = mixed | own_mixed, read | own_read
    if block:
        yield first, block


def _touched(step: Instruction) -> tuple[int, int]:
    """Return masks of the qubits whose values a gate mixes, and of those it only reads."""
    targets, controls = sum([1 << qubit for qubit in step.qubits]), sum([1 << qubit for qubit in step.controls])
    if step.name in ("RZ", "PH", "RZZ", "Z", "S", "T", "CSIGN", "diagonal"):
        return 0, targets | controls
    if step.name in ("CNOT", "CCNOT"):
        target = 1 << step.qubits[-1]
        return target, (targets | controls) & ~target
    return targets, controls


def _covariances(state: StateVector, generators: Sequence[Observable]) -> np.ndarray:
    """Return Re <A B> - <A> <B> of every two."""
    size = len(generators)
    pairs = [(a, b) for a in range(size) for b in range(a + 1)]
    products = [generators[a] @ generators[b] for a, b in pairs]
    values = _expectations(state, [*generators, *products])
    result = np.zeros((size, size))
    for (a, b), value in zip(pairs, values[size:]):
        result[a, b] = result[b, a] = value - values[a] * values[b]
    return result


def _expectations(state: StateVector, observables: Sequence[Observable]) -> list[float]:
    """Return the values of several observables, every string of Paulis asked for once."""
    strings = list(dict.fromkeys((term.paulis, term.qubits) for one in observables for term in one.terms))
    found = state.term_values(Observable([Term(1.0, *string) for string in strings]))
    value = dict(zip(strings, found.tolist()))
    return [
        checks.real(one.constant.real, "constant")
        + sum([term.coefficient.real * value[term.paulis, term.qubits] for term in one.terms])
        for one in observables
    ]
