"""Random OpenQASM 3 programs, each with the state that Qiskit gives it.

Qiskit makes the state from matrices of its own gates, which modifiers and definitions change and join here; its importer
has no part in it. By itself this compares as many programs as one likes:

    python python/tests/support/qasm3_programs.py FIRST_SEED COUNT
"""

import random
import sys

import numpy as np
from qiskit import QuantumCircuit
from qiskit.circuit.library import UnitaryGate, standard_gates
from qiskit.quantum_info import Operator, Statevector

# Name in stdgates.inc, or built in: Qiskit's class, number of parameters, number of qubits.
GATES = {
    "p": ("PhaseGate", 1, 1), "x": ("XGate", 0, 1), "y": ("YGate", 0, 1), "z": ("ZGate", 0, 1), "h": ("HGate", 0, 1),
    "s": ("SGate", 0, 1), "sdg": ("SdgGate", 0, 1), "t": ("TGate", 0, 1), "tdg": ("TdgGate", 0, 1), "sx": ("SXGate", 0, 1),
    "rx": ("RXGate", 1, 1), "ry": ("RYGate", 1, 1), "rz": ("RZGate", 1, 1), "cx": ("CXGate", 0, 2), "cy": ("CYGate", 0, 2),
    "cz": ("CZGate", 0, 2), "cp": ("CPhaseGate", 1, 2), "crx": ("CRXGate", 1, 2), "cry": ("CRYGate", 1, 2),
    "crz": ("CRZGate", 1, 2), "ch": ("CHGate", 0, 2), "swap": ("SwapGate", 0, 2), "ccx": ("CCXGate", 0, 3),
    "cswap": ("CSwapGate", 0, 3), "cu": ("CUGate", 4, 2), "CX": ("CXGate", 0, 2), "phase": ("PhaseGate", 1, 1),
    "cphase": ("CPhaseGate", 1, 2), "id": ("IGate", 0, 1), "u1": ("U1Gate", 1, 1), "u2": ("U2Gate", 2, 1),
    "u3": ("U3Gate", 3, 1), "U": ("UGate", 3, 1),
}  # fmt: skip

# Names that mean something to Qiskit or here.
NAMES = ["unitary", "if_else", "matrix", "measured", "diagonal", "gate_1", "Delay", "rzz", "SWAP", "annotated", "circuit_7"]


class Part:
    """A text, and its matrix for values of the parameters; the first qubit is the lowest bit of an index."""

    def __init__(self, text, matrix, n_params, n_qubits):
        self.text, self.matrix, self.n_params, self.n_qubits = text, matrix, n_params, n_qubits


def standard(name):
    kind, n_params, n_qubits = GATES[name]
    return Part(name, lambda *values: Operator(getattr(standard_gates, kind)(*values)).data, n_params, n_qubits)


PHASE = Part("gphase", lambda angle: np.array([[np.exp(1j * angle)]]), 1, 0)


def modified(part, rng, most_qubits, may_have_fractions):
    """The part behind a random modifier."""
    kind = rng.choice(["inv", "ctrl", "negctrl", "ctrl(2)", "negctrl(2)", "pow", "pow", "fraction"])
    if kind == "inv":
        return Part("inv @ " + part.text, lambda *v: part.matrix(*v).conj().T, part.n_params, part.n_qubits)
    if kind == "pow":
        k = rng.choice([-3, -1, 0, 1, 2, 2, 5])
        return Part(f"pow({k}) @ " + part.text, lambda *v: np.linalg.matrix_power(part.matrix(*v), k), part.n_params, part.n_qubits)
    if kind == "fraction":
        if not may_have_fractions or part.n_qubits == 0:
            return part
        k = rng.choice([0.5, 0.25, 1.5, -0.5, 0.3])
        return Part(f"pow({k}) @ " + part.text, lambda *v: Operator(part.matrix(*v)).power(k).data, part.n_params, part.n_qubits)
    n = 2 if "2" in kind else 1
    if part.n_qubits + n > most_qubits:
        return part
    wanted = 0 if kind.startswith("neg") else 2**n - 1

    def controlled(*values):
        inner = part.matrix(*values)
        matrix = np.eye(len(inner) << n, dtype=complex)
        here = [(row << n) | wanted for row in range(len(inner))]
        matrix[np.ix_(here, here)] = inner
        return matrix

    return Part(f"{kind} @ " + part.text, controlled, part.n_params, part.n_qubits + n)


def number(rng):
    """A constant as text, and its value. Small enough for principal roots of rotations."""
    value = rng.choice([0.3, 1.25, -0.5, 2.0, 0.1, -2.75, 3.0])
    return rng.choice(
        [(repr(value), value), ("pi / 3", np.pi / 3), ("-pi/4", -np.pi / 4), ("2*pi/5", 2 * np.pi / 5), ("tau/7 - 0.5", np.pi * 2 / 7 - 0.5),
         ("7/2", 3.0), ("-7/2", -3.0), ("euler - 1", np.e - 1), (f"({value} + 1) / 2", (value + 1) / 2)]
    )  # fmt: skip


def angle(rng, names):
    """An expression as text, and its value as a function of the named parameters."""
    text, value = number(rng)
    if not names or "7/2" in text or rng.random() < 0.3:  # an integer cannot be added to an angle
        return text, lambda known: value
    name = rng.choice(names)
    return rng.choice(
        [(name, lambda known: known[name]), (f"-{name}", lambda known: -known[name]), (f"{name} / 2", lambda known: known[name] / 2),
         (f"2 * {name} + ({text})", lambda known: 2 * known[name] + value), (f"({text}) - {name}", lambda known: value - known[name])]
    )  # fmt: skip


def statement(rng, known, qubits, names):
    """One gate or phase: its text, and how to add it to a circuit of Qiskit's, given numbers of qubits and parameters."""
    part = PHASE if rng.random() < 0.15 else rng.choice(known)
    if part.n_qubits > len(qubits):
        part = standard("h")
    chosen = [angle(rng, names) for _ in range(part.n_params)]
    n_modifiers = rng.choice([0, 0, 1, 1, 2, 3])
    for _ in range(n_modifiers):
        part = modified(part, rng, len(qubits), not (part.n_params and names) and part in known)
    operands = rng.sample(qubits, part.n_qubits)
    text = part.text + (f"({', '.join(text for text, _ in chosen)})" if chosen else "")

    def add(circuit, places, values):
        matrix = part.matrix(*[value(values) for _, value in chosen])
        if part.n_qubits == 0:
            circuit.global_phase += np.angle(matrix[0, 0])
        else:
            circuit.append(UnitaryGate(matrix), [places[operand] for operand in operands])

    return f"{text} {', '.join(operands)};".replace(" ;", ";"), add


def definition(rng, name, known):
    """The text of a gate's definition, and the gate."""
    # Not in the order of the alphabet.
    params = rng.sample(["theta", "a", "phi", "b", "Lambda"], rng.randint(0, 3))
    qubits = rng.sample(["x0", "q", "anc", "b1"], rng.randint(1, 3))
    steps = [statement(rng, known, qubits, params) for _ in range(rng.randint(0, 4))]
    if rng.random() < 0.2:
        steps.append((f"barrier {qubits[0]};", lambda *_: None))
    head = f"gate {name}" + (f"({', '.join(params)})" if params else "") + " " + ", ".join(qubits)

    def matrix(*values):
        circuit = QuantumCircuit(len(qubits))
        for _, add in steps:
            add(circuit, {qubit: place for place, qubit in enumerate(qubits)}, dict(zip(params, values)))
        return Operator(circuit).data

    return f"{head} {{ {' '.join(text for text, _ in steps)} }}\n", Part(name, matrix, len(params), len(qubits))


def program(seed):
    """A program's text, and its state vector by Qiskit, qubit 0 the lowest bit."""
    rng = random.Random(seed)
    text = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'
    known = [standard(name) for name in GATES]
    for name in rng.sample(NAMES, rng.randint(0, 3)):
        added, part = definition(rng, name, known)
        text += added
        known = known + [part] * 8
    n = rng.randint(2, 4)
    first = rng.randint(1, n - 1)
    text += f"qubit[{first}] q;\nqubit[{n - first}] other;\n"
    qubits = [f"q[{i}]" for i in range(first)] + [f"other[{i}]" for i in range(n - first)]
    places = {qubit: place for place, qubit in enumerate(qubits)}
    circuit = QuantumCircuit(n)
    # Amplitudes that all differ.
    for qubit, place in places.items():
        text += f"ry({0.5 + place}) {qubit};\nrz({1.5 - place}) {qubit};\n"
        circuit.ry(0.5 + place, place)
        circuit.rz(1.5 - place, place)
    for _ in range(rng.randint(3, 8)):
        if rng.random() < 0.1:
            text += rng.choice(["barrier q;\n", "delay[100ns] q;\n", f"delay[2us] {qubits[-1]};\n"])
            continue
        added, add = statement(rng, known, qubits, [])
        text += added + "\n"
        add(circuit, places, {})
    return text, Statevector(circuit).data


def main():
    from velacamplix import Circuit, StateVector

    first, count = int(sys.argv[1]), int(sys.argv[2])
    worst = 0.0
    for seed in range(first, first + count):
        text, expected = program(seed)
        circuit = Circuit.from_qasm3(text)
        got = StateVector(circuit.n_qubits).run(circuit).statevector(order="little")
        error = float(np.abs(got - expected).max())
        worst = max(worst, error)
        if not error < 1e-11:
            print(text)
            sys.exit(f"seed {seed}: an amplitude is off by {error:.1e}")
    print(f"{count} programs agree; the largest difference is {worst:.1e}")


if __name__ == "__main__":
    main()
