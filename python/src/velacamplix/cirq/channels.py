"""Noise, both ways."""

from __future__ import annotations

from typing import Any

import cirq
import numpy as np

from ..channels.channel import Channel
from .errors import NotConverted

#: A channel has as many at most.
MOST_QUBITS_OF_NOISE = 4

# By class: the channel of Cirq's own with its numbers.
_NAMED: dict[Any, Any] = {
    cirq.BitFlipChannel: lambda gate: Channel.bit_flip(gate.p),
    cirq.PhaseFlipChannel: lambda gate: Channel.phase_flip(gate.p),
    cirq.PhaseDampingChannel: lambda gate: Channel.phase_damping(gate.gamma),
    cirq.AmplitudeDampingChannel: lambda gate: Channel.amplitude_damping(gate.gamma),
    cirq.GeneralizedAmplitudeDampingChannel: lambda gate: Channel.generalized_amplitude_damping(gate.gamma, 1 - gate.p),
    cirq.DepolarizingChannel: lambda gate: Channel.depolarizing(error_probability=gate.p, qubits=gate.n_qubits),
    cirq.AsymmetricDepolarizingChannel: lambda gate: Channel.pauli(gate.error_probabilities),
}


def channel(value: Any, n_qubits: int) -> Channel:
    """Return the noise of one of Cirq's gates or operations, whose first qubit is the channel's qubit 0."""
    named = _NAMED.get(type(value))
    if named is not None:
        return named(value)  # type: ignore[no-any-return]
    if n_qubits > MOST_QUBITS_OF_NOISE:
        raise NotConverted(f"noise must be on at most {MOST_QUBITS_OF_NOISE} qubits, this is on {n_qubits}")
    mixture = cirq.mixture(value, None)
    if mixture is not None:
        shares, matrices = zip(*mixture)
        return Channel.from_unitaries([float(share) for share in shares], matrices, order="big")
    return Channel.from_kraus([np.asarray(matrix) for matrix in cirq.kraus(value)], order="big")


def cirq_channel(noise: Channel) -> Any:
    """Return the same noise as one of Cirq's gates."""
    if noise.is_mixture:
        assert noise.probabilities is not None and noise.unitaries is not None
        big = [Channel.coherent(matrix).kraus("big")[0] for matrix in noise.unitaries]
        return cirq.MixedUnitaryChannel(list(zip(noise.probabilities, big)))
    return cirq.KrausChannel(list(noise.kraus("big")))
