"""This simulator as one of Qiskit's backends."""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from functools import partial
from typing import Any

import numpy as np
from qiskit.circuit import ParameterVector as QiskitVector
from qiskit.circuit import QuantumCircuit
from qiskit.providers import BackendV2, Options

from ..basics import checks
from ..circuit.circuit import Circuit
from ..core import extension
from ..running.method import has_noise
from ..running.sets import bound, sets_of_values
from .experiments import Experiment, carried_out, header, is_quick
from .job import VelacamplixJob
from .options import DEFAULTS, How, checked
from .noise import is_model
from .reading import with_noise
from .saves import Saves
from .target import target

_Backend: Any = BackendV2


class VelacamplixBackend(_Backend):  # type: ignore[misc]
    """This simulator as a backend of Qiskit's, for ``transpile``, ``run`` and whatever takes a backend.

    Its target has no number of qubits and no coupling, and leaves whole all that runs here as it is: standard gates, gates by
    matrix, controlled X and phase of any size, Pauli evolutions, initialisation, decisions, loops, boxes.

    Parameters
    ----------
    shots : int
        1024 by default.
    seed_simulator : int, numpy.random.SeedSequence or numpy.random.Generator, optional
        Integers of any size. The same seed gives the same shots, whatever the number of threads. One circuit has it as its
        own; of several the i-th has word i of ``SeedSequence(seed).generate_state(number of circuits)``.
    memory : bool
        Whether results have every single shot.
    method : {"automatic", "statevector", "density_matrix"}
        Without noise the first two are pure states. With noise "statevector" follows drawn trajectories, "density_matrix" is
        exact, and "automatic" takes what is predicted to be faster.
    precision : {"double", "single"}
    device : {"CPU"}
    max_parallel_threads, threads : int, optional
        Two names for one option: how many threads at most; 0 of `max_parallel_threads` stands for all.
    noise_model : velacamplix.NoiseModel or qiskit_aer.noise.NoiseModel, optional
        With one of Aer's the target has its ``basis_gates`` alone, as that of Aer's simulator: noise is told for them.
    fusion : bool
        As for `velacamplix.run`.

    Raises
    ------
    AttributeError
        If there is no such option, as from all of Qiskit's backends.
    TypeError, ValueError
        If an option's value is of another kind, or not offered. So it is with `run`.

    Examples
    --------
    >>> from qiskit import QuantumCircuit, transpile
    >>> from velacamplix.qiskit import VelacamplixBackend
    >>> backend = VelacamplixBackend(seed_simulator=1)
    >>> bell = QuantumCircuit(2)
    >>> _ = bell.h(0), bell.cx(0, 1)
    >>> bell.measure_all()
    >>> sorted(backend.run(transpile(bell, backend), shots=100).result().get_counts())
    ['00', '11']
    """

    def __init__(self, **options: Any) -> None:
        super().__init__(name="velacamplix", description="exact state vectors on CPUs", backend_version=extension.version())
        checked({**DEFAULTS, **options})
        self._options.update_options(**options)
        self._target: Any = None

    @property
    def target(self) -> Any:
        """The ``qiskit.transpiler.Target``: of any number of qubits, with all that runs here as it is."""
        noise = self._options.noise_model
        if self._target is None or self._target[0] is not noise:
            self._target = noise, target(set(noise.basis_gates) if is_model(noise) else None)
        return self._target[1]

    @property
    def max_circuits(self) -> None:
        """None: as many circuits in a job as there may be."""
        return None

    @classmethod
    def _default_options(cls) -> Any:
        return Options(**DEFAULTS)

    def set_options(self, **fields: Any) -> None:
        """Set options for all later runs.

        Raises
        ------
        AttributeError, TypeError, ValueError
            As for `VelacamplixBackend`; then no option has changed.
        """
        checked({**self._options, **fields})
        self._options.update_options(**fields)

    def run(self, run_input: Any, parameter_binds: Any = None, **options: Any) -> VelacamplixJob:
        """Run circuits in a thread, and return the job at once; small ones, of some milliseconds at most, are done by then.

        Parameters
        ----------
        run_input : qiskit.QuantumCircuit or sequence of these
            What they are now: later changes do not matter. Several share the threads, where all their shots go one way.
        parameter_binds : list of dict, optional
            For each circuit a dictionary from its parameters to lists of numbers, all as long. The circuit is run with the
            first number of each, with the second, and so on; results stand in this order, circuit after circuit.
        **options
            For this run alone; see `VelacamplixBackend`.

        Returns
        -------
        VelacamplixJob
            Its result has ``counts`` of circuits that measure, ``memory``, and in ``data()`` what instructions of Aer's names
            save, by their labels: means over the shots, with noise and of density matrices exact ones. A circuit that cannot
            be run does not keep the others from it: its part of the result tells why.

        Raises
        ------
        TypeError
            If `run_input` has something else than circuits.
        AttributeError, TypeError, ValueError
            As for `VelacamplixBackend`; and ValueError if `parameter_binds` do not fit.

        Examples
        --------
        >>> from qiskit import QuantumCircuit
        >>> from qiskit.circuit import Parameter
        >>> from velacamplix.qiskit import VelacamplixBackend
        >>> angle, circuit = Parameter("angle"), QuantumCircuit(1)
        >>> _ = circuit.rx(angle, 0)
        >>> circuit.measure_all()
        >>> job = VelacamplixBackend().run(circuit, parameter_binds=[{angle: [0.0, 3.141592653589793]}], shots=10)
        >>> job.result().get_counts()
        [{'0': 10}, {'1': 10}]
        """
        circuits = [run_input] if isinstance(run_input, QuantumCircuit) else _listed(run_input)
        how = checked({**self._options, **options})
        binds = _binds(parameter_binds, len(circuits))
        experiments = [one for circuit, sets in zip(circuits, binds) for one in _experiments(circuit, sets, how)]
        job = VelacamplixJob(self, partial(_work, experiments, how, self.name, self.backend_version))
        job.submit(is_quick(experiments, how))
        return job


def _work(experiments: Sequence[Experiment], how: How, name: str, version: str, job_id: str, hear: Any) -> Any:
    return carried_out(experiments, how, name, version, job_id, hear)


def _listed(given: Any) -> list[Any]:
    circuits = list(given) if isinstance(given, Iterable) else [given]
    for circuit in circuits:
        if not isinstance(circuit, QuantumCircuit):
            raise TypeError(f"run_input must be a qiskit.QuantumCircuit or a list of these, got {checks.show(circuit)}")
    return circuits


def _binds(given: Any, count: int) -> Sequence[Any]:
    if given is None:
        return [None] * count
    if not checks.is_list(given) or not all([isinstance(one, Mapping) for one in given]):
        raise TypeError(
            "parameter_binds must be a list with a dictionary of parameters and numbers for each circuit, got "
            f"{checks.show(given)}"
        )
    if len(given) != count:
        raise ValueError(f"parameter_binds must have a dictionary for each of {count} circuits, got {len(given)}")
    return list(given)


def _experiments(circuit: Any, sets: Any, how: How) -> list[Experiment]:
    """Return a circuit with each of its sets of numbers."""
    told = header(circuit)
    values = None if not sets else _values(circuit, sets)
    try:
        saves = Saves(how.shots == 1)
        made = with_noise(circuit, how.noise, saves)
        found: Sequence[Circuit] = [made]
        if values is not None:
            there = {name: column for name, column in values.items() if name in made.parameters}
            n_sets = len(next(iter(values.values())))
            found = bound(made, sets_of_values(made.parameters, there)) if there else [made] * n_sets
    except Exception as error:
        return [Experiment(error, told)]
    asked = saves.of(made)
    is_mixed = bool(asked) and (how.run_method != "auto" or has_noise(made))
    return [Experiment(one, told, asked, is_mixed) for one in found]


def _values(circuit: Any, sets: Mapping[Any, Any]) -> dict[str, np.ndarray]:
    """Return an array of numbers for each parameter of a circuit, by its name."""
    columns: dict[str, Any] = {}
    try:
        for key, given in sets.items():
            if isinstance(key, QiskitVector):
                rows = np.atleast_2d(np.asarray(given, dtype=np.float64))
                if rows.shape[-1] != len(key):
                    raise ValueError(f"{len(key)} numbers make a set of {key.name!r}, got {rows.shape[-1]}")
                columns.update({element.name: rows[:, place] for place, element in enumerate(key)})
            else:
                columns[getattr(key, "name", key)] = np.atleast_1d(np.asarray(given, dtype=np.float64))
        return sets_of_values([parameter.name for parameter in circuit.parameters], columns)
    except (TypeError, ValueError) as error:
        raise type(error)(f"parameter_binds: {error}") from None
