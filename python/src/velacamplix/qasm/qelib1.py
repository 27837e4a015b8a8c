"""The gates of qelib1.inc, and the two built into the language.

Each becomes one instruction, not the sequence of the file. rz has the phases -phi/2 and +phi/2, so that a gate, its
global phase and its controlled form belong together: cu3 is u3 with a control, crz is rz with a control.
"""

from __future__ import annotations

from collections.abc import Mapping
from typing import NamedTuple

from ..instructions.definition import size
from ..instructions.gates import COMPOSITES
from ..instructions.instruction import GATES as NATIVE
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
    reach : float
        Parameters of no larger absolute value always have a result: all.
    """

    name: str
    step: str | None
    n_controls: int
    n_params: int
    n_qubits: int
    size: int
    can_be_replaced: bool
    reach: float = float("inf")
    opaque: None = None


def _gate(name: str, step: str | None, n_controls: int = 0, n_params: int = 0, later: bool = False) -> LibraryGate:
    if step is None:
        return LibraryGate(name, None, 0, n_params, 1, 1, later)
    shape = COMPOSITES[step] if step in COMPOSITES else NATIVE[step]
    n_steps = size(Instruction(step, ()))
    return LibraryGate(name, step, n_controls, shape.n_params, n_controls + shape.n_qubits, n_steps, later)


def _table(entries: Mapping[str, object], later: bool = False) -> dict[str, LibraryGate]:
    table = {}
    for name, entry in entries.items():
        step, n_controls = entry if isinstance(entry, tuple) else (entry, 0)
        table[name] = _gate(name, step, n_controls, int(name == "u0"), later)  # type: ignore[arg-type]
    return table


#: The gates that need no include.
LANGUAGE: dict[str, LibraryGate] = _table({"U": "u", "CX": "CNOT"})

# Those of arXiv:1707.03429, whose meaning is fixed: name, or name and number of controls, of the instruction.
_STANDARD = {
    "u3": "u3", "u2": "u2", "u1": "PH", "cx": "CNOT", "id": None, "x": "X", "y": "Y", "z": "Z", "h": "H",
    "s": "S", "sdg": "sdg", "t": "T", "tdg": "tdg", "rx": "RX", "ry": "RY", "rz": "RZ", "cz": "CSIGN",
    "cy": ("Y", 1), "ch": ("H", 1), "ccx": "CCNOT", "crz": ("RZ", 1), "cu1": ("PH", 1), "cu3": ("u3", 1),
}  # fmt: skip

#: Those that came with later versions of the file. Programs older than that define some of them themselves, and then
#: mean their own.
LATER: Mapping[str, object] = {
    "u0": None, "u": "u", "p": "PH", "sx": "sx", "sxdg": "sxdg", "swap": "SWAP", "cswap": ("SWAP", 1),
    "crx": ("RX", 1), "cry": ("RY", 1), "cp": ("PH", 1), "csx": ("sx", 1), "cu": "cu", "rxx": "rxx", "rzz": "rzz",
    "rccx": "rccx", "rc3x": "rc3x", "c3x": ("X", 3), "c3sqrtx": ("sx", 3), "c4x": ("X", 4),
}  # fmt: skip

#: What ``include "qelib1.inc";`` declares.
GATES: dict[str, LibraryGate] = {**_table(_STANDARD), **_table(LATER, later=True)}
