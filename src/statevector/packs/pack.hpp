#pragma once

#include "statevector/packs/precision.hpp"

#include <velacamplix/amplitude.hpp>

#include <bit>
#include <cstddef>
#include <type_traits>
#include <utility>

// Packs: several interleaved complex amplitudes in one GCC vector (re0, im0, re1, im1, ...). Portable source; the
// widest pack follows from the instruction set the file is compiled for. GCC contracts nothing on these types, so
// every operation below rounds once.

namespace velacamplix::packs {

#if defined(__AVX512F__)
inline constexpr std::size_t widest_bytes = 64;
#elif defined(__AVX__)
inline constexpr std::size_t widest_bytes = 32;
#else
inline constexpr std::size_t widest_bytes = 16;
#endif

template <class T, std::size_t bytes>
struct pack_type {
    typedef T type __attribute__((vector_size(bytes)));
};

template <class T>
using wide_pack = typename pack_type<T, widest_bytes>::type;

// One amplitude: what loops over arrays too small for a wide pack use.
template <class T>
using single_pack = typename pack_type<T, 2 * sizeof(T)>::type;

template <class V>
using scalar_of = std::remove_cvref_t<decltype(std::declval<V>()[0])>;

template <class V>
inline constexpr unsigned scalars = sizeof(V) / sizeof(scalar_of<V>);

// Amplitudes in a pack, and the number of index bits that select one of them.
template <class V>
inline constexpr unsigned lanes = scalars<V> / 2;
template <class V>
inline constexpr unsigned lane_bits = static_cast<unsigned>(std::countr_zero(lanes<V>));

// Bit patterns of a pack, for signs and selections.
template <class V>
using bits_of = typename pack_type<typename precision<scalar_of<V>>::integer, sizeof(V)>::type;

// From and to any address that suits the parts. thrust::complex<double> asks for 16 bytes, which a host's buffer of
// complex numbers need not have; so nothing here reads or writes an amplitude as such.
template <class V>
[[gnu::always_inline]] inline V load(const thrust::complex<scalar_of<V>>* from) {
    V v;
    __builtin_memcpy(&v, reinterpret_cast<const scalar_of<V>*>(from), sizeof(V));
    return v;
}

template <class V>
[[gnu::always_inline]] inline void store(thrust::complex<scalar_of<V>>* to, V v) {
    __builtin_memcpy(reinterpret_cast<scalar_of<V>*>(to), &v, sizeof(V));
}

// The same of plain numbers, as probabilities are.
template <class V>
[[gnu::always_inline]] inline V load_scalars(const scalar_of<V>* from) {
    V v;
    __builtin_memcpy(&v, from, sizeof(V));
    return v;
}

template <class V>
[[gnu::always_inline]] inline void store_scalars(scalar_of<V>* to, V v) {
    __builtin_memcpy(to, &v, sizeof(V));
}

// One amplitude, by its parts.
template <class T>
[[gnu::always_inline]] inline thrust::complex<T> read_amplitude(const thrust::complex<T>* from) {
    const T* const parts = reinterpret_cast<const T*>(from);
    return {parts[0], parts[1]};
}

template <class T>
[[gnu::always_inline]] inline void write_amplitude(thrust::complex<T>* to, thrust::complex<T> a) {
    T* const parts = reinterpret_cast<T*>(to);
    parts[0] = a.real();
    parts[1] = a.imag();
}

template <class V>
[[gnu::always_inline]] inline V broadcast(scalar_of<V> x) {
    return x - V{};
}

template <class V, class Pattern, std::size_t... s>
[[gnu::always_inline]] inline V shuffle(V a, V b, Pattern, std::index_sequence<s...>) {
    return __builtin_shufflevector(a, b, Pattern::at(s)...);
}

struct swapped_parts {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ 1); }
};

// (re, im) -> (im, re) in every amplitude.
template <class V>
[[gnu::always_inline]] inline V swap_parts(V v) {
    return shuffle(v, v, swapped_parts{}, std::make_index_sequence<scalars<V>>{});
}

// (re, im) -> (-im, re). The sign comes from a product, which unlike a flipped bit leaves a NaN its sign.
template <class V, std::size_t... s>
[[gnu::always_inline]] inline V quarter_turn(V v, std::index_sequence<s...>) {
    constexpr V signs = {(s % 2 == 0 ? scalar_of<V>(-1) : scalar_of<V>(1))...};
    return swap_parts(v) * signs;
}
template <class V>
[[gnu::always_inline]] inline V quarter_turn(V v) {
    return quarter_turn(v, std::make_index_sequence<scalars<V>>{});
}

template <class V, std::size_t... s>
constexpr bits_of<V> sign_pattern(bool real, bool imaginary, std::index_sequence<s...>) {
    using integer = scalar_of<bits_of<V>>;
    constexpr auto sign = static_cast<integer>(std::make_unsigned_t<integer>{1} << (8 * sizeof(integer) - 1));
    return bits_of<V>{((s % 2 == 0 ? real : imaginary) ? sign : integer{0})...};
}

template <class V, std::size_t... s>
constexpr bits_of<V> part_pattern(bool real, bool imaginary, std::index_sequence<s...>) {
    using integer = scalar_of<bits_of<V>>;
    return bits_of<V>{((s % 2 == 0 ? real : imaginary) ? integer{-1} : integer{0})...};
}

// Flip the sign bits of both parts, of the real parts, of the imaginary parts. No arithmetic: NaNs keep payloads.
template <class V>
[[gnu::always_inline]] inline V negate(V v) {
    return (V)((bits_of<V>)v ^ sign_pattern<V>(true, true, std::make_index_sequence<scalars<V>>{}));
}
template <class V>
[[gnu::always_inline]] inline V negate_real(V v) {
    return (V)((bits_of<V>)v ^ sign_pattern<V>(true, false, std::make_index_sequence<scalars<V>>{}));
}
template <class V>
[[gnu::always_inline]] inline V negate_imaginary(V v) {
    return (V)((bits_of<V>)v ^ sign_pattern<V>(false, true, std::make_index_sequence<scalars<V>>{}));
}

// Lane by lane: `chosen` where the mask is all ones, else `other`.
template <class V>
[[gnu::always_inline]] inline V select(bits_of<V> mask, V chosen, V other) {
    return mask ? chosen : other;
}

// Real parts from `real`, imaginary parts from `imaginary`. With a difference and a sum as arguments this subtracts in
// one part and adds in the other, which is not the same as adding a negated operand: a NaN keeps its sign here.
template <class V>
[[gnu::always_inline]] inline V join_parts(V real, V imaginary) {
    constexpr auto imaginary_parts = part_pattern<V>(false, true, std::make_index_sequence<scalars<V>>{});
    return select(imaginary_parts, imaginary, real);
}

template <unsigned p, unsigned width>
struct exchange_low {
    static constexpr int at(std::size_t s) {
        const std::size_t lane = s / 2;
        const std::size_t from = (lane >> p) & 1 ? width + 2 * (lane ^ (std::size_t{1} << p)) + s % 2 : s;
        return static_cast<int>(from);
    }
};
template <unsigned p, unsigned width>
struct exchange_high {
    static constexpr int at(std::size_t s) {
        const std::size_t lane = s / 2;
        const std::size_t from = (lane >> p) & 1 ? width + s : 2 * (lane | (std::size_t{1} << p)) + s % 2;
        return static_cast<int>(from);
    }
};

// Exchanges index bit p inside the packs with the bit that tells a from b. Its own inverse.
template <unsigned p, class V>
[[gnu::always_inline]] inline void exchange_bit(V& a, V& b) {
    constexpr auto all = std::make_index_sequence<scalars<V>>{};
    const V low = shuffle(a, b, exchange_low<p, scalars<V>>{}, all);
    const V high = shuffle(a, b, exchange_high<p, scalars<V>>{}, all);
    a = low;
    b = high;
}

// A complex constant ready for products in full: re = x.re*y.re - x.im*y.im, im = x.re*y.im + x.im*y.re. The sign of
// the subtraction sits in the constant, which changes no bit of the result: x - y and x + (-y) round alike.
template <class V>
struct factor {
    V re;
    V im;  // (-im, +im, -im, +im, ...)

    [[gnu::always_inline]] explicit factor(thrust::complex<scalar_of<V>> c)
        : re(broadcast<V>(c.real())), im(negate_real(broadcast<V>(c.imag()))) {}

    [[gnu::always_inline]] V operator*(V v) const { return v * re + swap_parts(v) * im; }
};

}  // namespace velacamplix::packs
