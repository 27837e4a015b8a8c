"""OpenQASM 2: `read_qasm` and the `QasmError` it raises.

From a text to a circuit in four steps: `reader` (files), `syntax` with `expressions` (statements; `mistakes` tells why
there is none), `program` (registers, broadcasting, conditions), `definitions` with `qelib1` (gates).
"""

from .errors import QasmError
from .reader import read_qasm

__all__ = ["QasmError", "read_qasm"]
