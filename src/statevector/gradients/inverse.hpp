#pragma once

#include "statevector/gates/operation.hpp"

namespace velacamplix::gradients {

// The gate that undoes one: its conjugate transpose, which is the inverse of what is unitary. Angles are not kept.
template <class T>
gates::operation<T> inverse_of(const gates::operation<T>& op);

// The largest entry of |M M^dagger - 1| of a gate given by its numbers, for more than 6 qubits of this times a vector
// of signs; 0 for a gate with a name.
template <class T>
double deviation_from_unitary(const gates::operation<T>& op);

}  // namespace velacamplix::gradients
