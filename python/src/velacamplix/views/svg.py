"""Pictures as SVG, written by hand."""

from __future__ import annotations

from html import escape

from .shapes import LETTERS, Box, Circle, Frame, Line, Picture, Text

__all__ = ["SvgDrawing", "write_svg"]

#: Pixels for a point: letters of gates have 12.
SCALE = 1.5

# Within a page everything has the colour of the text around it, light or dark. As a file of its own the picture cannot
# know what it will lie upon, so it brings its paper.
_STYLE = "svg:root{background:white;color:black}"
_FONT = "Helvetica,Arial,'DejaVu Sans',sans-serif"
_STROKES = {
    "wire": 'stroke-width="0.7"',
    "link": 'stroke-width="0.9"',
    "symbol": 'stroke-width="0.9"',
    "barrier": 'stroke-width="0.9" stroke-dasharray="2 2" stroke-opacity="0.7"',
}
# Light enough for dark letters, dark enough for light ones, and told apart by those who see fewer colours: Okabe and Ito.
_FILLS = {"gate": "#56b4e9", "definition": "#e69f00", "other": "#999999"}
_FRAME = "#009e73"


class SvgDrawing(str):
    """The text of an SVG file, which notebooks show as a picture. Only the characters of ASCII are in it."""

    def __repr__(self) -> str:
        return f"<SVG drawing of {len(self)} characters>"

    def _repr_svg_(self) -> str:
        return str(self)

    def _repr_html_(self) -> str:
        # In the page itself it has the colours of the page.
        return f'<div style="overflow-x:auto">{self}</div>'


def write_svg(picture: Picture, says: str) -> SvgDrawing:
    """Return a picture as an SVG file; `says` tells those who cannot see it what it shows."""
    size = [_number(SCALE * length) for length in (picture.width, picture.height)]
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{size[0]}" height="{size[1]}" '
        f'viewBox="0 0 {_number(picture.width)} {_number(picture.height)}" role="img" aria-label="{escape(says)}">',
        f"<style>{_STYLE}</style>",
    ]
    strokes: dict[str, list[str]] = {kind: [] for kind in _STROKES}
    frames: list[str] = []
    boxes: dict[str, list[str]] = {kind: [] for kind in _FILLS}
    dots: list[str] = []
    texts: list[str] = []
    for shape in picture.shapes:
        if isinstance(shape, Line):
            strokes[shape.kind].append("M{} {}L{} {}".format(*map(_number, shape[:4])))
        elif isinstance(shape, (Box, Frame)):
            rectangle = '<rect x="{}" y="{}" width="{}" height="{}" rx="1.5"/>'.format(*map(_number, shape[:4]))
            (boxes[shape.kind] if isinstance(shape, Box) else frames).append(rectangle)
        elif isinstance(shape, Text):
            texts.append(_text(shape))
        elif shape.kind == "dot":
            dots.append('<circle cx="{}" cy="{}" r="{}"/>'.format(*map(_number, shape[:3])))
        else:
            strokes["symbol"].append(_arcs(shape))
    dashed = 'stroke="currentColor" stroke-width="0.5" stroke-dasharray="2 2"'
    parts += _group(f'fill="{_FRAME}" fill-opacity="0.12" {dashed}', frames)
    for kind, fill in _FILLS.items():
        # The fill lets what is behind the picture shine through, and so suits light and dark.
        attributes = f'fill="{fill}" fill-opacity="0.25" stroke="currentColor" stroke-width="0.7"'
        parts += _group(attributes, boxes[kind])
    for kind, stroke in _STROKES.items():
        if strokes[kind]:
            parts.append(f'<path fill="none" stroke="currentColor" {stroke} d="{"".join(strokes[kind])}"/>')
    parts += _group('fill="currentColor"', dots)
    parts += _group(f'fill="currentColor" font-family="{_FONT}" font-size="{_number(LETTERS)}"', texts)
    parts.append("</svg>")
    return SvgDrawing("\n".join(parts).encode("ascii", "xmlcharrefreplace").decode())


def _group(attributes: str, elements: list[str]) -> list[str]:
    return [f"<g {attributes}>", *elements, "</g>"] if elements else []


def _arcs(circle: Circle) -> str:
    y, radius = _number(circle.y), _number(circle.radius)
    left, right = _number(circle.x - circle.radius), _number(circle.x + circle.radius)
    upper = f"M{left} {y}A{radius} {radius} 0 0 1 {right} {y}"
    return upper if circle.kind == "arc" else f"{upper}A{radius} {radius} 0 0 1 {left} {y}Z"


def _text(text: Text) -> str:
    size = f' font-size="{_number(text.size)}"' if text.size != LETTERS else ""
    # Lower by a third of a letter, so that its middle is where it should be: not every reader knows baselines.
    place = f'x="{_number(text.x)}" y="{_number(text.y + 0.35 * text.size)}"'
    return f'<text {place} text-anchor="{text.anchor}"{size}>{escape(text.text)}</text>'


def _number(value: float) -> str:
    return f"{round(value, 2):g}"
