"""Many runs with noise in one call: each is a run of its own with its seed, to the last bit."""

import warnings

import numpy as np
import pytest

from velacamplix import Channel, Circuit, DensityMatrix, GateDefinition, NoiseModel, Parameter, StateVector, run

NOISE = (
    NoiseModel()
    .after(["rx", "h"], Channel.depolarizing(0.05))
    .after("cx", Channel.amplitude_damping(0.1))
    .readout(0.02, 0.05)
)


def chain(n_qubits, angle=0.5):
    circuit = Circuit(n_qubits, n_qubits).h(0)
    for qubit in range(n_qubits - 1):
        circuit.cx(qubit, qubit + 1).rx(angle, qubit)
    return circuit


def middle():
    circuit = chain(3).measure(0, 0)
    with circuit.when(0, 1):
        circuit.rx(0.3, 1)
    return circuit.measure([1, 2], [1, 2])


def require_equal(one, other):
    """Two results of runs with noise or without, to the last bit."""
    for name in ("n_qubits", "n_clbits", "n_shots", "seed", "precision", "active_qubits", "measured_bits", "has_state"):
        assert getattr(one, name) == getattr(other, name)
    assert (one.plan.method, one.plan.trajectories, one.plan.gates) == (other.plan.method, other.plan.trajectories, other.plan.gates)
    assert [cost.name for cost in one.plan.methods] == [cost.name for cost in other.plan.methods]
    for name in ("expectation_values", "standard_errors"):
        told = [getattr(result, name) for result in (one, other)]
        assert type(told[0]) is type(told[1])
        assert np.asarray(told[0]).tobytes() == np.asarray(told[1]).tobytes()
    if one.n_shots is not None:
        assert np.array_equal(one.shots, other.shots)
    if one.has_state:
        assert one.compact_state.array.tobytes() == other.compact_state.array.tobytes()


@pytest.mark.filterwarnings("ignore:noise misreads", "ignore:after")
@pytest.mark.parametrize("method", ["auto", "exact", "trajectories"])
@pytest.mark.parametrize("threads", [1, 3])
def test_a_list_gives_what_its_circuits_give_one_by_one(method, threads):
    circuits = [chain(3).measure_all(), middle(), chain(2), Circuit(4).h(0), chain(3).measure_all(), chain(11, 0.1)]
    asked = {"shots": 300, "method": method, "noise": NOISE, "observables": ["Z0 Z1", "Z1 + 0.5"]}
    if method == "exact":
        del circuits[-1]
    results = run(circuits, seed=9, threads=threads, **asked)
    seeds = np.random.SeedSequence(9).generate_state(len(circuits)).tolist()
    assert isinstance(results, list) and [result.seed for result in results] == seeds
    for circuit, seed, result in zip(circuits, seeds, results):
        require_equal(result, run(circuit, seed=seed, threads=2, **asked))
    if method == "auto":
        assert {result.plan.method for result in results} == {"exact", "trajectories"}


def test_circuits_with_channels_stand_among_others():
    noisy = Circuit(2).h(0).channel(Channel.bit_flip(0.25), 0).cx(0, 1)
    circuits = [Circuit(2).h(0), noisy, middle(), noisy, Circuit(2)]
    results = run(circuits, shots=50, seed=4, observables="Z0")
    assert [bool(result.plan.methods) for result in results] == [False, True, False, True, False]
    for circuit, result in zip(circuits, results):
        require_equal(result, run(circuit, shots=50, seed=result.seed, observables="Z0"))


@pytest.mark.parametrize("method", ["exact", "trajectories"])
def test_sets_of_values_give_what_bound_circuits_give(method):
    circuit = Circuit(3, 3)
    for qubit in range(3):
        circuit.rx(Parameter("a") * (qubit + 1) / 3, qubit).rz(Parameter("b"), qubit)
    circuit.gate(GateDefinition("pair", Circuit(2).rx(2 * Parameter("c"), 0).cx(0, 1)), [2, 0], [Parameter("b") / 7])
    circuit.gate(GateDefinition("none", Circuit(1).h(0), params=["x"]), 1, [Parameter("d")]).measure_all()
    values = {"a": np.linspace(-1, 1, 5), "b": 0.3, "d": [0.0] * 5}
    asked = {"shots": 40, "noise": NOISE, "method": method, "observables": ["Z0", "Z1 Z2"]}
    results = run(circuit, values=values, seed=2, **asked)
    assert results.expectation_values.shape == results.standard_errors.shape == (5, 2)
    for i, result in enumerate(results):
        own = run(circuit.bind(a=values["a"][i], b=0.3, d=0.0), seed=results.seeds[i], **asked)
        require_equal(result, own)
        assert results.standard_errors[i].tolist() == own.standard_errors.tolist()
    rows = run(circuit, values=values, **{**asked, "observables": "Z0"}).to_rows()
    assert list(rows[0]) == ["a", "b", "d", "seed", "expectation_value", "standard_error"]
    plain = run(circuit, values=values, observables="Z0")
    assert plain.standard_errors is None and "standard_error" not in plain.to_rows()[0]


def test_channels_in_a_circuit_with_sets_of_values():
    circuit = Circuit(1).rx(Parameter("a"), 0).channel(Channel.depolarizing(0.5), 0)
    found = run(circuit, values={"a": [0.0, 1.0]}, observables="Z0").expectation_values
    assert found == pytest.approx([0.5, 0.5 * np.cos(1.0)])


def test_jobs_of_many_runs_cut_an_experiment():
    circuits, asked = [chain(3).measure_all(), middle()], {"seed": 3, "noise": NOISE, "method": "trajectories"}
    whole = run(circuits, shots=60, **asked)
    parts = [run(circuits, shots=30, first_shot=first, **asked) for first in (0, 30)]
    for i, result in enumerate(whole):
        assert np.array_equal(result.shots, np.concatenate([part[i].shots for part in parts]))
    channels = [Circuit(1).channel(Channel.bit_flip(0.5), 0)] * 2
    whole, part = [run(channels, shots=count, seed=1, first_shot=first) for count, first in ((9, 0), (4, 5))]
    assert all(np.array_equal(one.shots[5:], other.shots) for one, other in zip(whole, part))


@pytest.mark.filterwarnings("ignore:after")
@pytest.mark.parametrize("state", ["state", "matrix"])
def test_every_member_starts_from_the_initial_state(state):
    begin = StateVector(2).h(0).cx(0, 1)
    initial = begin if state == "state" else DensityMatrix.from_statevector(begin)
    circuits = [Circuit(2).cx(0, 1), Circuit(2).h(1)]
    noise = NoiseModel().after("cx", Channel.bit_flip(0.125)).after("h", Channel.bit_flip(0.125))
    results = run(circuits, initial=initial, noise=noise, observables="Z0 Z1")
    assert [result.expectation_values for result in results] == [
        run(circuit, initial=initial, noise=noise, observables="Z0 Z1").expectation_values for circuit in circuits
    ]
    turned = run(Circuit(2).rx(Parameter("a"), 0), values={"a": [0, np.pi]}, initial=initial, method="exact", observables="Z0 Z1")
    assert turned.expectation_values.round(12).tolist() == [1.0, -1.0]


def test_warnings_come_once_and_here():
    with warnings.catch_warnings():
        warnings.simplefilter("error")  # each rule finds something in one of them
        run([Circuit(1).h(0), Circuit(2).cx(0, 1), Circuit(1)], noise=NoiseModel().after(["h"], Channel.bit_flip(0.1)))
        run([], shots=3, noise=NOISE)
    with pytest.warns(UserWarning) as caught:
        run([Circuit(1).h(0), Circuit(2).cx(0, 1)], noise=NoiseModel().after("t", Channel.bit_flip(0.1)))
    assert [str(one.message) for one in caught] == [
        "after('t', Channel.bit_flip(0.1)) found nothing to stand beside; the circuits have these gates: cx, h"
    ]
    assert caught[0].filename == __file__
    with pytest.warns(UserWarning, match=r"but circuit\[1\] measures nothing") as caught:
        run([Circuit(1, 1).measure(0, 0), Circuit(1), Circuit(1)], shots=3, noise=NoiseModel().readout(0.1, 0.1))
    assert len(caught) == 1 and caught[0].filename == __file__
    with pytest.warns(UserWarning, match="X or Y count 0 on qubits that are measured at the end, here 0, 1") as caught:
        circuits = [Circuit(2, 1).h(q).channel(Channel.bit_flip(0.1), q).measure(q, 0) for q in (0, 1)]
        for method in ("exact", "trajectories"):
            run(circuits, shots=2, observables=["X0", "Y1"], method=method)
    assert len(caught) == 2 and caught[0].filename == __file__


def test_progress_counts_runs():
    seen = []
    circuits = [chain(2).measure_all(), chain(3).measure_all()]
    run(circuits, noise=NOISE, shots=5, observables="Z0", progress=seen.append, method="trajectories")
    assert seen[-1].done == seen[-1].total == 2


@pytest.mark.parametrize(
    "circuits, options, error, message, note",
    [
        ([Circuit(1).channel(Channel.bit_flip(0.1), 0), Circuit(1)], {"first_shot": 3}, ValueError, r"circuit\[1\] has none, got 3", None),
        ([Circuit(1), Circuit(20).h(list(range(20)))], {"method": "exact"}, MemoryError, "n=20 qubits", "This is about circuit[1]."),
        ([Circuit(1), Circuit(1).h(0).save_state("a")], {"method": "trajectories"}, ValueError, "finds no state", "This is about circuit[1]."),
        ([Circuit(1)], {"method": "trajectories", "shots": None}, ValueError, "shots must be given", "This is about circuit[0]."),
        ([Circuit(1)], {"noise": 0.1}, TypeError, "noise must be a NoiseModel", None),
        ([Circuit(1)], {"method": "trajectories", "fusion": True}, ValueError, "fusion must be False", "This is about circuit[0]."),
        ([Circuit(1), Circuit(2)], {"initial": DensityMatrix(1)}, ValueError, "initial must be a state of 2 qubits", None),
    ],
)  # fmt: skip
def test_what_is_wrong_is_told_with_its_place(circuits, options, error, message, note):
    with pytest.raises(error, match=message) as raised:
        run(circuits, **{"shots": 5, **options})
    assert getattr(raised.value, "__notes__", [None]) == [note]
