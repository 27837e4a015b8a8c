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
    held : numpy.ndarray, optional
        Blocks that the state is in, in its order; as many of each part. By default it is still to be made, of zeros.

    Attributes
    ----------
    parts, blocks : int
        Of the state, and of a part.
    block_amplitudes, block_bytes : int
        A block's; the bytes are set by who knows their number.
    """

    def __init__(self, plan: Any, rank_bits: int, held: np.ndarray | None = None) -> None:
        self._plan, self._held = plan, held
        self.parts = 1 << rank_bits
        # A stage exchanges all blocks of a part but one, each with another part.
        of_held = 1 if held is None else len(held) // self.parts
        self.blocks = max([of_held, *[len(plan.transfers(stage, 0)) + 1 for stage in range(len(plan))]])
        self.block_amplitudes = (1 << plan.part_qubits()) // self.blocks
        self.block_bytes = 0

    def jobs(self) -> Iterator[Job]:
        """Iterate over what is to be done; returns, for each part of the state in its order, the blocks it ends in."""
        count = self.parts * self.blocks
        of = np.arange(count) if self._held is None else finer(self._held, count // len(self._held))
        free = np.setdiff1d(np.arange(count + self.blocks), of)
        of = of.reshape(self.parts, self.blocks)
        for stage in range(len(self._plan)):
            of = self._exchanged(of, stage)
            for rank in range(self.parts):
                source = of[rank].copy()
                of[rank] = free
                yield Job(stage, rank, source, free)
                free = np.sort(source)
        self.final = of[np.argsort([self._plan.part_of(rank) for rank in range(self.parts)])].reshape(-1)

    @property
    def is_begun(self) -> bool:
        """Whether the state is there, and to be read in the first stage too."""
        return self._held is not None

    def _exchanged(self, of: np.ndarray, stage: int) -> np.ndarray:
        """Return the blocks of every part after what travels before a stage.

        Part r exchanges with r ^ d for a few bits' numbers d, in turn: the piece that bears the other's number for its own
        that bears mine. What the core tells of part 0 tells these bits and part 0's number.
        """
        told = self._plan.transfers(stage, 0)
        if not told:
            return of
        numbers = {partner: number for number, (partner, _, _) in enumerate(told, 1)}
        incoming = max(numbers)  # all of the bits
        number_of = np.zeros(incoming + 1, dtype=np.int64)
        number_of[list(numbers)] = list(numbers.values())
        _, first, size = told[0]
        ranks = np.arange(self.parts)
        mine = number_of[ranks & incoming] ^ (first // size ^ 1)
        pieces = of.reshape(self.parts, len(told) + 1, -1)
        after = pieces.copy()
        for partner, number in numbers.items():
            after[ranks, mine ^ number] = pieces[ranks ^ partner, mine]
        return after.reshape(of.shape)


def finer(blocks: np.ndarray, times: int) -> np.ndarray:
    """Return the same blocks cut into so many each.

    >>> finer(np.array([4, 0]), 2).tolist()
    [8, 9, 0, 1]
    """
    return (blocks[:, np.newaxis] * times + np.arange(times)).reshape(-1)


def runs(blocks: np.ndarray) -> Iterator[tuple[int, int, int]]:
    """Iterate over neighbours in a list of blocks: the place in the list, the first block, and how many.

    >>> list(runs(np.array([4, 5, 6, 1, 2, 9])))
    [(0, 4, 3), (3, 1, 2), (5, 9, 1)]
    """
    ends = [*(np.flatnonzero(np.diff(blocks) != 1) + 1).tolist(), len(blocks)]
    for start, stop in zip([0, *ends], ends):
        yield start, int(blocks[start]), stop - start
