"""Runs a circuit with everything in it: measurements, resets, conditions, idle qubits."""

from __future__ import annotations

from collections.abc import Sequence

from ..basics import checks
from ..basics.types import Order, Precision, Seed
from ..circuit.circuit import Circuit
from ..machine import limits
from ..observables.observable import ObservableLike
from ..programs.compile import require_circuit, require_fusion
from ..programs.progress import ProgressLike
from ..programs.progress import checked as checked_progress
from . import observing
from .initial import InitialLike, Start
from .result import Result
from .single import Request, run_alone

__all__ = ["run"]


def run(
    circuit: Circuit,
    shots: int | None = None,
    seed: Seed | None = None,
    threads: int | None = None,
    precision: Precision = "double",
    observables: None | ObservableLike | Sequence[ObservableLike] = None,
    initial: InitialLike = None,
    progress: ProgressLike = None,
    fusion: bool = False,
    initial_order: Order | None = None,
) -> Result:
    """Run a circuit.

    Parameters
    ----------
    circuit : Circuit
        With measurements, resets, conditions, decisions and loops anywhere. Qubits that no gate touches take no memory.
    shots : int, optional
        How many outcomes to draw, at least 1: of the classical bits, or of all qubits if nothing is measured.
    seed : int, numpy.random.Generator or numpy.random.SeedSequence, optional
        As for `StateVector`. The same seed gives the same shots, whatever the number of threads.
    threads : int, optional
        As for `StateVector`.
    precision : {"double", "single"}
        16 or 8 bytes per amplitude.
    observables : Observable, str, dict, or a list of these, optional
        Whose exact expectation values to tell: those after all instructions, measurements included. So a term with X or
        Y on a qubit that is measured at the end counts 0, and a UserWarning says so; leave the measurement away for the
        value before it. If outcomes in the middle of the circuit differ, the mean over the shots.
    initial : int, str, array_like of shape (2**n_qubits,) or StateVector, optional
        The state to begin with: a number or a text as `StateVector.set_basis_state` takes it, amplitudes as
        `StateVector.set_state` takes them, or a state, which is copied. By default all qubits are 0.
    progress : None, bool or callable
        True shows a bar on standard error once a second has passed. A function is called with a `Progress`, at most
        every 50 ms, and once at the end; what it returns is ignored, an exception ends the run.
    fusion : bool
        Whether neighbouring gates may be multiplied together and commuting ones exchanged: faster, and equal up to
        rounding. The bits then follow from the circuit, its number of qubits and the precision; neither the number of
        threads nor the processor's caches change them.
    initial_order : {"big", "little"}, optional
        Whether qubit 0 is the highest bit of the number, text or index that `initial` is, or the lowest. By default the
        highest of a number or text, and the lowest of an index, as in `StateVector.array`; an array without it gives a
        FutureWarning, in this version only, where the two would be different states.

    Returns
    -------
    Result
        Counts, shots, final state, expectation values, what was saved, timings and plan.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range, the circuit has parameters without values, or there
        are no shots although outcomes in the middle of the circuit differ.
    MemoryError
        If the state, the shots or what the circuit saves do not fit.
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
    """
    require_circuit(circuit)
    request = Request(
        None if shots is None else checks.shots(shots, minimum=1),
        checks.seed(seed),
        limits.thread_count(threads),
        checks.precision(precision),
        None if observables is None else observing.checked(observables, circuit.n_qubits),
        Start(initial, circuit.n_qubits, initial_order),
        progress,
        require_fusion(fusion),
    )
    checked_progress(progress)
    lost = observing.Lost()
    result = run_alone(circuit, request, lost)
    lost.warn(stacklevel=2)
    return result
