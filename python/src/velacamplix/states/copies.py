"""Copies of the object itself, and the end of its life."""

from __future__ import annotations

from copy import deepcopy
from typing import Any, Self

import numpy as np

from ..basics.types import Precision
from ..core import extension
from ..machine import limits, memory
from ..machine.pickling import Packed
from .base import StateBase

# What `_start` sets.
_OWN = frozenset({"_n_qubits", "_precision", "_threads", "_amplitude_type", "_core", "_is_stored"})


class Copies(StateBase):
    """`copy`, the functions of the module `copy`, `pickle`, and the statement `with`."""

    def copy(self) -> Self:
        """Return an independent object with the same amplitudes and settings that will draw the same shots.

        Raises
        ------
        MemoryError
            If the copy does not fit.

        Examples
        --------
        >>> from velacamplix import StateVector
        >>> state = StateVector(1)
        >>> other = state.copy().x(0)
        >>> state.to_dict(), other.to_dict()
        ({'0': (1+0j)}, {'1': (1+0j)})
        """
        core, other = self._live(), self._another(self._n_qubits, self._precision, self._threads)
        extension.copy_amplitudes(core, other._live().view(), False)
        extension.set_engine(other._live(), extension.engine(core))
        vars(other).update(self._further())
        return other

    def __copy__(self) -> Self:
        return self.copy()

    def __deepcopy__(self, memo: dict[int, Any]) -> Self:
        other = self.copy()
        vars(other).update(deepcopy(self._further(), memo))
        return other

    def __reduce__(self) -> tuple[Any, ...]:
        core = self._live()
        engine, view = extension.engine(core), core.view()
        memory.require_bytes(view.nbytes, f"a copy of {self!r}")
        # A copy rather than a view: a gate may act while the pickle is being written.
        amplitudes = np.empty_like(view)
        extension.copy_amplitudes(core, amplitudes, False)
        settings = (type(self), self._n_qubits, self._precision, self._threads, engine)
        return _unpacked, (_Amplitudes(settings, amplitudes, is_spare=True),), self._further() or None

    def _further(self) -> dict[str, Any]:
        # What a class that inherits has added.
        return {name: value for name, value in vars(self).items() if name not in _OWN}

    def __enter__(self) -> Self:
        self._live()
        return self

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        try:
            self.release()
        except BufferError:
            # A view that still exists is a mistake, but not one to hide another by.
            if error is None:
                raise


class _Amplitudes(Packed):
    """Amplitudes in a pickle, which are put together again where they belong."""

    state: Any = None

    def __init__(self, settings: tuple[Any, ...], array: np.ndarray, is_spare: bool = False) -> None:
        super().__init__(array, is_spare)
        self._settings = settings

    def __reduce_ex__(self, protocol: Any) -> tuple[Any, ...]:
        if protocol >= 5:
            return _filled, (self._settings, self.array)
        return _begun, self._settings, None, self.numbers()


def _begun(kind: Any, n: int, precision: Precision, threads: int, engine: str) -> _Amplitudes:
    # This machine may allow fewer threads.
    state = kind._another(n, precision, min(threads, limits.most_threads()))
    extension.set_engine(state._live(), engine)
    begun = _Amplitudes((), state._live().view())
    begun.state = state
    return begun


def _filled(settings: tuple[Any, ...], amplitudes: np.ndarray) -> _Amplitudes:
    begun = _begun(*settings)
    begun.array[:] = amplitudes
    return begun


def _unpacked(amplitudes: _Amplitudes) -> Any:
    # The reader of the pickle lives on; a view that did would be in the way of `release`.
    del amplitudes.array
    return amplitudes.state
