"""A circuit with observables as a function of its parameters, the way frameworks that train call one."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.words import shortened
from ..instructions.expression import Parameter
from ..programs.compile import require_circuit
from . import gradient
from . import request as requests

SECOND = (
    "velacamplix has no second derivatives of expectation values: differentiate them once, in reverse mode, or take "
    "differences of circuit.gradient"
)


class Function:
    """Expectation values as a function of arrays whose last axis has the parameters, in their order.

    The circuit may grow afterwards: this function stays as it is.

    Attributes
    ----------
    n_values : int
        The parameters.
    shape : tuple of int
        Of what one set of values gives: a number for one observable, a row for a list of them.
    """

    def __init__(self, circuit: Any, observables: Any, how: Mapping[str, Any]) -> None:
        require_circuit(circuit)
        template = circuit._as_template()  # which the copy shares, with all that was prepared for it
        self._request = requests.checked(circuit.copy(), observables, "observables", sampled=False, **how)
        self.n_values = len(circuit.parameters)
        listed, are_many = self._request.observed
        self.shape = (len(listed),) if are_many else ()
        start = None if self._request.start.is_zero else self._request.start
        self._key = (template, tuple(listed), are_many, *self._request[2:-2], start, self._request.progress)

    # What is compiled with a function in it serves all that are the same.

    def __eq__(self, other: object) -> bool:
        return self._key == other._key if isinstance(other, Function) else NotImplemented

    def __hash__(self) -> int:
        return hash(self._key)

    def require(self, shape: tuple[int, ...]) -> None:
        """Raise ValueError if the last axis is not that of the parameters."""
        if not shape or shape[-1] != self.n_values:
            raise ValueError(
                f"values must have the circuit's {self.n_values} parameter(s) along the last axis, got shape "
                f"{tuple(shape)}"
            )

    def places_of(self, inputs: Any) -> tuple[tuple[str, ...], list[int]]:
        """Return the names of some parameters, and where each of all is once these stand before the others."""
        names = self._request.circuit.parameters
        listed = checks.sequence(inputs, "inputs", of="parameters")
        first = tuple(item.name if isinstance(item, Parameter) else item for item in listed)
        for place, name in enumerate(first):
            if name not in names or name in first[:place]:
                raise ValueError(
                    f"inputs must be different parameters of the circuit ({shortened(', '.join(names))}), got "
                    f"inputs[{place}]={checks.show(name)}"
                )
        order = [*first, *(name for name in names if name not in first)]
        return first, [order.index(name) for name in names]

    def values(self, at: np.ndarray) -> np.ndarray:
        """Return the values."""
        return self._gathered(gradient.values(self._request, self._rows(at)), at)

    def forward(self, at: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
        """Return the values and what `backward` wants to have kept, an array like `at`.

        One observable has its derivatives with its value; several wait until their weights are known.
        """
        if self.shape:
            return self.values(at), at
        found = gradient.differentiated(self._request, self._rows(at))
        slopes = np.array([one.gradients[0] for one in found], dtype=np.float64).reshape(at.shape)
        return self._gathered([one.values for one in found], at), slopes

    def backward(self, kept: np.ndarray, weights: np.ndarray) -> np.ndarray:
        """Return the derivatives of the sum of all values, each times its weight."""
        if not self.shape:
            return np.asarray(weights, dtype=np.float64)[..., np.newaxis] * kept
        found = []
        rows = self._rows(kept)
        for row, own in zip(rows, np.asarray(weights, dtype=np.float64).reshape(len(rows), *self.shape)):
            whole = gradient.weighted(self._request, [checks.real(weight, "a derivative by a value") for weight in own])
            found += gradient.differentiated(whole, [row])
        return np.array([one.gradients[0] for one in found], dtype=np.float64).reshape(kept.shape)

    def _rows(self, at: np.ndarray) -> list[list[float]]:
        # Not by -1, which an array without entries leaves open.
        rows = np.asarray(at, dtype=np.float64).reshape(int(np.prod(at.shape[:-1])), self.n_values)
        return [requests.numbers(self._request.circuit, row) for row in rows]

    def _gathered(self, values: list[np.ndarray], at: np.ndarray) -> np.ndarray:
        return np.array(values, dtype=np.float64).reshape((*at.shape[:-1], *self.shape))
