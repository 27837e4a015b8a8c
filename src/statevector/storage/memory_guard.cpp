#include "statevector/storage/memory_guard.hpp"

#include <sys/sysinfo.h>

#include <iostream>
#include <new>

namespace velacamplix::storage {

unsigned long free_memory() noexcept {
    struct sysinfo info;
    if (sysinfo(&info) < 0) return 0;
    return static_cast<unsigned long>(info.freeram) * info.mem_unit;
}

void refuse_beyond_free_memory(unsigned long needed) {
    if (free_memory() >= needed) return;
    std::cout << "Not enough memory for allocating array \u2014 memory swap is not allowed.\n";
    throw std::bad_alloc();
}

}  // namespace velacamplix::storage
