"""What expressions of OpenQASM 3 are worth: numbers while reading, open parameters, and conditions on bits for later.

Known values are Python's ``bool``, ``int`` and ``float``; bits in quotes are a `BitText`. An `Expression` waits for the
values of inputs. Classical bits of the circuit are known when it runs; what is asked of them is a condition.
"""

from __future__ import annotations

import math
import operator
from collections.abc import Callable, Mapping, Sequence
from functools import reduce
from typing import Any, NamedTuple

from ..instructions.condition import AnyCondition, CompoundCondition, Condition
from ..instructions.expression import Angle, Expression, calculated, joined
from .definitions import Gate
from .errors import fail, quoted, shortened
from .expressions import folded, is_open
from .meaning import BITS_OF_AN_INSTRUCTION, Meaning
from .source import Token
from .syntax3 import BitText, Cast, Chain, Duration, Function, Indexed, Members, Range, Signed, Type

CONSTANTS = {"pi": math.pi, "π": math.pi, "tau": math.tau, "τ": math.tau, "euler": math.e, "ℇ": math.e}

#: Functions of a number that may be open, and what expressions call them.
FUNCTIONS = {
    "sin": "sin", "cos": "cos", "tan": "tan", "arcsin": "asin", "arccos": "acos", "arctan": "atan", "exp": "exp",
    "log": "ln", "sqrt": "sqrt",
}  # fmt: skip
_KNOWN_FUNCTIONS = (*FUNCTIONS, "ceiling", "floor", "mod", "popcount", "pow", "rotl", "rotr")

#: Bits of an integer that is calculated.
_MOST_BITS = 4096

_COMPARISONS: dict[str, Callable[[Any, Any], bool]] = {
    "==": operator.eq, "!=": operator.ne, "<": operator.lt, "<=": operator.le, ">": operator.gt, ">=": operator.ge,
}  # fmt: skip
_MIRRORED = {"==": "==", "!=": "!=", "<": ">", "<=": ">=", ">": "<", ">=": "<="}
_ON_INTEGERS: dict[str, Callable[[int, int], int]] = {
    "+": operator.add, "*": operator.mul, "&": operator.and_, "|": operator.or_, "^": operator.xor, "<<": operator.lshift,
    ">>": operator.rshift,
}  # fmt: skip
_WORDS = {"&&": "and", "&": "and", "||": "or", "|": "or", "^": "xor"}


class Qubits(NamedTuple):
    """One qubit, or a register of several."""

    bits: tuple[int, ...]
    is_one: bool


class Clbits(NamedTuple):
    """One classical bit, or a register of several; as a number, the first is the lowest, the last perhaps a sign."""

    bits: tuple[int, ...]
    is_one: bool
    has_sign: bool = False


class Known:
    """A variable or constant whose value is known while reading.

    Attributes
    ----------
    type : Type or None
        None for the parameter of a gate, and for an input.
    depth : int
        Number of decisions at run time it is declared within.
    """

    __slots__ = ("type", "size", "value", "is_const", "depth")

    def __init__(self, type: Type | None, size: int | None, value: Any, is_const: bool, depth: int) -> None:
        self.type, self.size, self.value, self.is_const, self.depth = type, size, value, is_const, depth


class Values(Meaning):
    """Works out expressions; names mean what the scopes say, the innermost last."""

    def __init__(self, gates: Mapping[str, Gate], most_instructions: int) -> None:
        super().__init__(gates, most_instructions)
        constants = {name: Known(None, None, value, True, 0) for name, value in CONSTANTS.items()}
        self._scopes: list[dict[str, Any]] = [constants, {}]
        self._owner: Token | None = None  # the gate whose body is read

    # --- Names ---

    def _find(self, name: Token) -> Any:
        for number in range(len(self._scopes) - 1, -1, -1):
            found = self._scopes[number].get(name)
            if found is not None:
                if self._owner is not None and number == 1 and not (isinstance(found, Known) and found.is_const):
                    where = f"outside of the gate {quoted(self._owner)}, which sees its own names and constants"
                    fail(f"{quoted(name)} is {where}", name)
                return found
        fail(f"unknown name {quoted(name)}", name)

    # --- Values ---

    def value(self, node: Any) -> Any:
        """Return what an expression is worth; an int, a Qubits and so on."""
        if isinstance(node, Token):
            found = self._find(node)
            if isinstance(found, Known):
                if found.value is None:
                    fail(f"{quoted(node)} has no value yet", node)
                return found.value
            return found
        if isinstance(node, Chain):
            rest = [(word, token, self.value(value)) for word, token, value in node.rest]
            return folded(self.value(node.first), rest, self._made, _is_gathered)
        if isinstance(node, Signed):
            value = self.value(node.value)
            for sign in reversed(node.signs):
                value = self._signed(sign, value)
            return value
        if isinstance(node, Indexed):
            value = self.value(node.token)
            for index in node.indices:
                value = self._part_of(value, node.token, index)
            return value
        if isinstance(node, Function):
            return self._function(node.name, [self.value(value) for value in node.arguments])
        if isinstance(node, Cast):
            return self.converted(self.value(node.value), node.type, self.size(node.type), True)
        return node

    def integer(self, node: Any, token: Token, what: str) -> int:
        """Return the value of an expression that must be an integer, known while reading."""
        value = self.value(node)
        if type(value) is not int:
            fail(f"{what} must be an integer{_why_not(value)}", token)
        return value

    def size(self, kind: Type) -> int | None:
        """Return the number in the brackets of a type."""
        if kind.size is None:
            return None
        size = self.integer(kind.size, kind.kind, "the size of a type")
        if not 1 <= size <= _MOST_BITS:
            fail(f"the size of a type must be from 1 to {_MOST_BITS}, got {shortened(str(size))}", kind.kind)
        return size

    def angle(self, node: Any, token: Token) -> Angle:
        """Return an angle, perhaps open."""
        value = self.value(node)
        if isinstance(value, Expression):
            return value
        if not isinstance(value, (int, float)):
            fail(f"an angle must be a number{_why_not(value)}", token)
        return self._float(value, token)

    def condition(self, node: Any, token: Token) -> bool | AnyCondition:
        """Return whether something holds, or what must hold when the circuit runs."""
        value = self._asked(self.value(node))
        if value is None:
            fail("a condition must be true or false; compare a register with a number, as in c == 1", token)
        return value

    def _asked(self, value: Any) -> bool | AnyCondition | None:
        if isinstance(value, (int, float)):
            return bool(value)
        if isinstance(value, Clbits) and len(value.bits) == 1:
            return Condition(value.bits, 1)
        return value if isinstance(value, AnyCondition) else None

    # --- Operators ---

    def _signed(self, token: Token, value: Any) -> Any:
        if token == "-":
            return self._made("neg", [value], token)
        if token == "~" and isinstance(value, BitText):
            return BitText(value.text.translate({48: 49, 49: 48}))
        if token == "~" and isinstance(value, (int, float)) and not isinstance(value, bool):
            fail("~ needs bits, as in ~\"0101\"", token)
        asked = self._asked(value)
        if asked is None:
            fail(f"{token!s} cannot be applied to this{_why_not(value)}", token)
        return not asked if isinstance(asked, bool) else ~asked

    def _made(self, operation: str, operands: list[Any], token: Token) -> Any:
        if not operation:
            return operands[0]
        if any([isinstance(item, Expression) for item in operands]):
            return self._open(operation, operands, token)
        if any([isinstance(item, (Clbits, AnyCondition)) for item in operands]):
            return self._for_later(operation, operands, token)
        if operation in ("&&", "||"):
            left, right = [self._asked(item) for item in operands]
            if left is None or right is None:
                fail(f"{token!s} joins what is true or false", token)
            return left and right if operation == "&&" else left or right
        if all([isinstance(item, BitText) for item in operands]):
            return self._of_texts(operation, [item.text for item in operands], token)
        if not all([isinstance(item, (int, float)) for item in operands]):
            fail(f"{token!s} cannot be applied to this{''.join(map(_why_not, operands))}", token)
        if operation in _COMPARISONS:
            return _COMPARISONS[operation](*operands)
        return self._number(operation, operands, token)

    def _number(self, operation: str, operands: list[Any], token: Token) -> Any:
        if any([isinstance(item, float) for item in operands]) or (operation == "**" and operands[1] < 0):
            numbers = [self._float(item, token) for item in operands]
            if operation == "%":
                if numbers[1] == 0.0:
                    fail("division by zero", token)
                return math.fmod(*numbers)
            if operation in ("+", "*", "/", "**", "neg"):
                return self._calculated("^" if operation == "**" else operation, numbers, token)
            fail(f"{token!s} needs integers", token)
        if operation == "neg":
            return -operands[0]
        left, right = int(operands[0]), int(operands[1])
        if operation in ("/", "%"):
            if right == 0:
                fail("division by zero", token)
            # Towards zero, and what is left over has the sign of what was divided.
            whole = abs(left) // abs(right) * (1 if (left < 0) == (right < 0) else -1)
            return whole if operation == "/" else left - whole * right
        if operation in ("<<", ">>") and right < 0:
            fail(f"{token!s} needs a number of places that is not negative", token)
        # Before it is made: what it has at least.
        n_bits = {"**": (left.bit_length() - 1) * right, "<<": right}.get(operation, 0)
        result = 0 if n_bits > _MOST_BITS else left**right if operation == "**" else _ON_INTEGERS[operation](left, right)
        if max(n_bits, result.bit_length()) > _MOST_BITS:
            fail(f"integer too large: at most {_MOST_BITS} bits", token)
        return result

    def _open(self, operation: str, operands: list[Any], token: Token) -> Expression:
        """Return an operation on a number that is known later."""
        operation = {"**": "^"}.get(operation, operation)
        are_numbers = all([isinstance(item, (Expression, int, float)) for item in operands])
        if operation not in ("+", "*", "/", "^", "neg") or not are_numbers:
            fail(f"{token!s} cannot be applied to a number that is known when the circuit is run", token)
        listed = [item if isinstance(item, Expression) else self._float(item, token) for item in operands]
        try:
            return -listed[0] if operation == "neg" else joined(operation, listed)  # type: ignore[return-value]
        except ValueError as error:
            fail(str(error), token)

    def _of_texts(self, operation: str, texts: list[str], token: Token) -> Any:
        if operation not in ("==", "!=", "&", "|", "^") or len(set(map(len, texts))) > 1:
            fail(f"{token!s} needs numbers, or for == != & | ^ as many bits on both sides; uint(\"01\") is a number", token)
        if operation in _COMPARISONS:
            return _COMPARISONS[operation](*texts)
        number = _ON_INTEGERS[operation](*[int(text, 2) for text in texts])
        return BitText(f"{number:0{len(texts[0])}b}")

    def _for_later(self, operation: str, operands: list[Any], token: Token) -> bool | AnyCondition:
        """Return what must hold when the circuit runs."""
        if operation in _WORDS:
            return self._joined(_WORDS[operation], operands, token)
        left, right = operands if len(operands) == 2 else (None, None)
        if operation in _COMPARISONS:
            if not isinstance(left, Clbits):
                left, right, operation = right, left, _MIRRORED[operation]
            if isinstance(left, Clbits):
                if isinstance(right, Clbits) and operation in ("==", "!=") and len(left.bits) == len(right.bits):
                    self._spend(len(left.bits), token)
                    pairs = [~(Condition((a,), 1) ^ Condition((b,), 1)) for a, b in zip(left.bits, right.bits)]
                    same = reduce(operator.and_, pairs)
                    return same if operation == "==" else ~same
                if isinstance(right, BitText) and len(right.text) == len(left.bits):
                    right = int(right.text, 2)
                if isinstance(right, int):
                    return self._compared(left, operation, int(right), token)
            if operation in ("==", "!="):
                asked = [self._asked(item) for item in operands]
                if None not in asked:
                    differ = self._joined("xor", operands, token)
                    return differ if operation == "!=" else not differ if isinstance(differ, bool) else ~differ
        fail(f"{token!s} cannot be applied to what is measured: compare bits with a number or as many bits", token)

    def _compared(self, value: Clbits, comparison: str, number: int, token: Token) -> AnyCondition:
        bits, n = value.bits, len(value.bits)
        self._spend(n // BITS_OF_AN_INSTRUCTION, token)
        is_equality = comparison in ("==", "!=")
        if value.has_sign:
            if not is_equality:
                fail(f"{token!s} of a signed number is not carried out: write uint in place of int", token)
            if -(2 ** (n - 1)) <= number < 0:
                number += 2**n
            elif number >= 2 ** (n - 1):
                number = -1
        if not 0 <= number < 2**n:
            told = shortened(str(number)) if number.bit_length() < 1000 else "so large a number"
            if is_equality:
                fail(f"the condition can never hold: {n} bit(s) do not become {told}", token)
            fail(f"{n} bit(s) are compared with a number from 0 to 2**{n} - 1, got {told}", token)
        if comparison == "!=" and n == 1:
            return Condition(bits, 1 - number)
        return Condition(bits, number, comparison)

    def _joined(self, word: str, operands: list[Any], token: Token) -> bool | AnyCondition:
        known, parts = word == "and", list[AnyCondition]()
        for asked in map(self._asked, operands):
            if asked is None:
                fail(f"{token!s} joins single bits, comparisons, and what is true or false", token)
            if not isinstance(asked, bool):
                # A chain of one word is one level.
                parts += asked.parts if isinstance(asked, CompoundCondition) and asked.word == word else (asked,)
            else:
                known = known and asked if word == "and" else known or asked if word == "or" else known != asked
        if not parts or (word != "xor" and known is (word == "or")):
            return known
        try:
            result = parts[0] if len(parts) == 1 else CompoundCondition(word, tuple(parts))
        except ValueError as error:
            fail(str(error), token)
        return ~result if word == "xor" and known else result

    # --- Functions and types ---

    def _function(self, name: Token, values: list[Any]) -> Any:
        if name in FUNCTIONS and len(values) == 1:
            value = values[0]
            if isinstance(value, Expression):
                try:
                    return Expression(FUNCTIONS[name], (value,))
                except ValueError as error:
                    fail(str(error), name)
            if isinstance(value, (int, float)):
                return self._calculated(FUNCTIONS[name], [self._float(value, name)], name)
        elif name in ("pow", "mod") and len(values) == 2:
            return self._made("**" if name == "pow" else "%", values, name)
        elif name in ("floor", "ceiling") and len(values) == 1 and isinstance(values[0], (int, float)):
            return float((math.floor if name == "floor" else math.ceil)(values[0]))
        elif name == "popcount" and len(values) == 1:
            if isinstance(values[0], BitText):
                return values[0].text.count("1")
            if isinstance(values[0], int) and values[0] >= 0:
                return values[0].bit_count()
        elif name in ("rotl", "rotr") and len(values) == 2 and isinstance(values[0], BitText) and isinstance(values[1], int):
            text = values[0].text
            places = (values[1] if name == "rotl" else -values[1]) % len(text)
            return BitText(text[places:] + text[:places])
        if name not in _KNOWN_FUNCTIONS:
            fail(f"unknown function {quoted(name)}; known: {', '.join(_KNOWN_FUNCTIONS)}", name)
        fail(f"{name!s} cannot be applied to {len(values)} value(s) of this kind{''.join(map(_why_not, values))}", name)

    def converted(self, value: Any, kind: Type, size: int | None, is_cast: bool) -> Any:
        """Return a value as one of a type; a cast may lose what does not fit."""
        token = kind.kind
        if isinstance(value, Clbits) and is_cast:
            if token == "bool":
                asked = self._asked(value)
                if asked is not None:
                    return asked
            fits = size in (None, len(value.bits)) or (token != "bit" and size > len(value.bits))  # type: ignore[operator]
            if token in ("bit", "uint", "int") and fits:
                return Clbits(value.bits, token == "bit" and size is None, token == "int" and size == len(value.bits))
        if isinstance(value, BitText):
            if token == "bit" and size == len(value.text):
                return value
            if is_cast and token in ("int", "uint"):
                value = int(value.text, 2)
        if isinstance(value, (int, float)):
            if token == "bool":
                return bool(value)
            if token in ("float", "angle"):
                return self._float(value, token)
            if token == "bit":
                if size is None and value in (0, 1):
                    return int(value)
                if size is not None and isinstance(value, int) and 0 <= value < 2**size:
                    return BitText(f"{int(value):0{size}b}")
            elif is_cast or not isinstance(value, float):
                number = int(value)
                low = 0 if token == "uint" else -(2 ** ((size or _MOST_BITS) - 1))
                if low <= number < low + 2 ** (size or _MOST_BITS):
                    return number
        if isinstance(value, Expression) and token in ("float", "angle"):
            return value
        of_size = "" if size is None else f"[{size}]"
        fail(f"this value is none of the type {token!s}{of_size}{_why_not(value)}", token)

    def _float(self, value: Any, token: Token) -> float:
        try:
            return float(value)
        except OverflowError:
            fail("number too large", token)

    def _calculated(self, operation: str, numbers: list[float], token: Token) -> float:
        try:
            return calculated(operation, numbers)
        except ValueError as error:
            fail(str(error).replace("ln of", "log of"), token)

    # --- Parts ---

    def _part_of(self, value: Any, token: Token, index: Any) -> Any:
        if type(value) is int and not isinstance(index, (Range, Members)):
            number = self.integer(index, token, "an index")
            if not 0 <= number < _MOST_BITS:
                fail(f"{quoted(token)} has bits from 0 to {_MOST_BITS - 1}, got {shortened(str(number))}", token)
            return value >> number & 1
        if not isinstance(value, (Qubits, Clbits)) or value.is_one:
            fail(f"only a register has parts{_why_not(value)}", token)
        n, bits = len(value.bits), value.bits
        if isinstance(index, Range):
            start, step, stop = [
                None if item is None else self.integer(item, token, "the bound of a range")
                for item in (index.start, index.step, index.stop)
            ]
            if step == 0:
                fail("the step of a range must not be 0", token)
            for bound in (start, stop):
                if bound is not None and not -n <= bound < n:
                    fail(f"a range must be within the {n} bits", token)
            forwards = step is None or step > 0
            first = (0 if forwards else n - 1) if start is None else start % n
            last = (n - 1 if forwards else 0) if stop is None else stop % n
            numbers: Sequence[int] = range(first, last + (1 if forwards else -1), step or 1)
        else:
            numbers = [self._place(item, n, token) for item in (index.values if isinstance(index, Members) else [index])]
            if len(set(numbers)) < len(numbers):
                fail("a bit is named twice", token)
        self._spend(len(numbers) // BITS_OF_AN_INSTRUCTION, token)
        return type(value)(tuple([bits[number] for number in numbers]), not isinstance(index, (Range, Members)))

    def _place(self, node: Any, n: int, token: Token) -> int:
        number = self.integer(node, token, "an index")
        if not -n <= number < n:
            fail(f"index {shortened(str(number))} is outside of {quoted(token)} of size {n}", token)
        return number % n


def _is_gathered(operation: str, operands: list[Any]) -> bool:
    for_later = operation in _WORDS and any([isinstance(item, (Clbits, AnyCondition)) for item in operands])
    return for_later or is_open(operation, operands)


def _why_not(value: Any) -> str:
    """Return what a message adds about a value that does not fit."""
    if isinstance(value, (Clbits, AnyCondition)):
        return ": bits are known when the circuit is run; conditions may ask for them"
    if isinstance(value, Expression):
        return ": it depends on an input or parameter, which gets its value later"
    if isinstance(value, Qubits):
        return ": these are qubits"
    if isinstance(value, Duration):
        return ": this is a time"
    return ""
