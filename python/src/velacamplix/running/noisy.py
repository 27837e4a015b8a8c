"""Runs of circuits with noise, one way or the other."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..circuit.circuit import Circuit
from ..instructions.flow import leaves, written_bits
from ..programs.prepare import HasNoise
from ..results.plan import MethodCost, Plan, Timings
from . import observing
from .exact import Exact, run_exact
from .method import settled
from .result import Result
from .single import Clock, Request, run_alone
from .trajectories import Trajectories, run_trajectories


def run_any(circuit: Circuit, request: Request, lost: observing.Lost) -> Result:
    """Return the result of a circuit with noise or without; `lost` as for `run_alone`."""
    if not request.is_noisy:
        # Looking for noise would take longer than a small run, and is done where its program is made.
        try:
            return run_alone(circuit, request, lost)
        except HasNoise:
            pass
    return run_noisy(circuit, request, lost)


def run_noisy(circuit: Circuit, request: Request, lost: observing.Lost) -> Result:
    """Return the result of a circuit with noise in it; what there is to warn of comes into `lost`."""
    clock = Clock()
    require_written(request)
    way, methods = settled(circuit, request)
    clock.note("compile")
    if way == "exact":
        exact = run_exact(circuit, request, lost)
        clock.note("simulate")
        return _exact_result(circuit, exact, request, methods, clock.timings())
    made = run_trajectories(circuit, request, lost)
    clock.note("simulate")
    return trajectory_result(circuit, made, request, methods, clock.timings())


def require_written(request: Request) -> None:
    """Raise ValueError for another order of gates than that of the circuit."""
    if request.rank_bits is not None:
        raise ValueError(
            f'schedule must be "written" for a run with noise, whose operators keep their places, got "canonical:{request.rank_bits}"'
        )


def _exact_result(
    circuit: Circuit, made: Exact, request: Request, methods: tuple[MethodCost, ...], timings: Timings
) -> Result:
    """Return what `run` returns of an exact run."""
    plan = Plan(sum([step.is_gate for step in leaves(circuit.instructions)]), (), 0.0, "exact", None, methods)
    values = made.expectation_values
    errors: Any = None
    if values is not None:
        errors = np.zeros(np.shape(values)) if np.ndim(values) else 0.0
    written = tuple(sorted(written_bits(circuit.instructions)))
    result = _result(circuit, made, request, written, values, errors, plan, timings)
    if request.shots is None:
        result._exact = made.outcomes, made.probabilities
    return result


def trajectory_result(
    circuit: Circuit, made: Trajectories, request: Request, methods: tuple[MethodCost, ...], timings: Timings
) -> Result:
    """Return what `run` returns of a run by trajectories."""
    plan = Plan(made.gates, (), 0.0, "trajectories", made.distinct, methods)
    values = errors = None
    if request.observed is not None:
        values = request.observed.shaped(made.means)
        # One shot tells nothing of how shots scatter.
        spread = made.standard_errors if len(made.rows) > 1 else np.full(len(made.standard_errors), np.nan)
        errors = spread.copy() if request.observed.are_many else float(spread[0])
    return _result(circuit, made, request, made.written_bits, values, errors, plan, timings)


def _result(
    circuit: Circuit, made: Exact | Trajectories, request: Request, written: tuple[int, ...], values: Any, errors: Any,
    plan: Plan, timings: Timings,
) -> Result:  # fmt: skip
    return Result(
        n_qubits=circuit.n_qubits,
        n_clbits=circuit.n_clbits,
        registers=circuit.registers,
        is_of_clbits=bool(written),
        n_shots=request.shots,
        seed=made.seed,
        precision=request.precision,
        threads=request.threads,
        active_qubits=made.active_qubits,
        rows=made.rows,
        state=None,
        measured=frozenset(),
        measured_bits=written,
        readings={},
        known_bits=0,
        expectation_values=values,
        standard_errors=errors,
        saved=made.saved,
        timings=timings,
        plan=plan,
    )
