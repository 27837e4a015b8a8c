"""The command `velacamplix`.

Exit status: 0 when all was done; 1 for a mistake in the circuit (line and column are told), a circuit that cannot be
run this way, a file or a standard stream that cannot be read or written, too little memory, or a package that is not
installed; 2 for a wrong command line or environment variable. Ctrl-C and a closed pipe end the process by their signals,
which a shell reports as 130 and 141.
"""

from __future__ import annotations

import argparse
import contextlib
import os
import signal
import sys
import threading
import warnings
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from ..basics.words import shortened
from ..circuit.circuit import Circuit
from ..distributed.ranks import launched_rank, launched_size, ranks_of
from ..machine import limits
from ..storage.storage import Storage
from . import options as command_line
from . import streams

FAILED, USAGE_ERROR = 1, 2


def main(arguments: list[str] | None = None) -> int:
    """Run the command with the given arguments, by default those of the process; return its exit status."""
    # Ctrl-C ends the process at once, also within a long pass over the state, and so does a reader, `head` for
    # example, that has seen enough.
    handlers = {number: signal.signal(number, signal.SIG_DFL) for number in (signal.SIGINT, signal.SIGPIPE)}
    streams.prepare()
    try:
        if sys.stdout is None:
            raise _Refused("standard output is closed")
        if launched_rank() > 0:  # what many ranks have to say, the first one says
            streams.let_go(sys.stdout)
        try:
            with warnings.catch_warnings():
                warnings.simplefilter("default")
                warnings.showwarning = _warn
                options = command_line.parser(_COMMANDS).parse_args(arguments)
                options.command(options)
        finally:
            sys.stdout.flush()
    except _Refused as refused:
        if not (refused.is_of_all_ranks and launched_rank() > 0):
            streams.tell(str(refused))
        return refused.status
    except OSError as error:
        # What goes wrong with files is told where they are opened.
        streams.let_go(sys.stdout)
        streams.tell(f"{error.filename or 'standard output'}: {error.strerror or error}")
        return FAILED
    finally:
        streams.settle()
        if arguments is not None:  # a caller in Python goes on, with its own way to hear Ctrl-C
            for number, handler in handlers.items():
                signal.signal(number, handler)
    return 0


def _run(options: argparse.Namespace) -> None:
    # Here rather than above: what running needs is not needed for --version.
    from ..running.run import run
    from . import picture, report

    if launched_size() > 1:
        return _run_on_ranks(options)
    name = "<standard input>" if options.file == "-" else options.file
    threads = _threads(options)
    if options.plot is not None:
        with _refusing(ValueError, "argument --plot: ", USAGE_ERROR), _refusing(ImportError):
            picture.require_writable(options.plot)
    storage = _storage(options)
    circuit = _ready(options, name)
    known = [observable for _, observable in options.observable]
    # ValueError: shots are missing, or angles whose sum is too large. RuntimeError: a loop that does not end.
    with _refusing((MemoryError, ValueError, RuntimeError), f"{name}: "), _ending_early(storage):
        if storage is not None and not options.progress:  # which tells it, too
            streams.tell(str(storage.plan(circuit, options.precision, options.schedule)))
        result = run(
            circuit, options.shots, options.seed, threads, options.precision, known or None, progress=options.progress,
            schedule=options.schedule, storage=storage,
        )  # fmt: skip
        expectations = report.expectations_of(result, options.observable)
        # First of all: a reader that stops early ends the process.
        if options.plot is not None:
            with _refusing((MemoryError, ValueError, OSError), f"{options.plot}: "):
                picture.save(options.plot, result, *report.places_of(circuit, result))
        show = report.run_as_json if options.json else report.run
        show(name, circuit, result, expectations, options.top)


def _storage(options: argparse.Namespace) -> Storage | None:
    """Return where the state is to lie; None for memory."""
    path = options.storage
    if path is None:
        for value, name in ((options.part_qubits, "--part-qubits"), (options.resume, "--resume")):
            if value:
                raise _Refused(f"argument {name}: is for a run with --storage PATH", USAGE_ERROR)
        return None
    if not options.resume:
        for there in (path, path + ".journal"):
            if os.path.lexists(there):
                raise _Refused(f"argument --storage: {there} is there already; delete it, or go on with it by --resume")
    with _refusing(ValueError, "argument --storage: ", USAGE_ERROR):
        return Storage(path, options.part_qubits, options.resume)


@contextlib.contextmanager
def _ending_early(storage: Storage | None) -> Iterator[None]:
    """Tell how far a run with a file has come, whatever ends it."""
    if storage is None:
        yield
        return
    in_main_thread = threading.current_thread() is threading.main_thread()
    if in_main_thread:
        signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        yield
    except (KeyboardInterrupt, OSError) as error:
        # Whoever raised it says how many parts are done, and how Python goes on.
        told = [note.partition(";")[0] for note in getattr(error, "__notes__", []) if " parts are done" in note]
        cure = [f"{one}; the same command with --resume goes on from there" for one in told]
        if isinstance(error, KeyboardInterrupt):
            for one in cure:
                streams.tell(one)
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            signal.raise_signal(signal.SIGINT)
        text = getattr(error, "strerror", None) or str(error)
        raise _Refused("; ".join([f"{storage.path}: {text}", *cure])) from None
    finally:
        if in_main_thread:
            signal.signal(signal.SIGINT, signal.SIG_DFL)


def _run_on_ranks(options: argparse.Namespace) -> None:
    """Run a file on all ranks of a launcher. Only the first reads it, and standard input, and prints."""
    from ..running.run import run
    from . import report

    name = "<standard input>" if options.file == "-" else options.file
    with _refusing(ImportError):
        ranks = ranks_of(None)
    if options.plot is not None:
        raise _Refused("argument --plot: many ranks make no pictures; run without mpirun", USAGE_ERROR, True)
    if options.shots is None:
        raise _Refused("argument --shots: must be given on many ranks, each of which has a part of the state", USAGE_ERROR, True)

    if options.storage is not None:
        message = "argument --storage: many ranks keep their parts in memory; run without mpirun"
        raise _Refused(message, USAGE_ERROR, True)

    def read() -> Circuit | _Refused:
        try:
            return _ready(options, name)
        except _Refused as refused:
            return refused

    circuit = ranks.first(read)
    if isinstance(circuit, _Refused):
        circuit.is_of_all_ranks = True
        raise circuit
    known = [observable for _, observable in options.observable]
    try:
        with _refusing((MemoryError, ValueError, RuntimeError), f"{name}: "):
            result = run(
                circuit, options.shots, options.seed, options.threads, options.precision, known or None,
                progress=options.progress, schedule=options.schedule, distributed=True,
            )  # fmt: skip
    except _Refused as refused:
        refused.is_of_all_ranks = True
        raise
    show = report.run_as_json if options.json else report.run
    show(name, circuit, result, report.expectations_of(result, options.observable), options.top)


def _ready(options: argparse.Namespace, name: str) -> Circuit:
    """Return the circuit of the file that is to be run."""
    circuit = _bound(_read(options.file, name)[0], name, options)
    _require_bound(circuit, name)
    for text, observable in options.observable:
        if observable.n_qubits > circuit.n_qubits:
            raise _Refused(
                f"argument --observable: {text!r} needs {observable.n_qubits} qubits, {name} has {circuit.n_qubits}",
                USAGE_ERROR,
            )
    return circuit


def _read(file: str, name: str) -> tuple[Circuit, int]:
    """Return the circuit of a file, and the version it is written in."""
    from ..qasm import QasmError, files, reader

    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            if file == "-":
                if sys.stdin is None:
                    raise OSError("it is closed")
                text, path = files.decoded(sys.stdin.buffer, name), None
            else:
                text, path = files.text_of(Path(file)), Path(file)
            version = reader.version_of(text)
            circuit = Circuit._read(reader.read(text, path, version))
        except QasmError as error:
            error.path = error.path or name
            raise _Refused(str(error)) from None
        except MemoryError:
            raise _Refused(f"{name}: the circuit does not fit into memory") from None
        except OSError as error:
            raise _Refused(f"{name}: {error.strerror or error}") from None
    for warning in caught:
        streams.tell(str(warning.message).replace("<text>", name))
    return circuit, version


def _bound(circuit: Circuit, file: str, options: argparse.Namespace) -> Circuit:
    """Return the circuit with the values of its inputs that are given."""
    if not options.settings:
        return circuit
    names = [name for name, _ in options.settings]
    if len(set(names)) < len(names):
        raise _Refused(f"argument --set: a name must be given one value, got {shortened(', '.join(names))}", USAGE_ERROR)
    with _refusing(ValueError, f"{file}: argument --set: ", USAGE_ERROR):
        return circuit.bind(dict(options.settings))


def _require_bound(circuit: Circuit, name: str) -> None:
    if circuit.parameters:
        names = shortened(", ".join(circuit.parameters))
        raise _Refused(f"{name}: inputs must have values, give them with --set NAME=VALUE: {names}")


def _convert(options: argparse.Namespace) -> None:
    name = "<standard input>" if options.file == "-" else options.file
    circuit, version = _read(options.file, name)
    circuit = _bound(circuit, name, options)
    wanted = options.to or {".qasm2": 2, ".qasm3": 3}.get(Path(options.output or "").suffix.lower(), 5 - version)
    if wanted == 2:
        _require_bound(circuit, name)
    with _refusing(ValueError, f"{name}: "):
        text = circuit.to_qasm() if wanted == 2 else circuit.to_qasm3()
    if options.output in (None, "-"):
        sys.stdout.buffer.write(text.encode())  # names may have letters that the terminal does not write
        return
    with _refusing(OSError, f"{options.output}: "):
        Path(options.output).write_text(text, encoding="utf-8")


def _info(options: argparse.Namespace) -> None:
    from . import report

    rows = []
    if launched_size() > 1:
        with _refusing((ImportError, ValueError)):
            rows = ranks_of(None).described()
    report.info(rows)


def _bench(options: argparse.Namespace) -> None:
    from . import bench

    threads = _threads(options)
    sizes = bench.sizes(options.qubits, options.precision)
    if not sizes:
        raise _Refused("not even the smallest state takes less than a quarter of the memory")
    answer = bench.measure(sizes, options.precision, threads, options.seconds, bench.tell)
    (bench.as_json if options.json else bench.show)(answer)


def _threads(options: argparse.Namespace) -> int:
    with _refusing(ValueError, status=USAGE_ERROR):
        return int(options.threads or limits.default_threads()[0])


def _completion(options: argparse.Namespace) -> None:
    from . import completion

    sys.stdout.write(completion.script(options.shell, command_line.parser(_COMMANDS)))


_COMMANDS = {"run": _run, "convert": _convert, "info": _info, "bench": _bench, "completion": _completion}


class _Refused(Exception):
    """Ends the command with a message and a status."""

    def __init__(self, message: str, status: int = FAILED, is_of_all_ranks: bool = False) -> None:
        super().__init__(message)
        self.status = status
        self.is_of_all_ranks = is_of_all_ranks  # of one launch: then the first tells it


@contextlib.contextmanager
def _refusing(kinds: Any, where: str = "", status: int = FAILED) -> Iterator[None]:
    try:
        yield
    except kinds as error:
        cure = "; give --shots N" if str(error).startswith("shots must be given") else ""
        raise _Refused(f"{where}{getattr(error, 'strerror', None) or error}{cure}", status) from None


def _warn(message: Any, *_: Any, **__: Any) -> None:
    # One line, like an error; where in the package it arose is of no use here.
    streams.tell(str(message))
