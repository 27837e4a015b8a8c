"""Hands gates to the core: one at a time, or a circuit as a program."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any

import numpy as np

from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.instruction import DETAILED, LEAVING, Instruction
from ..programs.compile import require_circuit, require_fusion, too_large
from ..programs.drive import drive
from ..programs.prepare import Prepared, for_state, prepared
from ..programs.progress import ProgressLike, checked, metered

_MATRIX_TYPES = {"single": np.complex64, "double": np.complex128}


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
        return f"instruction {self.position} ({self.instruction.title}): {self.reason}"


def run(
    core: Any, n_qubits: int, precision: Precision, circuit: Circuit, progress: ProgressLike = None, fusion: bool = False
) -> None:
    """Apply the gates of `circuit` to the core's state of `n_qubits`, in order.

    Everything that can be refused is refused before the first gate acts.
    """
    require_circuit(circuit)
    checked(progress)
    fused = require_fusion(fusion)
    if circuit.n_qubits > n_qubits:
        raise ValueError(f"circuit must have at most {n_qubits} qubits, those of the state, got {circuit!r}")

    def make() -> Prepared:
        refuse_unsupported(circuit.instructions)
        return for_state(circuit, n_qubits, precision, fused)

    with prepared(circuit, ("state", n_qubits, precision, fused), make) as found:
        (program,) = found.programs
        with metered(progress, len(program), "gates") as meter:
            drive(core, program, meter.within())


def apply_matrix(
    core: Any, precision: Precision, qubits: Sequence[int], entries: Sequence[complex], controls: Sequence[int]
) -> None:
    """Apply a matrix, given by its entries row by row, to qubits that have been checked."""
    reason = too_large("matrix", entries, precision)
    if reason is not None:
        raise ValueError(reason)
    extension.apply_matrix(core, np.array(entries, dtype=_MATRIX_TYPES[precision]), qubits, controls)


def refuse_unsupported(instructions: Iterable[Instruction]) -> None:
    """Raise UnsupportedInstruction at the first step that needs more than one state, or more than a state."""
    measured: set[int] = set()
    for position, step in enumerate(instructions):
        if step.condition is not None:
            raise UnsupportedInstruction(step, position, "a state has no classical bits for a condition" + _ELSEWHERE)
        if step.is_noise:
            raise UnsupportedInstruction(step, position, "a state vector holds no mixture of states, which noise makes")
        if step.name in DETAILED or step.name in LEAVING:
            what = {"save": "result to save into", "store": "classical bits"}.get(step.name, "classical bits to decide by")
            raise UnsupportedInstruction(step, position, f"a state has no {what}" + _ELSEWHERE)
        if step.name == "reset":
            raise UnsupportedInstruction(step, position, "a reset depends on a random outcome" + _ELSEWHERE)
        if step.name == "measure":
            measured.update(step.qubits)
        elif measured and step.is_gate:
            again = measured.intersection(step.qubits + step.controls)
            if again:
                raise UnsupportedInstruction(
                    step, position, f"it acts on qubit {min(again)} after its measurement" + _ELSEWHERE
                )


_ELSEWHERE = "; velacamplix.run follows all outcomes"
