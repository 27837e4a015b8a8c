"""What the parts of a state vector's class share."""

from __future__ import annotations

from typing import Any, Iterable, Optional, Tuple, Union

from . import _check

Qubits = Union[int, Iterable[int]]


class StatePart:
    """Base of the classes that together make `StateVector`."""

    _n_qubits: int
    _precision: str
    _threads: int
    _amplitude_type: type

    def _live(self) -> Any:
        """Return the core's object, or raise RuntimeError after a release."""
        raise NotImplementedError

    def _listed(self, qubits: Optional[Qubits]) -> Tuple[int, ...]:
        """Return the checked qubits, all of them for None."""
        return tuple(range(self._n_qubits)) if qubits is None else _check.qubits(qubits, self._n_qubits, at_least=0)

    def _highest_first(self, qubits: Optional[Qubits], order: str) -> Tuple[int, ...]:
        """Return the checked qubits, all of them for None, so that the first is an outcome's most significant bit."""
        return highest_first(self._listed(qubits), order)


def highest_first(qubits: Tuple[int, ...], order: str) -> Tuple[int, ...]:
    """Return checked qubits so that the first is the most significant bit of an outcome.

    >>> highest_first((2, 0), "big"), highest_first((2, 0), "little")
    ((2, 0), (0, 2))
    """
    return qubits if _check.order(order) == "big" else qubits[::-1]


def bit_string(number: int, length: int) -> str:
    """Write an outcome of `length` qubits, most significant bit first.

    >>> bit_string(5, 4)
    '0101'
    """
    return format(number, f"0{length}b") if length else ""
