"""Reads OpenQASM 2 and 3 from files and texts."""

from __future__ import annotations

import gc
import os
import re
import warnings
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

from ..basics.future import level_of_caller
from . import files, program3
from .errors import QasmError, fail
from .meaning import MOST_INSTRUCTIONS, Parts
from .program import Program
from .source import Source, Token
from .syntax import Statements
from .syntax3 import Syntax

# Blanks and comments are taken once and for all: tried again cut shorter, a line of slashes would take for ever.
_VERSION = re.compile(r"\ufeff?(?>\s|//[^\r\n]*|/\*.*?\*/)*+OPENQASM\s+([0-9]+)", re.DOTALL)

# Far more than anyone writes, and few enough for Python's own stack.
_DEEPEST_INCLUDE = 50

# Fifty that include each other twice would be read as often as no one can wait for.
_MOST_FILES = 10_000


def read_program(source: str | os.PathLike[str], most_instructions: int = MOST_INSTRUCTIONS, version: int = 2) -> Parts:
    """Return registers and instructions of an OpenQASM program; see `Circuit.from_qasm` and `Circuit.from_qasm3`.

    >>> read_program("OPENQASM 2.0; qreg q[1]; U(0,0,0) q[0];").registers
    (Register(name='q', kind='quantum', start=0, size=1),)
    """
    return read(*files.given(source), version, most_instructions)


def read(text: str, path: Path | None, version: int, most_instructions: int = MOST_INSTRUCTIONS) -> Parts:
    """Return registers and instructions of a text, which stands in that file if a path is given."""
    reading = _Files(version, most_instructions)
    parts = reading.read(text, path)
    if reading.lacks_version:
        told = QasmError('there is no "OPENQASM 2.0;" in front; it is read as such', line=1, column=1, path=_name(path))
        warnings.warn(str(told), stacklevel=level_of_caller())
    return parts


def version_of(text: str) -> int:
    r"""Return the version of the language that a text says to be written in, 2 if it says nothing.

    >>> version_of("// the second try\nOPENQASM 3.0; qubit q;"), version_of("qreg q[1];")
    (3, 2)
    """
    found = _VERSION.match(text)
    return 3 if found is not None and found[1] == "3" else 2


class _Files:
    """The files of one program while they are read, the innermost last."""

    def __init__(self, version: int, most_instructions: int) -> None:
        self._version = version
        self._program: Any = (Program if version == 2 else program3.Program)(self._include, most_instructions)
        self._open: list[Path | None] = []
        self._files_left = _MOST_FILES
        self._bytes_left = files.MOST_BYTES
        self.lacks_version = False

    def read(self, text: str, path: Path | None) -> Parts:
        with _without_collections():
            self._run(text, path)
            parts: Parts = self._program.parts()
        return parts

    def _run(self, text: str, path: Path | None) -> None:
        source = Source(text, _name(path), self._version)
        statements: Any = Statements(source) if self._version == 2 else Syntax(source)
        listed = statements.read()
        if self._version == 2 and statements.version is None and not self._open:
            if not listed:
                raise QasmError('the first statement must be "OPENQASM 2.0;"', line=1, column=1, path=_name(path))
            self.lacks_version = True
        self._open.append(path)
        self._program.run(listed)
        self._open.pop()

    def _include(self, quoted: Token) -> None:
        including = self._open[-1]
        folder = Path() if including is None else including.parent
        path = folder / quoted[1:-1]
        if len(self._open) >= _DEEPEST_INCLUDE:
            fail(f"more than {_DEEPEST_INCLUDE} files include each other", quoted)
        self._files_left -= 1
        if self._files_left < 0:
            fail(f"the program includes more than {_MOST_FILES} files", quoted)
        try:
            # Neither a folder nor a pipe or device, which might never end.
            if not path.is_file():
                fail("no such file", quoted)
            for other in self._open:
                if other is not None and other.samefile(path):
                    fail("a file includes itself, directly or through others", quoted)
            text = files.text_of(path)
        except QasmError:
            raise
        except (OSError, ValueError) as error:  # ValueError: a name with a zero byte
            fail(f"the file cannot be read: {getattr(error, 'strerror', error)}", quoted)
        self._bytes_left -= len(text)
        if self._bytes_left < 0:
            fail(f"the program includes more than {files.MOST_BYTES // 2**20} MiB", quoted)
        self._run(text, path)


@contextmanager
def _without_collections() -> Iterator[None]:
    # Reading makes millions of objects and no circles. Looking for circles among them takes longer than reading.
    was_enabled = gc.isenabled()
    gc.disable()
    try:
        yield
    finally:
        if was_enabled:
            gc.enable()


def _name(path: Path | None) -> str | None:
    return None if path is None else str(path)
