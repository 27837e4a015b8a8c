"""OpenQASM 2: `read_qasm` and the `QasmError` it raises.

From a text to a circuit in four steps, one file each: `reader` (files, the
parser, its errors), `syntax` with ``grammar.lark`` (statements), `program`
(registers, broadcasting, conditions), `expand` with `qelib1` and
`expressions` (gates down to the library's own).
"""

from .errors import QasmError
from .reader import read_qasm

__all__ = ["QasmError", "read_qasm"]
