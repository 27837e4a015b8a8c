"""Compares runs with noise with those of Qiskit Aer and qsim, and with runs without; run by `tools/compare --noise`.

Usage: python benchmarks/compare/noise.py --python PATH --peers PATH [--qubits N ...] [--repeats N] [--shots N:SHOTS ...]
           [--beside N:SHOTS ...]

Circuit: layers of RX and RZ on every qubit and CNOT of neighbours, depolarizing 0.001 after each rotation and 0.01
after each CNOT (as rho -> (1 - p) rho + p I/d). Told is the CPU time, on one thread, from a circuit and a noise model
that stand ready to the probabilities of all outcomes; simulators take turns, each run in a process of its own, and must
agree within 1e-12.

Trajectories have 10 layers, about one error in each shot. Told is the CPU time, on one thread, from a circuit and a noise
model that stand ready to the counts; how often qubit 0 is 1 must agree within five standard deviations. qsim takes a
circuit with the channels in it and has single precision, so it stands beside our single precision.

Beside the run without noise and its sampling: noise on readout alone, and noise with an event in 1 % of the shots. Each
shot with an event goes by itself from there on, so sharing the way to it leaves a least ratio, told beside: 1 + the number
of other trajectories times the mean share of the gates that are left behind an event. And amplitude damping 0.001 behind
every rotation beside Pauli noise of that rate. Both runs take turns in one process, on one thread, and the first round does
not count; told are the least times and their ratio.
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


def velacamplix_shots(n: int, shots: int, precision: str = "double") -> Tuple[float, float]:
    from velacamplix import Channel, Circuit, NoiseModel, run

    noise = NoiseModel().after(["rx", "rz"], Channel.depolarizing(P_ONE)).after("cx", Channel.depolarizing(P_TWO, 2))
    circuit = Circuit(n)
    for name, angles, qubits in gates(n, SHOT_LAYERS):
        getattr(circuit, name)(*angles, *qubits)
    run(Circuit(2).rx(0.1, 0).cx(0, 1), shots=1, noise=noise, threads=1)  # what is loaded the first time
    start = time.process_time()
    options: Dict[str, Any] = {"method": "trajectories", "precision": precision}
    counts = run(circuit, shots=shots, noise=noise, threads=1, seed=1, **options).counts
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


def qsim_shots(n: int, shots: int) -> Tuple[float, float]:
    import cirq
    import qsimcirq

    # cirq's p is the share of the Paulis other than I.
    one, two = cirq.depolarize(P_ONE * 3 / 4), cirq.depolarize(P_TWO * 15 / 16, 2)
    names = {"rx": cirq.rx, "rz": cirq.rz}

    def circuit_of(n: int, steps: Any) -> Any:
        qubits = cirq.LineQubit.range(n)
        operations = []
        for name, angles, places in steps:
            on = [qubits[q] for q in places]
            operations += [cirq.CNOT(*on), two(*on)] if name == "cx" else [names[name](*angles)(*on), one(*on)]
        return cirq.Circuit(operations + [cirq.measure(*qubits, key="m")])

    simulator = qsimcirq.QSimSimulator(qsimcirq.QSimOptions(cpu_threads=1), seed=1)
    simulator.run(circuit_of(2, [("rx", (0.1,), (0,)), ("cx", (), (0, 1))]), repetitions=1)
    circuit = circuit_of(n, gates(n, SHOT_LAYERS))
    start = time.process_time()
    bits = simulator.run(circuit, repetitions=shots).measurements["m"]
    seconds = time.process_time() - start
    return seconds, float(bits[:, 0].mean())


def velacamplix_single(n: int, shots: int) -> Tuple[float, float]:
    return velacamplix_shots(n, shots, "single")


def beside(kind: str, n: int, shots: int, repeats: int) -> Dict[str, float]:
    """Least CPU times of two runs that take turns, and what sharing prefixes leaves at least."""
    from velacamplix import Channel, Circuit, NoiseModel, run

    steps = gates(n, SHOT_LAYERS)
    circuit = Circuit(n, n)
    for name, angles, qubits in steps:
        getattr(circuit, name)(*angles, *qubits)
    circuit.measure(range(n), range(n))
    first: Dict[str, Any] = {}
    trajectories: Dict[str, Any] = {"method": "trajectories"}
    if kind == "readout":
        second = {"noise": NoiseModel().readout(p1_given_0=0.02, p0_given_1=0.05), **trajectories}
    elif kind == "damping":
        names = ["rx", "rz"]
        first = {"noise": NoiseModel().after(names, Channel.pauli({"X": 0.0005, "Z": 0.0005})), **trajectories}
        second = {"noise": NoiseModel().after(names, Channel.amplitude_damping(0.001)), **trajectories}
    else:
        # Chances of an event behind a rotation and, ten times as much noise, a CNOT: 1 % in all.
        weights = [15 / 16 * 10 if name == "cx" else 3 / 4 for name, _, _ in steps]
        p = 0.01005 / sum(weights)
        model = NoiseModel().after(["rx", "rz"], Channel.depolarizing(p)).after("cx", Channel.depolarizing(10 * p, 2))
        second = {"noise": model, **trajectories}
    times: Dict[str, List[float]] = {"first": [], "second": []}
    for _ in range(repeats + 1):
        for name, options in (("first", first), ("second", second)):
            start = time.process_time()
            made = run(circuit, shots=shots, threads=1, seed=1, **options)
            times[name].append(time.process_time() - start)
    found = {name: min(values[1:]) for name, values in times.items()}
    if kind == "rare":
        left = [1 - (place + 1) / len(steps) for place in range(len(steps))]
        mean = sum(weight * share for weight, share in zip(weights, left)) / sum(weights)
        found["least"] = 1 + (made.plan.trajectories - 1) * mean
    return found


RUNS = {"velacamplix": velacamplix_run, "Aer density_matrix": aer_run}
SHOTS = {
    "velacamplix trajectories": velacamplix_shots, "Aer statevector": aer_shots,
    "velacamplix trajectories, single": velacamplix_single, "qsim, single": qsim_shots,
}  # fmt: skip
BESIDE = {
    "readout": "noise on readout alone / none",
    "rare": "events in 1 % of the shots / none",
    "damping": "amplitude damping / Pauli noise",
}


def measured(python: str, simulator: str, *numbers: Any) -> Dict[str, Any]:
    done = subprocess.run(
        [python, __file__, "--run", simulator, *map(str, numbers)], stdout=subprocess.PIPE, check=True, text=True, timeout=1800
    )
    return json.loads(done.stdout.splitlines()[-1])


def main() -> int:
    if sys.argv[1:3] == ["--run", "beside"]:
        print(json.dumps(beside(sys.argv[3], *map(int, sys.argv[4:]))))
        return 0
    if sys.argv[1:2] == ["--run"]:
        seconds, probabilities = {**RUNS, **SHOTS}[sys.argv[2]](*map(int, sys.argv[3:]))
        print(json.dumps({"seconds": seconds, "probabilities": probabilities}))
        return 0
    parser = argparse.ArgumentParser(prog="tools/compare --noise", description=__doc__.splitlines()[0])
    parser.add_argument("--python", required=True, help="an interpreter that has velacamplix")
    parser.add_argument("--peers", required=True, help="an interpreter that has Qiskit Aer and qsimcirq")
    parser.add_argument("--qubits", type=int, nargs="*", default=[10, 11], help="sizes (10 11)")
    parser.add_argument("--repeats", type=int, default=3, help="rounds (3)")
    parser.add_argument("--shots", nargs="*", default=["16:100", "20:20"], help="sizes and shots (16:100 20:20)")
    parser.add_argument(
        "--beside", nargs="*", default=["16:100", "16:1000", "20:100"], help="sizes and shots of our own runs (16:100 16:1000 20:100)"
    )
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
    sizes = [tuple(map(int, row.split(":"))) for row in options.shots]
    names = list(SHOTS)
    for first, second in (names[:2], names[2:]):
        print(f"\n| {SHOT_LAYERS} layers | {first} | {second} | ratio | qubit 0 reads 1 |")
        print("| --- | --- | --- | --- | --- |")
        for n, shots in sizes:
            times = {name: [] for name in SHOTS}
            shares = []
            for _ in range(options.repeats):
                for name in (first, second):
                    told = measured(options.python if name.startswith("velacamplix") else options.peers, name, n, shots)
                    times[name].append(told["seconds"])
                    shares.append(told["probabilities"])
            failed = failed or abs(shares[0] - shares[1]) > 5 * (0.5 / shots) ** 0.5
            mine, peer = (median(times[name]) for name in (first, second))
            print(
                f"| n = {n}, {shots} shots | {mine / shots * 1e3:.3f} ms per shot | {peer / shots * 1e3:.3f} ms per shot "
                f"| {mine / peer:.4f} | {shares[0]:.3f}, {shares[1]:.3f} |",
                flush=True,
            )
    print(f"\n| {SHOT_LAYERS} layers | CPU time | CPU time | ratio | least by sharing prefixes |")
    print("| --- | --- | --- | --- | --- |")
    for row in options.beside:
        n, shots = map(int, row.split(":"))
        for kind, title in BESIDE.items():
            found = measured(options.python, "beside", kind, n, shots, 7 if n < 18 else options.repeats)
            second, first, least = found["second"], found["first"], found.get("least")
            print(
                f"| {title}, n = {n}, {shots} shots | {second * 1e3:.1f} ms | {first * 1e3:.1f} ms | {second / first:.3f} "
                f"| {'' if least is None else f'{least:.2f}'} |",
                flush=True,
            )
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
