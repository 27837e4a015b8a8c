"""Circuits that were bound from the same template share their programs, and nothing of that shows in the results."""

import threading
import weakref

import numpy as np
import pytest

from velacamplix import Circuit, GateDefinition, Parameter, StateVector, run
from velacamplix.programs import prepare as _prepare


def ansatz(n, layers):
    """Angles in plain gates, with controls, as expressions, and inside a definition."""
    x, y = Parameter("x"), Parameter("y")
    turn = GateDefinition("turn", Circuit(2).ry(x, 0).cx(0, 1).rz(y, 1, controls=0))
    circuit = Circuit(n, n)
    for layer in range(layers):
        for qubit in range(n):
            circuit.rx(Parameter(f"a{layer}_{qubit}"), qubit)
        circuit.gate(turn, [0, 1], [Parameter(f"b{layer}"), 2 * Parameter(f"a{layer}_0")])
        circuit.ph(Parameter(f"b{layer}") + 0.5, n - 1, controls=[0]).h(1).sx(0)
    return circuit


def values_for(circuit, seed):
    return np.random.default_rng(seed).uniform(-3, 3, len(circuit.parameters)).tolist()


def plain(circuit):
    """The same circuit without a template."""
    return circuit.copy()


@pytest.fixture
def compilations(monkeypatch):
    made, original = [], _prepare.compiled

    def compiled(*arguments):
        made.append(arguments)
        return original(*arguments)

    monkeypatch.setattr(_prepare, "compiled", compiled)
    return made


@pytest.mark.parametrize("fusion", [False, True])
def test_bound_circuits_are_compiled_once(compilations, precision, tolerance, fusion):
    template = ansatz(4, 2)
    for seed in range(5):
        bound = template.bind(values_for(template, seed))
        got = StateVector(4, precision).run(bound, fusion=fusion)
        expected = StateVector(4, precision).run(plain(bound), fusion=fusion)
        assert np.abs(got.array - expected.array).max() <= (4 * tolerance if fusion else 0)
    # One for the template, one for each circuit without.
    assert len(compilations) == 1 + 5


def test_runs_with_measurements_in_the_middle_share_theirs_too(compilations):
    template = ansatz(3, 1).measure(0, 0)
    with template.when(0, 1):
        template.rx(Parameter("last"), 0)
    template.cx(0, 1).ry(Parameter("a0_0"), 1).measure([0, 1], [1, 2])
    for seed in range(4):
        bound = template.bind(values_for(template, seed))
        got, expected = run(bound, shots=200, seed=seed), run(plain(bound), shots=200, seed=seed)
        assert (got.shots == expected.shots).all() and got.plan == expected.plan
    assert len(compilations) == 3 * (1 + 4)


def test_other_circumstances_have_their_own_programs(compilations, precision):
    template = ansatz(3, 1)
    bound = template.bind(values_for(template, 1))
    first = StateVector(3, precision).run(bound)
    assert StateVector(5, precision).run(bound).array[:8].tobytes() == first.array.tobytes()
    other = "single" if precision == "double" else "double"
    assert np.abs(StateVector(3, other).run(bound).array - first.array).max() < 1e-5
    assert run(bound, precision=precision).state.array.tobytes() == first.array.tobytes()
    assert np.abs(run(bound, precision=precision, fusion=True).state.array - first.array).max() < 1e-5
    started = run(bound, precision=precision, initial="100").state
    assert started.array.tobytes() == StateVector(3, precision).x(0).run(bound).array.tobytes()
    assert len(compilations) == 6
    StateVector(3, precision).run(template.bind(values_for(template, 2)))
    assert len(compilations) == 6


def test_matrices_that_depend_on_a_parameter_are_right_as_well():
    template = Circuit(3).h(0).u(Parameter("t"), 0.1, 0.2, 1).rzz(Parameter("g"), 0, 1).rx(Parameter("t"), 2)
    for seed in range(3):
        bound = template.bind(values_for(template, seed))
        assert StateVector(3).run(bound).array.tobytes() == StateVector(3).run(plain(bound)).array.tobytes()


@pytest.mark.parametrize("fusion", [False, True])
def test_a_large_diagonal_does_not_keep_programs_from_being_shared(compilations, fusion):
    template = Circuit(10).rx(Parameter("t"), 9).diagonal(np.exp(1j * np.arange(1024)), range(10)).ry(Parameter("u"), 9)
    for seed in range(3):
        bound = template.bind(values_for(template, seed))
        got = StateVector(10).run(bound, fusion=fusion)
        assert got.array.tobytes() == StateVector(10).run(plain(bound), fusion=fusion).array.tobytes()
    assert len(compilations) == 1 + 3


def test_what_is_added_later_is_run():
    template = Circuit(2).rx(Parameter("a"), 0)
    assert StateVector(2).run(template.bind(a=np.pi)).probability("10") == pytest.approx(1)
    bound = template.bind(a=np.pi).x(1)
    assert StateVector(2).run(bound).probability("11") == pytest.approx(1)
    template.x(1).ry(Parameter("b"), 1)
    assert StateVector(2).run(template.bind(a=0, b=np.pi)).probability("00") == pytest.approx(1)


def test_an_angle_beyond_single_precision():
    template = Circuit(1).rx(Parameter("a"), 0).rx(Parameter("b"), 0)
    state = StateVector(1, "single").run(template.bind(a=0, b=0)).run(template.bind(a=1, b=1e300))
    expected = StateVector(1).rx(1, 0).rx(1e300, 0)
    assert np.abs(state.array - expected.array).max() < 2e-7


def test_a_run_within_a_run_of_the_same_circuit():
    template = ansatz(3, 1)
    first, second = (template.bind(values_for(template, seed)) for seed in (1, 2))
    inner = []
    outer = StateVector(3).run(first, progress=lambda progress: inner.append(StateVector(3).run(second)))
    assert outer.array.tobytes() == StateVector(3).run(plain(first)).array.tobytes()
    assert inner[0].array.tobytes() == StateVector(3).run(plain(second)).array.tobytes()


def test_several_threads_run_circuits_of_one_template():
    template = ansatz(10, 3)
    bound = [template.bind(values_for(template, seed)) for seed in range(6)]
    expected = [StateVector(10).run(plain(circuit)).array.tobytes() for circuit in bound]
    got = [[] for _ in bound]

    def work(i):
        for _ in range(20):
            got[i].append(StateVector(10).run(bound[i]).array.tobytes())

    threads = [threading.Thread(target=work, args=(i,)) for i in range(len(bound))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert all(set(states) == {right} and len(states) == 20 for states, right in zip(got, expected))


def test_programs_go_with_their_template():
    template = ansatz(3, 1)
    bound = template.bind(values_for(template, 1))
    StateVector(3).run(bound)
    (kept,) = map(weakref.ref, bound._template.prepared.values())
    del template
    assert kept() is not None
    del bound
    assert kept() is None


def test_of_many_circumstances_the_last_few_are_kept(compilations):
    template = ansatz(6, 1)
    bound = template.bind(values_for(template, 1))
    for start in range(40):
        run(bound, initial=start)
    assert len(bound._template.prepared) == _prepare._MOST_KEPT and len(compilations) == 40
    for start in range(40 - _prepare._MOST_KEPT, 40):
        run(template.bind(values_for(template, start)), initial=start)
    assert len(compilations) == 40
    # The one that was used longest ago gives way.
    run(bound, initial=0)
    run(bound, initial=39)
    assert len(compilations) == 41


# Fusion


def random_layers(n, seed):
    generator = np.random.default_rng(seed)
    circuit = Circuit(n)
    for _ in range(1000 // n):
        for qubit in range(n):
            circuit.u(*generator.uniform(-3, 3, 3), qubit)
            if generator.random() < 0.4:
                first, second = generator.choice(n, 2, replace=False)
                circuit.cx(int(first), int(second))
            if generator.random() < 0.3:
                circuit.t(qubit).rz(generator.uniform(-3, 3), qubit, controls=(qubit + 1) % n)
    return circuit


@pytest.mark.parametrize("n", [1 + 1, 6, 14, 17])
def test_fusion_gives_the_same_up_to_rounding(n, precision):
    circuit = random_layers(n, n)
    exact = run(circuit, precision=precision).state.array
    fused = run(circuit, precision=precision, fusion=True).state.array
    assert np.linalg.norm(fused - exact) < {"double": 1e-12, "single": 1e-5}[precision]
    state = StateVector(n, precision).run(circuit, fusion=True)
    assert np.linalg.norm(state.array - exact) < {"double": 1e-12, "single": 1e-5}[precision]


def test_fusion_is_stopped_after_a_first_part_of_the_gates():
    circuit, state, done = random_layers(18, 1), StateVector(18), []

    def stop(progress):
        done.append(progress)
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt, match="stopped after .* gates") as stopped:
        state.run(circuit, progress=stop, fusion=True)
    applied = stopped.value.gates_applied
    first_part = Circuit(18)
    for step in circuit.instructions[:applied]:
        first_part.append(step)
    assert np.linalg.norm(state.array - StateVector(18).run(first_part).array) < 1e-12
