"""Variances against full matrices."""

import numpy as np
import pytest
from full_matrices import random_state
from refusals import refused

from velacamplix import Circuit, Observable, StateVector, run
from velacamplix.programs import drive, progress

SUM = Observable("0.5*X0 Y2 - 1.2*Z1 + 3 + 0.25*Y0 Y1 Y3 - X1 Z2 + 2*Y3 + 0.125*Z0 Z1 Z2 Z3")


def state_of(amplitudes, precision="double"):
    state = StateVector(len(amplitudes).bit_length() - 1, precision, threads=2)
    state.array[:] = amplitudes
    return state


def exact(psi, observable):
    n = len(psi).bit_length() - 1
    psi, matrix = psi / np.linalg.norm(psi), observable.to_matrix(n)
    mean = np.vdot(psi, matrix @ psi).real
    return np.linalg.norm(matrix @ psi) ** 2 - mean**2


@pytest.mark.parametrize("seed", range(3))
def test_variances_are_those_of_the_matrix(seed, precision):
    state = state_of(random_state(4, seed), precision)
    assert state.variance(SUM) == pytest.approx(exact(state.array.astype(complex), SUM), abs=1e-13)
    assert type(state.variance(SUM)) is float


@pytest.mark.parametrize("factor", [0.01, 3, 1e100])
def test_variances_are_those_of_the_normalised_state(factor):
    state = state_of(factor * random_state(4, 1))
    assert state.variance(SUM) == pytest.approx(exact(random_state(4, 1), SUM), rel=1e-12)


def test_known_variances(precision):
    state = StateVector(2, precision).x(1)
    observables = ["Z0", "Z1", "5*X0", "X0 + Y1", "7", {"ZZ": 3}, [(2, "Y", [0])]]
    assert [state.variance(observable) for observable in observables] == [0, 0, 25, 2, 0, 0, 4]
    eigenstate = StateVector(3, precision).h(0).cx(0, 1).cx(1, 2)
    assert 0 <= eigenstate.variance("X0 X1 X2 + 4*Z0 Z1 - 3*Z1 Z2") < {"double": 1e-13, "single": 1e-6}[precision]


def test_a_large_constant_takes_no_digits():
    state = state_of(random_state(4, 5))
    assert state.variance(SUM + 1e12) == pytest.approx(state.variance(SUM), rel=1e-3)
    assert state.variance("1e12 + X0") == state.variance("X0")


def test_what_has_no_variance(precision):
    with refused(ValueError, "observable must be Hermitian to have a variance, got one with complex coefficients"):
        StateVector(2, precision).variance("1j*X0")
    with refused(ValueError, "observable must act on at most 2 qubit(s)"):
        StateVector(2, precision).variance("X2")
    with refused(ValueError, "the probabilities add up to 0: there is no normalised state to tell the variance of"):
        state_of(np.zeros(4), precision).variance("X0")
    with refused(ValueError, "the probabilities add up to nan"):
        state_of([np.nan, 0], precision).variance("X0")


def test_terms_of_the_square_are_counted(monkeypatch):
    for module in (drive, progress):
        monkeypatch.setattr(module, "INTERVAL", 0.0)
    told = []
    assert StateVector(3).variance("X0 + Z1 + X0 X2", progress=told.append) == 2.0
    assert {p.total for p in told} == {len((Observable("X0 + Z1 + X0 X2") @ Observable("X0 + Z1 + X0 X2")).terms)}
    assert told[-1].done == told[-1].total


def test_of_results(precision):
    circuit = Circuit(6).h(1).ry(0.7, 4).cx(1, 3).rx(0.3, 3)
    result = run(circuit, precision=precision)
    observables = ["Z0 + 2*X1", SUM, "Y4 Z3 + Z5 - 2*Z4"]
    variances = result.variance(observables)
    assert variances.dtype == np.float64
    assert variances == pytest.approx([result.state.variance(o) for o in observables], abs=1e-12)
    assert result.variance(SUM) == pytest.approx(variances[1]) and type(result.variance(SUM)) is float
    assert run(Circuit(90).x(70)).variance("Z70 + X80") == 1
    with refused(ValueError, "observable must be Hermitian"):
        result.variance(["Z0", "2j*Z1"])


@pytest.mark.filterwarnings("ignore:terms with X or Y count 0")
def test_measurements_at_the_end_count():
    circuit = Circuit(2, 1).ry(0.6, 0).cx(0, 1).measure(0, 0)
    result = run(circuit)
    rho = result.state.reduced([0, 1])
    reads = [np.kron(np.eye(2), np.diag(d)) for d in ([1, 0], [0, 1])]  # qubit 0 is the lowest bit
    rho = sum(read @ rho @ read for read in reads)
    for text in ("X0", "X0 X1 + Z0", "X0 + 2*Y0 + Z1", "X1 - Z0 Z1"):
        matrix = Observable(text).to_matrix(2)
        mean = np.trace(rho @ matrix).real
        assert result.variance(text) == pytest.approx(np.trace(rho @ matrix @ matrix).real - mean**2, abs=1e-12)


def test_a_measurement_that_takes_a_term_is_told():
    with pytest.warns(UserWarning, match="terms with X or Y count 0 on qubits that are measured at the end, here 0"):
        assert run(Circuit(1, 1).h(0).measure(0, 0)).variance("X0") == pytest.approx(1)
