"""Circuits under control and to a power."""

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, Register, StateVector, run


def sample():
    own = GateDefinition("own", Circuit(2).ry(0.3, 0).cx(0, 1).gphase(0.1))
    circuit = Circuit(3).h(0).cx(0, 1).rzz(0.4, 1, 2).barrier().u(0.1, 0.2, 0.3, 2).swap(0, 2).gphase(0.7)
    circuit.gate(own, [2, 0]).x(1, [0, 2], "01").gphase(0.2, controls=1).gphase(0.3, [0, 2], "00").dcx(1, 2)
    return circuit.matrix(np.diag([1, 1j, -1, 1]), [0, 2]).diagonal([1, 1j], 1)


@pytest.mark.parametrize("values", ["1", "0", "11", "01", "00", "101"])
def test_it_acts_where_the_controls_hold(values):
    n, circuit = len(values), sample()
    made = circuit.controlled(n, control_values=values)
    expected = np.eye(2 ** (3 + n), dtype=complex)
    on = [index for index in range(2 ** (3 + n)) if all((index >> q & 1) == int(value) for q, value in enumerate(values))]
    expected[np.ix_(on, on)] = numpy_simulator.unitary(circuit)
    np.testing.assert_allclose(numpy_simulator.unitary(made), expected, rtol=0, atol=1e-14)
    state = StateVector(3 + n).h(range(3 + n)).t(n)
    np.testing.assert_allclose(state.copy().run(made).array, expected @ state.array, rtol=0, atol=1e-14)
    assert made.copy().inverse().inverse().n_qubits == 3 + n and len(made) == len(circuit)
    np.testing.assert_allclose(numpy_simulator.unitary(made + made.inverse()), np.eye(len(expected)), rtol=0, atol=1e-13)


def test_qiskit_controls_it_the_same_way():
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="compares with Qiskit: pip install velacamplix[test]")
    info = pytest.importorskip("qiskit.quantum_info", reason="compares with Qiskit: pip install velacamplix[test]")
    circuit = Circuit(2).h(0).cx(0, 1).p(0.4, 1).rx(0.3, 0)
    theirs = qasm2.loads(circuit.to_qasm())
    theirs.global_phase = 0.7
    circuit.gphase(0.7)
    for n, mine, state in ((1, None, None), (2, "01", "10"), (2, 0, 0)):
        expected = info.Operator(theirs.to_gate().control(n, ctrl_state=state, annotated=False)).data
        np.testing.assert_allclose(numpy_simulator.unitary(circuit.controlled(n, mine)), expected, rtol=0, atol=1e-13)


def test_a_phase_becomes_one_of_the_controls():
    assert list(Circuit(1).gphase(0.5).controlled()) == [Instruction("PH", (0,), (0.5,))]
    assert list(Circuit(1).gphase(0.5).controlled(2)) == [Instruction("PH", (1,), (0.5,), (0,))]
    assert list(Circuit(1).gphase(0.5).controlled(2, "10")) == [Instruction("PH", (0,), (0.5,), (1,), control_values="0")]
    assert list(Circuit(1).gphase(0.5).controlled(1, 0)) == [Instruction("gphase", (), (0.5,), (0,), control_values="0")]


def test_registers_bits_conditions_and_parameters_go_along():
    registers = [Register("control", "quantum", 0, 1), Register("b", "quantum", 1, 1), Register("c", "classical", 0, 1)]
    circuit = Circuit(2, 1, registers=registers).rx(Parameter("a"), 1)
    with circuit.when("c", 1):
        circuit.x(0)
    made = circuit.controlled(2)
    assert made.registers == (
        Register("control_2", "quantum", 0, 2), Register("control", "quantum", 2, 1), Register("b", "quantum", 3, 1),
        Register("c", "classical", 0, 1),
    )  # fmt: skip
    assert made.bind(a=0.5)[0] == Instruction("RX", (3,), (0.5,), (0, 1)) and made[1].condition == circuit[1].condition

    class Own(Circuit):
        pass

    assert type(Own(1).h(0).controlled()) is Own and Circuit(0).controlled().n_qubits == 1


def test_power():
    circuit = Circuit(2).h(0).t(0).cx(0, 1)
    assert circuit.power(3) == circuit * 3 and circuit.power(0) == Circuit(2) and circuit.power(np.int64(1)) == circuit
    assert circuit.power(-2) == circuit.inverse() * 2
    matrix = numpy_simulator.unitary(circuit)
    for k in (-2, -1, 0, 1, 4):
        expected = np.linalg.matrix_power(matrix, k)
        np.testing.assert_allclose(numpy_simulator.unitary(circuit.power(k)), expected, rtol=0, atol=1e-14)


MISTAKES = {
    "no controls": (ValueError, "num_controls must be an integer from 1", lambda c: c.controlled(0)),
    "too many": (ValueError, "num_controls must be an integer from 1 to 999998, got 1000000", lambda c: c.controlled(10**6)),
    "a fraction of controls": (TypeError, "num_controls must be an integer", lambda c: c.controlled(1.0)),
    "values of too many": (ValueError, "control_values must be 0 or 1 for each of the 1 controls", lambda c: c.controlled(1, "00")),
    "a measurement": (ValueError, r"controlled\(\) takes gates, barriers and decisions among them, got measure 0 -> 0", lambda c: c.measure(0, 0).controlled()),
    "a reset": (ValueError, r"controlled\(\) takes gates, barriers and decisions among them, got reset 0", lambda c: c.reset(0).controlled()),
    "a root": (TypeError, "exponent must be an integer, got 0.5; for a root take that of the matrix", lambda c: c.power(0.5)),
    "a text": (TypeError, "exponent must be an integer, got '2'", lambda c: c.power("2")),
    "the inverse of a reset": (ValueError, "reset has no inverse", lambda c: c.reset(0).power(-1)),
    "too often": (ValueError, "times must give at most", lambda c: c.h(0).power(10**12)),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes(case):
    kind, message, call = MISTAKES[case]
    with pytest.raises(kind, match=message):
        call(Circuit(2, 1))


def test_decisions_among_gates():
    circuit = Circuit(2, 1).if_(("c", 0), Circuit(2).h(0).gphase(0.7), Circuit(2).x(1)).switch("c", {0: Circuit(2).cx(0, 1)})
    made = circuit.controlled(1, 0)
    by_hand = Circuit(3).h(1, 0, 0).gphase(0.7, 0, 0).ccx(0, 1, 2, (), "01")
    np.testing.assert_allclose(run(made).state.array, run(by_hand).state.array, rtol=0, atol=1e-15)
    with pytest.raises(ValueError, match="controlled.. takes gates, barriers and decisions among them, got measure 0 -> 0"):
        Circuit(1, 1).if_(("c", 0), Circuit(1, 1).measure(0, 0)).controlled()
    with pytest.raises(ValueError, match="got while"):
        Circuit(1, 1).while_(("c", 0), Circuit(1, 1).x(0).measure(0, 0)).controlled()
