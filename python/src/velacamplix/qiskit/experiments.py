"""Circuits of a job, run together, and their results in Qiskit's form."""

from __future__ import annotations

import datetime
import time
import warnings
from collections.abc import Sequence
from typing import Any, NamedTuple

from qiskit.result import Result as QiskitResult
from qiskit.result.models import ExperimentResult, ExperimentResultData

from ..circuit.circuit import Circuit
from ..instructions.flow import bodies_of, leaves
from ..machine import limits
from ..running import observing
from ..running.batch import member_seeds, run_many
from ..running.initial import Start
from ..running.method import has_noise
from ..running.result import Result
from ..running.run import run
from ..running.single import Request
from .job import Hear
from .options import How
from .saves import Asked, Density, of_mixed, of_pure, without

try:  # before Qiskit 2.0
    from qiskit.qobj import QobjExperimentHeader
except ImportError:
    QobjExperimentHeader = None
_OLDER = {} if QobjExperimentHeader is None else {"qobj_id": ""}

# Even where every shot has to run the whole circuit, so many instructions in all shots take some milliseconds.
_FEW_QUBITS, _FEW_STEPS = 10, 50_000


class Experiment(NamedTuple):
    """A circuit with numbers for all its parameters; or why there is none.

    Attributes
    ----------
    circuit : Circuit or Exception
        With its saves.
    header : dict
        What Qiskit tells of a circuit in results.
    saves : tuple of Asked
    is_mixed : bool
        Whether what they keep is that of density matrices.
    """

    circuit: Circuit | Exception
    header: dict[str, Any]
    saves: tuple[Asked, ...] = ()
    is_mixed: bool = False

    @property
    def to_run(self) -> Circuit | Exception:
        """What is run: with noise without saves."""
        return without(self.circuit) if self.is_mixed and isinstance(self.circuit, Circuit) else self.circuit


class Outcome(NamedTuple):
    """What came of an experiment, and with which seed."""

    result: Result | Exception
    seed: int


def header(circuit: Any) -> dict[str, Any]:
    """Return what results tell of one of Qiskit's circuits."""
    return {
        "name": circuit.name,
        "n_qubits": circuit.num_qubits,
        "memory_slots": circuit.num_clbits,
        "qreg_sizes": [[register.name, register.size] for register in circuit.qregs],
        "creg_sizes": [[register.name, register.size] for register in circuit.cregs],
        "global_phase": circuit.global_phase,
        "metadata": circuit.metadata or {},
    }


def is_quick(experiments: Sequence[Experiment], how: How) -> bool:
    """Return whether a job takes some milliseconds at most: small states without noise, and few instructions in all shots."""
    if how.noise is not None or how.run_method != "auto":
        return False
    n_steps = 0
    for circuit, *_ in experiments:
        if isinstance(circuit, Circuit):
            n_steps += len(circuit.instructions)
            if circuit.n_qubits > _FEW_QUBITS or n_steps * how.shots > _FEW_STEPS:
                return False
            if any([step.detail is not None and bodies_of(step) for step in circuit.instructions]) or has_noise(circuit):
                return False
    return True


def carried_out(experiments: Sequence[Experiment], how: How, name: str, version: str, job_id: str, hear: Hear) -> Any:
    """Return Qiskit's result of some experiments."""
    began = time.perf_counter()
    outcomes = _outcomes(experiments, how, hear)
    taken = time.perf_counter() - began
    results = [_formed(one, outcome, how, hear) for one, outcome in zip(experiments, outcomes)]
    n_good = sum([one.success for one in results])
    status = "COMPLETED" if n_good == len(results) else "PARTIAL COMPLETED" if n_good else "ERROR"
    return QiskitResult(
        backend_name=name,
        backend_version=version,
        job_id=job_id,
        success=n_good == len(results),
        results=results,
        date=datetime.datetime.now().isoformat(),
        status=status,
        time_taken=taken,
        **_OLDER,
    )


# --- Running ---


def _outcomes(experiments: Sequence[Experiment], how: How, hear: Hear) -> list[Outcome]:
    """Run all together; if one cannot be, each by itself, with the same seeds and shots."""
    seed = how.given_seed()
    if len(experiments) == 1:
        return [_alone(experiments[0], how, seed, hear)]
    seeds = member_seeds(seed, len(experiments))
    circuits = [one for one in [one.to_run for one in experiments] if isinstance(one, Circuit)]
    if len(circuits) == len(experiments):
        try:
            return [Outcome(result, own) for result, own in zip(_together(circuits, how, seed, hear), seeds)]
        except Exception:  # which one it is about, and what becomes of the others, is seen one by one
            pass
    return [_alone(one, how, own, hear) for one, own in zip(experiments, seeds)]


def _together(circuits: list[Circuit], how: How, seed: int, hear: Hear) -> list[Result]:
    starts = {size: Start(None, size, None) for size in {circuit.n_qubits for circuit in circuits}}
    threads = limits.thread_count(how.threads)
    is_noisy = how.noise is not None or how.run_method != "auto"
    request = Request(
        how.shots, None, threads, how.precision, None, starts[circuits[0].n_qubits], hear, how.fusion, is_noisy, how.run_method
    )  # fmt: skip
    return run_many(circuits, "circuit[{}]", seed, request, starts, False, observing.Lost())


def _alone(experiment: Experiment, how: How, seed: int, hear: Hear) -> Outcome:
    circuit = experiment.to_run
    if isinstance(circuit, Exception):
        return Outcome(circuit, seed)
    method = how.run_method
    shots: int | None = how.shots
    # Without a measurement shots would be of the qubits, which nobody asks for; but those that part need a number.
    if method == "auto" and not circuit.n_clbits and how.noise is None and not has_noise(circuit):
        shots = how.shots if any([step.name == "reset" for step in leaves(circuit.instructions)]) else None
    try:
        result = run(circuit, shots, seed, how.threads, how.precision, fusion=how.fusion, progress=hear, method=method)
    except Exception as error:
        return Outcome(error, seed)
    return Outcome(result, seed)


# --- Results ---


def _formed(experiment: Experiment, outcome: Outcome, how: How, hear: Hear) -> Any:
    """Return Qiskit's result of one experiment."""
    result = outcome.result
    data: dict[str, Any] = {}
    if isinstance(result, Result):
        try:
            data = {**_data(result, how, experiment.header["memory_slots"]), **_saved(experiment, result, hear)}
        except Exception as error:
            result = error
    made = _header(experiment.header)
    if isinstance(result, Exception):
        status = f"ERROR: {type(result).__name__}: {result}"
        return ExperimentResult(how.shots, False, ExperimentResultData(), status=status, header=made)
    told = {
        "method": result.plan.method or "statevector", "device": "CPU", "precision": how.precision, "fusion": how.fusion,
        "threads": result.threads, "num_qubits": len(result.active_qubits), "active_input_qubits": list(result.active_qubits),
        "time_taken": result.timings.total,
    }  # fmt: skip
    return ExperimentResult(
        how.shots, True, ExperimentResultData(**data), status="DONE", header=made,
        seed_simulator=outcome.seed, metadata=told, time_taken=result.timings.total,
    )  # fmt: skip


def _header(told: dict[str, Any]) -> Any:
    if QobjExperimentHeader is None:
        return told
    with warnings.catch_warnings():  # there it is what results need, and deprecated
        warnings.simplefilter("ignore", DeprecationWarning)
        return QobjExperimentHeader.from_dict(told)


def _saved(experiment: Experiment, result: Result, hear: Hear) -> dict[str, Any]:
    """Return what was saved, by its label."""
    if not experiment.saves:
        return {}
    assert isinstance(experiment.circuit, Circuit)
    density = Density(experiment.circuit, hear)
    if experiment.is_mixed:
        return {one.label: of_mixed(one, density) for one in experiment.saves}
    return {one.label: of_pure(one, result, density) for one in experiment.saves}


def _data(result: Result, how: How, n_slots: int) -> dict[str, Any]:
    """Return counts, and single shots if they are asked for; nothing of a circuit that measures nothing.

    `n_slots` are the circuit's classical bits; behind them stand those of variables, which Qiskit does not tell.
    """
    if not result.measured_bits or not n_slots:
        return {}
    counts: dict[str, int] = result.counts
    if result.n_bits > n_slots:
        counts = result.counts.marginal(range(n_slots))
    # Bit 0 is the lowest of Qiskit's numbers.
    data: dict[str, Any] = {"counts": {hex(int(bits[::-1], 2)): times for bits, times in counts.items()}}
    if how.memory:
        shots = result.shots.tolist()
        n_bits = result.n_bits
        spelled = {shot: hex(int(f"{shot:0{n_bits}b}"[:n_slots][::-1], 2)) for shot in set(shots)}
        data["memory"] = [spelled[shot] for shot in shots]
    return data
