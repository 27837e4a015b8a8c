"""Blocks that algorithms are made of: the Fourier transform, and evolution in time."""

from __future__ import annotations

import math
from collections.abc import Iterator, Sequence
from typing import Any, Literal, Self

from ..basics import checks
from ..basics.types import Order
from ..instructions.expression import Expression
from ..instructions.instruction import Instruction
from ..instructions.many_qubit_methods import rotation
from ..observables.observable import Observable, ObservableLike
from .record import Record

# Instructions of one block; more would fill the memory before anyone could run them.
_MOST_IN_A_BLOCK = 10_000_000
# By which the fourth order stretches four of five second-order steps; the fifth goes back in time.
_SUZUKI = 1 / (4 - 4 ** (1 / 3))


class Transforms(Record):
    """Adds many gates at once."""

    def qft(
        self,
        qubits: int | Sequence[int] | None = None,
        *,
        inverse: bool = False,
        swaps: bool = True,
        order: Order = "big",
    ) -> Self:
        """Add the quantum Fourier transform: x becomes the sum of exp(2 pi i x y / 2**k) y over all y, over sqrt(2**k).

        Parameters
        ----------
        qubits : int or sequence of int, optional
            k distinct qubits, all by default, at most 1000.
        inverse : bool
            Whether to undo it.
        swaps : bool
            False leaves out the exchange of qubits at its end (of the inverse: at its beginning): then y has its bits in
            reverse.
        order : {"big", "little"}
            Whether the first listed qubit is the highest or the lowest bit of x and y.

        Returns
        -------
        Circuit
            This circuit, with k Hadamard gates, k(k - 1)/2 controlled phases and k/2 exchanges more.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, not there or named twice, there are too many, or another argument is of the wrong kind.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).qft())
        H 0
        PH(1.57079632679) 0 controls 1
        H 1
        SWAP 0,1
        """
        listed = checks.qubits(range(self._n_qubits) if qubits is None else qubits, self._n_qubits, at_least=0)
        if len(listed) > 1000:
            raise ValueError(f"qubits must be at most 1000, got {len(listed)}")
        highest_first = listed if checks.order(order) == "big" else listed[::-1]
        steps = list(_fourier(highest_first, checks.flag(swaps, "swaps")))
        if checks.flag(inverse, "inverse"):
            steps = [step._replace(params=tuple([-value for value in step.params])) for step in reversed(steps)]
        for step in steps:
            self._put(step)
        return self

    def trotter(
        self, observable: ObservableLike, time: float | Expression, steps: int = 1, order: Literal[1, 2, 4] = 1
    ) -> Self:
        """Add an approximation of exp(-i observable time): rotations about its terms, one after the other.

        It is exact where all terms commute. Otherwise its error, as the norm of a difference of operators, falls with the
        number of steps r as 1/r, 1/r**2 or 1/r**4 by the order, for a large enough number; the constant is a phase of the
        whole state.

        Parameters
        ----------
        observable : Observable, or what one is made of
            With real coefficients, on qubits of this circuit.
        time : float, Parameter or Expression
            Of any sign; finite.
        steps : int
            Into how many equal parts the time is cut.
        order : {1, 2, 4}
            Of a step: every term once, in the order they were given; half of each there and half back; five of these, the
            third of them back in time.

        Returns
        -------
        Circuit
            This circuit, with the gates of `pauli_rotation`. Rotations about one term that meet are one.

        Raises
        ------
        TypeError, ValueError
            If an argument is of the wrong kind or outside its range, a coefficient is complex, the circuit has too few
            qubits, or it would become more than 10,000,000 instructions.

        Notes
        -----
        The orders 2 and 4 are those of M. Suzuki, Physics Letters A 146, 319 (1990).

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).trotter("Z0 Z1 + 0.5*X0", time=0.2, steps=1, order=2))
        rzz(0.2) 0,1
        RX(0.2) 0
        rzz(0.2) 0,1
        """
        energy = observable if isinstance(observable, Observable) else Observable(observable)
        if energy.is_complex:
            raise ValueError(f"observable must have real coefficients, got {checks.show(energy)}")
        if energy.n_qubits > self._n_qubits:
            raise ValueError(f"observable must act on qubits of the circuit, {self._n_qubits}, got {energy.n_qubits}")
        whole = self._angle(time, "time")
        times = checks.integer(steps, "steps", minimum=1)
        if checks.integer(order, "order") not in (1, 2, 4):
            raise ValueError(f"order must be 1, 2 or 4, got {checks.show(order)}")
        factors = [list(zip(term.paulis, term.qubits)) for term in energy.terms]
        n_rotations = times * {1: 1, 2: 2, 4: 10}[order] * len(factors)
        longest = max([2 * len(pairs) for pairs in factors], default=1)
        if n_rotations * longest > _MOST_IN_A_BLOCK:
            raise ValueError(
                f"steps must give at most {_MOST_IN_A_BLOCK} instructions, got {checks.show(steps)} of {len(factors)} terms"
            )
        coefficients: list[Any] = [term.coefficient for term in energy.terms]
        largest = 2 * sum(map(abs, coefficients), abs(energy.constant)) * (1.0 if isinstance(whole, Expression) else abs(whole))
        if not math.isfinite(largest):
            raise ValueError(f"time must give finite angles with the observable's coefficients, got {checks.show(time)}")
        for place, share in _joined(_shares(len(factors), order) * times):
            for part in rotation(factors[place], 2 * coefficients[place] * share / times * whole):
                self._put(part)
        if energy.constant:
            self._put(Instruction("gphase", (), (-1 * energy.constant * whole,)))
        return self


def _fourier(highest_first: Sequence[int], swaps: bool) -> Iterator[Instruction]:
    for place, qubit in enumerate(highest_first):
        yield Instruction("H", (qubit,))
        for distance, control in enumerate(highest_first[place + 1 :], start=1):
            yield Instruction("PH", (qubit,), (math.pi / 2**distance,), (control,))
    if swaps:
        for one, other in zip(highest_first[: len(highest_first) // 2], reversed(highest_first)):
            yield Instruction("SWAP", (one, other))


def _shares(n_terms: int, order: int) -> list[tuple[int, float]]:
    """Return the terms of one step in turn, each with its share of the step's time."""
    if order == 1:
        return [(term, 1.0) for term in range(n_terms)]
    there_and_back = [*range(n_terms), *reversed(range(n_terms))]
    if order == 2:
        return [(term, 0.5) for term in there_and_back]
    middle = 1 - 4 * _SUZUKI
    return [(term, part / 2) for part in (_SUZUKI, _SUZUKI, middle, _SUZUKI, _SUZUKI) for term in there_and_back]


def _joined(shares: list[tuple[int, float]]) -> Iterator[tuple[int, float]]:
    """Iterate over shares; those of the same term that meet are added."""
    waiting: tuple[int, float] | None = None
    for term, share in shares:
        if waiting is not None and waiting[0] == term:
            waiting = (term, waiting[1] + share)
            continue
        if waiting is not None:
            yield waiting
        waiting = (term, share)
    if waiting is not None:
        yield waiting
