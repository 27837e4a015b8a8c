"""Makes ``fork`` safe: a child process begins with one thread, and must not wait for those of its parent.

OpenMP keeps the threads of its last region waiting for the next. A child inherits the record of them but not the
threads. So they are sent home before a fork and start again when they are needed.
"""

import os

from . import _core

if hasattr(os, "register_at_fork"):  # wherever there is a fork
    os.register_at_fork(before=_core.before_fork, after_in_child=_core.after_fork_in_child)
