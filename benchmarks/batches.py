#!/usr/bin/env python3
"""100 runs of a small circuit from Python: one after another, as a list, and as sets of values; microseconds per run.

Usage: benchmarks/batches.py [THREADS...]    (with the Python in which velacamplix is installed; 1 and 2 threads if none)

The circuit has three layers of RY and RZ on every qubit, all of their angles parameters, and chains of CNOT; one
expectation value is asked for. All ways are timed in turns, the fastest of nine turns counts. Those of one row are
checked to give the same bits.
"""

from __future__ import annotations

import sys
from time import perf_counter
from typing import Any, Callable

import numpy as np

from velacamplix import Circuit, ParameterVector, run

RUNS, LAYERS, TURNS = 100, 3, 9


def layers(n: int, angles: ParameterVector) -> Circuit:
    circuit, place = Circuit(n), iter(angles)
    for _ in range(LAYERS):
        for qubit in range(n):
            circuit.ry(next(place), qubit).rz(next(place), qubit)
        circuit.cx(range(n - 1), range(1, n))
    return circuit


def ways(n: int, threads: int) -> dict[str, Callable[[], Any]]:
    angles = ParameterVector("angle", 2 * LAYERS * n)
    circuit, rows = layers(n, angles), np.random.default_rng(1).uniform(0, np.pi, (RUNS, len(angles)))
    asked: dict[str, Any] = {"observables": "Z0 Z1", "threads": threads}
    bound = [circuit.bind({angles: row}) for row in rows]
    return {
        "run(bound) in a loop": lambda: [run(one, **asked).expectation_values for one in bound],
        "run([bound, ...])": lambda: [result.expectation_values for result in run(bound, **asked)],
        "run(circuit, values=...)": lambda: run(circuit, values={angles: rows}, **asked).expectation_values.tolist(),
    }


def main() -> None:
    names = list(ways(2, 1))
    print("| qubits | threads | " + " | ".join(names) + " |")
    print("|---|---|" + "---|" * len(names))
    for n in (4, 8, 12, 16):
        for threads in [int(word) for word in sys.argv[1:]] or [1, 2]:
            calls, best = ways(n, threads), dict.fromkeys(names, np.inf)
            first, *others = [call() for call in calls.values()]
            if any(other != first for other in others):
                sys.exit(f"the ways differ at {n} qubits")
            for _ in range(TURNS):
                for name, call in calls.items():
                    start = perf_counter()
                    call()
                    best[name] = min(best[name], perf_counter() - start)
            print(f"| {n} | {threads} | " + " | ".join(f"{best[name] / RUNS * 1e6:.0f}" for name in names) + " |")


if __name__ == "__main__":
    main()
