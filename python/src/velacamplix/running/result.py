"""What a run of a circuit gives back."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from functools import partial
from typing import Any

import numpy as np

from ..basics import checks, extras
from ..basics.elsewhere import Guiding
from ..basics.types import Order, Precision
from ..basics.words import bit_string, counted
from ..instructions.instruction import Register
from ..machine import memory
from ..machine.pickling import Packed
from ..observables.observable import ObservableLike
from ..results import shot_rows
from ..results.counts import Counts
from ..results.estimate import share_error
from ..results.plan import Plan, Timings
from ..states.base import Qubits, highest_first
from ..states.outcomes import best_of, most_probable
from ..states.statevector import StateVector
from ..storage.storage import StoragePlan
from ..views import html
from . import observing
from .answers import Answers
from .final import listened
from .saved import Saved
from .spread import spread, whole_state
from .stored import Stored

__all__ = ["Result"]


class Result(Answers, Stored, Guiding):
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
        The circuit's qubits that are not 0 throughout, in increasing order; the others take no memory during the run.
        Qubit q of `compact_state` is ``active_qubits[q]`` of the circuit.
    measured_bits : tuple of int
        Classical bits that the circuit measures into, in increasing order.
    expectation_values : float, complex, numpy.ndarray or None
        A number for one observable, an array for a list, None without observables.
    standard_errors : float, numpy.ndarray or None
        Of the expectation values of a run with noise, in the same shape: of means over shots their standard error, the
        standard deviation of the shots divided by the root of their number (less one in the variance), nan for one shot; 0
        if they are exact. None without noise or without observables.
    saved : Saved
        What `Circuit.save_state`, `save_probabilities` and `save_expectation` kept, by name.
    timings : Timings
    plan : Plan
    storage : StoragePlan or None
        What a run in a file took; None of a run in memory, and of a result from a file.

    Examples
    --------
    >>> from velacamplix import Circuit, run
    >>> result = run(Circuit(3, 2).h(0).cx(0, 2).measure([0, 2], [0, 1]), shots=1000, seed=7, observables=["Z0", "Z0 Z2"])
    >>> sorted(result.counts), result.counts.shots
    (['00', '11'], 1000)
    >>> result.expectation_values.round(6).tolist()
    [0.0, 1.0]
    >>> result.probability("11", qubits=[0, 2])                  # doctest: +ELLIPSIS
    0.49999999999999...
    >>> result.active_qubits, result.state.n_qubits, result.compact_state.n_qubits
    ((0, 2), 3, 2)
    """

    #: What a run in a file took, None of one in memory.
    storage: StoragePlan | None = None
    _whole: StateVector | None = None

    def __init__(
        self,
        *,
        n_qubits: int,
        n_clbits: int,
        registers: tuple[Register, ...],
        is_of_clbits: bool,
        n_shots: int | None,
        seed: int | None,
        precision: Precision,
        threads: int,
        active_qubits: tuple[int, ...],
        rows: np.ndarray | None,
        state: StateVector | Callable[[], StateVector] | None,
        measured: frozenset[int],
        measured_bits: tuple[int, ...],
        readings: dict[int, int],
        known_bits: int,
        expectation_values: Any,
        saved: Saved,
        timings: Timings,
        plan: Plan,
        standard_errors: Any = None,
    ) -> None:
        self.n_qubits, self.n_clbits = n_qubits, n_clbits
        self.n_shots, self.seed = n_shots, seed
        self.precision, self.threads = precision, threads
        self.active_qubits = active_qubits
        self.expectation_values, self.saved = expectation_values, saved
        self.standard_errors = standard_errors
        self.timings, self.plan = timings, plan
        # Of an exact run with noise and without shots: rows of outcomes, as those of shots, and their probabilities.
        self._exact: tuple[np.ndarray, np.ndarray] | None = None
        self.n_bits = n_clbits if is_of_clbits else n_qubits
        self._registers = [r for r in registers if r.kind == ("classical" if is_of_clbits else "quantum")]
        self._rows, self._state, self._measured = rows, state, measured
        self.measured_bits, self._readings, self._known_bits = measured_bits, readings, known_bits
        self._counts: Counts | None = None

    def __repr__(self) -> str:
        shots = "no shots" if self.n_shots is None else f"{self.n_shots} shots, seed {self.seed}"
        return f"<Result: {self.n_qubits} qubits ({len(self.active_qubits)} active), {shots}, {self.timings.total:.3g} s>"

    def _repr_html_(self) -> str:
        title = (
            f"Result: {counted(self.n_qubits, 'qubit')} ({len(self.active_qubits)} active), {self.plan}, "
            f"{self.timings.total:.3g} s"
        )
        parts = []
        if self.expectation_values is not None:
            values = np.atleast_1d(self.expectation_values).tolist()
            shown = [f"{value:.6g}" for value in values[: html.ROWS]] + ["…"] * (len(values) > html.ROWS)
            parts.append(html.line("expectation values: " + ", ".join(shown)))
        if self.n_shots is not None:
            parts.append(self.counts._repr_html_())
        elif self.has_state:
            active = self.active_qubits
            listed = ", ".join(map(str, active[: html.ROWS])) + (", …" if len(active) > html.ROWS else "")
            order = [] if len(active) == self.n_qubits else [f"qubits {listed}"]
            parts.append(self._final()._html(*order))
        return html.titled(title, "".join(parts))

    def __getstate__(self) -> dict[str, Any]:
        # The counts follow from the shots.
        rows = None if self._rows is None else Packed(self._rows.reshape(-1))
        return {**vars(self), "_rows": rows, "_counts": None}

    def __setstate__(self, state: dict[str, Any]) -> None:
        vars(self).update(state)
        if isinstance(self._rows, Packed):
            self._rows = self._rows.array.reshape(-1, shot_rows.words_for(self.n_bits))

    # Shots

    @property
    def counts(self) -> Counts:
        """How often each outcome came, as `Counts`. They do not change: `Counts.copy` gives some that do.

        A key has one character per classical bit, bit 0 leftmost, without spaces between registers; bits that no
        measurement wrote are 0. In a circuit that measures nothing it has one per qubit, qubit 0 leftmost.

        Raises
        ------
        RuntimeError
            If the run had no shots.
        MemoryError
            If the answer does not fit.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1), shots=100).counts
        {'010': 100}
        """
        if self._counts is None:
            self._counts = shot_rows.tally(self._drawn("counts"), self.n_bits)
        self._counts._is_fixed = True
        return self._counts

    @property
    def shots(self) -> np.ndarray:
        """The outcome of every shot, shape (n_shots,); the leftmost bit is the most significant.

        ``uint64``, or Python integers (``object``) if an outcome has more than 64 bits; not to be written to. The order
        tells nothing: shots are independent of each other.

        Raises
        ------
        RuntimeError
            If the run had no shots.
        MemoryError
            If the answer does not fit.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1), shots=4).shots
        array([2, 2, 2, 2], dtype=uint64)
        """
        shots = shot_rows.numbers(self._drawn("shots"))
        shots.flags.writeable = False  # what the counts are made of
        return shots

    @property
    def bits(self) -> np.ndarray:
        """The outcome of every shot bit by bit, ``uint8`` of shape (n_shots, n_bits), leftmost bit first.

        Raises
        ------
        RuntimeError
            If the run had no shots.
        MemoryError
            If the answer does not fit.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1), shots=2).bits.tolist()
        [[0, 1, 0], [0, 1, 0]]
        """
        return shot_rows.bits(self._drawn("bits"), self.n_bits)

    def outcomes(self, k: int = 10) -> list[tuple[str, float]]:
        """Return the k most likely outcomes, each with its share, the largest first.

        With shots the share is that of the shots; without, it is the exact probability, with noise too. Outcomes are those
        of the classical bits in `measured_bits`, or of all qubits if the circuit measures nothing; the lowest is leftmost.
        What rounding leaves of impossible outcomes is left out; of equally likely ones the lower numbers come first.

        Parameters
        ----------
        k : int
            How many, 1 or more.

        Raises
        ------
        TypeError, ValueError
            If `k` is no integer or below 1.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> [(outcome, round(share, 6)) for outcome, share in run(Circuit(3).h(0).cx(0, 2)).outcomes()]
        [('000', 0.5), ('101', 0.5)]
        >>> run(Circuit(2, 5).x(1).measure([0, 1], [3, 4]), shots=50).outcomes()
        [('01', 1.0)]
        """
        most = checks.integer(k, "k", minimum=1)
        if self._rows is not None:
            return [(outcome, times / len(self._rows)) for outcome, times in self._most_likely(most)]
        if self._exact is not None:
            rows, shares = self._exact
            best = best_of(shares, most, self.precision)
            bits = shot_rows.bits(rows[[place for place, _ in best]], self.n_bits)
            if self.measured_bits:
                bits = bits[:, self.measured_bits]
            return [("".join(map(str, row)), share) for row, (_, share) in zip(bits.tolist(), best)]
        # A qubit that was measured twice fills two places of an outcome, but is read once; one without gates is 0.
        places = {qubit: place for place, qubit in enumerate(self.active_qubits)}
        if self.measured_bits:
            sources = [self._readings.get(bit) for bit in self.measured_bits]
            known = [str(self._known_bits >> bit & 1) for bit in self.measured_bits]
        else:
            sources, known = list(range(self.n_qubits)), ["0"] * self.n_qubits
        read = [qubit for qubit in dict.fromkeys(sources) if qubit in places]
        column = {qubit: i for i, qubit in enumerate(read)}
        likely = most_probable(self._final(), most, [places[qubit] for qubit in read if qubit is not None])
        return [
            ("".join(text[column[q]] if q in column else bit for q, bit in zip(sources, known)), share)
            for text, share in likely
        ]

    def _most_likely(self, k: int) -> list[tuple[str, int]]:
        counts = self.counts
        if self.measured_bits and len(self.measured_bits) < self.n_bits:
            counts = counts.marginal(self.measured_bits)
        return counts.most_likely(k)

    def to_rows(self, k: int = 10) -> list[dict[str, Any]]:
        """Return the k most likely outcomes as a table: a dictionary of plain values for each row.

        Parameters
        ----------
        k : int
            How many, 1 or more.

        Returns
        -------
        list of dict
            ``outcome`` and ``probability``, as `outcomes` gives them; with shots also ``count`` and ``standard_error``,
            the binomial one of the probability, sqrt(p * (1 - p) / shots).

        Raises
        ------
        TypeError, ValueError
            If `k` is no integer or below 1.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(2).x(1)).to_rows()
        [{'outcome': '01', 'probability': 1.0}]
        >>> run(Circuit(2).x(1), shots=50).to_rows()
        [{'outcome': '01', 'count': 50, 'probability': 1.0, 'standard_error': 0.0}]
        """
        if self._rows is None:
            return [{"outcome": outcome, "probability": share} for outcome, share in self.outcomes(k)]
        shots = len(self._rows)
        return [
            {"outcome": outcome, "count": n, "probability": n / shots, "standard_error": share_error(n, shots)}
            for outcome, n in self._most_likely(checks.integer(k, "k", minimum=1))
        ]

    def to_frame(self, k: int = 10) -> Any:
        """Return the k most likely outcomes as a ``pandas.DataFrame`` with the columns of `to_rows`.

        Parameters
        ----------
        k : int
            How many, 1 or more; `Counts.to_frame` has all that came.

        Raises
        ------
        TypeError, ValueError
            If `k` is no integer or below 1.
        ImportError
            If pandas is not installed.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(2).x(1)).to_frame()
          outcome  probability
        0      01          1.0
        """
        pandas = extras.imported("pandas", "Result.to_frame")
        return pandas.DataFrame(self.to_rows(k))

    def to_dict(self, k: int = 10) -> dict[str, Any]:
        """Return the result as plain numbers, texts, lists and dicts, as JSON takes them.

        Parameters
        ----------
        k : int
            How many outcomes; with shots all that came are in ``"counts"``.

        Returns
        -------
        dict
            ``n_qubits``, ``active_qubits``, ``precision``, ``threads``, ``measured_bits``, ``outcomes`` (as `outcomes`
            gives them, by text), with shots ``n_shots``, ``seed`` and ``counts``, and if there were observables
            ``expectation_values``, complex ones as ``{"real": ..., "imag": ...}``; ``saved``, of what the circuit saves the
            numbers, and lists of probabilities, but no states; ``gates``, ``passes``, ``seconds``.

        Examples
        --------
        >>> import json
        >>> from velacamplix import Circuit, run
        >>> told = run(Circuit(2).x(1), shots=3, seed=1, observables="Z0").to_dict()
        >>> json.dumps([told["outcomes"], told["counts"], told["expectation_values"]])
        '[{"01": 1.0}, {"01": 3}, 1.0]'
        """
        answer: dict[str, Any] = {
            "n_qubits": self.n_qubits,
            "active_qubits": list(self.active_qubits),
            "precision": self.precision,
            "threads": self.threads,
            "measured_bits": list(self.measured_bits),
            "outcomes": dict(self.outcomes(k)),
            "gates": self.plan.gates,
            "passes": len(self.plan.passes),
            "seconds": self.timings.total,
        }
        if self._rows is not None:
            answer.update(n_shots=self.n_shots, seed=self.seed, counts=dict(self.counts))
        if self.expectation_values is not None:
            values = np.asarray(self.expectation_values).tolist()
            answer["expectation_values"] = [_number(v) for v in values] if isinstance(values, list) else _number(values)
        numbers = self.saved.numbers()
        if numbers:
            answer["saved"] = {
                name: value.tolist() if isinstance(value, np.ndarray) else _number(value) for name, value in numbers.items()
            }
        return answer

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
        raise KeyError(f"name must be that of a register in the outcomes, one of {names}, got {checks.show(name)}")

    def _drawn(self, what: str) -> np.ndarray:
        if self._rows is None:
            raise RuntimeError(f"there are no {what}: run was called without shots; give shots=N")
        return self._rows

    # State

    @property
    def state(self) -> StateVector:
        """The final state of all qubits, idle ones included.

        Measurements leave it as it is where nothing acts on their qubits and nothing asks for their bits afterwards.
        Where qubits are idle it is made when it is first asked for, and kept. Copy it before you change it: where none
        is idle, this result answers from it.

        Raises
        ------
        RuntimeError
            If there is none, because outcomes in the middle of the circuit differ from shot to shot; or if qubits are
            idle and there are more than 24 in all. The other methods and `compact_state` have no such limit.
        MemoryError
            If the state of all qubits does not fit.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(3).x(1)).state.to_dict()
        {'010': (1+0j)}
        """
        if self._whole is None:
            self._whole = self._expanded()
        return self._whole

    def _expanded(self) -> StateVector:
        cure = (
            "result.expectation, probability, distribution and amplitude answer in the circuit's qubits without it, "
            "and result.compact_state has the active ones alone: its qubit q is result.active_qubits[q]"
        )
        return whole_state(self.compact_state, self.active_qubits, self.n_qubits, cure)

    def expectation(self, observable: ObservableLike | Sequence[ObservableLike]) -> Any:
        """Return an exact expectation value, as `run` does for its ``observables``.

        Parameters
        ----------
        observable : Observable, str, dict, or a list of these
            On the circuit's qubits. The value is that after all instructions, measurements included: a term with X or Y
            on a qubit that is measured at the end counts 0, and a UserWarning says so.

        Returns
        -------
        float, complex or numpy.ndarray
            A number for one observable, an array for a list.

        Raises
        ------
        TypeError, ValueError
            If this is no observable, or one on more qubits.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).x(98)).expectation("2*Z98 + Z0")
        -1.0
        """
        state, observed = self._final(), observing.checked(observable, self.n_qubits, "observable")
        observed.warn(self.active_qubits, [self._measured], stacklevel=2)
        return observed.shaped(observing.values(state, observed.on(self.active_qubits, self._measured)))

    def variance(self, observable: ObservableLike | Sequence[ObservableLike]) -> Any:
        """Return the variance of what measurements of an observable give, <O^2> - <O>^2.

        Parameters
        ----------
        observable : Observable, str, dict, or a list of these
            As for `expectation`, with real coefficients.

        Returns
        -------
        float or numpy.ndarray
            A number for one observable, an array for a list.

        Raises
        ------
        TypeError, ValueError, MemoryError
            As for `StateVector.variance`.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).h(98)).variance(["2*Z98 + Z0", "X98"]).round(6).tolist()
        [4.0, 0.0]
        """
        state, observed = self._final(), observing.checked(observable, self.n_qubits, "observable")
        observed.warn(self.active_qubits, [self._measured], stacklevel=2)
        return observing.variances(state, observed, self.active_qubits, self._measured)

    def probability(self, outcome: int | str, qubits: Qubits | None = None, order: Order = "big") -> float:
        """Return the probability that the listed qubits of the final state read an outcome.

        Parameters
        ----------
        outcome : int or str
            A number from 0 to 2**k - 1 or a text of k characters 0 and 1, for k qubits.
        qubits : int or sequence of int, optional
            Distinct qubits of the circuit; all by default.
        order : {"big", "little"}
            Whether the first listed qubit is the leftmost, most significant bit of the outcome or the rightmost.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the outcome does not fit the qubits, or a qubit is no integer, outside the range, or named twice.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).x(1).x(98)).probability("011", qubits=[0, 98, 1])
        1.0
        """
        state, listed = self._final(), self._highest_first(qubits, order)
        number = checks.outcome(outcome, len(listed))
        bits = dict(zip(listed, bit_string(number, len(listed))))
        place = {qubit: place for place, qubit in enumerate(self.active_qubits)}
        if any(bit == "1" and qubit not in place for qubit, bit in bits.items()):
            return 0.0
        known = {place[qubit]: bit for qubit, bit in bits.items() if qubit in place}
        return listened(state, partial(state.probability, "".join(known.values()), list(known)))

    def distribution(self, qubits: Qubits | None = None, order: Order = "big") -> np.ndarray:
        """Return the probabilities of all outcomes of the listed qubits of the final state.

        Parameters
        ----------
        qubits : int or sequence of int, optional
            k distinct qubits of the circuit; all by default.
        order : {"big", "little"}
            Whether the first listed qubit is the most or the least significant bit of a position.

        Returns
        -------
        numpy.ndarray, shape (2**k,)
            ``float64``, as from `StateVector.distribution`.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, outside the range, or named twice.
        MemoryError
            If the result does not fit.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(100).h(98)).distribution([0, 98]).round(6).tolist()
        [0.5, 0.5, 0.0, 0.0]
        """
        state, listed = self._final(), self._highest_first(qubits, order)
        place = {qubit: place for place, qubit in enumerate(self.active_qubits)}
        active = [place[qubit] for qubit in listed if qubit in place]
        found = partial(listened, state, partial(state.distribution, active))
        if len(active) == len(listed):
            return found()
        memory.require_bytes((8 << len(listed)) + (8 << len(active)), f"the distribution of {len(listed)} qubits")
        whole: np.ndarray = np.zeros(2 ** len(listed))
        spread(found(), whole, listed, self.active_qubits)
        return whole

    def statevector(self, order: Order = "little") -> np.ndarray:
        """Return the 2**n amplitudes of the final state of all qubits, idle ones included, as a new array.

        Parameters
        ----------
        order : {"little", "big"}
            Whether qubit 0 is the least significant bit of a position, as in `StateVector.array`, or the most
            significant.

        Returns
        -------
        numpy.ndarray, shape (2**n_qubits,)
            ``complex128`` or ``complex64``, by the precision of the run.

        Raises
        ------
        TypeError, ValueError
            If `order` is neither.
        MemoryError
            If the array does not fit.
        RuntimeError
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> int(run(Circuit(4).x(2)).statevector().argmax())
        4
        """
        state, is_big = self._final(), checks.order(order) == "big"
        if len(self.active_qubits) == self.n_qubits:
            return state.statevector(order=order)
        dtype = state._live().view().dtype
        memory.require_bytes(dtype.itemsize << self.n_qubits, f"the amplitudes of {self.n_qubits} qubits")
        whole = np.zeros(2**self.n_qubits, dtype=dtype)
        compact = state.statevector(order="big") if is_big else state._live().view()
        qubits = range(self.n_qubits) if is_big else range(self.n_qubits - 1, -1, -1)
        spread(compact, whole, qubits, self.active_qubits)
        state._live().require_whole()
        return whole

    def _highest_first(self, qubits: Qubits | None, order: Order) -> tuple[int, ...]:
        all_qubits: Qubits = range(self.n_qubits)
        return highest_first(checks.qubits(all_qubits if qubits is None else qubits, self.n_qubits, at_least=0), order)

    def amplitude(self, outcome: int | str, order: Order = "big") -> complex:
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
            As for `compact_state`.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> result = run(Circuit(100).x(1).x(98))
        >>> result.amplitude("01" + 96 * "0" + "10"), result.amplitude(0)
        ((1+0j), 0j)
        """
        number = checks.outcome(outcome, self.n_qubits)
        last = self.n_qubits - 1 if checks.order(order) == "big" else 0
        bits = {qubit: number >> abs(last - qubit) & 1 for qubit in range(self.n_qubits)}
        state = self._final()
        index = sum(bits.pop(qubit) << place for place, qubit in enumerate(self.active_qubits))
        if any(bits.values()):
            return 0j
        amplitude = complex(state.array[index])
        state._live().require_whole()
        return amplitude


def _number(value: float | complex) -> Any:
    return {"real": value.real, "imag": value.imag} if isinstance(value, complex) else value
