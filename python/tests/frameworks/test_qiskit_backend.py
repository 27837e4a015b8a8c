"""The simulator as a backend of Qiskit's: transpiling, options, jobs, results."""

import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
from exact_runs import run_exact

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")

import qiskit.circuit  # noqa: E402
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister, transpile  # noqa: E402
from qiskit.circuit import CircuitInstruction, Measure, Parameter, ParameterVector, library  # noqa: E402
from qiskit.circuit.random import random_circuit  # noqa: E402
from qiskit.exceptions import QiskitError  # noqa: E402
from qiskit.primitives import BackendEstimatorV2, BackendSamplerV2, StatevectorEstimator  # noqa: E402
from qiskit.providers import JobError, JobStatus, JobTimeoutError  # noqa: E402
from qiskit.quantum_info import Kraus, SparsePauliOp, Statevector, random_statevector, random_unitary  # noqa: E402
from qiskit.transpiler import generate_preset_pass_manager  # noqa: E402

from velacamplix import Channel, NoiseModel, run  # noqa: E402
from velacamplix.qiskit import VelacamplixBackend, to_velacamplix  # noqa: E402
from velacamplix.qiskit import job as job_module  # noqa: E402


def flipped(text):
    return text[::-1]


def bell():
    circuit = QuantumCircuit(2, name="bell", metadata={"kind": "test"})
    circuit.h(0)
    circuit.cx(0, 1)
    circuit.measure_all()
    return circuit


# --- The target ---


def of_everything():
    """Every kind of instruction once, on 6 qubits."""
    circuit = QuantumCircuit(6, 6)
    for name, gate in library.get_standard_gate_name_mapping().items():
        if name not in ("measure", "delay", "reset"):
            angles = [0.3 + 0.1 * place for place in range(len(gate.params))]
            circuit.append(type(gate)(*angles) if angles else gate, range(gate.num_qubits))
    circuit.delay(100, 1)
    circuit.barrier()
    circuit.append(library.MCXGate(5), range(6))
    circuit.append(library.MCPhaseGate(0.3, 4), range(5))
    circuit.unitary(np.diag([1, 1j, 1, -1, 1, 1, 1, 1]), [0, 1, 2])
    circuit.append(library.DiagonalGate([1, 1j, 1, -1]), [0, 1])
    circuit.append(library.PermutationGate([1, 2, 0]), [0, 1, 2])
    circuit.append(library.PauliEvolutionGate(SparsePauliOp(["XX", "ZZ"]), 0.3), [0, 1])
    circuit.reset(5)
    circuit.initialize(np.array([1, 0, 0, 1j]) / np.sqrt(2), [0, 1])
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)) as otherwise:
        circuit.x(1)
    with otherwise:
        circuit.y(1)
    with circuit.for_loop(range(3)):
        circuit.h(1)
    with circuit.while_loop((circuit.clbits[0], 1)):
        circuit.h(0)
        circuit.measure(0, 0)
    with circuit.switch(circuit.cregs[0]) as case:
        with case(1):
            circuit.x(0)
    if hasattr(qiskit.circuit, "BoxOp"):
        with circuit.box():
            circuit.h(3)
    circuit.measure(range(6), range(6))
    return circuit


def test_transpiling_leaves_everything_whole():
    circuit, backend = of_everything(), VelacamplixBackend()
    left, whole = [dict(one.count_ops()) for one in (transpile(circuit, backend, optimization_level=0), circuit)]
    if "permutation" not in left:  # older versions of Qiskit make them exchanges in any case
        left["swap"] -= 2
        whole.pop("permutation")
    assert left == whole
    # What level 1 removes and joins are gates on one qubit, and pairs that cancel.
    simplified = transpile(circuit, backend, optimization_level=1)
    assert set(simplified.count_ops()) <= set(circuit.count_ops())
    wide = [name for name, times in circuit.count_ops().items() if name not in simplified.count_ops()]
    mapping = library.get_standard_gate_name_mapping()
    assert all(name in mapping and mapping[name].num_qubits <= 2 for name in wide if name != "permutation")
    counts = backend.run(simplified, shots=50, seed_simulator=1).result().get_counts()
    assert sum(counts.values()) == 50


@pytest.mark.parametrize("level", range(4))
def test_transpiled_circuits_are_the_same(level):
    backend = VelacamplixBackend()
    for seed in range(5):
        circuit = random_circuit(4, 6, seed=seed)
        done = transpile(circuit, backend, optimization_level=level, seed_transpiler=1)
        by_hand = generate_preset_pass_manager(level, backend, seed_transpiler=1).run(circuit)
        state = run(to_velacamplix(done)).state
        assert done == by_hand
        np.testing.assert_allclose(state.array, Statevector(circuit).data, rtol=0, atol=1e-12)


def test_a_target_without_a_number_of_qubits():
    backend = VelacamplixBackend()
    assert backend.num_qubits is None and backend.coupling_map is None and backend.max_circuits is None
    assert transpile(QuantumCircuit(200), backend).num_qubits == 200
    assert {"if_else", "switch_case", "while_loop", "for_loop", "break_loop", "continue_loop"} <= set(backend.operation_names)


# --- Results ---


def test_a_result_tells_all():
    job = VelacamplixBackend().run(bell(), shots=200, seed_simulator=7, memory=True)
    result = job.result()
    (one,) = result.results
    mine = run(to_velacamplix(bell()), shots=200, seed=7)
    assert result.get_counts() == {flipped(bits): times for bits, times in mine.counts.items()}
    assert result.get_memory() == [flipped("".join(map(str, row))) for row in mine.bits.tolist()]
    assert set(result.data()["counts"]) == {"0x0", "0x3"}
    assert result.success and result.status == "COMPLETED" and result.job_id == job.job_id()
    assert result.backend_name == "velacamplix" and job.backend().name == "velacamplix"
    assert one.shots == 200 and one.success and one.status == "DONE" and one.seed_simulator == 7
    header = one.header if isinstance(one.header, dict) else one.header.to_dict()
    assert header["name"] == "bell" and header["metadata"] == {"kind": "test"}
    assert one.metadata["method"] == "statevector" and one.metadata["active_input_qubits"] == [0, 1]
    assert result.get_counts("bell") == result.get_counts(0) == result.get_counts(bell())
    assert result.to_dict()["results"][0]["data"]["counts"] == result.data()["counts"]


def test_registers_are_told_apart():
    circuit = QuantumCircuit(QuantumRegister(3), ClassicalRegister(1, "a"), ClassicalRegister(70, "b"))
    circuit.x([0, 2])
    circuit.measure([0, 1, 2], [0, 1, 70])
    result = VelacamplixBackend().run(circuit, shots=3, memory=True).result()
    expected = "1" + 69 * "0" + " 1"
    assert result.get_counts() == {expected: 3} and result.get_memory() == 3 * [expected]


def test_circuits_without_measurements_have_no_counts():
    with_reset = QuantumCircuit(2)
    with_reset.h(0)
    with_reset.cx(0, 1)
    with_reset.reset(0)
    result = VelacamplixBackend().run([QuantumCircuit(2, 2), QuantumCircuit(1), with_reset]).result()
    assert result.success and [result.data(i) for i in range(3)] == [{}, {}, {}]


def test_later_changes_of_a_circuit_do_not_matter():
    circuit = bell()
    job = VelacamplixBackend().run(circuit, shots=10)
    circuit.x(0)
    circuit.measure([0], [0])
    assert set(job.result().get_counts()) <= {"00", "11"}


def test_seeds_of_any_kind():
    backend = VelacamplixBackend(shots=100)

    def shots(seed):
        return backend.run(bell(), seed_simulator=seed, memory=True).result().get_memory()

    for seed in (5, np.int64(5), 2**80, np.random.SeedSequence(2**80)):
        assert shots(seed) == shots(seed)
    assert shots(5) != shots(2**80 + 5) and shots(np.random.default_rng(1)) == shots(np.random.default_rng(1))
    generator = np.random.default_rng(1)
    assert shots(generator) != shots(generator)  # it goes on
    assert shots(None) != shots(None)


def test_many_circuits_are_each_as_alone():
    circuits = [bell(), random_circuit(3, 4, measure=True, seed=1), random_circuit(3, 4, measure=True, seed=2, conditional=True)]
    backend = VelacamplixBackend(shots=300)
    together = backend.run(circuits, seed_simulator=3, memory=True).result()
    assert backend.run(circuits, seed_simulator=3, threads=1, memory=True).result().to_dict()["results"][2]["data"] == together.data(2)
    seeds = np.random.SeedSequence(3).generate_state(3).tolist()
    for place, (circuit, seed) in enumerate(zip(circuits, seeds)):
        alone = backend.run(circuit, seed_simulator=seed, memory=True).result()
        assert alone.data() == together.data(place) and together.results[place].seed_simulator == seed


def test_parameters_are_bound():
    a, v = Parameter("a"), ParameterVector("v", 2)
    first, second = QuantumCircuit(1), QuantumCircuit(2)
    first.ry(a, 0)
    second.ry(v[0] + a, 0)
    second.ry(v[1], 1)
    for circuit in (first, second):
        circuit.measure_all()
    pi = np.pi
    binds = [{a: [0.0, pi]}, {a: [0.0, pi, 0.0], v: [[0, 0], [0, 0], [pi, pi]]}]
    result = VelacamplixBackend().run([first, second], parameter_binds=binds, shots=5).result()
    assert result.get_counts() == [{"0": 5}, {"1": 5}, {"00": 5}, {"01": 5}, {"11": 5}]
    by_name = VelacamplixBackend().run(first, parameter_binds=[{"a": pi}], shots=5).result()
    assert by_name.get_counts() == {"1": 5}


@pytest.mark.parametrize(
    "binds, message",
    [
        ([{"a": [1.0]}, {}], "a dictionary for each of 1 circuits, got 2"),
        ([{"b": [1.0]}], "parameter_binds: .*'b'"),
        ([{"a": [1.0, np.nan]}], "parameter_binds: .*finite"),
        ([{"a": [1.0], "c": [1.0, 2.0]}], "parameter_binds: .*as many numbers"),
    ],
)
def test_bindings_that_do_not_fit(binds, message):
    circuit = QuantumCircuit(1)
    circuit.rx(Parameter("a"), 0)
    circuit.rx(Parameter("c"), 0)
    with pytest.raises(ValueError, match=message):
        VelacamplixBackend().run(circuit, parameter_binds=binds)
    with pytest.raises(TypeError, match="a list with a dictionary"):
        VelacamplixBackend().run(circuit, parameter_binds={"a": 1.0})


def test_one_circuit_that_cannot_be_run_leaves_the_others():
    bad, open_ = QuantumCircuit(1, 1, name="bad"), QuantumCircuit(1, name="open")
    bad.append(qiskit.circuit.Instruction("mystery", 1, 0, []), [0])
    open_.rx(Parameter("a"), 0)
    job = VelacamplixBackend().run([bell(), bad, open_], shots=10, seed_simulator=1)
    result = job.result()
    assert not result.success and result.status == "PARTIAL COMPLETED" and job.status() is JobStatus.DONE
    assert sum(result.get_counts(0).values()) == 10
    with pytest.raises(QiskitError, match="instruction 0, 'mystery' on qubits 0"):
        result.get_counts("bad")
    assert "parameter" in result.results[2].status
    alone = VelacamplixBackend().run(bad)
    assert alone.result().status == "ERROR" and alone.status() is JobStatus.ERROR
    # Among others each has the seed it would have had.
    assert result.results[0].seed_simulator == np.random.SeedSequence(1).generate_state(3)[0]


def test_a_circuit_too_large_for_the_machine():
    wide = QuantumCircuit(60)
    wide.h(range(60))
    wide.measure_all()
    result = VelacamplixBackend().run([wide, bell()], shots=10).result()
    assert "MemoryError" in result.results[0].status and result.results[1].success


# --- Options ---


def test_options_have_their_usual_names():
    backend = VelacamplixBackend(shots=10, threads=1)
    assert backend.options.shots == 10 and backend.options.method == "automatic" and backend.options.noise_model is None
    backend.set_options(shots=20, seed_simulator=1)
    assert sum(backend.run(bell()).result().get_counts().values()) == 20
    assert sum(backend.run(bell(), shots=30).result().get_counts().values()) == 30
    for options in (
        {"max_parallel_threads": 0}, {"max_parallel_threads": 2, "threads": None}, {"precision": "single"}, {"fusion": True},
        {"method": "statevector"}, {"method": "density_matrix"}, {"device": "CPU"}, {"memory": None},
    ):  # fmt: skip
        result = VelacamplixBackend().run(bell(), shots=10, **options).result()
        assert result.success and set(result.get_counts()) <= {"00", "11"}
    assert VelacamplixBackend().run(bell(), method="density_matrix").result().results[0].metadata["method"] == "exact"


@pytest.mark.parametrize(
    "options, error, message",
    [
        ({"shot": 10}, AttributeError, "Options field shot is not valid"),
        ({"shots": 0}, ValueError, "shots"),
        ({"shots": "ten"}, TypeError, "shots"),
        ({"method": "stabilizer"}, ValueError, "method must be .*, got 'stabilizer'; amplitudes are all"),
        ({"device": "GPU"}, ValueError, "device must be 'CPU', got 'GPU'; this simulator runs on CPUs"),
        ({"precision": "half"}, ValueError, "precision"),
        ({"memory": 1}, TypeError, "memory"),
        ({"fusion": "yes"}, TypeError, "fusion"),
        ({"seed_simulator": -1}, ValueError, "seed_simulator"),
        ({"seed_simulator": "x"}, TypeError, "seed_simulator"),
        ({"threads": 0}, ValueError, "threads"),
        ({"threads": 1, "max_parallel_threads": 1}, ValueError, "give one of them"),
        ({"noise_model": "loud"}, TypeError, "noise_model must be"),
    ],
)
def test_what_is_not_offered_is_refused(options, error, message):
    with pytest.raises(error, match=message):
        VelacamplixBackend(**options).run(bell())
    with pytest.raises(error, match=message):
        VelacamplixBackend().run(bell(), **options)
    backend = VelacamplixBackend()
    if "noise_model" not in options:
        with pytest.raises(error, match=message):
            backend.set_options(**options)
        assert dict(backend.options.items()) == dict(VelacamplixBackend().options.items())


@pytest.mark.parametrize("given", [None, 3, "bell", [bell(), None]])
def test_something_else_than_circuits(given):
    with pytest.raises(TypeError, match="run_input"):
        VelacamplixBackend().run(given)


def test_no_circuits():
    result = VelacamplixBackend().run([]).result()
    assert result.success and result.results == []


def test_noise_of_the_package():
    noise = NoiseModel().after("cx", Channel.bit_flip(1.0), [(0, 1)]).readout(0.0, 1.0, qubits=1)
    for method in ("automatic", "statevector", "density_matrix"):
        result = VelacamplixBackend(noise_model=noise, method=method).run([bell(), bell()], shots=50, seed_simulator=1).result()
        # Both bits flip, and that of qubit 1 is read as 0.
        assert set(result.get_counts(0)) == {"00", "01"} and result.get_counts(0) != result.get_counts(1)
        expected = {"statevector": "trajectories", "density_matrix": "exact"}.get(method)
        assert expected in (None, result.results[0].metadata["method"])


# --- Jobs ---


def endless():
    """A circuit of some minutes."""
    circuit = QuantumCircuit(20)
    for _ in range(300):
        circuit.rx(0.1, range(20))
        circuit.cx(range(19), range(1, 20))
    circuit.measure_all()
    return circuit


@pytest.mark.parametrize("count", [1, 2])
def test_a_job_is_cancelled(count):
    job = VelacamplixBackend(threads=1).run([endless()] * count)
    assert job.status() in (JobStatus.RUNNING, JobStatus.QUEUED)
    with pytest.raises(JobTimeoutError):
        job.result(timeout=0.01)
    began = time.monotonic()
    assert job.cancel()
    with pytest.raises(JobError, match="cancelled"):
        job.result(timeout=60)
    assert time.monotonic() - began < 30
    assert job.cancelled() and job.in_final_state() and not job.cancel()
    # The thread is free again.
    assert VelacamplixBackend().run(bell(), shots=5).result(timeout=60).success


def test_a_job_is_submitted_once():
    job = VelacamplixBackend().run(bell(), shots=1)
    with pytest.raises(JobError, match="already"):
        job.submit()
    assert job.result() is job.result() and job.done()
    job.wait_for_final_state()


def test_a_job_that_waits_is_cancelled(monkeypatch):
    monkeypatch.setattr(job_module, "_MOST_AT_ONCE", 1)
    monkeypatch.setattr(job_module, "_threads", {})
    backend = VelacamplixBackend(threads=1)
    running = backend.run(endless())
    last = backend.run(bell(), shots=100_000)
    assert last.status() is JobStatus.QUEUED and last.cancel() and last.status() is JobStatus.CANCELLED
    with pytest.raises(JobError, match="cancelled"):
        last.result()
    assert running.cancel()
    with pytest.raises(JobError, match="cancelled"):
        running.result(timeout=60)


class _Asleep:
    """Threads of which none ever comes."""

    def submit(self, *work):
        pass


def test_who_wants_the_result_does_the_work_where_no_thread_has_come(monkeypatch):
    monkeypatch.setattr(job_module, "_pool", _Asleep)
    job = VelacamplixBackend().run(bell(), shots=100_000, seed_simulator=7)
    assert job.status() is JobStatus.QUEUED
    with pytest.raises(JobTimeoutError):  # a wait with an end is one
        job.result(timeout=0.01)
    assert sum(job.result().get_counts().values()) == 100_000
    assert job.result() is job.result(timeout=60) and job.status() is JobStatus.DONE and not job.cancel()
    cancelled = VelacamplixBackend().run(bell(), shots=100_000)
    assert cancelled.cancel()
    with pytest.raises(JobError, match="cancelled"):
        cancelled.result()


def test_small_circuits_wake_no_thread(monkeypatch):
    monkeypatch.setattr(job_module, "_pool", _Asleep)
    backend = VelacamplixBackend(seed_simulator=7)
    large, noisy, looping = QuantumCircuit(11), bell(), bell()
    noisy.append(Kraus([np.sqrt(0.5) * np.eye(2)] * 2), [0])
    with looping.while_loop((looping.clbits[0], 1)):
        looping.measure(0, 0)
    for small in (bell(), [bell()] * 3, []):
        job = backend.run(small, shots=1000)
        assert job.status() is JobStatus.DONE and not job.cancel()
    for other in (large, noisy, looping, [bell()] * 30):
        assert backend.run(other, shots=1000).status() is JobStatus.QUEUED


@pytest.mark.parametrize("is_awake", [True, False])
def test_control_c_cancels_a_job_that_is_waited_for(monkeypatch, is_awake):
    if not is_awake:
        monkeypatch.setattr(job_module, "_pool", _Asleep)
    job = VelacamplixBackend(threads=1).run(endless())
    timer = threading.Timer(0.3, signal.pthread_kill, [threading.main_thread().ident, signal.SIGINT])
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        job.result()
    timer.join()
    with pytest.raises(JobError, match="cancelled"):
        job.result(timeout=60)
    assert job.status() is JobStatus.CANCELLED


def test_jobs_of_forked_processes():
    """A thread that waits in one process is none in the other."""
    code = """
import os, sys
from qiskit import QuantumCircuit
from qiskit.providers import JobError
from velacamplix.qiskit import VelacamplixBackend
circuit = QuantumCircuit(2)
circuit.measure_all()
backend = VelacamplixBackend(threads=1)
done = backend.run(circuit, shots=3)
done.result()
long = QuantumCircuit(20)
for _ in range(300):
    long.rx(0.1, range(20))
    long.cx(range(19), range(1, 20))
running = backend.run(long)
child = os.fork()
if not child:
    good = done.result().get_counts() == {"00": 3} == backend.run(circuit, shots=3).result(timeout=60).get_counts()
    try:
        running.result(timeout=60)
    except JobError as error:
        os._exit(0 if good and "forked" in str(error) else 1)
    os._exit(2)
running.cancel()
sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
"""
    subprocess.run([sys.executable, "-W", "ignore", "-c", code], check=True, timeout=200)


def test_jobs_beside_each_other():
    backend = VelacamplixBackend(seed_simulator=4, shots=100)
    jobs = [backend.run(bell()) for _ in range(20)]
    counts = [job.result().get_counts() for job in jobs]
    assert all(one == counts[0] for one in counts) and len({job.job_id() for job in jobs}) == 20


# --- Qiskit's own primitives ---


def test_its_sampler_for_backends():
    sampler = BackendSamplerV2(backend=VelacamplixBackend(), options={"seed_simulator": 11})
    a = Parameter("a")
    circuit = QuantumCircuit(2, 1)
    circuit.ry(a, 0)
    circuit.cx(0, 1)
    circuit.measure(1, 0)
    data = sampler.run([(circuit, [[0.0], [np.pi]]), bell()], shots=400).result()
    assert data[0].data.c.shape == (2,)
    assert [data[0].data.c.get_counts(i) for i in range(2)] == [{"0": 400}, {"1": 400}]
    assert abs(data[1].data.meas.get_counts()["11"] - 200) < 60


def test_its_estimator_for_backends():
    estimator = BackendEstimatorV2(backend=VelacamplixBackend(seed_simulator=5), options={"default_precision": 0.01})
    circuit = random_circuit(3, 4, seed=3)
    operators = [SparsePauliOp(["ZZI", "XIX"], [1.0, -0.5]), "YYY"]
    isa = generate_preset_pass_manager(1, VelacamplixBackend()).run(circuit)
    mine = estimator.run([(isa, operators)]).result()[0].data.evs
    exact = StatevectorEstimator().run([(circuit, operators)]).result()[0].data.evs
    np.testing.assert_allclose(mine, exact, rtol=0, atol=0.08)


# --- Beside Aer ---


def gates():
    """Every standard gate, and what a target has of any size."""
    for name, gate in library.get_standard_gate_name_mapping().items():
        if name not in ("measure", "delay", "reset"):
            angles = [0.7 + 0.4 * place for place in range(len(gate.params))]
            yield name, type(gate)(*angles) if angles else gate
    yield "mcx", library.MCXGate(3)
    yield "mcphase", library.MCPhaseGate(0.3, 3)
    yield "open control", library.CXGate(ctrl_state=0)
    yield "unitary", library.UnitaryGate(random_unitary(8, seed=3))
    yield "diagonal", library.DiagonalGate([1, 1j, -1j, -1])
    yield "permutation", library.PermutationGate([2, 0, 1])
    yield "PauliEvolution", library.PauliEvolutionGate(SparsePauliOp(["XX", "ZY"], [0.3, 1.0]), 0.4)
    yield "initialize", library.Initialize(random_statevector(4, seed=5).data)


@pytest.mark.parametrize("name, gate", [pytest.param(name, gate, id=name) for name, gate in gates()])
def test_gates_beside_aer(name, gate):
    pytest.importorskip("qiskit_aer", reason="needs Aer: pip install velacamplix[test]")
    from beside_aer import result_of

    # What initialize resets would leave the others in a state of chance.
    circuit = QuantumCircuit(4) if name == "initialize" else random_circuit(4, 2, seed=7)
    circuit.append(gate, [2, 0, 3, 1][: gate.num_qubits])
    circuit.save_statevector()
    mine = VelacamplixBackend().run(circuit).result().get_statevector()
    theirs = result_of(circuit, "statevector").get_statevector()
    np.testing.assert_allclose(mine.data, theirs.data, rtol=0, atol=1e-12)


@pytest.mark.parametrize("seed", range(12))
def test_random_circuits_with_measurements_in_the_middle(seed):
    pytest.importorskip("qiskit_aer", reason="needs Aer: pip install velacamplix[test]")
    from beside_aer import result_of

    circuit = random_circuit(4, 8, max_operands=3, conditional=True, reset=True, seed=seed)
    for place in (3, 7):
        circuit.data.insert(min(place, len(circuit.data)), CircuitInstruction(Measure(), [circuit.qubits[place % 4]], [circuit.clbits[place % 4]]))
    for qubit in range(4):
        circuit.measure(qubit, qubit)
    found = run_exact(to_velacamplix(circuit))
    n = circuit.num_clbits
    share = {flipped(f"{int(row[0]):0{n}b}"): p for row, p in zip(found.outcomes, found.probabilities.tolist())}
    assert sum(share.values()) == pytest.approx(1)
    mine = VelacamplixBackend(seed_simulator=seed).run(circuit, shots=2000).result()
    for result in (mine, result_of(circuit, shots=2000, seed_simulator=1)):
        counts = {key.replace(" ", ""): times for key, times in result.get_counts().items()}
        for bits in share.keys() | counts.keys():
            p = share.get(bits, 0.0)
            assert abs(counts.get(bits, 0) - 2000 * p) <= 6 * np.sqrt(2000 * p * (1 - p)) + 1e-6, (result.backend_name, bits)
