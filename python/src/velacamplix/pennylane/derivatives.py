"""Derivatives of expectation values on a tape, by the adjoint method of the core."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any, NamedTuple

import numpy as np
from pennylane.measurements import ExpectationMP
from pennylane.operation import StatePrepBase

from ..basics.types import Precision
from ..gradients.gradient import states_that_fit
from ..machine import limits
from ..observables.observable import Observable
from ..programs.drive import heard
from ..states.statevector import StateVector
from . import gates
from .errors import NotConverted
from .observables import observable
from .plan import Plans, Program, Subset
from .reading import initial_amplitudes


class _Request(NamedTuple):
    """A tape, prepared."""

    program: Program
    subset: Subset
    initial: StateVector | None
    n_qubits: int


class Adjoint:
    """Derivatives by the parameters that a tape says are trainable; by those of observables they are nan.

    Raises
    ------
    NotConverted
        If a tape has shots, or measures anything but expectation values of observables with real weights, or a trainable
        parameter is no angle of a gate.
    """

    def __init__(self, plans: Plans, precision: Precision, threads: int | None) -> None:
        self._plans, self._precision, self._threads = plans, precision, threads

    def jacobian(self, circuit: Any, places: Mapping[Any, int]) -> tuple[Any, Any]:
        """Return values and derivatives, both in PennyLane's shapes."""
        observables = _observables(circuit, places)
        values, rows = self._found(self._request(circuit, places), observables)
        return _shaped(values), _nested(rows)

    def vjp(self, circuit: Any, places: Mapping[Any, int], cotangents: Any) -> Any:
        """Return the derivatives of the values' sum, each times its cotangent, an array for each parameter.

        Cotangents may be batched along a last axis; so is what is returned.
        """
        observables = _observables(circuit, places)
        weights = np.asarray([np.asarray(one) for one in cotangents] if np.iterable(cotangents) else [cotangents], np.float64)
        n = len(observables)
        if n == 1 and weights.ndim == 1:
            weights = weights.reshape(1, -1) if weights.size != 1 or np.ndim(cotangents) else weights
        request = self._request(circuit, places)
        if weights.shape == (n,) or weights.shape == (1, 1):
            # One observable, their weighted sum, costs one gradient.
            flat = weights.reshape(-1)
            total = observables[0] * float(flat[0]) if n > 1 else observables[0]
            for one, weight in zip(observables[1:], flat[1:]):
                total = total + one * float(weight)
            _, rows = self._found(request, [total])
            products = rows[0] if n > 1 else rows[0] * flat[0]
        else:
            _, rows = self._found(request, observables)
            products = np.tensordot(weights, rows, axes=(0, 0)).T
        return tuple([np.asarray(product) for product in products])

    def jvp(self, circuit: Any, places: Mapping[Any, int], tangents: Any) -> tuple[Any, Any]:
        """Return values, and how they change in a direction of the parameters."""
        values, rows = self._found(self._request(circuit, places), _observables(circuit, places))
        return _shaped(values), _shaped(rows @ np.asarray([np.asarray(one) for one in tangents], np.float64).reshape(-1))

    def _request(self, circuit: Any, places: Mapping[Any, int]) -> _Request:
        n, ops = len(places), circuit.operations
        skipped, initial = 0, None
        if ops and isinstance(ops[0], StatePrepBase):
            initial = StateVector._another(n, self._precision, limits.thread_count(self._threads))
            initial.set_state(initial_amplitudes(ops[0], places), order="big")
            skipped, ops = len(ops[0].data), ops[1:]
        plan, _ = self._plans.plan(ops, places, n)
        return _Request(Program(plan.core, 0.0), plan.subset(_places_of_values(circuit, ops, skipped)), initial, n)

    def _found(self, request: _Request, observables: list[Observable]) -> tuple[np.ndarray, np.ndarray]:
        subset = request.subset
        most = states_that_fit(request.n_qubits, self._precision, 1 + len(observables))
        values, by_angles, _ = request.program.core.gradient(
            [one.compiled() for one in observables], subset.turned, limits.thread_count(self._threads), most,
            None if request.initial is None else request.initial._live(), *heard(),
        )  # fmt: skip
        return np.asarray(values), subset.by_values(by_angles)


def _observables(circuit: Any, places: Mapping[Any, int]) -> list[Observable]:
    if circuit.shots:
        raise NotConverted("adjoint derivatives are those of exact values, got a tape with shots")
    found = []
    for mp in circuit.measurements:
        if not isinstance(mp, ExpectationMP) or mp.obs is None:
            raise NotConverted(f"adjoint derivatives are those of expectation values of observables, got {mp}")
        one = observable(mp.obs, places)
        if one.is_complex:
            raise NotConverted(f"adjoint derivatives are those of Hermitian observables, got {mp}")
        found.append(one)
    return found


def _places_of_values(circuit: Any, ops: Any, skipped: int) -> tuple[int, ...]:
    """Return the places of the trainable parameters among the angles of a tape's gates; -1 for what belongs to observables."""
    places: list[int] = []
    known: list[int | None] = [None] * skipped
    n = 0
    for op in ops:
        count = len(op.data)
        if gates.has_angles(op):
            known += range(n, n + count)
            n += count
        else:
            known += [None] * count
    for number in circuit.trainable_params:
        place = known[number] if number < len(known) else -1
        if place is None:
            raise NotConverted(
                f"trainable parameter {number} of the tape is no angle of a gate; mark it as requires_grad=False, or take "
                'diff_method="parameter-shift"'
            )
        places.append(place)
    return tuple(places)


# --- PennyLane's shapes ---


def _shaped(values: np.ndarray) -> Any:
    return np.float64(values[0]) if len(values) == 1 else tuple([np.float64(value) for value in values])


def _of_parameters(row: np.ndarray) -> Any:
    if len(row) == 1:
        return np.asarray(row[0])
    return tuple([np.asarray(value) for value in row])


def _nested(rows: np.ndarray) -> Any:
    made = [_of_parameters(row) for row in rows]
    return made[0] if len(made) == 1 else tuple(made)


__all__ = ["Adjoint"]
