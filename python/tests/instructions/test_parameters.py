"""Named parameters: what is calculated with them, and circuits that get their numbers later."""

import contextlib
import copy
import math
import pickle
import random

import numpy as np
import pytest
import small_stacks
from hypothesis import given
from hypothesis import strategies as st

from velacamplix import Circuit, Expression, GateDefinition, Instruction, Parameter, StateVector

A, B = Parameter("a"), Parameter("b")
VALUES = {"a": 0.75, "b": -2.5}


# --- Calculating ---

CALCULATED = {
    "a + b": (A + B, 0.75 - 2.5),
    "a - (b - 1)": (A - (B - 1), 0.75 - (-2.5 - 1)),
    "a - b - 1": (A - B - 1, 0.75 + 2.5 - 1),
    "2*a": (2 * A, 1.5),
    "a*2": (A * 2, 1.5),
    "a/(b/2)": (A / (B / 2), 0.75 / -1.25),
    "1/a": (1 / A, 1 / 0.75),
    "3 - a": (3 - A, 2.25),
    "3 + a": (3 + A, 3.75),
    "-a": (-A, -0.75),
    "-(a + b)": (-(A + B), 1.75),
    "-a*b": (-A * B, 0.75 * 2.5),
    "a^2": (A**2, 0.5625),
    "-a^2": (-(A**2), -0.5625),
    "(-a)^2": ((-A) ** 2, 0.5625),
    "2^a": (2**A, 2**0.75),
    "a*(-2)": (A * -2, -1.5),
    "sin(a) + cos(b)": (A.sin() + np.cos(B), math.sin(0.75) + math.cos(-2.5)),
    "tan(a)*exp(b)": (np.tan(A) * np.exp(B), math.tan(0.75) * math.exp(-2.5)),
    "ln(a)/sqrt(a)": (np.log(A) / np.sqrt(A), math.log(0.75) / math.sqrt(0.75)),
}


@pytest.mark.parametrize("text", CALCULATED)
def test_expression_has_its_text_and_value(text):
    expression, value = CALCULATED[text]
    assert isinstance(expression, Expression)
    assert repr(expression) == text
    assert expression.evaluate(VALUES) == value
    assert expression.substitute(VALUES) == value


@pytest.mark.parametrize("number", [2, 2.0, np.float64(2), np.float32(2), np.int64(2), np.int8(2), np.array(2.0)], ids=lambda n: type(n).__name__)
def test_numbers_of_every_type_stand_on_both_sides(number):
    for expression in (number * A, A * number, number + A, A - number, number / A):
        assert isinstance(expression, Expression), type(expression)
        assert all(type(item) is float or isinstance(item, Expression) for item in expression.operands)


def test_arrays_calculate_element_by_element():
    row = np.array([1.0, 2.0]) * A
    assert [item.evaluate(VALUES) for item in row] == [0.75, 1.5]


def test_two_parameters_of_one_name_are_one():
    assert Parameter("a") == A and hash(Parameter("a")) == hash(A)
    assert Parameter("a") != B and A != "a" and A + 1 != A
    assert (A + Parameter("a")).parameters == ("a",)


def test_equality_is_by_structure():
    assert A * 2 + B == Parameter("a") * 2.0 + Parameter("b")
    assert hash(A * 2 + B) == hash(Parameter("a") * 2.0 + Parameter("b"))
    for other in (B * 2 + A, A * 2 - B, A * 3 + B, A * 2, A + B * 2):
        assert A * 2 + B != other
    shared = A + 1
    assert shared * shared == (A + 1) * (A + 1)


def test_sign_twice_is_no_sign():
    assert -(-A) is A
    twice = A + 1
    assert -(-twice) is twice


def test_parameters_in_order_of_appearance():
    assert (B * A + B - Parameter("c")).parameters == ("b", "a", "c")


def test_partial_substitution_keeps_the_rest():
    assert (A * B + 1).substitute({"a": 2.0}) == 2.0 * B + 1
    assert repr((A * B + 1).substitute({"a": 2.0})) == "2*b + 1"
    assert repr((A + A - 1 + B - A).substitute({"a": 2.0})) == "3 + b - 2"


@pytest.mark.parametrize(
    "expression, values, message",
    [
        (2 * (1 / A), {"a": 0.0}, "division by zero in 1/a$"),
        (A * A, {"a": 1e300}, r"number too large in a\*a$"),
        (A.exp(), {"a": 1000.0}, "number too large"),
        (A.log(), {"a": -1.0}, "ln of -1 is not a real number"),
        (A.sqrt(), {"a": -1.0}, "sqrt of -1 is not a real number"),
        (A**0.5, {"a": -1.0}, "not a real number"),
        (A + B, {"a": 1.0}, "parameter 'b' has no value"),
    ],
)
def test_no_finite_value_is_an_error(expression, values, message):
    with pytest.raises(ValueError, match=message):
        expression.evaluate(values)


@pytest.mark.parametrize("wrong", [None, 1.0, "a", ["a"], [("a", 1.0)], range(10**12)], ids=repr)
def test_values_are_a_mapping(wrong):
    for ask in ((A + B).evaluate, (A + B).substitute):
        with pytest.raises(TypeError, match="values must be a mapping from names of parameters to numbers, got"):
            ask(wrong)


@pytest.mark.parametrize("wrong", ["x", None, 1j, [1], np.array([True, False]).tolist()], ids=repr)
def test_only_real_numbers_can_be_calculated_with(wrong):
    with pytest.raises(TypeError):
        A + wrong
    with pytest.raises(TypeError):
        wrong * A


@pytest.mark.parametrize("wrong", [math.nan, math.inf, -math.inf, 10**400])
def test_only_finite_numbers_can_be_calculated_with(wrong):
    with pytest.raises(ValueError, match="operand of a parameter"):
        A * wrong


@pytest.mark.parametrize("wrong, kind", [(1, TypeError), (None, TypeError), (b"a", TypeError), ("", ValueError)])
def test_wrong_names(wrong, kind):
    with pytest.raises(kind, match="name of a parameter"):
        Parameter(wrong)


def test_copies_and_pickles():
    expression = A * 2 - (B + A * 2).sin()
    assert copy.deepcopy(expression) is expression
    assert pickle.loads(pickle.dumps(expression)) == expression
    assert pickle.loads(pickle.dumps(A)) == A


def test_sums_and_products_of_any_length_are_flat():
    names = [f"p{i}" for i in range(2000)]
    values = {name: 1 + i / 7 for i, name in enumerate(names)}
    total = Parameter("p0")
    for name in names[1:]:
        total = total + Parameter(name) if len(name) % 2 else total - Parameter(name)
    expected = values["p0"]
    for name in names[1:]:
        expected = expected + values[name] if len(name) % 2 else expected - values[name]
    assert total.depth <= 2 and len(total.operands) == 2000
    assert total.evaluate(values) == expected == total.substitute(values)
    assert pickle.loads(pickle.dumps(total)) == total and copy.deepcopy(total) == total
    assert repr(total).startswith("p0 - p1 - p2") and repr(total).endswith(" + p1998 + p1999")
    circuit = Circuit(1).rx(total, 0)
    assert [circuit.bind(values)[0].params for _ in range(3)] == [(expected,)] * 3
    assert sum(map(Parameter, names[:300])).evaluate(values) == sum([values[name] for name in names[:300]])
    product = A
    for _ in range(300):
        product = product * A
    assert product.depth == 1 and product.evaluate({"a": 1.5}) == math.prod([1.5] * 301)


def test_flat_sums_and_products_are_calculated_from_the_left():
    c = Parameter("c")
    values = {"a": 1e16, "b": 1.0, "c": 1.0}
    assert (A + B + c).evaluate(values) == (1e16 + 1.0) + 1.0 != 1e16 + (1.0 + 1.0) == (A + (B + c)).evaluate(values)
    assert (A + B + c).operands == (A, B, c) and (A + (B + c)).operands == (A, B + c)
    assert (A - B - c).operands == (A, -B, -c) and (A * B * c).operands == (A, B, c) and (A * (B * c)).operands == (A, B * c)
    assert repr(A - (B - c) - 2) == "a - (b - c) - 2" and repr(A * (B * c) / 2 / B) == "a*(b*c)/2/b"


def nested(depth):
    expression = A
    for _ in range(depth // 2):
        expression = 2 / expression.sin()
    return expression


@pytest.mark.parametrize("where", small_stacks.WHERE)
def test_expressions_nested_to_the_limit_work_everywhere(where):
    def work():
        deep, other = nested(100), nested(100)
        assert deep.depth == 100 and deep == other and hash(deep) == hash(other) and deep != nested(98)
        assert deep.parameters == ("a",) and copy.deepcopy(deep) is deep is copy.copy(deep)
        for dump in (pickle.dumps, pickle._dumps):
            for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
                assert pickle.loads(dump(deep, protocol)) == deep
        assert repr(deep).startswith("2/sin(2/sin(") and f"{deep:.3f}".endswith("))")
        circuit = Circuit(1).rx(deep, 0).gate(GateDefinition("deep", Circuit(1).rx(deep, 0)), 0, [0.5])
        assert pickle.loads(pickle.dumps(circuit)) == circuit
        results = [circuit.bind(a=0.5)[0].params[0] for _ in range(3)]
        assert Circuit.from_qasm(circuit.bind(a=0.5).to_qasm()) == circuit.bind(a=0.5)
        return [*results, deep.evaluate({"a": 0.5}), deep.substitute({"a": 0.5})]

    expected = 0.5
    for _ in range(50):
        expected = 2 / math.sin(expected)
    assert where(work) == [expected] * 5


@pytest.mark.parametrize(
    "further", [lambda x: x.sin(), lambda x: -x, lambda x: 1 + x, lambda x: A - x, lambda x: x / 2, lambda x: x**2, lambda x: 2 * x]
)
def test_an_operation_beyond_the_limit_is_refused(further):
    assert further(nested(98)).depth > 98
    with pytest.raises(ValueError, match="nested at most 100 deep: total . x stays flat where x . total nests, and a Parameter"):
        further(nested(100))


def test_shared_parts_are_done_once():
    shared = other = A  # 2**100 terms, 100 operations
    for _ in range(100):
        shared, other = shared * shared, other * other
    assert shared.evaluate({"a": 1.0}) == 1.0
    assert shared == other != other.operands[-1]
    assert pickle.loads(pickle.dumps(shared)) == shared
    assert repr(shared) == "<expression of 101 operations>" and len(shared.parts()) == 101


numbers = st.floats(-4, 4).map(lambda x: round(x, 3))


@given(st.recursive(st.sampled_from([A, B]) | numbers, lambda inner: st.tuples(st.sampled_from("+-*"), inner, inner)), numbers, numbers)
def test_expression_calculates_what_python_does(tree, a, b):
    def build(node, leaf):
        if not isinstance(node, tuple):
            return leaf(node)
        left, right = build(node[1], leaf), build(node[2], leaf)
        return left + right if node[0] == "+" else left - right if node[0] == "-" else left * right

    known = {"a": a, "b": b}
    expected = build(tree, lambda node: known[node.name] if isinstance(node, Parameter) else node)
    built = build(tree, lambda node: node)
    if isinstance(built, Expression):
        assert built.evaluate(known) == expected
        # What it is written as means the same.
        assert eval(repr(built).replace("^", "**"), {}, known) == pytest.approx(expected, rel=1e-9, abs=1e-9)


# --- Circuits ---


def layered():
    circuit = Circuit(3).h(0).rx(A, 0).crz(2 * A, 0, 1).rzz(B, 1, 2).u3(A, B, A + B, 2).rx(0.5, 1)
    return circuit.gate(GateDefinition("turn", Circuit(2).ry(Parameter("t") / 2, 0).cx(0, 1)), [2, 0], [B - A])


def direct(a, b):
    circuit = Circuit(3).h(0).rx(a, 0).crz(2 * a, 0, 1).rzz(b, 1, 2).u3(a, b, a + b, 2).rx(0.5, 1)
    return circuit.gate(GateDefinition("turn", Circuit(2).ry(Parameter("t") / 2, 0).cx(0, 1)), [2, 0], [b - a])


def test_parameters_are_listed_in_order():
    assert layered().parameters == ("a", "b")
    assert Circuit(1).rx(B, 0).rx(A, 0).parameters == ("b", "a")
    assert Circuit(1).rx(1, 0).parameters == ()


def test_parameters_follow_later_additions():
    circuit = Circuit(1)
    assert circuit.parameters == ()
    assert circuit.rx(A, 0).parameters == ("a",)
    assert circuit.append(Instruction("RY", (0,), (B,))).parameters == ("a", "b")


@pytest.mark.parametrize(
    "bind",
    [
        lambda c: c.bind({"a": 0.25, "b": -1.5}),
        lambda c: c.bind({A: 0.25, B: -1.5}),
        lambda c: c.bind(a=0.25, b=-1.5),
        lambda c: c.bind({"a": 0.25}, b=-1.5),
        lambda c: c.bind([0.25, -1.5]),
        lambda c: c.bind(np.array([0.25, -1.5], np.float32)),
        lambda c: c.bind(iter((0.25, -1.5))),
        lambda c: c.bind(a=0.25).bind(b=-1.5),
        lambda c: c.bind(b=-1.5).bind({"a": 0.25}),
        lambda c: pickle.loads(pickle.dumps(c)).bind([0.25, -1.5]),
        lambda c: pickle.loads(pickle.dumps(c.bind([0.25, -1.5]))),
        lambda c: copy.deepcopy(c.bind([0.25, -1.5])),
    ],
)
def test_bound_circuit_is_the_one_with_numbers(bind):
    circuit = layered()
    bound = bind(circuit)
    assert bound == direct(0.25, -1.5)
    assert bound.parameters == ()
    assert circuit.parameters == ("a", "b"), "the template stays as it is"


def test_partly_bound():
    half = layered().bind(a=0.5)
    assert half.parameters == ("b",)
    assert half[1].params == (0.5,) and half[3].params == (B,)


def test_bind_nothing_is_a_copy():
    circuit = direct(1, 2)
    for same in (circuit.bind(), circuit.bind({}), circuit.bind([])):
        assert same == circuit and same is not circuit


def test_circuits_of_one_template_share_it():
    circuit = layered()
    first, second = circuit.bind([1, 2]), circuit.bind([3, 4])
    assert first._template is second._template is not None
    assert [circuit[at].params != first[at].params for at in range(len(circuit))] == [
        at in first._template.dependent for at in range(len(circuit))
    ]
    assert list(second._template_params) == [second[at].params for at in second._template.dependent]


def test_the_link_ends_where_a_circuit_changes():
    circuit = layered()
    first = circuit.bind([1, 2])
    circuit.x(0)
    second = circuit.bind([1, 2])
    assert second == first.copy().x(0)
    assert first._template is not second._template
    first.x(0)
    assert first._template is None and first == second


def test_bound_states_are_those_of_the_direct_circuit():
    circuit = layered()
    for a, b in [(0.0, 0.0), (0.5, -1.5), (3.0, 7.0)]:
        mine = StateVector(3).run(circuit.bind([a, b])).array
        assert np.array_equal(mine, StateVector(3).run(direct(a, b)).array)


@pytest.mark.parametrize(
    "arguments, named, kind, message",
    [
        ([{"c": 1}], {}, ValueError, r"one of \['a', 'b'\]; got 'c'"),
        ([], {"theta": 1}, ValueError, "got 'theta'"),
        ([{"a": 1}], {"a": 1}, ValueError, "'a' twice"),
        ([[1]], {}, ValueError, "must hold 2 numbers.*got 1"),
        ([[1, 2, 3]], {}, ValueError, "must hold 2 numbers.*got 3"),
        ([[1, 2]], {"a": 1}, ValueError, "'a' twice"),
        ([0.5], {}, TypeError, "values must be a sequence of numbers"),
        (["ab"], {}, TypeError, "values must be a sequence of numbers"),
        ([{0: 1}], {}, TypeError, "names or parameters as keys, got 0"),
        ([], {"a": math.nan}, ValueError, "value of 'a' must be finite, got nan"),
        ([], {"b": math.inf}, ValueError, "value of 'b' must be finite, got inf"),
        ([], {"b": 1j}, TypeError, "value of 'b' must be a real number"),
        ([], {"b": True}, TypeError, "value of 'b' must be a real number"),
        ([], {"b": "1"}, TypeError, "value of 'b' must be a real number"),
        ([], {"a": 1, "b": Parameter("x")}, TypeError, "value of 'b' must be a real number"),
    ],
)
def test_wrong_values_are_refused(arguments, named, kind, message):
    circuit = layered()
    with pytest.raises(kind, match=message):
        circuit.bind(*arguments, **named)
    assert circuit == layered()


def test_values_without_a_finite_angle_are_refused():
    with pytest.raises(ValueError, match="division by zero"):
        Circuit(1).rx(1 / A, 0).bind(a=0)
    with pytest.raises(ValueError, match="number too large"):
        Circuit(1).rx(A * 10, 0).bind(a=1e308)
    with pytest.raises(ValueError, match="number too large"):
        Circuit(1).rx(A * 10 + 1, 0).bind(a=1e308)
    with pytest.raises(ValueError, match="division by zero"):
        Circuit(2).rx(1 / A, 0).ry(B, 0).bind(a=0)


@pytest.mark.parametrize("use", [lambda c: list(c.basic_instructions()), lambda c: StateVector(3).run(c), lambda c: c.to_qasm()])
def test_open_parameters_are_named(use):
    with pytest.raises(ValueError, match="parameters must have values, give them with bind.*'a', 'b'"):
        use(layered())


def test_every_gate_with_an_angle_takes_an_expression():
    for method, n_angles, n_qubits in [
        ("rx", 1, 1), ("ry", 1, 1), ("rz", 1, 1), ("ph", 1, 1), ("p", 1, 1), ("u1", 1, 1), ("u2", 2, 1), ("u", 3, 1), ("u3", 3, 1),
        ("rxx", 1, 2), ("ryy", 1, 2), ("rzz", 1, 2), ("crx", 1, 2), ("cry", 1, 2), ("crz", 1, 2), ("cp", 1, 2), ("cu1", 1, 2),
        ("cu3", 3, 2), ("cu", 4, 2),
    ]:  # fmt: skip
        angles, numbers = [A, A + B, 2 * A, -B][:n_angles], [0.5, 0.75, 1.0, -0.25][:n_angles]
        open_circuit = getattr(Circuit(3), method)(*angles, *range(n_qubits), controls=2)
        closed = getattr(Circuit(3), method)(*numbers, *range(n_qubits), controls=2)
        assert open_circuit.bind([0.5, 0.25][: len(open_circuit.parameters)]) == closed, method


def test_a_state_needs_numbers():
    with pytest.raises(TypeError, match="angle must be a real number"):
        StateVector(1).rx(A, 0)


def test_inverse_of_an_open_circuit():
    circuit = Circuit(2).rx(A, 0).u3(A, B, A - B, 1).cu(A, B, A, B, 0, 1)
    assert circuit.inverse().bind([0.3, 0.4]) == circuit.bind([0.3, 0.4]).inverse()
    assert circuit.inverse().inverse() == circuit


@pytest.mark.parametrize(
    ("values", "message"),
    [
        ([1], "values must hold 3 numbers, one for each parameter, got 1: 'b', 'c' would have none$"),
        ([], "got 0: 'a', 'b', 'c' would have none"),
        ([1, 2, 3, 4], r"got 4: the parameters are \['a', 'b', 'c'\]"),
    ],
)
def test_a_wrong_number_of_values_names_the_parameters(values, message):
    circuit = Circuit(1).rx(Parameter("a"), 0).ry(Parameter("b"), 0).rz(Parameter("c"), 0)
    with pytest.raises(ValueError, match=message):
        circuit.bind(values)


def test_many_missing_values_are_not_all_named():
    circuit = Circuit(1)
    for i in range(1000):
        circuit.rx(Parameter(f"p{i}"), 0)
    with pytest.raises(ValueError, match=r"got 1: 'p1', 'p2', .*\.\.\. would have none") as caught:
        circuit.bind([0])
    assert len(str(caught.value)) < 400


def test_format_takes_its_parameter_by_the_usual_name():
    assert Parameter("a").__format__(format_spec="") == "a" and f"{0.25 * Parameter('a'):.3f}" == "0.250*a"


# --- Binding again and again: the compiled function and `evaluate` say the same ---


def bound_twice(circuit, values):
    """The angles of the second and of the third binding, after one with other values."""
    with contextlib.suppress(ValueError):
        circuit.bind([0.5] * len(circuit.parameters))
    found = []
    for _ in range(2):
        try:
            found.append([step.params for step in circuit.bind(values)])
        except ValueError as error:
            found.append(str(error))
    assert found[0] == found[1]
    return found[0]


@pytest.mark.parametrize("seed", range(40))
def test_angles_of_bound_circuits_are_those_of_evaluate(seed):
    rng = random.Random(seed)
    names = [f"a{k}" for k in range(4)]
    values = [rng.choice([0.25, -3.5, 1e200, 1e-200, 0.0, -0.0, 7.0, -1.0, rng.uniform(-2, 2)]) for _ in names]

    def grown(depth):
        if not depth or rng.random() < 0.2:
            return rng.choice([Parameter(rng.choice(names)), rng.choice([2.0, -0.5, 1e150, 0.0, 3.0])])
        kind = rng.choice(["+", "*", "/", "^", "neg", "sin", "exp", "ln", "sqrt", "atan"])
        operands = [grown(depth - 1) for _ in range(rng.randint(2, 4) if kind in "+*" else 2 if kind in "/^" else 1)]
        return Expression(kind, tuple(operands))

    circuit = Circuit(1)
    for name in names:
        circuit.rx(Parameter(name), 0)
    expressions = [Expression("+", (grown(4), Parameter(names[0]))) for _ in range(12)]
    for expression in expressions:
        one = Circuit(1).rx(expression, 0)
        known = dict(zip(names, values))
        try:
            expected = [(expression.evaluate(known),)]
        except ValueError as error:
            expected = str(error)
        found = bound_twice(one, [known[name] for name in one.parameters])
        assert found == expected
        if not isinstance(found, str):
            assert math.copysign(1, found[0][0]) == math.copysign(1, expected[0][0])


def test_an_infinite_part_is_never_hidden():
    a, b = Parameter("a"), Parameter("b")
    for expression in (1 / (a * b), (-(a * b)).exp(), (a * b).arctan(), (a * b) ** -1.0, 0 * (a * b), a * b - a * b):
        assert bound_twice(Circuit(1).rx(expression, 0), [1e200, 1e200]) == "number too large in a*b"


def test_shared_parts_do_not_multiply():
    total = Parameter("a")
    for _ in range(100):
        total = total + total
    circuit = Circuit(1).rx(total, 0)
    assert bound_twice(circuit, [1.0]) == [(total.evaluate({"a": 1.0}),)]


@pytest.mark.parametrize(
    "give",
    [
        lambda c, v: c.bind(v), lambda c, v: c.bind(tuple(v)), lambda c, v: c.bind(np.array(v)),
        lambda c, v: c.bind(np.array(v, dtype=object)), lambda c, v: c.bind(dict(zip(c.parameters, v))),
        lambda c, v: c.bind(**dict(zip(c.parameters, v))), lambda c, v: c.bind([np.float64(x) for x in v]),
        lambda c, v: c.bind({"b": v[1]}, a=v[0]),
    ],
)  # fmt: skip
def test_values_in_all_forms(give):
    a, b = Parameter("a"), Parameter("b")
    circuit = Circuit(2).rx(a, 0).ry(a - 2 * b, 1).rz(0.5, 0)
    for _ in range(3):
        bound = give(circuit, [0.5, 0.125])
        assert [step.params for step in bound] == [(0.5,), (0.25,), (0.5,)]
        assert all(type(step.params[0]) is float for step in bound) and not bound.parameters
    for wrong in ([0.5, math.nan], [0.5, math.inf], [1e308, -math.inf]):
        with pytest.raises(ValueError, match="must be finite"):
            give(circuit, wrong)


def test_values_whose_sum_is_too_large_are_values():
    a, b = Parameter("a"), Parameter("b")
    circuit = Circuit(1).rx(a, 0).rx(b, 0)
    for _ in range(3):
        assert [step.params for step in circuit.bind([1.7e308, 1.7e308])] == [(1.7e308,), (1.7e308,)]
