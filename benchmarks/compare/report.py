"""The comparison in words and tables, all of it made from the figures."""

from __future__ import annotations

import re
import textwrap
from collections import Counter
from pathlib import Path
from typing import Any, Dict, List

import cases
from figures import FUSED, OURS, Figures, lost, of_results, present, table_of

BEGIN = "<!-- comparison: begin, written by tools/compare -->"
END = "<!-- comparison: end -->"


def time_text(seconds: float) -> str:
    """Three significant digits, in s, ms or µs."""
    for unit, scale in (("s", 1.0), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= scale * 0.9995 or unit == "µs":
            value = seconds / scale
            digits = max(0, 2 - (len(str(int(value))) - 1)) if value >= 1 else 2
            return f"{value:.{digits}f} {unit}"
    raise AssertionError("unreachable")


def ratio_text(ratio: float) -> str:
    return f"{ratio:.2f}" if ratio < 10 else f"{ratio:.1f}"


def _rows(header: List[str], rows: List[List[str]]) -> List[str]:
    return ["| " + " | ".join(cells) + " |" for cells in (header, ["---"] * len(header), *rows)]


def _threads(threads: int) -> str:
    return f"{threads} thread" + ("s" if threads > 1 else "")


def time_table(cells: List[Figures]) -> List[str]:
    """One row per case, one column per simulator; the fastest figure of a row is bold."""
    names = present(cells)
    rows = []
    for cell in cells:
        fastest = min((best.seconds for best in cell.best.values()), default=0.0)
        row = [cases.CASES[cell.case].title]
        for name in names:
            if name not in cell.best:
                row.append("not offered" if name in cell.not_offered else "–")
                continue
            text = time_text(cell.best[name].seconds)
            row.append(f"**{text}**" if cell.best[name].seconds == fastest else text)
        for ours in [name for name in (OURS, FUSED) if name in names]:
            ratio = cell.times_faster(ours)
            row.append("–" if ratio is None else ratio_text(ratio))
        rows.append(row)
    ratios = ["fastest peer over velacamplix"]
    if FUSED in names:
        ratios.append("over fused")
    return _rows(["", *names, *ratios], rows)


def ratio_table(figures: List[Figures]) -> List[str]:
    """The time of the fastest peer over ours, for every size, precision and number of threads."""
    columns = list(dict.fromkeys((cell.n, cell.precision, cell.threads) for cell in figures))
    columns.sort(key=lambda column: (column[1], column[2], column[0]))
    rows = []
    for case in dict.fromkeys(cell.case for cell in figures):
        row = [cases.CASES[case].title]
        for column in columns:
            ratio = next(
                (c.times_faster() for c in figures if (c.case, (c.n, c.precision, c.threads)) == (case, column)), None
            )
            row.append("–" if ratio is None else f"**{ratio_text(ratio)}**" if ratio < 1 else ratio_text(ratio))
        rows.append(row)
    header = [f"{precision}, {_threads(threads)}, n = {n}" for n, precision, threads in columns]
    return _rows(["", *header], rows)


def losses(figures: List[Figures]) -> List[str]:
    found = lost(figures)
    compared = [cell for cell in figures if cell.times_faster() is not None]
    if not found:
        return [f"No peer was faster than velacamplix without fusion in any of the {len(compared)} cells with a peer."]
    lines = [f"A peer was faster than velacamplix without fusion in {len(found)} of {len(compared)} cells:", ""]
    for case in dict.fromkeys(cell.case for cell in found):
        places = [_loss(cell) for cell in found if cell.case == case]
        lines.append(f"- {cases.CASES[case].title}: " + "; ".join(places))
    return lines


def _loss(cell: Figures) -> str:
    peer = cell.fastest_peer
    assert peer is not None
    fused = cell.times_faster(FUSED)
    also = (
        "" if fused is None else ", faster than the fused run too" if fused < 1 else ", not faster than the fused run"
    )
    return (
        f"n = {cell.n}, {cell.precision}, {_threads(cell.threads)}: {peer} {time_text(cell.best[peer].seconds)} "
        f"against {time_text(cell.best[OURS].seconds)}{also}"
    )


def left_out(figures: List[Figures]) -> List[str]:
    """Figures that do not count, each setting told once, with what was wrong the first time."""
    places: Dict[str, List[str]] = {}
    reasons: Dict[str, str] = {}
    for cell in figures:
        for name, problem in cell.problems.items():
            reasons.setdefault(name, problem)
            where = f"{cell.case} (n = {cell.n}, {cell.precision})"
            if where not in places.setdefault(name, []):
                places[name].append(where)
    if not places:
        return ["Every setting of every simulator found the same as velacamplix, to rounding and chance."]
    return [
        "Left out, since they failed or did not find what velacamplix and another simulator or setting found:",
        "",
        *(f"- {name}: {', '.join(places[name])}; the first time, {reasons[name]}" for name in places),
    ]


def best_settings(figures: List[Figures]) -> List[str]:
    """How often each setting was its simulator's fastest, over all cells."""
    lines = []
    for name in [name for name in present(figures) if name not in (OURS, FUSED)]:
        won = Counter(cell.best[name].setting for cell in figures if name in cell.best)
        lines.append(f"- {name}: " + ", ".join(f"{setting} ({count})" for setting, count in won.most_common()))
    return lines


def describe(results: Dict[str, Any]) -> List[str]:
    versions = [f"{name} {text}" for listed in results["versions"].values() for name, text in listed.items()]
    machine = ", ".join(f"{name}: {text}" for name, text in results["machine"].items())
    return [
        f"Measured on {results['date']} with",
        "",
        f"    {results['command']}",
        "",
        *textwrap.wrap(f"Machine: {machine}.", 120),
        "",
        *textwrap.wrap(f"Versions: {', '.join(versions)}.", 120),
        "",
        "Timed is the way from a circuit object that stands ready (built, transpiled, optimised, translated) to the final",
        "state, the allocation of the state included, alike for all; in the three rows that begin with … on to shots,",
        "probabilities or the expectation value, after a short circuit whose own time is the row before them; a VQE step",
        "begins with new values for the parameters of a circuit that stands ready. Of Qiskit Aer its own clock counts, which",
        "leaves the conversion of the circuit out, but for the VQE step; there qsim, too, is called through its class for",
        "Cirq, while everywhere else it gets the circuit already translated. Every simulator",
        "runs in a process of its own; velacamplix and the peers take turns, and the median is told. A peer's figure is that",
        "of its fastest setting; settings that took over 1.5 times as long as that, and runs of over 20 s, were run once, and",
        f"what took over twice as long at one size was not tried at the next. Rounds per cell: at most {results['repeats']}.",
        "Qulacs has double precision only, qsim single. Before every run as much memory as the state takes is touched and",
        "given back: a virtual machine that has to ask its host for it would charge whoever comes first.",
    ]


def markdown(results: Dict[str, Any], picture: str) -> str:
    figures = of_results(results)
    n, threads = max(cell.n for cell in figures), max(cell.threads for cell in figures)
    lines = ["## Beside other simulators", "", *describe(results), ""]
    lines += [f"![Times of all simulators at n = {n}, on a logarithmic axis]({picture})", ""]
    for precision in dict.fromkeys(cell.precision for cell in figures):
        cells = table_of(figures, n, precision, threads)
        lines += [f"### n = {n}, {precision} precision, {_threads(threads)}", "", *time_table(cells), ""]
    lines += [
        "### All sizes",
        "",
        "The time of the fastest peer over that of velacamplix without fusion; in bold where the peer wins.",
        "",
    ]
    lines += [*ratio_table(figures), "", *losses(figures), "", *left_out(figures), ""]
    lines += ["How often each setting of a peer was its fastest:", "", *best_settings(figures), ""]
    return "\n".join(lines)


def write_between_markers(document: Path, text: str) -> None:
    """Replace what stands between the markers; at the document's end when it has none."""
    old = document.read_text() if document.exists() else ""
    block = f"{BEGIN}\n\n{text.strip()}\n\n{END}"
    if BEGIN in old:
        if old.count(BEGIN) != 1 or old.count(END) != 1 or old.index(END) < old.index(BEGIN):
            raise ValueError(f"{document} must hold the markers {BEGIN} and {END} once each, in this order")
        new = re.sub(re.escape(BEGIN) + ".*" + re.escape(END), lambda _: block, old, flags=re.DOTALL)
    else:
        new = old.rstrip() + "\n\n" + block + "\n" if old else block + "\n"
    document.write_text(new)
