"""Qulacs: a circuit as it is, and after QuantumCircuitOptimizer; shots and observables of the state."""

from __future__ import annotations

from importlib.metadata import version
from typing import Any, Dict, List

import builds
import cases
import numpy as np
import qulacs_core
from qulacs import Observable, ParametricQuantumCircuit, QuantumCircuit, QuantumState
from qulacs.circuit import QuantumCircuitOptimizer

from . import NotOffered, Prepared, Task

precisions = ("double",)


def versions() -> Dict[str, str]:
    return {"qulacs": version("qulacs")}


def build() -> str:
    return builds.told("qulacs", qulacs_core.__file__)


def settings(kind: str, precision: str, n: int) -> List[str]:
    if kind in ("jacobian", "step"):
        return ["backprop" if kind == "jacobian" else "plain"]
    return ["plain", "optimize_light", "optimize to 2 qubits", "optimize to 3 qubits", "optimize to 4 qubits"]


def _circuit(task: Task, setting: str) -> QuantumCircuit:
    circuit = QuantumCircuit(task.n)
    for name, angles, qubits in task.gates:
        if name == "U":  # its first qubit is the less significant
            circuit.add_dense_matrix_gate(list(qubits[::-1]), np.reshape(angles, (2 ** len(qubits), -1)))
        elif name in ("RX", "RY", "RZ"):
            # RotX turns the way everyone else's RX does; the library's own RX turns back.
            getattr(circuit, f"add_Rot{name[1]}_gate")(*qubits, *angles)
        elif name == "PH":
            circuit.add_U1_gate(*qubits, *angles)
        else:
            getattr(circuit, f"add_{name}_gate")(*qubits)
    if setting == "optimize_light":
        QuantumCircuitOptimizer().optimize_light(circuit)
    elif setting != "plain":
        QuantumCircuitOptimizer().optimize(circuit, int(setting.split()[2]))
    return circuit


def _with_parameters(task: Task) -> ParametricQuantumCircuit:
    circuit = ParametricQuantumCircuit(task.n)
    for name, angles, qubits in task.gates:
        if name == "CNOT":
            circuit.add_CNOT_gate(*qubits)
        else:  # its parametric gates turn back
            getattr(circuit, f"add_parametric_{name}_gate")(*qubits, -angles[0])
    return circuit


def _sum(n: int, terms: List[cases.PauliTerm]) -> Observable:
    made = Observable(n)
    for coefficient, letters, qubits in terms:
        made.add_operator(coefficient, " ".join(f"{letter} {q}" for letter, q in zip(letters, qubits)))
    return made


def _jacobian(task: Task) -> Prepared:
    circuit, observables = _with_parameters(task), [_sum(task.n, [term]) for term in task.observables]
    return Prepared(lambda: [circuit.backprop(one) for one in observables], lambda rows: -np.array(rows))


def _step(task: Task) -> Prepared:
    circuit, energy = _with_parameters(task), _sum(task.n, task.terms)
    values = [-angle for _, angles, _ in task.gates for angle in angles]

    def call() -> Any:
        for place, value in enumerate(values):
            circuit.set_parameter(place, value)
        state = QuantumState(task.n)
        circuit.update_quantum_state(state)
        return energy.get_expectation_value(state)

    return Prepared(call, lambda value: float(value.real))


def prepare(task: Task, setting: str) -> Prepared:
    if task.kind in ("jacobian", "step"):
        return _jacobian(task) if task.kind == "jacobian" else _step(task)
    # OMP_NUM_THREADS, which the worker was started with, decides the number of threads.
    if task.kind == "marginal":
        raise NotOffered("a call gives the probability of one outcome, not a distribution")
    circuit = _circuit(task, setting)

    def state() -> Any:
        made = QuantumState(task.n)
        circuit.update_quantum_state(made)
        return made

    if task.kind == "state":
        return Prepared(state, lambda result: result.get_vector())
    if task.kind == "amplitudes":
        indices = cases.amplitude_indices(task.n)
        return Prepared(state, lambda result: np.array([result.get_amplitude(i) for i in indices]))
    if task.kind == "shots":
        return Prepared(
            lambda: state().sampling(cases.SHOTS, 11),
            lambda outcomes: np.unique(np.array(outcomes, dtype=np.uint64), return_counts=True),
        )
    observable = _sum(task.n, task.terms)
    return Prepared(lambda: observable.get_expectation_value(state()), lambda value: float(value.real))
