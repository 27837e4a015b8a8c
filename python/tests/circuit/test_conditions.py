"""What `when` asks for: a list's first bit is the most significant, a register is read as OpenQASM reads it."""

import copy
import itertools
import pickle
import warnings

import pytest

from velacamplix import Circuit, Condition, Instruction, Register, run

N = 3  # classical bits


def conditioned(clbits, value, circuit=None):
    circuit = circuit or Circuit(N + 1, N).measure(range(N), range(N))
    with circuit.when(clbits, value):
        circuit.x(N)
    return circuit


def acts(circuit, held):
    """Whether the last gate acts where the classical bits hold what a text says, bit 0 leftmost."""
    outcome = run(circuit, initial=held + "0").probability("1", qubits=N)
    assert outcome in (0, 1)
    return outcome == 1


LISTS = [bits for size in (1, 2, 3) for bits in itertools.permutations(range(N), size)]
ALL = ["".join(bits) for bits in itertools.product("01", repeat=N)]


@pytest.mark.parametrize("bits", LISTS)
def test_lists(bits):
    for wanted in itertools.product("01", repeat=len(bits)):
        text = "".join(wanted)
        expected = [held for held in ALL if all(held[bit] == digit for bit, digit in zip(bits, text))]
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", FutureWarning)
            by_number = conditioned(list(bits), int(text, 2))
        by_text = conditioned(list(bits), text)
        assert by_number == by_text
        assert [held for held in ALL if acts(by_text, held)] == expected


def test_registers():
    for number in range(2**N):
        by_number = conditioned("c", number)
        assert [held for held in ALL if acts(by_number, held)] == [format(number, f"0{N}b")[::-1]]
        assert conditioned("c", format(number, f"0{N}b")[::-1]) == by_number
        assert by_number[-1].condition == Condition((0, 1, 2), number)


def test_one_wish_is_one_condition():
    ways = [([0, 1], "10"), ([1, 0], "01"), ((0, 1), "10"), (range(2), "10"), ("c", 1), ("c", "10")]
    circuits = [conditioned(clbits, value, Circuit(4, 2)) for clbits, value in ways]
    assert all(circuit == circuits[0] for circuit in circuits)
    assert circuits[0][0].condition == Condition((0, 1), 1)


# The warning


@pytest.mark.parametrize("bits, value", [([0, 1], 1), ([0, 1], 2), ([1, 0], 2), (range(3), 6), ((2, 0, 1), 1)])
def test_a_number_that_meant_something_else_warns(bits, value):
    k = len(bits)
    now = format(value, f"0{k}b")
    with pytest.warns(FutureWarning, match=f"'{now}' is what the number means now, '{now[::-1]}' what it meant") as caught:
        circuit = conditioned(bits, value)
    assert len(caught) == 1 and caught[0].filename == __file__
    # The cure says the same without a warning, and the other text says what 0.1 did: bits from the lowest up.
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert conditioned(bits, now) == circuit
        before = conditioned(bits, now[::-1])
    assert all(acts(before, held) == all(int(held[b]) == value >> i & 1 for i, b in enumerate(bits)) for held in ALL)


@pytest.mark.parametrize(
    "clbits, value",
    [(0, 1), ([2], 1), ([0, 1], 0), ([0, 1], 3), (range(3), 5), (range(3), 2), ([0, 1], "10"), ("c", 1), ("c", "100")],
)
def test_where_both_are_the_same_nothing_is_said(clbits, value):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        conditioned(clbits, value)


# Elsewhere the meaning stays


def test_openqasm_there_and_back():
    text = 'OPENQASM 2.0;\ninclude "qelib1.inc";\nqreg q[4];\ncreg c[3];\nmeasure q[0] -> c[0];\nif(c==6) x q[3];\n'
    read = Circuit.from_qasm(text)
    assert read[-1].condition == Condition((0, 1, 2), 6) and read.to_qasm() == text
    for clbits, value in (("c", 6), ("c", "011"), ([0, 1, 2], "011"), ([2, 1, 0], "110")):
        circuit = conditioned(clbits, value, Circuit(4, 3).measure(0, 0))
        assert circuit.to_qasm() == text and Circuit.from_qasm(circuit.to_qasm()) == circuit == read


def test_what_is_shown_can_be_given_to_when():
    circuit = conditioned([2, 0], "10", Circuit(4, 3))
    assert str(circuit) == 'X 3 if c[0, 2] == "01"'
    assert 'if c[0],c[2]=="01"' in circuit.draw(width=80)
    assert conditioned([0, 2], "01", Circuit(4, 3)) == circuit
    assert str(conditioned(1, 1, Circuit(4, 3))) == "X 3 if c[1] == 1"
    assert "if c==6" in conditioned([0, 1, 2], "011", Circuit(4, 3)).draw(width=80)


@pytest.mark.parametrize("again", [lambda c: pickle.loads(pickle.dumps(c)), copy.deepcopy, Circuit.copy, lambda c: c * 1])
def test_copies_ask_for_the_same(again):
    circuit = conditioned([2, 0], "10")
    assert again(circuit) == circuit and [held for held in ALL if acts(again(circuit), held)] == ["001", "011"]


def test_conditions_made_by_hand_have_their_lowest_bit_first():
    circuit = Circuit(N + 1, N).measure(range(N), range(N)).append(Instruction("X", (N,), condition=Condition((2, 0), 1)))
    assert [held for held in ALL if acts(circuit, held)] == ["001", "011"]
    assert str(circuit[-1]) == 'X 3 if c[2, 0] == "10"'


def test_composed_circuits_ask_for_the_same():
    inner = conditioned([0, 1], "10", Circuit(N + 1, 2))
    whole = Circuit(N + 1, N).measure(range(N), range(N)).compose(inner, clbits=[2, 1])
    assert [held for held in ALL if acts(whole, held)] == ["001", "101"]


def test_two_registers():
    registers = [Register("q", "quantum", 0, N + 1), Register("a", "classical", 0, 1), Register("b", "classical", 1, 2)]
    circuit = Circuit(N + 1, N, registers=registers).measure(range(N), range(N))
    assert [held for held in ALL if acts(conditioned("b", 1, circuit.copy()), held)] == ["010", "110"]
    assert conditioned("b", "10", circuit.copy()) == conditioned("b", 1, circuit.copy())


@pytest.mark.parametrize(
    "clbits, value, message",
    [
        ([0, 1], "1", "value must be a text of 2 characters 0 and 1, one per bit, got '1'"),
        ([0, 1], "12", "value must be a text of 2 characters 0 and 1"),
        ("c", "0b1", "value must be a text of 3 characters 0 and 1"),
        (1, "", "value must be a text of 1 characters"),
        ([0, 1], 4, "value must be an integer from 0 to 3, got 4"),
    ],
)
def test_wrong_values_are_refused(clbits, value, message):
    with pytest.raises(ValueError, match=message):
        conditioned(clbits, value)


def test_a_register_of_many_bits():
    circuit = Circuit(1, 200_000)
    with circuit.when("c", 2**199_999 + 1):
        circuit.x(0)
    with circuit.when("c", "1" + "0" * 199_998 + "1"):
        circuit.x(0)
    assert circuit[0] == circuit[1] and Circuit(1, 200_000).append(circuit[0])[0] == circuit[0]
    with pytest.raises(ValueError, match=r"value must be an integer from 0 to 2\*\*200000 - 1"):
        with circuit.when("c", -1):
            pass
