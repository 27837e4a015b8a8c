#pragma once

#include "statevector/packs/pack.hpp"

// Real and imaginary parts, held apart: two neighbouring packs of amplitudes become a pack of their real parts and one
// of their imaginary parts, in the order of the amplitudes.

namespace velacamplix::packs {

template <unsigned width, bool imaginary>
struct one_part_of_two {
    static constexpr int at(std::size_t s) { return static_cast<int>(2 * s % (2ul * width) + (imaginary ? 1 : 0)); }
};

template <class V>
[[gnu::always_inline]] inline V real_parts(V first, V second) {
    return shuffle(first, second, one_part_of_two<scalars<V>, false>{}, std::make_index_sequence<scalars<V>>{});
}
template <class V>
[[gnu::always_inline]] inline V imaginary_parts(V first, V second) {
    return shuffle(first, second, one_part_of_two<scalars<V>, true>{}, std::make_index_sequence<scalars<V>>{});
}

template <unsigned width, bool second>
struct side_by_side {
    static constexpr int at(std::size_t s) {
        return static_cast<int>(s / 2 + (second ? width / 2 : 0) + (s % 2 == 0 ? 0 : width));
    }
};

// The way back: the first pack of amplitudes, and the second.
template <class V>
[[gnu::always_inline]] inline V first_amplitudes(V re, V im) {
    return shuffle(re, im, side_by_side<scalars<V>, false>{}, std::make_index_sequence<scalars<V>>{});
}
template <class V>
[[gnu::always_inline]] inline V second_amplitudes(V re, V im) {
    return shuffle(re, im, side_by_side<scalars<V>, true>{}, std::make_index_sequence<scalars<V>>{});
}

}  // namespace velacamplix::packs
