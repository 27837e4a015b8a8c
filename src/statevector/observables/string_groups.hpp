#pragma once

#include "statevector/observables/pair_products.hpp"
#include "statevector/observables/pauli_values.hpp"

#include <algorithm>
#include <bit>
#include <numeric>
#include <tuple>
#include <vector>

// Strings that are summed together on a pure state, and what their sums are worth.

namespace velacamplix::observables {

// With an odd number of Y the factor i^k is imaginary and selects the imaginary part of the products.
inline bool takes_imaginary_part(const pauli_string& p) { return p.y_count & 1; }

// Re(x i^k) is +Re x, -Im x, -Re x, +Im x for k = 0, 1, 2, 3.
template <class T>
T sign_of(const pauli_string& p) {
    return p.y_count == 1 || p.y_count == 2 ? T(-1) : T(1);
}

// An index and its partner i ^ flip have conjugate products. What they contribute is equal when the number of Y is that
// of the qubits which both flip and count a sign, and cancel when it differs from it by an odd number.
template <class T>
T weight_of_a_pair(const pauli_string& p) {
    const bool odd = std::popcount(p.flip & p.phase) & 1;
    return odd == takes_imaginary_part(p) ? T(2) : T(0);
}

// The order of work: strings that read the same patches of the state follow each other, those of one sequence are
// neighbours.
template <class T>
std::vector<std::size_t> order_by_flip(const std::vector<pauli_string>& strings) {
    std::vector<std::size_t> order(strings.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const auto key = [&](std::size_t t) { return std::tuple(strings[t].flip, takes_imaginary_part(strings[t]), t); };
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return key(a) < key(b); });
    return order;
}

// The part of a flip that decides which patches it reads together.
template <class T>
unsigned long patch_flip(const pauli_string& p) {
    return p.flip >> (slab_bits<T> + 1);
}

template <class T>
unsigned long patch_count(unsigned long size) {
    return std::max(1ul, size / (2 * slab_length<T>));
}

// Strings that read the same patches of a state of `size` amplitudes, in the order of their masks.
template <class T>
struct string_group {
    std::vector<product_sequence> sequences;
    std::vector<unsigned long> masks;

    // Takes those from order[begin] on, and returns the place behind the last.
    std::size_t take(const std::vector<pauli_string>& strings, const std::vector<std::size_t>& order, std::size_t begin,
                     unsigned long size) {
        sequences.clear();
        masks.clear();
        const unsigned long together = patch_flip<T>(strings[order[begin]]);
        const std::size_t most = most_masks(patch_count<T>(size));
        std::size_t end = begin;
        for (; end < order.size() && end - begin < most; ++end) {
            const pauli_string& p = strings[order[end]];
            if (patch_flip<T>(p) != together) break;
            const bool imaginary = takes_imaginary_part(p);
            if (sequences.empty() || sequences.back().flip != p.flip || sequences.back().imaginary != imaginary) {
                sequences.push_back(pair_sequence<T>(p.flip, imaginary, size));
                sequences.back().first_mask = masks.size();
            }
            masks.push_back(mask_over_numbers(sequences.back(), p.phase));
            sequences.back().last_mask = masks.size();
        }
        return end;
    }
};

// <P> of a string from the sum of its sequence.
template <class T>
T value_of(const pauli_string& p, unsigned long size, T sum) {
    const bool in_pairs = pair_sequence<T>(p.flip, false, size).above != 0;
    const T weight = in_pairs ? weight_of_a_pair<T>(p) : T(1);
    // + 0: a sum that began with zero has no negative zero.
    return sign_of<T>(p) * weight * sum + T(0);
}

}  // namespace velacamplix::observables
