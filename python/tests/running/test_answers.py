"""What a result answers about its final state, in the circuit's qubits, idle ones included."""

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, StateVector, run

# Qubits 1 and 4 are idle; 5 becomes 1 and is entangled with nothing.
CIRCUIT = Circuit(6).h(0).ry(0.7, 2).cx(0, 3).rx(0.4, 3).cx(2, 3).x(5)
OTHER = Circuit(6).h(0).rx(0.3, 1).cx(0, 3).x(5)
LISTS = [[0], [1], [5, 0], [0, 1, 2], [4, 1], [3, 4, 0, 1], [], range(6), [2, 3, 5]]


@pytest.fixture
def result(precision):
    return run(CIRCUIT, precision=precision)


@pytest.mark.parametrize("listed", LISTS, ids=str)
def test_parts_are_those_of_the_whole_state(listed, result):
    whole = result.state
    assert whole.n_qubits == 6 and result.compact_state.n_qubits == 4
    for order in ("little", "big"):
        assert np.allclose(result.reduced(listed, order=order), whole.reduced(listed, order=order), rtol=0, atol=1e-15)
    assert result.purity(listed) == pytest.approx(whole.purity(listed), abs=1e-15)
    assert result.entropy(listed) == pytest.approx(whole.entropy(listed), abs=1e-12)
    ours, theirs = result.schmidt(listed), whole.schmidt(listed)
    assert np.allclose(ours, theirs[: len(ours)], atol=1e-14) and np.allclose(theirs[len(ours) :], 0, atol=1e-14)
    assert result.purity() == pytest.approx(whole.purity(), abs=1e-15)


@pytest.mark.parametrize("qubit", range(6))
def test_bloch_vectors_of_all_qubits(qubit, result):
    assert result.bloch_vector(qubit) == pytest.approx(result.state.bloch_vector(qubit), abs=1e-15)


def test_overlaps_with_states_arrays_and_results(result, precision, tolerance):
    other = run(OTHER)
    expected = np.vdot(result.state.array.astype(complex), other.state.array)
    assert abs(expected) > 0.1
    big = other.statevector(order="big")
    for given in (other, other.state, other.state.array, other.statevector().tolist()):
        assert result.overlap(given) == pytest.approx(expected, abs=1e-15)
        assert result.fidelity(given) == pytest.approx(abs(expected) ** 2, abs=1e-15)
    assert result.overlap(big, order="big") == result.overlap(other.statevector())
    assert other.overlap(result) == result.overlap(other).conjugate()
    assert result.fidelity(result) == pytest.approx(1, abs=tolerance)
    assert result.fidelity(run(Circuit(6))) == 0
    assert run(Circuit(6)).overlap(run(Circuit(6))) == 1


def test_no_idle_qubits():
    result = run(Circuit(2).h(0).cx(0, 1))
    assert np.array_equal(result.reduced([1, 0]), result.state.reduced([1, 0]))
    assert result.overlap(StateVector(2)) == result.state.overlap(StateVector(2))


def test_more_qubits_than_a_state_can_have():
    one = run(Circuit(200).h(3).cx(3, 150).cx(150, 199))
    other = run(Circuit(200).x(3).x(150).x(199).x(7))
    assert one.overlap(other) == 0 and one.fidelity(run(Circuit(200))) == pytest.approx(0.5)
    assert one.entropy([3, 77]) == pytest.approx(1) and one.purity([150]) == pytest.approx(0.5)
    assert one.reduced([4, 3, 5]).diagonal().real == pytest.approx([0.5, 0, 0.5, 0, 0, 0, 0, 0])
    assert one.bloch_vector(4).tolist() == pytest.approx([0, 0, 1])
    with refused(ValueError, "other must be a StateVector or an array of 2**200", "got shape (4,)"):
        one.overlap([1, 0, 0, 0])
    with refused(ValueError, "other must have 200 qubit(s)", "got a state of 3"):
        one.overlap(StateVector(3))


def test_measurements_at_the_end_do_not_show():
    result = run(Circuit(1, 1).h(0).measure(0, 0))
    assert result.bloch_vector(0) == pytest.approx([1, 0, 0])
    assert result.fidelity(StateVector(1).h(0)) == pytest.approx(1)


def test_no_one_state():
    result = run(Circuit(2, 1).h(0).measure(0, 0).h(0), shots=10)
    for ask in (
        lambda: result.overlap(StateVector(2)),
        lambda: StateVector(2) and run(Circuit(2)).fidelity(result),
        lambda: result.reduced(0),
        lambda: result.purity(),
        lambda: result.entropy(0),
        lambda: result.bloch_vector(0),
        lambda: result.schmidt(0),
    ):
        with refused(RuntimeError, "there is no one final state"):
            ask()


def test_wrong_arguments(result):
    with refused(ValueError, "other must have 6 qubit(s), as this result, got a Result of 2"):
        result.overlap(run(Circuit(2)))
    with refused(ValueError, "order must be left away beside a Result"):
        result.overlap(result, order="big")
    with refused(TypeError, "other must be a StateVector or an array"):
        result.fidelity(None)
    for name in ("reduced", "purity", "entropy", "schmidt"):
        with refused(IndexError, "qubits[0] must be a number from 0 to 5, got 6"):
            getattr(result, name)(6)
    with refused(IndexError, "qubit must be a number from 0 to 5, got -1"):
        result.bloch_vector(-1)
    with refused(MemoryError, "the density matrix of 60 qubits"):
        run(Circuit(100).h(0)).reduced(range(60))
