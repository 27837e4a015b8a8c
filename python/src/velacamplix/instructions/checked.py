"""Checks of ready-made parts of a circuit: instructions and registers."""

from __future__ import annotations

import cmath
from collections.abc import Iterable, Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ..basics import checks
from ..channels.channel import Channel
from ..machine import memory
from .condition import checked as condition_checked
from .definition import GateDefinition
from .expression import Expression, angle
from .flow import If, PlainTerm, Readout, Save, Store, Switch, While, flow_step, leaves, has_leaving, written_bits
from .gates import GATES
from .instruction import BY_ENTRIES, DETAILED, LEAVING, NON_UNITARY, Instruction, Register
from .open_controls import checked_values


def instruction(value: Any, n_qubits: int, n_clbits: int) -> Instruction:
    """Return an equal instruction made of plain ``int``, ``float`` and ``tuple``.

    Raises
    ------
    TypeError, IndexError, ValueError
        If the name is unknown, or numbers, qubits or bits do not fit a circuit
        of `n_qubits` and `n_clbits`.

    >>> print(instruction(Instruction("CNOT", [1, 0]), 2, 0))
    CNOT 1,0
    """
    if not isinstance(value, Instruction):
        raise TypeError(f"instruction must be an Instruction, got {checks.show(value)}")
    name = checks.plain(value.name) if isinstance(value.name, str) else value.name
    is_text = isinstance(name, str)
    if (is_text and name in DETAILED) or (value.detail is not None and not (is_text and name == "measure")):
        return _detailed(name, value, n_qubits, n_clbits)
    definition = _definition(value)
    shape = _shape(name, definition)
    any_number = shape is None and name != "barrier" and name not in LEAVING
    qubits = checks.qubits(value.qubits, n_qubits, at_least=1 if any_number else 0)
    if qubits and name in LEAVING:
        raise ValueError(f"qubits of {name} must be empty, got {checks.show(value.qubits)}")
    if shape is not None and len(qubits) != shape[0]:
        raise ValueError(f"qubits of {name} must be {shape[0]}, got {len(qubits)}")
    controls = _controls(name, value.controls, qubits, n_qubits)
    return Instruction(
        name,
        qubits,
        _params(name, value.params, len(qubits), 0 if shape is None else shape[1]),
        controls,
        _clbits(name, value.clbits, qubits, n_clbits),
        _condition(value, n_clbits),
        definition,
        None if value.detail is None else readout(value.detail, len(qubits)),
        checked_values(value.control_values, len(controls)),
    )


def instructions(values: Iterable[Any], n_qubits: int, n_clbits: int) -> list[Instruction]:
    """Return many instructions, each as `instruction` returns it; what is plain already costs a microsecond.

    Raises
    ------
    TypeError, IndexError, ValueError
        As `instruction`, with the place in front.
    """
    listed = []
    for place, value in enumerate(values):
        if not _is_plain(value, n_qubits):
            try:
                value = instruction(value, n_qubits, n_clbits)
            except (TypeError, IndexError, ValueError) as error:
                raise type(error)(f"instructions[{place}]: {error}") from None
        listed.append(value)
    return listed


_SHAPES = {gate.name: (gate.n_qubits, gate.n_params) for gate in GATES.values()}


def _is_plain(value: Any, n_qubits: int) -> bool:
    """Whether this is a gate of the table without controls and conditions, made of plain numbers that are right."""
    if type(value) is not Instruction:
        return False
    name, qubits, params, controls, clbits, condition, definition, detail, control_values = value
    if type(name) is not str or type(qubits) is not tuple or type(params) is not tuple:
        return False
    if condition is not None or definition is not None or detail is not None:
        return False
    if type(controls) is not tuple or controls or type(clbits) is not tuple or clbits:
        return False
    if type(control_values) is not str or control_values or _SHAPES.get(name) != (len(qubits), len(params)):
        return False
    for qubit in qubits:
        if type(qubit) is not int or not 0 <= qubit < n_qubits:
            return False
    if len(qubits) > 1 and len(set(qubits)) < len(qubits):
        return False
    for param in params:
        if type(param) is float:
            if param - param != 0.0:  # infinite or no number
                return False
        elif not isinstance(param, Expression):
            return False
    return True


def registers(values: Any, n_qubits: int, n_clbits: int) -> tuple[Register, ...]:
    """Return registers that cover all qubits and all classical bits in order, without gaps."""
    listed = checks.sequence(values, "registers", of="Register")
    ends = {"quantum": 0, "classical": 0}
    names = set()
    checked = []
    for register in listed:
        if not isinstance(register, Register):
            raise TypeError(f"registers must hold Register objects, got {checks.show(register)}")
        kind = checks.choice(register.kind, "kind of a register", tuple(ends))
        if not isinstance(register.name, str):
            raise TypeError(f"name of a register must be a text, got {checks.show(register.name)}")
        name = checks.plain(register.name)
        if name in names:
            raise ValueError(f"registers must have distinct names, got {checks.show(name)} twice")
        names.add(name)
        if checks.integer(register.start, "start of a register") != ends[kind]:
            raise ValueError(
                f"registers must follow each other without gaps: {checks.show(name)} must start at "
                f"{ends[kind]}, got {checks.show(register.start)}"
            )
        size = checks.integer(register.size, "size of a register", minimum=0)
        checked.append(Register(name, kind, ends[kind], size))
        ends[kind] += size
    if (ends["quantum"], ends["classical"]) != (n_qubits, n_clbits):
        raise ValueError(
            f"registers must cover {n_qubits} qubits and {n_clbits} classical bits, "
            f"got {checks.show(ends['quantum'])} and {checks.show(ends['classical'])}"
        )
    return tuple(checked)


def _definition(value: Instruction) -> GateDefinition | None:
    definition = value.definition
    if definition is None:
        return None
    if not isinstance(definition, GateDefinition):
        raise TypeError(f"definition must be a GateDefinition or None, got {checks.show(definition)}")
    if value.name != definition.name:
        wanted, got = checks.show(definition.name), checks.show(value.name)
        raise ValueError(f"name must be {wanted}, that of the definition, got {got}")
    return definition


def _shape(name: Any, definition: GateDefinition | None) -> tuple[int, int] | None:
    """Numbers of qubits and parameters, or None if any number of qubits will do."""
    if definition is not None:
        return definition.n_qubits, len(definition.params)
    if isinstance(name, str):
        if name in GATES:
            return GATES[name].n_qubits, GATES[name].n_params
        if name in BY_ENTRIES or name in NON_UNITARY:
            return None
    known = ", ".join([*GATES, *sorted(BY_ENTRIES), *sorted(NON_UNITARY)])
    raise ValueError(f"name must be one of {known}; got {checks.show(name)}")


def _params(name: str, values: Any, n_targets: int, n_params: int) -> tuple[Any, ...]:
    wanted = {"matrix": 4**n_targets, "diagonal": 2**n_targets}.get(name, n_params)
    params = checks.sequence(values, "params", of="numbers", most=max(wanted, 1000))
    if len(params) != wanted:
        raise ValueError(f"params of {name} must be {checks.digits(wanted)} number(s), got {len(params)}")
    if name == "diagonal":
        return diagonal(params, n_targets, "params", unitary=False)
    if name != "matrix":
        return tuple(angle(value, f"params[{i}]") for i, value in enumerate(params))
    size = 2**n_targets
    rows = [params[row * size : (row + 1) * size] for row in range(size)]
    # Not necessarily unitary: the builder's method lets its caller decide that.
    return checks.plain_entries(checks.matrix(rows, n_targets, "params", unitary=False))


def diagonal(values: Any, n_targets: int, name: str = "diagonal", unitary: bool = True) -> tuple[complex, ...]:
    """Return the ``2**n_targets`` entries of a diagonal, of absolute value 1 if `unitary`."""
    size = 2**n_targets
    expected = f"{name} must be {size} numbers for {n_targets} qubit(s)"
    try:
        array = checks.array(values)
    except ValueError:  # lists of different lengths
        raise ValueError(f"{expected}, got {checks.show(values)}") from None
    if array.dtype.kind not in "biufc":
        raise TypeError(f"{expected}, got {checks.show(values)}")
    if array.shape != (size,):
        raise ValueError(f"{expected}, got shape {array.shape}")
    if not all(np.isfinite(array[piece]).all() for piece in checks.pieces(size)):
        raise ValueError(f"{name} must hold finite numbers only, got {checks.show(values)}")
    if unitary and not all(_have_norm_1(array[piece].astype(np.complex128)) for piece in checks.pieces(size)):
        raise ValueError(f"{name} must hold numbers of absolute value 1, got {checks.show(values)}")
    memory.require_entries(size)
    return checks.plain_entries(array)


def _have_norm_1(entries: NDArray[np.complex128]) -> bool:
    with np.errstate(all="ignore"):
        return bool((np.abs(np.abs(entries) ** 2 - 1) <= checks.UNITARY_TOLERANCE).all())


def _controls(name: str, values: Any, targets: tuple[int, ...], n_qubits: int) -> tuple[int, ...]:
    controls = checks.controls(values, targets, n_qubits)
    if controls and name in NON_UNITARY:
        raise ValueError(f"controls of {name} must be empty, got {checks.show(values)}")
    return controls


def _clbits(name: str, values: Any, qubits: tuple[int, ...], n_clbits: int) -> tuple[int, ...]:
    clbits = checks.indices(values, n_clbits, "clbits")
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
    made = condition_checked(condition, n_clbits)
    if not value.can_be_conditioned:
        raise ValueError(f"condition of {value.name} must be None, got {made}")
    return made


# --- What holds others ---


def flow(detail: If | While | Switch, n_qubits: int, n_clbits: int) -> If | While | Switch:
    """Return a decision with all its parts checked."""
    bodies = [tuple([instruction(step, n_qubits, n_clbits) for step in body]) for body in detail.bodies]
    if isinstance(detail, Switch):
        bits, cases = switch_values(detail.clbits, [values for values, _ in detail.cases], n_clbits)
        return Switch(bits, tuple(zip(cases, bodies)), bodies[-1])
    condition = condition_checked(detail.condition, n_clbits)
    if isinstance(detail, If):
        return If(condition, *bodies)
    most = checks.integer(detail.max_iterations, "max_iterations", minimum=1)
    loop = While(condition, bodies[0], most)
    require_end(loop)
    return loop


def require_end(loop: While) -> None:
    """Refuse a loop in which nothing can change the condition, and one that saves."""
    if written_bits(loop.body).isdisjoint(loop.condition.clbits) and not has_leaving(loop.body, "break"):
        raise ValueError(
            f"body of a while must measure into a bit of its condition, {loop.condition}, store into one, or break: without, "
            "the loop never ends once it has begun"
        )
    for leaf in leaves(loop.body):
        if leaf.name == "save":
            raise ValueError(f"body of a while must not save, because each round would replace the last, got {leaf}: save after it")


def switch_values(clbits: Any, cases: Sequence[Any], n_clbits: int) -> tuple[tuple[int, ...], list[tuple[int, ...]]]:
    """Return the bits of a switch, lowest first, and the values of its cases, each value once."""
    bits = checks.indices(clbits, n_clbits, "clbits", at_least=1)
    listed = [tuple([checks.integer(value, "a case", 0, 2 ** len(bits) - 1) for value in values]) for values in cases]
    seen = set[int]()
    for values in listed:
        if not values:
            raise ValueError("a case must have a value, got none")
        for value in values:
            if value in seen:
                raise ValueError(f"cases must have distinct values, got {checks.show(value)} twice")
            seen.add(value)
    return bits, listed


def save(detail: Save, qubits: Any, n_qubits: int) -> tuple[Save, tuple[int, ...]]:
    """Return what is kept, and the qubits that are asked for it."""
    kind = checks.choice(detail.kind, "kind", ("state", "probabilities", "expectation"))
    if not isinstance(detail.label, str) or not detail.label:
        raise (ValueError if detail.label == "" else TypeError)(f"name must be a text, got {checks.show(detail.label)}")
    terms: list[PlainTerm] = []
    for term in checks.sequence(detail.terms, "terms", of="terms"):
        coefficient, letters, places = term
        numbers = checks.qubits(places, n_qubits, "qubits of a term", at_least=0)
        is_number = type(coefficient) in (float, complex) and cmath.isfinite(coefficient)
        if not is_number or type(letters) is not str or len(letters) != len(numbers) or letters.strip("XYZ"):
            raise ValueError(f"terms must hold finite numbers, one letter X, Y or Z per qubit, and qubits, got {checks.show(term)}")
        terms.append((coefficient, letters, numbers))
    if (kind == "expectation") != bool(terms):
        raise ValueError(f"terms must be given for an expectation value and for nothing else, got {len(terms)} for {kind}")
    listed = checks.qubits(qubits, n_qubits, at_least=0)
    wanted = tuple(sorted({qubit for _, _, numbers in terms for qubit in numbers}))
    if kind != "probabilities" and listed != wanted:
        raise ValueError(f"qubits of save {kind} must be {wanted}, got {listed}")
    return Save(kind, checks.plain(detail.label), tuple(terms)), listed


def store(detail: Store, clbits: Any, n_clbits: int) -> tuple[Store, tuple[int, ...]]:
    """Return what is written, and the bits that it is written into."""
    bits = checks.indices(clbits, n_clbits, "clbits", at_least=1)
    if len(detail.values) != len(bits):
        raise ValueError(f"values must be one for each of {len(bits)} bits, got {len(detail.values)}")
    values = [value if isinstance(value, bool) else condition_checked(value, n_clbits, "value") for value in detail.values]
    return Store(tuple(values)), bits


def readout(detail: Any, n_qubits: int) -> Readout:
    """Return how outcomes of some qubits are misread, with a pair of probabilities for each."""
    if not isinstance(detail, Readout):
        raise TypeError(f"detail of 'measure' must be Readout or None, got {checks.show(detail)}")
    listed = checks.sequence(detail.flips, "flips", of="pairs of probabilities")
    if len(listed) != n_qubits:
        raise ValueError(f"flips must be one pair for each measured qubit, got {len(listed)} for {n_qubits}")
    pairs = [checks.sequence(pair, f"flips[{i}]", of="probabilities", most=2) for i, pair in enumerate(listed)]
    flips = []
    for i, pair in enumerate(pairs):
        if len(pair) != 2:
            raise ValueError(f"flips[{i}] must be two probabilities, of 1 for 0 and of 0 for 1, got {checks.show(pair)}")
        flips.append((checks.probability(pair[0], f"flips[{i}][0]"), checks.probability(pair[1], f"flips[{i}][1]")))
    return Readout(tuple(flips))


def channel(detail: Channel, qubits: Any, n_qubits: int) -> tuple[int, ...]:
    """Return the qubits that noise acts on, one for each of the channel's."""
    listed = checks.qubits(qubits, n_qubits)
    if len(listed) != detail.n_qubits:
        raise ValueError(f"qubits must be {detail.n_qubits}, as many as {detail!r} acts on, got {len(listed)}")
    return listed


_DETAILS = {"if": If, "while": While, "switch": Switch, "save": Save, "store": Store, "channel": Channel}


def _detailed(name: Any, value: Instruction, n_qubits: int, n_clbits: int) -> Instruction:
    detail: Any = value.detail
    condition = _condition(value, n_clbits)
    wanted: Any = _DETAILS.get(name) if isinstance(name, str) else None
    if wanted is None or type(detail) is not wanted:
        raise TypeError(
            f"detail of {checks.show(name)} must be {wanted.__name__ if wanted else None}, got {checks.show(detail)}"
        )
    if value.params or value.controls or value.control_values or value.definition is not None:
        raise ValueError(f"params, controls and definition of {name} must be left out")
    if isinstance(detail, (Save, Channel)) and value.clbits:
        raise ValueError(f"clbits of {name} must be empty, got {checks.show(value.clbits)}")
    if isinstance(detail, Channel):
        return Instruction(name, channel(detail, value.qubits, n_qubits), condition=condition, detail=detail)
    if isinstance(detail, Save):
        kept, qubits = save(detail, value.qubits, n_qubits)
        return Instruction(name, qubits, condition=condition, detail=kept)
    if isinstance(detail, Store):
        if value.qubits:
            raise ValueError(f"qubits of store must be empty, got {checks.show(value.qubits)}")
        written, bits = store(detail, value.clbits, n_clbits)
        return Instruction(name, (), clbits=bits, condition=condition, detail=written)
    made = flow_step(flow(detail, n_qubits, n_clbits), condition)
    told = (tuple(value.qubits), tuple(value.clbits))
    if told not in (((), ()), (made.qubits, made.clbits)):
        raise ValueError(f"qubits and clbits of {name} must be {made.qubits} and {made.clbits}, or left out, got {told}")
    return made
