"""Qiskit's control flow and classical variables, beside Aer."""

import random
from functools import cache

import numpy as np
import pytest
from exact_runs import run_exact

pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")

from exact_runs import run_exact  # noqa: E402
import qiskit  # noqa: E402
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister  # noqa: E402
from qiskit.circuit import Parameter  # noqa: E402
from qiskit.circuit.classical import expr, types  # noqa: E402
from qiskit.transpiler import generate_preset_pass_manager  # noqa: E402

from velacamplix import Circuit  # noqa: E402
from velacamplix.qiskit import NotConverted, VelacamplixBackend, from_velacamplix, to_velacamplix  # noqa: E402

SHOTS = 3000

calculates = pytest.mark.skipif(not hasattr(expr, "add"), reason=f"Qiskit {qiskit.__version__} has no sums of variables")


def outcomes(circuit, n_bits=None):
    """Exact probabilities of the first bits, which Qiskit's circuit has, as Qiskit writes them."""
    found = run_exact(to_velacamplix(circuit))
    told = {}
    for row, p in zip(found.outcomes, found.probabilities.tolist()):
        bits = f"{int(row[0]):0{found.n_bits}b}"[: circuit.num_clbits if n_bits is None else n_bits][::-1]
        told[bits] = told.get(bits, 0.0) + p
    return told


def require_fair(counts, expected, shots=SHOTS):
    counts = {key.replace(" ", ""): times for key, times in counts.items()}
    assert set(counts) <= set(expected)
    for key, p in expected.items():
        assert abs(counts.get(key, 0) - shots * p) <= 6 * np.sqrt(shots * p * (1 - p)) + 1e-9, key


@cache
def manager():
    return generate_preset_pass_manager(1, VelacamplixBackend())


def compare(circuit):
    """Exact probabilities against shots of ours and of Aer's, transpiled or not, and there and back again."""
    pytest.importorskip("qiskit_aer", reason="needs Aer: pip install velacamplix[test]")
    from beside_aer import result_of

    expected, backend = outcomes(circuit), VelacamplixBackend(shots=SHOTS, seed_simulator=3)
    require_fair(backend.run(circuit).result().get_counts(), expected)
    require_fair(backend.run(manager().run(circuit)).result().get_counts(), expected)
    again = outcomes(from_velacamplix(to_velacamplix(circuit)), circuit.num_clbits)
    assert again == pytest.approx(expected, abs=1e-12)
    require_fair(result_of(circuit, shots=SHOTS, seed_simulator=5).get_counts(), expected)
    return expected


def coin(circuit, bit, qubit=0):
    circuit.reset(qubit)
    circuit.h(qubit)
    circuit.measure(qubit, bit)


def start(n_qubits=2, *sizes):
    return QuantumCircuit(QuantumRegister(n_qubits), *[ClassicalRegister(size, "cde"[i]) for i, size in enumerate(sizes or (3,))])


# --- Leaving loops ---


def test_a_break_in_a_while():
    circuit = start()
    with circuit.while_loop((circuit.clbits[2], 0)):
        coin(circuit, 0)
        with circuit.if_test((circuit.clbits[0], 1)):
            circuit.x(1)
            circuit.break_loop()
        circuit.measure(0, 1)
        circuit.x(0)
        circuit.measure(0, 2)
    circuit.measure(1, 1)
    assert compare(circuit) == pytest.approx({"011": 0.5, "100": 0.5})


def test_a_continue_in_a_while():
    circuit = start()
    with circuit.while_loop((circuit.clbits[2], 0)):
        coin(circuit, 0)
        with circuit.if_test((circuit.clbits[0], 0)):
            circuit.x(1)
            circuit.continue_loop()
        circuit.measure(1, 1)
        circuit.measure(0, 2)
    assert compare(circuit) == pytest.approx({"101": 2 / 3, "111": 1 / 3})


def test_a_break_in_a_for():
    circuit = start()
    with circuit.for_loop(range(4)):
        coin(circuit, 0)
        with circuit.if_test((circuit.clbits[0], 1)):
            circuit.break_loop()
        circuit.ry(0.7, 1)
    circuit.measure(1, 1)
    expected = compare(circuit)
    assert expected["001"] == pytest.approx(sum([0.5 ** (k + 1) * np.cos(0.35 * k) ** 2 for k in range(4)]))


def test_a_continue_in_a_for():
    circuit = start()
    angle = Parameter("angle")
    with circuit.for_loop([1, 4, 2], angle):
        coin(circuit, 0)
        with circuit.if_test((circuit.clbits[0], 1)) as otherwise:
            circuit.x(0)
            circuit.continue_loop()
        with otherwise:
            circuit.ry(0.2, 1)
        circuit.ry(angle / 5, 1)
    circuit.measure(1, 1)
    compare(circuit)


def test_break_and_continue_in_a_switch_of_a_for():
    circuit = start(2, 2, 1)
    c = circuit.cregs[0]
    with circuit.for_loop(range(3)):
        coin(circuit, c[0])
        coin(circuit, c[1])
        with circuit.switch(c) as case:
            with case(0):
                circuit.break_loop()
            with case(1, 2):
                circuit.ry(0.4, 1)
                circuit.continue_loop()
            with case(case.DEFAULT):
                circuit.ry(0.9, 1)
        circuit.x(1)
    circuit.measure(1, 2)
    compare(circuit)


def test_loops_in_each_other():
    circuit = start()
    with circuit.for_loop(range(2)):
        with circuit.for_loop(range(3)):
            coin(circuit, 0)
            with circuit.if_test((circuit.clbits[0], 1)):
                circuit.break_loop()
            circuit.ry(0.6, 1)
        with circuit.if_test((circuit.clbits[0], 0)):
            circuit.break_loop()
        circuit.ry(0.3, 1)
    circuit.measure(1, 1)
    compare(circuit)


def test_a_loop_whose_condition_is_true():
    circuit = start()
    with circuit.while_loop(expr.lift(True)):
        coin(circuit, 0)
        with circuit.if_test((circuit.clbits[0], 1)):
            circuit.break_loop()
        circuit.x(1)
    circuit.measure(1, 1)
    expected = outcomes(circuit)
    assert expected == pytest.approx({"001": 2 / 3, "011": 1 / 3})
    circuit = start()
    with circuit.while_loop(expr.lift(True)):
        circuit.x(0)
    with pytest.raises(NotConverted, match="never ends"):
        to_velacamplix(circuit)


@pytest.mark.parametrize("seed", range(12))
def test_random_control_flow(seed):
    """Whatever is in whatever, two levels deep; loops of at most 3 rounds."""
    dice = random.Random(seed)
    circuit = start(3, 2, 2)
    c, d = circuit.cregs

    def steps(depth, in_loop):
        for _ in range(dice.randint(2, 3)):
            kind = dice.choice(["gate", "measure", "if", "for", "while", "switch", "leave"])
            if kind == "gate" or (depth > 1 and kind not in ("measure", "leave")):
                circuit.ry(dice.uniform(0, 3), dice.randrange(3))
                circuit.cx(*dice.sample(range(3), 2))
            elif kind == "measure":
                circuit.measure(dice.randrange(3), dice.randrange(4))
            elif kind == "if":
                with circuit.if_test(dice.choice([(c, dice.randrange(4)), expr.less(c, d), expr.logic_not(d[0])])) as otherwise:
                    steps(depth + 1, in_loop)
                with otherwise:
                    steps(depth + 1, in_loop)
            elif kind == "for":
                with circuit.for_loop(range(dice.randint(1, 3))):
                    steps(depth + 1, True)
            elif kind == "while":
                with circuit.while_loop((d[1], 1)):
                    steps(depth + 1, True)
                    circuit.reset(0)
                    circuit.measure(0, d[1])
            elif kind == "switch":
                with circuit.switch(c) as case:
                    with case(1, 2):
                        steps(depth + 1, in_loop)
                    with case(case.DEFAULT):
                        steps(depth + 1, in_loop)
            elif in_loop:
                with circuit.if_test((c[0], 1)):
                    circuit.break_loop() if dice.random() < 0.5 else circuit.continue_loop()

    for qubit in range(3):
        circuit.ry(0.9 + qubit, qubit)
    circuit.measure([0, 1], [d[1], c[0]])
    steps(0, False)
    circuit.measure([0, 1, 2], [0, 2, 3])
    compare_endless(circuit)


def compare_endless(circuit):
    """As `compare`; a loop that "continue" keeps from its end is refused by one and would go on for ever in the other."""
    try:
        outcomes(circuit)
    except RuntimeError:
        return
    compare(circuit)


# --- Variables: what they become was worked out by hand, because Aer 0.18 runs none of these ---


@calculates
def test_a_counter_in_a_variable():
    circuit = start(1, 2)
    count = circuit.add_var("count", expr.lift(0, types.Uint(3)))
    with circuit.while_loop(expr.less(count, 5)):
        circuit.store(count, expr.add(count, 2))
        circuit.x(0)
    circuit.measure(0, 0)
    with circuit.if_test(expr.equal(count, 6)):
        circuit.reset(0)
        circuit.x(0)
    circuit.measure(0, 1)
    assert outcomes(circuit) == {"11": 1.0}
    made = to_velacamplix(circuit)
    assert [(register.name, register.size) for register in made.registers][1:] == [("c", 2), ("count", 3)]
    assert VelacamplixBackend().run(circuit, shots=20).result().get_counts() == {"11": 20}
    assert outcomes(from_velacamplix(made), 2) == {"11": 1.0}


def uint(value, width=3):
    return expr.lift(value, types.Uint(width))


VALUES = {
    "a number": (lambda a, b: uint(5), lambda a, b: 5),
    "another": (lambda a, b: a, lambda a, b: a),
    "not": (lambda a, b: expr.bit_not(a), lambda a, b: ~a),
    "and": (lambda a, b: expr.bit_and(a, b), lambda a, b: a & b),
    "or": (lambda a, b: expr.bit_or(a, 3), lambda a, b: a | 3),
    "xor": (lambda a, b: expr.bit_xor(a, b), lambda a, b: a ^ b),
    "sum": (lambda a, b: expr.add(a, b), lambda a, b: a + b),
    "one more": (lambda a, b: expr.add(a, 1), lambda a, b: a + 1),
    "difference": (lambda a, b: expr.sub(a, b), lambda a, b: a - b),
    "product": (lambda a, b: expr.mul(a, b), lambda a, b: a * b),
    "left": (lambda a, b: expr.shift_left(a, 2), lambda a, b: a << 2),
    "right": (lambda a, b: expr.shift_right(a, 1), lambda a, b: a >> 1),
    "left by another": (lambda a, b: expr.shift_left(a, b), lambda a, b: a << min(b, 3)),
    "far left": (lambda a, b: expr.shift_left(a, 7), lambda a, b: 0),
    "sum of sums": (lambda a, b: expr.sub(expr.add(a, b), expr.add(b, b)), lambda a, b: a - b),
    "a truth value": (lambda a, b: expr.cast(expr.less(a, b), types.Uint(3)), lambda a, b: int(a < b)),
}  # fmt: skip
TRUTHS = {
    "less": (lambda a, b: expr.less(a, b), lambda a, b: a < b),
    "at most": (lambda a, b: expr.less_equal(a, b), lambda a, b: a <= b),
    "more": (lambda a, b: expr.greater(a, expr.add(b, 1)), lambda a, b: a > (b + 1) % 8),
    "at least": (lambda a, b: expr.greater_equal(a, b), lambda a, b: a >= b),
    "equal": (lambda a, b: expr.equal(a, expr.bit_xor(b, 1)), lambda a, b: a == b ^ 1),
    "different": (lambda a, b: expr.not_equal(a, b), lambda a, b: a != b),
    "a bit": (lambda a, b: expr.index(a, 1), lambda a, b: a >> 1 & 1),
    "a bit by another": (lambda a, b: expr.index(a, expr.bit_and(b, 1)), lambda a, b: a >> (b & 1) & 1),
    "both": (lambda a, b: expr.logic_and(expr.less(a, 4), expr.less(b, 4)), lambda a, b: a < 4 and b < 4),
    "true": (lambda a, b: expr.lift(True), lambda a, b: True),
    "not zero": (lambda a, b: expr.cast(a, types.Bool()), lambda a, b: a != 0),
}  # fmt: skip


CALCULATED = {"sum", "one more", "difference", "product", "sum of sums", "more"}


def of_all_numbers(circuit, a, b):
    """Six coins, two numbers."""
    for place, bit in enumerate([*circuit.cregs[0], *circuit.cregs[1]]):
        coin(circuit, bit)
    circuit.store(a, circuit.cregs[0])
    circuit.store(b, circuit.cregs[1])


@pytest.mark.parametrize("name", [pytest.param(name, marks=calculates) if name in CALCULATED else name for name in VALUES])
def test_values_of_numbers(name):
    made, expected = VALUES[name]
    circuit = start(1, 3, 3, 3)
    for word in "ab":
        circuit.add_uninitialized_var(expr.Var.new(word, types.Uint(3)))
    a, b = list(circuit.iter_declared_vars())
    of_all_numbers(circuit, a, b)
    circuit.store(circuit.cregs[2], made(a, b))
    told = outcomes(circuit)
    assert len(told) == 64
    for bits, p in told.items():
        result, right, left = [int(bits[start : start + 3], 2) for start in (0, 3, 6)]
        assert result == expected(left, right) % 8 and p == pytest.approx(1 / 64)


@pytest.mark.parametrize("name", [pytest.param(name, marks=calculates) if name in CALCULATED else name for name in TRUTHS])
def test_truth_values_of_numbers(name):
    made, expected = TRUTHS[name]
    circuit = start(1, 3, 3, 1)
    for word in "ab":
        circuit.add_uninitialized_var(expr.Var.new(word, types.Uint(3)))
    a, b = list(circuit.iter_declared_vars())
    of_all_numbers(circuit, a, b)
    answer = circuit.add_var("answer", made(a, b))
    circuit.reset(0)
    with circuit.if_test(answer):
        circuit.x(0)
    circuit.measure(0, 6)
    for bits in outcomes(circuit):
        result, right, left = int(bits[0]), int(bits[1:4], 2), int(bits[4:], 2)
        assert result == bool(expected(left, right))


@calculates
def test_wide_numbers_are_compared_and_added():
    circuit = start(1, 12, 12, 12)
    c, d, e = circuit.cregs
    circuit.x(0)
    circuit.measure([0, 0, 0], [c[11], c[0], d[0]])
    circuit.store(e, expr.add(c, d))
    circuit.reset(0)
    with circuit.if_test(expr.greater(e, c)):
        circuit.x(0)
    circuit.measure(0, c[5])
    (bits,) = outcomes(circuit)
    assert int(bits[:12], 2) == 2**11 + 2 and bits[-6] == "1"


def test_variables_of_blocks():
    circuit = start(1, 2)
    with circuit.for_loop(range(3)):
        local = circuit.add_var("local", expr.lift(False))
        coin(circuit, 0)
        circuit.store(local, expr.logic_not(circuit.clbits[0]))
        with circuit.if_test(local):
            circuit.continue_loop()
        circuit.store(circuit.clbits[1], True)
        circuit.break_loop()
    assert outcomes(circuit) == pytest.approx({"11": 7 / 8, "00": 1 / 8})


def test_a_single_bit_of_a_variable():
    circuit = start(1, 3)
    number = circuit.add_var("number", uint(1))
    circuit.store(expr.index(number, 2), True)
    circuit.store(circuit.cregs[0], number)
    assert outcomes(circuit) == {"101": 1.0}


def test_variables_do_not_show_in_results():
    circuit = start(1, 1)
    count = circuit.add_var("c", uint(5))
    with circuit.if_test(expr.equal(count, 5)):
        circuit.x(0)
    circuit.measure(0, 0)
    result = VelacamplixBackend().run(circuit, shots=7, memory=True).result()
    assert result.get_counts() == {"1": 7} and result.get_memory() == 7 * ["1"]
    assert to_velacamplix(circuit).registers[-1].name != "c"  # which is taken


@pytest.mark.skipif(not hasattr(types, "Float"), reason="this Qiskit has no such variables")
def test_variables_of_other_kinds_are_refused():
    circuit = start(1, 1)
    circuit.add_var("x", expr.lift(0.5))
    with pytest.raises(NotConverted, match="variable 'x' must be a truth value or an unsigned integer"):
        to_velacamplix(circuit)


def test_bits_that_change_places_do_not_go_back():
    circuit = Circuit(1, 2)
    circuit.store([0, 1], [circuit.bits(1), circuit.bits(0)])
    with pytest.raises(NotConverted, match="cannot change places"):
        from_velacamplix(circuit)
