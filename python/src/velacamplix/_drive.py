"""Lets the core work through a program while Python looks after signals and progress."""

from __future__ import annotations

import threading
from typing import Any, Callable, Optional, Set, Tuple

# Seconds between two looks at signals and two reports of progress.
INTERVAL = 0.05

# The core's states that a program is working on, each with the thread that waits for it. What that thread calls in
# between (a progress function, a signal handler) must not wait for the same state: it would wait for itself.
_busy: Set[Tuple[int, int]] = set()


def drive(core: Any, program: Any, report: Optional[Callable[[int, int], Any]] = None) -> Tuple[int, Any]:
    """Apply the program's gates to the core's state; other Python threads go on meanwhile.

    ``report(done, total)`` is called between passes, at most once per `INTERVAL` and once at the end.

    Returns
    -------
    applied : int
        Number of gates that acted: all, or those before the pass at which an exception stopped the run.
    error : BaseException or None
        That exception, from `report` or a signal handler, for the caller to raise.
    """
    here = threading.get_ident()
    # Only Python's main thread runs signal handlers.
    signals = here == threading.main_thread().ident
    entry = (id(core), here)
    _busy.add(entry)
    try:
        applied, error = program.run(core, report, INTERVAL, signals)
    finally:
        _busy.discard(entry)
    if type(error) is KeyboardInterrupt and not error.args:
        error.args = (f"stopped after {applied} of {len(program)} gates",)
    return applied, error


def require_idle(core: Any) -> None:
    """Raise RuntimeError if this thread is in the middle of a program on the core's state."""
    if _busy and (id(core), threading.get_ident()) in _busy:
        raise RuntimeError(
            "this StateVector is in the middle of a run; it cannot be used from a progress function or a signal handler"
        )
