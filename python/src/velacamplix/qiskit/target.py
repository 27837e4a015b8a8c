"""What a backend takes as it is: the instructions that transpiling leaves whole."""

from __future__ import annotations

from collections.abc import Container
from typing import Any

import qiskit.circuit
from qiskit.circuit import (
    Barrier,
    BreakLoopOp,
    ContinueLoopOp,
    Delay,
    ForLoopOp,
    IfElseOp,
    Instruction,
    Measure,
    Parameter,
    Reset,
    SwitchCaseOp,
    WhileLoopOp,
    library,
)
from qiskit.transpiler import Target

from .noise import CHANNELS
from .saves import NAMES, SETTING

# Of any number of qubits, by their class.
_WIDE: dict[str, Any] = {
    "barrier": Barrier, "mcx": library.MCXGate, "mcphase": library.MCPhaseGate, "unitary": library.UnitaryGate,
    "diagonal": library.DiagonalGate, "permutation": library.PermutationGate, "initialize": library.Initialize,
    "PauliEvolution": library.PauliEvolutionGate,
}  # fmt: skip
_NO_GATES = frozenset({"measure", "reset", "delay"})
_WIDE_GATES = frozenset(_WIDE) - {"barrier", "initialize"}
_FLOW: dict[str, Any] = {
    "if_else": IfElseOp, "switch_case": SwitchCaseOp, "while_loop": WhileLoopOp, "for_loop": ForLoopOp,
    "break_loop": BreakLoopOp, "continue_loop": ContinueLoopOp,
}  # fmt: skip
_NEWER = {"box": "BoxOp", "store": "Store"}  # those that not every version of Qiskit has


def target(basis: Container[str] | None = None) -> Any:
    """Return a target of any number of qubits, all of them next to each other, with gates of all names or of some."""
    made = Target(description="velacamplix", num_qubits=None)
    for name, gate in library.get_standard_gate_name_mapping().items():
        if name not in _NO_GATES and (basis is None or name in basis):
            made.add_instruction(gate, name=name)
    for name, others in (("measure", Measure()), ("reset", Reset()), ("delay", Delay(Parameter("t")))):
        made.add_instruction(others, name=name)
    newer = {name: getattr(qiskit.circuit, kind) for name, kind in _NEWER.items() if hasattr(qiskit.circuit, kind)}
    for name, kind in {**_WIDE, **_FLOW, **newer}.items():
        if name not in _WIDE_GATES or basis is None or name in basis:
            made.add_instruction(kind, name=name)
    for name in sorted({*NAMES, *SETTING, *CHANNELS}):
        made.add_instruction(Instruction, name=name)
    return made
