"""Shots from states whose norm is not 1: those of the normalised state, or none at all."""

import numpy as np
import pytest
from full_matrices import random_state
from test_sampling import mt19937_64

from velacamplix import Circuit, StateVector, _core, run

SEED = 12


def scanned(state, count, as_shares):
    """The shots of a state with the seed SEED, each by a scan of its own from index 0 on."""
    amplitudes = state.array.astype(np.complex128)
    sums = np.add.accumulate(amplitudes.real**2 + amplitudes.imag**2)
    shots = []
    for output in mt19937_64(SEED, count):
        number = min(float(output) * 2.0**-64, 1 - 2.0**-53)
        if as_shares:
            number *= float(sums[-1])
        reached = np.flatnonzero(~(number > sums))
        index = int(reached[0]) if len(reached) else len(sums) - 1
        shots.append(int(format(index, f"0{state.n_qubits}b")[::-1], 2))
    return shots


def scaled(n, precision, factor, threads=1):
    """A random state, its amplitudes times a factor."""
    state = StateVector(n, precision, threads, SEED)
    state.array[:] = random_state(n, seed=4) * factor
    return state


@pytest.mark.parametrize("threads", [1, 2, 8])
@pytest.mark.parametrize("n", [1, 3, 7, 18])
@pytest.mark.parametrize("factor", [(1 + 2e-9) ** 0.5, (1 - 2e-9) ** 0.5, 0.7, 3.0, 1e-15, 1e15])
def test_numbers_are_shares_of_the_total(n, factor, precision, threads):
    state = scaled(n, precision, factor, threads)
    shots = scanned(state, 60, as_shares=True)
    before = state.array.tobytes()
    assert state.sample(60).tolist() == shots
    state.seed = SEED
    assert [state.measure() for _ in range(20)] == shots[:20]
    state.seed = SEED
    assert state.counts(60).ints() == {shot: shots.count(shot) for shot in sorted(set(shots))}
    assert state.array.tobytes() == before


@pytest.mark.parametrize("threads", [1, 2, 8])
@pytest.mark.parametrize("n", [1, 3, 7, 18])
@pytest.mark.parametrize("factor", [1.0, (1 + 9e-10) ** 0.5, (1 - 9e-10) ** 0.5])
def test_numbers_are_taken_as_they_are_where_the_total_is_1_in_double_precision(n, factor, threads):
    state = scaled(n, "double", factor, threads)
    assert state.sample(60).tolist() == scanned(state, 60, as_shares=False)


def test_what_is_missing_goes_to_no_outcome_of_its_own(precision):
    keep_a_quarter = 0.5 * np.eye(2)
    state = StateVector(3, precision, seed=SEED).h(1).matrix(keep_a_quarter, 0, check=False)
    assert state.norm() == pytest.approx(0.5)
    assert set(state.counts(20_000)) == {"000", "010"}
    assert {state.measure() for _ in range(100)} == {0, 2}
    outcome = state.measure(1, collapse=True)
    assert state.norm() == pytest.approx(1) and state.measure(1) == outcome


@pytest.mark.parametrize("factor", [0.5, 4.0, 2.0**-40])
def test_estimates_are_those_of_the_normalised_state(factor, precision):
    estimates = []
    for times in (1.0, factor):
        state = scaled(6, precision, times)
        before = state.array.copy()
        estimates.append(state.estimate("X0 Y3 Z5 + 0.5*Z0 Z1 - 2*Y4", shots=2000, per_term=True))
        assert np.allclose(state.array, before, atol=times * 1e-5)
    assert np.array_equal(estimates[0].mean, estimates[1].mean)
    assert np.array_equal(estimates[0].standard_error, estimates[1].standard_error)


@pytest.mark.parametrize("entry", [0.0, np.inf, -np.inf, np.nan])
@pytest.mark.parametrize(
    "call",
    [
        lambda state: state.sample(1),
        lambda state: state.sample(5000, [2, 0]),
        lambda state: state.counts(10),
        lambda state: state.measure(),
        lambda state: state.measure([1], collapse=True),
        lambda state: state.estimate("X0 + Y1 Z2", 10),
    ],
)
def test_without_a_total_nothing_is_drawn(call, entry, precision):
    state = StateVector(3, precision, seed=SEED)
    state.array[:] = 0 if entry == 0 else 0.25
    state.array[5] = entry
    before, engine = state.array.tobytes(), _core.engine(state._live())
    with pytest.raises(ValueError, match="must add up to a finite number above 0, got (0|nan|inf)"):
        call(state)
    assert state.array.tobytes() == before and _core.engine(state._live()) == engine
    assert state.set_basis_state("100").measure() == 4


def test_squares_that_are_too_large_have_no_total():
    state = StateVector(2)
    state.array[:] = 1e200
    with pytest.raises(ValueError, match="got inf"):
        state.sample(3)


def test_a_collapse_that_is_refused_uses_up_no_random_number():
    # Squares that single precision cannot divide by the root of.
    state = StateVector(2, "single", seed=SEED)
    state.array[:] = 1e-40
    engine = _core.engine(state._live())
    with pytest.raises(ValueError, match="norm zero"):
        state.measure(0, collapse=True)
    assert _core.engine(state._live()) == engine


# Runs from such a state


def start(n, precision, factor):
    state = StateVector(n, precision)
    state.array[:] = factor * np.resize([0.5, 0.5j, 0.5, -0.5], 2**n) / 2 ** ((n - 2) / 2)
    return state


AT_THE_END = Circuit(3, 3).x(0).measure([0, 1, 2], [0, 1, 2])
WITHOUT_MEASUREMENT = Circuit(3).h(1)
IN_THE_MIDDLE = Circuit(3, 4).measure(0, 0).h(0).measure([0, 1, 2], [1, 2, 3])
RESET = Circuit(3, 2).reset(1).h(0).measure([0, 1], [0, 1])
CONDITIONED = Circuit(3, 3).measure(0, 0)
with CONDITIONED.when(0, 1):
    CONDITIONED.x(1)
CONDITIONED.measure([1, 2], [1, 2])
CIRCUITS = [AT_THE_END, WITHOUT_MEASUREMENT, IN_THE_MIDDLE, RESET, CONDITIONED]


@pytest.mark.parametrize("factor", [0.25, 8.0])
@pytest.mark.parametrize("circuit", CIRCUITS)
@pytest.mark.parametrize("precision_of_start", ["double", "single"])
def test_the_shots_of_a_run_are_those_of_the_normalised_state(circuit, factor, precision, precision_of_start):
    # Powers of two: the scaled state's shares are exactly those of the other.
    shots = [
        run(circuit, shots=4000, seed=SEED, initial=start(3, precision_of_start, times), precision=precision).shots
        for times in (1.0, factor)
    ]
    assert np.array_equal(*shots)


@pytest.mark.parametrize("entry", [0.0, np.inf, np.nan])
@pytest.mark.parametrize("circuit", CIRCUITS)
def test_a_run_without_a_total_has_no_shots(circuit, entry, precision):
    state = StateVector(3, precision)
    state.array[:] = entry
    with pytest.raises(ValueError):
        run(circuit, shots=10, seed=SEED, initial=state, precision=precision)
