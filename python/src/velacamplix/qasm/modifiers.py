"""What `ctrl`, `negctrl`, `inv` and `pow` make of instructions."""

from __future__ import annotations

import cmath
import math
from collections.abc import Iterable, Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ..instructions.definition import inverted, size
from ..instructions.expand import basic
from ..instructions.expression import Expression, free_names
from ..instructions.gates import GATES
from ..instructions.instruction import Instruction

# A power of a rotation is a rotation. The value: up to which angle that is also the principal root, whose eigenvalues
# have the smallest phases.
_ROTATIONS = {"RX": 2 * math.pi, "RY": 2 * math.pi, "RZ": 2 * math.pi, "PH": math.pi, "gphase": math.pi}
_ROTATIONS.update({"rxx": 2 * math.pi, "ryy": 2 * math.pi, "rzz": 2 * math.pi})

# Powers: repetitions that are written out, and qubits of a matrix that is calculated instead.
_MOST_REPEATED = 1000
_MOST_QUBITS_OF_A_MATRIX = 6

# Phases are known to 16 digits, of which their multiples keep ten.
_LARGEST_POWER_OF_A_MATRIX = 1_000_000


def inverse(steps: Sequence[Instruction]) -> list[Instruction]:
    """Return what undoes these steps."""
    return [part for step in reversed(steps) for part in inverted(step)]


def controlled(steps: Iterable[Instruction], controls: tuple[int, ...], values: str) -> list[Instruction]:
    """Return steps that happen only where the controls read `values`, 0 or 1 for each."""

    def under(step: Instruction) -> Instruction:
        if step.name == "barrier":
            return step
        read = values + (step.control_values or "1" * len(step.controls))
        return step._replace(controls=controls + step.controls, control_values=read if "0" in read else "")

    return [under(step) for step in steps]


def power(steps: list[Instruction], exponent: float, qubits: tuple[int, ...]) -> list[Instruction]:
    """Return a power of what happens to `qubits`: repeated, or with the phases of its eigenvalues multiplied.

    Raises
    ------
    ValueError
        If it could not be exact, or would take too many steps.
    """
    is_whole = float(exponent).is_integer()
    is_open = any([True for step in steps for _ in free_names(step.params)])
    if not is_whole and is_open:
        raise ValueError(f"pow({exponent:g}) of a gate whose angles are not known yet cannot be carried out")
    if len(steps) == 1 and steps[0].name in _ROTATIONS:
        (step,) = steps
        if not is_whole:
            _require_principal(step, exponent)
        (value,) = step.params
        product = value if exponent == 1 else -value if exponent == -1 else exponent * value
        if not isinstance(product, Expression) and not cmath.isfinite(product):
            raise ValueError(f"pow({exponent:g}) of {step} has an angle that is too large")
        return [step._replace(params=(product,))]
    if not steps:
        return []
    total = sum([size(step) for step in steps])
    times = abs(int(exponent))
    if is_whole and times * total <= _MOST_REPEATED:
        return (steps if exponent >= 0 else inverse(steps)) * times
    is_small = len(qubits) <= _MOST_QUBITS_OF_A_MATRIX and total <= _MOST_REPEATED
    if not is_open and is_small and abs(exponent) <= _LARGEST_POWER_OF_A_MATRIX:
        entries = _matrix_power(_matrix_of(steps, qubits), exponent)
        return [Instruction("matrix", qubits, tuple(entries.ravel().tolist()))]
    raise ValueError(
        f"pow({exponent:g}) of a gate of {len(qubits)} qubits and {total} steps cannot be carried out: at most "
        f"{_MOST_REPEATED} steps in all, or {_MOST_QUBITS_OF_A_MATRIX} qubits and a power of {_LARGEST_POWER_OF_A_MATRIX}"
    )


def _require_principal(step: Instruction, exponent: float) -> None:
    """Refuse a rotation so far that its principal root is another than the rotation by a part of the angle."""
    value, most = step.params[0], _ROTATIONS[step.name]
    # An eigenvalue of -1 has the phase pi. Rotations have two eigenvalues there, one of which would be wrong.
    if not (-most < value < most or value == most == math.pi):  # type: ignore[operator]
        raise ValueError(
            f"pow({exponent:g}) of {step} cannot be carried out: the principal root is not the rotation by a part of the "
            f"angle, and readers differ in which they mean; take an angle within {most / math.pi:g} pi"
        )


def _matrix_of(steps: Sequence[Instruction], qubits: Sequence[int]) -> NDArray[np.complex128]:
    """Return the matrix of gates on `qubits`, of which the first is the highest bit of a row's number."""
    n = len(qubits)
    columns = np.eye(2**n, dtype=np.complex128).reshape((2,) * n + (-1,))
    for step in [part for step in steps for part in basic(step) if part.name != "barrier"]:
        k = len(step.qubits)
        if step.name == "diagonal":
            entries: Any = np.diag(step.params)
        else:
            matrix = GATES[step.name].matrix if step.name != "matrix" else None
            entries = np.array(step.params if matrix is None else matrix(*step.params)).reshape(2**k, 2**k)
        # A view of where the controls are 1, the gate's own qubits in front.
        there = columns[tuple([1 if qubit in step.controls else slice(None) for qubit in qubits])]
        free = [qubit for qubit in qubits if qubit not in step.controls]
        there = np.moveaxis(there, [free.index(qubit) for qubit in step.qubits], range(k))
        there[...] = (entries @ there.reshape(2**k, -1)).reshape(there.shape)
    return columns.reshape(2**n, -1)


def _matrix_power(unitary: NDArray[np.complex128], exponent: float) -> NDArray[np.complex128]:
    """Return the principal power: eigenvalues keep their vectors, and their phases, from -pi to pi, are multiplied."""
    # Of the Hermitian and anti-Hermitian parts, which commute, a mixture that no two eigenvalues have in common.
    for weight in (0.6180339887, 0.2715657904, 1.4142135624):
        _, vectors = np.linalg.eigh((unitary + unitary.conj().T) / 2 + weight * (unitary - unitary.conj().T) / 2j)
        values = np.einsum("ij,ij->j", vectors.conj(), unitary @ vectors)
        if np.abs(vectors * values @ vectors.conj().T - unitary).max() < 1e-11:
            break
    else:
        raise ValueError(f"pow({exponent:g}) cannot be carried out: the eigenvalues are too close")
    # An eigenvalue of -1 that rounding has put below the real axis has the phase pi all the same.
    turn = cmath.rect(1.0, -1e-9)
    phases = np.angle(values * turn) + 1e-9
    power: NDArray[np.complex128] = vectors * np.exp(1j * exponent * phases) @ vectors.conj().T
    return power
