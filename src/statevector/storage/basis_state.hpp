#pragma once

#include "statevector/storage/parallel.hpp"

#include <velacamplix/amplitude.hpp>

#include <algorithm>

namespace velacamplix::storage {

// Makes `size` amplitudes those of one basis state.
template <class T>
void write_basis_state(thrust::complex<T>* to, unsigned long size, unsigned long basis_state, int nthreads) {
    parallel_shares(size, size * sizeof(thrust::complex<T>), nthreads, [=](unsigned long begin, unsigned long end) {
        std::fill(to + begin, to + end, thrust::complex<T>(0, 0));
    });
    to[basis_state] = thrust::complex<T>(1, 0);
}

}  // namespace velacamplix::storage
