"""Expectation values in PyTorch: what `backward` gives is the circuit's own gradient."""

import copy

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, Parameter, ParameterVector

torch = pytest.importorskip("torch", reason="PyTorch is not installed; its wheels are too large to fetch for tests")

from velacamplix.torch import Expectation, expectation  # noqa: E402

LIST = ["Z0", "Z1 Z2 + 0.5*X1", "Y2 - 1"]


def ansatz(n=3, layers=2):
    circuit = Circuit(n)
    for layer in range(layers):
        for qubit in range(n):
            circuit.ry(Parameter(f"a{layer}_{qubit}"), qubit).rz(2 * Parameter(f"b{layer}_{qubit}"), qubit)
        for qubit in range(n - 1):
            circuit.cx(qubit, qubit + 1)
    return circuit


def numbers(*shape, seed=1, dtype=torch.float64):
    return torch.tensor(np.random.default_rng(seed).uniform(-2, 2, shape), dtype=dtype, requires_grad=True)


@pytest.mark.parametrize("observables", ["Z0 + X1 Y2", LIST, LIST[:1], []])
@pytest.mark.parametrize("batch", [(), (2,), (2, 1)])
def test_gradcheck_passes(observables, batch):
    values = numbers(*batch, 12)
    circuit = ansatz()
    found = expectation(circuit, observables, values)
    assert found.shape == (*batch, *([len(observables)] if isinstance(observables, list) else []))
    assert torch.autograd.gradcheck(lambda at: expectation(circuit, observables, at), values, atol=1e-7)


def test_values_and_derivatives_are_the_circuits_own():
    circuit, values, weights = ansatz(), numbers(12), torch.tensor([0.3, -2.0, 1.0], dtype=torch.float64)
    found = expectation(circuit, LIST, values)
    assert found.tolist() == [circuit.value_and_gradient(one, values.detach().numpy()).value for one in LIST]
    found.backward(weights)
    assert torch.equal(values.grad, torch.tensor(circuit.vjp(LIST, values.detach().numpy(), weights.numpy())))
    values.grad = None
    expectation(circuit, "Z0", values).backward()
    assert torch.equal(values.grad, torch.tensor(circuit.gradient("Z0", values.detach().numpy())))


def test_empty_batches():
    for observables, shape in (("Z0", (0,)), (LIST, (0, 3))):
        values = numbers(0, 12)
        found = expectation(ansatz(), observables, values)
        assert found.shape == shape
        found.sum().backward()
        assert values.grad.shape == (0, 12)


def test_a_chain_of_functions_is_differentiated_through():
    circuit = Circuit(1).ry(Parameter("a"), 0)
    x = torch.tensor(0.4, dtype=torch.float64, requires_grad=True)
    (3 * expectation(circuit, "Z0", torch.stack([x * x])) ** 2).backward()
    assert x.grad.item() == pytest.approx(-6 * np.cos(0.16) * np.sin(0.16) * 0.8, abs=1e-12)


def test_dtypes_are_kept_and_others_refused():
    circuit = ansatz()
    exact, single = numbers(12), numbers(12, dtype=torch.float32)
    for observables in ("Z0", LIST):
        found = expectation(circuit, observables, single)
        assert found.dtype == torch.float32
        expected = expectation(circuit, observables, exact).detach().numpy()
        assert found.detach().numpy() == pytest.approx(expected, abs=1e-6)
        found.sum().backward()
        assert single.grad.dtype == torch.float32
    states = expectation(circuit, LIST, exact, precision="single")
    assert states.dtype == torch.float64
    assert states.detach().numpy() == pytest.approx(expectation(circuit, LIST, exact).detach().numpy(), abs=1e-5)
    with refused(TypeError, "values", "float32 or float64", "torch.int64"):
        expectation(circuit, "Z0", torch.zeros(12, dtype=torch.int64))
    with refused(TypeError, "values", "torch.complex128"):
        expectation(circuit, "Z0", torch.zeros(12, dtype=torch.complex128))
    with refused(TypeError, "values", "ndarray"):
        expectation(circuit, "Z0", np.zeros(12))


def test_other_devices_and_shapes_are_refused():
    circuit = ansatz()
    with refused(ValueError, "values", "CPU", "meta", "values.cpu()"):
        expectation(circuit, "Z0", torch.zeros(12, device="meta"))
    for shape in ((), (11,), (12, 1)):
        with refused(ValueError, "values", "12 parameter(s)", str(shape)):
            expectation(circuit, "Z0", torch.zeros(shape))
    with refused(ValueError, "finite"):
        expectation(circuit, "Z0", torch.full((12,), float("nan")))
    with refused(ValueError, "method", "finite-shots"):
        expectation(circuit, "Z0", torch.zeros(12), method="finite-shots", shots=10)
    with refused(ValueError, "is a measurement"):
        expectation(Circuit(1, 1).ry(Parameter("a"), 0).measure(0, 0), "Z0", torch.zeros(1))
    with refused(TypeError, "circuit"):
        expectation("Z0", circuit, torch.zeros(12))


@pytest.mark.parametrize("observables", ["Z0", LIST])
def test_second_derivatives_are_refused(observables):
    values = numbers(12)
    (slopes,) = torch.autograd.grad(expectation(ansatz(), observables, values).sum(), values, create_graph=True)
    with refused(RuntimeError, "no second derivatives"):
        (slopes**2).sum().backward()
    # Where the way there does not go by the weights either: otherwise the derivative would be taken for a constant.
    with refused(RuntimeError, "no second derivatives"):
        torch.autograd.functional.hessian(lambda at: expectation(ansatz(), observables, at).sum(), values.detach())


def test_what_needs_no_derivative_takes_one_run(monkeypatch):
    from velacamplix.gradients import gradient

    monkeypatch.setattr(gradient, "_by_adjoint", None)
    circuit, values = ansatz(), numbers(4, 12)
    with torch.no_grad():
        assert expectation(circuit, LIST, values).shape == (4, 3)
    assert not expectation(circuit, "Z0", values.detach()).requires_grad


def test_a_circuit_that_grows_before_the_way_back():
    circuit, values = ansatz(), numbers(12)
    expected = circuit.vjp(LIST, values.detach().numpy(), [1.0] * 3)
    found = expectation(circuit, LIST, values).sum()
    circuit.ry(Parameter("new"), 0)
    found.backward()
    assert values.grad.tolist() == expected.tolist()


def test_a_layer_trains_some_parameters_and_is_given_the_others():
    x, w = ParameterVector("x", 2), ParameterVector("w", 3)
    circuit = Circuit(2).ry(w[0], 0).ry(x[1], 0).rx(x[0], 1).cx(0, 1).ry(w[1] * x[0], 0).rz(w[2], 1).h(1)
    torch.manual_seed(5)
    layer = Expectation(circuit, ["Z0", "X1"], inputs=[x[0], "x[1]"], dtype=torch.float64)
    assert [(name, tuple(one.shape)) for name, one in layer.named_parameters()] == [("weights", (3,))]
    assert (layer.weights.abs() <= np.pi).all() and "inputs=['x[0]', 'x[1]'], weights=3" in str(layer)
    inputs = numbers(4, 2)
    found = layer(inputs)
    for row, got in zip(inputs.detach().numpy(), found.detach().numpy()):
        named = dict(zip(["x[0]", "x[1]", "w[0]", "w[1]", "w[2]"], [*row, *layer.weights.tolist()]))
        assert got.tolist() == [circuit.value_and_gradient(one, named).value for one in ("Z0", "X1")]
    assert torch.autograd.gradcheck(layer, inputs)
    found.sum().backward()
    assert layer.weights.grad.shape == (3,) and inputs.grad.shape == (4, 2)
    other = copy.deepcopy(layer)
    other.load_state_dict(layer.state_dict())
    assert torch.equal(other(inputs), found)
    with refused(ValueError, "inputs", "2", "(4, 3)"):
        layer(torch.zeros(4, 3))
    with refused(ValueError, "inputs", "'y'", "w[0]"):
        Expectation(circuit, "Z0", inputs=["x[0]", "y"])
    with refused(ValueError, "inputs[1]"):
        Expectation(circuit, "Z0", inputs=["x[0]", "x[0]"])


def test_a_layer_without_inputs_finds_the_ground_state():
    torch.manual_seed(1)
    layer = Expectation(ansatz(2, 2), "Z0 Z1 + X0 + X1")
    assert layer().shape == () and layer.weights.dtype == torch.float32
    optimizer = torch.optim.Adam(layer.parameters(), lr=0.1)
    for _ in range(150):
        optimizer.zero_grad()
        energy = layer()
        energy.backward()
        optimizer.step()
    assert energy.item() == pytest.approx(-np.sqrt(5), abs=1e-3)
