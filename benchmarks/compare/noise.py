"""Compares runs with noise with Qiskit Aer's, exact ones and trajectories; run by `tools/compare --noise`.

Usage: python benchmarks/compare/noise.py --python PATH --peers PATH [--qubits N ...] [--repeats N] [--shots N:SHOTS ...]

Circuit: layers of RX and RZ on every qubit and CNOT of neighbours, depolarizing 0.001 after each rotation and 0.01
after each CNOT (as rho -> (1 - p) rho + p I/d). Told is the CPU time, on one thread, from a circuit and a noise model
that stand ready to the probabilities of all outcomes; simulators take turns, each run in a process of its own, and must
agree within 1e-12.

Trajectories have 10 layers, about one error in each shot. Told is the CPU time, on one thread, from a circuit and a noise
model that stand ready to the counts; how often qubit 0 is 1 must agree within five standard deviations.
"""

from __future__ import annotations

import argparse
import json
import random
import subprocess
import sys
import time
from statistics import median
from typing import Any, Dict, List, Tuple

LAYERS, P_ONE, P_TWO = 6, 0.001, 0.01
SHOT_LAYERS = 10
TOLERANCE = 1e-12


def gates(n: int, layers: int = LAYERS) -> List[Tuple[str, Tuple[float, ...], Tuple[int, ...]]]:
    """(name, angles, qubits) of the circuit, the same on every machine."""
    draw = random.Random(11)
    found: List[Tuple[str, Tuple[float, ...], Tuple[int, ...]]] = []
    for layer in range(layers):
        for q in range(n):
            found += [("rx", (draw.uniform(0, 6),), (q,)), ("rz", (draw.uniform(0, 6),), (q,))]
        found += [("cx", (), (q, q + 1)) for q in range(layer % 2, n - 1, 2)]
    return found


def velacamplix_run(n: int) -> Tuple[float, List[float]]:
    import velacamplix
    from velacamplix import Channel, Circuit, DensityMatrix

    one, two = Channel.depolarizing(P_ONE), Channel.depolarizing(P_TWO, 2)
    circuit = Circuit(n)
    for name, angles, qubits in gates(n):
        getattr(circuit, name)(*angles, *qubits).channel(two if len(qubits) == 2 else one, list(qubits))
    DensityMatrix(2, threads=1).run(velacamplix.Circuit(2).h(0).channel(two, [0, 1]))  # what is loaded the first time
    start = time.process_time()
    probabilities = DensityMatrix(n, threads=1).run(circuit).distribution(order="little")
    return time.process_time() - start, probabilities.tolist()


def aer_run(n: int) -> Tuple[float, List[float]]:
    from qiskit import QuantumCircuit
    from qiskit_aer import AerSimulator
    from qiskit_aer.noise import NoiseModel, depolarizing_error

    noise = NoiseModel()
    noise.add_all_qubit_quantum_error(depolarizing_error(P_ONE, 1), ["rx", "rz"])
    noise.add_all_qubit_quantum_error(depolarizing_error(P_TWO, 2), ["cx"])
    simulator = AerSimulator(method="density_matrix", noise_model=noise, max_parallel_threads=1)

    def run(circuit: Any) -> Any:
        circuit.save_probabilities()
        return simulator.run(circuit, shots=1).result()

    small, circuit = QuantumCircuit(2), QuantumCircuit(n)
    small.cx(0, 1)
    run(small)
    for name, angles, qubits in gates(n):
        getattr(circuit, name)(*angles, *qubits)
    start = time.process_time()
    result = run(circuit)
    return time.process_time() - start, [float(p) for p in result.data()["probabilities"]]


def velacamplix_shots(n: int, shots: int) -> Tuple[float, float]:
    from velacamplix import Channel, Circuit, NoiseModel, run

    noise = NoiseModel().after(["rx", "rz"], Channel.depolarizing(P_ONE)).after("cx", Channel.depolarizing(P_TWO, 2))
    circuit = Circuit(n)
    for name, angles, qubits in gates(n, SHOT_LAYERS):
        getattr(circuit, name)(*angles, *qubits)
    run(Circuit(2).rx(0.1, 0).cx(0, 1), shots=1, noise=noise, threads=1)  # what is loaded the first time
    start = time.process_time()
    counts = run(circuit, shots=shots, noise=noise, threads=1, seed=1, method="trajectories").counts
    seconds = time.process_time() - start
    return seconds, sum(times for outcome, times in counts.items() if outcome[0] == "1") / shots


def aer_shots(n: int, shots: int) -> Tuple[float, float]:
    from qiskit import QuantumCircuit
    from qiskit_aer import AerSimulator
    from qiskit_aer.noise import NoiseModel, depolarizing_error

    noise = NoiseModel()
    noise.add_all_qubit_quantum_error(depolarizing_error(P_ONE, 1), ["rx", "rz"])
    noise.add_all_qubit_quantum_error(depolarizing_error(P_TWO, 2), ["cx"])
    simulator = AerSimulator(method="statevector", noise_model=noise, max_parallel_threads=1)
    small, circuit = QuantumCircuit(2), QuantumCircuit(n)
    small.cx(0, 1)
    small.measure_all()
    simulator.run(small, shots=1).result()
    for name, angles, qubits in gates(n, SHOT_LAYERS):
        getattr(circuit, name)(*angles, *qubits)
    circuit.measure_all()
    start = time.process_time()
    counts = simulator.run(circuit, shots=shots, seed_simulator=1).result().get_counts()
    seconds = time.process_time() - start
    return seconds, sum(times for outcome, times in counts.items() if outcome[-1] == "1") / shots


RUNS = {"velacamplix": velacamplix_run, "Aer density_matrix": aer_run}
SHOTS = {"velacamplix trajectories": velacamplix_shots, "Aer statevector": aer_shots}


def measured(python: str, simulator: str, *numbers: int) -> Dict[str, Any]:
    done = subprocess.run(
        [python, __file__, "--run", simulator, *map(str, numbers)], stdout=subprocess.PIPE, check=True, text=True, timeout=1800
    )
    return json.loads(done.stdout.splitlines()[-1])


def main() -> int:
    if sys.argv[1:2] == ["--run"]:
        seconds, probabilities = {**RUNS, **SHOTS}[sys.argv[2]](*map(int, sys.argv[3:]))
        print(json.dumps({"seconds": seconds, "probabilities": probabilities}))
        return 0
    parser = argparse.ArgumentParser(prog="tools/compare --noise", description=__doc__.splitlines()[0])
    parser.add_argument("--python", required=True, help="an interpreter that has velacamplix")
    parser.add_argument("--peers", required=True, help="an interpreter that has Qiskit Aer")
    parser.add_argument("--qubits", type=int, nargs="*", default=[10, 11], help="sizes (10 11)")
    parser.add_argument("--repeats", type=int, default=3, help="rounds (3)")
    parser.add_argument("--shots", nargs="*", default=["16:100", "20:20"], help="sizes and shots (16:100 20:20)")
    options = parser.parse_args()
    failed = False
    print(f"| exact, {LAYERS} layers | velacamplix | Aer density_matrix | ratio | largest difference |")
    print("| --- | --- | --- | --- | --- |")
    for n in options.qubits:
        times: Dict[str, List[float]] = {name: [] for name in RUNS}
        for _ in range(options.repeats):
            answers = {}
            for name in RUNS:
                told = measured(options.python if name == "velacamplix" else options.peers, name, n)
                times[name].append(told["seconds"])
                answers[name] = told["probabilities"]
        ours, theirs = answers.values()
        difference = max(abs(a - b) for a, b in zip(ours, theirs))
        failed = failed or difference > TOLERANCE
        mine, peer = (median(times[name]) for name in RUNS)
        print(f"| n = {n} | {mine:.3f} s | {peer:.3f} s | {mine / peer:.3f} | {difference:.1e} |", flush=True)
    print(f"\n| trajectories, {SHOT_LAYERS} layers | velacamplix | Aer statevector | ratio | qubit 0 reads 1 |")
    print("| --- | --- | --- | --- | --- |")
    for row in options.shots:
        n, shots = map(int, row.split(":"))
        times = {name: [] for name in SHOTS}
        shares = []
        for _ in range(options.repeats):
            for name in SHOTS:
                told = measured(options.python if name.startswith("velacamplix") else options.peers, name, n, shots)
                times[name].append(told["seconds"])
                shares.append(told["probabilities"])
        failed = failed or abs(shares[0] - shares[1]) > 5 * (0.5 / shots) ** 0.5
        mine, peer = (median(times[name]) for name in SHOTS)
        told_shares = f"{shares[0]:.3f}, {shares[1]:.3f}"
        print(
            f"| n = {n}, {shots} shots | {mine / shots * 1e3:.3f} ms per shot | {peer / shots * 1e3:.3f} ms per shot "
            f"| {mine / peer:.4f} | {told_shares} |",
            flush=True,
        )
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
