"""OpenQASM 3 by way of Qiskit's importer: what it becomes, what is refused, and what is said when it is not installed."""

import os
import subprocess
import sys
from importlib.util import find_spec
from pathlib import Path

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Condition, Instruction

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


@needs_importer
@pytest.mark.parametrize("name", PROGRAMS)
def test_program_is_the_one_qiskit_reads(name):
    from qiskit import qasm3
    from qiskit.quantum_info import Operator

    theirs = Operator(qasm3.loads(HEADER + PROGRAMS[name])).data
    mine = numpy_simulator.unitary(Circuit.from_qasm3(HEADER + PROGRAMS[name]))
    # The phase of the whole is the one thing that is not kept.
    place = np.unravel_index(np.abs(theirs).argmax(), theirs.shape)
    np.testing.assert_allclose(mine * (theirs[place] / mine[place]), theirs, rtol=0, atol=1e-12)


@needs_importer
def test_names_of_registers_are_kept():
    circuit = Circuit.from_qasm3(HEADER + "qubit[2] a; bit[2] m; qubit b; h a[0]; m[0] = measure a[0]; reset b;")
    # The importer forgets the name of a single qubit.
    assert [(r.name, r.kind, r.start, r.size) for r in circuit.registers] == [("a", "quantum", 0, 2), ("q", "quantum", 2, 1), ("m", "classical", 0, 2)]
    assert list(circuit) == [Instruction("H", (0,)), Instruction("measure", (0,), clbits=(0,)), Instruction("reset", (2,))]


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
    "text, message",
    [
        ("qubit q; unknown q;", "importer refused"),
        ("qubit q; h q", "importer refused"),
        ("\0\1binary", "importer refused"),
        ("qubit[2] q; bit[2] c; c = measure q; while (c == 1) { x q[0]; c = measure q; }", "cannot be converted|importer refused"),
        ("qubit q; bit[2] c; if (c == 1) { x q; } else { y q; }", "else after a condition on several bits"),
        ("qubit q; bit[2] c; if (c[0]) { if (c[1]) { y q; } }", "if inside an if"),
        ("qubit q; bit c; if (c) { c = measure q; x q; }", "measurement into a bit of its condition"),
        ("qubit q; delay[100ns] q;", "cannot be converted|importer refused"),
        ("qubit q; rx(" + "(" * 5000 + "1" + ")" * 5000 + ") q;", "importer"),
    ],
)
def test_what_cannot_be_said_is_refused(text, message):
    with pytest.raises(ValueError, match=message):
        Circuit.from_qasm3(HEADER + text)


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
