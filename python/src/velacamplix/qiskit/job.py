"""Runs of a backend: in threads that wait for the next one, in the thread that wants the result and comes first, or at once."""

from __future__ import annotations

import os
import threading
import uuid
from collections.abc import Callable
from concurrent.futures import CancelledError, Future, ThreadPoolExecutor
from concurrent.futures import TimeoutError as FutureTimeout
from typing import Any

from qiskit.providers import JobError, JobStatus, JobTimeoutError, JobV1

_Job: Any = JobV1

# So many jobs run at a time; others wait.
_MOST_AT_ONCE = 64

# Of each process, because a forked one has no threads.
_threads: dict[int, ThreadPoolExecutor] = {}

# What a thread calls now and then; it raises when the job shall end.
Hear = Callable[[Any], None]


class Stopped(BaseException):
    """Ends the run of a job that was cancelled; nothing that looks after errors takes it for one."""


def _pool() -> ThreadPoolExecutor:
    own = os.getpid()
    if own not in _threads:
        _threads.clear()
        _threads[own] = ThreadPoolExecutor(_MOST_AT_ONCE, "velacamplix job")
    return _threads[own]


class VelacamplixJob(_Job):  # type: ignore[misc]
    """What `VelacamplixBackend.run` returns: circuits that are run in a thread, or have been, if they took no time.

    Python waits for that thread before it ends, so that nothing is lost. A forked process has jobs of its own alone.

    Examples
    --------
    >>> from qiskit import QuantumCircuit
    >>> from velacamplix.qiskit import VelacamplixBackend
    >>> circuit = QuantumCircuit(1)
    >>> circuit.measure_all()
    >>> job = VelacamplixBackend().run(circuit, shots=10)
    >>> job.result(timeout=60).get_counts(), job.status().name, job.cancel()
    ({'0': 10}, 'DONE', False)
    """

    def __init__(self, backend: Any, work: Callable[[str, Hear], Any]) -> None:
        super().__init__(backend, str(uuid.uuid4()))
        self._work, self._process = work, os.getpid()
        self._future: Future[Any] | None = None
        self._taken = threading.Lock()  # by the thread that does the work, and kept
        self._is_stopping = False

    def submit(self, is_quick: bool = False) -> None:
        """Begin. `VelacamplixBackend.run` has done so.

        Parameters
        ----------
        is_quick : bool
            Whether the calling thread does the work now, because to wake another takes longer.

        Raises
        ------
        qiskit.providers.JobError
            If it has begun already.
        """
        if self._future is not None:
            raise JobError("the job has been submitted already")
        self._future = Future()
        if is_quick:
            self._carry_out(self._future)
        else:
            _pool().submit(self._carry_out, self._future)

    def _carry_out(self, future: Future[Any]) -> None:
        """Do the work, unless another thread does, or it was cancelled before."""
        if not self._taken.acquire(blocking=False) or not future.set_running_or_notify_cancel():
            return
        try:
            found = self._work(self._job_id, self._hear)
        except KeyboardInterrupt:
            future.set_exception(Stopped())
            raise
        except BaseException as error:
            future.set_exception(error)
        else:
            future.set_result(found)

    def result(self, timeout: float | None = None) -> Any:
        """Return the result, waiting for it. Ctrl-C meanwhile cancels the job.

        Parameters
        ----------
        timeout : float, optional
            How many seconds to wait at most.

        Returns
        -------
        qiskit.result.Result
            Circuits that could not be run have ``success=False`` and tell why in their ``status``.

        Raises
        ------
        qiskit.providers.JobTimeoutError
            If it takes longer; the job goes on.
        qiskit.providers.JobError
            If the job was cancelled, has not been submitted, or is one of the process that this one was forked from.
        """
        future = self._future
        if future is None:
            raise JobError("the job has not been submitted")
        if self._process != os.getpid() and not future.done():
            raise JobError("the job runs in the process that this one was forked from, and has no result here")
        try:
            if timeout is None:  # at once, where no thread has taken it yet: to wake one takes longer than a small circuit
                self._carry_out(future)
            return future.result(timeout)
        except KeyboardInterrupt:
            self.cancel()
            raise
        except (Stopped, CancelledError):
            raise JobError("the job was cancelled, and has no result") from None
        except FutureTimeout:
            if future.done():  # the work's own
                raise
            raise JobTimeoutError(f"the job has not ended within timeout={timeout} seconds, and goes on") from None

    def cancel(self) -> bool:
        """Stop the run, between two passes over a state; return whether there was anything to stop.

        At most a tenth of a second or a pass later the job has ended, with the status ``CANCELLED``.
        """
        if self._future is None or self._future.done():
            return False
        self._is_stopping = True
        self._future.cancel()  # where it still waits
        return True

    def status(self) -> Any:
        """Return the ``JobStatus``: ``RUNNING``, then ``DONE``, ``CANCELLED``, or ``ERROR`` if no circuit could be run.

        ``QUEUED`` only where 64 other jobs run.
        """
        future = self._future
        if future is None:
            return JobStatus.INITIALIZING
        if not future.done():
            return JobStatus.RUNNING if future.running() else JobStatus.QUEUED
        if future.cancelled() or isinstance(future.exception(), Stopped):
            return JobStatus.CANCELLED
        if future.exception() is not None:
            return JobStatus.ERROR
        result = future.result()
        return JobStatus.DONE if result.success or any([one.success for one in result.results]) else JobStatus.ERROR

    def _hear(self, _: Any) -> None:
        if self._is_stopping:
            raise Stopped
