"""The comparison as a picture: how long velacamplix takes over the fastest peer, a row for each case, a mark for each size."""

from __future__ import annotations

from pathlib import Path
from typing import Any, Dict

import cases
from figures import FUSED, OURS, Figures, of_results

# Colours from the palette of Okabe and Ito; exact runs above, fused ones below the line of their case.
WAYS = {OURS: ("exact", "#0072b2", -0.17), FUSED: ("with fusion", "#e69f00", 0.17)}


def draw(results: Dict[str, Any], path: Path) -> None:
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot
    from matplotlib.lines import Line2D
    from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter

    figures = of_results(results)
    threads = max(cell.threads for cell in figures)
    figures = [cell for cell in figures if cell.threads == threads]
    compared = [cell for cell in figures if cell.times_faster() is not None]
    precisions = list(dict.fromkeys(cell.precision for cell in figures))
    rows = list(dict.fromkeys(cell.case for cell in compared or figures))
    ratios = [ratio for cell in compared for ratio in map(cell.times_faster, WAYS) if ratio is not None]
    steps = (1.0, 2.0, 5.0) if max(ratios, default=1) < 200 * min(ratios, default=1) else (1.0,)
    # The larger the state, the larger its mark.
    sizes = {n: 24 + 26 * place for place, n in enumerate(sorted({cell.n for cell in figures}))}
    figure, axes = pyplot.subplots(
        1,
        len(precisions),
        sharex=True,
        sharey=True,
        squeeze=False,
        figsize=(2.4 + 3.9 * len(precisions), 1.7 + 0.42 * len(rows)),
        layout="constrained",
    )
    for axis, precision in zip(axes[0], precisions):
        axis.axvline(1, color="black", linewidth=1.2, zorder=1)
        for place in range(len(rows) - 1):
            axis.axhline(place + 0.5, color="#eeeeee", linewidth=0.8, zorder=0)
        for cell in compared:
            if cell.precision == precision:
                _marks(axis, cell, rows.index(cell.case), sizes[cell.n])
        axis.set_title(f"{precision} precision", fontsize=11)
        axis.set_xscale("log")
        axis.xaxis.set_major_locator(LogLocator(subs=steps))
        axis.xaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:g}"))
        axis.xaxis.set_minor_formatter(NullFormatter())
        axis.grid(axis="x", which="major", color="#dddddd", linewidth=0.8, zorder=0)
        axis.tick_params(axis="y", length=0)
        axis.set_xlabel("time over that of the fastest peer")
    axes[0][0].set_yticks(range(len(rows)), [cases.CASES[case].title for case in rows])
    axes[0][0].set_ylim(len(rows) - 0.5, -0.5)
    marks = [
        Line2D([], [], marker="o", linestyle="", color=colour, markersize=8, label=label)
        for label, colour, _ in WAYS.values()
    ]
    marks += [
        Line2D([], [], marker="o", linestyle="", color="#999999", markersize=area**0.5, label=f"n = {n}")
        for n, area in sizes.items()
    ]
    figure.legend(handles=marks, loc="outside lower center", ncols=len(marks), frameon=False, fontsize=10)
    plural = "s" if threads > 1 else ""
    figure.suptitle(f"{threads} thread{plural}: left of the line velacamplix is ahead, right of it a peer", fontsize=12)
    path.parent.mkdir(parents=True, exist_ok=True)
    figure.savefig(path, dpi=130)
    pyplot.close(figure)


def _marks(axis: Any, cell: Figures, row: int, area: int) -> None:
    for way, (_, colour, lower) in WAYS.items():
        faster = cell.times_faster(way)
        if faster is not None:
            axis.scatter([1 / faster], [row + lower], s=area, color=colour, edgecolor="white", linewidth=0.6, zorder=2)
