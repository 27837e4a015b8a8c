"""The devices for PennyLane beside PennyLane's own: values, shots, mid-circuit measurements, options."""

import copy
import importlib.metadata
import pickle
import tomllib
import warnings

import numpy as np
import pytest

pytest.importorskip("pennylane", reason="needs PennyLane: pip install velacamplix[test]")

import pennylane as qml  # noqa: E402
from pennylane.exceptions import DeviceError  # noqa: E402

import velacamplix  # noqa: E402
from velacamplix import DensityMatrix, NoiseModel  # noqa: E402
from velacamplix.pennylane import NotConverted, VelacamplixMixed, VelacamplixQubit, to_velacamplix  # noqa: E402

DEVICES = {"velacamplix.qubit": VelacamplixQubit, "velacamplix.mixed": VelacamplixMixed}
LABELS = [0, "b", 2, -1]
EVERY = pytest.mark.parametrize("kind", DEVICES.values(), ids=DEVICES)
HERMITIAN = np.array([[1, 0.5 - 0.2j], [0.5 + 0.2j, -2]])
FOUR = np.diag([1.0, 2, 3, 4]) + 0.3 * np.ones((4, 4))


def gates():
    """Apply gates that leave no qubit in a simple state."""
    qml.Rot(0.3, 0.9, 0.4, LABELS[0])
    qml.RY(1.2, LABELS[1])
    qml.CNOT([LABELS[0], LABELS[2]])
    qml.IsingXY(0.7, [LABELS[1], LABELS[3]])
    qml.CRX(0.8, [LABELS[2], LABELS[3]])
    qml.SingleExcitationPlus(0.9, [LABELS[3], LABELS[0]])
    qml.GlobalPhase(0.25)


SPARSE = qml.Hamiltonian([0.5, 2.0], [qml.X(0), qml.Z("b")]).sparse_matrix(LABELS)
TWO_PAULIS = qml.PauliError("XZ", 0.2, [1, 0]).kraus_matrices()


OBSERVABLES = {
    "a letter": lambda: qml.Y("b"),
    "a product": lambda: qml.X(0) @ qml.Z(2) @ qml.Y(-1),
    "a sum": lambda: 0.5 * qml.X(0) + qml.Z(2) @ qml.Y(-1) - 2.0 * qml.Identity(0),
    "a Hamiltonian": lambda: qml.Hamiltonian([0.5, -1.5, 2.0], [qml.X(0), qml.X(0) @ qml.Y("b"), qml.Z(-1)]),
    "a matrix": lambda: qml.Hermitian(HERMITIAN, 2),
    "a matrix on two": lambda: qml.Hermitian(FOUR, ["b", 0]),
    "a projector": lambda: qml.Projector([1, 0], [-1, 0]),
    "a projector on a state": lambda: qml.Projector(np.array([0.6, 0, 0.8j, 0]), [-1, 0]),
    "Hadamard": lambda: qml.Hadamard(-1),
    "a product with a matrix": lambda: qml.X(0) @ qml.Hermitian(HERMITIAN, 2),
    "a sum with a matrix": lambda: qml.X(0) + 0.5 * qml.Hermitian(HERMITIAN, 2),
    "sparse": lambda: qml.SparseHamiltonian(SPARSE, wires=LABELS),
}

VALUES = {
    **{f"expval of {name}": lambda make=make: qml.expval(make()) for name, make in OBSERVABLES.items()},
    **{f"var of {name}": lambda make=make: qml.var(make()) for name, make in OBSERVABLES.items() if name != "sparse"},
    "probs": lambda: qml.probs(),
    "probs of wires": lambda: qml.probs([2, 0]),
    "probs of an observable": lambda: qml.probs(op=qml.X(0) @ qml.Y(-1)),
    "state": lambda: qml.state(),
    "density matrix": lambda: qml.density_matrix([2, 0]),
    "purity": lambda: qml.purity(["b", -1]),
    "entropy": lambda: qml.vn_entropy([0, 2]),
    "entropy in bits": lambda: qml.vn_entropy([0], log_base=2),
    "mutual information": lambda: qml.mutual_info([0], ["b", -1]),
}


def value(measure, device):
    @qml.qnode(device)
    def circuit():
        gates()
        return measure()

    return circuit()


@pytest.mark.parametrize("measure", VALUES.values(), ids=VALUES)
@EVERY
def test_exact_values_are_those_of_pennylane(kind, measure):
    if kind is VelacamplixMixed:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # complex entries that NumPy is told to make real
            wanted = value(measure, qml.device("default.mixed", wires=LABELS))
    else:
        wanted = value(measure, qml.device("default.qubit", wires=LABELS))
    found = value(measure, kind(wires=LABELS))
    assert np.shape(found) == np.shape(wanted)
    np.testing.assert_allclose(found, wanted, rtol=0, atol=1e-7 if "entropy" in str(measure()) else 1e-10)


def test_wires_are_numbered_as_pennylane_numbers_them():
    for wires in ([0, 1], [1, 0], [3, 1], ["a", 0]):
        ops = [qml.RX(0.4, wires[0]), qml.CRY(0.8, wires)]
        script = qml.tape.QuantumScript(ops, [qml.state(), qml.probs()])
        for ours, theirs in zip(VelacamplixQubit().execute(script), qml.device("default.qubit").execute(script)):
            np.testing.assert_allclose(ours, theirs, atol=1e-12)


NOT_HERMITIAN = {
    "words": lambda: qml.X(0) @ qml.Y(0),
    "factor": lambda: qml.s_prod(1j, qml.Hadamard(0)),
    "matrices": lambda: qml.prod(qml.Hadamard(0), qml.Y(0)),
    "sum": lambda: qml.sum(qml.s_prod(1j, qml.prod(qml.Hadamard(0), qml.X(1))), qml.Z(1)),
}


def turned(device, measured, is_measured=False, shots=None):
    @qml.set_shots(shots)
    @qml.qnode(device, diff_method=None)
    def circuit():
        qml.RX(0.3, 0)
        qml.RY(0.4, 1)
        if is_measured:
            qml.measure(2)
        return measured()

    return circuit()


@pytest.mark.parametrize("kind", ["qubit", "mixed"])
@pytest.mark.parametrize("name", NOT_HERMITIAN)
def test_expectation_values_of_what_is_not_hermitian_are_complex(kind, name):
    device = qml.device(f"velacamplix.{kind}", wires=3, seed=5)

    def mean():
        return qml.expval(NOT_HERMITIAN[name]())

    # (default.qubit's own value of the sum is wrong.)
    with qml.queuing.QueuingManager.stop_recording():
        matrix = qml.matrix(NOT_HERMITIAN[name](), wire_order=range(3))
    state = turned(qml.device("default.qubit", wires=3), qml.state)
    wanted = complex(np.vdot(state, matrix @ state))
    assert abs(wanted.imag) > 0.1
    assert abs(turned(device, mean) - wanted) < 1e-12
    assert abs(turned(device, mean, is_measured=True) - wanted) < 1e-12
    if name != "matrices":
        assert abs(turned(device, mean, shots=4000) - wanted) < 0.1
    with pytest.raises(DeviceError, match="is not Hermitian, and has no variance"):
        turned(device, lambda: qml.var(NOT_HERMITIAN[name]()))


def test_expectation_values_of_what_is_hermitian_are_real():
    both = qml.sum(qml.prod(qml.Hadamard(0), qml.Y(0)), qml.prod(qml.Y(0), qml.Hadamard(0)))
    conjugated = qml.prod(qml.Hadamard(0), qml.X(0), qml.Hadamard(0))
    for op in (both, conjugated, qml.s_prod(1 + 0j, qml.Z(0)), 1j * (qml.X(0) @ qml.Y(0))):
        assert isinstance(turned(VelacamplixQubit(), lambda: qml.expval(op)), float), op  # noqa: B023


def test_single_precision_fusion_and_threads_are_honoured():
    exact = value(lambda: qml.state(), VelacamplixQubit(wires=LABELS))
    single = value(lambda: qml.state(), VelacamplixQubit(wires=LABELS, precision="single", threads=1))
    fused = value(lambda: qml.state(), VelacamplixQubit(wires=LABELS, fusion=True))
    assert (exact.dtype, single.dtype) == (np.complex128, np.complex64)
    np.testing.assert_allclose(single, exact, atol=1e-6)
    np.testing.assert_allclose(fused, exact, atol=1e-14)


def test_an_initial_state_is_taken():
    state = np.array([0.5, 0.5j, -0.5, 0.5])
    for prepare in (lambda: qml.StatePrep(state, ["b", 0]), lambda: qml.BasisState([1, 0], [2, 0])):
        def circuit():
            prepare()
            qml.IsingXX(0.3, [0, "b"])
            return qml.probs()

        for kind in DEVICES.values():
            wanted = qml.QNode(circuit, qml.device("default.qubit", wires=LABELS))()
            np.testing.assert_allclose(qml.QNode(circuit, kind(wires=LABELS))(), wanted, atol=1e-12)


@pytest.mark.parametrize("fusion", [False, True])
def test_tapes_of_one_structure_have_their_own_numbers(fusion):
    device, theirs = VelacamplixQubit(wires=4, fusion=fusion), qml.device("default.qubit", wires=4)
    other = qml.matrix(qml.RX(0.7, 0))
    rng = np.random.default_rng(1)
    for turn in range(4):
        x, y, z = rng.uniform(-3, 3, 3)
        word, values = ("XYZ", "ZZX")[turn % 2], [turn % 2, 1]
        ops = [
            qml.RX(x, 0), qml.Rot(x, y, z, 1), qml.CRot(z, y, x, [1, 2]), qml.PauliRot(y, word, [0, 1, 3]),
            qml.ctrl(qml.DoubleExcitation(x, [0, 1, 2, 3]) if turn < 2 else qml.RZ(x, 3), [2] if turn >= 2 else "w"),
            qml.ctrl(qml.RY(z, 0), [1, 2], control_values=values), qml.adjoint(qml.U3(x, y, z, 3)), qml.PCPhase(x, 3, [0, 2]),
            qml.QubitUnitary(other if turn % 2 else qml.matrix(qml.RY(x, 0)), 2), qml.MultiRZ(x, [0, 1, 2]), qml.GlobalPhase(y),
            qml.MultiControlledX([0, 1, 3], control_values=values), qml.DoubleExcitationMinus(x, [3, 1, 0, 2]),
            qml.SingleExcitationMinus(y, [3, 1]), qml.PSWAP(z, [2, 1]), qml.CPhaseShift01(x, [2, 0]),
        ]  # fmt: skip
        if turn < 2:
            ops.pop(4)
        script = qml.tape.QuantumScript(ops, [qml.state()])
        for _ in range(3):  # converted, planned, planned before
            np.testing.assert_allclose(device.execute(script), theirs.execute(script), atol=1e-12)


# --- Shots ---

SAMPLED = {
    **{f"expval of {name}": lambda make=make: qml.expval(make()) for name, make in OBSERVABLES.items() if name != "sparse"},
    **{
        f"var of {name}": lambda make=make: qml.var(make())
        for name, make in OBSERVABLES.items()
        if name != "sparse" and "sum" not in name and "Hamiltonian" not in name
    },
    "probs": lambda: qml.probs(),
    "probs of wires": lambda: qml.probs([2, 0]),
    "probs of an observable": lambda: qml.probs(op=qml.X(0) @ qml.Y(-1)),
}


@pytest.mark.parametrize("measure", SAMPLED.values(), ids=SAMPLED)
@EVERY
def test_values_from_shots_are_near_the_exact_ones(kind, measure):
    exact = value(measure, VelacamplixQubit(wires=LABELS))
    found = qml.set_shots(qml.QNode(lambda: (gates(), measure())[1], kind(wires=LABELS, seed=5)), 20000)()
    assert np.shape(found) == np.shape(exact)
    np.testing.assert_allclose(found, exact, atol=0.08)


@pytest.mark.parametrize("shots", [1, 7, [5, 1], [(3, 2), 10]], ids=str)
@EVERY
def test_samples_and_counts_have_pennylanes_shapes(kind, shots):
    def circuit():
        gates()
        return (
            qml.sample(), qml.sample(wires=[2]), qml.sample(qml.Y("b")), qml.sample(qml.Hermitian(HERMITIAN, 2)),
            qml.counts(), qml.counts(wires=[2, 0], all_outcomes=True), qml.counts(qml.X(0) @ qml.Z(2), all_outcomes=True),
            qml.expval(qml.Z(0)), qml.probs([0, 2]), qml.var(qml.X(0)),
        )  # fmt: skip

    ours = qml.set_shots(qml.QNode(circuit, kind(wires=LABELS, seed=1)), shots)()
    theirs = qml.set_shots(qml.QNode(circuit, qml.device("default.qubit", wires=LABELS, seed=1)), shots)()
    same_shapes(ours, theirs)


def same_shapes(ours, theirs):
    if isinstance(theirs, tuple):
        assert isinstance(ours, tuple) and len(ours) == len(theirs)
        for one, other in zip(ours, theirs):
            same_shapes(one, other)
    elif isinstance(theirs, dict):
        assert sum(ours.values()) == sum(theirs.values())
        assert {type(key) for key in ours} <= {str, float}
        assert {len(str(key)) for key in ours} <= {len(str(key)) for key in theirs} | {3, 4}
    else:
        assert np.shape(ours) == np.shape(theirs)
        assert np.asarray(ours).dtype.kind == np.asarray(theirs).dtype.kind


@EVERY
def test_measurements_that_can_be_are_made_in_the_same_shots(kind):
    @qml.set_shots(200)
    @qml.qnode(kind(wires=2, seed=3))
    def circuit():
        qml.Hadamard(0)
        qml.CNOT([0, 1])
        return qml.sample(qml.Z(0)), qml.sample(qml.Z(1)), qml.sample(wires=[1]), qml.sample(qml.Z(0) @ qml.Z(1)), qml.counts()

    first, second, bits, product, counts = circuit()
    assert (first == second).all() and (first == 1 - 2 * bits[:, 0]).all() and (product == 1).all()
    assert counts == {"00": int((first == 1).sum()), "11": int((first == -1).sum())}


@EVERY
def test_shadows_are_measured(kind):
    @qml.set_shots(4000)
    @qml.qnode(kind(wires=2, seed=3))
    def circuit():
        qml.RY(0.7, 0)
        qml.CNOT([0, 1])
        return qml.classical_shadow([0, 1], seed=1), qml.shadow_expval(qml.Z(0) @ qml.Z(1), seed=2)

    (bits, recipes), estimate = circuit()
    assert bits.shape == recipes.shape == (4000, 2)
    assert abs(qml.ClassicalShadow(bits, recipes).expval(qml.Z(0)) - np.cos(0.7)) < 0.15
    assert abs(estimate - 1) < 0.2


@EVERY
def test_seeds_decide_shots(kind):
    def samples(seed):
        return qml.set_shots(qml.QNode(lambda: (gates(), qml.sample())[1], kind(wires=LABELS, seed=seed)), 50)()

    for make in (lambda: 2**70, lambda: np.random.SeedSequence(3), lambda: np.random.default_rng(3), lambda: [1, 2]):
        assert (samples(make()) == samples(make())).all()
    np.random.seed(4)
    first = samples("global")
    np.random.seed(4)
    assert (samples("global") == first).all()
    assert (samples(None) != samples(None)).any()
    circuit = qml.set_shots(qml.QNode(lambda: (gates(), qml.sample())[1], kind(wires=LABELS, seed=1)), 50)
    assert (circuit() != circuit()).any()


@EVERY
def test_batches_of_parameters_give_a_row_each(kind):
    angles = np.linspace(0, 1, 5)

    def circuit(x):
        qml.RX(x, 0)
        qml.CRY(2 * x, [0, 1])
        return qml.expval(qml.Z(1)), qml.probs([0, 1])

    ours = qml.QNode(circuit, kind(wires=2))(angles)
    theirs = qml.QNode(circuit, qml.device("default.qubit", wires=2))(angles)
    for one, other in zip(ours, theirs):
        np.testing.assert_allclose(one, other, atol=1e-12)
    same_shapes(*[qml.set_shots(qml.QNode(circuit, d), 10)(angles) for d in (kind(wires=2), qml.device("default.qubit", wires=2))])
    for angle, told in [(angles, r"a batch of shape \(5,\)"), (np.inf, "finite"), (np.array(np.nan), "finite")]:
        with pytest.raises(NotConverted, match=told) as caught:
            kind(wires=2).execute(qml.tape.QuantumScript([qml.X(0), qml.RX(angle, 0)], [qml.probs()]))
        assert caught.value.instruction == "RX(wires=[0])" and caught.value.position == 1


# --- Mid-circuit measurements ---


def dynamic(postselect=None):
    """Return measurement values of a circuit that measures, resets and decides."""
    qml.RY(0.9, 0)
    qml.CNOT([0, 1])
    first = qml.measure(0, reset=True)
    qml.cond(first, qml.RX)(0.7, 1)
    qml.RY(0.4, 0)
    second = qml.measure(1, postselect=postselect)
    qml.cond(first + second == 1, qml.Hadamard)(0)
    qml.cond(~second, qml.CNOT)([0, 1])
    return first, second


def of_outcomes(first, second):
    return (
        qml.expval(qml.X(0) @ qml.Z(1)), qml.var(qml.Z(0)), qml.probs([1, 0]), qml.expval(first), qml.var(first * 2 + second),
        qml.probs(op=[second, first]), qml.expval(qml.Hermitian(HERMITIAN, 1)), qml.probs(op=qml.X(0)),
    )  # fmt: skip


@pytest.mark.parametrize("method", [None, "device", "tree-traversal", "deferred"])
@EVERY
def test_mid_circuit_measurements_without_shots_are_sums_over_outcomes(kind, method):
    def circuit():
        return of_outcomes(*dynamic())

    found = qml.QNode(circuit, kind(wires=4), mcm_method=method)()
    wanted = qml.QNode(circuit, qml.device("default.qubit", wires=4), mcm_method="deferred")()
    for one, other in zip(found, wanted):
        np.testing.assert_allclose(one, other, atol=1e-10)


@pytest.mark.parametrize("postselect", [0, 1])
@EVERY
def test_postselection_without_shots_is_exact(kind, postselect):
    def circuit(with_purity):
        first, second = dynamic(postselect)
        listed = qml.expval(qml.X(0) @ qml.Z(1)), qml.var(qml.Z(0)), qml.probs([1, 0]), qml.expval(first)
        return (*listed, qml.purity([0, 1])) if with_purity else listed

    found = qml.QNode(circuit, kind(wires=2))(True)
    wanted = qml.QNode(circuit, qml.device("default.qubit", wires=4))(False)
    for one, other in zip(found, wanted):
        np.testing.assert_allclose(one, other, atol=1e-10)
    assert 0.5 < found[-1] < (0.999 if postselect == 0 else 1 + 1e-12)


@pytest.mark.parametrize("postselect", [None, 0, 1])
@pytest.mark.parametrize("shots", [20000, [20000, 15000]], ids=str)
@EVERY
def test_mid_circuit_measurements_with_shots_are_near_the_exact_ones(kind, shots, postselect):
    def circuit():
        return of_outcomes(*dynamic(postselect))

    wanted = qml.QNode(circuit, kind(wires=2), mcm_method="device")()
    found = qml.set_shots(qml.QNode(circuit, kind(wires=2, seed=8), mcm_method="device"), shots)()
    for own in found if isinstance(shots, list) else [found]:
        for one, other in zip(own, wanted):
            np.testing.assert_allclose(one, other, atol=0.06)


@EVERY
def test_shots_of_mid_circuit_measurements_belong_together(kind):
    def circuit(postselect, mode):
        @qml.set_shots(500)
        @qml.qnode(kind(wires=2, seed=8), mcm_method="one-shot", postselect_mode=mode)
        def samples():
            qml.Hadamard(0)
            first = qml.measure(0)
            qml.cond(first, qml.X)(1)
            second = qml.measure(1, postselect=postselect)
            return (
                qml.sample(wires=[0, 1]), qml.sample(first), qml.sample([first, second]), qml.counts(first), qml.counts([first, second]),
                qml.counts(wires=[1]), qml.probs(op=first), qml.counts(first + second, all_outcomes=True),
            )  # fmt: skip

        return samples()

    bits, first, both, counts, counts_of_both, of_wire, shares, every = circuit(None, None)
    assert bits.shape == (500, 2) and (bits[:, 0] == first).all() and (both == first[:, np.newaxis]).all()
    ones = int(first.sum())
    assert 150 < ones < 350 and 0 < first[:250].sum() < ones  # not sorted
    assert counts == {0.0: 500 - ones, 1.0: ones} and counts_of_both == {"00": 500 - ones, "11": ones}
    assert of_wire == {"0": 500 - ones, "1": ones} and every == {0.0: 500 - ones, 1.0: 0, 2.0: ones}
    np.testing.assert_allclose(shares, [1 - ones / 500, ones / 500])
    fewer = circuit(1, "hw-like")[1]
    assert 150 < len(fewer) < 350 and (fewer == 1).all()
    with pytest.raises(DeviceError, match="fill-shots"):
        circuit(1, "fill-shots")


@EVERY
def test_what_can_never_be_selected_gives_nan(kind):
    def circuit():
        qml.measure(0, postselect=1)
        return qml.expval(qml.Z(0)), qml.probs([0])

    for shots in (None, 10):
        found = qml.set_shots(qml.QNode(circuit, kind(wires=1)), shots)()
        assert np.isnan(found[0]) and np.isnan(found[1]).all()


def test_many_measurements_with_shots_take_one_state_for_every_outcome():
    @qml.set_shots(300)
    @qml.qnode(VelacamplixQubit(wires=2, seed=1))
    def coin():
        values = []
        for _ in range(40):
            qml.Hadamard(0)
            values.append(qml.measure(0))
        return qml.sample(values)

    outcomes = coin()
    assert outcomes.shape == (300, 40)
    assert abs(outcomes.mean() - 0.5) < 0.05


# --- Noise ---

CHANNELS = [
    lambda: qml.BitFlip(0.1, 0), lambda: qml.PhaseFlip(0.1, 1), lambda: qml.DepolarizingChannel(0.2, 0),
    lambda: qml.AmplitudeDamping(0.3, 1), lambda: qml.GeneralizedAmplitudeDamping(0.3, 0.2, 0), lambda: qml.PhaseDamping(0.4, 0),
    lambda: qml.ResetError(0.1, 0.2, 1), lambda: qml.ThermalRelaxationError(0.1, 1.0, 1.3, 0.5, 0),
    lambda: qml.ThermalRelaxationError(0.1, 1.0, 0.8, 0.5, 0), lambda: qml.PauliError("XY", 0.2, [1, 0]),
    lambda: qml.QubitChannel(TWO_PAULIS, [0, 2]),
]  # fmt: skip


@pytest.mark.parametrize("channel", CHANNELS, ids=lambda make: make().name)
def test_channels_are_those_of_pennylane(channel):
    def circuit():
        qml.Rot(0.1, 0.2, 0.3, 0)
        qml.RY(0.7, 1)
        qml.CNOT([0, 1])
        qml.CRY(0.3, [1, 2])
        channel()
        qml.RZ(0.3, 0)
        return qml.state(), qml.expval(qml.X(0) @ qml.Y(1))

    ours = qml.QNode(circuit, VelacamplixMixed(wires=3))()
    theirs = qml.QNode(circuit, qml.device("default.mixed", wires=3))()
    for one, other in zip(ours, theirs):
        np.testing.assert_allclose(one, other, atol=1e-12)
    with pytest.raises(DeviceError, match=channel().name):
        qml.QNode(circuit, VelacamplixQubit(wires=3))()


def test_a_noise_model_acts_beside_gates():
    noise = NoiseModel().after("cx", velacamplix.Channel.depolarizing(0.1, 2)).after("h", velacamplix.Channel.bit_flip(0.2))
    ops = [qml.Hadamard(0), qml.CNOT([0, 1]), qml.RY(0.3, 1)]
    script = qml.tape.QuantumScript(ops, [qml.state()])
    wanted = DensityMatrix(2).run(noise.apply(to_velacamplix(ops)))
    found = VelacamplixMixed(wires=2, noise=noise).execute(script)
    np.testing.assert_allclose(found, wanted.reduced([0, 1], order="big"), atol=1e-15)


@pytest.mark.parametrize("wires", [None, [0, 1, 2], ["a", 0, "b", "c"]])
@pytest.mark.parametrize("kind", [VelacamplixQubit, VelacamplixMixed])
def test_wires_may_be_allocated(kind, wires):
    def circuit(x):
        qml.RY(x, 0)
        for angle in (0.4, 0.7):
            with qml.allocation.allocate(1) as more:
                qml.Hadamard(more[0])
                qml.CRX(angle, [more[0], 0])
        return qml.probs([0]), qml.expval(qml.X(0))

    ours, theirs = (qml.QNode(circuit, device)(0.3) for device in (kind(wires=wires), qml.device("default.qubit", wires=wires)))
    np.testing.assert_allclose(np.hstack(ours), np.hstack(theirs), atol=1e-12)


COPIES = {"pickled": lambda device: pickle.loads(pickle.dumps(device)), "deep": copy.deepcopy, "shallow": copy.copy}


@pytest.mark.parametrize("how", COPIES)
@EVERY
def test_devices_can_be_copied(kind, how):
    def circuit(x):
        qml.RX(x, 0)
        qml.CNOT([0, "b"])
        return qml.expval(qml.Z("b"))

    device = kind(wires=[0, "b"], seed=5, precision="single", threads=1)
    x = qml.numpy.array(0.4, requires_grad=True)
    before = qml.QNode(circuit, device)(x)
    made = COPIES[how](device)
    assert type(made) is kind and made.wires == device.wires
    assert qml.QNode(circuit, made)(x) == before == pytest.approx(np.cos(0.4), abs=1e-6)
    assert qml.grad(qml.QNode(circuit, made))(x) == pytest.approx(-np.sin(0.4), abs=1e-6)
    if how != "shallow":  # the same shots from here on
        tape = qml.tape.QuantumScript([qml.Hadamard(0)], [qml.sample(wires=0)], shots=50)
        np.testing.assert_array_equal(made.execute(tape), device.execute(tape))


def test_derivatives_with_allocated_wires():
    def circuit(x):
        with qml.allocation.allocate(1) as more:
            qml.RX(x, more[0])
            qml.CNOT([more[0], 0])
        return qml.expval(qml.Z(0))

    x = qml.numpy.array(0.3, requires_grad=True)
    assert qml.grad(qml.QNode(circuit, VelacamplixQubit(wires=2)))(x) == pytest.approx(-np.sin(0.3), abs=1e-12)
    with pytest.raises(qml.exceptions.AllocationError, match="Not enough available wires"):
        qml.QNode(circuit, VelacamplixQubit(wires=1))(x)


def test_a_density_matrix_may_be_the_beginning():
    rho = np.array([[0.7, 0.1, 0, 0], [0.1, 0.1, 0, 0], [0, 0, 0.1, 0], [0, 0, 0, 0.1]])

    def circuit(begin, wires):
        qml.QubitDensityMatrix(begin, wires)
        qml.CRX(0.3, [2, 1])
        return qml.state()

    ours = qml.QNode(circuit, VelacamplixMixed(wires=3))(rho, [2, 0])
    # PennyLane 0.43 needs it of all wires, and the versions differ in what another order of them means.
    whole = np.einsum("abcd,ef->beadfc", rho.reshape(2, 2, 2, 2), np.diag([1, 0])).reshape(8, 8)
    theirs = qml.QNode(circuit, qml.device("default.mixed", wires=3))(whole, [0, 1, 2])
    np.testing.assert_allclose(ours, theirs, atol=1e-12)


def test_derivatives_with_noise_are_pennylanes():
    def circuit(x):
        qml.RX(x, 0)
        qml.AmplitudeDamping(0.3, 0)
        qml.CRY(2 * x, [0, 1])
        return qml.expval(qml.Z(0) @ qml.X(1))

    x = qml.numpy.array(0.4, requires_grad=True)
    ours = qml.grad(qml.QNode(circuit, VelacamplixMixed(wires=2)))(x)
    theirs = qml.grad(qml.QNode(circuit, qml.device("default.mixed", wires=2)))(x)
    np.testing.assert_allclose(ours, theirs, atol=1e-10)


# --- Options and refusals ---


@EVERY
def test_options_are_honoured_or_refused_by_name(kind):
    for options, error, told in [
        ({"c_dtype": np.complex64}, TypeError, "c_dtype"),
        ({"precision": "half"}, ValueError, "precision"),
        ({"threads": 0}, ValueError, "threads"),
        ({"seed": "mine"}, ValueError, "seed"),
        ({"seed": -1}, ValueError, "seed must be .*default_rng takes, got -1"),
        ({"seed": 0.5}, TypeError, "seed must be .*, got 0.5"),
        ({"fusion": 1}, TypeError, "fusion"),
        ({"noise": 3}, (TypeError, ValueError), "noise"),
    ]:
        with pytest.raises(error, match=told):
            kind(wires=2, **options)
    device = kind(wires=2)
    circuit = lambda: (qml.measure(0), qml.expval(qml.Z(0)))[1]  # noqa: E731
    config = qml.devices.ExecutionConfig(mcm_config=qml.devices.MCMConfig(mcm_method="single-branch-statistics"))
    with pytest.raises(DeviceError, match="single-branch-statistics"):
        device.setup_execution_config(config)
    with pytest.raises(DeviceError, match="pad-invalid-samples"):
        qml.set_shots(qml.QNode(circuit, device, postselect_mode="pad-invalid-samples"), 5)()
    with pytest.raises(DeviceError, match="max_workers"):
        device.setup_execution_config(qml.devices.ExecutionConfig(device_options={"max_workers": 2}))
    with pytest.raises(DeviceError, match="state"):
        qml.QNode(lambda: (qml.measure(0), qml.state())[1], device, mcm_method="device")()
    with pytest.raises(DeviceError):
        qml.QNode(lambda: qml.sample(wires=0), device)()
    with pytest.raises(DeviceError):
        qml.set_shots(qml.QNode(lambda: qml.state(), device), 5)()
    with pytest.raises(qml.exceptions.WireError):
        qml.QNode(lambda: (qml.X(5), qml.state())[1], device)()


def test_noise_and_fusion_belong_to_one_device_each():
    with pytest.raises(ValueError, match="velacamplix.mixed takes a model"):
        VelacamplixQubit(noise=NoiseModel())
    with pytest.raises(ValueError, match="fusion must be False"):
        VelacamplixMixed(fusion=True)
    with pytest.raises(ValueError, match="readout"):
        VelacamplixMixed(noise=NoiseModel().readout(0.1, 0.1))


@pytest.mark.parametrize("name", DEVICES)
def test_a_device_is_described_by_its_file(name):
    kind = DEVICES[name]
    described = tomllib.loads(kind.config_filepath.read_text())
    assert described["schema"] == 3
    capabilities = kind.capabilities
    for op in (qml.RX, qml.DoubleExcitationPlus, qml.QubitUnitary, qml.CSWAP):
        assert capabilities.supports_operation(op.__name__)
    assert capabilities.supports_operation("BitFlip") == (kind is VelacamplixMixed)
    assert kind(wires=1).name == name
    assert set(capabilities.supported_mcm_methods) == {"device", "one-shot", "tree-traversal"}


@pytest.mark.parametrize("name", DEVICES)
def test_pennylane_finds_a_device_by_its_name(name):
    (entry,) = [e for e in importlib.metadata.entry_points(group="pennylane.plugins") if e.name == name]
    assert entry.load() is DEVICES[name]
    assert isinstance(qml.device(name, wires=2), DEVICES[name])


@EVERY
def test_a_tracker_counts(kind):
    device = kind(wires=1)
    with qml.Tracker(device) as tracker:
        qml.set_shots(qml.QNode(lambda: qml.expval(qml.Z(0)), device), 10)()
    assert (tracker.totals["batches"], tracker.totals["executions"], tracker.totals["shots"]) == (1, 1, 10)


def test_an_observable_whose_weights_change_is_read_again():
    device = VelacamplixQubit(wires=1)
    energy = 2.0 * qml.Z(0) + 1.0 * qml.X(0)
    script = qml.tape.QuantumScript([], [qml.expval(energy)])
    assert device.execute(script) == 2
    sentence = energy.pauli_rep
    for word in sentence:
        sentence[word] = sentence[word] * 3
    assert device.execute(script) == 6


def test_what_would_fill_the_memory_is_refused():
    device = VelacamplixQubit(wires=1)

    def circuit():
        return qml.probs(op=[qml.measure(0) for _ in range(21)])

    with pytest.raises(NotConverted, match="21 measurements cannot be listed"):
        qml.set_shots(qml.QNode(circuit, device), 2)()


def _tape(ops, measurements=None, **more):
    with qml.queuing.QueuingManager.stop_recording():
        return qml.tape.QuantumScript(ops(), [qml.expval(qml.Z(0))] if measurements is None else measurements(), **more)


def _summed():
    return [qml.expval(qml.Hamiltonian([0.5, 2.0], [qml.X(0), qml.Z(1) @ qml.Z(2)])), qml.expval(qml.X(1) + 2 * qml.Y(0))]


TRAINABLE = qml.numpy.array(0.5, requires_grad=True)
FITTING = {
    "gates": lambda: _tape(lambda: [qml.RX(0.1, 0), qml.Rot(1, 2.0, np.float64(3), 1), qml.CNOT([2, 0]), qml.CRY(0.2, [1, 2])]),
    "many qubits": lambda: _tape(lambda: [qml.PauliRot(0.1, "XYZ", [0, 1, 2]), qml.MultiControlledX([0, 1, 2])], _summed),
    "trainable": lambda: _tape(lambda: [qml.RX(TRAINABLE, 0), qml.RZ(np.array(0.1), 2)]),
    "nothing": lambda: _tape(lambda: []),
}
NOT_FITTING = {
    "shots": lambda: _tape(lambda: [qml.RX(0.1, 0)], shots=10),
    "a batch": lambda: _tape(lambda: [qml.RX(np.array([0.1, 0.2]), 0)]),
    "another wire": lambda: _tape(lambda: [qml.RX(0.1, 3)]),
    "another wire measured": lambda: _tape(lambda: [qml.RX(0.1, 0)], lambda: [qml.expval(qml.Z(4))]),
    "a template": lambda: _tape(lambda: [qml.QFT([0, 1])]),
    "a matrix": lambda: _tape(lambda: [qml.QubitUnitary(np.eye(2), 0)]),
    "a state": lambda: _tape(lambda: [qml.BasisState([1], [0]), qml.X(0)]),
    "probabilities": lambda: _tape(lambda: [qml.X(0)], lambda: [qml.probs()]),
    "a trainable weight": lambda: _tape(lambda: [qml.X(0)], lambda: [qml.expval(qml.Hamiltonian([TRAINABLE], [qml.X(0)]))]),
    "a dense observable": lambda: _tape(lambda: [qml.X(0)], lambda: [qml.expval(qml.Hermitian(HERMITIAN, 0))]),
}


@pytest.mark.parametrize("method", [None, "adjoint"])
@pytest.mark.parametrize("case", FITTING)
def test_what_nothing_needs_to_be_done_with_is_left_as_it_is(case, method):
    tape, device = FITTING[case](), VelacamplixQubit(wires=3)
    config = device.setup_execution_config(qml.devices.ExecutionConfig(gradient_method=method), tape)
    [found], together = device.preprocess_transforms(config)([tape])
    assert found is tape
    assert tuple(together((1.5,))) == (1.5,)
    # So does each step that is left out.
    steps = device._transforms(config, velacamplix.pennylane.device.stops, velacamplix.pennylane.device.takes_observable)
    for transform, arguments in [*steps, *device._adjoint_transforms()]:
        [same], _ = transform(tape, **arguments)
        assert [one is mine for one, mine in zip(same.operations, tape.operations, strict=True)] == [True] * len(tape.operations)
        assert same.measurements == tape.measurements


@pytest.mark.parametrize("wires", [3, None])
@pytest.mark.parametrize("case", NOT_FITTING)
def test_everything_else_is_looked_at_by_pennylanes_steps(case, wires):
    assert VelacamplixQubit(wires=wires)._fits(NOT_FITTING[case]()) == (wires is None and case.startswith("another wire"))


def _of_angles(x, y, measurements):
    ops = [qml.RX(x, 0), qml.Rot(0.1, x, y, 1), qml.CNOT([0, 2]), qml.IsingXY(y, [2, 1]), qml.GlobalPhase(x), qml.CRY(x, [1, 0])]
    return qml.tape.QuantumScript(ops, measurements)


@pytest.mark.parametrize("options", [{}, {"precision": "single"}, {"fusion": True}, {"threads": 3}], ids=str)
@pytest.mark.parametrize("count", [1, 2])
def test_tapes_that_differ_in_their_angles_are_run_together_and_give_what_each_gives(monkeypatch, options, count):
    measurements = [qml.expval(qml.Hamiltonian([0.5, 2.0, 0.1], [qml.X(0), qml.Z(1) @ qml.Y(2), qml.I(0)])), qml.expval(qml.Z(2))]
    tapes = [_of_angles(0.3 * i, 1.0 - 0.2 * i, measurements[:count]) for i in range(7)]
    device, calls = VelacamplixQubit(wires=3, **options), []
    together = velacamplix.core.extension.run_batch
    monkeypatch.setattr(velacamplix.core.extension, "run_batch", lambda *all: calls.append(1) or together(*all))
    found = device.execute(tapes)
    assert len(calls) == 1 and isinstance(found, tuple)
    alone = tuple(VelacamplixQubit(wires=3, **options).execute([tape])[0] for tape in tapes)
    assert len(calls) == 1
    assert found == alone and len(set(map(str, found))) == 7
    assert [type(one) for one in found] == [type(one) for one in alone] == [np.float64 if count == 1 else tuple] * 7


def test_tapes_that_differ_in_more_are_run_one_by_one(monkeypatch):
    monkeypatch.setattr(velacamplix.core.extension, "run_batch", None)
    z, x = [qml.expval(qml.Z(2))], [qml.expval(qml.X(2))]
    first = _of_angles(0.3, 0.2, z)
    others = {
        "another gate": qml.tape.QuantumScript([*first.operations, qml.X(0)], z),
        "another observable": _of_angles(0.3, 0.2, x),
        "more of them": _of_angles(0.3, 0.2, z + x),
        "another kind": _of_angles(0.3, 0.2, [qml.var(qml.Z(2))]),
        "shots": _of_angles(0.3, 0.2, z).copy(shots=5),
        "a state": qml.tape.QuantumScript([qml.BasisState([1, 0, 0], [0, 1, 2]), *first.operations], z),
    }
    for name, other in others.items():
        device = VelacamplixQubit(wires=3, seed=1)
        found, alone = device.execute([first, other]), VelacamplixQubit(wires=3, seed=1).execute([other])
        assert str(found[1]) == str(alone[0]), name
    fixed = qml.tape.QuantumScript([qml.X(2)], z)
    assert VelacamplixQubit(wires=3).execute([fixed, fixed]) == (-1.0, -1.0)
    with pytest.raises(NotConverted):
        VelacamplixQubit(wires=3).execute([first, _of_angles(float("nan"), 0.2, z)])
