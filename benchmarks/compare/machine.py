"""What the figures were measured on, in words."""

from __future__ import annotations

import os
import platform
from pathlib import Path
from typing import Dict


def _field(path: str, name: str) -> str:
    try:
        lines = Path(path).read_text().splitlines()
    except OSError:
        return ""
    return next((line.split(":", 1)[1].strip() for line in lines if line.startswith(name)), "")


def _memory() -> str:
    kibibytes = _field("/proc/meminfo", "MemTotal").split()
    return f"{int(kibibytes[0]) / 2**20:.0f} GiB" if kibibytes else ""


def describe() -> Dict[str, str]:
    """Entries that the system does not tell are left out."""
    found = {
        "processor": _field("/proc/cpuinfo", "model name") or platform.processor(),
        "processors": str(len(os.sched_getaffinity(0))),
        "memory": _memory(),
        "system": f"{platform.system()} {platform.release()}",
        "Python": platform.python_version(),
        "scheduling": {os.SCHED_FIFO: "real-time", os.SCHED_RR: "real-time"}.get(os.sched_getscheduler(0), "ordinary"),
    }
    return {name: text for name, text in found.items() if text}
