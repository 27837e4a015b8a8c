#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/packs/pack.hpp"
#include "statevector/storage/basis_state.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/statevector.hpp>

#include <bit>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velacamplix::object {

// A product-state string read as masks over bits 0, 1, ... for its characters 0, 1, ...; positions wrap at 64.
template <class T>
struct product_state {
    unsigned long fixed = 0;  // characters 0 and 1
    unsigned long ones = 0;   // character 1
    unsigned long minus = 0;  // character -
    T magnitude = 1;          // one factor for every + and -

    explicit product_state(std::string_view text) {
        for (unsigned int i = 0; i < text.size(); ++i) {
            const unsigned long bit = index::bit(i);
            const char c = text[i];
            if (c == '0' || c == '1') fixed |= bit;
            if (c == '1') ones |= bit;
            if (c == '-') minus |= bit;
            if (c == '+' || c == '-') magnitude *= packs::precision<T>::inverse_sqrt2;
        }
    }
};

// The first thing that a new state needs is a reset: here a host hears that there is nothing to be reset.
template <class T>
void refuse_unusable(const pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state) {
    constexpr unsigned int most_qubits = 63;  // with more the size has wrapped
    if (state.nqubits > most_qubits) {
        throw std::logic_error("A state has at most 63 qubits, not " + std::to_string(state.nqubits));
    }
    if (state.amplitudes == nullptr) {
        throw std::logic_error(
            "This state has no amplitudes: it was released, or a resize was refused. Call release_memory, then resize "
            "to "
            "one qubit or more.");
    }
}

}  // namespace velacamplix::object

namespace pbamplix::cpu {

template <class T>
void PybindAmplixStateVectorCPU<T>::reset(std::optional<unsigned long> state) {
    using namespace velacamplix;
    object::refuse_unusable(*this);
    thrust::complex<T>* const to = amplitudes.get();
    const unsigned long bytes = size * sizeof(thrust::complex<T>);
    if (!state.has_value()) {
        storage::write_basis_state(to, size, 0, num_threads);
        return;
    }
    const auto* const from = reinterpret_cast<const thrust::complex<T>*>(*state);
    const unsigned int n = nqubits;
    storage::parallel_shares(size, bytes, num_threads, [=](unsigned long begin, unsigned long end) {
        for (unsigned long i = begin; i < end; ++i) to[i] = packs::read_amplitude(from + index::reverse_bits(i, n));
    });
}

template <class T>
void PybindAmplixStateVectorCPU<T>::reset_to_str(std::string s) {
    using namespace velacamplix;
    object::refuse_unusable(*this);
    const object::product_state<T> product(s);
    // Character i stands for bit n - 1 - i of an index: the masks are reversed once, not every index.
    const unsigned long known = size - 1;
    const unsigned long fixed = index::reverse_bits(product.fixed & known, nqubits);
    const unsigned long ones = index::reverse_bits(product.ones & known, nqubits);
    const unsigned long minus = index::reverse_bits(product.minus & known, nqubits);
    const bool possible = (product.ones & ~known) == 0;  // a 1 on a qubit that does not exist matches nothing
    const T magnitude = product.magnitude;
    thrust::complex<T>* const to = amplitudes.get();
    const auto fill = [=](unsigned long begin, unsigned long end) {
        for (unsigned long i = begin; i < end; ++i) {
            thrust::complex<T> value(0, 0);
            if (possible && (i & fixed) == ones) {
                value = std::popcount(i & minus) % 2 == 0 ? thrust::complex<T>(magnitude, T(0))
                                                          : thrust::complex<T>(-magnitude, T(-0.0));
            }
            to[i] = value;
        }
    };
    storage::parallel_shares(size, size * sizeof(thrust::complex<T>), num_threads, fill);
}

}  // namespace pbamplix::cpu
