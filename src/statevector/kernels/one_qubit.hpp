#pragma once

#include "statevector/kernels/kernel_call.hpp"

#include <velacamplix/kernels.hpp>

namespace velacamplix::kernels {

// Prepares a 2x2 gate on qubit bit `target` where all bits of `controls` are 1, for 2^nbqbits amplitudes.
// G is the tag of a formula over two amplitudes (formulas.hpp), which takes from `coefficients` what it needs: the
// parameters of the tag in kernels.hpp, in their order.
template <class G, class T>
kernel_call<T> one_qubit_call(unsigned long nbqbits, unsigned long target, unsigned long controls,
                              const std::array<thrust::complex<T>, 4>& coefficients = {});

}  // namespace velacamplix::kernels
