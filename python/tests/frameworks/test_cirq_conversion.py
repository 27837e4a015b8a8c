"""Circuits from Cirq, and back to it: the same matrix, global phase included; the same outcomes of what is no matrix."""

import cmath
import math
import pickle

import numpy as np
import pytest

cirq = pytest.importorskip("cirq", reason="needs Cirq: pip install velacamplix[test]")

import sympy  # noqa: E402

from support.random_circuits import random_gates  # noqa: E402
from support.refusals import refused  # noqa: E402
from velacamplix import Channel, Circuit, DensityMatrix, GateDefinition, Instruction, Parameter, run  # noqa: E402
from velacamplix.cirq import NotConverted, from_velacamplix, to_velacamplix  # noqa: E402
from velacamplix.instructions.gates import GATES  # noqa: E402

Q = cirq.LineQubit.range(4)
A, B, C, D = Q
T = sympy.Symbol("t")


def matrix_of(circuit):
    """With qubit 0 as the highest bit of a row's number, as Cirq has it."""
    return circuit.to_matrix(order="big")


def theirs_of(circuit, qubits=Q):
    return cirq.Circuit(circuit).unitary(qubit_order=qubits, qubits_that_should_be_present=qubits, dtype=np.complex128)


EXPONENTS = (1, -1, 0.5, -0.5, 0.25, -0.25, 0.3, 2, 0, -1.7, 3)
POWERS = [
    cirq.XPowGate, cirq.YPowGate, cirq.ZPowGate, cirq.HPowGate, cirq.CXPowGate, cirq.CZPowGate, cirq.CCXPowGate,
    cirq.CCZPowGate, cirq.SwapPowGate, cirq.ISwapPowGate, cirq.XXPowGate, cirq.YYPowGate, cirq.ZZPowGate,
    *[getattr(cirq, name) for name in ("CYPowGate", "CCYPowGate") if hasattr(cirq, name)],
]  # fmt: skip


def power_gates():
    for exponent in EXPONENTS:
        for shift in (0, -0.5, 0.2):
            for kind in POWERS:
                yield kind(exponent=exponent, global_shift=shift)
            yield cirq.PhasedXPowGate(exponent=exponent, phase_exponent=0.37, global_shift=shift)
            yield cirq.PhasedISwapPowGate(exponent=exponent, phase_exponent=0.37, global_shift=shift)
        for of in (cirq.rx, cirq.ry, cirq.rz, cirq.ms, cirq.givens, cirq.cphase, cirq.riswap):
            yield of(exponent)
        yield cirq.PhasedXZGate(x_exponent=exponent, z_exponent=0.4, axis_phase_exponent=-0.3)
        yield cirq.FSimGate(exponent, 0.3)
        yield cirq.PhasedFSimGate(exponent, 0.1, 0.2, 0.3, 0.4)


class Alone(cirq.Gate):
    """A user's gate that has a matrix."""

    def _num_qubits_(self):
        return 3

    def _unitary_(self):
        return np.roll(np.eye(8), 3, axis=0) * 1j


class Made(cirq.Gate):
    """A user's gate that has a decomposition."""

    def _num_qubits_(self):
        return 3

    def _decompose_(self, qubits):
        a, b, c = qubits
        yield [cirq.H(a), cirq.CNOT(a, c), cirq.S(b).controlled_by(c), cirq.global_phase_operation(1j)]


def other_gates():
    rng = np.random.default_rng(5)
    yield from (cirq.I, cirq.IdentityGate(3), cirq.WaitGate(cirq.Duration(nanos=3)), cirq.S, cirq.T, cirq.CSWAP, cirq.X, cirq.Y)
    yield from (cirq.Z, cirq.H, cirq.CNOT, Alone(), Made(), Made() ** -1)
    for n in (1, 2, 3, 4):
        yield cirq.QuantumFourierTransformGate(n)
        yield cirq.QuantumFourierTransformGate(n, without_reverse=True)
        yield cirq.PhaseGradientGate(num_qubits=n, exponent=0.4)
        yield cirq.MatrixGate(cirq.testing.random_unitary(2**n, random_state=n))
        yield cirq.DiagonalGate(rng.random(2**n).tolist())
        yield cirq.DensePauliString("XYZI"[:n], coefficient=1j)
        yield cirq.ParallelGate(cirq.X**0.3, n)
    yield cirq.TwoQubitDiagonalGate([0.1, 0.2, 0.3, 0.4])
    yield cirq.ThreeQubitDiagonalGate(list(range(8)))
    yield cirq.QubitPermutationGate([2, 0, 1, 3])
    yield cirq.QubitPermutationGate([1, 3, 0, 2])
    yield cirq.PauliInteractionGate(cirq.X, True, cirq.Y, False, exponent=0.3)
    yield cirq.SingleQubitCliffordGate.X_sqrt
    yield cirq.CliffordGate.from_op_list([cirq.H(A), cirq.CNOT(A, B), cirq.S(B)], [A, B])
    yield cirq.BooleanHamiltonianGate(["a", "b", "c"], ["a & b | c"], 0.3)
    yield cirq.PauliStringPhasorGate(cirq.DensePauliString("XYZ"), exponent_neg=0.3, exponent_pos=0.1)
    inner = (
        cirq.X**0.3, cirq.rz(0.4), cirq.SWAP**0.4, cirq.ISWAP**0.3, cirq.CX, cirq.CX**0.2, cirq.H**0.4, cirq.FSimGate(0.1, 0.2),
        cirq.PhasedXZGate(x_exponent=0.2, z_exponent=0.4, axis_phase_exponent=-0.3), cirq.CZ**0.5,
    )  # fmt: skip
    for gate in inner:
        yield gate.controlled(1)
        yield gate.controlled(2, control_values=[0, 1])
        yield gate.controlled(2, control_values=[(0, 1), 0])
        yield gate.controlled(2, control_values=cirq.SumOfProducts([(0, 1), (1, 0)]))
    yield cirq.GlobalPhaseGate(1j).controlled(2, control_values=[0, 1])


@pytest.mark.parametrize("gates", [power_gates, other_gates], ids=["powers", "others"])
def test_every_gate_has_its_matrix_both_ways(gates):
    rng, n_gates = np.random.default_rng(1), 0
    for gate in gates():
        qubits = [Q[place] for place in rng.permutation(4)[: cirq.num_qubits(gate)]]
        circuit = cirq.Circuit(gate.on(*qubits))
        wanted = theirs_of(circuit)
        ours = to_velacamplix(circuit, Q)
        np.testing.assert_allclose(matrix_of(ours), wanted, rtol=0, atol=1e-12, err_msg=repr(gate))
        np.testing.assert_allclose(theirs_of(from_velacamplix(ours)), wanted, rtol=0, atol=1e-12, err_msg=repr(gate))
        n_gates += 1
    assert n_gates > 50


def test_operations_that_are_no_gates_of_their_own():
    string = cirq.X(A) * cirq.Y(B) * cirq.Z(D)
    inside = cirq.FrozenCircuit(cirq.H(A), cirq.CNOT(A, B) ** 0.3)
    for operation in (
        string,
        -1 * string,
        cirq.PauliStringPhasor(string, exponent_neg=0.2, exponent_pos=-0.1),
        cirq.ControlledOperation([C], cirq.CircuitOperation(inside), control_values=[0]),
        cirq.CircuitOperation(inside, repetitions=3),
        cirq.CircuitOperation(inside, repetitions=-2, qubit_map={A: D, B: A}),
        cirq.CircuitOperation(cirq.FrozenCircuit(cirq.rx(T)(A)), param_resolver={"t": 0.3}),
        (cirq.X(A) ** 0.3).with_tags("tag"),
        cirq.global_phase_operation(cmath.exp(0.4j)),
        cirq.H(A).controlled_by(C, D, control_values=[1, 0]),
    ):
        circuit = cirq.Circuit(operation)
        np.testing.assert_allclose(matrix_of(to_velacamplix(circuit, Q)), theirs_of(circuit), rtol=0, atol=1e-12)


def test_values_of_controls_may_be_truth_values():
    # Gates of Cirq's own are made of controls that read False. (cirq.unitary does not take these for 0; its simulator does.)
    for make in (
        lambda gate, a, b: gate(a).controlled_by(b, control_values=[False]),
        lambda gate, a, b: gate.controlled(1, control_values=[False])(b, a),
        lambda gate, a, b: gate(a).controlled_by(b, C, control_values=[(False, True), False]),
        lambda gate, a, b: gate(a).controlled_by(b, C, control_values=cirq.SumOfProducts([(False, True), (True, False)])),
        lambda gate, a, b: cirq.UniformSuperpositionGate(5, 3)(a, b, C),
    ):
        start = [cirq.ry(0.7 + place)(qubit) for place, qubit in enumerate(Q[:3])]
        circuit = cirq.Circuit(start, make(cirq.ry(0.4), A, B))
        wanted = cirq.Simulator(dtype=np.complex128).simulate(circuit).final_state_vector
        found = matrix_of(to_velacamplix(circuit))[:, 0]
        np.testing.assert_allclose(found, wanted, rtol=0, atol=1e-6, err_msg=str(circuit))


def test_exponential_of_pauli_sums():
    circuit = cirq.Circuit(cirq.PauliSumExponential(cirq.X(A) * cirq.X(B) + 2 * cirq.Z(A) * cirq.Z(B), exponent=0.3))
    np.testing.assert_allclose(matrix_of(to_velacamplix(circuit)), theirs_of(circuit, Q[:2]), rtol=0, atol=1e-12)


@pytest.mark.parametrize("seed", range(10))
def test_random_circuits_go_there_and_back(seed):
    rng = np.random.RandomState(seed)
    for _ in range(50):
        n_qubits = rng.randint(1, 5)
        circuit = cirq.testing.random_circuit(Q[:n_qubits], rng.randint(1, 9), rng.uniform(0.3, 1), random_state=rng)
        ours = to_velacamplix(circuit, Q[:n_qubits])
        np.testing.assert_allclose(matrix_of(ours), theirs_of(circuit, Q[:n_qubits]), rtol=0, atol=1e-12)
        back = from_velacamplix(ours)
        # Its moments are not kept, and the gates of one may have another order.
        assert back == cirq.Circuit(circuit.all_operations())
        assert from_velacamplix(to_velacamplix(back, Q[:n_qubits])) == back


@pytest.mark.parametrize("first", range(0, 240, 24))
def test_random_circuits_of_this_package(first):
    for seed in range(first, first + 24):
        circuit, values = random_gates(seed)
        qubits = cirq.LineQubit.range(circuit.n_qubits)
        theirs = from_velacamplix(circuit)
        back = to_velacamplix(theirs, qubits)
        assert set(back.parameters) == set(circuit.parameters), seed
        wanted = matrix_of(circuit.bind(values))
        np.testing.assert_allclose(matrix_of(back.bind(values)), wanted, rtol=0, atol=1e-12, err_msg=str(seed))
        found = theirs_of(cirq.resolve_parameters(theirs, values), qubits)
        np.testing.assert_allclose(found, wanted, rtol=0, atol=1e-12, err_msg=str(seed))


def example_of(row, controls=()):
    gate = GATES[row]
    qubits = tuple(range(len(controls), len(controls) + gate.n_qubits))
    return Instruction(row, qubits, tuple([0.3 + 0.4 * place for place in range(gate.n_params)]), controls)


@pytest.mark.parametrize("row", GATES)
def test_every_gate_of_the_package_goes_to_cirq(row):
    for controls, values in (((), ""), ((0,), ""), ((0,), "0")):
        step = example_of(row, controls)._replace(control_values=values)
        n_qubits = max(1, len(controls) + GATES[row].n_qubits)
        ours = Circuit.from_instructions([step], n_qubits)
        theirs = from_velacamplix(ours)
        np.testing.assert_allclose(theirs_of(theirs, cirq.LineQubit.range(n_qubits)), matrix_of(ours), rtol=0, atol=1e-12)
        open_step = step._replace(params=tuple([Parameter(f"p{place}") for place in range(GATES[row].n_params)]))
        numbers = {f"p{place}": 0.3 + 0.4 * place for place in range(GATES[row].n_params)}
        symbolic = cirq.resolve_parameters(from_velacamplix(Circuit.from_instructions([open_step], n_qubits)), numbers)
        np.testing.assert_allclose(theirs_of(symbolic, cirq.LineQubit.range(n_qubits)), matrix_of(ours), rtol=0, atol=1e-12)


def test_entries_and_definitions_go_to_cirq():
    bell = GateDefinition("bell", Circuit(2).h(0).ry(Parameter("a"), 1).cx(0, 1))
    unitary = cirq.testing.random_unitary(4, random_state=1)
    ours = Circuit(3).gate(bell, [2, 0], [0.3]).matrix(unitary, [0, 2], controls=[1]).pauli_rotation("XYZ", 0.4)
    ours.append(Instruction("diagonal", (2, 0), tuple([cmath.exp(1j * k) for k in range(4)]), (1,), control_values="0"))
    np.testing.assert_allclose(theirs_of(from_velacamplix(ours), Q[:3]), matrix_of(ours), rtol=0, atol=1e-12)


# --- Parameters ---


def open_gates():
    s = sympy.Symbol("s")
    yield from (kind(exponent=T / 3 + s) for kind in POWERS)
    yield from (cirq.rx(T), cirq.ry(2 * T - s), cirq.rz(T * s), cirq.XPowGate(exponent=T, global_shift=0.3), cirq.ms(T))
    yield from (cirq.PhasedXPowGate(exponent=T, phase_exponent=s), cirq.PhasedISwapPowGate(exponent=s, phase_exponent=T))
    yield cirq.PhasedXZGate(x_exponent=T, z_exponent=s, axis_phase_exponent=T - s)
    yield from (cirq.FSimGate(T, s), cirq.PhasedFSimGate(T, s, 0.1, T, s), cirq.givens(T), cirq.cphase(s))
    yield from (cirq.rx(sympy.sin(T) + sympy.sqrt(s) / (1 + T**2)), cirq.GlobalPhaseGate(sympy.exp(sympy.I * T)))
    yield from ((cirq.X**T).controlled(2, control_values=[0, 1]), cirq.PhaseGradientGate(num_qubits=3, exponent=T))
    yield cirq.PauliStringPhasorGate(cirq.DensePauliString("XYZ"), exponent_neg=T, exponent_pos=s)


def test_symbols_stay_parameters():
    values = {"t": 0.7, "s": 1.3}
    for gate in open_gates():
        circuit = cirq.Circuit(gate.on(*Q[: cirq.num_qubits(gate)]))
        wanted = theirs_of(cirq.resolve_parameters(circuit, values))
        ours = to_velacamplix(circuit, Q)
        assert ours.parameters and {"t", "s"} >= set(ours.parameters) >= cirq.parameter_names(circuit), gate
        bound = ours.bind({name: values[name] for name in ours.parameters})
        np.testing.assert_allclose(matrix_of(bound), wanted, rtol=0, atol=1e-12, err_msg=repr(gate))
        back = cirq.resolve_parameters(from_velacamplix(ours), values)
        np.testing.assert_allclose(theirs_of(back), wanted, rtol=0, atol=1e-12, err_msg=repr(gate))


def test_angles_of_rotations_are_the_symbols_themselves():
    assert str(to_velacamplix(cirq.Circuit(cirq.rx(T / 2)(A)))) == "RX(t/2) 0"
    assert from_velacamplix(Circuit(1).ry(Parameter("t") / 2, 0)) == cirq.Circuit(cirq.ry(T / 2)(A))


# --- Bits ---


def outcomes(circuit):
    return run(circuit, shots=200, seed=1).counts


def test_keys_are_registers_and_come_back():
    circuit = cirq.Circuit(cirq.X(B), cirq.measure(A, B, key="m"), cirq.X(A), cirq.measure(A, key="n"))
    ours = to_velacamplix(circuit)
    assert [(r.name, r.size) for r in ours.registers] == [("q", 2), ("m", 2), ("n", 1)] and outcomes(ours) == {"011": 200}
    assert from_velacamplix(ours) == circuit
    assert Circuit.from_cirq(circuit, [B, A]) == to_velacamplix(circuit, [B, A]) and ours.to_cirq() == circuit
    assert outcomes(Circuit.from_cirq(circuit, [B, A])) == {"011": 200}


def test_repeated_keys_have_registers_of_their_own():
    circuit = cirq.Circuit(cirq.measure(A, key="q"), cirq.X(A), cirq.measure(A, key="q"))
    ours = to_velacamplix(circuit)
    assert len({r.name for r in ours.registers}) == 3 and outcomes(ours) == {"01": 200}


def test_records_are_inverted_and_misread_as_in_cirq():
    confusion = {(0,): np.array([[0.0, 1.0], [0.0, 1.0]])}  # always read 1, which the mask makes 0
    circuit = cirq.Circuit(
        cirq.measure(A, B, key="m", invert_mask=(True,), confusion_map=confusion),
        cirq.X(C).with_classical_controls(sympy.Eq(sympy.Symbol("m"), 0)), cirq.measure(C, B, key="n", invert_mask=(False, True)),
    )  # fmt: skip
    assert outcomes(to_velacamplix(circuit)) == {"0011": 200}
    assert dict(cirq.Simulator(seed=1).run(circuit, repetitions=20).multi_measurement_histogram(keys=["m", "n"])) == {(0, 3): 20}


XOR = sympy.Xor(*[sympy.Eq(sympy.IndexedBase("m")[place], 1) for place in (0, 1)])
CONDITIONS = {
    "a key": "m",
    "two keys": ("m", "n"),
    "a number": sympy.Eq(sympy.Symbol("m"), 2),
    "a number on the left": sympy.Lt(1, sympy.Symbol("m"), evaluate=False),
    "a comparison": sympy.Symbol("m") >= 2,
    "not": sympy.Ne(sympy.Symbol("m"), 3),
    "both": sympy.And(sympy.Symbol("m") > 1, sympy.Eq(sympy.Symbol("n"), 0)),
    "either": sympy.Or(sympy.Eq(sympy.Symbol("m"), 1), sympy.Eq(sympy.Symbol("n"), 1)),
    "a sum": sympy.Eq(sympy.Symbol("m") + sympy.Symbol("n"), 3),
    "more than there is": sympy.Symbol("m") > 7,
    **({"bits": XOR} if hasattr(cirq, "BitMaskKeyCondition") else {}),  # with single bits since Cirq 1.5
    "an earlier time": cirq.KeyCondition(cirq.MeasurementKey("n"), 0),
    "one that is always so": sympy.Symbol("m") >= 0,
}
if hasattr(cirq, "BitMaskKeyCondition"):
    CONDITIONS["a mask"] = cirq.BitMaskKeyCondition("m", bitmask=2)
    CONDITIONS["a mask and a number"] = cirq.BitMaskKeyCondition("m", bitmask=3, target_value=2, equal_target=True)
    CONDITIONS["a mask that hides it"] = cirq.BitMaskKeyCondition("m", bitmask=1, target_value=2, equal_target=True)


@pytest.mark.parametrize("name", CONDITIONS)
def test_conditions_hold_as_in_cirq(name):
    asked = CONDITIONS[name]
    conditions = asked if isinstance(asked, tuple) else (asked,)
    for bits in range(16):
        begin = [cirq.X(qubit) for place, qubit in enumerate(Q[:3]) if bits >> place & 1]
        circuit = cirq.Circuit(
            begin, cirq.measure(A, B, key="m"), cirq.measure(C, key="n"), [cirq.X(C)] * (bits >> 3), cirq.measure(C, key="n"),
            cirq.X(D).with_classical_controls(*conditions), cirq.measure(D, key="d"),
        )  # fmt: skip
        wanted = int(cirq.Simulator().run(circuit).records["d"][0, 0, 0])
        ours = to_velacamplix(circuit, Q)
        assert run(ours, shots=5).register_counts("d") == {str(wanted): 5}, bits
        back = from_velacamplix(ours)
        (last,) = [key for key in cirq.measurement_key_names(back) if key.startswith("d")]
        assert cirq.Simulator().run(back).records[last][0, 0, 0] == wanted


def test_decisions_go_to_cirq():
    ours = Circuit(3, 3).x(0).measure([0, 1], [0, 1])
    with ours.when([0, 1], "10"):
        ours.x(2)
    ours.if_(([0], 1), Circuit(3, 3).x(1).barrier(), Circuit(3, 3).x(0))
    ours.switch([0, 1], {"10": Circuit(3, 3).z(2), ("01", "11"): Circuit(3, 3).x(2)}, Circuit(3, 3).x(2))
    ours.if_(ours.bits([0, 1]) < 1, Circuit(3, 3).x(2))
    ours.measure(2, 2)
    theirs = from_velacamplix(ours)
    assert cirq.Simulator(dtype=np.complex128).run(theirs).measurements["c_2"][0, 0] == 1
    assert run(to_velacamplix(theirs), shots=5).register_counts("c_2") == {"1": 5}


def test_loops_until_something_holds():
    inside = cirq.FrozenCircuit(cirq.H(A), cirq.measure(A, key="m"))
    until = cirq.KeyCondition(cirq.MeasurementKey("m"))
    circuit = cirq.Circuit(cirq.CircuitOperation(inside, use_repetition_ids=False, repeat_until=until), cirq.measure(A, key="n"))
    assert outcomes(to_velacamplix(circuit)) == {"11": 200}


def test_circuit_operations_keep_their_keys_apart():
    inside = cirq.FrozenCircuit(cirq.X(A), cirq.measure(A, key="m"), cirq.X(B).with_classical_controls("m"))
    named = cirq.CircuitOperation(inside, repetitions=2, use_repetition_ids=True)
    circuit = cirq.Circuit(named, cirq.CircuitOperation(inside).with_measurement_key_mapping({"m": "k"}), cirq.measure(B, key="b"))
    ours = to_velacamplix(circuit)
    assert {r.name for r in ours.registers} == {"q", "0:m", "1:m", "k", "b"} and outcomes(ours) == {"1010": 200}


# --- Noise ---

class Composed(cirq.Gate):
    """A user's noise, which is made of other."""

    def _num_qubits_(self):
        return 2

    def _decompose_(self, qubits):
        return [cirq.bit_flip(0.2)(qubits[0]), cirq.CNOT(*qubits), cirq.amplitude_damp(0.3)(qubits[1])]

    def __str__(self):  # all processes of the tests know it by this
        return "composed"


CHANNELS = [
    Composed(),
    cirq.depolarize(0.1), cirq.depolarize(0.1, 2), cirq.bit_flip(0.2), cirq.phase_flip(0.3), cirq.amplitude_damp(0.3),
    cirq.phase_damp(0.4), cirq.generalized_amplitude_damp(0.3, 0.6), cirq.asymmetric_depolarize(0.1, 0.2, 0.3),
    cirq.asymmetric_depolarize(error_probabilities={"XY": 0.2, "ZI": 0.1, "II": 0.7}),
    cirq.KrausChannel(cirq.kraus(cirq.amplitude_damp(0.2))),
    cirq.MixedUnitaryChannel([(0.3, cirq.unitary(cirq.H)), (0.7, cirq.unitary(cirq.T))]),
    cirq.MixedUnitaryChannel([(0.3, cirq.testing.random_unitary(4, random_state=1)), (0.7, np.eye(4))]),
    (cirq.CX**0.3).with_probability(0.4), cirq.ResetChannel(), cirq.StatePreparationChannel(np.array([0.6, 0, 0, 0.8j])),
]  # fmt: skip


def density_of(circuit):
    return cirq.DensityMatrixSimulator(dtype=np.complex128).simulate(circuit, qubit_order=Q[:3]).final_density_matrix


@pytest.mark.parametrize("noise", CHANNELS, ids=str)
def test_noise_is_the_same_both_ways(noise):
    start = cirq.testing.random_circuit(Q[:3], 6, 0.9, random_state=3)
    qubits = [B, A][: cirq.num_qubits(noise)]
    circuit = cirq.Circuit(start, cirq.I.on_each(*Q[:3]), noise.on(*qubits), cirq.H(A))
    wanted = density_of(circuit)
    ours = to_velacamplix(circuit)
    got = DensityMatrix(3).run(ours).array
    places = [int(f"{number:03b}"[::-1], 2) for number in range(8)]
    np.testing.assert_allclose(got[np.ix_(places, places)], wanted, rtol=0, atol=1e-12)
    back = density_of(from_velacamplix(ours))
    np.testing.assert_allclose(back, wanted, rtol=0, atol=1e-12)


def test_density_matrices_in_cirqs_order():
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B) ** 0.3, cirq.amplitude_damp(0.2)(B))
    wanted = cirq.final_density_matrix(circuit, dtype=np.complex128)
    found = DensityMatrix(2).run(Circuit.from_cirq(circuit)).reduced(range(2), order="big")
    np.testing.assert_allclose(found, wanted, rtol=0, atol=1e-12)


# --- What is refused ---


class Odd(cirq.Gate):
    """A gate that tells nothing."""

    def _num_qubits_(self):
        return 1


class Wrong(cirq.Gate):
    """A gate whose matrix is none of a gate."""

    def _num_qubits_(self):
        return 1

    def _has_unitary_(self):
        return True

    def _unitary_(self):
        return np.array([[1, 1], [0, 1]])


REFUSED = {
    "qudits": (lambda: cirq.measure(cirq.LineQid(0, 3)), "no qudits"),
    "unknown": (lambda: Odd()(A), "neither a decomposition"),
    "not unitary": (lambda: Wrong()(A), "unitary"),
    "not unitary, unchecked": (lambda: cirq.MatrixGate(np.ones((2, 2)), unitary_check=False)(A), "unitary"),
    "key": (lambda: cirq.X(A).with_classical_controls("nowhere"), "nowhere missing"),
    "confusion": (lambda: cirq.measure(A, B, confusion_map={(0, 1): np.eye(4)}), "confusion"),
    "no probabilities": (lambda: cirq.measure(A, confusion_map={(0,): np.array([[1.5, -0.5], [0, 1]])}), "probabilities"),
    "keyed noise": (lambda: cirq.KrausChannel(cirq.kraus(cirq.bit_flip(0.1)), key="k")(A), "key"),
    "symbols in a diagonal": (lambda: cirq.DiagonalGate([T, 0.1])(A), "bind"),
    "noise with symbols": (lambda: (cirq.X**T).with_probability(0.5)(A), "bind"),
    "wide noise": (lambda: cirq.QuantumFourierTransformGate(5).with_probability(0.5)(*cirq.LineQubit.range(5)), "at most 4"),
    "no angle": (lambda: cirq.rx(sympy.Abs(T))(A), "cannot be converted"),
    "infinite": (lambda: cirq.XPowGate(exponent=math.inf)(A), "inf"),
}


@pytest.mark.parametrize("name", REFUSED)
def test_what_cannot_be_said_is_refused(name):
    make, word = REFUSED[name]
    with refused(NotConverted, word):
        to_velacamplix(cirq.Circuit(cirq.X(cirq.LineQubit(9)), cirq.Moment(make())))


def test_the_exception_tells_operation_and_moment():
    with pytest.raises(NotConverted) as caught:
        to_velacamplix(cirq.Circuit(cirq.X(A), cirq.H(A), Odd()(A)))
    assert caught.value.position == 2 and "Odd" in caught.value.instruction and "known" in caught.value.reason
    assert str(caught.value) == f"moment 2, {caught.value.instruction}: {caught.value.reason}"
    copy = pickle.loads(pickle.dumps(caught.value))
    assert str(copy) == str(caught.value) and isinstance(copy, ValueError)


TO_CIRQ = {
    "loop": (lambda: Circuit(1, 1).while_(([0], 0), Circuit(1, 1).x(0).measure(0, 0)), "loop"),
    "save": (lambda: Circuit(1).save_state("s"), "keeps"),
    "matrix": (lambda: Circuit(1).matrix([[1, 1], [0, 1]], 0, check=False), "unitary"),
    "measurement": (lambda: Circuit(1, 2).append(Instruction("measure", (0,), (), (), (0,), Circuit(1, 1).bits(0) == 0)), "under"),
}


@pytest.mark.parametrize("name", TO_CIRQ)
def test_what_cirq_lacks_is_refused(name):
    make, word = TO_CIRQ[name]
    with pytest.raises(NotConverted) as caught:
        from_velacamplix(make())
    assert word in caught.value.reason and str(caught.value).startswith("instruction 0, ")


def test_other_things_are_refused():
    with refused(TypeError, "cirq.Circuit"):
        to_velacamplix(Circuit(1))
    with refused(TypeError, "velacamplix.Circuit"):
        from_velacamplix(cirq.Circuit())
    with refused(TypeError, "Circuit.from_cirq(circuit)"):
        run(cirq.Circuit(cirq.X(A)))


def test_channels_of_this_package_go_to_cirq():
    noise = Channel.amplitude_damping(0.3).tensor(Channel.bit_flip(0.1))
    theirs = from_velacamplix(Circuit(2).h(0).cx(0, 1).channel(noise, [1, 0]))
    got = to_velacamplix(theirs)[2]
    assert got.qubits == (1, 0)
    np.testing.assert_allclose(got.detail.superoperator(), noise.superoperator(), rtol=0, atol=1e-12)
