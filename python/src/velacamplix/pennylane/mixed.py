"""PennyLane's device on density matrices."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from dataclasses import replace
from pathlib import Path
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.devices import ExecutionConfig
from pennylane.devices.modifiers import simulator_tracking, single_tape_support
from pennylane.exceptions import DeviceError
from pennylane.operation import Channel, StatePrepBase
from pennylane.ops.op_math import Conditional

from ..basics import checks
from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.instruction import Instruction
from ..noise.model import NoiseModel
from ..programs.compile import require_fusion
from ..states.densitymatrix import DensityMatrix
from . import branches, gates
from .device import VelacamplixDevice, composed, stops, takes_observable
from .errors import NotConverted
from .reading import Reading, initial_amplitudes
from .samples import Sampling
from .values import View, exact_results


class VelacamplixMixed(VelacamplixDevice):
    """The device ``velacamplix.mixed``: density matrices, with channels and noise models.

    Parameters
    ----------
    wires, shots, seed, threads, precision
        As for `VelacamplixQubit`.
    fusion : bool
        Only False: channels and gates act one by one.
    noise : NoiseModel, optional
        What ``noise.apply`` puts into every tape, beside the channels that are there. It must have no readout errors, which
        belong to measurements of classical bits.

    Raises
    ------
    TypeError, ValueError
        If an option is unknown, of the wrong kind or outside its range.

    Notes
    -----
    n wires take 4**n entries. Derivatives are PennyLane's own, by parameter shifts. Mid-circuit measurements are followed into
    every outcome, as by `VelacamplixQubit`.

    Examples
    --------
    >>> import pennylane as qml
    >>> from velacamplix.pennylane import VelacamplixMixed
    >>> @qml.qnode(VelacamplixMixed(wires=1))
    ... def circuit():
    ...     qml.Hadamard(0)
    ...     qml.PhaseDamping(0.75, 0)
    ...     return qml.expval(qml.X(0))
    >>> round(float(circuit()), 6)
    0.5
    """

    config_filepath = Path(__file__).parent / "velacamplix_mixed.toml"

    def __init__(
        self, wires: Any = None, shots: Any = None, seed: Any = "global", threads: int | None = None,
        precision: Precision = "double", fusion: bool = False, noise: NoiseModel | None = None,
    ) -> None:  # fmt: skip
        super().__init__(wires, shots, seed, threads, precision)
        if require_fusion(fusion):
            raise ValueError("fusion must be False with velacamplix.mixed, got True")
        if noise is not None and not isinstance(noise, NoiseModel):
            raise TypeError(f"noise must be a velacamplix.NoiseModel or None, got {checks.show(noise)}")
        if noise is not None and noise.to_dict().get("readout"):
            raise ValueError("noise must have no readout errors with velacamplix.mixed, got a model with some")
        self._noise = noise

    @property
    def name(self) -> str:
        """What ``qml.device`` knows it by."""
        return "velacamplix.mixed"

    def setup_execution_config(self, config: Any = None, circuit: Any = None) -> Any:
        """Return a configuration with all choices made."""
        config = self._config(config, circuit)
        if config.gradient_method in ("adjoint", "backprop", "device"):
            raise DeviceError(f"{self.name} has no derivatives by {config.gradient_method!r}; take 'parameter-shift'")
        return replace(config, mcm_config=self._mcm(config, circuit, False))

    def preprocess_transforms(self, execution_config: Any = None) -> Any:
        """Return what brings a tape into the form that the device takes."""
        config = ExecutionConfig() if execution_config is None else execution_config
        is_deferred = config.mcm_config.mcm_method == "deferred"
        return composed(self._transforms(config, _stops_deferred if is_deferred else _stops, takes_observable))

    def supports_derivatives(self, execution_config: Any = None, circuit: Any = None) -> bool:
        """No derivatives are known beside PennyLane's."""
        return False

    def _result(self, circuit: Any) -> Any:
        places, ops, measurements = self._placed(circuit), list(circuit.operations), circuit.measurements
        state = DensityMatrix(len(places), self._precision, self._threads)
        if ops and isinstance(ops[0], (StatePrepBase, qml.QubitDensityMatrix)):
            self._prepare(state, ops.pop(0), places)

        def tree(visit: branches.Visit) -> branches.Tree:
            return branches.Tree(ops, places, self._applier(circuit, places), visit, self._rng)

        if circuit.shots:
            return branches.sampled(tree, state, Sampling(measurements, places, self._rng), circuit.shots, places)
        if branches.is_dynamic(ops):
            mixture = branches.Mixture(measurements, places)
            tree(mixture.add).follow(state, 1.0)
            return mixture.results()
        self._applier(circuit, places)(state, ops)
        view = View(state, places)
        return exact_results(measurements, view)

    def _prepare(self, state: DensityMatrix, op: Any, places: Mapping[Any, int]) -> None:
        if isinstance(op, StatePrepBase):
            pure = initial_amplitudes(op, places)
            state.set_state(np.outer(pure, pure.conj()), order="big")
            return
        qubits = [places[wire] for wire in op.wires.labels]
        given = np.asarray(qml.math.toarray(op.data[0]), dtype=np.complex128)
        if given.shape != (2 ** len(qubits), 2 ** len(qubits)):
            raise NotConverted(f"a density matrix of {len(qubits)} wires cannot have the shape {given.shape}", gates.named(op), 0)
        others = [qubit for qubit in range(state.n_qubits) if qubit not in qubits]
        rest = np.zeros((2 ** len(others), 2 ** len(others)))
        rest[0, 0] = 1
        # Axes are those of the listed qubits, then of the others, for rows and for columns.
        order = np.argsort(qubits + others)
        n = state.n_qubits
        whole = np.kron(given, rest).reshape((2,) * (2 * n)).transpose([*order, *(order + n)])
        state.set_state(np.ascontiguousarray(whole).reshape(2**n, 2**n), order="big")

    def _applier(self, tape: Any, places: Mapping[Any, int]) -> branches.Apply:
        def apply(state: Any, listed: Sequence[Any]) -> None:
            reader = Reading(places)
            steps: list[Instruction] = []
            for op in listed:
                try:
                    steps += reader.steps(op)
                except (TypeError, ValueError) as error:
                    place = next((place for place, other in enumerate(tape.operations) if other is op), None)
                    raise NotConverted.at(error, gates.named(op), place) from None
            circuit = Circuit.from_instructions(steps, state.n_qubits)
            state.run(circuit if self._noise is None else self._noise.apply(circuit))

        return apply


# PennyLane's words for "takes one tape, too" and "counts for qml.Tracker"; they change the class they are given.
single_tape_support(VelacamplixMixed)
simulator_tracking(VelacamplixMixed)


def _stops(op: Any) -> bool:
    if isinstance(op, Conditional):
        return _stops(op.base)
    return stops(op) or isinstance(op, (Channel, qml.QubitDensityMatrix))


def _stops_deferred(op: Any) -> bool:
    return stops(op, takes_measurements=False) or isinstance(op, (Channel, qml.QubitDensityMatrix))
