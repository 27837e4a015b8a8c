"""Which gates a name means: CNOT, cx and X with one control are one."""

from __future__ import annotations

import re
from collections.abc import Iterator
from itertools import chain

from ..instructions.gates import GATES
from ..instructions.instruction import Instruction

#: The gate's own name, and how many controls it has.
Kind = tuple[str, int]

#: Instructions that noise may stand beside, although they are no gates. Each of their qubits counts by itself.
READING = ("measure", "reset")

_WITH_CONTROLS = re.compile(r"c(\d{0,6})(.+)")


def _kind(name: str, n_controls: int) -> Kind:
    gate = GATES.get(name)
    base, own = (name, 0) if gate is None or gate.short_for is None else gate.short_for
    return base, own + n_controls


def _known() -> Iterator[tuple[str, Kind]]:
    for name in (*READING, "matrix", "diagonal"):
        yield name, (name, 0)
    for gate in GATES.values():
        yield gate.name, _kind(gate.name, 0)
        for word, n_controls in chain(gate.methods.items(), gate.qasm.items(), gate.later.items()):
            yield word, _kind(gate.name, n_controls)
        for word, method in gate.aliases.items():
            yield word, _kind(gate.name, gate.methods[method])


_KINDS: dict[str, Kind] = dict(_known())

# Where qubits have no order.
_ANY_ORDER = {("Z", 1), ("PH", 1), ("SWAP", 0), *[(gate.name, 0) for gate in GATES.values() if gate.is_symmetric]}


def kinds_of(name: str) -> frozenset[Kind]:
    """Return what a name may mean: one gate of the package, or definitions of that name.

    >>> sorted(kinds_of("cx")), sorted(kinds_of("CX")), sorted(kinds_of("c3H"))
    ([('X', 1)], [('X', 1)], [('H', 3)])
    >>> sorted(kinds_of("cycle"))                   # or "ycle" with a control
    [('cycle', 0), ('ycle', 1)]
    """
    known = _KINDS.get(name) or _KINDS.get(name.lower())
    if known is not None:
        return frozenset([known])
    found = _WITH_CONTROLS.fullmatch(name)
    if found is None:
        return frozenset([(name, 0)])
    n_controls = int(found[1] or 1)
    inner = _KINDS.get(found[2])
    if inner is not None:
        return frozenset([(inner[0], inner[1] + n_controls)])
    return frozenset([(name, 0), (found[2], n_controls)])


def kind_of(step: Instruction, more_controls: int = 0) -> Kind:
    """Return what gate an instruction is, with further controls."""
    name = step.name if step.definition is not None else None
    n_controls = len(step.controls) + more_controls
    return (name, n_controls) if name is not None else _kind(step.name, n_controls)


def size_of(kind: Kind) -> int | None:
    """Return how many qubits a gate has, controls included; None if that is not known before it is seen."""
    base, n_controls = kind
    if base in READING:
        return 1
    return GATES[base].n_qubits + n_controls if base in GATES else None


def has_any_order(kind: Kind) -> bool:
    """Whether the qubits play the same part."""
    return kind in _ANY_ORDER


def written(kind: Kind) -> str:
    """Return a name by which a message calls a gate.

    >>> written(("X", 1)), written(("RX", 2)), written(("bell", 0))
    ('cx', 'c2RX', 'bell')
    """
    known = _WRITTEN.get(kind)
    if known is not None:
        return known
    base, n_controls = kind
    return f"c{n_controls if n_controls > 1 else ''}{base}" if n_controls else base


# The first method of a gate.
_WRITTEN: dict[Kind, str] = {
    _kind(gate.name, n_controls): word
    for gate in reversed(list(GATES.values()))
    for word, n_controls in reversed(list(gate.methods.items()))
}
