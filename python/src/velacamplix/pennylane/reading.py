"""Circuits from PennyLane's tapes and lists of operations."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.operation import Channel as PennyLaneChannel
from pennylane.operation import Operator, StatePrepBase
from pennylane.ops.op_math import Conditional
from pennylane.tape import QuantumScript

from ..basics import checks
from ..circuit.circuit import Circuit
from ..instructions.condition import AnyCondition
from ..instructions.instruction import Instruction
from ..instructions.tried import tried
from ..qasm.meaning import MOST_BITS
from . import gates
from .channels import channel_steps
from .errors import NotConverted

#: The operation that `pennylane.measure` adds: its name has changed.
MidMeasure: Any = getattr(qml.ops, "MidMeasure", None) or qml.measurements.MidMeasureMP

MeasurementValue: Any = getattr(qml.ops, "MeasurementValue", None) or qml.measurements.MeasurementValue

# Nothing happens in these.
_NOTHING = (qml.Barrier, qml.WireCut, qml.Snapshot)

# Templates are made of others, which are made of others.
_DEEPEST = 100


def to_velacamplix(circuit: Any, wire_order: Sequence[Any] | None = None) -> Circuit:
    """Return the circuit that the operations of a tape, or a list of operations, make; the global phase included.

    Parameters
    ----------
    circuit : pennylane.tape.QuantumScript or sequence of pennylane.operation.Operator
        Its numbers must be known and not batched. What a tape measures at its end (``expval`` and so on) asks for results,
        and is no part of the circuit.
    wire_order : sequence, optional
        The label of every qubit. By default wire w is qubit w if all labels are integers that are not negative, and
        otherwise qubits follow the order in which labels occur.

    Returns
    -------
    Circuit
        Gates that a circuit has become these, others what PennyLane makes of them, or their matrix if it makes nothing of
        them. The i-th mid-circuit measurement writes classical bit i, ``cond`` becomes a condition, channels stay channels.

    Raises
    ------
    TypeError
        If `circuit` is neither.
    NotConverted
        If there is something that a circuit cannot say: postselection, batches of parameters, a matrix that is not unitary,
        operations that are made of nothing. It has the operation, its position and the reason. A ``ValueError``.

    Examples
    --------
    >>> import pennylane as qml
    >>> print(to_velacamplix([qml.Hadamard(0), qml.CNOT([0, 1]), qml.IsingXX(0.5, [1, 2])]))
    H 0
    CNOT 0,1
    rxx(0.5) 1,2
    """
    operations = listed(circuit)
    places = places_of(circuit if isinstance(circuit, QuantumScript) else QuantumScript(operations), wire_order)
    reading = Reading(places)
    made: list[Instruction] = []
    for position, op in enumerate(operations):
        try:
            made += reading.steps(op, position == 0)
        except (TypeError, ValueError) as error:
            raise NotConverted.at(error, gates.named(op), position) from None
    try:
        return Circuit.from_instructions(made, len(places), len(reading.clbits))
    except (TypeError, ValueError, IndexError) as error:
        raise NotConverted(str(error)) from None


def listed(circuit: Any) -> Sequence[Any]:
    """Return the operations of a tape or a list."""
    if isinstance(circuit, QuantumScript):
        return list(circuit.operations)
    if isinstance(circuit, Operator):
        return [circuit]
    hint = "; a QNode gives one by qml.workflow.construct_tape(qnode)(...)" if isinstance(circuit, qml.QNode) else ""
    if not checks.is_list(circuit):
        raise TypeError(f"circuit must be a tape of PennyLane's or a list of its operations, got {checks.show(circuit)}{hint}")
    for place, op in enumerate(circuit):
        if not isinstance(op, (Operator, MidMeasure)):
            raise TypeError(f"circuit[{place}] must be an operation of PennyLane's, got {checks.show(op)}")
    return list(circuit)


def places_of(script: Any, wire_order: Sequence[Any] | None) -> dict[Any, int]:
    """Return the qubit of each label."""
    labels = script.wires.tolist()
    if wire_order is not None:
        order = qml.wires.Wires(wire_order).tolist()
        there = set(order)
        missing = [label for label in labels if label not in there]
        if missing:
            raise ValueError(f"wire_order must have all wires of the circuit, got {order!r} without {missing[0]!r}")
    elif all(type(label) is int and label >= 0 for label in labels):
        count = max(labels, default=-1) + 1
        if count > MOST_BITS:
            raise NotConverted(f"a circuit has at most {MOST_BITS} qubits, got wire {max(labels)}; wire_order numbers wires anew")
        order = list(range(count))
    else:
        order = labels
    return {label: place for place, label in enumerate(order)}


def numbers(op: Any) -> list[float]:
    """Return the angles of a gate.

    Raises
    ------
    NotConverted
        If one is no finite real number, but for example a batch of them.
    """
    return [number(value, op) for value in op.data]


def number(value: Any, op: Any) -> float:
    """Return an angle of a gate, whose name messages tell unless it is None."""
    told = None if op is None else gates.named(op)
    if np.ndim(value) > 0:
        raise NotConverted(
            f"parameters must be numbers, got a batch of shape {np.shape(value)}; qml.transforms.broadcast_expand makes a "
            "tape of each",
            told,
        )
    try:
        return checks.angle(qml.math.toarray(value).item() if not isinstance(value, float) else value)
    except (TypeError, ValueError) as error:
        raise NotConverted(str(error), told) from None


class Reading:
    """Converts operations one after another, and knows the classical bit of each measurement."""

    def __init__(self, places: Mapping[Any, int]) -> None:
        self._places = places
        self.clbits: dict[Any, int] = {}

    def steps(self, op: Any, is_first: bool = False, depth: int = 0) -> list[Instruction]:
        """Return what an operation becomes."""
        if isinstance(op, MidMeasure):
            return self._measured(op)
        qubits = tuple([self._places[wire] for wire in op.wires.labels])
        if isinstance(op, Conditional):
            return self._conditioned(op, depth)
        if isinstance(op, _NOTHING):
            return [Instruction("barrier", qubits)] if isinstance(op, qml.Barrier) and qubits else []
        if isinstance(op, StatePrepBase) and is_first:
            return prepared(op, qubits)
        if isinstance(op, PennyLaneChannel):
            return channel_steps(op, qubits)
        if gates.has_angles(op):
            return gates.steps(op, qubits, numbers(op))
        if gates.is_known(op):
            return gates.steps(op, qubits, op.data)
        if op.has_decomposition:
            if depth > _DEEPEST:
                raise NotConverted("PennyLane's decomposition does not end")
            with qml.queuing.QueuingManager.stop_recording():
                parts = op.decomposition()
            return [step for part in parts for step in self.steps(part, False, depth + 1)]
        raise NotConverted("PennyLane neither says what it is made of nor has a matrix for it")

    def _measured(self, op: Any) -> list[Instruction]:
        if op.postselect is not None:
            raise NotConverted("a circuit has no postselection; the device velacamplix.qubit has")
        (qubit,) = [self._places[wire] for wire in op.wires.labels]
        clbit = self.clbits.setdefault(op, len(self.clbits))
        measured = [Instruction("measure", (qubit,), (), (), (clbit,))]
        return [*measured, Instruction("reset", (qubit,))] if op.reset else measured

    def _conditioned(self, op: Any, depth: int) -> list[Instruction]:
        asked = condition(op.meas_val, self.clbits)
        if isinstance(asked, bool):
            return self.steps(op.base, False, depth + 1) if asked else []
        return [step._replace(condition=asked) for step in self.steps(op.base, False, depth + 1) if step.name != "barrier"]


def condition(asked: Any, clbits: Mapping[Any, int]) -> AnyCondition | bool:
    """Return what a measurement value asks for; True or False if the answer is always that."""
    unknown = [measurement for measurement in asked.measurements if measurement not in clbits]
    if unknown:
        raise NotConverted("its condition is about a measurement that has not been made")
    bits = [clbits[measurement] for measurement in asked.measurements]
    # PennyLane lists measurements in an order that differs from day to day.
    order = sorted(bits)
    places = [order.index(bit) for bit in bits]
    return tried(order, asked, lambda number: asked.processing_fn(*[number >> place & 1 for place in places]))


def prepared(op: Any, qubits: tuple[int, ...]) -> list[Instruction]:
    """Return gates that make a state of 0."""
    state = np.asarray(op.state_vector(), dtype=np.complex128).reshape(-1)
    if state.size != 2 ** len(qubits):
        raise NotConverted("parameters must be those of one state, got a batch")
    made = Circuit(len(qubits)).initialize(state, order="big")
    # Qubits are 0 here, so that the reset at its beginning does nothing.
    return [
        step._replace(qubits=tuple([qubits[place] for place in step.qubits])) for step in made if step.name != "reset"
    ]


def initial_amplitudes(op: Any, places: Mapping[Any, int]) -> np.ndarray:
    """Return the state that a tape begins with, its first qubit the highest bit of an index."""
    order = sorted(places, key=places.__getitem__)
    amplitudes = np.asarray(qml.math.toarray(op.state_vector(wire_order=order)), dtype=np.complex128).reshape(-1)
    if amplitudes.size != 2 ** len(places):
        raise NotConverted("parameters must be those of one state, got a batch", gates.named(op), 0)
    return amplitudes


__all__ = ["to_velacamplix"]
