#include "statevector/storage/aligned_array.hpp"

#include "statevector/storage/memory_guard.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <new>

namespace velacamplix::storage {
namespace {

// From this size on a state is worth huge pages: fewer address translations make sweeps up to a fifth faster.
constexpr unsigned long huge_page_threshold = 4ul << 20;

void ask_for_huge_pages(void* array, unsigned long bytes) {
    if (bytes < huge_page_threshold) return;
    const auto page = static_cast<std::uintptr_t>(getpagesize());
    const auto begin = (reinterpret_cast<std::uintptr_t>(array) + page - 1) & ~(page - 1);
    const auto end = (reinterpret_cast<std::uintptr_t>(array) + bytes) & ~(page - 1);
    // Only advice: where the kernel refuses it, ordinary pages serve.
    (void)madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

template <class T>
thrust::complex<T>* allocate_unguarded(unsigned long count) {
    constexpr unsigned long amplitude_size = sizeof(thrust::complex<T>);
    if (count > static_cast<unsigned long>(std::numeric_limits<std::ptrdiff_t>::max()) / amplitude_size) {
        throw std::bad_array_new_length();
    }
    void* array = ::operator new[](count* amplitude_size, std::align_val_t{alignment});
    ask_for_huge_pages(array, count * amplitude_size);
    return static_cast<thrust::complex<T>*>(array);
}

}  // namespace

template <class T>
thrust::complex<T>* allocate_amplitudes(unsigned long count) {
    refuse_beyond_free_memory(count * sizeof(thrust::complex<T>));
    return allocate_unguarded<T>(count);
}

template <class T>
pbamplix::amplitude_array<T> make_amplitudes(unsigned long count) {
    return {allocate_unguarded<T>(count), &pbamplix::aligned_array_delete<thrust::complex<T>>};
}

template thrust::complex<float>* allocate_amplitudes<float>(unsigned long);
template thrust::complex<double>* allocate_amplitudes<double>(unsigned long);
template pbamplix::amplitude_array<float> make_amplitudes<float>(unsigned long);
template pbamplix::amplitude_array<double> make_amplitudes<double>(unsigned long);

}  // namespace velacamplix::storage

namespace pbamplix {

template <class A>
void aligned_array_delete(A* p) {
    ::operator delete[](p, std::align_val_t{velacamplix::storage::alignment});
}

template void aligned_array_delete<thrust::complex<float>>(thrust::complex<float>*);
template void aligned_array_delete<thrust::complex<double>>(thrust::complex<double>*);

}  // namespace pbamplix
