"""Cirq's simulator interfaces, computed here."""

from __future__ import annotations

from collections.abc import Iterator, Mapping, Sequence
from typing import Any

import cirq
import numpy as np

from ..basics import checks
from ..circuit.circuit import Circuit
from ..instructions.instruction import Instruction
from ..machine import limits
from ..observables.observable import Observable
from ..programs.compile import require_fusion
from ..running.run import run
from ..states.statevector import StateVector
from .errors import NotConverted
from .reading import Conversion, Measurement, is_noisy, moments_with_noise, ordered_qubits, require_qubits
from .states import VelacamplixSimulationState, word

_Intermediate: Any = cirq.SimulatesIntermediateStateVector

# Of a sweep, sets of values that run together have at most so many words of outcomes.
_MOST_WORDS_TOGETHER = 2**22


class VelacamplixSimulator(_Intermediate, cirq.SimulatesExpectationValues):  # type: ignore[misc, name-defined]
    """Cirq's simulator on this package: what ``cirq.Simulator`` does for qubits, by its methods and with its results.

    ``run``, ``run_sweep``, ``run_batch``, ``sample`` and ``sample_expectation_values``; ``simulate`` and
    ``simulate_sweep``; ``compute_amplitudes``; ``simulate_expectation_values``; ``simulate_moment_steps``; each as in Cirq,
    with symbols and sweeps, any order of qubits, measurement keys, also repeated, classical controls and noise.

    Parameters
    ----------
    seed : int, numpy.random.RandomState, numpy.random.Generator or numpy.random.SeedSequence, optional
        Integers of any size. Calls go on with the numbers where the last one stopped, as in Cirq. The same seed gives the
        same shots, whatever the number of threads.
    noise : cirq.NoiseModel, or what Cirq makes one of, optional
        What happens beside the gates. Shots are those of trajectories, which share what they have in common.
    dtype : {numpy.complex128, numpy.complex64}
        Of the amplitudes.
    threads : int, optional
        As for `StateVector`.
    fusion : bool
        Whether neighbouring gates may be multiplied together: faster, and equal up to rounding.

    Raises
    ------
    TypeError, ValueError
        If an argument is of another kind, or not in its range.

    Examples
    --------
    >>> import cirq
    >>> from velacamplix.cirq import VelacamplixSimulator
    >>> a, b = cirq.LineQubit.range(2)
    >>> circuit = cirq.Circuit(cirq.H(a), cirq.CNOT(a, b), cirq.measure(a, b, key="m"))
    >>> counts = VelacamplixSimulator(seed=1).run(circuit, repetitions=1000).histogram(key="m")
    >>> sorted(counts), sum(counts.values())
    ([0, 3], 1000)
    >>> print(VelacamplixSimulator().simulate(circuit[:-1]).dirac_notation())
    0.71|00⟩ + 0.71|11⟩
    """

    def __init__(
        self,
        *,
        seed: Any = None,
        noise: Any = None,
        dtype: Any = np.complex128,
        threads: int | None = None,
        fusion: bool = False,
    ) -> None:
        kind = np.dtype(dtype)
        if kind not in (np.complex64, np.complex128):
            if kind.kind != "c":
                raise ValueError(f"dtype must be a complex type but was {dtype}")
            raise ValueError(f"dtype must be numpy.complex64 or numpy.complex128, got {dtype}")
        super().__init__(dtype=kind.type, noise=noise, seed=_random_state(seed))
        self._threads = limits.thread_count(threads)
        self._fusion = require_fusion(fusion)
        self._precision: Any = "single" if kind == np.complex64 else "double"

    # --- Samples ---

    def run_sweep_iter(self, program: Any, params: Any, repetitions: int = 1) -> Iterator[Any]:
        """Iterate over the results of each set of values; ``run`` and ``run_sweep`` come here. As in Cirq."""
        numbers = _reversed(ordered_qubits(program, cirq.QubitOrder.DEFAULT))
        if not program.has_measurements():
            raise ValueError("Circuit has no measurements to sample.")
        shots = checks.integer(repetitions, "repetitions", minimum=0)
        resolvers = list(cirq.to_resolvers(params))
        shared = self._shared(program, numbers)
        if shared is None:
            for resolver in resolvers:
                yield self._result(resolver, _Sampling(self, _resolved(program, resolver), numbers), shots)
            return
        sampling = _Sampling(self, program, numbers)
        if not sampling.circuit.parameters or sampling.walks or not shots or sampling.is_noisy:
            for resolver in resolvers:
                one = sampling
                if sampling.circuit.parameters:
                    _resolved(program, resolver)
                    one = sampling.bound(_values(program, sampling.circuit, resolver))
                yield self._result(resolver, one, shots)
            return
        together = max(1, _MOST_WORDS_TOGETHER // (shots * (1 + sampling.circuit.n_clbits // 64)))
        for first in range(0, len(resolvers), together):
            some = resolvers[first : first + together]
            rows = [_values(program, sampling.circuit, resolver) for resolver in some]
            values = {name: [row[name] for row in rows] for name in sampling.circuit.parameters}
            batch = run(sampling.circuit, values=values, shots=shots, seed=word(self._prng), **self._how)
            for resolver, result in zip(some, batch):
                yield cirq.ResultDict(params=resolver, records=sampling.records(result.bits))

    def _run(self, circuit: Any, param_resolver: Any, repetitions: int) -> dict[str, Any]:
        (result,) = self.run_sweep_iter(circuit, param_resolver, repetitions)
        return dict(result.records)

    def _result(self, resolver: Any, sampling: _Sampling, shots: int) -> Any:
        return cirq.ResultDict(params=resolver, records=sampling.drawn(shots))

    @property
    def _how(self) -> dict[str, Any]:
        return {"threads": self._threads, "precision": self._precision, "fusion": self._fusion}

    def _shared(self, program: Any, numbers: Mapping[Any, int]) -> Conversion | None:
        """Return the conversion that serves all sets of values, or None where each needs its own."""
        if not cirq.is_parameterized(program):
            return self._conversion(program, numbers)
        if is_noisy(self.noise):  # a model may ask what the gates are
            return None
        try:
            return self._conversion(program, numbers)
        except NotConverted:
            return None

    def _conversion(self, program: Any, numbers: Mapping[Any, int], is_exact: bool = False) -> Conversion:
        conversion = Conversion(numbers, is_exact)
        conversion.read_moments(moments_with_noise(program, self.noise))
        return conversion

    # --- States ---

    def simulate_sweep_iter(
        self, program: Any, params: Any, qubit_order: Any = cirq.QubitOrder.DEFAULT, initial_state: Any = None
    ) -> Iterator[Any]:
        """Iterate over the final states of each set of values; ``simulate`` comes here. As in Cirq.

        What is left to chance, measurements and noise, is drawn once for each.
        """
        qubits = ordered_qubits(program, qubit_order)
        numbers = _reversed(qubits)
        shared = self._shared(program, numbers)
        parts = None if shared is None else self._parts(shared, len(qubits))
        for resolver in cirq.to_resolvers(params):
            state = self._create_simulation_state(initial_state, qubits)
            if parts is None or shared is None:
                own = self._conversion(_resolved(program, resolver), numbers)
                (head, tail), measurements = self._parts(own, len(qubits)), own.measurements
            else:
                (head, tail), measurements = parts, shared.measurements
                head, tail = (_bound(program, part, resolver) for part in (head, tail))
            state.statevector.run(head, fusion=self._fusion)
            state.walk(tail.instructions, measurements)
            records = {str(key): np.array(rows[-1], np.uint8) for key, rows in state.classical_data.records.items()}
            yield self._create_simulator_trial_result(resolver, records, state)

    def _parts(self, conversion: Conversion, n_qubits: int) -> tuple[Circuit, Circuit]:
        """Return the gates at the beginning, and what comes after them."""
        steps = conversion.phases() + conversion.steps
        n = _gates_in_front(steps)
        head, tail = [Circuit.from_instructions(part, n_qubits, conversion.n_clbits) for part in (steps[:n], steps[n:])]
        return head, tail

    def _create_simulation_state(self, initial_state: Any, qubits: Sequence[Any]) -> Any:
        if isinstance(initial_state, cirq.SimulationStateBase):
            if not isinstance(initial_state, VelacamplixSimulationState):
                initial_state = initial_state.create_merged_state().target_tensor
            elif tuple(initial_state.qubits) == tuple(qubits):
                return initial_state.copy()
            else:
                raise ValueError(f"initial_state must be of the qubits {tuple(qubits)}, got those of {initial_state!r}")
        return self._create_partial_simulation_state(initial_state, qubits, cirq.ClassicalDataDictionaryStore())

    def _create_partial_simulation_state(self, initial_state: Any, qubits: Sequence[Any], classical_data: Any) -> Any:
        require_qubits(qubits)
        state = StateVector(len(qubits), self._precision, self._threads)
        begin = _initial(initial_state, qubits)
        if isinstance(begin, int):
            if begin:
                state.set_basis_state(begin, order="little")
        else:
            state.set_state(begin, order="little")
        return VelacamplixSimulationState(state, qubits, self._prng, classical_data, self._fusion)

    # --- Steps ---

    def _create_step_result(self, sim_state: Any) -> Any:
        return cirq.SparseSimulatorStep(sim_state=sim_state, dtype=self._dtype)

    def _core_iterator(
        self, circuit: Any, sim_state: Any, all_measurements_are_terminal: bool = False
    ) -> Iterator[Any]:
        conversion = Conversion(sim_state.numbers(), is_exact=False)
        moments: list[list[Instruction]] = []
        for place, moment in enumerate(moments_with_noise(circuit, self.noise)):
            conversion.read_moment(moment, place)
            moments.append(conversion.phases() + conversion.steps)
            conversion.steps = []
        for steps in moments or [[]]:
            sim_state.walk(steps, conversion.measurements)
            yield self._create_step_result(sim_state)

    # --- Expectation values ---

    def simulate_expectation_values_sweep_iter(
        self,
        program: Any,
        observables: Any,
        params: Any,
        qubit_order: Any = cirq.QubitOrder.DEFAULT,
        initial_state: Any = None,
        permit_terminal_measurements: bool = False,
    ) -> Iterator[list[Any]]:
        """Iterate over the expectation values of each set of values. As in Cirq, and exact.

        Where something is left to chance, measurements and noise, they are those of the density matrix, which is the mean
        over all that may happen.
        """
        qubits = ordered_qubits(program, qubit_order)
        if not permit_terminal_measurements and program.are_any_measurements_terminal():
            raise ValueError(
                "Provided circuit has terminal measurements, which may skew expectation values. If this is intentional, set "
                "permit_terminal_measurements=True."
            )
        numbers = _reversed(qubits)
        asked = [_observable(one, numbers) for one in (observables if isinstance(observables, list) else [observables])]
        resolvers = list(cirq.to_resolvers(params))
        begin = _initial(initial_state, qubits)
        more: dict[str, Any] = {"observables": asked, **self._how}
        if not (isinstance(begin, int) and not begin):
            more.update(initial=begin, initial_order="little")
        shared = self._shared(program, numbers)
        circuit = None if shared is None else _whole(shared, len(qubits))
        if circuit is not None and circuit.parameters and all([step.is_gate for step in circuit]):
            rows = [_values(program, circuit, resolver) for resolver in resolvers]
            if rows:
                values = {name: [row[name] for row in rows] for name in circuit.parameters}
                yield from [list(map(complex, row)) for row in run(circuit, values=values, **more).expectation_values]
            return
        for resolver in resolvers:
            if circuit is None:
                one = _whole(self._conversion(_resolved(program, resolver), numbers), len(qubits))
            else:
                one = _bound(program, circuit, resolver)
            result = run(one, method="auto" if _is_one_state(one) else "exact", **more)
            yield [complex(value) for value in np.atleast_1d(result.expectation_values)]

    def simulate_moment_expectation_values(
        self,
        program: Any,
        indexed_observables: Any,
        param_resolver: Any = None,
        qubit_order: Any = cirq.QubitOrder.DEFAULT,
        initial_state: Any = None,
    ) -> list[list[Any]]:
        """Return expectation values after moments of a circuit, all of one walk through it.

        Parameters
        ----------
        program : cirq.Circuit or cirq.FrozenCircuit
        indexed_observables : dict, or observables
            From numbers of moments to an observable or a list of them; without a dict, those after every moment. Observables
            are what ``simulate_expectation_values`` takes.
        param_resolver, qubit_order, initial_state
            As for ``simulate``.

        Returns
        -------
        list of list of complex
            For each moment that is asked for, in their order, the values of its observables. What is left to chance is drawn
            once.

        Raises
        ------
        TypeError, ValueError
            If a moment is not there, an observable is none or of other qubits, and what ``simulate`` raises.

        Examples
        --------
        >>> import cirq
        >>> from velacamplix.cirq import VelacamplixSimulator
        >>> q = cirq.LineQubit(0)
        >>> circuit = cirq.Circuit(cirq.X(q), cirq.H(q))
        >>> VelacamplixSimulator().simulate_moment_expectation_values(circuit, {0: cirq.Z(q)})
        [[(-1+0j)]]
        """
        qubits = ordered_qubits(program, qubit_order)
        asked = indexed_observables
        if not isinstance(asked, Mapping):
            asked = dict.fromkeys(range(len(program)), asked)
        for place in asked:
            checks.index(place, len(program), "a moment")
        numbers = _reversed(qubits)
        wanted = {
            place: [_observable(one, numbers) for one in (given if isinstance(given, list) else [given])]
            for place, given in asked.items()
        }
        if is_noisy(self.noise) and wanted:
            raise ValueError("simulate_moment_expectation_values takes no noise, which puts moments between others")
        found: dict[int, list[Any]] = {}
        steps = self.simulate_moment_steps(program, param_resolver, qubit_order, initial_state)
        for place, step in enumerate(steps):
            if place in wanted:
                state = step._simulator_state().statevector
                found[place] = [complex(state.expectation(one)) for one in wanted[place]]
        return [found[place] for place in sorted(found)]


class _Sampling:
    """One circuit, ready to be sampled."""

    def __init__(self, simulator: Any, program: Any, numbers: Mapping[Any, int]) -> None:
        self._simulator = simulator
        conversion = simulator._conversion(program, numbers)
        asked = [record for record in conversion.measurements.values() if record.key in conversion.asked_keys]
        # Bits that conditions read must be those that are recorded.
        changed = [record for record in asked if not record.is_plain]
        self.walks = conversion.repeats or any([len(places) > 1 for record in changed for places in record.confusion])
        self._is_exact = bool(changed) and not self.walks
        if self._is_exact:
            conversion = simulator._conversion(program, numbers, is_exact=True)
        self._records: list[Measurement] = list(conversion.measurements.values())
        self._measurements, self._qubits = conversion.measurements, list(numbers)
        # Nobody sees the global phase of shots.
        self.circuit: Circuit = Circuit.from_instructions(conversion.steps, len(numbers), conversion.n_clbits)
        self.is_noisy = any([step.is_noise for step in conversion.steps])

    def bound(self, values: Mapping[str, float]) -> _Sampling:
        """Return the same with numbers for the parameters."""
        made = _Sampling.__new__(_Sampling)
        vars(made).update(vars(self))
        made.circuit = self.circuit.bind(values)
        return made

    def drawn(self, shots: int) -> dict[str, Any]:
        """Return the records of so many shots."""
        if not shots:
            return self.records(np.zeros((0, self.circuit.n_clbits), np.uint8))
        simulator = self._simulator
        if self.walks:
            return self._walked(shots)
        result = run(self.circuit, shots=shots, seed=word(simulator._prng), **simulator._how)
        return self.records(result.bits)

    def records(self, bits: Any) -> dict[str, Any]:
        """Return, by key, an array of shape (shots, times that the key is measured, qubits)."""
        found: dict[str, list[Any]] = {}
        for record in self._records:
            own = bits[:, record.clbits[0] : record.clbits[-1] + 1]
            if not self._is_exact and not record.is_plain:
                own = _recorded(own, record, self._simulator._prng)
            found.setdefault(record.key, []).append(own)
        # With a sign, as Cirq's, so that people may reckon with them.
        return {key: np.stack(listed, axis=1).view(np.int8) for key, listed in found.items()}

    def _walked(self, shots: int) -> dict[str, Any]:
        """Return the same by one walk through the circuit for each shot, where records are as many as rounds of a loop."""
        simulator = self._simulator
        found: dict[str, list[Any]] = {}
        steps = self.circuit.instructions
        n = _gates_in_front(steps)
        begin = simulator._create_simulation_state(0, self._qubits)
        begin.apply(steps[:n])
        for _ in range(shots):
            state = begin.copy()
            state.walk(steps[n:], self._measurements)
            for key, rows in state.classical_data.records.items():
                found.setdefault(str(key), []).append(rows)
        records = {}
        for key, listed in found.items():
            most = max(map(len, listed))
            records[key] = np.zeros((shots, most, len(listed[0][0])), np.int8)
            for shot, rows in enumerate(listed):
                records[key][shot, : len(rows)] = rows
        return records


def _recorded(outcomes: Any, record: Measurement, prng: Any) -> Any:
    """Return what is recorded of outcomes: misread, then inverted."""
    made = outcomes.copy()
    for places, matrix in record.confusion.items():
        weights = 1 << np.arange(len(places))[::-1]
        rows = outcomes[:, list(places)].astype(np.int64) @ weights
        ends = np.cumsum(np.asarray(matrix, float), axis=1)
        chances = prng.random_sample(len(rows)) * ends[rows, -1]
        values = (chances[:, None] >= ends[rows]).sum(axis=1)
        made[:, list(places)] = (values[:, None] // weights) & 1
    return made ^ np.array(record.inverted, np.uint8)


def _reversed(qubits: Sequence[Any]) -> dict[Any, int]:
    """Return numbers that give Cirq's arrays of amplitudes: its first qubit is the highest bit of an index."""
    return {qubit: len(qubits) - 1 - place for place, qubit in enumerate(qubits)}


def _whole(conversion: Conversion, n_qubits: int) -> Circuit:
    return Circuit.from_instructions(conversion.steps, n_qubits, conversion.n_clbits)


def _gates_in_front(steps: Sequence[Instruction]) -> int:
    return next((i for i, step in enumerate(steps) if not step.is_gate or step.condition is not None), len(steps))


def _is_one_state(circuit: Circuit) -> bool:
    """Whether nothing is left to chance before measurements at the end."""
    measured = set[int]()
    for step in circuit:
        if step.condition is not None or not measured.isdisjoint(step.qubits + step.controls):
            return False
        if step.name == "measure" and not step.is_noise:
            measured.update(step.qubits)
        elif not step.is_gate:
            return False
    return True


def _resolved(program: Any, resolver: Any) -> Any:
    """Return a circuit with numbers for all symbols."""
    found = cirq.resolve_parameters(program, resolver)
    if cirq.is_parameterized(found):
        unresolved = [operation for operation in found.all_operations() if cirq.is_parameterized(operation)]
        raise ValueError(f"Circuit contains ops whose symbols were not specified in parameter sweep. Ops: {unresolved}")
    return found


def _values(program: Any, circuit: Circuit, resolver: Any) -> dict[str, float]:
    values: dict[str, float] = {}
    for name in circuit.parameters:
        value = resolver.value_of(name)
        if not isinstance(value, (int, float, np.integer, np.floating)):
            _resolved(program, resolver)
        values[name] = checks.real(value, f"value of {checks.show(name)}")
    return values


def _bound(program: Any, circuit: Circuit, resolver: Any) -> Circuit:
    if not circuit.parameters:
        return circuit
    return circuit.bind(_values(program, circuit, resolver))


def _initial(initial_state: Any, qubits: Sequence[Any]) -> Any:
    """Return a basis state's number or amplitudes, the first qubit the highest bit of an index."""
    if initial_state is None:
        return 0
    if isinstance(initial_state, cirq.SimulationStateBase):
        initial_state = initial_state.create_merged_state().target_tensor
    if isinstance(initial_state, (int, np.integer)):
        return checks.integer(initial_state, "initial_state", 0, 2 ** len(qubits) - 1)
    if isinstance(initial_state, cirq.ProductState):
        initial_state = initial_state.state_vector(qubit_order=qubits)
    found = cirq.quantum_state(initial_state, qid_shape=(2,) * len(qubits)).state_vector()
    if found is None:
        raise ValueError("initial_state must be a state vector, got a density matrix")
    return found.reshape(-1)


def _observable(given: Any, numbers: Mapping[Any, int]) -> Observable:
    terms: list[tuple[Any, str, tuple[int, ...]]] = []
    for term in cirq.PauliSum.wrap(given):
        for qubit in term:
            if qubit not in numbers:
                raise ValueError(f"observables must be of the circuit's qubits, got {qubit}")
        coefficient = complex(term.coefficient)
        weight = coefficient.real if not coefficient.imag else coefficient
        terms.append((weight, "".join(map(str, term.values())), tuple([numbers[qubit] for qubit in term])))
    return Observable(terms or [(0.0, "", ())])


def _random_state(seed: Any) -> Any:
    """Return what Cirq draws random numbers from."""
    if seed is None or seed is np.random or isinstance(seed, np.random.RandomState):
        return cirq.value.parse_random_state(seed)
    source = checks.random_source(seed)
    return np.random.RandomState(source.bit_generator if isinstance(source, np.random.Generator) else np.random.MT19937(source))
