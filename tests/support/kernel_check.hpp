#pragma once

#include "reference/indices.hpp"
#include "support/compare.hpp"
#include "support/control_sets.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <algorithm>

// One exact comparison: a kernel on a fenced array against the reference, for every thread count.
namespace support {

// Compares `run(array, threads)` with the state that the reference made of `start`. `threads` has the counts to try.
template <class T, class Run>
testing::AssertionResult kernel_agrees(GuardedArray<T>& array, const reference::State<T>& start,
                                       const reference::State<T>& expected, const reference::Qubits& targets,
                                       const reference::Qubits& controls, const std::vector<int>& threads, Run run) {
    for (int count : threads) {
        array.load(start);
        run(array.data(), count);
        if (auto same = same_bits(expected, array.data()); !same) {
            return same << "\n" << describe(reference::qubit_count(start.size()), targets, controls, count);
        }
        if (auto stand = array.fences_stand(); !stand) {
            return stand << "\n" << describe(reference::qubit_count(start.size()), targets, controls, count);
        }
    }
    return testing::AssertionSuccess();
}

// Target qubits for a state large enough to be shared among threads: inside the widest vector, in the prefetched
// middle, at the top. 16, 17 and 18 qubits take every third of them each.
inline reference::Qubits telling_qubits(unsigned int n) {
    const reference::Qubits all = {0, 1, 2, 3, 6, n / 2, n - 2, n - 1};
    reference::Qubits result;
    for (unsigned int i = n % 3; i < all.size(); i += 3) result.push_back(all[i]);
    return result;
}

// Control lists for such a state.
inline std::vector<reference::Qubits> telling_controls(const reference::Qubits& targets, unsigned int n) {
    std::vector<reference::Qubits> sets = {{}};
    for (const reference::Qubits& wanted : {reference::Qubits{1}, {n - 3}, {n / 2 - 1, 2}}) {
        reference::Qubits set;
        for (unsigned int q : wanted) {
            if (std::find(targets.begin(), targets.end(), q) == targets.end()) set.push_back(q);
        }
        if (!set.empty()) sets.push_back(set);
    }
    return sets;
}

// All ordered pairs of different qubits below n.
inline std::vector<reference::Qubits> ordered_pairs(unsigned int n) {
    std::vector<reference::Qubits> pairs;
    for (unsigned int a = 0; a < n; ++a) {
        for (unsigned int b = 0; b < n; ++b) {
            if (a != b) pairs.push_back({a, b});
        }
    }
    return pairs;
}

}  // namespace support
