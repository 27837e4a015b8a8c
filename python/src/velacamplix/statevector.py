"""The state of n qubits: gates, circuits, probabilities, and the amplitudes themselves."""

from __future__ import annotations

from typing import Any, Iterable, Optional, Sequence, Tuple, Union

import numpy as np

from . import _array_order, _check, _check_data, _check_readout, _core, _future, _machine, _memory, _notebook, _run
from ._circuit_gates import GateMethods
from ._copies import Copies
from ._expectations import Expectations
from ._loading import Loading
from ._matrices import MatrixGates
from ._progress import ProgressLike
from ._readout import Readout
from ._sampling import Sampling
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
        16 or 8 bytes per amplitude. All arithmetic on amplitudes runs in this precision; sine and cosine of angles that
        single precision cannot hold are formed in double and rounded.
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
    Qubit order: in an array of amplitudes qubit q is bit q (weight 2**q) of the index, as in `array`. Bit strings,
    outcome numbers, and arrays indexed by an outcome have qubit 0, or the first listed qubit, leftmost and most
    significant. ``order`` turns either: ``"big"`` has qubit 0 or the first listed one most significant, ``"little"``
    least significant.

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
        _memory.require_state(n, precision)
        core_type, amplitude_type = _CORE_TYPES[precision]
        try:
            core = core_type(n)
        except MemoryError:
            # Someone else took the memory since we looked.
            _memory.require_state(n, precision)
            raise MemoryError(f"the system has no memory for n={n} qubits in {precision} precision") from None
        core.set_num_threads(threads)
        if seed is not None:
            _core.set_seed(core, seed)
        core.reset()
        # An object that is set up again stays what it was until all has gone well.
        self._n_qubits, self._precision, self._threads, self._amplitude_type = n, precision, threads, amplitude_type
        self._core: Any = core

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

    def reset(self, state: Any = None, order: Optional[str] = None) -> StateVector:
        """Set all qubits to 0.

        Until version 0.3 it also takes what `set_basis_state` and `set_state` take, with a FutureWarning.

        Examples
        --------
        >>> StateVector(3).x(1).reset().to_dict()
        {'000': (1+0j)}
        """
        if state is None and order is None:
            self._live().reset()
            return self
        if isinstance(state, Iterable) and not isinstance(state, str):
            _future.warn(
                'StateVector.reset takes no arguments from version 0.3 on; write set_state(array, order="little"), or '
                'order="big" if qubit 0 is the highest bit of the index'
            )
            return self.set_state(state, order)  # type: ignore[arg-type]  # checked there
        _future.warn("StateVector.reset takes no arguments from version 0.3 on; write set_basis_state(...)")
        return self.set_basis_state(0 if state is None else state, "big" if order is None else order)

    def set_basis_state(self, state: Union[int, str], order: str = "big") -> StateVector:
        """Set every qubit to a state of its own, 0, 1, + or -.

        Parameters
        ----------
        state : int or str
            A number from 0 to 2**n - 1: that basis state. A text of n characters ``0 1 + -``: a product state, one
            character per qubit.
        order : {"big", "little"}
            Whether the number's highest bit or the text's first character belongs to qubit 0 ("big") or to qubit
            n - 1 ("little").

        Raises
        ------
        TypeError, ValueError
            If `state` is neither, or a number or text that does not fit the qubits.

        Examples
        --------
        >>> state = StateVector(3)
        >>> state.set_basis_state(4).to_dict(), state.set_basis_state("011").to_dict()
        ({'100': (1+0j)}, {'011': (1+0j)})
        >>> round(state.set_basis_state("1+0").probability("100"), 6)
        0.5
        """
        core, highest_first = self._live(), _check.order(order) == "big"
        text = _check_data.product(state, self._n_qubits, "state")
        # The core's first character belongs to qubit n - 1.
        core.reset_to_str(text[::-1] if highest_first else text)
        return self

    def set_state(self, array: Union[Sequence[complex], np.ndarray], order: Optional[str] = None) -> StateVector:
        """Set all amplitudes.

        Parameters
        ----------
        array : array_like, shape (2**n,)
            Amplitudes of norm 1, of any number type and memory layout.
        order : {"little", "big"}, optional
            Whether qubit 0 is the lowest bit of an index ("little", the default and the order of `array`) or the highest.
            Without it there is a FutureWarning, in this version only, where the two would be different states.

        Raises
        ------
        TypeError, ValueError
            If the array has the wrong kind or shape, or is not finite and of norm 1.
        MemoryError
            If it is of another type or layout than the state, and a copy does not fit.

        Examples
        --------
        >>> import numpy as np
        >>> state = StateVector(3).set_state(np.eye(8)[1], order="little")
        >>> state.to_dict()
        {'100': (1+0j)}
        >>> state.set_state(state.array).to_dict()
        {'100': (1+0j)}
        """
        amplitudes = _check_data.amplitudes(array, self._n_qubits, "array")
        self._set_amplitudes(amplitudes, _array_order.of_amplitudes(amplitudes, order, "array"))
        return self

    def _set_amplitudes(self, amplitudes: np.ndarray, order: str) -> None:
        core = self._live()
        # The core reads its source while it writes the state, and takes its own type only.
        of_its_own = not np.may_share_memory(amplitudes, core.view())
        plain = amplitudes.flags.c_contiguous and amplitudes.flags.aligned
        if not (of_its_own and plain and amplitudes.dtype == self._amplitude_type):
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
