"""|ket><bra| of basis states as a sum of Pauli strings."""

from __future__ import annotations

from collections.abc import Sequence

from ..machine import memory
from .terms import Listed, plain

#: Of a projector, which has 2^k strings on k qubits.
MOST_BITS = 16

# |ket><bra| on one qubit, as weights and letters.
_PARTS = {
    "00": ((0.5, "I"), (0.5, "Z")),
    "11": ((0.5, "I"), (-0.5, "Z")),
    "01": ((0.5, "X"), (0.5j, "Y")),
    "10": ((0.5, "X"), (-0.5j, "Y")),
}

_BYTES_PER_TERM = 300


def ket_bra(ket: str, bra: str, qubits: Sequence[int]) -> list[Listed]:
    """Return |ket><bra| as 2^k terms; character i of either text is that of ``qubits[i]``.

    >>> ket_bra("1", "1", [5])
    [(0.5, 'I', (5,)), (-0.5, 'Z', (5,))]
    >>> ket_bra("0", "1", [5])
    [(0.5, 'X', (5,)), (0.5j, 'Y', (5,))]
    """
    memory.require_bytes(_BYTES_PER_TERM << len(ket), f"an operator of {1 << len(ket)} Pauli strings")
    strings: list[tuple[complex, str]] = [(1.0, "")]
    for bits in map("".join, zip(ket, bra)):
        strings = [(weight * w, letters + letter) for w, letter in _PARTS[bits] for weight, letters in strings]
    places = tuple(qubits)
    return [(plain(weight), letters, places) for weight, letters in strings]
