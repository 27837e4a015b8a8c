"""Decisions and loops: the shots are those of the circuit written out by hand, the distribution is the ideal one."""

import functools
import math
import os
import random
import signal
import subprocess
import sys
import threading
import time
import warnings

import numpy_outcomes as exact
import pytest

from velacamplix import Circuit, Parameter, run
from velacamplix.programs import drive as _drive
from velacamplix.programs import progress as _progress

SHOTS = 20_000
# A right program fails a test of this kind once in ten thousand seeds; the seeds are fixed.
RARE = 1e-4


# The same by hand: every instruction of a body under all conditions of those around it


def recipe(choose, n, m, levels, forbidden=frozenset()):
    """A list of ("gate", gate, qubits), ("measure", qubits, bits), ("reset", qubit), ("if", ...) and ("switch", ...)."""
    steps = []
    for _ in range(choose.randint(1, 4)):
        kind, qubit = choose.randrange(10), choose.randrange(n)
        free = [bit for bit in range(m) if bit not in forbidden]
        if kind < 3:
            steps.append(("gate", lambda c, q, a=choose.uniform(0, 3), b=choose.uniform(0, 3): c.u(a, b, 0.2, *q), (qubit,)))
        elif kind == 3 and n > 1:
            steps.append(("gate", lambda c, q: c.cx(*q), choose.sample(range(n), 2)))
        elif kind == 4:
            steps.append(("reset", qubit))
        elif kind < 8 and free:
            count = choose.randint(1, min(n, len(free)))
            steps.append(("measure", choose.sample(range(n), count), choose.sample(free, count)))
        elif levels and kind == 8:
            bits = choose.sample(range(m), choose.randint(1, m))
            inside = forbidden.union(bits)
            bodies = [recipe(choose, n, m, levels - 1, inside) for _ in range(2)]
            compared = (bits, choose.choice(["==", "!=", "<", "<=", ">", ">="]), choose.randrange(2 ** len(bits)))
            steps.append(("if", compared, bodies[0], bodies[1] if choose.random() < 0.6 else None))
        elif levels and kind == 9:
            bits = choose.sample(range(m), choose.randint(1, min(m, 2)))
            values = choose.sample(range(2 ** len(bits)), choose.randint(1, 2 ** len(bits)))
            cases = {value: recipe(choose, n, m, levels - 1, forbidden.union(bits)) for value in values}
            default = recipe(choose, n, m, levels - 1, forbidden.union(bits)) if choose.random() < 0.5 else None
            steps.append(("switch", bits, cases, default))
    return steps


def compared(circuit, condition):
    bits, sign, value = condition
    chosen = circuit.bits(bits)
    return {
        "==": chosen == value, "!=": chosen != value, "<": chosen < value,
        "<=": chosen <= value, ">": chosen > value, ">=": chosen >= value,
    }[sign]  # fmt: skip


def plain(circuit, step):
    if step[0] == "gate":
        step[1](circuit, step[2])
    elif step[0] == "measure":
        circuit.measure(*step[1:])
    else:
        circuit.reset(step[1])


def with_bodies(circuit, steps):
    for step in steps:
        if step[0] == "if":
            no = None if step[3] is None else functools.partial(with_bodies, steps=step[3])
            circuit.if_(compared(circuit, step[1]), functools.partial(with_bodies, steps=step[2]), no)
        elif step[0] == "switch":
            cases = {value: functools.partial(with_bodies, steps=body) for value, body in step[2].items()}
            default = None if step[3] is None else functools.partial(with_bodies, steps=step[3])
            circuit.switch(step[1], cases, default)
        else:
            plain(circuit, step)


def by_hand(circuit, steps, condition=None):
    def both(other):
        return other if condition is None else condition & other

    for step in steps:
        if step[0] == "if":
            holds = compared(circuit, step[1])
            by_hand(circuit, step[2], both(holds))
            by_hand(circuit, step[3] or [], both(~holds))
        elif step[0] == "switch":
            bits = circuit.bits(step[1])
            for value, body in step[2].items():
                by_hand(circuit, body, both(bits == value))
            if step[3] is not None:
                by_hand(circuit, step[3], both(~functools.reduce(lambda a, b: a | b, [bits == value for value in step[2]])))
        elif condition is None:
            plain(circuit, step)
        else:
            with circuit.when(condition):
                plain(circuit, step)


def both_ways(seed):
    choose = random.Random(seed)
    n, m = choose.randint(1, 4), choose.randint(1, 4)
    steps = [("gate", lambda c, q: c.h(*q), (qubit,)) for qubit in range(n)]
    while not any(step[0] in ("if", "switch") for step in steps):
        for _ in range(3):
            steps += recipe(choose, n, m, levels=3)
    circuits = Circuit(n, m), Circuit(n, m)
    with_bodies(circuits[0], steps)
    by_hand(circuits[1], steps)
    return [circuit.measure(0, 0) for circuit in circuits]


@pytest.mark.parametrize("seed", range(40))
def test_shots_and_expectation_values_are_those_of_the_circuit_by_hand(seed, precision):
    decided, written = both_ways(seed)
    observables = [f"{letter}{qubit}" for letter in "XZ" for qubit in range(decided.n_qubits)]
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", UserWarning)
        one, other = (run(c, shots=300, seed=seed, precision=precision, observables=observables) for c in (decided, written))
    assert (one.shots == other.shots).all() and one.active_qubits == other.active_qubits
    assert one.expectation_values.tobytes() == other.expectation_values.tobytes()
    assert one.has_state == other.has_state
    if one.has_state:
        assert one.compact_state.array.tobytes() == other.compact_state.array.tobytes()


@pytest.mark.parametrize("seed", range(15))
def test_random_decisions_follow_the_exact_distribution(seed):
    circuit, _ = both_ways(100 + seed)
    counts = run(circuit, shots=SHOTS, seed=seed).counts
    assert exact.p_value(counts, exact.distribution(circuit)) > RARE, str(circuit)


def attempt(circuit, turns=(0.9, 1.4)):
    return circuit.ry(turns[0], 1).cx(1, 0).rx(turns[1], 0).reset(1).ry(turns[1], 1).measure(1, 0)


def test_a_loop_is_its_rounds_written_out(precision):
    start = Circuit(2, 2).h(0).measure(0, 1)
    circuit = attempt(start.copy()).while_((0, 0), attempt).measure(0, 1)
    written = attempt(start.copy())
    for _ in range(80):
        with written.when(0, 0):
            attempt(written)
    written.measure(0, 1)
    one, other = (run(c, shots=500, seed=3, precision=precision, observables="Z0 Z1") for c in (circuit, written))
    assert (one.shots == other.shots).all() and set(one.counts) <= {"10", "11"}
    assert one.expectation_values == other.expectation_values


def test_rounds_without_chance_have_the_bits_of_those_written_out(precision):
    # Two qubits count the rounds; the bits that end the loop are certain.
    def counted(circuit):
        return circuit.u(0.3, 0.2, 0.1, 0).rzz(0.7, 0, 3).ccx(1, 2, 3).cx(1, 2).x(1).measure([1, 2], [0, 1])

    circuit = Circuit(4, 2).h(0).while_(("c", 0), counted).while_(Circuit(4, 2).bits("c") != 0, counted).ry(0.2, 0)
    written = Circuit(4, 2).h(0)
    for _ in range(4):
        counted(written)
    written.ry(0.2, 0)
    results = [run(c, precision=precision) for c in (circuit, written)]
    assert results[0].compact_state.array.tobytes() == results[1].compact_state.array.tobytes()
    assert results[0].compact_state.probability("1", 3) > 0.9


# What is exact


def repeat_until_success():
    """Acts on qubit 0 by way of qubit 1, which is measured; where it reads 1, it is reset and the step is repeated."""
    body = Circuit(2, 2).reset(1).ry(2 * math.pi / 3, 1).cx(1, 0).ry(0.7, 1).measure(1, 0)
    return Circuit(2, 2).x(1).measure(1, 0).while_((0, 1), body).measure(0, 1)


def nested_loops():
    def outer(circuit):
        return circuit.h(0).measure(0, 0).if_(
            (0, 1), lambda c: c.h(1).measure(1, 1).while_((1, 0), lambda d: d.rx(1.0, 1).measure(1, 1)).ry(0.4, 2)
        )

    return Circuit(3, 3).while_((0, 0), outer).measure(2, 2)


def a_switch_in_a_loop():
    def body(circuit):
        circuit.h(0).h(1).measure([0, 1], [0, 1])
        circuit.switch([0, 1], {0: lambda c: c.ry(0.3, 2), (1, 2): lambda c: c.reset(2).ry(1.2, 2)}, lambda c: c.x(2))

    circuit = Circuit(3, 3)
    return circuit.while_(circuit.bits([0, 1]) < 3, body).measure(2, 2)


def body_changes_its_condition():
    """An if reads its condition once; `when` would ask again after the measurement."""
    circuit = Circuit(2, 2).h(0).measure(0, 0)
    return circuit.if_((0, 1), lambda c: c.reset(0).measure(0, 0).x(1), lambda c: c.ry(0.5, 1)).measure(1, 1)


CIRCUITS = [repeat_until_success(), nested_loops(), a_switch_in_a_loop(), body_changes_its_condition()]


@pytest.mark.parametrize("circuit", CIRCUITS, ids=range(len(CIRCUITS)))
def test_counts_follow_the_exact_distribution(circuit, precision):
    counts = run(circuit, shots=SHOTS, seed=1, precision=precision).counts
    assert exact.p_value(counts, exact.distribution(circuit)) > RARE


@pytest.mark.parametrize("circuit", CIRCUITS, ids=range(len(CIRCUITS)))
def test_the_same_seed_gives_the_same_shots_for_any_number_of_threads(circuit):
    one, *others = (run(circuit, shots=400, seed=5, threads=threads).shots for threads in (1, 2, 3))
    assert all((other == one).all() for other in others)


def test_the_condition_of_an_if_is_read_once():
    circuit = Circuit(2, 2).x(0).measure(0, 0).if_((0, 1), lambda c: c.reset(0).measure(0, 0).x(1)).measure(1, 1)
    assert run(circuit).outcomes() == [("01", 1.0)]


@pytest.mark.parametrize("value", range(8))
def test_every_value_finds_its_case(value):
    for listed, fits in (([0, 1, 2], "big"), ("c", "little")):
        circuit = Circuit(6, 3).measure([0, 1, 2], [0, 1, 2])
        bits = circuit.bits(listed)
        circuit.switch(bits, {2: lambda c: c.x(3), (5, 7): lambda c: c.x(4)}, lambda c: c.x(5))
        text = format(value, "03b") if fits == "big" else format(value, "03b")[::-1]
        expected = {2: "100", 5: "010", 7: "010"}.get(value, "001")
        assert run(circuit, initial=text + "000").probability(expected, qubits=[3, 4, 5]) == 1.0


def test_where_no_round_is_needed_none_is_made():
    circuit = Circuit(1, 1).x(0).measure(0, 0).while_((0, 0), lambda c: c.h(0).measure(0, 0), max_iterations=1)
    result = run(circuit)
    assert result.has_state and result.outcomes() == [("1", 1.0)]


def test_certain_decisions_need_no_shots_and_chance_does():
    circuit = Circuit(2, 2).x(0).measure(0, 0).if_((0, 1), lambda c: c.h(1))
    assert run(circuit).probability("1", 1) == pytest.approx(0.5)
    circuit.measure(1, 1).while_((1, 0), lambda c: c.h(1).measure(1, 1))
    with pytest.raises(ValueError, match=r"shots must be given.*instruction 3 \(measure 1 -> 1\) has more than one"):
        run(circuit)
    circuit = Circuit(1, 1).while_((0, 0), lambda c: c.h(0).measure(0, 0))
    with pytest.raises(ValueError, match=r"'measure 0 -> 0' inside of instruction 0 \(while c\[0\] == 0\) has more than one"):
        run(circuit)


# Parameters


def test_angles_in_bodies_are_bound_and_planned_once():
    a, b = Parameter("a"), Parameter("b")
    circuit = Circuit(2, 2).rx(a, 0).measure(0, 0)
    circuit.if_((0, 1), lambda c: c.ry(b, 1).rzz(a * b, 0, 1), lambda c: c.if_((1, 0), lambda d: d.sx(1).ry(2 * a, 1)))
    circuit.while_((1, 1), lambda c: c.rx(b, 1).measure(1, 1)).measure(1, 1)
    assert circuit.parameters == ("a", "b")
    for number in range(4):
        values = (0.3 + number, 1.1 - 0.2 * number)
        bound = circuit.bind(list(values))
        fresh = circuit.bind(a=values[0]).bind(b=values[1])  # no template
        one, other = (run(c, shots=500, seed=number) for c in (bound, fresh))
        assert bound == fresh and not bound.parameters and (one.shots == other.shots).all()
    with pytest.raises(ValueError, match="parameters must have values.*'a', 'b'"):
        run(circuit, shots=1)


# Bounds


def endless(most, n=1):
    circuit = Circuit(n, 1)
    for qubit in range(1, n):
        circuit.h(qubit)
    return circuit.while_((0, 0), lambda c: c.x(0).x(0).measure(0, 0), max_iterations=most)


@pytest.mark.parametrize("shots", [None, 7])
def test_a_loop_that_does_not_end_says_so(shots):
    counted = "" if shots is None else " on 7 of 7 shots that went the same way"
    told = (
        rf"instruction 0 \(while c\[0\] == 0\) has gone round max_iterations=25 times, and its condition holds{counted}: "
        r"give while_\(\) more iterations"
    )
    with pytest.raises(RuntimeError, match=told):
        run(endless(25), shots=shots)


def test_the_bound_is_on_rounds():
    def counted(circuit):
        return circuit.cx(0, 1).x(0).measure([0, 1], [0, 1])

    for most, is_enough in ((2, False), (3, True)):
        circuit = Circuit(2, 2).x(0)
        circuit.measure(0, 0).while_(circuit.bits("c") != 0, counted, max_iterations=most)
        if is_enough:
            assert run(circuit).has_state
        else:
            with pytest.raises(RuntimeError, match="max_iterations=2 times"):
                run(circuit)


def test_rounds_of_an_inner_loop_count_from_its_begin():
    # Each time it has two rounds; the outer one has five.
    def inner(circuit):
        return circuit.x(0).measure(0, 0)

    def outer(circuit):
        circuit.while_((0, 0), inner, max_iterations=1).reset(0).measure(0, 0)
        circuit.cx(1, 2).x(1).cx(2, 3).measure([1, 2], [1, 2])

    circuit = Circuit(4, 3)
    circuit.while_(circuit.bits([1, 2]) != 3, outer, max_iterations=9)
    assert run(circuit).outcomes() == [("011", 1.0)]


def test_many_rounds_and_many_splits_need_few_states(monkeypatch):
    made = []
    from velacamplix import StateVector

    original = StateVector._start
    monkeypatch.setattr(StateVector, "_start", lambda self, *a, **b: (made.append(self), original(self, *a, **b))[1])
    circuit = Circuit(1, 1).measure(0, 0).while_((0, 0), lambda c: c.reset(0).ry(0.2, 0).measure(0, 0))
    assert run(circuit, shots=3000, seed=1).counts == {"1": 3000}
    assert len(made) <= math.log2(3000) + 2


# Progress and Ctrl-C


def test_progress_goes_on_in_loops_and_ends_at_the_end(monkeypatch):
    monkeypatch.setattr(_drive, "INTERVAL", 0.0)
    monkeypatch.setattr(_progress, "INTERVAL", 0.0)
    told = []
    circuit = nested_loops().switch("c", {0: lambda c: c.h(0).h(1)}, lambda c: c.h(2))
    run(circuit, shots=50, seed=1, progress=told.append)
    done = [progress.done for progress in told]
    assert done == sorted(done) and done[-1] == told[-1].total == 7 and len(done) > 20
    assert all(progress.done < progress.total for progress in told[:-1])


def test_progress_can_end_a_loop(monkeypatch):
    monkeypatch.setattr(_progress, "INTERVAL", 0.0)

    class Enough(Exception):
        pass

    def stop(progress):
        raise Enough

    with pytest.raises(Enough):
        run(endless(10**9), progress=stop)


@pytest.mark.parametrize("n", [1, 16])
def test_a_loop_hears_ctrl_c_within_half_a_second(n):
    program = (
        "import sys; sys.path.insert(0, sys.argv[1])\n"
        "from test_flow import endless, run\n"
        f"circuit = endless(10**12, {n})\n"
        "print('begins', flush=True)\n"
        "try:\n    run(circuit, shots=10)\nexcept KeyboardInterrupt:\n    print('heard', flush=True)\n"
    )
    folders = [os.path.dirname(__file__), os.path.join(os.path.dirname(__file__), "..", "support")]
    child = subprocess.Popen(
        [sys.executable, "-c", f"import sys; sys.path.insert(0, {folders[1]!r})\n" + program, folders[0]],
        stdout=subprocess.PIPE, text=True,
    )  # fmt: skip
    killer = threading.Timer(60, child.kill)
    killer.start()
    try:
        assert child.stdout.readline() == "begins\n"
        time.sleep(0.5)
        child.send_signal(signal.SIGINT)
        sent = time.monotonic()
        assert child.stdout.read() == "heard\n"
        assert time.monotonic() - sent < 30  # half a second where nobody else computes; tests must not depend on that
        assert child.wait() == 0
    finally:
        killer.cancel()
