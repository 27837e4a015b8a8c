"""Runs whose state lies in a file instead of memory."""

from __future__ import annotations


from ..circuit.circuit import Circuit
from ..core import extension
from ..programs.prepare import for_parts
from ..results.plan import Plan
from ..states.statevector import StateVector
from ..storage.files import Files
from ..storage.storage import Storage, digest_of, planned
from ..storage.walk import carried_out
from . import observing
from .result import Result
from .single import Clock, Request, answered, require_shots


def require_plain(request: Request, are_many: bool) -> None:
    """Refuse what a run in a file does not do."""
    refused = (
        (are_many, "circuit must be one", "a list of circuits or values for parameters"),
        (request.fused, "fusion must be False", "True: it would change bits from part to part"),
        (request.is_noisy, 'noise must be None and method "auto"', "a run with noise"),
        (not request.start.is_zero, "initial must be None", "another state than that of zeros"),
    )
    for is_given, must, got in refused:
        if is_given:
            raise ValueError(f"{must} in a run with storage, got {got}")


def run_in_storage(circuit: Circuit, request: Request, storage: Storage, lost: observing.Lost) -> Result:
    """Return the result of a circuit whose state lies in a file; `lost` as for `run_alone`."""
    clock = Clock()
    found = for_parts(circuit, request.precision, request.rank_bits)
    require_shots(circuit, found.segments, request.shots)
    plan, stages, layout = planned(storage, found, request.precision)
    clock.note("compile")
    about = {
        "format": 1,
        "version": extension.version(),
        "kind": "run",
        "circuit": digest_of(found),
        "n": plan.n_qubits,
        "precision": plan.precision,
        "schedule": "written" if request.rank_bits is None else f"canonical:{request.rank_bits}",
        "part_qubits": plan.part_qubits,
        "block_bytes": layout.block_bytes,
    }
    n, threads = plan.n_qubits, request.threads
    amplitudes = StateVector._another(0, request.precision, 1)._amplitude_type
    with Files(storage.path, plan.file_bytes, about, storage.resume) as files:
        files.warn_if_cached(stacklevel=3)
        cure = f"run(..., storage=Storage({storage.path!r}, part_qubits={plan.part_qubits}, resume=True))"
        blocks = carried_out(plan, stages, layout, files, amplitudes, threads, request.progress, cure)
        core = extension.mapped_state(
            files.descriptor, blocks.tolist(), layout.block_bytes, n, request.precision == "single"
        )
    state = StateVector._stored(core, n, request.precision, threads)
    told = Plan(len(found.programs[0]), (), float(plan.stages))
    clock.note("simulate")
    rest = found.segments
    rest.steps = rest.steps[1:]  # all gates have acted
    result = answered(circuit, rest, state, told, request._replace(progress=None), clock, lost)
    result.storage = plan._replace(direct=files.direct)
    return result
