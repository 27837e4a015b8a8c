"""How a gate's arguments are checked and handed on, for all methods that add gates."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, Sequence
from contextlib import contextmanager
from typing import TYPE_CHECKING, Any, NamedTuple, Self

import numpy as np

from ..basics import checks
from .expand import basic
from .expression import Expression
from .gates import GATES, NATIVE, Qubits
from .instruction import Instruction
from .open_controls import ControlValues as ControlValues
from .open_controls import checked_values, open_controls

Controls = int | Sequence[int]

#: Of gates that act at several places in one call: lists of one length.
Angles = float | Expression | Iterable[float | Expression]
Places = int | Iterable[int]

#: No controls: what every gate method takes by default, one object, so that looking for it costs nothing.
NONE: tuple[int, ...] = ()

#: Stands where an argument is missing that may come under another name.
REQUIRED: Any = ...


class GateBase:
    """Ends every gate in `_add` of the class that inherits.

    That method is called for library gates as its class takes them: one-qubit gates and "matrix" with any controls,
    the others without. Everything else passes through `_add_any`, which makes those of it unless it is overridden.
    """

    _n_qubits: int

    if TYPE_CHECKING:

        def _add(
            self,
            name: str,
            qubits: tuple[int, ...],
            params: tuple[Any, ...] = (),
            controls: tuple[int, ...] = (),
            clbits: tuple[int, ...] = (),
        ) -> Self: ...

    def _add_any(
        self, name: str, qubits: tuple[int, ...], params: tuple[Any, ...] = (), controls: tuple[int, ...] = ()
    ) -> Self:
        parts = [simple for part in basic(Instruction(name, qubits, params, controls)) for simple in lowered(part)]
        for part in parts:
            self._add(part.name, part.qubits, part.params, part.controls)
        return self

    def _angle(self, value: Any, name: str = "angle") -> Any:
        return checks.angle(value, name)

    def _looked_at(
        self, method: str, given: tuple[Any, ...], controls: Any, control_values: Any, names: Mapping[str, Any] = {}
    ) -> Self:
        """Check the arguments of a gate's method one by one and add the gate, or one for each place of lists.

        `given` are those with a place, angles first, `REQUIRED` where one is missing; `names` the others by the words that
        other packages have for them.
        """
        shape = _SHAPES[method]
        words = shape.angles + shape.qubits
        if names or any(value is REQUIRED for value in given):
            given = named(method, dict(zip(words, given)), shape.words, names)
        # Once: what gives them may give them once.
        controls = checks.indices(controls, self._n_qubits, "controls")
        values = checked_values(control_values, shape.n_named + len(controls))
        steps: dict[Qubits, Instruction] = {}
        for row, row_words in _rows(method, words, given, len(shape.angles)):
            step = self._step(method, shape, row, row_words, controls, values)
            qubits = step.controls + step.qubits
            if qubits in steps:
                raise ValueError(f"{method}() takes lists of different qubits, got {qubits} twice")
            steps[qubits] = step
        # Nothing has happened if one of them is wrong.
        for step in steps.values():
            self._put(step)
        return self

    def _step(
        self, method: str, shape: _Shape, given: tuple[Any, ...], words: tuple[str, ...], controls: Any, values: str
    ) -> Instruction:
        n_angles = len(shape.angles)
        for value, word in zip(given[n_angles:], words[n_angles:]) if n_angles else ():
            if isinstance(value, (float, Expression)):
                order = ", ".join(shape.angles + shape.qubits)
                raise TypeError(f"{word} must be an integer, got {checks.show(value)}: angles come first, {method}({order})")
        params = tuple([self._angle(value, word) for value, word in zip(given, words[:n_angles])])
        qubits = tuple(
            [checks.qubit(value, self._n_qubits, word) for value, word in zip(given[n_angles:], words[n_angles:])]
        )
        if len(qubits) > 1:
            checks.distinct(qubits, f"the qubits of {method}")
        all_controls = checks.controls(controls, qubits, self._n_qubits)
        name, n = shape.name, shape.n_controls
        if values and shape.short_for is not None:
            name, n = shape.short_for
        return Instruction(name, qubits[n:], params, qubits[:n] + all_controls, control_values=values)

    def _put(self, step: Instruction) -> Self:
        """Add a gate all of which is known to be right."""
        direct = step.name in NATIVE and (len(step.qubits) == 1 or not step.controls)
        with self._turned(open_controls(step)):
            (self._add if direct else self._add_any)(step.name, step.qubits, step.params, step.controls)
        return self

    @contextmanager
    def _turned(self, qubits: tuple[int, ...]) -> Iterator[None]:
        """Exchange 0 and 1 of qubits for a while."""
        for qubit in qubits:
            self._add("X", (qubit,))
        try:
            yield
        finally:
            for qubit in qubits:
                self._add("X", (qubit,))


class _Shape(NamedTuple):
    """What a method's arguments are: angles, then qubits, the first `n_controls` controls of the gate `name`.

    `n_named`: how many of the qubits are controls, also where the gate is short for another. `words`: more names.
    """

    name: str
    n_controls: int
    n_named: int
    short_for: tuple[str, int] | None
    angles: tuple[str, ...]
    qubits: tuple[str, ...]
    words: Mapping[str, str]


_SHAPES = {
    method: _Shape(
        gate.name, n_controls, gate.named_controls(n_controls), gate.short_for, gate.angles,
        sum(gate.arguments(n_controls), ()), gate.words(n_controls),
    )
    for gate in GATES.values()
    for method, n_controls in gate.methods.items()
}


def named(
    method: str, values: dict[str, Any], words: Mapping[str, str], names: Mapping[str, Any]
) -> tuple[Any, ...]:
    """Return all arguments in order: `values`, where `REQUIRED` stands for what `names` has under one of the `words`."""
    for name, value in names.items():
        word = words.get(name)
        if word is None:
            known = ", ".join(dict.fromkeys([*values, "controls", "control_values"]))
            raise TypeError(f"{method}() takes {known}, also as {', '.join(words)}; got an argument {checks.show(name)}")
        if values[word] is not REQUIRED:
            raise TypeError(f"{method}() takes {word} once, got it again as {name}")
        values[word] = value
    missing = [word for word, value in values.items() if value is REQUIRED]
    if missing:
        raise TypeError(f"{method}() takes {', '.join(values)}; got none for {' and '.join(missing)}")
    return tuple(values.values())


def _rows(
    method: str, words: tuple[str, ...], given: tuple[Any, ...], n_angles: int
) -> Iterator[tuple[tuple[Any, ...], tuple[str, ...]]]:
    """Iterate over the arguments of each gate with their names: one gate, or one for each place of the lists among them."""
    lists = {
        word: checks.sequence(value, word, of="numbers") for word, value in zip(words, given) if checks.is_list(value)
    }
    if not lists:
        yield given, words
        return
    if len(set(map(len, lists.values()))) > 1:
        told = " and ".join([f"{len(values)} of {word}" for word, values in lists.items()])
        raise ValueError(f"{method}() takes lists of one length, got {told}")
    if not lists.keys() & set(words[n_angles:]):
        word = next(word for word in words if word in lists)
        where = f" where {words[n_angles]} is one qubit" if words[n_angles:] else ""
        raise TypeError(f"{word} must be a real number{where}, got {checks.show(given[words.index(word)])}")
    for place in range(len(next(iter(lists.values())))):
        row = [lists[word][place] if word in lists else value for word, value in zip(words, given)]
        yield tuple(row), tuple([f"{word}[{place}]" if word in lists else word for word in words])


def lowered(step: Instruction) -> Iterator[Instruction]:
    """Iterate over the same gate as one-qubit gates and matrices with controls, other gates without."""
    if step.name == "diagonal":
        entries = np.diag(np.array(step.params, dtype=np.complex128))
        yield Instruction("matrix", step.qubits, tuple(entries.ravel().tolist()), step.controls)
    elif not step.controls or len(step.qubits) == 1 or step.name not in NATIVE:
        yield step
    else:
        gate = GATES[step.name]
        if gate.short_for is not None:
            yield Instruction(gate.short_for[0], step.qubits[-1:], (), step.controls + step.qubits[:-1])
        else:
            assert gate.matrix is not None
            yield Instruction("matrix", step.qubits, gate.matrix(*step.params), step.controls)
