"""A circuit as one program of the core whose angles follow from parameters, and the derivatives of these angles."""

from __future__ import annotations

from collections.abc import Hashable, Iterator, Sequence
from contextlib import contextmanager
from itertools import chain
from weakref import WeakKeyDictionary

import numpy as np

from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.binding import Template
from ..instructions.expand import with_angles
from ..instructions.expression import Expression, Parameter
from ..instructions.instruction import Instruction
from ..instructions.slopes import is_linear, slopes
from ..machine import memory
from ..programs.compile import compiled

# As of circuits in steps, the few preparations of every circuit that were used last.
_MOST_KEPT = 8
_kept: WeakKeyDictionary[Template, dict[Hashable, Differentiable]] = WeakKeyDictionary()


class Differentiable:
    """A circuit of gates alone, for a state of its active qubits.

    Attributes
    ----------
    program
        Of the core, with the angles that `bind` was given last.
    gates : list of Instruction
        Those of the program, with expressions for angles.
    turned : list of int
        Gates of the program with an angle that depends on a parameter; all their angles are listed one after another.
    angles : list of float
        These, as `bind` has set them.
    active : tuple of int
        Qubits that the state has, in increasing order. All others are 0 from beginning to end.

    Raises
    ------
    ValueError
        If the circuit holds anything but gates.
    MemoryError
        If a state does not fit.
    """

    def __init__(
        self,
        circuit: Circuit,
        values: Sequence[float],
        nonzero: tuple[int, ...],
        precision: Precision,
        fusion: bool = False,
    ) -> None:
        for position, step in enumerate(circuit.instructions):
            _require_gate(step, position)
        self.gates = [part for step in circuit.instructions for part in with_angles(step) if part.is_gate]
        self.active = tuple(sorted({*nonzero, *chain.from_iterable([step.qubits + step.controls for step in self.gates])}))
        # The core numbers qubits in masks of 64 bits; a state of more is refused before a program is made for it.
        memory.require_state(len(self.active), precision)
        names = circuit.parameters
        self._template = Template(circuit.registers, tuple(self.gates))
        self._order = [names.index(name) for name in self._template.parameters]
        self.turned = list(self._template.dependent)
        params = self._template.params([values[place] for place in self._order])
        places = [0] * circuit.n_qubits
        for place, qubit in enumerate(self.active):
            places[qubit] = place
        bound = self._template.instructions_with(params)
        self.program = compiled(bound, len(self.active), precision, circuit, places, fusion)
        self.angles = list(chain.from_iterable(params))
        self._set_up_slopes(names)

    def _set_up_slopes(self, names: tuple[str, ...]) -> None:
        place = {name: number for number, name in enumerate(names)}
        fixed: list[tuple[int, int, float]] = []  # angle, parameter, derivative
        self._changing: list[tuple[int, Expression]] = []
        zeros = dict.fromkeys(names, 0.0)
        for number, angle in enumerate(chain.from_iterable([self.gates[gate].params for gate in self.turned])):
            if isinstance(angle, Parameter):
                fixed.append((number, place[angle.name], 1.0))
            elif isinstance(angle, Expression) and is_linear(angle):
                fixed.extend([(number, place[name], slope) for name, slope in slopes(angle, zeros).items()])
            elif isinstance(angle, Expression):
                self._changing.append((number, angle))
        self._fixed, self._names, self._place = fixed, names, place

    def bind(self, values: Sequence[float]) -> None:
        """Take a number for each of the circuit's parameters."""
        params = self._template.params([values[place] for place in self._order])
        self.angles = list(chain.from_iterable(params))
        self.program.set_angles(self.turned, self.angles)

    def by_parameters(self, by_angles: np.ndarray, values: Sequence[float], squared: bool = False) -> np.ndarray:
        """Return derivatives by the parameters from those by the angles: rows of one from rows of the other.

        With `squared` they are variances, and so are those returned.
        """
        entries = list(self._fixed)
        named = dict(zip(self._names, values))
        for number, expression in self._changing:
            found = slopes(expression, named).items()
            entries.extend([(number, self._place[name], slope) for name, slope in found])
        rows, columns, weights = (np.array(column) for column in zip(*entries)) if entries else _NOTHING
        if squared:
            weights = weights * weights
        n = len(self._names)
        return np.array(
            [np.bincount(columns, row[rows] * weights, minlength=n)[:n] for row in by_angles], dtype=np.float64
        ).reshape(len(by_angles), n)


_NOTHING = np.zeros(0, np.int64), np.zeros(0, np.int64), np.zeros(0)


@contextmanager
def differentiable(
    circuit: Circuit, values: Sequence[float], nonzero: tuple[int, ...], precision: Precision, fusion: bool = False
) -> Iterator[Differentiable]:
    """Give a circuit with these values, made anew or taken over from the last time."""
    kept = _kept.setdefault(circuit._as_template(), {})
    key = nonzero, precision, fusion
    found = kept.pop(key, None)
    if found is None:
        found = Differentiable(circuit, values, nonzero, precision, fusion)
    else:
        found.bind(values)
    yield found
    # Only after all went well, and where no other thread uses it: a program is run once at a time.
    kept[key] = found
    for oldest in list(kept)[:-_MOST_KEPT]:
        kept.pop(oldest, None)


def _require_gate(step: Instruction, position: int) -> None:
    if step.condition is not None:
        reason = "acts on a condition, so that the value is a mean over outcomes"
    elif step.is_gate or step.name == "barrier":
        return
    elif step.name == "measure":
        reason = "is a measurement; expectation values are exact without it"
    elif step.name == "save":
        reason = "keeps a result, which only run returns"
    elif step.name == "channel":
        reason = "is noise, which makes a mixture of states"
    elif step.name == "reset":
        reason = "cannot be undone on the way back"
    else:
        reason = "decides by outcomes, so that the value is a mean over them"
    raise ValueError(f"a gradient needs a circuit of gates alone, but instruction {position} ({step}) {reason}")
