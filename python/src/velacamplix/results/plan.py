"""What a run tells about how it was carried out."""

from __future__ import annotations

from typing import NamedTuple

from ..basics.words import counted
from ..views import html


class Timings(NamedTuple):
    """Seconds that the parts of a run took.

    Attributes
    ----------
    compile : float
        From the circuit to planned programs.
    simulate : float
        Gates and, in circuits that branch, outcomes.
    sample : float
        Drawing shots.
    observables : float
        Expectation values.
    """

    compile: float
    simulate: float
    sample: float
    observables: float

    @property
    def total(self) -> float:
        """Their sum.

        >>> Timings(0.5, 2.0, 0.25, 0.0).total
        2.75
        """
        return self.compile + self.simulate + self.sample + self.observables

    def _repr_html_(self) -> str:
        whole = self.total or 1.0
        rows = [(name, f"{seconds:.3g}", html.bar(seconds / whole)) for name, seconds in zip(self._fields, self)]
        return html.titled(f"Timings: {self.total:.3g} s", html.table(("part", "seconds", ""), rows))


class Pass(NamedTuple):
    """Gates that act while the state streams once through the cache.

    Attributes
    ----------
    first_gate, last_gate : int
        The pass's gates are among ``first_gate`` to ``last_gate - 1``, counted over the whole run. Some of them may
        wait for a later pass where that changes no bit; with fusion this is the stretch that was rewritten. With a
        schedule other than "written" gates are counted in that order.
    local_qubits : tuple of int
        Qubits of the circuit that are gathered in a buffer; none if the gates work on the whole state in place.
    """

    first_gate: int
    last_gate: int
    local_qubits: tuple[int, ...]


class MethodCost(NamedTuple):
    """What one way to run a circuit with noise is expected to take.

    Attributes
    ----------
    name : {"exact", "trajectories"}
        On a density matrix, or on a state for each shot.
    seconds : float
        What was predicted of one core, without threads. From figures of one machine: right within a factor of a few, and what
        the methods are compared by.
    bytes : int
        Of the states that there are at a time; where outcomes part a density matrix, of one.
    fits : bool
        Whether the memory for them is there.
    """

    name: str
    seconds: float
    bytes: int
    fits: bool


class Plan(NamedTuple):
    """How the gates are carried out.

    Attributes
    ----------
    gates : int
        With noise, those of a run in which nothing unusual happens.
    passes : tuple of Pass
        In circuits with measurements in the middle, those of every stretch of gates once. None with noise.
    sweeps : float
        How often all amplitudes are read and written in memory. 0 with noise.
    method : {"statevector", "exact", "trajectories"}
        Without noise the first.
    trajectories : int or None
        How many different ones there were among the shots, or, where outcomes are needed in the middle of the circuit, how many
        ways shots went; None for other methods.
    methods : tuple of MethodCost
        What was predicted of each method that could have been taken with noise, before one of them was.
    """

    gates: int
    passes: tuple[Pass, ...]
    sweeps: float
    method: str = "statevector"
    trajectories: int | None = None
    methods: tuple[MethodCost, ...] = ()

    def __str__(self) -> str:
        """Tell the numbers in one line.

        >>> print(Plan(300, (Pass(0, 200, (0, 1)), Pass(200, 300, ())), 1.5))
        300 gates in 2 passes, 1.5 sweeps over memory
        >>> print(Plan(1, (Pass(0, 1, ()),), 1.0))
        1 gate in 1 pass, 1 sweep over memory
        >>> print(Plan(20, (), 0.0, "trajectories", 53))
        20 gates with noise, 53 trajectories
        """
        if self.method == "trajectories":
            assert self.trajectories is not None
            each = counted(self.trajectories, "trajectory").replace("ys", "ies")
            return f"{counted(self.gates, 'gate')} with noise, {each}"
        if self.method == "exact":
            return f"{counted(self.gates, 'gate')} with noise, on a density matrix"
        passes = f"{len(self.passes)} " + ("pass" if len(self.passes) == 1 else "passes")
        sweeps = f"{self.sweeps:.3g}"
        plural = "" if sweeps == "1" else "s"
        return f"{counted(self.gates, 'gate')} in {passes}, {sweeps} sweep{plural} over memory"

    def _repr_html_(self) -> str:
        if self.methods:
            told = [(one.name, f"{one.seconds:.3g}", str(one.bytes), "yes" if one.fits else "no") for one in self.methods]
            return html.titled(f"Plan: {self}", html.table(("method", "seconds, predicted", "bytes", "fits"), told))
        rows = [
            (str(number), f"{first} to {last - 1}", _qubits(local) or "none, in place")
            for number, (first, last, local) in enumerate(self.passes[: html.ROWS])
        ]
        if len(self.passes) > len(rows):
            rows.append((f"{len(self.passes) - len(rows)} others", "", ""))
        return html.titled(f"Plan: {self}", html.table(("pass", "among the gates", "local qubits"), rows))


def _qubits(listed: tuple[int, ...]) -> str:
    return ", ".join(map(str, listed[: html.ROWS])) + (", …" if len(listed) > html.ROWS else "")
