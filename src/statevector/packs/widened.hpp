#pragma once

#include "statevector/packs/pack.hpp"

#if defined(__AVX512F__)
#include <immintrin.h>
#endif

// Amplitudes as numbers of their own or of a higher precision. Widening is exact; in the amplitudes' own precision both
// functions are plain copies.

namespace velacamplix::packs {

template <class Out, class T>
inline thrust::complex<Out> widened(thrust::complex<T> a) {
    return {static_cast<Out>(a.real()), static_cast<Out>(a.imag())};
}

template <class V, class N>
[[gnu::always_inline]] inline V widened_pack(N narrow) {
#if defined(__AVX512F__)
    // Of the widest packs GCC 12 converts each half by itself, which takes three times as long.
    if constexpr (sizeof(V) == 64) return _mm512_cvtps_pd(narrow);
#endif
    return __builtin_convertvector(narrow, V);
}

// A pack of neighbouring amplitudes.
template <class V, class T>
[[gnu::always_inline]] inline V load_widened(const thrust::complex<T>* from) {
    if constexpr (std::is_same_v<T, scalar_of<V>>) {
        return load<V>(from);
    } else {
        using narrow = typename pack_type<T, scalars<V> * sizeof(T)>::type;
        return widened_pack<V>(load<narrow>(from));
    }
}

}  // namespace velacamplix::packs
