"""Beside other libraries with threads of their own, imported before or after: both compute, and right, in turns."""

import importlib.util
import os
import subprocess
import sys
import textwrap

import pytest

# What each does with threads of its own; `ok` tells that it is right.
WORK = {
    "torch": "torch.set_num_threads(2); ok = float((torch.ones(4_000_000) * 2).sum()) == 8e6",
    "scipy": (
        "import scipy.linalg, scipy.fft, numpy\n"
        "m = numpy.random.default_rng(1).normal(size=(100, 100)); m = m + m.T\n"
        "w, v = scipy.linalg.eigh(m)\n"
        "ok = numpy.allclose(v @ numpy.diag(w) @ v.T, m)"
        " and numpy.allclose(scipy.fft.ifft(scipy.fft.fft(m, workers=2), workers=2), m)"
    ),
    "sklearn": (
        "import sklearn.cluster, numpy\n"
        "points = numpy.repeat(numpy.eye(4), 100, axis=0)\n"
        "found = sklearn.cluster.KMeans(n_clusters=4, n_init=2, random_state=1).fit(points)\n"
        "ok = found.inertia_ < 1e-9"
    ),
}
OURS = (
    "state = velacamplix.StateVector(16, threads=2, seed=3)\n"
    "for qubit in range(16): state.ry(0.2 * qubit + 0.1, qubit)\n"
    "digest = hash((state.array.tobytes(), tuple(state.sample(20).tolist())))"
)


def program(first, second, partner, ending=""):
    def body(code):
        return textwrap.indent(code, "    ")

    return (
        f"import {first}\nimport {second}\n"
        f"digests = set()\n"
        f"for turn in range(2):\n{body(WORK[partner])}\n    assert ok\n{body(OURS)}\n    digests.add(digest)\n"
        f"assert len(digests) == 1\n{ending}\n"
        "maps = [line.split()[-1] for line in open('/proc/self/maps') if 'omp' in line and '.so' in line]\n"
        "print('runtimes:', *sorted({name for name in maps if any(part in name for part in ('gomp', 'iomp', 'libomp'))}))\n"
    )


def outcome(code):
    # A fixed seed of hashes makes digests of different processes comparable.
    environment = {**os.environ, "PYTHONHASHSEED": "1"}
    return subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True, timeout=300)


def runtimes(ended):
    assert ended.returncode == 0, ended.stderr
    return ended.stdout.split("runtimes:")[1].split()


@pytest.fixture(params=sorted(WORK))
def partner(request):
    if importlib.util.find_spec(request.param) is None:
        pytest.skip(f"{request.param} is not installed")
    return request.param


@pytest.mark.parametrize("ours_first", [True, False])
def test_both_compute_in_either_order(partner, ours_first):
    names = ("velacamplix", partner) if ours_first else (partner, "velacamplix")
    loaded = runtimes(outcome(program(*names, partner)))
    # The system's runtime, shared by whoever asks for it by that name. A partner may carry another one of its own in
    # its wheel, under a name of its own; this package carries none.
    system = [name for name in loaded if "libgomp.so" in name]
    assert len(system) == 1 and not any("velacamplix" in name for name in loaded), loaded


def test_a_fork_after_both(partner):
    ending = (
        "import os\n"
        "child = os.fork()\n"
        "if child == 0:\n"
        "    state.h(0); state.h(1)\n"
        "    os._exit(5)\n"
        "assert os.waitpid(child, 0)[1] >> 8 == 5\n"
    )
    runtimes(outcome(program("velacamplix", partner, partner, ending)))


def test_alone_there_is_one_runtime():
    code = f"import velacamplix\n{OURS}\n" + program("os", "sys", "scipy").split("assert len(digests) == 1\n")[1]
    assert len(runtimes(outcome(code))) == 1
