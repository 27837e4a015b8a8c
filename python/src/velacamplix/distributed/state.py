"""A state whose amplitudes lie on many ranks."""

from __future__ import annotations

import math
import secrets
from pathlib import Path
from typing import Any, Self

import numpy as np

from ..basics import checks
from ..basics.types import Order, Precision, Seed
from ..circuit.circuit import Circuit
from ..core import extension
from ..machine import memory
from ..observables.observable import Observable, ObservableLike
from ..programs.compile import require_circuit
from ..programs.drive import drive, heard
from ..programs.prepare import Prepared, for_state, prepared
from ..programs.progress import ProgressLike, metered
from ..programs.progress import checked as checked_progress
from ..programs.schedule import require_schedule
from ..results import shot_rows
from ..results.counts import Counts
from ..states.apply import refuse_unsupported
from ..states.base import Qubits, highest_first
from ..states.statevector import StateVector
from . import files, marginals, values
from .ranks import Ranks, ranks_of

_PLANS = {"single": extension.StagePlanSingle, "double": extension.StagePlanDouble}
_SHOTS = {"single": extension.PartShotsSingle, "double": extension.PartShotsDouble}


class DistributedState:
    """A state of n qubits in parts, one on each rank of an MPI communicator. It begins as basis state 0.

    Every method is to be called on all ranks with the same arguments, and gives all of them the same answer, that of a
    `StateVector` of n qubits: the same bits, for every number of ranks. Only attributes, `local_array` and `release` are a
    rank's own.

    Parameters
    ----------
    n : int
        Number of qubits, one more at least than 2**k ranks have bits, k.
    comm : mpi4py.MPI.Intracomm, optional
        By default all ranks, ``MPI.COMM_WORLD``.
    precision : {"double", "single"}
        16 or 8 bytes per amplitude.
    threads : int, optional
        Of this rank. By default the ranks of a machine share its processors, unless the launcher has bound them.

    Raises
    ------
    ImportError
        If mpi4py is not installed, or finds no MPI library.
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range, the ranks are no power of two or too many for n qubits,
        or ranks have other arguments than others; the odd ones are named.
    MemoryError
        If a part does not fit on one of the ranks; on all ranks.

    Examples
    --------
    A script for ``mpirun -n 4 python script.py``, where every rank prints ``0.5 (262144,)``::

        from velacamplix import Circuit
        from velacamplix.distributed import DistributedState

        state = DistributedState(20).run(Circuit(20).x(3).rx(1.5707963267948966, 3))
        print(round(state.probability(0, [3]), 6), state.local_array.shape)
    """

    def __init__(
        self, n: int, comm: Any = None, precision: Precision = "double", threads: int | None = None
    ) -> None:
        size = checks.integer(n, "n", minimum=0, maximum=63)
        checked = checks.precision(precision)
        ranks = ranks_of(comm)
        ranks.agree(version=extension.version(), number_of_qubits=size, precision=checked)
        self._start(ranks, size, checked, ranks.threads(threads))

    def _start(self, ranks: Ranks, n: int, precision: Precision, threads: int, is_run_next: bool = False) -> None:
        require_fitting(ranks, n, "n")
        if ranks.size > 1:  # one alone looks whether its part fits as any state does
            ranks.require_part(n, memory.BYTES_PER_AMPLITUDE[precision])
        self._ranks, self._n_qubits, self._precision = ranks, n, precision
        self._part = StateVector._another(n - ranks.bits, precision, threads, is_run_next)
        #: The number of each rank's part among the parts of the state in its order.
        self._numbers = list(range(ranks.size))
        if ranks.rank != 0:
            self._part._live().view()[0] = 0

    @classmethod
    def _another(cls, ranks: Ranks, n: int, precision: Precision, threads: int, is_run_next: bool = False) -> Self:
        """Return a state whose parts, where one is run next, are as those of `StateVector._another`."""
        made = cls.__new__(cls)
        made._start(ranks, n, precision, threads, is_run_next)
        return made

    # What the object is

    @property
    def n_qubits(self) -> int:
        """Number of qubits of the whole state."""
        return self._n_qubits

    @property
    def precision(self) -> Precision:
        """``"double"`` or ``"single"``."""
        return self._precision

    @property
    def threads(self) -> int:
        """Number of threads of this rank."""
        return self._part.threads

    @property
    def rank(self) -> int:
        """The number of this rank."""
        return self._ranks.rank

    @property
    def ranks(self) -> int:
        """The number of ranks."""
        return self._ranks.size

    @property
    def layout(self) -> tuple[int, ...]:
        """For each rank the number of its part: rank r has the amplitudes from index ``layout[r] << m`` on, 2**m of them.

        The n - m highest qubits are the bits of the part's number.
        """
        return tuple(self._numbers)

    @property
    def local_array(self) -> np.ndarray:
        """The amplitudes of this rank's part without a copy, ``complex128`` or ``complex64``; see `layout` for their indices.

        It may be written to.
        """
        return self._part.array

    @property
    def bytes_sent(self) -> int:
        """Bytes of amplitudes that this rank has sent so far for all states of its communicator."""
        return self._ranks.sent

    def __repr__(self) -> str:
        rank = f"rank={self.rank} of {self.ranks}"
        if self._part._core is None:
            return f"DistributedState(n={self._n_qubits}, precision={self._precision!r}, {rank}, released)"
        return f"DistributedState(n={self._n_qubits}, precision={self._precision!r}, threads={self.threads}, {rank})"

    def release(self) -> None:
        """Give this rank's memory back now. Every later use of the state raises RuntimeError.

        Raises
        ------
        BufferError
            If a view made by `local_array` still exists.
        """
        self._part.release()

    # Circuits

    def run(self, circuit: Circuit, progress: ProgressLike = None, schedule: str = "written") -> Self:
        """Apply the gates of a circuit to the present state, in order, as `StateVector.run` does.

        Parameters
        ----------
        circuit : Circuit
            On at most n qubits. Measurements at its end change nothing here.
        progress : None, bool or callable
            As for `velacamplix.run`; rank 0's.
        schedule : str
            As for `velacamplix.run`: ``"canonical:10"`` lets ranks exchange less.

        Raises
        ------
        TypeError, ValueError
            As for `StateVector.run`; also if ranks have other circuits than others, and for a gate that mixes more qubits
            than a part has.
        UnsupportedInstruction
            If it holds what `StateVector.run` refuses.

        Notes
        -----
        What can be refused is refused before the first gate. What ends the run later, Ctrl-C or an exception from
        `progress`, leaves parts that belong to no state.
        """
        core, n, ranks = self._part._live(), self._n_qubits, self._ranks
        require_circuit(circuit)
        checked_progress(progress)
        rank_bits = require_schedule(schedule)
        if circuit.n_qubits > n:
            raise ValueError(f"circuit must have at most {n} qubits, those of the state, got {circuit!r}")
        refuse_unsupported(circuit.instructions)
        if ranks.size > 1:
            ranks.agree(circuit=ranks.same(circuit), schedule=schedule)

        def make() -> Prepared:
            return for_state(circuit, n, self._precision, False, rank_bits)

        with prepared(circuit, ("state", n, self._precision, False, rank_bits), make) as found:
            (program,) = found.programs
            if ranks.size > 1:
                self._carry_out(self._planned(program, from_zeros=False), progress)
            else:
                with metered(progress, len(program), "gates") as meter:
                    drive(core, program, meter.within())
        return self

    def _planned(self, program: Any, from_zeros: bool) -> Any:
        """Return a program in stages, with the numbers of rank 0; `from_zeros` is for a state to which nothing has happened.

        Other processors may give sines and cosines other last bits.
        """
        plan = _PLANS[self._precision](program, self._n_qubits, self._ranks.bits, from_zeros)
        plan.set_coefficients(self._ranks.copied(plan.coefficients()))
        return plan

    def _carry_out(self, plan: Any, progress: ProgressLike) -> None:
        """Let the gates of a plan act in all parts, which exchange amplitudes between its stages."""
        ranks, numbers, view = self._ranks, self._numbers, self._part._live().view()
        number = numbers[ranks.rank]
        with metered(progress if ranks.rank == 0 else None, len(plan), "stages") as meter:
            for stage in range(len(plan)):
                for partner, first, count in plan.transfers(stage, number):
                    ranks.swap(view[first : first + count], numbers.index(partner))
                plan.run_stage(stage, number, view, self.threads, *heard())
                meter.advance(1)
                meter.tell()
        self._numbers = [plan.part_of(number) for number in numbers]

    # Probabilities

    def distribution(self, qubits: Qubits | None = None, order: Order = "big") -> np.ndarray:
        """Return the probabilities of all outcomes of the listed qubits, on every rank.

        Parameters, errors and the bits of the numbers are those of `StateVector.distribution`.

        Returns
        -------
        numpy.ndarray, shape (2**k,)
            ``float64``.
        """
        self._part._live()
        listed = tuple(range(self._n_qubits)) if qubits is None else checks.qubits(qubits, self._n_qubits, at_least=0)
        return marginals.distribution(self._ranks, self._part, self._numbers, highest_first(listed, order))

    probabilities = distribution

    def probability(self, outcome: int | str, qubits: Qubits | None = None, order: Order = "big") -> float:
        """Return the probability of one outcome of the listed qubits.

        Parameters
        ----------
        outcome : int or str
            A number, or a text with a digit for each of the qubits.
        qubits : int or sequence of int, optional
            At most 24; all by default.
        order : {"big", "little"}
            Whether the first listed qubit is the most or the least significant bit of a number, or the first digit's.

        Raises
        ------
        TypeError, IndexError, ValueError, MemoryError
            As for `StateVector.probability`; also ValueError for more than 24 qubits.
        """
        listed = tuple(range(self._n_qubits)) if qubits is None else checks.qubits(qubits, self._n_qubits, at_least=0)
        if len(listed) > 24:
            raise ValueError(f"qubits must be at most 24 for a state in parts, got {len(listed)}; local_array has all amplitudes")
        number = checks.outcome(outcome, len(listed))
        return float(self.distribution(listed, order)[number])

    def norm(self) -> float:
        """Return the root of the sum of all probabilities: 1, but for the rounding of the gates so far."""
        return math.sqrt(self.distribution([])[0])

    # Shots

    def sample(
        self, shots: int, qubits: Qubits | None = None, order: Order = "big", seed: Seed | None = None
    ) -> np.ndarray:
        """Draw outcomes of the listed qubits, on every rank the same; the state does not change.

        They are those that `StateVector.sample` draws of a state with this seed, whatever the number of ranks.

        Parameters
        ----------
        shots : int
        qubits : int or sequence of int, optional
            All by default.
        order : {"big", "little"}
            As for `StateVector.sample`.
        seed : int, numpy.random.Generator or numpy.random.SeedSequence, optional
            The same on all ranks. By default drawn by chance.

        Returns
        -------
        numpy.ndarray, shape (shots,)
            ``uint64``.

        Raises
        ------
        TypeError, IndexError, ValueError
            If an argument is of the wrong kind or outside its range, differs from rank to rank, or the probabilities add up
            to 0, to infinity or to nan.
        MemoryError
            If the outcomes do not fit.
        """
        self._part._live()
        count = checks.shots(shots)
        listed = tuple(range(self._n_qubits)) if qubits is None else checks.qubits(qubits, self._n_qubits, at_least=0)
        ordered = highest_first(listed, order)
        own = checks.seed(seed)
        self._ranks.agree(number_of_shots=count, qubits_to_draw=ordered, seed=own)
        return self._drawn(count, ordered, self._ranks.first(lambda: secrets.randbits(32)) if own is None else own)

    def counts(
        self, shots: int, qubits: Qubits | None = None, order: Order = "big", seed: Seed | None = None
    ) -> Counts:
        """Draw outcomes as `sample` does and count how often each came, on every rank."""
        listed = tuple(range(self._n_qubits)) if qubits is None else checks.qubits(qubits, self._n_qubits, at_least=0)
        return shot_rows.tally(self.sample(shots, listed, order, seed).reshape(-1, 1), len(listed))

    def _drawn(self, shots: int, listed: tuple[int, ...], seed: int) -> np.ndarray:
        memory.require_bytes(8 * shots, f"shots={shots}")
        outcomes: np.ndarray = np.zeros(shots, dtype=np.uint64)
        if not listed or not shots:
            return outcomes
        ranks, numbers = self._ranks, self._numbers
        number, core = numbers[ranks.rank], self._part._live()
        sums = _SHOTS[self._precision](core.view(), self._n_qubits, number, self.threads)
        estimates = ranks.gathered(sums.estimate())
        before = [estimate for _, estimate in sorted(zip(numbers, estimates))]
        sums.foresee(float(sum(before[:number])))
        total = ranks.in_turn(numbers, 0.0, sums.run)
        extension.set_seed(core, seed)
        try:
            sums.write(total, extension.engine(core), outcomes, listed)
        except ValueError as error:
            raise ValueError(str(error)) from None
        ranks.joined(outcomes)
        return outcomes

    # Expectation values

    def expectation(self, observable: ObservableLike) -> float | complex:
        """Return the exact expectation value of an observable, on every rank.

        Parameters
        ----------
        observable : Observable, str, dict or list
            On at most n qubits.

        Returns
        -------
        float
            Or ``complex``, if a coefficient is.

        Raises
        ------
        TypeError, ValueError
            If this is no observable, one on more qubits, another one than on other ranks, or there are more than 4096 ranks.
        """
        self._part._live()
        checked = observable if isinstance(observable, Observable) else Observable(observable)
        if checked.n_qubits > self._n_qubits:
            raise ValueError(
                f"observable must act on qubits below {self._n_qubits}, got one on qubit {checked.n_qubits - 1}"
            )
        self._ranks.agree(observable=str(checked))
        return self._expectation(checked)

    def _expectation(self, observable: Observable) -> float | complex:
        found = values.term_values(self._ranks, self._part, self._numbers, observable)
        total = 0j
        for value in found.tolist():
            total += value
        total += observable.constant
        return total if observable.is_complex else total.real

    # Amplitudes

    def statevector(self) -> np.ndarray:
        """Return all 2**n amplitudes in one array, on every rank; qubit q is bit q of the index.

        Raises
        ------
        MemoryError
            If they do not fit on every rank.
        """
        size = memory.BYTES_PER_AMPLITUDE[self._precision] << self._n_qubits
        told = self._ranks.gathered(memory.fits(size))
        if not all(told):
            raise MemoryError(
                f"all amplitudes of {self._n_qubits} qubits take {memory.human(size)} on every rank, which do not fit on rank "
                f"{told.index(False)}; local_array has those of each rank, and save(folder) writes them"
            )
        return self._ranks.all_of(self._part._live().view(), self._numbers)

    def save(self, folder: str | Path) -> None:
        """Write the state into a folder that all ranks see: a file for each part, and ``manifest.json``.

        What was saved there before is replaced.

        Parameters
        ----------
        folder : str or Path
            It is made if it is not there.

        Raises
        ------
        OSError
            If a file cannot be written.
        """
        self._ranks.agree(folder=str(folder))
        files.save(self._ranks, Path(folder), self._part._live().view(), self._n_qubits, self._precision, self._numbers)

    @classmethod
    def load(cls, folder: str | Path, comm: Any = None, threads: int | None = None) -> DistributedState:
        """Return a state that `save` wrote, perhaps on another number of ranks.

        Parameters
        ----------
        folder : str or Path
            Seen by all ranks.
        comm, threads
            As for `DistributedState`.

        Raises
        ------
        ValueError
            If the folder holds no such state, or a file does not match ``manifest.json``; on all ranks.
        OSError, MemoryError
            If a file cannot be read, or a part does not fit.
        """
        ranks = ranks_of(comm)
        ranks.agree(version=extension.version(), folder=str(folder))
        manifest = ranks.first(lambda: files.manifest_of(Path(folder)))
        if isinstance(manifest, str):
            raise ValueError(manifest)
        state = cls._another(ranks, manifest["n_qubits"], manifest["precision"], ranks.threads(threads))
        files.fill(ranks, Path(folder), manifest, state._part._live().view())
        return state


def require_fitting(ranks: Ranks, n: int, name: str) -> None:
    """Raise ValueError unless every rank gets two amplitudes at least."""
    if n <= ranks.bits:
        raise ValueError(
            f"{name} must be at least {ranks.bits + 1} on {ranks.size} ranks, so that each has two amplitudes, got {n}; fewer ranks "
            "will do, or a run without comm"
        )
