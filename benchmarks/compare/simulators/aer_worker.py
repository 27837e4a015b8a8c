"""Qiskit Aer: the statevector method, with gate fusion of several widths or none, and with its cache blocking.

Time is Aer's own (`time_taken` of the experiment), which leaves out the conversion of Qiskit's circuit; of a step it is that
of the whole call, with `parameter_binds`.
"""

from __future__ import annotations

from importlib.metadata import version
from typing import Any, Dict, List, Tuple

import builds
import cases
import numpy as np
from qiskit import QuantumCircuit
from qiskit.circuit import Parameter
from qiskit.quantum_info import SparsePauliOp
from qiskit_aer import AerSimulator
from qiskit_aer.backends import controller_wrappers

from . import NotOffered, Prepared, Task

precisions = ("double", "single")


def versions() -> Dict[str, str]:
    return {"qiskit-aer": version("qiskit-aer"), "qiskit": version("qiskit")}


def build() -> str:
    return builds.told("qiskit-aer", controller_wrappers.__file__)


def _options(n: int) -> Dict[str, Dict[str, Any]]:
    options: Dict[str, Dict[str, Any]] = {
        "fusion up to 5 qubits": {},
        "fusion_max_qubit=3": {"fusion_max_qubit": 3},
        "fusion_enable=False": {"fusion_enable": False},
    }
    if n > 10:
        # 16 qubits: 1 MiB in double precision, half a usual second-level cache.
        blocks = min(16, n - 4)
        options[f"blocking_qubits={blocks}"] = {"blocking_enable": True, "blocking_qubits": blocks}
    return options


def settings(kind: str, precision: str, n: int) -> List[str]:
    return list(_options(n))


def _circuit(task: Task) -> Tuple[QuantumCircuit, Dict[Parameter, List[float]]]:
    """The circuit, and in a step the values of its parameters."""
    circuit, values = QuantumCircuit(task.n), {}
    methods = {"PH": "p", "CNOT": "cx"}
    for name, numbers, qubits in task.gates:
        if name == "U":  # Qiskit's first qubit is the less significant
            circuit.unitary(np.reshape(numbers, (2 ** len(qubits), -1)), qubits[::-1])
            continue
        if task.kind == "step" and numbers:
            parameter = Parameter(f"p{len(values)}")
            values[parameter], numbers = list(numbers), (parameter,)
        getattr(circuit, methods.get(name, name.lower()))(*numbers, *qubits)
    if task.kind == "state":
        circuit.save_statevector()
    elif task.kind == "amplitudes":
        circuit.save_amplitudes(cases.amplitude_indices(task.n))
    elif task.kind == "shots":
        circuit.measure_all()
    elif task.kind == "marginal":
        # Aer's first listed qubit is the least significant.
        circuit.save_probabilities(cases.marginal_qubits(task.n)[::-1])
    else:
        terms = [(letters, qubits, coefficient) for coefficient, letters, qubits in task.terms]
        operator = SparsePauliOp.from_sparse_list(terms, num_qubits=task.n)
        circuit.save_expectation_value(operator, range(task.n))
    return circuit, values


def prepare(task: Task, setting: str) -> Prepared:
    if task.kind == "jacobian":
        raise NotOffered("there are no derivatives; Qiskit's come from two runs for each angle")
    circuit, values = _circuit(task)
    simulator = AerSimulator(
        method="statevector",
        precision=task.precision,
        max_parallel_threads=task.threads,
        seed_simulator=11,
        **_options(task.n)[setting],
    )
    shots = cases.SHOTS if task.kind == "shots" else 1

    def call() -> Any:
        result = simulator.run(circuit, shots=shots, parameter_binds=[values] if values else None).result()
        if not result.success:
            raise RuntimeError(result.status)
        return result

    def answer(result: Any) -> Any:
        if task.kind == "shots":
            counts = result.data()["counts"]  # keys such as "0x1f"
            numbers = [int(key, 16) for key in counts]
            return np.array(numbers, dtype=np.uint64), np.array(list(counts.values()))
        label = {"state": "statevector", "marginal": "probabilities", "paulis": "expectation_value", "step": "expectation_value"}
        return np.asarray(result.data()[label.get(task.kind, "amplitudes")])

    # To put values in place of parameters, which its clock leaves out, is a part of a step.
    return Prepared(call, answer, None if values else lambda result: result.results[0].time_taken)
