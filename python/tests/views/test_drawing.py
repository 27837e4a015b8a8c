"""Text drawings of circuits."""

import random

import pytest
from random_circuits import random_circuit

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, Register
from velacamplix.views.layout import MOST_COLUMNS


def drawn(circuit, **options):
    return circuit.draw(width=options.pop("width", 100), **options).splitlines()


def test_gates_in_unicode():
    circuit = Circuit(3).h(0).cx(0, 2).rx(0.5, 1).swap(0, 1).cz(1, 2).t(1, controls=[0, 2])
    assert drawn(circuit) == [
        "q[0]: ─┤H├─●───────────✕────●──",
        "           │           │    │",
        "q[1]: ─────┼─┤RX(0.5)├─✕─●─┤T├─",
        "           │             │  │",
        "q[2]: ─────⊕─────────────●──●──",
    ]


def test_gates_in_ascii():
    circuit = Circuit(2).h(0).cx(0, 1).swap(0, 1)
    assert drawn(circuit, ascii=True) == [
        "q[0]: -[H]--o--x-",
        "            |  |",
        "q[1]: -----(+)-x-",
    ]


def test_measurement_reset_condition_and_barrier():
    circuit = Circuit(2, 2).h(0).measure([0, 1], [1, 0]).reset(1).barrier()
    with circuit.when("c", 2):
        circuit.x(0)
    with circuit.when(1, 1):
        circuit.cx(0, 1)
    assert drawn(circuit) == [
        "q[0]: ─┤H├─┤M→c[1]├───────░─┤X if c==2├───────●────────",
        "                                              │",
        "q[1]: ─────┤M→c[0]├─┤|0>├─░─────────────┤X if c[1]==1├─",
    ]


def test_gates_that_wait_for_a_bit_stand_behind_its_measurement():
    circuit = Circuit(2, 1).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(1)
    first, second = drawn(circuit)
    assert first.index("M→c[0]") + len("M→c[0]") < second.index("X if c==1")


def test_boxes_on_several_qubits_number_them():
    bell = GateDefinition("bell", Circuit(2).h(0).cx(0, 1))
    assert drawn(Circuit(3).gate(bell, [2, 0])) == [
        "q[0]: ─┤bell:1├─",
        "          │",
        "q[1]: ────┼─────",
        "          │",
        "q[2]: ─┤bell:0├─",
    ]
    assert drawn(Circuit(2).rzz(Parameter("a"), 0, 1))[0] == "q[0]: ─┤rzz(a)├─"
    assert ":0" in drawn(Circuit(2).matrix([[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 1, 0], [0, 0, 0, 1]], [0, 1]))[0]


def test_registers_give_the_names():
    circuit = Circuit(3, registers=[Register("a", "quantum", 0, 1), Register("long", "quantum", 1, 2)])
    assert [line.partition(":")[0] for line in drawn(circuit.x(0))] == ["   a[0]", "long[0]", "long[1]"]


def test_idle_qubits_may_be_left_out():
    circuit = Circuit(100).h(3).cx(3, 70)
    assert len(drawn(circuit, idle=False)) == 3
    assert [line[:5] for line in drawn(circuit, idle=False)] == [" q[3]", "     ", "q[70]"]


def test_empty_circuits():
    assert str(Circuit(0).draw()) == ""
    assert drawn(Circuit(2)) == ["q[0]: ─", "q[1]: ─"]


def test_it_shows_itself():
    drawing = Circuit(1).h(0).draw(width=60)
    assert isinstance(drawing, str) and repr(drawing) == str(drawing) == "q[0]: ─┤H├─"


@pytest.mark.parametrize("width", [40, 60, 133])
@pytest.mark.parametrize("seed", range(5))
def test_no_line_is_longer_than_the_width(seed, width):
    circuit = random_circuit(seed)
    for ascii in (False, True):
        text = circuit.draw(width=width, ascii=ascii)
        assert max(map(len, text.splitlines())) <= width
        if ascii:
            assert text.isascii()
        # Every measurement is somewhere in it.
        assert text.count("M->" if ascii else "M→") == sum(step.name == "measure" for step in circuit)


def test_width_of_the_terminal_by_default(monkeypatch):
    circuit = Circuit(1)
    for _ in range(100):
        circuit.h(0)
    monkeypatch.setenv("COLUMNS", "50")
    assert 45 < max(map(len, circuit.draw().splitlines())) <= 50
    assert circuit.draw().splitlines()[0].endswith("»") and not circuit.draw().splitlines()[-1].endswith("»")


def test_long_circuits_are_cut_off_and_say_so():
    circuit = Circuit(2)
    for _ in range(MOST_COLUMNS + 5):
        circuit.h(0)
    assert circuit.draw(width=200).splitlines()[-1] == "(5 more instructions)"


def test_long_labels_are_shortened():
    name = "g" * 1000
    circuit = Circuit(1).gate(GateDefinition(name, Circuit(1)), 0)
    assert max(map(len, drawn(circuit))) < 60
    circuit = Circuit(1).append(Instruction("u3", (0,), (Parameter("angle" * 50),) * 3))
    assert max(map(len, drawn(circuit))) < 60


def test_every_instruction_can_be_drawn():
    from velacamplix.instructions.gates import GATES

    rng = random.Random(1)
    for name, shape in GATES.items():
        for n_controls in (0, 1, 2):
            qubits = rng.sample(range(6), shape.n_qubits + n_controls)
            step = Instruction(name, tuple(qubits[n_controls:]), (0.5,) * shape.n_params, tuple(qubits[:n_controls]))
            lines = drawn(Circuit(6).append(step), ascii=True)
            assert len(lines) >= 6
            touched = [line for line in lines if ":" in line and set(line.partition(": ")[2]) - set("-+")]
            assert len(touched) == len(qubits), (name, lines)


@pytest.mark.parametrize("options, kind", [({"width": 39}, ValueError), ({"width": 80.0}, TypeError), ({"ascii": 1}, TypeError), ({"idle": None}, TypeError)])
def test_refused(options, kind):
    with pytest.raises(kind, match="must be"):
        Circuit(1).draw(**options)
