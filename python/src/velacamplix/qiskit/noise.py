"""Aer's noise models and channels, which Qiskit's circuits may hold, as those of this package."""

from __future__ import annotations

import math
import warnings
from collections.abc import Mapping, Sequence
from functools import cached_property
from typing import Any

import numpy as np
from qiskit.circuit import library
from qiskit.quantum_info import Kraus, SuperOp
from qiskit.transpiler import PassManager

from ..basics import checks
from ..channels.channel import Channel
from ..instructions.flow import Readout
from ..instructions.instruction import Instruction
from ..noise.model import NoiseModel
from .errors import NotConverted

_MOST_QUBITS = 4
# Aer's errors are complete up to so much; what is missing is shared out.
_TOLERANCE = 1e-8
_PAULIS: dict[str, Any] = {
    "I": np.eye(2), "X": np.array([[0, 1], [1, 0]]), "Y": np.array([[0, -1j], [1j, 0]]), "Z": np.diag([1, -1]),
}  # fmt: skip
_RESET = [np.array([[1, 0], [0, 0]], dtype=complex), np.array([[0, 1], [0, 0]], dtype=complex)]
_GATES: dict[str, Any] = library.get_standard_gate_name_mapping()
_EXACT = (0.0, 0.0)

#: Names of instructions that are channels.
CHANNELS = frozenset({"quantum_channel", "kraus", "superop"})

Matrices = list[np.ndarray]


def is_model(value: Any) -> bool:
    """Whether this is a noise model of Aer's."""
    return str(type(value).__module__).startswith("qiskit_aer.") and hasattr(value, "noise_instructions")


def to_noise_model(model: Any) -> NoiseModel:
    """Return a noise model of Aer's, for circuits of this package.

    The backend and the primitives take Aer's models as they are, and apply them to Qiskit's circuits by Qiskit's names; this is
    for what is run here by other means.

    Parameters
    ----------
    model : qiskit_aer.noise.NoiseModel
        Errors of gates, ``reset`` and ``measure``, for all qubits and for some, which take the place of the general ones;
        readout errors of single qubits. What ``NoiseModel.from_backend`` makes, too.

    Returns
    -------
    velacamplix.NoiseModel
        Gates that are one here share their rules: ``p`` and ``u1``, and ``cz`` on (0, 1) and on (1, 0).

    Raises
    ------
    TypeError
        If this is no such model.
    NotConverted
        If an error has more than 4 qubits, or readout errors are of several qubits together.

    Warns
    -----
    UserWarning
        If there are errors of delays, which circuits here do not have; they are left out.

    Examples
    --------
    >>> from qiskit_aer import noise                                              # doctest: +SKIP
    >>> model = noise.NoiseModel()                                                # doctest: +SKIP
    >>> model.add_all_qubit_quantum_error(noise.depolarizing_error(0.1, 2), "cx")  # doctest: +SKIP
    >>> to_noise_model(model).apply(Circuit(2).cx(0, 1)).gate_counts()            # doctest: +SKIP
    """
    if not is_model(model):
        raise TypeError(f"model must be a qiskit_aer.noise.NoiseModel, got {checks.show(model)}")
    errors = Errors(model)
    made = NoiseModel()
    if "delay" in errors.names:
        warnings.warn("errors of delay are left out, which circuits here do not have", UserWarning, stacklevel=2)
    # Those for all qubits first, so that others take their place.
    for (name, qubits), channel in sorted(errors.channels.items(), key=lambda row: row[0][1] is not None):
        if name == "delay":
            continue
        place = "before" if name == "measure" else "after"
        listed = None if qubits is None else [qubits]
        made = made._with_rule(place, name, channel, listed, is_optional=True, replaces=True)
    for qubit, (up, down) in sorted(errors.flips.items(), key=lambda row: row[0] is not None):
        made = made.readout(up, down, qubits=qubit)
    return made


class Errors:
    """What a model of Aer's says.

    Attributes
    ----------
    channels : dict
        By the name or label of an instruction, and its qubits, None for all others.
    flips : dict
        By qubit, None for all others, how its outcome is misread.
    names : frozenset of str
        Names and labels with errors.
    """

    def __init__(self, model: Any) -> None:
        self.channels: dict[tuple[str, tuple[int, ...] | None], Channel] = {}
        self.flips: dict[int | None, tuple[float, float]] = {}
        self._passes = list(getattr(model, "_custom_noise_passes", ()))
        defaults = getattr(model, "_default_quantum_errors", {})
        for row in model.to_dict()["errors"]:
            places = [None if place is None else tuple(map(int, place)) for place in row.get("gate_qubits", [None])]
            if row["type"] == "roerror":
                for place in places:
                    self.flips[None if place is None else place[0]] = _misread(row["probabilities"], place)
                continue
            made: dict[int, Channel] = {}
            for name in row["operations"]:
                for place in places:
                    size = len(place) if place is not None else getattr(defaults.get(name), "num_qubits", 1)
                    if size not in made:
                        made[size] = _channel(row, size)
                    self.channels[name, place] = made[size]
        self.names = frozenset([name for name, _ in self.channels])

    @cached_property
    def manager(self) -> Any:
        """What puts the noise of delays into a circuit; None if there is none."""
        return PassManager(self._passes) if self._passes else None

    def beside(self, operation: Any, qubits: tuple[int, ...], steps: list[Instruction]) -> list[Instruction]:
        """Return what an operation becomes with its noise, from what it becomes without."""
        label = getattr(operation, "label", None)
        name = label if label in self.names else operation.name
        if name == "measure":
            flips = self.flips.get(qubits[0], self.flips.get(None, _EXACT))
            if any(flips):
                steps = [step._replace(detail=Readout((flips,))) for step in steps]
        if name not in self.names:
            return steps
        channel = self.channels.get((name, qubits)) or self.channels.get((name, None))
        if channel is None:
            return steps
        if channel.n_qubits != len(qubits):
            raise NotConverted(f"the noise of {name!r} is on {channel.n_qubits} qubits, the gate on {len(qubits)}")
        noise = Instruction("channel", qubits, detail=channel)
        return [noise, *steps] if name == "measure" else [*steps, noise]


def channel_of(operation: Any) -> Channel:
    """Return an instruction that is a channel: of Aer's errors, or of Qiskit's ``Kraus`` and ``SuperOp``."""
    if operation.name == "quantum_channel":
        return _channel(operation._quantum_error.to_dict(), operation.num_qubits)
    matrices = [np.asarray(matrix) for matrix in operation.params]
    if operation.name == "superop":
        matrices = _plain_kraus(SuperOp(matrices[0]))
    return _of_kraus(matrices, operation.num_qubits)


def _misread(rows: Any, place: tuple[int, ...] | None) -> tuple[float, float]:
    if len(rows) != 2:
        raise NotConverted(f"readout errors must be of single qubits, got one of qubits {place or ''} together")
    return float(rows[0][1]), float(rows[1][0])


def _channel(row: Mapping[str, Any], n_qubits: int) -> Channel:
    """Return an error of Aer's on so many qubits, not all of which it need touch: circuits, each with its probability."""
    lists, shares = row["instructions"], [float(p) for p in row["probabilities"]]
    n_qubits = max([n_qubits, *[qubit + 1 for steps in lists for step in steps for qubit in step["qubits"]]])
    if n_qubits > _MOST_QUBITS:
        raise NotConverted(f"errors must be on at most {_MOST_QUBITS} qubits, got one on {n_qubits}")
    total = math.fsum(shares)
    shares = [share / total for share in shares]
    words = [_word(steps, n_qubits) for steps in lists]
    if all([word is not None for word in words]):
        found: dict[str, float] = {}
        for word, share in zip(words, shares):
            found[str(word)] = found.get(str(word), 0.0) + share
        return Channel.pauli(_whole(found))
    products = [_product(steps, n_qubits) for steps in lists]
    if all([len(matrices) == 1 for matrices in products]):
        return Channel.from_unitaries(list(_whole(dict(enumerate(shares))).values()), [matrices[0] for matrices in products])
    kraus = [math.sqrt(share) * matrix for share, matrices in zip(shares, products) for matrix in matrices]
    return _of_kraus(kraus, n_qubits)


def _whole(shares: dict[Any, float]) -> dict[Any, float]:
    """Return probabilities whose sum is 1 to the last bit or nearly."""
    largest = max(shares, key=lambda key: shares[key])
    return {**shares, largest: 1 - math.fsum([share for key, share in shares.items() if key != largest])}


def _word(steps: Sequence[Mapping[str, Any]], n_qubits: int) -> str | None:
    """Return the Pauli string that a circuit is, letter j on qubit j; None if it is none."""
    letters = ["I"] * n_qubits
    for step in steps:
        name = step["name"]
        if name not in ("id", "x", "y", "z", "pauli"):
            return None
        given = {"id": "I", "pauli": ""}.get(name, name.upper()) or step["params"][0][::-1]
        for qubit, letter in zip(step["qubits"], given):
            letters[qubit] = _PRODUCTS[letters[qubit] + letter]
    return "".join(letters)


# But for a phase, which no channel knows.
_PRODUCTS = {a + b: "IXYZ"["IXYZ".index(a) ^ "IXYZ".index(b)] for a in "IXYZ" for b in "IXYZ"}


def _product(steps: Sequence[Mapping[str, Any]], n_qubits: int) -> Matrices:
    """Return the Kraus operators of a circuit, one if it is unitary."""
    made: Matrices = [np.eye(2**n_qubits, dtype=complex)]
    for step in steps:
        factors = [_embedded(matrix, step["qubits"], n_qubits) for matrix in _matrices(step)]
        made = [factor @ before for before in made for factor in factors]
    return made


def _matrices(step: Mapping[str, Any]) -> Matrices:
    name, params = step["name"], step.get("params", [])
    if name == "reset":
        return _RESET
    if name == "kraus":
        return [np.asarray(matrix, dtype=complex) for matrix in params]
    if name == "unitary":
        return [np.asarray(params[0], dtype=complex)]
    if name == "pauli":
        made: Any = np.eye(1)
        for letter in params[0]:
            made = np.kron(made, _PAULIS[letter])
        return [np.asarray(made, dtype=complex)]
    if name not in _GATES:
        raise NotConverted(f"an error of {name!r} cannot be converted")
    gate = _GATES[name] if not params else type(_GATES[name])(*params)
    return [np.asarray(gate.to_matrix(), dtype=complex)]


def _embedded(matrix: np.ndarray, qubits: Sequence[int], n_qubits: int) -> np.ndarray:
    """Return a matrix on all qubits, its own first the lowest bit of a row's number, from one on some."""
    if list(qubits) == list(range(n_qubits)):
        return matrix
    others = [qubit for qubit in range(n_qubits) if qubit not in qubits]
    whole = np.kron(np.eye(2 ** len(others)), matrix).reshape((2,) * 2 * n_qubits)
    # Axis i is the bit n - 1 - i of a row: those of the matrix are lowest.
    listed = [*qubits, *others]
    axes = [n_qubits - 1 - listed.index(n_qubits - 1 - axis) for axis in range(n_qubits)]
    return whole.transpose([*axes, *[n_qubits + axis for axis in axes]]).reshape(2**n_qubits, -1)


def _of_kraus(matrices: Matrices, n_qubits: int) -> Channel:
    if not 1 <= n_qubits <= _MOST_QUBITS or any([matrix.shape != (2**n_qubits,) * 2 for matrix in matrices]):
        raise NotConverted(f"channels must be on 1 to {_MOST_QUBITS} qubits, with a square matrix for each operator")
    kept = [matrix for matrix in matrices if matrix.any()]
    if len(kept) > 4**n_qubits:
        kept = _plain_kraus(SuperOp(Kraus(kept)))
    total = sum([matrix.conj().T @ matrix for matrix in kept])
    off = float(np.abs(total - np.eye(2**n_qubits)).max())
    if not off <= _TOLERANCE:
        raise NotConverted(f"a channel must keep the trace, got one that is {off:.3g} off")
    if off > 1e-15:
        values, vectors = np.linalg.eigh(np.asarray(total))
        kept = [matrix @ (vectors / np.sqrt(values)) @ vectors.conj().T for matrix in kept]
    return Channel.from_kraus(kept)


def _plain_kraus(superoperator: Any) -> Matrices:
    found = Kraus(superoperator).data
    if isinstance(found, tuple):  # operators for left and right
        raise NotConverted("a superoperator must be that of a channel, completely positive")
    return [np.asarray(matrix) for matrix in found]
