"""What the package promises to those who install and type-check it."""

import ast
from importlib import metadata, resources
from pathlib import Path

import pytest

import velacamplix

SOURCES = sorted(Path(velacamplix.__file__).parent.rglob("*.py*"))


def test_types_are_announced():
    names = {entry.name for entry in resources.files("velacamplix").iterdir()}
    assert {"py.typed", "_core.pyi"} <= names


@pytest.mark.parametrize("path", [path for path in SOURCES if path.suffix in (".py", ".pyi")], ids=lambda path: path.name)
def test_every_source_is_python_3_9(path):
    # What only a newer interpreter reads would not even be imported there.
    ast.parse(path.read_text(encoding="utf-8"), filename=str(path), feature_version=(3, 9))


def test_no_annotation_needs_a_newer_version_when_it_is_evaluated():
    for path in SOURCES:
        text = path.read_text(encoding="utf-8") if path.suffix == ".py" else ""
        if "from __future__ import annotations" in text:
            continue
        nodes = list(ast.walk(ast.parse(text)))
        written = [node.annotation for node in nodes if isinstance(node, (ast.arg, ast.AnnAssign))]
        written += [node.returns for node in nodes if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef))]
        for annotation in filter(None, written):
            assert not any(isinstance(node, ast.BitOr) for node in ast.walk(annotation)), (path, ast.dump(annotation))


def test_the_version_is_that_of_the_library():
    assert velacamplix.__version__ == metadata.version("velacamplix")


def test_every_public_name_exists_and_is_documented():
    for name in velacamplix.__all__:
        assert getattr(velacamplix, name).__doc__, name
    assert len(set(velacamplix.__all__)) == len(velacamplix.__all__)
