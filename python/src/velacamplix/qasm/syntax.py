"""From text to statements.

One pattern for each kind of statement takes it whole, in any layout: large files are read at the speed of Python's
regular expressions. A text that fits no pattern goes to `mistakes`, which reads it again word by word and tells what
is wrong. No two neighbours in a pattern can take the same character, so that a line of a million blanks does not cost
a million times a million.
"""

from __future__ import annotations

import re
from typing import Any, NamedTuple

from .errors import fail, shortened
from .expressions import ParameterLists, Params
from .lexicon import BLANKS, BUILTIN, END, INTEGER, NAME, RESERVED, STRING
from .mistakes import report
from .source import Source, Token

#: Turning digits into a number takes time that grows with the square of their number. These are enough for a bit pattern
#: of 3300 bits.
MOST_DIGITS = 1000


class Places(NamedTuple):
    """Arguments as they stand in the text. The same few return throughout a large file, so they are split late."""

    text: str
    source: Source
    offset: int


class Argument(NamedTuple):
    """A register (element is None), or one element of it."""

    register: Token
    element: int | None


class Include(NamedTuple):
    path: Token  # with its quotes


class RegisterDeclaration(NamedTuple):
    kind: str  # "quantum" or "classical"
    name: Token
    size: Token


class Call(NamedTuple):
    """A gate applied to arguments."""

    name: str
    params: Params
    places: Places
    offset: int

    @property
    def token(self) -> Token:
        """The gate's name, to point at in an error."""
        return Token(self.places.source, self.offset, self.offset + len(self.name))


class Barrier(NamedTuple):
    places: Places


class Measure(NamedTuple):
    source: Places
    target: Places


class Reset(NamedTuple):
    places: Places


class GateDeclaration(NamedTuple):
    """A gate with a body, or an opaque one (body is None)."""

    name: Token
    params: tuple[Token, ...]
    qubits: tuple[Token, ...]
    body: list[Call | Barrier] | None


class Conditional(NamedTuple):
    register: Token
    value: Token
    operation: Call | Measure | Reset


_PLACE = rf"{NAME}{BLANKS}(?:\[{BLANKS}{INTEGER}{BLANKS}\]{BLANKS})?"
_PLACES = rf"{_PLACE}(?:,{BLANKS}{_PLACE})*"
_NAMES = rf"{NAME}{BLANKS}(?:,{BLANKS}{NAME}{BLANKS})*"
# Whatever may stand in a list of parameters. Arguments hold no parentheses, so the last one closes the list.
_IN_PARENTHESES = r"[-+*/^().,0-9A-Za-z_ \t\r\n\f]*"

_CALL = re.compile(rf"([A-Za-z][A-Za-z0-9_]*){END}{BLANKS}(?:\(({_IN_PARENTHESES})\){BLANKS})?({_PLACES});")
_SKIPPED = re.compile(rf"{BLANKS}(?:;{BLANKS})*")
_BLANK = re.compile(BLANKS)
_WORD = re.compile(r"[A-Za-z][A-Za-z0-9_]*")
_VERSION = re.compile(rf"OPENQASM{END}{BLANKS}([0-9]+(?:\.[0-9]+)?){BLANKS};")
_INCLUDE = re.compile(rf"include{BLANKS}({STRING}){BLANKS};")
_REGISTER = re.compile(rf"[qc]reg{END}{BLANKS}({NAME}){BLANKS}\[{BLANKS}({INTEGER}){BLANKS}\]{BLANKS};")
_HEAD = re.compile(
    rf"(?:gate|opaque){END}{BLANKS}({NAME}){END}{BLANKS}(?:\({BLANKS}({_NAMES})?\){BLANKS})?({_NAMES})([{{;])"
)
_BARRIER = re.compile(rf"barrier{END}{BLANKS}({_PLACES});")
_MEASURE = re.compile(rf"measure{END}{BLANKS}({_PLACE})->{BLANKS}({_PLACE});")
_RESET = re.compile(rf"reset{END}{BLANKS}({_PLACE});")
_IF = re.compile(rf"if{BLANKS}\({BLANKS}({NAME}){BLANKS}=={BLANKS}({INTEGER}){BLANKS}\){BLANKS}")

_ONE_NAME = re.compile(NAME)
_ONE_PLACE = re.compile(rf"({NAME}){BLANKS}(?:\[{BLANKS}({INTEGER}))?")


class Statements:
    """Reads the statements of one file.

    Attributes
    ----------
    version : Token or None
        What the file says to be written in.
    """

    def __init__(self, source: Source) -> None:
        self._source = source
        self._text = source.text
        self._lists = ParameterLists(source)
        self._end = 0  # of the statement read last
        self.version: Token | None = None

    def read(self) -> list[Any]:
        """Return all statements, in order.

        Raises
        ------
        QasmError
            At the first place that is not OpenQASM 2.
        """
        text, skipped, length = self._text, _SKIPPED.match, len(self._text)
        statements: list[Any] = []
        at = _end(_BLANK, text, 0)
        found = _VERSION.match(text, at)
        if found is not None:
            self.version = self._token(found, 1)
            if self.version not in ("2", "2.0"):
                hint = "; Circuit.from_qasm3 reads OpenQASM 3" if self.version in ("3", "3.0", "3.1") else ""
                fail(f"this reader knows OpenQASM 2.0, not {shortened(self.version)}{hint}", self.version)
            at = found.end()
        elif self._word(at) == "OPENQASM":
            report(self._source, self._lists, at, "header")
        while True:
            at = skipped(text, at).end()  # type: ignore[union-attr]
            if at == length:
                return statements
            statement = self._call(at) or self._other(at)
            if statement is None:
                report(self._source, self._lists, at, "file")
            statements.append(statement)
            at = self._end

    def _call(self, at: int) -> Call | None:
        found = _CALL.match(self._text, at)
        if found is None:
            return None
        name, listed, places = found.groups()
        if name in RESERVED or (name[0] < "a" and name not in BUILTIN):
            return None
        params: Params = ()
        if listed is not None:
            whole = self._lists.whole(listed, found.start(2))
            if whole is None:
                return None
            params = whole
        self._end = found.end()
        return Call(name, params, Places(places, self._source, found.start(3)), at)

    def _other(self, at: int) -> Any:
        reader = _READERS.get(self._word(at))
        return None if reader is None else reader(self, at)

    def _include(self, at: int) -> Include | None:
        found = self._match(_INCLUDE, at)
        return None if found is None else Include(self._token(found, 1))

    def _register(self, at: int) -> RegisterDeclaration | None:
        found = self._match(_REGISTER, at)
        if found is None:
            return None
        kind = "quantum" if self._text[at] == "q" else "classical"
        return RegisterDeclaration(kind, self._name(found, 1), self._token(found, 2))

    def _gate(self, at: int) -> GateDeclaration | None:
        found = self._match(_HEAD, at)
        if found is None or (found[4] == "{") != (self._text[at] == "g"):
            return None
        name, params, qubits = self._name(found, 1), self._names(found, 2), self._names(found, 3)
        return GateDeclaration(name, params, qubits, self._body() if found[4] == "{" else None)

    def _body(self) -> list[Call | Barrier]:
        text, at = self._text, self._end
        body: list[Call | Barrier] = []
        while True:
            at = _end(_BLANK, text, at)
            if text.startswith("}", at):
                self._end = at + 1
                return body
            step = self._call(at) or (self._barrier(at) if text.startswith("barrier", at) else None)
            if step is None:
                report(self._source, self._lists, at, "body")
            body.append(step)
            at = self._end

    def _barrier(self, at: int) -> Barrier | None:
        found = self._match(_BARRIER, at)
        return None if found is None else Barrier(self._places(found, 1))

    def _measure(self, at: int) -> Measure | None:
        found = self._match(_MEASURE, at)
        return None if found is None else Measure(self._places(found, 1), self._places(found, 2))

    def _reset(self, at: int) -> Reset | None:
        found = self._match(_RESET, at)
        return None if found is None else Reset(self._places(found, 1))

    def _conditional(self, at: int) -> Conditional | None:
        found = self._match(_IF, at)
        if found is None:
            return None
        register, value = self._name(found, 1), self._token(found, 2)
        at = self._end
        operation = self._call(at)
        if operation is None and self._text.startswith(("measure", "reset"), at):
            operation = self._other(at)
        if not isinstance(operation, (Call, Measure, Reset)):
            report(self._source, self._lists, at, "condition")
        return Conditional(register, value, operation)

    def _word(self, at: int) -> str:
        found = _WORD.match(self._text, at)
        return "" if found is None else found[0]

    def _match(self, pattern: re.Pattern[str], at: int) -> re.Match[str] | None:
        found = pattern.match(self._text, at)
        if found is not None:
            self._end = found.end()
        return found

    def _token(self, found: re.Match[str], group: int) -> Token:
        return Token(self._source, *found.span(group))

    def _name(self, found: re.Match[str], group: int) -> Token:
        return _no_keyword(self._token(found, group))

    def _names(self, found: re.Match[str], group: int) -> tuple[Token, ...]:
        start, end = found.span(group)
        return tuple(
            [_no_keyword(Token(self._source, *name.span())) for name in _ONE_NAME.finditer(self._text, start, end)]
            if start >= 0
            else ()
        )

    def _places(self, found: re.Match[str], group: int) -> Places:
        return Places(found[group], self._source, found.start(group))


_READERS = {
    "include": Statements._include,
    "qreg": Statements._register,
    "creg": Statements._register,
    "gate": Statements._gate,
    "opaque": Statements._gate,
    "barrier": Statements._barrier,
    "measure": Statements._measure,
    "reset": Statements._reset,
    "if": Statements._conditional,
}


def integer(token: Token) -> int:
    """Return the value of a size, an index or a bit pattern."""
    if len(token) > MOST_DIGITS:
        fail("integer too large", token)
    return int(token)


def split(places: Places) -> tuple[Argument, ...]:
    """Return the single arguments of a list, each with its own place."""
    source, start = places.source, places.offset
    arguments: list[Argument] = []
    for found in _ONE_PLACE.finditer(source.text, start, start + len(places.text)):
        name = _no_keyword(Token(source, *found.span(1)))
        element = None if found[2] is None else integer(Token(source, *found.span(2)))
        arguments.append(Argument(name, element))
    return tuple(arguments)


def _no_keyword(token: Token) -> Token:
    if token in RESERVED:
        fail(f"{token!s} is a reserved word and cannot stand here", token)
    return token


def _end(pattern: re.Pattern[str], text: str, at: int) -> int:
    found = pattern.match(text, at)
    assert found is not None  # it takes the empty text too
    return found.end()
