"""StateVector.run: a circuit gives what its gates give one by one."""

import pickle
import random

import full_matrices as full
import numpy as np
import pytest

from velacamplix import Circuit, Instruction, StateVector, UnsupportedInstruction
from velacamplix.programs import compile as _compile


def random_circuit(n, length, seed):
    """Gates of all kinds in random order: those that the core's record knows between those it does not."""
    choose = random.Random(seed)
    circuit = Circuit(n)
    for _ in range(length):
        a, b, c = choose.sample(range(n), 3)
        angle = choose.uniform(-7, 7)
        kind = choose.randrange(6)
        if kind == 0:
            getattr(circuit, choose.choice(["h", "x", "y", "z", "t", "s", "ztoy", "ytoz"]))(a)
        elif kind == 1:
            getattr(circuit, choose.choice(["rx", "ry", "rz", "ph"]))(angle, a)
        elif kind == 2:
            getattr(circuit, choose.choice(["h", "x", "y", "z", "t", "s", "ztoy", "ytoz"]))(a, controls=[b, c])
        elif kind == 3:
            getattr(circuit, choose.choice(["rx", "ry", "rz", "ph"]))(angle, a, controls=[b])
        elif kind == 4:
            getattr(circuit, choose.choice(["cnot", "csign", "swap", "iswap", "sqrtswap"]))(a, b)
        else:
            circuit.ccnot(a, b, c)
    return circuit


@pytest.mark.parametrize("seed", range(5))
def test_a_circuit_is_its_gates_one_by_one(seed, precision):
    circuit = random_circuit(6, 80, seed)
    together, one_by_one = StateVector(6, precision).run(circuit), StateVector(6, precision)
    for step in circuit:
        gate = getattr(one_by_one, step.name.lower())
        if len(step.qubits) > 1:
            gate(*step.qubits)
        else:
            gate(*step.params, *step.qubits, controls=step.controls)
    assert together.array.tobytes() == one_by_one.array.tobytes()


def test_running_continues_from_the_present_state():
    state = StateVector(2).run(Circuit(2).h(0)).run(Circuit(2).cnot(0, 1))
    assert state.array.tobytes() == StateVector(2).h(0).cnot(0, 1).array.tobytes()


def test_a_smaller_circuit_acts_on_the_first_qubits():
    assert StateVector(4).run(Circuit(2).x(1)).probability("0100") == 1


def test_an_empty_circuit_changes_nothing():
    assert StateVector(2).x(0).run(Circuit(2)).probability("10") == 1


def test_barriers_and_measurements_at_the_end_change_nothing(precision):
    plain = Circuit(3).h(0).cnot(0, 1)
    marked = Circuit(3, 3).h(0).barrier().cnot(0, 1).measure([0, 1], [0, 1]).h(2).barrier().measure(2, 2).measure(0, 2)
    expected = StateVector(3, precision).run(plain.h(2))
    assert StateVector(3, precision).run(marked).array.tobytes() == expected.array.tobytes()


@pytest.mark.parametrize("qubits", [(2,), (1, 3), (3, 1), (0, 2, 3), (3, 0, 2), (4, 2, 0, 1)])
@pytest.mark.parametrize("controls", [(), (5,), (5, 6)])
def test_matrices(qubits, controls, precision, tolerance):
    n, size = 7, 2 ** len(qubits)
    generator = np.random.default_rng(size)
    unitary, _ = np.linalg.qr(generator.normal(size=(size, size)) + 1j * generator.normal(size=(size, size)))
    before = full.random_state(n, seed=7)
    state = StateVector(n, precision).set_state(before, order="little")
    state.run(Circuit(n).matrix(unitary, qubits, controls=controls))

    acts = full.on_qubits(n, unitary, qubits)
    all_read_one = full.product(n, {c: full.READS[1] for c in controls})
    expected = (np.eye(2**n) - all_read_one + all_read_one @ acts) @ before
    assert np.abs(state.array - expected).max() < 4 * tolerance


def test_a_diagonal_matrix_on_nine_qubits(precision, tolerance):
    phases = np.exp(1j * np.arange(512))
    state = StateVector(9, precision).set_basis_state("+" * 9).run(Circuit(9).matrix(np.diag(phases), range(9)))
    # The first listed qubit, qubit 0, is the high bit of the matrix's index.
    expected = [phases[int(format(i, "09b")[::-1], 2)] for i in range(512)]
    assert np.abs(state.array - np.array(expected) * 2**-4.5).max() < tolerance


# What cannot be run is refused before anything happens


@pytest.mark.parametrize(
    ("circuit", "position", "word"),
    [
        (Circuit(2, 2).x(0).reset(1), 1, "reset"),
        (Circuit(2, 2).x(0).measure(0, 0).h(0), 2, "measure"),
        (Circuit(2, 2).x(0).measure(0, 0).cnot(1, 0), 2, "measure"),
        (Circuit(2, 2).x(0).measure(1, 0).x(0, controls=[1]), 2, "measure"),
        (Circuit(2, 2).x(0).append(Instruction("X", (1,), condition=None)).measure(0, 0).swap(0, 1), 3, "measure"),
    ],
)
def test_unsupported_steps_are_refused_and_named(circuit, position, word):
    state = StateVector(2)
    with pytest.raises(UnsupportedInstruction, match=word) as refusal:
        state.run(circuit)
    assert isinstance(refusal.value, NotImplementedError)
    assert refusal.value.position == position
    assert refusal.value.instruction == circuit[position]
    assert str(refusal.value).startswith(f"instruction {position} ({circuit[position]}): ")
    assert str(pickle.loads(pickle.dumps(refusal.value))) == str(refusal.value)
    assert state.array.tolist() == [1, 0, 0, 0]


def test_conditions_are_refused():
    circuit = Circuit(2, 1).x(0).measure(0, 0)
    with circuit.when("c", 1):
        circuit.x(1)
    with pytest.raises(UnsupportedInstruction, match=r"instruction 2 .*condition"):
        StateVector(2).run(circuit)


def test_a_circuit_with_more_qubits_is_refused():
    with pytest.raises(ValueError, match="circuit must have at most 2 qubits.*3 qubits"):
        StateVector(2).run(Circuit(3))


@pytest.mark.parametrize("value", [None, "h q[0];", [Instruction("H", (0,))], 3])
def test_what_is_no_circuit_is_refused(value):
    with pytest.raises(TypeError, match="circuit must be a Circuit"):
        StateVector(2).run(value)


def test_a_matrix_beyond_single_precision_is_refused():
    circuit = Circuit(1).x(0).matrix([[1e300j, 0], [0, 1]], 0, check=False)
    state = StateVector(1, "single")
    with pytest.raises(ValueError, match="instruction 1 .*matrix entry must fit single precision.*1e.300"):
        state.run(circuit)
    assert state.array.tolist() == [1, 0]
    assert StateVector(1, "double").run(circuit).array.tolist() == [0, 1]


def test_long_circuits_are_handed_over_in_pieces(monkeypatch):
    circuit = Circuit(3)
    for step in range(20):
        circuit.ry(0.1 * step, step % 3).cx(step % 3, (step + 1) % 3)
    expected = StateVector(3).run(circuit).array.tobytes()
    monkeypatch.setattr(_compile, "_PIECE", 7)
    assert StateVector(3).run(circuit).array.tobytes() == expected
    with pytest.raises(ValueError, match="instruction 40 .*matrix entry must fit single precision"):
        StateVector(3, "single").run(circuit.copy().matrix([[1e300, 0], [0, 1]], 0, check=False).x(1))
