"""Packages that are imported when they are used, and need not be there."""

from __future__ import annotations

import importlib
from typing import Any

__all__ = ["imported"]


def imported(module: str, purpose: str) -> Any:
    """Return a module of an optional package.

    Raises
    ------
    ImportError
        If the package is not installed. The message tells the `purpose` and how to install it.

    Examples
    --------
    >>> imported("math", "this example").floor(2.5)
    2
    """
    package = module.partition(".")[0]
    try:
        return importlib.import_module(module)
    except ImportError as error:
        # A package that is there but broken says itself what it lacks.
        if (error.name or package).partition(".")[0] != package:
            raise
        message = f"{purpose} needs {package}; install it with: pip install {package}"
        raise type(error)(message, name=package) from None
