"""Decisions and repetitions inside a circuit: `if_`, `while_`, `switch`, and classical bits that are written."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any, Self

from ..basics import checks
from ..instructions.checked import require_end, switch_values
from ..instructions.checked import store as stored
from ..instructions.condition import AnyCondition, Bits, Condition
from ..instructions.flow import MOST_ITERATIONS, If, Store, Switch, While, flow_step
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
            As for `if_`. The body must measure or `store` into a bit of the condition, or `break_`; it cannot save.
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

    def break_(self) -> Self:
        """Leave the innermost `while_` around this place; what stands behind acts next.

        In a body of `while_`, or of an `if_` or `switch` inside of it. In `when` only if the condition holds.

        Returns
        -------
        Circuit
            This circuit. Outside of a loop a run of it raises ValueError.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> body = Circuit(1, 2).h(0).measure(0, 0).if_((0, 1), lambda one: one.break_()).x(0).measure(0, 1)
        >>> circuit = Circuit(1, 2).while_((1, 0), body)
        >>> print(circuit)
        while c[1] == 0:
            H 0
            measure 0 -> 0
            if c[0] == 1:
                break
            X 0
            measure 0 -> 1
        >>> sorted(run(circuit, shots=100, seed=1).counts)
        ['01', '10']
        """
        self._append(Instruction("break", (), condition=self._condition))
        return self

    def continue_(self) -> Self:
        """Go on with the next round of the innermost `while_` around this place, whose condition is read again.

        Returns
        -------
        Circuit
            This circuit. Outside of a loop a run of it raises ValueError.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> body = Circuit(2, 2).h(0).measure(0, 0).if_((0, 0), lambda zero: zero.continue_()).x(1).measure(1, 1)
        >>> run(Circuit(2, 2).while_((1, 0), body), shots=100, seed=1).counts
        {'11': 100}
        """
        self._append(Instruction("continue", (), condition=self._condition))
        return self

    def store(self, clbits: Any, value: Any) -> Self:
        """Write classical bits, without a measurement.

        Parameters
        ----------
        clbits : str, int, sequence of int or Bits
            Name of a classical register, a bit, or a list of distinct bits.
        value : int, str, Bits, Condition, or sequence of conditions
            What they shall hold: a number or a text as for `when`; other bits, as many, in the same order; or for one bit a
            condition, for several one for each in their order, True and False among them: 1 where it holds. All are read
            before anything is written.

        Returns
        -------
        Circuit
            This circuit.

        Raises
        ------
        KeyError, TypeError, IndexError, ValueError
            If there are no such bits, or the value does not fit them.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> circuit = Circuit(1, 3).x(0).measure(0, 0)
        >>> circuit = circuit.store([1, 2], "01").store(1, circuit.bits(0) ^ circuit.bits(1))
        >>> print(circuit[-1])
        store c[1] = (c[0] == 1 xor c[1] == 1)
        >>> run(circuit, shots=10).counts
        {'111': 10}
        """
        bits = clbits if isinstance(clbits, Bits) else self.bits(clbits)
        places = bits.lowest_first
        values: tuple[AnyCondition | bool, ...]
        if isinstance(value, Bits) and len(value) == len(bits):
            values = tuple([Condition((bit,), 1) for bit in value.lowest_first])
        elif isinstance(value, (AnyCondition, Bits)) or (checks.is_list(value) and len(bits) == len(value)):
            listed = list(value) if checks.is_list(value) else [value]
            values = tuple([one if isinstance(one, bool) else self._condition_of(one) for one in listed])
            places = places if bits.is_register else places[::-1]
        else:
            number = bits.number(value)
            values = tuple([bool(number >> place & 1) for place in range(len(bits))])
        detail, written = stored(Store(values), places, self._n_clbits)
        self._append(Instruction("store", (), clbits=written, condition=self._condition, detail=detail))
        return self

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
