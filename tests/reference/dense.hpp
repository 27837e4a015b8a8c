#pragma once

#include "complex.hpp"

namespace reference {

// A row-major 2^k x 2^k matrix on k targets, first listed = high local bit. Every row's sum starts at +0 and takes the
// columns upward, each product in full.
template <class T>
void apply_dense(State<T>& state, const Qubits& targets, const Qubits& controls, const std::vector<Complex<T>>& matrix);

}  // namespace reference
