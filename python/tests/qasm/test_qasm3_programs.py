"""OpenQASM 3 as people write it: whole programs, what is worked out while reading, and what waits for measurements."""

import math

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, CompoundCondition, Condition, If, Instruction, QasmError, StateVector, Switch, While, run

HEADER = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'


def read(text, header=HEADER):
    return Circuit.from_qasm3(header + text)


def angles(text):
    """The angles of all RX in a program on one qubit."""
    return [step.params[0] for step in read("qubit q; " + text).basic_instructions()]


def steps(text):
    return [str(step) for step in read(text)]


# --- Programs ---


def test_teleportation():
    circuit = read("""
        /* The state of the first qubit
           goes over to the third. */
        qubit[3] q;
        bit c0; bit c1; bit result;
        gate bell a, b { h a; cx a, b; }
        gate post a { }                        // for whoever wants to look
        reset q;
        U(0.3, 0.2, 0.1) q[0];
        bell q[1], q[2];
        barrier q;
        inv @ bell q[0], q[1];
        c0 = measure q[0];
        c1 = measure q[1];
        if (c0 == 1) z q[2];
        if (c1 == 1) { x q[2]; }
        post q[2];
        inv @ U(0.3, 0.2, 0.1) q[2];
        result = measure q[2];
    """)
    assert [register.name for register in circuit.registers] == ["q", "c0", "c1", "result"]
    counts = run(circuit, shots=1000, seed=5).counts
    assert len(counts) == 4 and all(key[2] == "0" for key in counts)


def fourier(n):
    rows = np.arange(2**n)
    return np.exp(2j * np.pi * np.outer(rows, rows) / 2**n) / 2 ** (n / 2)


def test_fourier_transform_by_loops():
    circuit = read("""
        const uint n = 4;
        qubit[n] q;
        for uint k in [0:n - 1] {
            let target = q[n - 1 - k];
            h target;
            for uint j in [1:n - 1 - k] {
                cp(pi / 2 ** j) q[n - 1 - k - j], target;
            }
        }
        for int k in [0:n / 2 - 1] swap q[k], q[-1 - k];
    """)
    np.testing.assert_allclose(numpy_simulator.unitary(circuit), fourier(4), rtol=0, atol=1e-14)
    assert circuit.gate_counts() == {"cPH": 6, "H": 4, "SWAP": 2}


def test_adder():
    text = """
        gate majority a, b, c { cx c, b; cx c, a; ccx a, b, c; }
        gate unmaj a, b, c { ccx a, b, c; cx c, a; cx a, b; }
        qubit cin; qubit[4] a; qubit[4] b; qubit cout; bit[5] ans;
        uint[4] a_in = %d;
        uint[4] b_in = %d;
        reset cin; reset a; reset b; reset cout;
        for uint i in [0:3] {
            if (bool(a_in[i])) x a[i];
            if (b_in[i] == 1) x b[i];
        }
        majority cin, b[0], a[0];
        for uint i in [0:2] { majority a[i], b[i + 1], a[i + 1]; }
        cx a[3], cout;
        for uint i in [2:-1:0] { unmaj a[i], b[i + 1], a[i + 1]; }
        unmaj cin, b[0], a[0];
        ans[0:3] = measure b[0:3];
        ans[4] = measure cout;
    """
    for a, b in ((1, 15), (7, 7), (12, 9), (0, 0)):
        (outcome,) = run(read(text % (a, b)), shots=1, seed=1).counts
        assert int(outcome[::-1], 2) == a + b


def test_search_with_controls_of_both_values():
    circuit = read("""
        qubit[3] q; bit[3] found;
        gate oracle a, b, c { negctrl @ ctrl @ z a, b, c; }       // 6, whose lowest bit is 0
        gate diffuse a, b, c {
            h a; h b; h c;
            negctrl(2) @ gphase(pi) a, b;
            negctrl(2) @ ctrl @ gphase(pi) a, b, c;
            h a; h b; h c;
        }
        gate mirror a, b, c { h a; h b; h c; x a; x b; x c; ctrl(2) @ z a, b, c; x a; x b; x c; h a; h b; h c; }
        h q;
        for int round in {1, 2} { oracle q[0], q[1], q[2]; mirror q[0], q[1], q[2]; }
        found = measure q;
    """)
    counts = run(circuit, shots=1000, seed=3).counts
    assert counts.most_likely(1)[0][0] == "011" and counts["011"] > 900


def test_phase_is_estimated_bit_by_bit():
    circuit = read("""
        qubit probe; qubit state;
        bit[3] c;
        x state;
        for int k in {2, 1, 0} {
            reset probe;
            h probe;
            ctrl @ pow(2 ** k) @ p(2 * pi * 5 / 8.0) probe, state;
            if (k < 2 && c[0]) p(-pi / 2 ** (2 - k)) probe;
            if (k < 1) { if (c[1]) { p(-pi / 2) probe; } }
            h probe;
            c[2 - k] = measure probe;
        }
    """)
    assert run(circuit, shots=20, seed=1).counts == {"101": 20}


def test_repeat_until_success():
    circuit = read("""
        qubit[3] q; bit[2] outcome; bit result;
        h q[2];
        outcome[0] = measure q[0];
        x q[0]; outcome[0] = measure q[0];
        while (outcome != 0) {
            reset q[0]; reset q[1];
            h q[0]; h q[1];
            ccx q[0], q[1], q[2];
            h q[0]; h q[1];
            outcome = measure q[0:1];
            if (outcome != 0) { z q[2]; }
        }
        h q[2];
        result = measure q[2];
    """)
    assert isinstance(circuit[-3].detail, While) and circuit[-3].detail.condition == Condition((0, 1), 0, "!=")
    assert sum(run(circuit, shots=200, seed=1).counts.values()) == 200


@pytest.mark.parametrize("error", ["", "x q[0];", "x q[1];", "x q[2];"])
def test_repetition_code(error):
    circuit = read(f"""
        qubit[3] q; qubit[2] a; bit[2] syndrome; bit[3] c;
        ry(1.0) q[0];
        cx q[0], q[{{1, 2}}];
        {error}
        cx q[0:1], a; cx q[1:2], a;
        syndrome = measure a;
        switch (uint(syndrome)) {{
            case 1 {{ x q[0]; }}
            case 2 {{ x q[2]; }}
            case 0b11 {{ x q[1]; }}
            default {{ }}
        }}
        cx q[0], q[{{1, 2}}];
        ry(-1.0) q[0];
        c = measure q;
    """)
    assert {key[2:] for key in run(circuit, shots=50, seed=1).counts} == {"000"}


def test_old_words_are_understood():
    circuit = read("qreg q[2]; creg c[2]; h q[0]; cx q[0], q[1]; measure q -> c; if (c == 3) x q[0]; measure q[1] -> c[0];")
    assert circuit == Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1]).append(
        Instruction("X", (0,), condition=Condition((0, 1), 3))
    ).measure(1, 0)
    old = Circuit.from_qasm(
        'OPENQASM 2.0; include "qelib1.inc"; qreg q[2]; creg c[2]; h q[0]; cx q[0], q[1]; measure q -> c; if (c == 3) x q[0]; measure q[1] -> c[0];'
    )
    assert circuit == old


# --- What is worked out while reading ---


@pytest.mark.parametrize(
    "text, expected",
    [
        ("7/2", 3), ("-7/2", -3), ("7/2.0", 3.5), ("7 % 3", 1), ("-7 % 3", -1), ("2 ** 3 ** 2", 512), ("-2 ** 2", -4),
        ("2 ** -1", 0.5), ("1 - 2 - 3", -4), ("2 - 3 * 4 / 2", -4), ("1 << 4 >> 1", 8), ("6 & 3 | 8 ^ 1", 11), ("0x1F", 31),
        ("0b1_01", 5), ("0o17", 15), ("1_000", 1000), ("1e2", 100), ("0e5 + 007", 7), (".5", 0.5), ("5.", 5), ("pi", math.pi), ("π / 2", math.pi / 2),
        ("tau", math.tau), ("τ", math.tau), ("euler", math.e), ("ℇ", math.e), ("sin(pi / 6)", math.sin(math.pi / 6)),
        ("arccos(0.5) + arcsin(0.5) + arctan(1)", math.acos(0.5) + math.asin(0.5) + math.atan(1)), ("sqrt(2)", math.sqrt(2)),
        ("exp(1) * log(2) + tan(1) - cos(1)", math.exp(1) * math.log(2) + math.tan(1) - math.cos(1)), ("pow(2, 3)", 8),
        ("pow(2.0, 0.5)", 2**0.5), ("mod(7, 4)", 3), ("mod(7.5, 2)", 1.5), ("floor(2.7)", 2), ("ceiling(2.1)", 3),
        ('popcount("0110_1")', 3), ("popcount(255)", 8), ('uint("1010")', 10), ('uint("1010" & "0110")', 2), ('uint(~"1010")', 5),
        ('uint(rotl("1000", 1))', 1), ('uint(rotr("0001", 1))', 8), ("int(2.9)", 2), ("int(-2.9)", -2), ("float(3) / 2", 1.5),
        ("int(true) + int(false)", 1), ("uint[4](bit[4](9))", 9), ("angle(1.5)", 1.5), ("float[64](bool(7))", 1.0),
        ("int[8](200 - 100)", 100), ("-(1 + 2) * 3", -9), ("- -3", 3), ("!true + 1", None), ("(1 < 2) + 0", 1),
    ],
)  # fmt: skip
def test_expressions(text, expected):
    if expected is None:
        assert angles(f"if (!true) rx(1) q; else rx({text}) q;") == [1]
    else:
        assert angles(f"rx({text}) q;") == [expected]


@pytest.mark.parametrize(
    "text, holds",
    [
        ("1 < 2", True), ("2 <= 1", False), ("1 == 1.0", True), ("1 != 1", False), ("true && false", False), ("true || false", True),
        ("!false", True), ("1", True), ("0.0", False), ('"01" == "01"', True), ('"01" != "10"', True), ("true == (2 > 1)", True),
        ("1 + 1 == 2 && 3 > 2 || false", True), ("bool(0)", False), ("n == 2", True), ("n > 2 || v < 1.5", True),
    ],
)  # fmt: skip
def test_conditions_that_are_known(text, holds):
    assert angles(f"int n = 2; float v = 1.25; if ({text}) rx(1) q; else rx(0) q;") == [int(holds)]


def test_variables():
    assert angles("int n = 3; n += 2; rx(n) q; n -= 1; rx(n) q; n *= 3; rx(n) q; n /= 5; rx(n) q; n %= 2; n **= 3; n <<= 4; n |= 1; rx(n) q;") == [
        5, 4, 12, 2, 1
    ]  # fmt: skip
    assert angles("float v; v = 1; v /= 2; rx(v) q; const float w = v * 2; rx(w) q; bool b = 2; if (b) rx(7) q;") == [0.5, 1.0, 7.0]
    assert angles("int n = 1; { int n = 2; rx(n) q; { n = 3; } rx(n) q; } rx(n) q;") == [2, 3, 1]
    assert angles("const bit[3] k = \"110\"; rx(uint(k)) q; int[4] m = -8; rx(m) q; uint[4] u = 15; rx(u[3] + u[0]) q;") == [6, -8, 2]
    assert angles("angle a = 3 * pi; rx(a) q; angle[20] b = pi / 4; rx(b) q;") == [3 * math.pi, math.pi / 4]


def test_loops():
    assert angles("for int i in [0:3] rx(i) q; for int i in [6:-2:1] { rx(i) q; }") == [0, 1, 2, 3, 6, 4, 2]
    assert angles("for float x in {0.5, 1, 2 * pi} rx(x) q;") == [0.5, 1, 2 * math.pi]
    assert angles("for int i in [3:1] rx(i) q;") == []
    assert angles("for uint[4] i in {3} { i = 5; rx(i) q; }") == [5]
    assert angles("for int i in [0:9] { if (i == 2) continue; if (i == 5) break; rx(i) q; }") == [0, 1, 3, 4]
    assert angles("int i = 0; while (i < 4) { i += 1; if (i == 2) { continue; } rx(i) q; if (i == 3) break; }") == [1, 3]
    assert angles("for int i in [1:2] { for int j in [i:3] { if (j == 3) break; rx(10 * i + j) q; } }") == [11, 12, 22]
    assert angles("for int i in [0:9] { rx(i) q; if (i == 1) { end; } } rx(100) q;") == [0, 1]
    assert angles("int sum = 0; for int i in {1, 5, 10} { sum += i; } rx(sum) q;") == [16]


def test_switch_on_what_is_known():
    for value, expected in ((1, 10), (5, 10), (2, 20), (7, 30)):
        assert angles(f"int i = {value}; const int A = 1; switch (i) {{ case A, 5 {{ rx(10) q; }} case A + 1 {{ rx(20) q; }} default {{ rx(30) q; }} }}") == [expected]
    assert angles("switch (3) { case 1 { rx(1) q; } }") == []


def test_loops_and_constants_in_gates():
    text = """
        const float third = pi / 3;
        gate ladder(a) x, y {
            for int k in [1:3] { rx(a / k) x; if (k == 2) { cx x, y; } }
            rz(third) y;
            delay[10ns] x;
            barrier x, y;
            gphase(a);
        }
        qubit[2] q;
        ladder(0.6) q[1], q[0];
    """
    assert [str(step) for step in read(text).basic_instructions()] == [
        "RX(0.6) 1", "RX(0.3) 1", "CNOT 1,0", "RX(0.2) 1", "RZ(1.0471975512) 0", "barrier 1,0", "diagonal[1]",
    ]  # fmt: skip


def test_parts_of_registers():
    assert steps("qubit[4] q; x q[1:-1]; y q[2:-1:0]; z q[{0, -1}]; h q[0:2:3][1]; let a = q[1:2] ++ q[0]; s a; t a[-1]; let b = a; sx b[0];") == [
        "X 1", "X 2", "X 3", "Y 2", "Y 1", "Y 0", "Z 0", "Z 3", "H 2", "S 1", "S 2", "S 0", "T 0", "sx 1",
    ]  # fmt: skip
    assert steps("qubit[2] q; qubit r; bit[3] c; let all = q ++ r; c = measure all; c[{2, 0}] = measure q; barrier; barrier all[1:2]; reset all;") == [
        "measure 0,1,2 -> 0,1,2", "measure 0,1 -> 2,0", "barrier 0,1,2", "barrier 1,2", "reset 0,1,2",
    ]  # fmt: skip
    assert steps("qubit[3] q; cx q[0], q[1:2]; cx q[0:1], q[1:2];") == ["CNOT 0,1", "CNOT 0,2", "CNOT 0,1", "CNOT 1,2"]


def test_nothing_happens_in_time():
    assert steps("qubit[2] q; delay[100ns] q; box[1us] { x q[0]; delay[2 * 10ns + 1dt]; } box { nop q; } delay[3.5µs] q[1];") == ["X 0"]


# --- What waits for measurements ---

CONDITIONS = {
    "c[0]": Condition((0,), 1),
    "!c[0]": Condition((0,), 0),
    "c[1] == 0": Condition((1,), 0),
    "c[1] == false": Condition((1,), 0),
    "c[1] != true": Condition((1,), 0),
    "c == 5": Condition((0, 1, 2), 5),
    '"101" == c': Condition((0, 1, 2), 5),
    "c != 5": Condition((0, 1, 2), 5, "!="),
    "6 > c": Condition((0, 1, 2), 6, "<"),
    "uint(c) >= 2": Condition((0, 1, 2), 2, ">="),
    "int(c) == 2": Condition((0, 1, 2), 2),
    "int[3](c) == -1": Condition((0, 1, 2), 7),
    "uint[8](c[0:1]) <= 2": Condition((0, 1), 2, "<="),
    "c[{2, 0}] == 1": Condition((2, 0), 1),
    "bool(c[2])": Condition((2,), 1),
    "d == 1": Condition((3,), 1),
    "c[0] && d": Condition((0,), 1) & Condition((3,), 1),
    "c[0] & !d": Condition((0,), 1) & Condition((3,), 0),
    "c == 1 || c == 2 || d": Condition((0, 1, 2), 1) | Condition((0, 1, 2), 2) | Condition((3,), 1),
    "c[0] ^ c[1]": Condition((0,), 1) ^ Condition((1,), 1),
    "!(c[0] && c[1])": CompoundCondition("not", (Condition((0,), 1) & Condition((1,), 1),)),
    "~c[0]": Condition((0,), 0),
    "c[0] == c[1]": ~(Condition((0,), 1) ^ Condition((1,), 1)),
    "c[0:1] != c[1:2]": ~(~(Condition((0,), 1) ^ Condition((1,), 1)) & ~(Condition((1,), 1) ^ Condition((2,), 1))),
    "(c == 1) == d": ~(Condition((0, 1, 2), 1) ^ Condition((3,), 1)),
    "true && c[0]": Condition((0,), 1),
    "c[0] || false": Condition((0,), 1),
    "c[0] ^ true": Condition((0,), 0),
    "n == 2 && c[n]": Condition((2,), 1),
}


@pytest.mark.parametrize("text", CONDITIONS)
def test_condition_on_bits(text):
    circuit = read(f"qubit q; bit[3] c; bit d; const int n = 2; if ({text}) {{ x q; }} if ({text}) x q;")
    assert circuit[0].detail == If(CONDITIONS[text], (Instruction("X", (0,)),))
    assert circuit[1] == Instruction("X", (0,), condition=CONDITIONS[text])


@pytest.mark.parametrize("text, kept", [("false && c", False), ("c || true", True), ("n > 2 && c", False), ("c && n < 2", False)])
def test_what_is_known_decides_at_once(text, kept):
    assert len(read(f"qubit q; bit c; int n = 2; if ({text}) x q;")) == int(kept)


def test_decisions_inside_each_other():
    circuit = read("""
        qubit[2] q; bit[2] c;
        if (c[0]) {
            h q[0];
            if (c[1]) x q[0]; else { y q[0]; z q[1]; }
            for int i in [0:1] { c[i] = measure q[i]; }
        } else if (c == 0) { reset q; }
        while (!c[0]) { h q[0]; c[0] = measure q[0]; }
    """)
    inner = If(Condition((1,), 1), (Instruction("X", (0,)),), (Instruction("Y", (0,)), Instruction("Z", (1,))))
    first = circuit[0].detail
    assert first.body[0] == Instruction("H", (0,)) and first.body[1].detail == inner
    assert [str(step) for step in first.body[2:]] == ["measure 0 -> 0", "measure 1 -> 1"]
    assert first.otherwise[0].detail == If(Condition((0, 1), 0), (Instruction("reset", (0, 1)),))
    assert circuit[1].detail == While(Condition((0,), 0), (Instruction("H", (0,)), Instruction("measure", (0,), clbits=(0,))))
    assert run(circuit, shots=10, seed=1).counts


def test_statements_without_braces_ask_by_themselves_where_that_is_the_same():
    one = Condition((0,), 1)
    assert list(read("qubit[2] q; bit c; if (c) h q;")) == [Instruction("H", (0,), condition=one), Instruction("H", (1,), condition=one)]
    assert read("qubit q; bit c; if (c) c = measure q;")[0].condition == one
    assert isinstance(read("qubit q; bit c; if (c) barrier q;")[0].detail, If)
    assert isinstance(read("qubit q; bit c; if (c) for int i in [0:1] { c = measure q; }")[0].detail, If)
    assert isinstance(read("qubit q; bit c; if (c) if (!c) x q;")[0].detail, If)


def test_switch_on_bits():
    circuit = read("qubit q; bit[2] c; switch (c) { case 0, 1 { x q; } case \"10\" { } default { y q; } } switch (int(c[0])) { case 1 { z q; } }")
    assert circuit[0].detail == Switch(
        (0, 1), (((0, 1), (Instruction("X", (0,)),)), ((2,), ())), (Instruction("Y", (0,)),)
    )
    assert circuit[1].detail == Switch((0,), (((1,), (Instruction("Z", (0,)),)),))


def test_a_phase_where_a_measurement_decides():
    circuit = read("qubit q; bit c; x q; c = measure q; if (c) { gphase(0.5); } if (c) gphase(0.25);")
    np.testing.assert_allclose(run(circuit, seed=1).state.array, [0, np.exp(0.75j)], rtol=0, atol=1e-15)


def test_bits_declared_in_braces_are_the_same_bits_each_time():
    circuit = read("qubit[3] q; bit b; for int i in [0:2] { bit b = measure q[i]; if (b) x q[0]; } bit[2] b_2;")
    assert [(register.name, register.size) for register in circuit.registers] == [("q", 3), ("b", 1), ("b_3", 1), ("b_2", 2)]
    assert [step.clbits for step in circuit if step.name == "measure"] == [(1,)] * 3


def test_bits_in_braces_leave_names_to_those_outside():
    circuit = read("qubit q; { bit b = measure q; } { bit b; b = measure q; } bit[2] b; b[1] = measure q;")
    assert [(register.name, register.start) for register in circuit.registers] == [("q", 0), ("b_2", 0), ("b_3", 1), ("b", 2)]
    assert [step.clbits for step in circuit] == [(0,), (1,), (3,)]
    assert len(read("{ bit b; }" * 10_000).registers) == 10_000


def test_a_while_loop_that_never_ends_once_begun_is_refused_when_it_runs():
    circuit = read("qubit q; bit c; x q; c = measure q; while (c) { c = measure q; }")
    with pytest.raises(RuntimeError, match="10000|10,000"):
        run(circuit, shots=1, seed=1)


def test_inputs():
    circuit = read("input float[64] theta; input angle phi; qubit q; rx(2 * theta + phi / 2 - 1) q; rz(sin(theta) ** 2) q; p(-phi) q;")
    assert circuit.parameters == ("theta", "phi")
    assert [step.params[0] for step in circuit.bind(theta=0.5, phi=0.25)] == [2 * 0.5 + 0.25 / 2 - 1, math.sin(0.5) ** 2, -0.25]
    long = "+".join(["theta"] * 5000)
    assert read(f"input float theta; qubit q; rx({long}) q;").bind(theta=1)[0].params == (5000.0,)
    assert read("input float a; qubit q; float b = a / 2; b += 1; rx(b) q;").bind(a=3)[0].params == (2.5,)


# --- Limits ---


def nested(n, text="x q;"):
    return "if (c) {" * n + text + "}" * n


def test_statements_are_nested_up_to_a_limit():
    assert read("qubit q; bit c; " + nested(50))[0].detail is not None
    for n in (51, 5000):
        with pytest.raises(QasmError, match="statements may be nested at most 50 deep"):
            read("qubit q; bit c; " + nested(n))
    with pytest.raises(QasmError, match="statements may be nested at most 50 deep"):
        read("{" * 100_000)


@pytest.mark.parametrize(
    "wrap, most", [("({})", 100), ("-({})", 100), ("sin({})", 100), ("1 + 2 * ({})", 50), ("1 ** {}", 100), ("float({})", 100)]
)
def test_expressions_are_nested_up_to_a_limit(wrap, most):
    def text(n):
        before, after = wrap.split("{}")
        return f"qubit q; const float v = {before * n}1{after * n};"

    assert read(text(most)).n_qubits == 1
    for n in (most + 2, 100_000):
        with pytest.raises(QasmError, match="an expression may be nested at most 100 deep"):
            read(text(n))


def test_definitions_are_nested_up_to_a_limit():
    gates = "".join(f"gate g{i} a {{ g{i - 1} a; }}\n" for i in range(1, 101))
    with pytest.raises(QasmError, match="definitions must be nested at most 100 deep, 'g100' would be deeper") as caught:
        read("gate g0 a { x a; }\n" + gates)
    assert caught.value.line == 103


def test_limit_of_instructions():
    text = HEADER + "qubit[10] q; for int i in [1:10] { h q; }"
    assert len(Circuit.from_qasm3(text, most_instructions=110)) == 100
    with pytest.raises(QasmError, match="more than 109 instructions"):
        Circuit.from_qasm3(text, most_instructions=109)
    with pytest.raises(ValueError, match="most_instructions must be"):
        Circuit.from_qasm3(text, most_instructions=-1)


def test_state_of_a_program_with_everything():
    circuit = read("""
        input float theta;
        gate pair(a) x, y { ry(a) x; ctrl @ pow(2) @ sx x, y; }
        qubit[3] q; bit[2] c;
        pair(theta) q[0], q[1];
        for int i in [0:1] { negctrl @ rx(theta / (i + 1)) q[i], q[i + 1]; }
        gphase(theta);
        c[0] = measure q[0];
        if (c[0]) { x q[0]; }
    """).bind(theta=0.5)
    direct = StateVector(3).ry(0.5, 0).cx(0, 1).x(0).rx(0.5, 1, 0).x(0).x(1).rx(0.25, 2, 1).x(1)
    counts = run(circuit, shots=4000, seed=1).counts
    assert abs(counts["10"] / 4000 - direct.probability(1, 0)) < 0.03
