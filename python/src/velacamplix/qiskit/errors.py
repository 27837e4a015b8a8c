"""What cannot be converted."""

from __future__ import annotations

__all__ = ["NotConverted"]


class NotConverted(ValueError):
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

    def __init__(self, reason: str, instruction: str | None = None, position: int | None = None) -> None:
        super().__init__(reason, instruction, position)  # what a pickle makes it of
        self.reason, self.instruction, self.position = reason, instruction, position

    def __str__(self) -> str:
        told = [] if self.position is None else [f"instruction {self.position}"]
        if self.instruction is not None:
            told.append(self.instruction)
        return f"{', '.join(told)}: {self.reason}" if told else self.reason
