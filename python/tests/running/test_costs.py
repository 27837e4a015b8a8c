"""What is predicted of runs with noise: how many trajectories there will be, and which method is taken."""

import math

import pytest

from velacamplix import Channel, Circuit, DensityMatrix, NoiseModel, run
from velacamplix.machine import memory
from velacamplix.programs.noisy import PreparedTrajectories
from velacamplix.running.costs import Outlook


def layers(n_qubits, count=10):
    circuit = Circuit(n_qubits)
    for layer in range(count):
        for qubit in range(n_qubits):
            circuit.rx(0.3 + qubit, qubit).rz(0.2 - layer, qubit)
        for qubit in range(layer % 2, n_qubits - 1, 2):
            circuit.cx(qubit, qubit + 1)
    return circuit


def outlook(circuit):
    return Outlook(PreparedTrajectories(circuit, (), "double"))


def noisy(p, channel=None):
    return NoiseModel().after("cx", Channel.depolarizing(p, 2) if channel is None else channel(p))


FLIP, NO_NOISE = Channel.bit_flip, NoiseModel().after("cx", Channel.bit_flip(0.0))


# --- How many different ones ---


@pytest.mark.parametrize(
    "noise, shots, factor",
    [
        (noisy(0.001), 1000, 1.5),
        (noisy(0.02), 1000, 1.5),
        (noisy(0.2), 1000, 1.5),
        (noisy(0.9), 300, 1.1),
        (noisy(0.02), 1, 1.01),
        (noisy(0.001, FLIP), 100_000, 1.5),
        (noisy(0.02, Channel.phase_damping), 1000, 1.5),
        # How often it decays depends on the state; half the times that it might it does not.
        (noisy(0.02, Channel.amplitude_damping), 1000, 3),
        (NO_NOISE, 1000, 1.01),
    ],
)
def test_the_number_of_trajectories(noise, shots, factor):
    circuit = noise.apply(layers(4))
    found = run(circuit, shots=shots, seed=1, method="trajectories").plan.trajectories
    assert 1 / factor < outlook(circuit).trajectories(shots) / found < factor


def test_few_ways_end_the_number_of_trajectories():
    circuit = Circuit(1).channel(Channel.pauli({"X": 0.2, "Y": 0.2, "Z": 0.2}), 0)
    assert outlook(circuit).trajectories(10**9) == pytest.approx(4)
    always = Circuit(2).channel(Channel.bit_flip(0.5), 0).channel(Channel.bit_flip(0.5), 1)
    assert outlook(always).trajectories(10**9) == pytest.approx(4)
    sure = Circuit(1).channel(Channel.reset(1.0), 0)
    assert 0 < outlook(sure).trajectories(100) <= 100


def test_errors_that_certainly_happen_are_one_trajectory():
    circuit = Circuit(1).channel(Channel.coherent([[0, 1], [1, 0]]), 0).channel(Channel.bit_flip(1.0), 0)
    assert outlook(circuit).trajectories(1000) == 1 == run(circuit, shots=1000, method="trajectories").plan.trajectories


# --- Which method ---


def middle(n_qubits, count):
    circuit = Circuit(n_qubits, count)
    for bit in range(count):
        circuit.h(0).cx(0, 1).measure(0, bit)
        with circuit.when(bit, 1):
            circuit.x(0)
    return circuit


@pytest.mark.parametrize(
    "circuit, noise, shots, method",
    [
        # Few qubits: exact values cost nothing, whatever the noise.
        (layers(2), noisy(0.01), 1, "exact"),
        (layers(4), noisy(0.01), 100_000, "exact"),
        (layers(5), noisy(0.001), 10_000, "exact"),
        (middle(2, 2), noisy(0.01), 10_000, "exact"),
        # Many shots, each another: a density matrix serves all of them.
        (layers(8), noisy(0.2), 10_000, "exact"),
        (layers(10), noisy(0.2), 100_000, "exact"),
        # Hardly any noise: all shots are nearly one run on a state.
        (layers(8), noisy(0.0001), 1000, "trajectories"),
        (layers(10), noisy(0.001), 1000, "trajectories"),
        (layers(10), NO_NOISE, 10**6, "trajectories"),
        (layers(10), noisy(0.2), 10, "trajectories"),
        # A density matrix of many qubits is slow before it no longer fits.
        (layers(14, 2), noisy(0.01), 1000, "trajectories"),
        (layers(16, 2), noisy(0.01), 10, "trajectories"),
        # Each of the outcomes that are read doubles what there is of density matrices.
        (middle(2, 16), noisy(0.01), 100, "trajectories"),
    ],
)
def test_auto_takes_the_way_that_anyone_would(circuit, noise, shots, method):
    result = run(circuit, noise=noise, shots=shots, seed=1)
    assert result.plan.method == method
    exact, trajectories = result.plan.methods
    assert (exact.name, trajectories.name) == ("exact", "trajectories") and exact.seconds > 0 < trajectories.seconds
    assert exact.bytes == 16 * 4**circuit.n_qubits and trajectories.bytes >= 16 * 2**circuit.n_qubits


def test_the_prediction_follows_neither_threads_nor_what_ran_before():
    circuit = noisy(0.01).apply(layers(8))
    told = [run(circuit, shots=100, seed=1, threads=threads).plan.methods for threads in (1, 8, 1)]
    assert len({tuple(cost.seconds for cost in costs) for costs in told}) == 1


def test_observables_count():
    found = outlook(layers(8))
    assert found.trajectory_seconds(1000, 100) > found.trajectory_seconds(1000, 0)


def test_what_does_not_fit_is_not_taken(monkeypatch):
    refused = MemoryError("no room")

    def refuse(n_qubits, precision, **words):
        raise refused

    monkeypatch.setattr(memory, "require_density", refuse)
    circuit = noisy(0.2).apply(layers(4, 2))
    result = run(circuit, shots=10)
    assert result.plan.method == "trajectories" and not result.plan.methods[0].fits
    with pytest.raises(MemoryError):
        run(circuit, shots=10, method="exact")


def test_a_density_matrix_to_begin_with_is_exact():
    result = run(layers(2), shots=3, initial=DensityMatrix(2))
    assert result.plan.method == "exact" and [cost.name for cost in result.plan.methods] == ["exact"]


@pytest.mark.parametrize("shots", [1, 10**9])
@pytest.mark.parametrize("p", [0.0, 1e-300, 1e-9, 0.5, 1.0])
def test_predictions_are_numbers(p, shots):
    for channel in (Channel.bit_flip(p), Channel.reset(p), Channel.amplitude_damping(p), Channel.depolarizing(p)):
        circuit = Circuit(3)
        for _ in range(500):
            circuit.h(0).channel(channel, 0)
        found = outlook(circuit)
        assert 0 < found.trajectories(shots) <= shots * 1.001 + 1
        assert 0 < found.trajectory_seconds(shots, 3) < math.inf and 0 < found.exact_seconds() < math.inf
