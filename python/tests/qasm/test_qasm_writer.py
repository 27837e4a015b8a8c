"""Circuits as OpenQASM 2: read again they are the same, and Qiskit reads the same operators."""

import math
import random
import re
from pathlib import Path

import numpy as np
import numpy_simulator
import pytest
from qasm_texts import HEADER, random_program

from velacamplix import Circuit, Condition, GateDefinition, Instruction, Parameter, Register
from velacamplix.instructions.gates import GATES as SHAPES
from velacamplix.qasm import read_qasm
from velacamplix.qasm.blocks import MOST_CONTROLS, plain

EXAMPLES = sorted((Path(__file__).parents[3] / "examples" / "circuits").glob("*.qasm"))
ANGLES = (0.3, -1.5, 2.7, 7.1)


def body(circuit):
    """The program without its first two lines, registers, and definitions of gates that readers may know."""
    return [line for line in circuit.to_qasm(definitions=False).splitlines()[2:] if not re.match("[qc]reg", line)]


def in_its_written_form(circuit):
    steps = [plain(step) if step.is_gate else step for step in circuit]
    return Circuit._assembled(circuit.registers, steps)


def qiskit_unitary(text, **how):
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="compares with Qiskit: pip install velacamplix[test]")
    from qiskit.quantum_info import Operator

    return Operator(qasm2.loads(text, **(how or {"custom_instructions": qasm2.LEGACY_CUSTOM_INSTRUCTIONS}))).data


def one_gate(name, n_controls):
    shape = SHAPES[name]
    n_controls = max(n_controls, 1 - shape.n_qubits)  # a phase of nothing but the whole state has no gate of its own
    n = shape.n_qubits + n_controls
    qubits = random.Random(name).sample(range(n), n)
    params = ANGLES[: shape.n_params]
    return Circuit(n).append(Instruction(name, tuple(qubits[n_controls:]), params, tuple(qubits[:n_controls])))


@pytest.mark.parametrize("n_controls", range(MOST_CONTROLS + 1))
@pytest.mark.parametrize("name", SHAPES)
def test_every_gate_with_any_controls_comes_back(name, n_controls):
    circuit = one_gate(name, n_controls)
    assert read_qasm(circuit.to_qasm()) == in_its_written_form(circuit)


@pytest.mark.parametrize("n_controls", range(4))
@pytest.mark.parametrize("name", SHAPES)
def test_qiskit_reads_the_same_operator(name, n_controls):
    circuit = one_gate(name, n_controls)
    if circuit.n_qubits > 6:
        circuit = one_gate(name, 2)
    expected = numpy_simulator.unitary(circuit)
    # To the strict reader the language is what its paper says, and qelib1.inc the file in its appendix.
    np.testing.assert_allclose(qiskit_unitary(circuit.to_qasm(), strict=True), expected, rtol=0, atol=1e-13)
    np.testing.assert_allclose(qiskit_unitary(circuit.to_qasm()), expected, rtol=0, atol=1e-13)
    np.testing.assert_allclose(qiskit_unitary(circuit.to_qasm(definitions=False)), expected, rtol=0, atol=1e-13)


LATER = {
    "sx": ("sx", 0), "sxdg": ("sxdg", 0), "swap": ("SWAP", 0), "cswap": ("SWAP", 1), "crx": ("RX", 1), "cry": ("RY", 1),
    "csx": ("sx", 1), "cu": ("cu", 0), "rxx": ("rxx", 0), "rzz": ("rzz", 0), "rccx": ("rccx", 0), "rc3x": ("rc3x", 0),
    "c3x": ("X", 3), "c3sqrtx": ("sx", 3), "c4x": ("X", 4),
}  # fmt: skip


@pytest.mark.parametrize("name", LATER)
def test_gates_that_came_later_into_qelib1_are_defined(name):
    circuit = one_gate(*LATER[name])
    with_definitions, without = circuit.to_qasm(), circuit.to_qasm(definitions=False)
    assert f"gate {name}" in with_definitions and "gate " not in without
    assert with_definitions.splitlines()[-1] == without.splitlines()[-1]
    assert read_qasm(with_definitions) == read_qasm(without) == in_its_written_form(circuit)


def test_definitions_is_a_flag():
    with pytest.raises(TypeError, match="definitions must be True or False, got 1"):
        Circuit(1).to_qasm(definitions=1)


@pytest.mark.parametrize("definitions", [True, False])
def test_a_register_named_like_a_gate_that_is_used(definitions):
    named = [Register("sx", "quantum", 0, 2)]
    with pytest.raises(ValueError, match="register 'sx' cannot be written in OpenQASM 2: a gate has that name"):
        Circuit(2, registers=named).sx(0).to_qasm(definitions=definitions)
    circuit = Circuit(2, registers=named).h(0)
    assert read_qasm(circuit.to_qasm(definitions=definitions)) == circuit


def test_many_gates_that_are_written_as_blocks_are_read_again():
    # Each counts as the one gate it is, not as the dozens in its block.
    circuit = Circuit(5).x(4, controls=[0, 1, 2, 3]) * 1000
    assert read_qasm(circuit.to_qasm(), most_instructions=1100) == circuit


@pytest.mark.parametrize("name", ["X", "PH", "u3", "SWAP"])
def test_many_controls_are_exact(name):
    # Read as another reader would: by the gates inside the blocks.
    circuit = one_gate(name, 6)
    text = re.sub(r"\bc(\d)_", r"other\1_", circuit.to_qasm())
    expanded = read_qasm(text)
    assert expanded != in_its_written_form(circuit)
    np.testing.assert_allclose(numpy_simulator.unitary(expanded), numpy_simulator.unitary(circuit), rtol=0, atol=1e-12)


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_example_comes_back(path):
    circuit = read_qasm(path)
    assert read_qasm(circuit.to_qasm()) == circuit


@pytest.mark.parametrize("seed", range(30))
def test_random_program_comes_back_and_qiskit_agrees(seed):
    circuit = read_qasm(random_program(seed))
    text = circuit.to_qasm()
    assert read_qasm(text) == circuit
    np.testing.assert_allclose(qiskit_unitary(text), numpy_simulator.unitary(circuit), rtol=0, atol=1e-12)


def test_the_whole_language():
    text = HEADER + """
        gate inner(a,b) x { rx(-(a+b)/2*sin(a)^2) x; u2(sqrt(b),ln(2)*-a) x; }
        gate empty x,y { }
        gate outer(a) x,y { inner(a,2.5) y; barrier x,y; cx x,y; empty y,x; }
        qreg a[2]; creg m[2]; qreg b[1]; creg n[1];
        h a; outer(0.25) a[1],b[0]; barrier a; barrier a[1],b[0]; measure a -> m; measure b[0] -> n[0];
        if(m==2) outer(-pi/8) b[0],a[0]; if(n==1) measure a -> m; if(m==3) reset a; reset b; U(0.1,0.2,0.3) a[0]; CX a[0],a[1];
    """
    circuit = read_qasm(text)
    written = circuit.to_qasm()
    assert read_qasm(written) == circuit
    assert read_qasm(written).to_qasm() == written
    assert "gate inner(a,b) q0 { rx(-(a+b)/2.0*sin(a)^2.0) q0;" in written
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="reads with Qiskit: pip install velacamplix[test]")
    qasm2.loads(written)


@pytest.mark.parametrize("angle", [math.pi, -math.pi / 2, 3 * math.pi / 4, 1e-300, -1e22, 0.1, 1 / 3, 5e-324, -0.0, 0.0, 1.7976931348623157e308])
def test_every_angle_keeps_its_bits(angle):
    (step,) = read_qasm(Circuit(1).rx(angle, 0).to_qasm())
    assert step.params[0].hex() == angle.hex()


def test_angles_people_know_are_fractions_of_pi():
    circuit = Circuit(1).rx(math.pi / 2, 0).rx(-3 * math.pi / 4, 0).rx(math.pi, 0).rx(0.5, 0).rx(1e-7, 0)
    assert body(circuit) == [f"rx({text}) q[0];" for text in ("pi/2", "-3*pi/4", "pi", "0.5", "1.0e-07")]


def test_gates_by_their_usual_names():
    circuit = Circuit(3).h(0).sdg(1).p(0.5, 2).cp(0.5, 0, 1).u(1, 2, 3, 0).cz(0, 1).ccx(0, 1, 2).cswap(0, 1, 2).crx(0.5, 0, 1).mcx([0, 1], 2)
    assert body(circuit) == [
        "h q[0];", "sdg q[1];", "u1(0.5) q[2];", "cu1(0.5) q[0],q[1];", "U(1.0,2.0,3.0) q[0];", "cz q[0],q[1];",
        "ccx q[0],q[1],q[2];", "cswap q[0],q[1],q[2];", "crx(0.5) q[0],q[1];", "ccx q[0],q[1],q[2];",
    ]  # fmt: skip


def test_definitions_made_in_python():
    odd = GateDefinition("Odd Name!", Circuit(2).rx(Parameter("θ") * 2, 0).ry(Parameter("pi"), 1).iswap(0, 1, controls=()))
    again = GateDefinition("Odd Name?", Circuit(2).x(0))
    like_h = GateDefinition.checked("h", (), 1, (Instruction("X", (0,)),))  # as 0.1 could make
    circuit = Circuit(3).gate(odd, [0, 1], [0.5, 0.25]).gate(again, [0, 1]).gate(like_h, 2).gate(odd, [1, 0], [1, 2], controls=2)
    text = circuit.to_qasm()
    np.testing.assert_allclose(numpy_simulator.unitary(read_qasm(text)), numpy_simulator.unitary(circuit), rtol=0, atol=1e-14)
    np.testing.assert_allclose(qiskit_unitary(text), numpy_simulator.unitary(circuit), rtol=0, atol=1e-13)


def test_a_controlled_definition_comes_back():
    pair = GateDefinition("pair", Circuit(2).ry(Parameter("t"), 0).cx(0, 1).barrier())
    circuit = Circuit(5).gate(pair, [0, 1], [0.5], controls=[2, 4]).gate(pair, [3, 2], [1.5])
    assert read_qasm(circuit.to_qasm()) == circuit


def test_a_gate_that_looks_like_a_block_but_is_none():
    text = HEADER + "gate iswap a,b { cx a,b; } gate c1_s a,b { cu1(pi/4) a,b; } qreg q[2]; iswap q[0],q[1]; c1_s q[0],q[1];"
    circuit = read_qasm(text)
    assert [step.name for step in circuit] == ["iswap_gate", "c1_s"]
    assert [str(step) for step in circuit.basic_instructions()] == ["CNOT 0,1", "PH(0.785398163397) 1 controls 0"]
    assert read_qasm(circuit.to_qasm()) == circuit
    both = circuit.copy().iswap(0, 1).s(0, controls=1)
    np.testing.assert_allclose(qiskit_unitary(both.to_qasm()), numpy_simulator.unitary(both), rtol=0, atol=1e-14)


def test_a_file_that_defines_later_gates_itself():
    text = HEADER + "gate rzz(a) x,y { cx x,y; u1(a) y; cx x,y; } qreg q[2]; rzz(0.5) q[0],q[1];"
    circuit = read_qasm(text)
    assert read_qasm(circuit.to_qasm()) == circuit
    both = circuit.copy().rzz(0.25, 0, 1)
    np.testing.assert_allclose(numpy_simulator.unitary(read_qasm(both.to_qasm())), numpy_simulator.unitary(both), rtol=0, atol=1e-15)


def test_measurements_of_some_qubits_are_written_one_by_one():
    circuit = Circuit(3, 3).measure([0, 2], [1, 0]).reset([0, 1]).barrier(2, 0)
    assert body(circuit) == ["measure q[0] -> c[1];", "measure q[2] -> c[0];", "reset q[0];", "reset q[1];", "barrier q[2],q[0];"]
    assert len(read_qasm(circuit.to_qasm())) == 5


def conditioned(clbits, value, add, n_clbits=2):
    circuit = Circuit(2, n_clbits)
    with circuit.when(clbits, value):
        add(circuit)
    return circuit


REFUSED = {
    "matrix": (Circuit(1).x(0).matrix([[1, 0], [0, 1j]], 0), r"instruction 1 \(matrix\[2x2\] 0\) cannot be written.*entries"),
    "diagonal": (Circuit(1).diagonal([1, -1], 0), r"instruction 0 \(diagonal\[2\] 0\) cannot be written"),
    "matrix in a definition": (
        Circuit(1).gate(GateDefinition("g", Circuit(1).matrix([[0, 1], [1, 0]], 0)), 0), r"gate 'g' \(matrix\[2x2\] 0\) cannot be written"),
    "too many controls": (Circuit(10).x(0, controls=range(1, 10)), "instruction 0 .*more than 8 controls"),
    "condition on a bit": (conditioned(1, 1, lambda c: c.x(0)), r"instruction 0 \(X 0 if c\[1\] == 1\).*register of their own"),
    "condition on some of the bits": (conditioned([0, 2], "10", lambda c: c.x(0), 3), r'if c\[0, 2\] == "10".*register of their own'),
    "condition on bits turned round": (
        Circuit(1, 2).append(Instruction("X", (0,), condition=Condition((1, 0), 1))), "register of their own"),
    "measurement that changes its condition": (
        conditioned("c", 1, lambda c: c.measure([0, 1], [1, 0])), "first would change what the others depend on"),
    "name of a register": (Circuit(1, registers=[Register("Q", "quantum", 0, 1)]), "register 'Q' cannot be written.*small letter"),
    "reserved name": (Circuit(1, registers=[Register("pi", "quantum", 0, 1)]), "register 'pi' cannot be written"),
    "name of a gate": (Circuit(1, registers=[Register("h", "quantum", 0, 1)]), "register 'h' cannot be written.*a gate has that name"),
    "open parameter": (Circuit(1).rx(Parameter("a"), 0), "parameters must have values.*'a'"),
}  # fmt: skip


@pytest.mark.parametrize("case", REFUSED)
def test_what_the_language_cannot_say_is_refused(case):
    circuit, message = REFUSED[case]
    with pytest.raises(ValueError, match=message):
        circuit.to_qasm()


def test_conditions_on_whole_registers():
    circuit = conditioned("c", 2, lambda c: c.x(0).measure([0, 1], [0, 1]).reset(1).rzz(0.5, 0, 1))
    assert body(circuit) == ["if(c==2) x q[0];", "if(c==2) measure q -> c;", "if(c==2) reset q[1];", "if(c==2) rzz(0.5) q[0],q[1];"]
    assert read_qasm(circuit.to_qasm()) == circuit


def test_empty_circuits():
    assert Circuit(0).to_qasm() == HEADER
    for circuit in (Circuit(0), Circuit(2), Circuit(0, 3), Circuit(2, registers=[Register("a", "quantum", 0, 2), Register("b", "quantum", 2, 0)])):
        assert read_qasm(circuit.to_qasm()) == circuit
