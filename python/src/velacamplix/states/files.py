"""States in files."""

from __future__ import annotations

import os
import re
from typing import Any, Self

import numpy as np

from ..basics import checks
from ..basics.types import Precision, Seed
from ..core import extension
from ..machine import limits, npz
from ..programs.progress import ProgressLike, metered
from .base import StateBase

# Of the arrays below. A file of another number is refused.
FORMAT = 1

_TYPES: dict[Precision, str] = {"double": "<c16", "single": "<c8"}


class Files(StateBase):
    """One .npz file for each state, which NumPy reads, too."""

    def save(self, path: str | os.PathLike[str], progress: ProgressLike = None) -> None:
        """Write the state to a file, from which `load` makes an equal one.

        The file appears when it is complete: whatever happens meanwhile, a file that was there before stays whole.

        Parameters
        ----------
        path : str or os.PathLike
            Usually it ends in ``.npz``. A file that is there is replaced.
        progress : None, bool or callable
            As for `run`; bytes are counted.

        Raises
        ------
        TypeError, ValueError
            If `path` is none, or that of a folder, device or pipe.
        OSError
            If the file cannot be written.

        Notes
        -----
        `numpy.load` gives ``amplitudes``, ``n``, ``precision``, ``order`` (``"little"``: qubit q is bit q of an index),
        ``version`` (of velacamplix), ``kind``, ``format`` and ``engine`` (the state of the random numbers). Amplitudes
        are written from where they are, so that no memory is needed; a gate that acts meanwhile, in another thread,
        shows in some of them. What a class that inherits has added is not written.

        Examples
        --------
        >>> import os, tempfile
        >>> from velacamplix import StateVector
        >>> path = os.path.join(tempfile.mkdtemp(), "bell.npz")
        >>> StateVector(2).h(0).cx(0, 1).save(path)
        >>> StateVector.load(path).expectation("X0 X1")             # doctest: +ELLIPSIS
        0.9999...
        >>> import numpy as np
        >>> int(np.load(path)["n"]), str(np.load(path)["precision"])
        (2, 'double')
        """
        core, arrays = self._live(), {**about("StateVector", self._n_qubits), **state_arrays(self, "")}
        with metered(progress, sum(array.nbytes for array in arrays.values()), "bytes") as meter:
            npz.write(path, arrays, lambda size: (core.require_whole(), meter.advance(size), meter.tell()))

    @classmethod
    def load(
        cls,
        path: str | os.PathLike[str],
        threads: int | None = None,
        seed: Seed | None = None,
        progress: ProgressLike = None,
    ) -> Self:
        """Return a new state with the amplitudes and the precision that `save` has written, to the last bit.

        Parameters
        ----------
        path : str or os.PathLike
        threads : int, optional
            As for `StateVector`.
        seed : int, numpy.random.Generator or numpy.random.SeedSequence, optional
            As for `StateVector`. By default random numbers go on as those of the state that was saved.
        progress : None, bool or callable
            As for `run`; bytes are counted.

        Raises
        ------
        TypeError, ValueError
            If `path` is none, or the file is nothing that `save` has written: the message tells what does not fit.
        OSError
            If the file cannot be read.
        MemoryError
            If the state does not fit.

        Notes
        -----
        Files of strangers do no harm: nothing in them is executed or unpickled.

        Examples
        --------
        >>> import os, tempfile
        >>> from velacamplix import StateVector
        >>> path = os.path.join(tempfile.mkdtemp(), "plus.npz")
        >>> state = StateVector(3, "single", seed=4).h(0)
        >>> state.save(path)
        >>> again = StateVector.load(path)
        >>> again, bool((again.array == state.array).all()), again.counts(9) == state.counts(9)   # doctest: +ELLIPSIS
        (StateVector(n=3, precision='single', threads=...), True, True)
        """
        count, number = limits.thread_count(threads), checks.seed(seed)
        with npz.Reader(path, "StateVector") as file:
            n = require_about(file, "StateVector", 63)
            file.require_names(STATE_NAMES)
            with metered(progress, file.size, "bytes") as meter:
                state = read_state(cls, file, "", n, count, lambda size: (meter.advance(size), meter.tell()))
        if number is not None:
            extension.set_seed(state._live(), number)
        return state


# The parts that files of states and of results have in common

_ABOUT = ("format", "kind", "version", "n", "order")
_NAMES = ("precision", "engine", "amplitudes")
#: All arrays of a file of a state.
STATE_NAMES = {*_ABOUT, *_NAMES}


def about(kind: str, n_qubits: int) -> dict[str, np.ndarray]:
    """Return what a file says about itself."""
    return {
        "format": np.array(FORMAT, "<i8"),
        "kind": np.array(kind),
        "version": np.array(extension.version()),
        "n": np.array(n_qubits, "<i8"),
        "order": np.array("little"),
    }


def require_about(file: npz.Reader, kind: str, most_qubits: int) -> int:
    """Return the number of qubits of a file that says it holds such an object, as this version writes it."""
    number = int(file.array("format", "<i8", ()))
    if number != FORMAT:
        file.refuse(f"it has the format {number}, of velacamplix {file.text('version')}; this one reads {FORMAT}")
    found = file.text("kind")
    if found != kind:
        file.refuse(f"it holds a {checks.show(found)}")
    if file.text("order") != "little":
        file.refuse(f"its order must be 'little', is {checks.show(file.text('order'))}")
    return file.integer("n", 0, most_qubits)


def state_arrays(state: StateBase, prefix: str) -> dict[str, np.ndarray]:
    """Return the arrays of a state by name; the amplitudes are where they are."""
    core = state._live()
    return {
        f"{prefix}precision": np.array(state.precision),
        f"{prefix}engine": np.array(extension.engine(core)),
        f"{prefix}amplitudes": core.view(),
    }


def read_state(
    kind: Any, file: npz.Reader, prefix: str, n_qubits: int, threads: int, told: npz.Told, bits: int | None = None
) -> Any:
    """Return a state of `kind` from a file; it has 2**bits amplitudes, 2**n_qubits by default."""
    precision, engine = file.text(f"{prefix}precision"), file.text(f"{prefix}engine")
    if precision not in _TYPES:
        file.refuse(f"{prefix}precision must be 'double' or 'single', is {checks.show(precision)}")
    if not _is_engine(engine):
        file.refuse(f"{prefix}engine is not the state of a random engine")
    file.require(f"{prefix}amplitudes", _TYPES[precision], (2 ** (n_qubits if bits is None else bits),))
    state = kind._another(n_qubits, precision, threads)
    file.fill(f"{prefix}amplitudes", state._live().view(), told)
    extension.set_engine(state._live(), engine)
    return state


def _is_engine(text: str) -> bool:
    """Whether a text is a seed, 312 words and the position of the next one."""
    if not re.fullmatch(r"[0-9]{1,10}(?: [0-9]{1,20}){312} [0-9]{1,3}", text):
        return False
    seed, *words, position = map(int, text.split())
    return seed < 2**32 and max(words) < 2**64 and position <= 312
