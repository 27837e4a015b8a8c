"""Calls the public interface with random arguments, many of them odd.

Every call returns, or raises a documented exception that says something. After an exception the objects hold what they held;
at all times a state has norm 1, a circuit holds instructions that it would take, counts hold outcomes, and everything can be
shown. A call that ends the process, or does not end, is a failure too: a second process watches the first.

    python python/fuzz/calls.py 1000 [SEED]             that many sessions, always the same ones; from seed 1 on
    python python/fuzz/calls.py --seconds 60 [SEED]     as many as there is time for; from a random seed on

A session that fails ends the run with status 1 and the call that repeats it.
"""

import array
import copy
import decimal
import fractions
import inspect
import itertools
import math
import os
import pickle
import random
import select
import subprocess
import sys
import tempfile
import time
import traceback
import warnings

import numpy as np

import velacamplix
from velacamplix import (
    Channel,
    Circuit,
    Counts,
    DensityMatrix,
    GateDefinition,
    Instruction,
    NoiseModel,
    Observable,
    Parameter,
    ParameterVector,
    StateVector,
    run,
)
from velacamplix.basics import checks as _check
from velacamplix.instructions import checked as _check_circuit

# What a call may raise, whatever it is given. AttributeError: a property that cannot be set.
DOCUMENTED = (TypeError, ValueError, IndexError, KeyError, MemoryError, BufferError, RuntimeError, OSError, AttributeError)
LONGEST_MESSAGE = 2000
SECONDS_OF_A_SESSION = 120

# Needs other packages, or trusts its caller; `index` is that of every sequence in Python.
LEFT_OUT = {"from_qasm3", "to_frame", "checked", "value_from", "compiled", "place", "index", "plot_counts", "plot_probabilities", "plot_state"}


class Mischief(Exception):
    """What an argument raises by itself."""


class Odd:
    """An argument that does something else than to answer: `act` is called whenever it is asked for anything."""

    def __init__(self, act, answer):
        self.act, self.answer = act, answer

    def __index__(self):
        self.act()
        return self.answer if isinstance(self.answer, int) else 0

    def __float__(self):
        self.act()
        return float(self.answer)

    def __iter__(self):
        self.act()
        return iter([self.answer])

    def __array__(self, *_, **__):
        self.act()
        return np.array([self.answer, 0])


class Lying(str):
    __eq__ = __contains__ = lambda self, other: True
    __ne__ = lambda self, other: False
    __len__ = lambda self: 2
    __iter__ = lambda self: iter("01")
    __str__ = __repr__ = __format__ = lambda self, *_: "other"
    __hash__ = lambda self: hash("big")


class Session:
    """A few objects, and some calls of their methods."""

    def __init__(self, seed):
        self.rng = random.Random(seed)
        self.numbers = np.random.default_rng(seed)
        self.log = []
        n, m = self.rng.randint(0, 4), self.rng.randint(0, 4)
        self.objects = [self.state(n), self.state(self.rng.randint(0, 4)), self.circuit(n, m), self.circuit(3, 2)]
        self.objects += [Observable("0.5*X0 Y1 - Z2 + 1"), Counts({"00": 3, "11": 4}), 2 * Parameter("x") + 1, Parameter("y")]
        self.objects += [GateDefinition("pair", Circuit(2).rx(Parameter("x"), 0).cx(0, 1)), run(Circuit(3).h(0).cx(0, 2), shots=5, seed=1), ParameterVector("x", 3)]
        rho = DensityMatrix(self.rng.randint(0, 3), self.rng.choice(["single", "double"]), seed=7)
        for qubit in range(rho.n_qubits):
            rho.ry(0.3 + qubit, qubit).channel(Channel.amplitude_damping(0.2), qubit)
        noise = NoiseModel().after("rx", Channel.depolarizing(0.1)).readout(0.1, 0.2)
        self.objects += [rho, Channel.depolarizing(0.1, 2), Channel.amplitude_damping(0.3), noise]
        self.objects += [run(Circuit(2).rx(0.5, 0), shots=5, seed=1, noise=noise, method="trajectories")]
        self.free_norm = set()  # ids of states whose norm a call was allowed to change

    def state(self, n):
        state = StateVector(n, self.rng.choice(["single", "double"]), self.rng.choice([None, 1, 2]), seed=7)
        for qubit in range(n):
            state.ry(0.3 + qubit, qubit).rz(0.7, qubit)
        return state

    def circuit(self, n, m):
        circuit = Circuit(n, m)
        for _ in range(self.rng.randint(0, 6) if n else 0):
            qubits = self.rng.sample(range(n), min(n, 2))
            circuit.rx(self.rng.choice([0.5, Parameter("x")]), qubits[0]).h(qubits[-1])
            if len(qubits) == 2:
                circuit.cx(*qubits)
            if m and self.rng.random() < 0.3:
                circuit.measure(qubits[0], self.rng.randrange(m))
        return circuit

    # --- Arguments ---

    def fitting(self, name):
        """A value that a parameter of this name might take."""
        rng = self.rng
        some = rng.sample(range(4), rng.randint(1, 3))
        if name.startswith(("qubit", "control", "target", "clbit", "address", "value_q")) or name in ("positions", "marked"):
            return rng.choice([rng.randint(0, 3), some, tuple(some), np.array(some), range(2), []])
        if name in ("angle", "theta", "phi", "lam", "gamma", "beta", "coefficient"):
            return rng.choice([0.5, -3, Parameter("x"), 2 * Parameter("y") + 1, np.float32(0.3), math.pi])
        if name in ("matrix", "entries", "data", "array", "state", "initial", "out"):
            return rng.choice([self.unitary(rng.randint(0, 2)), self.amplitudes(rng.randint(0, 4)), [1, 0], [1, -1], None, 0, "01", "+-0"])
        if name in ("circuit", "other"):
            return self.circuit(rng.randint(0, 4), rng.randint(0, 3))
        if name in ("observable", "observables", "terms"):
            return rng.choice(["X0", "0.5*Z0 Z1 + Y2 - 1", {"XZ": 2}, [(1j, "Y", [0])], Observable("Z0"), ["Z0", "X1"]])
        choices = {
            "order": ["big", "little"], "precision": ["single", "double"], "shots": [0, 1, 20], "seed": [0, 5, None],
            "threads": [1, 2, None], "outcome": ["0", "01", 0, 3], "value": [0, 1, "0", "1", 0.5], "times": [0, 1, 3], "exponent": [-1, 0, 2], "num_controls": [1, 2], "k": [1, 3],
            "n": [0, 3], "time": [0.3, Parameter("x")], "steps": [1, 3], "n_qubits": [0, 3], "n_clbits": [0, 2], "n_bits": [2, 3], "definition": [self.objects[8]],
            "instruction": [Instruction("X", (0,)), Instruction("RX", (1,), (0.5,), (0,)), Instruction("measure", (0,), clbits=(0,))],
            "path_or_text": ["OPENQASM 2.0; qreg q[2]; U(1,2,3) q[0];", "qreg q[1]; creg c[1]; measure q -> c;"],
            "counts": [{"01": 2}, {1: 5}], "values": [{"x": 0.5}, [1], {"x": 1, "y": 2}], "params": [(), (0.5,), ("x",)],
            "threshold": [0, 0.1], "name": ["mine", "q", "c"], "progress": [None, lambda progress: None], "registers": [None],
            "channel": [Channel.bit_flip(0.1), Channel.amplitude_damping(0.2), Channel.depolarizing(0.1, 2)],
            "noise": [None, NoiseModel(), NoiseModel().after(["rx", "cx"], Channel.bit_flip(0.1)), NoiseModel().readout(0.1, 0.2)],
            "method": ["auto", "exact", "trajectories"], "first_shot": [0, 3, 2**63], "gates": ["rx", ["h", "cx"], "measure"],
            "durations": [{"rx": 1.0, "h": 0, "cx": 2}], "probabilities": [[0.5, 0.5], [1], {"X": 0.1, "I": 0.9}, {"XZ": 0.25}],
            "matrices": [[np.eye(2)], [np.eye(2), np.diag([1, -1])], [np.diag([1, 0]), np.diag([0, 1])]],
            "p": [0, 0.1, 1], "p0": [0.1], "p1": [0.2], "p1_given_0": [0, 0.1], "p0_given_1": [0.2, 1], "t1": [50, math.inf], "t2": [70, math.inf],
            "calibration": [{"qubits": [{"t1": 5, "t2": 6}], "gates": [{"gate": "h", "error": 0.1, "duration": 1}]}],
            "key": ["00", "11"], "control_values": [None, 0, 1, "0", "10", [0, 1]], "letters": ["X", "XYZ", "IZ", "ZZ"], "width": [None, 40, 100],
        }  # fmt: skip
        return rng.choice(choices.get(name, [True, False, 0, 1]))

    def unitary(self, n):
        matrix = self.numbers.normal(size=(2**n, 2**n)) + 1j * self.numbers.normal(size=(2**n, 2**n))
        return np.linalg.qr(matrix)[0]

    def amplitudes(self, n):
        vector = self.numbers.normal(size=2**n) + 1j * self.numbers.normal(size=2**n)
        return vector / np.linalg.norm(vector)

    def odd(self):
        """A value that hardly any parameter takes."""
        rng, n = self.rng, self.rng.randint(0, 4)
        kind = rng.randrange(10)
        if kind < 3:
            return rng.choice(
                [None, True, ..., NotImplemented, -1, 2, 5, 63, 64, 100, 2**31, 2**63, 2**64, -(2**63), 10**30, 10**5000, -(10**5000),
                 0.5, -0.0, math.nan, math.inf, -math.inf, 1e308, 5e-324, 1j, complex(math.nan, 0), fractions.Fraction(1, 3),
                 decimal.Decimal("NaN"), decimal.Decimal("1e400"), fractions.Fraction(10**5000, 3)]
            )  # fmt: skip
        if kind < 5:
            return rng.choice(
                ["", "0", "01", "0102", "+-01", "abc", "\0", "\ud800", "é", "x" * 10_000, "0" * 5000, Lying("01"), Lying("x"), "big ",
                 b"01", b"", bytearray(b"01"), memoryview(b"0123"), array.array("d", [1, 0]), "1e999*Z0", "Z0 " * 1000, "(" * 3000]
            )  # fmt: skip
        if kind < 7:
            return rng.choice(
                [[], (), {}, set(), [[]], [[], []], [0, 0], [0, "a"], [None], [1, [2]], {0: 1}, {"a": None}, {"0": -1}, {"01": 10**5000},
                 frozenset([0]), range(3), range(10**12), iter([0, 1]), (i for i in (0, 1, 2)), [[1, 0], [0, 1, 2]], [math.nan, 0],
                 [10**5000, 0], object(), object, len, lambda: 0, Session, np, "x".join, [0.5] * 16, [1] + [0] * 15, itertools.chain()]
            )  # fmt: skip
        if kind < 9:
            return self.odd_array(n)
        return self.troublemaker()

    def odd_array(self, n):
        rng, vector, matrix = self.rng, self.amplitudes(n), self.unitary(self.rng.randint(0, 3))
        raw = np.zeros(2 * 2**n + 1)
        misaligned = raw[1:].view(complex)
        misaligned[0] = 1
        odd_bytes = np.zeros(16 * 2**n + 3, dtype=np.uint8)[3:].view(complex)
        odd_bytes[0] = 1
        fixed = vector.copy()
        fixed.flags.writeable = False
        wide = np.zeros((2**n, 3), dtype=complex)
        wide[:, 1] = vector
        states = [item for item in self.objects if isinstance(item, StateVector) and item._core is not None]
        shared = [view for state in states for view in (state.array, state.array[::-1], state.array[: 2**n])]
        found = rng.choice(
            [misaligned, odd_bytes, fixed, wide[:, 1], vector[::-1], vector.astype(">c16"), vector.astype(np.complex64),
             vector.astype(np.clongdouble), vector.real, np.zeros(2**n), np.full(2**n, np.nan), np.full(2**n, np.inf), vector * 1e308,
             vector.reshape(1, -1), vector.reshape((2,) * n), np.array(1.0), np.array([]), np.array([0, 1], dtype=object),
             np.array([None, 1]), np.array(["0", "1"]), np.array([b"0"]), np.zeros(2, dtype="f4,c8"), np.array([True, False]),
             np.array([0, 1], dtype=np.int8), np.array([0, 2**63], dtype=np.uint64), np.arange(4, dtype=np.float16),
             np.broadcast_to(np.array([1.0]), 2**n), np.ma.masked_array(vector, mask=True), np.datetime64("2000-01-01"),
             matrix, np.asfortranarray(matrix), matrix[::-1], matrix * 2, matrix[:, :1], np.zeros((2**30, 0)), np.matrix(np.eye(2)),
             np.float32(0.5), np.int64(1), np.bool_(True), np.complex64(1j), np.array([1, 0], dtype="m8"), *shared]
        )  # fmt: skip
        return found

    def troublemaker(self):
        """An argument that changes the objects while they look at it."""
        rng = self.rng
        target = rng.choice(self.objects)

        def act():
            kind = rng.randrange(5)
            if kind == 0:
                raise Mischief
            if isinstance(target, (StateVector, DensityMatrix)):
                if kind == 1:
                    target.__init__(rng.randint(0, 4), rng.choice(["single", "double"]))
                elif kind == 2:
                    target.release()
                elif target._core is not None and target.n_qubits:
                    target.h(0)
            elif isinstance(target, Circuit):
                if kind == 1:
                    target.__init__(rng.randint(0, 4))
                elif target.n_qubits:
                    target.h(0)
            elif isinstance(target, Counts):
                target.clear()

        self.acted = False

        def noted():
            self.acted = True
            act()

        return Odd(noted, rng.choice([0, 1, 0.5, 2**70, math.nan]))

    def argument(self, name):
        draw = self.rng.random()
        if draw < 0.65:
            return self.fitting(name)
        return self.odd() if draw < 0.95 else self.rng.choice(self.objects)

    def arguments(self, function):
        try:
            parameters = list(inspect.signature(function).parameters.values())
        except (TypeError, ValueError):
            return [self.odd() for _ in range(self.rng.randint(0, 2))], {}
        listed, named = [], {}
        for parameter in parameters:
            if parameter.kind in (parameter.VAR_POSITIONAL, parameter.VAR_KEYWORD):
                continue
            if parameter.default in (parameter.empty, ...):  # the latter may have another name
                if self.rng.random() < 0.98:
                    listed.append(self.argument(parameter.name))
            elif self.rng.random() < 0.3:
                named[parameter.name] = self.argument(parameter.name)
        if self.rng.random() < 0.01:
            named["nonsense"] = 1
        return listed, named

    # --- Calls ---

    def one_call(self):
        if self.rng.random() < 0.15:
            name = self.rng.choice([name for name in velacamplix.__all__ if name not in LEFT_OUT])
            function = getattr(velacamplix, name)
            owner = None
        else:
            owner = self.rng.choice(self.objects)
            name = self.rng.choice([name for name in dir(type(owner)) if not name.startswith("_") and name not in LEFT_OUT] + SPECIAL)
            function = SPECIAL_CALLS.get(name)
            if name in OPERATORS and not hasattr(type(owner), f"__{name}__"):
                return  # the other operand would answer
            if function is not None:
                function = self.special(function, owner)
            elif isinstance(getattr(type(owner), name, None), property) or not callable(getattr(type(owner), name, None)):
                function = self.property_of(owner, name)
            else:
                function = getattr(owner, name)
        if inspect.isclass(function) and issubclass(function, BaseException):
            return
        if name == "run":
            self.note_norm(owner)
        listed, named = self.arguments(function)
        for item in (*listed, *named.values(), owner):
            if isinstance(item, (StateVector, DensityMatrix)) and ("check" in named or name in ("run", "matrix", "__setstate__")):
                self.note_norm(item)
        shown = [_check.show(item) for item in listed] + [f"{word}={_check.show(item)}" for word, item in named.items()]
        self.log.append(f"{'' if owner is None else type(owner).__name__ + '.'}{name}({', '.join(shown)})")
        before = None if owner is None else held(owner)
        self.acted = False
        try:
            result = function(*listed, **named)
            if name == "when":
                with result:
                    pass
        except Mischief:
            return
        except ZeroDivisionError:
            assert name == "truediv"
            return
        except DOCUMENTED as error:
            check_message(error, owner, name)
            if not self.acted and owner is not None:
                assert same(held(owner), before), f"changed by a call that failed: {error!r}"
            return
        if isinstance(result, (StateVector, DensityMatrix, Channel, NoiseModel, Circuit, Counts, Observable)) and len(self.objects) < 25:
            if not (isinstance(result, (StateVector, DensityMatrix)) and result.n_qubits > (10 if isinstance(result, StateVector) else 5)):
                self.objects.append(result)
                if id(owner) in self.free_norm:
                    self.note_norm(result)

    def note_norm(self, item):
        if isinstance(item, (StateVector, DensityMatrix)):
            self.free_norm.add(id(item))

    def special(self, function, owner):
        takes = len(inspect.signature(function).parameters) - 1
        if takes:
            return lambda other=None: function(owner, other)
        return lambda: function(owner)

    def property_of(self, owner, name):
        if self.rng.random() < 0.7 or not isinstance(getattr(type(owner), name, None), property):
            return lambda: getattr(owner, name)
        return lambda value=None: setattr(owner, name, value)

    def check(self):
        for item in self.objects:
            check_object(item, id(item) in self.free_norm)


def _restored(item):
    again = pickle.loads(pickle.dumps(item))
    if isinstance(item, (Circuit, Channel, NoiseModel)):
        assert again == item
    return again


SPECIAL_CALLS = {
    "repr": lambda item: repr(item), "str": lambda item: str(item), "copy": lambda item: copy.copy(item),
    "deepcopy": lambda item: copy.deepcopy(item), "pickle": lambda item: _restored(item),
    "eq": lambda item, other: item == other, "hash": lambda item: hash(item), "len": lambda item: len(item),
    "list": lambda item: list(itertools.islice(iter(item), 1000)), "item": lambda item, other: item[other],
    "add": lambda item, other: item + other, "mul": lambda item, other: item * other, "contains": lambda item, other: other in item,
    "html": lambda item: item._repr_html_() if hasattr(item, "_repr_html_") else None, "format": lambda item, other: format(item, other),
    "truediv": lambda item, other: item / other, "pow": lambda item, other: item**other, "neg": lambda item: -item,
}  # fmt: skip
SPECIAL = list(SPECIAL_CALLS)
OPERATORS = {"add", "mul", "truediv", "pow"}


def held(item):
    """What an object holds, to compare before and after."""
    if isinstance(item, (StateVector, DensityMatrix)):
        return None if item._core is None else (item.n_qubits, item.precision, item.array.tobytes())
    if isinstance(item, (Channel, NoiseModel)):
        return item.to_dict()
    if isinstance(item, Circuit):
        return (item.n_qubits, item.n_clbits, item.registers, item.instructions)
    if isinstance(item, Counts):
        return (dict(item), item.n_bits)
    return None


def same(first, second):
    return first == second


def check_message(error, owner, name):
    if isinstance(error, KeyError) and isinstance(owner, dict):
        return  # a dictionary's own method says nothing but the key
    told = str(error.args[0]) if isinstance(error, KeyError) and error.args else str(error)
    assert told or isinstance(error, MemoryError), f"{type(error).__name__} says nothing"
    # The system's own name the file, Python's own the format.
    assert len(told) <= LONGEST_MESSAGE or isinstance(error, OSError) or name == "format", f"{type(error).__name__} says too much: {told[:200]}"
    assert "Exceeds the limit" not in told, told
    assert type(error) not in (RecursionError, NotImplementedError), f"{type(error).__name__}: {told}"


def check_object(item, free_norm):
    assert len(repr(item)) < 10**6 or isinstance(item, (Counts, Observable))
    if isinstance(item, StateVector) and item._core is not None:
        assert item.array.size == 2**item.n_qubits
        if not free_norm:
            norm = float(np.linalg.norm(item.array.astype(complex)))
            assert abs(norm - 1) < 1e-3, f"the norm is {norm}"
    elif isinstance(item, DensityMatrix) and item._core is not None:
        assert item.array.shape == (2**item.n_qubits,) * 2
        if not free_norm:
            assert abs(item.trace() - 1) < 1e-3, f"the trace is {item.trace()}"
            assert np.allclose(item.array, item.array.conj().T, atol=1e-3)
    elif isinstance(item, Channel):
        total = sum(kraus.conj().T @ kraus for kraus in item.kraus())
        assert np.allclose(total, np.eye(2**item.n_qubits), atol=1e-10)
    elif isinstance(item, Circuit):
        for step in item.instructions[-50:]:
            assert _check_circuit.instruction(step, item.n_qubits, item.n_clbits) == step, step
    elif isinstance(item, Counts):
        for outcome, times in item.items():
            assert type(outcome) is str and len(outcome) == item.n_bits and not outcome.strip("01") and times >= 0, item


def one_session(seed):
    session = Session(seed)
    try:
        for _ in range(session.rng.randint(3, 25)):
            session.one_call()
            session.check()
    except BaseException:
        print("calls:", *session.log, sep="\n    ", file=sys.stderr)
        raise


# --- The process that calls, and the one that watches ---


def work(first, count):
    """Run sessions, and tell the number of each before it begins."""
    warnings.simplefilter("ignore")
    np.seterr(all="ignore")
    watcher = os.dup(1)
    os.dup2(2, 1)  # whatever else is written belongs elsewhere
    for seed in range(first, first + count):
        os.write(watcher, f"{seed}\n".encode())
        try:
            one_session(seed)
        except BaseException:
            traceback.print_exc()
            sys.exit(1)


def watch(first, count, seconds, folder):
    """Start the process that calls, in a folder for what it saves.

    Return None or the seed at which it went wrong, and how many sessions went well.
    """
    end = time.monotonic() + seconds
    command = [sys.executable, os.path.abspath(__file__), "--work", str(first), str(count)]
    process = subprocess.Popen(command, stdout=subprocess.PIPE, cwd=folder)
    assert process.stdout is not None
    current, told = first, b""
    while True:
        ready, _, _ = select.select([process.stdout], [], [], SECONDS_OF_A_SESSION)
        piece = os.read(process.stdout.fileno(), 65536) if ready else b""
        if not piece:
            if not ready:
                print(f"a session did not end within {SECONDS_OF_A_SESSION} s", file=sys.stderr)
                process.kill()
            break
        told += piece
        lines = told.split(b"\n")
        told = lines.pop()
        current = int(lines[-1]) if lines else current
        if time.monotonic() > end:
            process.kill()
            process.wait()
            return None, current - first
    status = process.wait()
    if status < 0:
        print(f"the process ended by signal {-status}", file=sys.stderr)
    return (current if status else None), current - first + (not status)


def main():
    arguments = sys.argv[1:]
    if arguments[:1] == ["--work"]:
        work(int(arguments[1]), int(arguments[2]))
        return
    by_time = arguments[:1] == ["--seconds"]
    if by_time:
        del arguments[0]
    if not 1 <= len(arguments) <= 2:
        sys.exit("usage: calls.py COUNT [SEED] | calls.py --seconds S [SEED]")
    first = int(arguments[1]) if len(arguments) == 2 else random.randrange(2**40) if by_time else 1
    print(f"from seed {first} on", file=sys.stderr)
    count, seconds = (2**40, float(arguments[0])) if by_time else (int(arguments[0]), math.inf)
    with tempfile.TemporaryDirectory() as folder:
        failed, well = watch(first, count, seconds, folder)
    if failed is not None:
        sys.exit(f"again: {sys.executable} {os.path.abspath(__file__)} 1 {failed}")
    print(f"{well} sessions went well")


if __name__ == "__main__":
    main()
