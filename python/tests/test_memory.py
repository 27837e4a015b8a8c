"""A state that cannot fit is refused before anything is allocated, with a message that says what would fit."""

import os
import re
import subprocess
import sys

import pytest

from velacamplix import StateVector, _machine, _memory

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
    assert ended.returncode == 0 and ended.stdout.endswith("refused\n"), ended


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
    message = refusal(1, "double", tmp_path)
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
