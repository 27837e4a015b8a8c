"""Pauli sums of a state in parts, with the bits of one process."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from ..core import extension
from ..observables.observable import Observable
from ..observables.terms import Term, mask
from ..programs.drive import heard
from ..states.statevector import StateVector
from .ranks import PIECE, Ranks

# A part with fewer qubits cuts what the library adds by one tree; such states are small, and every rank gets all of one.
_FEWEST_QUBITS = 13
# Sections of a sum; a section lies on one rank.
_MOST_RANKS = 4096
# Whose partial sums, one for each section, take 8 MiB at most.
_MOST_TERMS = 256


def term_values(ranks: Ranks, part: StateVector, numbers: Sequence[int], observable: Observable) -> np.ndarray:
    """Return coefficient times expectation value of every term, ``complex128``."""
    terms, n = observable.terms, part.n_qubits + ranks.bits
    if part.n_qubits < _FEWEST_QUBITS:
        whole = StateVector._another(n, part.precision, part.threads)
        whole._live().view()[:] = ranks.all_of(part._live().view(), numbers)
        return extension.term_values(whole._live(), observable.compiled(), *heard())
    if ranks.size > _MOST_RANKS:
        raise ValueError(f"expectation values can be told on {_MOST_RANKS} ranks at most, got {ranks.size}")
    view = part._live().view()
    piece_qubits = min(part.n_qubits, (PIECE // view.itemsize).bit_length() - 1)
    groups: dict[int, list[int]] = {}  # by what the terms flip beyond a part, or a piece of one
    for place, term in enumerate(terms):
        flip = mask(term, "XY")
        groups.setdefault(flip >> piece_qubits if flip >> part.n_qubits else 0, []).append(place)
    values: np.ndarray = np.zeros(len(terms), dtype=np.complex128)
    for flip in sorted(groups):
        places = groups[flip]
        for first in range(0, len(places), _MOST_TERMS):
            some = places[first : first + _MOST_TERMS]
            one = _Sums(ranks, part, numbers, [terms[place] for place in some], flip, piece_qubits)
            values[some] = one.values()
    return values


class _Sums:
    """The sums of terms that flip the same qubits outside of a piece."""

    def __init__(
        self, ranks: Ranks, part: StateVector, numbers: Sequence[int], terms: Sequence[Term], flip: int, piece_qubits: int
    ) -> None:
        self._ranks, self._part, self._numbers = ranks, part, numbers
        self._flip, self._piece_qubits = flip, piece_qubits
        self._n = part.n_qubits + ranks.bits
        self._observable = extension.Observable(
            [term.coefficient for term in terms],
            [mask(term, "XY") for term in terms],
            [mask(term, "YZ") for term in terms],
            [term.paulis.count("Y") for term in terms],
            0j,
            self._n,
        )

    def values(self) -> np.ndarray:
        """Return coefficient times value of every term."""
        sums, others = self._sums(False), None
        if np.isinf(sums).any():  # the other part of the products may make nan of it
            others = self._sums(True)
        return extension.part_term_values(self._observable, self._n, sums, others)

    def _sums(self, other_part: bool) -> np.ndarray:
        sums: np.ndarray = np.zeros(extension.part_sections(self._n) * len(self._observable))

        def add(ket: np.ndarray, bra: np.ndarray, number: int) -> None:
            extension.add_part_values(
                ket, bra, self._n, number, self._observable, self._part.threads, other_part, sums, *heard()
            )

        view, number = self._part._live().view(), self._numbers[self._ranks.rank]
        if self._flip == 0:
            add(view, view, number)
        else:
            self._by_pairs(view, number, add)
        self._ranks.added(sums)
        return sums

    def _by_pairs(self, view: np.ndarray, number: int, add: Any) -> None:
        """Add what two parts give together: each takes half of the pieces, with those of the other it needs for them."""
        ranks, size = self._ranks, 1 << self._piece_qubits
        inner_bits = self._part.n_qubits - self._piece_qubits
        across, within = self._flip >> inner_bits, self._flip & ((1 << inner_bits) - 1)
        partner = self._numbers.index(number ^ across)
        is_ket = not number >> (across.bit_length() - 1) & 1
        first = (number if is_ket else number ^ across) << inner_bits  # of the pieces that are kets
        pieces = 1 << inner_bits
        half = max(1, pieces // 2)
        got: np.ndarray = np.empty(size, dtype=view.dtype)

        def piece(place: int) -> np.ndarray:
            return view[place * size : (place + 1) * size]

        for ket in range(half):
            later = ket + half  # its ket goes to the other rank, unless there is one piece alone
            is_shared = later < pieces
            if is_ket:
                ranks.sent_and_got(piece(later) if is_shared else None, got, partner)
                add(piece(ket), got, first + ket)
            else:
                ranks.sent_and_got(piece(ket ^ within), got if is_shared else None, partner)
                if is_shared:
                    add(got, piece(later ^ within), first + later)
