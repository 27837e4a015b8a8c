"""Expressions on classical bits and variables, both ways."""

from __future__ import annotations

import operator
from collections.abc import Callable, Mapping, Sequence
from typing import Any
from uuid import UUID

from qiskit.circuit import ClassicalRegister, Clbit
from qiskit.circuit.classical import expr, types

from ..instructions.condition import AnyCondition, CompoundCondition, Condition
from ..instructions.tried import every, tried
from .errors import NotConverted

_Index = getattr(expr, "Index", ())  # since Qiskit 1.1

_COMPARISONS = {
    expr.Binary.Op.EQUAL: "==", expr.Binary.Op.NOT_EQUAL: "!=", expr.Binary.Op.LESS: "<",
    expr.Binary.Op.LESS_EQUAL: "<=", expr.Binary.Op.GREATER: ">", expr.Binary.Op.GREATER_EQUAL: ">=",
}  # fmt: skip
_JOINS = {
    expr.Binary.Op.LOGIC_AND: operator.and_, expr.Binary.Op.BIT_AND: operator.and_, expr.Binary.Op.LOGIC_OR: operator.or_,
    expr.Binary.Op.BIT_OR: operator.or_, expr.Binary.Op.BIT_XOR: operator.xor,
}  # fmt: skip

# By name, because older versions of Qiskit have fewer.
_CALCULATIONS: dict[str, Callable[[Any, Any], Any]] = {
    "BIT_AND": operator.and_, "BIT_OR": operator.or_, "BIT_XOR": operator.xor, "LOGIC_AND": operator.and_,
    "LOGIC_OR": operator.or_, "EQUAL": operator.eq, "NOT_EQUAL": operator.ne, "LESS": operator.lt, "LESS_EQUAL": operator.le,
    "GREATER": operator.gt, "GREATER_EQUAL": operator.ge, "SHIFT_LEFT": operator.lshift, "SHIFT_RIGHT": operator.rshift,
    "ADD": operator.add, "SUB": operator.sub, "MUL": operator.mul,
}  # fmt: skip

# The number of each classical bit; of each variable, by its UUID, those that hold it, lowest first.
Places = Mapping[Any, Any]

# A bit of a number: known, or 1 where a condition holds.
Bit = AnyCondition | bool


def condition(asked: Any, clbits: Places) -> AnyCondition | bool:
    """Return what Qiskit asks for; True or False if the answer is always that. `clbits` are the numbers of bits.

    Raises
    ------
    NotConverted
        If it asks for something else than bits, or in a way that a `Condition` cannot.
    """
    if isinstance(asked, tuple):
        bits = bits_of(asked[0], clbits)
        assert bits is not None
        return _compared(bits, int(asked[1]), "==")
    found = _of_expression(asked, clbits)
    return _tried(asked, clbits) if found is None else found


def bits_of(target: Any, clbits: Places) -> tuple[int, ...] | None:
    """Return a bit or the bits of a register or variable, lowest first."""
    if isinstance(target, expr.Expr):
        target = without_casts(target)
        target = target.var if isinstance(target, expr.Var) else target
    if isinstance(target, UUID):
        if target not in clbits:
            raise NotConverted("a variable that is an input has no value: store one into a variable of the circuit")
        found: tuple[int, ...] = clbits[target]
        return found
    if isinstance(target, ClassicalRegister):
        return tuple([clbits[bit] for bit in target])
    return (clbits[target],) if isinstance(target, Clbit) else None


def without_casts(node: Any) -> Any:
    """Return an expression without the casts around it that keep its value."""
    while isinstance(node, expr.Cast):
        before, after = node.operand.type, node.type
        is_wider = after.kind is types.Uint and (before.kind is types.Bool or getattr(before, "width", 2**63) <= after.width)
        if before != after and not is_wider:
            break
        node = node.operand
    return node


def _compared(bits: tuple[int, ...], value: int, comparison: str) -> AnyCondition | bool:
    if value >= 2 ** len(bits):
        return comparison in ("!=", "<", "<=")
    made = Condition(bits, value, comparison)
    # One bit has one way to be said.
    return ~Condition(bits, value) if comparison == "!=" else made


def _of_expression(node: Any, clbits: Places) -> AnyCondition | None:
    node, is_bool = without_casts(node), node.type.kind is types.Bool
    if isinstance(node, expr.Cast) and is_bool:  # a number that is not 0
        bits = _of_bits(without_casts(node.operand), clbits)
        return None if bits is None else ~Condition(bits, 0)
    bits = _of_bits(node, clbits)
    if bits is not None:
        return Condition(bits, 1) if is_bool else None
    if isinstance(node, expr.Unary):
        inner = _of_expression(node.operand, clbits)
        is_not = node.op is expr.Unary.Op.LOGIC_NOT or node.op is expr.Unary.Op.BIT_NOT and is_bool
        return ~inner if is_not and inner is not None else None
    if not isinstance(node, expr.Binary):
        return None
    comparison = _COMPARISONS.get(node.op)
    if comparison is not None:
        left, right = without_casts(node.left), without_casts(node.right)
        if isinstance(left, expr.Value):
            left, right = right, left
            comparison = {"<": ">", "<=": ">=", ">": "<", ">=": "<="}.get(comparison, comparison)
        bits = _of_bits(left, clbits)
        if bits is not None and isinstance(right, expr.Value):
            found = _compared(bits, int(right.value), comparison)
            return None if isinstance(found, bool) else found
        numbers = _bits(node.left, clbits), _bits(node.right, clbits)
        if node.left.type.kind is types.Uint and numbers[0] is not None and numbers[1] is not None:
            answer = _in_order(numbers[0], numbers[1], comparison)
            return None if isinstance(answer, bool) else answer
    if any([side.type.kind is not types.Bool for side in (node.left, node.right)]):
        return None
    first, second = [_of_expression(side, clbits) for side in (node.left, node.right)]
    if first is None or second is None:
        return None
    if comparison in ("==", "!="):
        return first ^ second if comparison == "!=" else ~(first ^ second)
    join = _JOINS.get(node.op)
    return None if join is None else join(first, second)


def _of_bits(node: Any, clbits: Places) -> tuple[int, ...] | None:
    if isinstance(node, expr.Var):
        return bits_of(node, clbits)
    if isinstance(node, _Index) and isinstance(node.index, expr.Value):
        bits = _of_bits(without_casts(node.target), clbits)
        return None if bits is None else bits[node.index.value : node.index.value + 1] or None
    return None


def _tried(asked: Any, clbits: Places) -> AnyCondition | bool:
    """Return the values of its bits for which an expression holds, all tried."""
    read = _read(asked, clbits)
    return tried(read, asked, lambda number: _value(asked, _held(read, number), clbits))


def _read(asked: Any, clbits: Places) -> list[int]:
    return sorted({bit for var in expr.iter_vars(asked) for bit in bits_of(var, clbits) or ()})


def _held(read: Sequence[int], number: int) -> dict[int, int]:
    return {bit: number >> place & 1 for place, bit in enumerate(read)}


def _value(node: Any, held: Mapping[int, int], clbits: Places) -> Any:
    """Return the value of an expression where bits hold these values."""
    kind = node.type.kind
    # Unsigned numbers of Qiskit's wrap around.
    made: Any = None
    if isinstance(node, expr.Value):
        made = node.value
    elif isinstance(node, expr.Var):
        bits = bits_of(node, clbits)
        if bits is not None:
            made = sum([held[bit] << place for place, bit in enumerate(bits)])
    elif isinstance(node, expr.Cast):
        made = _value(node.operand, held, clbits)
    elif isinstance(node, _Index):
        made = _value(node.target, held, clbits) >> _value(node.index, held, clbits) & 1
    elif isinstance(node, expr.Unary) and node.op.name in ("LOGIC_NOT", "BIT_NOT"):
        inner = _value(node.operand, held, clbits)
        made = ~inner if kind is types.Uint else not inner
    elif isinstance(node, expr.Binary) and node.op.name in _CALCULATIONS:
        left, right = _value(node.left, held, clbits), _value(node.right, held, clbits)
        if node.op.name == "SHIFT_LEFT" and right > node.type.width:
            right = node.type.width
        made = _CALCULATIONS[node.op.name](left, right)
    if made is None or kind not in (types.Bool, types.Uint):
        raise NotConverted(f"this condition cannot be converted: it has {node}, which is neither bits nor made of them")
    return made % 2**node.type.width if kind is types.Uint else bool(made)


# --- Numbers bit by bit ---


def stored(value: Any, clbits: Places) -> tuple[Bit, ...]:
    """Return what the bits of a number or a truth value are, lowest first.

    Raises
    ------
    NotConverted
        If it is made of something else than bits, numbers and truth values.
    """
    if value.type.kind is types.Bool:
        return (condition(value, clbits),)
    if value.type.kind is not types.Uint:
        raise NotConverted(f"variables must be of bits or unsigned integers, got {value.type}")
    found = _bits(value, clbits)
    if found is not None:
        return tuple(found)
    read = _read(value, clbits)
    results = [_value(value, _held(read, number), clbits) for number in every(read, value)]

    def bit(place: int) -> Bit:
        return tried(read, value, lambda number: results[number] >> place & 1)

    return tuple(map(bit, range(value.type.width)))


def _bits(node: Any, clbits: Places) -> list[Bit] | None:
    """Return the bits of a number, lowest first; None for what takes more than a condition for each."""
    width = node.type.width if node.type.kind is types.Uint else 1
    if isinstance(node, expr.Value):
        return [bool(int(node.value) >> place & 1) for place in range(width)]
    if isinstance(node, expr.Cast):
        inner = _bits(node.operand, clbits)
        return None if inner is None or node.type.kind is not types.Uint else (inner + [False] * width)[:width]
    if node.type.kind is types.Bool:
        return [condition(node, clbits)]
    found = bits_of(node, clbits) if isinstance(node, expr.Var) else None
    if found is not None:
        return [Condition((bit,), 1) for bit in found]
    if isinstance(node, expr.Unary) and node.op is expr.Unary.Op.BIT_NOT:
        inner = _bits(node.operand, clbits)
        return None if inner is None else [_not(bit) for bit in inner]
    if not isinstance(node, expr.Binary):
        return None
    left, right = _bits(node.left, clbits), _bits(node.right, clbits)
    if left is None or right is None:
        return None
    if node.op in _BIT_BY_BIT:
        return [_BIT_BY_BIT[node.op](a, b) for a, b in zip(left, right)]
    if node.op.name in ("ADD", "SUB"):
        # a - b is a + not b + 1.
        return _sum(left, right, False) if node.op.name == "ADD" else _sum(left, [_not(bit) for bit in right], True)
    if node.op.name in ("SHIFT_LEFT", "SHIFT_RIGHT") and isinstance(node.right, expr.Value):
        by = min(int(node.right.value), width)
        return ([False] * by + left)[:width] if node.op.name == "SHIFT_LEFT" else left[by:] + [False] * by
    return None


def _sum(left: list[Bit], right: list[Bit], carry: Bit) -> list[Bit]:
    made = []
    for a, b in zip(left, right):
        made.append(_xor(_xor(a, b), carry))
        carry = _or(_and(a, b), _and(_xor(a, b), carry))
    return made


def _in_order(left: list[Bit], right: list[Bit], comparison: str) -> Bit:
    """Return whether one number compares so with another."""
    if comparison in (">", "<="):
        left, right = right, left
    found: Bit = comparison in ("==", "!=")
    for a, b in zip(left, right):
        if comparison in ("==", "!="):
            found = _and(found, _not(_xor(a, b)))
        else:  # from the lowest: less so far, or less here
            found = _or(_and(_not(a), b), _and(_not(_xor(a, b)), found))
    return _not(found) if comparison in ("!=", ">=", "<=") else found


def _not(one: Bit) -> Bit:
    return not one if isinstance(one, bool) else ~one


def _and(one: Bit, other: Bit) -> Bit:
    if isinstance(one, bool) or isinstance(other, bool):
        known, left = (one, other) if isinstance(one, bool) else (other, one)
        return left if known else False
    return one & other


def _or(one: Bit, other: Bit) -> Bit:
    return _not(_and(_not(one), _not(other))) if isinstance(one, bool) or isinstance(other, bool) else one | other


def _xor(one: Bit, other: Bit) -> Bit:
    if isinstance(one, bool) or isinstance(other, bool):
        known, left = (one, other) if isinstance(one, bool) else (other, one)
        return _not(left) if known else left
    return one ^ other


_BIT_BY_BIT = {expr.Binary.Op.BIT_AND: _and, expr.Binary.Op.BIT_OR: _or, expr.Binary.Op.BIT_XOR: _xor}


# --- To Qiskit ---


def expression(value: Bit, clbits: Any, registers: Any) -> Any:
    """Return the same value of a bit as an expression."""
    return expr.lift(value) if isinstance(value, bool) else _expression(value, clbits, registers)


def qiskit_condition(asked: AnyCondition, clbits: Any, registers: Any) -> Any:
    """Return the same condition on Qiskit's bits: a pair of bit or register and value, or an expression."""
    if isinstance(asked, Condition) and asked.comparison == "==":
        if len(asked.clbits) == 1:
            return clbits[asked.clbits[0]], asked.value
        owner = _owner(asked.clbits, clbits, registers)
        if owner is not None:
            return owner, asked.value
    return _expression(asked, clbits, registers)


def _owner(bits: tuple[int, ...], clbits: Any, registers: Any) -> Any:
    """Return the register that is just these bits in this order."""
    listed = [clbits[bit] for bit in bits]
    return next((register for register in registers if len(register) == len(listed) and list(register) == listed), None)


def _expression(asked: AnyCondition, clbits: Any, registers: Any) -> Any:
    if isinstance(asked, CompoundCondition):
        parts = [_expression(part, clbits, registers) for part in asked.parts]
        if asked.word == "not":
            return expr.logic_not(parts[0])
        join = {"and": expr.logic_and, "or": expr.logic_or, "xor": expr.bit_xor}[asked.word]
        return _joined(join, parts)
    bits, value = asked.clbits, asked.value
    owner = _owner(bits, clbits, registers)
    if owner is not None and len(bits) > 1:
        compare: dict[str, Callable[[Any, Any], Any]] = {
            "==": expr.equal, "!=": expr.not_equal, "<": expr.less, "<=": expr.less_equal, ">": expr.greater,
            ">=": expr.greater_equal,
        }  # fmt: skip
        return compare[asked.comparison](owner, value)
    read = [expr.lift(clbits[bit]) for bit in bits]
    if asked.comparison in ("==", "!="):
        parts = [bit if value >> place & 1 else expr.logic_not(bit) for place, bit in enumerate(read)]
        found = _joined(expr.logic_and, parts)
        return found if asked.comparison == "==" else expr.logic_not(found)
    # Bits of no register, from the lowest up: whether those so far are less, or not more, than those of the value.
    found = expr.lift(asked.comparison in ("<=", ">"))
    for place, bit in enumerate(read):
        join = expr.logic_or if value >> place & 1 else expr.logic_and
        found = join(expr.logic_not(bit), found)
    return found if asked.comparison in ("<", "<=") else expr.logic_not(found)


def _joined(join: Callable[[Any, Any], Any], parts: list[Any]) -> Any:
    """Return parts joined two by two, so that long chains stay flat."""
    while len(parts) > 1:
        parts = [join(*parts[place : place + 2]) if place + 1 < len(parts) else parts[place] for place in range(0, len(parts), 2)]
    return parts[0]
