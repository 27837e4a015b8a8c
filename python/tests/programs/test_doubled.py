"""Gates and channels become operations on a density matrix that do what a sum over Kraus operators does."""

import numpy as np
import pytest
from kraus_sums import density, random_channels, random_noisy_steps

from velacamplix import Channel, Circuit, Instruction, StateVector
from velacamplix.core import extension
from velacamplix.instructions.expand import basic
from velacamplix.programs.doubled import doubled


def noise(channel, *qubits):
    return Instruction("channel", qubits, detail=channel)


def texts(steps, n_qubits):
    return [str(step) for step in doubled(steps, n_qubits)]


def entries(steps, n_qubits):
    """Run what the steps become on |0...0><0...0|; entry (i, j) is <i|rho|j>."""
    written = [part for step in steps for part in ([step] if step.name == "channel" else basic(step, in_programs=True))]
    program = extension.ProgramDouble(2 * n_qubits)
    gates = doubled(written, n_qubits)
    assert program.add(gates, range(2 * n_qubits)) == len(gates)
    state = StateVector(2 * n_qubits)
    program.run(state._core)
    return state.array.reshape(2**n_qubits, 2**n_qubits).T.copy()


def test_a_gate_acts_on_the_ket_and_its_conjugate_on_the_bra():
    steps = [Instruction("RXX", (0, 1), (0.5,)), Instruction("RYY", (0, 1), (0.5,)), Instruction("CNOT", (1, 0))]
    assert texts(steps, 2) == [
        "RXX(0.5) 0,1", "RXX(-0.5) 2,3", "RYY(0.5) 0,1", "RYY(-0.5) 2,3", "CNOT 1,0", "CNOT 3,2",
    ]  # fmt: skip


def test_what_acts_on_one_qubit_alone_becomes_one_matrix():
    made = doubled([Instruction("H", (0,)), noise(Channel.amplitude_damping(0.25), 0), Instruction("T", (0,))], 1)
    assert [str(step) for step in made] == ["matrix[4x4] 1,0"]
    gates = doubled([Instruction("H", (1,)), Instruction("SX", (1,))], 2)
    assert [str(step) for step in gates] == ["matrix[2x2] 1", "matrix[2x2] 3"]
    assert np.array_equal(np.conj(gates[0].params), gates[1].params)


def test_phases_become_one_diagonal_and_those_of_the_whole_state_nothing():
    steps = [Instruction("Z", (0,)), Instruction("S", (0,)), Instruction("diagonal", (), (1j,))]
    made = doubled(steps, 1)
    assert [str(step) for step in made] == ["diagonal[4] 1,0"]
    assert np.allclose(made[0].params, [1, -1j, 1j, 1], rtol=0, atol=1e-15)


def test_pauli_channels_of_pairs_are_diagonal_and_cnot_stays_cnot():
    steps = [Instruction("CNOT", (0, 1)), noise(Channel.pauli({"XZ": 0.25}), 0, 1), noise(Channel.bit_flip(0.25), 0)]
    made = doubled(steps, 2)
    assert [str(step) for step in made] == [
        "CNOT 0,2", "H 0", "CNOT 1,3", "H 1",  # to the Bell frame: bits 2 and 3 tell X, bits 0 and 1 tell Z
        "CNOT 2,3", "CNOT 1,0",
        "diagonal[16] 3,1,2,0",
        "H 0", "CNOT 0,2", "H 1", "CNOT 1,3",
    ]  # fmt: skip
    # X Z anticommutes with what has one of Z on qubit 0 and X on qubit 1; X on qubit 0 with what has Z there.
    literal = []
    for x1, _, _, z0 in np.ndindex(2, 2, 2, 2):
        literal.append((0.5 if x1 ^ z0 else 1) * (0.5 if z0 else 1))
    assert made[6].params == tuple(literal)


def test_a_rotation_with_depolarizing_noise_turns_half_of_the_entries():
    steps = [
        noise(Channel.depolarizing(0.5, 2), 0, 1),
        Instruction("RX", (0,), (0.5,)), noise(Channel.depolarizing(0.5), 0), Instruction("RZ", (0,), (0.25,)),
        noise(Channel.depolarizing(0.5, 2), 0, 1),
    ]  # fmt: skip
    made = [str(step) for step in doubled(steps, 2)]
    assert made[:4] == ["CNOT 0,2", "H 0", "CNOT 1,3", "H 1"]
    assert made[4:-4] == ["diagonal[16] 3,1,2,0", "RX(-1) 2 controls 0", "RX(0.5) 0 controls 2", "diagonal[16] 3,1,2,0"]


def test_diagonals_wait_for_what_moves_them():
    steps = [
        noise(Channel.depolarizing(0.5), 0),
        Instruction("CNOT", (0, 1)),
        noise(Channel.depolarizing(0.5, 2), 1, 0),
    ]
    made = doubled(steps, 2)
    assert [step.name for step in made].count("diagonal") == 1
    diagonal = next(step for step in made if step.name == "diagonal")
    # Highest first: X and Z of the last qubit, X and Z of the first. What a CNOT (0, 1) moves came from I on qubit 0
    # where there is neither an X on qubit 0, nor a Z on just one of the two.
    assert diagonal.qubits == (2, 0, 3, 1)
    literal = []
    for x0, z0, x1, z1 in np.ndindex(2, 2, 2, 2):
        before = 1 if not x0 and not z0 ^ z1 else 0.5
        literal.append(before * (0.5 if x0 + z0 + x1 + z1 else 1))
    assert np.allclose(diagonal.params, literal, rtol=0, atol=1e-15)


def test_channels_that_are_none_of_pauli_are_matrices():
    channel = Channel.amplitude_damping(0.25).tensor(Channel.bit_flip(0.5))
    made = doubled([noise(channel, 2, 0)], 3)
    assert [str(step) for step in made] == ["matrix[16x16] 3,5,0,2"]
    assert np.array_equal(np.reshape(made[0].params, (16, 16)), channel.superoperator())


def test_reset_and_measurement_without_outcome():
    made = doubled([Instruction("reset", (1,)), Instruction("measure", (0,)), Instruction("barrier", (0, 1))], 2)
    assert [str(step) for step in made] == ["diagonal[4] 2,0", "matrix[4x4] 3,1"]
    assert made[0].params == (1, 0, 0, 1)
    assert made[1].params == (1, 0, 0, 1) + (0,) * 12


@pytest.mark.parametrize("name", ["CNOT", "CSIGN", "SWAP"])
@pytest.mark.parametrize("pair", [(0, 1), (1, 0), (0, 2)])
def test_gates_that_stay_in_the_bell_frame(name, pair):
    between = noise(Channel.pauli({"XYZ": 0.1, "ZIX": 0.2, "YYI": 0.15}), 2, 0, 1)
    turns = [Instruction("U", (q,), (0.3 + q, 1.1, -0.7 * q)) for q in range(3)]
    damped = [noise(Channel.depolarizing(0.1), 1), noise(Channel.bit_flip(0.2), 0)]
    steps = [*turns, between, *damped, Instruction(name, pair), *damped, between, *turns]
    gates = {"CNOT": "cx", "CSIGN": "cz", "SWAP": "swap", "U": "u"}
    circuit = [step if step.name == "channel" else gate(gates[step.name], step) for step in steps]
    assert np.abs(entries(circuit, 3) - density(circuit, 3)).max() < 1e-14


def gate(method, step):
    return getattr(Circuit(3), method)(*step.params, *step.qubits)[0]


@pytest.mark.parametrize("angle", [0.0, np.pi / 2, np.pi, -np.pi, 3 * np.pi / 2, 1e-9, 2.0])
@pytest.mark.parametrize(
    "names", ["rx", "ry", "rz", "rz rx", "rx rz", "rz ry", "rx ry rz", "h", "s h", "y", "rz rx rz"]
)
def test_every_rotation_in_the_bell_frame(names, angle):
    pauli = noise(Channel.pauli({"XY": 0.1, "ZX": 0.25}), 0, 1)
    circuit = Circuit(2).ry(0.7, 0).rx(1.9, 1)
    steps = [*circuit, pauli]
    for name in names.split():
        turned = Circuit(2)
        getattr(turned, name)(*([angle] if name.startswith("r") else []), 0)
        steps += [*turned, noise(Channel.depolarizing(0.05), 0), noise(Channel.pauli({"X": 0.1, "Z": 0.2}), 1)]
    steps.append(pauli)
    assert np.abs(entries(steps, 2) - density(steps, 2)).max() < 1e-14


@pytest.mark.parametrize("n_qubits", [1, 2, 3, 4])
def test_every_channel_on_entangled_states_with_complex_entries(n_qubits):
    prepared = Circuit(n_qubits)
    for qubit in range(n_qubits):
        prepared.ry(0.9 + qubit, qubit).s(qubit).rx(0.4 - qubit, qubit)
        if qubit:
            prepared.cx(qubit - 1, qubit)
    for channel in random_channels(np.random.default_rng(n_qubits)):
        if channel.n_qubits <= n_qubits:
            steps = [
                *prepared,
                noise(channel, *np.random.default_rng(5).permutation(n_qubits)[: channel.n_qubits].tolist()),
            ]
            assert np.abs(entries(steps, n_qubits) - density(steps, n_qubits)).max() < 1e-13, channel


@pytest.mark.parametrize("n_qubits", [1, 2, 3, 4])
@pytest.mark.parametrize("seed", range(3))
def test_random_circuits(n_qubits, seed):
    steps = random_noisy_steps(np.random.default_rng(100 * n_qubits + seed), n_qubits, 30)
    assert np.abs(entries(steps, n_qubits) - density(steps, n_qubits)).max() < 1e-13


def test_layers_with_depolarizing_noise_stay_in_the_bell_frame():
    steps = []
    for layer in range(4):
        for qubit in range(6):
            for name in ("RX", "RZ"):
                steps += [
                    Instruction(name, (qubit,), (0.3 + qubit + layer,)),
                    noise(Channel.depolarizing(0.001), qubit),
                ]
        for qubit in range(layer % 2, 5, 2):
            steps += [Instruction("CNOT", (qubit, qubit + 1)), noise(Channel.depolarizing(0.01, 2), qubit, qubit + 1)]
    made = doubled(steps, 6)
    halves = [step for step in made if step.name == "RX" and step.controls]
    diagonals = [step for step in made if step.name == "diagonal"]
    others = {step.name for step in made if not step.controls} - {"diagonal"}
    # Two half rotations for each qubit and layer, but where nothing stands between two layers of a qubit; into the
    # frame and out once.
    assert len(halves) <= 2 * 6 * 4 and others == {"CNOT", "H"}
    assert len(diagonals) <= 10 + 4 and [step.name for step in made].count("H") == 12
