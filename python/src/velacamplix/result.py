"""What a run of a circuit gives back."""

from __future__ import annotations

from typing import Any, Optional, Tuple, Union

import numpy as np

from . import _check, _check_readout, _notebook, _shots
from ._plan import Plan, Timings
from .counts import Counts
from .instruction import Register
from .statevector import StateVector

__all__ = ["Result"]


class Result:
    """What `velacamplix.run` returns. Made by it, not by hand.

    Attributes
    ----------
    n_qubits, n_clbits : int
        Of the circuit.
    n_shots : int or None
        None if no shots were asked for.
    n_bits : int
        Bits of an outcome: the classical bits, or the qubits of a circuit that measures nothing.
    seed : int or None
        Where the random numbers started; given again, it gives the same shots. None without shots.
    precision : str
    threads : int
    active_qubits : tuple of int
        The circuit's qubits that `state` has, in increasing order: qubit q of the state is ``active_qubits[q]`` of the
        circuit. All others are 0 throughout and take no memory.
    expectation_values : float, complex, numpy.ndarray or None
        A number for one observable, an array for a list, None without observables.
    timings : Timings
    plan : Plan

    Examples
    --------
    >>> from velacamplix import Circuit, run
    >>> result = run(Circuit(3, 2).h(0).cx(0, 2).measure([0, 2], [0, 1]), shots=1000, seed=7, observables=["Z0", "Z0 Z2"])
    >>> sorted(result.counts), result.counts.shots
    (['00', '11'], 1000)
    >>> result.expectation_values.round(6).tolist()
    [0.0, 1.0]
    >>> result.active_qubits, result.state.n_qubits
    ((0, 2), 2)
    """

    def __init__(
        self,
        *,
        n_qubits: int,
        n_clbits: int,
        registers: Tuple[Register, ...],
        is_of_clbits: bool,
        n_shots: Optional[int],
        seed: Optional[int],
        precision: str,
        threads: int,
        active_qubits: Tuple[int, ...],
        rows: Optional[np.ndarray],
        state: Optional[StateVector],
        expectation_values: Any,
        timings: Timings,
        plan: Plan,
    ) -> None:
        self.n_qubits, self.n_clbits = n_qubits, n_clbits
        self.n_shots, self.seed = n_shots, seed
        self.precision, self.threads = precision, threads
        self.active_qubits = active_qubits
        self.expectation_values = expectation_values
        self.timings, self.plan = timings, plan
        self.n_bits = n_clbits if is_of_clbits else n_qubits
        self._registers = [r for r in registers if r.kind == ("classical" if is_of_clbits else "quantum")]
        self._rows, self._state = rows, state
        self._counts: Optional[Counts] = None

    def __repr__(self) -> str:
        shots = "no shots" if self.n_shots is None else f"{self.n_shots} shots, seed {self.seed}"
        return f"<Result: {self.n_qubits} qubits ({len(self.active_qubits)} active), {shots}, {self.timings.total:.3g} s>"

    def _repr_html_(self) -> str:
        return _notebook.of_result(self)

    # Shots

    @property
    def counts(self) -> Counts:
        """How often each outcome came, as `Counts`.

        A key has one character per classical bit, bit 0 leftmost, without spaces between registers; bits that no
        measurement wrote are 0. In a circuit that measures nothing it has one per qubit, qubit 0 leftmost.

        Raises
        ------
        RuntimeError
            If the run had no shots.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1), shots=100).counts
        {'010': 100}
        """
        if self._counts is None:
            self._counts = Counts(_shots.tally(self._drawn("counts"), self.n_bits), self.n_bits)
        return self._counts

    @property
    def shots(self) -> np.ndarray:
        """The outcome of every shot, shape (n_shots,); the leftmost bit is the most significant.

        ``uint64``, or Python integers (``object``) if an outcome has more than 64 bits. The order tells nothing: shots
        are independent of each other.

        Raises
        ------
        RuntimeError
            If the run had no shots.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1), shots=4).shots
        array([2, 2, 2, 2], dtype=uint64)
        """
        return _shots.numbers(self._drawn("shots"))

    @property
    def bits(self) -> np.ndarray:
        """The outcome of every shot bit by bit, ``uint8`` of shape (n_shots, n_bits), leftmost bit first.

        Raises
        ------
        RuntimeError
            If the run had no shots.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1), shots=2).bits.tolist()
        [[0, 1, 0], [0, 1, 0]]
        """
        return _shots.bits(self._drawn("bits"), self.n_bits)

    def register_counts(self, name: str) -> Counts:
        """Return the counts of one register: a classical one, or a quantum one if the circuit measures nothing.

        Raises
        ------
        KeyError
            If there is no such register.
        RuntimeError
            If the run had no shots.

        Examples
        --------
        >>> from velacamplix import Circuit, Register, run
        >>> circuit = Circuit(2, registers=[Register("a", "quantum", 0, 1), Register("b", "quantum", 1, 1)]).x(1)
        >>> run(circuit, shots=10).register_counts("b")
        {'1': 10}
        """
        for register in self._registers:
            if register.name == name:
                return self.counts.marginal(list(register.bits))
        names = [register.name for register in self._registers]
        raise KeyError(f"name must be that of a register in the outcomes, one of {names}, got {_check.show(name)}")

    def _drawn(self, what: str) -> np.ndarray:
        if self._rows is None:
            raise RuntimeError(f"there are no {what}: run was called without shots; give shots=N")
        return self._rows

    # State

    @property
    def has_state(self) -> bool:
        """Whether there is one final state: outcomes in the middle of the circuit, if any, were certain."""
        return self._state is not None

    @property
    def state(self) -> StateVector:
        """The final state of the active qubits.

        Measurements leave it as it is where nothing acts on their qubits and nothing asks for their bits afterwards.

        Raises
        ------
        RuntimeError
            If there is none, because outcomes in the middle of the circuit differ from shot to shot.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> result = run(Circuit(40).h(20))
        >>> result.active_qubits, result.state.array.round(6).tolist()
        ((20,), [(0.707107+0j), (0.707107+0j)])
        """
        if self._state is None:
            raise RuntimeError(
                "there is no one final state: the circuit measures or resets qubits in its middle, and the state "
                "depends on the outcome, which differs from shot to shot"
            )
        return self._state

    def amplitude(self, outcome: Union[int, str], order: str = "big") -> complex:
        """Return one amplitude of the final state of all qubits, idle ones included.

        Parameters
        ----------
        outcome : int or str
            A number from 0 to 2**n_qubits - 1 or a text of 0 and 1, one character per qubit of the circuit.
        order : {"big", "little"}
            Whether qubit 0 is the leftmost, most significant bit or the rightmost.

        Raises
        ------
        TypeError, ValueError
            If the outcome does not fit the qubits.
        RuntimeError
            As for `state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> result = run(Circuit(100).x(1).x(98))
        >>> result.amplitude("01" + 96 * "0" + "10"), result.amplitude(0)
        ((1+0j), 0j)
        """
        number = _check_readout.outcome(outcome, self.n_qubits)
        last = self.n_qubits - 1 if _check.order(order) == "big" else 0
        bits = {qubit: number >> abs(last - qubit) & 1 for qubit in range(self.n_qubits)}
        state = self.state
        index = sum(bits.pop(qubit) << place for place, qubit in enumerate(self.active_qubits))
        return 0j if any(bits.values()) else complex(state.array[index])
