"""How a gate's arguments are checked and handed on, for all methods that add gates."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import TYPE_CHECKING, Any, Self

import numpy as np

from ..basics import checks
from .expand import basic
from .gates import GATES, NATIVE
from .instruction import Instruction

Controls = int | Sequence[int]

#: No controls: what every gate method takes by default, one object, so that looking for it costs nothing.
NONE: tuple[int, ...] = ()


class GateBase:
    """Ends every gate in `_add` of the class that inherits.

    That method is called for library gates as its class takes them: one-qubit gates and "matrix" with any controls,
    the others without. Everything else passes through `_add_any`, which makes those of it unless it is overridden.
    """

    _n_qubits: int

    if TYPE_CHECKING:

        def _add(
            self,
            name: str,
            qubits: tuple[int, ...],
            params: tuple[Any, ...] = (),
            controls: tuple[int, ...] = (),
            clbits: tuple[int, ...] = (),
        ) -> Self: ...

    def _add_any(
        self, name: str, qubits: tuple[int, ...], params: tuple[Any, ...] = (), controls: tuple[int, ...] = ()
    ) -> Self:
        parts = [simple for part in basic(Instruction(name, qubits, params, controls)) for simple in lowered(part)]
        for part in parts:
            self._add(part.name, part.qubits, part.params, part.controls)
        return self

    def _angle(self, value: Any, name: str = "angle") -> Any:
        return checks.angle(value, name)

    def mcx(self, controls: Controls, target: int) -> Self:
        """Apply X to `target` where all of any number of controls are 1: `x` with its controls first.

        Parameters
        ----------
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act; there may be none.
        target : int
            From 0 to ``n_qubits - 1``.

        Raises
        ------
        TypeError
            If a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(4).mcx([0, 1, 2], 3))
        X 3 controls 0,1,2
        """
        return self._gate("X", (target,), ("qubit",), controls)

    def mcp(self, angle: float, controls: Controls, target: int) -> Self:
        """Turn the phase by `angle` where `target` and all of any number of controls are 1: `ph` with its controls first.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act; there may be none.
        target : int
            From 0 to ``n_qubits - 1``.

        Raises
        ------
        TypeError
            If the angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If the angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).mcp(0.5, [0, 1], 2))
        PH(0.5) 2 controls 0,1
        """
        return self._gate("PH", (target,), ("qubit",), controls, (self._angle(angle),))

    def _gate(
        self,
        name: str,
        qubits: tuple[Any, ...],
        words: tuple[str, ...],
        controls: Any = (),
        params: tuple[Any, ...] = (),
        n_controls: int = 0,
    ) -> Self:
        """Check and add a gate; the first `n_controls` of `qubits` become controls before the others."""
        numbers = tuple([checks.qubit(qubit, self._n_qubits, word) for qubit, word in zip(qubits, words)])
        if len(numbers) > 1:
            checks.distinct(numbers, f"the qubits of {name}")
        all_controls = checks.controls(controls, numbers, self._n_qubits)
        if n_controls:
            all_controls, numbers = numbers[:n_controls] + all_controls, numbers[n_controls:]
        if name in NATIVE and (len(numbers) == 1 or not all_controls):
            return self._add(name, numbers, params, all_controls)
        return self._add_any(name, numbers, params, all_controls)


def lowered(step: Instruction) -> Iterator[Instruction]:
    """Iterate over the same gate as one-qubit gates and matrices with controls, other gates without."""
    if step.name == "diagonal":
        entries = np.diag(np.array(step.params, dtype=np.complex128))
        yield Instruction("matrix", step.qubits, tuple(entries.ravel().tolist()), step.controls)
    elif not step.controls or len(step.qubits) == 1 or step.name not in NATIVE:
        yield step
    else:
        gate = GATES[step.name]
        if gate.short_for is not None:
            yield Instruction(gate.short_for[0], step.qubits[-1:], (), step.controls + step.qubits[:-1])
        else:
            assert gate.matrix is not None
            yield Instruction("matrix", step.qubits, gate.matrix(*step.params), step.controls)
