"""What `velacamplix run` finds out, before anyone decides how to show it."""

from __future__ import annotations

import time
from typing import Any, Dict, Iterable, List, NamedTuple, Optional, Sequence, Tuple, Union

from ._expectations import Estimate
from ._outcomes import most_probable
from .circuit import Circuit
from .observable import Observable
from .statevector import StateVector

# Below this, what the listed outcomes leave over is rounding.
_ROUNDING = {"single": 1e-4, "double": 1e-9}


class Shots(NamedTuple):
    """Counts of outcomes, the most frequent first."""

    number: int
    seed: int
    counts: Dict[str, int]


class Expectation(NamedTuple):
    """An observable as it was written, its exact value, and the estimate from shots, if there were any."""

    text: str
    value: Union[float, complex]
    estimate: Optional[Estimate]


class Results(NamedTuple):
    """Everything about one run of a circuit.

    Outcomes are texts with one character per label. `probabilities` are those of the most probable outcomes, and
    `others` what they leave over; both are None if there were shots.
    """

    n_qubits: int
    gates: int
    precision: str
    threads: int
    seconds: float
    whole: str
    labels: List[str]
    probabilities: Optional[List[Tuple[str, float]]]
    others: Optional[float]
    shots: Optional[Shots]
    expectations: List[Expectation]


def collect(
    circuit: Circuit,
    precision: str,
    threads: int,
    top: int,
    shots: Optional[int],
    seed: Optional[int],
    observables: Sequence[Tuple[str, Observable]],
) -> Results:
    """Run `circuit`, draw shots if there are to be any, and evaluate the observables."""
    start = time.perf_counter()
    state = StateVector(circuit.n_qubits, precision, threads, seed).run(circuit)
    seconds = time.perf_counter() - start

    measured = _measured(circuit)
    if measured:
        whole, qubits, labels = "the measured bits", list(measured.values()), _names(circuit, "classical", measured)
    else:
        qubits = list(range(circuit.n_qubits))
        whole, labels = "all qubits", _names(circuit, "quantum", qubits)
    # A qubit that was measured twice fills two places of an outcome, but is read once.
    distinct = list(dict.fromkeys(qubits))
    places = [distinct.index(qubit) for qubit in qubits]

    def spread(outcome: str) -> str:
        return "".join(outcome[place] for place in places)

    probabilities = others = drawn = None
    if shots is None:
        best = most_probable(state, top, distinct)
        probabilities = [(spread(outcome), probability) for outcome, probability in best]
        rest = 1 - sum(probability for _, probability in best)
        others = rest if len(best) == top and rest > _ROUNDING[precision] else 0.0
    else:
        counts = state.counts(shots, distinct)
        ranked = sorted(counts.items(), key=lambda entry: (-entry[1], entry[0]))
        drawn = Shots(shots, state.seed, {spread(outcome): count for outcome, count in ranked})

    expectations = [
        Expectation(text, state.expectation(known), None if shots is None else state.estimate(known, shots))
        for text, known in observables
    ]
    gates = sum(step.is_gate for step in circuit)
    return Results(
        circuit.n_qubits,
        gates,
        precision,
        state.threads,
        seconds,
        whole,
        labels,
        probabilities,
        others,
        drawn,
        expectations,
    )


def as_json(name: str, results: Results) -> Dict[str, Any]:
    """Return the same as what JSON can hold. Counts are complete."""
    told: Dict[str, Any] = {
        "file": name,
        "qubits": results.n_qubits,
        "gates": results.gates,
        "precision": results.precision,
        "threads": results.threads,
        "seconds": results.seconds,
        "outcomes_of": results.whole,
        "labels": results.labels,
    }
    if results.probabilities is not None:
        told.update(probabilities=dict(results.probabilities), others=results.others)
    if results.shots is not None:
        told.update(shots=results.shots.number, seed=results.shots.seed, counts=results.shots.counts)
    told["observables"] = [_expectation_as_json(expectation) for expectation in results.expectations]
    return told


def _expectation_as_json(expectation: Expectation) -> Dict[str, Any]:
    told: Dict[str, Any] = {"observable": expectation.text, "expectation": _number(expectation.value)}
    if expectation.estimate is not None:
        told.update(mean=_number(expectation.estimate.mean), standard_error=expectation.estimate.standard_error)
    return told


def _number(value: Any) -> Any:
    return {"real": value.real, "imag": value.imag} if isinstance(value, complex) else value


def _measured(circuit: Circuit) -> Dict[int, int]:
    """Return the qubit that each written classical bit holds in the end, by increasing bit."""
    holds: Dict[int, int] = {}
    for step in circuit:
        if step.name == "measure":
            holds.update(zip(step.clbits, step.qubits))
    return dict(sorted(holds.items()))


def _names(circuit: Circuit, kind: str, numbers: Iterable[int]) -> List[str]:
    names = {
        number: f"{register.name}[{place}]"
        for register in circuit.registers
        if register.kind == kind
        for place, number in enumerate(register.bits)
    }
    return [names[number] for number in numbers]
