"""Circuits from Qiskit's: what an operation becomes, decisions and loops, what is refused."""

import pickle

import numpy as np
import numpy_simulator
import pytest

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")

import qiskit  # noqa: E402
from qiskit import QuantumCircuit  # noqa: E402
from qiskit.circuit import (  # noqa: E402
    AnnotatedOperation,
    ControlModifier,
    Gate,
    InverseModifier,
    Parameter,
    PowerModifier,
    library,  # noqa: E402
)
from qiskit.circuit.classical import expr, types  # noqa: E402
from qiskit.quantum_info import Operator, random_unitary  # noqa: E402

from velacamplix import Circuit, Condition  # noqa: E402
from velacamplix.qiskit import NotConverted, to_velacamplix  # noqa: E402

UNITARY = library.UnitaryGate(random_unitary(4, seed=3))


def part(n_qubits=2, phase=0.4):
    circuit = QuantumCircuit(n_qubits, name="unitary", global_phase=phase)
    circuit.h(0)
    circuit.rz(0.3, n_qubits - 1)
    return circuit


OPERATIONS = {
    "a controlled cu": library.CUGate(0.1, 0.2, 0.3, 0.4).control(1, annotated=False),
    "cu where the control is 0": library.CUGate(0.1, 0.2, 0.3, 0.4, ctrl_state=0),
    "a unitary": UNITARY,
    "a controlled unitary": UNITARY.control(1, annotated=False),
    "controls of both values": library.XGate().control(3, ctrl_state=2, annotated=False),
    "many controls": library.RYGate(0.3).control(4, annotated=False),
    "a circuit as a gate": part().to_gate(),
    "a circuit as a gate, controlled": part().to_gate().control(2, annotated=False),
    "a circuit as a gate, inverted": part().to_gate().inverse(),
    "a circuit as a gate, its phase alone": QuantumCircuit(1, global_phase=0.7).to_gate(),
    "modifiers": AnnotatedOperation(part().to_gate(), [InverseModifier(), ControlModifier(2, 1), PowerModifier(2)]),
    "a root": AnnotatedOperation(part().to_gate(), [PowerModifier(0.5)]),
    "a controlled root of a controlled gate": AnnotatedOperation(library.CHGate(), [PowerModifier(-1.5), ControlModifier(1, 0)]),
    "a controlled phase": AnnotatedOperation(library.GlobalPhaseGate(0.3), [ControlModifier(2, 2)]),
    "working qubits": library.MCXGate(3).control(1, annotated=False),
    "a gate without a counterpart": library.RZXGate(0.3),
    "iswap": library.iSwapGate(),
    "controlled sx": library.CSXGate(),
    "three controls of sx": library.C3SXGate(),
    "ecr": library.ECRGate(),
    "rcccx": library.RC3XGate(),
}


@pytest.mark.parametrize("name", OPERATIONS)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_an_operation_is_the_same_with_its_phase(name):
    operation = OPERATIONS[name]
    circuit = QuantumCircuit(operation.num_qubits, global_phase=0.25)
    circuit.append(operation, list(range(operation.num_qubits))[::-1])
    mine = numpy_simulator.unitary(to_velacamplix(circuit))
    np.testing.assert_allclose(mine, Operator(circuit).data, rtol=0, atol=1e-12)


def test_a_body_with_parameters():
    a, b = Parameter("a"), Parameter("b")
    inner = QuantumCircuit(2, name="turn", global_phase=a / 2)
    inner.rx(2 * b, 0)
    inner.cp(a - b, 0, 1)
    circuit = QuantumCircuit(3)
    circuit.append(inner.to_gate(), [2, 0])
    circuit.append(inner.to_gate().control(1, annotated=False), [0, 1, 2])
    mine = numpy_simulator.unitary(to_velacamplix(circuit).bind(a=0.7, b=-0.2))
    np.testing.assert_allclose(mine, Operator(circuit.assign_parameters({a: 0.7, b: -0.2})).data, rtol=0, atol=1e-12)


def test_conditions_as_expressions():
    circuit = QuantumCircuit(1, 3)
    for condition in (
        expr.lift(circuit.clbits[1]), expr.logic_not(circuit.clbits[2]), expr.bit_not(circuit.clbits[0]),
        expr.equal(circuit.cregs[0], 5), expr.equal(expr.lift(True), circuit.clbits[1]), expr.not_equal(circuit.clbits[1], True),
        (circuit.cregs[0], 3), (circuit.clbits[2], True),
    ):  # fmt: skip
        with circuit.if_test(condition):
            circuit.x(0)
    found = [step.condition for step in to_velacamplix(circuit)]
    assert found == [
        Condition((1,), 1), Condition((2,), 0), Condition((0,), 0), Condition((0, 1, 2), 5), Condition((1,), 1), Condition((1,), 0),
        Condition((0, 1, 2), 3), Condition((2,), 1),
    ]  # fmt: skip


@pytest.mark.parametrize("has_box", [hasattr(qiskit.circuit, "BoxOp")])
def test_what_is_in_a_box_happens(has_box):
    if not has_box:
        pytest.skip(f"Qiskit {qiskit.__version__} has no boxes")
    circuit = QuantumCircuit(2)
    with circuit.box():
        circuit.h(1)
        circuit.delay(5, 0)
        circuit.global_phase = 0.5
    mine = numpy_simulator.unitary(to_velacamplix(circuit))
    inside = QuantumCircuit(2, global_phase=0.5)
    inside.h(1)
    np.testing.assert_allclose(mine, Operator(inside).data, rtol=0, atol=1e-12)


def test_what_is_refused_is_named_with_its_position():
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.append(Gate("opaque", 2, []), [1, 0])
    with pytest.raises(NotConverted, match="gate 'opaque' has no definition") as caught:
        to_velacamplix(circuit)
    for error in (caught.value, pickle.loads(pickle.dumps(caught.value))):
        assert (error.position, error.instruction) == (1, "'opaque' on qubits 1, 0")
        assert error.reason == "gate 'opaque' has no definition"
        assert str(error) == "instruction 1, 'opaque' on qubits 1, 0: gate 'opaque' has no definition"
    with pytest.raises(TypeError, match="circuit must be a qiskit.QuantumCircuit, got"):
        to_velacamplix(Circuit(2))


def test_matrices_are_checked():
    circuit = QuantumCircuit(1)
    circuit.append(library.UnitaryGate([[1, 1], [0, 1]], check_input=False), [0])
    with pytest.raises(NotConverted, match="unitary"):
        to_velacamplix(circuit)


@pytest.mark.parametrize("make", [lambda a: abs(a), lambda a: a.sign(), lambda a: a * 1j])
def test_angles_that_are_refused(make):
    circuit = QuantumCircuit(1)
    circuit.h(0)
    circuit.rx(make(Parameter("a")), 0)
    with pytest.raises(NotConverted, match="^instruction 1, 'rx' on qubits 0: angle cannot be converted"):
        to_velacamplix(circuit)


def test_registers_have_their_names():
    circuit = QuantumCircuit(qiskit.QuantumRegister(2, "left"), [qiskit.circuit.Qubit()], qiskit.ClassicalRegister(1, "q"))
    assert [(r.name, r.size) for r in to_velacamplix(circuit).registers] == [("left", 2), ("q_2", 1), ("q", 1)]


# Decisions and loops


def conditions(circuit):
    """Pairs of Qiskit's condition, and what it is here."""
    c, a, b = circuit.cregs[0], *circuit.clbits[:2]
    mine = Circuit(1, 3).bits("c")
    return [
        (expr.less(c, 5), mine < 5), (expr.greater_equal(3, c), mine <= 3), (expr.not_equal(c, 4), mine != 4),
        (expr.logic_and(a, expr.logic_not(b)), mine[0] & ~mine[1]), (expr.logic_or(expr.equal(c, 1), b), (mine == 1) | mine[1]),
        (expr.bit_xor(a, b), mine[0] ^ mine[1]), (expr.bit_and(a, expr.bit_or(b, a)), mine[0] & (mine[1] | mine[0])),
        (expr.equal(a, b), ~(mine[0] ^ mine[1])), (expr.not_equal(a, b), mine[0] ^ mine[1]),
        (expr.logic_not(expr.logic_and(a, b)), ~(mine[0] & mine[1])), (expr.logic_not(c), mine == 0),
        (expr.cast(c, types.Bool()), mine != 0), (expr.index(c, 2), mine[2] == 1), (expr.less(c, expr.lift(6, types.Uint(8))), mine < 6),
    ]  # fmt: skip


def test_conditions_of_decisions():
    circuit = QuantumCircuit(1, 3)
    for theirs, _ in conditions(circuit):
        with circuit.if_test(theirs):
            circuit.x(0)
    found = [step.condition for step in to_velacamplix(circuit)]
    assert list(map(str, found)) == [str(mine) for _, mine in conditions(circuit)]
    assert found == [mine for _, mine in conditions(circuit)]


def bits_of_expressions():
    return QuantumCircuit(qiskit.QuantumRegister(1), qiskit.ClassicalRegister(3, "c"), qiskit.ClassicalRegister(2, "d"))


# Without words of their own: what they say of the numbers c and d.
TRIED = {
    "a register of another": (lambda c, d: expr.less(c, d), lambda c, d: c < d),
    "bits of a register turned": (lambda c, d: expr.equal(expr.bit_not(c), 3), lambda c, d: 7 - c == 3),
    "a number cut off": (lambda c, d: expr.equal(expr.cast(c, types.Uint(1)), 1), lambda c, d: c % 2 == 1),
    "whether a number is not 0 is true": (lambda c, d: expr.equal(expr.cast(c, types.Bool()), True), lambda c, d: c != 0),
    "a mask": (lambda c, d: expr.not_equal(expr.bit_and(c, 5), 4), lambda c, d: c & 5 != 4),
    "two registers": (lambda c, d: expr.equal(expr.bit_xor(c, expr.cast(d, types.Uint(3))), 6), lambda c, d: c ^ d == 6),
    "shifted": (lambda c, d: expr.equal(expr.shift_right(c, 1), d), lambda c, d: c >> 1 == d),
    "shifted up, cut off": (lambda c, d: expr.greater(expr.shift_left(c, 1), 3), lambda c, d: (c << 1) % 8 > 3),
    "a bit at a place": (lambda c, d: expr.index(c, d), lambda c, d: bool(c >> d & 1)),
}


@pytest.mark.parametrize("case", TRIED)
def test_conditions_without_words_of_their_own(case):
    make, holds = TRIED[case]
    circuit = bits_of_expressions()
    with circuit.if_test(make(*circuit.cregs)):
        circuit.x(0)
    (step,) = to_velacamplix(circuit)
    assert step.name == "X"
    assert [step.condition.holds(bits) for bits in range(32)] == [holds(bits & 7, bits >> 3) for bits in range(32)]


@pytest.mark.parametrize(
    "make, is_always",
    [
        (lambda c: expr.less(c.cregs[0], expr.lift(9, types.Uint(8))), True),
        (lambda c: (c.cregs[0], 8), False),
        (lambda c: expr.lift(True), True),
        (lambda c: expr.greater(c.cregs[0], expr.lift(9, types.Uint(8))), False),
    ],
)
def test_conditions_with_one_answer_leave_a_body(make, is_always):
    circuit = bits_of_expressions()
    with circuit.if_test(make(circuit)) as otherwise:
        circuit.x(0)
    with otherwise:
        circuit.y(0)
    assert str(to_velacamplix(circuit)) == ("X 0" if is_always else "Y 0")
    circuit = bits_of_expressions()
    with circuit.while_loop(make(circuit)):
        circuit.measure(0, 0)
    if is_always:
        with pytest.raises(NotConverted, match="the loop never ends: its condition always holds"):
            to_velacamplix(circuit)
    else:
        assert len(to_velacamplix(circuit)) == 0


def test_conditions_that_are_refused():
    circuit = QuantumCircuit(qiskit.QuantumRegister(1), qiskit.ClassicalRegister(7, "c"), qiskit.ClassicalRegister(7, "d"))
    circuit.x(0)
    with circuit.if_test(expr.less(expr.shift_left(*circuit.cregs), 3)):
        circuit.x(0)
    with pytest.raises(NotConverted, match="has 14 bits, of which at most 12 are tried") as caught:
        to_velacamplix(circuit)
    assert caught.value.position == 1
    circuit = QuantumCircuit(1, 1, inputs=[expr.Var.new("v", types.Bool())])
    with circuit.if_test(list(circuit.iter_input_vars())[0]):
        circuit.x(0)
    with pytest.raises(NotConverted, match="a variable that is an input has no value"):
        to_velacamplix(circuit)


def test_decisions_loops_and_switches_in_each_other():
    circuit = QuantumCircuit(2, 3)
    c = circuit.cregs[0]
    circuit.measure(0, 0)
    with circuit.if_test((c, 1)) as otherwise:
        circuit.x(1)
        circuit.global_phase  # noqa: B018  (of the whole, not of the body)
        with circuit.while_loop(expr.less(c, 3)):
            circuit.h(0)
            circuit.measure(0, 1)
    with otherwise:
        with circuit.switch(c) as case:
            with case(2, 5):
                circuit.cx(1, 0)
            with case(case.DEFAULT):
                circuit.reset(1)
    with circuit.switch(circuit.clbits[2]) as case:
        with case(True):
            circuit.y(0)
    mine = Circuit(2, 3).measure(0, 0)
    bits = mine.bits("c")
    mine.if_(
        bits == 1,
        lambda b: b.x(1).while_(bits < 3, lambda d: d.h(0).measure(0, 1)),
        lambda b: b.switch("c", {(2, 5): lambda d: d.cx(1, 0)}, lambda d: d.reset(1)),
    ).switch(2, {1: lambda b: b.y(0)})
    assert str(to_velacamplix(circuit)) == str(mine) and to_velacamplix(circuit) == mine


def test_bodies_keep_their_phases():
    body = QuantumCircuit(1, 1, global_phase=0.7)
    body.s(0)
    circuit = QuantumCircuit(1, 1)
    circuit.if_else((circuit.clbits[0], 1), body, QuantumCircuit(1, 1, global_phase=0.2), [0], [0])
    decided = to_velacamplix(circuit)
    assert [(step.name, step.condition) for step in decided] == [
        ("gphase", Condition((0,), 1)), ("S", Condition((0,), 1)), ("gphase", Condition((0,), 0)),
    ]  # fmt: skip


def test_loops_are_written_out():
    circuit, turn = QuantumCircuit(2, 1), Parameter("turn")
    with circuit.for_loop((0, 2, 5), turn):
        circuit.rx(turn / 2, 0)
        with circuit.for_loop(range(2)):
            circuit.x(1)
    with circuit.for_loop(range(10**12)):
        pass
    assert str(to_velacamplix(circuit)) == "\n".join([f"RX({half:g}) 0\nX 1\nX 1" for half in (0, 1, 2.5)])
    circuit = QuantumCircuit(1)
    with circuit.for_loop(range(10**12)):
        circuit.x(0)
    with pytest.raises(NotConverted, match="^instruction 0, 'for_loop' on qubits 0: loops written out have more than 10000000 instr"):
        to_velacamplix(circuit)


def test_what_is_no_decision_is_refused_by_name():
    circuit = QuantumCircuit(1, 2)
    with circuit.while_loop((0, 1)):
        circuit.measure(0, 1)
    with pytest.raises(NotConverted, match="body of a while must measure into a bit of its condition"):
        to_velacamplix(circuit)


@pytest.mark.parametrize("n, message", [(60, "instructions must hold each other at most 50 levels deep, got 51"), (300, "too deeply for Python's stack")])
def test_bodies_are_nested_up_to_a_limit(n, message):
    body = QuantumCircuit(1, 1)
    body.x(0)
    for _ in range(n):
        outside = QuantumCircuit(1, 1)
        outside.if_else((outside.clbits[0], 1), body, None, [0], [0])
        body = outside
    with pytest.raises(NotConverted, match=message):
        to_velacamplix(body)
