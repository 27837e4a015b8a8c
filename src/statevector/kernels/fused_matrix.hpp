#pragma once

#include "statevector/kernels/kernel_call.hpp"

#include <vector>

namespace velacamplix::kernels {

inline constexpr unsigned most_fused_targets = 4;

// Prepares a matrix on one to four target bits, row-major in local indices, first target = most significant bit of the
// local index. Sums take the columns upward, in the order of the local indices that sorted targets would have, and
// round every product together with its sum where the processor can. So only opt-in fusion may ask for it.
//
// A matrix on two targets whose rows have one entry off the diagonal, all at the same distance (row ^ column), takes
// half the work: its sums start with the diagonal's.
template <class T>
kernel_call<T> fused_matrix_call(unsigned long nbqbits, const std::vector<unsigned long>& targets,
                                 const std::vector<thrust::complex<T>>& matrix);

}  // namespace velacamplix::kernels
