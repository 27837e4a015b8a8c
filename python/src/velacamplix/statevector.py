"""The state of n qubits: gates, circuits, probabilities, and the amplitudes themselves."""

from __future__ import annotations

from typing import Any, Iterable, Optional, Sequence, Tuple, Union

import numpy as np

from . import _check, _check_data, _check_readout, _core, _machine, _memory, _notebook, _run
from ._circuit_gates import GateMethods
from ._copies import Copies
from ._expectations import Expectations
from ._loading import Loading
from ._matrices import MatrixGates
from ._progress import ProgressLike
from ._readout import Readout
from ._sampling import Sampling
from ._state_part import bit_string
from .circuit import Circuit

_CORE_TYPES = {
    "single": (_core.StateVectorSingle, np.complex64),
    "double": (_core.StateVectorDouble, np.complex128),
}


class StateVector(GateMethods, MatrixGates, Readout, Sampling, Expectations, Loading, Copies):
    """A pure state of `n` qubits as 2**n amplitudes, in the basis state 0 at first.

    Parameters
    ----------
    n : int
        Number of qubits. It does not change during the object's life.
    precision : {"double", "single"}
        16 or 8 bytes per amplitude. All arithmetic runs in this precision.
    threads : int, optional
        Number of threads for every operation; what is too small to be worth sharing, states below 256 KiB among it,
        runs on one whatever this says. By default the environment variable VELACAMPLIX_NUM_THREADS decides, then
        OMP_NUM_THREADS, then the processors this process may use (its affinity, or a container's quota).
    seed : int, optional
        Of 32 bits, where the random numbers of `sample`, `measure` and `estimate` start. By default it is drawn by
        chance.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range.
    MemoryError
        If the state does not fit. Found out before anything is allocated; the message tells what would fit.

    Notes
    -----
    Qubit order: qubit q is bit q (weight 2**q) of an index into `array`. Wherever a bit string or an outcome number
    enters or leaves, ``order`` tells how it is read: ``"big"`` (the default) has qubit 0, or the first listed qubit,
    leftmost and most significant; ``"little"`` has it rightmost and least significant.

    Every gate acts at once, in place, and returns the object, so that calls can be chained. Other Python threads run while one
    computes; two threads that use the same object take turns. In ``with StateVector(n) as state:`` the memory is
    released at the end.

    Examples
    --------
    >>> state = StateVector(2)
    >>> state.h(0).cnot(0, 1)                                   # doctest: +ELLIPSIS
    StateVector(n=2, precision='double', threads=...)
    >>> [round(float(p), 6) for p in state.distribution()]      # 00, 01, 10, 11
    [0.5, 0.0, 0.0, 0.5]
    >>> round(state.probability("11"), 6)
    0.5
    """

    def __init__(
        self, n: int, precision: str = "double", threads: Optional[int] = None, seed: Optional[int] = None
    ) -> None:
        self._start(
            _check.integer(n, "n", minimum=0), _check.precision(precision), _thread_count(threads), _check_readout.seed(seed)
        )

    def _start(self, n: int, precision: str, threads: int, seed: Optional[int] = None) -> None:
        self._n_qubits, self._precision, self._threads = n, precision, threads
        _memory.require_state(self._n_qubits, self._precision)
        core_type, self._amplitude_type = _CORE_TYPES[self._precision]
        try:
            self._core: Any = core_type(self._n_qubits)
        except MemoryError:
            # Someone else took the memory since we looked.
            _memory.require_state(self._n_qubits, self._precision)
            raise MemoryError(
                f"the system has no memory for n={self._n_qubits} qubits in {self._precision} precision"
            ) from None
        self._core.set_num_threads(self._threads)
        if seed is not None:
            _core.set_seed(self._core, seed)
        self._core.reset()

    # What the object is

    @property
    def n_qubits(self) -> int:
        """Number of qubits."""
        return self._n_qubits

    @property
    def precision(self) -> str:
        """``"double"`` or ``"single"``."""
        return self._precision

    @property
    def threads(self) -> int:
        """Number of threads that work on every operation; may be set at any time."""
        return self._threads

    @threads.setter
    def threads(self, threads: Optional[int]) -> None:
        count = _thread_count(threads)
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

    def __repr__(self) -> str:
        if self._core is None:
            return f"StateVector(n={self._n_qubits}, precision={self._precision!r}, released)"
        return f"StateVector(n={self._n_qubits}, precision={self._precision!r}, threads={self._threads})"

    def _repr_html_(self) -> str:
        return _notebook.of_state(self)

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

    # Setting the state

    def reset(
        self, state: Union[None, int, str, Sequence[complex], np.ndarray] = None, order: str = "big"
    ) -> StateVector:
        """Set the whole state.

        Parameters
        ----------
        state : None, str, int or array_like of shape (2**n,)
            Nothing: the basis state 0. A text of n characters ``0 1 + -``: a product state, one character per
            qubit. A number from 0 to 2**n - 1: that basis state. An array: these amplitudes, of norm 1.
        order : {"big", "little"}
            Whether the text's first character, the number's highest bit or the array's highest index bit belongs to
            qubit 0 ("big") or to qubit n - 1 ("little", the order of `array`).

        Raises
        ------
        TypeError, ValueError
            If `state` is none of these, has the wrong length or characters, or is not finite and of norm 1.

        Examples
        --------
        >>> state = StateVector(3)
        >>> state.reset("1+0").probability("100")                # doctest: +ELLIPSIS
        0.49999999999999...
        >>> state.reset(4).probability("100")
        1.0
        """
        core, order = self._live(), _check.order(order)
        if state is None:
            core.reset()
        elif isinstance(state, str):
            core.reset_to_str(self._product(state, order))
        elif isinstance(state, Iterable):
            self._reset_from(_check_data.amplitudes(state, self._n_qubits, "state"), order)
        else:
            index = _check.integer(state, "state", minimum=0, maximum=2**self._n_qubits - 1)
            core.reset_to_str(self._product(bit_string(index, self._n_qubits), order))
        return self

    def _product(self, text: str, order: str) -> str:
        text = _check.plain(text)
        if len(text) != self._n_qubits:
            raise ValueError(
                f"state must have one character per qubit, {self._n_qubits} in all, got {_check.show(text)}"
            )
        for position, character in enumerate(text):
            if character not in "01+-":
                raise ValueError(
                    f"state must hold only the characters 0 1 + -, got {character!r} at position {position} "
                    f"of {_check.show(text)}"
                )
        # The core's first character belongs to qubit n - 1.
        return text[::-1] if order == "big" else text

    def _reset_from(self, amplitudes: np.ndarray, order: str) -> None:
        core = self._live()
        # The core reads its source while it writes the state, and takes its own type only.
        of_its_own = not np.may_share_memory(amplitudes, core.view())
        if not (of_its_own and amplitudes.dtype == self._amplitude_type and amplitudes.flags.c_contiguous):
            size = amplitudes.size * np.dtype(self._amplitude_type).itemsize
            _memory.require_bytes(size, f"a copy of the amplitudes of {self._n_qubits} qubits")
            amplitudes = np.array(amplitudes, dtype=self._amplitude_type, order="C")
        core.reset_from(amplitudes, order == "big")

    # Gates: every method of GateMethods ends in `_add`

    def _add(
        self,
        name: str,
        qubits: Tuple[int, ...],
        params: Tuple[complex, ...] = (),
        controls: Tuple[int, ...] = (),
        clbits: Tuple[int, ...] = (),  # circuits have them, gates never do
    ) -> StateVector:
        _run.apply(self._live(), self._precision, name, qubits, params, controls)
        return self

    def run(self, circuit: Circuit, progress: ProgressLike = None, fusion: bool = False) -> StateVector:
        """Apply the gates of a circuit to the present state, in order.

        Parameters
        ----------
        circuit : Circuit
            On at most n qubits. Measurements at its end change nothing here; read their outcomes' probabilities from
            `distribution`, or let `velacamplix.run` draw shots.
        progress : None, bool or callable
            True shows a bar on standard error once a second has passed. A function is called with a `Progress`, at
            most every 50 ms, and once at the end. It must not use this object; what it returns is ignored.
        fusion : bool
            Whether neighbouring gates may be multiplied together and commuting ones exchanged: faster, and equal up to
            rounding. The bits then follow from the circuit, the state's number of qubits and the precision; neither the
            number of threads nor the processor's caches change them.

        Raises
        ------
        TypeError
            If `circuit` is not a Circuit, or `progress` or `fusion` of the wrong kind.
        ValueError
            If it has more qubits than the state, parameters without values, or numbers beyond the precision.
        UnsupportedInstruction
            If it holds a reset, a condition, or a measurement that is followed by a gate on the same qubit.
        KeyboardInterrupt
            After Ctrl-C.

        Notes
        -----
        What can be refused is refused before the first gate; the state is then unchanged. Ctrl-C and exceptions from
        `progress` stop the run between two passes over the state: then the first gates have acted and the others have
        not, and the exception's attribute ``gates_applied`` tells how many have. To stop early on purpose, raise an
        exception of your own.

        Examples
        --------
        >>> from velacamplix import Circuit, StateVector
        >>> state = StateVector(2).run(Circuit(2).h(0).cnot(0, 1), progress=lambda p: print(p.done, "of", p.total))
        2 of 2
        >>> state.probability("11")                              # doctest: +ELLIPSIS
        0.49999999999999...
        """
        _run.run(self._live(), self._n_qubits, self._precision, circuit, progress, fusion)
        return self

    def _live(self) -> Any:
        if self._core is None:
            raise RuntimeError("this StateVector has been released; make a new one")
        return self._core


def _thread_count(threads: Optional[int]) -> int:
    return _machine.thread_count(threads)
