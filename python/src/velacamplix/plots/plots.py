"""Pictures of counts, probabilities and amplitudes, drawn with matplotlib.

matplotlib is imported when a function is called (``pip install matplotlib``). Every function draws into the axes it
is given, or into those of a new figure, and returns them: titles, limits and ``ax.figure.savefig`` are the caller's.
"""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping, Sequence
from typing import Any

import numpy as np

from ..basics import checks, extras
from ..basics.types import Order
from ..basics.words import bit_string, counted
from ..results.counts import Counts
from ..states.densitymatrix import DensityMatrix
from ..states.statevector import StateVector
from . import bars, data
from .bars import Bars

__all__ = ["plot_counts", "plot_probabilities", "plot_state"]


def plot_counts(
    counts: Mapping[str, int] | Sequence[Mapping[str, int]],
    top: int | None = None,
    ax: Any = None,
    *,
    labels: str | Sequence[str] | None = None,
    outcomes: Sequence[str] | None = None,
    errors: bool = False,
) -> Any:
    """Draw how often each outcome came, of one data set or of several side by side.

    Parameters
    ----------
    counts : mapping of str to int, or sequence of up to 8 of them
        Bit strings and counts, for example from `StateVector.counts`. A result that has ``counts`` will do.
    top : int, optional
        Draw the so many most frequent outcomes, in the order of their numbers, and the sum of the others. By default all
        of them are drawn, or, if they are more than 256, the 32 most frequent. Of several sets that outcome is most
        frequent which has the largest share of one. Where labels would overlap, the most frequent outcomes get one.
    ax : matplotlib.axes.Axes, optional
        Where to draw: axes without bars of outcomes. By default a new figure is made, as large as the bars need, or as
        ``figure.figsize`` says where that has been set.
    labels : str or sequence of str, optional
        The name of each data set; they stand in a legend.
    outcomes : sequence of str, optional
        Draw these, in this order, and the sum of all others, instead of choosing.
    errors : bool
        Whether to mark the standard error of each count, ``sqrt(c (1 - c/shots))``.

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, ValueError
        If `counts` are no counts, `top` is no integer of at least 1, the data sets differ in their number of bits, labels
        or outcomes do not fit them, or `ax` has bars of outcomes already.

    Examples
    --------
    >>> from velacamplix import StateVector
    >>> ax = plot_counts(StateVector(2).h(0).cnot(0, 1).counts(1000))
    >>> [label.get_text() for label in ax.get_xticklabels()]
    ['00', '11']
    >>> ax = plot_counts([{"00": 52, "11": 48}, {"00": 45, "01": 6, "11": 49}], labels=["ideal", "noisy"], errors=True)
    >>> [text.get_text() for text in ax.get_legend().get_texts()]
    ['ideal', 'noisy']
    """
    sets = data.several(counts, "counts")
    data.require_top(top)
    names, has_errors = data.names(labels, len(sets)), checks.flag(errors, "errors")
    checked = [one if isinstance(one, Counts) else Counts(one) for one in (getattr(one, "counts", one) for one in sets)]
    given = [data.of_counts(one, has_errors) for one in checked]
    drawn = Bars.of(given, top, data.chosen(outcomes, top, given))
    ax = bars.axes(ax, drawn, "plot_counts")
    bars.draw(ax, drawn, names)
    shots, each = {one.shots for one in checked}, " each" if len(sets) > 1 else ""
    told = f"counts of {counted(min(shots), 'shot')}{each}" if len(shots) == 1 else "counts"
    ax.set_ylabel(told if bars.fits_beside(ax, drawn, told) else "counts")
    if hasattr(ax.yaxis.get_major_locator(), "set_params") and drawn.labels:
        ax.yaxis.get_major_locator().set_params(integer=True)
    return ax


def plot_probabilities(
    source: Any,
    qubits: int | Sequence[int] | None = None,
    order: Order = "big",
    top: int | None = None,
    ax: Any = None,
    *,
    labels: str | Sequence[str] | None = None,
    outcomes: Sequence[str] | None = None,
    errors: Any = False,
) -> Any:
    """Draw the probability of each outcome that is possible, of one data set or of several side by side.

    Parameters
    ----------
    source : StateVector, DensityMatrix, mapping of str to float, or array_like of shape (2**k,), or a sequence of up to 8 of them
        A state; probabilities by bit string; or probabilities by number, as `StateVector.distribution` gives them.
        `Counts` are divided by their shots. An array of shape (m, 2**k) is m data sets.
    qubits : int or sequence of int, optional
        Distinct qubits of states, all by default.
    order : {"big", "little"}
        Whether the first listed qubit of a state is leftmost or rightmost.
    top : int, optional
        Draw the so many most probable outcomes, in the order of their numbers, and the sum of the others. By default all
        of them are drawn, or, if they are more than 256, the 32 most probable.
    ax : matplotlib.axes.Axes, optional
        Where to draw: axes without bars of outcomes. By default a new figure is made, as large as the bars need, or as
        ``figure.figsize`` says where that has been set.
    labels : str or sequence of str, optional
        The name of each data set; they stand in a legend.
    outcomes : sequence of str, optional
        Draw these, in this order, and the sum of all others, instead of choosing.
    errors : bool, or mapping of str to float, or array_like of shape (2**k,), or a sequence of one for each data set
        How far each probability may be off, up and down: by bit string or by number. True takes the standard error
        ``sqrt(p (1 - p)/shots)`` of `Counts`, and none of what has no shots.

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, IndexError, ValueError
        If `source` is nothing of the above, `qubits`, `order`, `top`, `labels`, `outcomes` or `errors` do not fit it, or
        `ax` has bars of outcomes already.

    Examples
    --------
    >>> ax = plot_probabilities([0.5, 0.25, 0, 0.25])
    >>> [float(bar.get_height()) for bar in ax.patches]
    [0.5, 0.25, 0.25]
    >>> ax = plot_probabilities({"00": 0.52, "11": 0.48}, outcomes=["11", "00"], errors={"00": 0.02, "11": 0.02})
    >>> [label.get_text() for label in ax.get_xticklabels()]
    ['11', '00']
    """
    data.require_top(top)
    sets = data.several(source, "source")
    names, is_of_states = data.names(labels, len(sets)), [isinstance(one, (StateVector, DensityMatrix)) for one in sets]
    if qubits is not None and not all(is_of_states):
        raise TypeError("qubits can only be given for a StateVector or a DensityMatrix")
    side = f", qubit 0 {'left' if checks.order(order) == 'big' else 'right'}" if qubits is None and all(is_of_states) else ""
    given = [
        data.of_state(one, qubits, order, top)
        if isinstance(one, (StateVector, DensityMatrix))
        else data.of_probabilities(one, data.numbered("source", number, len(sets)))
        for number, one in enumerate(sets)
    ]
    given = data.with_errors(given, errors, sets)
    drawn = Bars.of(given, top, data.chosen(outcomes, top, given))
    ax = bars.axes(ax, drawn, "plot_probabilities")
    bars.draw(ax, drawn, names)
    ax.set_xlabel(f"outcome{side}")
    ax.set_ylabel("probability")
    return ax


def plot_state(
    state: StateVector | Sequence[complex] | np.ndarray,
    order: Order = "big",
    top: int | None = None,
    ax: Any = None,
    legend: bool = True,
) -> Any:
    """Draw the amplitudes that are not zero: bars as high as their absolute values, in the colours of their phases.

    Phases are shown as they are, a global one included: dark is 0 (positive), light is pi (negative), red +i, blue -i.

    Parameters
    ----------
    state : StateVector, or array_like of shape (2**n,)
        A state, or amplitudes; an array's labels are its positions in binary.
    order : {"big", "little"}
        Whether qubit 0 of a StateVector is leftmost or rightmost in a label.
    top : int, optional
        Draw the so many largest amplitudes. By default all are drawn, or, if they are more than 256, the 32 largest;
        a line below then tells what probability the others have together.
    ax : matplotlib.axes.Axes, optional
        Where to draw: axes without bars of outcomes. By default a new figure is made.
    legend : bool
        Whether to put a scale of phases at the right; it takes a part of the room of `ax`.

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, ValueError
        If `state` is nothing of the above, `order` or `top` are wrong, or `ax` has bars of outcomes already.

    Examples
    --------
    >>> ax = plot_state(StateVector(2).h(0).cnot(0, 1).z(0))
    >>> [round(float(bar.get_height()), 4) for bar in ax.patches]
    [0.7071, 0.7071]
    """
    data.require_top(top)
    order = checks.order(order)
    entries, has_more, rest = _amplitudes(state, order, top)
    drawn = Bars([label for label, _ in entries], [[abs(value) for _, value in entries]], "", [0.0])
    cm = extras.imported("matplotlib.cm", "plot_state")
    colours = extras.imported("matplotlib.colors", "plot_state")
    ax = bars.axes(ax, drawn, "plot_state")
    phases = cm.ScalarMappable(norm=colours.Normalize(-math.pi, math.pi), cmap="twilight")
    shades = phases.to_rgba([math.atan2(v.imag, v.real) for _, v in entries])
    bars.draw(ax, drawn, colours=shades, edge="#444444", share=0.75 if legend else 0.95)
    note = f"\nthe {len(entries)} largest; probability of all others {rest:.3g}" if has_more else ""
    side = f", qubit 0 {'left' if order == 'big' else 'right'}" if isinstance(state, StateVector) else ""
    ax.set_xlabel(f"basis state{side}{note}")
    ax.set_ylabel("|amplitude|")
    if legend:
        quarter = math.pi / 2
        scale = ax.figure.colorbar(phases, ax=ax, ticks=[-2 * quarter, -quarter, 0, quarter, 2 * quarter])
        scale.ax.set_yticklabels(["−π", "−π/2", "0", "π/2", "π"], size=bars.FONT_SIZE)
        scale.set_label("phase", size=bars.FONT_SIZE)
    return ax


def _amplitudes(state: Any, order: Order, top: int | None) -> tuple[list[tuple[str, complex]], bool, float]:
    """Return labels and amplitudes in the order of the labels, whether there are more, and their probability."""
    if isinstance(state, StateVector):
        listed = list(range(state.n_qubits))
        if order == "little":
            listed.reverse()
        best, more = data.most_likely(state, top, listed)
        labels = sorted(outcome for outcome, _ in best)
        entries = [(label, complex(state.array[_index(label, order)])) for label in labels]
        return entries, more, max(0.0, 1.0 - sum(probability for _, probability in best))
    if isinstance(state, (str, Mapping)) or not isinstance(state, Iterable):
        raise TypeError(f"state must be a StateVector or an array of amplitudes, got {checks.show(state)}")
    values = data.array(state, "state", np.complex128)
    width = len(values).bit_length() - 1
    sizes = np.abs(values)
    ranked = np.argsort(-sizes, kind="stable")[: int((sizes > data.NOISE).sum())]
    wanted = top if top is not None else (len(ranked) if len(ranked) <= bars.MOST_BARS else bars.LARGEST)
    kept = sorted(ranked[:wanted].tolist())
    rest = float((sizes[ranked[wanted:]] ** 2).sum())
    return [(bit_string(i, width), complex(values[i])) for i in kept], len(ranked) > len(kept), rest


def _index(label: str, order: Order) -> int:
    # Qubit q is bit q of the index.
    return int((label[::-1] if order == "big" else label) or "0", 2)


