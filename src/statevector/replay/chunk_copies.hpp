#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/packs/pack.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <bit>
#include <vector>

namespace velacamplix::replay {

// How the amplitudes of a chunk lie in the whole array: 2^local amplitudes in runs of 2^run_bits, run r standing at
// base + offsets[r].
struct gathering {
    unsigned run_bits = 0;
    std::vector<unsigned long> offsets;

    // `local`: the array's index bits that vary inside a chunk.
    explicit gathering(unsigned long local);
};

inline gathering::gathering(unsigned long local) {
    run_bits = static_cast<unsigned>(std::countr_one(local));
    const unsigned long outer = local & ~index::low_bits(run_bits);
    const unsigned long runs = 1ul << std::popcount(outer);
    for (unsigned long run = 0; run < runs; ++run) offsets.push_back(index::deposit(run, outer));
}

template <class T>
inline constexpr unsigned long amplitudes_in_a_line = storage::line_bytes / sizeof(thrust::complex<T>);

// Copies a run of 2^run_bits amplitudes, line by line. Runs are short: a call of memcpy for each would cost more than
// the copy. A line is one round of the loop: of a shorter one the speed would depend on where the compiler happens to
// put it.
template <class T>
[[gnu::always_inline]] inline void copy_run(const thrust::complex<T>* from, thrust::complex<T>* to,
                                            unsigned long length) {
    using pack = packs::wide_pack<T>;
    for (unsigned long i = 0; i < length; i += amplitudes_in_a_line<T>) {
        for (unsigned long k = i; k < i + amplitudes_in_a_line<T>; k += packs::lanes<pack>) {
            packs::store(to + k, packs::load<pack>(from + k));
        }
    }
}

template <class T>
void copy_in(const gathering& chunks, const thrust::complex<T>* from, thrust::complex<T>* buffer) {
    const unsigned long length = 1ul << chunks.run_bits;
    for (const unsigned long offset : chunks.offsets) {
        copy_run(from + offset, buffer, length);
        buffer += length;
    }
}

template <class T>
void copy_out(const gathering& chunks, const thrust::complex<T>* buffer, thrust::complex<T>* to) {
    const unsigned long length = 1ul << chunks.run_bits;
    for (const unsigned long offset : chunks.offsets) {
        copy_run(buffer, to + offset, length);
        buffer += length;
    }
}

// Asks for the lines of the next chunk, some of its runs at a time, while the present one is worked on.
template <class T>
void fetch_runs(const gathering& chunks, const thrust::complex<T>* from, unsigned long begin, unsigned long end) {
    const unsigned long length = 1ul << chunks.run_bits;
    for (unsigned long run = begin; run < end; ++run) {
        const thrust::complex<T>* const at = from + chunks.offsets[run];
        for (unsigned long i = 0; i < length; i += amplitudes_in_a_line<T>) {
            __builtin_prefetch(at + i, 1, 2);
        }
    }
}

}  // namespace velacamplix::replay
