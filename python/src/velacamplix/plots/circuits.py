"""Circuits painted by Matplotlib, in lines and letters and never in pixels."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from ..basics import checks, extras
from ..circuit.circuit import Circuit
from ..views import shapes
from ..views.shapes import Box, Frame, Line, Picture, Text

__all__ = ["plot_circuit"]

_INCH = 72.0  # points
# Of a picture whose width nobody has named; the most: larger pages there are not in a PDF file.
_WIDTH, _WIDEST = 6.4, 200.0
_SMALLEST = 1.5
# The palette of Okabe and Ito, so much of it over the background.
_FILLS = {"gate": ("#56b4e9", 0.25), "definition": ("#e69f00", 0.25), "other": ("#999999", 0.25)}
_FRAME = ("#009e73", 0.12)
_STROKES = {"wire": 0.7, "link": 0.9, "symbol": 0.9, "barrier": 0.9}


def plot_circuit(circuit: Circuit, width: float | None = None, *, idle: bool = True, ax: Any = None) -> Any:
    """Draw a circuit: a line for each qubit, time from left to right, as `Circuit.draw` does in text.

    Gates are boxes with their names and angles, controls dots, rings where they must read 0, X with controls a circle with
    a cross, exchanges crosses; gates of definitions are boxes of another colour. A box on several qubits tells which of
    them is which where that matters. A measurement tells the classical bit it writes, a gate with a condition the
    condition. What a decision or a loop holds stands in a frame behind it.

    Parameters
    ----------
    circuit : Circuit
    width : float, optional
        In inches, from 1.5 to 200; 3.4 is a journal's column, 7 its page. What is longer goes on below. The figure is as
        wide and high as the circuit needs; it is wider than `width` only where a single column is. By default 6.4.
    idle : bool
        False leaves out qubits that no instruction touches.
    ax : matplotlib.axes.Axes, optional
        Where to draw, instead of a new figure: the circuit is folded and, where it must be, made smaller so that it fits.

    Returns
    -------
    matplotlib.axes.Axes
        Letters have 8 points, those of conditions 6.5, where nothing had to be made smaller. Save the figure as it is
        (``ax.figure.savefig("circuit.pdf")``).

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, ValueError
        If `circuit` is none, `width` is out of range or given with `ax`, or there would be more than 500 lines. What
        would make the figure higher than 200 inches is left out, and the figure says so.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> ax = plot_circuit(Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1]), width=3.4)
    >>> [text.get_text() for text in ax.texts]
    ['H', 'c[0]', 'c[1]', 'q[0]', 'q[1]']
    """
    if not isinstance(circuit, Circuit):
        raise TypeError(f"circuit must be a Circuit, got {checks.show(circuit)}")
    all_qubits = checks.flag(idle, "idle")
    inches = _WIDTH if width is None else checks.real(width, "width")
    if not _SMALLEST <= inches <= _WIDEST:
        raise ValueError(f"width must be from {_SMALLEST} to {_WIDEST:g} inches, got {checks.show(width)}")

    def folded(points: float) -> Picture:
        return shapes.picture(circuit.n_qubits, circuit.registers, circuit.instructions, points, all_qubits)

    if ax is None:
        picture, scale = folded(_INCH * inches), 1.0
        pyplot = extras.imported("matplotlib.pyplot", "plot_circuit")
        figure = pyplot.figure(figsize=(picture.width / _INCH, picture.height / _INCH))
        ax = figure.add_axes((0, 0, 1, 1))
    elif width is not None:
        raise TypeError(f"width cannot be given with ax, whose own is taken, got {checks.show(width)}")
    else:
        picture, scale = _fitted(folded, ax)
    _paint(ax, picture, scale)
    return ax


def _fitted(folded: Callable[[float], Picture], ax: Any) -> tuple[Picture, float]:
    """Fold a circuit for axes, with letters as large as go in; return also by how much they are smaller."""
    if not hasattr(ax, "get_position"):
        raise TypeError(f"ax must be axes of matplotlib, got {checks.show(ax)}")
    inches, place = ax.figure.get_size_inches(), ax.get_position()
    width, height, scale = float(_INCH * inches[0] * place.width), float(_INCH * inches[1] * place.height), 1.0
    while True:
        picture = folded(width / scale)
        if picture.width * scale <= width and picture.height * scale <= height:
            return picture, scale
        scale *= 0.9


def _paint(ax: Any, picture: Picture, scale: float) -> None:
    collections, colours, patches, paths = [
        extras.imported(f"matplotlib.{name}", "plot_circuit") for name in ("collections", "colors", "patches", "path")
    ]
    ink = extras.imported("matplotlib", "plot_circuit").rcParams["text.color"]
    paper = ax.get_facecolor()
    ax.set_xlim(0, picture.width)
    ax.set_ylim(picture.height, 0)
    ax.set_aspect("equal")
    ax.set_axis_off()
    strokes: dict[str, list[Any]] = {kind: [] for kind in _STROKES}
    fills: dict[str, list[Any]] = {kind: [] for kind in _FILLS}
    frames: list[Any] = []
    dots, curves = [], []
    for shape in picture.shapes:
        if isinstance(shape, Line):
            strokes[shape.kind].append([(shape.x0, shape.y0), (shape.x1, shape.y1)])
        elif isinstance(shape, Frame):
            frames.append(patches.Rectangle((shape.left, shape.top), shape.width, shape.height))
        elif isinstance(shape, Box):
            style = patches.BoxStyle.Round(pad=0, rounding_size=1.5)
            fills[shape.kind].append(patches.FancyBboxPatch(*_corner_and_size(shape), boxstyle=style))
        elif isinstance(shape, Text):
            ax.text(
                shape.x,
                shape.y,
                shape.text.replace("$", r"\$"),  # which would begin a formula
                size=scale * shape.size,
                ha={"start": "left", "middle": "center", "end": "right"}[shape.anchor],
                va="center_baseline",
            )
        elif shape.kind == "dot":
            dots.append(patches.Circle((shape.x, shape.y), shape.radius))
        else:
            # y grows downward, so the upper half is the one from 180 to 360 degrees.
            path = paths.Path.arc(180 if shape.kind == "arc" else 0, 360)
            curves.append(paths.Path(path.vertices * shape.radius + (shape.x, shape.y), path.codes))

    def tint(colour: str, share: float) -> list[float]:
        return [share * part + (1 - share) * under for part, under in zip(colours.to_rgb(colour), paper)]

    for kind, fill in _FILLS.items():
        boxes = collections.PatchCollection(
            fills[kind], facecolor=tint(*fill), edgecolor=ink, linewidth=0.7 * scale, zorder=1
        )
        ax.add_collection(boxes)
    for kind, width in _STROKES.items():
        dashes = (0, (2, 2)) if kind == "barrier" else "solid"
        lines = collections.LineCollection(strokes[kind], colors=ink, linewidths=width * scale, linestyles=[dashes], zorder=2)
        ax.add_collection(lines)
    outlines = [patches.PathPatch(path) for path in curves]
    ax.add_collection(
        collections.PatchCollection(outlines, facecolor="none", edgecolor=ink, linewidth=0.9 * scale, zorder=2)
    )
    ax.add_collection(
        collections.PatchCollection(
            frames, facecolor=tint(*_FRAME), edgecolor=ink, linewidth=0.5 * scale, linestyle=(0, (4, 4)), zorder=0
        )
    )
    ax.add_collection(collections.PatchCollection(dots, facecolor=ink, edgecolor="none", zorder=3))


def _corner_and_size(box: Box) -> tuple[tuple[float, float], float, float]:
    return (box.left, box.top), box.width, box.height
