"""Takes the parts of a state through all stages, one after another, while others are read and written."""

from __future__ import annotations

import sys
import threading
from concurrent.futures import Future, ThreadPoolExecutor, wait
from typing import Any

import numpy as np

from ..programs.drive import INTERVAL, heard
from ..programs.progress import AnyMeter, ProgressLike, metered
from .files import Files, Stopped, buffer
from .layout import Job, Layout
from .storage import BUFFERS, StoragePlan

# Bytes that are set to 0 at a time.
_PIECE = 2**24


def carried_out(
    plan: StoragePlan,
    stages: Any,
    layout: Layout,
    files: Files,
    amplitude_type: type[np.generic],
    threads: int,
    progress: ProgressLike,
    cure: str,
) -> np.ndarray:
    """Do all jobs that are not done, and return the blocks of the state in order.

    What ends it early gets a note of how far it has come, with `cure`, which says how to go on.
    """
    jobs = plan.stages * plan.parts
    if progress is True and sys.stderr is not None:
        print(plan, file=sys.stderr)
    try:
        with metered(progress, jobs, "parts") as meter:
            return Walk(stages, layout, files, amplitude_type, threads, meter).run()
    except BaseException as error:
        error.add_note(f"{files.done} of {jobs} parts are done; {cure} goes on from there")
        raise


class Walk:
    """All jobs of a layout from ``files.done`` on.

    While gates act on one part the next is read and the last is written. A part whose blocks come from the stage before
    is read once all parts of that stage have been written.
    """

    def __init__(
        self, plan: Any, layout: Layout, files: Files, amplitude_type: type[np.generic], threads: int, meter: AnyMeter
    ) -> None:
        self._plan, self._layout, self._files, self._threads, self._meter = plan, layout, files, threads, meter
        self._type = amplitude_type
        self._written = threading.Condition()

    def run(self) -> np.ndarray:
        """Do it, and return the blocks of the state in order."""
        jobs = list(self._layout.jobs())
        first = self._files.done
        self._meter.advance(first)
        if first < len(jobs):
            self._run(jobs, first)
        return self._layout.final

    def _run(self, jobs: list[Job], first: int) -> None:
        size = self._layout.blocks * self._layout.block_bytes
        buffers = [buffer(size) for _ in range(min(BUFFERS, len(jobs) - first))]
        with ThreadPoolExecutor(1, "velacamplix reads") as reads, ThreadPoolExecutor(1, "velacamplix writes") as writes:
            try:
                reading = reads.submit(self._read, jobs[first], buffers[0])
                writing: Future[None] | None = None
                for number in range(first, len(jobs)):
                    job, octets = jobs[number], buffers[(number - first) % BUFFERS]
                    _waited_for(reading, writing)
                    if number + 1 < len(jobs):
                        reading = reads.submit(self._read, jobs[number + 1], buffers[(number + 1 - first) % BUFFERS])
                    self._act(job, octets)
                    if writing is not None:
                        _waited_for(writing)
                    writing = writes.submit(self._write, job, octets)
                    self._meter.advance(1)
                    if number + 1 < len(jobs):
                        self._meter.tell()
                assert writing is not None
                _waited_for(writing)
            except BaseException:
                self._files.stop.set()
                with self._written:
                    self._written.notify_all()
                raise

    def _act(self, job: Job, octets: np.ndarray) -> None:
        amplitudes = octets.view(self._type)[: 1 << self._plan.part_qubits()]
        self._plan.run_stage(job.stage, job.rank, amplitudes, self._threads, *heard())

    def _read(self, job: Job, octets: np.ndarray) -> None:
        if job.stage == 0 and not self._layout.is_begun:
            self._begin(job, octets)
            return
        with self._written:
            while self._files.done < job.stage * self._layout.parts:
                if self._files.stop.is_set():
                    raise Stopped
                self._written.wait(INTERVAL)
        self._files.read(job.source, self._layout.block_bytes, octets)

    def _begin(self, job: Job, octets: np.ndarray) -> None:
        """Make a part of |0...0>."""
        for start in range(0, len(octets), _PIECE):
            if self._files.stop.is_set():
                raise Stopped
            octets[start : start + _PIECE] = 0
        if job.rank == 0:
            octets.view(self._type)[0] = 1

    def _write(self, job: Job, octets: np.ndarray) -> None:
        self._files.write(job.target, self._layout.block_bytes, octets)
        with self._written:
            self._written.notify_all()


def _waited_for(*futures: Future[None] | None) -> None:
    """Wait for the first of them, or raise what ended one of them. Ctrl-C is heard meanwhile."""
    wanted = futures[0]
    assert wanted is not None
    while True:
        for one in futures:
            if one is not None and one.done():
                one.result()
        if wanted.done():
            return
        wait([wanted], INTERVAL)
