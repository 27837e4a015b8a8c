"""Reads OpenQASM 2 from files and texts."""

from __future__ import annotations

import gc
import os
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator, List, Optional, Union

from ..circuit import Circuit
from .errors import QasmError, fail
from .program import MOST_INSTRUCTIONS, Program
from .source import Source, Token
from .syntax import Statements

# Far more than anyone writes, and few enough for Python's own stack.
_DEEPEST_INCLUDE = 50


def read_qasm(
    source: Union[str, "os.PathLike[str]"], *, most_instructions: int = MOST_INSTRUCTIONS
) -> Circuit:
    """Read an OpenQASM 2 program into a circuit.

    Every gate of qelib1.inc becomes one instruction, with the global phase
    that makes its controlled forms right; other gates keep their definition.
    ``id`` and ``u0`` leave no instruction. Measurements, resets and conditions
    are kept as they stand: a statement on a whole register is one measure or
    reset of several qubits.

    Parameters
    ----------
    source : str or path
        A ``str`` that contains "OPENQASM", a semicolon or a line end (or is
        blank) is the program itself. Any other ``str``, and every path object,
        names a file. Files named by ``include`` are looked up beside the file
        that includes them, from a text in the current directory; qelib1.inc is
        built in.
    most_instructions : int
        A program that would expand to more raises `QasmError`, before it
        fills the memory.

    Raises
    ------
    QasmError
        If the program is wrong. Syntax comes first: a file is parsed to its
        end before the meaning of its statements is looked at.
    OSError
        If the file itself cannot be read. (An unreadable include is a `QasmError`.)
    TypeError
        If `source` is neither text nor path.

    Examples
    --------
    >>> circuit = read_qasm('''
    ...     OPENQASM 2.0;
    ...     include "qelib1.inc";
    ...     gate bell a, b { h a; cx a, b; }
    ...     qreg q[2];
    ...     creg c[2];
    ...     bell q[0], q[1];
    ...     measure q -> c;
    ... ''')
    >>> print(circuit)
    bell 0,1
    measure 0,1 -> 0,1
    """
    path: Optional[Path] = None
    if isinstance(source, str) and _is_program(source):
        text = source
    else:
        try:
            path = Path(source)
        except TypeError:
            kind = type(source).__name__
            raise TypeError(f"path_or_text must be a str or a path, got {kind}") from None
        text = _text_of(path)
    with _without_collections():
        return _Files(most_instructions).read(text, path)


class _Files:
    """The files of one program while they are read, the innermost last."""

    def __init__(self, most_instructions: int) -> None:
        self._program = Program(self._include, most_instructions)
        self._open: List[Optional[Path]] = []

    def read(self, text: str, path: Optional[Path]) -> Circuit:
        self._run(text, path)
        return self._program.circuit()

    def _run(self, text: str, path: Optional[Path]) -> None:
        statements = Statements(Source(text, None if path is None else str(path)))
        listed = statements.read()
        if statements.version is None and not self._open:
            shown = None if path is None else str(path)
            raise QasmError('the first statement must be "OPENQASM 2.0;"', line=1, column=1, path=shown)
        self._open.append(path)
        self._program.run(listed)
        self._open.pop()

    def _include(self, quoted: Token) -> None:
        including = self._open[-1]
        folder = Path() if including is None else including.parent
        path = folder / quoted[1:-1]
        if len(self._open) >= _DEEPEST_INCLUDE:
            fail(f"more than {_DEEPEST_INCLUDE} files include each other", quoted)
        try:
            # Neither a folder nor a pipe or device, which might never end.
            if not path.is_file():
                fail("no such file", quoted)
            for other in self._open:
                if other is not None and other.samefile(path):
                    fail("a file includes itself, directly or through others", quoted)
            text = _text_of(path)
        except QasmError:
            raise
        except (OSError, ValueError) as error:  # ValueError: a name with a zero byte
            fail(f"the file cannot be read: {getattr(error, 'strerror', error)}", quoted)
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


def _is_program(source: str) -> bool:
    return not source.strip() or any(mark in source for mark in ("OPENQASM", ";", "\n"))


def _text_of(path: Path) -> str:
    # A comment may be in any encoding. Bytes that are not UTF-8 become a
    # character that is refused anywhere else.
    return path.read_bytes().decode("utf-8-sig", errors="replace")
