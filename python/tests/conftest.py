"""Fixtures of all tests of the Python package."""

import gc
import os
import signal
import subprocess
import sys
from pathlib import Path

import pytest

# What several rooms share: literal simulators, texts, lists of calls.
sys.path.insert(0, str(Path(__file__).parent / "support"))

# What the tester has set for himself must not show through, neither here nor in the processes that tests start. This
# comes before the package is loaded, when OpenMP reads its share.
for name in list(os.environ):
    kept = name in ("PYTHONPATH", "PYTHONHOME")
    if name.endswith("_NUM_THREADS") or name.startswith(("OMP_", "GOMP_", "KMP_", "PYTHON")) and not kept:
        del os.environ[name]
for name in ("VELACAMPLIX_QUIET_SECONDS", "COLUMNS", "LINES", "NO_COLOR", "FORCE_COLOR"):
    os.environ.pop(name, None)

# Pictures go to files; no test opens a window.
os.environ["MPLBACKEND"] = "Agg"

# A shell starts what it runs in the background with Ctrl-C ignored, and children inherit that. With a handler here the
# processes that tests start hear it again.
signal.signal(signal.SIGINT, signal.default_int_handler)


def pytest_runtest_setup():
    # Hypothesis times garbage collections in a callback. Python drops what is raised there, a KeyboardInterrupt too, and a
    # test that sends one waits for ever.
    gc.callbacks.clear()


@pytest.fixture(params=["double", "single"])
def precision(request):
    return request.param


@pytest.fixture
def tolerance(precision):
    """How far an amplitude may be from the exact one after a few gates."""
    return {"double": 1e-13, "single": 2e-6}[precision]


@pytest.fixture
def command(tmp_path):
    """Runs `python -m velacamplix ARGUMENTS` in an empty folder, as a user would, and returns the ended process."""

    def run(*arguments, **environment):
        return subprocess.run(
            [sys.executable, "-m", "velacamplix", *map(str, arguments)],
            cwd=tmp_path,
            env={**os.environ, "PYTHONIOENCODING": "utf-8", "COLUMNS": "80", **environment},
            capture_output=True,
            text=True,
            encoding="utf-8",
            timeout=120,
        )

    return run
