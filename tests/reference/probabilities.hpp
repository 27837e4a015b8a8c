#pragma once

#include "complex.hpp"

namespace reference {

// |a|^2, small numbers scaled up by 4 before they are squared.
template <class T>
T squared_magnitude(Complex<T> a);

// What a read view shows: element k is a probability. Of a density matrix of 2^m x 2^m entries, the real part of
// the diagonal; of a state, the squared magnitudes.
template <class T>
std::vector<T> state_view(const State<T>& state);
template <class T>
std::vector<T> density_view(const State<T>& matrix);

// Sum over the elements whose listed qubits carry the bits of `fixed`. In index order, each 2^16 of them make a block;
// blocks are summed one by one, then the block sums in block order.
template <class T>
T marginal_sum(const std::vector<T>& view, unsigned long fixed, const Qubits& qubits);

// First listed qubit = LEAST significant bit of `outcome`.
template <class T>
T probability(const std::vector<T>& view, unsigned long outcome, const Qubits& qubits);

// First listed qubit = most significant bit of the position; not above threshold^2 becomes 0.
template <class T>
std::vector<T> distribution(const std::vector<T>& view, T threshold, const Qubits& qubits);

// out[i with its bits reversed] = element i, or zero where its probability is not above threshold_sq.
template <class T, class Element>
std::vector<Element> permuted(const std::vector<T>& view, const std::vector<Element>& elements, T threshold_sq);

}  // namespace reference
