"""Qiskit's importer of OpenQASM 3, kept from leaving anything out. It must be installed.

The importer builds a circuit of Qiskit's statement by statement. Here it notes which statement an instruction comes
from, keeps modifiers and gate definitions as they are instead of working them out, and hands every error on with its
place.
"""

from __future__ import annotations

import re
from typing import Any, NoReturn

from antlr4 import CommonTokenStream, InputStream
from antlr4.error.ErrorListener import ErrorListener
from openqasm3 import ast, parser
from qiskit.circuit import AnnotatedOperation, ControlModifier, InverseModifier, PowerModifier
from qiskit.circuit.library import GlobalPhaseGate
from qiskit_qasm3_import import ConversionError, types
from qiskit_qasm3_import.converter import ConvertVisitor
from qiskit_qasm3_import.data import Scope
from qiskit_qasm3_import.exceptions import raise_from_node
from qiskit_qasm3_import.expression import ValueResolver

from ..basics import checks
from ..instructions.instruction import Register
from .errors import QasmError
from .from_qiskit import DefinedGate, NotConverted, body_steps, definition_from_qiskit, parts_from_qiskit
from .program import MOST_BITS, Parts

_NOT_CARRIED_OUT = {
    ast.ForInLoop: "a for loop",
    ast.BreakStatement: "break",
    ast.ContinueStatement: "continue",
}
_WORD = re.compile(r"[^\W\d]\w*|[0-9.]+|\S")
_PLACE = re.compile(r"(\d+),(\d+): (.*)", re.DOTALL)
_PARSER_PLACE = re.compile(r"L(\d+):C(\d+): (.*)", re.DOTALL)
_VERSION = re.compile(r"(?:\s|//[^\n]*|/\*.*?\*/)*OPENQASM\s+([^\s;]+)", re.DOTALL)


def imported(text: str, path: str | None) -> Parts:
    """Return registers and instructions of an OpenQASM 3 program.

    Raises
    ------
    QasmError
        If it is wrong, or cannot be carried out exactly.
    """
    source = _Source(text, path)
    try:
        program = _parsed(source)
        reading = _Reading(source)
        state = reading.convert(program)
        try:
            return parts_from_qiskit(state.circuit, reading.registers(state.circuit))
        except NotConverted as error:
            source.fail_at(None if error.position is None else reading.statements[error.position], str(error))
    except RecursionError:
        raise source.error("nested more deeply than Qiskit's importer can follow", 1, 1) from None


class _Source:
    """The text, for errors that tell where."""

    def __init__(self, text: str, path: str | None) -> None:
        self.text = text
        self._path = path

    def error(self, message: str, line: int, column: int) -> QasmError:
        lines = self.text.split("\n")
        found = _WORD.match(lines[line - 1], column - 1) if line <= len(lines) else None
        return QasmError(message, line=line, column=column, path=self._path, text="" if found is None else found[0])

    def fail_at(self, node: ast.QASMNode | None, message: str) -> NoReturn:
        span = getattr(node, "span", None)
        line, column = (1, 1) if span is None else (span.start_line, span.start_column + 1)
        raise self.error(message, line, column) from None


def _parsed(source: _Source) -> ast.Program:
    version = _VERSION.match(source.text)
    if version is not None and not re.fullmatch(r"3(\.[0-9]+)?", version[1]):
        line = source.text.count("\n", 0, version.start(1)) + 1
        column = version.start(1) - source.text.rfind("\n", 0, version.start(1))
        raise source.error(f"this reader knows OpenQASM 3, not {version[1]}; Circuit.from_qasm reads 2.0", line, column)

    class Listener(ErrorListener):  # type: ignore[misc]
        def syntaxError(self, recognizer: Any, symbol: Any, line: int, column: int, message: str, error: Any) -> None:
            raise source.error(message, line, column + 1) from None

    # As openqasm3.parse does, but for errors, which it tells without a place or on standard error.
    lexer = parser.qasm3Lexer(InputStream(source.text))
    reader = parser.qasm3Parser(CommonTokenStream(lexer))
    for part in (lexer, reader):
        part.removeErrorListeners()
        part.addErrorListener(Listener())
    tree = reader.program()
    try:
        return parser.QASMNodeVisitor().visitProgram(tree)
    except parser.QASM3ParsingError as error:
        found = _PARSER_PLACE.fullmatch(str(error))
        line, column, message = (int(found[1]), int(found[2]) + 1, found[3]) if found else (1, 1, str(error))
        raise source.error(message, line, column) from None


class _Values(ValueResolver):  # type: ignore[misc]
    """Constants and bits, where the importer's arithmetic is not the language's."""

    def visit_BinaryExpression(self, node: ast.BinaryExpression) -> tuple[Any, Any]:
        value, kind = super().visit_BinaryExpression(node)
        if node.op.name == "/" and isinstance(value, int):
            left, right = self.visit(node.lhs)[0], self.visit(node.rhs)[0]
            if left % right and (left < 0) != (right < 0):
                value += 1  # towards zero
        return value, kind

    def visit_RangeDefinition(self, node: ast.RangeDefinition) -> tuple[Any, Any]:
        value, kind = super().visit_RangeDefinition(node)
        # Ranges of the language hold their end. What lies behind the last and before the first has no number in Python.
        forwards = value.step is None or value.step > 0
        if value.stop == (0 if forwards else -1):
            value = slice(value.start, None, value.step)
        return value, kind

    def _index_collection(self, collection: Any, kind: Any, indexer: Any, base: ast.QASMNode) -> tuple[Any, Any]:
        # Python cuts a range off where the bits end.
        found = super()._index_collection(collection, kind, indexer, base)
        for item in () if isinstance(indexer, ast.DiscreteSet) else indexer:
            for bound in (item.start, item.end) if isinstance(item, ast.RangeDefinition) else ():
                if bound is not None and not -len(collection) <= self.visit(bound)[0] < len(collection):
                    raise_from_node(base, f"a range must be within the {len(collection)} bits")
        return found


class _Reading(ConvertVisitor):  # type: ignore[misc]
    """The importer, statement by statement.

    Attributes
    ----------
    statements : list
        For each instruction of the circuit, the statement that made it.
    """

    def __init__(self, source: _Source) -> None:
        super().__init__()
        self._text = source
        self._body: Any = None  # of the gate that is being defined
        self._names: set[str] = set()  # of definitions
        self._named: dict[tuple[str, int], Register] = {}
        self.statements: list[Any] = []

    def registers(self, circuit: Any) -> list[Register] | None:
        """Return the registers under the names of the program; None if there are qubits without."""
        listed: list[Register] = []
        for kind, n_bits in (("quantum", circuit.num_qubits), ("classical", circuit.num_clbits)):
            place = 0
            while place < n_bits:
                register = self._named.get((kind, place))
                if register is None:  # a qubit of the hardware
                    return None
                listed.append(register)
                place += register.size
        return listed

    # --- Every statement ---

    def visit(self, node: ast.QASMNode, context: Any = None) -> Any:
        if not isinstance(node, (ast.Statement, ast.Pragma)):
            return super().visit(node, context)
        circuit = context.circuit
        before, qubits, clbits = len(circuit.data), circuit.num_qubits, circuit.num_clbits
        try:
            word = _NOT_CARRIED_OUT.get(type(node))
            if word is not None:
                raise NotConverted(f"{word} cannot be carried out")
            self._check_size(node, context)
            result = super().visit(node, context)
            if context.scope is Scope.GATE:
                self._body = circuit
                body_steps(circuit, before)
        except (QasmError, RecursionError):
            raise
        except ConversionError as error:
            found = _PLACE.fullmatch(str(error))
            if found is None:
                self._text.fail_at(node, str(error))
            raise self._text.error(found[3], int(found[1]), int(found[2]) + 1) from None
        except Exception as error:  # Qiskit's own, and those of wrong numbers
            told = error.args[0] if isinstance(error, KeyError) and error.args else error
            self._text.fail_at(node, str(told) or type(error).__name__)
        if context.scope is not Scope.GATE:
            self.statements += [node] * (len(circuit.data) - len(self.statements))
        self._name(node, "quantum", qubits, circuit.num_qubits)
        self._name(node, "classical", clbits, circuit.num_clbits)
        return result

    def _check_size(self, node: ast.Statement, context: Any) -> None:
        size = None
        if isinstance(node, ast.QubitDeclaration):
            size = node.size
        elif isinstance(node, ast.ClassicalDeclaration) and isinstance(node.type, ast.BitType):
            size = node.type.size
        if size is not None:
            n_bits = self._resolve_constant_int(size, context)
            if not 0 <= n_bits <= MOST_BITS:
                raise NotConverted(f"a register has at most {MOST_BITS} bits")

    def _name(self, node: ast.Statement, kind: str, before: int, after: int) -> None:
        word = getattr(node, "qubit" if kind == "quantum" else "identifier", None)
        if after > before and isinstance(node, (ast.QubitDeclaration, ast.ClassicalDeclaration)) and word is not None:
            self._named[kind, before] = Register(word.name, kind, before, after - before)

    def _resolve_condition(self, node: ast.Expression, context: Any) -> tuple[Any, Any]:
        bits, value = super()._resolve_condition(node, context)
        n_bits = len(bits) if hasattr(bits, "__len__") else 1
        if not 0 <= value < 2**n_bits:
            raise NotConverted(f"the condition can never hold: {n_bits} bit(s) do not become {checks.show(value)}")
        return bits, value

    # --- Values ---

    def _resolve_generic(self, node: ast.Expression, context: Any, *how: Any, **named: Any) -> tuple[Any, Any]:
        return _Values(context, *how, **named).resolve(node)

    # --- Gates ---

    def visit_QuantumGateDefinition(self, node: ast.QuantumGateDefinition, context: Any) -> Any:
        self._body = None
        context = super().visit_QuantumGateDefinition(node, context)
        symbol = context.symbol_table.get(node.name.name, node)
        params = [parameter.name for parameter in node.arguments]
        # Without a statement in the body nobody has seen it.
        body = symbol.data(*[0.0] * len(params)).definition if self._body is None else self._body
        definition = definition_from_qiskit(node.name.name, params, body, self._names)
        self._names.add(definition.name)

        symbol.data = lambda *values: DefinedGate(definition, body, values)
        return context

    def visit_QuantumGate(self, node: ast.QuantumGate, context: Any) -> Any:
        name = node.name.name
        symbol = context.symbol_table.get(name, node)
        if symbol is not None and isinstance(symbol.type, types.Gate):
            wanted = symbol.type.n_classical
            n = len(wanted) if isinstance(wanted, list) else wanted  # of U there is a list
            if len(node.arguments) != n:
                raise NotConverted(f"gate {name!r} takes {n} parameter(s), got {len(node.arguments)}")
        return super().visit_QuantumGate(node, context)

    def visit_QuantumPhase(self, node: ast.QuantumPhase, context: Any) -> Any:
        gate: Any = GlobalPhaseGate(self._resolve_angle(node.argument, context))
        for modifier in reversed(node.modifiers):
            gate = self._apply_gate_modifier(modifier, gate, context)
        listed = [self._resolve_qarg(qubit, context) for qubit in node.qubits]
        for qubits in self._broadcast_gate(listed, node) if listed else [()]:
            context.circuit.append(gate, qubits, [])
        return context

    def _apply_gate_modifier(self, modifier: ast.QuantumGateModifier, gate: Any, context: Any) -> AnnotatedOperation:
        name = modifier.modifier
        added: Any
        if name is ast.GateModifierName.inv:
            added = InverseModifier()
        elif name is ast.GateModifierName.pow:
            added = PowerModifier(self._resolve_constant_float(modifier.argument, context))
        else:
            n = 1 if modifier.argument is None else self._resolve_constant_int(modifier.argument, context)
            if not 1 <= n <= MOST_BITS:
                raise NotConverted(f"{name.name}({n}) must have from 1 to {MOST_BITS} controls")
            added = ControlModifier(n, 2**n - 1 if name is ast.GateModifierName.ctrl else 0)
        if isinstance(gate, AnnotatedOperation):
            return AnnotatedOperation(gate.base_op, [*gate.modifiers, added])
        return AnnotatedOperation(gate, [added])
