"""
A GHZ state on a noisy device
=============================

How large a GHZ state can a device make, and where should its circuit begin? Figures as a device's maker publishes them,
drawn at random here, become a noise model: errors of gates, relaxation of qubits that wait, and misread outcomes. The
state is 0...0 and 1...1 in equal parts; what is counted is the share of shots that read one of the two.
"""

import numpy as np
from matplotlib import pyplot

from velacamplix import Circuit, NoiseModel, run

most, shots = 12, 5000
random = np.random.default_rng(4)

# %%
# Twelve qubits in a row, CNOT gates between neighbours in both directions. Times are in seconds; the errors of gates
# are average infidelities.

qubits = [
    {"t1": t1, "t2": 0.8 * t1, "p1_given_0": misread, "p0_given_1": 2 * misread}
    for t1, misread in zip(random.uniform(20e-6, 60e-6, most), random.uniform(0.003, 0.02, most))
]
gates = [{"gate": "h", "error": 3e-4, "duration": 35e-9}, {"gate": "measure", "duration": 1e-6}]
for q, error in enumerate(random.uniform(0.002, 0.01, most - 1)):
    for pair in ([q, q + 1], [q + 1, q]):
        gates.append({"gate": "cx", "qubits": pair, "error": error, "duration": 300e-9})
device = NoiseModel.from_calibration({"qubits": qubits, "gates": gates})
well_read = [{"t1": qubit["t1"], "t2": qubit["t2"]} for qubit in qubits]
without_misreading = NoiseModel.from_calibration({"qubits": well_read, "gates": gates})

# %%
# From its first qubit, the state grows to one side; from the middle to both, in about half the time. What the model
# makes of a circuit can be looked at.


def ghz(n, first):
    circuit = Circuit(n, n).h(first)
    for distance in range(1, n):
        if first + distance < n:
            circuit.cx(first + distance - 1, first + distance)
        if first >= distance:
            circuit.cx(first - distance + 1, first - distance)
    return circuit.measure_all()


print(device.apply(ghz(3, 0)))

# %%
# `run` takes the density matrix where that is predicted to be faster, and trajectories elsewhere: equal histories of a
# shot run once.


def share(n, first, noise):
    """Of the shots that read 0...0 or 1...1, and its standard error."""
    result = run(ghz(n, first), shots=shots, seed=n, noise=noise, method="auto")
    found = sum(result.counts.get(bit * n, 0) for bit in "01") / shots
    print(f"{n:2} qubits: {found:.3f} ({result.plan})")
    return found, np.sqrt(found * (1 - found) / shots)


sizes = range(2, most + 1, 2)
shares = {}
for name, begins_at, noise in (
    ("from the middle, without misreading", 0.5, without_misreading),
    ("from the middle", 0.5, device),
    ("from the end", 0, device),
):
    print(f"{name}:")
    shares[name] = [share(n, int(begins_at * n), noise) for n in sizes]

# %%
figure, ax = pyplot.subplots(figsize=(6.4, 4), layout="constrained")
for (name, found), colour, mark in zip(shares.items(), ("#009e73", "#0072b2", "#d55e00"), "sDo"):
    values, errors = zip(*found)
    ax.errorbar(sizes, values, errors, fmt=mark + "-", color=colour, capsize=3, label=name)
ax.set_xlabel("qubits")
ax.set_ylabel("share of shots that read 0...0 or 1...1")
ax.legend()
figure.savefig("noisy_ghz.png")
