"""Programs that learn, as users of PennyLane write them: here and on its own devices, with nothing changed but the device."""

import numpy as np
import pennylane as qml
import pytest
from pennylane import numpy as pnp

OURS, THEIRS = "velacamplix.qubit", "default.qubit"


def chain(x):
    qml.RY(x[0], 0)
    qml.CRX(x[1], [0, 1])
    qml.RZ(x[0] * x[1], 1)
    qml.CNOT([1, 2])
    qml.RX(x[2], 2)
    return qml.expval(qml.Z(2) @ qml.Y(1) + 0.5 * qml.X(0))


def natural(device):
    """Natural gradients: steps by the geometry of states."""
    node = qml.QNode(chain, qml.device(device, wires=4))  # one wire for Hadamard tests
    x, optimizer = pnp.array([0.3, 0.9, 0.4], requires_grad=True), qml.QNGOptimizer(0.1, lam=0.01)
    values = []
    for _ in range(3):
        x, value = optimizer.step_and_cost(node, x, metric_tensor_fn=qml.metric_tensor(node, approx="block-diag"))
        values.append(float(value))
    return [*values, *x]


def curvature(device):
    """Second derivatives, by shifts of shifts."""
    node = qml.QNode(chain, qml.device(device, wires=3), diff_method="parameter-shift", max_diff=2)
    return qml.jacobian(qml.grad(node))(pnp.array([0.3, 0.9, 0.4], requires_grad=True)).ravel()


def batches(device):
    """A batch of data in amplitudes, in angles and in matrices; two values for each row, and their derivatives."""

    @qml.qnode(qml.device(device, wires=3))
    def model(weights, amplitudes, angles):
        qml.AmplitudeEmbedding(amplitudes, [0, 1], normalize=True)
        qml.RX(angles, 2)
        qml.StronglyEntanglingLayers(weights, range(3))
        qml.CRZ(angles, [2, 0])
        return qml.expval(qml.Z(0)), qml.expval(qml.X(1) @ qml.Z(2))

    rng = np.random.default_rng(3)
    weights = pnp.array(rng.normal(size=(1, 3, 3)), requires_grad=True)
    amplitudes, angles = rng.random((5, 4)), rng.random(5)
    found = qml.jacobian(lambda weights: qml.math.stack(model(weights, amplitudes, angles)))(weights)
    assert found.shape == (2, 5, 1, 3, 3)
    return [*np.ravel(model(weights, amplitudes, angles)), *found.ravel()]


def looked_into(device):
    """Debugging: what the state is on the way."""

    @qml.qnode(qml.device(device, wires=2))
    def circuit():
        qml.Hadamard(0)
        qml.Snapshot("first")
        qml.CNOT([0, 1])
        qml.Snapshot("second", measurement=qml.expval(qml.X(0)))
        return qml.probs()

    found = qml.snapshots(circuit)()
    return [*found["first"], found["second"], *found["execution_results"]]


def by_loops(device):
    """Circuits that are written by loops and decisions, on wires of any names."""

    @qml.qnode(qml.device(device))
    def circuit(n):
        @qml.for_loop(0, n)
        def around(i):
            qml.RX(0.1 * (i + 1), i)
            qml.CNOT([i, "last"])

        around()
        outcome = qml.measure(0)
        qml.cond(outcome, qml.RY, qml.RZ)(0.4, "last")
        return qml.expval(qml.Z("last")), qml.probs(op=outcome)

    return np.hstack(circuit(3))


@pytest.mark.filterwarnings("ignore:Snapshots are not supported for the given device")
@pytest.mark.parametrize("program", [natural, curvature, batches, looked_into, by_loops])
def test_programs_run_unchanged(program):
    np.testing.assert_allclose(program(OURS), program(THEIRS), rtol=0, atol=1e-9)


def derivatives_by(device, method):
    node = qml.QNode(chain, qml.device(device, wires=3), diff_method=method)
    return qml.grad(node)(pnp.array([0.3, 0.9, 0.4], requires_grad=True))


def test_all_methods_of_derivatives_agree():
    wanted = derivatives_by(THEIRS, "backprop")
    for method, tolerance in {"best": 1e-12, "adjoint": 1e-12, "parameter-shift": 1e-12, "finite-diff": 1e-6}.items():
        np.testing.assert_allclose(derivatives_by(OURS, method), wanted, rtol=0, atol=tolerance, err_msg=method)
    with pytest.raises(qml.exceptions.QuantumFunctionError, match="does not support backprop"):
        derivatives_by(OURS, "backprop")


def extrapolated(device):
    """Noise put into a program by PennyLane, and taken out again by folding its gates."""

    def depolarized(op, **_):
        for wire in op.wires:
            qml.DepolarizingChannel(0.02, wire)

    noise = qml.NoiseModel({qml.noise.op_in([qml.RX, qml.CNOT]): depolarized})

    @qml.qnode(qml.noise.add_noise(qml.device(device, wires=2), noise))
    def circuit(x):
        qml.RX(x, 0)
        qml.CNOT([0, 1])
        qml.RX(0.4, 1)
        return qml.expval(qml.Z(1))

    fold, extend = qml.noise.fold_global, qml.noise.poly_extrapolate
    mitigated = qml.noise.mitigate_with_zne(circuit, [1, 3, 5], fold, extend, extrapolate_kwargs={"order": 2})
    return [float(circuit(0.7)), float(mitigated(0.7))]


def test_extrapolated():
    ours = extrapolated("velacamplix.mixed")
    np.testing.assert_allclose(ours, extrapolated("default.mixed"), rtol=0, atol=1e-9)
    exact = np.cos(0.7) * np.cos(0.4)
    assert abs(ours[1] - exact) < abs(ours[0] - exact) / 3
