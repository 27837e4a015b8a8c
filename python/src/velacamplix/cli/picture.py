"""The picture of `velacamplix run --plot`."""

from __future__ import annotations

import os
from pathlib import Path

from ..basics import checks, extras
from ..plots import bars
from .results import Results, bars_of

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


def save(path: str, name: str, results: Results) -> None:
    """Draw counts or probabilities into a file, whose ending tells the format."""
    drawn = bars_of(results)
    # A figure of its own, without the windows that pyplot might open.
    figure = extras.imported("matplotlib.figure", _PURPOSE).Figure(
        figsize=bars.figure_size(drawn), layout="constrained"
    )
    ax = figure.subplots()
    bars.draw(ax, drawn)
    ax.set_xlabel(f"outcomes of {results.whole}, {results.labels[0]} left" if results.labels else "outcome")
    ax.set_ylabel("probability" if results.counts is None else f"counts of {results.counts.shots} shots")
    # A dollar sign would begin a formula.
    ax.set_title(name.replace("$", r"\$"), fontsize=10)
    figure.savefig(path, dpi=120)
