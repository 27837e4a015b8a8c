"""
The ground state of molecular hydrogen
======================================

A variational quantum eigensolver prepares a state that depends on angles, measures its energy and turns the angles
until the energy is lowest. The molecule is H₂ at a bond length of 1.401 Bohr in the STO-3G basis: four spin
orbitals, one qubit each, a qubit is 1 where its orbital is occupied.
"""

import numpy as np
from matplotlib import pyplot
from scipy.optimize import minimize

from velacamplix import Circuit, Observable, Parameter, StateVector

# Coefficients, in Hartree, of the Jordan-Wigner form: J. T. Seeley, M. J. Richard and P. J. Love, "The Bravyi-Kitaev
# transformation for quantum computation of electronic structure", J. Chem. Phys. 137, 224109 (2012), equation 79.
hamiltonian = Observable(
    "-0.81261 + 0.171201*Z0 + 0.171201*Z1 - 0.2227965*Z2 - 0.2227965*Z3"
    "+ 0.16862325*Z0 Z1 + 0.12054625*Z0 Z2 + 0.165868*Z1 Z2"
    "+ 0.165868*Z0 Z3 + 0.12054625*Z1 Z3 + 0.17434925*Z2 Z3"
    "- 0.04532175*Y0 Y1 X2 X3 + 0.04532175*X0 Y1 Y2 X3"
    "+ 0.04532175*Y0 X1 X2 Y3 - 0.04532175*X0 X1 Y2 Y3"
)
nuclear_repulsion = 1 / 1.401  # in Hartree; two protons, distance in Bohr

# %%
# Four qubits are few enough to write the Hamiltonian as a matrix and ask NumPy for its smallest eigenvalue. That is the
# number to reach.

exact = np.linalg.eigvalsh(hamiltonian.to_matrix())[0]

# %%
# The circuit turns every qubit by an angle of its own, entangles neighbours, and turns every qubit once more.

angles = [Parameter(f"a{i}") for i in range(8)]
ansatz = Circuit(4)
for qubit in range(4):
    ansatz.ry(angles[qubit], qubit)
for qubit in range(3):
    ansatz.cnot(qubit, qubit + 1)
for qubit in range(4):
    ansatz.ry(angles[4 + qubit], qubit)
ansatz

# %%
# The energy of a set of angles is the expectation value in the state that they make. Its derivatives by all of them
# take one run forward and one back, so an optimizer may as well have them: SciPy's take both with ``jac=True``.

history = []


def energy(values):
    value, gradient = ansatz.value_and_gradient(hamiltonian, values)
    history.append(value)
    return value, gradient


random = np.random.default_rng(4)
optimum = minimize(energy, random.normal(scale=0.1, size=len(angles)), jac=True, method="L-BFGS-B", tol=1e-12)
values = optimum.x

found = optimum.fun
chemical_accuracy = 1.6e-3  # Hartree; 1 kcal/mol
# The Hartree-Fock state: two electrons fill the two lowest orbitals.
hartree_fock = StateVector(4).set_basis_state("1100").expectation(hamiltonian)
print(f"Hartree-Fock energy:     {hartree_fock + nuclear_repulsion:.6f} Hartree")
print(f"found after {len(history)} energies: {found + nuclear_repulsion:.6f} Hartree")
print(f"exact diagonalisation:   {exact + nuclear_repulsion:.6f} Hartree")
print(f"error: {found - exact:.1e} Hartree, within chemical accuracy: {abs(found - exact) < chemical_accuracy}")

# %%
# A quantum computer would estimate the energy from shots. The estimate comes with its standard error.

state = StateVector(4, seed=3).run(ansatz.bind(values))
mean, error = state.estimate(hamiltonian, shots=10_000)
print(f"from 10000 shots per term: {mean + nuclear_repulsion:.4f} ± {error:.4f} Hartree")

# %%
figure, ax = pyplot.subplots(figsize=(6.4, 4), layout="constrained")
ax.semilogy(np.maximum(np.array(history) - exact, 1e-12), ".-", color="#0072b2")
ax.axhline(chemical_accuracy, color="#9a9a9a", linestyle=":")
ax.annotate("chemical accuracy", (len(history) - 1, chemical_accuracy), ha="right", va="bottom", color="#555555")
ax.set_xlabel("energies and gradients")
ax.set_ylabel("energy above the exact one, Hartree")
figure.savefig("vqe_h2.png")
