"""Many parameters under one name."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, overload

from ..basics import checks
from .expression import Parameter

__all__ = ["ParameterVector"]

MOST_ELEMENTS = 1_000_000


class ParameterVector(Sequence[Parameter]):
    """Parameters ``name[0]``, ``name[1]`` and so on; a sequence that never changes.

    Parameters
    ----------
    name : str
        Any text but the empty one.
    length : int
        From 0 to 1,000,000.

    Raises
    ------
    TypeError, ValueError
        If the name is no text, or empty, or the length no integer or outside its range.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> theta = ParameterVector("theta", 3)
    >>> circuit = Circuit(3).rx(theta, range(3)).rz(theta[0] / 2, 0)
    >>> circuit.parameters
    ('theta[0]', 'theta[1]', 'theta[2]')
    >>> print(circuit.bind({theta: [0.1, 0.2, 0.3]}))
    RX(0.1) 0
    RX(0.2) 1
    RX(0.3) 2
    RZ(0.05) 0
    """

    __slots__ = ("name", "_elements")

    def __init__(self, name: str, length: int) -> None:
        self.name = Parameter(name).name
        count = checks.integer(length, "length", minimum=0, maximum=MOST_ELEMENTS)
        self._elements = tuple([Parameter(f"{self.name}[{place}]") for place in range(count)])

    def __len__(self) -> int:
        return len(self._elements)

    @overload
    def __getitem__(self, place: int) -> Parameter: ...

    @overload
    def __getitem__(self, place: slice) -> tuple[Parameter, ...]: ...

    def __getitem__(self, place: int | slice) -> Parameter | tuple[Parameter, ...]:
        return self._elements[place]

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, ParameterVector):
            return NotImplemented
        return self.name == other.name and len(self) == len(other)

    def __hash__(self) -> int:
        return hash((self.name, len(self)))

    def __reduce__(self) -> tuple[Any, ...]:
        return (ParameterVector, (self.name, len(self)))

    def __repr__(self) -> str:
        return f"ParameterVector({self.name!r}, {len(self)})"

    def named(self, values: Any) -> list[tuple[str, Any]]:
        """Return the names of the elements with their values.

        Raises
        ------
        TypeError, ValueError
            If `values` is no sequence, or of another length.
        """
        listed = checks.sequence(values, f"values of {checks.show(self.name)}", of="numbers")
        if len(listed) != len(self):
            raise ValueError(
                f"values of {checks.show(self.name)} must be {len(self)}, one for each element, got {len(listed)}"
            )
        return [(element.name, value) for element, value in zip(self._elements, listed)]
