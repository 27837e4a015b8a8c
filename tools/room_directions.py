#!/usr/bin/env python3
"""Checks that the Python package is built in rooms: a file imports from its own room and from those below, in no circle.

The order of the rooms is `_ROOMS` in the package's __init__.py. Imports inside functions count like all others. Those that
only type checkers see may go up within a room, where two values hold each other; never between rooms. What a class of the
face hands on to a room above is listed in `HANDED_ON`.

    tools/room_directions.py [folder of the package]
"""

import ast
import sys
from pathlib import Path

# (file, room above): methods of the faces Circuit, StateVector and Result that do nothing but call a function there.
# The rooms below the called one give the names of its arguments' types.
HANDED_ON = {("circuit/derivatives.py", room) for room in ("gradients", "running", "programs", "results")}
HANDED_ON |= {("circuit/frameworks.py", room) for room in ("qiskit", "cirq", "pennylane")}
HANDED_ON |= {("states/statevector.py", "storage")}
HANDED_ON |= {("running/run.py", "distributed")}
HANDED_ON |= {("circuit/dense.py", room) for room in ("states", "running", "programs")}


def room_of(module: str) -> str:
    return module.partition(".")[0]


def rooms_of(package: Path) -> dict[str, int]:
    """Return the floor of every room, as the package's __init__.py orders them."""
    for node in ast.parse((package / "__init__.py").read_text(encoding="utf-8")).body:
        if isinstance(node, ast.Assign) and getattr(node.targets[0], "id", None) == "_ROOMS":
            return {room: floor for floor, rooms in enumerate(ast.literal_eval(node.value)) for room in rooms}
    sys.exit(f"{package / '__init__.py'} has no _ROOMS")


def imports(package: Path, file: Path, modules: set[str]):
    """Yield (module, line, whether only type checkers see it) for everything a file imports from the package."""
    here = file.relative_to(package).with_suffix("").parts

    def visit(node: ast.AST, for_types: bool):
        for child in ast.iter_child_nodes(node):
            is_type_only = for_types or (isinstance(child, ast.If) and "TYPE_CHECKING" in ast.unparse(child.test))
            if isinstance(child, ast.Import):
                for alias in child.names:
                    if alias.name.split(".")[0] == package.name:
                        yield alias.name.partition(".")[2] or "__init__", child.lineno, is_type_only
            elif isinstance(child, ast.ImportFrom):
                if child.level == 0:
                    if (child.module or "").split(".")[0] != package.name:
                        continue
                    base = child.module.split(".")[1:]
                else:
                    base = [*here[: len(here) - child.level], *(child.module or "").split(".")]
                base = [part for part in base if part]
                for alias in child.names:
                    inner = ".".join([*base, alias.name])
                    is_module = inner in modules or inner == "_core"
                    yield inner if is_module else ".".join(base) or "__init__", child.lineno, is_type_only
            yield from visit(child, is_type_only)

    yield from visit(ast.parse(file.read_text(encoding="utf-8")), False)


def circle(edges: dict[str, set[str]]) -> list[str]:
    """Return the modules of one circle, in order, or nothing."""
    done: set[str] = set()

    def walk(module: str, path: list[str]) -> list[str]:
        if module in path:
            return path[path.index(module) :] + [module]
        if module in done:
            return []
        for other in sorted(edges.get(module, ())):
            found = walk(other, [*path, module])
            if found:
                return found
        done.add(module)
        return []

    for module in sorted(edges):
        found = walk(module, [])
        if found:
            return found
    return []


def main() -> int:
    default = Path(__file__).resolve().parent.parent / "python/src/velacamplix"
    package = Path(sys.argv[1]) if len(sys.argv) > 1 else default
    floors = rooms_of(package)
    files = {".".join(file.relative_to(package).with_suffix("").parts): file for file in package.rglob("*.py")}
    files = {name.removesuffix(".__init__"): file for name, file in files.items()}
    wrong: list[str] = []
    edges: dict[str, set[str]] = {}
    for module, file in sorted(files.items()):
        name = file.relative_to(package)
        if module in ("__init__", "__main__"):  # the face: everything may be named there
            continue
        if room_of(module) not in floors:
            wrong.append(f"{name}: {room_of(module)} is no room of _ROOMS")
            continue
        if file.name.startswith("_") and file.name != "__init__.py":
            wrong.append(f"{name}: files of a room have no underscore in front")
        if file.name == "__init__.py" and not ast.get_docstring(ast.parse(file.read_text(encoding="utf-8"))):
            wrong.append(f"{name}: a room says in a sentence what it is for")
        for other, line, is_type_only in imports(package, file, set(files)):
            here, there = room_of(module), room_of(other)
            place = f"{name}:{line}"
            if other == "_core" and module == "core":
                continue
            if there not in floors:
                wrong.append(f"{place}: imports {other}; take it from its room")
            elif here != there and floors[there] >= floors[here] and (str(name), there) not in HANDED_ON:
                wrong.append(f"{place}: {here} must not know {there}")
            elif other != module and not is_type_only and (str(name), there) not in HANDED_ON:
                edges.setdefault(module, set()).add(other)
    found = circle(edges)
    if found:
        wrong.append("a circle of imports: " + " > ".join(found))
    print("\n".join(wrong) if wrong else f"{len(files)} files in {len(floors)} rooms")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
