"""Noise as instructions of a circuit: shown, compared, kept, and refused by name where there is no way to follow it."""

import copy
import pickle
import xml.etree.ElementTree as ElementTree

import pytest

from velacamplix import Channel, Circuit, GateDefinition, Instruction, Readout, StateVector

PAIR = Channel.depolarizing(0.01, 2)
FLIP = Channel.bit_flip(0.25)
MISREAD = Instruction("measure", (1, 0), clbits=(0, 1), detail=Readout(((0.02, 0.05), (0, 1))))


def noisy():
    circuit = Circuit(3, 2).h(0).cx(0, 1).channel(PAIR, [2, 0]).channel(FLIP, 1)
    with circuit.when(0, 1):
        circuit.channel(FLIP, 2)
    body = Circuit(3, 2).channel(FLIP, 0)
    return circuit.if_(circuit.bits(1) == 1, body).append(MISREAD)


def test_a_channel_is_an_instruction():
    circuit = Circuit(3).channel(PAIR, [2, 0])
    (step,) = circuit
    assert step == Instruction("channel", (2, 0), detail=PAIR) and not step.is_gate and step.is_noise
    assert circuit == Circuit(3).append(step) != Circuit(3).channel(PAIR, [0, 2])
    assert circuit != Circuit(3).channel(Channel.depolarizing(0.02, 2), [2, 0])
    assert hash(step) == hash(Circuit(3).channel(PAIR, [2, 0])[0])


def test_text():
    assert str(noisy()).splitlines() == [
        "H 0",
        "CNOT 0,1",
        "channel depolarizing(0.01) 2,0",
        "channel bit_flip(0.25) 1",
        "channel bit_flip(0.25) 2 if c[0] == 1",
        "if c[1] == 1:",
        "    channel bit_flip(0.25) 0",
        "measure 1,0 -> 0,1 misread (0.02, 0.05), (0, 1)",
    ]
    assert noisy()[-1].title == "measure 1,0 -> 0,1 misread (0.02, 0.05), (0, 1)"


def test_drawings():
    circuit = Circuit(2, 1).h(0).channel(PAIR, [1, 0]).channel(FLIP, 0)
    circuit.append(Instruction("measure", (0,), clbits=(0,), detail=Readout(((0.02, 0.05),))))
    assert str(circuit.draw(width=120, ascii=True)).splitlines() == [
        "q[0]: -[H]-[depolarizing(0.01):1]-[bit_flip(0.25)]-[M->c[0] (0.02, 0.05)]-",
        "                     |",
        "q[1]: -----[depolarizing(0.01):0]-----------------------------------------",
    ]
    picture = circuit.draw("svg")
    words = "".join(ElementTree.fromstring(picture).itertext())
    assert "depolarizing(0.01)" in words and "bit_flip(0.25)" in words and "c[0] (0.02, 0.05)" in words
    assert noisy().draw(width=120) and noisy().draw("svg")


def test_plots():
    pytest.importorskip("matplotlib", reason="plot_circuit needs matplotlib: pip install velacamplix[plot]")
    import matplotlib

    matplotlib.use("agg")
    from velacamplix import plot_circuit

    texts = [text.get_text() for text in plot_circuit(noisy()).texts]
    assert "depolarizing(0.01)" in texts and "bit_flip(0.25)" in texts


def test_counts_and_depth():
    assert noisy().count_ops() == {"channel bit_flip": 3, "H": 1, "CNOT": 1, "channel depolarizing": 1}
    assert Circuit(2).h(0).channel(PAIR, [0, 1]).h(1).depth() == 2
    assert Circuit(1).channel(FLIP, 0).depth() == 0


def test_kept_and_moved():
    circuit = noisy()
    assert pickle.loads(pickle.dumps(circuit)) == circuit == circuit.copy() == copy.deepcopy(circuit)
    moved = Circuit(5, 4).compose(circuit, [4, 3, 2], [3, 2])
    assert str(moved[2]) == "channel depolarizing(0.01) 2,4" and str(moved[3]) == "channel bit_flip(0.25) 3"
    assert str(moved[-2]) == "if c[2] == 1:\n    channel bit_flip(0.25) 4"
    assert str(moved[-1]) == "measure 3,4 -> 3,2 misread (0.02, 0.05), (0, 1)"
    assert (circuit + circuit)[2] == circuit[2] and len(circuit * 2) == 2 * len(circuit)
    assert list(circuit.basic_instructions()) == list(circuit)
    assert not circuit.parameters


NOISE = r"instruction 0 \(channel bit_flip\(0.25\) 0\)"


@pytest.mark.parametrize(
    "call, message",
    [
        (lambda c: c.inverse(), r"channel has no inverse, got channel bit_flip\(0.25\) 0: what noise has lost does not come back"),
        (lambda c: c.power(-1), "channel has no inverse"),
        (lambda c: c.controlled(), r"takes gates, barriers and decisions among them, got channel bit_flip\(0.25\) 0"),
        (lambda c: c.to_matrix(), r"gates and barriers without conditions for a matrix, got instruction 0, channel bit_flip"),
        (lambda c: c.statevector(), "no one final state: the run was one with noise, which leaves a mixture"),
        (lambda c: c.to_qasm(), rf"{NOISE} cannot be written in OpenQASM 2: it has no noise"),
        (lambda c: c.to_qasm3(), rf"{NOISE} cannot be written in OpenQASM 3: it has no noise"),
        (lambda c: StateVector(1).run(c), rf"{NOISE}: a state vector holds no mixture of states"),
        (lambda c: GateDefinition("noisy", c), r"gates and barriers without conditions only, got channel bit_flip\(0.25\) 0"),
        (lambda c: c.value_and_gradient("Z0"), r"instruction 0 \(channel bit_flip\(0.25\) 0\) is noise"),
    ],
)
def test_what_noise_cannot_be_asked(call, message):
    with pytest.raises((ValueError, RuntimeError), match=message):
        call(Circuit(1).channel(FLIP, 0))


@pytest.mark.parametrize(
    "call, message",
    [
        (lambda c: c.to_qasm(), r"instruction 0 \(measure 0 -> 0 misread \(0.1, 0.2\)\) cannot be written in OpenQASM 2: it has no noise"),
        (lambda c: c.to_qasm3(), r"instruction 0 \(measure 0 -> 0 misread .*\) cannot be written in OpenQASM 3: it has no noise"),
        (lambda c: StateVector(1).run(c), r"instruction 0 \(measure 0 -> 0 misread"),
    ],
)
def test_misread_measurements_are_not_taken_for_others(call, message):
    step = Instruction("measure", (0,), clbits=(0,), detail=Readout(((0.1, 0.2),)))
    with pytest.raises((ValueError, NotImplementedError), match=message):
        call(Circuit(1, 1).append(step))


@pytest.mark.parametrize(
    "call, message",
    [
        (lambda: Circuit(2).channel("X", 0), r"channel must be a Channel, such as Channel.depolarizing\(0.01\), got 'X'"),
        (lambda: Circuit(2).channel(PAIR, 0), r"qubits must be 2, as many as Channel.depolarizing\(0.01, qubits=2\) acts on, got 1"),
        (lambda: Circuit(2).channel(PAIR, [0, 0]), "qubits must be distinct"),
        (lambda: Circuit(2).channel(PAIR, [0, 2]), r"qubits\[1\] must be a number from 0 to 1, got 2"),
        (lambda: Circuit(2).append(Instruction("channel", (0,))), "detail of 'channel' must be Channel, got None"),
        (lambda: Circuit(2).append(Instruction("X", (0,), detail=FLIP)), "detail of 'X' must be None"),
        (lambda: Circuit(2).append(Instruction("channel", (0,), (0.5,), detail=FLIP)), "params, controls and definition of channel"),
        (lambda: Circuit(2, 1).append(Instruction("channel", (0,), clbits=(0,), detail=FLIP)), "clbits of channel must be empty"),
        (lambda: Circuit(2).append(Instruction("channel", (0,), controls=(1,), detail=FLIP)), "params, controls and definition of channel"),
        (lambda: misread(FLIP), "detail of 'measure' must be Readout or None"),
        (lambda: misread(Readout(())), "flips must be one pair for each measured qubit, got 0 for 1"),
        (lambda: misread(Readout(((0.1,),))), r"flips\[0\] must be two probabilities"),
        (lambda: misread(Readout(((0.1, 1.5),))), r"flips\[0\]\[1\] must be a probability, from 0 to 1, got 1.5"),
        (lambda: misread(Readout(3)), "flips must be a sequence of pairs of probabilities, got 3"),
    ],
)
def test_what_is_wrong_is_told(call, message):
    with pytest.raises((TypeError, ValueError, IndexError), match=message):
        call()


def misread(detail):
    return Circuit(1, 1).append(Instruction("measure", (0,), clbits=(0,), detail=detail))
