#pragma once

#include "statevector/measurement/chain_sums.hpp"

// Probabilities of outcomes as the library reports them: over the free index bits, counted by j, each span of 2^16
// consecutive j is one chain (chain_sums.hpp) and the span sums are added in span order. So they have the same bits
// for every number of threads, and up to 16 free qubits they are the plain sum in index order.

namespace velacamplix::measurement {

inline constexpr unsigned span_bits = 16;

// The free bits that number the spans, highest first.
inline std::vector<unsigned int> span_qubits(const std::vector<unsigned int>& listed, unsigned int n) {
    unsigned long free = index::low_bits(n) & ~index::mask_of(listed);
    for (unsigned skipped = 0; skipped < span_bits; ++skipped) free &= free - 1;
    std::vector<unsigned int> qubits;
    for (; free != 0; free ^= std::bit_floor(free)) {
        qubits.push_back(static_cast<unsigned int>(std::bit_width(free)) - 1);
    }
    return qubits;
}

// Calls sink(slot, probability) once for each of the 2^k outcomes of k distinct qubits of the view. The first listed
// qubit is the slot's most significant bit. Several threads may call copies of `sink`, each destroyed at the end.
template <class View, class Sink>
void sum_outcomes(const View& view, const std::vector<unsigned int>& listed, int nthreads, const Sink& sink) {
    using T = typename View::proba_type;
    const std::vector<unsigned int> numbering = span_qubits(listed, view.nqubits);
    if (numbering.empty()) {
        sum_chains(view, listed, nthreads, sink);
        return;
    }
    std::vector<unsigned int> extended = listed;
    extended.insert(extended.end(), numbering.begin(), numbering.end());
    const unsigned long spans = 1ul << numbering.size();
    std::vector<T> span_sums(1ul << extended.size());
    sum_chains(view, extended, nthreads, [&](unsigned long slot, T sum) { span_sums[slot] = sum; });

    Sink mine = sink;
    for (unsigned long first = 0, slot = 0; first < span_sums.size(); first += spans, ++slot) {
        T total = span_sums[first];
        for (unsigned long b = 1; b < spans; ++b) total += span_sums[first + b];
        mine(slot, total);
    }
}

// The elements whose index bits outside `free` read `fixed`; as many as `count_bits` free bits number, upwards from 0.
template <class Seq>
typename Seq::proba_type sum_fixed(const Seq& view, unsigned long free, unsigned long fixed, unsigned int count_bits,
                                   int nthreads) {
    typename Seq::proba_type total{};
    const auto keep = [&](unsigned long, typename Seq::proba_type sum) { total = sum; };
    if (count_bits == view.nqubits) {
        sum_outcomes(view, {}, nthreads, keep);  // nothing is fixed
    } else {
        sum_outcomes(fixed_view<Seq>(view, free, fixed, count_bits), {}, nthreads, keep);
    }
    return total;
}

}  // namespace velacamplix::measurement
