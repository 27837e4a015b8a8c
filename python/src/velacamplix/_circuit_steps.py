"""What a circuit does besides gates: measure, reset, separate, decide."""

from __future__ import annotations

from contextlib import contextmanager
from typing import Iterator, Optional, Sequence, Tuple, Union

from . import _check
from ._annotations import Self
from .instruction import Condition, Register


class StepMethods:
    """Checks arguments and hands instructions to `_add` of the class that inherits."""

    _n_qubits: int
    _n_clbits: int
    _registers: Tuple[Register, ...]
    _condition: Optional[Condition]

    def _add(
        self,
        name: str,
        qubits: Tuple[int, ...],
        params: Tuple[Union[float, complex], ...] = (),
        controls: Tuple[int, ...] = (),
        clbits: Tuple[int, ...] = (),
    ) -> Self:
        raise NotImplementedError

    def measure(
        self, qubits: Union[int, Sequence[int]], clbits: Union[int, Sequence[int]]
    ) -> Self:
        """Measure qubits in the Z basis, the i-th into the i-th classical bit.

        Raises
        ------
        TypeError, IndexError
            If a number is no integer, or not in the circuit.
        ValueError
            If a qubit or a bit is named twice, or the lists differ in length.

        Examples
        --------
        >>> from velacamplix.circuit import Circuit
        >>> print(Circuit(2, 2).measure([1, 0], [0, 1]))
        measure 1,0 -> 0,1
        """
        sources = _check.qubits(qubits, self._n_qubits)
        targets = _check.indices(clbits, self._n_clbits, "clbits", at_least=1)
        if len(sources) != len(targets):
            raise ValueError(
                f"clbits must name one bit for each qubit, got {len(targets)} for {len(sources)}"
            )
        return self._add("measure", sources, clbits=targets)

    def measure_all(self) -> Self:
        """Measure qubit i into classical bit i, for all qubits.

        A circuit without classical bits gets a register ``c`` of `n_qubits` bits.

        Raises
        ------
        ValueError
            If there are classical bits, but fewer than qubits.

        Examples
        --------
        >>> from velacamplix.circuit import Circuit
        >>> Circuit(2).h(0).measure_all()
        <Circuit: 2 qubits, 2 classical bits, 2 instructions>
        """
        if self._n_clbits == 0 and self._n_qubits:
            taken = {register.name for register in self._registers}
            name = next(word for word in ("c", "meas", "measured_bits") if word not in taken)
            self._registers += (Register(name, "classical", 0, self._n_qubits),)
            self._n_clbits = self._n_qubits
        if self._n_clbits < self._n_qubits:
            raise ValueError(
                f"n_clbits must be at least n_qubits = {self._n_qubits} to measure all qubits, "
                f"got {self._n_clbits}"
            )
        return self.measure(range(self._n_qubits), range(self._n_qubits))

    def reset(self, qubits: Union[int, Sequence[int]]) -> Self:
        """Put qubits into state 0. Errors as for `x`.

        >>> from velacamplix.circuit import Circuit
        >>> print(Circuit(2).reset([0, 1]))
        reset 0,1
        """
        return self._add("reset", _check.qubits(qubits, self._n_qubits))

    def barrier(self, *qubits: int) -> Self:
        """Mark a point that gates on `qubits` (all, if none is named) do not cross.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `x`; ValueError also inside `when`.

        >>> from velacamplix.circuit import Circuit
        >>> print(Circuit(2).barrier())
        barrier 0,1
        """
        if self._condition is not None:
            raise ValueError("barrier takes no condition: call it outside of when()")
        named = _check.qubits(qubits, self._n_qubits, at_least=0)
        return self._add("barrier", named or tuple(range(self._n_qubits)))

    @contextmanager
    def when(
        self, clbits: Union[str, int, Sequence[int]], value: int
    ) -> Iterator[Self]:
        """Let all instructions added inside act only if classical bits hold `value`.

        Parameters
        ----------
        clbits : str, int or sequence of int
            Name of a classical register, a bit, or bits from the lowest up.
        value : int
            From 0 to ``2**k - 1`` for k bits.

        Raises
        ------
        KeyError
            If there is no classical register of that name.
        TypeError, IndexError, ValueError
            If a bit or the value is of the wrong kind or out of range, or if
            the call stands inside another `when`.

        Examples
        --------
        >>> from velacamplix.circuit import Circuit
        >>> circuit = Circuit(2, 1).h(0).measure(0, 0)
        >>> with circuit.when("c", 1):
        ...     _ = circuit.x(1)
        >>> print(circuit[-1])
        X 1 if c[0] == 1
        """
        if self._condition is not None:
            raise ValueError("when() cannot stand inside another when(): join the bits in one call")
        bits = self._classical_bits(clbits)
        wanted = _check.integer(value, "value", minimum=0, maximum=2 ** len(bits) - 1)
        self._condition = Condition(bits, wanted)
        try:
            yield self
        finally:
            self._condition = None

    def _classical_bits(self, clbits: Union[str, int, Sequence[int]]) -> Tuple[int, ...]:
        if not isinstance(clbits, str):
            return _check.indices(clbits, self._n_clbits, "clbits", at_least=1)
        clbits = _check.plain(clbits)
        for register in self._registers:
            if register.kind == "classical" and register.name == clbits:
                return tuple(register.bits)
        names = [register.name for register in self._registers if register.kind == "classical"]
        raise KeyError(f"clbits must name a classical register, one of {_check.show(names)}, got {_check.show(clbits)}")
