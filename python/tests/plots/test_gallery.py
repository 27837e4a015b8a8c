"""Every kind of picture, in a journal's column and at its own size: all of it is inside, and nothing overlaps."""

import itertools

import pytest
from pictures import ENTRIES, NARROW, WIDE, drawn

matplotlib = pytest.importorskip("matplotlib")
matplotlib.use("Agg")
from matplotlib import text  # noqa: E402


def shown_texts(figure):
    """Every text that can be seen."""
    figure.canvas.draw()
    unseen = set()  # labels of ticks beyond the ends of an axis
    for ax in figure.axes:
        for axis in (ax.xaxis, ax.yaxis):
            low, high = sorted(axis.get_view_interval())
            for tick in [*axis.get_major_ticks(), *axis.get_minor_ticks()]:
                if not ax.axison or not low - 1e-9 <= tick.get_loc() <= high + 1e-9:
                    unseen |= {tick.label1, tick.label2}
    texts = [part for part in figure.findobj(text.Text) if part.get_visible() and part.get_text().strip()]
    return [part for part in texts if part not in unseen and (part.axes is None or part.axes.axison or part in part.axes.texts)]


# Two thousand bars take a second, so they are looked at where they have the least room.
CASES = [(entry, size) for entry in ENTRIES for size in (NARROW, WIDE) if size is NARROW or "top=2000" not in entry.call]


@pytest.mark.parametrize(
    ("entry", "size"), CASES, ids=[f"{e.section}, {e.name}, {'wide' if size is WIDE else 'narrow'}" for e, size in CASES]
)
def test_it_can_be_read(entry, size):
    figure = drawn(entry, size)
    if size is not None and entry.section != "Circuits":
        assert tuple(figure.get_size_inches()) == size
    whole, point = figure.bbox, figure.dpi / 72
    shown = shown_texts(figure)
    texts = [(part.get_text(), part.get_window_extent()) for part in shown]
    assert texts
    for words, box in texts:
        assert whole.x0 - 1 <= box.x0 and box.x1 <= whole.x1 + 1, words
        assert whole.y0 - 1 <= box.y0 and box.y1 <= whole.y1 + 1, words
    for (one, box), (two, other) in itertools.combinations(texts, 2):
        # The extent of a text has the room for all letters; a point of it may be shared.
        apart_x = box.x1 - point <= other.x0 + point or other.x1 - point <= box.x0 + point
        apart_y = box.y1 - point <= other.y0 + point or other.y1 - point <= box.y0 + point
        assert apart_x or apart_y, (one, two)
    assert not [ax.get_title(loc) for ax in figure.axes for loc in ("left", "center", "right") if ax.get_title(loc)]
    sizes = {part.get_fontsize() for part in shown}
    assert 4.5 <= min(sizes) and max(sizes) <= 8
