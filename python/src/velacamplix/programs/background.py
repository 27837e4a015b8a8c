"""Long calls of NumPy's that nobody can stop: they go on in a thread of their own while Ctrl-C is heard."""

from __future__ import annotations

import threading
from collections.abc import Callable
from typing import TypeVar

from .drive import INTERVAL

T = TypeVar("T")


def in_background(work: Callable[[], T]) -> T:
    """Return what `work` returns, or raise what it raises.

    After Ctrl-C the caller is free at once; the work that was begun comes to its end unseen, and gives its memory back
    then. Only the main thread hears Ctrl-C, so other threads work themselves.

    >>> in_background(lambda: 1 + 1)
    2
    """
    if threading.current_thread() is not threading.main_thread():
        return work()
    result: list[T] = []
    errors: list[BaseException] = []

    def act() -> None:
        try:
            result.append(work())
        except BaseException as error:
            errors.append(error)

    thread = threading.Thread(target=act, name="velacamplix background", daemon=True)
    thread.start()
    while thread.is_alive():
        thread.join(INTERVAL)
    if errors:
        raise errors[0]
    return result[0]
