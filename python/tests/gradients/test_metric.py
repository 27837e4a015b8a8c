"""The metric is that of differences of states, block by block."""

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, Parameter, StateVector


def metric_of_differences(circuit, values, step=1e-4):
    """Re<da psi|db psi> - <da psi|psi><psi|db psi> of all parameters, by differences."""

    def state(shifted):
        return StateVector(circuit.n_qubits).run(circuit.bind(list(shifted))).array.copy()

    psi, slopes = state(values), []
    for place in range(len(values)):
        shift = np.zeros(len(values))
        shift[place] = step
        near = (state(values + shift) - state(values - shift)) / (2 * step)
        far = (state(values + 2 * shift) - state(values - 2 * shift)) / (4 * step)
        slopes.append((4 * near - far) / 3)
    slopes = np.array(slopes)
    return (slopes.conj() @ slopes.T).real - np.outer(slopes.conj() @ psi, psi.conj() @ slopes.T).real


def block_of(metric, places):
    return metric[np.ix_(places, places)]


def names(n):
    return [Parameter(f"p{i}") for i in range(n)]


def entangled(n):
    circuit = Circuit(n)
    for qubit in range(n):
        circuit.ry(0.4 + qubit, qubit).rz(0.9 - qubit, qubit)
    for qubit in range(n - 1):
        circuit.cx(qubit, qubit + 1)
    return circuit


def test_one_block_is_the_whole_metric():
    p = names(8)
    circuit = entangled(5).rx(p[0], 0).ry(p[1], 1).rzz(p[2], 2, 3).rz(p[3], 2).ph(p[4], 3, controls=4).crz(p[5], 4, 2)
    circuit.ph(p[6], 4).rzz(p[7], 3, 4)
    values = np.linspace(-1, 1, 8)
    metric = circuit.metric_tensor(values)
    assert metric == pytest.approx(metric_of_differences(circuit, values), abs=1e-9)
    assert np.array_equal(metric, metric.T)


def test_blocks_stand_for_themselves():
    p = names(9)
    circuit = entangled(3)
    for qubit in range(3):
        circuit.ry(p[qubit], qubit)
    circuit.cx(0, 1).cx(1, 2)
    for qubit in range(3):
        circuit.rz(p[3 + qubit], qubit)
    circuit.rx(p[6], 0, controls=[1]).rxx(p[7], 1, 2).h(0).ryy(p[8], 0, 1)
    values = np.linspace(-1, 1, 9)
    metric, full = circuit.metric_tensor(values), metric_of_differences(circuit, values)
    blocks = [[0, 1, 2], [3, 4, 5], [6], [7], [8]]
    for block in blocks:
        assert block_of(metric, block) == pytest.approx(block_of(full, block), abs=1e-9)
        metric[np.ix_(block, block)] = 0
    assert not metric.any()


def test_gates_on_other_qubits_do_not_end_a_block():
    p = names(3)
    circuit = entangled(4).rx(p[0], 0).h(1).cx(1, 2).ry(p[1], 3).cz(0, 1).rz(p[2], 2)
    metric = circuit.metric_tensor([0.1, 0.2, 0.3])
    full = metric_of_differences(circuit, np.array([0.1, 0.2, 0.3]))
    assert block_of(metric, [0, 1]) == pytest.approx(block_of(full, [0, 1]), abs=1e-9)
    assert metric[2, 2] == pytest.approx(full[2, 2], abs=1e-9) and metric[0, 2] == metric[1, 2] == 0


def test_angles_of_u_are_blocks_of_their_own():
    p = names(3)
    for controls in ((), (1,), (1, 2)):
        circuit = entangled(3).u(*p, 0, controls=controls)
        values = np.array([0.7, -0.4, 1.1])
        metric, full = circuit.metric_tensor(values), metric_of_differences(circuit, values)
        assert np.diag(metric) == pytest.approx(np.diag(full), abs=1e-9)
        assert np.count_nonzero(metric - np.diag(np.diag(metric))) == 0


def test_parameters_follow_by_the_chain_rule():
    x, y = Parameter("x"), Parameter("y")
    circuit = entangled(3).rx(x * y, 0).ry(2 * x, 1).rz(x.sin(), 2)
    values = np.array([0.6, 1.3])
    assert circuit.metric_tensor(values) == pytest.approx(metric_of_differences(circuit, values), abs=1e-9)
    assert Circuit(1).h(0).metric_tensor().shape == (0, 0)


def test_an_initial_state_and_idle_qubits():
    x = Parameter("x")
    state = StateVector(2).run(entangled(2))
    expected = (entangled(2).rx(x, 0)).metric_tensor([0.3])
    assert Circuit(2).rx(x, 0).metric_tensor([0.3], initial=state) == pytest.approx(expected, abs=1e-12)
    assert Circuit(100).rx(x, 50).metric_tensor({"x": 0.3}).tolist() == [[0.25]]


def test_natural_gradient_is_what_descends_fastest():
    a, b = Parameter("a"), Parameter("b")
    circuit = Circuit(1).ry(a, 0).rz(b, 0)
    values = np.array([0.5, 0.8])
    gradient, metric = circuit.gradient("X0", values), circuit.metric_tensor(values)
    # On the sphere, where a and b are its angles, the direction is that of the gradient there.
    assert np.linalg.solve(4 * metric, gradient) == pytest.approx([gradient[0], gradient[1] / np.sin(0.5) ** 2])


def test_wrong_arguments_are_refused():
    circuit = Circuit(9).rx(Parameter("x"), 0, controls=range(1, 8))
    with refused(ValueError, "at most 6 controls", "RX under 7"):
        circuit.metric_tensor([0.5])
    with refused(ValueError, "values"):
        Circuit(1).rx(Parameter("x"), 0).metric_tensor()
    with refused(ValueError, "is a measurement"):
        Circuit(1, 1).measure(0, 0).metric_tensor()
    with pytest.raises(TypeError, match="method"):
        circuit.metric_tensor([0.5], method="adjoint")
