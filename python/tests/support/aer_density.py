"""Density matrices from Qiskit Aer, for `test_exact`: started with an interpreter that has it.

Reads a list of circuits from standard input as JSON, each as the number of qubits and steps: ["unitary" or "kraus",
matrices (rows of [real, imaginary] pairs, the first qubit as lowest bit), qubits]. Writes a matrix for each.
"""

import json
import sys

import numpy as np
from qiskit import QuantumCircuit
from qiskit.circuit.library import UnitaryGate
from qiskit.quantum_info import Kraus
from qiskit_aer import AerSimulator


def matrix(rows):
    return np.array(rows)[..., 0] + 1j * np.array(rows)[..., 1]


def density(n_qubits, steps):
    circuit = QuantumCircuit(n_qubits)
    for kind, matrices, qubits in steps:
        operators = [matrix(rows) for rows in matrices]
        circuit.append(UnitaryGate(operators[0]) if kind == "unitary" else Kraus(operators).to_instruction(), qubits)
    circuit.save_density_matrix()
    simulator = AerSimulator(method="density_matrix", max_parallel_threads=1)
    found = np.asarray(simulator.run(circuit, shots=1).result().data()["density_matrix"])
    return np.stack([found.real, found.imag], axis=-1).tolist()


if __name__ == "__main__":
    json.dump([density(*each) for each in json.load(sys.stdin)], sys.stdout)
