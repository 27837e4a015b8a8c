"""Derivatives by the adjoint method are those by differences, for every gate and every way to give parameters."""

import itertools
import math
import os
import signal
import threading

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, Estimate, GateDefinition, Observable, Parameter, Progress, StateVector, run
from velacamplix.gradients import differentiable as _differentiable
from velacamplix.instructions.gates import GATES
from velacamplix.machine import limits
from velacamplix.programs import drive as _drive
from velacamplix.programs import progress as _progress

TURNED = [name for name, gate in GATES.items() if gate.angles]
METHODS = ("adjoint", "parameter-shift")


def differences(circuit, observable, values, step=1e-3):
    """The gradient by differences of the values that `run` gives, with errors of the order step^6 and 1e-12."""
    weights = {1: 3 / 4, 2: -3 / 20, 3: 1 / 60}
    slopes = []
    for place in range(len(values)):
        total = 0.0
        for (far, weight), sign in itertools.product(weights.items(), (1, -1)):
            shifted = list(values)
            shifted[place] += sign * far * step
            total += sign * weight * run(circuit.bind(shifted), observables=observable).expectation_values
        slopes.append(total / step)
    return np.array(slopes)


def entangled(n):
    circuit = Circuit(n)
    for qubit in range(n):
        circuit.ry(0.4 + qubit, qubit).rz(0.9 - qubit, qubit)
    for qubit in range(n - 1):
        circuit.cx(qubit, qubit + 1)
    return circuit


def random_observable(n, seed, terms=6):
    generator = np.random.default_rng(seed)
    strings = ["".join(generator.choice(list("IXYZ"), size=n)) for _ in range(terms)]
    return Observable([(float(generator.normal()), letters, range(n)) for letters in strings]) + 0.25


def ansatz(n, layers):
    circuit = Circuit(n)
    for layer in range(layers):
        for qubit in range(n):
            circuit.ry(Parameter(f"a{layer}_{qubit}"), qubit).rz(Parameter(f"b{layer}_{qubit}"), qubit)
        for qubit in range(n - 1):
            circuit.cx(qubit, qubit + 1)
    return circuit


def values_for(circuit, seed=0):
    return np.random.default_rng(seed).uniform(-3, 3, len(circuit.parameters)).tolist()


@pytest.fixture
def impatient(monkeypatch):
    monkeypatch.setattr(_drive, "INTERVAL", 0.0)
    monkeypatch.setattr(_progress, "INTERVAL", 0.0)


@pytest.mark.parametrize("n_controls", [0, 1, 2])
@pytest.mark.parametrize("name", TURNED)
def test_every_gate_with_angles_has_its_derivatives(name, n_controls):
    gate = GATES[name]
    n = gate.n_qubits + n_controls + 1
    qubits = tuple(range(n))[::-1]
    names = [Parameter(f"p{i}") for i in range(gate.n_params)]
    circuit = entangled(n)
    method = getattr(circuit, min(gate.methods, key=gate.methods.get))
    method(*names, *qubits[: gate.n_qubits], controls=qubits[gate.n_qubits : gate.n_qubits + n_controls])
    circuit = circuit + entangled(n)
    observable = random_observable(n, n_controls)
    for values in ([0.0] * gate.n_params, [0.7 - 1.3 * place for place in range(gate.n_params)]):
        expected = differences(circuit, observable, values)
        value, gradient = circuit.value_and_gradient(observable, values)
        assert value == pytest.approx(run(circuit.bind(values), observables=observable).expectation_values, abs=1e-13)
        assert gradient == pytest.approx(expected, abs=1e-9)
        by_shifts = circuit.value_and_gradient(observable, values, method="parameter-shift")
        assert by_shifts.value == pytest.approx(value, abs=1e-13)
        assert by_shifts.gradient == pytest.approx(gradient, abs=1e-11)
        single = circuit.gradient(observable, values, precision="single")
        assert single == pytest.approx(gradient, abs=1e-4)


def test_expressions_give_the_chain_rule_and_shared_parameters_add_up():
    x, y, z = Parameter("x"), Parameter("y"), Parameter("z")
    circuit = entangled(3).rx(x * y, 0).ry(x.sin() / y + 2, 1).rz(z**2, 2).cx(0, 1)
    circuit.rzz(3 * x - y / 2, 0, 2).ry(-x, 0, controls=[1]).rxx((z * z).sqrt() - y.exp(), 1, 2)
    circuit.u(x, y.cos(), z.arctan(), 0).rx(2 ** (x / 4), 1)
    observable = random_observable(3, 1)
    values = [0.3, 1.2, 0.8]
    assert circuit.parameters == ("x", "y", "z")
    expected = differences(circuit, observable, values)
    for method in METHODS:
        assert circuit.gradient(observable, values, method=method) == pytest.approx(expected, abs=1e-9)
    by_name = circuit.gradient(observable, {"z": 0.8, x: 0.3, "y": 1.2})
    assert by_name.tolist() == circuit.gradient(observable, np.array(values)).tolist()


def test_controls_that_must_be_0():
    x = Parameter("x")
    circuit = entangled(3).rx(x, 0, controls=[1, 2], control_values="01").u(x, 2 * x, 0.5, 2, controls=0, control_values="0")
    circuit.fsim(x, -x, 0, 1, controls=2, control_values="0")
    observable = random_observable(3, 4)
    expected = differences(circuit + entangled(3), observable, [0.4])
    for method in METHODS:
        assert (circuit + entangled(3)).gradient(observable, [0.4], method=method) == pytest.approx(expected, abs=1e-9)


def test_definitions_pass_derivatives_on():
    x, y = Parameter("x"), Parameter("y")
    inner = GateDefinition("inner", Circuit(2).ry(x, 0).cx(0, 1).rz(2 * y * x, 1))
    outer = GateDefinition("outer", Circuit(3).gate(inner, [2, 0], [x + y, x]).ph(y, 1).rzx(x, 0, 2))
    a, b = Parameter("a"), Parameter("b")
    circuit = entangled(4).gate(outer, [3, 1, 0], [a * b, 0.5]).gate(outer, [0, 1, 2], [b, a], controls=3)
    circuit = circuit + entangled(4)
    observable = random_observable(4, 2)
    expected = differences(circuit, observable, [0.4, -0.9])
    for method in METHODS:
        assert circuit.gradient(observable, [0.4, -0.9], method=method) == pytest.approx(expected, abs=1e-9)


def test_matrices_and_diagonals_are_constants():
    x = Parameter("x")
    matrix = np.array([[0.6, 0.8j], [0.8j, 0.6]])
    phases = np.exp(1j * np.arange(8))
    circuit = entangled(4).rx(x, 1).matrix(matrix, 1, controls=2).diagonal(phases, [0, 1, 3])
    circuit.matrix(np.kron(matrix, matrix), [3, 1]).iswap(0, 1).sqrtswap(1, 2).sdg(0).tdg(1).ecr(0, 1)
    observable = random_observable(4, 3)
    assert circuit.gradient(observable, [0.3]) == pytest.approx(differences(circuit, observable, [0.3]), abs=1e-9)
    with refused(ValueError, "Gate 0, matrix", "not unitary"):
        Circuit(1).matrix([[1, 1], [0, 1]], 0, check=False).rx(x, 0).gradient("Z0", [0.1])
    with refused(ValueError, "Gate 0, diagonal", "not unitary"):
        Circuit(1).diagonal([1, 0.5], 0, check=False).rx(x, 0).gradient("Z0", [0.1])


def test_bits_do_not_depend_on_threads_or_on_what_was_asked_before(precision):
    circuit = ansatz(13, 2)
    observables = [random_observable(13, seed, 3) for seed in range(3)]
    values = values_for(circuit)
    expected = circuit.jacobian(observables, values, threads=1, precision=precision)
    for threads in (2, 8):
        assert np.array_equal(circuit.jacobian(observables, values, threads=threads, precision=precision), expected)
    circuit.gradient("Z0", values_for(circuit, 1), precision=precision)
    assert np.array_equal(circuit.gradient(observables[1], values, precision=precision), expected[1])
    assert np.array_equal(ansatz(13, 2).jacobian(observables, values, precision=precision), expected)


def test_a_circuit_that_grows_is_differentiated_as_it_is():
    circuit = ansatz(3, 1)
    circuit.gradient("X2", values_for(circuit))
    circuit.rx(Parameter("new"), 2)
    values = values_for(circuit)
    assert circuit.gradient("Z2", values) == pytest.approx(differences(circuit, "Z2", values), abs=1e-9)
    part = circuit.bind({"a0_0": values[0]})
    assert part.gradient("Z2", values[1:]) == pytest.approx(circuit.gradient("Z2", values)[1:], abs=1e-12)


def test_programs_are_made_once(monkeypatch):
    made, original = [], _differentiable.compiled
    monkeypatch.setattr(_differentiable, "compiled", lambda *given: made.append(1) or original(*given))
    circuit = ansatz(3, 1)
    for seed in range(4):
        circuit.gradient("Z0", values_for(circuit, seed))
        circuit.jacobian(["Z0", "X1"], values_for(circuit, seed))
    assert len(made) == 1
    circuit.gradient("Z0", values_for(circuit), initial="001")
    assert len(made) == 2


def test_several_sets_of_values():
    circuit = ansatz(3, 1)
    rows = np.array([values_for(circuit, seed) for seed in range(4)])
    values, gradients = circuit.value_and_gradient("Z0 Z1 + X2", rows)
    assert values.shape == (4,) and gradients.shape == (4, 6)
    for row, value, gradient in zip(rows, values, gradients):
        alone = circuit.value_and_gradient("Z0 Z1 + X2", row)
        assert alone.value == value and np.array_equal(alone.gradient, gradient)
    named = [dict(zip(circuit.parameters, row)) for row in rows]
    assert np.array_equal(circuit.gradient("Z0 Z1 + X2", named), gradients)
    empty = circuit.value_and_gradient("Z0", np.zeros((0, 6)))
    assert empty.value.shape == (0,) and empty.gradient.shape == (0, 6)
    with refused(ValueError, "values", "dimensions"):
        circuit.gradient("Z0", np.zeros((1, 1, 6)))


def test_jacobian_and_products_with_it():
    circuit = ansatz(4, 2)
    observables = [random_observable(4, seed, 2) for seed in range(40)]
    values = values_for(circuit)
    jacobian = circuit.jacobian(observables, values)
    assert jacobian.shape == (40, 16)
    for k in (0, 29, 30, 39):
        assert np.array_equal(jacobian[k], circuit.gradient(observables[k], values))
    weights, tangent = np.linspace(-1, 1, 40), np.linspace(2, 3, 16)
    assert circuit.vjp(observables, values, weights) == pytest.approx(weights @ jacobian, abs=1e-12)
    assert circuit.jvp(observables, values, tangent) == pytest.approx(jacobian @ tangent, abs=1e-12)
    assert circuit.jacobian("Z0", values).shape == (16,)
    assert circuit.jvp("Z0", values, tangent) == pytest.approx(circuit.gradient("Z0", values) @ tangent, abs=1e-12)
    assert circuit.jacobian([], values).shape == (0, 16)
    assert circuit.vjp([], values, []).tolist() == [0.0] * 16
    with refused(ValueError, "vector", "40", "got 39"):
        circuit.vjp(observables, values, weights[1:])
    with refused(ValueError, "tangent", "16"):
        circuit.jvp(observables, values, tangent[1:])
    for product in (circuit.vjp, circuit.jvp):
        with refused(ValueError, "method", "finite-shots"):
            product(observables, values, weights, method="finite-shots", shots=10)


def test_derivatives_outside_of_the_light_cone_are_zero():
    circuit = Circuit(4)
    for qubit in range(4):
        circuit.ry(Parameter(f"a{qubit}"), qubit)
    circuit.cx(0, 1).cx(2, 3)
    jacobian = circuit.jacobian(["X0 + Z1", "Z3", "2"], values_for(circuit))
    assert (jacobian != 0).tolist() == [[True, True, False, False], [False, False, True, True], [False] * 4]
    assert not np.signbit(jacobian[jacobian == 0]).any()


def test_qubits_that_no_gate_touches_take_no_memory():
    x = Parameter("x")
    circuit = Circuit(200).rx(x, 150).cx(150, 10)
    value, gradient = circuit.value_and_gradient("Z10 Z199 + X42", [0.3])
    assert value == pytest.approx(math.cos(0.3)) and gradient == pytest.approx([-math.sin(0.3)])


def test_circuits_without_parameters_and_without_gates():
    value, gradient = Circuit(1).h(0).value_and_gradient("X0")
    assert value == pytest.approx(1) and gradient.shape == (0,)
    assert Circuit(2).value_and_gradient("Z0 + 2").value == 3.0
    assert Circuit(0).value_and_gradient("2").value == 2.0
    assert Circuit(1).h(0).jacobian(["X0", "Z0"]).shape == (2, 0)
    unused = Circuit(1).gate(GateDefinition("still", Circuit(1).h(0), ["t"]), 0, [Parameter("x")])
    assert unused.gradient("X0", [0.5]).tolist() == [0.0]


@pytest.mark.parametrize("method", METHODS)
def test_an_initial_state_is_a_constant(method):
    circuit = ansatz(3, 1)
    values = values_for(circuit)
    begin = entangled(3)
    expected = differences(begin + circuit, "Z0 + X1 Y2", values)
    state = StateVector(3).run(begin)
    kept = state.array.copy()
    given = {"state": {"initial": state}, "array": {"initial": kept, "initial_order": "little"}}
    for arguments in given.values():
        got = circuit.gradient("Z0 + X1 Y2", values, method=method, **arguments)
        assert got == pytest.approx(expected, abs=1e-9)
    assert np.array_equal(state.array, kept)
    turned = circuit.gradient("Z0 + X1 Y2", values, method=method, initial="1+0")
    begin = Circuit(3).x(0).h(1)
    assert turned == pytest.approx(differences(begin + circuit, "Z0 + X1 Y2", values), abs=1e-9)
    single = circuit.value_and_gradient("Z0", values, initial=StateVector(3, "single"))
    assert single.gradient == pytest.approx(circuit.gradient("Z0", values), abs=1e-12)


def test_a_state_that_is_no_number_is_told():
    state = StateVector(1)
    state.array[0] = np.nan
    with refused(ValueError, "finite amplitudes"):
        Circuit(1).rx(Parameter("x"), 0).gradient("Z0", [0.5], initial=state)


def test_the_way_back_is_told():
    circuit = ansatz(4, 30)
    found = circuit.value_and_gradient("Z0", values_for(circuit))
    assert 0 < found.return_error < 1e-13
    assert math.isnan(ansatz(2, 1).value_and_gradient("Z0", [0.5] * 4, method="parameter-shift").return_error)
    value, gradient = found
    assert value is found.value and gradient is found.gradient


def test_shots_give_standard_errors():
    x, y = Parameter("x"), Parameter("y")
    circuit = Circuit(2).rx(x, 0).crx(2 * x, 0, 1).ry(y, 1).cx(0, 1)
    values, observable = [0.4, 0.9], "0.5*Z0 + X1 - 2*Z0 Z1"
    exact = circuit.value_and_gradient(observable, values)
    outside = 0
    for seed in range(60):
        value, gradient = circuit.value_and_gradient(observable, values, method="finite-shots", shots=400, seed=seed)
        assert isinstance(value, Estimate) and isinstance(gradient, Estimate)
        off = np.abs(np.append(gradient.mean - exact.gradient, value.mean - exact.value))
        outside += int((off > 2 * np.append(gradient.standard_error, value.standard_error)).sum())
        assert (off < 6 * np.append(gradient.standard_error, value.standard_error)).all()
    assert 0 < outside < 25  # of 180 about 8
    again = circuit.value_and_gradient(observable, values, method="finite-shots", shots=400, seed=59)
    assert again.gradient.mean.tolist() == gradient.mean.tolist()
    jacobian = circuit.jacobian([observable, "Z0"], values, method="finite-shots", shots=50, seed=1)
    assert jacobian.mean.shape == jacobian.standard_error.shape == (2, 2)
    rows = circuit.value_and_gradient(observable, [values, values], method="finite-shots", shots=50, seed=1)
    assert rows.value.mean.shape == (2,) and rows.gradient.standard_error.shape == (2, 2)


@pytest.mark.parametrize("method", METHODS)
def test_progress_is_told_and_an_exception_ends_it(impatient, method):
    circuit = ansatz(6, 2)
    values = values_for(circuit)
    told = []
    expected = circuit.gradient("Z0", values, method=method, progress=told.append)
    assert all(isinstance(progress, Progress) for progress in told)
    done = [progress.done for progress in told]
    assert done == sorted(done) and done[-1] == told[-1].total and len(done) > 3
    assert told[-1].total == (3 * len(circuit) if method == "adjoint" else 1 + 2 * len(values))

    class Enough(Exception):
        pass

    def stop(progress):
        raise Enough

    for _ in range(2):
        with pytest.raises(Enough):
            circuit.gradient("Z0", values, method=method, progress=stop)
    assert np.array_equal(circuit.gradient("Z0", values, method=method), expected)


@pytest.mark.parametrize("method", METHODS)
def test_ctrl_c_ends_it(method):
    circuit = ansatz(16, 120)
    values = values_for(circuit)
    timer = threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(1000):
            circuit.gradient("Z0", values, method=method)
    timer.join()


def test_threads_may_differentiate_one_circuit_at_once():
    circuit = ansatz(10, 3)
    sets = [values_for(circuit, seed) for seed in range(4)]
    expected = [circuit.gradient("Z0 + X3", values).tolist() for values in sets]
    got = [None] * 4

    def work(place):
        for _ in range(5):
            got[place] = circuit.gradient("Z0 + X3", sets[place]).tolist()

    threads = [threading.Thread(target=work, args=(place,)) for place in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert got == expected


def test_memory_is_asked_for_before_it_is_taken(monkeypatch):
    circuit = ansatz(20, 1)
    small = limits.Memory(free=24 << 20, available=24 << 20, limit=None)
    monkeypatch.setattr(limits, "memory", lambda root="/": small)
    with refused(MemoryError, "the adjoint method holds 2 states of 20 qubits", "precision='single'"):
        circuit.gradient("Z0", [0.5] * 40)
    assert circuit.gradient("Z0", [0.5] * 40, precision="single").shape == (40,)
    narrow = ansatz(14, 1)
    monkeypatch.undo()
    expected = narrow.jacobian(["Z0", "X1", "Y2"], [0.5] * 28)
    few = limits.Memory(free=3 << 18, available=3 << 18, limit=None)
    monkeypatch.setattr(limits, "memory", lambda root="/": few)
    assert np.array_equal(narrow.jacobian(["Z0", "X1", "Y2"], [0.5] * 28), expected)


def test_what_has_no_derivative_is_refused_with_the_reason():
    x = Parameter("x")
    with refused(ValueError, "instruction 1 (measure 0 -> 0)", "is a measurement"):
        Circuit(1, 1).rx(x, 0).measure(0, 0).gradient("Z0", [0.1])
    with refused(ValueError, "instruction 1 (reset 0)", "cannot be undone"):
        Circuit(1).rx(x, 0).reset(0).gradient("Z0", [0.1])
    conditioned = Circuit(1, 1)
    with conditioned.when(0, 1):
        conditioned.rx(x, 0)
    with refused(ValueError, "instruction 0", "condition"):
        conditioned.gradient("Z0", [0.1])
    for method, reason in {"if_": "decides by outcomes", "while_": "decides by outcomes"}.items():
        decided = Circuit(1, 1)
        getattr(decided, method)(("c", 1), lambda body: body.rx(x, 0).measure(0, 0))
        with refused(ValueError, "instruction 0", reason):
            decided.gradient("Z0", [0.1])
    with refused(ValueError, "instruction 1 (save", "only run returns"):
        Circuit(1).rx(x, 0).save_state("half").gradient("Z0", [0.1])
    assert Circuit(2).rx(x, 0).barrier().gradient("Z0", [0.1]) == pytest.approx([-math.sin(0.1)])


def test_wrong_arguments_are_refused():
    circuit = Circuit(2).rx(Parameter("x"), 0).ry(Parameter("y") / Parameter("x"), 1)
    good = [0.5, 0.25]
    with refused(ValueError, "values", "2 numbers", "got 1"):
        circuit.gradient("Z0", [0.5])
    with refused(ValueError, "values", "'y'"):
        circuit.gradient("Z0", {"x": 0.5})
    with refused(ValueError, "values", "'z'"):
        circuit.gradient("Z0", {"x": 0.5, "y": 1, "z": 1})
    with refused(ValueError, "values", "'x', 'y'"):
        circuit.gradient("Z0")
    with refused(ValueError, "finite"):
        circuit.gradient("Z0", [0.5, math.inf])
    with pytest.raises(ValueError, match="division by zero"):
        circuit.gradient("Z0", [0.0, 1.0])
    with pytest.raises(ValueError, match=r"sqrt\(x\) has no finite derivative"):
        Circuit(1).rx(Parameter("x").sqrt(), 0).gradient("Z0", [0.0])
    with refused(ValueError, "observable", "real coefficients"):
        circuit.gradient("(1+2j)*Z0", good)
    with refused(ValueError, "observables", "real coefficients"):
        circuit.jacobian(["Z0", "(1j)*Z0"], good)
    with refused(ValueError, "observable", "qubit"):
        circuit.gradient("Z2", good)
    with refused(ValueError, "observable", "jacobian"):
        circuit.gradient(["Z0", "Z1"], good)
    with refused(TypeError, "observable"):
        circuit.gradient(3, good)
    with refused(ValueError, "method", "'backprop'"):
        circuit.gradient("Z0", good, method="backprop")
    with refused(ValueError, "shots", "finite-shots"):
        circuit.gradient("Z0", good, shots=10)
    with refused(ValueError, "seed", "finite-shots"):
        circuit.gradient("Z0", good, seed=10)
    with refused(ValueError, "shots"):
        circuit.gradient("Z0", good, method="finite-shots")
    with refused(ValueError, "precision"):
        circuit.gradient("Z0", good, method="parameter-shift", precision="single")
    with refused(ValueError, "threads"):
        circuit.gradient("Z0", good, threads=0)
    with refused(TypeError, "progress"):
        circuit.gradient("Z0", good, progress=3)
    with refused(ValueError, "initial"):
        circuit.gradient("Z0", good, initial="0")
    with pytest.raises(TypeError, match="fused"):
        circuit.gradient("Z0", good, fused=True)


def on_pairs(n, count, seed):
    """Gates of every kind on one and two qubits, most with neighbours on the same pair."""
    generator = np.random.default_rng(seed)
    gates = [gate for gate in GATES.values() if gate.n_qubits <= 2 and gate.methods]
    circuit = Circuit(n)
    for number in range(count):
        gate = gates[generator.integers(len(gates))]
        angles = [Parameter(f"p{number}_{place}") for place in range(gate.n_params)]
        qubits = [int(qubit) for qubit in generator.permutation(n)[: gate.n_qubits]]
        getattr(circuit, min(gate.methods, key=gate.methods.get))(*angles, *qubits)
    return circuit


@pytest.mark.parametrize("precision", ["double", "single"])
def test_fusion_gives_the_same_up_to_rounding_for_any_number_of_threads(precision):
    tolerance = 1e-11 if precision == "double" else 1e-4
    for n, circuit in [(4, on_pairs(4, 80, 1)), (13, on_pairs(13, 80, 2)), (13, ansatz(13, 2))]:
        observables = [random_observable(n, 3), "Z0"]
        values = values_for(circuit)
        exact = circuit.jacobian(observables, values)
        fused = circuit.jacobian(observables, values, precision=precision, fusion=True, threads=1)
        assert abs(fused - exact).max() < tolerance
        assert not np.array_equal(fused, exact)
        again = circuit.jacobian(observables, values, precision=precision, fusion=True, threads=3)
        assert fused.tobytes() == again.tobytes()
        value, gradient = circuit.value_and_gradient(observables[0], values, precision=precision, fusion=True)
        assert gradient.tobytes() == fused[0].tobytes()
        assert abs(value - run(circuit.bind(values), observables=observables[0]).expectation_values) < 10 * tolerance
        # What is exact stays exact beside it.
        assert circuit.jacobian(observables, values).tobytes() == exact.tobytes()


def test_fusion_is_for_the_adjoint_method():
    circuit = ansatz(2, 1)
    for method, how in [("parameter-shift", {}), ("finite-shots", {"shots": 10})]:
        with pytest.raises(ValueError, match=f"fusion must be False with method='{method}', got True"):
            circuit.gradient("Z0", values_for(circuit), method=method, fusion=True, **how)
    with pytest.raises(TypeError, match="fusion"):
        circuit.gradient("Z0", values_for(circuit), fusion="yes")
