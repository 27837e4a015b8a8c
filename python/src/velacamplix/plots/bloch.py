"""Qubits as arrows in spheres, drawn in the plane."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any

import numpy as np

from ..basics import checks, extras
from .bars import DARK_GREY, FONT_SIZE, GREY, PALETTE

__all__ = ["plot_bloch"]

#: More spheres than this nobody reads.
MOST_SPHERES = 100
# Rounding may leave a vector longer than 1, in single precision by so much.
_ROUNDING = 1e-5
# The sphere is seen from so high above its equator, and from so far right of its x axis.
_HEIGHT, _SIDE = math.radians(18), math.radians(25)
# What a sphere of radius 1 takes, its letters included: half the width, above the middle, below it; a line of text.
_HALF, _ABOVE, _BELOW, _LINE = 1.5, 1.5, 1.52, 0.42
# Inches that it gets in a new figure, one or two alone, and the width of that figure at most.
_INCHES, _ALONE, _WIDEST = 1.1, 1.7, 6.7
_HEAD = 0.18  # of an arrow
# Letters of a sphere whose place is so many points wide have their full size; below half of that, none but its name.
_ROOMY = 75.0


def plot_bloch(
    source: Any, qubits: int | Sequence[int] | None = None, *, labels: str | Sequence[str] | None = None, ax: Any = None
) -> Any:
    """Draw the Bloch vectors of qubits, each in a sphere of its own.

    The state 0 is at the top. A dotted line leads from the tip of the arrow down, or up, to the plane of the equator, and from
    there to the middle; an arrow that is shorter than 1 has its length below. A qubit that is entangled with others, in a
    state of all of them, has a short one: it is mixed.

    Parameters
    ----------
    source : StateVector or Result, or array_like of shape (3,) or (k, 3)
        A state, or a result for its final state; or vectors (x, y, z), the expectation values of X, Y and Z.
    qubits : int or sequence of int, optional
        Distinct qubits of a state, all by default.
    labels : str or sequence of str, optional
        What stands below each sphere. By default the numbers of a state's qubits, if it has several.
    ax : matplotlib.axes.Axes, optional
        Where to draw all of them. By default a new figure is made, with six beside each other, or as large as
        ``figure.figsize`` says where that has been set.

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, IndexError, ValueError
        If `source` is nothing of the above, a vector is longer than 1, `qubits` or `labels` do not fit, or there are more
        than 100.

    Examples
    --------
    >>> from velacamplix import StateVector
    >>> ax = plot_bloch(StateVector(2).h(0).ry(0.5, 1))
    >>> [text.get_text() for text in ax.texts if "qubit" in text.get_text()]
    ['qubit 0', 'qubit 1']
    >>> ax = plot_bloch([0.6, 0, 0.8])
    """
    if hasattr(source, "bloch_vector"):
        listed = checks.qubits(range(source.n_qubits) if qubits is None else qubits, source.n_qubits)
        vectors = _of_state(source, _few(listed))
        names = [f"qubit {q}" for q in listed] if source.n_qubits > 1 else []
    elif qubits is not None:
        raise TypeError("qubits can only be given for a state")
    else:
        vectors, names = _of_array(source), []
    if labels is not None:
        names = [labels] if isinstance(labels, str) else list(checks.sequence(labels, "labels", of="texts"))
        if len(names) != len(vectors) or not all(isinstance(name, str) for name in names):
            raise ValueError(f"labels must be {len(vectors)} text(s), one for each vector, got {checks.show(labels)}")
    below = _BELOW + _LINE * (bool(names) + any(map(_is_mixed, vectors)))
    ax, columns = _axes(ax, len(vectors), (_ABOVE + below) / (2 * _HALF))
    rows = -(-len(vectors) // columns)
    ax.set_xlim(-_HALF, (2 * columns - 1) * _HALF)
    ax.set_ylim(-(rows - 1) * (_ABOVE + below) - below, _ABOVE)
    ax.set_aspect("equal")
    ax.set_axis_off()
    inches, place = ax.figure.get_size_inches(), ax.get_position()
    pitch = 72 * min(inches[0] * place.width / columns, inches[1] * place.height / rows * 2 * _HALF / (_ABOVE + below))
    for number, vector in enumerate(vectors):
        x, y = 2 * _HALF * (number % columns), -(_ABOVE + below) * (number // columns)
        _draw(ax, x, y, vector, names[number] if names else "", pitch / _ROOMY)
    return ax


def _few(listed: Any) -> Any:
    if len(listed) > MOST_SPHERES:
        raise ValueError(f"there must be at most {MOST_SPHERES} vectors to be drawn, got {len(listed)}")
    return listed


def _of_state(state: Any, qubits: Sequence[int]) -> np.ndarray:
    with np.errstate(all="ignore"):
        return _of_array(np.array([state.bloch_vector(q) for q in qubits]) / state.probability(0, []))


def _of_array(source: Any) -> np.ndarray:
    try:
        vectors: np.ndarray = np.atleast_2d(checks.array(source, float))
    except (TypeError, ValueError):
        raise TypeError(f"source must be a StateVector, a Result or vectors of 3 real numbers, got {checks.show(source)}") from None
    if vectors.ndim != 2 or vectors.shape[1] != 3 or not len(vectors):
        raise ValueError(f"source must have the shape (3,) or (k, 3), got an array of shape {np.shape(source)}")
    if not np.isfinite(vectors).all():
        raise ValueError("source must hold finite numbers")
    longest = float(np.linalg.norm(_few(vectors), axis=1).max())
    if longest > 1 + _ROUNDING:
        raise ValueError(f"source must hold vectors of length 1 at most, got one of length {longest:.6g}")
    return vectors


def _is_mixed(vector: np.ndarray) -> bool:
    return bool(np.linalg.norm(vector) < 0.995)


def _axes(ax: Any, count: int, shape: float) -> tuple[Any, int]:
    """Return the axes, and how many spheres, `shape` times as high as wide, stand side by side there."""
    if ax is None:
        pyplot = extras.imported("matplotlib.pyplot", "plot_bloch")
        matplotlib = extras.imported("matplotlib", "plot_bloch")
        size, usual = (tuple(s["figure.figsize"]) for s in (matplotlib.rcParams, matplotlib.rcParamsDefault))
        if size == usual:
            columns, each = min(count, int(_WIDEST / _INCHES)), _ALONE if count <= 2 else _INCHES
            size = (each * columns, each * shape * -(-count // columns))
        ax = pyplot.figure(figsize=size).add_axes((0, 0, 1, 1))
    elif not hasattr(ax, "get_position"):
        raise TypeError(f"ax must be axes of matplotlib, got {checks.show(ax)}")
    inches, place = ax.figure.get_size_inches(), ax.get_position()
    width, height = inches[0] * place.width, inches[1] * place.height

    def size_with(columns: int) -> float:
        return min(width / columns, height / shape / -(-count // columns))

    return ax, max(range(1, count + 1), key=lambda columns: (size_with(columns), -columns))


def _seen(vector: Sequence[float] | np.ndarray) -> tuple[float, float]:
    """Return where a point appears in the plane."""
    x, y, z = vector
    ahead = math.cos(_SIDE) * x + math.sin(_SIDE) * y
    return -math.sin(_SIDE) * x + math.cos(_SIDE) * y, math.cos(_HEIGHT) * z - math.sin(_HEIGHT) * ahead


def _draw(ax: Any, x: float, y: float, vector: np.ndarray, name: str, size: float) -> None:
    thin, letters = 0.6 * min(1.0, size), FONT_SIZE * min(1.0, max(size, 0.6))

    def line(points: Any, **style: Any) -> None:
        seen = np.array([_seen(point) for point in points]) + (x, y)
        ax.plot(seen[:, 0], seen[:, 1], **{"color": GREY, "linewidth": thin, **style})

    def write(point: tuple[float, float], text: str, **style: Any) -> None:
        ax.text(x + point[0], y + point[1], text, **{"size": letters, "ha": "center", "va": "center", **style})

    turns = np.linspace(0, 2 * math.pi, 73)
    ax.fill(x + np.cos(turns), y + np.sin(turns), color=GREY, alpha=0.08, linewidth=0)
    ax.plot(x + np.cos(turns), y + np.sin(turns), color=GREY, linewidth=thin)
    front = np.linspace(_SIDE - math.pi / 2, _SIDE + math.pi / 2, 37)
    for half, style in ((front, "-"), (front + math.pi, (0, (3, 3)))):
        line([(math.cos(turn), math.sin(turn), 0) for turn in half], linestyle=style)
    for axis in np.eye(3):
        line([-axis, axis], linestyle=(0, (1, 2)))
    if size >= 0.5:
        write((0, 1.22), "|0\u27e9")
        write((0, -1.22), "|1\u27e9")
        for axis, text in zip(np.eye(3), "xy"):
            ahead = np.array(_seen(axis))
            write(tuple(ahead * (1 + 0.22 / np.linalg.norm(ahead))), text, color=DARK_GREY)
    foot = (vector[0], vector[1], 0.0)
    line([(0, 0, 0), foot, vector], linestyle=(0, (1, 1)), color=DARK_GREY)
    colour, tip = PALETTE[3], np.array(_seen(vector))
    length = float(np.linalg.norm(tip))  # as it is seen
    if length > 0.02:
        ahead = tip / length * min(_HEAD, 0.6 * length)
        aside = 0.35 * np.array((-ahead[1], ahead[0]))
        ax.plot(*zip((x, y), (x, y) + tip - 0.9 * ahead), color=colour, linewidth=1.6 * min(1.0, size))
        ax.fill(*zip(*((x, y) + corner for corner in (tip, tip - ahead + aside, tip - ahead - aside))), color=colour, linewidth=0)
    else:
        ax.plot([x + tip[0]], [y + tip[1]], ".", color=colour, markersize=6 * min(1.0, size))
    told = [name] * bool(name)
    if size >= 0.5 and _is_mixed(vector):
        told.append(f"length {np.linalg.norm(vector):.2f}")
    if told:
        write((0, -_BELOW), "\n".join(told), va="top", linespacing=1.1)
