"""The comparison as a picture: one line per case, one mark per simulator, time on a logarithmic axis."""

from __future__ import annotations

from pathlib import Path
from typing import Any, Dict, List

import cases
from figures import FUSED, ORDER, OURS, Figures, of_results, present, table_of
from report import time_text

# Told apart by shape as well as by colour; colours from the palette of Okabe and Ito.
MARKS = {
    OURS: ("o", "#0072b2"),
    FUSED: ("*", "#0072b2"),
    "Qiskit Aer": ("s", "#d55e00"),
    "Qulacs": ("^", "#009e73"),
    "qsim (Cirq)": ("D", "#cc79a7"),
    "PennyLane Lightning": ("v", "#e69f00"),
}
assert set(MARKS) == set(ORDER)


def draw(results: Dict[str, Any], path: Path) -> None:
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot
    from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter

    figures = of_results(results)
    n, threads = max(cell.n for cell in figures), max(cell.threads for cell in figures)
    precisions = list(dict.fromkeys(cell.precision for cell in figures))
    rows = list(dict.fromkeys(cell.case for cell in figures))
    figure, axes = pyplot.subplots(
        1,
        len(precisions),
        sharex=True,
        sharey=True,
        squeeze=False,
        figsize=(1.8 + 4.9 * len(precisions), 1.9 + 0.55 * len(rows)),
    )
    for axis, precision in zip(axes[0], precisions):
        _panel(axis, table_of(figures, n, precision, threads), rows)
        axis.set_title(f"{precision} precision", fontsize=11)
        axis.set_xscale("log")
        axis.xaxis.set_major_locator(LogLocator(subs=(1.0,)))
        axis.xaxis.set_major_formatter(
            FuncFormatter(lambda value, _: time_text(value).replace(".00", "").replace(".0 ", " "))
        )
        axis.xaxis.set_minor_formatter(NullFormatter())
        axis.grid(axis="x", which="major", color="#dddddd", zorder=0)
    axes[0][0].set_yticks(range(len(rows)), [cases.CASES[case].title for case in rows])
    axes[0][0].invert_yaxis()
    marks = {label: handle for axis in axes[0] for handle, label in zip(*axis.get_legend_handles_labels())}
    names = [name for name in present(figures) if name in marks]
    figure.legend(
        [marks[name] for name in names], names, loc="lower center", ncols=len(names), frameon=False, fontsize=10
    )
    figure.suptitle(f"n = {n}, {threads} thread{'s' if threads > 1 else ''}: time, less is better", fontsize=12)
    figure.tight_layout(rect=(0, 0.06, 1, 1))
    path.parent.mkdir(parents=True, exist_ok=True)
    figure.savefig(path, dpi=130)
    pyplot.close(figure)


def _panel(axis: Any, cells: List[Figures], rows: List[str]) -> None:
    for cell in cells:
        times = [best.seconds for best in cell.best.values()]
        if times:
            axis.plot([min(times), max(times)], [rows.index(cell.case)] * 2, color="#bbbbbb", linewidth=1, zorder=1)
    names = present(cells)
    for place, name in enumerate(names):
        marker, colour = MARKS[name]
        # Each simulator a little lower than the one before, so that marks of equal times do not hide each other.
        lower = 0.12 * (place - (len(names) - 1) / 2)
        measured = [(cell.best[name].seconds, rows.index(cell.case) + lower) for cell in cells if name in cell.best]
        axis.scatter(
            [seconds for seconds, _ in measured],
            [row for _, row in measured],
            marker=marker,
            s=130 if marker == "*" else 60,
            color=colour,
            edgecolor="white",
            linewidth=0.6,
            zorder=3 if name in (OURS, FUSED) else 2,
            label=name,
        )
