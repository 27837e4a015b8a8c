"""A state that cannot fit is refused before anything is allocated, with a message that says what would fit."""

import os
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

from velacamplix import StateVector, max_qubits, memory_needed
from velacamplix.machine import groups as _groups
from velacamplix.machine import limits as _machine
from velacamplix.machine import memory as _memory

GIB = 2**30


def lay_out(root, **files):
    """Write a machine's files below `root`; a name's "__" stands for "/"."""
    for name, text in files.items():
        path = root / name.replace("__", "/")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    return root


def meminfo(free, available, total=64 * GIB):
    return f"MemTotal: {total // 1024} kB\nMemFree:  {free // 1024} kB\nMemAvailable: {available // 1024} kB\nHugePages_Total: 0\n"


@pytest.fixture
def machine(tmp_path):
    def make(free=16 * GIB, available=16 * GIB, **files):
        return lay_out(tmp_path, proc__meminfo=meminfo(free, available), **files)

    return make


def refusal(n, precision, root):
    with pytest.raises(MemoryError) as error:
        _memory.require_state(n, precision, root)
    return str(error.value)


# Real states on this machine


@pytest.mark.parametrize(("n", "size"), [(40, "16.0 TiB"), (60, "16.0 EiB"), (63, "128.0 EiB"), (64, "256.0 EiB"), (1000, "2^1004 bytes")])
def test_states_that_no_machine_can_hold(n, size):
    with pytest.raises(MemoryError) as error:
        StateVector(n)
    message = str(error.value)
    assert f"n={n} qubits in double precision need {size}" in message
    assert "available" in message
    largest = int(re.search(r"largest n that fits is (\d+)", message).group(1))
    assert 16 << largest <= _machine.total_memory() < 16 << 40


def test_an_absurd_number_is_refused_at_once():
    with pytest.raises(MemoryError, match=r"need 2\^\d+ bytes"):
        StateVector(10**18)


def test_the_refusal_prints_nothing_and_the_library_is_not_asked():
    code = "import velacamplix\ntry: velacamplix.StateVector(50)\nexcept MemoryError: pass"
    ended = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, "", "")


@pytest.mark.parametrize("n", [40, 60])
def test_the_core_refuses_too(n):
    code = f"import velacamplix._core as core\ntry: core.StateVectorDouble({n})\nexcept MemoryError: print('refused')"
    ended = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    # The library's own message and Python's line have buffers of their own; which comes first depends on the terminal.
    assert ended.returncode == 0 and "refused\n" in ended.stdout, ended


def test_a_refusal_of_the_system_itself_is_a_clear_error():
    # The address space of this process ends long before the machine's memory does.
    code = (
        "import resource, velacamplix\n"
        "used = int(open('/proc/self/statm').read().split()[0]) * resource.getpagesize()\n"
        "resource.setrlimit(resource.RLIMIT_AS, (used + 2**28, used + 2**28))\n"
        "try: velacamplix.StateVector(25, threads=1)\n"
        "except MemoryError as error: print(error)"
    )
    ended = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    assert ended.returncode == 0 and "n=25 qubits in double precision" in ended.stdout, ended


def test_a_distribution_that_does_not_fit(machine):
    root = machine(free=1000, available=1000)
    with pytest.raises(MemoryError, match=r"the distribution of 20 qubits needs 8.0 MiB; 0 bytes are available"):
        _memory.require_bytes(8 << 20, "the distribution of 20 qubits", root)


# Other machines


def test_what_exactly_fits_is_accepted(machine):
    root = machine(free=16 * GIB, available=20 * GIB)
    _memory.require_state(30, "double", root)
    _memory.require_state(31, "single", root)
    assert "largest n that fits is 30" in refusal(31, "double", root)
    assert "largest n that fits is 31" in refusal(32, "single", root)


def test_one_page_less_does_not_fit(machine):
    assert "largest n that fits is 29" in refusal(30, "double", machine(16 * GIB - 4096, 16 * GIB - 4096))


def test_single_precision_is_named_where_it_helps(machine):
    root = machine()
    assert "precision='single' needs half as much and fits" in refusal(31, "double", root)
    assert "precision='single'" not in refusal(32, "double", root)


def test_page_cache_in_the_way(machine):
    message = refusal(26, "double", machine(free=GIB // 2, available=12 * GIB))
    assert "n=26 qubits in double precision need 1.0 GiB; 12.0 GiB are available" in message
    assert "only 512.0 MiB of them are free" in message
    assert "page cache" in message
    assert "largest n that fits is 25 now, 29 once the cache has been dropped" in message
    assert "drop_caches" in message and f"b'1' * {GIB}" in message


def test_too_large_even_without_page_cache(machine):
    message = refusal(36, "double", machine(free=GIB // 2, available=12 * GIB))
    assert "12.0 GiB are available" in message
    assert "largest n that fits is 25 now, 29 once the page cache has been dropped" in message


def test_a_machine_without_any_memory(tmp_path):
    message = refusal(17, "double", tmp_path)
    assert "0 bytes are available" in message and "Not even one amplitude in double precision fits" in message


MOUNTS_V2 = "30 23 0:26 / /sys/fs/cgroup rw,nosuid - cgroup2 cgroup2 rw\n"
MOUNTS_V1 = "31 30 0:27 / /sys/fs/cgroup/memory rw - cgroup cgroup rw,memory\n32 30 0:28 / /sys/fs/cgroup/cpu,cpuacct rw - cgroup cgroup rw,cpu,cpuacct\n"


def test_limit_of_a_version_2_group(machine):
    root = machine(
        proc__self__mountinfo=MOUNTS_V2,
        proc__self__cgroup="0::/user.slice/job\n",
    )
    folder = root / "sys/fs/cgroup/user.slice/job"
    lay_out(
        folder,
        **{"memory.max": f"{4 * GIB}\n", "memory.current": f"{3 * GIB}\n", "memory.stat": f"anon 5\ninactive_file {GIB}\n"},
    )
    assert _machine.memory(root).limit == 2 * GIB
    message = refusal(28, "double", root)
    assert "2.0 GiB are available (a control group's limit; the machine has 16.0 GiB)" in message
    assert "largest n that fits is 27" in message
    assert "raising the container's (control group's) memory limit would help" in message
    assert "raising" not in refusal(36, "double", root)
    with pytest.raises(MemoryError, match=r"2\.0 GiB are available \(a control group's limit; the machine has 16\.0 GiB\)"):
        _memory.require_bytes(3 * GIB, "a copy", root)


@pytest.mark.parametrize(("inner", "outer"), [("max", GIB), (2 * GIB, GIB), (GIB, 2 * GIB), (GIB, "max")])
def test_the_narrowest_group_counts(inner, outer, machine):
    root = machine(proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/outer/inner\n")
    lay_out(root / "sys/fs/cgroup/outer/inner", **{"memory.max": f"{inner}\n", "memory.current": "0\n"})
    lay_out(root / "sys/fs/cgroup/outer", **{"memory.max": f"{outer}\n", "memory.current": "0\n"})
    assert _machine.memory(root).limit == GIB


def test_limit_of_a_version_1_group(machine):
    root = machine(proc__self__mountinfo=MOUNTS_V1, proc__self__cgroup="4:memory:/job\n3:cpu,cpuacct:/job\n0::/\n")
    lay_out(
        root / "sys/fs/cgroup/memory/job",
        **{
            "memory.limit_in_bytes": f"{2 * GIB}\n",
            "memory.usage_in_bytes": f"{GIB}\n",
            "memory.stat": f"total_inactive_file {GIB // 2}\n",
        },
    )
    lay_out(root / "sys/fs/cgroup/memory", **{"memory.limit_in_bytes": "9223372036854771712\n"})
    assert _machine.memory(root).limit == GIB + GIB // 2


def test_no_limit(machine):
    root = machine(proc__self__mountinfo=MOUNTS_V1 + MOUNTS_V2, proc__self__cgroup="4:memory:/\n0::/\n")
    lay_out(root / "sys/fs/cgroup/memory", **{"memory.limit_in_bytes": "9223372036854771712\n"})
    lay_out(root / "sys/fs/cgroup", **{"memory.max": "max\n"})
    assert _machine.memory(root).limit is None


def test_a_group_told_from_outside_the_container(machine):
    # The path is the host's; the container sees its own group as the mount itself.
    mounts = "30 23 0:26 /docker/abc /sys/fs/cgroup/memory ro - cgroup cgroup rw,memory\n"
    root = machine(proc__self__mountinfo=mounts, proc__self__cgroup="4:memory:/docker/abc\n")
    lay_out(root / "sys/fs/cgroup/memory", **{"memory.limit_in_bytes": f"{GIB}\n", "memory.usage_in_bytes": "0\n"})
    assert _machine.memory(root).limit == GIB


def test_a_group_that_is_overdrawn_leaves_nothing(machine):
    root = machine(proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/\n")
    lay_out(root / "sys/fs/cgroup", **{"memory.max": "1000\n", "memory.current": "2000\n"})
    assert _machine.memory(root).limit == 0


def test_this_machine_agrees_with_the_kernel():
    pages = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")
    memory = _machine.memory()
    assert _machine.total_memory() == pages
    assert 0 < memory.usable <= memory.free <= pages
    assert memory.available <= pages


@pytest.mark.parametrize(("size", "text"), [(0, "0 bytes"), (1023, "1023 bytes"), (1024, "1.0 KiB"), (GIB * 3 // 2, "1.5 GiB")])
def test_sizes_in_words(size, text):
    assert _memory.human(size) == text


def test_what_is_small_is_not_asked_for(tmp_path):
    # A look at the machine takes longer than a small circuit.
    _memory.require_state(16, "double", tmp_path)
    _memory.require_state(17, "single", tmp_path)
    _memory.require_bytes(2**20, "a small buffer", tmp_path)
    for n, precision in ((17, "double"), (18, "single")):
        assert "0 bytes are available" in refusal(n, precision, tmp_path)
    with pytest.raises(MemoryError):
        _memory.require_bytes(2**20 + 1, "a buffer", tmp_path)


# Asking beforehand


def test_memory_needed():
    assert memory_needed(0) == 16 and memory_needed(0, "single") == 8
    assert memory_needed(30) == 16 * GIB == memory_needed(31, precision="single")
    assert memory_needed(np.int64(4096)) == 2**4100


@pytest.mark.parametrize(
    ("arguments", "error", "words"),
    [
        ((-1,), ValueError, "n must be an integer from 0 to 4096, got -1"),
        ((4097,), ValueError, "n must be an integer from 0 to 4096, got 4097"),
        ((10**30,), ValueError, "n must be an integer from 0 to 4096"),
        ((2.0,), TypeError, "n must be an integer"),
        ((True,), TypeError, "n must be an integer"),
        ((3, "half"), ValueError, "precision must be 'single' or 'double', got 'half'"),
        ((3, 64), TypeError, "precision must be 'single' or 'double', got 64"),
    ],
)
def test_memory_needed_for_what_does_not_exist(arguments, error, words):
    with pytest.raises(error) as raised:
        memory_needed(*arguments)
    assert words in str(raised.value)


def test_max_qubits_is_what_fits():
    usable = _machine.memory().usable
    for precision in ("double", "single"):
        most = max_qubits(precision)
        # Memory may have been taken or given back since; not by a factor of two.
        assert memory_needed(most - 1, precision) < usable < memory_needed(most + 2, precision)
        with pytest.raises(MemoryError):
            StateVector(most + 2, precision)
    with pytest.raises(ValueError, match="precision must be"):
        max_qubits("quadruple")


def test_max_qubits_where_nothing_fits(monkeypatch):
    monkeypatch.setattr(_machine, "memory", lambda root="/": _machine.Memory(free=7, available=7, limit=None))
    with pytest.raises(MemoryError, match="not even one amplitude fits; 7 bytes are available"):
        max_qubits("single")


# What allocates as much as a state asks as well


@pytest.mark.parametrize(
    ("act", "size", "what"),
    [
        (lambda state: state.copy(), 64, "n=3 qubits in single precision need 64 bytes"),
        (lambda state: state.__reduce__(), 64, "a copy of StateVector(n=3, precision='single', threads=2) needs 64 bytes"),
        (lambda state: state.statevector(), 64, "a copy of the amplitudes of 3 qubits needs 64 bytes"),
        (lambda state: state.distribution(), 64, "the distribution of 3 qubits needs 64 bytes"),
        (lambda state: state.sample(10), 240, "an array of 10 shots needs 240 bytes"),
        (lambda state: state.to_dict(), 400, "a dictionary of 1 entries needs 400 bytes"),
        (lambda state: state.distribution_dict([0]), 800, "a dictionary of 2 entries needs 800 bytes"),
        (lambda state: state.estimate("X0 Z1 Y2", 10), 64, "the table of outcomes of a term on 3 qubits needs 64"),
        (lambda state: state.set_state(np.eye(8)[0], order="big"), 64, "a copy of the amplitudes of 3 qubits needs 64 bytes"),
        (lambda state: state.set_state(np.eye(8)[0], order="little"), 64, "a copy of the amplitudes of 3 qubits needs 64"),
        (lambda state: state.set_state(state.array), 64, "a copy of the amplitudes of 3 qubits needs 64 bytes"),
        (lambda state: state.prepare(np.eye(8)[0], [0, 1, 2]), 128, "a copy of the data of 3 qubits needs 128 bytes"),
    ],
)
def test_copies_and_exports_are_refused_where_they_do_not_fit(act, size, what, monkeypatch):
    state = StateVector(3, "single", threads=2)
    before = state.array.tobytes()
    available = [size - 1]
    monkeypatch.setattr(_memory, "SMALL_BYTES", 0)
    monkeypatch.setattr(
        _machine, "memory", lambda root="/": _machine.Memory(free=available[0], available=available[0], limit=None)
    )
    with pytest.raises(MemoryError) as error:
        act(state)
    assert what in str(error.value) and f"{size - 1} bytes are available" in str(error.value)
    assert state.array.tobytes() == before
    available[0] = size
    act(state)


@pytest.mark.parametrize("order", ["big", "little"])
def test_amplitudes_of_the_right_type_are_read_where_they_are(order, monkeypatch):
    state = StateVector(3, "single")
    monkeypatch.setattr(_memory, "SMALL_BYTES", 0)
    monkeypatch.setattr(_machine, "memory", lambda root="/": _machine.Memory(free=0, available=0, limit=None))
    given = np.eye(8, dtype=np.complex64)[4]
    assert state.set_state(given, order).array[{"big": 1, "little": 4}[order]] == 1


# A real control group


@pytest.fixture
def control_group():
    """Makes a memory group below this process's own; gives a function that runs Python code within `limit` bytes."""
    if os.geteuid() != 0:
        pytest.skip("only root may make a control group")
    own = next(map(Path, _groups.folders("/", "memory")), None)
    if own is None or not os.access(own, os.W_OK):
        pytest.skip(f"no control group of memory can be made here (found {own})")
    folder = own / f"velacamplix-test-{os.getpid()}"
    try:
        folder.mkdir()
    except OSError as error:
        pytest.skip(f"no control group of memory can be made in {own}: {error}")
    files = [name for name in ("memory.limit_in_bytes", "memory.max") if (folder / name).exists()]
    if not files:
        folder.rmdir()
        pytest.skip(f"{own} does not limit memory")

    def run(limit, code):
        (folder / files[0]).write_text(str(limit))
        enter = f"open({str(folder / 'cgroup.procs')!r}, 'w').write(str(__import__('os').getpid()))\n"
        return subprocess.run([sys.executable, "-c", enter + code], capture_output=True, text=True, timeout=60)

    yield run
    folder.rmdir()


def test_the_limit_of_a_real_group(control_group):
    code = (
        "import velacamplix\n"
        "print(velacamplix.max_qubits())\n"
        "velacamplix.StateVector(22).h(0)\n"
        "try: velacamplix.StateVector(25)\n"
        "except MemoryError as error: print(error)\n"
    )
    ended = control_group(256 * 2**20, code)
    assert ended.returncode == 0, ended
    most, message = ended.stdout.splitlines()
    assert most == "23"
    assert "n=25 qubits in double precision need 512.0 MiB; 2" in message and "a control group's limit" in message
    assert "largest n that fits is 23" in message and "memory limit would help" in message
