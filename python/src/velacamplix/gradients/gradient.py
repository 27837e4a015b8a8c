"""Values and derivatives of observables in the state that a circuit makes."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.types import Precision
from ..circuit import derivatives as _derivatives
from ..machine import limits, memory
from ..observables.observable import Observable
from ..programs.drive import Report, drive, heard
from ..programs.progress import Meter, ProgressLike
from ..results.estimate import Estimate
from ..running.initial import InitialLike
from ..states.statevector import StateVector
from . import request as requests
from . import shifts
from .differentiable import Differentiable, differentiable
from .request import Request

__all__ = ["ValueAndGradient"]


# More lambdas at a time win nothing: psi goes back with each group of them.
_MOST_STATES = 31


class _Pair(NamedTuple):
    value: Any
    gradient: Any


class ValueAndGradient(_Pair):
    """The value of an observable and its derivatives by the parameters; a tuple of these two.

    Attributes
    ----------
    value : float, Estimate, or numpy.ndarray of shape (sets of values,)
        An `Estimate` from shots.
    gradient : numpy.ndarray of shape (parameters,) or (sets of values, parameters), or Estimate of such
        In the order of ``circuit.parameters``.
    return_error : float
        Of the adjoint method: the norm of the difference between the initial state and what the way back through all gates
        makes of the final one, the largest of a batch. Rounding alone gives about 1e-16 (in single precision 1e-7) times
        the root of the number of gates. nan for other methods.
    """

    return_error: float = math.nan


# Methods of circuits are annotated with names of rooms above theirs: what reads them at run time finds them there.
for _name, _item in {
    "ValueAndGradient": ValueAndGradient,
    "Estimate": Estimate,
    "InitialLike": InitialLike,
    "ProgressLike": ProgressLike,
}.items():
    setattr(_derivatives, _name, _item)


class _Found(NamedTuple):
    """A row for each observable. Variances only from shots."""

    values: np.ndarray
    gradients: np.ndarray
    value_variances: np.ndarray | None
    variances: np.ndarray | None
    return_error: float


def value_and_gradient(circuit: Any, observable: Any, values: Any = None, **how: Any) -> ValueAndGradient:
    """Return the value of an observable and its gradient; the arguments are those of `Circuit.value_and_gradient`."""
    request = requests.checked(circuit, observable, "observable", **how)
    if request.observed.are_many:
        raise ValueError("observable must be one; jacobian takes a list of observables")
    if requests.is_batch(values):
        rows = requests.batch(circuit, values)
        found = differentiated(request, rows)
        return _paired(
            np.array([one.values[0] for one in found]),
            np.array([one.gradients[0] for one in found]).reshape(len(rows), len(circuit.parameters)),
            [one.value_variances[0] for one in found if one.value_variances is not None],
            [one.variances[0] for one in found if one.variances is not None],
            max((one.return_error for one in found), default=math.nan),
        )
    (one,) = differentiated(request, [requests.numbers(circuit, values)])
    return _paired(
        one.values[0].item(),
        one.gradients[0],
        None if one.value_variances is None else one.value_variances[0].item(),
        None if one.variances is None else one.variances[0],
        one.return_error,
    )


def gradient(circuit: Any, observable: Any, values: Any = None, **how: Any) -> np.ndarray | Estimate:
    """Return the gradient alone."""
    return value_and_gradient(circuit, observable, values, **how).gradient  # type: ignore[no-any-return]


def jacobian(circuit: Any, observables: Any, values: Any = None, **how: Any) -> np.ndarray | Estimate:
    """Return the derivatives of several observables, a row for each."""
    request = requests.checked(circuit, observables, "observables", **how)
    (found,) = differentiated(request, [requests.numbers(circuit, values)])
    rows = found.gradients if request.observed.are_many else found.gradients[0]
    if found.variances is None:
        return rows
    variances = found.variances if request.observed.are_many else found.variances[0]
    return Estimate(rows, np.sqrt(variances))


def vjp(circuit: Any, observables: Any, values: Any, vector: Any, **how: Any) -> np.ndarray:
    """Return the sum of the observables' gradients, each times its entry of `vector`: one gradient, of their sum."""
    request = requests.checked(circuit, observables, "observables", sampled=False, **how)
    whole = weighted(request, _vector(vector, len(request.observables), "vector", "observable"))
    (found,) = differentiated(whole, [requests.numbers(circuit, values)])
    return found.gradients[0]


def jvp(circuit: Any, observables: Any, values: Any, tangent: Any, **how: Any) -> np.ndarray | float:
    """Return the derivatives of the observables where the parameters change along `tangent`."""
    request = requests.checked(circuit, observables, "observables", sampled=False, **how)
    direction = np.array(requests.numbers(circuit, tangent, "tangent"))
    (found,) = differentiated(request, [requests.numbers(circuit, values)])
    along = np.array([float((row * direction).sum()) for row in found.gradients])
    return along if request.observed.are_many else along[0].item()  # type: ignore[no-any-return]


def _paired(value: Any, slopes: Any, value_variances: Any, variances: Any, return_error: float) -> ValueAndGradient:
    if variances is not None and len(variances):
        value = Estimate(value, np.sqrt(value_variances) if np.ndim(value) else math.sqrt(value_variances))
        slopes = Estimate(slopes, np.sqrt(np.array(variances)))
    result = ValueAndGradient(value, slopes)
    result.return_error = return_error
    return result


def _vector(vector: Any, length: int, name: str, of: str) -> list[float]:
    listed = checks.sequence(vector, name, of="numbers")
    if len(listed) != length:
        raise ValueError(f"{name} must hold {length} number(s), one for each {of}, got {len(listed)}")
    return [checks.real(value, f"{name}[{place}]") for place, value in enumerate(listed)]


def weighted(request: Request, weights: Sequence[float]) -> Request:
    """Return the request for the sum of the observables, each times its weight."""
    total = Observable([])
    for weight, observable in zip(weights, request.observables):
        total = total + weight * observable
    return request._replace(observed=request.observed._replace(observables=[total], are_many=False))


def values(request: Request, rows: Sequence[Sequence[float]]) -> list[np.ndarray]:
    """Return a value for each observable at every set of values, and no derivatives."""
    return [found.values for found in differentiated(request._replace(method="none"), rows)]


def differentiated(request: Request, rows: Sequence[Sequence[float]]) -> list[_Found]:
    """Return values and derivatives at every set of values."""
    if not rows:
        return []
    how = request.start.nonzero, request.precision, request.fusion
    with differentiable(request.circuit, rows[0], *how) as one:
        # Those on qubits that no gate touches are reduced.
        whole = len(one.active) == request.circuit.n_qubits
        observables = request.observables if whole else request.observed.on(one.active, frozenset())
        find, unit = _WAYS[request.method]
        work = shifts.evaluations(one)
        if unit == "gates":
            # On one state: forward, and back with one state more than there are observables.
            work = len(one.program) * (1 if request.method == "none" else 2 + len(observables))
        found = []
        with Meter(request.progress, work * len(rows), unit) as meter:
            for number, row in enumerate(rows):
                if number:
                    one.bind(row)
                found.append(find(request, one, observables, row, meter, work))
    return found


def _by_adjoint(
    request: Request, one: Differentiable, observables: list[Observable], row: Sequence[float], meter: Meter, work: int
) -> _Found:
    n = len(one.active)
    initial = None
    if not request.start.is_zero:
        initial = StateVector._another(n, request.precision, request.threads)
        request.start.prepare(initial, one.active)
    most = states_that_fit(n, request.precision, 1 + len(observables))
    values, by_angles, return_error = one.program.gradient(
        [observable.compiled() for observable in observables], one.turned, request.threads, most,
        None if initial is None else initial._live(), *heard(_report(meter, work)),
    )
    meter.advance(work)
    if not math.isfinite(return_error):
        raise ValueError("a gradient needs finite amplitudes, but the initial state has others (inf or nan)")
    return _Found(values, one.by_parameters(by_angles, row), None, None, return_error)


def _by_shifts(
    request: Request, one: Differentiable, observables: list[Observable], row: Sequence[float], meter: Meter, work: int
) -> _Found:
    found = shifts.by_angles(one, observables, request.start, request.threads, request.shots, request.seed, meter)
    gradients = one.by_parameters(found.derivatives, row)
    if request.shots is None:
        return _Found(found.values, gradients, None, None, math.nan)
    variances = one.by_parameters(found.variances, row, squared=True)
    return _Found(found.values, gradients, found.value_variances, variances, math.nan)


def _by_no_way(
    request: Request, one: Differentiable, observables: list[Observable], row: Sequence[float], meter: Meter, work: int
) -> _Found:
    state = StateVector._another(len(one.active), request.precision, request.threads)
    request.start.prepare(state, one.active)
    drive(state._live(), one.program, meter.within())
    meter.advance(work)
    values = np.array([state.expectation(observable) for observable in observables], dtype=np.float64)
    return _Found(values, np.zeros((len(observables), 0)), None, None, math.nan)


_WAYS = {
    "none": (_by_no_way, "gates"),
    "adjoint": (_by_adjoint, "gates"),
    "parameter-shift": (_by_shifts, "runs"),
    "finite-shots": (_by_shifts, "runs"),
}


def _report(meter: Meter, work: int) -> Report:
    tell = meter.within()
    # The core counts its own gates: more where observables take their turns for want of memory.
    return None if tell is None else lambda done, total: tell(round(work * done / max(total, 1)), work)


def states_that_fit(n: int, precision: Precision, wanted: int) -> int:
    """Return how many states may be held at a time of so many; raise MemoryError if not even two of them fit."""
    try:
        memory.require_state(n + 1, precision)
    except MemoryError as error:
        raise MemoryError(f"the adjoint method holds 2 states of {n} qubits, as much as one of {n + 1}: {error}") from None
    needed, most = memory.memory_needed(n, precision), max(2, min(wanted, _MOST_STATES))
    # What is known to fit is not asked for: that reads files of the system, which takes up to a millisecond.
    if most == 2 or needed * most <= memory.SMALL_BYTES:
        return most
    return max(2, min(most, limits.memory().usable // needed))
