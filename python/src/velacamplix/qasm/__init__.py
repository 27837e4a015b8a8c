"""OpenQASM 2 and 3: `read_qasm` and the `QasmError` it raises.

From a text to registers and instructions in four steps: `reader` (files), `syntax` with `expressions` (statements),
`program` (registers, broadcasting, conditions), `definitions` with `qelib1` (gates). Version 3 has its own `syntax3`,
`values3`, `program3`, `modifiers` and `stdgates`; what both mean alike is in `meaning`. `writer` and `writer3` go the other
way.
"""

from collections.abc import Callable
from typing import Any

from .errors import QasmError

#: `Circuit.from_qasm`, under its older name; the package sets it, as nothing here knows the class.
read_qasm: Callable[..., Any]

__all__ = ["QasmError", "read_qasm"]
