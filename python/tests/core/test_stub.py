"""The stub of the extension module beside the module: the same functions with the same arguments."""

import ast
import re
from pathlib import Path

import pytest

import velacamplix
from velacamplix import _core

STUB = ast.parse((Path(velacamplix.__file__).parent / "_core.pyi").read_text(encoding="utf-8"))
CLASSES = {node.name: node for node in STUB.body if isinstance(node, ast.ClassDef)}
FUNCTIONS = {node.name: node for node in STUB.body if isinstance(node, ast.FunctionDef)}


def arguments(function):
    """Names and whether each has a default, as the stub says."""
    args = function.args.args
    needed = len(args) - len(function.args.defaults)
    return [(arg.arg, position >= needed) for position, arg in enumerate(args)]


def told(function):
    """The same for every signature in the docstring that the binding writes."""
    lines = re.findall(r"^(?:\d+\. )?\w+\((.*)\) -> ", function.__doc__, flags=re.MULTILINE)
    signatures = []
    for line in filter(lambda line: line != "*args, **kwargs", lines):
        # Commas inside brackets belong to a type.
        depth, parts, start = 0, [], 0
        for i, character in enumerate(line + ","):
            depth += (character in "[(") - (character in "])")
            if character == "," and depth == 0:
                parts.append(line[start:i].strip())
                start = i + 1
        signatures.append([(part.split(":")[0], " = " in part) for part in parts if part])
    return signatures


def methods(name):
    """The methods of a class and of its bases, by name."""
    node = CLASSES[name]
    found = {}
    for base in node.bases:
        found.update(methods(base.id))
    found.update({item.name: item for item in node.body if isinstance(item, ast.FunctionDef)})
    return found


@pytest.mark.parametrize("name", sorted(FUNCTIONS))
def test_functions_take_what_the_stub_says(name):
    signatures = told(getattr(_core, name))
    assert signatures and all(signature == arguments(FUNCTIONS[name]) for signature in signatures)


@pytest.mark.parametrize("name", sorted(name for name in CLASSES if not name.startswith("_")))
def test_methods_take_what_the_stub_says(name):
    stated = methods(name)
    real = {word for word in vars(getattr(_core, name)) if not word.startswith("_") or word in ("__init__", "__len__")}
    assert set(stated) == real
    for method, node in stated.items():
        signatures = told(getattr(getattr(_core, name), method))
        expected = arguments(node)[1:]
        for signature in signatures:
            # The binding names the object itself "self", or "arg0" where it was not asked for a name.
            assert signature[1:] == expected, method
        assert signatures, method


def test_nothing_is_left_out():
    public = {name for name in vars(_core) if not name.startswith("_")}
    assert public == set(FUNCTIONS) | {name for name in CLASSES if not name.startswith("_")}
