#pragma once

#include "statevector/kernels/pack.hpp"

// Amplitudes as numbers of their own or of a higher precision. Widening is exact; in the amplitudes' own precision both
// functions are plain copies.

namespace velacamplix::measurement {

template <class Out, class T>
inline thrust::complex<Out> widened(thrust::complex<T> a) {
    return {static_cast<Out>(a.real()), static_cast<Out>(a.imag())};
}

// A pack of neighbouring amplitudes.
template <class V, class T>
[[gnu::always_inline]] inline V load_widened(const thrust::complex<T>* from) {
    if constexpr (std::is_same_v<T, kernels::scalar_of<V>>) {
        return kernels::load<V>(from);
    } else {
        using narrow = typename kernels::pack_type<T, kernels::scalars<V> * sizeof(T)>::type;
        return __builtin_convertvector(kernels::load<narrow>(from), V);
    }
}

}  // namespace velacamplix::measurement
