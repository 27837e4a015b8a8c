"""The comparison with other simulators, benchmarks/compare: its cases, its workers, its judgement, its report.

The peers' workers are tried where an interpreter that has them is found: the one that VELACAMPLIX_PEERS names, or that
of the environment which tools/compare makes.
"""

import argparse
import json
import os
import platform
import shutil
import subprocess
import sys
from pathlib import Path

import kraus_sums
import numpy as np
import numpy_simulator
import pytest

from velacamplix import Channel, Circuit, Instruction, run

ROOT = Path(__file__).resolve().parents[3]
COMPARE = ROOT / "benchmarks/compare"
sys.path.insert(0, str(COMPARE))

import agreement  # noqa: E402
import builds  # noqa: E402
import cases  # noqa: E402
import figures  # noqa: E402
import frameworks  # noqa: E402
import noise  # noqa: E402
import reasons  # noqa: E402
import report  # noqa: E402
import store  # noqa: E402
from cell import Cell, hopeless  # noqa: E402
from crew import Crew, Measured, Worker, WorkerFailed  # noqa: E402

PEERS_PYTHON = os.environ.get("VELACAMPLIX_PEERS", str(ROOT / "build/compare-venv/bin/python"))
MODULES = {"aer": "qiskit_aer", "qulacs": "qulacs", "qsim": "qsimcirq", "lightning": "pennylane_lightning"}
# Qulacs computes in double precision only, qsim in single.
COMPUTES = [
    ("aer", "double"),
    ("aer", "single"),
    ("qulacs", "double"),
    ("qsim", "single"),
    ("lightning", "double"),
    ("lightning", "single"),
]


def expected_state(case, n):
    """By the slow simulator, which shares nothing with the one that is compared."""
    circuit = Circuit(n)
    for name, numbers, qubits in cases.CASES[case].gates(n):
        if name == "U":
            circuit.matrix(np.reshape(numbers, (2 ** len(qubits), -1)), qubits)
        else:
            getattr(circuit, name.lower())(*numbers, *qubits)
    assert all(isinstance(step, Instruction) for step in circuit)
    start = np.eye(2**n, 1)
    return np.asarray(numpy_simulator.run(circuit, start)).reshape(2**n)


@pytest.fixture
def worker(tmp_path):
    started = []

    def start(simulator, python=sys.executable, threads=1):
        started.append(Worker(python, simulator, threads, tmp_path / "log"))
        return started[-1]

    yield start
    for one in started:
        one.close()


# Cases


@pytest.mark.parametrize("case, gates", [("ansatz", 710), ("qft", 1404), ("random", 300), ("ghz", 24), ("spread", 71), ("qaoa", 420), ("heis", 17 * 38), ("qv", 120), ("rqc", 10 * 24 + 95), ("vqe", 284), ("gradient100", 213), ("gradient700", 1065)])
def test_how_many_gates_a_circuit_of_24_qubits_has(case, gates):
    assert len(cases.CASES[case].gates(24)) == gates


@pytest.mark.parametrize("case", cases.CASES)
def test_circuits_are_the_same_every_time_and_stay_within_their_qubits(case):
    gates = cases.CASES[case].gates(13)
    assert gates == cases.CASES[case].gates(13)
    for name, numbers, qubits in gates:
        assert len(set(qubits)) == len(qubits) <= 2 and (name in ("CNOT", "U") or len(qubits) == 1)
        assert len(numbers) == (4 ** len(qubits) if name == "U" else name in ("RX", "RY", "RZ", "PH"))
        assert all(0 <= q < 13 for q in qubits)
        if name == "U":
            matrix = np.reshape(numbers, (2 ** len(qubits), -1))
            assert np.abs(matrix @ matrix.conj().T - np.eye(len(matrix))).max() < 1e-15


def test_random_numbers_are_those_of_the_benchmarks_in_cpp():
    draw = cases._Numbers()
    bits, expected = np.uint64(88172645463325252), []
    for _ in range(3):
        for shift in (13, -7, 17):
            bits ^= bits << np.uint64(shift) if shift > 0 else bits >> np.uint64(-shift)
        expected.append(float(bits >> np.uint64(11)) / 2**53)
    assert [draw.uniform() for _ in range(3)] == expected


def test_edges_of_a_grid_meet_every_neighbour_once():
    for n in range(1, 30):
        columns = int(np.ceil(np.sqrt(n)))
        groups = cases._grid_edges(n)
        for group in groups:
            met = [q for edge in group for q in edge]
            assert len(set(met)) == len(met)
        beside = {(a, b) for a in range(n) for b in range(a + 1, n) if b - a == columns or (b == a + 1 and b % columns)}
        assert sorted(edge for group in groups for edge in group) == sorted(beside)


def test_the_trial_circuit_has_every_gate_and_tells_qubits_apart():
    used = {name for name, _, _ in cases.TRIAL.gates(11)}
    assert used == {name for case in cases.CASES.values() for name, _, _ in case.gates(11)}
    state = expected_state("every_gate", 6)
    turned = state.reshape((2,) * 6).transpose().reshape(-1)
    assert agreement.difference("state", "double", 6, (state,), (turned,))


# Judgement


def test_a_global_phase_is_forgiven_and_a_relative_one_is_not():
    state = expected_state("every_gate", 4)
    other = state * np.exp(0.7j)
    assert agreement.difference("state", "double", 4, (state,), (other,)) == ""
    other[3] *= np.exp(1e-6j)
    assert "differ by" in agreement.difference("state", "double", 4, (state,), (other,))
    assert agreement.difference("state", "single", 4, (state,), (other,)) == ""


def test_what_is_not_a_number_never_agrees():
    state = np.array([1.0, np.nan])
    assert "not finite" in agreement.difference("marginal", "double", 1, (state,), (state,))


def test_amplitudes_that_are_all_zero_prove_nothing():
    zero = np.zeros(4, dtype=complex)
    assert "are 0" in agreement.difference("amplitudes", "double", 5, (zero,), (zero,))


def test_shots_of_one_state_agree_and_of_a_slightly_different_one_do_not():
    draw = np.random.default_rng(5)

    def shots(p):
        return np.unique(draw.choice(4, p=p, size=10**6), return_counts=True)

    ours = shots([0.4, 0.1, 0.1, 0.4])
    assert agreement.difference("shots", "double", 2, ours, shots([0.4, 0.1, 0.1, 0.4])) == ""
    assert "parities" in agreement.difference("shots", "double", 2, ours, shots([0.39, 0.11, 0.11, 0.39]))


# Workers


def test_our_worker_finds_the_states_that_the_gates_define(worker):
    ours = worker("velacamplix", threads=2)
    for case in [case.name for case in cases.CIRCUITS] + ["every_gate"]:
        task = {"case": case, "n": 6, "precision": "double", "threads": 2, "whole_state": True}
        assert ours.prepare("state", task, "exact") is None
        measured = ours.run("state", answer=True)
        assert measured.seconds > 0
        assert np.abs(measured.answer[0] - expected_state(case, 6)).max() < 1e-12, case


def test_our_worker_reads_out_what_the_state_says(worker, precision):
    ours, state = worker("velacamplix"), expected_state("spread", 6)
    probabilities = np.abs(state.reshape((2,) * 6)) ** 2

    def answer(case):
        assert ours.prepare(case, {"case": case, "n": 6, "precision": precision, "threads": 1}, "exact") is None
        return ours.run(case, answer=True).answer

    # The marginal has its first listed qubit most significant, and qubit q is axis 5 - q.
    axes = [5 - q for q in cases.marginal_qubits(6)]
    assert np.abs(answer("marginal")[0] - probabilities.transpose(axes).reshape(-1)).max() < 1e-5
    outcomes, counts = answer("shots")
    assert counts.sum() == cases.SHOTS
    drawn = np.zeros(64)
    drawn[outcomes.astype(int)] = counts / cases.SHOTS
    assert np.abs(drawn - probabilities.reshape(-1)).max() < 0.004

    value = 0.0
    for coefficient, letters, qubits in cases.pauli_terms(6):
        turned = Circuit(6)
        for letter, q in zip(letters, qubits):
            getattr(turned, letter.lower())(q)
        value += coefficient * np.vdot(state, np.asarray(numpy_simulator.run(turned, state[:, None])).reshape(-1)).real
    assert abs(answer("paulis")[0] - value) < 1e-4


def test_our_worker_makes_a_step(worker, precision):
    ours, state = worker("velacamplix"), expected_state("vqe", 4)
    task = {"case": "vqe", "n": 4, "precision": precision, "threads": 1}
    value, bits = 0.0, np.arange(16)
    for q in range(4):
        value += np.vdot(state, state[bits ^ 1 << q]).real
        value += (abs(state) ** 2) @ (1 - 2 * ((bits >> q ^ bits >> (q - 1) % 4) & 1))
    for setting in ours.settings("step", precision, 4):
        assert ours.prepare("task", task, setting) is None
        for _ in range(2):
            assert abs(ours.run("task", answer=True).answer[0] - value) < (1e-12 if precision == "double" else 1e-5)


def test_our_worker_finds_the_derivatives(worker, precision):
    ours = worker("velacamplix")
    task = {"case": "jacobian30", "n": 4, "precision": precision, "threads": 1}
    assert ours.prepare("task", task, "exact") is None
    (rows,) = ours.run("task", answer=True).answer
    gates, observables = cases.CASES["jacobian30"].gates(4), cases.observables(4, 30)
    places = [place for place, (_, angles, _) in enumerate(gates) if angles]
    assert rows.shape == (30, len(places))

    def values(of):
        circuit = Circuit(4)
        for name, angles, qubits in of:
            getattr(circuit, name.lower())(*angles, *qubits)
        return np.array([run(circuit, observables=[[term]]).expectation_values[0] for term in observables])

    for number in (0, 40, len(places) - 1):
        name, (angle,), qubits = gates[places[number]]
        up, down = list(gates), list(gates)
        up[places[number]], down[places[number]] = (name, (angle + 0.1,), qubits), (name, (angle - 0.1,), qubits)
        expected = (values(up) - values(down)) / (2 * np.sin(0.1))
        assert rows[:, number] == pytest.approx(expected, abs=1e-11 if precision == "double" else 1e-4)


def test_a_worker_that_cannot_start_says_why(worker):
    with pytest.raises(WorkerFailed, match="simulator must be one of velacamplix, aer"):
        worker("abacus")


def test_a_worker_survives_a_task_that_fails(worker):
    ours = worker("velacamplix")
    with pytest.raises(WorkerFailed, match="MemoryError"):
        task = {"case": "ghz", "n": 60, "precision": "double", "threads": 1}
        ours.prepare("too large", task, "exact")
        ours.run("too large")
    assert ours.alive
    assert ours.prepare("fits", {"case": "ghz", "n": 3, "precision": "double", "threads": 1}, "exact") is None


@pytest.mark.parametrize("simulator, precision", COMPUTES)
def test_peers_find_the_same_as_we(simulator, tmp_path, precision):
    if not os.access(PEERS_PYTHON, os.X_OK):
        pytest.skip(f"no interpreter with the other simulators at {PEERS_PYTHON}; tools/compare installs one")
    probe = f"import importlib.util, sys; sys.exit(importlib.util.find_spec({MODULES[simulator]!r}) is None)"
    if subprocess.run([PEERS_PYTHON, "-c", probe]).returncode:
        pytest.skip(f"{PEERS_PYTHON} does not have {MODULES[simulator]}")
    with Crew({"velacamplix": sys.executable, simulator: PEERS_PYTHON}, tmp_path / "log") as crew:
        ours, peer = crew.with_threads(1)
        assert set(peer.precisions) == {p for key, p in COMPUTES if key == simulator}
        for case in (cases.TRIAL, *cases.READINGS, cases.STEP, cases.CASES["jacobian30"]):
            task = {"case": case.name, "n": 7, "precision": precision, "threads": 1}
            ours.prepare("task", task, "exact")
            expected = ours.run("task", answer=True).answer
            settings = peer.settings(case.kind, precision, 7)
            # A million shots take long.
            for setting in settings[:1] if case.kind == "shots" else settings:
                if peer.prepare("task", task, setting) is None:
                    answer = peer.run("task", answer=True).answer
                    assert not agreement.difference(case.kind, precision, 7, expected, answer), (case.name, setting)


def test_a_cell_takes_turns_and_leaves_out_what_disagrees(tmp_path, monkeypatch):
    """Two workers of ours, the second under another name and wrong in one of its settings."""
    with (
        Crew({"velacamplix": sys.executable}, tmp_path / "log") as first,
        Crew({"velacamplix": sys.executable}, tmp_path / "log") as second,
    ):
        (ours,), (other,) = first.with_threads(1), second.with_threads(1)
        other.simulator = "qulacs"
        order = []
        for worker in (ours, other):
            run = worker.run
            monkeypatch.setattr(
                worker,
                "run",
                lambda *a, run=run, worker=worker, **k: order.append((worker.simulator, a[0])) or run(*a, **k),
            )
        cell = Cell(cases.TRIAL, 6, "double", 1)
        cell.prepare([ours, other], {"qulacs": ["fused"]})
        cell.entries.append(type(cell.entries[0])(other, "wrong"))
        other.prepare("wrong", {"case": "spread", "n": 6, "precision": "double", "threads": 1}, "exact")
        cell.measure(repeats=2, seconds=60)
    # The warm-up, then two rounds that count; in the second a setting that was slow may be missing.
    turns = [("velacamplix", "exact"), ("velacamplix", "fused"), ("qulacs", "exact"), ("qulacs", "wrong")]
    assert order[:8] == turns + turns
    assert order[8:10] == turns[:2]
    assert [len(entry.seconds) for entry in cell.entries if entry.simulator == "velacamplix"] == [2, 2]
    assert all(1 <= len(entry.seconds) <= 2 for entry in cell.entries)
    problems = {entry.setting: entry.problem for entry in cell.entries if entry.problem}
    assert set(problems) == {"wrong"} and "differ by" in problems["wrong"]
    assert cell.failures() == []  # its other setting agrees
    cell.entries = [entry for entry in cell.entries if (entry.simulator, entry.setting) != ("qulacs", "exact")]
    assert "no peer agrees; qulacs (wrong): they differ" in cell.failures()[0]


def test_a_first_run_counts_where_it_is_long():
    class Clock:
        """A worker whose settings are named by the seconds they take."""

        precisions, alive, runs = ("double",), False, []

        def __init__(self, simulator, *settings):
            self.simulator, self._settings = simulator, settings

        def settings(self, *_):
            return self._settings

        def prepare(self, *_):
            return None

        def run(self, setting, answer):
            self.runs.append(setting)
            return Measured(float(setting), (np.ones(2),) if answer else None)

    cell = Cell(cases.CASES["ghz"], 16, "double", 1)
    cell.prepare([Clock("velacamplix", "0.1"), Clock("aer", "0.2", "0.6", "0.7")], {"aer": ["0.7"]})
    cell.measure(repeats=2, seconds=60)
    assert Clock.runs == ["0.1", "0.2", "0.6", "0.1", "0.2", "0.1", "0.2"]
    assert [entry.seconds for entry in cell.entries] == [[0.1, 0.1], [0.2, 0.2], [0.6]]


# Report


def results(**peers):
    """As the comparison saves them: one circuit, ours at 2 ms, and peers at the given seconds."""

    def entries(times):
        return [{"simulator": key, "setting": setting, "seconds": seconds} for key, setting, seconds in times]

    times = [("velacamplix", "exact", [0.002, 0.001, 0.003])] + [(k, "plain", [v]) for k, v in peers.items()]
    cell = {"case": "ghz", "n": 16, "precision": "double", "threads": 2, "entries": entries(times)}
    told = {"machine": {"processor": "a"}, "builds": {"qulacs": "wheel linux"}, "versions": {"qulacs": {"qulacs": "1.2"}}}
    command = {"date": "2026-01-01", "command": "tools/compare --quick", "repeats": 3, "minutes": 1.5}
    return {**told, "runs": [command], "cells": [{**cell, "run": 0}]}


def test_the_median_is_told_and_the_fastest_setting_counts():
    measured = results(qulacs=0.005)
    measured["cells"][0]["entries"] += [
        {"simulator": "qulacs", "setting": "optimize_light", "seconds": [0.004]},
        {"simulator": "qulacs", "setting": "wrong", "seconds": [0.0001], "problem": "they differ"},
        {"simulator": "velacamplix", "setting": "fused", "seconds": [], "not_offered": "no fusion"},
    ]
    (cell,) = figures.of_results(measured)
    assert cell.best["velacamplix"] == (0.002, 3, "exact")
    assert cell.best["Qulacs"] == (0.004, 1, "optimize_light")
    assert cell.times_faster() == 2
    text = report.markdown(measured, "a.png")
    assert "| GHZ | **2.00 ms** | 4.00 ms | 2.00 |" in text
    assert "Qulacs (wrong): ghz (n = 16, double); the first time, they differ" in text
    assert "    tools/compare --quick    # 1.5 minutes\n" in text
    assert "Peers' builds: Qulacs: wheel linux." in text


def test_the_report_says_where_a_peer_wins():
    assert "A peer is ahead in 0 of 1 exact and in 0 of 0 fused cells." in report.markdown(
        results(qulacs=0.004, aer=0.0021), "a.png"
    )
    measured = results(qulacs=0.004, aer=0.001)
    measured["cells"][0]["entries"].append({"simulator": "velacamplix", "setting": "fused", "seconds": [0.0005]})
    text = report.markdown(measured, "a.png")
    assert "A peer is ahead in 1 of 1 exact and in 0 of 1 fused cells." in text
    assert "| GHZ | double, 2 threads | exact | 0.50 Qiskit Aer | not measured |" in text
    assert "| GHZ | **0.50** / 2.00 |" in text
    measured = results(qulacs=0.004, aer=0.001)
    assert "| GHZ | 2.00 ms | **1.00 ms** | 4.00 ms | 0.50 |" in report.markdown(measured, "a.png")


def test_a_known_reason_is_told_once_and_only_where_it_holds(monkeypatch):
    known = reasons.Reason("It was so measured.", "velacamplix", ("ghz", "qft"), ("double",), range(15, 21))
    monkeypatch.setattr(reasons, "REASONS", (known,))
    measured = results(qulacs=0.001)
    (cell,) = measured["cells"]
    fused = {"simulator": "velacamplix", "setting": "fused", "seconds": [0.0015]}
    cell["entries"].append(fused)
    measured["cells"] += [{**cell, "case": "qft"}, {**cell, "n": 21}, {**cell, "precision": "single"}]
    lines = report.losses(figures.of_results(measured))
    assert lines == [
        "A peer is ahead in 4 of 4 exact and in 4 of 4 fused cells.",
        "",
        "|  |  | run | n = 16 | n = 21 | why |",
        "| --- | --- | --- | --- | --- | --- |",
        "| QFT from H, PH, CNOT | double, 2 threads | exact | 0.50 Qulacs |  | (1) |",
        "| QFT from H, PH, CNOT | double, 2 threads | fused | 0.67 Qulacs |  | not measured |",
        "| GHZ | double, 2 threads | exact | 0.50 Qulacs |  | (1) |",
        "| GHZ | double, 2 threads | exact |  | 0.50 Qulacs | not measured |",
        "| GHZ | double, 2 threads | fused | 0.67 Qulacs | 0.67 Qulacs | not measured |",
        "| GHZ | single, 2 threads | exact | 0.50 Qulacs |  | not measured |",
        "| GHZ | single, 2 threads | fused | 0.67 Qulacs |  | not measured |",
        "",
        "(1) It was so measured.",
    ]


@pytest.mark.parametrize("reason", reasons.REASONS, ids=[f"{r.way}-{'-'.join(r.cases)}" for r in reasons.REASONS])
def test_reasons_are_of_cases_that_there_are(reason):
    assert set(reason.cases) <= set(cases.CASES) and reason.cases
    assert reason.way in (figures.OURS, figures.FUSED) and set(reason.precisions) <= {"double", "single"}
    assert reason.text.endswith(".") and len(reason.qubits)


def test_the_fullest_size_has_the_table_of_times():
    measured = results(qulacs=0.004)
    (cell,) = measured["cells"]
    measured["cells"] += [{**cell, "n": 20}, {**cell, "n": 24, "entries": cell["entries"][:1]}]
    assert figures.fullest_size(figures.of_results(measured)) == 20
    assert "### n = 20, double precision, 2 threads" in report.markdown(measured, "a.png")


# Stored results


def test_results_of_several_commands_are_put_together():
    first, second = results(qulacs=0.004), results(qulacs=0.005, aer=0.006)
    first["cells"].append({**first["cells"][0], "n": 20})
    second["runs"][0]["command"] = "tools/compare --second"
    second["builds"] = {"aer": "wheel other"}
    order = list(cases.CASES)
    once = store.merged(None, first, order)
    both = store.merged(once, second, order)
    assert [cell["n"] for cell in both["cells"]] == [16, 20]
    assert [run["command"] for run in both["runs"]] == ["tools/compare --second", "tools/compare --quick"][::-1]
    assert [cell["run"] for cell in both["cells"]] == [1, 0]
    assert store.simulators(both["cells"][0]) == {"velacamplix", "qulacs", "aer"}
    assert both["builds"] == {"qulacs": "wheel linux", "aer": "wheel other"}
    # A command of which nothing is left is not told any more.
    third = results(qulacs=0.007)
    third["cells"].append({**third["cells"][0], "n": 20})
    assert [cell["run"] for cell in store.merged(both, third, order)["cells"]] == [0, 0]
    assert len(store.merged(both, third, order)["runs"]) == 1


def test_figures_of_different_machines_or_programs_are_not_put_together():
    first = results(qulacs=0.004)
    assert store.difference(first, results(aer=1)) == ""
    assert "processor was 'a' and is 'b'" in store.difference(first, {**first, "machine": {"processor": "b"}})
    assert "system was None and is 'c'" in store.difference(first, {**first, "machine": {"processor": "a", "system": "c"}})
    assert "versions of qulacs" in store.difference(first, {**first, "versions": {"qulacs": {"qulacs": "1.3"}}})
    assert "builds of qulacs" in store.difference(first, {**first, "builds": {"qulacs": "compiled"}})
    assert store.difference(first, {**first, "versions": {"aer": {"qiskit-aer": "1"}}}) == ""


def test_a_peer_that_does_not_take_part_again_would_be_lost():
    stored = results(qulacs=0.004, aer=0.003)
    key = store.key(stored["cells"][0])
    assert store.lacking(stored, [key], ["velacamplix", "aer"]) == {"qulacs": [key]}
    assert store.lacking(stored, [key], ["velacamplix", "aer", "qulacs"]) == {}
    assert store.lacking(stored, [("ghz", 17, "double", 2)], ["velacamplix"]) == {}


def test_what_is_stored_is_read_back(tmp_path):
    stored = results(qulacs=0.004)
    stored["cells"].append({**stored["cells"][0], "n": 20})
    assert store.read(tmp_path / "a/b.json") is None
    store.write(tmp_path / "a/b.json", stored)
    assert store.read(tmp_path / "a/b.json") == stored
    assert sum('"entries"' in line for line in (tmp_path / "a/b.json").read_text().splitlines()) == 2


def test_slow_settings_are_not_tried_at_larger_sizes():
    def record(n, **entry):
        times = {"plain": [1.0, 1.1], "light": [1.3], "worse": [2.5], "failed": []}
        entries = [{"simulator": "qulacs", "setting": name, "seconds": seconds} for name, seconds in times.items()]
        entries += [{"simulator": "qulacs", "setting": "wrong", "seconds": [0.1], "problem": "they differ"}]
        return {"n": n, "entries": [*entries, {"simulator": "velacamplix", "setting": "exact", "seconds": [9.0]}]}

    assert hopeless(record(16)) == {"qulacs": ["worse"]}
    assert hopeless(record(24)) == {"qulacs": ["light", "worse"]}


# Builds


def test_where_a_peer_was_compiled_is_read_from_its_tag():
    assert builds.origin("Wheel-Version: 1.0\nTag: cp311-cp311-manylinux_2_17_x86_64\n") == "wheel manylinux_2_17_x86_64"
    assert builds.origin("Tag: cp311-cp311-linux_x86_64\n") == "compiled on this machine"
    assert builds.origin("") == ""


def test_the_widest_vectors_are_found_in_the_machine_code(tmp_path):
    assert builds.vectors(str(tmp_path / "missing.so")) == ""
    compiler = shutil.which("cc")
    if not compiler or not shutil.which("objdump") or platform.machine() != "x86_64":
        pytest.skip("needs cc and objdump for x86-64")
    for register, bits in (("xmm", 128), ("ymm", 256), ("zmm", 512)):
        (tmp_path / "a.s").write_text(f"vaddpd %{register}1, %{register}2, %{register}3\nvaddpd %xmm1, %xmm2, %xmm3\n")
        subprocess.run([compiler, "-c", tmp_path / "a.s", "-o", tmp_path / "a.o"], check=True)
        assert builds.vectors(str(tmp_path / "a.o")) == f"vectors of up to {bits} bits"


@pytest.mark.parametrize(
    "seconds, text",
    [
        (12.345, "12.3 s"),
        (0.99951, "1.00 s"),
        (0.0999, "99.9 ms"),
        (1.5e-3, "1.50 ms"),
        (123e-6, "123 µs"),
        (2e-7, "0.20 µs"),
    ],
)
def test_times_have_three_digits(seconds, text):
    assert report.time_text(seconds) == text


def test_only_what_stands_between_the_markers_is_replaced(tmp_path):
    document = tmp_path / "performance.md"
    document.write_text("# Before\n")
    report.write_between_markers(document, "first")
    assert document.read_text().startswith("# Before\n\n" + report.BEGIN)
    document.write_text(document.read_text() + "\nAfter\n")
    report.write_between_markers(document, r"second \1")
    text = document.read_text()
    assert text == f"# Before\n\n{report.BEGIN}\n\nsecond \\1\n\n{report.END}\n\nAfter\n"
    document.write_text(text.replace(report.END, ""))
    with pytest.raises(ValueError, match="must hold the markers"):
        report.write_between_markers(document, "third")


def compared(folder, arguments):
    """The whole command; with our simulator alone, unless the arguments name others."""
    interpreters = ["--python", sys.executable, "--peers", sys.executable, "--output", str(folder), "--no-docs"]
    return subprocess.run(
        [sys.executable, str(COMPARE), *interpreters, *arguments.split()], capture_output=True, text=True, timeout=120
    )


def test_from_the_command_to_report_and_picture(tmp_path):
    """The whole way, with our simulator alone; a second command adds to what the first found."""
    ended = compared(tmp_path, "--qubits 5 --threads 1 --repeats 2 --cases ghz shots --simulators")
    assert ended.returncode == 0, ended.stdout + ended.stderr
    saved = json.loads((tmp_path / "results.json").read_text())
    assert [(cell["case"], cell["precision"]) for cell in saved["cells"]] == [
        (case, precision) for precision in ("double", "single") for case in ("ghz", "shots")
    ]
    assert all(len(cell["entries"][0]["seconds"]) == 2 for cell in saved["cells"])
    document = (tmp_path / "performance.md").read_text()
    assert "    tools/compare --no-docs --qubits 5 --threads 1 --repeats 2 --cases ghz shots --simulators" in document
    assert (tmp_path / "pictures/comparison.png").read_bytes().startswith(b"\x89PNG")

    ended = compared(tmp_path, "--qubits 4 --threads 1 --repeats 1 --cases ghz --precisions double --simulators")
    assert ended.returncode == 0, ended.stdout + ended.stderr
    stored = store.read(tmp_path / "comparison.json")
    assert [(cell["n"], cell["run"]) for cell in stored["cells"]] == [(4, 1), (5, 0), (5, 0), (5, 0), (5, 0)]
    document = (tmp_path / "performance.md").read_text()
    assert "1 thread, n = 4 | 1 thread, n = 5" in document and document.count("    tools/compare") == 2

    # Figures of a simulator that does not take part again are not thrown away.
    stored["cells"][0]["entries"].append({"simulator": "qulacs", "setting": "plain", "seconds": [1.0]})
    store.write(tmp_path / "comparison.json", stored)
    before = (tmp_path / "comparison.json").read_bytes()
    ended = compared(tmp_path, "--qubits 4 --threads 1 --cases ghz --simulators")
    assert ended.returncode == 1 and "figures that would be lost: Qulacs in 1 cells" in ended.stderr
    assert (tmp_path / "comparison.json").read_bytes() == before
    ended = compared(tmp_path, "--render")
    assert ended.returncode == 0 and "- Qulacs: plain (1)" in (tmp_path / "performance.md").read_text()


def test_a_native_peer_needs_its_interpreter(tmp_path):
    ended = compared(tmp_path, "--simulators qulacs-native")
    assert ended.returncode == 2 and "qulacs-native is compiled by yourself: --native-python must name" in ended.stderr


# Noise


@pytest.mark.parametrize("simulator", ["velacamplix", "Aer density_matrix"])
def test_runs_with_noise_find_what_a_sum_over_kraus_operators_finds(simulator):
    python = sys.executable
    if simulator != "velacamplix":
        python = PEERS_PYTHON
        asked = [python, "-c", "import qiskit_aer"]
        if not Path(python).exists() or subprocess.run(asked, capture_output=True, check=False).returncode:
            pytest.skip(f"{python} has no qiskit_aer: tools/compare makes an environment that has")
    steps = []
    for name, angles, qubits in noise.gates(3):
        circuit = Circuit(3)
        getattr(circuit, name)(*angles, *qubits).channel(
            Channel.depolarizing(noise.P_TWO if len(qubits) == 2 else noise.P_ONE, len(qubits)), list(qubits)
        )
        steps += list(circuit)
    told = noise.measured(python, simulator, 3)
    assert told["seconds"] > 0
    assert np.abs(told["probabilities"] - kraus_sums.density(steps, 3).diagonal().real).max() < 1e-12


# Frameworks


@pytest.mark.parametrize("row", frameworks.ROWS, ids=[row.name for row in frameworks.ROWS])
def test_a_program_of_a_framework_gives_what_its_usual_simulator_gives(row):
    pytest.importorskip(row.told.split(",")[0].lower())
    ours = row.make(frameworks.OURS, 4, 1)
    found = [ours(), ours()]
    peer = {"Aer": "qiskit_aer", "lightning.qubit": "pennylane_lightning", "qsim": "qsimcirq"}[row.peer]
    pytest.importorskip(peer, reason=f"{peer} is not installed beside velacamplix, whose part of the row ran")
    expected = row.make(frameworks.THEIRS, 4, 1)()
    for answer in found:
        assert len(answer) == len(expected) and max(abs(a - b) for a, b in zip(answer, expected)) <= row.tolerance


def test_the_twenty_gates_are_those_that_the_backend_and_the_device_run():
    pytest.importorskip("qiskit")
    circuit = Circuit(4)
    for kind, angle, qubits in frameworks.twenty_gates(4):
        getattr(circuit, kind)(*([] if kind == "cx" else [angle]), *qubits)
    assert len(circuit) == 20
    shares = np.abs(np.asarray(numpy_simulator.run(circuit, np.eye(16, 1))).reshape((2,) * 4)) ** 2
    ones = [shares.take(1, axis=3 - q).sum() for q in range(4)]
    assert frameworks.backend(frameworks.OURS, 4, 1)() == pytest.approx(ones, abs=5 * (0.5 / 1024) ** 0.5)


def test_two_workers_take_turns_and_their_answers_are_compared(monkeypatch):
    """Both are ours: the second is only told that it is the peer."""
    row = frameworks.ROWS[1]
    pytest.importorskip("qiskit")
    told = []
    start = frameworks.Worker.__init__

    def started(self, python, simulator, *rest):
        told.append(simulator)
        start(self, python, frameworks.OURS, *rest)

    monkeypatch.setattr(frameworks.Worker, "__init__", started)
    options = argparse.Namespace(python=sys.executable, peers=sys.executable, threads=1, rounds=2)
    mine, peer, difference = frameworks.measured(row, 4, options)
    assert told == [frameworks.OURS, frameworks.THEIRS] and mine > 0 < peer and difference == 0
