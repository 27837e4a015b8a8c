"""One cell of the comparison: a case at one size, precision and number of threads, measured in turns."""

from __future__ import annotations

import time
from statistics import median
from typing import Any, Dict, List, Optional

import agreement
import cases
from crew import Worker, WorkerFailed

OURS = "velacamplix"
# Threads that wait for work spin for a moment after a parallel region; the next simulator must not be disturbed.
PAUSE_SECONDS = 0.02
# A setting this much slower than the fastest of the same simulator cannot be its best: measured once.
HOPELESS = 1.5
# What takes longer is measured once.
LONG_SECONDS = 20.0
# A first run that takes so long counts: what it spends on filling caches and waking threads is a small part.
FIRST_COUNTS_SECONDS = 0.5
# States of so many qubits do not fit into the caches of most processors.
IN_MEMORY = 22


class Entry:
    """A simulator in one setting, and what was measured of it."""

    def __init__(self, worker: Worker, setting: str) -> None:
        self.worker, self.setting = worker, setting
        self.simulator = worker.simulator
        self.seconds: List[float] = []
        self.not_offered = ""
        self.problem = ""  # why its figures do not count
        self.answer: Optional[agreement.Answer] = None

    @property
    def counts(self) -> bool:
        return bool(self.seconds) and not self.problem

    def as_record(self) -> Dict[str, object]:
        seconds = [float(f"{value:.4g}") for value in self.seconds]
        record: Dict[str, object] = {"simulator": self.simulator, "setting": self.setting, "seconds": seconds}
        for key in ("not_offered", "problem"):
            if getattr(self, key):
                record[key] = getattr(self, key)
        return record


class Cell:
    def __init__(self, case: cases.Case, n: int, precision: str, threads: int) -> None:
        self.case, self.n, self.precision, self.threads = case, n, precision, threads
        self.entries: List[Entry] = []

    def __str__(self) -> str:
        threads = f"{self.threads} thread" + ("s" if self.threads > 1 else "")
        return f"{self.case.name}, n = {self.n}, {self.precision}, {threads}"

    def prepare(self, workers: List[Worker], skip: Dict[str, List[str]]) -> None:
        """Every setting of every worker but those of `skip`, which maps simulators to settings."""
        task = {"case": self.case.name, "n": self.n, "precision": self.precision, "threads": self.threads}
        for worker in workers:
            if self.precision not in worker.precisions:
                continue
            for setting in worker.settings(self.case.kind, self.precision, self.n):
                if setting in skip.get(worker.simulator, []):
                    continue
                entry = Entry(worker, setting)
                try:
                    entry.not_offered = worker.prepare(setting, task, setting) or ""
                except WorkerFailed as failure:
                    entry.problem = str(failure)
                self.entries.append(entry)

    def measure(self, repeats: int, seconds: float) -> None:
        """Up to `repeats` rounds; those after the first within `seconds`."""
        if self.n < IN_MEMORY:
            self._round(self._turns(), count_from=FIRST_COUNTS_SECONDS)
        self._round([entry for entry in self._turns() if not entry.seconds])
        end = time.monotonic() + seconds
        for _ in range(repeats - 1):
            if time.monotonic() + sum(min(entry.seconds) for entry in self._turns()) > end:
                break
            self._round(self._turns())
        self._compare()
        for worker in {entry.worker for entry in self.entries}:
            if worker.alive:
                worker.forget()

    def _round(self, turns: List[Entry], count_from: float = 0.0) -> None:
        for entry in turns:
            self._run(entry, count_from)

    def _turns(self) -> List[Entry]:
        """Ours, a peer in all its settings, ours, the next peer, ...; without those that need no further run."""
        ours = [entry for entry in self.entries if entry.simulator == OURS]
        peers = list(dict.fromkeys(entry.simulator for entry in self.entries if entry.simulator != OURS))
        turns: List[Entry] = []
        for peer in peers or [""]:
            turns += [*ours, *(entry for entry in self.entries if entry.simulator == peer)]
        return [entry for entry in turns if self._worth_while(entry)]

    def _run(self, entry: Entry, count_from: float) -> None:
        if entry.problem:  # found in this very round
            return
        time.sleep(PAUSE_SECONDS)
        try:
            measured = entry.worker.run(entry.setting, answer=entry.answer is None)
        except WorkerFailed as failure:
            entry.problem = str(failure)
            return
        if measured.answer is not None:
            entry.answer = measured.answer
        if measured.seconds >= count_from:
            entry.seconds.append(measured.seconds)

    def _worth_while(self, entry: Entry) -> bool:
        if entry.not_offered or entry.problem:
            return False
        if not entry.seconds or entry.simulator == OURS:
            return True
        best = min(min(other.seconds) for other in self.entries if other.simulator == entry.simulator and other.seconds)
        return min(entry.seconds) <= HOPELESS * best and min(entry.seconds) < LONG_SECONDS

    def _compare(self) -> None:
        """Against ours without fusion, which comes first; answers are large and not kept."""
        exact = next(
            (entry.answer for entry in self.entries if entry.simulator == OURS and entry.answer is not None), None
        )
        for entry in self.entries:
            if exact is not None and entry.answer is not None:
                entry.problem = agreement.difference(self.case.kind, self.precision, self.n, exact, entry.answer)
            entry.answer = None

    def failures(self) -> List[str]:
        """What no comparison may pass over: ours in trouble, or no peer that finds the same as ours.

        A peer that alone finds something else, such as a sum that single precision was too short for, has its figures
        left out and is named in the report.
        """
        found = [
            f"velacamplix ({entry.setting}): {entry.problem}"
            for entry in self.entries
            if entry.simulator == OURS and entry.problem
        ]
        peers = [entry for entry in self.entries if entry.simulator != OURS and not entry.not_offered]
        if peers and all(entry.problem for entry in peers):
            found.append(f"no peer agrees; {peers[0].simulator} ({peers[0].setting}): {peers[0].problem}")
        return found

    def as_record(self) -> Dict[str, object]:
        return {
            "case": self.case.name,
            "n": self.n,
            "precision": self.precision,
            "threads": self.threads,
            "entries": [entry.as_record() for entry in self.entries],
        }


def hopeless(record: Dict[str, Any]) -> Dict[str, List[str]]:
    """Settings of peers that were so much slower than another one that larger sizes need not try them, by simulator."""
    # Where states leave the caches the fastest setting may change; from there on it stays.
    factor = 2.0 if record["n"] < IN_MEMORY else 1.2
    times: Dict[str, Dict[str, float]] = {}
    for entry in record["entries"]:
        if entry["simulator"] != OURS and entry["seconds"] and not entry.get("problem"):
            times.setdefault(entry["simulator"], {})[entry["setting"]] = median(entry["seconds"])
    return {
        simulator: [setting for setting, seconds in settings.items() if seconds > factor * min(settings.values())]
        for simulator, settings in times.items()
    }
