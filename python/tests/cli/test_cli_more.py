"""Standard input, pictures, progress, help and `velacamplix bench`, as real processes."""

import json
import os
import re
import subprocess
import sys

import pytest
from test_cli import HEADER, failed, table, write  # noqa: F401  (a fixture)

GHZ = HEADER + "qreg q[3];\ncreg c[3];\nh q[0];\ncx q[0], q[1];\ncx q[1], q[2];\nmeasure q -> c;\n"


def with_input(text, *arguments, **environment):
    return subprocess.run(
        [sys.executable, "-m", "velacamplix", *map(str, arguments)],
        input=text if isinstance(text, bytes) else text.encode(),
        env={**os.environ, "PYTHONIOENCODING": "utf-8", "COLUMNS": "80", **environment},
        capture_output=True,
    )


def decoded(ended):
    ended.stdout, ended.stderr = ended.stdout.decode(), ended.stderr.decode()
    return ended


# Standard input


def test_a_circuit_from_standard_input():
    ended = decoded(with_input(GHZ, "run", "-"))
    assert ended.stdout.startswith("<standard input>: 3 qubits, 3 gates\n")
    assert table(ended) == [("000", 0.5), ("111", 0.5)]


@pytest.mark.parametrize(
    ("text", "words"),
    [
        (HEADER + "qreg q[2];\nfoo q[0];\n", "velacamplix: <standard input>:4:1:"),
        ("", "velacamplix: <standard input>:1:1:"),
        ("ghz.qasm", "velacamplix: <standard input>:"),
        (b"\xff\xfe\x00", "velacamplix: <standard input>:1:1: unexpected character '\N{REPLACEMENT CHARACTER}'"),
    ],
)
def test_mistakes_on_standard_input(text, words):
    failed(decoded(with_input(text, "run", "-")), 1, words)


# Pictures


@pytest.mark.parametrize(("ending", "arguments"), [("png", ()), ("svg", ("--shots", 500)), ("pdf", ("--top", 1))])
def test_pictures(ending, arguments, command, write, tmp_path):  # noqa: F811
    pytest.importorskip("matplotlib")
    ended = command("run", write(GHZ, header=""), "--plot", f"out.{ending}", *arguments)
    assert ended.returncode == 0 and ended.stderr == "" and "leftmost first" in ended.stdout
    start = {"png": b"\x89PNG", "svg": b"<?xml", "pdf": b"%PDF"}[ending]
    content = (tmp_path / f"out.{ending}").read_bytes()
    assert content.startswith(start) and len(content) > 3000


def test_a_picture_shows_more_than_the_table(command, write, tmp_path):  # noqa: F811
    pytest.importorskip("matplotlib")
    body = "qreg q[5];\nh q;\n"
    ended = command("run", write(body), "--plot", "out.svg", "--top", 2)
    assert [outcome for outcome, _ in table(ended)] == ["00000", "00001", "others"]
    assert table(ended)[-1][1] == pytest.approx(30 / 32)
    drawing = (tmp_path / "out.svg").read_text()
    assert all(f"<!-- {i:05b} -->" in drawing for i in range(32)) and "others" not in drawing


def test_a_picture_of_a_file_with_a_strange_name(command, write, tmp_path):  # noqa: F811
    pytest.importorskip("matplotlib")
    ended = command("run", write("qreg q[1];\n", name="a$\\frac$_{&<b>.qasm"), "--plot", "out.svg")
    assert ended.returncode == 0 and (tmp_path / "out.svg").stat().st_size > 3000


def test_a_picture_of_very_many_outcomes(command, write, tmp_path):  # noqa: F811
    pytest.importorskip("matplotlib")
    command("run", write("qreg q[12];\nh q;\n"), "--plot", "out.svg")
    picture = (tmp_path / "out.svg").read_text()
    assert "<!-- others -->" in picture and "<!-- 0.992 -->" in picture


@pytest.mark.parametrize(
    ("file", "words"),
    [
        ("out.xyz", "argument --plot: expected a file name that ends in ."),
        ("out", "argument --plot: expected a file name"),
        ("no/such/out.png", "argument --plot: there is no folder 'no/such' for 'no/such/out.png'"),
    ],
)
def test_pictures_that_cannot_be_written(file, words, command, write):  # noqa: F811
    pytest.importorskip("matplotlib")
    failed(command("run", write(GHZ, header=""), "--plot", file), 2, words)


def test_pictures_without_matplotlib(write, tmp_path):  # noqa: F811
    # A real interpreter in which importing matplotlib fails as it does where it is not installed.
    script = "import sys; sys.modules['matplotlib'] = None; from velacamplix.cli import main; sys.exit(main())"
    arguments = ["run", write(GHZ, header=""), "--plot", "out.png"]
    ended = subprocess.run([sys.executable, "-c", script, *arguments], cwd=tmp_path, capture_output=True, text=True)
    failed(ended, 1, "velacamplix: --plot needs matplotlib; install it with: pip install matplotlib")


# Progress


def test_short_runs_show_no_progress(command, write):  # noqa: F811
    assert command("run", write(GHZ, header=""), "--progress", VELACAMPLIX_QUIET_SECONDS="600").stderr == ""


def test_progress_goes_to_standard_error(command, write):  # noqa: F811
    ended = command("run", write(GHZ, header=""), "--progress", "--json", VELACAMPLIX_QUIET_SECONDS="0")
    assert json.loads(ended.stdout)["gates"] == 3
    assert "gates" in ended.stderr


# Help


@pytest.mark.parametrize("words", [(), ("run",), ("bench",)])
def test_help_has_examples_and_exit_statuses(words, command):
    ended = command(*words, "--help")
    assert ended.returncode == 0 and ended.stderr == ""
    assert "examples:\n" in ended.stdout and "exit status:\n  0 " in ended.stdout
    assert max(map(len, ended.stdout.splitlines())) <= 80


# Measurements


def test_bench(command):
    ended = command("bench", "--seconds", 1, "--qubits", 8, "--threads", 1)
    assert (ended.returncode, ended.stderr) == (0, "")
    lines = ended.stdout.splitlines()
    assert re.fullmatch(r"velacamplix \S+, \S+, double precision, 1 thread", lines[0])
    assert lines[2].split() == "qubits state sweep H RX T CNOT circuit of limit shots".split()
    assert [line.split()[0] for line in lines[4:6]] == ["6", "8"]
    assert max(map(len, lines)) < 110


def test_bench_as_json(command):
    told = json.loads(command("bench", "--seconds", 1, "--qubits", 10, "--precision", "single", "--json").stdout)
    assert told["precision"] == "single" and [row["qubits"] for row in told["rows"]] == [6, 10]
    for row in told["rows"]:
        assert row["bytes"] == 8 * 2 ** row["qubits"]
        rates = [*row["gates_per_second"].values(), row["circuit_gates_per_second"], row["shots_per_second"]]
        assert len(rates) == 6 and all(rate > 0 for rate in rates)
        # The two ways to tell a circuit's speed agree.
        assert row["circuit_gates_per_sweep"] == pytest.approx(row["circuit_gates_per_second"] * row["sweep_seconds"])


@pytest.mark.parametrize(
    ("arguments", "words"),
    [
        (("--seconds", "0"), "argument --seconds: expected a whole number of at least 1"),
        (("--qubits", "41"), "argument --qubits: expected a whole number from 1 to 40"),
        (("--precision", "half"), "invalid choice: 'half'"),
    ],
)
def test_bench_with_wrong_arguments(arguments, words, command):
    failed(command("bench", *arguments), 2, "usage: velacamplix bench", words)


def test_a_loop_that_does_not_end_is_told_in_one_line(command, tmp_path):
    (tmp_path / "loop.qasm").write_text("OPENQASM 3.0; qubit q; bit c; while (!c) { c = measure q; }")
    failed(command("run", "loop.qasm"), 1, "loop.qasm: instruction 0 (while c[0] == 0) has gone round max_iterations=10000 times")
