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
from ..results.counts import Counts
from ..states.outcomes import most_probable
from ..states.statevector import StateVector
from . import bars
from .bars import Bars

__all__ = ["plot_counts", "plot_probabilities", "plot_state"]

# Amplitudes and probabilities below this are what rounding leaves behind.
_NOISE = 1e-9


def plot_counts(counts: Mapping[str, int], top: int | None = None, ax: Any = None) -> Any:
    """Draw how often each outcome came, in the order of the outcomes' numbers.

    Parameters
    ----------
    counts : mapping of str to int
        Bit strings and counts, for example from `StateVector.counts`. A result that has ``counts`` will do.
    top : int, optional
        Draw the so many most frequent outcomes and the sum of the others. By default all of them are drawn, or, if
        they are more than 256, the 32 most frequent. Where labels would overlap, the most frequent outcomes get one.
    ax : matplotlib.axes.Axes, optional
        Where to draw: axes without bars of outcomes. By default a new figure is made.

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, ValueError
        If `counts` are no counts, `top` is no integer of at least 1, or `ax` has bars of outcomes already.

    Examples
    --------
    >>> from velacamplix import StateVector
    >>> ax = plot_counts(StateVector(2).h(0).cnot(0, 1).counts(1000))
    >>> [label.get_text() for label in ax.get_xticklabels()]
    ['00', '11']
    """
    _check_top(top)
    counts = getattr(counts, "counts", counts)  # a result of `run`
    checked = counts if isinstance(counts, Counts) else Counts(counts)
    drawn = Bars.of([(outcome, times) for outcome, times in checked.items() if times], top)
    ax = bars.axes(ax, drawn, "plot_counts")
    bars.draw(ax, drawn)
    ax.set_ylabel(f"counts of {checked.shots} shots")
    return ax


def plot_probabilities(
    source: StateVector | Mapping[str, float] | Sequence[float] | np.ndarray,
    qubits: int | Sequence[int] | None = None,
    order: Order = "big",
    top: int | None = None,
    ax: Any = None,
) -> Any:
    """Draw the probability of each outcome that is possible, in the order of the outcomes' numbers.

    Parameters
    ----------
    source : StateVector, mapping of str to float, or array_like of shape (2**k,)
        A state; probabilities by bit string; or probabilities by number, as `StateVector.distribution` gives them.
        `Counts` are divided by their shots.
    qubits : int or sequence of int, optional
        Distinct qubits of a state, all by default.
    order : {"big", "little"}
        Whether the first listed qubit of a state is leftmost or rightmost.
    top : int, optional
        Draw the so many most probable outcomes and the sum of the others. By default all of them are drawn, or, if
        they are more than 256, the 32 most probable.
    ax : matplotlib.axes.Axes, optional
        Where to draw: axes without bars of outcomes. By default a new figure is made.

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ImportError
        If matplotlib is not installed.
    TypeError, IndexError, ValueError
        If `source` is nothing of the above, `qubits`, `order` or `top` are wrong, or `ax` has bars of outcomes already.

    Examples
    --------
    >>> ax = plot_probabilities([0.5, 0.25, 0, 0.25])
    >>> [float(bar.get_height()) for bar in ax.patches]
    [0.5, 0.25, 0.25]
    """
    _check_top(top)
    if isinstance(source, StateVector):
        drawn = _bars_of_state(source, qubits, order, top)
        name = "outcome" if qubits is not None else f"outcome, qubit 0 {'left' if order == 'big' else 'right'}"
    else:
        if qubits is not None:
            raise TypeError("qubits can only be given for a StateVector")
        drawn, name = Bars.of(_probabilities(source), top), "outcome"
    ax = bars.axes(ax, drawn, "plot_probabilities")
    bars.draw(ax, drawn)
    ax.set_xlabel(name)
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
        a line above then tells what probability the others have together.
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
    _check_top(top)
    order = checks.order(order)
    entries, has_more, rest = _amplitudes(state, order, top)
    drawn = Bars([label for label, _ in entries], [abs(value) for _, value in entries], "", 0.0)
    cm = extras.imported("matplotlib.cm", "plot_state")
    colours = extras.imported("matplotlib.colors", "plot_state")
    ax = bars.axes(ax, drawn, "plot_state")
    phases = cm.ScalarMappable(norm=colours.Normalize(-math.pi, math.pi), cmap="twilight")
    shades = phases.to_rgba([math.atan2(v.imag, v.real) for _, v in entries])
    bars.draw(ax, drawn, shades, edge="#444444", share=0.75 if legend else 0.95)
    ax.set_xlabel("basis state" + (f", qubit 0 {'left' if order == 'big' else 'right'}" if _is_state(state) else ""))
    ax.set_ylabel("|amplitude|")
    if has_more:
        note = f"the {len(entries)} largest amplitudes; all others have probability {rest:.3g} together"
        ax.set_title(note, fontsize=8, color="#555555", loc="right")
    if legend:
        quarter = math.pi / 2
        scale = ax.figure.colorbar(phases, ax=ax, ticks=[-2 * quarter, -quarter, 0, quarter, 2 * quarter])
        scale.ax.set_yticklabels(["−π", "−π/2", "0", "π/2", "π"])
        scale.set_label("phase")
    return ax


def _is_state(value: Any) -> bool:
    return isinstance(value, StateVector)


def _check_top(top: int | None) -> None:
    if top is not None:
        checks.integer(top, "top", minimum=1)


def _bars_of_state(state: StateVector, qubits: Any, order: Order, top: int | None) -> Bars:
    listed = list(checks.qubits(range(state.n_qubits) if qubits is None else qubits, state.n_qubits, at_least=0))
    if checks.order(order) == "little":
        listed.reverse()
    best, more = _best(state, top, listed)
    if not more:
        return Bars.of(best, top)
    rest = max(0.0, 1.0 - sum(probability for _, probability in best))
    # How many others are possible nobody has counted.
    return Bars([k for k, _ in sorted(best)], [p for _, p in sorted(best)], "others", rest)


def _best(state: StateVector, top: int | None, listed: Sequence[int]) -> tuple[list[tuple[str, float]], bool]:
    """Return the outcomes to draw, the most probable first, and whether there are more."""
    if top is not None:
        best = most_probable(state, top + 1, listed)
        return best[:top], len(best) > top
    best = most_probable(state, bars.MOST_BARS + 1, listed)
    if len(best) <= bars.MOST_BARS:
        return best, False
    return best[: bars.LARGEST], True


def _probabilities(source: Any) -> list[tuple[str, float]]:
    if isinstance(source, Counts):
        source = source.probabilities()
    if isinstance(source, Mapping):
        entries = []
        for outcome, probability in source.items():
            if not isinstance(outcome, str) or outcome.strip("01"):
                raise ValueError(f"source must have bit strings for keys, got {checks.show(outcome)}")
            entries.append((outcome, checks.real(probability, f"source[{checks.show(outcome)}]")))
        return [(outcome, probability) for outcome, probability in entries if probability > _NOISE]
    if isinstance(source, str) or not isinstance(source, Iterable):
        raise TypeError(
            f"source must be a StateVector, a mapping from bit strings, or an array of probabilities, got "
            f"{checks.show(source)}"
        )
    values = _array(source, "source", np.float64)
    if (values < 0).any():
        raise ValueError(f"source must hold no negative probability, got {values.min()}")
    width = len(values).bit_length() - 1
    return [(_bits(i, width), float(values[i])) for i in np.flatnonzero(values > _NOISE).tolist()]


def _amplitudes(state: Any, order: Order, top: int | None) -> tuple[list[tuple[str, complex]], bool, float]:
    """Return labels and amplitudes in the order of the labels, whether there are more, and their probability."""
    if _is_state(state):
        listed = list(range(state.n_qubits))
        if order == "little":
            listed.reverse()
        best, more = _best(state, top, listed)
        labels = sorted(outcome for outcome, _ in best)
        entries = [(label, complex(state.array[_index(label, order)])) for label in labels]
        return entries, more, max(0.0, 1.0 - sum(probability for _, probability in best))
    if isinstance(state, (str, Mapping)) or not isinstance(state, Iterable):
        raise TypeError(f"state must be a StateVector or an array of amplitudes, got {checks.show(state)}")
    values = _array(state, "state", np.complex128)
    width = len(values).bit_length() - 1
    sizes = np.abs(values)
    ranked = np.argsort(-sizes, kind="stable")[: int((sizes > _NOISE).sum())]
    wanted = top if top is not None else (len(ranked) if len(ranked) <= bars.MOST_BARS else bars.LARGEST)
    kept = sorted(ranked[:wanted].tolist())
    rest = float((sizes[ranked[wanted:]] ** 2).sum())
    return [(_bits(i, width), complex(values[i])) for i in kept], len(ranked) > len(kept), rest


def _index(label: str, order: Order) -> int:
    # Qubit q is bit q of the index.
    return int((label[::-1] if order == "big" else label) or "0", 2)


def _bits(number: int, width: int) -> str:
    return format(number, f"0{width}b") if width else ""


def _array(values: Any, name: str, kind: Any) -> np.ndarray:
    try:
        array: np.ndarray = np.asarray(values, dtype=kind)
    except (TypeError, ValueError):
        raise TypeError(f"{name} must hold numbers, got {checks.show(values)}") from None
    if array.ndim != 1 or len(array) == 0 or len(array) & (len(array) - 1):
        raise ValueError(f"{name} must have a power of two for its length, got an array of shape {array.shape}")
    if not np.isfinite(array).all():
        raise ValueError(f"{name} must hold finite numbers")
    return array
