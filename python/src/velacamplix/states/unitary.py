"""The matrix of a circuit."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..basics import checks
from ..circuit.circuit import Circuit
from ..programs.progress import ProgressLike
from .statevector import StateVector

#: The matrix of more qubits has more than 256 MiB.
MOST_QUBITS = 12


def unitary(circuit: Any, order: Any = "little", progress: ProgressLike = None) -> np.ndarray:
    """Return the matrix; see `Circuit.to_matrix`."""
    is_big = checks.order(order) == "big"
    n = circuit.n_qubits
    if n > MOST_QUBITS:
        raise ValueError(f"circuit must have at most {MOST_QUBITS} qubits for a matrix, got {n}")
    for position, step in enumerate(circuit):
        if step.condition is not None or (not step.is_gate and step.name != "barrier"):
            raise ValueError(
                f"circuit must hold gates and barriers without conditions for a matrix, got instruction {position}, {step.title}"
            )
    # Rows and columns are the qubits of one state: the columns' below stay what they are, the rows' change.
    rows = range(2 * n - 1, n - 1, -1) if is_big else range(n, 2 * n)
    state = StateVector(2 * n)
    entries = state.array
    entries[:: 2**n + 1] = 1.0
    state.run(Circuit(2 * n, circuit.n_clbits).compose(circuit, rows), progress)
    return entries.reshape(2**n, 2**n)
