"""Writes circuits as OpenQASM 3."""

from __future__ import annotations

import re
from collections.abc import Iterable, Iterator, Mapping, Sequence
from itertools import groupby
from typing import Any

from ..basics import checks
from ..instructions.condition import AnyCondition, CompoundCondition
from ..instructions.definition import GateDefinition, ordered
from ..instructions.flow import If, Switch, While, leaves
from ..instructions.gates import GATES
from ..instructions.instruction import BY_ENTRIES, LEAVING, Instruction, Register
from . import stdgates
from .blocks import block
from .names import Names
from .syntax import MOST_DIGITS
from .syntax3 import RESERVED, is_name
from .values3 import CONSTANTS, FUNCTIONS
from .writer import formal_names, formal_qubits, free_name, number_text, places

_HEADER = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'
_WORDS = {"^": "**", **{short: word for word, short in FUNCTIONS.items()}}
_JOINTS = {"and": " && ", "or": " || ", "xor": " ^ "}

# By instruction and number of controls. Where there are two names for a gate, the newer one.
_CALLS: dict[tuple[str, int], str] = {
    (gate.step, gate.n_controls): name
    for name, gate in reversed([*stdgates.LANGUAGE.items(), *stdgates.GATES.items()])
    if gate.step is not None
}
_CALLS["gphase", 0] = "gphase"

# Gates that are the inverse of one that has a name.
_INVERSES: dict[str, str] = {
    gate.name: _CALLS[gate.inverse(())[0], 0]
    for gate in GATES.values()
    if gate.n_params == 0 and gate.inverse is not None and (gate.inverse(())[0], 0) in _CALLS
}

_NOT_FOR_NAMES = RESERVED | set(CONSTANTS) | set(FUNCTIONS) | set(stdgates.GATES) | set(stdgates.LANGUAGE)


def write_qasm3(circuit: Any) -> str:
    """Return the program of a circuit; see `Circuit.to_qasm3`."""
    return _Writer(circuit).text()


class _Writer:
    def __init__(self, circuit: Any) -> None:
        self._circuit = circuit
        self._registers: tuple[Register, ...] = circuit.registers
        self._named = {"quantum": places(self._registers, "quantum"), "classical": places(self._registers, "classical")}
        self._owners = {
            kind: [(r, place) for r in self._registers if r.kind == kind for place in range(r.size)] for kind in self._named
        }
        self._aliases: dict[tuple[str, tuple[int, ...]], str] = {}
        self._names: dict[int, str] = {}  # of definitions, by id
        self._inputs: dict[str, str] = {}
        self._free = Names({register.name for register in self._registers} | _NOT_FOR_NAMES)

    def text(self) -> str:
        for register in self._registers:
            if not is_name(register.name) or register.name in _NOT_FOR_NAMES:
                raise ValueError(
                    f"register {checks.show(register.name)} cannot be written in OpenQASM 3: a name must begin with a letter "
                    "or underscore, go on with these and digits, and be no word and no gate of the language"
                )
        for param in self._circuit.parameters:
            self._inputs[param] = self._free_name(param, "p_")
        steps = self._circuit.instructions
        definitions = ordered(self._blocks_of(leaves(steps)), lambda definition: self._blocks_of(definition.body))
        for definition in definitions:
            self._names[id(definition)] = self._free_name(definition.name, "g_")
        gates = [self._gate_block(definition) for definition in definitions]
        body = [line for position, step in enumerate(steps) for line in self._told(step, position)]
        words = {"quantum": "qubit", "classical": "bit"}
        lines = [f"input float[64] {name};" for name in self._inputs.values()]
        lines += gates
        lines += [f"{words[register.kind]}[{register.size}] {register.name};" for register in self._registers]
        lines += [f"let {alias} = {self._pieces(kind, bits)};" for (kind, bits), alias in self._aliases.items()]
        return _HEADER + "".join([line + "\n" for line in [*lines, *body]])

    def _free_name(self, wanted: str, prefix: str) -> str:
        return free_name(re.sub(r"\W", "_", wanted), is_name, prefix, self._free)

    # --- Gates ---

    def _blocks_of(self, steps: Iterable[Instruction]) -> Iterator[GateDefinition]:
        for step in steps:
            definition = self._block_of(step) if step.is_gate else None
            if definition is not None:
                yield definition

    def _block_of(self, step: Instruction) -> GateDefinition | None:
        """Return the definition that a gate is a call of, or None if stdgates.inc has the gate."""
        if step.definition is not None:
            return step.definition
        if (step.name, 0) in _CALLS or step.name in _INVERSES or step.name in BY_ENTRIES:
            return None
        return block(step.name, 0)

    def _gate_block(self, definition: GateDefinition) -> str:
        formals = formal_names(definition.params, is_name, RESERVED | set(CONSTANTS))
        qubits = formal_qubits(definition.n_qubits, formals.values())
        params = f"({', '.join(formals.values())})" if formals else ""
        body = [self._call(step, qubits, formals, f"gate {checks.show(definition.name)}") for step in definition.body]
        head = f"gate {self._names[id(definition)]}{params} {', '.join(qubits)}"
        return f"{head} {{ {' '.join(body)} }}".replace("{  }", "{ }")

    def _call(self, step: Instruction, qubits: Sequence[str], formals: Mapping[str, str], where: str) -> str:
        if step.name == "barrier" and step.definition is None:
            return f"barrier {', '.join([qubits[q] for q in step.qubits])};" if step.qubits else ""
        values = step.control_values or "1" * len(step.controls)
        definition = self._block_of(step)
        if definition is not None:
            name = self._names[id(definition)]
        elif step.name in BY_ENTRIES:
            raise ValueError(
                f"{where} ({step}) cannot be written in OpenQASM 3: it has no gates given by their entries, and a "
                "decomposition would change the bits"
            )
        elif (step.name, len(values)) in _CALLS and not step.control_values:
            name, values = _CALLS[step.name, len(values)], ""
        else:
            name = _CALLS.get((step.name, 0)) or f"inv @ {_INVERSES[step.name]}"
        controls = ""
        for value, run in groupby(values):
            n_controls = len(list(run))
            controls += f"{'ctrl' if value == '1' else 'negctrl'}{f'({n_controls})' if n_controls > 1 else ''} @ "
        params = f"({', '.join([number_text(value, formals, _WORDS) for value in step.params])})" if step.params else ""
        operands = ", ".join([qubits[q] for q in step.controls + step.qubits])
        return f"{controls}{name}{params}{' ' * bool(operands)}{operands};"

    # --- Statements ---

    def _told(self, step: Instruction, position: int) -> Iterator[str]:
        """Iterate over the lines of an instruction; those of its bodies are moved to the right."""
        when = "" if step.condition is None else f"if ({self._condition(step.condition)}) "
        detail = step.detail
        if isinstance(detail, (If, While, Switch)):
            lines = self._decision(detail, position)
            yield from _in_braces(when.rstrip(), lines) if when else lines
        elif step.is_gate:
            yield when + self._call(step, self._named["quantum"], self._inputs, f"instruction {position}")
        elif step.name == "barrier":
            if step.qubits:
                whole = self._one_register("quantum", step.qubits)
                yield f"barrier {whole or ', '.join([self._named['quantum'][q] for q in step.qubits])};"
        elif step.name == "reset":
            yield f"{when}reset {self._place('quantum', step.qubits)};"
        elif step.name in LEAVING:
            yield f"{when}{step.name};"
        elif step.name == "measure" and not step.is_noise:
            yield f"{when}{self._place('classical', step.clbits)} = measure {self._place('quantum', step.qubits)};"
        else:
            lacks = "noise; write the circuit without it" if step.is_noise else step.name
            if step.name == "store":
                lacks = "place here for bits that no measurement writes"
            raise ValueError(f"instruction {position} ({step.title}) cannot be written in OpenQASM 3: it has no {lacks}")

    def _decision(self, detail: If | While | Switch, position: int) -> Iterator[str]:
        bodies = [[line for step in body for line in self._told(step, position)] for body in detail.bodies]
        if isinstance(detail, Switch):
            cases = [f"case {', '.join([self._digits(value) for value in values])}" for values, _ in detail.cases]
            if bodies[-1] or not cases:
                cases.append("default")
            if len(cases) == 1 and cases[0] == "default":  # a switch must have a case
                yield from _in_braces("", bodies[-1])
                return
            inside = [line for case, body in zip(cases, bodies) for line in _in_braces(case, body)]
            yield from _in_braces(f"switch (int({self._place('classical', detail.clbits)}))", inside)
            return
        word = "if" if isinstance(detail, If) else "while"
        yield from _in_braces(f"{word} ({self._condition(detail.condition)})", bodies[0])
        if isinstance(detail, If) and detail.otherwise:
            yield from _in_braces("else", bodies[1])

    def _condition(self, condition: AnyCondition) -> str:
        if isinstance(condition, CompoundCondition):
            if condition.word == "not":
                return f"!({self._condition(condition.parts[0])})"
            parts = [self._condition(part) for part in condition.parts]
            for number, part in enumerate(condition.parts):
                if len(parts) > 1 and (isinstance(part, CompoundCondition) or " " in parts[number]):
                    parts[number] = f"({parts[number]})"
            return _JOINTS[condition.word].join(parts)
        place = self._place("classical", condition.clbits)
        if len(condition.clbits) == 1 and condition.comparison == "==":
            return place if condition.value else f"!{place}"
        if condition.comparison in ("==", "!=") and len(condition.clbits) > 64:
            return f'{place} {condition.comparison} "{condition.value:0{len(condition.clbits)}b}"'
        return f"{place} {condition.comparison} {self._digits(condition.value)}"

    def _digits(self, value: int) -> str:
        # A digit holds a little more than three bits.
        if value.bit_length() > 3 * MOST_DIGITS:
            raise ValueError(
                f"a number of {value.bit_length()} bits in a condition cannot be written in OpenQASM 3: it could not be read "
                f"again, at most {3 * MOST_DIGITS} bits can"
            )
        return str(value)

    # --- Places ---

    def _place(self, kind: str, bits: tuple[int, ...]) -> str:
        """Return what the program calls these qubits or bits together."""
        found = self._named[kind][bits[0]] if len(bits) == 1 else self._one_register(kind, bits)
        if found is None:
            found = self._aliases.get((kind, bits))
        if found is None:
            found = self._aliases[kind, bits] = self._free_name("qubits" if kind == "quantum" else "bits", "")
        return found

    def _one_register(self, kind: str, bits: tuple[int, ...]) -> str | None:
        """Return a register, or a part of one, that is these bits in this order."""
        owners = [self._owners[kind][bit] for bit in bits]
        if len({register.name for register, _ in owners}) != 1:
            return None
        register, listed = owners[0][0], [place for _, place in owners]
        if listed == list(range(register.size)):
            return register.name
        if len(listed) > 1 and listed == list(range(listed[0], listed[-1] + 1)):
            return f"{register.name}[{listed[0]}:{listed[-1]}]"
        return f"{register.name}[{{{', '.join(map(str, listed))}}}]"

    def _pieces(self, kind: str, bits: tuple[int, ...]) -> str:
        """Return these bits as registers, or parts of them, one behind the other."""
        pieces = groupby(bits, lambda bit: self._owners[kind][bit][0].name)
        return " ++ ".join([self._one_register(kind, tuple(piece)) or "" for _, piece in pieces])


def _in_braces(head: str, body: Iterable[str]) -> Iterator[str]:
    yield f"{head} {{".lstrip()
    for line in body:
        yield "  " + line
    yield "}"
