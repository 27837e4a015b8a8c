"""A method for every gate, written by tools/regen.py from the table in `gates`. Change that, not this."""

from __future__ import annotations

from typing import Self

from .gate_base import NONE, Controls, GateBase


class GateMethods(GateBase):
    """All gates with a name, the library's own and those made of them; controls that a name speaks of come first."""

    def x(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply X, the bit flip.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).x(0))
        X 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("X", (qubit,))
        return self._gate("X", (qubit,), ("qubit",), controls)

    def y(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply Y = [[0, -i], [i, 0]].

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).y(0))
        Y 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("Y", (qubit,))
        return self._gate("Y", (qubit,), ("qubit",), controls)

    def cy(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply Y = [[0, -i], [i, 0]] to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).cy(0, 1))
        Y 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
        ):
            return self._add("Y", (target,), (), (control,))
        return self._gate("Y", (control, target), ("control", "target"), controls, (), 1)

    def z(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply Z, the sign flip of 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).z(0))
        Z 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("Z", (qubit,))
        return self._gate("Z", (qubit,), ("qubit",), controls)

    def ccz(self, control1: int, control2: int, target: int, controls: Controls = ()) -> Self:
        """Apply Z to `target` where `control1` and `control2` are 1.

        Parameters
        ----------
        control1, control2, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(3).ccz(0, 1, 2))
        Z 2 controls 0,1
        """
        if (
            controls is NONE
            and type(control1) is int
            and type(control2) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, target}) == 3
        ):
            return self._add("Z", (target,), (), (control1, control2))
        return self._gate("Z", (control1, control2, target), ("control1", "control2", "target"), controls, (), 2)

    def h(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the Hadamard gate, [[1, 1], [1, -1]] / sqrt(2).

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).h(0))
        H 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("H", (qubit,))
        return self._gate("H", (qubit,), ("qubit",), controls)

    def ch(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply the Hadamard gate to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).ch(0, 1))
        H 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
        ):
            return self._add("H", (target,), (), (control,))
        return self._gate("H", (control, target), ("control", "target"), controls, (), 1)

    def s(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply S, a phase of pi/2 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).s(0))
        S 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("S", (qubit,))
        return self._gate("S", (qubit,), ("qubit",), controls)

    def t(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply T, a phase of pi/4 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).t(0))
        T 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("T", (qubit,))
        return self._gate("T", (qubit,), ("qubit",), controls)

    def rx(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply the rotation exp(-i angle X / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).rx(0.5, 0))
        RX(0.5) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("RX", (qubit,), (angle,))
        return self._gate("RX", (qubit,), ("qubit",), controls, (self._angle(angle, "angle"),))

    def crx(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply the rotation exp(-i angle X / 2) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).crx(0.5, 0, 1))
        RX(0.5) 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("RX", (target,), (angle,), (control,))
        return self._gate("RX", (control, target), ("control", "target"), controls, (self._angle(angle, "angle"),), 1)

    def ry(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply the rotation exp(-i angle Y / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).ry(0.5, 0))
        RY(0.5) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("RY", (qubit,), (angle,))
        return self._gate("RY", (qubit,), ("qubit",), controls, (self._angle(angle, "angle"),))

    def cry(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply the rotation exp(-i angle Y / 2) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).cry(0.5, 0, 1))
        RY(0.5) 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("RY", (target,), (angle,), (control,))
        return self._gate("RY", (control, target), ("control", "target"), controls, (self._angle(angle, "angle"),), 1)

    def rz(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply the rotation diag(exp(-i angle/2), exp(i angle/2)).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).rz(0.5, 0))
        RZ(0.5) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("RZ", (qubit,), (angle,))
        return self._gate("RZ", (qubit,), ("qubit",), controls, (self._angle(angle, "angle"),))

    def crz(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply the rotation diag(exp(-i angle/2), exp(i angle/2)) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).crz(0.5, 0, 1))
        RZ(0.5) 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("RZ", (target,), (angle,), (control,))
        return self._gate("RZ", (control, target), ("control", "target"), controls, (self._angle(angle, "angle"),), 1)

    def ph(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply diag(1, exp(i angle)), a phase on 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).ph(0.5, 0))
        PH(0.5) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("PH", (qubit,), (angle,))
        return self._gate("PH", (qubit,), ("qubit",), controls, (self._angle(angle, "angle"),))

    p = u1 = ph

    def cp(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply diag(1, exp(i angle)) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).cp(0.5, 0, 1))
        PH(0.5) 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add("PH", (target,), (angle,), (control,))
        return self._gate("PH", (control, target), ("control", "target"), controls, (self._angle(angle, "angle"),), 1)

    cph = cu1 = cp

    def ztoy(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the change from the Z to the Y basis, [[1, 1], [i, -i]] / sqrt(2).

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).ztoy(0))
        ZtoY 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("ZtoY", (qubit,))
        return self._gate("ZtoY", (qubit,), ("qubit",), controls)

    def ytoz(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the change from the Y to the Z basis, [[1, -i], [1, i]] / sqrt(2).

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).ytoz(0))
        YtoZ 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("YtoZ", (qubit,))
        return self._gate("YtoZ", (qubit,), ("qubit",), controls)

    def cnot(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply X on `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).cnot(0, 1))
        CNOT 0,1
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
        ):
            return self._add("CNOT", (control, target))
        return self._gate("CNOT", (control, target), ("control", "target"), controls)

    cx = cnot

    def ccnot(self, control1: int, control2: int, target: int, controls: Controls = ()) -> Self:
        """Apply X on `target` where `control1` and `control2` are 1.

        Parameters
        ----------
        control1, control2, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(3).ccnot(0, 1, 2))
        CCNOT 0,1,2
        """
        if (
            controls is NONE
            and type(control1) is int
            and type(control2) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, target}) == 3
        ):
            return self._add("CCNOT", (control1, control2, target))
        return self._gate("CCNOT", (control1, control2, target), ("control1", "control2", "target"), controls)

    ccx = toffoli = ccnot

    def csign(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply Z on two qubits, a change of sign where both are 1.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).csign(0, 1))
        CSIGN 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("CSIGN", (qubit1, qubit2))
        return self._gate("CSIGN", (qubit1, qubit2), ("qubit1", "qubit2"), controls)

    cz = csign

    def swap(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply the exchange of two qubits.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).swap(0, 1))
        SWAP 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("SWAP", (qubit1, qubit2))
        return self._gate("SWAP", (qubit1, qubit2), ("qubit1", "qubit2"), controls)

    def cswap(self, control: int, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply the exchange of two qubits where `control` is 1.

        Parameters
        ----------
        control, qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(3).cswap(0, 1, 2))
        SWAP 1,2 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= control < self._n_qubits
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and len({control, qubit1, qubit2}) == 3
        ):
            return self._add_any("SWAP", (qubit1, qubit2), (), (control,))
        return self._gate("SWAP", (control, qubit1, qubit2), ("control", "qubit1", "qubit2"), controls, (), 1)

    fredkin = cswap

    def iswap(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply the exchange of two qubits, with a factor i where they differ.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).iswap(0, 1))
        ISWAP 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("ISWAP", (qubit1, qubit2))
        return self._gate("ISWAP", (qubit1, qubit2), ("qubit1", "qubit2"), controls)

    def sqrtswap(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply the gate whose square is SWAP.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).sqrtswap(0, 1))
        SQRTSWAP 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("SQRTSWAP", (qubit1, qubit2))
        return self._gate("SQRTSWAP", (qubit1, qubit2), ("qubit1", "qubit2"), controls)

    def sdg(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the inverse of S, a phase of -pi/2 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).sdg(0))
        sdg 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("sdg", (qubit,))
        return self._gate("sdg", (qubit,), ("qubit",), controls)

    def tdg(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the inverse of T, a phase of -pi/4 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).tdg(0))
        tdg 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("tdg", (qubit,))
        return self._gate("tdg", (qubit,), ("qubit",), controls)

    def sx(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the square root of X, [[1+i, 1-i], [1-i, 1+i]] / 2.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).sx(0))
        sx 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("sx", (qubit,))
        return self._gate("sx", (qubit,), ("qubit",), controls)

    def csx(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply the square root of X to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).csx(0, 1))
        sx 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
        ):
            return self._add_any("sx", (target,), (), (control,))
        return self._gate("sx", (control, target), ("control", "target"), controls, (), 1)

    def sxdg(self, qubit: int, controls: Controls = ()) -> Self:
        """Apply the inverse of the square root of X, [[1-i, 1+i], [1+i, 1-i]] / 2.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(1).sxdg(0))
        sxdg 0
        """
        if controls is NONE and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("sxdg", (qubit,))
        return self._gate("sxdg", (qubit,), ("qubit",), controls)

    def u(self, theta: float, phi: float, lam: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l)) cos(t/2)]], with t = theta, p
        = phi, l = lam.

        Parameters
        ----------
        theta, phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).u(0.1, 0.2, 0.3, 0))
        u(0.1, 0.2, 0.3) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u", (qubit,), (theta, phi, lam))
        return self._gate(
            "u",
            (qubit,),
            ("qubit",),
            controls,
            (self._angle(theta, "theta"), self._angle(phi, "phi"), self._angle(lam, "lam")),
        )

    def u2(self, phi: float, lam: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply U with theta = pi/2, [[1, -exp(i l)], [exp(i p), exp(i (p + l))]] / sqrt(2), with p = phi, l = lam.

        Parameters
        ----------
        phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).u2(0.1, 0.2, 0))
        u2(0.1, 0.2) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u2", (qubit,), (phi, lam))
        return self._gate("u2", (qubit,), ("qubit",), controls, (self._angle(phi, "phi"), self._angle(lam, "lam")))

    def u3(self, theta: float, phi: float, lam: float, qubit: int, controls: Controls = ()) -> Self:
        """Apply U3, an older name of U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l))
        cos(t/2)]], with t = theta, p = phi, l = lam.

        Parameters
        ----------
        theta, phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).u3(0.1, 0.2, 0.3, 0))
        u3(0.1, 0.2, 0.3) 0
        """
        if (
            controls is NONE
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u3", (qubit,), (theta, phi, lam))
        return self._gate(
            "u3",
            (qubit,),
            ("qubit",),
            controls,
            (self._angle(theta, "theta"), self._angle(phi, "phi"), self._angle(lam, "lam")),
        )

    def cu3(self, theta: float, phi: float, lam: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply U3 to `target` where `control` is 1.

        Parameters
        ----------
        theta, phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).cu3(0.1, 0.2, 0.3, 0, 1))
        u3(0.1, 0.2, 0.3) 1 controls 0
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u3", (target,), (theta, phi, lam), (control,))
        return self._gate(
            "u3",
            (control, target),
            ("control", "target"),
            controls,
            (self._angle(theta, "theta"), self._angle(phi, "phi"), self._angle(lam, "lam")),
            1,
        )

    def cu(
        self, theta: float, phi: float, lam: float, gamma: float, control: int, target: int, controls: Controls = (),
    ) -> Self:
        """Apply exp(i gamma) U on `target` where `control` is 1; U is that of the method `u`.

        Parameters
        ----------
        theta, phi, lam, gamma : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).cu(0.1, 0.2, 0.3, 0.4, 0, 1))
        cu(0.1, 0.2, 0.3, 0.4) 0,1
        """
        if (
            controls is NONE
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
            and type(gamma) is float and gamma - gamma == 0.0
        ):
            return self._add_any("cu", (control, target), (theta, phi, lam, gamma))
        return self._gate(
            "cu",
            (control, target),
            ("control", "target"),
            controls,
            (self._angle(theta, "theta"), self._angle(phi, "phi"), self._angle(lam, "lam"), self._angle(gamma, "gamma")),
        )

    def rxx(self, angle: float, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply exp(-i angle XX / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).rxx(0.5, 0, 1))
        rxx(0.5) 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add_any("rxx", (qubit1, qubit2), (angle,))
        return self._gate("rxx", (qubit1, qubit2), ("qubit1", "qubit2"), controls, (self._angle(angle, "angle"),))

    def ryy(self, angle: float, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply exp(-i angle YY / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).ryy(0.5, 0, 1))
        ryy(0.5) 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add_any("ryy", (qubit1, qubit2), (angle,))
        return self._gate("ryy", (qubit1, qubit2), ("qubit1", "qubit2"), controls, (self._angle(angle, "angle"),))

    def rzz(self, angle: float, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply exp(-i angle ZZ / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If an angle is no real number, or a qubit is no integer.
        IndexError
            If a qubit does not exist.
        ValueError
            If an angle is not finite, or a qubit is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).rzz(0.5, 0, 1))
        rzz(0.5) 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
        ):
            return self._add_any("rzz", (qubit1, qubit2), (angle,))
        return self._gate("rzz", (qubit1, qubit2), ("qubit1", "qubit2"), controls, (self._angle(angle, "angle"),))

    def iswapdg(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply the inverse of ISWAP, the exchange with a factor -i where the qubits differ.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).iswapdg(0, 1))
        iswapdg 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add_any("iswapdg", (qubit1, qubit2))
        return self._gate("iswapdg", (qubit1, qubit2), ("qubit1", "qubit2"), controls)

    def sqrtswapdg(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Apply the inverse of the square root of SWAP.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(2).sqrtswapdg(0, 1))
        sqrtswapdg 0,1
        """
        if (
            controls is NONE
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add_any("sqrtswapdg", (qubit1, qubit2))
        return self._gate("sqrtswapdg", (qubit1, qubit2), ("qubit1", "qubit2"), controls)

    def rccx(self, control1: int, control2: int, target: int, controls: Controls = ()) -> Self:
        """Apply the Toffoli gate up to phases, which takes three CNOT gates.

        Parameters
        ----------
        control1, control2, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(3).rccx(0, 1, 2))
        rccx 0,1,2
        """
        if (
            controls is NONE
            and type(control1) is int
            and type(control2) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, target}) == 3
        ):
            return self._add_any("rccx", (control1, control2, target))
        return self._gate("rccx", (control1, control2, target), ("control1", "control2", "target"), controls)

    def rc3x(self, control1: int, control2: int, control3: int, target: int, controls: Controls = ()) -> Self:
        """Apply X with three controls up to phases.

        Parameters
        ----------
        control1, control2, control3, target : int
            From 0 to ``n_qubits - 1``, all different.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

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
        >>> print(Circuit(4).rc3x(0, 1, 2, 3))
        rc3x 0,1,2,3
        """
        if (
            controls is NONE
            and type(control1) is int
            and type(control2) is int
            and type(control3) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= control3 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, control3, target}) == 4
        ):
            return self._add_any("rc3x", (control1, control2, control3, target))
        return self._gate(
            "rc3x",
            (control1, control2, control3, target),
            ("control1", "control2", "control3", "target"),
            controls,
        )
