"""The named gates of a circuit, one method each."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Sequence, Tuple, Union

from . import _check

if TYPE_CHECKING:
    from typing_extensions import Self


class GateMethods:
    """Checks a gate's arguments and hands the gate to `_add` of the class that inherits."""

    _n_qubits: int

    def _add(
        self,
        name: str,
        qubits: Tuple[int, ...],
        params: Tuple[Union[float, complex], ...] = (),
        controls: Tuple[int, ...] = (),
        clbits: Tuple[int, ...] = (),
    ) -> Self:
        raise NotImplementedError

    # --- One-qubit gates; each acts where all its controls are 1 ---

    def x(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
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
        >>> from velacamplix.circuit import Circuit
        >>> print(Circuit(3).x(2, controls=[0, 1]))
        X 2 controls 0,1
        """
        return self._one_qubit("X", qubit, controls)

    def y(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add Y = [[0, -i], [i, 0]]. Arguments and errors as for `x`."""
        return self._one_qubit("Y", qubit, controls)

    def z(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add Z, the sign flip of 1. Arguments and errors as for `x`."""
        return self._one_qubit("Z", qubit, controls)

    def h(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add the Hadamard gate. Arguments and errors as for `x`."""
        return self._one_qubit("H", qubit, controls)

    def s(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add S, a phase of pi/2 on 1. Arguments and errors as for `x`."""
        return self._one_qubit("S", qubit, controls)

    def t(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add T, a phase of pi/4 on 1. Arguments and errors as for `x`."""
        return self._one_qubit("T", qubit, controls)

    def ztoy(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add the change from the Z to the Y basis, [[1, 1], [i, -i]] / sqrt(2)."""
        return self._one_qubit("ZtoY", qubit, controls)

    def ytoz(self, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add the change from the Y to the Z basis, [[1, -i], [1, i]] / sqrt(2)."""
        return self._one_qubit("YtoZ", qubit, controls)

    def rx(self, angle: float, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add the rotation exp(-i angle X / 2).

        Parameters
        ----------
        angle : float
            Finite, in radians.
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
        >>> from velacamplix.circuit import Circuit
        >>> print(Circuit(1).rx(0.5, 0))
        RX(0.5) 0
        """
        return self._rotation("RX", angle, qubit, controls)

    def ry(self, angle: float, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add the rotation exp(-i angle Y / 2). Arguments and errors as for `rx`."""
        return self._rotation("RY", angle, qubit, controls)

    def rz(self, angle: float, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add diag(exp(-i angle/2), exp(i angle/2)). Arguments and errors as for `rx`."""
        return self._rotation("RZ", angle, qubit, controls)

    def ph(self, angle: float, qubit: int, controls: Union[int, Sequence[int]] = ()) -> Self:
        """Add diag(1, exp(i angle)), a phase on 1. Arguments and errors as for `rx`."""
        return self._rotation("PH", angle, qubit, controls)

    p = ph

    # --- Gates on two and three qubits ---

    def cnot(self, control: int, target: int) -> Self:
        """Flip `target` where `control` is 1.

        Raises
        ------
        TypeError, IndexError, ValueError
            If a qubit is no integer, not in the circuit, or named twice.

        Examples
        --------
        >>> from velacamplix.circuit import Circuit
        >>> print(Circuit(2).cnot(0, 1))
        CNOT 0,1
        """
        return self._fixed("CNOT", (control, target), ("control", "target"))

    cx = cnot

    def ccnot(self, control1: int, control2: int, target: int) -> Self:
        """Flip `target` where both controls are 1. Errors as for `cnot`."""
        return self._fixed(
            "CCNOT", (control1, control2, target), ("control1", "control2", "target")
        )

    ccx = toffoli = ccnot

    def csign(self, qubit1: int, qubit2: int) -> Self:
        """Change the sign where both qubits are 1. Errors as for `cnot`."""
        return self._fixed("CSIGN", (qubit1, qubit2), ("qubit1", "qubit2"))

    cz = csign

    def swap(self, qubit1: int, qubit2: int) -> Self:
        """Exchange two qubits. Errors as for `cnot`."""
        return self._fixed("SWAP", (qubit1, qubit2), ("qubit1", "qubit2"))

    def iswap(self, qubit1: int, qubit2: int) -> Self:
        """Exchange two qubits, with a factor i where they differ. Errors as for `cnot`."""
        return self._fixed("ISWAP", (qubit1, qubit2), ("qubit1", "qubit2"))

    def sqrtswap(self, qubit1: int, qubit2: int) -> Self:
        """Add the gate whose square is SWAP. Errors as for `cnot`."""
        return self._fixed("SQRTSWAP", (qubit1, qubit2), ("qubit1", "qubit2"))

    # --- Inner workings ---

    def _one_qubit(
        self, name: str, qubit: int, controls: Any, params: Tuple[float, ...] = ()
    ) -> Self:
        target = (_check.qubit(qubit, self._n_qubits),)
        return self._add(name, target, params, _check.controls(controls, target, self._n_qubits))

    def _rotation(self, name: str, angle: float, qubit: int, controls: Any) -> Self:
        return self._one_qubit(name, qubit, controls, (_check.angle(angle),))

    def _fixed(self, name: str, qubits: Tuple[int, ...], words: Tuple[str, ...]) -> Self:
        numbers = tuple(
            _check.qubit(qubit, self._n_qubits, word) for qubit, word in zip(qubits, words)
        )
        _check.distinct(numbers, f"the qubits of {name}")
        return self._add(name, numbers)
