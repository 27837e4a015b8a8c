"""Gates the package knows beside the library's own: how each is made of those.

U is

    [[cos(t/2),            -exp(i l) sin(t/2)      ],
     [exp(i p) sin(t/2),    exp(i (p + l)) cos(t/2)]]

and all global phases are those of Qiskit's gates of the same name, so that a gate and its controlled form belong
together. How many instructions a gate becomes never depends on its angles: a plan for some angles serves all.
"""

from __future__ import annotations

import cmath
import math
from collections.abc import Callable, Mapping
from typing import Any, NamedTuple

from .instruction import Instruction

Qubits = tuple[int, ...]
Params = tuple[Any, ...]
Build = Callable[[Params, Qubits], tuple[Instruction, ...]]
# From parameters to name and parameters of the inverse.
Inverse = Callable[[Params], tuple[str, Params]]


class Composite(NamedTuple):
    """A gate made of instructions of the library; `build` wants numbers, `inverse` takes expressions too."""

    n_qubits: int
    n_params: int
    build: Build
    inverse: Inverse | None  # None: invert what it is made of


def u_entries(theta: float, phi: float, lam: float, gamma: float = 0.0) -> tuple[complex, ...]:
    """Return exp(i gamma) U, row by row."""
    c, s = math.cos(theta / 2), math.sin(theta / 2)
    # Phases are multiplied. The sum of large angles is rounded to that of others, and the matrix would not be unitary.
    common, p, q = cmath.rect(1.0, gamma), cmath.rect(1.0, phi), cmath.rect(1.0, lam)
    return (c * common, -(s * common * q), s * common * p, c * common * p * q)


def _rxx_entries(theta: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta / 2)), complex(0.0, -math.sin(theta / 2))
    return (c, 0j, 0j, s, 0j, c, s, 0j, 0j, s, c, 0j, s, 0j, 0j, c)


def _ryy_entries(theta: float) -> tuple[complex, ...]:
    c, s = complex(math.cos(theta / 2)), complex(0.0, math.sin(theta / 2))
    return (c, 0j, 0j, s, 0j, c, -s, 0j, 0j, -s, c, 0j, s, 0j, 0j, c)


def _rzz_entries(theta: float) -> tuple[complex, ...]:
    even, odd = cmath.rect(1.0, -theta / 2), cmath.rect(1.0, theta / 2)
    return (even, odd, odd, even)


_SX = ((1 + 1j) / 2, (1 - 1j) / 2, (1 - 1j) / 2, (1 + 1j) / 2)
_SXDG = ((1 - 1j) / 2, (1 + 1j) / 2, (1 + 1j) / 2, (1 - 1j) / 2)
_ISWAPDG = (1 + 0j, 0j, 0j, 0j, 0j, 0j, -1j, 0j, 0j, -1j, 0j, 0j, 0j, 0j, 0j, 1 + 0j)
_A, _B = (1 - 1j) / 2, (1 + 1j) / 2
_SQRTSWAPDG = (1 + 0j, 0j, 0j, 0j, 0j, _A, _B, 0j, 0j, _B, _A, 0j, 0j, 0j, 0j, 1 + 0j)


# --- Ways to make the instructions ---


def _matrix(entries: Callable[..., tuple[complex, ...]]) -> Build:
    return lambda params, qubits: (Instruction("matrix", qubits, entries(*params)),)


def _phase(angle: float) -> Build:
    return lambda params, qubits: (Instruction("PH", qubits, (angle,)),)


def _sequence(*steps: tuple[Any, ...]) -> Build:
    """Several gates; a step is (name, positions of qubits, parameters...)."""

    def build(params: Params, qubits: Qubits) -> tuple[Instruction, ...]:
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


def _fixed(name: str) -> Inverse:
    return lambda params: (name, params)


def _negated(name: str) -> Inverse:
    return lambda params: (name, tuple([-value for value in params]))


def _u_inverse(name: str) -> Inverse:
    # A fourth parameter is the phase of cu.
    return lambda params: (name, (-params[0], -params[2], -params[1], *[-value for value in params[3:]]))


#: Every composite gate by name. Qubits of "cu" are (control, target).
COMPOSITES: Mapping[str, Composite] = {
    "sdg": Composite(1, 0, _phase(-math.pi / 2), _fixed("S")),
    "tdg": Composite(1, 0, _phase(-math.pi / 4), _fixed("T")),
    "sx": Composite(1, 0, _matrix(lambda: _SX), _fixed("sxdg")),
    "sxdg": Composite(1, 0, _matrix(lambda: _SXDG), _fixed("sx")),
    "u": Composite(1, 3, _matrix(u_entries), _u_inverse("u")),
    "u2": Composite(
        1, 2, _matrix(lambda phi, lam: u_entries(math.pi / 2, phi, lam)),
        lambda params: ("u", (-math.pi / 2, -params[1], -params[0])),
    ),
    "u3": Composite(1, 3, _matrix(u_entries), _u_inverse("u3")),
    "cu": Composite(
        2, 4, lambda params, qubits: (Instruction("matrix", qubits[1:], u_entries(*params), qubits[:1]),),
        _u_inverse("cu"),
    ),
    "rxx": Composite(2, 1, _matrix(_rxx_entries), _negated("rxx")),
    "ryy": Composite(2, 1, _matrix(_ryy_entries), _negated("ryy")),
    "rzz": Composite(
        2, 1, lambda params, qubits: (Instruction("diagonal", qubits, _rzz_entries(*params)),), _negated("rzz")
    ),
    "iswapdg": Composite(2, 0, _matrix(lambda: _ISWAPDG), _fixed("ISWAP")),
    "sqrtswapdg": Composite(2, 0, _matrix(lambda: _SQRTSWAPDG), _fixed("SQRTSWAP")),
    "rccx": Composite(3, 0, _RCCX, _fixed("rccx")),
    "rc3x": Composite(4, 0, _RC3X, None),
}  # fmt: skip

_NATIVE_INVERSES: dict[str, Inverse] = {
    **{name: _fixed(name) for name in ("X", "Y", "Z", "H", "CNOT", "CCNOT", "CSIGN", "SWAP")},
    **{name: _negated(name) for name in ("RX", "RY", "RZ", "PH")},
    "S": _fixed("sdg"),
    "T": _fixed("tdg"),
    "ZtoY": _fixed("YtoZ"),
    "YtoZ": _fixed("ZtoY"),
    "ISWAP": _fixed("iswapdg"),
    "SQRTSWAP": _fixed("sqrtswapdg"),
}


def inverse_by_name(name: str, params: Params) -> tuple[str, Params] | None:
    """Return name and parameters of the inverse of a gate the package knows; None if it has no name."""
    inverse = _NATIVE_INVERSES.get(name) or (COMPOSITES[name].inverse if name in COMPOSITES else None)
    return None if inverse is None else inverse(params)
