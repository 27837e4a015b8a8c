#!/usr/bin/env python3
"""States in files: how long runs take, beside what the disk and the passes in memory take by themselves.

The state has 31 qubits in double precision, 32 GiB, unless told otherwise. The disk's speed is that of 16 MiB at a time past
the page cache, over 4 GiB or a whole state if that is less; the passes' time is that of the same kind of circuit on 24 qubits in
memory, extrapolated. A run should take no more than 1.3 times the longer of the two. Before each run it is told how long that
will be, about, and what is written.

    benchmarks/out_of_core.py FOLDER        with the Python in which velacamplix is installed
"""

from __future__ import annotations

import argparse
import errno
import math
import mmap
import os
import shutil
import time
from collections.abc import Callable

from velacamplix import Circuit, Storage, run

PIECE = 2**24
SMALL = 24
# Bytes of the disk that stay free.
SPARE = 2**31


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


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", help="where the file is made; it is deleted afterwards")
    parser.add_argument("--qubits", type=int, default=31)
    parser.add_argument("--precision", choices=["double", "single"], default="double")
    parser.add_argument("--part-qubits", type=int, help="default: 4 parts of the state or more, as large as fit into memory")
    parser.add_argument("--threads", type=int)
    parser.add_argument("--only", choices=list(CIRCUITS), help="one circuit instead of all")
    return parser.parse_args()


def part_qubits(given: argparse.Namespace) -> int:
    if given.part_qubits:
        return int(given.part_qubits)
    default = Storage("nowhere").plan(Circuit(given.qubits).h(range(given.qubits)), given.precision).part_qubits
    return max(1, min(default, given.qubits - 2))


def main() -> None:
    given = arguments()
    n, path = given.qubits, os.path.join(given.folder, "velacamplix-state")
    storage = Storage(path, part_qubits(given))
    needed = storage.plan(Circuit(n).h(range(n)), given.precision).file_bytes
    room = shutil.disk_usage(given.folder).free
    if needed + SPARE > room:
        print(
            f"not measured: a file of {n} qubits needs {needed / 2**30:.1f} GiB, and {SPARE / 2**30:.0f} more that stay free; "
            f"{room / 2**30:.1f} GiB are free in {given.folder}"
        )
        return
    try:
        speeds = disk_speeds(given.folder, min(2**32, (16 if given.precision == "double" else 8) << n))
    except OSError as error:
        if error.errno not in (errno.EINVAL, errno.EOPNOTSUPP):
            raise
        print(f"not measured: the file system of {given.folder} refuses direct access")
        return
    writes, reads = speeds
    state = (16 if given.precision == "double" else 8) << n
    print(
        f"{n} qubits, {given.precision} precision, {state / 2**30:.2f} GiB; memory {memory_bytes() / 2**30:.1f} GiB; "
        f"disk: {writes / 1e9:.2f} GB/s written, {reads / 1e9:.2f} GB/s read"
    )
    for name, (make, schedule) in CIRCUITS.items():
        if given.only in (None, name):
            measure(name, make, schedule, storage, given, speeds)


def measure(
    name: str, make: Callable[[int], Circuit], schedule: str, storage: Storage, given: argparse.Namespace, speeds: tuple[float, float]
) -> None:
    n, small = given.qubits, min(given.qubits, SMALL)
    options = {"precision": given.precision, "schedule": schedule, "threads": given.threads}
    plan = storage.plan(make(n), given.precision, schedule)
    on_disk = plan.bytes_written / speeds[0] + plan.bytes_read / speeds[1]
    passes = min(run(make(small), **options).timings.simulate for _ in range(2)) * 2.0 ** (n - small)
    passes *= len(make(n).instructions) / len(make(small).instructions)
    print(f"{name}: {plan}")
    print(f"    disk alone {on_disk:.1f} s, passes alone {passes:.1f} s", flush=True)
    try:
        result = run(make(n), storage=storage, **options)
    finally:
        for left in (storage.path, storage.path + ".journal"):
            if os.path.exists(left):
                os.unlink(left)
    taken = result.timings.simulate
    print(f"    {taken:.1f} s: {taken / max(on_disk, passes):.2f} times the longer of both", flush=True)


def memory_bytes() -> int:
    return os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")


if __name__ == "__main__":
    main()
