"""Derivatives by velacamplix.qubit beside those of PennyLane's devices: every gate, shapes, products, training."""

import copy

import numpy as np
import pytest

pytest.importorskip("pennylane", reason="needs PennyLane: pip install velacamplix[test]")

import pennylane as qml  # noqa: E402
from pennylane import numpy as pnp  # noqa: E402
from pennylane.devices import ExecutionConfig  # noqa: E402

from velacamplix.pennylane import NotConverted, VelacamplixQubit  # noqa: E402

ADJOINT = ExecutionConfig(gradient_method="adjoint")
HERMITIAN = np.array([[1, 0.5 - 0.2j], [0.5 + 0.2j, -2]])

ONE_ANGLE = [
    (qml.RX, 1), (qml.RY, 1), (qml.RZ, 1), (qml.PhaseShift, 1), (qml.U1, 1), (qml.CRX, 2), (qml.CRY, 2), (qml.CRZ, 2),
    (qml.ControlledPhaseShift, 2), (qml.CPhaseShift00, 2), (qml.CPhaseShift01, 2), (qml.CPhaseShift10, 2), (qml.IsingXX, 2),
    (qml.IsingYY, 2), (qml.IsingZZ, 2), (qml.IsingXY, 2), (qml.PSWAP, 2), (qml.FermionicSWAP, 2), (qml.SingleExcitation, 2),
    (qml.SingleExcitationPlus, 2), (qml.SingleExcitationMinus, 2), (qml.DoubleExcitation, 4), (qml.DoubleExcitationPlus, 4),
    (qml.DoubleExcitationMinus, 4), (qml.OrbitalRotation, 4), (qml.MultiRZ, 3),
]  # fmt: skip
GATES = {
    **{kind.__name__: lambda x, kind=kind, n=n: kind(x, list(range(n))) for kind, n in ONE_ANGLE},
    "Rot": lambda x: qml.Rot(x, 2 * x, 0.3 - x, 1),
    "CRot": lambda x: qml.CRot(x, 2 * x, 0.3 - x, [1, 0]),
    "U2": lambda x: qml.U2(x, 2 * x, 1),
    "U3": lambda x: qml.U3(x, 2 * x, 0.3 - x, 1),
    "PauliRot": lambda x: qml.PauliRot(x, "XYIZ", [3, 1, 0, 2]),
    "GlobalPhase under a control": lambda x: qml.ctrl(qml.GlobalPhase(x), [0, 2], control_values=[0, 1]),
    "Rot under controls": lambda x: qml.ctrl(qml.Rot(x, 2 * x, 0.3, 0), [1, 2], control_values=[0, 1]),
    "inverse": lambda x: qml.adjoint(qml.SingleExcitationPlus(x, [1, 2])),
    "a template": lambda x: qml.BasicEntanglerLayers(qml.math.reshape(qml.math.stack([x, 2 * x, x, 0.1 * x]), (1, 4)), range(4)),
}


def around(gate):
    """Apply a gate between others that leave no derivative 0."""
    for wire in range(4):
        qml.RY(0.5 + 0.2 * wire, wire)
        qml.RZ(0.3 + 0.1 * wire, wire)
    gate()
    for wire in range(4):
        qml.CNOT([wire, (wire + 1) % 4])
        qml.RX(0.4, wire)


@pytest.mark.parametrize("name", GATES)
def test_every_gate_has_its_derivative(name):
    def circuit(x):
        around(lambda: GATES[name](x))
        return qml.expval(qml.Z(0) @ qml.Y(2) + 0.5 * qml.X(1)), qml.expval(qml.Z(3))

    x = pnp.array(0.7, requires_grad=True)
    found = qml.jacobian(lambda x: pnp.stack(qml.QNode(circuit, VelacamplixQubit(wires=4), diff_method="adjoint")(x)))(x)
    # PennyLane 0.43 does not get back through this gate.
    method = "parameter-shift" if name == "PhaseShift" else "backprop"
    wanted = qml.jacobian(lambda x: pnp.stack(qml.QNode(circuit, qml.device("default.qubit"), diff_method=method)(x)))(x)
    np.testing.assert_allclose(found, wanted, atol=1e-10)


OBSERVABLES = {
    "a letter": lambda: qml.Z(1),
    "a Hamiltonian": lambda: qml.Hamiltonian([0.5, -1.5], [qml.X(0) @ qml.Y(1), qml.Z(2)]),
    "a matrix": lambda: qml.Hermitian(HERMITIAN, 2),
    "a projector": lambda: qml.Projector([1, 0], [2, 0]),
    "Hadamard": lambda: qml.Hadamard(1),
    "a product with a matrix": lambda: qml.X(0) @ qml.Hermitian(HERMITIAN, 2),
    "a sum with a matrix": lambda: 0.5 * qml.X(0) + 2.0 * qml.Hermitian(HERMITIAN, 2),
}


@pytest.mark.parametrize("make", OBSERVABLES.values(), ids=OBSERVABLES)
def test_every_observable_has_derivatives(make):
    def circuit(x, y):
        qml.RX(x, 0)
        qml.Rot(y, x, y, 1)
        qml.CNOT([0, 2])
        qml.CRY(x, [1, 2])
        return qml.expval(make())

    x, y = pnp.array(0.7, requires_grad=True), pnp.array(-0.4, requires_grad=True)
    found = qml.grad(qml.QNode(circuit, VelacamplixQubit(wires=3)))(x, y)
    wanted = qml.grad(qml.QNode(circuit, qml.device("default.qubit", wires=3)))(x, y)
    np.testing.assert_allclose(found, wanted, atol=1e-10)


def script(measurements, trainable, beginning=()):
    ops = [
        *beginning, qml.RX(0.3, "a"), qml.CNOT(["a", "b"]), qml.QubitUnitary(np.eye(2)[::-1], "b"), qml.RY(0.7, "b"),
        qml.CRZ(0.2, ["b", "a"]), qml.RX(-0.9, "a"),
    ]  # fmt: skip
    made = qml.tape.QuantumScript(ops, [measure() for measure in measurements])
    made.trainable_params = list(trainable)
    return made


MEASUREMENTS = [lambda: qml.expval(qml.Z("b")), lambda: qml.expval(qml.X("a") + 0.3 * qml.Z("b")), lambda: qml.expval(qml.Y("b"))]


def same(ours, theirs):
    if isinstance(theirs, (tuple, list)):
        assert isinstance(ours, tuple) and len(ours) == len(theirs)
        for one, other in zip(ours, theirs):
            same(one, other)
    else:
        assert np.shape(ours) == np.shape(theirs)
        np.testing.assert_allclose(ours, theirs, atol=1e-10)


@pytest.mark.parametrize("trainable", [[0], [0, 2], [2, 3, 4], [4, 0]], ids=str)
@pytest.mark.parametrize("n", [1, 3])
def test_derivatives_have_pennylanes_shapes(n, trainable):
    ours, theirs = VelacamplixQubit(wires=["a", "b"]), qml.device("default.qubit", wires=["a", "b"])
    beginning = [] if n == 1 else [qml.StatePrep(np.array([0.6, 0, 0.8, 0]), ["b", "a"])]
    # The state's amplitudes are a parameter of the tape, the first.
    made = script(MEASUREMENTS[:n], [number + len(beginning) for number in trainable], beginning)
    (mapped,), _ = qml.map_wires(made, {"a": 0, "b": 1})
    same(ours.compute_derivatives(made, ADJOINT), theirs.compute_derivatives(mapped, ADJOINT))
    same(ours.compute_derivatives((made, made), ADJOINT), theirs.compute_derivatives((mapped, mapped), ADJOINT))
    same(ours.execute_and_compute_derivatives(made, ADJOINT), theirs.execute_and_compute_derivatives(mapped, ADJOINT))
    cotangents = 0.7 if n == 1 else (0.7, -0.2, 1.5)
    same(ours.compute_vjp(made, cotangents, ADJOINT), theirs.compute_vjp(mapped, cotangents, ADJOINT))
    with qml.Tracker(ours) as tracked:
        same(ours.execute_and_compute_vjp(made, cotangents, ADJOINT), theirs.execute_and_compute_vjp(mapped, cotangents, ADJOINT))
    assert tracked.totals == {"execute_and_vjp_batches": 1, "executions": 1, "vjps": 1}
    tangents = tuple(0.3 + number for number in range(len(trainable)))
    same(ours.compute_jvp(made, tangents, ADJOINT), theirs.compute_jvp(mapped, tangents, ADJOINT))
    same(ours.execute_and_compute_jvp(made, tangents, ADJOINT), theirs.execute_and_compute_jvp(mapped, tangents, ADJOINT))


def test_cotangents_may_be_batched():
    device = VelacamplixQubit(wires=["a", "b"])
    made = script(MEASUREMENTS, [0, 2, 4])
    jacobian = np.array(device.compute_derivatives(made, ADJOINT))
    weights = np.random.default_rng(1).normal(size=(3, 5))
    np.testing.assert_allclose(device.compute_vjp(made, tuple(weights), ADJOINT), jacobian.T @ weights, atol=1e-12)
    single = script(MEASUREMENTS[:1], [0, 2, 4])
    np.testing.assert_allclose(device.compute_vjp(single, weights[0], ADJOINT), np.outer(jacobian[0], weights[0]), atol=1e-12)


def test_several_values_and_device_products_agree():
    def circuit(x):
        qml.AngleEmbedding(x, range(3))
        qml.StronglyEntanglingLayers(np.linspace(0, 1, 9).reshape(1, 3, 3), range(3))
        return [qml.expval(qml.Z(wire)) for wire in range(3)]

    x = pnp.array([0.1, -0.4, 0.9], requires_grad=True)
    wanted = qml.jacobian(lambda x: pnp.stack(qml.QNode(circuit, qml.device("default.qubit"))(x)))(x)
    for product in (True, False):
        node = qml.QNode(circuit, VelacamplixQubit(wires=3), diff_method="adjoint", device_vjp=product)
        np.testing.assert_allclose(qml.jacobian(lambda x: pnp.stack(node(x)))(x), wanted, atol=1e-10)
    batch = pnp.array(np.random.default_rng(1).normal(size=(4, 3)), requires_grad=True)
    ours, theirs = (
        qml.jacobian(lambda x: pnp.stack(qml.QNode(circuit, device)(x)))(batch)
        for device in (VelacamplixQubit(wires=3), qml.device("default.qubit"))
    )
    np.testing.assert_allclose(ours, theirs, atol=1e-10)


def test_other_ways_to_derivatives_work_where_the_adjoint_one_does_not():
    x = pnp.array(0.4, requires_grad=True)
    device = VelacamplixQubit(wires=2, seed=3)

    def circuit(x):
        qml.RX(x, 0)
        qml.CRY(0.7, [0, 1])
        return qml.probs(wires=[1])

    jacobian = qml.jacobian(qml.QNode(circuit, device))(x)  # by parameter shifts
    np.testing.assert_allclose(jacobian, qml.jacobian(qml.QNode(circuit, qml.device("default.qubit")))(x), atol=1e-10)

    def value(x):
        qml.RX(x, 0)
        return qml.expval(qml.Z(0))

    assert abs(qml.grad(qml.set_shots(qml.QNode(value, device), 20000))(x) + np.sin(0.4)) < 0.05
    assert not device.supports_derivatives(ADJOINT, qml.tape.QuantumScript([], [qml.probs()]))
    assert not device.supports_derivatives(ADJOINT, qml.tape.QuantumScript([], [qml.expval(qml.Z(0))], shots=5))
    assert not device.supports_derivatives(ExecutionConfig(gradient_method="backprop"))
    assert device.supports_derivatives() and device.supports_vjp(ADJOINT) and device.supports_jvp(ADJOINT)
    hessian = qml.jacobian(qml.grad(qml.QNode(value, device, diff_method="parameter-shift", max_diff=2)))(x)
    np.testing.assert_allclose(hessian, -np.cos(0.4), atol=1e-10)


def test_derivatives_go_through_measurements_that_are_put_off():
    def circuit(x):
        qml.RY(x, 0)
        first = qml.measure(0)
        qml.cond(first, qml.RX)(2 * x, 1)
        return qml.expval(qml.Z(1))

    x = pnp.array(0.4, requires_grad=True)
    found = qml.grad(qml.QNode(circuit, VelacamplixQubit(wires=3)))(x)
    np.testing.assert_allclose(found, qml.grad(qml.QNode(circuit, qml.device("default.qubit", wires=3)))(x), atol=1e-10)


def test_what_has_no_derivative_is_refused_or_nan():
    device = VelacamplixQubit(wires=["a", "b"])
    for measurements, told in [([lambda: qml.probs(wires="a")], "expectation values"), ([lambda: qml.var(qml.Z("a"))], "var")]:
        with pytest.raises(NotConverted, match=told):
            device.compute_derivatives(script(measurements, [0]), ADJOINT)
    with pytest.raises(NotConverted, match="trainable parameter 1 of the tape is no angle"):
        device.compute_derivatives(script(MEASUREMENTS[:1], [1]), ADJOINT)
    with pytest.raises(NotConverted, match="Hermitian"):
        device.compute_derivatives(script([lambda: qml.expval(1j * qml.Z("a"))], [0]), ADJOINT)
    found = device.compute_derivatives(script([lambda: qml.expval(qml.Hermitian(HERMITIAN, "b"))], [0, 5]), ADJOINT)
    assert np.isfinite(found[0]) and np.isnan(found[1])
    made = qml.tape.QuantumScript([qml.RX(0.1, "a")], [qml.expval(qml.Z("a"))], shots=10)
    with pytest.raises(NotConverted, match="shots"):
        device.compute_derivatives(made, ADJOINT)


def test_a_model_is_trained_as_on_pennylanes_device():
    rng = np.random.default_rng(3)
    inputs, labels = rng.uniform(-1, 1, (12, 2)), rng.choice([-1.0, 1.0], 12)

    def trained(device):
        @qml.qnode(device)
        def model(weights, row):
            qml.AngleEmbedding(row, [0, 1])
            qml.StronglyEntanglingLayers(weights, [0, 1])
            return qml.expval(qml.Z(0))

        def cost(weights):
            return pnp.mean(pnp.stack([(model(weights, row) - label) ** 2 for row, label in zip(inputs, labels)]))

        weights = pnp.array(np.random.default_rng(4).normal(size=(2, 2, 3)), requires_grad=True)
        optimizer = qml.AdamOptimizer(0.1)
        costs = []
        for _ in range(6):
            weights, value = optimizer.step_and_cost(cost, weights)
            costs.append(float(value))
        return np.array(weights), costs

    (ours, costs), (theirs, wanted) = trained(VelacamplixQubit(wires=2)), trained(qml.device("default.qubit", wires=2))
    np.testing.assert_allclose(costs, wanted, atol=1e-8)
    np.testing.assert_allclose(ours, theirs, atol=1e-7)
    assert costs[-1] < costs[0]


def test_gates_that_autograd_follows_have_numbers_and_the_tape_its_boxes():
    from velacamplix.pennylane import unboxed

    seen = []

    def value(angles):
        ops = [qml.RX(angles[0], 0), qml.CRY(2 * angles[1], [0, 1]), qml.Rot(0.1, angles[0], 0.3, 1), qml.CNOT([1, 0]), qml.RZ(0.7, 1)]
        tape = qml.tape.QuantumScript(ops, [qml.expval(qml.Z(1))])
        tape.trainable_params = [0, 1, 3]
        given, made = [value for op in ops for value in op.data], unboxed.unboxed(tape)
        assert [value for op in tape.operations for value in op.data] == given  # it stays as it was
        assert [type(value) for op in made.operations for value in op.data] == [float] * 6
        assert [type(one) for one in made.operations] == [type(one) for one in ops]
        assert made.operations[3] is ops[3] and made.operations[4] is ops[4]
        assert [one is mine for one, mine in zip(made.get_parameters(trainable_only=False), given, strict=True)] == [True] * 6
        assert [one is mine for one, mine in zip(made.get_parameters(), [given[0], given[1], given[3]], strict=True)] == [True] * 3
        made.trainable_params = [1, 3]
        for copied in (made.copy(), copy.copy(made)):
            assert copied.get_parameters()[1] is given[3] and copied.operations[1] is ops[1]
        assert type(made.copy(shots=10)) is qml.tape.QuantumScript and made.copy(shots=10).shots.total_shots == 10
        [numbers], _ = qml.transforms.convert_to_numpy_parameters(made)
        assert [one is mine for one, mine in zip(numbers.operations, made.operations)] == [True] * 5
        assert numbers.get_parameters() == [made.operations[1].data[0], made.operations[2].data[1]]
        plain = qml.tape.QuantumScript([qml.RX(0.3, 0)], [])
        assert unboxed.unboxed(plain) is plain
        seen.append(made)
        return angles[0] * angles[1]

    qml.grad(value)(pnp.array([0.4, 1.3], requires_grad=True))
    assert len(seen) == 1


def test_what_is_followed_reaches_every_kind_of_parameter():
    def circuit(angles, more):
        qml.RX(angles[0], 0)
        qml.CRY(2 * angles[1], [0, 1])
        qml.Rot(angles[0] * more, angles[1], 0.3, 1)
        qml.PauliRot(more, "XY", [0, 1])
        qml.IsingZZ(angles[1] ** 2, [0, 1])
        return qml.expval(qml.Hamiltonian([0.5, 1.5], [qml.X(0), qml.Z(0) @ qml.Y(1)]))

    arguments = pnp.array([0.4, 1.3], requires_grad=True), pnp.array(0.7, requires_grad=True)
    mine = qml.QNode(circuit, qml.device("velacamplix.qubit", wires=2), diff_method="adjoint")
    theirs = qml.QNode(circuit, qml.device("default.qubit", wires=2))
    for one, other in zip(qml.grad(mine)(*arguments), qml.grad(theirs)(*arguments), strict=True):
        np.testing.assert_allclose(one, other, rtol=0, atol=1e-12)
    with mine.device.tracker:
        qml.grad(mine)(*arguments)
    [resources] = mine.device.tracker.history["resources"]
    assert resources.num_gates == 5
