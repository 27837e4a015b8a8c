"""What a backend takes as it is: the instructions that transpiling leaves whole."""

from __future__ import annotations

from typing import Any

import qiskit.circuit
from qiskit.circuit import (
    Barrier,
    BreakLoopOp,
    ContinueLoopOp,
    Delay,
    ForLoopOp,
    IfElseOp,
    Parameter,
    SwitchCaseOp,
    WhileLoopOp,
    library,
)
from qiskit.transpiler import Target

# Of any number of qubits, by their class.
_WIDE: dict[str, Any] = {
    "barrier": Barrier, "mcx": library.MCXGate, "mcphase": library.MCPhaseGate, "unitary": library.UnitaryGate,
    "diagonal": library.DiagonalGate, "permutation": library.PermutationGate, "initialize": library.Initialize,
    "PauliEvolution": library.PauliEvolutionGate,
}  # fmt: skip
_FLOW: dict[str, Any] = {
    "if_else": IfElseOp, "switch_case": SwitchCaseOp, "while_loop": WhileLoopOp, "for_loop": ForLoopOp,
    "break_loop": BreakLoopOp, "continue_loop": ContinueLoopOp,
}  # fmt: skip
_NEWER = {"box": "BoxOp", "store": "Store"}  # those that not every version of Qiskit has


def target() -> Any:
    """Return a target of any number of qubits, all of them next to each other."""
    made = Target(description="velacamplix", num_qubits=None)
    for name, gate in library.get_standard_gate_name_mapping().items():
        if name != "delay":
            made.add_instruction(gate, name=name)
    made.add_instruction(Delay(Parameter("t")), name="delay")
    newer = {name: getattr(qiskit.circuit, kind) for name, kind in _NEWER.items() if hasattr(qiskit.circuit, kind)}
    for name, kind in {**_WIDE, **_FLOW, **newer}.items():
        made.add_instruction(kind, name=name)
    return made
