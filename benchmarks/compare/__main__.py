"""Compares velacamplix with other simulators; run by tools/compare, which sees to the environments.

Usage: python benchmarks/compare --python PATH --peers PATH [options]
"""

from __future__ import annotations

import argparse
import datetime
import sys
import time
from pathlib import Path
from typing import Any, Dict, List, Optional, Tuple

import agreement
import cases
import machine
import picture
import report
import store
from cell import OURS, Cell, hopeless
from crew import Crew, Worker
from simulators import NAMES, NATIVE

LISTED = (*cases.CIRCUITS, *cases.READINGS, cases.STEP, *cases.DERIVATIVES)
ROOT = Path(__file__).resolve().parents[2]
TRIAL_QUBITS = 11


def parsed(arguments: Optional[List[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="tools/compare", description=__doc__.split(";")[0] + ".")
    parser.add_argument("--python", metavar="PATH", help="an interpreter that has velacamplix (.venv's)")
    parser.add_argument("--peers", metavar="PATH", help="an interpreter that has the peers (one in build/)")
    parser.add_argument("--native-python", metavar="PATH", help="one that has Qulacs compiled for this processor")
    parser.add_argument("--quick", action="store_true", help="16 and 20 qubits, one round, docs/ left as it is")
    parser.add_argument("--qubits", type=int, nargs="+", metavar="N", help="sizes (16 20 24 27)")
    parser.add_argument("--threads", type=int, nargs="+", metavar="N", help="numbers of threads (1 2)")
    parser.add_argument("--precisions", nargs="+", choices=("double", "single"), default=["double", "single"])
    parser.add_argument("--cases", nargs="+", choices=[c.name for c in LISTED], metavar="CASE")
    parser.add_argument(
        "--simulators", nargs="*", choices=[k for k in NAMES if k != OURS], help="peers (all)", metavar="PEER"
    )
    parser.add_argument("--repeats", type=int, help="rounds per cell, at most (3)")
    parser.add_argument("--cell-seconds", type=float, default=40, help="for the rounds of a cell after its first (40)")
    parser.add_argument("--minutes", type=float, default=20, help="from then on one round per cell (20)")
    parser.add_argument(
        "--output", type=Path, default=ROOT / "build/compare", help="for the log and the results of this command"
    )
    parser.add_argument("--no-docs", action="store_true", help="write everything to the output folder instead of docs/")
    parser.add_argument(
        "--fresh", action="store_true", help="begin anew instead of adding to the results that are stored"
    )
    parser.add_argument("--render", action="store_true", help="measure nothing; write the report of the stored results")
    options = parser.parse_args(arguments)
    if not (options.python and options.peers):
        parser.error("both interpreters must be named here; tools/compare finds them by itself")
    options.qubits = sorted(options.qubits or ([16, 20] if options.quick else [16, 20, 24, 27]))
    options.threads = sorted(options.threads or [1, 2])
    options.repeats = options.repeats or (1 if options.quick else 3)
    if options.simulators is None:
        options.simulators = [key for key in NAMES if key != OURS and (options.native_python or key not in NATIVE)]
    if not options.native_python and not options.render:
        for key in [key for key in options.simulators if key in NATIVE]:
            parser.error(f"{key} is compiled by yourself: --native-python must name the interpreter that has it")
    return options


def compare_whole_states(crew: Crew, options: argparse.Namespace, threads: int) -> List[str]:
    """Everyone's state of every circuit, before anything is timed. Returns what disagrees."""
    found = []
    expected: Dict[Tuple[str, str], agreement.Answer] = {}
    for worker in crew.with_threads(threads):
        for precision in [p for p in worker.precisions if p in options.precisions]:
            for case in (cases.TRIAL, *cases.CIRCUITS):
                for problem in _whole_state(worker, case, precision, expected):
                    found.append(f"{worker.simulator}, {case.name}, {precision}, {problem}")
        worker.forget()
    return found


def _whole_state(
    worker: Worker, case: cases.Case, precision: str, expected: Dict[Tuple[str, str], agreement.Answer]
) -> List[str]:
    task = {
        "case": case.name,
        "n": TRIAL_QUBITS,
        "precision": precision,
        "threads": worker.threads,
        "whole_state": True,
    }
    found = []
    for setting in worker.settings("state", precision, TRIAL_QUBITS):
        if worker.prepare("state", task, setting) is not None:
            continue
        answer = worker.run("state", answer=True).answer
        assert answer is not None
        ours = expected.setdefault((case.name, precision), answer)
        problem = agreement.difference("state", precision, TRIAL_QUBITS, ours, answer)
        if problem:
            found.append(f"{setting}: {problem}")
    return found


def planned(options: argparse.Namespace) -> List[Cell]:
    """All cells, small ones first."""
    listed = [case for case in LISTED if not options.cases or case.name in options.cases]
    return [
        Cell(case, n, precision, threads)
        for n in options.qubits
        for precision in options.precisions
        for threads in options.threads
        for case in listed
        if n <= case.most_qubits
    ]


def measure(
    crew: Crew, cells: List[Cell], stored: List[Dict[str, Any]], options: argparse.Namespace
) -> Tuple[List[Dict[str, Any]], List[str]]:
    """Returns what is to be stored of the cells, and what must not be passed over."""
    end = time.monotonic() + 60 * options.minutes
    failures: List[str] = []
    records: List[Dict[str, Any]] = []
    for cell in cells:
        print(f"{time.strftime('%H:%M:%S')}  {cell}", end="", flush=True)
        cell.prepare(crew.with_threads(cell.threads), _slow(cell, [*stored, *records]))
        cell.measure(options.repeats if time.monotonic() < end else 1, options.cell_seconds)
        failures += [f"{cell}: {failure}" for failure in cell.failures()]
        records.append({**cell.as_record(), "run": 0})
        print("  " + _told(cell), flush=True)
    return records, failures


def _slow(cell: Cell, records: List[Dict[str, Any]]) -> Dict[str, List[str]]:
    """Settings that smaller sizes of the same case have ruled out, by simulator."""
    found: Dict[str, List[str]] = {}
    for record in records:
        if (record["case"], record["precision"], record["threads"]) == (cell.case.name, cell.precision, cell.threads):
            for simulator, settings in hopeless(record).items() if record["n"] < cell.n else ():
                found.setdefault(simulator, []).extend(settings)
    return found


def _told(cell: Cell) -> str:
    times: Dict[str, float] = {}
    for entry in cell.entries:
        if entry.counts:
            times[entry.simulator] = min([*entry.seconds, times.get(entry.simulator, float("inf"))])
    return ", ".join(f"{simulator} {report.time_text(seconds)}" for simulator, seconds in times.items())


def folder(options: argparse.Namespace) -> Path:
    """Where report, picture and stored results are."""
    return options.output if options.quick or options.no_docs else ROOT / "docs"


def write(results: Dict[str, Any], options: argparse.Namespace) -> None:
    docs = folder(options)
    document = docs / "performance.md"
    picture.draw(results, docs / "pictures/comparison.png")
    report.write_between_markers(document, report.markdown(results, "pictures/comparison.png"))
    print(f"written: {document}, {docs / 'pictures/comparison.png'}")


def _command(arguments: List[str]) -> str:
    """How to measure the same again: without the folders of this one time."""
    told: List[str] = []
    rest = iter(arguments)
    for word in rest:
        option = word.split("=")[0]
        if option in ("--python", "--peers", "--output", "--native-python"):
            if "=" not in word:
                next(rest, "")
            if option == "--native-python":
                told += [option, "PATH"]
        else:
            told.append(word)
    return " ".join(["tools/compare", *told])


def main(arguments: Optional[List[str]] = None) -> int:
    options = parsed(arguments)
    options.output.mkdir(parents=True, exist_ok=True)
    stored_file = folder(options) / "comparison.json"
    stored = None if options.fresh else store.read(stored_file)
    if options.render:
        if stored is None:
            print(f"tools/compare: there are no results in {stored_file}", file=sys.stderr)
            return 1
        write(stored, options)
        return 0
    cells = planned(options)
    if stored is not None:
        keys = [(cell.case.name, cell.n, cell.precision, cell.threads) for cell in cells]
        lost = store.lacking(stored, keys, [OURS, *options.simulators])
        if lost:
            told = "; ".join(f"{NAMES[simulator]} in {len(cells)} cells" for simulator, cells in lost.items())
            print(f"tools/compare: {stored_file} has figures that would be lost: {told}. Name these in --simulators (for "
                  "a native one with --native-python), measure other cells, or begin --fresh.", file=sys.stderr)  # fmt: skip
            return 1
    begin = time.monotonic()
    pythons = {key: options.native_python if key in NATIVE else options.peers for key in options.simulators}
    log = options.output / "workers.log"
    log.write_text("")
    with Crew({OURS: options.python, **pythons}, log) as crew:
        workers = crew.with_threads(options.threads[0])
        results: Dict[str, Any] = {
            "machine": machine.describe(),
            "versions": {worker.simulator: worker.versions for worker in workers},
            "builds": {worker.simulator: worker.build() for worker in workers if worker.simulator != OURS},
        }
        other = stored and store.difference(stored, results)
        if other:
            print(f"tools/compare: {stored_file} is of something else: {other}; --fresh begins anew", file=sys.stderr)
            return 1
        failures = [problem for threads in options.threads for problem in compare_whole_states(crew, options, threads)]
        print("whole states: " + ("; ".join(failures) or "all agree"), flush=True)
        results["cells"], more = measure(crew, cells, stored["cells"] if stored else [], options)
        failures += more
    run = {
        "date": datetime.date.today().isoformat(),
        "command": _command(sys.argv[1:] if arguments is None else arguments),
        "repeats": options.repeats,
        "minutes": round((time.monotonic() - begin) / 60, 1),
    }
    results["runs"] = [run]
    store.write(options.output / "results.json", results)
    if failures:
        print(
            "\nThese do not agree or failed, so nothing is written but results.json:",
            *failures,
            sep="\n  ",
            file=sys.stderr,
        )
        return 1
    results = store.merged(stored, results, [case.name for case in LISTED])
    store.write(stored_file, results)
    write(results, options)
    return 0


if __name__ == "__main__":
    sys.exit(main())
