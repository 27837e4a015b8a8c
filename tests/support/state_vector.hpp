#pragma once

#include "reference/complex.hpp"
#include "reference/indices.hpp"

#include <velacamplix/statevector.hpp>

#include <cstring>

namespace support {

template <class T>
using StateVector = pbamplix::cpu::PybindAmplixStateVectorCPU<T>;

// A state vector whose array holds a given state, bit for bit.
template <class T>
class LoadedVector : public StateVector<T> {
public:
    explicit LoadedVector(const reference::State<T>& state, int threads = 1)
        : StateVector<T>(reference::qubit_count(state.size())) {
        this->num_threads = threads;
        load(state);
    }

    void load(const reference::State<T>& state) {
        std::memcpy(static_cast<void*>(this->amplitudes.get()), state.data(), state.size() * sizeof(state[0]));
    }
};

// The reference's numbers in the library's type.
template <class T>
thrust::complex<T> as_thrust(reference::Complex<T> value) {
    return {value.re, value.im};
}
template <class T>
std::vector<thrust::complex<T>> as_thrust(const std::vector<reference::Complex<T>>& values) {
    std::vector<thrust::complex<T>> result;
    for (const auto& v : values) result.emplace_back(v.re, v.im);
    return result;
}

}  // namespace support
