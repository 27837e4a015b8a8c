"""What is drawn for a shot, and how its outcome is put together from that."""

from __future__ import annotations

from collections.abc import Mapping

import numpy as np

from ..programs.segments import Segments
from ..results import shot_rows
from ..states.statevector import StateVector


class Readout:
    """How the outcomes of a circuit follow from those of its state.

    Parameters
    ----------
    segments : Segments
    readings : mapping of int to int
        The qubit that each classical bit is read from, as far as it is not known. What is not measured in the circuit is
        not asked: of one without measurements all qubits are read.
    known : int
        The other classical bits.
    n_bits : int
        Of an outcome.

    Attributes
    ----------
    qubits : list of int
        Of the state, to be drawn; the first is the most significant bit of what is drawn.
    """

    def __init__(self, segments: Segments, readings: Mapping[int, int], known: int, n_bits: int) -> None:
        place = segments.place
        if not segments.has_measurement:
            readings, known = {qubit: qubit for qubit in segments.active}, 0
        self._words = shot_rows.words_for(n_bits)
        self._sources: list[shot_rows.Source] | None = None
        if 0 < n_bits <= 64 and len(set(readings.values())) == n_bits:
            # Every bit is read from a qubit of its own: what is drawn is the outcome.
            self.qubits = [place[readings[bit]] for bit in range(n_bits)]
            return
        # A qubit may be read into several bits, but is drawn once.
        column: dict[int, int] = {}
        self._sources = []
        for bit in range(n_bits):
            if bit in readings:
                self._sources.append((True, column.setdefault(readings[bit], len(column))))
            else:
                self._sources.append((False, known >> bit & 1))
        self.qubits = [place[qubit] for qubit in column]

    def draw(self, state: StateVector, rows: np.ndarray) -> None:
        """Draw the outcomes of some shots, one row of words each."""
        for start, stop in state._pieces(len(rows)):
            if self._sources is None:
                state._draw(rows[start:stop, 0], self.qubits)
                continue
            sampled: np.ndarray = np.zeros(stop - start, dtype=np.uint64)
            state._draw(sampled, self.qubits)
            shot_rows.assemble(rows[start:stop], self._sources, sampled, len(self.qubits))

    @property
    def bytes_per_shot(self) -> int:
        """Of what `rows` makes."""
        return 0 if self._sources is None else 8 * self._words

    def rows(self, sampled: np.ndarray) -> np.ndarray:
        """Return the outcomes, one row of words for each number that was drawn of `qubits`."""
        if self._sources is None:
            return sampled.reshape(-1, 1)
        rows = np.empty((len(sampled), self._words), dtype=np.uint64)
        shot_rows.assemble(rows, self._sources, sampled, len(self.qubits))
        return rows
