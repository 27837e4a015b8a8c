"""Which noise stands beside which gates."""

from __future__ import annotations

import warnings
from collections.abc import Mapping, Sequence
from typing import Any, Self

import numpy as np
from numpy.typing import ArrayLike

from ..basics import checks
from ..basics.elsewhere import Guiding
from ..channels.channel import Channel
from ..circuit.circuit import Circuit
from . import tables
from .apply import applied
from .names import kinds_of, size_of
from .rules import Durations, Idle, Misread, Rule

__all__ = ["NoiseModel"]

_NO_GATES = frozenset({"barrier", "break", "channel", "continue", "gphase", "if", "save", "store", "switch", "while"})


class NoiseModel(Guiding):
    """Rules that say where in a circuit there is noise. Every method returns another model, so that calls can be chained.

    Gates are called by any of their names: ``"cx"``, ``"cnot"`` and ``"CNOT"`` are one, and so is X with one control.
    They are looked for as they are written, and inside the definitions that a circuit calls; a rule for the name of a
    definition stands beside the whole of it.

    Models are plain values: they do not change, can be compared and pickled, and `to_dict` tells one for a file.

    Examples
    --------
    >>> noise = NoiseModel().after("cx", Channel.depolarizing(0.01, 2)).before("measure", Channel.bit_flip(0.02))
    >>> print(noise.apply(Circuit(2, 1).h(0).cx(0, 1).measure(1, 0)))
    H 0
    CNOT 0,1
    channel depolarizing(0.01) 0,1
    channel bit_flip(0.02) 1
    measure 1 -> 0
    """

    __slots__ = ("_durations", "_idle", "_readout", "_rules")

    _rules: tuple[Rule, ...]
    _idle: tuple[Idle, ...]
    _durations: Durations
    _readout: tuple[Misread, ...]

    def __init__(self) -> None:
        self._rules, self._idle, self._durations, self._readout = (), (), {}, ()

    # --- Rules ---

    def after(
        self,
        gates: str | Sequence[str],
        channel: Channel,
        qubits: int | Sequence[int | Sequence[int]] | None = None,
        *,
        replace: bool = False,
    ) -> Self:
        """Return a model with noise after gates, too.

        Several rules for a gate act one after the other, in the order they were made; with `replace` a rule takes the place
        of earlier ones.

        Parameters
        ----------
        gates : str or sequence of str
            Names of gates, of definitions, or ``"measure"`` and ``"reset"``.
        channel : Channel
            On one qubit it acts on each of a gate's; on more the gate must have as many, controls first. The channel's
            qubit 0 is the gate's first. Each qubit of a measurement or a reset counts by itself.
        qubits : sequence of tuple of int, optional
            Only after gates on these qubits, as in ``[(0, 1), (1, 2)]``: controls and targets in their order. Gates whose
            qubits play the same part, as those of CZ and SWAP, are found in any order; the channel takes the order that is
            listed here. Numbers alone are those of gates on one qubit. By default all.
        replace : bool
            Whether the gates that this rule finds lose the noise that earlier rules of `after` gave them: a rule for some
            qubits then takes the place of a general one there. Rules of `before` stay, as they do in the other case.

        Raises
        ------
        TypeError, ValueError
            If a name is no text or of something that has no noise beside it, numbers of qubits do not fit, or `replace` is
            no bool.

        Examples
        --------
        >>> model = NoiseModel().after(["rx", "rz"], Channel.depolarizing(0.001)).after("cx", Channel.phase_flip(0.1), [(0, 1)])
        >>> print(model.apply(Circuit(2).rx(0.5, 1).cx(0, 1).cx(1, 0)))
        RX(0.5) 1
        channel depolarizing(0.001) 1
        CNOT 0,1
        channel phase_flip(0.1) 0
        channel phase_flip(0.1) 1
        CNOT 1,0
        >>> model = NoiseModel().after("h", Channel.bit_flip(0.1)).after("h", Channel.bit_flip(0.2), qubits=1, replace=True)
        >>> print(model.apply(Circuit(2).h([0, 1])))
        H 0
        channel bit_flip(0.1) 0
        H 1
        channel bit_flip(0.2) 1
        """
        return self._with_rule("after", gates, channel, qubits, replaces=checks.flag(replace, "replace"))

    def before(
        self,
        gates: str | Sequence[str],
        channel: Channel,
        qubits: int | Sequence[int | Sequence[int]] | None = None,
        *,
        replace: bool = False,
    ) -> Self:
        """Return a model with noise before gates, too; all else as for `after`.

        Examples
        --------
        >>> print(NoiseModel().before("measure", Channel.bit_flip(0.1), 1).apply(Circuit(2, 2).measure([0, 1], [0, 1])))
        channel bit_flip(0.1) 1
        measure 0,1 -> 0,1
        """
        return self._with_rule("before", gates, channel, qubits, replaces=checks.flag(replace, "replace"))

    def idle(
        self,
        t1: float,
        t2: float,
        durations: Mapping[str, Any],
        *,
        excited: float = 0.0,
        qubits: int | Sequence[int] | None = None,
    ) -> Self:
        """Return a model in which qubits relax while they wait.

        Every instruction begins as soon as its qubits are free, and the bits of its condition are known. What a qubit has
        waited before a gate, a measurement or a reset is a `Channel.thermal_relaxation` in front of it. The qubits of one
        instruction begin together, and so do those of one measurement, ``measure_all`` for example; after a barrier its
        qubits begin together. An `if_` or a `switch` lasts as long as the longest of its bodies, and in the others the
        qubits wait; so they do where the condition of a gate does not hold. How long a `while_` lasts is not known before
        it runs, and it is refused. What has been saved, and channels that are there already, last no time. After its last
        instruction a qubit does not relax.

        Parameters
        ----------
        t1, t2, excited : float
            As for `Channel.thermal_relaxation`.
        durations : mapping
            By the name of a gate, ``"measure"`` or ``"reset"``, how long it lasts, in the unit of `t1` and `t2`; or a mapping
            from tuples of qubits to that. They hold for all qubits, and are added to those of earlier calls. A definition
            that is not named lasts as long as what it is made of.
        qubits : int or sequence of int, optional
            Of which these times are; by default of all. A later call takes the place of an earlier one for its qubits.

        Raises
        ------
        TypeError, ValueError
            If a time is none, or t2 > 2 * t1. By `apply`, if a circuit has a gate without a duration.

        Examples
        --------
        >>> model = NoiseModel().idle(t1=50e-6, t2=70e-6, durations={"h": 35e-9, "cx": 300e-9})
        >>> print(model.apply(Circuit(3).h(0).cx(0, 1).cx(1, 2)))
        H 0
        channel thermal_relaxation(5e-05, 7e-05, 3.5e-08) 1
        CNOT 0,1
        channel thermal_relaxation(5e-05, 7e-05, 3.35e-07) 2
        CNOT 1,2
        """
        Channel.thermal_relaxation(t1, t2, 0.0, excited)
        made = Idle(float(t1), float(t2), float(excited), _numbers(qubits))
        return self._changed(_idle=(*self._idle, made), _durations={**self._durations, **tables.durations(durations)})

    def readout(
        self,
        p1_given_0: float | None = None,
        p0_given_1: float | None = None,
        *,
        matrix: ArrayLike | None = None,
        qubits: int | Sequence[int] | None = None,
    ) -> Self:
        """Return a model in which outcomes are misread: what is written is the other one, the state is not touched.

        Conditions behind the measurement see what is written. A later call takes the place of an earlier one for its
        qubits.

        Parameters
        ----------
        p1_given_0 : float
            Probability of writing 1 where the outcome is 0.
        p0_given_1 : float
            Probability of writing 0 where the outcome is 1.
        matrix : array_like, shape (2, 2), optional
            In place of both: row i has the probabilities of writing 0 and 1 where the outcome is i.
        qubits : int or sequence of int, optional
            Which qubits' outcomes; all by default.

        Raises
        ------
        TypeError, ValueError
            If these are no probabilities, or rows do not add up to 1.

        Examples
        --------
        >>> print(NoiseModel().readout(0.02, 0.05).apply(Circuit(2, 1).measure(1, 0)))
        measure 1 -> 0 misread (0.02, 0.05)
        """
        if matrix is not None:
            if p1_given_0 is not None or p0_given_1 is not None:
                raise TypeError("matrix must be given alone, without p1_given_0 and p0_given_1")
            up, down = _flips(matrix)
        elif p1_given_0 is None or p0_given_1 is None:
            raise TypeError(
                f"p1_given_0 and p0_given_1 must both be given, or matrix, got {checks.show(p1_given_0)} and "
                f"{checks.show(p0_given_1)}"
            )
        else:
            up, down = checks.probability(p1_given_0, "p1_given_0"), checks.probability(p0_given_1, "p0_given_1")
        return self._changed(_readout=(*self._readout, Misread(up, down, _numbers(qubits))))

    # --- What it does ---

    def apply(self, circuit: Circuit) -> Circuit:
        """Return the circuit with noise in it, to be looked at, tested and run.

        Definitions in which a rule finds a gate are replaced by what they are made of; everything else stays as it is
        written. The noise of a gate with a condition has the same one.

        Parameters
        ----------
        circuit : Circuit
            Its parameters need no values.

        Warns
        -----
        UserWarning
            If a rule of `after` or `before` finds no gate; the message names the gates that are there.

        Raises
        ------
        TypeError
            If this is no circuit.
        ValueError
            If a channel does not fit a gate, a gate has no duration although qubits relax, or a definition becomes more than
            10,000,000 instructions.

        Examples
        --------
        >>> bell = GateDefinition("bell", Circuit(2).h(0).cx(0, 1))
        >>> print(NoiseModel().after("cx", Channel.depolarizing(0.1, 2)).apply(Circuit(3).gate(bell, [2, 0])))
        H 2
        CNOT 2,0
        channel depolarizing(0.1) 2,0
        """
        if not isinstance(circuit, Circuit):
            raise TypeError(f"circuit must be a Circuit, got {checks.show(circuit)}")
        (noisy,), warning = self._applied([circuit])
        if warning:
            warnings.warn(warning, UserWarning, stacklevel=2)
        return noisy

    def _applied(self, circuits: Sequence[Circuit]) -> tuple[list[Circuit], str]:
        """Do what `apply` does with each circuit, and return what to warn of, or nothing."""
        return applied(circuits, *self._parts())

    def readout_of(self, qubit: int) -> tuple[float, float]:
        """Return how an outcome of this qubit is misread: the probabilities of writing 1 for 0, and 0 for 1.

        >>> NoiseModel().readout(0.02, 0.05).readout(0.01, 0.01, qubits=3).readout_of(3)
        (0.01, 0.01)
        """
        row = tables.latest(self._readout, checks.integer(qubit, "qubit", minimum=0))
        return (0.0, 0.0) if row is None else (row.p1_given_0, row.p0_given_1)

    # --- As plain values ---

    def to_dict(self) -> dict[str, Any]:
        """Return the model as dictionaries, lists, texts and numbers, which JSON can write.

        Examples
        --------
        >>> NoiseModel().after("x", Channel.bit_flip(0.1)).to_dict()      # doctest: +NORMALIZE_WHITESPACE
        {'rules': [{'place': 'after', 'gates': ['x'], 'channel': {'name': 'bit_flip', 'p': 0.1}, 'qubits': None}],
         'idle': [], 'durations': [], 'readout': []}
        """
        return tables.plain(self._rules, self._idle, self._durations, self._readout)

    @classmethod
    def from_dict(cls, values: Mapping[str, Any]) -> Self:
        """Return the model that `to_dict` told.

        Raises
        ------
        TypeError, ValueError
            If something is missing, unknown, or not as the methods take it.

        Examples
        --------
        >>> noise = NoiseModel().after("x", Channel.bit_flip(0.1)).readout(0.1, 0.2)
        >>> NoiseModel.from_dict(noise.to_dict()) == noise
        True
        """
        made = cls()
        for rule in tables.rows(values, "values", "rules"):
            tables.require_keys(rule, "a rule", ("place", "gates", "channel", "qubits"), ("optional", "replace"))
            channel = Channel.from_dict(rule["channel"])
            place = checks.choice(rule["place"], "place", ("after", "before"))
            is_optional, replaces = [checks.flag(rule.get(key, False), key) for key in ("optional", "replace")]
            made = made._with_rule(place, rule["gates"], channel, rule["qubits"], is_optional, replaces)
        for row in tables.rows(values, "values", "idle"):
            tables.require_keys(row, "a row of idle", ("t1", "t2", "excited", "qubits"))
            made = made.idle(row["t1"], row["t2"], {}, excited=row["excited"], qubits=row["qubits"])
        for row in tables.rows(values, "values", "durations"):
            tables.require_keys(row, "a row of durations", ("gate", "qubits", "duration"))
            made = made._changed(_durations={**made._durations, **tables.duration(row)})
        for row in tables.rows(values, "values", "readout"):
            tables.require_keys(row, "a row of readout", ("p1_given_0", "p0_given_1", "qubits"))
            made = made.readout(row["p1_given_0"], row["p0_given_1"], qubits=row["qubits"])
        tables.require_keys(values, "values", ("rules", "idle", "durations", "readout"))
        return made

    @classmethod
    def from_calibration(cls, table: Mapping[str, Any]) -> Self:
        """Return the model that measured figures of a device suggest.

        Parameters
        ----------
        table : mapping
            ``"qubits"``: a list of mappings, the i-th for qubit i, each with any of ``"t1"`` and ``"t2"`` together (and
            ``"excited"``), which make it relax while it waits, and ``"p1_given_0"`` and ``"p0_given_1"`` together, of its
            readout. ``"gates"``: a list of mappings with ``"gate"``, the name, and any of ``"qubits"`` (all others if it is
            left out), ``"error"`` and ``"duration"``. The error is the average infidelity, as randomised benchmarking tells it; it
            becomes depolarizing noise with p = error * D / (D - 1) on all D = 2**k states of the gate's qubits (M. A. Nielsen,
            Phys. Lett. A 303, 249 (2002)).

        Raises
        ------
        TypeError, ValueError
            If a value is out of range, a key is unknown, or times are given that nothing would use.

        Examples
        --------
        >>> table = {
        ...     "qubits": [{"t1": 50e-6, "t2": 70e-6, "p1_given_0": 0.02, "p0_given_1": 0.05}, {}],
        ...     "gates": [{"gate": "cx", "qubits": [0, 1], "error": 0.0075, "duration": 300e-9}],
        ... }
        >>> print(NoiseModel.from_calibration(table).apply(Circuit(2).cx(0, 1)))
        CNOT 0,1
        channel depolarizing(0.01) 0,1
        """
        made = cls()
        # Those for all qubits first, so that others take their place.
        for place, gates, channel, qubits in sorted(tables.gate_errors(table), key=lambda row: row[3] is not None):
            made = made._with_rule(place, gates, channel, qubits, is_optional=True, replaces=True)
        durations = tables.table_durations(table)
        for qubit, row in enumerate(tables.rows(table, "table", "qubits")):
            try:
                if "t1" in row:
                    made = made.idle(row["t1"], row["t2"], {}, excited=row.get("excited", 0.0), qubits=qubit)
                if "p1_given_0" in row:
                    made = made.readout(row["p1_given_0"], row["p0_given_1"], qubits=qubit)
            except (TypeError, ValueError) as error:
                raise type(error)(f"qubits[{qubit}] of the table: {error}") from None
        if made._idle and not durations:
            raise ValueError("gates of the table must tell durations where t1 and t2 are given, which nothing would use, got none")
        return made._changed(_durations=durations)

    # --- As a value ---

    def __eq__(self, other: object) -> bool:
        return self._parts() == other._parts() if isinstance(other, NoiseModel) else NotImplemented

    def __hash__(self) -> int:
        return hash((self._rules, self._idle, tuple(self._durations.items()), self._readout))

    def __copy__(self) -> Self:
        return self

    def __deepcopy__(self, memo: Any) -> Self:
        return self

    def __getstate__(self) -> tuple[Any, ...]:
        return self._parts()

    def __setstate__(self, parts: tuple[Any, ...]) -> None:
        self._rules, self._idle, self._durations, self._readout = parts

    def __repr__(self) -> str:
        calls = [f".{rule.call()}" for rule in self._rules]
        calls += [f".idle({row.words()}, durations={{}})" for row in self._idle]
        if self._durations:
            calls.append(f" with {len(self._durations)} durations")
        calls += [f".readout({row.words()})" for row in self._readout]
        return f"NoiseModel(){''.join(calls)}"

    # --- Inner workings ---

    def _parts(self) -> tuple[Any, ...]:
        return self._rules, self._idle, self._durations, self._readout

    def _changed(self, **parts: Any) -> Self:
        made = type(self)()
        made._rules, made._idle, made._durations, made._readout = self._parts()
        for name, value in parts.items():
            setattr(made, name, value)
        return made

    def _with_rule(
        self, place: str, gates: Any, channel: Any, qubits: Any, is_optional: bool = False, replaces: bool = False
    ) -> Self:
        names = tables.names(gates)
        for name in names:
            if name in _NO_GATES:
                raise ValueError(f"gates must be names of gates, definitions, measure or reset, got {checks.show(name)}")
        if not isinstance(channel, Channel):
            raise TypeError(f"channel must be a Channel, such as Channel.depolarizing(0.01), got {checks.show(channel)}")
        places = tables.places(qubits)
        for name in names:
            (kind, *others) = kinds_of(name)
            size = None if others else size_of(kind)
            if size is None:
                continue
            if channel.n_qubits not in (1, size):
                either = f"1 or {size} qubits" if size > 1 else "1 qubit"
                raise ValueError(f"channel must act on {either} beside {name}, got {channel!r} on {channel.n_qubits}")
            for listed in places or ():
                if len(listed) != size:
                    raise ValueError(
                        f"qubits must be tuples of {size} for {name}, as in [{tuple(range(size))}], got {checks.show(listed)}"
                    )
        return self._changed(_rules=(*self._rules, Rule(place, names, channel, places, is_optional, replaces)))


def _numbers(values: Any) -> tuple[int, ...] | None:
    return None if values is None else checks.qubits(values, tables.MOST_QUBITS)


def _flips(matrix: Any) -> tuple[float, float]:
    try:
        array = checks.array(matrix, np.float64)
    except (TypeError, ValueError):
        array = np.zeros(0)
    if array.shape != (2, 2):
        raise ValueError(f"matrix must be a 2 x 2 array of numbers, got {checks.show(matrix)}")
    rows = [[checks.probability(value, f"matrix[{i}, {j}]") for j, value in enumerate(row)] for i, row in enumerate(array)]
    for i, row in enumerate(rows):
        if not abs(sum(row) - 1) <= 1e-12:
            raise ValueError(
                f"matrix must have rows that add up to 1, the probabilities of writing 0 and 1 for one outcome, got {sum(row)!r} "
                f"in row {i}; is it transposed?"
            )
    return rows[0][1], rows[1][0]
