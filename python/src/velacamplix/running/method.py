"""Which way a circuit with noise is run: exactly, on a density matrix, or by trajectories."""

from __future__ import annotations

import warnings
from typing import Any, Literal

from ..basics import checks
from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.flow import leaves
from ..machine import memory
from ..noise.model import NoiseModel
from ..results.plan import MethodCost
from .initial import Start
from .trajectories import trajectory_cost

# An operation on an entry of a density matrix, in those of a gate on an amplitude: a gate acts on ket and bra, and with the
# channel behind it.
_EXACT_WORK = 5.0

METHODS = ("auto", "exact", "trajectories")
MethodName = Literal["auto", "exact", "trajectories"]


def checked_method(method: Any) -> str:
    """Return a method's name."""
    if not isinstance(method, str):
        raise TypeError(f"method must be one of {', '.join(map(repr, METHODS))}, got {checks.show(method)}")
    if method not in METHODS:
        raise ValueError(f"method must be one of {', '.join(map(repr, METHODS))}, got {checks.show(method)}")
    return checks.plain(method)


def with_noise(circuit: Circuit, noise: Any, has_shots: bool) -> Circuit:
    """Return the circuit with a model's noise in it, if there is one."""
    if noise is None:
        return circuit
    if not isinstance(noise, NoiseModel):
        raise TypeError(
            f"noise must be a NoiseModel or None, got {checks.show(noise)}; circuit.channel(channel, qubits) puts a single "
            "channel into a circuit"
        )
    noisy = noise._applied(circuit, stacklevel=3)
    # Misreadings belong to measurements: the qubits of a circuit without one are read as they are.
    if has_shots and not any([step.name == "measure" for step in leaves(circuit._instructions)]):
        if any([any(noise.readout_of(q)) for q in range(circuit.n_qubits)]):
            warnings.warn(
                "noise misreads measurements, but the circuit measures nothing, so its shots are read without errors; "
                "Circuit.measure_all adds measurements",
                UserWarning,
                stacklevel=3,
            )
    return noisy


def checked_first_shot(first_shot: Any, is_noisy: bool) -> int:
    """Return the number of the first shot, which only a run with noise has."""
    if first_shot is None:
        return 0
    if not is_noisy:
        raise ValueError(
            f"first_shot must be left out without noise, got {checks.show(first_shot)}: then shots are drawn one after the "
            'other; method="exact" or "trajectories" gives each random numbers of its own'
        )
    return checks.integer(first_shot, "first_shot", minimum=0, maximum=2**63)


def require_no_noise(noise: Any, method: str, first_shot: Any, is_mixed: bool) -> None:
    """Refuse what many runs in one call do not take."""
    for name, is_given in (("noise", noise is not None), ("method", method != "auto"), ("first_shot", first_shot is not None)):
        if is_given:
            raise ValueError(f"{name} must be left out for many runs in one call: with noise a circuit is run by itself")
    if is_mixed:
        raise ValueError("initial must be no DensityMatrix for many runs in one call: from one a circuit is run by itself")


def has_noise(circuit: Circuit) -> bool:
    """Whether there is a channel, or a measurement that may be misread, anywhere in a circuit."""
    return any([step.is_noise for step in leaves(circuit._instructions)])


def settled(
    circuit: Circuit,
    method: str,
    shots: int | None,
    threads: int,
    precision: Precision,
    initial: Any,
    start: Start | None,
    fusion: bool,
) -> tuple[str, tuple[MethodCost, ...]]:
    """Return the method that is taken, and what is predicted of each.

    Parameters
    ----------
    start : Start or None
        None for a density matrix as `initial`.
    fusion : bool
        Only an exact run takes it, and always does the same.
    """
    if fusion and method == "trajectories":
        raise ValueError('fusion must be False for method="trajectories", whose shots are the same to the last bit, got True')
    if start is None:
        if method == "trajectories":
            raise ValueError(
                'initial must be a pure state for method="trajectories", got a DensityMatrix, which method="exact" takes'
            )
        return "exact", (_exact(initial.n_qubits, len(circuit.instructions), precision),)
    if shots is None and method == "trajectories":
        raise ValueError(
            'shots must be given for method="trajectories", whose results are means over shots; method="exact" needs none'
        )
    found = trajectory_cost(circuit, shots or 1, threads, precision, start)
    exact = _exact(found.n_qubits, found.gates, precision)
    if shots is None:
        return "exact", (exact,)
    trajectories = MethodCost("trajectories", found.work, found.bytes, True)
    if method == "auto":
        method = "exact" if exact.fits and exact.work <= found.work else "trajectories"
        if fusion and method == "trajectories":
            raise ValueError(
                "fusion must be False where trajectories are taken, which is the faster way here or the only one that fits, got "
                'True; method="exact" takes it'
            )
    return method, (exact, trajectories)


def _exact(n_qubits: int, gates: int, precision: Precision) -> MethodCost:
    try:
        memory.require_density(n_qubits, precision)
        fits = True
    except MemoryError:
        fits = False
    work = _EXACT_WORK * gates * 4.0 ** min(n_qubits, 500)
    return MethodCost("exact", work, memory.BYTES_PER_AMPLITUDE[precision] << 2 * n_qubits, fits)
