"""The binding of programs: what it takes, what it tells, and how a run ends early."""

import copy
import pickle
import signal
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import numpy_simulator as oracle
import pytest

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, StateVector, _core, run
from velacamplix.instructions.gates import GATES, NATIVE
from velacamplix.programs import prepare

PROGRAMS = {"double": _core.ProgramDouble, "single": _core.ProgramSingle}


def program_of(circuit, precision="double", n=None, places=None):
    n = circuit.n_qubits if n is None else n
    program = PROGRAMS[precision](n)
    assert program.add(circuit.instructions, range(n) if places is None else places) == len(circuit)
    return program


def layers(n, count):
    circuit = Circuit(n)
    for layer in range(count):
        for qubit in range(n):
            circuit.h(qubit).rx(0.1 * layer + 0.3, qubit)
        for qubit in range(n - 1):
            circuit.cx(qubit, qubit + 1)
    return circuit


@pytest.mark.parametrize("controls", [(), (4,), (4, 0)])
@pytest.mark.parametrize("name", sorted(NATIVE))
def test_every_named_gate_with_any_controls(name, controls, precision, tolerance):
    circuit = Circuit(5)
    for qubit in range(5):
        circuit.ry(0.3 + qubit, qubit).rz(0.2 * qubit, qubit)
    params = (0.7,) * GATES[name].n_params
    circuit.append(Instruction(name, (2, 1, 3)[: GATES[name].n_qubits], params, controls))
    state = StateVector(5, precision)
    program_of(circuit, precision).run(state._live())
    assert np.abs(state.array - oracle.statevector(circuit)).max() < 4 * tolerance


def test_qubits_find_their_places(precision, tolerance):
    circuit = Circuit(6).ry(0.4, 5).cx(5, 2).ry(0.2, 2, controls=[5])
    state = StateVector(2, precision)
    program_of(circuit, precision, 2, places=[9, 9, 1, 9, 9, 0]).run(state._live())
    moved = Circuit(2).ry(0.4, 0).cx(0, 1).ry(0.2, 1, controls=[0])
    assert np.abs(state.array - oracle.statevector(moved)).max() < tolerance


def test_adding_stops_at_the_first_number_that_does_not_fit():
    circuit = Circuit(1).x(0).diagonal([1, 1e300], 0, check=False).x(0)
    program = _core.ProgramSingle(1)
    assert program.add(circuit.instructions, [0]) == 1 and len(program) == 1
    assert program_of(circuit, "double").run(StateVector(1)._live()) == (3, None)


@pytest.mark.parametrize(
    ("step", "error"),
    [
        (Instruction("nonsense", (0,)), ValueError),
        (Instruction("H", (5,)), IndexError),
        (Instruction("matrix", (0,), (1.0, 0.0)), ValueError),
        (Instruction("RX", (0,), ("a",)), TypeError),
        (Instruction("H", ("a",)), TypeError),
        ("H 0", AttributeError),
    ],
)
def test_what_is_no_gate_is_refused(step, error):
    with pytest.raises(error):
        _core.ProgramDouble(2).add([step], [0, 1])


def test_a_plan_covers_all_gates():
    sweeps, passes = program_of(layers(20, 3)).plan(20, 1)
    assert passes[0][0] == 0 and passes[-1][1] == len(layers(20, 3)) and sweeps > 0
    for (_, end, *_), (begin, *_) in zip(passes, passes[1:]):
        assert begin <= end
    for _, _, local, chunk in passes:
        assert chunk == 2 ** (len(local) or 20)


# Between passes


def test_a_function_is_called_between_passes_and_at_the_end():
    circuit, calls = layers(18, 4), []
    program = program_of(circuit)
    _, passes = program.plan(18, 1)
    state = StateVector(18, threads=1)
    assert program.run(state._live(), lambda *numbers: calls.append(numbers), 0.0) == (len(circuit), None)
    assert len(calls) == len(passes) > 3 and calls[-1] == (len(circuit), len(circuit))
    assert calls == sorted(calls) and {total for _, total in calls} == {len(circuit)}
    # With a long interval only the end is told.
    calls.clear()
    program.run(state._live(), lambda *numbers: calls.append(numbers), 1000.0)
    assert calls == [(len(circuit), len(circuit))]


def test_an_exception_stops_after_a_first_part_of_the_gates(precision):
    circuit = layers(18, 4)
    state, first_part = StateVector(18, precision), StateVector(18, precision)

    def at_the_third_call(done, total):
        calls.append(done)
        if len(calls) == 3:
            raise LookupError("enough")

    calls = []
    applied, error = program_of(circuit, precision).run(state._live(), at_the_third_call, 0.0)
    # Gates that had been overtaken are made up for.
    assert calls[2] <= applied < len(circuit) and len(calls) == 3
    assert isinstance(error, LookupError) and str(error) == "enough"
    assert error.__traceback__.tb_frame.f_code.co_name == "at_the_third_call"
    for step in circuit.instructions[:applied]:
        first_part.run(Circuit(18).append(step))
    assert state.array.tobytes() == first_part.array.tobytes()


@pytest.mark.parametrize("fusion", [False, True])
def test_an_exception_while_a_long_list_is_planned_stops_before_the_first_gate(fusion):
    circuit = layers(14, 200)
    program = program_of(circuit)
    program.set_fusion(fusion)
    state = StateVector(14)
    told = []

    def at_once(done, total):
        told.append((done, total))
        raise LookupError("enough")

    applied, error = program.run(state._live(), at_once, 0.0)
    assert applied == 0 and isinstance(error, LookupError) and told == [(0, len(circuit))]
    assert state.array.tobytes() == StateVector(14).array.tobytes()
    assert program.run(state._live()) == (len(circuit), None)
    assert state.array.tobytes() == StateVector(14).run(circuit, fusion=fusion).array.tobytes()


@pytest.mark.parametrize("controls", [(), (12,), (0, 11)])
@pytest.mark.parametrize("k", [8, 9, 11])
def test_a_diagonal_of_any_size_is_one_operation(k, controls, precision, tolerance):
    n = 13
    qubits = [qubit for qubit in range(n - 1, -1, -1) if qubit not in controls][:k]
    phases = np.exp(1j * np.arange(2**k))
    circuit = Circuit(n).h(0).diagonal(phases, qubits, controls=controls).rx(0.3, 0)
    program = program_of(circuit, precision)
    assert len(program) == 3
    start = np.random.default_rng(1).normal(size=(2**n, 2)) @ [1, 1j]
    start /= np.linalg.norm(start)
    state = StateVector(n, precision).set_state(start, order="little")
    program.run(state._live())
    # One entry after another, by the bits of the index.
    index = np.arange(2**n)
    place = np.zeros_like(index)
    for qubit in qubits:
        place = 2 * place + (index >> qubit & 1)
    acts = np.all([index >> control & 1 for control in controls], axis=0) if controls else np.full(2**n, True)
    apart = StateVector(n).set_state(start, order="little").h(0).array
    expected = StateVector(n).set_state(np.where(acts, phases[place] * apart, apart), order="little").rx(0.3, 0)
    assert np.abs(state.array - expected.array).max() < 4 * tolerance


@pytest.mark.skipif(not hasattr(signal, "setitimer"), reason="there is no timer to interrupt by")
def test_a_signal_is_heard_while_numbers_are_read():
    class Heard(Exception):
        pass

    def hear(number, frame):
        raise Heard

    program = _core.ProgramDouble(23)
    large = Instruction("diagonal", tuple(range(23)), (1j,) * 2**23)
    before = signal.signal(signal.SIGALRM, hear)
    try:
        # Reading them takes ten times as long at least. On a slow machine the signal may come before.
        with pytest.raises(Heard):
            signal.setitimer(signal.ITIMER_REAL, 0.005)
            program.add([large], range(23))
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert len(program) == 0


@pytest.mark.parametrize("fusion", [False, True])
def test_a_projector_between_gates_with_and_without_fusion(fusion, precision, tolerance):
    circuit = Circuit(3).h(0).diagonal([0, 1], 0, check=False).h(0).matrix([[0, 0.5], [0, 0]], 0, check=False).h(0)
    state = StateVector(3, precision).run(circuit, fusion=fusion)
    # |0> -> |+> -> |1> / sqrt(2) -> |-> / sqrt(2) -> -|0> / 4 -> -|+> / 4
    expected = np.zeros(8)
    expected[:2] = -0.25 * 2**-0.5
    assert np.abs(state.array - expected).max() < tolerance


def test_a_program_runs_once_at_a_time_and_is_free_again():
    program, other = program_of(layers(4, 2)), StateVector(4)
    refused = []

    def again(done, total):
        try:
            program.run(other._live())
        except RuntimeError as error:
            refused.append(str(error))

    program.run(StateVector(4)._live(), again)
    assert refused == ["this program is running already"]
    assert program.run(other._live())[1] is None


def test_a_program_runs_many_times_on_states_of_any_size(precision):
    circuit = layers(4, 2)
    program = program_of(circuit, precision)
    for n in (4, 12, 4, 17):
        state = StateVector(n, precision)
        program.run(state._live())
        assert state.array[:16].tobytes() == StateVector(4, precision).run(circuit).array.tobytes()
        assert not state.array[16:].any()


def test_a_released_state_is_refused():
    state = StateVector(4)
    core = state._live()
    state.release()
    with pytest.raises(RuntimeError, match="released"):
        program_of(layers(4, 1)).run(core)


def test_two_threads_with_one_state_take_turns():
    circuit, state = layers(14, 3), StateVector(14)
    programs = [program_of(circuit) for _ in range(2)]
    threads = [threading.Thread(target=program.run, args=(state._live(),)) for program in programs]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert state.array.tobytes() == StateVector(14).run(circuit).run(circuit).array.tobytes()


# --- Programs are kept with their circuit ---


def test_a_circuit_is_compiled_once_and_again_after_a_change(monkeypatch):
    made = []
    true = prepare.compiled
    monkeypatch.setattr(prepare, "compiled", lambda gates, *rest: made.append(len(gates)) or true(gates, *rest))
    circuit = Circuit(3).h(0).cx(0, 1).rzz(0.3, 1, 2)
    expected = StateVector(3).h(0).cx(0, 1).rzz(0.3, 1, 2).array.tobytes()
    for _ in range(3):
        assert StateVector(3).run(circuit).array.tobytes() == expected
    assert len(made) == 1
    run(circuit)
    run(circuit, shots=5)
    assert len(made) == 2
    StateVector(4).run(circuit)
    StateVector(3, "single").run(circuit)
    StateVector(3).run(circuit, fusion=True)
    assert len(made) == 5
    circuit.x(2)
    expected = StateVector(3).h(0).cx(0, 1).rzz(0.3, 1, 2).x(2).array.tobytes()
    assert StateVector(3).run(circuit).array.tobytes() == expected and len(made) == 6
    circuit.append(Instruction("Z", (0,)))
    circuit.compose(Circuit(3).y(1))
    expected = StateVector(3).h(0).cx(0, 1).rzz(0.3, 1, 2).x(2).z(0).y(1).array.tobytes()
    assert StateVector(3).run(circuit).array.tobytes() == expected


def test_copies_and_pickles_begin_without_programs():
    circuit = Circuit(2).h(0)
    StateVector(2).run(circuit)
    assert circuit._prepared
    for other in (circuit.copy(), copy.deepcopy(circuit), pickle.loads(pickle.dumps(circuit)), circuit + circuit):
        assert not other._prepared
        other.x(1)
    assert StateVector(2).run(circuit).to_dict() == StateVector(2).h(0).to_dict()


def test_few_programs_are_kept():
    circuit = Circuit(1).h(0)
    for n in range(1, 20):
        StateVector(n).run(circuit)
    assert len(circuit._prepared) == prepare._MOST_KEPT


def test_two_threads_run_one_circuit():
    circuit = Circuit(12)
    for q in range(12):
        circuit.h(q).rx(0.1 * q, q)
    expected = StateVector(12).run(circuit).array.tobytes()
    with ThreadPoolExecutor(4) as pool:
        states = list(pool.map(lambda _: StateVector(12, threads=1).run(circuit).array.tobytes(), range(64)))
    assert set(states) == {expected}


# --- Gates that only programs have ---

IN_PROGRAMS = {"sx": 0, "rxx": 1, "ryy": 1, "rzz": 1, "u": 3, "u2": 2, "u3": 3}


@pytest.mark.parametrize("controls", [(), (3,), (3, 4)])
@pytest.mark.parametrize("name", IN_PROGRAMS)
def test_gates_of_programs_have_the_bits_of_their_matrix(name, controls, precision):
    rng = np.random.default_rng(5)
    for _ in range(5):
        angles = rng.uniform(-7, 7, IN_PROGRAMS[name]).tolist()
        qubits = [1] if GATES[name].n_qubits == 1 else [2, 0]
        start = rng.normal(size=64).view(complex)
        start /= np.linalg.norm(start)
        circuit = getattr(Circuit(5), name)(*angles, *qubits, controls=controls)
        ran = StateVector(5, precision).set_state(start, "little").run(circuit)
        called = getattr(StateVector(5, precision).set_state(start, "little"), name)(*angles, *qubits, controls=controls)
        matrices = StateVector(5, precision).set_state(start, "little")
        for step in circuit.basic_instructions():
            entries = np.array(step.params)
            matrix = np.diag(entries) if step.name == "diagonal" else entries.reshape([2 ** len(step.qubits)] * 2)
            matrices.matrix(matrix, step.qubits, step.controls)
        assert ran.array.tobytes() == matrices.array.tobytes()
        assert called.array.tobytes() == matrices.array.tobytes()


def test_binding_replaces_the_angles_of_gates_of_programs(monkeypatch, precision):
    made = []
    true = prepare.compiled
    monkeypatch.setattr(prepare, "compiled", lambda gates, *rest: made.append(len(gates)) or true(gates, *rest))
    a, b = Parameter("a"), Parameter("b")
    turn = GateDefinition("turn", Circuit(2).u(a, b, 2 * a, 0).rxx(b, 0, 1))
    template = Circuit(3).h(0).sx(1).u(a, b, a - b, 0).u2(b, a, 1).u3(0.3, a, b, 2, controls=0).rxx(a, 0, 1)
    template.ryy(b, 1, 2).rzz(2 * a, 0, 2, controls=1).gate(turn, [2, 0], [a, b]).rx(b, 1)
    for seed in range(4):
        values = np.random.default_rng(seed).uniform(-4, 4, 2).tolist()
        bound = template.bind(values)
        ran = StateVector(3, precision).run(bound)
        fresh = Circuit(3)
        for step in bound:
            fresh.append(step)
        assert ran.array.tobytes() == StateVector(3, precision).run(fresh).array.tobytes()
    assert len(made) == 1 + 4
