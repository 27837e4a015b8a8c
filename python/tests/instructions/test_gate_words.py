"""Arguments of gates by the names that other packages have for them, and gates on any number of qubits."""

import itertools

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Instruction, Parameter, StateVector
from velacamplix.instructions.gates import GATES

TOLERANCE = 1e-14

METHODS = [(method, gate, n) for gate in GATES.values() for method, n in gate.methods.items() if gate.words(n)]


# --- Names ---


@pytest.mark.parametrize("method, gate, n_controls", METHODS, ids=[method for method, _, _ in METHODS])
def test_every_word_is_the_argument_it_says(method, gate, n_controls):
    arguments = [*gate.angles, *gate.arguments(n_controls)[0], *gate.arguments(n_controls)[1]]
    values = [0.25 * (place + 1) for place in range(gate.n_params)] + [*range(len(arguments) - gate.n_params)]
    expected = getattr(Circuit(5), method)(*values)
    for word, meant in gate.words(n_controls).items():
        named = dict(zip(arguments, values))
        named[word] = named.pop(meant)
        assert getattr(Circuit(5), method)(**named) == expected
        assert (getattr(StateVector(5), method)(**named).array == getattr(StateVector(5), method)(*values).array).all()
        with pytest.raises(TypeError, match=rf"{method}\(\) takes {meant} once, got it again as {word}"):
            getattr(Circuit(5), method)(*values, **{word: values[arguments.index(meant)]})
    with pytest.raises(TypeError, match=rf"{method}\(\) takes {', '.join(arguments)}, controls, control_values, also as .*; got an argument 'label'"):
        getattr(Circuit(5), method)(*values, label="mine")
    with pytest.raises(TypeError, match=rf"{method}\(\) takes {', '.join(arguments)}; got none for {arguments[-1]}"):
        getattr(Circuit(5), method)(*values[:-1])


QISKIT = {
    "rx": dict(theta=0.3, qubit=1), "ry": dict(theta=0.3, qubit=1), "rz": dict(phi=0.3, qubit=1), "p": dict(theta=0.3, qubit=1),
    "r": dict(theta=0.3, phi=0.2, qubit=1), "u": dict(theta=0.3, phi=0.2, lam=0.1, qubit=1), "h": dict(qubit=1),
    "id": dict(qubit=1), "sx": dict(qubit=0), "cx": dict(control_qubit=2, target_qubit=0), "cs": dict(control_qubit=2, target_qubit=0),
    "cy": dict(control_qubit=2, target_qubit=0), "cz": dict(control_qubit=2, target_qubit=0),
    "ch": dict(control_qubit=2, target_qubit=0), "csx": dict(control_qubit=2, target_qubit=0),
    "cp": dict(theta=0.3, control_qubit=2, target_qubit=0), "crx": dict(theta=0.3, control_qubit=2, target_qubit=0),
    "cry": dict(theta=0.3, control_qubit=2, target_qubit=0), "crz": dict(theta=0.3, control_qubit=2, target_qubit=0),
    "cu": dict(theta=0.3, phi=0.2, lam=0.1, gamma=0.4, control_qubit=2, target_qubit=0), "swap": dict(qubit1=0, qubit2=2),
    "iswap": dict(qubit1=0, qubit2=2), "dcx": dict(qubit1=0, qubit2=2), "ecr": dict(qubit1=0, qubit2=2),
    "rxx": dict(theta=0.3, qubit1=0, qubit2=2), "ryy": dict(theta=0.3, qubit1=0, qubit2=2),
    "rzz": dict(theta=0.3, qubit1=0, qubit2=2), "rzx": dict(theta=0.3, qubit1=0, qubit2=2),
    "ccx": dict(control_qubit1=0, control_qubit2=2, target_qubit=1), "ccz": dict(control_qubit1=0, control_qubit2=2, target_qubit=1),
    "rccx": dict(control_qubit1=0, control_qubit2=2, target_qubit=1),
    "rcccx": dict(control_qubit1=0, control_qubit2=2, control_qubit3=1, target_qubit=3),
    "cswap": dict(control_qubit=2, target_qubit1=0, target_qubit2=1), "mcx": dict(control_qubits=[0, 2], target_qubit=1),
    "mcp": dict(lam=0.3, control_qubits=[0, 2], target_qubit=1),
}  # fmt: skip


@pytest.mark.parametrize("method", QISKIT)
def test_calls_by_qiskits_names_mean_the_same_here(method):
    qiskit = pytest.importorskip("qiskit", reason="compares with Qiskit: pip install velacamplix[test]")
    info = pytest.importorskip("qiskit.quantum_info", reason="compares with Qiskit: pip install velacamplix[test]")
    theirs = qiskit.QuantumCircuit(4)
    getattr(theirs, method)(**QISKIT[method])
    mine = getattr(Circuit(4), method)(**QISKIT[method])
    np.testing.assert_allclose(numpy_simulator.unitary(mine), info.Operator(theirs).data, rtol=0, atol=TOLERANCE)


def test_parameters_may_come_by_any_name():
    theta = Parameter("theta")
    assert Circuit(2).rx(theta=theta, qubit=0).rzz(theta=2 * theta, qubit1=0, qubit2=1).bind(theta=0.5) == (
        Circuit(2).rx(0.5, 0).rzz(1.0, 0, 1)
    )


def test_an_argument_that_is_an_array_is_not_compared():
    with pytest.raises(TypeError, match="angle must be a real number where qubit is one qubit, got an array"):
        Circuit(1).rx(np.eye(2), 0)
    with pytest.raises(TypeError, match="got none for qubit"):
        StateVector(1).rx(np.eye(2))


def test_the_identity_does_nothing_but_stands_there():
    circuit = Circuit(2).id(0).id(1, controls=0)
    assert list(circuit) == [Instruction("id", (0,)), Instruction("id", (1,), (), (0,))] and circuit.depth() == 2
    assert list(circuit.basic_instructions()) == [] and Circuit.from_qasm(circuit.to_qasm()) == circuit
    before = StateVector(2).h(0).t(0)
    assert before.copy().id(0).run(circuit).array.tobytes() == before.array.tobytes()
    before.release()
    with pytest.raises(RuntimeError, match="released"):
        before.id(0)


# --- Any number of qubits ---


def test_controls_first():
    assert Circuit(4).mcx([0, 1, 3], 2) == Circuit(4).x(2, controls=[0, 1, 3])
    assert Circuit(4).mcz([0, 1, 3], 2) == Circuit(4).z(2, controls=[0, 1, 3])
    assert Circuit(4).mcp(0.5, [0, 1, 3], 2) == Circuit(4).ph(0.5, 2, controls=[0, 1, 3])
    assert Circuit(4).mcx([], 2) == Circuit(4).x(2)


def kron(letters):
    """The product of letters, the first as the lowest bit."""
    pauli = {"I": np.eye(2), "X": [[0, 1], [1, 0]], "Y": [[0, -1j], [1j, 0]], "Z": np.diag([1, -1])}
    matrix = np.eye(1)
    for letter in letters:
        matrix = np.kron(pauli[letter], matrix)
    return matrix


@pytest.mark.parametrize("n", [1, 2, 3, 4])
def test_every_product_and_its_rotation(n):
    for letters in map("".join, itertools.product("IXYZ", repeat=n)):
        circuit = Circuit(n).pauli(letters)
        assert (numpy_simulator.unitary(circuit) == kron(letters)).all()
        angle = 0.7 - n
        expected = np.cos(angle / 2) * np.eye(2**n) - 1j * np.sin(angle / 2) * kron(letters)
        made = Circuit(n).pauli_rotation(letters, angle)
        np.testing.assert_allclose(numpy_simulator.unitary(made), expected, rtol=0, atol=TOLERANCE)
        open_one = Circuit(n).pauli_rotation(letters, Parameter("a")).bind(a=angle)
        assert open_one == made
        state = StateVector(n).set_basis_state("+" * n).t(0)
        same = state.copy().run(made).array
        np.testing.assert_allclose(same, expected @ state.array, rtol=0, atol=TOLERANCE)
        np.testing.assert_allclose(state.pauli_rotation(letters, angle).array, same, rtol=0, atol=TOLERANCE)


@pytest.mark.parametrize("letters", ["X", "ZZ", "XZ", "YY", "YX", "ZZZ", "XYZ", "ZYX"])
def test_products_and_rotations_with_controls_and_qubits_in_any_order(letters):
    n = len(letters) + 2
    qubits, controls = [*range(n - 1, 1, -1)], [1, 0]
    expected = np.eye(2**n, dtype=complex)
    on = [index for index in range(2**n) if index & 3 == 3]  # both controls are 1
    for made, matrix in (
        (Circuit(n).pauli(letters, qubits, controls), kron(letters[::-1])),
        (
            Circuit(n).pauli_rotation(letters, 0.9, qubits, controls),
            np.cos(0.45) * np.eye(2 ** len(letters)) - 1j * np.sin(0.45) * kron(letters[::-1]),
        ),
    ):
        expected[np.ix_(on, on)] = matrix
        np.testing.assert_allclose(numpy_simulator.unitary(made), expected, rtol=0, atol=TOLERANCE)
        assert numpy_simulator.unitary(Circuit.from_qasm(made.to_qasm())) == pytest.approx(expected, abs=1e-13)


def test_the_order_of_the_letters_can_be_turned():
    big, little = Circuit(3).pauli("XYZ", [2, 0, 1]), Circuit(3).pauli("XYZ", [2, 0, 1], order="little")
    assert {(step.name, step.qubits) for step in big} == {("X", (2,)), ("Y", (0,)), ("Z", (1,))}
    assert {(step.name, step.qubits) for step in little} == {("X", (1,)), ("Y", (0,)), ("Z", (2,))}


def test_a_rotation_rounds_as_one_gate():
    # All but RX multiply by 1, -1, i and -i: what is left of a turn there and back is that of RX.
    state = StateVector(5, seed=1).set_basis_state("+-+-+")
    before = state.copy()
    state.pauli_rotation("XYZYX", 0.0)
    assert (state.array == before.array).all()


MISTAKES = {
    "no text": (TypeError, "letters must be a text of I, X, Y and Z, got 3", lambda c: c.pauli(3)),
    "another letter": (ValueError, "letters must be a text of I, X, Y and Z, got 'XYA'", lambda c: c.pauli("XYA")),
    "small letters": (ValueError, "letters must be a text", lambda c: c.pauli_rotation("xyz", 0.5)),
    "too few": (ValueError, "letters must be 3, one for each qubit, got 2 in 'XY'", lambda c: c.pauli("XY")),
    "too many": (ValueError, "letters must be 1, one for each qubit, got 2", lambda c: c.pauli_rotation("XY", 0.5, 1)),
    "a qubit twice": (ValueError, "qubits must be distinct", lambda c: c.pauli("XY", [1, 1])),
    "a control that turns": (ValueError, "controls must not contain a target", lambda c: c.pauli("IX", [0, 1], 0)),
    "no angle": (TypeError, "angle must be a real number, got 'XYZ'", lambda c: c.pauli_rotation(0.5, "XYZ")),
    "no target": (TypeError, r"mcx\(\) takes controls, target; got none for target", lambda c: c.mcx([0, 1])),
    "a target among the controls": (ValueError, "controls must not contain a target", lambda c: c.mcz([0, 1], 1)),
    "another word": (TypeError, "mcp.. takes angle, controls, target, control_values, also as theta, lam, .*'label'", lambda c: c.mcp(0.5, 0, 1, label=1)),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes_leave_everything_as_it_was(case):
    kind, message, call = MISTAKES[case]
    circuit, state = Circuit(3), StateVector(3).h(0)
    before = state.array.copy()
    for target in (circuit, state):
        with pytest.raises(kind, match=message):
            call(target)
    assert len(circuit) == 0 and (state.array == before).all()
