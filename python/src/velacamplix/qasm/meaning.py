"""What programs of both versions mean alike: registers, gates by name, calls on whole registers, and work that is counted."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence
from typing import Any, NamedTuple

from ..instructions.definition import GateDefinition, renamed, size
from ..instructions.instruction import Instruction, Register
from . import blocks
from .definitions import DeclaredGate, Gate
from .errors import fail, quoted
from .source import Token

# No dense simulator comes near it; without a limit one line could ask for
# lists that fill the memory.
MOST_BITS = 1_000_000

#: Instructions a program may expand to. Ten nested definitions are enough to
#: describe more than any memory holds; this is a few gigabytes.
MOST_INSTRUCTIONS = 10_000_000

#: To pick so many bits of a register is as much work as an instruction: what a loop repeats must end too.
BITS_OF_AN_INSTRUCTION = 64


class Parts(NamedTuple):
    """What a circuit is made of, checked."""

    registers: tuple[Register, ...]
    instructions: list[Instruction]


class Operand(NamedTuple):
    """What a call stands on: one qubit, or several for as many gates; `token` is where it is named."""

    token: Token
    bits: tuple[int, ...]
    is_one: bool


class Meaning:
    """Base of those who take statements in order and collect a circuit.

    Parameters
    ----------
    gates : mapping
        Those that need no declaration.
    most_instructions : int
        A program that would expand to more raises `QasmError`, before it does.
    """

    #: Where a statement begins, or what it is about.
    _token_of: Callable[[Any], Token]

    def __init__(self, gates: Mapping[str, Gate], most_instructions: int) -> None:
        self._gates = dict(gates)
        self._most_instructions = most_instructions
        self._spent = 0
        self._registers: dict[str, Register] = {}
        self._n_bits = {"quantum": 0, "classical": 0}
        self._definitions: dict[str, GateDefinition] = {}
        self._names: set[str] = set()  # of definitions, which are not the gates' own where the package knows these

    def _add_register(self, name: str, kind: str, n_bits: int, token: Token) -> Register:
        start = self._n_bits[kind]
        if start + n_bits > MOST_BITS:
            fail(f"integer too large: a program has at most {MOST_BITS} {kind} bits", token)
        register = self._registers[name] = Register(name, kind, start, n_bits)
        self._n_bits[kind] += n_bits
        return register

    def _kept(self, gate: DeclaredGate) -> DeclaredGate:
        """Return a declared gate as calls of it mean it: another gate if it is just that one's block."""
        definition = gate.definition
        if definition is None:
            return gate
        known = blocks.known(definition, self._definitions)
        if known is not None:
            name, _, called = known
            gate = gate._replace(call=known, size=size(Instruction(name, (), definition=called)))
        else:
            definition = renamed(definition, self._names)
            self._names.add(definition.name)
            gate = gate._replace(definition=definition)
        self._definitions[gate.name] = definition
        return gate

    def _spend(self, work: int, statement: Any) -> None:
        """Count what a statement makes, and refuse what is too much."""
        self._spent += work
        if self._spent > self._most_instructions:
            fail(f"the program expands to more than {self._most_instructions} instructions", self._token_of(statement))


def rows(operands: Sequence[Operand]) -> tuple[tuple[int, ...], ...]:
    """Return the applications that a call stands for, one for each element of its registers."""
    n_rows, widest = 1, None
    for operand in operands:
        if not operand.is_one:
            if widest is not None and len(operand.bits) != n_rows:
                names = f"{quoted(widest)} and {quoted(operand.token)}"
                fail(f"registers {names} differ in size, {n_rows} and {len(operand.bits)}", operand.token)
            n_rows, widest = len(operand.bits), operand.token
    listed = tuple(zip(*[operand.bits * n_rows if operand.is_one else operand.bits for operand in operands]))
    for row in listed:
        if len(set(row)) < len(row):
            first = {qubit: position for position, qubit in reversed(list(enumerate(row)))}
            repeated = operands[next(i for i, qubit in enumerate(row) if first[qubit] < i)].token
            fail(f"a qubit of {quoted(repeated)} is named twice in one call", repeated)
    return listed
