"""What a circuit does besides gates: measure, reset, separate, decide."""

from __future__ import annotations

import warnings
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from itertools import chain, count
from typing import Any, Self

from ..basics import checks
from ..basics.words import bit_string, counted
from ..channels.channel import Channel
from ..instructions.checked import channel as on_qubits
from ..instructions.condition import AnyCondition, Bits, CompoundCondition, Condition, checked, in_order
from ..instructions.gate_base import REQUIRED
from ..instructions.instruction import Instruction, Register
from .record import Record


class StepMethods(Record):
    """Measure, reset, channel, barrier, and `when`."""

    def measure(self, qubits: int | Sequence[int], clbits: int | Sequence[int] = REQUIRED) -> Self:
        """Measure qubits in the Z basis, the i-th into the i-th classical bit; `measure_all` names no bits.

        Raises
        ------
        TypeError, IndexError
            If a number is no integer, or not in the circuit; a circuit without classical bits says how to get some.
        ValueError
            If a qubit or a bit is named twice, or the lists differ in length.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2, 2).measure([1, 0], [0, 1]))
        measure 1,0 -> 0,1
        """
        sources = checks.qubits(qubits, self._n_qubits)
        if clbits is REQUIRED:
            shown = checks.show(qubits)
            raise TypeError(
                f"clbits must say which classical bits the qubits are measured into: measure({shown}, {shown}) on a circuit "
                "with such bits, Circuit(n_qubits, n_clbits); or measure_all(), which measures every qubit into a bit of its own"
            )
        if not self._n_clbits:
            raise self._no_bits(clbits)
        targets = checks.indices(clbits, self._n_clbits, "clbits", at_least=1)
        if len(sources) != len(targets):
            raise ValueError(
                f"clbits must name one bit for each qubit, got {len(targets)} for {len(sources)}"
            )
        return self._add("measure", sources, clbits=targets)

    def measure_all(self) -> Self:
        """Measure qubit i into classical bit i, for all qubits.

        A circuit without classical bits gets a register ``c`` of `n_qubits` bits, under another name if that is taken.

        Raises
        ------
        ValueError
            If there are classical bits, but fewer than qubits.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> Circuit(2).h(0).measure_all()
        <Circuit: 2 qubits, 2 classical bits, 2 instructions>
        """
        if self._n_clbits == 0 and self._n_qubits:
            taken = {register.name for register in self._registers}
            words = chain(("c", "meas", "measured_bits"), (f"measured_bits_{number}" for number in count(2)))
            name = next(word for word in words if word not in taken)
            self._registers += (Register(name, "classical", 0, self._n_qubits),)
            self._n_clbits = self._n_qubits
        if self._n_clbits < self._n_qubits:
            raise ValueError(
                f"n_clbits must be at least n_qubits = {self._n_qubits} to measure all qubits, "
                f"got {self._n_clbits}"
            )
        return self.measure(range(self._n_qubits), range(self._n_qubits))

    def reset(self, qubits: int | Sequence[int]) -> Self:
        """Put qubits into state 0. Errors as for `x`.

        >>> from velacamplix import Circuit
        >>> print(Circuit(2).reset([0, 1]))
        reset 0,1
        """
        return self._add("reset", checks.qubits(qubits, self._n_qubits))

    def channel(self, channel: Channel, qubits: int | Sequence[int]) -> Self:
        """Add noise: the density matrix of these qubits becomes what the channel makes of it.

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
        >>> from velacamplix import Channel, Circuit
        >>> noisy = Circuit(2).h(0).cx(0, 1).channel(Channel.depolarizing(0.01, 2), [0, 1])
        >>> print(noisy)
        H 0
        CNOT 0,1
        channel depolarizing(0.01) 0,1
        """
        if not isinstance(channel, Channel):
            raise TypeError(f"channel must be a Channel, such as Channel.depolarizing(0.01), got {checks.show(channel)}")
        return self._put(Instruction("channel", on_qubits(channel, qubits, self._n_qubits), detail=channel))

    def barrier(self, *qubits: int | Sequence[int]) -> Self:
        """Mark a point that gates on `qubits` (all, if none is named) do not cross; they may come as one list.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `x`; ValueError also inside `when`.

        >>> from velacamplix import Circuit
        >>> print(Circuit(2).barrier())
        barrier 0,1
        >>> print(Circuit(3).barrier([0, 2]) == Circuit(3).barrier(0, 2))
        True
        """
        if self._condition is not None:
            raise ValueError("barrier takes no condition: call it outside of when()")
        named = checks.qubits(qubits[0] if len(qubits) == 1 else qubits, self._n_qubits, at_least=0)
        return self._add("barrier", named or tuple(range(self._n_qubits)))

    def bits(self, clbits: str | int | Sequence[int]) -> Bits:
        """Return classical bits to be compared: what `when`, `if_`, `while_` and `switch` decide by.

        Parameters
        ----------
        clbits : str, int or sequence of int
            Name of a classical register, a bit, or a list of distinct bits.

        Returns
        -------
        Bits
            Comparisons with ``== != < <= > >=`` give a `Condition`; one bit alone stands for "is 1". Conditions are joined
            by ``&`` (and), ``|`` (or), ``^`` (either) and ``~`` (not), and each comparison needs parentheses then. Numbers
            and texts are read as by `when`: of a list the first bit is the most significant, a register has its bit 0
            lowest; texts have one character per bit in the order listed.

        Raises
        ------
        KeyError, TypeError, IndexError, ValueError
            As for `when`.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> circuit = Circuit(2, 3)
        >>> c = circuit.bits("c")
        >>> print(c < 6, c[0] & ~c[2], (c == "011") | (c == 1), sep="; ")
        c[2, 1, 0] < 6; c[0] == 1 and c[2] == 0; c[0, 1, 2] == "011" or c[0, 1, 2] == "100"
        """
        return Bits(self._classical_bits(clbits), isinstance(clbits, str))

    @contextmanager
    def when(
        self, clbits: str | int | Sequence[int] | AnyCondition | Bits, value: int | str | None = None
    ) -> Iterator[Self]:
        """Let all instructions added inside act only if classical bits hold `value`.

        Each instruction asks again: one that measures into these bits decides about those behind it. `if_` asks once.

        Parameters
        ----------
        clbits : str, int, sequence of int, or condition
            Name of a classical register, a bit, or a list of distinct bits. Or, without a `value`, a condition as `bits`
            makes them.
        value : int or str, optional
            A text has one character 0 or 1 per bit, in the order listed; that of a register begins with its bit 0, as
            the keys of counts do. A number goes from 0 to ``2**k - 1`` for k bits: of a list the first bit is the most
            significant, as everywhere; a register's number has its bit 0 lowest, as OpenQASM reads it.

        Raises
        ------
        KeyError
            If there is no classical register of that name.
        TypeError, IndexError, ValueError
            If a bit or the value is of the wrong kind or out of range, or if
            the call stands inside another `when`.

        Warns
        -----
        FutureWarning
            In this version only, where a number for a list meant something else in 0.1, which took the first bit for
            the least significant. A text says it without a warning.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> circuit = Circuit(2, 1).h(0).measure(0, 0)
        >>> with circuit.when("c", 1):
        ...     _ = circuit.x(1)
        >>> print(circuit[-1])
        X 1 if c[0] == 1
        >>> circuit = Circuit(3, 2).measure([0, 1], [0, 1])
        >>> with circuit.when([0, 1], "10"):            # bit 0 is 1 and bit 1 is 0; when("c", 1) is the same
        ...     _ = circuit.x(2)
        >>> print(circuit[-1])
        X 2 if c[0, 1] == "10"
        """
        if self._condition is not None:
            raise ValueError("when() cannot stand inside another when(): join the bits in one call")
        self._condition = self._asked(clbits, value)
        try:
            yield self
        finally:
            self._condition = None

    def _asked(self, clbits: Any, value: int | str | None) -> AnyCondition:
        if isinstance(clbits, (Condition, CompoundCondition, Bits)):
            if value is not None:
                raise TypeError(f"value must be left out where a condition is given, got {checks.show(value)}")
            return self._condition_of(clbits)
        if value is None:
            raise TypeError(f"value must say what the bits hold, got clbits {checks.show(clbits)} alone")
        bits = self._classical_bits(clbits)
        held = _held(value, clbits, bits)
        return in_order(bits, int(held[::-1] or "0", 2))

    def _condition_of(self, value: Any) -> AnyCondition:
        """Return a checked condition, given as one, as one bit, or as a pair of bits and what they hold."""
        if isinstance(value, (Condition, CompoundCondition)):
            return checked(value, self._n_clbits)
        if isinstance(value, Bits):
            return checked(value.condition(), self._n_clbits)
        if isinstance(value, tuple) and len(value) == 2:
            return self.bits(value[0]) == value[1]
        raise TypeError(
            "condition must be one such as circuit.bits('c') == 1, or a pair of bits and their value such as ('c', 1), "
            f"got {checks.show(value)}"
        )

    def _classical_bits(self, clbits: str | int | Sequence[int]) -> tuple[int, ...]:
        if not isinstance(clbits, str):
            if not self._n_clbits:
                raise self._no_bits(clbits)
            return checks.indices(clbits, self._n_clbits, "clbits", at_least=1)
        clbits = checks.plain(clbits)
        for register in self._registers:
            if register.kind == "classical" and register.name == clbits:
                return tuple(register.bits)
        names = [register.name for register in self._registers if register.kind == "classical"]
        known = f"one of {checks.show(names)}" if names else "of which there is none"
        raise KeyError(f"clbits must name a classical register, {known}, got {checks.show(clbits)}")

    def _no_bits(self, clbits: object) -> IndexError:
        return IndexError(
            f"clbits must be classical bits of the circuit, got {checks.show(clbits)}, but it has none: write "
            f"Circuit({self._n_qubits}, {self._n_qubits}) for {counted(self._n_qubits, 'bit')}, or call measure_all(), "
            "which makes one for each qubit"
        )


def _held(value: int | str, clbits: str | int | Sequence[int], bits: tuple[int, ...]) -> str:
    """Return what each of the checked bits must be, as a text in their order."""
    if isinstance(value, str):
        if len(value) != len(bits) or value.strip("01"):
            raise ValueError(
                f"value must be a text of {len(bits)} characters 0 and 1, one per bit, got {checks.show(value)}"
            )
        return value
    number = checks.integer(value, "value", minimum=0, maximum=2 ** len(bits) - 1)
    first_highest = bit_string(number, len(bits))
    first_lowest = first_highest[::-1]
    if isinstance(clbits, str):
        return first_lowest
    if first_highest != first_lowest:
        warnings.warn(
            f"value {checks.show(number)} for a list of bits now has the first of them, bit {bits[0]}, as the most "
            "significant, which was the least significant in 0.1. Give it as a text, one character per bit in the "
            f"order listed: {checks.show(first_highest)} is what the number means now, {checks.show(first_lowest)} what "
            "it meant",
            FutureWarning,
            stacklevel=5,
        )
    return first_highest
