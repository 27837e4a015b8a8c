"""Circuits from Cirq's."""

from __future__ import annotations

import math
from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import Any, NamedTuple

import cirq
import numpy as np

from ..basics import checks
from ..channels.channel import Channel
from ..circuit.circuit import Circuit
from ..instructions import checked
from ..instructions.condition import AnyCondition, CompoundCondition
from ..instructions.expression import Angle, Expression
from ..instructions.flow import Readout, While, flow_step
from ..instructions.instruction import Instruction, Register
from ..qasm.meaning import MOST_BITS, MOST_INSTRUCTIONS
from ..qasm.names import Names
from .channels import MOST_QUBITS_OF_NOISE, channel
from .conditions import condition
from .errors import NotConverted
from .gates import READERS, control_cases, read, under

# A loop of Cirq's goes round until its condition holds, however long that takes.
_MOST_ROUNDS = 2**31 - 1


def to_velacamplix(circuit: cirq.AbstractCircuit, qubit_order: Any = cirq.QubitOrder.DEFAULT) -> Circuit:
    """Return the same circuit, global phase and symbols included.

    Parameters
    ----------
    circuit : cirq.Circuit or cirq.FrozenCircuit
        Of qubits. Symbols become parameters of their names.
    qubit_order : cirq.QubitOrder or sequence of cirq.Qid
        The i-th qubit in this order is qubit i here; by default as Cirq sorts them.

    Returns
    -------
    Circuit
        Every measurement has a register of its own, called as its key; of a key that is measured again, a name that is free.
        Its bits are what Cirq records: inverted where Cirq inverts, with a misreading where there is a confusion map of one
        qubit. Gates become the gate that is the same here, others a matrix or what they are made of; noise becomes
        channels, circuit operations what they hold, those that repeat until something holds a loop. Moments are not kept,
        as nothing happens in the time between them.

    Raises
    ------
    TypeError
        If `circuit` is none of Cirq's.
    NotConverted
        If there is something a circuit cannot say: qudits, confusion maps of several qubits at once, symbols where they
        cannot stay, channels with a key, gates that have neither a matrix nor a decomposition, matrices that are not unitary.
        It has the operation, its moment and the reason. A ``ValueError``.

    Examples
    --------
    >>> import cirq, sympy
    >>> a, b = cirq.LineQubit.range(2)
    >>> theirs = cirq.Circuit(cirq.X(a) ** 0.25, cirq.ry(sympy.Symbol("t"))(b), cirq.CNOT(a, b), cirq.measure(a, b, key="m"))
    >>> print(to_velacamplix(theirs))
    gphase(0.392699081699)
    RX(0.785398163397) 0
    RY(t) 1
    CNOT 0,1
    measure 0,1 -> 0,1
    """
    qubits = ordered_qubits(circuit, qubit_order, "circuit")
    conversion = Conversion({qubit: number for number, qubit in enumerate(qubits)}, is_exact=True)
    conversion.read_moments(circuit)
    steps = conversion.phases() + conversion.steps
    if conversion.n_clbits > MOST_BITS:
        raise NotConverted(f"a circuit has at most {MOST_BITS} classical bits, this one has {conversion.n_clbits}")
    registers = [Register("q", "quantum", 0, len(qubits))] if qubits else []
    names, place = Names([record.key for record in conversion.measurements.values()] + ["q"]), 0
    taken = {"q"}
    for record in conversion.measurements.values():
        name = record.key if record.key not in taken else names.free(record.key)
        taken.add(name)
        registers.append(Register(name, "classical", place, len(record.clbits)))
        place += len(record.clbits)
    return Circuit._assembled(checked.registers(registers, len(qubits), place), steps)


def ordered_qubits(circuit: Any, qubit_order: Any, name: str = "program") -> tuple[Any, ...]:
    """Return the qubits of a circuit in an order, which must have them all.

    Raises
    ------
    TypeError, NotConverted
        If `circuit` is none of Cirq's, or one of them is a qudit.
    """
    if not isinstance(circuit, cirq.AbstractCircuit):
        raise TypeError(f"{name} must be a cirq.Circuit or a cirq.FrozenCircuit, got {checks.show(circuit)}")
    qubits = cirq.QubitOrder.as_qubit_order(qubit_order).order_for(circuit.all_qubits())
    require_qubits(qubits)
    if len(qubits) > MOST_BITS:
        raise NotConverted(f"a circuit has at most {MOST_BITS} qubits, this one has {len(qubits)}")
    return qubits


def require_qubits(qubits: Iterable[Any]) -> None:
    """Refuse qudits."""
    for qubit in qubits:
        if qubit.dimension != 2:
            raise NotConverted(f"a circuit has qubits only, no qudits, got {qubit} of dimension {qubit.dimension}")


class Measurement(NamedTuple):
    """What one measurement records, and where its outcomes go."""

    key: str
    clbits: tuple[int, ...]
    qubits: tuple[Any, ...]
    inverted: tuple[bool, ...]
    confusion: Mapping[tuple[int, ...], Any]

    @property
    def is_plain(self) -> bool:
        """Whether the outcomes are recorded as they are."""
        return not self.confusion and not any(self.inverted)


_ROTATIONS = {cirq.Rx: "RX", cirq.Ry: "RY", cirq.Rz: "RZ"}


class _Known(NamedTuple):
    """What a gate is: nothing if it is not unitary, name and parameters if it is one instruction on its qubits in order."""

    gate: Any
    phase: Angle = 0.0
    steps: tuple[Instruction, ...] | None = None
    name: str = ""
    params: tuple[Any, ...] = ()


class Conversion:
    """Converts operations one after the other.

    Parameters
    ----------
    numbers : mapping
        Of qubits.
    is_exact : bool
        Whether the instructions write the bits that Cirq records, and keep the global phase. Otherwise they write outcomes
        as they are, and who runs them makes records of them by `measurements`.

    Attributes
    ----------
    steps : list of Instruction
    measurements : dict
        By the first of the classical bits.
    asked_keys : set of str
        Keys that conditions read.
    repeats : bool
        Whether a loop measures, so that there are as many records as rounds.
    """

    def __init__(self, numbers: Mapping[Any, int], is_exact: bool) -> None:
        self._numbers, self._is_exact = numbers, is_exact
        self.steps: list[Instruction] = []
        self.measurements: dict[int, Measurement] = {}
        self.asked_keys = set[str]()
        self.repeats = False
        self.n_clbits = 0
        self._records: dict[str, list[tuple[int, ...]]] = {}
        self._phases: list[Angle] = []
        # Gates by their `id`: they are kept alive, so that no other takes the number.
        self._known: dict[int, _Known] = {}
        self._channels: dict[int, tuple[Any, Channel]] = {}

    def phases(self) -> list[Instruction]:
        """Return the global phase of the gates so far, if there is one; then begin a new one."""
        numbers = [math.remainder(value, 2 * math.pi) for value in self._phases if not isinstance(value, Expression)]
        total: Angle = math.remainder(math.fsum(numbers), 2 * math.pi)
        for value in self._phases:
            if isinstance(value, Expression):
                total = value if not isinstance(total, Expression) and total == 0.0 else total + value
        self._phases = []
        return [Instruction("gphase", (), (total,))] if isinstance(total, Expression) or total else []

    def read_moments(self, circuit: Iterable[Any]) -> None:
        """Convert all operations, moment by moment; `circuit` may give trees of operations in place of moments."""
        for place, moment in enumerate(circuit):
            self.read_moment(moment, place)

    def read_moment(self, moment: Any, place: int | None = None) -> None:
        """Convert the operations of one moment."""
        numbers, known, append = self._numbers, self._known, self.steps.append
        for operation in moment.operations if isinstance(moment, cirq.Moment) else cirq.flatten_to_ops(moment):
            try:
                if type(operation) is not cirq.GateOperation:
                    self._read(operation)
                    continue
                gate = operation.gate
                rotation = _ROTATIONS.get(type(gate))
                if rotation is not None and type(gate.exponent) is float:
                    # Nearly always of its own angle, so that keeping it would cost more than reading it.
                    angle = math.pi * gate.exponent
                    if angle - angle == 0.0:
                        append(Instruction(rotation, (numbers[operation.qubits[0]],), (angle,)))
                        continue
                found = known.get(id(gate)) or self._looked_at(gate, operation)
                if found.name:
                    append(Instruction(found.name, tuple([numbers[qubit] for qubit in operation.qubits]), found.params))
                    if found.phase != 0.0:
                        self._phases.append(found.phase)
                elif found.steps is None:
                    self._read(operation)
                else:
                    self._put(found.phase, found.steps, [numbers[qubit] for qubit in operation.qubits])
            except (TypeError, ValueError, IndexError, OverflowError) as error:
                raise NotConverted.at(error, _told(operation), place, "moment") from None
            except RecursionError:
                reason = "operations hold each other too deeply for Python's stack"
                raise NotConverted(reason, type(operation).__name__, place, "moment") from None

    def _looked_at(self, gate: Any, operation: Any) -> _Known:
        n_qubits = len(operation.qubits)
        if _acts_alone(gate):
            phase, steps = read(gate, n_qubits)
            only = steps[0] if len(steps) == 1 else None
            if only is not None and not only.controls and only.qubits == tuple(range(n_qubits)):
                made = _Known(gate, phase, steps, only.name, only.params)
            else:
                made = _Known(gate, phase, steps)
        else:
            made = _Known(gate)
        self._known[id(gate)] = made
        return made

    # --- One operation ---

    def _read(self, operation: Any) -> None:
        operation = operation.untagged
        if isinstance(operation, cirq.ClassicallyControlledOperation):
            self._conditioned(operation)
        elif isinstance(operation, cirq.CircuitOperation):
            self._circuit_operation(operation)
        else:
            gate = operation.gate
            if isinstance(gate, cirq.MeasurementGate):
                self._measure(operation)
            elif isinstance(gate, cirq.ResetChannel):
                require_qubits(operation.qubits)
                self.steps += [Instruction("reset", (self._numbers[qubit],)) for qubit in operation.qubits]
            elif isinstance(gate, cirq.StatePreparationChannel):
                self._prepare(operation)
            elif gate is not None and _acts_alone(gate):
                phase, steps = read(gate, len(operation.qubits))
                self._put(phase, steps, [self._numbers[qubit] for qubit in operation.qubits])
            else:
                self._other(operation)
        if len(self.steps) > MOST_INSTRUCTIONS:
            raise NotConverted(f"written out the circuit has more than {MOST_INSTRUCTIONS} instructions")

    def _put(self, phase: Angle, steps: Sequence[Instruction], qubits: Sequence[int]) -> None:
        self.steps += under(0.0, steps, (), "", qubits)
        if isinstance(phase, Expression) or phase:
            self._phases.append(phase)

    def _other(self, operation: Any) -> None:
        """Convert what is no gate by itself: controlled operations, noise, and what is made of others."""
        require_qubits(operation.qubits)
        qubits = tuple([self._numbers[qubit] for qubit in operation.qubits])
        if isinstance(operation, cirq.ControlledOperation):
            inside = Conversion(self._numbers, is_exact=True)
            inside._read(operation.sub_operation)
            self._controlled(inside, operation.control_values, [self._numbers[qubit] for qubit in operation.controls])
            return
        if id(operation.gate) in self._channels:
            self.steps.append(Instruction("channel", qubits, detail=self._channel(operation)))
            return
        if not cirq.is_measurement(operation) and cirq.has_kraus(operation) and not cirq.has_unitary(operation):
            if cirq.is_parameterized(operation):
                raise NotConverted("noise must have numbers; bind its symbols first")
            # What is only made of noise does not tell operators of its own.
            if len(qubits) > MOST_QUBITS_OF_NOISE or cirq.kraus(operation, None) is not None:
                self.steps.append(Instruction("channel", qubits, detail=self._channel(operation)))
                return
        is_noise = isinstance(operation.gate, (cirq.KrausChannel, cirq.MixedUnitaryChannel))
        if is_noise and cirq.measurement_key_objs(operation):
            raise NotConverted("a channel cannot record which of its operators acts; leave its key away")
        parts = cirq.decompose_once(operation, None)
        if parts is not None and all([set(part.qubits) <= set(operation.qubits) for part in parts]):
            for part in parts:
                self._read(part)
        elif operation.gate is not None:
            self._put(*read(operation.gate, len(qubits)), qubits)
        else:
            entries = cirq.unitary(operation, None)
            if entries is None:
                raise NotConverted("it has neither a matrix nor a decomposition")
            matrix = checks.plain_entries(checks.matrix(np.asarray(entries), len(qubits)))
            self.steps.append(Instruction("matrix", qubits, matrix))

    def _channel(self, operation: Any) -> Channel:
        gate = operation.gate
        if gate is None:
            return channel(operation, len(operation.qubits))
        # A noise model puts one gate beside many others.
        found = self._channels.get(id(gate))
        if found is None:
            found = self._channels[id(gate)] = gate, channel(gate, len(operation.qubits))
        return found[1]

    def _controlled(self, inside: Conversion, cases: Any, controls: Sequence[int]) -> None:
        steps = inside.phases() + inside.steps
        if not all([step.is_gate and step.condition is None for step in steps]):
            raise NotConverted("only gates can be controlled")
        everywhere = range(len(self._numbers))
        for used, values in control_cases(cases, len(controls)):
            self.steps += under(0.0, steps, tuple([controls[place] for place in used]), values, everywhere)

    def _prepare(self, operation: Any) -> None:
        """A reset, and the gates that make the state of 0."""
        require_qubits(operation.qubits)
        qubits = [self._numbers[qubit] for qubit in operation.qubits]
        made = Circuit(len(qubits)).initialize(operation.gate.state, order="big")
        self.steps += [
            step._replace(
                qubits=tuple([qubits[q] for q in step.qubits]), controls=tuple([qubits[q] for q in step.controls])
            )
            for step in made
        ]

    # --- Measurements and what asks for them ---

    def _measure(self, operation: Any) -> None:
        require_qubits(operation.qubits)
        gate, key = operation.gate, cirq.measurement_key_name(operation)
        qubits = tuple([self._numbers[qubit] for qubit in operation.qubits])
        if not qubits:
            return
        clbits = tuple(range(self.n_clbits, self.n_clbits + len(qubits)))
        record = Measurement(key, clbits, operation.qubits, gate.full_invert_mask(), gate.confusion_map)
        for matrix in map(np.asarray, record.confusion.values()):
            if not (matrix >= 0).all() or not np.allclose(matrix.sum(axis=1), 1, rtol=0, atol=1e-8):
                raise NotConverted(f"a confusion map must have rows of probabilities that add up to 1, got {matrix.tolist()}")
        known = self._records.setdefault(key, [])
        if known and len(known[0]) != len(qubits):
            raise NotConverted(f"measurement key {key} is used for {len(known[0])} qubits and for {len(qubits)}")
        known.append(clbits)
        self.measurements[self.n_clbits] = record
        self.n_clbits += len(qubits)
        if not self._is_exact:
            self.steps.append(Instruction("measure", qubits, (), (), clbits))
            return
        # Where the record is inverted the qubit is, for a moment.
        flips = [Instruction("X", (qubit,)) for qubit, inverted in zip(qubits, record.inverted) if inverted]
        self.steps += [*flips, Instruction("measure", qubits, (), (), clbits, detail=_misread(record)), *flips]

    def _conditioned(self, operation: Any) -> None:
        inside = operation.without_classical_controls()
        asked: AnyCondition | None = None
        for one in sorted(operation.classical_controls, key=str):
            self.asked_keys.update(map(str, one.keys))
            found = condition(one, self._records)
            if found is False:
                return
            if found is not True:
                asked = found if asked is None else asked & found
        first, phases = len(self.steps), self._phases
        self._phases = []
        try:
            self._read(inside)
            own = self.steps[first:]
            if asked is None:
                phases = phases + self._phases
            else:
                own = [_with(step, asked) for step in self.phases() + own]
        finally:
            self._phases = phases
        self.steps[first:] = own

    def _circuit_operation(self, operation: Any) -> None:
        if operation.repeat_until is None:
            if operation.repetitions and len(self.steps) + abs(operation.repetitions) > MOST_INSTRUCTIONS:
                raise NotConverted(f"written out the circuit has more than {MOST_INSTRUCTIONS} instructions")
            for inner in operation.mapped_circuit().all_operations():
                self._read(inner)
            return
        until = getattr(operation, "_mapped_repeat_until", operation.repeat_until)  # since Cirq 1.5 it is mapped
        first, phases = len(self.steps), self._phases
        self._phases = []
        for inner in operation._mapped_single_loop().all_operations():
            self._read(inner)
        body = self.phases() + self.steps[first:]
        self._phases = phases
        self.asked_keys.update(map(str, until.keys))
        self.repeats = True
        asked = condition(until, self._records)
        if asked is False:
            raise NotConverted("the loop never ends: its condition never holds")
        self.steps[first:] = body
        if asked is not True:
            self.steps.append(flow_step(While(~asked, tuple(body), _MOST_ROUNDS)))


def _with(step: Instruction, asked: AnyCondition) -> Instruction:
    """Return an instruction that happens only if a further condition holds."""
    both = asked if step.condition is None else CompoundCondition("and", (asked, step.condition))
    return step._replace(condition=both)


def _misread(record: Measurement) -> Readout | None:
    if not record.confusion:
        return None
    flips = [(0.0, 0.0)] * len(record.clbits)
    for places, matrix in record.confusion.items():
        if len(places) > 1:
            raise NotConverted("a confusion map must be of single qubits; of several at once it cannot be converted")
        (place,) = places
        up, down = float(matrix[0][1]), float(matrix[1][0])
        # What is inverted is the record, and here the qubit is.
        flips[place] = (down, up) if record.inverted[place] else (up, down)
    return Readout(tuple(flips))


def _acts_alone(gate: Any) -> bool:
    """Whether a gate is unitary, as far as that is known without looking into it."""
    return type(gate) in READERS or (
        not isinstance(gate, (cirq.MeasurementGate, cirq.ResetChannel)) and (cirq.has_unitary(gate) or _is_open(gate))
    )


def _is_open(gate: Any) -> bool:
    # Of a gate with symbols Cirq does not say whether it is unitary; noise says what its operators are.
    if not cirq.is_parameterized(gate) or cirq.is_measurement(gate):
        return False
    names = {name: 0.123 for name in cirq.parameter_names(gate)}
    return cirq.has_unitary(cirq.resolve_parameters(gate, names))


def _told(operation: Any) -> str:
    text = str(operation)
    if len(text) <= 80 and "\n" not in text:
        return text
    return f"{type(operation.gate or operation).__name__} on {', '.join(map(str, operation.qubits[:8]))}"


def moments_with_noise(circuit: cirq.AbstractCircuit, noise: cirq.NoiseModel) -> Iterator[Any]:
    """Iterate over what a noise model makes of the moments of a circuit."""
    return iter(noise.noisy_moments(circuit, sorted(circuit.all_qubits())) if is_noisy(noise) else circuit)


def is_noisy(noise: cirq.NoiseModel) -> bool:
    """Whether a noise model changes anything."""
    return type(noise) is not type(cirq.NO_NOISE)
