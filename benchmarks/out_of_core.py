#!/usr/bin/env python3
"""States in files: how long runs take, beside what the disk and the passes in memory take by themselves.

Usage: benchmarks/out_of_core.py FOLDER [QUBITS]     (with the Python in which velacamplix is installed)

Without QUBITS the state is the largest of at most 31 qubits whose file takes no more than 80 % of the room in the folder. The
disk's speed is that of 16 MiB at a time past the page cache, over 4 GiB or a whole file if that is less; the passes' time is that
of the same kind of circuit on 24 qubits in memory, extrapolated. A run should take no more than 1.3 times the longer of the two.
"""

from __future__ import annotations

import math
import mmap
import os
import shutil
import sys
import time
from collections.abc import Callable

from velacamplix import Circuit, Storage, run

PIECE = 2**24
SMALL = 24


def fourier(n: int) -> Circuit:
    circuit = Circuit(n).ry(0.4, range(0, n, 3))
    for q in reversed(range(n)):
        circuit.h(q)
        for k in range(q):
            circuit.cp(math.pi / 2 ** (q - k), k, q)
    for q in range(n // 2):
        circuit.swap(q, n - 1 - q)
    return circuit


def ansatz(n: int) -> Circuit:
    circuit = Circuit(n)
    for layer in range(10):
        circuit.ry(0.1 + layer, range(n)).rz(0.3, range(n))
        for q in range(n - 1):
            circuit.cx(q, q + 1)
    return circuit


CIRCUITS: dict[str, tuple[Callable[[int], Circuit], str]] = {
    "Fourier transform": (fourier, "written"),
    "ansatz": (ansatz, "written"),
    "ansatz, canonical:10": (ansatz, "canonical:10"),
}


def disk_speeds(folder: str, size: int) -> tuple[float, float]:
    """Return the bytes per second that are written and read."""
    path = os.path.join(folder, "velacamplix-speed")
    piece, rates = mmap.mmap(-1, PIECE), []
    try:
        descriptor = os.open(path, os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_DIRECT, 0o600)
        os.posix_fallocate(descriptor, 0, size)
        for write in (True, False):
            began = time.perf_counter()
            for start in range(0, size, PIECE):
                os.pwritev(descriptor, [piece], start) if write else os.preadv(descriptor, [piece], start)
            os.fdatasync(descriptor)
            rates.append(size / (time.perf_counter() - began))
        os.close(descriptor)
    finally:
        os.unlink(path)
    return rates[0], rates[1]


def main() -> None:
    folder = sys.argv[1]
    room = shutil.disk_usage(folder).free * 4 // 5
    path = os.path.join(folder, "velacamplix-state")
    n = int(sys.argv[2]) if len(sys.argv) > 2 else 31
    while len(sys.argv) <= 2 and Storage(path).plan(Circuit(n).h(range(n))).file_bytes > room:
        n -= 1
    writes, reads = disk_speeds(folder, min(2**32, 16 << n))
    print(f"{n} qubits; disk: {writes / 1e9:.2f} GB/s written, {reads / 1e9:.2f} GB/s read")
    for name, (make, schedule) in CIRCUITS.items():
        plan = Storage(path).plan(make(n), schedule=schedule)
        print(f"{name}: {plan}")
        on_disk = plan.bytes_written / writes + plan.bytes_read / reads
        passes = min(run(make(min(n, SMALL)), schedule=schedule).timings.simulate for _ in range(2)) * 2.0 ** max(0, n - SMALL)
        passes *= len(make(n).instructions) / len(make(min(n, SMALL)).instructions)
        try:
            taken = run(make(n), storage=path, schedule=schedule).timings.simulate
        finally:
            for left in (path, path + ".journal"):
                if os.path.exists(left):
                    os.unlink(left)
        print(f"    {taken:.1f} s; disk alone {on_disk:.1f} s, passes alone {passes:.1f} s: {taken / max(on_disk, passes):.2f}")


if __name__ == "__main__":
    main()
