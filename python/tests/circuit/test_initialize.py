"""Qubits put into a state of their own, at the beginning and in the middle of a circuit."""

import numpy as np
import pytest

from velacamplix import Circuit, StateVector, run

ROOT = np.sqrt(0.5)
LETTERS = {"0": [1, 0], "1": [0, 1], "+": [ROOT, ROOT], "-": [ROOT, -ROOT], "r": [ROOT, 1j * ROOT], "l": [ROOT, -1j * ROOT]}


def random_state(n, seed=1):
    rng = np.random.default_rng(seed)
    vector = rng.normal(size=2**n) + 1j * rng.normal(size=2**n)
    return vector / np.linalg.norm(vector)


def of_letters(text):
    """The first letter belongs to qubit 0, the lowest bit."""
    state = np.ones(1)
    for letter in text:
        state = np.kron(LETTERS[letter], state)
    return state


@pytest.mark.parametrize("text", ["", "0", "r", "01+-rl", "lr-+10", "1l"])
def test_a_text_has_a_letter_for_each_qubit(text):
    circuit = Circuit(len(text)).initialize(text)
    np.testing.assert_allclose(run(circuit).state.array, of_letters(text), rtol=0, atol=1e-15)
    turned = run(Circuit(len(text)).initialize(text, order="little")).state.array
    np.testing.assert_allclose(turned, of_letters(text[::-1]), rtol=0, atol=1e-15)


def test_a_number_has_the_first_qubit_highest():
    assert run(Circuit(3).initialize(4)).state.to_dict() == {"100": 1}
    assert run(Circuit(3).initialize(np.int8(4), order="little")).state.to_dict() == {"001": 1}
    assert run(Circuit(4).initialize(1, [3, 1])).state.to_dict() == {"0100": 1}


@pytest.mark.parametrize("n", range(1, 11))
def test_amplitudes_are_in_the_order_of_a_states_own(n):
    amplitudes = random_state(n)
    result = run(Circuit(n).initialize(amplitudes)).state.array
    np.testing.assert_allclose(result, amplitudes, rtol=0, atol=1e-15)
    if n <= 6:  # to the last bit
        assert result.tobytes() == amplitudes.tobytes()
    big = run(Circuit(n).initialize(amplitudes, order="big")).state.statevector(order="big")
    np.testing.assert_allclose(big, amplitudes, rtol=0, atol=1e-15)
    single = run(Circuit(n).initialize(amplitudes), precision="single").state.array
    np.testing.assert_allclose(single, amplitudes, rtol=0, atol=1e-6)


@pytest.mark.parametrize("n", [2, 7])
def test_a_state_vector_goes_to_the_listed_qubits_in_order(n):
    state = StateVector(n).set_state(random_state(n), order="little")
    qubits = [*range(n)][::-1]
    there = run(Circuit(n + 1).initialize(state, qubits)).state.reduced(qubits[::-1], order="big")
    mine = np.outer(state.array, state.array.conj())  # qubit n - 1 of the state, now qubit 0, is the highest bit
    np.testing.assert_allclose(there, mine, rtol=0, atol=1e-14)


@pytest.mark.parametrize("n", [3, 8])
@pytest.mark.parametrize("kind", ["zeros", "a basis state", "signs", "real", "one half empty"])
def test_amplitudes_with_zeros_signs_and_structure(n, kind):
    amplitudes = np.zeros(2**n, dtype=complex)
    if kind == "a basis state":
        amplitudes[5] = -1j
    elif kind == "signs":
        amplitudes[:] = np.where(np.arange(2**n) % 3, 1, -1) / np.sqrt(2**n)
    elif kind == "real":
        amplitudes[:] = random_state(n).real
    elif kind == "one half empty":
        amplitudes[2 ** (n - 1) :] = random_state(n - 1)
    else:
        amplitudes[[0, 6]] = 1
    amplitudes /= np.linalg.norm(amplitudes)
    np.testing.assert_allclose(run(Circuit(n).initialize(amplitudes)).state.array, amplitudes, rtol=0, atol=5e-15)


def test_in_the_middle_it_resets_what_was_there():
    circuit = Circuit(3, 3).h(0).cx(0, 1).x(2).initialize("r", 1)
    result = run(circuit.measure([0, 2], [0, 2]), shots=2000, seed=3)
    assert 900 < result.counts["001"] < 1100 and set(result.counts) == {"001", "101"}
    for n in (1, 2, 7):
        amplitudes = random_state(n)
        again = Circuit(n).x(range(n)).initialize("1" * n).initialize(amplitudes)
        mine = run(again).state.array
        assert abs(np.vdot(mine, amplitudes)) == pytest.approx(1, abs=1e-13)


def test_other_qubits_keep_their_phases():
    # Qubits 0 and 1 are in a state of their own with a sign; a preparation by weights alone would lose it.
    circuit = Circuit(3).x(0).h(0).h(1).initialize(random_state(1), 2)
    expected = np.kron(random_state(1), np.kron([ROOT, ROOT], [ROOT, -ROOT]))
    np.testing.assert_allclose(run(circuit).state.array, expected, rtol=0, atol=1e-15)


def test_it_is_a_reset_and_gates_and_goes_along():
    circuit = Circuit(2, 1).initialize("+1")
    assert [step.name for step in circuit] == ["reset", "H", "X"]
    assert Circuit(3, 1).compose(circuit, [2, 0])[0].qubits == (2, 0)
    with pytest.raises(ValueError, match="reset has no inverse"):
        circuit.inverse()
    conditioned = Circuit(2, 1).x(0).measure(0, 0)
    with conditioned.when(0, 1):
        conditioned.initialize([0.6, 0.8], 1)
    assert run(conditioned).state.array == pytest.approx([0, 0.6, 0, 0.8])
    assert Circuit(2).initialize("", []) == Circuit(2) == Circuit(2).initialize([1], [])


def test_rounded_amplitudes_are_scaled():
    amplitudes = random_state(3).astype(np.complex64)
    assert run(Circuit(3).initialize(amplitudes)).state.norm() == pytest.approx(1, abs=1e-15)
    assert run(Circuit(3).initialize(list(amplitudes * (1 + 5e-6)))).state.norm() == pytest.approx(1, abs=1e-15)


MISTAKES = {
    "another letter": (ValueError, "state must be a text of 2 letters 0 1 . - r l, one for each qubit, got '0x'", lambda c: c.initialize("0x")),
    "too few letters": (ValueError, "state must be a text of 2 letters", lambda c: c.initialize("0")),
    "too large a number": (ValueError, "state must be an integer from 0 to 3, got 4", lambda c: c.initialize(4)),
    "no state": (TypeError, "state must be a text, a number, an array of amplitudes or a StateVector, got None", lambda c: c.initialize(None)),
    "a mapping": (TypeError, "state must be a text, a number", lambda c: c.initialize({"00": 1})),
    "a norm": (ValueError, "state must be finite and have norm 1, got an array of norm 1.4", lambda c: c.initialize([1, 1, 0, 0])),
    "no number": (ValueError, "norm 1, got an array of norm nan", lambda c: c.initialize([np.nan, 1, 0, 0])),
    "too few amplitudes": (ValueError, r"state must be an array of 2\*\*2 = 4 amplitudes, got shape \(2,\)", lambda c: c.initialize([1, 0])),
    "too small a state": (ValueError, "4 amplitudes, got shape", lambda c: c.initialize(StateVector(1))),
    "an order of a state": (TypeError, "order can only be given for a text", lambda c: c.initialize(StateVector(2), order="big")),
    "another order": (ValueError, "order must be 'big' or 'little'", lambda c: c.initialize("00", order="up")),
    "a qubit twice": (ValueError, "qubits must be distinct", lambda c: c.initialize("00", [1, 1])),
    "a qubit not there": (IndexError, "qubits.0. must be", lambda c: c.initialize("0", 2)),
    "amplitudes of many": (ValueError, "at most 20 qubits, got 21; run.circuit, initial=array", lambda c: Circuit(21).initialize([1])),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes_leave_the_circuit_as_it_was(case):
    kind, message, call = MISTAKES[case]
    circuit = Circuit(2)
    with pytest.raises(kind, match=message):
        call(circuit)
    assert len(circuit) == 0
