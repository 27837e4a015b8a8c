"""The meaning of OpenQASM 3: what is known is carried out while reading, what waits for measurements goes into the circuit."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Iterator
from contextlib import contextmanager
from dataclasses import replace
from typing import Any

from ..instructions import checked, flow
from ..instructions.definition import GateDefinition
from ..instructions.expression import Expression, Parameter
from ..instructions.flow import flow_step
from ..instructions.instruction import Instruction, Register
from . import stdgates, syntax3
from .definitions import DeclaredGate, check_operand_count, find, instructions, positions
from .errors import fail, quoted, shortened
from .expressions import folded, is_open
from .meaning import BITS_OF_AN_INSTRUCTION, MOST_BITS, MOST_INSTRUCTIONS, Operand, Parts, rows
from .modifiers import controlled, inverse, power
from .names import Names
from .source import Token
from .syntax3 import BitText, Block, Call, Indexed, Measurement, Members, Range
from .values3 import CONSTANTS, Clbits, Known, Qubits, Values


# Characters of a loop's body that are as much work as an instruction.
_LENGTH_OF_AN_INSTRUCTION = 100


class _Leaving(Exception):
    """break, continue or end."""

    def __init__(self, token: Token) -> None:
        super().__init__()
        self.token = token


class Program(Values):
    """Takes statements in order and collects the circuit.

    Parameters
    ----------
    include : callable
        Called with the token of an ``include`` that is not stdgates.inc; must pass that file's statements to `run` before
        it returns.
    most_instructions : int
        A program that would expand to more raises `QasmError`, before it does.
    """

    def __init__(self, include: Callable[[Token], None], most_instructions: int = MOST_INSTRUCTIONS) -> None:
        super().__init__(stdgates.LANGUAGE, most_instructions)
        self._include = include
        self._steps: list[Instruction] = []
        self._depth = 0  # of decisions and loops that wait for measurements
        # Those that are carried out here, each with the depth it stands in; None is one that a measurement decides.
        self._loops: list[int | None] = []
        self._local: dict[int, tuple[Any, Clbits]] = {}  # bits declared in braces, which are the same each time
        self._n_physical = 0
        self._has_ended = False

    def parts(self) -> Parts:
        """Return registers and instructions of all statements so far."""
        if self._n_physical:
            self._registers["q "] = Register("q ", "quantum", 0, self._n_physical)
        # Those that have no name of their own have a blank in it until all others are known.
        names = Names(self._registers)
        listed = self._registers.values()
        registers = [replace(r, name=names.free(r.name.split()[0])) if " " in r.name else r for r in listed]
        return Parts(tuple(registers), self._steps)

    def run(self, statements: Iterable[Any]) -> None:
        """Take the statements of one file."""
        for statement in statements:
            if self._has_ended:
                return
            try:
                self._do(statement)
            except _Leaving:  # the end; others have been refused
                self._has_ended = True

    def _do(self, statement: Any) -> None:
        if self._owner is not None and not isinstance(statement, _IN_GATES):
            fail(f"this cannot stand in the body of a gate, {quoted(self._owner)}", _token_of(statement))
        _HANDLERS[type(statement)](self, statement)

    def _token_of(self, statement: Any) -> Token:
        return _token_of(statement)

    # --- Blocks ---

    @contextmanager
    def _scope(self) -> Iterator[None]:
        self._scopes.append({})
        try:
            yield
        finally:
            self._scopes.pop()

    def _block(self, block: Block) -> None:
        with self._scope():
            for statement in block.statements:
                self._do(statement)

    def _inside(self, block: Block | None) -> tuple[Instruction, ...]:
        """Return what a body becomes that may act or not when the circuit runs."""
        if block is None:
            return ()
        outside, self._steps = self._steps, []
        self._depth += 1
        try:
            self._block(block)
            return tuple(self._steps)
        finally:
            self._steps = outside
            self._depth -= 1

    # --- Declarations ---

    @property
    def _is_global(self) -> bool:
        return len(self._scopes) == 2 and self._depth == 0

    def _require_global(self, what: str, token: Token) -> None:
        if not self._is_global:
            fail(f"{what} must be declared outside of all braces", token)

    def _new(self, name: Token, meaning: Any) -> None:
        if len(self._scopes) == 2 and name in self._gates:
            fail(f"{quoted(name)} is already declared, as a gate", name)
        if name in self._scopes[-1] or name in CONSTANTS:
            fail(f"{quoted(name)} is already declared", name)
        self._scopes[-1][str(name)] = meaning

    def _include_file(self, statement: syntax3.Include) -> None:
        self._require_global("what a file holds", statement.path)
        if statement.path == '"qelib1.inc"':
            fail('the gates of OpenQASM 3 are in "stdgates.inc"', statement.path)
        if statement.path != '"stdgates.inc"':
            self._include(statement.path)
            return
        for name, gate in stdgates.GATES.items():
            if name in self._scopes[1] or self._gates.get(name, gate) is not gate:
                fail(f"{name!r} is declared here and was declared before", statement.path)
        self._gates.update(stdgates.GATES)

    def _declare_bits(self, statement: syntax3.Bits) -> None:
        name, kind = statement.name, statement.kind
        if kind == "quantum":
            self._require_global("qubits", name)
            if self._n_physical:
                fail("a program has either qubits of the hardware, $0 and so on, or its own", name)
        known = self._local.get(id(statement))
        if known is not None:
            bits: Any = known[1]
        else:
            n_bits = 1
            if statement.size is not None:
                n_bits = self.integer(statement.size, name, "the size of a register")
                if not 0 <= n_bits <= MOST_BITS:
                    fail(f"a register has at most {MOST_BITS} bits, got {shortened(str(n_bits))}", name)
            own = str(name) if self._is_global else f"{name} {self._n_bits[kind]}"
            numbers = tuple(self._add_register(own, kind, n_bits, name).bits)
            bits = (Qubits if kind == "quantum" else Clbits)(numbers, statement.size is None)
            if not self._is_global:
                self._local[id(statement)] = statement, bits
        self._new(name, bits)
        if isinstance(statement.value, Measurement):
            self._measure(bits, name, statement.value)
        elif statement.value is not None:
            value = self.value(statement.value)
            if value not in (0, BitText("0" * len(bits.bits))) or not self._is_global:
                fail(
                    f"bits are 0 at the beginning and get other values from measurements; {quoted(name)} cannot be set", name
                )

    def _declare_variable(self, statement: syntax3.Variable) -> None:
        if isinstance(statement.value, Measurement):
            fail("a measurement goes into bits, as in bit c = measure q;", statement.name)
        value, size = None, self.size(statement.type)
        if statement.value is not None:
            value = self.converted(self.value(statement.value), statement.type, size, False)
            if statement.is_const and isinstance(value, Expression):
                fail("a constant cannot depend on an input, which gets its value later", statement.name)
        self._new(statement.name, Known(statement.type, size, value, statement.is_const, self._depth))

    def _declare_input(self, statement: syntax3.Input) -> None:
        self._require_global("an input", statement.name)
        if statement.type.kind not in ("float", "angle"):
            fail("an input must be a float or an angle: a circuit has parameters for angles alone", statement.type.kind)
        self.size(statement.type)
        self._new(statement.name, Known(None, None, Parameter(str(statement.name)), False, 0))

    def _declare_alias(self, statement: syntax3.Alias) -> None:
        parts = [self.value(part) for part in statement.parts]
        kind = type(parts[0])
        if kind not in (Qubits, Clbits) or any([type(part) is not kind for part in parts]):
            fail("let gives a name to qubits or to classical bits", statement.name)
        bits = tuple([bit for part in parts for bit in part.bits])
        self._spend(len(bits) // BITS_OF_AN_INSTRUCTION, statement.name)
        if len(set(bits)) < len(bits):
            fail("a bit is named twice", statement.name)
        self._new(statement.name, parts[0] if len(parts) == 1 else kind(bits, False))

    def _declare_gate(self, statement: syntax3.GateDeclaration) -> None:
        name = statement.name
        self._require_global("a gate", name)
        if name in self._scopes[1] or name in self._gates:
            fail(f"{quoted(name)} is already declared", name)
        params, qubits = positions(statement.params, "parameter"), positions(statement.qubits, "qubit")
        for qubit in statement.qubits:
            if qubit in params:
                fail(f"{quoted(qubit)} is both a parameter and a qubit", qubit)
        outside, self._steps = self._steps, []
        self._owner = name
        self._scopes.append({param: Known(None, None, Parameter(param), True, 0) for param in params})
        self._scopes[-1].update({qubit: Qubits((slot,), True) for qubit, slot in qubits.items()})
        for step in statement.body:
            self._do(step)
        try:
            definition = GateDefinition.checked(str(name), tuple(params), len(qubits), tuple(self._steps))
        except ValueError as error:
            fail(str(error), name)
        self._scopes.pop()
        self._owner, self._steps = None, outside
        gate = DeclaredGate(str(name), tuple(params), len(qubits), definition, definition.size, None)
        self._gates[gate.name] = self._kept(gate)

    # --- Gates ---

    def _call(self, call: Call) -> None:
        if call.name == "gphase":
            if len(call.params) != 1:
                fail(f"gphase takes 1 parameter, got {len(call.params)}", call.token)
            gate, n_own = None, 0
        else:
            if call.name == self._owner:
                fail(f"gate {quoted(call.name)} is used in its own definition", call.name)
            gate = find(call, self._gates, "stdgates.inc", stdgates.GATES)
            n_own = gate.n_qubits
        params = tuple([self.angle(value, call.name) for value in call.params])
        modifiers = [self._modifier(word, value) for word, value in reversed(call.modifiers)]
        n_qubits = n_own + sum([number for word, number in modifiers if word in ("ctrl", "negctrl")])
        operands = [self._operand(node) for node in call.operands]
        if modifiers and len(operands) != n_qubits:
            fail(f"{call.name!s} with its controls takes {n_qubits} qubit(s), got {len(operands)}", call.token)
        check_operand_count(call, n_qubits, len(operands))
        listed = rows(operands) if operands else ((),)
        self._spend((1 if gate is None or self._owner is not None else gate.size) * len(listed), call)
        if gate is not None and not modifiers:
            self._steps.extend(instructions(gate, params, listed))
            return
        for row in listed:
            start = n_qubits - n_own  # of what the modifiers so far act on
            own = [Instruction("gphase", (), params)] if gate is None else list(instructions(gate, params, (row[start:],)))
            try:
                for word, number in modifiers:
                    if word == "inv":
                        own = inverse(own)
                    elif word == "pow":
                        own = power(own, number, row[start:])
                    else:
                        start -= number
                        own = controlled(own, row[start : start + number], str(int(word == "ctrl")) * number)
            except ValueError as error:
                fail(str(error), call.token)
            self._spend(len(own), call)
            self._steps += own

    def _modifier(self, word: Token, argument: Any) -> tuple[str, Any]:
        if word in ("ctrl", "negctrl"):
            number = 1 if argument is None else self.integer(argument, word, f"the number of controls in {word!s}()")
            if not 1 <= number <= MOST_BITS:
                fail(f"{word!s}({shortened(str(number))}) must have from 1 to {MOST_BITS} controls", word)
            return str(word), number
        if (argument is None) is (word == "pow"):
            fail("pow(k) has a number, inv has none", word)
        if word == "inv":
            return "inv", 0
        exponent = self.angle(argument, word)
        if isinstance(exponent, Expression):
            fail("pow(k) needs a number that is known, not one that depends on an input or parameter", word)
        return "pow", exponent

    # --- Operations ---

    def _measure(self, target: Any, token: Token, measurement: Measurement) -> None:
        if self._owner is not None:
            fail(f"a measurement cannot stand in the body of a gate, {quoted(self._owner)}", measurement.token)
        qubits = self._operand(measurement.qubits).bits
        if not isinstance(target, Clbits):
            fail(f"{quoted(token)} cannot take the outcome of a measurement: that goes into bits", token)
        if len(qubits) != len(target.bits):
            n_bits = len(target.bits)
            fail(f"measure needs as many bits as qubits, got {len(qubits)} qubit(s) and {n_bits} bit(s)", token)
        self._spend(len(qubits), token)
        if qubits:
            self._steps.append(Instruction("measure", qubits, (), (), target.bits))

    def _assign(self, statement: syntax3.Assignment) -> None:
        target, value, token = statement.target, statement.value, statement.operator
        if target is None:
            fail("the outcome of a measurement needs a place: c = measure q;", token)
        name = _token_of(target)
        found = self._find(name)
        if isinstance(value, Measurement):
            self._measure(self.value(target) if isinstance(target, Indexed) else found, name, value)
            return
        if isinstance(found, Clbits):
            fail("classical bits get their values from measurements; a condition may ask for several of them", name)
        if not isinstance(found, Known) or isinstance(target, Indexed):
            fail(f"{quoted(name)} cannot be set", name)
        if found.is_const or found.type is None:
            fail(f"{quoted(name)} is a constant or an input and cannot be set", name)
        if found.depth < self._depth:
            fail(f"{quoted(name)} is set where a measurement decides: it must have one value while the program is read", name)
        result = self.value(value)
        if token != "=":
            result = folded(self.value(name), [(str(token)[:-1], token, result)], self._made, is_open)
        found.value = self.converted(result, found.type, found.size, False)

    def _reset(self, statement: syntax3.Reset) -> None:
        qubits = self._operand(statement.qubits).bits
        self._spend(len(qubits), statement)
        if qubits:
            self._steps.append(Instruction("reset", qubits))

    def _barrier(self, statement: syntax3.Barrier) -> None:
        listed = [bit for node in statement.operands for bit in self._operand(node).bits]
        if not statement.operands:
            listed = list(range(self._n_qubits))
        self._spend(len(listed), statement)
        if listed:
            self._steps.append(Instruction("barrier", tuple(dict.fromkeys(listed))))

    def _nothing(self, statement: syntax3.Nothing) -> None:
        for node in statement.operands:
            self._operand(node)

    # --- Decisions and loops ---

    def _if(self, statement: syntax3.If) -> None:
        condition = self.condition(statement.condition, statement.token)
        if isinstance(condition, bool):
            chosen = statement.body if condition else statement.otherwise
            if chosen is not None:
                self._block(chosen)
            return
        self._require_circuit(statement.token)
        body, otherwise = self._inside(statement.body), self._inside(statement.otherwise)
        if not statement.body.in_braces and statement.otherwise is None:
            # Each asks for itself, so none but the last may change what it reads.
            alone = [step for step in body if step.can_be_conditioned and step.condition is None and step.detail is None]
            written = [bit for step in body[:-1] for bit in step.clbits]
            if len(alone) == len(body) and set(condition.clbits).isdisjoint(written):
                self._steps += [step._replace(condition=condition) for step in body]
                return
        self._decide(lambda: flow.If(condition, body, otherwise), statement.token)

    def _while(self, statement: syntax3.While) -> None:
        condition = self.condition(statement.condition, statement.token)
        if not isinstance(condition, bool):
            self._require_circuit(statement.token)
            self._loops.append(None)
            body = self._inside(statement.body)
            self._loops.pop()

            def loop() -> flow.While:
                made = flow.While(condition, body)
                checked.require_end(made)
                return made

            self._decide(loop, statement.token)
            return

        def is_next() -> bool:
            found = self.condition(statement.condition, statement.token)
            if not isinstance(found, bool):
                fail("a measurement decides whether this loop goes on, but not from its first round on", statement.token)
            return found

        self._repeat(iter(is_next, False), statement.body, statement.token, lambda value: None)

    def _for(self, statement: syntax3.For) -> None:
        kind, size, token = statement.type, self.size(statement.type), statement.token
        values: Iterable[Any]
        if isinstance(statement.values, Range):
            start, stop = statement.values.start, statement.values.stop
            if start is None or stop is None:
                fail("the range of a loop needs a start and an end", statement.values.token)
            numbers = [self.integer(item, statement.values.token, "the bound of a range") for item in (start, stop)]
            step = 1 if statement.values.step is None else self.integer(statement.values.step, token, "the step of a range")
            if step == 0:
                fail("the step of a range must not be 0", statement.values.token)
            values = range(numbers[0], numbers[1] + (1 if step > 0 else -1), step)
        elif isinstance(statement.values, Members):
            values = [self.value(item) for item in statement.values.values]
        else:
            fail("a loop goes over a range [0:3] or over values {1, 2}", token)

        def declare(value: Any) -> None:
            self._new(statement.name, Known(kind, size, self.converted(value, kind, size, False), False, self._depth))

        self._repeat(values, statement.body, token, declare)

    def _repeat(self, values: Iterable[Any], body: Block, token: Token, declare: Callable[[Any], None]) -> None:
        self._loops.append(self._depth)
        for value in values:
            self._spend(1 + body.length // _LENGTH_OF_AN_INSTRUCTION, token)
            try:
                with self._scope():
                    declare(value)
                    self._block(body)
            except _Leaving as leaving:
                if leaving.token == "end":
                    raise
                if leaving.token == "break":
                    break
        self._loops.pop()

    def _leave(self, statement: syntax3.Leave) -> None:
        token = statement.token
        if token != "end" and not self._loops:
            fail(f"{token!s} stands in no loop", token)
        if token == "end" and self._owner is not None:
            fail(f"end cannot stand in the body of a gate, {quoted(self._owner)}", token)
        around = 0 if token == "end" else self._loops[-1]
        if around is None:
            self._steps.append(Instruction(str(token), ()))
            return
        if around < self._depth:
            fail(f"{token!s} where a measurement decides is not carried out: put it into conditions", token)
        raise _Leaving(token)

    def _switch(self, statement: syntax3.Switch) -> None:
        value = self.value(statement.value)
        token = statement.token
        cases = [([self._case(item, token) for item in items], block) for items, block in statement.cases]
        if isinstance(value, Clbits):
            self._require_circuit(token)
            self._spend(len(value.bits) // BITS_OF_AN_INSTRUCTION, token)
            bodies = [self._inside(block) for _, block in cases]
            default = self._inside(statement.default)

            def choice() -> flow.Switch:
                bits, numbers = checked.switch_values(value.bits, [items for items, _ in cases], self._n_bits["classical"])
                return flow.Switch(bits, tuple(zip(numbers, bodies)), default)

            self._decide(choice, token)
            return
        if type(value) is not int:
            fail("a switch needs an integer or a register of classical bits", token)
        chosen = next((block for items, block in cases if value in items), statement.default)
        if chosen is not None:
            self._block(chosen)

    def _case(self, node: Any, token: Token) -> int:
        value = self.value(node)
        return int(value.text, 2) if isinstance(value, BitText) else self.integer(value, token, "a case")

    def _require_circuit(self, token: Token) -> None:
        if self._owner is not None:
            fail(f"a measurement cannot decide in the body of a gate, {quoted(self._owner)}", token)

    def _decide(self, make: Callable[[], flow.If | flow.While | flow.Switch], token: Token) -> None:
        self._spend(1, token)
        try:
            self._steps.append(flow_step(make()))
        except ValueError as error:
            fail(str(error), token)

    # --- Qubits ---

    @property
    def _n_qubits(self) -> int:
        if self._owner is not None:
            return len([item for item in self._scopes[2].values() if isinstance(item, Qubits)])
        return self._n_bits["quantum"] + self._n_physical

    def _operand(self, node: Any) -> Operand:
        value, token = self.value(node), _token_of(node)
        if not isinstance(value, Qubits):
            fail(f"{quoted(token)} is no qubit and no register of qubits", token)
        return Operand(token, value.bits, value.is_one)

    def _find(self, name: Token) -> Any:
        if name[:1] != "$":
            return super()._find(name)
        number = int(name[1:]) if len(name) < 9 else MOST_BITS
        if self._n_bits["quantum"] or self._owner is not None:
            fail("a program has either qubits of the hardware, $0 and so on, or its own", name)
        if number >= MOST_BITS:
            fail(f"a program has at most {MOST_BITS} quantum bits", name)
        self._n_physical = max(self._n_physical, number + 1)
        return Qubits((number,), True)


def _token_of(node: Any) -> Token:
    """Return where a statement or an expression may be pointed at."""
    while not isinstance(node, Token):
        node = node.token if isinstance(node, Call) else node.name if isinstance(node, syntax3.Bits) else node[0]
    return node


_HANDLERS: dict[type, Callable[[Program, Any], None]] = {
    syntax3.Include: Program._include_file, syntax3.Bits: Program._declare_bits, syntax3.Variable: Program._declare_variable,
    syntax3.Input: Program._declare_input, syntax3.Alias: Program._declare_alias, syntax3.GateDeclaration: Program._declare_gate,
    syntax3.Call: Program._call, syntax3.Assignment: Program._assign, syntax3.Reset: Program._reset,
    syntax3.Barrier: Program._barrier, syntax3.Nothing: Program._nothing, syntax3.If: Program._if, syntax3.While: Program._while,
    syntax3.For: Program._for, syntax3.Switch: Program._switch, syntax3.Leave: Program._leave, syntax3.Block: Program._block,
}  # fmt: skip

_IN_GATES = (
    Call, syntax3.Barrier, syntax3.Nothing, syntax3.If, syntax3.For, syntax3.While, syntax3.Switch, syntax3.Block,
    syntax3.Variable, syntax3.Assignment, syntax3.Leave,
)  # fmt: skip
