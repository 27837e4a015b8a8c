#pragma once

#include <velacamplix/observable.hpp>

#include <utility>
#include <vector>

namespace velacamplix::observables {

template <class Sum>
using mean_and_error = std::pair<thrust::complex<Sum>, thrust::complex<Sum>>;

// What a random number in [0, 1) is held against: the running sums as they are, or as fractions of their end, which
// does for a state of any norm.
enum class draw_as { numbers, fractions };

// Parities of shots for every term, each in its own measurement basis, with probabilities and parities summed in the
// precision Sum of the terms; the state is rotated in its own, and comes back up to rounding whatever is thrown, as the
// engine does. The hook counts shots, of all terms.
template <class T, class Sum, class Engine>
std::vector<mean_and_error<Sum>> sampled_values(thrust::complex<T>* amplitudes,
                                                const std::vector<pbamplix::SimpleTerm<Sum>>& terms,
                                                unsigned long shots, Engine& rng, unsigned int qubits, int nthreads,
                                                bool density_matrix, draw_as drawn_as,
                                                const pbamplix::work_hook& hook = {});

}  // namespace velacamplix::observables
