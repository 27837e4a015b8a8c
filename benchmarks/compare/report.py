"""The comparison in words and tables, all of it made from the figures."""

from __future__ import annotations

import re
import textwrap
from collections import Counter
from pathlib import Path
from typing import Any, Dict, List, Tuple

import cases
import reasons
from figures import FUSED, OURS, Figures, fullest_size, lost, of_results, present, table_of
from simulators import NAMES

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
    """The time of the fastest peer over ours, exact and with fusion, for every size and number of threads."""
    columns = sorted({(cell.threads, cell.n) for cell in figures})
    rows = []
    for case in dict.fromkeys(cell.case for cell in figures):
        row = [cases.CASES[case].title]
        for column in columns:
            found = [cell for cell in figures if (cell.case, (cell.threads, cell.n)) == (case, column)]
            row.append(_ratios(found[0]) if found else "–")
        rows.append(row)
    return _rows(["", *(f"{_threads(threads)}, n = {n}" for threads, n in columns)], rows)


def _ratios(cell: Figures) -> str:
    found = [ratio for ratio in map(cell.times_faster, (OURS, FUSED)) if ratio is not None]
    return " / ".join(f"**{ratio_text(ratio)}**" if ratio < 1 else ratio_text(ratio) for ratio in found) or "–"


def losses(figures: List[Figures]) -> List[str]:
    """A row for each circuit, precision, number of threads, way and reason for which a peer is ahead; then the reasons."""
    told, known = [], []
    sizes = sorted({cell.n for cell in figures})
    rows: Dict[Tuple[str, str, int, str, str], Dict[int, str]] = {}
    for way, words in ((OURS, "exact"), (FUSED, "fused")):
        found = lost(figures, way)
        compared = [cell for cell in figures if cell.times_faster(way) is not None]
        told.append(f"{len(found)} of {len(compared)} {words}")
        for cell in found:
            reason = reasons.of(cell, way)
            if reason and reason.text not in known:
                known.append(reason.text)
            why = f"({known.index(reason.text) + 1})" if reason else "not measured"
            where = cell.case, cell.precision, cell.threads, words, why
            ratio = cell.times_faster(way)
            assert ratio is not None
            rows.setdefault(where, {})[cell.n] = f"{ratio_text(ratio)} {cell.fastest_peer}"
    lines = [f"A peer is ahead in {' and in '.join(told)} cells."]
    if rows:
        order = list(cases.CASES)
        table = []
        for where in sorted(rows, key=lambda where: (order.index(where[0]), *where[1:])):
            case, precision, threads, words, why = where
            places = [rows[where].get(n, "") for n in sizes]
            table.append([cases.CASES[case].title, f"{precision}, {_threads(threads)}", words, *places, why])
        lines += ["", *_rows(["", "", "run", *(f"n = {n}" for n in sizes), "why"], table)]
    for number, text in enumerate(known, 1):
        lines += ["", *textwrap.wrap(f"({number}) {text}", 120)]
    return lines


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
    builds = "; ".join(f"{NAMES[key]}: {text or 'not known'}" for key, text in results["builds"].items())
    dates = " and ".join(sorted({run["date"] for run in results["runs"]}))
    return [
        f"Measured on {dates} with",
        "",
        *(f"    {run['command']}    # {run['minutes']} minutes" for run in results["runs"]),
        "",
        *textwrap.wrap(f"Machine: {machine}.", 120),
        "",
        *textwrap.wrap(f"Versions: {', '.join(dict.fromkeys(versions))}.", 120),
        "",
        *textwrap.wrap(f"Peers' builds: {builds or 'none'}.", 120),
        "",
        f"Rounds per cell: at most {max(run['repeats'] for run in results['runs'])}.",
    ]


def markdown(results: Dict[str, Any], picture: str) -> str:
    figures = of_results(results)
    n, threads = fullest_size(figures), max(cell.threads for cell in figures)
    precisions = list(dict.fromkeys(cell.precision for cell in figures))
    lines = [*describe(results), ""]
    lines += [f"![Time of velacamplix over that of the fastest peer, {_threads(threads)}]({picture})", ""]
    for precision in precisions:
        cells = table_of(figures, n, precision, threads)
        lines += [f"### n = {n}, {precision} precision, {_threads(threads)}", "", *time_table(cells), ""]
    lines += ["### All sizes", ""]
    lines += [
        "The time of the fastest peer over that of velacamplix, exact / fused; in bold where the peer is ahead.",
        "",
    ]
    for precision in precisions:
        lines += [f"{precision.capitalize()} precision:", ""]
        lines += [*ratio_table([cell for cell in figures if cell.precision == precision]), ""]
    lines += ["### Where a peer is ahead, and why", "", *losses(figures), ""]
    lines += ["### Settings, and what was left out", "", *left_out(figures), ""]
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
