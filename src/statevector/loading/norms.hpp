#pragma once

#include "statevector/kernels/pack.hpp"

#include <limits>

namespace velacamplix::loading {

// |a|^2 of every amplitude of a pack, in both parts. Below the root of the smallest normal number squares would leave
// the normal range, so an amplitude with two such parts is scaled by 4 before and by 1/16 after; the others by 1,
// which changes no bit.
template <class V>
[[gnu::always_inline]] inline V norms_in_both_parts(V a) {
    using T = kernels::scalar_of<V>;
    using bits = kernels::bits_of<V>;
    using integer = kernels::scalar_of<bits>;
    // A part is tiny when the two highest bits of its exponent are 0; those two alone make a normal number.
    constexpr auto not_tiny = static_cast<integer>(integer{3} << (8 * sizeof(integer) - 3));
    const V other = kernels::swap_parts(a);
    const auto tiny = (V)(((bits)a | (bits)other) & not_tiny) == V{};
    const V up = tiny ? kernels::broadcast<V>(T(4)) : kernels::broadcast<V>(T(1));
    const V down = tiny ? kernels::broadcast<V>(T(0.0625)) : kernels::broadcast<V>(T(1));
    const V scaled = a * up;
    const V squares = scaled * scaled;
    return (squares + kernels::swap_parts(squares)) * down;
}

template <unsigned width>
struct one_of_each_pair {
    static constexpr int at(std::size_t s) { return static_cast<int>(2 * s % (2ul * width)); }
};

// One part of each pair of the first pack, then of the second.
template <class V>
[[gnu::always_inline]] inline V one_of_both_parts(V first, V second) {
    return kernels::shuffle(first, second, one_of_each_pair<kernels::scalars<V>>{},
                            std::make_index_sequence<kernels::scalars<V>>{});
}

// The same norms without scaling. They may be wrong in their last bits where an amplitude is counted in `small`.
// (Counted in floating point: GCC 12 takes a sum of comparisons apart, word by word, on the baseline.)
template <class V>
[[gnu::always_inline]] inline V norms_of_ordinary(V a, V& small) {
    using T = kernels::scalar_of<V>;
    // Two tiny parts together stay below twice the smallest normal number. Zeros need no scaling.
    constexpr T least = 4 * std::numeric_limits<T>::min();
    const V squares = a * a;
    const V norms = squares + kernels::swap_parts(squares);
    const auto marked = (norms < kernels::broadcast<V>(least)) & (a != V{});
    small += marked ? kernels::broadcast<V>(T(1)) : V{};
    return norms;
}

// True when both parts of every amplitude are zeros of either sign.
template <class V>
[[gnu::always_inline]] inline bool is_zero(V a) {
    constexpr bool wide_parts = sizeof(kernels::scalar_of<V>) == 8;
    constexpr unsigned long magnitude = wide_parts ? 0x7ffffffffffffffful : 0x7fffffff7ffffffful;
    unsigned long words[sizeof(V) / sizeof(unsigned long)];
    __builtin_memcpy(words, &a, sizeof(V));
    unsigned long any = 0;
    for (const unsigned long word : words) any |= word;
    return (any & magnitude) == 0;
}

}  // namespace velacamplix::loading
