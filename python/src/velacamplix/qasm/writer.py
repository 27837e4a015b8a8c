"""Writes circuits as OpenQASM 2."""

from __future__ import annotations

import math
import re
from collections.abc import Callable, Container, Iterable, Iterator, Mapping
from itertools import chain
from typing import Any

from ..basics import checks
from ..instructions.condition import Condition
from ..instructions.definition import GateDefinition, ordered
from ..instructions.expression import Expression
from ..instructions.expression_text import text as expression_text
from ..instructions.flow import conditioned
from ..instructions.instruction import BY_ENTRIES, DETAILED, LEAVING, Instruction, Register
from . import qelib1
from .blocks import MOST_CONTROLS, MOST_INSIDE, block, controlled, library_block, plain, sayable
from .lexicon import NAME, RESERVED
from .names import Names
from .syntax import MOST_DIGITS

_is_name = re.compile(NAME).fullmatch
_HEADER = 'OPENQASM 2.0;\ninclude "qelib1.inc";\n'

# By instruction and number of controls. Where qelib1.inc has two names for a gate, the older one, which more readers
# know.
_CALLS: dict[tuple[str, int], str] = {
    (gate.step, gate.n_controls): name
    for name, gate in reversed([*qelib1.GATES.items(), *qelib1.LANGUAGE.items()])
    if gate.step is not None
}
_CALLS["u", 0] = "U"
_CALLS["CNOT", 0] = "cx"

# Angles people write as fractions of pi, if reading the fraction gives the same bits.
_FRACTIONS: dict[float, str] = {}
for _denominator in (64, 32, 16, 12, 8, 6, 5, 4, 3, 2, 1):
    for _numerator in range(1, 2 * _denominator + 1):
        _words = ("pi" if _numerator == 1 else f"{_numerator}*pi") + ("" if _denominator == 1 else f"/{_denominator}")
        _FRACTIONS[_numerator * math.pi / _denominator] = _words


def write_qasm(circuit: Any, definitions: bool = True) -> str:
    """Return the program of a circuit; see `Circuit.to_qasm`."""
    circuit._require_bound()
    return _Writer(circuit, definitions).text()


class _Writer:
    def __init__(self, circuit: Any, definitions: bool) -> None:
        self._circuit = circuit
        self._defined = qelib1.LATER if definitions else {}  # gates of qelib1.inc that are not taken for granted
        self._registers: tuple[Register, ...] = circuit.registers
        self._qubits = places(self._registers, "quantum")
        self._clbits = places(self._registers, "classical")
        self._ranges = {(r.kind, tuple(r.bits)): r.name for r in self._registers if r.size}
        self._names: dict[int, str] = {}  # of definitions, by id
        self._library: set[str] = set()  # names of qelib1.inc that are used

    def text(self) -> str:
        for register in self._registers:
            self._check_register(register)
        said = _said_by_conditions(self._circuit.instructions)
        listed = [(position, part) for position, step in said for part in sayable(step)]
        steps = [plain(step) if step.is_gate else step for _, step in listed]
        for step, (position, raw) in zip(steps, listed):
            if not self._qubits and raw.is_gate:
                raise ValueError(f"instruction {position} cannot be written in OpenQASM 2: a phase there needs a qubit")
            _check_can_be_said(step, f"instruction {position}", raw, len(raw.controls) <= MOST_CONTROLS)
        needed = ordered(self._blocks_of(steps, None), lambda definition: self._blocks_of(definition.body, definition))
        self._give_names(needed)
        lines = [_HEADER]
        lines.extend(self._gate_block(definition) for definition in needed)
        for register in self._registers:
            lines.append(f"{'qreg' if register.kind == 'quantum' else 'creg'} {register.name}[{register.size}];\n")
        for step, (position, _) in zip(steps, listed):
            lines.extend(self._statements(step, position))
        return "".join(lines)

    # --- Names ---

    def _check_register(self, register: Register) -> None:
        name = register.name
        if not _is_name(name) or name in RESERVED:
            raise ValueError(
                f"register {checks.show(name)} cannot be written in OpenQASM 2: a name must begin with a small letter, go on with "
                "letters, digits and underscores, and be no word of the language"
            )
        gate = qelib1.GATES.get(name)
        if gate is not None and not gate.can_be_replaced:
            raise _name_of_a_gate(name)

    def _blocks_of(self, steps: Any, owner: GateDefinition | None) -> Iterator[GateDefinition]:
        """Iterate over the gate blocks that steps call, and note which names of qelib1.inc they use."""
        for raw in chain.from_iterable(map(sayable, steps)):
            if not raw.is_gate:
                continue
            step = plain(raw)
            if owner is not None:
                _check_can_be_said(step, f"gate {checks.show(owner.name)}", raw, len(step.controls) <= MOST_INSIDE)
            definition = self._block_of(step)
            if definition is not None:
                if step.definition is not None and step.controls:
                    yield step.definition  # so that the reader knows what the block is a controlled form of
                yield definition
            name = None if step.definition is not None else _CALLS.get((step.name, len(step.controls)))
            if name is not None:
                self._library.add(name)

    def _block_of(self, step: Instruction) -> GateDefinition | None:
        """Return the block that a gate is a call of, or None if qelib1.inc has the gate."""
        if step.definition is not None:
            return controlled(step.definition, len(step.controls)) if step.controls else step.definition
        name = _CALLS.get((step.name, len(step.controls)))
        if name is None:
            return block(step.name, len(step.controls))
        return library_block(name) if name in self._defined else None

    def _give_names(self, definitions: list[GateDefinition]) -> None:
        registers = {register.name for register in self._registers}
        for name in sorted(registers & self._library):
            raise _name_of_a_gate(name)
        library = {name for name, gate in qelib1.GATES.items() if not gate.can_be_replaced}
        names = Names(registers | RESERVED | self._library | library)
        for definition in definitions:
            if definition.name in self._defined and definition is library_block(definition.name):
                self._names[id(definition)] = definition.name
            else:
                self._names[id(definition)] = free_name(definition.name, _is_name, "g_", names)

    # --- Statements ---

    def _gate_block(self, definition: GateDefinition) -> str:
        formals = formal_names(definition.params, _is_name, RESERVED)
        qubits = formal_qubits(definition.n_qubits, formals.values())
        head = f"gate {self._names[id(definition)]}"
        if formals:
            head += f"({','.join(formals.values())})"
        body = [self._call(part, qubits, formals) for step in definition.body for part in sayable(step)]
        return f"{head} {','.join(qubits)} {{ {' '.join(body)} }}\n".replace("{  }", "{ }")

    def _call(self, raw: Instruction, qubits: Any, formals: Mapping[str, str]) -> str:
        step = plain(raw) if raw.is_gate else raw
        if step.name == "barrier" and step.definition is None:
            return f"barrier {','.join([qubits[q] for q in step.qubits])};" if step.qubits else ""
        definition = self._block_of(step)
        name = self._names[id(definition)] if definition is not None else _CALLS[step.name, len(step.controls)]
        params = f"({','.join([number_text(value, formals) for value in step.params])})" if step.params else ""
        return f"{name}{params} {','.join([qubits[q] for q in step.controls + step.qubits])};"

    def _statements(self, step: Instruction, position: int) -> Iterator[str]:
        when = self._condition(step, position)
        if step.is_gate:
            yield f"{when}{self._call(step, self._qubits, {})}\n"
            return
        register = self._ranges.get(("quantum", step.qubits))
        if step.name == "barrier":
            if step.qubits:
                listed = register or ",".join([self._qubits[q] for q in step.qubits])
                yield f"barrier {listed};\n"
        elif step.name == "reset":
            for place in [register] if register else [self._qubits[q] for q in step.qubits]:
                yield f"{when}reset {place};\n"
        else:
            target = self._ranges.get(("classical", step.clbits))
            if register and target:
                yield f"{when}measure {register} -> {target};\n"
                return
            read = step.condition.clbits if step.condition is not None else ()
            if len(step.qubits) > 1 and set(step.clbits).intersection(read):
                raise ValueError(
                    f"instruction {position} ({step}) cannot be written in OpenQASM 2: it would be several "
                    "measurements, and the first would change what the others depend on"
                )
            for q, c in zip(step.qubits, step.clbits):
                yield f"{when}measure {self._qubits[q]} -> {self._clbits[c]};\n"

    def _condition(self, step: Instruction, position: int) -> str:
        if step.condition is None:
            return ""
        condition = step.condition
        if not isinstance(condition, Condition) or condition.comparison != "==":
            raise ValueError(
                f"instruction {position} ({step}) cannot be written in OpenQASM 2: a condition there is == of one register"
            )
        register = self._ranges.get(("classical", condition.clbits))
        if register is None:
            raise ValueError(
                f"instruction {position} ({step}) cannot be written in OpenQASM 2: a condition there reads a whole "
                "register; give its bits a register of their own"
            )
        # A digit holds a little more than three bits.
        if condition.value.bit_length() > 3 * MOST_DIGITS:
            raise ValueError(
                f"instruction {position} cannot be written in OpenQASM 2: the value of its condition has more than "
                f"{3 * MOST_DIGITS} bits and could not be read again"
            )
        return f"if({register}=={condition.value}) "


def _said_by_conditions(instructions: Iterable[Instruction]) -> Iterator[tuple[int, Instruction]]:
    """Iterate over positions and instructions, in place of a plain if over those of its body under its condition."""
    for position, step in enumerate(instructions):
        parts = None if step.detail is None else conditioned(step)
        for part in [step] if parts is None else parts:
            yield position, part


def _name_of_a_gate(register: str) -> ValueError:
    return ValueError(f"register {checks.show(register)} cannot be written in OpenQASM 2: a gate has that name")


def _check_can_be_said(step: Instruction, where: str, raw: Instruction, has_block: bool) -> None:
    if step.is_noise:
        reason = "it has no noise; write the circuit without it"
        raise ValueError(f"{where} ({raw.title}) cannot be written in OpenQASM 2: {reason}")
    if step.name in DETAILED or step.name in LEAVING:
        reason = f"it has no {step.name}" + ("" if step.name == "save" else "; loops and decisions are written out by hand there")
        raise ValueError(f"{where} ({raw.title}) cannot be written in OpenQASM 2: {reason}")
    if not step.is_gate:
        return
    if step.definition is None and step.name in BY_ENTRIES:
        reason = "it has no gates given by their entries, and a decomposition would change the global phase or the bits"
    elif not has_block:
        reason = f"more than {MOST_CONTROLS} controls would take tens of thousands of its gates"
    else:
        return
    raise ValueError(f"{where} ({raw}) cannot be written in OpenQASM 2: {reason}")


def free_name(wanted: str, is_name: Callable[[str], Any], prefix: str, names: Names) -> str:
    """Return a name that the language allows and nothing else has, like the one that is wanted, and take it."""
    if not is_name(wanted):
        wanted = prefix + re.sub(r"[^A-Za-z0-9_]", "_", wanted)
    return names.free(wanted)


def formal_names(params: tuple[str, ...], is_name: Callable[[str], Any], reserved: Container[str]) -> dict[str, str]:
    """Return names that the language allows for a definition's parameters."""
    names: dict[str, str] = {}
    for param in params:
        name = param if is_name(param) and param not in reserved else "p"
        number = 1
        while name in names.values() or (name != param and name in params):
            number += 1
            name = f"p_{number}"
        names[param] = name
    return names


def formal_qubits(n_qubits: int, taken: Container[str]) -> list[str]:
    """Return names for a definition's qubits."""
    prefix = "q"
    while any([f"{prefix}{i}" in taken for i in range(n_qubits)]):
        prefix += "q"
    return [f"{prefix}{i}" for i in range(n_qubits)]


def places(registers: tuple[Register, ...], kind: str) -> list[str]:
    """Return what every qubit or bit is called."""
    return [f"{r.name}[{i}]" for r in registers if r.kind == kind for i in range(r.size)]


def number_text(value: Any, formals: Mapping[str, str], words: Mapping[str, str] = {}) -> str:
    """Return an angle as both versions write it; `words` are those that the language has for operations."""
    if isinstance(value, Expression):
        return expression_text(value, _digits, compact=True, names=formals, words=words)
    fraction = _FRACTIONS.get(abs(value))
    if fraction is not None:
        return fraction if value > 0 else "-" + fraction
    return _digits(value)


def _digits(value: float) -> str:
    # All digits; always with a point, which old readers need before an exponent.
    digits = repr(value)
    mantissa, exponent_mark, exponent = digits.partition("e")
    return digits if "." in mantissa else f"{mantissa}.0{exponent_mark}{exponent}"
