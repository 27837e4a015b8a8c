"""
Grover's search
===============

One of N = 2^n items is marked. An oracle flips the sign of its amplitude; a reflection about the mean makes that
amplitude grow. After k rounds the item is found with probability sin²((2k + 1)θ), where sin θ = 1/√N, so about
(π/4)√N rounds are enough.
"""

import math

from matplotlib import pyplot

from velacamplix import Circuit, StateVector, plot_probabilities

n = 10
marked = "1011001110"  # qubit 0 is the leftmost character
last = n - 1
others = list(range(last))

# %%
# A Z controlled by all other qubits flips the sign of 11…1 alone. Between X gates on the right qubits it flips the
# sign of any one item.


def flip_sign(circuit, item):
    """Add gates that flip the sign of one basis state."""
    zeros = [qubit for qubit, bit in enumerate(item) if bit == "0"]
    for qubit in zeros:
        circuit.x(qubit)
    circuit.z(last, controls=others)
    for qubit in zeros:
        circuit.x(qubit)


def hadamards(circuit):
    for qubit in range(n):
        circuit.h(qubit)


start = Circuit(n)
hadamards(start)

one_round = Circuit(n)
flip_sign(one_round, marked)
hadamards(one_round)
flip_sign(one_round, "0" * n)
hadamards(one_round)
one_round

# %%
# The state stays where it is between the rounds, so its probabilities can be read after each of them without starting
# again.

theta = math.asin(2 ** (-n / 2))
best = round(math.pi / (4 * theta) - 0.5)

state = StateVector(n, seed=1).run(start)
found = [state.probability(marked)]
for _ in range(2 * best):
    state.run(one_round)
    found.append(state.probability(marked))
expected = [math.sin((2 * k + 1) * theta) ** 2 for k in range(len(found))]

print(f"{2**n} items, best number of rounds: {best}")
print(f"probability of the marked item after them: {found[best]:.6f}")
print(f"largest deviation from the formula: {max(abs(p - q) for p, q in zip(found, expected)):.1e}")

# %%
# Shots from the state after the best number of rounds nearly always give the marked item.

state.reset().run(start + one_round * best)
counts = state.counts(1000)
outcome, times = counts.most_likely(1)[0]
print(f"most frequent of 1000 shots: {outcome}, {times} times")

# %%
figure, (left, right) = pyplot.subplots(1, 2, figsize=(10, 4), layout="constrained")
left.plot(expected, color="#9a9a9a", label="sin²((2k + 1)θ)")
left.plot(found, ".", color="#0072b2", label="simulated")
left.axvline(best, color="#9a9a9a", linestyle=":")
left.set_xlabel("rounds k")
left.set_ylabel(f"probability of {marked}")
left.legend()
plot_probabilities(state, top=5, ax=right)
right.set_title(f"after {best} rounds")
figure.savefig("grover.png")
