"""Conditions on measurement keys, both ways."""

from __future__ import annotations

import operator
from collections.abc import Mapping, Sequence
from functools import reduce
from typing import Any, NamedTuple

import cirq
import sympy

from ..instructions.condition import AnyCondition, CompoundCondition, Condition
from ..instructions.tried import tried
from .errors import NotConverted

#: Of each key the bits of every time that it is measured, in that order; of one time the first is the highest of a number.
Records = Mapping[str, Sequence[tuple[int, ...]]]

_BitMask = getattr(cirq, "BitMaskKeyCondition", ())  # since Cirq 1.5
_COMPARISONS: dict[Any, str] = {
    sympy.Eq: "==", sympy.Ne: "!=", sympy.StrictLessThan: "<", sympy.LessThan: "<=", sympy.StrictGreaterThan: ">",
    sympy.GreaterThan: ">=",
}  # fmt: skip
_TURNED = {"==": "==", "!=": "!=", "<": ">", "<=": ">=", ">": "<", ">=": "<="}
_JOINS: dict[Any, Any] = {sympy.And: operator.and_, sympy.Or: operator.or_, sympy.Xor: operator.xor}


def condition(asked: Any, records: Records) -> AnyCondition | bool:
    """Return what one of Cirq's conditions asks for; True or False if the answer is always that.

    Raises
    ------
    NotConverted
        If a key has not been measured yet, or the condition has no words here and asks for too many bits.
    """
    for key in asked.keys:
        if not records.get(str(key)):
            raise NotConverted(f"Measurement key {key} missing when testing classical control")
    if type(asked) is cirq.KeyCondition:
        return _compared(_bits(records, asked.key, asked.index), 0, "!=")
    if _BitMask and type(asked) is _BitMask:
        bits = _bits(records, asked.key, asked.index)
        mask = 2 ** len(bits) - 1 if asked.bitmask is None else asked.bitmask
        chosen = [place for place in range(len(bits)) if mask >> place & 1]
        value = sum([(asked.target_value >> place & 1) << i for i, place in enumerate(chosen)])
        comparison = "==" if asked.equal_target else "!="
        # What is asked of bits that the mask hides, or that are not there, is never equal.
        if asked.target_value != sum([(value >> i & 1) << place for i, place in enumerate(chosen)]):
            return not asked.equal_target
        return _compared(tuple([bits[place] for place in chosen]), value, comparison)
    found = _of_expression(asked.expr, records) if type(asked) is cirq.SympyCondition else None
    return _tried(asked, records) if found is None else found


def _bits(records: Records, key: Any, index: int = -1) -> tuple[int, ...]:
    """Return the bits of one measurement, lowest first."""
    listed = records[str(key)]
    if not -len(listed) <= index < len(listed):
        raise NotConverted(f"measurement key {key} is measured {len(listed)} times before, got index {index}")
    return listed[index][::-1]


def _compared(bits: tuple[int, ...], value: int, comparison: str) -> AnyCondition | bool:
    if not 0 <= value < 2 ** len(bits):
        return comparison in (("!=", "<", "<=") if value > 0 else ("!=", ">", ">="))
    if not bits:
        return Condition((0,), 0, comparison).holds(value)
    # One bit has one way to be said.
    return ~Condition(bits, value) if comparison == "!=" else Condition(bits, value, comparison)


def _of_expression(node: Any, records: Records) -> AnyCondition | bool | None:
    if node in (sympy.true, sympy.false):
        return bool(node)
    if isinstance(node, (sympy.Symbol, sympy.Indexed)):
        bits = _of_name(node, records)
        return None if bits is None else _compared(bits, 0, "!=")
    comparison = _COMPARISONS.get(node.func)
    if comparison is not None:
        left, right = node.args
        if left.is_number:
            left, right, comparison = right, left, _TURNED[comparison]
        bits = _of_name(left, records)
        return None if bits is None or not right.is_Integer else _compared(bits, int(right), comparison)
    join = _JOINS.get(node.func)
    if join is None and node.func is not sympy.Not:
        return None
    parts = [_of_expression(part, records) for part in node.args]
    if any([part is None or isinstance(part, bool) for part in parts]):
        return None
    joined: Any = ~parts[0] if join is None else reduce(join, parts)  # type: ignore[operator, arg-type]
    return joined


def _of_name(node: Any, records: Records) -> tuple[int, ...] | None:
    if isinstance(node, sympy.Symbol) and records.get(node.name):
        return _bits(records, node.name)
    if isinstance(node, sympy.Indexed) and len(node.indices) == 1 and node.indices[0].is_Integer:
        bits, place = _bits(records, node.base.name)[::-1], int(node.indices[0])
        return (bits[place],) if 0 <= place < len(bits) else None
    return None


def _tried(asked: Any, records: Records) -> AnyCondition | bool:
    """Return the condition as the values of bits for which it holds."""
    keys = [cirq.MeasurementKey.parse_serialized(str(key)) for key in asked.keys]
    every = [(key, bits) for key in keys for bits in records[str(key)]]
    # The bits of earlier measurements of a key count where it is asked for them by number.
    flat = [bit for _, bits in every for bit in bits]

    def holds(number: int) -> bool:
        store, left = cirq.ClassicalDataDictionaryStore(), [number >> place & 1 for place in range(len(flat))]
        for key, bits in every:
            store.record_measurement(key, [left.pop(0) for _ in bits], cirq.LineQubit.range(len(bits)))
        return bool(asked.resolve(store))

    return tried(flat, asked, holds)


# --- To Cirq ---


class Bit(NamedTuple):
    """Where a bit stands in Cirq: under a key of so many bits, of which the first is the highest of its number."""

    key: str
    place: int
    size: int

    @property
    def expression(self) -> Any:
        """What it is in SymPy's words."""
        number = sympy.Symbol(self.key)
        if self.size == 1:
            return number
        if _BitMask:  # and single bits of a key
            return sympy.IndexedBase(self.key)[self.place]
        return sympy.Mod(sympy.floor(number / 2 ** (self.size - 1 - self.place)), 2)


def cirq_condition(asked: AnyCondition, bits: Mapping[int, Bit]) -> Any:
    """Return the same as one of Cirq's, or True or False; what is not among `bits` is 0."""
    found = _expression(asked, bits)
    return bool(found) if found in (sympy.true, sympy.false) else cirq.SympyCondition(found)


def _expression(asked: AnyCondition, bits: Mapping[int, Bit]) -> Any:
    if isinstance(asked, CompoundCondition):
        parts = [_expression(part, bits) for part in asked.parts]
        return {"and": sympy.And, "or": sympy.Or, "xor": sympy.Xor, "not": sympy.Not}[asked.word](*parts)
    listed = [bits.get(bit) for bit in asked.clbits]
    is_same = asked.comparison in ("==", "!=")
    kind = {function: kind for kind, function in _COMPARISONS.items()}[asked.comparison]
    first = listed[0]
    keys = {bit.key for bit in listed if bit is not None}
    if first is not None and len(keys) == 1 and None not in listed and len(listed) == first.size:
        # All of one key: its number.
        places = [first.size - 1 - bit.place for bit in listed if bit is not None]
        if is_same or places == list(range(first.size)):
            value = sum([(asked.value >> i & 1) << place for i, place in enumerate(places)])
            return kind(sympy.Symbol(first.key), value if is_same else asked.value)
    found = [sympy.Integer(0) if bit is None else bit.expression for bit in listed]
    if not is_same:
        return kind(sympy.Add(*[bit * 2**place for place, bit in enumerate(found)]), asked.value)
    same = sympy.And(*[sympy.Eq(bit, asked.value >> place & 1) for place, bit in enumerate(found)])
    return same if asked.comparison == "==" else sympy.Not(same)
