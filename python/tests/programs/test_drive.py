"""Runs whose states nobody sees before their end are heard inside of passes."""

from velacamplix import Circuit, StateVector
from velacamplix.programs.prepare import for_run


def test_a_run_to_its_end_is_heard_inside_of_passes():
    circuit = Circuit(18)
    for _ in range(30):
        circuit.rx(0.3, range(6))
    circuit.h(range(18))
    program = for_run(circuit, (), "double", False).programs[0]
    state, plain = StateVector(18, threads=2), StateVector(18, threads=1)
    calls = []
    assert program.run(state._live(), lambda done, total: calls.append(done), 0.0, False, True) == (len(program), None)
    assert calls.count(0) > 2 and calls == sorted(calls) and calls[-1] == len(program)
    program.run(plain._live())
    assert state.array.tobytes() == plain.array.tobytes()

    def stop(done, total):
        raise RuntimeError("enough")

    applied, error = program.run(state._live(), stop, 0.0, False, True)
    assert applied == 0 and str(error) == "enough"
