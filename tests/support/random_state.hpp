#pragma once

#include "reference/complex.hpp"

#include <random>

namespace support {

enum class Values {
    ordinary,  // finite, magnitude below 1
    unusual,   // also zeros of both signs, denormals, huge numbers, infinities, the processor's own NaN
    any_bits,  // also NaNs of any sign and payload, quiet and signalling: for gates that only move and flip signs
};

// Where two different NaNs meet in an addition, the processor keeps the first operand's, and a compiler may exchange
// operands: so states for gates with arithmetic hold one NaN only, the one the processor itself makes.
template <class T>
reference::State<T> random_state(unsigned int n, Values values, unsigned int seed = 0);

// Coefficients of general matrices: finite, some of them zeros of either sign.
template <class T>
std::vector<reference::Complex<T>> random_coefficients(unsigned long count, unsigned int seed = 0);

// Different qubits below n, in random order.
reference::Qubits random_qubits(unsigned int count, unsigned int n, std::mt19937& engine);

}  // namespace support
