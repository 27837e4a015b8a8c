#pragma once

#include <velacamplix/amplitude.hpp>

#include <vector>

namespace velacamplix::kernels {

// Whether the row-major dim x dim matrix has only zeros, of either sign, off its diagonal, which `diag` then holds; NaN
// is no zero.
template <class C>
bool take_diagonal(const std::vector<C>& matrix, std::vector<C>& diag, unsigned int dim);

}  // namespace velacamplix::kernels
