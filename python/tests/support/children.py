"""Child processes made by fork."""

import os
import time


def in_child(work, seconds=60):
    """Run `work()` in a forked child; give its exit status, or None if it hangs."""
    child = os.fork()
    if child == 0:
        status = 99
        try:
            status = work() or 0
        finally:
            os._exit(status)
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        ended, status = os.waitpid(child, os.WNOHANG)
        if ended:
            return os.waitstatus_to_exitcode(status) if hasattr(os, "waitstatus_to_exitcode") else status >> 8
        time.sleep(0.01)
    os.kill(child, 9)
    os.waitpid(child, 0)
    return None
