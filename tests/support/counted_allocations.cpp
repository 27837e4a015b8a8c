#include "counted_allocations.hpp"

#include "failing_allocations.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace support {
namespace {

std::atomic<bool> counting = false;
std::atomic<long> allocations = 0;

void* allocate(std::size_t bytes) {
    if (counting) ++allocations;
    fail_if_told();
    void* memory = std::malloc(bytes == 0 ? 1 : bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* allocate_aligned(std::size_t bytes, std::align_val_t alignment) {
    fail_if_told();
    const auto unit = static_cast<std::size_t>(alignment);
    void* memory = std::aligned_alloc(unit, (std::max(bytes, 1ul) + unit - 1) / unit * unit);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

CountedAllocations::CountedAllocations() {
    allocations = 0;
    counting = true;
}
CountedAllocations::~CountedAllocations() { counting = false; }
long CountedAllocations::count() const { return allocations; }

}  // namespace support

// The plain forms; those of the standard library for arrays end here too.
void* operator new(std::size_t bytes) { return support::allocate(bytes); }
// The form that does not throw, by which the standard library asks for temporary buffers, ends here as well: an address
// sanitizer brings its own and would then see its memory released by ours.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    try {
        return support::allocate(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
// For vectors of packs. The form for arrays, which amplitudes take, stands in scripted_system.cpp.
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return support::allocate_aligned(bytes, alignment);
}
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
