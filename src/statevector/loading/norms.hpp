#pragma once

#include "statevector/packs/squares.hpp"

#include <limits>

namespace velacamplix::loading {

// squared_magnitudes_in_both_parts without scaling. They may be wrong in their last bits where an amplitude is counted
// in `small`. (Counted in floating point: GCC 12 takes a sum of comparisons apart, word by word, on the baseline.)
template <class V>
[[gnu::always_inline]] inline V norms_of_ordinary(V a, V& small) {
    using T = packs::scalar_of<V>;
    // Two tiny parts together stay below twice the smallest normal number. Zeros need no scaling.
    constexpr T least = 4 * std::numeric_limits<T>::min();
    const V squares = a * a;
    const V norms = squares + packs::swap_parts(squares);
    const auto marked = (norms < packs::broadcast<V>(least)) & (a != V{});
    small += marked ? packs::broadcast<V>(T(1)) : V{};
    return norms;
}

// True when both parts of every amplitude are zeros of either sign.
template <class V>
[[gnu::always_inline]] inline bool is_zero(V a) {
    constexpr unsigned long magnitude =
        sizeof(packs::scalar_of<V>) == sizeof(unsigned long) ? 0x7ffffffffffffffful : 0x7fffffff7ffffffful;
    unsigned long words[sizeof(V) / sizeof(unsigned long)];
    __builtin_memcpy(words, &a, sizeof(V));
    unsigned long any = 0;
    for (const unsigned long word : words) any |= word;
    return (any & magnitude) == 0;
}

}  // namespace velacamplix::loading
