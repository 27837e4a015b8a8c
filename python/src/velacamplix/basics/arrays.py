"""Checks of arrays that are written into a state."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import checks
from .words import bit_string

# How far from 1 the norm of given amplitudes may be: what rounding to single precision can cause.
_NORM_TOLERANCE = 1e-5


def amplitudes(value: Any, n_qubits: int, name: str) -> NDArray[Any]:
    """Return the amplitudes of a state of `n_qubits` qubits, of norm 1, in the type they came in.

    >>> amplitudes([0.6, 0.8j], 1, "data").tolist()
    [(0.6+0j), 0.8j]
    """
    array = amplitudes_of_any_norm(value, n_qubits, name)
    norm = _norm(array)
    if not abs(norm - 1) <= _NORM_TOLERANCE:
        raise ValueError(f"{name} must be finite and have norm 1, got an array of norm {norm:.6g}")
    return array


def amplitudes_of_any_norm(value: Any, n_qubits: int, name: str, kind: str = "an array") -> np.ndarray:
    """Return 2**n_qubits numbers in the type they came in; `kind` is what the argument may be."""
    expected = f"{name} must be {kind} of 2**{n_qubits} = {checks.digits(2**n_qubits)} amplitudes"
    array = _array(value, expected)
    if array.dtype.kind not in "iufc":
        raise TypeError(f"{expected}, got {checks.show(array)}")
    if array.shape != (2**n_qubits,):
        is_matrix = array.shape == (2**n_qubits,) * 2
        cure = "; DensityMatrix.from_array makes a state of the matrix of a mixed one" if is_matrix else ""
        raise ValueError(f"{expected}, got shape {array.shape}{cure}")
    return array


def product(value: Any, n_qubits: int, name: str) -> str:
    """Return a product state of `n_qubits` qubits, a text of 0 1 + - or the number of a basis state, as a text.

    >>> product("+0", 2, "state"), product(2, 2, "state")
    ('+0', '10')
    """
    if not isinstance(value, str):
        return bit_string(checks.integer(value, name, minimum=0, maximum=2**n_qubits - 1), n_qubits)
    text = checks.plain(value)
    if len(text) != n_qubits:
        raise ValueError(f"{name} must have one character per qubit, {n_qubits} in all, got {checks.show(text)}")
    for position, character in enumerate(text):
        if character not in "01+-":
            raise ValueError(
                f"{name} must hold only the characters 0 1 + -, got {character!r} at position {position} of "
                f"{checks.show(text)}"
            )
    return text


def weights(value: Any, n_address: int, n_value: int, name: str = "data") -> NDArray[np.float64]:
    """Return a table of real numbers, one row per address, no row all zero.

    Rows are scaled by powers of two so that no square leaves the range of single precision. Only a row's direction
    counts, and such a scaling changes no digit of it.
    """
    shape = (2**n_address, 2**n_value)
    expected = (
        f"{name} must be an array of real numbers with a row for each of {shape[0]} addresses and a column for each "
        f"of {shape[1]} values"
    )
    array = _array(value, expected)
    if array.dtype.kind not in "iuf":
        raise TypeError(f"{expected}, got {checks.show(array)}")
    if array.shape != shape:
        raise ValueError(f"{expected}, got shape {array.shape}")
    array = array.astype(np.float64)
    largest = np.abs(array).max(axis=1)
    if not np.isfinite(largest).all():
        raise ValueError(f"{name} must hold finite numbers only, got {checks.show(array)}")
    if not largest.all():
        row = int(np.flatnonzero(largest == 0)[0])
        raise ValueError(f"{name} must not have a row of zeros, which has no direction; row {row} is one")
    scaled: NDArray[np.float64] = np.ldexp(array, -np.frexp(largest)[1][:, np.newaxis])
    return scaled


def table(value: Any, n_address: int, n_value: int, name: str = "data") -> NDArray[np.uint64]:
    """Return a list of integers of `n_value` bits, one per address, as ``uint64``."""
    size = 2**n_address
    expected = f"{name} must hold {size} integers from 0 to {2**n_value - 1}, one per address"
    array = _array(value, expected)
    if array.dtype.kind not in "iu":
        raise TypeError(f"{expected}, got {checks.show(array)}")
    if array.shape != (size,):
        raise ValueError(f"{expected}, got shape {array.shape}")
    outside = np.flatnonzero((array < 0) | (array > 2**n_value - 1))
    if outside.size:
        address = int(outside[0])
        raise ValueError(f"{expected}, got {int(array[address])} for address {address}")
    return array.astype(np.uint64)


def outcomes(values: Any, n_qubits: int, name: str) -> list[int]:
    """Return a list of outcomes, each a number or a text of 0 and 1, without repetitions.

    >>> outcomes(["01", 2, 1], 2, "marked")
    [1, 2]
    """
    listed = checks.sequence(values, name, of="outcomes", most=10_000_000)
    numbers = (checks.outcome(value, n_qubits, f"{name}[{i}]") for i, value in enumerate(listed))
    return list(dict.fromkeys(numbers))


def registers(address: Any, value: Any, n_qubits: int) -> tuple[tuple[int, ...], tuple[int, ...]]:
    """Return an address register, which may be empty, and a value register that shares no qubit with it."""
    addresses = checks.qubits(address, n_qubits, "address_qubits", at_least=0)
    values = checks.qubits(value, n_qubits, "value_qubits")
    shared = set(addresses).intersection(values)
    if shared:
        raise ValueError(
            f"value_qubits must not contain an address qubit, got {min(shared)} in both {checks.show(address)} and "
            f"{checks.show(value)}"
        )
    return addresses, values


def _array(value: Any, expected: str) -> NDArray[Any]:
    if isinstance(value, (str, bytes, dict)) or not isinstance(value, Iterable):
        raise TypeError(f"{expected}, got {checks.show(value)}")
    try:
        return checks.array(value)
    except ValueError:  # rows of different lengths
        raise ValueError(f"{expected}, got {checks.show(value)}") from None


def _norm(array: NDArray[Any]) -> float:
    # In double precision, and piece by piece so that no second array of this size is needed.
    piece = 2**16
    squares = 0.0
    # Too large a number is not worth a warning: the caller refuses an infinite norm.
    with np.errstate(all="ignore"):
        for start in range(0, array.size, piece):
            squares += float(np.linalg.norm(array[start : start + piece].astype(np.complex128))) ** 2
    return float(np.sqrt(squares))
