"""`velacamplix bench`: how fast gates, circuits and shots are here, beside what the memory of this machine allows."""

from __future__ import annotations

import json
import sys
import time
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ..basics.types import Precision
from ..basics.words import counted
from ..circuit.circuit import Circuit
from ..core import extension
from ..machine import limits, memory
from ..states.statevector import StateVector

_SIZES = (6, 10, 14, 18, 22, 26)
_GATES = ("h", "rx", "t", "cnot")
_LAYERS = 10
_SHOTS = 100_000


def sizes(largest: int | None, precision: Precision) -> list[int]:
    """Return the numbers of qubits to measure: those whose states take no more than a quarter of the memory."""
    fits = memory.largest_n(precision, limits.memory().usable // 4)
    most = min([n for n in (largest, fits) if n is not None])
    chosen = [n for n in _SIZES if n <= most]
    if largest is not None and largest <= most and largest not in chosen:
        chosen.append(largest)
    return chosen


def measure(chosen: list[int], precision: Precision, threads: int, seconds: float, tell: Callable[[str], None]) -> dict[str, Any]:
    """Measure everything in about so many seconds, and return it in the form that `--json` prints."""
    # Sweep, gates, circuit and shots of each size get the same time.
    share = seconds / max(1, len(chosen)) / (3 + len(_GATES))
    rows = []
    for n in chosen:
        tell(f"measuring {counted(n, 'qubit')} ...")
        rows.append(_measure_size(n, precision, threads, share))
    return {
        "version": extension.version(),
        "instruction_set": extension.instruction_set(),
        "precision": precision,
        "threads": threads,
        "rows": rows,
    }


def _measure_size(n: int, precision: Precision, threads: int, share: float) -> dict[str, Any]:
    with StateVector(n, precision, threads, seed=1) as state:
        for qubit in range(n):  # no zeros, which would be kinder to the arithmetic than a real state
            state.ry(1.0 + 0.1 * qubit, qubit)
        size = state.array.nbytes
        sweep = _sweep(state.array, threads, share)
        gates = {name: _gate(state, name, share) for name in _GATES}
        circuit = _circuit(n, layers=max(1, min(_LAYERS, int(share / (6 * n * sweep)))))
        replay = _best(lambda: state.run(circuit), share) / len(circuit)
        drawing = _best(lambda: state.sample(_SHOTS), share)
    return {
        "qubits": n,
        "bytes": size,
        "sweep_seconds": sweep,
        "sweep_bytes_per_second": 2 * size / sweep,
        "gates_per_second": {name: 1 / spent for name, spent in gates.items()},
        "circuit_gates": len(circuit),
        "circuit_gates_per_second": 1 / replay,
        "circuit_gates_per_sweep": sweep / replay,
        "shots_per_second": _SHOTS / drawing,
    }


def _best(work: Callable[[], Any], share: float) -> float:
    """Return the shortest time of a few runs of `work`, as many as fit into `share` seconds, at least two."""
    clock = time.perf_counter
    begun, best, runs = clock(), float("inf"), 0
    while runs < 2 or clock() - begun < share:
        started = clock()
        work()
        best = min(best, clock() - started)
        runs += 1
    return best


def _sweep(amplitudes: NDArray[Any], threads: int, share: float) -> float:
    """Return the seconds that reading and writing every amplitude once takes, by NumPy with as many threads."""
    numbers = amplitudes.view(np.float64 if amplitudes.itemsize == 16 else np.float32)
    if numbers.nbytes < 2**20 or threads == 1:
        # Handing out a small array takes longer than sweeping it.
        return _best(lambda: np.negative(numbers, out=numbers), share)
    parts = np.array_split(numbers, threads)
    with ThreadPoolExecutor(threads) as pool:
        return _best(lambda: list(pool.map(lambda part: np.negative(part, out=part), parts)), share)


def _gate(state: StateVector, name: str, share: float) -> float:
    """Return the seconds per gate, over all qubits, each gate a call of its own."""
    n, method = state.n_qubits, getattr(state, name)
    places: list[Any] = [(0.5, q) if name == "rx" else (q, (q + 1) % n) if name == "cnot" else (q,) for q in range(n)]

    def once_everywhere() -> None:
        for place in places:
            method(*place)

    return _best(once_everywhere, share) / n


def _circuit(n: int, layers: int) -> Circuit:
    circuit = Circuit(n)
    for layer in range(layers):
        for qubit in range(n):
            circuit.ry(0.1 + layer + qubit, qubit).rz(0.2 + layer + qubit, qubit)
        for qubit in range(n - 1):
            circuit.cnot(qubit, qubit + 1)
    return circuit


def show(answer: dict[str, Any]) -> None:
    """Print what `measure` returned as a table."""
    print(
        f"velacamplix {answer['version']}, {answer['instruction_set']}, {answer['precision']} precision, "
        f"{counted(answer['threads'], 'thread')}"
    )
    print()
    titles = ["qubits", "state", "sweep", *(name.upper() for name in _GATES), "circuit", "of limit", "shots"]
    rows = [[_cell(row, title) for title in titles] for row in answer["rows"]]
    units = ["", "", "GB/s", *["gates/s"] * len(_GATES), "gates/s", "", "1/s"]
    widths = [max(len(row[i]) for row in [titles, units, *rows]) for i in range(len(titles))]
    for row in [titles, units, *rows]:
        print("  ".join(cell.rjust(width) for cell, width in zip(row, widths)))
    print()
    print(
        "sweep: NumPy reads and writes every amplitude once, with the same threads: the limit of memory or cache.\n"
        "gates: one call from Python each, on all qubits in turn. circuit: layers of RY, RZ and CNOT in one\n"
        "run. of limit: how many of the circuit's gates are done in the time of one sweep."
    )


def as_json(answer: dict[str, Any]) -> None:
    """Print the same as one object."""
    print(json.dumps(answer, indent=2))


def tell(line: str) -> None:
    """Say on standard error what is being done, if someone is watching."""
    if sys.stderr.isatty():
        print(line, file=sys.stderr)


def _cell(row: dict[str, Any], title: str) -> str:
    if title == "qubits":
        return str(row["qubits"])
    if title == "state":
        return memory.human(row["bytes"])
    if title == "sweep":
        return f"{row['sweep_bytes_per_second'] / 1e9:.1f}"
    if title == "circuit":
        return _rate(row["circuit_gates_per_second"])
    if title == "of limit":
        return f"{row['circuit_gates_per_sweep']:.2f}"
    if title == "shots":
        return _rate(row["shots_per_second"])
    return _rate(row["gates_per_second"][title.lower()])


def _rate(per_second: float) -> str:
    for size, unit in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if per_second >= size:
            return f"{per_second / size:.3g} {unit}"
    return f"{per_second:.3g}"
