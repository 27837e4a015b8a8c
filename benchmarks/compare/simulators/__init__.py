"""One module per simulator: how it is given a task, in each of its documented settings. Imported only by workers.

Each module offers

    versions()                      a dictionary from names to texts
    build()                         how it was built, in words; peers only
    precisions                      those it computes in
    settings(kind, precision, n)    names of ways to run, the plainest first
    prepare(task, setting)          the task ready to be timed; raises NotOffered when the simulator lacks it

so that everything a circuit needs before it can run (building, transpiling, optimising, compiling) is in `prepare`.
"""

from __future__ import annotations

import importlib
from typing import Any, Callable, List, NamedTuple, Optional

import cases

NAMES = {
    "velacamplix": "velacamplix",
    "aer": "Qiskit Aer",
    "qulacs": "Qulacs",
    "qsim": "qsim (Cirq)",
    "lightning": "PennyLane Lightning",
    "qulacs-native": "Qulacs, native",
}
# The same programs as another key's, compiled for this processor, in an environment of their own.
NATIVE = [key for key in NAMES if key.endswith("-native")]


class NotOffered(Exception):
    """The simulator has no call for this."""


class Task(NamedTuple):
    case: str
    n: int
    precision: str  # "double" or "single"
    threads: int
    whole_state: bool = False  # instead of some amplitudes; not for timing

    @property
    def kind(self) -> str:
        return "state" if self.whole_state else cases.CASES[self.case].kind

    @property
    def observables(self) -> List[cases.PauliTerm]:
        return cases.observables(self.n, cases.CASES[self.case].observables)

    @property
    def terms(self) -> List[cases.PauliTerm]:
        """The Pauli sum whose expectation value is asked for."""
        return cases.observables(self.n, 2 * self.n) if self.kind == "step" else cases.pauli_terms(self.n)

    @property
    def gates(self) -> List[cases.Gate]:
        return cases.CASES[self.case].gates(self.n)


class Prepared(NamedTuple):
    """`call()` is timed and does all the work, from memory for the state on. `answer(result)` is what can be compared:
    an array of amplitudes, of outcome numbers (bit q is qubit q) with their counts, of probabilities, of derivatives (a
    row for each observable), or a number.
    `own_seconds(result)` is the simulator's own clock where it leaves out conversions that `call` cannot."""

    call: Callable[[], Any]
    answer: Callable[[Any], Any]
    own_seconds: Optional[Callable[[Any], float]] = None


def module(key: str) -> Any:
    if key not in NAMES:
        raise ValueError(f"simulator must be one of {', '.join(NAMES)}, got {key!r}")
    return importlib.import_module(f"simulators.{key.removesuffix('-native')}_worker")
