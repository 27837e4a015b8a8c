"""The command `velacamplix`.

Exit status: 0 when all was done; 1 for a mistake in the circuit (line and column are told), a circuit that cannot be
run this way, a file or a standard stream that cannot be read or written, too little memory, or a package that is not
installed; 2 for a wrong command line or environment variable. Ctrl-C and a closed pipe end the process by their signals,
which a shell reports as 130 and 141.
"""

from __future__ import annotations

import argparse
import contextlib
import signal
import sys
import warnings
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from ..basics import checks
from ..circuit.circuit import Circuit
from ..core import extension
from ..machine import limits
from ..observables.observable import Observable
from . import streams

FAILED, USAGE_ERROR = 1, 2

_STATUS = """
exit status:
  0    all was done
  1    the circuit is wrong or cannot be run, a file or a standard stream cannot
       be read or written, the state does not fit into memory, or a package is
       not installed
  2    the command line or VELACAMPLIX_NUM_THREADS is wrong
  130  interrupted by Ctrl-C
  141  the reader of the output went away
"""

_MAIN_EXAMPLES = """
examples:
  velacamplix run circuit.qasm              exact probabilities
  velacamplix run circuit.qasm --shots 1000
  velacamplix info                          threads, memory, largest state
  velacamplix bench                         a minute of measurements

`velacamplix COMMAND --help` tells more.
"""

_RUN_EXAMPLES = """
examples:
  velacamplix run ghz.qasm --top 4
  velacamplix run ghz.qasm --shots 10000 --seed 7 --plot ghz.png
  velacamplix run ansatz.qasm --observable "Z0 Z1" --observable=-X0
  generate | velacamplix run - --json | jq .probabilities

Without --shots the probabilities are exact. A circuit with more than one
possible outcome in its middle needs --shots. Outcomes are those of the
classical bits that were measured, or of all qubits if none was; the first one
is leftmost.
"""

_BENCH_EXAMPLES = """
examples:
  velacamplix bench --seconds 10
  velacamplix bench --threads 1 --precision single --json > before.json
"""


def main(arguments: list[str] | None = None) -> int:
    """Run the command with the given arguments, by default those of the process; return its exit status."""
    # Ctrl-C ends the process at once, also within a long pass over the state, and so does a reader, `head` for
    # example, that has seen enough.
    handlers = {number: signal.signal(number, signal.SIG_DFL) for number in (signal.SIGINT, signal.SIGPIPE)}
    streams.prepare()
    try:
        if sys.stdout is None:
            raise _Refused("standard output is closed")
        try:
            with warnings.catch_warnings():
                warnings.simplefilter("default")
                warnings.showwarning = _warn
                options = _parser().parse_args(arguments)
                options.command(options)
        finally:
            sys.stdout.flush()
    except _Refused as refused:
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


class _Parser(argparse.ArgumentParser):
    def _print_message(self, message: str, file: Any = None) -> None:
        # argparse would drop what standard output does not take; before Python 3.11.3 it fails at any stream that is full.
        if message and file is sys.stdout:
            file.write(message)
        else:
            with contextlib.suppress(OSError):
                super()._print_message(message, file)


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(
        prog="velacamplix",
        description="Simulates quantum circuits on this machine.",
        epilog=_MAIN_EXAMPLES + _STATUS,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("--version", action="version", version=f"velacamplix {extension.version()}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    _add_run(commands)
    _add_info(commands)
    _add_bench(commands)
    return parser


def _add_run(commands: argparse._SubParsersAction[_Parser]) -> None:
    run = commands.add_parser(
        "run",
        help="run an OpenQASM file",
        description="Runs an OpenQASM file and shows its most probable or most frequent\noutcomes.",
        epilog=_RUN_EXAMPLES + _STATUS,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    run.add_argument("file", metavar="FILE.qasm", help="the circuit; - reads standard input")
    _add_machine_options(run)
    run.add_argument(
        "--top", type=_whole_number, default=10, metavar="K", help="outcomes to show (default: %(default)s)"
    )
    run.add_argument(
        "--shots", type=_whole_number, metavar="N", help="draw N outcomes and count them (default: exact probabilities)"
    )
    run.add_argument(
        "--seed",
        type=lambda text: _whole_number(text, 2**32 - 1, least=0),
        metavar="S",
        help="of the random numbers; the same seed gives the same shots (default: by chance)",
    )
    run.add_argument(
        "--observable",
        type=_observable,
        action="append",
        default=[],
        metavar="TEXT",
        help='show an expectation value, as of "0.5*X0 Y2 - 1.2*Z1 + 3"; with --shots, also an estimate. May be '
        "repeated. A text that starts with a minus is written --observable=-Z0",
    )
    run.add_argument(
        "--plot", metavar="FILE.png", help="draw the outcomes into a file; its ending tells the format (needs matplotlib)"
    )
    run.add_argument(
        "--progress", action="store_true", help="show a bar on standard error if the run takes more than a second"
    )
    run.add_argument("--json", action="store_true", help="print one JSON object, with all counts, and nothing else")
    run.set_defaults(command=_run)


def _add_info(commands: argparse._SubParsersAction[_Parser]) -> None:
    info = commands.add_parser(
        "info", help="tell what this machine can do", description="Tells version, instruction set, threads and memory."
    )
    info.set_defaults(command=_info)


def _add_bench(commands: argparse._SubParsersAction[_Parser]) -> None:
    bench = commands.add_parser(
        "bench",
        help="measure the speed here",
        description="Measures gates, circuits and shots of several sizes, beside what the\nmemory allows.",
        epilog=_BENCH_EXAMPLES + _STATUS,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    _add_machine_options(bench)
    bench.add_argument(
        "--seconds", type=_whole_number, default=60, metavar="S", help="how long to measure, about (default: %(default)s)"
    )
    bench.add_argument(
        "--qubits",
        type=lambda text: _whole_number(text, 40),
        metavar="N",
        help="largest state (default: 26, or what fits into a quarter of the memory)",
    )
    bench.add_argument("--json", action="store_true", help="print one JSON object and nothing else")
    bench.set_defaults(command=_bench)


def _add_machine_options(parser: argparse.ArgumentParser) -> None:
    parser.add_argument(
        "--threads",
        type=lambda text: _whole_number(text, limits.MOST_THREADS),
        metavar="N",
        help="number of threads (default: all this process may use)",
    )
    parser.add_argument("--precision", choices=["double", "single"], default="double", help="default: %(default)s")


def _whole_number(text: str, most: int = 2**63 - 1, least: int = 1) -> int:
    # No number of more digits is within bounds, and int() refuses thousands of them.
    number = int(text) if text.isascii() and text.isdigit() and len(text) < 100 else -1
    if not least <= number <= most:
        allowed = f"of at least {least}" if most == 2**63 - 1 else f"from {least} to {most}"
        raise argparse.ArgumentTypeError(f"expected a whole number {allowed}, got {checks.show(text)}")
    return number


def _observable(text: str) -> tuple[str, Observable]:
    try:
        return text, Observable(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None


def _run(options: argparse.Namespace) -> None:
    # Here rather than above: what running needs is not needed for --version.
    from ..running.run import run
    from . import picture, report

    name = "<standard input>" if options.file == "-" else options.file
    threads = _threads(options)
    if options.plot is not None:
        with _refusing(ValueError, "argument --plot: ", USAGE_ERROR), _refusing(ImportError):
            picture.require_writable(options.plot)
    circuit = _read(options.file, name)
    for text, observable in options.observable:
        if observable.n_qubits > circuit.n_qubits:
            raise _Refused(
                f"argument --observable: {text!r} needs {observable.n_qubits} qubits, {name} has {circuit.n_qubits}",
                USAGE_ERROR,
            )

    known = [observable for _, observable in options.observable]
    # ValueError: shots are missing, or angles whose sum is too large. RuntimeError: a loop that does not end.
    with _refusing((MemoryError, ValueError, RuntimeError), f"{name}: "):
        result = run(
            circuit, options.shots, options.seed, threads, options.precision, known or None, progress=options.progress
        )
        expectations = report.expectations_of(result, options.observable)
        # First of all: a reader that stops early ends the process.
        if options.plot is not None:
            with _refusing((MemoryError, ValueError, OSError), f"{options.plot}: "):
                picture.save(options.plot, result, *report.places_of(circuit, result))
        show = report.run_as_json if options.json else report.run
        show(name, circuit, result, expectations, options.top)


def _read(file: str, name: str) -> Circuit:
    from ..qasm import QasmError, files

    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            if file != "-":
                circuit = Circuit.from_qasm(Path(file))
            else:
                if sys.stdin is None:
                    raise OSError("it is closed")
                text = files.decoded(sys.stdin.buffer, name)
                # A text of one line could be taken for the name of a file.
                circuit = Circuit.from_qasm(text if "\n" in text else text + "\n")
        except QasmError as error:
            error.path = error.path or name
            raise _Refused(str(error)) from None
        except MemoryError:
            raise _Refused(f"{name}: the circuit does not fit into memory") from None
        except OSError as error:
            raise _Refused(f"{name}: {error.strerror or error}") from None
    for warning in caught:
        streams.tell(str(warning.message).replace("<text>", name))
    return circuit


def _info(options: argparse.Namespace) -> None:
    from . import report

    report.info()


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


class _Refused(Exception):
    """Ends the command with a message and a status."""

    def __init__(self, message: str, status: int = FAILED) -> None:
        super().__init__(message)
        self.status = status


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
