"""The arguments of a derivative, checked."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.types import Order, Precision
from ..basics.words import shortened
from ..circuit.circuit import Circuit
from ..instructions.binding import checked_values, plain_values
from ..machine import limits
from ..observables.observable import Observable
from ..programs.compile import require_circuit, require_fusion
from ..programs.progress import ProgressLike
from ..programs.progress import checked as checked_progress
from ..running import observing
from ..running.initial import InitialLike, Start

METHODS = ("adjoint", "parameter-shift", "finite-shots")


class Request(NamedTuple):
    """What is to be differentiated, how, and where."""

    circuit: Circuit
    observed: observing.Observed
    method: str
    shots: int | None
    seed: int | None
    precision: Precision
    threads: int
    fusion: bool
    start: Start
    progress: ProgressLike

    @property
    def observables(self) -> list[Observable]:
        """As they were given, on the circuit's qubits."""
        return self.observed.observables


def checked(
    circuit: Any,
    observables: Any,
    argument: str,
    sampled: bool = True,
    method: Any = "adjoint",
    shots: Any = None,
    seed: Any = None,
    precision: Any = "double",
    threads: Any = None,
    initial: InitialLike = None,
    initial_order: Order | None = None,
    fusion: Any = False,
    progress: ProgressLike = None,
) -> Request:
    """Return a request; `argument` is what the caller calls the observables, `sampled` whether shots will do."""
    require_circuit(circuit)
    observed = observing.checked(observables, circuit.n_qubits, argument)
    for observable in observed.observables:
        if observable.is_complex:
            raise ValueError(
                f"{argument} must have real coefficients for a gradient, got {shortened(str(observable))}: take the "
                "gradients of its real and its imaginary part"
            )
    way = checks.choice(method, "method", METHODS if sampled else METHODS[:2])
    if way == "finite-shots" and shots is None:
        raise ValueError("shots must be given with method='finite-shots'")
    if way != "finite-shots" and (shots is not None or seed is not None):
        name, value = ("shots", shots) if shots is not None else ("seed", seed)
        raise ValueError(f"{name} can only be given with method='finite-shots', got {name}={value!r} and method={way!r}")
    real = checks.precision(precision)
    if way != "adjoint" and real != "double":
        raise ValueError(f"precision must be 'double' with method={way!r}: shifts subtract nearly equal values")
    fused = require_fusion(fusion)
    if fused and way != "adjoint":
        raise ValueError(f"fusion must be False with method={way!r}, got True: every run of it has other angles")
    checked_progress(progress)
    return Request(
        circuit,
        observed,
        way,
        None if shots is None else checks.shots(shots, minimum=1),
        checks.seed(seed),
        real,
        limits.thread_count(threads),
        fused,
        Start(initial, circuit.n_qubits, initial_order),
        progress,
    )


def numbers(circuit: Circuit, values: Any, argument: str = "values") -> list[float]:
    """Return a number for each of the circuit's parameters, given as a mapping or in their order."""
    names = circuit.parameters
    plain = plain_values(names, values, {})
    if plain is not None:
        return list(plain)
    try:
        named = checked_values(names, values, {})
    except (TypeError, ValueError) as error:
        if argument == "values":
            raise
        raise type(error)(str(error).replace("values must", f"{argument} must", 1)) from None
    missing = [name for name in names if name not in named]
    if missing:
        raise ValueError(
            f"{argument} must have a number for every parameter of the circuit, none for "
            f"{shortened(', '.join(map(repr, missing)))}"
        )
    return [named[name] for name in names]


def is_batch(values: Any) -> bool:
    """Whether there are several sets of values, each a row or a mapping."""
    if isinstance(values, np.ndarray):
        return values.ndim > 1
    return (
        isinstance(values, (list, tuple))
        and len(values) > 0
        and all(isinstance(row, (list, tuple, Mapping)) or getattr(row, "ndim", 0) for row in values)
    )


def batch(circuit: Circuit, values: Any) -> list[list[float]]:
    """Return the sets of values of a batch."""
    if isinstance(values, np.ndarray) and values.ndim != 2:
        raise ValueError(f"values must have 1 or 2 dimensions, got {checks.show(values)}")
    return [numbers(circuit, row) for row in values]
