"""Runs of circuits with noise, one way or the other."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..basics.types import Order, Precision
from ..circuit.circuit import Circuit
from ..instructions.flow import leaves, written_bits
from ..results.plan import MethodCost, Plan, Timings
from ..states.densitymatrix import DensityMatrix
from .exact import Exact, run_exact
from .method import settled
from .observing import Observed
from .result import Result
from .saved import Saved
from .single import Clock, Request
from .trajectories import Trajectories, run_trajectories


def run_noisy(
    circuit: Circuit, request: Request, method: str, initial: Any, initial_order: Order | None, first_shot: int
) -> Result:
    """Return the result of a circuit with noise in it."""
    clock = Clock()
    shots, precision, threads = request.shots, request.precision, request.threads
    start = None if isinstance(initial, DensityMatrix) else request.start
    way, methods = settled(circuit, method, shots, threads, precision, initial, start, request.fused)
    clock.note("compile")
    if way == "exact":
        exact = run_exact(
            circuit, shots, request.seed, threads, precision, request.observed, initial, initial_order,
            request.progress, first_shot,
        )  # fmt: skip
        clock.note("simulate")
        return _exact_result(circuit, exact, shots, threads, precision, methods, clock.timings())
    assert shots is not None
    made = run_trajectories(
        circuit, shots, request.seed, threads, precision, request.observed, request.start, request.progress, first_shot
    )
    clock.note("simulate")
    return _trajectory_result(circuit, made, request.observed, threads, precision, methods, clock.timings())


def _exact_result(
    circuit: Circuit,
    made: Exact,
    shots: int | None,
    threads: int,
    precision: Precision,
    methods: tuple[MethodCost, ...],
    timings: Timings,
) -> Result:
    """Return what `run` returns of an exact run."""
    plan = Plan(sum([step.is_gate for step in leaves(circuit.instructions)]), (), 0.0, "exact", None, methods)
    values = made.expectation_values
    errors: Any = None
    if values is not None:
        errors = np.zeros(np.shape(values)) if np.ndim(values) else 0.0
    return _result(
        circuit, shots, made.seed, threads, precision, made.active_qubits, made.rows, values, errors, plan, timings
    )


def _trajectory_result(
    circuit: Circuit,
    made: Trajectories,
    observed: Observed | None,
    threads: int,
    precision: Precision,
    methods: tuple[MethodCost, ...],
    timings: Timings,
) -> Result:
    """Return what `run` returns of a run by trajectories."""
    plan = Plan(made.gates, (), 0.0, "trajectories", made.distinct, methods)
    values = errors = None
    if observed is not None:
        values = observed.shaped(made.means)
        errors = made.standard_errors.copy() if observed.are_many else float(made.standard_errors[0])
    return _result(
        circuit, len(made.rows), made.seed, threads, precision, made.active_qubits, made.rows, values, errors, plan, timings
    )


def _result(
    circuit: Circuit,
    shots: int | None,
    seed: int | None,
    threads: int,
    precision: Precision,
    active: tuple[int, ...],
    rows: np.ndarray | None,
    values: Any,
    errors: Any,
    plan: Plan,
    timings: Timings,
) -> Result:
    written = sorted(written_bits(circuit.instructions))
    return Result(
        n_qubits=circuit.n_qubits,
        n_clbits=circuit.n_clbits,
        registers=circuit.registers,
        is_of_clbits=bool(written),
        n_shots=shots,
        seed=seed,
        precision=precision,
        threads=threads,
        active_qubits=active,
        rows=rows,
        state=None,
        measured=frozenset(),
        measured_bits=tuple(written),
        readings={},
        known_bits=0,
        expectation_values=values,
        standard_errors=errors,
        saved=Saved(circuit.n_qubits, active, {}),
        timings=timings,
        plan=plan,
    )
