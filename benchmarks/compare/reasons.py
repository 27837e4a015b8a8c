"""Why a peer is ahead: what was measured of each lost cell, kept by hand. A cell without a reason is told as "not measured".

A reason is a sentence that someone has measured, with the figure that shows it where there is one; a guess is none.
"""

from __future__ import annotations

from typing import NamedTuple, Optional, Tuple

from figures import OURS, Figures


class Reason(NamedTuple):
    """Holds for cells of these cases, in runs of this way (the name of a column: OURS or FUSED)."""

    text: str
    way: str
    cases: Tuple[str, ...]
    precisions: Tuple[str, ...] = ("double", "single")
    qubits: range = range(1, 63)


ONE_BY_ONE = (
    "An exact run applies every gate by itself, since a product of gates rounds differently; the peer multiplies the gates of "
    "a pair of qubits beforehand, as `fusion=True` does."
)
# The first that holds is told.
REASONS: Tuple[Reason, ...] = (
    Reason(ONE_BY_ONE, OURS, ("heis", "rqc")),
    # Qulacs, native, n = 16: 8.9 ms gate by gate, 3.0 multiplied; velacamplix 4.2.
    Reason(ONE_BY_ONE, OURS, ("random",), ("double",)),
)


def of(cell: Figures, way: str) -> Optional[Reason]:
    """The reason for which a peer is ahead of this way in this cell, if one is known."""
    return next(
        (
            reason
            for reason in REASONS
            if reason.way == way
            and cell.case in reason.cases
            and cell.precision in reason.precisions
            and cell.n in reason.qubits
        ),
        None,
    )
