#pragma once

#include <velacamplix/storage.hpp>

namespace velacamplix::storage {

inline constexpr unsigned long line_bytes = 64;  // a cache line
inline constexpr unsigned long alignment = 64;   // a cache line, and the widest vector

// `count` uninitialised amplitudes, released by aligned_array_delete. The byte count wraps at 64 bits before the
// memory guard sees it, so an absurd count may pass the guard; it then ends in std::bad_array_new_length.
template <class T>
thrust::complex<T>* allocate_amplitudes(unsigned long count);

// Uninitialised scratch of any amplitude count without the guard; released the same way.
template <class T>
pbamplix::amplitude_array<T> make_amplitudes(unsigned long count);

}  // namespace velacamplix::storage
