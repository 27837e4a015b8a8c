"""The command with standard streams that are closed, full, or endless: told in a line, and by the exit status."""

import os
import signal
import shlex
import subprocess
import sys

import pytest

PROGRAM = 'OPENQASM 2.0;\ninclude "qelib1.inc";\nqreg q[2];\nh q[0];\ncx q[0], q[1];\n'
COMMAND = f"{shlex.quote(sys.executable)} -m velacamplix"


@pytest.fixture
def shell(tmp_path):
    (tmp_path / "a.qasm").write_text(PROGRAM)
    (tmp_path / "ü.qasm").write_text(PROGRAM)
    (tmp_path / "wrong.qasm").write_text("OPENQASM 2.0;\nqreg q[1]\n")
    (tmp_path / "bare.qasm").write_text(PROGRAM.partition("\n")[2])

    def run(line, **environment):
        """Run a line of the shell, in which COMMAND stands for the command."""
        mine = ("VELACAMPLIX_NUM_THREADS", "OMP_NUM_THREADS", "PYTHONUNBUFFERED")
        inherited = {name: value for name, value in os.environ.items() if name not in mine}
        return subprocess.run(
            ["sh", "-c", line.replace("COMMAND", COMMAND)],
            cwd=tmp_path,
            env={**inherited, "PYTHONIOENCODING": "utf-8", **environment},
            capture_output=True,
            text=True,
            encoding="utf-8",
            timeout=300,
        )

    return run


COMMANDS = ["info", "run a.qasm", "run a.qasm --shots 10 --json", "--version", "--help", "run --help", "bench --seconds 1 --qubits 3"]


@pytest.mark.parametrize("command", COMMANDS)
def test_standard_output_is_closed(command, shell):
    ended = shell(f"COMMAND {command} >&-")
    assert (ended.returncode, ended.stderr) == (1, "velacamplix: standard output is closed\n")


@pytest.mark.parametrize("unbuffered", ["", "1"], ids=["at the end", "at once"])
@pytest.mark.parametrize("command", COMMANDS)
def test_standard_output_is_full(command, unbuffered, shell):
    ended = shell(f"COMMAND {command} >/dev/full", PYTHONUNBUFFERED=unbuffered)
    assert (ended.returncode, ended.stderr) == (1, "velacamplix: standard output: No space left on device\n")


@pytest.mark.parametrize("closed", ["2>&-", "2>/dev/full"])
def test_standard_error_takes_nothing(closed, shell):
    ended = shell(f"COMMAND run wrong.qasm {closed}")
    assert (ended.returncode, ended.stdout, ended.stderr) == (1, "", "")
    ended = shell(f"COMMAND run a.qasm --top 0 {closed}")
    assert (ended.returncode, ended.stdout, ended.stderr) == (2, "", "")
    ended = shell(f"COMMAND run bare.qasm {closed}")
    assert (ended.returncode, ended.stderr) == (0, "") and ended.stdout.startswith("bare.qasm: 2 qubits, 2 gates\n")


def test_standard_input_is_closed(shell):
    ended = shell("COMMAND run - <&-")
    assert (ended.returncode, ended.stdout, ended.stderr) == (1, "", "velacamplix: <standard input>: it is closed\n")
    assert shell("COMMAND run a.qasm <&-").returncode == 0


def test_all_streams_are_closed(shell):
    ended = shell("COMMAND run a.qasm <&- >&- 2>&-; echo status $?")
    assert (ended.stdout, ended.stderr) == ("status 1\n", "")


def test_a_file_does_not_take_the_place_of_a_closed_stream(shell, tmp_path):
    # What a library writes to standard error must not end up in the picture.
    pytest.importorskip("matplotlib")
    ended = shell("COMMAND run a.qasm --plot out.svg 2>&-")
    assert ended.returncode == 0 and (tmp_path / "out.svg").read_text().rstrip().endswith("</svg>")


@pytest.mark.parametrize("command", ["run /dev/zero", "run - </dev/zero"])
def test_input_without_end(command, shell):
    ended = shell(f"ulimit -v 6000000; COMMAND {command}")
    name = command.replace("run - <", "<standard input>").split(" ")[-1] if "<" not in command else "<standard input>"
    assert ended.returncode == 1 and ended.stdout == ""
    assert ended.stderr == f"velacamplix: {name}:1:1: a program has at most 512 MiB, and this goes on\n"


def test_a_device_that_is_no_file(shell):
    ended = shell("COMMAND run /dev/null")
    assert (ended.returncode, ended.stderr) == (1, 'velacamplix: /dev/null:1:1: the first statement must be "OPENQASM 2.0;"\n')


def test_input_that_comes_slowly_through_a_stream_that_does_not_wait(shell):
    script = "import os, sys, time; os.set_blocking(0, False); os.execv(sys.executable, [sys.executable, '-m', 'velacamplix', 'run', '-'])"
    line = f"(sleep 2; cat a.qasm; sleep 1; echo 'h q[1];') | {shlex.quote(sys.executable)} -c {shlex.quote(script)}"
    ended = shell(line)
    assert ended.returncode == 0 and ended.stdout.startswith("<standard input>: 2 qubits, 3 gates\n"), ended.stderr


def test_a_warning_is_one_line_on_standard_error(shell):
    told = 'there is no "OPENQASM 2.0;" in front; it is read as such\n'
    ended = shell("COMMAND run bare.qasm")
    assert (ended.returncode, ended.stderr) == (0, "velacamplix: bare.qasm:1:1: " + told)
    ended = shell("COMMAND run - <bare.qasm", PYTHONWARNINGS="error")
    assert (ended.returncode, ended.stderr) == (0, "velacamplix: <standard input>:1:1: " + told)


def test_names_that_the_terminal_cannot_write(shell, tmp_path):
    os.rename(os.fsencode(tmp_path / "a.qasm"), os.fsencode(tmp_path) + b"/\xff.qasm")
    for encoding in ("utf-8", "ascii"):
        ended = shell(r"COMMAND run $(printf '\377').qasm", PYTHONIOENCODING=encoding)
        assert (ended.returncode, ended.stderr) == (0, "") and ended.stdout.startswith("\\udcff.qasm: 2 qubits")
    ended = shell("COMMAND run ü.qasm", PYTHONIOENCODING="ascii")
    assert (ended.returncode, ended.stderr) == (0, "") and ended.stdout.startswith("\\xfc.qasm: 2 qubits")
    ended = shell("COMMAND run ß.qasm", PYTHONIOENCODING="ascii")
    assert (ended.returncode, ended.stderr) == (1, "velacamplix: \\xdf.qasm: No such file or directory\n")


@pytest.mark.parametrize("name, status", [("VELACAMPLIX_NUM_THREADS", 2), ("OMP_NUM_THREADS", 0)])
def test_numbers_of_threads_of_thousands_of_digits(name, status, shell):
    ended = shell("COMMAND run a.qasm", **{name: "1" * 5000})
    assert ended.returncode == status and "4300" not in ended.stderr and len(ended.stderr) < 600


def test_an_output_of_a_caller_in_python(capsys, tmp_path):
    from velacamplix.cli import main

    (tmp_path / "a.qasm").write_text(PROGRAM)
    handlers = signal.getsignal(signal.SIGINT), signal.getsignal(signal.SIGPIPE)
    assert main(["run", str(tmp_path / "a.qasm")]) == 0
    assert "00      0.500000" in capsys.readouterr().out
    assert (signal.getsignal(signal.SIGINT), signal.getsignal(signal.SIGPIPE)) == handlers
