"""
Cutting a graph with QAOA
=========================

MaxCut: paint the nodes of a graph in two colours so that as many edges as possible join different colours. The
quantum approximate optimisation algorithm turns step by step from "all colourings at once" towards good ones: p
layers, each a phase that grows with the number of cut edges followed by a rotation of every qubit.
"""

import itertools

import numpy as np
from matplotlib import pyplot
from scipy.optimize import minimize

from velacamplix import Circuit, Observable, Parameter, run

nodes = 12
edges = [(i, (i + 1) % nodes) for i in range(nodes)] + [(i, i + nodes // 2) for i in range(nodes // 2)]


def cut_size(colouring):
    return sum(colouring[a] != colouring[b] for a, b in edges)


# %%
# With twelve nodes every colouring can be tried, which tells the best cut. The cost as an observable: an edge
# contributes (1 - ZZ)/2, which is 1 where its ends differ and 0 where they are equal.

largest = max(cut_size("".join(bits)) for bits in itertools.product("01", repeat=nodes))
cost = Observable([(0.5 * len(edges), "", [])] + [(-0.5, "ZZ", edge) for edge in edges])

# %%
# Angles that follow a straight ramp do well without any optimisation: the phase grows over the layers while the
# rotation fades. What remains to be found is one number, the slope. Gates take parameters where they take angles; a
# circuit with parameters is built once and bound to numbers as often as needed.


def qaoa(layers):
    circuit = Circuit(nodes)
    for node in range(nodes):
        circuit.h(node)
    for layer in range(layers):
        gamma, beta = Parameter(f"gamma{layer}"), Parameter(f"beta{layer}")
        for a, b in edges:
            circuit.rzz(-gamma, a, b)
        for node in range(nodes):
            circuit.rx(2 * beta, node)
    return circuit


def ramp(layers, slope):
    """Values in the order in which the circuit names its parameters: gamma0, beta0, gamma1, ..."""
    times = (np.arange(layers) + 0.5) / layers
    return np.column_stack([slope * times, slope * (1 - times)]).ravel()


slopes = np.linspace(0.2, 1.6, 29)
best = {}
for layers in (1, 2, 4, 8, 16):
    circuit = qaoa(layers)
    ramps = np.array([ramp(layers, slope) for slope in slopes])
    values = run(circuit, values=dict(zip(circuit.parameters, ramps.T)), observables=cost).expectation_values
    best[layers] = (max(values), slopes[int(np.argmax(values))])
    print(f"{layers:2} layers: {max(values):6.3f} of {largest} edges cut on average, slope {best[layers][1]:.2f}")


# %%
# A ramp is a good place to begin. From there an optimizer turns every angle by itself, by derivatives that take the
# time of about four runs, however many angles there are.

layers = 4
circuit = qaoa(layers)


def uncut(values):
    value, gradient = circuit.value_and_gradient(cost, values)
    return -value, -gradient


turned = minimize(uncut, ramp(layers, best[layers][1]), jac=True, method="L-BFGS-B")
print(f"{layers} layers with every angle by itself: {-turned.fun:.3f}, after {turned.nfev} gradients")

# %%
# Shots give colourings. Most of them are good, and the best one is optimal.

layers = max(best)
counts = run(qaoa(layers).bind(ramp(layers, best[layers][1])), shots=1000, seed=5).counts
sizes = {}
for colouring, times in counts.items():
    sizes[cut_size(colouring)] = sizes.get(cut_size(colouring), 0) + times
winner = max(counts, key=cut_size)
print(f"best of 1000 shots: {winner} cuts {cut_size(winner)} of {len(edges)} edges; the largest cut is {largest}")
print(f"share of shots that are optimal: {sizes.get(largest, 0) / 1000:.3f}")

# %%
random = {}
for bits in itertools.product("01", repeat=nodes):
    random[cut_size(bits)] = random.get(cut_size(bits), 0) + 1 / 2**nodes
figure, (left, right) = pyplot.subplots(1, 2, figsize=(10, 4), layout="constrained")
left.plot(list(best), [value / largest for value, _ in best.values()], "o-", color="#0072b2")
left.set_xscale("log", base=2)
left.set_xticks(list(best), list(best))
left.set_xlabel("layers")
left.set_ylabel("cut edges, average / largest possible")
right.bar(list(random), list(random.values()), width=0.8, color="#cccccc", label="colourings at random")
right.bar(list(sizes), [n / 1000 for n in sizes.values()], width=0.4, color="#0072b2", label=f"{layers} layers")
right.set_xlabel("cut edges")
right.set_ylabel("share")
right.legend()
figure.savefig("qaoa_maxcut.png")
