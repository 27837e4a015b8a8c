#pragma once

#include "statevector/measurement/views.hpp"

#include <utility>

namespace velacamplix::measurement {

// Probabilities that are never negative: rounding to nearest keeps order, so their running sum never falls.
template <class Seq>
inline constexpr bool never_falls = false;
template <class C>
inline constexpr bool never_falls<pbamplix::SVSequence<C>> = true;
template <class Seq>
inline constexpr bool never_falls<pbamplix::precise_view<Seq>> = never_falls<Seq>;

// The running sum of a view's probabilities from index 0 on, strictly in index order and in the view's precision.
// Calls reached(first, sums, count) for consecutive blocks, where sums[e] includes the element first + e, until that
// returns false or the view ends. `count` is running_sum_block, or all of a smaller view. No allocation.
//
// Each addition waits for the one before. What else there is to do happens in that time: a block's probabilities are
// formed beforehand, and `reached` looks at the block before, so that its mispredicted branches delay no addition.
inline constexpr unsigned long running_sum_block = 64;

template <class Seq, class Reached>
inline void walk_running_sum(const Seq& view, Reached reached) {
    using T = typename Seq::proba_type;
    constexpr unsigned long ahead = 4 * running_sum_block;  // from the block to what is fetched from memory

    alignas(64) T probabilities[running_sum_block];
    alignas(64) T sums[2][running_sum_block] = {};
    T* present = sums[0];
    T* before = sums[1];
    const unsigned long count = std::min(running_sum_block, view.dim);
    T sum = T(0);
    for (unsigned long first = 0; first < view.dim; first += count) {
        fill_probabilities(view, first, count, probabilities, std::min(first + ahead, view.dim - count));
        for (unsigned long e = 0; e < count; ++e) present[e] = sum += probabilities[e];
        if (first != 0 && !reached(first - count, before, count)) return;
        std::swap(present, before);
    }
    reached(view.dim - count, before, count);
}

}  // namespace velacamplix::measurement
