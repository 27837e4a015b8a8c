"""Texts whose class lies about them, and integers too long to be written down: everywhere a caller can put them."""

import itertools

import numpy as np
import pytest

from velacamplix import (
    Circuit,
    Condition,
    Counts,
    GateDefinition,
    Instruction,
    Observable,
    Parameter,
    Register,
    StateVector,
    max_qubits,
    memory_needed,
    run,
)
from velacamplix.qasm import read_qasm

HUGE = 10**5000


class Lying(str):
    """Says that it is something else whenever it is asked."""

    __eq__ = __contains__ = lambda self, other: True
    __ne__ = lambda self, other: False
    __len__ = lambda self: 3
    __iter__ = lambda self: iter("010")
    __getitem__ = lambda self, place: "0"
    __str__ = __repr__ = __format__ = lambda self, *_: "other"
    strip = upper = lower = replace = lambda self, *_: ""
    __hash__ = lambda self: hash("big")


TEXTS = {
    "precision": lambda text: StateVector(1, text),
    "order": lambda text: StateVector(1).statevector(order=text),
    "a product state": lambda text: StateVector(3).set_basis_state(text),
    "an outcome": lambda text: StateVector(3).probability(text),
    "an initial state": lambda text: run(Circuit(3).h(0), initial=text),
    "an observable": lambda text: StateVector(3).expectation(text),
    "letters": lambda text: Observable({text: 1.0}),
    "a term's letters": lambda text: Observable([(1.0, text, [0, 1, 2])]),
    "an instruction": lambda text: Circuit(3).append(Instruction(text, (0,))),
    "bits of counts": lambda text: Counts({text: 3}),
    "a memory's precision": lambda text: memory_needed(3, text),
    "a register's kind": lambda text: Circuit(3, registers=[Register("q", text, 0, 3)]),
    "a parameter's value": lambda text: Circuit(1).rx(Parameter("a"), 0).bind({text: 1.0}),
    "a register": lambda text: Circuit(1, 3).when(text, 0).__enter__(),
}


@pytest.mark.parametrize("name", TEXTS)
@pytest.mark.parametrize("text", ["", "x" * 100_000, "é\0", "\ud800"], ids=["empty", "long", "odd", "half a letter"])
def test_a_text_that_lies_is_taken_for_what_it_is(name, text):
    if name in ("bits of counts", "letters") and not text:
        text = "2"  # the empty text is the outcome of no bits, and a term without factors
    with pytest.raises((ValueError, KeyError)) as honest:
        TEXTS[name](text)
    with pytest.raises((ValueError, KeyError)) as lying:
        TEXTS[name](Lying(text))
    assert type(lying.value) is type(honest.value) and len(str(lying.value)) < 1000


def test_texts_that_lie_become_plain_ones():
    assert Counts({Lying("01"): 3}) == {"01": 3}
    assert type(next(iter(Counts({Lying("01"): 3})))) is str
    assert Parameter(Lying("a")) == Parameter("a") and type(Parameter(Lying("a")).name) is str
    assert GateDefinition(Lying("own"), Circuit(1).h(0)) is GateDefinition("own", Circuit(1).h(0))
    (register,) = Circuit(2, registers=[Register(Lying("q"), Lying("quantum"), 0, np.int8(2))]).registers
    assert [type(value) for value in (register.name, register.kind, register.start, register.size)] == [str, str, int, int]
    assert Circuit(1).append(Instruction(Lying("X"), (0,))) == Circuit(1).x(0)
    assert StateVector(2).set_basis_state(Lying("10")).probability(Lying("10")) == 1.0
    assert Observable({Lying("XZ"): 2}) == Observable({"XZ": 2})
    assert run(Circuit(2), initial=Lying("01"), shots=1).counts == {"01": 1}


NUMBERS = {
    "qubits of a state": lambda n: StateVector(n),
    "threads": lambda n: StateVector(1, threads=n),
    "a seed": lambda n: StateVector(1, seed=n),
    "qubits of a circuit": lambda n: Circuit(n),
    "bits of a circuit": lambda n: Circuit(1, n),
    "a qubit": lambda n: Circuit(1).h(n),
    "a list of qubits": lambda n: Circuit(1).h([n]),
    "a control": lambda n: Circuit(1).h(0, controls=n),
    "an angle": lambda n: Circuit(1).rx(n, 0),
    "an array of integers": lambda n: Circuit(1).matrix([[n, 0], [0, 1]], 0),
    "entries": lambda n: Circuit(1).diagonal([1, n], 0),
    "a basis state": lambda n: StateVector(1).set_basis_state(n),
    "an outcome": lambda n: StateVector(1).probability(n),
    "an initial state": lambda n: run(Circuit(1), initial=n),
    "amplitudes": lambda n: StateVector(1).set_state([n, 0], order="little"),
    "shots": lambda n: run(Circuit(1), shots=n),
    "sampled shots": lambda n: StateVector(1).sample(n),
    "a coefficient": lambda n: Observable({"X": n}),
    "a qubit of a term": lambda n: Observable([(1.0, "X", [n])]),
    "repetitions": lambda n: Circuit(1).h(0) * n,
    "a condition": lambda n: Circuit(1, 2).when([0, 1], n).__enter__(),
    "an instruction's condition": lambda n: Circuit(1, 2).append(Instruction("X", (0,), condition=Condition((0, 1), n))),
    "a parameter's value": lambda n: Circuit(1).rx(Parameter("a"), 0).bind(a=n),
    "a parameter's factor": lambda n: n * Parameter("a"),
    "a width": lambda n: Circuit(1).draw(width=-abs(n)),
    "outcomes to show": lambda n: Counts({"0": 1}).most_likely(-abs(n)),
    "shots of an outcome": lambda n: Counts({"0": n}),
    "a bit of counts": lambda n: Counts({"0": 1}).marginal([n]),
    "bits of counts": lambda n: Counts.from_ints({n: 1}, 3),
    "a size": lambda n: memory_needed(n),
    "precision": lambda n: max_qubits(n),
    "a register's place": lambda n: Circuit(1, registers=[Register("q", "quantum", n, 1)]),
    "a register's size": lambda n: Circuit(1, registers=[Register("q", "quantum", 0, n)]),
    "a threshold": lambda n: StateVector(1).to_dict(threshold=n),
}


@pytest.mark.parametrize("name", NUMBERS)
@pytest.mark.parametrize("number", [HUGE, -HUGE], ids=["huge", "minus huge"])
def test_an_integer_that_cannot_be_written_down_is_refused_in_words(name, number):
    with pytest.raises((TypeError, ValueError, IndexError, MemoryError)) as caught:
        NUMBERS[name](number)
    message = str(caught.value)
    assert "Exceeds the limit" not in message and len(message) < 1000 and message.rstrip(".")


def test_a_condition_on_very_many_bits_is_refused_in_words():
    circuit = Circuit(1, 20_000)
    with pytest.raises(ValueError, match=r"value must be an integer from 0 to 2\*\*20000 - 1, got -1"):
        with circuit.when(range(20_000), -1):
            pass


def test_conditions_on_very_many_bits_can_be_shown():
    circuit = Circuit(1, 20_000)
    with circuit.when(range(20_000), 2**20_000 - 1):
        circuit.x(0)
    assert len(str(circuit)) and repr(circuit) and circuit.draw(ascii=True) and hash(circuit[0])


def test_a_value_that_could_not_be_read_again_is_not_written():
    circuit = Circuit(1, 20_000)
    with circuit.when("c", 2**3000 - 1):
        circuit.x(0)
    assert read_qasm(circuit.to_qasm()) == circuit
    with circuit.when("c", 2**3000):
        circuit.x(0)
    with pytest.raises(ValueError, match="instruction 1 cannot be written in OpenQASM 2: the value of its condition has more"):
        circuit.to_qasm()


def test_a_condition_of_any_value_can_be_shown():
    assert repr(Condition((0,), HUGE)) == "Condition(clbits=(0,), value=<integer of 16610 bits>)"
    assert repr(Condition((0,), 1)) == "Condition(clbits=(0,), value=1)" and repr(Condition((0,), "1"))


# --- Found by random calls ---


@pytest.mark.parametrize("n_bits", [1_000_001, 2**31, 2**40, HUGE], ids=["one more", "2**31", "2**40", "huge"])
def test_counts_of_more_bits_than_a_circuit_has(n_bits):
    for call in (lambda: Counts({}, n_bits), lambda: Counts.from_ints({0: 1}, n_bits)):
        with pytest.raises(ValueError, match="n_bits must be an integer from 0 to 1000000, got"):
            call()


def test_a_state_keeps_its_norm_at_any_angle():
    assert StateVector(2).u2(-3, 1e308, 1).norm() == pytest.approx(1, abs=1e-14)


@pytest.mark.parametrize("endless", [range(10**12), itertools.repeat(0), itertools.count()], ids=["range", "one number", "numbers"])
def test_a_list_without_end_is_refused(endless):
    for call in (lambda: Circuit(2).h(0, controls=endless), lambda: StateVector(2).sample(1, endless), lambda: Circuit(2, 2).measure(endless, 0)):
        with pytest.raises((IndexError, ValueError)):
            call()
    with pytest.raises(ValueError, match="params must be a sequence of at most 1000 numbers, got more"):
        Circuit(1).append(Instruction("X", (0,), endless))


def test_nothing_repeated_any_number_of_times_is_nothing():
    assert Circuit(2) * HUGE == Circuit(2).repeat(2**63) == Circuit(2)


def test_entries_of_a_matrix_on_very_many_qubits():
    with pytest.raises(ValueError, match="params of matrix must be .* number"):
        Circuit(50).append(Instruction("matrix", tuple(range(50)), (1.0,)))
