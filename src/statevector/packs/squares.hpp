#pragma once

#include "statevector/packs/parts.hpp"

// |a|^2 of amplitudes. Where both parts are below the root of the smallest normal number their squares would leave the
// normal range, so such an amplitude is scaled by 4 before and by 1/16 after; the others by 1, which changes no bit.

namespace velacamplix::packs {

template <class T>
inline T squared_magnitude(thrust::complex<T> a) {
    constexpr T tiny = precision<T>::tiny_part;
    const T re = a.real();
    const T im = a.imag();
    if (re < tiny && re > -tiny && im < tiny && im > -tiny) {
        const T re4 = re * T(4);
        const T im4 = im * T(4);
        return (re4 * re4 + im4 * im4) * T(0.0625);
    }
    return re * re + im * im;
}

// The factors before and after squaring, number by number, without a branch.
template <class V>
struct tiny_scaling {
    V up, down;

    // `either`: the bits that are set in one part of an amplitude or the other. A part is tiny when the two highest
    // bits of its exponent are 0; those two alone make a normal number.
    [[gnu::always_inline]] explicit tiny_scaling(bits_of<V> either) {
        using T = scalar_of<V>;
        using integer = scalar_of<bits_of<V>>;
        constexpr auto not_tiny = static_cast<integer>(integer{3} << (8 * sizeof(integer) - 3));
        const auto tiny = (V)(either & not_tiny) == V{};
        up = tiny ? broadcast<V>(T(4)) : broadcast<V>(T(1));
        down = tiny ? broadcast<V>(T(0.0625)) : broadcast<V>(T(1));
    }
};

// Of the amplitudes of two neighbouring packs, in index order.
template <class V>
[[gnu::always_inline]] inline V squared_magnitudes(V first, V second) {
    using bits = bits_of<V>;
    const V re = real_parts(first, second);
    const V im = imaginary_parts(first, second);
    const tiny_scaling<V> scaling((bits)re | (bits)im);
    const V r = re * scaling.up;
    const V i = im * scaling.up;
    return (r * r + i * i) * scaling.down;
}

// Of every amplitude of a pack, in both its parts.
template <class V>
[[gnu::always_inline]] inline V squared_magnitudes_in_both_parts(V a) {
    using bits = bits_of<V>;
    const tiny_scaling<V> scaling((bits)a | (bits)swap_parts(a));
    const V scaled = a * scaling.up;
    const V squares = scaled * scaled;
    return (squares + swap_parts(squares)) * scaling.down;
}

}  // namespace velacamplix::packs
