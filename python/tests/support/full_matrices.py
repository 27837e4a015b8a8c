"""A slow simulator of full matrices, to settle arguments about the fast one.

It shares nothing with the package: an operator on n qubits is a Kronecker product of one factor per qubit, a
controlled one adds "some control reads 0: nothing happens" to "all controls read 1: the gate happens", and a gate on
two qubits is a sum of such products. Qubit 0 is the last factor, so that qubit q is bit q of an index.
"""

from functools import reduce

import numpy as np

ROOT_HALF = np.sqrt(0.5)
IDENTITY = np.eye(2)
READS = [np.diag([1.0, 0.0]), np.diag([0.0, 1.0])]  # projectors on reading 0 and 1

GATES = {
    "x": np.array([[0, 1], [1, 0]]),
    "y": np.array([[0, -1j], [1j, 0]]),
    "z": np.diag([1, -1]),
    "h": ROOT_HALF * np.array([[1, 1], [1, -1]]),
    "s": np.diag([1, 1j]),
    "t": np.diag([1, np.exp(0.25j * np.pi)]),
    "ztoy": ROOT_HALF * np.array([[1, 1], [1j, -1j]]),
    "ytoz": ROOT_HALF * np.array([[1, -1j], [1, 1j]]),
}

ROTATIONS = {
    "rx": lambda a: np.cos(a / 2) * IDENTITY - 1j * np.sin(a / 2) * GATES["x"],
    "ry": lambda a: np.cos(a / 2) * IDENTITY - 1j * np.sin(a / 2) * GATES["y"],
    "rz": lambda a: np.cos(a / 2) * IDENTITY - 1j * np.sin(a / 2) * GATES["z"],
    "ph": lambda a: np.diag([1, np.exp(1j * a)]),
}

# Rows and columns: the first listed qubit is the high bit.
PAIRS = {
    "swap": np.array([[1, 0, 0, 0], [0, 0, 1, 0], [0, 1, 0, 0], [0, 0, 0, 1]]),
    "iswap": np.array([[1, 0, 0, 0], [0, 0, 1j, 0], [0, 1j, 0, 0], [0, 0, 0, 1]]),
    "sqrtswap": np.array([[1, 0, 0, 0], [0, 0.5 + 0.5j, 0.5 - 0.5j, 0], [0, 0.5 - 0.5j, 0.5 + 0.5j, 0], [0, 0, 0, 1]]),
}


def product(n, factors):
    """The operator that has `factors[q]` on qubit q and nothing elsewhere."""
    return reduce(np.kron, [factors.get(q, IDENTITY) for q in reversed(range(n))])


def controlled(n, gate, qubit, controls=()):
    """The full matrix of a 2 x 2 gate on `qubit` that acts where every control reads 1."""
    all_read_one = product(n, {c: READS[1] for c in controls})
    acts = product(n, {qubit: gate, **{c: READS[1] for c in controls}})
    return np.eye(2**n) - all_read_one + acts


def on_qubits(n, gate, qubits):
    """The full matrix of a 2^k x 2^k gate on k qubits, the first listed being the high bit of its index."""
    k = len(qubits)
    full = np.zeros((2**n, 2**n), complex)
    for row in range(2**k):
        for column in range(2**k):
            factors = {}
            for position, qubit in enumerate(qubits):
                unit = np.zeros((2, 2))
                unit[(row >> (k - 1 - position)) & 1, (column >> (k - 1 - position)) & 1] = 1
                factors[qubit] = unit
            full += gate[row, column] * product(n, factors)
    return full


def random_state(n, seed):
    """2^n amplitudes of norm 1."""
    generator = np.random.default_rng(seed)
    state = generator.normal(size=2**n) + 1j * generator.normal(size=2**n)
    return state / np.linalg.norm(state)


def bits(index, n):
    """What each qubit reads in a basis state: entry q belongs to qubit q."""
    return [int(c) for c in reversed(format(index, f"0{n}b"))] if n else []
