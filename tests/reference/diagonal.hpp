#pragma once

#include "complex.hpp"

namespace reference {

enum class Phase { Z, S, T, PH };

// Multiplies the amplitudes whose local index is 1 (last listed target 1, the others 0). `factor` is PH's alone.
template <class T>
void apply(Phase gate, State<T>& state, const Qubits& targets, const Qubits& controls, Complex<T> factor = {});

// diag has 2^k entries, first listed target = high bit of the position.
template <class T>
void apply_diagonal(State<T>& state, const Qubits& targets, const Qubits& controls,
                    const std::vector<Complex<T>>& diag);

// The diagonal in the order of the state's gathered target bits.
template <class T>
std::vector<Complex<T>> sorted_diagonal(const Qubits& targets, const std::vector<Complex<T>>& diag, unsigned long mask);

}  // namespace reference
