"""Bars over bit strings that stay readable, be they two or hundreds."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, NamedTuple

from ..basics import checks, extras

# Up to so many outcomes are all drawn; of more only the largest, when the caller names no number.
MOST_BARS, LARGEST = 256, 32

BLUE, GREY = "#31688e", "#9a9a9a"
_FONT_SIZE = 8.0
# Width of a character and height of a line of the labels' font, in points, with some air.
_CHARACTER, _LINE = 0.61 * _FONT_SIZE, 1.3 * _FONT_SIZE
_LONGEST_LABEL = 40
# A few bars are not made wider than if there were so many.
_FEWEST_WIDTHS = 5.0


class Bars(NamedTuple):
    """What is drawn: outcomes in the order of their numbers, and what all others have together.

    `others` names them, and is empty if there are none.
    """

    labels: list[str]
    heights: list[float]
    others: str
    rest: float

    @classmethod
    def of(cls, entries: Sequence[tuple[str, float]], top: int | None) -> Bars:
        """Choose the `top` largest entries, or as many as are readable; the rest is summed up."""
        wanted = top if top is not None else (MOST_BARS if len(entries) <= MOST_BARS else LARGEST)
        ranked = sorted(entries, key=lambda entry: (-entry[1], entry[0]))
        kept, others = sorted(ranked[:wanted]), ranked[wanted:]
        name = f"{len(others)} others" if others else ""
        return cls([k for k, _ in kept], [h for _, h in kept], name, sum(h for _, h in others))


def axes(ax: Any, bars: Bars, purpose: str) -> Any:
    """Return the caller's axes, or those of a new figure with room for the bars.

    Raises
    ------
    ValueError
        If the axes have bars of outcomes already, or share an x axis that has other outcomes.
    """
    if ax is not None:
        _require_place(ax, bars)
        return ax
    pyplot = extras.imported("matplotlib.pyplot", purpose)
    return pyplot.subplots(figsize=figure_size(bars), layout="constrained")[1]


def _require_place(ax: Any, bars: Bars) -> None:
    # Bars stand side by side and not at places of their own, so another set would stand at the outcomes of the first.
    if not hasattr(ax, "get_shared_x_axes"):
        raise TypeError(f"ax must be axes of matplotlib, got {checks.show(ax)}")
    for other in ax.get_shared_x_axes().get_siblings(ax):
        for drawn in other.containers:
            outcomes = getattr(drawn, "outcomes", None)
            if outcomes is not None and (other is ax or outcomes != _outcomes(bars)):
                where = "ax has bars" if other is ax else "ax shares its x axis with axes that have bars"
                raise ValueError(
                    f"{where} of outcomes already, and the new ones would stand at their places: give axes of their "
                    "own, as of matplotlib.pyplot.subplots(1, 2), or clear these with ax.clear()"
                )


def _outcomes(bars: Bars) -> tuple[str, ...]:
    return (*bars.labels, bars.others if bars.rest > 0 else "")


def figure_size(bars: Bars) -> tuple[float, float]:
    """Return width and height in inches for bars and the labels below them."""
    width = min(12.0, max(6.4, 0.25 * len(bars.labels) + 0.5))
    longest = min(max([len(label) for label in bars.labels] + [20 if bars.others else 0]), _LONGEST_LABEL)
    return width, 4.0 + max(0.0, longest - 8) * _CHARACTER / 72


def draw(ax: Any, bars: Bars, colours: Any = BLUE, edge: str = "none", share: float = 0.95) -> None:
    """Draw the bars and label as many outcomes as there is room for, the largest first.

    `share` is the part of the width that the axes keep when the figure has been laid out.
    """
    count = len(bars.labels)
    shows_rest = bool(bars.others) and bars.rest > 0
    places = list(range(count)) + ([count + 1] if shows_rest else [])
    thin = 0.6 if count <= 64 else 0.3
    drawn = ax.bar(range(count), bars.heights, width=0.8, color=colours, edgecolor=edge, linewidth=thin)
    drawn.outcomes = _outcomes(bars)  # so that these axes take no others
    last = places[-1] if places else 0
    margin = max(0.7, (_FEWEST_WIDTHS - last) / 2)
    labelled, rotation = _labelled(bars, share * _width(ax) / (last + 2 * margin))
    texts = [_shortened(bars.labels[place]) for place in labelled]
    if shows_rest:
        labelled, texts = [*labelled, count + 1], [*texts, (": " if rotation else "\n").join(_rest_words(bars))]
        _draw_rest(ax, count + 1, bars)
    ax.set_xticks(labelled, texts, rotation=rotation, family="monospace", fontsize=_FONT_SIZE)
    ax.tick_params(axis="x", length=2)
    ax.set_xlim(-margin, last + margin)
    if not places:
        ax.set_yticks([])
        ax.text(0.5, 0.5, "nothing to show", transform=ax.transAxes, ha="center", color="#555555")
    ax.set_xlabel("outcome")
    for side in ("top", "right"):
        ax.spines[side].set_visible(False)


def _rest_words(bars: Bars) -> tuple[str, str]:
    written = f"{bars.rest:.3g}" if isinstance(bars.rest, float) else str(bars.rest)
    return bars.others, written


def _draw_rest(ax: Any, place: int, bars: Bars) -> None:
    # A rest that dwarfs the bars is cut off not far above them; its number is told below it either way.
    ceiling = 1.15 * max(bars.heights)
    ax.bar([place], [min(bars.rest, ceiling)], width=0.8, color="none", edgecolor=GREY, hatch="////", linewidth=0.6)
    if bars.rest > ceiling:
        ax.annotate(
            "\N{UPWARDS ARROW}",
            (place, ceiling),
            xytext=(0, 1),
            textcoords="offset points",
            ha="center",
            fontsize=_FONT_SIZE,
            color="#555555",
        )
    ax.set_ylim(0, 1.1 * max(max(bars.heights), min(bars.rest, ceiling)))


def _labelled(bars: Bars, pitch: float) -> tuple[list[int], int]:
    """Return which bars, `pitch` points apart, get a label, and by how many degrees labels are turned."""
    count = len(bars.labels)
    if count == 0:
        return [], 0
    longest = max(len(text) for text in [*map(_shortened, bars.labels), *(_rest_words(bars) if bars.others else ())])
    if (longest + 1) * _CHARACTER <= pitch:
        return list(range(count)), 0
    if pitch >= _LINE:
        return list(range(count)), 90
    # Not all fit: the largest bars first, each where no label is too near.
    gap = _LINE / pitch
    chosen: list[int] = []
    for place in sorted(range(count), key=lambda place: (-bars.heights[place], place)):
        if all(abs(place - other) >= gap for other in chosen):
            chosen.append(place)
        if len(chosen) == LARGEST:
            break
    return sorted(chosen), 90


def _shortened(label: str) -> str:
    if len(label) <= _LONGEST_LABEL:
        return label
    half = (_LONGEST_LABEL - 1) // 2
    return f"{label[:half]}…{label[-half:]}"


def _width(ax: Any) -> float:
    """Return the width of the axes in points."""
    figure = ax.figure
    return float(ax.get_position().width * figure.get_size_inches()[0] * 72)
