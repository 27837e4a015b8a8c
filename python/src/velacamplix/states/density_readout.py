"""What a density matrix tells about outcomes: probabilities and shots."""

from __future__ import annotations

from typing import Self

import numpy as np

from ..basics import checks
from ..basics.types import Order
from ..basics.words import bit_string
from ..circuit.circuit import Circuit
from ..instructions.instruction import Instruction
from ..programs.compile import compiled
from ..programs.drive import drive_whole
from ..programs.mixture import compiled_doubled
from ..programs.progress import ProgressLike
from ..results.counts import Counts
from .base import Qubits
from .density import DensityBase
from .sampling import Sampling


class DensityReadout(DensityBase):
    """Arguments, orders and errors are those of `StateVector`. Shots are those of the matrix divided by its trace."""

    seed = Sampling.seed

    def probability(self, outcome: int | str, qubits: Qubits | None = None, order: Order = "big") -> float:
        """Return the probability that the listed qubits read an outcome.

        Parameters, errors
            As for `StateVector.probability`.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> rho = DensityMatrix(2).x(0).channel(Channel.bit_flip(0.25), 1)
        >>> rho.probability("11"), rho.probability(1, qubits=1)
        (0.25, 0.25)
        """
        listed = self._highest_first(qubits, order)
        index = checks.outcome(outcome, len(listed))
        self._live()
        return float(self._marginal(listed).reshape(-1)[index])

    def distribution(self, qubits: Qubits | None = None, order: Order = "big") -> np.ndarray:
        """Return the probabilities of all outcomes of the listed qubits, shape (2**k,), ``float64``.

        Parameters, errors
            As for `StateVector.distribution`.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> DensityMatrix(2).x(0).channel(Channel.bit_flip(0.25), 1).distribution().tolist()
        [0.0, 0.0, 0.75, 0.25]
        """
        listed = self._highest_first(qubits, order)
        self._live()
        return self._marginal(listed).reshape(-1)

    probabilities = distribution

    def distribution_dict(
        self, qubits: Qubits | None = None, threshold: float = 0.0, order: Order = "big", progress: ProgressLike = None
    ) -> dict[str, float]:
        """Return the probabilities of the outcomes that are not improbable, by texts in increasing order.

        Parameters, errors
            As for `StateVector.distribution_dict`.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> DensityMatrix(2).x(0).channel(Channel.bit_flip(0.25), 1).distribution_dict()
        {'10': 0.75, '11': 0.25}
        """
        limit = checks.threshold(threshold)
        shares = self.distribution(qubits, order)
        width = len(shares).bit_length() - 1
        return {bit_string(index, width): float(shares[index]) for index in np.flatnonzero(shares > limit).tolist()}

    def sample(
        self, shots: int, qubits: Qubits | None = None, order: Order = "big", progress: ProgressLike = None
    ) -> np.ndarray:
        """Draw outcomes of the listed qubits, shape (shots,), ``uint64``; the matrix does not change.

        Parameters, errors
            As for `StateVector.sample`.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(3).x(1).x(2).sample(2).tolist()
        [3, 3]
        """
        with self._as_state() as state:
            return state.sample(shots, qubits, order, progress)

    def counts(
        self, shots: int, qubits: Qubits | None = None, order: Order = "big", progress: ProgressLike = None
    ) -> Counts:
        """Draw outcomes as `sample` does and count how often each came.

        Parameters, errors
            As for `StateVector.counts`.

        Examples
        --------
        >>> from velacamplix import Channel, DensityMatrix
        >>> DensityMatrix(1, seed=1).channel(Channel.bit_flip(0.5), 0).counts(100)
        {'0': 52, '1': 48}
        """
        with self._as_state() as state:
            return state.counts(shots, qubits, order, progress)

    def measure(self, qubits: Qubits | None = None, collapse: bool = False, order: Order = "big") -> int:
        """Draw one outcome of the listed qubits.

        Parameters, errors
            As for `StateVector.measure`: with ``collapse=True`` the matrix is afterwards the one that remains after
            this outcome, divided by its trace.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> rho = DensityMatrix(2).h(0).cx(0, 1)
        >>> rho.measure(0, collapse=True) == rho.measure(1)
        True
        """
        listed, collapses = self._highest_first(qubits, order), checks.flag(collapse, "collapse")
        with self._as_state() as state:
            outcome = state.measure(listed)
        if collapses and listed:
            self._project(listed, outcome, "big", reset=False)
        return outcome

    def project(self, qubits: Qubits, value: int | str, order: Order = "big") -> Self:
        """Keep what agrees with an outcome, clear the rest, and give the matrix trace 1 again.

        Parameters, errors
            As for `StateVector.project`.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(2).h(0).cx(0, 1).project(0, 1).counts(10)
        {'11': 10}
        """
        return self._project(qubits, value, order, reset=False)

    def project_then_reset(self, qubits: Qubits, value: int | str, order: Order = "big") -> Self:
        """Project as `project` does, then set the listed qubits to 0. Arguments and errors as there.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(2).h(0).cx(0, 1).project_then_reset(0, 1).counts(10)
        {'01': 10}
        """
        return self._project(qubits, value, order, reset=True)

    def _project(self, qubits: Qubits, value: int | str, order: Order, reset: bool) -> Self:
        core, n = self._live(), self._n_qubits
        listed = self._highest_first(qubits, order)
        outcome = checks.outcome(value, len(listed), "value")
        share = float(self._marginal(listed).reshape(-1)[outcome])
        if not 0 < share < np.inf:
            text = bit_string(outcome, len(listed))
            raise ValueError(
                f"value must be an outcome of non-zero probability, got {text!r} on qubits {listed}, which has none"
            )
        kept = [outcome >> len(listed) - 1 - i & 1 for i in range(len(listed))]
        steps = [
            Instruction("diagonal", (qubit + n, qubit), (0, 0, 0, 1) if bit else (1, 0, 0, 0))
            for qubit, bit in zip(listed, kept)
        ]
        steps.append(Instruction("diagonal", (), (1 / share,)))
        if reset:
            flipped = [qubit for qubit, bit in zip(listed, kept) if bit]
            steps += [Instruction("X", (place,)) for qubit in flipped for place in (qubit, qubit + n)]
        drive_whole(core, compiled(steps, 2 * n, self._precision, Circuit(0), range(2 * n)))
        return self

    def reset_qubits(self, qubits: Qubits) -> Self:
        """Set the listed qubits to 0, whatever they were, and leave the others as they are without them.

        Parameters
        ----------
        qubits : int or sequence of int
            Distinct qubits.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.

        Examples
        --------
        >>> from velacamplix import DensityMatrix
        >>> DensityMatrix(2).h(0).cx(0, 1).reset_qubits(0).distribution().round(6).tolist()
        [0.5, 0.5, 0.0, 0.0]
        """
        core, listed = self._live(), checks.qubits(qubits, self._n_qubits)
        drive_whole(core, compiled_doubled([Instruction("reset", listed)], self._n_qubits, self._precision, Circuit(0)))
        return self
