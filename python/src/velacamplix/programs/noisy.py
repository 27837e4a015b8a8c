"""Circuits with noise in steps for trajectories, each stretch with a program that has channels in it."""

from __future__ import annotations

from collections.abc import Sequence
from functools import lru_cache
from typing import Any, NamedTuple

import numpy as np

from ..basics.types import Precision
from ..channels.channel import Channel
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.instruction import Instruction
from ..machine import memory
from .compile import compiled, described
from .prepare import Prepared, parts_of
from .segments import Measurement, Saving, Stretch, segmented

_TRAJECTORY_TYPES: dict[str, Any] = {"single": extension.TrajectoriesSingle, "double": extension.TrajectoriesDouble}

# What rounding may add to a lower bound of a probability.
_ROUNDING = 1e-14


class PreparedTrajectories(Prepared):
    """A circuit's steps for trajectories; in place of a program a stretch has the core's trajectories of one.

    Attributes
    ----------
    whole
        Those of the first stretch, or of one without gates.
    outlook
        What is predicted of a run, made when it is first asked for.
    """

    def __init__(self, circuit: Circuit, nonzero: tuple[int, ...], precision: Precision) -> None:
        if circuit._template is None:
            circuit._require_bound()
        parts = [part for step in circuit.instructions for part in parts_of(step)]
        self.segments = segmented(parts, nonzero, ("channel",))
        for step in self.segments.steps:
            if isinstance(step, Saving):
                raise ValueError(
                    f"{described(step.source, circuit)} cannot save with noise, where every shot has a state of its own; "
                    "observables= of run tells means over the shots"
                )
        n_qubits = len(self.segments.active)
        # The core numbers qubits in masks of 64 bits; a state of more is refused before a program is made for it.
        memory.require_state(n_qubits, precision)
        places = self._places(circuit)
        self.programs = []
        for stretch in self.segments.steps:
            if isinstance(stretch, Stretch):
                gates, channels, sites = _with_usual(stretch.gates, places)
                program = compiled(gates, n_qubits, precision, circuit, places)
                stretch.program = _TRAJECTORY_TYPES[precision](program, channels, sites)
                self.programs.append(stretch.program)
        self.whole: Any = None
        if self.segments.steps and isinstance(self.segments.steps[0], Stretch):
            self.whole = self.segments.steps[0].program
        else:
            self.whole = _TRAJECTORY_TYPES[precision](compiled([], n_qubits, precision, circuit, places), [], [])
        self.outlook: Any = None
        self.plan = None
        self._sites = None

    @property
    def is_plain(self) -> bool:
        """Whether all shots go the same way: gates and channels, then measurements at the end."""
        steps = self.segments.steps
        measured = steps[1:] if steps and isinstance(steps[0], Stretch) and steps[0].condition is None else steps
        return all(isinstance(step, Measurement) and step.condition is None and not step.now for step in measured)

    @property
    def events_per_shot(self) -> float:
        """How many a shot has on average if it takes every step once."""
        return float(sum([program.events_per_shot() for program in self.programs]))


class Row(NamedTuple):
    """A channel as the core takes it, and its usual operator if that is a gate: "diagonal" or "matrix", and its entries."""

    operators: tuple[Any, ...]
    shares: tuple[float, ...]
    usual: int
    is_mixture: bool
    gate: tuple[str, tuple[complex, ...]] | None


@lru_cache(maxsize=256)
def row_of(channel: Channel) -> Row:
    """Return a channel as the core takes it."""
    # The core's first qubit is the highest bit of a row's number and has the first letter: here it is the channel's last.
    paulis, probabilities = channel.pauli_probabilities, channel.probabilities
    matrices = channel.kraus() if channel.unitaries is None else channel.unitaries
    operators: list[Any] = [tuple(matrix.reshape(-1).tolist()) for matrix in matrices]
    if probabilities is not None:
        shares = [min(share, 1.0) for share in probabilities]
        if paulis is not None:
            operators = [text[::-1] for text in paulis]
    else:
        least = [float(np.linalg.eigvalsh(matrix.conj().T @ matrix)[0]) for matrix in matrices]
        shares = [min(max(share - _ROUNDING, 0.0), 1.0) for share in least]
    usual = int(np.argmax(shares))
    matrix = matrices[usual]
    diagonal = np.diag(matrix)
    gate = None
    if not np.array_equal(matrix, np.diag(diagonal)):
        gate = "matrix", tuple(matrix.reshape(-1).tolist())
    elif not (diagonal == 1).all():
        # Decay without a jump: a diagonal shares a sweep with those beside it.
        gate = "diagonal", tuple(diagonal.tolist())
    return Row(tuple(operators), tuple(shares), usual, probabilities is not None, gate)


_Core = tuple[list[Instruction], list[Any], list[tuple[int, bool, int, list[int]]]]


def _with_usual(steps: Sequence[Instruction], places: Sequence[int]) -> _Core:
    """Return gates, the usual operators of channels among them, and the channels and sites for the core."""
    gates: list[Instruction] = []
    channels: dict[Channel, int] = {}
    rows: list[Any] = []
    sites = []
    for step in steps:
        channel = step.detail
        if not isinstance(channel, Channel):
            gates.append(step)
            continue
        row = row_of(channel)
        if channel not in channels:
            channels[channel] = len(rows)
            rows.append(row[:4])
        qubits = step.qubits[::-1]
        sites.append((len(gates), row.gate is not None, channels[channel], [places[qubit] for qubit in qubits]))
        if row.gate is not None:
            name, entries = row.gate
            gates.append(Instruction(name, qubits, entries))
    return gates, rows, sites
