"""
Sampling a random circuit
=========================

After enough layers of random gates a state looks random: the 2^n probabilities p follow the Porter-Thomas law, in
which x = 2^n p is distributed as exp(-x). Shots of the circuit then prefer the likelier outcomes, and the linear
cross entropy 2^n <p> - 1 over the shots is 1. It is 0 for bit strings drawn uniformly, which is why it serves as a
test of quantum hardware.
"""

import numpy as np
from matplotlib import pyplot

from velacamplix import Circuit, StateVector

n, layers, shots = 16, 16, 100_000
random = np.random.default_rng(11)

# %%


def random_circuit():
    """Layers of random one-qubit gates, each followed by CZ on random pairs."""
    circuit = Circuit(n)
    for _ in range(layers):
        for qubit in range(n):
            phi, lam = random.uniform(0, 2 * np.pi, 2)
            circuit.u3(np.arccos(random.uniform(-1, 1)), phi, lam, qubit)  # every direction is equally likely
        for one, two in random.permutation(n).reshape(-1, 2):
            circuit.cz(one, two)
    return circuit


circuit = random_circuit()
state = StateVector(n, seed=6).run(circuit)
p = state.distribution()
x = 2**n * p
print(f"{n} qubits, {len(circuit)} gates, norm {p.sum():.12f}")

# %%
# Moments of exp(-x): the mean of x² is 2. The share of outcomes above x is exp(-x).

print(f"mean of (2^n p)^2: {np.mean(x**2):.3f}, Porter-Thomas: 2")
for limit in (1, 3):
    print(f"share of outcomes with 2^n p > {limit}: {np.mean(x > limit):.4f}, Porter-Thomas: {np.exp(-limit):.4f}")


# %%
# Cross entropy of shots from the circuit, of uniform bit strings, and of a mixture of half and half, which is what a
# machine of fidelity one half would give.


def cross_entropy(samples):
    return 2**n * p[samples].mean() - 1


ideal = state.sample(shots)
uniform = random.integers(2**n, size=shots, dtype=np.uint64)
mixed = np.where(random.random(shots) < 0.5, ideal, uniform)
scores = {"ideal": cross_entropy(ideal), "fidelity 1/2": cross_entropy(mixed), "uniform": cross_entropy(uniform)}
for name, score in scores.items():
    print(f"cross entropy, {name}: {score:+.3f}")


# %%
figure, (left, right) = pyplot.subplots(1, 2, figsize=(10, 4), layout="constrained")
edges = np.linspace(0, 10, 51)
left.hist(x, bins=edges, density=True, color="#0072b2", label="all outcomes")
left.hist(x[ideal], bins=edges, density=True, histtype="step", color="#d55e00", label="shots")
left.plot(edges, np.exp(-edges), "k:", label="exp(-x)")
left.plot(edges, edges * np.exp(-edges), "k--", linewidth=0.8, label="x exp(-x)")
left.set_yscale("log")
left.set_ylim(1e-4, 2)
left.set_xlabel("x = 2^n p")
left.set_ylabel("density")
left.legend()
right.bar(list(scores), list(scores.values()), color="#0072b2", width=0.5)
right.axhline(0, color="black", linewidth=0.8)
right.set_ylabel("linear cross entropy")
figure.savefig("random_circuit_sampling.png")
