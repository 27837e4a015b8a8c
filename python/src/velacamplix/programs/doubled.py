"""From gates and channels on m qubits to operations on the 2 m qubits of a density matrix.

Entry <i|rho|j> stands at the index j * 2**m + i: qubit q of the ket is bit q, qubit q of the bra bit q + m. A gate U is
U on the ket and conj(U) on the bra; any channel is a matrix on both.

A pair (q, q + m) stands in one of two *frames*. In the entries' own frame gates have their usual matrices. In the Bell
frame the pair holds the coefficients of I, Z, X and Z X, numbered 0 to 3: bit q tells whether there is a Z, bit q + m
whether there is an X; CNOT (q, q + m) and H q lead there. There Pauli channels are diagonal, CNOT, CZ and SWAP move and
change signs, and a rotation about X or Z turns half of the entries. So a pair stays in the Bell frame as long as what
follows is at home there; all that acts on a qubit alone is multiplied together; and diagonals wait for others on the
same qubits.
"""

from __future__ import annotations

import math
from collections.abc import Iterable, Sequence
from functools import lru_cache
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ..channels.channel import Channel
from ..channels.forms import pauli_matrix
from ..instructions.gates import GATES
from ..instructions.instruction import Instruction

Matrix = NDArray[Any]

# From the entries of a pair to its coefficients in the Bell frame, and back.
_S = math.sqrt(0.5)
_TO_BELL: Matrix = np.array([[_S, 0, 0, _S], [_S, 0, 0, -_S], [0, _S, _S, 0], [0, -_S, _S, 0]], dtype=complex)
_FROM_BELL: Matrix = _TO_BELL.conj().T
# Z X is i Y: from the coefficients in the Bell frame to those of I, Z, X, Y, which are real.
_TO_REAL: NDArray[Any] = np.array([1, 1, 1, 1j])
# What rounding leaves where a number should be 0, or two should be equal.
_ROUNDING = 2e-15

_PAULIS = {letter: pauli_matrix(letter) for letter in "IXYZ"}

# What is not a gate of the library and acts on a qubit alone, on entries numbered 2 * bra + ket.
_RESET: Matrix = np.array([[1, 0, 0, 1], [0] * 4, [0] * 4, [0] * 4], dtype=complex)
_MEASURED: Matrix = np.diag([1, 0, 0, 1]).astype(complex)

# The frame that operations on several qubits are at home in; CNOT, CZ and SWAP in both.
_OWN, _BELL, _ANY = "own", "Bell", "any"


def doubled(steps: Iterable[Instruction], n_qubits: int) -> list[Instruction]:
    """Return what acts on the 2 m qubits of a density matrix, in the library's gates, matrices and diagonals.

    Parameters
    ----------
    steps : iterable of Instruction
        The library's own gates; and "channel", "reset", "measure", whose outcome nobody learns, and "barrier", which is
        left out. Conditions are not looked at.
    n_qubits : int
        m.

    Examples
    --------
    >>> print(*doubled([Instruction("RZ", (0,), (0.5,)), Instruction("CNOT", (0, 1))], 2), sep=", ")
    diagonal[4] 2,0, CNOT 0,1, CNOT 2,3
    """
    return _Rewriting(n_qubits).rewritten([step for step in steps if step.name != "barrier"])


class _Rewriting:
    """Rewrites one list."""

    def __init__(self, n_qubits: int) -> None:
        self._m = n_qubits
        self._out: list[Instruction] = []
        self._frame = [_OWN] * n_qubits
        # What waits of each qubit alone: on entries, and the gate if it is one.
        self._waiting: dict[int, Matrix] = {}
        self._gate: dict[int, Matrix] = {}
        # Diagonals in the Bell frame that wait, by any of their qubits: qubits, and factors numbered (x z of the last
        # qubit, ..., x z of the first). What waits of a qubit alone comes behind them.
        self._factors: dict[int, tuple[tuple[int, ...], NDArray[Any]]] = {}

    def rewritten(self, steps: Sequence[Instruction]) -> list[Instruction]:
        """Return the new list."""
        for step, wish in zip(steps, _wishes(steps)):
            if step.name in ("reset", "measure"):
                for qubit in step.qubits:
                    self._alone(qubit, _RESET if step.name == "reset" else _MEASURED)
            elif step.name == "channel" and self._is_at_home(step):
                self._multiply(step.qubits, _pauli_factors(_of(step)))
            elif len(_qubits(step)) == 1:
                self._alone(step.qubits[0] if step.qubits else step.controls[0], *_superoperator(step))
            elif _qubits(step):
                self._together(step, wish)
        for qubit in range(self._m):
            self._to_own(qubit)
        return self._out

    def _alone(self, qubit: int, matrix: Matrix, gate: Matrix | None = None) -> None:
        """Take up what acts on one qubit."""
        before = self._waiting.get(qubit)
        if before is None:
            self._waiting[qubit] = matrix
            if gate is not None:
                self._gate[qubit] = gate
            return
        self._waiting[qubit] = matrix @ before
        if gate is not None and qubit in self._gate:
            self._gate[qubit] = gate @ self._gate[qubit]
        else:
            self._gate.pop(qubit, None)

    def _is_at_home(self, step: Instruction) -> bool:
        """Return whether a channel is diagonal where its qubits stand, and nothing waits on one of them alone."""
        if _of(step).pauli_probabilities is None:
            return False
        return all([self._frame[qubit] == _BELL and qubit not in self._waiting for qubit in step.qubits])

    def _together(self, step: Instruction, frame: str) -> None:
        qubits, m = _qubits(step), self._m
        if frame == _OWN:
            for qubit in qubits:
                self._to_own(qubit)
            if step.name == "channel":
                # The first listed is the highest bit of a row's number; qubit 0 of a channel is the lowest.
                places = tuple([qubit + m for qubit in reversed(qubits)]) + qubits[::-1]
                self._put("matrix", places, _channel(step).ravel().tolist())
            else:
                self._out.append(step._replace(condition=None))
                self._out.append(_conjugate(step, m))
            return
        for qubit in qubits:
            self._to_bell(qubit)
        kind = _move(step)
        if kind is None:
            self._multiply(qubits, _pauli_factors(_of(step)))
            return
        a, b = qubits
        self._move_factors(kind, a, b)
        if kind == "CNOT":
            self._put("CNOT", (a + m, b + m))
            self._put("CNOT", (b, a))
        elif kind == "CSIGN":
            self._put("CNOT", (a + m, b))
            self._put("CNOT", (b + m, a))
            self._put("CSIGN", (a + m, b + m))
        else:
            self._put("SWAP", (a, b))
            self._put("SWAP", (a + m, b + m))

    # Frames

    def _to_own(self, q: int) -> None:
        """Bring all that waits of a qubit to an end, and its pair to the entries' own frame."""
        m = self._m
        if self._frame[q] == _BELL:
            self._settle(q)
            self._write(q)
            self._put("H", (q,))
            self._put("CNOT", (q, q + m))
            self._frame[q] = _OWN
            return
        matrix, gate = self._waiting.pop(q, None), self._gate.pop(q, None)
        if matrix is None or _is_identity(matrix):
            return
        if _is_diagonal(matrix):
            self._put("diagonal", (q + m, q), matrix.diagonal().tolist())
        elif gate is not None:
            self._put("matrix", (q,), gate.ravel().tolist())
            self._put("matrix", (q + m,), gate.conj().ravel().tolist())
        else:
            self._put("matrix", (q + m, q), matrix.ravel().tolist())

    def _to_bell(self, q: int) -> None:
        """Bring a pair to the Bell frame, and what waits of its qubit to an end but for a diagonal."""
        if self._frame[q] == _OWN:
            self._put("CNOT", (q, q + self._m))
            self._put("H", (q,))
            self._frame[q] = _BELL
        self._settle(q)

    def _settle(self, q: int) -> None:
        """Write what waits of a qubit alone in the Bell frame; a diagonal at its end goes on waiting."""
        matrix = self._waiting.pop(q, None)
        self._gate.pop(q, None)
        if matrix is None or _is_identity(matrix):
            return
        matrix = _TO_BELL @ matrix @ _FROM_BELL
        if _is_diagonal(matrix):
            factors = matrix.diagonal()
            self._multiply((q,), factors.real if np.abs(factors.imag).max() <= _ROUNDING else factors)
            return
        self._write(q)
        turned = _turns(matrix)
        if turned is None:
            self._put("matrix", (q + self._m, q), matrix.ravel().tolist())
            return
        (first, middle, last), factors = turned
        self._turn_z(q, first)
        if middle:
            self._put("RX", (q + self._m,), (-2 * middle,), (q,))
        self._turn_z(q, last)
        if any(factor != 1 for factor in factors):
            self._multiply((q,), factors)

    def _turn_z(self, q: int, angle: float) -> None:
        if angle:
            self._put("RX", (q,), (2 * angle,), (q + self._m,))

    # Diagonals that wait

    def _multiply(self, qubits: tuple[int, ...], factors: NDArray[Any]) -> None:
        """Take up a diagonal in the Bell frame."""
        for qubit in qubits:
            group = self._factors.get(qubit)
            if group is None:
                continue
            whole, values = group
            if set(qubits).issuperset(whole):
                factors = factors * _spread(values, whole, qubits)
            elif set(qubits).issubset(whole):
                qubits, factors = whole, values * _spread(factors, qubits, whole)
            else:  # two that overlap stay two
                self._write(qubit)
                continue
            for other in whole:
                del self._factors[other]
        self._factors.update(dict.fromkeys(qubits, (qubits, factors)))

    def _write(self, q: int) -> None:
        """Write the diagonal that waits on a qubit."""
        group = self._factors.get(q)
        if group is None:
            return
        qubits, factors = group
        for qubit in qubits:
            del self._factors[qubit]
        if (factors == 1).all():
            return
        places = [place for qubit in reversed(qubits) for place in (qubit + self._m, qubit)]
        self._put("diagonal", tuple(places), factors.tolist())

    def _move_factors(self, kind: str, a: int, b: int) -> None:
        """Let a CNOT, CZ or SWAP in the Bell frame overtake the diagonals that wait on its two qubits."""
        for qubit in (a, b):
            group = self._factors.get(qubit)
            if group is not None and not {a, b}.issuperset(group[0]):
                self._write(qubit)
        if a not in self._factors and b not in self._factors:
            return
        self._multiply((a, b), np.ones(16))
        qubits, factors = self._factors[a]
        places = np.arange(16)
        bits = {word: places >> 2 * qubits.index(q) + i & 1 for q, name in ((a, "a"), (b, "b")) for i, word in
                enumerate((f"z{name}", f"x{name}"))}  # fmt: skip
        # The factor of what is moved to a place is that of the place it comes from; all three undo themselves.
        if kind == "CNOT":
            bits["xb"], bits["za"] = bits["xb"] ^ bits["xa"], bits["za"] ^ bits["zb"]
        elif kind == "CSIGN":
            bits["zb"], bits["za"] = bits["zb"] ^ bits["xa"], bits["za"] ^ bits["xb"]
        else:
            bits = {"xa": bits["xb"], "za": bits["zb"], "xb": bits["xa"], "zb": bits["za"]}
        from_place = sum(
            [(bits[f"z{name}"] + 2 * bits[f"x{name}"]) << 2 * qubits.index(q) for q, name in ((a, "a"), (b, "b"))]
        )
        self._factors.update(dict.fromkeys(qubits, (qubits, factors[from_place])))

    def _put(
        self, name: str, qubits: tuple[int, ...], params: Iterable[Any] = (), controls: tuple[int, ...] = ()
    ) -> None:
        self._out.append(Instruction(name, qubits, tuple(params), controls))


# What steps are


def _qubits(step: Instruction) -> tuple[int, ...]:
    return step.controls + step.qubits


def _move(step: Instruction) -> str | None:
    """Return CNOT, CSIGN or SWAP if a step on two qubits is that gate."""
    if step.name in ("CNOT", "CSIGN", "SWAP") and not step.controls:
        return step.name
    return {"X": "CNOT", "Z": "CSIGN"}.get(step.name) if len(step.controls) == 1 else None


def _wishes(steps: Sequence[Instruction]) -> list[str]:
    """Return for each step on several qubits the frame it is best done in: its own, or that of what comes next."""
    wishes: list[str] = []
    later: dict[int, str] = {}
    for step in reversed(steps):
        qubits = _qubits(step)
        if len(qubits) < 2 or step.name in ("reset", "measure"):
            wishes.append(_ANY)
            # Reset, and channels that are none of Pauli's, are matrices in one frame as in the other.
            continue
        if step.name == "channel":
            wish = _OWN if _of(step).pauli_probabilities is None else _BELL
        elif _move(step):
            wish = _BELL if _BELL in [later.get(qubit) for qubit in qubits] else _OWN
        else:
            wish = _OWN
        wishes.append(wish)
        later.update(dict.fromkeys(qubits, wish))
    return wishes[::-1]


def _superoperator(step: Instruction) -> tuple[Matrix, Matrix | None]:
    """Return what a step on one qubit does to entries numbered 2 * bra + ket, and its matrix if it is a gate."""
    if step.name == "channel":
        return _channel(step), None
    gate = matrix_of(step)
    return (gate.conj()[:, np.newaxis, :, np.newaxis] * gate[np.newaxis, :, np.newaxis, :]).reshape(4, 4), gate


def _of(step: Instruction) -> Channel:
    assert isinstance(step.detail, Channel)
    return step.detail


def _channel(step: Instruction) -> Matrix:
    return _superoperator_of(_of(step))


# Noise models put the same few channels beside every gate.
@lru_cache(maxsize=64)
def _superoperator_of(channel: Channel) -> Matrix:
    strings = channel.pauli_probabilities
    if strings is None or channel.n_qubits > 1:
        return channel.superoperator()
    # Without the roots of the probabilities, which are in its operators.
    matrix: Matrix = np.zeros((4, 4), dtype=complex)
    for letter, p in strings.items():
        matrix += p * np.kron(_PAULIS[letter].conj(), _PAULIS[letter])
    return matrix


def matrix_of(step: Instruction) -> Matrix:
    """Return the matrix of one of the library's gates, or a matrix or diagonal, without its controls."""
    if step.name == "matrix":
        size = 2 ** len(step.qubits)
        return np.array(step.params, dtype=complex).reshape(size, size)
    if step.name == "diagonal":
        if not step.qubits:  # a phase under a control
            return np.diag([1, *step.params]).astype(complex)
        return np.diag(np.array(step.params, dtype=complex))
    if step.name in _IN_PROGRAMS:
        return _IN_PROGRAMS[step.name](*step.params)
    entries = GATES[step.name].matrix
    assert entries is not None
    values = np.array(entries(*step.params), dtype=complex)
    size = math.isqrt(len(values))
    return values.reshape(size, size)


def _u(theta: Any, phi: Any, lam: Any) -> Matrix:
    c, s = math.cos(theta / 2), math.sin(theta / 2)
    e, f = complex(math.cos(phi), math.sin(phi)), complex(math.cos(lam), math.sin(lam))
    return np.array([[c, -f * s], [e * s, e * f * c]])


_IN_PROGRAMS: dict[str, Any] = {
    "U": _u,
    "SX": lambda: np.array([[0.5 + 0.5j, 0.5 - 0.5j], [0.5 - 0.5j, 0.5 + 0.5j]]),
}

# Gates whose conjugate is the same gate, or the one with the other sign of its angle; of others the matrix is written.
_REAL = frozenset({"X", "Z", "H", "RY", "CNOT", "CSIGN", "CCNOT", "SWAP"})
_TURNED = frozenset({"RX", "RZ", "PH", "RXX", "RYY", "RZZ"})


def _conjugate(step: Instruction, m: int) -> Instruction:
    """Return the conjugate of a gate, on the bra."""
    name, params = step.name, step.params
    if name in _TURNED:
        params = tuple([-angle for angle in params])  # type: ignore[operator]
    elif name == "U":
        theta, phi, lam = params
        params = (theta, -phi, -lam)  # type: ignore[operator]
    elif name in ("matrix", "diagonal"):
        params = tuple([complex(value).conjugate() for value in params])  # type: ignore[arg-type]
    elif name not in _REAL:
        name, params = "matrix", tuple(matrix_of(step).conj().ravel().tolist())
    qubits, controls = tuple([q + m for q in step.qubits]), tuple([q + m for q in step.controls])
    return Instruction(name, qubits, params, controls)


# Numbers


def _is_diagonal(matrix: Matrix) -> bool:
    rest = matrix - np.diag(matrix.diagonal())
    return float(np.abs(rest).max()) <= _ROUNDING


def _is_identity(matrix: Matrix) -> bool:
    return bool((matrix == np.eye(4)).all())


def _turns(matrix: Matrix) -> tuple[tuple[float, float, float], NDArray[Any]] | None:
    """Return a map in the Bell frame as rotations about Z, X and Z, and factors behind them; None if it is more.

    I is kept, and X, Y, Z are turned like the axes of space and multiplied by factors.
    """
    real = (_TO_REAL[:, np.newaxis] * matrix / _TO_REAL).real
    if max(np.abs(real[0] - [1, 0, 0, 0]).max(), np.abs(real[1:, 0]).max()) > _ROUNDING:
        return None
    rows = real[np.ix_([2, 3, 1], [2, 3, 1])]  # of X, Y, Z
    squares = rows @ rows.T
    sizes = np.sqrt(squares.diagonal())
    if np.abs(squares - np.diag(squares.diagonal())).max() > _ROUNDING or sizes.min() < 0.01:
        return None
    if np.abs(sizes - sizes[0]).max() <= _ROUNDING:
        sizes[:] = sizes[0]
    if np.linalg.det(rows) < 0:
        sizes = -sizes
    r = rows / sizes[:, np.newaxis]
    # r = Rz(last) Rx(middle) Rz(first).
    middle = math.atan2(math.hypot(r[2, 0], r[2, 1]), r[2, 2])
    if math.sin(middle) > _ROUNDING:
        first, last = math.atan2(r[2, 0], r[2, 1]), math.atan2(r[0, 2], -r[1, 2])
    else:
        middle = 0.0 if middle < 1 else math.pi
        first, last = math.atan2(r[1, 0] if middle == 0 else -r[1, 0], r[0, 0]), 0.0
    if abs(abs(first) - math.pi) <= _ROUNDING and abs(abs(last) - math.pi) <= _ROUNDING:
        first, last, middle = 0.0, 0.0, -middle  # half a turn about Z on both sides turns X round
    elif abs(abs(first) - math.pi) <= _ROUNDING:
        first, last, middle = 0.0, last + math.copysign(math.pi, -last), -middle
    elif abs(abs(last) - math.pi) <= _ROUNDING:
        first, last, middle = first + math.copysign(math.pi, -first), 0.0, -middle
    angles = [0.0 if abs(angle) <= _ROUNDING else angle for angle in (first, middle, last)]
    return (angles[0], angles[1], angles[2]), np.array([1.0, sizes[2], sizes[0], sizes[1]])


@lru_cache(maxsize=64)
def _pauli_factors(channel: Channel) -> NDArray[Any]:
    """Return what a Pauli channel multiplies every coefficient in the Bell frame by.

    A string comes out with the sign that tells whether it commutes with the one that is applied.
    """
    strings = channel.pauli_probabilities
    assert strings is not None
    n = len(next(iter(strings)))
    places = np.arange(4**n)
    factors = np.zeros(4**n)
    for text, probability in strings.items():
        signs = np.zeros(4**n, dtype=np.int64)
        for j, letter in enumerate(text):
            z, x = places >> 2 * j & 1, places >> 2 * j + 1 & 1
            signs ^= (z if letter in "XY" else 0) ^ (x if letter in "ZY" else 0)
        factors += probability * (1 - 2 * signs)
    factors[0] = 1.0  # a channel keeps the trace
    return factors


def _spread(factors: NDArray[Any], qubits: Sequence[int], whole: Sequence[int]) -> NDArray[Any]:
    """Return a diagonal of some qubits as one of more."""
    places = np.arange(4 ** len(whole))
    own = sum([(places >> 2 * whole.index(qubit) & 3) << 2 * i for i, qubit in enumerate(qubits)])
    spread: NDArray[Any] = factors[own]
    return spread
