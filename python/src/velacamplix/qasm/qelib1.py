"""The gates of qelib1.inc, and the two built into the language.

Each is given directly in the library's own gates, not through the bodies of
the file: one instruction where possible. U is

    [[cos(t/2),            -exp(i l) sin(t/2)      ],
     [exp(i p) sin(t/2),    exp(i (p + l)) cos(t/2)]]

and rz has the phases -phi/2 and +phi/2, so that a gate, its global phase and
its controlled form belong together: cu3 is u3 with a control, crz is rz with
a control.
"""

from __future__ import annotations

import cmath
import math
from typing import Any, Callable, Dict, Tuple

from ..instruction import Instruction
from .expand import LibraryGate, Params, Qubits

Build = Callable[[Params, Qubits], Tuple[Instruction, ...]]

_SX = ((1 + 1j) / 2, (1 - 1j) / 2, (1 - 1j) / 2, (1 + 1j) / 2)
_SXDG = ((1 - 1j) / 2, (1 + 1j) / 2, (1 + 1j) / 2, (1 - 1j) / 2)


def _u(theta: float, phi: float, lam: float, gamma: float = 0.0) -> Tuple[complex, ...]:
    c, s = math.cos(theta / 2), math.sin(theta / 2)
    return (
        cmath.rect(c, gamma),
        -cmath.rect(s, gamma + lam),
        cmath.rect(s, gamma + phi),
        cmath.rect(c, gamma + phi + lam),
    )


def _rxx(theta: float) -> Tuple[complex, ...]:
    c, s = complex(math.cos(theta / 2)), complex(0.0, -math.sin(theta / 2))
    return (c, 0j, 0j, s, 0j, c, s, 0j, 0j, s, c, 0j, s, 0j, 0j, c)


def _rzz(theta: float) -> Tuple[complex, ...]:
    even, odd = cmath.rect(1.0, -theta / 2), cmath.rect(1.0, theta / 2)
    return (even, 0j, 0j, 0j, 0j, odd, 0j, 0j, 0j, 0j, odd, 0j, 0j, 0j, 0j, even)


# --- Ways to make the instructions of a call ---


def _nothing(params: Params, qubits: Qubits) -> Tuple[Instruction, ...]:
    return ()


def _named(name: str) -> Build:
    """The gate `name` on all qubits."""
    return lambda params, qubits: (Instruction(name, qubits, params),)


def _phase(angle: float) -> Build:
    return lambda params, qubits: (Instruction("PH", qubits, (angle,)),)


def _controlled(name: str) -> Build:
    """The one-qubit gate `name` on the last qubit, controlled by all others."""
    return lambda params, qubits: (Instruction(name, qubits[-1:], params, qubits[:-1]),)


def _dense(matrix: Callable[..., Tuple[complex, ...]], n_controls: int = 0) -> Build:
    """The matrix of the parameters on all qubits but the first `n_controls`."""
    return lambda params, qubits: (
        Instruction("matrix", qubits[n_controls:], matrix(*params), qubits[:n_controls]),
    )


def _sequence(*steps: Tuple[Any, ...]) -> Build:
    """Several gates; a step is (name, positions of qubits, parameters...)."""

    def build(params: Params, qubits: Qubits) -> Tuple[Instruction, ...]:
        return tuple(
            [
                Instruction(name, tuple([qubits[position] for position in positions]), tuple(values))
                for name, positions, *values in steps
            ]
        )

    return build


_EIGHTH = math.pi / 4

# A Toffoli gate up to phases, with half the CNOTs.
_RCCX = _sequence(
    ("H", (2,)), ("T", (2,)), ("CNOT", (1, 2)), ("PH", (2,), -_EIGHTH),
    ("CNOT", (0, 2)), ("T", (2,)), ("CNOT", (1, 2)), ("PH", (2,), -_EIGHTH), ("H", (2,)),
)  # fmt: skip

_RC3X = _sequence(
    ("H", (3,)), ("T", (3,)), ("CNOT", (2, 3)), ("PH", (3,), -_EIGHTH), ("H", (3,)),
    ("CNOT", (0, 3)), ("T", (3,)), ("CNOT", (1, 3)), ("PH", (3,), -_EIGHTH),
    ("CNOT", (0, 3)), ("T", (3,)), ("CNOT", (1, 3)), ("PH", (3,), -_EIGHTH),
    ("H", (3,)), ("T", (3,)), ("CNOT", (2, 3)), ("PH", (3,), -_EIGHTH), ("H", (3,)),
)  # fmt: skip

# Exchanges by moving amplitudes only.
_CSWAP = _sequence(("CNOT", (2, 1)), ("CCNOT", (0, 1, 2)), ("CNOT", (2, 1)))

# name: (parameters, qubits, instructions)
_LANGUAGE: Dict[str, Tuple[int, int, Build]] = {
    "U": (3, 1, _dense(_u)),
    "CX": (0, 2, _named("CNOT")),
}

# Those of arXiv:1707.03429. Their meaning is fixed.
_STANDARD: Dict[str, Tuple[int, int, Build]] = {
    "u3": (3, 1, _dense(_u)),
    "u2": (2, 1, _dense(lambda phi, lam: _u(math.pi / 2, phi, lam))),
    "u1": (1, 1, _named("PH")),
    "cx": (0, 2, _named("CNOT")),
    "id": (0, 1, _nothing),
    "x": (0, 1, _named("X")),
    "y": (0, 1, _named("Y")),
    "z": (0, 1, _named("Z")),
    "h": (0, 1, _named("H")),
    "s": (0, 1, _named("S")),
    "sdg": (0, 1, _phase(-math.pi / 2)),
    "t": (0, 1, _named("T")),
    "tdg": (0, 1, _phase(-math.pi / 4)),
    "rx": (1, 1, _named("RX")),
    "ry": (1, 1, _named("RY")),
    "rz": (1, 1, _named("RZ")),
    "cz": (0, 2, _named("CSIGN")),
    "cy": (0, 2, _controlled("Y")),
    "ch": (0, 2, _controlled("H")),
    "ccx": (0, 3, _named("CCNOT")),
    "crz": (1, 2, _controlled("RZ")),
    "cu1": (1, 2, _controlled("PH")),
    "cu3": (3, 2, _dense(_u, 1)),
}

# Those that came with later versions of the file. Programs older than that
# define some of them themselves, and then mean their own.
_LATER: Dict[str, Tuple[int, int, Build]] = {
    "u0": (1, 1, _nothing),
    "u": (3, 1, _dense(_u)),
    "p": (1, 1, _named("PH")),
    "sx": (0, 1, _dense(lambda: _SX)),
    "sxdg": (0, 1, _dense(lambda: _SXDG)),
    "swap": (0, 2, _named("SWAP")),
    "cswap": (0, 3, _CSWAP),
    "crx": (1, 2, _controlled("RX")),
    "cry": (1, 2, _controlled("RY")),
    "cp": (1, 2, _controlled("PH")),
    "csx": (0, 2, _dense(lambda: _SX, 1)),
    "cu": (4, 2, _dense(_u, 1)),
    "rxx": (1, 2, _dense(_rxx)),
    "rzz": (1, 2, _dense(_rzz)),
    "rccx": (0, 3, _RCCX),
    "rc3x": (0, 4, _RC3X),
    "c3x": (0, 4, _controlled("X")),
    "c3sqrtx": (0, 4, _dense(lambda: _SX, 3)),
    "c4x": (0, 5, _controlled("X")),
}


def _table(
    entries: Dict[str, Tuple[int, int, Build]], can_be_replaced: bool = False
) -> Dict[str, LibraryGate]:
    return {
        name: LibraryGate(name, n_params, n_qubits, build, _size(n_params, n_qubits, build), can_be_replaced)
        for name, (n_params, n_qubits, build) in entries.items()
    }


def _size(n_params: int, n_qubits: int, build: Build) -> int:
    # At least 1: a call costs time even if nothing comes of it.
    return max(1, len(build((0.0,) * n_params, tuple(range(n_qubits)))))


#: The gates that need no include.
LANGUAGE: Dict[str, LibraryGate] = _table(_LANGUAGE)

#: What ``include "qelib1.inc";`` declares.
GATES: Dict[str, LibraryGate] = {**_table(_STANDARD), **_table(_LATER, can_be_replaced=True)}
