"""Expectation values against full matrices, estimates against expectation values."""

import numpy as np
import pytest
from full_matrices import GATES, product, random_state
from refusals import refused

from velacamplix import Estimate, Observable, StateVector
from velacamplix.states import expectations as _expectations

SUM = Observable("0.5*X0 Y2 - 1.2*Z1 + 3 + 0.25*Y0 Y1 Y3 - X1 Z2 + 2*Y3 + 0.125*Z0 Z1 Z2 Z3")


def matrix(term, n):
    return product(n, {qubit: GATES[letter.lower()] for letter, qubit in zip(term.paulis, term.qubits)})


@pytest.fixture
def state(precision):
    return StateVector(4, precision, threads=2, seed=8).set_state(random_state(4, seed=2), order="little")


def exact_terms(state, observable):
    psi = state.array.astype(complex)
    return [term.coefficient * np.vdot(psi, matrix(term, 4) @ psi) for term in observable.terms]


def test_exact_values(state, tolerance):
    expected = exact_terms(state, SUM)
    assert np.abs(state.term_values(SUM) - expected).max() < tolerance
    assert state.expectation(SUM) == pytest.approx(sum(expected).real + 3, abs=10 * tolerance)


@pytest.mark.parametrize("letter", "XYZ")
@pytest.mark.parametrize("qubit", range(4))
def test_every_letter_on_every_qubit(letter, qubit, state, tolerance):
    observable = Observable([(1, letter, [qubit])])
    assert state.expectation(observable) == pytest.approx(exact_terms(state, observable)[0].real, abs=tolerance)


@pytest.mark.parametrize(
    ("product_state", "text", "value"),
    [("00", "Z0", 1), ("10", "Z0", -1), ("10", "Z1", 1), ("+0", "X0", 1), ("-0", "X0", -1), ("+0", "Z0", 0), ("10", "Z0 Z1", -1)],
)
def test_known_states(product_state, text, value, precision):
    assert StateVector(2, precision).set_basis_state(product_state).expectation(text) == pytest.approx(value, abs=1e-6)


def test_y_of_its_eigenstate(precision):
    assert StateVector(1, precision).ztoy(0).expectation("Y0") == pytest.approx(1, abs=1e-6)


def test_strings_are_read_in_either_order():
    state = StateVector(3).x(0)
    assert state.expectation({"ZII": 1}) == -1 and state.expectation({"IIZ": 1}) == 1
    assert state.expectation(Observable({"IIZ": 1}, order="little")) == -1


def test_observables_need_not_be_made_first(state):
    for written in ("2*Z1", {"IZ": 2}, [(2, "Z", [1])]):
        assert state.expectation(written) == state.expectation(Observable("2*Z1"))


def test_types():
    state = StateVector(1)
    assert type(state.expectation("Z0")) is float and state.expectation("3") == 3
    assert state.expectation("2j*Z0") == 2j and state.expectation("Z0 + 1j") == 1 + 1j
    assert state.term_values("Z0 + 1j").dtype == np.float64 and state.term_values("2j*Z0").tolist() == [2j]
    assert state.term_values("7").shape == (0,)


def test_terms_that_repeat_are_valued_one_by_one():
    assert StateVector(1).term_values("Z0 + 0*X0 + 2*Z0").tolist() == [1, 0, 2]


@pytest.mark.parametrize("threads", [1, 2, 3, 7])
def test_the_same_bits_on_any_number_of_threads(threads, precision):
    def value(threads):
        return StateVector(10, precision, threads).set_state(random_state(10, 1), order="little").expectation(SUM)

    assert value(threads) == value(1)


# Estimates


def test_estimates_are_near_the_exact_values(state):
    estimate = state.estimate(SUM, shots=40_000, per_term=True)
    exact = state.term_values(SUM)
    assert (np.abs(estimate.mean - exact) < 5 * estimate.standard_error).all()
    mean, error = state.estimate(SUM, shots=40_000)
    assert abs(mean - state.expectation(SUM)) < 5 * error


def test_errors_are_those_of_independent_terms(state):
    shots = 1000
    terms = state.estimate(SUM, shots, per_term=True)
    weights = np.array([term.coefficient for term in SUM.terms])
    expected = np.abs(weights) * np.sqrt((1 - (terms.mean / weights) ** 2) / (shots - 1))
    assert terms.standard_error == pytest.approx(expected, rel=1e-4)
    state.seed = 8
    together = state.estimate(SUM, shots)
    assert together.mean == pytest.approx(terms.mean.sum() + 3, rel=1e-5)
    assert together.standard_error == pytest.approx(np.sqrt((terms.standard_error**2).sum()), rel=1e-5)


def test_the_spread_of_estimates_is_the_error_they_tell():
    state = StateVector(1, seed=3).ry(1.0, 0)
    estimates = [state.estimate("2*Z0", shots=100) for _ in range(400)]
    spread = np.std([mean for mean, _ in estimates])
    assert spread == pytest.approx(np.mean([error for _, error in estimates]), rel=0.15)


@pytest.mark.parametrize("threads", [1, 2, 3])
def test_the_same_seed_gives_the_same_estimates(threads, precision):
    def estimate(threads):
        state = StateVector(6, precision, threads, seed=5).set_state(random_state(6, 1), order="little")
        return state.estimate(SUM, 1000)

    assert estimate(threads) == estimate(1)


@pytest.mark.parametrize(
    ("product_state", "terms", "mean"),
    [
        ("01+0", {"IZ": 1}, -1),
        ("01+0", {"ZI": 1}, 1),
        ("01+0", {"IIX": 1}, 1),
        ("010+", {"IZIX": 1}, -1),
        ("+010", {"XIZI": 1}, -1),
        ("010+", "I0 Z1 I2 X3", -1),
        ("010+", [(1, "IZIX", [0, 1, 2, 3])], -1),
        ("010+", [(1, "XIZ", [3, 0, 1])], -1),
    ],
)
def test_identities_do_not_disturb(product_state, terms, mean):
    # Every qubit is in an eigenstate of its letter, so each shot is the same.
    state = StateVector(4, seed=1).set_basis_state(product_state)
    assert state.expectation(terms) == pytest.approx(mean)
    estimate = state.estimate(terms, 50)
    assert (estimate.mean, estimate.standard_error) == (mean, 0)


def test_the_state_comes_back(state, tolerance):
    before = state.array.copy()
    state.estimate(SUM, 10)
    assert np.abs(state.array - before).max() < 10 * tolerance


def test_shapes_of_an_estimate(state):
    whole = state.estimate(SUM, 10)
    assert isinstance(whole, Estimate) and type(whole.mean) is float and type(whole.standard_error) is float
    mean, error = state.estimate(SUM, 10, per_term=True)
    assert mean.shape == error.shape == (6,) and mean.dtype == error.dtype == np.float64


def test_small_cases():
    state = StateVector(1, seed=1)
    assert state.estimate("3", 5) == (3, 0)
    assert state.estimate("Z0", 1) == (1, 0) and state.estimate("X0", 1).standard_error == 0
    assert state.estimate("2j*Z0 + 1", 5) == (1 + 2j, 0)
    mean, error = state.estimate("2j*X0", 400, per_term=True)
    assert mean.dtype == np.complex128 and error[0] == pytest.approx(2 / np.sqrt(399), rel=0.05)


# Wrong arguments


@pytest.mark.parametrize("method", ["expectation", "term_values", "estimate"])
def test_observables_on_more_qubits(method):
    arguments = [10] if method == "estimate" else []
    with refused(ValueError, "observable must act on at most 2 qubit(s), those of the state, got one on 3"):
        getattr(StateVector(2), method)("Z2", *arguments)
    with refused(ValueError, "got one on 3"):
        getattr(StateVector(2), method)({"ZII": 1}, *arguments)


@pytest.mark.parametrize("method", ["expectation", "term_values", "estimate"])
def test_what_is_no_observable(method):
    arguments = [10] if method == "estimate" else []
    with refused(TypeError, "observable must be a text, a dictionary, or a list"):
        getattr(StateVector(2), method)(None, *arguments)
    with refused(ValueError, "at position 0, got 'Q0'"):
        getattr(StateVector(2), method)("Q0", *arguments)


@pytest.mark.parametrize(
    ("shots", "error"), [(0, ValueError), (-3, ValueError), (True, TypeError), (1e3, TypeError), (2**63, ValueError)]
)
def test_bad_numbers_of_shots(shots, error):
    with refused(error, "shots must be an integer from 1 to"):
        StateVector(1).estimate("Z0", shots)


def test_a_flag_that_is_none():
    with refused(TypeError, "per_term must be True or False, got 1"):
        StateVector(1).estimate("Z0", 10, 1)


def test_a_term_whose_table_does_not_fit(monkeypatch):
    def refuse(needed, what):
        raise MemoryError(f"{what} needs {needed}")

    monkeypatch.setattr(_expectations.memory, "require_bytes", refuse)
    with refused(MemoryError, "the table of outcomes of a term on 3 qubits needs 64"):
        StateVector(3).estimate("Z0 Z1 Z2 + X0", 10)


def test_partial_sums_that_do_not_fit(monkeypatch):
    asked = []

    def refuse(needed, what):
        asked.append(needed)
        raise MemoryError(f"{what} needs {needed}")

    monkeypatch.setattr(_expectations.memory, "require_bytes", refuse)
    few, many = "Z0 + X0", [(1, "Z", [0])] * 9000
    for n, observable, needed in ((15, few, 8 * 2 * 4), (20, many, 8 << 20)):
        for read in (StateVector(n).expectation, StateVector(n).term_values):
            with refused(MemoryError, f"the partial sums of an expectation value needs {needed}"):
                read(observable)
    assert asked == [64, 64, 8 << 20, 8 << 20]
