"""Exact runs of noisy circuits, with all that `run` does not tell: every outcome and its probability."""

from velacamplix.running import exact, observing
from velacamplix.running.initial import Start
from velacamplix.running.single import Request


def run_exact(circuit, shots=None, seed=None, threads=2, observed=None, start=None, first_shot=None, lost=None):
    start = start or Start(None, circuit.n_qubits, None)
    request = Request(shots, seed, threads, "double", observed, start, None, False, True, "exact", first_shot)
    return exact.run_exact(circuit, request, observing.Lost() if lost is None else lost)
