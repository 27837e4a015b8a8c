"""Runs of a backend, each in a thread of its own."""

from __future__ import annotations

import threading
import uuid
from collections.abc import Callable
from typing import Any

from qiskit.providers import JobError, JobStatus, JobTimeoutError, JobV1

_Job: Any = JobV1

# What a thread calls now and then; it raises when the job shall end.
Hear = Callable[[Any], None]


class Stopped(BaseException):
    """Ends the run of a job that was cancelled; nothing that looks after errors takes it for one."""


class VelacamplixJob(_Job):  # type: ignore[misc]
    """What `VelacamplixBackend.run` returns: circuits that are run in a thread.

    Python waits for that thread before it ends, so that nothing is lost.

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
        self._work, self._thread = work, threading.Thread(target=self._act, name="velacamplix job")
        self._is_stopping = self._is_begun = False
        self._result: Any = None
        self._error: BaseException | None = None

    def submit(self) -> None:
        """Begin. `VelacamplixBackend.run` has done so.

        Raises
        ------
        qiskit.providers.JobError
            If it has begun already.
        """
        if self._is_begun:
            raise JobError("the job has been submitted already")
        self._is_begun = True
        self._thread.start()

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
            If the job was cancelled.
        """
        try:
            self._thread.join(timeout)
        except KeyboardInterrupt:
            self.cancel()
            raise
        if self._thread.is_alive():
            raise JobTimeoutError(f"the job has not ended within timeout={timeout} seconds, and goes on")
        if isinstance(self._error, Stopped):
            raise JobError("the job was cancelled, and has no result")
        if self._error is not None:
            raise self._error
        return self._result

    def cancel(self) -> bool:
        """Stop the run, between two passes over a state; return whether there was anything to stop.

        At most a tenth of a second or a pass later the job has ended, with the status ``CANCELLED``.
        """
        is_running = self._thread.is_alive()
        if is_running:
            self._is_stopping = True
        return is_running

    def status(self) -> Any:
        """Return the ``JobStatus``: ``RUNNING``, then ``DONE``, ``CANCELLED``, or ``ERROR`` if no circuit could be run."""
        if not self._is_begun:
            return JobStatus.INITIALIZING
        if self._thread.is_alive():
            return JobStatus.RUNNING
        if isinstance(self._error, Stopped):
            return JobStatus.CANCELLED
        is_done = self._error is None and (self._result.success or any([one.success for one in self._result.results]))
        return JobStatus.DONE if is_done else JobStatus.ERROR

    def _hear(self, _: Any) -> None:
        if self._is_stopping:
            raise Stopped

    def _act(self) -> None:
        try:
            self._result = self._work(self._job_id, self._hear)
        except BaseException as error:  # told by `result`
            self._error = error
