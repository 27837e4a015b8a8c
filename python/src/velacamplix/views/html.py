"""Small HTML, without styles or scripts of the page's own: how objects show themselves in a notebook."""

from __future__ import annotations

import html
from collections.abc import Sequence

#: Rows of a table, qubits in a list.
ROWS = 12
_MONOSPACE = "font-family:monospace;text-align:left"
_PRE = "white-space:pre;overflow-x:auto;line-height:1.15;font-family:monospace"


def titled(title: str, body: str) -> str:
    """Return HTML under a line of text."""
    return f"<div><div>{html.escape(title)}</div>{body}</div>"


def line(text: str) -> str:
    """Return a line of text."""
    return f"<div>{html.escape(text)}</div>"


def pre(text: str) -> str:
    """Return a text that keeps its lines."""
    return f'<pre style="{_PRE}">{html.escape(text)}</pre>'


def code(text: str) -> str:
    """Return a text in letters of one width."""
    return f'<span style="{_MONOSPACE}">{html.escape(text)}</span>'


def bar(share: float) -> str:
    """Return a bar with its share of 1 behind it."""
    width = min(100.0, max(0.0, 100 * share))
    return (
        f'<div style="display:inline-block;width:8em;vertical-align:middle">'
        f'<div style="width:{width:.1f}%;min-width:1px;height:0.7em;background:#0072b2"></div></div> {share:.4f}'
    )


def table(titles: Sequence[str], rows: Sequence[tuple[str, ...]]) -> str:
    """Return a table; its cells are HTML already."""
    parts: list[str] = ["<table><thead><tr>"]
    parts += [f'<th style="text-align:left">{html.escape(title)}</th>' for title in titles]
    parts.append("</tr></thead><tbody>")
    for row in rows:
        parts.append("<tr>" + "".join(f'<td style="text-align:left">{cell}</td>' for cell in row) + "</tr>")
    parts.append("</tbody></table>")
    return "".join(parts)
