"""What cannot be converted."""

from __future__ import annotations

__all__ = ["NotConverted"]


class NotConverted(ValueError):
    """Something that the other side cannot say.

    Attributes
    ----------
    reason : str
    operation : str or None
        What it is about, for example ``"measure on q(0)"``; None if that is no operation.
    place : int or None
        Of an operation of Cirq's the number of its moment, of an instruction its number; of something inside a circuit
        operation or a decision that of the outermost.

    >>> print(NotConverted("a circuit has no qudits", "X on q(0) (d=3)", 2))
    2, X on q(0) (d=3): a circuit has no qudits
    """

    def __init__(self, reason: str, operation: str | None = None, place: int | None = None) -> None:
        super().__init__(reason, operation, place)  # what a pickle makes it of
        self.reason, self.operation, self.place = reason, operation, place

    def __str__(self) -> str:
        told = [str(part) for part in (self.place, self.operation) if part is not None]
        return f"{', '.join(told)}: {self.reason}" if told else self.reason
