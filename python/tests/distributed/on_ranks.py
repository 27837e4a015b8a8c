"""What every rank of a launch does: `mpirun -n 4 python on_ranks.py FOLDER`. Rank 0 prints what was tried.

Everything is compared with one process, which rank 0 is on its own; whatever differs ends all ranks.
"""

import hashlib
import json
import sys
import warnings
from functools import partial
from pathlib import Path

import numpy as np
from mpi4py import MPI

from velacamplix import Channel, Circuit, DensityMatrix, NoiseModel, Observable, Parameter, StateVector, UnsupportedInstruction, run
from velacamplix.distributed import DistributedState
from velacamplix.distributed import ranks as ranks_module
from velacamplix.distributed import state as state_module
from velacamplix.distributed import values as values_module

COMM = MPI.COMM_WORLD
RANK, SIZE = COMM.Get_rank(), COMM.Get_size()
FOLDER = Path(sys.argv[1])
N = 16


# Circuits as users write them


def ansatz(n, layers=4):
    circuit, angles = Circuit(n), np.random.default_rng(5)
    for _ in range(layers):
        for q in range(n):
            circuit.ry(angles.uniform(0, 6), q)
        for q in range(n):
            circuit.rz(angles.uniform(0, 6), q)
        for q in range(n - 1):
            circuit.cx(q, q + 1)
    return circuit


def neighbours(n, layers=8):
    circuit, chance = Circuit(n), np.random.default_rng(6)
    for layer in range(layers):
        for q in range(n):
            which = chance.integers(3)
            if which == 2:
                circuit.rx(chance.uniform(0, 6), q)
            else:
                (circuit.h if which else circuit.t)(q)
        for q in range(layer % 2, n - 1, 2):
            circuit.cx(q, q + 1)
    return circuit


def fourier(n):
    circuit = Circuit(n)
    for q in range(0, n, 3):
        circuit.ry(0.3 + q, q)
    for q in reversed(range(n)):
        circuit.h(q)
        for k in range(q):
            circuit.cp(np.pi / 2 ** (q - k), k, q)
    for q in range(n // 2):
        circuit.swap(q, n - 1 - q)
    return circuit


def edges(n):
    return [(q, (q + 1) % n) for q in range(n)] + [(q, (q + n // 2) % n) for q in range(n // 2)]


def qaoa(n, layers=2):
    circuit = Circuit(n).h(range(n))
    for _ in range(layers):
        for a, b in edges(n):
            circuit.cx(a, b).rz(0.3, b).cx(a, b)
        circuit.rx(0.7, range(n))
    return circuit


def qaoa_by_phases(n, layers=2):
    circuit = Circuit(n).h(range(n))
    for _ in range(layers):
        for a, b in edges(n):
            circuit.rz(0.3, a).rz(0.3, b).cp(0.3, a, b)
        circuit.rx(0.7, range(n)).x(n - 1)
    return circuit


def grid(n, depth=8):
    circuit, chance, width = Circuit(n).h(range(n)), np.random.default_rng(7), round(n**0.5)
    for d in range(depth):
        for q in range(n):
            (circuit.rx if chance.integers(2) else circuit.ry)(chance.uniform(0, 6), q)
        step, parity = (1, width)[d % 2], d % 4 // 2
        for q in range(n - step):
            if (q % width if step == 1 else q // width) % 2 == parity and (step > 1 or q % width != width - 1):
                circuit.cz(q, q + step)
    return circuit


SIX = {
    "ansatz": ansatz(N),
    "neighbours": neighbours(N),
    "fourier": fourier(N),
    "qaoa": qaoa(N),
    "qaoa by phases": qaoa_by_phases(N),
    "grid": grid(N),
}
OBSERVABLES = [
    "Z0 Z1 + 0.5*X15 + 0.25*Y14 X3 - 2*X15 X14 X13 + 3",
    Observable([(0.1 * (k + 1), "XYZXYZX"[k % 3 : k % 3 + 4], [k % N, (k + 5) % N, (k + 9) % N, (k + 13) % N]) for k in range(60)]),
    "Z15",
    Observable([(1j, "X", [0]), (2, "Y", [15])]),
]


def on_rank_0(make):
    return COMM.bcast(make() if RANK == 0 else None)


def digest(array):
    return hashlib.sha256(np.ascontiguousarray(array).view(np.uint8)).hexdigest()


def refused(kind, words, call):
    """Every rank is refused, in these words."""
    try:
        call()
    except kind as error:
        assert words in str(error), f"rank {RANK}: {error}"
        return
    raise AssertionError(f"rank {RANK}: nothing was refused where {words!r} was expected")


def told(result):
    """What runs with noise are compared by."""
    values, errors = (array.tobytes() for array in (result.expectation_values, result.standard_errors))
    return result.shots.tobytes(), values, errors, result.active_qubits, result.seed, result.counts, result.plan.trajectories


tried = []


def case(function):
    function()
    tried.append(function.__name__)


@case
def six_circuits_have_the_bits_of_one_process():
    for name, circuit in SIX.items():
        for precision in ("double", "single"):
            for schedule in ("written", "canonical:10"):

                def parts_of_one_process(circuit=circuit, precision=precision, schedule=schedule):
                    whole = run(circuit, precision=precision, schedule=schedule).state.array
                    return [digest(part) for part in whole.reshape(SIZE, -1)]

                expected = on_rank_0(parts_of_one_process)
                result = run(circuit, precision=precision, schedule=schedule, comm=COMM)
                state = result.distributed_state
                assert sorted(state.layout) == list(range(SIZE))
                own = digest(state.local_array)
                assert own == expected[state.layout[RANK]], f"rank {RANK}: {name}, {precision}, {schedule}"
                assert result.bytes_sent == result.parts_sent * state.local_array.nbytes, f"rank {RANK}: {name}"
                assert SIZE > 1 or result.bytes_sent == 0
                # Otherwise nothing would be said about ranks that exchange.
                assert SIZE == 1 or result.bytes_sent > 0, f"rank {RANK}: {name}, {precision}, {schedule}"


@case
def shots_are_those_of_one_process():
    for precision, circuit in (("double", ansatz(N)), ("single", qaoa(N))):
        expected = on_rank_0(lambda circuit=circuit, precision=precision: run(circuit, 1_000_000, seed=11, precision=precision).shots)
        result = run(circuit, 1_000_000, seed=11, precision=precision, comm=COMM)
        assert (result.shots == expected).all()
        listed = [15, 0, 7]
        some = on_rank_0(
            lambda circuit=circuit, precision=precision: StateVector(N, precision, seed=3).run(circuit).sample(5000, [15, 0, 7])
        )
        assert (result.distributed_state.sample(5000, listed, seed=3) == some).all()
        assert result.distributed_state.counts(5000, listed, seed=3).shots == 5000


@case
def what_is_measured_is_what_is_drawn():
    circuit = Circuit(20, 4)  # four idle qubits, a bit that is not written, one qubit read twice
    for q in range(0, N):
        circuit.ry(0.1 + q, q)
    for q in range(N - 1):
        circuit.cx(q, q + 1)
    circuit.measure([15, 2], [0, 1]).measure(15, 3)
    expected = on_rank_0(lambda: run(circuit, 4000, seed=2))
    result = run(circuit, 4000, seed=2, comm=COMM)
    assert result.counts == expected.counts
    assert (result.shots == expected.shots).all()
    assert result.active_qubits == tuple(range(N)) and result.distributed_state.n_qubits == N
    drawn_by_chance = run(circuit, 100, comm=COMM)
    assert len(set(COMM.allgather(drawn_by_chance.seed))) == 1
    assert len(set(COMM.allgather(str(sorted(drawn_by_chance.counts.items()))))) == 1


@case
def expectation_values_are_those_of_one_process():
    piece = values_module.PIECE
    for precision in ("double", "single"):
        circuit = neighbours(N)
        expected = on_rank_0(lambda precision=precision: run(circuit, precision=precision, observables=OBSERVABLES).expectation_values)
        for size in (piece, 2**13 * 16):  # and in as many pieces as there can be
            values_module.PIECE = size
            result = run(circuit, precision=precision, observables=OBSERVABLES, comm=COMM)
            assert result.expectation_values.tolist() == expected.tolist(), f"rank {RANK}: {precision}, {size}"
        values_module.PIECE = piece
    # Parts that are smaller than what is added by one tree.
    small = ansatz(8)
    expected = on_rank_0(lambda: run(small, observables="X7 Z0 + Y6").expectation_values)
    assert run(small, observables="X7 Z0 + Y6", comm=COMM).expectation_values == expected


@case
def probabilities_are_those_of_one_process():
    lists = [[], [0], [15], [15, 3], list(range(13)), [14, 13, 2], list(range(15, 2, -1)), None, [12, 13, 14, 15], [1, 15, 14, 0, 13]]
    for precision, n in (("double", 18), ("single", N)):
        circuit = ansatz(n, 2)

        def of_one_process(circuit=circuit, precision=precision):
            state = run(circuit, precision=precision).state
            return [state.distribution(one) for one in lists], state.norm(), state.probability(5, [15, 0, 2])

        expected, norm, probability = on_rank_0(of_one_process)
        state = run(circuit, precision=precision, comm=COMM).distributed_state
        for one, wanted in zip(lists, expected):
            assert (state.distribution(one) == wanted).all(), f"rank {RANK}: {precision}, {one}"
        assert state.norm() == norm
        assert state.probability(5, [15, 0, 2]) == probability == state.probability("101", [15, 0, 2])
        assert state.probability(5, [2, 0, 15], order="little") == probability


@case
def runs_begin_with_basis_states():
    text = "0110" * 3 + "1001"
    for initial in (text, 12345, 0):
        expected = on_rank_0(lambda initial=initial: run(ansatz(N), initial=initial).state.array)
        state = run(ansatz(N), initial=initial, comm=COMM).distributed_state
        part = expected.reshape(SIZE, -1)[state.layout[RANK]]
        assert state.local_array.tobytes() == part.tobytes()
        assert state.statevector().tobytes() == expected.tobytes()


@case
def states_are_saved_and_loaded_on_other_numbers_of_ranks():
    state = run(ansatz(N), comm=COMM).distributed_state
    whole = state.statevector()
    folder = FOLDER / "all"
    state.save(folder)
    state.save(folder)  # replaces
    again = DistributedState.load(folder, comm=COMM)
    assert again.layout == tuple(range(SIZE)) and again.statevector().tobytes() == whole.tobytes()
    assert again.expectation("X15 Z0") == state.expectation("X15 Z0")
    if SIZE > 1:
        half = COMM.Split(RANK >= SIZE // 2)
        if RANK < SIZE // 2:
            assert DistributedState.load(folder, comm=half).statevector().tobytes() == whole.tobytes()
        COMM.barrier()
        if RANK == 0:
            alone = run(ansatz(N), comm=MPI.COMM_SELF).distributed_state
            assert alone.statevector().tobytes() == whole.tobytes()
            alone.save(FOLDER / "alone")
        COMM.barrier()
        assert DistributedState.load(FOLDER / "alone", comm=COMM).statevector().tobytes() == whole.tobytes()
    COMM.barrier()

    def broken(change, words, name="manifest.json"):
        if RANK == 0:
            state_files = {path: path.read_bytes() for path in folder.iterdir()}
            change()
        COMM.barrier()
        refused((ValueError, OSError), words, partial(DistributedState.load, folder, comm=COMM))
        COMM.barrier()
        if RANK == 0:
            for path, data in state_files.items():
                path.write_bytes(data)
        COMM.barrier()

    manifest, first = folder / "manifest.json", folder / "part-00000.bin"
    broken(manifest.unlink, "cannot be read")
    broken(lambda: manifest.write_text("{"), "is no JSON")
    broken(lambda: manifest.write_text("[]"), "is no manifest")
    broken(lambda: manifest.write_text(json.dumps({**json.loads(manifest.read_text()), "n_qubits": 17})), "must have")
    broken(first.unlink, "cannot be read")
    broken(lambda: first.write_bytes(bytes(first.stat().st_size)), "SHA-256 is another")


@case
def a_state_of_ones_own_begins_with_all_qubits_0():
    state = DistributedState(N, COMM, "single")
    assert state.n_qubits == N and state.precision == "single" and state.ranks == SIZE and state.rank == RANK
    assert state.local_array.shape == (2**N // SIZE,) and state.local_array.dtype == np.complex64
    assert state.probability(0) == 1 and state.norm() == 1
    assert state.sample(10, seed=1).tolist() == [0] * 10
    assert state.expectation("Z0 + Z15") == 2
    assert f"rank={RANK} of {SIZE}" in repr(state)
    state.local_array[:] = 0
    refused(ValueError, "nothing to draw from", partial(state.sample, 10, seed=1))
    state.release()
    refused(RuntimeError, "released", partial(state.sample, 10, seed=1))


@case
def circuits_follow_one_another():
    several = [Circuit(N).x([N - 1, 3]).swap(0, N - 2), ansatz(N, 1), fourier(N), Circuit(N).h(0).measure_all(), qaoa_by_phases(N, 1)]
    for precision in ("double", "single"):
        for schedule in ("written", "canonical:2"):

            def of_one_process(precision=precision, schedule=schedule):
                state = StateVector(N, precision)
                for circuit in several:
                    state = run(circuit, initial=state, precision=precision, schedule=schedule).state
                return state.array

            expected = on_rank_0(of_one_process)
            state = DistributedState(N, COMM, precision)
            for circuit in several:
                assert state.run(circuit, schedule=schedule) is state
            assert state.local_array.tobytes() == expected.reshape(SIZE, -1)[state.layout[RANK]].tobytes()
    refused(ValueError, "at most 16 qubits", lambda: state.run(Circuit(N + 1)))
    refused(UnsupportedInstruction, "reset", lambda: state.run(Circuit(N).reset(0)))
    refused(TypeError, "circuit must be", lambda: state.run("h"))
    refused(ValueError, "schedule must be", lambda: state.run(several[0], schedule="best"))
    if SIZE > 1:
        words = f"circuit; rank {SIZE - 1} has another than rank 0"
        refused(ValueError, words, lambda: state.run(several[RANK == SIZE - 1]))


@case
def numbers_of_the_gates_are_rank_0s():
    """As if the other processors had sines of their own."""
    real = state_module._PLANS

    def spoiled(precision):
        def plan(*arguments):
            made = real[precision](*arguments)
            if RANK != 0:
                made.set_coefficients(made.coefficients() * made.coefficients().dtype.type(0.75))
            return made

        return plan

    expected = on_rank_0(lambda: [run(ansatz(N), precision=precision).state.array for precision in real])
    state_module._PLANS = {precision: spoiled(precision) for precision in real}
    for precision, whole in zip(real, expected):
        assert run(ansatz(N), precision=precision, comm=COMM).distributed_state.statevector().tobytes() == whole.tobytes()
        state = DistributedState(N, COMM, precision).run(ansatz(N))
        assert state.statevector().tobytes() == whole.tobytes()
    state_module._PLANS = real


@case
def what_many_ranks_do_not_carry_out_is_refused_by_name():
    plain = ansatz(N)
    in_the_middle = Circuit(N, 1).h(range(N)).measure(0, 0).h(0)
    decided = Circuit(N, 1).h(range(N)).measure(0, 0)
    with decided.when(0, 1):
        decided.x(1)
    noisy = Circuit(N).h(range(N)).channel(Channel.bit_flip(0.1), 0)
    angle = Circuit(N).h(range(N)).rx(Parameter("angle"), 0)
    for words, call in (
        ("fusion must be False across ranks", partial(run, plain, fusion=True, comm=COMM)),
        ("shots must be given for noise", partial(run, plain, noise=NoiseModel().after("cx", Channel.bit_flip(0.1)), comm=COMM)),
        ("shots must be given for noise", partial(run, noisy, comm=COMM)),
        ('method must be "trajectories" or "auto" across ranks', partial(run, plain, 10, method="exact", comm=COMM)),
        ('method must be "trajectories" or "auto" across ranks', partial(run, Circuit(2).h(0), 10, initial=DensityMatrix(2), comm=COMM)),
        ('schedule must be "written"', partial(run, noisy, 10, schedule="canonical:10", comm=COMM)),
        ("fusion must be False", partial(run, noisy, 10, fusion=True, comm=COMM)),
        ("circuit must be without saves", partial(run, noisy.copy().save_probabilities("p", [0]), 10, comm=COMM)),
        ("instruction 16 (measure 0 -> 0)", partial(run, in_the_middle, shots=10, comm=COMM)),
        ("measure", partial(run, decided, shots=10, comm=COMM)),
        ("save", partial(run, Circuit(N).h(range(N)).save_state("s").h(0), comm=COMM)),
        ("one circuit is run at a time, got a list", partial(run, [plain], comm=COMM)),
        ("one circuit is run at a time, got one with values", partial(run, angle, values={"angle": [1, 2]}, comm=COMM)),
        ("initial must be a basis state", partial(run, plain, initial=np.eye(1, 2**N)[0], initial_order="little", comm=COMM)),
        ("initial must be a basis state", partial(run, plain, initial="+" * N, comm=COMM)),
    ):
        refused(ValueError, words, call)
    refused(TypeError, "comm must be a communicator", partial(run, plain, comm=4))
    if SIZE > 1:
        refused(ValueError, "fewer ranks will do", partial(run, Circuit(1).h(0), comm=COMM))
    refused(RuntimeError, "lies in parts on many ranks", lambda: run(plain, comm=COMM).state)
    refused(RuntimeError, "lies in parts on many ranks", lambda: run(plain, comm=COMM).probability(0))
    refused(MemoryError, "n=50 qubits", partial(DistributedState, 50, COMM))


@case
def shots_with_noise_are_those_of_one_process():
    n, observables = 6, ["Z0 Z5 + 2*X3", "Y1"]
    plain, decided = Circuit(n), Circuit(n, n)
    for circuit in (plain, decided):
        for q in range(n):
            circuit.ry(0.4 + q, q).channel(Channel.amplitude_damping(0.2), q)
        for q in range(n - 1):
            circuit.cx(q, q + 1)
    decided.measure(0, 0)
    with decided.when(0, 1):
        decided.x(1).channel(Channel.depolarizing(0.3), 2)
    decided.reset(3).ry(0.3, 3).measure(range(1, n), range(1, n))
    noise = NoiseModel().after("cx", Channel.depolarizing(0.1, 2)).readout(0.1, 0.2)
    starts = np.sqrt(np.arange(1, 2**n + 1) / sum(range(2**n + 1)))
    for circuit, more in (
        (plain, {}),
        (plain.copy().measure_all(), {"noise": noise, "first_shot": 5}),
        (plain, {"initial": starts, "initial_order": "little", "precision": "single"}),
        (plain, {"initial": "+-0101"}),
        (Circuit(n).h(range(n)), {"method": "trajectories"}),
        (decided, {"noise": noise}),
    ):
        for shots in (1003, SIZE):
            asked = {"shots": shots, "seed": 8, "observables": observables, **more}
            with warnings.catch_warnings():
                warnings.simplefilter("ignore")  # of what measurements hide
                expected = on_rank_0(lambda circuit=circuit, asked=asked: told(run(circuit, **{**asked, "method": "trajectories"})))
                result = told(run(circuit, **asked, comm=COMM))
            assert result[:-1] == expected[:-1], f"rank {RANK}: {asked}"
            assert circuit is decided or result[-1] == expected[-1]  # each rank counts its own where outcomes decide
    refused(ValueError, f"shots must be at least {SIZE}", partial(run, plain, shots=SIZE - 1, comm=COMM)) if SIZE > 1 else None
    if SIZE > 2:  # any number will do
        three = COMM.Split(RANK < 3)
        if RANK < 3:
            expected = run(plain, 100, seed=1, method="trajectories").shots
            assert (run(plain, 100, seed=1, comm=three).shots == expected).all()
        COMM.barrier()


@case
def ranks_that_differ_are_named():
    if SIZE == 1:
        return
    last = RANK == SIZE - 1
    # Of two ranks neither is the odd one.
    named = f"rank {SIZE - 1} has another than rank 0"
    refused(ValueError, f"circuit; {named}", lambda: run(ansatz(N, 3 if last else 2), comm=COMM))
    refused(ValueError, f"seed; {named}: 2 in place of 1", lambda: run(ansatz(N), 10, seed=1 + last, comm=COMM))
    refused(ValueError, f"precision; {named}", lambda: run(ansatz(N), precision="single" if last else "double", comm=COMM))
    refused(ValueError, f"schedule; {named}", lambda: run(ansatz(N), schedule="canonical:3" if last else "written", comm=COMM))
    refused(ValueError, f"number of shots; {named}", lambda: run(ansatz(N), 20 + last, seed=1, comm=COMM))
    refused(ValueError, f"observables; {named}", lambda: run(ansatz(N), observables=f"Z{int(last)}", comm=COMM))
    refused(ValueError, f"initial state; {named}", lambda: run(ansatz(N), initial=int(last) << 5, comm=COMM))
    noisy = [Circuit(3).h(range(3)).channel(Channel.bit_flip(p), 0) for p in (0.1, 0.2)]
    refused(ValueError, f"circuit; {named}", lambda: run(noisy[last], 10, seed=1, comm=COMM))
    refused(ValueError, f"seed; {named}: 2 in place of 1", lambda: run(noisy[0], 10, seed=1 + last, comm=COMM))
    starts = [np.eye(1, 8, k)[0] for k in (0, 3)]
    refused(ValueError, f"initial state; {named}", lambda: run(noisy[0], 10, initial=starts[last], initial_order="big", comm=COMM))
    refused(ValueError, f"number of qubits; {named}", lambda: DistributedState(N + last, COMM))
    state = DistributedState(N, COMM)
    refused(ValueError, f"observable; {named}", lambda: state.expectation(f"Z{int(last)}"))
    if SIZE > 2:
        first = RANK == 0
        refused(ValueError, "seed; rank 0 has another than rank 1", lambda: run(ansatz(N), 10, seed=1 + first, comm=COMM))
        three = COMM.Split(RANK < 3)
        if RANK < 3:
            refused(ValueError, "power of two, got 3; the next lower one is 2", partial(run, ansatz(N), comm=three))
        COMM.barrier()


@case
def pieces_of_an_exchange_are_cut_where_they_must():
    """As if 16 MiB were 1000 bytes, so that pieces end anywhere."""
    piece = ranks_module.PIECE
    ranks_module.PIECE = 1008
    expected = on_rank_0(lambda: digest(run(fourier(10)).state.array))
    result = run(fourier(10), 500, seed=4, comm=COMM, distributed=True)
    assert digest(result.distributed_state.statevector()) == expected
    assert (result.shots == on_rank_0(lambda: run(fourier(10), 500, seed=4).shots)).all()
    ranks_module.PIECE = piece


def memory_of_this_process(what):
    with open("/proc/self/status") as file:
        return int(dict(line.split(":", 1) for line in file)[what].split()[0]) * 1024


@case
def a_rank_takes_its_part_and_64_mebibytes_at_most():
    if SIZE > 2:  # what more ranks take together is much
        return
    n = 23 + SIZE.bit_length() - 1  # parts of 128 MiB
    circuit = Circuit(n).h(range(n)).cx(0, n - 2)
    before = memory_of_this_process("VmRSS")
    result = run(circuit, shots=100, observables=f"Z0 + X{n - 1} X{n - 3}", comm=COMM)
    result.distributed_state.distribution([0, n - 1])
    beyond = memory_of_this_process("VmHWM") - before - result.distributed_state.local_array.nbytes
    assert beyond <= 64 * 2**20, f"rank {RANK}: {beyond / 2**20:.1f} MiB"
    assert SIZE == 1 or result.parts_sent > 0


@case
def progress_is_rank_0s():
    heard = []
    run(ansatz(N), comm=COMM, progress=heard.append)
    assert bool(heard) == (RANK == 0)
    if heard:
        assert heard[-1].done == heard[-1].total


@case
def terms_that_a_measurement_hides_are_told_of():
    circuit = Circuit(N, 1).h(range(N)).measure(15, 0)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        result = run(circuit, 10, seed=1, observables="X15 + X0", comm=COMM)
    assert len(caught) == 1 and "count 0 on qubits that are measured" in str(caught[0].message)
    assert result.expectation_values == on_rank_0(lambda: run(Circuit(N).h(range(N)), observables="X0").expectation_values)


if RANK == 0:
    print(f"{SIZE} ranks: {', '.join(tried)}")
