"""What the command line prints on standard output."""

from __future__ import annotations

import platform
import shutil
import sys
import time
from pathlib import Path
from typing import Dict, Iterable, List, Tuple

import numpy as np

from . import _core, _machine, _memory
from ._outcomes import most_probable
from .circuit import Circuit
from .statevector import StateVector

# Below this, what the listed outcomes leave over is rounding.
_ROUNDING = {"single": 1e-4, "double": 1e-9}


def run(circuit: Circuit, name: str, precision: str, threads: int, top: int) -> None:
    """Run `circuit` and print what was run and its `top` most probable outcomes."""
    start = time.perf_counter()
    state = StateVector(circuit.n_qubits, precision, threads).run(circuit)
    seconds = time.perf_counter() - start

    gates = sum(step.is_gate for step in circuit)
    print(f"{name}: {_counted(circuit.n_qubits, 'qubit')}, {_counted(gates, 'gate')}")
    print(f"{precision} precision, {_counted(state.threads, 'thread')}, {_duration(seconds)}")
    print()

    measured = _measured(circuit)
    if measured:
        whole, qubits, labels = "the measured bits", list(measured.values()), _names(circuit, "classical", measured)
    else:
        qubits = list(range(circuit.n_qubits))
        whole, labels = "all qubits", _names(circuit, "quantum", qubits)
    # A qubit that was measured twice fills two places of an outcome, but has one place in the distribution.
    distinct = list(dict.fromkeys(qubits))
    best = most_probable(state, top, distinct)
    places = [distinct.index(qubit) for qubit in qubits]
    outcomes = [("".join(outcome[place] for place in places), probability) for outcome, probability in best]

    print(f"most probable outcomes of {whole}, leftmost first: {_shortened(labels)}")
    _bars(outcomes)
    rest = 1 - sum(probability for _, probability in best)
    if len(best) == top and rest > _ROUNDING[precision]:
        print(f"{'others':<{_outcome_column(outcomes)}}  {_number(rest)}")


def info() -> None:
    """Print versions, the library in use, threads, memory and the largest states."""
    try:
        threads = "{} ({})".format(*_machine.default_threads())
    except ValueError as error:
        threads = str(error)
    memory = _machine.memory()
    limit = "no control-group limit" if memory.limit is None else f"{_memory.human(memory.limit)} left by control groups"
    largest = [
        f"{n if n is not None else 'none'} in {precision} precision"
        for precision in ("double", "single")
        for n in [_memory.largest_n(precision, memory.usable)]
    ]
    rows = [
        ("version", _core.version()),
        ("instruction set", _core.instruction_set()),
        ("library", _library_path()),
        ("Python", f"{platform.python_version()}, NumPy {np.__version__}"),
        ("threads", threads),
        (
            "memory",
            f"{_memory.human(memory.free)} free, {_memory.human(memory.available)} available of "
            f"{_memory.human(_machine.total_memory())}, {limit}",
        ),
        ("largest n", ", ".join(largest)),
    ]
    for title, text in rows:
        print(f"{title:<16} {text}")


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


def _shortened(labels: List[str]) -> str:
    if len(labels) <= 8:
        return " ".join(labels)
    return f"{labels[0]} {labels[1]} … {labels[-1]}" if _can_print("…") else f"{labels[0]} {labels[1]} ... {labels[-1]}"


def _bars(outcomes: List[Tuple[str, float]]) -> None:
    if not outcomes:
        return
    largest = outcomes[0][1]
    column = _outcome_column(outcomes)
    used = column + len(_number(largest)) + 4
    width = max(10, min(60, shutil.get_terminal_size().columns - used - 1))
    for outcome, probability in outcomes:
        print(f"{outcome:<{column}}  {_number(probability)}  {_bar(probability / largest * width)}")


def _outcome_column(outcomes: List[Tuple[str, float]]) -> int:
    return max(len("others"), len(outcomes[0][0]))


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


def _counted(count: int, noun: str) -> str:
    return f"{count} {noun}" + ("" if count == 1 else "s")


def _library_path() -> str:
    # Which of the variants the loader took.
    for line in Path("/proc/self/maps").read_text().splitlines():
        if "libvelacamplix.so" in line:
            return line.split(maxsplit=5)[5]
    return "linked into the extension"
