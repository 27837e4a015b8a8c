"""From text to statements: what the grammar's rules become.

A statement is a small tuple that keeps the tokens it was made of. A token is a
``str`` with ``line`` and ``column``, so every later error can tell its place.
"""

from __future__ import annotations

import math
import re
from functools import lru_cache
from typing import Any, List, NamedTuple, Optional, Tuple, Union

from lark import Token, Transformer

from . import expressions
from .errors import fail, position
from .expressions import Node

#: Words that cannot be names of registers, gates, parameters or qubits.
RESERVED = frozenset(
    "include qreg creg gate opaque barrier if measure reset pi sin cos tan exp ln sqrt".split()
)

# Turning digits into a number takes time that grows with the square of their
# number. These are enough for a bit pattern of 3300 bits.
_MOST_DIGITS = 1000

_PLACE = re.compile(r"([a-z]\w*)(?:\[(\d+)\])?")


class Argument(NamedTuple):
    """A register (element is None), or one element of it."""

    register: Token
    element: Optional[int]


# A list that stands on one line stays one token. The same few lists return
# throughout a large file, so they are split only when first seen.
Arguments = Union[Token, Tuple[Argument, ...]]


class Include(NamedTuple):
    path: Token  # with its quotes


class RegisterDeclaration(NamedTuple):
    kind: str  # "quantum" or "classical"
    name: Token
    size: Token


class GateDeclaration(NamedTuple):
    """A gate with a body, or an opaque one (body is None)."""

    name: Token
    params: Tuple[Token, ...]
    qubits: Tuple[Token, ...]
    body: Optional[Tuple[Union[Call, Barrier], ...]]


class Call(NamedTuple):
    """A gate applied to arguments."""

    name: str
    params: Tuple[Node, ...]
    arguments: Arguments
    line: int
    column: int

    @property
    def token(self) -> Token:
        """The gate's name, to point at in an error."""
        return _token("NAME", self.name, self.line, self.column)


class Barrier(NamedTuple):
    arguments: Arguments


class Measure(NamedTuple):
    source: Argument
    target: Argument


class Reset(NamedTuple):
    argument: Argument


class Conditional(NamedTuple):
    register: Token
    value: Token
    operation: Union[Call, Measure, Reset]


class ToStatements(Transformer):  # type: ignore[type-arg]
    """Called by the parser for each rule and token; keeps no state of its own."""

    def start(self, children: List[Any]) -> List[Any]:
        return children

    def header(self, children: List[Token]) -> Token:
        (version,) = children
        if float(version) != 2.0:
            fail(f"this reader knows OpenQASM 2.0, not {version!s}", version)
        return version

    def include(self, children: List[Token]) -> Include:
        return Include(*children)

    def quantum_register(self, children: List[Token]) -> RegisterDeclaration:
        return RegisterDeclaration("quantum", *children)

    def classical_register(self, children: List[Token]) -> RegisterDeclaration:
        return RegisterDeclaration("classical", *children)

    names = tuple

    def head(self, children: List[Any]) -> Tuple[Token, Tuple[Token, ...], Tuple[Token, ...]]:
        params = children[1] if len(children) == 3 else ()
        return children[0], params, children[-1]

    def gate(self, children: List[Any]) -> GateDeclaration:
        (name, params, qubits), *body = children
        return GateDeclaration(name, params, qubits, tuple(body))

    def opaque(self, children: List[Any]) -> GateDeclaration:
        ((name, params, qubits),) = children
        return GateDeclaration(name, params, qubits, None)

    def barrier(self, children: List[Any]) -> Barrier:
        return Barrier(*children)

    def conditional(self, children: List[Any]) -> Conditional:
        return Conditional(*children)

    def measure(self, children: List[Argument]) -> Measure:
        return Measure(*children)

    def reset(self, children: List[Argument]) -> Reset:
        return Reset(*children)

    def call(self, children: List[Any]) -> Call:
        name = children[0]
        params = children[1] if len(children) == 3 else ()
        return Call(str(name), params, children[-1], *position(name))

    expressions = tuple

    def arguments(self, children: List[Any]) -> Arguments:
        return children[0] if isinstance(children[0], Token) else tuple(children)

    def argument(self, children: List[Token]) -> Argument:
        if children[0].type == "PLACE":
            return split(children[0])[0]
        return Argument(children[0], integer(children[1]) if len(children) == 2 else None)

    source = argument

    def binary(self, children: List[Any]) -> Node:
        return expressions.binary(*children)

    def unary(self, children: List[Any]) -> Node:
        return expressions.unary(*children)

    def variable(self, children: List[Token]) -> Token:
        return children[0]

    def NAME(self, token: Token) -> Token:
        # The lexer takes a keyword for a name where no keyword can stand.
        if token in RESERVED:
            fail(f"{token!s} is a reserved word and cannot stand here", token)
        return token

    def NUMBER(self, token: Token) -> float:
        return expressions.number(token)

    def PI(self, token: Token) -> float:
        return math.pi

    def SIMPLE_CALL(self, token: Token) -> Call:
        # The grammar has proved the shape, so plain cuts find the parts.
        text = str(token)
        params: Tuple[float, ...] = ()
        if "(" in text:
            name, _, rest = text.partition("(")
            listed, _, rest = rest.partition(")")
            params = tuple(
                float(word) if "pi" not in word else _fraction_of_pi(word)
                for word in listed.split(",")
            )
            if not all(map(math.isfinite, params)):
                _fail_at_constant(token, listed, params)
        else:
            name, rest = text.split(None, 1)
        places = rest.lstrip()
        line, column = position(token)
        arguments = _token("PLACES", places[:-1], line, column + len(text) - len(places))
        return Call(name.rstrip(), params, arguments, line, column)


def integer(token: Token) -> int:
    """Return the value of a size, an index or a bit pattern."""
    if len(token) > _MOST_DIGITS:
        fail("integer too large", token)
    return int(token)


def split(arguments: Arguments) -> Tuple[Argument, ...]:
    """Return the single arguments of a list, each with its own place."""
    if isinstance(arguments, tuple):
        return arguments
    line, column = position(arguments)
    return tuple(
        Argument(
            _token("NAME", found[1], line, column + found.start()),
            None
            if found[2] is None
            else integer(_token("INTEGER", found[2], line, column + found.start(2))),
        )
        for found in _PLACE.finditer(arguments)
    )


@lru_cache(maxsize=1024)
def _fraction_of_pi(text: str) -> float:
    # Same operations in the same order as the grammar's rules, so the same
    # bits. Infinity stands for every failure; the caller finds the place.
    before, _, after = text.replace(" ", "").replace("\t", "").partition("pi")
    value = {"": math.pi, "-": -math.pi}.get(before) or float(before[:-1]) * math.pi
    if not after:
        return value
    operand = float(after[1:])
    if after[0] == "*":
        return value * operand
    return value / operand if operand else math.inf


def _fail_at_constant(token: Token, listed: str, params: Tuple[float, ...]) -> None:
    line, column = position(token)
    offset = token.index("(") + 1
    for word, value in zip(listed.split(","), params):
        if not math.isfinite(value):
            blanks = len(word) - len(word.lstrip())
            place = _token("CONSTANT", word.strip(), line, column + offset + blanks)
            divisor = word.partition("/")[2]
            by_zero = divisor and float(divisor) == 0
            fail("division by zero" if by_zero else "number too large", place)
        offset += len(word) + 1


def _token(kind: str, text: str, line: int, column: int) -> Token:
    return Token(kind, text, line=line, column=column)
