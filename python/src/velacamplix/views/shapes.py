"""Circuits as lines, boxes and texts at places: what a picture is painted from, whatever paints it.

Lengths are in points, y grows downward.
"""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import NamedTuple
from unicodedata import east_asian_width

from ..instructions.instruction import Instruction, Register
from . import layout
from .layout import Item, Mark

#: Sizes of letters: of gates, of what is written small.
LETTERS, SMALL = 8.0, 6.5
#: No picture is higher: the largest page of a PDF file.
MOST_HEIGHT = 14_400.0
#: Lines of qubits beyond which there is no picture.
MOST_LINES = 500

# From line to line, the height of a box; a box's air beside its text, a column's beside its boxes; around the picture.
_PITCH, _BOX, _AIR, _GAP, _MARGIN = 25.0, 18.0, 4.0, 4.0, 3.0
_BETWEEN = 12.0
_DOT, _OPEN, _RING, _CROSS, _METER, _BAR = 2.2, 2.8, 5.0, 3.4, 5.5, 5.0


class Line(NamedTuple):
    """From point to point; `kind` is "wire", "link", "barrier" or "symbol"."""

    x0: float
    y0: float
    x1: float
    y1: float
    kind: str


class Box(NamedTuple):
    """Of a "gate", of a gate's "definition", or of something "other"."""

    left: float
    top: float
    width: float
    height: float
    kind: str


class Frame(NamedTuple):
    """Around what stands inside of a decision or a loop; the only shape that others lie upon."""

    left: float
    top: float
    width: float
    height: float


class Circle(NamedTuple):
    """A "dot", a "ring", or the upper half of one, an "arc"."""

    x: float
    y: float
    radius: float
    kind: str


class Text(NamedTuple):
    """Its middle is at the height `y`; `x` is its "start", "middle" or "end"."""

    x: float
    y: float
    text: str
    size: float
    anchor: str = "middle"

    @property
    def width(self) -> float:
        """How much room is kept for it."""
        return text_width(self.text, self.size)


Shape = Frame | Line | Box | Circle | Text


class Picture(NamedTuple):
    """The size, and what is to be painted: first the frames, large ones before what lies in them, then all else."""

    width: float
    height: float
    shapes: list[Shape]


_WIDTHS = {
    letter: width
    for letters, width in (
        ("'ijlIJ ,./:;\\|", 0.35), ("f-()[]t!r", 0.41), ('"*_`szc?', 0.55), ("ABCHKNRUVXZ", 0.75), ("#+<=>^~&wDGOQ", 0.84),
        ("mMW%@", 1.0),
    )
    for letter in letters
}  # fmt: skip


def text_width(text: str, size: float) -> float:
    """Return how wide a text of letters without serifs is at most, whichever usual font is there."""
    return size * sum(_WIDTHS.get(c, 0.64 if c.isascii() else 0.84 if east_asian_width(c) in "NaANHn" else 1.05) for c in text)


def picture(
    n_qubits: int, registers: Sequence[Register], instructions: Sequence[Instruction], width: float, idle: bool = True
) -> Picture:
    """Return the picture of a circuit, not wider than `width` unless a single column is.

    Raises
    ------
    ValueError
        If it would have more than `MOST_LINES` lines.
    """
    shown = layout.shown_qubits(n_qubits, instructions, idle)
    if len(shown) > MOST_LINES:
        cure = "idle=False leaves out those that no instruction touches; " if idle else ""
        raise ValueError(
            f"circuit must have at most {MOST_LINES} qubits for a picture, got {len(shown)} to be shown; {cure}"
            "draw() without \"svg\" writes text"
        )
    columns, drawn = layout.columns(n_qubits, shown, registers, instructions)
    names = layout.names(registers, "quantum")
    row_of = {q: row for row, q in enumerate(shown)}
    placed = [[_parts(item, row_of) for item in column] for column in columns]
    widths = [max(part.width for parts in items for part in parts) + 2 * _GAP for items in placed]
    left = _MARGIN + max([text_width(names[q], LETTERS) for q in shown], default=0.0) + _GAP
    blocks = _blocks(widths, width - left - _GAP - _MARGIN)
    height = _PITCH * len(shown) + _BETWEEN
    n_blocks = max(1, int((MOST_HEIGHT - 2 * _PITCH) // height))  # two more lines are notes
    cut_off = [parts[0] for block in blocks[n_blocks:] for at in block for parts in placed[at]]
    left_out = len(instructions) - drawn + sum(part.mark.kind != "brace" for part in cut_off)
    del blocks[n_blocks:]
    longest = left + _GAP + max(sum(widths[at] for at in block) for block in blocks)

    shapes: list[Shape] = []
    bodies: dict[int, list[_Body]] = {}
    for number, block in enumerate(blocks):
        top, x = _MARGIN + number * height, left + _GAP
        covered: list[list[float]] = [[left] for _ in shown]  # where a wire begins, and where it is cut out of boxes
        for at in block:
            x += widths[at]
            for parts in placed[at]:
                shapes.extend(_shapes(parts, x - widths[at] / 2, top, covered))
                if parts[0].mark.kind == "brace":
                    shapes.extend(_frames(parts, x - widths[at] / 2, top, bodies))
        end = x if number + 1 == len(blocks) else longest
        for body in [body for nested in bodies.values() for body in nested]:
            shapes.append(body.frame(end, top))
            body.start = left
        for row, q in enumerate(shown):
            y = _middle(top, row)
            shapes.append(Text(left - _GAP, y, names[q], LETTERS, "end"))
            ends = [*covered[row], end]
            shapes.extend(Line(start, y, stop, y, "wire") for start, stop in zip(ends[::2], ends[1::2]))
    bottom = _MARGIN + len(blocks) * height - _BETWEEN
    for words in (layout.phase_note(registers, instructions), f"({left_out} more instructions)" if left_out else ""):
        if words:
            note = Text(_MARGIN, bottom + _PITCH / 2, words, LETTERS, "start")
            shapes.append(note)
            longest, bottom = max(longest, note.x + note.width), bottom + _PITCH
    shapes.sort(key=lambda shape: -shape.width * shape.height if isinstance(shape, Frame) else 0.0)
    return Picture(longest + _MARGIN, bottom + _MARGIN, shapes)


def _shapes(parts: Sequence[_Part], x: float, top: float, covered: Sequence[list[float]]) -> Iterator[Shape]:
    """Paint an instruction whose middle is at `x`, and note what its boxes cover of the wires."""
    for part, following in zip(parts, [*parts[1:], None]):
        yield from _part_shapes(part, x, top)
        if part.is_hollow:
            half = part.width / 2 if part.is_box else _OPEN
            for row in range(part.first, part.last + 1):
                covered[row] += [x - half, x + half]
        if following is not None and part.mark.kind not in ("barrier", "measure", "reset", "save"):
            start = _middle(top, part.last) + part.half_height
            stop = _middle(top, following.first) - following.half_height
            yield Line(x, start, x, stop, "link")


class _Body:
    """Where the frame around instructions begins, and its first and last line."""

    def __init__(self, start: float, first: int, last: int) -> None:
        self.start, self.first, self.last = start, first, last

    def frame(self, end: float, top: float) -> Frame:
        upper, lower = _middle(top, self.first) - _PITCH / 2 + 1.0, _middle(top, self.last) + _PITCH / 2 - 1.0
        return Frame(self.start, upper, end - self.start, lower - upper)


def _frames(parts: Sequence[_Part], x: float, top: float, bodies: dict[int, list[_Body]]) -> Iterator[Frame]:
    """Paint the frame that a brace ends, and note the one that it begins. Those on one first line lie in each other."""
    brace, nested = parts[0], bodies.setdefault(parts[0].first, [])
    if brace.mark.text.startswith("}"):
        yield nested.pop().frame(x - brace.width / 2, top)
    if brace.mark.text.endswith("{"):
        nested.append(_Body(x + brace.width / 2, brace.first, parts[-1].last))


def _part_shapes(part: _Part, x: float, top: float) -> Iterator[Shape]:
    mark, y = part.mark, (_middle(top, part.first) + _middle(top, part.last)) / 2
    if mark.kind == "control":
        yield Circle(x, y, _DOT, "dot")
    elif mark.kind == "open":
        yield Circle(x, y, _OPEN, "ring")
    elif mark.kind == "flip":
        yield Circle(x, y, _RING, "ring")
        yield Line(x - _RING, y, x + _RING, y, "symbol")
        yield Line(x, y - _RING, x, y + _RING, "symbol")
    elif mark.kind == "exchange":
        yield Line(x - _CROSS, y - _CROSS, x + _CROSS, y + _CROSS, "symbol")
        yield Line(x - _CROSS, y + _CROSS, x + _CROSS, y - _CROSS, "symbol")
    elif mark.kind == "barrier":
        yield Line(x, y - _PITCH / 2, x, y + _PITCH / 2, "barrier")
    else:
        yield from _box_shapes(part, x, y, top)


def _box_shapes(part: _Part, x: float, y: float, top: float) -> Iterator[Shape]:
    mark, left = part.mark, x - part.width / 2
    kind = "other" if mark.kind != "box" else "definition" if part.is_definition else "gate"
    yield Box(left, _middle(top, part.first) - _BOX / 2, part.width, _PITCH * (part.last - part.first) + _BOX, kind)
    for row, place in part.places:
        yield Text(left + 2.0, _middle(top, row), str(place), SMALL, "start")
    upper = y - 3.8 if mark.when else y
    if mark.kind == "measure":
        # A meter: the scale, and a needle that goes beyond it.
        meter = x - (part.before + text_width(mark.text, LETTERS)) / 2 + _METER
        yield Circle(meter, upper + 3.0, _METER, "arc")
        yield Line(meter, upper + 3.0, meter + 4.0, upper - 4.0, "symbol")
    if part.text:
        yield Text(x + part.before / 2, upper, part.text, LETTERS)
    if mark.when:
        yield Text(x, y + 4.4, f"if {mark.when}", SMALL)


def _middle(top: float, row: int) -> float:
    return top + _PITCH * (row + 0.5)


class _Part(NamedTuple):
    """Marks of one instruction on neighbouring lines, which are painted as one thing; the gate's qubit on each line."""

    mark: Mark
    first: int
    last: int
    places: list[tuple[int, int]]
    is_definition: bool

    @property
    def text(self) -> str:
        """What is written. Where braces are in the text, frames are in the picture."""
        if self.mark.kind == "brace":
            return self.mark.text.strip("{} ")
        return "|0\u27e9" if self.mark.kind == "reset" else self.mark.text

    @property
    def is_box(self) -> bool:
        return self.mark.kind in ("box", "channel", "measure", "reset", "save", "brace")

    @property
    def is_hollow(self) -> bool:
        """Whether no line may be seen inside."""
        return self.is_box or self.mark.kind == "open"

    @property
    def half_height(self) -> float:
        """From the middle of its first or last line to where a connection ends."""
        return _BOX / 2 if self.is_box else _OPEN if self.mark.kind == "open" else 0.0

    @property
    def width(self) -> float:
        kind, text, when = self.mark.kind, self.text, self.mark.when
        if kind == "brace" and not text:
            return _BAR
        if kind in ("control", "open", "barrier", "exchange"):
            return 2 * _CROSS
        if kind == "flip":
            return 2 * _RING
        written = text_width(text, LETTERS) + self.before
        return max(_BOX, max(written, text_width(f"if {when}", SMALL) if when else 0.0) + 2 * _AIR)

    @property
    def before(self) -> float:
        """What stands before the text in a box: the meter of a measurement, the numbers of qubits."""
        if self.mark.kind == "measure":
            return 2 * _METER + 3.0
        return text_width(str(max(place for _, place in self.places)), SMALL) + 2.0 if self.places else 0.0


def _parts(item: Item, row_of: dict[int, int]) -> list[_Part]:
    parts: list[_Part] = []
    for q in sorted(item.marks):
        mark, row = item.marks[q], row_of[q]
        places = [] if mark.place is None else [(row, mark.place)]
        before = parts[-1] if parts else None
        if before and mark.kind == before.mark.kind and mark.kind in ("box", "channel", "brace") and before.last == row - 1:
            parts[-1] = before._replace(last=row, places=before.places + places)
        else:
            parts.append(_Part(mark, row, row, places, item.is_definition))
    return parts


def _blocks(widths: Sequence[float], room: float) -> list[range]:
    """Cut the columns into stretches that fit one under the other."""
    starts, used = [0], 0.0
    for at, width in enumerate(widths):
        if at > starts[-1] and used + width > room:
            starts.append(at)
            used = 0.0
        used += width
    return [range(start, stop) for start, stop in zip(starts, [*starts[1:], len(widths)])]
