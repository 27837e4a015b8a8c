"""The state of n qubits: gates, circuits, probabilities, and the amplitudes themselves."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any

import numpy as np

from ..basics import amplitude_order, arrays, checks, future
from ..basics.types import Order, Precision, Seed
from ..basics.words import counted
from ..circuit.circuit import Circuit
from ..instructions.gate_methods import GateMethods
from ..instructions.instruction import Instruction
from ..instructions.many_qubit_methods import ManyQubitMethods
from ..machine import memory
from ..programs.progress import ProgressLike
from ..views import html
from . import apply
from .copies import Copies
from .expectations import Expectations
from .exports import Exports
from .files import Files
from .loading import Loading
from .matrices import MatrixGates
from .outcomes import most_probable
from .overlaps import Overlaps
from .parts import Parts
from .readout import Readout
from .sampling import Sampling

# Showing a state in a notebook should not take longer than making it; above this only its size is told.
_LARGEST_SHOWN = 18

class StateVector(
    GateMethods, ManyQubitMethods, MatrixGates, Readout, Sampling, Expectations, Overlaps, Parts, Loading, Exports, Copies,
    Files,
):
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
    seed : int, numpy.random.Generator or numpy.random.SeedSequence, optional
        Where the random numbers of `sample`, `measure` and `estimate` start. An integer has 32 bits, from 0 to
        2**32 - 1. Of a Generator the next number of 32 bits is taken, so that each call has another seed; of a
        SeedSequence, which takes integers of any size, the first number of its state, the same each time. By default
        it is drawn by chance.

    storage : str, os.PathLike or Storage, optional
        A file to keep the amplitudes in instead of memory. Circuits are carried out stage by stage, as by
        ``run(..., storage=)``, with equal results; what would write single amplitudes is refused. See
        `docs/out-of-core.md`.

    Attributes
    ----------
    storage : StoragePlan or None
        Of a state in a file: what it and the circuits so far have taken.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range.
    FileExistsError, OSError
        If the file of `storage` is there already, or the disk has not the room.
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

    #: What a state in a file has taken, None of one in memory.
    storage: Any = None

    def __init__(
        self,
        n: int,
        precision: Precision = "double",
        threads: int | None = None,
        seed: Seed | None = None,
        storage: Any = None,
    ) -> None:
        if storage is None:
            super().__init__(n, precision, threads, seed)
            return
        from ..storage.state import begin  # a room above

        begin(self, n, precision, threads, seed, storage)

    def _repr_html_(self) -> str:
        return self._html()

    def _html(self, order: str = "qubit 0 leftmost") -> str:
        """Return what the state is and, unless it is large, its largest amplitudes; `order` tells the qubits."""
        if self._core is None:
            return html.titled(repr(self), "")
        array = self.array
        n = self._n_qubits
        title = (
            f"StateVector: {counted(n, 'qubit')}, {self._precision} precision, {counted(self._threads, 'thread')}, "
            f"{memory.human(array.nbytes)}"
        )
        if n > _LARGEST_SHOWN:
            return html.titled(title, "")
        best = most_probable(self, html.ROWS + 1, range(n))
        rows = []
        for outcome, probability in best[: html.ROWS]:
            # Qubit q is bit q of the index; texts have qubit 0 leftmost.
            amplitude = array[int(outcome[::-1] or "0", 2)]
            written = f"{amplitude.real:.4f}{amplitude.imag:+.4f}j"
            rows.append((html.code(outcome), written, html.bar(float(probability))))
        if len(best) > html.ROWS:
            rows.append(("others", "", html.bar(max(0.0, 1.0 - sum(float(p) for _, p in best[: html.ROWS])))))
        return html.titled(title, html.table((order, "amplitude", "probability"), rows))

    # Setting the state

    def reset(self, state: Any = None, order: Order | None = None) -> StateVector:
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
            future.warn(
                'StateVector.reset takes no arguments from version 0.3 on; write set_state(array, order="little"), or '
                'order="big" if qubit 0 is the highest bit of the index'
            )
            return self.set_state(state, order)  # type: ignore[arg-type]  # checked there
        future.warn(
            "StateVector.reset takes no arguments from version 0.3 on; write set_basis_state(...). It sets all qubits: one "
            "alone is reset by if state.measure(qubit, collapse=True): state.x(qubit)"
        )
        return self.set_basis_state(0 if state is None else state, "big" if order is None else order)

    def set_basis_state(self, state: int | str, order: Order = "big") -> StateVector:
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
        core, highest_first = self._live(), checks.order(order) == "big"
        text = arrays.product(state, self._n_qubits, "state")
        # The core's first character belongs to qubit n - 1.
        core.reset_to_str(text[::-1] if highest_first else text)
        return self

    def set_state(self, array: Sequence[complex] | np.ndarray, order: Order | None = None) -> StateVector:
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
        amplitudes = arrays.amplitudes(array, self._n_qubits, "array")
        self._set_amplitudes(amplitudes, amplitude_order.of_amplitudes(amplitudes, order, "array"))
        return self

    # Gates: every method of GateMethods ends in `_add`

    def _add(
        self,
        name: str,
        qubits: tuple[int, ...],
        params: tuple[complex, ...] = (),
        controls: tuple[int, ...] = (),
        clbits: tuple[int, ...] = (),  # circuits have them, gates never do
    ) -> StateVector:
        core = self._core
        if core is None:
            core = self._live()
        if name == "matrix":
            apply.apply_matrix(core, self._precision, qubits, params, controls)
        else:
            core.apply(name, qubits, params, controls)
        return self

    def _add_any(
        self, name: str, qubits: tuple[int, ...], params: tuple[Any, ...] = (), controls: tuple[int, ...] = ()
    ) -> StateVector:
        self._live()  # the identity asks nobody else
        if not qubits:  # a phase of the whole state, which programs can be given
            return self.run(Circuit(self._n_qubits)._put(Instruction(name, qubits, params, controls)))
        return super()._add_any(name, qubits, params, controls)

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
            If it holds a reset, a condition, a decision, a loop, a save, or a measurement that is followed by a gate on the
            same qubit.
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
        apply.run(self._live(), self._n_qubits, self._precision, circuit, progress, fusion)
        return self
