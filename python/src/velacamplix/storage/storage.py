"""Where a state lies that is run in a file, and what that takes."""

from __future__ import annotations

import hashlib
import mmap
import os
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.types import Precision
from ..basics.words import counted
from ..circuit.circuit import Circuit
from ..core import extension
from ..machine import limits, memory
from ..programs.compile import require_circuit
from ..programs.prepare import Prepared, for_parts
from ..programs.schedule import require_schedule
from .layout import Layout

__all__ = ["Storage", "StoragePlan"]

#: Parts that are in memory at a time: one is read, on one gates act, one is written.
BUFFERS = 3
#: Of a state in a file. More do not fit into any.
MOST_QUBITS = 50
# A pass over more would keep Ctrl-C waiting.
_LARGEST_PART = 2**32

# Linux maps 65,530 into a process unless it is told otherwise, all else included.
_MOST_PIECES = 56 * 2**10

_PLANS: dict[Precision, Any] = {"double": extension.StagePlanDouble, "single": extension.StagePlanSingle}


class StoragePlan(NamedTuple):
    """What a run in a file takes: ``Storage.plan`` tells it before, ``Result.storage`` afterwards.

    Attributes
    ----------
    path : str
    n_qubits : int
        Of the state, without idle ones.
    precision : str
    part_qubits : int
        A part has 2**part_qubits amplitudes.
    parts, stages : int
        Every stage reads and writes every part once; the first only writes.
    file_bytes : int
        The file: the state and one part more.
    memory_bytes : int
        Three parts.
    bytes_read, bytes_written : int
        By all stages, without what is read afterwards to answer. What is written wears a solid-state disk.
    direct : bool or None
        Whether the file was read and written past the page cache; None before it was tried.

    Examples
    --------
    >>> from velacamplix import Circuit, Storage
    >>> plan = Storage("state.velacamplix", part_qubits=18).plan(Circuit(20).h(range(20)))
    >>> plan.parts, plan.stages, plan.file_bytes == 5 * 16 * 2**18
    (4, 3, True)
    """

    path: str
    n_qubits: int
    precision: Precision
    part_qubits: int
    parts: int
    stages: int
    file_bytes: int
    memory_bytes: int
    bytes_read: int
    bytes_written: int
    direct: bool | None = None

    def __str__(self) -> str:
        return (
            f"{self.path}: {memory.human(self.file_bytes)}; {counted(self.n_qubits, 'qubit')} in "
            f"{counted(self.parts, 'part')}, {counted(self.stages, 'stage')}: {memory.human(self.bytes_read)} to read, "
            f"{memory.human(self.bytes_written)} to write; {memory.human(self.memory_bytes)} of memory"
        )


class Storage:
    """A file that a run keeps its state in, instead of memory.

    Parameters
    ----------
    path : str or os.PathLike
        Of a file that is not there yet; a second one, ``path + ".journal"``, tells how far the run has come. Both stay
        until you delete them.
    part_qubits : int, optional
        A part of 2**part_qubits amplitudes is in memory, three times. By default the largest of at most 4 GiB that
        takes no more than three quarters of the memory that is there. The number changes no bit of the results; more
        qubits in a part make fewer stages.
    resume : bool
        Whether to go on where an earlier run of the same circuit ended early, if the files are there.

    Examples
    --------
    >>> import os, tempfile
    >>> from velacamplix import Circuit, Storage, run
    >>> path = os.path.join(tempfile.mkdtemp(), "state")
    >>> run(Circuit(12).h(range(12)), storage=Storage(path, part_qubits=10)).probability(0) * 2**12    # doctest: +ELLIPSIS
    0.99999...
    """

    def __init__(self, path: str | os.PathLike[str], part_qubits: int | None = None, resume: bool = False) -> None:
        name = os.fspath(path) if isinstance(path, os.PathLike) else path
        if not isinstance(name, str):
            raise TypeError(f"path must be a str or a path, got {checks.show(path)}")
        if not name or "\0" in name:
            raise ValueError(f"path must be that of a file, got {checks.show(path)}")
        self.path = checks.plain(name)
        self.part_qubits = None if part_qubits is None else checks.integer(part_qubits, "part_qubits", minimum=1, maximum=50)
        self.resume = checks.flag(resume, "resume")

    def __repr__(self) -> str:
        return f"Storage({self.path!r}, part_qubits={self.part_qubits}, resume={self.resume})"

    def plan(self, circuit: Circuit, precision: Precision = "double", schedule: str = "written") -> StoragePlan:
        """Tell what a run of a circuit in this file would take. Nothing is made.

        Parameters
        ----------
        circuit : Circuit
        precision : {"double", "single"}
        schedule : str
            As for `velacamplix.run`.

        Raises
        ------
        TypeError, ValueError
            If the circuit cannot be run in a file: see `velacamplix.run`. If parts are so small that pieces of them are
            less than a page of memory.
        MemoryError
            If three parts do not fit.

        Examples
        --------
        >>> from velacamplix import Circuit, Storage
        >>> print(Storage("state", part_qubits=16).plan(Circuit(20).h(range(20)), "single"))
        state: 8.5 MiB; 20 qubits in 16 parts, 3 stages: 16.0 MiB to read, 24.0 MiB to write; 1.5 MiB of memory
        """
        kind, rank_bits = checks.precision(precision), require_schedule(schedule)
        return planned(self, for_parts(require_circuit(circuit), kind, rank_bits), kind)[0]


def checked(storage: Any) -> Storage:
    """Return what `run` was given as a `Storage`."""
    if isinstance(storage, Storage):
        return storage
    if isinstance(storage, (str, os.PathLike)):
        return Storage(storage)
    raise TypeError(f"storage must be a path, a Storage or None, got {checks.show(storage)}")


def digest_of(found: Prepared) -> str:
    """Return what tells lists of gates apart."""
    stretch: Any = found.segments.steps[0]
    words = hashlib.sha256()
    for gate in stretch.gates:
        numbers = [complex(number) for number in gate.params]
        words.update(repr((gate.name, gate.qubits, gate.controls, numbers)).encode())
    return words.hexdigest()


def planned(
    storage: Storage, found: Prepared, precision: Precision, held: np.ndarray | None = None
) -> tuple[StoragePlan, Any, Layout]:
    """Return what a run takes, the core's plan of its stages, and where the parts lie; `held` as for `Layout`."""
    n, size = len(found.segments.active), memory.BYTES_PER_AMPLITUDE[precision]
    part_qubits = min(n, storage.part_qubits or largest_part(size))
    stages = _PLANS[precision](found.programs[0], n, n - part_qubits, held is None)
    layout = Layout(stages, n - part_qubits, held)
    if layout.parts > 1 and layout.block_amplitudes * size % mmap.ALLOCATIONGRANULARITY != 0:
        least = part_qubits + (mmap.ALLOCATIONGRANULARITY // (layout.block_amplitudes * size)).bit_length() - 1
        raise ValueError(
            f"part_qubits must be larger for this circuit, {least} at least: got {part_qubits}, of which pieces of "
            f"{layout.block_amplitudes * size} bytes come from elsewhere in the file, less than a page of memory"
        )
    layout.block_bytes = -(-layout.block_amplitudes * size // mmap.ALLOCATIONGRANULARITY) * mmap.ALLOCATIONGRANULARITY
    part_bytes = layout.blocks * layout.block_bytes
    state_bytes = layout.parts * part_bytes
    needed = BUFFERS * part_bytes
    memory.require_bytes(needed, f"{BUFFERS} parts of {part_qubits} qubits (storage's part_qubits)")
    _require_few_pieces(layout, part_qubits)
    count = len(stages)
    reads = count if layout.is_begun else count - 1
    plan = StoragePlan(
        storage.path, n, precision, part_qubits, layout.parts, count, state_bytes + part_bytes, needed,
        reads * state_bytes, count * state_bytes,
    )  # fmt: skip
    return plan, stages, layout


def _require_few_pieces(layout: Layout, part_qubits: int) -> None:
    """Refuse what could not be read in the end: the system maps so many pieces of files into a process, and no more."""
    if layout.parts * layout.blocks <= _MOST_PIECES:
        return
    for _ in layout.jobs():
        pass
    pieces = int(np.count_nonzero(np.diff(layout.final) != 1)) + 1
    if pieces > _MOST_PIECES:
        raise ValueError(
            f"part_qubits must be larger for this circuit: got {part_qubits}, with which the state ends in {pieces} pieces of "
            f"the file, more than the {_MOST_PIECES} that can be read together"
        )


def largest_part(size: int) -> int:
    """Return the qubits of a part of which `BUFFERS` leave room in memory."""
    most = min(_LARGEST_PART, limits.memory().usable_without_cache * 3 // 4 // BUFFERS) // size
    return max(1, most.bit_length() - 1)
