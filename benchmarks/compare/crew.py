"""Worker processes: one per simulator and number of threads, each with its own environment and interpreter."""

from __future__ import annotations

import json
import os
import subprocess
import tempfile
from pathlib import Path
from typing import Any, Dict, List, NamedTuple, Optional, Tuple

import numpy as np

WORKER = Path(__file__).with_name("worker.py")
THREAD_VARIABLES = ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS", "VELACAMPLIX_NUM_THREADS")


class WorkerFailed(RuntimeError):
    """The simulator raised, or its process ended."""


class Measured(NamedTuple):
    seconds: float
    answer: Optional[Tuple[np.ndarray, ...]]


class Worker:
    """A simulator that answers requests. Whatever it says on its standard error goes to the file `log`."""

    def __init__(self, python: str, simulator: str, threads: int, log: Path) -> None:
        self.simulator, self.threads, self._log = simulator, threads, log
        self._folder = tempfile.TemporaryDirectory(prefix="compare-")
        self._log_file = open(log, "a")
        self._process = subprocess.Popen(
            [python, str(WORKER), simulator],
            env={**os.environ, **{name: str(threads) for name in THREAD_VARIABLES}},
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self._log_file,
            text=True,
        )
        description = self._ask(do="describe")
        self.versions: Dict[str, str] = description["versions"]
        self.precisions: List[str] = description["precisions"]

    @property
    def alive(self) -> bool:
        return self._process.poll() is None

    def build(self) -> str:
        return self._ask(do="build")["build"]

    def settings(self, kind: str, precision: str, n: int) -> List[str]:
        return self._ask(do="settings", kind=kind, precision=precision, n=n)["settings"]

    def prepare(self, name: str, task: Dict[str, Any], setting: str) -> Optional[str]:
        """Return why the simulator does not offer this, or None."""
        return self._ask(do="prepare", name=name, task=task, setting=setting).get("not_offered")

    def run(self, name: str, answer: bool = False) -> Measured:
        path = os.path.join(self._folder.name, "answer.npz") if answer else ""
        seconds = self._ask(do="run", name=name, answer=path)["seconds"]
        if not answer:
            return Measured(seconds, None)
        with np.load(path) as saved:
            parts = tuple(saved[key] for key in saved.files)
        os.remove(path)
        return Measured(seconds, parts)

    def forget(self) -> None:
        self._ask(do="forget")

    def close(self) -> None:
        # A worker ends when nothing more can come; one that is at work is not waited for.
        for pipe in (self._process.stdin, self._process.stdout):
            assert pipe is not None
            try:
                pipe.close()
            except BrokenPipeError:
                pass
        try:
            self._process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._log_file.close()
        self._folder.cleanup()

    def _ask(self, **request: Any) -> Dict[str, Any]:
        assert self._process.stdin is not None and self._process.stdout is not None
        try:
            self._process.stdin.write(json.dumps(request) + "\n")
            self._process.stdin.flush()
            line = self._process.stdout.readline()
        except BrokenPipeError:
            line = ""
        if not line:
            status = self._process.wait()
            said = self._log.read_text()[-2000:]
            raise WorkerFailed(f"the worker of {self.simulator} ended with status {status}; it said:\n{said}")
        answer = json.loads(line)
        if "failed" in answer:
            raise WorkerFailed(f"{self.simulator}: {answer['failed']}")
        return answer


class Crew:
    """All workers; one that has died is replaced when it is next asked for."""

    def __init__(self, pythons: Dict[str, str], log: Path) -> None:
        """`pythons` maps simulators to the interpreters that have them."""
        self._pythons, self._log = pythons, log
        self._workers: Dict[Tuple[str, int], Worker] = {}

    def __enter__(self) -> Crew:
        return self

    def __exit__(self, *_: object) -> None:
        for worker in self._workers.values():
            worker.close()

    def with_threads(self, threads: int) -> List[Worker]:
        for simulator, python in self._pythons.items():
            worker = self._workers.get((simulator, threads))
            if worker is not None and not worker.alive:
                worker.close()
                worker = None
            if worker is None:
                self._workers[simulator, threads] = Worker(python, simulator, threads, self._log)
        return [self._workers[simulator, threads] for simulator in self._pythons]
