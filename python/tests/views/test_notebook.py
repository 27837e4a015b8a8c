"""What a notebook shows: HTML that is well formed, escaped, small, and tells the right numbers."""

import re
import time
from xml.etree import ElementTree

import pytest

from velacamplix import (
    Circuit,
    Counts,
    GateDefinition,
    Observable,
    Parameter,
    Pass,
    Plan,
    Register,
    StateVector,
    Timings,
    run,
)


def page(thing):
    return ElementTree.fromstring(thing._repr_html_())


def rows(thing):
    return ["".join(cell.itertext()).strip() for row in page(thing).iter("tr") for cell in row.iter("td")]


def text(thing):
    return "".join(page(thing).itertext())


def bars(thing):
    return [float(width) for width in re.findall(r"width:([\d.]+)%", thing._repr_html_())]


def test_counts():
    counts = Counts({"00": 750, "11": 250})
    assert "Counts: 1000 shots" in text(counts)
    assert rows(counts) == ["00", "750", "0.7500", "11", "250", "0.2500"] and bars(counts) == [75, 25]


def test_many_counts_are_summed_up():
    counts = Counts({format(i, "07b"): i + 1 for i in range(100)})
    shown = rows(counts)
    assert shown[:2] == ["1100011", "100"] and shown[-3:-1] == ["88 others", str(sum(range(1, 89)))]
    assert len(counts._repr_html_()) < 8000


def test_no_counts():
    assert "Counts: 0 shots" in text(Counts({})) and rows(Counts({})) == []
    assert rows(Counts({"0": 0})) == ["0", "0", "0.0000"]


def test_states(precision):
    state = StateVector(3, precision, threads=1).h(0).s(0).x(2)
    size = {"double": 128, "single": 64}[precision]
    assert f"StateVector: 3 qubits, {precision} precision, 1 thread, {size} bytes" in text(state)
    assert rows(state) == ["001", "0.7071+0.0000j", "0.5000", "101", "0.0000+0.7071j", "0.5000"]


def test_states_with_many_amplitudes():
    shown = rows(StateVector(5).set_basis_state("+++++"))
    assert len(shown) == 3 * 13 and shown[-3:] == ["others", "", f"{20 / 32:.4f}"]


def test_large_states_are_not_searched():
    state = StateVector(24)
    started = time.monotonic()
    assert rows(state) == [] and "24 qubits" in text(state)
    assert time.monotonic() - started < 0.5
    state.release()  # no view was kept
    assert "released" in text(state)


def test_no_qubits():
    assert "0 qubits" in text(StateVector(0)) and rows(StateVector(0)) == ["", "1.0000+0.0000j", "1.0000"]


def test_plans():
    passes = tuple(Pass(10 * i, 10 * i + 10, (0, 1, i + 2) if i else ()) for i in range(20))
    shown = rows(Plan(200, passes, 12.5))
    assert "Plan: 200 gates in 20 passes, 12.5 sweeps over memory" in text(Plan(200, passes, 12.5))
    assert shown[:6] == ["0", "0 to 9", "none, in place", "1", "10 to 19", "0, 1, 3"] and shown[-3] == "8 others"
    assert rows(Plan(1, (Pass(0, 1, tuple(range(14))),), 1.0))[2] == "0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, …"
    assert rows(run(Circuit(2)).plan) == [] and "2 gates in" in text(run(Circuit(2).h(0).x(1)).plan)


def test_timings():
    timings = Timings(0.5, 2.0, 1.5, 0.0)
    assert "Timings: 4 s" in text(timings) and bars(timings) == [12.5, 50, 37.5, 0]
    assert rows(timings)[:3] == ["compile", "0.5", "0.1250"] and bars(Timings(0, 0, 0, 0)) == [0, 0, 0, 0]


def test_observables():
    observable = Observable("0.5*X0 Y2 - 1.2*Z1 + 2j*Z4 + 3")
    assert "Observable: 4 terms on 5 qubits" in text(observable)
    assert rows(observable) == ["0.5", "X0 Y2", "-1.2", "Z1", "0+2j", "Z4", "3", "1"]
    assert rows(Observable("0")) == ["0", "1"] and "1 term on 0 qubits" in text(Observable("0"))
    assert rows(Observable("|0000><0000|"))[-2:] == ["4 others", ""]


def test_results():
    result = run(Circuit(3).h(0).cx(0, 1), shots=10, seed=1, observables=["Z0 Z1", "X2"])
    assert "Result: 3 qubits (2 active), 2 gates in " in text(result)
    assert "expectation values: 1, 0" in text(result) and "Counts: 10 shots" in text(result)
    without_shots = run(Circuit(2).x(1), observables="Z1")
    assert "expectation values: -1" in text(without_shots) and "StateVector: 1 qubit" in text(without_shots)


def test_results_without_one_state():
    circuit = Circuit(1, 1).h(0).measure(0, 0).h(0).measure(0, 0)
    result = run(circuit, shots=100)
    assert not result.has_state and "Counts: 100 shots" in text(result)


SVG = "{http://www.w3.org/2000/svg}"


def drawn_texts(thing):
    """What is written in the picture of a circuit."""
    return ["".join(element.itertext()) for element in page(thing).iter(f"{SVG}text")]


def test_circuits():
    circuit = Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1])
    assert text(circuit).startswith("Circuit: 2 qubits, 2 classical bits")
    assert sorted(drawn_texts(circuit)) == ["H", "c[0]", "c[1]", "q[0]", "q[1]"]
    assert circuit.draw("svg") in circuit._repr_html_()


def test_circuits_on_wide_registers_show_what_is_used():
    assert drawn_texts(Circuit(100).h(50)) == ["H", "q[50]"]
    assert text(Circuit(1000).barrier()).startswith("Circuit: 1000 qubits")
    assert next(page(Circuit(1000).barrier()).iter("pre")).text == str(Circuit(1000).barrier()[0])[:197] + "..."


def test_long_circuits_are_cut():
    circuit = Circuit(3)
    for _ in range(20_000):
        circuit.h(0)
    assert "… 19940 more" in text(circuit) and len(circuit._repr_html_()) < 10_000


@pytest.mark.parametrize("thing", [Counts({}), StateVector(1), Circuit(1).x(0), Plan(0, (), 0.0), Observable("X0")], ids=lambda thing: type(thing).__name__)
def test_angle_brackets_do_not_reach_the_page(thing, monkeypatch):
    # Whatever the objects say of themselves is escaped.
    for name in ("__str__", "__repr__"):
        monkeypatch.setattr(type(thing), name, lambda self: "<script>&")
    assert "<script" not in thing._repr_html_()
    page(thing)


def test_angle_brackets_in_names_do_not_reach_the_page():
    odd = "<script>&\"'"
    circuit = Circuit(2, 1, registers=[Register(odd, "quantum", 0, 2), Register("c", "classical", 0, 1)])
    circuit.gate(GateDefinition(odd, Circuit(2).h(0)), [0, 1]).rx(Parameter(odd), 0)
    assert drawn_texts(circuit) == ["0", "1", odd, f"RX({odd})", f"{odd}[0]", f"{odd}[1]"]
    assert "<script" not in circuit._repr_html_()
