"""OpenQASM 3: what gates, phases, registers and modifiers become, beside what Qiskit reads, and what is refused."""

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Condition, If, Instruction, StateVector, run
from velacamplix.qasm import QasmError

HEADER = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'

PROGRAMS = {
    "all standard gates": """
        qubit[3] q;
        p(0.1) q[0]; x q[0]; y q[1]; z q[2]; h q[0]; s q[1]; sdg q[2]; t q[0]; tdg q[1]; sx q[2];
        rx(0.2) q[0]; ry(0.3) q[1]; rz(0.4) q[2]; cx q[0], q[1]; cy q[1], q[2]; cz q[2], q[0];
        cp(0.5) q[0], q[2]; crx(0.6) q[0], q[1]; cry(0.7) q[1], q[2]; crz(0.8) q[2], q[0]; ch q[0], q[1];
        swap q[1], q[2]; ccx q[0], q[1], q[2]; cswap q[2], q[0], q[1]; cu(0.1, 0.2, 0.3, 0.4) q[0], q[1];
        phase(0.9) q[1]; cphase(1.1) q[0], q[2]; id q[0]; u1(0.3) q[0]; u2(0.1, 0.2) q[1]; u3(0.1, 0.2, 0.3) q[2];
        U(0.5, 0.6, 0.7) q[0];
    """,
    "modifiers": """
        qubit[4] q;
        ctrl @ x q[0], q[1]; ctrl(2) @ rz(0.3) q[0], q[1], q[2]; negctrl @ ry(0.4) q[1], q[3]; inv @ s q[2];
        ctrl @ negctrl @ h q[3], q[0], q[1]; ctrl @ inv @ sx q[0], q[3];
    """,
    "own gates": """
        gate bell a, b { h a; cx a, b; }
        gate turn(t) a { rx(t / 2) a; U(t, 0.1, -t) a; }
        qubit[3] q;
        bell q[0], q[2]; turn(0.7) q[1]; ctrl @ turn(0.7) q[0], q[1]; inv @ bell q[1], q[0]; ctrl @ bell q[0], q[1], q[2];
    """,
    "registers and angles": "qubit[2] a; qubit b; h a; rx(2 * pi / 3) b; ry(-(0.5 + 1)) a[1]; cx a[0], b; barrier a;",
}


def state_of(text):
    circuit = Circuit.from_qasm3(HEADER + text)
    return numpy_simulator.unitary(circuit)[:, 0]


@pytest.mark.parametrize("name", PROGRAMS)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_program_is_the_one_qiskit_reads(name):
    qasm3 = pytest.importorskip("qiskit.qasm3", reason="needs Qiskit: pip install velacamplix[test]")
    pytest.importorskip("qiskit_qasm3_import", reason="needs Qiskit's importer: pip install velacamplix[test]")
    from qiskit.quantum_info import Operator

    theirs = Operator(qasm3.loads(HEADER + PROGRAMS[name])).data
    mine = numpy_simulator.unitary(Circuit.from_qasm3(HEADER + PROGRAMS[name]))
    np.testing.assert_allclose(mine, theirs, rtol=0, atol=1e-12)


# --- Phases, names, powers ---


@pytest.mark.parametrize("first", range(0, 200, 50))
def test_random_programs_give_qiskits_state(first):
    pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")
    import qasm3_programs

    for seed in range(first, first + 50):
        text, expected = qasm3_programs.program(seed)
        circuit = Circuit.from_qasm3(text)
        got = StateVector(circuit.n_qubits).run(circuit).statevector(order="little")
        np.testing.assert_allclose(got, expected, rtol=0, atol=1e-12, err_msg=f"seed {seed}:\n{text}")


PHASES = {
    "gphase(0.7);": (0.7, 0.7, 0.7, 0.7),
    "inv @ gphase(0.7);": (-0.7, -0.7, -0.7, -0.7),
    "pow(3) @ gphase(0.7);": (2.1, 2.1, 2.1, 2.1),
    "ctrl @ gphase(0.7) q[0];": (0, 0.7, 0, 0.7),
    "negctrl @ gphase(0.7) q[1];": (0.7, 0.7, 0, 0),
    "ctrl(2) @ gphase(0.7) q[0], q[1];": (0, 0, 0, 0.7),
    "ctrl @ negctrl @ inv @ gphase(0.7) q[1], q[0];": (0, 0, -0.7, 0),
    "inv @ ctrl @ pow(2) @ gphase(0.7) q[1];": (0, 0, -1.4, -1.4),
    "pow(0.5) @ ctrl @ gphase(0.7) q[0];": (0, 0.35, 0, 0.35),
}


@pytest.mark.parametrize("where", ["outside", "in a body", "in a controlled body", "in an if"])
@pytest.mark.parametrize("statement", PHASES)
def test_phases_are_kept(statement, where):
    expected = 0.5 * np.exp(1j * np.array(PHASES[statement]))
    if where == "outside":
        text = f"qubit[2] q; h q; {statement}"
    elif where == "in an if":
        text = f"qubit[2] q; bit c; h q; if (!c) {{ {statement} }}"
        expected = StateVector(2).set_basis_state("++").array * np.exp(1j * np.array(PHASES[statement]))
        circuit = Circuit.from_qasm3(HEADER + text)
        np.testing.assert_allclose(run(circuit).state.array, expected, rtol=0, atol=1e-14)
        return
    else:
        body = statement.replace("q[0]", "a").replace("q[1]", "b")
        text = f"gate g a, b {{ {body} }} qubit[3] q; h q[0]; h q[1]; g q[0], q[1];"
        expected = np.concatenate([expected, np.zeros(4)])
        if where == "in a controlled body":
            text = text.replace("; g q", "; x q[2]; ctrl @ g q[2], q")
            expected = np.roll(expected, 4)
    np.testing.assert_allclose(state_of(text), expected, rtol=0, atol=1e-14)


@pytest.mark.parametrize("name", ["unitary", "if_else", "matrix", "diagonal", "measured", "h2", "delay_1", "annotated", "barrier_"])
def test_a_gate_may_have_any_name(name):
    circuit = Circuit.from_qasm3(HEADER + f"gate {name} a, b {{ h a; cx a, b; }} qubit[2] q; {name} q[1], q[0]; inv @ {name} q[1], q[0];")
    assert [str(step) for step in circuit.basic_instructions()] == ["H 1", "CNOT 1,0", "CNOT 1,0", "H 1"]
    assert Circuit.from_qasm(circuit.to_qasm()).gate_counts() == circuit.gate_counts()


def test_names_of_known_gates_are_defined_anew():
    circuit = Circuit.from_qasm3("OPENQASM 3.0; gate h a { U(1, 2, 3) a; } gate SWAP a, b { h b; } qubit[2] q; h q[0]; SWAP q[0], q[1];")
    assert [step.name for step in circuit] == ["h_gate", "SWAP_gate"]
    assert [step.name for step in circuit.basic_instructions()] == ["matrix", "matrix"]
    circuit = Circuit.from_qasm3("OPENQASM 3.0; gate h_gate a { U(1, 2, 3) a; } gate h a { } qubit q; h q; h_gate q;")
    assert [step.name for step in circuit] == ["h_gate_2", "h_gate"]


def test_parameters_of_a_gate_come_in_the_order_of_its_definition():
    circuit = Circuit.from_qasm3(HEADER + "gate turn(phi, angle_1) q { rx(phi) q; rz(angle_1) q; } qubit q; turn(0.25, 0.5) q;")
    assert [str(step) for step in circuit.basic_instructions()] == ["RX(0.25) 0", "RZ(0.5) 0"]


def test_definitions_that_double_are_kept_as_they_are():
    gates = "".join(f"gate g{i}(t) a {{ g{i - 1}(t) a; inv @ g{i - 1}(t / 2) a; }}\n" for i in range(1, 60))
    circuit = Circuit.from_qasm3(HEADER + "gate g0(t) a { rx(t) a; }\n" + gates + "qubit q; g12(1) q;")
    assert len(circuit) == 1 and 2**12 < circuit[0].definition.size < 2**14
    with pytest.raises(QasmError, match="the program expands to more than 10000000 instructions .at 'g59'"):
        Circuit.from_qasm3(HEADER + "gate g0(t) a { rx(t) a; }\n" + gates + "qubit q; g59(1) q;")


def test_nothing_happens_in_a_delay():
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] q; h q[0]; delay[100ns] q; delay[2us] q[1]; delay[1ms]; gate g a { delay[1ns] a; x a; } g q[1];")
    assert [str(step) for step in circuit.basic_instructions()] == ["H 0", "X 1"]


def test_ranges_hold_their_ends():
    circuit = Circuit.from_qasm3(HEADER + "qubit[4] q; x q[1:-1]; y q[2:-1:0]; z q[-4:2:-1]; h q[{0, -1}]; s q[:];")
    assert [str(step) for step in circuit] == ["X 1", "X 2", "X 3", "Y 2", "Y 1", "Y 0", "Z 0", "Z 2", "H 0", "H 3", "S 0", "S 1", "S 2", "S 3"]


def test_integers_are_divided_towards_zero():
    circuit = Circuit.from_qasm3(HEADER + "qubit q; rx(7/2) q; rx(-7/2) q; rx(7/-2) q; rx(-7/-2) q; rx(-6/2) q; rx(7/2.0) q;")
    assert [step.params[0] for step in circuit] == [3, -3, -3, 3, -3, 3.5]


def test_powers():
    circuit = Circuit.from_qasm3(HEADER + "qubit q; pow(3) @ h q; pow(-2) @ s q; pow(0) @ x q; pow(1e300) @ pow(0) @ x q; pow(1000000) @ rx(0.5) q; pow(0.5) @ p(pi) q;")
    assert [str(step) for step in circuit] == ["H 0"] * 3 + ["sdg 0"] * 2 + ["RX(500000) 0", "PH(1.57079632679) 0"]
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] q; pow(100001) @ ch q[0], q[1]; pow(1/2.0) @ x q[0]; pow(-1.5) @ cx q[0], q[1];")
    assert [step.name for step in circuit] == ["matrix"] * 3
    root = (np.eye(2) + 1j * np.eye(2) + (1 - 1j) * np.array([[0, 1], [1, 0]])) / 2
    np.testing.assert_allclose(np.array(circuit[1].params).reshape(2, 2), root, rtol=0, atol=1e-15)


def test_open_parameters_in_modified_gates():
    text = "input float[64] Theta; input angle sin; qubit[2] q; ctrl @ inv @ rx(2 * Theta) q[0], q[1]; pow(2) @ rz(sin / 3) q[0]; ctrl @ gphase(-sin) q[1];"
    circuit = Circuit.from_qasm3(HEADER + text)
    assert set(circuit.parameters) == {"Theta", "sin"}
    assert [str(step) for step in circuit.bind(Theta=0.5, sin=0.75)] == ["RX(-1) 1 controls 0", "RZ(0.5) 0", "gphase(-0.75) controls 1"]


def test_a_phase_behind_measurements_leaves_them_at_the_end():
    circuit = Circuit.from_qasm3(HEADER + "qubit q; bit c; h q; c = measure q; gphase(0.5); gphase(0.25);")
    result = run(circuit, shots=10, seed=1)
    assert [step.name for step in circuit] == ["H", "measure", "gphase", "gphase"] and result.has_state
    assert circuit.global_phase == 0.75
    assert list(Circuit.from_qasm3("gphase(0.5);\n")) == [Instruction("gphase", (), (0.5,))]


def test_names_of_registers_are_kept():
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] a; bit[2] m; qubit b; h a[0]; m[0] = measure a[0]; reset b;")
    assert [(r.name, r.kind, r.start, r.size) for r in circuit.registers] == [("a", "quantum", 0, 2), ("m", "classical", 0, 2), ("b", "quantum", 2, 1)]
    assert list(circuit) == [Instruction("H", (0,)), Instruction("measure", (0,), clbits=(0,)), Instruction("reset", (2,))]
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] Q; bit Erg; qubit ÄÖ; h ÄÖ;")
    assert [register.name for register in circuit.registers] == ["Q", "Erg", "ÄÖ"]
    circuit = Circuit.from_qasm3(HEADER + "bit q; h $1; q = measure $3;")
    assert [(r.name, r.kind, r.size) for r in circuit.registers] == [("q", "classical", 1), ("q_2", "quantum", 4)]


def test_conditions():
    circuit = Circuit.from_qasm3(
        HEADER + "qubit[2] q; bit[2] c; c = measure q; if (c == 2) { x q[0]; } if (c[1]) { y q[0]; } else { z q[0]; h q[1]; } if (!c[0]) x q[1];"
    )
    assert circuit[1].detail == If(Condition((0, 1), 2), (Instruction("X", (0,)),))
    assert circuit[2].detail == If(
        Condition((1,), 1), (Instruction("Y", (0,)),), (Instruction("Z", (0,)), Instruction("H", (1,)))
    )
    assert circuit[3] == Instruction("X", (1,), condition=Condition((0,), 0)), "one statement without braces asks by itself"


def test_inputs_are_parameters():
    circuit = Circuit.from_qasm3(HEADER + "input float[64] theta; input float[64] phi; qubit q; rx(2 * theta + phi) q; rz(theta) q;")
    assert set(circuit.parameters) == {"theta", "phi"}
    assert list(circuit.bind(theta=0.5, phi=0.25)) == [Instruction("RX", (0,), (1.25,)), Instruction("RZ", (0,), (0.5,))]


REFUSED = [
    # words
    ("qubit q; @unknown q;", "unknown gate 'unknown'"),
    ("qubit q; h q@", "unexpected end of the program, expected ',' or ';'"),
    ("qubit q; h q @h q;", "unexpected text, expected ',' or ';'"),
    ("qubit q;\n@? q;", "unexpected character '?', expected a statement"),
    ("@\x00\x01binary", "unexpected character '\\x00', expected a statement"),
    ("qubit q; @) q;", "expected a statement"),
    ("qubit q; @/* never ends", "this comment has no end"),
    ("qubit[2 @q;", "expected ']'"),
    ("qubit @for;", "for is a reserved word and cannot stand here"),
    ("int @measure = 2;", "measure is a reserved word"),
    ("qubit q; rx(2 @2) q;", "expected ')' or ','"),
    ("qubit q; rx(2 +@) q;", "expected '(' or '-' or a name or a number"),
    ("qubit q; rx(2 + @measure q) q;", "a measurement stands alone, as in c = measure q;"),
    ("const int n@;", "expected '='"),
    ("gate g @{ }", "expected a name"),
    ("for int i @of [0:2] { }", "expected 'in'"),
    ("for @i in [0:2] { }", "expected a type"),
    ("bit c; switch (c) { @x q; }", "expected 'case'"),
    ("bit c; switch (c) { case 0 @x q; }", "expected '{'"),
    ("bit[2] c; switch (c) { default { } @case 0 { } }", "expected '}'"),
    ("@OPENQASM 3.0;", "the version stands in the first statement alone"),
    # what is not carried out
    ("qubit q; @def f(qubit a) { }", "subroutines (def) are not carried out: write the statements where they are called"),
    ("@extern f(int) -> int;", "functions from outside (extern) are not known here"),
    ("@cal { }", "calibrations (cal)"),
    ("@defcal x $0 { }", "calibrations (defcal)"),
    ('@defcalgrammar "openpulse";', "calibrations (defcalgrammar)"),
    ("@duration d = 100ns;", "timing (duration)"),
    ("@stretch s;", "timing (stretch)"),
    ("qubit q; @x[100ns] q;", "timing (a duration of a gate)"),
    ("@array[int[8], 3] a;", "arrays are not carried out"),
    ("@complex[float] z;", "complex numbers are not carried out"),
    ("float x = @2im;", "complex numbers are not carried out"),
    ("@pragma anything\nqubit q;", "a pragma is not carried out"),
    ("@#pragma anything\nqubit q;", "a pragma is not carried out"),
    ("@\u0001 note\nqubit q;", "an annotation is not carried out"),
    ("@opaque g a;", "a gate without a body (opaque)"),
    ("@return;", "there is no subroutine to return from"),
    ("input @int n;", "an input must be a float or an angle"),
    # files
    ('include @"other.inc";', "no such file"),
    ('include @"qelib1.inc";', 'the gates of OpenQASM 3 are in "stdgates.inc"'),
    ("include @other;", "a file name in quotes"),
    ('qubit h2; { include @"stdgates.inc"; }', "what a file holds must be declared outside of all braces"),
    # names and registers
    ("qubit q; bit @q;", "'q' is already declared"),
    ("qubit q; gate @q a { }", "'q' is already declared"),
    ("gate @h a { }", "'h' is already declared"),
    ("qubit @h;", "'h' is already declared"),
    ("qubit @pi;", "'pi' is already declared"),
    ("qubit q; { qubit @r; }", "qubits must be declared outside of all braces"),
    ("{ gate @g a { } }", "a gate must be declared outside of all braces"),
    ("gate g(a, @a) b { }", "parameter 'a' named twice"),
    ("gate g a, @a { }", "qubit 'a' named twice"),
    ("gate g(a) @a { }", "both a parameter and a qubit"),
    ("qubit[1000001] @q;", "a register has at most 1000000 bits"),
    ("bit[1000000 * 1000000] @c;", "a register has at most 1000000 bits"),
    ("qubit[-1] @q;", "a register has at most 1000000 bits"),
    ("qubit[1.5] @q;", "the size of a register must be an integer"),
    ("qubit[2] q; h @r;", "unknown name 'r'"),
    ("bit c; h @c;", "'c' is no qubit"),
    ("qubit q; h @pi;", "'pi' is no qubit"),
    ("qubit[3] q; h @q[1:3];", "a range must be within the 3 bits"),
    ("qubit[3] q; h @q[3];", "index 3 is outside of 'q' of size 3"),
    ("qubit[3] q; h @q[-4];", "index -4 is outside of 'q' of size 3"),
    ("qubit[3] q; h @q[0:0:2];", "the step of a range must not be 0"),
    ("qubit[3] q; h @q[{0, 1, 0}];", "a bit is named twice"),
    ("qubit[3] q; h @q[0.5];", "an index must be an integer"),
    ("qubit[3] q; bit[3] c; h @q[c[0]];", "an index must be an integer: bits are known when the circuit is run"),
    ("qubit q; h @q[0];", "only a register has parts"),
    ("qubit[2] q; let @a = q[0] ++ q;", "a bit is named twice"),
    ("qubit q; bit c; let @a = q ++ c;", "let gives a name to qubits or to classical bits"),
    ("qubit[2] q; qubit[3] r; cx q, @r;", "registers 'q' and 'r' differ in size, 2 and 3"),
    ("h $0; qubit @q;", "either qubits of the hardware"),
    ("qubit q; h @$0;", "either qubits of the hardware"),
    ("h @$1000000;", "at most 1000000 quantum bits"),
    # gates and modifiers
    ("qubit q; @rx(1, 2) q;", "gate 'rx' takes 1 parameter, got 2"),
    ("qubit q; @U(1) q;", "gate 'U' takes 3 parameters, got 1"),
    ("gate g(a) x { rx(a) x; } qubit q; @g q;", "gate 'g' takes 1 parameter, got 0"),
    ("qubit[2] q; cx q[0], @q[0];", "a qubit of 'q' is named twice in one call"),
    ("qubit q; @ctrl @@ x q;", "x with its controls takes 2 qubit(s), got 1"),
    ("qubit q; @ctrl(0) @@ x q;", "ctrl(0) must have from 1 to 1000000 controls"),
    ("qubit q; @negctrl(10000000000000) @@ x q;", "negctrl(10000000000000) must have"),
    ("qubit q; @ctrl(1.5) @@ x q;", "the number of controls in ctrl() must be an integer"),
    ("qubit q; @pow @@ x q;", "pow(k) has a number, inv has none"),
    ("qubit q; @inv(2) @@ x q;", "pow(k) has a number, inv has none"),
    ("qubit q; pow(2) @x q;", "expected '@'"),
    ("qubit q; rx(1@/0) q;", "division by zero"),
    ("qubit q; rx(1 @% 0) q;", "division by zero"),
    ("qubit q; rx(@1e999) q;", "number too large"),
    ("qubit q; rx(2.0 @** 9999) q;", "number too large"),
    ("qubit q; rx(3 @** 9999) q;", "integer too large: at most 4096 bits"),
    ("qubit q; rx(2 @<< 9999) q;", "integer too large: at most 4096 bits"),
    ("rx(7.5 @% 0) q;", "division by zero"),
    ("rx(1 @>> -1) q;", "a number of places that is not negative"),
    ("rx(1.5 @& 2) q;", "& needs integers"),
    ("rx(@~5) q;", '~ needs bits, as in ~"0101"'),
    ('rx(@!"01") q;', "! cannot be applied to this"),
    ('if ("01" @&& true) { }', "&& joins what is true or false"),
    ('rx("01" @+ "10") q;', 'as many bits on both sides; uint("01") is a number'),
    ('if ("01" @== "010") { }', "as many bits on both sides"),
    ("rx(2 ** 2000 @* 1.5) q;", "number too large"),
    ("int n = 5; rx(@n[5000]) q;", "'n' has bits from 0 to 4095, got 5000"),
    ("input float a; rx(a @% 2) q;", "% cannot be applied to a number that is known when the circuit is run"),
    ("input float a; @int n = a;", "it depends on an input or parameter, which gets its value later"),
    ("for @duration d in {1} { }", "timing (duration)"),
    ("for int i in [@0:0:3] { }", "the step of a range must not be 0"),
    ("qubit q; rx(0.5)@[10ns] q;", "timing (a duration of a gate)"),
    ("qubit[2] q; q[0] @q;", "expected '='"),
    ("rx(1 + @.) q;", "expected '(' or '-' or a name or a number"),
    ("rx(@0x_) q;", "expected a number"),
    ("rx(@0x" + "f" * 5000 + ") q;", "number too large"),
    ("gate g a { bit @c; }", "this cannot stand in the body of a gate, 'g'"),
    ("gate g a { int n; n = @measure a; }", "a measurement cannot stand in the body of a gate, 'g'"),
    ("bit[3] c; gate g a { if (@c == 1) { x a; } }", "'c' is outside of the gate 'g'"),
    ("qubit[1000000] q; qubit @r;", "a program has at most 1000000 quantum bits"),
    ("qubit q; rx(@sqrt(-1)) q;", "sqrt of -1 is not a real number"),
    ("qubit q; rx(@log(0)) q;", "log of 0 is not a real number"),
    ("qubit q; rx(@sinh(1)) q;", "unknown function 'sinh'; known: sin, cos"),
    ("qubit q; rx(@sin(1, 2)) q;", "sin cannot be applied to 2 value(s)"),
    ('qubit q; @rx("01") q;', "an angle must be a number"),
    ('qubit q; rx(@"2") q;', "a text among numbers is made of 0 and 1"),
    ("qubit q; bit c; @rx(c) q;", "an angle must be a number: bits are known when the circuit is run"),
    ("qubit q; @rx(q) q;", "an angle must be a number: these are qubits"),
    ("qubit q; @rx(100ns) q;", "an angle must be a number: this is a time"),
    ("qubit q; rx(@a) q;", "unknown name 'a'"),
    ("int n; qubit q; rx(@n) q;", "'n' has no value yet"),
    ("qubit q; @gphase(0.5) q;", "gate 'gphase' takes 0 qubits, got 1"),
    ("qubit q; @gphase;", "gphase takes 1 parameter, got 0"),
    ("gate g a { h a; @reset a; } qubit q;", "this cannot stand in the body of a gate, 'g'"),
    ("gate g a { h a; @unknown a; } qubit q;", "unknown gate 'unknown'"),
    ("gate g a { @g a; }", "gate 'g' is used in its own definition"),
    ("qubit q; gate g a { h @q; }", "'q' is outside of the gate 'g'"),
    ("int n = 2; gate g a { rx(@n) a; }", "'n' is outside of the gate 'g', which sees its own names and constants"),
    ("gate g a { @pow(0.5) @@ rx(7) a; } qubit q;", "the principal root is not the rotation by a part of the angle"),
    ("qubit q; @pow(0.5) @@ p(-pi) q;", "the principal root is not"),
    ("qubit q; @pow(1e308) @@ rx(3) q;", "pow(1e+308) of RX(3) 0 has an angle that is too large"),
    ("qubit q; @pow(1e7) @@ h q;", "or 6 qubits and a power of 1000000"),
    ("gate g a { x a; @end; } qubit q;", "end cannot stand in the body of a gate, 'g'"),
    ("rx(1 @<< 2 ** 100) q;", "integer too large: at most 4096 bits"),
    ("rx(-3 @** 2585) q;", "integer too large: at most 4096 bits"),
    ("input float a; qubit q; @pow(0.5) @@ rx(a) q;", "pow(0.5) of a gate whose angles are not known yet"),
    ("input float a; qubit q; @pow(a) @@ x q;", "pow(k) needs a number that is known"),
    ("qubit[7] q; gate g a, b, c, d, e, f, i { cx a, b; } @pow(2000) @@ g q[0], q[1], q[2], q[3], q[4], q[5], q[6];", "7 qubits"),
    # measurement and bits
    ("qubit q; @measure q;", "the outcome of a measurement needs a place"),
    ("qubit[2] q; bit[3] c; @c = measure q;", "as many bits as qubits, got 2 qubit(s) and 3 bit(s)"),
    ("qubit q; int n; @n = measure q;", "'n' cannot take the outcome of a measurement"),
    ("qubit q; int @n = measure q;", "a measurement goes into bits"),
    ("bit[2] c; @c = 1;", "classical bits get their values from measurements"),
    ("bit[2] @c = \"01\";", "bits are 0 at the beginning"),
    ("qubit q; @q = 1;", "'q' cannot be set"),
    # variables
    ("const int n = 2; @n = 3;", "'n' is a constant or an input and cannot be set"),
    ("input float a; @a = 3;", "'a' is a constant or an input and cannot be set"),
    ("@int[3] n = 4;", "this value is none of the type int[3]"),
    ("@uint n = -1;", "this value is none of the type uint"),
    ("@int n = 1.5;", "this value is none of the type int"),
    ("@int[0] n = 1;", "the size of a type must be from 1 to 4096, got 0"),
    ("bit[2] c; @int n = c;", "this value is none of the type int: bits are known when the circuit is run"),
    ("input float a; const float @b = a;", "a constant cannot depend on an input"),
    ("bit c; int n = 0; if (c) { @n = 1; }", "'n' is set where a measurement decides"),
    # conditions
    ("qubit q; bit[2] c; if (c @== 4) x q;", "the condition can never hold: 2 bit(s) do not become 4"),
    ("qubit q; bit[2] c; if (c @== -1) x q;", "the condition can never hold"),
    ("qubit q; bit[2] c; if (c @< 4) x q;", "2 bit(s) are compared with a number from 0 to 2**2 - 1, got 4"),
    ("qubit q; bit[2] c; if (int[2](c) @== 2) x q;", "the condition can never hold"),
    ("qubit q; bit[2] c; if (int[2](c) @< 1) x q;", "write uint in place of int"),
    ("qubit q; if (q @== 1) x q;", "these are qubits"),
    ("qubit q; bit[2] c; @if (c) x q;", "a condition must be true or false; compare a register with a number"),
    ("qubit q; bit[2] c; if (c @& 1) x q;", "& joins single bits, comparisons, and what is true or false"),
    ("qubit q; bit[2] c; if (c @+ 1 == 2) x q;", "cannot be applied to what is measured"),
    ("qubit q; bit[2] c; if (c @== \"010\") x q;", "cannot be applied to what is measured"),
    ("input float a; qubit q; if (a @> 1) x q;", "cannot be applied to a number that is known when the circuit is run"),
    ("input float a; qubit q; @if (a) x q;", "a condition must be true or false"),
    ("bit c; gate g a { if (@c) { x a; } }", "'c' is outside of the gate 'g'"),
    # loops
    ("qubit q; bit c; @while (c) { x q; }", "body of a while must measure into a bit of its condition"),
    ("qubit q; bit[2] c; @for bit b in c { x q; }", "a loop goes over a range [0:3] or over values {1, 2}"),
    ("qubit q; for int i in [@0:] { x q; }", "the range of a loop needs a start and an end"),
    ("bit c; int n = 0; @while (n == 0 || c) { n += 1; }", "whether this loop goes on, but not from its first round on"),
    ("qubit q; @while (true) { }", "the program expands to more than 1000 instructions"),
    ("qubit q; @for int i in [0:1000000000000] { }", "the program expands to more than 1000 instructions"),
    ("qubit q; @break;", "break stands in no loop"),
    ("qubit q; bit c; for int i in [0:3] { if (c) { @break; } }", "break where a measurement decides is not carried out"),
    ("qubit q; bit c; if (c) { @end; }", "end where a measurement decides is not carried out"),
    ("bit[2] c; @switch (c) { case 4 { } }", "a case must be an integer from 0 to 3, got 4"),
    ("bit[2] c; @switch (c) { case 1, 2 { } case 2 { } }", "cases must have distinct values, got 2 twice"),
    ("bit c; @switch (!c) { case 1 { } }", "a switch needs an integer or a register"),
    ("@switch (1.5) { case 1 { } }", "a switch needs an integer or a register"),
]


@pytest.mark.parametrize("marked, message", REFUSED, ids=[marked for marked, _ in REFUSED])
def test_what_cannot_be_said_is_refused_at_its_place(marked, message, capfd):
    before, after = marked.replace("@@", "\u0001").split("@", 1)
    before, after = (text.replace("\u0001", "@") for text in (before.replace("; ", ";\n"), after))
    with pytest.raises(QasmError) as caught:
        Circuit.from_qasm3(HEADER + before + after, most_instructions=1000)
    error = caught.value
    assert message in str(error)
    assert (error.line, error.column) == (3 + before.count("\n"), len(before.rpartition("\n")[2]) + 1)
    assert str(error).startswith(f"<text>:{error.line}:{error.column}: ") and len(str(error)) < 700
    assert capfd.readouterr() == ("", "")


def test_the_library_comes_before_gates_of_its_names():
    with pytest.raises(QasmError, match="'u1' is declared here and was declared before") as caught:
        Circuit.from_qasm3('OPENQASM 3.0; gate u1 a { } include "stdgates.inc";')
    assert caught.value.column == 37


@pytest.mark.parametrize("comment", ["", "// OPENQASM 3.0;\n", "/* OPENQASM 3.0;\n */ "])
def test_other_versions_are_refused_by_name(comment):
    with pytest.raises(QasmError, match="this reader knows OpenQASM 3, not 2.0; Circuit.from_qasm reads 2.0"):
        Circuit.from_qasm3(comment + "OPENQASM 2.0; qreg q[1];")
    assert Circuit.from_qasm3("// OPENQASM 2.0;\nOPENQASM 3.1; qubit q;").n_qubits == 1
    assert Circuit.from_qasm3("// no version\nqubit q;").n_qubits == 1


def test_files(tmp_path):
    (tmp_path / "parts").mkdir()
    (tmp_path / "a.qasm").write_text(HEADER + 'include "parts/b.inc"; qubit q; twice q;')
    (tmp_path / "parts" / "b.inc").write_text("gate twice a { h a; h a; }")
    circuit = Circuit.from_qasm3(tmp_path / "a.qasm")
    assert [str(step) for step in circuit.basic_instructions()] == ["H 0", "H 0"]
    (tmp_path / "parts" / "b.inc").write_text("gate twice a { h a;\n h b; }")
    with pytest.raises(QasmError, match="unknown name 'b'") as caught:
        Circuit.from_qasm3(tmp_path / "a.qasm")
    assert (caught.value.path, caught.value.line, caught.value.column) == (str(tmp_path / "parts" / "b.inc"), 2, 4)
    (tmp_path / "parts" / "b.inc").write_text('include "../a.qasm";')
    with pytest.raises(QasmError, match="a file includes itself"):
        Circuit.from_qasm3(tmp_path / "a.qasm")
    with pytest.raises(FileNotFoundError):
        Circuit.from_qasm3(tmp_path / "c.qasm")


def test_a_file_in_another_encoding(tmp_path):
    path = tmp_path / "a.qasm"
    path.write_bytes((HEADER + "qubit q; // Grüße\nh q;").encode("latin-1"))
    assert len(Circuit.from_qasm3(path)) == 1
    path.write_bytes((HEADER + "qubit q; Ö q;").encode("latin-1"))
    with pytest.raises(QasmError) as caught:
        Circuit.from_qasm3(path)
    assert (caught.value.path, caught.value.line, caught.value.column) == (str(path), 3, 10)
    path.write_bytes(b"\xef\xbb\xbf" + (HEADER + "qubit q; h q;").encode())
    assert len(Circuit.from_qasm3(path)) == len(Circuit.from_qasm3(path.read_text())) == 1


@pytest.mark.parametrize("source", [None, 3, b"OPENQASM 3.0;"], ids=repr)
def test_what_is_neither_path_nor_text(source):
    with pytest.raises(TypeError, match="path_or_text must be a str or a path, got"):
        Circuit.from_qasm3(source)
