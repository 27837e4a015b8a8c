"""The circuit: an ordered list of instructions with a method for each gate."""

from __future__ import annotations

import os
from contextlib import contextmanager
from dataclasses import replace
from typing import Any, Iterable, Iterator, List, Optional, Sequence, Tuple, Union

from . import _check, _check_circuit
from ._circuit_gates import GateMethods
from .instruction import Condition, Instruction, Register

__all__ = ["Circuit"]


class Circuit(GateMethods):
    """An ordered list of gates, measurements, resets and barriers.

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

    def __init__(
        self, n_qubits: int, n_clbits: int = 0, *, registers: Optional[Iterable[Register]] = None
    ) -> None:
        self._n_qubits = _check.integer(n_qubits, "n_qubits", minimum=0)
        self._n_clbits = _check.integer(n_clbits, "n_clbits", minimum=0)
        if registers is None:
            self._registers = _default_registers(self._n_qubits, self._n_clbits)
        else:
            self._registers = _check_circuit.registers(registers, self._n_qubits, self._n_clbits)
        self._instructions: List[Instruction] = []
        self._condition: Optional[Condition] = None  # set inside `when`

    # --- What is in it ---

    @property
    def n_qubits(self) -> int:
        """Number of qubits."""
        return self._n_qubits

    @property
    def n_clbits(self) -> int:
        """Number of classical bits."""
        return self._n_clbits

    @property
    def registers(self) -> Tuple[Register, ...]:
        """Named registers, in the order of declaration."""
        return self._registers

    @property
    def instructions(self) -> Tuple[Instruction, ...]:
        """All instructions, as a copy that later additions do not change."""
        return tuple(self._instructions)

    def __len__(self) -> int:
        return len(self._instructions)

    def __bool__(self) -> bool:
        # A circuit without instructions is still a circuit.
        return True

    def __iter__(self) -> Iterator[Instruction]:
        return iter(self._instructions)

    def __getitem__(self, position: int) -> Instruction:
        return self._instructions[position]

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Circuit):
            return NotImplemented
        return (
            self._n_qubits == other._n_qubits
            and self._n_clbits == other._n_clbits
            and self._registers == other._registers
            and self._instructions == other._instructions
        )

    __hash__ = None  # type: ignore[assignment]  # circuits grow

    def __repr__(self) -> str:
        return (
            f"<Circuit: {_counted(self._n_qubits, 'qubit')}, "
            f"{_counted(self._n_clbits, 'classical bit')}, "
            f"{_counted(len(self), 'instruction')}>"
        )

    def __str__(self) -> str:
        return "\n".join(map(str, self._instructions))

    def copy(self) -> Circuit:
        """Return an independent circuit with the same content."""
        return Circuit._assembled(self._registers, list(self._instructions))

    # --- A gate without a name ---

    def matrix(
        self,
        matrix: Any,
        qubits: Union[int, Sequence[int]],
        controls: Union[int, Sequence[int]] = (),
        *,
        order: str = "big",
        unitary: bool = True,
    ) -> Circuit:
        """Add a gate given by its matrix.

        Parameters
        ----------
        matrix : array_like, shape (2**k, 2**k)
            Real or complex numbers, for k qubits.
        qubits : int or sequence of int
            The k targets.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.
        order : {"big", "little"}
            Which target is the highest bit of a row's number: the first listed
            ("big") or the last ("little").
        unitary : bool
            False accepts a matrix that does not keep the norm.

        Raises
        ------
        TypeError, IndexError
            As for `x`; also if the matrix does not hold numbers.
        ValueError
            If the shape does not fit, an entry is not finite, the matrix is not
            unitary, or qubits repeat.

        Examples
        --------
        >>> print(Circuit(3).matrix([[0, 1], [1, 0]], 2, controls=[0]))
        matrix[2x2] 2 controls 0
        """
        targets = _check.qubits(qubits, self._n_qubits)
        control_qubits = _check.controls(controls, targets, self._n_qubits)
        entries = _check.matrix(matrix, len(targets), unitary=unitary)
        if _check.order(order) == "little":
            targets = targets[::-1]
        return self._add("matrix", targets, tuple(entries.ravel().tolist()), control_qubits)

    # --- Instructions that are no gates ---

    def measure(
        self, qubits: Union[int, Sequence[int]], clbits: Union[int, Sequence[int]]
    ) -> Circuit:
        """Measure qubits in the Z basis, the i-th into the i-th classical bit.

        Raises
        ------
        TypeError, IndexError
            If a number is no integer, or not in the circuit.
        ValueError
            If a qubit or a bit is named twice, or the lists differ in length.

        Examples
        --------
        >>> print(Circuit(2, 2).measure([1, 0], [0, 1]))
        measure 1,0 -> 0,1
        """
        sources = _check.qubits(qubits, self._n_qubits)
        targets = _check.indices(clbits, self._n_clbits, "clbits", at_least=1)
        if len(sources) != len(targets):
            raise ValueError(
                f"clbits must name one bit for each qubit, got {len(targets)} for {len(sources)}"
            )
        return self._add("measure", sources, clbits=targets)

    def measure_all(self) -> Circuit:
        """Measure qubit i into classical bit i, for all qubits.

        A circuit without classical bits gets a register ``c`` of `n_qubits` bits.

        Raises
        ------
        ValueError
            If there are classical bits, but fewer than qubits.

        Examples
        --------
        >>> Circuit(2).h(0).measure_all()
        <Circuit: 2 qubits, 2 classical bits, 2 instructions>
        """
        if self._n_clbits == 0 and self._n_qubits:
            taken = {register.name for register in self._registers}
            name = next(word for word in ("c", "meas", "measured_bits") if word not in taken)
            self._registers += (Register(name, "classical", 0, self._n_qubits),)
            self._n_clbits = self._n_qubits
        if self._n_clbits < self._n_qubits:
            raise ValueError(
                f"n_clbits must be at least n_qubits = {self._n_qubits} to measure all qubits, "
                f"got {self._n_clbits}"
            )
        return self.measure(range(self._n_qubits), range(self._n_qubits))

    def reset(self, qubits: Union[int, Sequence[int]]) -> Circuit:
        """Put qubits into state 0. Errors as for `x`.

        >>> print(Circuit(2).reset([0, 1]))
        reset 0,1
        """
        return self._add("reset", _check.qubits(qubits, self._n_qubits))

    def barrier(self, *qubits: int) -> Circuit:
        """Mark a point that gates on `qubits` (all, if none is named) do not cross.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `x`; ValueError also inside `when`.

        >>> print(Circuit(2).barrier())
        barrier 0,1
        """
        if self._condition is not None:
            raise ValueError("barrier takes no condition: call it outside of when()")
        named = _check.qubits(qubits, self._n_qubits, at_least=0)
        return self._add("barrier", named or tuple(range(self._n_qubits)))

    @contextmanager
    def when(
        self, clbits: Union[str, int, Sequence[int]], value: int
    ) -> Iterator[Circuit]:
        """Let all instructions added inside act only if classical bits hold `value`.

        Parameters
        ----------
        clbits : str, int or sequence of int
            Name of a classical register, a bit, or bits from the lowest up.
        value : int
            From 0 to ``2**k - 1`` for k bits.

        Raises
        ------
        KeyError
            If there is no classical register of that name.
        TypeError, IndexError, ValueError
            If a bit or the value is of the wrong kind or out of range, or if
            the call stands inside another `when`.

        Examples
        --------
        >>> circuit = Circuit(2, 1).h(0).measure(0, 0)
        >>> with circuit.when("c", 1):
        ...     _ = circuit.x(1)
        >>> print(circuit[-1])
        X 1 if c[0] == 1
        """
        if self._condition is not None:
            raise ValueError("when() cannot stand inside another when(): join the bits in one call")
        bits = self._classical_bits(clbits)
        wanted = _check.integer(value, "value", minimum=0, maximum=2 ** len(bits) - 1)
        self._condition = Condition(bits, wanted)
        try:
            yield self
        finally:
            self._condition = None

    # --- Adding ready-made instructions, reading files ---

    def append(self, instruction: Instruction) -> Circuit:
        """Add an instruction after checking all of it.

        Inside `when`, the instruction must not carry a condition of its own.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the name is unknown, or numbers, qubits or bits do not fit.

        Examples
        --------
        >>> print(Circuit(2).append(Instruction("CNOT", (1, 0))))
        CNOT 1,0
        """
        checked = _check_circuit.instruction(instruction, self._n_qubits, self._n_clbits)
        if self._condition is not None:
            if checked.condition is not None or not checked.can_be_conditioned:
                raise ValueError(
                    f"instruction must be able to take the condition of when(), got {checked}"
                )
            checked = replace(checked, condition=self._condition)
        self._instructions.append(checked)
        return self

    @classmethod
    def from_qasm(cls, path_or_text: Union[str, os.PathLike[str]]) -> Circuit:
        """Read an OpenQASM 2 program.

        Parameters
        ----------
        path_or_text : str or path
            A ``str`` that contains "OPENQASM", a semicolon or a line end (or is
            blank) is the program itself, any other ``str`` and every path
            object names a file.

        Raises
        ------
        velacamplix.qasm.QasmError
            If the program is wrong; it tells line and column. A ``ValueError``.
        OSError
            If the file cannot be read.

        Examples
        --------
        >>> print(Circuit.from_qasm('''OPENQASM 2.0;
        ... include "qelib1.inc";
        ... qreg q[2];
        ... h q[0];
        ... cx q[0], q[1];'''))
        H 0
        CNOT 0,1
        """
        from .qasm import read_qasm

        return read_qasm(path_or_text)

    # --- Inner workings ---

    @classmethod
    def _assembled(
        cls, registers: Tuple[Register, ...], instructions: List[Instruction]
    ) -> Circuit:
        # For callers that have checked every part: copies and the QASM reader.
        circuit = cls(
            sum(register.size for register in registers if register.kind == "quantum"),
            sum(register.size for register in registers if register.kind == "classical"),
            registers=registers,
        )
        circuit._instructions = instructions
        return circuit

    def _add(
        self,
        name: str,
        qubits: Tuple[int, ...],
        params: Tuple[Union[float, complex], ...] = (),
        controls: Tuple[int, ...] = (),
        clbits: Tuple[int, ...] = (),
    ) -> Circuit:
        self._instructions.append(
            Instruction(name, qubits, params, controls, clbits, self._condition)
        )
        return self

    def _classical_bits(self, clbits: Union[str, int, Sequence[int]]) -> Tuple[int, ...]:
        if not isinstance(clbits, str):
            return _check.indices(clbits, self._n_clbits, "clbits", at_least=1)
        for register in self._registers:
            if register.kind == "classical" and register.name == clbits:
                return tuple(register.bits)
        names = [register.name for register in self._registers if register.kind == "classical"]
        raise KeyError(f"clbits must name a classical register, one of {names}, got {clbits!r}")


def _default_registers(n_qubits: int, n_clbits: int) -> Tuple[Register, ...]:
    registers = (Register("q", "quantum", 0, n_qubits), Register("c", "classical", 0, n_clbits))
    return tuple(register for register in registers if register.size)


def _counted(count: int, noun: str) -> str:
    return f"{count} {noun}" + ("" if count == 1 else "s")
