"""From instructions to programs of the core."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from ..basics import checks
from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.flow import bodies_of
from ..instructions.instruction import BY_ENTRIES, Instruction
from ..machine import memory

_PROGRAM_TYPES: dict[str, Any] = {"single": extension.ProgramSingle, "double": extension.ProgramDouble}
# Gates between two looks at signals.
_PIECE = 2**15
# Numbers of a gate whose memory is asked for.
_LARGE = 2**10
_LARGEST_SINGLE = float(np.finfo(np.float32).max)


def require_circuit(circuit: Any, name: str = "circuit") -> Circuit:
    """Return `circuit` if it is one."""
    if isinstance(circuit, Circuit):
        return circuit
    hint = "; Circuit.from_qasm reads a file or a text" if isinstance(circuit, str) else ""
    package = type(circuit).__module__.partition(".")[0]
    if package in ("qiskit", "cirq", "pennylane"):
        hint = f"; Circuit.from_{package}(circuit) makes one of it"
    raise TypeError(f"{name} must be a Circuit, got {checks.show(circuit)}{hint}")


def require_fusion(fusion: Any) -> bool:
    """Return whether neighbouring gates may be multiplied together first."""
    return checks.flag(fusion, "fusion")


def compiled(
    gates: Sequence[Instruction],
    n_qubits: int,
    precision: Precision,
    circuit: Circuit,
    places: Sequence[int],
    fusion: bool = False,
) -> Any:
    """Return a program of the core for a state of `n_qubits`.

    Parameters
    ----------
    gates : sequence of Instruction
        The library's own. Their conditions are not looked at.
    circuit : Circuit
        Where they come from; error messages name its instructions.
    places : sequence of int
        The state's qubit for each of the circuit's.
    fusion : bool
        Whether neighbouring gates may be multiplied together.

    Raises
    ------
    ValueError
        If an entry of a matrix does not fit the precision.
    MemoryError
        If the entries of large matrices do not fit.
    """
    # Once as the core reads them and once as it keeps them.
    entries = sum([len(gate.params) for gate in gates if len(gate.params) >= _LARGE])
    memory.require_bytes(2 * memory.BYTES_PER_AMPLITUDE[precision] * entries, f"gates of {entries} entries")
    program = _PROGRAM_TYPES[precision](n_qubits)
    program.set_fusion(fusion)
    for start in range(0, len(gates), _PIECE):
        piece = gates[start : start + _PIECE]
        taken = program.add(piece, places)
        if taken < len(piece):
            refused = piece[taken]
            raise ValueError(f"{described(refused, circuit)}: {too_large(refused.name, refused.params, precision)}")
    return program


def described(step: Instruction, circuit: Circuit) -> str:
    """Return how a message names a step of a circuit, with its place if the circuit has it as it is."""
    for position, instruction in enumerate(circuit.instructions):
        if instruction is step:
            return f"instruction {position} ({step.title})"
        if instruction.detail is not None and _is_inside(step, instruction):
            return f"{step.title!r} inside of instruction {position} ({instruction.title})"
    return f"{'a gate made of others' if step.is_gate else 'an instruction'} ({step.title})"


def _is_inside(step: Instruction, holder: Instruction) -> bool:
    return any([inner is step or _is_inside(step, inner) for body in bodies_of(holder) for inner in body])


def too_large(name: str, params: Sequence[Any], precision: Precision) -> str | None:
    """Return what is wrong with a gate's numbers, or None. They have been found finite before; angles may be any."""
    if precision == "double" or name not in BY_ENTRIES:
        return None
    for value in params:
        if max(abs(value.real), abs(value.imag)) > _LARGEST_SINGLE:
            return f"{name} entry must fit single precision, got {value!r}"
    return None
