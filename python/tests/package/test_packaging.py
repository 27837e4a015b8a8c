"""What the package promises to those who install and type-check it."""

import re
import subprocess
import sys
import tarfile
from importlib import metadata, resources
from pathlib import Path

import pytest

import velacamplix

ROOT = Path(__file__).resolve().parents[3]


def test_types_are_announced():
    names = {entry.name for entry in resources.files("velacamplix").iterdir()}
    assert {"py.typed", "_core.pyi"} <= names


def test_the_version_is_that_of_the_library():
    assert velacamplix.__version__ == metadata.version("velacamplix")


def test_every_public_name_exists_and_is_documented():
    for name in velacamplix.__all__:
        assert getattr(velacamplix, name).__doc__, name
    assert len(set(velacamplix.__all__)) == len(velacamplix.__all__)


def test_the_source_distribution_holds_what_its_makefile_calls(tmp_path):
    pytest.importorskip("scikit_build_core", reason="makes a source distribution: pip install scikit-build-core")
    if not (ROOT / "Makefile").is_file():
        pytest.skip(f"no Makefile in {ROOT}: the tests run outside the project")
    code = f"from scikit_build_core.build import build_sdist; build_sdist({str(tmp_path)!r})"
    subprocess.run([sys.executable, "-c", code], cwd=ROOT, check=True, capture_output=True)
    [path] = tmp_path.iterdir()
    with tarfile.open(path) as archive:
        files = {member.name.partition("/")[2]: member.mode for member in archive if member.isfile()}
    called = set(re.findall(r"tools/\w+", (ROOT / "Makefile").read_text(encoding="utf-8")))
    assert len(called) > 5 and "Makefile" in files
    assert [tool for tool in called if not files.get(tool, 0) & 0o111] == []
    # What the library's tests read.
    assert {"docs/exported-names.md", "docs/cpp.md", "tools/include_directions.py"} <= set(files)
    assert not [name for name in files if name.startswith(("build/", ".venv/", ".git/"))]
