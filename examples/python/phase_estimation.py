"""
Estimating a phase
==================

A gate multiplies its eigenstate by exp(2πiφ). Phase estimation reads φ to t binary digits: t counting qubits
control the gate 1, 2, 4, ... times, and an inverse Fourier transform turns the phases they picked up into digits.
"""

import math

import numpy as np
from matplotlib import pyplot

from velacamplix import Circuit, StateVector, plot_probabilities

t = 7
phi = 1 / math.e
counting = list(range(t))  # qubit 0 holds the first digit after the point, of weight 1/2
eigenstate = t

# %%
# The transform, and the circuit around it; drawn is the transform of three qubits.


def fourier(k):
    """Return the quantum Fourier transform of k qubits; qubit 0 is the most significant digit."""
    transform = Circuit(k)
    for i in range(k):
        transform.h(i)
        for j in range(i + 1, k):
            transform.cp(math.pi / 2 ** (j - i), j, i)
    for i in range(k // 2):
        transform.swap(i, k - 1 - i)
    return transform


circuit = Circuit(t + 1).x(eigenstate)
for qubit in counting:
    circuit.h(qubit)
for place, qubit in enumerate(counting):
    # The digit of weight 2^-(place + 1) sees the gate 2^(t - 1 - place) times.
    repeated = 2 ** (t - 1 - place)
    circuit.ph(2 * math.pi * phi * repeated, eigenstate, controls=[qubit])
circuit.compose(fourier(t).inverse(), counting)
fourier(3)

# %%
# φ has no end in binary, so neighbouring readings occur too. Theory tells the probability of each: with δ the distance
# from φ to the reading, sin²(2ᵗπδ) / (2ᵗ sin(πδ))².

state = StateVector(t + 1, seed=2).run(circuit)
found = state.distribution(counting)
distance = phi - np.arange(2**t) / 2**t
expected = (np.sin(2**t * np.pi * distance) / (2**t * np.sin(np.pi * distance))) ** 2

reading = int(found.argmax())
print(f"phase {phi:.6f}, most likely reading {reading}/{2**t} = {reading / 2**t:.6f}")
print(f"its probability: {found[reading]:.4f}, at least 4/π² = {4 / math.pi**2:.4f}")
print(f"largest deviation from theory: {np.abs(found - expected).max():.1e}")

counts = state.counts(1000, counting)
near = sum(times for number, times in counts.ints().items() if abs(number / 2**t - phi) < 2 / 2**t)
print(f"shots within two units of the last digit: {near} of 1000")

# %%
figure, ax = pyplot.subplots(figsize=(8, 4.2), layout="constrained")
plot_probabilities(found, top=12, ax=ax)
ax.set_title(f"readings of φ = {phi:.6f} in {t} binary digits")
figure.savefig("phase_estimation.png")
