"""Where in a file the parts of a state lie, stage by stage."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any, NamedTuple

import numpy as np


class Job(NamedTuple):
    """A part in a stage: the blocks it is read from, in order, and those it is written to."""

    stage: int
    rank: int
    source: np.ndarray
    target: np.ndarray


class Layout:
    """Blocks of a file, which go from part to part without being moved.

    What parts exchange between two stages is only noted: a part is read from wherever its blocks lie. It is written to
    blocks that nobody needs, those of the part that was written before. So there is one part more than the state has, and
    whatever happens while a part is written, what it was made from is still there. All follows from the plan of stages.

    Parameters
    ----------
    plan : StagePlan of the core
    rank_bits : int
        There are 2**rank_bits parts.

    Attributes
    ----------
    parts, blocks : int
        Of the state, and of a part.
    block_amplitudes, block_bytes : int
        A block's; the bytes are set by who knows their number.
    """

    def __init__(self, plan: Any, rank_bits: int) -> None:
        self._plan = plan
        self.parts = 1 << rank_bits
        # A stage exchanges all blocks of a part but one, each with another part.
        self.blocks = max([len(plan.transfers(stage, 0)) + 1 for stage in range(len(plan))])
        self.block_amplitudes = (1 << plan.part_qubits()) // self.blocks
        self.block_bytes = 0

    def jobs(self) -> Iterator[Job]:
        """Iterate over what is to be done; returns, for each part of the state in its order, the blocks it ends in."""
        of = np.arange(self.parts * self.blocks).reshape(self.parts, self.blocks)
        free = np.arange(of.size, of.size + self.blocks)
        for stage in range(len(self._plan)):
            of = self._exchanged(of, stage)
            for rank in range(self.parts):
                source = of[rank].copy()
                of[rank] = free
                yield Job(stage, rank, source, free)
                free = np.sort(source)
        self.final = of[np.argsort([self._plan.part_of(rank) for rank in range(self.parts)])].reshape(-1)

    def _exchanged(self, of: np.ndarray, stage: int) -> np.ndarray:
        """Return the blocks of every part after what travels before a stage."""
        after = of.copy()
        given = [
            {partner: slice(first // self.block_amplitudes, (first + count) // self.block_amplitudes)
             for partner, first, count in self._plan.transfers(stage, rank)}
            for rank in range(self.parts)
        ]  # fmt: skip
        for rank, to in enumerate(given):
            for partner, mine in to.items():
                after[rank, mine] = of[partner, given[partner][rank]]
        return after


def runs(blocks: np.ndarray) -> Iterator[tuple[int, int, int]]:
    """Iterate over neighbours in a list of blocks: the place in the list, the first block, and how many.

    >>> list(runs(np.array([4, 5, 6, 1, 2, 9])))
    [(0, 4, 3), (3, 1, 2), (5, 9, 1)]
    """
    ends = [*(np.flatnonzero(np.diff(blocks) != 1) + 1).tolist(), len(blocks)]
    for start, stop in zip([0, *ends], ends):
        yield start, int(blocks[start]), stop - start
