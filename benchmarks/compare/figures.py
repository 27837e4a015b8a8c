"""From what was measured to what is told: the best setting of each simulator in each cell, and who is faster."""

from __future__ import annotations

from collections import Counter
from statistics import median
from typing import Any, Dict, Iterable, List, NamedTuple, Optional

from simulators import NAMES

OURS, FUSED = "velacamplix", "velacamplix, fused"
PEERS = [name for key, name in NAMES.items() if key != "velacamplix"]
ORDER = [OURS, FUSED, *PEERS]


class Best(NamedTuple):
    seconds: float  # median
    runs: int
    setting: str


class Figures(NamedTuple):
    """A cell, with the best figure of each simulator that has one; keys are those of ORDER."""

    case: str
    n: int
    precision: str
    threads: int
    best: Dict[str, Best]
    not_offered: Dict[str, str]  # reasons
    problems: Dict[str, str]  # by simulator and setting: figures that were left out

    @property
    def fastest_peer(self) -> Optional[str]:
        peers = [name for name in self.best if name in PEERS]
        return min(peers, key=lambda name: self.best[name].seconds) if peers else None

    def times_faster(self, ours: str = OURS) -> Optional[float]:
        """The time of the fastest peer over ours."""
        peer = self.fastest_peer
        if peer is None or ours not in self.best:
            return None
        return self.best[peer].seconds / self.best[ours].seconds


def of_cell(record: Dict[str, Any]) -> Figures:
    figures = Figures(record["case"], record["n"], record["precision"], record["threads"], {}, {}, {})
    for entry in record["entries"]:
        name = FUSED if entry["setting"] == "fused" else NAMES[entry["simulator"]]
        if "not_offered" in entry:
            figures.not_offered[name] = entry["not_offered"]
        elif "problem" in entry:
            figures.problems[f"{name} ({entry['setting']})"] = entry["problem"]
        elif entry["seconds"]:
            found = Best(median(entry["seconds"]), len(entry["seconds"]), entry["setting"])
            if name not in figures.best or found.seconds < figures.best[name].seconds:
                figures.best[name] = found
    return figures


def of_results(results: Dict[str, Any]) -> List[Figures]:
    return [of_cell(record) for record in results["cells"]]


def table_of(figures: Iterable[Figures], n: int, precision: str, threads: int) -> List[Figures]:
    """The cells of one size, precision and number of threads, in the order measured."""
    return [cell for cell in figures if (cell.n, cell.precision, cell.threads) == (n, precision, threads)]


def present(figures: Iterable[Figures]) -> List[str]:
    """Simulators that have a figure somewhere, in the order of ORDER."""
    found = {name for cell in figures for name in cell.best}
    return [name for name in ORDER if name in found]


def lost(figures: Iterable[Figures], ours: str = OURS) -> List[Figures]:
    """Cells where a peer was faster than velacamplix in this way."""
    return [cell for cell in figures if (cell.times_faster(ours) or 1.0) < 1.0]


def fullest_size(figures: List[Figures]) -> int:
    """The number of qubits with most figures, of these the largest."""
    counts = Counter({cell.n: 0 for cell in figures})
    for cell in figures:
        counts[cell.n] += len(cell.best)
    return max(counts, key=lambda n: (counts[n], n))
