"""The phase of the whole state, which no measurement of the circuit alone can tell."""

from __future__ import annotations

from typing import Any

from ..instructions.expression import Angle, Expression
from ..instructions.instruction import Instruction
from .record import Record


class GlobalPhase(Record):
    """Tells and sets what the instructions ``gphase`` make together."""

    @property
    def global_phase(self) -> float | Expression:
        """The sum of the angles of all `gphase` without controls and conditions; a number, or an `Expression`.

        To set it takes them away and adds one `gphase` at the end; ``circuit.global_phase += 0.5`` adds to it.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> circuit = Circuit(1).gphase(0.5).h(0)
        >>> circuit.global_phase += 0.25
        >>> print(circuit, circuit.global_phase, sep="; ")
        H 0
        gphase(0.75); 0.75
        """
        angles: list[Any] = [step.params[0] for step in self._instructions if _is_phase(step)]
        total: Angle = sum(angles[1:], angles[0]) if angles else 0.0
        return total

    @global_phase.setter
    def global_phase(self, angle: float | Expression) -> None:
        if self._condition is not None:
            raise ValueError("global_phase cannot be set inside when(); gphase() adds a phase under the condition")
        value = self._angle(angle, "global_phase")
        steps = [step for step in self._instructions if not _is_phase(step)]
        if isinstance(value, Expression) or value != 0.0:
            steps.append(Instruction("gphase", (), (value,)))
        self._start(self._registers, self._n_qubits, self._n_clbits, steps)


def _is_phase(step: Instruction) -> bool:
    return step.name == "gphase" and not step.controls and step.condition is None and step.definition is None
