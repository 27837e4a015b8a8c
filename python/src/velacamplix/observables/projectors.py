"""Projectors and number operators as sums of Pauli strings."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Self

from ..basics import checks
from ..basics.types import Order
from ..basics.words import bit_string
from .base import ObservableBase
from .ketbra import MOST_BITS, ket_bra
from .terms import MOST_QUBITS, Term


class Projectors(ObservableBase):
    """Operators that ask for outcomes."""

    @classmethod
    def projector(cls, outcome: str | int, qubits: None | int | Sequence[int] = None, order: Order = "big") -> Self:
        """Return the projector on an outcome of some qubits: its expectation value is the outcome's probability.

        Parameters
        ----------
        outcome : str or int
            A text of 0 and 1, one character per qubit, or a number from 0 to 2**k - 1.
        qubits : int or sequence of int, optional
            k distinct qubits, at most 16: a projector on k qubits is a sum of 2**k Pauli strings. By default, for a text
            of k characters, 0 to k - 1.
        order : {"big", "little"}
            Whether the first listed qubit is the leftmost, most significant bit of the outcome or the rightmost.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the outcome does not fit the qubits, there are more than 16, or a number comes without qubits.

        Examples
        --------
        >>> Observable.projector("01")                  # |01><01|
        Observable('0.25*Z0 - 0.25*Z1 - 0.25*Z0 Z1 + 0.25')
        >>> Observable.projector("01") == Observable("|01><01|")
        True
        >>> Observable.projector(1, qubits=[7])
        Observable('-0.5*Z7 + 0.5')
        """
        if qubits is None:
            if not isinstance(outcome, str):
                raise TypeError(
                    f"outcome must be a text of 0 and 1 where no qubits are given, got {checks.show(outcome)}; or list "
                    "them: qubits=[0, 1]"
                )
            listed: tuple[int, ...] = tuple(range(min(len(outcome), MOST_BITS + 1)))
        else:
            listed = checks.qubits(qubits, MOST_QUBITS, at_least=0)
        if len(listed) > MOST_BITS:
            raise ValueError(
                f"qubits must be at most {MOST_BITS} for a projector, which has 2^k Pauli strings, got "
                f"{len(outcome) if qubits is None and isinstance(outcome, str) else len(listed)}; the probability of an "
                "outcome on more is told by StateVector.probability and Result.probability"
            )
        bits = bit_string(checks.outcome(outcome, len(listed)), len(listed))
        return cls._from_listed(ket_bra(bits, bits, listed if checks.order(order) == "big" else listed[::-1]))

    @classmethod
    def number(cls, qubits: int | Sequence[int]) -> Self:
        """Return the number operator, (1 - Z) / 2 summed over the qubits: how many of them read 1.

        Products of number operators ask whether all of several qubits read 1, as in problems of binary variables.

        Parameters
        ----------
        qubits : int or sequence of int
            Distinct qubits.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, not from 0 to 65535, or named twice.

        Examples
        --------
        >>> Observable.number([0, 2])
        Observable('-0.5*Z0 - 0.5*Z2 + 1.0')
        >>> Observable.number(0) @ Observable.number(2) == Observable.projector("11", qubits=[0, 2])
        True
        """
        listed = checks.qubits(qubits, MOST_QUBITS, at_least=0)
        terms = [Term(-0.5, "Z", (qubit,)) for qubit in listed]
        return cls._of(terms, len(listed) / 2, max(listed, default=-1) + 1)
