"""How a simulator was built: where its extension module came from, and which vectors its machine code has."""

from __future__ import annotations

import re
import subprocess
from importlib.metadata import distribution

BITS = {"x": 128, "y": 256, "z": 512}


def told(name: str, library: str) -> str:
    """Of a distribution and of its compiled file."""
    return ", ".join(part for part in (origin(distribution(name).read_text("WHEEL") or ""), vectors(library)) if part)


def origin(wheel: str) -> str:
    """From a distribution's file WHEEL: what was compiled where it is installed carries no promise for other systems."""
    tags = re.findall(r"^Tag: \S+-(\w+)$", wheel, re.MULTILINE)
    if not tags:
        return ""
    return "compiled on this machine" if tags[-1].startswith("linux_") else f"wheel {tags[-1]}"


def vectors(library: str) -> str:
    """The widest vectors of a file for x86-64; empty for other processors, and without objdump."""
    try:
        listed = subprocess.run(["objdump", "-d", "--no-show-raw-insn", library], capture_output=True, timeout=120)
    except (OSError, subprocess.TimeoutExpired):
        return ""
    found = set(re.findall(rb"%([xyz])mm", listed.stdout))
    return f"vectors of up to {max(BITS[letter.decode()] for letter in found)} bits" if found else ""
