"""The density matrix of n qubits: gates, channels, and circuits with noise and outcomes in the middle."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Self

import numpy as np

from ..basics import arrays, checks
from ..basics.types import Order, Precision, Seed
from ..basics.words import bit_string, counted
from ..channels.channel import Channel
from ..circuit.circuit import Circuit
from ..core import extension
from ..instructions.checked import channel as on_qubits
from ..instructions.expand import basic
from ..instructions.flow import leaves
from ..instructions.gate_methods import GateMethods
from ..instructions.instruction import Instruction
from ..instructions.many_qubit_methods import ManyQubitMethods
from ..instructions.open_controls import ControlValues, checked_values
from ..machine import limits, memory
from ..programs.background import in_background
from ..programs.compile import described, require_circuit
from ..programs.drive import drive_whole
from ..programs.mixture import PreparedMixture, compiled_doubled
from ..programs.prepare import prepared
from ..programs.progress import Meter, ProgressLike
from ..programs.progress import checked as checked_progress
from ..programs.segments import Measurement
from ..views import html
from .apply import UnsupportedInstruction
from .base import Qubits, StateBase, highest_first
from .copies import Copies
from .density import DensityBase
from .density_files import DensityFiles
from .density_readout import DensityReadout
from .density_values import DensityValues
from .mixing import Mixing

# Of a matrix that is given: how far from Hermitian, from trace 1, and below 0 an eigenvalue.
_TOLERANCE = 1e-5
# Rows of a matrix that are looked at or copied at a time hold so many entries.
_PIECE = 2**20
# Showing a matrix in a notebook should not take longer than making it.
_LARGEST_SHOWN = 12


class DensityMatrix(GateMethods, ManyQubitMethods, DensityReadout, DensityValues, Copies, DensityFiles):
    """A mixed state of `n` qubits as a matrix of 2**n x 2**n entries, in the basis state 0 at first.

    What noise does to it is exact. It takes the memory of a `StateVector` of twice as many qubits.

    Parameters
    ----------
    n, precision, threads, seed
        As for `StateVector`.

    Raises
    ------
    TypeError, ValueError
        If an argument is of the wrong kind or outside its range.
    MemoryError
        If the matrix does not fit. Found out before anything is allocated; the message tells what would fit.

    Notes
    -----
    Entry (i, j) of `array` is <i|rho|j>, and qubit q is bit q of i and of j. Outcomes, bit strings and ``order`` are as
    for `StateVector`. Every gate and channel acts at once, in place, and returns the object. The same bits on any
    number of threads.

    Examples
    --------
    >>> rho = DensityMatrix(2).h(0).cx(0, 1).channel(Channel.depolarizing(0.1, qubits=2), [0, 1])
    >>> [round(p, 6) for p in rho.distribution().tolist()], round(rho.purity(), 6)
    ([0.475, 0.025, 0.025, 0.475], 0.8575)
    >>> round(rho.expectation("X0 X1"), 6)
    0.9
    """

    # Making one of something else

    @classmethod
    def from_statevector(cls, state: StateBase, threads: int | None = None, seed: Seed | None = None) -> Self:
        """Return ``|psi><psi|`` of a state, in its precision.

        Parameters
        ----------
        state : StateVector
        threads, seed
            As for `StateVector`.

        Raises
        ------
        TypeError
            If `state` is no StateVector.
        MemoryError
            If the matrix does not fit.

        Examples
        --------
        >>> DensityMatrix.from_statevector(StateVector(1).h(0)).array.real.round(6).tolist()
        [[0.5, 0.5], [0.5, 0.5]]
        """
        if not isinstance(state, StateBase) or isinstance(state, DensityBase):
            raise TypeError(f"state must be a StateVector, got {checks.show(state)}; from_array takes arrays")
        count, number = limits.thread_count(threads), checks.seed(seed)
        psi = state._live().view()
        made = cls._another(state.n_qubits, state.precision, count)
        made._fill_pure(psi)
        if number is not None:
            extension.set_seed(made._live(), number)
        return made

    @classmethod
    def from_array(
        cls,
        matrix: Any,
        order: Order = "little",
        precision: Precision = "double",
        threads: int | None = None,
        seed: Seed | None = None,
    ) -> Self:
        """Return a density matrix with these entries.

        Parameters
        ----------
        matrix : array_like, shape (2**n, 2**n)
            Entry (i, j) is <i|rho|j>; as for `set_state`.
        order, precision, threads, seed
            As for `set_state` and `StateVector`.

        Raises
        ------
        TypeError, ValueError, MemoryError
            As for `set_state`.

        Examples
        --------
        >>> DensityMatrix.from_array([[0.75, 0], [0, 0.25]]).entropy().__round__(6)
        0.811278
        """
        shape = _shape(matrix, "matrix")
        if len(shape) != 2 or shape[0] != shape[1] or shape[0] == 0 or shape[0] & (shape[0] - 1):
            cure = "; DensityMatrix(n).set_state takes amplitudes, too" if len(shape) == 1 else ""
            raise ValueError(f"matrix must have the shape (2**n, 2**n), got shape {shape}{cure}")
        n = int(shape[0]).bit_length() - 1
        return cls(n, precision, threads, seed).set_state(matrix, order)

    def set_state(self, array: Any, order: Order = "little") -> Self:
        """Set all entries.

        Parameters
        ----------
        array : array_like, shape (2**n, 2**n) or (2**n,)
            A density matrix, of any number type: Hermitian, of trace 1 and without negative eigenvalues, each within
            1e-5. Or amplitudes of norm 1 of a pure state.
        order : {"little", "big"}
            Whether qubit 0 is the lowest bit of a row's and a column's number, as in `array`, or the highest.

        Raises
        ------
        TypeError, ValueError
            If the array is none of these.
        MemoryError
            If the copies that are looked at do not fit.

        Examples
        --------
        >>> DensityMatrix(1).set_state([[0.5, -0.5j], [0.5j, 0.5]]).bloch_vector(0).tolist()
        [0.0, 1.0, 0.0]
        >>> DensityMatrix(2).set_state([0, 1, 0, 0]).distribution_dict()
        {'10': 1.0}
        """
        n, is_big = self._n_qubits, checks.order(order) == "big"
        self._live()
        if len(_shape(array, "array")) == 1:
            psi = arrays.amplitudes(array, n, "array")
            self._fill_pure(psi[_reversed(n)] if is_big else psi)
            return self
        size = 2**n
        memory.require_bytes(64 * size * size, f"a look at a density matrix of {n} qubits")
        given = checks.matrix(array, n, "array", unitary=False)
        _require_density(given)
        target, places, at_once = self.array, _reversed(n), max(1, _PIECE // size)
        for start in range(0, size, at_once):
            rows = slice(start, start + at_once)
            target[rows] = given[places[rows]][:, places] if is_big else given[rows]
        return self

    def set_basis_state(self, state: int | str, order: Order = "big") -> Self:
        """Set every qubit to a state of its own, 0, 1, + or -.

        Parameters, errors
            As for `StateVector.set_basis_state`.

        Examples
        --------
        >>> DensityMatrix(3).set_basis_state("1+0").distribution_dict().keys()
        dict_keys(['100', '110'])
        """
        core, is_big = self._live(), checks.order(order) == "big"
        text = arrays.product(state, self._n_qubits, "state")
        # The core's first character belongs to the highest qubit: those of the bra stand before those of the ket.
        core.reset_to_str((text[::-1] if is_big else text) * 2)
        return self

    def reset(self) -> Self:
        """Set all qubits to 0; `reset_qubits` does it with some.

        Examples
        --------
        >>> DensityMatrix(2).h(0).reset().distribution_dict()
        {'00': 1.0}
        """
        self._live().reset()
        return self

    def _fill_pure(self, psi: np.ndarray) -> None:
        size = 2**self._n_qubits
        rows = self._live().view().reshape(size, size)  # of the bra
        ket: np.ndarray = psi.astype(self._amplitude_type)
        bra = ket.conj()
        at_once = max(1, _PIECE // size)
        for start in range(0, size, at_once):
            np.multiply(bra[start : start + at_once, np.newaxis], ket, out=rows[start : start + at_once])

    # Gates: every method of GateMethods ends in `_add`

    def _add(
        self,
        name: str,
        qubits: tuple[int, ...],
        params: tuple[Any, ...] = (),
        controls: tuple[int, ...] = (),
        clbits: tuple[int, ...] = (),  # circuits have them, gates never do
    ) -> Self:
        return self._add_any(name, qubits, params, controls)

    def _add_any(
        self, name: str, qubits: tuple[int, ...], params: tuple[Any, ...] = (), controls: tuple[int, ...] = ()
    ) -> Self:
        step = Instruction(name, qubits, params, controls)
        return self._act(list(basic(step, in_programs=True)))

    def _act(self, steps: Sequence[Instruction]) -> Self:
        core = self._live()
        drive_whole(core, compiled_doubled(steps, self._n_qubits, self._precision, Circuit(0)))
        return self

    def matrix(
        self,
        matrix: Any,
        qubits: Qubits,
        controls: Qubits = (),
        control_values: ControlValues = None,
        *,
        order: Order = "big",
        check: bool = True,
    ) -> Self:
        """Apply the matrix U of a gate on k qubits: rho becomes U rho U†.

        Parameters, errors
            As for `StateVector.matrix`. With ``check=False`` U may be one operator of a channel: the trace is then that
            operator's probability. `channel` applies all of them.

        Examples
        --------
        >>> DensityMatrix(2).matrix([[0, 1], [1, 0]], 1).distribution_dict()
        {'01': 1.0}
        """
        self._live()
        targets = checks.qubits(qubits, self._n_qubits)
        all_controls = checks.controls(controls, targets, self._n_qubits)
        values = checked_values(control_values, len(all_controls))
        entries = checks.matrix(matrix, len(targets), unitary=checks.flag(check, "check"))
        step = Instruction(
            "matrix", highest_first(targets, order), checks.plain_entries(entries), all_controls, control_values=values
        )
        return self._act(list(basic(step, in_programs=True)))

    def channel(self, channel: Channel, qubits: Qubits) -> Self:
        """Apply noise to qubits.

        Parameters
        ----------
        channel : Channel
        qubits : int or sequence of int
            As many as the channel acts on; the first is its qubit 0.

        Raises
        ------
        TypeError, IndexError, ValueError
            If `channel` is none, or the qubits do not fit it.

        Examples
        --------
        >>> DensityMatrix(1).x(0).channel(Channel.amplitude_damping(0.25), 0).distribution().round(6).tolist()
        [0.25, 0.75]
        """
        if not isinstance(channel, Channel):
            raise TypeError(
                f"channel must be a Channel, such as Channel.depolarizing(0.01), got {checks.show(channel)}"
            )
        self._live()
        return self._act([Instruction("channel", on_qubits(channel, qubits, self._n_qubits), detail=channel)])

    # Circuits

    def run(self, circuit: Circuit, progress: ProgressLike = None) -> Self:
        """Apply a circuit to the present matrix: gates, channels, measurements, resets, conditions, decisions, loops.

        The matrix is afterwards the mean over all outcomes, each with its probability: a measurement leaves the matrix
        without what joins different outcomes. Where a condition reads an outcome, every outcome goes on by itself,
        exactly, and those that come to agree in all bits that are still read grow together again.

        Parameters
        ----------
        circuit : Circuit
            On at most n qubits. `NoiseModel.apply` puts noise into one.
        progress : None, bool or callable
            As for `StateVector.run`.

        Raises
        ------
        TypeError
            If `circuit` is not a Circuit, or `progress` of the wrong kind.
        ValueError
            If it has more qubits than the matrix, parameters without values, numbers beyond the precision, or more than
            1024 outcomes that have to be followed at a time.
        UnsupportedInstruction
            If it saves something.
        MemoryError
            If the outcomes that are followed at a time do not fit.
        RuntimeError
            If a loop goes round more often than its ``max_iterations``.
        KeyboardInterrupt
            After Ctrl-C.

        Notes
        -----
        What can be refused is refused before the first gate. Where no outcome is read, a run that is stopped leaves basis
        state 0, as the entries between two gates may be those of no density matrix; otherwise the matrix is as it was.

        Examples
        --------
        >>> noisy = Circuit(2, 1).h(0).measure(0, 0)
        >>> with noisy.when(0, 1):
        ...     _ = noisy.x(1).channel(Channel.bit_flip(0.25), 1)
        >>> [round(p, 6) for p in DensityMatrix(2).run(noisy).distribution().tolist()]
        [0.5, 0.0, 0.125, 0.375]
        """
        require_circuit(circuit)
        checked_progress(progress)
        core, n = self._live(), self._n_qubits
        if circuit.n_qubits > n:
            raise ValueError(f"circuit must have at most {n} qubits, those of the density matrix, got {circuit!r}")
        for position, step in enumerate(circuit.instructions):
            if any(leaf.name == "save" for leaf in leaves([step])):
                raise UnsupportedInstruction(step, position, "a density matrix has no result to save into")

        def make() -> PreparedMixture:
            return PreparedMixture(circuit, n, (), self._precision, keeps_bits=False)

        with prepared(circuit, ("mixture", n, self._precision), make) as found:
            assert isinstance(found, PreparedMixture)
            with Meter(progress, sum(map(len, found.programs))) as meter:
                mixing = Mixing(found, meter, lambda step: described(step, circuit))
                parts = any(isinstance(step, Measurement) for step in found.segments.steps)
                rho = self.copy() if parts else self
                total = mixing.total(mixing.branches(rho))
                if total is not self:
                    extension.copy_amplitudes(total._live(), core.view(), False)
        return self

    # Notebooks

    def _repr_html_(self) -> str:
        """Return what the matrix is and, unless it is large, its most probable outcomes."""
        if self._core is None:
            return html.titled(repr(self), "")
        n = self._n_qubits
        title = (
            f"DensityMatrix: {counted(n, 'qubit')}, {self._precision} precision, {counted(self._threads, 'thread')}, "
            f"{memory.human(self._live().view().nbytes)}, purity {self.purity():.4f}"
        )
        if n > _LARGEST_SHOWN:
            return html.titled(title, "")
        shares = self.distribution()
        best = np.argsort(-shares.round(12), kind="stable")[: html.ROWS].tolist()
        rows = [(html.code(bit_string(i, n)), html.bar(float(max(shares[i], 0.0)))) for i in best if shares[i] > 1e-12]
        rest = max(0.0, float(shares.sum()) - sum(float(shares[i]) for i in best))
        if rest > 1e-12:
            rows.append(("others", html.bar(rest)))
        return html.titled(title, html.table(("qubit 0 leftmost", "probability"), rows))


def _require_density(given: np.ndarray) -> None:
    """Refuse a matrix of finite numbers that is no density matrix."""
    size, deviation = len(given), 0.0
    at_once = max(1, _PIECE // size)
    for start in range(0, size, at_once):
        piece = given[start : start + at_once] - given[:, start : start + at_once].conj().T
        deviation = max(deviation, float(np.abs(piece).max()))
    if deviation > _TOLERANCE:
        raise ValueError(f"array must be Hermitian, got one with an entry that is {deviation:.3g} off its mirror image")
    trace = float(given.trace().real)
    if not abs(trace - 1) <= _TOLERANCE:
        raise ValueError(f"array must have trace 1, got one of trace {trace:.6g}")
    shifted = given.copy()
    shifted[np.diag_indices(size)] += _TOLERANCE
    try:
        # It exists for what has no eigenvalue below 0.
        in_background(lambda: np.linalg.cholesky(shifted))
    except np.linalg.LinAlgError:
        raise ValueError(
            f"array must have no negative eigenvalue, got one below -{_TOLERANCE:g}: no probabilities would come of it"
        ) from None


def _shape(value: Any, name: str) -> tuple[int, ...]:
    try:
        return np.shape(value)
    except ValueError:  # rows of different lengths
        raise ValueError(f"{name} must be an array with rows of one length, got {checks.show(value)}") from None


def _reversed(n: int) -> np.ndarray:
    """Return the numbers below 2**n with their bits in the other order."""
    numbers = np.zeros(1, dtype=np.int64)
    for _ in range(n):
        numbers = np.concatenate([2 * numbers, 2 * numbers + 1])
    return numbers
