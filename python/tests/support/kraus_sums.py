"""Density matrices as a sum over Kraus operators, in plain NumPy: what exact noise is held against."""

import numpy as np

from velacamplix import Channel, Circuit, Instruction, Readout


def on_all(operator, qubits, n_qubits):
    """Return an operator on all qubits; qubit j of the given one, bit j of a row's number, is qubits[j]."""
    size = 2**n_qubits
    whole = np.zeros((size, size), dtype=complex)
    for column in range(size):
        inside = sum((column >> qubit & 1) << j for j, qubit in enumerate(qubits))
        outside = column & ~sum(1 << qubit for qubit in qubits)
        for row in range(2 ** len(qubits)):
            place = outside | sum((row >> j & 1) << qubit for j, qubit in enumerate(qubits))
            whole[place, column] += operator[row, inside]
    return whole


def operators(step, n_qubits):
    """Return the Kraus operators of a channel, a reset, a measurement whose outcome nobody learns, or a gate."""
    zero, one, lowered = np.diag([1, 0]), np.diag([0, 1]), np.array([[0, 1], [0, 0]])
    if step.name == "channel":
        return [on_all(operator, step.qubits, n_qubits) for operator in step.detail.kraus()]
    if step.name in ("reset", "measure"):
        (qubit,) = step.qubits
        second = lowered if step.name == "reset" else one
        return [on_all(zero, [qubit], n_qubits), on_all(second, [qubit], n_qubits)]
    return [Circuit(n_qubits).append(step).to_matrix()]


def density(steps, n_qubits, start=None):
    """Return the density matrix after all steps; entry (i, j) is <i|rho|j>, qubit q is bit q."""
    size = 2**n_qubits
    rho = np.zeros((size, size), dtype=complex)
    rho[0, 0] = 1
    rho = rho if start is None else np.array(start)
    for step in steps:
        rho = sum(kraus @ rho @ kraus.conj().T for kraus in operators(step, n_qubits))
    return rho


def random_unitary(rng, size):
    return np.linalg.qr(rng.normal(size=(size, size)) + 1j * rng.normal(size=(size, size)))[0]


def random_channels(rng):
    """Return one channel of each kind, on 1 to 4 qubits."""
    columns = random_unitary(rng, 8)[:, :4]
    return [
        Channel.depolarizing(0.1), Channel.depolarizing(1.2), Channel.depolarizing(0.2, 2),
        Channel.depolarizing(0.2, 3), Channel.depolarizing(0.3, 4), Channel.bit_flip(0.2), Channel.phase_flip(0.1),
        Channel.pauli({"X": 0.1, "Y": 0.2, "Z": 0.05}), Channel.pauli({"XY": 0.1, "ZI": 0.2, "YZ": 0.05}),
        Channel.phase_damping(0.2), Channel.amplitude_damping(0.3), Channel.generalized_amplitude_damping(0.2, 0.3),
        Channel.thermal_relaxation(50, 60, 20, 0.1), Channel.reset(0.2, 0.1), Channel.coherent(random_unitary(rng, 2)),
        Channel.coherent(random_unitary(rng, 4)),
        Channel.from_unitaries([0.3, 0.7], [random_unitary(rng, 4), random_unitary(rng, 4)]),
        Channel.from_kraus([columns[:4], columns[4:]]), Channel.amplitude_damping(0.3).tensor(Channel.bit_flip(0.1)),
    ]  # fmt: skip


# Angles and qubits of the gates that random circuits have.
GATES = {
    "h": (0, 1), "x": (0, 1), "y": (0, 1), "z": (0, 1), "s": (0, 1), "t": (0, 1), "sx": (0, 1), "rx": (1, 1),
    "ry": (1, 1), "rz": (1, 1), "u": (3, 1), "cx": (0, 2), "cz": (0, 2), "swap": (0, 2), "cp": (1, 2), "rzz": (1, 2),
    "rxx": (1, 2), "ryy": (1, 2), "iswap": (0, 2), "cy": (0, 2), "crz": (1, 2), "ccx": (0, 3), "gphase": (1, 0),
    "cswap": (0, 3),
}  # fmt: skip


def random_noisy_steps(rng, n_qubits, length):
    """Return gates and channels on random qubits."""
    channels = [channel for channel in random_channels(rng) if channel.n_qubits <= n_qubits]
    names = [name for name, (_, qubits) in GATES.items() if qubits <= n_qubits]
    steps = []
    for _ in range(length):
        if rng.random() < 0.45:
            channel = channels[rng.integers(len(channels))]
            steps.append(
                Instruction("channel", tuple(rng.permutation(n_qubits)[: channel.n_qubits].tolist()), detail=channel)
            )
        else:
            name = names[rng.integers(len(names))]
            angles, qubits = GATES[name]
            circuit = Circuit(n_qubits)
            getattr(circuit, name)(*rng.uniform(-7, 7, angles).tolist(), *rng.permutation(n_qubits)[:qubits].tolist())
            steps.append(circuit[0])
    return steps


def by_outcome(steps, n_qubits, groups=None):
    """Return for every value of the classical bits the matrix that goes with it, its trace being the probability.

    Measurements, misread or not, resets, conditions, decisions and loops are taken literally, one outcome at a time.
    """
    size = 2**n_qubits
    if groups is None:
        rho = np.zeros((size, size), dtype=complex)
        rho[0, 0] = 1
        groups = {0: rho}
    for step in steps:
        found = {}
        for bits, rho in groups.items():
            if step.condition is not None and not step.condition.holds(bits):
                parts = {bits: rho}
            else:
                parts = _after(step, n_qubits, bits, rho)
            for value, part in parts.items():
                found[value] = found.get(value, 0) + part
        groups = {bits: rho for bits, rho in found.items() if rho.trace().real > 1e-14}
    return groups


def _after(step, n_qubits, bits, rho):
    detail = step.detail
    if step.name == "measure":
        flips = [(0.0, 0.0)] * len(step.qubits) if detail is None else detail.flips
        parts = {bits: rho}
        for qubit, clbit, (up, down) in zip(step.qubits, step.clbits, flips):
            found = {}
            for before, part in parts.items():
                for outcome in (0, 1):
                    kept = on_all(np.diag([1 - outcome, outcome]), [qubit], n_qubits)
                    for read in (0, 1):
                        share = (up, down)[outcome] if read != outcome else 1 - (up, down)[outcome]
                        after = before & ~(1 << clbit) | read << clbit
                        if share:
                            found[after] = found.get(after, 0) + share * (kept @ part @ kept)
            parts = found
        return parts
    if step.name == "if":
        return by_outcome(detail.body if detail.condition.holds(bits) else detail.otherwise, n_qubits, {bits: rho})
    if step.name == "while":
        ended, going = {}, {bits: rho}
        for _ in range(200):
            for value in [value for value in going if not detail.condition.holds(value)]:
                ended[value] = ended.get(value, 0) + going.pop(value)
            going = by_outcome(detail.body, n_qubits, going) if going else {}
        return ended
    if step.name == "switch":
        value = sum((bits >> clbit & 1) << i for i, clbit in enumerate(detail.clbits))
        bodies = [body for values, body in detail.cases if value in values] or [detail.default]
        return by_outcome(bodies[0], n_qubits, {bits: rho})
    if step.name == "barrier":
        return {bits: rho}
    plain = step._replace(condition=None)
    if step.name == "reset":
        for qubit in step.qubits:
            rho = density([Instruction("reset", (qubit,))], n_qubits, rho)
        return {bits: rho}
    return {bits: density([plain], n_qubits, rho)}


def random_program(rng, n_qubits=3, n_clbits=3, depth=0):
    """Return a circuit of gates, channels, measurements, misread or not, resets, conditions, decisions and loops."""
    circuit = Circuit(n_qubits, n_clbits)
    for _ in range(rng.integers(3, 9) if depth == 0 else rng.integers(1, 4)):
        which, qubit, clbit, value = rng.random(), *rng.integers([n_qubits, n_clbits, 2]).tolist()
        if which < 0.2 and depth < 2:
            bodies = [random_program(rng, n_qubits, n_clbits, depth + 1) for _ in range(2)]
            circuit.if_((clbit, value), *bodies[: rng.integers(1, 3)])
        elif which < 0.3 and depth < 2:
            bodies = [random_program(rng, n_qubits, n_clbits, depth + 1) for _ in range(2)]
            circuit.switch([0, 1], {"10": bodies[0], ("01", "11"): bodies[1]})
        elif which < 0.35:
            body = Circuit(n_qubits, n_clbits).append(random_noisy_steps(rng, n_qubits, 1)[0])
            circuit.while_((clbit, value), body.ry(1.3, qubit).measure(qubit, clbit), max_iterations=199)
        elif which < 0.55:
            with circuit.when(int(rng.integers(n_clbits)), value):
                _add_random(rng, circuit, qubit, clbit)
        else:
            _add_random(rng, circuit, qubit, clbit)
    return circuit


def _add_random(rng, circuit, qubit, clbit):
    which = rng.random()
    if which < 0.5:
        circuit.append(random_noisy_steps(rng, circuit.n_qubits, 1)[0])
    elif which < 0.6:
        circuit.reset(qubit)
    else:
        readout = Readout((tuple(rng.uniform(0, 0.5, 2).tolist()),)) if rng.random() < 0.5 else None
        circuit.append(Instruction("measure", (qubit,), clbits=(clbit,), detail=readout))
