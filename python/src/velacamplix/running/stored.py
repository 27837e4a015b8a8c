"""Results in files."""

from __future__ import annotations

import json
import os
from collections.abc import Callable, Sequence
from typing import Any, Self

import numpy as np

from ..instructions.instruction import Register
from ..machine import limits, memory, npz
from ..programs.progress import ProgressLike, metered
from ..results import shot_rows
from ..results.plan import MethodCost, Pass, Plan, Timings
from ..states.base import StateBase
from ..states.densitymatrix import DensityMatrix
from ..states.files import about, read_state, require_about, state_arrays
from ..states.statevector import StateVector
from .final import Final
from .saved import Kept, Saved

# More qubits or bits no circuit has.
_MOST_BITS = 1_000_000
# What a character of the text becomes when it is read, at most.
_BYTES_PER_CHARACTER = 64
# By the kind of what was saved.
_ARRAYS = ("shots", "expectation_values", "standard_errors")
_STATES: dict[str, Any] = {"state": StateVector, "density": DensityMatrix}


class Stored(Final):
    """One .npz file for each result, which NumPy reads, too."""

    def save(self, path: str | os.PathLike[str], progress: ProgressLike = None) -> None:
        """Write the result to a file, from which `load` makes an equal one.

        The file appears when it is complete: whatever happens meanwhile, a file that was there before stays whole.

        Parameters
        ----------
        path : str or os.PathLike
            Usually it ends in ``.npz``. A file that is there is replaced.
        progress : None, bool or callable
            As for `run`; bytes are counted.

        Raises
        ------
        TypeError, ValueError
            If `path` is none, or that of a folder, device or pipe.
        OSError
            If the file cannot be written.

        Notes
        -----
        All there is in the result is written: shots, the final state, expectation values, what was saved on the way,
        timings and plan. `numpy.load` gives, where they are there, ``shots`` (a row of 64-bit words for each, the most
        significant first), ``amplitudes`` (of the active qubits) and ``expectation_values``; ``about`` is a text of
        JSON with the rest.

        Examples
        --------
        >>> import os, tempfile
        >>> from velacamplix import Circuit, Result, run
        >>> path = os.path.join(tempfile.mkdtemp(), "bell.npz")
        >>> result = run(Circuit(2).h(0).cx(0, 1), shots=100, seed=1, observables="Z0 Z1")
        >>> result.save(path)
        >>> again = Result.load(path)
        >>> again.counts == result.counts, again.expectation_values == result.expectation_values
        (True, True)
        """
        state = self._final() if self.has_state else None
        arrays = _written({**vars(self), "_state": state})
        with metered(progress, sum(array.nbytes for array in arrays.values()), "bytes") as meter:

            def told(size: int) -> None:
                if state is not None:
                    state._live().require_whole()
                meter.advance(size)
                meter.tell()

            npz.write(path, arrays, told)

    @classmethod
    def load(cls, path: str | os.PathLike[str], progress: ProgressLike = None) -> Self:
        """Return a new result that answers what the one did that `save` has written.

        Parameters
        ----------
        path : str or os.PathLike
        progress : None, bool or callable
            As for `run`; bytes are counted.

        Raises
        ------
        TypeError, ValueError
            If `path` is none, or the file is nothing that `save` has written: the message tells what does not fit.
        OSError
            If the file cannot be read.
        MemoryError
            If the shots or the state do not fit.

        Notes
        -----
        Files of strangers do no harm: nothing in them is executed or unpickled.

        Examples
        --------
        >>> import os, tempfile
        >>> from velacamplix import Circuit, Result, run
        >>> path = os.path.join(tempfile.mkdtemp(), "coin.npz")
        >>> run(Circuit(50, 1).h(30).measure(30, 0), shots=10, seed=5).save(path)
        >>> Result.load(path).probability("1", qubits=[30])      # doctest: +ELLIPSIS
        0.499...
        """
        with npz.Reader(path, "Result") as file, metered(progress, file.size, "bytes") as meter:
            made = cls.__new__(cls)
            vars(made).update(_read(file, lambda size: (meter.advance(size), meter.tell())))
        return made


def _written(fields: dict[str, Any]) -> dict[str, np.ndarray]:
    """Return the arrays of a result by name."""
    plan, kept = fields["plan"], fields["saved"]._kept
    facts = {
        **{name: fields[name] for name in ("n_clbits", "n_bits", "n_shots", "seed", "precision", "threads")},
        "active_qubits": fields["active_qubits"],
        "registers": [(one.name, one.kind, one.start, one.size) for one in fields["_registers"]],
        "measured": sorted(fields["_measured"]),
        "measured_bits": fields["measured_bits"],
        "readings": list(fields["_readings"].items()),
        "known_bits": f"{fields['_known_bits']:x}",
        "timings": fields["timings"],
        "gates": plan.gates,
        "passes": plan.passes,
        "sweeps": plan.sweeps,
        "method": plan.method,
        "trajectories": plan.trajectories,
        "methods": plan.methods,
        "saved": [
            (name, one.kind, one.missing, one.visits, one._shots, _width(one.value)) for name, one in kept.items()
        ],
    }
    arrays = {**about("Result", fields["n_qubits"]), "about": np.array(json.dumps(facts))}
    if fields["_rows"] is not None:
        arrays["shots"] = np.asarray(fields["_rows"], order="C")
    if fields["_state"] is not None:
        arrays.update(state_arrays(fields["_state"], ""))
    if fields["expectation_values"] is not None:
        arrays["expectation_values"] = np.array(fields["expectation_values"])
    if fields["_exact"] is not None:
        arrays["outcomes"], arrays["probabilities"] = [np.asarray(one, order="C") for one in fields["_exact"]]
    if fields["standard_errors"] is not None:
        arrays["standard_errors"] = np.array(fields["standard_errors"], dtype=np.float64)
    for i, one in enumerate(kept.values()):
        if isinstance(one.value, StateBase):
            arrays.update(state_arrays(one.value, f"saved{i}_"))
        elif one.missing is None:
            arrays[f"saved{i}"] = np.asarray(one.value, order="C")
    return arrays


def _width(value: Any) -> int:
    """Return the number of qubits that a saved value is of; a number is of none."""
    return value.n_qubits if isinstance(value, StateBase) else int(np.size(value)).bit_length() - 1


def _read(file: npz.Reader, told: npz.Told) -> dict[str, Any]:
    """Return the fields of a result, every one of them checked."""
    n_qubits = require_about(file, "Result", _MOST_BITS)
    facts = _Facts(file)
    n_clbits = facts.integer("n_clbits", 0, _MOST_BITS)
    n_bits, n_shots = facts.integer("n_bits", 0, _MOST_BITS), facts.integer("n_shots", 1, 2**63 - 1, or_none=True)
    active = facts.integers("active_qubits", n_qubits)
    precision = facts.one_of("precision", ("double", "single"))
    threads = facts.integer("threads", 1, 2**31)
    measured_bits = facts.integers("measured_bits", n_clbits)
    facts.require(n_bits == (n_clbits if measured_bits else n_bits) and n_bits in (n_clbits, n_qubits), "n_bits")
    seed = facts.integer("seed", 0, 2**32 - 1, or_none=True)
    facts.require((seed is None) == (n_shots is None) == ("shots" not in file), "seed")
    kept = facts.kept(len(active), n_qubits)

    names = {*about("", 0), "about"}
    names.update(name for name in (*_ARRAYS, "outcomes", "probabilities") if name in file)
    prefixes = ["" for _ in range("amplitudes" in file)]
    for i, (one, _) in enumerate(kept.values()):
        if one.missing is None and one.kind in _STATES:
            prefixes.append(f"saved{i}_")
        elif one.missing is None:
            names.add(f"saved{i}")
    names.update(f"{prefix}{name}" for prefix in prefixes for name in ("precision", "engine", "amplitudes"))
    file.require_names(names)

    def state_of(prefix: str, width: int, kind: str = "state") -> Any:
        sides = 2 if kind == "density" else 1  # ket and bra
        facts.require(width * sides < 64, "active_qubits")
        count = min(threads, limits.most_threads())
        state = read_state(_STATES[kind], file, prefix, width, count, told, width * sides)
        facts.require(state.precision == precision, "precision")
        return state

    def numbers(name: str, shape: tuple[int, ...]) -> Any:
        descr = file.layout(name)[0]
        return file.array(name, "<c16" if descr == "<c16" else "<f8", shape, told)

    fields: dict[str, Any] = {
        "n_qubits": n_qubits, "n_clbits": n_clbits, "n_shots": n_shots, "seed": seed, "precision": precision,
        "threads": threads, "active_qubits": active, "n_bits": n_bits, "measured_bits": measured_bits,
        "_registers": facts.registers(n_qubits, n_clbits), "_measured": frozenset(facts.integers("measured", n_qubits)),
        "_readings": facts.readings(n_qubits, n_clbits), "_known_bits": facts.bits("known_bits", n_clbits),
        "timings": Timings(*facts.numbers("timings", 4)), "plan": facts.plan(n_qubits), "expectation_values": None,
        "standard_errors": None, "_exact": None,
        "_rows": None, "_state": None, "_counts": None,
    }  # fmt: skip
    facts.require_no_more()
    if n_shots is not None:
        words = shot_rows.words_for(n_bits)
        rows = file.array("shots", "<u8", (n_shots, words), told)
        facts.require(_fit_bits(rows, n_bits), "shots")
        fields["_rows"] = rows
    if "outcomes" in file or "probabilities" in file:
        facts.require(n_shots is None and "outcomes" in file and "probabilities" in file, "outcomes")
        shape = file.layout("probabilities")[1]
        facts.require(len(shape) == 1, "outcomes")
        rows = file.array("outcomes", "<u8", (*shape, shot_rows.words_for(n_bits)), told)
        shares = file.array("probabilities", "<f8", shape, told)
        facts.require(_fit_bits(rows, n_bits) and bool(((shares >= 0) & (shares <= 1)).all()), "outcomes")
        fields["_exact"] = rows, shares
    if "amplitudes" in file:
        fields["_state"] = state_of("", len(active))
    if "expectation_values" in file:
        shape = file.layout("expectation_values")[1]
        facts.require(len(shape) < 2, "expectation_values")
        values = numbers("expectation_values", shape)
        fields["expectation_values"] = values if shape else values.item()
    if "standard_errors" in file:
        facts.require("expectation_values" in file and file.layout("standard_errors")[1] == shape, "standard_errors")
        errors = numbers("standard_errors", shape)
        facts.require(errors.dtype == np.float64, "standard_errors")
        fields["standard_errors"] = errors if shape else errors.item()
    for i, (one, width) in enumerate(kept.values()):
        if one.missing is None and one.kind in _STATES:
            one.value = state_of(f"saved{i}_", width, one.kind)
        elif one.missing is None:
            values = numbers(f"saved{i}", (2**width,) if one.kind == "probabilities" else ())
            one.value = values if one.kind == "probabilities" else values.item()
    fields["saved"] = Saved(n_qubits, active, {name: one for name, (one, _) in kept.items()})
    return fields


def _fit_bits(rows: np.ndarray, n_bits: int) -> bool:
    """Return whether there are rows, and none has more bits."""
    return len(rows) > 0 and int(rows[:, 0].max()) >> (n_bits - 64 * (rows.shape[1] - 1)) == 0


class _Facts:
    """The text of JSON in a file. What is taken from it is checked; what does not fit is refused."""

    def __init__(self, file: npz.Reader) -> None:
        self._file = file
        text = file.text("about")
        memory.require_bytes(_BYTES_PER_CHARACTER * len(text), "what the file tells about its result")
        try:
            facts = json.loads(text)
        except (ValueError, RecursionError):
            file.refuse("about is no text of JSON")
        self._facts: dict[str, Any] = facts if type(facts) is dict else {}

    def require(self, is_right: bool, name: str) -> None:
        """Refuse the file unless something is as it must be."""
        if not is_right:
            self._file.refuse(f"what it tells about {name} is wrong")

    def require_no_more(self) -> None:
        """Refuse what nobody has asked for."""
        for name in self._facts:
            self._file.refuse(f"this version does not know what it tells about {name[:60]!r}")

    def _take(self, name: str) -> Any:
        self.require(name in self._facts, name)
        return self._facts.pop(name)

    def _is_integer(self, value: Any, least: int, most: int) -> bool:
        return type(value) is int and least <= value <= most

    def integer(self, name: str, least: int, most: int, or_none: bool = False) -> Any:
        """Return an integer within bounds."""
        value = self._take(name)
        self.require((or_none and value is None) or self._is_integer(value, least, most), name)
        return value

    def integers(self, name: str, below: int) -> tuple[int, ...]:
        """Return integers that increase."""
        return self._increasing(name, self._take(name), below)

    def _increasing(self, name: str, value: Any, below: int) -> tuple[int, ...]:
        self.require(type(value) is list and all(self._is_integer(number, 0, below - 1) for number in value), name)
        self.require(all(one < next_one for one, next_one in zip(value, value[1:])), name)
        return tuple(value)

    def numbers(self, name: str, count: int) -> Sequence[float]:
        """Return numbers that are not negative."""
        value = self._take(name)
        self.require(type(value) is list and len(value) == count and all(map(_is_amount, value)), name)
        return [float(number) for number in value]

    def one_of(self, name: str, allowed: Sequence[str]) -> str:
        """Return one of some texts."""
        value = self._take(name)
        self.require(type(value) is str and value in allowed, name)
        return str(value)

    def bits(self, name: str, count: int) -> int:
        """Return a number of so many bits that is written with sixteen digits."""
        value = self._take(name)
        self.require(type(value) is str and value != "" and not set(value) - set("0123456789abcdef"), name)
        self.require(len(value) <= 1 + count // 4 and int(value, 16) >> count == 0, name)
        return int(value, 16)

    def _listed(self, name: str, fits: Callable[[Any], bool]) -> list[Any]:
        value = self._take(name)
        self.require(type(value) is list and all(type(one) is list and fits(one) for one in value), name)
        return list(value)

    def registers(self, n_qubits: int, n_clbits: int) -> list[Register]:
        """Return the registers of the outcomes."""
        sizes = {"quantum": n_qubits, "classical": n_clbits}

        def fits(one: list[Any]) -> bool:
            if len(one) != 4 or type(one[0]) is not str or one[1] not in ("quantum", "classical"):
                return False
            size = sizes[one[1]]
            return self._is_integer(one[2], 0, size) and self._is_integer(one[3], 0, size - one[2])

        return [Register(*one) for one in self._listed("registers", fits)]

    def readings(self, n_qubits: int, n_clbits: int) -> dict[int, int]:
        """Return the qubits that bits are read from."""
        pairs = self._listed(
            "readings",
            lambda one: len(one) == 2
            and self._is_integer(one[0], 0, n_clbits - 1)
            and self._is_integer(one[1], 0, n_qubits - 1),
        )
        return dict(map(tuple, pairs))

    def plan(self, n_qubits: int) -> Plan:
        """Return the plan."""

        def fits(one: list[Any]) -> bool:
            if len(one) != 3 or not (self._is_integer(one[0], 0, 2**63) and self._is_integer(one[1], 0, 2**63)):
                return False
            return type(one[2]) is list and all(self._is_integer(qubit, 0, n_qubits - 1) for qubit in one[2])

        passes = tuple(Pass(first, last, tuple(qubits)) for first, last, qubits in self._listed("passes", fits))
        sweeps = self._take("sweeps")
        self.require(_is_amount(sweeps), "sweeps")
        method = self.one_of("method", ("statevector", "exact", "trajectories"))
        distinct = self.integer("trajectories", 1, 2**63, or_none=True)
        self.require((distinct is not None) == (method == "trajectories"), "trajectories")

        def tells(one: list[Any]) -> bool:
            if len(one) != 4 or one[0] not in ("exact", "trajectories") or type(one[3]) is not bool:
                return False
            return _is_amount(one[1]) and self._is_integer(one[2], 0, 2**4096)

        told = self._listed("methods", tells)
        methods = tuple([MethodCost(name, float(seconds), size, fits) for name, seconds, size, fits in told])
        return Plan(self.integer("gates", 0, 2**63), passes, float(sweeps), method, distinct, methods)

    def kept(self, n_active: int, n_qubits: int) -> dict[str, tuple[Kept, int]]:
        """Return what was saved on the way by name, still without values, and of how many qubits it is."""

        def fits(one: list[Any]) -> bool:
            if len(one) != 6 or type(one[0]) is not str or one[1] not in (*_STATES, "probabilities", "expectation"):
                return False
            widths = {"probabilities": range(64), "expectation": (0,)}.get(one[1], (n_active, n_qubits))
            are_right = (
                one[2] is None or type(one[2]) is str,
                self._is_integer(one[3], 0, 2**63),
                one[4] is None or self._is_integer(one[4], 1, 2**63),
                one[2] is not None or (type(one[5]) is int and one[5] in widths),
            )
            return all(are_right)

        found: dict[str, tuple[Kept, int]] = {}
        for name, kind, missing, visits, shots, width in self._listed("saved", fits):
            self.require(name not in found, "saved")
            one = Kept(kind)
            one.missing, one.visits, one._shots = missing, visits, shots
            found[name] = one, width
        return found


def _is_amount(value: Any) -> bool:
    return type(value) in (int, float) and 0 <= value <= 1e300
