#pragma once

#include "complex.hpp"

#include <string>

namespace reference {

// |0...0> on n qubits.
template <class T>
State<T> basis_state_0(unsigned int n);

// Amplitude i is source[i with its n bits reversed].
template <class T>
State<T> reversed_copy(const State<T>& source);

// The product state of a string over "01+-"; the first character governs qubit n - 1.
template <class T>
State<T> product_state(const std::string& s, unsigned int n);

}  // namespace reference
