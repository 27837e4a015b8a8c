"""What the parts of a state vector's class share: the core's object, its size, precision and threads."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any, Self

import numpy as np

from ..basics import checks
from ..basics.elsewhere import Guiding
from ..basics.types import Order, Precision, Seed
from ..core import extension
from ..instructions.gate_base import GateBase
from ..machine import limits, memory

Qubits = int | Iterable[int]

_CORE_TYPES = {
    "single": (extension.StateVectorSingle, np.complex64),
    "double": (extension.StateVectorDouble, np.complex128),
}


class StateBase(GateBase, Guiding):
    """Base of the classes that together make `StateVector`."""

    # What messages call the object.
    _kind = "StateVector"
    # Whether its amplitudes lie in a file, where nothing may write.
    _is_stored = False

    def __init__(
        self, n: int, precision: Precision = "double", threads: int | None = None, seed: Seed | None = None
    ) -> None:
        self._start(_size(n), checks.precision(precision), limits.thread_count(threads), checks.seed(seed))

    def _start(
        self, n: int, precision: Precision, threads: int, seed: int | None = None, is_run_next: bool = False
    ) -> None:
        memory.require_state(n, precision, may_reuse=True)
        core_type, amplitude_type = _CORE_TYPES[precision]
        try:
            core = core_type(n)
        except MemoryError:
            # Someone else took the memory since we looked.
            memory.require_state(n, precision)
            raise MemoryError(f"the system has no memory for n={n} qubits in {precision} precision") from None
        core.set_num_threads(threads)
        if seed is not None:
            extension.set_seed(core, seed)
        if is_run_next:
            core.begin(0)
        else:
            core.reset()
        # An object that is set up again stays what it was until all has gone well.
        self._n_qubits, self._precision, self._threads, self._amplitude_type = n, precision, threads, amplitude_type
        self._core: Any = core

    @classmethod
    def _another(cls, n: int, precision: Precision, threads: int, is_run_next: bool = False) -> Self:
        """Return a new state, also of a class whose constructor takes other arguments.

        One that is run next has amplitudes from then on: until somebody looks it takes no memory, so whoever keeps it
        waiting is not seen by those who ask for memory meanwhile.
        """
        made = cls.__new__(cls)
        made._start(n, precision, threads, None, is_run_next)
        return made

    @classmethod
    def _stored(cls, core: Any, n: int, precision: Precision, threads: int) -> Self:
        """Return a state of the core's, whose amplitudes lie in a file."""
        made = cls.__new__(cls)
        core.set_num_threads(threads)
        made._n_qubits, made._precision, made._threads = n, precision, threads
        made._core, made._amplitude_type, made._is_stored = core, _CORE_TYPES[precision][1], True
        return made

    # What the object is

    @property
    def n_qubits(self) -> int:
        """Number of qubits."""
        return self._n_qubits

    num_qubits = n_qubits

    @property
    def precision(self) -> Precision:
        """``"double"`` or ``"single"``."""
        return self._precision

    @property
    def threads(self) -> int:
        """Number of threads that work on every operation; may be set at any time."""
        return self._threads

    @threads.setter
    def threads(self, threads: int | None) -> None:
        count = limits.thread_count(threads)
        self._live().set_num_threads(count)
        self._threads = count

    @property
    def array(self) -> np.ndarray:
        """The 2**n amplitudes without a copy, ``complex128`` or ``complex64``; qubit q is bit q of the index.

        The view shows every later gate and may be written to. It stays valid as long as it exists, whatever becomes
        of this object; in turn `release` is refused while a view, or a slice of one, exists. Reading a view while
        another thread runs a gate shows a mixture of old and new amplitudes.

        Examples
        --------
        >>> state = StateVector(3).x(1)
        >>> [int(i) for i in np.flatnonzero(state.array)]
        [2]
        """
        return self._live().view()

    def __array__(self, dtype: np.typing.DTypeLike | None = None, copy: bool | None = None) -> np.ndarray:
        """Give NumPy what `array` gives: ``numpy.asarray(state)`` shares the state's memory, ``numpy.array(state)`` does not."""
        view = self.array
        of_that_type = view.astype(dtype or view.dtype, copy=bool(copy))
        if copy is False and of_that_type is not view:
            raise ValueError(f"an array of {of_that_type.dtype} is a copy of the state's {view.dtype}; leave out copy=False")
        return of_that_type

    def __repr__(self) -> str:
        if self._core is None:
            return f"{self._kind}(n={self._n_qubits}, precision={self._precision!r}, released)"
        return f"{self._kind}(n={self._n_qubits}, precision={self._precision!r}, threads={self._threads})"

    def _live(self) -> Any:
        if self._core is None:
            raise RuntimeError(f"this {self._kind} has been released; make a new one")
        return self._core

    def release(self) -> None:
        """Give the memory back now. Every later use of this object but another `release` raises RuntimeError.

        Raises
        ------
        BufferError
            If a view made by `array` still exists.
        """
        if self._core is None:
            return
        if not self._live().release():
            raise BufferError(
                "the amplitudes cannot be released while a NumPy view made by .array exists; delete the view first"
            )
        self._core = None

    def _set_amplitudes(self, amplitudes: np.ndarray, order: Order) -> None:
        core = self._live()
        # The core reads its source while it writes the state, and takes its own type only.
        of_its_own = not np.may_share_memory(amplitudes, core.view())
        plain = amplitudes.flags.c_contiguous and amplitudes.flags.aligned
        if not (of_its_own and plain and amplitudes.dtype == self._amplitude_type):
            size = amplitudes.size * np.dtype(self._amplitude_type).itemsize
            memory.require_bytes(size, f"a copy of the amplitudes of {self._n_qubits} qubits")
            amplitudes = np.array(amplitudes, dtype=self._amplitude_type, order="C")
        core.reset_from(amplitudes, order == "big")

    def _listed(self, qubits: Qubits | None) -> tuple[int, ...]:
        """Return the checked qubits, all of them for None."""
        return tuple(range(self._n_qubits)) if qubits is None else checks.qubits(qubits, self._n_qubits, at_least=0)

    def _highest_first(self, qubits: Qubits | None, order: Order) -> tuple[int, ...]:
        """Return the checked qubits, all of them for None, so that the first is an outcome's most significant bit."""
        return highest_first(self._listed(qubits), order)


def highest_first(qubits: tuple[int, ...], order: Order) -> tuple[int, ...]:
    """Return checked qubits so that the first is the most significant bit of an outcome.

    >>> highest_first((2, 0), "big"), highest_first((2, 0), "little")
    ((2, 0), (0, 2))
    """
    return qubits if checks.order(order) == "big" else qubits[::-1]


def _size(n: Any) -> int:
    try:
        return checks.integer(n, "n", minimum=0)
    except TypeError as error:
        raise TypeError(
            f"{error}: it counts the qubits, which begin as 0. Then run(circuit), set_state(amplitudes) or "
            'set_basis_state("01") makes another state'
        ) from None


def required_total(total: float, what: str) -> float:
    """Return what the probabilities add up to, unless nothing can be divided by it."""
    if not 0 < total < np.inf:
        raise ValueError(f"the probabilities add up to {total:g}: there is no normalised state to tell the {what} of")
    return total
