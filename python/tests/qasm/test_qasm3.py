"""OpenQASM 3 by way of Qiskit's importer: what it becomes, what is refused, and what is said when it is not installed."""

import os
import subprocess
import sys
from importlib.util import find_spec
from pathlib import Path

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Condition, Instruction, StateVector, run
from velacamplix.qasm import QasmError

HEADER = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'

needs_importer = pytest.mark.skipif(
    not all(find_spec(name) for name in ("qiskit", "qiskit_qasm3_import")),
    reason="needs the importer: pip install qiskit qiskit_qasm3_import",
)

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


@needs_importer
@pytest.mark.parametrize("name", PROGRAMS)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_program_is_the_one_qiskit_reads(name):
    from qiskit import qasm3
    from qiskit.quantum_info import Operator

    theirs = Operator(qasm3.loads(HEADER + PROGRAMS[name])).data
    mine = numpy_simulator.unitary(Circuit.from_qasm3(HEADER + PROGRAMS[name]))
    np.testing.assert_allclose(mine, theirs, rtol=0, atol=1e-12)


# --- What Qiskit's importer, or its circuits, would lose ---


@needs_importer
@pytest.mark.parametrize("first", range(0, 200, 50))
def test_random_programs_give_qiskits_state(first):
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


@needs_importer
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


@needs_importer
@pytest.mark.parametrize("name", ["unitary", "if_else", "matrix", "diagonal", "measured", "h2", "delay_1", "annotated", "barrier_"])
def test_a_gate_may_have_any_name(name):
    circuit = Circuit.from_qasm3(HEADER + f"gate {name} a, b {{ h a; cx a, b; }} qubit[2] q; {name} q[1], q[0]; inv @ {name} q[1], q[0];")
    assert [str(step) for step in circuit.basic_instructions()] == ["H 1", "CNOT 1,0", "CNOT 1,0", "H 1"]
    assert Circuit.from_qasm(circuit.to_qasm()).gate_counts() == circuit.gate_counts()


@needs_importer
def test_names_of_known_gates_are_defined_anew():
    circuit = Circuit.from_qasm3("OPENQASM 3.0; gate h a { U(1, 2, 3) a; } gate SWAP a, b { h b; } qubit[2] q; h q[0]; SWAP q[0], q[1];")
    assert [step.name for step in circuit] == ["h_gate", "SWAP_gate"]
    assert [step.name for step in circuit.basic_instructions()] == ["matrix", "matrix"]
    circuit = Circuit.from_qasm3("OPENQASM 3.0; gate h_gate a { U(1, 2, 3) a; } gate h a { } qubit q; h q; h_gate q;")
    assert [step.name for step in circuit] == ["h_gate_2", "h_gate"]


@needs_importer
def test_parameters_of_a_gate_come_in_the_order_of_its_definition():
    circuit = Circuit.from_qasm3(HEADER + "gate turn(phi, angle_1) q { rx(phi) q; rz(angle_1) q; } qubit q; turn(0.25, 0.5) q;")
    assert [str(step) for step in circuit.basic_instructions()] == ["RX(0.25) 0", "RZ(0.5) 0"]


@needs_importer
def test_definitions_that_double_are_kept_as_they_are():
    gates = "".join(f"gate g{i}(t) a {{ g{i - 1}(t) a; inv @ g{i - 1}(t / 2) a; }}\n" for i in range(1, 60))
    circuit = Circuit.from_qasm3(HEADER + "gate g0(t) a { rx(t) a; }\n" + gates + "qubit q; g59(1) q;")
    assert len(circuit) == 1 and circuit[0].definition.size > 2**59


@needs_importer
def test_nothing_happens_in_a_delay():
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] q; h q[0]; delay[100ns] q; delay[2us] q[1]; delay[1ms]; gate g a { delay[1ns] a; x a; } g q[1];")
    assert [str(step) for step in circuit.basic_instructions()] == ["H 0", "X 1"]


@needs_importer
def test_ranges_hold_their_ends():
    circuit = Circuit.from_qasm3(HEADER + "qubit[4] q; x q[1:-1]; y q[2:-1:0]; z q[-4:2:-1]; h q[{0, -1}]; s q[:];")
    assert [str(step) for step in circuit] == ["X 1", "X 2", "X 3", "Y 2", "Y 1", "Y 0", "Z 0", "Z 2", "H 0", "H 3", "S 0", "S 1", "S 2", "S 3"]


@needs_importer
def test_integers_are_divided_towards_zero():
    circuit = Circuit.from_qasm3(HEADER + "qubit q; rx(7/2) q; rx(-7/2) q; rx(7/-2) q; rx(-7/-2) q; rx(-6/2) q; rx(7/2.0) q;")
    assert [step.params[0] for step in circuit] == [3, -3, -3, 3, -3, 3.5]


@needs_importer
def test_powers():
    circuit = Circuit.from_qasm3(HEADER + "qubit q; pow(3) @ h q; pow(-2) @ s q; pow(0) @ x q; pow(1000000) @ rx(0.5) q; pow(0.5) @ p(pi) q;")
    assert [str(step) for step in circuit] == ["H 0"] * 3 + ["sdg 0"] * 2 + ["RX(500000) 0", "PH(1.57079632679) 0"]
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] q; pow(100001) @ ch q[0], q[1]; pow(1/2.0) @ x q[0]; pow(-1.5) @ cx q[0], q[1];")
    assert [step.name for step in circuit] == ["matrix"] * 3
    root = (np.eye(2) + 1j * np.eye(2) + (1 - 1j) * np.array([[0, 1], [1, 0]])) / 2
    np.testing.assert_allclose(np.array(circuit[1].params).reshape(2, 2), root, rtol=0, atol=1e-15)


@needs_importer
def test_open_parameters_in_modified_gates():
    text = "input float[64] Theta; input angle sin; qubit[2] q; ctrl @ inv @ rx(2 * Theta) q[0], q[1]; pow(2) @ rz(sin / 3) q[0]; ctrl @ gphase(-sin) q[1];"
    circuit = Circuit.from_qasm3(HEADER + text)
    assert set(circuit.parameters) == {"Theta", "sin"}
    assert [str(step) for step in circuit.bind(Theta=0.5, sin=0.75)] == ["RX(-1) 1 controls 0", "RZ(0.5) 0", "PH(-0.75) 1"]


@needs_importer
def test_a_phase_in_front_of_measurements_leaves_them_at_the_end():
    circuit = Circuit.from_qasm3(HEADER + "qubit q; bit c; h q; c = measure q; gphase(0.5);")
    result = run(circuit, shots=10, seed=1)
    assert [step.name for step in circuit] == ["RZ", "PH", "H", "measure"] and result.has_state


@needs_importer
def test_names_of_registers_are_kept():
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] a; bit[2] m; qubit b; h a[0]; m[0] = measure a[0]; reset b;")
    assert [(r.name, r.kind, r.start, r.size) for r in circuit.registers] == [("a", "quantum", 0, 2), ("b", "quantum", 2, 1), ("m", "classical", 0, 2)]
    assert list(circuit) == [Instruction("H", (0,)), Instruction("measure", (0,), clbits=(0,)), Instruction("reset", (2,))]
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] Q; bit Erg; qubit ÄÖ; h ÄÖ;")
    assert [register.name for register in circuit.registers] == ["Q", "ÄÖ", "Erg"]
    circuit = Circuit.from_qasm3(HEADER + "h $1;")
    assert circuit.n_qubits == 2 and [register.size for register in circuit.registers] == [1, 1]


@needs_importer
def test_conditions():
    circuit = Circuit.from_qasm3(
        HEADER + "qubit[2] q; bit[2] c; c = measure q; if (c == 2) { x q[0]; } if (c[1]) { y q[0]; } else { z q[0]; h q[1]; } if (!c[0]) x q[1];"
    )
    assert [(step.name, step.condition) for step in circuit if step.is_gate] == [
        ("X", Condition((0, 1), 2)), ("Y", Condition((1,), 1)), ("Z", Condition((1,), 0)), ("H", Condition((1,), 0)), ("X", Condition((0,), 0)),
    ]  # fmt: skip


@needs_importer
def test_inputs_are_parameters():
    circuit = Circuit.from_qasm3(HEADER + "input float[64] theta; input float[64] phi; qubit q; rx(2 * theta + phi) q; rz(theta) q;")
    assert set(circuit.parameters) == {"theta", "phi"}
    assert list(circuit.bind(theta=0.5, phi=0.25)) == [Instruction("RX", (0,), (1.25,)), Instruction("RZ", (0,), (0.5,))]


@needs_importer
def test_file(tmp_path):
    (tmp_path / "a.qasm").write_text(HEADER + "qubit q; h q;")
    assert Circuit.from_qasm3(tmp_path / "a.qasm") == Circuit.from_qasm3(HEADER + "qubit q; h q;")
    with pytest.raises(FileNotFoundError):
        Circuit.from_qasm3(tmp_path / "b.qasm")


@needs_importer
@pytest.mark.parametrize(
    "text, lines",
    [
        ("if (c == 1) { x q[0]; } else { y q[0]; }", 'if c[0, 1] == "10":|    X 0|else:|    Y 0'),
        ("if (c[0]) { if (c[1]) { y q[0]; } x q[0]; }", "if c[0] == 1:|    Y 0 if c[1] == 1|    X 0"),
        ("if (c[0]) { c = measure q; x q[0]; }", "if c[0] == 1:|    measure 0 -> 0|    measure 1 -> 1|    X 0"),
        ("if (c[0]) { c[1] = measure q[0]; x q[0]; }", "measure 0 -> 1 if c[0] == 1|X 0 if c[0] == 1"),
        ("while (c == 2) { h q[1]; c[1] = measure q[1]; }", 'while c[0, 1] == "01":|    H 1|    measure 1 -> 1'),
        ("if (!c[0]) { x q[0]; } else { while (!c[0]) { c = measure q; } }",
         "if c[0] == 0:|    X 0|else:|    while c[0] == 0:|        measure 0 -> 0|        measure 1 -> 1"),
    ],
)  # fmt: skip
def test_decisions_and_loops(text, lines):
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] q; bit[2] c;" + text)
    assert str(circuit).splitlines() == lines.split("|")


REFUSED = [
    # the text, with the mark @ at the place that is told; what is told
    ("qubit q; @unknown q;", "gate 'unknown' is not defined"),
    ("qubit q; h q@", "missing ';'"),
    ("qubit q; h q; @$ x q;", "token recognition error"),
    ("qubit[2] q; cx q[0] @q[1];", "missing ';'"),
    ("@\0\1binary", "token recognition error"),
    ("qubit q; bit[2] c; @while (c[0]) { c[1] = measure q; }", "body of a while must measure into a bit of its condition"),
    ("qubit q; bit c; while (c) { c = measure q; @break; }", "break cannot be carried out"),
    ("qubit q; bit[2] c; if (@c < 2) x q;", "unhandled binary operator"),
    ("qubit q; @for int i in [0:3] { x q; }", "a for loop cannot be carried out"),
    ("qubit q; @def f() { }", "SubroutineDefinition is not supported"),
    ("@pragma anything\nqubit q;", "Pragma is not supported"),
    ('@include "other.inc";', "non-stdgates imports"),
    ("qubit q; bit[2] c; @if (c == 4) x q;", "the condition can never hold: 2 bit(s) do not become 4"),
    ("qubit q; bit[2] c; @if (c == -1) x q;", "the condition can never hold"),
    ("qubit q; if (@q == 1) x q;", "conditions must be"),
    ("qubit q; @rx(1, 2) q;", "gate 'rx' takes 1 parameter(s), got 2"),
    ("qubit q; @U(1) q;", "gate 'U' takes 3 parameter(s), got 1"),
    ("gate g(a) x { rx(a) x; } qubit q; @g q;", "gate 'g' takes 1 parameter(s), got 0"),
    ("qubit[2] q; @cx q[0], q[0];", "duplicate"),
    ("qubit q; @ctrl @@ x q;", "does not match"),
    ("qubit q; @ctrl(0) @@ x q;", "ctrl(0) must have from 1 to 1000000 controls"),
    ("qubit q; @negctrl(10000000000000) @@ x q;", "negctrl(10000000000000) must have"),
    ("qubit q; @rx(1/0) q;", "by zero"),
    ("qubit q; @rx(1e999) q;", "angle must be finite, got inf"),
    ("qubit q; rx(@sin(1)) q;", "FunctionCall"),
    ("qubit[3] q; h @q[1:3];", "a range must be within the 3 bits"),
    ("qubit[3] q; @h q[3];", "out of range"),
    ("@gphase(0.5);", "a global phase cannot be converted where there is no qubit"),
    ("qubit q; @gphase(0.5) q;", "does not match"),
    ("gate g a { h a; @reset a; } qubit q;", "reset"),
    ("gate g a { h a; @unknown a; } qubit q;", "gate 'unknown' is not defined"),
    ("gate g a { @pow(0.5) @@ rx(7) a; } qubit q;", "the principal root is not the rotation by a part of the angle"),
    ("qubit q; @pow(0.5) @@ p(-pi) q;", "the principal root is not"),
    ("input float a; qubit q; @pow(0.5) @@ rx(a) q;", "pow(0.5) of a gate whose angles are not known yet"),
    ("qubit[7] q; gate g a, b, c, d, e, f, i { cx a, b; } @pow(2000) @@ g q[0], q[1], q[2], q[3], q[4], q[5], q[6];", "7 qubits"),
    ("@qubit[1000001] q;", "a register has at most 1000000 bits"),
    ("@bit[1000000 * 1000000] c;", "a register has at most 1000000 bits"),
    ("@qubit[-1] q;", "a register has at most 1000000 bits"),
]


@needs_importer
@pytest.mark.parametrize("marked, message", REFUSED, ids=[marked for marked, _ in REFUSED])
def test_what_cannot_be_said_is_refused_at_its_place(marked, message, capfd):
    before, after = marked.replace("@@", "\u0001").split("@", 1)
    before = before.replace("; ", ";\n")
    text = HEADER + before + after.replace("\u0001", "@")
    with pytest.raises(QasmError) as caught:
        Circuit.from_qasm3(text)
    error = caught.value
    assert message in str(error)
    assert (error.line, error.column) == (3 + before.count("\n"), len(before.rpartition("\n")[2]) + 1)
    assert str(error).startswith(f"<text>:{error.line}:{error.column}: ") and len(str(error)) < 700
    assert capfd.readouterr() == ("", "")


@needs_importer
def test_deep_nesting_is_refused():
    with pytest.raises(QasmError, match="nested more deeply than Qiskit's importer can follow"):
        Circuit.from_qasm3(HEADER + "qubit q; rx(" + "(" * 5000 + "1" + ")" * 5000 + ") q;")


@needs_importer
@pytest.mark.parametrize("comment", ["", "// OPENQASM 3.0;\n", "/* OPENQASM 3.0;\n */ "])
def test_other_versions_are_refused_by_name(comment):
    with pytest.raises(QasmError, match="this reader knows OpenQASM 3, not 2.0; Circuit.from_qasm reads 2.0"):
        Circuit.from_qasm3(comment + "OPENQASM 2.0; qreg q[1];")
    assert Circuit.from_qasm3("// OPENQASM 2.0;\nOPENQASM 3.1; qubit q;").n_qubits == 1
    assert Circuit.from_qasm3("// no version\nqubit q;").n_qubits == 1


@needs_importer
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


@pytest.mark.parametrize("has_qiskit", [False, True], ids=["neither", "qiskit alone"])
def test_the_message_tells_how_to_get_the_importer(tmp_path, has_qiskit):
    # A real environment: a folder with this package, NumPy perhaps all else but the importer, and no site-packages.
    import numpy

    import velacamplix

    (tmp_path / "velacamplix").mkdir()
    folders = [*map(Path, velacamplix.__path__), Path(velacamplix._core.__file__).parent]
    for entry in {entry.name: entry for folder in folders for entry in folder.iterdir()}.values():
        (tmp_path / "velacamplix" / entry.name).symlink_to(entry)
    site = Path(numpy.__file__).parents[1]
    for entry in site.glob("*" if has_qiskit else "numpy*"):
        if not entry.name.startswith(("qiskit_qasm3_import", "velacamplix", "_velacamplix")):
            (tmp_path / entry.name).symlink_to(entry)
    if has_qiskit and not (tmp_path / "qiskit").exists():
        pytest.skip("Qiskit is not installed beside NumPy: pip install velacamplix[test]")
    code = "import velacamplix; velacamplix.Circuit.from_qasm3('OPENQASM 3.0; qubit q;')"
    done = subprocess.run(
        [sys.executable, "-S", "-c", code], env={**os.environ, "PYTHONPATH": str(tmp_path)}, capture_output=True, text=True, timeout=120
    )
    missing = "qiskit_qasm3_import" if has_qiskit else "qiskit"
    assert done.stderr.splitlines()[-1] == (
        "ImportError: reading OpenQASM 3 needs the packages qiskit and qiskit_qasm3_import, and "
        f"{missing} is not installed; get them with: pip install qiskit qiskit_qasm3_import"
    )
