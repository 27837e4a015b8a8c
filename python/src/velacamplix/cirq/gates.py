"""Which gate of Cirq's is which of the package's."""

from __future__ import annotations

import cmath
import math
from collections.abc import Callable, Sequence
from typing import Any

import cirq
import numpy as np
import sympy

from ..basics import checks
from ..instructions.expression import Angle, Expression
from ..instructions.gates import GATES, with_controls
from ..instructions.instruction import Instruction
from .angles import cirq_angle, exponent, radians, turn
from .errors import NotConverted

#: What a gate is: the phase in front, and instructions on its qubits 0, 1 and so on.
Made = tuple[Angle, tuple[Instruction, ...]]

_ONE, _TWO, _THREE = (0,), (0, 1), (0, 1, 2)


def of_one(name: str, qubits: Sequence[int], *params: Any, controls: tuple[int, ...] = ()) -> tuple[Instruction, ...]:
    """Return a single instruction."""
    return (Instruction(name, tuple(qubits), params, controls),)


# --- Powers ---

# By the exponent, for gates without a global shift; there is no phase.
_X = {1: "X", -1: "X", 0.5: "sx", -0.5: "sxdg"}
_Z = {1: "Z", -1: "Z", 0.5: "S", -0.5: "sdg", 0.25: "T", -0.25: "tdg"}


def _plain(gate: Any, names: dict[float, str], n_qubits: int) -> Made | None:
    """Return a gate by its exponent alone, if it has a name."""
    if gate.global_shift == 0 and not isinstance(gate.exponent, sympy.Basic):
        name = names.get(gate.exponent)
        if name is not None:
            return 0.0, of_one(name, range(n_qubits))
    return None


def _flip(letter: str, names: dict[float, str]) -> Callable[[Any], Made]:
    def made(gate: Any) -> Made:
        known = _plain(gate, names, 1)
        if known is not None:
            return known
        shift = gate.global_shift + 0.5
        return turn(gate.exponent, shift) if shift else 0.0, of_one("R" + letter, _ONE, turn(gate.exponent))

    return made


def _phase(gate: Any) -> Made:
    if gate.global_shift == -0.5:
        return 0.0, of_one("RZ", _ONE, turn(gate.exponent))
    return _plain(gate, _Z, 1) or (_shift(gate), of_one("PH", _ONE, turn(gate.exponent)))


def _shift(gate: Any) -> Angle:
    return turn(gate.exponent, gate.global_shift) if gate.global_shift else 0.0


def _hadamard(gate: Any) -> Made:
    steps = of_one("H", _ONE)
    if gate.exponent not in (1, -1):
        # It is Z turned by pi/4 about Y.
        before, after = of_one("RY", _ONE, -math.pi / 4), of_one("RY", _ONE, math.pi / 4)
        steps = before + of_one("PH", _ONE, turn(gate.exponent)) + after
    return _shift(gate), steps


def _controlled_power(base: Any, short: str, n_controls: int) -> Callable[[Any], Made]:
    """Of gates whose power is that of `base` under controls."""

    def made(gate: Any) -> Made:
        controls = tuple(range(n_controls))
        if short and gate.exponent in (1, -1):
            return _shift(gate), of_one(short, (*controls, n_controls))
        phase, steps = read(base(exponent=gate.exponent), 1)
        return _shift(gate), under(phase, steps, controls, "", (n_controls,))

    return made


def _swap(gate: Any) -> Made:
    known = _plain(gate, {1: "SWAP", -1: "SWAP", 0.5: "SQRTSWAP", -0.5: "sqrtswapdg"}, 2)
    if known is not None:
        return known
    # The phase of 01 and 10 is that of an rzz, but for a quarter of it everywhere.
    half = turn(gate.exponent, 0.5)
    return turn(gate.exponent, gate.global_shift + 0.25), of_one("rzz", _TWO, half) + of_one("fsim", _TWO, half, 0.0)


def _iswap(gate: Any) -> Made:
    known = _plain(gate, {1: "ISWAP", -1: "iswapdg"}, 2)
    return known or (_shift(gate), of_one("fsim", _TWO, turn(gate.exponent, -0.5), 0.0))


def _double(name: str) -> Callable[[Any], Made]:
    def made(gate: Any) -> Made:
        shift = gate.global_shift + 0.5
        return turn(gate.exponent, shift) if shift else 0.0, of_one(name, _TWO, turn(gate.exponent))

    return made


# --- With more angles ---


def _phased_x(gate: Any) -> Made:
    shift = gate.global_shift + 0.5
    phase = turn(gate.exponent, shift) if shift else 0.0
    return phase, of_one("r", _ONE, turn(gate.exponent), turn(gate.phase_exponent))


def _phased_xz(gate: Any) -> Made:
    axis = turn(gate.axis_phase_exponent)
    lam = math.pi / 2 - axis
    phi = axis + turn(gate.z_exponent) - math.pi / 2
    return turn(gate.x_exponent, 0.5), of_one("u", _ONE, turn(gate.x_exponent), phi, lam)


def _phased_iswap(gate: Any) -> Made:
    return _shift(gate), of_one("xx_plus_yy", _TWO, turn(gate.exponent, -1.0), turn(gate.phase_exponent, 2.0))


def _fsim(gate: Any) -> Made:
    return 0.0, of_one("fsim", _TWO, radians(gate.theta), radians(gate.phi))


# --- By entries, or as they come ---


def _matrix(gate: Any) -> Made:
    return 0.0, by_entries(cirq.unitary(gate), cirq.num_qubits(gate))


def by_entries(entries: Any, n_qubits: int) -> tuple[Instruction, ...]:
    """Return an instruction of a matrix, which is checked."""
    return of_one("matrix", range(n_qubits), *checks.plain_entries(checks.matrix(np.asarray(entries), n_qubits)))


def _diagonal(gate: Any) -> Made:
    angles = [radians(value) for value in gate._diag_angles_radians]
    if any([isinstance(value, Expression) for value in angles]):
        raise NotConverted("a diagonal must have numbers; bind its symbols first")
    n_qubits = cirq.num_qubits(gate)
    return 0.0, of_one("diagonal", range(n_qubits), *[cmath.rect(1.0, value) for value in angles])  # type: ignore[arg-type]


def _pauli_string(gate: Any) -> Made:
    coefficient = complex(gate.coefficient)
    if abs(abs(coefficient) - 1) > checks.UNITARY_TOLERANCE:
        raise NotConverted(
            f"a Pauli string must have a coefficient of absolute value 1 to be a gate, got {coefficient}"
        )
    letters = ["IXYZ"[number] for number in gate.pauli_mask]
    return cmath.phase(coefficient), tuple([Instruction(name, (q,)) for q, name in enumerate(letters) if name != "I"])


def _nothing(gate: Any) -> Made:
    return 0.0, tuple([Instruction("id", (qubit,)) for qubit in range(cirq.num_qubits(gate))])


def _permutation(gate: Any) -> Made:
    held, steps = list(range(len(gate.permutation))), []
    # What is at place i goes to `permutation[i]`.
    for place, goal in enumerate(gate.permutation):
        now = held.index(place)
        if now != goal:
            steps.append(Instruction("SWAP", (now, goal)))
            held[now], held[goal] = held[goal], held[now]
    return 0.0, tuple(steps)


def _global_phase(gate: Any) -> Made:
    factor = gate.coefficient
    if isinstance(factor, sympy.Basic):
        if isinstance(factor, sympy.exp):
            return radians(sympy.simplify(factor.args[0] / sympy.I)), ()
        raise NotConverted(f"a global phase must be a number or exp(I*angle), got {factor}")
    return cmath.phase(complex(factor)), ()


def _controlled(gate: Any) -> Made:
    n_controls, n_qubits = gate.num_controls(), cirq.num_qubits(gate)
    controls = tuple(range(n_controls))
    phase, steps = read(gate.sub_gate, n_qubits - n_controls)
    targets = range(n_controls, n_qubits)
    listed: list[Instruction] = []
    for used, values in control_cases(gate.control_values, n_controls):
        listed += under(phase, steps, tuple([controls[place] for place in used]), values, targets)
    return 0.0, tuple(listed)


def control_cases(asked: Any, n_controls: int) -> list[tuple[tuple[int, ...], str]]:
    """Return the cases in which a controlled gate acts: which controls are read, and what they must be; "" is all 1."""
    if isinstance(asked, cirq.ProductOfSums):
        sums = list(asked)
        if not any([len(values) == 0 for values in sums]):
            used = tuple([place for place, values in enumerate(sums) if len(values) == 1])
            text = "".join([str(int(sums[place][0])) for place in used])  # Cirq's own gates have values that are False
            return [(used, text if "0" in text else "")]
    # No two of the cases hold at once.
    cases = dict.fromkeys([tuple(values) for values in asked.expand()])
    texts = ["".join([str(int(value)) for value in values]) for values in cases]
    return [(tuple(range(n_controls)), text if "0" in text else "") for text in texts]


def under(
    phase: Angle, steps: Sequence[Instruction], controls: tuple[int, ...], values: str, qubits: Sequence[int]
) -> tuple[Instruction, ...]:
    """Return steps on other qubits, behind controls, the phase included."""
    made = []
    if isinstance(phase, Expression) or phase:
        made.append(with_controls("gphase", (), controls, (phase,), values))
    for step in steps:
        inner, own = tuple([qubits[q] for q in step.controls]), step.control_values or "1" * len(step.controls)
        read_values = (values or "1" * len(controls)) + own
        name, targets = step.name, tuple([qubits[q] for q in step.qubits])
        short = GATES[name].short_for if controls and name in GATES else None
        if short is not None:
            name, n = short
            inner, targets, read_values = inner + targets[:n], targets[n:], read_values + "1" * n
        all_controls = controls + inner
        read_values = read_values if "0" in read_values else ""
        if name in GATES:
            made.append(with_controls(name, targets, all_controls, step.params, read_values))
        else:
            made.append(Instruction(name, targets, step.params, all_controls, control_values=read_values))
    return tuple(made)


#: By the class of a gate.
READERS: dict[type, Callable[[Any], Made]] = {
    cirq.XPowGate: _flip("X", _X), cirq.Rx: _flip("X", _X), type(cirq.X): _flip("X", _X),
    cirq.YPowGate: _flip("Y", {1: "Y", -1: "Y"}), cirq.Ry: _flip("Y", {}), type(cirq.Y): _flip("Y", {1: "Y", -1: "Y"}),
    cirq.ZPowGate: _phase, cirq.Rz: _phase, type(cirq.Z): _phase,
    cirq.HPowGate: _hadamard,
    cirq.CXPowGate: _controlled_power(cirq.XPowGate, "CNOT", 1), cirq.CZPowGate: _controlled_power(cirq.ZPowGate, "CSIGN", 1),
    cirq.CCXPowGate: _controlled_power(cirq.XPowGate, "CCNOT", 2), cirq.CCZPowGate: _controlled_power(cirq.ZPowGate, "", 2),
    cirq.SwapPowGate: _swap, cirq.ISwapPowGate: _iswap, cirq.PhasedISwapPowGate: _phased_iswap,
    cirq.XXPowGate: _double("rxx"), cirq.YYPowGate: _double("ryy"), cirq.ZZPowGate: _double("rzz"), cirq.MSGate: _double("rxx"),
    cirq.PhasedXPowGate: _phased_x, cirq.PhasedXZGate: _phased_xz, cirq.FSimGate: _fsim,
    cirq.PhasedFSimGate: lambda gate: _composed(gate, 2),
    cirq.CSwapGate: lambda gate: (0.0, of_one("SWAP", (1, 2), controls=(0,))),
    cirq.IdentityGate: _nothing, cirq.WaitGate: _nothing, cirq.GlobalPhaseGate: _global_phase,
    cirq.MatrixGate: _matrix, cirq.DiagonalGate: _diagonal, cirq.TwoQubitDiagonalGate: _diagonal,
    cirq.ThreeQubitDiagonalGate: _diagonal, cirq.QubitPermutationGate: _permutation, cirq.ControlledGate: _controlled,
    cirq.DensePauliString: _pauli_string, cirq.MutableDensePauliString: _pauli_string,
}  # fmt: skip
# Since Cirq 1.6.
for _name, _base, _n in (("CYPowGate", cirq.YPowGate, 1), ("CCYPowGate", cirq.YPowGate, 2)):
    if hasattr(cirq, _name):
        READERS[getattr(cirq, _name)] = _controlled_power(_base, "", _n)

# What has both is taken as a matrix up to so many qubits, beyond as what it is made of: gates of Cirq's own, and others,
# whose two forms may differ in the phase. What has a matrix alone is taken up to the third number.
_FEW_QUBITS, _FEW_QUBITS_OF_OTHERS, _MOST_QUBITS = 2, 4, 10


def read(gate: Any, n_qubits: int) -> Made:
    """Return what a unitary gate of Cirq's is, exactly.

    Raises
    ------
    NotConverted
        If it is none, or has symbols in a place where they cannot stay.
    """
    reader = READERS.get(type(gate))
    return _composed(gate, n_qubits) if reader is None else reader(gate)


def _composed(gate: Any, n_qubits: int) -> Made:
    """Return a gate as a matrix, or as what it is made of."""
    if set(cirq.qid_shape(gate, (2,) * n_qubits)) - {2}:
        raise NotConverted("a circuit has qubits only, no qudits")
    is_open = cirq.is_parameterized(gate)
    is_own = str(type(gate).__module__).startswith("cirq.")
    if n_qubits <= (_FEW_QUBITS if is_own else _FEW_QUBITS_OF_OTHERS) and not is_open:
        entries = cirq.unitary(gate, None)
        if entries is not None:
            return 0.0, by_entries(entries, n_qubits)
    places = {qubit: number for number, qubit in enumerate(cirq.LineQubit.range(n_qubits))}
    parts = cirq.decompose_once_with_qubits(gate, tuple(places), None)
    if parts is not None and all([part.gate is not None and set(part.qubits) <= set(places) for part in parts]):
        made: list[Instruction] = []
        for part in parts:
            qubits = [places[qubit] for qubit in part.qubits]
            made += under(*read(part.gate, len(qubits)), (), "", qubits)
        return 0.0, tuple(made)
    if is_open:
        raise NotConverted("its symbols cannot stay parameters; bind them first")
    entries = cirq.unitary(gate, None) if n_qubits <= _MOST_QUBITS else None
    if entries is None:
        raise NotConverted(
            f"it is no unitary gate that is known, and has neither a decomposition nor, on up to {_MOST_QUBITS} qubits, a matrix"
        )
    return 0.0, by_entries(entries, n_qubits)


# --- To Cirq ---


def _rotation(of: Callable[[Any], Any]) -> Callable[..., Any]:
    return lambda angle: of(cirq_angle(angle))


_WRITERS: dict[str, Callable[..., Any]] = {
    "X": lambda: cirq.X, "Y": lambda: cirq.Y, "Z": lambda: cirq.Z, "H": lambda: cirq.H, "S": lambda: cirq.S,
    "T": lambda: cirq.T, "sdg": lambda: cirq.S**-1, "tdg": lambda: cirq.T**-1, "sx": lambda: cirq.X**0.5,
    "sxdg": lambda: cirq.X**-0.5, "id": lambda: cirq.I, "CNOT": lambda: cirq.CNOT, "CCNOT": lambda: cirq.CCNOT,
    "CSIGN": lambda: cirq.CZ, "SWAP": lambda: cirq.SWAP, "ISWAP": lambda: cirq.ISWAP, "iswapdg": lambda: cirq.ISWAP**-1,
    "SQRTSWAP": lambda: cirq.SWAP**0.5, "sqrtswapdg": lambda: cirq.SWAP**-0.5,
    "RX": _rotation(cirq.rx), "RY": _rotation(cirq.ry), "RZ": _rotation(cirq.rz),
    "PH": lambda angle: cirq.ZPowGate(exponent=exponent(angle)),
    "rxx": lambda angle: cirq.XXPowGate(exponent=exponent(angle), global_shift=-0.5),
    "ryy": lambda angle: cirq.YYPowGate(exponent=exponent(angle), global_shift=-0.5),
    "rzz": lambda angle: cirq.ZZPowGate(exponent=exponent(angle), global_shift=-0.5),
    "r": lambda theta, phi: cirq.PhasedXPowGate(phase_exponent=exponent(phi), exponent=exponent(theta), global_shift=-0.5),
    "fsim": lambda theta, phi: cirq.FSimGate(cirq_angle(theta), cirq_angle(phi)),
    "givens": lambda theta: cirq.PhasedISwapPowGate(phase_exponent=0.25, exponent=2 * exponent(theta)),
    "gphase": lambda angle: cirq.GlobalPhaseGate(
        sympy.exp(sympy.I * cirq_angle(angle)) if isinstance(angle, Expression) else cmath.rect(1.0, angle)
    ),
}  # fmt: skip


def cirq_gate(step: Instruction) -> Any | None:
    """Return Cirq's gate for one without controls, or None if it has no such gate for these parameters."""
    n_qubits = len(step.qubits)
    if step.name == "matrix":
        return cirq.MatrixGate(checks.matrix(np.array(step.params).reshape(2**n_qubits, -1), n_qubits))
    if step.name == "diagonal":
        entries = np.array(step.params)
        if np.abs(np.abs(entries) - 1).max() > checks.UNITARY_TOLERANCE:
            raise NotConverted("a diagonal must have entries of absolute value 1")
        if not n_qubits:
            return cirq.GlobalPhaseGate(complex(entries[0]))
        return cirq.DiagonalGate(np.angle(entries).tolist())
    writer = _WRITERS.get(step.name)
    return None if writer is None else writer(*step.params)
