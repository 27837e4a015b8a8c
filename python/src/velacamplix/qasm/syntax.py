"""From text to statements.

One pattern takes a whole call of a gate, in any layout: large files are read at the speed of Python's regular
expressions. Everything else is read word by word, and so is a call that does not fit the pattern, to find out what is
wrong with it. No two neighbours in the pattern can take the same character, so that a line of a million blanks does not
cost a million times a million.
"""

from __future__ import annotations

import re
from collections.abc import Callable, Sequence
from typing import Any, NamedTuple

from .errors import fail, shortened
from .expressions import ParameterLists, Params
from .lexicon import BLANKS, BUILTIN, END, INTEGER, NAME, RESERVED, Tokens
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
# Whatever may stand in a list of parameters. Arguments hold no parentheses, so the last one closes the list.
_IN_PARENTHESES = r"[-+*/^().,0-9A-Za-z_ \t\r\n\f]*"

_CALL = re.compile(rf"([A-Za-z][A-Za-z0-9_]*){END}{BLANKS}(?:\(({_IN_PARENTHESES})\){BLANKS})?({_PLACES});")
_SKIPPED = re.compile(rf"{BLANKS}(?:;{BLANKS})*")
_VERSION = re.compile(r"[0-9]+(?:\.[0-9]+)?")
_ONE_PLACE = re.compile(rf"({NAME}){BLANKS}(?:\[{BLANKS}({INTEGER}))?")

_STATEMENTS = [repr(word) for word in "include qreg creg gate opaque barrier if measure reset".split()]


class Statements:
    """Reads the statements of one file.

    Attributes
    ----------
    version : Token or None
        What the file says to be written in.
    """

    def __init__(self, source: Source) -> None:
        self._source = source
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
        text, skipped, length = self._source.text, _SKIPPED.match, len(self._source.text)
        statements: list[Any] = []
        tokens = Tokens(self._source, 0)
        if tokens.token == "OPENQASM":
            self._header(tokens)
        while True:
            at = skipped(text, self._end).end()  # type: ignore[union-attr]
            if at == length:
                return statements
            statements.append(self._plain_call(at) or self._word_by_word(self._statement, at))

    def _plain_call(self, at: int) -> Call | None:
        found = _CALL.match(self._source.text, at)
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

    # --- Word by word ---

    def _word_by_word(self, read: Callable[[Tokens], Any], at: int) -> Any:
        tokens = Tokens(self._source, at)
        statement = read(tokens)
        self._end = tokens.end
        return statement

    def _header(self, tokens: Tokens) -> None:
        tokens.advance()
        if not _VERSION.fullmatch(tokens.token):
            tokens.fail(["a version"])
        self.version = tokens.advance()
        if self.version not in ("2", "2.0"):
            hint = "; Circuit.from_qasm3 reads OpenQASM 3" if self.version in ("3", "3.0", "3.1") else ""
            fail(f"this reader knows OpenQASM 2.0, not {shortened(self.version)}{hint}", self.version)
        tokens.symbol(";")
        self._end = tokens.end

    def _statement(self, tokens: Tokens) -> Any:
        word = tokens.word
        if word == "include":
            tokens.advance()
            if tokens.kind != "string":
                if tokens.kind == "other" and tokens.token == '"':
                    fail("unexpected character '\"', expected a file name in quotes", tokens.token)
                tokens.fail(["a file name in quotes"])
            path = tokens.advance()
            tokens.symbol(";")
            return Include(path)
        if word in ("qreg", "creg"):
            tokens.advance()
            name = tokens.name()
            tokens.symbol("[")
            size = tokens.integer()
            tokens.symbol("]")
            tokens.symbol(";")
            return RegisterDeclaration("quantum" if word == "qreg" else "classical", name, size)
        if word in ("gate", "opaque"):
            return self._gate(tokens)
        if word == "barrier":
            return self._barrier(tokens)
        if word == "if":
            tokens.advance()
            tokens.symbol("(")
            register = tokens.name()
            tokens.symbol("==")
            value = tokens.integer()
            tokens.symbol(")")
            return Conditional(register, value, self._operation(tokens, []))
        return self._operation(tokens, _STATEMENTS)

    def _gate(self, tokens: Tokens) -> GateDeclaration:
        has_body = tokens.advance() == "gate"
        name = tokens.name()
        params: list[Token] = []
        opened = tokens.is_symbol("(")
        if opened:
            tokens.advance()
            if tokens.is_symbol(")"):
                tokens.advance()
            else:
                params.append(tokens.name(also=["')'"]))
                while tokens.symbol(",", ")") == ",":
                    params.append(tokens.name())
        qubits = [tokens.name(also=[] if opened else ["'('"])]
        while tokens.is_symbol(","):
            tokens.advance()
            qubits.append(tokens.name())
        tokens.symbol("{" if has_body else ";")
        body = None
        if has_body:
            body, end = self._body(tokens.end)
            tokens.go(end)
        return GateDeclaration(name, tuple(params), tuple(qubits), body)

    def _body(self, at: int) -> tuple[list[Call | Barrier], int]:
        body: list[Call | Barrier] = []
        self._end = at
        while True:
            tokens = Tokens(self._source, self._end)
            if tokens.is_symbol("}"):
                return body, tokens.token.offset + 1
            body.append(self._plain_call(tokens.token.offset) or self._word_by_word(self._body_step, self._end))

    def _body_step(self, tokens: Tokens) -> Call | Barrier:
        if tokens.word == "barrier":
            return self._barrier(tokens)
        if tokens.word in RESERVED:
            fail(f"{tokens.token!s} is a reserved word and cannot stand here", tokens.token)
        if not tokens.word or (tokens.token[0] < "a" and tokens.token not in BUILTIN):
            tokens.fail(["a gate", "'barrier'", "'}'"])
        return self._call(tokens)

    def _operation(self, tokens: Tokens, also: Sequence[str]) -> Call | Measure | Reset:
        word = tokens.word
        if word == "measure":
            tokens.advance()
            source = self._places(tokens, [], is_one=True)
            tokens.symbol("->")
            measure = Measure(source, self._places(tokens, [], is_one=True))
            tokens.symbol(";")
            return measure
        if word == "reset":
            tokens.advance()
            reset = Reset(self._places(tokens, [], is_one=True))
            tokens.symbol(";")
            return reset
        if word in RESERVED:
            fail(f"{word} is a reserved word and cannot stand here", tokens.token)
        if not word or (word[0] < "a" and word not in BUILTIN):
            tokens.fail(["a gate", "'measure'", "'reset'", *also])
        return self._call(tokens)

    def _call(self, tokens: Tokens) -> Call:
        name = tokens.advance()
        params: Params = ()
        opened = tokens.is_symbol("(")
        if opened:
            params, end = self._lists.read(tokens.token.offset + 1)
            tokens.go(end)
        return Call(str(name), params, self._places(tokens, [] if opened else ["'('"]), name.offset)

    def _barrier(self, tokens: Tokens) -> Barrier:
        tokens.advance()
        return Barrier(self._places(tokens, []))

    def _places(self, tokens: Tokens, also: Sequence[str], is_one: bool = False) -> Places:
        start = tokens.token.offset
        while True:
            tokens.name(also)
            if tokens.is_symbol("["):
                tokens.advance()
                tokens.integer()
                tokens.symbol("]")
            places = Places(self._source.text[start : tokens.end], self._source, start)
            if is_one or tokens.symbol(",", ";") == ";":
                return places
            also = []


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
