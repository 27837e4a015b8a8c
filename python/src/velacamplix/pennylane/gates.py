"""Which gate of PennyLane's is which of the package's."""

from __future__ import annotations

import functools
import math
from collections.abc import Callable, Sequence
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.ops.op_math import Adjoint, Controlled

from ..basics import checks
from ..instructions import checked
from ..instructions.gates import with_controls
from ..instructions.instruction import Instruction
from ..instructions.many_qubit_methods import rotation
from ..qasm.modifiers import controlled, inverse
from .errors import NotConverted

Qubits = tuple[int, ...]
Params = Sequence[Any]

#: Gates with the same angles on the same qubits: instruction, and how many qubits come first that control it.
DIRECT: dict[type, tuple[str, int]] = {
    qml.PauliX: ("X", 0), qml.PauliY: ("Y", 0), qml.PauliZ: ("Z", 0), qml.Hadamard: ("H", 0), qml.S: ("S", 0),
    qml.T: ("T", 0), qml.SX: ("sx", 0), qml.CNOT: ("CNOT", 0), qml.CZ: ("CSIGN", 0), qml.CY: ("Y", 1), qml.CH: ("H", 1),
    qml.SWAP: ("SWAP", 0), qml.ISWAP: ("ISWAP", 0), qml.ECR: ("ecr", 0), qml.CSWAP: ("SWAP", 1), qml.Toffoli: ("CCNOT", 0),
    qml.CCZ: ("Z", 2), qml.RX: ("RX", 0), qml.RY: ("RY", 0), qml.RZ: ("RZ", 0), qml.PhaseShift: ("PH", 0),
    qml.U1: ("PH", 0), qml.U2: ("u2", 0), qml.U3: ("u3", 0), qml.CRX: ("RX", 1), qml.CRY: ("RY", 1), qml.CRZ: ("RZ", 1),
    qml.ControlledPhaseShift: ("PH", 1), qml.IsingXX: ("rxx", 0), qml.IsingYY: ("ryy", 0), qml.IsingZZ: ("rzz", 0),
}  # fmt: skip

Make = Callable[[Any, Qubits, Params], list[Instruction]]


def _phase(angle: Any, controls: Qubits = (), values: str = "") -> Instruction:
    """Return exp(i angle), where the controls read these values."""
    return with_controls("gphase", (), controls, (angle,), values)


def _rot(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    # RZ(omega) RY(theta) RZ(phi) is U but for a phase.
    phi, theta, omega = p
    return [Instruction("u3", q, (theta, omega, phi)), _phase(-(phi + omega) / 2)]


def _crot(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    return controlled(_rot(op, q[1:], p), q[:1], "1")


def _exchange(name: str, sign: int) -> Make:
    """A rotation of 01 and 10 into each other: a CNOT makes them differ in their first qubit alone."""

    def make(op: Any, q: Qubits, p: Params) -> list[Instruction]:
        ends = Instruction("CNOT", q)
        angle = p[0] if p else math.pi / 2
        return [ends, Instruction(name, q[:1], (sign * angle,), q[1:]), ends]

    return make


def _pswap(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    ends = Instruction("CNOT", q)
    return [Instruction("SWAP", q), ends, Instruction("PH", q[1:], (p[0],)), ends]


def _with_phase(make: Make, sign: int) -> Make:
    """A gate that multiplies what it does not rotate by exp(i sign angle / 2)."""

    def made(op: Any, q: Qubits, p: Params) -> list[Instruction]:
        half = sign * p[0] / 2
        parts = [_phase(half)]
        for step in make(op, q, p):
            if step.controls:  # the rotation
                parts.append(_phase(-half, step.controls, step.control_values))
            parts.append(step)
        return parts

    return made


def _double_excitation(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    # CNOTs make 0011 and 1100 differ in their first qubit alone.
    ends = [Instruction("CNOT", (q[0], other)) for other in q[1:]]
    return [*ends, Instruction("RY", q[:1], (p[0],), q[1:], control_values="011"), *ends]


def _phase_where(values: str) -> Make:
    return lambda op, q, p: [_phase(p[0], q, values)]


def _multi_rz(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    return rotation([("Z", qubit) for qubit in q], p[0])


def _pauli_rot(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    word = op.hyperparameters["pauli_word"]
    return rotation([(letter, qubit) for letter, qubit in zip(word, q) if letter != "I"], p[0])


def _multi_controlled_x(op: Any, q: Qubits, p: Params) -> list[Instruction]:
    n = len(op.control_wires)
    return [with_controls("X", q[n:], q[:n], (), _values(op.control_values))]


#: Other gates whose numbers are angles.
MADE: dict[type, Make] = {
    qml.Identity: lambda op, q, p: [],
    qml.GlobalPhase: lambda op, q, p: [_phase(-p[0])],
    qml.Rot: _rot,
    qml.CRot: _crot,
    qml.IsingXY: _exchange("RX", -1),
    qml.SISWAP: _exchange("RX", -1),
    qml.PSWAP: _pswap,
    qml.SingleExcitation: _exchange("RY", 1),
    qml.SingleExcitationPlus: _with_phase(_exchange("RY", 1), 1),
    qml.SingleExcitationMinus: _with_phase(_exchange("RY", 1), -1),
    qml.DoubleExcitation: _double_excitation,
    qml.DoubleExcitationPlus: _with_phase(_double_excitation, 1),
    qml.DoubleExcitationMinus: _with_phase(_double_excitation, -1),
    qml.CPhaseShift00: _phase_where("00"),
    qml.CPhaseShift01: _phase_where("01"),
    qml.CPhaseShift10: _phase_where("10"),
    qml.MultiRZ: _multi_rz,
    qml.PauliRot: _pauli_rot,
    qml.MultiControlledX: _multi_controlled_x,
}


def _values(values: Sequence[Any]) -> str:
    text = "".join(["1" if value else "0" for value in values])
    return text if "0" in text else ""


# --- Gates whose numbers are entries ---


def _matrix(op: Any, q: Qubits) -> list[Instruction]:
    given = op.matrix() if op.has_matrix else op.sparse_matrix().toarray()
    entries = checks.matrix(np.asarray(given), len(q))
    return [Instruction("matrix", q, checks.plain_entries(entries))]


def _diagonal(op: Any, q: Qubits) -> list[Instruction]:
    return [Instruction("diagonal", q, checked.diagonal(np.asarray(op.data[0]), len(q)))]


def _pc_phase(op: Any, q: Qubits) -> list[Instruction]:
    angle, dimension = float(op.data[0]), int(op.hyperparameters["dimension"][0])
    turn = complex(math.cos(angle), math.sin(angle))
    return [Instruction("diagonal", q, (turn,) * dimension + (turn.conjugate(),) * (2 ** len(q) - dimension))]


_ENTRIES: dict[type, Callable[[Any, Qubits], list[Instruction]]] = {
    qml.QubitUnitary: _matrix,
    qml.BlockEncode: _matrix,
    qml.DiagonalQubitUnitary: _diagonal,
    qml.PCPhase: _pc_phase,
}


@functools.cache
def _is_controlled(kind: Any) -> bool:
    return kind in DIRECT and issubclass(kind, Controlled)


def labels(op: Any) -> tuple[Any, ...]:
    """Return the labels of a gate's wires."""
    kind: Any = type(op)
    if _is_controlled(kind):  # PennyLane puts their wires together each time they are asked for
        found: tuple[Any, ...] = op.control_wires.labels + op.base.wires.labels
        return found
    found = op.wires.labels
    return found


def has_angles(op: Any) -> bool:
    """Whether all numbers of a gate are angles of gates here."""
    kind = type(op)
    if kind in DIRECT or kind in MADE:
        return True
    return isinstance(op, (Adjoint, Controlled)) and has_angles(op.base)


def is_plain(op: Any) -> bool:
    """Whether a gate has a name here and each of its numbers is one number: what nothing needs to be done with before."""
    kind = type(op)
    if kind not in DIRECT and kind not in MADE:
        return False
    data = op.data
    return not data or all([type(value) in (float, int) or getattr(value, "ndim", None) == 0 for value in data])


def is_known(op: Any) -> bool:
    """Whether a gate becomes gates here as it is, without what PennyLane makes of it."""
    kind = type(op)
    if kind in DIRECT or kind in MADE or kind in _ENTRIES:
        return True
    if isinstance(op, (Adjoint, Controlled)) and is_known(op.base):
        return True
    return bool(op.has_matrix and not op.has_decomposition)


def steps(op: Any, qubits: Qubits, params: Params) -> list[Instruction]:
    """Return what a known gate becomes.

    Parameters
    ----------
    op : pennylane.operation.Operator
    qubits : tuple of int
        The number of each of its wires.
    params : sequence
        For each of its data a number or, where `has_angles`, also an expression.

    Raises
    ------
    NotConverted
        If its numbers are not those of a gate.
    """
    kind = type(op)
    found = DIRECT.get(kind)
    if found is not None:
        name, n = found
        return [Instruction(name, qubits[n:], tuple(params), qubits[:n])]
    make = MADE.get(kind)
    if make is not None:
        return make(op, qubits, params)
    if isinstance(op, Adjoint):
        return inverse(steps(op.base, qubits, params))
    if isinstance(op, Controlled) and is_known(op.base):
        n = len(op.control_wires)
        # Its wires are the controls, then those of the base.
        return controlled(steps(op.base, qubits[n:], params), qubits[:n], _values(op.control_values) or "1" * n)
    try:
        return _ENTRIES.get(kind, _matrix)(op, qubits)
    except (TypeError, ValueError) as error:
        raise NotConverted(str(error), named(op)) from None


#: Entries that are told byte by byte in a `key`.
_MOST_IN_A_KEY = 2**12


def key(op: Any) -> Any:
    """Return what tells gates that differ in their angles alone, or in nothing; None if that cannot be told."""
    kind = type(op)
    if kind in DIRECT or kind in MADE:
        if kind is qml.PauliRot:
            return kind, op.wires.labels, op.hyperparameters["pauli_word"]
        if kind is qml.MultiControlledX:
            return kind, op.wires.labels, _values(op.control_values)
        return kind, op.wires.labels
    if kind in _ENTRIES:
        entries = [value if isinstance(value, np.ndarray) else np.asarray(value) for value in op.data]
        if kind is qml.BlockEncode or any(array.size > _MOST_IN_A_KEY or array.dtype == object for array in entries):
            return None
        told = [(array.shape, array.dtype.str, array.tobytes()) for array in entries]
        return kind, op.wires.labels, op.hyperparameters.get("dimension"), *told
    if isinstance(op, (Adjoint, Controlled)):
        inner = key(op.base)
        if inner is None or isinstance(op, Adjoint):
            return None if inner is None else (Adjoint, inner)
        return Controlled, op.control_wires.labels, _values(op.control_values), inner
    return None


def named(op: Any) -> str:
    """Return how a message names an operation."""
    return f"{op.name}(wires={op.wires.tolist()})"
