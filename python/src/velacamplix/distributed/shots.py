"""Runs a circuit with noise on many ranks: each makes some of the shots on whole states of its own."""

from __future__ import annotations

import secrets
from typing import Any

from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.flow import leaves
from ..machine import memory
from ..programs.compile import described
from ..running import observing
from ..running.method import settled
from ..running.noisy import require_written, trajectory_result
from ..running.result import Result
from ..running.single import Clock, Request
from ..running.trajectories import made, spread
from .ranks import Ranks, ranks_of, sines_and_cosines


def run_shots(circuit: Circuit, request: Request, comm: Any, threads: int | None, lost: observing.Lost) -> Result:
    """Return the result of a circuit by trajectories, the same on all ranks, which share out the shots.

    Parameters are those of `run_distributed`.
    """
    clock = Clock()
    if request.method == "exact" or request.start.is_mixed:
        raise ValueError(
            'method must be "trajectories" or "auto" across ranks, whose shots are shared out; exact runs, on density matrices, are '
            "those of one process"
        )
    if request.shots is None:
        raise ValueError("shots must be given for noise across ranks, which make some of the shots each")
    require_written(request)
    for step in leaves(circuit.instructions):
        if step.name == "save":
            raise ValueError(f"circuit must be without saves to run across ranks, got {described(step, circuit)}")
    ranks = ranks_of(comm, have_parts=False)
    if request.shots < ranks.size:
        raise ValueError(f"shots must be at least {ranks.size} on as many ranks, so that each makes one, got {request.shots}")
    _agree(circuit, request, ranks)
    seed = ranks.first(lambda: secrets.randbits(32)) if request.seed is None else request.seed
    first, end = (request.shots * rank // ranks.size for rank in (ranks.rank, ranks.rank + 1))
    whole = request._replace(method="trajectories", seed=seed, threads=ranks.threads(threads))
    own = whole._replace(
        shots=end - first,
        first_shot=(request.first_shot or 0) + first,
        progress=request.progress if ranks.rank == 0 else None,
    )
    error: Exception | None = None
    try:
        methods = settled(circuit, whole)[1]
    except (MemoryError, ValueError) as raised:
        error = raised
    ranks.raise_together(error)
    needed = methods[-1].bytes
    ranks.require(needed, f"trajectories, each of whole states that take {memory.human(needed)},", "Fewer ranks on a machine need less")
    clock.note("compile")
    try:
        part = made(circuit, own, lost, are_some=True)
    except Exception as raised:
        error = raised
    ranks.raise_together(error)
    rows = ranks.concatenated(part.rows)
    if part.values is None:
        distinct, means, errors = extension.combined_trajectories(*map(ranks.concatenated, part.records))
    else:
        distinct = sum(ranks.gathered(part.distinct))
        means, errors = spread(ranks.concatenated(part.values))
    clock.note("simulate")
    together = part.together(distinct, means, errors, rows)
    return trajectory_result(circuit, together, whole, methods, clock.timings())


def _agree(circuit: Circuit, request: Request, ranks: Ranks) -> None:
    """Refuse ranks with other circuits, arguments or versions, or that make other numbers of them."""
    if ranks.size == 1:
        return
    ranks.agree(
        version=extension.version(),
        precision=request.precision,
        number_of_qubits=circuit.n_qubits,
        circuit=ranks.same(circuit),
        initial_state=request.start.told(),
        number_of_shots=request.shots,
        number_of_the_first_shot=request.first_shot,
        seed=request.seed,
        observables=None if request.observed is None else [str(one) for one in request.observed.observables],
        sines_and_cosines=sines_and_cosines(leaves(circuit.instructions)),
    )
