"""Means over shots and how far off they may be."""

from __future__ import annotations

import math
from collections.abc import Mapping, Sequence
from itertools import islice
from typing import NamedTuple

import numpy as np

from ..basics import checks
from ..basics.words import shortened
from ..machine import memory
from ..observables.observable import Observable, ObservableLike
from ..observables.terms import MOST_QUBITS, Term

__all__ = ["Estimate"]

# Characters of outcomes that are looked at a time.
_CHARACTERS = 2**22


class Estimate(NamedTuple):
    """A mean over shots and its standard error."""

    mean: float | complex | np.ndarray
    standard_error: float | complex | np.ndarray


def share_error(times: int, shots: int) -> float:
    """Return the binomial standard error of a share of the shots."""
    share = times / shots
    return math.sqrt(share * (1 - share) / shots)


def of_diagonal(
    observable: ObservableLike, counts: Mapping[str, int], n_bits: int, qubits: int | Sequence[int] | None = None
) -> Estimate:
    """Return the mean of a sum of products of Z over the shots; `qubits` are those of the characters, by default 0, 1, ...

    The standard error is the standard deviation of the shots over the root of their number less one; of one shot, nan.

    >>> of_diagonal("Z0 + 2", {"0": 3, "1": 1}, 1)
    Estimate(mean=2.5, standard_error=0.5)
    """
    checked = observable if isinstance(observable, Observable) else Observable(observable)
    listed = range(n_bits) if qubits is None else checks.qubits(qubits, MOST_QUBITS, at_least=0)
    if len(listed) != n_bits:
        raise ValueError(f"qubits must be {n_bits}, one for each character of an outcome, got {len(listed)}")
    places = {qubit: place for place, qubit in enumerate(listed)}
    for term in checked.terms:
        _require_diagonal(term)
        _require_measured(term, places)
    shots = sum(counts.values())
    if not shots:
        raise ValueError("counts must have at least one shot for a mean, got none")

    memory.require_bytes(40 * len(counts), f"the values of {len(counts)} outcomes")
    times = np.fromiter(counts.values(), dtype=np.float64, count=len(counts))
    values: np.ndarray = np.empty(len(counts), dtype=np.complex128 if checked.is_complex else np.float64)
    outcomes, done = iter(counts), 0
    while piece := list(islice(outcomes, max(1, _CHARACTERS // max(1, n_bits)))):
        characters = np.frombuffer("".join(piece).encode("ascii"), dtype=np.uint8).reshape(len(piece), n_bits)
        bits = np.ascontiguousarray(characters.T) & 1
        here = values[done : done + len(piece)]
        here[:] = checked.constant
        for term in checked.terms:
            parity = np.bitwise_xor.reduce(bits[[places[qubit] for qubit in term.qubits]], axis=0)
            here += term.coefficient * (1.0 - 2.0 * parity)
        done += len(piece)

    mean = ((times * values).sum() / shots).item()
    deviations = np.abs(values - mean)
    variance = float((times * deviations * deviations).sum()) / shots
    return Estimate(mean, math.sqrt(variance / (shots - 1)) if shots > 1 else math.nan)


def _require_diagonal(term: Term) -> None:
    if term.paulis.strip("Z"):
        raise ValueError(
            f"observable must be diagonal, of Z alone, got the term {shortened(str(term), 60)}, which shots in the Z basis do not tell: "
            "observable.group_commuting() gives groups of terms, each with the gates that turn its basis and its diagonal "
            "observable; or state.estimate(observable, shots) does all of it"
        )


def _require_measured(term: Term, places: Mapping[int, int]) -> None:
    for qubit in term.qubits:
        if qubit not in places:
            known = shortened(", ".join(map(str, places)), 60) or "none"
            raise ValueError(
                f"observable must act on qubits of the outcomes, {known}, got the term {shortened(str(term), 60)}; qubits=[...] tells the "
                "qubit of each character"
            )
