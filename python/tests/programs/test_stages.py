"""States in parts, stage by stage: the extension's own classes, whose amplitudes the test itself carries about."""

import numpy as np
import pytest

from velacamplix import Circuit, StateVector
from velacamplix import _core as extension
from velacamplix.programs.prepare import for_run

PLANS = {"double": extension.StagePlanDouble, "single": extension.StagePlanSingle}
SHOTS = {"double": extension.PartShotsDouble, "single": extension.PartShotsSingle}
TYPES = {"double": np.complex128, "single": np.complex64}


def circuit_of(n):
    circuit = Circuit(n)
    for layer in range(3):
        for q in range(n):
            circuit.ry(0.1 + q + layer, q).rz(0.3 * q, q)
        for q in range(n - 1):
            circuit.cx(q, q + 1)
        circuit.swap(0, n - 1).x(n - 1).cp(0.7, 1, n - 1)
    return circuit


def program_of(circuit, precision="double"):
    return for_run(circuit, (), precision, False).programs[0]


def run_in_parts(plan, parts, threads=1):
    for stage in range(len(plan)):
        before = [part.copy() for part in parts]
        for rank, part in enumerate(parts):
            for partner, first, count in plan.transfers(stage, rank):
                (theirs,) = [t for t in plan.transfers(stage, partner) if t[0] == rank]
                assert theirs[2] == count
                part[first : first + count] = before[partner][theirs[1] : theirs[1] + count]
        for rank, part in enumerate(parts):
            plan.run_stage(stage, rank, part, threads)


def zeros(ranks, size, precision):
    parts = [np.zeros(size, TYPES[precision]) for _ in range(ranks)]
    parts[0][0] = 1
    return parts


@pytest.mark.parametrize("precision", ["double", "single"])
@pytest.mark.parametrize("rank_bits", [0, 1, 3])
def test_parts_have_the_bits_of_one_state(precision, rank_bits):
    n = 9
    circuit = circuit_of(n)
    program = program_of(circuit, precision)
    plan = PLANS[precision](program, n, rank_bits)
    assert plan.part_qubits() == n - rank_bits and (plan.parts_sent() > 0) == (rank_bits > 0)
    parts = zeros(1 << rank_bits, 1 << n - rank_bits, precision)
    run_in_parts(plan, parts)
    state = StateVector(n, precision, threads=1).run(circuit)
    ordered = sorted(range(1 << rank_bits), key=plan.part_of)
    assert b"".join(parts[rank].tobytes() for rank in ordered) == state.array.tobytes()


def test_where_qubits_stand_without_bringing_them_back():
    n, rank_bits = 9, 3
    circuit = circuit_of(n)
    plan = extension.StagePlanDouble(program_of(circuit), n, rank_bits, True, False)
    parts = zeros(1 << rank_bits, 1 << n - rank_bits, "double")
    run_in_parts(plan, parts)
    places, flipped = plan.places()
    assert sorted(places) == list(range(n))
    state = StateVector(n, threads=1).run(circuit).array
    for rank, part in enumerate(parts):
        for position in range(len(part)):
            place = position | (rank ^ flipped) << n - rank_bits
            assert part[position] == state[sum((place >> places[q] & 1) << q for q in range(n))]


def test_reordered_programs_agree_up_to_rounding():
    n = 12
    circuit = Circuit(n).h(range(n)).rx(0.3, range(n)).rz(0.2, range(n)).ry(0.4, range(n))
    program = program_of(circuit)
    other = program.reordered(n, 3)
    state, expected = StateVector(n, threads=1), StateVector(n, threads=1).run(circuit)
    other.run(state._live())
    assert np.allclose(state.array, expected.array, rtol=0, atol=1e-14)
    assert extension.StagePlanDouble(other, n, 3).parts_sent() < extension.StagePlanDouble(program, n, 3).parts_sent()


@pytest.mark.parametrize("precision", ["double", "single"])
def test_shots_of_parts_are_those_of_the_state(precision):
    n, rank_bits = 9, 2
    state = StateVector(n, precision, threads=1, seed=3).run(circuit_of(n))
    engine = extension.engine(state._live())
    parts = np.split(state.array, 1 << rank_bits)
    sums = [SHOTS[precision](part, n, number, 1) for number, part in enumerate(parts)]
    before = 0.0
    for one in sums:
        one.foresee(before)
        before += one.estimate()
    total = 0.0
    for one in sums:
        total = one.run(total)
    found, after = np.zeros(1000, np.uint64), set()
    for one in sums:
        mine = np.empty(1000, np.uint64)
        after.add(one.write(total, engine, mine, [2, 0, 5]))
        found |= mine
    assert found.tolist() == state.sample(1000, [2, 0, 5]).tolist()
    assert after == {extension.engine(state._live())}


def test_what_does_not_fit_is_refused():
    n = 8
    plan = extension.StagePlanDouble(program_of(circuit_of(n)), n, 2)
    part = np.zeros(64, complex)
    for wrong in (np.zeros(63, complex), np.zeros(128, complex)):
        with pytest.raises(ValueError, match="a part has 64 amplitudes"):
            plan.run_stage(0, 0, wrong, 1)
    for wrong in (np.zeros(64), np.zeros(64, np.complex64), np.zeros(128, complex)[::2], [0j] * 64):
        with pytest.raises(TypeError):
            plan.run_stage(0, 0, wrong, 1)
    fixed = np.zeros(64, complex)
    fixed.flags.writeable = False
    with pytest.raises(ValueError, match="writeable"):
        plan.run_stage(0, 0, fixed, 1)
    odd = np.zeros(16 * 65, np.uint8)[8 - np.zeros(0, np.uint8).ctypes.data % 8 :]
    offset = (8 - odd.ctypes.data) % 16
    with pytest.raises(ValueError, match="multiple of 16"):
        plan.run_stage(0, 0, odd[offset : offset + 1024].view(complex), 1)
    for stage, rank in ((len(plan), 0), (0, 4)):
        with pytest.raises(ValueError, match="counted from 0"):
            plan.run_stage(stage, rank, part, 1)
        with pytest.raises(ValueError, match="counted from 0"):
            plan.transfers(stage, rank)
    with pytest.raises(ValueError, match="counted from 0"):
        plan.part_of(4)
    with pytest.raises(ValueError, match="two amplitudes"):
        extension.StagePlanDouble(program_of(circuit_of(n)), n, 8)
    with pytest.raises(ValueError, match="no part 4"):
        extension.PartShotsDouble(part, n, 4, 1)
    with pytest.raises(ValueError, match="2\\^k"):
        extension.PartShotsDouble(np.zeros(63, complex), n, 0, 1)
    shots = extension.PartShotsDouble(part, n, 0, 1)
    with pytest.raises(ValueError, match="random engine"):
        shots.write(1.0, "1 2", np.zeros(3, np.uint64), [0])


def test_a_stage_is_heard_between_passes_and_refuses_a_second_one():
    n = 12
    plan = extension.StagePlanDouble(program_of(circuit_of(n)), n, 0)
    part = np.zeros(1 << n, complex)
    part[0] = 1
    told = []
    plan.run_stage(0, 0, part, 1, lambda done, total: told.append((done, total)), 0.0)
    assert told and told == [(i + 1, len(told)) for i in range(len(told))]

    def again(done, total):
        plan.run_stage(0, 0, part, 1)

    with pytest.raises(RuntimeError, match="running already"):
        plan.run_stage(0, 0, part, 1, again, 0.0)
