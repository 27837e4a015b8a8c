"""Matrices as coloured squares: density matrices, and any others."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..basics import checks, extras
from ..basics.words import bit_string
from .bars import FONT_SIZE

__all__ = ["plot_density"]

#: Qubits beyond which squares are too small.
MOST_QUBITS = 10
# Labels of basis states on each side at most.
_MOST_LABELS = 16


def plot_density(matrix: Any, *, axes: Any = None) -> tuple[Any, Any]:
    """Draw the real and the imaginary part of a density matrix, or of any other matrix of qubits.

    Blue is negative, red positive, white 0; both parts have the same scale. Row and column 0 are at the top left; labels
    are positions in binary. The scale stands below.

    Parameters
    ----------
    matrix : array_like, shape (2**k, 2**k)
        Real or complex, of up to 10 qubits; for example from `StateVector.reduced`, or a `DensityMatrix`.
    axes : pair of matplotlib.axes.Axes, optional
        Where to draw: real part, imaginary part. By default a new figure is made, of 3.4 x 2.4 inches, from 4
        qubits on of 6.4 x 4, or as large as ``figure.figsize`` says where that has been set.

    Returns
    -------
    tuple of matplotlib.axes.Axes
        The two.

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, ValueError
        If `matrix` is no such matrix, or `axes` are no pair of axes.

    Examples
    --------
    >>> from velacamplix import StateVector
    >>> real, imaginary = plot_density(StateVector(3).h(0).cx(0, [1, 2]).reduced([0, 2]))
    >>> [text.get_text() for text in real.get_xticklabels()]
    ['00', '01', '10', '11']
    """
    values = _checked(matrix)
    n_qubits = len(values).bit_length() - 1
    if axes is None:
        pyplot = extras.imported("matplotlib.pyplot", "plot_density")
        matplotlib = extras.imported("matplotlib", "plot_density")
        size, usual = (tuple(s["figure.figsize"]) for s in (matplotlib.rcParams, matplotlib.rcParamsDefault))
        inches = (3.4, 2.4) if n_qubits < 4 else (6.4, 4.0)
        axes = pyplot.subplots(1, 2, figsize=inches if size == usual else size, layout="constrained")[1]
    else:
        axes = checks.sequence(axes, "axes", of="axes of matplotlib")
        if len(axes) != 2 or not all(hasattr(ax, "get_position") for ax in axes):
            raise TypeError(f"axes must be two axes of matplotlib, got {checks.show(axes)}")
    most = float(max(abs(values.real).max(), abs(values.imag).max())) or 1.0
    for ax, part, name in zip(axes, (values.real, values.imag), ("real part", "imaginary part")):
        # Squares and not a picture of them, so that they stay sharp; of very many it would be a large file.
        drawn = ax.pcolormesh(part, cmap="RdBu_r", vmin=-most, vmax=most, rasterized=n_qubits > 6)
        ax.set_aspect("equal")
        ax.set_xlim(0, len(values))
        ax.set_ylim(len(values), 0)
        places = _labelled(ax, n_qubits)
        texts = [bit_string(place, n_qubits) for place in places]
        middles = [place + 0.5 for place in places]
        ax.set_xticks(middles, texts, rotation=90 if n_qubits > 1 else 0, family="monospace", size=FONT_SIZE)
        ax.set_yticks(middles, texts if ax is axes[0] else [], family="monospace", size=FONT_SIZE)
        ax.tick_params(length=2)
        ax.set_xlabel(name, size=FONT_SIZE)
    few = extras.imported("matplotlib.ticker", "plot_density").MaxNLocator(4)
    scale = axes[1].figure.colorbar(drawn, ax=list(axes), location="bottom", shrink=0.7, aspect=30, ticks=few)
    scale.ax.tick_params(labelsize=FONT_SIZE, length=2)
    return axes[0], axes[1]


def _checked(matrix: Any) -> np.ndarray:
    hint = "; reduced(qubits) of a state or a result gives one" if hasattr(matrix, "reduced") else ""
    try:
        values: np.ndarray = checks.array(matrix, complex)
    except (TypeError, ValueError):
        raise TypeError(f"matrix must be an array of numbers, got {checks.show(matrix)}{hint}") from None
    shape = values.shape
    if len(shape) != 2 or shape[0] != shape[1] or shape[0] == 0 or shape[0] & (shape[0] - 1):
        raise ValueError(f"matrix must have the shape (2**k, 2**k), got an array of shape {shape}{hint}")
    if shape[0] > 2**MOST_QUBITS:
        raise ValueError(f"matrix must be of at most {MOST_QUBITS} qubits, got {shape[0].bit_length() - 1}")
    if not np.isfinite(values).all():
        raise ValueError("matrix must hold finite numbers")
    return values


def _labelled(ax: Any, n_qubits: int) -> range:
    """Return the rows that get a label, as many as there is room for."""
    height = 72 * ax.figure.get_size_inches()[1] * ax.get_position().height
    most = min(_MOST_LABELS, max(2, int((height - 0.6 * FONT_SIZE * n_qubits) / (1.5 * FONT_SIZE))))
    step = 1
    while 2**n_qubits // step > most:
        step *= 2
    return range(0, 2**n_qubits, step)
