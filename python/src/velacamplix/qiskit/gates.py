"""Which gate of Qiskit's is which of the package's."""

from __future__ import annotations

from typing import Any

import numpy as np
from qiskit.circuit import AnnotatedOperation, ControlModifier, Gate, QuantumCircuit, library

from ..instructions.gates import GATES
from ..instructions.instruction import Instruction
from ..qasm.blocks import block
from ..qasm.qelib1 import GATES as CALLS
from .angles import qiskit_angle

_Gate: Any = Gate

# Gates of Qiskit that qelib1.inc does not have under their name: instruction and number of controls, None for all qubits
# but the last.
_MORE: dict[str, tuple[str, int | None]] = {
    "iswap": ("ISWAP", 0), "ryy": ("ryy", 0), "ccz": ("Z", 2), "cphase": ("PH", 1), "phase": ("PH", 0),
    "csdg": ("sdg", 1), "cs": ("S", 1), "mcx": ("X", None), "mcphase": ("PH", None), "r": ("r", 0), "rzx": ("rzx", 0),
    "ecr": ("ecr", 0), "dcx": ("dcx", 0), "xx_plus_yy": ("xx_plus_yy", 0), "xx_minus_yy": ("xx_minus_yy", 0),
    "rcccx": ("rc3x", 0), "c3sx": ("sx", 3), "global_phase": ("gphase", 0),
}  # fmt: skip

#: By the name of a standard gate of Qiskit's: instruction, controls (None: all qubits but the last), angles.
STANDARD: dict[str, tuple[str, int | None, int]] = {
    name: (gate.step, gate.n_controls, gate.n_params) for name, gate in CALLS.items() if gate.step is not None
}
STANDARD.update({name: (step, n_controls, GATES[step].n_params) for name, (step, n_controls) in _MORE.items()})


#: Gates by their own name, which noise is beside as a whole.
WHOLE = frozenset({*library.get_standard_gate_name_mapping(), "unitary", "diagonal", "mcx", "mcphase", "pauli"})


def known(operation: Any) -> tuple[str, int] | None:
    """Return instruction and number of controls of one of Qiskit's own gates that circuits have too."""
    # Qiskit keeps some of its gates as fast copies of their class.
    kind = getattr(operation, "base_class", type(operation))
    if not str(kind.__module__).startswith("qiskit.circuit.library.standard_gates"):
        return None
    n_controls = getattr(operation, "num_ctrl_qubits", 0)
    if n_controls and operation.ctrl_state != 2**n_controls - 1:
        return None
    found = STANDARD.get(operation.name)
    if found is None or found[2] != len(operation.params):
        return None
    step, n_own, _ = found
    n = operation.num_qubits - 1 if n_own is None else n_own
    return (step, n) if n + GATES[step].n_qubits == operation.num_qubits else None


# --- To Qiskit ---

# Without controls; what is missing becomes a `TableGate`.
_CLASSES: dict[str, Any] = {
    "X": library.XGate, "Y": library.YGate, "Z": library.ZGate, "H": library.HGate, "S": library.SGate, "T": library.TGate,
    "RX": library.RXGate, "RY": library.RYGate, "RZ": library.RZGate, "PH": library.PhaseGate, "CNOT": library.CXGate,
    "CCNOT": library.CCXGate, "CSIGN": library.CZGate, "SWAP": library.SwapGate, "ISWAP": library.iSwapGate,
    "id": library.IGate, "sdg": library.SdgGate, "tdg": library.TdgGate, "sx": library.SXGate, "sxdg": library.SXdgGate,
    "u": library.UGate, "u2": library.U2Gate, "u3": library.U3Gate, "cu": library.CUGate, "r": library.RGate,
    "rxx": library.RXXGate, "ryy": library.RYYGate, "rzz": library.RZZGate, "rzx": library.RZXGate, "dcx": library.DCXGate,
    "xx_plus_yy": library.XXPlusYYGate, "xx_minus_yy": library.XXMinusYYGate, "ecr": library.ECRGate,
    "rccx": library.RCCXGate, "rc3x": library.RC3XGate, "gphase": library.GlobalPhaseGate,
}  # fmt: skip
_CONTROLLED: dict[tuple[str, int], Any] = {
    ("X", 1): library.CXGate, ("X", 2): library.CCXGate, ("Y", 1): library.CYGate, ("Z", 1): library.CZGate,
    ("Z", 2): library.CCZGate, ("H", 1): library.CHGate, ("S", 1): library.CSGate, ("sdg", 1): library.CSdgGate,
    ("sx", 1): library.CSXGate, ("RX", 1): library.CRXGate, ("RY", 1): library.CRYGate, ("RZ", 1): library.CRZGate,
    ("PH", 1): library.CPhaseGate, ("SWAP", 1): library.CSwapGate, ("u3", 1): library.CU3Gate,
}  # fmt: skip


class TableGate(_Gate):  # type: ignore[misc]
    """A gate of this package that Qiskit has not; `to_velacamplix` knows it again.

    Parameters
    ----------
    row : str
        Its name in the package's table.
    params : list
        Its angles.
    """

    def __init__(self, row: str, params: list[Any]) -> None:
        super().__init__(row.lower(), GATES[row].n_qubits, params)
        self.row = row

    def _define(self) -> None:
        made = block(self.row, 0)
        assert made is not None
        inside = QuantumCircuit(made.n_qubits, name=self.name)
        values = dict(zip(made.params, self.params))
        for step in made.body:
            params = [qiskit_angle(value, values) for value in step.params]
            inside.append(qiskit_gate(step, params), step.controls + step.qubits)
        self.definition = inside


def qiskit_gate(step: Instruction, params: list[Any]) -> Any:
    """Return Qiskit's gate for one of the table or by entries, on its controls and then its qubits as `qiskit_qubits` says."""
    n, values = len(step.controls), step.control_values
    state = int(values[::-1], 2) if values else None
    named = _CONTROLLED.get((step.name, n))
    if named is not None:
        return named(*params, ctrl_state=state)
    if n and step.name == "X":
        return library.XGate().control(n, ctrl_state=state, annotated=False)
    if n and step.name == "PH" and not values:
        return library.MCPhaseGate(params[0], n)
    base: Any
    if step.name == "matrix":
        base = library.UnitaryGate(np.array(step.params).reshape(2 ** len(step.qubits), -1))
    elif step.name == "diagonal":
        base = library.DiagonalGate(list(step.params))
    else:
        kind = _CLASSES.get(step.name)
        base = TableGate(step.name, params) if kind is None else kind(*params)
    return under_controls(base, n, state)


def under_controls(gate: Any, n_controls: int, state: int | None) -> Any:
    """Return a gate with controls in front of its qubits, not yet taken apart."""
    return AnnotatedOperation(gate, [ControlModifier(n_controls, state)]) if n_controls else gate
