"""Both versions of OpenQASM on the command line: `run` by the first line, `convert`, values of inputs."""

import json

import pytest
from test_cli import HEADER, failed, table, write  # noqa: F401  (a fixture)
from test_cli_more import decoded, with_input

from velacamplix import Circuit

HEADER_3 = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'
NEW = HEADER_3 + """input float theta;
qubit[2] q;
bit[2] c;
rx(theta) q[0];
for int i in [0:0] { cx q[i], q[i + 1]; }
c = measure q;
"""
OLD = HEADER + "qreg q[2];\ncreg c[2];\nrx(pi/2) q[0];\ncx q[0],q[1];\nmeasure q -> c;\n"


def test_run_reads_both_versions(command, write):
    old, new = write(OLD, "old.qasm", ""), write("// version 3\n" + NEW, "new.qasm", "")
    assert table(command("run", old)) == table(command("run", new, "--set", "theta=pi/2")) == [("00", 0.5), ("11", 0.5)]
    ended = decoded(with_input(NEW, "run", "-", "--set", "theta = 0.0"))
    assert ended.stdout.startswith("<standard input>: 2 qubits, 2 gates\n") and table(ended) == [("00", 1.0)]
    answer = json.loads(command("run", new, "--set", "theta=1e-3*pi", "--json").stdout)
    assert list(answer["probabilities"]) == ["00", "11"]


@pytest.mark.parametrize(
    "settings, status, message",
    [
        ([], 1, "new.qasm: inputs must have values, give them with --set NAME=VALUE: theta"),
        (["--set", "phi=1"], 2, "new.qasm: argument --set: values must be for parameters of the circuit, one of ['theta']; got 'phi'"),
        (["--set", "theta"], 2, "argument --set: expected a name and a number, such as theta=pi/4, got 'theta'"),
        (["--set", "theta=x"], 2, "argument --set: expected a name and a number, such as theta=pi/4, got 'theta=x'"),
        (["--set", "theta=1", "--set", "theta=2"], 2, "argument --set: a name must be given one value, got theta, theta"),
        (["--set", "theta=1/0"], 2, "argument --set: expected a name and a number"),
        (["--set", "theta=1,2"], 2, "argument --set: expected a name and a number"),
    ],
)
def test_wrong_values_of_inputs(command, write, settings, status, message):
    ended = command("run", write(NEW, "new.qasm", ""), *settings)
    assert ended.returncode == status and message in ended.stderr and ended.stdout == ""


def test_mistakes_in_version_3_are_told_with_their_place(command, write):
    ended = command("run", write("qubit q;\nh q\n", "new.qasm", HEADER_3))
    failed(ended, 1, "velacamplix: new.qasm:5:1: unexpected end of the program, expected ',' or ';'")


def test_convert_there_and_back(command, write, tmp_path):
    old = write(OLD, "old.qasm", "")
    ended = command("convert", old)
    assert ended.stderr == "" and ended.returncode == 0
    assert ended.stdout == Circuit.from_qasm(OLD).to_qasm3()
    assert command("convert", old, "-o", "-").stdout == ended.stdout
    assert command("convert", old, "-o", "new.qasm3").stdout == ""
    assert (tmp_path / "new.qasm3").read_text() == ended.stdout
    back = command("convert", "new.qasm3", "--output", "back.qasm")
    assert (back.returncode, back.stdout, back.stderr) == (0, "", "")
    assert Circuit.from_qasm((tmp_path / "back.qasm").read_text()) == Circuit.from_qasm(OLD)


@pytest.mark.parametrize(
    "arguments, version",
    [(["--to", "2"], 2), (["-o", "x.QASM2"], 2), (["-o", "x.qasm"], 3), (["-o", "x.qasm3", "--to", "2"], 2)],
)
def test_the_version_that_is_written(command, write, tmp_path, arguments, version):
    ended = command("convert", write(OLD, "old.qasm", ""), *arguments)
    text = (tmp_path / arguments[1]).read_text() if arguments[0] == "-o" else ended.stdout
    assert text.startswith(f"OPENQASM {version}.0;\n")


def test_inputs_stay_or_get_their_value(command, write):
    new = write(NEW, "new.qasm3", "")
    assert "input float[64] theta;\n" in command("convert", new, "--to", "3").stdout
    assert "rx(pi/4) q[0];\n" in command("convert", new, "--set", "theta=pi/4").stdout
    failed(command("convert", new), 1, "new.qasm3: inputs must have values, give them with --set NAME=VALUE: theta")


def test_names_with_letters_that_the_terminal_lacks(command, write, tmp_path):
    (tmp_path / "new.qasm").write_text("OPENQASM 3.0; qubit Ψ; U(1, 2, 3) Ψ;", encoding="utf-8")
    ended = command("convert", "new.qasm", "--to", "3", PYTHONIOENCODING="ascii", LC_ALL="C")
    assert "qubit[1] Ψ;\n" in ended.stdout


def test_what_the_other_version_cannot_say(command, write, tmp_path):
    name = write("qubit q; bit c; while (!c) { h q; c = measure q; }", "new.qasm3", HEADER_3)
    ended = command("convert", name, "-o", "old.qasm")
    failed(ended, 1, "new.qasm3: instruction 0 (while c[0] == 0) cannot be written in OpenQASM 2: it has no while")
    assert not (tmp_path / "old.qasm").exists()
    failed(command("convert", "missing.qasm"), 1, "missing.qasm: No such file or directory")
    failed(command("convert", write(OLD, "old.qasm", ""), "-o", "no/such/folder.qasm3"), 1, "no/such/folder.qasm3: No such file or directory")
