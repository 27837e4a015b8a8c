"""Where a model puts noise: rules, waiting, readout; and models as plain values."""

import copy
import json
import math
import pickle
import warnings

import numpy as np
import pytest

from velacamplix import (
    Channel,
    Circuit,
    Condition,
    GateDefinition,
    NoiseModel,
    Parameter,
    Readout,
)

PAIR = Channel.depolarizing(0.01, 2)
FLIP = Channel.bit_flip(0.25)
TURN = Channel.phase_flip(0.125)
HALF = Channel.pauli({"XI": 0.5})  # the first of two qubits


def lines(circuit):
    return str(circuit).replace("channel depolarizing(0.01)", "PAIR").replace("channel bit_flip(0.25)", "FLIP").replace(
        "channel phase_flip(0.125)", "TURN"
    ).replace("channel pauli(II 0.5, XI 0.5)", "HALF").splitlines()  # fmt: skip


# --- Rules ---


def test_noise_stands_after_and_before_gates_in_the_order_of_the_rules():
    model = NoiseModel().after("h", FLIP).after(["h", "cx"], TURN).before("cx", PAIR).after("cx", PAIR)
    assert lines(model.apply(Circuit(3).h(1).cx(2, 0))) == [
        "H 1", "FLIP 1", "TURN 1", "PAIR 2,0", "CNOT 2,0", "TURN 2", "TURN 0", "PAIR 2,0",
    ]  # fmt: skip


CX = [
    lambda: Circuit(2).cx(0, 1),
    lambda: Circuit(2).x(1, controls=0),
    lambda: Circuit(2).gate(GateDefinition("own", Circuit(2).cx(0, 1)), [0, 1]),
    lambda: Circuit(2).gate(GateDefinition("own_flip", Circuit(1).x(0)), 1, controls=0),
    lambda: Circuit.from_qasm('OPENQASM 2.0; include "qelib1.inc"; gate g a,b {cx a,b;} qreg q[2]; g q[0],q[1];'),
]


@pytest.mark.parametrize("name", ["cx", "CNOT", "CX", "cnot", "cX"])
@pytest.mark.parametrize("make", CX)
def test_a_gate_has_many_names(name, make):
    assert lines(NoiseModel().after(name, PAIR).apply(make()))[-1] == "PAIR 0,1"


@pytest.mark.parametrize(
    "name, circuit",
    [
        ("p", Circuit(1).ph(0.5, 0)),
        ("u1", Circuit(1).ph(0.5, 0)),
        ("ccx", Circuit(3).x(2, controls=[0, 1])),
        ("ccx", Circuit(3).cx(1, 2, controls=[0])),
        ("crx", Circuit(2).rx(0.5, 1, controls=0)),
        ("cRX", Circuit(2).rx(0.5, 1, controls=0)),
        ("c2RX", Circuit(3).rx(0.5, 1, controls=[0, 2])),
        ("c3x", Circuit(4).x(1, controls=[0, 2, 3])),
        ("cz", Circuit(2).z(1, controls=0)),
        ("matrix", Circuit(1).matrix([[0, 1], [1, 0]], 0)),
        ("diagonal", Circuit(1).diagonal([1, -1], 0)),
        ("reset", Circuit(1).reset(0)),
        ("id", Circuit(1).id(0)),
        ("rzz", Circuit(2).rzz(0.5, 0, 1)),
        ("bell", Circuit(2).gate(GateDefinition("bell", Circuit(2).h(0)), [0, 1])),
        ("cbell", Circuit(3).gate(GateDefinition("bell", Circuit(2).h(0)), [0, 1], controls=2)),
        ("cycle", Circuit(2).gate(GateDefinition("cycle", Circuit(2).h(0)), [0, 1])),
        ("c2cycle", Circuit(4).gate(GateDefinition("cycle", Circuit(2).h(0)), [0, 1], controls=[2, 3])),
    ],
)
def test_names_of_gates(name, circuit):
    (step,) = circuit
    noisy = NoiseModel().after(name, FLIP).apply(circuit)
    assert noisy[0] == step
    assert lines(noisy)[1:] == [f"FLIP {qubit}" for qubit in step.controls + step.qubits]


@pytest.mark.parametrize("name", ["x", "rx", "cx"])
def test_gates_with_controls_are_others(name):
    with pytest.warns(UserWarning, match="c2RX, h"):
        noisy = NoiseModel().after(name, FLIP).apply(Circuit(3).rx(0.5, 0, controls=[1, 2]).h(0))
    assert noisy.count_ops() == {"c2RX": 1, "H": 1}


def test_on_some_qubits():
    model = NoiseModel().after("cx", FLIP, qubits=[(0, 1)]).after("h", TURN, qubits=[2, 0]).before("measure", FLIP, 1)
    circuit = Circuit(3, 3).cx(0, 1).cx(1, 0).h(0).h(1).h(2).measure([0, 1], [0, 1])
    assert lines(model.apply(circuit)) == [
        "CNOT 0,1", "FLIP 0", "FLIP 1", "CNOT 1,0", "H 0", "TURN 0", "H 1", "H 2", "TURN 2", "FLIP 1", "measure 0,1 -> 0,1",
    ]  # fmt: skip


@pytest.mark.parametrize("circuit", [Circuit(2).cz(1, 0), Circuit(2).swap(1, 0), Circuit(2).rzz(0.5, 1, 0), Circuit(2).cp(0.5, 1, 0)])
def test_qubits_that_play_the_same_part_have_no_order(circuit):
    name = {"CSIGN": "cz", "SWAP": "swap", "rzz": "rzz", "PH": "cp"}[circuit[0].name]
    assert lines(NoiseModel().after(name, PAIR, [(0, 1)]).apply(circuit))[1:] == ["PAIR 0,1"]


def test_noise_of_such_a_gate_hits_the_qubits_in_the_order_of_the_rule():
    model = NoiseModel().after("cz", HALF, [(0, 1)])
    assert lines(model.apply(Circuit(2).cz(1, 0).cz(0, 1)))[1::2] == ["HALF 0,1"] * 2
    # Both orders are listed: then each is its own, as it is without qubits.
    both = NoiseModel().after("cz", HALF, [(0, 1), (1, 0)])
    everywhere = NoiseModel().after("cz", HALF)
    for model in both, everywhere:
        assert lines(model.apply(Circuit(2).cz(1, 0)))[1:] == ["HALF 1,0"]


def test_a_rule_takes_the_place_of_earlier_ones():
    model = (
        NoiseModel().after("cx", PAIR).after(["cx", "h"], TURN).before("cx", TURN)
        .after("cx", FLIP, [(0, 1)], replace=True).after("cx", PAIR, [(0, 1), (2, 1)])
    )  # fmt: skip
    assert lines(model.apply(Circuit(3).h(0).cx(0, 1).cx(1, 0).cx(2, 1))) == [
        "H 0", "TURN 0",
        "TURN 0", "TURN 1", "CNOT 0,1", "FLIP 0", "FLIP 1", "PAIR 0,1",
        "TURN 1", "TURN 0", "CNOT 1,0", "PAIR 1,0", "TURN 1", "TURN 0",
        "TURN 2", "TURN 1", "CNOT 2,1", "PAIR 2,1", "TURN 2", "TURN 1", "PAIR 2,1",
    ]  # fmt: skip
    assert lines(model.after("cx", TURN, replace=True).apply(Circuit(2).cx(0, 1).h(0)))[2:5] == ["CNOT 0,1", "TURN 0", "TURN 1"]
    # None is left without a gate, since each has found one.
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        NoiseModel().after("h", FLIP).after("h", TURN, replace=True).apply(Circuit(1).h(0))


def test_a_rule_takes_the_place_of_others_where_it_stands_only():
    reading = NoiseModel().before("measure", FLIP).before("measure", TURN, 1, replace=True).after("reset", FLIP, 0)
    reading = reading.after("reset", TURN, 0, replace=True)
    assert lines(reading.apply(Circuit(3, 3).reset(0).measure([0, 1, 2], [0, 1, 2]))) == [
        "reset 0", "TURN 0", "FLIP 0", "FLIP 2", "TURN 1", "measure 0,1,2 -> 0,1,2",
    ]  # fmt: skip
    gate = GateDefinition("pair", Circuit(2).cx(0, 1))
    inside = NoiseModel().after("cx", PAIR).after("cx", FLIP, [(1, 0)], replace=True).after("pair", TURN)
    assert lines(inside.apply(Circuit(2).gate(gate, [1, 0]).gate(gate, [0, 1]))) == [
        "CNOT 1,0", "FLIP 1", "FLIP 0", "TURN 1", "TURN 0", "CNOT 0,1", "PAIR 0,1", "TURN 0", "TURN 1",
    ]  # fmt: skip
    turned = NoiseModel().after("cz", TURN).after("cz", HALF, [(0, 1)], replace=True)
    assert lines(turned.apply(Circuit(2).cz(1, 0))) == ["CSIGN 1,0", "HALF 0,1"]


def test_definitions_are_opened_where_noise_stands_inside():
    inner = GateDefinition("inner", Circuit(2).ry(Parameter("a"), 0).cx(0, 1).barrier())
    outer = GateDefinition("outer", Circuit(2).gate(inner, [1, 0], [2 * Parameter("b")]).h(1))
    other = GateDefinition("other", Circuit(1).t(0))
    circuit = Circuit(3, 1).gate(outer, [2, 1], [0.25]).gate(other, 0)
    assert lines(NoiseModel().after("cx", PAIR).apply(circuit)) == [
        "RY(0.5) 1", "CNOT 1,2", "PAIR 1,2", "barrier 1,2", "H 1", "other 0",
    ]  # fmt: skip
    assert lines(NoiseModel().after("outer", FLIP).before("inner", TURN).apply(circuit)) == [
        "TURN 1", "TURN 2", "inner(0.5) 1,2", "H 1", "FLIP 2", "FLIP 1", "other 0",
    ]  # fmt: skip
    with circuit.when(0, 1):
        circuit.gate(outer, [2, 1], [0.25])
    assert lines(NoiseModel().after("cx", PAIR).apply(circuit))[-5:] == [
        "RY(0.5) 1 if c[0] == 1", "CNOT 1,2 if c[0] == 1", "PAIR 1,2 if c[0] == 1", "barrier 1,2", "H 1 if c[0] == 1",
    ]  # fmt: skip


def test_definitions_with_open_controls():
    gate = GateDefinition("turned", Circuit(2).h(0).x(1, controls=0).x(1))
    circuit = Circuit(4).gate(gate, [0, 1], controls=[2, 3], control_values="01")
    noisy = NoiseModel().after("c2H", FLIP).apply(circuit)
    assert [str(step) for step in noisy if step.is_gate] == [
        'H 0 controls 2,3 == "01"', 'X 1 controls 2,3,0 == "011"', 'X 1 controls 2,3 == "01"',
    ]  # fmt: skip
    assert np.abs(Circuit(4).extend([step for step in noisy if step.is_gate]).to_matrix() - circuit.to_matrix()).max() < 1e-15


def test_definitions_and_bodies_as_deep_as_they_may_be():
    gate = GateDefinition("level_0", Circuit(2).cx(0, 1))
    for level in range(1, 100):
        gate = GateDefinition(f"level_{level}", Circuit(2).gate(gate, [0, 1]))
    model = NoiseModel().after("cx", PAIR).idle(1, 1, {"cx": 1})
    assert lines(model.apply(Circuit(2).gate(gate, [1, 0]))) == ["CNOT 1,0", "PAIR 1,0"]
    circuit = Circuit(2, 1).cx(0, 1)
    for _ in range(50):
        circuit = Circuit(2, 1).if_(Condition((0,), 1), circuit)
    assert lines(model.apply(circuit))[50].strip() == "CNOT 0,1"


def test_in_bodies():
    circuit = Circuit(2, 2).h(0).measure(0, 0)
    circuit.if_(circuit.bits(0) == 1, Circuit(2, 2).x(1), Circuit(2, 2).h(1))
    circuit.while_(circuit.bits(0) == 1, Circuit(2, 2).h(0).measure(0, 0))
    circuit.switch([0, 1], {1: Circuit(2, 2).h(1)}, default=Circuit(2, 2).x(1))
    assert lines(NoiseModel().after("h", FLIP).readout(0.1, 0.2).apply(circuit)) == [
        "H 0",
        "FLIP 0",
        "measure 0 -> 0 misread (0.1, 0.2)",
        "if c[0] == 1:",
        "    X 1",
        "else:",
        "    H 1",
        "    FLIP 1",
        "while c[0] == 1:",
        "    H 0",
        "    FLIP 0",
        "    measure 0 -> 0 misread (0.1, 0.2)",
        "switch c[0, 1]:",
        "    case 1:",
        "        H 1",
        "        FLIP 1",
        "    default:",
        "        X 1",
    ]


def test_conditions():
    circuit = Circuit(2, 1)
    with circuit.when(0, 1):
        circuit.h(0).measure(1, 0)
    assert lines(NoiseModel().after("h", FLIP).before("measure", TURN).apply(circuit)) == [
        "H 0 if c[0] == 1", "FLIP 0 if c[0] == 1", "TURN 1 if c[0] == 1", "measure 1 -> 0 if c[0] == 1",
    ]  # fmt: skip
    # What follows a measurement must not ask what it has written.
    assert lines(NoiseModel().after("measure", FLIP).readout(0.1, 0.2).apply(circuit)) == [
        "H 0 if c[0] == 1", "if c[0] == 1:", "    measure 1 -> 0 misread (0.1, 0.2)", "    FLIP 1",
    ]  # fmt: skip


def test_everything_else_stays():
    circuit = Circuit(2, 2).h(0).barrier().save_state("a").gphase(0.5).measure_all()
    circuit.note = "mine"
    noisy = NoiseModel().after("h", FLIP).apply(circuit)
    assert [step for step in noisy if step.name != "channel"] == list(circuit)
    assert noisy.registers == circuit.registers and noisy.note == "mine" and NoiseModel().apply(circuit) == circuit
    open_circuit = Circuit(1).rx(Parameter("x"), 0)
    assert NoiseModel().after("rx", FLIP).apply(open_circuit).parameters == ("x",)
    assert lines(NoiseModel().after("rx", FLIP).apply(open_circuit).bind(x=0.5)) == ["RX(0.5) 0", "FLIP 0"]


def test_a_rule_that_finds_nothing_warns():
    circuit = Circuit(2, 1).h(0).gate(GateDefinition("bell", Circuit(2).cx(0, 1)), [0, 1]).measure(0, 0)
    with pytest.warns(UserWarning) as caught:
        NoiseModel().after("rx", FLIP).after("cx", PAIR, [(1, 0)]).before("measure", FLIP).apply(circuit)
    assert str(caught[0].message) == (
        "after('rx', Channel.bit_flip(0.25)), after('cx', Channel.depolarizing(0.01, qubits=2), qubits=[(1, 0)]) found nothing to "
        "stand beside; the circuit has these gates: bell, cx, h, measure"
    )
    assert caught[0].filename == __file__ and len(caught) == 1
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        NoiseModel().after("cx", PAIR).after("h", FLIP).readout(0.1, 0.1, qubits=7).apply(circuit)


# --- Waiting ---


T1, T2, DURATIONS = 50.0, 70.0, {"h": 1.0, "cx": 3.0, "measure": 10.0, "x": 0.5}
WAITING = NoiseModel().idle(T1, T2, DURATIONS)


def wait(time, qubit, t1=T1, t2=T2):
    return f"channel {Channel.thermal_relaxation(t1, t2, time)} {qubit}"


def test_what_a_qubit_has_waited_stands_before_what_it_waited_for():
    circuit = Circuit(3, 3).h(0).cx(0, 1).x(2).measure_all()
    assert str(WAITING.apply(circuit)).splitlines() == [
        "H 0", wait(1.0, 1), "CNOT 0,1", "X 2", wait(3.5, 2), "measure 0,1,2 -> 0,1,2",
    ]  # fmt: skip
    # Apart they are measured as soon as they can be.
    apart = Circuit(3, 3).h(0).cx(0, 1).x(2).measure(0, 0).measure(1, 1).measure(2, 2)
    assert str(WAITING.apply(apart)).splitlines() == [
        "H 0", wait(1.0, 1), "CNOT 0,1", "X 2", "measure 0 -> 0", "measure 1 -> 1", "measure 2 -> 2",
    ]  # fmt: skip


def test_barriers_align():
    circuit = Circuit(3).cx(0, 1).barrier(1, 2).x(2).h(1).h(0)
    assert str(WAITING.apply(circuit)).splitlines() == ["CNOT 0,1", "barrier 1,2", wait(3.0, 2), "X 2", "H 1", "H 0"]


def test_waiting_comes_before_other_noise_and_adds_up():
    model = WAITING.before("x", FLIP).after("x", TURN)
    circuit = Circuit(2).h(0).h(0).h(0).barrier().barrier().x(1)
    assert lines(model.apply(circuit))[-4:] == [wait(3.0, 1), "FLIP 1", "X 1", "TURN 1"]


def test_times_add_up_as_they_are_written():
    model = NoiseModel().idle(T1, T2, {"h": 0.1, "x": 0.2, "y": 0.3})
    assert str(model.apply(Circuit(2).h(0).x(0).y(1).barrier().y(0).y(1))).count("channel") == 0
    model = NoiseModel().idle(T1, T2, {"h": 0.1 + 0.2, "y": 0.3})  # one of them has a digit more
    assert str(model.apply(Circuit(2).h(0).y(1).barrier().y(0).y(1))).count("channel") == 0


def test_times_of_some_qubits():
    model = WAITING.idle(20.0, 10.0, {"h": {(1,): 2.0, (0,): 4.0}}, qubits=[1])
    assert str(model.apply(Circuit(3).h(0).cx(0, 1).cx(1, 2))).splitlines() == [
        "H 0", wait(4.0, 1, 20.0, 10.0), "CNOT 0,1", wait(7.0, 2), "CNOT 1,2",
    ]  # fmt: skip
    only = NoiseModel().idle(T1, T2, DURATIONS, qubits=2)
    assert str(only.apply(Circuit(3).h(0).cx(0, 1).cx(1, 2))).splitlines() == ["H 0", "CNOT 0,1", wait(4.0, 2), "CNOT 1,2"]
    warm = NoiseModel().idle(T1, T2, DURATIONS, excited=0.25)
    assert warm.apply(Circuit(2).h(0).cx(0, 1))[1].detail == Channel.thermal_relaxation(T1, T2, 1.0, 0.25)


def test_outcomes_take_their_time():
    circuit = Circuit(2, 1).h(0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(1)
    assert str(WAITING.apply(circuit)).splitlines() == [
        "H 0", "measure 0 -> 0", wait(11.0, 1), f"{wait(0.5, 1)} if c[0] == 0", "X 1 if c[0] == 1",
    ]  # fmt: skip


def test_a_decision_lasts_as_long_as_its_longest_body():
    circuit = Circuit(3, 1).h(0).measure(0, 0)
    circuit.if_(circuit.bits(0) == 1, Circuit(3, 1).x(1).h(1)).cx(1, 2)
    assert str(WAITING.apply(circuit)).splitlines() == [
        "H 0", "measure 0 -> 0", wait(11.0, 1), "if c[0] == 1:", "    X 1", "    H 1", "else:", f"    {wait(1.5, 1)}",
        wait(12.5, 2), "CNOT 1,2",
    ]  # fmt: skip
    circuit = Circuit(2, 1).switch(0, {0: Circuit(2, 1).h(0).cx(0, 1), 1: Circuit(2, 1).x(0)})
    assert str(WAITING.apply(circuit)).splitlines() == [
        "switch c[0]:", "    case 0:", "        H 0", f"        {wait(1.0, 1)}", "        CNOT 0,1", "    case 1:", "        X 0",
        f"        {wait(3.5, 0)}", f"        {wait(4.0, 1)}", "    default:", f"        {wait(4.0, 0)}", f"        {wait(4.0, 1)}",
    ]  # fmt: skip


def test_definitions_last_as_long_as_what_is_in_them_unless_they_are_named():
    circuit = Circuit(3).gate(GateDefinition("bell", Circuit(2).h(0).cx(0, 1)), [0, 1]).cx(1, 2)
    assert str(WAITING.apply(circuit)).splitlines() == ["H 0", wait(1.0, 1), "CNOT 0,1", wait(4.0, 2), "CNOT 1,2"]
    named = WAITING.idle(T1, T2, {"bell": 7.0})
    assert str(named.apply(circuit)).splitlines() == ["bell 0,1", wait(7.0, 2), "CNOT 1,2"]


def test_what_lasts_no_time():
    circuit = Circuit(2).gphase(0.5).save_state("a").channel(FLIP, 0).h(0).barrier().channel(TURN, 1)
    assert lines(WAITING.apply(circuit)) == [
        "gphase(0.5)", "save state 'a'", "FLIP 0", "H 0", "barrier 0,1", wait(1.0, 1), "TURN 1",
    ]  # fmt: skip


def test_what_has_no_duration_is_told():
    with pytest.raises(ValueError, match="durations must tell how long ry on qubit 1 lasts, .* got none for RY"):
        WAITING.apply(Circuit(2).h(0).ry(0.5, 1))
    with pytest.raises(ValueError, match="durations must tell how long cx on qubits 1, 0 lasts"):
        NoiseModel().idle(T1, T2, {"cx": {(0, 1): 1.0}}).apply(Circuit(2).cx(0, 1).cx(1, 0))
    loop = Circuit(1, 1)
    loop.while_(loop.bits(0) == 1, Circuit(1, 1).h(0).measure(0, 0))
    with pytest.raises(ValueError, match="circuit must be without while_ where qubits relax"):
        WAITING.apply(loop)


# --- Readout ---


def test_readout():
    model = NoiseModel().readout(0.02, 0.05).readout(0.125, 0.25, qubits=[2, 4])
    step = model.apply(Circuit(5, 5).measure([0, 2, 1], [1, 0, 2]))[0]
    assert step.detail == Readout(((0.02, 0.05), (0.125, 0.25), (0.02, 0.05))) and step.clbits == (1, 0, 2)
    assert model.readout_of(4) == (0.125, 0.25) and model.readout_of(0) == (0.02, 0.05)
    assert NoiseModel().readout_of(3) == (0.0, 0.0)
    matrix = NoiseModel().readout(matrix=[[0.98, 0.02], [0.05, 0.95]])
    assert matrix == NoiseModel().readout(0.02, 0.05)
    assert NoiseModel().readout(0, 0).apply(Circuit(1, 1).measure(0, 0))[0].detail is None


def test_what_is_misread_twice():
    """As the product of two matrices of conditional probabilities."""
    one, two = NoiseModel().readout(0.1, 0.2), NoiseModel().readout(0.3, 0.05)
    ((up, down),) = two.apply(one.apply(Circuit(1, 1).measure(0, 0)))[0].detail.flips
    both = np.array([[0.9, 0.1], [0.2, 0.8]]) @ np.array([[0.7, 0.3], [0.05, 0.95]])
    assert [[1 - up, up], [down, 1 - down]] == pytest.approx(both)


# --- As plain values ---


FULL = (
    NoiseModel()
    .after("cx", PAIR, qubits=[(0, 1), (1, 0)])
    .before(["measure", "reset"], Channel.pauli({"X": 0.1, "Y": 0.01}), qubits=[0, 2])
    .after("h", Channel.amplitude_damping(0.1))
    .after("x", Channel.coherent([[1, 0], [0, np.exp(0.1j)]]))
    .after("y", Channel.from_kraus([np.diag([1, math.sqrt(0.7)]), [[0, math.sqrt(0.3)], [0, 0]]]))
    .after("z", Channel.from_unitaries([0.25, 0.75], [[[0, 1], [1, 0]], np.eye(2)]))
    .after("t", Channel.reset(0.1, 0.2))
    .after("t", Channel.reset(0.1), qubits=3, replace=True)
    .idle(50e-6, 70e-6, {"cx": {(0, 1): 3e-7}, "h": 35e-9}, excited=0.01)
    .idle(40e-6, 60e-6, {"x": 35e-9}, qubits=[1])
    .readout(0.02, 0.05)
    .readout(0.01, 0.02, qubits=[0, 3])
)


def test_models_are_plain_values():
    assert NoiseModel.from_dict(json.loads(json.dumps(FULL.to_dict()))) == FULL
    assert pickle.loads(pickle.dumps(FULL)) == FULL and hash(pickle.loads(pickle.dumps(FULL))) == hash(FULL)
    assert copy.deepcopy(FULL) == FULL != NoiseModel() and FULL != "model"
    assert NoiseModel.from_dict({"rules": [], "idle": [], "durations": [], "readout": []}) == NoiseModel()
    before = NoiseModel()
    before.after("h", FLIP).readout(0.1, 0.1).idle(1, 1, {"h": 1})
    assert before == NoiseModel()
    text = repr(NoiseModel().after(["h", "x"], FLIP).before("measure", TURN, 0).readout(0.1, 0.2, qubits=3))
    assert text == (
        "NoiseModel().after(['h', 'x'], Channel.bit_flip(0.25)).before('measure', Channel.phase_flip(0.125), qubits=[(0,)])"
        ".readout(0.1, 0.2, qubits=[3])"
    )
    assert repr(FULL)


TABLE = {
    "qubits": [
        {"t1": 50e-6, "t2": 70e-6, "p1_given_0": 0.02, "p0_given_1": 0.05},
        {"t1": 40e-6, "t2": 30e-6, "excited": 0.01},
        {"p1_given_0": 0.01, "p0_given_1": 0.03},
    ],
    "gates": [
        {"gate": "cx", "qubits": [0, 1], "error": 0.0075, "duration": 300e-9},
        {"gate": "cx", "qubits": [1, 2], "error": 0.015, "duration": 400e-9},
        {"gate": "h", "error": 0.0005, "duration": 35e-9},
        {"gate": "measure", "duration": 1e-6},
    ],
}


def test_a_table_of_figures():
    with warnings.catch_warnings():
        warnings.simplefilter("error")  # a device has more than a circuit uses
        noisy = NoiseModel.from_calibration(TABLE).apply(Circuit(3, 3).h(0).cx(0, 1).measure([0, 2, 1], [0, 1, 2]))
    relaxed = Channel.thermal_relaxation(40e-6, 30e-6, 35e-9, 0.01)
    assert str(noisy).splitlines() == [
        "H 0", "channel depolarizing(0.001) 0", f"channel {relaxed} 1", "CNOT 0,1", "channel depolarizing(0.01) 0,1",
        "measure 0,2,1 -> 0,1,2 misread (0.02, 0.05), (0.01, 0.03), (0, 0)",
    ]  # fmt: skip


def test_a_row_for_some_qubits_takes_the_place_of_one_for_all():
    rows = [{"gate": "h", "qubits": [1], "error": 0.25}, {"gate": "h", "error": 0.05}]
    for gates in rows, rows[::-1]:
        noisy = NoiseModel.from_calibration({"gates": gates}).apply(Circuit(2).h([0, 1]))
        assert lines(noisy) == ["H 0", "channel depolarizing(0.1) 0", "H 1", "channel depolarizing(0.5) 1"]


def test_errors_of_a_table_are_average_infidelities():
    """The mean of <psi| channel(psi) |psi> over states drawn by Haar's measure."""
    channel = NoiseModel.from_calibration({"gates": [{"gate": "cx", "error": 0.3}]}).apply(Circuit(2).cx(0, 1))[1].detail
    rng = np.random.default_rng(1)
    states = rng.normal(size=(200, 4)) + 1j * rng.normal(size=(200, 4))
    states /= np.linalg.norm(states, axis=1)[:, np.newaxis]
    kept = [sum(abs(state.conj() @ operator @ state) ** 2 for operator in channel.kraus()) for state in states]
    assert np.mean(kept) == pytest.approx(0.7, abs=1e-12)


# --- What is wrong ---


@pytest.mark.parametrize(
    "call, message",
    [
        (lambda: NoiseModel().after("barrier", FLIP), "gates must be names of gates, definitions, measure or reset, got 'barrier'"),
        (lambda: NoiseModel().after(3, FLIP), "gates must be a sequence of names, got 3"),
        (lambda: NoiseModel().after([3], FLIP), "gates must hold names of gates, got 3"),
        (lambda: NoiseModel().after([], FLIP), r"gates must hold at least one name, .* got \[\]"),
        (lambda: NoiseModel().after("h", FLIP, replace=1), "replace must be True or False, got 1"),
        (lambda: NoiseModel().before("h", FLIP, replace="yes"), "replace must be True or False, got 'yes'"),
        (lambda: NoiseModel().after("h", "X"), "channel must be a Channel, such as .* got 'X'"),
        (lambda: NoiseModel().after("h", PAIR), r"channel must act on 1 qubit beside h, got Channel.depolarizing\(0.01, qubits=2\) on 2"),
        (lambda: NoiseModel().before("measure", PAIR), "channel must act on 1 qubit beside measure"),
        (lambda: NoiseModel().after("ccx", PAIR), "channel must act on 1 or 3 qubits beside ccx"),
        (lambda: NoiseModel().after("cx", FLIP, [0, 1]), r"qubits must be tuples of 2 for cx, as in \[\(0, 1\)\], got \(0,\)"),
        (lambda: NoiseModel().after("cx", FLIP, []), "qubits must name at least one place, got none; leave it out for all"),
        (lambda: NoiseModel().after("cx", FLIP, "01"), r"qubits\[0\] must be a sequence of integers, got '01'"),
        (lambda: NoiseModel().after("cx", FLIP, [(0, 0)]), r"qubits\[0\] must be distinct"),
        (lambda: NoiseModel().after("h", FLIP, -1), r"qubits\[0\]\[0\] must be a number from 0"),
        (lambda: NoiseModel().after("own", PAIR).apply(own(1)), r"channel must act on 1 or 1 qubits beside own 0"),
        (lambda: NoiseModel().add_readout_error(), r"here that is noise.readout\(p1_given_0"),
        (lambda: NoiseModel.from_backend(), r"here that is NoiseModel.from_calibration\(table\)"),
        (lambda: PAIR.compose(PAIR), r"here that is one.then\(two\)"),
        (lambda: Circuit(1).kraus(), r"here that is circuit.channel\(Channel.from_kraus\(matrices\), qubits\)"),
        (lambda: NoiseModel().apply("circuit"), "circuit must be a Circuit, got 'circuit'"),
        (lambda: NoiseModel().idle(1, 3, {}), r"t2 must be at most 2 \* t1"),
        (lambda: NoiseModel().idle(1, 1, {"h": -1}), "the duration of 'h' must not be negative, got -1"),
        (lambda: NoiseModel().idle(1, 1, {"h": float("nan")}), "the duration of 'h' must be finite"),
        (lambda: NoiseModel().idle(1, 1, {"h": "1"}), "the duration of 'h' must be a real number"),
        (lambda: NoiseModel().idle(1, 1, {3: 1}), "gates must hold names of gates, got 3"),
        (lambda: NoiseModel().idle(1, 1, 3), "durations must be a dictionary of names of gates and times"),
        (lambda: NoiseModel().idle(1, 1, {}, excited=2), "excited must be a probability"),
        (lambda: NoiseModel().idle(1, 1, {}, qubits=[0, 0]), "qubits must be distinct"),
        (lambda: NoiseModel().readout(0.1), "p1_given_0 and p0_given_1 must both be given, or matrix, got 0.1 and None"),
        (lambda: NoiseModel().readout(0.1, 1.5), "p0_given_1 must be a probability, from 0 to 1, got 1.5"),
        (lambda: NoiseModel().readout(0.1, 0.1, matrix=[[1, 0], [0, 1]]), "matrix must be given alone"),
        (lambda: NoiseModel().readout(matrix=[[1, 0]]), r"matrix must be a 2 x 2 array of numbers, got \[\[1, 0\]\]"),
        (lambda: NoiseModel().readout(matrix=[[0.9, 0.3], [0.1, 0.7]]), r"rows that add up to 1, .* got 1.2 in row 0; is it transposed\?"),
        (lambda: NoiseModel().readout(matrix=[[1.5, -0.5], [0, 1]]), r"matrix\[0, 0\] must be a probability"),
        (lambda: NoiseModel().readout(matrix="ab"), "matrix must be a 2 x 2 array of numbers, got 'ab'"),
        (lambda: NoiseModel().readout_of(-1), "qubit must be an integer of at least 0, got -1"),
        (lambda: NoiseModel.from_dict(3), "values must be a dictionary, got 3"),
        (lambda: NoiseModel.from_dict({"rules": [{}]}), "a rule must have the keys place, gates, channel, qubits, optional, replace, got .* missing"),
        (lambda: NoiseModel.from_dict({}), "values must have the keys rules, idle, durations, readout, got .* missing"),
        (lambda: NoiseModel.from_dict({"rules": 3}), r"values\['rules'\] must be a sequence of dictionaries, got 3"),
        (lambda: NoiseModel.from_dict({"rules": [3]}), r"values\['rules'\]\[0\] must be a dictionary, got 3"),
        (lambda: Channel.from_dict(3), "values must be a dictionary with the name of a class method, got 3"),
        (lambda: Channel.from_dict({"name": "exec"}), "name must be 'pauli' or .* got 'exec'"),
        (lambda: Channel.from_dict({"name": "bit_flip"}), "arguments of bit_flip must be p, got none"),
        (lambda: Channel.from_dict({"name": "bit_flip", "p": 0.1, "q": 1}), "arguments of bit_flip must be p, got p, q"),
        (lambda: Channel.from_dict({"name": "from_kraus", "matrices": [[1]]}), r"matrices must be lists of rows of pairs"),
        (lambda: NoiseModel.from_calibration(3), "table must be a dictionary, got 3"),
        (lambda: NoiseModel.from_calibration({"gate": []}), r"table must have the keys qubits, gates, got \['gate'\] unknown"),
        (lambda: NoiseModel.from_calibration({"qubits": [{"T1": 1}]}), r"qubits\[0\] of the table must have the keys t1, t2, .* got \['T1'\] unknown"),
        (lambda: NoiseModel.from_calibration({"qubits": [{"t1": 1}]}), r"qubits\[0\] of the table must have t1 and t2 together"),
        (lambda: NoiseModel.from_calibration({"qubits": [{"t1": 1, "t2": 3}], "gates": [{"gate": "h", "duration": 1}]}), r"qubits\[0\] of the table: t2 must be at most"),
        (lambda: NoiseModel.from_calibration({"qubits": [{"t1": 1, "t2": 1}]}), "gates of the table must tell durations where t1 and t2 are given"),
        (lambda: NoiseModel.from_calibration({"gates": [{"error": 1}]}), r"gates\[0\] of the table must have the keys gate, .* got \['gate'\] missing"),
        (lambda: NoiseModel.from_calibration({"gates": [{"gate": "cx", "error": 1.0}]}), "must be from 0 to 0.8, the infidelity of the most noise there is, got 1.0"),
        (lambda: NoiseModel.from_calibration({"gates": [{"gate": "own", "error": 0.1}]}), r"gates\[0\] of the table must tell qubits, because 'own' is no gate"),
        (lambda: NoiseModel.from_calibration({"gates": [{"gate": "cx", "qubits": [0], "error": 0.1}]}), "qubits must be tuples of 2 for cx|channel must act on"),
        (lambda: NoiseModel().readout(matrix=[[10**5000, 0], [0, 1]]), "matrix must be a 2 x 2 array of numbers, got .*integer of 16610 bits"),
    ],
)  # fmt: skip
def test_what_is_wrong_is_told(call, message):
    with pytest.raises((AttributeError, TypeError, ValueError, IndexError), match=message):
        call()


def own(n_qubits):
    return Circuit(n_qubits).gate(GateDefinition("own", Circuit(n_qubits).h(0)), list(range(n_qubits)))
