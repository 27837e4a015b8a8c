#pragma once

#include <velacamplix/observable.hpp>

#include <random>
#include <utility>
#include <vector>

// The two halves of evaluate_term, for shots that are drawn a few at a time.

namespace velacamplix::observables {

// How many of the next `shots` outcomes of a cumulative table have an odd number of ones.
template <class T, class Engine>
unsigned long count_odd(const std::vector<T>& cumulative, unsigned long shots, Engine& rng);

// The weighted mean and standard error of the parities of `shots` outcomes, `odd` of them odd.
template <class T>
std::pair<thrust::complex<T>, thrust::complex<T>> weighted_parity(unsigned long odd, unsigned long shots,
                                                                  const thrust::complex<T>& coefficient);

}  // namespace velacamplix::observables
