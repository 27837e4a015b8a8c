"""Controls that must read 0: the same as X before and after, bit for bit, and kept as they were asked for."""

import copy
import pickle

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, StateVector, run
from velacamplix.instructions.gates import GATES
from velacamplix.views.shapes import Circle, Line, picture

ANGLES = (0.4, -1.3, 2.2, 0.9)
METHODS = [(method, gate, n) for gate in GATES.values() for method, n in gate.methods.items()]
IDS = [method for method, _, _ in METHODS]


def plus(n):
    """A state with another amplitude at every place."""
    state = StateVector(n, seed=1)
    for qubit in range(n):
        state.ry(0.3 + qubit, qubit).rz(0.7 * qubit + 0.1, qubit)
    return state


def flipped(circuit, qubits):
    """X on these qubits, the circuit, and X again."""
    return Circuit(circuit.n_qubits).x(qubits).compose(circuit).x(qubits)


@pytest.mark.parametrize("method, gate, n_controls", METHODS, ids=IDS)
def test_every_gate_of_every_method(method, gate, n_controls):
    n_own = gate.n_qubits + n_controls
    n = n_own + 2
    arguments = (*ANGLES[: gate.n_params], *range(n_own))
    named = list(range(gate.named_controls(n_controls)))
    for values in ("0" * (len(named) + 2), ("01" * 3)[: len(named) + 2], ("10" * 3)[: len(named) + 2]):
        zeros = [q for q, value in zip([*named, n_own, n_own + 1], values) if value == "0"]
        plain = getattr(Circuit(n), method)(*arguments, controls=[n_own, n_own + 1])
        made = getattr(Circuit(n), method)(*arguments, controls=[n_own, n_own + 1], control_values=values)
        assert len(made) == 1 and made != plain
        expected = plus(n).run(flipped(plain, zeros)).array.tobytes()
        assert plus(n).run(made).array.tobytes() == expected
        called = getattr(plus(n), method)(*arguments, controls=[n_own, n_own + 1], control_values=values).array
        by_calls = getattr(plus(n).x(zeros), method)(*arguments, controls=[n_own, n_own + 1]).x(zeros).array
        assert called.tobytes() == by_calls.tobytes()
        again = Circuit.from_qasm(made.to_qasm())
        np.testing.assert_allclose(
            numpy_simulator.unitary(again), numpy_simulator.unitary(flipped(plain, zeros)), rtol=0, atol=1e-13
        )
        undone = made + made.inverse()
        np.testing.assert_allclose(numpy_simulator.unitary(undone), np.eye(2**n), rtol=0, atol=1e-13)
        assert all(step.control_values for step in made.inverse())


def test_the_ways_to_write_them():
    expected = Circuit(3).x(2, [0, 1], "01")
    (step,) = expected
    assert step == Instruction("X", (2,), (), (0, 1), control_values="01") and str(step) == 'X 2 controls 0,1 == "01"'
    for same in (1, [0, 1], (0, 1), np.array([0, 1]), [False, True], range(2), iter([0, 1]), np.int8(1)):
        assert Circuit(3).x(2, [0, 1], control_values=same) == expected
    for ones in (None, "11", 3, [1, 1], ""):
        assert Circuit(3).x(2, [0, 1], control_values=ones) == Circuit(3).x(2, [0, 1])
    assert str(Circuit(2).x(1, 0, 0)) == "X 1 controls 0 == 0"
    assert Circuit(2).append(Instruction("X", (1,), (), (0,), control_values=[1])) == Circuit(2).x(1, 0)


def test_a_gate_whose_name_has_controls():
    assert list(Circuit(3).cx(0, 1, control_values=0)) == [Instruction("X", (1,), (), (0,), control_values="0")]
    assert list(Circuit(3).cx(0, 1, 2, "10")) == [Instruction("X", (1,), (), (0, 2), control_values="10")]
    assert list(Circuit(3).ccx(0, 1, 2, (), "01")) == [Instruction("X", (2,), (), (0, 1), control_values="01")]
    assert list(Circuit(3).cz(0, 1, control_values="0")) == [Instruction("Z", (1,), (), (0,), control_values="0")]
    assert list(Circuit(3).crx(0.5, 0, 1, control_values="0")) == [Instruction("RX", (1,), (0.5,), (0,), control_values="0")]
    assert Circuit(3).cx(0, 1, control_values=1) == Circuit(3).cx(0, 1)
    assert Circuit(3).cx([0, 1], 2, control_values=0) == Circuit(3).cx(0, 2, control_values=0).cx(1, 2, control_values=0)


def test_gates_with_entries_gates_of_ones_own_and_gates_on_many_qubits():
    rng = np.random.default_rng(3)
    matrix = np.linalg.qr(rng.normal(size=(4, 4)) + 1j * rng.normal(size=(4, 4)))[0]
    own = GateDefinition("own", Circuit(2).h(0).x(1, 0, control_values=0).rx(Parameter("a"), 1))
    calls = {
        "matrix": lambda c, **more: c.matrix(matrix, [3, 1], **more),
        "diagonal": lambda c, **more: c.diagonal(np.exp(1j * np.arange(4)), [3, 1], **more),
        "gate": lambda c, **more: c.gate(own, [3, 1], [0.4], **more),
        "pauli": lambda c, **more: c.pauli("XYZ", [1, 3, 4], **more),
        "pauli_rotation": lambda c, **more: c.pauli_rotation("XYZ", 0.4, [1, 3, 4], **more),
        "pauli_rotation of one": lambda c, **more: c.pauli_rotation("Z", 0.4, [1], **more),
    }
    for name, call in calls.items():
        plain, made = call(Circuit(5), controls=[0, 2]), call(Circuit(5), controls=[0, 2], control_values="01")
        expected = plus(5).run(flipped(plain, 0)).array.tobytes()
        assert plus(5).run(made).array.tobytes() == expected, name
        if name not in ("gate", "diagonal"):
            called = call(plus(5), controls=[0, 2], control_values="01").array
            np.testing.assert_allclose(called, plus(5).run(made).array, rtol=0, atol=1e-15)
        assert plus(5).run(made + made.inverse()).array == pytest.approx(plus(5).array, abs=1e-14), name
    for method, more in (("mcx", ()), ("mcz", ()), ("mcp", (0.5,))):
        plain, made = getattr(Circuit(4), method)(*more, [0, 1, 3], 2), getattr(Circuit(4), method)(*more, [0, 1, 3], 2, "010")
        assert plus(4).run(made).array.tobytes() == plus(4).run(flipped(plain, [0, 3])).array.tobytes()


def test_nothing_loses_them():
    a = Parameter("a")
    circuit = Circuit(4, 1).rx(a, 3, [0, 1], "01").cu(a, 0.1, 0.2, 0.3, 2, 3, 0, "0")
    values = ["01", "0"]
    kept = {
        "copy": circuit.copy(), "deep copy": copy.deepcopy(circuit), "pickle": pickle.loads(pickle.dumps(circuit)),
        "bind": circuit.bind(a=0.5), "bind again": circuit.bind([0.7]), "append": Circuit(4, 1).append(circuit[0]).append(circuit[1]),
        "compose": Circuit(5, 1).compose(circuit, [4, 3, 2, 1]), "inverse twice": circuit.inverse().inverse(),
    }  # fmt: skip
    definition = GateDefinition("kept", Circuit(4).append(circuit[0]).append(circuit[1]))
    assert [step.control_values for step in definition.body] == values
    assert [step.control_values for step in pickle.loads(pickle.dumps(definition)).body] == values
    for name, made in kept.items():
        assert [step.control_values for step in made] == values, name
    assert [step.control_values for step in circuit.repeat(2)] == values * 2
    expected = StateVector(4).h(range(4)).run(circuit.bind(a=0.5)).array
    assert (StateVector(4).h(range(4)).run(circuit.bind(a=0.25)).run(circuit.bind(a=0.25).inverse()).array.round(12) == 0.25).all()
    composed = StateVector(5).h(range(5)).run(Circuit(5, 1).compose(circuit, [4, 3, 2, 1]).bind(a=0.5))
    assert composed.norm() == pytest.approx(1) and not np.allclose(composed.array[:16], expected)


def test_a_template_bound_again_and_again():
    a = Parameter("a")
    circuit = Circuit(3).h(range(3)).rx(a, 2, [0, 1], "01").rzz(a, 0, 1, 2, 0).crx(2 * a, 0, 1, control_values=0)
    for angle in (0.3, 0.7, -1.1):
        bound, fresh = circuit.bind(a=angle), Circuit(3).h(range(3))
        fresh.rx(angle, 2, [0, 1], "01").rzz(angle, 0, 1, 2, 0).crx(2 * angle, 0, 1, control_values=0)
        assert bound == fresh and run(bound).state.array.tobytes() == run(fresh).state.array.tobytes()


def test_under_a_condition():
    circuit = Circuit(3, 1).h(0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(2, [0, 1], "10").h(1, 0, 0)
    again = Circuit(3, 1).h(0).measure(0, 0)
    with again.when(0, 1):
        again.x(1).x(2, [0, 1]).x(1).x(0).h(1, 0).x(0)
    for made in (circuit, again):
        made.measure(2, 0)
    assert run(circuit, shots=300, seed=5).counts == run(again, shots=300, seed=5).counts
    assert Circuit.from_qasm(circuit.to_qasm()) == Circuit.from_qasm(again.to_qasm())


def test_inside_definitions_there_and_back():
    inner = GateDefinition("inner", Circuit(2).x(1, 0, 0).rx(0.3, 0))
    outer = GateDefinition("outer", Circuit(3).gate(inner, [0, 1], controls=2, control_values=0).h(2, [0, 1], "01"))
    circuit = Circuit(5).gate(outer, [0, 1, 2], controls=[3, 4], control_values="01")
    written = Circuit.from_qasm(circuit.to_qasm())
    expected = numpy_simulator.unitary(circuit)
    np.testing.assert_allclose(numpy_simulator.unitary(written), expected, rtol=0, atol=1e-13)
    by_hand = Circuit(5).x(3)
    by_hand.x(2).x(0).x(1, [3, 4, 2, 0]).x(0).rx(0.3, 0, [3, 4, 2]).x(2).x(0).h(2, [3, 4, 0, 1]).x(0).x(3)
    np.testing.assert_allclose(expected, numpy_simulator.unitary(by_hand), rtol=0, atol=1e-13)
    assert outer.size == len(list(Circuit(3).gate(outer, range(3)).basic_instructions())) + 2  # itself, and inner


def test_drawings_show_them():
    circuit = Circuit(3).x(2, [0, 1], "01").rx(0.5, 1, [0, 2], "10")
    assert circuit.draw(width=60, ascii=True).splitlines() == [
        "q[0]: -( )-----o-----",
        "        |      |",
        "q[1]: --o--[RX(0.5)]-",
        "        |      |",
        "q[2]: -(+)----( )----",
    ]
    assert "○" in circuit.draw(width=60)
    # A ring at the place of the control, and no line inside it.
    (ring,) = [shape for shape in picture(2, circuit.registers, Circuit(2).h(1, 0, 0).instructions, 400.0).shapes if isinstance(shape, Circle)]
    assert ring.kind == "ring"
    for shape in picture(2, circuit.registers, Circuit(2).h(1, 0, 0).instructions, 400.0).shapes:
        if isinstance(shape, Line):
            xs, ys = sorted([shape.x0, shape.x1]), sorted([shape.y0, shape.y1])
            meets = xs[0] < ring.x + ring.radius - 1e-9 and xs[1] > ring.x - ring.radius + 1e-9
            assert not (meets and ys[0] < ring.y + ring.radius - 1e-9 and ys[1] > ring.y - ring.radius + 1e-9)
    assert circuit.gate_counts() == {"c2X": 1, "c2RX": 1}


def test_a_refused_matrix_leaves_the_state_as_it_was():
    state = StateVector(3, "single").h(range(3))
    before = state.array.tobytes()
    with pytest.raises(ValueError, match="single precision"):
        state.matrix([[1e300, 0], [0, 1]], 2, [0, 1], "00", check=False)
    with pytest.raises(ValueError, match="control_values"):
        state.matrix([[0, 1], [1, 0]], 2, [0, 1], "000")
    assert state.array.tobytes() == before


MISTAKES = {
    "no controls": (ValueError, "control_values must stand beside controls, got 0 and no controls", lambda c: c.x(0, control_values=0)),
    "a text too long": (ValueError, "for each of the 1 controls, those of the gate's name first, got '01'", lambda c: c.x(0, 1, "01")),
    "a list too short": (ValueError, r"for each of the 2 controls.*got \[0\]", lambda c: c.x(0, [1, 2], [0])),
    "a list without end": (ValueError, "control_values must be a sequence of at most 2", lambda c: c.x(0, [1], range(10**12))),
    "a number too large": (ValueError, "control_values must be an integer from 0 to 3, got 4", lambda c: c.x(0, [1, 2], 4)),
    "a digit": (ValueError, r"control_values\[1\] must be an integer from 0 to 1, got 2", lambda c: c.x(0, [1, 2], [0, 2])),
    "a letter": (ValueError, "got 'ab'", lambda c: c.x(0, [1, 2], "ab")),
    "no number": (TypeError, "control_values must be an integer from 0 to 1, got 0.5", lambda c: c.x(0, 1, 0.5)),
    "a flag": (TypeError, "control_values must be an integer", lambda c: c.x(0, 1, False)),
    "of a controlled gate": (ValueError, "for each of the 1 controls.*got '00'", lambda c: c.cx(0, 1, control_values="00")),
    "of a gate that is no controlled one": (ValueError, "must stand beside controls", lambda c: c.cu(1, 2, 3, 4, 0, 1, control_values=0)),
    "of a matrix": (ValueError, "for each of the 1 controls", lambda c: c.matrix(np.eye(2), 0, 1, "00")),
    "of a product": (ValueError, "for each of the 1 controls", lambda c: c.pauli("XX", [0, 1], 2, "00")),
    "of a measurement": (
        ValueError, "must stand beside controls",
        lambda c: Circuit(3, 1).append(Instruction("measure", (0,), clbits=(0,), control_values="0"))),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes(case):
    kind, message, call = MISTAKES[case]
    circuit, state = Circuit(3), StateVector(3).h(0)
    before = state.array.copy()
    for target in (circuit, state):
        with pytest.raises(kind, match=message):
            call(target)
    assert len(circuit) == 0 and (state.array == before).all()
