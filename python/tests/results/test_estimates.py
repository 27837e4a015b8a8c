"""Means of diagonal observables over shots, and their standard errors."""

import math

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, Counts, Estimate, Observable, StateVector, run
from velacamplix.results import estimate


def by_hand(counts, function):
    values = np.repeat([function(outcome) for outcome in counts], list(counts.values()))
    return values.mean(), values.std(ddof=1) / np.sqrt(len(values))


def z(outcome, *places):
    return (-1) ** sum(outcome[place] == "1" for place in places)


def test_mean_and_error_are_those_of_the_shots():
    counts = run(Circuit(4).ry(0.4, 0).h(1).cx(1, 3).rx(1.0, 2), shots=1000, seed=2).counts
    found = counts.expectation("Z0 Z3 - 0.5*Z2 + 2*Z1 - 3")
    assert type(found) is Estimate and type(found.mean) is float
    assert found == pytest.approx(
        by_hand(counts, lambda o: z(o, 0, 3) - 0.5 * z(o, 2) + 2 * z(o, 1) - 3), abs=1e-12
    )


def test_a_single_string_has_the_error_that_estimate_tells():
    counts = Counts({"0": 700, "1": 300})
    mean, error = counts.expectation("Z0")
    assert mean == 0.4 and error == pytest.approx(np.sqrt((1 - 0.4**2) / 999))


def test_errors_are_as_large_as_the_spread():
    state = StateVector(2, seed=4).ry(0.9, 0).cx(0, 1).h(1)
    observable = Observable("Z0 + 0.7*Z1 - Z0 Z1")
    exact = state.expectation(observable)
    off = [(mean - exact) / error for mean, error in (state.counts(500).expectation(observable) for _ in range(200))]
    assert 0.8 < np.std(off) < 1.2 and abs(np.mean(off)) < 0.3


def test_qubits_tell_whose_the_characters_are():
    state = StateVector(8, seed=1).x(5)
    counts = state.counts(10, qubits=[7, 5])
    assert counts.expectation("Z5 - Z7", qubits=[7, 5]) == (-2, 0)
    assert state.counts(10, order="little").expectation("Z5", qubits=range(7, -1, -1)) == (-1, 0)
    circuit = Circuit(4, 2).x(3).measure([3, 0], [0, 1])
    assert run(circuit, shots=5).counts.expectation("Z3", qubits=[3, 0]).mean == -1


def test_projectors_and_numbers_of_ones():
    counts = Counts({"00": 1, "01": 2, "11": 1})
    assert counts.expectation("|01><01|").mean == 0.5
    assert counts.expectation(Observable.number([0, 1])).mean == 1


def test_complex_weights_and_none():
    mean, error = Counts({"0": 3, "1": 1}).expectation("2j*Z0 + 1")
    assert mean == 1 + 1j and error == pytest.approx(1.0) and type(error) is float
    assert Counts({"0": 3}).expectation("2") == (2, 0) and Counts({"": 3}).expectation("2") == (2, 0)


def test_outcomes_are_looked_at_in_pieces(monkeypatch):
    counts = run(Circuit(6).h(0).h(1).h(2).h(3).h(4).h(5), shots=3000, seed=5).counts
    whole = counts.expectation("Z0 Z5 + 0.3*Z1 + 1")
    monkeypatch.setattr(estimate, "_CHARACTERS", 18)
    assert counts.expectation("Z0 Z5 + 0.3*Z1 + 1") == whole


@pytest.mark.parametrize(
    ("arguments", "error", "words"),
    [
        (("Z0 + 2*X1",), ValueError, "observable must be diagonal, of Z alone, got the term 2.0*X1"),
        (("Y0",), ValueError, "observable.group_commuting() gives groups of terms, each with the gates"),
        (("Z2",), ValueError, "observable must act on qubits of the outcomes, 0, 1, got the term 1.0*Z2; qubits=[...]"),
        (("Z0", [3, 4]), ValueError, "observable must act on qubits of the outcomes, 3, 4, got the term 1.0*Z0"),
        (("Z0", [0]), ValueError, "qubits must be 2, one for each character of an outcome, got 1"),
        (("Z0", [0, 0]), ValueError, "qubits must be distinct"),
        ((3,), TypeError, "observable must be a text, a dictionary"),
    ],
)
def test_wrong_arguments(arguments, error, words):
    with refused(error, words):
        Counts({"00": 3, "11": 4}).expectation(*arguments)


def test_long_terms_are_shortened_in_messages():
    for letter in "XZ":
        with pytest.raises(ValueError) as caught:
            Counts({"0": 1}).expectation(Observable([(1, letter * 1000, range(1000))]))
        assert len(str(caught.value)) < 500


def test_one_shot_tells_no_error():
    mean, error = Counts({"1": 1}).expectation("Z0")
    assert mean == -1 and math.isnan(error)
    assert Counts({"1": 2}).expectation("Z0").standard_error == 0


def test_no_shots():
    for counts in (Counts({}, 1), Counts({"0": 0})):
        with refused(ValueError, "counts must have at least one shot for a mean, got none"):
            counts.expectation("Z0")
