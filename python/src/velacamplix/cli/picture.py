"""The picture of `velacamplix run --plot`."""

from __future__ import annotations

import os
from collections.abc import Sequence
from pathlib import Path

from ..basics import checks, extras
from ..basics.words import counted
from ..plots import bars
from ..running.result import Result

_PURPOSE = "--plot"


def require_writable(path: str) -> None:
    """Find out before a long run whether the picture can be written.

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    ValueError
        If the ending of the name is no format, or the folder is not there or not to be written to.
    """
    canvas = extras.imported("matplotlib.backends.backend_agg", _PURPOSE).FigureCanvasAgg
    formats = sorted(canvas.get_supported_filetypes())
    ending = Path(path).suffix[1:].lower()
    if ending not in formats:
        raise ValueError(f"expected a file name that ends in .{', .'.join(formats)}, got {checks.show(path)}")
    folder = Path(path).parent
    if not folder.is_dir():
        raise ValueError(f"there is no folder {str(folder)!r} for {checks.show(path)}")
    if Path(path).is_dir() or not os.access(path if Path(path).exists() else folder, os.W_OK):
        raise ValueError(f"{checks.show(path)} cannot be written to")


def save(path: str, result: Result, whole: str, labels: Sequence[str]) -> None:
    """Draw counts or probabilities into a file, whose ending tells the format.

    `whole` tells what the outcomes are of, `labels` the name of every character.
    """
    drawn = _bars_of(result)
    # A figure of its own, without the windows that pyplot might open.
    figure = extras.imported("matplotlib.figure", _PURPOSE).Figure(
        figsize=bars.figure_size(drawn), layout="constrained"
    )
    ax = figure.subplots()
    bars.draw(ax, drawn)
    ax.set_xlabel(f"outcomes of {whole}, {labels[0]} left" if labels else "outcome")
    ax.set_ylabel("probability" if result.n_shots is None else f"counts of {counted(result.n_shots, 'shot')}")
    figure.savefig(path, dpi=120)


def _bars_of(result: Result) -> bars.Bars:
    if result.n_shots is not None:
        counts = result.counts.marginal(result.measured_bits) if result.measured_bits else result.counts
        return bars.Bars.of([bars.Data(counts, counts.shots)])
    best = result.outcomes(bars.MOST_BARS + 1)
    has_more = len(best) > bars.MOST_BARS
    return bars.Bars.of([bars.Data(dict(best), 1.0, is_all=not has_more)])
