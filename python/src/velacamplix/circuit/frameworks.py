"""Circuits of other packages, handed on to the rooms that convert them."""

from __future__ import annotations

from typing import Any, Self

from .record import Record


class Frameworks(Record):
    """Conversions. The other package is imported when they are called."""

    @classmethod
    def from_qiskit(cls, circuit: Any) -> Self:
        """Return the circuit that one of Qiskit's is, global phase and parameters included.

        Called on a class that inherits, it makes an object of that class, whose constructor must take what that of
        `Circuit` takes.

        Parameters
        ----------
        circuit : qiskit.QuantumCircuit
            As for `velacamplix.qiskit.to_velacamplix`, which tells what becomes what.

        Raises
        ------
        ImportError
            If Qiskit is not installed.
        TypeError
            If `circuit` is none of Qiskit's.
        velacamplix.qiskit.NotConverted
            If there is something a circuit cannot say. A ``ValueError``.

        Examples
        --------
        >>> from qiskit import QuantumCircuit
        >>> from velacamplix import Circuit
        >>> theirs = QuantumCircuit(2, global_phase=0.5)
        >>> _ = theirs.h(0), theirs.cx(0, 1)
        >>> print(Circuit.from_qiskit(theirs))
        gphase(0.5)
        H 0
        CNOT 0,1
        """
        from ..qiskit import to_velacamplix

        return _of(cls, to_velacamplix(circuit))

    @classmethod
    def from_cirq(cls, circuit: Any, qubit_order: Any = None) -> Self:
        """Return the circuit that one of Cirq's is, global phase and symbols included.

        Called on a class that inherits, it makes an object of that class, whose constructor must take what that of
        `Circuit` takes.

        Parameters
        ----------
        circuit : cirq.Circuit or cirq.FrozenCircuit
            As for `velacamplix.cirq.to_velacamplix`, which tells what becomes what.
        qubit_order : cirq.QubitOrder or sequence of cirq.Qid, optional
            The i-th qubit in this order is qubit i here; by default as Cirq sorts them.

        Raises
        ------
        ImportError
            If Cirq is not installed.
        TypeError
            If `circuit` is none of Cirq's.
        velacamplix.cirq.NotConverted
            If there is something a circuit cannot say. A ``ValueError``.

        Examples
        --------
        >>> import cirq
        >>> from velacamplix import Circuit
        >>> a, b = cirq.LineQubit.range(2)
        >>> print(Circuit.from_cirq(cirq.Circuit(cirq.H(a), cirq.CNOT(a, b), cirq.measure(b, key="m"))))
        H 0
        CNOT 0,1
        measure 1 -> 0
        """
        from ..cirq import to_velacamplix

        more = () if qubit_order is None else (qubit_order,)
        return _of(cls, to_velacamplix(circuit, *more))

    def to_cirq(self) -> Any:
        """Return the same circuit as a ``cirq.Circuit``, global phase and parameters included.

        Returns
        -------
        cirq.Circuit
            As `velacamplix.cirq.from_velacamplix` makes it, which tells what becomes what.

        Raises
        ------
        ImportError
            If Cirq is not installed.
        velacamplix.cirq.NotConverted
            If there is something that Cirq's circuits lack, such as a loop. A ``ValueError``.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> print(Circuit(2).ry(Parameter("a") / 2, 0).cx(0, 1).to_cirq())
        0: ───Ry(a/2)───@───
                        │
        1: ─────────────X───
        """
        from ..cirq import from_velacamplix

        return from_velacamplix(self)  # type: ignore[arg-type]

    @classmethod
    def from_pennylane(cls, circuit: Any, wire_order: Any = None) -> Self:
        """Return the circuit that operations of PennyLane's are, global phase included.

        Called on a class that inherits, it makes an object of that class, whose constructor must take what that of
        `Circuit` takes.

        Parameters
        ----------
        circuit : pennylane.tape.QuantumScript or sequence of pennylane.operation.Operator
            As for `velacamplix.pennylane.to_velacamplix`, which tells what becomes what.
        wire_order : sequence, optional
            The label of every qubit, as there.

        Raises
        ------
        ImportError
            If PennyLane is not installed.
        TypeError
            If `circuit` is neither.
        velacamplix.pennylane.NotConverted
            If there is something a circuit cannot say. A ``ValueError``.

        Examples
        --------
        >>> import pennylane as qml
        >>> from velacamplix import Circuit
        >>> print(Circuit.from_pennylane([qml.Hadamard("a"), qml.CNOT(["a", "b"])]))
        H 0
        CNOT 0,1
        """
        from ..pennylane import to_velacamplix

        return _of(cls, to_velacamplix(circuit, wire_order))

    def to_pennylane(self) -> Any:
        """Return the same circuit as a ``pennylane.tape.QuantumScript``, global phase included.

        Returns
        -------
        pennylane.tape.QuantumScript
            As `velacamplix.pennylane.from_velacamplix` makes it, which tells what becomes what.

        Raises
        ------
        ImportError
            If PennyLane is not installed.
        velacamplix.pennylane.NotConverted
            If there is something that PennyLane's tapes lack, such as an open parameter. A ``ValueError``.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> Circuit(2).h(0).cx(0, 1).to_pennylane().operations
        [H(0), CNOT(wires=[0, 1])]
        """
        from ..pennylane import from_velacamplix

        return from_velacamplix(self)  # type: ignore[arg-type]

    def to_qiskit(self) -> Any:
        """Return the same circuit as a ``qiskit.QuantumCircuit``, global phase and parameters included.

        Returns
        -------
        qiskit.QuantumCircuit
            As `velacamplix.qiskit.from_velacamplix` makes it, which tells what becomes what.

        Raises
        ------
        ImportError
            If Qiskit is not installed.
        velacamplix.qiskit.NotConverted
            If there is something that Qiskit's circuits lack, such as noise. A ``ValueError``.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> theirs = Circuit(2).ry(Parameter("a") / 2, 0).cx(0, 1).to_qiskit()
        >>> [item.operation.name for item in theirs.data], list(theirs.parameters)
        (['ry', 'cx'], [Parameter(a)])
        """
        from ..qiskit import from_velacamplix

        return from_velacamplix(self)  # type: ignore[arg-type]


def _of(cls: Any, made: Any) -> Any:
    """Return a circuit as one of a class that inherits."""
    if cls is type(made):
        return made
    own: Any = cls(made.n_qubits, made.n_clbits, registers=made.registers)
    return own.compose(made)
