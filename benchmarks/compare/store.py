"""The results of several commands as one: what is measured again takes the place of what was there, all else stays."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any, Dict, Iterable, List, Optional, Set, Tuple

Results = Dict[str, Any]
Key = Tuple[str, int, str, int]


def key(record: Dict[str, Any]) -> Key:
    """Which cell this is."""
    return record["case"], record["n"], record["precision"], record["threads"]


def simulators(record: Dict[str, Any]) -> Set[str]:
    """Those with a figure in this cell."""
    return {entry["simulator"] for entry in record["entries"] if entry["seconds"]}


def read(path: Path) -> Optional[Results]:
    return json.loads(path.read_text()) if path.exists() else None


def write(path: Path, results: Results) -> None:
    """One cell on a line, so that a difference shows what was measured anew."""
    path.parent.mkdir(parents=True, exist_ok=True)
    head = json.dumps({name: value for name, value in results.items() if name != "cells"}, indent=1, ensure_ascii=False)
    cells = ",\n".join(json.dumps(cell, ensure_ascii=False) for cell in results["cells"])
    path.write_text(head[: head.rindex("\n}")] + ',\n "cells": [\n' + cells + "\n ]\n}\n", encoding="utf-8")


def difference(stored: Results, new: Results) -> str:
    """Why the figures of the two must not stand in one table; empty where they may."""
    for name in sorted({*stored["machine"], *new["machine"]}):
        if stored["machine"].get(name) != new["machine"].get(name):
            return f"{name} was {stored['machine'].get(name)!r} and is {new['machine'].get(name)!r}"
    for what in ("versions", "builds"):
        for name in sorted(set(stored[what]) & set(new[what])):
            if stored[what][name] != new[what][name]:
                return f"{what} of {name} were {stored[what][name]!r} and are {new[what][name]!r}"
    return ""


def lacking(stored: Results, planned: Iterable[Key], offered: Iterable[str]) -> Dict[str, List[Key]]:
    """Simulators whose figures would be lost, if only those of `offered` took part in the planned cells."""
    cells, found = set(planned), {}
    for record in stored["cells"]:
        if key(record) in cells:
            for simulator in simulators(record) - set(offered):
                found.setdefault(simulator, []).append(key(record))
    return found


def merged(stored: Optional[Results], new: Results, order: List[str]) -> Results:
    """`new` in the place of what it measured again; cases of a size in the given order. Commands that nothing is left of go."""
    if stored is None:
        stored = {"versions": {}, "builds": {}, "runs": [], "cells": []}
    runs = [*stored["runs"], *new["runs"]]
    measured = {key(record) for record in new["cells"]}
    cells = [record for record in stored["cells"] if key(record) not in measured]
    cells += [{**record, "run": record["run"] + len(stored["runs"])} for record in new["cells"]]
    used = sorted({record["run"] for record in cells})
    cells.sort(key=lambda record: (record["n"], record["precision"], record["threads"], order.index(record["case"])))
    return {
        "machine": new["machine"],
        "versions": {**stored["versions"], **new["versions"]},
        "builds": {**stored["builds"], **new["builds"]},
        "runs": [runs[number] for number in used],
        "cells": [{**record, "run": used.index(record["run"])} for record in cells],
    }
