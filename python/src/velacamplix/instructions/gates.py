"""Every gate of the package in one row: its name, its qubits and angles, its methods, its names in OpenQASM, what it is made
of, what undoes it, how it is drawn. Whatever lists gates reads `GATES`.

All global phases are those of Qiskit's gates of the same name, so that a gate and its controlled form belong together. How
many instructions of the library a gate becomes never depends on its angles: a plan for some angles serves all.
"""

from __future__ import annotations

import cmath
import math
from collections.abc import Callable, Mapping
from typing import Any, NamedTuple

from .instruction import Instruction

Qubits = tuple[int, ...]
Params = tuple[Any, ...]
Steps = list[Instruction]


class Gate(NamedTuple):
    """What the package knows about a gate.

    Attributes
    ----------
    name : str
        Of its instructions.
    says : str
        What it does, as the docstrings of its methods begin.
    qubits, angles : tuple of str
        What its arguments are called.
    methods : mapping
        For each method that adds it, how many qubits come first that control it.
    aliases : mapping
        Further names of methods.
    qasm : mapping
        Its names in the qelib1.inc of arXiv:1707.03429, with the number of qubits that come first and control it.
    later : mapping
        The same for names that came into the file afterwards.
    inverse : callable or None
        From parameters to name and parameters of the inverse, expressions too. None: invert what it is made of.
    block : callable
        From controls, qubits and parameters to smaller gates: what it is in OpenQASM, phase included.
    build : callable or None
        From parameters (numbers) and qubits to gates of the library; None for those the library has.
    in_programs : callable or None
        From parameters to name and parameters of a gate that programs of the library have, though its state vector has
        not; it does the arithmetic of what `build` makes, and its angles can be replaced.
    matrix : callable or None
        From parameters to entries, row by row, where the first qubit is the highest bit; None where `build` says it.
    short_for : tuple or None
        The gate and the number of its controls that this one is another word for.
    draws : str
        A letter for each qubit: o a control, + a flip, x an exchange. Without it a box with the name.
    is_symmetric : bool
        Whether its qubits play the same part.
    """

    name: str
    says: str
    qubits: tuple[str, ...]
    angles: tuple[str, ...]
    methods: Mapping[str, int]
    aliases: Mapping[str, str]
    qasm: Mapping[str, int]
    later: Mapping[str, int]
    inverse: Callable[[Params], tuple[str, Params]] | None
    block: Callable[..., Steps]
    build: Callable[[Params, Qubits], tuple[Instruction, ...]] | None
    in_programs: Callable[[Params], tuple[str, Params]] | None
    matrix: Callable[..., tuple[complex, ...]] | None
    short_for: tuple[str, int] | None
    draws: str
    is_symmetric: bool

    @property
    def n_qubits(self) -> int:
        """How many qubits it acts on."""
        return len(self.qubits)

    @property
    def n_params(self) -> int:
        """How many angles it takes."""
        return len(self.angles)

    @property
    def is_native(self) -> bool:
        """Whether the library has it."""
        return self.build is None

    def arguments(self, n_controls: int) -> tuple[tuple[str, ...], tuple[str, ...]]:
        """Return what a method with so many controls in front calls these, and the gate's own qubits."""
        if n_controls == 0:
            return (), self.qubits
        controls = ("control",) if n_controls == 1 else tuple([f"control{place + 1}" for place in range(n_controls)])
        return controls, ("target",) if self.qubits == ("qubit",) else self.qubits

    def named_controls(self, n_controls: int) -> int:
        """Return how many qubits of such a method are controls whatever it is called: those in front, or that of cx."""
        return n_controls or (0 if self.short_for is None else self.short_for[1])

    def words(self, n_controls: int) -> dict[str, str]:
        """Return what other packages call the arguments of such a method, and what they are called here."""
        words = dict.fromkeys(("theta", "phi", "lam"), "angle") if self.angles == ("angle",) else {}
        controls, qubits = self.arguments(n_controls)
        for word in controls + qubits:
            if word.startswith("control"):
                words["control_qubit" + word[len("control") :]] = word
            elif word == "target":
                words["target_qubit"] = word
            elif controls:
                words["target_" + word] = word
        if self.short_for is not None and not controls and "qubit1" in qubits:
            words.update(control_qubit="qubit1", target_qubit="qubit2")
        return words


# --- Entries, row by row ---

_I, _ROOT = 1j, math.sqrt(0.5)
_HALF, _QUARTER = math.pi / 2, math.pi / 4


def _cos_sin(angle: float) -> tuple[float, float]:
    return math.cos(angle / 2), math.sin(angle / 2)


def _rx(a: float) -> tuple[complex, ...]:
    c, s = _cos_sin(a)
    return (c, -1j * s, -1j * s, c)


def _ry(a: float) -> tuple[complex, ...]:
    c, s = _cos_sin(a)
    return (c, -s, s, c)


def u_entries(theta: float, phi: float, lam: float, gamma: float = 0.0) -> tuple[complex, ...]:
    """Return exp(i gamma) U, row by row."""
    c, s = _cos_sin(theta)
    # Phases are multiplied. The sum of large angles is rounded to that of others, and the matrix would not be unitary.
    common, p, q = cmath.rect(1.0, gamma), cmath.rect(1.0, phi), cmath.rect(1.0, lam)
    return (c * common, -(s * common * q), s * common * p, c * common * p * q)


def _rxx(theta: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta / 2)), complex(0.0, -math.sin(theta / 2))
    return (c, 0j, 0j, s, 0j, c, s, 0j, 0j, s, c, 0j, s, 0j, 0j, c)


def _ryy(theta: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta / 2)), complex(0.0, math.sin(theta / 2))
    return (c, 0j, 0j, s, 0j, c, -s, 0j, 0j, -s, c, 0j, s, 0j, 0j, c)


def _rzz(theta: float) -> tuple[complex, ...]:
    """The diagonal."""
    even, odd = cmath.rect(1.0, -theta / 2), cmath.rect(1.0, theta / 2)
    return (even, odd, odd, even)


def _r(theta: float, phi: float) -> tuple[complex, ...]:
    # No angles are added, as in `u_entries`.
    c, s = _cos_sin(theta)
    turn = cmath.rect(1.0, phi)
    return (c, -1j * s * turn.conjugate(), -1j * s * turn, c)


def _rzx(theta: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta / 2)), complex(0.0, math.sin(theta / 2))
    return (c, -s, 0j, 0j, -s, c, 0j, 0j, 0j, 0j, c, s, 0j, 0j, s, c)


def _within(c: complex, upper: complex, lower: complex, last: complex = 1 + 0j) -> tuple[complex, ...]:
    """01 and 10 go over into each other, `upper` from 10 to 01; 11 has the factor `last`."""
    return (1 + 0j, 0j, 0j, 0j, 0j, c, upper, 0j, 0j, lower, c, 0j, 0j, 0j, 0j, last)


def _fsim(theta: float, phi: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta)), complex(0.0, -math.sin(theta))
    return _within(c, s, s, cmath.rect(1.0, -phi))


def _givens(theta: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta)), complex(math.sin(theta))
    return _within(c, -s, s)


def _xx_plus_yy(theta: float, beta: float) -> tuple[complex, ...]:
    c, s = _cos_sin(theta)
    turn = cmath.rect(1.0, beta)
    return _within(c, -1j * s * turn, -1j * s * turn.conjugate())


def _xx_minus_yy(theta: float, beta: float) -> tuple[complex, ...]:
    c, s = _cos_sin(theta)
    turn = cmath.rect(1.0, beta)
    upper, lower = -1j * s * turn.conjugate(), -1j * s * turn
    return (c, 0j, 0j, upper, 0j, 1 + 0j, 0j, 0j, 0j, 0j, 1 + 0j, 0j, lower, 0j, 0j, c)


def _diagonal(*entries: complex) -> tuple[complex, ...]:
    size = len(entries)
    return tuple([entries[row] if row == column else 0j for row in range(size) for column in range(size)])


def _exchange(same: complex, other: complex) -> tuple[complex, ...]:
    return (1 + 0j, 0j, 0j, 0j, 0j, same, other, 0j, 0j, other, same, 0j, 0j, 0j, 0j, 1 + 0j)


def _flip_last(n_qubits: int) -> tuple[complex, ...]:
    size = 2**n_qubits
    order = [*range(size - 2), size - 1, size - 2]
    return tuple([complex(order[row] == column) for row in range(size) for column in range(size)])


def _fixed(*entries: complex) -> Callable[[], tuple[complex, ...]]:
    return lambda: entries


_ECR = (
    0j, 0j, _ROOT + 0j, _ROOT * _I, 0j, 0j, _ROOT * _I, _ROOT + 0j,
    _ROOT + 0j, -_ROOT * _I, 0j, 0j, -_ROOT * _I, _ROOT + 0j, 0j, 0j,
)  # fmt: skip
_SX = ((1 + 1j) / 2, (1 - 1j) / 2, (1 - 1j) / 2, (1 + 1j) / 2)
_SXDG = ((1 - 1j) / 2, (1 + 1j) / 2, (1 + 1j) / 2, (1 - 1j) / 2)


# --- What undoes it ---


def _by(name: str) -> Callable[[Params], tuple[str, Params]]:
    return lambda params: (name, params)


def _by_negated(name: str) -> Callable[[Params], tuple[str, Params]]:
    return lambda params: (name, tuple([-value for value in params]))


def _by_opposite(name: str) -> Callable[[Params], tuple[str, Params]]:
    """The first angle is how far it turns, the second about which axis."""
    return lambda params: (name, (-params[0], *params[1:]))


def _by_turned(name: str) -> Callable[[Params], tuple[str, Params]]:
    # A fourth parameter is the phase of cu.
    return lambda params: (name, (-params[0], -params[2], -params[1], *[-value for value in params[3:]]))


# --- What it is made of in the library's gates ---


def _one_matrix(entries: Callable[..., tuple[complex, ...]]) -> Callable[[Params, Qubits], tuple[Instruction, ...]]:
    return lambda params, qubits: (Instruction("matrix", qubits, entries(*params)),)


def _one_phase(angle: float) -> Callable[[Params, Qubits], tuple[Instruction, ...]]:
    return lambda params, qubits: (Instruction("PH", qubits, (angle,)),)


_EIGHTH = math.pi / 4

# A Toffoli gate up to phases, with half the CNOTs; (name, positions of qubits, parameters...).
_RCCX = (
    ("H", (2,)), ("T", (2,)), ("CNOT", (1, 2)), ("PH", (2,), -_EIGHTH),
    ("CNOT", (0, 2)), ("T", (2,)), ("CNOT", (1, 2)), ("PH", (2,), -_EIGHTH), ("H", (2,)),
)  # fmt: skip

_RC3X = (
    ("H", (3,)), ("T", (3,)), ("CNOT", (2, 3)), ("PH", (3,), -_EIGHTH), ("H", (3,)),
    ("CNOT", (0, 3)), ("T", (3,)), ("CNOT", (1, 3)), ("PH", (3,), -_EIGHTH),
    ("CNOT", (0, 3)), ("T", (3,)), ("CNOT", (1, 3)), ("PH", (3,), -_EIGHTH),
    ("H", (3,)), ("T", (3,)), ("CNOT", (2, 3)), ("PH", (3,), -_EIGHTH), ("H", (3,)),
)  # fmt: skip


_DCX = (("CNOT", (0, 1)), ("CNOT", (1, 0)))


def _several(steps: tuple[Any, ...]) -> Callable[[Params, Qubits], tuple[Instruction, ...]]:
    def build(params: Params, qubits: Qubits) -> tuple[Instruction, ...]:
        return tuple(
            [
                Instruction(name, tuple([qubits[position] for position in positions]), tuple(values))
                for name, positions, *values in steps
            ]
        )

    return build


# --- What it is with controls `c` on qubits `q`, in smaller gates of qelib1.inc ---


def with_controls(
    name: str, qubits: Qubits, controls: Qubits = (), params: Params = (), control_values: str = ""
) -> Instruction:
    """Return a gate in the one form that it is written in: CNOT rather than X with a control of 1, PH rather than gphase."""
    if name == "gphase" and controls and not control_values:
        return Instruction("PH", controls[-1:], params, controls[:-1])
    found = None if control_values else _SHORT.get((name, len(controls)))
    if found is not None:
        return Instruction(found, controls + qubits)
    return Instruction(name, qubits, params, controls, control_values=control_values)


_SHORT = {("X", 1): "CNOT", ("X", 2): "CCNOT", ("Z", 1): "CSIGN"}
_on = with_controls


def _between(before: str, middle: str, after: str) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [_on(before, q), _on(middle, q, c), _on(after, q)]


def _phase_block(c: Qubits, q: Qubits, angle: Any) -> Steps:
    if len(c) < 2:
        return [_on("PH", q, c, (angle,))]
    # Half the angle where the last control and the target are 1, minus half where they differ from the other controls.
    last, others = c[-1:], c[:-1]
    half = angle / 2
    flip = _on("X", last, others)
    return [_on("PH", q, last, (half,)), flip, _on("PH", q, last, (-half,)), flip, _on("PH", q, others, (half,))]


def _fixed_phase(angle: float) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [_on("PH", q, c, (angle,))]


def _root_of_x(angle: float) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [_on("H", q), _on("PH", q, c, (angle,)), _on("H", q)]


def _h_block(c: Qubits, q: Qubits) -> Steps:
    return [_on("RY", q, (), (-_QUARTER,)), _on("Z", q, c), _on("RY", q, (), (_QUARTER,))]


def _turn_block(name: str) -> Callable[[Qubits, Qubits, Any], Steps]:
    """RZ or RY: half the angle there, and half back unless the controls have exchanged the axis' ends."""

    def steps(c: Qubits, q: Qubits, angle: Any) -> Steps:
        flip = _on("X", q, c)
        half = angle / 2
        return [_on(name, q, (), (half,)), flip, _on(name, q, (), (-half,)), flip]

    return steps


def _rx_block(c: Qubits, q: Qubits, angle: Any) -> Steps:
    return [_on("H", q), _on("RZ", q, c, (angle,)), _on("H", q)]


def _u_block(c: Qubits, q: Qubits, theta: Any, phi: Any, lam: Any) -> Steps:
    return [_on("PH", q, c, (lam,)), _on("RY", q, c, (theta,)), _on("PH", q, c, (phi,))]


def _u2_block(c: Qubits, q: Qubits, phi: Any, lam: Any) -> Steps:
    return _u_block(c, q, _HALF, phi, lam)


def _cu_block(c: Qubits, q: Qubits, theta: Any, phi: Any, lam: Any, gamma: Any) -> Steps:
    return [_on("PH", q[:1], c, (gamma,)), _on("u3", q[1:], c + q[:1], (theta, phi, lam))]


def _swap_block(c: Qubits, q: Qubits) -> Steps:
    ends = _on("X", q[:1], q[1:])
    return [ends, _on("X", q[1:], c + q[:1]), ends]


def _iswap_block(phase: str) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [_on(phase, q[:1], c), _on(phase, q[1:], c), _on("Z", q[1:], c + q[:1]), _on("SWAP", q, c)]


def _root_swap_block(root: str) -> Callable[[Qubits, Qubits], Steps]:
    def steps(c: Qubits, q: Qubits) -> Steps:
        ends = _on("X", q[1:], q[:1])
        return [ends, _on(root, q[:1], c + q[1:]), ends]

    return steps


def _rzz_block(c: Qubits, q: Qubits, angle: Any) -> Steps:
    ends = _on("X", q[1:], q[:1])
    return [ends, _on("RZ", q[1:], c, (angle,)), ends]


def _rxx_block(c: Qubits, q: Qubits, angle: Any) -> Steps:
    around = [_on("H", q[:1]), _on("H", q[1:])]
    return [*around, _on("rzz", q, c, (angle,)), *around]


def _ryy_block(c: Qubits, q: Qubits, angle: Any) -> Steps:
    before, after = [_on("sdg", q[:1]), _on("sdg", q[1:])], [_on("S", q[:1]), _on("S", q[1:])]
    return [*before, _on("rxx", q, c, (angle,)), *after]


def _rzx_block(c: Qubits, q: Qubits, angle: Any) -> Steps:
    ends = _on("H", q[1:])
    return [ends, _on("rzz", q, c, (angle,)), ends]


def _ecr_block(c: Qubits, q: Qubits) -> Steps:
    return [_on("rzx", q, (), (_QUARTER,)), _on("X", q[:1], c), _on("rzx", q, (), (-_QUARTER,))]


def _r_block(c: Qubits, q: Qubits, theta: Any, phi: Any) -> Steps:
    return [_on("RZ", q, (), (-phi,)), _on("RX", q, c, (theta,)), _on("RZ", q, (), (phi,))]


def _fsim_block(c: Qubits, q: Qubits, theta: Any, phi: Any) -> Steps:
    return [_on("rxx", q, c, (theta,)), _on("ryy", q, c, (theta,)), _on("PH", q[1:], c + q[:1], (-phi,))]


def _xx_yy_block(sign: int) -> Callable[[Qubits, Qubits, Any, Any], Steps]:
    def steps(c: Qubits, q: Qubits, theta: Any, beta: Any) -> Steps:
        half = theta / 2
        turn, back = _on("PH", q[:1], (), (-beta,)), _on("PH", q[:1], (), (beta,))
        middle = [_on("rxx", q, c, (half,)), _on("ryy", q, c, (half if sign > 0 else -half,))]
        return [back, *middle, turn] if sign > 0 else [turn, *middle, back]

    return steps


def _in_turn(*names: str) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [_on(name, q, c) for name in names]


def _short_block(name: str, n_controls: int) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [_on(name, q[n_controls:], c + q[:n_controls])]


def _several_block(steps: tuple[Any, ...]) -> Callable[[Qubits, Qubits], Steps]:
    return lambda c, q: [
        _on("X", step.qubits[1:], c + step.qubits[:1]) if step.name == "CNOT" else _on(step.name, step.qubits, c, step.params)
        for step in _several(steps)((), q)
    ]


# --- The rows ---

_ROWS: list[Gate] = []


def _gate(
    name: str,
    says: str,
    qubits: str = "qubit",
    angles: str = "",
    *,
    methods: Mapping[str, int],
    block: Callable[..., Steps],
    inverse: Callable[[Params], tuple[str, Params]] | None,
    aliases: Mapping[str, str] = {},
    qasm: Mapping[str, int] = {},
    later: Mapping[str, int] = {},
    build: Callable[[Params, Qubits], tuple[Instruction, ...]] | None = None,
    in_programs: Callable[[Params], tuple[str, Params]] | None = None,
    matrix: Callable[..., tuple[complex, ...]] | None = None,
    short_for: tuple[str, int] | None = None,
    draws: str = "",
    is_symmetric: bool = False,
) -> None:
    _ROWS.append(
        Gate(
            name, says, tuple(qubits.split()), tuple(angles.split()), methods, aliases, qasm, later, inverse, block, build,
            in_programs, matrix, short_for, draws, is_symmetric,
        )
    )  # fmt: skip


# The library's own, on one qubit.
_gate(
    "X", "X, the bit flip", methods={"x": 0}, qasm={"x": 0}, later={"c3x": 3, "c4x": 4}, inverse=_by("X"), draws="+",
    block=lambda c, q: [_on("H", q), _on("PH", q, c, (math.pi,)), _on("H", q)], matrix=_fixed(0, 1, 1, 0),
)  # fmt: skip
_gate(
    "Y", "Y = [[0, -i], [i, 0]]", methods={"y": 0, "cy": 1}, qasm={"y": 0, "cy": 1}, inverse=_by("Y"),
    block=_between("sdg", "X", "S"), matrix=_fixed(0, -_I, _I, 0),
)  # fmt: skip
_gate(
    "Z", "Z, the sign flip of 1", methods={"z": 0, "ccz": 2}, qasm={"z": 0}, inverse=_by("Z"), draws="o",
    block=_between("H", "X", "H"), matrix=_fixed(1, 0, 0, -1),
)  # fmt: skip
_gate(
    "H", "the Hadamard gate, [[1, 1], [1, -1]] / sqrt(2)", methods={"h": 0, "ch": 1}, qasm={"h": 0, "ch": 1},
    inverse=_by("H"), block=_h_block, matrix=_fixed(_ROOT, _ROOT, _ROOT, -_ROOT),
)  # fmt: skip
_gate(
    "S", "S, a phase of pi/2 on 1", methods={"s": 0, "cs": 1}, qasm={"s": 0}, inverse=_by("sdg"), block=_fixed_phase(_HALF),
    matrix=_fixed(1, 0, 0, _I),
)  # fmt: skip
_gate(
    "T", "T, a phase of pi/4 on 1", methods={"t": 0}, qasm={"t": 0}, inverse=_by("tdg"), block=_fixed_phase(_QUARTER),
    matrix=_fixed(1, 0, 0, _ROOT + _ROOT * _I),
)  # fmt: skip
_gate(
    "RX", "the rotation exp(-i angle X / 2)", angles="angle", methods={"rx": 0, "crx": 1}, qasm={"rx": 0},
    later={"crx": 1}, inverse=_by_negated("RX"), block=_rx_block, matrix=_rx,
)  # fmt: skip
_gate(
    "RY", "the rotation exp(-i angle Y / 2)", angles="angle", methods={"ry": 0, "cry": 1}, qasm={"ry": 0},
    later={"cry": 1}, inverse=_by_negated("RY"), block=_turn_block("RY"), matrix=_ry,
)  # fmt: skip
_gate(
    "RZ", "the rotation diag(exp(-i angle/2), exp(i angle/2))", angles="angle", methods={"rz": 0, "crz": 1},
    qasm={"rz": 0, "crz": 1}, inverse=_by_negated("RZ"), block=_turn_block("RZ"),
    matrix=lambda a: _diagonal(cmath.rect(1.0, -a / 2), cmath.rect(1.0, a / 2)),
)  # fmt: skip
_gate(
    "PH", "diag(1, exp(i angle)), a phase on 1", angles="angle", methods={"ph": 0, "cp": 1},
    aliases={"p": "ph", "u1": "ph", "cph": "cp", "cu1": "cp"}, qasm={"u1": 0, "cu1": 1}, later={"p": 0, "cp": 1},
    inverse=_by_negated("PH"), block=_phase_block, matrix=lambda a: _diagonal(1, cmath.rect(1.0, a)),
)  # fmt: skip
_gate(
    "ZtoY", "the change from the Z to the Y basis, [[1, 1], [i, -i]] / sqrt(2)", methods={"ztoy": 0},
    inverse=_by("YtoZ"), block=_in_turn("H", "S"), matrix=_fixed(_ROOT, _ROOT, _ROOT * _I, -_ROOT * _I),
)  # fmt: skip
_gate(
    "YtoZ", "the change from the Y to the Z basis, [[1, -i], [1, i]] / sqrt(2)", methods={"ytoz": 0},
    inverse=_by("ZtoY"), block=_in_turn("sdg", "H"), matrix=_fixed(_ROOT, -_ROOT * _I, _ROOT, _ROOT * _I),
)  # fmt: skip

# On two and three.
_gate(
    "CNOT", "X on `target` where `control` is 1", "control target", methods={"cx": 0}, aliases={"cnot": "cx"},
    qasm={"cx": 0}, inverse=_by("CNOT"), short_for=("X", 1), block=_short_block("X", 1), draws="o+",
    matrix=_fixed(*_flip_last(2)),
)  # fmt: skip
_gate(
    "CCNOT", "X on `target` where `control1` and `control2` are 1", "control1 control2 target", methods={"ccx": 0},
    aliases={"ccnot": "ccx", "toffoli": "ccx"}, qasm={"ccx": 0}, inverse=_by("CCNOT"), short_for=("X", 2),
    block=_short_block("X", 2), draws="oo+", matrix=_fixed(*_flip_last(3)),
)  # fmt: skip
_gate(
    "CSIGN", "Z on two qubits, a change of sign where both are 1", "qubit1 qubit2", methods={"cz": 0},
    aliases={"csign": "cz"}, qasm={"cz": 0}, inverse=_by("CSIGN"), short_for=("Z", 1), block=_short_block("Z", 1),
    draws="oo", matrix=_fixed(*_diagonal(1, 1, 1, -1)),
)  # fmt: skip
_gate(
    "SWAP", "the exchange of two qubits", "qubit1 qubit2", methods={"swap": 0, "cswap": 1}, aliases={"fredkin": "cswap"},
    later={"swap": 0, "cswap": 1}, inverse=_by("SWAP"), block=_swap_block, draws="xx", matrix=_fixed(*_exchange(0j, 1 + 0j)),
)  # fmt: skip
_gate(
    "ISWAP", "the exchange of two qubits, with a factor i where they differ", "qubit1 qubit2", methods={"iswap": 0},
    inverse=_by("iswapdg"), block=_iswap_block("S"), is_symmetric=True, matrix=_fixed(*_exchange(0j, 1j)),
)  # fmt: skip
_gate(
    "SQRTSWAP", "the gate whose square is SWAP", "qubit1 qubit2", methods={"sqrtswap": 0}, inverse=_by("sqrtswapdg"),
    block=_root_swap_block("sx"), is_symmetric=True, matrix=_fixed(*_exchange((1 + 1j) / 2, (1 - 1j) / 2)),
)  # fmt: skip

# Made of these.
_gate(
    "id", "the identity, which does nothing", methods={"id": 0}, qasm={"id": 0}, inverse=_by("id"), block=lambda c, q: [],
    build=lambda params, qubits: (),
)  # fmt: skip
_gate(
    "sdg", "the inverse of S, a phase of -pi/2 on 1", methods={"sdg": 0, "csdg": 1}, qasm={"sdg": 0}, inverse=_by("S"),
    block=_fixed_phase(-_HALF), build=_one_phase(-_HALF),
)  # fmt: skip
_gate(
    "tdg", "the inverse of T, a phase of -pi/4 on 1", methods={"tdg": 0}, qasm={"tdg": 0}, inverse=_by("T"),
    block=_fixed_phase(-_QUARTER), build=_one_phase(-_QUARTER),
)  # fmt: skip
_gate(
    "sx", "the square root of X, [[1+i, 1-i], [1-i, 1+i]] / 2", methods={"sx": 0, "csx": 1},
    later={"sx": 0, "csx": 1, "c3sqrtx": 3}, inverse=_by("sxdg"), block=_root_of_x(_HALF), build=_one_matrix(_fixed(*_SX)),
    in_programs=_by("SX"),
)  # fmt: skip
_gate(
    "sxdg", "the inverse of the square root of X, [[1-i, 1+i], [1+i, 1-i]] / 2", methods={"sxdg": 0}, later={"sxdg": 0},
    inverse=_by("sx"), block=_root_of_x(-_HALF), build=_one_matrix(_fixed(*_SXDG)),
)  # fmt: skip
_gate(
    "u", "U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l)) cos(t/2)]], with t = theta, p = phi, "
    "l = lam", angles="theta phi lam", methods={"u": 0}, later={"u": 0}, inverse=_by_turned("u"), block=_u_block,
    build=_one_matrix(u_entries),
    in_programs=_by("U"),
)  # fmt: skip
_gate(
    "u2", "U with theta = pi/2, [[1, -exp(i l)], [exp(i p), exp(i (p + l))]] / sqrt(2), with p = phi, l = lam",
    angles="phi lam", methods={"u2": 0}, qasm={"u2": 0}, block=_u2_block,
    inverse=lambda params: ("u", (-_HALF, -params[1], -params[0])),
    build=_one_matrix(lambda phi, lam: u_entries(_HALF, phi, lam)),
    in_programs=lambda params: ("U", (_HALF, *params)),
)  # fmt: skip
_gate(
    "u3", "U3, an older name of U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l)) cos(t/2)]], with "
    "t = theta, p = phi, l = lam", angles="theta phi lam", methods={"u3": 0, "cu3": 1}, qasm={"u3": 0, "cu3": 1},
    inverse=_by_turned("u3"), block=_u_block, build=_one_matrix(u_entries),
    in_programs=_by("U"),
)  # fmt: skip
_gate(
    "cu", "exp(i gamma) U on `target` where `control` is 1; U is that of the method `u`", "control target",
    "theta phi lam gamma", methods={"cu": 0}, later={"cu": 0}, inverse=_by_turned("cu"), block=_cu_block,
    build=lambda params, qubits: (Instruction("matrix", qubits[1:], u_entries(*params), qubits[:1]),),
)  # fmt: skip
_gate(
    "r", "the rotation exp(-i theta (cos(phi) X + sin(phi) Y) / 2)", angles="theta phi", methods={"r": 0},
    inverse=_by_opposite("r"), block=_r_block, build=_one_matrix(_r),
)  # fmt: skip
_gate(
    "rxx", "exp(-i angle XX / 2)", "qubit1 qubit2", "angle", methods={"rxx": 0}, later={"rxx": 0},
    inverse=_by_negated("rxx"), block=_rxx_block, is_symmetric=True, build=_one_matrix(_rxx),
    in_programs=_by("RXX"),
)  # fmt: skip
_gate(
    "ryy", "exp(-i angle YY / 2)", "qubit1 qubit2", "angle", methods={"ryy": 0}, inverse=_by_negated("ryy"),
    block=_ryy_block, is_symmetric=True, build=_one_matrix(_ryy),
    in_programs=_by("RYY"),
)  # fmt: skip
_gate(
    "rzz", "exp(-i angle ZZ / 2)", "qubit1 qubit2", "angle", methods={"rzz": 0}, later={"rzz": 0},
    inverse=_by_negated("rzz"), block=_rzz_block, is_symmetric=True,
    build=lambda params, qubits: (Instruction("diagonal", qubits, _rzz(*params)),),
    in_programs=_by("RZZ"),
)  # fmt: skip
_gate(
    "rzx", "exp(-i angle ZX / 2), Z on `qubit1` and X on `qubit2`", "qubit1 qubit2", "angle", methods={"rzx": 0},
    inverse=_by_negated("rzx"), block=_rzx_block, build=_one_matrix(_rzx),
)  # fmt: skip
_gate(
    "xx_plus_yy", "exp(-i theta (XX + YY) / 4), the mixing of 01 and 10, with phases exp(i beta) of `qubit1` around it",
    "qubit1 qubit2", "theta beta", methods={"xx_plus_yy": 0}, inverse=_by_opposite("xx_plus_yy"), block=_xx_yy_block(1),
    build=_one_matrix(_xx_plus_yy),
)  # fmt: skip
_gate(
    "xx_minus_yy", "exp(-i theta (XX - YY) / 4), the mixing of 00 and 11, with phases exp(i beta) of `qubit1` around it",
    "qubit1 qubit2", "theta beta", methods={"xx_minus_yy": 0}, inverse=_by_opposite("xx_minus_yy"),
    block=_xx_yy_block(-1), is_symmetric=True, build=_one_matrix(_xx_minus_yy),
)  # fmt: skip
_gate(
    "fsim", "exp(-i theta (XX + YY) / 2), the mixing of 01 and 10, with a factor exp(-i phi) on 11", "qubit1 qubit2",
    "theta phi", methods={"fsim": 0}, inverse=_by_negated("fsim"), block=_fsim_block, is_symmetric=True,
    build=_one_matrix(_fsim),
)  # fmt: skip
_gate(
    "givens", "the rotation [[cos(t), -sin(t)], [sin(t), cos(t)]] of 01 and 10, t = theta", "qubit1 qubit2", "theta",
    methods={"givens": 0}, inverse=_by_negated("givens"),
    block=lambda c, q, theta: [_on("xx_plus_yy", q, c, (2 * theta, -_HALF))], build=_one_matrix(_givens),
)  # fmt: skip
_gate(
    "dcx", "two CNOT gates, the second the other way round", "qubit1 qubit2", methods={"dcx": 0}, inverse=None,
    block=_several_block(_DCX), build=_several(_DCX),
)  # fmt: skip
_gate(
    "ecr", "the echoed cross-resonance gate, (XI - YX) / sqrt(2)", "qubit1 qubit2", methods={"ecr": 0},
    inverse=_by("ecr"), block=_ecr_block, build=_one_matrix(_fixed(*_ECR)),
)  # fmt: skip
_gate(
    "iswapdg", "the inverse of ISWAP, the exchange with a factor -i where the qubits differ", "qubit1 qubit2",
    methods={"iswapdg": 0}, inverse=_by("ISWAP"), block=_iswap_block("sdg"), is_symmetric=True,
    build=_one_matrix(_fixed(*_exchange(0j, -1j))),
)  # fmt: skip
_gate(
    "sqrtswapdg", "the inverse of the square root of SWAP", "qubit1 qubit2", methods={"sqrtswapdg": 0},
    inverse=_by("SQRTSWAP"), block=_root_swap_block("sxdg"), is_symmetric=True,
    build=_one_matrix(_fixed(*_exchange((1 - 1j) / 2, (1 + 1j) / 2))),
)  # fmt: skip
_gate(
    "rccx", "the Toffoli gate up to phases, which takes three CNOT gates", "control1 control2 target", methods={"rccx": 0},
    later={"rccx": 0}, inverse=_by("rccx"), block=_several_block(_RCCX), build=_several(_RCCX),
)  # fmt: skip
_gate(
    "rc3x", "X with three controls up to phases", "control1 control2 control3 target", methods={"rc3x": 0}, aliases={"rcccx": "rc3x"},
    later={"rc3x": 0}, inverse=None, block=_several_block(_RC3X), build=_several(_RC3X),
)  # fmt: skip

_gate(
    "gphase", "the phase exp(i angle), of the whole state", "", "angle", methods={"gphase": 0}, inverse=_by_negated("gphase"),
    block=lambda c, q, angle: [_on("PH", c[-1:], c[:-1], (angle,))] if c else [],
    build=lambda params, qubits: (Instruction("diagonal", (), (cmath.rect(1.0, params[0]),)),),
)  # fmt: skip

#: All of them, by name.
GATES: Mapping[str, Gate] = {gate.name: gate for gate in _ROWS}

#: Names of those the library has. Each takes any number of controls.
NATIVE = frozenset(gate.name for gate in _ROWS if gate.is_native)
