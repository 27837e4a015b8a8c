"""No trick that changes an object while a call uses it reaches memory that is not the object's own.

The tricks are in `abuse.py`, where each runs in a process of its own: a crash is a failure of one test here.
"""

import json
import subprocess
import sys
from pathlib import Path

import abuse
import pytest


@pytest.fixture(scope="module")
def outcomes():
    ended = subprocess.run(
        [sys.executable, str(Path(abuse.__file__))], stdout=subprocess.PIPE, timeout=600, check=True, text=True
    )
    return json.loads(ended.stdout)


@pytest.mark.parametrize("name", abuse.CASES)
def test_tricks(name, outcomes):
    outcome = outcomes[name]
    # A negative status is the signal that ended the process.
    assert outcome["status"] == 0, outcome


def test_a_refusal_tells_what_happened(outcomes):
    refusals = outcomes["the_core_is_called_with_what_it_must_not_take"]["told"]
    assert refusals["Double x"] == (
        "RuntimeError: this state vector has 3 qubits, got qubit 3: the object was changed while a call was reading its arguments"
    )
    assert "names qubit 1 twice" in refusals["Single swap twice"]
