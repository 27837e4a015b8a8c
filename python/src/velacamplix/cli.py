"""The command `velacamplix`.

Exit status of `velacamplix run`: 0 when it ran; 2 when the file cannot be read, or the command line or
VELACAMPLIX_NUM_THREADS is wrong; 3 for a mistake in the file (line and column are told); 4 when the state does not fit
into memory; 5 for a correct circuit that cannot be run this way.
"""

from __future__ import annotations

import argparse
import os
import signal
import sys
from pathlib import Path
from typing import List, Optional, Tuple

from . import Circuit, Observable, UnsupportedInstruction, __version__, _check, _machine, _report, _results

USAGE_ERROR, SYNTAX_ERROR, MEMORY_ERROR, UNSUPPORTED = 2, 3, 4, 5


def main(arguments: Optional[List[str]] = None) -> int:
    """Run the command with the given arguments, by default those of the process; return its exit status."""
    # Ctrl-C ends the process at once. Python's own handler would wait for the core to return from a long circuit.
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    options = _parser().parse_args(arguments)
    try:
        status = options.command(options)
        sys.stdout.flush()
        return status
    except BrokenPipeError:
        # The reader, `head` for example, has seen enough. Python would complain once more at its own last flush.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="velacamplix", description="Simulates quantum circuits on this machine.")
    parser.add_argument("--version", action="version", version=f"velacamplix {__version__}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")

    run = commands.add_parser(
        "run",
        help="run an OpenQASM 2 file",
        description="Runs an OpenQASM 2 file and shows its most probable outcomes.",
    )
    run.add_argument("file", metavar="FILE.qasm", help="the circuit")
    run.add_argument(
        "--threads",
        type=lambda text: _whole_number(text, _machine.MOST_THREADS),
        metavar="N",
        help="number of threads (default: all this process may use)",
    )
    run.add_argument("--precision", choices=["double", "single"], default="double", help="default: %(default)s")
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
    run.add_argument("--json", action="store_true", help="print one JSON object, with all counts, and nothing else")
    run.set_defaults(command=_run)

    info = commands.add_parser(
        "info", help="tell what this machine can do", description="Tells version, instruction set, threads and memory."
    )
    info.set_defaults(command=_info)
    return parser


def _whole_number(text: str, most: int = 2**63 - 1, least: int = 1) -> int:
    # No number of more digits is within bounds, and int() refuses thousands of them.
    number = int(text) if text.isascii() and text.isdigit() and len(text) < 100 else -1
    if not least <= number <= most:
        allowed = f"of at least {least}" if most == 2**63 - 1 else f"from {least} to {most}"
        raise argparse.ArgumentTypeError(f"expected a whole number {allowed}, got {_check.show(text)}")
    return number


def _observable(text: str) -> Tuple[str, Observable]:
    try:
        return text, Observable(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None


def _run(options: argparse.Namespace) -> int:
    # Here rather than above: the grammar is not needed for --version.
    from .qasm import QasmError

    try:
        circuit = Circuit.from_qasm(Path(options.file))
    except QasmError as error:
        return _fail(str(error), SYNTAX_ERROR)
    except OSError as error:
        return _fail(f"{options.file}: {error.strerror or error}", USAGE_ERROR)

    try:
        threads = options.threads or _machine.default_threads()[0]
    except ValueError as error:
        return _fail(str(error), USAGE_ERROR)

    for text, observable in options.observable:
        if observable.n_qubits > circuit.n_qubits:
            return _fail(
                f"argument --observable: {text!r} needs {observable.n_qubits} qubits, {options.file} has "
                f"{circuit.n_qubits}",
                USAGE_ERROR,
            )

    try:
        results = _results.collect(
            circuit, options.precision, threads, options.top, options.shots, options.seed, options.observable
        )
        if options.json:
            _report.run_as_json(options.file, results)
        else:
            _report.run(options.file, results, options.top)
    except MemoryError as error:
        return _fail(f"{options.file}: {error}", MEMORY_ERROR)
    except UnsupportedInstruction as error:
        return _fail(f"{options.file}: {error}", UNSUPPORTED)
    except ValueError as error:
        # An angle beyond single precision, for one.
        return _fail(f"{options.file}: {error}", UNSUPPORTED)
    return 0


def _info(options: argparse.Namespace) -> int:
    _report.info()
    return 0


def _fail(message: str, status: int) -> int:
    print(f"velacamplix: {message}", file=sys.stderr)
    return status
