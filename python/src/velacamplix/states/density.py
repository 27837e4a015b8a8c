"""What the parts of a density matrix's class share: the core's object, which has the qubits of ket and bra."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from contextlib import contextmanager

import numpy as np

from ..basics.types import Precision
from ..core import extension
from ..machine import memory
from .base import StateBase
from .parts import places
from .statevector import StateVector


class DensityBase(StateBase):
    """Base of the classes that together make `DensityMatrix`.

    Entry (i, j), <i|rho|j>, is amplitude j * 2**n + i of the core's state of 2 n qubits: qubit q of the ket is bit q,
    qubit q of the bra bit q + n.
    """

    _kind = "DensityMatrix"

    def _start(
        self, n: int, precision: Precision, threads: int, seed: int | None = None, is_run_next: bool = False
    ) -> None:
        memory.require_density(n, precision, may_reuse=True)
        super()._start(2 * n, precision, threads, seed, is_run_next)
        self._n_qubits = n

    @property
    def array(self) -> np.ndarray:
        """The matrix without a copy, shape (2**n, 2**n), ``complex128`` or ``complex64``; entry (i, j) is <i|rho|j>.

        Qubit q is bit q of a row's and a column's number. The view shows every later gate and may be written to. It
        stays valid as long as it exists; in turn `release` is refused while a view, or a slice of one, exists.

        Examples
        --------
        >>> rho = DensityMatrix(1).h(0).s(0)
        >>> rho.array.round(6).tolist()
        [[(0.5+0j), -0.5j], [0.5j, (0.5+0j)]]
        """
        size = 2**self._n_qubits
        return self._live().view().reshape(size, size).T  # type: ignore[no-any-return]

    def trace(self) -> float:
        """Return the sum of all probabilities: 1, but for the rounding of what has acted so far.

        Examples
        --------
        >>> DensityMatrix(3).h(0).trace().__round__(12)
        1.0
        """
        return float(self._shares().sum())

    def _shares(self) -> np.ndarray:
        """Return the probabilities of all basis states by index, ``float64``."""
        diagonal: np.ndarray = self._live().view()[:: 2**self._n_qubits + 1].real.astype(np.float64)
        return diagonal

    def _marginal(self, listed: Sequence[int]) -> np.ndarray:
        """Return the probabilities of the outcomes of checked qubits, an axis for each."""
        others = [qubit for qubit in range(self._n_qubits) if qubit not in listed]
        order = places([*others, *reversed(listed)])
        shares = self._shares()[order].reshape(2 ** len(listed), 2 ** len(others))
        return shares.sum(axis=1).reshape((2,) * len(listed))

    @contextmanager
    def _as_state(self) -> Iterator[StateVector]:
        """Give a state with the same probabilities of outcomes, which draws with this object's random numbers."""
        core = self._live()
        state = StateVector._another(self._n_qubits, "double", self._threads)
        # What rounding leaves below 0 cannot be drawn.
        state.array[:] = np.sqrt(np.maximum(self._shares(), 0))
        extension.set_engine(state._live(), extension.engine(core))
        try:
            yield state
        finally:
            extension.set_engine(core, extension.engine(state._live()))
