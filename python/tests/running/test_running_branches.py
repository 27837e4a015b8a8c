"""velacamplix.run where outcomes in the middle decide what follows: the distribution is that of the ideal circuit."""

import math
import random

import numpy as np
import numpy_outcomes as exact
import pytest

from velacamplix import Circuit, Observable, StateVector, run

SHOTS = 20_000
# A right program fails a test of this kind once in ten thousand seeds; the seeds are fixed.
RARE = 1e-4


def teleportation(theta, phi):
    """Qubit 0 travels to qubit 2, and is turned back there: bit 2 must read 0."""
    circuit = Circuit(3, 3).ry(theta, 0).rz(phi, 0).h(1).cx(1, 2).cx(0, 1).h(0).measure([0, 1], [0, 1])
    with circuit.when(1, 1):
        circuit.x(2)
    with circuit.when(0, 1):
        circuit.z(2)
    return circuit.rz(-phi, 2).ry(-theta, 2).measure(2, 2)


def until_success(attempts):
    """Acts on qubit 0 by way of qubit 1, which is measured; where it reads 1, it is reset and the step is repeated."""
    circuit = Circuit(2, attempts + 1)
    for attempt in range(attempts):
        failed_so_far = circuit.when(list(range(attempt)), 2**attempt - 1) if attempt else None
        if failed_so_far is None:
            circuit.ry(2 * math.pi / 3, 1).cx(1, 0).ry(0.7, 1).measure(1, attempt)
        else:
            with failed_so_far:
                circuit.reset(1).ry(2 * math.pi / 3, 1).cx(1, 0).ry(0.7, 1).measure(1, attempt)
    return circuit.measure(0, attempts)


def reset_of_entangled():
    """Half of a Bell pair is reset; the other half stays random, and the reset one can be used again."""
    return Circuit(2, 2).h(0).cx(0, 1).reset(0).ry(0.9, 0).measure([0, 1], [0, 1])


def condition_on_register():
    """Two bits choose one of four angles."""
    circuit = Circuit(3, 3).ry(0.8, 0).ry(1.9, 1).measure([0, 1], [0, 1])
    for value in range(4):
        with circuit.when([0, 1], format(value, "02b")):
            circuit.ry(0.4 + 0.5 * value, 2)
    return circuit.measure(2, 2)


def bits_used_again():
    """A bit is written three times, once under a condition that reads it; a qubit is read into two bits."""
    circuit = Circuit(3, 3).h(0).measure(0, 0).ry(0.6, 1).measure(1, 1)
    with circuit.when(0, 1):
        circuit.measure(1, 0)
    circuit.cx(0, 2).ry(0.3, 2)
    with circuit.when([1, 0], "01"):
        circuit.measure([2, 0], [0, 1])
    return circuit.h(0).measure(0, 2).measure(2, 0)


def everything():
    """A conditional reset, a qubit that is measured before and after, a qubit nobody touches."""
    circuit = Circuit(4, 4).h(0).cx(0, 1).sx(1).measure(0, 0)
    with circuit.when(0, 0):
        circuit.reset(1).u(0.3, 0.2, 0.1, 1)
    circuit.measure(3, 3).cx(1, 0).measure([0, 1], [1, 2])
    with circuit.when(3, 0):
        circuit.rxx(0.4, 0, 2)
    return circuit.measure(2, 3)


CIRCUITS = [
    teleportation(0.7, 1.1),
    until_success(4),
    reset_of_entangled(),
    condition_on_register(),
    bits_used_again(),
    everything(),
]


@pytest.mark.parametrize("circuit", CIRCUITS, ids=range(len(CIRCUITS)))
@pytest.mark.parametrize("seed", [1, 2])
def test_counts_follow_the_exact_distribution(circuit, seed, precision):
    counts = run(circuit, shots=SHOTS, seed=seed, precision=precision).counts
    assert counts.shots == SHOTS
    assert exact.p_value(counts, exact.distribution(circuit)) > RARE


def test_the_chi_square_test_would_notice():
    # Two percent of the shots in the wrong place.
    probabilities = exact.distribution(condition_on_register())
    right = run(condition_on_register(), shots=SHOTS, seed=1).counts
    frequent, other = [outcome for outcome, _ in right.most_likely(2)]
    wrong = {**right, frequent: right[frequent] - SHOTS // 50, other: right[other] + SHOTS // 50}
    assert exact.p_value(wrong, probabilities) < RARE
    assert exact.p_value({"111": 5}, {"000": 1.0}) == 0


def test_teleportation_always_arrives():
    counts = run(teleportation(0.7, 1.1), shots=SHOTS, seed=3).counts
    assert {outcome[2] for outcome in counts} == {"0"}
    assert len(counts) == 4


def random_circuit(seed):
    choose = random.Random(seed)
    n, m = choose.randint(1, 4), choose.randint(1, 4)
    circuit = Circuit(n, m)

    def one_step():
        kind, qubit = choose.randrange(8), choose.randrange(n)
        if kind < 3:
            circuit.u(choose.uniform(0, 3), choose.uniform(0, 3), 0.2, qubit)
        elif kind == 3 and n > 1:
            circuit.cx(*choose.sample(range(n), 2))
        elif kind == 4:
            circuit.reset(qubit)
        elif kind < 7:
            count = choose.randint(1, min(n, m))
            circuit.measure(choose.sample(range(n), count), choose.sample(range(m), count))

    for _ in range(14):
        if choose.random() < 0.35:
            bits = choose.sample(range(m), choose.randint(1, m))
            with circuit.when(bits, "".join(choose.choices("01", k=len(bits)))):
                one_step()
        else:
            one_step()
    return circuit.measure(0, 0)


@pytest.mark.parametrize("seed", range(40))
def test_random_circuits_follow_the_exact_distribution(seed):
    circuit = random_circuit(seed)
    counts = run(circuit, shots=SHOTS, seed=seed).counts
    assert exact.p_value(counts, exact.distribution(circuit)) > RARE, str(circuit)


@pytest.mark.parametrize("circuit", CIRCUITS, ids=range(len(CIRCUITS)))
def test_the_same_seed_gives_the_same_shots_for_any_number_of_threads(circuit, precision):
    one = run(circuit, shots=500, seed=5, threads=1, precision=precision)
    for threads in (2, 3):
        other = run(circuit, shots=500, seed=5, threads=threads, precision=precision)
        assert (other.shots == one.shots).all()
    assert (run(circuit, shots=500, seed=6, precision=precision).shots != one.shots).any()


def test_the_same_seed_gives_the_same_shots_where_threads_share_the_work():
    circuit = Circuit(16, 4)
    for qubit in range(16):
        circuit.ry(0.1 + 0.1 * qubit, qubit)
    for qubit in range(15):
        circuit.cx(qubit, qubit + 1)
    circuit.measure([3, 15], [0, 1]).h(3).h(15).reset(7).h(7).measure([3, 7], [2, 3])
    one, two = (run(circuit, shots=2000, seed=9, threads=threads) for threads in (1, 2))
    assert (one.shots == two.shots).all()


def test_the_order_of_shots_carries_no_structure():
    shots = run(Circuit(1, 2).h(0).measure(0, 0).h(0).measure(0, 1), shots=4000, seed=1).shots
    # Within any part of the list all four outcomes are about equally frequent.
    for part in np.split(shots, 4):
        assert (np.bincount(part.astype(int), minlength=4) > 150).all()


def test_a_seed_that_was_drawn_by_chance_gives_the_same_shots_again():
    first = run(teleportation(0.7, 1.1), shots=100)
    assert (run(teleportation(0.7, 1.1), shots=100, seed=first.seed).shots == first.shots).all()


# How it is done: one state for a group of shots, few states at a time


def made_states(monkeypatch):
    made = []
    original = StateVector._start

    def start(self, *arguments, **named):
        made.append(self)
        original(self, *arguments, **named)

    monkeypatch.setattr(StateVector, "_start", start)
    return made


def test_a_million_shots_of_few_outcomes_need_few_simulations(monkeypatch):
    made = made_states(monkeypatch)
    assert run(teleportation(0.7, 1.1), shots=10**6, seed=1).counts.shots == 10**6
    # Four outcomes of one measurement: the state itself, and one more that is used again and again.
    assert len(made) <= 3


def test_many_splits_need_few_states(monkeypatch):
    made = made_states(monkeypatch)
    circuit = Circuit(1, 60)
    for bit in range(60):
        circuit.h(0).measure(0, bit)
    result = run(circuit.h(0), shots=300, seed=1)
    assert len(set(result.shots.tolist())) > 290
    assert len(made) <= math.log2(300) + 2


def test_a_thousand_measurements_do_not_recurse():
    circuit = Circuit(1, 1)
    for _ in range(3000):
        circuit.h(0).measure(0, 0)
    circuit.h(0).measure(0, 0)
    assert run(circuit, shots=3, seed=1).counts.shots == 3


def test_measurements_at_the_end_do_not_part_the_shots(monkeypatch):
    made = made_states(monkeypatch)
    circuit = Circuit(12, 13).h(0).measure(0, 12).h(range(12)[1])
    for qubit in range(12):
        circuit.h(qubit)
    circuit.measure(range(12), range(12))
    assert len(run(circuit, shots=3000, seed=1).counts) > 1000
    assert len(made) == 2


# Deterministic outcomes in the middle


def certain():
    circuit = Circuit(3, 2).x(0).reset(2).measure([0, 1], [0, 1])
    with circuit.when("c", 1):
        circuit.h(1)
    return circuit.reset(0)


@pytest.mark.parametrize("shots", [None, 100])
def test_certain_outcomes_leave_one_state(shots, precision, tolerance):
    result = run(certain(), shots=shots, precision=precision, observables="X1")
    assert result.has_state and result.active_qubits == (0, 1)
    assert np.abs(result.compact_state.array - np.array([1, 0, 1, 0]) / math.sqrt(2)).max() < tolerance
    assert np.abs(result.state.array - np.array([1, 0, 1, 0, 0, 0, 0, 0]) / math.sqrt(2)).max() < tolerance
    assert result.expectation_values == pytest.approx(1, abs=10 * tolerance)
    if shots:
        assert result.counts == {"10": 100}


def test_without_shots_different_outcomes_are_refused():
    with pytest.raises(ValueError, match=r"shots must be given.*instruction 2 \(measure 0 -> 0\).*more than one"):
        run(Circuit(2, 1).h(0).cx(0, 1).measure(0, 0).h(0))
    with pytest.raises(ValueError, match=r"shots must be given.*instruction 1 \(reset 0\)"):
        run(Circuit(1, 1).h(0).reset(0), observables="Z0")


def test_where_shots_part_there_is_no_state():
    result = run(teleportation(0.7, 1.1), shots=10, seed=1)
    assert not result.has_state
    with pytest.raises(RuntimeError, match="no one final state.*outcome"):
        result.state  # noqa: B018
    with pytest.raises(RuntimeError, match="no one final state"):
        result.amplitude(0)


# Expectation values over the branches


def test_expectation_values_are_the_mean_over_the_shots():
    circuit = Circuit(2, 1).ry(1.0, 0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(1)
    circuit.h(0)
    result = run(circuit, shots=1000, seed=4, observables=["Z1", "X0", Observable("2*X0 Z1 + 1.5")])
    ones = result.counts["1"]
    assert result.expectation_values == pytest.approx(
        [(1000 - 2 * ones) / 1000, (1000 - 2 * ones) / 1000, 2 + 1.5], abs=1e-12
    )


def test_expectation_values_approach_those_of_the_mixed_state():
    circuit = reset_of_entangled()
    density = exact.density_matrix(Circuit(2).h(0).cx(0, 1).reset(0).ry(0.9, 0))
    z1 = np.diag([1, 1, -1, -1])
    value = run(circuit, shots=40_000, seed=2, observables="Z1").expectation_values
    assert value == pytest.approx(np.trace(density @ z1).real, abs=5 / math.sqrt(40_000))
