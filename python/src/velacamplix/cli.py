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
from typing import List, Optional

from . import Circuit, UnsupportedInstruction, __version__, _machine, _report

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
    run.set_defaults(command=_run)

    info = commands.add_parser(
        "info", help="tell what this machine can do", description="Tells version, instruction set, threads and memory."
    )
    info.set_defaults(command=_info)
    return parser


def _whole_number(text: str, most: Optional[int] = None) -> int:
    number = int(text) if text.isascii() and text.isdigit() else 0
    if number < 1 or (most is not None and number > most):
        allowed = "of at least 1" if most is None else f"from 1 to {most}"
        raise argparse.ArgumentTypeError(f"expected a whole number {allowed}, got {text!r}")
    return number


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

    try:
        _report.run(circuit, options.file, options.precision, threads, options.top)
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
