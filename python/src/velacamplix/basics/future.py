"""Warnings that point at the user's line: of what this version does differently from the one before, and others."""

from __future__ import annotations

import os
import sys
import warnings
from types import FrameType

_PACKAGE = os.path.dirname(os.path.dirname(os.path.abspath(__file__))) + os.sep


def level_of_caller() -> int:
    """Return the level, for `warnings.warn` in the calling function, of the code that called this package."""
    level = 1
    frame: FrameType | None = sys._getframe(1)
    while frame is not None and frame.f_code.co_filename.startswith(_PACKAGE):
        frame = frame.f_back
        level += 1
    return level


def warn(message: str) -> None:
    """Show a FutureWarning at the line outside this package that led here."""
    warnings.warn(message, FutureWarning, stacklevel=level_of_caller())
