"""A circuit's named parameters, and the circuit in the library's own gates."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any, Self

from ..basics.words import shortened
from ..instructions.binding import Template, checked_values, parameters_of, partly_bound, plain_values
from ..instructions.expand import basic
from ..instructions.instruction import Instruction
from .record import Record


class ParameterMethods(Record):
    """Gives numbers to parameters."""

    @property
    def parameters(self) -> tuple[str, ...]:
        """Names of the parameters that have no value yet, in order of appearance."""
        if self._names is None:
            self._names = parameters_of(self._instructions)
        return self._names

    def bind(self, values: Any = None, /, **named: float) -> Self:
        """Return the circuit with numbers in place of its parameters.

        Binding a circuit again and again is cheap, and circuits bound from the same one share the work of planning:
        what was planned for the last eight cases (precision, fusion, which qubits begin in another state than
        0) is kept as long as one of them exists.

        Parameters
        ----------
        values : mapping or sequence of float, optional
            Numbers by name (or `Parameter`), some or all; or one number for each of `parameters`, in their order.
        **named : float
            Numbers by name.

        Raises
        ------
        TypeError
            If a value is no real number, or a key no name.
        ValueError
            If there is no parameter of that name, a sequence has the wrong length, a value is not finite or given
            twice, or an angle calculated from the values is not finite.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> a, b = Parameter("a"), Parameter("b")
        >>> circuit = Circuit(1).rx(a, 0).rz(a + b, 0)
        >>> circuit.parameters
        ('a', 'b')
        >>> print(circuit.bind([0.5, 0.25]))
        RX(0.5) 0
        RZ(0.75) 0
        >>> circuit.bind(a=0.5).parameters
        ('b',)
        """
        names = self.parameters
        numbers = plain_values(names, values, named)
        if numbers is None:
            by_name = checked_values(names, values, named)
            if not by_name:
                return self.copy()
            if len(by_name) < len(names):
                return self._with(partly_bound(self._instructions, by_name))
            numbers = [by_name[name] for name in names]
        template = self._as_template()
        params = template.params(numbers)
        bound = self._with(None)
        bound._template, bound._template_params = template, params
        return bound

    def _as_template(self) -> Template:
        """Return the circuit as it is now, the same object until an instruction is added."""
        if self._own_template is None:
            self._own_template = Template(self._registers, tuple(self._instructions))
        return self._own_template

    def basic_instructions(self) -> Iterator[Instruction]:
        """Iterate over the circuit in the library's own gates.

        Composite gates and gates of definitions become named gates, ``"matrix"`` and ``"diagonal"`` instructions, any
        of them perhaps with controls; all parameters are numbers.

        Raises
        ------
        ValueError
            If parameters have no value yet, or an angle inside a definition is not finite.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> for instruction in Circuit(2).sdg(0).rzz(0.5, 0, 1).basic_instructions():
        ...     print(instruction)
        PH(-1.57079632679) 0
        diagonal[4] 0,1
        """
        self._require_bound()
        return (part for step in self._instructions for part in basic(step))

    def _require_bound(self) -> None:
        if self.parameters:
            names = ", ".join(map(repr, self.parameters))
            raise ValueError(f"parameters must have values, give them with bind(): {shortened(names)}")
