"""Loops that are left from inside, rounds that are cut short, and classical bits that are written."""

import copy
import pickle
import random

import numpy as np
import pytest
from exact_runs import run_exact

from velacamplix import (
    Channel, Circuit, Condition, DensityMatrix, GateDefinition, Instruction, NoiseModel, StateVector, Store,
    UnsupportedInstruction, run,
)  # fmt: skip


def outcomes(circuit):
    """Exact probabilities by outcome."""
    found = run_exact(circuit)
    return {f"{int(row[0]):0{found.n_bits}b}": p for row, p in zip(found.outcomes, found.probabilities.tolist())}


def close(one, other):
    assert one.keys() == other.keys()
    for key in one:
        assert abs(one[key] - other[key]) < 1e-12


def agrees_with_shots(circuit, expected, shots=4000):
    """Whether all ways to run a circuit give these probabilities."""
    close(outcomes(circuit), expected)
    for how in ({}, {"method": "trajectories"}):
        counts = run(circuit, shots=shots if not how else 400, seed=5, **how).counts
        n = sum(counts.values())
        assert set(counts) <= set(expected)
        for key, p in expected.items():
            assert abs(counts.get(key, 0) - n * p) <= 6 * np.sqrt(n * p * (1 - p)) + 1e-9


def coin(circuit, clbit, qubit=0):
    return circuit.reset(qubit).h(qubit).measure(qubit, clbit)


def test_break_leaves_what_stands_behind_out():
    body = coin(Circuit(2, 3), 0).if_((0, 1), lambda one: one.break_()).x(1).measure(1, 2)
    # The second coin is only thrown if the first showed 0; then the loop ends by its condition, on the second bit.
    agrees_with_shots(Circuit(2, 3).while_((2, 0), body), {"100": 0.5, "001": 0.5})


def test_break_under_a_condition_of_its_own():
    def body(loop):
        coin(loop, 0)
        with loop.when(0, 1):
            loop.break_()
        loop.x(1).measure(1, 2)

    agrees_with_shots(Circuit(2, 3).while_((2, 0), body), {"100": 0.5, "001": 0.5})


def test_continue_begins_the_next_round():
    def body(loop):
        coin(loop, 0).if_((0, 0), lambda zero: zero.x(1).continue_()).measure(1, 1).store(2, 1)

    # Every 0 before the first 1 turns qubit 1: even numbers of them come with 1/2 + 1/8 + ... = 2/3.
    agrees_with_shots(Circuit(2, 3).while_((2, 0), body), {"101": 2 / 3, "111": 1 / 3})


def test_the_innermost_loop_is_left():
    inner = coin(Circuit(1, 3), 0).if_((0, 1), lambda one: one.break_())
    outer = Circuit(1, 3).store(0, 0).while_((2, 0), inner).store(1, 1)
    circuit = Circuit(1, 3).while_((1, 0), outer)
    agrees_with_shots(circuit, {"110": 1.0})


def test_rounds_count_anew_after_a_break():
    # The inner loop takes two rounds each time, and may have three.
    inner = Circuit(1, 4).store(0, Condition((1,), 1)).if_((0, 1), lambda one: one.break_()).store(1, 1)
    outer = Circuit(1, 4).store([0, 1], 0).while_((0, 0), inner, max_iterations=3)
    for place in (2, 3):
        outer.if_((place, 0), lambda zero, place=place: zero.store(place, 1).continue_())
    circuit = Circuit(1, 4).while_(Condition((2, 3), 3, "!="), outer)
    agrees_with_shots(circuit, {"1111": 1.0})


def test_a_loop_without_an_end_is_refused():
    endless = Circuit(1, 2).while_((0, 0), Circuit(1, 2).if_((1, 1), lambda one: one.break_()), max_iterations=7)
    for how in ({}, {"method": "exact"}, {"method": "trajectories"}):
        with pytest.raises(RuntimeError, match="max_iterations=7"):
            run(endless, shots=10, **how)
    with pytest.raises(ValueError, match="must measure into a bit of its condition, .*, or break"):
        Circuit(1, 2).while_((0, 0), Circuit(1, 2).continue_())
    # That of a loop inside is none of this.
    inside = Circuit(1, 2).while_((1, 0), Circuit(1, 2).break_())
    with pytest.raises(ValueError, match="or break"):
        Circuit(1, 2).while_((0, 0), inside)


@pytest.mark.parametrize("word", ["break", "continue"])
def test_what_stands_in_no_loop_is_refused(word):
    for circuit in (Circuit(1), Circuit(1, 1).h(0).measure(0, 0)):
        getattr(circuit, word + "_")()
        with pytest.raises(ValueError, match=f"{word} must stand in the body of a while_"):
            run(circuit, shots=1)
    with pytest.raises(ValueError, match="must stand in"):
        DensityMatrix(1).run(circuit)
    with pytest.raises(UnsupportedInstruction, match=word):
        StateVector(1).run(circuit)
    with pytest.raises(ValueError, match=word):
        circuit.to_qasm()
    with pytest.raises(ValueError, match="no inverse"):
        circuit.inverse()
    with pytest.raises(ValueError):
        Circuit.from_instructions([Instruction(word, (0,))], 1)
    with pytest.raises(ValueError):
        GateDefinition("g", Circuit(1).break_())


# --- Bits that are written ---


def test_bits_are_written():
    circuit = Circuit(1, 6).x(0).measure(0, 0)
    circuit.store([1, 2], "10").store(3, circuit.bits(1)).store([4, 5], [circuit.bits(3) & circuit.bits(0), ~circuit.bits(4)])
    agrees_with_shots(circuit, {"110111": 1.0})


def test_registers_are_numbers_and_texts():
    circuit = Circuit(1, 4)
    assert run(circuit.store("c", 3), shots=1).counts == {"1100": 1}
    assert run(circuit.store("c", "0011"), shots=1).counts == {"0011": 1}
    assert run(circuit.store([3, 0], "01"), shots=1).counts == {"1010": 1}


def test_all_are_read_before_one_is_written():
    circuit = Circuit(1, 2).x(0).measure(0, 0)
    agrees_with_shots(circuit.store([0, 1], [circuit.bits(1), circuit.bits(0)]), {"01": 1.0})


def test_a_measurement_that_could_wait_does_not():
    circuit = coin(Circuit(2, 2), 0).store(1, Condition((0,), 1)).store(0, 0)
    agrees_with_shots(circuit, {"00": 0.5, "01": 0.5})
    # Nobody reads what the first measurement wrote.
    agrees_with_shots(coin(Circuit(2, 2), 0).store(0, 1), {"10": 1.0})


def test_a_store_under_a_condition():
    circuit = coin(Circuit(1, 2), 0)
    with circuit.when(0, 1):
        circuit.store(1, 1)
    agrees_with_shots(circuit, {"00": 0.5, "11": 0.5})


def test_a_counter():
    """Two bits count heads up to three, by an adder of conditions."""
    def body(loop):
        low, high = loop.bits(1), loop.bits(2)
        coin(loop, 0).if_((0, 1), lambda heads: heads.store([1, 2], [~low, low ^ high]))

    circuit = Circuit(1, 3).while_(Condition((1, 2), 3, "<"), body)
    close(outcomes(circuit), {"111": 1.0})
    assert run(circuit, shots=100, seed=5).counts == {"111": 100}


@pytest.mark.parametrize(
    "clbits, value, error",
    [(5, 0, IndexError), ("d", 0, KeyError), (0, 2, ValueError), ([0, 1], "1", ValueError), ([0, 1], [True, "x"], TypeError),
     (0, Condition((7,), 1), IndexError), ([0, 0], 0, ValueError), (0, None, TypeError), ([0, 1], Condition((0,), 1), ValueError)],
)  # fmt: skip
def test_values_that_do_not_fit(clbits, value, error):
    with pytest.raises(error):
        Circuit(1, 3).store(clbits, value)


def test_detail_is_checked():
    for step in (
        Instruction("store", (), clbits=(0,), detail=Store((True, False))), Instruction("store", (0,), clbits=(0,), detail=Store((True,))),
        Instruction("store", (), detail=Store(())), Instruction("store", (), clbits=(3,), detail=Store((True,))),
    ):  # fmt: skip
        with pytest.raises((ValueError, IndexError)):
            Circuit.from_instructions([step], 1, 1)
    with pytest.raises(TypeError):
        Store((1,))


def test_they_are_refused_by_name_where_they_have_no_place():
    circuit = Circuit(1, 1).store(0, 1)
    for act in (circuit.to_qasm, circuit.to_qasm3, circuit.inverse, lambda: StateVector(1).run(circuit), circuit.controlled):
        with pytest.raises((ValueError, UnsupportedInstruction), match="store"):
            act()


# --- As all instructions ---


def program():
    body = coin(Circuit(2, 3), 0).if_((0, 1), lambda one: one.x(1).break_()).if_((1, 1), lambda one: one.continue_()).h(1)
    return Circuit(2, 3).while_((2, 0), body.measure(1, 2)).store([0, 1], [Condition((2,), 1), True])


def test_circuits_are_values():
    circuit = program()
    for other in (copy.deepcopy(circuit), pickle.loads(pickle.dumps(circuit)), Circuit.from_instructions(circuit, 2, 3)):
        assert other == circuit
    wide = Circuit(4, 6).compose(circuit, qubits=[3, 1], clbits=[5, 2, 0])
    assert wide[-1].clbits == (5, 2) and wide[-1].detail.reads == (0,)
    small = {key[5] + key[2] + key[0]: p for key, p in outcomes(wide).items()}
    close(small, outcomes(circuit))
    drawn = circuit.draw()
    for word in ("break", "continue", "c[0]=("):
        assert word in drawn
    assert "break" in Circuit(2, 1).while_((0, 0), Circuit(2, 1).x(0).break_())._repr_html_()


def test_loops_go_through_openqasm():
    circuit = Circuit(2, 3).while_((2, 0), coin(Circuit(2, 3), 0).if_((0, 1), lambda one: one.break_()).x(1).measure(1, 2))
    text = circuit.to_qasm3()
    assert "break;" in text
    assert Circuit.from_qasm3(text) == circuit
    close(outcomes(Circuit.from_qasm3(text)), outcomes(circuit))


def test_noise_stands_beside_what_is_in_loops():
    noisy = NoiseModel().after("h", Channel.bit_flip(0.5)).apply(program())
    assert sum(outcomes(noisy).values()) == pytest.approx(1)
    waiting = NoiseModel().idle(1.0, 1.0, {"x": 1.0, "measure": 1.0})
    assert [step.name for step in waiting.apply(Circuit(2, 2).x(0).measure(0, 0).store(1, Condition((0,), 1)))] == ["X", "measure", "store"]


@pytest.mark.parametrize("seed", range(25))
def test_random_programs_are_those_with_flags(seed):
    """A bit of its own in place of every break and continue, asked by all that stands behind."""
    dice = random.Random(seed)
    n_clbits = 4

    def steps(depth, in_loop):
        made = []
        for _ in range(dice.randint(1, 4)):
            kind = dice.choice(["coin", "gate", "store", "if", "while", "leave", "leave"])
            if kind == "coin":
                made.append(("coin", dice.randrange(2), dice.randrange(n_clbits)))
            elif kind == "gate":
                made.append(("gate", dice.randrange(2), dice.uniform(0, 3)))
            elif kind == "store":
                made.append(("store", dice.randrange(n_clbits), dice.randrange(n_clbits)))
            elif kind == "if" and depth < 3:
                made.append(("if", dice.randrange(n_clbits), steps(depth + 1, in_loop), steps(depth + 1, in_loop)))
            elif kind == "while" and depth < 2:
                # At most two rounds: the second ends with a break.
                made.append(("while", dice.randrange(n_clbits), steps(depth + 1, True)))
            elif kind == "leave" and in_loop:
                made.append(("leave", dice.choice(["break", "continue"]), dice.randrange(n_clbits)))
        return made

    n_flags = [n_clbits]

    def fresh():
        n_flags[0] += 1
        return n_flags[0] - 1

    tree = steps(0, False)
    width = 40

    def straight(circuit, items):
        for kind, *rest in items:
            if kind == "coin":
                coin(circuit, rest[1], rest[0])
            elif kind == "gate":
                circuit.ry(rest[1], rest[0])
            elif kind == "store":
                circuit.store(rest[0], ~circuit.bits(rest[1]))
            elif kind == "if":
                circuit.if_((rest[0], 1), lambda b: straight(b, rest[1]), lambda b: straight(b, rest[2]))
            elif kind == "leave":
                circuit.if_((rest[1], 1), lambda b: b.break_() if rest[0] == "break" else b.continue_())
            else:
                first, second = fresh(), fresh()

                def body(loop):
                    with loop.when(second, 1):
                        loop.break_()
                    loop.store(second, loop.bits(first)).store(first, 1)
                    straight(loop, rest[1])

                circuit.store([first, second], 0)
                circuit.while_(Condition((rest[0],), 0, ">="), body)

    def flagged(circuit, items, flags):
        for kind, *rest in items:
            guard = None
            for flag in flags:
                asked = Condition((flag,), 0)
                guard = asked if guard is None else guard & asked

            def act(b, kind=kind, rest=rest):
                if kind in ("coin", "gate", "store"):
                    straight(b, [(kind, *rest)])
                elif kind == "if":
                    b.if_((rest[0], 1), lambda c: flagged(c, rest[1], flags), lambda c: flagged(c, rest[2], flags))
                elif kind == "leave":
                    b.if_((rest[1], 1), lambda c: c.store(flags[0 if rest[0] == "break" else 1], 1))
                else:
                    left, skipped = fresh(), fresh()
                    b.store(left, 0)
                    for _ in range(2):
                        b.store(skipped, 0)
                        b.if_((left, 0), lambda c: flagged(c, rest[1], [left, skipped]))

            if guard is None:
                act(circuit)
            else:
                circuit.if_(guard, act)

    one, other = Circuit(2, width), Circuit(2, width)
    straight(one, tree)
    n_flags[0] = n_clbits
    flagged(other, tree, [])
    measured = [circuit.measure([0, 1], [width - 2, width - 1]) for circuit in (one, other)]

    def plain(circuit):
        told = {}
        for bits, p in outcomes(circuit).items():
            key = bits[:n_clbits] + bits[-2:]
            told[key] = told.get(key, 0.0) + p
        return told

    close(plain(measured[0]), plain(measured[1]))
