"""What a backend may be told, under Qiskit's and Aer's names, checked once."""

from __future__ import annotations

import secrets
from collections.abc import Mapping
from typing import Any, NamedTuple

from ..basics import checks
from ..basics.types import Precision
from ..machine import limits
from ..noise.model import NoiseModel
from ..running.method import MethodName
from .noise import Errors, is_model

#: Names of options, and what they are unless somebody says otherwise.
DEFAULTS: dict[str, Any] = {
    "shots": 1024, "seed_simulator": None, "memory": False, "method": "automatic", "precision": "double", "device": "CPU",
    "max_parallel_threads": None, "noise_model": None, "threads": None, "fusion": False,
}  # fmt: skip

_METHODS = ("automatic", "statevector", "density_matrix")
_CURES = {
    "method": "amplitudes are all there is here; take a simulator of that method for it",
    "device": "this simulator runs on CPUs",
}


class How(NamedTuple):
    """Checked options.

    Attributes
    ----------
    seed : int or None
        Of 32 bits.
    noise : NoiseModel, Errors or None
    """

    shots: int
    seed: int | None
    memory: bool
    method: str
    precision: Precision
    threads: int | None
    fusion: bool
    noise: NoiseModel | Errors | None

    @property
    def run_method(self) -> MethodName:
        """What `velacamplix.run` calls the method."""
        return run_method(self.method, self.noise is not None)

    def given_seed(self) -> int:
        """Return the seed, one of chance if there is none."""
        return secrets.randbits(32) if self.seed is None else self.seed


def checked(options: Mapping[str, Any]) -> How:
    """Return options of all names as one.

    Raises
    ------
    AttributeError
        If there is no option of a name, as Qiskit's backends have it.
    TypeError, ValueError
        If a value is of another kind, or not offered.

    >>> checked(DEFAULTS).shots, checked({**DEFAULTS, "seed_simulator": 2**40}).seed == 2**40
    (1024, False)
    """
    require_known(options)
    _chosen(options, "device", ("CPU",))
    threads = options["threads"]
    most = options["max_parallel_threads"]
    if most is not None and threads is not None:
        raise ValueError(
            f"max_parallel_threads and threads are one option under two names: give one of them, got {checks.show(most)} and "
            f"{checks.show(threads)}"
        )
    if most is not None and checks.integer(most, "max_parallel_threads", minimum=0):  # 0 stands for all, as for Aer
        threads = most
    memory = options["memory"]
    return How(
        checks.shots(options["shots"], minimum=1),
        checks.seed(options["seed_simulator"], "seed_simulator", any_size=True),
        False if memory is None else checks.flag(memory, "memory"),
        method(options["method"]),
        _chosen(options, "precision", ("double", "single")),  # type: ignore[arg-type]
        None if threads is None else limits.thread_count(threads),
        checks.flag(options["fusion"], "fusion"),
        noise(options["noise_model"]),
    )


def require_known(options: Mapping[str, Any]) -> None:
    """Raise AttributeError if there is no option of a name."""
    for name in options:
        if name not in DEFAULTS:
            known = ", ".join(DEFAULTS)
            raise AttributeError(f"Options field {name} is not valid for this backend, which has {known}")


def method(value: Any) -> str:
    """Return the name of a method that is offered."""
    return _chosen({"method": value}, "method", _METHODS)


def run_method(name: str, is_noisy: bool) -> MethodName:
    """Return what `velacamplix.run` calls a method."""
    if name == "density_matrix":
        return "exact"
    return "trajectories" if name == "statevector" and is_noisy else "auto"


def _chosen(options: Mapping[str, Any], name: str, choices: tuple[str, ...]) -> str:
    try:
        return checks.choice(options[name], name, choices)
    except ValueError as error:
        raise ValueError(f"{error}; {_CURES[name]}" if name in _CURES else str(error)) from None


def noise(model: Any, name: str = "noise_model") -> NoiseModel | Errors | None:
    """Return a noise model of this package's, or what one of Aer's says."""
    if model is None or isinstance(model, NoiseModel):
        return model
    if not is_model(model):
        raise TypeError(f"{name} must be a velacamplix.NoiseModel, one of Aer's or None, got {checks.show(model)}")
    return Errors(model)
