"""Which way a circuit with noise is run: exactly, on a density matrix, or by trajectories."""

from __future__ import annotations

import warnings
from collections.abc import Sequence
from typing import Any, Literal, cast

from ..basics import checks
from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.flow import leaves
from ..machine import memory
from ..noise.model import NoiseModel
from ..programs.compile import described
from ..results.plan import MethodCost
from .costs import Outlook
from .single import Request
from .trajectories import looked_at

# An exact run of fewer seconds is taken even where trajectories would be faster: it leaves expectation values without errors.
_SOON = 0.01

METHODS = ("auto", "exact", "trajectories")
MethodName = Literal["auto", "exact", "trajectories"]


def checked_method(method: Any) -> str:
    """Return a method's name."""
    if isinstance(method, str) and method in METHODS:
        return checks.plain(method)
    kind = ValueError if isinstance(method, str) else TypeError
    raise kind(f"method must be one of {', '.join(map(repr, METHODS))}, got {checks.show(method)}")


def with_noise(circuits: Sequence[Circuit], name: str, noise: Any, has_shots: bool) -> Sequence[Circuit]:
    """Return the circuits with a model's noise in them, if there is one; `name` as for `run_many`."""
    if noise is None:
        return circuits
    if not isinstance(noise, NoiseModel):
        raise TypeError(
            f"noise must be a NoiseModel or None, got {checks.show(noise)}; NoiseModel.from_dict reads a dictionary, and "
            "circuit.channel(channel, qubits) puts a single channel into a circuit"
        )
    kept: dict[Any, Any] = {}
    if len(circuits) == 1:
        # A circuit keeps, until it is changed, the last model that it was run with and what came of that.
        if circuits[0]._prepared is None:
            circuits[0]._prepared = {}
        kept = circuits[0]._prepared
    model, noisy, told = kept.get(("noisy", name), (None, (), ()))
    if model is not noise:
        noisy, unmatched = noise._applied(circuits)
        told = unmatched, _misreads_nothing(circuits, name, noise)
        kept["noisy", name] = noise, noisy, told
    for warning in filter(None, told[: 1 + has_shots]):
        warnings.warn(warning, UserWarning, stacklevel=3)
    return cast(Sequence[Circuit], noisy)


def _misreads_nothing(circuits: Sequence[Circuit], name: str, noise: NoiseModel) -> str:
    """Return what to warn of, or nothing: the qubits of a circuit without a measurement are read as they are."""
    for place, circuit in enumerate(circuits):
        if any([step.name == "measure" for step in leaves(circuit._instructions)]):
            continue
        if any([any(noise.readout_of(q)) for q in range(circuit.n_qubits)]):
            return (
                f"noise misreads measurements, but {name.format(place)} measures nothing, so its shots are read without "
                "errors; Circuit.measure_all adds measurements"
            )
    return ""


def checked_first_shot(
    first_shot: Any, shots: int | None, circuits: Sequence[Circuit], name: str, is_noisy: bool
) -> int | None:
    """Return the number of the first shot, which only runs with noise and shots have; `name` as for `run_many`."""
    if first_shot is None:
        return None
    if shots is None:
        raise ValueError(f"first_shot must be left out without shots, got {checks.show(first_shot)}; shots=N draws some")
    for place, circuit in enumerate(() if is_noisy else circuits):
        if not has_noise(circuit):
            raise ValueError(
                f"first_shot must be left out without noise, of which {name.format(place)} has none, got "
                f"{checks.show(first_shot)}: then shots are drawn one after the other; "
                'method="exact" or "trajectories" gives each random numbers of its own'
            )
    return checks.integer(first_shot, "first_shot", minimum=0, maximum=2**63)


def has_noise(circuit: Circuit) -> bool:
    """Whether there is a channel, or a measurement that may be misread, anywhere in a circuit."""
    return any([step.is_noise for step in leaves(circuit._instructions)])


def settled(circuit: Circuit, request: Request) -> tuple[str, tuple[MethodCost, ...]]:
    """Return the method that is taken, and what is predicted of each."""
    method, shots = request.method, request.shots
    if request.fused and method == "trajectories":  # an exact run always does the same, with fusion or without
        raise ValueError('fusion must be False for method="trajectories", whose shots are the same to the last bit, got True')
    if request.start.is_mixed:
        if method == "trajectories":
            raise ValueError(
                'initial must be a pure state for method="trajectories", got a DensityMatrix, which method="exact" takes'
            )
        method = "exact"
    if shots is None and method == "trajectories":
        raise ValueError(
            'shots must be given for method="trajectories", whose results are means over shots; method="exact" needs none'
        )
    outlook, size = looked_at(circuit, request)
    exact = _exact(outlook, request.precision)
    if outlook.saved_state is not None:
        if method == "trajectories":
            raise ValueError(
                f"{described(outlook.saved_state, circuit)} finds no state by trajectories, of which every shot has its own: "
                'method="exact" keeps a density matrix; save_probabilities and save_expectation tell means over the shots'
            )
        method = "exact"
    if shots is None or request.start.is_mixed:
        return "exact", (exact,)
    terms = 0 if request.observed is None else sum([len(one.terms) for one in request.observed.observables])
    trajectories = MethodCost("trajectories", outlook.trajectory_seconds(shots, terms), size, True)
    if method == "auto":
        is_soon = exact.seconds <= max(trajectories.seconds, _SOON)
        method = "exact" if exact.fits and is_soon else "trajectories"
        if request.fused and method == "trajectories":
            raise ValueError(
                "fusion must be False where trajectories are taken, which is the faster way here or the only one that fits, got "
                'True; method="exact" takes it'
            )
    return method, (exact, trajectories)


def _exact(outlook: Outlook, precision: Precision) -> MethodCost:
    n = outlook.n_qubits
    size = memory.BYTES_PER_AMPLITUDE[precision] << 2 * n
    return MethodCost("exact", outlook.exact_seconds(), size, memory.density_fits(n, precision))
