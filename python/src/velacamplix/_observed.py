"""Observables of a circuit's final state, on the qubits that the state has."""

from __future__ import annotations

from typing import Any, Dict, List, NamedTuple, Sequence

import numpy as np

from . import _check
from .observable import Observable
from .statevector import StateVector


class Observed(NamedTuple):
    """Checked observables, and whether they came as a list."""

    observables: List[Observable]
    are_many: bool

    def on(self, active: Sequence[int]) -> List[Observable]:
        """Return the observables for a state of the active qubits, all others being 0."""
        places = {qubit: place for place, qubit in enumerate(active)}
        return [_reduced(observable, places) for observable in self.observables]

    def shaped(self, values: np.ndarray) -> Any:
        """Return the values as the observables came: a number for one, an array for a list."""
        numbers = values if any(observable.is_complex for observable in self.observables) else values.real.copy()
        return numbers if self.are_many else numbers[0].item()


def checked(observables: Any, n_qubits: int) -> Observed:
    """Return observables given as one or as a list; one is whatever `Observable` takes."""
    are_many = isinstance(observables, (list, tuple)) and not _is_list_of_terms(observables)
    listed = list(observables) if are_many else [observables]
    found = []
    for i, value in enumerate(listed):
        name = f"observables[{i}]" if are_many else "observables"
        if not isinstance(value, (Observable, str, dict, list, tuple)):
            raise TypeError(
                f"{name} must be an Observable, a text, a dictionary or a list of terms, got {_check.show(value)}"
            )
        try:
            observable = value if isinstance(value, Observable) else Observable(value)
        except (TypeError, ValueError) as error:
            raise type(error)(f"{name}: {error}") from None
        if observable.n_qubits > n_qubits:
            raise ValueError(
                f"{name} must act on qubits below {n_qubits}, those of the circuit, got one on qubit "
                f"{observable.n_qubits - 1}"
            )
        found.append(observable)
    return Observed(found, are_many)


def values(state: StateVector, observables: Sequence[Observable]) -> np.ndarray:
    """Return the expectation values, ``complex128``."""
    return np.array([state.expectation(observable) for observable in observables], dtype=np.complex128)


def _is_list_of_terms(observables: Sequence[Any]) -> bool:
    return bool(observables) and all(isinstance(term, tuple) and len(term) == 3 for term in observables)


def _reduced(observable: Observable, places: Dict[int, int]) -> Observable:
    constant = observable.constant
    terms: List[Any] = []
    for term in observable.terms:
        kept = [(letter, places[qubit]) for letter, qubit in zip(term.paulis, term.qubits) if qubit in places]
        idle = [letter for letter, qubit in zip(term.paulis, term.qubits) if qubit not in places]
        # On a qubit that is 0, Z is 1, and X and Y are 0.
        if set(idle) - {"Z"}:
            continue
        if kept:
            terms.append((term.coefficient, "".join(letter for letter, _ in kept), [place for _, place in kept]))
        else:
            constant = constant + term.coefficient
    return Observable([*terms, (constant, "", [])])
