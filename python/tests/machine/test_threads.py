"""How many threads work: argument, then VELACAMPLIX_NUM_THREADS, then OMP_NUM_THREADS, then what the process may use."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
from test_memory import MOUNTS_V1, MOUNTS_V2, lay_out
from children import in_child

from velacamplix import StateVector, refresh_threads
from velacamplix.machine import groups as _groups
from velacamplix.machine import limits as _machine


@pytest.fixture(autouse=True)
def no_variables(monkeypatch):
    monkeypatch.delenv("VELACAMPLIX_NUM_THREADS", raising=False)
    monkeypatch.delenv("OMP_NUM_THREADS", raising=False)


def test_the_argument_comes_first(monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", "3")
    assert StateVector(1, threads=2).threads == 2


def test_then_our_variable(monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", " 3 ")
    monkeypatch.setenv("OMP_NUM_THREADS", "4")
    assert StateVector(1).threads == 3


@pytest.mark.parametrize(("value", "threads"), [("4", 4), ("5,2", 5), (" 6 , 1", 6)])
def test_then_the_variable_of_openmp(value, threads, monkeypatch):
    monkeypatch.setenv("OMP_NUM_THREADS", value)
    assert StateVector(1).threads == threads


@pytest.mark.parametrize("value", ["", "many", "0", "-2"])
def test_a_variable_of_openmp_that_says_nothing_is_passed_over(value, monkeypatch):
    monkeypatch.setenv("OMP_NUM_THREADS", value)
    assert StateVector(1).threads == _machine.processors()


def test_then_the_processors_this_process_may_use():
    assert StateVector(1).threads == _machine.processors() <= len(os.sched_getaffinity(0))


def test_setting_none_later_means_the_default_again():
    state = StateVector(1, threads=1)
    state.threads = None
    assert state.threads == _machine.processors()


@pytest.mark.parametrize("value", ["many", "0", "-1", "2.0", "1000000", "²"])
def test_our_variable_with_a_bad_value(value, monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", value)
    with pytest.raises(ValueError) as error:
        StateVector(1)
    assert "VELACAMPLIX_NUM_THREADS" in str(error.value) and repr(value) in str(error.value)
    assert "whole number from 1 to" in str(error.value)
    assert StateVector(1, threads=1).threads == 1


@pytest.mark.skipif(len(os.sched_getaffinity(0)) < 2, reason="needs two processors to take one away")
def test_affinity():
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(allowed)})
    try:
        assert StateVector(1).threads == 1
    finally:
        os.sched_setaffinity(0, allowed)


@pytest.mark.parametrize(("quota", "processors"), [("100000 100000", 1), ("50000 100000", 1), ("max 100000", None)])
def test_quota_of_a_version_2_group(quota, processors, tmp_path):
    lay_out(tmp_path, proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/job\n")
    lay_out(tmp_path / "sys/fs/cgroup/job", **{"cpu.max": quota + "\n"})
    assert _machine.processors(tmp_path) == (processors or len(os.sched_getaffinity(0)))


@pytest.mark.parametrize(("quota", "processors"), [("150000", 1), ("-1", None)])
def test_quota_of_a_version_1_group(quota, processors, tmp_path):
    lay_out(tmp_path, proc__self__mountinfo=MOUNTS_V1, proc__self__cgroup="3:cpu,cpuacct:/\n")
    lay_out(tmp_path / "sys/fs/cgroup/cpu,cpuacct", **{"cpu.cfs_quota_us": quota, "cpu.cfs_period_us": "100000\n"})
    assert _machine.processors(tmp_path) == (processors or len(os.sched_getaffinity(0)))


# What is read once


def test_a_second_state_reads_no_file(monkeypatch):
    StateVector(2)
    paths = []
    read = _groups.read
    monkeypatch.setattr(_groups, "read", lambda path: paths.append(path) or read(path))
    StateVector(2)
    StateVector(2, threads=2)
    # Where a group limits threads, how many there are by now is asked each time.
    assert all(path.endswith("pids.current") for path in paths)


def job(root, quota, most_threads):
    lay_out(root, proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/job\n")
    lay_out(root / "sys/fs/cgroup/job", **{"cpu.max": f"{quota} 100000\n", "pids.max": f"{most_threads}\n"})


@pytest.fixture
def sixteen_processors(monkeypatch):
    monkeypatch.setattr(_machine, "_BOUND", 16)


def test_limits_are_read_again_on_request(sixteen_processors, tmp_path):
    job(tmp_path, 300000, 100)
    assert (_machine.processors(tmp_path), _machine.most_threads(tmp_path)) == (3, 101)
    job(tmp_path, 500000, 200)
    assert (_machine.processors(tmp_path), _machine.most_threads(tmp_path)) == (3, 101)
    assert refresh_threads() == StateVector(1).threads
    assert (_machine.processors(tmp_path), _machine.most_threads(tmp_path)) == (5, 201)


def test_limits_are_read_again_after_a_change_of_affinity(sixteen_processors, tmp_path, monkeypatch):
    job(tmp_path, 300000, 100)
    monkeypatch.setattr(os, "sched_getaffinity", lambda process: {0, 1, 2})
    assert _machine.processors(tmp_path) == 3
    job(tmp_path, 500000, 200)
    assert _machine.processors(tmp_path) == 3
    monkeypatch.setattr(os, "sched_getaffinity", lambda process: {0, 1})
    assert (_machine.processors(tmp_path), _machine.most_threads(tmp_path)) == (5, 201)


def test_limits_are_read_again_after_a_fork(sixteen_processors, tmp_path):
    job(tmp_path, 300000, 100)
    assert _machine.processors(tmp_path) == 3
    job(tmp_path, 500000, 200)
    assert in_child(lambda: _machine.processors(tmp_path)) == 5
    assert _machine.processors(tmp_path) == 3


def test_threads_that_run_are_counted_each_time(tmp_path):
    job(tmp_path, 300000, 100)
    for running in (0, 7, 90):
        lay_out(tmp_path / "sys/fs/cgroup/job", **{"pids.current": f"{running}\n"})
        assert _machine.most_threads(tmp_path) == 100 - running + 1


# Real processes


WORKING = (
    "import os, velacamplix\n"
    "state = velacamplix.StateVector(17)\n"
    "state.h(0)\n"
    "print(state.threads, len(os.listdir('/proc/self/task')))\n"
)


def started(*command, **variables):
    """What a fresh process prints: the threads of a state, and how many the process has after a gate on 2 MiB."""
    inherited = {k: v for k, v in os.environ.items() if not k.endswith("_NUM_THREADS")}
    # NumPy's own threads would be counted too.
    environment = {**inherited, "OPENBLAS_NUM_THREADS": "1", "MKL_NUM_THREADS": "1", **variables}
    ended = subprocess.run([*command, sys.executable, "-c", WORKING], env=environment, capture_output=True, text=True)
    assert ended.returncode == 0, ended
    return ended.stdout.split()


def test_a_process_uses_what_it_may():
    allowed = str(_machine.processors())
    assert started() == [allowed, allowed]


def test_variables_in_a_process():
    assert started(VELACAMPLIX_NUM_THREADS="3") == ["3", "3"]
    assert started(OMP_NUM_THREADS="4") == ["4", "4"]
    assert started(VELACAMPLIX_NUM_THREADS="2", OMP_NUM_THREADS="4") == ["2", "2"]
    assert started(VELACAMPLIX_NUM_THREADS="", OMP_NUM_THREADS="1") == ["1", "1"]


def test_a_process_bound_to_one_processor():
    if shutil.which("taskset") is None:
        pytest.skip("the command taskset is not installed")
    processor = str(min(os.sched_getaffinity(0)))
    assert started("taskset", "-c", processor) == ["1", "1"]
    assert started("taskset", "-c", processor, OMP_NUM_THREADS="2") == ["2", "2"]


@pytest.mark.parametrize(
    "variables",
    [
        {"OMP_PROC_BIND": "true"},
        {"OMP_PROC_BIND": "close", "OMP_PLACES": "threads"},
        {"GOMP_CPU_AFFINITY": " ".join(map(str, sorted(os.sched_getaffinity(0))))},
    ],
)
def test_threads_that_openmp_binds_have_all_processors(variables):
    # OpenMP binds the thread that loads it; its affinity is then one processor.
    allowed = str(_machine.processors())
    assert started(**variables) == [allowed, allowed]


def test_threads_bound_to_a_part_of_the_processors():
    processor = str(min(os.sched_getaffinity(0)))
    assert started(GOMP_CPU_AFFINITY=processor) == ["1", "1"]
    assert started(OMP_PLACES="{%s}" % processor) == ["1", "1"]
    assert started(OMP_PROC_BIND="false", OMP_NUM_THREADS="3") == ["3", "3"]


def test_small_states_use_one_thread():
    code = WORKING.replace("StateVector(17)", "StateVector(13, threads=4)")
    ended = subprocess.run(
        [sys.executable, "-c", code], env={**os.environ, "OPENBLAS_NUM_THREADS": "1"}, capture_output=True, text=True
    )
    assert ended.stdout.split() == ["4", "1"], ended


def spins(**variables):
    """How often a waiting thread asks before it sleeps, as OpenMP tells when it is loaded by the package."""
    inherited = {k: v for k, v in os.environ.items() if k not in ("GOMP_SPINCOUNT", "OMP_WAIT_POLICY")}
    code = "import os, velacamplix; print(sorted(name for name in os.environ if 'GOMP' in name or 'POLICY' in name))"
    ended = subprocess.run(
        [sys.executable, "-c", code],
        env={**inherited, "OMP_DISPLAY_ENV": "verbose", **variables},
        capture_output=True,
        text=True,
    )
    assert ended.returncode == 0, ended
    # Nothing is left behind for child processes.
    assert ended.stdout.strip() == str(sorted(variables))
    return re.search(r"GOMP_SPINCOUNT = '(\w+)'", ended.stderr).group(1)


def test_waiting_threads_soon_give_their_processor_away():
    assert spins() == "2000"


def test_what_the_user_says_about_waiting_stands():
    assert spins(GOMP_SPINCOUNT="77") == "77"
    assert spins(OMP_WAIT_POLICY="passive") == "0"
    assert int(spins(OMP_WAIT_POLICY="active")) > 2000


@pytest.fixture
def control_group():
    """Makes a group below this process's own; gives a function that runs a command there with what `limits` say."""
    made = []

    def run(controller, **limits):
        if os.geteuid() != 0:
            pytest.skip("only root may make a control group")
        own = next((folder for folder in map(Path, _groups.folders("/", controller)) if os.access(folder, os.W_OK)), None)
        if own is None:
            pytest.skip(f"no control group for {controller} can be made here")
        folder = own / f"velacamplix-test-{os.getpid()}"
        try:
            folder.mkdir()
        except OSError as error:
            pytest.skip(f"no control group for {controller} can be made in {own}: {error}")
        made.append(folder)
        present = {name.replace("__", "."): text for name, text in limits.items()}
        present = {name: text for name, text in present.items() if (folder / name).exists()}
        if not present:
            pytest.skip(f"{own} sets no such limit")
        for name, text in present.items():
            (folder / name).write_text(text)
        return "sh", "-c", f'echo $$ > {folder}/cgroup.procs; exec "$0" "$@"'

    yield run
    for folder in made:
        folder.rmdir()


def test_the_quota_of_a_real_group(control_group):
    if len(os.sched_getaffinity(0)) < 2:
        pytest.skip("needs two processors to take one away")
    assert started(*control_group("cpu", cpu__cfs_quota_us="100000", cpu__max="100000 100000")) == ["1", "1"]


def test_a_real_group_that_allows_few_threads(control_group):
    inside = control_group("pids", pids__max="6")
    assert started(*inside, VELACAMPLIX_NUM_THREADS="5") == ["5", "5"]
    code = (
        "import velacamplix\n"
        "try: velacamplix.StateVector(17, threads=40).h(0)\n"
        "except ValueError as error: print(error)\n"
        "state = velacamplix.StateVector(17, threads=5).h(0)\n"
        "velacamplix.StateVector(17, threads=5).h(0)\n"  # the threads are there already
        "state.threads = None\n"
        "print(state.h(0).threads)"
    )
    environment = {**os.environ, "OPENBLAS_NUM_THREADS": "1", "OMP_NUM_THREADS": ""}
    ended = subprocess.run([*inside, sys.executable, "-c", code], env=environment, capture_output=True, text=True)
    assert ended.returncode == 0, ended
    message, threads = ended.stdout.splitlines()
    assert "threads must be at most 6 here, got 40: a control group" in message
    assert int(threads) == min(_machine.processors(), 6)


@pytest.mark.parametrize(("most", "current", "left"), [("max", "3", None), ("10", "3", 7), ("2", "3", 0)])
def test_threads_that_a_group_leaves(most, current, left, tmp_path):
    lay_out(tmp_path, proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/job\n")
    lay_out(tmp_path / "sys/fs/cgroup/job", **{"pids.max": most + "\n", "pids.current": current + "\n"})
    assert _groups.threads_left(_groups.thread_limits(tmp_path)) == left
    if left is None:
        assert _machine.thread_count(200, tmp_path) == 200
    else:
        assert _machine.thread_count(left + 1, tmp_path) == left + 1
        with pytest.raises(ValueError, match=f"threads must be at most {left + 1} here, got 99"):
            _machine.thread_count(99, tmp_path)
    assert _machine.thread_count(1, tmp_path) == 1


def test_a_variable_that_asks_for_too_many_is_named(tmp_path, monkeypatch):
    lay_out(tmp_path, proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/job\n")
    lay_out(tmp_path / "sys/fs/cgroup/job", **{"pids.max": "4\n", "pids.current": "1\n"})
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", "7")
    with pytest.raises(ValueError, match="VELACAMPLIX_NUM_THREADS must be at most 4 here, got 7"):
        _machine.thread_count(None, tmp_path)
