"""What a run on many ranks gives back."""

from __future__ import annotations

from typing import Any, NoReturn

from ..running.result import Result
from .state import DistributedState


class DistributedResult(Result):
    """What `velacamplix.run` returns of a run on many ranks, on each of them: a `Result` whose state lies in parts.

    Shots, counts and expectation values are there on all ranks. What a `Result` asks its state is refused, except what
    `distributed_state` tells: RuntimeError names it.

    Attributes
    ----------
    distributed_state : DistributedState
        Of the active qubits alone: its qubit q is ``active_qubits[q]`` of the circuit.
    stages : int
        Between two of them ranks exchange amplitudes.
    parts_sent : float
        What every rank was to send by the plan; 1 is its whole part once.
    bytes_sent : int
        What this rank has sent.
    """

    def __init__(
        self, *, distributed_state: DistributedState, stages: int, parts_sent: float, bytes_sent: int, **others: Any
    ) -> None:
        super().__init__(**others)
        self.distributed_state = distributed_state
        self.stages, self.parts_sent, self.bytes_sent = stages, parts_sent, bytes_sent

    def __repr__(self) -> str:
        state = self.distributed_state
        return f"{super().__repr__()[:-1]}, rank {state.rank} of {state.ranks}>"

    def _final(self) -> NoReturn:
        raise RuntimeError(
            "this state lies in parts on many ranks: distributed_state has shots, probabilities and expectation values of it, "
            "its local_array the amplitudes of this rank, statevector() all of them where they fit, save(folder) writes them"
        )

    def __getstate__(self) -> NoReturn:
        raise TypeError("a result of a run on many ranks cannot be copied or pickled: each rank has a part; save() writes the state")
