"""What cannot be converted from or to another package."""

from __future__ import annotations

from typing import Self

__all__ = ["ConversionError"]


class ConversionError(ValueError):
    """Something that the other side cannot say. Every package has a `NotConverted` of its own, which inherits it.

    `position` is a place among what `counted` names.
    """

    def __init__(
        self, reason: str, instruction: str | None = None, position: int | None = None, counted: str = "instruction"
    ) -> None:
        super().__init__(reason, instruction, position, counted)  # what a pickle makes it of
        self.reason, self.instruction, self.position, self._counted = reason, instruction, position, counted

    @classmethod
    def at(cls, error: Exception, instruction: str, position: int | None, counted: str = "instruction") -> Self:
        """Return what went wrong, with the place at which it did.

        >>> print(ConversionError.at(ValueError("angle must be finite"), "RX on qubit 0", 2))
        instruction 2, RX on qubit 0: angle must be finite
        """
        reason = error.reason if isinstance(error, ConversionError) else str(error)
        return cls(reason, instruction, position, counted)

    def __str__(self) -> str:
        told = [] if self.position is None else [f"{self._counted} {self.position}"]
        if self.instruction is not None:
            told.append(self.instruction)
        return f"{', '.join(told)}: {self.reason}" if told else self.reason
