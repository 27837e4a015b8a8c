"""What classical bits must hold for something to happen."""

from __future__ import annotations

import operator
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass, field
from typing import Any, NoReturn

from ..basics import checks
from ..basics.words import bit_string

__all__ = ["AnyCondition", "Bits", "CompoundCondition", "Condition"]

_COMPARISONS: dict[str, Callable[[int, int], bool]] = {
    "==": operator.eq, "!=": operator.ne, "<": operator.lt, "<=": operator.le, ">": operator.gt, ">=": operator.ge,
}  # fmt: skip
_OPPOSITE = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}

#: Compound conditions may be so deep in each other, and be made of so many comparisons.
MOST_LEVELS, MOST_PARTS = 50, 10_000


class _Combined:
    """What conditions of both kinds can do: ``&``, ``|``, ``^``, ``~``, but not be asked by Python."""

    def __and__(self, other: Any) -> CompoundCondition:
        return _joined("and", self, other)

    def __or__(self, other: Any) -> CompoundCondition:
        return _joined("or", self, other)

    def __xor__(self, other: Any) -> CompoundCondition:
        return _joined("xor", self, other)

    __rand__, __ror__, __rxor__ = __and__, __or__, __xor__

    def __bool__(self) -> NoReturn:
        raise TypeError(
            "a condition holds or not when the circuit runs, not in Python: join conditions with & | ^ ~ in place of and, "
            "or, not, and a < b < c; to ask whether an instruction has one, write `is not None`"
        )


@dataclass(frozen=True)
class Condition(_Combined):
    """Lets an instruction act only if classical bits hold a value.

    Attributes
    ----------
    clbits : tuple of int
        The bits that are read, lowest value first (weight ``2**i`` for the i-th), as in a register of OpenQASM.
        `Circuit.when` puts them into increasing order where nothing but equality counts.
    value : int
        What they are compared with, from 0 to ``2**len(clbits) - 1``.
    comparison : {"==", "!=", "<", "<=", ">", ">="}
        How what they spell must compare with `value`.

    Conditions are joined by ``&``, ``|``, ``^`` and ``~`` into a `CompoundCondition`.

    >>> Condition((0, 1), 2)
    Condition(clbits=(0, 1), value=2)
    >>> print(Condition((0, 1), 2))                       # bit 0 must be 0, bit 1 must be 1
    c[0, 1] == "01"
    >>> print(Condition((0, 1), 2, "<") & ~Condition((2,), 1))   # of a number, the first bit shown is the highest
    c[1, 0] < 2 and c[2] == 0
    """

    clbits: tuple[int, ...]
    value: int
    comparison: str = "=="

    def holds(self, bits: int) -> bool:
        """Return whether the condition holds where classical bit i is bit i of a number.

        >>> [bits for bits in range(8) if Condition((0, 2), 2).holds(bits)]
        [4, 6]
        """
        spelled = sum([(bits >> clbit & 1) << i for i, clbit in enumerate(self.clbits)])
        return _COMPARISONS[self.comparison](spelled, self.value)

    def __invert__(self) -> Condition:
        if len(self.clbits) == 1 and self.comparison == "==":
            return Condition(self.clbits, 1 - self.value)
        return Condition(self.clbits, self.value, _OPPOSITE[self.comparison])

    def __repr__(self) -> str:
        value = checks.digits(self.value) if isinstance(self.value, int) else repr(self.value)
        comparison = "" if self.comparison == "==" else f", comparison={self.comparison!r}"
        return f"Condition(clbits={self.clbits!r}, value={value}{comparison})"

    def __str__(self) -> str:
        if self.comparison in ("==", "!="):
            return f"c{list(self.clbits)} {self.comparison} {spelled(self)}"
        return f"c{list(self.clbits[::-1])} {self.comparison} {checks.digits(self.value)}"


@dataclass(frozen=True)
class CompoundCondition(_Combined):
    """Conditions joined by a word.

    Attributes
    ----------
    word : {"and", "or", "xor", "not"}
        "xor" holds if an odd number of parts do; "not" has one part.
    parts : tuple of Condition or CompoundCondition

    Raises
    ------
    TypeError, ValueError
        If the word is another, a part is no condition, there is none, or there are more than 50 levels or 10,000
        comparisons.

    >>> print(Condition((0,), 1) & (Condition((1,), 0) | Condition((2, 3), 3)))
    c[0] == 1 and (c[1] == 0 or c[2, 3] == "11")
    """

    word: str
    parts: tuple[AnyCondition, ...]
    _levels: int = field(init=False, repr=False, compare=False)
    _size: int = field(init=False, repr=False, compare=False)

    def __post_init__(self) -> None:
        checks.choice(self.word, "word", ("and", "or", "xor", "not"))
        parts = checks.sequence(self.parts, "parts", of="conditions")
        for part in parts:
            if not isinstance(part, AnyCondition):
                raise TypeError(f"parts must hold conditions, got {checks.show(part)}")
        if not parts or (self.word == "not" and len(parts) > 1):
            raise ValueError(f"parts of {self.word!r} must be {'one' if self.word == 'not' else 'some'}, got {len(parts)}")
        inner = [part for part in parts if isinstance(part, CompoundCondition)]
        levels = 1 + max([part._levels for part in inner], default=0)
        size = len(parts) + sum([part._size - 1 for part in inner])
        if levels > MOST_LEVELS or size > MOST_PARTS:
            raise ValueError(
                f"a condition must have at most {MOST_LEVELS} levels and {MOST_PARTS} comparisons, got {levels} and {size}"
            )
        for name, value in (("parts", parts), ("_levels", levels), ("_size", size)):
            object.__setattr__(self, name, value)

    @property
    def clbits(self) -> tuple[int, ...]:
        """The bits that are read, in increasing order."""
        return tuple(sorted({bit for part in self.parts for bit in part.clbits}))

    def holds(self, bits: int) -> bool:
        """Return whether the condition holds where classical bit i is bit i of a number."""
        if self.word == "and":
            return all([part.holds(bits) for part in self.parts])
        if self.word == "or":
            return any([part.holds(bits) for part in self.parts])
        return (sum([part.holds(bits) for part in self.parts]) + (self.word == "not")) % 2 == 1

    def __invert__(self) -> AnyCondition:
        return self.parts[0] if self.word == "not" else CompoundCondition("not", (self,))

    def __str__(self) -> str:
        texts = [f"({part})" if isinstance(part, CompoundCondition) else str(part) for part in self.parts]
        return f"not ({self.parts[0]})" if self.word == "not" else f" {self.word} ".join(texts)


AnyCondition = Condition | CompoundCondition


class Bits(_Combined):
    """Classical bits of a circuit, to be compared: what `Circuit.bits` returns.

    A comparison with a number or, for ``==`` and ``!=``, with a text is a `Condition`; one bit alone stands for "is 1".
    ``bits[i]`` is the i-th bit, in the order listed.

    Parameters
    ----------
    listed : tuple of int
        Bits in the order of a text's characters.
    is_register : bool
        Whether the first of them is the lowest of a number, not the highest.

    >>> c = Bits((4, 5, 6), is_register=True)
    >>> print(c == 1, c == "100", c < 5, c[0] & ~c[2], sep="; ")
    c[4, 5, 6] == "100"; c[4, 5, 6] == "100"; c[6, 5, 4] < 5; c[4] == 1 and c[6] == 0
    """

    def __init__(self, listed: tuple[int, ...], is_register: bool) -> None:
        self._listed, self._is_register = listed, is_register

    @property
    def is_register(self) -> bool:
        """Whether the first is the lowest of a number."""
        return self._is_register

    @property
    def lowest_first(self) -> tuple[int, ...]:
        """The bits as a number has them."""
        return self._listed if self._is_register else self._listed[::-1]

    def number(self, value: Any, name: str = "value") -> int:
        """Return what a checked number or text is as a number of `lowest_first`."""
        if isinstance(value, str):
            text = checks.plain(value)
            if len(text) != len(self._listed) or text.strip("01"):
                n = len(self._listed)
                raise ValueError(f"{name} must be a text of {n} characters 0 and 1, one per bit, got {checks.show(text)}")
            return int((text[::-1] if self._is_register else text) or "0", 2)
        return checks.integer(value, name, minimum=0, maximum=2 ** len(self._listed) - 1)

    def __len__(self) -> int:
        return len(self._listed)

    def __getitem__(self, place: int) -> Bits:
        return Bits((self._listed[checks.index(place, len(self._listed), "place")],), self._is_register)

    def __iter__(self) -> Iterator[Bits]:
        return (self[place] for place in range(len(self)))

    def __eq__(self, value: object) -> Condition:  # type: ignore[override]
        return self._equal(value)

    def __ne__(self, value: object) -> Condition:  # type: ignore[override]
        return ~self._equal(value)

    __hash__ = None  # type: ignore[assignment]

    def __lt__(self, value: int) -> Condition:
        return self._compared("<", value)

    def __le__(self, value: int) -> Condition:
        return self._compared("<=", value)

    def __gt__(self, value: int) -> Condition:
        return self._compared(">", value)

    def __ge__(self, value: int) -> Condition:
        return self._compared(">=", value)

    def __invert__(self) -> Condition:
        return ~self.condition()

    def __repr__(self) -> str:
        return f"<Bits {list(self._listed)}>"

    def condition(self) -> Condition:
        """Return what one bit alone stands for."""
        if len(self._listed) != 1:
            raise TypeError(f"{len(self._listed)} bits must be compared to be a condition, as in bits == 3, got {self!r}")
        return Condition(self._listed, 1)

    def _equal(self, value: Any) -> Condition:
        number = self.number(value)
        return in_order(self.lowest_first, number)

    def _compared(self, comparison: str, value: Any) -> Condition:
        if isinstance(value, str):
            raise TypeError(f"value must be an integer to be compared by {comparison}, got {checks.show(value)}")
        return Condition(self.lowest_first, self.number(value), comparison)


def in_order(lowest_first: Sequence[int], number: int) -> Condition:
    """Return the condition that bits spell a number, with the bits in increasing order: one wish is one condition."""
    text = bit_string(number, len(lowest_first))[::-1]
    order = sorted(range(len(lowest_first)), key=lowest_first.__getitem__)
    spelt = "".join([text[place] for place in reversed(order)])
    return Condition(tuple([lowest_first[place] for place in order]), int(spelt or "0", 2))


def spelled(condition: Condition) -> str:
    """Return the value of one bit as a number, of several as a text in quotes, in the order of the bits.

    >>> spelled(Condition((4,), 1)), spelled(Condition((2, 3, 4), 1))
    ('1', '"100"')
    """
    if len(condition.clbits) < 2:
        return str(condition.value)
    return '"' + format(condition.value, f"0{len(condition.clbits)}b")[::-1] + '"'


def moved(condition: AnyCondition, clbits: Sequence[int]) -> AnyCondition:
    """Return the same condition on other bits: ``clbits[i]`` in place of bit i."""
    if isinstance(condition, Condition):
        return Condition(tuple([clbits[bit] for bit in condition.clbits]), condition.value, condition.comparison)
    return CompoundCondition(condition.word, tuple([moved(part, clbits) for part in condition.parts]))


def checked(condition: Any, n_clbits: int, name: str = "condition") -> AnyCondition:
    """Return a condition on bits below `n_clbits`, made of plain ``int`` and ``tuple``."""
    if isinstance(condition, CompoundCondition):
        return CompoundCondition(condition.word, tuple([checked(part, n_clbits, name) for part in condition.parts]))
    if not isinstance(condition, Condition):
        raise TypeError(f"{name} must be a Condition or None, got {checks.show(condition)}")
    bits = checks.indices(condition.clbits, n_clbits, f"{name}.clbits", at_least=1)
    comparison = checks.choice(condition.comparison, f"{name}.comparison", tuple(_COMPARISONS))
    return Condition(bits, checks.integer(condition.value, f"{name}.value", 0, 2 ** len(bits) - 1), comparison)


def _joined(word: str, first: Any, second: Any) -> CompoundCondition:
    parts: list[AnyCondition] = []
    for part in (first, second):
        if isinstance(part, Bits):
            part = part.condition()
        if not isinstance(part, AnyCondition):
            return NotImplemented  # type: ignore[no-any-return]
        # A chain of one word is one level.
        parts.extend(part.parts if isinstance(part, CompoundCondition) and part.word == word else (part,))
    return CompoundCondition(word, tuple(parts))
