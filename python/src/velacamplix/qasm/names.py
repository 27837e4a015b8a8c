"""Names that nothing else has."""

from __future__ import annotations

from collections import defaultdict
from collections.abc import Iterable, Iterator
from itertools import count


class Names:
    """Gives names like those that are wanted: ``b``, ``b_2``, ``b_3``.

    Numbers go on where they were, so that the last of a hundred thousand is found as soon as the first.
    """

    def __init__(self, taken: Iterable[str]) -> None:
        self._taken = set(taken)
        self._numbers = defaultdict[str, Iterator[int]](lambda: count(2))

    def free(self, wanted: str) -> str:
        """Return a name that is not taken, and take it."""
        name = wanted
        while name in self._taken:
            name = f"{wanted}_{next(self._numbers[wanted])}"
        self._taken.add(name)
        return name
