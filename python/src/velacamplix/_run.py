"""Hands gates to the core: one at a time, or a circuit in long stretches."""

from __future__ import annotations

from typing import Any, Iterable, Optional, Sequence, Set

import numpy as np

from . import _check, _core
from .circuit import Circuit
from .instruction import Instruction

# The names the core's circuit record knows; its gates carry no controls.
_RECORDED = frozenset({"H", "X", "Y", "Z", "RX", "RY", "RZ", "PH", "T", "CNOT", "SWAP"})
_RECORD_TYPES = {"single": _core.CircuitRecordSingle, "double": _core.CircuitRecordDouble}
_MATRIX_TYPES = {"single": np.complex64, "double": np.complex128}
_LARGEST_SINGLE = float(np.finfo(np.float32).max)


class UnsupportedInstruction(NotImplementedError):
    """A circuit holds a step that this way of running it does not offer.

    Attributes
    ----------
    instruction : Instruction
    position : int
        Place of the instruction in the circuit, counted from 0.
    reason : str
    """

    def __init__(self, instruction: Instruction, position: int, reason: str) -> None:
        # The three as they came, so that the exception can be pickled; the text is made below.
        super().__init__(instruction, position, reason)
        self.instruction = instruction
        self.position = position
        self.reason = reason

    def __str__(self) -> str:
        return f"instruction {self.position} ({self.instruction}): {self.reason}"


def run(core: Any, n_qubits: int, precision: str, circuit: Circuit) -> None:
    """Apply the gates of `circuit` to the core's state of `n_qubits`, in order.

    Everything that can be refused is refused before the first gate acts.
    """
    if not isinstance(circuit, Circuit):
        raise TypeError(f"circuit must be a Circuit, got {_check.show(circuit)}")
    if circuit.n_qubits > n_qubits:
        raise ValueError(f"circuit must have at most {n_qubits} qubits, those of the state, got {circuit!r}")
    instructions = circuit.instructions
    refuse_unsupported(instructions, precision)

    record = _RECORD_TYPES[precision](n_qubits)
    for step in instructions:
        if step.is_gate and step.name in _RECORDED and not step.controls:
            record.add_gate(step.name, step.params, step.qubits)
        elif step.is_gate:
            record = _replay(core, n_qubits, precision, record)
            apply(core, precision, step.name, step.qubits, step.params, step.controls)
    _replay(core, n_qubits, precision, record)


def apply(
    core: Any,
    precision: str,
    name: str,
    qubits: Sequence[int],
    params: Sequence[complex] = (),
    controls: Sequence[int] = (),
) -> None:
    """Apply one gate of `instruction.GATES`, or "matrix", whose qubits have been checked."""
    reason = _too_large(name, params, precision)
    if reason is not None:
        raise ValueError(reason)
    if name == "matrix":
        matrix: np.ndarray = np.array(params, dtype=_MATRIX_TYPES[precision])
        _core.apply_matrix(core, matrix, qubits, controls)
        return
    gate = getattr(core, name.lower())
    if len(qubits) > 1:
        gate(*qubits)
        return
    # None rather than an empty list: without controls some gates have a shorter way.
    gate(*qubits, *params, controls or None)


def refuse_unsupported(instructions: Iterable[Instruction], precision: str) -> None:
    """Raise UnsupportedInstruction, or ValueError for an angle out of range, at the first step that cannot run."""
    measured: Set[int] = set()
    for position, step in enumerate(instructions):
        if step.condition is not None:
            raise UnsupportedInstruction(step, position, "conditions on classical bits cannot be run yet")
        if step.name == "reset":
            raise UnsupportedInstruction(step, position, "resetting single qubits cannot be run yet")
        if step.name == "measure":
            measured.update(step.qubits)
        elif step.is_gate:
            again = measured.intersection(step.qubits + step.controls)
            if again:
                raise UnsupportedInstruction(
                    step,
                    position,
                    f"it acts on qubit {min(again)} after its measurement; only measurements at the end can be run yet",
                )
            reason = _too_large(step.name, step.params, precision)
            if reason is not None:
                raise ValueError(f"instruction {position} ({step}): {reason}")


def _replay(core: Any, n_qubits: int, precision: str, record: Any) -> Any:
    if len(record) == 0:
        return record
    core.simulate_circuit(record)
    return _RECORD_TYPES[precision](n_qubits)


def _too_large(name: str, params: Sequence[complex], precision: str) -> Optional[str]:
    # In double precision everything finite fits, and the caller has seen that it is finite.
    if precision == "double":
        return None
    for value in params:
        if max(abs(value.real), abs(value.imag)) > _LARGEST_SINGLE:
            return f"{'matrix entry' if name == 'matrix' else 'angle'} must fit single precision, got {value!r}"
    return None
