"""Circuits from PennyLane's tapes and back: every gate, templates, conditions, what is refused."""

import pickle

import numpy as np
import pytest

pytest.importorskip("pennylane", reason="needs PennyLane: pip install velacamplix[test]")

import pennylane as qml  # noqa: E402

from velacamplix import Channel, Circuit, Condition, Parameter, StateVector, run  # noqa: E402
from velacamplix.pennylane import NotConverted, from_velacamplix, to_velacamplix  # noqa: E402

QFT = qml.matrix(qml.QFT([0, 1]))
GATES = [
    *[kind(0) for kind in (qml.PauliX, qml.PauliY, qml.PauliZ, qml.Hadamard, qml.S, qml.T, qml.SX, qml.Identity)],
    *[kind([1, 0]) for kind in (qml.CNOT, qml.CZ, qml.CY, qml.CH, qml.SWAP, qml.ISWAP, qml.SISWAP, qml.ECR)],
    *[kind([2, 0, 1]) for kind in (qml.CSWAP, qml.Toffoli, qml.CCZ)],
    *[kind(0.3, 1) for kind in (qml.RX, qml.RY, qml.RZ, qml.PhaseShift, qml.U1)],
    *[kind(0.3, [1, 0]) for kind in (qml.CRX, qml.CRY, qml.CRZ, qml.ControlledPhaseShift, qml.CPhaseShift00)],
    *[kind(0.3, [1, 0]) for kind in (qml.CPhaseShift01, qml.CPhaseShift10, qml.IsingXX, qml.IsingYY, qml.IsingZZ)],
    *[kind(0.3, [1, 0]) for kind in (qml.IsingXY, qml.PSWAP, qml.FermionicSWAP, qml.SingleExcitation)],
    *[kind(0.3, [1, 0]) for kind in (qml.SingleExcitationPlus, qml.SingleExcitationMinus)],
    *[kind(0.3, [3, 1, 0, 2]) for kind in (qml.DoubleExcitation, qml.DoubleExcitationPlus, qml.DoubleExcitationMinus)],
    qml.OrbitalRotation(0.3, [3, 1, 0, 2]), qml.U2(0.3, 0.4, 0), qml.U3(0.3, 0.4, 0.5, 0), qml.Rot(0.3, 0.4, 0.5, 0),
    qml.CRot(0.3, 0.4, 0.5, [1, 0]), qml.MultiRZ(0.3, [2, 0, 1]), qml.MultiRZ(0.3, [1]),
    qml.PauliRot(0.3, "XYIZ", [0, 3, 1, 2]), qml.PauliRot(0.3, "II", [0, 1]), qml.PauliRot(0.3, "XZ", [0, 1]),
    qml.GlobalPhase(0.3), qml.GlobalPhase(0.3, wires=[0, 1]), qml.MultiControlledX([0, 1, 2, 3], control_values=[0, 1, 0]),
    qml.QubitCarry([0, 1, 2, 3]), qml.QubitSum([0, 1, 2]), qml.QFT([0, 1, 2]), qml.PCPhase(0.3, 3, [0, 1]),
    qml.DiagonalQubitUnitary(np.exp(1j * np.arange(4)), [1, 0]), qml.QubitUnitary(QFT, [1, 0]),
    qml.ControlledQubitUnitary(np.eye(2)[::-1], [0, 1]), qml.BlockEncode(np.array([[0.1, 0.2], [0.3, 0.4]]), [0, 1]),
    qml.ctrl(qml.Rot(0.3, 0.4, 0.5, 0), [1, 2], control_values=[0, 1]), qml.adjoint(qml.Rot(0.3, 0.4, 0.5, 0)),
    qml.ctrl(qml.adjoint(qml.S(0)), 1), qml.adjoint(qml.SX(0)), qml.ctrl(qml.DoubleExcitationPlus(0.3, [0, 1, 2, 3]), 4),
    qml.ctrl(qml.GlobalPhase(0.3), [0, 1], control_values=[0, 1]), qml.adjoint(qml.QubitUnitary(QFT, [1, 0])),
    qml.ctrl(qml.PauliRot(0.3, "XYZ", [0, 1, 2]), 4, control_values=[0]), qml.ctrl(qml.QubitUnitary(QFT, [1, 0]), 3),
    qml.exp(qml.prod(qml.X(0), qml.Y(1)), 0.3j), qml.pow(qml.RX(0.3, 0), 0.5), qml.prod(qml.X(0), qml.RY(0.3, 1)),
    qml.GroverOperator([0, 1, 2]), qml.TrotterProduct(qml.X(0) + qml.Z(1), 0.3, n=2, order=2), qml.Permute([1, 2, 0], [0, 1, 2]),
    qml.SpecialUnitary(np.arange(3.0) / 3, [0]), qml.ArbitraryUnitary(np.arange(15) / 10, [0, 1]), qml.AQFT(1, [0, 1, 2]),
    qml.Select([qml.X(2), qml.RY(0.2, 2)], [0]), qml.BasicEntanglerLayers(np.ones((2, 3)), [0, 1, 2]),
]  # fmt: skip


@pytest.mark.parametrize("op", GATES, ids=lambda op: f"{op.name}{op.wires.tolist()}")
def test_a_gate_has_its_matrix_here_and_after_the_way_back(op):
    n = max(op.wires.tolist(), default=0) + 1
    wanted = qml.matrix(op, wire_order=range(n))
    circuit = to_velacamplix([op], wire_order=range(n))
    np.testing.assert_allclose(circuit.to_matrix(order="big"), wanted, rtol=0, atol=1e-12)
    back = from_velacamplix(circuit).operations
    if back:
        theirs = qml.matrix(qml.tape.QuantumScript(back), wire_order=range(n))
        np.testing.assert_allclose(theirs, wanted, rtol=0, atol=1e-12)


def random_circuit(rng):
    """Return a circuit of gates of all kinds that the package has, with the global phase."""
    circuit = Circuit(4)
    for _ in range(12):
        a, b, c, d = (int(q) for q in rng.permutation(4))
        x, y, z = rng.uniform(-3, 3, 3)
        steps = [
            lambda: circuit.h(a).rz(x, b), lambda: circuit.cu(x, y, z, 0.3, a, b), lambda: circuit.u(x, y, z, a),
            lambda: circuit.r(x, y, a).rzx(x, a, b), lambda: circuit.xx_plus_yy(x, y, a, b).xx_minus_yy(x, y, b, c),
            lambda: circuit.fsim(x, y, a, b).givens(x, c, d), lambda: circuit.rccx(a, b, c).rc3x(a, b, c, d),
            lambda: circuit.iswap(a, b).iswapdg(b, c).sqrtswap(a, c).sqrtswapdg(b, d), lambda: circuit.dcx(a, b).ecr(c, d),
            lambda: circuit.ztoy(a).ytoz(b).sx(c).sxdg(d).tdg(a).sdg(b), lambda: circuit.gphase(x).id(a).u2(x, y, b),
            lambda: circuit.mcp(x, [a, b], c, control_values="01"), lambda: circuit.pauli_rotation("XYZ", x, [a, b, c], d),
            lambda: circuit.matrix(QFT, [a, b], controls=c, control_values=0), lambda: circuit.cswap(a, b, c).ccz(b, c, d),
            lambda: circuit.diagonal(np.exp(1j * np.arange(4) * x), [a, b], controls=c),
        ]  # fmt: skip
        steps[int(rng.integers(len(steps)))]()
    return circuit


def test_random_circuits_come_back_as_they_were():
    rng = np.random.default_rng(5)
    for _ in range(60):
        circuit = random_circuit(rng)
        script = from_velacamplix(circuit)
        wanted = circuit.to_matrix()
        np.testing.assert_allclose(to_velacamplix(script, wire_order=range(4)).to_matrix(), wanted, rtol=0, atol=1e-11)
        theirs = qml.matrix(script, wire_order=[3, 2, 1, 0])
        np.testing.assert_allclose(theirs, wanted, rtol=0, atol=1e-11)


def random_tape(rng):
    """Return a tape of gates of all kinds that PennyLane has, on wires in any order, inverted and controlled among them."""
    one = [qml.RX, qml.RY, qml.RZ, qml.PhaseShift]
    two = [qml.CRX, qml.CRZ, qml.IsingXY, qml.IsingZZ, qml.PSWAP, qml.FermionicSWAP, qml.SingleExcitationPlus, qml.CPhaseShift01]
    fixed = [qml.SX, qml.S, qml.T, qml.Hadamard, qml.PauliY]
    fixed_two = [qml.ISWAP, qml.SISWAP, qml.ECR, qml.CY, qml.CH]
    ops = []
    for _ in range(15):
        w = [int(wire) for wire in rng.permutation(4)]
        x, y, z = (float(value) for value in rng.uniform(-7, 7, 3))
        pick = lambda kinds: kinds[int(rng.integers(len(kinds)))]  # noqa: E731
        makes = [
            lambda: pick(one)(x, w[0]), lambda: pick(two)(x, w[:2]), lambda: pick(fixed)(w[0]), lambda: pick(fixed_two)(w[:2]),
            lambda: pick([qml.Rot, qml.U3])(x, y, z, w[0]), lambda: qml.CRot(x, y, z, w[:2]), lambda: qml.GlobalPhase(x),
            lambda: qml.PauliRot(x, "XYZ", w[:3]), lambda: qml.DoubleExcitationMinus(x, w), lambda: qml.adjoint(qml.SX(w[1])),
            lambda: qml.ctrl(qml.Rot(x, y, z, w[0]), w[1:3], control_values=[0, 1]), lambda: qml.adjoint(qml.ISWAP(w[:2])),
            lambda: qml.ctrl(qml.GlobalPhase(x), w[:2], control_values=[1, 0]), lambda: qml.MultiRZ(x, w[:3]),
            lambda: qml.QubitUnitary(QFT, w[:2]), lambda: qml.MultiControlledX(w, control_values=[0, 1, 0]),
        ]  # fmt: skip
        ops.append(pick(makes)())
    return qml.tape.QuantumScript(ops)


def test_random_tapes_keep_their_matrix_and_phase_there_and_back():
    rng = np.random.default_rng(14)
    for _ in range(60):
        tape = random_tape(rng)
        wanted = qml.matrix(tape, wire_order=range(4))
        circuit = to_velacamplix(tape, wire_order=range(4))
        np.testing.assert_allclose(circuit.to_matrix(order="big"), wanted, rtol=0, atol=1e-12)
        back = qml.tape.QuantumScript(from_velacamplix(circuit).operations)
        np.testing.assert_allclose(qml.matrix(back, wire_order=range(4)), wanted, rtol=0, atol=1e-12)


def test_wires_have_any_labels():
    ops = [qml.PauliX("b"), qml.CNOT(["b", -1])]
    assert str(to_velacamplix(ops)) == "X 0\nCNOT 0,1"
    assert str(to_velacamplix(ops, wire_order=[-1, "c", "b"])) == "X 2\nCNOT 2,0"
    assert to_velacamplix([qml.PauliX(5)]).n_qubits == 6
    with pytest.raises(ValueError, match="without 'b'"):
        to_velacamplix(ops, wire_order=[-1])
    with pytest.raises(NotConverted, match="at most 1000000 qubits, got wire 1000000000; wire_order numbers wires anew"):
        to_velacamplix([qml.PauliX(10**9)])
    assert str(to_velacamplix([qml.PauliX(10**9)], wire_order=[10**9])) == "X 0"


def test_a_state_at_the_beginning_is_prepared_without_a_reset():
    amplitudes = np.array([0.6, 0, 0, 0.8j])
    for op in (qml.StatePrep(amplitudes, [1, 0]), qml.MottonenStatePreparation(amplitudes, [1, 0])):
        circuit = to_velacamplix([op, qml.PauliX(0)])
        wanted = qml.matrix(qml.PauliX(0), wire_order=[1, 0]) @ amplitudes
        np.testing.assert_allclose(StateVector(2).run(circuit).array, wanted, atol=1e-12)  # wire 0 is the lowest bit
    assert all(step.name != "reset" for step in to_velacamplix([qml.BasisState([1, 0], [0, 1])]))


def test_measurements_and_conditions_become_bits():
    with qml.queuing.AnnotatedQueue() as queue:
        qml.Hadamard(0)
        first = qml.measure(0, reset=True)
        second = qml.measure(1)
        qml.cond(first & ~second, qml.RX)(0.5, 2)
        qml.cond(first + second >= 0, qml.Y)(2)
        qml.cond(first + second == 5, qml.Z)(2)
    circuit = to_velacamplix(qml.tape.QuantumScript.from_queue(queue))
    assert [step.name for step in circuit] == ["H", "measure", "reset", "measure", "RX", "Y"]
    assert circuit[4].condition == Condition((0, 1), 1)
    assert circuit[5].condition is None
    back = from_velacamplix(circuit)
    again = to_velacamplix(back)
    assert run(again, shots=2000, seed=3).counts == run(circuit, shots=2000, seed=3).counts


def test_a_decision_becomes_conditions():
    circuit = Circuit(2, 2).h(0).measure(0, 0)
    circuit.if_(Condition((0,), 1), Circuit(2).x(1).h(1))
    with circuit.when([0, 1], "01"):  # bit 1 is never written, so that this never holds
        circuit.x(1)
    with circuit.when([1], "0"):
        circuit.z(0)
    operations = from_velacamplix(circuit).operations
    assert [op.name for op in operations[2:]] == ["Conditional(PauliX)", "Conditional(Hadamard)", "Conditional(PauliX)", "PauliZ"]

    @qml.qnode(qml.device("default.qubit", wires=3))
    def probabilities():
        for op in operations:
            qml.apply(op)
        return qml.probs(wires=[0, 1])

    ours = run(circuit, shots=4000, seed=2, observables=["Z0", "Z1", "Z0 Z1"]).expectation_values
    theirs = probabilities()
    np.testing.assert_allclose(theirs, [0.5, 0, 0.25, 0.25], atol=1e-12)
    np.testing.assert_allclose(ours, [0, 0.5, 0.5], atol=0.08)


def test_channels_come_back():
    channels = [qml.BitFlip(0.1, 0), qml.DepolarizingChannel(0.2, 1), qml.PauliError("XY", 0.2, [1, 0])]
    circuit = to_velacamplix(channels)
    assert [step.name for step in circuit] == ["channel"] * 3
    for theirs, back in zip(channels, from_velacamplix(circuit).operations):
        np.testing.assert_allclose(choi(theirs.kraus_matrices()), choi(back.kraus_matrices()), atol=1e-12)
    assert from_velacamplix(Circuit(1).channel(Channel.bit_flip(0.1), 0)).operations[0].name == "QubitChannel"


def choi(operators):
    return sum(np.kron(operator, np.conj(operator)) for operator in map(np.asarray, operators))


@pytest.mark.parametrize(
    "ops, told, position",
    [
        ([qml.X(0), qml.RX(np.array([0.1, 0.2]), 0)], "a batch of shape", 1),
        ([qml.RX(np.inf, 0)], "finite", 0),
        ([qml.QubitUnitary(np.array([[1, 0], [0, 2.0]]), 0)], "unitary", 0),
        ([qml.X(0), qml.measure(0, postselect=1).measurements[0]], "postselection", 1),
    ],
)
def test_what_a_circuit_cannot_say_is_refused_with_its_place(ops, told, position):
    with pytest.raises(NotConverted, match=told) as caught:
        to_velacamplix(ops)
    assert caught.value.position == position
    assert caught.value.instruction.startswith(ops[position].name)
    copy = pickle.loads(pickle.dumps(caught.value))
    assert (str(copy), copy.reason) == (str(caught.value), caught.value.reason)
    assert isinstance(caught.value, (ValueError, qml.exceptions.DeviceError))


@pytest.mark.parametrize(
    "circuit, told",
    [
        (Circuit(1).rx(Parameter("a"), 0), "open parameters"),
        (Circuit(1).save_state("s"), "no 'save'"),
        (Circuit(1).matrix([[1, 0], [0, 2]], 0, check=False), "unitary"),
    ],
)
def test_what_a_tape_cannot_say_is_refused_with_its_place(circuit, told):
    with pytest.raises(NotConverted, match=told) as caught:
        from_velacamplix(circuit)
    assert caught.value.position == 0


def test_other_objects_are_refused():
    with pytest.raises(TypeError, match="a tape of PennyLane's"):
        to_velacamplix("H 0")
    with pytest.raises(TypeError, match=r"circuit\[0\] must be an operation"):
        to_velacamplix([3])
    with pytest.raises(TypeError, match="construct_tape"):
        to_velacamplix(qml.QNode(lambda: qml.state(), qml.device("default.qubit", wires=1)))
    with pytest.raises(TypeError, match="must be a velacamplix.Circuit"):
        from_velacamplix([])


def test_circuits_hand_on_to_the_conversions():
    class Own(Circuit):
        pass

    made = Own.from_pennylane([qml.RX(0.5, "a"), qml.CNOT(["b", "a"])], wire_order=["b", "a"])
    assert type(made) is Own and str(made) == "RX(0.5) 1\nCNOT 0,1"
    assert str(made.to_pennylane().operations) == "[RX(0.5, wires=[1]), CNOT(wires=[0, 1])]"
    with pytest.raises(TypeError, match="Circuit.from_pennylane"):
        run(made.to_pennylane())
