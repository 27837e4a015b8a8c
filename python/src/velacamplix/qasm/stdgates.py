"""The gates of stdgates.inc, and the one built into OpenQASM 3.

``U(theta, phi, lambda)`` is that of Qiskit and of qelib1.inc: its entry for 0 and 0 is cos(theta/2).
"""

from __future__ import annotations

from . import qelib1
from .qelib1 import LibraryGate

#: The gate that needs no include.
LANGUAGE: dict[str, LibraryGate] = {"U": qelib1.LANGUAGE["U"]}

_SAME = "p x y z h s sdg t tdg sx rx ry rz cx cy cz cp crx cry crz ch swap ccx cswap cu id u1 u2 u3".split()

#: What ``include "stdgates.inc";`` declares.
GATES: dict[str, LibraryGate] = {
    name: gate._replace(name=name, can_be_replaced=False)
    for name, gate in [
        *[(name, qelib1.GATES[name]) for name in _SAME],
        ("CX", qelib1.LANGUAGE["CX"]), ("phase", qelib1.GATES["p"]), ("cphase", qelib1.GATES["cp"]),
    ]
}  # fmt: skip
