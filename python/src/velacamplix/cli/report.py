"""What the command line prints on standard output."""

from __future__ import annotations

import json
import platform
import shutil
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np

from ..basics.words import counted as _counted
from ..circuit.circuit import Circuit
from ..core import extension
from ..distributed.result import DistributedResult
from ..machine import limits, memory
from ..observables.observable import Observable
from ..results.estimate import Estimate
from ..running import observing
from ..running.result import Result

# Below this, what the listed outcomes leave over is rounding.
_ROUNDING = {"single": 1e-4, "double": 1e-9}


class Expectation(NamedTuple):
    """An observable as it was written, its exact value, and the estimate from shots, if there were any."""

    text: str
    value: float | complex
    estimate: Estimate | None


def expectations_of(result: Result, observables: Sequence[tuple[str, Observable]]) -> list[Expectation]:
    """Return the observables with what the run says of them."""
    if not observables:
        return []
    estimates: list[Estimate | None] = [None] * len(observables)
    # An estimate turns the state, and one in a file is for reading.
    if result.n_shots is not None and result.has_state and result.storage is None:
        # Terms on qubits without gates are numbers by now, and those that the measurements leave nothing of are gone.
        observed = observing.checked([observable for _, observable in observables], result.n_qubits)
        reduced = observed.on(result.active_qubits, result._measured)
        estimates = [result.compact_state.estimate(observable, result.n_shots) for observable in reduced]
    # An array is complex as soon as one of its values is; each observable has its own kind of value here.
    values = [
        complex(value) if observable.is_complex else float(value.real)
        for value, (_, observable) in zip(result.expectation_values, observables)
    ]
    return [Expectation(text, value, known) for (text, _), value, known in zip(observables, values, estimates)]


def places_of(circuit: Circuit, result: Result) -> tuple[str, list[str]]:
    """Return what the outcomes are of, and the name of every character."""
    kind, numbers = ("classical", result.measured_bits) if result.measured_bits else ("quantum", range(circuit.n_qubits))
    names = [f"{r.name}[{place}]" for r in circuit.registers if r.kind == kind for place in range(r.size)]
    return "the measured bits" if kind == "classical" else "all qubits", [names[number] for number in numbers]


def rest_of(result: Result, best: Sequence[tuple[str, float]]) -> float:
    """Return the share that the best outcomes leave over, 0 if that is rounding."""
    rest = 1 - sum(share for _, share in best)
    return rest if rest > (0.0 if result.n_shots is not None else _ROUNDING[result.precision]) else 0.0


def run(name: str, circuit: Circuit, result: Result, expectations: Sequence[Expectation], top: int) -> None:
    """Print what was run, the `top` most probable or most frequent outcomes, and the observables."""
    seconds = result.timings.compile + result.timings.simulate
    gates = sum(circuit.gate_counts().values())
    print(f"{name}: {_counted(circuit.n_qubits, 'qubit')}, {_counted(gates, 'gate')}")
    print(f"{result.precision} precision, {_counted(result.threads, 'thread')}, {_duration(seconds)}")
    print()
    whole, labels = places_of(circuit, result)
    best = result.outcomes(top) if top else []
    left_over = rest_of(result, best)
    number = result.n_shots
    if number is not None:
        title = f"{_counted(number, 'shot')}, seed {result.seed}: outcomes of {whole}, leftmost first"
        rows = [(outcome, share, str(round(share * number))) for outcome, share in best]
        others = number - sum(int(row[2]) for row in rows)
        rest = str(others) if others else None
    else:
        title = f"most probable outcomes of {whole}, leftmost first"
        rows = [(outcome, probability, _number(probability)) for outcome, probability in best]
        rest = _number(left_over) if left_over else None
    print(f"{title}: {_shortened(labels)}")
    _bars(rows, rest)
    if expectations:
        print()
        _expectations(expectations, not (result.has_state or isinstance(result, DistributedResult)))


def run_as_json(
    name: str, circuit: Circuit, result: Result, expectations: Sequence[Expectation], top: int
) -> None:
    """Print the same as one object: the `top` most probable outcomes, or the counts of all that came."""
    whole, labels = places_of(circuit, result)
    answer: dict[str, Any] = {
        "file": name,
        "qubits": circuit.n_qubits,
        "gates": sum(circuit.gate_counts().values()),
        "precision": result.precision,
        "threads": result.threads,
        "seconds": result.timings.compile + result.timings.simulate,
        "passes": len(result.plan.passes),
        "outcomes_of": whole,
        "labels": labels,
    }
    if result.storage is not None:
        answer["storage"] = result.storage._asdict()
    if result.n_shots is None:
        best = result.outcomes(top) if top else []
        answer.update(probabilities=dict(best), others=rest_of(result, best))
    else:
        counts = result.counts.marginal(result.measured_bits) if result.measured_bits else result.counts
        answer.update(shots=result.n_shots, seed=result.seed, counts=dict(counts.most_likely(len(counts))))
    answer["observables"] = [_expectation_as_json(expectation) for expectation in expectations]
    print(json.dumps(answer, indent=2))


def _expectation_as_json(expectation: Expectation) -> dict[str, Any]:
    answer: dict[str, Any] = {"observable": expectation.text, "expectation": _plain(expectation.value)}
    if expectation.estimate is not None:
        answer.update(mean=_plain(expectation.estimate.mean), standard_error=expectation.estimate.standard_error)
    return answer


def _plain(value: Any) -> Any:
    return {"real": value.real, "imag": value.imag} if isinstance(value, complex) else value


def info(more: Sequence[tuple[str, str]]) -> None:
    """Print versions, the library in use, threads, memory, the largest states, and more rows of a title and a text."""
    try:
        threads = "{} ({})".format(*limits.default_threads())
    except ValueError as error:
        threads = str(error)
    found = limits.memory()
    limit = "no control-group limit" if found.limit is None else f"{memory.human(found.limit)} left by control groups"
    largest = [
        f"{n if n is not None else 'none'} in {precision} precision"
        for precision in ("double", "single")
        for n in [memory.largest_n(precision, found.usable)]
    ]
    rows = [
        ("version", extension.version()),
        ("instruction set", extension.instruction_set()),
        ("library", _library_path()),
        ("Python", f"{platform.python_version()}, NumPy {np.__version__}"),
        ("threads", threads),
        (
            "memory",
            f"{memory.human(found.free)} free, {memory.human(found.available)} available of "
            f"{memory.human(limits.total_memory())}, {limit}",
        ),
        ("largest n", ", ".join(largest)),
    ]
    for title, text in [*rows, *more]:
        print(f"{title:<16} {text}")


def _shortened(labels: list[str]) -> str:
    if len(labels) <= 8:
        return " ".join(labels)
    return f"{labels[0]} {labels[1]} … {labels[-1]}" if _can_print("…") else f"{labels[0]} {labels[1]} ... {labels[-1]}"


def _bars(rows: list[tuple[str, float, str]], rest: str | None) -> None:
    """Print outcomes with their share and how it is written, and what all others have."""
    if not rows:
        return
    largest = rows[0][1]
    column = max(len("others"), len(rows[0][0]))
    digits = max(len(written) for written in [row[2] for row in rows] + [rest or ""])
    width = max(10, min(60, shutil.get_terminal_size().columns - column - digits - 5))
    for outcome, share, written in rows:
        print(f"{outcome:<{column}}  {written:>{digits}}  {_bar(share / largest * width)}")
    if rest is not None:
        print(f"{'others':<{column}}  {rest:>{digits}}")


def _expectations(expectations: Sequence[Expectation], is_mean: bool) -> None:
    from_shots = expectations[0].estimate is not None
    details = ", exact and from the same number of shots per term" if from_shots else ""
    print("expectation values" + (", means over the shots" if is_mean else details))
    column = max(len(expectation.text) for expectation in expectations)
    exact = [_value(expectation.value) for expectation in expectations]
    digits = max(map(len, exact))
    plus_minus = "±" if _can_print("±") else "+-"
    for expectation, written in zip(expectations, exact):
        row = f"{expectation.text:<{column}}  {written:>{digits}}"
        if expectation.estimate is not None:
            mean, error = expectation.estimate
            row += f"  {_value(mean)} {plus_minus} {_value(error)}"
        print(row)


def _value(value: Any) -> str:
    if isinstance(value, complex):
        return f"{value.real:.6g}{value.imag:+.6g}j"
    # Rounding leaves a tiny number, of either sign, where the exact value is 0.
    return f"{value:.6f}" if 1e-4 <= abs(value) < 1e6 or abs(value) < 5e-13 else f"{value:.6g}"


def _bar(length: float) -> str:
    if not _can_print("█▏"):
        return "#" * max(1, round(length))
    eighths = max(1, round(length * 8))
    return "█" * (eighths // 8) + ["", "▏", "▎", "▍", "▌", "▋", "▊", "▉"][eighths % 8]


def _can_print(text: str) -> bool:
    try:
        text.encode(sys.stdout.encoding or "ascii")
    except UnicodeEncodeError:
        return False
    return True


def _number(probability: float) -> str:
    return f"{probability:.6f}" if probability >= 1e-4 else f"{probability:.2e}"


def _duration(seconds: float) -> str:
    return f"{seconds:.2f} s" if seconds >= 1 else f"{seconds * 1e3:.1f} ms"


def _library_path() -> str:
    # Which of the variants the loader took.
    for line in Path("/proc/self/maps").read_text().splitlines():
        if "libvelacamplix.so" in line:
            return line.split(maxsplit=5)[5]
    return "linked into the extension"
