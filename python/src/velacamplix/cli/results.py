"""What `velacamplix run` finds out, before anyone decides how to show it."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any, NamedTuple

from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..observables.observable import Observable
from ..plots import bars
from ..programs.segments import Measurement, Reset, segmented
from ..results.counts import Counts
from ..results.plan import Plan, Timings
from ..running import observing
from ..running.result import Result
from ..running.run import run
from ..states.expectations import Estimate
from ..states.outcomes import most_probable

# Below this, what the listed outcomes leave over is rounding.
_ROUNDING = {"single": 1e-4, "double": 1e-9}


class NeedsShots(ValueError):
    """The outcomes of a circuit have no distribution that one state tells."""


class Expectation(NamedTuple):
    """An observable as it was written, its exact value, and the estimate from shots, if there were any."""

    text: str
    value: float | complex
    estimate: Estimate | None


class Results(NamedTuple):
    """Everything about one run of a circuit.

    Outcomes are texts with one character per label. `probabilities` are those of the most probable outcomes, and
    `others` what they leave over; both are None if there were shots. `is_mean` tells that expectation values are means
    over shots that ended in different states.
    """

    n_qubits: int
    gates: int
    precision: Precision
    threads: int
    timings: Timings
    plan: Plan
    whole: str
    labels: list[str]
    probabilities: list[tuple[str, float]] | None
    others: float | None
    counts: Counts | None
    seed: int | None
    expectations: list[Expectation]
    is_mean: bool

    @property
    def seconds(self) -> float:
        """How long the gates took, with their preparation."""
        return self.timings.compile + self.timings.simulate


def collect(
    circuit: Circuit,
    precision: Precision,
    threads: int,
    most: int,
    shots: int | None,
    seed: int | None,
    observables: Sequence[tuple[str, Observable]],
    progress: bool,
) -> Results:
    """Run `circuit`, draw shots or find the `most` probable outcomes, and evaluate the observables.

    Raises
    ------
    NeedsShots
        If there are to be no shots, but the circuit measures or resets in its middle or asks for classical bits.
    """
    readings = _readings(circuit, need_all=shots is None)
    known = [observable for _, observable in observables]
    result = run(circuit, shots, seed, threads, precision, known or None, progress=progress)

    probabilities = others = counts = None
    if shots is None:
        probabilities = _most_probable(result, most, list(readings.values()) if readings else None)
        rest = 1 - sum(probability for _, probability in probabilities)
        others = rest if len(probabilities) == most and rest > _ROUNDING[precision] else 0.0
    else:
        counts = result.counts
    bits = list(readings) if readings else None
    if counts is not None and bits is not None:
        counts = counts.marginal(bits)

    return Results(
        circuit.n_qubits,
        sum(step.is_gate for step in circuit),
        precision,
        result.threads,
        result.timings,
        result.plan,
        "all qubits" if bits is None else "the measured bits",
        _names(circuit, "quantum", range(circuit.n_qubits)) if bits is None else _names(circuit, "classical", bits),
        probabilities,
        others,
        counts,
        result.seed,
        _expectations(result, observables, shots),
        not result.has_state,
    )


def _readings(circuit: Circuit, need_all: bool) -> dict[int, int]:
    """Return the qubit that each written classical bit holds in the end, by increasing bit.

    Where shots are drawn, only the bits are asked for, and what a bit holds may differ from shot to shot.
    """
    holds: dict[int, int] = {}
    for step in segmented(list(circuit.basic_instructions()), []).steps:
        is_in_the_middle = isinstance(step, Reset) or (isinstance(step, Measurement) and bool(step.now))
        if need_all and (is_in_the_middle or step.condition is not None):
            raise NeedsShots(
                "the circuit measures, resets or asks for bits in its middle, so outcomes must be drawn: give --shots N"
            )
        if isinstance(step, Measurement):
            holds.update((clbit, qubit) for qubit, clbit in [*step.now, *step.later])
    return dict(sorted(holds.items()))


def _most_probable(result: Result, most: int, qubits: list[int] | None) -> list[tuple[str, float]]:
    """Return the most probable outcomes of the listed qubits of the circuit, by default of all of them."""
    wanted = list(range(result.n_qubits)) if qubits is None else qubits
    # A qubit that was measured twice fills two places of an outcome, but is read once; one without gates is 0.
    place_in_state = {qubit: place for place, qubit in enumerate(result.active_qubits)}
    distinct = [qubit for qubit in dict.fromkeys(wanted) if qubit in place_in_state]
    column = {qubit: i for i, qubit in enumerate(distinct)}
    best = most_probable(result.compact_state, most, [place_in_state[qubit] for qubit in distinct])
    return [
        ("".join(outcome[column[qubit]] if qubit in column else "0" for qubit in wanted), probability)
        for outcome, probability in best
    ]


def _expectations(
    result: Result, observables: Sequence[tuple[str, Observable]], shots: int | None
) -> list[Expectation]:
    if not observables:
        return []
    estimates: list[Estimate | None] = [None] * len(observables)
    if shots is not None and result.has_state:
        # Terms on qubits without gates are numbers by now, and those that the measurements leave nothing of are gone.
        observed = observing.checked([observable for _, observable in observables], result.n_qubits)
        reduced = observed.on(result.active_qubits, result._measured)
        estimates = [result.compact_state.estimate(observable, shots) for observable in reduced]
    # An array is complex as soon as one of its values is; each observable has its own kind of value here.
    values = [
        complex(value) if observable.is_complex else float(value.real)
        for value, (_, observable) in zip(result.expectation_values, observables)
    ]
    return [Expectation(text, value, known) for (text, _), value, known in zip(observables, values, estimates)]


def bars_of(results: Results) -> bars.Bars:
    """Return the bars of a picture of the results."""
    if results.counts is not None:
        return bars.Bars.of(list(results.counts.items()), None)
    assert results.probabilities is not None  # there are no shots
    best = results.probabilities
    if len(best) <= bars.MOST_BARS:
        return bars.Bars.of(best, None)
    best = sorted(best[: bars.LARGEST])
    rest = max(0.0, 1 - sum(probability for _, probability in best))
    return bars.Bars([outcome for outcome, _ in best], [p for _, p in best], "others", rest)


def as_json(name: str, results: Results, top: int) -> dict[str, Any]:
    """Return the same as what JSON can hold: the `top` most probable outcomes, or the counts of all that came."""
    answer: dict[str, Any] = {
        "file": name,
        "qubits": results.n_qubits,
        "gates": results.gates,
        "precision": results.precision,
        "threads": results.threads,
        "seconds": results.seconds,
        "passes": len(results.plan.passes),
        "outcomes_of": results.whole,
        "labels": results.labels,
    }
    if results.probabilities is not None:
        shown = dict(results.probabilities[:top])
        answer.update(probabilities=shown, others=rest_of(results, top))
    if results.counts is not None:
        answer.update(shots=results.counts.shots, seed=results.seed, counts=dict(by_frequency(results.counts)))
    answer["observables"] = [_expectation_as_json(expectation) for expectation in results.expectations]
    return answer


def rest_of(results: Results, top: int) -> float:
    """Return the probability that the `top` most probable outcomes leave over, 0 if that is rounding."""
    assert results.probabilities is not None and results.others is not None
    hidden = results.probabilities[top:]
    return float(results.others + sum(probability for _, probability in hidden))


def by_frequency(counts: Counts) -> list[tuple[str, int]]:
    """Return all outcomes and their counts, the most frequent first."""
    return counts.most_likely(len(counts))


def _expectation_as_json(expectation: Expectation) -> dict[str, Any]:
    answer: dict[str, Any] = {"observable": expectation.text, "expectation": _number(expectation.value)}
    if expectation.estimate is not None:
        answer.update(mean=_number(expectation.estimate.mean), standard_error=expectation.estimate.standard_error)
    return answer


def _number(value: Any) -> Any:
    return {"real": value.real, "imag": value.imag} if isinstance(value, complex) else value


def _names(circuit: Circuit, kind: str, numbers: Iterable[int]) -> list[str]:
    names = {
        number: f"{register.name}[{place}]"
        for register in circuit.registers
        if register.kind == kind
        for place, number in enumerate(register.bits)
    }
    return [names[number] for number in numbers]
