"""The circuit: an ordered list of instructions with a method for each gate."""

from __future__ import annotations

import os
from collections.abc import Sequence
from typing import Any, Self

from ..basics import checks
from ..basics.words import shortened
from ..instructions.definition import GateDefinition
from ..instructions.entry_methods import EntryMethods
from ..instructions.gate_methods import GateMethods
from ..instructions.instruction import Instruction
from ..instructions.open_controls import ControlValues, checked_values
from ..instructions.many_qubit_methods import ManyQubitMethods
from ..qasm.meaning import MOST_INSTRUCTIONS, Parts
from ..qasm.reader import read_program
from ..views import html
from ..views.shapes import MOST_LINES
from .combine import Combining
from .dense import Dense
from .derivatives import Derivatives
from .figures import Figures
from .flow import FlowMethods
from .frameworks import Frameworks
from .global_phase import GlobalPhase
from .preparation import Preparation
from .saves import SaveMethods
from .transforms import Transforms

__all__ = ["Circuit"]

# Of instructions drawn in a notebook, lines of longer circuits.
_LONGEST_SHOWN, _LINES_SHOWN = 400, 60


class Circuit(
    GateMethods, ManyQubitMethods, EntryMethods, Preparation, Transforms, FlowMethods, SaveMethods, Combining, GlobalPhase,
    Figures, Dense, Derivatives, Frameworks,
):
    """An ordered list of gates, measurements, resets, barriers, decisions and loops.

    Every method that adds an instruction returns the circuit, so calls can be
    chained. Angles are in radians and come first. Nothing is computed here: a
    circuit is a plain record that compares equal by content and can be pickled.

    Parameters
    ----------
    n_qubits : int
        Number of qubits, 0 or more. Qubit q is bit q of a basis state's number.
    n_clbits : int
        Number of classical bits.
    registers : iterable of Register, optional
        Names for the qubits and classical bits. They must cover both ranges in
        order and without gaps. By default all qubits are ``q``, all classical
        bits ``c``.

    Raises
    ------
    TypeError, ValueError
        If a count is no integer or negative, or the registers do not fit.

    Examples
    --------
    >>> circuit = Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1])
    >>> circuit
    <Circuit: 2 qubits, 2 classical bits, 3 instructions>
    >>> print(circuit)
    H 0
    CNOT 0,1
    measure 0,1 -> 0,1
    >>> [instruction.name for instruction in circuit]
    ['H', 'CNOT', 'measure']
    """

    def gate(
        self,
        definition: GateDefinition,
        qubits: int | Sequence[int],
        params: Sequence[Any] = (),
        controls: int | Sequence[int] = (),
        control_values: ControlValues = None,
    ) -> Self:
        """Add a gate that was defined as a sequence of others.

        Parameters
        ----------
        definition : GateDefinition
        qubits : int or sequence of int
            One for each qubit of the definition.
        params : sequence of float, Parameter or Expression
            One for each parameter of the definition.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        control_values : int, str or sequence of int, optional
            What they must be instead: a number or a text, the first control leftmost, or 0 or 1 for each.

        Raises
        ------
        TypeError, IndexError, ValueError
            If `definition` is none, or numbers, qubits or controls do not fit it.

        Examples
        --------
        >>> from velacamplix import GateDefinition
        >>> bell = GateDefinition("bell", Circuit(2).h(0).cx(0, 1))
        >>> print(Circuit(3).gate(bell, [0, 2]).gate(bell, [1, 2], controls=0))
        bell 0,2
        bell 1,2 controls 0
        """
        if not isinstance(definition, GateDefinition):
            raise TypeError(f"definition must be a GateDefinition, got {checks.show(definition)}")
        targets = checks.qubits(qubits, self._n_qubits)
        control_qubits = checks.indices(controls, self._n_qubits, "controls")
        numbers = tuple(checks.sequence(params, "params", of="numbers"))
        step = Instruction(definition.name, targets, numbers, control_qubits, definition=definition)
        return self.append(step._replace(control_values=checked_values(control_values, len(control_qubits))))

    # --- OpenQASM ---

    @classmethod
    def from_qasm(
        cls, path_or_text: str | os.PathLike[str], *, most_instructions: int = MOST_INSTRUCTIONS
    ) -> Self:
        """Read an OpenQASM 2 program.

        Every gate of qelib1.inc becomes one instruction, with the global phase that makes its controlled forms right;
        other gates keep their definition. ``u0`` leaves no instruction. Measurements, resets and conditions
        are kept as they stand: a statement on a whole register is one measure or reset of several qubits. A gate that the program declares under a name by which the package knows one has ``_gate`` behind its name.
        Called on a class that inherits, it makes an object of that class, whose constructor must take what that of
        `Circuit` takes; so does `from_qasm3`.

        Parameters
        ----------
        path_or_text : str or path
            A ``str`` that contains "OPENQASM", a semicolon or a line end (or is
            blank) is the program itself, any other ``str`` and every path
            object names a file. Files named by ``include`` are looked up beside the file that includes them, from a
            text in the current directory; qelib1.inc is built in.
        most_instructions : int
            A program that would expand to more raises `QasmError`, before it fills the memory.

        Raises
        ------
        QasmError
            If the program is wrong, or has more than 512 MiB; it tells line and column. A ``ValueError``. Syntax comes
            first: a file is parsed to its end before the meaning of its statements is looked at.
        OSError
            If the file itself cannot be read. (An unreadable include is a `QasmError`.)
        TypeError
            If it is neither text nor path.

        Warns
        -----
        UserWarning
            If ``OPENQASM 2.0;`` is missing in front.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit.from_qasm('''OPENQASM 2.0;
        ... include "qelib1.inc";
        ... qreg q[2];
        ... h q[0];
        ... cx q[0], q[1];'''))
        H 0
        CNOT 0,1
        """
        most = checks.integer(most_instructions, "most_instructions", minimum=0)
        return cls._read(read_program(path_or_text, most))

    @classmethod
    def from_qasm3(cls, path_or_text: str | os.PathLike[str], *, most_instructions: int = MOST_INSTRUCTIONS) -> Self:
        """Read an OpenQASM 3 program.

        Gates with all modifiers, definitions, phases, measurement, reset and barriers, registers with their parts and
        aliases. What is known while reading is carried out then: constants, variables, functions, ``for`` and ``while``
        loops, ``if`` and ``switch``. Where measured bits decide, ``if``, ``while`` and ``switch`` become instructions. An
        ``input`` of type float or angle becomes a parameter. The state is the program's, global phase included; a delay
        or a box leaves no instruction, as nothing happens in them but what they hold.

        Refused by name: subroutines (``def``, ``extern``), calibrations, arrays and complex numbers, other timing, variables
        that measurements would change, powers with a fraction that readers understand differently.

        Parameters
        ----------
        path_or_text : str or path
            As for `from_qasm`. Other files than stdgates.inc are looked up beside the file that includes them.
        most_instructions : int
            A program that would expand to more, or go round its loops more often, raises `QasmError`.

        Raises
        ------
        velacamplix.QasmError
            If the program is wrong, or has something a circuit cannot say; it names it, with line and column. A
            ``ValueError``.
        OSError
            If the file itself cannot be read. (An unreadable include is a `QasmError`.)
        TypeError
            If it is neither text nor path.

        Notes
        -----
        ``U(theta, phi, lambda)`` is Qiskit's: its entry for 0 and 0 is cos(theta/2). The language's own text multiplies
        it by exp(i theta/2), which no measurement can tell but for controlled forms. An angle is a double, not a multiple
        of 2 pi/2**n. Classical bits are 0 at the beginning.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit.from_qasm3('''OPENQASM 3.0;
        ... include "stdgates.inc";
        ... qubit[3] q;
        ... bit[3] c;
        ... h q[0];
        ... for int i in [0:1] { ctrl @ x q[i], q[i + 1]; }
        ... c = measure q;
        ... if (c[0] && !c[2]) { x q[1]; }'''))
        H 0
        X 1 controls 0
        X 2 controls 1
        measure 0,1,2 -> 0,1,2
        if c[0] == 1 and c[2] == 0:
            X 1
        """
        most = checks.integer(most_instructions, "most_instructions", minimum=0)
        return cls._read(read_program(path_or_text, most, version=3))

    @classmethod
    def _read(cls, parts: Parts) -> Self:
        if cls is Circuit:
            return cls._assembled(*parts)
        circuit = Circuit._assembled(*parts)
        return cls(circuit.n_qubits, circuit.n_clbits, registers=circuit.registers).compose(circuit)

    def _repr_html_(self) -> str:
        title = repr(self).strip("<>")
        touched = {q for step in self for q in step.qubits + step.controls} if self._n_qubits > MOST_LINES else ()
        if len(self) > _LONGEST_SHOWN or len(touched) > MOST_LINES:
            lines = [shortened(str(step)) for step in self._instructions[:_LINES_SHOWN]]
            lines += [f"… {len(self) - _LINES_SHOWN} more"] * (len(self) > _LINES_SHOWN)
            return html.titled(title, html.pre("\n".join(lines)))
        # Of wide registers only what is used is shown.
        return html.titled(title, self.draw("svg", idle=self._n_qubits <= html.ROWS)._repr_html_())
