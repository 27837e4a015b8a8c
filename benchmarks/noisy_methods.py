#!/usr/bin/env python3
"""Runs with noise either way: how long they take, beside what is predicted of them and what "auto" takes.

Usage: benchmarks/noisy_methods.py [MOST_QUBITS]     (with the Python in which velacamplix is installed; 12 if left out)

The circuits have layers of RX and RZ on every qubit and bricks of CNOT, with noise of several kinds. Times are those of
one core (threads=1) without preparation, the least of three. They are where the constants of running/costs.py come from.
"""

from __future__ import annotations

import sys
import warnings
from time import process_time
from typing import Any

from velacamplix import Channel, Circuit, NoiseModel, Result, run

KINDS = {
    "Pauli 1 %": NoiseModel().after(["rx", "rz"], Channel.depolarizing(0.001)).after("cx", Channel.depolarizing(0.01, 2)),
    "Pauli, rare": NoiseModel().after("cx", Channel.depolarizing(0.0001, 2)),
    "damping": NoiseModel().after(["rx", "rz"], Channel.amplitude_damping(0.001)).after("cx", Channel.amplitude_damping(0.01)),
    "two qubits": NoiseModel().after("cx", Channel.amplitude_damping(0.01).tensor(Channel.amplitude_damping(0.01))),
}


def layers(n_qubits: int, count: int) -> Circuit:
    circuit = Circuit(n_qubits)
    for layer in range(count):
        for qubit in range(n_qubits):
            circuit.rx(0.3 + qubit, qubit).rz(0.2 - layer, qubit)
        for qubit in range(layer % 2, n_qubits - 1, 2):
            circuit.cx(qubit, qubit + 1)
    return circuit


def timed(circuit: Circuit, **asked: Any) -> tuple[float, Result]:
    seconds = []
    for _ in range(3):
        began = process_time()
        result = run(circuit, seed=1, threads=1, **asked)
        seconds.append(process_time() - began)
    return min(seconds), result


def main() -> None:
    most = int(sys.argv[1]) if len(sys.argv) > 1 else 12
    warnings.simplefilter("ignore")
    print(f"{'noise':12} qubits  shots  {'exact':>8} {'predicted':>9}  {'traject.':>8} {'predicted':>9}  different predicted  auto")
    for name, noise in KINDS.items():
        for n_qubits in range(2, most + 1, 2):
            for shots in (10, 1000):
                circuit = noise.apply(layers(n_qubits, 10))
                by_shots, result = timed(circuit, shots=shots, method="trajectories")
                exact = timed(circuit, shots=shots, method="exact")[0] if n_qubits <= 10 else float("nan")
                foreseen = {one.name: one.seconds for one in result.plan.methods}
                auto = run(circuit, shots=shots).plan.method if n_qubits <= 10 else ""
                print(
                    f"{name:12} {n_qubits:6} {shots:6}  {exact:8.2g} {foreseen['exact']:9.2g}  {by_shots:8.2g} "
                    f"{foreseen['trajectories']:9.2g}  {result.plan.trajectories:9}  {auto}",
                    flush=True,
                )


if __name__ == "__main__":
    main()
