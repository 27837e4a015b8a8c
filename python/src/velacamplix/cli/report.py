"""What the command line prints on standard output."""

from __future__ import annotations

import json
import platform
import shutil
import sys
from pathlib import Path
from typing import Any

import numpy as np

from ..basics.words import counted as _counted
from ..core import extension
from ..machine import limits, memory
from .results import Expectation, Results, as_json, by_frequency, rest_of


def run(name: str, results: Results, top: int) -> None:
    """Print what was run, the `top` most probable or most frequent outcomes, and the observables."""
    print(f"{name}: {_counted(results.n_qubits, 'qubit')}, {_counted(results.gates, 'gate')}")
    print(f"{results.precision} precision, {_counted(results.threads, 'thread')}, {_duration(results.seconds)}")
    print()
    if results.counts is not None:
        number = results.counts.shots
        title = f"{_counted(number, 'shot')}, seed {results.seed}: outcomes of {results.whole}, leftmost first"
        frequent = by_frequency(results.counts)[:top]
        others = number - sum(count for _, count in frequent)
        rows = [(outcome, count / number, str(count)) for outcome, count in frequent]
        rest = str(others) if others else None
    else:
        assert results.probabilities is not None  # there are no shots
        title = f"most probable outcomes of {results.whole}, leftmost first"
        rows = [(outcome, probability, _number(probability)) for outcome, probability in results.probabilities[:top]]
        left_over = rest_of(results, top)
        rest = _number(left_over) if left_over else None
    print(f"{title}: {_shortened(results.labels)}")
    _bars(rows, rest)
    if results.expectations:
        print()
        _expectations(results.expectations, results.is_mean)


def run_as_json(name: str, results: Results, top: int) -> None:
    """Print the same as one object."""
    print(json.dumps(as_json(name, results, top), indent=2))


def info() -> None:
    """Print versions, the library in use, threads, memory and the largest states."""
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
    for title, text in rows:
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


def _expectations(expectations: list[Expectation], is_mean: bool) -> None:
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
