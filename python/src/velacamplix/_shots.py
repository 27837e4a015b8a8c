"""Outcomes of many bits, one row of 64-bit words per shot."""

from __future__ import annotations

from typing import Dict, Iterator, List, Sequence, Tuple

import numpy as np

from ._sampling import _tally

_WORD = 64

# Where a bit of an outcome comes from: (True, i) is the i-th sampled qubit, (False, value) is that value.
Source = Tuple[bool, int]


def words_for(n_bits: int) -> int:
    """Return how many words an outcome takes, at least one."""
    return max(1, -(-n_bits // _WORD))


def assembled(sources: Sequence[Source], sampled: np.ndarray, n_sampled: int, shots: int) -> np.ndarray:
    """Put the outcomes of some shots together.

    Parameters
    ----------
    sources : sequence
        For every bit of an outcome, leftmost first.
    sampled : numpy.ndarray, shape (shots,)
        What was drawn of `n_sampled` qubits; the first is the most significant bit.

    Returns
    -------
    numpy.ndarray, shape (shots, words)
        The bits as a number, its most significant word first, ``uint64``.

    Examples
    --------
    >>> drawn = np.array([1, 2], dtype=np.uint64)
    >>> assembled([(False, 1), (True, 1), (False, 0), (True, 0)], drawn, 2, 2).tolist()
    [[12], [9]]
    """
    n_bits, n_words = len(sources), words_for(len(sources))
    rows: np.ndarray = np.zeros((shots, n_words), dtype=np.uint64)
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
    return rows


def _runs(sources: Sequence[Source]) -> Iterator[Tuple[int, int, bool, int]]:
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


def numbers(rows: np.ndarray) -> np.ndarray:
    """Return one number per shot: ``uint64`` if it takes one word, Python's integers otherwise.

    >>> numbers(np.array([[1, 5]], dtype=np.uint64)).tolist() == [2**64 + 5]
    True
    """
    if rows.shape[1] == 1:
        return rows[:, 0]
    whole = np.zeros(len(rows), dtype=object)
    for column in range(rows.shape[1]):
        whole = (whole << _WORD) + rows[:, column].astype(object)
    return whole


def bits(rows: np.ndarray, n_bits: int) -> np.ndarray:
    """Return a row of 0 and 1 per shot, ``uint8``.

    >>> bits(np.array([[6]], dtype=np.uint64), 4).tolist()
    [[0, 1, 1, 0]]
    """
    octets = np.ascontiguousarray(rows, dtype=">u8").view(np.uint8).reshape(len(rows), -1)
    return np.unpackbits(octets, axis=1)[:, octets.shape[1] * 8 - n_bits :]


def tally(rows: np.ndarray, n_bits: int) -> Dict[str, int]:
    """Return how often each outcome came, as texts in increasing order.

    >>> tally(np.array([[2], [0], [2]], dtype=np.uint64), 2)
    {'00': 1, '10': 2}
    """
    if not len(rows):
        return {}
    if n_bits == 0:
        return {"": len(rows)}
    if rows.shape[1] == 1:
        # A table of all outcomes would be wasteful for many bits; the function decides by their number.
        return {format(number, f"0{n_bits}b"): count for number, count in _tally(rows[:, 0], n_bits)}
    found, counts = np.unique(rows, axis=0, return_counts=True)
    texts: List[str] = ["".join(format(word, "064b") for word in row)[-n_bits:] for row in found.tolist()]
    return dict(zip(texts, counts.tolist()))
