"""Measurements from shots."""

from __future__ import annotations

import itertools
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.measurements import (
    ClassicalShadowMP,
    CountsMP,
    ExpectationMP,
    ProbabilityMP,
    SampleMP,
    ShadowExpvalMP,
    VarianceMP,
)
from pennylane.ops.op_math import SProd, Sum

from ..basics.words import bit_string
from ..machine import memory
from ..states.densitymatrix import DensityMatrix
from .errors import NotConverted
from .observables import number, pauli_observable, require_hermitian
from .reading import MidMeasure
from .values import View, shown

_SHADOWS = (ClassicalShadowMP, ShadowExpvalMP)

# Outcomes of more measurements are not listed where nobody has seen them.
_MOST_LISTED = 20


@dataclass
class Group:
    """Measurements that are made in the same shots: in each qubit's basis, or after gates of their own."""

    basis: dict[int, str]
    gates: list[Any] | None = None
    qubits: list[int] = field(default_factory=list)
    #: A row for each shot, a column for each of `qubits`.
    bits: Any = None

    def takes(self, letters: Mapping[int, str]) -> bool:
        """Whether these can be measured beside the others; if so they are."""
        if self.gates is not None or any([self.basis.get(qubit, letter) != letter for qubit, letter in letters.items()]):
            return False
        self.basis.update(letters)
        return True


class Sampling:
    """Measurements of one tape from shots that come in parts, each of a state of its own.

    Raises
    ------
    NotConverted
        If one of the measurements cannot be made from shots.
    """

    def __init__(self, measurements: Sequence[Any], places: Mapping[Any, int], rng: np.random.Generator) -> None:
        self._measurements, self._places, self._rng = measurements, places, rng
        self._groups: list[Group] = []
        self._readers = [self._reader(mp) for mp in measurements]
        self._outcomes: list[tuple[int, Mapping[Any, int]]] = []
        for group in self._groups:
            group.qubits = sorted(group.basis)
            group.bits = []
        self._shadows: dict[int, list[Any]] = {}

    # --- What to draw ---

    def _reader(self, mp: Any) -> Any:
        """Return what makes the result of a measurement from the rows of shots in a slice or mask."""
        if type(mp) in _SHADOWS:
            return None
        if mp.mv is not None and _is_dynamic(mp):
            return lambda rows: self._of_outcomes(mp, rows)
        if mp.obs is None:
            qubits = [self._places[wire] for wire in mp.wires.labels] or list(range(len(self._places)))
            group = self._group(dict.fromkeys(qubits, "Z"))
            wires = mp.wires if len(mp.wires) else self._wires(range(len(self._places)))
            return lambda rows: _of_bits(mp, group.bits[rows], group, self, qubits, wires)
        return self._of_operator(mp, mp.obs)

    def _of_operator(self, mp: Any, op: Any) -> Any:
        known = pauli_observable(op, self._places)
        if known is not None and (isinstance(mp, ExpectationMP) or _is_word(op)) and not isinstance(mp, ProbabilityMP):
            if isinstance(mp, VarianceMP):
                require_hermitian(op, known)
            parts = []
            for term in known.terms:
                group = self._group(dict(zip(term.qubits, term.paulis)))
                parts.append((term.coefficient, group, term.qubits))
            return lambda rows: _of_products(mp, rows, parts, known.constant, self)
        if isinstance(mp, ExpectationMP) and isinstance(op, Sum):
            readers = [self._of_operator(ExpectationMP(obs=part), part) for part in op.operands]
            return lambda rows: shown(complex(sum([reader(rows) for reader in readers])))
        if isinstance(mp, ExpectationMP) and isinstance(op, SProd):
            reader, factor = self._of_operator(ExpectationMP(obs=op.base), op.base), number(op.scalar)
            return lambda rows: shown(complex(factor * reader(rows)))
        if not hasattr(mp, "process_samples"):
            raise NotConverted(f"{mp} cannot be made from shots")
        qubits = [self._places[wire] for wire in op.wires.labels]
        if _is_word(op):
            assert known is not None
            letters = {qubit: letter for term in known.terms for qubit, letter in zip(term.qubits, term.paulis)}
            group = self._group({qubit: letters.get(qubit, "Z") for qubit in qubits})
        else:
            group = Group(dict.fromkeys(qubits, "Z"), mp.diagonalizing_gates())
            self._groups.append(group)
        return lambda rows: _processed(mp, group, rows, self)

    def _group(self, letters: Mapping[int, str]) -> Group:
        for group in self._groups:
            if group.takes(letters):
                return group
        self._groups.append(Group(dict(letters)))
        return self._groups[-1]

    # --- Drawing ---

    def draw(self, view: View, shots: int, outcomes: Mapping[Any, int]) -> None:
        """Draw shots of a state, in which mid-circuit measurements had these outcomes."""
        self._outcomes.append((shots, outcomes))
        for group in self._groups:
            turned: Any = view.turned(group.gates if group.gates is not None else self._turning(group))
            turned.state.seed = int(self._rng.integers(2**32))
            drawn = turned.state.sample(shots, group.qubits) if group.qubits else np.zeros(shots, np.uint64)
            group.bits.append(drawn)
        for place, mp in enumerate(self._measurements):
            if type(mp) in _SHADOWS:
                self._shadows.setdefault(place, []).append(view)

    def _turning(self, group: Group) -> list[Any]:
        gates: list[Any] = []
        for qubit, letter in group.basis.items():
            (wire,) = self._wires([qubit]).labels
            if letter == "X":
                gates.append(qml.Hadamard(wire))
            elif letter == "Y":
                gates += [qml.adjoint(qml.S(wire)), qml.Hadamard(wire)]
        return gates

    def _wires(self, qubits: Any) -> Any:
        labels = {place: label for label, place in self._places.items()}
        return qml.wires.Wires([labels[qubit] for qubit in qubits])

    # --- Results ---

    def results(self, shots: Any) -> Any:
        """Return the results of all measurements, as a device returns them, from all shots of a ``pennylane.Shots``."""
        n = sum([count for count, _ in self._outcomes])
        for group in self._groups:
            memory.require_bytes(24 * n * len(group.qubits), f"{n} shots of {len(group.qubits)} qubits")
            drawn = np.concatenate(group.bits) if group.bits else np.zeros(0, np.uint64)
            shifts = np.arange(len(group.qubits) - 1, -1, -1, dtype=np.uint64)
            group.bits = ((drawn[:, np.newaxis] >> shifts) & np.uint64(1)).astype(np.int64)
        place = np.arange(n)
        # Shots of several states are mixed, and those that were discarded leave gaps.
        if len(self._outcomes) > 1 or n < shots.total_shots:
            place = self._rng.permutation(shots.total_shots)[:n]
        order = np.argsort(place)
        place = place[order]
        self._rows_of_outcomes = order
        found = []
        for start, stop in shots.bins():
            rows = order[np.searchsorted(place, start) : np.searchsorted(place, stop)]
            results = tuple([
                self._shadow(mp, number, len(rows)) if reader is None else reader(rows)
                for number, (mp, reader) in enumerate(zip(self._measurements, self._readers))
            ])  # fmt: skip
            found.append(results[0] if len(results) == 1 else results)
        return tuple(found) if shots.has_partitioned_shots else found[0]

    def _shadow(self, mp: Any, number: int, shots: int) -> Any:
        if len(self._shadows[number]) > 1:
            raise NotConverted(f"{mp} has no meaning behind mid-circuit measurements, whose outcomes differ")
        (view,) = self._shadows[number]
        # PennyLane takes an array with an axis for each qubit, of a matrix two.
        is_mixed = isinstance(view.state, DensityMatrix)
        state = view.amplitudes().reshape((2,) * (view.state.n_qubits * (2 if is_mixed else 1)))
        take = mp.process_density_matrix_with_shots if is_mixed else mp.process_state_with_shots
        return take(state, view.wires, shots, rng=self._rng)

    def _of_outcomes(self, mp: Any, rows: np.ndarray) -> Any:
        owners = np.repeat(np.arange(len(self._outcomes)), [count for count, _ in self._outcomes])[rows]
        listed = mp.mv if isinstance(mp.mv, (list, tuple)) else [mp.mv]
        # A column for each value, made once for every set of outcomes.
        table = np.array([[value_of(value, outcomes) for value in listed] for _, outcomes in self._outcomes])
        values = table.reshape(-1, len(listed))[owners]
        is_list = isinstance(mp.mv, (list, tuple))
        return of_values(mp, values if is_list else values[:, 0])


def value_of(asked: Any, outcomes: Mapping[Any, int]) -> Any:
    """Return a measurement value where mid-circuit measurements had these outcomes."""
    return asked.processing_fn(*[outcomes[measurement] for measurement in asked.measurements])


def possible(asked: Any) -> list[Any]:
    """Return what a measurement value may be, or what a list of them may be, in PennyLane's order."""
    n = sum([len(one.measurements) for one in (asked if isinstance(asked, (list, tuple)) else [asked])])
    if n > _MOST_LISTED:
        raise NotConverted(f"all outcomes of {n} measurements cannot be listed, only those of up to {_MOST_LISTED}")
    if isinstance(asked, (list, tuple)):
        return list(itertools.product(*[possible(value) for value in asked]))
    return [asked.processing_fn(*bits) for bits in itertools.product((0, 1), repeat=len(asked.measurements))]


def _is_dynamic(mp: Any) -> bool:
    listed = mp.mv if isinstance(mp.mv, (list, tuple)) else [mp.mv]
    return all(isinstance(item, MidMeasure) for value in listed for item in value.measurements)


def of_values(mp: Any, values: np.ndarray) -> Any:
    """Return the result of a measurement of mid-circuit measurements: a number, or a row, for each shot."""
    is_list = values.ndim == 2
    if isinstance(mp, ExpectationMP):
        return np.float64(np.mean(values)) if len(values) else np.float64(np.nan)
    if isinstance(mp, VarianceMP):
        return np.float64(np.var(values)) if len(values) else np.float64(np.nan)
    if isinstance(mp, SampleMP):
        return values
    if isinstance(mp, CountsMP):
        rows: list[Any] = ["".join([str(int(v)) for v in row]) for row in values] if is_list else [float(v) for v in values]
        every = possible(mp.mv) if mp.all_outcomes else []
        names: list[Any] = ["".join([str(int(v)) for v in row]) for row in every] if is_list else [float(v) for v in every]
        counts = dict.fromkeys(names, 0)
        for row in rows:
            counts[row] = counts.get(row, 0) + 1
        return dict(sorted(counts.items()))
    if isinstance(mp, ProbabilityMP):
        every = possible(mp.mv)
        total = np.array([np.sum(np.all(values == row, axis=1) if is_list else values == row) for row in every], float)
        return total / total.sum() if len(values) else np.full(len(every), np.nan)
    raise NotConverted(f"{mp} cannot be made from mid-circuit measurements")


def _is_word(op: Any) -> bool:
    return bool(qml.pauli.is_pauli_word(op)) and not isinstance(op, (SProd, Sum))


def _of_bits(mp: Any, bits: np.ndarray, group: Group, sampling: Sampling, qubits: list[int], wires: Any) -> Any:
    """Return the result of a measurement of wires."""
    columns = [group.qubits.index(qubit) for qubit in qubits]
    if type(mp) is CountsMP and mp._eigvals is None and mp.mv is None and len(qubits) < 63:
        numbers = bits[:, columns] @ (1 << np.arange(len(qubits) - 1, -1, -1, dtype=np.int64))
        found = dict(zip(*[column.tolist() for column in np.unique(numbers, return_counts=True)]))
        if mp.all_outcomes:
            memory.require_bytes(200 << len(qubits), f"all outcomes of {len(qubits)} qubits")
            found = {number: found.get(number, 0) for number in range(2 ** len(qubits))}
        return {bit_string(number, len(qubits)): count for number, count in found.items()}
    if not len(bits):
        return _of_nothing(mp, len(qubits))
    return mp.process_samples(bits[:, columns], wires)


def _processed(mp: Any, group: Group, rows: np.ndarray, sampling: Sampling) -> Any:
    bits = group.bits[rows]
    if not len(bits):
        return _of_nothing(mp, len(mp.wires))
    return mp.process_samples(bits, sampling._wires(group.qubits))


def _of_nothing(mp: Any, n_wires: int) -> Any:
    """Return the result of no shots at all."""
    if isinstance(mp, CountsMP):
        return {}
    if isinstance(mp, SampleMP):
        return np.zeros((0,) if mp.obs is not None else (0, n_wires))
    return np.full(2**n_wires, np.nan) if isinstance(mp, ProbabilityMP) else np.float64(np.nan)


def _without_nothing(weight: complex) -> complex:
    return weight if weight.imag else weight.real


def _of_products(mp: Any, rows: np.ndarray, parts: Any, constant: Any, sampling: Sampling) -> Any:
    """Return the result of a measurement of a sum of Pauli products."""
    values: Any = np.full(len(rows), _without_nothing(constant))
    for coefficient, group, qubits in parts:
        columns = [group.qubits.index(qubit) for qubit in qubits]
        odd = np.bitwise_xor.reduce(group.bits[rows][:, columns], axis=1)
        values = values + _without_nothing(coefficient) * (1 - 2 * odd)
    if isinstance(mp, ExpectationMP):
        return shown(complex(values.mean())) if len(rows) else np.float64(np.nan)
    if isinstance(mp, VarianceMP):
        return np.float64(values.var()) if len(rows) else np.float64(np.nan)
    if isinstance(mp, SampleMP):
        kind = getattr(mp, "_dtype", None)
        return values if kind is None else values.astype(kind)
    if isinstance(mp, CountsMP):
        found = dict(zip(*[column.tolist() for column in np.unique(values, return_counts=True)]))
        return {value: found.get(value, 0) for value in (-1.0, 1.0)} if mp.all_outcomes and parts else found
    if not len(rows):
        return _of_nothing(mp, len(mp.wires))
    raise NotConverted(f"{mp} cannot be made from shots")
