"""Circuits to Cirq's."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Any

import cirq
import numpy as np
import sympy

from ..basics import checks
from ..circuit.circuit import Circuit
from ..instructions.condition import AnyCondition, Condition
from ..instructions.expand import body_of
from ..instructions.flow import If, Readout, Switch, While, leaves
from ..instructions.gates import GATES, with_controls
from ..instructions.instruction import Instruction
from ..instructions.open_controls import joined
from .channels import cirq_channel
from .conditions import Bit, cirq_condition
from .errors import NotConverted
from .gates import cirq_gate


def from_velacamplix(circuit: Circuit) -> cirq.Circuit:
    """Return the same circuit as one of Cirq's, global phase and parameters included.

    Parameters
    ----------
    circuit : Circuit
        Its qubit i is ``cirq.LineQubit(i)``. Parameters become symbols of their names.

    Returns
    -------
    cirq.Circuit
        Gates that Cirq has become its own, others a matrix or what they are made of; so do definitions. A measurement of a
        whole register is one whose key is the register's name, any other one for each bit, ``name_i`` for bit i of a
        register, or its name alone if it has one bit. A barrier is a border between moments. Of decisions every
        instruction has the condition.

    Raises
    ------
    TypeError
        If `circuit` is no `Circuit`.
    NotConverted
        If there is something that Cirq's circuits lack: loops, instructions that save, measurements under a condition,
        matrices that are not unitary. It has the instruction, its place and the reason. A ``ValueError``.

    Examples
    --------
    >>> from velacamplix import Circuit
    >>> print(from_velacamplix(Circuit(2, 1).h(0).cx(0, 1).measure(1, 0)))
    0: ───H───@────────────
              │
    1: ───────X───M('c')───
    """
    if not isinstance(circuit, Circuit):
        raise TypeError(f"circuit must be a velacamplix.Circuit, got {checks.show(circuit)}")
    writing = _Writing(circuit)
    made: cirq.Circuit | None = None
    listed: list[Any] = []
    for place, step in enumerate(circuit):
        if step.name == "barrier":
            made = cirq.Circuit(listed) if made is None else made + cirq.Circuit(listed)
            listed = []
            continue
        try:
            listed += writing.operations(step)
        except (TypeError, ValueError) as error:
            raise NotConverted.at(error, step.title, place) from None
        except RecursionError:
            raise NotConverted(
                "instructions hold each other too deeply for Python's stack", repr(step.name), place
            ) from None
    last = cirq.Circuit(listed)
    return last if made is None else made + last


class _Writing:
    """Writes the instructions of one circuit."""

    def __init__(self, circuit: Circuit) -> None:
        self._qubits = cirq.LineQubit.range(circuit.n_qubits)
        steps = list(leaves(circuit))
        measured = [step.clbits for step in steps if step.name == "measure"]
        asked = any([step.condition is not None or isinstance(step.detail, (If, Switch)) for step in circuit])
        self._keys: dict[int, Bit] = {}
        taken = set[str]()
        for register in circuit.registers:
            if register.kind != "classical":
                continue
            whole = tuple(register.bits)
            there = [clbits for clbits in measured if set(clbits) & set(whole)]
            is_whole = bool(there) and all([clbits == whole for clbits in there])
            for place, bit in enumerate(whole):
                key = register.name if is_whole or register.size == 1 else f"{register.name}_{place}"
                # In conditions SymPy reads the names.
                while (key in taken and not (is_whole and place)) or (asked and not _is_symbol(key)):
                    key = f"m_{''.join([letter if letter.isalnum() else '_' for letter in key])}"
                self._keys[bit] = Bit(key, place, len(whole)) if is_whole else Bit(key, 0, 1)
            taken.update([self._keys[bit].key for bit in whole])
        self._written = set[int]()

    def operations(self, step: Instruction) -> list[Any]:
        """Return what an instruction becomes."""
        detail = step.detail
        if step.condition is not None:
            return self._asked(self._plain(step._replace(condition=None)), step.condition, step)
        if isinstance(detail, If):
            return self._decided(detail.bodies, [detail.condition, ~detail.condition], step)
        if isinstance(detail, Switch):
            bits = detail.clbits
            cases: list[AnyCondition] = []
            for values, _ in detail.cases:
                parts = [Condition(bits, value) for value in values]
                cases.append(parts[0] if len(parts) == 1 else _any(parts))
            return self._decided(detail.bodies, [*cases, ~_any(cases)] if cases else [], step)
        return self._plain(step)

    def _decided(self, bodies: Sequence[Any], asked: Sequence[AnyCondition], step: Instruction) -> list[Any]:
        if not asked:
            return [operation for inner in bodies[-1] for operation in self.operations(inner)]
        made = []
        for body, one in zip(bodies, asked):
            for inner in body:
                if inner.name != "barrier":
                    made += self._asked(self.operations(inner), one, step)
        return made

    def _asked(self, operations: Sequence[Any], asked: AnyCondition, step: Instruction) -> list[Any]:
        if any([cirq.is_measurement(operation) for operation in operations]):
            raise NotConverted("Cirq's measurements cannot be under a condition")
        known = {bit: self._keys[bit] for bit in asked.clbits if bit in self._written}
        if isinstance(asked, Condition) and asked == Condition(asked.clbits[:1], 1):
            for bit in known.values():
                if bit.size == 1:
                    return [operation.with_classical_controls(bit.key) for operation in operations]
        found = cirq_condition(asked, known)
        if found is False:
            return []
        return [operation if found is True else operation.with_classical_controls(found) for operation in operations]

    # --- One instruction ---

    def _plain(self, step: Instruction) -> list[Any]:
        if isinstance(step.detail, While):
            raise NotConverted("Cirq's circuits have no loop of this kind")
        if step.name in ("if", "switch"):
            return self.operations(step)
        if step.name == "save":
            raise NotConverted("Cirq's circuits have no instruction that keeps what a simulator has")
        if step.name == "measure":
            return self._measurements(step)
        qubits = [self._qubits[qubit] for qubit in step.qubits]
        if step.name == "reset":
            return [cirq.reset(qubit) for qubit in qubits]
        if step.name == "channel":
            return [cirq_channel(step.detail).on(*qubits)]  # type: ignore[arg-type]
        return list(self._gates(step))

    def _gates(self, step: Instruction) -> Iterator[Any]:
        if step.definition is not None:
            # What it is made of has controls of 1.
            flat = step if not step.control_values else step._replace(control_values="")
            for part in body_of(flat):
                if part.name == "barrier":
                    continue
                if step.control_values:
                    inner = len(part.controls) - len(step.controls)
                    values = step.control_values + (part.control_values or "1" * len(part.controls))[-inner:] * bool(
                        inner
                    )
                    part = part._replace(control_values=values)
                yield from self._gates(part)
            return
        short = GATES[step.name].short_for if step.name in GATES and step.controls else None
        if short is not None:
            name, n = short
            controls, values = step.controls + step.qubits[:n], joined(step.control_values, 0, n)
            step = Instruction(name, step.qubits[n:], (), controls, control_values=values)
        if step.name == "gphase" and step.controls:
            step = with_controls("gphase", (), step.controls, step.params, step.control_values)
        gate = cirq_gate(step)
        if gate is None:
            for part in GATES[step.name].block(() if step.control_values else step.controls, step.qubits, *step.params):
                if step.control_values:
                    part = part._replace(
                        controls=step.controls + part.controls,
                        control_values=step.control_values + (part.control_values or "1" * len(part.controls)),
                    )
                yield from self._gates(part)
            return
        qubits = [self._qubits[qubit] for qubit in step.qubits]
        operation = gate.on(*qubits)
        if step.controls:
            read = [int(value) for value in step.control_values] or [1] * len(step.controls)
            operation = operation.controlled_by(*[self._qubits[qubit] for qubit in step.controls], control_values=read)
        yield operation

    def _measurements(self, step: Instruction) -> list[Any]:
        flips = step.detail.flips if isinstance(step.detail, Readout) else None
        self._written.update(step.clbits)
        size = self._keys[step.clbits[0]].size
        groups = (
            [range(len(step.qubits))] if size == len(step.qubits) else [[place] for place in range(len(step.qubits))]
        )
        made = []
        for group in groups:
            confusion = {}
            if flips is not None:
                for number, place in enumerate(group):
                    up, down = flips[place]
                    if up or down:
                        confusion[(number,)] = _matrix(up, down)
            own = [self._qubits[step.qubits[place]] for place in group]
            name = self._keys[step.clbits[group[0]]].key
            made.append(cirq.measure(*own, key=name, confusion_map=confusion or None))
        return made


def _matrix(up: float, down: float) -> Any:
    return np.array([[1 - up, up], [down, 1 - down]])


def _any(parts: Sequence[AnyCondition]) -> AnyCondition:
    asked = parts[0]
    for part in parts[1:]:
        asked = asked | part
    return asked


def _is_symbol(name: str) -> bool:
    try:
        return bool(name.isidentifier() and isinstance(sympy.sympify(name), sympy.Symbol))
    except Exception:  # whatever SymPy makes of a name
        return False
