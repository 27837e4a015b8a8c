"""The check of who imports whom finds what it is for."""

import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import velacamplix

TOOL = Path(__file__).parents[3] / "tools" / "room_directions.py"
PACKAGE = Path(velacamplix.__file__).parent

if not TOOL.is_file():
    pytest.skip(f"{TOOL} is not there: the tests run outside the project", allow_module_level=True)


def answer(package):
    ended = subprocess.run([sys.executable, TOOL, package], capture_output=True, text=True)
    return ended.returncode, ended.stdout


def test_the_package_keeps_to_its_rooms():
    status, text = answer(PACKAGE)
    assert status == 0, text


@pytest.mark.parametrize(
    "file, line, message",
    [
        ("basics/words.py", "from ..machine import memory", "basics must not know machine"),
        ("qasm/writer.py", "def f():\n    from ..circuit.circuit import Circuit", "qasm must not know circuit"),
        ("views/html.py", "from ..observables import text", "views must not know observables"),
        ("machine/groups.py", "import velacamplix.states.statevector", "machine must not know states"),
        ("basics/words.py", "def f():\n    from . import arrays", "a circle of imports: basics."),
        ("states/base.py", "from .. import Circuit", "take it from its room"),
        ("plots/_hidden.py", "'''Hidden.'''", "no underscore"),
        ("attic/box.py", "'''A box.'''", "attic is no room"),
        ("results/__init__.py", None, "says in a sentence"),
    ],
)
def test_what_is_wrong_is_told(tmp_path, file, line, message):
    package = tmp_path / "velacamplix"
    shutil.copytree(PACKAGE, package, ignore=shutil.ignore_patterns("*.so*", "lib", "__pycache__"))
    place = package / file
    place.parent.mkdir(exist_ok=True)
    text = place.read_text(encoding="utf-8") if place.exists() else ""
    place.write_text("" if line is None else f"{text}\n{line}\n", encoding="utf-8")
    status, said = answer(package)
    assert status == 1 and message in said, said
