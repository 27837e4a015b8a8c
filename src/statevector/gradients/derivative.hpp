#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/gradients/derivative_sums.hpp"

#include <vector>

namespace velacamplix::gradients {

// What the derivatives of <psi|H|psi> by the angles of one gate are made of, lambda and psi being the states behind it:
// that by angle a is the sum over s of weights[a][s] times sums[s], whose masks are over qubits. Nothing for a gate
// without angles.
struct derivative {
    std::vector<pauli_sum> sums;
    std::vector<std::vector<double>> weights;
};

template <class T>
derivative derivative_of(const gates::operation<T>& op);

// How many sums the derivatives of a gate of this kind take.
unsigned count_sums(gates::gate_kind kind);

}  // namespace velacamplix::gradients
