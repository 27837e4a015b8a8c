"""Tapes with mid-circuit measurements, followed into every outcome."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence
from typing import Any

import numpy as np
from pennylane.measurements import (
    CountsMP,
    DensityMatrixMP,
    ExpectationMP,
    ProbabilityMP,
    PurityMP,
    SampleMP,
    StateMP,
    VarianceMP,
)
from pennylane.ops.op_math import Conditional

from ..states.densitymatrix import DensityMatrix
from .errors import NotConverted
from .reading import MidMeasure
from .samples import Sampling, possible, value_of
from .values import State, View, exact, shown

Outcomes = Mapping[Any, int]
# Applies gates to a state.
Apply = Callable[[State, Sequence[Any]], None]
# Is given a state, its weight or number of shots, and the outcomes on the way to it.
Visit = Callable[[State, Any, Outcomes], None]

# Without shots no outcome of less probability is followed.
_NEGLIGIBLE = 1e-15


def is_dynamic(ops: Sequence[Any]) -> bool:
    """Whether there are mid-circuit measurements among operations."""
    return any([isinstance(op, MidMeasure) for op in ops])


class Tree:
    """All ways through a tape.

    Outcomes are drawn for all shots at once, so that there is one state for every set of outcomes and not for every shot;
    the one with fewer shots is followed first, which keeps the number of states at a time below log2(shots) + 2.
    """

    def __init__(
        self, ops: Sequence[Any], places: Mapping[Any, int], apply: Apply, visit: Visit,
        rng: np.random.Generator,
    ) -> None:  # fmt: skip
        self._ops, self._places, self._apply, self._visit = list(ops), places, apply, visit
        self._rng = rng

    def follow(self, state: State, weight: Any, start: int = 0, outcomes: Outcomes = {}) -> None:
        """Go on from an operation with a state, which is used up.

        `weight` is a number of shots, an ``int``, or a probability.
        """
        while True:
            position, gates = self._until_measurement(start, outcomes)
            self._apply(state, gates)
            if position == len(self._ops):
                self._visit(state, weight, outcomes)
                return
            op = self._ops[position]
            qubit = self._places[op.wires.labels[0]]
            parts = self._parts(op, weight, _share(state, qubit))
            if not parts:
                return
            start = position + 1
            if len(parts) == 2:
                parts.sort(key=lambda part: part[1])
                value, own = parts[0]
                self.follow(_projected(state.copy(), qubit, value, op.reset), own, start, {**outcomes, op: value})
            value, weight = parts[-1]
            state = _projected(state, qubit, value, op.reset)
            outcomes = {**outcomes, op: value}

    def _until_measurement(self, start: int, outcomes: Outcomes) -> tuple[int, list[Any]]:
        gates: list[Any] = []
        for position in range(start, len(self._ops)):
            op = self._ops[position]
            if isinstance(op, MidMeasure):
                return position, gates
            if isinstance(op, Conditional):
                try:
                    holds = value_of(op.meas_val, outcomes)
                except KeyError:
                    raise NotConverted("its condition is about a measurement that has not been made", str(op), position) from None
                if not holds:
                    continue
                op = op.base
            gates.append(op)
        return len(self._ops), gates

    def _parts(self, op: Any, weight: Any, ones: float) -> list[tuple[int, Any]]:
        shares = (1 - ones, ones)
        if isinstance(weight, int):
            with_one = int(self._rng.binomial(weight, ones))
            found: list[tuple[int, Any]] = [(0, weight - with_one), (1, with_one)]
        else:
            found = [(value, weight * share) if share > _NEGLIGIBLE else (value, 0.0) for value, share in enumerate(shares)]
        return [(value, own) for value, own in found if own and op.postselect in (None, value)]


def _share(state: State, qubit: int) -> float:
    zeros, ones = (float(share) for share in state.distribution(qubit))
    return min(1.0, max(0.0, ones / (zeros + ones)))


def _projected(state: State, qubit: int, value: int, reset: bool) -> State:
    return state.project_then_reset(qubit, value) if reset else state.project(qubit, value)


# --- Without shots ---


class Mixture:
    """Exact values of measurements, summed over all outcomes."""

    def __init__(self, measurements: Sequence[Any], places: Mapping[Any, int]) -> None:
        self._measurements, self._places = measurements, places
        self._total = 0.0
        self._sums: list[Any] = [0.0] * len(measurements)
        for mp in measurements:
            if isinstance(mp, (CountsMP, SampleMP)):
                raise NotConverted(f"{mp} needs shots")
            is_value = mp.mv is not None
            if is_value and not isinstance(mp, (ExpectationMP, VarianceMP, ProbabilityMP)):
                raise NotConverted(f"{mp} cannot be made from mid-circuit measurements")
            if not is_value and not isinstance(mp, (ExpectationMP, VarianceMP, ProbabilityMP, DensityMatrixMP, PurityMP)):
                if not hasattr(mp, "process_density_matrix") or type(mp) is StateMP:
                    raise NotConverted(f"{mp} has no meaning behind mid-circuit measurements, whose outcomes differ")

    def add(self, state: State, weight: float, outcomes: Outcomes) -> None:
        """Take a state with its probability."""
        view = View(state, self._places)
        self._total += weight
        for place, mp in enumerate(self._measurements):
            self._sums[place] = self._sums[place] + weight * self._linear(mp, view, outcomes)

    def _linear(self, mp: Any, view: View, outcomes: Outcomes) -> Any:
        """Return what is averaged over states."""
        if mp.mv is not None:
            if isinstance(mp, ProbabilityMP):
                listed = mp.mv if isinstance(mp.mv, (list, tuple)) else [mp.mv]
                row = tuple([value_of(value, outcomes) for value in listed])
                every = possible(mp.mv)
                return np.array([float((one if isinstance(mp.mv, (list, tuple)) else (one,)) == row) for one in every])
            value = float(value_of(mp.mv, outcomes))
            return np.array([value, value * value])
        if isinstance(mp, VarianceMP):
            return np.array(view.moments(mp.obs) if mp.obs is not None else view.eigenvalue_moments(mp))
        if isinstance(mp, (ExpectationMP, ProbabilityMP, DensityMatrixMP)):
            return exact(mp, view)
        return view.state.reduced(range(view.state.n_qubits), order="big")

    def results(self) -> Any:
        """Return the results of all measurements, as a device returns them; nan if no outcome was allowed."""
        with np.errstate(invalid="ignore"):
            found = [self._finished(mp, np.divide(total, self._total)) for mp, total in zip(self._measurements, self._sums)]
        return found[0] if len(found) == 1 else tuple(found)

    def _finished(self, mp: Any, mean: Any) -> Any:
        if isinstance(mp, VarianceMP):
            first, second = np.broadcast_to(mean, 2)
            return np.float64(np.maximum(0.0, second - first * first))
        if isinstance(mp, ExpectationMP):
            return shown(complex(np.ravel(mean)[0]))
        if isinstance(mp, (ProbabilityMP, DensityMatrixMP)):
            return mean
        # Entropies and purity are those of the mean state.
        state = DensityMatrix.from_array(mean, order="big")
        return exact(mp, View(state, self._places))


def sampled(tree: Callable[[Visit], Tree], state: State, sampling: Sampling, shots: Any, places: Mapping[Any, int]) -> Any:
    """Return the results of all measurements from shots."""
    tree(lambda one, count, outcomes: sampling.draw(View(one, places), count, outcomes)).follow(state, shots.total_shots)
    return sampling.results(shots)
