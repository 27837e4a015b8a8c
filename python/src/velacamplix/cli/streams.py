"""The standard streams of the command, which may be closed, full, or without letters for what is written."""

from __future__ import annotations

import io
import os
import sys
from typing import Any


def prepare() -> None:
    """Leave no stream closed that something is written to, and none that fails at a letter it does not have."""
    for number in range(3):
        # A file that is opened later must not get the number: libraries write their last words to it.
        try:
            os.fstat(number)
        except OSError:
            os.open(os.devnull, os.O_RDWR)
    if sys.stderr is None:
        sys.stderr = open(os.devnull, "w")
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")


def tell(message: str) -> None:
    """Write a line to standard error; whoever closed or filled it does not want to know."""
    try:
        print(f"velacamplix: {message}", file=sys.stderr)
    except OSError:
        pass
    settle()


def settle() -> None:
    """Write what standard error still holds, if it can be written."""
    try:
        sys.stderr.flush()
    except OSError:
        let_go(sys.stderr)


def let_go(stream: Any) -> None:
    """Let what a stream still holds go nowhere, or the interpreter would complain about it at its end."""
    with open(os.devnull, "w") as nowhere:
        os.dup2(nowhere.fileno(), stream.fileno())
