"""Loads the extension, and with it OpenMP, so that threads without work soon give their processor away.

At the end of every parallel region the threads that are done wait for the others by asking again and again. Left to
itself GCC's OpenMP does so 300,000 times, some 15 ms, before it lets the system wake it. With a processor for each thread
that is never reached. Where other programs want the processors too, the thread that is waited for may need the very one
that the waiting keeps busy, and each gate on a middle-sized state takes those 15 ms.
"""

import os

# 0.1 ms: longer than what lies between two gates, shorter than any turn of the system's scheduler.
_SPINS = "2000"
_USERS_CHOICE = ("GOMP_SPINCOUNT", "OMP_WAIT_POLICY")


def _load() -> None:
    if any(name in os.environ for name in _USERS_CHOICE):
        from . import _core  # noqa: F401
        return
    # OpenMP reads its variables when it is loaded; without effect if another library has loaded it before. They are
    # taken back at once: child processes decide for themselves.
    os.environ["GOMP_SPINCOUNT"] = _SPINS
    try:
        from . import _core  # noqa: F401
    finally:
        del os.environ["GOMP_SPINCOUNT"]


_load()
