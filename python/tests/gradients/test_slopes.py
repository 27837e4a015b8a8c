"""Derivatives of expressions."""

import math

import pytest

from velacamplix import Parameter
from velacamplix.instructions.slopes import is_linear, slopes

X, Y = Parameter("x"), Parameter("y")
EXPRESSIONS = {
    "sum": X + Y - 2 + X,
    "difference": 3 - X,
    "product": X * Y * X * 2,
    "quotient": (X + 1) / (Y * X),
    "power": (X + Y) ** 3,
    "negative power": X**-2,
    "exponent": 2**X,
    "both": X**Y,
    "negative": -(X * Y),
    "sin": (X * Y).sin(),
    "cos": (X / Y).cos(),
    "tan": (X - Y).tan(),
    "exp": (X * Y).exp(),
    "log": (X + Y).log(),
    "sqrt": (X * Y).sqrt(),
    "asin": (X * Y / 4).arcsin(),
    "acos": (X * Y / 4).arccos(),
    "atan": (X * Y).arctan(),
    "nested": ((X.sin() + Y) * X.exp()).sqrt() / (1 + X * X),
}


@pytest.mark.parametrize("name", EXPRESSIONS)
def test_slopes_are_those_of_differences(name):
    expression = EXPRESSIONS[name]
    values = {"x": 0.7, "y": 1.3}
    step = 1e-4
    got = slopes(expression, values)
    assert set(got) == set(expression.parameters)
    for word, slope in got.items():
        up, down = dict(values), dict(values)
        up[word] += step
        down[word] -= step
        expected = (expression.evaluate(up) - expression.evaluate(down)) / (2 * step)
        assert slope == pytest.approx(expected, rel=1e-6)


def test_parts_that_are_used_twice_count_twice():
    part = X * X
    assert slopes(part + part * part, {"x": 2.0}) == {"x": 4.0 + 2 * 4.0 * 4.0}


def test_zeros_have_slopes_where_there_are_any():
    assert slopes(X * Y, {"x": 0.0, "y": 0.0}) == {"x": 0.0, "y": 0.0}
    assert slopes(X * Y, {"x": 0.0, "y": 3.0}) == {"x": 3.0, "y": 0.0}
    assert slopes(X**2, {"x": 0.0}) == {"x": 0.0}
    assert slopes(X**1, {"x": 0.0}) == {"x": 1.0}
    assert slopes(X**0, {"x": 0.0}) == {"x": 0.0}
    assert slopes(X**2, {"x": -3.0}) == {"x": -6.0}


@pytest.mark.parametrize(
    ("expression", "at"),
    [(X.sqrt(), 0.0), (X.arcsin(), 1.0), (X.arccos(), -1.0), (X**0.5, 0.0), ((-2.0) ** X, 2.0)],
)
def test_what_has_no_finite_slope_is_refused(expression, at):
    with pytest.raises(ValueError, match="no finite derivative by x"):
        slopes(expression, {"x": at})


def test_linear_ones_are_told():
    for expression in (X, 2 * X, X / 3 + Y - 1, -(X * 2.5), 3 - X):
        assert is_linear(expression)
        assert slopes(expression, {"x": 0.0, "y": 0.0}) == slopes(expression, {"x": 5.0, "y": -1.0})
    for expression in (X * Y, 2 / X, X**2, X.sin(), 2 * X * X):
        assert not is_linear(expression)


def test_a_function_of_no_parameter_at_all_has_no_slope_by_others():
    assert slopes(X + 0 * Y, {"x": 1.0, "y": 2.0}) == {"x": 1.0, "y": 0.0}
    assert math.isclose(slopes(X.exp(), {"x": 1.0})["x"], math.e)
