"""How a gate's arguments are checked and handed on, for all methods that add gates."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import TYPE_CHECKING, Any, Self

import numpy as np

from ..basics import checks
from .expand import basic
from .instruction import GATES, Instruction

Controls = int | Sequence[int]


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

    def _one_qubit(self, name: str, qubit: Any, controls: Any, params: tuple[Any, ...] = ()) -> Self:
        return self._gate(name, (qubit,), ("qubit",), controls, params)

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
        if name in GATES and (len(numbers) == 1 or not all_controls):
            return self._add(name, numbers, params, all_controls)
        return self._add_any(name, numbers, params, all_controls)


def lowered(step: Instruction) -> Iterator[Instruction]:
    """Iterate over the same gate as one-qubit gates and matrices with controls, other gates without."""
    if step.name == "diagonal":
        entries = np.diag(np.array(step.params, dtype=np.complex128))
        yield Instruction("matrix", step.qubits, tuple(entries.ravel().tolist()), step.controls)
    elif not step.controls or len(step.qubits) == 1 or step.name not in GATES:
        yield step
    elif step.name in _CONTROLLED:
        *more, target = step.qubits
        yield Instruction(_CONTROLLED[step.name], (target,), (), (*step.controls, *more))
    else:
        yield Instruction("matrix", step.qubits, _EXCHANGES[step.name], step.controls)


_CONTROLLED = {"CNOT": "X", "CCNOT": "X", "CSIGN": "Z"}


def _exchange(same: complex, other: complex) -> tuple[complex, ...]:
    return (1 + 0j, 0j, 0j, 0j, 0j, same, other, 0j, 0j, other, same, 0j, 0j, 0j, 0j, 1 + 0j)


_EXCHANGES = {
    "SWAP": _exchange(0j, 1 + 0j),
    "ISWAP": _exchange(0j, 1j),
    "SQRTSWAP": _exchange((1 + 1j) / 2, (1 - 1j) / 2),
}
