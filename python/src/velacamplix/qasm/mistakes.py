"""What is wrong with a text that fits no statement."""

from __future__ import annotations

import re
from collections.abc import Sequence
from typing import NoReturn

from .errors import fail
from .expressions import ParameterLists
from .lexicon import BUILTIN, RESERVED, Tokens
from .source import Source

_VERSION = re.compile(r"[0-9]+(?:\.[0-9]+)?")
_STATEMENTS = [repr(word) for word in "include qreg creg gate opaque barrier if measure reset".split()]


def report(source: Source, lists: ParameterLists, offset: int, where: str) -> NoReturn:
    """Read a statement word by word and raise `QasmError` at the first that cannot stand there.

    Parameters
    ----------
    source, lists
        The file, and what reads its lists of parameters.
    offset : int
        Where the statement begins.
    where : {"header", "file", "body", "condition"}
        What it is part of.
    """
    tokens = Tokens(source, offset)
    first = tokens.token
    if where == "header":
        _header(tokens)
    elif where == "file":
        _statement(tokens, lists)
    elif where == "body":
        _body(tokens, lists)
    else:
        _operation(tokens, lists, [])
    fail("this cannot be understood", first)  # a pattern does not take what this module does


def _header(tokens: Tokens) -> None:
    tokens.advance()
    if not _VERSION.fullmatch(tokens.token):
        tokens.fail(["a version"])
    tokens.advance()
    tokens.symbol(";")


def _statement(tokens: Tokens, lists: ParameterLists) -> None:
    word = str(tokens.token) if tokens.kind == "word" else ""
    if word == "include":
        tokens.advance()
        if tokens.kind != "string":
            if tokens.kind == "other" and tokens.token == '"':
                fail("unexpected character '\"', expected a file name in quotes", tokens.token)
            tokens.fail(["a file name in quotes"])
        tokens.advance()
        tokens.symbol(";")
    elif word in ("qreg", "creg"):
        tokens.advance()
        tokens.name()
        tokens.symbol("[")
        tokens.integer()
        tokens.symbol("]")
        tokens.symbol(";")
    elif word in ("gate", "opaque"):
        tokens.advance()
        _head(tokens)
        tokens.symbol("{" if word == "gate" else ";")
    elif word == "barrier":
        tokens.advance()
        _arguments(tokens)
    elif word == "if":
        tokens.advance()
        tokens.symbol("(")
        tokens.name()
        tokens.symbol("==")
        tokens.integer()
        tokens.symbol(")")
        _operation(tokens, lists, [])
    else:
        _operation(tokens, lists, _STATEMENTS)


def _head(tokens: Tokens) -> None:
    tokens.name()
    opened = tokens.kind == "symbol" and tokens.token == "("
    if opened:
        tokens.advance()
        if tokens.kind == "symbol" and tokens.token == ")":
            tokens.advance()
        else:
            tokens.name(also=["')'"])
            while tokens.symbol(",", ")") == ",":
                tokens.name()
    tokens.name(also=[] if opened else ["'('"])
    while tokens.kind == "symbol" and tokens.token == ",":
        tokens.advance()
        tokens.name()


def _body(tokens: Tokens, lists: ParameterLists) -> None:
    if tokens.kind == "word" and tokens.token == "barrier":
        tokens.advance()
        _arguments(tokens)
        return
    if tokens.kind == "word" and tokens.token in RESERVED:
        fail(f"{tokens.token!s} is a reserved word and cannot stand here", tokens.token)
    if tokens.kind != "word" or (tokens.token[0] < "a" and tokens.token not in BUILTIN):
        tokens.fail(["a gate", "'barrier'", "'}'"])
    _call(tokens, lists)


def _operation(tokens: Tokens, lists: ParameterLists, also: Sequence[str]) -> None:
    word = str(tokens.token) if tokens.kind == "word" else ""
    if word == "measure":
        tokens.advance()
        _argument(tokens)
        tokens.symbol("->")
        _argument(tokens)
        tokens.symbol(";")
    elif word == "reset":
        tokens.advance()
        _argument(tokens)
        tokens.symbol(";")
    elif word in RESERVED:
        fail(f"{word} is a reserved word and cannot stand here", tokens.token)
    elif not word or (word[0] < "a" and word not in BUILTIN):
        tokens.fail(["a gate", "'measure'", "'reset'", *also])
    else:
        _call(tokens, lists)


def _call(tokens: Tokens, lists: ParameterLists) -> None:
    tokens.advance()
    opened = tokens.kind == "symbol" and tokens.token == "("
    if opened:
        _, end = lists.read(tokens.token.offset + 1)
        tokens = Tokens(tokens.source, end)
    _argument(tokens, [] if opened else ["'('"])
    _rest_of_arguments(tokens)


def _arguments(tokens: Tokens) -> None:
    _argument(tokens)
    _rest_of_arguments(tokens)


def _rest_of_arguments(tokens: Tokens) -> None:
    while tokens.symbol(",", ";") == ",":
        _argument(tokens)


def _argument(tokens: Tokens, also: Sequence[str] = ()) -> None:
    tokens.name(also)
    if tokens.kind == "symbol" and tokens.token == "[":
        tokens.advance()
        tokens.integer()
        tokens.symbol("]")


