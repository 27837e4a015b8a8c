"""velacamplix.run and StateVector.run refuse wrong arguments, and say which one, what came, and what is right."""

import numpy as np
import pytest

from velacamplix import Circuit, Observable, Parameter, StateVector, run

CIRCUIT = Circuit(3, 3).h(0).cx(0, 1).measure(0, 0)


@pytest.mark.parametrize("call", [run, StateVector(2).run])
@pytest.mark.parametrize("value", [None, 3, 1.5, b"h", {0: CIRCUIT}, Circuit, StateVector(1)])
def test_what_is_no_circuit(call, value):
    with pytest.raises(TypeError, match="circuit must be a Circuit, got"):
        call(value)
    with pytest.raises(TypeError, match=r"circuit(\[0\])? must be a Circuit, got"):
        call([value])


@pytest.mark.parametrize("call", [run, StateVector(2).run])
def test_a_text_instead_of_a_circuit(call):
    with pytest.raises(TypeError, match=r"circuit must be a Circuit, got 'OPENQASM 2.0;'; Circuit.from_qasm reads"):
        call("OPENQASM 2.0;")


@pytest.mark.parametrize("value", ["10", 1.0, True, False, [5], np.array([3]), 2 + 0j])
def test_shots_of_the_wrong_kind(value):
    with pytest.raises(TypeError, match="shots must be an integer"):
        run(CIRCUIT, shots=value)


@pytest.mark.parametrize("value", [0, -1, -(10**12), 2**63, 10**30])
def test_shots_out_of_range(value):
    with pytest.raises(ValueError, match=f"shots must be an integer from 1 to .*got {value}"):
        run(CIRCUIT, shots=value)


@pytest.mark.parametrize("circuit", [CIRCUIT, Circuit(1, 1).h(0).measure(0, 0).h(0), Circuit(0)])
def test_more_shots_than_memory(circuit):
    with pytest.raises(MemoryError, match=r"shots=1000000000000 of \d bits? needs? .* TiB; .* are available"):
        run(circuit, shots=10**12)


def test_numpy_integers_are_integers():
    assert run(CIRCUIT, shots=np.int64(5), seed=np.uint32(7), threads=np.int8(1)).counts.shots == 5


@pytest.mark.parametrize("value", [-1, 2**32, 10**20])
def test_seeds_out_of_range(value):
    with pytest.raises(ValueError, match=f"seed must be an integer from 0 to 4294967295, got {value}"):
        run(CIRCUIT, shots=1, seed=value)


@pytest.mark.parametrize("value", ["1", 1.0, True, [1], b"1"])
def test_seeds_of_the_wrong_kind(value):
    with pytest.raises(TypeError, match="seed must be an integer"):
        run(CIRCUIT, shots=1, seed=value)


def test_a_seed_is_checked_also_without_shots():
    with pytest.raises(ValueError, match="seed must be"):
        run(CIRCUIT, seed=-1)


@pytest.mark.parametrize(("value", "error"), [(0, ValueError), (-2, ValueError), (10**6, ValueError), ("2", TypeError)])
def test_threads(value, error):
    with pytest.raises(error, match="threads must be an integer from 1 to"):
        run(CIRCUIT, threads=value)


@pytest.mark.parametrize(
    ("value", "error"), [("half", ValueError), (None, TypeError), (64, TypeError), (float, TypeError)]
)
def test_precision(value, error):
    with pytest.raises(error, match="precision must be 'single' or 'double', got"):
        run(CIRCUIT, precision=value)


# Observables


@pytest.mark.parametrize(
    ("value", "error", "message"),
    [
        (3, TypeError, "observables must be an Observable, a text, .*got 3"),
        (1.5, TypeError, "observables must be"),
        (b"Z0", TypeError, "observables must be"),
        ({"Z0"}, TypeError, "observables must be"),
        (np.eye(2), TypeError, "observables must be"),
        (["Z0", 3], TypeError, r"observables\[1\] must be an Observable"),
        ([None], TypeError, r"observables\[0\] must be"),
        ("Z3", ValueError, "observables must act on qubits below 3, .*qubit 3"),
        (["Z0", "X0 Y40"], ValueError, r"observables\[1\] must act on qubits below 3, .*qubit 40"),
        (Observable({"IIII": 1}), ValueError, "observables must act on qubits below 3"),
        ([(1, "Z", [7])], ValueError, "observables must act on qubits below 3"),
        ("Z0 Z0", ValueError, "observables: "),
        (["Q0"], ValueError, r"observables\[0\]: "),
        ({"ZZ": "a"}, TypeError, "observables: "),
        ({"ZZ": float("nan")}, ValueError, "observables: .*finite"),
        ([(1, "ZZ", [0, 0])], ValueError, "observables: .*distinct"),
    ],
)
def test_observables(value, error, message):
    with pytest.raises(error, match=message):
        run(CIRCUIT, observables=value)


# Initial states


@pytest.mark.parametrize(
    ("value", "error", "message"),
    [
        ("00", ValueError, "initial must have one character per qubit, 3 in all, got '00'"),
        ("0000", ValueError, "initial must have one character per qubit, 3"),
        ("0x1", ValueError, "initial must hold only the characters 0 1 . -, got 'x' at position 1 of '0x1'"),
        ("", ValueError, "initial must have one character per qubit, 3"),
        (8, ValueError, "initial must be an integer from 0 to 7, got 8"),
        (-1, ValueError, "initial must be an integer from 0 to 7, got -1"),
        (True, TypeError, "initial must be an integer"),
        (1.0, TypeError, "initial must be an integer"),
        (object(), TypeError, "initial must be an integer"),
        ([1, 0], ValueError, r"initial must be an array of 2\*\*3 = 8 amplitudes, got shape \(2,\)"),
        (np.eye(8), ValueError, r"initial must be an array of .*got shape \(8, 8\)"),
        (np.ones(8), ValueError, "initial must be finite and have norm 1, got an array of norm 2.828"),
        (np.zeros(8), ValueError, "initial must be finite and have norm 1"),
        (np.full(8, np.nan), ValueError, "initial must be finite and have norm 1"),
        ([np.inf] + [0] * 7, ValueError, "initial must be finite and have norm 1"),
        (["a"] * 8, TypeError, "initial must be an array of"),
        ({"000": 1}, TypeError, "initial must be"),
        (b"000", TypeError, "initial must be"),
        (StateVector(2), ValueError, "initial must be a state of 3 qubits, those of the circuit, got StateVector.n=2"),
    ],
)
def test_initial_states(value, error, message):
    with pytest.raises(error, match=message):
        run(CIRCUIT, initial=value)


def test_a_released_initial_state():
    state = StateVector(3)
    state.release()
    with pytest.raises(RuntimeError, match="released"):
        run(CIRCUIT, initial=state)


def test_arrays_of_any_layout_serve_as_initial_states():
    spread = np.zeros((8, 3), dtype=np.complex64)
    spread[0, 1] = 1
    locked = spread[:, 1]
    locked.flags.writeable = False
    assert run(CIRCUIT, initial=locked, shots=4, initial_order="big").counts.shots == 4


# Progress and fusion


@pytest.mark.parametrize("call", [run, StateVector(3).run])
@pytest.mark.parametrize("value", [1, 0, "bar", 0.5, []])
def test_progress(call, value):
    with pytest.raises(TypeError, match="progress must be None, True, False or a function of one Progress, got"):
        call(CIRCUIT, progress=value)


@pytest.mark.parametrize("call", [run, StateVector(3).run])
@pytest.mark.parametrize("value", [1, None, "yes"])
def test_fusion(call, value):
    with pytest.raises(TypeError, match="fusion must be True or False, got"):
        call(CIRCUIT, fusion=value)


# Circuits that cannot be run


@pytest.mark.parametrize("call", [run, StateVector(3).run])
def test_parameters_without_values(call):
    circuit = Circuit(1).rx(Parameter("alpha"), 0).rz(Parameter("beta"), 0)
    with pytest.raises(ValueError, match="parameters must have values.*'alpha', 'beta'"):
        call(circuit)


def test_numbers_beyond_single_precision():
    for circuit, message in (
        (Circuit(1).matrix([[1e300j, 0], [0, 1]], 0, check=False), "instruction 0 .*matrix entry must fit"),
        (Circuit(1).diagonal([1, 1e300], 0, check=False), "instruction 0 .*diagonal entry must fit"),
    ):
        with pytest.raises(ValueError, match=message):
            run(circuit, precision="single")


def test_states_that_do_not_fit():
    circuit = Circuit(70)
    for qubit in range(60):
        circuit.h(qubit)
    with pytest.raises(MemoryError, match="n=60 qubits in double precision need 16.0 EiB"):
        run(circuit)


def test_a_measurement_after_a_matrix_that_leaves_nothing():
    circuit = Circuit(1, 1).matrix([[0, 0], [0, 0]], 0, check=False).measure(0, 0).h(0)
    with pytest.raises(ValueError, match="measure 0 -> 0 finds a state of norm 0.*not unitary"):
        run(circuit, shots=5)


def test_arguments_are_checked_before_anything_is_computed():
    state = StateVector(1)
    for named in ({"progress": 3}, {"fusion": 3}):
        with pytest.raises(TypeError):
            state.run(Circuit(1).x(0), **named)
    assert state.array.tolist() == [1, 0]


def test_results_refuse_wrong_outcomes():
    result = run(Circuit(3).x(0))
    with pytest.raises(ValueError, match="outcome must be an integer from 0 to 7, got 8"):
        result.amplitude(8)
    with pytest.raises(ValueError, match="outcome must be a text of 3 characters"):
        result.amplitude("01")
    with pytest.raises(ValueError, match="order must be 'big' or 'little', got 'huge'"):
        result.amplitude(1, order="huge")
    with pytest.raises(TypeError, match="outcome must be an integer"):
        result.amplitude(1.0)
