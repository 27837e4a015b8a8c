"""Checks of ready-made parts of a circuit: instructions and registers."""

from __future__ import annotations

from typing import Any, Tuple

from . import _check
from .instruction import GATES, NON_UNITARY, Condition, Instruction, Register


def instruction(value: Any, n_qubits: int, n_clbits: int) -> Instruction:
    """Return an equal instruction made of plain ``int``, ``float`` and ``tuple``.

    Raises
    ------
    TypeError, IndexError, ValueError
        If the name is unknown, or numbers, qubits or bits do not fit a circuit
        of `n_qubits` and `n_clbits`.

    >>> instruction(Instruction("CNOT", [1, 0]), 2, 0)
    Instruction(name='CNOT', qubits=(1, 0), params=(), controls=(), clbits=(), condition=None)
    """
    if not isinstance(value, Instruction):
        raise TypeError(f"instruction must be an Instruction, got {_check.show(value)}")
    name = value.name
    if not isinstance(name, str) or not (name in GATES or name == "matrix" or name in NON_UNITARY):
        known = ", ".join([*GATES, "matrix", *sorted(NON_UNITARY)])
        raise ValueError(f"name must be one of {known}; got {_check.show(name)}")
    qubits = _check.qubits(value.qubits, n_qubits, at_least=0 if name == "barrier" else 1)
    if name in GATES and len(qubits) != GATES[name].n_qubits:
        raise ValueError(f"qubits of {name} must be {GATES[name].n_qubits}, got {len(qubits)}")
    return Instruction(
        name,
        qubits,
        _params(name, value.params, len(qubits)),
        _controls(name, value.controls, qubits, n_qubits),
        _clbits(name, value.clbits, qubits, n_clbits),
        _condition(value, n_clbits),
    )


def registers(values: Any, n_qubits: int, n_clbits: int) -> Tuple[Register, ...]:
    """Return registers that cover all qubits and all classical bits in order, without gaps."""
    listed = _check.sequence(values, "registers", of="Register")
    ends = {"quantum": 0, "classical": 0}
    names = set()
    for register in listed:
        if not isinstance(register, Register):
            raise TypeError(f"registers must hold Register objects, got {_check.show(register)}")
        _check.choice(register.kind, "kind of a register", tuple(ends))
        if not isinstance(register.name, str):
            raise TypeError(f"name of a register must be a text, got {_check.show(register.name)}")
        if register.name in names:
            raise ValueError(f"registers must have distinct names, got {register.name!r} twice")
        names.add(register.name)
        if register.start != ends[register.kind]:
            raise ValueError(
                f"registers must follow each other without gaps: {register.name!r} must start at "
                f"{ends[register.kind]}, got {_check.show(register.start)}"
            )
        ends[register.kind] += _check.integer(register.size, "size of a register", minimum=0)
    if (ends["quantum"], ends["classical"]) != (n_qubits, n_clbits):
        raise ValueError(
            f"registers must cover {n_qubits} qubits and {n_clbits} classical bits, "
            f"got {ends['quantum']} and {ends['classical']}"
        )
    return listed


def _params(name: str, values: Any, n_targets: int) -> Tuple[Any, ...]:
    params = _check.sequence(values, "params", of="numbers")
    if name == "matrix":
        wanted = 4**n_targets
    else:
        wanted = GATES[name].n_params if name in GATES else 0
    if len(params) != wanted:
        raise ValueError(f"params of {name} must be {wanted} number(s), got {len(params)}")
    if name != "matrix":
        return tuple(_check.angle(value, f"params[{i}]") for i, value in enumerate(params))
    size = 2**n_targets
    rows = [params[row * size : (row + 1) * size] for row in range(size)]
    # Not necessarily unitary: the builder's method lets its caller decide that.
    return tuple(_check.matrix(rows, n_targets, "params", unitary=False).ravel().tolist())


def _controls(name: str, values: Any, targets: Tuple[int, ...], n_qubits: int) -> Tuple[int, ...]:
    controls = _check.controls(values, targets, n_qubits)
    takes_controls = name == "matrix" or (name in GATES and GATES[name].n_qubits == 1)
    if controls and not takes_controls:
        raise ValueError(f"controls of {name} must be empty, got {_check.show(values)}")
    return controls


def _clbits(name: str, values: Any, qubits: Tuple[int, ...], n_clbits: int) -> Tuple[int, ...]:
    clbits = _check.indices(values, n_clbits, "clbits")
    if len(clbits) != (len(qubits) if name == "measure" else 0):
        raise ValueError(
            "clbits must name one bit for each measured qubit and none otherwise, "
            f"got {clbits} for {name} of {qubits}"
        )
    return clbits


def _condition(value: Instruction, n_clbits: int) -> Any:
    condition = value.condition
    if condition is None:
        return None
    if not isinstance(condition, Condition):
        raise TypeError(f"condition must be a Condition or None, got {_check.show(condition)}")
    if not value.can_be_conditioned:
        raise ValueError(f"condition of {value.name} must be None, got {condition}")
    bits = _check.indices(condition.clbits, n_clbits, "condition.clbits", at_least=1)
    return Condition(bits, _check.integer(condition.value, "condition.value", 0, 2 ** len(bits) - 1))
