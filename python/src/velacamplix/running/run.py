"""Runs circuits with everything in them: measurements, resets, conditions, idle qubits."""

from __future__ import annotations

import os
import secrets
import sys
from collections.abc import Mapping, Sequence
from typing import Any, overload

from ..basics import checks
from ..basics.types import Order, Precision, Seed
from ..circuit.circuit import Circuit
from ..instructions.expression import Parameter
from ..instructions.parameter_vector import ParameterVector
from ..machine import limits
from ..noise.model import NoiseModel
from ..observables.observable import ObservableLike
from ..programs.compile import require_circuit, require_fusion
from ..programs.progress import ProgressLike
from ..programs.progress import checked as checked_progress
from ..programs.schedule import require_schedule
from ..states.densitymatrix import DensityMatrix
from ..storage.storage import Storage
from ..storage.storage import checked as checked_storage
from . import observing
from .batch import require_results, run_many
from .batch_result import BatchResult
from .initial import InitialLike, Start
from .method import MethodName, checked_first_shot, checked_method, with_noise
from .noisy import run_any
from .result import Result
from .sets import bound, sets_of_values
from .single import Request

__all__ = ["run"]

StorageLike = None | str | os.PathLike[str] | Storage
ObservablesLike = None | ObservableLike | Sequence[ObservableLike]


@overload
def run(
    circuit: Circuit, shots: int | None = None, seed: Seed | None = None, threads: int | None = None,
    precision: Precision = "double", observables: ObservablesLike = None, initial: InitialLike = None,
    progress: ProgressLike = None, fusion: bool = False, initial_order: Order | None = None, values: None = None,
    noise: NoiseModel | None = None, method: MethodName = "auto", first_shot: int | None = None,
    schedule: str = "written", storage: StorageLike = None, comm: Any = None, distributed: bool = False,
) -> Result: ...  # fmt: skip


@overload
def run(
    circuit: Sequence[Circuit], shots: int | None = None, seed: Seed | None = None, threads: int | None = None,
    precision: Precision = "double", observables: ObservablesLike = None, initial: InitialLike = None,
    progress: ProgressLike = None, fusion: bool = False, initial_order: Order | None = None, values: None = None,
    noise: NoiseModel | None = None, method: MethodName = "auto", first_shot: int | None = None,
    schedule: str = "written", storage: StorageLike = None, comm: None = None, distributed: bool = False,
) -> list[Result]: ...  # fmt: skip


@overload
def run(
    circuit: Circuit, shots: int | None = None, seed: Seed | None = None, threads: int | None = None,
    precision: Precision = "double", observables: ObservablesLike = None, initial: InitialLike = None,
    progress: ProgressLike = None, fusion: bool = False, initial_order: Order | None = None, *,
    values: Mapping[Any, Any], noise: NoiseModel | None = None, method: MethodName = "auto", first_shot: int | None = None,
    schedule: str = "written", storage: StorageLike = None, comm: None = None, distributed: bool = False,
) -> BatchResult: ...  # fmt: skip


def run(
    circuit: Circuit | Sequence[Circuit],
    shots: int | None = None,
    seed: Seed | None = None,
    threads: int | None = None,
    precision: Precision = "double",
    observables: ObservablesLike = None,
    initial: InitialLike = None,
    progress: ProgressLike = None,
    fusion: bool = False,
    initial_order: Order | None = None,
    values: Mapping[str | Parameter | ParameterVector, Any] | None = None,
    noise: NoiseModel | None = None,
    method: MethodName = "auto",
    first_shot: int | None = None,
    schedule: str = "written",
    storage: StorageLike = None,
    comm: Any = None,
    distributed: bool = False,
) -> Result | list[Result] | BatchResult:
    """Run a circuit, with noise or without, a list of circuits, or a circuit with many sets of numbers for its parameters.

    Parameters
    ----------
    circuit : Circuit or sequence of Circuit
        With measurements, resets, conditions, decisions and loops anywhere. Qubits that no gate touches take no memory.
        Circuits of a list may differ in everything; all other arguments hold for each of them. At most 1,000,000.
    shots : int, optional
        How many outcomes to draw, at least 1: of the classical bits, or of all qubits if nothing is measured.
    seed : int, numpy.random.Generator or numpy.random.SeedSequence, optional
        As for `StateVector`. The same seed gives the same shots, whatever the number of threads. Of many runs each has a
        seed of its own: run i the word i of ``numpy.random.SeedSequence(seed).generate_state(number of runs)``.
    threads : int, optional
        As for `StateVector`.
    precision : {"double", "single"}
        16 or 8 bytes per amplitude.
    observables : Observable, str, dict, or a list of these, optional
        Whose exact expectation values to tell: those after all instructions, measurements included. So a term with X or
        Y on a qubit that is measured at the end counts 0, and a UserWarning says so; leave the measurement away for the
        value before it. If outcomes in the middle of the circuit differ, the mean over the shots.
    initial : int, str, array_like of shape (2**n_qubits,), StateVector or DensityMatrix, optional
        The state to begin with: a number or a text as `StateVector.set_basis_state` takes it, amplitudes as
        `StateVector.set_state` takes them, or a state, which is copied; a density matrix makes the run an exact one. By
        default all qubits are 0.
    progress : None, bool or callable
        True shows a bar on standard error once a second has passed. A function is called with a `Progress`, at most
        every 50 ms, and once at the end; what it returns is ignored, an exception ends the run. Of one run gates are
        counted, of many runs.
    fusion : bool
        Whether neighbouring gates may be multiplied together and commuting ones exchanged: faster, and equal up to
        rounding. The bits then follow from the circuit, its number of qubits and the precision; neither the number of
        threads nor the processor's caches change them. With noise an exact run does so in any case, and trajectories are
        refused.
    initial_order : {"big", "little"}, optional
        Whether qubit 0 is the highest bit of the number, text or index that `initial` is, or the lowest. By default the
        highest of a number or text, and the lowest of an index, as in `StateVector.array`; an array without it gives a
        FutureWarning, in this version only, where the two would be different states.
    values : dict, optional
        Sets of numbers for the parameters of one circuit, which is run with each: from every parameter, by its name or as
        `Parameter`, to an array with one number for each set, or to one number that stands in all sets; from a
        `ParameterVector` to an array of shape (number of sets, its length).
    noise : NoiseModel, optional
        What ``noise.apply(circuit)`` puts into the circuit, beside the channels that are there.
    method : {"auto", "exact", "trajectories"}
        How a circuit with noise is run: on a density matrix of 4**n entries, or on a state for each shot, as far as shots
        differ. "auto" takes the exact one if it fits into memory and is predicted to be faster, or to take less than 10 ms of
        one core; without shots, and from a density matrix, it always does. What is not "auto" is a run with noise even if
        there is none.
    first_shot : int, optional
        With noise: the number of the first shot, 0 by default. Shots of several runs with the same seed are those of one
        run if their numbers follow one another.
    schedule : str
        "written" keeps the circuit's order of gates. "canonical:10" lets commuting gates change places once, by a rule that
        knows nothing but the circuit and its active qubits: as serves 2**10 ranks best, each with a part of the state.
        The number may be 0 to 57; a part is taken to have 6 qubits at least. The list of gates is then run as it is, so
        that its bits are the same for every number of threads and ranks; they agree with the written order up to
        rounding. On one machine that gains little. Between two measurements in the middle gates are ordered by themselves.
        With noise or `fusion` it is refused.
    storage : str, os.PathLike or Storage, optional
        A file to keep the state in instead of memory, for states that are larger: the bits are the same. With
        ``schedule="canonical:N"`` the file is read and written less often. One circuit
        without noise, fusion, an initial state, saves, and without outcomes or conditions in its middle; all else is
        refused. Parts of the state are read and written stage by stage, and ``progress`` counts them. See `Storage`,
        which also goes on where a run was ended.
    comm : mpi4py.MPI.Intracomm, optional
        Runs one circuit on all ranks of this communicator, a power of two, each with a part of the state. To be called on
        all of them with the same arguments; `progress` is rank 0's. Gives a
        `velacamplix.distributed.DistributedResult` with the same shots and expectation values on all ranks, those of one
        process. With noise ranks, of any number, share out the shots, each on whole states: then trajectories are taken, and
        all ranks get the `Result` that one process gives with ``method="trajectories"``. `fusion`, `values`, lists of
        circuits, saves, exact runs, and without noise outcomes needed before the end and an `initial` other than a basis
        state are refused.
    distributed : bool
        True is for ``comm=MPI.COMM_WORLD``.

    Returns
    -------
    Result, list of Result or BatchResult
        Counts, shots, final state, expectation values, what was saved, timings and plan; of a list of circuits a list in
        its order; of `values` a `BatchResult`, a sequence with one for each set.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range, the circuit has parameters without values, or there
        are no shots although outcomes in the middle of the circuit differ; across ranks if these differ in what they were
        given, or are no power of two, or more than shots with noise; if trajectories are to save a state, or an
        option is given that has no meaning, as `first_shot` without noise. Of many runs, a note of the exception tells
        which one it is about.
    MemoryError
        If the states, the shots or what the circuit saves do not fit.
    FileExistsError, OSError
        If the file of `storage` is there already, or the disk has not the room.
    ImportError
        If `comm` or `distributed` is given, and mpi4py or an MPI library is missing.
    RuntimeError
        If a loop goes round more often than its ``max_iterations``.
    KeyboardInterrupt
        After Ctrl-C, between two passes over the state.

    Notes
    -----
    Measurements at the end of the circuit are sampled from one simulation. Where an outcome is needed earlier, because
    its qubit is used again or a condition asks for its bit, the shots are shared out among the outcomes by one
    multinomial draw, and every group goes on with a state of its own. So there is one simulation for every group of
    equal outcomes, not for every shot, and the distribution is that of the ideal circuit. At most log2(shots) + 2
    states exist at a time, usually two or three.

    The groups take their own ways through `Circuit.if_`, `Circuit.switch` and `Circuit.while_`; one with fewer shots is
    followed to its end before one with more. Random numbers are drawn in this order, whatever the number of threads.

    With noise all random numbers of a shot follow from the seed and its number alone, so that shots are the same for every
    number of threads and however they are split into runs. By trajectories (Dalibard, Castin and Mølmer, Phys. Rev. Lett.
    68, 580 (1992)) a channel is one of its operators in each shot. What happens is drawn first, equal shots are made once,
    and shots without an event so far are one state, until outcomes in the middle of the circuit differ. Expectation values
    are means over the shots of the exact values in each; ``standard_errors`` tells how far off they may be.

    Each of many runs gives what a run of its own with its seed gives, bit for bit, whatever the number of threads. Those of
    fewer than 18 active qubits go side by side, one on each thread; of 18 and more, one after another, each on all threads.
    So do those of circuits without gates, with saves, with noise, or where an outcome is needed before the end; with noise
    each has a method of its own if `method` is "auto". Circuits that were bound from one circuit without noise have one
    program and one plan. Where runs go together, `timings` are an equal share of what all took, shots and expectation
    values counted as ``simulate``. Results of a list keep their states; those of `values` make them when they are asked
    for, by another run.

    Examples
    --------
    >>> from velacamplix import Circuit, run
    >>> run(Circuit(2).h(0).cx(0, 1), shots=1000, seed=1).counts            # doctest: +ELLIPSIS
    {'00': 4..., '11': 5...}
    >>> coin_until_one = Circuit(1, 1).h(0).measure(0, 0)
    >>> for attempt in range(40):
    ...     with coin_until_one.when("c", 0):
    ...         _ = coin_until_one.h(0)
    ...     _ = coin_until_one.measure(0, 0)
    >>> run(coin_until_one, shots=1000, seed=1).counts["1"]
    1000
    >>> [result.counts for result in run([Circuit(2).x(0), Circuit(1)], shots=10)]
    [{'10': 10}, {'0': 10}]
    >>> circuit = Circuit(1).ry(Parameter("angle"), 0)
    >>> run(circuit, values={"angle": [0, 1, 2]}, observables="Z0").expectation_values.round(6).tolist()
    [1.0, 0.540302, -0.416147]
    >>> from velacamplix import Channel, NoiseModel
    >>> noise = NoiseModel().after("cx", Channel.depolarizing(0.1, 2))
    >>> bell = Circuit(2).h(0).cx(0, 1)
    >>> round(run(bell, observables="Z0 Z1", noise=noise).expectation_values, 6)
    0.9
    >>> result = run(bell, shots=1000, seed=1, observables="Z0 Z1", noise=noise, method="trajectories")
    >>> abs(result.expectation_values - 0.9) < 4 * result.standard_errors, result.plan.trajectories
    (True, 16)
    """
    are_many = not isinstance(circuit, Circuit) and checks.is_list(circuit)
    is_one = not are_many and values is None
    way, is_noisy = checked_method(method), noise is not None or method != "auto" or isinstance(initial, DensityMatrix)
    name = "circuit[{}]" if are_many else "circuit"
    if is_one:
        circuits: Sequence[Circuit] = [require_circuit(circuit, name)]
        fewest = circuits[0].n_qubits
        starts = {fewest: Start(initial, fewest, initial_order)}
    else:
        listed = checks.sequence(circuit, "circuit", of="circuits") if are_many else [circuit]
        circuits = [require_circuit(one, name.format(i)) for i, one in enumerate(listed)]
        if are_many and values is not None:
            raise TypeError(f"values can be given for one circuit only, got them for a list of {len(circuits)}")
        sizes = {one.n_qubits for one in circuits}
        fewest = min(sizes, default=sys.maxsize)
        starts = {size: Start(initial, size, initial_order) for size in sizes}
    request = Request(
        None if shots is None else checks.shots(shots, minimum=1),
        checks.seed(seed),
        limits.thread_count(threads),
        checks.precision(precision),
        None if observables is None else observing.checked(observables, fewest),
        starts[circuits[0].n_qubits] if circuits else Start(None, 0, None),
        progress,
        require_fusion(fusion),
        is_noisy,
        way,
        checked_first_shot(first_shot, shots, circuits, name, is_noisy),
        require_schedule(schedule),
    )
    if request.fused and request.rank_bits is not None:
        raise ValueError(
            f'fusion must be False for schedule="{schedule}", an order in which gates are carried out exactly, got True'
        )
    checked_progress(progress)
    lost = observing.Lost()
    result: Result | list[Result] | BatchResult
    is_distributed = checks.flag(distributed, "distributed") or comm is not None
    if storage is not None:
        if is_distributed:
            raise ValueError("storage must be left away across ranks: each keeps its part of the state in memory")
        from .in_storage import require_plain, run_in_storage  # start-up time

        require_plain(request, not is_one)
        result = run_in_storage(circuits[0], request, checked_storage(storage), lost)
        lost.warn(stacklevel=2)
        return result
    if is_distributed:
        if not is_one:
            raise ValueError("across ranks one circuit is run at a time, got " + ("a list" if are_many else "one with values"))
        from ..distributed.run import run_distributed

        result = run_distributed(with_noise(circuits, name, noise, shots is not None)[0], request, comm, threads, lost)
        lost.warn(stacklevel=2)
        return result
    if is_one:
        result = run_any(with_noise(circuits, name, noise, shots is not None)[0], request, lost)
        lost.warn(stacklevel=2)
        return result
    own_seed = secrets.randbits(32) if request.seed is None else request.seed
    if values is None:
        circuits = with_noise(circuits, name, noise, shots is not None)
        result = run_many(circuits, name, own_seed, request, starts, True, lost)
    else:
        sets = sets_of_values(circuits[0].parameters, values)
        require_results(len(next(iter(sets.values()))), request.shots)
        starts = {size: start.kept() for size, start in starts.items()}
        circuits = with_noise(bound(circuits[0], sets), name, noise, shots is not None)
        members = run_many(circuits, "set {} of values", own_seed, request, starts, False, lost)
        result = BatchResult(members, sets, None if shots is None else own_seed, request.observed)
    lost.warn(stacklevel=2)
    return result
