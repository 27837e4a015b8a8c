"""
A circuit as a layer of a network
=================================

Two interleaved half moons of points are to be told apart by a small network in PyTorch. Its middle is a circuit on
three qubits: the points come in as angles, the expectation values of three observables go out, and what is trained are
angles of the circuit and the numbers of the layer behind it, all by the same `backward`. This example needs PyTorch:
`pip install torch`.
"""

import numpy as np
import torch
from matplotlib import pyplot

from velacamplix import Circuit, ParameterVector
from velacamplix.torch import Expectation

torch.manual_seed(3)


def half_moons(count, seed):
    """Points and their classes, 0 or 1."""
    draw = np.random.default_rng(seed)
    turn = draw.uniform(0, np.pi, count)
    upper = np.column_stack([np.cos(turn), np.sin(turn)])
    kind = np.arange(count) % 2
    points = np.where(kind[:, None] == 0, upper, [1.0, 0.5] - upper) + draw.normal(scale=0.12, size=(count, 2))
    return torch.tensor(points, dtype=torch.float32), torch.tensor(kind, dtype=torch.float32)


# %%
# The circuit reads the point three times, with turns to be trained in between.

n, repeats = 3, 3
point, weights = ParameterVector("x", 2), ParameterVector("w", 2 * n * repeats)
trained = iter(weights)
circuit = Circuit(n)
for _ in range(repeats):
    for q in range(n):
        circuit.ry(2 * point[q % 2], q).rz(next(trained), q).ry(next(trained), q)
    for q in range(n):
        circuit.cx(q, (q + 1) % n)

# %%
# `Expectation` makes a layer of it. Which parameters are its input is said by name; the others are its weights.

network = torch.nn.Sequential(Expectation(circuit, ["Z0", "Z1", "Z2"], inputs=point), torch.nn.Linear(n, 1))
print(network)

# %%
# Training is what it always is in PyTorch. Each point costs one run forward and one gradient, whatever the number of
# weights and of observables.

points, kinds = half_moons(60, seed=1)
optimizer = torch.optim.Adam(network.parameters(), lr=0.1)
losses = []
for _ in range(40):
    optimizer.zero_grad()
    loss = torch.nn.functional.binary_cross_entropy_with_logits(network(points)[:, 0], kinds)
    loss.backward()
    optimizer.step()
    losses.append(loss.item())

# %%
# Points that it has not seen:

new_points, new_kinds = half_moons(200, seed=2)
with torch.no_grad():
    right = ((network(new_points)[:, 0] > 0) == (new_kinds > 0.5)).float().mean().item()
print(f"loss from {losses[0]:.2f} to {losses[-1]:.2f}")
print(f"of 200 new points {right:.1%} are told apart")

# %%
figure, (left, plane) = pyplot.subplots(1, 2, figsize=(10, 4), layout="constrained")
left.plot(losses, color="#0072b2")
left.set_xlabel("steps")
left.set_ylabel("loss")
grid = np.stack(np.meshgrid(np.linspace(-1.5, 2.5, 25), np.linspace(-1, 1.5, 25)), axis=-1)
with torch.no_grad():
    share = torch.sigmoid(network(torch.tensor(grid, dtype=torch.float32))[..., 0]).numpy()
plane.contourf(grid[..., 0], grid[..., 1], share, levels=11, cmap="coolwarm", alpha=0.6)
plane.scatter(*new_points.T, c=new_kinds, cmap="coolwarm", s=12, edgecolor="white", linewidth=0.4)
figure.savefig("torch_classifier.png")
