#pragma once

#include "statevector/gates/operation.hpp"

#include <vector>

namespace velacamplix::fusion {

// Brings together the gates of two qubits that no third qubit comes between, and those on one of the two next to them:
// where it costs less than they do, a block of them becomes one operation, their product formed in double precision. A
// diagonal one becomes phases on its qubits and a controlled phase. Matrices on three and four qubits become blocks by
// themselves. All other gates stay as they are, in their places.
template <class T>
std::vector<gates::operation<T>> form_blocks(std::vector<gates::operation<T>> operations);

// What an operation costs in a chunk: cycles per 64 bytes of the state, by a table that is the same on all machines.
template <class T>
double cost_of(const gates::operation<T>& op);

inline constexpr double cost_of_a_rotation = 2;

}  // namespace velacamplix::fusion
