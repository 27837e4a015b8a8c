"""Exact values of measurements in one state."""

from __future__ import annotations

import math
from collections.abc import Callable, Mapping, Sequence
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.measurements import (
    DensityMatrixMP,
    ExpectationMP,
    MutualInfoMP,
    ProbabilityMP,
    PurityMP,
    StateMP,
    VarianceMP,
    VnEntropyMP,
)
from pennylane.ops.op_math import Prod, SProd, Sum

from ..circuit.circuit import Circuit
from ..core import extension
from ..programs.drive import heard
from ..states.densitymatrix import DensityMatrix
from ..states.statevector import StateVector
from .errors import NotConverted
from .observables import HERMITIAN_TOLERANCE, dense, not_hermitian, number, pauli_observable, require_hermitian
from .reading import Reading

State = StateVector | DensityMatrix

# Operators on so few qubits are asked of a reduced density matrix.
_FEW = 6


class View:
    """A state with the names of its wires."""

    def __init__(self, state: State, places: Mapping[Any, int], phase: float = 0.0) -> None:
        self.state, self.places, self.phase = state, places, phase

    def qubits(self, wires: Any) -> list[int]:
        """Return the qubits of some wires."""
        places = self.places
        return [places[wire] for wire in wires.labels]

    @property
    def wires(self) -> Any:
        """All wires, in the order of the qubits."""
        return qml.wires.Wires(sorted(self.places, key=self.places.__getitem__))

    # --- Operators ---

    def expectation(self, op: Any) -> complex:
        """Return an expectation value, which is real, but for rounding, if the operator is Hermitian."""
        known = pauli_observable(op, self.places)
        if known is not None:
            if type(self.state) is StateVector:
                return extension.expectation(self.state._live(), known.compiled(), *heard())
            return complex(self.state.expectation(known))
        if isinstance(op, SProd):
            return number(op.scalar) * self.expectation(op.base)
        if isinstance(op, Sum):
            parts = [self.expectation(part) for part in op.operands]
            return complex(math.fsum([part.real for part in parts]), math.fsum([part.imag for part in parts]))
        return self._mean(op)

    def moments(self, op: Any) -> tuple[float, float]:
        """Return the expectation values of a Hermitian operator and of its square."""
        known = pauli_observable(op, self.places)
        if known is not None:
            require_hermitian(op, known)
        if known is not None and len(known.terms) <= 1:
            # A product of Pauli operators has the square 1.
            mean = self.expectation(op).real
            weight = abs(known.terms[0].coefficient) ** 2 if known.terms else 0.0
            free = known.constant.real
            return mean, weight + 2 * free * (mean - free) + free * free
        if known is not None:
            return self.expectation(op).real, self.state.expectation(known @ known).real
        if _is_basis_projector(op):
            return (mean := self._mean(op).real), mean
        qubits = self.qubits(op.wires)
        if isinstance(self.state, DensityMatrix) or len(qubits) <= _FEW:
            matrix = dense(op)
            if not np.allclose(matrix, matrix.conj().T, rtol=0, atol=HERMITIAN_TOLERANCE * np.abs(matrix).max()):
                raise not_hermitian(op)
            rho = self.state.reduced(qubits, order="big")
            return _trace(matrix, rho).real, _trace(matrix @ matrix, rho).real
        changed = applied(op, self.state, self.places)
        overlap = self.state.overlap(changed)
        if abs(overlap.imag) > HERMITIAN_TOLERANCE * max(1.0, abs(overlap.real)):
            raise not_hermitian(op)
        return overlap.real, float(np.vdot(changed.array, changed.array).real)

    def _mean(self, op: Any) -> complex:
        qubits = self.qubits(op.wires)
        if _is_basis_projector(op):
            return complex(self.state.probability("".join([str(int(bit)) for bit in op.data[0]]), qubits))
        if isinstance(self.state, DensityMatrix) or len(qubits) <= _FEW:
            return _trace(dense(op), self.state.reduced(qubits, order="big"))
        changed = applied(op, self.state, self.places)
        return complex(np.vdot(self.state.array, changed.array))

    # --- Probabilities ---

    def turned(self, gates: list[Any]) -> View:
        """Return the state after some gates."""
        if not gates:
            return self
        reader, copy = Reading(self.places), self.state.copy()
        copy.run(Circuit.from_instructions([step for op in gates for step in reader.steps(op)], copy.n_qubits))
        return View(copy, self.places)

    def probabilities(self, mp: Any) -> np.ndarray:
        """Return the probabilities of the outcomes of a measurement, whose first wire is the highest bit."""
        view = self.turned(mp.diagonalizing_gates()) if mp.obs is not None else self
        wires = mp.wires if len(mp.wires) else self.wires
        found: np.ndarray = np.asarray(view.state.distribution(view.qubits(wires)), dtype=np.float64)
        return found

    def eigenvalue_moments(self, mp: Any) -> tuple[float, float]:
        """Return mean and mean square of what a measurement of eigenvalues gives."""
        shares = self.probabilities(mp)
        values = np.asarray(mp.eigvals(), dtype=np.float64)
        return float(shares @ values), float(shares @ (values * values))

    # --- Parts ---

    def entropy(self, wires: Any, base: Any) -> float:
        """Return the entropy of some wires in units of a logarithm's base."""
        if isinstance(self.state, StateVector) and len(wires) == self.state.n_qubits:
            return 0.0
        return self.state.entropy(self.qubits(wires)) * math.log(2) / (1.0 if base is None else math.log(base))

    def amplitudes(self) -> np.ndarray:
        """Return the state as PennyLane has it: the first wire is the highest bit."""
        if isinstance(self.state, DensityMatrix):
            return self.state.reduced(range(self.state.n_qubits), order="big")
        found: np.ndarray = self.state.statevector(order="big")
        if self.phase:
            found *= complex(math.cos(self.phase), math.sin(self.phase))
        return found


def _trace(matrix: np.ndarray, rho: np.ndarray) -> complex:
    return complex(np.sum(matrix.T * rho))


def _is_basis_projector(op: Any) -> bool:
    return isinstance(op, qml.Projector) and np.size(op.data[0]) == len(op.wires)


def applied(op: Any, state: StateVector, places: Mapping[Any, int]) -> StateVector:
    """Return what an operator, which need not be unitary, makes of a state."""
    qubits = [places[wire] for wire in op.wires.labels]
    if isinstance(op, SProd):
        made = applied(op.base, state, places)
        made.array[:] *= complex(op.scalar)
        return made
    if isinstance(op, Sum):
        parts = [applied(part, state, places) for part in op.operands]
        for part in parts[1:]:
            parts[0].array[:] += part.array
        return parts[0]
    if isinstance(op, Prod):
        made = state
        for part in reversed(op.operands):
            made = applied(part, made, places)
        return made
    if op.has_sparse_matrix and not op.has_matrix or isinstance(op, qml.SparseHamiltonian):
        order = sorted(places, key=places.__getitem__)
        matrix = op.sparse_matrix(wire_order=order)
        made = state.copy()
        made._set_amplitudes(np.ascontiguousarray(matrix @ state.statevector(order="big")), "big")
        return made
    return state.copy().matrix(dense(op), qubits, check=False)


# --- By kind of measurement ---


def shown(value: complex) -> Any:
    """Return an expectation value as PennyLane has it: complex only where that is more than rounding."""
    is_real = abs(value.imag) <= HERMITIAN_TOLERANCE * max(1.0, abs(value.real))
    return np.float64(value.real) if is_real else np.complex128(value)


def _expectation(mp: Any, view: View) -> Any:
    if mp.obs is None:
        return np.float64(view.eigenvalue_moments(mp)[0])
    return shown(view.expectation(mp.obs))


def _variance(mp: Any, view: View) -> Any:
    mean, square = view.eigenvalue_moments(mp) if mp.obs is None else view.moments(mp.obs)
    return np.float64(max(0.0, square - mean * mean))


def _probabilities(mp: Any, view: View) -> Any:
    if mp.mv is not None:  # of measurements that were put off to the end
        is_mixed = isinstance(view.state, DensityMatrix)
        return (mp.process_density_matrix if is_mixed else mp.process_state)(view.amplitudes(), view.wires)
    return view.probabilities(mp)


def _state(mp: Any, view: View) -> Any:
    return view.amplitudes()


def _density_matrix(mp: Any, view: View) -> Any:
    return view.state.reduced(view.qubits(mp.wires), order="big")


def _purity(mp: Any, view: View) -> Any:
    return np.float64(view.state.purity(view.qubits(mp.wires)))


def _entropy(mp: Any, view: View) -> Any:
    return np.float64(view.entropy(mp.wires, mp.log_base))


def _mutual_information(mp: Any, view: View) -> Any:
    first, second = mp.raw_wires
    both = qml.wires.Wires.all_wires([first, second])
    base = mp.log_base
    return np.float64(view.entropy(first, base) + view.entropy(second, base) - view.entropy(both, base))


_EXACT: dict[type, Callable[[Any, View], Any]] = {
    ExpectationMP: _expectation,
    VarianceMP: _variance,
    ProbabilityMP: _probabilities,
    StateMP: _state,
    DensityMatrixMP: _density_matrix,
    PurityMP: _purity,
    VnEntropyMP: _entropy,
    MutualInfoMP: _mutual_information,
}


def exact(mp: Any, view: View) -> Any:
    """Return the value of a measurement without shots."""
    found = _EXACT.get(type(mp))
    if found is not None:
        return found(mp, view)
    turned = view.turned(mp.diagonalizing_gates())
    if isinstance(view.state, DensityMatrix):
        return mp.process_density_matrix(turned.amplitudes(), view.wires)
    if not hasattr(mp, "process_state"):
        raise NotConverted(f"{mp} needs shots")
    return mp.process_state(turned.amplitudes(), view.wires)


def exact_results(measurements: Sequence[Any], view: View) -> Any:
    """Return the values of measurements without shots as a device returns them: that of a single one by itself."""
    found = tuple([exact(mp, view) for mp in measurements])
    return found[0] if len(found) == 1 else found
