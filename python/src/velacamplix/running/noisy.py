"""Runs of circuits with noise, one way or the other."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.flow import leaves, written_bits
from ..programs.prepare import HasNoise
from ..results.plan import MethodCost, Plan, Timings
from . import observing
from .exact import Exact, run_exact
from .method import settled
from .observing import Observed
from .result import Result
from .saved import Saved
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
    if request.rank_bits is not None:
        raise ValueError(
            f'schedule must be "written" for a run with noise, whose operators keep their places, got "canonical:{request.rank_bits}"'
        )
    shots, precision, threads, observed = request.shots, request.precision, request.threads, request.observed
    way, methods = settled(circuit, request)
    clock.note("compile")
    if way == "exact":
        exact = run_exact(circuit, request, lost)
        clock.note("simulate")
        return _exact_result(circuit, exact, shots, threads, precision, methods, clock.timings())
    assert shots is not None
    made = run_trajectories(
        circuit, shots, request.seed, threads, precision, observed, request.start, request.progress,
        request.first_shot or 0, lost,
    )  # fmt: skip
    clock.note("simulate")
    return _trajectory_result(circuit, made, observed, threads, precision, methods, clock.timings())


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
    written = tuple(sorted(written_bits(circuit.instructions)))
    result = _result(
        circuit, shots, made.seed, threads, precision, made.active_qubits, written, made.rows, values, errors, made.saved,
        plan, timings,
    )  # fmt: skip
    if shots is None:
        result._exact = made.outcomes, made.probabilities
    return result


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
        # One shot tells nothing of how shots scatter.
        spread = made.standard_errors if len(made.rows) > 1 else np.full(len(made.standard_errors), np.nan)
        errors = spread.copy() if observed.are_many else float(spread[0])
    return _result(
        circuit, len(made.rows), made.seed, threads, precision, made.active_qubits, made.written_bits, made.rows, values, errors,
        made.saved, plan, timings,
    )  # fmt: skip


def _result(
    circuit: Circuit,
    shots: int | None,
    seed: int | None,
    threads: int,
    precision: Precision,
    active: tuple[int, ...],
    written: tuple[int, ...],
    rows: np.ndarray | None,
    values: Any,
    errors: Any,
    saved: Saved,
    plan: Plan,
    timings: Timings,
) -> Result:
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
        measured_bits=written,
        readings={},
        known_bits=0,
        expectation_values=values,
        standard_errors=errors,
        saved=saved,
        timings=timings,
        plan=plan,
    )
