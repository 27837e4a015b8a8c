#pragma once

#include "statevector/kernels/kernel_call.hpp"

#include <velacamplix/kernels.hpp>

#include <array>
#include <vector>

namespace velacamplix::kernels {

// Prepares a 4x4 gate on qubit bits `high` and `low` (of the local index) where all bits of `controls` are 1.
// G is the tag of a formula over four amplitudes (formulas.hpp), which takes from `coefficients` what it needs.
template <class G, class T>
kernel_call<T> two_qubit_call(unsigned long nbqbits, unsigned long high, unsigned long low, unsigned long controls,
                              const std::array<thrust::complex<T>, 4>& coefficients = {});

// The general matrix, 16 entries row-major. Allocates a table.
template <class T>
kernel_call<T> two_qubit_matrix_call(unsigned long nbqbits, unsigned long high, unsigned long low,
                                     unsigned long controls, const std::vector<thrust::complex<T>>& matrix);

}  // namespace velacamplix::kernels
