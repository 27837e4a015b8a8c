"""The comparison with other simulators, benchmarks/compare: its cases, its workers, its judgement, its report.

The peers' workers are tried where an interpreter that has them is found: the one that VELACAMPLIX_PEERS names, or that
of the environment which tools/compare makes.
"""

import argparse
import json
import os
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
import cases  # noqa: E402
import figures  # noqa: E402
import frameworks  # noqa: E402
import noise  # noqa: E402
import report  # noqa: E402
from cell import Cell  # noqa: E402
from crew import Crew, Worker, WorkerFailed  # noqa: E402

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


# Report


def results(**peers):
    """As the comparison saves them: one circuit, ours at 2 ms, and peers at the given seconds."""

    def entries(times):
        return [{"simulator": key, "setting": setting, "seconds": seconds} for key, setting, seconds in times]

    times = [("velacamplix", "exact", [0.002, 0.001, 0.003])] + [(k, "plain", [v]) for k, v in peers.items()]
    cell = {"case": "ghz", "n": 16, "precision": "double", "threads": 2, "entries": entries(times)}
    told = {"date": "2026-01-01", "command": "tools/compare --quick", "machine": {"processor": "a"}, "repeats": 3}
    return {**told, "versions": {"qulacs": {"qulacs": "1.2"}}, "failures": [], "cells": [cell]}


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
    assert "    tools/compare --quick\n" in text


def test_the_report_says_where_a_peer_wins():
    assert "No peer was faster" in report.markdown(results(qulacs=0.004, aer=0.0021), "a.png")
    text = report.markdown(results(qulacs=0.004, aer=0.001), "a.png")
    assert "A peer was faster than velacamplix without fusion in 1 of 1 cells" in text
    assert "- GHZ: n = 16, double, 2 threads: Qiskit Aer 1.00 ms against 2.00 ms" in text
    assert "| GHZ | **0.50** |" in text
    assert "| GHZ | 2.00 ms | **1.00 ms** | 4.00 ms | 0.50 |" in text


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


def test_from_the_command_to_report_and_picture(tmp_path):
    """The whole way with our simulator alone."""
    arguments = ["--python", sys.executable, "--peers", sys.executable, "--output", str(tmp_path), "--no-docs"]
    arguments += "--qubits 5 --threads 1 --repeats 2 --cases ghz shots --simulators".split()
    ended = subprocess.run([sys.executable, str(COMPARE), *arguments], capture_output=True, text=True, timeout=120)
    assert ended.returncode == 0, ended.stdout + ended.stderr
    saved = json.loads((tmp_path / "results.json").read_text())
    assert [(cell["case"], cell["precision"]) for cell in saved["cells"]] == [
        (case, precision) for precision in ("double", "single") for case in ("ghz", "shots")
    ]
    assert all(len(cell["entries"][0]["seconds"]) == 2 for cell in saved["cells"])
    document = (tmp_path / "performance.md").read_text()
    assert "    tools/compare --no-docs --qubits 5 --threads 1 --repeats 2 --cases ghz shots --simulators\n" in document
    assert (tmp_path / "pictures/comparison.png").read_bytes().startswith(b"\x89PNG")


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
