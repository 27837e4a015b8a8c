"""What is measured: circuits as plain lists of gates, and the ways of reading a state out. The same on every machine.

A gate is ``(name, angles, qubits)`` with the names H T RX RY RZ PH CNOT; PH is diag(1, exp(i angle)), CNOT has its
control first. Qubit q is bit q of a basis state's number.
"""

from __future__ import annotations

import math
import random
from typing import Callable, Dict, List, NamedTuple, Tuple

Gate = Tuple[str, Tuple[float, ...], Tuple[int, ...]]
PauliTerm = Tuple[float, str, Tuple[int, ...]]

SHOTS = 10**6
MARGINAL_QUBITS = 10
PAULI_TERMS = 100
AMPLITUDES = 64  # of a state too large to be compared as a whole


class Case(NamedTuple):
    """`kind` is what the simulator has to give: "amplitudes" of a circuit, "shots", "marginal" or "paulis" of a state
    that a short circuit makes, or "jacobian", derivatives of `observables` expectation values by all angles."""

    name: str
    kind: str
    title: str
    gates: Callable[[int], List[Gate]]
    observables: int = 0
    most_qubits: int = 62


def _chain(n: int, first: int = 0, step: int = 1) -> List[Gate]:
    return [("CNOT", (), (q, q + 1)) for q in range(first, n - 1, step)]


def _ansatz(n: int) -> List[Gate]:
    draw = random.Random(1)
    gates: List[Gate] = []
    for _ in range(10):
        for name in ("RY", "RZ"):
            gates += [(name, (draw.uniform(0, 6),), (q,)) for q in range(n)]
        gates += _chain(n)
    return gates


def _layers(n: int) -> List[Gate]:
    draw = random.Random(2)
    gates: List[Gate] = []
    for layer in range(20):
        for q in range(n):
            name = draw.choice(("H", "T", "RX"))
            gates.append((name, (draw.uniform(0, 6),) if name == "RX" else (), (q,)))
        gates += _chain(n, layer % 2, 2)
    return gates


def _qft(n: int) -> List[Gate]:
    gates: List[Gate] = []
    for target in reversed(range(n)):
        gates.append(("H", (), (target,)))
        for control in reversed(range(target)):
            half = math.pi / 2 ** (target - control + 1)
            gates += [
                ("PH", (half,), (control,)),
                ("CNOT", (), (control, target)),
                ("PH", (-half,), (target,)),
                ("CNOT", (), (control, target)),
                ("PH", (half,), (target,)),
            ]
    return gates


def _random(n: int) -> List[Gate]:
    draw = random.Random(4)
    gates: List[Gate] = []
    for _ in range(300):
        name, (p, q) = draw.choice(("H", "RX", "RZ", "CNOT")), draw.sample(range(n), 2)
        angles = (draw.uniform(0, 6),) if name in ("RX", "RZ") else ()
        gates.append((name, angles, (p, q) if name == "CNOT" else (p,)))
    return gates


def _ghz(n: int) -> List[Gate]:
    return [("H", (), (0,)), *_chain(n)]


def _spread(n: int) -> List[Gate]:
    """Leaves no two qubits alike; short, since it is paid for in every reading."""
    draw = random.Random(6)
    gates: List[Gate] = []
    gates += [("RY", (draw.uniform(0, 6),), (q,)) for q in range(n)]
    gates += _chain(n)
    gates += [("RX", (draw.uniform(0, 6),), (q,)) for q in range(n)]
    return gates


def _every_gate(n: int) -> List[Gate]:
    """Shows a gate that a simulator was given wrongly, whatever it is: from a state without symmetries."""
    draw, gates = random.Random(7), _spread(n)
    for _ in range(100):
        name = draw.choice(("H", "T", "RX", "RY", "RZ", "PH", "CNOT"))
        p, q = draw.sample(range(n), 2)
        angles = (draw.uniform(-6, 6),) if len(name) == 2 else ()
        gates.append((name, angles, (p, q) if name == "CNOT" else (p,)))
    return gates


def _turned(angles: int) -> Callable[[int], List[Gate]]:
    """Layers of RY on all qubits, RZ on all and a chain of CNOT, until there are so many angles."""

    def gates(n: int) -> List[Gate]:
        draw, made = random.Random(11), 0
        listed: List[Gate] = []
        while made < angles:
            for name in ("RY", "RZ"):
                listed += [(name, (draw.uniform(0, 6),), (q,)) for q in range(n)]
            listed += _chain(n)
            made += 2 * n
        return listed

    return gates


CIRCUITS = (
    Case("ansatz", "amplitudes", "10 layers: all RY, all RZ, CNOT chain", _ansatz),
    Case("layers", "amplitudes", "20 layers: H/T/RX, CNOT neighbours", _layers),
    Case("qft", "amplitudes", "QFT from H, PH, CNOT", _qft),
    Case("random", "amplitudes", "300 random gates on random pairs", _random),
    Case("ghz", "amplitudes", "GHZ", _ghz),
)
READINGS = (
    Case("spread", "amplitudes", "3n - 1 gates, to be read out", _spread),
    Case("shots", "shots", "… and 10⁶ shots of all qubits", _spread),
    Case("marginal", "marginal", "… and the distribution of 10 qubits", _spread),
    Case("paulis", "paulis", "… and a sum of 100 Pauli strings", _spread),
)
# One thread of the slowest peer takes seconds for these at 20 qubits, and minutes at 24.
DERIVATIVES = (
    Case("gradient100", "jacobian", "gradient, 100 angles or a few more", _turned(100), 1, 20),
    Case("gradient300", "jacobian", "gradient, 300 angles or a few more", _turned(300), 1, 20),
    Case("gradient700", "jacobian", "gradient, 700 angles or a few more", _turned(700), 1, 20),
    Case("jacobian30", "jacobian", "derivatives of 30 observables, 100 angles", _turned(100), 30, 20),
)
TRIAL = Case("every_gate", "amplitudes", "every gate", _every_gate)
CASES: Dict[str, Case] = {case.name: case for case in (*CIRCUITS, *READINGS, *DERIVATIVES, TRIAL)}


def amplitude_indices(n: int) -> List[int]:
    """Basis states whose amplitudes are compared: the first, the last, and some between."""
    if 2**n <= AMPLITUDES:
        return list(range(2**n))
    draw = random.Random(8)
    return [0, 2**n - 1, *(draw.randrange(2**n) for _ in range(AMPLITUDES - 2))]


def marginal_qubits(n: int) -> List[int]:
    """Qubits of the marginal distribution, most significant first; low and high ones, in no order."""
    return random.Random(9).sample(range(n), min(n, MARGINAL_QUBITS))


def observables(n: int, count: int) -> List[PauliTerm]:
    """Z on two neighbours, then X on one qubit; from the last on, which a chain of CNOT joins to all others."""
    listed: List[PauliTerm] = []
    for k in range(count):
        q = n - 1 - k % n
        listed.append((1.0, "ZZ", (q, (q - 1) % n)) if k < n else (1.0, "X", (q,)))
    return listed


def pauli_terms(n: int) -> List[PauliTerm]:
    """(coefficient, letters, qubits); letter i acts on the i-th of the qubits."""
    draw = random.Random(10)
    terms: List[PauliTerm] = []
    for _ in range(PAULI_TERMS):
        qubits = tuple(sorted(draw.sample(range(n), min(n, 4))))
        terms.append((draw.uniform(-1, 1), "".join(draw.choice("XYZ") for _ in qubits), qubits))
    return terms
