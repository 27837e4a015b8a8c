#!/usr/bin/env python3
"""What a small circuit costs from Python, beside Qulacs: least microseconds of many turns, one thread, double precision.

Usage: benchmarks/small_circuits.py [PYTHON]    (with the Python in which velacamplix is installed; PYTHON has Qulacs)

The circuit has two layers of RY on every qubit, RZ on every qubit, and a chain of CNOT: 22 gates on 4 qubits, 46 on 8. It
is run with 1000 shots; as a step of a VQE, which sets the 4 n angles anew and asks for the mean of Z0 Z1; and on a state
that stays, as a whole and gate by gate. Both packages do what a user would write for that, Qulacs in a process of its own.
"""

from __future__ import annotations

import json
import subprocess
import sys
from collections.abc import Callable, Iterator
from time import perf_counter
from typing import Any

SIZES, LAYERS, TURNS, SECONDS = (4, 8), 2, 100, 2e-3


def gates(n: int) -> Iterator[tuple[str, int, int]]:
    """Iterate over names, qubits and second qubits; those with an angle have none."""
    for _ in range(LAYERS):
        yield from [("RY", qubit, -1) for qubit in range(n)]
        yield from [("RZ", qubit, -1) for qubit in range(n)]
        yield from [("CNOT", qubit, qubit + 1) for qubit in range(n - 1)]


def least(call: Callable[[], Any]) -> float:
    """Return the microseconds of a call in the fastest turn, each of about two milliseconds."""
    call()
    start = perf_counter()
    call()
    number = max(1, int(SECONDS / (perf_counter() - start)))
    best = float("inf")
    for _ in range(TURNS):
        start = perf_counter()
        for _ in range(number):
            call()
        best = min(best, perf_counter() - start)
    return best / number * 1e6


def own(n: int, angles: list[float]) -> dict[str, Callable[[], Any]]:
    from velacamplix import Circuit, Observable, ParameterVector, StateVector, run

    def filled(circuit: Any, numbers: Any) -> Any:
        left = iter(numbers)
        for name, qubit, other in gates(n):
            if name == "CNOT":
                circuit.cx(qubit, other)
            else:
                (circuit.ry if name == "RY" else circuit.rz)(next(left), qubit)
        return circuit

    circuit = filled(Circuit(n), angles)
    open_circuit = filled(Circuit(n), ParameterVector("angle", len(angles)))
    state, observable = StateVector(n, threads=1), Observable("Z0 Z1")

    def step() -> float | complex:
        return state.reset().run(open_circuit.bind(angles)).expectation(observable)

    def one_by_one() -> None:
        place = iter(angles)
        for _ in range(LAYERS):
            for qubit in range(n):
                state.ry(next(place), qubit)
            for qubit in range(n):
                state.rz(next(place), qubit)
            for qubit in range(n - 1):
                state.cx(qubit, qubit + 1)

    return {
        "1000 shots": lambda: run(circuit, shots=1000, threads=1),
        "1000 shots, counted": lambda: run(circuit, shots=1000, threads=1).counts,
        "VQE step": step,
        "VQE step, by run": lambda: run(open_circuit.bind(angles), observables=observable, threads=1).expectation_values,
        "the whole circuit on a state": lambda: state.run(circuit),
        "gates one by one": one_by_one,
    }


def of_qulacs(n: int, angles: list[float]) -> dict[str, Callable[[], Any]]:
    from qulacs import Observable, ParametricQuantumCircuit, QuantumCircuit, QuantumState
    from qulacs.gate import CNOT, RY, RZ

    circuit, open_circuit, state, observable = QuantumCircuit(n), ParametricQuantumCircuit(n), QuantumState(n), Observable(n)
    observable.add_operator(1.0, "Z 0 Z 1")
    left = iter(angles)
    for name, qubit, other in gates(n):
        if name == "CNOT":
            circuit.add_CNOT_gate(qubit, other)
            open_circuit.add_CNOT_gate(qubit, other)
        else:  # its rotations turn the other way
            (circuit.add_RY_gate if name == "RY" else circuit.add_RZ_gate)(qubit, -next(left))
            (open_circuit.add_parametric_RY_gate if name == "RY" else open_circuit.add_parametric_RZ_gate)(qubit, 0.0)

    def shots() -> list[int]:
        state.set_zero_state()
        circuit.update_quantum_state(state)
        return state.sampling(1000)

    def step() -> float:
        for place, angle in enumerate(angles):
            open_circuit.set_parameter(place, -angle)
        state.set_zero_state()
        open_circuit.update_quantum_state(state)
        return observable.get_expectation_value(state)

    def one_by_one() -> None:
        place = iter(angles)
        for _ in range(LAYERS):
            for qubit in range(n):
                RY(qubit, -next(place)).update_quantum_state(state)
            for qubit in range(n):
                RZ(qubit, -next(place)).update_quantum_state(state)
            for qubit in range(n - 1):
                CNOT(qubit, qubit + 1).update_quantum_state(state)

    return {
        "1000 shots": shots,
        "VQE step": step,
        "the whole circuit on a state": lambda: circuit.update_quantum_state(state),
        "gates one by one": one_by_one,
    }


def measured(ways: Callable[[int, list[float]], dict[str, Callable[[], Any]]]) -> dict[str, dict[str, float]]:
    found: dict[str, dict[str, float]] = {}
    for n in SIZES:
        calls = ways(n, [0.1 * (place + 1) for place in range(2 * LAYERS * n)])
        found[str(n)] = {name: least(call) for name, call in calls.items()} | {"value": calls["VQE step"]()}
    return found


def main() -> None:
    if sys.argv[1:] == ["--qulacs"]:
        print(json.dumps(measured(of_qulacs)))
        return
    peer: dict[str, dict[str, float]] = {}
    if sys.argv[1:]:
        # One thread, which at these sizes is the faster choice for it.
        command = ["env", "OMP_NUM_THREADS=1", sys.argv[1], __file__, "--qulacs"]
        peer = json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)
    print("| | qubits | velacamplix | Qulacs |")
    print("|---|---|---|---|")
    for n, row in measured(own).items():
        others, value = peer.get(n, {}), row.pop("value")
        if abs(value - others.pop("value", value)) > 1e-12:
            sys.exit(f"the values differ at {n} qubits")
        for name, time in row.items():
            print(f"| {name} | {n} | {time:.1f} µs | {f'{others[name]:.1f} µs' if name in others else '–'} |")


if __name__ == "__main__":
    main()
