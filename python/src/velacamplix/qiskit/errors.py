"""What cannot be converted."""

from __future__ import annotations

from ..basics.conversion import ConversionError

__all__ = ["NotConverted"]


class NotConverted(ConversionError):
    """Something that the other side cannot say.

    Attributes
    ----------
    reason : str
    instruction : str or None
        What it is about, for example ``"'store' on bits 0"``; None if that is no instruction.
    position : int or None
        Its place among the instructions of the circuit; of something inside a decision or loop that of the outermost.

    >>> print(NotConverted("a circuit has no classical variables", "'store'", 3))
    instruction 3, 'store': a circuit has no classical variables
    """
