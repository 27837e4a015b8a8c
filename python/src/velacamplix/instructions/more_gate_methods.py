"""Gates made of the library's own, under the names in common use.

Global phases are those of Qiskit's gates of the same name. Where a name begins with c, its controls come first.
"""

from __future__ import annotations

from typing import Any, Self

from .gate_base import Controls, GateBase


class MoreGates(GateBase):
    """The usual gates beside those the library has."""

    # --- One qubit ---

    def sdg(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the inverse of S, a phase of -pi/2 on 1. Arguments and errors as for `x`."""
        return self._one_qubit("sdg", qubit, controls)

    def tdg(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the inverse of T, a phase of -pi/4 on 1. Arguments and errors as for `x`."""
        return self._one_qubit("tdg", qubit, controls)

    def sx(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the square root of X, [[1+i, 1-i], [1-i, 1+i]] / 2. Arguments and errors as for `x`."""
        return self._one_qubit("sx", qubit, controls)

    def sxdg(self, qubit: int, controls: Controls = ()) -> Self:
        """Add the inverse of `sx`. Arguments and errors as for `x`."""
        return self._one_qubit("sxdg", qubit, controls)

    def u1(self, angle: float, qubit: int, controls: Controls = ()) -> Self:
        """Add diag(1, exp(i angle)), the same as `ph`. Arguments and errors as for `rx`."""
        return self._one_qubit("PH", qubit, controls, (self._angle(angle),))

    def u2(self, phi: float, lam: float, qubit: int, controls: Controls = ()) -> Self:
        """Add U with theta = pi/2. Arguments and errors as for `u`."""
        return self._one_qubit("u2", qubit, controls, (self._angle(phi, "phi"), self._angle(lam, "lam")))

    def u(self, theta: float, phi: float, lam: float, qubit: int, controls: Controls = ()) -> Self:
        """Add U = [[cos(t/2), -exp(i l) sin(t/2)], [exp(i p) sin(t/2), exp(i (p + l)) cos(t/2)]].

        Parameters
        ----------
        theta, phi, lam : float
            t, p and l, finite, in radians.
        qubit, controls
            As for `x`.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `rx`.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).u(0.1, 0.2, 0.3, 0).u3(0.1, 0.2, 0.3, 0, controls=1))
        u(0.1, 0.2, 0.3) 0
        u3(0.1, 0.2, 0.3) 0 controls 1
        """
        return self._one_qubit("u", qubit, controls, self._angles(theta, phi, lam))

    def u3(self, theta: float, phi: float, lam: float, qubit: int, controls: Controls = ()) -> Self:
        """Add the gate of `u` under its older name."""
        return self._one_qubit("u3", qubit, controls, self._angles(theta, phi, lam))

    # --- Two qubits ---

    def rxx(self, angle: float, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Add exp(-i angle XX / 2).

        Raises
        ------
        TypeError, IndexError, ValueError
            If the angle is no finite real number; a qubit no integer, not in the circuit, or named twice.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2).rxx(0.5, 0, 1))
        rxx(0.5) 0,1
        """
        return self._gate("rxx", (qubit1, qubit2), _PAIR, controls, (self._angle(angle),))

    def ryy(self, angle: float, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Add exp(-i angle YY / 2). Arguments and errors as for `rxx`."""
        return self._gate("ryy", (qubit1, qubit2), _PAIR, controls, (self._angle(angle),))

    def rzz(self, angle: float, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Add exp(-i angle ZZ / 2). Arguments and errors as for `rxx`."""
        return self._gate("rzz", (qubit1, qubit2), _PAIR, controls, (self._angle(angle),))

    def iswapdg(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Add the inverse of `iswap`. Arguments and errors as for `cnot`."""
        return self._gate("iswapdg", (qubit1, qubit2), _PAIR, controls)

    def sqrtswapdg(self, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Add the inverse of `sqrtswap`. Arguments and errors as for `cnot`."""
        return self._gate("sqrtswapdg", (qubit1, qubit2), _PAIR, controls)

    # --- Controlled gates; more controls may follow ---

    def cy(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply Y to `target` where all controls are 1. Arguments and errors as for `cnot`."""
        return self._controlled("Y", control, target, controls)

    def ch(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply the Hadamard gate to `target` where all controls are 1. Arguments and errors as for `cnot`."""
        return self._controlled("H", control, target, controls)

    def csx(self, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply `sx` to `target` where all controls are 1. Arguments and errors as for `cnot`."""
        return self._controlled("sx", control, target, controls)

    def crx(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply RX to `target` where all controls are 1.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `rxx`.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(3).crx(0.5, 0, 1, controls=2))
        RX(0.5) 1 controls 0,2
        """
        return self._controlled("RX", control, target, controls, (self._angle(angle),))

    def cry(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply RY to `target` where all controls are 1. Arguments and errors as for `crx`."""
        return self._controlled("RY", control, target, controls, (self._angle(angle),))

    def crz(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply RZ to `target` where all controls are 1. Arguments and errors as for `crx`."""
        return self._controlled("RZ", control, target, controls, (self._angle(angle),))

    def cp(self, angle: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Turn the phase by `angle` where target and all controls are 1. Arguments and errors as for `crx`."""
        return self._controlled("PH", control, target, controls, (self._angle(angle),))

    cph = cu1 = cp

    def cu3(self, theta: float, phi: float, lam: float, control: int, target: int, controls: Controls = ()) -> Self:
        """Apply `u3` to `target` where all controls are 1. Arguments and errors as for `crx`."""
        return self._controlled("u3", control, target, controls, self._angles(theta, phi, lam))

    def cu(
        self, theta: float, phi: float, lam: float, gamma: float, control: int, target: int, controls: Controls = ()
    ) -> Self:
        """Apply exp(i gamma) `u` to `target` where all controls are 1. Arguments and errors as for `crx`."""
        angles = (*self._angles(theta, phi, lam), self._angle(gamma, "gamma"))
        return self._gate("cu", (control, target), _CONTROL, controls, angles)

    def cswap(self, control: int, qubit1: int, qubit2: int, controls: Controls = ()) -> Self:
        """Exchange two qubits where all controls are 1. Arguments and errors as for `cnot`."""
        return self._gate("SWAP", (control, qubit1, qubit2), ("control", *_PAIR), controls, n_controls=1)

    fredkin = cswap

    def ccz(self, control1: int, control2: int, target: int, controls: Controls = ()) -> Self:
        """Change the sign where all qubits are 1. Arguments and errors as for `cnot`."""
        return self._gate("Z", (control1, control2, target), _CONTROLS, controls, n_controls=2)

    def mcx(self, controls: Controls, target: int) -> Self:
        """Flip `target` where all of any number of controls are 1: X with its controls first."""
        return self._one_qubit("X", target, controls)

    def mcp(self, angle: float, controls: Controls, target: int) -> Self:
        """Turn the phase where target and all controls are 1: `ph` with its controls first."""
        return self._one_qubit("PH", target, controls, (self._angle(angle),))

    def rccx(self, control1: int, control2: int, target: int, controls: Controls = ()) -> Self:
        """Add the Toffoli gate up to phases that takes three CNOT gates. Arguments and errors as for `cnot`."""
        return self._gate("rccx", (control1, control2, target), _CONTROLS, controls)

    # --- Inner workings ---

    def _angles(self, theta: float, phi: float, lam: float) -> tuple[Any, ...]:
        return self._angle(theta, "theta"), self._angle(phi, "phi"), self._angle(lam, "lam")

    def _controlled(self, name: str, control: int, target: int, controls: Controls, params: tuple[Any, ...] = ()) -> Self:
        return self._gate(name, (control, target), _CONTROL, controls, params, n_controls=1)


_PAIR = ("qubit1", "qubit2")
_CONTROL = ("control", "target")
_CONTROLS = ("control1", "control2", "target")
