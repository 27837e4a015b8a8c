"""Derivatives equal those of another simulator's adjoint method, lightning.qubit's, in a process of its own."""

import json
import subprocess
import sys

import numpy as np
import pytest

from velacamplix import Circuit, Parameter

# Reads circuits as lists of (name, angles, qubits) with observables as lists of (coefficient, letters, qubits).
LIGHTNING = """
import json, sys
import numpy as np, pennylane as qml

names = {"h": qml.Hadamard, "rx": qml.RX, "ry": qml.RY, "rz": qml.RZ, "ph": qml.PhaseShift, "cx": qml.CNOT, "t": qml.T,
         "rxx": qml.IsingXX, "ryy": qml.IsingYY, "rzz": qml.IsingZZ, "crx": qml.CRX, "cry": qml.CRY, "crz": qml.CRZ,
         "cp": qml.ControlledPhaseShift}
letters_of = {"X": qml.X, "Y": qml.Y, "Z": qml.Z}
answers = []
for n, gates, observables in json.load(sys.stdin):
    operations = [names[name](*angles, wires=qubits) for name, angles, qubits in gates]
    measured = []
    for terms in observables:
        products = [qml.prod(*(letters_of[p](q) for p, q in zip(letters, qubits))) for _, letters, qubits in terms]
        measured.append(qml.expval(qml.Hamiltonian([coefficient for coefficient, _, _ in terms], products)))
    tape = qml.tape.QuantumScript(operations, measured)
    tape.trainable_params = list(range(sum(len(angles) for _, angles, _ in gates)))
    config = qml.devices.ExecutionConfig(gradient_method="adjoint", use_device_gradient=True)
    found = qml.device("lightning.qubit", wires=n).compute_derivatives([tape], config)
    answers.append(np.array(found, dtype=float).reshape(len(observables), -1).tolist())
print(json.dumps(answers))
"""
GATES = {"h": (0, 1), "t": (0, 1), "rx": (1, 1), "ry": (1, 1), "rz": (1, 1), "ph": (1, 1), "cx": (0, 2), "cp": (1, 2)}
GATES |= {name: (1, 2) for name in ("rxx", "ryy", "rzz", "crx", "cry", "crz")}


def random_case(seed):
    draw = np.random.default_rng(seed)
    n = int(draw.integers(3, 11))
    gates = [["ry", [float(draw.uniform(-3, 3))], [q]] for q in range(n)]
    for name in draw.choice(list(GATES), size=60).tolist():
        n_angles, n_qubits = GATES[name]
        qubits = draw.permutation(n)[:n_qubits].tolist()
        gates.append([name, draw.uniform(-6, 6, n_angles).tolist(), qubits])
    observables = []
    for _ in range(3):
        placed = [draw.permutation(n)[: int(draw.integers(1, 4))].tolist() for _ in range(4)]
        letters = ["".join(draw.choice(list("XYZ"), size=len(qubits))) for qubits in placed]
        observables.append([[float(draw.uniform(-1, 1)), *term] for term in zip(letters, placed)])
    return n, gates, observables


def test_twenty_random_circuits_have_the_same_jacobian():
    pytest.importorskip("pennylane_lightning", reason="needs PennyLane: pip install velacamplix[test]")
    cases = [random_case(seed) for seed in range(20)]
    ended = subprocess.run([sys.executable, "-c", LIGHTNING], input=json.dumps(cases), capture_output=True, text=True)
    assert ended.returncode == 0, ended.stderr
    for (n, gates, observables), theirs in zip(cases, json.loads(ended.stdout), strict=True):
        circuit, values = Circuit(n), []
        for name, angles, qubits in gates:
            getattr(circuit, name)(*[Parameter(f"p{len(values)}") for _ in angles], *qubits)
            values += angles
        ours = circuit.jacobian([[tuple(term) for term in terms] for terms in observables], values)
        assert np.abs(ours - theirs).max() < 1e-11
        assert np.abs(ours).max() > 0.01
