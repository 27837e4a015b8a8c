"""The command line, as real processes: what it prints, where, and with which exit status."""

import math
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest

import velacamplix
from velacamplix import StateVector
from velacamplix.states import outcomes as _outcomes

HEADER = 'OPENQASM 2.0;\ninclude "qelib1.inc";\n'


@pytest.fixture
def write(tmp_path):
    def to_file(body, name="circuit.qasm", header=HEADER):
        (tmp_path / name).write_text(header + body)
        return name

    return to_file


def table(ended):
    """The outcomes that were printed, as pairs of text and probability."""
    assert ended.returncode == 0, ended.stderr
    rows = ended.stdout.split("leftmost first:")[1].splitlines()[1:]
    return [(row.split()[0], float(row.split()[1])) for row in rows]


# What is printed


def test_a_measured_circuit(command, write):
    ended = command("run", write("qreg q[3];\ncreg c[3];\nh q[0];\ncx q[0], q[1];\nmeasure q -> c;\n"), "--threads", 2)
    lines = ended.stdout.splitlines()
    assert lines[0] == "circuit.qasm: 3 qubits, 2 gates"
    assert re.fullmatch(r"double precision, 2 threads, \d+(\.\d+)? m?s", lines[1])
    assert lines[3] == "most probable outcomes of the measured bits, leftmost first: c[0] c[1] c[2]"
    assert lines[4].split() == ["000", "0.500000", lines[4].split()[2]]
    assert lines[5].split() == ["110", "0.500000", lines[4].split()[2]]
    assert set(lines[4].split()[2]) == {"█"}
    assert len(lines) == 6 and ended.stderr == ""


def test_without_measurements_all_qubits_are_shown(command, write):
    ended = command("run", write("qreg a[1];\nqreg b[2];\nx b[0];\n"))
    assert "most probable outcomes of all qubits, leftmost first: a[0] b[0] b[1]" in ended.stdout
    assert table(ended) == [("010", 1.0)]


def test_outcomes_are_those_of_the_classical_bits(command, write):
    # c[0] first held q[0], whose value was 0; the later measurement counts.
    body = "qreg q[3];\ncreg c[4];\nx q[2];\nmeasure q[0] -> c[0];\nmeasure q[2] -> c[0];\n"
    body += "measure q[1] -> c[1];\nmeasure q[2] -> c[3];\n"
    ended = command("run", write(body))
    assert "leftmost first: c[0] c[1] c[3]" in ended.stdout
    assert table(ended) == [("101", 1.0)]


def test_the_most_probable_come_first_and_the_rest_is_summed_up(command, write):
    ended = command("run", write("qreg q[3];\nry(0.5) q[0];\nry(1.0) q[1];\nry(1.5) q[2];\n"), "--top", 3)
    state = StateVector(3).ry(0.5, 0).ry(1.0, 1).ry(1.5, 2)
    expected = sorted(((format(i, "03b"), p) for i, p in enumerate(state.distribution())), key=lambda pair: -pair[1])
    printed = table(ended)
    assert [outcome for outcome, _ in printed] == [outcome for outcome, _ in expected[:3]] + ["others"]
    for (_, shown), (_, probability) in zip(printed, expected):
        if shown != printed[-1][1]:
            assert shown == pytest.approx(probability, abs=1e-6)
    assert printed[-1][1] == pytest.approx(sum(p for _, p in expected[3:]), abs=1e-6)


def test_ten_outcomes_are_shown_unless_told_otherwise(command, write):
    name = write("qreg q[5];\nh q;\n")
    assert [outcome for outcome, _ in table(command("run", name))] == [format(i, "05b") for i in range(10)] + ["others"]
    assert len(table(command("run", name, "--top", 100))) == 32


def test_single_precision(command, write):
    ended = command("run", write("qreg q[2];\nh q;\n"), "--precision", "single")
    assert "single precision" in ended.stdout
    assert [probability for _, probability in table(ended)] == [0.25] * 4


def test_long_outcomes(command, write):
    ended = command("run", write("qreg q[20];\nx q[19];\n"))
    assert "leftmost first: q[0] q[1] … q[19]" in ended.stdout
    assert table(ended) == [("0" * 19 + "1", 1.0)]
    assert max(map(len, ended.stdout.splitlines())) < 80


def test_small_probabilities_are_not_rounded_to_zero(command, write):
    ended = command("run", write("qreg q[1];\nry(0.001) q[0];\n"))
    assert table(ended)[1] == ("1", 2.5e-7)


def test_a_program_without_qubits(command, write):
    ended = command("run", write(""))
    assert "0 qubits, 0 gates" in ended.stdout and ended.returncode == 0


def test_bars_on_a_terminal_that_knows_ascii_only(command, write):
    ended = command("run", write("qreg q[10];\nh q[0];\n"), PYTHONIOENCODING="ascii")
    assert ended.returncode == 0 and ended.stderr == ""
    assert "####" in ended.stdout and "q[0] q[1] ... q[9]" in ended.stdout


def test_bars_fit_the_terminal(command, write):
    ended = command("run", write("qreg q[2];\nh q[0];\n"), COLUMNS="40")
    assert max(map(len, ended.stdout.splitlines()[4:])) == 39


def test_threads_from_the_environment(command, write):
    name = write("qreg q[1];\n")
    assert "3 threads" in command("run", name, VELACAMPLIX_NUM_THREADS="3").stdout
    assert "4 threads" in command("run", name, OMP_NUM_THREADS="4").stdout
    assert "1 thread," in command("run", name, "--threads", 1, VELACAMPLIX_NUM_THREADS="3").stdout


def test_the_installed_command_is_the_module(write, tmp_path):
    script = shutil.which("velacamplix", path=str(Path(sys.executable).parent))
    if script is None:
        pytest.skip("no velacamplix command beside this Python: the package is not installed with pip here")
    ended = subprocess.run([script, "run", write("qreg q[1];\nx q[0];\n")], cwd=tmp_path, capture_output=True, text=True)
    assert table(ended) == [("1", 1.0)]


# What goes wrong


def failed(ended, status, *words):
    assert ended.returncode == status, (ended.stdout, ended.stderr)
    assert ended.stdout == ""
    for word in words:
        assert word in ended.stderr, ended.stderr
    assert "Traceback" not in ended.stderr


def test_missing_file(command):
    failed(command("run", "no/such.qasm"), 1, "velacamplix: no/such.qasm: No such file or directory\n")


def test_a_folder_is_no_file(command, tmp_path):
    failed(command("run", tmp_path), 1, f"{tmp_path}: Is a directory")


@pytest.mark.parametrize(
    ("body", "place"),
    [
        ("qreg q[2]\nh q[0];\n", ":4:1:"),
        ("qreg q[2];\n  frobnicate q[0];\n", ":4:3:"),
        ("qreg q[2];\nh q[2];\n", ":4:3:"),
        ("qreg q[2];\nrx(1/0) q[0];\n", ":4:"),
    ],
)
def test_mistakes_in_the_file_are_told_with_line_and_column(body, place, command, write):
    failed(command("run", write(body)), 1, "velacamplix: circuit.qasm" + place)


def test_what_is_no_text(command, tmp_path):
    (tmp_path / "picture.qasm").write_bytes(bytes(range(256)))
    failed(command("run", "picture.qasm"), 1, "picture.qasm:1:1:")


def test_too_many_qubits(command, write):
    ended = command("run", write("qreg q[50];\nh q;\n"))
    failed(ended, 1, "circuit.qasm: n=50 qubits in double precision need 16.0 PiB", "largest n that fits is")


@pytest.mark.parametrize(
    ("body", "counts"),
    [
        ("qreg q[2];\ncreg c[1];\nx q[0];\nmeasure q[0] -> c[0];\nif (c == 1) x q[1];\n", {"1": 9}),
        ("qreg q[2];\nx q[0];\nreset q[0];\n", {"00": 9}),
        ("qreg q[2];\ncreg c[1];\nx q[0];\nmeasure q[0] -> c[0];\nx q[0];\n", {"1": 9}),
    ],
)
def test_what_has_one_outcome_in_its_middle_has_probabilities(body, counts, command, write):
    name = write(body)
    assert dict(table(command("run", name, "--shots", 9))) == counts
    (outcome,) = counts
    assert [row[0] for row in table(command("run", name))] == [outcome]


def test_what_has_no_exact_probabilities_is_drawn(command, write):
    name = write("qreg q[2];\ncreg c[1];\nh q[0];\nmeasure q[0] -> c[0];\nif (c == 1) x q[1];\n")
    failed(command("run", name), 1, "circuit.qasm: shots must be given for this circuit", "in its middle; give --shots N")


def test_measurements_in_the_middle(command, write):
    # A coin that is thrown again where it showed 0: 1 in three cases of four.
    body = "qreg q[1];\ncreg c[1];\nh q[0];\nmeasure q[0] -> c[0];\nif (c == 0) h q[0];\nmeasure q[0] -> c[0];\n"
    ended = command("run", write(body), "--shots", 4000, "--seed", 1, "--observable", "Z0")
    counts = {row.split()[0]: int(row.split()[1]) for row in ended.stdout.splitlines()[4:6]}
    assert counts["0"] + counts["1"] == 4000 and abs(counts["1"] - 3000) < 6 * 27.4
    text, mean = re.split(r"\s{2,}", ended.stdout.split("expectation values, means over the shots\n")[1].strip())
    assert text == "Z0" and float(mean) == pytest.approx(-0.5, abs=0.1)


def test_idle_qubits_take_no_memory(command, write):
    ended = command("run", write("qreg q[90];\ncreg c[3];\nx q[70];\nmeasure q[0] -> c[0];\nmeasure q[70] -> c[2];\n"))
    assert table(ended) == [("01", 1.0)] and "leftmost first: c[0] c[2]" in ended.stdout
    ended = command("run", write("qreg q[90];\nx q[60];\n"), "--observable", "Z0 Z60")
    assert ended.stdout.splitlines()[4].split()[:2] == ["0" * 60 + "1" + "0" * 29, "1.000000"]
    assert ended.stdout.splitlines()[-1] == "Z0 Z60  -1.000000"


def test_an_angle_beyond_single_precision(command, write):
    name = write("qreg q[1];\nrx(1e300) q[0];\n")
    for precision in ("single", "double"):
        outcomes = dict(table(command("run", name, "--precision", precision)))
        assert outcomes["1"] == pytest.approx(math.sin(1e300 / 2) ** 2, abs=2e-6)


@pytest.mark.parametrize(
    ("arguments", "words"),
    [
        ((), "COMMAND"),
        (("walk",), "invalid choice: 'walk'"),
        (("run",), "FILE.qasm"),
        (("run", "a.qasm", "--threads", "0"), "argument --threads: expected a whole number from 1 to"),
        (("run", "a.qasm", "--threads", "100000"), "argument --threads: expected a whole number from 1 to"),
        (("run", "a.qasm", "--threads", "two"), "got 'two'"),
        (("run", "a.qasm", "--top", "-1"), "argument --top"),
        (("run", "a.qasm", "--top", "1.5"), "expected a whole number of at least 1, got '1.5'"),
        (("run", "a.qasm", "--precision", "half"), "invalid choice: 'half'"),
    ],
)
def test_wrong_arguments(arguments, words, command):
    failed(command(*arguments), 2, "usage: velacamplix", words)


def test_a_bad_variable(command, write):
    ended = command("run", write("qreg q[1];\n"), VELACAMPLIX_NUM_THREADS="many")
    failed(ended, 2, "velacamplix: environment variable VELACAMPLIX_NUM_THREADS is 'many'")


def test_a_reader_that_stops_early(write, tmp_path):
    name = write("qreg q[16];\nh q;\n")
    pipe = f"{sys.executable} -m velacamplix run {name} --top 65536 | head -n 1; exit ${{PIPESTATUS[0]}}"
    ended = subprocess.run(["bash", "-c", pipe], cwd=tmp_path, capture_output=True, text=True)
    assert (ended.returncode, ended.stdout, ended.stderr) == (141, f"{name}: 16 qubits, 16 gates\n", "")


def test_ctrl_c_ends_a_long_run_at_once(write, tmp_path):
    name = write("qreg q[22];\n" + "h q;\n" * 4000)
    running = subprocess.Popen([sys.executable, "-m", "velacamplix", "run", name], cwd=tmp_path, stdout=subprocess.PIPE)
    while not any("libvelacamplix" in line for line in open(f"/proc/{running.pid}/maps")):
        time.sleep(0.01)
    time.sleep(1)
    assert running.poll() is None
    running.send_signal(signal.SIGINT)
    started = time.monotonic()
    assert running.wait(timeout=60) == -signal.SIGINT
    assert time.monotonic() - started < 5


# The other commands


def test_version(command):
    ended = command("--version")
    assert (ended.returncode, ended.stdout) == (0, f"velacamplix {velacamplix.__version__}\n")
    assert re.fullmatch(r"\d+\.\d+\.\d+", velacamplix.__version__)


def test_info(command):
    ended = command("info", OMP_NUM_THREADS="2")
    assert (ended.returncode, ended.stderr) == (0, "")
    rows = dict(re.split(r"\s{2,}", line, maxsplit=1) for line in ended.stdout.splitlines())
    assert rows["version"] == velacamplix.__version__
    assert rows["instruction set"] in {"x86-64", "x86-64-v3", "x86-64-v4", os.uname().machine}
    assert "libvelacamplix.so" in rows["library"]
    assert rows["threads"] == "2 (OMP_NUM_THREADS)"
    assert "free" in rows["memory"] and "available" in rows["memory"]
    double, single = map(int, re.fullmatch(r"(\d+) in double precision, (\d+) in single precision", rows["largest n"]).groups())
    assert single == double + 1 and StateVector(min(double, 10)).n_qubits == min(double, 10)


def test_info_with_a_bad_variable(command):
    ended = command("info", VELACAMPLIX_NUM_THREADS="many")
    assert ended.returncode == 0 and "VELACAMPLIX_NUM_THREADS is 'many'" in ended.stdout


# What the table holds


def test_what_rounding_leaves_behind_is_not_shown(precision):
    state = StateVector(4, precision)
    for q in range(4):
        state.rx(0.7, q).ry(0.3, q).ry(-0.3, q).rx(-0.7, q)
    assert (np.abs(state.array[1:]) > 0).any()
    assert [outcome for outcome, _ in _outcomes.most_probable(state, 16, range(4))] == ["0000"]


def test_outcomes_that_rounding_makes_different_are_equal(precision):
    # A W state, whose amplitudes differ in their last bits.
    state = StateVector(6, precision).x(0)
    for q in range(5):
        state.ry(2 * np.arccos(np.sqrt(1 / (6 - q))), q + 1, controls=[q]).cnot(q + 1, q)
    assert len(set(state.distribution().tolist())) > 2
    found = [outcome for outcome, _ in _outcomes.most_probable(state, 4, range(6))]
    assert found == ["000001", "000010", "000100", "001000"]


# The same where a second array of the state's size does not fit


@pytest.mark.parametrize("count", [1, 7, 5000])
def test_outcomes_without_a_distribution(count, precision, monkeypatch):
    state = StateVector(12, precision)
    for q in range(12):
        state.ry(0.2 + 0.2 * q, q)
    qubits = [5, 0, 1, 2, 3, 4, 11, 10, 9, 8, 7, 6]
    expected = _outcomes.most_probable(state, count, qubits)

    def does_not_fit(qubits):
        raise MemoryError

    monkeypatch.setattr(_outcomes, "_PIECE", 256)
    monkeypatch.setattr(state, "distribution", does_not_fit)
    found = _outcomes.most_probable(state, count, qubits)
    assert dict(found) == pytest.approx(dict(expected), rel=1e-6)
    assert [outcome for outcome, _ in found][:5] == [outcome for outcome, _ in expected][:5]
