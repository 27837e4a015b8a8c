#!/usr/bin/env python3
"""Runs on ranks of this machine, in turns with runs of one process.

Usage: benchmarks/mpi.py [QUBITS...]     (with the Python in which velacamplix and mpi4py are installed; 20 and 24 by default)

One rank is compared with `run` on the same threads: at most 1.02 is what we want. 4 ranks of 1 thread are compared with one process
of 2 threads, both in the schedule canonical:10: at most 1.5 on 2 cores. Every number is the least of 5 turns, in each of which both
run 3 times after one that is not counted; told are seconds of a whole call.
"""

from __future__ import annotations

import os
import subprocess
import sys
import time
from collections.abc import Callable
from typing import Any

from velacamplix import Circuit, run

TURNS, REPEATS = 5, 3


def ansatz(n: int) -> Circuit:
    circuit = Circuit(n)
    for layer in range(10):
        circuit.ry(0.1 + layer, range(n)).rz(0.3, range(n))
        for q in range(n - 1):
            circuit.cx(q, q + 1)
    return circuit


def fourier(n: int) -> Circuit:
    circuit = Circuit(n).ry(0.4, range(0, n, 3))
    for q in reversed(range(n)):
        circuit.h(q)
        for k in range(q):
            circuit.cp(3.141592653589793 / 2 ** (q - k), k, q)
    for q in range(n // 2):
        circuit.swap(q, n - 1 - q)
    return circuit


CIRCUITS: dict[str, Callable[[int], Circuit]] = {"ansatz": ansatz, "Fourier transform": fourier}


def least(call: Callable[[], Any]) -> float:
    """Return the seconds of the fastest call."""
    call()
    seconds = []
    for _ in range(REPEATS):
        began = time.perf_counter()
        call()
        seconds.append(time.perf_counter() - began)
    return min(seconds)


def of_one_process(name: str, n: int) -> None:
    circuit = CIRCUITS[name](n)
    print(least(lambda: run(circuit, threads=2, schedule="canonical:10")))


def of_ranks(name: str, n: int) -> None:
    from mpi4py import MPI

    circuit, comm = CIRCUITS[name](n), MPI.COMM_WORLD

    def call() -> None:
        run(circuit, threads=1, schedule="canonical:10", comm=comm)
        comm.barrier()

    comm.barrier()
    seconds = least(call)
    if comm.Get_rank() == 0:
        print(seconds)


def one_rank_beside_run(name: str, n: int) -> None:
    from mpi4py import MPI

    circuit = CIRCUITS[name](n)
    alone, ranked = [], []
    for _ in range(TURNS):
        alone.append(least(lambda: run(circuit, threads=2)))
        ranked.append(least(lambda: run(circuit, threads=2, comm=MPI.COMM_SELF)))
    print(min(alone), min(ranked))


def told(*arguments: object, launcher: tuple[str, ...] = ()) -> list[float]:
    """Return what another process of this file prints."""
    settings = {
        **os.environ,
        "OMPI_ALLOW_RUN_AS_ROOT": "1",
        "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
        "OMPI_MCA_rmaps_base_oversubscribe": "1",
        "OMPI_MCA_hwloc_base_binding_policy": "none",
    }
    command = [*launcher, sys.executable, __file__, *map(str, arguments)]
    done = subprocess.run(command, env=settings, stdout=subprocess.PIPE, text=True, check=True)
    return [float(word) for word in done.stdout.split()]


def main() -> None:
    modes = {"--one": of_one_process, "--ranks": of_ranks, "--beside": one_rank_beside_run}
    if sys.argv[1:2] and sys.argv[1] in modes:
        modes[sys.argv[1]](sys.argv[2], int(sys.argv[3]))
        return
    for n in map(int, sys.argv[1:] or ["20", "24"]):
        for name in CIRCUITS:
            alone, ranked = told("--beside", name, n)
            print(f"{name}, {n} qubits, written: run {alone:.4f} s, one rank {ranked:.4f} s: {ranked / alone:.3f}", flush=True)
            one, four = [], []
            for _ in range(TURNS):
                one += told("--one", name, n)
                four += told("--ranks", name, n, launcher=("mpirun", "-n", "4"))
            print(
                f"{name}, {n} qubits, canonical:10: one process of 2 threads {min(one):.4f} s, 4 ranks of 1 thread "
                f"{min(four):.4f} s: {min(four) / min(one):.2f}",
                flush=True,
            )


if __name__ == "__main__":
    main()
