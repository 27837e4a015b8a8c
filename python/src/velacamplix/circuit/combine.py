"""Circuits made of circuits."""

from __future__ import annotations

from collections.abc import Sequence
from itertools import chain, count
from typing import Any, Self

import numpy as np

from ..basics import checks
from ..instructions.definition import inverted
from ..instructions.flow import changed, leaves, moved_step
from ..instructions.instruction import Instruction, Register
from ..instructions.open_controls import ControlValues, checked_values
from .record import MOST_BITS, MOST_INSTRUCTIONS, Record


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
        steps = [moved_step(step, to_qubits, to_clbits) for step in other._instructions]
        if self._condition is not None:
            for step in steps:
                if step.condition is not None:
                    raise ValueError(f"other must have no conditions of its own inside when(), got {step.title}")
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
            If there is a measurement, a reset, a loop, a save, or a matrix that is not unitary.

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
        number = checks.integer(times, "times", minimum=0)
        if number * len(self._instructions) > MOST_INSTRUCTIONS:
            raise ValueError(
                f"times must give at most {MOST_INSTRUCTIONS} instructions in all, got {checks.show(times)} "
                f"times {len(self._instructions)}"
            )
        return self._with(list(self._instructions) * min(number, MOST_INSTRUCTIONS))

    def power(self, exponent: int) -> Self:
        """Return the circuit to a power: repeated, or its inverse where `exponent` is negative.

        Raises
        ------
        TypeError, ValueError
            If `exponent` is no integer, or as for `repeat` and `inverse`.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).s(0).h(0).power(-1))
        H 0
        sdg 0
        """
        if isinstance(exponent, (float, np.floating)):
            raise TypeError(
                f"exponent must be an integer, got {checks.show(exponent)}; for a root take that of the matrix, "
                "scipy.linalg.fractional_matrix_power(circuit.to_matrix(), exponent), and add it with matrix(..., "
                'order="little")'
            )
        times = checks.integer(exponent, "exponent")
        return self.repeat(times) if times >= 0 else self.inverse().repeat(-times)

    def controlled(self, num_controls: int = 1, control_values: ControlValues = None) -> Self:
        """Return the circuit under control of further qubits, which come first.

        Parameters
        ----------
        num_controls : int
            How many, at least 1. They are qubits 0 to ``num_controls - 1`` of the result, in a register ``control``; this
            circuit's qubits follow.
        control_values : int, str or sequence of int, optional
            What they must be; all 1 by default. A number or a text has the first control leftmost.

        Returns
        -------
        Circuit
            A new one. A phase of the whole state (`gphase`) has become one of the controls.

        Raises
        ------
        TypeError, ValueError
            If `num_controls` is no integer or below 1, `control_values` do not fit it, or there is an instruction that is
            neither gate nor barrier, nor a decision among such.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).h(0).cx(0, 1).gphase(0.5).controlled())
        H 1 controls 0
        CNOT 1,2 controls 0
        PH(0.5) 0
        """
        n = checks.integer(num_controls, "num_controls", minimum=1, maximum=MOST_BITS - self._n_qubits)
        values = checked_values(control_values, n)
        for step in chain(self._instructions, leaves(self._instructions)):
            if not step.is_gate and step.name not in ("barrier", "if", "switch"):
                raise ValueError(f"controlled() takes gates, barriers and decisions among them, got {step.title}")
        qubits, clbits = tuple(range(n, n + self._n_qubits)), tuple(range(self._n_clbits))
        steps = [_controlled(moved_step(step, qubits, clbits), tuple(range(n)), values) for step in self._instructions]
        taken = {register.name for register in self._registers}
        words = chain(["control"], (f"control_{number}" for number in count(2)))
        registers = [Register(next(word for word in words if word not in taken), "quantum", 0, n)]
        for register in self._registers:
            start = register.start + (n if register.kind == "quantum" else 0)
            registers.append(Register(register.name, register.kind, start, register.size))
        return self._with(steps, tuple(registers))

    def __mul__(self, times: Any) -> Self:
        """Return the circuit several times in a row."""
        return self.repeat(times) if hasattr(times, "__index__") else NotImplemented

    __rmul__ = __mul__


def _controlled(step: Instruction, controls: tuple[int, ...], values: str) -> Instruction:
    if step.name == "barrier":
        return step
    if step.detail is not None:
        return changed(step, lambda inner: (_controlled(inner, controls, values),))
    if values or step.control_values:
        values = (values or "1" * len(controls)) + (step.control_values or "1" * len(step.controls))
    made = step._replace(controls=controls + step.controls, control_values=values)
    if step.name != "gphase" or step.definition is not None or (values and "1" not in values):
        return made
    # A phase gate on the last control that must be 1.
    place = values.rfind("1") if values else len(made.controls) - 1
    left = values[:place] + values[place + 1 :]
    return made._replace(
        name="PH",
        qubits=made.controls[place : place + 1],
        controls=made.controls[:place] + made.controls[place + 1 :],
        control_values=left if "0" in left else "",
    )


def _mapping(values: Any, wanted: int, size: int, name: str) -> tuple[int, ...]:
    if values is None:
        if wanted > size:
            raise ValueError(f"other must have at most {size} {name}, those of this circuit, got {wanted}")
        return tuple(range(wanted))
    numbers = checks.indices(values, size, name)
    if len(numbers) != wanted:
        raise ValueError(f"{name} must name {wanted} numbers, one for each of the other circuit, got {len(numbers)}")
    return numbers
