"""Gates on any number of qubits, made of gates with a name."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Self

from ..basics import checks
from ..basics.types import Order
from .expression import Expression
from .gate_base import REQUIRED, Controls, GateBase, named
from .gates import with_controls
from .instruction import Instruction
from .open_controls import ControlValues, checked_values

_CONTROLS_FIRST = {"control_qubits": "controls", "target_qubit": "target"}


class ManyQubitMethods(GateBase):
    """Gates with their controls first, and products of X, Y and Z."""

    def mcx(
        self,
        controls: Controls = REQUIRED,
        target: int = REQUIRED,
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply X to `target` where all of any number of controls are 1: `x` with its controls first.

        Parameters
        ----------
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act; there may be none.
        target : int
            From 0 to ``n_qubits - 1``.
        control_values : int, str or sequence of int, optional
            What the controls must be instead: a number or a text, the first control leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubits` for `controls`, `target_qubit` for `target`.

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
        controls, target = named("mcx", {"controls": controls, "target": target}, _CONTROLS_FIRST, names)
        return self._controlled("X", target, controls, control_values)

    def mcz(
        self,
        controls: Controls = REQUIRED,
        target: int = REQUIRED,
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Change the sign where `target` and all of any number of controls are 1: `z` with its controls first.

        Parameters, errors
            As for `mcx`.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(4).mcz([0, 1, 2], 3))
        Z 3 controls 0,1,2
        """
        controls, target = named("mcz", {"controls": controls, "target": target}, _CONTROLS_FIRST, names)
        return self._controlled("Z", target, controls, control_values)

    def mcp(
        self,
        angle: float | Expression = REQUIRED,
        controls: Controls = REQUIRED,
        target: int = REQUIRED,
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Turn the phase by `angle` where `target` and all of any number of controls are 1: `ph` with its controls first.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        controls, target, control_values
            As for `mcx`.
        **names
            Other words for these: `theta` or `lam` for `angle`, and those of `mcx`.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `mcx`; also if the angle is no real number, or not finite.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).mcp(0.5, [0, 1], 2))
        PH(0.5) 2 controls 0,1
        """
        given = {"angle": angle, "controls": controls, "target": target}
        angle, controls, target = named("mcp", given, {"theta": "angle", "lam": "angle", **_CONTROLS_FIRST}, names)
        return self._controlled("PH", target, controls, control_values, (self._angle(angle),))

    def pauli(
        self,
        letters: str,
        qubits: int | Sequence[int] | None = None,
        controls: Controls = (),
        control_values: ControlValues = None,
        *,
        order: Order = "big",
    ) -> Self:
        """Apply X, Y or Z to each of several qubits, as a text says it.

        Parameters
        ----------
        letters : str
            Of ``I X Y Z``, one for each qubit. I adds nothing.
        qubits : int or sequence of int, optional
            As many as there are letters; all by default.
        controls : int or sequence of int
            Qubits that must all be 1 for the gates to act.
        control_values : int, str or sequence of int, optional
            What they must be instead, as for `mcx`.
        order : {"big", "little"}
            Whether the first letter belongs to the first listed qubit ("big") or to the last.

        Raises
        ------
        TypeError, IndexError
            If `letters` is no text, or a qubit no integer or not there.
        ValueError
            If a letter is none of the four, their number is not that of the qubits, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(4).pauli("XIZ", [3, 1, 0]))
        X 3
        Z 0
        """
        factors, all_controls = self._factors(letters, qubits, controls, order)
        values = checked_values(control_values, len(all_controls))
        for letter, qubit in factors:
            self._put(with_controls(letter, (qubit,), all_controls, (), values))
        return self

    def pauli_rotation(
        self,
        letters: str,
        angle: float | Expression,
        qubits: int | Sequence[int] | None = None,
        controls: Controls = (),
        control_values: ControlValues = None,
        *,
        order: Order = "big",
    ) -> Self:
        """Apply exp(-i angle P / 2), P the product of X, Y and Z on several qubits that a text says.

        One rotation about X, Y or Z does it. Around it stand CNOT and controlled Y and Z gates, which multiply by nothing
        but 1, -1, i and -i, so that only the rotation rounds.

        Parameters
        ----------
        letters : str
            Of ``I X Y Z``, one for each qubit. If all are I, it is a phase of the whole state.
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubits, controls, control_values, order
            As for `pauli`.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `pauli`; also if the angle is no real number, or not finite.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).pauli_rotation("XYZ", 0.5))
        Y 1 controls 0
        CSIGN 0,2
        RX(0.5) 0
        CSIGN 0,2
        Y 1 controls 0
        >>> print(Circuit(3).pauli_rotation("ZIZ", 0.5))
        rzz(0.5) 0,2
        """
        turned = self._angle(angle)
        factors, all_controls = self._factors(letters, qubits, controls, order)
        values = checked_values(control_values, len(all_controls))
        for step in rotation(factors, turned, all_controls, values):
            self._put(step)
        return self

    def _controlled(
        self, name: str, target: Any, controls: Any, control_values: Any, params: tuple[Any, ...] = ()
    ) -> Self:
        qubits = (checks.qubit(target, self._n_qubits, "target"),)
        numbers = checks.controls(controls, qubits, self._n_qubits)
        values = checked_values(control_values, len(numbers))
        return self._put(Instruction(name, qubits, params, numbers, control_values=values))

    def _factors(
        self, letters: Any, qubits: Any, controls: Any, order: Any
    ) -> tuple[list[tuple[str, int]], tuple[int, ...]]:
        """Return the letters that are not I, each with its qubit, and the controls."""
        if not isinstance(letters, str):
            raise TypeError(f"letters must be a text of I, X, Y and Z, got {checks.show(letters)}")
        text = checks.plain(letters)
        if text.strip("IXYZ"):
            raise ValueError(f"letters must be a text of I, X, Y and Z, got {checks.show(text)}")
        all_of_them = range(self._n_qubits) if qubits is None else qubits
        numbers = checks.qubits(all_of_them, self._n_qubits, at_least=0)
        if len(text) != len(numbers):
            raise ValueError(f"letters must be {len(numbers)}, one for each qubit, got {len(text)} in {checks.show(text)}")
        all_controls = checks.controls(controls, numbers, self._n_qubits)
        if checks.order(order) == "little":
            text = text[::-1]
        return [(letter, qubit) for letter, qubit in zip(text, numbers) if letter != "I"], all_controls


def rotation(
    factors: Sequence[tuple[str, int]], angle: Any, controls: tuple[int, ...] = (), control_values: str = ""
) -> list[Instruction]:
    """Return gates that make exp(-i angle P / 2), P the product of these letters X, Y and Z on distinct qubits.

    >>> print(*rotation([("Z", 0), ("Z", 2), ("Z", 1)], 0.5), sep=", ")
    CNOT 0,2, rzz(0.5) 2,1, CNOT 0,2
    """
    letters, qubits = "".join([letter for letter, _ in factors]), tuple([qubit for _, qubit in factors])
    if not factors:
        return [with_controls("gphase", (), controls, (-angle / 2,), control_values)]
    direct = _DIRECT.get(letters)
    if direct is not None:
        name, is_turned = direct
        return [with_controls(name, qubits[::-1] if is_turned else qubits, controls, (angle,), control_values)]
    around: list[Instruction] = []
    if set(letters) == {"Z"}:
        # A CNOT makes ZZ of a Z on its target.
        around = [with_controls("X", (after,), (before,)) for before, after in zip(qubits, qubits[1:-1])]
        middle = with_controls("rzz", qubits[-2:], controls, (angle,), control_values)
    else:
        # A controlled P makes X P of an X on its control, and Y P of a Y.
        place = next(place for place, letter in enumerate(letters) if letter != "Z")
        pivot = qubits[place]
        around = [with_controls(letter, (qubit,), (pivot,)) for letter, qubit in factors if qubit != pivot]
        middle = with_controls("R" + letters[place], (pivot,), controls, (angle,), control_values)
    return [*around, middle, *reversed(around)]


# Gates that are a rotation of their own, and whether their qubits come in the other order.
_DIRECT = {
    "X": ("RX", False), "Y": ("RY", False), "Z": ("RZ", False), "XX": ("rxx", False), "YY": ("ryy", False),
    "ZZ": ("rzz", False), "ZX": ("rzx", False), "XZ": ("rzx", True),
}  # fmt: skip
