"""Gates of this package that qelib1.inc does not have, as gate blocks made of its gates.

A block is exact, global phase included, and has a fixed form. So the writer can say any gate with up to
`MOST_CONTROLS` controls, and the reader knows a block that the writer made and takes the gate itself for it.
"""

from __future__ import annotations

import math
import re
from functools import cache
from typing import Any

from ..instructions.definition import GateDefinition
from ..instructions.expression import Parameter
from ..instructions.gates import COMPOSITES
from ..instructions.instruction import GATES, Instruction
from . import qelib1

#: A gate with more controls takes more than ten thousand gates of qelib1.inc.
MOST_CONTROLS = 8

#: And what its own qubits add to them in the gates its block is made of.
MOST_INSIDE = MOST_CONTROLS + 3

Steps = list[Instruction]
Qubits = tuple[int, ...]

_FORMALS = ("a", "b", "c", "d")
_BLOCK_NAME = re.compile(r"(?:c([1-9][0-9]?)_)?([a-z][A-Za-z0-9_]*)")
_BY_SMALL_NAME = {name.lower(): name for name in [*GATES, *COMPOSITES]}


def block_name(name: str, n_controls: int) -> str:
    """Return the name of the block of a gate with controls."""
    return f"c{n_controls}_{name.lower()}" if n_controls else name.lower()


def plain(step: Instruction) -> Instruction:
    """Return the same gate in the one form it is written in, with its condition."""
    controls, qubits = step.controls, step.qubits
    if step.definition is not None:
        return step
    if controls and step.name in ("CNOT", "CCNOT", "CSIGN"):
        name = "Z" if step.name == "CSIGN" else "X"
        return _named(name, qubits[-1:], controls + qubits[:-1], step.condition)
    return _named(step.name, qubits, controls, step.condition, step.params)


def _named(name: str, qubits: Qubits, controls: Qubits, condition: Any = None, params: Any = ()) -> Instruction:
    found = {("X", 1): "CNOT", ("X", 2): "CCNOT", ("Z", 1): "CSIGN"}.get((name, len(controls)))
    if found is not None:
        return Instruction(found, controls + qubits, (), (), (), condition)
    return Instruction(name, qubits, params, controls, (), condition)


@cache
def block(name: str, n_controls: int) -> GateDefinition | None:
    """Return what a gate of the package with controls is made of, in smaller ones; None if it needs no block.

    Qubits are the controls, then the gate's own.
    """
    if name not in _BODIES or n_controls > MOST_INSIDE:
        return None
    shape = GATES[name] if name in GATES else COMPOSITES[name]
    formals = _FORMALS[: shape.n_params]
    controls = tuple(range(n_controls))
    own = tuple(range(n_controls, n_controls + shape.n_qubits))
    steps = _BODIES[name](controls, own, *map(Parameter, formals))
    return GateDefinition.checked(block_name(name, n_controls), formals, len(controls + own), tuple(steps))


@cache
def library_block(name: str) -> GateDefinition:
    """Return what a gate of the later qelib1.inc is made of, for readers whose file does not have it."""
    gate = qelib1.GATES[name]
    assert gate.step is not None
    found = block(gate.step, gate.n_controls)
    assert found is not None  # there is one for every gate of the package
    return GateDefinition.checked(name, found.params, found.n_qubits, found.body)


def controlled(definition: GateDefinition, n_controls: int) -> GateDefinition:
    """Return a definition with controls in front of its own qubits."""
    controls = tuple(range(n_controls))
    body = [
        plain(
            Instruction(
                step.name,
                tuple([q + n_controls for q in step.qubits]),
                step.params,
                () if step.name == "barrier" else controls + tuple([q + n_controls for q in step.controls]),
                definition=step.definition,
            )
        )
        for step in definition.body
    ]
    name = block_name(definition.name, n_controls)
    return GateDefinition.checked(name, definition.params, n_controls + definition.n_qubits, tuple(body))


def known(definition: GateDefinition, declared: dict[str, GateDefinition]) -> tuple[str, int, Any] | None:
    """Return name, number of controls and definition of the gate whose block this is, or None if it is another.

    `declared` holds the definitions the block may be a controlled form of.
    """
    library = qelib1.GATES[definition.name] if definition.name in qelib1.LATER else None
    if library is not None and library.step is not None and library_block(definition.name) is definition:
        return library.step, library.n_controls, None
    found = _BLOCK_NAME.fullmatch(definition.name)
    if found is None:
        return None
    n_controls, base = int(found[1] or 0), found[2]
    if n_controls > MOST_INSIDE:
        return None
    name = _BY_SMALL_NAME.get(base)
    if name is not None and block(name, n_controls) is definition:
        return name, n_controls, None
    if n_controls and base in declared and controlled(declared[base], n_controls) is definition:
        return base, n_controls, declared[base]
    return None


# --- What each gate with controls `c` on qubits `q` is made of ---

def _phase(c: Qubits, q: Qubits, angle: Any) -> Steps:
    if not c:
        return [_named("PH", q, (), None, (angle,))]
    if len(c) == 1:
        return [_named("PH", q, c, None, (angle,))]
    # Half the angle where the last control and the target are 1, minus half where they differ from the other controls.
    last, others = c[-1:], c[:-1]
    half = angle / 2
    flip = _named("X", last, others)
    return [
        _named("PH", q, last, None, (half,)), flip, _named("PH", q, last, None, (-half,)), flip,
        _named("PH", q, others, None, (half,)),
    ]  # fmt: skip


def _flip(c: Qubits, q: Qubits) -> Steps:
    return [_named("H", q, ()), _named("PH", q, c, None, (math.pi,)), _named("H", q, ())]


def _sign(c: Qubits, q: Qubits) -> Steps:
    return [_named("H", q, ()), _named("X", q, c), _named("H", q, ())]


def _y(c: Qubits, q: Qubits) -> Steps:
    return [_named("sdg", q, ()), _named("X", q, c), _named("S", q, ())]


def _h(c: Qubits, q: Qubits) -> Steps:
    eighth = math.pi / 4
    return [_named("RY", q, (), None, (-eighth,)), _named("Z", q, c), _named("RY", q, (), None, (eighth,))]


def _turn(name: str) -> Any:
    """RZ or RY: half the angle there, and half back unless the controls have exchanged the axis' ends."""

    def steps(c: Qubits, q: Qubits, angle: Any) -> Steps:
        flip = _named("X", q, c)
        half = angle / 2
        return [_named(name, q, (), None, (half,)), flip, _named(name, q, (), None, (-half,)), flip]

    return steps


def _rx(c: Qubits, q: Qubits, angle: Any) -> Steps:
    return [_named("H", q, ()), _named("RZ", q, c, None, (angle,)), _named("H", q, ())]


def _fixed_phase(angle: float) -> Any:
    return lambda c, q: [_named("PH", q, c, None, (angle,))]


def _root(angle: float) -> Any:
    return lambda c, q: [_named("H", q, ()), _named("PH", q, c, None, (angle,)), _named("H", q, ())]


def _u(c: Qubits, q: Qubits, theta: Any, phi: Any, lam: Any) -> Steps:
    return [_named("PH", q, c, None, (lam,)), _named("RY", q, c, None, (theta,)), _named("PH", q, c, None, (phi,))]


def _cu(c: Qubits, q: Qubits, theta: Any, phi: Any, lam: Any, gamma: Any) -> Steps:
    control, target = q[:1], q[1:]
    return [_named("PH", control, c, None, (gamma,)), _named("u3", target, c + control, None, (theta, phi, lam))]


def _swap(c: Qubits, q: Qubits) -> Steps:
    ends = _named("X", q[:1], q[1:])
    return [ends, _named("X", q[1:], c + q[:1]), ends]


def _iswap(phase: str) -> Any:
    def steps(c: Qubits, q: Qubits) -> Steps:
        return [_named(phase, q[:1], c), _named(phase, q[1:], c), _named("Z", q[1:], c + q[:1]), _named("SWAP", q, c)]

    return steps


def _root_swap(root: str) -> Any:
    def steps(c: Qubits, q: Qubits) -> Steps:
        ends = _named("X", q[1:], q[:1])
        return [ends, _named(root, q[:1], c + q[1:]), ends]

    return steps


def _rzz(c: Qubits, q: Qubits, angle: Any) -> Steps:
    ends = _named("X", q[1:], q[:1])
    return [ends, _named("RZ", q[1:], c, None, (angle,)), ends]


def _rxx(c: Qubits, q: Qubits, angle: Any) -> Steps:
    around = [_named("H", q[:1], ()), _named("H", q[1:], ())]
    return [*around, _named("rzz", q, c, None, (angle,)), *around]


def _ryy(c: Qubits, q: Qubits, angle: Any) -> Steps:
    before = [_named("sdg", q[:1], ()), _named("sdg", q[1:], ())]
    after = [_named("S", q[:1], ()), _named("S", q[1:], ())]
    return [*before, _named("rxx", q, c, None, (angle,)), *after]


def _in_turn(*names: str) -> Any:
    return lambda c, q: [_named(name, q, c) for name in names]


def _sequence(name: str) -> Any:
    return lambda c, q: [
        _named(step.name, step.qubits, c, None, step.params)
        if step.name != "CNOT"
        else _named("X", step.qubits[1:], c + step.qubits[:1])
        for step in COMPOSITES[name].build((), q)
    ]


_QUARTER = math.pi / 4
_HALF = math.pi / 2

_BODIES: dict[str, Any] = {
    "X": _flip, "Y": _y, "Z": _sign, "H": _h,
    "S": _fixed_phase(_HALF), "T": _fixed_phase(_QUARTER), "sdg": _fixed_phase(-_HALF), "tdg": _fixed_phase(-_QUARTER),
    "RX": _rx, "RY": _turn("RY"), "RZ": _turn("RZ"), "PH": _phase,
    "ZtoY": _in_turn("H", "S"), "YtoZ": _in_turn("sdg", "H"),
    "SWAP": _swap, "ISWAP": _iswap("S"), "iswapdg": _iswap("sdg"),
    "SQRTSWAP": _root_swap("sx"), "sqrtswapdg": _root_swap("sxdg"),
    "sx": _root(_HALF), "sxdg": _root(-_HALF),
    "u": _u, "u3": _u, "u2": lambda c, q, phi, lam: _u(c, q, _HALF, phi, lam), "cu": _cu,
    "rxx": _rxx, "ryy": _ryy, "rzz": _rzz, "rccx": _sequence("rccx"), "rc3x": _sequence("rc3x"),
}  # fmt: skip
