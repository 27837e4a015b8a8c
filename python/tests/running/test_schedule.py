"""The order of gates that serves many ranks, on one machine."""

import numpy as np
import pytest

from velacamplix import Channel, Circuit, NoiseModel, Parameter, StateVector, run


def entangled(n, layers=4, seed=3):
    angles = np.random.default_rng(seed)
    circuit = Circuit(n)
    for _ in range(layers):
        for q in range(n):
            circuit.ry(angles.uniform(0, 6), q).rz(angles.uniform(0, 6), q)
        for q in range(n - 1):
            circuit.cx(q, q + 1)
        circuit.swap(0, n - 1)
    return circuit


def bits(state):
    return state.array.tobytes()


@pytest.mark.parametrize("precision", ["double", "single"])
def test_gates_that_commute_are_carried_out_part_by_part(precision):
    angles = np.random.default_rng(1).uniform(0, 6, (2, 8))
    circuit = Circuit(8)
    for q in range(8):
        circuit.rx(angles[0, q], q)
    for q in range(8):
        circuit.ry(angles[1, q], q)
    # Parts of 6 qubits: first all that can be done with the lowest six, then the others.
    by_hand = StateVector(8, precision, threads=1)
    for part in (range(6), range(6, 8)):
        for q in part:
            by_hand.rx(angles[0, q], q)
        for q in part:
            by_hand.ry(angles[1, q], q)
    assert bits(run(circuit, precision=precision, schedule="canonical:2").state) == bits(by_hand)
    written = StateVector(8, precision).run(circuit)
    assert bits(written) != bits(by_hand)  # otherwise this test would tell nothing
    assert bits(run(circuit, precision=precision).state) == bits(written)
    assert bits(run(circuit, precision=precision, schedule="written").state) == bits(written)


@pytest.mark.parametrize("precision", ["double", "single"])
def test_the_bits_are_the_same_for_every_number_of_threads(precision):
    circuit = entangled(16)
    results = [
        run(circuit, 1000, seed=1, precision=precision, threads=threads, observables="Z0 Z1 + X15", schedule="canonical:8")
        for threads in (1, 2, 3)
    ]
    assert len({bits(result.state) for result in results}) == 1
    assert len({result.expectation_values for result in results}) == 1
    assert all([(result.shots == results[0].shots).all() for result in results])
    written = run(circuit, precision=precision)
    assert np.abs(written.state.array - results[0].state.array).max() < (1e-14 if precision == "double" else 1e-5)
    assert bits(written.state) != bits(results[0].state)
    # At least 6 qubits are in a part.
    assert bits(run(circuit, precision=precision, schedule="canonical:10").state) == bits(
        run(circuit, precision=precision, schedule="canonical:57").state
    )


def test_small_and_empty_circuits_can_be_ordered():
    for n in (0, 1, 2, 6):
        assert run(Circuit(n), shots=3, schedule="canonical:10").counts == run(Circuit(n), shots=3).counts
    assert bits(run(entangled(6), schedule="canonical:57").state) == bits(run(entangled(6), schedule="canonical:0").state)


def test_idle_qubits_do_not_count():
    # Of twelve qubits the even ones are used: six, which fit one part.
    circuit, compact = Circuit(12), Circuit(6)
    for turn in range(3):
        for q in range(6):
            circuit.rx(0.3 + turn + q, 2 * q)
            compact.rx(0.3 + turn + q, q)
    assert bits(run(circuit, schedule="canonical:6").compact_state) == bits(StateVector(6).run(compact))


def test_stretches_between_measurements_are_ordered_one_by_one():
    circuit = Circuit(8, 1).h(0).measure(0, 0)
    with circuit.when("c", 1):
        circuit.x(0)
    circuit += entangled(8)
    circuit.save_expectation("z", "Z0")
    result = run(circuit, shots=50, seed=1, schedule="canonical:2")
    expected = run(Circuit(8) + entangled(8), schedule="canonical:2", observables="Z0")
    assert result.saved["z"] == pytest.approx(expected.expectation_values)
    assert sum(result.counts.values()) == 50


def test_many_runs_give_what_each_gives_by_itself():
    angle, other = Parameter("angle"), Parameter("other")
    circuit = entangled(9).rx(angle, 0).cx(0, 8).ry(other * 2, 8).rx(angle, 3)
    values = {"angle": [0.1, 0.2, 0.3], "other": [1.0, 1.5, 2.0]}
    found = run(circuit, shots=100, seed=4, values=values, observables="Z8", schedule="canonical:3")
    bound = [circuit.bind({angle: a, other: b}) for a, b in zip(*values.values())]
    listed = run(bound, shots=100, seed=4, observables="Z8", schedule="canonical:3")
    for one, in_list, member in zip(bound, listed, found):
        alone = run(one, observables="Z8", schedule="canonical:3")
        plain = run(Circuit.from_instructions(one.instructions, 9), schedule="canonical:3")
        assert bits(alone.state) == bits(in_list.state) == bits(member.state) == bits(plain.state)
        assert alone.expectation_values == in_list.expectation_values == member.expectation_values
        assert in_list.counts == member.counts
    # What is kept for the written order is another program.
    assert bits(run(bound[0]).state) == bits(StateVector(9).run(bound[0]))
    assert bits(run(bound[0]).state) != bits(listed[0].state)


def test_a_start_of_the_users_own_is_honoured():
    start = StateVector(8, seed=1).run(entangled(8, seed=9))
    assert np.abs(
        run(entangled(8), initial=start, schedule="canonical:2").state.array - run(entangled(8), initial=start).state.array
    ).max() < 1e-14


@pytest.mark.parametrize(
    "schedule, error, message",
    [
        (None, TypeError, 'schedule must be "written" or "canonical:N"'),
        (10, TypeError, "got 10"),
        ("canonical", ValueError, 'the number is part of the name, "canonical:10"'),
        ("canonical:", ValueError, "got 'canonical:'"),
        ("canonical:58", ValueError, "0 to 57"),
        ("canonical:-1", ValueError, "0 to 57"),
        ("canonical:010", ValueError, "0 to 57"),
        ("canonical:1\n", ValueError, "0 to 57"),
        ("canonical:\u0661", ValueError, "0 to 57"),
        ("Written", ValueError, "got 'Written'"),
    ],
)  # fmt: skip
def test_other_words_are_refused(schedule, error, message):
    with pytest.raises(error) as caught:
        run(Circuit(2).h(0), schedule=schedule)
    assert message in str(caught.value)


def test_what_orders_gates_itself_is_refused():
    with pytest.raises(ValueError, match='fusion must be False for schedule="canonical:10"'):
        run(Circuit(2).h(0), fusion=True, schedule="canonical:10")
    noise = NoiseModel().after("h", Channel.bit_flip(0.1))
    for asked in ({"noise": noise}, {"method": "exact"}, {"method": "trajectories", "shots": 10}):
        with pytest.raises(ValueError, match='schedule must be "written" for a run with noise'):
            run(Circuit(2).h(0), schedule="canonical:10", **asked)
    with pytest.raises(ValueError, match='schedule must be "written" for a run with noise'):
        run(Circuit(2).h(0).channel(Channel.bit_flip(0.1), 0), shots=3, schedule="canonical:10")
