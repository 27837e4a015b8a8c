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

        made: Any = to_velacamplix(circuit)
        if cls is type(made):
            return made
        own: Any = cls(made.n_qubits, made.n_clbits, registers=made.registers)
        return own.compose(made)

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
