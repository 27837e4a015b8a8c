"""The order in which a circuit's gates act."""

from __future__ import annotations

import re
from typing import Any

from ..basics import checks

#: In every part of a state are so many qubits at least, whatever number of ranks an order is planned for.
FEWEST_LOCAL = 6
_MOST_RANK_BITS = 63 - FEWEST_LOCAL
_EXPECTED = (
    'schedule must be "written" or "canonical:N", where 2**N is the number of ranks that the order of gates is planned for, '
    f"0 to {_MOST_RANK_BITS}"
)


def require_schedule(schedule: Any) -> int | None:
    """Return for how many bits of a rank's number the gates are ordered, or None for the order of the circuit.

    >>> require_schedule("written"), require_schedule("canonical:10")
    (None, 10)
    """
    if not isinstance(schedule, str):
        raise TypeError(f"{_EXPECTED}; got {checks.show(schedule)}")
    if schedule == "written":
        return None
    number = re.fullmatch("canonical:(0|[1-9][0-9]?)", schedule)
    if number is None or int(number[1]) > _MOST_RANK_BITS:
        hint = ': the number is part of the name, "canonical:10" is for up to 1024 ranks' if schedule == "canonical" else ""
        raise ValueError(f"{_EXPECTED}; got {checks.show(schedule)}{hint}")
    return int(number[1])
