"""What a noise model is made of."""

from __future__ import annotations

from typing import NamedTuple

from ..channels.channel import Channel

#: Qubits of gates; None stands for all.
Places = tuple[tuple[int, ...], ...] | None

#: By name of a gate, and its qubits where they matter: how long it lasts.
Durations = dict[tuple[str, tuple[int, ...] | None], float]


class Rule(NamedTuple):
    """A channel before or after gates.

    `is_optional` if it need not find any; `replaces` if earlier rules of the same place give way to it where it finds one.
    """

    place: str
    gates: tuple[str, ...]
    channel: Channel
    qubits: Places
    is_optional: bool = False
    replaces: bool = False

    def call(self) -> str:
        """Return the call that makes it."""
        gates = repr(self.gates[0]) if len(self.gates) == 1 else repr(list(self.gates))
        qubits = "" if self.qubits is None else f", qubits={list(self.qubits)}"
        replace = ", replace=True" if self.replaces else ""
        return f"{self.place}({gates}, {self.channel!r}{qubits}{replace})"


class Idle(NamedTuple):
    """How qubits relax, all of them if `qubits` is None."""

    t1: float
    t2: float
    excited: float
    qubits: tuple[int, ...] | None

    def words(self) -> str:
        """Return the arguments of the call that makes it."""
        excited = f", excited={self.excited!r}" if self.excited else ""
        return f"t1={self.t1!r}, t2={self.t2!r}{excited}" + _of(self.qubits)


class Misread(NamedTuple):
    """How outcomes of qubits are misread, of all of them if `qubits` is None."""

    p1_given_0: float
    p0_given_1: float
    qubits: tuple[int, ...] | None

    def words(self) -> str:
        """Return the arguments of the call that makes it."""
        return f"{self.p1_given_0!r}, {self.p0_given_1!r}" + _of(self.qubits)


def _of(qubits: tuple[int, ...] | None) -> str:
    return "" if qubits is None else f", qubits={list(qubits)}"
