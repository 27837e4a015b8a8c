"""How often each outcome came."""

from __future__ import annotations

from typing import Any, Callable, Dict, List, Mapping, Optional, Sequence, Tuple, Union

from . import _check, _extras

__all__ = ["Counts"]


class Counts(Dict[str, int]):
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
    """

    # Set in those of a result, which are made once and handed out again and again.
    _is_fixed = False

    def __init__(self, counts: Mapping[str, int] = {}, n_bits: Optional[int] = None) -> None:
        if not isinstance(counts, Mapping):
            raise TypeError(f"counts must be a mapping from bit strings to integers, got {_check.show(counts)}")
        # None as long as there is no key to tell it.
        self._n_bits = None if n_bits is None else _check.integer(n_bits, "n_bits", minimum=0)
        checked = self._checked(counts)
        super().__init__((key, checked[key]) for key in sorted(checked))

    @classmethod
    def from_ints(cls, counts: Mapping[int, int], n_bits: int) -> Counts:
        """Return counts whose outcomes are given as numbers from 0 to ``2**n_bits - 1``.

        Raises
        ------
        TypeError, ValueError
            If an outcome or a number of shots is no integer or outside its range.

        Examples
        --------
        >>> Counts.from_ints({5: 10, 0: 2}, 3)
        {'000': 2, '101': 10}
        """
        if not isinstance(counts, Mapping):
            raise TypeError(f"counts must be a mapping from integers to integers, got {_check.show(counts)}")
        length = _check.integer(n_bits, "n_bits", minimum=0)
        numbers = {_check.integer(key, "outcome", minimum=0, maximum=2**length - 1): counts[key] for key in counts}
        return cls({format(n, f"0{length}b") if length else "": times for n, times in numbers.items()}, length)

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
        super().update(self._checked(dict(*entries, **more)))

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

    def popitem(self) -> Tuple[str, int]:
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

    def _checked(self, counts: Mapping[Any, Any]) -> Dict[str, int]:
        """Return entries that may stand here; the first key of all tells how long the others are."""
        length = self._n_bits
        for key in counts:
            if not isinstance(key, str):
                raise TypeError(f"counts must have bit strings for keys, got {_check.show(key)}")
            length = len(key) if length is None else length
            if len(key) != length:
                raise ValueError(f"counts must have keys of {length} characters, got {_check.show(key)}")
            if key.strip("01"):
                raise ValueError(f"counts must have keys of characters 0 and 1, got {_check.show(key)}")
        checked = {key: _check.integer(counts[key], f"counts[{key!r}]", minimum=0) for key in counts}
        self._n_bits = length
        return checked

    def _repr_html_(self) -> str:
        from ._notebook import of_counts

        return of_counts(self)

    def __reduce__(self) -> Tuple[Any, ...]:
        return _restored, (type(self), dict(self), self._n_bits)

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

    def most_likely(self, k: int = 1) -> List[Tuple[str, int]]:
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
        wanted = _check.integer(k, "k", minimum=0)
        return sorted(self.items(), key=lambda entry: (-entry[1], entry[0]))[:wanted]

    def marginal(self, positions: Union[int, Sequence[int]]) -> Counts:
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
        places = _check.indices(positions, self.n_bits, "positions")
        sums: Dict[str, int] = {}
        for outcome, times in self.items():
            part = "".join([outcome[place] for place in places])
            sums[part] = sums.get(part, 0) + times
        return Counts(sums, len(places))

    def probabilities(self) -> Dict[str, float]:
        """Return the share of every outcome that came, in the same order; empty if there were no shots.

        Examples
        --------
        >>> Counts({"0": 1, "1": 3}).probabilities()
        {'0': 0.25, '1': 0.75}
        """
        shots = self.shots
        return {outcome: times / shots for outcome, times in self.items()} if shots else {}

    def ints(self) -> Dict[int, int]:
        """Return the same with numbers for keys, the leftmost character the most significant bit.

        Examples
        --------
        >>> Counts({"011": 2, "110": 4}).ints()
        {3: 2, 6: 4}
        """
        return self._with_keys(int)

    def hex(self) -> Dict[str, int]:
        """Return the same with hexadecimal texts for keys, without leading zeros.

        Examples
        --------
        >>> Counts({"00011": 2, "11110": 4}).hex()
        {'0x3': 2, '0x1e': 4}
        """
        return self._with_keys(hex)

    def _with_keys(self, spelled: Callable[[int], Any]) -> Dict[Any, int]:
        return {spelled(int(outcome or "0", 2)): times for outcome, times in self.items()}

    def to_frame(self) -> Any:
        """Return a ``pandas.DataFrame``, one row per outcome, with columns ``outcome``, ``count`` and ``probability``.

        Raises
        ------
        ImportError
            If pandas is not installed.

        Examples
        --------
        >>> Counts({"0": 1, "1": 3}).to_frame()
          outcome  count  probability
        0       0      1         0.25
        1       1      3         0.75
        """
        pandas = _extras.imported("pandas", "Counts.to_frame")
        shares = self.probabilities()
        return pandas.DataFrame(
            {
                "outcome": pandas.Series(list(self), dtype=str),
                "count": pandas.Series(list(self.values()), dtype="int64"),
                "probability": pandas.Series([shares.get(outcome, 0.0) for outcome in self], dtype="float64"),
            }
        )


def _restored(kind: Any, counts: Dict[str, int], n_bits: Optional[int]) -> Counts:
    restored: Counts = kind(counts, n_bits)
    return restored
