"""The named gates of a circuit, one method each."""

from __future__ import annotations

from typing import Self

from .gate_base import Controls, GateBase
from .more_gate_methods import MoreGates


class NamedGates(GateBase):
    """The gates the library itself has."""

    # --- One-qubit gates; each acts where all its controls are 1 ---

    def x(self, qubit: int, controls: Controls = ()) -> Self:
        """Add X, the bit flip.

        Parameters
        ----------
        qubit : int
            Target, from 0 to ``n_qubits - 1``.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError
            If a qubit is no integer.
        IndexError
            If a qubit is not in the circuit.
        ValueError
            If a control is listed twice or is the target.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).x(2, controls=[0, 1]))
        X 2 controls 0,1
        """
        return self._one_qubit("X", qubit, controls)

    def y(self, qubit: int, controls: Controls = ()) -> Self:
        """Add Y = [[0, -i], [i, 0]]. Arguments and errors as for `x`."""
        return self._one_qubit("Y", qubit, controls)

    def z(self, qubit: int, controls: Controls = ()) -> Self:
        """Add Z, the sign flip of 1. Arguments and errors as for `x`."""
        return self._one_qubit("Z", qubit, controls)

    def h(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the Hadamard gate. Arguments and errors as for `x`."""
        return self._one_qubit("H", qubit, controls)

    def s(self, qubit: int, controls: Controls = ()) -> Self:
        """Add S, a phase of pi/2 on 1. Arguments and errors as for `x`."""
        return self._one_qubit("S", qubit, controls)

    def t(self, qubit: int, controls: Controls = ()) -> Self:
        """Add T, a phase of pi/4 on 1. Arguments and errors as for `x`."""
        return self._one_qubit("T", qubit, controls)

    def ztoy(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the change from the Z to the Y basis, [[1, 1], [i, -i]] / sqrt(2)."""
        return self._one_qubit("ZtoY", qubit, controls)

    def ytoz(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the change from the Y to the Z basis, [[1, -i], [1, i]] / sqrt(2)."""
        return self._one_qubit("YtoZ", qubit, controls)

    def rx(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Add the rotation exp(-i angle X / 2).

        Parameters
        ----------
        angle : float
            Finite, in radians. Taken in double precision also where the state is in single.
        qubit, controls
            As for `x`.

        Raises
        ------
        TypeError
            If the angle is no real number, or a qubit no integer.
        ValueError
            If the angle is infinite or not a number; otherwise as for `x`.
        IndexError
            As for `x`.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(1).rx(0.5, 0))
        RX(0.5) 0
        """
        return self._one_qubit("RX", qubit, controls, (self._angle(angle),))

    def ry(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Add the rotation exp(-i angle Y / 2). Arguments and errors as for `rx`."""
        return self._one_qubit("RY", qubit, controls, (self._angle(angle),))

    def rz(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Add diag(exp(-i angle/2), exp(i angle/2)). Arguments and errors as for `rx`."""
        return self._one_qubit("RZ", qubit, controls, (self._angle(angle),))

    def ph(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Add diag(1, exp(i angle)), a phase on 1. Arguments and errors as for `rx`."""
        return self._one_qubit("PH", qubit, controls, (self._angle(angle),))

    p = ph

    # --- Gates on two and three qubits ---

    def cnot(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Flip `target` where `control`, and every one of `controls`, is 1.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, not in the circuit, or named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).cnot(0, 1).cnot(0, 1, controls=2))
        CNOT 0,1
        CNOT 0,1 controls 2
        """
        return self._gate("CNOT", (control, target), ("control", "target"), controls)

    cx = cnot

    def ccnot(self, control1: int, control2: int, target: int, controls: Controls = ()) -> Self:
        """Flip `target` where all controls are 1. Errors as for `cnot`."""
        return self._gate("CCNOT", (control1, control2, target), ("control1", "control2", "target"), controls)

    ccx = toffoli = ccnot

    def csign(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Change the sign where both qubits are 1. Arguments and errors as for `cnot`."""
        return self._gate("CSIGN", (qubit1, qubit2), _PAIR, controls)

    cz = csign

    def swap(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Exchange two qubits. Arguments and errors as for `cnot`."""
        return self._gate("SWAP", (qubit1, qubit2), _PAIR, controls)

    def iswap(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Exchange two qubits, with a factor i where they differ. Arguments and errors as for `cnot`."""
        return self._gate("ISWAP", (qubit1, qubit2), _PAIR, controls)

    def sqrtswap(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Add the gate whose square is SWAP. Arguments and errors as for `cnot`."""
        return self._gate("SQRTSWAP", (qubit1, qubit2), _PAIR, controls)


class GateMethods(NamedGates, MoreGates):
    """All gates with a name, the library's own and those made of them."""


_PAIR = ("qubit1", "qubit2")
