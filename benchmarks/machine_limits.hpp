#pragma once

#include <cstddef>

// What the machine allows, measured in the same run as what it is compared with.

namespace velacamplix::bench {

// Seconds for one in-place sweep (read, multiply, write) over `bytes` of an array, split over threads like the
// library splits its work.
double sweep_seconds(void* array, std::size_t bytes, int threads);

// Seconds for one reading pass that sums `bytes` of an array of doubles.
double read_seconds(const void* array, std::size_t bytes, int threads);

// Seconds per 16 bytes of an in-place sweep over 256 KiB per thread, which stays in the second-level cache; all
// threads' work counts. The unit in which whole circuits are told.
double cache_sweep_seconds_per_amplitude(int threads);

}  // namespace velacamplix::bench
