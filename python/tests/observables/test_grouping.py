"""Terms that are measured in the same shots."""

import itertools

import numpy as np
import pytest

from velacamplix import Circuit, Observable, StateVector, run

LETTERS = "XYZ"


def random_observable(n, terms, seed):
    generator = np.random.default_rng(seed)
    labels = {"".join(generator.choice(list("IXYZ"), n, p=[0.4, 0.2, 0.2, 0.2])) for _ in range(terms)}
    return Observable({label: float(generator.normal()) for label in sorted(labels)})


@pytest.mark.parametrize("seed", range(5))
def test_groups_commute_qubit_by_qubit_and_add_up(seed):
    observable = random_observable(5, 60, seed)
    groups = observable.group_commuting()
    assert sum(group.observable for group in groups) == observable and len(groups) < len(observable.terms)
    for group in groups:
        letters = dict(zip(group.qubits, group.paulis))
        used = set()
        for term in group.observable.terms:
            assert all(letters[qubit] == letter for qubit, letter in zip(term.qubits, term.paulis))
            used.update(term.qubits)
        assert tuple(sorted(used)) == group.qubits
    # No two groups could have been one.
    for one, two in itertools.combinations(groups, 2):
        first, second = dict(zip(one.qubits, one.paulis)), dict(zip(two.qubits, two.paulis))
        assert any(first[qubit] != second[qubit] for qubit in first.keys() & second.keys())


@pytest.mark.parametrize("seed", range(3))
def test_the_gates_turn_a_group_into_its_diagonal(seed):
    observable = random_observable(4, 30, seed)
    circuit = Circuit(4).h(0).cx(0, 1).ry(0.3, 2).rx(0.7, 3).cx(2, 3).s(1).rz(0.4, 0)
    state = StateVector(4).run(circuit)
    for group in observable.group_commuting():
        turned = state.copy().run(Circuit(4).extend(group.gates))
        assert {letter for term in group.diagonal.terms for letter in term.paulis} <= {"Z"}
        assert turned.expectation(group.diagonal) == pytest.approx(state.expectation(group.observable), abs=1e-14)


def test_shots_of_the_groups_tell_the_expectation_value():
    observable = Observable("Z0 Z1 + 0.5*X0 X1 - 0.3*Y0 Y1 + 0.2*Z0 + 2")
    circuit = Circuit(2).ry(0.6, 0).cx(0, 1).rz(0.4, 1)
    mean, variance = 0.0, 0.0
    for group in observable.group_commuting():
        counts = run(circuit.copy().extend(group.gates), shots=20_000, seed=3).counts
        estimate = counts.expectation(group.diagonal)
        mean, variance = mean + estimate.mean, variance + estimate.standard_error**2
    exact = run(circuit, observables=observable).expectation_values
    assert 0 < variance**0.5 < 0.02 and abs(mean - exact) < 4 * variance**0.5


def test_groups_of_a_well_known_observable():
    # Molecular hydrogen on two qubits: three bases, of which one serves all Z strings.
    groups = Observable("-1.05 + 0.39*Z0 - 0.39*Z1 - 0.01*Z0 Z1 + 0.18*X0 X1 + 0.18*Y0 Y1").group_commuting()
    assert [group.paulis for group in groups] == ["ZZ", "XX", "YY"]
    assert [str(group.observable) for group in groups] == [
        "0.39*Z0 - 0.39*Z1 - 0.01*Z0 Z1 - 1.05", "0.18*X0 X1", "0.18*Y0 Y1",
    ]  # fmt: skip


def test_the_constant_is_in_the_first_group():
    assert [group.observable for group in Observable("3").group_commuting()] == [Observable("3")]
    assert Observable("0").group_commuting() == ()
    first, second = Observable("X0 + Z0 + 3").group_commuting()
    assert first.diagonal.constant == 3 and second.diagonal.constant == 0


def test_groups_keep_the_number_of_qubits_and_take_equal_terms():
    [group] = Observable("XII").group_commuting()
    assert group.observable.n_qubits == group.diagonal.n_qubits == 3
    [group] = Observable("X0 + X0 + 2j*X0 X5").group_commuting()
    assert len(group.observable.terms) == 3 and group.diagonal == Observable("2*Z0 + 2j*Z0 Z5")
