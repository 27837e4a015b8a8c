"""Reads OpenQASM 3 by way of Qiskit's importer."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any, Union

from ..circuit import Circuit

_MISSING = (
    "reading OpenQASM 3 needs the packages qiskit and qiskit_qasm3_import, and {missing} is not installed; "
    "get them with: pip install qiskit qiskit_qasm3_import"
)


def read_qasm3(source: Union[str, "os.PathLike[str]"]) -> Circuit:
    """Return the circuit of an OpenQASM 3 program; see `Circuit.from_qasm3`."""
    text = _text_of(source)
    try:
        import qiskit.qasm3
    except ModuleNotFoundError as error:
        raise ImportError(_MISSING.format(missing="qiskit" if error.name == "qiskit" else error.name)) from None
    try:
        import qiskit_qasm3_import  # noqa: F401  # without it Qiskit's own message does not tell what to do
    except ModuleNotFoundError as error:
        raise ImportError(_MISSING.format(missing=error.name)) from None
    try:
        program = qiskit.qasm3.loads(text)
    except ImportError:
        raise
    except RecursionError:
        raise ValueError("the OpenQASM 3 program is nested more deeply than Qiskit's importer can follow") from None
    except Exception as error:  # its parser and its converter raise many kinds
        raise ValueError(f"Qiskit's importer refused the OpenQASM 3 program: {error}") from error
    return _converted(program)


def _converted(program: Any) -> Circuit:
    from .from_qiskit import circuit_from_qiskit

    return circuit_from_qiskit(program)


def _text_of(source: Any) -> str:
    if isinstance(source, str) and (not source.strip() or any(mark in source for mark in ("OPENQASM", ";", "\n"))):
        return source
    try:
        path = Path(source)
    except TypeError:
        raise TypeError(f"path_or_text must be a str or a path, got {type(source).__name__}") from None
    return path.read_text(encoding="utf-8-sig")
