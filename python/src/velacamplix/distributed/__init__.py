"""A state in parts on many ranks of MPI, with the bits of one process."""

from .state import DistributedState

__all__ = ["DistributedState"]
