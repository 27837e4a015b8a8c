"""The command line of `velacamplix`: commands, options, and what their help says."""

from __future__ import annotations

import argparse
import contextlib
import sys
from collections.abc import Callable, Mapping
from typing import Any

from ..basics import checks
from ..core import extension
from ..machine import limits
from ..observables.observable import Observable
from ..programs.schedule import require_schedule

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
  velacamplix convert old.qasm -o new.qasm3
  velacamplix info                          threads, memory, largest state
  velacamplix bench                         a minute of measurements

`velacamplix COMMAND --help` tells more.
"""

_RUN_EXAMPLES = """
examples:
  velacamplix run ghz.qasm --top 4
  velacamplix run ghz.qasm --shots 10000 --seed 7 --plot ghz.png
  velacamplix run ansatz.qasm --observable "Z0 Z1" --observable=-X0
  velacamplix run ansatz.qasm3 --set theta=pi/4
  velacamplix run large.qasm --shots 100 --storage /scratch/state --progress
  generate | velacamplix run - --json | jq .probabilities

Without --shots the probabilities are exact. A circuit with more than one
possible outcome in its middle needs --shots. Outcomes are those of the
classical bits that were measured, or of all qubits if none was; the first one
is leftmost.
"""

_CONVERT_EXAMPLES = """
examples:
  velacamplix convert old.qasm -o new.qasm3
  velacamplix convert new.qasm3 --to 2 > old.qasm
"""

_COMPLETION_EXAMPLES = """
examples:
  source <(velacamplix completion bash)          in ~/.bashrc
  source <(velacamplix completion zsh)           in ~/.zshrc, behind compinit
  velacamplix completion fish | source           in ~/.config/fish/config.fish
"""

_BENCH_EXAMPLES = """
examples:
  velacamplix bench --seconds 10
  velacamplix bench --threads 1 --precision single --json > before.json
"""


class _Parser(argparse.ArgumentParser):
    def _print_message(self, message: str, file: Any = None) -> None:
        # argparse would drop what standard output does not take; before Python 3.11.3 it fails at any stream that is full.
        if message and file is sys.stdout:
            file.write(message)
        else:
            with contextlib.suppress(OSError):
                super()._print_message(message, file)


def parser(commands: Mapping[str, Callable[[argparse.Namespace], None]]) -> argparse.ArgumentParser:
    """Return the parser; `commands` holds what each of them does."""
    whole = _Parser(
        prog="velacamplix",
        description="Simulates quantum circuits on this machine.",
        epilog=_MAIN_EXAMPLES + _STATUS,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    whole.add_argument("--version", action="version", version=f"velacamplix {extension.version()}")
    known = whole.add_subparsers(required=True, metavar="COMMAND")

    def command(name: str, says: str, description: str, examples: str = "") -> argparse.ArgumentParser:
        added = known.add_parser(
            name,
            help=says,
            description=description,
            epilog=examples + _STATUS if examples else None,
            formatter_class=argparse.RawDescriptionHelpFormatter,
        )
        added.set_defaults(command=commands[name])
        return added

    description = (
        "Runs an OpenQASM file, version 2 or 3 by its first line, and shows its most\nprobable or most frequent outcomes."
    )
    _add_run_options(command("run", "run an OpenQASM file", description, _RUN_EXAMPLES))
    description = "Writes an OpenQASM file in the other version of the language."
    _add_convert_options(command("convert", "write an OpenQASM file in another version", description, _CONVERT_EXAMPLES))
    command("info", "tell what this machine can do", "Tells version, instruction set, threads and memory.")
    description = "Measures gates, circuits and shots of several sizes, beside what the\nmemory allows."
    _add_bench_options(command("bench", "measure the speed here", description, _BENCH_EXAMPLES))
    description = "Prints a script that lets a shell complete commands and options."
    shells = command("completion", "print a completion script for a shell", description, _COMPLETION_EXAMPLES)
    shells.add_argument("shell", choices=["bash", "zsh", "fish"], help="for which shell")
    return whole


def _add_run_options(run: argparse.ArgumentParser) -> None:
    _add_file(run)
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
        help='show an expectation value, as of "0.5*X0 Y2 - 1.2*Z1 + 3"; with --shots, also an estimate, '
        "unless the state lies in a file. May be repeated. A text that starts with a minus is written --observable=-Z0",
    )
    run.add_argument(
        "--plot", metavar="FILE.png", help="draw the outcomes into a file; its ending tells the format (needs matplotlib)"
    )
    run.add_argument(
        "--progress", action="store_true", help="show a bar on standard error if the run takes more than a second"
    )
    run.add_argument("--json", action="store_true", help="print one JSON object, with all counts, and nothing else")
    run.add_argument(
        "--schedule",
        type=_schedule,
        default="written",
        metavar="NAME",
        help='the order of the gates: "written", or "canonical:10", in which commuting gates have changed places as serves '
        "2**10 ranks best, and a file, too (default: %(default)s)",
    )
    run.add_argument(
        "--storage",
        metavar="PATH",
        help="keep the state in a file, for states that are larger than memory; the results are the same. What the run "
        "takes of disk and memory is told before. The file and PATH.journal stay",
    )
    run.add_argument(
        "--part-qubits",
        type=lambda text: _whole_number(text, 50),
        metavar="K",
        help="with --storage: three parts of 2**K amplitudes are in memory (default: the largest that fit)",
    )
    run.add_argument("--resume", action="store_true", help="with --storage: go on where an earlier run ended early")


def _add_convert_options(convert: argparse.ArgumentParser) -> None:
    _add_file(convert)
    convert.add_argument("-o", "--output", metavar="FILE", help="where to write it (default: standard output)")
    convert.add_argument(
        "--to",
        type=int,
        choices=[2, 3],
        help="the version to write (default: by the output's ending, .qasm2 or .qasm3, or else the other one)",
    )


def _add_bench_options(bench: argparse.ArgumentParser) -> None:
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


def _add_file(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="FILE.qasm", help="the circuit; - reads standard input")
    command.add_argument(
        "--set",
        type=_setting,
        action="append",
        default=[],
        dest="settings",
        metavar="NAME=VALUE",
        help="the value of an input of the circuit, such as theta=pi/4. May be repeated",
    )


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


def _schedule(text: str) -> str:
    try:
        require_schedule(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None
    return text


def _observable(text: str) -> tuple[str, Observable]:
    try:
        return text, Observable(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None


def _setting(text: str) -> tuple[str, float]:
    from ..qasm import QasmError
    from ..qasm.expressions import ParameterLists
    from ..qasm.source import Source

    name, _, value = text.partition("=")
    try:
        (number,), _ = ParameterLists(Source(value + ")")).read(0)
        return name.strip(), float(number)  # type: ignore[arg-type]
    except (QasmError, TypeError, ValueError):
        told = f"expected a name and a number, such as theta=pi/4, got {checks.show(text)}"
        raise argparse.ArgumentTypeError(told) from None
