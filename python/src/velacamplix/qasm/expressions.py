"""Lists of parameters: folded where constant, otherwise kept as expressions.

A minus sign binds more tightly than * and /, less tightly than ^: -2^2 is -4. ^ groups from the right: 2^3^2 is 512.
"""

from __future__ import annotations

import re
from collections.abc import Callable, Container, Mapping, Sequence
from typing import Any, NoReturn

from ..instructions.expression import MOST_NESTED, Angle, Expression, Parameter, calculated, joined
from .errors import fail
from .lexicon import FUNCTION_NAMES, MORE_FUNCTION_NAMES, NUMBER, RESERVED, Tokens, refuse_leading_zeros
from .source import Source, Token

Params = tuple[Angle, ...]

# Nearly all parameters of a large file are plain numbers.
_PLAIN = re.compile(r"[-+0-9.eE, \t]*\Z")
_LEADING_ZERO = re.compile(r"(?<![0-9.eE])(?<![eE][-+])0[0-9]")
_WORD = re.compile(rf"{NUMBER}|[a-z][A-Za-z0-9_]*|[^ \t\r\n\f]")
_END = re.compile(r'[;{}"]|\Z')

_NUMBER_STARTS = frozenset("0123456789.")
_SIGNS = frozenset("+-")
_PI = 3.141592653589793

_LONGEST_MEMORY = 20_000

#: Rank of the operator that groups from the right, and binds more tightly than signs.
POWER = 99


class Operators:
    """Reads operands and the operators between them from a list of words, by functions that call each other.

    Attributes
    ----------
    words : list of str
        The last one is empty.
    at : int
        Number of the word that comes next.
    """

    #: Operators, those that bind more tightly higher.
    ranks: Mapping[str, int]
    #: Steps over a number, a name, a sign with what it belongs to, or what is in parentheses.
    operand: Callable[[], Any]
    #: Returns what operators of one rank make of their operands; behind the first each comes with its operator's place.
    chain: Callable[[Any, list[tuple[str, int, Any]]], Any]
    #: Returns the word of that number with its place.
    token: Callable[[int], Token]

    def __init__(self, words: list[str], at: int = 0) -> None:
        self.words, self.at = words, at
        self._depth = 0

    def expression(self, least: int = 1, first: Any = None) -> Any:
        """Step over operands and operators of the rank `least` and above, perhaps behind a first operand."""
        # Of operations, each is inside another by one pair of parentheses or by one rank; so what is written can be read.
        self._depth += 1
        if self._depth > MOST_NESTED + 1:
            fail(f"an expression may be nested at most {MOST_NESTED} deep: take parentheses away", self.token(self.at))
        ranks, words = self.ranks, self.words
        value = self.operand() if first is None else first
        while (rank := ranks.get(words[self.at], 0)) >= least:
            rest: list[tuple[str, int, Any]] = []
            while ranks.get(words[self.at]) == rank:
                number = self.at
                self.at += 1
                right = self.operand()
                following = ranks.get(words[self.at], 0)
                if following > rank or following == POWER:
                    right = self.expression(min(rank + 1, POWER), right)
                rest.append((words[number], number, right))
            value = self.chain(value, rest)
        self._depth -= 1
        return value

    def signed(self, signs: Container[str]) -> tuple[list[int], Any]:
        """Step over signs and what belongs to them; return the numbers of the signs, and the operand."""
        found: list[int] = []
        while self.words[self.at] in signs:
            found.append(self.at)
            self.at += 1
        value = self.operand()
        return found, self.expression(POWER, value) if self.ranks.get(self.words[self.at]) == POWER else value


def folded(
    first: Any,
    rest: Sequence[tuple[str, Any, Any]],
    made: Callable[[str, list[Any], Any], Any],
    gathered: Callable[[str, list[Any]], bool],
) -> Any:
    """Return what operators of one rank make of their operands, from the left.

    `made` takes an operation, its operands, and what stands beside the operator in `rest`; without an operation, it
    returns its operand. `gathered` tells from an operation and its first two operands whether it takes more: one by one
    they would be copied again and again. A difference is the sum of a number and a negative one.
    """
    operation, operands, last = "", [first], None
    for word, where, right in rest:
        if word == "-":
            word, right = "+", -right if type(right) is float else made("neg", [right], where)
        if word != operation or not gathered(word, operands[:2]):
            operands = [made(operation, operands, last)]
        operation, last = word, where
        operands.append(right)
    return made(operation, operands, last)


def is_open(operation: str, operands: list[Any]) -> bool:
    """Whether this is a sum or a product that waits for the values of parameters."""
    return operation in ("+", "*") and any([isinstance(item, Expression) for item in operands])


class Place:
    """Where an operator or a name stands; found out only when somebody asks."""

    __slots__ = ("_source", "_offset", "_number")

    def __init__(self, source: Source, offset: int, number: int) -> None:
        self._source, self._offset, self._number = source, offset, number

    @property
    def token(self) -> Token:
        """The word itself."""
        return _word(self._source, self._offset, self._number)


class ParameterLists:
    """Reads the parameter lists of one file, and remembers those that returned."""

    def __init__(self, source: Source) -> None:
        self._source = source
        self._known: dict[str, Params] = {}

    def whole(self, text: str, offset: int) -> Params | None:
        """Return the parameters of a list, or None if it is closed before the end of `text`.

        `text` stands at `offset`, between the parentheses.

        Raises
        ------
        QasmError
            As for `read`.
        """
        if _PLAIN.match(text) and not _LEADING_ZERO.search(text):
            try:
                params: Params = tuple(map(float, text.split(",")))
            except ValueError:
                pass
            else:
                if all([value - value == 0.0 for value in params]):  # type: ignore[operator]
                    return params
        known = self._known.get(text)
        if known is not None:
            return known
        words = _WORD.findall(text)
        words += (")", "")
        params, count = _List(self._source, words, offset).read()
        if count != len(words) - 1:
            return None
        if all([type(value) is float for value in params]):
            if len(self._known) >= _LONGEST_MEMORY:
                self._known.clear()
            self._known[text] = params
        return params

    def read(self, offset: int) -> tuple[Params, int]:
        """Return the parameters of a list, and the place behind its closing parenthesis.

        `offset` is behind the opening one.

        Raises
        ------
        QasmError
            If what stands there is no list of expressions, or a constant is not a finite real number.
        """
        found = _END.search(self._source.text, offset)
        assert found is not None  # the end of the text at the latest
        words = _WORD.findall(self._source.text, offset, found.start())
        words.append("")
        params, count = _List(self._source, words, offset).read()
        last = _word(self._source, offset, count - 1)
        return params, last.offset + 1


class _List(Operators):
    """Reads one list.

    Parameters
    ----------
    words : list of str
        What stands behind the opening parenthesis. The last word is empty: nothing takes it, so that the list is closed
        before it or refused there.
    """

    ranks = {"+": 1, "-": 1, "*": 2, "/": 2, "^": POWER}

    def __init__(self, source: Source, words: list[str], offset: int) -> None:
        super().__init__(words)
        self._source, self._offset = source, offset

    def read(self) -> tuple[Params, int]:
        """Return the parameters, and how many words were read, the closing parenthesis included."""
        if self.words[0] == ")":
            return (), 1
        params: list[Angle] = []
        while True:
            params.append(self.expression())
            word = self.words[self.at]
            self.at += 1
            if word == ")":
                return tuple(params), self.at
            if word != ",":
                self._fail(self.at - 1, _BEHIND + ["','"])

    def operand(self) -> Angle:
        number = self.at
        word = self.words[number]
        if word == "-" or word == "+":
            signs, value = self.signed(_SIGNS)
            for sign in reversed(signs):
                if self.words[sign] == "-":
                    value = -value if type(value) is float else self._made("neg", [value], sign)
            return value  # type: ignore[no-any-return]
        self.at += 1
        if word[:1] in _NUMBER_STARTS:
            return self._number(word, number)
        if word == "pi":
            return _PI
        if word == "(":
            value = self.expression()
            self._close()
            return value  # type: ignore[no-any-return]
        is_called = self.words[self.at : self.at + 1] == ["("]
        if word in FUNCTION_NAMES or (word in MORE_FUNCTION_NAMES and is_called):
            if not is_called:
                Tokens(self._source, self.token(self.at).offset).symbol("(")
            self.at += 1
            value = self.expression()
            self._close()
            return self._made(word, [value], number)
        if not "a" <= word[:1] <= "z":
            self._fail(number, _IN_FRONT)
        if word in RESERVED:
            fail(f"{word} is a reserved word and cannot stand here", self.token(number))
        return Parameter(word, Place(self._source, self._offset, number))

    def chain(self, first: Angle, rest: list[tuple[str, int, Angle]]) -> Angle:
        value: Angle = folded(first, rest, self._made, is_open)
        return value

    def _made(self, operation: str, operands: list[Angle], number: int) -> Angle:
        if not operation:
            return operands[0]
        try:
            if all([type(item) is float for item in operands]):
                return calculated(operation, operands)
            return -operands[0] if operation == "neg" else joined(operation, operands)
        except ValueError as error:
            fail(str(error), self.token(number))

    def _close(self) -> None:
        if self.words[self.at] != ")":
            self._fail(self.at, _BEHIND)
        self.at += 1

    def _number(self, word: str, number: int) -> float:
        if word[0] == "0" and word[1:2].isdigit():
            refuse_leading_zeros(self.token(number))
        try:
            value = float(word)
        except ValueError:  # a point alone
            self._fail(number, _IN_FRONT)
        if value - value != 0.0:
            fail("number too large", self.token(number))
        return value

    def _fail(self, number: int, expected: list[str]) -> NoReturn:
        Tokens(self._source, self.token(number).offset).fail(expected)

    def token(self, number: int) -> Token:
        return _word(self._source, self._offset, number)


_IN_FRONT = ["'('", "'+'", "'-'", "'pi'", "a function", "a name (it starts with a small letter)", "a number"]
_BEHIND = ["')'", "'*'", "'+'", "'-'", "'/'", "'^'"]


def _word(source: Source, offset: int, number: int) -> Token:
    """Return the word of that number, counted from 0, behind `offset`."""
    at = offset
    for found in _WORD.finditer(source.text, offset):
        if number == 0:
            return Token(source, *found.span())
        number -= 1
        at = found.end()
    return Token(source, at, at)
