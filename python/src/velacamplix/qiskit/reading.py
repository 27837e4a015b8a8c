"""Circuits from Qiskit's. What an operation is, its class tells; names are free for users to take."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np
import qiskit.circuit
from qiskit.circuit import (
    CASE_DEFAULT,
    AnnotatedOperation,
    Barrier,
    BreakLoopOp,
    CircuitInstruction,
    ContinueLoopOp,
    ControlFlowOp,
    ControlledGate,
    ControlModifier,
    Delay,
    ForLoopOp,
    Gate,
    IfElseOp,
    InverseModifier,
    Measure,
    PowerModifier,
    QuantumCircuit,
    Reset,
    SwitchCaseOp,
    WhileLoopOp,
)
from qiskit.circuit import Parameter as QiskitParameter
from qiskit.circuit import library
from qiskit.circuit.classical import expr, types
from qiskit.quantum_info import Clifford

from ..basics import checks
from ..circuit.circuit import Circuit
from ..instructions import checked
from ..instructions.condition import AnyCondition, Condition
from ..instructions.definition import GateDefinition, renamed
from ..instructions.expression import Expression, Parameter
from ..instructions.flow import If, Store, Switch, While, bodies_of, conditioned, flow_step, has_leaving, with_bodies
from ..instructions.instruction import Instruction, Register
from ..noise.model import NoiseModel
from ..qasm.meaning import MOST_BITS, MOST_INSTRUCTIONS
from ..qasm.modifiers import controlled, inverse, power
from ..qasm.names import Names
from .angles import angle
from .conditions import bits_of, condition, stored
from .errors import NotConverted
from .gates import STANDARD, WHOLE, TableGate, known
from .noise import CHANNELS, Errors, channel_of
from .saves import NAMES, SETTING, Saves

_BoxOp = getattr(qiskit.circuit, "BoxOp", ())  # since Qiskit 2.0
_StoreOp = getattr(qiskit.circuit, "Store", ())  # since Qiskit 1.1

# Whether an instruction is a gate of Qiskit's own, without a control on 0, is known without making an object of it. Where
# any may have a condition, before Qiskit 2.0, that is not enough.
_TELLS_STANDARD = hasattr(CircuitInstruction, "is_standard_gate") and not hasattr(CircuitInstruction, "condition")


def to_velacamplix(circuit: QuantumCircuit) -> Circuit:
    """Return the same circuit, global phase and parameters included.

    Parameters
    ----------
    circuit : qiskit.QuantumCircuit
        Its qubit i is qubit i here, its classical bit i bit i; registers keep their names. Parameters keep theirs.

    Returns
    -------
    Circuit
        Standard gates become the gate of that name, other gates a matrix or a `GateDefinition` of what they are made of,
        "if", "while" and "switch" instructions that hold others. A "for" is written out, a box becomes what it holds, and a
        delay nothing, as nothing happens during it. A variable becomes a classical register of its bits, behind all others.

    Raises
    ------
    TypeError
        If `circuit` is none of Qiskit's.
    NotConverted
        If there is something a circuit cannot say: variables that are inputs or neither truth values nor unsigned integers,
        conditions that are not about bits, angles of other functions, a matrix that is not unitary, operations without a
        definition.
        It has the instruction, its position and the reason. A ``ValueError``.

    Examples
    --------
    >>> from qiskit import QuantumCircuit
    >>> from qiskit.circuit import Parameter
    >>> theirs = QuantumCircuit(2, 1, global_phase=0.5)
    >>> _ = theirs.ry(Parameter("a") / 2, 0)
    >>> _ = theirs.cx(0, 1), theirs.measure(1, 0)
    >>> print(to_velacamplix(theirs))
    gphase(0.5)
    RY(a/2) 0
    CNOT 0,1
    measure 1 -> 0
    """
    if not isinstance(circuit, QuantumCircuit):
        raise TypeError(f"circuit must be a qiskit.QuantumCircuit, got {checks.show(circuit)}")
    return converted(circuit)


def with_noise(circuit: Any, noise: NoiseModel | Errors | None, saves: Saves | None = None) -> Circuit:
    """Return what `to_velacamplix` does, with noise in it, and with saves if there is somebody to note them."""
    if isinstance(noise, Errors):
        return converted(circuit, noise, saves)
    made = converted(circuit, None, saves)
    return made if noise is None else noise.apply(made)


def converted(circuit: Any, errors: Errors | None = None, saves: Saves | None = None) -> Circuit:
    """Return what `to_velacamplix` does, with the noise of a model of Aer's in it, and with saves."""
    if errors is not None and errors.manager is not None:
        circuit = errors.manager.run(circuit)
    n_qubits, n_clbits = circuit.num_qubits, circuit.num_clbits
    for n_bits, kind in ((n_qubits, "qubits"), (n_clbits, "classical bits")):
        if n_bits > MOST_BITS:
            raise NotConverted(f"a circuit has at most {MOST_BITS} {kind}, this one has {n_bits}")
    listed = _registers(circuit)
    variables: dict[Any, tuple[int, ...]] = {}
    if _HAS_VARIABLES and (circuit.num_vars or any([item.name in _HOLDING for item in circuit.data])):
        variables, more = _variables(circuit, n_clbits, Names([register.name for register in listed]))
        listed += more
        n_clbits += sum([register.size for register in more])
    registers = checked.registers(listed, n_qubits, n_clbits)
    conversion = _Conversion(circuit, variables, errors, saves)
    outside = conversion.outside
    made = _phase(circuit)
    quick = _Standard(outside).step if _TELLS_STANDARD and errors is None else None
    for position, item in enumerate(circuit.data):
        try:
            if quick is not None:
                step = quick(item)
                if step:
                    made.append(step)
                    if saves is not None and step[4]:
                        saves.note([step])
                    continue
            steps = conversion.steps(item, outside)
            if saves is not None:
                saves.note(steps)
            made += [checked.instruction(step, n_qubits, n_clbits) for step in steps]
        except (TypeError, ValueError, IndexError) as error:
            raise NotConverted.at(error, _told(item, outside), position) from None
        except RecursionError:
            reason = "instructions hold each other too deeply for Python's stack"
            raise NotConverted(reason, repr(item.operation.name), position) from None
    return Circuit._assembled(registers, made)


# Before Qiskit 1.1 there are none.
_HAS_VARIABLES = hasattr(QuantumCircuit, "num_vars")
_HOLDING = frozenset({"if_else", "switch_case", "while_loop", "for_loop", "box"})


def _variables(circuit: Any, first: int, names: Names) -> tuple[dict[Any, tuple[int, ...]], list[Register]]:
    """Return the bits of all variables, inputs excepted, from a number on, and a register for each."""
    bits: dict[Any, tuple[int, ...]] = {}
    registers: list[Register] = []
    waiting = [circuit]
    for block in waiting:  # which grows
        for variable in block.iter_declared_vars():
            kind = variable.type.kind
            if variable.var in bits:
                continue
            if kind not in (types.Bool, types.Uint):
                raise NotConverted(f"variable {variable.name!r} must be a truth value or an unsigned integer, got {variable.type}")
            size = variable.type.width if kind is types.Uint else 1
            bits[variable.var] = tuple(range(first, first + size))
            registers.append(Register(names.free(variable.name), "classical", first, size))
            first += size
        waiting += [inner for item in block.data if item.name in _HOLDING for inner in item.operation.blocks]
    if first > MOST_BITS:
        raise NotConverted(f"a circuit has at most {MOST_BITS} classical bits, this one has {first} with those of its variables")
    return bits, registers


class _Standard:
    """Makes instructions of Qiskit's standard gates and of measurements, the same ones only once."""

    def __init__(self, outside: _Places) -> None:
        self._qubits, self._clbits = outside.qubits, outside.clbits
        # By name and qubits: of a gate with angles its parts, of others the instruction itself.
        self._known: dict[Any, Any] = {}

    def step(self, item: Any) -> Instruction | None:
        """Return what one of Qiskit's instructions is, None if it is neither."""
        if not item.is_standard_gate():
            if item.name == "measure" and isinstance(item.operation, Measure):
                (qubit,), (clbit,) = item.qubits, item.clbits
                return Instruction("measure", (self._qubits[qubit],), (), (), (self._clbits[clbit],))
            return None
        key = item.name, item.qubits
        known = self._known.get(key)
        if known is None:
            known = self._known[key] = self._parts(*key)
        if type(known) is not tuple:  # an instruction is of a class of its own
            return known or None
        name, qubits, controls = known
        params = tuple([v if type(v) is float and v - v == 0.0 else angle(v) for v in item.params])
        # Without its arguments' names it takes a third of the time.
        return tuple.__new__(Instruction, (name, qubits, params, controls, (), None, None, None, ""))

    def _parts(self, word: str, bits: tuple[Any, ...]) -> Any:
        found = STANDARD.get(word)
        if found is None:
            return False
        name, n_controls, n_params = found
        qubits = tuple([self._qubits[bit] for bit in bits])
        n = len(qubits) - 1 if n_controls is None else n_controls
        if n_params:
            return name, qubits[n:], qubits[:n]
        return Instruction(name, qubits[n:], (), qubits[:n])


def _told(item: Any, places: _Places) -> str:
    """Return name and place of one of Qiskit's instructions."""
    told = [repr(item.operation.name)]
    for word, bits, numbers in (("qubits", item.qubits, places.qubits), ("bits", item.clbits, places.clbits)):
        if bits:
            told.append(f"{word} {', '.join([str(numbers[bit]) for bit in bits])}")
    return " on ".join(told[:2]) + "".join([f" and {more}" for more in told[2:]])


def _definition(name: str, body: Any, definitions: dict[int, Any]) -> GateDefinition:
    """Return the definition of a gate whose body is a circuit of Qiskit's."""
    conversion = _Conversion(body, {}, None, None, definitions)
    steps = [step for item in body.data for step in conversion.steps(item, conversion.outside)]
    for step in steps:
        if not (step.is_gate or step.name == "barrier") or step.condition is not None:
            raise NotConverted(f"a gate cannot be made of {step.title}")
    params = tuple([parameter.name for parameter in body.parameters])
    return renamed(GateDefinition.checked(name, params, body.num_qubits, (*_phase(body), *steps)), ())


def _phase(program: Any) -> list[Instruction]:
    try:
        turn = angle(program.global_phase)
    except (TypeError, ValueError) as error:
        raise NotConverted(f"the global phase cannot be converted: {error}") from None
    return [] if not isinstance(turn, Expression) and turn == 0.0 else [Instruction("gphase", (), (turn,))]


class _Places(NamedTuple):
    """The numbers that a block's bits have in the whole circuit."""

    qubits: dict[Any, int]
    clbits: dict[Any, Any]


class _Conversion:
    """Converts the instructions of one circuit."""

    def __init__(
        self,
        program: Any,
        variables: dict[Any, tuple[int, ...]],
        errors: Errors | None,
        saves: Saves | None,
        definitions: dict[int, tuple[Any, GateDefinition]] | None = None,
    ) -> None:
        self._variables = variables  # their bits, known everywhere
        self._errors, self._saves = errors, saves
        self.outside = _Places(
            {bit: number for number, bit in enumerate(program.qubits)},
            {**{bit: number for number, bit in enumerate(program.clbits)}, **variables},
        )
        # Gates that share what they are made of are converted once; kept alive, so that no other takes the number.
        self._definitions: dict[int, tuple[Any, GateDefinition]] = {} if definitions is None else definitions
        self._written_out = 0  # instructions of loops

    def steps(self, item: Any, places: _Places) -> list[Instruction]:
        """Return what an instruction becomes, at its place in the circuit."""
        operation = item.operation
        qubits = tuple([places.qubits[bit] for bit in item.qubits])
        clbits = tuple([places.clbits[bit] for bit in item.clbits])
        if isinstance(operation, ControlFlowOp):
            return self._control_flow(operation, qubits, clbits, places)
        if isinstance(operation, (BreakLoopOp, ContinueLoopOp)):
            return [Instruction("break" if isinstance(operation, BreakLoopOp) else "continue", ())]
        if isinstance(operation, _StoreOp):
            return [_stored(operation, places.clbits)]
        if self._errors is not None and _is_opened(operation, self._errors):
            steps = self._block(operation.definition, qubits, clbits)
        else:
            steps = self._converted(operation, qubits, clbits)
        if self._errors is not None:
            steps = self._errors.beside(operation, qubits, steps)
        if getattr(operation, "condition", None) is not None:  # before Qiskit 2.0
            return self._if(condition(operation.condition, places.clbits), [steps])
        return steps

    def _block(self, block: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> list[Instruction]:
        inside = _Places(dict(zip(block.qubits, qubits)), {**dict(zip(block.clbits, clbits)), **self._variables})
        return _phase(block) + [step for item in block.data for step in self.steps(item, inside)]

    # --- Decisions and loops ---

    def _control_flow(
        self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...], places: _Places
    ) -> list[Instruction]:
        if isinstance(operation, _BoxOp):
            return self._block(operation.blocks[0], qubits, clbits)
        if isinstance(operation, ForLoopOp):
            return self._for(operation, qubits, clbits)
        if isinstance(operation, IfElseOp):
            bodies = [self._block(block, qubits, clbits) for block in operation.blocks]
            return self._if(condition(operation.condition, places.clbits), bodies)
        if isinstance(operation, WhileLoopOp):
            asked = condition(operation.condition, places.clbits)
            body = self._block(operation.blocks[0], qubits, clbits)
            if asked is False:
                return []
            if asked is True:
                if not has_leaving(body, "break"):
                    raise NotConverted("the loop never ends: its condition always holds")
                asked = self._always()
            loop = While(asked, tuple(body))
            checked.require_end(loop)
            return [flow_step(loop)]
        if isinstance(operation, SwitchCaseOp):
            bits = bits_of(operation.target, places.clbits)
            if bits is None:
                raise NotConverted(f"a switch on {operation.target} cannot be converted: it must be on a bit or a register")
            cases: list[tuple[tuple[int, ...], tuple[Instruction, ...]]] = []
            default: tuple[Instruction, ...] = ()
            for values, block in operation.cases_specifier():
                inside = tuple(self._block(block, qubits, clbits))
                if CASE_DEFAULT in values:
                    default = inside
                else:
                    cases.append((tuple([int(value) for value in values]), inside))
            return [flow_step(Switch(bits, tuple(cases), default))]
        raise NotConverted(f"a circuit has no {operation.name!r}")

    def _if(self, asked: AnyCondition | bool, bodies: list[list[Instruction]]) -> list[Instruction]:
        if isinstance(asked, bool):
            return bodies[0] if asked else [step for body in bodies[1:] for step in body]
        step = flow_step(If(asked, *[tuple(body) for body in bodies]))
        return conditioned(step) or [step]

    def _for(self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> list[Instruction]:
        values, parameter, block = operation.params
        if not isinstance(values, Sequence) or not isinstance(parameter, (QiskitParameter, type(None))):
            raise NotConverted("the loop's variable must be a parameter, and its values known")
        if parameter is None or parameter not in block.parameters:
            body = self._round(self._block(block, qubits, clbits))
            self._spend(len(values) * len(body))
            made = body * len(values)
        else:
            made = []
            for value in values:
                made += self._round(self._block(block.assign_parameters({parameter: value}), qubits, clbits))
                self._spend(1 + len(block.data))
        if not has_leaving(made, "break"):
            return made
        # One round of a loop that is left in its end at the latest.
        return [flow_step(While(self._always(), (*made, Instruction("break", ()))))]

    def _round(self, steps: list[Instruction]) -> list[Instruction]:
        """Return a round of a loop that is written out: what a "continue" leaves out stands where it does not come."""
        if not has_leaving(steps, "continue"):
            return steps
        made: list[Instruction] = []
        for place, step in enumerate(steps):
            self._spend(1)
            rest = steps[place + 1 :]
            if step.name == "continue":
                if step.condition is None:
                    return made
                return [*made, flow_step(If(step.condition, (), tuple(self._round(rest))))]
            if has_leaving([step], "continue"):
                bodies = [self._round([*body, *rest]) for body in bodies_of(step)]
                return [*made, with_bodies(step, bodies)]
            made.append(step)
        return made

    def _always(self) -> AnyCondition:
        """Return a condition that holds in any case."""
        if not self.outside.clbits:
            raise NotConverted("a loop that only a break ends must stand in a circuit with classical bits")
        return Condition((0,), 0, ">=")

    def _spend(self, count: int) -> None:
        self._written_out += count
        if self._written_out > MOST_INSTRUCTIONS:
            raise NotConverted(f"loops written out have more than {MOST_INSTRUCTIONS} instructions")

    # --- Operations ---

    def _converted(self, operation: Any, qubits: tuple[int, ...], clbits: tuple[int, ...]) -> list[Instruction]:
        if isinstance(operation, Measure):
            return [Instruction("measure", qubits, (), (), clbits)]
        if isinstance(operation, Reset):
            return [Instruction("reset", qubits)]
        if isinstance(operation, Barrier):
            return [Instruction("barrier", qubits)]
        if isinstance(operation, Delay):
            return []
        if operation.name in NAMES and self._saves is not None:
            return self._saves.steps(operation, qubits)
        if operation.name in SETTING:
            return _initialized(operation.params[0], qubits)
        if operation.name in CHANNELS:
            return [Instruction("channel", qubits, detail=channel_of(operation))]
        if isinstance(operation, library.Initialize):
            return _initialized(_initial(operation.params), qubits)
        if isinstance(operation, AnnotatedOperation):
            return self._modified(operation, qubits)
        if isinstance(operation, Gate):
            return self._gate(operation, qubits)
        if isinstance(operation, Clifford):
            return self._gate(operation.to_instruction(), qubits)
        if getattr(operation, "definition", None) is not None:  # a circuit as an instruction
            return self._block(operation.definition, qubits, clbits)
        if operation.name.startswith(("save_", "set_")):
            known = ", ".join(sorted([*NAMES, *SETTING]))
            raise NotConverted(
                f"{operation.name!r} is not offered; the backend has {known}"
                if operation.name not in NAMES
                else f"{operation.name!r} keeps what results of the backend tell; run the circuit there"
            )
        raise NotConverted(f"a circuit has no {operation.name!r}")

    def _modified(self, operation: Any, qubits: tuple[int, ...]) -> list[Instruction]:
        modifiers = operation.modifiers
        # The modifier that comes last has its controls first.
        ends = [operation.base_op.num_qubits]
        for modifier in modifiers:
            ends.append(ends[-1] + (modifier.num_ctrl_qubits if isinstance(modifier, ControlModifier) else 0))
        steps = self._converted(operation.base_op, qubits[len(qubits) - ends[0] :], ())
        for number, modifier in enumerate(modifiers):
            own = qubits[len(qubits) - ends[number] :]
            if isinstance(modifier, InverseModifier):
                steps = inverse(steps)
            elif isinstance(modifier, ControlModifier):
                controls = qubits[len(qubits) - ends[number + 1] : len(qubits) - ends[number]]
                steps = controlled(steps, controls, _control_values(modifier))
            elif isinstance(modifier, PowerModifier):
                steps = power(steps, modifier.power, own)
            else:
                raise NotConverted(f"the modifier {modifier} cannot be converted")
        return steps

    def _gate(self, operation: Any, qubits: tuple[int, ...]) -> list[Instruction]:
        if isinstance(operation, TableGate):
            return [Instruction(operation.row, qubits, tuple([angle(value) for value in operation.params]))]
        if isinstance(operation, library.UnitaryGate):
            entries = checks.matrix(np.asarray(operation.to_matrix()), len(qubits))
            return [Instruction("matrix", qubits[::-1], checks.plain_entries(entries))]
        if isinstance(operation, library.DiagonalGate):
            return [Instruction("diagonal", qubits[::-1], checked.diagonal(operation.params, len(qubits)))]
        if isinstance(operation, library.PermutationGate):
            return _permuted([int(place) for place in operation.pattern], qubits)
        found = known(operation)
        if found is not None:
            step, n = found
            params = tuple([angle(value) for value in operation.params])
            return [Instruction(step, qubits[n:], params, qubits[:n])]
        if isinstance(operation, ControlledGate):
            base, n = operation.base_gate, operation.num_ctrl_qubits
            # cu has a parameter more than the u that it controls, and some gates have qubits to work with.
            is_cu = isinstance(base, library.UGate) and len(operation.params) > 3
            if not is_cu and base.num_qubits + n == operation.num_qubits:
                return controlled(self._gate(base, qubits[n:]), qubits[:n], _control_values(operation))
        if operation.definition is None:
            raise NotConverted(f"gate {operation.name!r} has no definition")
        if not qubits:
            return self._block(operation.definition, (), ())
        definition = self._definition(operation)
        params = tuple([Parameter(name) for name in definition.params])
        return [Instruction(definition.name, qubits, params, definition=definition)]

    def _definition(self, operation: Any) -> GateDefinition:
        # Qiskit's gates hold the body for the parameters of this call; those of the circuit may be among them.
        body = operation.definition
        found = self._definitions.get(id(body))
        if found is None:
            found = self._definitions[id(body)] = body, _definition(operation.name, body, self._definitions)
        return found[1]


def _is_opened(operation: Any, errors: Errors) -> bool:
    """Whether the noise of a gate is that of what it is made of."""
    if not isinstance(operation, Gate) or operation.name in WHOLE or operation.name in errors.names:
        return False
    return operation.label not in errors.names and operation.definition is not None and operation.num_qubits > 0


def _stored(operation: Any, clbits: dict[Any, Any]) -> Instruction:
    target = operation.lvalue
    values = stored(operation.rvalue, clbits)
    bits = bits_of(target, clbits)
    if bits is None and isinstance(target, expr.Index) and isinstance(target.index, expr.Value):
        whole = bits_of(target.target, clbits)
        bits = None if whole is None else whole[target.index.value : target.index.value + 1]
    if not bits:
        raise NotConverted(f"nothing can be stored into {target}: it must be a bit, a register or a variable")
    return Instruction("store", (), clbits=bits, detail=Store(values))


def _control_values(operation: Any) -> str:
    """Return what the controls read, the first leftmost, of a gate or a modifier."""
    return f"{operation.ctrl_state:0{operation.num_ctrl_qubits}b}"[::-1]


def _initial(params: Any) -> Any:
    """Return the letters, number or amplitudes of an `Initialize`."""
    if isinstance(params[0], str):
        return "".join(params)
    return int(complex(params[0]).real) if len(params) == 1 else params  # one number is that of a basis state


def _initialized(state: Any, qubits: tuple[int, ...]) -> list[Instruction]:
    """Return a reset and the gates that make the state of 0."""
    made = Circuit(len(qubits)).initialize(state, order="little")
    return [step._replace(qubits=tuple([qubits[place] for place in step.qubits])) for step in made]


def _permuted(pattern: list[int], qubits: tuple[int, ...]) -> list[Instruction]:
    """Return exchanges after which the i-th qubit has the state of the ``pattern[i]``-th."""
    steps, held = [], list(range(len(qubits)))
    for place, wanted in enumerate(pattern):
        other = held.index(wanted)
        if other != place:
            steps.append(Instruction("SWAP", (qubits[place], qubits[other])))
            held[place], held[other] = held[other], held[place]
    return steps


def _registers(program: Any) -> list[Register]:
    """Return registers that cover all bits in order; loose bits between them get one too."""
    registers: list[Register] = []
    names = Names([register.name for register in [*program.qregs, *program.cregs]])
    kinds = (("quantum", program.qregs, program.qubits), ("classical", program.cregs, program.clbits))
    for kind, listed, bits in kinds:
        first: dict[Any, list[Any]] = {}
        for register in reversed([register for register in listed if len(register)]):
            first.setdefault(register[0], []).append(register)
        taken = set[str]()
        place = 0
        while place < len(bits):
            fitting = [r for r in reversed(first.get(bits[place], [])) if list(r) == list(bits[place : place + len(r)])]
            found = next((r for r in fitting if r.name not in taken), None)
            if found is not None:
                name, n_bits = found.name, len(found)
            else:
                n_bits = 1
                name = names.free("q" if kind == "quantum" else "c")
            taken.add(name)
            registers.append(Register(name, kind, place, n_bits))
            place += n_bits
    return registers
