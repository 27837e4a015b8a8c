"""Lists of parameters: folded where constant, otherwise kept as expressions.

An operator precedence parser with stacks of its own, so the depth of an expression is limited by memory only. A minus
sign binds more tightly than * and /, less tightly than ^: -2^2 is -4. ^ groups from the right: 2^3^2 is 512.
"""

from __future__ import annotations

import re
from typing import NoReturn

from ..instructions.expression import FUNCTIONS, Angle, CalculationError, Expression, Parameter, calculated
from .errors import fail
from .lexicon import FUNCTION_NAMES, MORE_FUNCTION_NAMES, NUMBER, RESERVED, Tokens, refuse_leading_zeros
from .source import Source, Token

Params = tuple[Angle, ...]

# Nearly all parameters of a large file are plain numbers.
_PLAIN = re.compile(r"[-+0-9.eE, \t]*\Z")
_LEADING_ZERO = re.compile(r"(?<![0-9.eE])(?<![eE][-+])0[0-9]")
_WORD = re.compile(rf"{NUMBER}|[a-z][A-Za-z0-9_]*|[^ \t\r\n\f]")
_END = re.compile(r'[;{}"]|\Z')

_RANK = {"+": 1, "-": 1, "*": 2, "/": 2, "^": 4}
_SIGN = 3
_OPEN = 0  # what stands for a parenthesis among the ranks
_NUMBER_STARTS = frozenset("0123456789.")
_PI = 3.141592653589793

# An operator whose right operand is not complete, or an open parenthesis (perhaps of a function): its rank, what to
# calculate, and the number of the word.
Waiting = tuple[int, str, int]

_LONGEST_MEMORY = 20_000


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
        params, count = self._read(words, offset)
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
        params, count = self._read(words, offset)
        last = _word(self._source, offset, count - 1)
        return params, last.offset + 1

    def _read(self, words: list[str], offset: int) -> tuple[Params, int]:
        """Return the parameters, and how many words were read, the closing parenthesis included.

        The last word is empty: nothing takes it, so that the list is closed before it or refused there.
        """
        params: list[Angle] = []
        operands: list[Angle] = []
        waiting: list[Waiting] = []
        wants_operand = True
        opens_function = False
        for number, word in enumerate(words):
            if wants_operand:
                if opens_function:
                    if word != "(":
                        Tokens(self._source, self._word(offset, number).offset).symbol("(")
                    opens_function = False
                elif word[:1] in _NUMBER_STARTS:
                    operands.append(self._number(word, offset, number))
                    wants_operand = False
                elif word == "pi":
                    operands.append(_PI)
                    wants_operand = False
                elif word == "-":
                    waiting.append((_SIGN, "neg", number))
                elif word == "+":
                    waiting.append((_SIGN, "+", number))
                elif word == "(":
                    waiting.append((_OPEN, "", number))
                elif word in FUNCTION_NAMES:
                    waiting.append((_OPEN, word, number))
                    opens_function = True
                elif word in MORE_FUNCTION_NAMES and words[number + 1 : number + 2] == ["("]:
                    waiting.append((_OPEN, word, number))
                    opens_function = True
                elif word == ")" and number == 0:
                    return (), 1
                else:
                    operands.append(self._named(word, offset, number, waiting))
                    wants_operand = False
                continue
            rank = _RANK.get(word)
            if rank is not None:
                while waiting and (waiting[-1][0] > rank or (waiting[-1][0] == rank and rank != 4)):
                    self._apply(waiting.pop(), operands, offset)
                waiting.append((rank, word, number))
                wants_operand = True
            elif word == ")" or word == ",":
                while waiting and waiting[-1][0] != _OPEN:
                    self._apply(waiting.pop(), operands, offset)
                if not waiting:
                    params.append(operands.pop())
                    if word == ")":
                        return tuple(params), number + 1
                    wants_operand = True
                elif word == ")":
                    opened = waiting.pop()
                    if opened[1]:
                        self._apply(opened, operands, offset)
                else:
                    self._fail(offset, number, False, waiting)
            else:
                self._fail(offset, number, False, waiting)
        raise AssertionError("the last word is refused at the latest")

    def _apply(self, operator: Waiting, operands: list[Angle], offset: int) -> None:
        rank, operation, number = operator
        right = operands.pop()
        values: Params
        if rank == _OPEN or rank == _SIGN:
            if operation == "+":
                operands.append(right)
                return
            values = (right,)
            constant = type(right) is float
        else:
            left = operands.pop()
            values = (left, right)
            constant = type(left) is float and type(right) is float
        if not constant:
            operands.append(Expression(operation, values, Place(self._source, offset, number)))
            return
        try:
            value = FUNCTIONS[operation](*values)
            if value - value == 0.0:
                operands.append(value)
                return
        except (ArithmeticError, ValueError):
            pass
        try:
            calculated(operation, values)
        except CalculationError as error:
            fail(str(error), self._word(offset, number))

    def _number(self, word: str, offset: int, number: int) -> float:
        if word[0] == "0" and word[1:2].isdigit():
            refuse_leading_zeros(self._word(offset, number))
        try:
            value = float(word)
        except ValueError:  # a point alone
            self._fail(offset, number, True, [])
        if value - value != 0.0:
            fail("number too large", self._word(offset, number))
        return value

    def _named(self, word: str, offset: int, number: int, waiting: list[Waiting]) -> Angle:
        if not "a" <= word[:1] <= "z":
            self._fail(offset, number, True, waiting)
        if word in RESERVED:
            fail(f"{word} is a reserved word and cannot stand here", self._word(offset, number))
        return Parameter(word, Place(self._source, offset, number))

    def _fail(self, offset: int, number: int, wants_operand: bool, waiting: list[Waiting]) -> NoReturn:
        if wants_operand:
            expected = ["'('", "'+'", "'-'", "'pi'", "a function", "a name (it starts with a small letter)", "a number"]
        else:
            expected = ["')'", "'*'", "'+'", "'-'", "'/'", "'^'"]
            if not any(item[0] == _OPEN for item in waiting):
                expected.append("','")
        Tokens(self._source, self._word(offset, number).offset).fail(expected)

    def _word(self, offset: int, number: int) -> Token:
        return _word(self._source, offset, number)


def _word(source: Source, offset: int, number: int) -> Token:
    """Return the word of that number, counted from 0, behind `offset`."""
    at = offset
    for found in _WORD.finditer(source.text, offset):
        if number == 0:
            return Token(source, *found.span())
        number -= 1
        at = found.end()
    return Token(source, at, at)
