"""Outcomes of many bits, one row of 64-bit words per shot."""

from __future__ import annotations

import functools
from collections.abc import Iterator, Sequence

import numpy as np

from ..basics.words import bit_string
from ..machine import memory
from .counts import Counts, require_memory

_WORD = 64

# Scratch memory for a piece of a long array, in bytes, and the shots that are sorted at a time.
_SCRATCH = 2**20
_SORTED = 2**22

# Outcomes of so many bits have their texts ready.
_MOST_TABLED = 10

# Where a bit of an outcome comes from: (True, i) is the i-th sampled qubit, (False, value) is that value.
Source = tuple[bool, int]


def words_for(n_bits: int) -> int:
    """Return how many words an outcome takes, at least one."""
    return max(1, -(-n_bits // _WORD))


def assemble(rows: np.ndarray, sources: Sequence[Source], sampled: np.ndarray, n_sampled: int) -> None:
    """Put the outcomes of some shots together.

    Parameters
    ----------
    rows : numpy.ndarray, shape (shots, words)
        Where to put the bits as a number, its most significant word first, ``uint64``.
    sources : sequence
        For every bit of an outcome, leftmost first.
    sampled : numpy.ndarray, shape (shots,)
        What was drawn of `n_sampled` qubits; the first is the most significant bit.

    Examples
    --------
    >>> rows, drawn = np.empty((2, 1), dtype=np.uint64), np.array([1, 2], dtype=np.uint64)
    >>> assemble(rows, [(False, 1), (True, 1), (False, 0), (True, 0)], drawn, 2)
    >>> rows.tolist()
    [[12], [9]]
    """
    n_bits, n_words = len(sources), words_for(len(sources))
    rows[:] = 0
    for start, length, is_sampled, first in _runs(sources):
        end = n_bits - start - length  # bits to the right of the run
        column, shift = rows[:, n_words - 1 - end // _WORD], np.uint64(end % _WORD)
        if is_sampled:
            field = sampled >> np.uint64(n_sampled - first - length)
            if length < n_sampled:
                field &= np.uint64((1 << length) - 1)
            column |= field << shift
        elif first:
            column |= np.uint64(1) << shift


def _runs(sources: Sequence[Source]) -> Iterator[tuple[int, int, bool, int]]:
    """Iterate over pieces that can be moved as one: start, length, and the source of the first bit."""
    n_bits, start = len(sources), 0
    while start < n_bits:
        is_sampled, first = sources[start]
        length = 1
        while (
            is_sampled
            and start + length < n_bits
            and sources[start + length] == (True, first + length)
            and (n_bits - start - length) % _WORD  # stays within a word
        ):
            length += 1
        yield start, length, is_sampled, first
        start += length


def shuffle(rows: np.ndarray, generator: np.random.Generator) -> None:
    """Put shots into the order of the generator's next permutation of so many.

    >>> rows = np.arange(8, dtype=np.uint64).reshape(4, 2)
    >>> shuffle(rows, np.random.default_rng(1))
    >>> rows[:, 0].tolist() == (2 * np.random.default_rng(1).permutation(4)).tolist()
    True
    """
    # As a list of rows; of a list of lists another order would come.
    generator.shuffle(rows.view(np.dtype((np.void, 8 * rows.shape[1]))).reshape(-1))


def numbers(rows: np.ndarray) -> np.ndarray:
    """Return one number per shot: ``uint64`` if it takes one word, Python's integers otherwise.

    >>> numbers(np.array([[1, 5]], dtype=np.uint64)).tolist() == [2**64 + 5]
    True
    """
    count, words = rows.shape
    if words == 1:
        return rows[:, 0]
    # An integer keeps 30 bits in 4 bytes.
    memory.require_bytes(count * (8 + 32 + 9 * words), f"the numbers of {count} shots of {words * _WORD} bits")
    whole = np.empty(count, dtype=object)
    for piece in _pieces(count, 64 * words):
        octets = _octets(rows[piece]).tobytes()
        whole[piece] = [int.from_bytes(octets[i : i + 8 * words], "big") for i in range(0, len(octets), 8 * words)]
    return whole


def bits(rows: np.ndarray, n_bits: int) -> np.ndarray:
    """Return a row of 0 and 1 per shot, ``uint8``.

    >>> bits(np.array([[6]], dtype=np.uint64), 4).tolist()
    [[0, 1, 1, 0]]
    """
    count, words = rows.shape
    memory.require_bytes(count * n_bits, f"an array of {count} shots of {n_bits} bits")
    found = np.empty((count, n_bits), dtype=np.uint8)
    for piece in _pieces(count, _WORD * words):
        found[piece] = _unpacked(_octets(rows[piece]), n_bits)
    return found


def tally(rows: np.ndarray, n_bits: int) -> Counts:
    """Return how often each outcome came.

    >>> tally(np.array([[2], [0], [2]], dtype=np.uint64), 2)
    {'00': 1, '10': 2}
    """
    summed = Tally(n_bits)
    for start in range(0, len(rows), _SORTED):
        summed.add(rows[start : start + _SORTED])
    return summed.counts()


class Tally:
    """Counts outcomes that come in pieces, in memory for the different ones among them.

    >>> summed = Tally(2)
    >>> for piece in ([[2], [0]], [[2]]):
    ...     summed.add(np.array(piece, dtype=np.uint64))
    >>> summed.counts()
    {'00': 1, '10': 2}
    """

    def __init__(self, n_bits: int) -> None:
        self._n_bits = n_bits
        # Different outcomes in increasing order, each with its number of shots; from part to part fewer.
        self._parts: list[tuple[np.ndarray, np.ndarray]] = []

    def add(self, rows: np.ndarray) -> None:
        """Count the outcomes of some shots, shape (shots, words)."""
        memory.require_bytes(16 * rows.size + 24 * len(rows), f"sorting {len(rows)} shots")
        part = self._found(rows)
        # What is put together doubles in size each time, so no outcome is moved often.
        while self._parts and len(self._parts[-1][0]) <= len(part[0]):
            part = _together(self._parts.pop(), part)
        self._parts.append(part)

    def _found(self, rows: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
        if rows.shape[1] > 1:
            # Texts of bytes are in the order of the numbers.
            texts = _octets(rows).reshape(-1).view(f"S{8 * rows.shape[1]}")
            return np.unique(texts, return_counts=True)
        outcomes = rows[:, 0]
        if 2**self._n_bits > len(outcomes):
            return np.unique(outcomes, return_counts=True)
        # A counter for every possible outcome takes less time than sorting.
        every = np.bincount(outcomes.view(np.int64))
        found = np.flatnonzero(every)
        return found.astype(np.uint64), every[found]

    def counts(self) -> Counts:
        """Return what was counted so far, as the last call."""
        if not self._parts:
            return Counts({}, self._n_bits)
        part = self._parts.pop()
        while self._parts:
            part = _together(self._parts.pop(), part)
        found, times = part
        require_memory(len(found), self._n_bits)
        return Counts._of(self._spelled(found, times), self._n_bits)

    def _spelled(self, found: np.ndarray, times: np.ndarray) -> Iterator[tuple[str, int]]:
        for piece in _pieces(len(found), 2 * max(_WORD, self._n_bits)):
            yield from zip(_texts(found[piece], self._n_bits), times[piece].tolist())


def _texts(outcomes: np.ndarray, n_bits: int) -> list[str]:
    if n_bits <= _MOST_TABLED:
        table = _table(n_bits)
        return [table[number] for number in outcomes.tolist()]
    octets = _octets(outcomes[:, np.newaxis]) if outcomes.dtype.kind == "u" else outcomes.view(np.uint8)
    characters = _unpacked(octets.reshape(len(outcomes), -1), n_bits) + np.uint8(ord("0"))
    text = characters.tobytes().decode("ascii")
    return [text[start : start + n_bits] for start in range(0, len(text), n_bits)]


@functools.cache
def _table(n_bits: int) -> list[str]:
    return [bit_string(number, n_bits) for number in range(2**n_bits)]


def _together(one: tuple[np.ndarray, np.ndarray], two: tuple[np.ndarray, np.ndarray]) -> tuple[np.ndarray, np.ndarray]:
    count = len(one[0]) + len(two[0])
    memory.require_bytes(count * (8 + one[0].itemsize) + 16 * len(two[0]), f"sorting {count} outcomes")
    places = np.searchsorted(one[0], two[0])
    are_new = one[0][np.minimum(places, len(one[0]) - 1)] != two[0]
    one[1][places[~are_new]] += two[1][~are_new]
    if not are_new.any():
        return one
    places = places[are_new]
    return np.insert(one[0], places, two[0][are_new]), np.insert(one[1], places, two[1][are_new])


def _pieces(count: int, bytes_each: int) -> Iterator[slice]:
    length = max(1, _SCRATCH // bytes_each)
    for start in range(0, count, length):
        yield slice(start, min(start + length, count))


def _octets(rows: np.ndarray) -> np.ndarray:
    # The most significant byte first, as the words are.
    return rows.astype(">u8", order="C").view(np.uint8)


def _unpacked(octets: np.ndarray, n_bits: int) -> np.ndarray:
    unpacked: np.ndarray = np.unpackbits(octets, axis=1)
    return unpacked[:, unpacked.shape[1] - n_bits :]
