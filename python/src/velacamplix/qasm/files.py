"""Gets the text of a program: given as it is, or in a file of any kind and length."""

from __future__ import annotations

import select
from pathlib import Path
from typing import Any

from ..basics import checks
from .errors import QasmError

#: More bytes than ten million instructions take. What is longer is no program but, perhaps, a device without end.
MOST_BYTES = 2**29

_PIECE = 2**20


def given(source: Any) -> tuple[str, Path | None]:
    """Return the text of a program, and the path if `source` names a file.

    Raises
    ------
    QasmError
        If there are more than `MOST_BYTES`.
    OSError, TypeError
        If the file cannot be read, or `source` is neither text nor path.
    """
    if isinstance(source, str):
        source = checks.plain(source)
        if _is_program(source):
            return without_mark(source), None
    try:
        path = Path(source)
    except TypeError:
        raise TypeError(f"path_or_text must be a str or a path, got {type(source).__name__}") from None
    return text_of(path), path


def text_of(path: Path) -> str:
    """Return the text of a file."""
    with open(path, "rb", buffering=0) as file:
        return decoded(file, str(path))


def decoded(file: Any, name: str) -> str:
    """Return what can be read from a binary file that is open."""
    data = bytearray()
    while True:
        piece = file.read(_PIECE)
        if piece is None:  # nothing yet, and the stream does not wait by itself
            select.select([file], [], [])
            continue
        if not piece:
            break
        data += piece
        if len(data) > MOST_BYTES:
            message = f"a program has at most {MOST_BYTES // 2**20} MiB, and this goes on"
            raise QasmError(message, line=1, column=1, path=name)
    # A comment may be in any encoding. Bytes that are not UTF-8 become a character that is refused anywhere else.
    return without_mark(data.decode("utf-8", errors="replace"))


def without_mark(text: str) -> str:
    """Return a text without the byte order mark that some editors put in front."""
    return text[1:] if text.startswith("\ufeff") else text


def _is_program(source: str) -> bool:
    return not without_mark(source).strip() or any(mark in source for mark in ("OPENQASM", ";", "\n"))
