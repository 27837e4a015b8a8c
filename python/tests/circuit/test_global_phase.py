"""Phases of the whole state: as instruction, as property, under control, in every way a circuit can be used."""

import pickle

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, StateVector, run

PHASE = np.exp(0.7j)


def any_circuit(n):
    circuit = Circuit(n).h(range(n)).ry([0.3 + q for q in range(n)], range(n))
    return circuit.cx(range(n - 1), range(1, n)) if n > 1 else circuit


@pytest.mark.parametrize("n", [0, 1, 2, 5, 13])
@pytest.mark.parametrize("precision", ["double", "single"])
def test_every_amplitude_has_it(n, precision):
    tolerance = 1e-15 if precision == "double" else 1e-6
    plain = StateVector(n, precision).run(any_circuit(n)).array
    for made in (any_circuit(n).gphase(0.7), Circuit(n).gphase(0.7) + any_circuit(n)):
        np.testing.assert_allclose(StateVector(n, precision).run(made).array, PHASE * plain, rtol=0, atol=tolerance)
        np.testing.assert_allclose(run(made, precision=precision).state.array, PHASE * plain, rtol=0, atol=tolerance)
        fused = StateVector(n, precision).run(made, fusion=True).array
        np.testing.assert_allclose(fused, PHASE * plain, rtol=0, atol=10 * tolerance)
    called = StateVector(n, precision).run(any_circuit(n)).gphase(0.7).array
    assert called.tobytes() == StateVector(n, precision).run(any_circuit(n).gphase(0.7)).array.tobytes()


def test_it_multiplies_once():
    # Exactly what a diagonal with one number for all does.
    state = StateVector(3).run(any_circuit(3))
    phase = complex(np.cos(0.7), np.sin(0.7))
    assert state.copy().gphase(0.7).array.tobytes() == state.copy().run(Circuit(3).diagonal([phase] * 2, 0)).array.tobytes()


def test_idle_qubits_and_no_qubits():
    assert run(Circuit(50).gphase(0.7).x(40)).probability("1", 40) == 1.0
    np.testing.assert_allclose(run(Circuit(3).gphase(0.7)).state.array, PHASE * np.eye(8)[0], rtol=0, atol=1e-15)
    assert run(Circuit(0).gphase(0.7)).state.array[0] == pytest.approx(PHASE)


@pytest.mark.parametrize("controls, values", [([0], None), ([0, 2], None), ([2, 1], "01"), ([0], 0), ([0, 1, 2], 0)])
def test_with_controls_it_is_a_phase_where_they_hold(controls, values):
    expected = np.ones(8, dtype=complex)
    wanted = values or "1" * len(controls) if values != 0 else "0" * len(controls)
    for index in range(8):
        if all((index >> q & 1) == int(value) for q, value in zip(controls, wanted)):
            expected[index] = PHASE
    made = Circuit(3).gphase(0.7, controls=controls, control_values=values)
    np.testing.assert_allclose(numpy_simulator.unitary(made), np.diag(expected), rtol=0, atol=1e-15)
    state = StateVector(3).run(any_circuit(3))
    before = state.array.copy()
    np.testing.assert_allclose(state.copy().run(made).array, expected * before, rtol=0, atol=1e-15)
    np.testing.assert_allclose(state.gphase(0.7, controls, values).array, expected * before, rtol=0, atol=1e-15)
    np.testing.assert_allclose(numpy_simulator.unitary(Circuit.from_qasm(made.to_qasm())), np.diag(expected), rtol=0, atol=1e-15)
    np.testing.assert_allclose(numpy_simulator.unitary(made + made.inverse()), np.eye(8), rtol=0, atol=1e-15)


def test_as_instruction_it_goes_along():
    a = Parameter("a")
    circuit = Circuit(2).h(0).gphase(2 * a).gphase(0.5)
    assert [str(step) for step in circuit] == ["H 0", "gphase(2*a)", "gphase(0.5)"]
    assert circuit.bind(a=0.1) == Circuit(2).h(0).gphase(0.2).gphase(0.5) != Circuit(2).h(0)
    assert circuit.inverse()[0] == Instruction("gphase", (), (-0.5,))
    assert Circuit(5).compose(circuit, [4, 2])[1] == circuit[1] and len(circuit * 3) == 9
    assert pickle.loads(pickle.dumps(circuit)) == circuit == circuit.copy()
    assert circuit.depth() == 1 and circuit.gate_counts() == {"gphase": 2, "H": 1}
    assert Circuit(1).gphase(theta=0.5) == Circuit(1).gphase(0.5)
    for angle in (0.1, 0.2):
        assert run(circuit.bind(a=angle)).state.array[0] == pytest.approx(np.exp(1j * (2 * angle + 0.5)) / np.sqrt(2))


def test_under_a_condition():
    circuit = Circuit(1, 1).x(0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.gphase(0.7)
    assert circuit.global_phase == 0.0 and run(circuit).state.array[1] == pytest.approx(PHASE)
    assert Circuit.from_qasm(circuit.to_qasm())[-1].condition == circuit[-1].condition


def test_in_a_definition_under_control_it_is_seen():
    own = GateDefinition("own", Circuit(1).gphase(Parameter("a")).x(0))
    circuit = Circuit(2).h(0).gate(own, 1, [0.7], controls=0)
    state = np.array([1, 0, 0, PHASE]) / np.sqrt(2)
    np.testing.assert_allclose(StateVector(2).run(circuit).array, state, rtol=0, atol=1e-15)
    again = Circuit.from_qasm(circuit.to_qasm())
    np.testing.assert_allclose(StateVector(2).run(again).array, state, rtol=0, atol=1e-15)
    plain = Circuit(2).h(0).gate(own, 1, [0.7])
    written = Circuit.from_qasm(plain.to_qasm())
    np.testing.assert_allclose(numpy_simulator.unitary(written), numpy_simulator.unitary(plain), rtol=0, atol=1e-15)


def test_openqasm_has_it_on_a_qubit():
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="compares with Qiskit: pip install velacamplix[test]")
    info = pytest.importorskip("qiskit.quantum_info", reason="compares with Qiskit: pip install velacamplix[test]")
    circuit = any_circuit(2).gphase(0.7).gphase(0.2, controls=1)
    theirs = info.Operator(qasm2.loads(circuit.to_qasm())).data
    np.testing.assert_allclose(theirs, numpy_simulator.unitary(circuit), rtol=0, atol=1e-14)
    with pytest.raises(ValueError, match="instruction 0 cannot be written in OpenQASM 2: a phase there needs a qubit"):
        Circuit(0).gphase(0.7).to_qasm()


def test_the_property():
    a = Parameter("a")
    circuit = Circuit(2)
    assert circuit.global_phase == 0.0
    circuit.gphase(0.5).h(0).gphase(0.25)
    assert circuit.global_phase == 0.75
    circuit.global_phase += 1
    assert circuit == Circuit(2).h(0).gphase(1.75)
    circuit.global_phase = a
    assert circuit.global_phase == a and circuit.parameters == ("a",)
    assert circuit.bind(a=0.5).global_phase == 0.5
    circuit.gphase(0.3, controls=0)
    circuit.global_phase = 0
    assert circuit == Circuit(2).h(0).gphase(0.3, controls=0) and circuit.parameters == ()
    assert run(circuit).state.array[0].imag == 0.0
    circuit.global_phase = np.float32(0.5)  # runs again, with what has changed
    assert run(circuit).state.array[0] == pytest.approx(np.exp(0.5j) / np.sqrt(2))
    for wrong, error in ((np.nan, ValueError), ("1", TypeError), ([1], TypeError)):
        with pytest.raises(error, match="global_phase must be"):
            circuit.global_phase = wrong
    measured = Circuit(1, 1).measure(0, 0)
    with pytest.raises(ValueError, match="global_phase cannot be set inside when"), measured.when(0, 1):
        measured.global_phase = 1


def test_drawings_tell_it():
    circuit = Circuit(2, 1).h(0).gphase(0.5).gphase(0.25).gphase(Parameter("a"))
    with circuit.when(0, 1):
        circuit.gphase(0.1)
    circuit.gphase(0.3, controls=[0, 1]).gphase(0.4, [0, 1], "00")
    text = circuit.draw(width=100, ascii=True)
    assert text.splitlines()[-1] == "(global phase 0.75, a, 0.1 if c==1)"
    assert "[gphase(0.3)]" in text and "[gphase(0.4) on 0]" in text and "global phase" not in Circuit(2).h(0).draw()
    assert "(global phase 0.75, a, 0.1 if c==1)" in circuit.draw("svg")


def test_inside_decisions():
    circuit = Circuit(1, 1).x(0).measure(0, 0).if_(("c", 1), Circuit(1).gphase(0.7), Circuit(1).gphase(0.2))
    assert run(circuit).state.array[1] == pytest.approx(PHASE)
    assert circuit.draw(width=80, ascii=True).splitlines()[-1] == "(global phase 0.7 inside if, 0.2 inside if)"
    a = Parameter("a")
    bound = Circuit(1, 1).if_(("c", 0), Circuit(1).gphase(a).x(0, control_values=None)).bind(a=0.7)
    assert run(bound).state.array[1] == pytest.approx(PHASE)
