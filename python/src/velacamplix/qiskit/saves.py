"""What a simulator keeps of its state on the way, by the names of Aer's instructions; Aer need not be there."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from typing import Any, NamedTuple

import numpy as np
from qiskit.quantum_info import DensityMatrix as QiskitDensity
from qiskit.quantum_info import SparsePauliOp, Statevector
from qiskit.result import ProbDistribution

from ..circuit.circuit import Circuit
from ..instructions.condition import Condition
from ..instructions.flow import If, Save, bodies_of, flow_step, with_bodies
from ..instructions.instruction import Instruction
from ..observables.observable import Observable
from ..running.result import Result
from ..states.densitymatrix import DensityMatrix
from .errors import NotConverted

# By the name of an instruction: what is kept, and its label if it has none of its own.
_KINDS: dict[str, tuple[str, str]] = {
    "save_state": ("state", "statevector"), "save_statevector": ("state", "statevector"),
    "save_probabilities": ("probabilities", "probabilities"), "save_probabilities_dict": ("dictionary", "probabilities_dict"),
    "save_amplitudes": ("amplitudes", "amplitudes"), "save_amplitudes_sq": ("squares", "amplitudes_squared"),
    "save_amplitudes_squared": ("squares", "amplitudes_squared"), "save_expval": ("value", "expectation_value"),
    "save_expectation_value": ("value", "expectation_value"), "save_expval_var": ("variance", "expectation_value_variance"),
    "save_expectation_value_variance": ("variance", "expectation_value_variance"),
    "save_density_matrix": ("density", "density_matrix"),
}  # fmt: skip

#: Names of all that is kept, and of what sets the state.
NAMES = frozenset(_KINDS)
SETTING = frozenset({"set_statevector"})

# Of probabilities in a dictionary: what rounding leaves of an impossible outcome is left out.
_IMPOSSIBLE = 1e-15

_PLAIN = ("single", "average")
Hear = Callable[[Any], None]


class Asked(NamedTuple):
    """One save of a circuit.

    Attributes
    ----------
    kind, label : str
    qubits : tuple of int
    numbers : tuple of int
        Of amplitudes.
    observables : tuple of Observable
        One, and for a variance that of the square.
    names : tuple of str
        Under which a run of a pure state keeps what is needed.
    position : int or None
        How many instructions of the circuit come before; None inside a decision or loop.
    """

    kind: str
    label: str
    qubits: tuple[int, ...]
    numbers: tuple[int, ...]
    observables: tuple[Observable, ...]
    names: tuple[str, ...]
    position: int | None


class Saves:
    """The saves that a conversion meets.

    Parameters
    ----------
    collapses : bool
        Whether measurements before a saved state are carried out there: where there is one shot.
    """

    def __init__(self, collapses: bool) -> None:
        self.asked: list[Asked] = []
        self._collapses = collapses
        self._measured: set[int] = set()

    def note(self, steps: Iterable[Instruction]) -> None:
        """Note what is measured."""
        if self._collapses:
            self._measured.update([bit for step in steps if step.name == "measure" for bit in step.clbits])

    def of(self, circuit: Circuit) -> tuple[Asked, ...]:
        """Return all, each with its place in what was made of them."""
        places: dict[str, int] = {}
        if self.asked:
            for place, step in enumerate(circuit.instructions):
                if isinstance(step.detail, Save) and step.condition is None:
                    places[step.detail.label] = place
        return tuple([one._replace(position=places.get(one.names[0])) for one in self.asked])

    def steps(self, operation: Any, qubits: tuple[int, ...]) -> list[Instruction]:
        """Return what a save becomes, and note it."""
        kind, label = _KINDS[operation.name]
        own = getattr(operation, "label", None)
        label = label if own in (None, "_method_") else own
        subtype = getattr(operation, "_subtype", "average")
        if subtype not in _PLAIN:
            raise NotConverted(
                f"{operation.name!r} of single shots, by classical values, or not normalised is not offered; leave pershot, "
                "conditional and unnormalized at False"
            )
        if any([one.label == label for one in self.asked]):
            raise NotConverted(f"labels of saves must be distinct, got {label!r} twice")
        numbers: tuple[int, ...] = ()
        if kind in ("amplitudes", "squares"):
            numbers = tuple([int(number, 16) if isinstance(number, str) else int(number) for number in operation.params])
            if any([not 0 <= number < 2 ** len(qubits) for number in numbers]):
                raise NotConverted(f"amplitudes must have numbers from 0 to {2 ** len(qubits) - 1}")
        observables = _observables(operation.params, qubits, kind) if kind in ("value", "variance") else ()
        name = f"{len(self.asked)} {label}"
        names = (name, name + " squared")[: max(1, len(observables))]
        self.asked.append(Asked(kind, label, qubits, numbers, observables, names, None))
        steps: list[Instruction] = []
        if kind in ("state", "amplitudes", "density"):
            if self._measured:  # asking for their bits lets measurements be carried out here
                steps.append(flow_step(If(Condition(tuple(sorted(self._measured)), 0), ())))
            return [*steps, Instruction("save", (), detail=Save("state", name))]
        if observables:
            for word, observable in zip(names, observables):
                made = Circuit(max(qubits, default=0) + 1).save_expectation(word, observable)
                steps += made.instructions
            return steps
        return [Instruction("save", qubits[::-1], detail=Save("probabilities", name))]


def _observables(params: Sequence[Any], qubits: tuple[int, ...], kind: str) -> tuple[Observable, ...]:
    """Return an observable given as Aer does, by labels with two coefficients, or as an operator."""
    rows: list[tuple[str, float, float]] = []
    if len(params) == 1 and not isinstance(params[0], (tuple, list)):
        operator = SparsePauliOp(params[0])
        if np.abs(operator.coeffs.imag).max() > 1e-10:
            raise NotConverted("an observable must be Hermitian, with real coefficients")
        rows += [(word, weight.real, 0.0) for word, weight in operator.label_iter()]
        rows += [(word, 0.0, weight.real) for word, weight in operator.dot(operator).label_iter()]
    else:
        rows += [(word, float(np.real(one)), float(np.real(square))) for word, (one, square) in params]
    made = []
    for column in (1, 2) if kind == "variance" else (1,):
        terms: list[Any] = []
        for row in rows:
            there = [(letter, qubit) for letter, qubit in zip(reversed(row[0]), qubits) if letter != "I"]
            terms.append((row[column], "".join([letter for letter, _ in there]), tuple([qubit for _, qubit in there])))
        made.append(Observable(terms).simplify())
    return tuple(made)


def without(circuit: Circuit) -> Circuit:
    """Return a circuit without its saves."""
    return circuit._with(_unsaved(circuit.instructions))


def _unsaved(steps: Iterable[Instruction]) -> list[Instruction]:
    made = []
    for step in steps:
        if step.name == "save":
            continue
        bodies = bodies_of(step)
        made.append(with_bodies(step, [_unsaved(body) for body in bodies]) if bodies else step)
    return made


# --- What was kept ---


class Density:
    """The density matrices of a circuit, after its first instructions; each is made once."""

    def __init__(self, circuit: Circuit, hear: Hear) -> None:
        self._circuit, self._hear = circuit, hear
        self._made: dict[int, DensityMatrix] = {}

    def after(self, one: Asked) -> DensityMatrix:
        """Return that of a save's place."""
        if one.position is None:
            raise NotConverted(
                f"{one.label!r} inside a decision or loop is the mean of states that differ: save it outside"
            )
        if one.position not in self._made:
            before = self._circuit._with(_unsaved(self._circuit.instructions[: one.position]))
            self._made[one.position] = DensityMatrix(before.n_qubits).run(before, progress=self._hear)
        return self._made[one.position]

    def is_pure(self, one: Asked) -> bool:
        """Whether no outcome comes before a save."""
        before = () if one.position is None else self._circuit.instructions[: one.position]
        return one.position is not None and all([step.is_gate or step.name in ("save", "barrier") for step in before])


def of_pure(one: Asked, result: Result, density: Density) -> Any:
    """Return what a run of a pure state kept."""
    saved = result.saved
    if one.kind == "state":
        return Statevector(np.array(_state(one, saved).array, dtype=np.complex128))
    if one.kind == "amplitudes":
        return _state(one, saved).array[list(one.numbers)].astype(np.complex128)
    if one.kind == "density":
        if result.has_state or density.is_pure(one):
            try:
                return QiskitDensity(saved[one.names[0]].reduced(one.qubits))
            except RuntimeError:  # a measurement before is read in the end
                pass
        return of_mixed(one, density)
    if one.observables:
        return _values([saved[name] for name in one.names])
    return _of_distribution(one, saved[one.names[0]])


def of_mixed(one: Asked, density: Density) -> Any:
    """Return the exact mean over all outcomes."""
    if one.kind in ("state", "amplitudes"):
        raise NotConverted(f"there is no one state for {one.label!r} with noise or as a density matrix; save_density_matrix tells the mean")
    rho = density.after(one)
    if one.kind == "density":
        return QiskitDensity(rho.reduced(one.qubits))
    if one.observables:
        return _values([rho.expectation(observable) for observable in one.observables])
    return _of_distribution(one, rho.distribution(one.qubits[::-1]))


def _state(one: Asked, saved: Any) -> Any:
    try:
        return saved[one.names[0]]
    except RuntimeError as error:
        raise NotConverted(
            f"there is no one state for {one.label!r}, because outcomes before differ from shot to shot: take shots=1, save before the "
            "measurement, or save_density_matrix, which tells the mean"
        ) from error


def _values(values: Sequence[Any]) -> Any:
    first = float(np.real(values[0]))
    return first if len(values) == 1 else np.array([first, float(np.real(values[1])) - first * first])


def _of_distribution(one: Asked, shares: np.ndarray) -> Any:
    if one.kind == "squares":
        return shares[list(one.numbers)]
    if one.kind == "probabilities":
        return np.array(shares)
    return ProbDistribution({int(place): float(shares[place]) for place in np.flatnonzero(shares > _IMPOSSIBLE)})
