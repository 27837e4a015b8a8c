"""The pictures of performance.md, drawn from the numbers of its tables in measured.csv, with the limits of the machine."""

import csv
import re
from pathlib import Path

MEASURED = Path(__file__).parent / "measured.csv"
BLUE, ORANGE, SKY, YELLOW, BLACK = "#0072b2", "#e69f00", "#56b4e9", "#f5d190", "#000000"
# Narrow, so that a telephone need not make the letters much smaller.
WIDTH = 5.4
STYLE = {"font.size": 8, "axes.spines.top": False, "axes.spines.right": False, "legend.frameon": False}


def measured():
    """Return the numbers by table, row and column."""
    tables = {}
    with open(MEASURED, encoding="utf-8", newline="") as file:
        for line in csv.DictReader(file):
            tables.setdefault(line["table"], {}).setdefault(line["row"], {})[line["column"]] = float(line["value"])
    return tables


def draw(folder):
    """Write all pictures into a folder."""
    from matplotlib import pyplot

    tables = measured()
    folder.mkdir(exist_ok=True)
    for plot in (circuits, sizes, loops, dense):
        with pyplot.rc_context({**STYLE, "svg.hashsalt": plot.__name__}):
            plot(pyplot, tables).savefig(folder / f"{plot.__name__}.svg", metadata={"Date": None})
        pyplot.close("all")


def sweep(tables, precision):
    """Return what an in-place sweep over the state of 24 qubits takes, in seconds."""
    [limit] = tables["limits"].values()
    return limit["ms"] * 1e-3 * (1.0 if precision == "double" else 0.5)


def seconds(row, n, kind):
    """Return a time of a circuit, in whichever unit its table tells it."""
    for unit, scale in (("s", 1.0), ("ms", 1e-3)):
        if f"n={n} {kind} {unit}" in row:
            return row[f"n={n} {kind} {unit}"] * scale
    raise KeyError((n, kind))


KINDS = {"double exact": BLUE, "double fused": SKY, "single exact": ORANGE, "single fused": YELLOW}


def circuits(pyplot, tables):
    """Times at n = 24, and what as many plain sweeps as there are passes would take."""
    figure, ax = pyplot.subplots(figsize=(WIDTH, 4.4), layout="constrained")
    rows = tables["circuits"]
    for place, row in enumerate(rows.values()):
        for number, (kind, colour) in enumerate(KINDS.items()):
            y = place + 0.2 * (number - 1.5)
            ax.barh(y, seconds(row, 24, kind), 0.18, color=colour, label=kind if place == 0 else None)
            limit = row[f"n=24 {kind} passes"] * sweep(tables, kind.split()[0])
            ax.plot([limit, limit], [y - 0.09, y + 0.09], color=BLACK, linewidth=1.2,
                    label="as many sweeps as passes" if place == number == 0 else None)  # fmt: skip
    ax.set_xscale("log")
    ax.set_yticks(range(len(rows)), [_wrapped(name) for name in rows])
    ax.invert_yaxis()
    ax.set_xlabel("seconds, n = 24")
    figure.legend(loc="outside upper left", ncols=3)
    return figure


def sizes(pyplot, tables):
    """Times by the number of qubits, and what one sweep takes."""
    figure, panels = pyplot.subplots(1, 2, sharey=True, figsize=(WIDTH, 3.6), layout="constrained")
    for ax, precision in zip(panels, ("double", "single")):
        for (name, row), mark in zip(tables["circuits"].items(), "osD^v"):
            for way, style in (("exact", "-"), ("fused", ":")):
                times = [seconds(row, n, f"{precision} {way}") for n in (20, 24, 27)]
                ax.plot((20, 24, 27), times, style, color=BLUE if way == "exact" else ORANGE, marker=mark, markersize=4,
                        linewidth=1, label=name if way == "exact" and ax is panels[0] else None)  # fmt: skip
        plain = sweep(tables, precision)
        ax.plot((24, 27), (plain, 8 * plain), color=BLACK, linewidth=1.2, label="one sweep" if ax is panels[0] else None)
        ax.set_yscale("log")
        ax.set_xticks((20, 24, 27))
        ax.set_xlabel(f"qubits, {precision} precision")
    panels[0].set_ylabel("seconds; fused dotted")
    figure.legend(loc="outside upper left", ncols=2)
    return figure


def loops(pyplot, tables):
    """Cycles of a gate's loop in the first-level cache before and after, and what its stores alone take."""
    figure, panels = pyplot.subplots(1, 3, sharey=True, figsize=(WIDTH, 3.8), layout="constrained")
    bars = []
    for name, row in tables["loops"].items():
        places = {column.partition(", ")[2] for column in row}
        bars += [(name, place) for place in sorted(places, key=lambda place: place.startswith("one place"))]
    # All but diagonals write every amplitude; of these the limit is known.
    bars = [(name, place) for name, place in bars if name[:2] in ("H,", "X,", "RX", "RY", "RZ") and "two places" not in name]
    for ax, (level, limit) in zip(panels, (("x86-64", 4), ("x86-64-v3", 2), ("x86-64-v4", 2))):
        for number, (name, place) in enumerate(bars):
            for way, colour, shift in (("before", SKY, -0.2), ("after", BLUE, 0.2)):
                value = tables["loops"][name][f"{level} {way}" + (f", {place}" if place else "")]
                ax.barh(number + shift, value, 0.38, color=colour, label=way if number == 0 and ax is panels[0] else None)
        ax.axvline(limit, color=BLACK, linewidth=1.2, label="stores alone" if ax is panels[0] else None)
        ax.set_xlabel(level)
    panels[0].set_yticks(range(len(bars)), [_short(name, place) for name, place in bars])
    panels[0].invert_yaxis()
    figure.legend(loc="outside upper left", ncols=3)
    return figure


def dense(pyplot, tables):
    """Dense matrices on 2 to 5 qubits, and what their arithmetic alone takes."""
    figure, ax = pyplot.subplots(figsize=(WIDTH, 3.2), layout="constrained")
    for place, row in enumerate(tables["dense"].values()):
        for number, (where, colour) in enumerate((("lowest", BLUE), ("spread", SKY), ("highest", ORANGE))):
            low, high = row[f"{where} least ms"], row[f"{where} most ms"]
            x = place + 0.27 * (number - 1)
            ax.bar(x, (low + high) / 2, 0.25, color=colour, yerr=(high - low) / 2, capsize=2, error_kw={"linewidth": 0.8},
                   label=f"{where} qubits" if place == 0 else None)  # fmt: skip
        ax.plot([place - 0.4, place + 0.4], [row["arithmetic ms"]] * 2, color=BLACK, linewidth=1.2,
                label="arithmetic alone" if place == 0 else None)  # fmt: skip
        plain = row["lowest least ms"] / row["lowest sweeps"]
        ax.plot([place - 0.4, place + 0.4], [plain] * 2, color=BLACK, linewidth=1.2, linestyle=":",
                label="one sweep, timed beside" if place == 0 else None)  # fmt: skip
    ax.set_xticks(range(len(tables["dense"])), [re.match(r"\d+", name)[0] for name in tables["dense"]])
    ax.set_xlabel("targets of the matrix, n = 24")
    ax.set_ylabel("milliseconds")
    ax.legend()
    return figure


def _wrapped(name):
    head, sep, tail = name.partition(": ")
    if sep:
        return f"{head}:\n{tail}".replace(", CNOT", ",\nCNOT")
    return name.replace(" on ", "\non ").replace(" from ", "\nfrom ")


def _short(name, place):
    gate, precision, where = (name.split(", ", 2) + [""])[:3]
    where = place or where
    return f"{gate}, {'one place above' if where.startswith('one place') else 'highest'}" + (", single" if precision == "single" else "")
