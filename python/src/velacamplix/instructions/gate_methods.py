"""A method for every gate, written by tools/regen.py from the table in `gates`. Change that, not this."""

from __future__ import annotations

from typing import Any, Self

from .gate_base import NONE, REQUIRED, Angles, Controls, ControlValues, GateBase, Places


class GateMethods(GateBase):
    """All gates with a name, the library's own and those made of them; controls that a name speaks of come first."""

    def x(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply X, the bit flip.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("X", (qubit,))
        return self._looked_at("x", (qubit,), controls, control_values)

    def y(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply Y = [[0, -i], [i, 0]].

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("Y", (qubit,))
        return self._looked_at("y", (qubit,), controls, control_values)

    def cy(
        self,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply Y = [[0, -i], [i, 0]] to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and not names
        ):
            return self._add("Y", (target,), (), (control,))
        return self._looked_at("cy", (control, target), controls, control_values, names)

    def z(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply Z, the sign flip of 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("Z", (qubit,))
        return self._looked_at("z", (qubit,), controls, control_values)

    def ccz(
        self,
        control1: Places = REQUIRED,
        control2: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply Z to `target` where `control1` and `control2` are 1.

        Parameters
        ----------
        control1, control2, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control1` and `control2` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit1` for `control1`, `control_qubit2` for `control2`, `target_qubit` for
            `target`.

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
            and control_values is None
            and type(control1) is int
            and type(control2) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, target}) == 3
            and not names
        ):
            return self._add("Z", (target,), (), (control1, control2))
        return self._looked_at("ccz", (control1, control2, target), controls, control_values, names)

    def h(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the Hadamard gate, [[1, 1], [1, -1]] / sqrt(2).

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("H", (qubit,))
        return self._looked_at("h", (qubit,), controls, control_values)

    def ch(
        self,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the Hadamard gate to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and not names
        ):
            return self._add("H", (target,), (), (control,))
        return self._looked_at("ch", (control, target), controls, control_values, names)

    def s(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply S, a phase of pi/2 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("S", (qubit,))
        return self._looked_at("s", (qubit,), controls, control_values)

    def cs(
        self,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply S to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
        >>> print(Circuit(2).cs(0, 1))
        S 1 controls 0
        """
        if (
            controls is NONE
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and not names
        ):
            return self._add("S", (target,), (), (control,))
        return self._looked_at("cs", (control, target), controls, control_values, names)

    def t(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply T, a phase of pi/4 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("T", (qubit,))
        return self._looked_at("t", (qubit,), controls, control_values)

    def rx(
        self,
        angle: Angles = REQUIRED,
        qubit: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the rotation exp(-i angle X / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("RX", (qubit,), (angle,))
        return self._looked_at("rx", (angle, qubit), controls, control_values, names)

    def crx(
        self,
        angle: Angles = REQUIRED,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the rotation exp(-i angle X / 2) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`, `control_qubit` for `control`, `target_qubit`
            for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("RX", (target,), (angle,), (control,))
        return self._looked_at("crx", (angle, control, target), controls, control_values, names)

    def ry(
        self,
        angle: Angles = REQUIRED,
        qubit: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the rotation exp(-i angle Y / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("RY", (qubit,), (angle,))
        return self._looked_at("ry", (angle, qubit), controls, control_values, names)

    def cry(
        self,
        angle: Angles = REQUIRED,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the rotation exp(-i angle Y / 2) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`, `control_qubit` for `control`, `target_qubit`
            for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("RY", (target,), (angle,), (control,))
        return self._looked_at("cry", (angle, control, target), controls, control_values, names)

    def rz(
        self,
        angle: Angles = REQUIRED,
        qubit: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the rotation diag(exp(-i angle/2), exp(i angle/2)).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("RZ", (qubit,), (angle,))
        return self._looked_at("rz", (angle, qubit), controls, control_values, names)

    def crz(
        self,
        angle: Angles = REQUIRED,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the rotation diag(exp(-i angle/2), exp(i angle/2)) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`, `control_qubit` for `control`, `target_qubit`
            for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("RZ", (target,), (angle,), (control,))
        return self._looked_at("crz", (angle, control, target), controls, control_values, names)

    def ph(
        self,
        angle: Angles = REQUIRED,
        qubit: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply diag(1, exp(i angle)), a phase on 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("PH", (qubit,), (angle,))
        return self._looked_at("ph", (angle, qubit), controls, control_values, names)

    p = u1 = ph

    def cp(
        self,
        angle: Angles = REQUIRED,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply diag(1, exp(i angle)) to `target` where `control` is 1.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`, `control_qubit` for `control`, `target_qubit`
            for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add("PH", (target,), (angle,), (control,))
        return self._looked_at("cp", (angle, control, target), controls, control_values, names)

    cph = cu1 = cp

    def ztoy(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the change from the Z to the Y basis, [[1, 1], [i, -i]] / sqrt(2).

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("ZtoY", (qubit,))
        return self._looked_at("ztoy", (qubit,), controls, control_values)

    def ytoz(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the change from the Y to the Z basis, [[1, -i], [1, i]] / sqrt(2).

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add("YtoZ", (qubit,))
        return self._looked_at("ytoz", (qubit,), controls, control_values)

    def cx(
        self,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply X on `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
        >>> print(Circuit(2).cx(0, 1))
        CNOT 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and not names
        ):
            return self._add("CNOT", (control, target))
        return self._looked_at("cx", (control, target), controls, control_values, names)

    cnot = cx

    def ccx(
        self,
        control1: Places = REQUIRED,
        control2: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply X on `target` where `control1` and `control2` are 1.

        Parameters
        ----------
        control1, control2, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control1` and `control2` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit1` for `control1`, `control_qubit2` for `control2`, `target_qubit` for
            `target`.

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
        >>> print(Circuit(3).ccx(0, 1, 2))
        CCNOT 0,1,2
        """
        if (
            controls is NONE
            and control_values is None
            and type(control1) is int
            and type(control2) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, target}) == 3
            and not names
        ):
            return self._add("CCNOT", (control1, control2, target))
        return self._looked_at("ccx", (control1, control2, target), controls, control_values, names)

    ccnot = toffoli = ccx

    def cz(
        self,
        qubit1: Places = REQUIRED,
        qubit2: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply Z on two qubits, a change of sign where both are 1.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `qubit1` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `qubit1`, `target_qubit` for `qubit2`.

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
        >>> print(Circuit(2).cz(0, 1))
        CSIGN 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and not names
        ):
            return self._add("CSIGN", (qubit1, qubit2))
        return self._looked_at("cz", (qubit1, qubit2), controls, control_values, names)

    csign = cz

    def swap(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the exchange of two qubits.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("SWAP", (qubit1, qubit2))
        return self._looked_at("swap", (qubit1, qubit2), controls, control_values)

    def cswap(
        self,
        control: Places = REQUIRED,
        qubit1: Places = REQUIRED,
        qubit2: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the exchange of two qubits where `control` is 1.

        Parameters
        ----------
        control, qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit1` for `qubit1`, `target_qubit2` for
            `qubit2`.

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
            and control_values is None
            and type(control) is int
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= control < self._n_qubits
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and len({control, qubit1, qubit2}) == 3
            and not names
        ):
            return self._add_any("SWAP", (qubit1, qubit2), (), (control,))
        return self._looked_at("cswap", (control, qubit1, qubit2), controls, control_values, names)

    fredkin = cswap

    def iswap(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the exchange of two qubits, with a factor i where they differ.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("ISWAP", (qubit1, qubit2))
        return self._looked_at("iswap", (qubit1, qubit2), controls, control_values)

    def sqrtswap(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the gate whose square is SWAP.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add("SQRTSWAP", (qubit1, qubit2))
        return self._looked_at("sqrtswap", (qubit1, qubit2), controls, control_values)

    def id(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the identity, which does nothing.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(1).id(0))
        id 0
        """
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("id", (qubit,))
        return self._looked_at("id", (qubit,), controls, control_values)

    def sdg(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the inverse of S, a phase of -pi/2 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("sdg", (qubit,))
        return self._looked_at("sdg", (qubit,), controls, control_values)

    def csdg(
        self,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the inverse of S to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
        >>> print(Circuit(2).csdg(0, 1))
        sdg 1 controls 0
        """
        if (
            controls is NONE
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and not names
        ):
            return self._add_any("sdg", (target,), (), (control,))
        return self._looked_at("csdg", (control, target), controls, control_values, names)

    def tdg(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the inverse of T, a phase of -pi/4 on 1.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("tdg", (qubit,))
        return self._looked_at("tdg", (qubit,), controls, control_values)

    def sx(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the square root of X, [[1+i, 1-i], [1-i, 1+i]] / 2.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("sx", (qubit,))
        return self._looked_at("sx", (qubit,), controls, control_values)

    def csx(
        self,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the square root of X to `target` where `control` is 1.

        Parameters
        ----------
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and not names
        ):
            return self._add_any("sx", (target,), (), (control,))
        return self._looked_at("csx", (control, target), controls, control_values, names)

    def sxdg(self, qubit: Places, controls: Controls = (), control_values: ControlValues = None) -> Self:
        """Apply the inverse of the square root of X, [[1-i, 1+i], [1+i, 1-i]] / 2.

        Parameters
        ----------
        qubit : int
            From 0 to ``n_qubits - 1``; a list adds a gate on each.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        if controls is NONE and control_values is None and type(qubit) is int and 0 <= qubit < self._n_qubits:
            return self._add_any("sxdg", (qubit,))
        return self._looked_at("sxdg", (qubit,), controls, control_values)

    def u(
        self,
        theta: Angles,
        phi: Angles,
        lam: Angles,
        qubit: Places,
        controls: Controls = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Apply U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l)) cos(t/2)]], with t = theta, p
        = phi, l = lam.

        Parameters
        ----------
        theta, phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u", (qubit,), (theta, phi, lam))
        return self._looked_at("u", (theta, phi, lam, qubit), controls, control_values)

    def u2(
        self, phi: Angles, lam: Angles, qubit: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply U with theta = pi/2, [[1, -exp(i l)], [exp(i p), exp(i (p + l))]] / sqrt(2), with p = phi, l = lam.

        Parameters
        ----------
        phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u2", (qubit,), (phi, lam))
        return self._looked_at("u2", (phi, lam, qubit), controls, control_values)

    def u3(
        self,
        theta: Angles,
        phi: Angles,
        lam: Angles,
        qubit: Places,
        controls: Controls = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Apply U3, an older name of U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l))
        cos(t/2)]], with t = theta, p = phi, l = lam.

        Parameters
        ----------
        theta, phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
        ):
            return self._add_any("u3", (qubit,), (theta, phi, lam))
        return self._looked_at("u3", (theta, phi, lam, qubit), controls, control_values)

    def cu3(
        self,
        theta: Angles = REQUIRED,
        phi: Angles = REQUIRED,
        lam: Angles = REQUIRED,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply U3 to `target` where `control` is 1.

        Parameters
        ----------
        theta, phi, lam : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Further qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What `control` and these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
            and not names
        ):
            return self._add_any("u3", (target,), (theta, phi, lam), (control,))
        return self._looked_at("cu3", (theta, phi, lam, control, target), controls, control_values, names)

    def cu(
        self,
        theta: Angles = REQUIRED,
        phi: Angles = REQUIRED,
        lam: Angles = REQUIRED,
        gamma: Angles = REQUIRED,
        control: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply exp(i gamma) U on `target` where `control` is 1; U is that of the method `u`.

        Parameters
        ----------
        theta, phi, lam, gamma : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        control, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit` for `control`, `target_qubit` for `target`.

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
            and control_values is None
            and type(control) is int
            and type(target) is int
            and 0 <= control < self._n_qubits
            and 0 <= target < self._n_qubits
            and control != target
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
            and type(lam) is float and lam - lam == 0.0
            and type(gamma) is float and gamma - gamma == 0.0
            and not names
        ):
            return self._add_any("cu", (control, target), (theta, phi, lam, gamma))
        return self._looked_at("cu", (theta, phi, lam, gamma, control, target), controls, control_values, names)

    def r(
        self, theta: Angles, phi: Angles, qubit: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the rotation exp(-i theta (cos(phi) X + sin(phi) Y) / 2).

        Parameters
        ----------
        theta, phi : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit : int
            From 0 to ``n_qubits - 1``; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(1).r(0.1, 0.2, 0))
        r(0.1, 0.2) 0
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit) is int
            and 0 <= qubit < self._n_qubits
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
        ):
            return self._add_any("r", (qubit,), (theta, phi))
        return self._looked_at("r", (theta, phi, qubit), controls, control_values)

    def rxx(
        self,
        angle: Angles = REQUIRED,
        qubit1: Places = REQUIRED,
        qubit2: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply exp(-i angle XX / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add_any("rxx", (qubit1, qubit2), (angle,))
        return self._looked_at("rxx", (angle, qubit1, qubit2), controls, control_values, names)

    def ryy(
        self,
        angle: Angles = REQUIRED,
        qubit1: Places = REQUIRED,
        qubit2: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply exp(-i angle YY / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add_any("ryy", (qubit1, qubit2), (angle,))
        return self._looked_at("ryy", (angle, qubit1, qubit2), controls, control_values, names)

    def rzz(
        self,
        angle: Angles = REQUIRED,
        qubit1: Places = REQUIRED,
        qubit2: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply exp(-i angle ZZ / 2).

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add_any("rzz", (qubit1, qubit2), (angle,))
        return self._looked_at("rzz", (angle, qubit1, qubit2), controls, control_values, names)

    def rzx(
        self,
        angle: Angles = REQUIRED,
        qubit1: Places = REQUIRED,
        qubit2: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply exp(-i angle ZX / 2), Z on `qubit1` and X on `qubit2`.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
        >>> print(Circuit(2).rzx(0.5, 0, 1))
        rzx(0.5) 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(angle) is float and angle - angle == 0.0
            and not names
        ):
            return self._add_any("rzx", (qubit1, qubit2), (angle,))
        return self._looked_at("rzx", (angle, qubit1, qubit2), controls, control_values, names)

    def xx_plus_yy(
        self,
        theta: Angles,
        beta: Angles,
        qubit1: Places,
        qubit2: Places,
        controls: Controls = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Apply exp(-i theta (XX + YY) / 4), the mixing of 01 and 10, with phases exp(i beta) of `qubit1` around it.

        Parameters
        ----------
        theta, beta : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(2).xx_plus_yy(0.1, 0.2, 0, 1))
        xx_plus_yy(0.1, 0.2) 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(theta) is float and theta - theta == 0.0
            and type(beta) is float and beta - beta == 0.0
        ):
            return self._add_any("xx_plus_yy", (qubit1, qubit2), (theta, beta))
        return self._looked_at("xx_plus_yy", (theta, beta, qubit1, qubit2), controls, control_values)

    def xx_minus_yy(
        self,
        theta: Angles,
        beta: Angles,
        qubit1: Places,
        qubit2: Places,
        controls: Controls = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Apply exp(-i theta (XX - YY) / 4), the mixing of 00 and 11, with phases exp(i beta) of `qubit1` around it.

        Parameters
        ----------
        theta, beta : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(2).xx_minus_yy(0.1, 0.2, 0, 1))
        xx_minus_yy(0.1, 0.2) 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(theta) is float and theta - theta == 0.0
            and type(beta) is float and beta - beta == 0.0
        ):
            return self._add_any("xx_minus_yy", (qubit1, qubit2), (theta, beta))
        return self._looked_at("xx_minus_yy", (theta, beta, qubit1, qubit2), controls, control_values)

    def fsim(
        self,
        theta: Angles,
        phi: Angles,
        qubit1: Places,
        qubit2: Places,
        controls: Controls = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Apply exp(-i theta (XX + YY) / 2), the mixing of 01 and 10, with a factor exp(-i phi) on 11.

        Parameters
        ----------
        theta, phi : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(2).fsim(0.1, 0.2, 0, 1))
        fsim(0.1, 0.2) 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(theta) is float and theta - theta == 0.0
            and type(phi) is float and phi - phi == 0.0
        ):
            return self._add_any("fsim", (qubit1, qubit2), (theta, phi))
        return self._looked_at("fsim", (theta, phi, qubit1, qubit2), controls, control_values)

    def givens(
        self,
        theta: Angles,
        qubit1: Places,
        qubit2: Places,
        controls: Controls = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Apply the rotation [[cos(t), -sin(t)], [sin(t), cos(t)]] of 01 and 10, t = theta.

        Parameters
        ----------
        theta : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(2).givens(0.5, 0, 1))
        givens(0.5) 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
            and type(theta) is float and theta - theta == 0.0
        ):
            return self._add_any("givens", (qubit1, qubit2), (theta,))
        return self._looked_at("givens", (theta, qubit1, qubit2), controls, control_values)

    def dcx(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply two CNOT gates, the second the other way round.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(2).dcx(0, 1))
        dcx 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add_any("dcx", (qubit1, qubit2))
        return self._looked_at("dcx", (qubit1, qubit2), controls, control_values)

    def ecr(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the echoed cross-resonance gate, (XI - YX) / sqrt(2).

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
        >>> print(Circuit(2).ecr(0, 1))
        ecr 0,1
        """
        if (
            controls is NONE
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add_any("ecr", (qubit1, qubit2))
        return self._looked_at("ecr", (qubit1, qubit2), controls, control_values)

    def iswapdg(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the inverse of ISWAP, the exchange with a factor -i where the qubits differ.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add_any("iswapdg", (qubit1, qubit2))
        return self._looked_at("iswapdg", (qubit1, qubit2), controls, control_values)

    def sqrtswapdg(
        self, qubit1: Places, qubit2: Places, controls: Controls = (), control_values: ControlValues = None
    ) -> Self:
        """Apply the inverse of the square root of SWAP.

        Parameters
        ----------
        qubit1, qubit2 : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.

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
            and control_values is None
            and type(qubit1) is int
            and type(qubit2) is int
            and 0 <= qubit1 < self._n_qubits
            and 0 <= qubit2 < self._n_qubits
            and qubit1 != qubit2
        ):
            return self._add_any("sqrtswapdg", (qubit1, qubit2))
        return self._looked_at("sqrtswapdg", (qubit1, qubit2), controls, control_values)

    def rccx(
        self,
        control1: Places = REQUIRED,
        control2: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply the Toffoli gate up to phases, which takes three CNOT gates.

        Parameters
        ----------
        control1, control2, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit1` for `control1`, `control_qubit2` for `control2`, `target_qubit` for
            `target`.

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
            and control_values is None
            and type(control1) is int
            and type(control2) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, target}) == 3
            and not names
        ):
            return self._add_any("rccx", (control1, control2, target))
        return self._looked_at("rccx", (control1, control2, target), controls, control_values, names)

    def rc3x(
        self,
        control1: Places = REQUIRED,
        control2: Places = REQUIRED,
        control3: Places = REQUIRED,
        target: Places = REQUIRED,
        controls: Controls = (),
        control_values: ControlValues = None,
        **names: Any,
    ) -> Self:
        """Apply X with three controls up to phases.

        Parameters
        ----------
        control1, control2, control3, target : int
            From 0 to ``n_qubits - 1``, all different; lists of one length add a gate for each place.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `control_qubit1` for `control1`, `control_qubit2` for `control2`, `control_qubit3`
            for `control3`, `target_qubit` for `target`.

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
            and control_values is None
            and type(control1) is int
            and type(control2) is int
            and type(control3) is int
            and type(target) is int
            and 0 <= control1 < self._n_qubits
            and 0 <= control2 < self._n_qubits
            and 0 <= control3 < self._n_qubits
            and 0 <= target < self._n_qubits
            and len({control1, control2, control3, target}) == 4
            and not names
        ):
            return self._add_any("rc3x", (control1, control2, control3, target))
        return self._looked_at("rc3x", (control1, control2, control3, target), controls, control_values, names)

    rcccx = rc3x

    def gphase(
        self, angle: Angles = REQUIRED, controls: Controls = (), control_values: ControlValues = None, **names: Any
    ) -> Self:
        """Apply the phase exp(i angle), of the whole state.

        Parameters
        ----------
        angle : float
            In radians, finite; for a circuit also a `Parameter` or `Expression`.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What these must be instead: a number or a text, the first leftmost, or 0 or 1 for each.
        **names
            Other words for these: `theta` or `phi` or `lam` for `angle`.

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
        >>> print(Circuit(0).gphase(0.5))
        gphase(0.5)
        """
        if controls is NONE and control_values is None and type(angle) is float and angle - angle == 0.0 and not names:
            return self._add_any("gphase", (), (angle,))
        return self._looked_at("gphase", (angle,), controls, control_values, names)
