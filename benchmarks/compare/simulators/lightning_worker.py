"""PennyLane Lightning: device lightning.qubit in either c_dtype, given finished tapes."""

from __future__ import annotations

from importlib.metadata import version
from typing import Any, Dict, List

import builds
import cases
import numpy as np
import pennylane as qml
from pennylane_lightning import lightning_qubit_ops

from . import Prepared, Task

precisions = ("double", "single")
_GATES = {
    "H": qml.Hadamard,
    "T": qml.T,
    "RX": qml.RX,
    "RY": qml.RY,
    "RZ": qml.RZ,
    "PH": qml.PhaseShift,
    "CNOT": qml.CNOT,
}
_PAULIS = {"X": qml.X, "Y": qml.Y, "Z": qml.Z}


def versions() -> Dict[str, str]:
    return {"pennylane-lightning": version("pennylane-lightning"), "pennylane": version("pennylane")}


def build() -> str:
    return builds.told("pennylane-lightning", lightning_qubit_ops.__file__)


def settings(kind: str, precision: str, n: int) -> List[str]:
    return ["batch_obs=False", "batch_obs=True"] if kind in ("paulis", "step", "jacobian") else ["lightning.qubit"]


def _operation(name: str, numbers: Any, wires: List[int]) -> Any:
    if name == "U":
        return qml.QubitUnitary(np.reshape(numbers, (2 ** len(wires), -1)), wires=wires)
    return _GATES[name](*numbers, wires=wires)


def prepare(task: Task, setting: str) -> Prepared:
    # Wire 0 is the most significant bit; so that qubit q becomes bit q, it goes on wire n - 1 - q.
    def wires(qubits: Any) -> List[int]:
        return [task.n - 1 - q for q in qubits]

    operations = [_operation(name, numbers, wires(qubits)) for name, numbers, qubits in task.gates]
    device = qml.device(
        "lightning.qubit",
        wires=task.n,
        c_dtype=np.complex128 if task.precision == "double" else np.complex64,
        batch_obs=setting == "batch_obs=True",
        seed=11,
    )

    def tape(measurement: Any, shots: Any = None) -> Any:
        # Its operations are the device's own, so that nothing is left for the device's preprocessing to decompose.
        made = qml.tape.QuantumScript(operations, [measurement], shots=shots)
        return lambda: device.execute([made])[0]

    if task.kind == "state":
        return Prepared(tape(qml.state()), lambda state: state)
    if task.kind == "amplitudes":
        # The cheapest thing to ask for. The device keeps the state, from which the amplitudes are then read, untimed.
        indices = cases.amplitude_indices(task.n)
        return Prepared(tape(qml.expval(qml.Z(0))), lambda _: device._statevector.state[indices])
    if task.kind == "shots":
        weights = 2 ** np.arange(task.n, dtype=np.uint64)[::-1]
        return Prepared(
            tape(qml.sample(wires=range(task.n)), cases.SHOTS),
            lambda bits: np.unique(np.asarray(bits).astype(np.uint64) @ weights, return_counts=True),
        )
    if task.kind == "marginal":
        return Prepared(tape(qml.probs(wires=wires(cases.marginal_qubits(task.n)))), np.asarray)
    terms = task.observables if task.kind == "jacobian" else task.terms
    products = [
        qml.prod(*(_PAULIS[letter](wire) for letter, wire in zip(letters, wires(qubits))))
        for _, letters, qubits in terms
    ]
    if task.kind == "jacobian":
        made = qml.tape.QuantumScript(operations, [qml.expval(product) for product in products])
        made.trainable_params = list(range(sum(len(angles) for _, angles, _ in task.gates)))
        adjoint = qml.devices.ExecutionConfig(gradient_method="adjoint", use_device_gradient=True)
        return Prepared(
            lambda: device.compute_derivatives([made], adjoint)[0],
            lambda rows: np.array(rows, dtype=np.float64).reshape(len(terms), -1),
        )
    observable = qml.Hamiltonian([coefficient for coefficient, _, _ in terms], products)
    if task.kind == "paulis":
        return Prepared(tape(qml.expval(observable)), float)
    template = qml.tape.QuantumScript(operations, [qml.expval(observable)])
    values = [angle for _, angles, _ in task.gates for angle in angles]
    return Prepared(lambda: device.execute([template.bind_new_parameters(values, range(len(values)))])[0], float)
