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

// The running sum of a view's probabilities, strictly in index order and in the view's precision, through the elements
// begin ... end - 1; `sum` is that of the elements before. Calls reached(first, sums, count) for consecutive blocks,
// where sums[e] includes the element first + e, until that returns false or the elements end. `count` is
// running_sum_block, by which end - begin can be divided, or all of fewer elements. No allocation.
//
// Each addition waits for the one before. What else there is to do happens in that time: a block's probabilities are
// formed beforehand, and `reached` looks at the block before, so that its mispredicted branches delay no addition.
inline constexpr unsigned long running_sum_block = 64;

template <class Seq, class Reached>
inline void walk_running_sum(const Seq& view, unsigned long begin, unsigned long end, typename Seq::proba_type sum,
                             Reached reached) {
    using T = typename Seq::proba_type;
    constexpr unsigned long ahead = 4 * running_sum_block;  // from the block to what is fetched from memory

    alignas(64) T probabilities[running_sum_block];
    alignas(64) T sums[2][running_sum_block] = {};
    T* present = sums[0];
    T* before = sums[1];
    const unsigned long count = std::min(running_sum_block, end - begin);
    for (unsigned long first = begin; first < end; first += count) {
        fill_probabilities(view, first, count, probabilities, std::min(first + ahead, view.dim - count));
        for (unsigned long e = 0; e < count; ++e) present[e] = sum += probabilities[e];
        if (first != begin && !reached(first - count, before, count)) return;
        std::swap(present, before);
    }
    reached(end - count, before, count);
}

// The same from index 0 on through the whole view.
template <class Seq, class Reached>
inline void walk_running_sum(const Seq& view, Reached reached) {
    walk_running_sum(view, 0, view.dim, typename Seq::proba_type(0), reached);
}

}  // namespace velacamplix::measurement
