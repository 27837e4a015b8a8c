"""qsim through Cirq: gates fused on up to 2, 3 or 4 qubits; single precision only.

The circuit is translated from Cirq beforehand and handed to the functions of qsim's extension module that QSimSimulator
itself calls, since that class translates on every run and makes shots into Python lists of bits. A VQE step is that class's:
new values have to be translated anyway.
"""

from __future__ import annotations

from importlib.metadata import version
from typing import Any, Dict, List

import builds
import cases
import cirq
import numpy as np
import sympy
from qsimcirq import QSimCircuit, QSimOptions, QSimSimulator, qsim
from qsimcirq.qsim_circuit import add_op_to_opstring

from . import NotOffered, Prepared, Task

precisions = ("single",)
_GATES = {"H": cirq.H, "T": cirq.T, "CNOT": cirq.CNOT}
_TURNS = {"RX": cirq.rx, "RY": cirq.ry, "RZ": cirq.rz}
_PAULIS = {"X": cirq.X, "Y": cirq.Y, "Z": cirq.Z}


def versions() -> Dict[str, str]:
    return {"qsimcirq": version("qsimcirq"), "cirq-core": version("cirq-core")}


def build() -> str:
    # The package has a module for each instruction set, and loads the best that the processor runs.
    return builds.told("qsimcirq", qsim.__file__)


def settings(kind: str, precision: str, n: int) -> List[str]:
    fused = [f"max_fused_gate_size={size}" for size in (2, 3, 4)]
    if kind == "paulis":
        return [f"{setting}, {how}" for setting in fused for how in ("one sum", "term by term")]
    return fused


def _operation(gate: cases.Gate, line: List[Any]) -> Any:
    name, angles, qubits = gate
    on = [line[q] for q in qubits]
    if name == "U":
        return cirq.MatrixGate(np.reshape(angles, (2 ** len(qubits), -1)).astype(complex)).on(*on)
    if name == "PH":
        # Not ZPowGate's name for a turn about z, which differs by a phase.
        return cirq.ZPowGate(exponent=angles[0] / np.pi).on(*on)
    return (_TURNS[name](*angles) if name in _TURNS else _GATES[name]).on(*on)


def _sums(n: int, line: List[Any], apart: bool) -> Any:
    """Operator strings as qsim takes them, with the number of qubits of each sum."""
    strings = []
    for coefficient, letters, qubits in cases.pauli_terms(n):
        string = qsim.OpString()
        string.weight = coefficient
        for letter, q in zip(letters, qubits):
            add_op_to_opstring(_PAULIS[letter].on(line[q]), {line[q]: q for q in qubits}, string)
        strings.append((string, qubits))
    if apart:
        return [([string], len(qubits)) for string, qubits in strings]
    return [([string for string, _ in strings], len({q for _, qubits in strings for q in qubits}))]


def _step(task: Task, line: List[Any], size: int) -> Prepared:
    operations, values = [], {}
    for name, angles, qubits in task.gates:
        turn = sympy.Symbol(f"p{len(values)}")
        values.update({turn: angle for angle in angles})
        operations.append(_operation((name, (turn,) if angles else (), qubits), line))
    circuit = cirq.Circuit(operations)
    energy = sum(
        coefficient * cirq.PauliString({line[q]: _PAULIS[letter] for letter, q in zip(letters, qubits)})
        for coefficient, letters, qubits in task.terms
    )
    simulator = QSimSimulator(QSimOptions(max_fused_gate_size=size, cpu_threads=task.threads))
    return Prepared(
        lambda: simulator.simulate_expectation_values(circuit, energy, cirq.ParamResolver(values)),
        lambda found: float(found[0].real),
    )


def prepare(task: Task, setting: str) -> Prepared:
    if task.kind == "jacobian":
        raise NotOffered("there are no derivatives but TensorFlow Quantum's")
    if task.kind == "marginal":
        raise NotOffered("neither Cirq's interface to qsim nor qsim itself gives a distribution of some qubits")
    line = cirq.LineQubit.range(task.n)
    size = int(setting.split(",")[0].split("=")[1])
    if task.kind == "step":
        return _step(task, line, size)
    # Cirq's first qubit is the most significant; so that qubit q becomes bit q, the last one goes first.
    order = line[::-1]
    circuit = cirq.Circuit(_operation(gate, line) for gate in task.gates)
    options = QSimOptions(max_fused_gate_size=size, cpu_threads=task.threads).as_dict()
    options["c"], _ = QSimCircuit(circuit).translate_cirq_to_qsim(order)
    options["s"] = 11

    if task.kind == "state":
        return Prepared(lambda: qsim.qsim_simulate_fullstate(options, 0), lambda parts: parts.view(np.complex64))
    if task.kind == "amplitudes":
        options["i"] = "\n".join(format(i, f"0{task.n}b")[::-1] for i in cases.amplitude_indices(task.n))
        return Prepared(lambda: qsim.qsim_simulate(options), np.array)
    if task.kind == "shots":
        return Prepared(
            lambda: qsim.qsim_sample_final(options, cases.SHOTS),
            lambda outcomes: np.unique(np.array(outcomes, dtype=np.uint64), return_counts=True),
        )
    sums = _sums(task.n, line, setting.endswith("term by term"))
    return Prepared(
        lambda: qsim.qsim_simulate_expectation_values(options, sums, 0),
        lambda values: float(sum(value.real for value in values)),
    )
