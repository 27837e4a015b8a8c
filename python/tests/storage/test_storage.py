"""Runs in files: the bits and answers of runs in memory, whatever ends them on the way."""

import errno
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import warnings

import numpy as np
import pytest

import velacamplix
from velacamplix import Circuit, NoiseModel, Storage, StoragePlan, run
from velacamplix.programs.prepare import for_parts
from velacamplix.storage import files as _files
from velacamplix.storage import walk as _walk
from velacamplix.storage.layout import Layout
from velacamplix.storage.storage import planned

# Wherever the tests' files lie.
pytestmark = pytest.mark.filterwarnings("ignore:the file system of .* refuses direct access")


def random_circuit(n, gates, seed=1):
    engine = random.Random(seed)
    circuit = Circuit(n).h(range(n))
    for _ in range(gates):
        a, b, c = engine.sample(range(n), 3)
        angle = engine.uniform(-3, 3)
        engine.choice([
            lambda: circuit.rx(angle, a, controls=[b]), lambda: circuit.ry(angle, a), lambda: circuit.rz(angle, a),
            lambda: circuit.h(a), lambda: circuit.x(a), lambda: circuit.swap(a, b), lambda: circuit.cx(a, b),
            lambda: circuit.ccx(a, b, c), lambda: circuit.cp(angle, a, b), lambda: circuit.rxx(angle, a, b),
            lambda: circuit.t(a), lambda: circuit.iswap(a, b),
        ])()  # fmt: skip
    return circuit


@pytest.fixture
def path(tmp_path):
    return str(tmp_path / "state")


def stored(circuit, path, part_qubits=10, resume=False, **options):
    return run(circuit, storage=Storage(path, part_qubits, resume), threads=1, **options)


@pytest.mark.parametrize("precision", ["double", "single"])
@pytest.mark.parametrize(("n", "part_qubits"), [(5, 5), (12, 12), (12, 10), (13, 12), (14, 11)])
def test_bits_and_answers_are_those_of_a_run_in_memory(path, precision, n, part_qubits):
    if precision == "single":
        part_qubits = min(n, part_qubits + 1)
    circuit = random_circuit(n, 200, seed=n)
    circuit.measure_all()
    options = {"shots": 500, "seed": 7, "precision": precision, "observables": ["Z0 X3", "Y1 Y2", "2*Z4 + X0"]}
    with pytest.warns(UserWarning) as warned:
        there = run(circuit, threads=1, **options)
    with pytest.warns(UserWarning) as also_warned:
        here = stored(circuit, path, part_qubits, **options)
    assert [str(one.message) for one in warned] == [str(one.message) for one in also_warned if "O_DIRECT" not in str(one.message)]
    assert here.statevector().tobytes() == there.statevector().tobytes()
    assert here.counts == there.counts and (here.shots == there.shots).all()
    assert here.expectation_values.tolist() == there.expectation_values.tolist()
    assert here.distribution([3, 0, 2]).tolist() == there.distribution([3, 0, 2]).tolist()
    assert here.probability("10", [4, 1]) == there.probability("10", [4, 1])
    assert [here.amplitude(i) for i in (0, 5, 2**n - 1)] == [there.amplitude(i) for i in (0, 5, 2**n - 1)]
    assert here.reduced([0, 4]).tolist() == there.reduced([0, 4]).tolist()
    assert here.variance("Z0 Z4") == there.variance("Z0 Z4")
    assert here.overlap(there) == there.overlap(there) and here.fidelity(here) == there.fidelity(there)
    assert here.outcomes(5) == there.outcomes(5)
    assert here.storage.parts == 2 ** (n - part_qubits) and os.path.getsize(path) == here.storage.file_bytes
    assert there.storage is None


def test_a_circuit_with_idle_qubits_and_one_without_gates(path):
    circuit = Circuit(40).h(3).cx(3, 30)
    here, there = run(circuit, storage=path), run(circuit)
    assert here.statevector is not None and here.distribution([30, 3]).tolist() == there.distribution([30, 3]).tolist()
    assert here.storage.n_qubits == 2 and here.storage.stages == 1
    assert run(Circuit(3, 1).measure(1, 0), storage=path + "2", shots=3).counts == {"0": 3}


@pytest.mark.parametrize("schedule", ["written", "canonical:5"])
@pytest.mark.parametrize(("precision", "part_qubits"), [("double", 13), ("single", 14)])
def test_many_parts_have_the_bits_of_memory(path, precision, part_qubits, schedule):
    # As many qubits outside of a part as may come in at once: pieces of a page.
    circuit = random_circuit(18, 150, seed=4)
    options = {"shots": 100, "seed": 7, "precision": precision, "schedule": schedule, "observables": ["Z0 X17", "Y14 Y2"]}
    there, here = run(circuit, threads=1, **options), stored(circuit, path, part_qubits, **options)
    assert here.storage.parts == 2 ** (18 - part_qubits) and here.storage.stages > 2
    assert here.statevector().tobytes() == there.statevector().tobytes()
    assert here.counts == there.counts and here.expectation_values.tolist() == there.expectation_values.tolist()


def test_one_part_goes_to_blocks_that_nobody_needs():
    stages = for_parts(random_circuit(12, 400, seed=3), "double")
    plan, core, layout = planned(Storage("nowhere", 10), stages, "double")
    assert plan.parts == 4 and plan.stages > 3
    owner = {}
    for number, job in enumerate(layout.jobs()):
        for block in job.target.tolist():
            assert owner.get(block) in (None, "free")
        if job.stage:
            assert all(owner[block] != "free" for block in job.source.tolist())
        for block in job.source.tolist():
            owner[block] = "free"
        for block in job.target.tolist():
            owner[block] = number
    assert sorted(layout.final.tolist()) == sorted(block for block, one in owner.items() if one != "free")


def test_a_state_in_too_many_pieces_is_refused_before(path, monkeypatch):
    circuit = Circuit(12).h(range(12))
    pieces = 4 * 4  # each part gives a block to each
    assert stored(circuit, path).storage.parts == 4
    monkeypatch.setattr("velacamplix.storage.storage._MOST_PIECES", 3)
    with pytest.raises(ValueError, match=rf"part_qubits must be larger for this circuit: got 10, .* in ({'|'.join(map(str, range(4, pieces + 1)))}) pieces"):
        stored(circuit, path + "2")
    assert not os.path.exists(path + "2")


@pytest.mark.parametrize("precision", ["double", "single"])
def test_blocks_travel_as_the_core_says(precision):
    # X on qubits outside the parts makes them read flipped.
    circuit = random_circuit(15, 150, seed=8).x(range(15)).h(range(15)).x([14, 13, 3]).h(range(15))
    _, stages, layout = planned(Storage("nowhere", 12), for_parts(circuit, precision), precision)
    of = np.arange(layout.parts * layout.blocks).reshape(layout.parts, layout.blocks)
    travelled = 0
    for stage in range(len(stages)):
        after = of.copy()
        given = [
            {partner: slice(first // layout.block_amplitudes, (first + count) // layout.block_amplitudes)
             for partner, first, count in stages.transfers(stage, rank)}
            for rank in range(layout.parts)
        ]  # fmt: skip
        for rank, to in enumerate(given):
            for partner, mine in to.items():
                after[rank, mine] = of[partner, given[partner][rank]]
                travelled += 1
        assert (layout._exchanged(of, stage) == after).all()
        of = np.random.default_rng(stage).permutation(after.reshape(-1)).reshape(of.shape)
    assert travelled > 100


def test_what_a_run_takes_is_told_before(path):
    circuit = random_circuit(13, 100)
    told = Storage(path, 11).plan(circuit)
    assert isinstance(told, StoragePlan) and not os.path.exists(path)
    assert (told.parts, told.file_bytes, told.memory_bytes) == (4, 5 * 2**15, 3 * 2**15)
    assert told.bytes_written == told.stages * 2**17 and told.bytes_read == told.bytes_written - 2**17
    assert told.direct is None and "5 * " not in str(told) and "160.0 KiB" in str(told)
    result = stored(circuit, path, 11)
    assert result.storage == told._replace(direct=result.storage.direct)


def test_a_canonical_order_takes_fewer_stages_and_has_the_bits_of_memory(path):
    circuit = Circuit(12, 12).h(range(12))
    for _ in range(3):
        circuit.ry(0.3, range(12)).rz(0.2, range(12))
        for q in range(11):
            circuit.cx(q, q + 1)
    circuit.measure(range(12), range(12))
    options = {"schedule": "canonical:2", "shots": 100, "seed": 2}
    here, there = stored(circuit, path, **options), run(circuit, threads=1, **options)
    assert here.statevector().tobytes() == there.statevector().tobytes() and here.counts == there.counts
    assert here.storage.stages < Storage(path, 10).plan(circuit).stages
    assert here.storage._replace(direct=None) == Storage(path, 10).plan(circuit, schedule="canonical:2")
    with pytest.raises(ValueError, match="schedule was 'canonical:2', is 'written'|circuit was"):
        stored(circuit, path, resume=True)
    between = Circuit(2, 1).h(0).measure(0, 0).h(1)
    options = {"schedule": "canonical:1", "shots": 9, "seed": 1}
    assert stored(between, path + "2", **options).counts == run(between, **options).counts


def test_progress_counts_parts(path, capsys):
    told = []
    result = stored(random_circuit(12, 100), path, progress=told.append)
    assert told[-1].done == told[-1].total == result.storage.parts * result.storage.stages
    stored(random_circuit(12, 100), path + "2", progress=True)
    assert f"{path}2: " in capsys.readouterr().err


class Enough(Exception):
    pass


def end_every(period, monkeypatch):
    """Let every so many parts on which gates shall act raise Enough; the list returned tells on which they have acted."""
    real, acted = _walk.Walk._act, []

    def act(self, job, octets):
        if len(acted) % period == period - 1:
            acted.append(None)
            raise Enough
        acted.append((job.stage, job.rank))
        real(self, job, octets)

    monkeypatch.setattr(_walk.Walk, "_act", act)
    return acted


def test_a_run_that_ends_early_goes_on(path, monkeypatch):
    circuit = random_circuit(12, 300, seed=5)
    expected = run(circuit, threads=1).statevector().tobytes()
    plan = Storage(path, 10).plan(circuit)
    jobs = plan.parts * plan.stages
    acted = end_every(3, monkeypatch)
    ends = 0
    while True:
        try:
            result = stored(circuit, path, resume=True)
            break
        except Enough as error:
            ends += 1
            assert f"of {jobs} parts are done" in error.__notes__[-1] and "resume=True" in error.__notes__[-1]
    assert result.statevector().tobytes() == expected
    assert 2 < ends and len(set(acted) - {None}) == jobs
    # Once it is complete, nothing acts any more.
    monkeypatch.setattr(_walk.Walk, "_act", lambda self, job, octets: pytest.fail("acted"))
    assert stored(circuit, path, resume=True).statevector().tobytes() == expected


KILLED = """
import signal, sys, time
signal.signal(signal.SIGINT, signal.default_int_handler)  # ignored where tests run in the background
sys.path.insert(0, sys.argv[2])
from test_storage import random_circuit, stored
from velacamplix.storage import walk
real = walk.Walk._write
def write(self, job, octets):
    real(self, job, octets)
    print(self._files.done, flush=True)
    time.sleep(0.02)
walk.Walk._write = write
stored(random_circuit(12, 300, seed=5), sys.argv[1], resume=True)
"""


def started(path):
    return subprocess.Popen(
        [sys.executable, "-c", KILLED, path, os.path.dirname(__file__)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )


@pytest.mark.parametrize("how", [signal.SIGKILL, signal.SIGINT])
def test_a_killed_process_loses_the_parts_that_were_in_memory(path, how):
    done = 0
    for _ in range(2):
        with started(path) as process:
            done = int(process.stdout.readline())
            process.stdout.readline()
            process.send_signal(how)
            errors = process.stderr.read()
        if how == signal.SIGINT:
            assert process.returncode != 0 and "KeyboardInterrupt" in errors and "goes on from there" in errors
        else:
            assert process.returncode == -signal.SIGKILL
        noted = open(path + ".journal", "rb").read().count(b"\n") - 1
        assert noted >= done + 1
    circuit = random_circuit(12, 300, seed=5)
    assert stored(circuit, path, resume=True).statevector().tobytes() == run(circuit, threads=1).statevector().tobytes()


ENDED = """
import os, sys
sys.path.insert(0, sys.argv[2])
from test_storage import random_circuit, stored
from velacamplix.storage import walk
real = walk.Walk._write
def write(self, job, octets):
    if self._files.done == int(sys.argv[3]):
        self._files.write = lambda *_: os._exit(9)  # in the middle of a part
        self._files._move(job.target[: len(job.target) // 2 + 1], self._layout.block_bytes, octets, os.pwritev)
    real(self, job, octets)
walk.Walk._write = write
stored(random_circuit(12, 60, seed=6), sys.argv[1], resume=True, schedule="canonical:3")
"""


def test_a_process_that_ends_in_every_stage(path):
    circuit = random_circuit(12, 60, seed=6)
    plan = Storage(path, 10).plan(circuit, schedule="canonical:3")
    for stage in range(plan.stages):
        where = str(stage * plan.parts + stage % plan.parts)
        ended = subprocess.run([sys.executable, "-c", ENDED, path, os.path.dirname(__file__), where])
        assert ended.returncode == 9
        with open(path + ".journal", "rb") as file:
            assert file.read().count(b"\n") == int(where) + 1
    here = stored(circuit, path, resume=True, schedule="canonical:3")
    assert here.statevector().tobytes() == run(circuit, threads=1, schedule="canonical:3").statevector().tobytes()


def test_two_runs_do_not_share_a_file(path):
    with started(path) as process:
        process.stdout.readline()
        with pytest.raises(BlockingIOError, match="another run"):
            stored(random_circuit(12, 300, seed=5), path, resume=True)
        process.kill()


def test_ctrl_c_is_heard_at_once(path, monkeypatch):
    def slowly(self, job, octets):
        while not self._files.stop.wait(0.01):
            pass
        raise _files.Stopped

    monkeypatch.setattr(_walk.Walk, "_write", slowly)
    calls = []

    def interrupt(*_):
        calls.append(time.monotonic())
        raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, interrupt)
    signal.setitimer(signal.ITIMER_REAL, 0.3)
    try:
        with pytest.raises(KeyboardInterrupt):
            stored(random_circuit(12, 50), path)
    finally:
        signal.signal(signal.SIGALRM, before)
    assert calls


def test_a_full_disk_is_found_out_before(path, monkeypatch):
    class Small:
        f_bavail, f_frsize = 1, 4096

    monkeypatch.setattr(os, "fstatvfs", lambda file: Small)
    with pytest.raises(OSError, match="are free") as raised:
        stored(random_circuit(12, 50), path)
    assert raised.value.errno == errno.ENOSPC
    assert not os.path.exists(path) and not os.path.exists(path + ".journal")


def test_a_disk_that_fails_on_the_way_leaves_what_can_be_gone_on_with(path, monkeypatch):
    circuit = random_circuit(12, 300, seed=5)
    real, writes = os.pwritev, []

    def pwritev(*arguments):
        writes.append(arguments)
        if len(writes) == 9:
            raise OSError(errno.ENOSPC, "No space left on device")
        return real(*arguments)

    with monkeypatch.context() as patched:
        patched.setattr(os, "pwritev", pwritev)
        with pytest.raises(OSError, match="No space"):
            stored(circuit, path)
    assert stored(circuit, path, resume=True).statevector().tobytes() == run(circuit, threads=1).statevector().tobytes()


@pytest.mark.parametrize("where", ["opening", "reading"])
def test_file_systems_without_direct_access(path, monkeypatch, where):
    direct, real_open, real_read = getattr(os, "O_DIRECT", 0), os.open, os.preadv
    if not direct:
        pytest.skip("this system has no direct access to files")

    def refused(*_):
        raise OSError(errno.EINVAL, "Invalid argument")

    def opened(name, flags, *mode):
        return refused() if flags & direct else real_open(name, flags, *mode)

    if where == "opening":
        monkeypatch.setattr(os, "open", opened)
    else:
        monkeypatch.setattr(_files.Files, "_try_direct", refused)
    circuit = random_circuit(12, 100)
    with pytest.warns(RuntimeWarning, match="refuses direct access"):
        result = stored(circuit, path)
    assert result.storage.direct is False and real_read is os.preadv
    assert result.statevector().tobytes() == run(circuit, threads=1).statevector().tobytes()


def test_a_file_system_in_memory():
    # Kernels differ in whether one takes O_DIRECT; where it does not, the run says so.
    folder = "/dev/shm"
    if not os.path.isdir(folder) or shutil.disk_usage(folder).free < 2**24:
        pytest.skip(f"{folder} is not there, or full")
    with tempfile.TemporaryDirectory(dir=folder) as inner, warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        circuit = random_circuit(12, 100)
        result = stored(circuit, os.path.join(inner, "state"))
        said = [str(one.message) for one in caught if "refuses direct access" in str(one.message)]
        assert len(said) == (not result.storage.direct)
        assert result.statevector().tobytes() == run(circuit, threads=1).statevector().tobytes()


def test_what_is_not_done_in_a_file_is_refused_by_name(path):
    circuit = Circuit(3, 1).h(0)
    noise = NoiseModel().after("h", velacamplix.Channel.bit_flip(0.1))
    for options, name in (
        ({"fusion": True}, "fusion"),
        ({"noise": noise}, "noise"),
        ({"method": "exact"}, "noise"),
        ({"initial": 1}, "initial"),
        ({"initial": np.eye(8)[1], "initial_order": "little"}, "initial"),
    ):
        with pytest.raises(ValueError, match=f"^{name} must be .* in a run with storage"):
            run(circuit, storage=path, **options)
    with pytest.raises(ValueError, match="^circuit must be one"):
        run([circuit], storage=path)
    parameter = velacamplix.Parameter("a")
    with pytest.raises(ValueError, match="^circuit must be one"):
        run(Circuit(1).rx(parameter, 0), values={"a": [1.0]}, storage=path)
    with pytest.raises(ValueError, match="parameter"):
        run(Circuit(1).rx(parameter, 0), storage=path)
    in_the_middle = Circuit(2, 1).h(0).measure(0, 0).h(0)
    conditional = Circuit(2, 1).h(0).measure(0, 0)
    with conditional.when([0], "1"):
        conditional.x(1)
    loop = Circuit(2, 1).h(0).measure(0, 0).while_((0, 1), Circuit(2, 1).h(0).measure(0, 0), max_iterations=5)
    for refused, what in (
        (in_the_middle, "measure"),
        (conditional, "measure|condition"),
        (loop, "measure|loop"),
        (Circuit(2).h(0).reset(0), "reset"),
        (Circuit(2).h(0).save_state("a"), "save"),
        (Circuit(2).h(0).channel(velacamplix.Channel.bit_flip(0.1), 0), "noise"),
        (Circuit(51).h(range(51)), "51 active qubits"),
    ):
        with pytest.raises(ValueError, match=f"circuit must have gates and measurements at its end alone.*({what})"):
            run(refused, storage=path, shots=3)
    for wrong in (3, b"x", True):
        with pytest.raises(TypeError, match="storage must be a path"):
            run(circuit, storage=wrong)
    assert not os.path.exists(path)
    for wrong, kind in (({"path": 3}, TypeError), ({"path": ""}, ValueError), ({"path": "a\0"}, ValueError),
                        ({"path": "a", "part_qubits": 0}, ValueError), ({"path": "a", "part_qubits": "3"}, TypeError),
                        ({"path": "a", "resume": 1}, TypeError)):  # fmt: skip
        with pytest.raises(kind):
            Storage(**wrong)
    with pytest.raises(ValueError, match="part_qubits must be larger"):
        stored(Circuit(12).h(range(12)), path, 4)
    with pytest.raises(MemoryError, match="3 parts of 45 qubits"):
        stored(Circuit(46).h(range(46)), path, 45)
    assert not os.path.exists(path)


def test_files_of_others_stay_as_they_are(tmp_path, path):
    circuit = random_circuit(12, 50)
    for name in (path, path + ".journal"):
        with open(name, "w") as file:
            file.write("mine")
        with pytest.raises(FileExistsError, match="resume=True"):
            stored(circuit, path)
        with pytest.raises(ValueError, match="cannot be gone on with"):
            stored(circuit, path, resume=True)
        assert open(name).read() == "mine" and len(os.listdir(tmp_path)) == 1
        os.unlink(name)
    stored(circuit, path)
    with pytest.raises(ValueError, match="circuit was"):
        stored(random_circuit(12, 51), path, resume=True)
    with pytest.raises(ValueError, match="part_qubits was 10, is 11"):
        stored(circuit, path, 11, resume=True)
    with open(path + ".journal", "ab") as file:
        file.write(b"7\n")
    with pytest.raises(ValueError, match="damaged"):
        stored(circuit, path, resume=True)
    os.truncate(path, 4096)
    with pytest.raises(ValueError, match="damaged"):
        stored(circuit, path, resume=True)
    with pytest.raises(ValueError, match="storage must be a file"):
        os.mkfifo(path + "3")
        with open(path + ".journal", "rb") as file, open(path + "3.journal", "wb") as header:
            header.write(file.readline())
        stored(circuit, path + "3", resume=True)
    with pytest.raises(FileNotFoundError):
        stored(circuit, str(tmp_path / "no" / "state"))


def test_the_state_in_a_file_is_not_handed_out(path):
    circuit = random_circuit(12, 50)
    result = stored(circuit, path)
    for name in ("state", "compact_state"):
        with pytest.raises(RuntimeError, match="lies in a file"):
            getattr(result, name)
    os.unlink(path)  # the result goes on
    there = run(circuit, threads=1)
    result.save(path)
    for again in (velacamplix.Result.load(path), __import__("copy").deepcopy(result)):
        assert again.state.x(0).n_qubits == 12
    assert result.statevector().tobytes() == there.statevector().tobytes()
    assert repr(result) and result._repr_html_() and result.to_dict()["outcomes"] == there.to_dict()["outcomes"]


def test_layouts_end_where_the_plan_says():
    found = for_parts(random_circuit(12, 100), "single")
    plan, stages, layout = planned(Storage("nowhere", 11), found, "single")
    list(layout.jobs())
    again = Layout(stages, 1)
    list(again.jobs())
    assert layout.final.tolist() == again.final.tolist() and len(layout.final) == plan.parts * layout.blocks


def test_ctrl_c_is_heard_while_a_file_is_read(path, monkeypatch):
    result = stored(random_circuit(12, 50), path)

    def interrupt(*_):
        raise KeyboardInterrupt

    monkeypatch.setattr(type(result._final()), "probability", lambda *_: time.sleep(5))
    before = signal.signal(signal.SIGALRM, interrupt)
    signal.setitimer(signal.ITIMER_REAL, 0.1)
    try:
        with pytest.raises(KeyboardInterrupt):
            result.probability(0)
    finally:
        signal.signal(signal.SIGALRM, before)


LIMITED = """
import resource, sys, threading
from velacamplix import Circuit, Storage, StateVector, run
threading.stack_size(2**20)
with open("/proc/self/status") as file:
    data = next(int(line.split()[1]) for line in file if line.startswith("VmData")) * 1024
resource.setrlimit(resource.RLIMIT_DATA, (data + 60 * 2**20, resource.RLIM_INFINITY))
n = 22
try:
    StateVector(n, threads=1)
    print("there was room")
except MemoryError:
    pass
result = run(Circuit(n).h(range(n)), shots=5, seed=1, observables="X21", threads=1, storage=Storage(sys.argv[1], 19))
print(result.storage.parts, abs(result.expectation_values - 1) < 1e-9)
"""


def test_memory_is_that_of_three_parts(path):
    # The state has 64 MiB, the parts together 24.
    told = subprocess.run([sys.executable, "-c", LIMITED, path], capture_output=True, text=True, timeout=300)
    assert told.stdout == "8 True\n", told.stdout + told.stderr


PEAK = """
import sys, threading, time
from velacamplix import Circuit, Storage, StateVector, run
def resident():
    with open("/proc/self/status") as file:
        return sum(int(line.split()[1]) for line in file if line.startswith(("RssAnon", "RssShmem"))) * 1024
n, how = 22, sys.argv[2]
circuit = Circuit(n).h(range(n)).rz(0.3, range(n)).h(range(n))
storage = Storage(sys.argv[1], 19)
run(Circuit(14).h(range(14)), storage=Storage(sys.argv[1] + "small", 12), threads=1)  # what is loaded once
before, peak, done = resident(), [0], threading.Event()
def watch():
    while not done.wait(0.001):
        peak[0] = max(peak[0], resident())
watcher = threading.Thread(target=watch)
watcher.start()
if how == "run":
    result = run(circuit, storage=storage, threads=1)
    told = result.storage.memory_bytes
else:
    state = StateVector(n, threads=1, storage=storage).run(circuit)
    told = state.storage.memory_bytes
    state.probability(0, [3]), state.expectation("X21"), state.sample(100)
done.set()
watcher.join()
print(told, peak[0] - before)
"""


@pytest.mark.parametrize("how", ["run", "state"])
def test_peak_memory_is_what_was_told(path, how):
    ended = subprocess.run([sys.executable, "-c", PEAK, path, how], capture_output=True, text=True, timeout=300)
    assert ended.returncode == 0, ended.stderr
    told, peak = map(int, ended.stdout.split())
    assert told == 3 * 2**23 and told * 0.9 < peak < told + 2**24, (told, peak)


SHORTENED = """
import faulthandler, os, sys, threading
from velacamplix import Circuit, Result, Storage, run
path, when = sys.argv[1:]
circuit = Circuit(18).h(range(18))
result = run(circuit, storage=Storage(path, 15), threads=2)
other = run(circuit, storage=Storage(path + "2", 15), threads=2)
if when == "later":
    faulthandler.enable()  # takes the signal for itself
    result.probability(0)
if when == "reading":
    stop = threading.Timer(0.05, os.truncate, (path, 2**20))
    stop.start()
    try:
        while True:
            assert 0.99 < result.distribution([3]).sum() < 1.01
    except OSError as error:
        assert "shortened" in str(error), error
os.truncate(path, 0)
for ask in (
    lambda: result.amplitude(0), lambda: result.probability(0), lambda: result.distribution([1]), result.outcomes,
    lambda: result.statevector(), lambda: result.expectation("X0"), lambda: result.overlap(other),
    lambda: other.overlap(result), lambda: result.reduced([0]), lambda: result.save(path + ".npz"),
    lambda: result.entropy([0]), lambda: result.variance("X0"),
):
    try:
        print("answered", ask())
    except OSError as error:
        assert "shortened" in str(error), error
assert not os.path.exists(path + ".npz")
print(round(other.probability(0, [0]), 6), round(other.expectation("X17"), 6))
"""


@pytest.mark.parametrize("when", ["before", "later", "reading"])
def test_a_file_that_is_shortened_ends_no_process(path, when):
    told = subprocess.run([sys.executable, "-c", SHORTENED, path, when], capture_output=True, text=True, timeout=300)
    assert (told.returncode, told.stdout) == (0, "0.5 1.0\n"), told.stdout + told.stderr


OTHERS = """
import ctypes, mmap, os, signal, sys
from velacamplix import Circuit, Storage, run
path, way = sys.argv[1:]
heard = []
if way == "handled":
    signal.signal(signal.SIGBUS, lambda *_: os._exit(7))
result = run(Circuit(14).h(range(14)), storage=Storage(path, 12))
result.probability(0)
if way == "handled":
    os.kill(os.getpid(), signal.SIGBUS)
    while True:
        signal.pause()
with open(path + "2", "w+b") as file:
    file.truncate(4096)
    pages = mmap.mmap(file.fileno(), 4096)
    file.truncate(0)
    pages[0]
"""


@pytest.mark.parametrize(("way", "status"), [("handled", 7), ("plain", -signal.SIGBUS)])
def test_bus_errors_of_others_are_left_to_them(path, way, status):
    told = subprocess.run([sys.executable, "-c", OTHERS, path, way], capture_output=True, text=True, timeout=300)
    assert told.returncode == status, told.stdout + told.stderr


def test_parts_below_a_page_are_refused_wherever_there_are_several(tmp_path):
    # A single stage, in which nothing moves from part to part: flips of qubits outside a part only name it anew.
    circuit = Circuit(10).x(range(10))
    with pytest.raises(ValueError, match=r"part_qubits must be larger for this circuit, 8 at least: got 4"):
        run(circuit, storage=Storage(tmp_path / "small", part_qubits=4))
    found = run(circuit, shots=5, storage=Storage(tmp_path / "state", part_qubits=8))
    assert found.counts == {"1" * 10: 5}
    # One part may be smaller than a page.
    assert run(Circuit(4).x(range(4)), shots=5, storage=tmp_path / "single").counts == {"1111": 5}
