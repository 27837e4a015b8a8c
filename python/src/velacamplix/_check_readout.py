"""Checks of what readout takes: outcomes, shots, seeds, thresholds, arrays to fill."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np

from . import _check


def outcome(value: Any, n_qubits: int, name: str = "outcome") -> int:
    """Return an outcome of `n_qubits` qubits, a number or a text of 0 and 1, as a number.

    >>> outcome("011", 3), outcome(3, 3)
    (3, 3)
    """
    if not isinstance(value, str):
        return _check.integer(value, name, minimum=0, maximum=2**n_qubits - 1)
    value = _check.plain(value)
    if len(value) != n_qubits or set(value) - {"0", "1"}:
        raise ValueError(
            f"{name} must be a text of {n_qubits} characters 0 and 1, one per qubit, got {_check.show(value)}"
        )
    return int(value, 2) if n_qubits else 0


def shots(value: Any, minimum: int = 0) -> int:
    """Return a number of shots; one that does not fit 63 bits would never end."""
    return _check.integer(value, "shots", minimum=minimum, maximum=2**63 - 1)


def seed(value: Any) -> Optional[int]:
    """Return a seed of 32 bits; ``None`` leaves the choice to the library."""
    return None if value is None else _check.integer(value, "seed", minimum=0, maximum=2**32 - 1)


def threshold(value: Any) -> float:
    """Return a finite threshold, not negative."""
    number = _check.real(value, "threshold")
    if number < 0:
        raise ValueError(f"threshold must not be negative, got {_check.show(value)}")
    return number


def flag(value: Any, name: str) -> bool:
    """Return a yes or no; a number or a text in this place is an argument that slipped.

    >>> flag(np.True_, "collapse")
    True
    """
    if not isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} must be True or False, got {_check.show(value)}")
    return bool(value)


def output(value: Any, length: int, dtype: Any, name: str = "out") -> np.ndarray:
    """Return an array that may be filled, of any address, stride and byte order."""
    expected = f"{name} must be a writable array of shape ({length},) and type {np.dtype(dtype)}"
    if not isinstance(value, np.ndarray):
        raise TypeError(f"{expected}, got {_check.show(value)}")
    array = np.asarray(value)  # what a class of the user's says about itself is not asked
    if array.dtype.newbyteorder("=") != dtype:
        raise TypeError(f"{expected}, got type {array.dtype}")
    if array.shape != (length,):
        raise ValueError(f"{expected}, got shape {array.shape}")
    if not array.flags.writeable:
        raise ValueError(f"{expected}, got one that is locked against writing")
    return array
