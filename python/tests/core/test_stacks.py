"""Stacks of OpenMP's threads: what is too small is refused before a thread could end the process."""

import os
import resource
import subprocess
import sys

import pytest

WORK = """
import numpy as np
from velacamplix import Circuit, StateVector, run

for precision in ("double", "single"):
    n = 15
    circuit = Circuit(n)
    for q in range(n):
        circuit.h(q).rx(0.3, q).cx(q, (q + 1) % n).rzz(0.2, q, (q + 5) % n).u(1, 2, 3, q).swap(q, (q + 2) % n)
    large = np.linalg.qr(np.random.default_rng(1).normal(size=(128, 128)))[0]
    circuit.matrix(large, [0, 5, 9, 14, 2, 3, 8])
    state = StateVector(n, precision, threads=2, seed=1).h(0).matrix(large, [0, 5, 9, 14, 2, 3, 8]).run(circuit)
    state.run(circuit, fusion=True)
    state.sample(100), state.distribution([0, 3]), state.distribution(), state.estimate("X0 Y3 + Z1", 100), state.measure(3)
    run(circuit, shots=100, threads=2, precision=precision, observables="Z0 X3")
print("done")
"""


def python(code, before="", **environment):
    mine = ("OMP_STACKSIZE", "GOMP_STACKSIZE")
    inherited = {name: value for name, value in os.environ.items() if name not in mine}
    command = ["sh", "-c", f'{before}exec "$0" -c "$1"', sys.executable, code]
    return subprocess.run(command, env={**inherited, **environment}, capture_output=True, text=True, timeout=300)


@pytest.mark.parametrize("size", ["16k", "16", "16384B", " 100 K ", "0", "131071b"])
@pytest.mark.parametrize("name", ["OMP_STACKSIZE", "GOMP_STACKSIZE"])
def test_too_small_a_stack_is_refused_by_name(name, size):
    ended = python("import velacamplix", **{name: size})
    assert ended.returncode == 1
    assert ended.stderr.splitlines()[-1] == (
        f"ImportError: velacamplix cannot be loaded: the environment variable {name} is {size!r}, and its threads need a "
        "stack of 128 KiB; set it to 128k or more, or leave it alone, before Python starts"
    )


@pytest.mark.parametrize(
    "environment",
    [{"OMP_STACKSIZE": "128k"}, {"OMP_STACKSIZE": "1m", "GOMP_STACKSIZE": "16k"}, {"OMP_STACKSIZE": "much"}, {}],
    ids=str,
)
def test_with_the_least_stack_all_loops_run(environment):
    ended = python(WORK, **environment)
    assert ended.stdout == "done\n", ended.stderr


def test_a_small_limit_of_the_process_is_refused_too():
    ended = python("import velacamplix", "ulimit -S -s 120; ")
    assert ended.returncode == 1 and "the limit of stacks is 122880 bytes" in ended.stderr.splitlines()[-1]
    assert python(WORK, "ulimit -S -s 128; ").stdout == "done\n"


def test_no_limit_is_no_obstacle():
    if resource.getrlimit(resource.RLIMIT_STACK)[1] != resource.RLIM_INFINITY:
        pytest.skip("this process may not lift its limit of stacks: run where `ulimit -H -s` is unlimited")
    assert python("import velacamplix; print('done')", "ulimit -s unlimited; ").stdout == "done\n"
