"""Bars over bit strings that stay readable, be they two or thousands, of one data set or several side by side."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence
from typing import Any, NamedTuple

from ..basics import checks, extras
from ..basics.words import counted
from ..views.shapes import text_width

# Up to so many outcomes are all drawn; of more only the largest, when the caller names no number.
MOST_BARS, LARGEST = 256, 32

#: Told apart by those who see fewer colours too, and most of them in grey: the palette of Okabe and Ito.
PALETTE = ("#0072b2", "#e69f00", "#009e73", "#d55e00", "#56b4e9", "#cc79a7", "#999999", "#f0e442")
GREY, DARK_GREY, BLACK = "#9a9a9a", "#555555", "#000000"
#: Points, in all pictures.
FONT_SIZE = 8.0
# Width of a character and height of a line of the labels' font, in points, with some air.
_CHARACTER, _LINE = 0.61 * FONT_SIZE, 1.3 * FONT_SIZE
_LONGEST_LABEL = 40
# The part of a figure's height that turned labels may take, and how long they may be wherever they stand.
_LABELS_SHARE, _SHORTEST_LABEL = 0.4, 7
# A few bars are not made wider than if there were so many.
_FEWEST_WIDTHS = 5.0


class Data(NamedTuple):
    """One data set: values by outcome, all that are not zero, or only the largest where `is_all` is false.

    `total` is the sum of all; `ask` gives the value of an outcome that is not in `values`, and `error` the standard error
    of any.
    """

    values: Mapping[str, float]
    total: float
    is_all: bool = True
    ask: Callable[[str], float] | None = None
    error: Callable[[str], float] | None = None

    def value(self, outcome: str) -> float:
        """Return the value of any outcome."""
        known = self.values.get(outcome)
        if known is None:
            return self.ask(outcome) if self.ask else 0
        return known


class Bars(NamedTuple):
    """What is drawn: outcomes, and for each data set their heights and what all others have together.

    `others` names them, and is empty if there are none.
    """

    labels: list[str]
    heights: list[list[float]]
    others: str
    rests: list[float]
    errors: list[list[float]] | None = None

    @classmethod
    def of(cls, data: Sequence[Data], top: int | None = None, outcomes: Sequence[str] | None = None) -> Bars:
        """Choose the given outcomes, or the `top` largest or as many as are readable in the order of their numbers."""
        kept = list(outcomes) if outcomes is not None else _largest(data, top)
        known = {outcome for values, *_ in data for outcome in values}
        n_others = len(known.difference(kept))
        is_all = all(one.is_all for one in data)
        heights = [[one.value(outcome) for outcome in kept] for one in data]
        has_others = n_others > 0 or not is_all
        rests = [max(one.total - sum(shown), 0) if has_others else 0 for one, shown in zip(data, heights)]
        # How many others are possible nobody has counted where some were not looked at.
        others = (counted(n_others, "other") if is_all else "others") if any(rests) else ""
        errors = [[one.error(outcome) if one.error else 0.0 for outcome in kept] for one in data]
        return cls(kept, heights, others, rests, errors if any(one.error for one in data) else None)


def _largest(data: Sequence[Data], top: int | None) -> list[str]:
    """Return the outcomes that have the largest shares of a data set, in the order of their numbers."""
    shares: dict[str, float] = {}
    for one in data:
        for outcome, value in one.values.items():
            shares[outcome] = max(shares.get(outcome, 0.0), value / one.total)
    wanted = top if top is not None else (MOST_BARS if len(shares) <= MOST_BARS else LARGEST)
    return sorted(sorted(shares, key=lambda outcome: (-shares[outcome], outcome))[:wanted])


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
                    f"{where} of outcomes already, and the new ones would stand at their places: give all data sets in "
                    "one call, or axes of their own, as of matplotlib.pyplot.subplots(1, 2), or clear these with ax.clear()"
                )


def _outcomes(bars: Bars) -> tuple[str, ...]:
    return (*bars.labels, bars.others)


def figure_size(bars: Bars) -> tuple[float, float]:
    """Return width and height in inches for bars and the labels below them, or what the user has set for figures."""
    matplotlib = extras.imported("matplotlib", "a picture")
    size, usual = (tuple(settings["figure.figsize"]) for settings in (matplotlib.rcParams, matplotlib.rcParamsDefault))
    if size != usual:
        return size
    width = min(12.0, max(6.4, 0.25 * len(bars.labels) * min(len(bars.heights), 2) + 0.5))
    longest = min(max([len(label) for label in bars.labels] + [20 if bars.others else 0]), _LONGEST_LABEL)
    return width, 4.0 + max(0.0, longest - 8) * _CHARACTER / 72


def draw(
    ax: Any, bars: Bars, names: Sequence[str] = (), colours: Any = None, edge: str = "none", share: float = 0.95
) -> None:
    """Draw the bars and label as many outcomes as there is room for, the largest first.

    `names` are those of the data sets, for a legend. `colours` are those of the bars of a single set. `share` is the part
    of the width that the axes keep when the figure has been laid out.
    """
    count, n_sets = len(bars.labels), len(bars.heights)
    places = list(range(count)) + ([count + 1] if bars.others else [])
    thin = 0.6 if count <= 64 else 0.3
    wide = 0.8 / n_sets
    ceiling = 1.15 * max([max(heights, default=0) for heights in bars.heights]) or max(bars.rests)
    for number, heights in enumerate(bars.heights):
        shift = wide * (number - (n_sets - 1) / 2)
        colour = PALETTE[number] if colours is None else colours
        drawn = ax.bar(
            [place + shift for place in range(count)], heights, width=wide, color=colour, edgecolor=edge, linewidth=thin,
            label=names[number] if names else None,
        )  # fmt: skip
        drawn.outcomes = _outcomes(bars)  # so that these axes take no others
        if bars.errors is not None:
            _draw_errors(ax, [place + shift for place in range(count)], heights, bars.errors[number])
        if bars.others:
            _draw_rest(ax, count + 1 + shift, wide, bars.rests[number], ceiling, colour if n_sets > 1 else GREY)
    last = places[-1] if places else 0
    margin = max(0.7, (_FEWEST_WIDTHS - last) / 2)
    room = _room(ax)
    labelled, texts, rotation = _labels(bars, share * room.width / (last + 2 * margin), room.labels)
    if bars.others:
        labelled, texts = [*labelled, count + 1], [*texts, _rest_text(bars)]
    ax.set_xticks(labelled, texts, rotation=rotation, family="monospace", fontsize=FONT_SIZE)
    ax.tick_params(axis="x", length=2)
    ax.tick_params(axis="y", labelsize=FONT_SIZE)
    ax.set_xlim(-margin, last + margin)
    ax.set_ylim(0, 1.12 * ceiling if max(bars.rests) > ceiling else None if places else 1)
    if not places:
        ax.set_yticks([])
        ax.text(0.5, 0.5, "nothing to show", transform=ax.transAxes, ha="center", color=DARK_GREY, size=FONT_SIZE)
    ax.set_xlabel("outcome", size=FONT_SIZE)
    ax.yaxis.label.set_size(FONT_SIZE)
    if names:
        _draw_legend(ax, names, room.legend)
    for side in ("top", "right"):
        ax.spines[side].set_visible(False)


def _draw_errors(ax: Any, places: Sequence[float], heights: Sequence[float], errors: Sequence[float]) -> None:
    known = [number for number, error in enumerate(errors) if error > 0]
    ax.errorbar(
        [places[number] for number in known],
        [heights[number] for number in known],
        [errors[number] for number in known],
        linestyle="none",
        ecolor=BLACK,
        elinewidth=0.8,
        capsize=1.5 if len(places) <= 64 else 0,
    )


def _draw_legend(ax: Any, names: Sequence[str], width: float) -> None:
    # Above, where no bar is; in as many columns as there is room for.
    columns = max(1, min(len(names), int(width / (max(text_width(name, FONT_SIZE) for name in names) + 3 * FONT_SIZE))))
    ax.legend(
        loc="lower right", bbox_to_anchor=(1, 1), ncols=columns, frameon=False, fontsize=FONT_SIZE, borderaxespad=0.2,
        handlelength=1.0, handletextpad=0.5, columnspacing=1.2,
    )  # fmt: skip


def _rest_text(bars: Bars) -> str:
    numbers = [f"{rest:.3g}" if isinstance(rest, float) else str(rest) for rest in bars.rests]
    return f"{bars.others}\n{', '.join(numbers)}"


def _draw_rest(ax: Any, place: float, width: float, rest: float, ceiling: float, colour: str) -> None:
    # A rest that dwarfs the bars is cut off not far above them; its number is told below it either way.
    ax.bar([place], [min(rest, ceiling)], width=width, color="none", edgecolor=colour, hatch="////", linewidth=0.6)
    if rest > ceiling:
        ax.annotate(
            "\N{UPWARDS ARROW}",
            (place, ceiling),
            xytext=(0, 1),
            textcoords="offset points",
            ha="center",
            fontsize=FONT_SIZE,
            color=DARK_GREY,
        )


def _labels(bars: Bars, pitch: float, longest: float) -> tuple[list[int], list[str], int]:
    """Return which bars, `pitch` points apart, get a label, the labels, and by how many degrees they are turned.

    Turned labels take `longest` points at most.
    """
    count = len(bars.labels)
    lying = [_shortened(label, _LONGEST_LABEL) for label in bars.labels]
    widest = max(map(len, [*lying, *(_rest_text(bars).splitlines() if bars.others else [])]), default=0)
    if (widest + 1) * _CHARACTER <= pitch or count == 0:
        return list(range(count)), lying, 0
    most = max(_SHORTEST_LABEL, int(longest / _CHARACTER))
    if pitch >= _LINE:
        return list(range(count)), [_in_lines(label, most, int(pitch / _LINE)) for label in bars.labels], 90
    # Not all fit: the largest bars first, each where no label is too near. What the others have takes two lines.
    heights = [max(column) for column in zip(*bars.heights)]
    gap, end = _LINE / pitch, count + 1 - 1.5 * _LINE / pitch if bars.others else count
    chosen: list[int] = []
    for place in sorted(range(count), key=lambda place: (-heights[place], place)):
        if place <= end and all(abs(place - other) >= gap for other in chosen):
            chosen.append(place)
        if len(chosen) == LARGEST:
            break
    chosen.sort()
    return chosen, [_shortened(bars.labels[place], most) for place in chosen], 90


def _in_lines(label: str, longest: int, lines: int) -> str:
    """Write a label in as many lines as it needs, or shorten it where it needs more than there are."""
    needed = -(-len(label) // longest)
    if needed > lines or len(label) > _LONGEST_LABEL:
        return _shortened(label, longest)
    length = -(-len(label) // max(needed, 1))
    return "\n".join(label[start : start + length] for start in range(0, len(label), length))


def _shortened(label: str, longest: int) -> str:
    if len(label) <= longest:
        return label
    half = (longest - 1) // 2
    return f"{label[:half]}…{label[-half:]}"


class _Room(NamedTuple):
    """What there is for bars, for labels that are turned, for the legend; in points."""

    width: float
    labels: float
    legend: float


def _room(ax: Any) -> _Room:
    inches, place = ax.figure.get_size_inches(), ax.get_position()
    grid = ax.get_subplotspec().get_gridspec() if ax.get_subplotspec() else None
    rows, columns = (grid.nrows, grid.ncols) if grid else (1, 1)
    width, height = 72 * float(inches[0]), 72 * float(inches[1])
    return _Room(place.width * width, _LABELS_SHARE * height / rows, 0.95 * width / columns)


def fits_beside(ax: Any, bars: Bars, text: str) -> bool:
    """Tell whether a text can stand beside the axes, turned, next to bars and their labels."""
    room = _room(ax)
    below = min(room.labels, _CHARACTER * max(map(len, bars.labels), default=0))
    return text_width(text, FONT_SIZE) <= room.labels / _LABELS_SHARE - below - 3 * _LINE
