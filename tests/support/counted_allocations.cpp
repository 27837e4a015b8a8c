#include "counted_allocations.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

namespace support {
namespace {

std::atomic<bool> counting = false;
std::atomic<long> allocations = 0;

void* allocate(std::size_t bytes) {
    if (counting) ++allocations;
    void* memory = std::malloc(bytes == 0 ? 1 : bytes);
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
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
