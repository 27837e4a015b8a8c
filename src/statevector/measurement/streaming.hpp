#pragma once

#include "statevector/storage/aligned_array.hpp"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Stores that go past the caches. A large array that is written once and not read soon would otherwise first be read
// line by line, only to be overwritten, and drive out what the caches hold. The one place for intrinsics in this
// folder: GCC has no portable spelling of such a store.

namespace velacamplix::measurement {

using storage::line_bytes;

// Below this the reader probably finds the result in a cache, which streaming would deny him.
inline constexpr unsigned long streaming_bytes = 16ul << 20;

// Copies `bytes`, whole lines, between addresses on line boundaries. A line streamed in parts would be read, merged
// and written again and again, seven times slower.
inline void stream_lines(void* to, const void* from, unsigned long bytes) {
#if defined(__SSE2__)
    const auto* source = static_cast<const __m128i*>(from);
    auto* target = static_cast<__m128i*>(to);
    for (unsigned long k = 0; k < bytes / sizeof(__m128i); ++k) {
        _mm_stream_si128(target + k, _mm_load_si128(source + k));
    }
#else
    std::memcpy(to, from, bytes);
#endif
}

// Makes a thread's streamed stores visible to the others, as the end of a parallel region does for ordinary ones.
inline void finish_streaming() {
#if defined(__SSE2__)
    _mm_sfence();
#endif
}

// How many elements `to` lies behind a line boundary.
template <class Out>
inline unsigned long elements_past_line(const Out* to) {
    return reinterpret_cast<std::uintptr_t>(to) % line_bytes / sizeof(Out);
}

}  // namespace velacamplix::measurement
