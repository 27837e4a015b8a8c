"""How often each outcome came."""

from __future__ import annotations

import heapq
from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from typing import Any, Self

from ..basics import checks, extras
from ..basics.elsewhere import Guiding
from ..basics.words import bit_string, counted
from ..machine import memory
from ..observables.observable import ObservableLike
from ..views import html
from .estimate import Estimate, of_diagonal, share_error

__all__ = ["Counts"]

# What an outcome takes besides its characters: the text's object, the slot of a table that has just grown, the number.
_BYTES_PER_OUTCOME = 180

# As in a circuit. Texts of billions of characters are written and compared for minutes.
_MOST_BITS = 1_000_000


class Counts(dict[str, int], Guiding):
    """Outcomes as bit strings, each with the number of shots that gave it.

    A ``dict`` from ``str`` to ``int``: it compares equal to a plain one, and everything that takes one takes it. What
    is made here is in increasing order of the outcome's number; most likely first is `most_likely`. Entries may be
    changed and added, but for the counts of a `Result`, which belong to it: `copy` gives others. No key or number gets
    in that the constructor would refuse.

    Parameters
    ----------
    counts : mapping of str to int
        Keys are texts of the same length, of characters 0 and 1; values are 0 or more. Any order.
    n_bits : int, optional
        Length of a key. Only needed where `counts` is empty and the length matters.

    Raises
    ------
    TypeError, ValueError
        If a key or a number is not as told above, here or where one is changed; TypeError also where the counts of a
        result are changed.

    Notes
    -----
    ``a + b``, and ``sum`` of several, are the counts of all their shots together.

    Order of bits: counts of a state have the first listed qubit leftmost (qubit 0, unless told otherwise), counts of
    a circuit's result have classical bit 0 leftmost. The leftmost character is the most significant bit of the
    outcome's number.

    Examples
    --------
    >>> counts = Counts({"11": 40, "00": 60})
    >>> counts
    {'00': 60, '11': 40}
    >>> counts == {"00": 60, "11": 40}, counts.shots, counts["01"]
    (True, 100, 0)
    >>> counts + Counts({"01": 5, "11": 1})
    {'00': 60, '01': 5, '11': 41}
    """

    # Set in those of a result, which are made once and handed out again and again.
    _is_fixed = False

    def __init__(self, counts: Mapping[str, int] = {}, n_bits: int | None = None) -> None:
        if not isinstance(counts, Mapping):
            raise TypeError(f"counts must be a mapping from bit strings to integers, got {checks.show(counts)}")
        require_memory(len(counts))
        # None as long as there is no key to tell it.
        self._n_bits = None if n_bits is None else checks.integer(n_bits, "n_bits", 0, _MOST_BITS)
        checked = self._checked(counts)
        super().__init__((key, _times(checked[key], key)) for key in sorted(checked))

    @classmethod
    def from_ints(cls, counts: Mapping[int, int], n_bits: int) -> Self:
        """Return counts whose outcomes are given as numbers from 0 to ``2**n_bits - 1``.

        Raises
        ------
        TypeError, ValueError
            If an outcome or a number of shots is no integer or outside its range.
        MemoryError
            If texts of so many bits do not fit.

        Examples
        --------
        >>> Counts.from_ints({5: 10, 0: 2}, 3)
        {'000': 2, '101': 10}
        """
        if not isinstance(counts, Mapping):
            raise TypeError(f"counts must be a mapping from integers to integers, got {checks.show(counts)}")
        length = checks.integer(n_bits, "n_bits", 0, _MOST_BITS)
        for key in counts:
            if not (type(key) is int and 0 <= key and key.bit_length() <= length):
                number = checks.integer(key, "outcome", minimum=0)
                if number.bit_length() > length:
                    checks.integer(number, "outcome", minimum=0, maximum=2**length - 1)
        require_memory(len(counts), length)
        texts = ((bit_string(int(key), length), key) for key in sorted(counts))
        return cls._of(((text, _times(counts[key], text)) for text, key in texts), length)

    @classmethod
    def _of(cls, outcomes: Iterable[tuple[str, int]], n_bits: int) -> Self:
        """Return counts of what is known to be right and in order."""
        made = cls.__new__(cls)
        made._n_bits = n_bits
        dict.update(made, outcomes)
        return made

    def __missing__(self, outcome: str) -> int:
        # What never came was counted 0 times; a key that is no outcome is a mistake.
        if isinstance(outcome, str) and len(outcome) == self.n_bits and set(outcome) <= set("01"):
            return 0
        raise KeyError(outcome)

    # Every way to change an entry

    def __setitem__(self, outcome: str, times: int) -> None:
        self.update({outcome: times})

    def update(self, *entries: Any, **more: int) -> None:
        """Set entries, given as a mapping or as pairs, as ``dict.update`` does.

        Raises
        ------
        TypeError, ValueError
            If a key or a number is none of counts like these, or these belong to a result. Nothing is set then.

        Examples
        --------
        >>> counts = Counts({"00": 1})
        >>> counts.update({"01": 5})
        >>> counts["00"] += 1
        >>> counts
        {'00': 2, '01': 5}
        """
        self._require_free()
        checked = self._checked(dict(*entries, **more))
        super().update({key: _times(times, key) for key, times in checked.items()})

    def __ior__(self, other: Any) -> Counts:  # type: ignore[override,misc]
        self.update(other)
        return self

    def setdefault(self, outcome: str, times: int = 0) -> int:  # type: ignore[override]
        """Return the number of an outcome, after setting it where there is none. Errors as for `update`."""
        if outcome not in self:
            self[outcome] = times
        return self[outcome]

    def __delitem__(self, outcome: str) -> None:
        self._require_free()
        super().__delitem__(outcome)

    def pop(self, outcome: str, *default: Any) -> Any:  # type: ignore[override]
        """Take an outcome away and return its number, or the default if there is none. TypeError as for `update`."""
        self._require_free()
        return super().pop(outcome, *default)

    def popitem(self) -> tuple[str, int]:
        """Take the last outcome away and return it with its number. TypeError as for `update`."""
        self._require_free()
        return super().popitem()

    def clear(self) -> None:
        """Take all outcomes away. TypeError as for `update`."""
        self._require_free()
        super().clear()

    def _require_free(self) -> None:
        if self._is_fixed:
            raise TypeError("these counts belong to a result and do not change; a copy does: result.counts.copy()")

    def _checked(self, counts: Mapping[Any, Any]) -> Mapping[str, Any]:
        """Return the entries after a look at all of them; the first key of all tells how long the others are."""
        if not all(type(key) is str for key in counts):
            counts = {checks.plain(key) if isinstance(key, str) else key: times for key, times in counts.items()}
        length = self._n_bits
        for key in counts:
            if not isinstance(key, str):
                raise TypeError(
                    f"counts must have bit strings for keys, got {checks.show(key)}; Counts.from_ints takes numbers"
                )
            length = len(key) if length is None else length
            if len(key) != length:
                raise ValueError(f"counts must have keys of {checks.digits(length)} characters, got {checks.show(key)}")
            if key.strip("01"):
                raise ValueError(f"counts must have keys of characters 0 and 1, got {checks.show(key)}")
            _times(counts[key], key)
        self._n_bits = length
        return counts

    def _repr_html_(self) -> str:
        best = self.most_likely(html.ROWS)
        shots, shown = self.shots, sum(times for _, times in best)
        rows = [
            (html.code(outcome), str(times), html.bar(times / shots if shots else 0.0)) for outcome, times in best
        ]
        if len(self) > len(best):
            rows.append((f"{len(self) - len(best)} others", str(shots - shown), ""))
        return html.titled(f"Counts: {counted(shots, 'shot')}", html.table(("outcome", "count", ""), rows))

    def __reduce__(self) -> tuple[Any, ...]:
        return _unpacked, (_Outcomes(type(self), self._n_bits, self),)

    def __copy__(self) -> Self:
        return type(self)(self, self._n_bits)

    def __deepcopy__(self, memo: dict[int, Any]) -> Self:
        return type(self)(self, self._n_bits)

    def copy(self) -> Counts:
        """Return independent counts with the same content."""
        return Counts(self, self._n_bits)

    @property
    def n_bits(self) -> int:
        """Number of bits of an outcome."""
        return self._n_bits or 0

    @property
    def shots(self) -> int:
        """Number of shots in all.

        Examples
        --------
        >>> Counts({"0": 3, "1": 4}).shots
        7
        """
        return sum(self.values())

    def most_likely(self, k: int = 1) -> list[tuple[str, int]]:
        """Return the `k` most frequent outcomes and their counts, the most frequent first.

        Of equally frequent ones the lower number comes first. There are fewer than `k` if fewer came.

        Raises
        ------
        TypeError, ValueError
            If `k` is no integer or negative.

        Examples
        --------
        >>> Counts({"00": 3, "01": 9, "11": 3}).most_likely(2)
        [('01', 9), ('00', 3)]
        """
        wanted = checks.integer(k, "k", minimum=0)
        return heapq.nsmallest(wanted, self.items(), key=lambda entry: (-entry[1], entry[0]))

    def marginal(self, positions: int | Sequence[int]) -> Counts:
        """Return the counts of some of the bits, whatever the others were.

        Parameters
        ----------
        positions : int or sequence of int
            Distinct places in the text, counted from 0 at the left. The first listed is leftmost in the result.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a position is no integer, outside the text, or named twice.

        Examples
        --------
        >>> Counts({"001": 1, "011": 2, "110": 4}).marginal([2, 0])
        {'01': 4, '10': 3}
        """
        places = checks.indices(positions, self.n_bits, "positions")
        require_memory(min(len(self), 2 ** min(len(places), 64)), len(places))
        sums: dict[str, int] = {}
        for outcome, times in self.items():
            part = "".join([outcome[place] for place in places])
            sums[part] = sums.get(part, 0) + times
        return Counts._of(((part, sums[part]) for part in sorted(sums)), len(places))

    def __add__(self, other: Any) -> Counts:
        """Return the counts of the shots of both, which must have as many bits."""
        if not isinstance(other, Counts):
            return NotImplemented
        if None not in (self._n_bits, other._n_bits) and self._n_bits != other._n_bits:
            raise ValueError(f"counts must have as many bits to be added, got {self.n_bits} and {other.n_bits}")
        require_memory(len(self) + len(other), self.n_bits)
        sums = dict(self)
        for outcome, times in other.items():
            sums[outcome] = sums.get(outcome, 0) + times
        return Counts(sums, other._n_bits if self._n_bits is None else self._n_bits)

    def __radd__(self, other: Any) -> Counts:
        # What sum() begins with.
        return self.copy() if type(other) is int and other == 0 else NotImplemented

    def probabilities(self) -> dict[str, float]:
        """Return the share of every outcome that came, in the same order; empty if there were no shots.

        How far off they may be is told by `standard_errors`.

        Examples
        --------
        >>> Counts({"0": 1, "1": 3}).probabilities()
        {'0': 0.25, '1': 0.75}
        """
        require_memory(len(self))
        shots = self.shots
        return {outcome: times / shots for outcome, times in self.items()} if shots else {}

    def standard_errors(self) -> dict[str, float]:
        """Return the standard error of every probability, in the same order; empty if there were no shots.

        The binomial one, sqrt(p * (1 - p) / shots) for a share p of the shots. It is 0 where an outcome came never or
        always, which then says little: with 95 % certainty such a probability is within 3 / shots of 0 or 1.

        Examples
        --------
        >>> Counts({"0": 25, "1": 75}).standard_errors()
        {'0': 0.04330127018922193, '1': 0.04330127018922193}
        """
        require_memory(len(self))
        shots = self.shots
        return {outcome: share_error(times, shots) for outcome, times in self.items()} if shots else {}

    def expectation(self, observable: ObservableLike, qubits: int | Sequence[int] | None = None) -> Estimate:
        """Return the mean of a diagonal observable over the shots, and its standard error.

        Parameters
        ----------
        observable : Observable, str, dict or list
            Made of Z alone. For others measure in their basis: `Observable.group_commuting` tells the gates.
        qubits : int or sequence of int, optional
            The qubit that was measured into each character, leftmost first. By default 0, 1, 2, ...

        Returns
        -------
        mean, standard_error : float
            A named tuple; the mean is complex if a coefficient is. The error is the standard deviation of the values of
            the shots, divided by the root of their number less one; one shot tells nothing of it, and it is nan.

        Raises
        ------
        TypeError, IndexError, ValueError
            If this is no observable, it has X or Y, or a qubit that is in no character; if the qubits do not fit the
            characters, or there are no shots.

        Examples
        --------
        >>> Counts({"00": 60, "11": 40}).expectation("Z0 Z1 - 0.5")
        Estimate(mean=0.5, standard_error=0.0)
        >>> mean, error = Counts({"00": 60, "11": 40}).expectation("Z7", qubits=[5, 7])
        >>> round(mean, 3), round(error, 3)
        (0.2, 0.098)
        """
        return of_diagonal(observable, self, self.n_bits, qubits)

    def ints(self) -> dict[int, int]:
        """Return the same with numbers for keys, the leftmost character the most significant bit.

        Examples
        --------
        >>> Counts({"011": 2, "110": 4}).ints()
        {3: 2, 6: 4}
        """
        return self._with_keys(int)

    def hex(self) -> dict[str, int]:
        """Return the same with hexadecimal texts for keys, without leading zeros.

        Examples
        --------
        >>> Counts({"00011": 2, "11110": 4}).hex()
        {'0x3': 2, '0x1e': 4}
        """
        return self._with_keys(hex)

    def _with_keys(self, spelled: Callable[[int], Any]) -> dict[Any, int]:
        require_memory(len(self), self.n_bits)
        return {spelled(int(outcome or "0", 2)): times for outcome, times in self.items()}

    def to_frame(self) -> Any:
        """Return a ``pandas.DataFrame``, one row per outcome.

        Columns are ``outcome``, ``count``, ``probability`` and ``standard_error``, that of the probability.

        Raises
        ------
        ImportError
            If pandas is not installed.

        Examples
        --------
        >>> Counts({"0": 1, "1": 3}).to_frame()
          outcome  count  probability  standard_error
        0       0      1         0.25        0.216506
        1       1      3         0.75        0.216506
        """
        pandas = extras.imported("pandas", "Counts.to_frame")
        require_memory(3 * len(self))
        shares, errors = self.probabilities(), self.standard_errors()
        return pandas.DataFrame(
            {
                "outcome": pandas.Series(list(self), dtype=str),
                "count": pandas.Series(list(self.values()), dtype="int64"),
                "probability": pandas.Series([shares.get(outcome, 0.0) for outcome in self], dtype="float64"),
                "standard_error": pandas.Series([errors.get(outcome, 0.0) for outcome in self], dtype="float64"),
            }
        )


class _Outcomes:
    """Counts in a pickle: outcomes and how often they came in turns, as numbers, to which its writer keeps no reference."""

    def __init__(self, kind: Any, n_bits: int | None, counts: Counts | None = None) -> None:
        self._kind, self._n_bits = kind, n_bits
        self.counts: Counts = kind({}, n_bits) if counts is None else counts
        self._outcome: int | None = None

    def __reduce__(self) -> tuple[Any, ...]:
        return _Outcomes, (self._kind, self._n_bits), None, self._numbers()

    def _numbers(self) -> Iterator[int]:
        for outcome, times in self.counts.items():
            yield int(outcome or "0", 2)
            yield times

    def append(self, number: int) -> None:
        if self._outcome is None:
            self._outcome = number
        else:
            dict.__setitem__(self.counts, bit_string(self._outcome, self._n_bits or 0), number)
            self._outcome = None


def _unpacked(outcomes: _Outcomes) -> Counts:
    return outcomes.counts


def _restored(kind: Any, counts: dict[str, int], n_bits: int | None) -> Counts:
    """Return the counts of a pickle that version 0.1 has written."""
    restored: Counts = kind(counts, n_bits)
    return restored


def require_memory(count: int, n_bits: int = 0) -> None:
    """Raise MemoryError if a dictionary of so many outcomes does not fit."""
    memory.require_bytes(count * (_BYTES_PER_OUTCOME + n_bits), f"a dictionary of {count} outcome(s)")


def _times(value: Any, outcome: str) -> int:
    if type(value) is int and 0 <= value < 2**63:
        return value
    return checks.integer(value, f"counts[{checks.show(outcome)}]", 0, 2**63 - 1)
