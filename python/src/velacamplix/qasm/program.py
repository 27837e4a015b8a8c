"""The meaning of statements: registers, broadcasting, conditions, calls."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from typing import NamedTuple

from ..instructions.instruction import Condition, Instruction, Register
from . import qelib1
from .definitions import check_names, check_operand_count, define, find, instructions
from .errors import fail, quoted, shortened
from .meaning import MOST_INSTRUCTIONS, Meaning, Operand, Parts, rows
from .source import Token
from .syntax import (
    Argument,
    Barrier,
    Call,
    Conditional,
    GateDeclaration,
    Include,
    Measure,
    Places,
    RegisterDeclaration,
    Reset,
    integer,
    split,
)


class Rows(NamedTuple):
    """The applications that one call stands for, one for each element of its registers."""

    n_operands: int
    qubits: tuple[tuple[int, ...], ...]


class Program(Meaning):
    """Takes statements in order and collects the circuit.

    Parameters
    ----------
    include : callable
        Called with the token of an ``include`` that is not qelib1.inc; must
        pass that file's statements to `run` before it returns.
    most_instructions : int
        A program that would expand to more raises `QasmError`, before it does.
    """

    def __init__(
        self, include: Callable[[Token], None], most_instructions: int = MOST_INSTRUCTIONS
    ) -> None:
        super().__init__(qelib1.LANGUAGE, most_instructions)
        self._include = include
        # The bits of each whole register, shared by all that speak of it.
        self._whole: dict[str, tuple[int, ...]] = {}
        self._instructions: list[Instruction] = []
        # Argument lists seen so far, and calls without parameters: both
        # return again and again in a large file, and mean the same each time.
        self._rows: dict[str, Rows] = {}
        self._conditions: dict[tuple[str, int], Condition] = {}
        self._known_calls: dict[tuple[str, str], tuple[tuple[Instruction, ...], int]] = {}

    def parts(self) -> Parts:
        """Return registers and instructions of all statements so far."""
        return Parts(tuple(self._registers.values()), self._instructions)

    def run(self, statements: Iterable[object]) -> None:
        """Take the statements of one file."""
        for statement in statements:
            if isinstance(statement, Call):
                self._instructions.extend(self._call(statement))
            elif isinstance(statement, (Measure, Reset)):
                self._instructions.extend(self._operation(statement))
            elif isinstance(statement, Conditional):
                self._instructions.extend(self._conditional(statement))
            elif isinstance(statement, Barrier):
                self._instructions.extend(self._barrier(statement))
            elif isinstance(statement, RegisterDeclaration):
                self._declare_register(statement)
            elif isinstance(statement, GateDeclaration):
                self._declare_gate(statement)
            elif isinstance(statement, Include):
                self._include_file(statement)

    # --- Declarations ---

    def _declare_register(self, statement: RegisterDeclaration) -> None:
        self._check_new(statement.name)
        register = self._add_register(str(statement.name), statement.kind, integer(statement.size), statement.size)
        self._whole[register.name] = tuple(register.bits)

    def _declare_gate(self, statement: GateDeclaration) -> None:
        self._check_new(statement.name)
        gate = self._kept(define(statement, self._gates))
        self._gates[gate.name] = gate

    def _include_file(self, statement: Include) -> None:
        if statement.path != '"qelib1.inc"':
            self._include(statement.path)
            return
        for name, gate in qelib1.GATES.items():
            known = self._gates.get(name)
            if known is gate:  # included before
                continue
            if known is None and name not in self._registers:
                self._gates[name] = gate
            elif not gate.can_be_replaced:
                fail(f"{name!r} is declared here and was declared before", statement.path)

    def _check_new(self, name: Token) -> None:
        if name in self._registers:
            fail(f"{quoted(name)} is already declared", name)
        gate = self._gates.get(name)
        if gate is None:
            return
        if not gate.can_be_replaced:
            fail(f"{quoted(name)} is already declared", name)
        # The program's own meaning from here on; earlier uses keep the old one.
        del self._gates[name]
        self._known_calls.clear()

    # --- Operations ---

    def _call(self, call: Call, condition: Condition | None = None) -> Sequence[Instruction]:
        params = call.params
        key = (call.name, call.places.text)
        if not params and condition is None:
            known = self._known_calls.get(key)
            if known is not None:
                self._spend(known[1], call)
                return known[0]
        gate = find(call, self._gates)
        if gate.opaque is not None:
            fail(f"gate {quoted(gate.opaque)} is opaque: it has no body to execute", call.token)
        found = self._rows_of(call.places)
        check_operand_count(call, gate.n_qubits, found.n_operands)
        work = gate.size * len(found.qubits)
        self._spend(work, call)
        if params:
            check_names(params, {})
        steps = instructions(gate, params, found.qubits, condition)
        if not params and condition is None:
            self._known_calls[key] = (steps, work)
        return steps

    def _operation(
        self, operation: Call | Measure | Reset, condition: Condition | None = None
    ) -> Sequence[Instruction]:
        if isinstance(operation, Call):
            return self._call(operation, condition)
        if isinstance(operation, Reset):
            (argument,) = split(operation.places)
            qubits = self._bits(argument, "quantum")
            self._spend(len(qubits), operation)
            return (Instruction("reset", qubits, condition=condition),) if qubits else ()
        (source,), (target,) = split(operation.source), split(operation.target)
        qubits = self._bits(source, "quantum")
        clbits = self._bits(target, "classical")
        if (source.element is None) != (target.element is None) or len(qubits) != len(clbits):
            fail(
                f"measure needs two bits or two registers of one size, got {len(qubits)} and {len(clbits)} bits",
                target.register,
            )
        self._spend(len(qubits), operation)
        return (Instruction("measure", qubits, (), (), clbits, condition),) if qubits else ()

    def _conditional(self, statement: Conditional) -> Iterable[Instruction]:
        register = self._register(statement.register, "classical")
        value = integer(statement.value)
        if value.bit_length() > register.size:
            fail(
                f"integer too large: register {quoted(register.name)} has {register.size} bits, "
                f"the condition can never hold",
                statement.value,
            )
        if register.size == 0:  # holds 0 and nothing else
            return self._operation(statement.operation)
        return self._operation(statement.operation, self._condition(register, value))

    def _condition(self, register: Register, value: int) -> Condition:
        key = (register.name, value)
        condition = self._conditions.get(key)
        if condition is None:
            condition = self._conditions[key] = Condition(self._whole[register.name], value)
        return condition

    def _barrier(self, statement: Barrier) -> Sequence[Instruction]:
        arguments = split(statement.places)
        listed = [bit for argument in arguments for bit in self._bits(argument, "quantum")]
        self._spend(len(listed), statement)
        return (Instruction("barrier", tuple(dict.fromkeys(listed))),) if listed else ()

    # --- Arguments ---

    def _rows_of(self, places: Places) -> Rows:
        found = self._rows.get(places.text)
        if found is None:
            arguments = split(places)
            operands = [Operand(item.register, self._bits(item, "quantum"), item.element is not None) for item in arguments]
            found = self._rows[places.text] = Rows(len(operands), rows(operands))
        return found

    def _bits(self, argument: Argument, kind: str) -> tuple[int, ...]:
        register = self._register(argument.register, kind)
        if argument.element is None:
            return self._whole[register.name]
        if argument.element >= register.size:
            fail(
                f"index {shortened(str(argument.element))} is outside of register "
                f"{quoted(register.name)} of size {register.size}",
                argument.register,
            )
        return (register.start + argument.element,)

    def _register(self, name: Token, kind: str) -> Register:
        register = self._registers.get(name)
        if register is None:
            fail(f"unknown register {quoted(name)}", name)
        if register.kind != kind:
            fail(f"{quoted(name)} is a {register.kind} register, expected a {kind} one", name)
        return register

    def _token_of(self, statement: Call | Measure | Reset | Barrier) -> Token:
        if isinstance(statement, Call):
            return statement.token
        return split(statement.source if isinstance(statement, Measure) else statement.places)[0].register
