"""The command `velacamplix`."""

from .main import main

__all__ = ["main"]
