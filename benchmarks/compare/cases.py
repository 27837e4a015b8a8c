"""What is measured: circuits as plain lists of gates, and the ways of reading a state out. The same on every machine.

A gate is ``(name, numbers, qubits)`` with the names H T RX RY RZ PH CNOT and U. The numbers of the rotations and of PH,
which is diag(1, exp(i angle)), are an angle; those of U, which has one or two qubits, the entries of its matrix row by row,
the first qubit the more significant bit of a row's number. CNOT has its control first. Qubit q is bit q of a basis state's
number.
"""

from __future__ import annotations

import cmath
import math
import random
from typing import Any, Callable, Dict, List, NamedTuple, Sequence, Tuple

Gate = Tuple[str, Tuple[Any, ...], Tuple[int, ...]]
PauliTerm = Tuple[float, str, Tuple[int, ...]]

SHOTS = 10**6
MARGINAL_QUBITS = 10
PAULI_TERMS = 100
AMPLITUDES = 64  # of a state too large to be compared as a whole


class Case(NamedTuple):
    """`kind` is what the simulator has to give: "amplitudes" of a circuit, "shots", "marginal" or "paulis" of a state
    that a short circuit makes, "jacobian", derivatives of `observables` expectation values by all angles, or "step", an
    expectation value of a circuit whose angles are parameters, from their values on."""

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


class _Numbers:
    """Marsaglia's xorshift, as in benchmarks/circuits.cpp: circuits of one name are the same there."""

    def __init__(self) -> None:
        self._bits = 88172645463325252

    def uniform(self) -> float:
        """From 0 to 1, 1 excluded."""
        self._bits ^= self._bits << 13 & 2**64 - 1
        self._bits ^= self._bits >> 7
        self._bits ^= self._bits << 17 & 2**64 - 1
        return (self._bits >> 11) * 2.0**-53

    def angle(self) -> float:
        return 6 * self.uniform()

    def below(self, limit: int) -> int:
        return int(self.uniform() * limit)


def _phase_of_both(a: int, b: int, angle: float) -> List[Gate]:
    return [("CNOT", (), (a, b)), ("RZ", (angle,), (b,)), ("CNOT", (), (a, b))]


def _qaoa(n: int) -> List[Gate]:
    """A ring and its chords to the opposite qubit."""
    draw = _Numbers()
    gates: List[Gate] = [("H", (), (q,)) for q in range(n)]
    edges = [(q, (q + 1) % n) for q in range(n)] + [(q, q + n // 2) for q in range(n // 2)]
    for _ in range(3):
        gamma, beta = draw.angle(), draw.angle()
        for a, b in edges:
            gates += _phase_of_both(a, b, gamma)
        gates += [("RX", (beta,), (q,)) for q in range(n)]
    return gates


def _grid_edges(n: int) -> List[List[Tuple[int, int]]]:
    """Edges of a grid with about as many rows as columns, the qubits row by row, in four groups, none of which meets a qubit
    twice."""
    columns = math.isqrt(n - 1) + 1
    groups: List[List[Tuple[int, int]]] = [[], [], [], []]
    for q in range(n):
        row, column = divmod(q, columns)
        if column + 1 < columns and q + 1 < n:
            groups[column % 2].append((q, q + 1))
        if q + columns < n:
            groups[2 + row % 2].append((q, q + columns))
    return groups


def _heisenberg(n: int) -> List[Gate]:
    gates: List[Gate] = []
    for edge in [edge for group in _grid_edges(n) for edge in group]:
        for before, after in ((("H", ()), ("H", ())), (("RX", (math.pi / 2,)), ("RX", (-math.pi / 2,)))):
            gates += [(*before, (q,)) for q in edge] + _phase_of_both(*edge, 0.2) + [(*after, (q,)) for q in edge]
        gates += _phase_of_both(*edge, 0.2)
    return gates


def _random_unitary(draw: _Numbers, size: int) -> Tuple[complex, ...]:
    """Columns of random numbers, each made orthogonal to those before it, twice because of rounding."""
    columns: List[List[complex]] = []
    for _ in range(size):
        column = []
        for _ in range(size):
            length = math.sqrt(-math.log(1 - draw.uniform()))
            column.append(cmath.rect(length, 2 * math.pi * draw.uniform()))
        for earlier in 2 * columns:
            overlap = sum(a.conjugate() * b for a, b in zip(earlier, column))
            column = [b - overlap * a for a, b in zip(earlier, column)]
        norm = math.sqrt(sum(abs(entry) ** 2 for entry in column))
        columns.append([entry / norm for entry in column])
    return tuple(column[row] for row in range(size) for column in columns)


def _random_pairs(n: int) -> List[Gate]:
    draw, order = _Numbers(), list(range(n))
    gates: List[Gate] = []
    for _ in range(10):
        for i in reversed(range(1, n)):
            j = draw.below(i + 1)
            order[i], order[j] = order[j], order[i]
        gates += [("U", _random_unitary(draw, 4), (order[i], order[i + 1])) for i in range(0, n - 1, 2)]
    return gates


def _random_cycles(n: int) -> List[Gate]:
    c = math.sqrt(0.5)
    roots = ((c, -1j * c, -1j * c, c), (c, -c, c, c), (c, -c * cmath.sqrt(1j), c * cmath.sqrt(-1j), c))
    fsim = (1, 0, 0, 0, 0, 0, -1j, 0, 0, -1j, 0, 0, 0, 0, 0, cmath.rect(1, -math.pi / 6))
    draw, groups = _Numbers(), _grid_edges(n)
    last = [3] * n
    gates: List[Gate] = []
    for cycle in range(10):
        for q in range(n):  # never the same root twice
            last[q] = draw.below(3) if last[q] == 3 else (last[q] + 1 + draw.below(2)) % 3
            gates.append(("U", roots[last[q]], (q,)))
        gates += [("U", fsim, edge) for edge in groups[cycle % 4]]
    return gates


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
    draw, entries, gates = random.Random(7), _Numbers(), _spread(n)
    for _ in range(100):
        name = draw.choice(("H", "T", "RX", "RY", "RZ", "PH", "CNOT", "U"))
        p, q = draw.sample(range(n), 2)
        on = (p, q) if name == "CNOT" or (name == "U" and draw.random() < 0.5) else (p,)
        numbers: Sequence[complex] = (draw.uniform(-6, 6),) if len(name) == 2 else ()
        gates.append((name, _random_unitary(entries, 2 ** len(on)) if name == "U" else tuple(numbers), on))
    return gates


def _turned(angles: int, layers: int = 0) -> Callable[[int], List[Gate]]:
    """Layers of RY on all qubits, RZ on all and a chain of CNOT, until there are so many angles and layers."""

    def gates(n: int) -> List[Gate]:
        draw, made = random.Random(11), 0
        listed: List[Gate] = []
        while made < max(angles, 2 * n * layers):
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
    Case("qaoa", "amplitudes", "QAOA: 3 rounds on a ring and its chords", _qaoa),
    Case("heis", "amplitudes", "Heisenberg step on a grid, 17 gates an edge", _heisenberg),
    Case("qv", "amplitudes", "10 layers of random SU(4) on random pairs", _random_pairs),
    Case("rqc", "amplitudes", "10 cycles on a grid: square roots, fSim", _random_cycles),
)
READINGS = (
    Case("spread", "amplitudes", "3n - 1 gates, to be read out", _spread),
    Case("shots", "shots", "… and 10⁶ shots of all qubits", _spread, most_qubits=24),
    Case("marginal", "marginal", "… and the distribution of 10 qubits", _spread, most_qubits=24),
    Case("paulis", "paulis", "… and a sum of 100 Pauli strings", _spread, most_qubits=24),
)
STEP = Case("vqe", "step", "VQE step: 4 layers, from parameters to energy", _turned(0, layers=4), most_qubits=24)
# One thread of the slowest peer takes seconds for these at 20 qubits, and minutes at 24.
DERIVATIVES = (
    Case("gradient100", "jacobian", "gradient, 100 angles or a few more", _turned(100), 1, 20),
    Case("gradient300", "jacobian", "gradient, 300 angles or a few more", _turned(300), 1, 20),
    Case("gradient700", "jacobian", "gradient, 700 angles or a few more", _turned(700), 1, 20),
    Case("jacobian30", "jacobian", "derivatives of 30 observables, 100 angles", _turned(100), 30, 20),
)
TRIAL = Case("every_gate", "amplitudes", "every gate", _every_gate)
CASES: Dict[str, Case] = {case.name: case for case in (*CIRCUITS, *READINGS, STEP, *DERIVATIVES, TRIAL)}


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
