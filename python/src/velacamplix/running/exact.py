"""Runs a circuit with noise exactly, on density matrices."""

from __future__ import annotations

import secrets
from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np

from ..circuit.circuit import Circuit
from ..machine import memory
from ..programs.compile import described
from ..programs.mixture import PreparedMixture
from ..programs.prepare import prepared
from ..programs.progress import metered
from ..results import shot_rows
from ..states.densitymatrix import DensityMatrix
from ..states.mixing import EXACT, MixedBranch, Mixing, all_readings
from . import observing
from .saved import MixedSaver, Saved
from .single import Request

_DRAWN_AT_ONCE = 2**20  # shots


class Exact(NamedTuple):
    """What an exact run tells.

    Attributes
    ----------
    density : DensityMatrix
        Of the active qubits, after all instructions, measurements included: the mean over all outcomes.
    active_qubits : tuple of int
        All others are 0.
    n_bits : int
        Of an outcome: the circuit's classical bits, or all its qubits if nothing is measured.
    outcomes : numpy.ndarray, shape (k, words)
        Those that are possible, in increasing order, as rows of `shot_rows`; bit 0 is the leftmost.
    probabilities : numpy.ndarray, shape (k,)
        Of the outcomes, misreadings included; they add up to 1.
    rows : numpy.ndarray, shape (shots, words), or None
        The shots.
    seed : int or None
        What they were drawn with.
    expectation_values : float, complex, numpy.ndarray or None
        As the observables came.
    saved : Saved
    """

    density: DensityMatrix
    active_qubits: tuple[int, ...]
    n_bits: int
    outcomes: np.ndarray
    probabilities: np.ndarray
    rows: np.ndarray | None
    seed: int | None
    expectation_values: Any
    saved: Saved


def run_exact(circuit: Circuit, request: Request, lost: observing.Lost) -> Exact:
    """Run a circuit with channels in it on a density matrix.

    Shot s has a random number of its own that follows from the seed and ``first_shot + s`` alone; what there is to warn of
    comes into `lost`.

    Raises
    ------
    TypeError, ValueError, MemoryError, RuntimeError
        As for `DensityMatrix.run`; but the circuit may save something.
    """
    shots, precision, observed, start = request.shots, request.precision, request.observed, request.start
    number = secrets.randbits(32) if request.seed is None and shots is not None else request.seed

    def make() -> PreparedMixture:
        return PreparedMixture(circuit, None, start.nonzero, precision, keeps_bits=True)

    with prepared(circuit, ("exact", start.nonzero, precision), make) as found:
        assert isinstance(found, PreparedMixture)
        segments = found.segments
        active = segments.active
        n_bits = circuit.n_clbits if segments.has_measurement else circuit.n_qubits
        if shots is not None:
            memory.require_bytes((8 * shot_rows.words_for(n_bits) + 16) * shots, f"shots={shots} of {n_bits} bits")
        rho = DensityMatrix._another(len(active), precision, request.threads, is_run_next=True)
        start.fill(rho, active)
        with metered(request.progress, sum(map(len, found.programs)), "gates") as meter:
            saver = MixedSaver(segments, circuit.n_qubits, precision, lost)
            mixing = Mixing(found, meter, lambda step: described(step, circuit), saver.keep_mixed)
            branches = mixing.branches(rho)
            outcomes, probabilities = _outcomes(branches, found, n_bits)
            density = mixing.total(branches)
        assert isinstance(density, DensityMatrix)
        values = None
        if observed is not None:
            measured = frozenset(mixing.measured)
            on_active = observed.on(active, frozenset())
            values = observed.shaped(np.array([density.expectation(each) for each in on_active], dtype=np.complex128))
            lost.add(None, observed.lost(active, [measured]))
    rows = None
    if shots is not None and number is not None:
        rows = _drawn(outcomes, probabilities, number, request.first_shot or 0, shots)
    number = None if rows is None else number
    return Exact(density, active, n_bits, outcomes, probabilities, rows, number, values, saver.saved())


def _outcomes(branches: Sequence[MixedBranch], found: PreparedMixture, n_bits: int) -> tuple[np.ndarray, np.ndarray]:
    """Return the outcomes that are possible, in increasing order, and their probabilities, which add up to 1."""
    segments, words = found.segments, shot_rows.words_for(n_bits)
    place = segments.place
    rows, shares = [], []
    for branch in branches:
        if segments.has_measurement:
            readings, known = branch.readings, branch.bits
        else:
            readings, known = {qubit: (qubit, EXACT) for qubit in segments.active}, 0
        bits = sorted(readings)
        memory.require_bytes((16 + 16 * words) << len(bits), f"the probabilities of {len(bits)} bits")
        qubits = sorted({qubit for qubit, _ in readings.values() if qubit in place})
        marginal = branch.rho._marginal([place[qubit] for qubit in qubits])
        reads = [
            (qubits.index(qubit) if qubit in place else None, flips) for qubit, flips in map(readings.__getitem__, bits)
        ]
        found_shares = np.maximum(all_readings(marginal, reads).reshape(-1), 0)
        column = {bit: i for i, bit in enumerate(bits)}
        sources = [(True, column[bit]) if bit in column else (False, known >> bit & 1) for bit in range(n_bits)]
        possible = np.flatnonzero(found_shares)
        made = np.empty((len(possible), words), dtype=np.uint64)
        shot_rows.assemble(made, sources, possible.astype(np.uint64), len(bits))
        rows.append(made)
        shares.append(found_shares[possible])
    outcomes, where = np.unique(np.concatenate(rows), axis=0, return_inverse=True)
    total = np.bincount(where.reshape(-1), weights=np.concatenate(shares), minlength=len(outcomes))
    return outcomes, total / total.sum()


def _drawn(outcomes: np.ndarray, probabilities: np.ndarray, seed: int, first: int, count: int) -> np.ndarray:
    """Return the shots number `first` and the following."""
    ends = np.cumsum(probabilities)
    drawn = np.empty((count, outcomes.shape[1]), dtype=outcomes.dtype)
    # Signals are heard between two pieces.
    for start in range(0, count, _DRAWN_AT_ONCE):
        piece = drawn[start : start + _DRAWN_AT_ONCE]
        numbers = keyed_numbers(seed, first + start, len(piece))
        places = np.searchsorted(ends, numbers * ends[-1], side="right")
        piece[:] = outcomes[np.minimum(places, len(outcomes) - 1)]
    return drawn


def keyed_numbers(seed: int, first: int, count: int) -> np.ndarray:
    """Return a random number from 0 to 1 for each shot, which follows from the seed and the number of the shot.

    >>> bool((keyed_numbers(3, 5, 4) == keyed_numbers(3, 0, 9)[5:]).all())
    True
    """
    # A step of this counter gives four numbers.
    generator = np.random.Generator(np.random.Philox(key=seed, counter=first // 4))
    numbers: np.ndarray = generator.random(first % 4 + count)[first % 4 :]
    return numbers
