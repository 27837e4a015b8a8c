"""Every argument check of the package, in one place.

The compiled core only checks again what decides which memory it touches, and
tells a user little about it; so nothing reaches it unchecked. Each function returns the value in the plain form the rest of the package works
with (``int``, ``float``, ``tuple`` of ``int``, ``numpy.ndarray``) or raises

* ``TypeError`` if the value is of the wrong kind,
* ``IndexError`` if a qubit or bit number is outside the object it refers to,
* ``ValueError`` for every other wrong value.

A message names the argument, says what was expected and shows what came.
"""

from __future__ import annotations

import itertools
import math
import operator
import reprlib
import sys
from collections.abc import Iterable, Iterator, Sequence
from itertools import chain
from typing import Any

import numpy as np
from numpy.typing import NDArray

from .types import Order, Precision

# Largest deviation of U·U† from the identity that still counts as rounding.
# A matrix that was computed in single precision passes, a wrong one does not.
UNITARY_TOLERANCE = 1e-5

# Multiplications between two looks at signals.
_PRODUCTS_AT_ONCE = 2**31
# Products that are kept at a time.
_ENTRIES_AT_ONCE = 2**18
_PIECE = 2**14
# A list of its integers takes 40 MB.
_MOST_OF_RANGE = 1_000_000


def digits(number: int) -> str:
    """Return an integer as text. Python refuses to write thousands of digits."""
    return str(number) if number.bit_length() < 200 else f"<integer of {number.bit_length()} bits>"


class _Shortening(reprlib.Repr):
    def repr_int(self, number: int, level: int) -> str:
        return super().repr_int(number, level) if number.bit_length() < 200 else digits(number)


_shorten = _Shortening()
_shorten.maxstring = _shorten.maxother = 60
_shorten.maxtuple = _shorten.maxlist = 8


def show(value: Any) -> str:
    """Return a short text of `value` for an error message."""
    if isinstance(value, np.ndarray) and value.ndim:
        return f"an array of shape {value.shape} and type {value.dtype}"
    try:
        return _shorten.repr(value)
    except Exception:  # of the value's own making
        return f"<{type(value).__name__} that cannot be shown>"


def plain(text: str) -> str:
    """Return the characters of a text. A subclass could tell others each time it is asked.

    >>> class Twofold(str):
    ...     def __str__(self):
    ...         return "other"
    >>> plain(Twofold("this"))
    'this'
    """
    return str.__str__(text)


def integer(
    value: Any, name: str, minimum: int | None = None, maximum: int | None = None
) -> int:
    """Return `value` as ``int``; both bounds are inclusive.

    NumPy integers are integers; ``True`` and ``False`` are not, because a flag
    that slips into a number's place is a mistake.

    >>> integer(np.int64(3), "shots", minimum=1)
    3
    """
    number = value if type(value) is int else _plain_integer(value, name, minimum, maximum)
    if (minimum is not None and number < minimum) or (maximum is not None and number > maximum):
        raise ValueError(f"{name} must be {_range_words(minimum, maximum)}, got {show(value)}")
    return number


def index(value: Any, size: int, name: str) -> int:
    """Return `value` as a number from 0 to ``size - 1``.

    Negative numbers do not count from the end: a qubit's number is its name.
    """
    number = value if type(value) is int else _plain_integer(value, name)
    if not 0 <= number < size:
        allowed = f"a number from 0 to {size - 1}" if size else "a number, but there is none to choose"
        raise IndexError(f"{name} must be {allowed}, got {show(value)}")
    return number


def qubit(value: Any, n_qubits: int, name: str = "qubit") -> int:
    """Return a qubit number below `n_qubits`.

    >>> qubit(2, 3)
    2
    """
    return index(value, n_qubits, name)


def sequence(values: Any, name: str, of: str = "integers", most: int = 1_000_000) -> tuple[Any, ...]:
    """Return any iterable but a text or a mapping, of at most `most` items, as a tuple."""
    listed = _first(values, most + 1, name, of)
    if len(listed) > most:
        raise ValueError(f"{name} must be a sequence of at most {most} {of}, got more")
    return listed


def is_list(value: Any) -> bool:
    """Whether a value stands for several numbers.

    >>> is_list([0, 1]), is_list(range(2)), is_list(np.arange(2)), is_list(np.array(1)), is_list("01"), is_list(0.5)
    (True, True, True, False, False, False)
    """
    if getattr(value, "ndim", 0):
        return True
    # NumPy arrays without dimensions, which are numbers, call themselves iterable.
    is_number = hasattr(value, "__index__") or hasattr(value, "__float__")
    return isinstance(value, Iterable) and not is_number and not isinstance(value, (str, bytes, dict))


def indices(values: Any, size: int, name: str, at_least: int = 0) -> tuple[int, ...]:
    """Return distinct numbers from 0 to ``size - 1``, in the order given.

    A single integer stands for a list of one.
    """
    # Of more numbers than there are, one is none of them or comes twice.
    listed = (values,) if _is_scalar(values) else _first(values, size + 1, name, "integers")
    numbers = tuple(index(value, size, f"{name}[{i}]") for i, value in enumerate(listed))
    if len(numbers) < at_least:
        raise ValueError(f"{name} must hold at least {at_least} number(s), got {show(values)}")
    repeated = _first_repeated(numbers)
    if repeated is not None:
        raise ValueError(f"{name} must be distinct, got {repeated} twice in {show(values)}")
    return numbers


def qubits(values: Any, n_qubits: int, name: str = "qubits", at_least: int = 1) -> tuple[int, ...]:
    """Return distinct qubit numbers below `n_qubits`, in the order given.

    >>> qubits([2, 0], 3)
    (2, 0)
    """
    return indices(values, n_qubits, name, at_least)


def controls(
    values: Any, targets: Sequence[int], n_qubits: int, name: str = "controls"
) -> tuple[int, ...]:
    """Return distinct control qubits, none of them among the checked `targets`."""
    numbers = indices(values, n_qubits, name)
    for target in targets:
        if target in numbers:
            raise ValueError(
                f"{name} must not contain a target of the gate, got {target} as target and in {show(values)}"
            )
    return numbers


def distinct(numbers: Sequence[int], name: str) -> None:
    """Refuse a list of checked numbers in which one appears twice."""
    repeated = _first_repeated(numbers)
    if repeated is not None:
        raise ValueError(f"{name} must be distinct, got {show(tuple(numbers))}")


def real(value: Any, name: str) -> float:
    """Return `value` as a finite ``float``."""
    expected = f"{name} must be a real number"
    if isinstance(value, (bool, np.bool_, str, bytes, complex, np.complexfloating)):
        raise TypeError(f"{expected}, got {show(value)}")
    if getattr(value, "ndim", 0):  # NumPy would take an array of one entry for its entry
        raise TypeError(f"{expected}, got {show(value)}")
    try:
        number = float(value)
    except OverflowError:
        raise ValueError(f"{expected} that fits a double, got {show(value)}") from None
    except (TypeError, ValueError):
        raise TypeError(f"{expected}, got {show(value)}") from None
    if not math.isfinite(number):
        raise ValueError(f"{name} must be finite, got {show(value)}")
    return number


def probability(value: Any, name: str) -> float:
    """Return a number from 0 to 1.

    >>> probability(1, "p")
    1.0
    """
    number = real(value, name)
    if not 0 <= number <= 1:
        raise ValueError(f"{name} must be a probability, from 0 to 1, got {show(value)}")
    return number


def angle(value: Any, name: str = "angle") -> float:
    """Return a finite angle in radians.

    >>> angle(np.float32(0.5))
    0.5
    """
    return real(value, name)


def choice(value: Any, name: str, allowed: Sequence[str]) -> str:
    """Return `value` if it is one of the texts in `allowed`."""
    if type(value) is str and value in allowed:
        return value
    words = " or ".join(repr(word) for word in allowed)
    if not isinstance(value, str):
        raise TypeError(f"{name} must be {words}, got {show(value)}")
    text = plain(value)
    if text not in allowed:
        raise ValueError(f"{name} must be {words}, got {show(text)}")
    return text


def precision(value: Any, name: str = "precision") -> Precision:
    """Return ``"single"`` or ``"double"``."""
    return choice(value, name, ("single", "double"))  # type: ignore[return-value]


def order(value: Any, name: str = "order") -> Order:
    """Return ``"big"`` (first listed qubit leftmost) or ``"little"``."""
    return choice(value, name, ("big", "little"))  # type: ignore[return-value]


def array(value: Any, dtype: Any = None) -> NDArray[Any]:
    """Return the array that NumPy makes of `value`, without a copy where it is one.

    A `range`, alone or as a row, is refused above a million numbers: it takes no room itself, but NumPy makes a list of it
    first, which might be more than there is memory.

    >>> array(range(3)).tolist()
    [0, 1, 2]
    """
    for part in value if isinstance(value, (list, tuple)) else (value,):
        if isinstance(part, range) and part[_MOST_OF_RANGE:]:
            raise ValueError(f"a range must have at most {_MOST_OF_RANGE} numbers to be an array, got {show(part)}")
    try:
        return np.asarray(value, dtype=dtype)
    except OverflowError:
        raise ValueError(f"an array must hold numbers that fit its type, got {show(value)}") from None


def matrix(
    value: Any, n_qubits: int, name: str = "matrix", unitary: bool = True, own: bool = True
) -> NDArray[np.complex128]:
    """Return the matrix of a gate on `n_qubits` qubits.

    Parameters
    ----------
    value : array_like, shape (2**n_qubits, 2**n_qubits)
        Real or complex numbers, row by row.
    unitary : bool
        Also refuse a matrix with ``|U U† - 1|`` above `UNITARY_TOLERANCE` in any entry.
    own : bool
        False does without a copy where `value` is such an array already.

    Returns
    -------
    numpy.ndarray
        A new C-ordered array of ``complex128``.

    >>> matrix([[0, 1], [1, 0]], 1).shape
    (2, 2)
    """
    size = 2**n_qubits
    expected = f"{name} must be a {size} x {size} array of numbers for {n_qubits} qubit(s)"
    try:
        entries = array(value)
    except ValueError:  # rows of different lengths
        raise ValueError(f"{expected}, got {show(value)}") from None
    if entries.dtype.kind not in "biufc":
        # Recent NumPy refuses ragged rows above, older ones make objects of them.
        raise TypeError(f"{expected}, got {show(value)}")
    if entries.shape != (size, size):
        raise ValueError(f"{expected}, got shape {entries.shape}")
    entries = (np.array if own else np.asarray)(entries, dtype=np.complex128, order="C")
    if not np.isfinite(entries).all():
        raise ValueError(f"{name} must hold finite numbers only, got {show(value)}")
    if unitary:
        # Entries may be huge: an overflow here is a deviation, not a warning.
        with np.errstate(all="ignore"):
            deviation = deviation_from_unitary(entries)
        if not deviation <= UNITARY_TOLERANCE:
            raise ValueError(
                f"{name} must be unitary, got one with an entry of U·U† that is {deviation:.3g} off the identity"
            )
    return entries


def outcome(value: Any, n_qubits: int, name: str = "outcome") -> int:
    """Return an outcome of `n_qubits` qubits, a number or a text of 0 and 1, as a number.

    >>> outcome("011", 3), outcome(3, 3)
    (3, 3)
    """
    if not isinstance(value, str):
        return integer(value, name, minimum=0, maximum=2**n_qubits - 1)
    value = plain(value)
    if len(value) != n_qubits or set(value) - {"0", "1"}:
        raise ValueError(
            f"{name} must be a text of {n_qubits} characters 0 and 1, one per qubit, got {show(value)}"
        )
    return int(value, 2) if n_qubits else 0


def shots(value: Any, minimum: int = 0) -> int:
    """Return a number of shots; one that does not fit 63 bits would never end."""
    return integer(value, "shots", minimum=minimum, maximum=2**63 - 1)


def seed(value: Any, name: str = "seed", any_size: bool = False) -> int | None:
    """Return a seed of 32 bits; ``None`` leaves the choice to the library.

    Integers of more bits are refused, or, for packages that have seeds of any size, spread over 32.

    >>> seed(7), seed(2**80, any_size=True) == seed(np.random.SeedSequence(2**80))
    (7, True)
    """
    if value is None or type(value) is int and 0 <= value < 2**32:
        return value
    number = value
    if any_size and not isinstance(value, (np.random.Generator, np.random.SeedSequence)):
        number = integer(value, name, minimum=0)
        value = number if number < 2**32 else np.random.SeedSequence(number)
    if isinstance(value, np.random.Generator):
        number = value.integers(2**32)
    elif isinstance(value, np.random.SeedSequence):
        number = value.generate_state(1)[0]
    try:
        return integer(number, name, minimum=0, maximum=2**32 - 1)
    except (TypeError, ValueError) as error:
        raise type(error)(
            f"{error}; a numpy.random.Generator or a SeedSequence, which takes integers of any size, will do, too"
        ) from None


def random_source(value: Any) -> np.random.Generator | np.random.SeedSequence | None:
    """Return what NumPy's generators begin with, for packages whose seeds are integers of any size.

    >>> random_source(2**80).entropy == 2**80, random_source(None)
    (True, None)
    """
    is_source = value is None or isinstance(value, (np.random.Generator, np.random.SeedSequence))
    return value if is_source else np.random.SeedSequence(integer(value, "seed", minimum=0))


def threshold(value: Any, name: str = "threshold") -> float:
    """Return a finite threshold, not negative."""
    number = real(value, name)
    if number < 0:
        raise ValueError(f"{name} must not be negative, got {show(value)}")
    return number


def flag(value: Any, name: str) -> bool:
    """Return a yes or no; a number or a text in this place is an argument that slipped.

    >>> flag(np.True_, "collapse")
    True
    """
    if not isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} must be True or False, got {show(value)}")
    return bool(value)


def output(value: Any, length: int, dtype: Any, name: str = "out") -> NDArray[Any]:
    """Return an array that may be filled, of any address, stride and byte order."""
    expected = f"{name} must be a writable array of shape ({length},) and type {np.dtype(dtype)}"
    if not isinstance(value, np.ndarray):
        raise TypeError(f"{expected}, got {show(value)}")
    array = np.asarray(value)  # what a class of the user's says about itself is not asked
    if array.dtype.newbyteorder("=") != dtype:
        raise TypeError(f"{expected}, got type {array.dtype}")
    if array.shape != (length,):
        raise ValueError(f"{expected}, got shape {array.shape}")
    if not array.flags.writeable:
        raise ValueError(f"{expected}, got one that is locked against writing")
    return array


def _first(values: Any, count: int, name: str, of: str) -> tuple[Any, ...]:
    # Not all: what has no end would fill the memory, and nobody would hear Ctrl-C.
    expected = f"{name} must be a sequence of {of}"
    if isinstance(values, (str, bytes, dict)) or not isinstance(values, Iterable):
        raise TypeError(f"{expected}, got {show(values)}")
    try:
        return tuple(itertools.islice(values, min(count, sys.maxsize)))
    except TypeError:  # a NumPy array without dimensions calls itself iterable
        raise TypeError(f"{expected}, got {show(values)}") from None


def deviation_from_unitary(array: NDArray[np.complex128]) -> float:
    """Return the largest entry of ``|U U† - 1|``; NaN if there is one."""
    rows = max(1, min(_PRODUCTS_AT_ONCE // len(array) ** 2, _ENTRIES_AT_ONCE // len(array)))
    largest = 0.0
    for start in range(0, len(array), rows):
        # The conjugates of the entries, whose magnitudes are the same: so the matrix itself need not be conjugated.
        products = array[start : start + rows].conj() @ array.T
        products[np.arange(len(products)), np.arange(start, start + len(products))] -= 1
        largest = float(np.maximum(largest, np.abs(products).max()))
    return largest


def plain_entries(array: NDArray[Any]) -> tuple[complex, ...]:
    """Return the entries of an array row by row as Python's numbers.

    >>> plain_entries(np.array([[0, 1], [1, 0]]))
    (0j, (1+0j), (1+0j), 0j)
    """
    flat = array.reshape(-1)
    return tuple(chain.from_iterable(flat[piece].astype(np.complex128).tolist() for piece in pieces(flat.size)))


def pieces(count: int) -> Iterator[slice]:
    """Iterate over slices of a long array that are looked at one by one."""
    for start in range(0, count, _PIECE):
        yield slice(start, start + _PIECE)


def _plain_integer(value: Any, name: str, minimum: int | None = None, maximum: int | None = None) -> int:
    # operator.index takes Python and NumPy integers and refuses floats, so
    # that 1.0 or 2.7 is never rounded to a qubit.
    if not isinstance(value, (bool, np.bool_)):
        try:
            return operator.index(value)
        except TypeError:
            pass
    raise TypeError(f"{name} must be {_range_words(minimum, maximum)}, got {show(value)}")


def _is_scalar(value: Any) -> bool:
    if getattr(value, "ndim", 0):  # every NumPy array has __index__
        return False
    # Wrong scalars belong here too: their message should speak of an integer.
    return hasattr(value, "__index__") or isinstance(value, (float, complex, np.number))


def _range_words(minimum: int | None, maximum: int | None) -> str:
    if minimum is not None and maximum is not None:
        # Python refuses to write thousands of digits; bounds of that size are of so many bits.
        most = str(maximum) if maximum.bit_length() < 200 else f"2**{maximum.bit_length()} - 1"
        return f"an integer from {digits(minimum)} to {most}"
    if minimum is not None:
        return f"an integer of at least {digits(minimum)}"
    if maximum is not None:
        return f"an integer of at most {digits(maximum)}"
    return "an integer"


def _first_repeated(numbers: Sequence[int]) -> int | None:
    seen = set()
    for number in numbers:
        if number in seen:
            return number
        seen.add(number)
    return None
