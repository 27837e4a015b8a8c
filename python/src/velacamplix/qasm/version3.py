"""Reads OpenQASM 3 by way of Qiskit's importer."""

from __future__ import annotations

import os
from importlib.util import find_spec

from . import files
from .program import Parts

_MISSING = (
    "reading OpenQASM 3 needs the packages qiskit and qiskit_qasm3_import, and {missing} is not installed; "
    "get them with: pip install qiskit qiskit_qasm3_import"
)


def read_program3(source: str | os.PathLike[str]) -> Parts:
    """Return registers and instructions of an OpenQASM 3 program; see `Circuit.from_qasm3`."""
    text, path = files.given(source)
    for name in ("qiskit", "qiskit_qasm3_import"):
        if find_spec(name) is None:
            raise ImportError(_MISSING.format(missing=name))
    from .importer import imported

    return imported(text, None if path is None else str(path))
