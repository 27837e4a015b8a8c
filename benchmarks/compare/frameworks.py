"""Compares what runs below Qiskit, PennyLane and Cirq with their usual simulators; run by `tools/compare --frameworks`.

Usage: python benchmarks/compare/frameworks.py --python PATH --peers PATH [--rows NAME ...] [--threads N] [--rounds N]

Each row is a program of the framework's that differs in the simulator alone. Both prepare it in a process of their own and
run it once; then they take turns, and told are the medians of the wall times with the framework's own work included. Their
answers must agree. Double precision and no fusion, if the row does not say otherwise.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import time
from statistics import median
from typing import Any, Callable, Dict, List, NamedTuple, Tuple

OURS, THEIRS = "velacamplix", "peer"


class Row(NamedTuple):
    """What is compared: `make(simulator, n, threads)` returns what one round calls; it returns numbers to compare."""

    name: str
    told: str
    peer: str
    sizes: Tuple[int, ...]
    make: Callable[[str, int, int], Callable[[], List[float]]]
    tolerance: float
    calls: int  # in one round


# Qiskit


def estimator(simulator: str, n: int, threads: int) -> Callable[[], List[float]]:
    import numpy as np
    from qiskit.circuit.library import real_amplitudes
    from qiskit.quantum_info import SparsePauliOp

    if simulator == OURS:
        from velacamplix.qiskit import EstimatorV2

        primitive = EstimatorV2(threads=threads)
    else:
        from qiskit_aer.primitives import EstimatorV2

        backend = {"method": "statevector", "max_parallel_threads": threads}
        primitive = EstimatorV2(options={"backend_options": backend})
    circuit = real_amplitudes(n, reps=2).decompose()
    draw = np.random.default_rng(3)
    labels = ["".join(draw.choice(list("IXYZ"), size=n, p=[0.7, 0.1, 0.1, 0.1])) for _ in range(50)]
    observable = SparsePauliOp(labels, draw.normal(size=50))
    values = draw.uniform(0, 6, size=(100, circuit.num_parameters))
    return lambda: primitive.run([(circuit, observable, values)]).result()[0].data.evs.tolist()


def twenty_gates(n: int) -> List[Tuple[str, float, Tuple[int, ...]]]:
    kinds = ("ry", "rz", "cx", "rx")
    found: List[Tuple[str, float, Tuple[int, ...]]] = []
    for place in range(20):
        kind = kinds[place % 4]
        found.append((kind, 0.1 + 0.2 * place, (place % n, (place + 1) % n) if kind == "cx" else (place % n,)))
    return found


def backend(simulator: str, n: int, threads: int) -> Callable[[], List[float]]:
    from qiskit import QuantumCircuit, transpile

    if simulator == OURS:
        from velacamplix.qiskit import VelacamplixBackend

        device = VelacamplixBackend(max_parallel_threads=threads, seed_simulator=1)
    else:
        from qiskit_aer import AerSimulator

        device = AerSimulator(max_parallel_threads=threads, seed_simulator=1)
    circuit = QuantumCircuit(n)
    for kind, angle, qubits in twenty_gates(n):
        getattr(circuit, kind)(*([] if kind == "cx" else [angle]), *qubits)
    circuit.measure_all()
    circuit = transpile(circuit, device, optimization_level=0)

    def run() -> List[float]:
        counts = device.run(circuit, shots=1024).result().get_counts()
        return [sum(times for bits, times in counts.items() if bits[-1 - q] == "1") / 1024 for q in range(n)]

    return run


# PennyLane


def device_of(simulator: str, n: int, threads: int) -> Any:
    import pennylane as qml

    return qml.device("velacamplix.qubit", wires=n, threads=threads) if simulator == OURS else qml.device("lightning.qubit", wires=n)


def gradient(simulator: str, n: int, threads: int) -> Callable[[], List[float]]:
    import pennylane as qml
    from pennylane import numpy as pnp

    layers = {12: 4, 14: 8, 16: 10, 18: 12}.get(n, 4)
    fields, pulls = [qml.X(q) for q in range(n)], [qml.Z(q) @ qml.Z((q + 1) % n) for q in range(n)]
    energy = qml.Hamiltonian([0.5] * n + [1.0] * n, fields + pulls)

    @qml.qnode(device_of(simulator, n, threads), diff_method="adjoint")
    def value(angles: Any) -> Any:
        for layer in angles:
            for q in range(n):
                qml.RY(layer[q, 0], q)
                qml.RZ(layer[q, 1], q)
            for q in range(n):
                qml.CNOT([q, (q + 1) % n])
        return qml.expval(energy)

    draw = pnp.random.default_rng(5)
    angles = pnp.array(draw.uniform(0, 6, size=(layers, n, 2)), requires_grad=True)
    slope = qml.grad(value)
    return lambda: slope(angles).ravel().tolist()


def execute(simulator: str, n: int, threads: int) -> Callable[[], List[float]]:
    import pennylane as qml

    device = device_of(simulator, n, threads)
    gates = {"rx": qml.RX, "ry": qml.RY, "rz": qml.RZ}
    listed = [qml.CNOT(qubits) if kind == "cx" else gates[kind](angle, qubits[0]) for kind, angle, qubits in twenty_gates(n)]
    tape = qml.tape.QuantumScript(listed, [qml.expval(qml.Z(0)), qml.expval(qml.X(1))])
    config = device.setup_execution_config(circuit=tape)
    batch, _ = device.preprocess_transforms(config)([tape])
    return lambda: [float(value) for value in device.execute(batch, config)[0]]


# Cirq


def simulator_of(simulator: str, threads: int) -> Any:
    if simulator == OURS:
        import numpy as np

        from velacamplix.cirq import VelacamplixSimulator

        return VelacamplixSimulator(dtype=np.complex64, threads=threads, seed=1)
    import qsimcirq

    return qsimcirq.QSimSimulator(qsim_options=qsimcirq.QSimOptions(cpu_threads=threads), seed=1)


def samples(simulator: str, n: int, threads: int) -> Callable[[], List[float]]:
    import cirq
    import numpy as np

    qubits = cirq.LineQubit.range(n)
    draw = np.random.RandomState(7)
    circuit = cirq.Circuit()
    for layer in range(20):
        circuit += [cirq.ry(draw.uniform(0, 6))(q) if draw.rand() < 0.5 else cirq.rx(draw.uniform(0, 6))(q) for q in qubits]
        circuit += [cirq.CZ(qubits[q], qubits[q + 1]) for q in range(layer % 2, n - 1, 2)]
    circuit += cirq.measure(*qubits, key="m")
    device = simulator_of(simulator, threads)
    return lambda: device.run(circuit, repetitions=100_000).measurements["m"].mean(axis=0).tolist()


def sweep(simulator: str, n: int, threads: int) -> Callable[[], List[float]]:
    import cirq
    import numpy as np
    import sympy

    qubits, turn = cirq.LineQubit.range(n), sympy.Symbol("turn")
    circuit = cirq.Circuit()
    for layer in range(6):
        circuit += [cirq.ry(turn * (1 + layer))(q) for q in qubits]
        circuit += [cirq.CZ(qubits[q], qubits[q + 1]) for q in range(layer % 2, n - 1, 2)]
    circuit += cirq.measure(*qubits, key="m")
    device, points = simulator_of(simulator, threads), cirq.Linspace("turn", 0, 1.5, 50)

    def run() -> List[float]:
        results = device.run_sweep(circuit, points, repetitions=1000)
        return np.concatenate([result.measurements["m"].mean(axis=0) for result in results]).tolist()

    return run


ROWS = (
    Row("estimator", "Qiskit, EstimatorV2, 100 sets of values, 50 terms", "Aer", (12, 16, 18), estimator, 1e-9, 1),
    Row("backend", "Qiskit, backend.run of 20 gates, 1024 shots", "Aer", (4, 10), backend, 5 * (0.5 / 1024) ** 0.5, 50),
    Row("gradient", "PennyLane, gradient of a VQE, adjoint", "lightning.qubit", (12, 14, 16, 18), gradient, 1e-9, 1),
    Row("execute", "PennyLane, execute of 20 gates", "lightning.qubit", (4, 7, 10), execute, 1e-12, 200),
    Row("samples", "Cirq, 100 000 shots, 20 layers, single precision", "qsim", (16, 20, 22), samples, 5 * (0.5 / 1e5) ** 0.5, 1),
    Row("sweep", "Cirq, sweep of 50 times 1000 shots, single precision", "qsim", (12,), sweep, 5 * (0.5 / 1e3) ** 0.5, 1),
)


class Worker:
    """A process that has prepared one row with one simulator."""

    def __init__(self, python: str, simulator: str, row: Row, n: int, threads: int) -> None:
        words = [python, __file__, "--work", simulator, row.name, str(n), str(threads)]
        self.process = subprocess.Popen(
            words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            env={**os.environ, "OMP_NUM_THREADS": str(threads)},
        )  # fmt: skip

    def told(self) -> Dict[str, Any]:
        """The answer to the last line; the first comes by itself."""
        assert self.process.stdout is not None
        line = self.process.stdout.readline()
        if not line:
            raise SystemExit(f"{self.process.args} ended with status {self.process.wait()}")
        return json.loads(line)

    def round(self) -> float:
        assert self.process.stdin is not None
        self.process.stdin.write("again\n")
        self.process.stdin.flush()
        return self.told()["seconds"]

    def end(self) -> None:
        assert self.process.stdin is not None
        self.process.stdin.close()
        self.process.wait()


def work(simulator: str, name: str, n: int, threads: int) -> None:
    """Be a worker: one line of JSON after the first run, and one for each line of input."""
    lines, sys.stdout = sys.stdout, sys.stderr
    row = next(row for row in ROWS if row.name == name)
    run = row.make(simulator, n, threads)
    print(json.dumps({"answer": run()}), file=lines, flush=True)
    for _ in sys.stdin:
        start = time.perf_counter()
        for _ in range(row.calls):
            run()
        print(json.dumps({"seconds": (time.perf_counter() - start) / row.calls}), file=lines, flush=True)


def measured(row: Row, n: int, options: argparse.Namespace) -> Tuple[float, float, float]:
    """Medians of both, and the largest difference of their answers."""
    workers = [
        Worker(python, simulator, row, n, options.threads)
        for python, simulator in ((options.python, OURS), (options.peers, THEIRS))
    ]
    ours, theirs = [worker.told()["answer"] for worker in workers]
    difference = max(abs(a - b) for a, b in zip(ours, theirs)) if len(ours) == len(theirs) else float("inf")
    times: List[List[float]] = [[], []]
    for turn in range(options.rounds):
        for place in (0, 1) if turn % 2 == 0 else (1, 0):
            times[place].append(workers[place].round())
    for worker in workers:
        worker.end()
    return median(times[0]), median(times[1]), difference


def main() -> int:
    if sys.argv[1:2] == ["--work"]:
        work(sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5]))
        return 0
    parser = argparse.ArgumentParser(prog="tools/compare --frameworks", description=__doc__.splitlines()[0])
    parser.add_argument("--python", required=True, help="an interpreter that has velacamplix and the frameworks")
    parser.add_argument("--peers", required=True, help="an interpreter that has the peers")
    parser.add_argument("--rows", nargs="+", choices=[row.name for row in ROWS], default=[row.name for row in ROWS])
    parser.add_argument("--most-qubits", type=int, default=30, help="leave larger sizes out")
    parser.add_argument("--threads", type=int, default=2, help="of both (2)")
    parser.add_argument("--rounds", type=int, default=5, help="in turns (5)")
    options = parser.parse_args()
    failed = False
    print("| row | n | velacamplix | peer | ratio | difference |\n| --- | --- | --- | --- | --- | --- |")
    for row in [row for row in ROWS if row.name in options.rows]:
        for n in [n for n in row.sizes if n <= options.most_qubits]:
            mine, peer, difference = measured(row, n, options)
            failed = failed or difference > row.tolerance
            print(
                f"| {row.told} | {n} | {1e3 * mine:.3f} ms | {row.peer} {1e3 * peer:.3f} ms | {mine / peer:.3f} "
                f"| {difference:.1e}{' (too much)' if difference > row.tolerance else ''} |",
                flush=True,
            )
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
