#pragma once

#include <velacamplix/measurement.hpp>

namespace velacamplix::measurement {

// One outcome over the listed qubits (all when the list is empty), for one output of the engine: what a scan of the
// running sum finds. Allocates nothing, but for sums that threads share.
template <class Seq>
unsigned long draw_outcome(const Seq& view, std::mt19937_64& rng, const std::vector<unsigned int>& qubits,
                           int nthreads);

// An engine whose outputs are given: what shots with random numbers of their own are drawn with. The outputs outlive
// it.
struct given_outputs {
    const unsigned long* next;

    unsigned long operator()() { return *next++; }
};

// The end of the running sum of a view in double precision.
template <class Seq>
double total_of(const Seq& view, int nthreads);

// Whether a total of probabilities is near enough to 1 for random numbers to be taken as they are, not as fractions of
// it: within 1e-9, more than rounding makes of it in double precision and less than any number of shots can show.
bool is_normalised(double total);

// Throws std::domain_error for a total that has no fractions: 0, infinite, NaN.
void require_total(double total);

}  // namespace velacamplix::measurement
