"""A slow simulator for circuits, written from the gates' definitions alone.

It shares no arithmetic with the package: every gate is a matrix from the table
below, applied with NumPy to the axes of a (2, 2, ..., 2) array. Qubit q is bit
q of an index, so it is axis n - 1 - q of the array.
"""

import numpy as np

ROOT = 1 / np.sqrt(2)


def rotation(pauli):
    return lambda angle: np.cos(angle / 2) * np.eye(2) - 1j * np.sin(angle / 2) * np.array(pauli)


X = [[0, 1], [1, 0]]
Y = [[0, -1j], [1j, 0]]
Z = [[1, 0], [0, -1]]

# Rows and columns are numbered with the first qubit as the highest bit.
MATRICES = {
    "X": lambda: np.array(X),
    "Y": lambda: np.array(Y),
    "Z": lambda: np.array(Z),
    "H": lambda: ROOT * np.array([[1, 1], [1, -1]]),
    "S": lambda: np.diag([1, 1j]),
    "T": lambda: np.diag([1, np.exp(0.25j * np.pi)]),
    "RX": rotation(X),
    "RY": rotation(Y),
    "RZ": rotation(Z),
    "PH": lambda angle: np.diag([1, np.exp(1j * angle)]),
    "ZtoY": lambda: ROOT * np.array([[1, 1], [1j, -1j]]),
    "YtoZ": lambda: ROOT * np.array([[1, -1j], [1, 1j]]),
    "CNOT": lambda: permutation([0, 1, 3, 2]),
    "CCNOT": lambda: permutation([0, 1, 2, 3, 4, 5, 7, 6]),
    "CSIGN": lambda: np.diag([1, 1, 1, -1]),
    "SWAP": lambda: permutation([0, 2, 1, 3]),
    "ISWAP": lambda: np.array([[1, 0, 0, 0], [0, 0, 1j, 0], [0, 1j, 0, 0], [0, 0, 0, 1]]),
    "SQRTSWAP": lambda: np.array(
        [[1, 0, 0, 0], [0, 0.5 + 0.5j, 0.5 - 0.5j, 0], [0, 0.5 - 0.5j, 0.5 + 0.5j, 0], [0, 0, 0, 1]]
    ),
}


def permutation(images):
    return np.eye(len(images))[images]


def gate_matrix(instruction):
    """The matrix of a gate on its targets, without controls."""
    if instruction.name == "matrix":
        size = 2 ** len(instruction.qubits)
        return np.array(instruction.params).reshape(size, size)
    if instruction.name == "diagonal":
        return np.diag(instruction.params)
    return MATRICES[instruction.name](*instruction.params)


def apply(instruction, states, n):
    """Apply a gate to an array of shape (2,) * n + (number of states,)."""
    axes = [n - 1 - qubit for qubit in instruction.qubits]
    selected = [slice(None)] * states.ndim
    for control in instruction.controls:
        selected[n - 1 - control] = slice(1, 2)  # a slice keeps the axis and its number
    part = states[tuple(selected)]
    k = len(axes)
    gate = gate_matrix(instruction).reshape((2,) * (2 * k))
    moved = np.tensordot(gate, part, axes=(range(k, 2 * k), axes))
    states[tuple(selected)] = np.moveaxis(moved, range(k), axes)


def run(circuit, states):
    """Apply all gates to the columns of `states`; what no gate is must come last."""
    n = circuit.n_qubits
    array = np.array(states, dtype=complex).reshape((2,) * n + (-1,))
    measured = set()
    for instruction in circuit.basic_instructions():
        if instruction.condition is not None or instruction.name == "reset":
            raise ValueError(f"not a unitary circuit: {instruction}")
        if instruction.name == "measure":
            measured.update(instruction.qubits)
        elif instruction.name != "barrier":
            if measured.intersection(instruction.qubits + instruction.controls):
                raise ValueError(f"a gate after the measurement of its qubit: {instruction}")
            apply(instruction, array, n)
    return array.reshape(2**n, -1)


def statevector(circuit):
    """The 2**n amplitudes after the circuit, started in state 0."""
    start = np.zeros((2**circuit.n_qubits, 1))
    start[0] = 1
    return run(circuit, start)[:, 0]


def unitary(circuit):
    """The 2**n x 2**n matrix of the circuit."""
    return run(circuit, np.eye(2**circuit.n_qubits))


def probabilities(circuit):
    """The probability of each value of the classical bits, bit 0 the lowest."""
    weights = np.abs(statevector(circuit)) ** 2
    values = np.zeros(len(weights), dtype=int)
    for instruction in circuit:
        if instruction.name == "measure":
            for qubit, clbit in zip(instruction.qubits, instruction.clbits):
                values |= ((np.arange(len(weights)) >> qubit) & 1) << clbit
    return np.bincount(values, weights=weights, minlength=2**circuit.n_clbits)
