"""Every gate method by its matrix, phases included, with and without controls; Qiskit is the judge where it has the gate."""

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, StateVector

TOLERANCE = 1e-14  # a few rounding errors

# method: (angles, qubits, name in qiskit.circuit.library)
GATES = {
    "x": (0, 1, "XGate"), "y": (0, 1, "YGate"), "z": (0, 1, "ZGate"), "h": (0, 1, "HGate"), "s": (0, 1, "SGate"),
    "t": (0, 1, "TGate"), "sdg": (0, 1, "SdgGate"), "tdg": (0, 1, "TdgGate"), "sx": (0, 1, "SXGate"),
    "sxdg": (0, 1, "SXdgGate"), "rx": (1, 1, "RXGate"), "ry": (1, 1, "RYGate"), "rz": (1, 1, "RZGate"),
    "ph": (1, 1, "PhaseGate"), "p": (1, 1, "PhaseGate"), "u1": (1, 1, "U1Gate"), "u2": (2, 1, "U2Gate"),
    "u3": (3, 1, "U3Gate"), "u": (3, 1, "UGate"), "cnot": (0, 2, "CXGate"), "cx": (0, 2, "CXGate"),
    "csign": (0, 2, "CZGate"), "cz": (0, 2, "CZGate"), "swap": (0, 2, "SwapGate"), "iswap": (0, 2, "iSwapGate"),
    "rxx": (1, 2, "RXXGate"), "ryy": (1, 2, "RYYGate"), "rzz": (1, 2, "RZZGate"), "cy": (0, 2, "CYGate"),
    "ch": (0, 2, "CHGate"), "csx": (0, 2, "CSXGate"), "crx": (1, 2, "CRXGate"), "cry": (1, 2, "CRYGate"),
    "crz": (1, 2, "CRZGate"), "cp": (1, 2, "CPhaseGate"), "cph": (1, 2, "CPhaseGate"), "cu1": (1, 2, "CU1Gate"),
    "cu3": (3, 2, "CU3Gate"), "cu": (4, 2, "CUGate"), "ccnot": (0, 3, "CCXGate"), "ccx": (0, 3, "CCXGate"),
    "toffoli": (0, 3, "CCXGate"), "ccz": (0, 3, "CCZGate"), "cswap": (0, 3, "CSwapGate"), "fredkin": (0, 3, "CSwapGate"),
    "rccx": (0, 3, "RCCXGate"), "rc3x": (0, 4, "RC3XGate"), "rcccx": (0, 4, "RC3XGate"), "id": (0, 1, "IGate"),
    "r": (2, 1, "RGate"), "rzx": (1, 2, "RZXGate"), "ecr": (0, 2, "ECRGate"), "dcx": (0, 2, "DCXGate"),
    "xx_plus_yy": (2, 2, "XXPlusYYGate"), "xx_minus_yy": (2, 2, "XXMinusYYGate"), "cs": (0, 2, "CSGate"),
    "csdg": (0, 2, "CSdgGate"), "gphase": (1, 0, "GlobalPhaseGate"),
}  # fmt: skip

# Gates Qiskit does not have, and their matrices, first qubit as the highest bit.
ROOT = np.sqrt(0.5)
OTHERS = {
    "ztoy": (1, ROOT * np.array([[1, 1], [1j, -1j]])),
    "ytoz": (1, ROOT * np.array([[1, -1j], [1, 1j]])),
    "sqrtswap": (2, np.array([[1, 0, 0, 0], [0, 0.5 + 0.5j, 0.5 - 0.5j, 0], [0, 0.5 - 0.5j, 0.5 + 0.5j, 0], [0, 0, 0, 1]])),
    "sqrtswapdg": (2, np.array([[1, 0, 0, 0], [0, 0.5 - 0.5j, 0.5 + 0.5j, 0], [0, 0.5 + 0.5j, 0.5 - 0.5j, 0], [0, 0, 0, 1]])),
    "iswapdg": (2, np.array([[1, 0, 0, 0], [0, 0, -1j, 0], [0, -1j, 0, 0], [0, 0, 0, 1]])),
}

ANGLES = [(0.4, -1.3, 2.2, 0.9), (3.5, 5.1, -2.5, -7.0), (0.0, np.pi, -np.pi / 2, np.pi / 4)]


# And with angles: exp(-i sum of angle times matrix) of commuting products, first letter as the highest bit.
PAULIS = {"I": np.eye(2), "X": np.array([[0, 1], [1, 0]]), "Y": np.array([[0, -1j], [1j, 0]]), "Z": np.diag([1, -1])}


def product(letters):
    matrix = np.eye(1)
    for letter in letters:
        matrix = np.kron(matrix, PAULIS[letter])
    return matrix


def exponential(**angles):
    matrix = np.eye(2 ** len(next(iter(angles))), dtype=complex)
    for letters, angle in angles.items():
        matrix = (np.cos(angle) * np.eye(len(matrix)) - 1j * np.sin(angle) * product(letters)) @ matrix
    return matrix


WITH_ANGLES = {
    "fsim": (2, lambda theta, phi: exponential(XX=theta / 2, YY=theta / 2) @ np.diag([1, 1, 1, np.exp(-1j * phi)])),
    "givens": (1, lambda theta: exponential(YX=theta / 2, XY=-theta / 2)),
}


def applied_to_basis(n, apply):
    """The matrix of what `apply` does to a StateVector; qubit q is bit q of row and column."""
    columns = []
    for index in range(2**n):
        state = StateVector(n).set_state(np.eye(2**n)[index], order="little")
        apply(state)
        columns.append(state.array.copy())
    return np.array(columns).T


def with_controls(matrix, n_controls):
    """The controls are the highest bits."""
    full = np.eye(len(matrix) * 2**n_controls, dtype=complex)
    full[-len(matrix) :, -len(matrix) :] = matrix
    return full


def reversed_bits(matrix):
    """From the first qubit as the highest bit to the first qubit as the lowest."""
    n = int(np.log2(len(matrix)))
    order = [int(format(i, f"0{n}b")[::-1], 2) if n else 0 for i in range(2**n)]
    return matrix[np.ix_(order, order)]


def check(method, angles, n_qubits, matrix):
    for n_controls in (0, 1, 2):
        n = n_qubits + n_controls
        controls = list(range(n_qubits, n))
        expected = with_controls(matrix, n_controls)
        circuit = getattr(Circuit(n), method)(*angles, *range(n_qubits), controls=controls)
        np.testing.assert_allclose(numpy_simulator.unitary(circuit), expected, rtol=0, atol=TOLERANCE)
        ran = applied_to_basis(n, lambda state: state.run(circuit))
        np.testing.assert_allclose(ran, expected, rtol=0, atol=TOLERANCE)
        called = applied_to_basis(n, lambda state: getattr(state, method)(*angles, *range(n_qubits), controls=controls))
        np.testing.assert_allclose(called, expected, rtol=0, atol=TOLERANCE)
        undone = numpy_simulator.unitary(circuit + circuit.inverse())
        np.testing.assert_allclose(undone, np.eye(2**n), rtol=0, atol=TOLERANCE)


@pytest.mark.parametrize("method", GATES)
def test_gate_is_the_one_of_qiskit(method):
    library = pytest.importorskip("qiskit.circuit.library", reason="compares with Qiskit: pip install velacamplix[test]")
    n_angles, n_qubits, name = GATES[method]
    for angles in ANGLES[: 3 if n_angles else 1]:
        check(method, angles[:n_angles], n_qubits, getattr(library, name)(*angles[:n_angles]).to_matrix())


@pytest.mark.parametrize("method", OTHERS)
def test_gate_has_its_documented_matrix(method):
    n_qubits, matrix = OTHERS[method]
    check(method, (), n_qubits, reversed_bits(matrix))


@pytest.mark.parametrize("method", WITH_ANGLES)
def test_gate_has_its_documented_matrix_at_every_angle(method):
    n_angles, matrix = WITH_ANGLES[method]
    for angles in ANGLES:
        check(method, angles[:n_angles], 2, reversed_bits(matrix(*angles[:n_angles])))


def test_every_gate_method_is_in_a_table():
    from velacamplix.instructions.gate_methods import GateMethods

    methods = {name for name in dir(GateMethods) if not name.startswith("_")}
    assert methods == {*GATES, *OTHERS, *WITH_ANGLES}


def test_unitary_and_diagonal():
    rng = np.random.default_rng(3)
    matrix = np.linalg.qr(rng.normal(size=(4, 4)) + 1j * rng.normal(size=(4, 4)))[0]
    assert Circuit(3).unitary(matrix, [2, 0], 1) == Circuit(3).matrix(matrix, [2, 0], 1)
    entries = np.exp(1j * rng.normal(size=4))
    for order in ("big", "little"):
        diagonal = Circuit(3).diagonal(entries, [2, 0], 1, order=order)
        dense = Circuit(3).matrix(np.diag(entries), [2, 0], 1, order=order)
        np.testing.assert_array_equal(numpy_simulator.unitary(diagonal), numpy_simulator.unitary(dense))
        np.testing.assert_allclose(
            applied_to_basis(3, lambda state: state.run(diagonal)), numpy_simulator.unitary(dense), rtol=0, atol=TOLERANCE
        )
    for circuit in (diagonal, dense):
        assert np.abs(numpy_simulator.unitary(circuit + circuit.inverse()) - np.eye(8)).max() < TOLERANCE


def test_number_of_basic_instructions_does_not_depend_on_angles():
    for method, (n_angles, n_qubits, _) in GATES.items():
        shapes = {
            tuple((step.name, step.qubits, step.controls) for step in getattr(Circuit(4), method)(*angles[:n_angles], *range(n_qubits)).basic_instructions())
            for angles in [*ANGLES, (0.0, 0.0, 0.0, 0.0)]
        }  # fmt: skip
        assert len(shapes) == 1, method


REFUSED = {
    "angle of u": (ValueError, "phi must be finite, got nan", lambda c: c.u(1, np.nan, 2, 0)),
    "last angle of cu": (TypeError, "gamma must be a real number, got '1'", lambda c: c.cu(1, 2, 3, "1", 0, 1)),
    "control is target": (ValueError, "the qubits of crx must be distinct", lambda c: c.crx(0.1, 1, 1)),
    "control is a target of swap": (ValueError, "controls must not contain a target", lambda c: c.swap(0, 1, controls=[1])),
    "control is the first control": (ValueError, "controls must not contain a target", lambda c: c.cswap(0, 1, 2, controls=0)),
    "control missing": (IndexError, "control must be a number from 0 to 2, got 3", lambda c: c.cy(3, 0)),
    "flag as control": (TypeError, "control must be an integer, got True", lambda c: c.ch(True, 0)),
    "angle and qubit exchanged": (TypeError, "qubit2 must be an integer, got 0.5", lambda c: c.rxx(0, 1, 0.5)),
    "diagonal of wrong length": (ValueError, "diagonal must be 4 numbers for 2 qubit", lambda c: c.diagonal([1, 1], [0, 1])),
    "diagonal as a matrix": (ValueError, "diagonal must be 2 numbers.*got shape", lambda c: c.diagonal(np.eye(2), [0])),
    "diagonal not of norm 1": (ValueError, "absolute value 1", lambda c: c.diagonal([1, 2], 0)),
    "diagonal not finite": (ValueError, "finite", lambda c: c.diagonal([1, np.inf], 0)),
    "diagonal of texts": (TypeError, "diagonal must be 2 numbers", lambda c: c.diagonal(["a", "b"], 0)),
    "gate of no kind": (TypeError, "definition must be a GateDefinition", lambda c: c.gate("h", [0])),
}  # fmt: skip


@pytest.mark.parametrize("case", REFUSED)
def test_refused(case):
    kind, message, call = REFUSED[case]
    circuit = Circuit(3)
    with pytest.raises(kind, match=message):
        call(circuit)
    assert len(circuit) == 0


@pytest.mark.parametrize("large", [1e8, 1e20, 1e308, -1e308])
def test_gates_with_large_angles_are_unitary_and_right(large):
    # The sum of two such angles is rounded to the sum of others, or infinite.
    theta, phi, lam, gamma = 0.3, large, large + 0.7, 1.1 * large / 3
    matrix = numpy_simulator.unitary(Circuit(1).u(theta, phi, lam, 0))
    np.testing.assert_allclose(matrix @ matrix.conj().T, np.eye(2), rtol=0, atol=1e-15)
    for gate, parts in [
        (Circuit(1).u(theta, phi, lam, 0), Circuit(1).p(lam, 0).ry(theta, 0).p(phi, 0)),
        (Circuit(1).u3(theta, phi, lam, 0), Circuit(1).p(lam, 0).ry(theta, 0).p(phi, 0)),
        (Circuit(1).u2(phi, lam, 0), Circuit(1).p(lam, 0).ry(np.pi / 2, 0).p(phi, 0)),
        (Circuit(1).r(theta, phi, 0), Circuit(1).rz(-phi, 0).rx(theta, 0).rz(phi, 0)),
        (Circuit(2).xx_plus_yy(theta, phi, 0, 1), Circuit(2).p(phi, 0).rxx(theta / 2, 0, 1).ryy(theta / 2, 0, 1).p(-phi, 0)),
        (Circuit(2).cu(theta, phi, lam, gamma, 0, 1), Circuit(2).p(gamma, 0).cp(lam, 0, 1).cry(theta, 0, 1).cp(phi, 0, 1)),
    ]:
        np.testing.assert_allclose(numpy_simulator.unitary(gate), numpy_simulator.unitary(parts), rtol=0, atol=1e-15)
