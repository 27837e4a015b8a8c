"""What cannot be converted or computed."""

from __future__ import annotations

from pennylane.exceptions import DeviceError

from ..basics.conversion import ConversionError

__all__ = ["NotConverted"]

_Base: type[Exception] = DeviceError


class NotConverted(ConversionError, _Base):  # type: ignore[misc, valid-type]
    """Something that the other side cannot say. It is a ``pennylane.DeviceError`` and a ``ValueError``.

    Attributes
    ----------
    reason : str
    instruction : str or None
        What it is about, for example ``"QubitUnitary(wires=[0])"``; None if that is no instruction.
    position : int or None
        Its place among the instructions of the circuit or the operations of the tape.

    >>> print(NotConverted("a circuit has no postselection", "MidMeasureMP(wires=[0])", 3))
    instruction 3, MidMeasureMP(wires=[0]): a circuit has no postselection
    """
