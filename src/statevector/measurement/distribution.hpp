#pragma once

#include "statevector/measurement/marginals.hpp"

namespace velacamplix::measurement {

// sum_outcomes for any list: one with a repeated or missing qubit, whose sums mean nothing, still gets 2^k of them.
template <class Seq, class Sink>
void sum_distribution(const Seq& view, const std::vector<unsigned int>& listed, int nthreads, const Sink& sink) {
    if (index::all_distinct(listed, view.nqubits)) {
        sum_outcomes(view, listed, nthreads, sink);
        return;
    }
    Sink mine = sink;
    for (unsigned long slot = 0; slot < 1ul << listed.size(); ++slot) {
        const unsigned long fixed = index::place_first_highest(slot, listed);
        mine(slot, pbamplix::cpu::cumulative_probability(view, fixed, listed, nthreads));
    }
}

}  // namespace velacamplix::measurement
