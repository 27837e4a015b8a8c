"""Density matrices in files."""

from __future__ import annotations

import os
from typing import Self

from ..basics import checks
from ..basics.types import Seed
from ..core import extension
from ..machine import limits, npz
from ..programs.progress import ProgressLike, metered
from .density import DensityBase
from .files import STATE_NAMES, about, read_state, require_about, state_arrays


class DensityFiles(DensityBase):
    """One .npz file for each density matrix, which NumPy reads, too."""

    def save(self, path: str | os.PathLike[str], progress: ProgressLike = None) -> None:
        """Write the matrix to a file, from which `load` makes an equal one.

        Parameters, errors
            As for `StateVector.save`.

        Notes
        -----
        `numpy.load` gives ``amplitudes``, of which number ``j * 2**n + i`` is entry (i, j), and what `StateVector.save`
        tells beside them.

        Examples
        --------
        >>> import os, tempfile
        >>> from velacamplix import Channel, DensityMatrix
        >>> path = os.path.join(tempfile.mkdtemp(), "mixed.npz")
        >>> DensityMatrix(1).channel(Channel.bit_flip(0.25), 0).save(path)
        >>> DensityMatrix.load(path).distribution().tolist()
        [0.75, 0.25]
        """
        arrays = {**about("DensityMatrix", self._n_qubits), **state_arrays(self, "")}
        with metered(progress, sum(array.nbytes for array in arrays.values()), "bytes") as meter:
            npz.write(path, arrays, lambda size: (meter.advance(size), meter.tell()))

    @classmethod
    def load(
        cls,
        path: str | os.PathLike[str],
        threads: int | None = None,
        seed: Seed | None = None,
        progress: ProgressLike = None,
    ) -> Self:
        """Return a new matrix with the entries and the precision that `save` has written, to the last bit.

        Parameters, errors
            As for `StateVector.load`.

        Examples
        --------
        >>> import os, tempfile
        >>> from velacamplix import DensityMatrix
        >>> path = os.path.join(tempfile.mkdtemp(), "plus.npz")
        >>> rho = DensityMatrix(3, "single", seed=4).h(0)
        >>> rho.save(path)
        >>> again = DensityMatrix.load(path)
        >>> bool((again.array == rho.array).all()), again.counts(9) == rho.counts(9)
        (True, True)
        """
        count, number = limits.thread_count(threads), checks.seed(seed)
        with npz.Reader(path, "DensityMatrix") as file:
            n = require_about(file, "DensityMatrix", 31)
            file.require_names(STATE_NAMES)
            with metered(progress, file.size, "bytes") as meter:
                rho = read_state(cls, file, "", n, count, lambda size: (meter.advance(size), meter.tell()), 2 * n)
        if number is not None:
            extension.set_seed(rho._live(), number)
        return rho  # type: ignore[no-any-return]
