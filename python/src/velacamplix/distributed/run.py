"""Runs a circuit on many ranks."""

from __future__ import annotations

import hashlib
import secrets
from typing import Any

import numpy as np

from ..circuit.circuit import Circuit
from ..core import extension
from ..programs.compile import compiled, described
from ..programs.drive import drive
from ..programs.prepare import Prepared
from ..programs.progress import metered
from ..programs.segments import Segments, Stretch
from ..results.plan import Plan
from ..running import observing
from ..running.batch import End, runs_one_way
from ..running.method import has_noise
from ..running.result import Result
from ..running.saved import Saved
from ..running.single import Clock, Request
from .ranks import Ranks, ranks_of
from .result import DistributedResult
from .shots import run_shots
from .state import DistributedState, require_fitting


def run_distributed(
    circuit: Circuit, request: Request, comm: Any, threads: int | None, lost: observing.Lost
) -> Result:
    """Return the result of a circuit, the same on all ranks: each has a part of the state, or with noise some of the shots.

    Parameters
    ----------
    request : Request
        Its `threads` are not looked at.
    comm : mpi4py.MPI.Intracomm or None
    threads : int or None
        As the caller gave them: None lets the ranks of a machine share its processors.
    lost : Lost
        As for `run_alone`.
    """
    if request.is_noisy or has_noise(circuit):
        return run_shots(circuit, request, comm, threads, lost)
    clock = Clock()
    if request.fused:
        raise ValueError("fusion must be False across ranks, where gates are carried out exactly, got True")
    ranks = ranks_of(comm)
    with request.prepared(circuit, ranks.bits) as found:
        return _carried_out(circuit, found, request, ranks, ranks.threads(threads), clock, lost)


def _carried_out(
    circuit: Circuit, found: Prepared, request: Request, ranks: Ranks, threads: int, clock: Clock, lost: observing.Lost
) -> DistributedResult:
    segments, shots, observed = found.segments, request.shots, request.observed
    _require_one_way(circuit, segments)
    n = len(segments.active)
    basis = _basis_state(request, segments.active)
    end = End(circuit, segments, observed)
    _agree(circuit, found, request, ranks, end)
    seed = ranks.first(lambda: secrets.randbits(32)) if request.seed is None else request.seed
    require_fitting(ranks, n, "the qubits that gates act on")
    program = found.programs[0] if found.programs else compiled([], n, request.precision, circuit, range(n))
    before = ranks.sent
    state = DistributedState._another(ranks, n, request.precision, threads, is_run_next=ranks.size == 1)
    act = _on_one_rank if ranks.size == 1 else _in_stages
    stages, parts_sent = act(state, program, basis, request, clock)
    clock.note("simulate")

    rows = None
    if shots is not None:
        rows = end.readout.rows(state._drawn(shots, tuple(end.readout.qubits), seed))
        clock.note("sample")
    expectations = None
    if observed is not None:
        values = [state._expectation(observable) for observable in end.observables]
        # As the mean over groups of shots, of which there is one here.
        expectations = observed.shaped(0.0 + 1.0 * np.array(values, dtype=np.complex128))
        lost.add(None, end.lost)
        clock.note("observables")
    return DistributedResult(
        n_qubits=circuit.n_qubits,
        n_clbits=circuit.n_clbits,
        registers=circuit.registers,
        is_of_clbits=segments.has_measurement,
        n_shots=shots,
        seed=None if shots is None else seed,
        precision=request.precision,
        threads=threads,
        active_qubits=segments.active,
        rows=rows,
        state=None,
        measured=end.measured,
        measured_bits=segments.written_bits,
        readings=dict(end.readings),
        known_bits=0,
        expectation_values=expectations,
        saved=Saved(circuit.n_qubits, segments.active, {}),
        timings=clock.timings(),
        plan=Plan(len(program), (), 0.0),
        distributed_state=state,
        stages=stages,
        parts_sent=parts_sent,
        bytes_sent=ranks.sent - before,
    )


def _on_one_rank(state: DistributedState, program: Any, basis: int, request: Request, clock: Clock) -> tuple[int, float]:
    """Let the gates act on a state that is one part; return what `_in_stages` does."""
    core = state._part._live()
    core.begin(basis)
    clock.note("compile")
    with metered(request.progress, len(program), "gates") as meter:
        drive(core, program, meter.within(), to_end=True)
        meter.advance(len(program))
    return 1, 0.0


def _in_stages(state: DistributedState, program: Any, basis: int, request: Request, clock: Clock) -> tuple[int, float]:
    """Let the gates act in all parts; return the number of stages, and how many parts each rank sends."""
    plan = state._planned(program, from_zeros=basis == 0)
    rank, view = state.rank, state._part._live().view()
    if basis and rank in (0, basis >> plan.part_qubits()):
        view[0] = 0
        if rank == basis >> plan.part_qubits():
            view[basis & (len(view) - 1)] = 1
    clock.note("compile")
    state._carry_out(plan, request.progress)
    return len(plan), plan.parts_sent()


def _require_one_way(circuit: Circuit, segments: Segments) -> None:
    if segments.steps and not runs_one_way(segments):
        for step in segments.steps:
            source = getattr(step, "source", None)
            if not isinstance(step, Stretch) and source is not None and (source.name != "measure" or getattr(step, "now", ())):
                raise ValueError(
                    f"circuit must be gates, and measurements at its end, to run across ranks; got {described(source, circuit)}, "
                    "whose outcome or state is needed before the end"
                )
        raise ValueError("circuit must be gates without conditions, and measurements at its end, to run across ranks")


def _basis_state(request: Request, active: tuple[int, ...]) -> int:
    """Return the index of the basis state to begin with."""
    product = request.start.on(active)
    if product is None:
        return 0
    if product == "amplitudes" or product.strip("01"):
        raise ValueError(
            'initial must be a basis state across ranks, a number or a text of "0" and "1"; gates at the beginning of the circuit '
            "make other states"
        )
    return sum([1 << place for place, digit in enumerate(product) if digit == "1"])


def _agree(circuit: Circuit, found: Prepared, request: Request, ranks: Ranks, end: End) -> None:
    """Refuse ranks with other circuits, arguments or versions."""
    if ranks.size == 1:
        return
    told = hashlib.sha256()
    for step in found.segments.steps:
        for gate in step.gates if isinstance(step, Stretch) else ():
            told.update(repr((gate.name, gate.qubits, gate.controls, gate.params)).encode())
    start = request.start.on(found.segments.active)
    ranks.agree(
        version=extension.version(),
        precision=request.precision,
        number_of_qubits=circuit.n_qubits,
        circuit=(told.hexdigest(), end.readings, end.n_bits, found.segments.active),
        schedule="written" if request.rank_bits is None else f"canonical:{request.rank_bits}",
        initial_state=start,
        number_of_shots=request.shots,
        seed=request.seed,
        observables=None if request.observed is None else [str(one) for one in request.observed.observables],
    )
