"""Qiskit's primitives, computed here: `SamplerV2` and `EstimatorV2`."""

from __future__ import annotations

import itertools
import warnings
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, Self

import numpy as np
from qiskit.primitives import (
    BaseEstimatorV2,
    BaseSamplerV2,
    BitArray,
    DataBin,
    PrimitiveJob,
    PrimitiveResult,
    PubResult,
    SamplerPubResult,
)
from qiskit.primitives.containers.estimator_pub import EstimatorPub
from qiskit.primitives.containers.sampler_pub import SamplerPub

from ..basics import checks
from ..basics.types import Precision
from ..circuit.circuit import Circuit
from ..instructions.flow import written_bits
from ..machine import limits, memory
from ..observables.observable import Observable
from ..running.run import run
from . import options
from .backend import VelacamplixBackend
from .reading import with_noise

_Sampler: Any = BaseSamplerV2
_Estimator: Any = BaseEstimatorV2

# A label's letters as sums of Pauli operators.
_LETTERS: dict[str, tuple[tuple[float, str], ...]] = {
    "I": ((1.0, ""),), "X": ((1.0, "X"),), "Y": ((1.0, "Y"),), "Z": ((1.0, "Z"),),
    "0": ((0.5, ""), (0.5, "Z")), "1": ((0.5, ""), (-0.5, "Z")), "+": ((0.5, ""), (0.5, "X")), "-": ((0.5, ""), (-0.5, "X")),
    "r": ((0.5, ""), (0.5, "Y")), "l": ((0.5, ""), (-0.5, "Y")),
}  # fmt: skip

# Of a label: a projector has 2^k Pauli strings.
_MOST_PROJECTORS = 16


class _How:
    """How circuits are run, checked once."""

    def __init__(self, seed: Any, threads: Any, precision: Any, fusion: Any, noise: Any, method: Any) -> None:
        self.seed = checks.random_source(seed)
        self.threads = None if threads is None else limits.thread_count(threads)
        self.precision: Precision = checks.choice(precision, "precision", ("double", "single"))  # type: ignore[assignment]
        self.fusion = checks.flag(fusion, "fusion")
        self.noise = options.noise(noise, "noise")
        self.method = options.run_method(options.method(method), noise is not None)

    def rng(self) -> np.random.Generator:
        return np.random.default_rng(self.seed)

    def circuit(self, pub: Any) -> Circuit:
        """Return the circuit of a pub, with noise in it."""
        return with_noise(pub.circuit, self.noise)

    def runs(self, circuit: Circuit, columns: Mapping[str, np.ndarray], count: int, **more: Any) -> Sequence[Any]:
        """Return the result of a circuit with each of some sets of values, an array for each parameter; all in one call."""
        how: Any = {"threads": self.threads, "precision": self.precision, "fusion": self.fusion, "method": self.method, **more}
        there = {name: column for name, column in columns.items() if name in circuit.parameters}
        if not count:
            return []
        if count == 1:
            return [run(circuit.bind({name: float(column[0]) for name, column in there.items()}), **how)]
        if not there and how.get("shots") is None:
            return [run(circuit, **how)] * count
        return run(circuit, values=there, **how) if there else run([circuit] * count, **how)


class SamplerV2(_Sampler):  # type: ignore[misc]
    """Qiskit's sampler on this simulator: shots of circuits with measurements, decisions and loops anywhere.

    Parameters
    ----------
    default_shots : int
        Of pubs that do not say how many.
    seed : int, numpy.random.SeedSequence or numpy.random.Generator, optional
        Each call of `run` begins with it again; a generator goes on. The same seed gives the same shots, whatever the
        number of threads.
    threads : int, optional
        As for `velacamplix.run`, like all others.
    precision : {"double", "single"}
    fusion : bool
    noise : velacamplix.NoiseModel or qiskit_aer.noise.NoiseModel, optional
        What happens beside the gates.
    method : {"automatic", "statevector", "density_matrix"}
        As for `VelacamplixBackend`.

    Raises
    ------
    TypeError, ValueError
        If an argument is of another kind, or not in its range.

    Examples
    --------
    >>> from qiskit import QuantumCircuit
    >>> from velacamplix.qiskit import SamplerV2
    >>> circuit = QuantumCircuit(2)
    >>> _ = circuit.x(0)
    >>> circuit.measure_all()
    >>> SamplerV2(seed=1).run([circuit], shots=10).result()[0].data.meas.get_counts()
    {'01': 10}
    """

    def __init__(
        self,
        *,
        default_shots: int = 1024,
        seed: Any = None,
        threads: int | None = None,
        precision: Precision = "double",
        fusion: bool = False,
        noise: Any = None,
        method: str = "automatic",
    ) -> None:
        self._default_shots = checks.integer(default_shots, "default_shots", minimum=1)
        self._how = _How(seed, threads, precision, fusion, noise, method)

    @classmethod
    def from_backend(cls, backend: VelacamplixBackend, **options: Any) -> Self:
        """Return a sampler with the options of a backend, its shots, seed, noise and others; those that are given go before.

        Raises
        ------
        TypeError, ValueError
            If this is no `VelacamplixBackend`, or as for `SamplerV2`.
        """
        return cls(**{"default_shots": _backend_options(backend)["shots"], **_shared(backend), **options})

    @property
    def default_shots(self) -> int:
        """Shots of pubs that do not say how many."""
        return self._default_shots

    def run(self, pubs: Iterable[Any], *, shots: int | None = None) -> Any:
        """Return a job whose result has the shots of each pub.

        Parameters
        ----------
        pubs : iterable of circuit, (circuit,), (circuit, values) or (circuit, values, shots)
            As for every sampler of Qiskit's.
        shots : int, optional
            Of pubs that do not say how many; `default_shots` by default.

        Returns
        -------
        qiskit.primitives.PrimitiveJob
            Its ``result()[i].data`` has a ``BitArray`` for each classical register.

        Raises
        ------
        Exception
            What Qiskit raises for pubs that are none. From ``result()``: `NotConverted`, and what `velacamplix.run` raises.
        """
        coerced = [SamplerPub.coerce(pub, self._default_shots if shots is None else shots) for pub in pubs]
        if any([not pub.circuit.cregs for pub in coerced]):
            warnings.warn("a circuit has no classical register, so its result is empty: measure into one", stacklevel=2)
        job = PrimitiveJob(self._results, coerced)
        job._submit()
        return job

    def _results(self, pubs: list[Any]) -> Any:
        rng = self._how.rng()
        return PrimitiveResult([self._result(pub, rng) for pub in pubs], metadata={"version": 2})

    def _result(self, pub: Any, rng: np.random.Generator) -> Any:
        circuit = self._how.circuit(pub)
        numbers = {bit: number for number, bit in enumerate(pub.circuit.clbits)}
        places = {register.name: [numbers[bit] for bit in register] for register in pub.circuit.cregs}
        size = int(np.prod(pub.shape, dtype=object)) * pub.shots * sum(map(len, places.values()))
        memory.require_bytes(size, f"shots={pub.shots} of the registers of a pub of shape {pub.shape}")
        rows = {name: np.zeros((*pub.shape, pub.shots, len(bits)), dtype=bool) for name, bits in places.items()}
        # Without a measurement shots would be of the qubits, and all bits are 0.
        if written_bits(circuit.instructions):
            columns, count = _columns(pub)
            results = self._how.runs(circuit, columns, count, shots=pub.shots, seed=rng)
            for index, result in zip(np.ndindex(*pub.shape), results):
                bits = result.bits
                for name, listed in places.items():
                    rows[name][index] = bits[:, listed]
        data = {name: BitArray.from_bool_array(array, order="little") for name, array in rows.items()}
        told = {"shots": pub.shots, "circuit_metadata": pub.circuit.metadata}
        return SamplerPubResult(DataBin(**data, shape=pub.shape), metadata=told)


class EstimatorV2(_Estimator):  # type: ignore[misc]
    """Qiskit's estimator on this simulator: exact expectation values.

    Parameters
    ----------
    default_precision : float
        Of pubs that do not say theirs. 0 gives exact values; more adds a normally distributed error of that size, as
        Qiskit's own estimator does, for trying out what an experiment would show.
    seed, threads, precision, fusion, noise, method
        As for `SamplerV2`. With noise the values are exact still, on a density matrix, so that `method` is none of drawn
        trajectories.

    Raises
    ------
    TypeError, ValueError
        If an argument is of another kind, or not in its range.

    Examples
    --------
    >>> from qiskit import QuantumCircuit
    >>> from qiskit.circuit import Parameter
    >>> from qiskit.quantum_info import SparsePauliOp
    >>> from velacamplix.qiskit import EstimatorV2
    >>> circuit = QuantumCircuit(2)
    >>> _ = circuit.ry(Parameter("a"), 0)
    >>> job = EstimatorV2().run([(circuit, SparsePauliOp("IZ"), [[0.0], [1.0]])])
    >>> job.result()[0].data.evs.round(6).tolist()                         # cos(a)
    [1.0, 0.540302]
    """

    def __init__(
        self,
        *,
        default_precision: float = 0.0,
        seed: Any = None,
        threads: int | None = None,
        precision: Precision = "double",
        fusion: bool = False,
        noise: Any = None,
        method: str = "automatic",
    ) -> None:
        self._default_precision = checks.threshold(default_precision, "default_precision")
        self._how = _How(seed, threads, precision, fusion, noise, method)
        if self._how.method == "trajectories":
            raise ValueError("method must be 'automatic' or 'density_matrix' with noise, whose values are exact, got 'statevector'")

    @classmethod
    def from_backend(cls, backend: VelacamplixBackend, **options: Any) -> Self:
        """Return an estimator with the options of a backend, but for its shots; those that are given go before.

        Raises
        ------
        TypeError, ValueError
            If this is no `VelacamplixBackend`, or as for `EstimatorV2`.
        """
        return cls(**{**_shared(backend), **options})

    @property
    def default_precision(self) -> float:
        """Precision of pubs that do not say theirs."""
        return self._default_precision

    def run(self, pubs: Iterable[Any], *, precision: float | None = None) -> Any:
        """Return a job whose result has the expectation values of each pub.

        Parameters
        ----------
        pubs : iterable of (circuit, observables), (circuit, observables, values) or with precision as fourth
            As for every estimator of Qiskit's; labels may have ``0 1 + - r l``, up to 16 in one.
        precision : float, optional
            Of pubs that do not say theirs; `default_precision` by default.

        Returns
        -------
        qiskit.primitives.PrimitiveJob
            Its ``result()[i].data`` has ``evs``, and ``stds``, which are the precision.

        Raises
        ------
        Exception
            What Qiskit raises for pubs that are none. From ``result()``: `NotConverted`, ValueError for an observable that
            is not Hermitian, and what `velacamplix.run` raises.
        """
        coerced = [EstimatorPub.coerce(pub, self._default_precision if precision is None else precision) for pub in pubs]
        for pub in coerced:
            checks.threshold(pub.precision, "precision")
        job = PrimitiveJob(self._results, coerced)
        job._submit()
        return job

    def _results(self, pubs: list[Any]) -> Any:
        rng = self._how.rng()
        return PrimitiveResult([self._result(pub, rng) for pub in pubs], metadata={"version": 2})

    def _result(self, pub: Any, rng: np.random.Generator) -> Any:
        circuit = self._how.circuit(pub)
        columns, count = _columns(pub)
        numbered = np.arange(count).reshape(pub.parameter_values.shape)
        which: Any
        asked: Any
        which, asked = np.broadcast_arrays(numbered, pub.observables)
        evs = np.zeros(which.shape)
        # All observables of one set of values in one run; each is made once.
        made: dict[Any, Observable] = {}
        wanted: list[dict[Any, list[Any]]] = [{} for _ in range(count)]
        for index in np.ndindex(*which.shape):
            key = tuple(asked[index].items())
            if key not in made:
                made[key] = observable(asked[index])
            wanted[int(which[index])].setdefault(key, []).append(index)
        # Sets of which the same is asked go together.
        alike: dict[Any, list[int]] = {}
        for number, places in enumerate(wanted):
            if places:
                alike.setdefault(tuple(places), []).append(number)
        for keys, numbers in alike.items():
            some = {name: column[numbers] for name, column in columns.items()}
            results = self._how.runs(circuit, some, len(numbers), observables=[made[key] for key in keys])
            for number, result in zip(numbers, results):
                for value, indices in zip(result.expectation_values, wanted[number].values()):
                    if np.iscomplexobj(value) and value.imag != 0:
                        raise ValueError("an observable must be Hermitian, with real coefficients")
                    for index in indices:
                        evs[index] = value.real
        if pub.precision:
            evs = np.asarray(rng.normal(evs, pub.precision))  # of one value NumPy makes a number
        data = DataBin(evs=evs, stds=np.full(evs.shape, float(pub.precision)), shape=evs.shape)
        return PubResult(data, metadata={"target_precision": pub.precision, "circuit_metadata": pub.circuit.metadata})


def _columns(pub: Any) -> tuple[dict[str, np.ndarray], int]:
    """Return the values of each parameter of a pub, one for each set, and the number of sets."""
    parameters = pub.circuit.parameters
    count = int(np.prod(pub.parameter_values.shape, dtype=np.int64))
    values = pub.parameter_values.as_array(parameters).reshape(count, len(parameters))
    return {parameter.name: values[:, place] for place, parameter in enumerate(parameters)}, count


def _backend_options(backend: Any) -> Any:
    if not isinstance(backend, VelacamplixBackend):
        raise TypeError(f"backend must be a VelacamplixBackend, got {checks.show(backend)}")
    return backend.options


def _shared(backend: Any) -> dict[str, Any]:
    """Return the options that primitives share with a backend, under their names here."""
    told = _backend_options(backend)
    names = {"seed": "seed_simulator", "noise": "noise_model", "precision": "precision", "fusion": "fusion", "method": "method"}
    threads = options.checked(dict(told)).threads
    return {"threads": threads, **{mine: told[theirs] for mine, theirs in names.items()}}


def observable(terms: Mapping[str, Any]) -> Observable:
    """Return the sum of Qiskit's labels, whose last letter is qubit 0, with their coefficients."""
    listed: list[tuple[Any, str, tuple[int, ...]]] = []
    for label, weight in terms.items():
        letters = [(qubit, _LETTERS[letter]) for qubit, letter in enumerate(reversed(label)) if letter != "I"]
        n = sum([len(parts) > 1 for _, parts in letters])
        if n > _MOST_PROJECTORS:
            raise ValueError(f"a label must have at most {_MOST_PROJECTORS} of 0 1 + - r l, got {n} in {label}")
        for chosen in itertools.product(*[parts for _, parts in letters]):
            coefficient = weight
            for factor, _ in chosen:
                coefficient = coefficient * factor
            there = [(letter, qubit) for (qubit, _), (_, letter) in zip(letters, chosen) if letter]
            listed.append((coefficient, "".join([letter for letter, _ in there]), tuple([qubit for _, qubit in there])))
    return Observable(listed)
