"""What a circuit is made of, kept in one place: registers, instructions, parameters that are open."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from typing import Any, Self

from ..basics import checks
from ..basics.elsewhere import Guiding
from ..basics.words import counted, shortened
from ..instructions import checked
from ..instructions.binding import Template
from ..instructions.definition import GateDefinition, flat, flat_steps, restored, restored_steps
from ..instructions.expression import Angle, Expression, angle
from ..instructions.gate_base import GateBase
from ..instructions.flow import open_params
from ..instructions.instruction import BY_ENTRIES, AnyCondition, Instruction, Register

# What `_start` sets, and `when` for a while.
_OWN = frozenset(
    {
        "_registers", "_n_qubits", "_n_clbits", "_steps", "_template", "_template_params", "_names", "_own_template",
        "_condition", "_prepared",
    }
)  # fmt: skip

# Of qubits, or of classical bits, as in the OpenQASM reader. Whatever lists or draws them all stays within the memory.
MOST_BITS = 1_000_000

#: A circuit that is asked to repeat itself into more instructions than this, or to take more at once, refuses.
MOST_INSTRUCTIONS = 100_000_000


class Record(GateBase, Guiding):
    """Base of the classes that together make `Circuit`: its data, and how instructions come into it."""

    def __init__(
        self, n_qubits: int, n_clbits: int = 0, *, registers: Iterable[Register] | None = None
    ) -> None:
        qubits = checks.integer(n_qubits, "n_qubits", minimum=0, maximum=MOST_BITS)
        clbits = checks.integer(n_clbits, "n_clbits", minimum=0, maximum=MOST_BITS)
        if registers is None:
            listed = _default_registers(qubits, clbits)
        else:
            listed = checked.registers(registers, qubits, clbits)
        self._start(listed, qubits, clbits, [])

    @classmethod
    def from_instructions(
        cls,
        instructions: Iterable[Instruction],
        n_qubits: int,
        n_clbits: int = 0,
        *,
        registers: Iterable[Register] | None = None,
    ) -> Self:
        """Make a circuit of instructions that are there already: the fast way for programs that convert many.

        Every part is checked, as `append` does. Gates without controls whose numbers are plain ``int`` and ``float`` (or
        `Expression`) in tuples take about a microsecond each. Called on a class that inherits, it makes an object of that
        class, whose constructor must take what that of `Circuit` takes.

        Parameters
        ----------
        instructions : iterable of Instruction
        n_qubits, n_clbits, registers
            As for the constructor.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `append`, with the instruction's place in front, and as for the constructor.

        Examples
        --------
        >>> from velacamplix import Circuit, Instruction
        >>> print(Circuit.from_instructions([Instruction("H", (0,)), Instruction("CNOT", (0, 1))], 2))
        H 0
        CNOT 0,1
        """
        made = cls(n_qubits, n_clbits, registers=registers)
        listed = checks.sequence(instructions, "instructions", of="Instruction", most=MOST_INSTRUCTIONS)
        made._instructions.extend(checked.instructions(listed, made._n_qubits, made._n_clbits))
        made._names = None  # of parameters; looked for when asked
        return made

    def _start(
        self, registers: tuple[Register, ...], n_qubits: int, n_clbits: int, steps: list[Instruction] | None
    ) -> None:
        self._registers, self._n_qubits, self._n_clbits = registers, n_qubits, n_clbits
        # None in a circuit whose template was given numbers, until someone looks at the instructions.
        self._steps = steps
        self._template: Template | None = None
        self._template_params: list[tuple[float, ...]] = []
        self._names: tuple[str, ...] | None = None if steps else ()  # of open parameters; None: not looked for
        self._own_template: Template | None = None
        self._condition: AnyCondition | None = None  # set inside `when`
        self._prepared: dict[Any, Any] | None = None  # what running has made of the instructions, kept for the next time

    # --- What is in it ---

    @property
    def n_qubits(self) -> int:
        """Number of qubits."""
        return self._n_qubits

    @property
    def n_clbits(self) -> int:
        """Number of classical bits."""
        return self._n_clbits

    num_qubits, num_clbits = n_qubits, n_clbits

    @property
    def registers(self) -> tuple[Register, ...]:
        """Named registers, in the order of declaration."""
        return self._registers

    @property
    def instructions(self) -> tuple[Instruction, ...]:
        """All instructions, as a copy that later additions do not change."""
        return tuple(self._instructions)

    @property
    def _instructions(self) -> list[Instruction]:
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
        if not isinstance(other, Record):
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
            f"<Circuit: {counted(self._n_qubits, 'qubit')}, "
            f"{counted(self._n_clbits, 'classical bit')}, "
            f"{counted(len(self), 'instruction')}>"
        )

    def __str__(self) -> str:
        return "\n".join(map(str, self._instructions))

    def copy(self) -> Self:
        """Return an independent circuit with the same content.

        Like every circuit made from this one (by `inverse`, `bind`, ``+`` and so on) it is of the same class, and has
        the same further attributes, whatever a constructor of a class that inherits may take.
        """
        made = self._with(list(self._instructions))
        made._own_template, made._names = self._own_template, self._names  # until either grows
        return made

    def __copy__(self) -> Self:
        return self.copy()

    def __getstate__(self) -> dict[str, Any]:
        # Definitions as a flat table; the default would nest as deeply as they call each other.
        steps = self._instructions
        numbers: dict[int, int] = {}
        definitions = {id(step.definition): step.definition for step in steps if step.definition is not None}
        rows = flat(definitions.values(), numbers)
        return {
            "registers": self._registers,
            "definitions": rows,
            "steps": flat_steps(steps, numbers),
            "further": self._further(),
        }

    def __setstate__(self, state: dict[str, Any]) -> None:
        steps = restored_steps(state["steps"], restored(state["definitions"]))
        self._start(state["registers"], *_sizes(state["registers"]), steps)
        vars(self).update(state["further"])

    def append(self, instruction: Instruction, *others: Any) -> Self:
        """Add an instruction after checking all of it.

        It has its qubits already, so nothing comes behind it. Inside `when`, the instruction must not carry a condition
        of its own.

        Raises
        ------
        TypeError, IndexError, ValueError
            If the name is unknown, or numbers, qubits or bits do not fit.

        Examples
        --------
        >>> print(Circuit(2).append(Instruction("CNOT", (1, 0))))
        CNOT 1,0
        """
        if others or not isinstance(instruction, Instruction):
            given = shortened(", ".join(map(checks.show, (instruction, *others))))
            raise TypeError(
                f"instruction must be one Instruction, which has its qubits, got append({given}): gates are added by their "
                "methods, as in circuit.h(0), a circuit by circuit.compose(other, qubits), a gate of your own by "
                "circuit.gate(definition, qubits)"
            )
        self._append(self._accepted(instruction))
        return self

    def extend(self, instructions: Iterable[Instruction]) -> Self:
        """Add several instructions after checking all of them, as `append` does.

        Raises
        ------
        TypeError, IndexError, ValueError
            As for `append`. Nothing is added then.

        Examples
        --------
        >>> print(Circuit(2).extend([Instruction("H", (0,)), Instruction("CNOT", (0, 1))]))
        H 0
        CNOT 0,1
        """
        listed = checks.sequence(instructions, "instructions", of="Instruction", most=MOST_INSTRUCTIONS)
        for step in [self._accepted(instruction) for instruction in listed]:
            self._append(step)
        return self

    def _accepted(self, instruction: Instruction) -> Instruction:
        step = checked.instruction(instruction, self._n_qubits, self._n_clbits)
        if self._condition is None:
            return step
        if step.condition is not None or not step.can_be_conditioned:
            raise ValueError(f"instruction must be able to take the condition of when(), got {step.title}")
        return step._replace(condition=self._condition)

    # --- Inner workings ---

    @classmethod
    def _assembled(cls, registers: tuple[Register, ...], instructions: list[Instruction]) -> Self:
        # For callers that have checked every part: the QASM reader.
        circuit = cls.__new__(cls)
        circuit._start(registers, *_sizes(registers), instructions)
        return circuit

    def _with(self, instructions: list[Instruction] | None, registers: tuple[Register, ...] | None = None) -> Self:
        """Return a circuit that differs in its instructions and registers alone, also of a class with another constructor."""
        made = type(self).__new__(type(self))
        if registers is None:
            made._start(self._registers, self._n_qubits, self._n_clbits, instructions)
        else:
            made._start(registers, *_sizes(registers), instructions)
        if len(vars(self)) > len(_OWN):
            vars(made).update(self._further())
        return made

    def _further(self) -> dict[str, Any]:
        # What a class that inherits, or a user, has added.
        return {name: value for name, value in vars(self).items() if name not in _OWN}

    def _append(self, step: Instruction) -> None:
        steps = self._steps
        (self._instructions if steps is None else steps).append(step)
        self._prepared = None
        if self._template is not None or self._own_template is not None:
            self._template = self._own_template = None
        if step.detail is not None:
            if open_params(step):
                self._names = None
        elif step.params and self._names is not None and step.name not in BY_ENTRIES:
            for value in step.params:
                if isinstance(value, Expression):
                    self._names = None
                    break

    def _add(
        self,
        name: str,
        qubits: tuple[int, ...],
        params: tuple[float | complex | Expression, ...] = (),
        controls: tuple[int, ...] = (),
        clbits: tuple[int, ...] = (),
        definition: GateDefinition | None = None,
    ) -> Self:
        self._append(Instruction(name, qubits, params, controls, clbits, self._condition, definition))
        return self

    # A circuit keeps every gate as it was asked for.
    _add_any = _add

    def _put(self, step: Instruction) -> Self:
        self._append(step if self._condition is None else step._replace(condition=self._condition))
        return self

    def _angle(self, value: Any, name: str = "angle") -> Angle:
        return angle(value, name)


def _default_registers(n_qubits: int, n_clbits: int) -> tuple[Register, ...]:
    registers = (Register("q", "quantum", 0, n_qubits), Register("c", "classical", 0, n_clbits))
    return tuple(register for register in registers if register.size)


def _sizes(registers: Iterable[Register]) -> tuple[int, int]:
    """Return the numbers of qubits and classical bits."""
    sizes = {"quantum": 0, "classical": 0}
    for register in registers:
        sizes[register.kind] += register.size
    return sizes["quantum"], sizes["classical"]
