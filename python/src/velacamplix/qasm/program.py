"""The meaning of statements: registers, broadcasting, conditions, calls."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from typing import NamedTuple

from ..instructions.definition import GateDefinition, renamed, size
from ..instructions.instruction import Condition, Instruction, Register
from . import blocks, qelib1
from .definitions import Gate, check_names, check_operand_count, define, find, instructions
from .errors import fail, quoted, shortened
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

# No dense simulator comes near it; without a limit one line could ask for
# lists that fill the memory.
MOST_BITS = 1_000_000

#: Instructions a program may expand to. Ten nested definitions are enough to
#: describe more than any memory holds; this is a few gigabytes.
MOST_INSTRUCTIONS = 10_000_000


class Rows(NamedTuple):
    """The applications that one call stands for, one for each element of its registers."""

    n_operands: int
    qubits: tuple[tuple[int, ...], ...]


class Parts(NamedTuple):
    """What a circuit is made of, checked."""

    registers: tuple[Register, ...]
    instructions: list[Instruction]


class Program:
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
        self._include = include
        self._most_instructions = most_instructions
        self._spent = 0
        self._registers: dict[str, Register] = {}
        # The bits of each whole register, shared by all that speak of it.
        self._whole: dict[str, tuple[int, ...]] = {}
        self._n_bits = {"quantum": 0, "classical": 0}
        self._gates: dict[str, Gate] = dict(qelib1.LANGUAGE)
        self._instructions: list[Instruction] = []
        # Argument lists seen so far, and calls without parameters: both
        # return again and again in a large file, and mean the same each time.
        self._rows: dict[str, Rows] = {}
        self._definitions: dict[str, GateDefinition] = {}
        self._names: set[str] = set()  # of definitions, which are not the gates' own where the package knows these
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
        n_bits = integer(statement.size)
        start = self._n_bits[statement.kind]
        if start + n_bits > MOST_BITS:
            fail(f"integer too large: a program has at most {MOST_BITS} {statement.kind} bits", statement.size)
        name = str(statement.name)
        register = Register(name, statement.kind, start, n_bits)
        self._registers[name] = register
        self._whole[name] = tuple(register.bits)
        self._n_bits[statement.kind] += n_bits

    def _declare_gate(self, statement: GateDeclaration) -> None:
        self._check_new(statement.name)
        gate = define(statement, self._gates)
        definition = gate.definition
        if definition is not None:
            known = blocks.known(definition, self._definitions)
            if known is not None:
                name, _, called = known
                gate = gate._replace(call=known, size=size(Instruction(name, (), definition=called)))
            else:
                definition = renamed(definition, self._names)
                self._names.add(definition.name)
                gate = gate._replace(definition=definition)
            self._definitions[gate.name] = definition
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
        rows = self._rows_of(call.places)
        check_operand_count(call, gate, rows.n_operands)
        work = gate.size * len(rows.qubits)
        self._spend(work, call)
        if params:
            check_names(params, {})
        steps = instructions(gate, params, rows.qubits, condition)
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
        rows = self._rows.get(places.text)
        if rows is None:
            rows = self._rows[places.text] = self._new_rows(split(places))
        return rows

    def _new_rows(self, arguments: Sequence[Argument]) -> Rows:
        columns = [self._bits(argument, "quantum") for argument in arguments]
        n_rows, widest = 1, None
        for argument, column in zip(arguments, columns):
            if argument.element is None:
                if widest is not None and len(column) != n_rows:
                    fail(
                        f"registers {quoted(widest)} and {quoted(argument.register)} differ "
                        f"in size, {n_rows} and {len(column)}",
                        argument.register,
                    )
                n_rows, widest = len(column), argument.register
        full = [column * n_rows if len(column) != n_rows else column for column in columns]
        qubits = tuple(zip(*full))
        for row in qubits:
            if len(set(row)) < len(row):
                first = {qubit: position for position, qubit in reversed(list(enumerate(row)))}
                position = next(i for i, qubit in enumerate(row) if first[qubit] < i)
                repeated = arguments[position].register
                fail(f"a qubit of {quoted(repeated)} is named twice in one call", repeated)
        return Rows(len(arguments), qubits)

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

    def _spend(self, work: int, statement: Call | Measure | Reset | Barrier) -> None:
        self._spent += work
        if self._spent > self._most_instructions:
            if isinstance(statement, Call):
                token = statement.token
            else:
                token = split(statement.source if isinstance(statement, Measure) else statement.places)[0].register
            fail(f"the program expands to more than {self._most_instructions} instructions", token)
