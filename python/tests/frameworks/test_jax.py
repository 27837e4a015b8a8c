"""Expectation values in JAX: what `grad` gives is the circuit's own gradient, compiled or not."""

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, Parameter

jax = pytest.importorskip("jax", reason="JAX is not installed: pip install jax")

from velacamplix.jax import expectation  # noqa: E402

LIST = ["Z0", "Z1 Z2 + 0.5*X1", "Y2 - 1"]
CIRCUIT = Circuit(3)
for layer in range(2):
    for qubit in range(3):
        CIRCUIT.ry(Parameter(f"a{layer}_{qubit}"), qubit).rz(2 * Parameter(f"b{layer}_{qubit}"), qubit)
    CIRCUIT.cx(0, 1).cx(1, 2)
VALUES = np.random.default_rng(1).uniform(-2, 2, 12)
ROWS = np.random.default_rng(2).uniform(-2, 2, (4, 12))


@pytest.fixture(autouse=True)
def double():
    before = jax.config.jax_enable_x64
    jax.config.update("jax_enable_x64", True)
    yield
    jax.config.update("jax_enable_x64", before)


def one(values):
    return expectation(CIRCUIT, "Z0 + X1 Y2", values)


def several(values):
    return expectation(CIRCUIT, LIST, values)


@pytest.mark.parametrize("compiled", [lambda function: function, jax.jit])
def test_values_and_derivatives_are_the_circuits_own(compiled):
    value, slopes = compiled(jax.value_and_grad(one))(VALUES)
    expected = CIRCUIT.value_and_gradient("Z0 + X1 Y2", VALUES)
    assert value == expected.value and np.array_equal(slopes, expected.gradient)
    assert compiled(one)(VALUES) == value
    found, pull_back = jax.vjp(compiled(several), jax.numpy.array(VALUES))
    assert found.tolist() == [CIRCUIT.value_and_gradient(item, VALUES).value for item in LIST]
    weights = jax.numpy.array([0.3, -2.0, 1.0])
    assert np.array_equal(pull_back(weights)[0], CIRCUIT.vjp(LIST, VALUES, weights.tolist()))
    assert np.asarray(compiled(jax.jacrev(several))(VALUES)) == pytest.approx(CIRCUIT.jacobian(LIST, VALUES), abs=1e-14)


@pytest.mark.parametrize("compiled", [lambda function: function, jax.jit])
def test_batches_and_vmap_give_every_row_its_own(compiled):
    for function, observables in ((one, "Z0 + X1 Y2"), (several, LIST)):
        expected = [function(row).tolist() for row in ROWS]
        assert compiled(function)(ROWS).tolist() == expected
        assert compiled(jax.vmap(function))(ROWS).tolist() == expected
        nested = compiled(jax.vmap(jax.vmap(function)))(ROWS.reshape(2, 2, 12))
        assert nested.reshape(np.shape(expected)).tolist() == expected
    slopes = compiled(jax.vmap(jax.grad(one)))(ROWS)
    assert np.array_equal(slopes, [CIRCUIT.gradient("Z0 + X1 Y2", row) for row in ROWS])
    total = compiled(jax.grad(lambda rows: several(rows).sum()))(ROWS)
    assert np.array_equal(total, [CIRCUIT.vjp(LIST, row, [1.0] * 3) for row in ROWS])
    assert several(ROWS[:0]).shape == (0, 3)


def test_a_chain_of_functions_is_differentiated_through():
    circuit = Circuit(1).ry(Parameter("a"), 0)
    slope = jax.jit(jax.grad(lambda x: 3 * expectation(circuit, "Z0", jax.numpy.stack([x * x])) ** 2))
    assert slope(0.4) == pytest.approx(-6 * np.cos(0.16) * np.sin(0.16) * 0.8, abs=1e-12)


def test_loops_of_jax_may_hold_it():
    def step(_, values):
        return values - 0.2 * jax.grad(one)(values)

    expected = VALUES
    for _ in range(10):
        expected = expected - 0.2 * CIRCUIT.gradient("Z0 + X1 Y2", expected)
    assert jax.lax.fori_loop(0, 10, step, jax.numpy.array(VALUES)) == pytest.approx(expected, abs=1e-12)


def test_dtypes_are_kept_and_others_refused():
    for function in (one, several):
        single = jax.jit(function)(VALUES.astype(np.float32))
        assert single.dtype == np.float32
        assert np.asarray(single) == pytest.approx(np.asarray(function(VALUES)), abs=1e-5)
    assert jax.grad(one)(VALUES.astype(np.float32)).dtype == np.float32
    assert expectation(CIRCUIT, "Z0", VALUES, precision="single").dtype == np.float64
    jax.config.update("jax_enable_x64", False)
    assert one(VALUES).dtype == np.float32
    for wrong in (np.zeros(12, np.int32), np.zeros(12, np.complex64), np.zeros(12, np.float16)):
        with refused(TypeError, "values", "float32 or float64", str(wrong.dtype)):
            one(wrong)


def test_wrong_arguments_are_refused():
    for shape in ((), (11,), (12, 1)):
        for function in (one, jax.jit(one)):
            with refused(ValueError, "values", "12 parameter(s)", str(shape)):
                function(np.zeros(shape))
    with refused(ValueError, "method", "finite-shots"):
        expectation(CIRCUIT, "Z0", VALUES, method="finite-shots", shots=10)
    with pytest.raises(Exception, match="finite"):
        jax.jit(one)(VALUES * np.nan).block_until_ready()


@pytest.mark.parametrize("function", [one, lambda values: several(values).sum()])
def test_second_derivatives_and_forward_mode_are_refused(function):
    for compiled in (lambda function: function, jax.jit):
        with refused(NotImplementedError, "no second derivatives"):
            compiled(jax.grad(lambda values: jax.grad(function)(values).sum()))(VALUES)
    with pytest.raises(TypeError, match="forward-mode"):
        jax.jacfwd(function)(VALUES)


def test_a_compiled_function_keeps_the_circuit_that_it_was_made_of():
    circuit = CIRCUIT.copy()
    compiled = jax.jit(lambda values: expectation(circuit, "Z0", values))
    expected = compiled(VALUES)
    circuit.x(0)
    assert compiled(VALUES) == expected
