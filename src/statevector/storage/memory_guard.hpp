#pragma once

namespace velacamplix::storage {

// Free physical memory in bytes, without swap, buffers and page cache; 0 when the system does not tell.
unsigned long free_memory() noexcept;

// Writes the guard's line to standard output and throws std::bad_alloc when fewer than `needed` bytes are free.
void refuse_beyond_free_memory(unsigned long needed);

}  // namespace velacamplix::storage
