"""Data sets for bars, as users give them: counts, probabilities, states; one, or several at once."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..basics.words import bit_string, counted
from ..results.counts import Counts
from ..states.outcomes import most_probable
from ..states.densitymatrix import DensityMatrix
from ..states.statevector import StateVector
from .bars import LARGEST, MOST_BARS, PALETTE, Data

#: Amplitudes and probabilities below this are what rounding leaves behind.
NOISE = 1e-9


# What callers list beside the data


def require_top(top: int | None) -> None:
    """Refuse what is no number of outcomes."""
    if top is not None:
        checks.integer(top, "top", minimum=1)


def several(value: Any, name: str) -> list[Any]:
    """Return the data sets of an argument that is one or holds several."""
    is_several = value.ndim == 2 if isinstance(value, np.ndarray) else isinstance(value, (list, tuple)) and any(
        isinstance(one, (Mapping, Sequence, StateVector, DensityMatrix)) or hasattr(one, "counts") or getattr(one, "ndim", 0)
        for one in value
    )
    sets = list(value) if is_several else [value]
    if not 1 <= len(sets) <= len(PALETTE):
        raise ValueError(f"{name} must hold from 1 to {len(PALETTE)} data sets, got {len(sets)}")
    return sets


def numbered(name: str, number: int, n_sets: int) -> str:
    """Return what a message calls a data set."""
    return f"{name}[{number}]" if n_sets > 1 else name


def names(labels: Any, n_sets: int) -> tuple[str, ...]:
    """Return the names of the data sets, or none."""
    if labels is None:
        return ()
    listed = (labels,) if isinstance(labels, str) else checks.sequence(labels, "labels", of="texts")
    if len(listed) != n_sets or not all(isinstance(name, str) for name in listed):
        raise ValueError(f"labels must be {counted(n_sets, 'text')}, one for each data set, got {checks.show(labels)}")
    return listed


def chosen(outcomes: Any, top: int | None, data: Sequence[Data]) -> tuple[str, ...] | None:
    """Return outcomes that a caller has listed, when they and all data sets are of the same bits."""
    lengths = {len(outcome) for one in data for outcome in one.values}
    if len(lengths) > 1:
        raise ValueError(f"outcomes must all have the same number of bits, got some of {' and '.join(map(str, sorted(lengths)))}")
    if outcomes is None:
        return None
    if top is not None:
        raise ValueError(f"top cannot be given with outcomes, which say themselves what is drawn, got top={top}")
    listed = checks.sequence(outcomes, "outcomes", of="bit strings")
    length = max(lengths, default=len(listed[0]) if listed and isinstance(listed[0], str) else 0)
    for place, outcome in enumerate(listed):
        if not isinstance(outcome, str) or len(outcome) != length or outcome.strip("01"):
            raise ValueError(f"outcomes[{place}] must be a text of {length} characters 0 and 1, got {checks.show(outcome)}")
    checks.distinct(listed, "outcomes")
    return tuple(map(checks.plain, listed))


# Data sets


def of_counts(counts: Counts, has_errors: bool) -> Data:
    """Return counts, with their standard errors if wanted."""
    shots = counts.shots

    def error(outcome: str) -> float:
        times = counts[outcome]
        return math.sqrt(times * (1 - times / shots))

    values = {outcome: times for outcome, times in counts.items() if times}
    return Data(values, shots, error=error if has_errors and values else None)


def of_probabilities(source: Any, name: str) -> Data:
    """Return probabilities by outcome."""
    values = dict(_probabilities(source, name))
    return Data(values, sum(values.values()))


def of_state(state: StateVector | DensityMatrix, qubits: Any, order: Order, top: int | None) -> Data:
    """Return the probabilities of a state; the largest, where it has more than are drawn."""
    listed = list(checks.qubits(range(state.n_qubits) if qubits is None else qubits, state.n_qubits, at_least=0))
    if checks.order(order) == "little":
        listed.reverse()
    best, has_more = most_likely(state, top, listed)
    if not has_more:
        return Data(dict(best), sum(probability for _, probability in best))
    total = float(state.probability(0, []))
    return Data(dict(best), total, is_all=False, ask=lambda outcome: state.probability(outcome, listed))


def most_likely(
    state: StateVector | DensityMatrix, top: int | None, listed: Sequence[int]
) -> tuple[list[tuple[str, float]], bool]:
    """Return the outcomes to draw, the most probable first, and whether there are more."""
    if top is not None:
        best = most_probable(state, top + 1, listed)
        return best[:top], len(best) > top
    best = most_probable(state, MOST_BARS + 1, listed)
    if len(best) <= MOST_BARS:
        return best, False
    return best[:LARGEST], True


def with_errors(data: Sequence[Data], errors: Any, sets: Sequence[Any]) -> list[Data]:
    """Return data sets of probabilities with what the caller says about their errors."""
    if isinstance(errors, (bool, np.bool_)):
        if errors and not any(isinstance(source, Counts) for source in sets):
            raise TypeError("errors can only be True for Counts; of anything else they must be given")
        shares = [_of_shares(source) if errors and isinstance(source, Counts) else None for source in sets]
        return [one._replace(error=error) for one, error in zip(data, shares)]
    listed = [errors] if len(sets) == 1 else checks.sequence(errors, "errors", of="errors for each data set")
    if len(listed) != len(sets):
        raise ValueError(f"errors must hold one item for each of {len(sets)} data sets, got {len(listed)}")
    given = [dict(_probabilities(one, numbered("errors", number, len(sets)))) for number, one in enumerate(listed)]
    for number, (one, errors_of) in enumerate(zip(data, given)):
        widths = {len(outcome) for outcome in one.values}
        if wrong := [outcome for outcome in errors_of if widths and len(outcome) not in widths]:
            name = numbered("errors", number, len(sets))
            raise ValueError(
                f"{name} must be for outcomes of {max(widths)} bits, as the probabilities are, got one for {checks.show(wrong[0])}"
            )
    return [one._replace(error=_looked_up(errors_of)) for one, errors_of in zip(data, given)]


def _of_shares(counts: Counts) -> Callable[[str], float] | None:
    error, shots = of_counts(counts, True).error, counts.shots
    return (lambda outcome: error(outcome) / shots) if error else None


def _looked_up(errors: Mapping[str, float]) -> Callable[[str], float]:
    return lambda outcome: errors.get(outcome, 0.0)


def _probabilities(source: Any, name: str) -> list[tuple[str, float]]:
    """Return what is not zero; errors have the same forms."""
    if isinstance(source, Counts):
        source = source.probabilities()
    if isinstance(source, Mapping):
        entries = []
        for outcome, probability in source.items():
            if not isinstance(outcome, str) or outcome.strip("01"):
                raise ValueError(f"{name} must have bit strings for keys, got {checks.show(outcome)}")
            number = checks.real(probability, f"{name}[{checks.show(outcome)}]")
            if number < 0:
                raise ValueError(f"{name} must hold no negative {_what(name)}, got {number} for {checks.show(outcome)}")
            entries.append((outcome, number))
        return [(outcome, probability) for outcome, probability in entries if probability > NOISE]
    if isinstance(source, str) or not isinstance(source, Iterable):
        raise TypeError(
            f"{name} must be {'a StateVector, ' if _what(name) == 'probability' else ''}a mapping from bit strings, or an "
            f"array of numbers, got {checks.show(source)}"
        )
    values = array(source, name, np.float64)
    if (values < 0).any():
        raise ValueError(f"{name} must hold no negative {_what(name)}, got {values.min()}")
    width = len(values).bit_length() - 1
    return [(bit_string(i, width), float(values[i])) for i in np.flatnonzero(values > NOISE).tolist()]


def _what(name: str) -> str:
    return "error" if name.startswith("errors") else "probability"


def array(values: Any, name: str, kind: Any) -> np.ndarray:
    """Return numbers, one for each outcome of some bits."""
    try:
        array: np.ndarray = checks.array(values, kind)
    except (TypeError, ValueError):
        raise TypeError(f"{name} must hold numbers, got {checks.show(values)}") from None
    if array.ndim != 1 or len(array) == 0 or len(array) & (len(array) - 1):
        raise ValueError(f"{name} must have a power of two for its length, got an array of shape {array.shape}")
    if not np.isfinite(array).all():
        raise ValueError(f"{name} must hold finite numbers")
    return array
