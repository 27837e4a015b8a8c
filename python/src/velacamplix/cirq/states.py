"""States that Cirq's interfaces can hold, step through and ask."""

from __future__ import annotations

import math
from collections.abc import Mapping, Sequence
from typing import Any

import cirq
import numpy as np

from ..channels.channel import Channel
from ..circuit.circuit import Circuit
from ..instructions.condition import AnyCondition
from ..instructions.flow import If, While
from ..instructions.instruction import Instruction
from ..states.statevector import StateVector
from .errors import NotConverted
from .reading import Conversion, Measurement

_Representation: Any = cirq.QuantumStateRepresentation
_State: Any = cirq.SimulationState


def word(prng: Any) -> int:
    """Draw a seed of 32 bits."""
    return int(prng.randint(0, 2**32, dtype=np.uint64))


class Amplitudes(_Representation):  # type: ignore[misc]
    """A state vector whose axis i is qubit n - 1 - i, so that its array is the one that Cirq would have."""

    def __init__(self, state: StateVector) -> None:
        self.state = state

    def places(self, axes: Sequence[int]) -> list[int]:
        """Return the qubits of axes."""
        return [self.state.n_qubits - 1 - axis for axis in axes]

    def copy(self, deep_copy_buffers: bool = True) -> Amplitudes:
        return Amplitudes(self.state.copy())

    def measure(self, axes: Sequence[int], seed: Any = None) -> list[int]:
        self.state.seed = word(cirq.value.parse_random_state(seed))
        outcome = self.state.measure(self.places(axes), collapse=True)
        return [outcome >> place & 1 for place in reversed(range(len(axes)))]

    def sample(self, axes: Sequence[int], repetitions: int = 1, seed: Any = None) -> Any:
        self.state.seed = word(cirq.value.parse_random_state(seed))
        shots = self.state.sample(repetitions, self.places(axes))
        places = np.arange(len(axes), dtype=np.uint64)[::-1]
        return (shots.astype(np.uint64)[:, None] >> places & np.uint64(1)).astype(np.uint8)


class VelacamplixSimulationState(_State):  # type: ignore[misc]
    """The state of a simulation in the middle of a circuit, on which ``cirq.act_on`` lets operations act.

    Made by `VelacamplixSimulator`, whose steps and results have it.
    """

    def __init__(self, state: StateVector, qubits: Sequence[Any], prng: Any, classical_data: Any, fusion: bool) -> None:
        super().__init__(state=Amplitudes(state), prng=prng, qubits=qubits, classical_data=classical_data)
        self._fusion = fusion
        self._bits: dict[int, int] = {}

    @property
    def target_tensor(self) -> Any:
        """The amplitudes, one axis of length 2 for each qubit: the memory of the state itself."""
        return self._state.state.array.reshape((2,) * len(self.qubits))

    @property
    def statevector(self) -> StateVector:
        """The state, whose qubit n - 1 - i is the i-th of `qubits`."""
        return self._state.state  # type: ignore[no-any-return]

    def numbers(self) -> dict[Any, int]:
        """Return which qubit of the state each of Cirq's is."""
        return {qubit: len(self.qubits) - 1 - place for place, qubit in enumerate(self.qubits)}

    def copy(self, deep_copy_buffers: bool = True) -> VelacamplixSimulationState:
        """Return an independent copy."""
        made: VelacamplixSimulationState = super().copy(deep_copy_buffers=deep_copy_buffers)
        made._bits = dict(self._bits)
        return made

    def _act_on_fallback_(self, action: Any, qubits: Sequence[Any], allow_decompose: bool = True) -> bool:
        operation = action if isinstance(action, cirq.Operation) else action.on(*qubits)
        numbers = self.numbers()
        for qubit in operation.qubits:
            if qubit not in numbers:
                raise TypeError(f"{operation} cannot act on a state that has no {qubit}")
        conversion = Conversion(numbers, is_exact=False)
        try:
            conversion.read_moment([operation])
        except NotConverted as error:
            raise TypeError(str(error)) from None
        self.walk(conversion.phases() + conversion.steps, conversion.measurements)
        return True

    def __repr__(self) -> str:
        return f"<VelacamplixSimulationState: {len(self.qubits)} qubits, {self._classical_data!r}>"

    # --- Instructions ---

    def walk(self, steps: Sequence[Instruction], measurements: Mapping[int, Measurement]) -> None:
        """Let instructions act; what is left to chance is drawn, and what is measured is recorded."""
        gates: list[Instruction] = []
        for step in steps:
            detail = step.detail
            if step.is_gate and step.condition is None:
                gates.append(step)
                continue
            if isinstance(detail, Channel) and detail.is_mixture and step.condition is None:
                # Which of its operators acts does not depend on the state, so the gates before it can wait.
                gates.append(self._event(detail, step.qubits))
                continue
            self.apply(gates)
            gates = []
            if step.condition is None or self._holds(step.condition):
                self._act(step._replace(condition=None), measurements)
        self.apply(gates)

    def apply(self, gates: Sequence[Instruction]) -> None:
        """Let gates act, all in one run."""
        if gates:
            state = self.statevector
            state.run(Circuit.from_instructions(gates, state.n_qubits), fusion=self._fusion)

    def _act(self, step: Instruction, measurements: Mapping[int, Measurement]) -> None:
        detail = step.detail
        if step.is_gate:
            self.apply([step])
        elif step.name == "measure":
            record = measurements[step.clbits[0]]
            self.measure(record.qubits, record.key, record.inverted, record.confusion)
            written = self._classical_data.records[cirq.MeasurementKey.parse_serialized(record.key)][-1]
            self._bits.update(zip(record.clbits, written))
        elif step.name == "reset":
            for qubit in step.qubits:
                (outcome,) = self._state.measure([len(self.qubits) - 1 - qubit], self.prng)
                if outcome:
                    self.statevector.x(qubit)
        elif isinstance(detail, Channel):
            self.apply([self._event(detail, step.qubits)])
        elif isinstance(detail, If):
            self.walk(detail.body if self._holds(detail.condition) else detail.otherwise, measurements)
        elif isinstance(detail, While):
            while self._holds(detail.condition):
                self.walk(detail.body, measurements)

    def _holds(self, asked: AnyCondition) -> bool:
        return asked.holds(sum([value << bit for bit, value in self._bits.items()]))

    def _event(self, noise: Channel, qubits: tuple[int, ...]) -> Instruction:
        """Draw which operator of a channel acts, and return it with the factor that leaves norm 1."""
        if noise.probabilities is not None and noise.unitaries is not None:
            shares, operators = np.array(noise.probabilities), noise.unitaries
            factors = np.ones(len(shares))
        else:
            operators = noise.kraus()
            rho = self.statevector.reduced(qubits)
            shares = np.array([max(0.0, np.trace(one @ rho @ one.conj().T).real) for one in operators])
            factors = 1 / np.sqrt(np.maximum(shares, np.finfo(float).tiny))
        at = int(np.searchsorted(np.cumsum(shares), self.prng.random_sample() * math.fsum(shares), side="right"))
        at = min(at, len(shares) - 1)
        entries = operators[at] * factors[at]
        # Its qubit 0 is the lowest bit of a row's number, and the first listed of a matrix is the highest.
        return Instruction("matrix", qubits[::-1], tuple(entries.ravel().tolist()))
