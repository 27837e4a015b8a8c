"""Channels of PennyLane's, both ways."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
import pennylane as qml

from ..channels.channel import Channel
from ..instructions.instruction import Instruction

_KNOWN: dict[type, Callable[..., Channel]] = {
    qml.BitFlip: Channel.bit_flip,
    qml.PhaseFlip: Channel.phase_flip,
    qml.DepolarizingChannel: lambda p: Channel.depolarizing(error_probability=p),
    qml.AmplitudeDamping: Channel.amplitude_damping,
    qml.PhaseDamping: Channel.phase_damping,
    qml.ResetError: Channel.reset,
}


def channel_steps(op: Any, qubits: tuple[int, ...]) -> list[Instruction]:
    """Return what a channel becomes."""
    make = _KNOWN.get(type(op))
    if make is not None:
        channel = make(*[float(value) for value in op.data])
    else:
        # Its operators have the first wire highest, and so has the first qubit of the list. GeneralizedAmplitudeDamping is
        # here, too: what its p is the share of has changed between versions.
        channel = Channel.from_kraus([np.asarray(matrix) for matrix in op.kraus_matrices()], order="big")
    return [Instruction("channel", qubits, detail=channel)]


def pennylane_channel(channel: Channel, wires: tuple[int, ...]) -> Any:
    """Return one of PennyLane's for one of the package's."""
    return qml.QubitChannel([np.array(matrix) for matrix in channel.kraus(order="big")], wires=wires)
