"""The text of one file, and pieces of it that know where they stand."""

from __future__ import annotations

import re

# A comment may stand anywhere but in quotes.
_QUOTED_OR_COMMENT = re.compile(r'"[^"\r\n]*"|//[^\r\n]*')
# One without end goes to the end, and stays there to be told.
_QUOTED_OR_COMMENT_3 = re.compile(r'"[^"\r\n]*"|//[^\r\n]*|/\*.*?(?:\*/|(?P<open>\Z))', re.DOTALL)
_NO_LINE_END = re.compile(r"[^\r\n]")


class Token(str):
    """A piece of a program: its text, and where it begins."""

    source: Source
    offset: int

    def __new__(cls, source: Source, start: int, end: int) -> Token:
        token = super().__new__(cls, source.text[start:end])
        token.source = source
        token.offset = start
        return token

    def __reduce__(self) -> tuple[type, tuple[str]]:
        return (str, (str(self),))

    @property
    def place(self) -> tuple[int, int]:
        """Line and column, both counted from 1."""
        return self.source.place(self.offset)


class Source:
    """One file or text.

    Attributes
    ----------
    text : str
        Without comments; what is left stands at the same line and column as before.
    path : str or None
    """

    __slots__ = ("text", "path")

    def __init__(self, text: str, path: str | None = None, version: int = 2) -> None:
        if "//" in text or "/*" in text:
            comments = _QUOTED_OR_COMMENT if version == 2 else _QUOTED_OR_COMMENT_3
            text = comments.sub(_blanked, text)
        self.text = text
        self.path = path

    def place(self, offset: int) -> tuple[int, int]:
        """Return line and column of an offset, both counted from 1."""
        line_start = self.text.rfind("\n", 0, offset) + 1
        return self.text.count("\n", 0, offset) + 1, offset - line_start + 1


def _blanked(found: re.Match[str]) -> str:
    is_kept = found[0][0] == '"' or found.lastgroup == "open"
    return found[0] if is_kept else _NO_LINE_END.sub(" ", found[0])
