"""Classes that inherit from Circuit: what is made from one of their objects is of their class and has its attributes."""

import copy
import pickle

import pytest

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, Register, StateVector, run

A, B = Parameter("a"), Parameter("b")
TURN = GateDefinition("turn", Circuit(1).s(0).h(0))


class Labelled(Circuit):
    """A constructor with other arguments, and attributes of its own."""

    def __init__(self, label):
        super().__init__(3, 2)
        self.label, self.notes = label, ["first"]

    def entangled(self):
        return self.h(0).cx(0, 1)


class Plain(Circuit):
    """The constructor of Circuit."""

    where = "here"


def made():
    circuit = Labelled("mine").entangled().gate(TURN, 2)
    return circuit.rx(A, 0).rz(A + B, 1)


def pickled(protocol):
    return lambda circuit: pickle.loads(pickle.dumps(circuit, protocol))


BOUND = {"a": 0.5, "b": 0.25}
WAYS = {
    "copy": (Circuit.copy, lambda c: c),
    "copy.copy": (copy.copy, lambda c: c),
    "deepcopy": (copy.deepcopy, lambda c: c),
    **{f"pickle {p}": (pickled(p), lambda c: c) for p in range(pickle.HIGHEST_PROTOCOL + 1)},
    "inverse": (Circuit.inverse, Circuit.inverse),
    "repeat": (lambda c: c * 2, lambda c: c * 2),
    "repeat from the left": (lambda c: 3 * c, lambda c: 3 * c),
    "never": (lambda c: c * 0, lambda c: c * 0),
    "sum": (lambda c: c + Circuit(1).x(0), lambda c: c + Circuit(1).x(0)),
    "bind all": (lambda c: c.bind(BOUND), lambda c: c.bind(BOUND)),
    "bind some": (lambda c: c.bind(a=1), lambda c: c.bind(a=1)),
    "bind none": (lambda c: c.bind(), lambda c: c),
    "inverse of bound": (lambda c: c.bind(BOUND).inverse(), lambda c: c.bind(BOUND).inverse()),
    "pickle of bound": (lambda c: pickled(2)(c.bind(BOUND)), lambda c: c.bind(BOUND)),
}


@pytest.mark.parametrize("way", WAYS)
def test_class_attributes_and_content_stay(way):
    function, expected = WAYS[way]
    original = made()
    plain = Circuit(3, 2)
    for step in original:
        plain.append(step)
    got = function(original)
    assert type(got) is Labelled and got.label == "mine" and got.notes == ["first"]
    assert got == expected(plain) and type(expected(plain)) is Circuit
    assert original == plain and original.label == "mine"
    got.entangled()  # goes on as an object of the class


def test_copies_share_attributes_as_python_does():
    original = made()
    assert original.copy().notes is original.notes and copy.copy(original).notes is original.notes
    assert copy.deepcopy(original).notes is not original.notes
    other = original.inverse()
    other.label = "other"
    assert original.label == "mine"


def test_circuits_grow_apart():
    original = made()
    before = original.instructions
    for other in (original.copy(), copy.copy(original), original.bind(), original + Circuit(0), original * 1):
        other.x(0)
    assert original.instructions == before


def test_attributes_of_a_plain_circuit_stay_too():
    circuit = Circuit(1).rx(A, 0)
    circuit.label = "mine"
    assert [c.label for c in (circuit.copy(), circuit.bind(a=1), circuit.inverse(), copy.deepcopy(circuit))] == ["mine"] * 4


def test_registers_stay():
    circuit = Plain(2, registers=[Register("a", "quantum", 0, 1), Register("b", "quantum", 1, 1)]).h(0)
    for other in (circuit.copy(), circuit.inverse(), circuit * 2, circuit.bind(), pickled(2)(circuit)):
        assert type(other) is Plain and other.registers == circuit.registers


def test_what_was_bound_from_one_is_run():
    bound = made().bind(BOUND)
    state = run(bound).state
    assert state.array.tobytes() == StateVector(3).run(bound.copy()).array.tobytes()
    # What is open in a circuit of the class is still found after a copy.
    assert made().copy().parameters == ("a", "b") and (made() * 2).parameters == ("a", "b")


def test_a_condition_of_the_moment_is_not_copied():
    circuit = Labelled("mine")
    with circuit.when(0, 1):
        other = circuit.copy().x(0)
    assert other[0].condition is None


def test_a_text_is_read_as_the_class():
    text = Circuit(2, 2).h(0).measure_all().to_qasm()
    read = Plain.from_qasm(text)
    assert type(read) is Plain and read.where == "here" and read == Circuit.from_qasm(text)
    with pytest.raises(TypeError, match="registers"):
        Labelled.from_qasm(text)


def test_methods_that_add_return_the_circuit_itself():
    circuit = Labelled("mine")
    assert circuit.append(Instruction("H", (0,))) is circuit is circuit.compose(Circuit(1).x(0)) is circuit.measure(0, 0)
