"""The one exception of the OpenQASM reader."""

from __future__ import annotations

from typing import Any, NoReturn

from .source import Token

_LONGEST_TEXT = 60


class QasmError(ValueError):
    """A program that is not OpenQASM, has no meaning, or cannot be carried out.

    Attributes
    ----------
    message : str
        What is wrong, without the place.
    line, column : int
        Where, both counted from 1.
    path : str or None
        The file, or None if the program was given as text.
    text : str
        The offending piece of the program, shortened if long. Empty at its end.

    >>> print(QasmError("unknown gate", line=3, column=1, path="a.qasm", text="foo"))
    a.qasm:3:1: unknown gate (at 'foo')
    """

    def __init__(
        self, message: str, *, line: int, column: int, path: str | None = None, text: str = ""
    ) -> None:
        super().__init__(message)
        self.message = message
        self.line = line
        self.column = column
        self.path = path
        self.text = shortened(text)

    def __str__(self) -> str:
        where = f"{self.path or '<text>'}:{self.line}:{self.column}"
        near = f" (at {self.text!r})" if self.text else ""
        return f"{where}: {self.message}{near}"

    def __reduce__(self) -> tuple[Any, ...]:
        # The default would call the constructor without its keywords.
        return (_restored, (self.message, self.line, self.column, self.path, self.text))


def fail(message: str, token: Token) -> NoReturn:
    """Raise a `QasmError` at a token."""
    line, column = token.place
    raise QasmError(message, line=line, column=column, path=token.source.path, text=token) from None


def shortened(text: str) -> str:
    """Return `text`, or its beginning if it is too long for a message."""
    return str(text) if len(text) <= _LONGEST_TEXT else text[: _LONGEST_TEXT - 3] + "..."


def quoted(text: str) -> str:
    """Return `text` in quotes for a message, shortened."""
    return repr(shortened(str(text)))


def _restored(message: str, line: int, column: int, path: str | None, text: str) -> QasmError:
    return QasmError(message, line=line, column=column, path=path, text=text)
