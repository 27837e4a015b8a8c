"""StateVector against full matrices: every gate, every way to set a state, every way to read one."""

import itertools

import full_matrices as full
import numpy as np
import pytest
from full_matrices import bits, random_state

from velacamplix import StateVector


def loaded(state, precision, threads=2):
    """A StateVector that holds these amplitudes, given in index order."""
    n = int(np.log2(len(state)))
    return StateVector(n, precision, threads).set_state(state, order="little")


def placements(n, most_controls=2):
    """Every target of n qubits with every list of up to so many controls, in every order."""
    for target in range(n):
        others = [q for q in range(n) if q != target]
        for count in range(min(most_controls, len(others)) + 1):
            for controls in itertools.permutations(others, count):
                yield target, controls


# Gates


@pytest.mark.parametrize("name", full.GATES)
def test_gate_on_every_target_with_every_control(name, precision, tolerance):
    for n in (1, 2, 3, 4):
        before = random_state(n, seed=n)
        for target, controls in placements(n):
            state = loaded(before, precision)
            getattr(state, name)(target, controls=controls)
            expected = full.controlled(n, full.GATES[name], target, controls) @ before
            assert np.abs(state.array - expected).max() < tolerance, (n, target, controls)


@pytest.mark.parametrize("name", full.ROTATIONS)
@pytest.mark.parametrize("angle", [0.3, -2.0, 4.0, 10.0])
def test_rotation_on_every_target_with_every_control(name, angle, precision, tolerance):
    for n in (1, 3):
        before = random_state(n, seed=n)
        for target, controls in placements(n):
            state = loaded(before, precision)
            getattr(state, name)(angle, target, controls=controls)
            expected = full.controlled(n, full.ROTATIONS[name](angle), target, controls) @ before
            assert np.abs(state.array - expected).max() < tolerance, (n, target, controls)


@pytest.mark.parametrize("name", full.PAIRS)
def test_two_qubit_gate_on_every_pair(name, precision, tolerance):
    for n in (2, 3, 5):
        before = random_state(n, seed=n)
        for pair in itertools.permutations(range(n), 2):
            state = loaded(before, precision)
            getattr(state, name)(*pair)
            expected = full.on_qubits(n, full.PAIRS[name], pair) @ before
            assert np.abs(state.array - expected).max() < tolerance, (n, pair)


def test_controlled_gates_by_name_are_the_gates_with_controls(precision):
    before = random_state(4, seed=4)
    for a, b, c in itertools.permutations(range(4), 3):
        for named, plain in [
            (lambda s: s.cnot(a, b), lambda s: s.x(b, controls=[a])),
            (lambda s: s.cx(a, b), lambda s: s.x(b, controls=[a])),
            (lambda s: s.ccnot(a, b, c), lambda s: s.x(c, controls=[a, b])),
            (lambda s: s.ccx(a, b, c), lambda s: s.x(c, controls=[a, b])),
            (lambda s: s.csign(a, b), lambda s: s.z(b, controls=[a])),
            (lambda s: s.cz(a, b), lambda s: s.z(a, controls=[b])),
        ]:
            first, second = named(loaded(before, precision)), plain(loaded(before, precision))
            assert first.array.tobytes() == second.array.tobytes()


def test_a_single_control_may_be_a_plain_number():
    assert StateVector(2).x(0).x(1, controls=0).probability("11") == 1.0


def test_gates_return_the_state_for_chaining():
    state = StateVector(2)
    assert state.h(0) is state
    assert state.rx(0.5, 1) is state
    assert state.swap(0, 1) is state
    assert state.reset() is state


def test_same_bits_for_every_number_of_threads(precision):
    reference = None
    for threads in (1, 2, 3, 7):
        state = loaded(random_state(14, seed=1), precision, threads)
        for q in range(14):
            state.h(q).rx(0.1 * q, q, controls=[(q + 1) % 14]).rz(0.2, q)
        state.iswap(0, 13).sqrtswap(3, 7).ccnot(1, 12, 5)
        found = state.array.tobytes() + state.distribution([3, 9]).tobytes()
        reference = reference or found
        assert found == reference, threads


def test_two_hadamards_leave_one_unit_in_the_last_place():
    assert StateVector(1).h(0).h(0).array.tolist() == [0.9999999999999998, 0]


def test_no_qubits_at_all(precision):
    state = StateVector(0, precision)
    assert state.array.tolist() == [1]
    assert state.distribution().tolist() == [1]
    assert state.probability(0) == state.probability("") == 1
    assert state.set_basis_state("").set_basis_state(0).array.tolist() == [1]


# Setting the state


def test_a_new_state_is_the_basis_state_zero(precision):
    state = StateVector(5, precision)
    assert state.array.tolist() == [1] + [0] * 31


def test_reset_forgets_everything(precision):
    state = loaded(random_state(3, seed=0), precision).reset()
    assert state.array.tolist() == [1] + [0] * 7


@pytest.mark.parametrize("order", ["big", "little"])
def test_product_strings(order, precision, tolerance):
    vectors = {"0": [1, 0], "1": [0, 1], "+": full.ROOT_HALF * np.ones(2), "-": full.ROOT_HALF * np.array([1, -1])}
    for text in map("".join, itertools.product("01+-", repeat=3)):
        state = StateVector(3, precision).set_basis_state(text, order=order)
        # Without an order the last factor belongs to qubit 0; "big" has qubit 0 first.
        factors = text[::-1] if order == "big" else text
        expected = np.kron(np.kron(vectors[factors[0]], vectors[factors[1]]), vectors[factors[2]])
        assert np.abs(state.array - expected).max() < tolerance, text


def test_basis_states_by_number():
    for number in range(8):
        big = StateVector(3).set_basis_state(number)
        little = StateVector(3).set_basis_state(number, order="little")
        assert [int(i) for i in np.flatnonzero(little.array)] == [number]
        assert big.probability(format(number, "03b")) == 1
        assert little.probability(format(number, "03b"), order="little") == 1


def test_amplitudes_in_both_orders(precision):
    given = random_state(9, seed=9).astype({"double": np.complex128, "single": np.complex64}[precision])
    reversed_index = [int(format(i, "09b")[::-1], 2) for i in range(512)]
    state = StateVector(9, precision)
    assert state.set_state(given, order="little").array.tobytes() == given.tobytes()
    assert state.set_state(given, order="big").array.tobytes() == given[reversed_index].tobytes()


def test_amplitudes_may_be_any_sequence_of_numbers():
    for given in [[0, 1], (0, 1.0), np.array([0, 1], dtype=np.int8), np.array([0, 9, 1, 9])[::2]]:
        assert StateVector(1).set_state(given).array.tolist() == [0, 1]


def test_the_states_own_array_may_be_given():
    state = loaded(random_state(6, seed=6), "double")
    before = state.array.copy()
    assert np.array_equal(state.set_state(state.array).array, before)
    # Reading one order as the other turns the state around, even in place; twice is nothing.
    state.set_state(state.array, order="big")
    assert not np.array_equal(state.array, before)
    state.set_state(state.array, order="big")
    assert np.array_equal(state.array, before)


# Reading the state


def test_probability_and_distribution_over_every_list_of_qubits(precision):
    n, tolerance = 4, {"double": 1e-14, "single": 1e-6}[precision]
    amplitudes = random_state(n, seed=5)
    state = loaded(amplitudes, precision)
    for count in range(n + 1):
        for listed in itertools.permutations(range(n), count):
            expected = {}
            for index, amplitude in enumerate(amplitudes):
                outcome = "".join(str(bits(index, n)[q]) for q in listed)
                expected[outcome] = expected.get(outcome, 0) + abs(amplitude) ** 2

            big, little = state.distribution(listed), state.distribution(listed, order="little")
            for outcome, probability in expected.items():
                number = int(outcome, 2) if outcome else 0
                backwards = int(outcome[::-1], 2) if outcome else 0
                assert abs(big[number] - probability) < tolerance
                assert abs(little[backwards] - probability) < tolerance
                assert abs(state.probability(outcome, listed) - probability) < tolerance
                assert abs(state.probability(number, listed) - probability) < tolerance
                assert abs(state.probability(outcome[::-1], listed, order="little") - probability) < tolerance
                assert abs(state.probability(backwards, listed, order="little") - probability) < tolerance


def test_without_a_list_all_qubits_are_meant(precision):
    state = loaded(random_state(5, seed=5), precision)
    assert state.distribution().tobytes() == state.distribution(range(5)).tobytes()
    assert state.probability("01101") == state.probability("01101", range(5)) == state.distribution()[0b01101]


def test_amplitudes_have_the_precision_of_the_state_and_probabilities_are_double(precision):
    state = StateVector(3, precision)
    assert state.array.dtype == {"double": "complex128", "single": "complex64"}[precision]
    assert state.distribution().dtype == "float64"
    assert isinstance(state.probability(0), float)


# Properties


def test_properties(precision):
    state = StateVector(3, precision, threads=2)
    assert (state.n_qubits, state.precision, state.threads) == (3, precision, 2)
    state.threads = 1
    assert state.threads == 1
    assert repr(state) == f"StateVector(n=3, precision='{precision}', threads=1)"
    with pytest.raises(AttributeError):
        state.n_qubits = 4
