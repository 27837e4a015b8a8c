#pragma once

#include "statevector/packs/pack.hpp"

// Amplitudes as numbers of their own or of a higher precision. Widening is exact; in the amplitudes' own precision both
// functions are plain copies.

namespace velacamplix::packs {

template <class Out, class T>
inline thrust::complex<Out> widened(thrust::complex<T> a) {
    return {static_cast<Out>(a.real()), static_cast<Out>(a.imag())};
}

// A pack of neighbouring amplitudes.
template <class V, class T>
[[gnu::always_inline]] inline V load_widened(const thrust::complex<T>* from) {
    if constexpr (std::is_same_v<T, scalar_of<V>>) {
        return load<V>(from);
    } else {
        using narrow = typename pack_type<T, scalars<V> * sizeof(T)>::type;
        return __builtin_convertvector(load<narrow>(from), V);
    }
}

}  // namespace velacamplix::packs
