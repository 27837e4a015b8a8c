"""Circuits made of circuits, and the numbers that describe them."""


import numpy as np
import numpy_simulator
import pytest
from random_circuits import random_circuit

from velacamplix import Circuit, Condition, GateDefinition, Instruction, Parameter, Register

BELL = Circuit(2).h(0).cx(0, 1)


def assert_inverse(circuit):
    whole = numpy_simulator.unitary(circuit + circuit.inverse())
    np.testing.assert_allclose(whole, np.eye(len(whole)), rtol=0, atol=1e-13)


# --- compose and + ---


def test_compose_adds_to_the_circuit_itself():
    circuit = Circuit(3).x(2)
    assert circuit.compose(BELL) is circuit
    assert circuit == Circuit(3).x(2).h(0).cx(0, 1)
    assert BELL == Circuit(2).h(0).cx(0, 1)


def test_compose_renumbers_everything():
    inner = Circuit(3, 2).x(0, controls=[1, 2]).measure([0, 2], [1, 0]).reset(1).barrier(2, 0)
    with inner.when("c", 2):
        inner.h(1)
    outer = Circuit(5, 4).compose(inner, qubits=[4, 0, 2], clbits=[3, 1])
    assert list(outer) == [
        Instruction("X", (4,), controls=(0, 2)),
        Instruction("measure", (4, 2), clbits=(1, 3)),
        Instruction("reset", (0,)),
        Instruction("barrier", (2, 4)),
        Instruction("H", (0,), condition=Condition((3, 1), 2)),
    ]


def test_compose_with_itself():
    circuit = Circuit(2).h(0)
    assert circuit.compose(circuit, [1, 0]) == Circuit(2).h(0).h(1)


def test_plus_makes_a_new_circuit():
    first, second = Circuit(2, 1).x(0), Circuit(1).y(0)
    both = first + second
    assert both == Circuit(2, 1).x(0).y(0)
    assert len(first) == 1 and len(second) == 1


def test_compose_inside_when():
    circuit = Circuit(2, 1)
    with circuit.when(0, 1):
        circuit.compose(Circuit(2).h(0).barrier().x(1))
    yes = Condition((0,), 1)
    assert [step.condition for step in circuit] == [yes, None, yes]
    with pytest.raises(ValueError, match="no conditions of its own inside when"):
        with circuit.when(0, 0):
            circuit.compose(circuit)


def test_compose_keeps_parameters_and_definitions():
    turn = GateDefinition("turn", Circuit(1).rx(Parameter("t"), 0))
    circuit = Circuit(2).compose(Circuit(1).gate(turn, 0, [Parameter("a")]), 1)
    assert circuit.parameters == ("a",)
    assert circuit.bind(a=1)[0] == Instruction("turn", (1,), (1.0,), definition=turn)


@pytest.mark.parametrize(
    "kind, message, call",
    [
        (TypeError, "other must be a Circuit, got 'x'", lambda c: c.compose("x")),
        (TypeError, "unsupported operand", lambda c: c + 1),
        (ValueError, "other must have at most 2 qubits.*got 3", lambda c: c.compose(Circuit(3))),
        (ValueError, "other must have at most 1 clbits.*got 2", lambda c: c.compose(Circuit(1, 2))),
        (ValueError, "other must have at most 2 qubits", lambda c: c + Circuit(3)),
        (ValueError, "qubits must name 2 numbers.*got 1", lambda c: c.compose(BELL, [0])),
        (ValueError, "qubits must be distinct", lambda c: c.compose(BELL, [0, 0])),
        (IndexError, r"qubits\[1\] must be a number from 0 to 1, got 2", lambda c: c.compose(BELL, [0, 2])),
        (TypeError, r"qubits\[0\] must be an integer", lambda c: c.compose(BELL, [0.0, 1])),
        (ValueError, "clbits must name 0 numbers", lambda c: c.compose(BELL, clbits=[0])),
        (TypeError, "times must be an integer.*got True", lambda c: c.repeat(True)),
        (TypeError, "times must be an integer.*got 1.5", lambda c: c.repeat(1.5)),
        (TypeError, "can't multiply|unsupported operand", lambda c: c * 1.5),
        (ValueError, "times must be an integer of at least 0, got -1", lambda c: c * -1),
        (ValueError, "times must give at most 100000000 instructions", lambda c: c.repeat(10**12)),
    ],
)
def test_refused(kind, message, call):
    circuit = Circuit(2, 1).x(0)
    with pytest.raises(kind, match=message):
        call(circuit)
    assert circuit == Circuit(2, 1).x(0)


# --- repeat and inverse ---


def test_repeat():
    for twice in (BELL.repeat(2), BELL * 2, 2 * BELL, BELL * np.int64(2)):
        assert twice == Circuit(2).h(0).cx(0, 1).h(0).cx(0, 1)
    assert BELL * 0 == Circuit(2)
    assert Circuit(2).repeat(10**12) == Circuit(2), "nothing repeated is nothing"


def test_inverse_of_every_kind_of_gate():
    rng = np.random.default_rng(1)
    dense = np.linalg.qr(rng.normal(size=(4, 4)) + 1j * rng.normal(size=(4, 4)))[0]
    circuit = Circuit(4).h(0).u2(0.3, 0.4, 1).matrix(dense, [3, 1], controls=0).diagonal([1, 1j], 2).barrier()
    circuit.append(Instruction("rc3x", (3, 1, 0, 2))).append(Instruction("rc3x", (0, 1, 2, 3))).rccx(1, 0, 2, controls=3)
    circuit.cu(0.1, 0.2, 0.3, 0.4, 2, 0).iswap(0, 3, controls=1).sx(1)
    inner = GateDefinition("inner", Circuit(2).s(0).cx(0, 1).rx(Parameter("t"), 1))
    outer = GateDefinition("outer", Circuit(3).gate(inner, [2, 0], [Parameter("s") * 2]).t(1))
    circuit.gate(outer, [1, 2, 3], [0.7], controls=0)
    assert_inverse(circuit)
    assert circuit.inverse()[0].name == "outer_dg"
    assert circuit.inverse().inverse()[-1] == circuit[-1]


def test_inverse_keeps_conditions_and_registers():
    circuit = Circuit(1, 1, registers=[Register("a", "quantum", 0, 1), Register("b", "classical", 0, 1)])
    with circuit.when("b", 1):
        circuit.s(0)
    undone = circuit.inverse()
    assert undone.registers == circuit.registers
    assert list(undone) == [Instruction("sdg", (0,), condition=Condition((0,), 1))]


@pytest.mark.parametrize("name", ["measure", "reset"])
def test_what_cannot_be_undone(name):
    circuit = Circuit(1, 1).h(0)
    circuit = circuit.measure(0, 0) if name == "measure" else circuit.reset(0)
    with pytest.raises(ValueError, match=f"{name} has no inverse, got {name} 0"):
        circuit.inverse()


def test_matrices_that_are_not_unitary_cannot_be_undone():
    with pytest.raises(ValueError, match="matrix must be unitary to be inverted"):
        Circuit(1).matrix([[1, 1], [0, 1]], 0, check=False).inverse()
    with pytest.raises(ValueError, match="diagonal must be unitary to be inverted"):
        Circuit(1).diagonal([1, 2], 0, check=False).inverse()


# --- depth and counts ---


def test_depth():
    assert Circuit(0).depth() == Circuit(3).depth() == 0
    assert Circuit(3).h(0).h(1).h(2).depth() == 1
    assert Circuit(3).h(0).cx(0, 1).cx(1, 2).depth() == 3
    assert Circuit(2).h(0).barrier().h(1).depth() == 2
    assert Circuit(2).h(0).h(1).barrier().depth() == 1
    circuit = Circuit(2, 1).h(0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(1)
    assert circuit.depth() == 3


@pytest.mark.parametrize("seed", range(20))
def test_depth_is_the_one_qiskit_counts(seed):
    qiskit = pytest.importorskip("qiskit", reason="compares with Qiskit: pip install velacamplix[test]")
    circuit = random_circuit(seed)
    theirs = qiskit.QuantumCircuit(5, 3)
    for step in circuit:
        if step.name == "barrier":
            theirs.barrier(step.qubits)
            continue
        # For the depth it only matters what is touched.
        bits = step.clbits + (() if step.condition is None else step.condition.clbits)
        touched = step.qubits + step.controls
        theirs.append(qiskit.circuit.Instruction("step", len(touched), len(bits), []), touched, bits)
    assert circuit.depth() == theirs.depth()


def test_gate_counts():
    circuit = Circuit(4, 1).h(0).h(1).cx(0, 1).rx(0.5, 0).rx(0.5, 0, controls=1).rx(0.5, 0, controls=[1, 2]).rzz(1, 0, 1).measure(0, 0).barrier()
    assert circuit.gate_counts() == {"H": 2, "CNOT": 1, "RX": 1, "cRX": 1, "c2RX": 1, "rzz": 1}
    assert list(circuit.gate_counts())[0] == "H"
    assert circuit.gate_counts(basic=True)["diagonal"] == 1
    assert Circuit(1).gate_counts() == {}
    with pytest.raises(TypeError, match="basic must be True or False"):
        circuit.gate_counts("yes")
    with pytest.raises(ValueError, match="parameters must have values"):
        Circuit(1).rx(Parameter("a"), 0).gate_counts(basic=True)
