"""Lets the core work while Python looks after signals and progress."""

from __future__ import annotations

import contextlib
from collections.abc import Callable
from threading import get_ident, main_thread
from typing import Any

# Seconds between two looks at signals and two reports of progress.
INTERVAL = 0.05

Report = Callable[[int, int], Any] | None


def heard(report: Report = None) -> tuple[Report, float, bool]:
    """Return what a call of the core takes in order to hear signals and tell ``report(done, total)`` meanwhile."""
    # Only Python's main thread runs signal handlers.
    return report, INTERVAL, get_ident() == main_thread().ident


def drive(core: Any, program: Any, report: Report = None, to_end: bool = False) -> None:
    """Apply the program's gates to the core's state; other Python threads go on meanwhile.

    With ``to_end`` the state is for nobody to see unless all gates have acted: then signals are heard inside of passes
    too, and where one stops the run the state is of no worth.

    ``report(done, total)`` is called between passes, at most once per `INTERVAL` and once at the end. It must not use
    the state: the core then raises RuntimeError.

    Raises
    ------
    BaseException
        What `report` or a signal handler raised. The run has then stopped between two passes: the first gates have
        acted, and the exception's attribute ``gates_applied`` tells how many.
    """
    applied, error = program.run(core, *heard(report), to_end)
    if error is None:
        return
    # An exception without a __dict__ cannot take it.
    with contextlib.suppress(AttributeError):
        error.gates_applied = applied
    if type(error) is KeyboardInterrupt and not error.args:
        error.args = (f"stopped after {applied} of {len(program)} gates",)
    raise error


def drive_whole(core: Any, program: Any, report: Report = None) -> None:
    """Apply gates as `drive`, of which the first alone would leave no state: where it stops, basis state 0 is left.

    So it is with density matrices, on whose ket and bra a gate acts one after the other.
    """
    try:
        drive(core, program, report, to_end=True)
    except BaseException as error:
        if getattr(error, "gates_applied", len(program)) < len(program):
            core.reset()
        raise
