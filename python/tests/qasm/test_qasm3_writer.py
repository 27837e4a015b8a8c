"""Circuits as OpenQASM 3: what is written, read again by this package and by Qiskit."""

import random

import numpy as np
import numpy_simulator
import pytest
from random_circuits import random_circuit
from test_qasm3_programs import CONDITIONS

from velacamplix import Circuit, Condition, GateDefinition, If, Instruction, Observable, Parameter, Register, StateVector, run
from velacamplix.instructions.flow import flow_step
from velacamplix.instructions.gates import GATES

A, B = Parameter("a"), Parameter("b")


def again(circuit):
    """The circuit of what is written, which must be written just so once more."""
    text = circuit.to_qasm3()
    read = Circuit.from_qasm3(text)
    assert read.to_qasm3() == text
    return read


def body(circuit):
    """The statements of a program, without the head and the registers."""
    return [line for line in circuit.to_qasm3().splitlines()[2:] if not line.startswith(("qubit[", "bit["))]


# --- Gates ---


@pytest.mark.parametrize("values", ["", "0", "1", "01", "10", "00", "101", "0110"], ids=lambda text: text or "none")
def test_every_gate_with_controls_of_both_values_comes_back(values):
    for name, gate in GATES.items():
        qubits = list(range(gate.n_qubits + len(values)))
        random.Random(name + values).shuffle(qubits)
        own, controls = tuple(qubits[len(values) :]), tuple(qubits[: len(values)])
        for params in ([0.1, -2.5, 1e-20, 3.0], [A, 2 * A - B / 3, -(A**2) + B.sin(), (A * B).arctan().exp()]):
            read = values if "0" in values else ""
            step = Instruction(name, own, tuple(params[: gate.n_params]), controls, control_values=read)
            circuit = Circuit(len(qubits)).append(step)
            assert again(circuit) == circuit, name


def random_gates(seed):
    """Gates of all kinds, under controls of both values, and two definitions, one of which calls the other."""
    rng, circuit = random.Random(seed), Circuit(4)
    inner = GateDefinition("inner", Circuit(2).rzz(A, 0, 1).h(0, controls=1, control_values=0).rx(A / 2 + 1, 1))
    outer = GateDefinition("outer", Circuit(2).gate(inner, [1, 0], [2 * B]).iswap(0, 1), ["b"])
    for _ in range(12):
        if rng.random() < 0.2:
            circuit.gate(outer, rng.sample(range(4), 2), [rng.uniform(-3, 3)])
            continue
        gate = GATES[rng.choice(list(GATES))]
        n = rng.randint(0, 4 - gate.n_qubits)
        qubits = tuple(rng.sample(range(4), gate.n_qubits + n))
        values = "".join(rng.choices("01", k=n))
        params = tuple([rng.uniform(-3, 3) for _ in range(gate.n_params)])
        circuit.append(Instruction(gate.name, qubits[n:], params, qubits[:n], control_values=values if "0" in values else ""))
    return circuit


@pytest.mark.parametrize("seed", range(40))
def test_states_have_the_same_bits_there_and_back(seed):
    circuit = random_gates(seed)
    read = again(circuit)
    for precision in ("double", "single"):
        state, other = [StateVector(4, precision).run(which).array.tobytes() for which in (circuit, read)]
        assert state == other
    measured = random_circuit(seed)
    assert run(again(measured), shots=50, seed=seed).counts == run(measured, shots=50, seed=seed).counts


@pytest.mark.filterwarnings("ignore::DeprecationWarning")
@pytest.mark.parametrize("seed", range(20))
def test_random_circuits_are_what_qiskit_reads(seed):
    qasm3 = pytest.importorskip("qiskit.qasm3", reason="needs Qiskit: pip install velacamplix[test]")
    pytest.importorskip("qiskit_qasm3_import", reason="needs Qiskit's importer: pip install velacamplix[test]")
    from qiskit.quantum_info import Operator

    circuit = random_gates(seed)
    theirs = Operator(qasm3.loads(circuit.to_qasm3())).data
    np.testing.assert_allclose(theirs, numpy_simulator.unitary(circuit), rtol=0, atol=1e-12)


def test_gates_are_written_in_the_words_of_the_language():
    circuit = Circuit(4).h(0).cx(0, 1).x(1, controls=0).rx(0.5, 2, controls=[0]).rx(0.5, 2, controls=[0, 1]).ccx(0, 1, 2).u(1, 2, 3, 0)
    circuit.sx(0).sxdg(0).p(np.pi / 4, 1).s(0, controls=[1, 2, 3], control_values="011").id(3).cu(1, 2, 3, 4, 0, 1).barrier().barrier(1, 3)
    assert body(circuit) == [
        "h q[0];", "cx q[0], q[1];", "ctrl @ x q[0], q[1];", "crx(0.5) q[0], q[2];", "ctrl(2) @ rx(0.5) q[0], q[1], q[2];",
        "ccx q[0], q[1], q[2];", "U(1.0, 2.0, 3.0) q[0];", "sx q[0];", "inv @ sx q[0];", "p(pi/4) q[1];",
        "negctrl @ ctrl(2) @ s q[1], q[2], q[3], q[0];", "id q[3];", "cu(1.0, 2.0, 3.0, 4.0) q[0], q[1];", "barrier q;",
        "barrier q[{1, 3}];",
    ]  # fmt: skip


def test_other_gates_come_with_their_definition():
    text = Circuit(3).ryy(0.5, 0, 1).iswap(1, 2).iswap(0, 1).to_qasm3()
    assert text.splitlines()[2:6] == [
        "gate rzz(a) q0, q1 { cx q0, q1; rz(a) q1; cx q0, q1; }",
        "gate rxx(a) q0, q1 { h q0; h q1; rzz(a) q0, q1; h q0; h q1; }",
        "gate ryy(a) q0, q1 { sdg q0; sdg q1; rxx(a) q0, q1; s q0; s q1; }",
        "gate iswap q0, q1 { s q0; s q1; cz q0, q1; swap q0, q1; }",
    ]
    assert text.count("gate ") == 4


# --- Names ---


def test_parameters_become_inputs_under_names_the_language_has():
    names = ["theta", "theta[0]", "θ", "pi", "measure", "q", "h", "2nd", "a b", "a_b", "sin", "U", "_x", "a-b", "²x", "e\u0301"]
    circuit = Circuit(2)
    for name in names:
        circuit.rx(Parameter(name), 0)
    read = again(circuit)
    assert list(read.parameters) == [
        "theta", "theta_0_", "θ", "pi_2", "measure_2", "q_2", "h_2", "p_2nd", "a_b", "a_b_2", "sin_2", "U_2", "_x", "a_b_3",
        "p__x", "e_",
    ]  # fmt: skip
    values = list(np.arange(len(names)) / 7)
    assert read.bind(values) == circuit.bind(values)


def test_definitions_have_names_of_their_own():
    inner = GateDefinition("box", Circuit(1).h(0))
    other = GateDefinition("a gate!", Circuit(1).gate(inner, 0).rx(Parameter("pi"), 0).rz(Parameter("x y"), 0), ["pi", "x y"])
    twin = GateDefinition("q", Circuit(1).gate(other, 0, [1, 2]))
    circuit = Circuit(2).gate(twin, 0).gate(other, 1, [A, B], controls=0).gate(GateDefinition("box", Circuit(1).x(0)), 1)
    text = circuit.to_qasm3()
    assert text.splitlines()[3:8] == [
        "input float[64] b;", "gate box_2 q0 { h q0; }", "gate a_gate_(p, p_2) q0 { box_2 q0; rx(p) q0; rz(p_2) q0; }",
        "gate q_2 q0 { a_gate_(1.0, 2.0) q0; }", "gate box_3 q0 { x q0; }",
    ]  # fmt: skip
    read = again(circuit)
    np.testing.assert_allclose(
        numpy_simulator.unitary(read.bind(a=0.3, b=0.7)), numpy_simulator.unitary(circuit.bind(a=0.3, b=0.7)), rtol=0, atol=1e-15
    )


@pytest.mark.parametrize("name", ["for", "pi", "h", "U", "a b", "1st", "measure", "sin", "ctrl"])
def test_registers_of_other_names_are_refused(name):
    circuit = Circuit(1, registers=[Register(name, "quantum", 0, 1)])
    with pytest.raises(ValueError, match=f"register '{name}' cannot be written in OpenQASM 3: a name must begin with a letter"):
        circuit.to_qasm3()


def test_registers_keep_names_and_order():
    registers = [
        Register("Ω", "classical", 0, 2), Register("_x", "quantum", 0, 1), Register("rest", "quantum", 1, 2), Register("d", "classical", 2, 1),
        Register("none", "quantum", 3, 0),
    ]  # fmt: skip
    circuit = Circuit(3, 3, registers=registers).h(2).measure(2, 1)
    assert again(circuit) == circuit and again(circuit).registers == tuple(registers)


# --- Measurements and decisions ---


def several_registers():
    registers = [
        Register("c", "classical", 0, 3), Register("q", "quantum", 0, 2), Register("d", "classical", 3, 2), Register("r", "quantum", 2, 2),
    ]  # fmt: skip
    return Circuit(4, 5, registers=registers)


def test_measurements_of_any_bits_stay_one():
    circuit = several_registers().measure([0, 1], [3, 4]).measure([3, 0], [2, 4]).measure([1, 0], [0, 2]).measure(2, 1).reset([0, 1]).reset([1, 2])
    assert body(circuit) == [
        "let bits = c[{2}] ++ d[{1}];", "let qubits = r[{1}] ++ q[{0}];", "let qubits_2 = q[{1}] ++ r[{0}];",
        "d = measure q;", "bits = measure qubits;", "c[{0, 2}] = measure q[{1, 0}];", "c[1] = measure r[0];", "reset q;",
        "reset qubits_2;",
    ]  # fmt: skip
    assert again(circuit) == circuit


@pytest.mark.parametrize("text", CONDITIONS)
def test_every_condition_comes_back(text):
    condition = CONDITIONS[text]
    circuit = Circuit(1, 4, registers=[Register("q", "quantum", 0, 1), Register("c", "classical", 0, 3), Register("d", "classical", 3, 1)])
    step = Instruction("X", (0,))
    circuit.append(step._replace(condition=condition)).append(flow_step(If(condition, (step,), (step, step))))
    assert again(circuit) == circuit


def test_a_switch_without_cases_always_does_the_rest():
    circuit = Circuit(1, 1).switch("c", {}, lambda default: default.x(0))
    assert body(circuit) == ["{", "  x q[0];", "}"]


def test_conditions_across_registers_and_on_many_bits():
    circuit = several_registers()
    with circuit.when([0, 4], "10"):
        circuit.x(0).measure([0, 1], [1, 2])
    with circuit.when(circuit.bits([1, 3]) < 2):
        circuit.y(1)
    assert again(circuit) == circuit
    wide = Circuit(1, 5000)
    for value in (1, 2**4999, 2**5000 - 1, 3**3000):
        wide.append(Instruction("X", (0,), condition=Condition(tuple(range(5000)), value)))
    assert again(wide) == wide
    wide.append(Instruction("X", (0,), condition=Condition(tuple(range(5000)), 2**4999, "<")))
    with pytest.raises(ValueError, match="a number of 5000 bits in a condition cannot be written in OpenQASM 3"):
        wide.to_qasm3()


def random_flow(rng, circuit, depth):
    """Instructions of all kinds, decisions and loops among them."""
    for _ in range(rng.randint(1, 4)):
        c = circuit.bits("c")
        condition = rng.choice([c == rng.randrange(8), c < 5, c != 2, c[0] & ~c[2], c[1] | (c >= 3), c[0] ^ c[1], ~((c == 1) | c[2])])
        inside = lambda inner: random_flow(rng, inner, depth - 1)  # noqa: E731
        kind = rng.choice(["gate", "measure", "when", "if", "if else", "while", "switch"] if depth else ["gate", "measure", "when"])
        if kind == "gate":
            circuit.rx(rng.choice([0.25, A, A * 2 - B]), rng.randrange(3), controls=[])
        elif kind == "measure":
            circuit.measure(rng.sample(range(3), 2), rng.sample(range(3), 2))
        elif kind == "when":
            with circuit.when(condition):
                rng.choice([lambda: circuit.cx(0, 1), lambda: circuit.reset(2), lambda: circuit.measure(1, 1)])()
        elif kind == "if":
            circuit.if_(condition, inside)
        elif kind == "if else":
            circuit.if_(condition, inside, inside)
        elif kind == "while":
            circuit.while_(c[0] == 1, lambda inner: (inside(inner), inner.measure(0, 0))[1])
        else:
            circuit.switch(c, {rng.randrange(4): inside, (5, 6): inside}, rng.choice([None, inside]))


@pytest.mark.parametrize("seed", range(40))
def test_random_decisions_and_loops_come_back(seed):
    circuit = Circuit(3, 3)
    random_flow(random.Random(seed), circuit, 3)
    assert again(circuit) == circuit


@pytest.mark.parametrize("seed", range(20))
def test_circuits_of_both_versions_are_the_same(seed):
    circuit = random_circuit(seed)
    assert again(circuit) == circuit
    old = Circuit.from_qasm(circuit.to_qasm())
    assert again(old) == old


def test_qiskit_reads_measurements_and_conditions():
    qasm3 = pytest.importorskip("qiskit.qasm3", reason="needs Qiskit: pip install velacamplix[test]")
    pytest.importorskip("qiskit_qasm3_import", reason="needs Qiskit's importer: pip install velacamplix[test]")
    circuit = several_registers().h(0).measure([0, 1], [3, 4]).measure([1, 0], [0, 2]).measure(2, 1).measure([3, 0], [2, 4]).reset(1).barrier(0, 2)
    for condition in (circuit.bits("d") == 2, circuit.bits(0), ~circuit.bits(1)):
        with circuit.when(condition):
            circuit.x(0)
    theirs = Circuit.from_qiskit(qasm3.loads(circuit.to_qasm3()))
    flat = [
        part
        for step in circuit
        for part in (
            [Instruction(step.name, (q,), clbits=(c,)) for q, c in zip(step.qubits, step.clbits)] if step.name == "measure" else [step]
        )
    ]
    assert list(theirs) == flat


# --- What cannot be said ---


def saving():
    return Circuit(2).h(0).save_expectation("z", Observable("Z0"))


REFUSED = {
    "matrix": (lambda: Circuit(1).matrix([[0, 1], [1, 0]], 0), r"instruction 0 \(matrix\[2x2\] 0\) cannot be written in OpenQASM 3: it has no gates given"),
    "diagonal inside": (
        lambda: Circuit(1).gate(GateDefinition("own", Circuit(1).diagonal([1, -1], 0)), 0),
        r"gate 'own' \(diagonal\[2\] 0\) cannot be written in OpenQASM 3",
    ),
    "in a body": (lambda: Circuit(1, 1).x(0).if_((0, 1), Circuit(1).matrix([[0, 1], [1, 0]], 0)), r"instruction 1 \(matrix"),
    "save": (saving, r"instruction 1 \(save expectation 'z' of .*\) cannot be written in OpenQASM 3: it has no save"),
}


@pytest.mark.parametrize("case", REFUSED)
def test_refused(case):
    make, message = REFUSED[case]
    with pytest.raises(ValueError, match=message):
        make().to_qasm3()
