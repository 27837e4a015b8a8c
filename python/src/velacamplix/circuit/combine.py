"""Circuits made of circuits."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Self

from ..basics import checks
from ..instructions.definition import inverted
from ..instructions.instruction import Condition, Instruction
from .record import MOST_INSTRUCTIONS, Record


class Combining(Record):
    """Puts circuits together."""

    def compose(
        self,
        other: Combining,
        qubits: None | int | Sequence[int] = None,
        clbits: None | int | Sequence[int] = None,
    ) -> Self:
        """Add all instructions of another circuit, which stays as it is.

        Parameters
        ----------
        other : Circuit
            Its registers' names do not matter.
        qubits : int or sequence of int, optional
            For each of the other circuit's qubits, the qubit here. By default those of the same numbers.
        clbits : int or sequence of int, optional
            The same for classical bits.

        Returns
        -------
        Circuit
            This circuit.

        Raises
        ------
        TypeError, IndexError
            If `other` is no Circuit, or a number no integer or not in this circuit.
        ValueError
            If a list names a number twice or differs in length from what the other circuit has; inside `when`, if the
            other circuit has conditions of its own.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> bell = Circuit(2).h(0).cx(0, 1)
        >>> print(Circuit(3).compose(bell, qubits=[2, 0]))
        H 2
        CNOT 2,0
        """
        if not isinstance(other, Combining):
            raise TypeError(f"other must be a Circuit, got {checks.show(other)}")
        to_qubits = _mapping(qubits, other._n_qubits, self._n_qubits, "qubits")
        to_clbits = _mapping(clbits, other._n_clbits, self._n_clbits, "clbits")
        steps = [_moved(step, to_qubits, to_clbits) for step in other._instructions]
        if self._condition is not None:
            for step in steps:
                if step.condition is not None:
                    raise ValueError(f"other must have no conditions of its own inside when(), got {step}")
            steps = [step._replace(condition=self._condition) if step.can_be_conditioned else step for step in steps]
        for step in steps:
            self._append(step)
        return self

    def __add__(self, other: Any) -> Self:
        """Return a new circuit: this one, then the other."""
        if not isinstance(other, Combining):
            return NotImplemented
        return self.copy().compose(other)

    def inverse(self) -> Self:
        """Return the circuit that undoes this one.

        Raises
        ------
        ValueError
            If there is a measurement, a reset, or a matrix that is not unitary.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).s(0).rx(0.5, 1).cx(0, 1).inverse())
        CNOT 0,1
        RX(-0.5) 1
        sdg 0
        """
        steps = [part for step in reversed(self._instructions) for part in inverted(step)]
        return self._with(steps)

    def repeat(self, times: int) -> Self:
        """Return the circuit `times` times in a row; ``circuit * times`` is the same.

        Raises
        ------
        TypeError, ValueError
            If `times` is no integer, negative, or so large that no memory would hold the result.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).h(0).t(0) * 2)
        H 0
        T 0
        H 0
        T 0
        """
        count = checks.integer(times, "times", minimum=0)
        if count * len(self._instructions) > MOST_INSTRUCTIONS:
            raise ValueError(
                f"times must give at most {MOST_INSTRUCTIONS} instructions in all, got {checks.show(times)} "
                f"times {len(self._instructions)}"
            )
        return self._with(list(self._instructions) * min(count, MOST_INSTRUCTIONS))

    def __mul__(self, times: Any) -> Self:
        """Return the circuit several times in a row."""
        return self.repeat(times) if hasattr(times, "__index__") else NotImplemented

    __rmul__ = __mul__


def _mapping(values: Any, wanted: int, size: int, name: str) -> tuple[int, ...]:
    if values is None:
        if wanted > size:
            raise ValueError(f"other must have at most {size} {name}, those of this circuit, got {wanted}")
        return tuple(range(wanted))
    numbers = checks.indices(values, size, name)
    if len(numbers) != wanted:
        raise ValueError(f"{name} must name {wanted} numbers, one for each of the other circuit, got {len(numbers)}")
    return numbers


def _moved(step: Instruction, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> Instruction:
    condition = step.condition
    if condition is not None:
        condition = Condition(tuple([clbits[bit] for bit in condition.clbits]), condition.value)
    return Instruction(
        step.name,
        tuple([qubits[qubit] for qubit in step.qubits]),
        step.params,
        tuple([qubits[qubit] for qubit in step.controls]),
        tuple([clbits[bit] for bit in step.clbits]),
        condition,
        step.definition,
        control_values=step.control_values,
    )
