"""Gates of this package that qelib1.inc does not have, as gate blocks made of its gates.

A block is exact, global phase included, and has a fixed form. So the writer can say any gate with up to
`MOST_CONTROLS` controls, and the reader knows a block that the writer made and takes the gate itself for it.
"""

from __future__ import annotations

import re
from functools import cache
from typing import Any

from ..instructions.definition import GateDefinition
from ..instructions.expression import Parameter
from ..instructions.gates import GATES, with_controls
from ..instructions.instruction import Instruction
from ..instructions.open_controls import around
from . import qelib1

#: A gate with more controls takes more than ten thousand gates of qelib1.inc.
MOST_CONTROLS = 8

#: And what its own qubits add to them in the gates its block is made of.
MOST_INSIDE = MOST_CONTROLS + 3

_FORMALS = ("a", "b", "c", "d")
_BLOCK_NAME = re.compile(r"(?:c([1-9][0-9]?)_)?([a-z][A-Za-z0-9_]*)")
_BY_SMALL_NAME = {name.lower(): name for name in GATES}


def block_name(name: str, n_controls: int) -> str:
    """Return the name of the block of a gate with controls."""
    return f"c{n_controls}_{name.lower()}" if n_controls else name.lower()


def plain(step: Instruction) -> Instruction:
    """Return the same gate in the one form it is written in, with its condition."""
    controls, qubits = step.controls, step.qubits
    if step.definition is not None:
        return step
    gate = GATES.get(step.name)
    if controls and gate is not None and gate.short_for is not None:
        written = with_controls(gate.short_for[0], qubits[-1:], controls + qubits[:-1])
    else:
        written = with_controls(step.name, qubits, controls, step.params)
    return written if step.condition is None else written._replace(condition=step.condition)


@cache
def block(name: str, n_controls: int) -> GateDefinition | None:
    """Return what a gate of the package with controls is made of, in smaller ones; None if it needs no block.

    Qubits are the controls, then the gate's own.
    """
    gate = GATES.get(name)
    if gate is None or gate.short_for is not None or n_controls > MOST_INSIDE:
        return None
    formals = _FORMALS[: gate.n_params]
    controls = tuple(range(n_controls))
    own = tuple(range(n_controls, n_controls + gate.n_qubits))
    steps = gate.block(controls, own, *map(Parameter, formals))
    return GateDefinition.checked(block_name(name, n_controls), formals, len(controls + own), tuple(steps))


@cache
def library_block(name: str) -> GateDefinition:
    """Return what a gate of the later qelib1.inc is made of, for readers whose file does not have it."""
    gate = qelib1.GATES[name]
    assert gate.step is not None
    found = block(gate.step, gate.n_controls)
    assert found is not None  # there is one for every gate of the package
    return GateDefinition.checked(name, found.params, found.n_qubits, found.body)


def sayable(step: Instruction) -> list[Instruction]:
    """Return an instruction as such that have words: with controls of 1, and a phase of the whole state on qubit 0."""
    if step.name != "gphase" or step.controls or step.definition is not None:
        return around(step)
    # exp(i a) and exp(-i a), then exp(2 i a) where the second was.
    (angle,) = step.params
    turns = [("RZ", -2 * angle), ("PH", 2 * angle)]
    return [Instruction(name, (0,), (value,), condition=step.condition) for name, value in turns]


def controlled(definition: GateDefinition, n_controls: int) -> GateDefinition:
    """Return a definition with controls in front of its own qubits."""
    controls = tuple(range(n_controls))
    body = [
        plain(
            Instruction(
                step.name,
                tuple([q + n_controls for q in step.qubits]),
                step.params,
                () if step.name == "barrier" else controls + tuple([q + n_controls for q in step.controls]),
                definition=step.definition,
            )
        )
        for raw in definition.body
        for step in around(raw)
    ]
    name = block_name(definition.name, n_controls)
    return GateDefinition.checked(name, definition.params, n_controls + definition.n_qubits, tuple(body))


def known(definition: GateDefinition, declared: dict[str, GateDefinition]) -> tuple[str, int, Any] | None:
    """Return name, number of controls and definition of the gate whose block this is, or None if it is another.

    `declared` holds the definitions the block may be a controlled form of.
    """
    library = qelib1.GATES[definition.name] if definition.name in qelib1.LATER else None
    if library is not None and library.step is not None and library_block(definition.name) is definition:
        return library.step, library.n_controls, None
    found = _BLOCK_NAME.fullmatch(definition.name)
    if found is None:
        return None
    n_controls, base = int(found[1] or 0), found[2]
    if n_controls > MOST_INSIDE:
        return None
    name = _BY_SMALL_NAME.get(base)
    if name is not None and block(name, n_controls) is definition:
        return name, n_controls, None
    if n_controls and base in declared and controlled(declared[base], n_controls) is definition:
        return base, n_controls, declared[base]
    return None
