"""Runs in files from the command line, as real processes."""

import json
import os
import signal
import subprocess
import sys

import pytest
from test_cli import HEADER, failed, write  # noqa: F401  (a fixture)

N = 14
LAYERS = "".join(
    "".join(f"ry(0.{q + 1}) q[{q}];\n" for q in range(N)) + "".join(f"cx q[{q}], q[{q + 1}];\n" for q in range(N - 1))
    for _ in range(3)
)
CIRCUIT = f"qreg q[{N}];\n{LAYERS}"


def facts(ended):
    assert ended.returncode == 0, ended.stderr
    found = json.loads(ended.stdout)
    del found["seconds"], found["passes"], found["threads"]
    return found


def test_answers_are_those_of_memory_and_the_plan_is_told_before(command, write, tmp_path):  # noqa: F811
    circuit = write(CIRCUIT)
    options = ("--shots", 200, "--seed", 3, "--observable", "Z0 X3", "--observable=-Y1", "--json")
    there = facts(command("run", circuit, *options))
    ended = command("run", circuit, *options, "--storage", "state", "--part-qubits", 11)
    here = facts(ended)
    storage = here.pop("storage")
    for one in there["observables"]:  # estimates turn the state, and one in a file is for reading
        del one["mean"], one["standard_error"]
    assert here == there
    assert storage["parts"] == 8 and storage["bytes_written"] == storage["stages"] * 2**18
    assert "velacamplix: state: 288.0 KiB; 14 qubits in 8 parts, " in ended.stderr and "MiB to write" in ended.stderr
    assert os.path.getsize(tmp_path / "state") == storage["file_bytes"]
    assert (tmp_path / "state.journal").exists()
    again = command("run", circuit, *options, "--storage", "state", "--part-qubits", 11, "--resume", "--progress")
    assert facts(again)["counts"] == there["counts"] and again.stderr.count("MiB to write") == 1


def test_a_schedule_is_the_same_in_memory_and_in_a_file(command, write):  # noqa: F811
    circuit, options = write(CIRCUIT), ("--schedule", "canonical:3", "--json")
    there = facts(command("run", circuit, *options))
    here = facts(command("run", circuit, *options, "--storage", "state", "--part-qubits", 11))
    assert here.pop("storage")["stages"] < 12 and here == there


@pytest.mark.parametrize(
    ("options", "status", "words"),
    [
        (("--resume",), 2, "argument --resume: is for a run with --storage PATH"),
        (("--part-qubits", 3), 2, "argument --part-qubits: is for a run with --storage PATH"),
        (("--storage", ""), 2, "argument --storage: path must be that of a file"),
        (("--storage", "no/state"), 1, "No such file or directory"),
        (("--storage", "circuit.qasm"), 1, "circuit.qasm is there already; delete it, or go on with it by --resume"),
        (("--storage", "state", "--part-qubits", 3), 1, "part_qubits must be larger for this circuit"),
        (("--storage", "state", "--part-qubits", 51), 2, "argument --part-qubits"),
        (("--schedule", "best"), 2, "argument --schedule"),
    ],
)
def test_what_is_refused(options, status, words, command, write):  # noqa: F811
    failed(command("run", write(CIRCUIT, "circuit.qasm"), *options), status, words)


def test_ctrl_c_tells_how_to_go_on(write, tmp_path):  # noqa: F811
    script = (
        "import sys, time; from velacamplix.storage import walk; from velacamplix.cli import main\n"
        "real = walk.Walk._write\n"
        "def write(self, job, octets):\n"
        "    real(self, job, octets); print(self._files.done, file=sys.stderr, flush=True); time.sleep(0.02)\n"
        "walk.Walk._write = write; sys.exit(main())"
    )
    arguments = ["run", write(CIRCUIT), "--storage", "state", "--part-qubits", "11", "--json", "--top", "3"]
    process = subprocess.Popen(
        [sys.executable, "-c", script, *arguments], cwd=tmp_path, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )
    while not process.stderr.readline().startswith("3"):
        pass
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)
    assert process.returncode == -signal.SIGINT and output == ""
    assert "parts are done; the same command with --resume goes on from there" in errors and "Traceback" not in errors
    ended = subprocess.run(
        [sys.executable, "-m", "velacamplix", *arguments, "--resume"], cwd=tmp_path, capture_output=True, text=True
    )
    assert facts(ended)["storage"]["parts"] == 8
