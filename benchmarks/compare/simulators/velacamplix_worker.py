"""velacamplix: StateVector.run, exact or with fusion; shots, distribution and expectation of the state."""

from __future__ import annotations

from typing import Any, Dict, List, Tuple

import cases
import numpy as np
import velacamplix
from velacamplix import Circuit, Observable, Parameter, StateVector

from . import NotOffered, Prepared, Task

precisions = ("double", "single")


def versions() -> Dict[str, str]:
    return {"velacamplix": velacamplix.__version__, "instruction set": velacamplix._core.instruction_set()}


def settings(kind: str, precision: str, n: int) -> List[str]:
    return ["exact", "fused"] if kind in ("amplitudes", "state", "step") else ["exact"]


def _with_parameters(task: Task) -> Tuple[Circuit, Dict[str, float]]:
    circuit, values = Circuit(task.n), {}
    for name, angles, qubits in task.gates:
        parameters = [Parameter(f"p{len(values)}") for _ in angles]
        getattr(circuit, name.lower())(*parameters, *qubits)
        values.update((parameter.name, angle) for parameter, angle in zip(parameters, angles))
    return circuit, values


def _jacobian(task: Task) -> Prepared:
    circuit, values = _with_parameters(task)
    observables = [Observable([term]) for term in task.observables]
    return Prepared(
        lambda: circuit.jacobian(observables, values, precision=task.precision, threads=task.threads),
        lambda derivatives: derivatives,
    )


def prepare(task: Task, setting: str) -> Prepared:
    if task.kind == "jacobian":
        return _jacobian(task)
    options = {"fusion": True} if setting == "fused" else {}
    try:
        StateVector(1, precision=task.precision).run(Circuit(1).h(0), **options)
    except (TypeError, NotImplementedError) as error:
        raise NotOffered(f"StateVector.run has no fusion yet: {error}") from None

    def fresh() -> StateVector:
        return StateVector(task.n, precision=task.precision, threads=task.threads, seed=11)

    if task.kind == "step":
        template, values = _with_parameters(task)
        energy = Observable(task.terms)
        return Prepared(lambda: fresh().run(template.bind(values), **options).expectation(energy), float)
    circuit = Circuit(task.n)
    for name, numbers, qubits in task.gates:
        if name == "U":
            circuit.matrix(np.reshape(numbers, (2 ** len(qubits), -1)), qubits)
        else:
            getattr(circuit, name.lower())(*numbers, *qubits)

    def state() -> Any:
        return fresh().run(circuit, **options)

    if task.kind == "state":
        return Prepared(state, lambda result: result.array)
    if task.kind == "amplitudes":
        return Prepared(state, lambda result: result.array[cases.amplitude_indices(task.n)])
    if task.kind == "shots":
        return Prepared(
            lambda: state().sample(cases.SHOTS, order="little"),
            lambda outcomes: np.unique(outcomes, return_counts=True),
        )
    if task.kind == "marginal":
        qubits = cases.marginal_qubits(task.n)
        return Prepared(lambda: state().distribution(qubits), lambda probabilities: probabilities)
    observable = Observable(task.terms)
    return Prepared(lambda: state().expectation(observable), float)
