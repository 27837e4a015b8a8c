"""
Zero-noise extrapolation
========================

Noise that cannot be taken away can be made stronger. Who measures at several strengths sees in which direction the
mean goes, and follows it back to no noise at all. Here six spins turn in a field and pull at each other; every gate
is noisy, and the means come from counts, as from a device. What exact means would give is printed beside them.
"""

import numpy as np
from matplotlib import pyplot

from velacamplix import Channel, Circuit, NoiseModel, run

n, observable, shots = 6, "Z2", 50_000
layer = Circuit(n).rx(0.5, range(n)).rzz(0.15, range(n - 1), range(1, n))
circuit = layer * 6
ideal = run(circuit, observables=observable).expectation_values


def noise(strength=1.0):
    return (
        NoiseModel()
        .after("rzz", Channel.depolarizing(0.02 * strength, 2))
        .after("rx", Channel.amplitude_damping(0.005 * strength))
    )


# %%
# There are two ways to stronger noise. Folding needs no knowledge of it: the circuit, its inverse and the circuit again
# do what the circuit does, with three times as many gates. Whoever knows the noise can scale its probabilities instead,
# by factors that need not be odd.


def folded(times):
    return circuit + (circuit.inverse() + circuit) * times


ways = {
    "gates folded": [(1 + 2 * times, folded(times), noise()) for times in (0, 1, 2)],
    "probabilities scaled": [(scale, circuit, noise(scale)) for scale in (1.0, 2.0, 3.0)],
}

# %%
# An extrapolated value is a weighted sum of the means: what a straight line has at 0, or the parabola through all three
# (Richardson's extrapolation). The same weights tell its standard error. Richardson's are the larger ones: it lies
# closer to the truth on average, and scatters more.


def weights(scales, degree):
    """What to multiply the means with, so that their sum is the fitted polynomial's value at 0."""
    return np.linalg.pinv(np.vander(scales, degree + 1, increasing=True))[0]


methods = {"linear": 1, "Richardson": 2}
measured = {}
print(f"without noise: {ideal:.4f}")
for name, points in ways.items():
    scales = np.array([scale for scale, _, _ in points])
    exact, means, errors = np.empty((3, len(points)))
    for i, (_, noisy, model) in enumerate(points):
        exact[i] = run(noisy, noise=model, observables=observable).expectation_values
        means[i], errors[i] = run(noisy, noise=model, shots=shots, seed=i).counts.expectation(observable)
    measured[name] = scales, means, errors
    print(f"{name}, with noise: {means[0]:.4f} ± {errors[0]:.4f}, exactly {exact[0]:.4f}")
    for method, degree in methods.items():
        w = weights(scales, degree)
        error = np.linalg.norm(w * errors)
        print(f"{name}, {method}: {w @ means:.4f} ± {error:.4f}, exactly {w @ exact:.4f}")

# %%
figure, panels = pyplot.subplots(1, 2, figsize=(8, 3.6), sharey=True, layout="constrained")
styles = {"linear": ("#e69f00", "--", "s"), "Richardson": ("#0072b2", "-", "D")}
for ax, (name, (scales, means, errors)) in zip(panels, measured.items()):
    ax.axhline(ideal, color="#666666", linestyle=":", label="without noise")
    ax.errorbar(scales, means, errors, fmt="o", color="#000000", capsize=3, label="measured")
    along = np.linspace(0, max(scales), 50)
    for method, degree in methods.items():
        colour, line, mark = styles[method]
        ax.plot(along, np.polyval(np.polyfit(scales, means, degree), along), line, color=colour)
        w = weights(scales, degree)
        error = np.linalg.norm(w * errors)
        ax.errorbar(0, w @ means, error, fmt=mark, color=colour, capsize=3, label=method)
    ax.set_xlabel(f"strength of the noise, {name}")
    ax.set_xticks([0, *scales])
panels[0].set_ylabel("mean of Z2")
panels[0].legend()
figure.savefig("zero_noise_extrapolation.png")
