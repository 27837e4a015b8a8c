"""Reads OpenQASM 2 from files and texts."""

from __future__ import annotations

import os
from functools import lru_cache
from importlib import resources
from pathlib import Path
from typing import Iterable, List, NoReturn, Optional, Tuple, Union, cast

from lark import Lark, Token, UnexpectedCharacters, UnexpectedInput, UnexpectedToken

from ..circuit import Circuit
from .errors import QasmError, fail, position
from .program import MOST_INSTRUCTIONS, Program
from .syntax import ToStatements

# Far more than anyone writes, and few enough for Python's own stack.
_DEEPEST_INCLUDE = 50


def read_qasm(
    source: Union[str, "os.PathLike[str]"], *, most_instructions: int = MOST_INSTRUCTIONS
) -> Circuit:
    """Read an OpenQASM 2 program into a circuit.

    Every gate of qelib1.inc becomes one or a few of the library's own gates,
    with the global phase that makes its controlled forms right; other gates
    are expanded through their bodies. ``id`` and ``u0`` leave no instruction.
    Measurements, resets and conditions are kept as they stand: a statement on
    a whole register is one measure or reset of several qubits.

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
    H 0
    CNOT 0,1
    measure 0,1 -> 0,1
    """
    if isinstance(source, str) and _is_program(source):
        return _Files(most_instructions).read(source, None)
    try:
        path = Path(source)
    except TypeError:
        kind = type(source).__name__
        raise TypeError(f"path_or_text must be a str or a path, got {kind}") from None
    return _Files(most_instructions).read(_text_of(path), path)


class _Files:
    """The files of one program while they are read, the innermost last."""

    def __init__(self, most_instructions: int) -> None:
        self._program = Program(self._include, most_instructions)
        self._open: List[Optional[Path]] = []

    def read(self, text: str, path: Optional[Path]) -> Circuit:
        self._run(text, path)
        return self._program.circuit()

    def _run(self, text: str, path: Optional[Path]) -> None:
        shown = None if path is None else str(path)
        try:
            version, statements = _parse(text)
            if version is None and not self._open:
                raise QasmError('the first statement must be "OPENQASM 2.0;"', line=1, column=1)
            self._open.append(path)
            self._program.run(statements, shown)
            self._open.pop()
        except QasmError as error:
            if error.path is None:
                error.path = shown
            raise

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


@lru_cache(maxsize=None)
def _parser() -> Lark:
    # Made once: building the tables takes longer than reading a usual file.
    # Neither the parser nor ToStatements keeps state, so threads may share it.
    grammar = resources.files(__package__).joinpath("grammar.lark").read_text(encoding="utf-8")
    return Lark(
        grammar,
        parser="lalr",
        lexer="contextual",
        transformer=ToStatements(),
        maybe_placeholders=False,
    )


def _parse(text: str) -> Tuple[Optional[Token], Iterable[object]]:
    try:
        # A list, because that is what ToStatements makes of the grammar's start.
        statements = cast(List[object], _parser().parse(text))
    except UnexpectedInput as error:
        _fail_at_input(error, text)
    if statements and isinstance(statements[0], Token):
        return statements[0], statements[1:]
    return None, statements


def _fail_at_input(error: UnexpectedInput, text: str) -> NoReturn:
    if isinstance(error, UnexpectedCharacters):
        found, expected, place = error.char, error.allowed, (error.line, error.column)
        message = f"unexpected character {found!r}"
    elif isinstance(error, UnexpectedToken) and error.token.type != "$END":
        found, expected, place = str(error.token), error.expected, position(error.token)
        message = "unexpected text"
    else:
        # The parser has no place for the end of a text.
        line = text.count("\n") + 1
        column = len(text) - (text.rfind("\n") + 1) + 1
        words = _words(getattr(error, "expected", ()))
        raise QasmError(f"unexpected end of the program, expected {words}", line=line, column=column) from None
    raise QasmError(
        f"{message}, expected {_words(expected)}", line=place[0], column=place[1], text=found
    ) from None


def _words(terminals: Optional[Iterable[str]]) -> str:
    """What the grammar's terminals look like in a program."""
    patterns = {terminal.name: terminal.pattern for terminal in _parser().terminals}
    words = set()
    for name in terminals or ():
        pattern = patterns.get(name)
        if name in _DESCRIPTIONS:
            words.add(_DESCRIPTIONS[name])
        elif pattern is not None and pattern.type == "str":
            words.add(repr(pattern.value))
    return " or ".join(sorted(words)) if words else "nothing more"


_DESCRIPTIONS = {
    "NAME": "a name (it starts with a small letter)",
    "SIMPLE_CALL": "a gate",
    "BUILTIN": "a gate",
    "FUNCTION": "a function",
    "INTEGER": "an integer",
    "NUMBER": "a number",
    "VERSION": "a version",
    "STRING": "a file name in quotes",
    "$END": "the end",
}


def _is_program(source: str) -> bool:
    return not source.strip() or any(mark in source for mark in ("OPENQASM", ";", "\n"))


def _text_of(path: Path) -> str:
    # A comment may be in any encoding. Bytes that are not UTF-8 become a
    # character that is refused anywhere else.
    return path.read_bytes().decode("utf-8-sig", errors="replace")
