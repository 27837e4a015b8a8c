"""Derivatives by shifted angles: two runs for every angle, or four, exact or from shots.

With f a sum of waves in one angle, of the frequencies that the gate's generator has between its eigenvalues, a few values of
f give its derivative exactly: two for the frequency 1, four for 1/2 and 1 (arXiv:1905.13311, arXiv:2104.05695).
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import NamedTuple

import numpy as np

from ..instructions.instruction import Instruction
from ..observables.observable import Observable
from ..programs.drive import drive
from ..programs.progress import Meter
from ..running.initial import Start
from ..states.statevector import StateVector
from .differentiable import Differentiable

_ROOT = math.sqrt(2.0)
#: Pairs of shift s and weight w: the derivative is the sum of w (f(angle + s) - f(angle - s)).
_TWO = ((math.pi / 2, 0.5),)
_FOUR = ((math.pi / 2, (_ROOT + 1) / (4 * _ROOT)), (3 * math.pi / 2, -(_ROOT - 1) / (4 * _ROOT)))


class ByAngles(NamedTuple):
    """Values, and derivatives by each angle; a row for each observable. Variances are 0 without shots."""

    values: np.ndarray
    value_variances: np.ndarray
    derivatives: np.ndarray
    variances: np.ndarray


def rule(gate: Instruction, number: int) -> tuple[tuple[float, float], ...]:
    """Return shifts and weights for an angle of a gate of a program.

    Under controls a rotation's generator has the eigenvalue 0 beside 1/2 and -1/2; a phase's has 0 and 1 in any case.
    """
    is_rotation = gate.name != "PH" and not (gate.name == "U" and number > 0)
    return _FOUR if gate.controls and is_rotation else _TWO


def evaluations(found: Differentiable) -> int:
    """Return how many runs the derivatives take, and one for the values."""
    gates = [found.gates[gate] for gate in found.turned]
    return 1 + sum([2 * len(rule(gate, number)) for gate in gates for number in range(len(gate.params))])


def by_angles(
    found: Differentiable,
    observables: Sequence[Observable],
    start: Start,
    threads: int,
    shots: int | None,
    seed: int | None,
    meter: Meter,
) -> ByAngles:
    """Return derivatives in double precision: exact, or from so many shots for every term and run."""
    state = StateVector._another(len(found.active), "double", threads)
    if seed is not None:
        state.seed = seed
    n_angles = len(found.angles)
    derivatives, variances = np.zeros((len(observables), n_angles)), np.zeros((len(observables), n_angles))

    def evaluated() -> tuple[np.ndarray, np.ndarray]:
        state.reset()
        start.prepare(state, found.active)
        drive(state._live(), found.program, lambda done, total: meter.tell())
        if shots is None:
            means = [state.expectation(observable) for observable in observables]
            errors = [0.0] * len(observables)
        else:
            means, errors = zip(*[state.estimate(observable, shots) for observable in observables])
        meter.advance(1)
        meter.tell()
        return np.array(means, dtype=np.float64), np.array(errors, dtype=np.float64) ** 2

    values, value_variances = evaluated()
    number = 0
    for gate in found.turned:
        params = found.angles[number : number + len(found.gates[gate].params)]
        for place in range(len(params)):
            for shift, weight in rule(found.gates[gate], place):
                for sign in (1.0, -1.0):
                    shifted = list(params)
                    shifted[place] += sign * shift
                    found.program.set_angles([gate], shifted)
                    means, squares = evaluated()
                    derivatives[:, number] += sign * weight * means
                    variances[:, number] += weight * weight * squares
            number += 1
        found.program.set_angles([gate], params)
    return ByAngles(values, value_variances, derivatives, variances)
