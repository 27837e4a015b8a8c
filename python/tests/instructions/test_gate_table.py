"""Every row of the table of gates: its parts say the same, and its methods are what the table says."""

import subprocess
import sys
from pathlib import Path

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Instruction, StateVector
from velacamplix.instructions.gates import GATES, with_controls
from velacamplix.qasm import qelib1
from velacamplix.qasm.blocks import plain

ROOT = Path(__file__)
while not (ROOT / "tools").is_dir() and ROOT != ROOT.parent:
    ROOT = ROOT.parent
TOOL = ROOT / "tools" / "regen.py"

TOLERANCE = 1e-14
ANGLES = [(0.4, -1.3, 2.2, 0.9), (3.5, 5.1, -2.5, -7.0), (0.0, np.pi, -np.pi / 2, np.pi / 4)]

# The names of Qiskit's classes, first qubit as the lowest bit.
QISKIT = {
    "X": "XGate", "Y": "YGate", "Z": "ZGate", "H": "HGate", "S": "SGate", "T": "TGate", "RX": "RXGate", "RY": "RYGate",
    "RZ": "RZGate", "PH": "PhaseGate", "CNOT": "CXGate", "CCNOT": "CCXGate", "CSIGN": "CZGate", "SWAP": "SwapGate",
    "ISWAP": "iSwapGate", "sdg": "SdgGate", "tdg": "TdgGate", "sx": "SXGate", "sxdg": "SXdgGate", "u": "UGate",
    "u2": "U2Gate", "u3": "U3Gate", "cu": "CUGate", "rxx": "RXXGate", "ryy": "RYYGate", "rzz": "RZZGate",
    "rccx": "RCCXGate", "rc3x": "RC3XGate", "id": "IGate", "r": "RGate", "rzx": "RZXGate", "ecr": "ECRGate", "dcx": "DCXGate",
    "gphase": "GlobalPhaseGate", "xx_plus_yy": "XXPlusYYGate", "xx_minus_yy": "XXMinusYYGate",
}  # fmt: skip


def angles_of(gate):
    return [values[: gate.n_params] for values in (ANGLES if gate.n_params else ANGLES[:1])]


def unitary(steps, n):
    circuit = Circuit(n)
    for step in steps:
        circuit.append(step)
    return numpy_simulator.unitary(circuit)


def one(gate, params, n_controls=0, extra=0):
    """The gate on the first qubits, controls behind them."""
    qubits = tuple(range(gate.n_qubits))
    return Instruction(gate.name, qubits, params, tuple(range(gate.n_qubits, gate.n_qubits + n_controls)))


@pytest.mark.parametrize("name", GATES)
def test_all_that_a_row_says_is_the_same_gate(name):
    gate = GATES[name]
    assert name == gate.name and (gate.matrix is None) == (gate.build is not None)
    for params in angles_of(gate):
        for n_controls in (0, 1, 2):
            n = max(1, gate.n_qubits + n_controls)
            step = one(gate, params, n_controls)
            expected = unitary([step], n)
            if gate.matrix is not None:
                # The first qubit is the highest bit of a row.
                entries = Instruction("matrix", step.qubits, tuple(map(complex, gate.matrix(*params))), step.controls)
                np.testing.assert_allclose(unitary([entries], n), expected, rtol=0, atol=TOLERANCE)
            block = gate.block(step.controls, step.qubits, *params) if step.qubits or step.controls else [step]
            np.testing.assert_allclose(unitary(block, n), expected, rtol=0, atol=5 * TOLERANCE)
            undone = [step, *Circuit(n).append(step).inverse()]
            np.testing.assert_allclose(unitary(undone, n), np.eye(2**n), rtol=0, atol=5 * TOLERANCE)
            circuit = Circuit(n).append(step)
            again = Circuit.from_qasm(circuit.to_qasm())
            if step.qubits or step.controls:
                assert list(again) == [plain(step)]
            else:  # a phase of the whole state is that of a qubit
                np.testing.assert_allclose(unitary(again, n), expected, rtol=0, atol=TOLERANCE)
            ran = np.array([StateVector(n).set_basis_state(i, "little").run(circuit).array for i in range(2**n)]).T
            np.testing.assert_allclose(ran, expected, rtol=0, atol=TOLERANCE)


@pytest.mark.parametrize("name", QISKIT)
def test_the_matrix_is_qiskits(name):
    library = pytest.importorskip("qiskit.circuit.library", reason="compares with Qiskit: pip install velacamplix[test]")
    gate = GATES[name]
    for params in angles_of(gate):
        theirs = getattr(library, QISKIT[name])(*params).to_matrix()
        np.testing.assert_allclose(unitary([one(gate, params)], gate.n_qubits), theirs, rtol=0, atol=TOLERANCE)


def test_gates_that_qiskit_has_not_are_few():
    assert set(GATES) - set(QISKIT) == {"ZtoY", "YtoZ", "SQRTSWAP", "iswapdg", "sqrtswapdg", "fsim", "givens"}


@pytest.mark.parametrize("name", GATES)
def test_inverses_are_inverses_of_each_other(name):
    gate = GATES[name]
    for params in angles_of(gate):
        step = one(gate, params)
        twice = Circuit(gate.n_qubits).append(step).inverse().inverse()
        np.testing.assert_allclose(
            numpy_simulator.unitary(twice), unitary([step], gate.n_qubits), rtol=0, atol=5 * TOLERANCE
        )


METHODS = [(method, gate.name, n) for gate in GATES.values() for method, n in gate.methods.items()]
ALIASES = [(alias, method) for gate in GATES.values() for alias, method in gate.aliases.items()]


@pytest.mark.parametrize("method, name, n_controls", METHODS)
def test_methods_add_what_the_row_says(method, name, n_controls):
    gate = GATES[name]
    n = gate.n_qubits + n_controls
    params = ANGLES[0][: gate.n_params]
    made = getattr(Circuit(n + 1), method)(*params, *range(n))
    assert list(made) == [Instruction(name, tuple(range(n_controls, n)), params, tuple(range(n_controls)))]
    # The same by the way of arguments that are looked at one by one.
    looked_at = getattr(Circuit(n + 1), method)(*map(np.float64, params), *map(np.int64, range(n)), controls=[])
    assert looked_at == made and all(type(q) is int for q in looked_at[0].qubits)
    more = getattr(Circuit(n + 1), method)(*params, *range(n), controls=n)
    assert list(more) == [Instruction(name, tuple(range(n_controls, n)), params, (*range(n_controls), n))]
    for state, other in ((made, StateVector(n + 1)), (more, StateVector(n + 1))):
        other.set_basis_state("+" * (n + 1))
        expected = other.copy().run(state).array
        called = getattr(other, method)(*params, *range(n), controls=() if state is made else n)
        np.testing.assert_allclose(called.array, expected, rtol=0, atol=TOLERANCE)


@pytest.mark.parametrize("method, name, n_controls", METHODS)
def test_wrong_arguments_of_methods_are_refused(method, name, n_controls):
    gate = GATES[name]
    n = gate.n_qubits + n_controls
    params = ANGLES[0][: gate.n_params]
    for target in (Circuit(n), StateVector(n)):
        for place in range(n):
            for wrong, error in ((n, IndexError), (-1, IndexError), (0.0, TypeError), (True, TypeError), ("0", TypeError)):
                qubits = [*range(n)]
                qubits[place] = wrong
                with pytest.raises(error):
                    getattr(target, method)(*params, *qubits)
        if n > 1:
            with pytest.raises(ValueError, match="distinct"):
                getattr(target, method)(*params, *[0] * n)
        for place in range(gate.n_params):
            for wrong, error in ((np.nan, ValueError), (-np.inf, ValueError), ("1", TypeError), (None, TypeError)):
                angles = [*params]
                angles[place] = wrong
                with pytest.raises(error):
                    getattr(target, method)(*angles, *range(n))
    assert len(Circuit(n)) == 0


@pytest.mark.parametrize("alias, method", ALIASES)
def test_aliases_are_the_method(alias, method):
    assert getattr(Circuit, alias) is getattr(Circuit, method)
    assert getattr(StateVector, alias) is getattr(StateVector, method)


@pytest.mark.parametrize("call", sorted(qelib1.GATES))
def test_names_of_openqasm_become_the_gate(call):
    gate = qelib1.GATES[call]
    values = f"({','.join(['0.5'] * gate.n_params)})" if gate.n_params else ""
    text = f'OPENQASM 2.0; include "qelib1.inc"; qreg q[{gate.n_qubits}]; {call}{values} '
    (*steps,) = Circuit.from_qasm(text + ",".join(f"q[{q}]" for q in range(gate.n_qubits)) + ";")
    if gate.step is None:
        assert steps == []
    else:
        params = (0.5,) * GATES[gate.step].n_params
        own, front = tuple(range(gate.n_controls, gate.n_qubits)), tuple(range(gate.n_controls))
        assert steps == [Instruction(gate.step, own, params, front)]


def test_gates_that_are_short_for_others():
    for gate in GATES.values():
        if gate.short_for is not None:
            name, n_controls = gate.short_for
            qubits = tuple(range(gate.n_qubits))
            assert with_controls(name, qubits[n_controls:], qubits[:n_controls]) == Instruction(gate.name, qubits)


def test_the_written_methods_are_those_of_the_table():
    if not TOOL.is_file():
        pytest.skip(f"{TOOL} is not there: the tests run outside the project")
    ended = subprocess.run([sys.executable, TOOL, "--check"], capture_output=True, text=True)
    assert ended.returncode == 0, ended.stderr
