#pragma once

#include "statevector/gates/operation.hpp"

#include <span>
#include <vector>

namespace velacamplix::fusion {

// Rewrites a list of gates into one that does the same up to rounding with less work. Neighbouring gates on one qubit
// become one, written as a diagonal, a rotation with few products, and a diagonal; diagonals wait as long as nothing
// mixes their qubit; a phase between two equal CNOTs becomes a controlled phase.
template <class T>
std::vector<gates::operation<T>> simplify(std::span<const gates::operation<T>> operations);

}  // namespace velacamplix::fusion
