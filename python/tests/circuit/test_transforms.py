"""The Fourier transform and evolution in time, against matrices."""

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Observable, Parameter, StateVector, run

TOLERANCE = 1e-13


def fourier(k):
    numbers = np.arange(2**k)
    return np.exp(2j * np.pi * np.outer(numbers, numbers) / 2**k) / np.sqrt(2**k)


def reversed_rows(matrix):
    k = int(np.log2(len(matrix)))
    return matrix[[int(format(i, f"0{k}b")[::-1], 2) if k else 0 for i in range(2**k)]]


@pytest.mark.parametrize("k", range(6))
def test_the_transform_is_that_matrix(k):
    little = numpy_simulator.unitary(Circuit(k).qft(order="little"))  # qubit q is bit q there
    np.testing.assert_allclose(little, fourier(k), rtol=0, atol=TOLERANCE)
    # By the rule for matrices the first listed qubit is the highest bit of a row.
    np.testing.assert_allclose(
        numpy_simulator.unitary(Circuit(k).qft()), numpy_simulator.unitary(Circuit(k).matrix(fourier(k), range(k))) if k else 1,
        rtol=0, atol=TOLERANCE,
    )  # fmt: skip
    for order in ("big", "little"):
        for swaps in (True, False):
            made, undone = Circuit(k).qft(order=order, swaps=swaps), Circuit(k).qft(order=order, swaps=swaps, inverse=True)
            assert numpy_simulator.unitary(made + undone) == pytest.approx(np.eye(2**k), abs=TOLERANCE)
            assert undone == made.inverse()
    bare = numpy_simulator.unitary(Circuit(k).qft(order="little", swaps=False))
    np.testing.assert_allclose(bare, reversed_rows(fourier(k)), rtol=0, atol=TOLERANCE)


def test_the_transform_of_some_qubits():
    made = Circuit(5).h(0).qft([3, 1, 4])
    expected = Circuit(5).h(0).matrix(fourier(3), [3, 1, 4])
    np.testing.assert_allclose(numpy_simulator.unitary(made), numpy_simulator.unitary(expected), rtol=0, atol=TOLERANCE)


def test_the_transform_is_qiskits():
    library = pytest.importorskip("qiskit.circuit.library", reason="compares with Qiskit: pip install velacamplix[test]")
    info = pytest.importorskip("qiskit.quantum_info", reason="compares with Qiskit: pip install velacamplix[test]")
    mine = numpy_simulator.unitary(Circuit(4).qft(order="little"))
    np.testing.assert_allclose(info.Operator(library.QFTGate(4)).data, mine, rtol=0, atol=TOLERANCE)


def test_it_finds_a_period():
    state = StateVector(8).run(Circuit(8).h(range(3, 8)))
    state.run(Circuit(8).qft(order="little"))
    assert sorted(int(i) for i in np.flatnonzero(np.abs(state.array) > 1e-9)) == [32 * j for j in range(8)]


# --- Evolution ---

HAMILTONIANS = {
    "an Ising chain": "Z0 Z1 + Z1 Z2 + 0.7*X0 + 0.7*X1 + 0.7*X2",
    "a mixture": "0.5*X0 Y1 Z2 - 1.2*Z0 + 0.3*Y1 + 0.8*X0 X2 + 1.5",
    "one term": "0.4*Y0 Y1 Y2",
}


def evolution(observable, time):
    values, vectors = np.linalg.eigh(Observable(observable).to_matrix(3))
    return vectors @ np.diag(np.exp(-1j * time * values)) @ vectors.conj().T


def error(observable, time, steps, order):
    made = numpy_simulator.unitary(Circuit(3).trotter(observable, time, steps, order))
    return np.linalg.norm(made - evolution(observable, time), 2)


@pytest.mark.parametrize("order", [1, 2, 4])
@pytest.mark.parametrize("name", ["an Ising chain", "a mixture"])
def test_halving_the_step_divides_the_error_by_two_to_the_order(name, order):
    errors = [error(HAMILTONIANS[name], 0.8, steps, order) for steps in (4, 8, 16)]
    assert errors[0] > 1e-9
    for one, next_one in zip(errors, errors[1:]):
        assert 0.8 * 2**order < one / next_one < 1.25 * 2**order


@pytest.mark.parametrize("order", [1, 2, 4])
@pytest.mark.parametrize("observable", ["0.4*Y0 Y1 Y2", "Z0 Z1 + 0.3*Z2 - 2", "X0 X1 + Y0 Y1 + Z0 Z1", "0.7"])
def test_terms_that_commute_are_exact(observable, order):
    for time in (0.9, -2.3):
        assert error(observable, time, 1, order) < 1e-13 and error(observable, time, 3, order) < 1e-13


def test_a_step_of_each_order():
    assert Circuit(2).trotter("Z0 + X0", 1.0) == Circuit(2).rz(2.0, 0).rx(2.0, 0)
    # Halves of the last term meet in a step, those of the first between two.
    assert Circuit(2).trotter("Z0 + X0", 1.0, 2, 2) == Circuit(2).rz(0.5, 0).rx(1.0, 0).rz(1.0, 0).rx(1.0, 0).rz(0.5, 0)
    assert len(Circuit(1).trotter("Z0 + X0", 1.0, 3, order=4)) == 3 * 10 + 1
    assert Circuit(2).trotter(Observable("Z0 Z1 + 3"), 0.5) == Circuit(2).rzz(1.0, 0, 1).gphase(-1.5)
    assert Circuit(2).trotter("0", 0.5) == Circuit(2)


def test_the_time_may_be_a_parameter():
    t = Parameter("t")
    made = Circuit(3).trotter(HAMILTONIANS["a mixture"], t, 3, 2)
    assert made.parameters == ("t",)
    bound = numpy_simulator.unitary(made.bind(t=0.7))
    expected = numpy_simulator.unitary(Circuit(3).trotter(HAMILTONIANS["a mixture"], 0.7, 3, 2))
    np.testing.assert_allclose(bound, expected, rtol=0, atol=TOLERANCE)
    energy = run(Circuit(3).h(range(3)) + made.bind(t=0.7), observables=HAMILTONIANS["a mixture"]).expectation_values
    before = run(Circuit(3).h(range(3)), observables=HAMILTONIANS["a mixture"]).expectation_values
    assert energy == pytest.approx(before, abs=0.05)  # nearly kept


MISTAKES = {
    "a qubit twice": (ValueError, "qubits must be distinct", lambda c: c.qft([0, 0])),
    "too many": (ValueError, "qubits must be at most 1000, got 1001", lambda c: Circuit(1001).qft()),
    "another order": (ValueError, "order must be 'big' or 'little'", lambda c: c.qft(order="up")),
    "no flag": (TypeError, "inverse must be True or False, got 1", lambda c: c.qft(inverse=1)),
    "no flag either": (TypeError, "swaps must be True or False", lambda c: c.qft(swaps=None)),
    "complex coefficients": (ValueError, "observable must have real coefficients", lambda c: c.trotter("(1j)*Z0", 1.0)),
    "too few qubits": (ValueError, "observable must act on qubits of the circuit, 2, got 3", lambda c: c.trotter("Z2", 1.0)),
    "no observable": (ValueError, "observable", lambda c: c.trotter("A0", 1.0)),
    "no time": (ValueError, "time must be finite, got nan", lambda c: c.trotter("Z0", np.nan)),
    "angles beyond numbers": (ValueError, "time must give finite angles .*, got 1e\\+308", lambda c: c.trotter("Z0 + X1", 1e308)),
    "coefficients beyond": (ValueError, "time must give finite angles", lambda c: c.trotter("1e308*Z0", Parameter("t"))),
    "a text as time": (TypeError, "time must be a real number", lambda c: c.trotter("Z0", "1")),
    "no steps": (ValueError, "steps must be an integer of at least 1, got 0", lambda c: c.trotter("Z0", 1.0, 0)),
    "half a step": (TypeError, "steps must be an integer", lambda c: c.trotter("Z0", 1.0, 0.5)),
    "steps without end": (ValueError, "steps must give at most 10000000 instructions", lambda c: c.trotter("Z0", 1.0, 10**12)),
    "the third order": (ValueError, "order must be 1, 2 or 4, got 3", lambda c: c.trotter("Z0", 1.0, 1, 3)),
    "an order of bits": (TypeError, "order must be an integer, got 'big'", lambda c: c.trotter("Z0", 1.0, 1, "big")),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes_leave_the_circuit_as_it_was(case):
    kind, message, call = MISTAKES[case]
    circuit = Circuit(2)
    with pytest.raises(kind, match=message):
        call(circuit)
    assert len(circuit) == 0
