"""The gates of qelib1.inc, and the two built into the language.

Each becomes one instruction, not the sequence of the file. rz has the phases -phi/2 and +phi/2, so that a gate, its
global phase and its controlled form belong together: cu3 is u3 with a control, crz is rz with a control.
"""

from __future__ import annotations

from typing import NamedTuple

from ..instructions.definition import size
from ..instructions.gates import GATES as GATE_TABLE
from ..instructions.gates import Gate
from ..instructions.instruction import Instruction


class LibraryGate(NamedTuple):
    """A gate that needs no definition.

    Attributes
    ----------
    name : str
        As programs call it.
    step : str or None
        The instruction's name; None for a gate that does nothing.
    n_controls : int
        How many of the first qubits are controls of the instruction.
    n_params, n_qubits : int
    size : int
        Number of instructions of the library it becomes, at least 1: a call costs time even if nothing comes of it.
    can_be_replaced : bool
        Whether it gives way to a file's own declaration of the same name.
    """

    name: str
    step: str | None
    n_controls: int
    n_params: int
    n_qubits: int
    size: int
    can_be_replaced: bool
    opaque: None = None


def _of(gate: Gate, name: str, n_controls: int, later: bool = False) -> LibraryGate:
    n_steps = size(Instruction(gate.name, ()))
    return LibraryGate(name, gate.name, n_controls, gate.n_params, n_controls + gate.n_qubits, n_steps, later)


#: The gates that need no include.
LANGUAGE: dict[str, LibraryGate] = {"U": _of(GATE_TABLE["u"], "U", 0), "CX": _of(GATE_TABLE["CNOT"], "CX", 0)}

#: Those that came with later versions of the file. Programs older than that define some of them themselves, and then
#: mean their own.
LATER: dict[str, LibraryGate] = {
    name: _of(gate, name, n_controls, later=True)
    for gate in GATE_TABLE.values()
    for name, n_controls in gate.later.items()
}
LATER["u0"] = LibraryGate("u0", None, 0, 1, 1, 1, True)

#: What ``include "qelib1.inc";`` declares: those of arXiv:1707.03429, whose meaning is fixed, and the later ones.
GATES: dict[str, LibraryGate] = {
    **{name: _of(gate, name, n_controls) for gate in GATE_TABLE.values() for name, n_controls in gate.qasm.items()},
    **LATER,
}
