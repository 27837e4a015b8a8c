#!/usr/bin/env python3
"""One simulator in a process of its own, so that each has its own OpenMP and nothing else is loaded beside it.

Reads requests as lines of JSON and answers each with one line. Arrays are left as NumPy files in a folder given with
the request. Started by `crew.Worker`; usage: worker.py SIMULATOR
"""

from __future__ import annotations

import gc
import json
import os
import sys
import time
import traceback
from typing import Any, Dict

import numpy as np
import simulators
from simulators import NotOffered, Task


class Desk:
    """Keeps prepared tasks by the name their requester gave them."""

    def __init__(self, simulator: str) -> None:
        self.module = simulators.module(simulator)
        self.prepared: Dict[str, simulators.Prepared] = {}
        self.state_bytes: Dict[str, int] = {}

    def describe(self) -> Dict[str, Any]:
        return {"versions": self.module.versions(), "precisions": list(self.module.precisions)}

    def build(self) -> Dict[str, Any]:
        return {"build": self.module.build()}

    def settings(self, kind: str, precision: str, n: int) -> Dict[str, Any]:
        return {"settings": self.module.settings(kind, precision, n)}

    def prepare(self, name: str, task: Dict[str, Any], setting: str) -> Dict[str, Any]:
        self.state_bytes[name] = 2 ** task["n"] * (16 if task["precision"] == "double" else 8)
        start = time.perf_counter()
        try:
            self.prepared[name] = self.module.prepare(Task(**task), setting)
        except NotOffered as reason:
            return {"not_offered": str(reason)}
        return {"seconds": time.perf_counter() - start}

    def run(self, name: str, answer: str = "") -> Dict[str, Any]:
        """Run once; with `answer`, save what came out as arrays under this path."""
        prepared = self.prepared[name]
        # A virtual machine that got memory back has to ask its host for it anew, which takes up to 0.3 s for one state
        # and hits whoever comes first. So as much as a state is touched and given back beforehand.
        if self.state_bytes[name] <= 2**33:
            np.ones(self.state_bytes[name], dtype=np.uint8)
        gc.collect()
        gc.disable()
        try:
            start = time.perf_counter()
            result = prepared.call()
            seconds = time.perf_counter() - start
        finally:
            gc.enable()
        if prepared.own_seconds is not None:
            seconds = prepared.own_seconds(result)
        if answer:
            value = prepared.answer(result)
            parts = value if isinstance(value, tuple) else (value,)
            np.savez(answer, *parts)
        return {"seconds": seconds}

    def forget(self) -> Dict[str, Any]:
        self.prepared.clear()
        self.state_bytes.clear()
        gc.collect()
        return {}


def main() -> None:
    # What a simulator prints must not get between the answers.
    answers = os.fdopen(os.dup(1), "w", buffering=1)
    os.dup2(2, 1)
    desk = Desk(sys.argv[1])
    for line in sys.stdin:
        request = json.loads(line)
        try:
            answer = getattr(desk, request.pop("do"))(**request)
        except Exception as error:  # whatever a simulator raises is told to the one who asked
            traceback.print_exc()
            answer = {"failed": f"{type(error).__name__}: {error}"}
        print(json.dumps(answer), file=answers)


if __name__ == "__main__":
    main()
