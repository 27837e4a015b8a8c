"""Looks, before the extension is loaded, whether OpenMP's threads will have the stack that its loops need.

With less a thread would end the process without a word.
"""

import os
import re
import resource
from typing import Optional

_LEAST = 128 * 1024  # more than twice what the largest loop was seen to need

_SIZE = re.compile(r"\s*([0-9]+)\s*([bkmg]?)\s*", re.IGNORECASE)
_UNITS = {"b": 1, "k": 2**10, "": 2**10, "m": 2**20, "g": 2**30}


def _told_size(name: str) -> Optional[int]:
    found = _SIZE.fullmatch(os.environ.get(name, ""))
    # What OpenMP cannot read it does not follow. Nobody means a stack of more than 15 digits.
    return int(found[1]) * _UNITS[found[2].lower()] if found and len(found[1]) < 16 else None


def _require() -> None:
    for name in ("OMP_STACKSIZE", "GOMP_STACKSIZE"):
        size = _told_size(name)
        if size is not None:
            told, cure = f"the environment variable {name} is {os.environ[name]!r}", f"set it to {_LEAST // 1024}k or more"
            break
    else:
        size = resource.getrlimit(resource.RLIMIT_STACK)[0]
        told, cure = f"the limit of stacks is {size} bytes", f"raise it, as with: ulimit -s {_LEAST // 1024}"
        if size == resource.RLIM_INFINITY:
            return
    if size < _LEAST:
        raise ImportError(
            f"velacamplix cannot be loaded: {told}, and its threads need a stack of {_LEAST // 1024} KiB; {cure}, or "
            f"leave it alone, before Python starts"
        )


_require()
