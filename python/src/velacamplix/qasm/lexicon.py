"""The words of OpenQASM 2, and single tokens with the errors they can bring."""

from __future__ import annotations

import re
from collections.abc import Sequence
from typing import NoReturn

from .errors import fail
from .source import Source, Token

FUNCTION_NAMES = frozenset("sin cos tan exp ln sqrt".split())

#: Functions that other readers know too, though OpenQASM 2 has no such words: they may also be names.
MORE_FUNCTION_NAMES = frozenset("asin acos atan".split())

#: Words that cannot be names of registers, gates, parameters or qubits.
RESERVED = frozenset("include qreg creg gate opaque barrier if measure reset pi".split()) | FUNCTION_NAMES

#: The two gates of the language itself, and the only names with a capital.
BUILTIN = frozenset({"U", "CX"})

#: No space, as a pattern, but any number of them.
BLANKS = r"[ \t\r\n\f]*"
NAME = r"[a-z][A-Za-z0-9_]*"
INTEGER = r"(?:0|[1-9][0-9]*)"
NUMBER = r"(?:[0-9]+(?:\.[0-9]*)?|\.[0-9]+)(?:[eE][+-]?[0-9]+)?"
STRING = r'"[^"\r\n]*"'
#: After a word: it ends here. Without it a pattern that fails later would try the word cut shorter.
END = r"(?![A-Za-z0-9_])"

_TOKEN = re.compile(
    rf"{BLANKS}(?:(?P<number>{NUMBER})|(?P<word>[A-Za-z][A-Za-z0-9_]*)|(?P<string>{STRING})"
    r"|(?P<symbol>->|==|[-+*/^()\[\]{},;])|(?P<other>.)|(?P<end>\Z))",
    re.DOTALL,
)
_INTEGER = re.compile(INTEGER)


class Tokens:
    """Reads tokens one by one from a place in a program.

    Attributes
    ----------
    kind, token : str, Token
        What comes next.
    end : int
        Where that ends which was read last.
    """

    def __init__(self, source: Source, offset: int) -> None:
        self.source = source
        self.go(offset)

    def go(self, offset: int) -> None:
        """Go on from another place."""
        self.end = offset
        self.kind, self.token = self._at(offset)

    def advance(self) -> Token:
        """Step over the token and return it."""
        token = self.token
        self.go(token.offset + len(token))
        return token

    @property
    def word(self) -> str:
        """The token if it is a word, else nothing."""
        return str(self.token) if self.kind == "word" else ""

    def is_symbol(self, symbol: str) -> bool:
        """Whether this symbol comes next."""
        return self.kind == "symbol" and self.token == symbol

    def symbol(self, *allowed: str) -> str:
        """Step over one of the allowed symbols and return it, or fail."""
        if self.kind != "symbol" or self.token not in allowed:
            self.fail([repr(item) for item in allowed])
        return str(self.advance())

    def name(self, also: Sequence[str] = ()) -> Token:
        """Step over a name and return it, or fail."""
        if self.kind != "word" or self.token[0] < "a":
            self.fail([*also, "a name (it starts with a small letter)"])
        if self.token in RESERVED:
            fail(f"{self.token!s} is a reserved word and cannot stand here", self.token)
        return self.advance()

    def integer(self) -> Token:
        """Step over an integer and return it, or fail."""
        found = _INTEGER.match(self.source.text, self.token.offset)
        if self.kind != "number" or found is None:
            self.fail(["an integer"])
        refuse_leading_zeros(self.token)
        # What follows, perhaps a fraction, is the next token.
        end = found.end()
        token = Token(self.source, self.token.offset, end)
        self.go(end)
        return token

    def fail(self, expected: Sequence[str]) -> NoReturn:
        """Raise `QasmError` at the token."""
        token = self.token
        is_character = self.kind == "other" or (self.kind == "word" and token[0] < "a" and token not in _CAPITALS)
        if is_character or token == "==":
            unexpected(Token(self.source, token.offset, token.offset + 1), expected, True)
        unexpected(token, expected)

    def _at(self, offset: int) -> tuple[str, Token]:
        found = _TOKEN.match(self.source.text, offset)
        assert found is not None and found.lastgroup is not None  # the pattern takes everything
        kind = found.lastgroup
        return kind, Token(self.source, found.start(kind), found.end())


def unexpected(token: Token, expected: Sequence[str], is_character: bool = False) -> NoReturn:
    """Raise `QasmError` at a token that cannot stand there; an empty one is the end."""
    words = " or ".join(sorted(set(expected))) or "nothing more"
    if not token:
        fail(f"unexpected end of the program, expected {words}", token)
    fail(f"unexpected {f'character {str(token)!r}' if is_character else 'text'}, expected {words}", token)


def refuse_leading_zeros(number: Token) -> None:
    """Raise `QasmError` if a number begins with a zero that says nothing."""
    if number[0] == "0" and number[1:2].isdigit():
        fail("a number has no leading zeros", number)


_CAPITALS = BUILTIN | {"OPENQASM"}
