"""State vectors that live in a file: circuits act stage by stage, and questions are answered from there."""

from __future__ import annotations

import functools
import json
import mmap
import os
import threading
from collections.abc import Callable, Mapping
from typing import Any, NoReturn, cast

import numpy as np

from ..basics import checks
from ..basics.types import Precision, Seed
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.gate_methods import GateMethods
from ..instructions.many_qubit_methods import ManyQubitMethods
from ..machine import limits, memory
from ..programs.background import in_background
from ..programs.compile import require_circuit, require_fusion
from ..programs.prepare import for_state
from ..programs.progress import ProgressLike
from ..programs.progress import checked as checked_progress
from ..states.apply import refuse_unsupported
from ..states.base import _CORE_TYPES
from ..states.statevector import StateVector
from ..views import html
from .files import Files, buffer
from .storage import BUFFERS, MOST_QUBITS, Storage, StoragePlan, checked, digest_of, largest_part, planned
from .walk import carried_out


class StateFiles(Files):
    """The files of a state. Its journal tells, behind the first line, of circuit after circuit.

    A line ``{"blocks": [...]}`` says where the state lies, in blocks of equal size; ``{"circuit": ..., "jobs": ...}``
    that a circuit begins to act on it. Numbers count its parts that are done.

    Attributes
    ----------
    blocks : numpy.ndarray
        Where the state lies, when no circuit is acting.
    circuits : int
        That have acted.
    begun : tuple of str and int, or None
        The circuit that is acting, and its jobs.
    """

    def __init__(self, path: str, size: int, about: Mapping[str, Any], resume: bool, parts: int, first: np.ndarray) -> None:
        self.blocks, self.circuits, self.begun = np.arange(parts), -1, cast("tuple[str, int] | None", None)
        self._parts, self._first, self._part_bytes = parts, first, size // (parts + 1)
        super().__init__(path, size, about, resume)

    @property
    def block_bytes(self) -> int:
        """Of one of `blocks`."""
        return self._part_bytes * self._parts // len(self.blocks)

    def begin(self, digest: str, jobs: int) -> None:
        """Note that a circuit acts from now on; nothing if it has begun."""
        if self.begun is None:
            self._note(json.dumps({"circuit": digest, "jobs": jobs}))
            self.begun, self.done = (digest, jobs), 0

    def end(self, blocks: np.ndarray) -> None:
        """Note that it has acted, and where the state is now."""
        self._note(json.dumps({"blocks": blocks.tolist()}))
        self.blocks, self.begun, self.done = blocks, None, 0
        self.circuits += 1

    def _allocate(self) -> None:
        os.ftruncate(self._file, 0)
        super()._allocate()
        # What nobody has written reads as zeros.
        page = buffer(mmap.PAGESIZE)
        page[: self._first.nbytes] = self._first.view(np.uint8)
        os.pwritev(self._file, [page.data], 0)
        os.fdatasync(self._file)
        self.end(self.blocks)

    def _noted(self, lines: list[bytes]) -> bool:
        for number, line in enumerate(lines):
            if self.begun is not None and line == str(self.done + 1).encode() and self.done < self.begun[1]:
                self.done += 1
                continue
            try:
                told = json.loads(line)
            except ValueError:
                self._refuse_line(number, line)
            if not isinstance(told, dict):
                self._refuse_line(number, line)
            if list(told) == ["blocks"] and (self.begun is None or self.done == self.begun[1]):
                if (self.circuits < 0) != (number == 0) or not self._is_place(told["blocks"]):
                    self._refuse_line(number, line)
                self.blocks, self.begun, self.done = np.array(told["blocks"]), None, 0
                self.circuits += 1
            elif list(told) == ["circuit", "jobs"] and self.begun is None and self.circuits >= 0:
                digest, jobs = told["circuit"], told["jobs"]
                if type(digest) is not str or type(jobs) is not int or not 0 < jobs < 2**50:
                    self._refuse_line(number, line)
                self.begun, self.done = (digest, jobs), 0
            else:
                self._refuse_line(number, line)
        return self.circuits >= 0

    def _is_place(self, blocks: Any) -> bool:
        """Whether these are blocks of the file that a state may lie in."""
        if type(blocks) is not list or not blocks or not all(type(block) is int for block in blocks):
            return False
        times, rest = divmod(len(blocks), self._parts)
        if rest or times & (times - 1) or self._part_bytes % (times * mmap.PAGESIZE):
            return False
        return len(set(blocks)) == len(blocks) and min(blocks) >= 0 and max(blocks) < times * (self._parts + 1)


class StoredStateVector(StateVector):
    """What ``StateVector(n, storage=...)`` makes. Every gate's method is a circuit of that gate."""

    _is_stored = True
    _files: StateFiles
    _storage: Storage
    _plan: StoragePlan
    _turn: threading.Lock

    def __init__(self, *_: Any, **__: Any) -> None:
        raise RuntimeError("a state in a file cannot be set up again; make another one")

    def __repr__(self) -> str:
        return super().__repr__()[:-1] + f", storage={self._storage.path!r})"

    def _repr_html_(self) -> str:
        return html.titled(repr(self), "")

    @property
    def storage(self) -> StoragePlan:  # type: ignore[override]
        """What the state takes, and what all circuits have read and written since it was made or opened here."""
        return self._plan

    # The core's state, mapped from the file

    def _map(self, engine: str | None = None) -> None:
        files = self._files
        core = extension.mapped_state(
            files.descriptor, files.blocks.tolist(), files.block_bytes, self._n_qubits, self._precision == "single"
        )
        core.set_num_threads(self._threads)
        if engine is not None:
            extension.set_engine(core, engine)
        self._core = core

    def _live(self) -> Any:
        core = super()._live()
        if self._files.begun is not None:
            done, jobs = self._files.done, self._files.begun[1]
            raise RuntimeError(
                f"a circuit has acted on this state in part, {done} of {jobs} parts are done: run(circuit) with that circuit "
                "goes on from there, and nothing else can be done before"
            )
        return core

    def release(self) -> None:
        """Let go of the file, which stays. Every later use of this object but another `release` raises RuntimeError."""
        if self._core is not None:
            self._core.release()
            self._core = None
        self._files.close()

    @classmethod
    def _another(cls, n: int, precision: Precision, threads: int, is_run_next: bool = False) -> Any:
        return StateVector._another(n, precision, threads, is_run_next)

    def _further(self) -> dict[str, Any]:
        return {}  # a copy is in memory

    # Circuits

    def run(self, circuit: Circuit, progress: ProgressLike = None, fusion: bool = False) -> StateVector:
        """Apply the gates of a circuit to the state in the file, stage by stage. As `StateVector.run`, but for this:

        ``progress`` counts parts. ``fusion=True`` is refused. What ends it early leaves the state between two circuits: then
        `run` with the same circuit, here or by an object that opens the file again, goes on from there.
        """
        require_circuit(circuit)
        checked_progress(progress)
        if require_fusion(fusion):
            raise ValueError("fusion must be False for a state in a file, got True: it would change bits from part to part")
        n, files = self._n_qubits, self._files
        if circuit.n_qubits > n:
            raise ValueError(f"circuit must have at most {n} qubits, those of the state, got {circuit!r}")
        core = super()._live()
        refuse_unsupported(circuit.instructions)
        found = for_state(circuit, n, self._precision, False)
        digest = digest_of(found)
        if files.begun is not None and files.begun[0] != digest:
            self._live()
        if not len(found.programs[0]):
            return self
        held = None if files.circuits == 0 else files.blocks
        plan, stages, layout = planned(self._storage, found, self._precision, held)
        jobs = plan.stages * plan.parts
        if files.begun is not None and files.begun[1] != jobs:
            raise ValueError(f"storage is damaged: {files.begun[1]} parts were to be done by a circuit that takes {jobs}")
        if not self._turn.acquire(blocking=False):
            raise RuntimeError("this state vector is at work; it cannot be used by another thread, or by what its work calls")
        try:
            engine, before = extension.engine(core), files.done
            files.begin(digest, jobs)
            files.stop.clear()
            try:
                blocks = carried_out(
                    plan, stages, layout, files, self._amplitude_type, self._threads, progress,
                    "run(circuit) with the same circuit",
                )  # fmt: skip
            finally:
                self._count(plan, files.done - before)
            files.end(blocks)
            self._map(engine)
        finally:
            self._turn.release()
        return self

    def _count(self, plan: StoragePlan, parts: int) -> None:
        """Add what so many parts of a circuit have taken, as far as whole parts tell."""
        so_far, state_bytes = self._plan, plan.bytes_written // plan.stages
        is_first = plan.bytes_read < plan.bytes_written
        read = max(0, parts - plan.parts * is_first)
        self._plan = so_far._replace(
            stages=so_far.stages + -(-parts // plan.parts),
            bytes_read=so_far.bytes_read + read * state_bytes // plan.parts,
            bytes_written=so_far.bytes_written + parts * state_bytes // plan.parts,
        )

    # What is not done in a file

    @property
    def array(self) -> np.ndarray:
        """Refused: see the message."""
        raise RuntimeError(
            "the amplitudes lie in a file, not in an array: amplitude(index), probability, distribution, expectation, sample "
            'and others answer from there, and statevector(order="little") copies all of them into memory, if they fit'
        )

    def measure(self, qubits: Any = None, collapse: bool = False, order: Any = "big") -> int:
        """As `StateVector.measure`; ``collapse=True`` is refused."""
        if checks.flag(collapse, "collapse"):
            self._refuse("measure(collapse=True)")
        return in_background(lambda: super(StoredStateVector, self).measure(qubits, False, order))

    def _refuse(self, what: str) -> NoReturn:
        self._live()
        raise RuntimeError(
            f"{what} would write single amplitudes of the state's file, where circuits alone act: run(circuit) and the methods "
            "of gates do; copy() copies the state into memory, if it fits"
        )


def begin(
    state: StateVector, n: int, precision: Precision, threads: int | None, seed: Seed | None, storage: Any
) -> None:
    """Make of a new object a state in a file, |0...0> or what the file holds."""
    if type(state) is not StateVector:
        raise TypeError(f"storage is for StateVector itself, got a {type(state).__name__}")
    n, kind = checks.integer(n, "n", minimum=0, maximum=MOST_QUBITS), checks.precision(precision)
    count, number, where = limits.thread_count(threads), checks.seed(seed), checked(storage)
    size = memory.BYTES_PER_AMPLITUDE[kind]
    known = where.part_qubits or (_part_of(where.path) if where.resume else None) or largest_part(size)
    part_qubits = min(n, known)
    part_bytes = -(-(size << part_qubits) // mmap.ALLOCATIONGRANULARITY) * mmap.ALLOCATIONGRANULARITY
    memory.require_bytes(BUFFERS * part_bytes, f"{BUFFERS} parts of {part_qubits} qubits (storage's part_qubits)")
    parts = 1 << (n - part_qubits)
    about = {
        "format": 1, "version": extension.version(), "kind": "state", "n": n, "precision": kind, "part_qubits": part_qubits,
    }  # fmt: skip
    amplitude_type = _CORE_TYPES[kind][1]
    files = StateFiles(where.path, (parts + 1) * part_bytes, about, where.resume, parts, np.ones(1, amplitude_type))
    try:
        files.warn_if_cached(stacklevel=4)
        made = cast(StoredStateVector, state)
        made.__class__ = StoredStateVector
        made._n_qubits, made._precision, made._threads, made._amplitude_type = n, kind, count, amplitude_type
        made._files, made._turn = files, threading.Lock()
        made._storage = Storage(where.path, part_qubits or None)
        made._plan = StoragePlan(
            where.path, n, kind, part_qubits, parts, 0, (parts + 1) * part_bytes, BUFFERS * part_bytes, 0, 0, files.direct
        )
        made._map()
        if number is not None:
            extension.set_seed(made._core, number)
    except BaseException:
        files.close()
        raise


def _part_of(path: str) -> int | None:
    """Return the qubits of a part that a journal tells, None if it does not."""
    try:
        with open(path + ".journal", "rb") as file:
            told = json.loads(file.readline(2**16))["part_qubits"]
    except (OSError, ValueError, TypeError, KeyError):
        return None
    return told if type(told) is int and 0 < told <= MOST_QUBITS else None


def _as_circuit(name: str) -> Callable[..., StateVector]:
    """Return the method of a gate that runs it as a circuit: all places of lists together."""
    method = getattr(Circuit, name)

    @functools.wraps(getattr(StateVector, name))
    def act(self: StoredStateVector, *values: Any, **options: Any) -> StateVector:
        return self.run(method(Circuit(self._n_qubits), *values, **options))

    return act


def _heard(name: str) -> Callable[..., Any]:
    """Return a method that reads the file for long, and hears Ctrl-C meanwhile."""
    method = getattr(StateVector, name)

    @functools.wraps(method)
    def ask(self: StoredStateVector, *values: Any, **options: Any) -> Any:
        return in_background(lambda: method(self, *values, **options))

    return ask


def _refused(name: str) -> Callable[..., NoReturn]:
    @functools.wraps(getattr(StateVector, name))
    def refuse(self: StoredStateVector, *_: Any, **__: Any) -> NoReturn:
        self._refuse(name)

    return refuse


for _kind in (GateMethods, ManyQubitMethods):
    for _name in vars(_kind):
        if not _name.startswith("_") and callable(getattr(_kind, _name)):
            setattr(StoredStateVector, _name, _as_circuit(_name))
setattr(StoredStateVector, "matrix", _as_circuit("matrix"))
for _name in ("probability", "distribution", "probabilities", "distribution_dict", "norm", "sample", "counts", "statevector",
              "to_dict", "copy", "amplitude"):  # fmt: skip
    setattr(StoredStateVector, _name, _heard(_name))
for _name in ("reset", "set_basis_state", "set_state", "prepare", "qram", "binary_qram", "phase_oracle", "project",
              "project_then_reset", "estimate"):  # fmt: skip
    setattr(StoredStateVector, _name, _refused(_name))
del _kind, _name
