"""Decisions, loops and saves as parts of circuits: built, told, drawn, copied, combined, bound, written, refused."""

import copy
import pickle

import numpy as np
import pytest

from velacamplix import (
    Circuit,
    Condition,
    GateDefinition,
    If,
    Instruction,
    Observable,
    Parameter,
    Register,
    Save,
    StateVector,
    Switch,
    UnsupportedInstruction,
    While,
    run,
)
from velacamplix.instructions.flow import MOST_INSIDE, MOST_ITERATIONS, MOST_LEVELS


def everything():
    """Each kind once, in each other, with a definition, a large matrix, a parameter and conditions of all kinds."""
    bell = GateDefinition("bell", Circuit(2).h(0).cx(0, 1))
    circuit = Circuit(3, 3).h(0).measure(0, 0)
    c = circuit.bits("c")
    circuit.if_(c[0] & ~c[1], lambda b: b.gate(bell, [0, 2]).ry(Parameter("a"), 1), Circuit(2, 1).measure(1, 0).barrier())
    circuit.while_(c < 3, lambda b: b.switch([1, 0], {0: lambda d: d.x(0), (1, "11"): Circuit(2).cz(0, 1)}).h(0).measure(0, 2))
    circuit.save_state("s").save_probabilities("p", [2, 0]).save_expectation("e", "0.5*X0 Z2 + 1")
    with circuit.when(c != 3):
        circuit.if_((1, 1), lambda b: b.diagonal([1, 1j, -1, 1], [0, 2]), lambda b: b.reset(2))
    return circuit.switch("c", {}, lambda b: b.z(1))


TEXT = """\
H 0
measure 0 -> 0
if c[0] == 1 and c[1] == 0:
    bell 0,2
    RY(a) 1
else:
    measure 1 -> 0
    barrier 0,1
while c[2, 1, 0] < 3:
    switch c[1, 0]:
        case 0:
            X 0
        case 1, 3:
            CSIGN 0,1
    H 0
    measure 0 -> 2
save state 's'
save probabilities 'p' of 2,0
save expectation 'e' of 0.5*X0 Z2 + 1.0
if c[0, 1, 2] != "110":
    if c[1] == 1:
        diagonal[4] 0,2
    else:
        reset 2
switch c[2, 1, 0]:
    default:
        Z 1"""


def test_text():
    assert str(everything()) == TEXT
    assert everything()[2].title == "if c[0] == 1 and c[1] == 0"


def test_qubits_and_bits_are_those_inside():
    circuit = everything()
    assert [(step.qubits, step.clbits) for step in circuit if step.name in ("if", "while", "switch")] == [
        ((0, 1, 2), (0, 1)), ((0, 1), (0, 1, 2)), ((0, 2), (1,)), ((1,), (0, 1, 2)),
    ]  # fmt: skip
    assert [step.is_gate for step in circuit] == [True] + [False] * 8
    assert isinstance(circuit[2].detail, If) and isinstance(circuit[3].detail, While)
    assert isinstance(circuit[8].detail, Switch) and circuit[3].detail.max_iterations == MOST_ITERATIONS
    assert circuit[5].detail == Save("probabilities", "p") and circuit[5].qubits == (2, 0) and circuit[4].qubits == ()


def test_figures():
    circuit = everything()
    assert circuit.gate_counts() == {"H": 2, "bell": 1, "RY": 1, "X": 1, "CSIGN": 1, "diagonal": 1, "Z": 1}
    assert circuit.bind(a=0.3).gate_counts(basic=True)["CNOT"] == 1
    # 2 in front, the longer branch has 1, a round 3, the diagonal or reset 1, Z 1.
    assert circuit.depth() == 8
    assert Circuit(2, 1).if_((0, 1), lambda b: b.h(0).h(0).h(1), lambda b: b.h(0)).h(1).depth() == 3
    assert Circuit(1).save_state("s").save_probabilities("p").depth() == 0


@pytest.mark.parametrize(
    "again",
    [
        Circuit.copy, copy.deepcopy, lambda c: pickle.loads(pickle.dumps(c)), lambda c: pickle.loads(pickle.dumps(c, 2)), lambda c: c * 1,
        lambda c: Circuit(3, 3) + c, lambda c: Circuit(3, 3).compose(c),
        lambda c: c.compose(Circuit(3, 3)), lambda c: Circuit(3, 3).compose(c, [2, 0, 1], [1, 2, 0]).copy()
        and Circuit(3, 3).compose(Circuit(3, 3).compose(c, [2, 0, 1], [1, 2, 0]), [1, 2, 0], [2, 0, 1]),
    ],
)  # fmt: skip
def test_copies(again):
    circuit = everything()
    other = again(circuit)
    assert other == circuit and str(other) == TEXT and list(map(hash, other)) == list(map(hash, circuit))
    assert [pickle.loads(pickle.dumps(step)) for step in other] == list(circuit)
    appended = Circuit(3, 3)
    for step in circuit:
        appended.append(step)
    assert appended == circuit


def test_what_differs_is_unequal():
    def circuits():
        for condition in ((0, 1), (0, 0), (1, 1)):
            for body in (Circuit(1, 2).x(0), Circuit(1, 2).x(0).x(0), Circuit(1, 2).h(0)):
                yield Circuit(1, 2).if_(condition, body)
                yield Circuit(1, 2).if_(condition, Circuit(1), body)
                yield Circuit(1, 2).while_(condition, body + Circuit(1, 2).measure([0], [condition[0]]))
                yield Circuit(1, 2).while_(condition, body + Circuit(1, 2).measure([0], [condition[0]]), 5)
                yield Circuit(1, 2).switch("c", {condition[0] + 2 * condition[1]: body})
                yield Circuit(1, 2).switch("c", {condition[0] + 2 * condition[1]: body}, body)
    made = list(circuits())
    made += [Circuit(1, 2).save_state("a"), Circuit(1, 2).save_probabilities("a"), Circuit(1, 2).save_expectation("a", "Z0")]
    assert len({step for circuit in made for step in circuit}) == len(made)


def test_bodies_are_copied():
    body = Circuit(2, 1).x(1)
    circuit = Circuit(2, 1).if_((0, 1), body)
    body.h(0)
    assert str(circuit) == "if c[0] == 1:\n    X 1"


def test_bodies_have_the_circuit_s_registers():
    registers = [Register("q", "quantum", 0, 1), Register("a", "classical", 0, 1), Register("b", "classical", 1, 2)]
    circuit = Circuit(1, 3, registers=registers)
    circuit.if_(("b", 2), lambda body: body.if_(("a", 1), lambda inner: inner.x(0)))
    assert str(circuit) == 'if c[1, 2] == "01":\n    if c[0] == 1:\n        X 0'


def test_composed_circuits_keep_their_meaning():
    circuit = everything().bind(a=0.3)
    moved = Circuit(5, 4).compose(circuit, [4, 1, 3], [2, 0, 3])
    assert str(moved[2]).splitlines()[0] == "if c[2] == 1 and c[0] == 0:" and moved[2].qubits == (1, 3, 4)
    assert str(moved[3]).splitlines()[1] == "    switch c[0, 2]:" and moved[5].qubits == (3, 4)
    assert moved[6].detail.terms == ((0.5, "XZ", (4, 3)), (1.0, "", ())) and moved[6].qubits == (4, 3)
    one, other = run(circuit, shots=200, seed=1), run(moved, shots=200, seed=1)
    assert one.counts == other.counts.marginal([2, 0, 3])
    assert one.saved["p"].tobytes() == other.saved["p"].tobytes() and one.saved["e"] == other.saved["e"]
    with Circuit(3, 3).when(0, 1) as inside:
        assert str(inside.compose(Circuit(3, 3).if_((0, 0), Circuit(1).x(0)))) == "if c[0] == 1:\n    if c[0] == 0:\n        X 0"


def test_inverse():
    decided = Circuit(2, 2).if_((0, 1), lambda c: c.s(0).cx(0, 1), lambda c: c.ry(0.3, 1)).switch([0, 1], {1: lambda c: c.t(0).h(0)})
    assert str(decided.inverse()) == (
        "switch c[0, 1]:\n    case 1:\n        H 0\n        tdg 0\nif c[0] == 1:\n    CNOT 0,1\n    sdg 0\nelse:\n    RY(-0.3) 1"
    )
    for held in ("00", "01", "10", "11"):
        start = Circuit(4, 2).h(2).measure([0, 1], [0, 1])
        there = start.compose(decided, [2, 3]).compose(decided.inverse(), [2, 3]).h(2)
        assert run(there, initial=held + "00").probability("00", [2, 3]) == pytest.approx(1)
    for circuit, message in (
        (Circuit(1, 1).while_((0, 0), lambda c: c.measure(0, 0)), r"while has no inverse, got while c\[0\] == 0$"),
        (Circuit(1).save_state("s"), "save has no inverse, got save state 's'"),
        (Circuit(1, 1).if_((0, 0), lambda c: c.measure(0, 0)), "measure has no inverse"),
    ):
        with pytest.raises(ValueError, match=message):
            circuit.inverse()


def test_parameters():
    circuit = everything()
    assert circuit.parameters == ("a",)
    bound = circuit.bind(a=0.25)
    assert str(bound) == TEXT.replace("RY(a)", "RY(0.25)") and bound.parameters == ()
    a, b = Parameter("a"), Parameter("b")
    circuit = Circuit(1, 1).if_((0, 1), lambda c: c.rx(a + b, 0).if_((0, 0), lambda d: d.rz(b, 0).x(0)).matrix(np.eye(2), 0))
    partly = circuit.bind(b=0.5)
    assert partly.parameters == ("a",) and circuit.parameters == ("a", "b")
    assert partly.bind(a=1.0) == circuit.bind([1.0, 0.5]) == circuit.bind(a=1, b=0.5)
    assert [str(line) for line in str(circuit.bind([1.0, 0.5])).splitlines()[1:4]] == [
        "    RX(1.5) 0", "    if c[0] == 0:", "        RZ(0.5) 0"
    ]  # fmt: skip
    with pytest.raises(ValueError, match="parameters must have values.*'a'"):
        partly.to_qasm()


def test_basic_instructions_keep_the_bodies():
    basic = list(everything().bind(a=0.3).basic_instructions())
    assert [step.name for step in basic] == ["H", "measure", "if", "while", "save", "save", "save", "if", "switch"]
    assert [step.name for step in basic[2].detail.body] == ["H", "CNOT", "RY"]


# Drawings


def drawn(circuit, **options):
    return circuit.draw(width=options.pop("width", 100), **options).splitlines()


def test_drawings():
    circuit = Circuit(3, 2).measure(0, 0).h(1)
    circuit.if_((0, 1), lambda c: c.cx(0, 2).x(0), lambda c: c.z(2)).x(1)
    assert drawn(circuit) == [
        "q[0]: ─┤M→c[0]├─if c[0]==1 {─●─┤X├─} else {─────}─────",
        "                     │       │        │         │",
        "q[1]: ───┤H├─────────┼───────┼────────┼─────────┼─┤X├─",
        "                     │       │        │         │",
        "q[2]: ───────────────{───────⊕────────}{────┤Z├─}─────",
    ]
    circuit = Circuit(1, 2)
    circuit.while_(circuit.bits("c") < 2, lambda c: c.h(0).measure(0, 1)).switch(0, {0: lambda c: c.x(0), 1: lambda c: c.y(0)})
    assert drawn(circuit, ascii=True) == ["q[0]: -while c<2 {-[H]-[M->c[1]]-}-switch c[0]: 0 {-[X]-} 1 {-[Y]-}-"]
    c = circuit.bits("c")
    circuit = Circuit(2, 2).switch("c", {(1, 2): lambda c: c.x(0)}, lambda c: c.y(1)).if_(~(c[0] & c[1]) | (c == 3), lambda c: c.h(0))
    assert drawn(circuit) == [
        "q[0]: ─switch c: 1, 2 {─┤X├─} default {─────}─if (!(c[0]==1 & c[1]==1)) | c==3 {─┤H├─}─",
        "              │                  │          │",
        "q[1]: ────────{─────────────────}{──────┤Y├─}──────────────────────────────────────────",
    ]


def test_saves_are_drawn_without_connections():
    circuit = Circuit(3).h(1).save_state("all").save_probabilities("p", [2, 0]).save_expectation("none", "1").x(2)
    assert drawn(circuit) == [
        "q[0]: ─────┤save all├─┤save p├─────",
        "q[1]: ─┤H├─────░───────────────────",
        "q[2]: ─────────░─────────░─────┤X├─",
    ]
    assert drawn(Circuit(3).h(1).save_state("s"), idle=False) == ["q[1]: ─┤H├─┤save s├─"]
    assert drawn(Circuit(3).save_state("s"), idle=False) == []


@pytest.mark.parametrize("form", ["svg", "text"])
def test_everything_is_drawn(form):
    text = everything().draw(form)
    for word in ("while", "else", "default", "save", "switch"):
        assert word in text
    assert "if" in everything()._repr_html_()


# OpenQASM 2


def test_an_if_of_single_instructions_is_written_as_conditions():
    circuit = Circuit(2, 1).h(0).measure(0, 0)
    circuit.if_((0, 1), lambda c: c.x(1).rz(0.5, 1).barrier(0), lambda c: c.y(1).measure(1, 0)).x(0)
    written = Circuit(2, 1).h(0).measure(0, 0)
    with written.when(0, 1):
        written.x(1).rz(0.5, 1)
    written.barrier(0)
    with written.when(0, 0):
        written.y(1).measure(1, 0)
    assert circuit.to_qasm() == written.x(0).to_qasm()


@pytest.mark.parametrize(
    "circuit, message",
    [
        (Circuit(1, 2).h(0).if_(("c", 1), Circuit(1).x(0), Circuit(1).y(0)), r'instruction 1 \(if c\[0, 1\] == "10"\).*it has no if; loops and'),
        (Circuit(1, 1).if_((0, 1), Circuit(1, 1).measure(0, 0), Circuit(1).x(0)), "it has no if"),
        (Circuit(1, 1).if_((0, 1), Circuit(1, 1).measure(0, 0).x(0)), "instruction 0.*it has no if"),
        (Circuit(1, 1).if_((0, 1), Circuit(1, 1).if_((0, 0), Circuit(1).x(0))), "it has no if"),
        (Circuit(1, 1).while_((0, 1), Circuit(1, 1).measure(0, 0)), "it has no while"),
        (Circuit(1, 1).switch(0, {0: Circuit(1).x(0)}), "it has no switch"),
        (Circuit(1, 1).x(0).save_state("s"), r"instruction 1 \(save state 's'\) cannot be written in OpenQASM 2: it has no save$"),
        (Circuit(1, 2).if_(Circuit(1, 2).bits("c") < 2, Circuit(1).x(0)), "a condition there is == of one register"),
        (Circuit(1, 2).if_((0, 1), Circuit(1).x(0)), "a condition there reads a whole register"),
    ],
)
def test_what_openqasm_2_cannot_say_is_refused_by_name(circuit, message):
    with pytest.raises(ValueError, match=message):
        circuit.to_qasm()


# What is refused


@pytest.mark.parametrize(
    "circuit, message",
    [
        (Circuit(1, 1).h(0).if_((0, 1), Circuit(1).x(0)), r"instruction 1 \(if c\[0\] == 1\): a state has no classical bits to decide by"),
        (Circuit(1, 1).while_((0, 1), Circuit(1, 1).measure(0, 0)), "to decide by; velacamplix.run follows all outcomes"),
        (Circuit(1).save_state("s"), r"instruction 0 \(save state 's'\): a state has no result to save into"),
    ],
)
def test_a_state_refuses_them(circuit, message):
    state = StateVector(1)
    with pytest.raises(UnsupportedInstruction, match=message) as caught:
        state.run(circuit)
    assert state.to_dict() == {"0": 1} and caught.value.instruction == circuit[caught.value.position]


def test_definitions_refuse_them():
    for circuit in (Circuit(1, 1).if_((0, 1), Circuit(1).x(0)), Circuit(1).save_state("s")):
        with pytest.raises(ValueError, match="gates and barriers without conditions only, got (if|save)"):
            GateDefinition("mine", circuit)
    for name in ("if", "while", "switch", "save"):
        with pytest.raises(ValueError, match="name must be new"):
            GateDefinition(name, Circuit(1).x(0))


X = Circuit(1).x(0)
M = Circuit(1, 1).measure(0, 0)


def raising(circuit):
    circuit.x(0)
    raise LookupError("of my own")


@pytest.mark.parametrize(
    "add, error, message",
    [
        (lambda c: c.if_(0, X), TypeError, r"condition must be one such as circuit.bits\('c'\) == 1, or a pair.*got 0"),
        (lambda c: c.if_("c", X), TypeError, "condition must be one such as"),
        (lambda c: c.if_(True, X), TypeError, "condition must be one such as"),
        (lambda c: c.if_((0, 1, 2), X), TypeError, "condition must be one such as"),
        (lambda c: c.if_(("d", 1), X), KeyError, "clbits must name a classical register"),
        (lambda c: c.if_((2, 1), X), IndexError, "clbits"),
        (lambda c: c.if_(("c", 4), X), ValueError, "value must be an integer from 0 to 3, got 4"),
        (lambda c: c.if_(Condition((7,), 1), X), IndexError, "condition.clbits"),
        (lambda c: c.if_(Circuit(1, 9).bits(8), X), IndexError, "condition.clbits"),
        (lambda c: c.if_((0, 1), "x"), TypeError, "body must be a Circuit or a function that adds to the one it is given, got 'x'"),
        (lambda c: c.if_((0, 1), None), TypeError, "body must be a Circuit or a function"),
        (lambda c: c.if_((0, 1), X, [X]), TypeError, "else_body must be a Circuit or a function"),
        (lambda c: c.if_((0, 1), Circuit(3)), ValueError, "body must have at most 2 qubits and 2 classical bits, .*got <Circuit: 3"),
        (lambda c: c.if_((0, 1), Circuit(1, 3)), ValueError, "body must have at most 2 qubits and 2 classical bits"),
        (lambda c: c.if_((0, 1), lambda body: Circuit(1).x(0)), TypeError, "body must add to the circuit it is given.*finished"),
        (lambda c: c.if_((0, 1), lambda body: 3), TypeError, "body must add to the circuit it is given"),
        (lambda c: c.if_((0, 1), lambda: None), TypeError, "positional argument"),
        (lambda c: c.if_((0, 1), raising), LookupError, "of my own"),
        (lambda c: c.if_((0, 1), lambda body: body.x(2)), IndexError, "qubit"),
        (lambda c: c.while_((0, 1), X), ValueError, r"body of a while must measure into a bit of its condition, c\[0\] == 1, store into one"),
        (lambda c: c.while_((1, 1), M), ValueError, "body of a while must measure into a bit of its condition"),
        (lambda c: c.while_((0, 1), Circuit(1, 1).measure(0, 0).save_state("s")), ValueError, "body of a while must not save.*'s': save after"),
        (lambda c: c.while_((0, 1), M, 0), ValueError, "max_iterations must be an integer of at least 1, got 0"),
        (lambda c: c.while_((0, 1), M, 1.5), TypeError, "max_iterations must be an integer of at least 1"),
        (lambda c: c.while_((0, 1), M, max_iterations=None), TypeError, "max_iterations must be an integer"),
        (lambda c: c.switch("c", [X]), TypeError, "cases must be a mapping from values to bodies, got"),
        (lambda c: c.switch("c", {4: X}), ValueError, "a case must be an integer from 0 to 3, got 4"),
        (lambda c: c.switch("c", {"1": X}), ValueError, "a case must be a text of 2 characters"),
        (lambda c: c.switch("c", {1: X, "10": X}), ValueError, "cases must have distinct values, got 1 twice"),
        (lambda c: c.switch("c", {(): X}), ValueError, "a case must have a value, got none"),
        (lambda c: c.switch("c", {1.0: X}), TypeError, "a case must be an integer"),
        (lambda c: c.switch("c", {1: 2}), TypeError, r"cases\[1\] must be a Circuit or a function"),
        (lambda c: c.switch("c", {1: X}, 5), TypeError, "default must be a Circuit or a function"),
        (lambda c: c.switch(5, {1: X}), IndexError, "clbits"),
        (lambda c: c.save_state(5), TypeError, "name must be a text, got 5"),
        (lambda c: c.save_state(""), ValueError, "name must not be empty"),
        (lambda c: c.save_probabilities("p", 2), IndexError, "qubits"),
        (lambda c: c.save_probabilities("p", [0, 0]), ValueError, "qubits must be distinct"),
        (lambda c: c.save_expectation("e", "Z2"), ValueError, "observable must act on qubits below 2, those of the circuit, got one on qubit 2"),
        (lambda c: c.save_expectation("e", 5), TypeError, "observable"),
    ],
)  # fmt: skip
def test_wrong_arguments_are_refused_and_nothing_is_added(add, error, message):
    circuit = Circuit(2, 2).h(0)
    with pytest.raises(error, match=message):
        add(circuit)
    assert circuit == Circuit(2, 2).h(0)


def test_a_body_makes_no_classical_bits():
    circuit = Circuit(2)
    with pytest.raises(IndexError, match="but it has none: write Circuit"):
        circuit.if_((0, 1), lambda body: body.x(0))
    decided = Instruction("if", (), detail=If(Condition((0,), 1), (Instruction("X", (0,)),)))
    with pytest.raises(IndexError, match="condition.clbits"):
        circuit.append(decided)


IF = If(Condition((0,), 1), (Instruction("X", (1,)),))


@pytest.mark.parametrize(
    "make, error, message",
    [
        (lambda: Instruction("if", (), detail=None), TypeError, "detail of 'if' must be If, got None"),
        (lambda: Instruction("while", (), detail=IF), TypeError, "detail of 'while' must be While, got If"),
        (lambda: Instruction("X", (0,), detail=IF), TypeError, "detail of 'X' must be None, got If"),
        (lambda: Instruction([], (0,), detail=IF), TypeError, "detail of .* must be None"),
        (lambda: Instruction("if", (0,), detail=IF), ValueError, r"qubits and clbits of if must be \(1,\) and \(0,\), or left out"),
        (lambda: Instruction("if", (), controls=(0,), detail=IF), ValueError, "params, controls and definition of if must be left out"),
        (lambda: Instruction("if", (), params=(1.0,), detail=IF), ValueError, "params, controls and definition of if"),
        (lambda: Instruction("if", (), detail=If(3, ())), TypeError, "condition must be a Condition"),
        (lambda: Instruction("if", (), detail=If(Condition((0,), 1), (Instruction("X", (5,)),))), IndexError, "qubits"),
        (lambda: Instruction("if", (), detail=If(Condition((0,), 1), (3,))), TypeError, "body must hold Instruction objects, got 3"),
        (lambda: Instruction("if", (), detail=If(Condition((0,), 1), 3)), TypeError, "body must be a sequence of Instruction"),
        (lambda: Instruction("while", (), detail=While(Condition((0,), 1), (Instruction("X", (1,)),))), ValueError, "must measure into"),
        (lambda: Instruction("while", (), detail=While(Condition((0,), 1), M.instructions, -1)), ValueError, "max_iterations"),
        (lambda: Instruction("switch", (), detail=Switch((0,), (((0, 0), ()),))), ValueError, "distinct values, got 0 twice"),
        (lambda: Instruction("switch", (), detail=Switch((9,), (((0,), ()),))), IndexError, "clbits"),
        (lambda: Instruction("switch", (), detail=Switch((), ())), ValueError, "clbits must hold at least 1"),
        (lambda: Instruction("switch", (), detail=Switch((0,), ((0, ()),))), TypeError, "values of a case must be a sequence"),
        (lambda: Instruction("save", (), detail=Save("picture", "s")), ValueError, "kind must be"),
        (lambda: Instruction("save", (), detail=Save("state", 3)), TypeError, "name must be a text, got 3"),
        (lambda: Instruction("save", (0,), detail=Save("state", "s")), ValueError, r"qubits of save state must be \(\), got \(0,\)"),
        (lambda: Instruction("save", (), detail=Save("expectation", "s")), ValueError, "terms must be given"),
        (lambda: Instruction("save", (), detail=Save("expectation", "s", ((1, "Z", (0,)),))), ValueError, "terms must hold finite"),
        (lambda: Instruction("save", (), detail=Save("expectation", "s", ((1.0, "I", (0,)),))), ValueError, "terms must hold finite"),
        (lambda: Instruction("save", (), detail=Save("expectation", "s", ((1.0, "Z", (5,)),))), IndexError, "qubits of a term"),
        (lambda: Instruction("save", (0,), clbits=(0,), detail=Save("probabilities", "s")), ValueError, "clbits of save must be empty"),
    ],
)  # fmt: skip
def test_instructions_made_by_hand_are_checked(make, error, message):
    circuit = Circuit(2, 2)
    with pytest.raises(error, match=message):
        circuit.append(make())
    assert len(circuit) == 0


def test_instructions_made_by_hand_say_their_qubits():
    circuit = Circuit(2, 2).append(Instruction("if", (), detail=IF))
    assert circuit[0].qubits == (1,) and circuit[0].clbits == (0,)
    assert Circuit(2, 2).append(circuit[0]) == circuit
    observed = Circuit(2).save_expectation("e", Observable("Z1 + 2"))
    assert Circuit(2).append(observed[0]) == observed


# Depth


def deep(levels):
    circuit = Circuit(2, 2).x(1)
    for level in range(levels):
        kind = level % 3
        if kind == 0:
            circuit = Circuit(2, 2).if_((0, 0), circuit, Circuit(1).h(0))
        elif kind == 1:
            circuit = Circuit(2, 2).switch("c", {0: circuit})
        else:
            circuit = Circuit(2, 2).measure(1, 1).while_((1, 0), circuit.measure(1, 1))
    return circuit


def test_the_deepest_that_is_allowed_can_be_used():
    circuit = deep(MOST_LEVELS)
    assert str(circuit).count("    " * MOST_LEVELS) and repr(circuit[0]) and circuit.draw("svg") and circuit.draw(width=100)
    assert pickle.loads(pickle.dumps(circuit)) == circuit == copy.deepcopy(circuit)
    assert pickle.loads(pickle.dumps(circuit[0])) == circuit[0] and hash(circuit[0]) == hash(deep(MOST_LEVELS)[0])
    moved = Circuit(2, 2).compose(circuit, [1, 0], [1, 0])
    assert Circuit(2, 2).compose(moved, [1, 0], [1, 0]) == circuit != moved
    assert circuit.depth() and circuit.gate_counts() and list(circuit.basic_instructions())
    assert run(circuit, shots=3).counts
    a = Parameter("a")
    turned = Circuit(1, 1).rx(a, 0)
    for _ in range(MOST_LEVELS):
        turned = Circuit(1, 1).if_((0, 0), turned)
    assert run(turned.bind([0.3])).expectation("Z0") == pytest.approx(np.cos(0.3)) and turned.bind(a=0.3) == turned.bind([0.3])
    assert turned.bind(a=0.3).inverse().inverse() == turned.bind(a=0.3)


def test_deeper_is_refused():
    circuit = deep(MOST_LEVELS)
    for add in (
        lambda c: c.if_((0, 1), circuit), lambda c: c.switch("c", {}, circuit),
        lambda c: c.while_((1, 0), Circuit(2, 2).measure(1, 1).compose(circuit)),
    ):  # fmt: skip
        with pytest.raises(ValueError, match="instructions must hold each other at most 50 levels deep, got 51"):
            add(Circuit(2, 2))


def test_what_doubles_with_every_level_is_refused():
    circuit = Circuit(1, 1).x(0)
    with pytest.raises(ValueError, match=f"an instruction must hold at most {MOST_INSIDE} others, got"):
        for _ in range(40):
            circuit = Circuit(1, 1).if_((0, 0), circuit, circuit)
