"""Density matrices: gates, channels, circuits with outcomes in the middle, and all that they tell."""

import copy
import inspect
import pickle
import re

import numpy as np
import pytest
from kraus_sums import by_outcome, density, on_all, random_channels, random_noisy_steps

from velacamplix import (
    Channel,
    Circuit,
    DensityMatrix,
    Observable,
    Parameter,
    Readout,
    StateVector,
    UnsupportedInstruction,
)
from velacamplix.instructions.flow import Instruction
from velacamplix.programs import drive


def noisy(n_qubits, seed, length=20):
    """Return a circuit of random gates and channels."""
    circuit = Circuit(n_qubits, n_qubits)
    for step in random_noisy_steps(np.random.default_rng(seed), n_qubits, length):
        circuit.append(step)
    return circuit


def gates(n_qubits, seed):
    """Return a circuit of random gates."""
    kept = [step for step in noisy(n_qubits, seed, 60) if step.name != "channel"]
    circuit = Circuit(n_qubits)
    for step in kept:
        circuit.append(step)
    return circuit


@pytest.fixture
def mixed():
    """A state of three qubits, mixed, entangled and with complex entries; and its matrix in NumPy."""
    circuit = noisy(3, 7, 12).y(1).sx(0)
    return DensityMatrix(3, seed=4).run(circuit), density(circuit, 3)


def expected(circuit):
    return sum(by_outcome(circuit.instructions, circuit.n_qubits).values())


# Gates, channels, circuits


@pytest.mark.parametrize("n_qubits", [1, 2, 3])
def test_a_circuit_equals_a_sum_over_kraus_operators(n_qubits):
    for seed in range(3):
        circuit = noisy(n_qubits, seed)
        assert np.abs(DensityMatrix(n_qubits).run(circuit).array - density(circuit, n_qubits)).max() < 1e-13


def test_channels_and_gates_at_once_are_those_of_a_circuit():
    rho, steps = DensityMatrix(3), []
    for channel in [c for c in random_channels(np.random.default_rng(2)) if c.n_qubits <= 3]:
        qubits = [2, 0, 1][: channel.n_qubits]
        rho.ry(0.4, 2).cx(2, 0).s(0).rx(1.1, 1, controls=[0]).channel(channel, qubits)
        circuit = Circuit(3).ry(0.4, 2).cx(2, 0).s(0).rx(1.1, 1, controls=[0]).channel(channel, qubits)
        steps += list(circuit)
    assert np.abs(rho.array - density(steps, 3)).max() < 1e-13


def test_a_pure_state_is_the_product_of_its_amplitudes():
    circuit = gates(4, 3)
    psi = StateVector(4).run(circuit)
    rho = DensityMatrix(4).run(circuit)
    assert np.abs(rho.array - np.outer(psi.array, psi.array.conj())).max() < 1e-14
    again = DensityMatrix.from_statevector(psi)
    assert np.abs(again.array - np.outer(psi.array, psi.array.conj())).max() < 1e-16
    assert rho.purity() == pytest.approx(1, abs=1e-13)


def test_y_on_0_has_its_entries_where_they_belong():
    rho = DensityMatrix(1).rx(-np.pi / 2, 0)  # the eigenvector of Y with the value 1
    assert np.abs(rho.array - [[0.5, -0.5j], [0.5j, 0.5]]).max() < 1e-15
    assert rho.expectation("Y0") == pytest.approx(1)
    two = DensityMatrix(2).rx(-np.pi / 2, 1)
    assert np.abs(two.array[2, 0] - 0.5j) < 1e-15


def test_matrix_acts_from_both_sides_with_controls():
    rng = np.random.default_rng(5)
    unitary = np.linalg.qr(rng.normal(size=(4, 4)) + 1j * rng.normal(size=(4, 4)))[0]
    start = Circuit(3).h(0).h(1).h(2).t(1)
    rho = DensityMatrix(3).run(start).matrix(unitary, [2, 0], controls=1, control_values=0)
    psi = StateVector(3).run(start).matrix(unitary, [2, 0], controls=1, control_values=0)
    assert np.abs(rho.array - np.outer(psi.array, psi.array.conj())).max() < 1e-14
    assert np.abs(DensityMatrix(1).gphase(0.3).h(0).gphase(1.0).array - 0.5).max() < 1e-15
    with pytest.raises(ValueError, match="unitary"):
        rho.matrix([[1, 0], [0, 0.5]], 0)


@pytest.mark.parametrize("readout", [None, Readout(((0.1, 0.3),))])
def test_outcomes_in_the_middle_are_followed_exactly(readout):
    circuit = Circuit(3, 3).ry(0.9, 0).cx(0, 1).channel(Channel.amplitude_damping(0.2), 1)
    circuit.append(Instruction("measure", (0,), clbits=(1,), detail=readout))
    with circuit.when(1, 1):
        circuit.rx(0.7, 2).channel(Channel.depolarizing(0.1, 2), [1, 2])
    circuit.h(0).reset(1).measure(2, 0).ry(0.2, 2)
    with circuit.when([0, 1], "01"):
        circuit.cx(0, 2).reset(0)
    circuit.measure([0, 2], [0, 2])
    assert np.abs(DensityMatrix(3).run(circuit).array - expected(circuit)).max() < 1e-14


def test_decisions_and_loops_are_followed_exactly():
    circuit = Circuit(2, 3).h(0).measure(0, 0)
    body = Circuit(2, 3).channel(Channel.amplitude_damping(0.4), 0).ry(0.8, 0).cx(0, 1).measure(0, 0)
    circuit.while_((0, 1), body, max_iterations=150)
    circuit.h(0).measure(0, 1).ry(0.3, 1).measure(1, 2)
    circuit.if_((1, 1), Circuit(2, 3).ry(0.4, 0).channel(Channel.bit_flip(0.1), 1), Circuit(2, 3).x(1).reset(0))
    circuit.switch([1, 2], {1: Circuit(2, 3).h(0), 2: Circuit(2, 3).sx(1), 3: Circuit(2, 3).measure(0, 0)})
    assert np.abs(DensityMatrix(2).run(circuit).array - expected(circuit)).max() < 1e-13


def test_a_loop_that_does_not_end_is_told():
    circuit = Circuit(1, 1).x(0).measure(0, 0)
    circuit.while_((0, 1), Circuit(1, 1).ry(0.1, 0).measure(0, 0), max_iterations=5)
    with pytest.raises(RuntimeError, match=r"max_iterations=5 times, and its condition holds with probability 0\.9"):
        DensityMatrix(1).run(circuit)


def test_branches_that_agree_grow_together():
    # Twenty outcomes, each of which is read once: without growing together there would be 2**20 branches.
    circuit = Circuit(2, 1)
    for _ in range(20):
        circuit.ry(0.3, 0).measure(0, 0)
        with circuit.when(0, 1):
            circuit.rx(0.2, 1)
    assert np.abs(DensityMatrix(2).run(circuit).array - expected(circuit)).max() < 1e-14


def test_too_many_branches_are_refused():
    circuit = Circuit(11, 11)
    circuit.h(list(range(11))).measure(list(range(11)), list(range(11)))
    with circuit.when(list(range(11)), "1" * 11):
        circuit.x(0)
    with pytest.raises(ValueError, match=r"more than 1024 branches.*trajectories"):
        DensityMatrix(11, precision="single").run(circuit)


def test_impossible_outcomes_are_dropped():
    circuit = Circuit(1, 1).h(0).h(0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.append(Instruction("reset", (0,)))
    seen = []
    DensityMatrix(1).run(circuit, progress=seen.append)
    assert seen[-1].done == seen[-1].total


def test_a_run_that_is_refused_leaves_the_matrix_as_it_was(mixed):
    rho, matrix = mixed
    before = rho.array.copy()
    for circuit, error in [
        (Circuit(4), ValueError),
        (Circuit(3).h(0).save_state("s"), UnsupportedInstruction),
        ("H 0", TypeError),
    ]:
        with pytest.raises(error):
            rho.run(circuit)
    with pytest.raises(TypeError, match="channel must be a Channel"):
        rho.channel("depolarizing", 0)
    with pytest.raises(ValueError, match="qubits must be 1"):
        rho.channel(Channel.bit_flip(0.1), [0, 1])
    assert np.array_equal(rho.array, before)


@pytest.mark.parametrize("precision", ["single", "double"])
def test_the_same_bits_on_any_number_of_threads(precision):
    circuit = noisy(8, 3, 40)
    one, many = [DensityMatrix(8, precision, threads=threads).run(circuit) for threads in (1, 8)]
    assert one.array.tobytes() == many.array.tobytes()
    assert one.expectation("X0 Y3") == many.expectation("X0 Y3")


def test_single_precision_agrees():
    circuit = noisy(4, 11, 40)
    single, double = DensityMatrix(4, "single").run(circuit), DensityMatrix(4).run(circuit)
    assert single.array.dtype == np.complex64
    assert np.abs(single.array - double.array).max() < 1e-5


# Readout


def test_probabilities_in_either_order(mixed):
    rho, matrix = mixed
    shares = matrix.diagonal().real
    for qubits in ([0, 1, 2], [2, 0], [1], []):
        for order in ("big", "little"):
            listed = qubits if order == "big" else qubits[::-1]
            literal = np.zeros(2 ** len(qubits))
            for index in range(8):
                literal[int("0" + "".join(str(index >> q & 1) for q in listed), 2)] += shares[index]
            assert np.abs(rho.distribution(qubits, order) - literal).max() < 1e-14
            assert rho.probability(len(literal) - 1, qubits, order) == pytest.approx(literal[-1])
    assert rho.distribution_dict([2, 0], threshold=0.05).keys() <= {"00", "01", "10", "11"}
    assert rho.trace() == pytest.approx(1, abs=1e-14)


def test_shots_come_with_their_probabilities_and_go_on_with_the_seed(mixed):
    rho, matrix = mixed
    drawn = rho.sample(4000, qubits=[2, 1, 0])
    found = np.bincount(drawn.astype(int), minlength=8) / 4000
    shares = matrix.diagonal().real
    assert (np.abs(found - shares) < 5 * np.sqrt(shares * (1 - shares) / 4000) + 1e-12).all()
    rho.seed = 9
    first = rho.sample(5).tolist()
    second = rho.sample(5).tolist()
    rho.seed = 9
    assert rho.sample(10).tolist() == first + second
    assert rho.seed == 9
    assert sum(rho.counts(50, qubits=[1]).values()) == 50


def test_projections(mixed):
    rho, matrix = mixed
    kept = np.diag([index & 1 == 1 and index >> 2 & 1 == 0 for index in range(8)]).astype(complex)
    remains = kept @ matrix @ kept
    literal = remains / remains.trace()
    assert np.abs(rho.copy().project([0, 2], "10").array - literal).max() < 1e-13
    moved = rho.copy().project_then_reset([0, 2], "10").array
    assert np.abs(moved[::2, ::2] - literal[1::2, 1::2]).max() < 1e-13
    assert rho.copy().project([], 0).trace() == pytest.approx(1)
    outcome = rho.measure([1, 0], collapse=True)
    assert rho.probability(outcome, [1, 0]) == pytest.approx(1)
    with pytest.raises(ValueError, match="has none"):
        DensityMatrix(1).project(0, 1)


def test_reset_of_some_qubits(mixed):
    rho, matrix = mixed
    literal = density([Instruction("reset", (2,)), Instruction("reset", (0,))], 3, matrix)
    assert np.abs(rho.reset_qubits([2, 0]).array - literal).max() < 1e-14
    assert DensityMatrix(2).h(0).reset().distribution().tolist() == [1, 0, 0, 0]


def test_expectation_values_are_traces(mixed):
    rho, matrix = mixed
    for text in ("X0", "Y1", "Z2", "0.5*X0 Y1 Z2 - 2*Y0 Y2 + 3", "Y0 Y1 Y2", "2"):
        observable = Observable(text)
        literal = np.trace(observable.to_matrix(3) @ matrix) if text != "2" else 2
        assert rho.expectation(text) == pytest.approx(literal.real, abs=1e-13)
    values = rho.term_values("0.5*X0 + 2*Y1 Z2 + 3")
    assert values.sum() + 3 == pytest.approx(rho.expectation("0.5*X0 + 2*Y1 Z2 + 3"))
    operator = Observable("X0 + 0.5*Y1 Z2 - 1")
    as_matrix = operator.to_matrix(3)
    mean = np.trace(as_matrix @ matrix).real
    assert rho.variance(operator) == pytest.approx(np.trace(as_matrix @ as_matrix @ matrix).real - mean**2)
    assert rho.expectation(Observable({"XII": 1j})) == pytest.approx(1j * rho.expectation("X0"))
    with pytest.raises(ValueError, match="at most 3 qubit"):
        rho.expectation("Z3")


def test_estimates_scatter_about_the_expectation_value(mixed):
    rho, _ = mixed
    observable = "X0 + 0.5*Y1 Z2 - 1"
    mean, error = rho.estimate(observable, 20000)
    assert abs(mean - rho.expectation(observable)) < 5 * error
    means, errors = rho.estimate(observable, 1000, per_term=True)
    assert means.shape == errors.shape == (2,)


@pytest.mark.parametrize("qubits", [[0], [1], [2, 0], [0, 1, 2], []])
def test_parts_are_those_of_numpy(mixed, qubits):
    rho, matrix = mixed
    size = 2 ** len(qubits)
    literal = np.zeros((size, size), dtype=complex)
    for i in range(8):
        for j in range(8):
            if all(i >> q & 1 == j >> q & 1 for q in range(3) if q not in qubits):
                row, column = [sum((x >> q & 1) << k for k, q in enumerate(qubits)) for x in (i, j)]
                literal[row, column] += matrix[i, j]
    assert np.abs(rho.reduced(qubits) - literal).max() < 1e-14
    assert rho.purity(qubits) == pytest.approx(np.trace(literal @ literal).real)
    values = np.linalg.eigvalsh(literal)
    values = values[values > 0]
    assert rho.entropy(qubits) == pytest.approx(-(values * np.log2(values)).sum(), abs=1e-12)
    big = rho.reduced(qubits, order="big")
    assert np.array_equal(big, rho.reduced(qubits[::-1]))


def test_bloch_vectors_and_purity(mixed):
    rho, matrix = mixed
    for qubit in range(3):
        assert rho.bloch_vector(qubit) == pytest.approx([rho.expectation(f"{p}{qubit}") for p in "XYZ"], abs=1e-13)
    assert rho.purity() == pytest.approx(np.trace(matrix @ matrix).real)


def test_overlap_and_fidelity(mixed):
    rho, matrix = mixed
    other_circuit = noisy(3, 8, 6)
    sigma, literal = DensityMatrix(3).run(other_circuit), density(other_circuit, 3)
    psi = StateVector(3).run(gates(3, 1))
    amplitudes = psi.array
    assert rho.overlap(sigma) == pytest.approx(np.trace(matrix @ literal).real)
    pure = (amplitudes.conj() @ matrix @ amplitudes).real
    assert rho.overlap(psi) == rho.fidelity(psi) == pytest.approx(pure)
    assert rho.fidelity(amplitudes.copy()) == pytest.approx(pure)
    assert rho.fidelity(DensityMatrix.from_statevector(psi)) == pytest.approx(pure, abs=1e-7)
    values, vectors = np.linalg.eigh(matrix)
    root = (vectors * np.sqrt(values.clip(0))) @ vectors.conj().T
    inner = np.linalg.eigvalsh(root @ literal @ root).clip(0)
    assert rho.fidelity(sigma) == pytest.approx(np.sqrt(inner).sum() ** 2, abs=1e-7)
    for wrong in (DensityMatrix(2), StateVector(2), [1, 0]):
        with pytest.raises(ValueError, match="other must"):
            rho.fidelity(wrong)


# Arrays in and out


def test_the_array_is_no_copy_and_may_be_written_to():
    rho = DensityMatrix(2)
    view = rho.array
    rho.x(0)
    assert view[1, 1] == 1 and np.shares_memory(np.asarray(rho), view)
    view[:] = 0
    view[2, 2] = 1
    assert rho.distribution_dict() == {"01": 1.0}
    with pytest.raises(BufferError):
        rho.release()
    del view
    rho.release()
    with pytest.raises(RuntimeError, match="this DensityMatrix has been released"):
        rho.h(0)


def test_arrays_go_in_in_either_order(mixed):
    rho, matrix = mixed
    assert np.array_equal(DensityMatrix.from_array(matrix).array, matrix)
    turned = [int(format(i, "03b")[::-1], 2) for i in range(8)]
    assert np.array_equal(DensityMatrix(3).set_state(matrix, order="big").array, matrix[np.ix_(turned, turned)])
    assert DensityMatrix(2).set_state([0, 1, 0, 0], order="big").distribution_dict() == {"01": 1.0}
    assert DensityMatrix(2).set_basis_state("1+").distribution_dict() == pytest.approx({"10": 0.5, "11": 0.5})
    assert DensityMatrix(2).set_basis_state("1-", order="little").expectation("X0") == pytest.approx(-1)


@pytest.mark.parametrize(
    ("matrix", "message"),
    [
        ([[0.5, 0.5], [0.4, 0.5]], "Hermitian"),
        ([[0.7, 0], [0, 0.7]], "trace 1"),
        ([[1.5, 0], [0, -0.5]], "negative eigenvalue"),
        ([[0.5, 0.6], [0.6, 0.5]], "negative eigenvalue"),
        ([[np.nan, 0], [0, 1]], "finite"),
        (np.eye(4) / 4, "2 x 2"),
        ([0.5, 0.5], "norm 1"),
        ("text", "array"),
    ],
)
def test_what_is_no_density_matrix_is_refused(matrix, message):
    rho = DensityMatrix(1).h(0)
    before = rho.array.copy()
    with pytest.raises((TypeError, ValueError), match=message):
        rho.set_state(matrix)
    assert np.array_equal(rho.array, before)


def test_matrices_and_amplitudes_in_the_place_of_each_other_are_told():
    with pytest.raises(ValueError, match=r"set_state takes amplitudes, too"):
        DensityMatrix.from_array([1, 0])
    for act in (lambda: DensityMatrix(1).fidelity(np.eye(2) / 2), lambda: StateVector(1).set_state(np.eye(2), "little")):
        with pytest.raises(ValueError, match="DensityMatrix.from_array makes a state of the matrix of a mixed one"):
            act()


def test_from_array_tells_wrong_shapes():
    with pytest.raises(ValueError, match=r"shape \(2\*\*n, 2\*\*n\), got shape \(3, 3\)"):
        DensityMatrix.from_array(np.eye(3) / 3)
    with pytest.raises(TypeError, match="state must be a StateVector"):
        DensityMatrix.from_statevector(np.array([1, 0]))


def test_memory_is_asked_for_first():
    with pytest.raises(
        MemoryError, match=r"n=25 qubits in double precision needs 16.0 PiB; .* available.*trajectories"
    ):
        DensityMatrix(25)


# The object


def test_copies_pickles_and_files(mixed, tmp_path):
    rho, _ = mixed
    rho.save(tmp_path / "rho.npz")
    made = [rho.copy(), copy.deepcopy(rho), DensityMatrix.load(tmp_path / "rho.npz")]
    made += [pickle.loads(pickle.dumps(rho, protocol)) for protocol in (2, 5)]
    drawn = rho.sample(20).tolist()
    for other in made:
        assert type(other) is DensityMatrix and other.n_qubits == 3
        assert other.array.tobytes() == rho.array.tobytes()
        assert other.sample(20).tolist() == drawn
        other.x(0)
    assert made[0].array.tobytes() != rho.array.tobytes()
    stored = np.load(tmp_path / "rho.npz")
    assert str(stored["kind"]) == "DensityMatrix" and np.array_equal(stored["amplitudes"].reshape(8, 8).T, rho.array)
    with pytest.raises(ValueError, match="holds a 'DensityMatrix'"):
        StateVector.load(tmp_path / "rho.npz")
    StateVector(2).save(tmp_path / "psi.npz")
    with pytest.raises(ValueError, match="holds a 'StateVector'"):
        DensityMatrix.load(tmp_path / "psi.npz")


def test_texts_and_notebooks():
    rho = DensityMatrix(2, threads=1).h(0)
    assert repr(rho) == "DensityMatrix(n=2, precision='double', threads=1)"
    assert "purity 1.0000" in rho._repr_html_() and "10" in rho._repr_html_()
    rho.release()
    assert "released" in repr(rho) and "released" in rho._repr_html_()
    with DensityMatrix(1) as one:
        one.h(0)
    assert "released" in repr(one)


@pytest.mark.parametrize("value", [np.nan, 0.0])
def test_entries_that_are_no_state_are_told(value):
    rho = DensityMatrix(2)
    rho.array[:] = value
    for act in (
        lambda: rho.counts(3), lambda: rho.measure(0, collapse=True), lambda: rho.entropy(), lambda: rho.variance("Z0"),
        lambda: rho.estimate("Z0", 5), lambda: rho.fidelity(rho), lambda: rho.project(0, 1), lambda: rho.run(reading()),
    ):  # fmt: skip
        with pytest.raises(ValueError, match=r"add up to|has none|trace is 0, infinite or nan"):
            act()


def reading():
    circuit = Circuit(2, 1).h(0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(1)
    return circuit


def test_a_run_that_is_stopped_where_outcomes_are_read_leaves_the_matrix_as_it_was(mixed):
    rho, _ = mixed
    before = rho.array.copy()

    def stop(progress):
        raise StopIteration("enough")

    with pytest.raises(StopIteration, match="enough"):
        rho.run(Circuit(3, 1).h(0).compose(reading(), [0, 1], [0]), progress=stop)
    assert np.array_equal(rho.array, before)
    told = []
    rho.run(reading(), progress=told.append)
    assert told[-1].done == told[-1].total


@pytest.mark.parametrize("act", [lambda rho: rho.cx(0, 1), lambda rho: rho.run(Circuit(2).cx(0, 1))], ids=["gate", "run"])
@pytest.mark.parametrize("applied", [1, 2])
def test_what_is_stopped_between_ket_and_bra_leaves_a_density_matrix(monkeypatch, act, applied):
    def stopped(core, program, report=None, to_end=False):
        assert len(program) == 2
        core.view()[:] = 0.5, 0, 0, 0.5, *[0] * 12  # of no density matrix
        error = KeyboardInterrupt(f"stopped after {applied} of 2 gates")
        error.gates_applied = applied
        raise error

    rho = DensityMatrix(2).h(0)
    monkeypatch.setattr(drive, "drive", stopped)
    with pytest.raises(KeyboardInterrupt):
        act(rho)
    # After both there is nothing to mend.
    assert rho.array[3, 0] == (0.5 if applied == 2 else 0)
    assert applied == 2 or (rho.distribution_dict() == {"00": 1.0} and rho.purity() == 1)


def test_a_state_vector_tells_how_it_is_compared_with_a_density_matrix():
    for method in ("overlap", "fidelity"):
        with pytest.raises(
            TypeError, match=r"other must be a StateVector or an array, got DensityMatrix.*its own fidelity"
        ):
            getattr(StateVector(2), method)(DensityMatrix(2))


def test_small_and_ragged():
    assert DensityMatrix.from_array([[1]]).counts(3) == {"": 3}
    assert DensityMatrix(0).purity() == 1
    for act in (lambda: DensityMatrix.from_array([[1, 0], [0]]), lambda: DensityMatrix(1).set_state([[1, 0], [0]])):
        with pytest.raises(ValueError, match="rows of one length"):
            act()


def test_circuits_with_parameters():
    x = Parameter("x")
    circuit = Circuit(1).rx(x, 0).channel(Channel.bit_flip(0.1), 0)
    with pytest.raises(ValueError, match="parameters must have values"):
        DensityMatrix(1).run(circuit)
    for angle in (0.0, 0.5):
        assert DensityMatrix(1).run(circuit.bind(x=angle)).expectation("Z0") == pytest.approx(0.8 * np.cos(angle))


def test_one_operator_of_a_channel(mixed):
    rho, before = mixed[0].copy(), mixed[0].array.copy()
    operator = np.array([[0, 0.6], [0, 0]])
    with pytest.raises(ValueError, match="matrix must be unitary"):
        rho.matrix(operator, 1)
    with pytest.raises(TypeError, match="check must be True or False"):
        rho.matrix(operator, 1, check=0)
    assert np.array_equal(rho.array, before)
    rho.matrix(operator, 1, check=False)
    whole = on_all(operator, [1], rho.n_qubits)
    assert np.abs(rho.array - whole @ before @ whole.conj().T).max() < 1e-15


# --- Beside StateVector ---

# Of pure states only, and where the way leads from a density matrix.
ONLY_PURE = {
    "norm": "rho.trace()",  # the trace is what the norm is the root of
    "schmidt": "a mixed state has no Schmidt coefficients",
    "statevector": "a mixed state has no amplitudes",
    "amplitude": "a mixed state has no amplitudes",
    "storage": "a mixed state lies in memory",
    "to_dict": "rho.distribution_dict()",  # of amplitudes
    # Loading works on amplitudes: it keeps norms and drops phases, which no channel does.
    "prepare": "Circuit(n).initialize(data, qubits)",
    "qram": "DensityMatrix.from_statevector(state)",
    "binary_qram": "DensityMatrix.from_statevector(state)",
    "phase_oracle": "Circuit(n).diagonal(signs, qubits)",
}
# Of density matrices only: makers, and what a pure state cannot become.
ONLY_MIXED = {"from_array", "from_statevector", "channel", "reset_qubits", "trace"}
# Arguments of one alone, and why.
ARGUMENTS = {
    "entropy": "that of the whole is 0 for a pure state, so qubits must be named there",
    "reset": "state and order go in version 0.3",
    "run": "a density matrix always multiplies neighbouring gates together",
    "set_state": "without order there is a warning in this version, for arrays of amplitudes alone",
}


def public(kind):
    return {name for name in dir(kind) if not name.startswith("_")}


def arguments(kind, name):
    return [(one.name, one.kind, one.default) for one in inspect.signature(getattr(kind, name)).parameters.values()]


def test_members_are_those_of_a_state_vector_but_for_these():
    assert public(StateVector) - public(DensityMatrix) == set(ONLY_PURE)
    assert public(DensityMatrix) - public(StateVector) == ONLY_MIXED
    both = [name for name in public(StateVector) & public(DensityMatrix) if callable(getattr(StateVector, name))]
    assert {name for name in both if arguments(StateVector, name) != arguments(DensityMatrix, name)} == set(ARGUMENTS)
    for name, way_out in ONLY_PURE.items():
        with pytest.raises(AttributeError, match=re.escape(way_out)):
            getattr(DensityMatrix(1), name)


def test_the_ways_out_lead_to_what_a_state_vector_does():
    state = StateVector(3).h(1).prepare([0, 0.6, 0.8j, 0], [2, 0]).phase_oracle(["10", "01"], [0, 2])
    signs = Circuit(3).diagonal([1, -1, -1, 1], [0, 2])
    rho = DensityMatrix(3).h(0).h(1).run(Circuit(3).initialize([0, 0.6, 0.8j, 0], [2, 0], order="big")).run(signs)
    assert np.abs(rho.array - np.outer(state.array, state.array.conj())).max() < 1e-15
    assert rho.trace() == pytest.approx(state.norm() ** 2)


def test_names_of_other_packages_lead_here():
    for name, hint in [("data", "array"), ("evolve", "run"), ("partial_trace", "reduced"), ("apply", "run")]:
        with pytest.raises(AttributeError, match=hint):
            getattr(DensityMatrix(1), name)


def test_pictures_take_it(mixed):
    plots = pytest.importorskip("velacamplix.plots.density", reason="pictures need matplotlib")
    pytest.importorskip("matplotlib", reason="pictures need matplotlib")
    from velacamplix import plot_bloch, plot_probabilities

    real, imaginary = plots.plot_density(mixed[0])
    drawn = real.collections[0].get_array() + 1j * imaginary.collections[0].get_array()
    assert np.array_equal(drawn, mixed[0].array)
    lengths = [text.get_text() for text in plot_bloch(mixed[0]).texts if "length" in text.get_text()]
    assert len(lengths) == 3
    heights = [bar.get_height() for bar in plot_probabilities(mixed[0], qubits=[1, 0]).patches]
    assert heights == pytest.approx(mixed[0].distribution([1, 0]).tolist())
