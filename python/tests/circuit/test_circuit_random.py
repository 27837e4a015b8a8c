"""Generated calls of the whole circuit interface, compared with a slow simulator.

Hypothesis makes up circuits from every builder method, with parameters, definitions, controls, composition, repetition
and inversion. Three things must agree with the circuit as it was built: what the slow simulator calculates, what
StateVector.run calculates, and what is read back after writing as OpenQASM 2 or as a pickle.
"""

import inspect
import pickle

import numpy as np
import numpy_simulator
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from velacamplix import Circuit, GateDefinition, Parameter, StateVector
from velacamplix.instructions.gate_methods import GateMethods
from velacamplix.qasm import read_qasm
from velacamplix.qasm.blocks import plain

N = 5
TOLERANCE = 1e-12  # some hundred rounding errors
NAMES = ["a", "b", "c"]
VALUES = {"a": 0.7, "b": -1.3, "c": 2.9}

# Each method with its arguments: angles and qubits are told apart by their names.
METHODS = {
    name: [word for word in inspect.signature(method).parameters if word not in ("self", "controls", "control_values", "names")]
    for name, method in inspect.getmembers(GateMethods, inspect.isfunction)
    if not name.startswith("_")
}
ANGLES = {"angle", "theta", "phi", "lam", "gamma", "beta"}

numbers = st.floats(-7, 7, allow_nan=False)
angles = st.one_of(
    numbers,
    st.sampled_from(NAMES).map(Parameter),
    st.builds(lambda a, b, x: a * x - b / 2, st.sampled_from(NAMES).map(Parameter), st.sampled_from(NAMES).map(Parameter), numbers),
    st.builds(lambda a, x: (a + x).sin(), st.sampled_from(NAMES).map(Parameter), numbers),
)


def test_every_argument_is_known():
    qubits = {"qubit", "qubit1", "qubit2", "control", "target", "control1", "control2", "control3"}
    assert {word for words in METHODS.values() for word in words} == ANGLES | qubits


@st.composite
def gate_call(draw, n=N, most_controls=2):
    name = draw(st.sampled_from(sorted(METHODS)))
    words = METHODS[name]
    n_qubits = sum(word not in ANGLES for word in words)
    if n_qubits > n:
        return None
    qubits = draw(st.permutations(range(n)))
    arguments, used = [], 0
    for word in words:
        if word in ANGLES:
            arguments.append(draw(angles))
        else:
            arguments.append(qubits[used])
            used += 1
    controls = qubits[used : used + draw(st.integers(0, min(most_controls, n - used)))]
    return name, arguments, controls


@st.composite
def gate_lists(draw, n=N, max_size=8):
    calls = draw(st.lists(gate_call(n), max_size=max_size))
    circuit = Circuit(n)
    for call in calls:
        if call is not None:
            name, arguments, controls = call
            getattr(circuit, name)(*arguments, controls=controls)
    return circuit


@st.composite
def circuits(draw):
    circuit = draw(gate_lists())
    for _ in range(draw(st.integers(0, 3))):
        action = draw(st.sampled_from(["compose", "plus", "inverse", "repeat", "define", "barrier", "bind"]))
        if action == "compose":
            circuit.compose(draw(gate_lists(3)), draw(st.permutations(range(N)))[:3])
        elif action == "plus":
            circuit = circuit + draw(gate_lists(N, 4))
        elif action == "inverse":
            circuit = circuit.inverse()
        elif action == "repeat" and len(circuit) < 20:
            circuit = circuit * draw(st.integers(0, 3))
        elif action == "define":
            inner = draw(gate_lists(draw(st.integers(1, 3)), 4))
            definition = GateDefinition(draw(st.sampled_from(["g", "other", "bell_dg"])), inner)
            qubits = draw(st.permutations(range(N)))
            k = inner.n_qubits
            controls = qubits[k : k + draw(st.integers(0, 1))]
            circuit.gate(definition, qubits[:k], draw(st.lists(angles, min_size=len(definition.params), max_size=len(definition.params))), controls)
        elif action == "barrier":
            circuit.barrier(*draw(st.permutations(range(N)))[: draw(st.integers(0, N))])
        elif action == "bind" and circuit.parameters:
            circuit = circuit.bind({circuit.parameters[0]: draw(numbers)})
    return circuit


def bound(circuit):
    return circuit.bind({name: VALUES[name] for name in circuit.parameters})


COMMON = dict(deadline=None, suppress_health_check=[HealthCheck.too_slow, HealthCheck.data_too_large])


@settings(max_examples=200, **COMMON)
@given(circuits())
def test_the_state_is_the_one_of_the_slow_simulator(circuit):
    circuit = bound(circuit)
    expected = numpy_simulator.statevector(circuit)
    state = StateVector(N).run(circuit)
    np.testing.assert_allclose(state.array, expected, rtol=0, atol=TOLERANCE)


@settings(max_examples=100, **COMMON)
@given(circuits())
def test_the_inverse_undoes_it(circuit):
    circuit = bound(circuit)
    start = np.zeros((2**N, 1))
    start[3] = 1
    there_and_back = numpy_simulator.run(circuit + circuit.inverse(), start)
    np.testing.assert_allclose(there_and_back, start, rtol=0, atol=TOLERANCE)


@settings(max_examples=100, **COMMON)
@given(circuits())
def test_order_of_binding_and_everything_else_does_not_matter(circuit):
    first = bound(circuit)
    assert pickle.loads(pickle.dumps(circuit)) == circuit
    assert bound(pickle.loads(pickle.dumps(circuit))) == first
    assert bound(circuit.copy()) == first == bound(circuit)
    one_by_one = circuit
    for name in circuit.parameters:
        one_by_one = one_by_one.bind({name: VALUES[name]})
    assert one_by_one == first
    assert bound(circuit.inverse()) == first.inverse()
    assert bound(circuit + circuit) == first + first == first * 2


@settings(max_examples=100, **COMMON)
@given(circuits())
def test_it_comes_back_from_openqasm(circuit):
    circuit = bound(circuit)
    again = read_qasm(circuit.to_qasm())
    # The plain form of gates with controls; names of definitions that meet another of the same name change, and a phase of
    # the whole state is two gates there.
    names = {step.definition.name for step in circuit if step.definition is not None}
    definitions = {step.definition for step in circuit if step.definition is not None}
    if len(names) == len(definitions) and "gphase" not in circuit.gate_counts():
        assert [plain(step) for step in again if step.definition is None] == [plain(step) for step in circuit if step.definition is None]
    np.testing.assert_allclose(numpy_simulator.statevector(again), numpy_simulator.statevector(circuit), rtol=0, atol=TOLERANCE)


@settings(max_examples=100, **COMMON)
@given(circuits())
def test_descriptions_hold_together(circuit):
    assert len(circuit.gate_counts()) <= len(circuit)
    assert sum(circuit.gate_counts().values()) == sum(step.is_gate for step in circuit)
    assert circuit.depth() <= len(circuit)
    if not {"rc3x", "dcx"}.intersection(step.name for step in circuit):
        # All other inverses have a name.
        assert circuit.depth() == circuit.inverse().depth()
    drawing = circuit.draw(width=80)
    assert len(drawing.splitlines()) >= N and repr(circuit) and str(circuit).count("\n") == max(0, len(circuit) - 1)
    again = Circuit(N, registers=circuit.registers)
    for step in circuit:
        again.append(step)
    assert again == circuit
