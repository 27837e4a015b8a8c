"""Drawing outcomes, and the state after an outcome."""

from __future__ import annotations

import secrets
from collections.abc import Iterator, Sequence
from typing import Self

import numpy as np

from ..basics import checks
from ..basics.types import Order, Seed
from ..basics.words import bit_string
from ..core import extension
from ..machine import memory
from ..programs.progress import ProgressLike, metered
from ..results.counts import Counts
from ..results.shot_rows import Tally
from .base import Qubits, StateBase, highest_first


class Sampling(StateBase):
    """Shots leave the state as it is; `project` and a collapsing `measure` do not.

    Shots are those of the normalised state, whatever its norm: where the probabilities of a state in double precision add
    up to 1 within 1e-9 random numbers are taken as they are, otherwise, and always in single precision, as shares of
    what the probabilities add up to.
    """

    @property
    def seed(self) -> int:
        """Where the object's random numbers started, from 0 to 2**32 - 1; setting it starts them again.

        Every shot takes one number, and which shot takes which depends on nothing but their order: the same seed gives
        the same shots, whatever the number of threads. What may be set is what `StateVector` takes; ``None`` chooses a
        seed by chance.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(4, seed=7).set_basis_state("++++")
        >>> first = state.sample(5)
        >>> state.seed = 7
        >>> bool((state.sample(5) == first).all())
        True
        """
        return int(extension.seed(self._live()))

    @seed.setter
    def seed(self, seed: Seed | None) -> None:
        number = checks.seed(seed)
        extension.set_seed(self._live(), secrets.randbits(32) if number is None else number)

    def sample(
        self, shots: int, qubits: Qubits | None = None, order: Order = "big", progress: ProgressLike = None
    ) -> np.ndarray:
        """Draw outcomes of the listed qubits; the state does not change.

        Parameters
        ----------
        shots : int
            How many, 0 or more.
        qubits : int or sequence of int, optional
            Distinct qubits; all n by default.
        order : {"big", "little"}
            Whether the first listed qubit is the most or the least significant bit of an outcome.
        progress : None, bool or callable
            As for `run`; shots are counted.

        Returns
        -------
        numpy.ndarray, shape (shots,)
            Outcomes as ``uint64``, in the order drawn.

        Raises
        ------
        TypeError, IndexError, ValueError
            If `shots` is no integer or negative, or a qubit is no integer, outside the range, or named twice; also
            ValueError if the probabilities add up to 0, to infinity or to nan. No random number is then used up.
        MemoryError
            If the result does not fit.
        KeyboardInterrupt
            After Ctrl-C. Random numbers of the shots so far may be used up.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(3).set_basis_state("011")
        >>> state.sample(2).tolist(), state.sample(2, order="little").tolist(), state.sample(2, [0, 2]).tolist()
        ([3, 3], [6, 6], [1, 1])
        """
        self._live()
        listed, count = self._highest_first(qubits, order), checks.shots(shots)
        # Besides the outcomes, the core sorts what it drew for a piece at a time.
        memory.require_bytes(8 * count + 16 * min(count, self._piece()), f"an array of {count} shots")
        outcomes: np.ndarray = np.zeros(count, dtype=np.uint64)
        with metered(progress, count, "shots") as meter:
            for start, stop in self._pieces(count):
                self._draw(outcomes[start:stop], listed)
                meter.advance(stop - start)
                meter.tell()
        return outcomes

    def _draw(self, outcomes: np.ndarray, listed: Sequence[int]) -> None:
        """Fill an array with outcomes of checked qubits, the first of them most significant."""
        if listed:  # the core takes an empty list for all qubits
            extension.sample(self._live(), outcomes, listed)

    def counts(
        self, shots: int, qubits: Qubits | None = None, order: Order = "big", progress: ProgressLike = None
    ) -> Counts:
        """Draw outcomes as `sample` does and count how often each came.

        Returns
        -------
        Counts
            A ``dict``: keys are texts of one character per listed qubit, in increasing order; their numbers add up to
            `shots`.
            ``order`` tells whether the first listed qubit is leftmost or rightmost. The shots are not kept, so their
            number is not limited by memory.

        Raises
        ------
        TypeError, IndexError, ValueError, KeyboardInterrupt
            As for `sample`.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> StateVector(2, seed=1).x(1).counts(100)
        {'01': 100}
        >>> sum(StateVector(2).h(0).cnot(0, 1).counts(1000).values())
        1000
        """
        core, listed, count = self._live(), self._highest_first(qubits, order), checks.shots(shots)
        if not listed:
            return Counts({"": count} if count else {})
        total = Tally(len(listed))
        with metered(progress, count, "shots") as meter:
            for start, stop in self._pieces(count):
                piece: np.ndarray = np.empty((stop - start, 1), dtype=np.uint64)
                extension.sample(core, piece[:, 0], listed)
                total.add(piece)
                meter.advance(stop - start)
                meter.tell()
        return total.counts()

    def measure(self, qubits: Qubits | None = None, collapse: bool = False, order: Order = "big") -> int:
        """Draw one outcome of the listed qubits.

        Parameters
        ----------
        qubits : int or sequence of int, optional
            Distinct qubits; all n by default.
        collapse : bool
            True leaves the state that remains after this outcome, False (the default) the state as it is.
        order : {"big", "little"}
            Whether the first listed qubit is the most or the least significant bit of the outcome.

        Returns
        -------
        int
            From 0 to 2**k - 1, for k qubits.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice, or `collapse` is no bool; also ValueError as
            for `sample`.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2).h(0).cnot(0, 1)
        >>> outcome = state.measure(0, collapse=True)
        >>> state.measure(1) == outcome
        True
        """
        core, listed = self._live(), self._highest_first(qubits, order)
        collapses = checks.flag(collapse, "collapse")
        return int(extension.measure(core, listed, collapses)) if listed else 0

    def project(self, qubits: Qubits, value: int | str, order: Order = "big") -> Self:
        """Keep what agrees with an outcome, clear the rest, and give the state norm 1 again.

        Parameters
        ----------
        qubits : int or sequence of int
            k distinct qubits. An empty list only gives the state norm 1.
        value : int or str
            A number from 0 to 2**k - 1 or a text of k characters 0 and 1.
        order : {"big", "little"}
            Whether the first listed qubit is the leftmost, most significant bit of the value or the rightmost.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the value does not fit the qubits, or a qubit is no integer, outside the range, or named twice; also
            ValueError if the outcome has probability zero. The state is then unchanged.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2).h(0).cnot(0, 1).project(0, 1)
        >>> state.counts(10)
        {'11': 10}
        """
        return self._project(qubits, value, order, reset=False)

    def project_then_reset(self, qubits: Qubits, value: int | str, order: Order = "big") -> Self:
        """Project as `project` does, then set the listed qubits to 0. Arguments and errors as there.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(2).h(0).cnot(0, 1).project_then_reset(0, 1)
        >>> state.counts(10)
        {'01': 10}
        """
        return self._project(qubits, value, order, reset=True)

    def _project(self, qubits: Qubits, value: int | str, order: Order, reset: bool) -> Self:
        core, listed = self._live(), highest_first(checks.qubits(qubits, self._n_qubits, at_least=0), order)
        outcome = checks.outcome(value, len(listed), "value")
        try:
            extension.project(core, listed, outcome, reset)
        except ValueError:
            text = bit_string(outcome, len(listed))
            raise ValueError(
                f"value must be an outcome of non-zero probability, got {text!r} on qubits {listed}, which has none"
            ) from None
        return self

    def _piece(self) -> int:
        # Each piece walks through the whole state, so it should not be much shorter than that. Sorting then takes no
        # more memory than the state has.
        return max(2**18, min(2**self._n_qubits // 4, 2**24))

    def _pieces(self, count: int) -> Iterator[tuple[int, int]]:
        # Between two of them Ctrl-C is heard.
        piece = self._piece()
        for start in range(0, count, piece):
            yield start, min(start + piece, count)
