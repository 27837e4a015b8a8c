#pragma once

#include "statevector/measurement/draws.hpp"
#include "statevector/measurement/running_sum.hpp"
#include "statevector/measurement/shared_sums.hpp"

#include <algorithm>
#include <vector>

// Draws wait, in increasing order of their numbers, for the running sum: each finds its index where the sum is not
// below its number any more.

namespace velacamplix::measurement {

// The index of a draw whose number is not above 0.
inline constexpr unsigned long all_ones = ~0ul;

// How many of 2^k sums that never fall are below r, and at most all but the last. (Not below: r is not above it. That
// holds for a NaN, after which all sums are NaN.) No branch to mispredict.
template <class T>
unsigned long count_below(T r, const T* sums, unsigned long count) {
    unsigned long below = 0;
    for (unsigned long step = count / 2; step != 0; step /= 2) below += r > sums[below + step - 1] ? step : 0;
    return below;
}

// Hands draws to the running sums that they are not above. Returns those left.
template <class Seq, class T>
const draw<T>* release(const draw<T>* waiting, const draw<T>* end, unsigned long first, const T* sums,
                       unsigned long count, unsigned long* shots) {
    if constexpr (never_falls<Seq>) {
        for (; waiting != end && !(waiting->number > sums[count - 1]); ++waiting) {
            shots[waiting->shot] = first + count_below(waiting->number, sums, count);
        }
    } else {
        for (unsigned long e = 0; e < count && waiting != end; ++e) {
            for (; waiting != end && !(waiting->number > sums[e]); ++waiting) shots[waiting->shot] = first + e;
        }
    }
    return waiting;
}

// The first of the draws that are above a sum.
template <class T>
const draw<T>* first_above(const draw<T>* waiting, const draw<T>* end, T sum) {
    return std::partition_point(waiting, end, [=](const draw<T>& d) { return !(d.number > sum); });
}

// The same by several threads, each walking the blocks of its own in which draws find their indices. `before` is the
// running sum before the view, `sums` those at the ends of its blocks. Returns the draws left, which are above all
// sums.
template <class Seq, class T>
const draw<T>* release_in_blocks(const Seq& view, T before, const std::vector<T>& sums, const draw<T>* waiting,
                                 const draw<T>* end, unsigned long* shots, int nthreads) {
    const unsigned long size = std::min(sum_block, view.dim);
    const auto body = [&](unsigned long begin, unsigned long last) {
        const draw<T>* mine = begin == 0 ? waiting : first_above(waiting, end, sums[begin - 1]);
        for (unsigned long block = begin; block < last; ++block) {
            const draw<T>* const stop = first_above(mine, end, sums[block]);
            if (mine == stop) continue;
            walk_running_sum(view, block * size, (block + 1) * size, block == 0 ? before : sums[block - 1],
                             [&](unsigned long at, const T* part, unsigned long count) {
                                 mine = release<Seq>(mine, stop, at, part, count, shots);
                                 return mine != stop;
                             });
        }
    };
    storage::parallel_shares(sums.size(), sums.size() * size * 2 * sizeof(T), nthreads, body);
    return first_above(waiting, end, sums.back());
}

// A shot's number as a share of a total. Of a total above 0 it stays above 0.
template <class T>
T share_of(T number, T total) {
    if (total == T(1) || !(number > T(0))) return number;
    return std::max(number * total, total > T(0) ? std::numeric_limits<T>::denorm_min() : T(0));
}

// Bounds the memory for draws to 256 MiB; of more shots the view is walked again.
inline constexpr unsigned long most_draws_at_once = 1ul << 24;

}  // namespace velacamplix::measurement
