"""Qubits put into a given state, whatever they were in before."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Any, Self

import numpy as np
from numpy.typing import NDArray

from ..basics import arrays, checks
from ..basics.types import Order
from ..basics.words import bit_string
from ..instructions.instruction import Instruction
from ..machine import memory
from .record import Record

# Letters of a product state, and the gates that make them of 0.
_GATES = {"0": (), "1": ("X",), "+": ("H",), "-": ("X", "H"), "r": ("ZtoY",), "l": ("X", "ZtoY")}
# Amplitudes on so many qubits become one matrix, whose first column they are to the last bit; on more, diagonals.
_MOST_IN_A_MATRIX, _MOST_QUBITS = 6, 20


class Preparation(Record):
    """Sets qubits to a state."""

    def initialize(self, state: Any, qubits: int | Sequence[int] | None = None, order: Order | None = None) -> Self:
        """Put qubits into a state of their own: reset them, and make the state of 0.

        It becomes a reset, which does nothing to qubits that are 0 still, and gates. Where the qubits are entangled with
        others, the reset leaves these in the state that belongs to a random outcome, as measuring does. What holds a reset
        has no inverse, no controlled form and no matrix.

        Parameters
        ----------
        state : str, int, array_like or StateVector
            A text of one letter per qubit: ``0 1 + -``, ``r`` for ``(|0> + i|1>)/sqrt(2)``, ``l`` for
            ``(|0> - i|1>)/sqrt(2)``. A number: that basis state. 2**k amplitudes of norm 1, or a state vector of k
            qubits.
        qubits : int or sequence of int, optional
            k distinct qubits, all by default. Qubit j of a state vector goes to the j-th of them.
        order : {"big", "little"}, optional
            Whether the first listed qubit belongs to the first letter and to the highest bit of a number or index ("big"),
            or to the last and the lowest. By default "big" for texts and numbers, "little" for amplitudes, as everywhere.

        Returns
        -------
        Circuit
            This circuit.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the state is of the wrong kind or size, amplitudes are for more than 20 qubits, their norm is off 1 by more than 1e-5, or a qubit is no integer, not
            there or named twice. Within that amplitudes are scaled to norm 1.
        MemoryError
            If the entries of the gates do not fit.

        Notes
        -----
        Amplitudes on up to 6 qubits are the first column of a matrix, a reflection. On more qubits each qubit is rotated
        by angles that depend on the qubits above it, by a diagonal between two changes of basis, and a last diagonal sets
        the phases.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> circuit = Circuit(3).initialize("1+", [0, 2])
        >>> print(circuit)
        reset 0,2
        X 0
        H 2
        >>> run(Circuit(2).initialize([0, 0.6, 0.8j, 0])).state.to_dict()
        {'01': 0.8j, '10': (0.6+0j)}
        """
        targets = checks.qubits(range(self._n_qubits) if qubits is None else qubits, self._n_qubits, at_least=0)
        if hasattr(state, "n_qubits") and hasattr(state, "array"):  # a StateVector; its room is above
            if order is not None:
                raise TypeError(f"order can only be given for a text, a number or an array, got {state!r}")
            state = state.array
        is_array = checks.is_list(state)
        usual: Order = "little" if is_array else "big"
        lowest_first = targets if checks.order(usual if order is None else order) == "little" else targets[::-1]
        if is_array:
            steps = _of_amplitudes(_scaled(state, len(targets)), lowest_first)
        else:
            steps = _of_letters(_letters(state, len(targets)), lowest_first[::-1])
        if targets:
            for step in [Instruction("reset", targets), *steps]:
                self._put(step)
        return self


def _letters(state: Any, n_qubits: int) -> str:
    if not isinstance(state, str):
        if not hasattr(state, "__index__"):
            raise TypeError(
                f"state must be a text, a number, an array of amplitudes or a StateVector, got {checks.show(state)}"
            )
        return bit_string(checks.integer(state, "state", minimum=0, maximum=2**n_qubits - 1), n_qubits)
    text = checks.plain(state)
    if len(text) != n_qubits or set(text) - set(_GATES):
        raise ValueError(
            f"state must be a text of {n_qubits} letters {' '.join(_GATES)}, one for each qubit, got {checks.show(text)}"
        )
    return text


def _of_letters(letters: str, qubits: tuple[int, ...]) -> Iterator[Instruction]:
    for letter, qubit in zip(letters, qubits):
        for name in _GATES[letter]:
            yield Instruction(name, (qubit,))


def _scaled(state: Any, n_qubits: int) -> NDArray[np.complex128]:
    if n_qubits > _MOST_QUBITS:
        raise ValueError(
            f"amplitudes must be for at most {_MOST_QUBITS} qubits, got {n_qubits}; run(circuit, initial=array) begins with "
            "a state of any size"
        )
    given = arrays.amplitudes(state, n_qubits, "state")
    memory.require_entries(3 * 2**n_qubits)
    amplitudes = given.astype(np.complex128)
    norm = float(np.linalg.norm(amplitudes))
    # What has norm 1 but for rounding stays as it is.
    return amplitudes if abs(norm - 1) < 1e-12 else amplitudes / norm


def _of_amplitudes(amplitudes: NDArray[np.complex128], qubits: tuple[int, ...]) -> Iterator[Instruction]:
    """Iterate over gates that make a state of 0; qubit j of the list is bit j of its index."""
    n = len(qubits)
    if n <= _MOST_IN_A_MATRIX:
        yield Instruction("matrix", qubits[::-1], checks.plain_entries(_with_first_column(amplitudes)))
    else:
        for place in reversed(range(n)):
            yield Instruction("YtoZ", (qubits[place],))
            yield Instruction("diagonal", qubits[place:][::-1], checks.plain_entries(_half_angles(amplitudes, place)))
            yield Instruction("ZtoY", (qubits[place],))
        sizes = np.abs(amplitudes)
        phases = np.divide(amplitudes, sizes, out=np.ones(len(sizes), dtype=complex), where=sizes > 0)
        yield Instruction("diagonal", qubits[::-1], checks.plain_entries(phases))


def _with_first_column(column: NDArray[np.complex128]) -> NDArray[np.complex128]:
    """Return a unitary matrix, a reflection times a phase, whose first column is the given one."""
    first = complex(column[0])
    phase = -first / abs(first) if first else -1.0
    normal = column.copy()
    normal[0] -= phase
    matrix: NDArray[np.complex128] = np.eye(len(column), dtype=complex)
    matrix -= np.outer(normal, normal.conj()) * (2 / np.vdot(normal, normal).real)
    matrix *= phase
    matrix[:, 0] = column
    return matrix


def _half_angles(amplitudes: NDArray[np.complex128], place: int) -> NDArray[np.complex128]:
    """Return exp(-i angle / 2) and exp(i angle / 2) for every value of the bits above `place`.

    RY(angle) makes of 0 the share of this bit's 0 and 1 in what has these bits.
    """
    shares = np.sqrt((np.abs(amplitudes.reshape(-1, 2, 2**place)) ** 2).sum(axis=2))
    sizes = np.sqrt((shares**2).sum(axis=1, keepdims=True))
    shares = np.divide(shares, sizes, out=np.broadcast_to([1.0, 0.0], shares.shape).copy(), where=sizes > 0)
    return np.stack([shares[:, 0] - 1j * shares[:, 1], shares[:, 0] + 1j * shares[:, 1]], axis=1).reshape(-1)
