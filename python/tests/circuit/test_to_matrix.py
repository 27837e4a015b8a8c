"""A circuit's matrix and state as arrays."""

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, GateDefinition, Parameter, StateVector, run


def sample(n):
    circuit = Circuit(n).h(range(n)).rx([0.3 + q for q in range(n)], range(n)).gphase(0.4)
    if n > 1:
        circuit.cx(range(n - 1), range(1, n)).barrier().rzz(0.7, 0, n - 1).x(0, n - 1, 0)
        circuit.gate(GateDefinition("own", Circuit(2).ry(0.2, 0).cx(0, 1)), [n - 1, 0])
    return circuit


def reversed_bits(n):
    return [int(format(i, f"0{n}b")[::-1], 2) if n else 0 for i in range(2**n)]


@pytest.mark.parametrize("n", range(7))
def test_the_matrix(n):
    circuit = sample(n)
    matrix = circuit.to_matrix()
    assert matrix.shape == (2**n, 2**n) and matrix.dtype == np.complex128 and matrix.flags.c_contiguous and matrix.flags.writeable
    np.testing.assert_allclose(matrix, numpy_simulator.unitary(circuit), rtol=0, atol=1e-14)
    turned = circuit.to_matrix("big")
    assert (turned == matrix[np.ix_(reversed_bits(n), reversed_bits(n))]).all()
    for index in range(2**n):  # bit for bit what the circuit makes of each basis state
        column = StateVector(n).set_basis_state(index, "little").run(circuit).array
        assert np.ascontiguousarray(matrix[:, index]).tobytes() == column.tobytes()


def test_it_goes_back_in_as_a_gate():
    circuit = sample(3)
    for order in ("little", "big"):
        gate = Circuit(3).matrix(circuit.to_matrix(order), range(3), order=order)
        np.testing.assert_allclose(gate.to_matrix(), circuit.to_matrix(), rtol=0, atol=1e-14)


def test_it_is_qiskits():
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="compares with Qiskit: pip install velacamplix[test]")
    info = pytest.importorskip("qiskit.quantum_info", reason="compares with Qiskit: pip install velacamplix[test]")
    circuit = sample(4)
    theirs = info.Operator(qasm2.loads(circuit.to_qasm())).data
    np.testing.assert_allclose(circuit.to_matrix(), theirs, rtol=0, atol=1e-13)
    vector = info.Statevector.from_instruction(qasm2.loads(circuit.to_qasm())).data
    np.testing.assert_allclose(circuit.statevector(), vector, rtol=0, atol=1e-13)


def test_matrices_that_are_not_unitary_and_registers():
    assert Circuit(1).matrix([[1, 2], [0, 0]], 0, check=False).to_matrix().tolist() == [[1, 2], [0, 0]]
    assert Circuit(1, 3).x(0).to_matrix().real.tolist() == [[0, 1], [1, 0]]


def test_the_state():
    circuit = sample(3)
    assert circuit.statevector().tobytes() == run(circuit).state.array.tobytes()
    assert (circuit.statevector("big") == circuit.statevector()[reversed_bits(3)]).all()
    assert circuit.statevector(precision="single").dtype == np.complex64
    assert Circuit(3).x(2).statevector()[4] == 1 and Circuit(3).x(2).statevector("big")[1] == 1  # idle qubits too
    assert Circuit(0).statevector().tolist() == [1]
    measured = Circuit(2, 2).h(0).measure([0, 1], [0, 1])
    assert measured.statevector() == pytest.approx([np.sqrt(0.5), np.sqrt(0.5), 0, 0])
    assert Circuit(2).initialize("1+").statevector() == pytest.approx([0, np.sqrt(0.5), 0, np.sqrt(0.5)])
    told = []
    circuit.statevector(progress=told.append)
    circuit.to_matrix(progress=told.append)
    assert len(told) >= 2 and told[-1].done == told[-1].total


def test_memory_is_asked_for_first(monkeypatch):
    from velacamplix.machine import limits

    monkeypatch.setattr(limits, "memory", lambda root="/": limits.Memory(2**22, 2**22, None))
    with pytest.raises(MemoryError):
        Circuit(12).to_matrix()
    assert Circuit(3).to_matrix().shape == (8, 8)


MISTAKES = {
    "too many qubits": (ValueError, "circuit must have at most 12 qubits for a matrix, got 13", lambda: Circuit(13).to_matrix()),
    "a measurement": (ValueError, "gates and barriers.*instruction 1, measure 0 -> 0", lambda: Circuit(1, 1).h(0).measure(0, 0).to_matrix()),
    "a reset": (ValueError, "instruction 0, reset 0", lambda: Circuit(1).initialize("0").to_matrix()),
    "a decision": (ValueError, "instruction 0, if ", lambda: Circuit(1, 1).if_(("c", 1), Circuit(1).x(0)).to_matrix()),
    "an open parameter": (ValueError, "parameters must have values", lambda: Circuit(1).rx(Parameter("a"), 0).to_matrix()),
    "another order": (ValueError, "order must be 'big' or 'little'", lambda: Circuit(1).to_matrix("up")),
    "a state by chance": (ValueError, "more than one possible outcome", lambda: Circuit(1, 1).h(0).measure(0, 0).h(0).statevector()),
    "another precision": (ValueError, "precision must be", lambda: Circuit(1).statevector(precision="half")),
    "an order of a state": (ValueError, "order must be 'big' or 'little'", lambda: Circuit(1).statevector("up")),
    "no progress": (TypeError, "progress", lambda: Circuit(1).to_matrix(progress=3)),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes(case):
    kind, message, call = MISTAKES[case]
    with pytest.raises(kind, match=message):
        call()
