"""Circuits that go to Qiskit and come back: every gate of both, what the libraries hold, random circuits."""

import math
import random

import numpy as np
import numpy_simulator
import pytest

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")

from qiskit import QuantumCircuit  # noqa: E402
from qiskit.circuit import Parameter as QiskitParameter  # noqa: E402
from qiskit.circuit import ParameterVector as QiskitVector  # noqa: E402
from qiskit.circuit import library  # noqa: E402
from qiskit.circuit.library import get_standard_gate_name_mapping  # noqa: E402
from qiskit.circuit.random import random_circuit  # noqa: E402
from qiskit.quantum_info import Operator, SparsePauliOp, Statevector, random_clifford, random_statevector, random_unitary  # noqa: E402

from support.random_circuits import random_gates  # noqa: E402
from velacamplix import Channel, Circuit, GateDefinition, Instruction, Observable, Parameter, ParameterVector, Register, run  # noqa: E402
from velacamplix.instructions.gates import GATES, with_controls  # noqa: E402
from velacamplix.qiskit import NotConverted, from_velacamplix, to_velacamplix  # noqa: E402

TOLERANCE = {"rtol": 0, "atol": 1e-12}
STANDARD = {name: gate for name, gate in get_standard_gate_name_mapping().items() if name not in ("measure", "reset", "delay")}


def same_both_ways(theirs, **tolerance):
    mine = to_velacamplix(theirs)
    wanted = Operator(theirs).data
    np.testing.assert_allclose(numpy_simulator.unitary(mine), wanted, **(tolerance or TOLERANCE))
    np.testing.assert_allclose(Operator(from_velacamplix(mine)).data, wanted, **(tolerance or TOLERANCE))
    return mine


# --- Gates ---


@pytest.mark.parametrize("name", STANDARD)
def test_every_standard_gate(name):
    gate = STANDARD[name]
    numbers = [0.3 + 0.7 * place for place in range(len(gate.params))]
    circuit = QuantumCircuit(gate.num_qubits + 1, global_phase=0.25)
    circuit.append(type(gate.base_class(*numbers) if hasattr(gate, "base_class") else gate)(*numbers), list(range(gate.num_qubits))[::-1])
    same_both_ways(circuit)
    # Parameters stay parameters.
    listed = [QiskitParameter(f"p{place}") for place in range(len(numbers))]
    open_one = QuantumCircuit(gate.num_qubits + 1, global_phase=0.25)
    open_one.append(gate.base_class(*listed), list(range(gate.num_qubits))[::-1])
    mine = to_velacamplix(open_one)
    assert set(mine.parameters) == {parameter.name for parameter in open_one.parameters} == {p.name for p in listed}
    values = dict(zip(["p0", "p1", "p2", "p3"], numbers))
    assert mine.bind(values) == to_velacamplix(circuit)
    back = from_velacamplix(mine)
    assert [p.name for p in back.parameters] == [p.name for p in listed]
    np.testing.assert_allclose(Operator(back.assign_parameters(values)).data, Operator(circuit).data, **TOLERANCE)


@pytest.mark.parametrize("name", [name for name, gate in STANDARD.items() if hasattr(gate, "num_ctrl_qubits")])
def test_every_standard_gate_with_controls_on_0(name):
    gate = STANDARD[name]
    numbers = [0.3 + 0.7 * place for place in range(len(gate.params))]
    circuit = QuantumCircuit(gate.num_qubits)
    circuit.append(gate.base_class(*numbers, ctrl_state=0), range(gate.num_qubits))
    same_both_ways(circuit)


@pytest.mark.parametrize("control_values", ["", "1", "0", "11", "01", "101"])
@pytest.mark.parametrize("name", GATES)
def test_every_gate_of_the_table(name, control_values):
    gate, n = GATES[name], len(control_values)
    controls = tuple(range(gate.n_qubits, gate.n_qubits + n))
    params = tuple([-Parameter(f"p{place}") for place in range(gate.n_params)])
    step = Instruction(name, tuple(range(gate.n_qubits))[::-1], params, controls, control_values=control_values if "0" in control_values else "")
    circuit = Circuit(gate.n_qubits + n).append(step)
    back = to_velacamplix(from_velacamplix(circuit))
    values = {f"p{place}": 0.3 + place for place in range(gate.n_params)}
    wanted = numpy_simulator.unitary(circuit.bind(values))
    np.testing.assert_allclose(numpy_simulator.unitary(back.bind(values)), wanted, **TOLERANCE)
    np.testing.assert_allclose(Operator(from_velacamplix(circuit.bind(values))).data, wanted, **TOLERANCE)
    if not n:
        assert back == circuit


def library_circuits():
    theta = QiskitParameter("theta")
    pauli = SparsePauliOp(["XYZ", "ZZI", "IIY"], [0.3, -0.4, 0.5])
    return {
        "unitary": library.UnitaryGate(random_unitary(8, seed=1)),
        "unitary under controls": library.UnitaryGate(random_unitary(4, seed=1)).control(2, ctrl_state=1, annotated=False),
        "diagonal": library.DiagonalGate(np.exp(1j * np.arange(8)).tolist()),
        "permutation": library.PermutationGate([2, 4, 3, 0, 1]),
        "pauli": library.PauliGate("XYIZ"),
        "one evolution": library.PauliEvolutionGate(SparsePauliOp("XYZ"), 0.7),
        "evolution": library.PauliEvolutionGate(pauli, 0.7),
        "evolution in a list": library.PauliEvolutionGate([pauli, SparsePauliOp("ZIX")], 0.2),
        "mcx": library.MCXGate(4), "mcx of values": library.MCXGate(3, ctrl_state=2), "mcphase": library.MCPhaseGate(0.3, 3),
        "state preparation": library.StatePreparation(random_statevector(8, seed=2).data),
        "uniform ry": library.UCRYGate([0.1, 0.2, 0.3, 0.4]), "uniform": library.UCGate([random_unitary(2, seed=i).data for i in range(4)]),
        "clifford": random_clifford(3, seed=2), "a power": library.SXGate().power(0.5), "a controlled rotation": library.RZXGate(0.3).control(2, annotated=False),
        "annotated": library.RYGate(0.3).control(2, ctrl_state=1, annotated=True), "linear function": library.LinearFunction([[1, 1], [0, 1]]),
        "open": library.PauliEvolutionGate(SparsePauliOp(["XX", "ZZ"]), theta),
        **({"qft": library.QFTGate(3)} if hasattr(library, "QFTGate") else {}),  # since Qiskit 1.2
    }  # fmt: skip


@pytest.mark.parametrize("name", library_circuits())
@pytest.mark.filterwarnings("ignore::scipy.sparse.SparseEfficiencyWarning")
def test_gates_of_the_library(name):
    gate = library_circuits()[name]
    made = circuit = QuantumCircuit(gate.num_qubits)
    circuit.append(gate, range(gate.num_qubits))
    if name.startswith("evolution"):  # Qiskit's matrix is the exponential; what happens is the formula that the gate has
        circuit = gate.definition
        np.testing.assert_array_equal(numpy_simulator.unitary(to_velacamplix(made)), numpy_simulator.unitary(to_velacamplix(circuit)))
    if circuit.parameters:
        mine = to_velacamplix(circuit)
        assert mine.parameters == ("theta",)
        circuit = circuit.assign_parameters({"theta": 0.6})
        np.testing.assert_allclose(numpy_simulator.unitary(mine.bind(theta=0.6)), Operator(circuit).data, **TOLERANCE)
    same_both_ways(circuit, rtol=0, atol=1e-10)


def with_ancillas():
    circuit = QuantumCircuit(5)
    circuit.mcx([0, 1, 2], 3, [4], mode="recursion")
    return circuit


CIRCUITS = {
    "qft": lambda: library.QFT(4), "controlled": lambda: library.QFT(2).control(1), "ansatz": lambda: library.EfficientSU2(3).assign_parameters(np.arange(24) * 0.1),
    "features": lambda: library.ZZFeatureMap(3).assign_parameters([0.1, 0.2, 0.3]), "adder": lambda: library.CDKMRippleCarryAdder(2),
    "volume": lambda: library.QuantumVolume(4, seed=1), "estimation": lambda: library.PhaseEstimation(2, library.QFT(2)),
    "iqp": lambda: library.IQP([[6, 5, 3], [5, 4, 5], [3, 5, 1]]), "ancillas": with_ancillas,
}  # fmt: skip


@pytest.mark.parametrize("name", CIRCUITS)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_circuits_of_the_library(name):
    same_both_ways(CIRCUITS[name]())


@pytest.mark.parametrize(
    "state, qubits", [("01+", [2, 0, 1]), ("rl-", [0, 1, 2]), (5, [1, 2, 0]), (random_statevector(8, seed=4), [2, 1, 0]), ([0, 1], 1)]
)
def test_initialize(state, qubits):
    circuit = QuantumCircuit(3)
    circuit.initialize(state, qubits)
    mine = to_velacamplix(circuit)
    assert mine[0].name == "reset"
    wanted = Statevector(circuit).data
    np.testing.assert_allclose(run(mine).state.array, wanted, **TOLERANCE)
    np.testing.assert_allclose(run(to_velacamplix(from_velacamplix(mine))).state.array, wanted, **TOLERANCE)


def test_what_is_no_gate():
    circuit = QuantumCircuit(3, 2)
    circuit.barrier(2, 0)
    circuit.delay(100, 1)
    circuit.reset(1)
    circuit.measure([2, 0], [0, 1])
    mine = to_velacamplix(circuit)
    assert str(mine) == "barrier 2,0\nreset 1\nmeasure 2 -> 0\nmeasure 0 -> 1"
    assert to_velacamplix(from_velacamplix(mine)) == mine
    together = from_velacamplix(Circuit(3, 2).reset([0, 2]).measure([0, 2], [1, 0]))
    assert str(to_velacamplix(together)) == "reset 0\nreset 2\nmeasure 0 -> 1\nmeasure 2 -> 0"


def test_a_circuit_as_an_instruction():
    inner = QuantumCircuit(2, 1, name="measured")
    inner.h(0)
    inner.measure(1, 0)
    circuit = QuantumCircuit(3, 2)
    circuit.append(inner.to_instruction(), [2, 0], [1])
    assert str(to_velacamplix(circuit)) == "H 2\nmeasure 0 -> 1"


# --- Definitions, parameters, names ---


def test_definitions_come_back():
    a, b = Parameter("a"), Parameter("b")
    turn = GateDefinition("turn", Circuit(2).rx(a, 0).barrier(0, 1).crz(a * b, 0, 1).gphase(b / 2))
    outer = GateDefinition("outer", Circuit(3).gate(turn, [2, 0], [a, 0.5]).h(1).gate(turn, [1, 0], [a, 0.5], controls=2))
    circuit = Circuit(4).gate(outer, [3, 1, 0], [2 * b]).gate(turn, [0, 1], [0.25, b], controls=[2, 3], control_values="01")
    theirs = from_velacamplix(circuit)
    assert theirs.data[0].operation.name == "outer" and [p.name for p in theirs.parameters] == ["b"]
    wanted = numpy_simulator.unitary(circuit.bind(b=0.7))
    np.testing.assert_allclose(Operator(theirs.assign_parameters({"b": 0.7})).data, wanted, **TOLERANCE)
    back = to_velacamplix(theirs)
    assert back[0].definition.name == "outer" and back.parameters == ("b",)
    np.testing.assert_allclose(numpy_simulator.unitary(back.bind(b=0.7)), wanted, **TOLERANCE)


def expressions(x, y):
    return [
        x, x / 3, 0.1 * x + y - 2, -(x * y), x**2 / y, 1 / (x + 1), 2 - x, (x * y + 0.123456789012345678), x * 1e-20, x - y - (x + y),
        x.sin() * y.cos() if hasattr(x, "sin") else 0, (x / 10).tan(), (y / 2).exp(), (x + 5).log(), -x / -y,
    ]  # fmt: skip


@pytest.mark.parametrize("place", range(15))
def test_expressions(place):
    theirs = (expressions(QiskitParameter("x"), QiskitParameter("y[0]")) + [])[place]
    mine = expressions(Parameter("x"), Parameter("y[0]"))[place]
    circuit = QuantumCircuit(1, global_phase=theirs)
    circuit.rx(theirs, 0)
    converted = to_velacamplix(circuit)
    back = from_velacamplix(Circuit(1).gphase(mine).rx(mine, 0))
    values = {"x": 0.7, "y[0]": 1.3}
    wanted = mine.evaluate(values)
    for step in converted.bind({name: value for name, value in values.items() if name in converted.parameters}):
        assert step.params[0] == pytest.approx(wanted, rel=1e-14)
    bound = back.assign_parameters({p: values[p.name] for p in back.parameters})
    assert float(bound.data[0].operation.params[0]) == pytest.approx(wanted, rel=1e-14)


def test_functions_that_have_no_word_in_both():
    x = QiskitParameter("x")
    circuit = QuantumCircuit(1)
    for angle in (x.arcsin(), x.arccos(), x.arctan(), x**0.5):
        circuit.rx(angle, 0)
    mine = to_velacamplix(circuit)
    numbers = [step.params[0] for step in mine.bind(x=0.3)]
    assert numbers == pytest.approx([math.asin(0.3), math.acos(0.3), math.atan(0.3), math.sqrt(0.3)], rel=1e-15)
    y = Parameter("x")
    for value in (np.arcsin(y), np.arccos(y), np.arctan(y), np.sqrt(y)):
        ours = Circuit(1).rx(value, 0)
        bound = from_velacamplix(ours).assign_parameters({"x": 0.3})
        assert float(bound.data[0].operation.params[0]) == pytest.approx(ours.bind(x=0.3)[0].params[0], rel=1e-15)


def test_vectors_stay_vectors():
    theta = ParameterVector("theta", 12)
    theirs = Circuit(12).rx(theta, range(12)).to_qiskit()
    assert [p.name for p in theirs.parameters] == [f"theta[{place}]" for place in range(12)]  # 2 before 10
    assert theirs.assign_parameters(np.arange(12.0)).data[11].operation.params == [11.0]
    assert len({p.vector for p in theirs.parameters}) == 1
    assert Circuit.from_qiskit(theirs) == Circuit(12).rx(theta, range(12))
    phi = QiskitVector("phi", 3)
    circuit = QuantumCircuit(1)
    circuit.rx(phi[2], 0)
    assert Circuit.from_qiskit(circuit).parameters == ("phi[2]",)
    assert [p.name for p in Circuit.from_qiskit(circuit).to_qiskit().parameters] == ["phi[2]"]


def test_registers_come_back():
    registers = [Register("left", "quantum", 0, 2), Register("right", "quantum", 2, 1), Register("out", "classical", 0, 2)]
    circuit = Circuit(3, 2, registers=registers).h(2).measure(2, 1)
    theirs = circuit.to_qiskit()
    assert [(r.name, r.size) for r in [*theirs.qregs, *theirs.cregs]] == [("left", 2), ("right", 1), ("out", 2)]
    assert Circuit.from_qiskit(theirs) == circuit


def test_phases_keep_their_bits():
    for angle in (0.5, -0.1, 7.0, 2 * math.pi, 0.0):
        circuit = Circuit(1).gphase(angle).h(0)
        back = to_velacamplix(from_velacamplix(circuit))
        assert back == (circuit if angle else Circuit(1).h(0))


def test_classes_that_inherit():
    class Mine(Circuit):
        pass

    circuit = QuantumCircuit(2, 1)
    circuit.h(1)
    circuit.measure(1, 0)
    made = Mine.from_qiskit(circuit)
    assert type(made) is Mine and str(made) == "H 1\nmeasure 1 -> 0"
    assert made.to_qiskit() == circuit and Circuit.from_qiskit(circuit) == made


REFUSED = {
    "noise": (lambda: Circuit(1).channel(Channel.bit_flip(0.1), 0), "Qiskit's circuits have no noise"),
    "a save": (lambda: Circuit(1).save_state("s"), "Qiskit's circuits have no instruction that keeps"),
    "no unitary": (lambda: Circuit(1).matrix([[1, 1], [0, 1]], 0, check=False), "not unitary"),
    "no diagonal": (lambda: Circuit(1).diagonal([1, 2], 0, check=False), "diagonal"),
    "a switch on parts of a register": (
        lambda: Circuit(1, 3).switch([0, 2], {1: lambda inner: inner.x(0)}), "must be on one bit or a whole register"
    ),
    "inside": (lambda: Circuit(1, 1).if_((0, 1), lambda inner: inner.save_state("s")), "Qiskit's circuits have no instruction"),
}  # fmt: skip


@pytest.mark.parametrize("case", REFUSED)
def test_what_is_refused_is_named_with_its_position(case):
    make, reason = REFUSED[case]
    n = make().n_qubits
    circuit = Circuit(n, make().n_clbits).h(0).compose(make())
    with pytest.raises(NotConverted, match=f"^instruction 1, .*{reason}") as caught:
        from_velacamplix(circuit)
    assert caught.value.position == 1 and caught.value.instruction == circuit[1].title
    with pytest.raises(TypeError, match="circuit must be a velacamplix.Circuit, got"):
        from_velacamplix(QuantumCircuit(1))


# --- Random circuits ---


@pytest.mark.parametrize("first", range(0, 200, 20))
def test_random_circuits(first):
    for seed in range(first, first + 20):
        theirs = random_circuit(2 + seed % 4, 6, max_operands=4, seed=seed)
        mine = same_both_ways(theirs)
        assert to_velacamplix(from_velacamplix(mine)) == mine, seed
        np.testing.assert_allclose(run(mine).state.array, Statevector(theirs).data, **TOLERANCE)


@pytest.mark.parametrize("first", range(0, 240, 24))
def test_random_circuits_of_this_package(first):
    for seed in range(first, first + 24):
        circuit, values = random_gates(seed)
        theirs = from_velacamplix(circuit)
        back = to_velacamplix(theirs)
        assert back.parameters == circuit.parameters, seed
        # X with a control comes back as the CNOT that it is, the terms of a sum in another order, and Qiskit 1 tells their
        # numbers with 15 digits.
        steps = [with_controls(step.name, step.qubits, step.controls, step.params, step.control_values) for step in circuit]
        assert values or list(back) == steps, seed
        for found, step in zip(back.bind(values), Circuit.from_instructions(steps, circuit.n_qubits).bind(values), strict=True):
            assert found._replace(params=()) == step._replace(params=()), seed
            assert found.params == pytest.approx(step.params, rel=1e-13, abs=1e-13), seed
        wanted = circuit.bind(values).to_matrix()
        np.testing.assert_allclose(Operator(theirs.assign_parameters(values)).data, wanted, err_msg=str(seed), **TOLERANCE)


A, B = Parameter("a"), Parameter("b")


def random_flow(rng, circuit, depth):
    """Gates, measurements, decisions and loops, in each other; nothing that measures several bits at once."""
    c, bits = circuit.bits("c"), circuit.bits([2, 0])
    for _ in range(rng.randint(1, 3)):
        condition = rng.choice(
            [c == rng.randrange(8), c < 5, c >= 3, c != 2, c[0] & ~c[2], c[1] | (c > 3), c[0] ^ c[1], ~((c == 1) | c[2]),
             bits < rng.randrange(4), bits <= rng.randrange(4), bits > rng.randrange(4), bits >= 2, bits != 1, bits == 2]
        )  # fmt: skip
        inside = lambda inner: random_flow(rng, inner, depth - 1)  # noqa: E731
        kind = rng.choice(["gate", "measure", "when", "if", "if else", "while", "switch"] if depth else ["gate", "measure", "when"])
        if kind == "gate":
            circuit.rx(0.25 + rng.random(), rng.randrange(3)).cx(0, rng.choice([1, 2])).gphase(rng.random())
        elif kind == "measure":
            circuit.measure(rng.randrange(3), rng.randrange(3))
        elif kind == "when":
            with circuit.when(condition):
                rng.choice([lambda: circuit.cx(0, 1), lambda: circuit.reset(2), lambda: circuit.measure(1, 1)])()
        elif kind == "if":
            circuit.if_(condition, inside)
        elif kind == "if else":
            circuit.if_(condition, inside, inside)
        elif kind == "while":
            circuit.while_(c[0] == 1, lambda inner: (inside(inner), inner.h(0).measure(0, 0))[1])
        else:
            circuit.switch(c, {rng.randrange(4): inside, (5, 6): inside}, rng.choice([None, inside]))


def carried_out(steps, branches, n):
    """What becomes of unnormalised density matrices, by the bits that were read."""
    for step in steps:
        made = {}
        for bits, rho in branches.items():
            for key, part in one_step(step, bits, rho, n).items():
                made[key] = made.get(key, 0) + part
        branches = {bits: rho for bits, rho in made.items() if abs(np.trace(rho)) > 1e-14}
    return branches


def one_step(step, bits, rho, n):
    detail = step.detail
    if step.condition is not None:
        return one_step(step._replace(condition=None), bits, rho, n) if step.condition.holds(bits) else {bits: rho}
    if step.name == "if":
        return carried_out(detail.body if detail.condition.holds(bits) else detail.otherwise, {bits: rho}, n)
    if step.name == "switch":
        value = sum([(bits >> bit & 1) << place for place, bit in enumerate(detail.clbits)])
        return carried_out(next((body for values, body in detail.cases if value in values), detail.default), {bits: rho}, n)
    if step.name == "while":
        going, done = {bits: rho}, {}
        for _ in range(40):
            for key, part in going.items():
                if not detail.condition.holds(key):
                    done[key] = done.get(key, 0) + part
            going = carried_out(detail.body, {key: part for key, part in going.items() if detail.condition.holds(key)}, n)
        return done
    if step.name in ("measure", "reset"):
        made = {}
        (qubit,) = step.qubits
        for value in (0, 1):
            there = np.array([index >> qubit & 1 == value for index in range(2**n)])
            part = rho * np.outer(there, there)
            key = bits
            if step.name == "measure":
                key = bits & ~(1 << step.clbits[0]) | value << step.clbits[0]
            elif value:
                order = np.arange(2**n) ^ 1 << qubit
                part = part[np.ix_(order, order)]
            made[key] = made.get(key, 0) + part
        return made
    unitary = numpy_simulator.unitary(Circuit(n).append(step))
    return {bits: unitary @ rho @ unitary.conj().T}


@pytest.mark.parametrize("seed", range(60))
def test_random_decisions_and_loops(seed):
    circuit = Circuit(3, 3)
    random_flow(random.Random(seed), circuit, 2)
    back = to_velacamplix(from_velacamplix(circuit))
    rho = np.zeros((8, 8), dtype=complex)
    rho[0, 0] = 1
    wanted, found = [carried_out(list(one), {0: rho}, 3) for one in (circuit, back)]
    assert set(wanted) == set(found)
    for bits, density in wanted.items():
        np.testing.assert_allclose(found[bits], density, **TOLERANCE)


def test_many_gates_in_different_orders():
    rng = random.Random(5)
    theirs, mine = QuantumCircuit(6), Circuit(6)
    for _ in range(2000):
        first, second = rng.sample(range(6), 2)
        angle = rng.uniform(-7, 7)
        theirs.cp(angle, first, second)
        theirs.ry(angle, second)
        mine.cp(angle, first, second).ry(angle, second)
    assert to_velacamplix(theirs) == mine and from_velacamplix(mine) == theirs


@pytest.mark.parametrize("angle", [float("nan"), float("inf"), 10**400])
def test_numbers_that_are_no_angles(angle):
    theirs = QuantumCircuit(1)
    theirs.h(0)
    theirs.rx(angle, 0)
    with pytest.raises(NotConverted, match="^instruction 1, 'rx' on qubits 0: angle must be"):
        to_velacamplix(theirs)


def test_an_observable_after_a_conversion():
    theirs = QuantumCircuit(3)
    theirs.ry(0.4, 0)
    theirs.cx(0, 2)
    operator = SparsePauliOp(["ZIX", "IYY", "ZZI"], [0.5, 1.0, -0.25])
    energy = Observable(dict(zip(operator.paulis.to_labels(), operator.coeffs.real)), order="little")
    mine = run(Circuit.from_qiskit(theirs)).expectation(energy)
    assert mine == pytest.approx(Statevector(theirs).expectation_value(operator).real, abs=1e-14)
