"""Decisions and repetitions inside a circuit: `if_`, `while_`, `switch`."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any, Self

from ..basics import checks
from ..instructions.checked import require_end, switch_values
from ..instructions.condition import AnyCondition, Bits
from ..instructions.flow import MOST_ITERATIONS, If, Switch, While, flow_step
from ..instructions.instruction import Instruction
from .record import Record
from .steps import StepMethods

BodyLike = Record | Callable[[Any], Any]
ConditionLike = AnyCondition | Bits | tuple[Any, int | str]


class FlowMethods(StepMethods):
    """Instructions that hold others.

    A body is a circuit on the same qubits and classical bits, or fewer, of which the instructions are copied; or a function
    that is called once, with an empty circuit of this one's registers, and adds them there.
    """

    def if_(self, condition: ConditionLike, body: BodyLike, else_body: BodyLike | None = None) -> Self:
        """Let one body act if classical bits meet a condition, and another, if there is one, if they do not.

        The condition is read once, before anything acts: `body` may measure into its bits. (`when` asks again for each
        instruction.)

        Parameters
        ----------
        condition : Condition, or pair of bits and value
            As `bits` makes them, ``circuit.bits("c") < 3`` for example; or ``("c", 1)``, ``(0, 1)``, ``([0, 1], "10")``,
            bits and what they must hold.
        body, else_body : Circuit, or function of one
            What acts: a circuit on the same qubits and classical bits, or fewer, whose instructions are copied; or a
            function that adds them to the empty circuit it is given. There may be decisions inside, 50 levels deep.

        Returns
        -------
        Circuit
            This circuit.

        Raises
        ------
        KeyError
            If there is no classical register of that name.
        TypeError, IndexError, ValueError
            If the condition is none or reads bits that do not exist, a body is neither circuit nor function or larger than
            this circuit, or the levels are more than 50.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> circuit = Circuit(2, 2).h(0).measure(0, 0)
        >>> circuit = circuit.if_(("c", 0), lambda body: body.x(1), lambda body: body.reset(0)).measure([0, 1], [0, 1])
        >>> print(circuit[2])
        if c[0, 1] == "00":
            X 1
        else:
            reset 0
        >>> sorted(run(circuit, shots=100, seed=1).counts)
        ['00', '01']
        """
        asked = self._condition_of(condition)
        first = self._body(body, "body")
        otherwise = () if else_body is None else self._body(else_body, "else_body")
        return self._decide(If(asked, first, otherwise))

    def while_(self, condition: ConditionLike, body: BodyLike, max_iterations: int = MOST_ITERATIONS) -> Self:
        """Repeat a body for as long as classical bits meet a condition, which is read before each round.

        Parameters
        ----------
        condition, body
            As for `if_`. The body must measure into a bit of the condition, and cannot save.
        max_iterations : int
            A run in which the condition still holds after so many rounds ends in RuntimeError.

        Returns
        -------
        Circuit
            This circuit.

        Raises
        ------
        KeyError, TypeError, IndexError, ValueError
            As for `if_`; ValueError also if the loop could never end.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> circuit = Circuit(1, 1).h(0).measure(0, 0)
        >>> circuit = circuit.while_(("c", 0), lambda body: body.h(0).measure(0, 0), max_iterations=100)
        >>> print(circuit)
        H 0
        measure 0 -> 0
        while c[0] == 0:
            H 0
            measure 0 -> 0
        >>> run(circuit, shots=1000, seed=1).counts
        {'1': 1000}
        """
        most = checks.integer(max_iterations, "max_iterations", minimum=1)
        loop = While(self._condition_of(condition), self._body(body, "body"), most)
        require_end(loop)
        return self._decide(loop)

    def switch(self, clbits: Any, cases: Mapping[Any, BodyLike], default: BodyLike | None = None) -> Self:
        """Let one of several bodies act, by the value that classical bits hold, which is read once.

        Parameters
        ----------
        clbits : str, int, sequence of int or Bits
            Name of a classical register, a bit, or a list of distinct bits.
        cases : mapping
            From a value, or a tuple of values, to a body as `if_` takes it. Values are numbers or texts as for `when`, each
            at most once.
        default : Circuit, or function of one
            The body for all other values; by default nothing acts then.

        Returns
        -------
        Circuit
            This circuit.

        Raises
        ------
        KeyError, TypeError, IndexError, ValueError
            As for `if_`, or if a value does not fit the bits or stands twice.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> circuit = Circuit(3, 3).x(1).measure([0, 1], [0, 1])
        >>> circuit = circuit.switch([0, 1], {0: Circuit(3), (1, "10"): Circuit(3).x(2)}, Circuit(3).reset(1))
        >>> print(circuit[-1])
        switch c[0, 1]:
            case 0:
                pass
            case 1, 2:
                X 2
            default:
                reset 1
        >>> run(circuit.measure(2, 2), shots=10).counts
        {'011': 10}
        """
        bits = clbits if isinstance(clbits, Bits) else self.bits(clbits)
        if not isinstance(cases, Mapping):
            raise TypeError(f"cases must be a mapping from values to bodies, got {checks.show(cases)}")
        listed = list(cases.items())
        keys = [key if isinstance(key, tuple) else (key,) for key, _ in listed]
        numbers = [[bits.number(value, "a case") for value in key] for key in keys]
        places, values = switch_values(bits.lowest_first, numbers, self._n_clbits)
        bodies = [self._body(body, f"cases[{checks.show(key)}]") for key, body in listed]
        otherwise = () if default is None else self._body(default, "default")
        return self._decide(Switch(places, tuple(zip(values, bodies)), otherwise))

    def _decide(self, detail: If | While | Switch) -> Self:
        self._append(flow_step(detail, self._condition))
        return self

    def _body(self, body: Any, name: str) -> tuple[Instruction, ...]:
        if isinstance(body, Record):
            if body._n_qubits > self._n_qubits or body._n_clbits > self._n_clbits:
                raise ValueError(
                    f"{name} must have at most {self._n_qubits} qubits and {self._n_clbits} classical bits, those of the "
                    f"circuit, got {body!r}"
                )
            return body.instructions
        if not callable(body):
            raise TypeError(f"{name} must be a Circuit or a function that adds to the one it is given, got {checks.show(body)}")
        inside = self._with([])
        made = body(inside)
        if made is not None and made is not inside:
            raise TypeError(
                f"{name} must add to the circuit it is given, and return that or nothing, got {checks.show(made)}; give a "
                "finished circuit as it is"
            )
        if inside._n_clbits > self._n_clbits:
            raise ValueError(f"{name} must not make classical bits: give the circuit some before, as in Circuit(2, 2)")
        return inside.instructions
