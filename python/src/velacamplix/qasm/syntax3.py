"""From the text of an OpenQASM 3 program to statements, by functions that call each other as the language's rules do."""

from __future__ import annotations

import re
from array import array
from collections.abc import Callable, Sequence
from sys import intern
from typing import Any, NamedTuple, NoReturn

from .errors import fail
from .expressions import POWER, Operators
from .lexicon import unexpected
from .source import Source, Token
from .syntax import MOST_DIGITS

#: Statements inside each other.
MOST_LEVELS = 50

TYPES = frozenset("bit bool int uint float angle".split())

#: Words that cannot be names.
RESERVED = TYPES | frozenset(
    "OPENQASM include defcalgrammar def cal defcal gate extern box let break continue if else end return for while in "
    "switch case default nop pragma input output const readonly mutable qreg qubit creg complex array void duration "
    "stretch gphase inv pow ctrl negctrl durationof delay reset measure barrier true false im".split()
)

# What readers of this language know, and what to do about it here.
_REFUSED = {
    "def": "subroutines (def) are not carried out: write the statements where they are called, or make a gate of them",
    "extern": "functions from outside (extern) are not known here: write the value instead",
    "return": "there is no subroutine to return from",
    "cal": "calibrations (cal) are not carried out: leave them away, gates are exact",
    "defcal": "calibrations (defcal) are not carried out: leave them away, gates are exact",
    "defcalgrammar": "calibrations (defcalgrammar) are not carried out: leave them away, gates are exact",
    "duration": "timing (duration) is not carried out: leave it away, or write the number where it is needed",
    "stretch": "timing (stretch) is not carried out: leave it away",
    "array": "arrays are not carried out: give each element a name, or loop over the values: for float x in {0.1, 0.2}",
    "complex": "complex numbers are not carried out: write their parts as float",
    "pragma": "a pragma is not carried out: leave it away",
    "#": "a pragma is not carried out: leave it away",
    "@": "an annotation is not carried out: leave it away",
    "opaque": "a gate without a body (opaque) cannot be executed: give it one, with gate",
    "OPENQASM": "the version stands in the first statement alone",
}

_TOKEN = re.compile(
    r"[ \t\r\n\f]*(?:("
    r"(?:0[xX][0-9a-fA-F_]+|0[oO][0-7_]+|0[bB][01_]+|(?:[0-9][0-9_]*(?:\.[0-9_]*)?|\.[0-9][0-9_]*)(?:[eE][+-]?[0-9]+)?)"
    r"(?:[ \t]*(?:dt|ns|us|µs|μs|ms|s|im)(?!\w))?"
    r"|\$[0-9]+|[^\W\d]\w*|\"[^\"\r\n]*\""
    r"|->|[=!<>]=|<<=|>>=|\*\*=|&&|\|\||<<|>>|\*\*|\+\+|[-+*/%&|^~]=|.)|\Z)",
    re.DOTALL,
)
_NUMBER = re.compile(r"(0[xX][0-9a-fA-F_]+|0[oO][0-7_]+|0[bB][01_]+|[0-9._]+(?:[eE][+-]?[0-9]+)?)[ \t]*(.*)")
_VERSION = re.compile(r"[0-9]+(?:\.[0-9]+)?")
_LETTERS = re.compile(r"\w+")
_DIGITS = frozenset("0123456789")
_BASES = frozenset("xXoObB")
_SYMBOLS = frozenset("+-*/%&|^~!<>=@()[]{},;:.#")
_ASSIGNMENTS = frozenset("= += -= *= /= %= **= <<= >>= &= |= ^=".split())
_MODIFIERS = frozenset("ctrl negctrl inv pow".split())

_SIGNS = frozenset("-!~")
_OPERAND = ["'('", "'-'", "a name", "a number"]


# --- Values and what is calculated of them. A name is its token, a number is itself. ---


class BitText(NamedTuple):
    """Bits in quotes, the highest first."""

    text: str


class Duration(NamedTuple):
    """A number with a unit of time."""

    token: Token


class Signed(NamedTuple):
    """Signs in front of a value: - ! ~."""

    signs: list[Token]
    value: Any


class Chain(NamedTuple):
    """Operators of one rank: what comes first, and each operator with what is behind it."""

    first: Any
    rest: list[tuple[str, Token, Any]]


class Function(NamedTuple):
    name: Token
    arguments: list[Any]


class Type(NamedTuple):
    kind: Token
    size: Any


class Cast(NamedTuple):
    type: Type
    value: Any


class Range(NamedTuple):
    token: Token
    start: Any
    step: Any
    stop: Any


class Members(NamedTuple):
    """Values in braces."""

    token: Token
    values: list[Any]


class Indexed(NamedTuple):
    """A part of what has a name, or a part of a part."""

    token: Token
    indices: list[Any]


# --- Statements ---


class Include(NamedTuple):
    path: Token


class Block(NamedTuple):
    """`length` is that of its text."""

    statements: list[Any]
    in_braces: bool
    length: int


class Bits(NamedTuple):
    """Qubits or classical bits get a name; without a size it is one of them, not a register."""

    kind: str  # "quantum" or "classical"
    name: Token
    size: Any
    value: Any


class Variable(NamedTuple):
    type: Type
    name: Token
    value: Any
    is_const: bool


class Input(NamedTuple):
    type: Type
    name: Token


class Alias(NamedTuple):
    name: Token
    parts: list[Any]


class GateDeclaration(NamedTuple):
    name: Token
    params: list[Token]
    qubits: list[Token]
    body: list[Any]


class Call(NamedTuple):
    """A gate; `modifiers` are words with what stands in their parentheses, None for nothing."""

    name: Token
    modifiers: list[tuple[Token, Any]]
    params: list[Any]
    operands: list[Any]

    @property
    def token(self) -> Token:
        """Where it begins."""
        return self.modifiers[0][0] if self.modifiers else self.name


class Measurement(NamedTuple):
    token: Token
    qubits: Any


class Assignment(NamedTuple):
    """Also a measurement with an arrow; `target` is None where nothing takes the outcome."""

    target: Any
    operator: Token
    value: Any


class Reset(NamedTuple):
    token: Token
    qubits: Any


class Barrier(NamedTuple):
    token: Token
    operands: list[Any]


class Nothing(NamedTuple):
    """A delay or a nop: qubits wait."""

    token: Token
    time: Any
    operands: list[Any]


class If(NamedTuple):
    token: Token
    condition: Any
    body: Block
    otherwise: Block | None


class While(NamedTuple):
    token: Token
    condition: Any
    body: Block


class For(NamedTuple):
    token: Token
    type: Type
    name: Token
    values: Any
    body: Block


class Switch(NamedTuple):
    token: Token
    value: Any
    cases: list[tuple[list[Any], Block]]
    default: Block | None


class Leave(NamedTuple):
    """break, continue or end."""

    token: Token


class Syntax(Operators):
    """Reads the statements of one file.

    Attributes
    ----------
    version : Token or None
        What the file says to be written in.
    """

    ranks = {
        "||": 1, "&&": 2, "|": 3, "^": 4, "&": 5, "==": 6, "!=": 6, "<": 7, "<=": 7, ">": 7, ">=": 7, "<<": 8, ">>": 8,
        "+": 9, "-": 9, "*": 10, "/": 10, "%": 10, "**": POWER,
    }  # fmt: skip

    def __init__(self, source: Source) -> None:
        self._source = source
        self._starts = array("Q")
        words: list[str] = []
        for found in _TOKEN.finditer(source.text):
            if found[1] is None:
                break
            words.append(intern(found[1]))
            self._starts.append(found.start(1))
        super().__init__([*words, ""])
        self._starts.append(len(source.text))
        self._levels = 0
        self.version: Token | None = None

    def read(self) -> list[Any]:
        """Return all statements, in order.

        Raises
        ------
        QasmError
            At the first place that is not OpenQASM 3.
        """
        if self._skipped("OPENQASM"):
            if not _VERSION.fullmatch(self._word):
                self._fail(["a version"])
            self.version = self._advance()
            if not re.fullmatch(r"3(\.[0-9]+)?", self.version):
                hint = "; Circuit.from_qasm reads 2.0" if self.version in ("2", "2.0") else ""
                fail(f"this reader knows OpenQASM 3, not {self.version!s}{hint}", self.version)
            self._symbol(";")
        return self._statements("")

    # --- Statements ---

    def _statements(self, end: str, is_one: bool = False) -> list[Any]:
        """Step over statements up to their end, or over one."""
        statements: list[Any] = []
        while not is_one or not statements:
            while not is_one and self._skipped(";"):
                pass
            if self._word == end and not is_one:
                self.at += 1
                break
            reader = _READERS.get(self._word)
            statements.append(self._other(self._word) if reader is None else reader(self))
        return statements

    def _other(self, word: str) -> Any:
        if word in _REFUSED:
            fail(_REFUSED[word], self.token(self.at))
        if word in TYPES:
            return self._declaration(False)
        if word in _MODIFIERS or word == "gphase":
            return self._call()
        if not is_name(word) or word in RESERVED:
            self._fail(["a statement"])
        following = self.words[self.at + 1]
        return self._assignment() if following in _ASSIGNMENTS or following == "[" else self._call()

    def _ended(self, statement: Any) -> Any:
        self._symbol(";")
        return statement

    def _include(self) -> Include:
        self.at += 1
        if self._word[:1] != '"':
            self._fail(["a file name in quotes"])
        return self._ended(Include(self._advance()))  # type: ignore[no-any-return]

    def _block(self) -> Block:
        """Step over the body of a loop or decision: one statement, or several in braces."""
        self._levels += 1
        if self._levels > MOST_LEVELS:
            fail(f"statements may be nested at most {MOST_LEVELS} deep: make a gate of the inner ones", self.token(self.at))
        start, in_braces = self._starts[self.at], self._skipped("{")
        statements = self._statements("}", not in_braces)
        block = Block(statements, in_braces, self._starts[self.at] - start)
        self._levels -= 1
        return block

    def _braces(self) -> Block:
        if self._word != "{":
            self._fail(["'{'"])
        return self._block()

    def _size(self) -> Any:
        if not self._skipped("["):
            return None
        size = self.expression()
        self._symbol("]")
        return size

    def _type(self) -> Type:
        if self._word in _REFUSED:
            fail(_REFUSED[self._word], self.token(self.at))
        if self._word not in TYPES:
            self._fail(["a type"])
        return Type(self._advance(), self._size())

    def _declaration(self, is_const: bool) -> Any:
        kind = self._type()
        name = self._name()
        value = None
        if is_const and self._word != "=":
            self._fail(["'='"])
        if self._skipped("="):
            value = self._measurement() if self._word == "measure" else self.expression()
        if kind.kind == "bit" and not is_const:
            return self._ended(Bits("classical", name, kind.size, value))
        return self._ended(Variable(kind, name, value, is_const))

    def _const(self) -> Any:
        self.at += 1
        return self._declaration(True)

    def _input(self) -> Any:
        is_input = self._advance() == "input"
        kind = self._type()
        name = self._name()
        if is_input:
            return self._ended(Input(kind, name))
        is_bit = kind.kind == "bit"
        return self._ended(Bits("classical", name, kind.size, None) if is_bit else Variable(kind, name, None, False))

    def _qubit(self) -> Any:
        self.at += 1
        size = self._size()
        return self._ended(Bits("quantum", self._name(), size, None))

    def _old_register(self) -> Any:
        kind = "quantum" if self._advance() == "qreg" else "classical"
        name = self._name()
        return self._ended(Bits(kind, name, self._size(), None))

    def _let(self) -> Any:
        self.at += 1
        name = self._name()
        self._symbol("=")
        parts = [self.expression()]
        while self._skipped("++"):
            parts.append(self.expression())
        return self._ended(Alias(name, parts))

    def _gate(self) -> GateDeclaration:
        self.at += 1
        name = self._name()
        params: list[Token] = []
        if self._skipped("(") and not self._skipped(")"):
            params = self._listed(self._name, ")")
        return GateDeclaration(name, params, self._listed(self._name, "{"), self._statements("}"))

    def _call(self) -> Any:
        modifiers: list[tuple[Token, Any]] = []
        while self._word in _MODIFIERS:
            modifier = self._advance()
            value = self._enclosed() if self._word == "(" else None
            modifiers.append((modifier, value))
            self._symbol("@")
        name = self._advance() if self._word == "gphase" else self._name()
        params: list[Any] = []
        if self._skipped("(") and not self._skipped(")"):
            params = self._listed(self.expression, ")")
        if self._word == "[":
            fail("timing (a duration of a gate) is not carried out: leave it away", self.token(self.at))
        return Call(name, modifiers, params, self._operands())

    def _operands(self) -> list[Any]:
        """Step over what a statement acts on, and its end."""
        return [] if self._skipped(";") else self._listed(self._place, ";")

    def _assignment(self) -> Any:
        target = self._place()
        if self._word not in _ASSIGNMENTS:
            if isinstance(target, Indexed) and isinstance(target.indices[0], Duration):
                fail("timing (a duration of a gate) is not carried out: leave it away", target.token)
            self._fail(["'='"])
        operator = self._advance()
        value = self._measurement() if self._word == "measure" and operator == "=" else self.expression()
        return self._ended(Assignment(target, operator, value))

    def _measurement(self) -> Measurement:
        return Measurement(self._advance(), self._place())

    def _measure(self) -> Any:
        value = self._measurement()
        target, operator = None, value.token
        if self._word == "->":
            operator = self._advance()
            target = self._place()
        return self._ended(Assignment(target, operator, value))

    def _reset(self) -> Any:
        return self._ended(Reset(self._advance(), self._place()))

    def _barrier(self) -> Barrier:
        return Barrier(self._advance(), self._operands())

    def _delay(self) -> Nothing:
        token = self._advance()
        return Nothing(token, self._size() if token == "delay" else None, self._operands())

    def _box(self) -> Block:
        self.at += 1
        self._size()
        return self._braces()

    def _if(self) -> If:
        token = self._advance()
        return If(token, self._enclosed(), self._block(), self._block() if self._skipped("else") else None)

    def _while(self) -> While:
        return While(self._advance(), self._enclosed(), self._block())

    def _for(self) -> For:
        token, kind, name = self._advance(), self._type(), self._name()
        if not self._skipped("in"):
            self._fail(["'in'"])
        if self._word == "[":
            self.at += 1
            values = self._index()
            self._symbol("]")
        else:
            values = self._members() if self._word == "{" else self.expression()
        return For(token, kind, name, values, self._block())

    def _switch(self) -> Switch:
        token, value = self._advance(), self._enclosed()
        self._symbol("{")
        cases: list[tuple[list[Any], Block]] = []
        default = None
        while self._word == "case":
            self.at += 1
            values = [self.expression()]
            while self._skipped(","):
                values.append(self.expression())
            cases.append((values, self._braces()))
        if self._skipped("default"):
            default = self._braces()
        if not cases or self._word != "}":
            self._fail(["'case'"] if default is None else ["'}'"])
        self.at += 1
        return Switch(token, value, cases, default)

    def _leave(self) -> Any:
        return self._ended(Leave(self._advance()))

    # --- Expressions ---

    def operand(self) -> Any:
        word = self._word
        if word[:1] in _DIGITS or (word[:1] == "." and len(word) > 1):
            return self._number()
        if word == "(":
            self.at += 1
            value = self.expression()
            self._symbol(")")
            return value
        if word in _SIGNS:
            signs, value = self.signed(_SIGNS)
            return Signed([self.token(sign) for sign in signs], value)
        if word in TYPES:
            return Cast(self._type(), self._enclosed())
        if word in ("true", "false"):
            return self._advance() == "true"
        if word[:1] == '"':
            token = self._advance()
            if not re.fullmatch(r'"[01][01_]*"', token):
                fail("a text among numbers is made of 0 and 1", token)
            return BitText(token[1:-1].replace("_", ""))
        if word == "measure":
            fail("a measurement stands alone, as in c = measure q;", self.token(self.at))
        if is_name(word) and (word not in RESERVED or word == "pow") and self.words[self.at + 1] == "(":
            name = self._advance()
            self.at += 1
            return Function(name, [] if self._skipped(")") else self._listed(self.expression, ")"))
        return self._place(_OPERAND)

    def chain(self, first: Any, rest: list[tuple[str, int, Any]]) -> Chain:
        return Chain(first, [(word, self.token(number), value) for word, number, value in rest])

    def _place(self, expected: Sequence[str] = ("a name",)) -> Any:
        """Step over a name and what is in brackets behind it."""
        if self._word[:1] == "$" and len(self._word) > 1:
            token = self._advance()
        else:
            token = self._name(expected)
        indices: list[Any] = []
        while self._skipped("["):
            indices.append(self._members() if self._word == "{" else self._index())
            self._symbol("]")
        return Indexed(token, indices) if indices else token

    def _index(self) -> Any:
        """Step over a number, or a range with perhaps a start, perhaps a step and perhaps an end."""
        token = self.token(self.at)
        numbers = [None if self._word == ":" else self.expression()]
        while len(numbers) < 3 and self._skipped(":"):
            numbers.append(None if self._word in (":", "]") else self.expression())
        if len(numbers) == 1:
            return numbers[0]
        return Range(token, numbers[0], numbers[1] if len(numbers) == 3 else None, numbers[-1])

    def _members(self) -> Members:
        token = self._advance()
        return Members(token, self._listed(self.expression, "}"))

    def _enclosed(self) -> Any:
        self._symbol("(")
        value = self.expression()
        self._symbol(")")
        return value

    def _number(self) -> Any:
        token = self._advance()
        found = _NUMBER.fullmatch(token)
        assert found is not None
        digits, unit = found[1].replace("_", ""), found[2]
        if unit == "im":
            fail(_REFUSED["complex"], token)
        if len(digits) > MOST_DIGITS:
            fail("number too large", token)
        try:
            value = int(digits, 0) if digits[1:2] in _BASES else int(digits) if digits.isdigit() else float(digits)
        except ValueError:  # a prefix alone
            unexpected(token, ["a number"])
        if isinstance(value, float) and value - value != 0.0:
            fail("number too large", token)
        return Duration(token) if unit else value

    # --- Words ---

    @property
    def _word(self) -> str:
        return self.words[self.at]

    def token(self, number: int) -> Token:
        start = self._starts[number]
        return Token(self._source, start, start + len(self.words[number]))

    def _advance(self) -> Token:
        token = self.token(self.at)
        if token:
            self.at += 1
        return token

    def _skipped(self, word: str) -> bool:
        """Step over a word if it comes next."""
        found = self.words[self.at] == word
        self.at += found
        return found

    def _symbol(self, symbol: str) -> None:
        if not self._skipped(symbol):
            self._fail([repr(symbol)])

    def _name(self, expected: Sequence[str] = ("a name",)) -> Token:
        if not is_name(self._word):
            self._fail(expected)
        if self._word in RESERVED:
            fail(f"{self._word} is a reserved word and cannot stand here", self.token(self.at))
        return self._advance()

    def _listed(self, read: Callable[[], Any], end: str) -> list[Any]:
        """Step over one or more with commas between, and what ends them."""
        listed = [read()]
        while self._skipped(","):
            listed.append(read())
        if not self._skipped(end):
            self._fail(["','", repr(end)])
        return listed

    def _fail(self, expected: Sequence[str]) -> NoReturn:
        token = self.token(self.at)
        if token == "/" and self.words[self.at + 1 : self.at + 2] == ["*"]:
            fail("this comment has no end", token)
        unexpected(token, expected, len(token) == 1 and not is_name(token) and token not in _DIGITS | _SYMBOLS)


_READERS: dict[str, Callable[[Syntax], Any]] = {
    "include": Syntax._include, "const": Syntax._const, "input": Syntax._input, "output": Syntax._input,
    "qubit": Syntax._qubit, "qreg": Syntax._old_register, "creg": Syntax._old_register, "let": Syntax._let,
    "gate": Syntax._gate, "measure": Syntax._measure, "reset": Syntax._reset, "barrier": Syntax._barrier,
    "delay": Syntax._delay, "nop": Syntax._delay, "box": Syntax._box, "if": Syntax._if, "while": Syntax._while,
    "for": Syntax._for, "switch": Syntax._switch, "break": Syntax._leave, "continue": Syntax._leave, "end": Syntax._leave,
    "{": Syntax._block,
}  # fmt: skip


def is_name(word: str) -> bool:
    """Whether something may be called so, if it is no word of the language: letters of any script, underscores, digits."""
    return word.isidentifier() and _LETTERS.fullmatch(word) is not None
