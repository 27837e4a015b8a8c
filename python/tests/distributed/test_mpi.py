"""Real launches of `mpirun`: what every rank does stands in on_ranks.py."""

import json
import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

import pytest

HERE = Path(__file__).parent


def _missing():
    """What is not there to launch ranks, or nothing."""
    if shutil.which("mpirun") is None:
        return "mpirun is not installed (Debian: openmpi-bin)"
    probe = subprocess.run([sys.executable, "-c", "from mpi4py import MPI"], capture_output=True, text=True)
    return "" if probe.returncode == 0 else f"mpi4py finds no MPI library, or is missing: {probe.stderr.strip()[-200:]}"


MISSING = _missing()
pytestmark = pytest.mark.skipif(bool(MISSING), reason=f"no ranks can be launched: {MISSING}")


def launched(ranks, *arguments, timeout=300, environment=()):
    """Run `mpirun -n ranks` on whatever number of processors, as whatever user."""
    settings = {
        **os.environ,
        # Root in a container, and more ranks than processors, are asked for by name. Other MPI libraries do not look.
        "OMPI_ALLOW_RUN_AS_ROOT": "1",
        "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
        "OMPI_MCA_rmaps_base_oversubscribe": "1",
        "PRTE_MCA_rmaps_default_mapping_policy": ":oversubscribe",
        "OMPI_MCA_mpi_yield_when_idle": "1",
        **dict(environment),
    }
    return subprocess.run(
        ["mpirun", "-n", str(ranks), *map(str, arguments)], capture_output=True, text=True, timeout=timeout, env=settings
    )


@pytest.mark.parametrize("ranks", [1, 2, 4, 8])
def test_ranks_give_what_one_process_gives(ranks, tmp_path):
    done = launched(ranks, sys.executable, HERE / "on_ranks.py", tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr
    assert f"{ranks} ranks: six_circuits_have_the_bits_of_one_process" in done.stdout


FAILING = """
import os, signal, sys, time
from mpi4py import MPI
from velacamplix import Circuit, run
circuit = Circuit(4).h(range(4))
run(circuit, comm=MPI.COMM_WORLD)
if MPI.COMM_WORLD.Get_rank() == 1:
    with open(sys.argv[1], "w") as file:
        print(time.monotonic(), file=file)  # the same clock for all processes
    if sys.argv[2:] == ["killed"]:
        os.kill(os.getpid(), signal.SIGKILL)
    raise ZeroDivisionError("only here")
run(circuit, comm=MPI.COMM_WORLD)
print("nobody gets here")
"""


@pytest.mark.parametrize("through, how", [([], ""), (["-m", "mpi4py"], ""), ([], "killed")])
def test_a_rank_that_fails_ends_all_within_10_seconds(through, how, tmp_path):
    script, stamp = tmp_path / "failing.py", tmp_path / "stamp"
    script.write_text(FAILING)
    done = launched(2, sys.executable, *through, script, stamp, *filter(None, [how]), timeout=120)
    passed = time.monotonic() - float(stamp.read_text())
    assert done.returncode != 0
    assert passed < 10, f"{passed:.1f} s"
    assert "nobody gets here" not in done.stdout
    if how != "killed":
        assert "ZeroDivisionError: only here" in done.stderr
        assert "failing.py" in done.stderr  # its traceback
    if not through and how != "killed":
        assert "rank 1 of 2 ends all by this exception" in done.stderr


GHZ = 'OPENQASM 2.0; include "qelib1.inc"; qreg q[5]; h q[0];' + "".join(f"cx q[{q}],q[{q + 1}];" for q in range(4))


def command(ranks, *arguments):
    return launched(ranks, sys.executable, "-m", "velacamplix", *arguments, timeout=120)


def test_the_command_prints_on_rank_0(tmp_path):
    file = tmp_path / "ghz.qasm"
    file.write_text(GHZ)
    asked = ["run", file, "--shots", 1000, "--seed", 3, "--observable", "Z0 Z4", "--observable", "X4"]
    done = command(4, *asked, "--json")
    assert done.returncode == 0, done.stderr
    answer = json.loads(done.stdout)  # once
    alone = subprocess.run(
        [sys.executable, "-m", "velacamplix", *map(str, asked), "--json"], capture_output=True, text=True, check=True
    )
    expected = json.loads(alone.stdout)
    assert answer["counts"] == expected["counts"] and answer["seed"] == 3
    exact = [{"observable": one["observable"], "expectation": one["expectation"]} for one in expected["observables"]]
    assert answer["observables"] == exact
    table = command(2, *asked)
    assert table.stdout.count("1000 shots, seed 3") == 1 and "means over the shots" not in table.stdout


def test_the_command_tells_a_mistake_once(tmp_path):
    file = tmp_path / "ghz.qasm"
    file.write_text(GHZ)
    for arguments, status, words in (
        (["run", file], 2, "argument --shots: must be given on many ranks"),
        (["run", file, "--shots", 3, "--plot", tmp_path / "a.png"], 2, "argument --plot"),
        (["run", tmp_path / "none.qasm", "--shots", 3], 1, "No such file"),
        (["run", file, "--shots", 3, "--observable", "Z9"], 2, "needs 10 qubits"),
    ):
        done = command(2, *arguments)
        assert done.returncode == status, done.stderr
        assert done.stderr.count(words) == 1, done.stderr


def test_info_tells_of_ranks():
    done = command(2, "info")
    assert done.returncode == 0, done.stderr
    assert done.stdout.count("\nranks            2 on 1 machine, ") == 1
    assert "on all ranks together" in done.stdout


PAGE = HERE.parents[2] / "docs" / "clusters.md"
FIRST_RANK_ALONE = """
import os, sys
from mpi4py import MPI
if MPI.COMM_WORLD.Get_rank() != 0:
    sys.stdout = open(os.devnull, "w")
"""


@pytest.mark.skipif(not PAGE.is_file(), reason=f"no file {PAGE}: the tests run outside the project")
def test_the_page_on_clusters_shows_what_ranks_print(tmp_path):
    blocks = re.findall(r"^```(python|text)\n(.*?)^```$", PAGE.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)
    script = tmp_path / "script.py"
    script.write_text(FIRST_RANK_ALONE + "".join([text for language, text in blocks if language == "python"]))
    done = launched(4, sys.executable, script, timeout=120)
    assert done.returncode == 0, done.stderr
    expected = "".join([text for language, text in blocks if language == "text"])
    assert "514" in expected and done.stdout.split() == expected.split()


@pytest.mark.skipif(not PAGE.is_file(), reason=f"no file {PAGE}: the tests run outside the project")
def test_the_batch_script_of_the_page_is_one_for_bash():
    (script,) = re.findall(r"^```bash\n(#!/bin/bash\n.*?)^```$", PAGE.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)
    done = subprocess.run(["bash", "-n"], input=script, capture_output=True, text=True)
    assert done.returncode == 0 and not done.stderr
    assert all(line.startswith("#SBATCH --") for line in script.splitlines()[1:] if line.startswith("#S"))


THREE = """
from velacamplix import Circuit, run
try:
    run(Circuit(4).h(range(4)), distributed=True)
except ValueError as error:
    print(error)
"""


def test_a_number_of_ranks_that_is_no_power_of_two_is_refused(tmp_path):
    script = tmp_path / "three.py"
    script.write_text(THREE)
    done = launched(3, sys.executable, script, timeout=60)
    assert done.returncode == 0, done.stderr
    assert done.stdout.count("the number of ranks must be a power of two, got 3; the next lower one is 2") == 3
