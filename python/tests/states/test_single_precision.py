"""What a state in single precision tells is summed in double: right also where a sum in single precision stops growing."""

import numpy as np
import pytest
from full_matrices import random_state

from velacamplix import Circuit, Observable, Parameter, StateVector, run
from velacamplix.machine import limits as _machine

# 2**25 equal amplitudes: from the first 2**24 probabilities on, a running sum in single precision does not change.
BIG = 25
NEEDED = 10 * 2**BIG  # the state, and a little


@pytest.fixture(scope="module")
def uniform():
    """All outcomes of 25 qubits, equally likely, made by gates."""
    usable = _machine.memory().usable
    if usable < NEEDED:
        pytest.skip(f"a state of {BIG} qubits in single precision needs {NEEDED >> 20} MiB, {usable >> 20} MiB are free")
    state = StateVector(BIG, "single", seed=2024)
    for qubit in range(BIG):
        state.h(qubit)
    yield state
    state.release()


def chi_square(seen, expected):
    """In units of the standard deviation from what is expected."""
    freedom = len(seen) - 1
    return (((seen - expected) ** 2 / expected).sum() - freedom) / np.sqrt(2 * freedom)


def test_shots_of_a_large_uniform_state_are_uniform(uniform):
    shots = 2**21
    outcomes = uniform.sample(shots)
    # All bits of an outcome matter: those of the first qubits and those of the last.
    for bits in (outcomes >> np.uint64(BIG - 10), outcomes & np.uint64(1023)):
        assert abs(chi_square(np.bincount(bits.astype(np.int64), minlength=1024), shots / 1024)) < 5
    # Outcomes come by chance twice or more often; pairs of equal shots follow from the number of outcomes.
    pairs = (np.unique(outcomes, return_counts=True)[1] ** 2).sum() / 2 - shots / 2
    assert abs(pairs - shots**2 / 2 / 2**BIG) < 5 * np.sqrt(shots**2 / 2 / 2**BIG)


def test_counts_of_a_large_uniform_state_add_up(uniform):
    counts = uniform.counts(100_000, [0, 13, 24])
    assert sum(counts.values()) == 100_000
    assert abs(chi_square(np.array(list(counts.values())), 12_500)) < 5


def test_the_norm_of_a_large_state(uniform):
    # Twenty-five gates in single precision; the sum itself adds no error.
    exact = np.sqrt((np.abs(uniform.array[::4097].astype(complex)) ** 2).mean() * 2**BIG)
    assert uniform.norm() == pytest.approx(exact, rel=1e-9)
    assert uniform.norm() == pytest.approx(1, abs=1e-6)


def test_probabilities_of_a_large_uniform_state(uniform):
    norm = uniform.norm() ** 2
    for qubits in ([], [0], [24, 3], list(range(10))):
        assert uniform.distribution(qubits) == pytest.approx(norm / 2 ** len(qubits), rel=1e-12)
        assert uniform.probability(0, qubits) == pytest.approx(norm / 2 ** len(qubits), rel=1e-12)


def test_expectations_of_a_large_uniform_state(uniform):
    assert uniform.expectation({"X" * BIG: 1}) == pytest.approx(uniform.norm() ** 2, rel=1e-12)
    assert uniform.term_values("Z0 + Z24 + X3 + Y7") == pytest.approx([0, 0, uniform.norm() ** 2, 0], abs=1e-12)


def test_projection_of_a_large_state_gives_norm_one(uniform):
    # Last: it changes the state.
    uniform.project([], 0)
    assert uniform.norm() == pytest.approx(1, abs=1e-6)
    uniform.project([5, 20], "10")
    assert uniform.norm() == pytest.approx(1, abs=1e-6)
    assert uniform.measure([5, 20]) == 2


# The same at small sizes, where the double state says what is right


def pair(n, seed=1):
    """A state in single precision and the same amplitudes in double."""
    single = StateVector(n, "single", threads=2, seed=3).set_state(random_state(n, seed), order="little")
    double = StateVector(n, "double", threads=2, seed=3)
    double.array[:] = single.array
    return single, double


@pytest.mark.parametrize("n", [0, 1, 5, 11, 18])
def test_what_is_read_has_the_bits_of_double_precision(n):
    single, double = pair(n)
    assert single.norm() == double.norm()
    assert single.distribution().tobytes() == double.distribution().tobytes()
    qubits = list(range(n))[::-2]
    assert single.distribution(qubits).tobytes() == double.distribution(qubits).tobytes()
    assert single.probability(0, qubits) == double.probability(0, qubits)
    assert single.distribution_dict(qubits, 0.01) == double.distribution_dict(qubits, 0.01)
    observable = Observable([(0.3, "X" * n, range(n)), (1 / 3, "Z" * len(qubits), qubits), (0.1, "", [])])
    assert single.expectation(observable) == double.expectation(observable)
    assert single.term_values(observable).tobytes() == double.term_values(observable).tobytes()


def test_shots_are_shares_of_the_total():
    single, double = pair(11)
    scale = np.float32(0.75)
    single.array[:] *= scale
    double.array[:] /= double.norm()
    assert single.norm() == pytest.approx(0.75, rel=1e-6)
    # The last bits of the sums decide one shot in a million.
    assert (single.sample(10_000) == double.sample(10_000)).mean() > 0.999


def test_no_impossible_outcome_in_spite_of_a_lost_norm():
    state = StateVector(3, "single", seed=1).h(1)
    state.array[:] *= np.float32(0.5)  # three quarters of the probability are missing
    assert set(state.counts(20_000)) == {"000", "010"}
    assert {state.measure() for _ in range(200)} == {0, 2}


def test_estimates_are_near_the_exact_values():
    single, _ = pair(9)
    observable = Observable("X0 Y2 - 0.5*Z1 Z8 + 0.25*Y4")
    mean, error = single.estimate(observable, 20_000)
    assert abs(mean - single.expectation(observable)) < 5 * error


def test_what_a_sum_in_single_precision_loses():
    # One large probability first; each of the million small ones is less than half a unit in its last place.
    state = StateVector(20, "single", seed=5)
    state.array[:] = 2.0**-13
    small = (2**20 - 1) / 2**26
    state.array[0] = np.sqrt(1 - small)
    assert np.add.accumulate(state.array.real**2)[-1] < 1 - small / 2  # what NumPy makes of it, one after another
    assert state.norm() == pytest.approx(1, abs=1e-7)
    shots = 100_000
    rest = shots - state.counts(shots)["0" * 20]
    assert abs(rest - shots * small) < 5 * np.sqrt(shots * small)
    assert state.expectation({"I" * 20: 1, "Z" * 20: 0}) == pytest.approx(1, abs=1e-7)


def test_a_preparation_keeps_the_norm():
    state = StateVector(20, "single")
    state.array[:] = 2.0**-13
    state.array[0] = np.sqrt(1 - (2**20 - 1) / 2**26)
    data = np.zeros(2**20)
    data[5] = 1
    state.prepare(data, range(20), order="little")
    assert abs(state.array[5]) == pytest.approx(1, abs=1e-6) and np.count_nonzero(state.array) == 1


# Angles that single precision cannot hold

# As floats the large ones are other angles: 1234567.8 becomes 1234567.75.
ANGLES = [0.1, 1234567.8, -98765432.1, 1e15 + 0.25, 1e39, 2 * np.pi * 12345 / 2**14]


def by_angle(kind, angle, precision):
    """The angle's gate, applied in all ways there are, to a state that tells its entries."""
    gates = {
        "rx": lambda c, a: c.rx(a, 0),
        "ry": lambda c, a: c.ry(a, 0),
        "rz": lambda c, a: c.rz(a, 0),
        "ph": lambda c, a: c.ph(a, 0),
        "crx": lambda c, a: c.crx(a, 2, 0),
        "rz with controls": lambda c, a: c.rz(a, 0, controls=[1, 2]),
        "cp": lambda c, a: c.cp(a, 1, 0),
        "mcp": lambda c, a: c.mcp(a, [1, 2], 0),
    }
    gate, parameter = gates[kind], Parameter("a")
    template = gate(Circuit(3), parameter)
    begin = StateVector(3, precision).set_basis_state("+11")
    fresh = begin.copy().run(template.bind(a=angle))
    yield gate(begin.copy(), angle)
    yield begin.copy().run(gate(Circuit(3), angle))
    yield fresh
    # From another angle to this one, in a program that is kept.
    begin.copy().run(template.bind(a=0.5))
    yield begin.copy().run(template.bind(a=angle))
    yield run(gate(Circuit(3), angle), initial="+11", precision=precision).state


@pytest.mark.parametrize("kind", ["rx", "ry", "rz", "ph", "crx", "rz with controls", "cp", "mcp"])
@pytest.mark.parametrize("angle", [*ANGLES, 0.5, -1234567.75])
def test_an_angle_is_what_it_is_in_every_way(kind, angle):
    (exact, *_) = by_angle(kind, angle, "double")
    found = list(by_angle(kind, angle, "single"))
    for state in found:
        assert np.abs(state.array - exact.array).max() < 1e-7
        assert state.array.tobytes() == found[0].array.tobytes()


@pytest.mark.parametrize("angle", ANGLES)
def test_large_angles_with_fusion(angle):
    circuit = Circuit(2).h(0).rz(angle, 0).rx(angle, 0).cp(angle, 0, 1).ry(angle, 1)
    exact, single = run(circuit), run(circuit, precision="single", fusion=True)
    assert np.abs(exact.state.array - single.state.array).max() < 5e-7


def test_phase_estimation_on_14_qubits():
    n, phase = 14, 0.2371
    circuit = Circuit(n + 1).x(n)
    for qubit in range(n):
        circuit.h(qubit).cp(2 * np.pi * phase * 2**qubit, qubit, n)
    for qubit in reversed(range(n)):
        for other in reversed(range(qubit + 1, n)):
            circuit.cp(-np.pi / 2 ** (other - qubit), qubit, other)
        circuit.h(qubit)
    exact, single = run(circuit), run(circuit, precision="single")
    assert np.abs(exact.state.array - single.state.array).max() < 2e-6
