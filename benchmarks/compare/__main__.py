"""Compares velacamplix with other simulators; run by tools/compare, which sees to the environments.

Usage: python benchmarks/compare --python PATH --peers PATH [options]
"""

from __future__ import annotations

import argparse
import datetime
import json
import sys
import time
from pathlib import Path
from typing import Any, Dict, List, Optional, Tuple

import agreement
import cases
import machine
import picture
import report
from cell import OURS, Cell
from crew import Crew, Worker
from simulators import NAMES

LISTED = (*cases.CIRCUITS, *cases.READINGS, cases.STEP, *cases.DERIVATIVES)
ROOT = Path(__file__).resolve().parents[2]
TRIAL_QUBITS = 11


def parsed(arguments: Optional[List[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="tools/compare", description=__doc__.split(";")[0] + ".")
    parser.add_argument("--python", metavar="PATH", help="an interpreter that has velacamplix (.venv's)")
    parser.add_argument("--peers", metavar="PATH", help="an interpreter that has the peers (one in build/)")
    parser.add_argument("--quick", action="store_true", help="16 and 20 qubits, one round, docs/ left as it is")
    parser.add_argument("--qubits", type=int, nargs="+", metavar="N", help="sizes (16 20 24)")
    parser.add_argument("--threads", type=int, nargs="+", metavar="N", help="numbers of threads (1 2)")
    parser.add_argument("--precisions", nargs="+", choices=("double", "single"), default=["double", "single"])
    parser.add_argument(
        "--cases", nargs="+", choices=[c.name for c in LISTED], metavar="CASE"
    )
    parser.add_argument(
        "--simulators", nargs="*", choices=[k for k in NAMES if k != OURS], help="peers (all)", metavar="PEER"
    )
    parser.add_argument("--repeats", type=int, help="rounds per cell, at most (3)")
    parser.add_argument("--cell-seconds", type=float, default=40, help="for the rounds of a cell after its first (40)")
    parser.add_argument("--minutes", type=float, default=20, help="from then on one round per cell (20)")
    parser.add_argument("--output", type=Path, default=ROOT / "build/compare", help="for results.json and the log")
    parser.add_argument("--no-docs", action="store_true", help="write report and picture to the output folder instead")
    parser.add_argument("--render", action="store_true", help="measure nothing; write the report of the last results")
    options = parser.parse_args(arguments)
    if not (options.python and options.peers):
        parser.error("both interpreters must be named here; tools/compare finds them by itself")
    options.qubits = sorted(options.qubits or ([16, 20] if options.quick else [16, 20, 24]))
    options.threads = sorted(options.threads or [1, 2])
    options.repeats = options.repeats or (1 if options.quick else 3)
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


def measure(crew: Crew, options: argparse.Namespace) -> Tuple[List[Cell], List[str]]:
    """All cells, small ones first. Also returns what must not be passed over."""
    listed = [case for case in LISTED if not options.cases or case.name in options.cases]
    end = time.monotonic() + 60 * options.minutes
    failures: List[str] = []
    cells: List[Cell] = []
    hopeless: Dict[Tuple[str, str, int], Dict[str, List[str]]] = {}
    for n in options.qubits:
        for precision in options.precisions:
            for threads in options.threads:
                for case in [case for case in listed if n <= case.most_qubits]:
                    cell = Cell(case, n, precision, threads)
                    print(f"{time.strftime('%H:%M:%S')}  {cell}", end="", flush=True)
                    cell.prepare(crew.with_threads(threads), hopeless.get((case.name, precision, threads), {}))
                    cell.measure(options.repeats if time.monotonic() < end else 1, options.cell_seconds)
                    for simulator, settings in cell.hopeless().items():
                        known = hopeless.setdefault((case.name, precision, threads), {}).setdefault(simulator, [])
                        known += [setting for setting in settings if setting not in known]
                    failures += [f"{cell}: {failure}" for failure in cell.failures()]
                    cells.append(cell)
                    print("  " + _told(cell), flush=True)
    return cells, failures


def _told(cell: Cell) -> str:
    times: Dict[str, float] = {}
    for entry in cell.entries:
        if entry.counts:
            times[entry.simulator] = min([*entry.seconds, times.get(entry.simulator, float("inf"))])
    return ", ".join(f"{simulator} {report.time_text(seconds)}" for simulator, seconds in times.items())


def write(results: Dict[str, Any], options: argparse.Namespace) -> None:
    docs = options.output if options.quick or options.no_docs else ROOT / "docs"
    document = docs / "performance.md"
    picture.draw(results, docs / "pictures/comparison.png")
    report.write_between_markers(document, report.markdown(results, "pictures/comparison.png"))
    print(f"written: {document}, {docs / 'pictures/comparison.png'}")


def _command(arguments: List[str]) -> str:
    """How to measure the same again: without the folders of this one time."""
    told: List[str] = []
    rest = iter(arguments)
    for word in rest:
        if word.split("=")[0] in ("--python", "--peers", "--output"):
            if "=" not in word:
                next(rest, "")
        else:
            told.append(word)
    return " ".join(["tools/compare", *told])


def main(arguments: Optional[List[str]] = None) -> int:
    options = parsed(arguments)
    options.output.mkdir(parents=True, exist_ok=True)
    results_file = options.output / "results.json"
    if options.render:
        write(json.loads(results_file.read_text()), options)
        return 0
    peers = [key for key in NAMES if key != OURS] if options.simulators is None else options.simulators
    log = options.output / "workers.log"
    log.write_text("")
    with Crew({OURS: options.python, **{key: options.peers for key in peers}}, log) as crew:
        versions = {worker.simulator: worker.versions for worker in crew.with_threads(options.threads[0])}
        failures = [problem for threads in options.threads for problem in compare_whole_states(crew, options, threads)]
        print("whole states: " + ("; ".join(failures) or "all agree"), flush=True)
        cells, more = measure(crew, options)
        failures += more
    results = {
        "date": datetime.date.today().isoformat(),
        "command": _command(sys.argv[1:] if arguments is None else arguments),
        "machine": machine.describe(),
        "versions": versions,
        "repeats": options.repeats,
        "failures": failures,
        "cells": [cell.as_record() for cell in cells],
    }
    results_file.write_text(json.dumps(results, indent=1) + "\n")
    if failures:
        print(
            "\nThese do not agree or failed, so nothing is written but results.json:",
            *failures,
            sep="\n  ",
            file=sys.stderr,
        )
        return 1
    write(results, options)
    return 0


if __name__ == "__main__":
    sys.exit(main())
