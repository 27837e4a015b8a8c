"""A state in parts on many ranks of MPI, with the bits of one process."""

from .result import DistributedResult
from .state import DistributedState

__all__ = ["DistributedResult", "DistributedState"]
