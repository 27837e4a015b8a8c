"""The circuit: an ordered list of instructions with a method for each gate."""

from __future__ import annotations

from dataclasses import replace
from typing import Any, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Union

from . import _check, _check_circuit
from ._annotations import Self
from ._circuit_binding import Template
from ._circuit_combine import Combining
from ._circuit_definition import GateDefinition, flat, flat_steps, restored, restored_steps
from ._circuit_entries import EntryMethods
from ._circuit_figures import Figures
from ._circuit_gates import GateMethods
from ._circuit_parameters import ParameterMethods
from ._circuit_steps import StepMethods
from .instruction import Condition, Instruction, Register
from .parameter import Angle, Expression, angle

__all__ = ["Circuit"]

# What `_start` sets, and `when` for a while.
_OWN = frozenset(
    {
        "_registers", "_n_qubits", "_n_clbits", "_steps", "_template", "_template_params", "_names", "_own_template",
        "_condition",
    }
)  # fmt: skip

# Of qubits, or of classical bits. Lists of this length, which some figures need, are at the edge of any memory.
_MOST_BITS = 2**31 - 1


class Circuit(GateMethods, StepMethods, EntryMethods, ParameterMethods, Combining, Figures):
    """An ordered list of gates, measurements, resets and barriers.

    Every method that adds an instruction returns the circuit, so calls can be
    chained. Angles are in radians and come first. Nothing is computed here: a
    circuit is a plain record that compares equal by content and can be pickled.

    Parameters
    ----------
    n_qubits : int
        Number of qubits, 0 or more. Qubit q is bit q of a basis state's number.
    n_clbits : int
        Number of classical bits.
    registers : iterable of Register, optional
        Names for the qubits and classical bits. They must cover both ranges in
        order and without gaps. By default all qubits are ``q``, all classical
        bits ``c``.

    Raises
    ------
    TypeError, ValueError
        If a count is no integer or negative, or the registers do not fit.

    Examples
    --------
    >>> circuit = Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1])
    >>> circuit
    <Circuit: 2 qubits, 2 classical bits, 3 instructions>
    >>> print(circuit)
    H 0
    CNOT 0,1
    measure 0,1 -> 0,1
    >>> [instruction.name for instruction in circuit]
    ['H', 'CNOT', 'measure']
    """

    def __init__(
        self, n_qubits: int, n_clbits: int = 0, *, registers: Optional[Iterable[Register]] = None
    ) -> None:
        qubits = _check.integer(n_qubits, "n_qubits", minimum=0, maximum=_MOST_BITS)
        clbits = _check.integer(n_clbits, "n_clbits", minimum=0, maximum=_MOST_BITS)
        if registers is None:
            listed = _default_registers(qubits, clbits)
        else:
            listed = _check_circuit.registers(registers, qubits, clbits)
        self._start(listed, qubits, clbits, [])

    def _start(
        self, registers: Tuple[Register, ...], n_qubits: int, n_clbits: int, steps: Optional[List[Instruction]]
    ) -> None:
        self._registers, self._n_qubits, self._n_clbits = registers, n_qubits, n_clbits
        # None in a circuit whose template was given numbers, until someone looks at the instructions.
        self._steps = steps
        self._template: Optional[Template] = None
        self._template_params: List[Tuple[float, ...]] = []
        self._names: Optional[Tuple[str, ...]] = None if steps else ()  # of open parameters; None: not looked for
        self._own_template: Optional[Template] = None
        self._condition: Optional[Condition] = None  # set inside `when`

    # --- What is in it ---

    @property
    def n_qubits(self) -> int:
        """Number of qubits."""
        return self._n_qubits

    @property
    def n_clbits(self) -> int:
        """Number of classical bits."""
        return self._n_clbits

    @property
    def registers(self) -> Tuple[Register, ...]:
        """Named registers, in the order of declaration."""
        return self._registers

    @property
    def instructions(self) -> Tuple[Instruction, ...]:
        """All instructions, as a copy that later additions do not change."""
        return tuple(self._instructions)

    @property
    def _instructions(self) -> List[Instruction]:
        if self._steps is None:
            assert self._template is not None
            self._steps = self._template.instructions_with(self._template_params)
        return self._steps

    def __len__(self) -> int:
        return len(self._instructions if self._template is None else self._template.instructions)

    def __bool__(self) -> bool:
        # A circuit without instructions is still a circuit.
        return True

    def __iter__(self) -> Iterator[Instruction]:
        return iter(self._instructions)

    def __getitem__(self, position: int) -> Instruction:
        return self._instructions[position]

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Circuit):
            return NotImplemented
        return (
            self._n_qubits == other._n_qubits
            and self._n_clbits == other._n_clbits
            and self._registers == other._registers
            and self._instructions == other._instructions
        )

    __hash__ = None  # type: ignore[assignment]  # circuits grow

    def __repr__(self) -> str:
        return (
            f"<Circuit: {_counted(self._n_qubits, 'qubit')}, "
            f"{_counted(self._n_clbits, 'classical bit')}, "
            f"{_counted(len(self), 'instruction')}>"
        )

    def __str__(self) -> str:
        return "\n".join(map(str, self._instructions))

    def _repr_html_(self) -> str:
        from ._notebook import of_circuit

        return of_circuit(self)

    def copy(self) -> Self:
        """Return an independent circuit with the same content.

        Like every circuit made from this one (by `inverse`, `bind`, ``+`` and so on) it is of the same class, and has
        the same further attributes, whatever a constructor of a class that inherits may take.
        """
        return self._with(list(self._instructions))

    def __copy__(self) -> Self:
        return self.copy()

    def __getstate__(self) -> Dict[str, Any]:
        # Definitions as a flat table; the default would nest as deeply as they call each other.
        steps = self._instructions
        numbers: Dict[int, int] = {}
        definitions = {id(step.definition): step.definition for step in steps if step.definition is not None}
        rows = flat(definitions.values(), numbers)
        return {
            "registers": self._registers,
            "definitions": rows,
            "steps": flat_steps(steps, numbers),
            "further": self._further(),
        }

    def __setstate__(self, state: Dict[str, Any]) -> None:
        steps = restored_steps(state["steps"], restored(state["definitions"]))
        self._start(state["registers"], *_sizes(state["registers"]), steps)
        vars(self).update(state.get("further", {}))  # 0.1 had none

    # --- Adding ready-made instructions ---

    def gate(
        self,
        definition: GateDefinition,
        qubits: Union[int, Sequence[int]],
        params: Sequence[Any] = (),
        controls: Union[int, Sequence[int]] = (),
    ) -> Self:
        """Add a gate that was defined as a sequence of others.

        Parameters
        ----------
        definition : GateDefinition
        qubits : int or sequence of int
            One for each qubit of the definition.
        params : sequence of float, Parameter or Expression
            One for each parameter of the definition.
        controls : int or sequence of int
            Qubits that must all be 1 for the gate to act.

        Raises
        ------
        TypeError, IndexError, ValueError
            If `definition` is none, or numbers, qubits or controls do not fit it.

        Examples
        --------
        >>> from velacamplix import GateDefinition
        >>> bell = GateDefinition("bell", Circuit(2).h(0).cx(0, 1))
        >>> print(Circuit(3).gate(bell, [0, 2]).gate(bell, [1, 2], controls=0))
        bell 0,2
        bell 1,2 controls 0
        """
        if not isinstance(definition, GateDefinition):
            raise TypeError(f"definition must be a GateDefinition, got {_check.show(definition)}")
        targets = _check.qubits(qubits, self._n_qubits)
        control_qubits = _check.indices(controls, self._n_qubits, "controls")
        numbers = tuple(_check.sequence(params, "params", of="numbers"))
        return self.append(Instruction(definition.name, targets, numbers, control_qubits, definition=definition))

    def append(self, instruction: Instruction) -> Self:
        """Add an instruction after checking all of it.

        Inside `when`, the instruction must not carry a condition of its own.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the name is unknown, or numbers, qubits or bits do not fit.

        Examples
        --------
        >>> print(Circuit(2).append(Instruction("CNOT", (1, 0))))
        CNOT 1,0
        """
        checked = _check_circuit.instruction(instruction, self._n_qubits, self._n_clbits)
        if self._condition is not None:
            if checked.condition is not None or not checked.can_be_conditioned:
                raise ValueError(
                    f"instruction must be able to take the condition of when(), got {checked}"
                )
            checked = replace(checked, condition=self._condition)
        self._append(checked)
        return self

    # --- Inner workings ---

    @classmethod
    def _assembled(cls, registers: Tuple[Register, ...], instructions: List[Instruction]) -> Self:
        # For callers that have checked every part: the QASM reader.
        circuit = cls.__new__(cls)
        circuit._start(registers, *_sizes(registers), instructions)
        return circuit

    def _with(self, instructions: Optional[List[Instruction]]) -> Self:
        """Return a circuit that differs in its instructions alone, also of a class with another constructor."""
        made = type(self).__new__(type(self))
        made._start(self._registers, self._n_qubits, self._n_clbits, instructions)
        vars(made).update(self._further())
        return made

    def _further(self) -> Dict[str, Any]:
        # What a class that inherits, or a user, has added.
        return {name: value for name, value in vars(self).items() if name not in _OWN}

    def _append(self, step: Instruction) -> None:
        self._instructions.append(step)
        if self._template is not None or self._own_template is not None:
            self._template = self._own_template = None
        if self._names is not None and step.params and any(isinstance(value, Expression) for value in step.params):
            self._names = None

    def _add(
        self,
        name: str,
        qubits: Tuple[int, ...],
        params: Tuple[Union[float, complex, Expression], ...] = (),
        controls: Tuple[int, ...] = (),
        clbits: Tuple[int, ...] = (),
        definition: Optional[GateDefinition] = None,
    ) -> Self:
        self._append(Instruction(name, qubits, params, controls, clbits, self._condition, definition))
        return self

    # A circuit keeps every gate as it was asked for.
    _add_any = _add

    def _angle(self, value: Any, name: str = "angle") -> Angle:
        return angle(value, name)


def _default_registers(n_qubits: int, n_clbits: int) -> Tuple[Register, ...]:
    registers = (Register("q", "quantum", 0, n_qubits), Register("c", "classical", 0, n_clbits))
    return tuple(register for register in registers if register.size)


def _sizes(registers: Iterable[Register]) -> Tuple[int, int]:
    """Return the numbers of qubits and classical bits."""
    sizes = {"quantum": 0, "classical": 0}
    for register in registers:
        sizes[register.kind] += register.size
    return sizes["quantum"], sizes["classical"]


def _counted(count: int, noun: str) -> str:
    return f"{count} {noun}" + ("" if count == 1 else "s")
