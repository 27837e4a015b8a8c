"""The extension: loaded once, with threads that give way and that survive a fork. Everything else takes it from here."""

import os
import re
import resource

# --- The stack of its threads. With less than the largest loop needs, one would end the process without a word. ---

_LEAST = 128 * 1024  # more than twice what the largest loop was seen to need

_SIZE = re.compile(r"\s*([0-9]+)\s*([bkmg]?)\s*", re.IGNORECASE)
_UNITS = {"b": 1, "k": 2**10, "": 2**10, "m": 2**20, "g": 2**30}


def _size_in(name: str) -> int | None:
    found = _SIZE.fullmatch(os.environ.get(name, ""))
    # What OpenMP cannot read it does not follow. Nobody means a stack of more than 15 digits.
    return int(found[1]) * _UNITS[found[2].lower()] if found and len(found[1]) < 16 else None


def _require_stacks() -> None:
    for name in ("OMP_STACKSIZE", "GOMP_STACKSIZE"):
        size = _size_in(name)
        if size is not None:
            found, cure = f"the environment variable {name} is {os.environ[name]!r}", f"set it to {_LEAST // 1024}k or more"
            break
    else:
        size = resource.getrlimit(resource.RLIMIT_STACK)[0]
        found, cure = f"the limit of stacks is {size} bytes", f"raise it, as with: ulimit -s {_LEAST // 1024}"
        if size == resource.RLIM_INFINITY:
            return
    if size < _LEAST:
        raise ImportError(
            f"velacamplix cannot be loaded: {found}, and its threads need a stack of {_LEAST // 1024} KiB; {cure}, or "
            f"leave it alone, before Python starts"
        )


_require_stacks()

# --- How long its threads wait for work. ---
#
# At the end of every parallel region the threads that are done wait for the others by asking again and again. Left to
# itself GCC's OpenMP does so 300,000 times, some 15 ms, before it lets the system wake it. With a processor for each
# thread that is never reached. Where other programs want the processors too, the thread that is waited for may need the
# very one that the waiting keeps busy, and each gate on a middle-sized state takes those 15 ms.

# 0.1 ms: longer than what lies between two gates, shorter than any turn of the system's scheduler.
_SPINS = "2000"
_users_choice = any(name in os.environ for name in ("GOMP_SPINCOUNT", "OMP_WAIT_POLICY"))

# OpenMP reads its variables when it is loaded; without effect if another library has loaded it before. They are taken
# back at once: child processes decide for themselves.
if not _users_choice:
    os.environ["GOMP_SPINCOUNT"] = _SPINS
try:
    from . import _core as extension
finally:
    if not _users_choice:
        del os.environ["GOMP_SPINCOUNT"]

# --- Fork: a child begins with one thread, and must not wait for those of its parent. ---
#
# OpenMP keeps the threads of its last region waiting for the next. A child inherits the record of them but not the
# threads. So they are sent home before a fork and start again when they are needed.

if hasattr(os, "register_at_fork"):  # wherever there is a fork
    os.register_at_fork(before=extension.before_fork, after_in_child=extension.after_fork_in_child)

__all__ = ["extension"]
