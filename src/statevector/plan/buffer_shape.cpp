#include "statevector/plan/buffer_shape.hpp"

#include "statevector/packs/precision.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/amplitude.hpp>

#include <unistd.h>

#include <algorithm>
#include <bit>

namespace velacamplix::plan {
namespace {

constexpr unsigned long usual_first_level_cache_bytes = 32ul << 10;

// Runs of eight cache lines.
template <class T>
constexpr unsigned least_run_bits = static_cast<unsigned>(std::countr_zero(8 * storage::line_bytes /
                                                                           sizeof(thrust::complex<T>)));

// Two thirds of the cache at most: the rest is for what the gates read besides, and for the next chunk's first lines.
template <class T>
constexpr unsigned chunk_bits_within(unsigned long cache_bytes) {
    return static_cast<unsigned>(std::bit_width(cache_bytes * 2 / 3 / sizeof(thrust::complex<T>))) - 1;
}

}  // namespace

unsigned long first_level_cache_bytes() {
    static const long told = sysconf(_SC_LEVEL1_DCACHE_SIZE);
    return told > 0 ? static_cast<unsigned long>(told) : usual_first_level_cache_bytes;
}

template <class T>
buffer_shape choose_shape(unsigned nbqbits, int threads, unsigned long cache_bytes) {
    unsigned chunk_bits = chunk_bits_within<T>(std::max(cache_bytes, 8ul << 10));  // whatever a system tells
    // Enough chunks for every thread, where a second thread pays at all.
    const bool shared = threads > 1 && (sizeof(thrust::complex<T>) << nbqbits) >= storage::worthwhile_bytes;
    if (shared && nbqbits > chunk_bits) chunk_bits = std::min(chunk_bits, nbqbits - 2);
    return {least_run_bits<T>, chunk_bits};
}

template <class T>
buffer_shape small_fused_shape() {
    return {least_run_bits<T>, chunk_bits_within<T>(usual_first_level_cache_bytes)};
}

template <class T>
buffer_shape large_fused_shape(unsigned nbqbits) {
    constexpr unsigned long chunk_bytes = 256ul << 10;
    constexpr unsigned share_bits = 5;
    constexpr auto largest = static_cast<unsigned>(std::countr_zero(chunk_bytes / sizeof(thrust::complex<T>)));
    const unsigned smallest = small_fused_shape<T>().local_bits;
    return {least_run_bits<T>, std::clamp(nbqbits - std::min(nbqbits, share_bits), smallest, largest)};
}

#define VELACAMPLIX_INSTANTIATE(T)                                       \
    template buffer_shape choose_shape<T>(unsigned, int, unsigned long); \
    template buffer_shape small_fused_shape<T>();                        \
    template buffer_shape large_fused_shape<T>(unsigned);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::plan
