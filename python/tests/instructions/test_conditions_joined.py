"""Conditions: comparisons of bits, joined by & | ^ ~, against Python's own arithmetic."""

import copy
import itertools
import operator
import pickle
import random

import pytest

from velacamplix import Bits, Circuit, CompoundCondition, Condition, Instruction, run
from velacamplix.instructions.condition import MOST_LEVELS, MOST_PARTS
from velacamplix.instructions.tried import tried

SIGNS = {"==": operator.eq, "!=": operator.ne, "<": operator.lt, "<=": operator.le, ">": operator.gt, ">=": operator.ge}
C = Circuit(1, 4).bits("c")


@pytest.mark.parametrize("sign", SIGNS)
def test_comparisons_of_lists_and_registers(sign):
    circuit, holds = Circuit(1, 4), SIGNS[sign]
    for listed in [(0,), (3, 1), (1, 2, 0), (0, 1, 2, 3)]:
        for wanted in range(2 ** len(listed)):
            condition = holds(circuit.bits(listed), wanted)
            for held in range(16):
                text = "".join(str(held >> bit & 1) for bit in listed)
                assert condition.holds(held) == holds(int(text, 2), wanted)
    for wanted, held in itertools.product(range(16), repeat=2):
        assert holds(C, wanted).holds(held) == holds(held, wanted)


@pytest.mark.parametrize("seed", range(20))
def test_joined_conditions(seed):
    choose = random.Random(seed)

    def made(levels):
        kind = choose.choice(["&", "|", "^", "~"]) if levels else ""
        if not kind:
            bit = choose.randrange(4)
            return C[bit] == 1, lambda held: bool(held >> bit & 1)
        one, first = made(levels - 1)
        if kind == "~":
            return ~one, lambda held: not first(held)
        other, second = made(levels - 1)
        join = {"&": operator.and_, "|": operator.or_, "^": operator.xor}[kind]
        return join(one, other), lambda held: join(first(held), second(held))

    condition, expected = made(4)
    assert [condition.holds(held) for held in range(16)] == [expected(held) for held in range(16)]
    assert condition.clbits == tuple(sorted(condition.clbits))
    again = pickle.loads(pickle.dumps(condition))
    assert again == condition and hash(again) == hash(condition) and repr(again) == repr(condition)
    assert copy.deepcopy(condition) == condition and eval(repr(condition)) == condition


def test_one_wish_is_one_condition():
    assert (C == 1) == (C == "1000") == Condition((0, 1, 2, 3), 1)
    assert (Circuit(1, 4).bits([3, 1]) == "10") == Condition((1, 3), 2) == (Circuit(1, 4).bits([1, 3]) == 1)
    assert ~(C[2] == 1) == Condition((2,), 0) == ~C[2] == (C[2] != 1)
    assert ~(C < 3) == (C >= 3) and ~~(C[0] & C[1]) == C[0] & C[1]
    assert (C[0] & C[1]) & C[2] == CompoundCondition("and", (C[0] == 1, C[1] == 1, C[2] == 1)) == C[0] & (C[1] & C[2])


def test_how_they_are_written():
    assert str((C < 5) & (C[0] | ~C[3]) ^ (C != "0110")) == (
        '(c[3, 2, 1, 0] < 5 and (c[0] == 1 or c[3] == 0)) xor c[0, 1, 2, 3] != "0110"'
    )
    assert str(~(C[0] & C[1])) == "not (c[0] == 1 and c[1] == 1)" and repr(C[1]) == "<Bits [1]>"
    assert repr(C < 5) == "Condition(clbits=(0, 1, 2, 3), value=5, comparison='<')"


def test_python_does_not_ask():
    for ask in (lambda: (C < 3) and (C > 0), lambda: 0 < C < 3, lambda: not (C == 1), lambda: bool(C[0] & C[1]), lambda: not C[0]):
        with pytest.raises(TypeError, match="a condition holds or not when the circuit runs.*join conditions with & | ^ ~"):
            ask()


def test_conditions_on_single_instructions():
    circuit = Circuit(5, 4).measure([0, 1, 2, 3], [0, 1, 2, 3])
    with circuit.when((C > 9) & ~C[0]):
        circuit.x(4)
    with circuit.when(C[3]):
        circuit.z(4)
    assert str(circuit[1]) == "X 4 if c[3, 2, 1, 0] > 9 and c[0] == 0" and circuit[2].condition == Condition((3,), 1)
    held = [value for value in range(16) if run(circuit, initial=format(value, "04b")[::-1] + "0").probability("1", qubits=4)]
    assert held == [10, 12, 14]
    moved = Circuit(5, 6).compose(circuit, clbits=[5, 4, 3, 2])
    assert str(moved[1]) == "X 4 if c[2, 3, 4, 5] > 9 and c[5] == 0"


def deep(levels):
    condition = C[0] == 1
    for level in range(levels):
        condition = (condition | C[1]) if level % 2 else (condition & C[2])
    return condition


@pytest.mark.parametrize(
    "make, error, message",
    [
        (lambda: C == 16, ValueError, "value must be an integer from 0 to 15, got 16"),
        (lambda: C < -1, ValueError, "value must be an integer from 0 to 15, got -1"),
        (lambda: C == "012", ValueError, "value must be a text of 4 characters 0 and 1, one per bit, got '012'"),
        (lambda: C < "0101", TypeError, "value must be an integer to be compared by <, got '0101'"),
        (lambda: C == 1.0, TypeError, "value must be an integer"),
        (lambda: C == C, TypeError, "value must be an integer"),
        (lambda: C & C[0], TypeError, "4 bits must be compared to be a condition"),
        (lambda: (C == 1) & 1, TypeError, "unsupported operand"),
        (lambda: C[4], IndexError, "place must be a number from 0 to 3"),
        (lambda: Circuit(1, 2).bits(2), IndexError, r"clbits\[0\] must be a number from 0 to 1"),
        (lambda: Circuit(1, 2).bits("d"), KeyError, "clbits must name a classical register, one of"),
        (lambda: Circuit(1).bits(0), IndexError, "classical bits of the circuit, got 0, but it has none"),
        (lambda: CompoundCondition("nand", (C == 1,)), ValueError, "word must be"),
        (lambda: CompoundCondition("not", (C == 1, C == 2)), ValueError, "parts of 'not' must be one, got 2"),
        (lambda: CompoundCondition("and", ()), ValueError, "parts of 'and' must be some, got 0"),
        (lambda: CompoundCondition("and", (1,)), TypeError, "parts must hold conditions, got 1"),
        (lambda: deep(MOST_LEVELS + 1), ValueError, "at most 50 levels"),
        (lambda: CompoundCondition("or", (C == 1,) * (MOST_PARTS + 1)), ValueError, "10000 comparisons, got 1 and 10001"),
        (lambda: Circuit(1, 4).append(Instruction("X", (0,), condition=Condition((4,), 1))), IndexError, "condition.clbits"),
        (lambda: Circuit(1, 4).append(Instruction("X", (0,), condition=Condition((1,), 2))), ValueError, "condition.value"),
        (lambda: Circuit(1, 4).append(Instruction("X", (0,), condition=Condition((1,), 0, "=")), ), ValueError, "comparison must"),
        (lambda: Circuit(1, 3).append(Instruction("X", (0,), condition=(C == 1) & C[0])), IndexError, "condition.clbits"),
    ],
)  # fmt: skip
def test_wrong_conditions_are_refused(make, error, message):
    with pytest.raises(error, match=message):
        make()


@pytest.mark.parametrize(
    "arguments, error, message",
    [
        ((C == 1, 1), TypeError, "value must be left out where a condition is given, got 1"),
        ((0,), TypeError, "value must say what the bits hold, got clbits 0 alone"),
        (((0, 1),), TypeError, "value must say what the bits hold"),
        ((C,), TypeError, "4 bits must be compared"),
    ],
)
def test_when_takes_a_condition_or_bits_and_their_value(arguments, error, message):
    circuit = Circuit(1, 4)
    with pytest.raises(error, match=message):
        with circuit.when(*arguments):
            circuit.x(0)
    assert len(circuit) == 0 and isinstance(C, Bits)


def test_what_is_as_deep_as_allowed_works():
    condition = deep(MOST_LEVELS)
    assert [condition.holds(held) for held in (0, 2, 7)] == [False, True, True]
    assert copy.deepcopy(condition) == pickle.loads(pickle.dumps(condition)) and hash(condition) and str(condition)
    assert condition.clbits == (0, 1, 2) and repr(condition)


def test_a_condition_that_is_tried_holds_where_it_is_said_to():
    for table in range(2**8):  # every function of 3 bits
        made = tried((4, 0, 2), "", lambda number, table=table: table >> number & 1)
        for bits in range(2**5):
            number = (bits >> 4 & 1) | (bits & 1) << 1 | (bits >> 2 & 1) << 2
            assert (made if isinstance(made, bool) else made.holds(bits)) == bool(table >> number & 1)
        assert isinstance(made, bool) == (table in (0, 2**8 - 1))
    with pytest.raises(ValueError, match="this cannot be converted, and has 13 bits, of which at most 12 are tried: c$"):
        tried(range(13), "c", bool)
