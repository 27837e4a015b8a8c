#pragma once

#include <velacamplix/storage.hpp>

#include <memory>
#include <vector>

namespace velacamplix::kernels {

// The entries of a diagonal by the state's index: bit j of a position is the state's bit of the j-th lowest target.
// Renaming the targets without changing their order leaves them as they are, so one copy serves all that is prepared
// for the same gate.
template <class T>
struct sorted_diagonal {
    unsigned bits;  // of a position
    pbamplix::amplitude_array<T> entries;
};

template <class T>
using shared_diagonal = std::shared_ptr<const sorted_diagonal<T>>;

// Writes the entries of `diag`, in the gate's local order, by their position: the target bits of a state's index under
// `mask`. As many as there are.
template <class C>
void fill_sorted(C* out, const std::vector<unsigned int>& targets, const std::vector<C>& diag, unsigned long mask);

// Sorts 2^k entries that stand in the gate's local order (first of the k targets = most significant bit). A target that
// is listed twice cancels.
template <class T>
shared_diagonal<T> sort_diagonal(const std::vector<unsigned int>& targets,
                                 const std::vector<thrust::complex<T>>& diagonal);

}  // namespace velacamplix::kernels
