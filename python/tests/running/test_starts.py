"""A run begins at its basis state without writing it first; nobody ever sees an array that has not been written."""

import numpy as np
import pytest

from velacamplix import Circuit, StateVector, run
from velacamplix.core import extension
from velacamplix.instructions.expand import basic
from velacamplix.programs.compile import compiled

N = 15  # more than a buffer holds


def circuit(n):
    """Few gates that mix and many that multiply: nearly all amplitudes remain zeros, of both signs."""
    made = Circuit(n).h(0).rx(0.3, n - 1)
    for qubit in range(n):
        made.rz(2.0 + qubit, qubit)
    return made.cx(0, 1).rzz(4.0, 1, n - 2).ry(-2.0, n // 2).y(2).cp(3.0, n - 1, 3)


@pytest.mark.parametrize("fusion", [False, True])
@pytest.mark.parametrize("precision", ["single", "double"])
@pytest.mark.parametrize("text", ["0" * N, "1" * N, "01" * (N // 2) + "1", "+" + "0" * (N - 1)])
def test_a_run_has_the_bits_of_the_same_gates_on_a_written_state(text, precision, fusion):
    expected = StateVector(N, precision=precision).set_basis_state(text).run(circuit(N), fusion=fusion)
    got = run(circuit(N), initial=text, precision=precision, fusion=fusion, threads=2).state
    assert got.array.tobytes() == expected.array.tobytes()
    if "+" not in text:
        assert np.count_nonzero(expected.array) < 64


def test_a_circuit_without_gates_leaves_the_state_it_starts_from():
    assert run(Circuit(3).measure_all(), initial="010", shots=5).counts == {"010": 5}
    assert run(Circuit(2)).state.to_dict() == {"00": 1}


def begun(basis_state=5):
    core = extension.StateVectorDouble(N)
    core.view()[:] = np.nan  # so that no fresh page passes for a written one
    core.begin(basis_state)
    return core


def is_basis_state(core, basis_state=5):
    return np.flatnonzero(core.view()).tolist() == [basis_state]


@pytest.mark.parametrize(
    "look",
    [
        lambda core: core.view()[5] == 1,
        lambda core: core.probability(1, [2]) == 1,
        lambda core: core.distribution([0]).tolist() == [0, 1],
        lambda core: core.apply("X", (0,), (), ()) is None and core.view()[4] == 1,
        lambda core: extension.copy_amplitudes(core, np.empty(2**N, dtype=complex), False) is None,
    ],
)
def test_whoever_looks_first_finds_the_basis_state(look):
    core = begun()
    assert look(core)
    assert np.count_nonzero(core.view()) == 1


def test_a_run_that_is_stopped_leaves_no_amplitude_unwritten():
    gates = [gate for step in circuit(N).instructions for gate in basic(step, in_programs=True)]
    program = compiled(gates, N, "double", circuit(N), range(N))
    core = begun()

    def stop(done, total):
        raise KeyError("enough")

    _, error = program.run(core, stop, 0.0, False, True)
    assert isinstance(error, KeyError)
    assert is_basis_state(core)
    applied, error = program.run(core, None, 0.05, False, False)
    assert (applied, error) == (len(program), None)
    assert np.isfinite(core.view()).all()


def test_a_start_that_the_state_does_not_have_is_refused():
    core = begun()
    for wrong in (2**N, 2**63):
        with pytest.raises(ValueError, match="no such basis state"):
            core.begin(wrong)
    for wrong in (-1, 0.5, None):
        with pytest.raises(TypeError):
            core.begin(wrong)
    assert is_basis_state(core)
    core = begun()
    assert core.release()
    with pytest.raises(RuntimeError, match="released"):
        core.begin(0)
