"""PennyLane's device on state vectors."""

from __future__ import annotations

import threading
from collections.abc import Callable, Mapping, Sequence
from dataclasses import replace
from pathlib import Path
from typing import Any

import numpy as np
import pennylane as qml
from pennylane.devices import Device, ExecutionConfig
from pennylane.devices.modifiers import simulator_tracking, single_tape_support
from pennylane.devices.preprocess import (
    decompose,
    device_resolve_dynamic_wires,
    no_sampling,
    validate_adjoint_trainable_params,
    validate_device_wires,
    validate_measurements,
    validate_observables,
)
from pennylane.exceptions import DeviceError
from pennylane.measurements import (
    ClassicalShadowMP,
    ExpectationMP,
    SampleMeasurement,
    ShadowExpvalMP,
    StateMeasurement,
)
from pennylane.operation import StatePrepBase
from pennylane.ops.op_math import Conditional
from pennylane.ops.op_math import Prod, SProd, Sum

from ..basics import checks
from ..basics.types import Precision
from ..machine import limits
from ..programs.compile import require_fusion
from ..programs.drive import drive
from ..states.statevector import StateVector
from . import branches, gates
from .derivatives import Adjoint
from .observables import has_pauli_form
from .plan import How, Plans, Same, program
from .reading import MidMeasure, initial_amplitudes
from .samples import Sampling
from .unboxed import unboxed
from .values import View, exact_results

_Base: Any = Device

# A state of so few qubits is kept for the next tape.
_MOST_KEPT = 20

_OBSERVABLES = frozenset(
    {
        "Identity", "PauliX", "PauliY", "PauliZ", "Hadamard", "Hermitian", "Projector", "SparseHamiltonian", "Sum", "SProd",
        "Prod", "Exp", "LinearCombination", "Hamiltonian",
    }
)  # fmt: skip

_OF_ONE_DEVICE = frozenset({"_lock", "_plans", "_adjoint", "_spare"})

_METHODS = ("deferred", "device", "one-shot", "tree-traversal")
_POSTSELECT_MODES = (None, "hw-like")


class VelacamplixDevice(_Base):  # type: ignore[misc]
    """What the devices have in common: options, wires, random numbers."""

    config_filepath: Path

    def __init__(
        self, wires: Any = None, shots: Any = None, seed: Any = "global", threads: int | None = None,
        precision: Precision = "double",
    ) -> None:  # fmt: skip
        super().__init__(wires=wires, shots=shots)
        self._precision: Precision = checks.precision(precision)
        limits.thread_count(threads)
        self._threads = threads
        self._rng = generator(seed)
        self._own_places = None
        if self.wires is not None:
            labels = self.wires.tolist()
            self._own_places = _places(labels)
        self._begin()

    def _begin(self) -> None:
        """Make what a device has for itself alone, and no copy of it."""
        # One computation at a time: what is kept is used by it.
        self._lock = threading.RLock()

    def __getstate__(self) -> dict[str, Any]:
        return {name: value for name, value in vars(self).items() if name not in _OF_ONE_DEVICE}

    def __setstate__(self, state: dict[str, Any]) -> None:
        self.__dict__.update(state)
        self._begin()

    @property
    def name(self) -> str:
        """What ``qml.device`` knows it by."""
        raise NotImplementedError

    def execute(self, circuits: Any, execution_config: Any = None) -> Any:
        """Return the results of tapes."""
        with self._lock:
            return tuple([self._result(circuit) for circuit in circuits])

    def _result(self, circuit: Any) -> Any:
        raise NotImplementedError

    def _placed(self, circuit: Any) -> Mapping[Any, int]:
        """Return the qubit of each wire."""
        if self._own_places is not None:
            return self._own_places
        # As PennyLane numbers wires: as they are called if that leaves no gaps, otherwise in the order they occur.
        labels: dict[Any, None] = {}
        for op in circuit.operations:
            labels.update(dict.fromkeys(op.wires.labels))
        for mp in circuit.measurements:
            labels.update(dict.fromkeys(mp.wires.labels))
        try:
            is_plain = set(labels) == set(range(len(labels)))
        except TypeError:
            is_plain = False
        return _places(list(range(len(labels))) if is_plain else list(labels))

    def _fits(self, circuit: Any) -> bool:
        """Whether `_transforms`, and those for derivatives, would leave a tape as it is: gates on expectation values."""
        if circuit.shots or not all([_is_plain_expectation(mp) for mp in circuit.measurements]):
            return False
        labels: set[Any] = set()
        for op in circuit.operations:
            if not gates.is_plain(op):
                return False
            labels.update(gates.labels(op))
        for mp in circuit.measurements:
            labels.update(mp.obs.wires.labels)
        return labels <= self._own_places.keys() if self._own_places is not None else {type(one) for one in labels} <= {int, str}

    def _config(self, config: Any, circuit: Any) -> Any:
        config = ExecutionConfig() if config is None else config
        for option in config.device_options:
            raise DeviceError(f"{self.name} has no device option {option!r}")
        return config

    def _transforms(self, config: Any, stop: Callable[[Any], bool], takes: Callable[[Any], bool]) -> list[tuple[Any, dict[str, Any]]]:
        """Return what brings a tape into the form that `execute` takes."""
        name = self.name
        steps: list[tuple[Any, dict[str, Any]]] = [
            (validate_measurements, {"analytic_measurements": _is_exact, "sample_measurements": _is_sampled, "name": name}),
            (validate_observables, {"stopping_condition": takes, "name": name}),
        ]
        is_deferred = config.mcm_config.mcm_method == "deferred"
        if is_deferred:
            steps.append((qml.defer_measurements, {"allow_postselect": False}))
        steps += [
            (decompose, {"stopping_condition": stop, "skip_initial_state_prep": True, "name": name}),
            (device_resolve_dynamic_wires, {"wires": self.wires, "allow_resets": not is_deferred}),
            (validate_device_wires, {"wires": self.wires, "name": name}),
            (qml.transforms.broadcast_expand, {}),
        ]
        return steps

    def _mcm(self, config: Any, circuit: Any, needs_gradient: bool) -> Any:
        """Return how mid-circuit measurements are made."""
        asked = config.mcm_config
        method, mode = asked.mcm_method, asked.postselect_mode
        if method is not None and method not in _METHODS:
            raise DeviceError(f"mcm_method={str(method)!r} is not supported with {self.name}; there are {', '.join(_METHODS)}")
        if mode not in _POSTSELECT_MODES:
            raise DeviceError(
                f"postselect_mode={str(mode)!r} is not supported with {self.name}; there is 'hw-like', which discards shots"
            )
        if method is None:
            is_sampled = circuit is None or bool(circuit.shots)
            selects = circuit is not None and any(
                [isinstance(op, MidMeasure) and op.postselect is not None for op in circuit.operations]
            )
            method = "deferred" if needs_gradient and not is_sampled and not selects else "tree-traversal"
        elif method != "deferred":
            method = "tree-traversal"
        return replace(asked, mcm_method=method)


def _places(labels: list[Any]) -> Mapping[Any, int]:
    if all([type(label) is int and label == place for place, label in enumerate(labels)]):
        return Same({place: place for place in range(len(labels))})
    return {label: place for place, label in enumerate(labels)}


def generator(seed: Any) -> np.random.Generator:
    """Return where random numbers come from: any seed of NumPy's, or "global" for NumPy's own state."""
    if isinstance(seed, str) and seed == "global":
        return np.random.default_rng(np.random.randint(2**31 - 1))
    try:
        return np.random.default_rng(seed)
    except (TypeError, ValueError) as error:
        kind = ValueError if isinstance(seed, str) else type(error)
        expected = 'seed must be "global", None, or what numpy.random.default_rng takes'
        raise kind(f"{expected}, got {checks.show(seed)}") from None


def _is_exact(mp: Any) -> bool:
    return isinstance(mp, StateMeasurement)


def _is_sampled(mp: Any) -> bool:
    return isinstance(mp, (SampleMeasurement, ClassicalShadowMP, ShadowExpvalMP))


def takes_observable(op: Any) -> bool:
    """Whether an observable can be measured."""
    if isinstance(op, SProd):
        return takes_observable(op.base)
    if isinstance(op, (Sum, Prod)):
        return all([takes_observable(part) for part in op.operands])
    return op.name in _OBSERVABLES


def stops(op: Any, takes_measurements: bool = True) -> bool:
    """Whether an operation need not be taken apart."""
    if isinstance(op, MidMeasure):
        return takes_measurements
    if isinstance(op, Conditional):
        return stops(op.base, takes_measurements)
    return gates.is_known(op)


def stops_derivative(op: Any) -> bool:
    """Whether derivatives by the numbers of an operation are known."""
    if isinstance(op, (MidMeasure, Conditional)):
        return False
    if gates.has_angles(op):
        return True
    return not any([qml.math.requires_grad(value) for value in op.data])


def _has_derivative(op: Any) -> bool:
    # Mid-circuit measurements are put off to the end, unless outcomes are selected.
    if isinstance(op, MidMeasure):
        return op.postselect is None
    return stops_derivative(op.base if isinstance(op, Conditional) else op)


def _is_expectation(mp: Any) -> bool:
    return isinstance(mp, ExpectationMP) and mp.obs is not None


def _is_plain_expectation(mp: Any) -> bool:
    """Whether an expectation value has no number that could be trained, and is one for sure."""
    obs = mp.obs
    if type(mp) is not ExpectationMP or obs is None or obs.pauli_rep is None or not takes_observable(obs):
        return False
    return all([type(value) in (float, int, np.float64) for value in obs.data])


def _where_needed(tape: Any, fits: Callable[[Any], bool], steps: Any) -> tuple[Sequence[Any], Callable[[Any], Any]]:
    """Apply some transforms to tapes that they may change or refuse: looking is faster than having each of them look."""
    if fits(tape):
        return (unboxed(tape),), _only
    tapes, together = steps((tape,))
    return tapes, lambda results: together(results)[0]


def _only(results: Any) -> Any:
    return results[0]


def composed(steps: Sequence[tuple[Any, dict[str, Any]]]) -> Any:
    """Return transforms one after another, as PennyLane's versions call them."""
    kind = getattr(qml, "CompilePipeline", None) or qml.transforms.core.TransformProgram
    made = kind()
    for transform, arguments in steps:
        made.add_transform(transform, **arguments)
    return made


class VelacamplixQubit(VelacamplixDevice):
    """The device ``velacamplix.qubit``: state vectors, with shots or exactly, and derivatives by the adjoint method.

    Parameters
    ----------
    wires : int, sequence or None
        Number or labels of the wires; None takes those of each tape.
    shots : int, sequence or None
        As PennyLane has it.
    seed : "global", None or anything that ``numpy.random.default_rng`` takes
        Where shots start; "global" takes a number from NumPy's global state, None from the system.
    threads : int, optional
        As for `velacamplix.StateVector`.
    precision : {"double", "single"}
        16 or 8 bytes per amplitude.
    fusion : bool
        Whether neighbouring gates may be multiplied together: faster, and equal up to rounding.
    noise : None
        State vectors have no noise here: `VelacamplixMixed` takes a model.

    Raises
    ------
    TypeError, ValueError
        If an option is unknown, of the wrong kind or outside its range.

    Notes
    -----
    Mid-circuit measurements are followed into every outcome, whatever ``mcm_method`` says but "deferred": with shots all are
    shared out at each measurement, without shots values are sums over all outcomes.

    Examples
    --------
    >>> import pennylane as qml
    >>> from velacamplix.pennylane import VelacamplixQubit
    >>> @qml.qnode(VelacamplixQubit(wires=2))
    ... def circuit(angle):
    ...     qml.RX(angle, 0)
    ...     qml.CNOT([0, 1])
    ...     return qml.expval(qml.Z(1))
    >>> angle = qml.numpy.array(0.5, requires_grad=True)
    >>> round(float(circuit(angle)), 6), round(float(qml.grad(circuit)(angle)), 6)
    (0.877583, -0.479426)
    """

    config_filepath = Path(__file__).parent / "velacamplix_qubit.toml"

    def __init__(
        self, wires: Any = None, shots: Any = None, seed: Any = "global", threads: int | None = None,
        precision: Precision = "double", fusion: bool = False, noise: None = None,
    ) -> None:  # fmt: skip
        self._how = How(checks.precision(precision), require_fusion(fusion))
        super().__init__(wires, shots, seed, threads, precision)
        if noise is not None:
            raise ValueError(f"noise must be None with velacamplix.qubit, got {checks.show(noise)}; velacamplix.mixed takes a model")

    def _begin(self) -> None:
        super()._begin()
        self._plans = Plans(self._how)
        # Derivatives go back through the gates one by one.
        self._adjoint = Adjoint(Plans(How(self._precision, False)), self._precision, self._threads)
        self._spare: StateVector | None = None

    @property
    def name(self) -> str:
        """What ``qml.device`` knows it by."""
        return "velacamplix.qubit"

    # --- What is done with a tape before ---

    def setup_execution_config(self, config: Any = None, circuit: Any = None) -> Any:
        """Return a configuration with all choices made."""
        config = self._config(config, circuit)
        method = config.gradient_method
        changes: dict[str, Any] = {}
        if method == "best":
            method = changes["gradient_method"] = "adjoint"
        is_own = method == "adjoint"
        if config.use_device_gradient is None:
            changes["use_device_gradient"] = is_own
        if config.use_device_jacobian_product is None:
            # One value has its derivatives with it, for a third less than a run and then a gradient.
            is_single = circuit is not None and len(circuit.measurements) == 1
            changes["use_device_jacobian_product"] = is_own and not is_single
        if config.grad_on_execution is None:
            changes["grad_on_execution"] = is_own
        changes["mcm_config"] = self._mcm(config, circuit, is_own)
        return replace(config, **changes)

    def preprocess_transforms(self, execution_config: Any = None) -> Any:
        """Return what brings a tape into the form that the device takes."""
        config = ExecutionConfig() if execution_config is None else execution_config
        is_deferred = config.mcm_config.mcm_method == "deferred"
        steps = self._transforms(config, _stops_before_deferred if is_deferred else stops, takes_observable)
        if config.gradient_method == "adjoint":
            steps += self._adjoint_transforms()
        return composed([(qml.transform(_where_needed), {"fits": self._fits, "steps": composed(steps)})])

    def _adjoint_transforms(self) -> list[tuple[Any, dict[str, Any]]]:
        name = f"adjoint + {self.name}"
        return [
            (no_sampling, {"name": name}),
            (decompose, {"stopping_condition": stops_derivative, "skip_initial_state_prep": True, "name": name}),
            (validate_observables, {"stopping_condition": has_pauli_form, "name": name}),
            (validate_measurements, {"analytic_measurements": _is_expectation, "name": name}),
            (validate_adjoint_trainable_params, {}),
            (qml.transforms.broadcast_expand, {}),
        ]

    # --- Values ---

    def execute(self, circuits: Any, execution_config: Any = None) -> Any:
        """Return the results of tapes; those that differ in their angles alone are run side by side."""
        with self._lock:
            found = self._plans.values(circuits, self._placed, limits.thread_count(self._threads)) if len(circuits) > 1 else None
            return tuple([self._result(circuit) for circuit in circuits]) if found is None else found

    def _result(self, circuit: Any) -> Any:
        places = self._placed(circuit)
        ops, measurements = circuit.operations, circuit.measurements
        state = self._prepared(ops, places)
        if ops and isinstance(ops[0], StatePrepBase):
            ops = ops[1:]
        if branches.is_dynamic(ops):
            return self._of_branches(circuit, ops, state, places)
        made = self._plans.program(ops, places, len(places))
        drive(state._live(), made.core)
        view = View(state, places, made.phase)
        if circuit.shots:
            sampling = Sampling(measurements, places, self._rng)
            sampling.draw(view, circuit.shots.total_shots, {})
            found = sampling.results(circuit.shots)
        else:
            found = exact_results(measurements, view)
        if len(places) <= _MOST_KEPT:
            self._spare = state
        return found

    def _prepared(self, ops: Sequence[Any], places: Mapping[Any, int]) -> StateVector:
        """Return a state of all qubits before the first gate."""
        n = len(places)
        state, self._spare = self._spare, None
        if state is None or state.n_qubits != n:
            state = StateVector._another(n, self._precision, limits.thread_count(self._threads))
        else:
            state._live().reset()
        if ops and isinstance(ops[0], StatePrepBase):
            state.set_state(initial_amplitudes(ops[0], places), order="big")
        return state

    def _of_branches(self, circuit: Any, ops: Sequence[Any], state: StateVector, places: Mapping[Any, int]) -> Any:
        def apply(one: Any, listed: Sequence[Any]) -> None:
            if listed:
                drive(one._live(), program(listed, places, one.n_qubits, self._how).core)

        def tree(visit: branches.Visit) -> branches.Tree:
            return branches.Tree(ops, places, apply, visit, self._rng)

        if circuit.shots:
            return branches.sampled(tree, state, Sampling(circuit.measurements, places, self._rng), circuit.shots, places)
        mixture = branches.Mixture(circuit.measurements, places)
        tree(mixture.add).follow(state, 1.0)
        return mixture.results()

    # --- Derivatives ---

    def supports_derivatives(self, execution_config: Any = None, circuit: Any = None) -> bool:
        """Whether derivatives are known: of exact expectation values by the adjoint method."""
        if execution_config is not None and execution_config.gradient_method not in ("adjoint", "best"):
            return False
        if circuit is None:
            return True
        if circuit.shots or not all([_is_expectation(mp) and has_pauli_form(mp.obs) for mp in circuit.measurements]):
            return False
        if all([_has_derivative(op) for op in circuit.operations if type(op) not in gates.DIRECT]):
            return True
        try:  # whether it is so for what PennyLane makes of the others
            composed(self._adjoint_transforms())((circuit,))
        except (DeviceError, AttributeError, qml.exceptions.DecompositionUndefinedError, qml.exceptions.QuantumFunctionError):
            return False
        return True

    def supports_vjp(self, execution_config: Any = None, circuit: Any = None) -> bool:
        """Whether products with derivatives are known: where these are."""
        return self.supports_derivatives(execution_config, circuit)

    def supports_jvp(self, execution_config: Any = None, circuit: Any = None) -> bool:
        """Whether products with derivatives are known: where these are."""
        return self.supports_derivatives(execution_config, circuit)

    def compute_derivatives(self, circuits: Any, execution_config: Any = None) -> Any:
        """Return the derivatives of all values by all trainable parameters."""
        with self._lock:
            return tuple([self._adjoint.jacobian(circuit, self._placed(circuit))[1] for circuit in circuits])

    def execute_and_compute_derivatives(self, circuits: Any, execution_config: Any = None) -> Any:
        """Return values and derivatives; together they cost what derivatives cost."""
        with self._lock:
            found = [self._adjoint.jacobian(circuit, self._placed(circuit)) for circuit in circuits]
        return tuple([values for values, _ in found]), tuple([jacobian for _, jacobian in found])

    def compute_vjp(self, circuits: Any, cotangents: Any, execution_config: Any = None) -> Any:
        """Return the derivatives of the sum of all values, each times its cotangent."""
        with self._lock:
            return self._products(circuits, cotangents)

    def _products(self, circuits: Any, cotangents: Any) -> Any:
        return tuple([self._adjoint.vjp(one, self._placed(one), own) for one, own in zip(circuits, cotangents)])

    def execute_and_compute_vjp(self, circuits: Any, cotangents: Any, execution_config: Any = None) -> Any:
        """Return values, and what `compute_vjp` returns."""
        with self._lock:
            return tuple([self._result(circuit) for circuit in circuits]), self._products(circuits, cotangents)

    def compute_jvp(self, circuits: Any, tangents: Any, execution_config: Any = None) -> Any:
        """Return how all values change in the direction of the tangents."""
        with self._lock:
            return tuple([self._adjoint.jvp(one, self._placed(one), own)[1] for one, own in zip(circuits, tangents)])

    def execute_and_compute_jvp(self, circuits: Any, tangents: Any, execution_config: Any = None) -> Any:
        """Return values, and what `compute_jvp` returns."""
        with self._lock:
            found = [self._adjoint.jvp(one, self._placed(one), own) for one, own in zip(circuits, tangents)]
        return tuple([values for values, _ in found]), tuple([product for _, product in found])


# PennyLane's words for "takes one tape, too" and "counts for qml.Tracker"; they change the class they are given.
single_tape_support(VelacamplixQubit)
simulator_tracking(VelacamplixQubit)


def _stops_before_deferred(op: Any) -> bool:
    return stops(op, takes_measurements=False)


__all__ = ["VelacamplixQubit"]
