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
        What it is about, an operation of Cirq's or an instruction, for example ``"measure on q(0)"``; None if it is neither.
    position : int or None
        Of an operation of Cirq's the number of its moment, of an instruction its place in the circuit; of something inside
        a circuit operation or a decision that of the outermost.

    >>> print(NotConverted("a circuit has no qudits", "X on q(0) (d=3)", 2, "moment"))
    moment 2, X on q(0) (d=3): a circuit has no qudits
    """
