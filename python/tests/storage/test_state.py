"""State vectors in files: the bits of states in memory, opened again, gone on with, and nothing that writes past circuits."""

import copy
import errno
import inspect
import json
import os
import pickle
import signal
import subprocess
import sys

import numpy as np
import pytest
from test_storage import Enough, end_every, random_circuit

from velacamplix import Circuit, DensityMatrix, StateVector, Storage, StoragePlan, run
from velacamplix.instructions.gate_methods import GateMethods
from velacamplix.instructions.many_qubit_methods import ManyQubitMethods

pytestmark = pytest.mark.filterwarnings("ignore:the file system of .* refuses direct access")


@pytest.fixture
def path(tmp_path):
    return str(tmp_path / "state")


def stored(n, path, part_qubits=10, resume=False, **options):
    return StateVector(n, threads=1, storage=Storage(path, part_qubits, resume), **options)


def bits(state):
    return state.statevector(order="little").tobytes()


@pytest.mark.parametrize("precision", ["double", "single"])
@pytest.mark.parametrize(("n", "part_qubits"), [(0, 3), (5, 5), (12, 12), (13, 12), (14, 11)])
def test_circuits_one_after_another_give_the_bits_of_memory(path, precision, n, part_qubits):
    part_qubits += precision == "single"
    here, there = stored(n, path, part_qubits, seed=3, precision=precision), StateVector(n, precision, 1, 3)
    assert bits(here) == bits(there) and here.amplitude(0) == 1
    for seed in range(3 if n else 0):
        circuit = random_circuit(n, 60, seed)
        assert here.run(circuit) is here
        there.run(circuit)
        assert bits(here) == bits(there)
        assert here.counts(50) == there.counts(50) and here.sample(5).tolist() == there.sample(5).tolist()
        assert here.measure([1, 0]) == there.measure([1, 0])
    if not n:
        return
    assert here.distribution([3, 0]).tolist() == there.distribution([3, 0]).tolist() and here.norm() == there.norm()
    assert here.probability("10", [4, 1]) == there.probability("10", [4, 1])
    for ask in ("expectation", "variance"):
        assert getattr(here, ask)("Z0 X3 + 2*Y1") == getattr(there, ask)("Z0 X3 + 2*Y1")
    assert here.reduced([0, 4]).tolist() == there.reduced([0, 4]).tolist()
    assert here.overlap(there) == there.overlap(there) == there.overlap(here)
    assert here.amplitude(7) == there.amplitude(7) == there.array[int(f"{7:0{n}b}"[::-1], 2)]
    assert here.amplitude(7, order="little") == there.array[7]
    assert here.storage.parts == 2 ** (n - min(n, part_qubits)) and there.storage is None


def test_gates_by_themselves_are_circuits(path):
    here, there = stored(12, path), StateVector(12, threads=1)
    turn = [[0.6, 0.8], [0.8, -0.6]]
    for state in (here, there):
        state.h(range(12)).cx([0, 11], [11, 5]).rx(0.3, 11, controls=[2], control_values="0").t(10).swap(0, 11)
        state.matrix(turn, 11, controls=[0]).pauli_rotation("XY", 0.4, [11, 1]).mcx([0, 1, 2], 11).u(0.1, 0.2, 0.3, 10)
    assert bits(here) == bits(there)
    # Lists of places are one circuit.
    stages = here.storage.stages
    here.h(range(12))
    assert here.storage.stages - stages <= 2 + 1


def test_a_state_is_opened_again(path):
    circuit, more = random_circuit(12, 80, 1), random_circuit(12, 80, 2)
    with stored(12, path) as state:
        state.run(circuit)
        with pytest.raises(BlockingIOError, match="another run"):
            stored(12, path, resume=True)
    with pytest.raises(RuntimeError, match="released"):
        state.norm()
    with pytest.raises(FileExistsError, match="resume=True"):
        stored(12, path)
    there = StateVector(12, threads=1).run(circuit)
    again = stored(12, path, None, resume=True)  # the size of a part is in the journal
    assert bits(again) == bits(there) and again.storage.part_qubits == 10
    assert bits(again.run(more)) == bits(there.run(more))
    again.release()
    for options, words in (
        ({"n": 13}, "n was 12, is 13"), ({"precision": "single"}, "precision was 'double', is 'single'"),
        ({"part_qubits": 11}, "part_qubits was 10, is 11"),
    ):  # fmt: skip
        with pytest.raises(ValueError, match=words):
            stored(**{"n": 12, "path": path, "resume": True, **options})
    with pytest.raises(ValueError, match="kind was 'state', is 'run'"):
        run(circuit, storage=Storage(path, 10, resume=True))
    # One whose making did not come to its end is made anew.
    with open(path + ".journal", "rb") as file:
        header = file.readline()
    with open(path + ".journal", "wb") as file:
        file.write(header)
    new = stored(12, path, resume=True)
    assert new.amplitude(0) == 1 and new.norm() == 1


def test_journals_that_are_no_journals(path):
    stored(12, path).run(Circuit(12).h(range(12))).release()
    with open(path + ".journal", "rb") as file:
        good = file.read().splitlines()
    fits = {"blocks": json.loads(good[-1])["blocks"]}
    for line in (
        b"7", b"[]", b"{", b'{"blocks": 3}', b'{"blocks": []}', b'{"blocks": [0, 1, 2]}', b'{"blocks": [0, 1, 2, 2]}',
        b'{"blocks": [0, 1, 2, 9]}', b'{"blocks": [0, 1, -1, 2]}', b'{"blocks": [0, 1, 2, 3.0]}', b'{"circuit": 3, "jobs": 4}',
        b'{"circuit": "", "jobs": 0}', b'{"circuit": "", "jobs": true}', b'{"a": 1}', b"\xff\xfe",
    ):  # fmt: skip
        with open(path + ".journal", "wb") as file:
            file.write(b"\n".join([*good, line, b""]))
        with pytest.raises(ValueError, match="damaged"):
            stored(12, path, resume=True)
    with open(path + ".journal", "wb") as file:
        file.write(b"\n".join([*good, json.dumps(fits).encode(), b'{"blo']))  # cut off
    assert abs(stored(12, path, resume=True).norm() - 1) < 1e-9


@pytest.mark.parametrize("n_before", [0, 1])
def test_a_circuit_that_ends_early_is_gone_on_with(path, monkeypatch, n_before):
    before, circuit = random_circuit(12, 50, 1), random_circuit(12, 100, 2)
    there = StateVector(12, threads=1)
    state = stored(12, path)
    for _ in range(n_before):
        state.run(before)
        there.run(before)
    there.run(circuit)
    end_every(5, monkeypatch)
    ends = 0
    while True:
        try:
            state.run(circuit)
            break
        except Enough as error:
            ends += 1
            assert "run(circuit) with the same circuit goes on from there" in error.__notes__[-1]
        for ask in (state.norm, lambda: state.run(before), lambda: state.h(0), state.copy, lambda: state.expectation("Z0")):
            with pytest.raises(RuntimeError, match="acted on this state in part"):
                ask()
        if ends % 2:
            state.release()
            state = stored(12, path, resume=True)
    assert ends > 3 and bits(state) == bits(there)


KILLED = """
import sys, time
sys.path.insert(0, sys.argv[2])
from test_storage import random_circuit
from velacamplix import StateVector, Storage
from velacamplix.storage import walk
real = walk.Walk._write
def write(self, job, octets):
    real(self, job, octets)
    print(self._files.done, flush=True)
    time.sleep(0.02)
walk.Walk._write = write
state = StateVector(12, threads=1, storage=Storage(sys.argv[1], 10, True))
if not state._files.begun:
    state.run(random_circuit(12, 50, 1))
state.run(random_circuit(12, 300, 2))
"""


def test_a_killed_process_loses_the_parts_that_were_in_memory(path):
    script = [sys.executable, "-c", KILLED, path, os.path.dirname(__file__)]
    first = StateVector(12, threads=1).run(random_circuit(12, 50, 1))
    parts = 0
    with subprocess.Popen(script, stdout=subprocess.PIPE, text=True) as process:
        told = 0
        while parts < 2 or told != 3:  # in the second circuit
            told = int(process.stdout.readline())
            parts += told == 1
        process.send_signal(signal.SIGKILL)
    again = stored(12, path, resume=True)
    assert bits(again.run(random_circuit(12, 300, 2))) == bits(first.run(random_circuit(12, 300, 2)))


def test_what_writes_amplitudes_by_itself_is_refused(path):
    state = stored(12, path).run(Circuit(12).h(range(12)))
    amplitudes = bits(state)
    refused = {
        "reset": (), "set_basis_state": (0,), "set_state": (np.eye(2**12)[0], "little"), "prepare": ([1, 0], [0]),
        "qram": ([[1, 0]], [], [1]), "binary_qram": ([1], [0], [1]), "phase_oracle": ([1], [0]), "project": (0, 0),
        "project_then_reset": (0, 0), "estimate": ("Z0", 10), "measure": (0, True),
    }  # fmt: skip
    for name, arguments in refused.items():
        with pytest.raises(RuntimeError, match=rf"{name}.* would write .*run\(circuit\).*copy\(\)"):
            getattr(state, name)(*arguments)
    with pytest.raises(RuntimeError, match="in a file, not in an array"):
        state.array  # noqa: B018
    with pytest.raises(RuntimeError, match="in a file, not in an array"):
        np.asarray(state)
    with pytest.raises(ValueError, match="fusion must be False"):
        state.run(Circuit(12), fusion=True)
    with pytest.raises(ValueError, match="initial must be a state in memory"):
        run(Circuit(12).h(0), initial=state)
    with pytest.raises(RuntimeError, match="set up again"):
        state.__init__(3)
    # Whoever asks the core itself is refused there.
    core = state._live()
    assert not core.view().flags.writeable
    with pytest.raises(ValueError, match="WRITEABLE"):
        core.view().flags.writeable = True
    for act in (core.reset, lambda: core.apply("X", (0,), (), ()), lambda: core.begin(0), lambda: core.reset_to_str("0" * 12)):
        with pytest.raises(RuntimeError, match="for reading alone"):
            act()
    assert bits(state) == amplitudes


def test_every_public_method_is_a_circuit_a_question_or_refused(path):
    # A new method of StateVector must be looked at: may it write?
    gates = {name for kind in (GateMethods, ManyQubitMethods) for name in vars(kind) if not name.startswith("_")}
    reads = {
        "amplitude", "array", "bloch_vector", "copy", "counts", "distribution", "distribution_dict", "entropy", "expectation",
        "fidelity", "load", "n_qubits", "norm", "num_qubits", "overlap", "precision", "probabilities", "probability", "purity",
        "reduced", "release", "run", "sample", "save", "schmidt", "seed", "statevector", "storage", "term_values", "threads",
        "to_dict", "variance", "matrix", "measure",
    }  # fmt: skip
    refused = {"reset", "set_basis_state", "set_state", "prepare", "qram", "binary_qram", "phase_oracle", "project",
               "project_then_reset", "estimate"}  # fmt: skip
    public = {name for name, _ in inspect.getmembers(StateVector) if not name.startswith("_")}
    assert public - gates == reads | refused
    state = stored(12, path)
    assert {name for name in gates if "as_circuit" not in getattr(type(state), name).__code__.co_qualname} == set()


def test_copies_are_in_memory(path, tmp_path):
    state = stored(12, path, seed=5).run(random_circuit(12, 50))
    there = StateVector(12, threads=1, seed=5).run(random_circuit(12, 50))
    state.save(str(tmp_path / "copy.npz"))
    for other in (state.copy(), copy.deepcopy(state), pickle.loads(pickle.dumps(state)), StateVector.load(str(tmp_path / "copy.npz"))):
        assert type(other) is StateVector and other.storage is None
        assert other.x(0).counts(20) == there.copy().x(0).counts(20)
    assert DensityMatrix.from_statevector(stored(2, path + "2", 2).h(0)).purity() == pytest.approx(1)
    assert "storage=" in repr(state) and "storage" in state._repr_html_() and state.to_dict() == there.to_dict()


def test_what_it_takes_is_told_and_wrong_arguments_are_refused(path):
    state = stored(12, path)
    assert isinstance(state.storage, StoragePlan) and state.storage.bytes_written == 0
    assert os.path.getsize(path) == state.storage.file_bytes == 5 * 2**14
    told = []
    state.run(Circuit(12).h(range(12)), progress=told.append)
    plan = state.storage
    assert told[-1].done == told[-1].total == plan.parts * plan.stages
    assert plan.bytes_written == plan.stages * 2**16 == plan.bytes_read + 2**16
    state.h(0)
    assert state.storage.bytes_read == plan.bytes_read + 2**16
    for wrong, kind, words in (
        ({"n": -1}, ValueError, "n must"), ({"n": 51}, ValueError, "n must"), ({"n": 2, "seed": -1}, ValueError, "seed"),
        ({"n": 2, "storage": 3}, TypeError, "storage must be a path"), ({"n": 45}, MemoryError, "3 parts of 44 qubits"),
    ):  # fmt: skip
        with pytest.raises(kind, match=words):
            StateVector(**{"storage": Storage(path + "x", 44), **wrong})
    assert not os.path.exists(path + "x")

    class Mine(StateVector):
        pass

    with pytest.raises(TypeError, match="storage is for StateVector itself, got a Mine"):
        Mine(2, storage=path + "x")


def test_a_full_disk_is_found_out_before(path, monkeypatch):
    class Small:
        f_bavail, f_frsize = 1, 4096

    monkeypatch.setattr(os, "fstatvfs", lambda file: Small)
    with pytest.raises(OSError, match="are free") as raised:
        stored(12, path)
    assert raised.value.errno == errno.ENOSPC
    assert not os.path.exists(path) and not os.path.exists(path + ".journal")


def test_one_call_at_a_time(path):
    state = stored(12, path)

    def ask(_):
        with pytest.raises(RuntimeError, match="at work|acted on this state in part"):
            state.h(0)
        with pytest.raises(RuntimeError, match="acted on this state in part"):
            state.norm()

    state.run(Circuit(12).h(range(12)), progress=ask)
    assert abs(state.norm() - 1) < 1e-9
