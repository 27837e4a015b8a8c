"""
Natural gradient
================

A step against the gradient depends on what the parameters are called: in other units the same circuit has other
slopes. The natural gradient divides by the metric of the states that the circuit makes, so that what counts is how far
the state moves. Here both look for the ground state of six spins in a transverse field, with angles as they are and in
units of their own.
"""

import numpy as np
from matplotlib import pyplot

from velacamplix import Circuit, Observable, ParameterVector

n, layers = 6, 3
hamiltonian = Observable([(-1.0, "ZZ", (q, (q + 1) % n)) for q in range(n)] + [(-1.0, "X", (q,)) for q in range(n)])
exact = np.linalg.eigvalsh(hamiltonian.to_matrix())[0]

# %%
# Every angle is a parameter times its unit. Derivatives by the parameters follow by the chain rule.

count = 2 * n * layers


def ansatz(units):
    parameters = ParameterVector("t", count)
    angles = iter([unit * parameter for unit, parameter in zip(units.tolist(), parameters)])
    circuit = Circuit(n)
    for _ in range(layers):
        for q in range(n):
            circuit.ry(next(angles), q)
        for q in range(n):
            circuit.rz(next(angles), q)
        for q in range(n):
            circuit.cz(q, (q + 1) % n)
    return circuit


random = np.random.default_rng(2)
start = random.uniform(-1, 1, count)
plain_units, other_units = np.ones(count), random.permutation(np.geomspace(0.2, 2, count))

# %%
# The metric comes in blocks, one for the gates that act at the same time. A tenth of its diagonal is added to it, so
# that directions in which the state hardly moves do not make steps long.


def descended(units, natural, size, steps=60):
    circuit, values, history = ansatz(units), start / units, []
    for _ in range(steps):
        value, direction = circuit.value_and_gradient(hamiltonian, values)
        history.append((value - exact) / abs(exact))
        if natural:
            metric = circuit.metric_tensor(values)
            direction = np.linalg.solve(metric + np.diag(0.1 * np.diag(metric) + 1e-6 * units**2), direction)
        values = values - size * direction
    return np.array(history)


found = {
    (name, units): descended(plain_units if units == "angles" else other_units, name == "natural", size)
    for name, size in (("plain", 0.2), ("natural", 0.05))
    for units in ("angles", "other units")
}
for (name, units), history in found.items():
    print(f"{name} gradient, {units}: {history[20]:.3f} above the exact energy after 20 steps")
difference = np.abs(found["natural", "angles"] - found["natural", "other units"]).max()
print(f"largest difference between the two natural ones: {difference:.1e}")

# %%
figure, ax = pyplot.subplots(figsize=(6.4, 4), layout="constrained")
styles = {"plain": "#d55e00", "natural": "#0072b2"}, {"angles": "-", "other units": "--"}
for (name, units), history in found.items():
    ax.semilogy(history, styles[1][units], color=styles[0][name], label=f"{name}, {units}")
ax.set_xlabel("steps")
ax.set_ylabel("energy above the exact one, relative")
ax.legend()
figure.savefig("natural_gradient.png")
