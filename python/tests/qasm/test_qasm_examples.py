"""The example circuits give the results that their first lines promise."""

from pathlib import Path

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit

FOLDER = Path(__file__).parents[3] / "examples" / "circuits"

# value of the classical bits: probability; all others must be 0
OUTCOMES = {
    "ghz": {0: 0.5, 2**16 - 1: 0.5},
    "qft": {value: 1 / 8 for value in range(0, 256, 32)},
    "phase_estimation": {19: 1},
    "bernstein_vazirani": {0b110100101101011: 1},
    "adder": {347 + 218: 1},
    "w_state": {2**i: 1 / 6 for i in range(6)},
    "mirror": {0b101100111000101101: 1},
    "error_correction": {0b111: 0.8, 0b110: 0.2},
    "teleportation": {low | high << 2: [0.7, 0.3][high] / 4 for low in range(4) for high in range(2)},
    "grover": {
        value: 0.9991823155432934 if value == 22 else (1 - 0.9991823155432934) / 31 for value in range(32)
    },
}  # fmt: skip


def probabilities(name):
    return numpy_simulator.probabilities(Circuit.from_qasm(FOLDER / f"{name}.qasm"))


def ones(n_bits):
    return sum((np.arange(2**n_bits) >> bit) & 1 for bit in range(n_bits))


@pytest.mark.parametrize("name", OUTCOMES)
def test_outcomes(name):
    found = probabilities(name)
    expected = np.zeros(len(found))
    expected[list(OUTCOMES[name])] = list(OUTCOMES[name].values())
    np.testing.assert_allclose(found, expected, rtol=0, atol=1e-10)


def test_grover_is_the_sine_of_nine_angles():
    assert OUTCOMES["grover"][22] == pytest.approx(np.sin(9 * np.arcsin(1 / np.sqrt(32))) ** 2, abs=1e-12)


def test_ansatz():
    found = probabilities("ansatz")
    assert np.argmax(found) == 1919 == 0b011101111111
    assert found[1919] == pytest.approx(0.038864, abs=5e-7)
    assert found @ ones(12) == pytest.approx(6.915582, abs=5e-7)


def test_ising_trotter():
    found = probabilities("ising_trotter")
    assert found[0] == pytest.approx(0.265635, abs=5e-7)
    assert 1 - 2 * (found @ ones(10)) / 10 == pytest.approx(0.660860, abs=5e-7)


def test_random():
    found = probabilities("random")
    assert np.argmax(found) == 758 == 0b001011110110
    assert found[758] == pytest.approx(0.002121, abs=5e-7)
    assert 4096 * np.sum(found**2) == pytest.approx(2.011549, abs=5e-7)


def test_every_example_is_tested_and_tells_what_to_expect():
    names = {path.stem for path in FOLDER.glob("*.qasm")}
    assert names == {*OUTCOMES, "ansatz", "ising_trotter", "random"}
    for name in names:
        comment = (FOLDER / f"{name}.qasm").read_text().split("OPENQASM")[0]
        assert all(line.startswith("//") for line in comment.splitlines())
        assert "Expect: " in comment
