"""Programs as users of PennyLane write them: here and on PennyLane's own devices, with nothing changed but the device."""

import numpy as np
import pennylane as qml
import pytest
from pennylane import numpy as pnp
from programs import agree

OURS, THEIRS = "velacamplix.qubit", "default.qubit"


def trained_classifier(device):
    """QML: a model with data re-uploaded learns parity by gradient descent; its losses."""
    dev = qml.device(device, wires=2)

    @qml.qnode(dev, diff_method="best")
    def model(weights, x):
        for layer in weights:
            qml.AngleEmbedding(x, wires=[0, 1])
            qml.StronglyEntanglingLayers(layer, wires=[0, 1])
        return qml.expval(qml.Z(0))

    points = pnp.array([[0, 0], [0, np.pi], [np.pi, 0], [np.pi, np.pi]], requires_grad=False)
    labels = pnp.array([1, -1, -1, 1], requires_grad=False)

    def loss(weights):
        return sum((model(weights, x) - label) ** 2 for x, label in zip(points, labels)) / len(labels)

    shape = (2, *qml.StronglyEntanglingLayers.shape(n_layers=1, n_wires=2))
    weights = pnp.array(np.random.default_rng(1).normal(size=shape), requires_grad=True)
    descent, losses = qml.GradientDescentOptimizer(0.3), []
    for _ in range(8):
        weights, value = descent.step_and_cost(loss, weights)
        losses.append(float(value))
    return losses


def test_trained_classifier():
    ours = trained_classifier(OURS)
    np.testing.assert_allclose(ours, trained_classifier(THEIRS), atol=1e-8)
    assert ours[-1] < ours[0]


def ground_state_of_hydrogen(device):
    """VQE with an adaptive look: energy, gradient and a double excitation."""
    hamiltonian = qml.Hamiltonian(
        [-0.0996, 0.1711, 0.1711, 0.1686, 0.0453, -0.0453, -0.0453, 0.0453, -0.2225, 0.1205, 0.1658, 0.1658, 0.1205, 0.1743, -0.2225],
        [qml.Identity(0), qml.Z(0), qml.Z(1), qml.Z(0) @ qml.Z(1), qml.Y(0) @ qml.X(1) @ qml.X(2) @ qml.Y(3),
         qml.Y(0) @ qml.Y(1) @ qml.X(2) @ qml.X(3), qml.X(0) @ qml.X(1) @ qml.Y(2) @ qml.Y(3),
         qml.X(0) @ qml.Y(1) @ qml.Y(2) @ qml.X(3), qml.Z(2), qml.Z(0) @ qml.Z(2), qml.Z(0) @ qml.Z(3), qml.Z(1) @ qml.Z(2),
         qml.Z(1) @ qml.Z(3), qml.Z(2) @ qml.Z(3), qml.Z(3)],
    )  # fmt: skip

    @qml.qnode(qml.device(device, wires=4))
    def energy(angle):
        qml.BasisState(np.array([1, 1, 0, 0]), wires=range(4))
        qml.DoubleExcitation(angle, wires=[0, 1, 2, 3])
        return qml.expval(hamiltonian)

    angle, energies = pnp.array(0.0, requires_grad=True), []
    for _ in range(10):
        angle, value = qml.GradientDescentOptimizer(0.4).step_and_cost(energy, angle)
        energies.append(float(value))
    return energies


def test_ground_state_of_hydrogen():
    ours = ground_state_of_hydrogen(OURS)
    np.testing.assert_allclose(ours, ground_state_of_hydrogen(THEIRS), atol=1e-9)
    assert ours[-1] < ours[0]


def shadow_values(device):
    """Classical shadows: many observables from one set of random measurements."""
    observables = [qml.Z(0) @ qml.Z(1), qml.X(0) @ qml.X(1), qml.Z(2)]

    @qml.set_shots(4000)
    @qml.qnode(qml.device(device, wires=3))
    def shadow():
        qml.Hadamard(0)
        qml.CNOT([0, 1])
        qml.RY(0.8, 2)
        return qml.classical_shadow(wires=range(3), seed=11)

    return [float(value) for value in qml.ClassicalShadow(*shadow()).expval(observables, k=4)]


def test_shadow_values():
    # Each value has a standard deviation of at most 3 / sqrt(1000) per group, a median of four less.
    for values in (shadow_values(OURS), shadow_values(THEIRS)):
        np.testing.assert_allclose(values, [1, 1, np.cos(0.8)], atol=0.35)


def corrected_by_measurements(device):
    """Dynamic circuits: a qubit is measured and reset, another one is turned by what was found; counts and mean."""

    @qml.set_shots(400)
    @qml.qnode(qml.device(device, wires=3, seed=3))
    def circuit():
        qml.RY(1.2, 0)
        qml.CNOT([0, 1])
        found = qml.measure(0, reset=True)
        again = qml.measure(1)
        qml.cond(found & again, qml.RX)(0.7, 2)
        qml.cond(~found, qml.Hadamard)(2)
        return qml.counts([found, again]), qml.expval(qml.Z(2))

    counts, mean = circuit()
    return {str(outcome): int(times) for outcome, times in counts.items()}, float(mean)


def test_corrected_by_measurements():
    (ours, mean), (theirs, expected) = corrected_by_measurements(OURS), corrected_by_measurements(THEIRS)
    agree(ours, theirs)
    assert mean == pytest.approx(expected, abs=5 * np.sqrt(2 / 400))


def mitigated(device):
    """Error mitigation: PennyLane's own zero-noise extrapolation of a noisy circuit."""
    dev = qml.device(device, wires=2)

    @qml.qnode(dev)
    def exact(factor):
        for _ in range(int(factor)):
            qml.RY(0.6, 0)
            qml.DepolarizingChannel(0.02, wires=0)
            qml.CNOT([0, 1])
            qml.AmplitudeDamping(0.03, wires=1)
            qml.CNOT([0, 1])
            qml.RY(-0.6, 0)
        qml.RX(0.9, 0)
        return qml.expval(qml.Z(0) @ qml.Z(1)), qml.density_matrix([0])

    values = [exact(factor) for factor in (1, 3, 5)]
    return np.polyfit([1, 3, 5], [float(value) for value, _ in values], 2)[-1], np.array([rho for _, rho in values])


def test_mitigated():
    (ours, matrices), (theirs, expected) = mitigated("velacamplix.mixed"), mitigated("default.mixed")
    assert ours == pytest.approx(theirs, abs=1e-8)
    np.testing.assert_allclose(matrices, expected, atol=1e-9)


def quench(device):
    """Dynamics: a Trotterized Ising chain , read at several times."""
    hamiltonian = qml.Hamiltonian([1.0, 1.0, 0.6, 0.6, 0.6], [qml.Z(0) @ qml.Z(1), qml.Z(1) @ qml.Z(2), *map(qml.X, range(3))])

    @qml.qnode(qml.device(device, wires=3))
    def magnetization(time):
        qml.TrotterProduct(hamiltonian, time=time, n=4, order=2)
        return qml.expval(qml.Z(1)), qml.vn_entropy(wires=[0]), qml.probs(wires=[0, 2])

    return [np.concatenate([np.ravel(part) for part in magnetization(time)]) for time in (0.2, 0.6, 1.1)]


def test_quench():
    np.testing.assert_allclose(quench(OURS), quench(THEIRS), atol=1e-9)
