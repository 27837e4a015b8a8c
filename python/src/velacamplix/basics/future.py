"""Warnings of what this version does differently from the one before, or the next one will."""

from __future__ import annotations

import os
import sys
import warnings
from types import FrameType

_HERE = os.path.dirname(os.path.abspath(__file__)) + os.sep


def warn(message: str) -> None:
    """Show a FutureWarning at the line outside this package that led here."""
    level = 2
    frame: FrameType | None = sys._getframe(1)
    while frame is not None and frame.f_code.co_filename.startswith(_HERE):
        frame = frame.f_back
        level += 1
    warnings.warn(message, FutureWarning, stacklevel=level)
