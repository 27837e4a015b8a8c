#!/usr/bin/env python3
"""Writes the methods that add gates, from the table of gates: python/src/velacamplix/instructions/gate_methods.py

    .venv/bin/python tools/regen.py            write it anew, after a change of instructions/gates.py
    .venv/bin/python tools/regen.py --check    only tell whether it is what the table says; status 1 if not

It loads the sources without the extension, which need not be built; NumPy must be there.
"""

import importlib
import sys
import types
from pathlib import Path

PACKAGE = Path(__file__).resolve().parent.parent / "python/src/velacamplix"
TARGET = PACKAGE / "instructions/gate_methods.py"

HEAD = '''"""A method for every gate, written by tools/regen.py from the table in `gates`. Change that, not this."""

from __future__ import annotations

from typing import Any, Self

from .gate_base import NONE, REQUIRED, Angles, Controls, ControlValues, GateBase, Places


class GateMethods(GateBase):
    """All gates with a name, the library's own and those made of them; controls that a name speaks of come first."""
'''


def table():
    # The face would load the extension, which need not be built.
    package = types.ModuleType("velacamplix")
    package.__path__ = [str(PACKAGE)]
    sys.modules["velacamplix"] = package
    return importlib.import_module("velacamplix.instructions.gates").GATES


def summary(gate, controls, qubits):
    if not controls:
        return f"Apply {gate.says}."
    words = [f"`{control}`" for control in controls]
    where = f"{words[0]} is" if len(words) == 1 else f"{', '.join(words[:-1])} and {words[-1]} are"
    return f"Apply {name_in(gate.says)}{'' if len(qubits) > 1 else ' to `target`'} where {where} 1."


def name_in(says):
    """What stands before the first comma that is not inside brackets."""
    depth = 0
    for place, letter in enumerate(says):
        depth += (letter in "([") - (letter in ")]")
        if letter == "," and depth == 0:
            return says[:place]
    return says


def docstring(gate, name, n_controls):
    controls, qubits = gate.arguments(n_controls)
    named = [*controls, *qubits]
    lines = wrapped(summary(gate, controls, qubits))
    lines += ["", "Parameters", "----------"]
    if gate.angles:
        lines += [f"{', '.join(gate.angles)} : float", "    In radians, finite; for a circuit also a `Parameter` or `Expression`."]
    several = "; lists of one length add a gate for each place." if len(named) > 1 or gate.angles else "; a list adds a gate on each."
    lines += [] if not named else [f"{', '.join(named)} : int", "    From 0 to ``n_qubits - 1``" + (", all different" if len(named) > 1 else "") + several]
    lines += ["controls : int or sequence of int", f"    {'Further qubits' if controls else 'Qubits'} that must all be 1 for the gate to act."]
    lines += ["control_values : int, str or sequence of int, optional"]
    front = named[: gate.named_controls(n_controls)]
    before = f"{' and '.join([f'`{word}`' for word in front])} and " if front else ""
    lines += [f"    What {before}these must be instead: a number or a text, the first leftmost, or 0 or 1 for each."]
    words = gate.words(n_controls)
    if words:
        meant = {word: [other for other, of in words.items() if of == word] for word in words.values()}
        told = [f"{' or '.join([f'`{other}`' for other in others])} for `{word}`" for word, others in meant.items()]
        lines += ["**names", *[f"    {line}" for line in wrapped("Other words for these: " + ", ".join(told) + ".")]]
    lines += ["", "Raises", "------", "TypeError"]
    lines += [f"    If {'an angle is no real number, or ' if gate.angles else ''}a qubit is no integer."]
    lines += ["IndexError", "    If a qubit does not exist.", "ValueError"]
    lines += [f"    If {'an angle is not finite, or ' if gate.angles else ''}a qubit is named twice."]
    values = [0.1, 0.2, 0.3, 0.4] if len(gate.angles) > 1 else [0.5]
    call = ", ".join([*map(str, values[: len(gate.angles)]), *map(str, range(len(named)))])
    shown = f"({', '.join(map(str, values[: len(gate.angles)]))})" if gate.angles else ""
    own, before = range(n_controls, len(named)), range(n_controls)
    said = f"{gate.name}{shown}" + (f" {','.join(map(str, own))}" if named else "") + (f" controls {','.join(map(str, before))}" if controls else "")
    lines += ["", "Examples", "--------", ">>> from velacamplix import Circuit"]
    lines += [f">>> print(Circuit({len(named)}).{name}({call}))", said]
    return lines


def wrapped(text, width=108):
    words, lines = text.split(), [""]
    for word in words:
        if lines[-1] and len(lines[-1]) + 1 + len(word) > width:
            lines.append("")
        lines[-1] += (" " if lines[-1] else "") + word
    if len(lines) > 1:  # the first line of a docstring is one sentence that ends there
        lines = [" ".join(lines)[:width].rsplit(" ", 1)[0], " ".join(lines)[len(" ".join(lines)[:width].rsplit(" ", 1)[0]) + 1 :]]
    return lines


def method(gate, name, n_controls):
    controls, qubits = gate.arguments(n_controls)
    named, has_words = [*controls, *qubits], bool(gate.words(n_controls))
    # What may come under another name has to have a default.
    default = " = REQUIRED" if has_words else ""
    parts = ["self", *[f"{angle}: Angles{default}" for angle in gate.angles], *[f"{word}: Places{default}" for word in named]]
    parts += ["controls: Controls = ()", "control_values: ControlValues = None", *["**names: Any"] * has_words]
    head = f"    def {name}({', '.join(parts)}) -> Self:"
    if len(head) > 120:
        inner = ", ".join(parts)
        if len(inner) > 112:
            inner = ",\n        ".join(parts) + ","
        head = f"    def {name}(\n        {inner}\n    ) -> Self:"
    lines = [head]
    doc = docstring(gate, name, n_controls)
    lines.append(f'        """{doc[0]}')
    lines += [f"        {line}".rstrip() for line in doc[1:]]
    lines.append('        """')
    # The usual arguments go without a call; all others are looked at one by one.
    plain = ["controls is NONE", "control_values is None"]
    plain += [f"type({word}) is int" for word in named] + [f"0 <= {word} < self._n_qubits" for word in named]
    if len(named) == 2:
        plain.append(f"{named[0]} != {named[1]}")
    elif len(named) > 2:
        plain.append(f"len({{{', '.join(named)}}}) == {len(named)}")
    plain += [f"type({angle}) is float and {angle} - {angle} == 0.0" for angle in gate.angles]
    plain += ["not names"] * has_words
    own, front = tupled(qubits), tupled(controls)
    direct = "_add" if gate.is_native and (len(qubits) == 1 or not controls) else "_add_any"
    call = [repr_of(gate.name), own]
    if gate.angles or controls:
        call.append(tupled(gate.angles))
    if controls:
        call.append(front)
    condition = f"        if {' and '.join(plain)}:"
    if len(condition) <= 120:
        lines.append(condition)
    else:
        lines += ["        if (", *[f"            {'and ' * (number > 0)}{part}" for number, part in enumerate(plain)]]
        lines.append("        ):")
    lines.append(f"            return self.{direct}({', '.join(call)})")
    given = tupled([*gate.angles, *named])
    lines.append(f"        return self._looked_at({repr_of(name)}, {given}, controls, control_values{', names' * has_words})")
    return lines


def tupled(words):
    return "()" if not words else f"({', '.join(words)}{',' if len(words) == 1 else ''})"


def repr_of(word):
    return f'"{word}"'


def source(gates):
    lines = [HEAD.rstrip()]
    for gate in gates.values():
        for name, n_controls in gate.methods.items():
            lines += ["", *method(gate, name, n_controls)]
            aliases = [alias for alias, of in gate.aliases.items() if of == name]
            if aliases:
                lines += ["", f"    {' = '.join([*aliases, name])}"]
    return "\n".join(lines) + "\n"


def main():
    written = source(table())
    if sys.argv[1:] == ["--check"]:
        if TARGET.read_text(encoding="utf-8") != written:
            print(f"{TARGET} is not what instructions/gates.py says; run tools/regen.py", file=sys.stderr)
            return 1
        return 0
    TARGET.write_text(written, encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
