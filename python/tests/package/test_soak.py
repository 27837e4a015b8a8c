"""Nothing is kept for good: not memory, not objects, not threads, not files."""

import json
import subprocess
import sys
from pathlib import Path

import soak


def test_public_calls_keep_nothing():
    """A new public call takes part by itself; what it needs to be called with stands in `soak.arguments`."""
    ended = subprocess.run(
        [sys.executable, Path(soak.__file__)], capture_output=True, text=True, timeout=600, cwd=Path(soak.__file__).parent
    )
    assert ended.returncode == 0, ended.stderr
    growth = json.loads(ended.stdout)
    assert all(stretch["threads"] == stretch["files"] == 0 for stretch in growth), growth
    # One state per round would be 5 MiB in every stretch, one small object in each of its calls thousands.
    assert min(stretch["bytes"] for stretch in growth) < 2**20, growth
    assert min(stretch["objects"] for stretch in growth) < 10 * soak.ROUNDS, growth
