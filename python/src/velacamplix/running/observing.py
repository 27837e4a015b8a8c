"""Observables after all instructions of a circuit, its measurements included, on the qubits that the state has."""

from __future__ import annotations

import warnings
from collections.abc import Iterable, Sequence, Set
from typing import Any, NamedTuple

import numpy as np

from ..basics import checks
from ..basics.words import shortened
from ..observables.observable import Observable
from ..states.expectations import centred
from ..states.statevector import StateVector


class Observed(NamedTuple):
    """Checked observables, and whether they came as a list."""

    observables: list[Observable]
    are_many: bool

    def on(self, active: Sequence[int], measured: Set[int]) -> list[Observable]:
        """Return the observables for a state of the active qubits, all others being 0.

        `measured` are those whose measurement the state does not show: it leaves nothing of X and Y.
        """
        if not measured and tuple(active) == tuple(range(len(active))):
            if all(observable.n_qubits <= len(active) for observable in self.observables):
                return self.observables  # as they are, with what the core has of them
        places = {qubit: place for place, qubit in enumerate(active)}
        return [_reduced(observable, places, measured) for observable in self.observables]

    def lost(self, active: Sequence[int], measured: Iterable[Set[int]]) -> set[int]:
        """Return the qubits of the measured sets because of which, and of nothing else, a term is 0."""
        lost: set[int] = set()
        read = [qubits for qubits in measured if qubits]
        for observable in self.observables if read else ():
            for term in observable.terms:
                turned = {qubit for qubit, letter in zip(term.qubits, term.paulis) if letter != "Z"}
                if term.coefficient and turned.issubset(active):
                    lost.update(*[turned.intersection(qubits) for qubits in read])
        return lost

    def warn(self, active: Sequence[int], measured: Iterable[Set[int]], stacklevel: int) -> None:
        """Warn of terms that are 0 only because of one of the sets of measured qubits; `stacklevel` as of the caller."""
        Lost({None: self.lost(active, measured)}).warn(stacklevel + 1)

    def shaped(self, values: np.ndarray) -> Any:
        """Return the values as the observables came: a number for one, an array for a list."""
        numbers = values if any(observable.is_complex for observable in self.observables) else values.real.copy()
        return numbers if self.are_many else numbers[0].item()


class Lost(dict[str | None, set[int]]):
    """Measured qubits because of which, and of nothing else, terms are 0: by the name of a save, None for the end."""

    def add(self, name: str | None, qubits: Iterable[int]) -> None:
        """Note more qubits."""
        self.setdefault(name, set()).update(qubits)

    def warn(self, stacklevel: int) -> None:
        """Warn of these terms; `stacklevel` as of the caller."""
        for name, qubits in self.items():
            if not qubits:
                continue
            listed = shortened(", ".join(map(str, sorted(qubits))))
            at_the_end = (
                f"terms with X or Y count 0 on qubits that are measured at the end, here {listed}: expectation values "
                "are those after all instructions. For the values before a measurement leave it away, or ask the state, "
                "which shows no measurement at the end: run(...).state.expectation(...)"
            )
            before = (
                f"saved {checks.show(name)}: terms with X or Y count 0 on qubits that have been measured, here {listed}; "
                "save before the measurement for the values there"
            )
            warnings.warn(at_the_end if name is None else before, UserWarning, stacklevel=stacklevel + 1)


def checked(observables: Any, n_qubits: int, argument: str = "observables") -> Observed:
    """Return observables given as one or as a list; one is whatever `Observable` takes."""
    are_many = isinstance(observables, (list, tuple)) and not _is_list_of_terms(observables)
    listed = list(observables) if are_many else [observables]
    found = []
    for i, value in enumerate(listed):
        name = f"{argument}[{i}]" if are_many else argument
        if not isinstance(value, (Observable, str, dict, list, tuple)):
            raise TypeError(
                f"{name} must be an Observable, a text, a dictionary or a list of terms, got {checks.show(value)}"
            )
        try:
            observable = value if isinstance(value, Observable) else Observable(value)
        except (TypeError, ValueError) as error:
            raise type(error)(str(error) if name == "observable" else f"{name}: {error}") from None
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


def variances(state: StateVector, observed: Observed, active: Sequence[int], measured: Set[int]) -> Any:
    """Return the variances of the observables after the measurements, as the observables came."""
    found = []
    for observable in map(centred, observed.observables):
        # A measurement may take something from an observable and leave its square.
        without_constant, square = Observed([observable, observable @ observable], True).on(active, measured)
        found.append(state._variance(without_constant, square))
    return np.array(found) if observed.are_many else found[0]


def _is_list_of_terms(observables: Sequence[Any]) -> bool:
    return bool(observables) and all(isinstance(term, tuple) and len(term) == 3 for term in observables)


def _reduced(observable: Observable, places: dict[int, int], measured: Set[int]) -> Observable:
    constant = observable.constant
    terms: list[Any] = []
    for term in observable.terms:
        kept: list[tuple[str, int]] = []
        for letter, qubit in zip(term.paulis, term.qubits):
            # X and Y are 0 on a qubit that is 0, and on one that is 0 or 1 by its measurement.
            if letter != "Z" and (qubit not in places or qubit in measured):
                break
            if qubit in places:  # Z is 1 on a qubit that is 0
                kept.append((letter, places[qubit]))
        else:
            if kept:
                terms.append((term.coefficient, "".join(letter for letter, _ in kept), [place for _, place in kept]))
            else:
                constant = constant + term.coefficient
    return Observable([*terms, (constant, "", [])])
