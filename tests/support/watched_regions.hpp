#pragma once

#include <vector>

namespace support {

// The thread counts of the parallel regions that the library opens, in order, for the life of the object. This
// program's own entry point of GCC's OpenMP runtime notes the count and passes the call on.
class WatchedRegions {
public:
    WatchedRegions();
    ~WatchedRegions();
    WatchedRegions(const WatchedRegions&) = delete;
    WatchedRegions& operator=(const WatchedRegions&) = delete;

    const std::vector<unsigned int>& thread_counts() const;
};

}  // namespace support
