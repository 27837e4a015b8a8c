"""Noise models as plain values, and from tables of measured figures."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import Any, Protocol, TypeVar

from ..basics import checks
from ..channels.channel import Channel
from .names import kinds_of, size_of
from .rules import Durations, Idle, Misread, Places, Rule

#: Numbers of qubits in rules are below this, as those of circuits are.
MOST_QUBITS = 1_000_000


def names(values: Any) -> tuple[str, ...]:
    """Return one or several names of gates.

    >>> names("cx"), names(["rx", "rz"])
    (('cx',), ('rx', 'rz'))
    """
    listed = (values,) if isinstance(values, str) else checks.sequence(values, "gates", of="names")
    for name in listed:
        if not isinstance(name, str):
            raise TypeError(f"gates must hold names of gates, got {checks.show(name)}")
    if not listed or "" in map(checks.plain, listed):
        raise ValueError(f"gates must hold at least one name, and none that is empty, got {checks.show(values)}")
    return tuple([checks.plain(name) for name in listed])


def places(values: Any) -> Places:
    """Return on which qubits gates must stand, None for any.

    >>> places(3), places([0, 1]), places([(0, 1), (1, 0)])
    (((3,),), ((0,), (1,)), ((0, 1), (1, 0)))
    """
    if values is None:
        return None
    listed = checks.sequence(values, "qubits", of="qubits or tuples of qubits") if checks.is_list(values) else (values,)
    if not listed:
        raise ValueError("qubits must name at least one place, got none; leave it out for all")
    return tuple([checks.qubits(place, MOST_QUBITS, f"qubits[{i}]") for i, place in enumerate(listed)])


def durations(values: Any) -> Durations:
    """Return durations by gate, and by its qubits where they are given."""
    if not isinstance(values, Mapping):
        raise TypeError(
            'durations must be a dictionary of names of gates and times, as in {"cx": 300e-9}, got ' + checks.show(values)
        )
    found: Durations = {}
    for gate, given in values.items():
        (name,) = names(gate) if isinstance(gate, str) else names([gate])
        if isinstance(given, Mapping):
            for qubits, time in given.items():
                found.update(_duration(name, qubits, time))
        else:
            found.update(_duration(name, None, given))
    return found


def duration(row: Mapping[str, Any]) -> Durations:
    """Return that of one gate."""
    (name,) = names([row["gate"]])
    return _duration(name, row["qubits"], row["duration"])


def _duration(name: str, qubits: Any, time: Any) -> Durations:
    where = f"the duration of {checks.show(name)}"
    number = checks.real(time, where)
    if number < 0:
        raise ValueError(f"{where} must not be negative, got {checks.show(time)}")
    return {(name, None if qubits is None else checks.qubits(qubits, MOST_QUBITS)): number}


class _OfQubits(Protocol):
    @property
    def qubits(self) -> tuple[int, ...] | None: ...


_Row = TypeVar("_Row", bound=_OfQubits)


def latest(rows: Sequence[_Row], qubit: int) -> _Row | None:
    """Return the last row that holds for a qubit."""
    return next((row for row in reversed(rows) if row.qubits is None or qubit in row.qubits), None)


# --- As dictionaries ---


def plain(rules: Sequence[Rule], idle: Sequence[Idle], times: Durations, readout: Sequence[Misread]) -> dict[str, Any]:
    """Return a model's parts as dictionaries, lists, texts and numbers."""

    def listed(qubits: Any) -> Any:
        return None if qubits is None else [list(place) if isinstance(place, tuple) else place for place in qubits]

    return {
        "rules": [
            {
                "place": rule.place,
                "gates": list(rule.gates),
                "channel": rule.channel.to_dict(),
                "qubits": listed(rule.qubits),
                **({"optional": True} if rule.is_optional else {}),
                **({"replace": True} if rule.replaces else {}),
            }
            for rule in rules
        ],
        "idle": [{**row._asdict(), "qubits": listed(row.qubits)} for row in idle],
        "durations": [
            {"gate": name, "qubits": listed(qubits), "duration": time} for (name, qubits), time in times.items()
        ],
        "readout": [{**row._asdict(), "qubits": listed(row.qubits)} for row in readout],
    }


def rows(values: Any, name: str, key: str) -> Iterable[Mapping[str, Any]]:
    """Return the list of mappings under a key; nothing if it is not there."""
    if not isinstance(values, Mapping):
        raise TypeError(f"{name} must be a dictionary, got {checks.show(values)}")
    listed = checks.sequence(values.get(key, ()), f"{name}[{key!r}]", of="dictionaries")
    for i, row in enumerate(listed):
        if not isinstance(row, Mapping):
            raise TypeError(f"{name}[{key!r}][{i}] must be a dictionary, got {checks.show(row)}")
    return listed


def require_keys(row: Mapping[str, Any], name: str, needed: Sequence[str], further: Sequence[str] = ()) -> None:
    """Refuse a dictionary in which something is missing or unknown."""
    missing = [key for key in needed if key not in row]
    unknown = [key for key in row if key not in needed and key not in further]
    if missing or unknown:
        wrong = f"{missing} missing" if missing else f"{checks.show(unknown)} unknown"
        raise ValueError(f"{name} must have the keys {', '.join([*needed, *further])}, got {wrong}")


# --- Tables of measured figures ---


def gate_errors(table: Any) -> Iterator[tuple[str, str, Channel, Any]]:
    """Iterate over place, gate, channel and qubits of the rules that a table's errors make."""
    require_keys(table if isinstance(table, Mapping) else {}, "table", (), ("qubits", "gates"))
    for qubit, row in enumerate(rows(table, "table", "qubits")):
        where = f"qubits[{qubit}] of the table"
        require_keys(row, where, (), ("t1", "t2", "excited", "p1_given_0", "p0_given_1"))
        for one, other in (("t1", "t2"), ("p1_given_0", "p0_given_1")):
            if (one in row) != (other in row) or ("excited" in row and "t1" not in row):
                raise ValueError(f"{where} must have {one} and {other} together, got {sorted(row)}")
    for i, row in enumerate(rows(table, "table", "gates")):
        where = f"gates[{i}] of the table"
        require_keys(row, where, ("gate",), ("qubits", "error", "duration"))
        (name,) = names([row["gate"]])
        if "error" not in row:
            continue
        listed = row.get("qubits")
        kinds = kinds_of(name)
        size = len(checks.qubits(listed, MOST_QUBITS)) if listed is not None else size_of(next(iter(kinds)))
        if size is None or len(kinds) > 1 and listed is None:
            raise ValueError(f"{where} must tell qubits, because {checks.show(name)} is no gate of the package, got {checks.show(dict(row))}")
        error, most = checks.real(row["error"], f"error of {where}"), 2**size / (2**size + 1)
        if not 0 <= error <= most:
            raise ValueError(
                f"error of {where} must be from 0 to {most:.6g}, the infidelity of the most noise there is, got {checks.show(error)}"
            )
        channel = Channel.depolarizing(error * 2**size / (2**size - 1), size)
        yield "after", name, channel, None if listed is None else [listed]


def table_durations(table: Mapping[str, Any]) -> Durations:
    """Return the durations that a table tells."""
    found: Durations = {}
    for row in rows(table, "table", "gates"):
        if "duration" in row:
            found.update(duration({"qubits": None, **row}))
    return found
