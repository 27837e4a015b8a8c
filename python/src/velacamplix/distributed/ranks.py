"""The ranks of a communicator: what they exchange, agree on, and how one that fails ends them all."""

from __future__ import annotations

import contextlib
import hashlib
import io
import math
import os
import sys
import time
from collections.abc import Callable, Iterable, Sequence
from typing import Any

import numpy as np

from ..basics.words import counted
from ..circuit.circuit import Circuit
from ..instructions.instruction import Instruction
from ..machine import limits, memory

#: Bytes that travel at a time between two ranks.
PIECE = 2**24
# Two of them wait to be copied while the next travels.
_BUFFERS = 2 * PIECE
_TAG = 1
# A rank that waits lets others have its processor after so many looks, for so many seconds each.
_LOOKS = 200
_NAP = 2e-5
# Seconds in which a launcher passes on what a rank has told before it ends all of them; MPICH's drops the rest.
_PASSED_ON = 0.5

_INSTALL = (
    "runs on many ranks need mpi4py and an MPI library. Install the library by the system's packages (Debian: apt install "
    "openmpi-bin libopenmpi-dev; on a cluster: module load openmpi), then: pip install 'velacamplix[mpi]'"
)

_key: Any = None  # of what is kept with a communicator
_hook_is_set = False


def mpi() -> Any:
    """Return mpi4py's module MPI, which starts MPI.

    Raises
    ------
    ImportError
        If mpi4py is not installed, or finds no MPI library.
    """
    try:
        from mpi4py import MPI
    except (ImportError, RuntimeError) as error:  # RuntimeError: a library that cannot be loaded
        raise ImportError(f"{_INSTALL}. ({error})", name="mpi4py") from None
    return MPI


def launched_size() -> int:
    """Return how many ranks the launcher of this process tells of by the environment, 1 without one."""
    for name in ("OMPI_COMM_WORLD_SIZE", "PMI_SIZE"):
        text = os.environ.get(name, "")
        if text.isdecimal():
            return max(1, int(text))
    return 1


def launched_rank() -> int:
    """Return the number of this rank as the launcher tells it by the environment, 0 without one."""
    for name in ("OMPI_COMM_WORLD_RANK", "PMI_RANK"):
        text = os.environ.get(name, "")
        if text.isdecimal():
            return int(text)
    return 0


def ranks_of(comm: Any, have_parts: bool = True) -> Ranks:
    """Return the ranks of a communicator, kept with it; None is for all of them.

    Where they have no parts of one state they may be any number.

    Raises
    ------
    ImportError
        As `mpi` does.
    TypeError, ValueError
        If this is no communicator within one group, or its size is no power of two.
    """
    MPI = mpi()
    if comm is None:
        comm = MPI.COMM_WORLD
    if not isinstance(comm, MPI.Intracomm):
        raise TypeError(f"comm must be a communicator of mpi4py, MPI.COMM_WORLD for example, got {comm!r}")
    if comm == MPI.COMM_NULL:
        raise ValueError("comm must be a communicator that this rank belongs to, got MPI.COMM_NULL")
    size = comm.Get_size()
    if comm == MPI.COMM_WORLD and size == 1 < launched_size():
        raise ValueError(
            f"the launcher started {launched_size()} ranks, but the MPI library of mpi4py knows of one: they belong to different "
            "libraries; python -m mpi4py --mpi-library tells mpi4py's"
        )
    if have_parts and size & (size - 1):
        raise ValueError(
            f"the number of ranks must be a power of two, got {size}; the next lower one is {1 << (size.bit_length() - 1)}"
        )
    global _key
    if _key is None:
        _key = MPI.Comm.Create_keyval()
    found = comm.Get_attr(_key)
    if found is None:
        found = Ranks(MPI, comm.Dup())  # so that nothing of ours meets messages of the caller's
        comm.Set_attr(_key, found)
    if size > 1:
        _end_all_by_exceptions(MPI)
    return found  # type: ignore[no-any-return]


class Ranks:
    """The ranks of a communicator that is ours alone. Every method but `swap` is to be called on all of them.

    Attributes
    ----------
    rank, size : int
    bits : int
        `size` is 2**bits where ranks have parts of a state.
    sent : int
        Bytes of amplitudes that this rank has sent so far, by `swap`.
    """

    def __init__(self, MPI: Any, comm: Any) -> None:
        self._mpi, self._comm = MPI, comm
        self.rank: int = comm.Get_rank()
        self.size: int = comm.Get_size()
        self.bits = self.size.bit_length() - 1
        self.sent = 0
        self._buffers: list[np.ndarray] = []

    def agree(self, **facts: Any) -> None:
        """Raise ValueError on all ranks unless each fact is the same on all; the odd ranks are named."""
        mine = {name: repr(value) for name, value in facts.items()}
        told = self._comm.allgather(mine)
        for name in mine:
            odd = [rank for rank, other in enumerate(told) if other[name] != told[0][name]]
            if odd:
                # Where most differ from the first, the first is the odd one.
                reference, named = (0, odd) if 2 * len(odd) <= self.size else (odd[0], [0])
                words = name.replace("_", " ")
                short = all([len(other[name]) <= 40 for other in told])
                values = f": {told[named[0]][name]} in place of {told[reference][name]}" if short else ""
                listed = ", ".join(map(str, named[:8])) + (", ..." if len(named) > 8 else "")
                raise ValueError(
                    f"all ranks must have the same {words}; {'rank' if len(named) == 1 else 'ranks'} {listed} "
                    f"{'has' if len(named) == 1 else 'have'} another than rank {reference}{values}"
                )

    def same(self, circuit: Circuit) -> tuple[bool, str]:
        """Return a fact for `agree`, of a circuit that is that of all ranks."""
        return self.first(lambda: circuit) == circuit, "or another than that of the first rank"

    def require_part(self, n: int, bytes_per_amplitude: int) -> None:
        """Raise MemoryError on all ranks if on one of them a part of a state of `n` qubits does not fit."""
        cure = "Twice as many machines halve what each needs"
        self.require(self._needed(bytes_per_amplitude << (n - self.bits)), f"n={n} qubits", cure)

    def require(self, needed: int, what: str, cure: str) -> None:
        """Raise MemoryError on all ranks if on one of them so many bytes are not free."""
        # Ranks of one machine share its memory.
        told = self._comm.allgather((self._mpi.Get_processor_name(), limits.memory().usable))
        least = None
        for host in {name for name, _ in told}:
            own = [(free, rank) for rank, (name, free) in enumerate(told) if name == host]
            free, rank = min(own)
            if least is None or free // len(own) < least[0]:
                least = free // len(own), rank, host, len(own)
        assert least is not None
        if needed > least[0]:
            free, rank, host, together = least
            raise MemoryError(
                f"{what} on {counted(self.size, 'rank')} need {memory.human(needed)} on each; the least is free on "
                f"{host}, {memory.human(free)} for each of its {counted(together, 'rank')}, rank {rank} among them. {cure}"
            )

    def _needed(self, part: int) -> int:
        """Return the bytes that a part of so many takes, with what it is exchanged by."""
        return part + (min(_BUFFERS, part) if self.size > 1 else 0)

    def threads(self, threads: int | None) -> int:
        """Return the number of threads for this rank: by default the ranks of a machine share its processors."""
        if threads is not None:
            return limits.thread_count(threads)
        shared = self._comm.Split_type(self._mpi.COMM_TYPE_SHARED)
        together = shared.Get_size()
        shared.Free()
        count = limits.thread_count(None)
        # A launcher that binds has given each rank processors of its own.
        is_bound = len(os.sched_getaffinity(0)) < (os.cpu_count() or 1)
        return count if is_bound else max(1, count // together)

    def described(self) -> list[tuple[str, str]]:
        """Return, on all ranks, what there is to tell of them: titles and texts."""
        told = self._comm.allgather((self._mpi.Get_processor_name(), limits.memory().usable))
        hosts = {host: [free for name, free in told if name == host] for host, _ in told}
        least = min([min(free) // len(free) for free in hosts.values()])
        most = []
        for precision, size in (("double", 16), ("single", 8)):
            own = 0
            while self._needed(size << (own + 1)) <= least:
                own += 1
            most.append(f"{own + self.bits} in {precision} precision")
        library = self._mpi.Get_library_version().split("\n")[0].split(",")[0].strip("\0 ")
        return [
            ("ranks", f"{self.size} on {counted(len(hosts), 'machine')}, {library}"),
            ("memory per rank", f"{memory.human(least)} at least"),
            ("largest n here", "on all ranks together " + ", ".join(most)),
        ]

    def first(self, make: Callable[[], Any]) -> Any:
        """Return on all ranks what `make` returns on rank 0."""
        return self._comm.bcast(make() if self.rank == 0 else None, root=0)

    def copied(self, array: np.ndarray) -> np.ndarray:
        """Replace the numbers of an array by those of rank 0, and return it; it is of one size on all ranks."""
        flat, piece = array.reshape(-1).view(np.uint8), PIECE
        for start in range(0, len(flat), piece):
            self._wait([self._comm.Ibcast([flat[start : start + piece], self._mpi.BYTE], root=0)])
        return array

    def gathered(self, value: Any) -> list[Any]:
        """Return the values of all ranks, on all ranks."""
        told: list[Any] = self._comm.allgather(value)
        return told

    def raise_together(self, error: Exception | None) -> None:
        """Raise what one rank found on all ranks, so that none waits for it."""
        told = self._comm.allgather(None if error is None else (type(error), str(error)))
        if error is not None:
            raise error
        for rank, found in enumerate(told):
            if found is not None:
                kinds = OSError, MemoryError, ValueError, TypeError
                kind = next(filter(lambda known: issubclass(found[0], known), kinds), RuntimeError)
                raise kind(f"rank {rank}: {found[1]}")

    def concatenated(self, array: np.ndarray) -> np.ndarray:
        """Return the arrays of all ranks one behind the other; their rows are alike, of 8-byte words."""
        counts = self._comm.allgather(len(array))
        whole: np.ndarray = np.zeros((sum(counts), *array.shape[1:]), dtype=array.dtype)
        first = sum(counts[: self.rank])
        whole[first : first + len(array)] = array
        self.joined(whole.reshape(-1).view(np.uint64))
        return whole

    def in_turn(self, numbers: Sequence[int], value: Any, act: Callable[[Any], Any]) -> Any:
        """Hand a value on from rank to rank, each of which makes a new one of it; return the last on all ranks.

        `numbers` tells the turn of each rank; the first gets `value`. A rank whose number is below 0 has no turn.
        """
        order = sorted([rank for rank in range(self.size) if numbers[rank] >= 0], key=lambda rank: numbers[rank])
        if self.rank in order:
            place = order.index(self.rank)
            if place > 0:
                value = self._got(order[place - 1])
            value = act(value)
            if place + 1 < len(order):
                self._wait([self._comm.isend(value, dest=order[place + 1], tag=_TAG)])
        return self._comm.bcast(value, root=order[-1])

    def added(self, numbers: np.ndarray) -> None:
        """Replace numbers by the sums over all ranks, of which at most one has another number than 0 in a place."""
        self._reduced(numbers, self._mpi.SUM)

    def joined(self, words: np.ndarray) -> None:
        """Replace words by those that have the bits of all ranks."""
        self._reduced(words, self._mpi.BOR)

    def _reduced(self, array: np.ndarray, how: Any) -> None:
        piece = PIECE // array.itemsize
        flat = array.reshape(-1)
        for start in range(0, len(flat), piece):
            self._wait([self._comm.Iallreduce(self._mpi.IN_PLACE, flat[start : start + piece], op=how)])

    def all_of(self, part: np.ndarray, numbers: Sequence[int]) -> np.ndarray:
        """Return the parts of all ranks in one array, in the order of the ranks' numbers."""
        whole: np.ndarray = np.zeros((self.size, len(part)), dtype=part.dtype)
        whole[numbers[self.rank]] = part
        self._reduced(whole.view(np.uint64), self._mpi.BOR)
        return whole.reshape(-1)

    def swap(self, amplitudes: np.ndarray, partner: int) -> None:
        """Exchange amplitudes with another rank in place, in pieces, the next of which travels while one is copied."""
        mine = amplitudes.view(np.uint8)
        while len(self._buffers) < 2:
            self._buffers.append(np.empty(0, dtype=np.uint8))
        waiting: tuple[list[Any], slice, np.ndarray] | None = None
        for turn, start in enumerate(range(0, len(mine), PIECE)):
            place = slice(start, min(start + PIECE, len(mine)))
            size = place.stop - start
            if len(self._buffers[turn % 2]) < size:
                self._buffers[turn % 2] = np.empty(size, dtype=np.uint8)
            buffer = self._buffers[turn % 2][:size]
            requests = [
                self._comm.Irecv([buffer, self._mpi.BYTE], source=partner, tag=_TAG),
                self._comm.Isend([mine[place], self._mpi.BYTE], dest=partner, tag=_TAG),
            ]
            self.sent += size
            if waiting is not None:
                self._take(mine, *waiting)
            waiting = requests, place, buffer
        if waiting is not None:
            self._take(mine, *waiting)

    def sent_and_got(self, sent: np.ndarray | None, got: np.ndarray | None, partner: int) -> None:
        """Send amplitudes to a rank, get some from it, or both."""
        requests = []
        if got is not None:
            requests.append(self._comm.Irecv([got.view(np.uint8), self._mpi.BYTE], source=partner, tag=_TAG))
        if sent is not None:
            requests.append(self._comm.Isend([sent.view(np.uint8), self._mpi.BYTE], dest=partner, tag=_TAG))
        self._wait(requests)

    def _take(self, mine: np.ndarray, requests: list[Any], place: slice, buffer: np.ndarray) -> None:
        self._wait(requests)
        mine[place] = buffer

    def _wait(self, requests: list[Any]) -> None:
        # Not in MPI's own way: that hears no signal, and keeps a processor that another rank may need.
        looks = 0
        while not self._mpi.Request.Testall(requests):
            looks += 1
            if looks > _LOOKS:
                time.sleep(_NAP)

    def _got(self, source: int) -> Any:
        """Return the value that a rank sends, of whatever size."""
        looks = 0
        while (message := self._comm.improbe(source=source, tag=_TAG)) is None:
            looks += 1
            if looks > _LOOKS:
                time.sleep(_NAP)
        return message.recv()


def sines_and_cosines(gates: Iterable[Instruction]) -> str:
    """Return a text by which processors are told apart whose sines and cosines of the gates' angles have other last bits."""
    found = hashlib.sha256()
    for gate in gates:
        for angle in gate.params if len(gate.params) <= 3 else ():
            if isinstance(angle, (int, float)) and math.isfinite(angle):
                found.update(repr((math.sin(angle / 2), math.cos(angle / 2), math.sin(angle), math.cos(angle))).encode())
    return found.hexdigest()


def _end_all_by_exceptions(MPI: Any) -> None:
    """Let an exception that nobody catches end all ranks: they would wait for this one for ever."""
    global _hook_is_set
    if _hook_is_set:
        return
    _hook_is_set = True
    shown = sys.excepthook

    def end_all(kind: Any, error: Any, traceback: Any) -> None:
        world = MPI.COMM_WORLD
        told = io.StringIO()
        try:
            sys.stdout.flush()
            with contextlib.redirect_stderr(told):
                shown(kind, error, traceback)
            # In one piece, so that what other ranks tell does not come between the lines.
            print(f"rank {world.Get_rank()} of {world.Get_size()} ends all by this exception:\n{told.getvalue()}", file=sys.stderr)
            sys.stderr.flush()
            time.sleep(_PASSED_ON)
        finally:
            world.Abort(1)

    sys.excepthook = end_all
